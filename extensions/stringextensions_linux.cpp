// SPDX-FileCopyrightText: 2026 Quillet developers
// SPDX-License-Identifier: MIT
//
// Character sets beyond Qt's own converters go through iconv(3): glibc knows
// the IANA names. Key names come from xkbcommon with the X server's current
// core keyboard keymap; without an X display there is no layout and the
// answer is "<ERR>". Key codes are X keycodes; modifiers are an xkb
// modifier mask.
#include "stringextensions.h"
#include "stringextensions_p.h"

#include <QHash>
#include <cerrno>
#include <iconv.h>
#include <xcb/xcb.h>
#include <xkbcommon/xkbcommon-x11.h>
#include <xkbcommon/xkbcommon.h>

namespace StringExtensions {

namespace {
struct Charset
{
    quint32 encoding;
    const char *iconvName;
    std::initializer_list<const char *> names;
};

// Numbers as the platform numbers them (0x80000000 | the Core Foundation
// number for those without a classic number).
const Charset charsets[] = {
    { UTF8Encoding, "UTF-8", { "utf-8", "utf8" } },
    { ISOLatin1Encoding, "ISO-8859-1", { "iso-8859-1", "latin1", "iso_8859-1", "l1" } },
    { UnicodeEncoding, "UTF-16", { "utf-16", "iso-10646-ucs-2", "ucs-2" } },
    { MacOSRomanEncoding, "MACINTOSH", { "macintosh", "x-mac-roman", "mac" } },
    { UTF16BigEndianEncoding, "UTF-16BE", { "utf-16be" } },
    { UTF16LittleEndianEncoding, "UTF-16LE", { "utf-16le" } },
    { UTF32BigEndianEncoding, "UTF-32BE", { "utf-32be" } },
    { UTF32LittleEndianEncoding, "UTF-32LE", { "utf-32le" } },
    { 1, "ASCII", { "us-ascii", "ascii", "ansi_x3.4-1968" } },
    { 3, "EUC-JP", { "euc-jp" } },
    { 8, "SHIFT_JIS", { "shift_jis", "sjis", "x-sjis" } },
    { 9, "ISO-8859-2", { "iso-8859-2", "latin2" } },
    { 11, "CP1251", { "windows-1251" } },
    { 12, "CP1252", { "windows-1252" } },
    { 13, "CP1253", { "windows-1253" } },
    { 14, "CP1254", { "windows-1254" } },
    { 15, "CP1250", { "windows-1250" } },
    { 21, "ISO-2022-JP", { "iso-2022-jp" } },
    { 0x80000205, "ISO-8859-5", { "iso-8859-5" } },
    { 0x80000207, "ISO-8859-7", { "iso-8859-7" } },
    { 0x80000209, "ISO-8859-9", { "iso-8859-9" } },
    { 0x8000020F, "ISO-8859-15", { "iso-8859-15", "latin-9" } },
    { 0x80000632, "GB18030", { "gb18030" } },
    { 0x80000930, "GBK", { "gbk", "gb2312" } },
    { 0x80000940, "EUC-KR", { "euc-kr" } },
    { 0x80000A02, "KOI8-R", { "koi8-r" } },
    { 0x80000A03, "BIG5", { "big5" } },
};
} // namespace

quint32 encodingForIANACharSetName(const QString &name)
{
    const QByteArray lower = name.toLatin1().toLower();
    for (const Charset &c : charsets)
        for (const char *n : c.names)
            if (lower == n)
                return c.encoding;
    return 0;
}

QString platformDecode(const QByteArray &bytes, quint32 encoding)
{
    const char *from = nullptr;
    for (const Charset &c : charsets)
        if (c.encoding == encoding)
            from = c.iconvName;
    if (!from)
        return QString();
    iconv_t cd = iconv_open("UTF-16LE", from);
    if (cd == iconv_t(-1))
        return QString();
    QByteArray out(bytes.size() * 4 + 8, Qt::Uninitialized);
    char *in = const_cast<char *>(bytes.constData());
    size_t inLeft = size_t(bytes.size());
    char *o = out.data();
    size_t outLeft = size_t(out.size());
    const size_t r = iconv(cd, &in, &inLeft, &o, &outLeft);
    iconv_close(cd);
    if (r == size_t(-1))
        return QString();
    const qsizetype produced = out.size() - qsizetype(outLeft);
    return QString(reinterpret_cast<const QChar *>(out.constData()), produced / 2);
}

QString stringWithVirtualKeyCode(quint16 keyCode, quint32 modifiers)
{
    static const QString error = QStringLiteral("<ERR>");
    xcb_connection_t *conn = xcb_connect(nullptr, nullptr);
    if (xcb_connection_has_error(conn)) {
        xcb_disconnect(conn);
        return error;
    }
    QString result = error;
    xkb_context *ctx = xkb_context_new(XKB_CONTEXT_NO_FLAGS);
    if (ctx
        && xkb_x11_setup_xkb_extension(conn, XKB_X11_MIN_MAJOR_XKB_VERSION,
            XKB_X11_MIN_MINOR_XKB_VERSION, XKB_X11_SETUP_XKB_EXTENSION_NO_FLAGS, nullptr, nullptr,
            nullptr, nullptr)) {
        const int32_t device = xkb_x11_get_core_keyboard_device_id(conn);
        xkb_keymap *keymap = device >= 0
            ? xkb_x11_keymap_new_from_device(ctx, conn, device, XKB_KEYMAP_COMPILE_NO_FLAGS)
            : nullptr;
        if (keymap && xkb_keymap_key_get_name(keymap, keyCode)) {
            xkb_state *state = xkb_state_new(keymap);
            xkb_state_update_mask(state, modifiers, 0, 0, 0, 0, 0);
            char buffer[64];
            const int n = xkb_state_key_get_utf8(state, keyCode, buffer, sizeof buffer);
            const QString text = QString::fromUtf8(buffer, qMin(n, int(sizeof buffer) - 1));
            if (text.size() <= 4) // room for at most four units, as the layout call has
                result = text;
            xkb_state_unref(state);
        }
        if (keymap)
            xkb_keymap_unref(keymap);
    }
    if (ctx)
        xkb_context_unref(ctx);
    xcb_disconnect(conn);
    return result;
}

} // namespace StringExtensions

// SPDX-FileCopyrightText: 2026 Quillet developers
// SPDX-License-Identifier: MIT
//
// Character sets beyond Qt's own converters go through iconv(3) (glibc knows
// the IANA names and their aliases), else through ICU's converters; ICU also
// resolves aliases, so "latin1" and "ISO_8859-1:1987" are the one Latin 1.
// The encoding of a file without a byte-order mark is guessed by ICU's
// charset detector. Key names come from xkbcommon with the X server's current
// core keyboard keymap, read over one kept connection; without an X display
// there is no layout and the answer is "<ERR>". Key codes are X keycodes;
// modifiers are an xkb modifier mask.
#include "stringextensions.h"
#include "stringextensions_p.h"

#include <QList>
#include <QMutex>
#include <cerrno>
#include <iconv.h>
#include <memory>
#include <unicode/ucnv.h>
#include <unicode/ucsdet.h>
#include <xcb/xcb.h>
#include <xkbcommon/xkbcommon-x11.h>
#include <xkbcommon/xkbcommon.h>

namespace StringExtensions {

namespace {
struct Charset
{
    quint32 encoding;
    const char *iconvName;
    std::initializer_list<const char *> aliases;
};

// The platform's own numbers (0x80000000 | the Core Foundation number for
// those without a classic number). Every other name iconv or ICU knows gets a
// number of this process from 0xA0000000 on (see nameRegistry), and decodes
// as iconv decodes it.
const Charset charsets[] = {
    { UTF8Encoding, "UTF-8", { "UTF8" } },
    { ISOLatin1Encoding, "ISO-8859-1", { "LATIN1", "ISO_8859-1", "L1" } },
    { UnicodeEncoding, "UTF-16", {} },
    { MacOSRomanEncoding, "MACINTOSH", { "X-MAC-ROMAN", "MAC" } },
    { UTF16BigEndianEncoding, "UTF-16BE", {} },
    { UTF16LittleEndianEncoding, "UTF-16LE", {} },
    { UTF32BigEndianEncoding, "UTF-32BE", {} },
    { UTF32LittleEndianEncoding, "UTF-32LE", {} },
    { 1, "US-ASCII", { "ASCII", "ANSI_X3.4-1968" } },
    { 3, "EUC-JP", {} },
    { 8, "SHIFT_JIS", { "SJIS", "X-SJIS" } },
    { 9, "ISO-8859-2", { "LATIN2" } },
    { 11, "WINDOWS-1251", {} },
    { 12, "WINDOWS-1252", {} },
    { 13, "WINDOWS-1253", {} },
    { 14, "WINDOWS-1254", {} },
    { 15, "WINDOWS-1250", {} },
    { 21, "ISO-2022-JP", {} },
    { 0x80000205, "ISO-8859-5", {} },
    { 0x80000207, "ISO-8859-7", {} },
    { 0x80000209, "ISO-8859-9", {} },
    { 0x8000020F, "ISO-8859-15", { "LATIN-9" } },
    { 0x80000632, "GB18030", {} },
    { 0x80000930, "GBK", { "GB2312" } },
    { 0x80000940, "EUC-KR", {} },
    { 0x80000A02, "KOI8-R", {} },
    { 0x80000A03, "BIG5", {} },
};
constexpr quint32 RegistryBase = 0xA0000000;

bool iconvKnows(const QByteArray &name)
{
    iconv_t cd = iconv_open("UTF-16LE", name.constData());
    if (cd == iconv_t(-1))
        return false;
    iconv_close(cd);
    return true;
}

struct Registered
{
    QByteArray name; // as first asked for; iconv and ICU open it by this name
    QByteArray key; // the upper-case name
};

bool icuKnows(const QByteArray &name)
{
    UErrorCode status = U_ZERO_ERROR;
    UConverter *conv = ucnv_open(name.constData(), &status);
    if (U_SUCCESS(status))
        ucnv_close(conv);
    return U_SUCCESS(status);
}

QMutex registryLock;
QList<Registered> &nameRegistry()
{
    static QList<Registered> names;
    return names;
}

QByteArray registeredName(quint32 encoding)
{
    for (const Charset &c : charsets)
        if (c.encoding == encoding)
            return c.iconvName;
    QMutexLocker lock(&registryLock);
    const quint32 index = encoding - RegistryBase;
    if (encoding < RegistryBase || index >= quint32(nameRegistry().size()))
        return QByteArray();
    return nameRegistry().at(index).name;
}

QString iconvDecode(const QByteArray &bytes, const QByteArray &from, bool *known)
{
    iconv_t cd = iconv_open("UTF-16LE", from.constData());
    *known = cd != iconv_t(-1);
    if (!*known)
        return QString();
    // Most sets give one unit per byte at most; a few give more (TSCII), so
    // the buffer grows when iconv asks for room.
    QByteArray out(bytes.size() * 2 + 16, Qt::Uninitialized);
    char *in = const_cast<char *>(bytes.constData());
    size_t inLeft = size_t(bytes.size());
    qsizetype used = 0;
    bool ok = true;
    // Convert, then flush a stateful set's final shift; grow on E2BIG.
    for (bool flushing = false;;) {
        char *o = out.data() + used;
        size_t outLeft = size_t(out.size() - used);
        const size_t r = flushing ? iconv(cd, nullptr, nullptr, &o, &outLeft)
                                  : iconv(cd, &in, &inLeft, &o, &outLeft);
        used = out.size() - qsizetype(outLeft);
        if (r == size_t(-1) && errno == E2BIG) {
            out.resize(out.size() * 2);
            continue;
        }
        if (r == size_t(-1)) {
            ok = false;
            break;
        }
        if (flushing)
            break;
        flushing = true;
    }
    iconv_close(cd);
    if (!ok)
        return QString();
    return QString(reinterpret_cast<const QChar *>(out.constData()), used / 2);
}

QString icuDecode(const QByteArray &bytes, const QByteArray &from)
{
    UErrorCode status = U_ZERO_ERROR;
    UConverter *conv = ucnv_open(from.constData(), &status);
    if (U_FAILURE(status))
        return QString();
    // Invalid bytes are an error, not a replacement character.
    ucnv_setToUCallBack(conv, UCNV_TO_U_CALLBACK_STOP, nullptr, nullptr, nullptr, &status);
    QString out(bytes.size() + 16, Qt::Uninitialized);
    int32_t n = ucnv_toUChars(conv, reinterpret_cast<UChar *>(out.data()), int32_t(out.size()),
        bytes.constData(), int32_t(bytes.size()), &status);
    if (status == U_BUFFER_OVERFLOW_ERROR) {
        status = U_ZERO_ERROR;
        ucnv_resetToUnicode(conv);
        out.resize(n);
        n = ucnv_toUChars(conv, reinterpret_cast<UChar *>(out.data()), int32_t(out.size()),
            bytes.constData(), int32_t(bytes.size()), &status);
    }
    ucnv_close(conv);
    if (U_FAILURE(status))
        return QString();
    out.truncate(n);
    return out;
}
} // namespace

quint32 encodingForIANACharSetName(const QString &name)
{
    const QByteArray latin = name.toLatin1();
    if (latin.isEmpty() || latin.contains('\0') || name != QString::fromLatin1(latin))
        return 0;
    const QByteArray upper = latin.toUpper();
    for (const Charset &c : charsets) {
        if (upper == c.iconvName)
            return c.encoding;
        for (const char *alias : c.aliases)
            if (upper == alias)
                return c.encoding;
    }
    // Every spelling its own number: iconv's aliases do not always mean
    // what ICU's do (KOI8, TURKISH8), and iconv decodes first.
    const QByteArray key = upper;
    if (!iconvKnows(latin) && !icuKnows(latin))
        return 0; // unknown: the caller's fallback applies
    QMutexLocker lock(&registryLock);
    QList<Registered> &names = nameRegistry();
    for (qsizetype i = 0; i < names.size(); ++i)
        if (names.at(i).key == key)
            return RegistryBase + quint32(i);
    names.append({ latin, key });
    return RegistryBase + quint32(names.size() - 1);
}

QString platformDecode(const QByteArray &bytes, quint32 encoding)
{
    const QByteArray name = registeredName(encoding);
    if (name.isEmpty())
        return QString();
    bool iconvOpened = false;
    const QString text = iconvDecode(bytes, name, &iconvOpened);
    if (iconvOpened)
        return text;
    return icuDecode(bytes, name);
}

QString platformReadWithDetectedEncoding(const QByteArray &bytes)
{
    if (bytes.isEmpty())
        return QStringLiteral("");
    // Valid UTF-8 is UTF-8: the detector ranks plain ASCII below Latin 1,
    // which reads the same but is the less likely writer.
    if (!bytes.contains('\0')) {
        const QString utf8 = decode(bytes, UTF8Encoding);
        if (!utf8.isNull())
            return utf8;
    }
    UErrorCode status = U_ZERO_ERROR;
    std::unique_ptr<UCharsetDetector, decltype(&ucsdet_close)> detector(
        ucsdet_open(&status), ucsdet_close);
    // The first megabyte tells as much as the whole.
    ucsdet_setText(detector.get(), bytes.constData(),
        int32_t(qMin<qsizetype>(bytes.size(), 1 << 20)), &status);
    const UCharsetMatch *match = ucsdet_detect(detector.get(), &status);
    if (U_FAILURE(status) || !match)
        return QString();
    // Below 20 the detector is choosing among single-byte sets it cannot
    // tell apart (ISO-8859-2 or -9 for a short Latin 1 line); the trial
    // decides those.
    if (ucsdet_getConfidence(match, &status) < 20)
        return QString();
    const char *name = ucsdet_getName(match, &status);
    if (U_FAILURE(status) || !name)
        return QString();
    const quint32 encoding = encodingForIANACharSetName(QString::fromLatin1(name));
    if (encoding == 0)
        return QString();
    const QString text = decode(bytes, encoding);
    // A reading with NUL characters is not text (UTF-16 taken for Latin 1).
    if (text.isNull() || text.contains(QChar(0)))
        return QString();
    return text;
}

namespace {
// One connection, kept while DISPLAY names the same server: an X server that
// resets when its last client leaves must not lose the keymap between calls.
struct XkbConnection
{
    QMutex lock;
    QByteArray display;
    xcb_connection_t *conn = nullptr;
    xkb_context *ctx = nullptr;
    int32_t device = -1;

    void close()
    {
        if (conn)
            xcb_disconnect(conn);
        conn = nullptr;
        device = -1;
    }

    bool open()
    {
        const QByteArray wanted = qgetenv("DISPLAY");
        if (conn && wanted == display && !xcb_connection_has_error(conn))
            return device >= 0;
        close();
        display = wanted;
        if (wanted.isEmpty())
            return false;
        conn = xcb_connect(wanted.constData(), nullptr);
        if (xcb_connection_has_error(conn))
            return false;
        if (!ctx)
            ctx = xkb_context_new(XKB_CONTEXT_NO_FLAGS);
        if (ctx
            && xkb_x11_setup_xkb_extension(conn, XKB_X11_MIN_MAJOR_XKB_VERSION,
                XKB_X11_MIN_MINOR_XKB_VERSION, XKB_X11_SETUP_XKB_EXTENSION_NO_FLAGS, nullptr,
                nullptr, nullptr, nullptr))
            device = xkb_x11_get_core_keyboard_device_id(conn);
        return device >= 0;
    }
};
} // namespace

QString stringWithVirtualKeyCode(quint16 keyCode, quint32 modifiers)
{
    static const QString error = QStringLiteral("<ERR>");
    static XkbConnection x;
    QMutexLocker lock(&x.lock);
    if (!x.open())
        return error;
    // The keymap is read on every call: the user may switch layouts.
    xkb_keymap *keymap
        = xkb_x11_keymap_new_from_device(x.ctx, x.conn, x.device, XKB_KEYMAP_COMPILE_NO_FLAGS);
    QString result = error;
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
    else
        x.close(); // a broken connection is opened afresh next time
    return result;
}

} // namespace StringExtensions

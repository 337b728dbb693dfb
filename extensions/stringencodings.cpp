// SPDX-FileCopyrightText: 2026 Quillet developers
// SPDX-License-Identifier: MIT
#include "stringextensions.h"
#include "stringextensions_p.h"
#include "utilities/vxfourcharcode.h"
#include "utilities/vxlog.h"

#include <QCryptographicHash>
#include <QFile>
#include <QStringDecoder>
#include <QStringEncoder>
#include <QUrl>
#include <QtEndian>

namespace StringExtensions {

static bool isControlOrFormat(QChar c)
{
    return c.category() == QChar::Other_Control || c.category() == QChar::Other_Format;
}

static QString decodeWith(
    QStringConverter::Encoding e, QStringConverter::Flags flags, const QByteArray &bytes)
{
    QStringDecoder decoder(e, flags);
    QString text = decoder.decode(bytes);
    if (decoder.hasError())
        return QString();
    if (text.isNull())
        text = QStringLiteral("");
    return text;
}

// Qt's decoder turns code points beyond U+10FFFF into garbage, not errors.
static bool validUtf32(const QByteArray &bytes, bool bigEndian)
{
    if (bytes.size() % 4)
        return false;
    const auto *b = reinterpret_cast<const uchar *>(bytes.constData());
    for (qsizetype i = 0; i < bytes.size(); i += 4) {
        const quint32 c
            = bigEndian ? qFromBigEndian<quint32>(b + i) : qFromLittleEndian<quint32>(b + i);
        if (c > 0x10FFFF || (c >= 0xD800 && c <= 0xDFFF))
            return false;
    }
    return true;
}

QString decode(const QByteArray &bytes, quint32 encoding)
{
    using C = QStringConverter;
    switch (encoding) {
    case UTF8Encoding:
        return decodeWith(C::Utf8, C::Flag::Stateless, bytes);
    case ISOLatin1Encoding:
        return decodeWith(C::Latin1, C::Flag::Stateless, bytes);
    case MacOSRomanEncoding: {
        QString text = VXMacRoman::decode(bytes);
        return text.isNull() ? QStringLiteral("") : text;
    }
    case UnicodeEncoding:
        // A byte-order mark decides; without one the bytes are big-endian.
        if (bytes.size() % 2)
            return QString();
        if (bytes.startsWith("\xFF\xFE"))
            return decodeWith(C::Utf16LE, C::Flag::Stateless, bytes.mid(2));
        if (bytes.startsWith("\xFE\xFF"))
            return decodeWith(C::Utf16BE, C::Flag::Stateless, bytes.mid(2));
        return decodeWith(C::Utf16BE, C::Flag::Stateless, bytes);
    case UTF16BigEndianEncoding:
        return bytes.size() % 2 ? QString() : decodeWith(C::Utf16BE, C::Flag::Stateless, bytes);
    case UTF16LittleEndianEncoding:
        return bytes.size() % 2 ? QString() : decodeWith(C::Utf16LE, C::Flag::Stateless, bytes);
    case UTF32BigEndianEncoding:
        return validUtf32(bytes, true) ? decodeWith(C::Utf32BE, C::Flag::Stateless, bytes)
                                       : QString();
    case UTF32LittleEndianEncoding:
        return validUtf32(bytes, false) ? decodeWith(C::Utf32LE, C::Flag::Stateless, bytes)
                                        : QString();
    default:
        return platformDecode(bytes, encoding);
    }
}

QByteArray encode(const QString &s, quint32 encoding, bool *ok)
{
    using C = QStringConverter;
    auto with = [&](C::Encoding e, C::Flags flags = C::Flag::Stateless) {
        QStringEncoder encoder(e, flags);
        QByteArray bytes = encoder.encode(s);
        if (ok)
            *ok = !encoder.hasError();
        return bytes;
    };
    switch (encoding) {
    case UTF8Encoding:
        return with(C::Utf8);
    case ISOLatin1Encoding: {
        for (QChar c : s)
            if (c.unicode() > 0xFF) {
                if (ok)
                    *ok = false;
                return QByteArray();
            }
        return with(C::Latin1);
    }
    case MacOSRomanEncoding: {
        QByteArray out;
        const bool good = VXMacRoman::encode(s, &out);
        if (ok)
            *ok = good;
        return good ? out : QByteArray();
    }
    case UnicodeEncoding:
        return with(C::Utf16BE, C::Flag::Stateless | C::Flag::WriteBom);
    case UTF16BigEndianEncoding:
        return with(C::Utf16BE);
    case UTF16LittleEndianEncoding:
        return with(C::Utf16LE);
    case UTF32BigEndianEncoding:
        return with(C::Utf32BE);
    case UTF32LittleEndianEncoding:
        return with(C::Utf32LE);
    default:
        if (ok)
            *ok = false;
        return QByteArray();
    }
}

quint32 explicitEncodingOfFile(const QString &path, quint32 defaultEncoding)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return defaultEncoding;
    const QByteArray head = file.read(4).leftJustified(4, '\0');
    const auto b = [&](int i) { return quint8(head.at(i)); };
    if (b(0) == 0x00 && b(1) == 0x00 && b(2) == 0xFE && b(3) == 0xFF)
        return UTF32BigEndianEncoding;
    if (b(0) == 0xFF && b(1) == 0xFE && b(2) == 0x00 && b(3) == 0x00)
        return UTF32LittleEndianEncoding;
    if (b(0) == 0xFF && b(1) == 0xFE)
        return UTF16LittleEndianEncoding;
    if (b(0) == 0xEF && b(1) == 0xBB && b(2) == 0xBF)
        return UTF8Encoding;
    if (b(0) == 0xFE && b(1) == 0xFF)
        return UTF16BigEndianEncoding;
    return defaultEncoding;
}

float reasonableTextFactor(const QString &s, const QString &label)
{
    Q_UNUSED(label);
    const qsizetype n = qMin<qsizetype>(s.size(), 1000);
    float good = 0, bad = 0;
    for (qsizetype i = 0; i < n; ++i) {
        const QChar c = s.at(i);
        const char16_t u = c.unicode();
        if (u <= 32) {
            if (u == 9 || u == 10 || u == 13 || u == 32)
                good += 1;
            else
                bad += 1;
        } else if (c.isLetterOrNumber() || c.isMark()) {
            good += 1;
        } else if (c.category() == QChar::Other_NotAssigned) {
            bad += 10;
        }
    }
    return (good - bad) / float(n); // 0/0 for empty text: NaN never wins
}

QString stringWithBestEncodingFromFile(const QString &path)
{
    const quint32 mark = explicitEncodingOfFile(path, 0);
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return QString();
    QByteArray bytes = file.readAll();
    if (mark != 0) {
        const int bomLength = mark == UTF8Encoding                                  ? 3
            : (mark == UTF16BigEndianEncoding || mark == UTF16LittleEndianEncoding) ? 2
                                                                                    : 4;
        QString text = decode(bytes.mid(bomLength), mark);
        if (!text.isNull())
            return text;
    }
    const QString detected = platformReadWithDetectedEncoding(bytes);
    if (!detected.isNull())
        return detected;
    struct Trial
    {
        quint32 encoding;
        const char *label;
    };
    static const Trial trials[]
        = { { UnicodeEncoding, "Unicode" }, { MacOSRomanEncoding, "MacRoman" },
              { ISOLatin1Encoding, "Latin1" }, { UTF8Encoding, "UTF8" } };
    QString best;
    float bestScore = -1000000.0f;
    for (const Trial &t : trials) {
        const QString text = decode(bytes, t.encoding);
        if (text.isNull())
            continue;
        const float score = reasonableTextFactor(text, QLatin1String(t.label));
        if (score > bestScore) { // strictly: the earlier encoding wins a tie
            bestScore = score;
            best = text;
        }
    }
    return best;
}

QString stringWithHTML(const QByteArray &data)
{
    const QString latin = QString::fromLatin1(data);
    if (latin.contains(u"html", Qt::CaseInsensitive)) {
        const qsizetype meta = latin.indexOf(u"<meta", 0, Qt::CaseInsensitive);
        if (meta < 0)
            return latin;
        const qsizetype charset = latin.indexOf(u"charset", meta, Qt::CaseInsensitive);
        if (charset < 0)
            return latin;
        qsizetype i = charset + 7;
        while (i < latin.size()
            && (isControlOrFormat(latin.at(i)) || latin.at(i) == u' ' || latin.at(i) == u'='))
            ++i;
        const qsizetype start = i;
        // Quotes are not skipped: charset="utf-8" gives an empty name. Intended.
        while (i < latin.size()) {
            const char16_t c = latin.at(i).unicode();
            if (!((c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9')
                    || c == '-'))
                break;
            ++i;
        }
        if (i == start)
            return latin;
        const quint32 encoding = encodingForIANACharSetName(latin.mid(start, i - start));
        if (encoding == 0 || encoding == ISOLatin1Encoding)
            return latin;
        const QString text = decode(data, encoding);
        return text.isNull() ? latin : text;
    }
    vxLog(QStringLiteral("no HTML in Latin"));
    const QString unicode = decode(data, UnicodeEncoding);
    if (!unicode.isNull() && unicode.contains(u"html", Qt::CaseInsensitive))
        return unicode;
    vxLog(QStringLiteral("no HTML in Unicode"));
    return latin;
}

QString stringWithExpandedPercentEscapes(const QString &s)
{
    const QByteArray bytes = s.toUtf8();
    QByteArray out;
    out.reserve(bytes.size());
    for (qsizetype i = 0; i < bytes.size(); ++i) {
        if (bytes.at(i) != '%') {
            out.append(bytes.at(i));
            continue;
        }
        if (i + 2 >= bytes.size() || !isxdigit(uchar(bytes.at(i + 1)))
            || !isxdigit(uchar(bytes.at(i + 2))))
            return s;
        out.append(char(QByteArray::fromHex(bytes.mid(i + 1, 2)).at(0)));
        i += 2;
    }
    const QString text = decode(out, UTF8Encoding);
    return text.isNull() ? s : text;
}

QString stringWithPercentEscapes(const QString &s)
{
    const QString expanded = stringWithExpandedPercentEscapes(s);
    // The legacy escaping leaves the URL-legal ASCII set alone (RFC 2396
    // reserved and unreserved characters plus "#"; a "%" left after expanding is escaped).
    static const QByteArray keep = QByteArrayLiteral("!$&'()*+,-./:;=?@_~#");
    const QByteArray escaped = expanded.toUtf8().toPercentEncoding(keep);
    QString result = QString::fromLatin1(escaped);
    result.replace(QStringLiteral("%23"), QStringLiteral("#"));
    return result;
}

int numberOfUnicodeCharacters(const QString &s)
{
    const int n = int(s.size());
    if (n < 2)
        return n;
    int pairs = 0;
    for (int i = 1; i < n; ++i)
        if (s.at(i).isLowSurrogate() && s.at(i - 1).isHighSurrogate())
            ++pairs;
    return n - pairs;
}

quint32 longCharacterAtIndex(const QString &s, int index)
{
    if (index < 0 || index >= s.size())
        return 0; // out of range: no character
    const QChar c = s.at(index);
    if (c.isHighSurrogate() && index + 1 < s.size() && s.at(index + 1).isLowSurrogate())
        return QChar::surrogateToUcs4(c, s.at(index + 1));
    return c.unicode();
}

void forUTF32Characters(const QString &s, const std::function<void(quint32)> &block)
{
    const qsizetype n = s.size();
    for (qsizetype i = 0; i < n; ++i) {
        const QChar c = s.at(i);
        if (!c.isHighSurrogate()) {
            block(c.unicode());
        } else if (i + 1 < n) {
            if (s.at(i + 1).isLowSurrogate())
                block(QChar::surrogateToUcs4(c, s.at(i + 1)));
            // else: the unit after a lone high surrogate is dropped with it. Intended.
            ++i;
        }
    }
}

QString UTF16SequenceString(const QString &s)
{
    QStringList parts;
    for (QChar c : s)
        parts.append(QStringLiteral("%1").arg(c.unicode(), 4, 16, QLatin1Char('0')).toUpper());
    return parts.join(u',');
}

QString UTF32SequenceString(const QString &s)
{
    QStringList parts;
    forUTF32Characters(s, [&](quint32 c) {
        parts.append(QStringLiteral("%1").arg(c, 4, 16, QLatin1Char('0')).toUpper());
    });
    return parts.join(u',');
}

quint32 UTF32Character(const QString &s)
{
    if (s.isEmpty() || numberOfUnicodeCharacters(s) != 1)
        return 0;
    return longCharacterAtIndex(s, 0);
}

namespace {
constexpr quint32 FlagBase = 0xA0000, FlagEnd = 0xA02A3;
constexpr quint32 SequenceBase = 0xA0300, SequenceEnd = 0xA03DE;
constexpr quint32 KeycapBase = 0xA1000, KeycapEnd = 0xA100B;
constexpr quint32 LigatureBase = 0xB0000, LigatureEnd = 0xBFFFE;

const quint32 sequenceTable[223][9] = {
#include "emojisequences.inc"
};

const quint32 keycapTable[12][3]
    = { { '#', 0x20E3, 0 }, { '*', 0x20E3, 0 }, { '0', 0x20E3, 0 }, { '1', 0x20E3, 0 },
          { '2', 0x20E3, 0 }, { '3', 0x20E3, 0 }, { '4', 0x20E3, 0 }, { '5', 0x20E3, 0 },
          { '6', 0x20E3, 0 }, { '7', 0x20E3, 0 }, { '8', 0x20E3, 0 }, { '9', 0x20E3, 0 } };

QStringList &ligatures()
{
    static QStringList list;
    return list;
}
} // namespace

bool isVirtualCharacter(qint32 code)
{
    if (code < qint32(FlagBase))
        return false;
    const quint32 c = quint32(code);
    return c <= FlagEnd || (c >= SequenceBase && c <= SequenceEnd)
        || (c >= KeycapBase && c <= KeycapEnd) || (c >= LigatureBase && c <= LigatureEnd);
}

const quint32 *utf32CharactersForVirtualCharacter(quint32 code)
{
    static quint32 flag[3];
    if (code >= FlagBase && code <= FlagEnd) {
        flag[0] = 0x1F1E6 + (code - FlagBase) / 26;
        flag[1] = 0x1F1E6 + (code - FlagBase) % 26;
        flag[2] = 0;
        return flag;
    }
    if (code >= SequenceBase && code <= SequenceEnd) {
        const quint32 *row = sequenceTable[code - SequenceBase];
        return row[0] ? row : nullptr; // reserved codes stand for nothing
    }
    if (code >= KeycapBase && code <= KeycapEnd)
        return keycapTable[code - KeycapBase];
    return nullptr;
}

void defineLigatures(const QStringList &list)
{
    ligatures() = list;
}

static void appendCodePoint(QString &out, quint32 c)
{
    if (c > 0xFFFF) {
        out.append(QChar::highSurrogate(c));
        out.append(QChar::lowSurrogate(c));
    } else {
        out.append(QChar(char16_t(c)));
    }
}

QString stringWithUTF32Character(quint32 code)
{
    QString out;
    if (code < 0x10000) {
        out.append(QChar(char16_t(code)));
        return out;
    }
    if (const quint32 *row = utf32CharactersForVirtualCharacter(code)) {
        for (int i = 0; row[i]; ++i)
            appendCodePoint(out, row[i]);
        return out;
    }
    if (code >= LigatureBase && code - LigatureBase < quint32(ligatures().size()))
        return ligatures().at(code - LigatureBase);
    if (code > 0x10FFFF)
        code = 0xFFFD; // not encodable as a surrogate pair
    appendCodePoint(out, code);
    return out;
}

QString emojiStringWithSkinColor(const QString &s, qint32 skinColor)
{
    static const quint32 modifiers[] = { 0, 0x1F3FB, 0x1F3FB, 0x1F3FC, 0x1F3FD, 0x1F3FE, 0x1F3FF };
    const quint32 wanted = skinColor >= 1 && skinColor <= 6 ? modifiers[skinColor] : 0;
    if (s.isEmpty())
        return s;
    qsizetype at = -1;
    for (qsizetype i = 1; i + 1 < s.size(); ++i) {
        const char16_t u = s.at(i + 1).unicode();
        if (s.at(i).unicode() == 0xD83C && u >= 0xDFFB && u <= 0xDFFF) {
            at = i;
            break;
        }
    }
    const quint32 existing = at >= 0 ? QChar::surrogateToUcs4(s.at(at), s.at(at + 1)) : 0;
    if (existing == wanted)
        return s;
    QString head, tail;
    if (at >= 0) {
        head = s.left(at);
        tail = s.mid(at + 2);
    } else {
        const qsizetype first
            = s.size() >= 2 && s.at(0).isHighSurrogate() && s.at(1).isLowSurrogate() ? 2 : 1;
        head = s.left(first);
        tail = s.mid(first);
        if (tail.startsWith(QStringView(u"\uFE0F\u200D")))
            tail.remove(0, 1);
    }
    // Code point 0 when removing a tone: a U+0000 stays in its place. Intended.
    return head + stringWithUTF32Character(wanted) + tail;
}

QString stringWithOSType(quint32 code)
{
    return VXFourCharCode::toString(code);
}

QString stringWithMacRomanCString(const char *bytes, int length)
{
    if (!bytes || length <= 0)
        return QStringLiteral("");
    return VXMacRoman::decode(QByteArray(bytes, length));
}

QString stringWithMacRomanCString(const char *bytes)
{
    return stringWithMacRomanCString(bytes, bytes ? int(qstrlen(bytes)) : 0);
}

QString stringWithObjCString(const QString &literal)
{
    if (literal.size() <= 2)
        return QStringLiteral("");
    QString s = literal.mid(2, literal.size() - 3);
    // This order turns an escaped backslash before n, r or t into a control
    // character too. Intended.
    s.replace(QStringLiteral("\\\\"), QStringLiteral("\\"));
    s.replace(QStringLiteral("\\\""), QStringLiteral("\""));
    s.replace(QStringLiteral("\\r"), QStringLiteral("\r"));
    s.replace(QStringLiteral("\\n"), QStringLiteral("\n"));
    s.replace(QStringLiteral("\\t"), QStringLiteral("\t"));
    return s;
}

QString objCStringWithString(const QString &s)
{
    return s;
}

QString MD5String(const QString &s)
{
    return QString::fromLatin1(
        QCryptographicHash::hash(s.toUtf8(), QCryptographicHash::Md5).toHex());
}

QString xmlElementForKey(const QString &s, const QString &key)
{
    const QString open = u'<' + key + u'>';
    const qsizetype start = s.indexOf(open);
    if (start < 0)
        return QString();
    const qsizetype from = start + open.size();
    const qsizetype end = s.indexOf(QStringLiteral("</") + key + u'>', from);
    if (end < 0)
        return QString();
    return s.mid(from, end - from);
}

bool appendToFile(const QString &s, const QString &path, quint32 encoding)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadWrite)) {
        QFile create(path);
        if (!create.open(QIODevice::WriteOnly | QIODevice::NewOnly))
            return false;
        create.close();
        if (!file.open(QIODevice::ReadWrite))
            return false;
    }
    bool encoded = false;
    const QByteArray bytes = encode(s, encoding, &encoded);
    // Text the encoding cannot hold fails like a failed write: nothing lands.
    const bool ok = encoded && file.seek(file.size()) && file.write(bytes) == bytes.size();
    file.close();
    return ok;
}

} // namespace StringExtensions

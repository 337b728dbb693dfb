// SPDX-FileCopyrightText: 2026 Quillet developers
// SPDX-License-Identifier: MIT
#include "vxpropertylist.h"

#include <QDateTime>
#include <QFile>
#include <QTimeZone>
#include <memory>
#include <plist/plist.h>

namespace {

constexpr int kMaximumDepth = 256;

// Seconds between 1970-01-01 and libplist's date epoch, 2001-01-01.
constexpr qint64 kPlistEpochOffset = 978307200;

QVariant fromNode(plist_t node, int depth)
{
    if (!node || depth > kMaximumDepth)
        return {};
    switch (plist_get_node_type(node)) {
    case PLIST_DICT: {
        QVariantMap map;
        plist_dict_iter it = nullptr;
        plist_dict_new_iter(node, &it);
        for (;;) {
            char *key = nullptr;
            plist_t value = nullptr;
            plist_dict_next_item(node, it, &key, &value);
            if (!value) {
                free(key);
                break;
            }
            map.insert(QString::fromUtf8(key), fromNode(value, depth + 1));
            free(key);
        }
        free(it);
        return map;
    }
    case PLIST_ARRAY: {
        QVariantList list;
        const uint32_t n = plist_array_get_size(node);
        list.reserve(n);
        for (uint32_t i = 0; i < n; ++i)
            list.append(fromNode(plist_array_get_item(node, i), depth + 1));
        return list;
    }
    case PLIST_STRING: {
        char *s = nullptr;
        plist_get_string_val(node, &s);
        const QString out = QString::fromUtf8(s ? s : "");
        free(s);
        return out;
    }
    case PLIST_BOOLEAN: {
        uint8_t b = 0;
        plist_get_bool_val(node, &b);
        return bool(b);
    }
    case PLIST_UINT: {
        uint64_t v = 0;
        plist_get_uint_val(node, &v);
        return qlonglong(v);
    }
    case PLIST_REAL: {
        double d = 0;
        plist_get_real_val(node, &d);
        return d;
    }
    case PLIST_DATE: {
        int32_t sec = 0, usec = 0;
        plist_get_date_val(node, &sec, &usec);
        return QDateTime::fromMSecsSinceEpoch(
            (kPlistEpochOffset + sec) * 1000 + usec / 1000, Qt::UTC);
    }
    case PLIST_DATA: {
        char *bytes = nullptr;
        uint64_t length = 0;
        plist_get_data_val(node, &bytes, &length);
        const QByteArray out(bytes, qsizetype(length));
        free(bytes);
        return out;
    }
    default:
        return {};
    }
}

// Reader for the OpenStep text form: dictionaries "{ k = v; }", arrays
// "( a, b )", quoted and unquoted strings, data "<0fbd>", comments, and
// GNUstep's typed values "<*I12>", "<*R1.5>", "<*BY>", "<*D...>". A file
// holding only "k = v;" pairs (a strings file) reads as a dictionary.
class OpenStepReader
{
public:
    explicit OpenStepReader(const QString &text)
        : m_text(text)
    { }

    QVariant read(QString *error)
    {
        skipSpace();
        QVariant value;
        if (atEnd()) {
            value = QVariantMap();
        } else {
            const qsizetype start = m_pos;
            value = readValue(0);
            skipSpace();
            if (m_error.isEmpty() && !atEnd() && peek() == QLatin1Char('=')) {
                m_pos = start; // strings-file form
                value = readDictionaryBody(0, QChar());
            }
        }
        skipSpace();
        if (m_error.isEmpty() && !atEnd())
            fail(QStringLiteral("unexpected text"));
        if (!m_error.isEmpty()) {
            *error = QStringLiteral("%1 at offset %2").arg(m_error).arg(m_pos);
            return {};
        }
        return value;
    }

private:
    bool atEnd() const { return m_pos >= m_text.size(); }
    QChar peek() const { return atEnd() ? QChar() : m_text.at(m_pos); }
    void fail(const QString &message)
    {
        if (m_error.isEmpty())
            m_error = message;
    }

    static bool isUnquotedChar(QChar c)
    {
        const char16_t u = c.unicode();
        return (u >= 'a' && u <= 'z') || (u >= 'A' && u <= 'Z') || (u >= '0' && u <= '9')
            || u == '_' || u == '$' || u == '+' || u == '/' || u == ':' || u == '.' || u == '-';
    }

    void skipSpace()
    {
        while (!atEnd()) {
            const QChar c = peek();
            if (c.isSpace()) {
                ++m_pos;
            } else if (c == QLatin1Char('/') && m_pos + 1 < m_text.size()
                && m_text.at(m_pos + 1) == QLatin1Char('/')) {
                while (!atEnd() && peek() != QLatin1Char('\n'))
                    ++m_pos;
            } else if (c == QLatin1Char('/') && m_pos + 1 < m_text.size()
                && m_text.at(m_pos + 1) == QLatin1Char('*')) {
                const qsizetype end = m_text.indexOf(QLatin1String("*/"), m_pos + 2);
                if (end < 0) {
                    fail(QStringLiteral("unterminated comment"));
                    m_pos = m_text.size();
                    return;
                }
                m_pos = end + 2;
            } else {
                return;
            }
        }
    }

    QVariant readValue(int depth)
    {
        if (depth > kMaximumDepth) {
            fail(QStringLiteral("nesting too deep"));
            return {};
        }
        skipSpace();
        if (atEnd()) {
            fail(QStringLiteral("value expected"));
            return {};
        }
        const QChar c = peek();
        if (c == QLatin1Char('{')) {
            ++m_pos;
            return readDictionaryBody(depth, QLatin1Char('}'));
        }
        if (c == QLatin1Char('('))
            return readArray(depth);
        if (c == QLatin1Char('<'))
            return readData();
        if (c == QLatin1Char('"') || c == QLatin1Char('\''))
            return readQuoted();
        if (isUnquotedChar(c)) {
            const qsizetype start = m_pos;
            while (!atEnd() && isUnquotedChar(peek()))
                ++m_pos;
            return m_text.mid(start, m_pos - start);
        }
        fail(QStringLiteral("unexpected character"));
        return {};
    }

    QVariant readDictionaryBody(int depth, QChar close)
    {
        QVariantMap map;
        for (;;) {
            skipSpace();
            if (!m_error.isEmpty())
                return {};
            if (close.isNull() ? atEnd() : (!atEnd() && peek() == close)) {
                if (!close.isNull())
                    ++m_pos;
                return map;
            }
            if (atEnd()) {
                fail(QStringLiteral("unterminated dictionary"));
                return {};
            }
            const QVariant key = readValue(depth + 1);
            if (key.typeId() != QMetaType::QString) {
                fail(QStringLiteral("dictionary key must be a string"));
                return {};
            }
            skipSpace();
            if (peek() != QLatin1Char('=')) {
                fail(QStringLiteral("'=' expected"));
                return {};
            }
            ++m_pos;
            const QVariant value = readValue(depth + 1);
            if (!m_error.isEmpty())
                return {};
            skipSpace();
            if (peek() != QLatin1Char(';')) {
                fail(QStringLiteral("';' expected"));
                return {};
            }
            ++m_pos;
            map.insert(key.toString(), value);
        }
    }

    QVariant readArray(int depth)
    {
        ++m_pos; // '('
        QVariantList list;
        skipSpace();
        if (peek() == QLatin1Char(')')) {
            ++m_pos;
            return list;
        }
        for (;;) {
            list.append(readValue(depth + 1));
            if (!m_error.isEmpty())
                return {};
            skipSpace();
            if (peek() == QLatin1Char(',')) {
                ++m_pos;
                skipSpace();
                if (peek() == QLatin1Char(')')) { // trailing comma
                    ++m_pos;
                    return list;
                }
                continue;
            }
            if (peek() == QLatin1Char(')')) {
                ++m_pos;
                return list;
            }
            fail(QStringLiteral("',' or ')' expected"));
            return {};
        }
    }

    QVariant readData()
    {
        ++m_pos; // '<'
        if (peek() == QLatin1Char('*')) { // GNUstep typed value
            ++m_pos;
            const QChar type = peek();
            ++m_pos;
            const qsizetype end = m_text.indexOf(QLatin1Char('>'), m_pos);
            if (end < 0) {
                fail(QStringLiteral("unterminated typed value"));
                return {};
            }
            const QString body = m_text.mid(m_pos, end - m_pos);
            m_pos = end + 1;
            switch (type.unicode()) {
            case 'I':
                return body.trimmed().toLongLong();
            case 'R':
                return body.trimmed().toDouble();
            case 'B':
                return body.trimmed().startsWith(QLatin1Char('Y'));
            case 'D':
                return QDateTime::fromString(
                    body.trimmed(), QStringLiteral("yyyy-MM-dd HH:mm:ss t"));
            default:
                fail(QStringLiteral("unknown typed value"));
                return {};
            }
        }
        QByteArray hex;
        while (!atEnd() && peek() != QLatin1Char('>')) {
            const QChar c = peek();
            if (isxdigit(c.unicode() < 128 ? int(c.unicode()) : 0))
                hex.append(char(c.unicode()));
            else if (!c.isSpace()) {
                fail(QStringLiteral("bad character in data"));
                return {};
            }
            ++m_pos;
        }
        if (atEnd() || hex.size() % 2) {
            fail(QStringLiteral("bad data"));
            return {};
        }
        ++m_pos;
        return QByteArray::fromHex(hex);
    }

    QVariant readQuoted()
    {
        const QChar quote = peek();
        ++m_pos;
        QString out;
        while (!atEnd()) {
            QChar c = peek();
            ++m_pos;
            if (c == quote)
                return out;
            if (c != QLatin1Char('\\')) {
                out += c;
                continue;
            }
            if (atEnd())
                break;
            c = peek();
            ++m_pos;
            switch (c.unicode()) {
            case 'n':
                out += QLatin1Char('\n');
                break;
            case 't':
                out += QLatin1Char('\t');
                break;
            case 'r':
                out += QLatin1Char('\r');
                break;
            case 'a':
                out += QChar(7);
                break;
            case 'b':
                out += QChar(8);
                break;
            case 'f':
                out += QChar(12);
                break;
            case 'v':
                out += QChar(11);
                break;
            case 'U':
            case 'u': {
                uint code = 0;
                int digits = 0;
                while (digits < 4 && !atEnd()
                    && isxdigit(peek().unicode() < 128 ? int(peek().unicode()) : 0)) {
                    code = code * 16 + QString(peek()).toUInt(nullptr, 16);
                    ++m_pos;
                    ++digits;
                }
                out += QChar(char16_t(code));
                break;
            }
            default:
                if (c >= QLatin1Char('0') && c <= QLatin1Char('7')) {
                    uint code = c.unicode() - '0';
                    for (int k = 0; k < 2 && !atEnd() && peek() >= QLatin1Char('0')
                         && peek() <= QLatin1Char('7');
                         ++k) {
                        code = code * 8 + (peek().unicode() - '0');
                        ++m_pos;
                    }
                    out += QChar(char16_t(code));
                } else {
                    out += c;
                }
                break;
            }
        }
        fail(QStringLiteral("unterminated string"));
        return {};
    }

    const QString m_text;
    qsizetype m_pos = 0;
    QString m_error;
};

QString decodeText(const QByteArray &data)
{
    if (data.startsWith("\xFF\xFE") || data.startsWith("\xFE\xFF"))
        return QString::fromUtf16(
            reinterpret_cast<const char16_t *>(data.constData() + 2), (data.size() - 2) / 2);
    return QString::fromUtf8(data.startsWith("\xEF\xBB\xBF") ? data.mid(3) : data);
}

} // namespace

VXPropertyList::Result VXPropertyList::fromData(const QByteArray &data)
{
    Result result;
    if (data.size() > maximumSize) {
        result.error = QStringLiteral("property list too large (%1 bytes)").arg(data.size());
        return result;
    }
    if (data.startsWith("bplist")) {
        result.format = Format::Binary;
        plist_t root = nullptr;
        plist_from_bin(data.constData(), uint32_t(data.size()), &root);
        if (!root) {
            result.error = QStringLiteral("malformed binary property list");
            return result;
        }
        result.value = fromNode(root, 0);
        plist_free(root);
        return result;
    }
    const QByteArray head = data.left(256).trimmed();
    if (head.startsWith("<?xml") || head.startsWith("<!DOCTYPE") || head.startsWith("<plist")) {
        result.format = Format::Xml;
        plist_t root = nullptr;
        plist_from_xml(data.constData(), uint32_t(data.size()), &root);
        if (!root) {
            result.error = QStringLiteral("malformed XML property list");
            return result;
        }
        result.value = fromNode(root, 0);
        plist_free(root);
        return result;
    }
    if (data.contains('\0') && !data.startsWith("\xFF\xFE") && !data.startsWith("\xFE\xFF")) {
        result.error = QStringLiteral("not a property list (binary data)");
        return result;
    }
    result.format = Format::OpenStep;
    OpenStepReader reader(decodeText(data));
    result.value = reader.read(&result.error);
    return result;
}

VXPropertyList::Result VXPropertyList::fromFile(const QString &path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly)) {
        Result result;
        result.error = file.errorString();
        return result;
    }
    if (file.size() > maximumSize) {
        Result result;
        result.error = QStringLiteral("property list too large (%1 bytes)").arg(file.size());
        return result;
    }
    return fromData(file.readAll());
}

namespace {
plist_t toNode(const QVariant &v)
{
    switch (v.typeId()) {
    case QMetaType::QVariantMap: {
        plist_t dict = plist_new_dict();
        const QVariantMap map = v.toMap();
        for (auto it = map.cbegin(); it != map.cend(); ++it)
            plist_dict_set_item(dict, it.key().toUtf8().constData(), toNode(it.value()));
        return dict;
    }
    case QMetaType::QVariantList:
    case QMetaType::QStringList: {
        plist_t array = plist_new_array();
        for (const QVariant &item : v.toList())
            plist_array_append_item(array, toNode(item));
        return array;
    }
    case QMetaType::Bool:
        return plist_new_bool(v.toBool());
    case QMetaType::Int:
    case QMetaType::LongLong:
    case QMetaType::UInt:
    case QMetaType::ULongLong:
        return plist_new_uint(uint64_t(v.toLongLong()));
    case QMetaType::Double:
        return plist_new_real(v.toDouble());
    case QMetaType::QByteArray: {
        const QByteArray b = v.toByteArray();
        return plist_new_data(b.constData(), uint64_t(b.size()));
    }
    default:
        return plist_new_string(v.toString().toUtf8().constData());
    }
}
} // namespace

QByteArray VXPropertyList::toXml(const QVariantMap &dictionary)
{
    plist_t root = toNode(dictionary);
    char *xml = nullptr;
    uint32_t length = 0;
    plist_to_xml(root, &xml, &length);
    const QByteArray out(xml, qsizetype(length));
    plist_to_xml_free(xml);
    plist_free(root);
    return out;
}

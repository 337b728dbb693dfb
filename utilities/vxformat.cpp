// SPDX-FileCopyrightText: 2026 Quillet developers
// SPDX-License-Identifier: MIT
#include "vxformat.h"

#include <QDateTime>
#include <QMetaType>
#include <algorithm>
#include <cstdio>
#include <vector>

namespace {

bool isPlainToken(const QString &s)
{
    if (s.isEmpty())
        return false;
    return std::all_of(s.begin(), s.end(), [](QChar c) {
        const char16_t u = c.unicode();
        return (u >= 'a' && u <= 'z') || (u >= 'A' && u <= 'Z') || (u >= '0' && u <= '9')
            || u == '_' || u == '$';
    });
}

// Strings inside collections are quoted the way old-style property lists
// quote them, with non-ASCII characters as \Uxxxx escapes.
QString quoted(const QString &s)
{
    if (isPlainToken(s))
        return s;
    QString out = QStringLiteral("\"");
    for (QChar c : s) {
        const char16_t u = c.unicode();
        if (u == '"' || u == '\\') {
            out += QLatin1Char('\\');
            out += c;
        } else if (u == '\n') {
            out += QLatin1String("\\n");
        } else if (u == '\t') {
            out += QLatin1String("\\t");
        } else if (u == '\r') {
            out += QLatin1String("\\r");
        } else if (u < 0x20 || u > 0x7e) {
            out += QStringLiteral("\\U%1").arg(uint(u), 4, 16, QLatin1Char('0'));
        } else {
            out += c;
        }
    }
    out += QLatin1Char('"');
    return out;
}

QString describe(const QVariant &v, int indent, bool nested);

QString describeList(const QVariantList &items, int indent)
{
    const QString pad(4 * indent, QLatin1Char(' '));
    const QString innerPad(4 * (indent + 1), QLatin1Char(' '));
    QString out = QStringLiteral("(\n");
    for (qsizetype i = 0; i < items.size(); ++i) {
        out += innerPad + describe(items.at(i), indent + 1, true);
        if (i + 1 < items.size())
            out += QLatin1Char(',');
        out += QLatin1Char('\n');
    }
    out += pad + QLatin1Char(')');
    return out;
}

QString describeMap(const QVariantMap &map, int indent)
{
    const QString pad(4 * indent, QLatin1Char(' '));
    const QString innerPad(4 * (indent + 1), QLatin1Char(' '));
    QString out = QStringLiteral("{\n");
    for (auto it = map.cbegin(); it != map.cend(); ++it) // QVariantMap is sorted by key
        out += innerPad + quoted(it.key()) + QLatin1String(" = ")
            + describe(it.value(), indent + 1, true) + QLatin1String(";\n");
    out += pad + QLatin1Char('}');
    return out;
}

QString describeDouble(double d)
{
    char buf[64];
    std::snprintf(buf, sizeof buf, "%0.16g", d);
    return QString::fromLatin1(buf);
}

QString describe(const QVariant &v, int indent, bool nested)
{
    if (!v.isValid() || v.isNull())
        return QStringLiteral("(null)");
    switch (v.typeId()) {
    case QMetaType::QString: {
        const QString s = v.toString();
        if (s.isNull()) // a null QString stands for nil
            return QStringLiteral("(null)");
        return nested ? quoted(s) : s;
    }
    case QMetaType::Bool:
        return v.toBool() ? QStringLiteral("1") : QStringLiteral("0");
    case QMetaType::Double:
    case QMetaType::Float:
        return describeDouble(v.toDouble());
    case QMetaType::QStringList: {
        QVariantList items;
        for (const QString &s : v.toStringList())
            items.append(s);
        return describeList(items, indent);
    }
    case QMetaType::QVariantList:
        return describeList(v.toList(), indent);
    case QMetaType::QVariantMap:
        return describeMap(v.toMap(), indent);
    case QMetaType::QVariantHash: {
        QVariantMap m;
        const QVariantHash h = v.toHash();
        for (auto it = h.cbegin(); it != h.cend(); ++it)
            m.insert(it.key(), it.value());
        return describeMap(m, indent);
    }
    case QMetaType::QByteArray: {
        const QByteArray b = v.toByteArray();
        QString out = QStringLiteral("{length = %1, bytes = 0x%2}")
                          .arg(b.size())
                          .arg(QString::fromLatin1(b.left(32).toHex()));
        return out;
    }
    case QMetaType::QDateTime:
        return v.toDateTime().toUTC().toString(QStringLiteral("yyyy-MM-dd HH:mm:ss +0000"));
    default:
        break;
    }
    if (v.canConvert<QString>()) {
        const QString s = v.toString();
        return nested ? quoted(s) : s;
    }
    return QStringLiteral("<%1>").arg(QString::fromLatin1(v.typeName()));
}

struct Spec
{
    int position = 0; // 1-based when given as n$
    QByteArray flags;
    int width = -1;
    bool widthFromArg = false;
    int precision = -1;
    bool precisionFromArg = false;
    QByteArray length;
    char conversion = 0;
};

qlonglong toInteger(const QVariant &v)
{
    if (v.typeId() == QMetaType::QString)
        return v.toString().trimmed().toLongLong();
    if (v.typeId() == QMetaType::Double || v.typeId() == QMetaType::Float)
        return qlonglong(v.toDouble());
    return v.toLongLong();
}

QString formatNumber(const Spec &spec, const QVariant &value)
{
    QByteArray fmt = "%" + spec.flags;
    if (spec.width >= 0)
        fmt += QByteArray::number(spec.width);
    if (spec.precision >= 0)
        fmt += "." + QByteArray::number(spec.precision);
    char buf[512];
    switch (spec.conversion) {
    case 'd':
    case 'i': {
        fmt += "lld";
        qlonglong n = toInteger(value);
        if (spec.length == "hh")
            n = qint8(n);
        else if (spec.length == "h")
            n = qint16(n);
        else if (spec.length.isEmpty())
            n = qint32(n);
        std::snprintf(buf, sizeof buf, fmt.constData(), n);
        break;
    }
    case 'u':
    case 'o':
    case 'x':
    case 'X': {
        fmt += "ll";
        fmt += spec.conversion;
        qulonglong n = qulonglong(toInteger(value));
        if (spec.length == "hh")
            n = quint8(n);
        else if (spec.length == "h")
            n = quint16(n);
        else if (spec.length.isEmpty())
            n = quint32(n);
        std::snprintf(buf, sizeof buf, fmt.constData(), n);
        break;
    }
    case 'c': {
        const qlonglong n = toInteger(value);
        return QString(QChar(char16_t(n)));
    }
    default: { // f F e E g G a A
        fmt += spec.conversion;
        const double d
            = value.typeId() == QMetaType::QString ? value.toString().toDouble() : value.toDouble();
        std::snprintf(buf, sizeof buf, fmt.constData(), d);
        break;
    }
    }
    return QString::fromLatin1(buf);
}

QString pad(const QString &s, const Spec &spec)
{
    if (spec.width <= s.size())
        return s;
    const QString fill(spec.width - s.size(), QLatin1Char(' '));
    return spec.flags.contains('-') ? s + fill : fill + s;
}

} // namespace

QString vxDescription(const QVariant &value)
{
    return describe(value, 0, false);
}

QString vxFormatList(const QString &format, const QVariantList &args)
{
    QString out;
    out.reserve(format.size() + 16 * args.size());
    int nextArg = 0;
    const qsizetype n = format.size();
    auto take = [&](int position) -> QVariant {
        const int index = position > 0 ? position - 1 : nextArg++;
        return index >= 0 && index < args.size() ? args.at(index) : QVariant();
    };
    for (qsizetype i = 0; i < n; ++i) {
        const QChar c = format.at(i);
        if (c != QLatin1Char('%')) {
            out += c;
            continue;
        }
        const qsizetype start = i;
        qsizetype j = i + 1;
        if (j < n && format.at(j) == QLatin1Char('%')) {
            out += QLatin1Char('%');
            i = j;
            continue;
        }
        Spec spec;
        auto readNumber = [&](qsizetype &k) {
            int value = 0;
            bool any = false;
            while (k < n && format.at(k).isDigit() && format.at(k).unicode() < 128) {
                value = std::min(value * 10 + (format.at(k).unicode() - '0'), 4096);
                ++k;
                any = true;
            }
            return any ? value : -1;
        };
        // n$ positional argument
        {
            qsizetype k = j;
            const int number = readNumber(k);
            if (number > 0 && k < n && format.at(k) == QLatin1Char('$')) {
                spec.position = number;
                j = k + 1;
            }
        }
        while (j < n && QByteArrayView("-+ #0'").contains(char(format.at(j).unicode()))) {
            if (format.at(j) != QLatin1Char('\''))
                spec.flags += char(format.at(j).unicode());
            ++j;
        }
        if (j < n && format.at(j) == QLatin1Char('*')) {
            spec.widthFromArg = true;
            ++j;
        } else {
            spec.width = readNumber(j);
        }
        if (j < n && format.at(j) == QLatin1Char('.')) {
            ++j;
            if (j < n && format.at(j) == QLatin1Char('*')) {
                spec.precisionFromArg = true;
                ++j;
            } else {
                spec.precision = std::max(readNumber(j), 0);
            }
        }
        while (j < n && QByteArrayView("hlqLzjt").contains(char(format.at(j).unicode()))) {
            spec.length += char(format.at(j).unicode());
            ++j;
        }
        if (j >= n) { // dangling '%': copy it through
            out += format.mid(start);
            break;
        }
        const char16_t conv = format.at(j).unicode();
        if (spec.widthFromArg) {
            spec.width = int(toInteger(take(0)));
            if (spec.width < 0) {
                spec.flags += '-';
                spec.width = -spec.width;
            }
            spec.width = std::min(spec.width, 4096);
        }
        if (spec.precisionFromArg)
            spec.precision = std::clamp(int(toInteger(take(0))), 0, 4096);
        switch (conv) {
        case '@': {
            out += pad(describe(take(spec.position), 0, false), spec);
            break;
        }
        case 's':
        case 'S': {
            const QVariant v = take(spec.position);
            QString s = v.isNull() ? QStringLiteral("(null)") : v.toString();
            if (spec.precision >= 0)
                s.truncate(spec.precision);
            out += pad(s, spec);
            break;
        }
        case 'd':
        case 'i':
        case 'u':
        case 'o':
        case 'x':
        case 'X':
        case 'c':
        case 'C':
        case 'f':
        case 'F':
        case 'e':
        case 'E':
        case 'g':
        case 'G':
        case 'a':
        case 'A': {
            spec.conversion = conv == 'C' ? 'c' : char(conv);
            const QString s = formatNumber(spec, take(spec.position));
            out += spec.conversion == 'c' ? pad(s, spec) : s;
            break;
        }
        case 'p': {
            out += QStringLiteral("0x%1").arg(qulonglong(toInteger(take(spec.position))), 0, 16);
            break;
        }
        default:
            out += format.mid(start, j - start + 1);
            break;
        }
        i = j;
    }
    return out;
}

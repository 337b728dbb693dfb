// SPDX-FileCopyrightText: 2026 Quillet developers
// SPDX-License-Identifier: MIT
#include "stringextensions.h"

#include "utilities/vxstringcompare.h"

#include <clocale>
#include <cstdlib>
#include <locale.h>

namespace StringExtensions {

qint64 numericValue(const QString &s)
{
    // strtol semantics on purpose: base 0 accepts "0x1F" and octal "010".
    const QByteArray utf8 = s.toUtf8();
    return std::strtoll(utf8.constData(), nullptr, 0);
}

static bool isAsciiSpace(char16_t c)
{
    return c == ' ' || (c >= 9 && c <= 13);
}

int intValue(const QString &s)
{
    qsizetype i = 0;
    const qsizetype n = s.size();
    while (i < n && isAsciiSpace(s.at(i).unicode()))
        ++i;
    bool negative = false;
    if (i < n && (s.at(i) == u'-' || s.at(i) == u'+'))
        negative = s.at(i++) == u'-';
    qint64 value = 0;
    while (i < n && s.at(i) >= u'0' && s.at(i) <= u'9') {
        value = value * 10 + (s.at(i++).unicode() - '0');
        if (value > qint64(INT_MAX) + 1)
            value = qint64(INT_MAX) + 1; // saturate, as the platform does
    }
    if (negative)
        return int(-value);
    return int(qMin<qint64>(value, INT_MAX));
}

float floatValue(const QString &s)
{
    // Only a plain decimal prefix counts: no "inf", "nan" or hexadecimal.
    qsizetype i = 0;
    const qsizetype n = s.size();
    while (i < n && isAsciiSpace(s.at(i).unicode()))
        ++i;
    const qsizetype start = i;
    if (i < n && (s.at(i) == u'-' || s.at(i) == u'+'))
        ++i;
    qsizetype digits = 0;
    while (i < n && s.at(i).isDigit() && s.at(i).unicode() < 128)
        ++i, ++digits;
    if (i < n && s.at(i) == u'.') {
        ++i;
        while (i < n && s.at(i) >= u'0' && s.at(i) <= u'9')
            ++i, ++digits;
    }
    if (digits == 0)
        return 0.0f;
    qsizetype end = i;
    if (i < n && (s.at(i) == u'e' || s.at(i) == u'E')) {
        qsizetype j = i + 1;
        if (j < n && (s.at(j) == u'-' || s.at(j) == u'+'))
            ++j;
        if (j < n && s.at(j) >= u'0' && s.at(j) <= u'9') {
            while (j < n && s.at(j) >= u'0' && s.at(j) <= u'9')
                ++j;
            end = j;
        }
    }
    // strtof_l in the C locale: out of range is infinite (or 0), as the
    // platform reads it, not the 0 of Qt's checked conversion.
    static const locale_t c = newlocale(LC_ALL_MASK, "C", locale_t(nullptr));
    const QByteArray number = s.mid(start, end - start).toLatin1();
    return strtof_l(number.constData(), nullptr, c);
}

bool booleanValue(const QString &s)
{
    if (!s.isEmpty()) {
        const char16_t c = s.at(0).unicode();
        if (c == 'T' || c == 't' || c == 'Y' || c == 'y' || c == '1')
            return true;
    }
    return intValue(s) != 0;
}

bool isIntegerNumber(const QString &s)
{
    if (s.isEmpty())
        return false;
    for (QChar c : s)
        if (c < u'0' || c > u'9')
            return false;
    return true;
}

float smartFloatValue(const QString &s)
{
    QString t = s;
    const qsizetype comma = t.indexOf(u',');
    if (comma >= 0) {
        const qsizetype point = t.indexOf(u'.');
        if (point < 0) {
            t.replace(u',', u'.');
        } else if (comma > point) {
            t.remove(u'.');
            t.replace(u',', u'.');
        } else {
            t.remove(u',');
        }
    }
    return floatValue(t);
}

int numericCompare(const QString &s, const QString &other)
{
    return VXStringCompare::compare(s, other, VXStringCompare::Numeric);
}

int caseInsensitiveNumericCompare(const QString &s, const QString &other)
{
    return VXStringCompare::compare(
        s, other, VXStringCompare::Numeric | VXStringCompare::CaseInsensitive);
}

int casdInsensitiveNumericCompare(const QString &s, const QString &other)
{
    return caseInsensitiveNumericCompare(s, other);
}

bool matchesWildcardPattern(const QString &s, const QString &pattern)
{
    if (!pattern.contains(u'*'))
        return s == pattern;
    const QStringList pieces = pattern.split(u'*');
    const qsizetype last = pieces.size() - 1;
    qsizetype cursor = 0;
    for (qsizetype i = 0; i <= last; ++i) {
        const QString &piece = pieces.at(i);
        if (piece.isEmpty())
            continue;
        if (i == 0) {
            if (!s.startsWith(piece))
                return false;
            cursor = piece.size();
        } else if (i == last) {
            if (!s.endsWith(piece) || cursor + piece.size() > s.size())
                return false;
        } else {
            // Leftmost occurrence, no backtracking: later pieces only need
            // to occur somewhere to the right.
            const qsizetype at = s.indexOf(piece, cursor);
            if (at < 0)
                return false;
            cursor = at + piece.size();
        }
    }
    return true;
}

// The platform's white-space-and-newline set: Unicode Z*, tab to CR, NEL.
static bool isWhitespaceOrNewline(QChar c)
{
    const char16_t u = c.unicode();
    if ((u >= 9 && u <= 13) || u == 0x85)
        return true;
    const auto cat = c.category();
    return cat == QChar::Separator_Space || cat == QChar::Separator_Line
        || cat == QChar::Separator_Paragraph;
}

QString trimWhitespace(const QString &s)
{
    qsizetype begin = 0;
    qsizetype end = s.size();
    while (begin < end && isWhitespaceOrNewline(s.at(begin)))
        ++begin;
    while (end > begin && isWhitespaceOrNewline(s.at(end - 1)))
        --end;
    return s.mid(begin, end - begin);
}

QString stringByTrimmingWhitespace(const QString &s)
{
    // Its own definition on purpose: controls, space and no-break space only.
    auto white = [](QChar c) { return c.unicode() < 33 || c.unicode() == 160; };
    if (s.isEmpty())
        return s;
    qsizetype begin = 0;
    qsizetype end = s.size();
    while (begin < end && white(s.at(begin)))
        ++begin;
    if (begin == end)
        return QStringLiteral("");
    while (white(s.at(end - 1)))
        --end;
    if (begin == 0 && end == s.size())
        return s;
    return s.mid(begin, end - begin);
}

// The platform's control-character set: categories Cc and Cf, by code point.
static bool isControlCharacter(char32_t c)
{
    const auto cat = QChar::category(c);
    return cat == QChar::Other_Control || cat == QChar::Other_Format;
}

QString asSingleLine(const QString &s)
{
    // Each control character, a surrogate pair included, becomes one space.
    QString work;
    work.reserve(s.size());
    const qsizetype n = s.size();
    for (qsizetype i = 0; i < n; ++i) {
        const QChar c = s.at(i);
        if (c.isHighSurrogate() && i + 1 < n && s.at(i + 1).isLowSurrogate()) {
            const char32_t code = QChar::surrogateToUcs4(c, s.at(i + 1));
            if (isControlCharacter(code))
                work += u' ';
            else
                work.append(c).append(s.at(i + 1));
            ++i;
        } else {
            work += isControlCharacter(c.unicode()) ? QChar(u' ') : c;
        }
    }
    return trimWhitespace(work);
}

QStringList arrayOfLines(const QString &s)
{
    QString separator;
    if (s.contains(u"\r\n"))
        separator = QStringLiteral("\r\n");
    else if (s.contains(u'\n'))
        separator = QStringLiteral("\n");
    else
        separator = QStringLiteral("\r");
    return s.split(separator);
}

QString withLineSeparator(const QString &s, const QString &separator)
{
    const QString sep = separator.isNull() ? QStringLiteral("") : separator;
    QString work = s;
    qsizetype total = 0;
    // Fixed order, kept with its consequence: with "\r\n" the first pass is
    // skipped and each "\r\n" ends up as "\r\r\n\r\n". Intended.
    for (const QString &from :
        { QStringLiteral("\r\n"), QStringLiteral("\r"), QStringLiteral("\n") }) {
        if (sep == from)
            continue;
        const qsizetype n = work.count(from);
        if (n > 0) {
            work.replace(from, sep);
            total += n;
        }
    }
    if (total == 0)
        return s;
    return work;
}

QStringList componentsSeparatedByCharacter(const QString &s, QChar separator)
{
    QStringList result;
    result.reserve(s.size() / 10);
    qsizetype start = 0;
    for (qsizetype i = 0; i < s.size(); ++i) {
        if (s.at(i) == separator) {
            result.append(s.mid(start, i - start));
            start = i + 1;
        }
    }
    // No trailing empty component, unlike QString::split. Intended.
    if (start < s.size())
        result.append(s.mid(start));
    return result;
}

QString repeated(const QString &s, int count)
{
    if (count < 1)
        return QStringLiteral("");
    if (count == 1)
        return s;
    QString half = repeated(s, count / 2);
    QString result = half + half;
    if (count % 2)
        result += s;
    return result;
}

QString stringByEscapingCharacters(const QString &s, const QString &characters)
{
    auto find = [&](qsizetype from, qsizetype to) -> qsizetype {
        for (qsizetype i = from; i < to; ++i)
            if (characters.contains(s.at(i)))
                return i;
        return -1;
    };
    qsizetype pos = find(0, s.size());
    if (pos < 0)
        return s;
    // The working copy is built once, front to back. Each escape lands at a
    // position of the unedited input, in the working copy as edited so far:
    // only the first is sure to land right. Intended. Since positions grow
    // by at least 2, the copy is always "out" followed by s[source...], and
    // what lies behind the last escape is never edited again.
    QString out;
    out.reserve(s.size() + s.size() / 4 + 2);
    qsizetype source = 0; // s[source] is the working copy's character at out.size()
    while (pos >= 0) {
        const qsizetype skip = pos - out.size();
        out.append(QStringView(s).mid(source, skip));
        source += skip;
        const QChar c = s.at(source++);
        if (c == u'\t')
            out.append(u"\\t");
        else if (c == u'\r')
            out.append(u"\\r");
        else if (c == u'\n')
            out.append(u"\\n");
        else
            out.append(u'\\').append(c);
        // The range would run past the input's end; it is clamped to it.
        const qsizetype from = pos + 2;
        const qsizetype to = qMin(out.size() + (s.size() - source), s.size());
        pos = from < to ? find(from, to) : -1;
    }
    out.append(QStringView(s).mid(source));
    return out;
}

const QString &defaultEscapeSet()
{
    static const QString set = QStringLiteral("\n\r\t\\");
    return set;
}

QString stringByExpandingEscapedCharacters(const QString &s, const QString &characters)
{
    QString set;
    if (characters.constData() == defaultEscapeSet().constData()) {
        set = QStringLiteral("nrt\\");
    } else {
        set = characters;
        set.replace(u'\r', u'r').replace(u'\n', u'n').replace(u'\t', u't');
    }
    if (s.size() < 2)
        return s;
    // One pass, building the result once; a produced character is never
    // read again as the start of an escape.
    QString out;
    const qsizetype n = s.size();
    qsizetype copied = 0;
    for (qsizetype i = 0; i < n - 1; ++i) {
        if (s.at(i) != u'\\' || !set.contains(s.at(i + 1)))
            continue;
        if (out.isNull())
            out.reserve(n);
        out.append(QStringView(s).mid(copied, i - copied));
        const QChar next = s.at(i + 1);
        out.append(next == u't' ? QChar(u'\t')
                : next == u'r'  ? QChar(u'\r')
                : next == u'n'  ? QChar(u'\n')
                                : next);
        copied = i + 2;
        ++i;
    }
    if (out.isNull())
        return s;
    out.append(QStringView(s).mid(copied));
    return out;
}

bool expandEscapedControlCharactersIncludingBackslash(QString &s, bool backslash)
{
    if (s.size() < 2)
        return false;
    QString out;
    const qsizetype n = s.size();
    qsizetype copied = 0;
    for (qsizetype i = 0; i < n - 1; ++i) {
        if (s.at(i) != u'\\')
            continue;
        const QChar next = s.at(i + 1);
        QChar produced;
        if (next == u'n')
            produced = u'\n';
        else if (next == u'r')
            produced = u'\r';
        else if (next == u't')
            produced = u'\t';
        else if (next == u'\\' && backslash)
            produced = u'\\';
        if (next == u'\\' && !backslash) {
            ++i; // step over the pair so "\\n" stays as written
            continue;
        }
        if (produced.isNull())
            continue;
        if (out.isNull())
            out.reserve(n);
        out.append(QStringView(s).mid(copied, i - copied)).append(produced);
        copied = i + 2;
        ++i;
    }
    if (out.isNull())
        return false;
    out.append(QStringView(s).mid(copied));
    s = out;
    return true;
}

QString stringByExpandingEscapedControlCharactersIncludingBackslash(
    const QString &s, bool backslash)
{
    QString work = s;
    if (!expandEscapedControlCharactersIncludingBackslash(work, backslash))
        return s;
    return work;
}

QString stringByExpandingEscapedControlCharacters(const QString &s)
{
    return stringByExpandingEscapedControlCharactersIncludingBackslash(s, true);
}

} // namespace StringExtensions

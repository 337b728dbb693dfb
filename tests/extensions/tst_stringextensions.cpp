// SPDX-FileCopyrightText: 2026 Quillet developers
// SPDX-License-Identifier: MIT
#include "extensions/stringextensions.h"

#include <QRandomGenerator>
#include <QTest>
#include <fnmatch.h>

using namespace StringExtensions;

// One table row on one line: the values in column order.
template <typename... T> static void row(const char *name, const T &...values)
{
    (QTest::newRow(name) << ... << values);
}

class tst_StringExtensions : public QObject
{
    Q_OBJECT
private slots:
    void parsersReadTheSameText_data();
    void parsersReadTheSameText();
    void numericCompareOrdersDigitRunsByValue_data();
    void numericCompareOrdersDigitRunsByValue();
    void wildcardPatterns_data();
    void wildcardPatterns();
    void wildcardAgreesWithFnmatch();
    void trimming_data();
    void trimming();
    void lines_data();
    void lines();
    void withLineSeparatorKeepsPassOrder_data();
    void withLineSeparatorKeepsPassOrder();
    void componentsDropOnlyTrailingEmpty_data();
    void componentsDropOnlyTrailingEmpty();
    void repeatedByHalving();
    void escaping_data();
    void escaping();
    void expandingChosenEscapes_data();
    void expandingChosenEscapes();
    void expandingControlEscapes_data();
    void expandingControlEscapes();
    void regexReplacement_data();
    void regexReplacement();
};

void tst_StringExtensions::parsersReadTheSameText_data()
{
    // booleanValue: a leading y, Y, t, T or 1, else the integer; numericValue
    // is strtol with base 0; smartFloatValue takes either decimal mark;
    // isIntegerNumber wants ASCII digits only.
    QTest::addColumn<QString>("text");
    QTest::addColumn<bool>("boolean");
    QTest::addColumn<qint64>("numeric");
    QTest::addColumn<float>("smartFloat");
    QTest::addColumn<bool>("isInteger");
    row("empty", "", false, qint64(0), 0.0f, false);
    row("leading y", "yes", true, qint64(0), 0.0f, false);
    row("leading T", "True", true, qint64(0), 0.0f, false);
    row("leading Y", "Yellow", true, qint64(0), 0.0f, false);
    row("other word", "false", false, qint64(0), 0.0f, false);
    row("leading 1", "1x", true, qint64(1), 1.0f, false);
    row("integer", "42", true, qint64(42), 42.0f, true);
    row("zero", "0", false, qint64(0), 0.0f, true);
    row("blanks sign junk", "  -12abc", true, qint64(-12), -12.0f, false);
    row("minus", "-1", true, qint64(-1), -1.0f, false);
    row("octal", "010", true, qint64(8), 10.0f, true);
    row("hex", "0x1F", false, qint64(31), 0.0f, false);
    row("beyond 32 bits", "8589934592", true, qint64(8589934592LL), 8589934592.0f, true);
    row("comma after point", "1.234,5", true, qint64(1), 1234.5f, false);
    row("comma before point", "1,234.5", true, qint64(1), 1234.5f, false);
    row("comma only", "2,5", true, qint64(2), 2.5f, false);
    row("number then unit", " 3.5kg", true, qint64(3), 3.5f, false);
    row("not infinity", "inf", false, qint64(0), 0.0f, false);
    row("arabic-indic digit", QString(QChar(0x0661)), false, qint64(0), 0.0f, false);
}

void tst_StringExtensions::parsersReadTheSameText()
{
    QFETCH(QString, text);
    QFETCH(bool, boolean);
    QFETCH(qint64, numeric);
    QFETCH(float, smartFloat);
    QFETCH(bool, isInteger);
    QCOMPARE(booleanValue(text), boolean);
    QCOMPARE(numericValue(text), numeric);
    QCOMPARE(smartFloatValue(text), smartFloat);
    QCOMPARE(isIntegerNumber(text), isInteger);
}

void tst_StringExtensions::numericCompareOrdersDigitRunsByValue_data()
{
    QTest::addColumn<QString>("a");
    QTest::addColumn<QString>("b");
    QTest::addColumn<int>("numeric");
    QTest::addColumn<int>("caseless");
    row("file9 file10", "file9", "file10", -1, -1);
    row("prefix sorts first", "1.0", "1.0.0", -1, -1);
    row("case matters", "File2", "file2", -1, 0);
    row("equal", "a1", "a1", 0, 0);
}

void tst_StringExtensions::numericCompareOrdersDigitRunsByValue()
{
    QFETCH(QString, a);
    QFETCH(QString, b);
    QFETCH(int, numeric);
    QFETCH(int, caseless);
    QCOMPARE(numericCompare(a, b), numeric);
    QCOMPARE(numericCompare(b, a), -numeric);
    QCOMPARE(caseInsensitiveNumericCompare(a, b), caseless);
    QCOMPARE(casdInsensitiveNumericCompare(a, b), caseless);
}

void tst_StringExtensions::wildcardPatterns_data()
{
    // What the comparison with fnmatch below cannot show: its alphabet has
    // neither capitals nor "?".
    QTest::addColumn<QString>("text");
    QTest::addColumn<QString>("pattern");
    QTest::addColumn<bool>("expected");
    row("stars match empty", "", "***", true);
    row("suffix may not overlap", "ab", "ab*b", false);
    row("case-sensitive", "abc", "A*", false);
    row("no question mark", "abc", "a?c", false);
}

void tst_StringExtensions::wildcardPatterns()
{
    QFETCH(QString, text);
    QFETCH(QString, pattern);
    QFETCH(bool, expected);
    QCOMPARE(matchesWildcardPattern(text, pattern), expected);
}

void tst_StringExtensions::wildcardAgreesWithFnmatch()
{
    // Over an alphabet of two letters, patterns of literals and "*" mean the
    // same in both; fnmatch backtracks, so this also checks that
    // leftmost-first is enough.
    QRandomGenerator rng(20261122);
    auto randomText = [&](int maxLength, bool stars) {
        QString s;
        const int n = int(rng.bounded(maxLength + 1));
        for (int i = 0; i < n; ++i) {
            const int r = int(rng.bounded(stars ? 4 : 2));
            s += r == 0 ? u'a' : r == 1 ? u'b' : u'*';
        }
        return s;
    };
    for (int i = 0; i < 100000; ++i) {
        const QString text = randomText(8, false);
        const QString pattern = randomText(6, true);
        const bool expected
            = fnmatch(pattern.toLatin1().constData(), text.toLatin1().constData(), 0) == 0;
        if (matchesWildcardPattern(text, pattern) != expected)
            QFAIL(qPrintable(QStringLiteral("text \"%1\" pattern \"%2\": fnmatch says %3")
                                 .arg(text, pattern, expected ? u"match" : u"no match")));
    }
}

void tst_StringExtensions::trimming_data()
{
    // stringByTrimmingWhitespace has its own rule (code units below 33 and
    // U+00A0); trimWhitespace the platform's white space; asSingleLine turns
    // every control and format character into a space, then trims.
    QTest::addColumn<QString>("text");
    QTest::addColumn<QString>("own");
    QTest::addColumn<QString>("platform");
    QTest::addColumn<QString>("singleLine");
    row("no-break space and tab", QStringLiteral("\u00A0 x \t"), "x", "x", "x");
    row("blank only", " \t ", "", "", "");
    row("em space", QStringLiteral("\u2003x"), QStringLiteral("\u2003x"), "x", "x");
    row("control char", QStringLiteral("\x01x"), "x", QStringLiteral("\x01x"), "x");
    row("inner breaks and format char", QStringLiteral("\ta\r\nb\u200Bc "),
        QStringLiteral("a\r\nb\u200Bc"), QStringLiteral("a\r\nb\u200Bc"), "a  b c");
    row("nothing to trim", "x y", "x y", "x y", "x y");
}

void tst_StringExtensions::trimming()
{
    QFETCH(QString, text);
    QFETCH(QString, own);
    QFETCH(QString, platform);
    QFETCH(QString, singleLine);
    const QString trimmed = stringByTrimmingWhitespace(text);
    QCOMPARE(trimmed, own);
    if (own == text)
        QCOMPARE(trimmed.constData(), text.constData());
    QCOMPARE(trimWhitespace(text), platform);
    QCOMPARE(asSingleLine(text), singleLine);
}

void tst_StringExtensions::lines_data()
{
    QTest::addColumn<QString>("text");
    QTest::addColumn<QStringList>("lines");
    row("mixed keeps lone LF", "a\r\nb\nc", QStringList { "a", "b\nc" });
    row("final empty line", "a\n", QStringList { "a", "" });
    row("CR only", "a\rb", QStringList { "a", "b" });
    row("no break", "abc", QStringList { "abc" });
}

void tst_StringExtensions::lines()
{
    QFETCH(QString, text);
    QFETCH(QStringList, lines);
    QCOMPARE(arrayOfLines(text), lines);
}

void tst_StringExtensions::withLineSeparatorKeepsPassOrder_data()
{
    QTest::addColumn<QString>("text");
    QTest::addColumn<QString>("separator");
    QTest::addColumn<QString>("expected");
    row("to LF", "a\r\nb\rc", "\n", "a\nb\nc");
    row("to CRLF doubles up", "a\r\nb", "\r\n", "a\r\r\n\r\nb");
    row("to CR", "a\r\nb\nc", "\r", "a\rb\rc");
    row("null removes", "a\nb", QString(), "ab");
}

void tst_StringExtensions::withLineSeparatorKeepsPassOrder()
{
    QFETCH(QString, text);
    QFETCH(QString, separator);
    QFETCH(QString, expected);
    QCOMPARE(withLineSeparator(text, separator), expected);
    const QString plain = QStringLiteral("no breaks");
    QCOMPARE(withLineSeparator(plain, separator).constData(), plain.constData());
}

void tst_StringExtensions::componentsDropOnlyTrailingEmpty_data()
{
    QTest::addColumn<QString>("text");
    QTest::addColumn<QStringList>("parts");
    row("doubled and trailing", "a,,b,", QStringList { "a", "", "b" });
    row("leading", ",a", QStringList { "", "a" });
    row("separator only", ",", QStringList { "" });
    row("empty", "", QStringList {});
}

void tst_StringExtensions::componentsDropOnlyTrailingEmpty()
{
    QFETCH(QString, text);
    QFETCH(QStringList, parts);
    QCOMPARE(componentsSeparatedByCharacter(text, u','), parts);
}

void tst_StringExtensions::repeatedByHalving()
{
    const QString ab = QStringLiteral("ab");
    QCOMPARE(repeated(ab, 0), QString());
    QCOMPARE(repeated(ab, -3), QString());
    QCOMPARE(repeated(ab, 1).constData(), ab.constData());
    QCOMPARE(repeated(ab, 5), QStringLiteral("ababababab"));
    QCOMPARE(repeated(ab, 1000).size(), 2000);
}

void tst_StringExtensions::escaping_data()
{
    QTest::addColumn<QString>("text");
    QTest::addColumn<QString>("set");
    QTest::addColumn<QString>("expected");
    row("tab by name", "a\tb", "\t", "a\\tb");
    row("others by backslash, only those in the set", "a\tb\"", "\"", "a\tb\\\"");
    // Positions are those of the unedited input: the second escape lands one early.
    row("two apart", "a\"bcd\"e", "\"", "a\\\"bc\\d\"e");
}

void tst_StringExtensions::escaping()
{
    QFETCH(QString, text);
    QFETCH(QString, set);
    QFETCH(QString, expected);
    QCOMPARE(stringByEscapingCharacters(text, set), expected);
    const QString clean = QStringLiteral("clean");
    QCOMPARE(stringByEscapingCharacters(clean, set).constData(), clean.constData());
}

void tst_StringExtensions::expandingChosenEscapes_data()
{
    QTest::addColumn<QString>("text");
    QTest::addColumn<bool>("defaultSet");
    QTest::addColumn<QString>("set");
    QTest::addColumn<QString>("expected");
    row("default set", "a\\nb\\\\c\\q", true, "", "a\nb\\c\\q");
    row("letters", "\\t\\r", false, "t", "\t\\r");
    row("control chars name letters", "\\t\\r", false, "\t\r", "\t\r");
    row("produced char not re-read", "\\\\n", true, "", "\\n");
}

void tst_StringExtensions::expandingChosenEscapes()
{
    QFETCH(QString, text);
    QFETCH(bool, defaultSet);
    QFETCH(QString, set);
    QFETCH(QString, expected);
    const QString &characters = defaultSet ? defaultEscapeSet() : set;
    QCOMPARE(stringByExpandingEscapedCharacters(text, characters), expected);
    const QString plain = QStringLiteral("plain\\z");
    QCOMPARE(stringByExpandingEscapedCharacters(plain, characters).constData(), plain.constData());
}

void tst_StringExtensions::expandingControlEscapes_data()
{
    QTest::addColumn<QString>("text");
    QTest::addColumn<bool>("backslash");
    QTest::addColumn<QString>("expected");
    QTest::addColumn<bool>("changed");
    row("pair kept whole without backslash", "\\\\n", false, "\\\\n", false);
    row("pair folded with backslash", "\\\\n", true, "\\n", true);
    row("letters", "a\\tb\\r\\n", false, "a\tb\r\n", true);
    row("other char left", "\\q", true, "\\q", false);
    row("short", "\\", true, "\\", false);
}

void tst_StringExtensions::expandingControlEscapes()
{
    QFETCH(QString, text);
    QFETCH(bool, backslash);
    QFETCH(QString, expected);
    QFETCH(bool, changed);
    QString s = text;
    QCOMPARE(expandEscapedControlCharactersIncludingBackslash(s, backslash), changed);
    QCOMPARE(s, expected);
    const QString copy
        = stringByExpandingEscapedControlCharactersIncludingBackslash(text, backslash);
    QCOMPARE(copy, expected);
    if (!changed)
        QCOMPARE(copy.constData(), text.constData());
}

void tst_StringExtensions::regexReplacement_data()
{
    QTest::addColumn<QString>("text");
    QTest::addColumn<QString>("pattern");
    QTest::addColumn<QString>("templ");
    QTest::addColumn<QString>("expected");
    row("every match, group one", "a1b22", "(\\d+)", "<$1>", "a<1>b<22>");
    row("whole match", "ab", "b", "[$0]", "a[b]");
    row("escaped dollar", "ab", "b", "\\$0", "a$0");
}

void tst_StringExtensions::regexReplacement()
{
    QFETCH(QString, text);
    QFETCH(QString, pattern);
    QFETCH(QString, templ);
    QFETCH(QString, expected);
    QCOMPARE(stringByReplacingOccurrencesOfRegexPattern(text, pattern, templ), expected);
    QString s = text;
    replaceOccurrencesOfRegexPattern(s, pattern, templ);
    QCOMPARE(s, expected);
}

QTEST_GUILESS_MAIN(tst_StringExtensions)
#include "tst_stringextensions.moc"

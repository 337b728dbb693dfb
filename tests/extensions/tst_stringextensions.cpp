// SPDX-FileCopyrightText: 2026 Quillet developers
// SPDX-License-Identifier: MIT
#include "extensions/stringextensions.h"

#include <QRandomGenerator>
#include <QTest>
#include <fnmatch.h>

using namespace StringExtensions;

class tst_StringExtensions : public QObject
{
    Q_OBJECT
private slots:
    void booleanValueReadsLeadingLetterOrInteger_data();
    void booleanValueReadsLeadingLetterOrInteger();
    void numericValueParsesLikeStrtol_data();
    void numericValueParsesLikeStrtol();
    void smartFloatValueAcceptsBothDecimalMarks_data();
    void smartFloatValueAcceptsBothDecimalMarks();
    void isIntegerNumberAllowsOnlyAsciiDigits_data();
    void isIntegerNumberAllowsOnlyAsciiDigits();
    void numericCompareOrdersDigitRunsByValue_data();
    void numericCompareOrdersDigitRunsByValue();
    void wildcardPatterns_data();
    void wildcardPatterns();
    void wildcardAgreesWithFnmatch();
    void trimming_data();
    void trimming();
    void trimmingReturnsReceiverWhenNothingRemoved();
    void linesSplitAtOneSeparator_data();
    void linesSplitAtOneSeparator();
    void withLineSeparatorKeepsPassOrder_data();
    void withLineSeparatorKeepsPassOrder();
    void asSingleLineReplacesControlCharacters();
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

void tst_StringExtensions::booleanValueReadsLeadingLetterOrInteger_data()
{
    QTest::addColumn<QString>("text");
    QTest::addColumn<bool>("expected");
    QTest::newRow("yes") << "yes" << true;
    QTest::newRow("True") << "True" << true;
    QTest::newRow("one") << "1" << true;
    QTest::newRow("Yellow counts") << "Yellow" << true;
    QTest::newRow("Tomato counts") << "Tomato" << true;
    QTest::newRow("1x") << "1x" << true;
    QTest::newRow("42 by integer") << "42" << true;
    QTest::newRow("blank then 5") << " 5" << true;
    QTest::newRow("minus one") << "-1" << true;
    QTest::newRow("zero") << "0" << false;
    QTest::newRow("empty") << "" << false;
    QTest::newRow("nope") << "nope" << false;
    QTest::newRow("false") << "false" << false;
    QTest::newRow("x") << "x" << false;
}

void tst_StringExtensions::booleanValueReadsLeadingLetterOrInteger()
{
    QFETCH(QString, text);
    QFETCH(bool, expected);
    QCOMPARE(booleanValue(text), expected);
}

void tst_StringExtensions::numericValueParsesLikeStrtol_data()
{
    QTest::addColumn<QString>("text");
    QTest::addColumn<qint64>("expected");
    QTest::newRow("hex") << "0x1F" << qint64(31);
    QTest::newRow("octal") << "010" << qint64(8);
    QTest::newRow("blanks sign junk") << "  -12abc" << qint64(-12);
    QTest::newRow("no number") << "abc" << qint64(0);
    QTest::newRow("beyond 32 bits") << "8589934592" << qint64(8589934592LL);
    QTest::newRow("empty") << "" << qint64(0);
}

void tst_StringExtensions::numericValueParsesLikeStrtol()
{
    QFETCH(QString, text);
    QFETCH(qint64, expected);
    QCOMPARE(numericValue(text), expected);
}

void tst_StringExtensions::smartFloatValueAcceptsBothDecimalMarks_data()
{
    QTest::addColumn<QString>("text");
    QTest::addColumn<float>("expected");
    QTest::newRow("comma after point") << "1.234,5" << 1234.5f;
    QTest::newRow("comma before point") << "1,234.5" << 1234.5f;
    QTest::newRow("comma only") << "2,5" << 2.5f;
    QTest::newRow("point only") << "2.5" << 2.5f;
    QTest::newRow("no number") << "abc" << 0.0f;
    QTest::newRow("not infinity") << "inf" << 0.0f;
    QTest::newRow("leading number") << " 3.5kg" << 3.5f;
}

void tst_StringExtensions::smartFloatValueAcceptsBothDecimalMarks()
{
    QFETCH(QString, text);
    QFETCH(float, expected);
    QCOMPARE(smartFloatValue(text), expected);
}

void tst_StringExtensions::isIntegerNumberAllowsOnlyAsciiDigits_data()
{
    QTest::addColumn<QString>("text");
    QTest::addColumn<bool>("expected");
    QTest::newRow("empty") << "" << false;
    QTest::newRow("zero") << "0" << true;
    QTest::newRow("leading zeros") << "007" << true;
    QTest::newRow("plus") << "+1" << false;
    QTest::newRow("minus") << "-1" << false;
    QTest::newRow("decimal") << "1.0" << false;
    QTest::newRow("arabic-indic digit") << QString(QChar(0x0661)) << false;
}

void tst_StringExtensions::isIntegerNumberAllowsOnlyAsciiDigits()
{
    QFETCH(QString, text);
    QFETCH(bool, expected);
    QCOMPARE(isIntegerNumber(text), expected);
}

void tst_StringExtensions::numericCompareOrdersDigitRunsByValue_data()
{
    QTest::addColumn<QString>("a");
    QTest::addColumn<QString>("b");
    QTest::addColumn<int>("numeric");
    QTest::addColumn<int>("caseless");
    QTest::newRow("file9 file10") << "file9"
                                  << "file10" << -1 << -1;
    QTest::newRow("prefix sorts first") << "1.0"
                                        << "1.0.0" << -1 << -1;
    QTest::newRow("case matters") << "File2"
                                  << "file2" << -1 << 0;
    QTest::newRow("equal") << "a1"
                           << "a1" << 0 << 0;
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
    QTest::addColumn<QString>("text");
    QTest::addColumn<QString>("pattern");
    QTest::addColumn<bool>("expected");
    QTest::newRow("star matches empty") << ""
                                        << "*" << true;
    QTest::newRow("star matches text") << "anything"
                                       << "*" << true;
    QTest::newRow("stars only") << ""
                                << "***" << true;
    QTest::newRow("suffix may not overlap") << "ab"
                                            << "ab*b" << false;
    QTest::newRow("a*c*e abcde") << "abcde"
                                 << "a*c*e" << true;
    QTest::newRow("a*c*e ace") << "ace"
                               << "a*c*e" << true;
    QTest::newRow("literal equal") << "abc"
                                   << "abc" << true;
    QTest::newRow("literal longer") << "abcd"
                                    << "abc" << false;
    QTest::newRow("case-sensitive") << "abc"
                                    << "A*" << false;
    QTest::newRow("no question mark") << "abc"
                                      << "a?c" << false;
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
    QTest::addColumn<QString>("text");
    QTest::addColumn<QString>("own");
    QTest::addColumn<QString>("platform");
    QTest::newRow("no-break space and tab") << QStringLiteral("\u00A0 x \t") << "x"
                                            << "x";
    QTest::newRow("blank only") << " \t "
                                << ""
                                << "";
    // U+2003 is white space to the platform set but not to the own rule.
    QTest::newRow("em space") << QStringLiteral("\u2003x") << QStringLiteral("\u2003x") << "x";
    QTest::newRow("control char") << QStringLiteral("\x01x") << "x" << QStringLiteral("\x01x");
}

void tst_StringExtensions::trimming()
{
    QFETCH(QString, text);
    QFETCH(QString, own);
    QFETCH(QString, platform);
    QCOMPARE(stringByTrimmingWhitespace(text), own);
    QCOMPARE(trimWhitespace(text), platform);
}

void tst_StringExtensions::trimmingReturnsReceiverWhenNothingRemoved()
{
    const QString x = QStringLiteral("x y");
    QCOMPARE(stringByTrimmingWhitespace(x).constData(), x.constData());
    const QString empty = QString::fromLatin1("");
    QCOMPARE(stringByTrimmingWhitespace(empty).constData(), empty.constData());
}

void tst_StringExtensions::linesSplitAtOneSeparator_data()
{
    QTest::addColumn<QString>("text");
    QTest::addColumn<QStringList>("lines");
    QTest::newRow("mixed keeps lone LF") << "a\r\nb\nc" << QStringList { "a", "b\nc" };
    QTest::newRow("final empty line") << "a\n" << QStringList { "a", "" };
    QTest::newRow("CR only") << "a\rb" << QStringList { "a", "b" };
    QTest::newRow("no break") << "abc" << QStringList { "abc" };
}

void tst_StringExtensions::linesSplitAtOneSeparator()
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
    QTest::newRow("to LF") << "a\r\nb\rc"
                           << "\n"
                           << "a\nb\nc";
    QTest::newRow("to CRLF doubles up") << "a\r\nb"
                                        << "\r\n"
                                        << "a\r\r\n\r\nb";
    QTest::newRow("lone CR to CRLF") << "a\rb"
                                     << "\r\n"
                                     << "a\r\r\nb";
    QTest::newRow("null removes") << "a\nb" << QString() << "ab";
    QTest::newRow("to CR") << "a\r\nb\nc"
                           << "\r"
                           << "a\rb\rc";
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

void tst_StringExtensions::asSingleLineReplacesControlCharacters()
{
    // Each control (Cc) and format (Cf) character becomes one space; ends trimmed.
    QCOMPARE(asSingleLine(QStringLiteral("\ta\r\nb\u200Bc ")), QStringLiteral("a  b c"));
}

void tst_StringExtensions::componentsDropOnlyTrailingEmpty_data()
{
    QTest::addColumn<QString>("text");
    QTest::addColumn<QStringList>("parts");
    QTest::newRow("doubled and trailing") << "a,,b," << QStringList { "a", "", "b" };
    QTest::newRow("leading") << ",a" << QStringList { "", "a" };
    QTest::newRow("separator only") << "," << QStringList { "" };
    QTest::newRow("empty") << "" << QStringList {};
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
    QTest::newRow("tab") << "a\tb"
                         << "\t"
                         << "a\\tb";
    QTest::newRow("quote") << "say \"hi"
                           << "\""
                           << "say \\\"hi";
    QTest::newRow("tab not in set") << "a\tb\""
                                    << "\""
                                    << "a\tb\\\"";
    QTest::newRow("backslash") << "a\\b"
                               << "\\"
                               << "a\\\\b";
    QTest::newRow("two apart") << "a\"bcd\"e"
                               << "\""
                               << "a\\\"bc\\d\"e";
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
    QTest::newRow("default set") << "a\\nb\\\\c\\q" << true << ""
                                 << "a\nb\\c\\q";
    QTest::newRow("letters") << "\\t\\r" << false << "t"
                             << "\t\\r";
    QTest::newRow("control chars name letters") << "\\t\\r" << false << "\t\r"
                                                << "\t\r";
    QTest::newRow("quote") << "\\\"x\\\"" << false << "\""
                           << "\"x\"";
    QTest::newRow("produced char not re-read") << "\\\\n"
                                               << true << ""
                                               << "\\n";
}

void tst_StringExtensions::expandingChosenEscapes()
{
    QFETCH(QString, text);
    QFETCH(bool, defaultSet);
    QFETCH(QString, set);
    QFETCH(QString, expected);
    QCOMPARE(
        stringByExpandingEscapedCharacters(text, defaultSet ? defaultEscapeSet() : set), expected);
    const QString plain = QStringLiteral("plain\\z");
    QCOMPARE(stringByExpandingEscapedCharacters(plain, defaultSet ? defaultEscapeSet() : set)
                 .constData(),
        plain.constData());
}

void tst_StringExtensions::expandingControlEscapes_data()
{
    QTest::addColumn<QString>("text");
    QTest::addColumn<bool>("backslash");
    QTest::addColumn<QString>("expected");
    QTest::addColumn<bool>("changed");
    QTest::newRow("pair kept whole without backslash") << "\\\\n" << false << "\\\\n" << false;
    QTest::newRow("pair folded with backslash") << "\\\\n" << true << "\\n" << true;
    QTest::newRow("letters") << "a\\tb\\r\\n" << false << "a\tb\r\n" << true;
    QTest::newRow("other char left") << "\\q" << true << "\\q" << false;
    QTest::newRow("short") << "\\" << true << "\\" << false;
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
    QTest::newRow("group one") << "xaby"
                               << "a(b)"
                               << "$1"
                               << "xby";
    QTest::newRow("every match") << "a1b22"
                                 << "(\\d+)"
                                 << "<$1>"
                                 << "a<1>b<22>";
    QTest::newRow("escaped dollar") << "ab"
                                    << "b"
                                    << "\\$0"
                                    << "a$0";
    QTest::newRow("whole match") << "ab"
                                 << "b"
                                 << "[$0]"
                                 << "a[b]";
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

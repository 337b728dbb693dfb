// SPDX-FileCopyrightText: 2026 Quillet developers
// SPDX-License-Identifier: MIT
#include "common/testrow.h"
#include "extensions/stringextensions.h"

#include <QRandomGenerator>
#include <QTest>
#include <fnmatch.h>

using namespace StringExtensions;

using Edit = QString (*)(const QString &, const QString &);
Q_DECLARE_METATYPE(Edit)

class tst_StringExtensions : public QObject
{
    Q_OBJECT
private slots:
    void wildcardAgreesWithFnmatch()
    {
        // Over an alphabet of two letters, patterns of literals and "*" mean the
        // same in both; fnmatch backtracks, so this also checks that
        // leftmost-first is enough.
        QRandomGenerator rng(20261122);
        auto random = [&](int length, const char *alphabet) {
            QString s;
            for (int n = int(rng.bounded(length + 1)); n > 0; --n)
                s += QLatin1Char(alphabet[rng.bounded(int(qstrlen(alphabet)))]);
            return s;
        };
        for (int i = 0; i < 100000; ++i) {
            const QString text = random(8, "ab"), pattern = random(6, "ab**");
            const bool expected
                = fnmatch(pattern.toLatin1().constData(), text.toLatin1().constData(), 0) == 0;
            QVERIFY2(matchesWildcardPattern(text, pattern) == expected,
                qPrintable("text " + text + ", pattern " + pattern));
        }
        // What that alphabet cannot show: the case counts, and "?" is no wildcard.
        QVERIFY(!matchesWildcardPattern(QStringLiteral("abc"), QStringLiteral("A*")));
        QVERIFY(!matchesWildcardPattern(QStringLiteral("abc"), QStringLiteral("a?c")));
    }

    void edits_data()
    {
        // Parsing, escaping and expanding, line separators, repeats, splitting,
        // trimming and comparing. Lines split at the first kind of break found (CRLF, LF,
        // CR); components keep inner and leading empties but not a trailing one.
        QTest::addColumn<Edit>("edit");
        QTest::addColumn<QString>("text");
        QTest::addColumn<QString>("argument");
        QTest::addColumn<QString>("expected");
        // booleanValue: a leading y, Y, t, T or 1, else the integer; numericValue
        // is strtol with base 0; smartFloatValue takes either decimal mark, and
        // is infinite beyond float's range; isIntegerNumber wants ASCII digits.
        const Edit parse = [](const QString &s, const QString &) {
            return QStringList { QString::number(booleanValue(s)), QString::number(numericValue(s)),
                QString::number(smartFloatValue(s), 'g', 10), QString::number(isIntegerNumber(s)) }
                .join(u' ');
        };
        const Edit escape = stringByEscapingCharacters, expand = stringByExpandingEscapedCharacters;
        const Edit expandDefault = [](const QString &s, const QString &) {
            return stringByExpandingEscapedCharacters(s, defaultEscapeSet());
        };
        const Edit separate = withLineSeparator;
        const Edit repeat
            = [](const QString &s, const QString &n) { return repeated(s, n.toInt()); };
        const Edit split = [](const QString &s, const QString &by) {
            const QStringList parts
                = by.isEmpty() ? arrayOfLines(s) : componentsSeparatedByCharacter(s, by.at(0));
            return QString::number(parts.size()) + ": " + parts.join(u'|');
        };
        // Our own rule (code units below 33 and U+00A0), the platform's white
        // space, one line (every control and format character a space, trimmed).
        const Edit trims = [](const QString &s, const QString &) {
            return stringByTrimmingWhitespace(s) + "|" + trimWhitespace(s) + "|" + asSingleLine(s);
        };
        const Edit trimOwn
            = [](const QString &s, const QString &) { return stringByTrimmingWhitespace(s); };
        // Digit runs by value: both ways, then without case (its misspelt twin alike).
        const Edit compare = [](const QString &a, const QString &b) {
            const int caseless = caseInsensitiveNumericCompare(a, b);
            return QString::number(numericCompare(a, b)) + " "
                + QString::number(numericCompare(b, a)) + " "
                + QString::number(casdInsensitiveNumericCompare(a, b) == caseless ? caseless : 9);
        };
        // In place and as a copy alike, "changed" when it did (else a marked text).
        const Edit controls = [](const QString &s, const QString &backslash) {
            QString inPlace = s;
            const bool changed
                = expandEscapedControlCharactersIncludingBackslash(inPlace, !backslash.isEmpty());
            const QString copy = stringByExpandingEscapedControlCharactersIncludingBackslash(
                s, !backslash.isEmpty());
            return changed == (inPlace != s) && inPlace == copy ? copy : "in place: " + inPlace;
        };
        row("parse: empty", parse, "", "", "0 0 0 0");
        row("parse: leading y", parse, "yes", "", "1 0 0 0");
        row("parse: other word", parse, "no", "", "0 0 0 0");
        row("parse: leading 1", parse, "1x", "", "1 1 1 0");
        row("parse: integer", parse, "42", "", "1 42 42 1");
        row("parse: zero", parse, "0", "", "0 0 0 1");
        row("parse: blanks sign junk", parse, "  -12abc", "", "1 -12 -12 0");
        row("parse: octal", parse, "010", "", "1 8 10 1");
        row("parse: hex", parse, "0x1F", "", "0 31 0 0");
        row("parse: beyond 32 bits", parse, "8589934592", "", "1 8589934592 8589934592 1");
        row("parse: comma after point", parse, "1.234,5", "", "1 1 1234.5 0");
        row("parse: comma before point", parse, "1,234.5", "", "1 1 1234.5 0");
        row("parse: not infinity", parse, "inf", "", "0 0 0 0");
        row("parse: float overflow", parse, "1e50", "", "1 1 inf 0");
        row("parse: double overflow", parse, "-1e400", "", "1 -1 -inf 0");
        row("parse: underflow", parse, "1e-400", "", "1 1 0 0");
        row("parse: arabic-indic digit", parse, QString(QChar(0x0661)), "", "0 0 0 0");
        // Positions are those of the unedited input: each escape lands one further early.
        row("escape: four, each shifted further", escape, "a\"b\"c\"d\"e", "\"",
            "a\\\"\\b\\\"\\c\"d\"e");
        row("escape: controls and quotes mixed", escape, "\t\"x\n\ty\"", "\t\n\"",
            "\\t\"\\x\n\\ty\"");
        row("escape: nothing to escape", escape, "clean", "\"", "clean");
        row("escape: 100,000 tabs, the first half by then", escape, QString(100000, u'\t'), "\t",
            QStringLiteral("\\t").repeated(50000) + QString(50000, u'\t'));
        row("expand: default set", expandDefault, "a\\nb\\\\c\\q", "", "a\nb\\c\\q");
        row("expand: produced char not re-read", expandDefault, "\\\\n", "", "\\n");
        row("expand: 100,000 escapes", expandDefault, QStringLiteral("\\n\\\\").repeated(100000),
            "", QStringLiteral("\n\\").repeated(100000));
        row("expand: nothing in the set", expandDefault, "plain\\z", "", "plain\\z");
        row("expand: letters", expand, "\\t\\r", "t", "\t\\r");
        row("expand: control chars name letters", expand, "\\t\\r", "\t\r", "\t\r");
        // Fixed pass order CRLF, CR, LF, skipping the separator's own pass.
        row("separator: to LF", separate, "a\r\nb\rc", "\n", "a\nb\nc");
        row("separator: to CRLF doubles up", separate, "a\r\nb", "\r\n", "a\r\r\n\r\nb");
        row("separator: to CR", separate, "a\r\nb\nc", "\r", "a\rb\rc");
        row("separator: null removes", separate, "a\nb", QString(), "ab");
        row("separator: already LF", separate, "a\nb", "\n", "a\nb");
        row("repeat: none", repeat, "ab", "0", "");
        row("repeat: once is the receiver", repeat, "ab", "1", "ab");
        row("repeat: seven", repeat, "ab", "7", "ababababababab");
        row("lines: mixed keeps lone LF", split, "a\r\nb\nc", "", "2: a|b\nc");
        row("lines: final empty line", split, "a\n", "", "2: a|");
        row("lines: CR only", split, "a\rb", "", "2: a|b");
        row("commas: doubled and trailing", split, "a,,b,", ",", "3: a||b");
        row("commas: leading", split, ",a", ",", "2: |a");
        row("commas: empty", split, "", ",", "0: ");
        row("trim: no-break space and tab", trims, "\u00A0 x \t", "", "x|x|x");
        row("trim: blank only", trims, " \t ", "", "||");
        row("trim: em space", trims, "\u2003x", "", "\u2003x|x|x");
        row("trim: control char", trims, "\x01x", "", "x|\x01x|x");
        row("trim: inner breaks and format char", trims, "\ta\r\nb\u200Bc ", "",
            "a\r\nb\u200Bc|a\r\nb\u200Bc|a  b c");
        row("trim: format char beyond the BMP is one space", trims, "a\U000E0001b", "",
            "a\U000E0001b|a\U000E0001b|a b");
        row("trim: nothing to trim is the receiver", trimOwn, "x y", "", "x y");
        row("compare: file9 file10", compare, "file9", "file10", "-1 1 -1");
        row("compare: prefix sorts first", compare, "1.0", "1.0.0", "-1 1 -1");
        row("compare: case matters", compare, "File2", "file2", "-1 1 0");
        row("compare: equal", compare, "a1", "a1", "0 0 0");
        row("controls: pair kept whole without backslash", controls, "\\\\n", "", "\\\\n");
        row("controls: pair folded with backslash", controls, "\\\\n", "\\", "\\n");
        row("controls: letters", controls, "a\\tb\\r\\n", "", "a\tb\r\n");
        row("controls: other char left", controls, "\\q", "\\", "\\q");
        row("controls: short", controls, "\\", "\\", "\\");
    }

    void edits()
    {
        QFETCH(Edit, edit);
        QFETCH(QString, text);
        QFETCH(QString, argument);
        QFETCH(QString, expected);
        const QString result = edit(text, argument);
        QCOMPARE(result, expected);
        if (expected == text) // nothing to do: the receiver itself
            QCOMPARE(result.constData(), text.constData());
    }
};

QTEST_GUILESS_MAIN(tst_StringExtensions)
#include "tst_stringextensions.moc"

// SPDX-FileCopyrightText: 2026 Quillet developers
// SPDX-License-Identifier: MIT
#include "installer/rtfreader.h"

#include <QFile>
#include <QTest>
#include <QTextBlock>
#include <QTextCursor>
#include <QTextDocument>

namespace {
QByteArray readData(const char *name)
{
    QFile f(QStringLiteral(QUILLET_TEST_DATA "/readme/") + QLatin1String(name));
    f.open(QIODevice::ReadOnly);
    return f.readAll();
}

// The character format in effect at the first occurrence of `text`.
QTextCharFormat formatAt(const QTextDocument &doc, const QString &text)
{
    QTextCursor c = doc.find(text);
    if (c.isNull())
        return QTextCharFormat();
    c.setPosition(c.selectionStart() + 1);
    return c.charFormat();
}

QTextBlockFormat blockOf(const QTextDocument &doc, const QString &text)
{
    return doc.find(text).block().blockFormat();
}
} // namespace

class TestRtfReader : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void wordPadDocument();
    void textEditDocument();
    void libreOfficeDocument();
    void controlWordsAndSymbols_data();
    void controlWordsAndSymbols();
    void hostileInputEndsCleanly_data();
    void hostileInputEndsCleanly();
};

void TestRtfReader::wordPadDocument()
{
    QTextDocument doc;
    QVERIFY(RtfReader::read(readData("wordpad.rtf"), &doc));
    const QString text = doc.toPlainText();
    QVERIFY2(text.startsWith(
                 QStringLiteral("Release Notes\nCafé and naïve text, red and underlined.\n")),
        qPrintable(text));
    QVERIFY(text.contains(QStringLiteral("Привет means hello."))); // a Cyrillic font's code page
    QVERIFY(text.contains(QStringLiteral("First point\n")));
    QVERIFY(text.contains(QStringLiteral("Euro €, emoji 😀 done."))); // \u with its fallback skipped
    QVERIFY(!text.contains(QStringLiteral("Riched20")));
    QVERIFY(!text.contains(QStringLiteral("HYPERLINK")));
    QCOMPARE(formatAt(doc, QStringLiteral("Release")).fontWeight(), int(QFont::Bold));
    QCOMPARE(formatAt(doc, QStringLiteral("Release")).fontPointSize(), 16.0);
    QCOMPARE(blockOf(doc, QStringLiteral("Release")).alignment(), Qt::AlignHCenter);
    QCOMPARE(formatAt(doc, QStringLiteral("Café")).fontWeight(), int(QFont::Normal));
    QVERIFY(formatAt(doc, QStringLiteral("naïve")).fontItalic());
    QCOMPARE(formatAt(doc, QStringLiteral("red")).foreground().color(), QColor(255, 0, 0));
    QVERIFY(formatAt(doc, QStringLiteral("underlined")).fontUnderline());
    QVERIFY(!formatAt(doc, QStringLiteral(" text,")).fontUnderline());
    const QTextCharFormat link = formatAt(doc, QStringLiteral("Get help"));
    QVERIFY(link.isAnchor());
    QCOMPARE(link.anchorHref(), QStringLiteral("https://example.org/help"));
    QVERIFY(blockOf(doc, QStringLiteral("First point")).leftMargin() > 0);
}

void TestRtfReader::textEditDocument()
{
    QTextDocument doc;
    QVERIFY(RtfReader::read(readData("textedit.rtf"), &doc));
    const QString text = doc.toPlainText();
    QVERIFY2(
        text.startsWith(QStringLiteral(
            "Line one\nTab\there and a brace { and backslash \\.\nRight aligned — with dash\n")),
        qPrintable(text));
    QVERIFY(text.endsWith(QStringLiteral("code")));
    QVERIFY(!text.contains(QStringLiteral("89504e"))); // pictures are skipped
    QCOMPARE(blockOf(doc, QStringLiteral("Right aligned")).alignment(), Qt::AlignRight);
    QCOMPARE(
        blockOf(doc, QStringLiteral("Line one")).alignment(), Qt::AlignLeft | Qt::AlignLeading);
    QCOMPARE(formatAt(doc, QStringLiteral("code")).fontFamilies().toStringList(),
        QStringList { QStringLiteral("Menlo-Regular") });
    QCOMPARE(formatAt(doc, QStringLiteral("Line")).fontPointSize(), 12.0);
}

void TestRtfReader::libreOfficeDocument()
{
    QTextDocument doc;
    QVERIFY(RtfReader::read(readData("libreoffice.rtf"), &doc));
    const QString text = doc.toPlainText();
    QVERIFY2(text.startsWith(
                 QStringLiteral("Bold heading\nPlain italic and struck and x2\nCell A\tCell B\t")),
        qPrintable(text));
    QVERIFY(!text.contains(QStringLiteral("Normal;")));
    QVERIFY(!text.contains(QStringLiteral("Ann")));
    QVERIFY(!text.contains(QStringLiteral("Arial")));
    QCOMPARE(formatAt(doc, QStringLiteral("Bold")).fontWeight(), int(QFont::Bold));
    QCOMPARE(formatAt(doc, QStringLiteral("Plain")).fontWeight(), int(QFont::Normal));
    QVERIFY(formatAt(doc, QStringLiteral("struck")).fontStrikeOut());
    QCOMPARE(formatAt(doc, QStringLiteral("x2")).verticalAlignment(), QTextCharFormat::AlignNormal);
    QTextCursor two = doc.find(QStringLiteral("x2"));
    two.setPosition(two.selectionEnd());
    QCOMPARE(two.charFormat().verticalAlignment(), QTextCharFormat::AlignSuperScript);
    QCOMPARE(formatAt(doc, QStringLiteral("Plain")).fontFamilies().toStringList(),
        QStringList { QStringLiteral("Liberation Sans") });
}

void TestRtfReader::controlWordsAndSymbols_data()
{
    QTest::addColumn<QByteArray>("rtf");
    QTest::addColumn<QString>("text");
    QTest::newRow("symbols") << QByteArray(
        "{\\rtf1 a\\~b\\_c\\-d \\endash\\emdash\\bullet\\lquote x\\rquote\\ldblquote y\\rdblquote}")
                             << QStringLiteral("a\u00a0b\u2011cd –—•‘x’“y”");
    QTest::newRow("line break") << QByteArray("{\\rtf1 one\\line two}")
                                << QStringLiteral("one\u2028two");
    QTest::newRow("uc2 skips two")
        << QByteArray("{\\rtf1\\uc2 A\\u252??B}") << QStringLiteral("AüB");
    QTest::newRow("uc0 skips none")
        << QByteArray("{\\rtf1\\uc0 A\\u252 B}") << QStringLiteral("AüB");
    QTest::newRow("uc scoped to group")
        << QByteArray("{\\rtf1{\\uc0 \\u252}\\u252?x}") << QStringLiteral("üüx");
    QTest::newRow("skip counts a hex escape")
        << QByteArray("{\\rtf1 \\u8364\\'80 euro}") << QStringLiteral("€ euro");
    QTest::newRow("mac code page") << QByteArray("{\\rtf1\\mac \\'8a}") << QStringLiteral("ä");
    QTest::newRow("unknown starred destination")
        << QByteArray("{\\rtf1 a{\\*\\unknown hidden}b}") << QStringLiteral("ab");
    QTest::newRow("unknown word ignored")
        << QByteArray("{\\rtf1 a\\frobnicate42 b}") << QStringLiteral("ab");
    QTest::newRow("raw newlines ignored") << QByteArray("{\\rtf1 a\r\nb}") << QStringLiteral("ab");
    QTest::newRow("leading white space") << QByteArray("\n  {\\rtf1 ok}") << QStringLiteral("ok");
}

void TestRtfReader::controlWordsAndSymbols()
{
    QFETCH(QByteArray, rtf);
    QFETCH(QString, text);
    QTextDocument doc;
    QVERIFY(RtfReader::read(rtf, &doc));
    QCOMPARE(doc.toRawText(), text);
}

void TestRtfReader::hostileInputEndsCleanly_data()
{
    QTest::addColumn<QByteArray>("rtf");
    QTest::addColumn<bool>("isRtf");
    QTest::newRow("not rtf") << QByteArray("hello") << false;
    QTest::newRow("empty") << QByteArray() << false;
    QTest::newRow("unbalanced close") << QByteArray("{\\rtf1 a}}}}} b") << true;
    QTest::newRow("unterminated") << QByteArray("{\\rtf1 {{{ a \\b") << true;
    QTest::newRow("deep nesting") << QByteArray("{\\rtf1 ") + QByteArray(200000, '{') + "x"
            + QByteArray(200000, '}')
                                  << true;
    QTest::newRow("huge parameter")
        << QByteArray("{\\rtf1\\fs99999999999999999999 \\li-99999999999999 x\\u99999999999}")
        << true;
    QTest::newRow("bad hex escape") << QByteArray("{\\rtf1 \\'zz\\' \\'") << true;
    QTest::newRow("trailing backslash") << QByteArray("{\\rtf1 x\\") << true;
    QTest::newRow("long control word")
        << QByteArray("{\\rtf1 \\") + QByteArray(100000, 'a') + "}" << true;
    QTest::newRow("field without result")
        << QByteArray("{\\rtf1{\\field{\\*\\fldinst HYPERLINK}}}") << true;
    QTest::newRow("color index out of range")
        << QByteArray("{\\rtf1{\\colortbl;}\\cf99\\cb-1 x}") << true;
    QTest::newRow("binary junk") << QByteArray("{\\rtf1 \x00\x01\xff\xfe", 11) << true;
}

void TestRtfReader::hostileInputEndsCleanly()
{
    QFETCH(QByteArray, rtf);
    QFETCH(bool, isRtf);
    QTextDocument doc;
    QString error;
    QCOMPARE(RtfReader::read(rtf, &doc, &error), isRtf);
    QCOMPARE(error.isEmpty(), isRtf);
}

QTEST_MAIN(TestRtfReader)
#include "tst_rtfreader.moc"

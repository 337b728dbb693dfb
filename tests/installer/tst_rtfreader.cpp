// SPDX-FileCopyrightText: 2026 Quillet developers
// SPDX-License-Identifier: MIT
#include "installer/rtfreader.h"

#include <QFile>
#include <QTest>
#include <QTextBlock>
#include <QTextCursor>
#include <QTextDocument>

namespace {
// Reads a document shaped like an editor's output; the test fails when the
// reader refuses it.
void readDocument(const char *name, QTextDocument *doc)
{
    QFile f(QStringLiteral(QUILLET_TEST_DATA "/readme/") + QLatin1String(name));
    QVERIFY(f.open(QIODevice::ReadOnly));
    QVERIFY(RtfReader::read(f.readAll(), doc));
}

// The character format in effect at the first occurrence of `text`.
QTextCharFormat formatAt(const QTextDocument &doc, const QString &text)
{
    QTextCursor c = doc.find(text);
    c.setPosition(c.selectionStart() + 1);
    return c.isNull() ? QTextCharFormat() : c.charFormat();
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
    void wordPadDocument()
    {
        QTextDocument doc;
        readDocument("wordpad.rtf", &doc);
        const QString text = doc.toPlainText();
        QVERIFY2(text.startsWith("Release Notes\nCafé and naïve text, red and underlined.\n"),
            qPrintable(text));
        QVERIFY(text.contains("Привет means hello.")); // a Cyrillic font's code page
        QVERIFY(text.contains("Euro €, emoji 😀 done.")); // \u with its fallback skipped
        QVERIFY(!text.contains("Riched20") && !text.contains("HYPERLINK"));
        QCOMPARE(formatAt(doc, "Release").fontWeight(), int(QFont::Bold));
        QCOMPARE(formatAt(doc, "Release").fontPointSize(), 16.0);
        QCOMPARE(blockOf(doc, "Release").alignment(), Qt::AlignHCenter);
        QCOMPARE(formatAt(doc, "Café").fontWeight(), int(QFont::Normal));
        QVERIFY(formatAt(doc, "naïve").fontItalic());
        QCOMPARE(formatAt(doc, "red").foreground().color(), QColor(255, 0, 0));
        QVERIFY(formatAt(doc, "underlined").fontUnderline());
        QVERIFY(!formatAt(doc, " text,").fontUnderline());
        QCOMPARE(
            formatAt(doc, "Get help").anchorHref(), QStringLiteral("https://example.org/help"));
        QVERIFY(blockOf(doc, "First point").leftMargin() > 0);
    }

    void textEditDocument()
    {
        QTextDocument doc;
        readDocument("textedit.rtf", &doc);
        const QString text = doc.toPlainText();
        QVERIFY2(
            text.startsWith(
                "Line one\nTab\there and a brace { and backslash \\.\nRight aligned — with dash\n"),
            qPrintable(text));
        QVERIFY(text.endsWith("code"));
        QVERIFY(!text.contains("89504e")); // pictures are skipped
        QCOMPARE(blockOf(doc, "Right aligned").alignment(), Qt::AlignRight);
        QCOMPARE(blockOf(doc, "Line one").alignment(), Qt::AlignLeft | Qt::AlignLeading);
        QCOMPARE(
            formatAt(doc, "code").fontFamilies().toStringList(), QStringList { "Menlo-Regular" });
        QCOMPARE(formatAt(doc, "Line").fontPointSize(), 12.0);
    }

    void libreOfficeDocument()
    {
        QTextDocument doc;
        readDocument("libreoffice.rtf", &doc);
        const QString text = doc.toPlainText();
        QVERIFY2(text.startsWith("Bold heading\nPlain italic and struck and x2\nCell A\tCell B\t"),
            qPrintable(text));
        // Style sheet, document information and font table are not text.
        QVERIFY(!text.contains("Normal;") && !text.contains("Ann") && !text.contains("Arial"));
        QCOMPARE(formatAt(doc, "Bold").fontWeight(), int(QFont::Bold));
        QCOMPARE(formatAt(doc, "Plain").fontWeight(), int(QFont::Normal));
        QVERIFY(formatAt(doc, "struck").fontStrikeOut());
        QCOMPARE(formatAt(doc, "x2").verticalAlignment(), QTextCharFormat::AlignNormal);
        QTextCursor two = doc.find("x2");
        two.setPosition(two.selectionEnd());
        QCOMPARE(two.charFormat().verticalAlignment(), QTextCharFormat::AlignSuperScript);
        QCOMPARE(formatAt(doc, "Plain").fontFamilies().toStringList(),
            QStringList { "Liberation Sans" });
    }

    void controlWordsAndHostileInput_data()
    {
        // clang-format off
        QTest::addColumn<QByteArray>("rtf");
        QTest::addColumn<QString>("text"); // null: read, whatever it holds; "(refused)": not RTF
        QTest::newRow("symbols") << QByteArray(
            "{\\rtf1 a\\~b\\_c\\-d \\endash\\emdash\\bullet\\lquote x\\rquote\\ldblquote y\\rdblquote}")
            << QStringLiteral("a\u00a0b\u2011cd –—•‘x’“y”");
        QTest::newRow("line break") << QByteArray("{\\rtf1 one\\line two}") << QStringLiteral("one\u2028two");
        QTest::newRow("uc2 skips two") << QByteArray("{\\rtf1\\uc2 A\\u252??B}") << QStringLiteral("AüB");
        QTest::newRow("uc0 skips none") << QByteArray("{\\rtf1\\uc0 A\\u252 B}") << QStringLiteral("AüB");
        QTest::newRow("uc scoped to group") << QByteArray("{\\rtf1{\\uc0 \\u252}\\u252?x}") << QStringLiteral("üüx");
        QTest::newRow("skip counts a hex escape") << QByteArray("{\\rtf1 \\u8364\\'80 euro}") << QStringLiteral("€ euro");
        QTest::newRow("mac code page") << QByteArray("{\\rtf1\\mac \\'8a}") << QStringLiteral("ä");
        QTest::newRow("unknown starred destination") << QByteArray("{\\rtf1 a{\\*\\unknown hidden}b}") << "ab";
        QTest::newRow("unknown word ignored") << QByteArray("{\\rtf1 a\\frobnicate42 b}") << "ab";
        QTest::newRow("raw newlines ignored") << QByteArray("{\\rtf1 a\r\nb}") << "ab";
        QTest::newRow("leading white space") << QByteArray("\n  {\\rtf1 ok}") << "ok";
        QTest::newRow("not rtf") << QByteArray("hello") << "(refused)";
        QTest::newRow("empty") << QByteArray() << "(refused)";
        QTest::newRow("unbalanced close") << QByteArray("{\\rtf1 a}}}}} b") << QString();
        QTest::newRow("unterminated") << QByteArray("{\\rtf1 {{{ a \\b") << QString();
        QTest::newRow("deep nesting") << QByteArray("{\\rtf1 ") + QByteArray(200000, '{') + "x"
            + QByteArray(200000, '}') << QString();
        QTest::newRow("huge parameter")
            << QByteArray("{\\rtf1\\fs99999999999999999999 \\li-99999999999999 x\\u99999999999}") << QString();
        QTest::newRow("bad hex escape") << QByteArray("{\\rtf1 \\'zz\\' \\'") << QString();
        QTest::newRow("trailing backslash") << QByteArray("{\\rtf1 x\\") << QString();
        QTest::newRow("long control word") << QByteArray("{\\rtf1 \\") + QByteArray(100000, 'a') + "}"
            << QString();
        QTest::newRow("field without result") << QByteArray("{\\rtf1{\\field{\\*\\fldinst HYPERLINK}}}")
            << QString();
        QTest::newRow("color index out of range") << QByteArray("{\\rtf1{\\colortbl;}\\cf99\\cb-1 x}")
            << QString();
        QTest::newRow("binary junk") << QByteArray("{\\rtf1 \x00\x01\xff\xfe", 11) << QString();
        // clang-format on
    }

    void controlWordsAndHostileInput()
    {
        QFETCH(QByteArray, rtf);
        QFETCH(QString, text);
        QTextDocument doc;
        QString error;
        const bool isRtf = text != "(refused)";
        QCOMPARE(RtfReader::read(rtf, &doc, &error), isRtf);
        QCOMPARE(error.isEmpty(), isRtf);
        if (isRtf && !text.isNull())
            QCOMPARE(doc.toRawText(), text);
    }
};

QTEST_MAIN(TestRtfReader)
#include "tst_rtfreader.moc"

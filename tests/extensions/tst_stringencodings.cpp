// SPDX-FileCopyrightText: 2026 Quillet developers
// SPDX-License-Identifier: MIT
#include "common/testfiles.h"
#include "common/testrow.h"
#include "extensions/stringextensions.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QProcess>
#include <QRandomGenerator>
#include <QTemporaryDir>
#include <QTest>
#include <QUrl>

using namespace StringExtensions;

using Conversion = QString (*)(const QString &);
Q_DECLARE_METATYPE(Conversion)

// The JSON array a reference script beside this test prints, given a JSON
// array on its input.
static QJsonArray python(const char *script, const QJsonArray &input = {})
{
    QProcess p;
    p.start("python3", { QStringLiteral(QUILLET_SOURCE_DIR "/tests/extensions/") + script });
    p.write(QJsonDocument(input).toJson());
    p.closeWriteChannel();
    p.waitForFinished(-1);
    return QJsonDocument::fromJson(p.readAllStandardOutput()).array();
}

class tst_StringEncodings : public QObject
{
    Q_OBJECT
private slots:
    void fileEncoding_data()
    {
        // The byte-order mark names the encoding; without one the best of the
        // trial decodings wins, the earlier on a tie.
        QTest::addColumn<QByteArray>("bytes");
        QTest::addColumn<quint32>("mark");
        QTest::addColumn<QString>("text");
        row("UTF-32 LE", QByteArray("\xFF\xFE\0\0A\0\0\0", 8), quint32(UTF32LittleEndianEncoding),
            "A");
        row("UTF-32 BE", QByteArray("\0\0\xFE\xFF\0\0\0A", 8), quint32(UTF32BigEndianEncoding),
            "A");
        row("UTF-16 LE", QByteArray("\xFF\xFEh\0i\0", 6), quint32(UTF16LittleEndianEncoding), "hi");
        row("UTF-16 BE", QByteArray("\xFE\xFF\0A", 4), quint32(UTF16BigEndianEncoding), "A");
        row("UTF-8", QByteArray("\xEF\xBB\xBFh\xC3\xA9"), quint32(UTF8Encoding), "h\u00E9");
        // MacRoman's caron and Latin 1's y with diaeresis are both letters.
        row("short file ties to MacRoman", QByteArray("\xFF"), 77u, "\u02C7");
        row("empty file", QByteArray(""), 77u, "");
        // Files without a mark, as Python's codecs write them.
        const QJsonArray samples = python("codecsamples.py");
        QCOMPARE(samples.size(), 10);
        for (const QJsonValue &c : samples)
            row(qPrintable("codecs: " + c[0].toString()),
                QByteArray::fromHex(c[2].toString().toLatin1()), 0u, c[1].toString());
    }

    void fileEncoding()
    {
        QFETCH(QByteArray, bytes);
        QFETCH(quint32, mark);
        QFETCH(QString, text);
        const QString path = m_dir.filePath(QTest::currentDataTag());
        writeFile(path, bytes);
        if (mark) // 0: not looked at
            QCOMPARE(explicitEncodingOfFile(path, 77), mark);
        QCOMPARE(stringWithBestEncodingFromFile(path), text);
        QCOMPARE(explicitEncodingOfFile(path + "-missing", 77), quint32(77));
        QVERIFY(stringWithBestEncodingFromFile(path + "-missing").isNull());
    }

    void charsetsAgreeWithIconv()
    {
        // Every name `iconv -l` lists decodes two samples as iconv does:
        // printable ASCII, and the bytes 0x80 to 0xFF.
        QByteArray samples[2] = { "Hello, world! 0123", {} };
        for (int b = 0x80; b <= 0xFF; ++b)
            samples[1].append(char(b));
        const QJsonArray names = python("iconvdecode.py",
            { QString::fromLatin1(samples[0].toHex()), QString::fromLatin1(samples[1].toHex()) });
        QVERIFY(names.size() > 1000);
        QStringList differ;
        for (const QJsonValue &n : names) {
            const quint32 encoding = encodingForIANACharSetName(n[0].toString());
            for (int k = 0; k < 2; ++k) {
                const QString want = n[1][k].isNull() ? QString() : n[1][k].toString();
                const QString got = encoding ? decode(samples[k], encoding) : QStringLiteral("?");
                if (got != want || got.isNull() != want.isNull())
                    differ << n[0].toString();
            }
        }
        // Kept on purpose: MacRoman is the platform's table (0xDB is the euro
        // sign); "Unicode" reads big-endian without a mark (iconv: little); the
        // UTF-16 forms keep lone surrogates as units, as the platform's strings do.
        QCOMPARE(differ,
            QStringList({ "MAC", "MACINTOSH", "UTF-16", "UTF-16", "UTF-16BE", "UTF-16LE" }));
        QCOMPARE(encodingForIANACharSetName(QStringLiteral("no-such-charset")), 0u);
    }

    void percentEscapesAgreeWithQUrl()
    {
        QRandomGenerator rng(7);
        for (int i = 0; i < 2000; ++i) {
            QString s;
            for (int k = int(rng.bounded(12)); k > 0; --k)
                s += QChar(
                    char16_t(rng.bounded(2) ? rng.bounded(0x20, 0x7F) : rng.bounded(0xA0, 0x3000)));
            const QString escaped = stringWithPercentEscapes(s);
            QVERIFY(std::all_of(escaped.begin(), escaped.end(),
                [](QChar c) { return c.unicode() > 32 && c.unicode() < 127; }));
            QCOMPARE(
                QUrl::fromPercentEncoding(escaped.toLatin1()), stringWithExpandedPercentEscapes(s));
            QCOMPARE(stringWithExpandedPercentEscapes(QUrl::toPercentEncoding(s)), s);
        }
        QCOMPARE(stringWithExpandedPercentEscapes(QStringLiteral("100%")), QStringLiteral("100%"));
        QCOMPARE(
            stringWithPercentEscapes(QStringLiteral("a b#c%20d")), QStringLiteral("a%20b#c%20d"));
    }

    void textConversions_data()
    {
        // The HTML import: every named character reference and fragments of
        // comments, script, style, attributes holding ">", pre, nested blocks
        // and broken markup as Python's html module reads them (by the same
        // rules on its html.parser), then numeric references and absurd
        // markup; the charset an HTML file declares; code points, virtual
        // characters and skin tones.
        QTest::addColumn<Conversion>("conversion");
        QTest::addColumn<QString>("text");
        QTest::addColumn<QString>("expected");
        const Conversion html = stringByExpandingHTMLEntities, literal = stringWithObjCString,
                         md5 = MD5String;
        const Conversion element = [](const QString &s) { return xmlElementForKey(s, "a"); };
        const Conversion declared = [](const QString &s) {
            return stringWithHTML(s.toLatin1()).section(u'>', -1); // the text after the meta
        };
        const Conversion macRoman = [](const QString &s) {
            return stringWithMacRomanCString(s.toLatin1().constData(), int(s.size()) - 1);
        };
        const Conversion points = [](const QString &s) {
            return QString::number(numberOfUnicodeCharacters(s)) + " " + UTF16SequenceString(s)
                + " " + UTF32SequenceString(s) + " " + QString::number(UTF32Character(s), 16);
        };
        // A code's text, marked when the code is virtual; "st" is a ligature here.
        const Conversion virtualCode = [](const QString &hex) {
            defineLigatures({ QStringLiteral("ffi"), QStringLiteral("st") });
            const qint32 code = hex.toInt(nullptr, 16);
            const QString text = code < 0 ? QString() : stringWithUTF32Character(quint32(code));
            defineLigatures({});
            return (isVirtualCharacter(code) ? "virtual " : "") + text;
        };
        // The tone is the first digit.
        const Conversion skin = [](const QString &s) {
            return emojiStringWithSkinColor(s.mid(1), s.at(0).digitValue());
        };
        const QString hand = QStringLiteral("\U0001F44B");
        const QJsonArray references = python("htmlentities.py"), fragments = python("htmltext.py");
        QCOMPARE(references.size(), 2 * 2231);
        QCOMPARE(fragments.size(), 400);
        for (const QJsonArray &cases : { references, fragments })
            for (const QJsonValue &c : cases)
                row(qPrintable("html: " + c[0].toString()), html, c[0].toString(), c[1].toString());
        row("html: numeric", html, "&#65;&#x1F600;&#0;", "A\U0001F600\uFFFD");
        row("html: unfinished tag", html, "a<b", "a");
        // Nesting deeper than browsers keep loses its markup, not its text.
        row("html: 100,000 nested divs", html,
            QString(QStringLiteral("<div>")).repeated(100000) + "x", "x");
        row("declared: utf-8", declared, "<html><meta charset=utf-8>\u00C3\u00A9", "\u00E9");
        row("declared: a quoted name is not read", declared,
            "<html><meta charset=\"utf-8\">\u00C3\u00A9", "\u00C3\u00A9");
        row("declared: an iconv charset, any case and spacing", declared,
            "<HTML><META CHARSET = windows-1251>\u00C0", "\u0410");
        row("declared: a name only iconv and ICU know", declared,
            "<html><meta charset=koi8-u>\u00A4", "\u0454");
        row("declared: an unknown name stays Latin 1", declared,
            "<html><meta charset=x-nothing>\u00E9", "\u00E9");
        row("declared: UTF-16", declared, QString::fromLatin1("\0h\0t\0m\0l", 8), "html");
        row("literal: short", literal, "@\"", "");
        row("literal: quote", literal, "@\"a\\\"b\"", "a\"b");
        // Escaped backslashes are folded first, so "\\n" ends as a line break.
        row("literal: escaped backslash before n", literal, "@\"a\\\\nb\"", "a\nb");
        row("md5: UTF-8 bytes", md5, "\u00E9\U0001F600", "62b3afe3b01f6f80152b567d9b216cde");
        row("element: first wins", element, "x<a>1</a><a>2</a>", "1");
        row("element: unclosed", element, "x<a>1", QString());
        row("element: entities kept", element, "<a> &amp; </a>", " &amp; ");
        row("code points: flag is two", points, "\U0001F1E9\U0001F1EA",
            "2 D83C,DDE9,D83C,DDEA 1F1E9,1F1EA 0");
        row("code points: one astral", points, "\U0010FFFF", "1 DBFF,DFFF 10FFFF 10ffff");
        row("code points: lone low kept", points, QString(QChar(0xDC00)), "1 DC00 DC00 dc00");
        row("code points: trailing high dropped", points, QStringLiteral("a") + QChar(0xD800),
            "2 0061,D800 0061 0");
        // The unit after a lone high surrogate goes with it.
        row("code points: lone high drops next unit", points, QChar(0xD800) + QStringLiteral("xy"),
            "3 D800,0078,0079 0079 0");
        row("virtual: negative", virtualCode, "-1", "");
        row("virtual: below range", virtualCode, "9FFFF", "\U0009FFFF");
        row("virtual: flag DE", virtualCode, "A0052", "virtual \U0001F1E9\U0001F1EA");
        row("virtual: flag ZZ", virtualCode, "A02A3", "virtual \U0001F1FF\U0001F1FF");
        row("virtual: gap after flags", virtualCode, "A02A4", "\U000A02A4");
        row("virtual: pirate flag", virtualCode, "A03DE", "virtual \U0001F3F4\u200D\u2620\uFE0F");
        row("virtual: reserved code", virtualCode, "A03D9", "virtual \U000A03D9");
        row("virtual: keycap hash", virtualCode, "A1000", "virtual #\u20E3");
        row("virtual: keycap nine", virtualCode, "A100B", "virtual 9\u20E3");
        row("virtual: second ligature", virtualCode, "B0001", "virtual st");
        row("virtual: beyond the ligatures", virtualCode, "B0002", "virtual \U000B0002");
        row("skin: add tone 3", skin, "3" + hand, hand + "\U0001F3FC");
        row("skin: remove leaves NUL", skin, "0" + hand + "\U0001F3FC", hand + QChar(0));
        row("skin: replace tone", skin, "6" + hand + "\U0001F3FB", hand + "\U0001F3FF");
        row("skin: drops FE0F before ZWJ", skin, "1\u26F9\uFE0F\u200D\u2642\uFE0F",
            "\u26F9\U0001F3FB\u200D\u2642\uFE0F");
        row("skin: bare modifier not looked at", skin, "0\U0001F3FB", "\U0001F3FB");
        row("MacRoman C string, all but the last byte", macRoman, "caf\u008E!", "caf\u00E9");
    }

    void textConversions()
    {
        QFETCH(Conversion, conversion);
        QFETCH(QString, text);
        QFETCH(QString, expected);
        const QString got = conversion(text);
        QCOMPARE(got, expected);
        if (expected.isNull())
            QVERIFY(got.isNull());
    }

    void emojiTableMatchesUnicodeData()
    {
        // The frozen table's rows are the Unicode data's fully-qualified ZWJ
        // sequences without skin tones, in file order, around three reserved codes.
        QFile f(QStringLiteral("/usr/share/unicode/emoji/emoji-test.txt"));
        if (!f.open(QIODevice::ReadOnly))
            QSKIP("unicode-data is not installed");
        QList<QList<quint32>> rows;
        while (!f.atEnd()) {
            const QString line = QString::fromUtf8(f.readLine());
            QList<quint32> row;
            for (const QString &hex : line.section(u';', 0, 0).split(u' ', Qt::SkipEmptyParts))
                row << hex.toUInt(nullptr, 16);
            if (line.contains(u"; fully-qualified") && line.contains(u" 200D")
                && std::none_of(
                    row.begin(), row.end(), [](quint32 c) { return c >= 0x1F3FB && c <= 0x1F3FF; }))
                rows << row;
        }
        QCOMPARE(rows.size(), 220);
        for (int i = 0; i < 223; ++i) {
            const quint32 *got = utf32CharactersForVirtualCharacter(0xA0300 + i);
            QList<quint32> have;
            for (int k = 0; got && got[k]; ++k)
                have << got[k];
            QCOMPARE(have, i >= 217 && i < 220 ? QList<quint32>() : rows.at(i < 217 ? i : i - 3));
        }
    }

    void appendToFileCreatesAndAppends()
    {
        const QString path = m_dir.filePath(QStringLiteral("log.txt"));
        QVERIFY(appendToFile(QStringLiteral("h\u00E9"), path, UTF8Encoding));
        QVERIFY(appendToFile(QStringLiteral("!"), path, UTF8Encoding));
        // A character the encoding cannot hold writes nothing.
        QVERIFY(!appendToFile(QStringLiteral("\u0416"), path, ISOLatin1Encoding));
        QCOMPARE(readFile(path), QByteArray("h\xC3\xA9!"));
        QVERIFY(!appendToFile(QStringLiteral("x"), m_dir.filePath("no/such/dir/f"), UTF8Encoding));
    }

    void keyNameFromCurrentLayout()
    {
        // Runs under a private X server with its default keymap: keycode 38 is
        // "a". One kept connection: a server that resets when its last client
        // leaves answers every call.
        for (int i = 0; i < 20; ++i)
            QCOMPARE(stringWithVirtualKeyCode(38, 0), QStringLiteral("a"));
        qunsetenv("DISPLAY");
        QCOMPARE(stringWithVirtualKeyCode(38, 0), QStringLiteral("<ERR>"));
    }

private:
    QTemporaryDir m_dir;
};

QTEST_GUILESS_MAIN(tst_StringEncodings)
#include "tst_stringencodings.moc"

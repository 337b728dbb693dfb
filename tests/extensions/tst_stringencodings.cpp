// SPDX-FileCopyrightText: 2026 Quillet developers
// SPDX-License-Identifier: MIT
#include "extensions/stringextensions.h"

#include <QFileInfo>
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

// One table row on one line: the values in column order.
template <typename... T> static void row(const char *name, const T &...values)
{
    (QTest::newRow(name) << ... << values);
}

class tst_StringEncodings : public QObject
{
    Q_OBJECT
private slots:
    void initTestCase();
    void fileEncoding_data();
    void fileEncoding();
    void reasonableTextFactorScores_data();
    void reasonableTextFactorScores();
    void htmlDeclaredCharset_data();
    void htmlDeclaredCharset();
    void percentEscapesAgreeWithQUrl();
    void detectionAgreesWithPythonCodecs();
    void charsetsAgreeWithIconv();
    void htmlEntitiesAgreeWithPython();
    void htmlImportAgreesWithPythonParser();
    void textConversions_data();
    void textConversions();
    void codePoints_data();
    void codePoints();
    void virtualCharacters_data();
    void virtualCharacters();
    void emojiTableMatchesUnicodeData();
    void ligatures();
    void skinColor_data();
    void skinColor();
    void appendToFileCreatesAndAppends();
    void macRomanCString();
    void keyNameFromCurrentLayout();

private:
    QTemporaryDir m_dir;
    int m_files = 0;
};

void tst_StringEncodings::initTestCase()
{
    QVERIFY(m_dir.isValid());
}

void tst_StringEncodings::fileEncoding_data()
{
    // The byte-order mark names the encoding; without one the best of the
    // trial decodings (Unicode, MacRoman, Latin 1, UTF-8) wins, the earlier on a tie.
    QTest::addColumn<QByteArray>("bytes");
    QTest::addColumn<quint32>("mark");
    QTest::addColumn<QString>("text");
    row("UTF-32 LE", QByteArray("\xFF\xFE\0\0A\0\0\0", 8), quint32(UTF32LittleEndianEncoding), "A");
    row("UTF-32 BE", QByteArray("\0\0\xFE\xFF\0\0\0A", 8), quint32(UTF32BigEndianEncoding), "A");
    row("UTF-16 LE", QByteArray("\xFF\xFEh\0i\0", 6), quint32(UTF16LittleEndianEncoding), "hi");
    row("UTF-16 BE", QByteArray("\xFE\xFF\0A", 4), quint32(UTF16BigEndianEncoding), "A");
    row("UTF-8", QByteArray("\xEF\xBB\xBFh\xC3\xA9"), quint32(UTF8Encoding), "h\u00E9");
    // MacRoman's caron and Latin 1's y with diaeresis are both letters.
    row("short file ties to MacRoman", QByteArray("\xFF"), 77u, "\u02C7");
    // The platform's guess comes before the trial: even-length ASCII is not
    // read as "Unicode" (CJK letters).
    row("even ASCII", QByteArray("Hello, world!\n"), 77u, "Hello, world!\n");
    row("UTF-8 without mark", QByteArray("caf\xC3\xA9\n"), 77u, "caf\u00E9\n");
    row("empty file", QByteArray(""), 77u, "");
    row("UTF-16 BE without mark", QByteArray("\0h\0i", 4), 77u, "hi");
}

void tst_StringEncodings::fileEncoding()
{
    QFETCH(QByteArray, bytes);
    QFETCH(quint32, mark);
    QFETCH(QString, text);
    const QString path = m_dir.filePath(QString::number(++m_files));
    QFile f(path);
    QVERIFY(f.open(QIODevice::WriteOnly) && f.write(bytes) == bytes.size());
    f.close();
    QCOMPARE(explicitEncodingOfFile(path, 77), mark);
    QCOMPARE(stringWithBestEncodingFromFile(path), text);
    const QString missing = m_dir.filePath(QStringLiteral("missing"));
    QCOMPARE(explicitEncodingOfFile(missing, 77), quint32(77));
    QVERIFY(stringWithBestEncodingFromFile(missing).isNull());
}

void tst_StringEncodings::detectionAgreesWithPythonCodecs()
{
    // Python's codecs write each sample; reading it back must give the text.
    QProcess python;
    python.start(QStringLiteral("python3"),
        { QStringLiteral("-c"),
            QStringLiteral(
                "import json\n"
                "en = 'The quick brown fox jumps over the lazy dog. It is 7 o\\'clock.\\n' * 4\n"
                "fr = 'Naïve café, résumé, déjà vu; où est la forêt? Ça va très bien.\\n' * 4\n"
                "ja = '日本語のテキストです。これはシフトJISで書かれたファイルです。\\n' * 4\n"
                "ru = 'Привет, мир! Это текст в кодировке, написанный по-русски.\\n' * 4\n"
                "cases = [('ascii', en, 'ascii'), ('utf-8', fr, 'utf-8'), ('latin-1', fr, "
                "'latin-1'),\n"
                "  ('utf-16 le with mark', fr, 'utf-16'), ('utf-16 be with mark', ru, 'utf-16-be', "
                "True),\n"
                "  ('utf-16 le', fr, 'utf-16-le'), ('utf-16 be', ru, 'utf-16-be'),\n"
                "  ('shift_jis', ja, 'shift_jis'), ('windows-1251', ru, 'cp1251'),\n"
                "  ('utf-8 japanese', ja, 'utf-8')]\n"
                "out = []\n"
                "for c in cases:\n"
                "    b = c[1].encode(c[2])\n"
                "    if len(c) > 3: b = b'\\xfe\\xff' + b\n"
                "    out.append([c[0], c[1], b.hex()])\n"
                "print(json.dumps(out))\n") });
    QVERIFY(python.waitForFinished());
    const QJsonArray cases = QJsonDocument::fromJson(python.readAllStandardOutput()).array();
    QCOMPARE(cases.size(), 10);
    for (const QJsonValue &c : cases) {
        const QString path = m_dir.filePath(QString::number(++m_files));
        QFile f(path);
        QVERIFY(f.open(QIODevice::WriteOnly));
        f.write(QByteArray::fromHex(c[2].toString().toLatin1()));
        f.close();
        const QString got = stringWithBestEncodingFromFile(path);
        if (got != c[1].toString())
            QFAIL(qPrintable(c[0].toString() + QStringLiteral(": ") + got.left(40)));
    }
}

void tst_StringEncodings::charsetsAgreeWithIconv()
{
    // Every name iconv(1) lists decodes two samples as the iconv command
    // does: printable ASCII, and the bytes 0x80 to 0xFF. The command writes
    // file N.k for name N and sample k, none when it fails.
    QByteArray samples[2] = { "Hello, world! 0123", {} };
    for (int b = 0x80; b <= 0xFF; ++b)
        samples[1].append(char(b));
    QTemporaryDir dir;
    for (int k = 0; k < 2; ++k) {
        QFile f(dir.filePath(QStringLiteral("s%1").arg(k)));
        QVERIFY(f.open(QIODevice::WriteOnly) && f.write(samples[k]) == samples[k].size());
    }
    QProcess shell;
    shell.setWorkingDirectory(dir.path());
    shell.start(QStringLiteral("sh"),
        { QStringLiteral("-c"),
            QStringLiteral(
                "i=0; for name in $(iconv -l | tr ',' '\\n' | sed 's|//||; s/ //g'); do\n"
                "  i=$((i+1)); echo \"$name\" >> names\n"
                "  for k in 0 1; do\n"
                "    iconv -f \"$name\" -t UTF-8 < s$k > $i.$k 2>/dev/null || rm -f $i.$k\n"
                "  done\n"
                "done\n") });
    QVERIFY(shell.waitForFinished(-1));
    QFile namesFile(dir.filePath(QStringLiteral("names")));
    QVERIFY(namesFile.open(QIODevice::ReadOnly));
    const QStringList names
        = QString::fromLatin1(namesFile.readAll()).split(u'\n', Qt::SkipEmptyParts);
    QVERIFY(names.size() > 1000);
    QStringList differ;
    for (qsizetype i = 0; i < names.size(); ++i) {
        const quint32 encoding = encodingForIANACharSetName(names.at(i));
        for (int k = 0; k < 2; ++k) {
            QFile out(dir.filePath(QStringLiteral("%1.%2").arg(i + 1).arg(k)));
            const QString want
                = out.open(QIODevice::ReadOnly) ? QString::fromUtf8(out.readAll()) : QString();
            const QString got = encoding ? decode(samples[k], encoding) : QStringLiteral("?");
            if (got != want || got.isNull() != want.isNull())
                differ << names.at(i);
        }
    }
    // Kept on purpose: MacRoman is the platform's table (0xDB is the euro
    // sign); "Unicode" reads big-endian without a mark (iconv: little); the
    // UTF-16 forms keep lone surrogates as units, as the platform's strings do.
    QCOMPARE(
        differ, QStringList({ "MAC", "MACINTOSH", "UTF-16", "UTF-16", "UTF-16BE", "UTF-16LE" }));
    QCOMPARE(encodingForIANACharSetName(QStringLiteral("no-such-charset")), 0u);
}

void tst_StringEncodings::reasonableTextFactorScores_data()
{
    QTest::addColumn<QString>("text");
    QTest::addColumn<float>("score");
    row("ab c", "ab c", 1.0f);
    row("one NUL in four letters", QString::fromLatin1("ab\0cd", 5), 0.6f);
    row("first 1000 only", QString(1000, u'a') + QString(1000, QChar(1)), 1.0f);
    row("unassigned costs 10", "a\u0378", -4.5f);
    row("surrogates count for nothing", "a\U0001F600", 1.0f / 3.0f);
}

void tst_StringEncodings::reasonableTextFactorScores()
{
    QFETCH(QString, text);
    QFETCH(float, score);
    QCOMPARE(reasonableTextFactor(text, QStringLiteral("ignored")), score);
    QVERIFY(qIsNaN(reasonableTextFactor(QString(), QString())));
}

void tst_StringEncodings::htmlDeclaredCharset_data()
{
    QTest::addColumn<QByteArray>("data");
    QTest::addColumn<QString>("expected");
    row("utf-8 declared", QByteArray("<html><meta charset=utf-8>\xC3\xA9"),
        "<html><meta charset=utf-8>\u00E9");
    row("quoted name stays Latin 1", QByteArray("<html><meta charset=\"utf-8\">\xC3\xA9"),
        "<html><meta charset=\"utf-8\">\u00C3\u00A9");
    row("iconv charset", QByteArray("<HTML><META CHARSET = windows-1251>\xC0"),
        "<HTML><META CHARSET = windows-1251>\u0410");
    row("name only iconv and ICU know", QByteArray("<html><meta charset=koi8-u>\xA4"),
        "<html><meta charset=koi8-u>\u0454");
    row("unknown name stays Latin 1", QByteArray("<html><meta charset=x-nothing>\xE9"),
        "<html><meta charset=x-nothing>\u00E9");
    row("no meta", QByteArray("<html>\xE9"), "<html>\u00E9");
    row("UTF-16 html", QByteArray("\0h\0t\0m\0l", 8), "html");
    row("no html at all", QByteArray("plain\xE9"), "plain\u00E9");
}

void tst_StringEncodings::htmlDeclaredCharset()
{
    QFETCH(QByteArray, data);
    QFETCH(QString, expected);
    QCOMPARE(stringWithHTML(data), expected);
}

void tst_StringEncodings::percentEscapesAgreeWithQUrl()
{
    QRandomGenerator rng(7);
    for (int i = 0; i < 2000; ++i) {
        QString s;
        const int n = int(rng.bounded(12));
        for (int k = 0; k < n; ++k)
            s += QChar(
                char16_t(rng.bounded(2) ? rng.bounded(0x20, 0x7F) : rng.bounded(0xA0, 0x3000)));
        const QString escaped = stringWithPercentEscapes(s);
        QVERIFY(std::all_of(escaped.begin(), escaped.end(),
            [](QChar c) { return c.unicode() > 32 && c.unicode() < 127; }));
        QCOMPARE(
            QUrl::fromPercentEncoding(escaped.toLatin1()), stringWithExpandedPercentEscapes(s));
        const QByteArray qt = QUrl::toPercentEncoding(s);
        QCOMPARE(stringWithExpandedPercentEscapes(QString::fromLatin1(qt)), s);
    }
    QCOMPARE(stringWithExpandedPercentEscapes(QStringLiteral("100%")), QStringLiteral("100%"));
    QCOMPARE(stringWithPercentEscapes(QStringLiteral("a b#c%20d")), QStringLiteral("a%20b#c%20d"));
}

void tst_StringEncodings::htmlEntitiesAgreeWithPython()
{
    // Python's html module carries its own copy of the standard's full list
    // of named references and an independent tokenizer. White space a
    // reference produces (&Tab;, &NewLine;) is shown collapsed, as any.
    QProcess python;
    python.start(QStringLiteral("python3"),
        { QStringLiteral("-c"),
            QStringLiteral("import html, html.entities, json, re\n"
                           "names = sorted(html.entities.html5)\n"
                           "cases = ['x&' + n + 'y' for n in names] + ['&' + n for n in names]\n"
                           "show = lambda t: re.sub('[ \\t\\n\\r\\f]+', ' ', t).strip(' ')\n"
                           "print(json.dumps([[c, show(html.unescape(c))] for c in cases]))") });
    QVERIFY(python.waitForFinished());
    const QJsonArray cases = QJsonDocument::fromJson(python.readAllStandardOutput()).array();
    QCOMPARE(cases.size(), 2 * 2231);
    for (const QJsonValue &v : cases)
        QCOMPARE(stringByExpandingHTMLEntities(v[0].toString()), v[1].toString());
}

void tst_StringEncodings::htmlImportAgreesWithPythonParser()
{
    // Generated fragments against tests/extensions/htmltext.py, which applies
    // the same plain-text rules on Python's html.parser.
    static const char *const pieces[] = { "alpha", "beta gamma", "  spaced\t\nout  ", "a &amp; b",
        "&lt;tag&gt;", "caf&eacute;", "x &notit; y", "1 < 2", "&#x41;&#66;", "<b>", "</b>", "<i>",
        "</i>", "<span>", "</span>", "</em>", "<p>", "</p>", "<div>", "</div>", "<br>", "<br/>",
        "<ul><li>one<li>two</ul>", "<ol>\n<li>x</li>\n</ol>", "<!-- a > b -->", "<!---->",
        "<script>if (a < b) { x = '</p>'; }</script>", "<style>p > a { color: red }</style>",
        "<a href=\"b>\">link</a>", "<a title='x > y'>t</a>", "<pre>  keep\n   this  </pre>",
        "<h1>Head</h1>", "<blockquote>q</blockquote>", "<img src=x alt=y>",
        "<div><div>in</div>out</div>" };
    QRandomGenerator rng(11);
    QStringList fragments;
    for (int i = 0; i < 400; ++i) {
        QString body;
        for (int k = int(rng.bounded(1, 12)); k > 0; --k)
            body += QString::fromUtf8(pieces[rng.bounded(int(std::size(pieces)))]);
        fragments << (i % 3 ? body
                            : QStringLiteral("<!DOCTYPE html><html><head><title>T</title>"
                                             "<style>s</style></head><body>")
                    + body + QStringLiteral("</body></html>"));
    }
    QProcess python;
    python.start(QStringLiteral("python3"),
        { QStringLiteral(QUILLET_SOURCE_DIR "/tests/extensions/htmltext.py") });
    QVERIFY(python.waitForStarted());
    python.write(QJsonDocument(QJsonArray::fromStringList(fragments)).toJson());
    python.closeWriteChannel();
    QVERIFY(python.waitForFinished());
    const QJsonArray want = QJsonDocument::fromJson(python.readAllStandardOutput()).array();
    QCOMPARE(want.size(), fragments.size());
    for (int i = 0; i < fragments.size(); ++i)
        if (stringByExpandingHTMLEntities(fragments.at(i)) != want.at(i).toString())
            QCOMPARE(fragments.at(i) + QStringLiteral(" => ")
                    + stringByExpandingHTMLEntities(fragments.at(i)),
                fragments.at(i) + QStringLiteral(" => ") + want.at(i).toString());
}

void tst_StringEncodings::textConversions_data()
{
    QTest::addColumn<Conversion>("conversion");
    QTest::addColumn<QString>("text");
    QTest::addColumn<QString>("expected");
    const Conversion html = stringByExpandingHTMLEntities, literal = stringWithObjCString,
                     md5 = MD5String;
    const Conversion element = [](const QString &s) { return xmlElementForKey(s, "a"); };
    row("html: tags dropped", html, "<b>bold</b> &amp; <i>it</i>", "bold & it");
    row("html: white space collapsed", html, "a \n\t b", "a b");
    row("html: line break", html, "a<br>b", "a\nb");
    row("html: numeric", html, "&#65;&#x1F600;&#0;", "A\U0001F600\uFFFD");
    row("html: unknown kept", html, "&nosuch; a < b", "&nosuch; a < b");
    row("html: unfinished tag", html, "a<b", "a");
    row("html: comment holding >", html, "x<!-- a > b -->y", "xy");
    row("html: attribute holding >", html, "x<a href=\"b>\">link</a>", "xlink");
    row("html: script, style and head hidden", html,
        "<head><title>T</title></head><style>p{}</style>a<script>b()</script>", "a");
    row("html: pre kept", html, "a<pre>1\n  2</pre>b", "a\n1\n  2\nb");
    // Nesting deeper than browsers keep loses its markup, not its text.
    row("html: 100,000 nested divs", html, QString(QStringLiteral("<div>")).repeated(100000) + "x",
        "x");
    row("html: blocks", html, "<ul><li>a<li>b</ul><div>c<div>d</div></div>", "a\nb\nc\nd");
    row("literal: short", literal, "@\"", "");
    row("literal: quote", literal, "@\"a\\\"b\"", "a\"b");
    // Escaped backslashes are folded first, so "\\n" ends as a line break.
    row("literal: escaped backslash before n", literal, "@\"a\\\\nb\"", "a\nb");
    row("literal: tab", literal, "@\"\\t\"", "\t");
    row("md5: empty", md5, "", "d41d8cd98f00b204e9800998ecf8427e");
    row("md5: UTF-8 bytes", md5, "\u00E9\U0001F600", "62b3afe3b01f6f80152b567d9b216cde");
    row("element: first wins", element, "x<a>1</a><a>2</a>", "1");
    row("element: unclosed", element, "x<a>1", QString());
    row("element: absent", element, "<b>1</b>", QString());
    row("element: entities kept", element, "<a> &amp; </a>", " &amp; ");
}

void tst_StringEncodings::textConversions()
{
    QFETCH(Conversion, conversion);
    QFETCH(QString, text);
    QFETCH(QString, expected);
    const QString got = conversion(text);
    QCOMPARE(got, expected);
    if (expected.isNull())
        QVERIFY(got.isNull());
}

void tst_StringEncodings::codePoints_data()
{
    QTest::addColumn<QString>("text");
    QTest::addColumn<int>("count");
    QTest::addColumn<QString>("utf16");
    QTest::addColumn<QString>("utf32");
    QTest::addColumn<quint32>("single");
    row("empty", QString(), 0, "", "", 0u);
    row("flag is two", "\U0001F1E9\U0001F1EA", 2, "D83C,DDE9,D83C,DDEA", "1F1E9,1F1EA", 0u);
    row("one astral", "\U0010FFFF", 1, "DBFF,DFFF", "10FFFF", 0x10FFFFu);
    row("lone low kept", QString(QChar(0xDC00)), 1, "DC00", "DC00", 0xDC00u);
    row("trailing high dropped", QStringLiteral("a") + QChar(0xD800), 2, "0061,D800", "0061", 0u);
    // The unit after a lone high surrogate goes with it.
    row("lone high drops next unit", QChar(0xD800) + QStringLiteral("xy"), 3, "D800,0078,0079",
        "0079", 0u);
}

void tst_StringEncodings::codePoints()
{
    QFETCH(QString, text);
    QFETCH(int, count);
    QFETCH(QString, utf16);
    QFETCH(QString, utf32);
    QFETCH(quint32, single);
    QCOMPARE(numberOfUnicodeCharacters(text), count);
    QCOMPARE(UTF16SequenceString(text), utf16);
    QCOMPARE(UTF32SequenceString(text), utf32);
    QCOMPARE(UTF32Character(text), single);
}

void tst_StringEncodings::virtualCharacters_data()
{
    QTest::addColumn<qint32>("code");
    QTest::addColumn<bool>("isVirtual");
    QTest::addColumn<QString>("string");
    row("negative", -1, false, QString());
    row("zero", 0, false, QString(QChar(0)));
    row("below range", 0x9FFFF, false, "\U0009FFFF");
    row("flag DE", 0xA0000 + 26 * 3 + 4, true, "\U0001F1E9\U0001F1EA");
    row("flag ZZ", 0xA02A3, true, "\U0001F1FF\U0001F1FF");
    row("gap after flags", 0xA02A4, false, "\U000A02A4");
    row("first sequence", 0xA0300, true, "\U0001F636\u200D\U0001F32B\uFE0F");
    row("pirate flag", 0xA03DE, true, "\U0001F3F4\u200D\u2620\uFE0F");
    row("reserved code", 0xA03D9, true, "\U000A03D9");
    row("keycap hash", 0xA1000, true, "#\u20E3");
    row("keycap nine", 0xA100B, true, "9\u20E3");
}

void tst_StringEncodings::virtualCharacters()
{
    QFETCH(qint32, code);
    QFETCH(bool, isVirtual);
    QFETCH(QString, string);
    QCOMPARE(isVirtualCharacter(code), isVirtual);
    if (code >= 0)
        QCOMPARE(stringWithUTF32Character(quint32(code)), string);
}

void tst_StringEncodings::emojiTableMatchesUnicodeData()
{
    // The frozen table's rows are the Unicode data's fully-qualified ZWJ
    // sequences without skin tones, in file order, around three reserved codes.
    QFile f(QStringLiteral("/usr/share/unicode/emoji/emoji-test.txt"));
    if (!f.open(QIODevice::ReadOnly))
        QSKIP("unicode-data is not installed");
    QList<QList<quint32>> rows;
    while (!f.atEnd()) {
        const QString line = QString::fromUtf8(f.readLine());
        if (!line.contains(u"; fully-qualified") || !line.contains(u" 200D"))
            continue;
        QList<quint32> row;
        for (const QString &hex : line.section(u';', 0, 0).split(u' ', Qt::SkipEmptyParts))
            row << hex.toUInt(nullptr, 16);
        if (std::any_of(
                row.begin(), row.end(), [](quint32 c) { return c >= 0x1F3FB && c <= 0x1F3FF; }))
            continue;
        rows << row;
    }
    QCOMPARE(rows.size(), 220);
    for (int i = 0; i < 223; ++i) {
        const quint32 *got = utf32CharactersForVirtualCharacter(0xA0300 + i);
        if (i >= 217 && i < 220) {
            QVERIFY(!got);
            continue;
        }
        const QList<quint32> &want = rows.at(i < 217 ? i : i - 3);
        QVERIFY(got);
        QList<quint32> have;
        for (int k = 0; got[k]; ++k)
            have << got[k];
        QCOMPARE(have, want);
    }
}

void tst_StringEncodings::ligatures()
{
    defineLigatures({ QStringLiteral("ffi"), QStringLiteral("st") });
    const QString st = stringWithUTF32Character(0xB0001);
    QCOMPARE(st, QStringLiteral("st"));
    QCOMPARE(stringWithUTF32Character(0xB0002), QStringLiteral("\U000B0002"));
    QVERIFY(isVirtualCharacter(0xBFFFE));
    QVERIFY(!utf32CharactersForVirtualCharacter(0xB0000));
    defineLigatures({});
    QCOMPARE(stringWithUTF32Character(0xB0000), QStringLiteral("\U000B0000"));
}

void tst_StringEncodings::skinColor_data()
{
    QTest::addColumn<QString>("text");
    QTest::addColumn<int>("color");
    QTest::addColumn<QString>("expected");
    const QString hand = QStringLiteral("\U0001F44B");
    row("add tone 3", hand, 3, hand + "\U0001F3FC");
    row("remove leaves NUL", hand + "\U0001F3FC", 0, hand + QChar(0));
    row("replace tone", hand + "\U0001F3FB", 6, hand + "\U0001F3FF");
    row("drops FE0F before ZWJ", "\u26F9\uFE0F\u200D\u2642\uFE0F", 1,
        "\u26F9\U0001F3FB\u200D\u2642\uFE0F");
    row("bare modifier not looked at", "\U0001F3FB", 0, "\U0001F3FB");
    row("empty", QString(), 2, QString());
}

void tst_StringEncodings::skinColor()
{
    QFETCH(QString, text);
    QFETCH(int, color);
    QFETCH(QString, expected);
    QCOMPARE(emojiStringWithSkinColor(text, color), expected);
}

void tst_StringEncodings::appendToFileCreatesAndAppends()
{
    const QString path = m_dir.filePath(QStringLiteral("log.txt"));
    QVERIFY(appendToFile(QStringLiteral("h\u00E9"), path, UTF8Encoding));
    QVERIFY(appendToFile(QStringLiteral("!"), path, UTF8Encoding));
    QFile f(path);
    QVERIFY(f.open(QIODevice::ReadOnly));
    QCOMPARE(f.readAll(), QByteArray("h\xC3\xA9!"));
    QVERIFY(!appendToFile(QStringLiteral("\u0416"), path, ISOLatin1Encoding));
    QCOMPARE(QFileInfo(path).size(), 4);
    QVERIFY(!appendToFile(
        QStringLiteral("x"), m_dir.filePath(QStringLiteral("no/such/dir/f")), UTF8Encoding));
}

void tst_StringEncodings::macRomanCString()
{
    QCOMPARE(stringWithMacRomanCString("caf\x8E"), QStringLiteral("caf\u00E9"));
    QCOMPARE(stringWithMacRomanCString("abc", 2), QStringLiteral("ab"));
}

void tst_StringEncodings::keyNameFromCurrentLayout()
{
    // Runs under a private X server with its default keymap: keycode 38 is
    // "a". One kept connection: a server that resets when its last client
    // leaves answers every call.
    for (int i = 0; i < 20; ++i)
        QCOMPARE(stringWithVirtualKeyCode(38, 0), QStringLiteral("a"));
    qunsetenv("DISPLAY");
    QCOMPARE(stringWithVirtualKeyCode(38, 0), QStringLiteral("<ERR>"));
}

QTEST_GUILESS_MAIN(tst_StringEncodings)
#include "tst_stringencodings.moc"

// SPDX-FileCopyrightText: 2026 Quillet developers
// SPDX-License-Identifier: MIT
#include "common/testfiles.h"
#include "utilities/vxbundle.h"
#include "utilities/vxfourcharcode.h"
#include "utilities/vxpropertylist.h"
#include "utilities/vxuserdefaults.h"

#include <QDateTime>
#include <QDir>
#include <QFile>
#include <QSettings>
#include <QTemporaryDir>
#include <QTest>

class TestVXBundle : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void openStepPropertyLists_data();
    void openStepPropertyLists();
    void malformedPropertyListsAreRefused_data();
    void malformedPropertyListsAreRefused();
    void xmlAndBinaryRoundTrip();
    void contentsBundle();
    void gnustepBundle();
    void brokenBundlesAnswerEmpty();
    void fourCharCodes_data();
    void fourCharCodes();
    void argumentDomainOverridesSettings();
};

void TestVXBundle::openStepPropertyLists_data()
{
    QTest::addColumn<QByteArray>("text");
    QTest::addColumn<QVariant>("expected");
    QVariantMap gnustep;
    gnustep.insert(QStringLiteral("ApplicationName"), QStringLiteral("Ink"));
    gnustep.insert(QStringLiteral("NSExecutable"), QStringLiteral("Ink"));
    gnustep.insert(QStringLiteral("NSTypes"),
        QVariantList { QVariantMap {
            { QStringLiteral("NSUnixExtensions"), QVariantList { QStringLiteral("txt") } } } });
    QTest::newRow("GNUstep Info") << QByteArray(
        "{\n  ApplicationName = \"Ink\"; // name\n  NSExecutable = Ink;\n"
        "  /* file types */ NSTypes = ( { NSUnixExtensions = ( txt ); } );\n}\n")
                                  << QVariant(gnustep);
    QTest::newRow("escapes") << QByteArray("{ a = \"tab\\there \\\"q\\\" \\U00e9 \\101\"; }")
                             << QVariant(QVariantMap { { QStringLiteral("a"),
                                    QStringLiteral("tab\there \"q\" é A") } });
    QTest::newRow("data") << QByteArray("<0fbd 77>") << QVariant(QByteArray("\x0f\xbd\x77", 3));
    QTest::newRow("typed values") << QByteArray("( <*I12>, <*R1.5>, <*BY>, <*BN> )")
                                  << QVariant(QVariantList { 12LL, 1.5, true, false });
    QTest::newRow("strings file") << QByteArray("\"Install\" = \"Installieren\";\nOK = OK;\n")
                                  << QVariant(QVariantMap { { QStringLiteral("Install"),
                                                                QStringLiteral("Installieren") },
                                         { QStringLiteral("OK"), QStringLiteral("OK") } });
    QTest::newRow("trailing comma") << QByteArray(
        "(a, b,)") << QVariant(QVariantList { QStringLiteral("a"), QStringLiteral("b") });
    QTest::newRow("empty file") << QByteArray("  \n") << QVariant(QVariantMap());
}

void TestVXBundle::openStepPropertyLists()
{
    QFETCH(QByteArray, text);
    QFETCH(QVariant, expected);
    const auto result = VXPropertyList::fromData(text);
    QVERIFY2(result.error.isEmpty(), qPrintable(result.error));
    QCOMPARE(result.format, VXPropertyList::Format::OpenStep);
    QCOMPARE(result.value, expected);
}

void TestVXBundle::malformedPropertyListsAreRefused_data()
{
    QTest::addColumn<QByteArray>("data");
    QTest::newRow("unterminated dict") << QByteArray("{ a = b; ");
    QTest::newRow("missing semicolon") << QByteArray("{ a = b }");
    QTest::newRow("unterminated string") << QByteArray("{ a = \"b; }");
    QTest::newRow("deep nesting") << QByteArray(100000, '(');
    QTest::newRow("binary junk") << QByteArray("\x00\x01\x02\xff\xfe garbage", 14);
    QTest::newRow("truncated binary plist") << QByteArray("bplist00\xd1\x01\x02", 11);
    QTest::newRow("broken XML") << QByteArray("<?xml version=\"1.0\"?><plist><dict><key>a</key>");
    QTest::newRow("odd data") << QByteArray("<abc>");
}

void TestVXBundle::malformedPropertyListsAreRefused()
{
    QFETCH(QByteArray, data);
    const auto result = VXPropertyList::fromData(data);
    QVERIFY(!result.error.isEmpty());
    QVERIFY(!result.value.isValid());
}

void TestVXBundle::xmlAndBinaryRoundTrip()
{
    QVariantMap info;
    info.insert(QStringLiteral("CFBundleSignature"), QStringLiteral("QSmp"));
    info.insert(QStringLiteral("LSUIElement"), true);
    info.insert(QStringLiteral("Count"), 3LL);
    info.insert(QStringLiteral("Names"), QVariantList { QStringLiteral("a"), QStringLiteral("ü") });
    const QByteArray xml = VXPropertyList::toXml(info);
    const auto fromXml = VXPropertyList::fromData(xml);
    QCOMPARE(fromXml.format, VXPropertyList::Format::Xml);
    QCOMPARE(fromXml.value.toMap(), info);

    // A binary property list as the platform's tools write it.
    const QByteArray binary
        = QByteArray::fromBase64("YnBsaXN0MDDSAQIDBF8QEUNGQnVuZGxlU2lnbmF0dXJlW0xTVUlFbGVtZW50VFFTb"
                                 "XAJCA0hLTIAAAAAAAABAQAAAAAAAAAFAAAAAAAAAAAAAAAAAAAAMw==");
    const auto fromBinary = VXPropertyList::fromData(binary);
    QCOMPARE(fromBinary.format, VXPropertyList::Format::Binary);
    QVERIFY2(fromBinary.error.isEmpty(), qPrintable(fromBinary.error));
    QCOMPARE(fromBinary.value.toMap().value(QStringLiteral("CFBundleSignature")).toString(),
        QStringLiteral("QSmp"));
    QCOMPARE(fromBinary.value.toMap().value(QStringLiteral("LSUIElement")), QVariant(true));
}

void TestVXBundle::contentsBundle()
{
    QTemporaryDir dir;
    const QString app = dir.path() + QLatin1String("/Foo.app");
    QVariantMap info { { QStringLiteral("CFBundleExecutable"), QStringLiteral("Foo") },
        { QStringLiteral("CFBundleIdentifier"), QStringLiteral("dev.example.foo") },
        { QStringLiteral("CFBundleIconFile"), QStringLiteral("Foo") } };
    writeFile(app + QLatin1String("/Contents/Info.plist"), VXPropertyList::toXml(info));
    writeFile(app + QLatin1String("/Contents/Resources/Foo.icns"), "icns");
    writeFile(app + QLatin1String("/Contents/Resources/en.lproj/ReadMe.rtf"), "{\\rtf1}");
    // A script in MacOS is a macOS launcher, not ours; the ELF in Linux is.
    writeFile(app + QLatin1String("/Contents/MacOS/Foo"), "#!/bin/sh\n", true);
    const auto bundle = VXBundle::open(app);
    QVERIFY(bundle);
    QCOMPARE(bundle->layout(), VXBundle::Layout::Contents);
    QCOMPARE(bundle->bundleIdentifier(), QStringLiteral("dev.example.foo"));
    QVERIFY(bundle->executablePath().isEmpty());
    writeFile(app + QLatin1String("/Contents/Linux/Foo"),
        "\x7f"
        "ELF",
        true);
    QCOMPARE(bundle->executablePath(), app + QLatin1String("/Contents/Linux/Foo"));
    QCOMPARE(bundle->pathForResource(QStringLiteral("Foo"), QStringLiteral("icns")),
        app + QLatin1String("/Contents/Resources/Foo.icns"));
    QCOMPARE(bundle->pathForResource(QStringLiteral("ReadMe.rtf")),
        app + QLatin1String("/Contents/Resources/en.lproj/ReadMe.rtf"));
    QVERIFY(bundle->pathForResource(QStringLiteral("../Info"), QStringLiteral("plist")).isNull());
    QVERIFY(bundle->stringForInfoKey(QStringLiteral("Missing")).isNull());
}

void TestVXBundle::gnustepBundle()
{
    QTemporaryDir dir;
    const QString app = dir.path() + QLatin1String("/Ink.app");
    writeFile(app + QLatin1String("/Resources/Info-gnustep.plist"),
        "{\n    NSExecutable = Ink;\n    NSIcon = \"Ink.tiff\";\n    ApplicationRelease = "
        "\"0.5\";\n}\n");
    writeFile(app + QLatin1String("/Ink"),
        "\x7f"
        "ELF",
        true);
    writeFile(app + QLatin1String("/Resources/Ink.tiff"), "II*");
    const auto bundle = VXBundle::open(app);
    QVERIFY(bundle);
    QCOMPARE(bundle->layout(), VXBundle::Layout::GNUstep);
    QCOMPARE(bundle->executablePath(), app + QLatin1String("/Ink"));
    QCOMPARE(
        bundle->stringForInfoKey(QStringLiteral("CFBundleIconFile")), QStringLiteral("Ink.tiff"));
    QCOMPARE(bundle->stringForInfoKey(QStringLiteral("CFBundleShortVersionString")),
        QStringLiteral("0.5"));
    QCOMPARE(bundle->pathForResource(QStringLiteral("Ink.tiff")),
        app + QLatin1String("/Resources/Ink.tiff"));
}

void TestVXBundle::brokenBundlesAnswerEmpty()
{
    QTemporaryDir dir;
    QVERIFY(!VXBundle::open(dir.path() + QLatin1String("/missing.app")));
    writeFile(dir.path() + QLatin1String("/file.app"), "not a folder");
    QVERIFY(!VXBundle::open(dir.path() + QLatin1String("/file.app")));

    const QString binary = dir.path() + QLatin1String("/Binary.app");
    QByteArray junk(4096, '\0');
    for (int i = 0; i < junk.size(); ++i)
        junk[i] = char((i * 7919) & 0xff);
    writeFile(binary + QLatin1String("/Contents/Info.plist"), junk);
    auto bundle = VXBundle::open(binary);
    QVERIFY(bundle);
    QVERIFY(bundle->infoDictionary().isEmpty());
    QVERIFY(!bundle->infoError().isEmpty());

    const QString array = dir.path() + QLatin1String("/Array.app");
    writeFile(array + QLatin1String("/Contents/Info.plist"), "( a, b )");
    bundle = VXBundle::open(array);
    QVERIFY(bundle->infoDictionary().isEmpty());
    QVERIFY(!bundle->infoError().isEmpty());

    // An executable name that tries to leave its folder is ignored.
    const QString escape = dir.path() + QLatin1String("/Escape.app");
    writeFile(escape + QLatin1String("/Contents/Info.plist"),
        "{ CFBundleExecutable = \"../../../bin/sh\"; }");
    QVERIFY(VXBundle::open(escape)->executablePath().isEmpty());
}

void TestVXBundle::fourCharCodes_data()
{
    QTest::addColumn<QString>("text");
    QTest::addColumn<uint>("code");
    QTest::newRow("APPL") << "APPL" << 0x4150504Cu;
    QTest::newRow("with blank") << "psn " << 0x70736E20u;
    QTest::newRow("Mac Roman byte") << "A©BC" << 0x41A94243u;
    QTest::newRow("too short") << "ABC" << 0u;
    QTest::newRow("too long") << "ABCDE" << 0u;
    QTest::newRow("not Mac Roman") << "AB☃☃" << 0u;
    QTest::newRow("empty") << "" << 0u;
}

void TestVXBundle::fourCharCodes()
{
    QFETCH(QString, text);
    QFETCH(uint, code);
    QCOMPARE(VXFourCharCode::fromString(text), code);
    if (code)
        QCOMPARE(VXFourCharCode::toString(code), text);
}

void TestVXBundle::argumentDomainOverridesSettings()
{
    VXUserDefaults &defaults = VXUserDefaults::standard();
    defaults.setObject(QStringLiteral("NO"), QStringLiteral("nosound"));
    defaults.setObject(2.5, QStringLiteral("delay"));
    defaults.setArguments(
        { QStringLiteral("/bin/x"), QStringLiteral("-nosound"), QStringLiteral("YES"),
            QStringLiteral("-flag"), QStringLiteral("-other"), QStringLiteral("1") });
    QVERIFY(defaults.boolForKey(QStringLiteral("nosound")));
    QCOMPARE(defaults.doubleForKey(QStringLiteral("delay")), 2.5);
    QVERIFY(!defaults.objectForKey(QStringLiteral("flag")).isValid()); // no value: not recorded
    QVERIFY(defaults.boolForKey(QStringLiteral("other")));
    defaults.setArguments({});
    QVERIFY(!defaults.boolForKey(QStringLiteral("nosound")));
    // Written to the XDG config folder, so another process sees it.
    QVERIFY(QFile::exists(QDir::homePath() + QLatin1String("/.config/Quillet/tst_vxbundle.ini")));
}

QTEST_GUILESS_MAIN(TestVXBundle)
#include "tst_vxbundle.moc"

// SPDX-FileCopyrightText: 2026 Quillet developers
// SPDX-License-Identifier: MIT
//
// First the whole family where its mechanisms are missing: no X server, no
// session bus, no portal; every method answers at once with its documented
// fallback (the test's time limit catches a hang). Then formatting and
// logging, versions, machine identity, property lists, bundles,
// four-character codes and user defaults: real files under a system root of
// the test's own.
#include "common/logcapture.h"
#include "common/testfiles.h"
#include "common/testrow.h"
#include "process/vxprocess.h"
#include "utilities/desktopappearance.h"
#include "utilities/vxbundle.h"
#include "utilities/vxformat.h"
#include "utilities/vxfourcharcode.h"
#include "utilities/vxlog.h"
#include "utilities/vxpropertylist.h"
#include "utilities/vxuserdefaults.h"
#include "utilities/vxutilities.h"
#include "utilities/vxutilities_p.h"

#include <QRegularExpression>
#include <QTemporaryDir>
#include <QTest>

class TestVXUtilities : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void initTestCase()
    {
        for (const char *name :
            { "DISPLAY", "WAYLAND_DISPLAY", "DBUS_SESSION_BUS_ADDRESS", "XDG_CURRENT_DESKTOP" })
            qunsetenv(name);
        qputenv("GSETTINGS_BACKEND", "memory"); // no desktop settings at all
    }

    void everyMethodFallsBackWithoutItsMechanism()
    {
        LogCapture log;
        QCOMPARE(VXUtilities::idleTime(), -1.0f);
        QVERIFY(!VXUtilities::fullScreenMode());
        QVERIFY(!VXUtilities::fullScreenMode()); // tried once, logged once
        QCOMPARE(VXUtilities::clipboardPublisherProcess(), VXProcessPtr());
        QVERIFY(!VXUtilities::darkAppearance());
        QVERIFY(!VXUtilities::darkMenuTheme());
        QCOMPARE(DesktopAppearance::colorScheme(), DesktopAppearance::ColorScheme::NoPreference);
        QCOMPARE(DesktopAppearance::accentColor(), std::nullopt);
        QVERIFY(!VXUtilities::doNotDisturbMode());
        QVERIFY(!VXUtilities::reducedTransparency());
        QCOMPARE(VXUtilities::secureInputProcesses(), std::nullopt);
        QVERIFY(!VXUtilities::debugging());
        QVERIFY(!VXUtilities::wasLaunchedAsLoginItem());
        QCOMPARE(VXUtilities::safeHTTPS("https://example.com/"), "https://example.com/");
        QVERIFY(!VXUtilities::fileSystemTypeFor("/").isEmpty());
        QCOMPARE(VXUtilities::shellCommandResult("echo ok"), "ok\n");
        // Micro: nothing is in front, so the first wait ends at once and the
        // second runs out; the missing resource opens nothing.
        QTemporaryDir dir;
        VXBundle::setMainBundlePath(dir.path() + "/Host.app");
        VXUtilities::launchMicro(false);
        VXBundle::setMainBundlePath(QString());
        QStringList messages = log.messages();
        messages.removeAll("FS Info /");
        messages.removeAll("statfs err = 0");
        QCOMPARE(messages,
            QStringList({ "**Utilities initialized",
                "could not install menu bar visibility event handl)", "wait count (Micro) = 0" }));
    }

    void cleanup() { VXUtilitiesPlatform::setKernelRelease(std::nullopt); }

    void formats_data()
    {
        QTest::addColumn<QString>("format");
        QTest::addColumn<QVariantList>("args");
        QTest::addColumn<QString>("expected");
        row("positional reuse", "%1$@ cannot run.\rQuit %1$@.", QVariantList { "Foo" },
            "Foo cannot run.\rQuit Foo.");
        row("long", "%ld", QVariantList { qlonglong(1) << 40 }, "1099511627776");
        row("int truncates to 32 bits", "%d", QVariantList { qlonglong(1) << 32 }, "0");
        row("hex byte signed widening", "%02X", QVariantList { -62 }, "FFFFFFC2");
        row("nil object", "autolaunch = %@", QVariantList { QString() }, "autolaunch = (null)");
        row("missing arguments", "%@ %d %s %1.1f %9$@", QVariantList {},
            "(null) 0 (null) 0.0 (null)");
        // Lists and dictionaries are described as the log shows them.
        const QVariantMap map { { "productName", "Foo Bar" },
            { "productCode", QStringList { "ABCD" } }, { "", "/x" } };
        row("nested map, sorted keys", "%@", QVariantList { map },
            "{\n    \"\" = \"/x\";\n    productCode = (\n        ABCD\n    );\n"
            "    productName = \"Foo Bar\";\n}");
        row("quotes and escapes in lists", "%@",
            QVariantList { QStringList { "say \"hi\"\n", "é" } },
            "(\n    \"say \\\"hi\\\"\\n\",\n    \"\\U00e9\"\n)");
    }

    void formats()
    {
        QFETCH(QString, format);
        QFETCH(QVariantList, args);
        QFETCH(QString, expected);
        QCOMPARE(vxFormatList(format, args), expected);
    }

    void absurdWidthsAreClampedAndLogLinesHaveTheirShape()
    {
        QVERIFY(vxFormat("%999999999d", 1).size() <= 4096);
        QVERIFY(vxFormat("%.999999999f", 1.0).size() <= 4200);
        LogCapture capture;
        vxLog("quit %@: terminated after %1.3fs (%d attempts)", QString("Foo"), 0.01, 2);
        capture.restore();
        static const QRegularExpression shape(
            "^\\d{4}-\\d\\d-\\d\\d \\d\\d:\\d\\d:\\d\\d\\.\\d{3} \\S+\\[(\\d+):(\\d+)\\] "
            "quit Foo: terminated after 0\\.010s \\(2 attempts\\)\\n$");
        const auto m = shape.match(capture.text());
        QVERIFY2(m.hasMatch(), qPrintable(capture.text()));
        QCOMPARE(m.captured(1).toLongLong(), QCoreApplication::applicationPid());
    }

    void compareVersion_data()
    {
        // clang-format off
        QTest::addColumn<QString>("a");
        QTest::addColumn<QString>("b");
        QTest::addColumn<int>("expected");
        QTest::newRow("beta before final") << "1.0b1" << "1.0" << -1;
        QTest::newRow("alpha before beta") << "1.0a5" << "1.0b1" << -1;
        QTest::newRow("beta numbers numeric") << "1.0b2" << "1.0b10" << -1;
        QTest::newRow("unknown letter ranks as p") << "1.0x1" << "1.0p1" << 0;
        QTest::newRow("digit runs by value") << "10.15.7" << "10.9" << 1;
        QTest::newRow("shorter is older") << "1.0" << "1.0.0" << -1;
        QTest::newRow("empty is older") << "" << "1" << -1;
        // clang-format on
    }

    void compareVersion()
    {
        QFETCH(QString, a);
        QFETCH(QString, b);
        QFETCH(int, expected);
        QCOMPARE(VXUtilities::compareVersion(a, b), expected);
        // The system gate depends on a consistent order: a < b exactly when b > a.
        QCOMPARE(VXUtilities::compareVersion(b, a), -expected);
    }

    void systemVersionFromKernelRelease_data()
    {
        QTest::addColumn<QString>("release");
        QTest::addColumn<QString>("versionString");
        QTest::addColumn<uint>("hex");
        QTest::addColumn<QStringList>("logged");
        const QStringList none;
        row("Debian kernel", "6.1.0-18-amd64", "6.1", 0x0610u, none);
        row("three part with suffix", "14.1.2+rt", "14.1.2", 0x1412u, none);
        row("unparsable", "unknown", "0.0", 0u, none);
        row("missing parts are logged and 0", "7", "7.0", 0x0700u,
            QStringList { "cannot get minor version number", "cannot get bugfix version number" });
    }

    void systemVersionFromKernelRelease()
    {
        QFETCH(QString, release);
        QFETCH(QString, versionString);
        QFETCH(uint, hex);
        QFETCH(QStringList, logged);
        VXUtilitiesPlatform::setKernelRelease(release);
        LogCapture capture;
        VXUtilities::threePartVersion();
        QCOMPARE(capture.messages(), logged);
        QCOMPARE(VXUtilities::systemVersionString(), versionString);
        QCOMPARE(VXUtilities::hexSystemVersion(), hex);
    }

    // XML is read and written wherever bundles are made (see the launch tests).
    void propertyLists_data()
    {
        QTest::addColumn<QByteArray>("text");
        QTest::addColumn<QVariant>("expected"); // invalid: refused
        const QVariantMap gnustep { { "ApplicationName", "Ink" }, { "NSExecutable", "Ink" },
            { "NSTypes",
                QVariantList { QVariantMap { { "NSUnixExtensions", QVariantList { "txt" } } } } } };
        row("GNUstep Info",
            QByteArray("{\n  ApplicationName = \"Ink\"; // name\n  NSExecutable = Ink;\n"
                       "  /* file types */ NSTypes = ( { NSUnixExtensions = ( txt ); } );\n}\n"),
            QVariant(gnustep));
        row("escapes", QByteArray("{ a = \"tab\\there \\\"q\\\" \\U00e9 \\101\"; }"),
            QVariant(QVariantMap { { "a", "tab\there \"q\" é A" } }));
        row("strings file", QByteArray("\"Install\" = \"Installieren\";\nOK = OK;\n"),
            QVariant(QVariantMap { { "Install", "Installieren" }, { "OK", "OK" } }));
        row("empty file", QByteArray("  \n"), QVariant(QVariantMap()));
        // A binary property list as the platform's tools write it.
        row("binary",
            QByteArray::fromBase64(
                "YnBsaXN0MDDSAQIDBF8QEUNGQnVuZGxlU2lnbmF0"
                "dXJlW0xTVUlFbGVtZW50VFFTbXAJCA0hLTIAAAAAAAABAQAAAAAAAAAFAAAAAAAAAAAAAAAAAAAAMw=="),
            QVariant(QVariantMap { { "CFBundleSignature", "QSmp" }, { "LSUIElement", true } }));
        const QVariant refused;
        row("unterminated dict", QByteArray("{ a = b; "), refused);
        row("deep nesting", QByteArray(100000, '('), refused);
        row("binary junk", QByteArray("\x00\x01\x02\xff\xfe garbage", 14), refused);
        row("truncated binary", QByteArray("bplist00\xd1\x01\x02", 11), refused);
        row("broken XML", QByteArray("<?xml version=\"1.0\"?><plist><dict><key>a</key>"), refused);
    }

    void propertyLists()
    {
        QFETCH(QByteArray, text);
        QFETCH(QVariant, expected);
        const auto result = VXPropertyList::fromData(text);
        QCOMPARE(result.error.isEmpty(), expected.isValid());
        QCOMPARE(result.value, expected);
        if (expected.isValid())
            QCOMPARE(result.format,
                text.startsWith("bplist") ? VXPropertyList::Format::Binary
                                          : VXPropertyList::Format::OpenStep);
    }

    void bundleFilesAndBrokenBundles()
    {
        QTemporaryDir dir;
        const QString d = dir.path(), app = d + "/Foo.app", res = app + "/Contents/Resources/";
        writeFile(app + "/Contents/Info.plist",
            "{ CFBundleExecutable = Foo; CFBundleIdentifier = dev.example.foo; }");
        writeFile(res + "en.lproj/ReadMe.rtf", "{\\rtf1}");
        // A script in MacOS is a macOS launcher, not ours; the ELF in Linux is.
        writeFile(app + "/Contents/MacOS/Foo", "#!/bin/sh\n", true);
        const auto bundle = VXBundle::open(app);
        QVERIFY(bundle && bundle->layout() == VXBundle::Layout::Contents);
        QCOMPARE(bundle->bundleIdentifier(), "dev.example.foo");
        QVERIFY(bundle->executablePath().isEmpty());
        writeFile(app + "/Contents/Linux/Foo", "\177ELF", true);
        QCOMPARE(bundle->executablePath(), app + "/Contents/Linux/Foo");
        QCOMPARE(bundle->pathForResource("ReadMe", "rtf"), res + "en.lproj/ReadMe.rtf");
        QVERIFY(bundle->pathForResource("../Info", "plist").isNull());

        // Broken ones answer empty.
        QVERIFY(!VXBundle::open(d + "/missing.app"));
        writeFile(d + "/file.app", "not a folder");
        QVERIFY(!VXBundle::open(d + "/file.app"));
        for (const QByteArray &info : { QByteArray(4096, '\xfe'), QByteArray("( a, b )") }) {
            writeFile(d + "/Broken.app/Contents/Info.plist", info);
            const auto broken = VXBundle::open(d + "/Broken.app");
            QVERIFY(broken && broken->infoDictionary().isEmpty() && !broken->infoError().isEmpty());
        }
        // An executable name that tries to leave its folder is ignored, even
        // where that leads to a program.
        writeFile(d + "/bin/sh", "\177ELF", true);
        QDir().mkpath(d + "/Escape.app/Contents/Linux");
        writeFile(
            d + "/Escape.app/Contents/Info.plist", "{ CFBundleExecutable = \"../../../bin/sh\"; }");
        QVERIFY(VXBundle::open(d + "/Escape.app")->executablePath().isEmpty());
    }

    void fourCharCodes()
    {
        QCOMPARE(VXFourCharCode::fromString("APPL"), 0x4150504Cu);
        QCOMPARE(VXFourCharCode::toString(0x41A94243u), "A©BC"); // a Mac Roman byte
        QCOMPARE(VXFourCharCode::fromString("A©BC"), 0x41A94243u);
        for (const QString bad : { "ABC", "AB☃☃", "" }) // too short, not Mac Roman
            QCOMPARE(VXFourCharCode::fromString(bad), 0u);
    }
};

QTEST_GUILESS_MAIN(TestVXUtilities)
#include "tst_vxutilities.moc"

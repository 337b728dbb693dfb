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

#include <QLocale>
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

    void cleanup()
    {
        VXUtilitiesPlatform::setKernelRelease(std::nullopt);
        VXUtilitiesPlatform::setSystemRoot(QString());
    }

    void formats_data()
    {
        // clang-format off
        QTest::addColumn<QString>("format");
        QTest::addColumn<QVariantList>("args");
        QTest::addColumn<QString>("expected");
        QTest::newRow("positional reuse") << "%1$@ cannot run.\rQuit %1$@."
                                          << QVariantList { "Foo" } << "Foo cannot run.\rQuit Foo.";
        QTest::newRow("long") << "%ld" << QVariantList { qlonglong(1) << 40 } << "1099511627776";
        QTest::newRow("int truncates to 32 bits") << "%d" << QVariantList { qlonglong(1) << 32 }
                                                  << "0";
        QTest::newRow("hex byte signed widening") << "%02X" << QVariantList { -62 } << "FFFFFFC2";
        QTest::newRow("percent") << "100%%" << QVariantList {} << "100%";
        QTest::newRow("nil object") << "autolaunch = %@" << QVariantList { QString() }
                                    << "autolaunch = (null)";
        QTest::newRow("unknown conversion copied") << "50%y" << QVariantList {} << "50%y";
        QTest::newRow("missing arguments") << "%@ %d %s %1.1f %9$@" << QVariantList {}
                                           << "(null) 0 (null) 0.0 (null)";
        // Lists and dictionaries are described as the log shows them.
        QVariantMap map { { "productName", "Foo Bar" }, { "productCode", QStringList { "ABCD" } },
                          { "", "/x" } };
        QTest::newRow("nested map, sorted keys") << "%@" << QVariantList { map }
            << "{\n    \"\" = \"/x\";\n    productCode = (\n        ABCD\n    );\n"
               "    productName = \"Foo Bar\";\n}";
        QTest::newRow("quotes and escapes in lists")
            << "%@" << QVariantList { QStringList { "say \"hi\"\n", "é" } }
            << "(\n    \"say \\\"hi\\\"\\n\",\n    \"\\U00e9\"\n)";
        // clang-format on
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
        QTest::newRow("non-Latin letter splits") << "1.0β2" << "1.0" << -1;
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

    void plainVersionOf()
    {
        QCOMPARE(VXUtilities::plainVersionOf("3.0.1 (build 7)"), "3.0.1");
        QCOMPARE(VXUtilities::plainVersionOf("2.3b4"), "2.3");
        QCOMPARE(VXUtilities::plainVersionOf("10.4"), "10.4");
        QCOMPARE(VXUtilities::plainVersionOf("b3"), "");
    }

    void systemVersionFromKernelRelease_data()
    {
        // clang-format off
        QTest::addColumn<QString>("release");
        QTest::addColumn<QString>("versionString");
        QTest::addColumn<uint>("decimal");
        QTest::addColumn<uint>("hex");
        QTest::addColumn<QStringList>("logged");
        const QStringList none;
        QTest::newRow("Debian kernel") << "6.1.0-18-amd64" << "6.1" << 60100u << 0x0610u << none;
        QTest::newRow("zero bugfix shows two parts") << "12.0.0" << "12.0" << 120000u << 0x1200u
                                                     << none;
        QTest::newRow("three part with suffix") << "14.1.2+rt" << "14.1.2" << 140102u << 0x1412u
                                                << none;
        QTest::newRow("unparsable") << "unknown" << "0.0" << 0u << 0u << none;
        QTest::newRow("missing parts are logged and 0") << "7" << "7.0" << 70000u << 0x0700u
            << QStringList { "cannot get minor version number",
                             "cannot get bugfix version number" };
        // clang-format on
    }

    void systemVersionFromKernelRelease()
    {
        QFETCH(QString, release);
        QFETCH(QString, versionString);
        QFETCH(uint, decimal);
        QFETCH(uint, hex);
        QFETCH(QStringList, logged);
        VXUtilitiesPlatform::setKernelRelease(release);
        LogCapture capture;
        const VXThreePartVersion v = VXUtilities::threePartVersion();
        QCOMPARE(capture.messages(), logged);
        QCOMPARE(uint(v.major) * 10000 + v.minor * 100 + v.bugfix, decimal);
        QCOMPARE(VXUtilities::systemVersionString(), versionString);
        QCOMPARE(VXUtilities::hexSystemVersion(), hex);
    }

    void machineIdentityFromSystemFiles()
    {
        QTemporaryDir root;
        const QString r = root.path();
        VXUtilitiesPlatform::setSystemRoot(r);
        // No DMI table: the device tree (NUL-terminated) names the board.
        writeFile(
            r + "/proc/device-tree/model", QByteArray("Raspberry Pi 4 Model B Rev 1.4\0", 31));
        QCOMPARE(VXUtilities::computerModel(), "Raspberry Pi 4 Model B Rev 1.4");
        writeFile(r + "/sys/class/dmi/id/product_name", "ThinkPad X1 Carbon\n");
        QCOMPARE(VXUtilities::computerModel(), "ThinkPad X1 Carbon");

        // Neither serial nor machine id: nil, and asked again later.
        QVERIFY(VXUtilitiesPlatform::serialNumber().isNull());
        writeFile(r + "/etc/machine-id", "0123456789abcdef0123456789abcdef\n");
        QCOMPARE(VXUtilitiesPlatform::serialNumber(), "0123456789abcdef0123456789abcdef");
        writeFile(r + "/sys/class/dmi/id/product_serial", "PF2ABCDE\n");
        QCOMPARE(VXUtilities::uniqueComputerID(), "PF2ABCDE");
    }

    void localizedDateString()
    {
        QLocale::setDefault(QLocale(QLocale::German, QLocale::Germany));
        QCOMPARE(VXUtilities::localizedDateString("2024-03-09"), "09.03.24");
        QLocale::setDefault(QLocale(QLocale::English, QLocale::UnitedStates));
        QVERIFY(VXUtilities::localizedDateString("not a date").isNull());
        // Midnight UTC is shown in local time: west of Greenwich, the day before.
        qputenv("TZ", "America/New_York");
        tzset();
        const QString west = VXUtilities::localizedDateString("2024-03-09");
        qputenv("TZ", "UTC");
        tzset();
        QLocale::setDefault(QLocale::c());
        QCOMPARE(west, "3/8/24");
    }

    // XML is read and written wherever bundles are made (see the launch tests).
    void propertyLists_data()
    {
        QTest::addColumn<QByteArray>("text");
        QTest::addColumn<QVariant>("expected"); // invalid: refused
        const QVariantMap gnustep { { "ApplicationName", "Ink" }, { "NSExecutable", "Ink" },
            { "NSTypes",
                QVariantList { QVariantMap { { "NSUnixExtensions", QVariantList { "txt" } } } } } };
        QTest::newRow("GNUstep Info")
            << QByteArray("{\n  ApplicationName = \"Ink\"; // name\n  NSExecutable = Ink;\n"
                          "  /* file types */ NSTypes = ( { NSUnixExtensions = ( txt ); } );\n}\n")
            << QVariant(gnustep);
        QTest::newRow("escapes") << QByteArray("{ a = \"tab\\there \\\"q\\\" \\U00e9 \\101\"; }")
                                 << QVariant(QVariantMap { { "a", "tab\there \"q\" é A" } });
        QTest::newRow("data") << QByteArray("<0fbd 77>") << QVariant(QByteArray("\x0f\xbd\x77", 3));
        QTest::newRow("typed values") << QByteArray("( <*I12>, <*R1.5>, <*BY>, <*BN> )")
                                      << QVariant(QVariantList { 12LL, 1.5, true, false });
        QTest::newRow("strings file")
            << QByteArray("\"Install\" = \"Installieren\";\nOK = OK;\n")
            << QVariant(QVariantMap { { "Install", "Installieren" }, { "OK", "OK" } });
        QTest::newRow("empty file") << QByteArray("  \n") << QVariant(QVariantMap());
        // A binary property list as the platform's tools write it.
        QTest::newRow("binary") << QByteArray::fromBase64(
            "YnBsaXN0MDDSAQIDBF8QEUNGQnVuZGxlU2lnbmF0"
            "dXJlW0xTVUlFbGVtZW50VFFTbXAJCA0hLTIAAAAAAAABAQAAAAAAAAAFAAAAAAAAAAAAAAAAAAAAMw==")
                                << QVariant(QVariantMap {
                                       { "CFBundleSignature", "QSmp" }, { "LSUIElement", true } });
        const QVariant refused;
        QTest::newRow("unterminated dict") << QByteArray("{ a = b; ") << refused;
        QTest::newRow("deep nesting") << QByteArray(100000, '(') << refused;
        QTest::newRow("binary junk") << QByteArray("\x00\x01\x02\xff\xfe garbage", 14) << refused;
        QTest::newRow("truncated binary") << QByteArray("bplist00\xd1\x01\x02", 11) << refused;
        QTest::newRow("broken XML")
            << QByteArray("<?xml version=\"1.0\"?><plist><dict><key>a</key>") << refused;
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

    void bundleLayouts()
    {
        QTemporaryDir dir;
        const QString app = dir.path() + "/Foo.app", res = app + "/Contents/Resources/";
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

        const QString ink = dir.path() + "/Ink.app";
        writeFile(ink + "/Resources/Info-gnustep.plist",
            "{ NSExecutable = Ink; NSIcon = \"Ink.tiff\"; ApplicationRelease = \"0.5\"; }");
        writeFile(ink + "/Ink", "\177ELF", true);
        const auto gnustep = VXBundle::open(ink);
        QVERIFY(gnustep && gnustep->layout() == VXBundle::Layout::GNUstep);
        QCOMPARE(gnustep->executablePath(), ink + "/Ink");
        QCOMPARE(gnustep->stringForInfoKey("CFBundleIconFile"), "Ink.tiff");
        QCOMPARE(gnustep->stringForInfoKey("CFBundleShortVersionString"), "0.5");
    }

    void brokenBundlesAnswerEmpty()
    {
        QTemporaryDir dir;
        const QString d = dir.path();
        QVERIFY(!VXBundle::open(d + "/missing.app"));
        writeFile(d + "/file.app", "not a folder");
        QVERIFY(!VXBundle::open(d + "/file.app"));
        QByteArray junk(4096, '\0');
        for (int i = 0; i < junk.size(); ++i)
            junk[i] = char((i * 7919) & 0xff);
        for (const QByteArray &info : { junk, QByteArray("( a, b )") }) { // binary junk, an array
            writeFile(d + "/Broken.app/Contents/Info.plist", info);
            const auto bundle = VXBundle::open(d + "/Broken.app");
            QVERIFY(bundle && bundle->infoDictionary().isEmpty() && !bundle->infoError().isEmpty());
        }
        // An executable name that tries to leave its folder is ignored.
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

    void argumentDomainOverridesSettings()
    {
        VXUserDefaults &defaults = VXUserDefaults::standard();
        defaults.setObject("NO", "nosound");
        defaults.setObject(2.5, "delay");
        defaults.setArguments({ "/bin/x", "-nosound", "YES", "-flag", "-other", "1" });
        QVERIFY(defaults.boolForKey("nosound"));
        QCOMPARE(defaults.doubleForKey("delay"), 2.5);
        QVERIFY(!defaults.objectForKey("flag").isValid()); // no value: not recorded
        QVERIFY(defaults.boolForKey("other"));
        defaults.setArguments({});
        QVERIFY(!defaults.boolForKey("nosound"));
        // Written to the XDG config folder, so another process sees it.
        QVERIFY(QFile::exists(QDir::homePath() + "/.config/Quillet/tst_vxutilities.ini"));
    }
};

QTEST_GUILESS_MAIN(TestVXUtilities)
#include "tst_vxutilities.moc"

// SPDX-FileCopyrightText: 2026 Quillet developers
// SPDX-License-Identifier: MIT
#include "common/logcapture.h"

#include "utilities/vxutilities.h"
#include "utilities/vxutilities_p.h"

#include <QDir>
#include <QLocale>
#include <QTemporaryDir>
#include <QTest>

class TestVXUtilities : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void cleanup();
    void compareVersion_data();
    void compareVersion();
    void compareVersionIsAntisymmetric();
    void plainVersionOf_data();
    void plainVersionOf();
    void systemVersionFromKernelRelease_data();
    void systemVersionFromKernelRelease();
    void missingComponentsAreLoggedAndZero();
    void decimalVersionIsCachedOnceKnown();
    void releasePredicatesAllTrue();
    void machineIdentityFromSystemFiles();
    void processorTypeLetterOfThisMachine();
    void localizedDateString();
};

void TestVXUtilities::cleanup()
{
    VXUtilitiesPlatform::setKernelRelease(std::nullopt);
    VXUtilitiesPlatform::setSystemRoot(QString());
}

void TestVXUtilities::compareVersion_data()
{
    QTest::addColumn<QString>("a");
    QTest::addColumn<QString>("b");
    QTest::addColumn<int>("expected");
    QTest::newRow("equal") << "1.0" << "1.0" << 0;
    QTest::newRow("beta before final") << "1.0b1" << "1.0" << -1;
    QTest::newRow("final after beta") << "1.0" << "1.0b1" << 1;
    QTest::newRow("alpha before beta") << "1.0a5" << "1.0b1" << -1;
    QTest::newRow("beta numbers numeric") << "1.0b2" << "1.0b10" << -1;
    QTest::newRow("unknown letter ranks as p") << "1.0x1" << "1.0p1" << 0;
    QTest::newRow("upper case ranks as p") << "1.0B1" << "1.0b1" << -1;
    QTest::newRow("digit runs by value") << "10.15.7" << "10.9" << 1;
    QTest::newRow("1.10 newer than 1.9") << "1.10" << "1.9" << 1;
    QTest::newRow("shorter is older") << "1.0" << "1.0.0" << -1;
    QTest::newRow("development before alpha") << "2.1d3" << "2.1a1" << -1;
    QTest::newRow("f before final") << "2.1f1" << "2.1" << -1;
    QTest::newRow("leading zeros equal") << "1.01" << "1.1" << 0;
    QTest::newRow("empty is older") << "" << "1" << -1;
    QTest::newRow("both empty") << "" << "" << 0;
    QTest::newRow("non-Latin letter splits") << "1.0β2" << "1.0" << -1;
    QTest::newRow("suffix after letter compared numerically") << "3b2x" << "3b10" << -1;
    QTest::newRow("kernel style") << "6.1.0" << "3.10" << 1;
}

void TestVXUtilities::compareVersion()
{
    QFETCH(QString, a);
    QFETCH(QString, b);
    QFETCH(int, expected);
    QCOMPARE(VXUtilities::compareVersion(a, b), expected);
}

void TestVXUtilities::compareVersionIsAntisymmetric()
{
    // The system gate depends on a consistent order: a < b exactly when b > a.
    const QStringList versions { "1", "1.0", "1.0.0", "1.0a1", "1.0a2", "1.0b1", "1.0f1", "1.0d9",
                                 "1.1", "1.10", "1.9", "2.0b10", "2.0b9", "10", "9.9.9", "1.0x1" };
    for (const QString &a : versions)
        for (const QString &b : versions)
            QCOMPARE(VXUtilities::compareVersion(a, b), -VXUtilities::compareVersion(b, a));
}

void TestVXUtilities::plainVersionOf_data()
{
    QTest::addColumn<QString>("version");
    QTest::addColumn<QString>("expected");
    QTest::newRow("build note") << "3.0.1 (build 7)" << "3.0.1";
    QTest::newRow("letter first") << "b3" << "";
    QTest::newRow("beta") << "2.3b4" << "2.3";
    QTest::newRow("plain") << "10.4" << "10.4";
    QTest::newRow("empty") << "" << "";
}

void TestVXUtilities::plainVersionOf()
{
    QFETCH(QString, version);
    QFETCH(QString, expected);
    QCOMPARE(VXUtilities::plainVersionOf(version), expected);
}

void TestVXUtilities::systemVersionFromKernelRelease_data()
{
    QTest::addColumn<QString>("release");
    QTest::addColumn<QString>("versionString");
    QTest::addColumn<uint>("decimal");
    QTest::addColumn<uint>("hex");
    QTest::newRow("Debian kernel") << "6.1.0-18-amd64" << "6.1" << 60100u << 0x0610u;
    QTest::newRow("three parts") << "10.15.7" << "10.15.7" << 101507u << 0x10F7u;
    QTest::newRow("zero bugfix shows two parts") << "12.0.0" << "12.0" << 120000u << 0x1200u;
    QTest::newRow("three part with suffix") << "14.1.2+rt" << "14.1.2" << 140102u << 0x1412u;
    QTest::newRow("unparsable") << "unknown" << "0.0" << 0u << 0u;
}

void TestVXUtilities::systemVersionFromKernelRelease()
{
    QFETCH(QString, release);
    QFETCH(QString, versionString);
    QFETCH(uint, hex);
    VXUtilitiesPlatform::setKernelRelease(release);
    LogCapture quiet;
    QCOMPARE(VXUtilities::systemVersionString(), versionString);
    QCOMPARE(VXUtilities::hexSystemVersion(), hex);
    const VXThreePartVersion v = VXUtilities::threePartVersion();
    QFETCH(uint, decimal);
    QCOMPARE(uint(v.major) * 10000 + v.minor * 100 + v.bugfix, decimal);
}

void TestVXUtilities::missingComponentsAreLoggedAndZero()
{
    VXUtilitiesPlatform::setKernelRelease(QStringLiteral("7"));
    LogCapture capture;
    const VXThreePartVersion v = VXUtilities::threePartVersion();
    capture.restore();
    QCOMPARE(v, (VXThreePartVersion { 7, 0, 0 }));
    QCOMPARE(capture.messages(), (QStringList { QStringLiteral("cannot get minor version number"),
                                                QStringLiteral("cannot get bugfix version number") }));
}

void TestVXUtilities::decimalVersionIsCachedOnceKnown()
{
    // An unreadable version (0) is asked again; a known one is kept.
    VXUtilitiesPlatform::setKernelRelease(QStringLiteral("garbage"));
    QCOMPARE(VXUtilities::decimalSystemVersion(), 0u);
    VXUtilitiesPlatform::setKernelRelease(QStringLiteral("10.13.0"));
    QCOMPARE(VXUtilities::decimalSystemVersion(), 101300u);
    VXUtilitiesPlatform::setKernelRelease(QStringLiteral("14.1.2"));
    QCOMPARE(VXUtilities::decimalSystemVersion(), 101300u);
}

void TestVXUtilities::releasePredicatesAllTrue()
{
    QVERIFY(!VXUtilities::pantherOrOlder());
    QVERIFY(VXUtilities::leopardOrNewer() && VXUtilities::snowleopardOrNewer() && VXUtilities::lionOrNewer());
    QVERIFY(VXUtilities::highSierraOrNewer() && VXUtilities::catalinaOrNewer() && VXUtilities::venturaOrNewer());
}

void TestVXUtilities::machineIdentityFromSystemFiles()
{
    QTemporaryDir root;
    auto write = [&](const QString &path, const QByteArray &content) {
        QDir().mkpath(QFileInfo(root.path() + path).path());
        QFile f(root.path() + path);
        QVERIFY(f.open(QIODevice::WriteOnly));
        f.write(content);
    };
    VXUtilitiesPlatform::setSystemRoot(root.path());
    // No DMI table: the device tree (NUL-terminated) names the board.
    write(QStringLiteral("/proc/device-tree/model"), QByteArray("Raspberry Pi 4 Model B Rev 1.4\0", 31));
    QCOMPARE(VXUtilities::computerModel(), QStringLiteral("Raspberry Pi 4 Model B Rev 1.4"));
    write(QStringLiteral("/sys/class/dmi/id/product_name"), "ThinkPad X1 Carbon\n");
    QCOMPARE(VXUtilities::computerModel(), QStringLiteral("ThinkPad X1 Carbon"));

    // Neither serial nor machine id: nil, and asked again later.
    QVERIFY(VXUtilitiesPlatform::serialNumber().isNull());
    write(QStringLiteral("/etc/machine-id"), "0123456789abcdef0123456789abcdef\n");
    QCOMPARE(VXUtilitiesPlatform::serialNumber(), QStringLiteral("0123456789abcdef0123456789abcdef"));
    write(QStringLiteral("/sys/class/dmi/id/product_serial"), "PF2ABCDE\n");
    QCOMPARE(VXUtilities::uniqueComputerID(), QStringLiteral("PF2ABCDE"));
    // Cached once read.
    write(QStringLiteral("/sys/class/dmi/id/product_serial"), "OTHER\n");
    QCOMPARE(VXUtilities::uniqueComputerID(), QStringLiteral("PF2ABCDE"));
}

void TestVXUtilities::processorTypeLetterOfThisMachine()
{
    const QString type = VXUtilities::processorType();
    QVERIFY(!type.isEmpty());
    QVERIFY(!VXUtilities::rosettaMode());
    if (type.startsWith(QLatin1String("x86")))
        QCOMPARE(VXUtilities::processorTypeLetter(), QStringLiteral("I"));
    else if (type.startsWith(QLatin1String("arm")) || type.startsWith(QLatin1String("aarch")))
        QCOMPARE(VXUtilities::processorTypeLetter(), QStringLiteral("A"));
    else
        QCOMPARE(VXUtilities::processorTypeLetter(), type);
}

void TestVXUtilities::localizedDateString()
{
    QLocale::setDefault(QLocale(QLocale::German, QLocale::Germany));
    QCOMPARE(VXUtilities::localizedDateString(QStringLiteral("2024-03-09")), QStringLiteral("09.03.24"));
    QLocale::setDefault(QLocale(QLocale::English, QLocale::UnitedStates));
    QCOMPARE(VXUtilities::localizedDateString(QStringLiteral("2024-03-09")), QStringLiteral("3/9/24"));
    QVERIFY(VXUtilities::localizedDateString(QStringLiteral("not a date")).isNull());
    // Midnight UTC is shown in local time: west of Greenwich, the day before.
    qputenv("TZ", "America/New_York");
    tzset();
    QCOMPARE(VXUtilities::localizedDateString(QStringLiteral("2024-03-09")), QStringLiteral("3/8/24"));
    qputenv("TZ", "UTC");
    tzset();
    QLocale::setDefault(QLocale::c());
}

QTEST_GUILESS_MAIN(TestVXUtilities)
#include "tst_vxutilities.moc"

// SPDX-FileCopyrightText: 2026 Quillet developers
// SPDX-License-Identifier: MIT
//
// The whole family where its mechanisms are missing: no X server, no
// session bus, no portal. Every method answers at once with its documented
// fallback (the test's time limit catches a hang).
#include "common/logcapture.h"
#include "process/vxprocess.h"
#include "utilities/desktopappearance.h"
#include "utilities/vxbundle.h"
#include "utilities/vxutilities.h"

#include <QTemporaryDir>
#include <QTest>

class TestVXUtilitiesBare : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void initTestCase();
    void everyMethodFallsBack();
};

void TestVXUtilitiesBare::initTestCase()
{
    for (const char *name :
        { "DISPLAY", "WAYLAND_DISPLAY", "DBUS_SESSION_BUS_ADDRESS", "XDG_CURRENT_DESKTOP" })
        qunsetenv(name);
    // GSettings' in-memory store: no desktop settings at all.
    qputenv("GSETTINGS_BACKEND", "memory");
}

void TestVXUtilitiesBare::everyMethodFallsBack()
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

    QStringList messages = log.messages();
    messages.removeAll("FS Info /");
    messages.removeAll("statfs err = 0");
    QCOMPARE(messages,
        QStringList({ "**Utilities initialized",
            "could not install menu bar visibility event handl)", "wait count (Micro) = 0" }));
}

QTEST_GUILESS_MAIN(TestVXUtilitiesBare)
#include "tst_vxutilitiesbare.moc"

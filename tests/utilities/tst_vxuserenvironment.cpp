// SPDX-FileCopyrightText: 2026 Quillet developers
// SPDX-License-Identifier: MIT
//
// The desktop's appearance from a portal stand-in on the private session
// bus, from GNOME's settings (written with the gsettings command through
// dconf) and from kdeglobals; scripts and shell commands as real child
// processes, file-system types of real mounts, Do Not Disturb, https on old
// systems, idle time on a real X server with injected input.
#include "common/logcapture.h"
#include "common/testfiles.h"
#include "portal.h"
#include "process/vxnotificationcenter.h"
#include "utilities/desktopappearance.h"
#include "utilities/vxpropertylist.h"
#include "utilities/vxuserdefaults.h"
#include "utilities/vxutilities.h"
#include "utilities/vxutilities_p.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QSettings>
#include <QSignalSpy>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <QTest>
#include <signal.h>
#include <sys/mount.h>

using namespace DesktopAppearance;

namespace {
QList<QStringList> g_setKeys; // reset after each test

// Quietly: list-keys prints a list.
bool gsettings(const QStringList &args)
{
    if (args.value(0) == "set")
        g_setKeys.append(args.mid(1, 2));
    QProcess p;
    p.start("gsettings", args);
    return p.waitForFinished() && p.exitCode() == 0;
}

bool gnomeSchemas()
{
    return gsettings({ "list-keys", "org.gnome.desktop.notifications" });
}

QString kdeglobals()
{
    return QStandardPaths::writableLocation(QStandardPaths::GenericConfigLocation) + "/kdeglobals";
}

QDateTime at(int hour, int minute)
{
    return QDateTime(QDate(2026, 11, 23), QTime(hour, minute));
}

void setSuite(const char *suite, const QString &key, const QVariant &value)
{
    const auto s = VXUserDefaults::suite(suite);
    s->setValue(key, value);
    s->sync();
}
} // namespace

class TestVXUserEnvironment : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void initTestCase()
    {
        QVERIFY(!qEnvironmentVariableIsEmpty("DBUS_SESSION_BUS_ADDRESS"));
        // The machine's own /etc/xdg stays out of the answers.
        qputenv("XDG_CONFIG_DIRS", m_systemConfig.path().toUtf8());
        Notifier::instance();
        VXUtilities::initialize();
    }

    void cleanup()
    {
        VXUtilitiesPlatform::setClock({});
        VXUtilitiesPlatform::setReleaseForThresholds(std::nullopt);
        VXUserDefaults::standard().setArguments({});
        for (const char *suite : { "com.apple.ncprefs", "com.apple.universalaccess" }) {
            const auto s = VXUserDefaults::suite(suite);
            s->clear();
            s->sync();
        }
        for (const QStringList &key : std::exchange(g_setKeys, {}))
            gsettings(QStringList { "reset" } + key);
        QFile::remove(kdeglobals());
        qunsetenv("XDG_CURRENT_DESKTOP");
        setPaletteProbe({});
    }

    void portal_data()
    {
        // clang-format off
        QTest::addColumn<QStringList>("args");
        QTest::addColumn<QStringList>("settings");
        QTest::addColumn<ColorScheme>("scheme");
        QTest::addColumn<std::optional<Rgb>>("accent");
        const QStringList none;
        QTest::newRow("older portal: Read, doubly wrapped")
            << QStringList { "--read-only" }
            << QStringList { "color-scheme u 2", "accent-color rgb 1 0 0" } << ColorScheme::Light
            << std::optional(Rgb { 1, 0, 0 });
        QTest::newRow("no preference gives way to the desktop")
            << none << QStringList { "color-scheme u 0" } << ColorScheme::NoPreference
            << std::optional<Rgb>();
        QTest::newRow("accent out of range is unset")
            << none << QStringList { "color-scheme u 1", "accent-color rgb -1 -1 -1" }
            << ColorScheme::Dark << std::optional<Rgb>();
        QTest::newRow("unknown scheme value is no preference")
            << none << QStringList { "color-scheme u 7" } << ColorScheme::NoPreference
            << std::optional<Rgb>();
        QTest::newRow("portal that never answers")
            << QStringList { "--silent" } << none << ColorScheme::NoPreference
            << std::optional<Rgb>();
        // clang-format on
    }

    void portal()
    {
        QFETCH(QStringList, args);
        QFETCH(QStringList, settings);
        QFETCH(ColorScheme, scheme);
        QFETCH(std::optional<Rgb>, accent);
        Portal portal(args);
        QVERIFY(portal.waitReady());
        for (const QString &setting : settings)
            QVERIFY(portal.set(setting));
        Source from = Source::Gnome;
        QCOMPARE(colorScheme(&from), scheme);
        QCOMPARE(from, scheme == ColorScheme::NoPreference ? Source::None : Source::Portal);
        QCOMPARE(isDark(), scheme == ColorScheme::Dark);
        QCOMPARE(accentColor(), accent);
        QCOMPARE(colorScheme(), scheme); // a portal that hung once is not waited for again
    }

    void desktopSetting_data()
    {
        // clang-format off
        QTest::addColumn<QString>("desktop");
        QTest::addColumn<QString>("gnome"); // color-scheme
        QTest::addColumn<QByteArray>("kde");
        QTest::addColumn<ColorScheme>("scheme");
        QTest::addColumn<Source>("source");
        QTest::addColumn<std::optional<Rgb>>("accent");
        const QByteArray kdeDark = "[General]\nColorScheme=BreezeDark\nAccentColor=61,174,233\n"
                                   "[Colors:Window]\nBackgroundNormal=32,35,38\n";
        const std::optional<Rgb> none, kdeAccent(Rgb { 61 / 255.0, 174 / 255.0, 233 / 255.0 });
        QTest::newRow("GNOME prefers dark")
            << "GNOME" << "prefer-dark" << QByteArray() << ColorScheme::Dark << Source::Gnome
            << none;
        QTest::newRow("KDE window colour and accent")
            << "KDE" << "" << kdeDark << ColorScheme::Dark << Source::Kde << kdeAccent;
        QTest::newRow("KDE scheme name only")
            << "KDE" << "" << QByteArray("[General]\nColorScheme=BreezeLight\n")
            << ColorScheme::Light << Source::Kde << none;
        QTest::newRow("KDE asked first on Plasma")
            << "KDE" << "prefer-light" << kdeDark << ColorScheme::Dark << Source::Kde << kdeAccent;
        QTest::newRow("KDE colours that do not parse")
            << "KDE" << ""
            << QByteArray("[General]\nAccentColor=red\n[Colors:Window]\nBackgroundNormal=1,2\n")
            << ColorScheme::NoPreference << Source::None << none;
        // clang-format on
    }

    void desktopSetting()
    {
        QFETCH(QString, desktop);
        QFETCH(QString, gnome);
        QFETCH(QByteArray, kde);
        QFETCH(ColorScheme, scheme);
        QFETCH(Source, source);
        QFETCH(std::optional<Rgb>, accent);
        if (!gnome.isEmpty() && !gnomeSchemas())
            QSKIP("GNOME's schemas are not installed");
        qputenv("XDG_CURRENT_DESKTOP", desktop.toUtf8());
        QSignalSpy spy(Notifier::instance(), &Notifier::changed);
        if (!gnome.isEmpty())
            QVERIFY(gsettings({ "set", "org.gnome.desktop.interface", "color-scheme", gnome }));
        if (!kde.isEmpty())
            writeFile(kdeglobals(), kde);
        QTRY_VERIFY(!spy.isEmpty()); // each change is announced, whichever desktop it came from
        Source from = Source::None;
        QCOMPARE(colorScheme(&from), scheme);
        QCOMPARE(from, source);
        QCOMPARE(accentColor(), accent);
    }

    void paletteProbeDecidesWithoutAnyPreference()
    {
        setPaletteProbe([] { return std::optional(true); });
        QVERIFY(isDark());
        // A desktop's preference outranks the palette.
        writeFile(kdeglobals(), "[General]\nColorScheme=BreezeLight\n");
        QVERIFY(!isDark());
    }

    // The notification the application hears, from the portal's and from the
    // theme's changes; other namespaces' changes are not announced.
    void darkModeFollowsPortalAndTheme()
    {
        QSignalSpy spy(VXNotificationCenter::defaultCenter(), &VXNotificationCenter::notified);
        auto themeChanges = [&] {
            return std::count_if(spy.cbegin(), spy.cend(), [](const QList<QVariant> &args) {
                return args.at(0).toString() == "AppleInterfaceThemeChangedNotification";
            });
        };
        QVERIFY(!VXUtilities::darkAppearance());
        if (gnomeSchemas()) {
            QVERIFY(
                gsettings({ "set", "org.gnome.desktop.interface", "gtk-theme", "Adwaita-dark" }));
            QTRY_VERIFY(themeChanges() > 0);
            QVERIFY(VXUtilities::darkAppearance() && VXUtilities::darkMenuTheme());
        }
        QSignalSpy changes(Notifier::instance(), &Notifier::changed);
        Portal portal;
        QVERIFY(portal.waitReady());
        QTRY_COMPARE(changes.count(), 1); // a new portal may answer differently
        for (const bool dark : { false, true }) {
            spy.clear();
            changes.clear();
            // Signals of one sender arrive in order: when the appearance change
            // is seen, the other namespace's was seen before it.
            QVERIFY(portal.set("remember-recent-files u 1", "org.gnome.desktop.privacy"));
            QVERIFY(portal.set(dark ? "color-scheme u 1" : "color-scheme u 2"));
            QTRY_VERIFY(themeChanges() > 0);
            QCOMPARE(changes.count(), 1);
            // The portal's light outranks the dark theme.
            QCOMPARE(VXUtilities::darkAppearance(), dark);
            QCOMPARE(VXUtilities::darkMenuTheme(), dark);
        }
    }

    void runShellScript_data()
    {
        // clang-format off
        QTest::addColumn<QByteArray>("script");
        QTest::addColumn<QStringList>("parameters"); // "nil" alone for none
        QTest::addColumn<double>("timeout");
        QTest::addColumn<QString>("expected"); // "<null>" for a null result
        QTest::addColumn<QStringList>("log"); // PIDFILE: where the script writes its pid
        QTest::newRow("output and errors together")
            << QByteArray("#!/bin/sh\necho out\necho err >&2\necho \"$#:$1\"\n")
            << QStringList { "a b" } << 10.0 << "out\nerr\n1:a b\n" << QStringList();
        QTest::newRow("no parameters at all")
            << QByteArray("#!/bin/sh\necho \"$#\"\n") << QStringList { "nil" } << 10.0 << "0\n"
            << QStringList();
        QTest::newRow("runs in the home folder, input empty")
            << QByteArray("#!/bin/sh\npwd\ncat\n") << QStringList() << 10.0
            << QDir::homePath() + "\n" << QStringList();
        // Terminated, logged, and what it wrote comes back.
        QTest::newRow("outruns its time-out")
            << QByteArray("#!/bin/sh\necho $$ > \"$1\"\necho partial\nexec sleep 30\n")
            << QStringList { "PIDFILE" } << 2.0 << "partial\n"
            << QStringList { "script timeout: script.sh (\n    \"PIDFILE\"\n)" };
        QTest::newRow("time-out of 0 ends a running script")
            << QByteArray("#!/bin/sh\nexec sleep 30\n") << QStringList { "nil" } << 0.0 << ""
            << QStringList { "script timeout: script.sh (null)" };
        QTest::newRow("output that is not UTF-8")
            << QByteArray("#!/bin/sh\nprintf '\\377\\376'\n") << QStringList() << 10.0 << "<null>"
            << QStringList { "error getting result: the output is not valid UTF-8 text" };
        QTest::newRow("no such script")
            << QByteArray() << QStringList() << 10.0
            << "script script.sh failed: execvp: No such file or directory" << QStringList();
        // clang-format on
    }

    void runShellScript()
    {
        QFETCH(QByteArray, script);
        QFETCH(QStringList, parameters);
        QFETCH(double, timeout);
        QFETCH(QString, expected);
        QFETCH(QStringList, log);
        // Given from the home folder, as "~/..." paths are.
        QTemporaryDir dir(QDir::homePath() + "/scripts-XXXXXX");
        const QString path = dir.path() + "/script.sh", pidFile = dir.path() + "/script.pid";
        if (!script.isEmpty())
            writeFile(path, script, true);
        parameters.replaceInStrings("PIDFILE", pidFile);
        log.replaceInStrings("PIDFILE", pidFile);
        LogCapture capture;
        const QString result
            = VXUtilities::runShellScript("~/" + QDir::home().relativeFilePath(path),
                parameters == QStringList { "nil" } ? std::nullopt : std::optional(parameters),
                timeout);
        QCOMPARE(result.isNull(), expected == "<null>");
        if (!result.isNull())
            QCOMPARE(result, expected);
        QCOMPARE(capture.messages(), log);
        if (QFile::exists(pidFile)) {
            const pid_t pid = readFile(pidFile).trimmed().toInt();
            QVERIFY(pid > 0);
            QTRY_VERIFY(::kill(pid, 0) != 0);
        }
    }

    void shellCommandResult()
    {
        // Standard output only, as UTF-8 text.
        QCOMPARE(VXUtilities::shellCommandResult("printf 'h\\303\\244llo\\n'; echo oops >&2"),
            "hällo\n");
        QVERIFY(VXUtilities::shellCommandResult("printf '\\377'").isNull());
    }

    void fileSystemTypeFor_data()
    {
        // clang-format off
        QTest::addColumn<QString>("path"); // "tmpfs" for a fresh tmpfs mount
        QTest::addColumn<QString>("type");
        QTest::addColumn<int>("result");
        QTest::newRow("a tmpfs the test mounts") << "tmpfs" << "tmpfs" << 0;
        QTest::newRow("proc") << "/proc/self" << "proc" << 0;
        QTest::newRow("missing path") << "/nonexistent/quillet" << "" << -1;
        // clang-format on
    }

    void fileSystemTypeFor()
    {
        QFETCH(QString, path);
        QFETCH(QString, type);
        QFETCH(int, result);
        QTemporaryDir dir;
        const QString mnt = dir.path() + "/mnt";
        if (path == "tmpfs") {
            QDir().mkpath(mnt);
            if (::mount(
                    "quillet-test", mnt.toLocal8Bit(), "tmpfs", MS_NOSUID | MS_NODEV, "size=1m"))
                QSKIP(qPrintable("cannot mount a tmpfs here: " + QString(strerror(errno))));
            writeFile(path = mnt + "/inside/file");
        }
        LogCapture capture;
        const QString answer = VXUtilities::fileSystemTypeFor(path);
        if (path.startsWith(mnt))
            ::umount2(mnt.toLocal8Bit(), MNT_DETACH);
        QCOMPARE(answer, type);
        QCOMPARE(capture.messages(),
            QStringList({ "FS Info " + path, "statfs err = " + QString::number(result) }));
    }

    void dndRange_data()
    {
        // clang-format off
        QTest::addColumn<QVariant>("start");
        QTest::addColumn<QVariant>("end");
        QTest::addColumn<QDateTime>("now");
        QTest::addColumn<bool>("inRange");
        const QVariant night(1320), morning(420);
        QTest::newRow("22:00-07:00 at 23:30") << night << morning << at(23, 30) << true;
        QTest::newRow("22:00-07:00 at 06:59") << night << morning << at(6, 59) << true;
        QTest::newRow("22:00-07:00 at 07:00") << night << morning << at(7, 0) << false;
        QTest::newRow("daytime 09:00-17:00 at 12:00")
            << QVariant(540) << QVariant(1020) << at(12, 0) << true;
        QTest::newRow("start -60 is 23:00, at 23:30")
            << QVariant(-60) << morning << at(23, 30) << true;
        QTest::newRow("start -60 is 23:00, at 22:30")
            << QVariant(-60) << morning << at(22, 30) << false;
        QTest::newRow("below -1440 stays negative, at 23:30")
            << QVariant(-1500) << morning << at(23, 30) << false;
        QTest::newRow("below -1440 stays negative, at 03:00")
            << QVariant(-1500) << morning << at(3, 0) << true;
        QTest::newRow("equal ends: never") << QVariant(600) << QVariant(600) << at(10, 0) << false;
        QTest::newRow("numbers as text")
            << QVariant("1320") << QVariant(" 420") << at(23, 30) << true;
        QTest::newRow("nil start") << QVariant() << morning << at(23, 30) << false;
        QTest::newRow("a dictionary is no number")
            << QVariant(QVariantMap()) << morning << at(23, 30) << false;
        // clang-format on
    }

    void dndRange()
    {
        QFETCH(QVariant, start);
        QFETCH(QVariant, end);
        QFETCH(QDateTime, now);
        QFETCH(bool, inRange);
        VXUtilitiesPlatform::setClock([now] { return now; });
        QCOMPARE(VXUtilities::currentTimeInDNDRangeStartMinutes(start, end), inRange);
    }

    void doNotDisturbMode_data()
    {
        // clang-format off
        QTest::addColumn<QVariant>("prefs"); // a dictionary written as a property list, or bytes
        QTest::addColumn<bool>("bannersOff");
        QTest::addColumn<bool>("on");
        const QVariantMap schedule { { "enabled", 1 }, { "start", 1320 }, { "end", 420 } };
        QVariantMap off = schedule;
        off["enabled"] = 0;
        QTest::newRow("nothing set") << QVariant() << false << false;
        QTest::newRow("turned on by hand")
            << QVariant(QVariantMap { { "userPref", QVariantMap() } }) << false << true;
        QTest::newRow("schedule in force")
            << QVariant(QVariantMap { { "scheduledTime", schedule } }) << false << true;
        QTest::newRow("schedule switched off")
            << QVariant(QVariantMap { { "scheduledTime", off } }) << false << false;
        QTest::newRow("not a property list") << QVariant(QByteArray("garbage")) << false << false;
        QTest::newRow("GNOME banners off") << QVariant() << true << true;
        // clang-format on
    }

    void doNotDisturbMode()
    {
        QFETCH(QVariant, prefs);
        QFETCH(bool, bannersOff);
        QFETCH(bool, on);
        VXUtilitiesPlatform::setClock([] { return at(23, 30); });
        if (prefs.isValid())
            setSuite("com.apple.ncprefs", "dnd_prefs",
                prefs.metaType() == QMetaType::fromType<QVariantMap>()
                    ? VXPropertyList::toXml(prefs.toMap())
                    : prefs.toByteArray());
        if (bannersOff && !gnomeSchemas())
            QSKIP("GNOME's schemas are not installed");
        if (bannersOff)
            QVERIFY(
                gsettings({ "set", "org.gnome.desktop.notifications", "show-banners", "false" }));
        QCOMPARE(VXUtilities::doNotDisturbMode(), on);
    }

    void reducedTransparency()
    {
        QVERIFY(!VXUtilities::reducedTransparency());
        setSuite("com.apple.universalaccess", "reduceTransparency", true);
        QVERIFY(VXUtilities::reducedTransparency());
        if (!gnomeSchemas())
            return;
        // The desktop's own setting decides where it has one.
        QVERIFY(gsettings({ "set", "org.gnome.desktop.a11y.interface", "high-contrast", "true" }));
        QVERIFY(VXUtilities::reducedTransparency());
    }

    void safeHTTPS_data()
    {
        // clang-format off
        QTest::addColumn<std::optional<quint32>>("release");
        QTest::addColumn<QString>("minimum"); // httpsMinSys; empty for none
        QTest::addColumn<QString>("url");
        QTest::addColumn<QString>("expected");
        const QString https = "https://example.com/a?b=https:";
        const QString http = "http://example.com/a?b=https:";
        const std::optional<quint32> old(101200);
        QTest::newRow("10.12 gets http") << old << "" << https << http;
        QTest::newRow("10.13 keeps https")
            << std::optional<quint32>(101300) << "" << https << https;
        QTest::newRow("minimum out of range is ignored") << old << "120000" << https << http;
        QTest::newRow("lower minimum in range") << old << "101000" << https << https;
        // clang-format on
    }

    void safeHTTPS()
    {
        QFETCH(std::optional<quint32>, release);
        QFETCH(QString, minimum);
        QFETCH(QString, url);
        QFETCH(QString, expected);
        VXUtilitiesPlatform::setReleaseForThresholds(release);
        if (!minimum.isEmpty())
            VXUserDefaults::standard().setArguments({ "program", "-httpsMinSys", minimum });
        QCOMPARE(VXUtilities::safeHTTPS(url), expected);
    }

    void idleTimeFallsWithInput()
    {
        QTRY_VERIFY(VXUtilities::idleTime() > 0.3f);
        QElapsedTimer sinceBefore;
        sinceBefore.start();
        const float before = VXUtilities::idleTime();
        QCOMPARE(QProcess::execute("xdotool", { "mousemove", "17", "23" }), 0);
        const float after = VXUtilities::idleTime();
        // Input since the first reading: idle for less than the time since it
        // (without input it would be that time plus the first reading).
        QVERIFY(after >= 0.0f);
        QVERIFY2(after <= sinceBefore.elapsed() / 1000.0f + 0.002f,
            qPrintable(QString("%1 then %2").arg(before).arg(after)));
    }

private:
    QTemporaryDir m_systemConfig;
};

QTEST_GUILESS_MAIN(TestVXUserEnvironment)
#include "tst_vxuserenvironment.moc"

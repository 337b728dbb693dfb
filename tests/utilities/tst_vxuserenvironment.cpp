// SPDX-FileCopyrightText: 2026 Quillet developers
// SPDX-License-Identifier: MIT
//
// Scripts and shell commands as real child processes, file-system types of
// real mounts, Do Not Disturb, https on old systems, idle time on a real X
// server with injected input, and dark mode from a portal stand-in and from
// the desktop's theme on a private session bus.
#include "common/logcapture.h"
#include "common/testchild.h"
#include "common/testfiles.h"
#include "process/vxnotificationcenter.h"
#include "utilities/vxpropertylist.h"
#include "utilities/vxuserdefaults.h"
#include "utilities/vxutilities.h"
#include "utilities/vxutilities_p.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QProcess>
#include <QSettings>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>
#include <signal.h>
#include <sys/mount.h>

namespace {
const QString kHelpers = QStringLiteral(QUILLET_BINARY_DIR "/tests/helpers");

// Keys set by a test, reset after it.
QList<QStringList> g_setKeys;

bool gsettings(const QStringList &args)
{
    if (args.value(0) == "set")
        g_setKeys.append(args.mid(1, 2));
    return QProcess::execute(QStringLiteral("gsettings"), args) == 0;
}

bool gnomeSchemas()
{
    return QProcess::execute(
               QStringLiteral("gsettings"), { "list-keys", "org.gnome.desktop.notifications" })
        == 0;
}

QDateTime at(int hour, int minute)
{
    return QDateTime(QDate(2026, 11, 23), QTime(hour, minute));
}

bool alive(qint64 pid)
{
    return ::kill(pid_t(pid), 0) == 0;
}
} // namespace

class TestVXUserEnvironment : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void initTestCase();
    void cleanup();
    void runShellScript_data();
    void runShellScript();
    void scriptThatOutrunsItsTimeoutIsTerminated();
    void shellCommandResult_data();
    void shellCommandResult();
    void fileSystemTypeFor_data();
    void fileSystemTypeFor();
    void dndRange_data();
    void dndRange();
    void doNotDisturbMode_data();
    void doNotDisturbMode();
    void safeHTTPS_data();
    void safeHTTPS();
    void idleTimeFallsWithInput();
    void darkModeFollowsPortalAndTheme();
    void reducedTransparency();

private:
    QTemporaryDir m_dir;
};

void TestVXUserEnvironment::initTestCase()
{
    QVERIFY(m_dir.isValid());
    VXUtilities::initialize();
}

void TestVXUserEnvironment::cleanup()
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
}

void TestVXUserEnvironment::runShellScript_data()
{
    QTest::addColumn<QByteArray>("script");
    QTest::addColumn<QStringList>("parameters"); // "nil" alone for none
    QTest::addColumn<double>("timeout");
    QTest::addColumn<QString>("expected"); // "<null>" for a null result
    QTest::addColumn<QStringList>("log");
    QTest::newRow("output and errors together")
        << QByteArray("#!/bin/sh\necho out\necho err >&2\necho \"$#:$1\"\n")
        << QStringList { "a b" } << 10.0 << "out\nerr\n1:a b\n"
        << QStringList();
    QTest::newRow("no parameters at all")
        << QByteArray("#!/bin/sh\necho \"$#\"\n") << QStringList { "nil" } << 10.0 << "0\n"
        << QStringList();
    QTest::newRow("runs in the home folder, input empty")
        << QByteArray("#!/bin/sh\npwd\ncat\n") << QStringList() << 10.0 << QDir::homePath() + "\n"
        << QStringList();
    QTest::newRow("time-out of 0 ends a running script")
        << QByteArray("#!/bin/sh\nexec sleep 30\n") << QStringList { "nil" } << 0.0 << ""
        << QStringList { "script timeout: script.sh (null)" };
    QTest::newRow("output that is not UTF-8")
        << QByteArray("#!/bin/sh\nprintf '\\377\\376'\n") << QStringList() << 10.0 << "<null>"
        << QStringList { "error getting result: the output is not valid UTF-8 text" };
    QTest::newRow("no such script")
        << QByteArray() << QStringList() << 10.0
        << "script script.sh failed: execvp: No such file or directory" << QStringList();
}

void TestVXUserEnvironment::runShellScript()
{
    QFETCH(QByteArray, script);
    QFETCH(QStringList, parameters);
    QFETCH(double, timeout);
    QFETCH(QString, expected);
    QFETCH(QStringList, log);
    QTemporaryDir dir;
    const QString path = dir.path() + "/script.sh";
    if (!script.isEmpty())
        writeFile(path, script, true);
    const std::optional<QStringList> params
        = parameters == QStringList { "nil" } ? std::nullopt : std::optional(parameters);
    LogCapture capture;
    const QString result = VXUtilities::runShellScript(path, params, timeout);
    if (expected == "<null>")
        QVERIFY(result.isNull());
    else
        QCOMPARE(result, expected);
    QStringList messages = capture.messages();
    messages.removeAll("**Utilities initialized");
    QCOMPARE(messages, log);
}

void TestVXUserEnvironment::scriptThatOutrunsItsTimeoutIsTerminated()
{
    // The script reports its pid, then its partial output, then waits; a
    // TERM ends it, and everything it wrote comes back.
    const QString pidFile = m_dir.path() + "/script.pid";
    writeFile(m_dir.path() + "/slow.sh",
        "#!/bin/sh\necho $$ > \"$1\"\necho partial\nexec sleep 30\n", true);
    LogCapture capture;
    // Given from the home folder, as "~/..." paths are.
    const QString script
        = "~/" + QDir(QDir::homePath()).relativeFilePath(m_dir.path() + "/slow.sh");
    const QString result = VXUtilities::runShellScript(script, QStringList { pidFile }, 2.0);
    QCOMPARE(result, "partial\n");
    QVERIFY2(capture.messages().contains(
                 QString("script timeout: slow.sh (\n    \"%1\"\n)").arg(pidFile)),
        qPrintable(capture.text()));
    const qint64 pid = readFile(pidFile).trimmed().toLongLong();
    QVERIFY(pid > 0);
    QTRY_VERIFY(!alive(pid));
}

void TestVXUserEnvironment::shellCommandResult_data()
{
    QTest::addColumn<QString>("command");
    QTest::addColumn<QString>("expected"); // "<null>" for a null result
    QTest::newRow("standard output") << "printf 'h\\303\\244llo\\n'"
                                     << "hällo\n";
    QTest::newRow("errors are not captured") << "echo oops >&2"
                                             << "";
    QTest::newRow("not UTF-8") << "printf '\\377'"
                               << "<null>";
}

void TestVXUserEnvironment::shellCommandResult()
{
    QFETCH(QString, command);
    QFETCH(QString, expected);
    const QString result = VXUtilities::shellCommandResult(command);
    if (expected == "<null>")
        QVERIFY(result.isNull());
    else
        QCOMPARE(result, expected);
}

void TestVXUserEnvironment::fileSystemTypeFor_data()
{
    QTest::addColumn<QString>("path"); // "tmpfs" for a fresh tmpfs mount
    QTest::addColumn<QString>("type");
    QTest::addColumn<int>("result");
    QTest::newRow("a tmpfs the test mounts") << "tmpfs"
                                             << "tmpfs" << 0;
    QTest::newRow("proc") << "/proc/self"
                          << "proc" << 0;
    QTest::newRow("missing path") << "/nonexistent/quillet"
                                  << "" << -1;
}

void TestVXUserEnvironment::fileSystemTypeFor()
{
    QFETCH(QString, path);
    QFETCH(QString, type);
    QFETCH(int, result);
    QTemporaryDir dir;
    bool mounted = false;
    if (path == "tmpfs") {
        path = dir.path() + "/mnt";
        QDir().mkpath(path);
        if (::mount("quillet-test", path.toLocal8Bit().constData(), "tmpfs", MS_NOSUID | MS_NODEV,
                "size=1m")
            != 0)
            QSKIP(qPrintable(
                "cannot mount a tmpfs here: " + QString::fromLocal8Bit(strerror(errno))));
        mounted = true;
        writeFile(path + "/inside/file");
        path += "/inside/file";
    }
    LogCapture capture;
    const QString answer = VXUtilities::fileSystemTypeFor(path);
    if (mounted)
        ::umount2(QFileInfo(dir.path() + "/mnt").filePath().toLocal8Bit().constData(), MNT_DETACH);
    QCOMPARE(answer, type);
    QStringList messages = capture.messages();
    messages.removeAll("**Utilities initialized");
    QCOMPARE(messages, QStringList({ "FS Info " + path, QString("statfs err = %1").arg(result) }));
}

void TestVXUserEnvironment::dndRange_data()
{
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
    QTest::newRow("start -60 is 23:00, at 23:30") << QVariant(-60) << morning << at(23, 30) << true;
    QTest::newRow("start -60 is 23:00, at 22:30")
        << QVariant(-60) << morning << at(22, 30) << false;
    QTest::newRow("below -1440 stays negative, at 23:30")
        << QVariant(-1500) << morning << at(23, 30) << false;
    QTest::newRow("below -1440 stays negative, at 03:00")
        << QVariant(-1500) << morning << at(3, 0) << true;
    QTest::newRow("equal ends: never") << QVariant(600) << QVariant(600) << at(10, 0) << false;
    QTest::newRow("numbers as text") << QVariant("1320") << QVariant(" 420") << at(23, 30) << true;
    QTest::newRow("nil start") << QVariant() << morning << at(23, 30) << false;
    QTest::newRow("a dictionary is no number")
        << QVariant(QVariantMap()) << morning << at(23, 30) << false;
}

void TestVXUserEnvironment::dndRange()
{
    QFETCH(QVariant, start);
    QFETCH(QVariant, end);
    QFETCH(QDateTime, now);
    QFETCH(bool, inRange);
    VXUtilitiesPlatform::setClock([now] { return now; });
    QCOMPARE(VXUtilities::currentTimeInDNDRangeStartMinutes(start, end), inRange);
}

void TestVXUserEnvironment::doNotDisturbMode_data()
{
    QTest::addColumn<QVariant>("prefs"); // a dictionary written as a property list, or raw bytes
    QTest::addColumn<bool>("bannersOff");
    QTest::addColumn<bool>("on");
    const QVariantMap schedule { { "enabled", 1 }, { "start", 1320 }, { "end", 420 } };
    QTest::newRow("nothing set") << QVariant() << false << false;
    QTest::newRow("turned on by hand")
        << QVariant(QVariantMap { { "userPref", QVariantMap() } }) << false << true;
    QTest::newRow("schedule in force")
        << QVariant(QVariantMap { { "scheduledTime", schedule } }) << false << true;
    QVariantMap off = schedule;
    off["enabled"] = 0;
    QTest::newRow("schedule switched off")
        << QVariant(QVariantMap { { "scheduledTime", off } }) << false << false;
    QTest::newRow("not a property list") << QVariant(QByteArray("garbage")) << false << false;
    QTest::newRow("GNOME banners off") << QVariant() << true << true;
}

void TestVXUserEnvironment::doNotDisturbMode()
{
    QFETCH(QVariant, prefs);
    QFETCH(bool, bannersOff);
    QFETCH(bool, on);
    VXUtilitiesPlatform::setClock([] { return at(23, 30); });
    if (prefs.isValid()) {
        const auto suite = VXUserDefaults::suite("com.apple.ncprefs");
        suite->setValue("dnd_prefs",
            prefs.metaType() == QMetaType::fromType<QVariantMap>()
                ? VXPropertyList::toXml(prefs.toMap())
                : prefs.toByteArray());
        suite->sync();
    }
    if (bannersOff) {
        if (!gnomeSchemas())
            QSKIP("GNOME's schemas are not installed");
        QVERIFY(gsettings({ "set", "org.gnome.desktop.notifications", "show-banners", "false" }));
    }
    QCOMPARE(VXUtilities::doNotDisturbMode(), on);
}

void TestVXUserEnvironment::safeHTTPS_data()
{
    QTest::addColumn<std::optional<quint32>>("release"); // nullopt: this system
    QTest::addColumn<QString>("minimum"); // httpsMinSys; empty for none
    QTest::addColumn<QString>("url");
    QTest::addColumn<QString>("expected");
    const QString https = "https://example.com/a?b=https:";
    const QString http = "http://example.com/a?b=https:";
    QTest::newRow("this system keeps https") << std::optional<quint32>() << "" << https << https;
    QTest::newRow("10.12 gets http") << std::optional<quint32>(101200) << "" << https << http;
    QTest::newRow("10.13 keeps https") << std::optional<quint32>(101300) << "" << https << https;
    QTest::newRow("minimum out of range is ignored")
        << std::optional<quint32>(101200) << "120000" << https << http;
    QTest::newRow("lower minimum in range")
        << std::optional<quint32>(101200) << "101000" << https << https;
    QTest::newRow("http stays as it is") << std::optional<quint32>(101200) << ""
                                         << "http://x/"
                                         << "http://x/";
}

void TestVXUserEnvironment::safeHTTPS()
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

void TestVXUserEnvironment::idleTimeFallsWithInput()
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

void TestVXUserEnvironment::darkModeFollowsPortalAndTheme()
{
    QSignalSpy spy(VXNotificationCenter::defaultCenter(), &VXNotificationCenter::notified);
    auto themeChanges = [&] {
        return std::count_if(spy.cbegin(), spy.cend(), [](const QList<QVariant> &args) {
            return args.at(0).toString() == "AppleInterfaceThemeChangedNotification";
        });
    };
    QVERIFY(!VXUtilities::darkAppearance());

    if (gnomeSchemas()) {
        QVERIFY(gsettings({ "set", "org.gnome.desktop.interface", "gtk-theme", "Adwaita-dark" }));
        QTRY_VERIFY(themeChanges() > 0);
        QVERIFY(VXUtilities::darkAppearance());
        QVERIFY(VXUtilities::darkMenuTheme());
    }

    TestChild portal(kHelpers + "/portalstandin");
    QVERIFY(portal.waitReady());
    auto set = [&](const QByteArray &line) {
        spy.clear();
        portal.process.write("org.freedesktop.appearance color-scheme " + line + "\n");
        for (int i = 0; i < 100 && !portal.process.canReadLine(); ++i)
            portal.process.waitForReadyRead(100);
        return portal.process.readLine().startsWith("set");
    };
    QVERIFY(set("u 2"));
    QTRY_VERIFY(themeChanges() > 0);
    QVERIFY(!VXUtilities::darkAppearance()); // the portal's light outranks the dark theme
    QVERIFY(set("u 1"));
    QTRY_VERIFY(themeChanges() > 0);
    QVERIFY(VXUtilities::darkAppearance());
    QVERIFY(VXUtilities::darkMenuTheme());
}

void TestVXUserEnvironment::reducedTransparency()
{
    QVERIFY(!VXUtilities::reducedTransparency());
    {
        const auto suite = VXUserDefaults::suite("com.apple.universalaccess");
        suite->setValue("reduceTransparency", true);
        suite->sync();
    }
    QVERIFY(VXUtilities::reducedTransparency());
    if (!gnomeSchemas())
        return;
    // The desktop's own setting decides where it has one.
    QVERIFY(gsettings({ "set", "org.gnome.desktop.a11y.interface", "high-contrast", "true" }));
    QVERIFY(VXUtilities::reducedTransparency());
}

QTEST_GUILESS_MAIN(TestVXUserEnvironment)
#include "tst_vxuserenvironment.moc"

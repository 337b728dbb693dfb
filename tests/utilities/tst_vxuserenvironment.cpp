// SPDX-FileCopyrightText: 2026 Quillet developers
// SPDX-License-Identifier: MIT
//
// The desktop's appearance from a portal stand-in on the private session
// bus, from GNOME's settings (written with the gsettings command through
// dconf) and from kdeglobals; scripts and shell commands as real child
// processes, file-system types of real mounts, Do Not Disturb, idle time on
// a real X server with injected input; where and how
// the application was started, the companion "Micro", aliases and the
// clipboard publisher, with a window manager on that X server.
#include "common/logcapture.h"
#include "common/testchild.h"
#include "common/testfiles.h"
#include "common/testrow.h"
#include "portal.h"
#include "process/vxnotificationcenter.h"
#include "process/vxprocess.h"
#include "utilities/desktopappearance.h"
#include "utilities/vxbundle.h"
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
#include <X11/Xatom.h>
#include <X11/Xlib.h>
#include <signal.h>
#include <sys/mount.h>
#include <unistd.h>

#undef None // X11's, which would hide Source::None

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

// Returns once the desktop's settings have been quiet for half a second:
// GNOME's settings (through dconf) and kdeglobals announce a change, or a
// clean-up's reset, some time after it was made.
void settle()
{
    QSignalSpy spy(Notifier::instance(), &Notifier::changed);
    for (int i = 0; i < 20 && spy.wait(500); ++i) { }
}

QString kdeglobals()
{
    return QStandardPaths::writableLocation(QStandardPaths::GenericConfigLocation) + "/kdeglobals";
}

QDateTime at(int hour, int minute)
{
    return QDateTime(QDate(2026, 11, 23), QTime(hour, minute));
}

// A bundle whose executable is a copy of a program (or a script).
QString makeBundle(const QString &path, const QVariantMap &info, const QByteArray &executable)
{
    const QString name = QFileInfo(path).completeBaseName();
    QVariantMap dict = info;
    dict.insert("CFBundleExecutable", name);
    writeFile(path + "/Contents/Info.plist", VXPropertyList::toXml(dict));
    writeFile(path + "/Contents/Linux/" + name, executable, true);
    return path + "/Contents/Linux/" + name;
}

// What the window manager and other clients do to the X server.
struct X
{
    Display *d = XOpenDisplay(nullptr); // closed with the process
    // EWMH _NET_WM_STATE request, as a pager or the window itself sends it.
    void setFullScreen(Window w, bool on)
    {
        XEvent e {};
        e.xclient.type = ClientMessage;
        e.xclient.window = w;
        e.xclient.message_type = XInternAtom(d, "_NET_WM_STATE", False);
        e.xclient.format = 32;
        e.xclient.data.l[0] = on ? 1 : 0;
        e.xclient.data.l[1] = long(XInternAtom(d, "_NET_WM_STATE_FULLSCREEN", False));
        e.xclient.data.l[3] = 2;
        XSendEvent(
            d, DefaultRootWindow(d), False, SubstructureRedirectMask | SubstructureNotifyMask, &e);
        XFlush(d);
    }
    // A top-level window of this process, mapped.
    Window makeWindow()
    {
        const Window w = XCreateSimpleWindow(d, DefaultRootWindow(d), 0, 0, 200, 100, 0, 0, 0);
        const unsigned long pid = ::getpid();
        XChangeProperty(d, w, XInternAtom(d, "_NET_WM_PID", False), XA_CARDINAL, 32,
            PropModeReplace, reinterpret_cast<const unsigned char *>(&pid), 1);
        XMapWindow(d, w);
        XSync(d, False);
        return w;
    }
    // Takes the clipboard, as any application's copy does.
    void copy()
    {
        static Window owner = XCreateSimpleWindow(d, DefaultRootWindow(d), 0, 0, 1, 1, 0, 0, 0);
        XSetSelectionOwner(d, XInternAtom(d, "CLIPBOARD", False), owner, CurrentTime);
        XSync(d, False);
    }
};

// Another application's window, brought to the front as a user would.
struct App : TestChild
{
    explicit App(const QString &title)
        : TestChild(kHelpers + "/windowapp", { title })
    { }
    bool bringForward()
    {
        if (const VXProcessPtr p = VXProcess::processWithPID(pid()))
            p->setFrontProcess();
        return QTest::qWaitFor([&] {
            const VXProcessPtr front = VXProcess::frontProcess();
            return front && front->unixPID() == pid();
        });
    }
};

qint32 publisher()
{
    const VXProcessPtr p = VXUtilities::clipboardPublisherProcess();
    return p ? p->unixPID() : 0;
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
        QVERIFY(m_x.d);
        LogCapture log;
        VXUtilities::initialize();
        VXUtilities::initialize();
        QCOMPARE(log.messages().count("**Utilities initialized"), 1);
        // Installs the handler before anything goes full screen.
        QVERIFY(!VXUtilities::fullScreenMode());
    }

    void cleanup()
    {
        VXUtilitiesPlatform::setClock({});
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
        VXUtilitiesPlatform::setSystemRoot(QString());
        VXBundle::setMainBundlePath(QString());
    }

    // The colour scheme and the accent, and where they came from: the portal
    // stand-in, GNOME's settings and kdeglobals.
    void colorSchemeAndAccent_data()
    {
        QTest::addColumn<QStringList>("portal"); // its options, then settings; empty: none
        QTest::addColumn<QString>("desktop");
        QTest::addColumn<QString>("gnome"); // color-scheme
        QTest::addColumn<QByteArray>("kde");
        QTest::addColumn<ColorScheme>("scheme");
        QTest::addColumn<Source>("source");
        QTest::addColumn<std::optional<Rgb>>("accent");
        const QByteArray kdeDark = "[General]\nColorScheme=BreezeDark\nAccentColor=61,174,233\n"
                                   "[Colors:Window]\nBackgroundNormal=32,35,38\n";
        const std::optional<Rgb> none, kdeAccent(Rgb { 61 / 255.0, 174 / 255.0, 233 / 255.0 });
        const QStringList noPortal;
        row("older portal: Read, doubly wrapped",
            QStringList { "--read-only", "color-scheme u 2", "accent-color rgb 1 0 0" }, "", "",
            QByteArray(), ColorScheme::Light, Source::Portal, std::optional(Rgb { 1, 0, 0 }));
        row("portal without preference gives way to GNOME", QStringList { "color-scheme u 0" },
            "GNOME", "prefer-dark", QByteArray(), ColorScheme::Dark, Source::Gnome, none);
        row("portal accent out of range is unset",
            QStringList { "color-scheme u 1", "accent-color rgb -1 -1 -1" }, "", "", QByteArray(),
            ColorScheme::Dark, Source::Portal, none);
        row("portal that never answers", QStringList { "--silent" }, "", "", QByteArray(),
            ColorScheme::NoPreference, Source::None, none);
        row("GNOME prefers dark", noPortal, "GNOME", "prefer-dark", QByteArray(), ColorScheme::Dark,
            Source::Gnome, none);
        row("KDE window colour and accent", noPortal, "KDE", "", kdeDark, ColorScheme::Dark,
            Source::Kde, kdeAccent);
        row("KDE asked first on Plasma", noPortal, "KDE", "prefer-light", kdeDark,
            ColorScheme::Dark, Source::Kde, kdeAccent);
        row("KDE colours that do not parse", noPortal, "KDE", "",
            QByteArray("[General]\nAccentColor=red\n[Colors:Window]\nBackgroundNormal=1,2\n"),
            ColorScheme::NoPreference, Source::None, none);
    }

    void colorSchemeAndAccent()
    {
        QFETCH(QStringList, portal);
        QFETCH(QString, desktop);
        QFETCH(QString, gnome);
        QFETCH(QByteArray, kde);
        QFETCH(ColorScheme, scheme);
        QFETCH(Source, source);
        QFETCH(std::optional<Rgb>, accent);
        if (!gnome.isEmpty() && !gnomeSchemas())
            QSKIP("GNOME's schemas are not installed");
        std::optional<Portal> stand;
        if (!portal.isEmpty()) {
            stand.emplace(portal.filter(QRegularExpression("^--")));
            QVERIFY(stand->waitReady());
            for (const QString &setting : portal.filter(QRegularExpression("^[^-]")))
                QVERIFY(stand->set(setting));
        }
        if (!desktop.isEmpty())
            qputenv("XDG_CURRENT_DESKTOP", desktop.toUtf8());
        QSignalSpy spy(Notifier::instance(), &Notifier::changed);
        if (!gnome.isEmpty())
            QVERIFY(gsettings({ "set", "org.gnome.desktop.interface", "color-scheme", gnome }));
        if (!kde.isEmpty())
            writeFile(kdeglobals(), kde);
        if (!gnome.isEmpty() || !kde.isEmpty())
            QTRY_VERIFY(!spy.isEmpty()); // each change is announced, whichever desktop it came from
        Source from = Source::Portal; // overwritten by every answer
        QCOMPARE(colorScheme(&from), scheme);
        QCOMPARE(from, source);
        QCOMPARE(isDark(), scheme == ColorScheme::Dark);
        QCOMPARE(accentColor(), accent);
        QCOMPARE(colorScheme(), scheme); // a portal that hung once is not waited for again
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
        settle();
        QVERIFY(!VXUtilities::darkAppearance());
        if (gnomeSchemas()) {
            QVERIFY(
                gsettings({ "set", "org.gnome.desktop.interface", "gtk-theme", "Adwaita-dark" }));
            QTRY_VERIFY(themeChanges() > 0);
            QVERIFY(VXUtilities::darkAppearance() && VXUtilities::darkMenuTheme());
            settle();
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
        QTest::addColumn<QByteArray>("script");
        QTest::addColumn<QStringList>("parameters"); // "nil" alone for none
        QTest::addColumn<double>("timeout");
        QTest::addColumn<QString>("expected"); // "<null>" for a null result
        QTest::addColumn<QStringList>("log"); // PIDFILE: where the script writes its pid
        const QStringList nil { "nil" }, none;
        row("output and errors together",
            QByteArray("#!/bin/sh\necho out\necho err >&2\necho \"$#:$1\"\n"),
            QStringList { "a b" }, 10.0, "out\nerr\n1:a b\n", none);
        row("no parameters at all, in the home folder, input empty",
            QByteArray("#!/bin/sh\necho \"$#\"\npwd\ncat\n"), nil, 10.0,
            "0\n" + QDir::homePath() + "\n", none);
        // Terminated, logged, and what it wrote comes back.
        row("outruns its time-out",
            QByteArray("#!/bin/sh\necho $$ > \"$1\"\necho partial\nexec sleep 30\n"),
            QStringList { "PIDFILE" }, 2.0, "partial\n",
            QStringList { "script timeout: script.sh (\n    \"PIDFILE\"\n)" });
        row("time-out of 0 ends a running script", QByteArray("#!/bin/sh\nexec sleep 30\n"), nil,
            0.0, "", QStringList { "script timeout: script.sh (null)" });
        row("output that is not UTF-8", QByteArray("#!/bin/sh\nprintf '\\377\\376'\n"), none, 10.0,
            "<null>", QStringList { "error getting result: the output is not valid UTF-8 text" });
        row("no such script", QByteArray(), none, 10.0,
            "script script.sh failed: execvp: No such file or directory", none);
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

    void fileSystemTypeFor()
    {
        // A missing path, then a tmpfs the test mounts.
        LogCapture capture;
        QCOMPARE(VXUtilities::fileSystemTypeFor("/nonexistent/quillet"), "");
        QTemporaryDir dir;
        const QString mnt = dir.path() + "/mnt", path = mnt + "/inside/file";
        QDir().mkpath(mnt);
        if (::mount("quillet-test", mnt.toLocal8Bit(), "tmpfs", MS_NOSUID | MS_NODEV, "size=1m"))
            QSKIP(qPrintable("cannot mount a tmpfs here: " + QString(strerror(errno))));
        writeFile(path);
        const QString type = VXUtilities::fileSystemTypeFor(path);
        ::umount2(mnt.toLocal8Bit(), MNT_DETACH);
        QCOMPARE(type, "tmpfs");
        QCOMPARE(capture.messages(),
            QStringList({ "FS Info /nonexistent/quillet", "statfs err = -1", "FS Info " + path,
                "statfs err = 0" }));
    }

    void dndRange_data()
    {
        QTest::addColumn<QVariant>("start");
        QTest::addColumn<QVariant>("end");
        QTest::addColumn<QDateTime>("now");
        QTest::addColumn<bool>("inRange");
        // 22:00-07:00 at 23:30 is the desktop switches' schedule in force.
        const QVariant night(1320), morning(420);
        row("22:00-07:00 at 06:59", night, morning, at(6, 59), true);
        row("22:00-07:00 at 07:00", night, morning, at(7, 0), false);
        row("daytime 09:00-17:00 at 12:00", QVariant(540), QVariant(1020), at(12, 0), true);
        row("start -60 is 23:00, at 23:30", QVariant(-60), morning, at(23, 30), true);
        row("start -60 is 23:00, at 22:30", QVariant(-60), morning, at(22, 30), false);
        row("below -1440 stays negative, at 23:30", QVariant(-1500), morning, at(23, 30), false);
        row("below -1440 stays negative, at 03:00", QVariant(-1500), morning, at(3, 0), true);
        row("equal ends: never", QVariant(600), QVariant(600), at(10, 0), false);
        row("numbers as text", QVariant("1320"), QVariant(" 420"), at(23, 30), true);
        row("nil start", QVariant(), morning, at(23, 30), false);
        row("a dictionary is no number", QVariant(QVariantMap()), morning, at(23, 30), false);
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

    // Desktop settings that switch a behaviour on: the user defaults' suites,
    // and GNOME's own where it has one.
    void desktopSwitches_data()
    {
        QTest::addColumn<QString>("ask");
        QTest::addColumn<QStringList>("suite"); // suite, key
        QTest::addColumn<QVariant>("value"); // a dictionary is written as a property list
        QTest::addColumn<QStringList>("gnome"); // schema, key, value
        QTest::addColumn<bool>("on");
        const QStringList dnd { "com.apple.ncprefs", "dnd_prefs" }, none;
        const QVariantMap schedule { { "enabled", 1 }, { "start", 1320 }, { "end", 420 } };
        row("Do Not Disturb: nothing set", "dnd", none, QVariant(), none, false);
        row("Do Not Disturb: turned on by hand", "dnd", dnd,
            QVariant(QVariantMap { { "userPref", QVariantMap() } }), none, true);
        row("Do Not Disturb: schedule in force", "dnd", dnd,
            QVariant(QVariantMap { { "scheduledTime", schedule } }), none, true);
        row("Do Not Disturb: not a property list", "dnd", dnd, QVariant(QByteArray("garbage")),
            none, false);
        row("Do Not Disturb: GNOME banners off", "dnd", none, QVariant(),
            QStringList { "org.gnome.desktop.notifications", "show-banners", "false" }, true);
        row("reduced transparency: nothing set", "transparency", none, QVariant(), none, false);
        row("reduced transparency: the suite", "transparency",
            QStringList { "com.apple.universalaccess", "reduceTransparency" }, QVariant(true), none,
            true);
        row("reduced transparency: GNOME high contrast", "transparency", none, QVariant(),
            QStringList { "org.gnome.desktop.a11y.interface", "high-contrast", "true" }, true);
    }

    void desktopSwitches()
    {
        QFETCH(QString, ask);
        QFETCH(QStringList, suite);
        QFETCH(QVariant, value);
        QFETCH(QStringList, gnome);
        QFETCH(bool, on);
        VXUtilitiesPlatform::setClock([] { return at(23, 30); });
        if (!suite.isEmpty()) {
            const auto s = VXUserDefaults::suite(suite[0]);
            s->setValue(suite[1],
                value.metaType() == QMetaType::fromType<QVariantMap>()
                    ? QVariant(VXPropertyList::toXml(value.toMap()))
                    : value);
            s->sync();
        }
        if (!gnome.isEmpty() && !gnomeSchemas())
            QSKIP("GNOME's schemas are not installed");
        if (!gnome.isEmpty())
            QVERIFY(gsettings(QStringList { "set" } + gnome));
        QCOMPARE(
            ask == "dnd" ? VXUtilities::doNotDisturbMode() : VXUtilities::reducedTransparency(),
            on);
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

    void clipboardPublisherFollowsCopiesAndSwitches()
    {
        QCOMPARE(publisher(), 0); // before any switch, with the clipboard untouched
        App a("A"), b("B");
        QVERIFY(a.waitReady() && b.waitReady());
        QVERIFY(a.bringForward());
        QCOMPARE(publisher(), 0);
        m_x.copy(); // while A is in front
        QVERIFY(b.bringForward());
        QCOMPARE(publisher(), a.pid());
        m_x.copy(); // while B is in front, no switch since
        QCOMPARE(publisher(), b.pid());
    }

    void distributionDisk_data()
    {
        QTest::addColumn<QString>("bundle"); // under /Volumes/Disk unless absolute
        QTest::addColumn<QString>("marker"); // the same
        QTest::addColumn<QString>("mountPoint"); // a removable medium's, as mountinfo writes it
        QTest::addColumn<bool>("onDisk");
        QTest::addColumn<bool>("installing");
        row("launchlock at the volume root", "App.app", "launchlock", "", true, true);
        row(".launchlock, bundle deeper", "Apps/Tools/App.app", ".launchlock", "", true, true);
        row("neither marker", "App.app", "", "", false, false);
        row("marker beside the bundle is not at the root", "Apps/App.app", "Apps/launchlock", "",
            false, false);
        row("/Volumes/ alone", "/Volumes/", "/Volumes/launchlock", "", false, false);
        row("removable medium under /run/media", "/run/media/ann/My Disk/App.app",
            "/run/media/ann/My Disk/.launchlock", "/run/media/ann/My\\040Disk", true, true);
        row("/media folder that is no mount", "/media/ann/Disk/App.app",
            "/media/ann/Disk/launchlock", "", false, false);
        row("temporary copy", "/var/tmp/App.app", "", "", false, true);
    }

    void distributionDisk()
    {
        QFETCH(QString, bundle);
        QFETCH(QString, marker);
        QFETCH(QString, mountPoint);
        QFETCH(bool, onDisk);
        QFETCH(bool, installing);
        QTemporaryDir root;
        const auto onVolume
            = [](const QString &p) { return p[0] == '/' ? p : "/Volumes/Disk/" + p; };
        if (!marker.isEmpty())
            writeFile(root.path() + onVolume(marker));
        QByteArray mountinfo = "22 1 8:1 / / rw,relatime - ext4 /dev/sda1 rw\n";
        if (!mountPoint.isEmpty())
            mountinfo += "40 22 8:17 / " + mountPoint.toUtf8() + " rw,nosuid - vfat /dev/sdb1 rw\n";
        writeFile(root.path() + "/proc/self/mountinfo", mountinfo);
        VXUtilitiesPlatform::setSystemRoot(root.path());
        VXBundle::setMainBundlePath(onVolume(bundle));
        QCOMPARE(VXUtilities::runningFromDistributionDisk(), onDisk);
        QCOMPARE(VXUtilities::installationMode(), installing);
    }

    void resolvedAliasFollowsLinksToTheirEnd()
    {
        QTemporaryDir dir;
        const QString d = QFileInfo(dir.path()).canonicalFilePath() + '/';
        writeFile(d + "target.txt", "x");
        QFile::link(d + "target.txt", d + "third");
        QFile::link("third", d + "second"); // relative on purpose
        QFile::link(d + "second", d + "first");
        QFile::link(d + "gone", d + "dangling");
        QFile::link(d + "loop2", d + "loop1");
        QFile::link(d + "loop1", d + "loop2");
        QCOMPARE(VXUtilities::resolvedAlias(d + "first"), d + "target.txt");
        // A plain file, a missing path, a link to nowhere and a loop: the path itself.
        for (const QString path : { "target.txt", "nothing", "dangling", "loop1" })
            QCOMPARE(VXUtilities::resolvedAlias(d + path), d + path);
    }

    void launchedBy_data()
    {
        QTest::addColumn<QString>("launcher"); // how the asking child is started
        QTest::addColumn<QString>("code");
        QTest::addColumn<QString>("answers"); // launched by code, login item, debugging
        row("bundled launcher with that signature", "bundle", "TSTL", "yes no no");
        row("bundled launcher, other code", "bundle", "ABCD", "no no no");
        row("session manager starts it", "xfce4-session", "lgnw", "yes yes no");
        row("started by a plain program", "plain", "lgnw", "no no no");
        row("traced by its launcher", "traced", "TSTL", "no no yes");
    }

    void launchedBy()
    {
        QFETCH(QString, launcher);
        QFETCH(QString, code);
        QFETCH(QString, answers);
        QTemporaryDir dir;
        const QString helper = kHelpers + "/launchcontext";
        QString program = helper;
        if (launcher == "bundle")
            program = makeBundle(dir.path() + "/Launcher.app", { { "CFBundleSignature", "TSTL" } },
                readFile(helper));
        else if (launcher == "xfce4-session")
            writeFile(program = dir.path() + "/xfce4-session", readFile(helper), true);
        QStringList args { launcher == "traced" ? "traced" : "spawn", helper, "ask", code };
        QProcess p;
        p.setProcessChannelMode(QProcess::ForwardedErrorChannel);
        p.start(program, launcher == "plain" ? args.mid(2) : args);
        QVERIFY(p.waitForFinished());
        QCOMPARE(p.exitCode(), 0);
        const QStringList a = answers.split(' ');
        QCOMPARE(p.readAllStandardOutput(),
            QString("launched by %1: %2\nlogin item: %3\ndebugging: %4\n")
                .arg(code, a[0], a[1], a[2])
                .toUtf8());
    }

    void launchMicroWaitsAndStartsNothingInFullScreen()
    {
        const QString host = m_dir.path() + "/Host.app";
        makeBundle(host, {}, "#!/bin/sh\nexit 0\n");
        const QString started = makeBundle(host + "/Contents/Resources/Micro.app", {},
                                    "#!/bin/sh\ntouch \"$0.started\"\n")
            + ".started";
        VXBundle::setMainBundlePath(host);
        // Our own plain X window in front: a toolkit's window may argue with the
        // window manager about its state.
        const Window window = m_x.makeWindow();
        QTRY_VERIFY(VXProcess::frontProcess() && VXProcess::frontProcess()->unixPID() == getpid());
        for (const bool fullScreen : { false, true }) {
            m_x.setFullScreen(window, fullScreen);
            QTRY_COMPARE(VXUtilities::fullScreenMode(), fullScreen);
            LogCapture log;
            VXUtilities::launchMicro(!fullScreen);
            // In full screen nothing is waited for and nothing is started.
            QCOMPARE(log.messages().filter("wait count"),
                QStringList(
                    fullScreen ? QStringList() : QStringList { "wait count (Micro) = 500" }));
            QTRY_COMPARE(QFile::exists(started), !fullScreen);
            QFile::remove(started);
            QCOMPARE(VXProcess::frontProcess()->unixPID(), qint32(::getpid())); // still in front
        }
        m_x.setFullScreen(window, false);
        QTRY_VERIFY(!VXUtilities::fullScreenMode());
    }

private:
    QTemporaryDir m_systemConfig, m_dir;
    X m_x;
};

QTEST_GUILESS_MAIN(TestVXUserEnvironment)
#include "tst_vxuserenvironment.moc"

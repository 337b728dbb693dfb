// SPDX-FileCopyrightText: 2026 Quillet developers
// SPDX-License-Identifier: MIT
//
// Where and how the application was started, the companion "Micro", aliases
// and the clipboard publisher: real files, real child processes, a real X
// server with a window manager and a private session bus.
#include "common/logcapture.h"
#include "common/testchild.h"
#include "common/testfiles.h"
#include "process/vxprocess.h"
#include "utilities/vxbundle.h"
#include "utilities/vxpropertylist.h"
#include "utilities/vxutilities.h"
#include "utilities/vxutilities_p.h"

#include <QCoreApplication>
#include <QTemporaryDir>
#include <QTest>
#include <X11/Xatom.h>
#include <X11/Xlib.h>
#include <unistd.h>

namespace {
const QString kHelpers = QUILLET_BINARY_DIR "/tests/helpers";

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
    Display *d = XOpenDisplay(nullptr);
    ~X()
    {
        if (d)
            XCloseDisplay(d);
    }
    Window active() const
    {
        QProcess p;
        p.start("xdotool", { "getactivewindow" });
        return p.waitForFinished() ? p.readAllStandardOutput().trimmed().toULong() : None;
    }
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
        const VXProcessPtr p = VXProcess::processWithPID(pid());
        if (!p)
            return false;
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

class TestVXLaunchContext : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void initTestCase()
    {
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
        VXUtilitiesPlatform::setSystemRoot(QString());
        VXBundle::setMainBundlePath(QString());
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
        // clang-format off
        QTest::addColumn<QString>("bundle"); // under /Volumes/Disk unless absolute
        QTest::addColumn<QString>("marker"); // the same
        QTest::addColumn<QString>("mountPoint"); // a removable medium's, as mountinfo writes it
        QTest::addColumn<bool>("onDisk");
        QTest::addColumn<bool>("installing");
        QTest::newRow("launchlock at the volume root")
            << "App.app" << "launchlock" << "" << true << true;
        QTest::newRow(".launchlock, bundle deeper")
            << "Apps/Tools/App.app" << ".launchlock" << "" << true << true;
        QTest::newRow("neither marker") << "App.app" << "" << "" << false << false;
        QTest::newRow("marker beside the bundle is not at the root")
            << "Apps/App.app" << "Apps/launchlock" << "" << false << false;
        QTest::newRow("/Volumes/ alone")
            << "/Volumes/" << "/Volumes/launchlock" << "" << false << false;
        QTest::newRow("removable medium under /run/media")
            << "/run/media/ann/My Disk/App.app" << "/run/media/ann/My Disk/.launchlock"
            << "/run/media/ann/My\\040Disk" << true << true;
        QTest::newRow("/media folder that is no mount")
            << "/media/ann/Disk/App.app" << "/media/ann/Disk/launchlock" << "" << false << false;
        QTest::newRow("translocated")
            << "/private/var/folders/zz/T/AppTranslocation/1F/d/App.app" << "" << "" << false
            << true;
        QTest::newRow("temporary copy") << "/var/tmp/App.app" << "" << "" << false << true;
        // clang-format on
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

    void resolvedAlias_data()
    {
        // clang-format off
        QTest::addColumn<QString>("path"); // in a fresh folder
        QTest::addColumn<QString>("expected"); // "=" for the path itself
        QTest::newRow("chain of links") << "first" << "target.txt";
        QTest::newRow("plain file") << "target.txt" << "=";
        QTest::newRow("missing path") << "nothing" << "=";
        QTest::newRow("link to nowhere") << "dangling" << "=";
        QTest::newRow("loop") << "loop1" << "=";
        // clang-format on
    }

    void resolvedAlias()
    {
        QFETCH(QString, path);
        QFETCH(QString, expected);
        QTemporaryDir dir;
        const QString d = QFileInfo(dir.path()).canonicalFilePath() + '/';
        writeFile(d + "target.txt", "x");
        QFile::link(d + "target.txt", d + "third");
        QFile::link("third", d + "second"); // relative on purpose
        QFile::link(d + "second", d + "first");
        QFile::link(d + "gone", d + "dangling");
        QFile::link(d + "loop2", d + "loop1");
        QFile::link(d + "loop1", d + "loop2");
        QCOMPARE(VXUtilities::resolvedAlias(d + path), d + (expected == "=" ? path : expected));
    }

    void launchedBy_data()
    {
        // clang-format off
        QTest::addColumn<QString>("launcher"); // how the asking child is started
        QTest::addColumn<QString>("code");
        QTest::addColumn<QString>("answers"); // launched by code, login item, debugging
        QTest::newRow("bundled launcher with that signature") << "bundle" << "TSTL" << "yes no no";
        QTest::newRow("bundled launcher, other code") << "bundle" << "ABCD" << "no no no";
        QTest::newRow("session manager starts it") << "xfce4-session" << "lgnw" << "yes yes no";
        QTest::newRow("started by a plain program") << "plain" << "lgnw" << "no no no";
        QTest::newRow("traced by its launcher") << "traced" << "TSTL" << "no no yes";
        // clang-format on
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

    void loginItemFromTheAutostartUnit_data()
    {
        // clang-format off
        QTest::addColumn<QByteArray>("cgroup");
        QTest::addColumn<QString>("parent");
        QTest::addColumn<bool>("loginItem");
        const QByteArray slice = "0::/user.slice/user-1000.slice/user@1000.service/app.slice/";
        QTest::newRow("autostart unit")
            << slice + "app-gnome-quillet@autostart.service\n" << "/usr/lib/systemd/systemd"
            << true;
        QTest::newRow("child of an autostarted program")
            << slice + "app-gnome-quillet@autostart.service\n" << "/usr/bin/bash" << false;
        QTest::newRow("launched from a terminal")
            << slice + "app-org.gnome.Terminal-2841.scope\n" << "/usr/lib/systemd/systemd" << false;
        QTest::newRow("cgroup v1 lines")
            << QByteArray("12:pids:/user.slice\n1:name=systemd:/user.slice/user-1000.slice/"
                          "user@1000.service/app.slice/app-xfce-x@autostart.service\n")
            << "/lib/systemd/systemd" << true;
        // clang-format on
    }

    void loginItemFromTheAutostartUnit()
    {
        QFETCH(QByteArray, cgroup);
        QFETCH(QString, parent);
        QFETCH(bool, loginItem);
        QTemporaryDir root;
        writeFile(root.path() + "/proc/self/cgroup", cgroup);
        const QString parentDir = root.path() + "/proc/" + QString::number(::getppid());
        QDir().mkpath(parentDir);
        QVERIFY(QFile::link(parent, parentDir + "/exe"));
        VXUtilitiesPlatform::setSystemRoot(root.path());
        QCOMPARE(VXUtilities::wasLaunchedAsLoginItem(), loginItem);
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
        QTRY_COMPARE(m_x.active(), window);
        for (const bool fullScreen : { false, true }) {
            m_x.setFullScreen(window, fullScreen);
            QTRY_COMPARE(VXUtilities::fullScreenMode(), fullScreen);
            LogCapture log;
            VXUtilities::launchMicro(!fullScreen);
            if (fullScreen) {
                QVERIFY2(!log.text().contains("wait count"), qPrintable(log.text()));
                QVERIFY(!QFile::exists(started));
            } else {
                QVERIFY2(
                    log.messages().contains("wait count (Micro) = 500"), qPrintable(log.text()));
                QTRY_VERIFY(QFile::exists(started));
                QFile::remove(started);
                QCOMPARE(VXProcess::frontProcess()->unixPID(), qint32(::getpid()));
            }
        }
        m_x.setFullScreen(window, false);
        QTRY_VERIFY(!VXUtilities::fullScreenMode());
    }

private:
    QTemporaryDir m_dir;
    X m_x;
};

QTEST_GUILESS_MAIN(TestVXLaunchContext)
#include "tst_vxlaunchcontext.moc"

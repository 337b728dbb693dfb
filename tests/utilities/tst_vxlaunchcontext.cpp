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
const QString kHelpers = QStringLiteral(QUILLET_BINARY_DIR "/tests/helpers");

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
        Atom type;
        int format;
        unsigned long n, after;
        unsigned char *data = nullptr;
        Window w = None;
        if (XGetWindowProperty(d, DefaultRootWindow(d), XInternAtom(d, "_NET_ACTIVE_WINDOW", False),
                0, 1, False, XA_WINDOW, &type, &format, &n, &after, &data)
                == Success
            && data && n == 1)
            w = *reinterpret_cast<Window *>(data);
        if (data)
            XFree(data);
        return w;
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

struct Window_ : TestChild
{
    explicit Window_(const QString &title)
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
} // namespace

class TestVXLaunchContext : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void initTestCase();
    void cleanup();
    void clipboardPublisherFollowsCopiesAndSwitches();
    void distributionDisk_data();
    void distributionDisk();
    void resolvedAlias_data();
    void resolvedAlias();
    void launchedBy_data();
    void launchedBy();
    void loginItemFromTheAutostartUnit_data();
    void loginItemFromTheAutostartUnit();
    void launchMicroWaitsAndStartsNothingInFullScreen();

private:
    QTemporaryDir m_dir;
    X m_x;
};

void TestVXLaunchContext::initTestCase()
{
    QVERIFY(m_x.d);
    LogCapture log;
    VXUtilities::initialize();
    VXUtilities::initialize();
    QCOMPARE(log.messages().count("**Utilities initialized"), 1);
    QVERIFY(
        !VXUtilities::fullScreenMode()); // installs the handler before anything goes full screen
}

void TestVXLaunchContext::cleanup()
{
    VXUtilitiesPlatform::setSystemRoot(QString());
    VXBundle::setMainBundlePath(QString());
}

void TestVXLaunchContext::clipboardPublisherFollowsCopiesAndSwitches()
{
    // Before any switch, with the clipboard untouched: nobody.
    QCOMPARE(VXUtilities::clipboardPublisherProcess(), VXProcessPtr());

    Window_ a("A"), b("B");
    QVERIFY(a.waitReady());
    QVERIFY(b.waitReady());
    QVERIFY(a.bringForward());
    QCOMPARE(VXUtilities::clipboardPublisherProcess(), VXProcessPtr());

    m_x.copy(); // while A is in front
    QVERIFY(b.bringForward());
    VXProcessPtr publisher = VXUtilities::clipboardPublisherProcess();
    QVERIFY(publisher);
    QCOMPARE(publisher->unixPID(), a.pid());

    m_x.copy(); // while B is in front, no switch since
    publisher = VXUtilities::clipboardPublisherProcess();
    QVERIFY(publisher);
    QCOMPARE(publisher->unixPID(), b.pid());
}

void TestVXLaunchContext::distributionDisk_data()
{
    QTest::addColumn<QString>("bundle");
    QTest::addColumn<QStringList>("files");
    QTest::addColumn<QString>("mountPoint");
    QTest::addColumn<bool>("onDisk");
    QTest::addColumn<bool>("installing");
    QTest::newRow("launchlock at the volume root")
        << "/Volumes/Disk/App.app" << QStringList { "/Volumes/Disk/launchlock" } << "" << true
        << true;
    QTest::newRow(".launchlock, bundle deeper")
        << "/Volumes/Disk/Apps/Tools/App.app" << QStringList { "/Volumes/Disk/.launchlock" } << ""
        << true << true;
    QTest::newRow("neither marker")
        << "/Volumes/Disk/App.app" << QStringList() << "" << false << false;
    QTest::newRow("marker beside the bundle is not at the root")
        << "/Volumes/Disk/Apps/App.app" << QStringList { "/Volumes/Disk/Apps/launchlock" } << ""
        << false << false;
    QTest::newRow("/Volumes/ alone")
        << "/Volumes/" << QStringList { "/Volumes/launchlock" } << "" << false << false;
    QTest::newRow("removable medium under /run/media")
        << "/run/media/ann/My Disk/App.app" << QStringList { "/run/media/ann/My Disk/.launchlock" }
        << "/run/media/ann/My\\040Disk" << true << true;
    QTest::newRow("/media folder that is no mount")
        << "/media/ann/Disk/App.app" << QStringList { "/media/ann/Disk/launchlock" } << "" << false
        << false;
    QTest::newRow("translocated") << "/private/var/folders/zz/T/AppTranslocation/1F/d/App.app"
                                  << QStringList() << "" << false << true;
    QTest::newRow("temporary copy") << "/var/tmp/App.app" << QStringList() << "" << false << true;
}

void TestVXLaunchContext::distributionDisk()
{
    QFETCH(QString, bundle);
    QFETCH(QStringList, files);
    QFETCH(QString, mountPoint);
    QFETCH(bool, onDisk);
    QFETCH(bool, installing);
    QTemporaryDir root;
    for (const QString &f : files)
        writeFile(root.path() + f);
    QByteArray mountinfo = "22 1 8:1 / / rw,relatime - ext4 /dev/sda1 rw\n";
    if (!mountPoint.isEmpty())
        mountinfo += "40 22 8:17 / " + mountPoint.toUtf8() + " rw,nosuid - vfat /dev/sdb1 rw\n";
    writeFile(root.path() + "/proc/self/mountinfo", mountinfo);
    VXUtilitiesPlatform::setSystemRoot(root.path());
    VXBundle::setMainBundlePath(bundle);
    QCOMPARE(VXUtilities::runningFromDistributionDisk(), onDisk);
    QCOMPARE(VXUtilities::installationMode(), installing);
}

void TestVXLaunchContext::resolvedAlias_data()
{
    QTest::addColumn<QString>("path"); // relative to a fresh folder
    QTest::addColumn<QString>("expected"); // relative; "=" for the path itself
    QTest::newRow("chain of links") << "first"
                                    << "target.txt";
    QTest::newRow("plain file") << "target.txt"
                                << "=";
    QTest::newRow("missing path") << "nothing"
                                  << "=";
    QTest::newRow("link to nowhere") << "dangling"
                                     << "=";
    QTest::newRow("loop") << "loop1"
                          << "=";
}

void TestVXLaunchContext::resolvedAlias()
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
    const QString given = path.isEmpty() ? QString() : d + path;
    QCOMPARE(VXUtilities::resolvedAlias(given), expected == "=" ? given : d + expected);
}

void TestVXLaunchContext::launchedBy_data()
{
    QTest::addColumn<QString>("launcher"); // how the asking child is started
    QTest::addColumn<QString>("code");
    QTest::addColumn<QByteArray>("expected");
    QTest::newRow("bundled launcher with that signature")
        << "bundle"
        << "TSTL" << QByteArray("launched by TSTL: yes\nlogin item: no\ndebugging: no\n");
    QTest::newRow("bundled launcher, other code")
        << "bundle"
        << "ABCD" << QByteArray("launched by ABCD: no\nlogin item: no\ndebugging: no\n");
    QTest::newRow("session manager starts it")
        << "xfce4-session"
        << "lgnw" << QByteArray("launched by lgnw: yes\nlogin item: yes\ndebugging: no\n");
    QTest::newRow("started by a plain program")
        << "plain"
        << "lgnw" << QByteArray("launched by lgnw: no\nlogin item: no\ndebugging: no\n");
    QTest::newRow("traced by its launcher")
        << "traced"
        << "TSTL" << QByteArray("launched by TSTL: no\nlogin item: no\ndebugging: yes\n");
}

void TestVXLaunchContext::launchedBy()
{
    QFETCH(QString, launcher);
    QFETCH(QString, code);
    QFETCH(QByteArray, expected);
    QTemporaryDir dir;
    const QString helper = kHelpers + "/launchcontext";
    QString program = helper;
    QString mode = "spawn";
    if (launcher == "bundle")
        program = makeBundle(
            dir.path() + "/Launcher.app", { { "CFBundleSignature", "TSTL" } }, readFile(helper));
    else if (launcher == "xfce4-session")
        writeFile(program = dir.path() + "/xfce4-session", readFile(helper), true);
    else if (launcher == "traced")
        mode = "traced";
    QProcess p;
    p.setProcessChannelMode(QProcess::ForwardedErrorChannel);
    if (launcher == "plain")
        p.start(helper, { "ask", code });
    else
        p.start(program, { mode, helper, "ask", code });
    QVERIFY(p.waitForFinished());
    QCOMPARE(p.exitCode(), 0);
    QCOMPARE(p.readAllStandardOutput(), expected);
}

void TestVXLaunchContext::loginItemFromTheAutostartUnit_data()
{
    QTest::addColumn<QByteArray>("cgroup");
    QTest::addColumn<QString>("parent");
    QTest::addColumn<bool>("loginItem");
    const QByteArray slice = "0::/user.slice/user-1000.slice/user@1000.service/app.slice/";
    QTest::newRow("autostart unit") << slice + "app-gnome-quillet@autostart.service\n"
                                    << "/usr/lib/systemd/systemd" << true;
    QTest::newRow("child of an autostarted program")
        << slice + "app-gnome-quillet@autostart.service\n"
        << "/usr/bin/bash" << false;
    QTest::newRow("launched from a terminal") << slice + "app-org.gnome.Terminal-2841.scope\n"
                                              << "/usr/lib/systemd/systemd" << false;
    QTest::newRow("cgroup v1 lines")
        << QByteArray("12:pids:/user.slice\n1:name=systemd:/user.slice/user-1000.slice/"
                      "user@1000.service/app.slice/app-xfce-x@autostart.service\n")
        << "/lib/systemd/systemd" << true;
}

void TestVXLaunchContext::loginItemFromTheAutostartUnit()
{
    QFETCH(QByteArray, cgroup);
    QFETCH(QString, parent);
    QFETCH(bool, loginItem);
    QTemporaryDir root;
    writeFile(root.path() + "/proc/self/cgroup", cgroup);
    QDir().mkpath(root.path() + QString("/proc/%1").arg(::getppid()));
    QVERIFY(QFile::link(parent, root.path() + QString("/proc/%1/exe").arg(::getppid())));
    VXUtilitiesPlatform::setSystemRoot(root.path());
    QCOMPARE(VXUtilities::wasLaunchedAsLoginItem(), loginItem);
}

void TestVXLaunchContext::launchMicroWaitsAndStartsNothingInFullScreen()
{
    const QString host = m_dir.path() + "/Host.app";
    makeBundle(host, {}, "#!/bin/sh\nexit 0\n");
    const QString micro = makeBundle(
        host + "/Contents/Resources/Micro.app", {}, "#!/bin/sh\ntouch \"$0.started\"\n");
    VXBundle::setMainBundlePath(host);
    // Our own plain X window in front: a toolkit's window may argue with the
    // window manager about its state.
    const Window window = m_x.makeWindow();
    QTRY_COMPARE(m_x.active(), window);

    {
        LogCapture log;
        VXUtilities::launchMicro(true);
        QVERIFY2(log.messages().contains("wait count (Micro) = 500"), qPrintable(log.text()));
        QTRY_VERIFY(QFile::exists(micro + ".started"));
        QCOMPARE(VXProcess::frontProcess()->unixPID(), qint32(::getpid()));
    }

    QFile::remove(micro + ".started");
    m_x.setFullScreen(window, true);
    QTRY_VERIFY(VXUtilities::fullScreenMode());
    {
        LogCapture log;
        VXUtilities::launchMicro(false);
        QVERIFY2(!log.text().contains("wait count"), qPrintable(log.text()));
        QVERIFY(!QFile::exists(micro + ".started"));
    }
    m_x.setFullScreen(window, false);
    QTRY_VERIFY(!VXUtilities::fullScreenMode());
}

QTEST_GUILESS_MAIN(TestVXLaunchContext)
#include "tst_vxlaunchcontext.moc"

// SPDX-FileCopyrightText: 2026 Quillet developers
// SPDX-License-Identifier: MIT
//
// The installer window on a real X server with a window manager, and whole
// installation runs with real bundles and processes: the files on disk,
// the log, the Trash, the desktop entry, the launched product and the
// window's final state. Faults during the copy into place: whatever
// happens, the destination holds the old bundle or the complete new one,
// and the old one is never lost: it is at the destination, in the Trash,
// or at a staging name the next run puts in the Trash.
#include "common/audiorecording.h"
#include "common/logcapture.h"
#include "common/systemtestuser.h"
#include "installer/productcopy.h"
#include "installer/workspace.h"
#include "installerfixture.h"
#include "process/vxprocess.h"
#include "process/vxprocess_p.h"
#include "utilities/vxlocalization.h"
#include "utilities/vxuserdefaults.h"
#include "utilities/vxutilities.h"

#include <QAbstractButton>
#include <QCryptographicHash>
#include <QDirIterator>
#include <QLabel>
#include <QMessageBox>
#include <QProgressBar>
#include <QPushButton>
#include <QScopeGuard>
#include <QScreen>
#include <QSettings>
#include <QSignalSpy>
#include <QTabBar>
#include <QTabWidget>
#include <QTextEdit>
#include <QThread>
#include <csignal>
#include <future>
#include <sys/mount.h>
#include <thread>

namespace {
const QString kHelpers = QStringLiteral(QUILLET_BINARY_DIR "/tests/helpers");
constexpr auto kAll = QDir::AllEntries | QDir::Hidden | QDir::NoDotAndDotDot;

// The products' creator code in this run: the installer quits every running
// process that carries it, so runs of this test elsewhere on the machine
// must not share it.
QString runSignature()
{
    return QStringLiteral("Q%1").arg(QCoreApplication::applicationPid() % 46656, 3, 36, QChar('0'));
}

// Gives the fixture's product a real program (the cooperative test helper)
// and this run's creator code.
void makeRunnable(ProductFixture &fixture)
{
    fixture.info.insert("CFBundleSignature", runSignature());
    fixture.writeInfo();
    QDir().mkpath(fixture.product + "/Contents/Linux");
    QFile::copy(kHelpers + "/behaviour", fixture.product + "/Contents/Linux/Foo");
}

// Ends every process started from below the folder.
void killProcessesUnder(const QString &folder)
{
    for (const VXProcessPtr &p : VXProcess::allProcesses())
        if (p->path().startsWith(folder) && p->unixPID() != ::getpid())
            ::kill(p->unixPID(), SIGKILL);
}

QString trash()
{
    return QDir::homePath() + "/.local/share/Trash";
}

// Records the progress indicator's showing and hiding, in order.
struct Visibility : QObject
{
    QStringList changes;
    bool eventFilter(QObject *, QEvent *e) override
    {
        if (e->type() == QEvent::ShowToParent || e->type() == QEvent::HideToParent)
            changes << (e->type() == QEvent::ShowToParent ? "shown" : "hidden");
        return false;
    }
};

struct Run
{
    InstallerWinController controller;
    LogCapture log;
    QSignalSpy finished { &controller, &InstallerWinController::runFinished };
    Run(const ProductFixture &fixture, const QStringList &args)
        : controller(fixture.options(args))
    {
        controller.awakeFromNib();
    }
    // The products it launched go with it (cleanup() comes too late: their
    // folder is gone by then, and with it their bundle); only this test's.
    ~Run() { killProcessesUnder(ProductFixture::rootPrefix()); }
    // Clicks "Install"; true when the run ended.
    bool start(int timeoutMs = 60000)
    {
        controller.installButton()->click();
        return finished.wait(timeoutMs) || finished.size() == 1;
    }
    QString result() const { return finished.value(0).value(0).toString(); }
};

// What the X server shows of the window, decorations included; kept beside
// the build for the documentation.
void screenshot(QWidget *window, const QString &name)
{
    QTest::qWait(200);
    const QRect frame = window->frameGeometry();
    QDir().mkpath(QUILLET_BINARY_DIR "/screenshots");
    window->screen()
        ->grabWindow(0, frame.x(), frame.y(), frame.width(), frame.height())
        .save(QUILLET_BINARY_DIR "/screenshots/" + name);
}

// Relative path -> content digest of every file below a folder.
QMap<QString, QByteArray> tree(const QString &root)
{
    QMap<QString, QByteArray> out;
    for (QDirIterator it(root, QDir::Files | QDir::Hidden, QDirIterator::Subdirectories);
         it.hasNext();) {
        const QString path = it.next();
        out.insert(path.mid(root.size()),
            QCryptographicHash::hash(readFile(path), QCryptographicHash::Md5));
    }
    return out;
}

// A new bundle of many files at Volume/Foo.app, an old one at
// Applications/Foo.app.
struct Bundles
{
    QTemporaryDir dir;
    QString source = dir.path() + "/Volume/Foo.app";
    QString destination = dir.path() + "/Applications/Foo.app";
    QMap<QString, QByteArray> oldTree, newTree;

    Bundles(int files, int size)
    {
        for (int i = 0; i < files; ++i)
            writeFile(QString("%1/Contents/Resources/part%2.bin").arg(source).arg(i),
                QByteArray(size, char('a' + i % 26)));
        newTree = tree(source);
        makeOldCopy(destination);
    }
    void makeOldCopy(const QString &at)
    {
        writeFile(at + "/Contents/Resources/old-marker", "the user's old copy");
        writeFile(at + "/Contents/Info.plist", "{ old = yes; }");
        oldTree = tree(at);
    }

    int install() const { return ProductCopy::installProductCopy(source, destination, QString()); }

    // The old copy is somewhere: at the destination, a staging name or the
    // Trash.
    bool oldCopyKept() const
    {
        const QFileInfo info(destination);
        QStringList places { destination };
        for (const QString &name :
            QDir(info.path()).entryList({ "." + info.fileName() + ".quillet-*" }, kAll))
            places << info.path() + "/" + name;
        for (const QString &name : QDir(trash() + "/files").entryList(kAll))
            places << trash() + "/files/" + name;
        return std::any_of(
            places.cbegin(), places.cend(), [&](const QString &p) { return tree(p) == oldTree; });
    }
};
} // namespace

class TestInstallerRun : public QObject
{
    Q_OBJECT
    const QString m_browserLog = QDir::homePath() + "/browser.log";

private Q_SLOTS:
    void init() { QDir(trash()).removeRecursively(); }

    void cleanup() { VXProcessPlatform::setSignalSender({}); }

    void freshInstall()
    {
        ProductFixture fixture;
        makeRunnable(fixture);
        Run run(fixture, { "-productName", "Foo", "-version", "2.0" });
        // The run never waits for the main thread (it only posts to it, and
        // reads the Option key as recorded when the run started): here the
        // main thread is blocked until the installation thread has finished.
        std::promise<void> done;
        std::future<void> ended = done.get_future();
        std::thread([&run, &done] {
            run.controller.installThread();
            done.set_value();
        }).detach();
        QVERIFY2(ended.wait_for(std::chrono::minutes(2)) == std::future_status::ready,
            "the installation thread waits for the main thread");
        QVERIFY(run.finished.wait());
        QVERIFY2(run.result().isNull(), qPrintable(run.result() + "\n" + run.log.text()));
        QCOMPARE(run.controller.introField()->text(), "Foo was successfully installed.");
        QCOMPARE(run.controller.installButton()->text(), QStringLiteral("OK"));
        QVERIFY(!run.controller.checkmarkField()->isHidden());
        QVERIFY(run.controller.cancelButton()->isHidden());
        QCOMPARE(InstallerWinController::currentInstallationLabel(), QStringLiteral("Foo 2.0"));

        // A complete copy, executable bit kept, no staging leftovers;
        // registered with the desktop, and running from its new place.
        const QString destination = fixture.applications + "/Foo.app";
        QVERIFY(QFileInfo(destination + "/Contents/Linux/Foo").isExecutable());
        QCOMPARE(QDir(fixture.applications).entryList(kAll), QStringList { "Foo.app" });
        QCOMPARE(QDir(QDir::homePath() + "/.local/share/applications").entryList({ "*.desktop" }),
            QStringList { "dev.example.foo.desktop" });
        QTRY_VERIFY([&] {
            for (const VXProcessPtr &p : VXProcess::allProcesses())
                if (p->path() == destination)
                    return true;
            return false;
        }());
        killProcessesUnder(fixture.applications);

        // A second install puts the old copy into the Trash with an info file
        // naming its place, replaces the desktop entry rather than adding
        // one, and ends with the chime on the alert output when asked for one.
        writeFile(destination + "/Contents/old", "the user's old copy");
        MonitorRecording alert(QStringLiteral("alert"));
        Run again(fixture, { "-productName", "Foo", "-version", "2.0", "-completionSound", "YES" });
        QVERIFY(again.start());
        QTRY_VERIFY_WITH_TIMEOUT(alert.peak() > 3000, 10000);
        QVERIFY(!QFile::exists(destination + "/Contents/old"));
        QCOMPARE(readFile(trash() + "/files/Foo.app/Contents/old"), "the user's old copy");
        QSettings info(trash() + "/info/Foo.app.trashinfo", QSettings::IniFormat);
        QCOMPARE(
            QUrl::fromPercentEncoding(info.value("Trash Info/Path").toByteArray()), destination);
        QVERIFY(QDateTime::fromString(info.value("Trash Info/DeletionDate").toString(), Qt::ISODate)
                    .isValid());
        QCOMPARE(QDir(QDir::homePath() + "/.local/share/applications").entryList({ "*.desktop" }),
            QStringList { "dev.example.foo.desktop" });
    }

    void wrapperFolder_data()
    {
        QTest::addColumn<bool>("existing");
        QTest::newRow("new wrapper folder") << false;
        QTest::newRow("wrapper folder already installed") << true;
    }

    // A wrapper's items go beside the bundle; an item they replace goes to
    // the Trash, and what the installer did not put there stays.
    void wrapperFolder()
    {
        QFETCH(bool, existing);
        ProductFixture fixture;
        makeRunnable(fixture);
        const QString folder = fixture.applications + "/Foo Folder";
        if (existing) {
            writeFile(folder + "/Manual.pdf", "%PDF old");
            writeFile(folder + "/My Notes.txt", "the user's own file");
        }
        writeFile(fixture.volume + "/Foo Folder/Manual.pdf", "%PDF new");
        writeFile(fixture.volume + "/Foo Folder/Extras/plugin.so", "plugin");
        Run run(fixture, { "-wrapperPath", fixture.volume + "/Foo Folder" });
        QVERIFY(run.start());
        QVERIFY2(run.result().isNull(), qPrintable(run.result()));
        QVERIFY(QFileInfo(folder + "/Foo.app/Contents/Linux/Foo").isExecutable());
        QVERIFY(QFile::exists(folder + "/Extras/plugin.so"));
        QCOMPARE(readFile(folder + "/Manual.pdf"), QByteArray("%PDF new"));
        QCOMPARE(readFile(trash() + "/files/Manual.pdf"), existing ? "%PDF old" : QByteArray());
        QCOMPARE(QFile::exists(folder + "/My Notes.txt"), existing);
    }

    void launchThatNeverOpensIsStillSuccess()
    {
        ProductFixture fixture;
        makeRunnable(fixture);
        QFile::setPermissions(
            fixture.product + "/Contents/Linux/Foo", QFile::ReadOwner | QFile::WriteOwner);
        Run run(fixture, {});
        QVERIFY(run.start());
        QVERIFY(run.result().isNull());
        const QStringList log = run.log.messages();
        QVERIFY(log.contains("launched immediately: 0"));
        QCOMPARE(log.filter("launched: 0").size(), 10);
        QVERIFY(log.contains("retry opening (count=10)"));
        QCOMPARE(run.controller.introField()->text(), "Foo was successfully installed.");
    }

    void completionQuit_data()
    {
        // clang-format off
        QTest::addColumn<QString>("value");
        QTest::addColumn<bool>("success");
        QTest::addColumn<QString>("logged");
        QTest::newRow("after success") << "0.5" << true << "quit delay: 0.5";
        QTest::newRow("after failure") << "0.5" << false << "quit delay: 0.5";
        QTest::newRow("unit after the number") << "0.5s" << true << "quit delay: 0.5";
        QTest::newRow("decimal comma: its leading number") << "1,5" << true << "quit delay: 1.0";
        QTest::newRow("zero stays open") << "0" << true << "quit delay: 0.0";
        QTest::newRow("no number stays open") << "abc" << true << "quit delay: 0.0";
        // clang-format on
    }

    void completionQuit()
    {
        QFETCH(QString, value);
        QFETCH(bool, success);
        QFETCH(QString, logged);
        ProductFixture fixture;
        Run run(fixture, { "-completionQuit", value });
        QSignalSpy quitting(&run.controller, &InstallerWinController::terminating);
        // The end of a run, as the installation thread reports it.
        run.controller.installationFinished(success ? QString() : "Installation failed.");
        QVERIFY(run.log.messages().contains(logged));
        // A failure leaves the install page usable for another run.
        QCOMPARE(run.controller.installButton()->text(), success ? "OK" : "Install");
        QCOMPARE(run.controller.cancelButton()->isEnabled(), !success);
        QCOMPARE(quitting.wait(logged.endsWith("0.0") ? 2000 : 30000), !logged.endsWith("0.0"));
    }

    void runningCopyThatRefusesCancelsTheRun()
    {
        ProductFixture fixture;
        makeRunnable(fixture);
        // A copy of the product that is running and that no signal reaches.
        QProcess running;
        running.start(fixture.product + "/Contents/Linux/Foo", { "stubborn" });
        QVERIFY(running.waitForReadyRead(5000));
        const auto end = qScopeGuard([&] {
            running.kill();
            running.waitForFinished();
        });
        VXProcessPlatform::setSignalSender([](const VXProcessSerialNumber &, int) {
            return VXProcessPlatform::SignalResult::Delivered;
        });
        Run run(fixture, {});
        QVERIFY(run.start(120000));
        QCOMPARE(run.result(),
            "Foo cannot be running during the installation.\rQuit Foo, then click \"Install\" "
            "again.");
        const QStringList log = run.log.messages();
        QVERIFY(log.contains("Foo refused to quit; installation cancelled"));
        // The first attempt and three retries.
        QCOMPARE(log.filter("Quitting '" + runSignature() + "': Foo").size(), 4);
        QVERIFY(!QFile::exists(fixture.applications + "/Foo.app")); // nothing copied
    }

    void privilegedPathThroughStandInElevation_data()
    {
        // clang-format off
        QTest::addColumn<QString>("standIn");
        QTest::addColumn<QString>("result");
        QTest::addColumn<QString>("logLine");
        QTest::addColumn<QStringList>("progress"); // the indicator's changes
        // The stand-ins take the password dialog's place and nothing else: the
        // first runs the real helper as root, as pkexec would after a
        // password. Progress stops for the dialog and shows again once the
        // helper says it runs.
        QTest::newRow("authorized") << "exec env PKEXEC_UID=0 \"$@\"" << QString()
            << "successfully copied" << QStringList { "shown", "hidden", "shown", "hidden" };
        QTest::newRow("dialog dismissed") << "exit 126" << "" << "User canceled authorization"
            << QStringList { "shown", "hidden" };
        QTest::newRow("helper fails") << "exit 3" << "Authorized copying failed.\rTry installing "
            "Foo manually by copying it to the Applications folder." << "WEXITSTATUS"
            << QStringList { "shown", "hidden" };
        // clang-format on
    }

    void privilegedPathThroughStandInElevation()
    {
        QFETCH(QString, standIn);
        QFETCH(QString, result);
        QFETCH(QString, logLine);
        QFETCH(QStringList, progress);
        if (::geteuid() != 0)
            QSKIP("the helper installs into /opt only as root");
        ProductFixture fixture;
        makeRunnable(fixture);
        const QString script = fixture.path("elevate.sh");
        writeFile(script, ("#!/bin/sh\n" + standIn + "\n").toUtf8(), true);
        const QString destination = "/opt/QuilletRunTest-" + QString::number(::getpid()) + ".app";
        InstallerWinController::setHelperPath(
            QStringLiteral(QUILLET_BINARY_DIR "/QuilletInstaller.app/Contents/Resources/train"));
        VXUserDefaults::standard().setObject(script, "elevationCommand");
        SystemShareGuard share; // the helper registers what it puts into /opt
        share.watch("dev.example.foo");
        // What an earlier installer wrote for a system install: an entry of
        // the user's own, which would hide the system one.
        const QString userEntry
            = QDir::homePath() + "/.local/share/applications/dev.example.foo.desktop";
        writeFile(userEntry,
            "[Desktop Entry]\nType=Application\nName=Foo\nX-Quillet-Bundle=" + destination.toUtf8()
                + "\n");
        const auto restore = qScopeGuard([&] {
            VXUserDefaults::standard().removeObject("elevationCommand");
            InstallerWinController::setHelperPath(QString());
            killProcessesUnder(destination);
            QDir(destination).removeRecursively();
            QFile::remove(userEntry);
        });
        Run run(fixture, { "-destinationPath", destination, "-productName", "Foo" });
        Visibility progressIndicator;
        run.controller.progressIndicator()->installEventFilter(&progressIndicator);
        // Alt held: the privileged path even though /opt is writable for root.
        run.controller.setForcePrivileged(true);
        QVERIFY(run.start());
        QCOMPARE(run.result(), result);
        QCOMPARE(run.result().isNull(), result.isNull());
        QCOMPARE(progressIndicator.changes, progress);
        const QStringList log = run.log.messages();
        QVERIFY(log.contains("enforcing authorization"));
        QVERIFY2(log.contains(logLine), qPrintable(log.join('\n')));
        // Installed and registered once, for all users, the user's own entry
        // gone; else nothing installed, nothing changed.
        QCOMPARE(QFileInfo(destination + "/Contents/Linux/Foo").isExecutable(), result.isNull());
        QCOMPARE(QFile::exists(Workspace::systemDesktopEntryPath(destination)), result.isNull());
        QCOMPARE(QFile::exists(userEntry), !result.isNull());
    }

    void initTestCase()
    {
        QCOMPARE(QGuiApplication::platformName(), QStringLiteral("xcb"));
        // The browser is a script that writes down what it was asked to open.
        const QString browser = QDir::homePath() + "/browser.sh";
        writeFile(browser, ("#!/bin/sh\necho \"$1\" >> '" + m_browserLog + "'\n").toUtf8(), true);
        qputenv("BROWSER", browser.toUtf8());
        vxInstallTranslations(QUILLET_BINARY_DIR "/QuilletInstaller.app/Contents/Resources");
    }

    void showsProductWindow()
    {
        // The sample's read-me first; what the window holds is the set-up
        // tests' to check, here what the screen shows.
        ProductFixture fixture("Sample");
        const auto c
            = fixture.setUp({ "-readMePath", QUILLET_SOURCE_DIR "/examples/sample/ReadMe.rtf" });
        QWidget *window = c->window();
        QVERIFY(QTest::qWaitForWindowExposed(window));
        QTRY_VERIFY(window->isActiveWindow());
        QVERIFY(c->readMeTextView()->isVisible());
        QVERIFY(c->readMeTextView()->toPlainText().startsWith("Welcome to Sample 1.0"));
        // The read-me stays light whatever the desktop's theme.
        QCOMPARE(c->readMeTextView()->palette().color(QPalette::Base), QColor(Qt::white));
        screenshot(window, "installer-readme.png");

        // "Continue", clicked: the install page, which has no tabs.
        QTest::mouseClick(c->installButton(), Qt::LeftButton);
        QCOMPARE(c->tabView()->currentIndex(), 1);
        QVERIFY(c->installButton()->isVisible() && !c->tabView()->tabBar()->isVisible());
    }

    void systemVersionGate_data()
    {
        // clang-format off
        QTest::addColumn<QString>("minimum");
        QTest::addColumn<QString>("button"); // empty: no sheet
        QTest::newRow("too old, Quit") << "999.0" << "Quit";
        QTest::newRow("too old, Visit Archive") << "999.0" << "Visit Archive";
        QTest::newRow("equal to the minimum") << VXUtilities::systemVersionString() << "";
        // clang-format on
    }

    void systemVersionGate()
    {
        QFETCH(QString, minimum);
        QFETCH(QString, button);
        QFile::remove(m_browserLog);
        ProductFixture fixture;
        const auto c = fixture.setUp({ "-minSystemVersion", minimum });
        QVERIFY(QTest::qWaitForWindowExposed(c->window()));
        auto *sheet = c->window()->findChild<QMessageBox *>("systemVersionAlert");
        QCOMPARE(sheet != nullptr, !button.isEmpty());
        if (!sheet)
            return;
        QTRY_VERIFY(sheet->isVisible());
        QCOMPARE(sheet->windowModality(), Qt::WindowModal);
        QCOMPARE(sheet->text(),
            "Foo 2.0 cannot be installed on this computer because it requires Linux 999.0 or "
            "newer.");
        QCOMPARE(sheet->informativeText(),
            "To check if an older version of Foo is available for your computer, please visit our "
            "software archive.");
        QVERIFY(!sheet->iconPixmap().isNull());
        screenshot(sheet, "installer-system-too-old.png");

        // Either button quits; the second opens the archive first.
        QSignalSpy quitting(c.get(), &InstallerWinController::terminating);
        QCOMPARE(sheet->buttons().size(), 2);
        for (QAbstractButton *b : sheet->buttons())
            if (b->text() == button)
                b->click();
        QTRY_COMPARE(quitting.size(), 1);
        QTRY_COMPARE(QFile::exists(m_browserLog), button != "Quit");
        if (button == "Quit")
            return;
        QCOMPARE(QString::fromUtf8(readFile(m_browserLog).trimmed()),
            InstallerWinController::archiveUrl());
    }

    void destinationRefusesWrites_data()
    {
        QTest::addColumn<bool>("readOnly");
        QTest::addColumn<int>("files"); // of 64 KiB, on a 1 MiB volume
        QTest::newRow("fills up during the copy") << false << 40;
        QTest::newRow("read-only") << true << 3;
    }

    void destinationRefusesWrites()
    {
        QFETCH(bool, readOnly);
        QFETCH(int, files);
        Bundles b(files, 64 * 1024);
        const QByteArray volume = QFile::encodeName(b.dir.path() + "/small");
        QDir().mkpath(volume);
        if (::mount("tmpfs", volume.constData(), "tmpfs", 0, "size=1m") != 0)
            QSKIP("mounting a tmpfs needs root");
        const auto unmount = qScopeGuard([&] { ::umount2(volume.constData(), MNT_DETACH); });
        b.makeOldCopy(b.destination = volume + "/Foo.app");
        if (readOnly)
            QCOMPARE(
                ::mount("tmpfs", volume.constData(), "tmpfs", MS_REMOUNT | MS_RDONLY, nullptr), 0);
        QCOMPARE(b.install(), int(ProductCopy::CopyFailed));
        QCOMPARE(tree(b.destination), b.oldTree);
        QCOMPARE(QDir(volume).entryList(kAll), QStringList { "Foo.app" });
    }

    void killedAtAnyMoment_data()
    {
        QTest::addColumn<int>("delayMs");
        for (int delay : { 0, 5, 20, 80, 400 })
            QTest::addRow("after %d ms", delay) << delay;
        // Killed after the exchange: the old copy is at the staging name.
        QTest::newRow("old copy left at a staging name") << -1;
    }

    void killedAtAnyMoment()
    {
        QFETCH(int, delayMs);
        Bundles b(200, 128 * 1024);
        QProcess worker;
        if (delayMs < 0)
            QVERIFY(QFile::rename(
                b.destination, b.dir.path() + "/Applications/.Foo.app.quillet-999999"));
        else
            worker.start(
                QUILLET_BINARY_DIR "/tests/helpers/copyworker", { b.source, b.destination });
        QThread::msleep(std::max(delayMs, 0));
        if (worker.waitForStarted())
            ::kill(worker.processId(), SIGKILL);
        worker.waitForFinished();
        const QMap<QString, QByteArray> now = tree(b.destination);
        QVERIFY2(now == b.oldTree || now == b.newTree || delayMs < 0,
            "the destination holds neither the old nor the complete new bundle");
        QVERIFY(b.oldCopyKept());
        // The next run finishes the job and keeps the old copy in the Trash
        // (a leftover at a staging name under the destination's name).
        QCOMPARE(b.install(), int(ProductCopy::Copied));
        QCOMPARE(tree(b.destination), b.newTree);
        QVERIFY(b.oldCopyKept());
        if (delayMs < 0)
            QCOMPARE(tree(trash() + "/files/Foo.app"), b.oldTree);
        QCOMPARE(QDir(b.dir.path() + "/Applications").entryList(kAll), QStringList { "Foo.app" });
    }
};

QTEST_MAIN(TestInstallerRun)
#include "tst_installerrun.moc"

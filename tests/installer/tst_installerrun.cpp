// SPDX-FileCopyrightText: 2026 Quillet developers
// SPDX-License-Identifier: MIT
//
// Whole installation runs with real bundles and processes: the files on
// disk, the log, the Trash, the desktop entry, the launched product and the
// window's final state.
#include "common/audiorecording.h"
#include "common/logcapture.h"
#include "common/systemtestuser.h"
#include "common/testchild.h"
#include "installer/productcopy.h"
#include "installer/workspace.h"
#include "installerfixture.h"
#include "process/vxprocess.h"
#include "process/vxprocess_p.h"
#include "utilities/vxuserdefaults.h"

#include <QLabel>
#include <QProcess>
#include <QPushButton>
#include <QRegularExpression>
#include <QScopeGuard>
#include <QSettings>
#include <QSignalSpy>
#include <QTest>
#include <csignal>
#include <future>
#include <thread>

namespace {
const QString kHelpers = QStringLiteral(QUILLET_BINARY_DIR "/tests/helpers");

// The products' creator code in this run: the installer quits every running
// process that carries it, so runs of this test elsewhere on the machine
// must not share it.
QString runSignature()
{
    return QStringLiteral("Q%1").arg(QCoreApplication::applicationPid() % 46656, 3, 36, QChar('0'));
}

// Gives the fixture's product a real program (the cooperative test helper)
// and this run's creator code.
void makeRunnable(ProductFixture &fixture, const QString &marker = QString())
{
    fixture.info.insert(QStringLiteral("CFBundleSignature"), runSignature());
    fixture.writeInfo();
    const QString program = fixture.product + "/Contents/Linux/Foo";
    QDir().mkpath(QFileInfo(program).path());
    QFile::remove(program);
    QFile::copy(kHelpers + "/behaviour", program);
    writeFile(fixture.product + "/Contents/Resources/ReadMe.txt", "new version");
    if (!marker.isEmpty())
        writeFile(fixture.product + "/Contents/Resources/" + marker, marker.toUtf8());
}

// Ends every process started from below the folder.
void killProcessesUnder(const QString &folder)
{
    for (const VXProcessPtr &p : VXProcess::allProcesses())
        if (p->path().startsWith(folder) && p->unixPID() != ::getpid())
            ::kill(p->unixPID(), SIGKILL);
}

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
    bool start(int timeoutMs = 60000)
    {
        controller.installButton()->click();
        return finished.wait(timeoutMs) || finished.size() == 1;
    }
    QStringList messages() { return log.messages(); }
};
} // namespace

class TestInstallerRun : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void init();
    void cleanup();
    void freshInstall();
    void installOverExistingCopyKeepsOldInTrash();
    void wrapperFolder_data();
    void wrapperFolder();
    void launchThatNeverOpensIsStillSuccess();
    void completionQuit_data();
    void completionQuit();
    void runningCopyThatRefusesCancelsTheRun();
    void unknownSignatureQuitsApplicationsOnly();
    void privilegedPathThroughStandInElevation_data();
    void privilegedPathThroughStandInElevation();
};

void TestInstallerRun::init()
{
    QDir(QDir::homePath() + "/.local/share/Trash").removeRecursively();
}

void TestInstallerRun::cleanup()
{
    VXProcessPlatform::setSignalSender({});
    // Products launched by a test that failed half-way would outlive it;
    // only this run's, never those of another run on the machine.
    killProcessesUnder(ProductFixture::rootPrefix());
}

void TestInstallerRun::freshInstall()
{
    ProductFixture fixture;
    makeRunnable(fixture);
    Run run(fixture, { "-productName", "Foo", "-version", "2.0" });
    // The run never waits for the main thread (it only posts to it): here the
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
    const QString destination = fixture.applications + "/Foo.app";
    QVERIFY2(run.finished.first().first().toString().isNull(),
        qPrintable(run.finished.first().first().toString() + "\n" + run.messages().join('\n')));
    QCOMPARE(
        run.controller.introField()->text(), QStringLiteral("Foo was successfully installed."));
    QCOMPARE(run.controller.installButton()->text(), QStringLiteral("OK"));
    QVERIFY(!run.controller.checkmarkField()->isHidden());
    QVERIFY(run.controller.cancelButton()->isHidden());
    QCOMPARE(InstallerWinController::currentInstallationLabel(), QStringLiteral("Foo 2.0"));

    // Files: a complete copy, executable bit kept, no staging leftovers.
    QVERIFY(QFileInfo(destination + "/Contents/Linux/Foo").isExecutable());
    QCOMPARE(QDir(fixture.applications)
                 .entryList(QDir::AllEntries | QDir::Hidden | QDir::NoDotAndDotDot),
        QStringList { "Foo.app" });

    const QStringList log = run.messages();
    const QStringList expected { "Install", "successfully copied", "launching " + destination,
        "waited 0.5", "registered app: 0", "waited 0.3", "launched immediately: 1" };
    QStringList seen;
    for (const QString &line : log)
        if (expected.contains(line))
            seen << line;
    QCOMPARE(seen, expected);

    // Registered with the desktop, and running from its new place.
    QSettings entry(Workspace::desktopEntryPath(destination), QSettings::IniFormat);
    QVERIFY(QFile::exists(entry.fileName()));
    QCOMPARE(
        entry.fileName(), QDir::homePath() + "/.local/share/applications/dev.example.foo.desktop");
    QTRY_VERIFY([&] {
        for (const VXProcessPtr &p : VXProcess::allProcesses())
            if (p->path() == destination)
                return true;
        return false;
    }());
    killProcessesUnder(fixture.applications);

    // A second install replaces its desktop entry rather than adding one,
    // and ends with the chime on the alert output when asked for one.
    MonitorRecording alert(QStringLiteral("alert"));
    Run again(fixture, { "-productName", "Foo", "-version", "2.0", "-completionSound", "YES" });
    QVERIFY(again.start());
    QTRY_VERIFY_WITH_TIMEOUT(alert.peak() > 3000, 10000);
    QCOMPARE(QDir(QDir::homePath() + "/.local/share/applications").entryList({ "*.desktop" }),
        QStringList { "dev.example.foo.desktop" });
    killProcessesUnder(fixture.applications);
}

void TestInstallerRun::installOverExistingCopyKeepsOldInTrash()
{
    ProductFixture fixture;
    makeRunnable(fixture);
    const QString destination = fixture.applications + "/Foo.app";
    QVERIFY(ProductCopy::copyTree(fixture.product, destination));
    writeFile(destination + "/Contents/Resources/old-marker", "the user's old copy");
    Run run(fixture, {});
    QVERIFY(run.start());
    QVERIFY(run.finished.first().first().toString().isNull());
    QVERIFY(!QFile::exists(destination + "/Contents/Resources/old-marker"));
    const QString trash = QDir::homePath() + "/.local/share/Trash";
    QFile marker(trash + "/files/Foo.app/Contents/Resources/old-marker");
    QVERIFY(marker.open(QIODevice::ReadOnly));
    QCOMPARE(marker.readAll(), QByteArray("the user's old copy"));
    QSettings info(trash + "/info/Foo.app.trashinfo", QSettings::IniFormat);
    QCOMPARE(info.value("Trash Info/Path").toString(), destination);
    QVERIFY(QDateTime::fromString(info.value("Trash Info/DeletionDate").toString(), Qt::ISODate)
                .isValid());
    killProcessesUnder(fixture.applications);
    QDir(trash).removeRecursively();
}

void TestInstallerRun::wrapperFolder_data()
{
    QTest::addColumn<bool>("existingWrapper");
    QTest::newRow("new wrapper folder") << false;
    QTest::newRow("wrapper folder already installed") << true;
}

void TestInstallerRun::wrapperFolder()
{
    QFETCH(bool, existingWrapper);
    ProductFixture fixture;
    makeRunnable(fixture);
    const QString wrapper = fixture.volume + "/Foo Folder";
    writeFile(wrapper + "/Manual.pdf", "%PDF new");
    writeFile(wrapper + "/Extras/plugin.so", "plugin");
    const QString installed = fixture.applications + "/Foo Folder";
    if (existingWrapper) {
        writeFile(installed + "/Manual.pdf", "%PDF old");
        writeFile(installed + "/My Notes.txt", "the user's own file");
    }
    Run run(fixture, { "-wrapperPath", wrapper });
    QVERIFY(run.start());
    QVERIFY(run.finished.first().first().toString().isNull());
    QVERIFY(QFileInfo(installed + "/Foo.app/Contents/Linux/Foo").isExecutable());
    QFile manual(installed + "/Manual.pdf");
    QVERIFY(manual.open(QIODevice::ReadOnly));
    QCOMPARE(manual.readAll(), QByteArray("%PDF new"));
    QVERIFY(QFile::exists(installed + "/Extras/plugin.so"));
    if (existingWrapper) {
        QVERIFY(QFile::exists(installed + "/My Notes.txt")); // not the installer's to touch
        QVERIFY(QFile::exists(QDir::homePath() + "/.local/share/Trash/files/Manual.pdf"));
    }
    killProcessesUnder(fixture.applications);
    QDir(QDir::homePath() + "/.local/share/Trash").removeRecursively();
}

void TestInstallerRun::launchThatNeverOpensIsStillSuccess()
{
    ProductFixture fixture;
    makeRunnable(fixture);
    QFile::setPermissions(
        fixture.product + "/Contents/Linux/Foo", QFile::ReadOwner | QFile::WriteOwner);
    Run run(fixture, {});
    QVERIFY(run.start());
    QVERIFY(run.finished.first().first().toString().isNull());
    const QStringList log = run.messages();
    QVERIFY(log.contains("launched immediately: 0"));
    QCOMPARE(log.filter(QRegularExpression("^retry opening \\(count=\\d+\\)$")).size(), 10);
    QCOMPARE(log.filter("launched: 0").size(), 10);
    QVERIFY(log.contains("retry opening (count=10)"));
    QCOMPARE(
        run.controller.introField()->text(), QStringLiteral("Foo was successfully installed."));
}

void TestInstallerRun::completionQuit_data()
{
    // clang-format off
    QTest::addColumn<QString>("value");
    QTest::addColumn<bool>("success");
    QTest::addColumn<QString>("logged");
    QTest::addColumn<bool>("quits");
    QTest::newRow("after success") << "0.5" << true << "quit delay: 0.5" << true;
    QTest::newRow("after failure") << "0.5" << false << "quit delay: 0.5" << true;
    QTest::newRow("unit after the number") << "0.5s" << true << "quit delay: 0.5" << true;
    QTest::newRow("decimal comma: its leading number") << "1,5" << true << "quit delay: 1.0"
        << true;
    QTest::newRow("zero stays open") << "0" << true << "quit delay: 0.0" << false;
    QTest::newRow("no number stays open") << "abc" << true << "quit delay: 0.0" << false;
    // clang-format on
}

void TestInstallerRun::completionQuit()
{
    QFETCH(QString, value);
    QFETCH(bool, success);
    QFETCH(QString, logged);
    QFETCH(bool, quits);
    ProductFixture fixture;
    Run run(fixture, { "-completionQuit", value });
    QSignalSpy quitting(&run.controller, &InstallerWinController::terminating);
    // The end of a run, as the installation thread reports it.
    run.controller.installationFinished(
        success ? QString() : QStringLiteral("Installation failed."));
    QVERIFY(run.messages().contains(logged));
    // A failure leaves the install page usable for another run.
    QCOMPARE(run.controller.installButton()->text(), success ? QString("OK") : QString("Install"));
    QCOMPARE(run.controller.cancelButton()->isEnabled(), !success);
    if (quits)
        QVERIFY(quitting.wait(30000));
    else
        QVERIFY(!quitting.wait(2000));
}

void TestInstallerRun::runningCopyThatRefusesCancelsTheRun()
{
    ProductFixture fixture;
    makeRunnable(fixture);
    // A copy of the product that is running and that no signal reaches.
    QProcess running;
    running.start(fixture.product + "/Contents/Linux/Foo", { "stubborn" });
    QVERIFY(running.waitForReadyRead(5000));
    VXProcessPlatform::setSignalSender([](const VXProcessSerialNumber &, int) {
        return VXProcessPlatform::SignalResult::Delivered;
    });
    Run run(fixture, {});
    QVERIFY(run.start(120000));
    const QString error = run.finished.first().first().toString();
    QCOMPARE(error,
        QStringLiteral("Foo cannot be running during the installation.\rQuit Foo, then click "
                       "\"Install\" again."));
    const QStringList log = run.messages();
    QVERIFY(log.contains("Foo did not quit; will retry"));
    QVERIFY(log.contains("Foo refused to quit; installation cancelled"));
    QCOMPARE(log.filter("Quitting '" + runSignature() + "': Foo").size(),
        4); // the first attempt and three retries
    QVERIFY(!QFile::exists(fixture.applications + "/Foo.app")); // nothing copied
    QVERIFY(run.controller.cancelButton()->isEnabled());
    QVERIFY(run.controller.messageField()->isHidden()); // the failure shows as re-enabled buttons
    VXProcessPlatform::setSignalSender({});
    running.kill();
    running.waitForFinished();
}

void TestInstallerRun::unknownSignatureQuitsApplicationsOnly()
{
    // "????" is the signature of every program without a bundle: of those,
    // only applications (a window here) are asked to quit, never a plain
    // process.
    ProductFixture fixture;
    TestChild plain(kHelpers + "/behaviour");
    TestChild windowed(kHelpers + "/windowapp", { "windowed" });
    QVERIFY(plain.waitReady() && windowed.waitReady());
    Run run(fixture, { "-quitCode", "????" });
    run.controller.quitProcesses();
    QVERIFY(windowed.process.waitForFinished(10000));
    QCOMPARE(plain.process.state(), QProcess::Running);
    const QStringList log = run.messages();
    QVERIFY(log.contains("Quitting '\?\?\?\?': windowapp"));
    QVERIFY(log.filter("behaviour").isEmpty());
}

void TestInstallerRun::privilegedPathThroughStandInElevation_data()
{
    // clang-format off
    QTest::addColumn<QString>("standIn");
    QTest::addColumn<QString>("result");
    QTest::addColumn<QString>("logLine");
    // The stand-ins take the password dialog's place and nothing else: the
    // first runs the real helper as root, as pkexec would after a password.
    QTest::newRow("authorized") << "exec env PKEXEC_UID=0 \"$@\"" << QString()
        << "successfully copied";
    QTest::newRow("dialog dismissed") << "exit 126" << "" << "User canceled authorization";
    QTest::newRow("helper fails") << "exit 3" << "Foo could not be installed" << "WEXITSTATUS";
    // clang-format on
}

void TestInstallerRun::privilegedPathThroughStandInElevation()
{
    QFETCH(QString, standIn);
    QFETCH(QString, result);
    QFETCH(QString, logLine);
    if (::geteuid() != 0)
        QSKIP("the helper installs into /opt only as root");
    ProductFixture fixture;
    makeRunnable(fixture);
    const QString script = fixture.path("elevate.sh");
    writeFile(script, ("#!/bin/sh\n" + standIn + "\n").toUtf8());
    QFile::setPermissions(script, QFile::ReadOwner | QFile::ExeOwner);
    const QString destination = "/opt/QuilletRunTest-" + QString::number(::getpid()) + ".app";
    InstallerWinController::setHelperPath(
        QStringLiteral(QUILLET_BINARY_DIR "/QuilletInstaller.app/Contents/Resources/train"));
    VXUserDefaults::standard().setObject(script, "elevationCommand");
    SystemShareGuard share; // the helper registers what it puts into /opt
    share.watch("dev.example.foo");
    const auto restore = qScopeGuard([&] {
        VXUserDefaults::standard().removeObject("elevationCommand");
        InstallerWinController::setHelperPath(QString());
        killProcessesUnder(destination);
        QDir(destination).removeRecursively();
    });
    // What an earlier installer wrote for a system install: an entry of the
    // user's own, which would hide the system one.
    const QString userEntry
        = QDir::homePath() + "/.local/share/applications/dev.example.foo.desktop";
    writeFile(userEntry,
        ("[Desktop Entry]\nType=Application\nName=Foo\nX-Quillet-Bundle=" + destination + "\n")
            .toUtf8());
    const auto removeUserEntry = qScopeGuard([&] { QFile::remove(userEntry); });
    Run run(fixture, { "-destinationPath", destination, "-productName", "Foo" });
    // Alt held: the privileged path even though /opt is writable for root.
    run.controller.setForcePrivileged(true);
    QVERIFY(run.start());
    const QString text = run.finished.first().first().toString();
    if (result.isNull()) {
        QVERIFY(text.isNull());
        QVERIFY(QFileInfo(destination + "/Contents/Linux/Foo").isExecutable());
        // Registered once, for all users: no entry of the user's own.
        QVERIFY(QFile(SystemShareGuard::entryFile("dev.example.foo")).open(QIODevice::ReadOnly));
        QCOMPARE(Workspace::systemDesktopEntryPath(destination),
            SystemShareGuard::entryFile("dev.example.foo"));
        QVERIFY(!QFile::exists(userEntry));
        QVERIFY(run.messages().contains("registered app: 0"));
    } else if (result.isEmpty()) {
        QVERIFY(!text.isNull() && text.isEmpty()); // nothing to show
        QVERIFY(!QFile::exists(destination));
        QVERIFY(QFile::exists(userEntry)); // nothing installed, nothing changed
    } else {
        QCOMPARE(text,
            QStringLiteral("Authorized copying failed.\rTry installing Foo manually by copying it "
                           "to the Applications folder."));
        QVERIFY(!QFile::exists(destination));
    }
    const QStringList log = run.messages();
    QVERIFY(log.contains("enforcing authorization"));
    QVERIFY2(log.contains(logLine), qPrintable(log.join('\n')));
    if (logLine == "WEXITSTATUS")
        QVERIFY(log.contains("ERROR -- Could not copy myself to /Applications with authorization"));
}

QTEST_MAIN(TestInstallerRun)
#include "tst_installerrun.moc"

// SPDX-FileCopyrightText: 2026 Quillet developers
// SPDX-License-Identifier: MIT
//
// Events between processes over a private session bus, change
// notifications, and the front process on a real X server with a window
// manager.
#include "common/logcapture.h"
#include "common/testchild.h"
#include "process/vxnotificationcenter.h"
#include "process/vxprocess.h"
#include "process/vxprocess_p.h"
#include "utilities/vxfourcharcode.h"

#include <QCoreApplication>
#include <QProcess>
#include <QSignalSpy>
#include <QTest>
#include <memory>

namespace {
const QString kHelpers = QStringLiteral(QUILLET_BINARY_DIR "/tests/helpers");

using Child = TestChild;

QStringList changes(const QSignalSpy &spy)
{
    QStringList out;
    for (const QList<QVariant> &args : spy)
        if (args.at(0).toString() == QLatin1String("VXProcessChangeNotification"))
            out << args.at(2).toMap().value(QStringLiteral("change")).toString();
    return out;
}
} // namespace

class TestVXProcessEvents : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void initTestCase();
    void cleanup();
    void quitEventEndsLibraryProgram();
    void quitFallsBackToQuitEvent();
    void eventErrorsAreLogged();
    void launchAndQuitCountTwo();
    void frontProcessFollowsActivation();
    void accessibilityWithoutBusIsLogged();
};

void TestVXProcessEvents::initTestCase()
{
    QVERIFY(!qEnvironmentVariableIsEmpty("DBUS_SESSION_BUS_ADDRESS"));
    VXProcess::installNotifications();
    QTest::qWait(300); // the watcher's first look at the process table
}

void TestVXProcessEvents::cleanup()
{
    VXProcessPlatform::setSignalSender({});
}

void TestVXProcessEvents::quitEventEndsLibraryProgram()
{
    Child quitter(kHelpers + "/quitter");
    QVERIFY(quitter.waitReady());
    const VXProcessPtr p = VXProcess::processWithPID(quitter.pid());
    LogCapture capture;
    p->sendAppleEventClass(VXFourCharCode::make("aevt"), VXFourCharCode::make("quit"), 2.0f);
    QVERIFY(quitter.process.waitForFinished(5000));
    capture.restore();
    QCOMPARE(quitter.process.exitCode(), 0);
    QVERIFY(quitter.process.readAll().contains("quit event"));
    QVERIFY(capture.messages().isEmpty()); // no error
}

void TestVXProcessEvents::quitFallsBackToQuitEvent()
{
    // Neither signal reaches it: after both deadlines (2 x 4 s) the quit
    // event is sent, and the program ends through it.
    Child quitter(kHelpers + "/quitter");
    QVERIFY(quitter.waitReady());
    const VXProcessPtr p = VXProcess::processWithPID(quitter.pid());
    VXProcessPlatform::setSignalSender([](const VXProcessSerialNumber &, int) {
        return VXProcessPlatform::SignalResult::Delivered;
    });
    LogCapture capture;
    p->quit();
    QVERIFY(quitter.process.waitForFinished(5000));
    capture.restore();
    QCOMPARE(capture.messages(), QStringList { "quitting quitter failed" });
    QVERIFY(quitter.process.readAll().contains("quit event"));
}

void TestVXProcessEvents::eventErrorsAreLogged()
{
    Child plain(kHelpers + "/behaviour");
    Child quitter(kHelpers + "/quitter");
    QVERIFY(plain.waitReady() && quitter.waitReady());
    LogCapture capture;
    VXProcess::processWithPID(plain.pid())
        ->sendAppleEventClass(VXFourCharCode::make("abcd"), VXFourCharCode::make("efgh"), 1.0f);
    VXProcess::processWithPID(quitter.pid())
        ->sendAppleEventClass(VXFourCharCode::make("abcd"), VXFourCharCode::make("efgh"), 1.0f);
    VXProcess::processWithPID(plain.pid())
        ->sendAppleEventClass(VXFourCharCode::make("abcd"), VXFourCharCode::make("efgh"));
    // The send with a parameter reports nothing.
    VXProcess::processWithPID(plain.pid())
        ->sendAppleEventClass(
            VXFourCharCode::make("abcd"), VXFourCharCode::make("efgh"), QStringLiteral("x"));
    capture.restore();
    QCOMPARE(capture.messages(),
        (QStringList {
            "*** event error: -600", "*** event error: -1708", "*** event error: -600" }));
    QCOMPARE(quitter.process.state(), QProcess::Running);
}

void TestVXProcessEvents::launchAndQuitCountTwo()
{
    QSignalSpy spy(VXNotificationCenter::defaultCenter(), &VXNotificationCenter::notified);
    VXProcess::installNotifications(); // a second call installs nothing more
    // Start from a quiet process table: earlier children have been seen off.
    for (int i = 0; i < 20; ++i) {
        spy.clear();
        QTest::qWait(700);
        if (spy.isEmpty())
            break;
    }
    const quint32 before = VXProcess::applicationLaunchEndCount();
    VXProcessPtr record;
    {
        Child child(kHelpers + "/behaviour");
        QVERIFY(child.waitReady());
        record = VXProcess::processWithPID(child.pid());
        QTRY_VERIFY(changes(spy).contains("started"));
        QVERIFY(VXProcess::indexOfCachedProcessWithSerialNumber(record->serialNumber())
            != VXProcess::NotFound);
    }
    QTRY_VERIFY(changes(spy).contains("ended"));
    QTest::qWait(600);
    QVERIFY2(
        changes(spy) == (QStringList { "started", "ended" }), qPrintable(changes(spy).join(' ')));
    QCOMPARE(VXProcess::applicationLaunchEndCount() - before, 2u);
    // After "ended" the cache holds no record of an ended process.
    QCOMPARE(VXProcess::indexOfCachedProcessWithSerialNumber(record->serialNumber()),
        VXProcess::NotFound);
    for (const VXProcessPtr &p : VXProcess::cachedProcesses())
        QVERIFY(p->isStillRunning());
}

void TestVXProcessEvents::frontProcessFollowsActivation()
{
    if (qEnvironmentVariableIsEmpty("DISPLAY"))
        QSKIP("needs an X server");
    QSignalSpy spy(VXNotificationCenter::defaultCenter(), &VXNotificationCenter::notified);
    Child first(kHelpers + "/windowapp", { "first" });
    QVERIFY(first.waitReady());
    Child second(kHelpers + "/windowapp", { "second" });
    QVERIFY(second.waitReady());
    const VXProcessPtr a = VXProcess::processWithPID(first.pid());
    const VXProcessPtr b = VXProcess::processWithPID(second.pid());
    QTRY_VERIFY(b->isFrontProcess()); // the newest window has the focus
    QTest::qWait(300);
    spy.clear();
    // One notification per switch between applications (switches faster
    // than the event loop runs are seen as one).
    a->setFrontProcess();
    QTRY_VERIFY(a->isFrontProcess());
    QCOMPARE(VXProcess::frontProcess(), a);
    QTRY_COMPARE(changes(spy).count("front"), 1);
    b->setFrontProcessFrontWindowOnly();
    QTRY_VERIFY(b->isFrontProcess());
    QTRY_COMPARE(changes(spy).count("front"), 2);
    b->setHidden(true);
    QTRY_VERIFY(!b->isFrontProcess());
    b->setHidden(false);
    QTRY_VERIFY(b->isFrontProcess());
}

void TestVXProcessEvents::accessibilityWithoutBusIsLogged()
{
    Child child(kHelpers + "/behaviour");
    QVERIFY(child.waitReady());
    const VXProcessPtr p = VXProcess::processWithPID(child.pid());
    LogCapture capture;
    p->addAXNotification(QStringLiteral("AXFocusedUIElementChanged"));
    p->removeAXNotification(QStringLiteral("AXFocusedUIElementChanged"));
    capture.restore();
    const QString record = p->description();
    QCOMPARE(capture.messages(),
        (QStringList { "AX Notifications: Could not create application object for " + record,
            "AX Notifications: Could not add notification AXFocusedUIElementChanged for "
                + record }));
}

QTEST_GUILESS_MAIN(TestVXProcessEvents)
#include "tst_vxprocessevents.moc"

// SPDX-FileCopyrightText: 2026 Quillet developers
// SPDX-License-Identifier: MIT
//
// Events between processes over a private session bus, change
// notifications, and the front process on a real X server with a window
// manager.
#include "common/logcapture.h"
#include "common/testchild.h"
#include "common/testfiles.h"
#include "process/vxnotificationcenter.h"
#include "process/vxprocess.h"
#include "process/vxprocess_p.h"
#include "utilities/vxfourcharcode.h"
#include "utilities/vxpropertylist.h"

#include <QCoreApplication>
#include <QDir>
#include <QProcess>
#include <QSignalSpy>
#include <QTemporaryDir>
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
    void reusedPidNeverReceivesEvents();
    void launchAndQuitCountTwo_data();
    void launchAndQuitCountTwo();
    void lookupBeforeApplicationObjectStillNotifies();
    void frontProcessFollowsActivation();
};

void TestVXProcessEvents::initTestCase()
{
    QVERIFY(!qEnvironmentVariableIsEmpty("DBUS_SESSION_BUS_ADDRESS"));
    VXProcess::installNotifications();
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

void TestVXProcessEvents::reusedPidNeverReceivesEvents()
{
    // A record of an ended process whose pid a library program holds now:
    // neither the quit fallback nor any send reaches that program.
    Child quitter(kHelpers + "/quitter");
    QVERIFY(quitter.waitReady());
    const VXProcessSerialNumber live = VXProcessPlatform::serialNumberForPid(quitter.pid());
    const VXProcessPtr old
        = VXProcess::processWithSerialNumber({ live.highLongOfPSN, live.lowLongOfPSN - 1 });
    const quint32 aevt = VXFourCharCode::make("aevt"), quit = VXFourCharCode::make("quit");
    LogCapture quiet;
    old->quit();
    old->sendAppleEventClass(aevt, quit, 1.0f);
    old->sendAppleEventClass(aevt, quit);
    old->sendAppleEventClass(aevt, quit, QStringLiteral("x"));
    QVERIFY(!quitter.process.waitForFinished(500));
    QCOMPARE(quitter.process.state(), QProcess::Running);
}

void TestVXProcessEvents::launchAndQuitCountTwo_data()
{
    // What makes the child an application, which source reports it.
    QTest::addColumn<QString>("kind");
    QTest::newRow("window") << "window";
    QTest::newRow("bus name") << "bus";
    QTest::newRow("bundle") << "bundle";
}

void TestVXProcessEvents::launchAndQuitCountTwo()
{
    QFETCH(QString, kind);
    QSignalSpy spy(VXNotificationCenter::defaultCenter(), &VXNotificationCenter::notified);
    VXProcess::installNotifications(); // a second call installs nothing more
    // Earlier children have been seen off.
    for (int i = 0; i < 20 && spy.wait(500); ++i)
        ;
    spy.clear();
    const quint32 before = VXProcess::applicationLaunchEndCount();
    // 200 short-lived programs meanwhile are not applications.
    QProcess noise;
    noise.start("sh", { "-c", "i=0; while [ $i -lt 200 ]; do /bin/true; i=$((i+1)); done" });
    QTemporaryDir dir;
    QString program = kHelpers
        + (kind == "window"     ? "/windowapp"
                : kind == "bus" ? "/quitter"
                                : "/behaviour");
    if (kind == "bundle") {
        const QString app = dir.path() + "/Counted.app";
        QDir().mkpath(app + "/Contents/Linux");
        QFile::copy(program, app + "/Contents/Linux/Counted");
        writeFile(app + "/Contents/Info.plist",
            VXPropertyList::toXml({ { "CFBundleExecutable", "Counted" } }));
        program = app + "/Contents/Linux/Counted";
    }
    VXProcessPtr record;
    {
        Child child(program);
        QVERIFY(child.waitReady());
        record = VXProcess::processWithPID(child.pid());
        // A bundle without window or bus name is found by the scan every few seconds.
        QTRY_VERIFY_WITH_TIMEOUT(changes(spy).contains("started"), 15000);
        QVERIFY(VXProcess::indexOfCachedProcessWithSerialNumber(record->serialNumber())
            != VXProcess::NotFound);
    }
    QTRY_VERIFY_WITH_TIMEOUT(changes(spy).contains("ended"), 15000);
    QTRY_VERIFY_WITH_TIMEOUT(noise.state() == QProcess::NotRunning, 60000);
    QTest::qWait(500);
    QStringList seen = changes(spy);
    seen.removeAll("front"); // a new window takes the focus
    QVERIFY2(seen == (QStringList { "started", "ended" }), qPrintable(seen.join(' ')));
    QCOMPARE(VXProcess::applicationLaunchEndCount() - before, 2u);
    // After "ended" the cache holds no record of an ended process.
    QCOMPARE(VXProcess::indexOfCachedProcessWithSerialNumber(record->serialNumber()),
        VXProcess::NotFound);
    for (const VXProcessPtr &p : VXProcess::cachedProcesses())
        QVERIFY(p->isStillRunning());
}

void TestVXProcessEvents::lookupBeforeApplicationObjectStillNotifies()
{
    // The helper looks itself up before it makes its application object,
    // and prints the changes it hears afterwards.
    Child early(kHelpers + "/quitter", { "early" });
    QVERIFY(early.waitReady());
    Child launched(kHelpers + "/quitter");
    QVERIFY(launched.waitReady());
    QByteArray heard;
    QTRY_VERIFY2_WITH_TIMEOUT(
        (heard += early.process.readAll()).contains("change started"), heard.constData(), 10000);
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
    // A program with a window is an application, also without a bundle.
    QVERIFY(VXProcess::allProcesses().contains(a));
    QCOMPARE(a->signatureString(), QStringLiteral("????"));
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

QTEST_GUILESS_MAIN(TestVXProcessEvents)
#include "tst_vxprocessevents.moc"

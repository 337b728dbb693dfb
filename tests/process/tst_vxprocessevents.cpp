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

#include <QSignalSpy>
#include <QTemporaryDir>
#include <csignal>

namespace {
const quint32 kAevt = VXFourCharCode::make("aevt"), kQuit = VXFourCharCode::make("quit");
const quint32 kAbcd = VXFourCharCode::make("abcd"), kEfgh = VXFourCharCode::make("efgh");

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
    void initTestCase()
    {
        QVERIFY(!qEnvironmentVariableIsEmpty("DBUS_SESSION_BUS_ADDRESS"));
        VXProcess::installNotifications();
    }
    void cleanup() { VXProcessPlatform::setSignalSender({}); }

    void quitFallsBackToTheQuitEvent()
    {
        // Neither signal reaches the program: after both deadlines (2 x 4 s)
        // the quit event is sent, and the program ends through it. A copy that
        // looked itself up before it made its application object hears of its
        // start all the same.
        TestChild early(kHelpers + "/quitter", { "early" });
        QVERIFY(early.waitReady());
        TestChild quitter(kHelpers + "/quitter");
        QVERIFY(quitter.waitReady());
        QByteArray heard;
        QTRY_VERIFY2_WITH_TIMEOUT((heard += early.process.readAll()).contains("change started"),
            heard.constData(), 10000);
        VXProcessPlatform::setSignalSender([](const VXProcessSerialNumber &, int) {
            return VXProcessPlatform::SignalResult::Delivered;
        });
        LogCapture capture;
        VXProcess::processWithPID(quitter.pid())->quit();
        QVERIFY(quitter.process.waitForFinished(30000));
        capture.restore();
        QCOMPARE(quitter.process.exitCode(), 0);
        QVERIFY(quitter.process.readAll().contains("quit event"));
        QCOMPARE(capture.messages(), QStringList { "quitting quitter failed" });
    }

    void eventsReachTheirProcessOrLogWhy()
    {
        // An old record whose pid now belongs to the library program (the start
        // time, in clock ticks, tells them apart) reaches nothing: no signal,
        // neither the quit fallback nor any send. Then no handler (-600), a
        // handler that does not know the event (-1708); the send with a
        // parameter reports nothing; the quit event, sent directly, ends the
        // library program without a word.
        TestChild plain(kHelpers + "/behaviour"), quitter(kHelpers + "/quitter");
        QVERIFY(plain.waitReady() && quitter.waitReady());
        const VXProcessPtr p = VXProcess::processWithPID(plain.pid());
        const VXProcessPtr q = VXProcess::processWithPID(quitter.pid());
        const VXProcessSerialNumber live = q->serialNumber();
        const VXProcessSerialNumber oldNumber { live.highLongOfPSN, live.lowLongOfPSN - 1 };
        const VXProcessPtr old = VXProcess::processWithSerialNumber(oldNumber);
        QVERIFY(!old->isStillRunning() && old->unixPID() == 0);
        QCOMPARE(VXProcess::processWithPID(quitter.pid()), q);
        QCOMPARE(VXProcessPlatform::sendSignal(oldNumber, SIGKILL),
            VXProcessPlatform::SignalResult::Gone);
        LogCapture quiet;
        old->quit();
        old->forceQuit();
        old->wakeUp();
        old->sendAppleEventClass(kAevt, kQuit, 1.0f);
        old->sendAppleEventClass(kAevt, kQuit);
        old->sendAppleEventClass(kAevt, kQuit, QStringLiteral("x"));
        QVERIFY(!quitter.process.waitForFinished(500));
        QCOMPARE(quitter.process.state(), QProcess::Running);
        quiet.restore();
        LogCapture capture;
        p->sendAppleEventClass(kAbcd, kEfgh, 1.0f);
        q->sendAppleEventClass(kAbcd, kEfgh, 1.0f);
        p->sendAppleEventClass(kAbcd, kEfgh);
        p->sendAppleEventClass(kAbcd, kEfgh, QStringLiteral("x"));
        q->sendAppleEventClass(kAevt, kQuit, 2.0f);
        QVERIFY(quitter.process.waitForFinished(30000));
        capture.restore();
        QCOMPARE(capture.messages(),
            (QStringList {
                "*** event error: -600", "*** event error: -1708", "*** event error: -600" }));
        QCOMPARE(quitter.process.exitCode(), 0);
        QVERIFY(quitter.process.readAll().contains("quit event"));
    }

    void launchAndQuitCountTwo_data()
    {
        // What makes the child an application, and so which source reports it.
        QTest::addColumn<QString>("program");
        QTest::newRow("window") << "windowapp";
        QTest::newRow("bus name") << "quitter";
        QTest::newRow("bundle") << "Counted.app/Contents/Linux/Counted";
    }

    void launchAndQuitCountTwo()
    {
        QFETCH(QString, program);
        QSignalSpy spy(VXNotificationCenter::defaultCenter(), &VXNotificationCenter::notified);
        VXProcess::installNotifications(); // a second call installs nothing more
        for (int i = 0; i < 20 && spy.wait(500); ++i) // earlier children have been seen off
            ;
        spy.clear();
        const quint32 before = VXProcess::applicationLaunchEndCount();
        // 200 short-lived programs meanwhile are not applications.
        QProcess noise;
        noise.start("sh", { "-c", "for i in $(seq 200); do /bin/true; done" });
        QTemporaryDir dir;
        if (program.contains(".app/")) {
            writeFile(dir.filePath(program), readFile(kHelpers + "/behaviour"), true);
            writeFile(dir.filePath("Counted.app/Contents/Info.plist"),
                VXPropertyList::toXml({ { "CFBundleExecutable", "Counted" } }));
        }
        VXProcessPtr record;
        {
            TestChild child(
                program.contains(".app/") ? dir.filePath(program) : kHelpers + "/" + program);
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
        QCOMPARE(seen, (QStringList { "started", "ended" }));
        QCOMPARE(VXProcess::applicationLaunchEndCount() - before, 2u);
        // After "ended" the cache holds no record of an ended process.
        QCOMPARE(VXProcess::indexOfCachedProcessWithSerialNumber(record->serialNumber()),
            VXProcess::NotFound);
        for (const VXProcessPtr &p : VXProcess::cachedProcesses())
            QVERIFY(p->isStillRunning());
    }

    void frontProcessFollowsActivation()
    {
        QSignalSpy spy(VXNotificationCenter::defaultCenter(), &VXNotificationCenter::notified);
        TestChild first(kHelpers + "/windowapp", { "first" });
        QVERIFY(first.waitReady());
        TestChild second(kHelpers + "/windowapp", { "second" });
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
};

QTEST_GUILESS_MAIN(TestVXProcessEvents)
#include "tst_vxprocessevents.moc"

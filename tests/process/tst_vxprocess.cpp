// SPDX-FileCopyrightText: 2026 Quillet developers
// SPDX-License-Identifier: MIT
//
// Process records of real child processes: lookups, details, quitting with
// signals and events, pid reuse.
#include "common/logcapture.h"
#include "common/testchild.h"
#include "common/testfiles.h"
#include "process/vxappleevents.h"
#include "process/vxprocess.h"
#include "process/vxprocess_p.h"
#include "utilities/vxfourcharcode.h"
#include "utilities/vxpropertylist.h"

#include <QCoreApplication>
#include <QCryptographicHash>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QProcess>
#include <QRegularExpression>
#include <QScopeGuard>
#include <QTemporaryDir>
#include <QTest>
#include <atomic>
#include <csignal>
#include <functional>
#include <memory>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

namespace {
const QString kHelpers = QStringLiteral(QUILLET_BINARY_DIR "/tests/helpers");

using Child = TestChild;

// A resource fork holding one 'vers' resource (ID 1).
QByteArray versFork(quint8 major, quint8 minorBug, quint8 stage, quint8 revision)
{
    QByteArray vers;
    vers.append(char(major)).append(char(minorBug)).append(char(stage)).append(char(revision));
    vers.append("\0\0", 2)
        .append("\x05"
                "1.2.3",
            6)
        .append("\x05"
                "1.2.3",
            6);
    QByteArray data;
    const quint32 len = quint32(vers.size());
    data.append(char(len >> 24))
        .append(char(len >> 16))
        .append(char(len >> 8))
        .append(char(len))
        .append(vers);
    auto be32 = [](quint32 v) {
        const char b[4] = { char(v >> 24), char(v >> 16), char(v >> 8), char(v) };
        return QByteArray(b, 4);
    };
    auto be16 = [](quint16 v) {
        const char b[2] = { char(v >> 8), char(v) };
        return QByteArray(b, 2);
    };
    const quint32 dataOffset = 256;
    const quint32 mapOffset = dataOffset + quint32(data.size());
    QByteArray map(16, '\0');
    map += be32(0) + be16(0) + be16(0) + be16(28) + be16(0xffff); // type list at 28
    map += be16(0) + QByteArray("vers") + be16(0) + be16(10); // one type, one resource, refs at 10
    map += be16(1) + be16(0xffff) + QByteArray(1, '\0') + QByteArray(3, '\0') + be32(0);
    QByteArray header = be32(dataOffset) + be32(mapOffset) + be32(quint32(data.size()))
        + be32(quint32(map.size()));
    QByteArray fork = header + QByteArray(int(dataOffset) - header.size(), '\0') + data + map;
    return fork;
}

// Test.app around a copy of the behaviour program.
QString makeBundle(const QString &folder, const QVariantMap &info)
{
    const QString app = folder + QLatin1String("/Test Helper.app");
    QDir().mkpath(app + QLatin1String("/Contents/Linux"));
    QFile::remove(app + QLatin1String("/Contents/Linux/Helper"));
    QFile::copy(
        kHelpers + QLatin1String("/behaviour"), app + QLatin1String("/Contents/Linux/Helper"));
    writeFile(app + QLatin1String("/Contents/Info.plist"), VXPropertyList::toXml(info));
    return app;
}
} // namespace

class TestVXProcess : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void cleanup();
    void lookupsShareRecordsAndKeepRecentFirst();
    void listHoldsApplicationsOnly();
    void listingOpensNoDescriptorPerProcess();
    void bundledProcessDetails();
    void gnustepBundleAnswersAlikeInAnyOrder_data();
    void gnustepBundleAnswersAlikeInAnyOrder();
    void versionFromShortOrBundleVersion_data();
    void versionFromShortOrBundleVersion();
    void classicVersionResource_data();
    void classicVersionResource();
    void exitedRecordKeepsDetailsButNotLife();
    void reusedPidIsNeverTheOldProcess();
    void quit_data();
    void quit();
    void cpuTimeOfBusyProcess();
    void signatureHexWidensHighBytes();
    void diagnosticsReport();
    void unusualProcessTableEntries();
    void accessibilityWithoutBusIsLogged();
};

void TestVXProcess::cleanup()
{
    VXProcessPlatform::setSignalSender({});
}

void TestVXProcess::lookupsShareRecordsAndKeepRecentFirst()
{
    Child a(kHelpers + "/behaviour"), b(kHelpers + "/behaviour");
    QVERIFY(a.waitReady() && b.waitReady());
    const VXProcessPtr first = VXProcess::processWithPID(a.pid());
    const VXProcessPtr second = VXProcess::processWithPID(b.pid());
    QVERIFY(first && second && !first->isEqual(second));
    QCOMPARE(VXProcess::cachedProcesses().first(), second);
    QCOMPARE(VXProcess::processWithPID(a.pid()), first); // the same object
    QCOMPARE(VXProcess::cachedProcesses().first(), first); // moved to the front
    QCOMPARE(VXProcess::indexOfCachedProcessWithSerialNumber(second->serialNumber()), 1);
    QCOMPARE(VXProcess::indexOfCachedProcessWithSerialNumber({ 1, 1 }), VXProcess::NotFound);
    QCOMPARE(VXProcess::processWithSerialNumber(first->serialNumber()), first);
    QCOMPARE(VXProcess::currentProcess()->unixPID(), qint32(::getpid()));
    QVERIFY(VXProcess::currentProcess()->isEqual(VXProcess::processWithPID(::getpid())));
    QVERIFY(!VXProcess::processWithPID(0));
    QVERIFY(!VXProcess::processWithPID(-5));
}

void TestVXProcess::listHoldsApplicationsOnly()
{
    // Here (no display, no bus) only a bundle makes an application: a plain
    // program, although "????" like the bundle without a signature, is found
    // by its pid but neither listed nor found by signature.
    QTemporaryDir dir;
    Child bundled(
        makeBundle(dir.path(), { { "CFBundleExecutable", "Helper" } }) + "/Contents/Linux/Helper");
    Child plain(kHelpers + "/behaviour");
    QVERIFY(bundled.waitReady() && plain.waitReady());
    QList<qint32> pids;
    for (const VXProcessPtr &p : VXProcess::allProcesses())
        pids << p->unixPID();
    QVERIFY(pids.contains(bundled.pid()));
    QVERIFY(!pids.contains(plain.pid()));
    QVERIFY(!pids.contains(qint32(::getpid())));
    QVERIFY(std::is_sorted(pids.begin(), pids.end()));
    QCOMPARE(VXProcess::processWithPID(plain.pid())->signatureString(), QStringLiteral("????"));
    QCOMPARE(VXProcess::processWithSignatureString("????")->unixPID(), bundled.pid());

    // A thread's id is no process id: no second record of this process.
    std::atomic<pid_t> tid { 0 };
    std::atomic<bool> stop { false };
    std::thread thread([&] {
        tid = ::gettid();
        while (!stop)
            ::usleep(1000);
    });
    const auto join = qScopeGuard([&] {
        stop = true;
        thread.join();
    });
    QTRY_VERIFY(tid != 0);
    QVERIFY(!VXProcess::processWithPID(tid));
}

void TestVXProcess::listingOpensNoDescriptorPerProcess()
{
    VXProcess::installNotifications();
    auto descriptors = [] {
        return QDir("/proc/self/fd")
            .entryList(QDir::AllEntries | QDir::System | QDir::NoDotAndDotDot)
            .size();
    };
    // 2,000 sleeping processes of our own, in a process group of their own,
    // which the shell kills and reaps when its input closes.
    QProcess sleepers;
    sleepers.setChildProcessModifier([] { ::setpgid(0, 0); });
    sleepers.start("sh",
        { "-c",
            "i=0; while [ $i -lt 2000 ]; do sleep 600 & pids=\"$pids $!\"; i=$((i+1)); done; echo "
            "ready; "
            "read x; kill $pids; wait" });
    const auto reap = qScopeGuard([&] {
        sleepers.closeWriteChannel();
        if (!sleepers.waitForFinished(60000)) {
            ::kill(-pid_t(sleepers.processId()), SIGKILL);
            sleepers.waitForFinished();
        }
    });
    QVERIFY(sleepers.waitForStarted());
    while (!sleepers.canReadLine() && sleepers.state() == QProcess::Running)
        sleepers.waitForReadyRead(1000);
    QVERIFY(sleepers.readLine().startsWith("ready"));
    const qsizetype before = descriptors();
    for (int i = 0; i < 3; ++i) {
        VXProcess::allProcesses();
        QTest::qWait(200); // whatever watches processes has had its turn
    }
    QCOMPARE(descriptors(), before);
}

void TestVXProcess::bundledProcessDetails()
{
    QTemporaryDir dir;
    const QString app = makeBundle(dir.path(),
        { { "CFBundleName", "Test Helper" }, { "CFBundleExecutable", "Helper" },
            { "CFBundleIdentifier", "dev.quillet.test.helper" }, { "CFBundleSignature", "QTst" },
            { "CFBundleShortVersionString", "3.1.4" }, { "NSPrincipalClass", "QApplication" },
            { "CFBundleIconFile", "Helper" } });
    writeFile(app + "/Contents/Resources/Helper.png", "png");
    Child child(app + "/Contents/Linux/Helper");
    QVERIFY(child.waitReady());
    const VXProcessPtr p = VXProcess::processWithPID(child.pid());
    QVERIFY(p);
    QCOMPARE(p->name(), QStringLiteral("Test Helper"));
    QCOMPARE(p->signature(), VXFourCharCode::make("QTst"));
    QCOMPARE(p->signatureString(), QStringLiteral("QTst"));
    QCOMPARE(p->signatureHexString(), QStringLiteral("51547374"));
    QCOMPARE(p->path(), app);
    QCOMPARE(p->appName(), QStringLiteral("Test Helper.app"));
    QCOMPARE(p->identifier(), QStringLiteral("dev.quillet.test.helper"));
    QCOMPARE(p->version(), QStringLiteral("3.1.4"));
    QCOMPARE(p->majorVersionNumber(), 3);
    QVERIFY(p->isCocoa());
    QCOMPARE(p->platform(), QStringLiteral("Cocoa"));
    QVERIFY(!p->isBackgroundOnly());
    QCOMPARE(p->iconPath(), app + "/Contents/Resources/Helper.png");
    QCOMPARE(p->description(), QStringLiteral("Process \"Test Helper\" (QTst) 3.1.4"));
    QCOMPARE(p->detailedDescription(),
        QStringLiteral("Test Helper V3.1.4 (QTst/dev.quillet.test.helper)"));
    QCOMPARE(p->infoDictionary().value("pid").toLongLong(), qlonglong(child.pid()));
    QCOMPARE(p->hashStringSource(), QStringLiteral("id:dev.quillet.test.helper"));
    // The digest agrees with the system's md5sum.
    QProcess md5;
    md5.start("sh", { "-c", "printf '%s' 'id:dev.quillet.test.helper' | md5sum" });
    md5.waitForFinished();
    QCOMPARE(p->hashString(), QString::fromLatin1(md5.readAllStandardOutput().left(32)));
    const QDateTime started = p->launchDate();
    QVERIFY(qAbs(started.secsTo(QDateTime::currentDateTime())) < 60);
    QVERIFY(p->secondsRunning() >= 0);
    QVERIFY(VXProcess::processWithSignatureString("QTst")->isEqual(p));
    QVERIFY(VXProcess::processWithIdentifier("dev.quillet.test.helper")->isEqual(p));
    QVERIFY(!VXProcess::processWithSignatureString("Zzz9"));
}

void TestVXProcess::gnustepBundleAnswersAlikeInAnyOrder_data()
{
    QTest::addColumn<QString>("first");
    for (const char *detail : { "path", "version", "identifier", "platform", "hashString" })
        QTest::newRow(detail) << QString::fromLatin1(detail);
}

void TestVXProcess::gnustepBundleAnswersAlikeInAnyOrder()
{
    // Name.app/Resources/Info-gnustep.plist, the program at the top.
    QFETCH(QString, first);
    QTemporaryDir dir;
    const QString app = dir.path() + "/Gnu.app";
    QDir().mkpath(app + "/Resources");
    QFile::copy(kHelpers + "/behaviour", app + "/Gnu");
    writeFile(app + "/Resources/Info-gnustep.plist",
        VXPropertyList::toXml({ { "NSExecutable", "Gnu" },
            { "CFBundleIdentifier", "dev.quillet.gnu" }, { "CFBundleShortVersionString", "4.2" },
            { "NSPrincipalClass", "NSApplication" } }));
    Child child(app + "/Gnu");
    QVERIFY(child.waitReady());
    const VXProcessPtr p = VXProcess::processWithPID(child.pid());
    const QMap<QString, std::function<QString()>> details {
        { "path", [&] { return p->path(); } },
        { "version", [&] { return p->version(); } },
        { "identifier", [&] { return p->identifier(); } },
        { "platform", [&] { return p->platform(); } },
        { "hashString", [&] { return p->hashStringSource(); } },
    };
    details.value(first)();
    QCOMPARE(details.value("path")(), app);
    QCOMPARE(details.value("version")(), QStringLiteral("4.2"));
    QCOMPARE(details.value("identifier")(), QStringLiteral("dev.quillet.gnu"));
    QCOMPARE(details.value("platform")(), QStringLiteral("Cocoa"));
    QCOMPARE(details.value("hashString")(), QStringLiteral("id:dev.quillet.gnu"));
}

void TestVXProcess::versionFromShortOrBundleVersion_data()
{
    // The Info dictionary, the version it gives, and a comparison with it.
    QTest::addColumn<QVariantMap>("info");
    QTest::addColumn<QString>("version");
    QTest::addColumn<QString>("wanted");
    QTest::addColumn<bool>("atLeast");
    auto shortVersion = [](const char *v) {
        return QVariantMap { { "CFBundleShortVersionString", v } };
    };
    QTest::newRow("short without dot, bundle version")
        << QVariantMap { { "CFBundleShortVersionString", "7" }, { "CFBundleVersion", "7.0.1" } }
        << "7.0.1"
        << "7.0.2" << false;
    QTest::newRow("short with dot")
        << QVariantMap { { "CFBundleShortVersionString", "2.5" }, { "CFBundleVersion", "250" } }
        << "2.5"
        << "2.5" << true;
    QTest::newRow("neither") << QVariantMap { { "CFBundleName", "X" } } << "1.0"
                             << "1" << true;
    QTest::newRow("version not a string") << QVariantMap { { "CFBundleVersion", 5 } } << "1.0"
                                          << "1.0.1" << false;
    QTest::newRow("missing component is 0") << shortVersion("1.2.0") << "1.2.0"
                                            << "1.2" << true;
    QTest::newRow("compared by value") << shortVersion("1.10") << "1.10"
                                       << "1.9" << true;
    QTest::newRow("older by value") << shortVersion("1.9") << "1.9"
                                    << "1.10" << false;
}

void TestVXProcess::versionFromShortOrBundleVersion()
{
    QFETCH(QVariantMap, info);
    QFETCH(QString, version);
    QFETCH(QString, wanted);
    QFETCH(bool, atLeast);
    QTemporaryDir dir;
    info.insert("CFBundleExecutable", "Helper");
    info.insert("CFBundleSignature", "QVer");
    Child child(makeBundle(dir.path(), info) + "/Contents/Linux/Helper");
    QVERIFY(child.waitReady());
    const VXProcessPtr p = VXProcess::processWithPID(child.pid());
    QCOMPARE(p->version(), version);
    QCOMPARE(p->isAtLeastVersion(wanted), atLeast);
}

void TestVXProcess::classicVersionResource_data()
{
    QTest::addColumn<QByteArray>("fork");
    QTest::addColumn<bool>("appleDouble");
    QTest::addColumn<QString>("version");
    QTest::newRow("beta with bugfix") << versFork(0x01, 0x23, 0x60, 4) << false << "1.2.3b4";
    QTest::newRow("final, no bugfix") << versFork(0x10, 0x40, 0x80, 0) << false << "10.4";
    QTest::newRow("final stage with revision has no letter")
        << versFork(0x02, 0x01, 0x80, 7) << false << "2.0.17";
    QTest::newRow("in an AppleDouble file") << versFork(0x01, 0x00, 0x20, 9) << true << "1.0d9";
    QTest::newRow("damaged fork") << QByteArray("\0\0\1\0\xff\xff\xff\xff", 8) << false << "1.0";
}

void TestVXProcess::classicVersionResource()
{
    QFETCH(QByteArray, fork);
    QFETCH(bool, appleDouble);
    QFETCH(QString, version);
    QTemporaryDir dir;
    const QString program = dir.path() + "/classic";
    QFile::copy(kHelpers + "/behaviour", program);
    if (appleDouble) {
        QByteArray header
            = QByteArray("\x00\x05\x16\x07\x00\x02\x00\x00", 8) + QByteArray(16, '\0');
        header += QByteArray("\x00\x01", 2) + QByteArray("\x00\x00\x00\x02", 4)
            + QByteArray("\x00\x00\x00\x26", 4);
        const quint32 n = quint32(fork.size());
        const char length[4] = { char(n >> 24), char(n >> 16), char(n >> 8), char(n) };
        header += QByteArray(length, 4);
        writeFile(dir.path() + "/._classic", header + fork);
    } else {
        writeFile(program + ".rsrc", fork);
    }
    Child child(program);
    QVERIFY(child.waitReady());
    QCOMPARE(VXProcess::processWithPID(child.pid())->version(), version);
}

void TestVXProcess::exitedRecordKeepsDetailsButNotLife()
{
    auto child = std::make_unique<Child>(kHelpers + "/behaviour");
    QVERIFY(child->waitReady());
    const VXProcessPtr p = VXProcess::processWithPID(child->pid());
    const QString name = p->name();
    const QString path = p->path();
    QVERIFY(p->isStillRunning());
    child.reset(); // killed and reaped
    QVERIFY(!p->isStillRunning());
    QCOMPARE(p->unixPID(), 0);
    QCOMPARE(p->name(), name);
    QCOMPARE(p->path(), path);
    QVERIFY(
        VXProcess::indexOfCachedProcessWithSerialNumber(p->serialNumber()) != VXProcess::NotFound);
    VXProcess::cleanupCache();
    QCOMPARE(
        VXProcess::indexOfCachedProcessWithSerialNumber(p->serialNumber()), VXProcess::NotFound);
    QVERIFY(!p->name().isEmpty()); // a kept record stays usable
    LogCapture capture;
    QVERIFY(!p->quitRunningApplicationWithTimeout(0.5f));
    capture.restore();
    QCOMPARE(capture.messages(), QStringList { "cannot quit behaviour: no pid" });
}

void TestVXProcess::reusedPidIsNeverTheOldProcess()
{
    // An old record whose pid now belongs to another process: the start time
    // tells them apart, so nothing answers for, or is sent to, the new one.
    Child survivor(kHelpers + "/behaviour");
    QVERIFY(survivor.waitReady());
    const VXProcessSerialNumber live = VXProcessPlatform::serialNumberForPid(survivor.pid());
    const VXProcessSerialNumber old { live.highLongOfPSN, live.lowLongOfPSN - 1 };
    const VXProcessPtr oldRecord = VXProcess::processWithSerialNumber(old);
    QVERIFY(!oldRecord->isStillRunning());
    QCOMPARE(oldRecord->unixPID(), 0);
    QVERIFY(!oldRecord->isEqual(VXProcess::processWithPID(survivor.pid())));
    QCOMPARE(VXProcessPlatform::sendSignal(old, SIGKILL), VXProcessPlatform::SignalResult::Gone);
    LogCapture quiet;
    QVERIFY(!oldRecord->quitRunningApplicationWithTimeout(0.2f));
    oldRecord->forceQuit();
    oldRecord->wakeUp();
    QTest::qWait(100);
    QCOMPARE(survivor.process.state(), QProcess::Running);

    // Real reuse where the kernel lets root choose the next pid.
    QFile lastPid("/proc/sys/kernel/ns_last_pid");
    if (!lastPid.open(QIODevice::WriteOnly))
        QSKIP("cannot choose the next pid here (needs root in this pid namespace)");
    lastPid.close();
    const pid_t first = ::fork();
    if (first == 0)
        ::_exit(0);
    const VXProcessPtr firstRecord
        = VXProcess::processWithPID(first); // may be a zombie already: then null
    ::waitpid(first, nullptr, 0);
    // Start times count clock ticks: a pid can only come round again after
    // the whole pid space, never within the same tick.
    QTest::qWait(30);
    const VXProcessSerialNumber firstSerial
        = firstRecord ? firstRecord->serialNumber() : VXProcessSerialNumber {};
    pid_t second = -1;
    // A child left behind would hold the test's output open.
    const auto reap = qScopeGuard([&] {
        if (second > 0) {
            ::kill(second, SIGKILL);
            ::waitpid(second, nullptr, 0);
        }
    });
    for (int attempt = 0; attempt < 200 && second != first; ++attempt) {
        if (second > 0) {
            ::kill(second, SIGKILL);
            ::waitpid(second, nullptr, 0);
        }
        QFile f("/proc/sys/kernel/ns_last_pid");
        f.open(QIODevice::WriteOnly);
        f.write(QByteArray::number(first - 1));
        f.close();
        second = ::fork();
        if (second == 0) {
            ::pause();
            ::_exit(0);
        }
    }
    QCOMPARE(second, first);
    if (firstRecord) {
        QVERIFY(!firstRecord->isStillRunning());
        QVERIFY(!firstRecord->quitRunningApplicationWithTimeout(0.1f));
        QCOMPARE(VXProcessPlatform::sendSignal(firstSerial, SIGKILL),
            VXProcessPlatform::SignalResult::Gone);
    }
    QVERIFY(VXProcess::processWithPID(second)->serialNumber() != firstSerial);
    QCOMPARE(::kill(second, 0), 0); // still alive: never signalled
}

void TestVXProcess::quit_data()
{
    // How the process behaves, what signal delivery does (real, or a process
    // that is gone or that no signal reaches), the time-out, the outcome,
    // the one log line, and the least time the phases must have taken.
    QTest::addColumn<QString>("behaviour");
    QTest::addColumn<QString>("delivery");
    QTest::addColumn<float>("timeout");
    QTest::addColumn<bool>("quit");
    QTest::addColumn<QString>("line");
    QTest::addColumn<int>("atLeastMs");
    const QString after = " after 0\\.\\d{3}s \\(\\d+ attempts\\)$";
    QTest::newRow("cooperative") << "cooperative"
                                 << "real" << 2.0f << true
                                 << "^quit behaviour: (terminated|process stopped)" + after << 0;
    QTest::newRow("stubborn: killed after the polite deadline")
        << "stubborn"
        << "real" << 0.3f << true
        << "^(force-quit behaviour: terminated|foce-quit behaviour: process stopped)" + after
        << 300;
    QTest::newRow("gone before the first request")
        << ""
        << "gone" << 1.0f << true
        << "^quit behaviour: process stopped after 0\\.000s \\(1 attempts\\)$" << 0;
    QTest::newRow("no signal reaches it: fails after both deadlines")
        << "stubborn"
        << "delivered" << 0.25f << false << "^quitting behaviour failed$" << 500;
}

void TestVXProcess::quit()
{
    QFETCH(QString, behaviour);
    QFETCH(QString, delivery);
    QFETCH(float, timeout);
    QFETCH(bool, quit);
    QFETCH(QString, line);
    QFETCH(int, atLeastMs);
    Child child(
        kHelpers + "/behaviour", behaviour.isEmpty() ? QStringList() : QStringList { behaviour });
    QVERIFY(child.waitReady());
    const VXProcessPtr p = VXProcess::processWithPID(child.pid());
    if (delivery != "real") {
        const auto result = delivery == "gone" ? VXProcessPlatform::SignalResult::Gone
                                               : VXProcessPlatform::SignalResult::Delivered;
        VXProcessPlatform::setSignalSender(
            [result](const VXProcessSerialNumber &, int) { return result; });
    }
    LogCapture capture;
    QElapsedTimer clock;
    clock.start();
    QCOMPARE(p->quitRunningApplicationWithTimeout(timeout), quit);
    QVERIFY(clock.elapsed() >= atLeastMs); // the phases ran to their deadlines
    capture.restore();
    const QStringList log = capture.messages();
    QCOMPARE(log.size(), 1);
    QVERIFY2(QRegularExpression(line).match(log.first()).hasMatch(), qPrintable(log.first()));
    if (delivery == "real")
        QVERIFY(!p->isStillRunning());
    else if (!quit)
        QVERIFY(p->isStillRunning());
}

void TestVXProcess::cpuTimeOfBusyProcess()
{
    Child child(kHelpers + "/behaviour", { "busy" });
    QVERIFY(child.waitReady());
    // Wait until it has used over half a second of CPU, however busy the
    // machine is (utime, field 14 of its stat, in clock ticks).
    auto userTicks = [&] {
        QFile stat(QString("/proc/%1/stat").arg(child.pid()));
        stat.open(QIODevice::ReadOnly);
        const QByteArray line = stat.readAll();
        return line.mid(line.lastIndexOf(')') + 2).split(' ').value(11).toLongLong();
    };
    QTRY_VERIFY_WITH_TIMEOUT(userTicks() > ::sysconf(_SC_CLK_TCK) * 6 / 10, 30000);
    const VXProcessPtr p = VXProcess::processWithPID(child.pid());
    const double seconds = p->cpuTime();
    QVERIFY2(seconds >= 0.5 && seconds < 60, qPrintable(QString::number(seconds)));
    QFile file("/tmp/proc_cpu_time.txt");
    QVERIFY(file.open(QIODevice::ReadOnly));
    QVERIFY(file.readAll().contains(':'));
    child.process.kill();
    child.process.waitForFinished();
    QCOMPARE(p->cpuTime(), 0.0);
}

void TestVXProcess::signatureHexWidensHighBytes()
{
    QTemporaryDir dir;
    Child child(makeBundle(dir.path(),
                    { { "CFBundleExecutable", "Helper" },
                        { "CFBundleSignature", QString::fromUtf8("A¬BC") } })
        + "/Contents/Linux/Helper");
    QVERIFY(child.waitReady());
    // ¬ is 0xC2 in Mac OS Roman.
    QCOMPARE(VXProcess::processWithPID(child.pid())->signatureHexString(),
        QStringLiteral("41FFFFFFC24243"));
}

void TestVXProcess::diagnosticsReport()
{
    QTemporaryDir dir;
    Child child(makeBundle(dir.path(),
                    { { "CFBundleName", "Agent" }, { "CFBundleExecutable", "Helper" },
                        { "CFBundleSignature", "QAgt" }, { "CFBundleShortVersionString", "1.5" },
                        { "LSUIElement", true } })
        + "/Contents/Linux/Helper");
    QVERIFY(child.waitReady());
    const QString report = VXProcess::processListForDiagnosticsReport();
    QVERIFY(report.startsWith("Foreground processes:\n"));
    const qsizetype background = report.indexOf("\n\nBackground processes:\n");
    QVERIFY(background > 0);
    QVERIFY(report.indexOf("Agent V1.5 (QAgt/)") > background);
    QVERIFY(report.endsWith("\n"));
}

void TestVXProcess::unusualProcessTableEntries()
{
    // A process table with what a live one holds only for moments: a
    // zombie, a kernel thread, an entry that vanished after the listing, a
    // damaged stat line, a name with parentheses and blanks, and a process
    // whose program file is hidden from us.
    QTemporaryDir root;
    auto stat = [&](int pid, const QByteArray &line) {
        writeFile(root.path() + QString("/%1/stat").arg(pid), line);
    };
    const QByteArray tail = " 1 1 1 0 -1 4194560 0 0 0 0 0 0 0 0 20 0 1 0 5000 0 0";
    stat(100, "100 (zombie) Z" + tail);
    stat(101, "101 (kworker/0:1) I 2 0 0 0 -1 2129984 0 0 0 0 0 0 0 0 20 0 1 0 5000 0 0");
    QDir().mkpath(root.path() + "/102"); // gone: no stat any more
    stat(103, "103 (short) S 1");
    stat(104, "104 (my (odd) name) S" + tail);
    stat(105, "105 (hidden) S" + tail);
    writeFile(root.path() + "/stat", "cpu 0 0 0 0\nbtime 1700000000\n");
    QFile::link(
        QStringLiteral(QUILLET_BINARY_DIR "/tests/helpers/behaviour"), root.path() + "/104/exe");
    VXProcessPlatform::setProcRoot(root.path());
    const auto restore = qScopeGuard([] { VXProcessPlatform::setProcRoot(QString()); });

    // Not applications (no bundle, window or bus name), so not listed, but
    // found by their pids.
    QVERIFY(VXProcessPlatform::allSerialNumbers().isEmpty());
    const QList<VXProcessSerialNumber> serials { VXProcessPlatform::serialNumberForPid(104),
        VXProcessPlatform::serialNumberForPid(105) };
    QCOMPARE(serials.at(0).highLongOfPSN, 104u);
    QCOMPARE(serials.at(1).highLongOfPSN, 105u);
    QCOMPARE(serials.at(0).lowLongOfPSN, 5000u);
    QVERIFY(VXProcessPlatform::serialNumberForPid(100).isNull()); // a zombie
    QVERIFY(VXProcessPlatform::serialNumberForPid(103).isNull()); // a damaged line
    const auto odd = VXProcessPlatform::basicInfo(serials.at(0));
    QVERIFY(odd);
    QCOMPARE(odd->name, QStringLiteral("my (odd) name"));
    QVERIFY(odd->executable.endsWith("/behaviour"));
    const auto hidden = VXProcessPlatform::basicInfo(serials.at(1));
    QVERIFY(hidden && hidden->executable.isEmpty());
    QCOMPARE(VXProcessPlatform::startTime(serials.at(1)),
        QDateTime::fromSecsSinceEpoch(1700000000 + 50));
    QCOMPARE(VXProcessPlatform::pidForSerialNumber({ 100, 5000 }), 0); // a zombie has ended
    QCOMPARE(
        VXProcessPlatform::pidForSerialNumber({ 105, 4999 }), 0); // another process of that pid
    QVERIFY(VXProcessPlatform::serialNumberForPid(102).isNull());
    QVERIFY(
        VXProcessPlatform::serialNumberForPid(101).isNull()); // kernel threads are no applications
}

void TestVXProcess::accessibilityWithoutBusIsLogged()
{
    // This test has no session bus: the failure lines, and no abort.
    QVERIFY(qEnvironmentVariableIsEmpty("DBUS_SESSION_BUS_ADDRESS"));
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

QTEST_GUILESS_MAIN(TestVXProcess)
#include "tst_vxprocess.moc"

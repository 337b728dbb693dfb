// SPDX-FileCopyrightText: 2026 Quillet developers
// SPDX-License-Identifier: MIT
//
// Process records of real child processes: lookups, details, quitting with
// signals. A record whose pid was reused is tried in the event tests, on a
// program that would also answer events.
#include "common/logcapture.h"
#include "common/testchild.h"
#include "common/testfiles.h"
#include "common/testrow.h"
#include "process/vxprocess.h"
#include "process/vxprocess_p.h"
#include "utilities/vxpropertylist.h"

#include <QElapsedTimer>
#include <QRegularExpression>
#include <QScopeGuard>
#include <QTemporaryDir>
#include <csignal>
#include <future>
#include <thread>
#include <unistd.h>

namespace {
QByteArray be(quint32 value, int bytes)
{
    QByteArray out;
    while (bytes--)
        out += char(value >> (8 * bytes));
    return out;
}

// A resource fork holding one 'vers' resource (ID 1) with these four number
// bytes (major, minor and bug-fix, stage, revision): data at 256, then the map.
QByteArray versFork(quint32 numbers)
{
    const QByteArray data = be(18, 4) + be(numbers, 4) + QByteArray("\0\0\0051.2.3\0051.2.3", 14);
    const QByteArray map = QByteArray(24, '\0') + be(28, 2) + be(0xffff, 2) + be(0, 2) + "vers"
        + be(0, 2) + be(10, 2) + be(1, 2) + be(0xffff, 2) + QByteArray(8, '\0');
    const QByteArray header
        = be(256, 4) + be(256 + data.size(), 4) + be(data.size(), 4) + be(map.size(), 4);
    return header + QByteArray(256 - header.size(), '\0') + data + map;
}

// The same fork in an AppleDouble file.
QByteArray appleDouble(const QByteArray &fork)
{
    return be(0x00051607, 4) + be(0x00020000, 4) + QByteArray(16, '\0') + be(1, 2) + be(2, 4)
        + be(0x26, 4) + be(fork.size(), 4) + fork;
}

// "Test Helper.app" around a copy of the behaviour program; its program.
QString makeBundle(const QString &folder, QVariantMap info)
{
    const QString app = folder + "/Test Helper.app";
    info.insert("CFBundleExecutable", "Helper");
    writeFile(app + "/Contents/Linux/Helper", readFile(kHelpers + "/behaviour"), true);
    writeFile(app + "/Contents/Info.plist", VXPropertyList::toXml(info));
    return app + "/Contents/Linux/Helper";
}
} // namespace

class TestVXProcess : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void cleanup() { VXProcessPlatform::setSignalSender({}); }
    void recordIdentityAndLifetime()
    {
        auto a = std::make_unique<TestChild>(kHelpers + "/behaviour");
        TestChild b(kHelpers + "/behaviour");
        QVERIFY(a->waitReady() && b.waitReady());
        const VXProcessPtr first = VXProcess::processWithPID(a->pid());
        const VXProcessPtr second = VXProcess::processWithPID(b.pid());
        QVERIFY(first && second && !first->isEqual(second) && first->isStillRunning());
        QCOMPARE(VXProcess::processWithPID(a->pid()), first); // the same object, now in front
        QCOMPARE(VXProcess::cachedProcesses().first(), first);
        QCOMPARE(VXProcess::indexOfCachedProcessWithSerialNumber(second->serialNumber()), 1);
        QCOMPARE(VXProcess::processWithSerialNumber(first->serialNumber()), first);
        QVERIFY(VXProcess::currentProcess()->isEqual(VXProcess::processWithPID(::getpid())));
        QVERIFY(!VXProcess::processWithPID(0) && !VXProcess::processWithPID(-5));

        // An ended process's record keeps what it read; cleaning drops it from the cache.
        const QString name = first->name(), path = first->path();
        a.reset(); // killed and reaped
        QVERIFY(!first->isStillRunning() && first->unixPID() == 0);
        QVERIFY(VXProcess::cachedProcesses().contains(first));
        VXProcess::cleanupCache();
        QCOMPARE(VXProcess::indexOfCachedProcessWithSerialNumber(first->serialNumber()),
            VXProcess::NotFound);
        QCOMPARE(first->name(), name);
        QCOMPARE(first->path(), path);
        LogCapture capture;
        QVERIFY(!first->quitRunningApplicationWithTimeout(0.5f));
        capture.restore();
        QCOMPARE(capture.messages(), QStringList { "cannot quit behaviour: no pid" });
    }

    void listHoldsApplicationsOnlyAndOpensNoDescriptorEach()
    {
        // Here (no display, no bus) only a bundle makes an application: a plain
        // program, although "????" like the bundle without a signature, is found
        // by its pid but neither listed nor found by signature. Also 2,000
        // sleeping processes of our own (in a process group of their own, which
        // the shell kills when its input closes) cost no descriptor.
        VXProcess::installNotifications();
        QProcess sleepers;
        sleepers.setChildProcessModifier([] { ::setpgid(0, 0); });
        sleepers.start("sh",
            { "-c",
                "for i in $(seq 2000); do sleep 600 & p=\"$p $!\"; done; echo ready; read x; kill "
                "$p; wait" });
        const auto reap = qScopeGuard([&] {
            sleepers.closeWriteChannel();
            if (!sleepers.waitForFinished(60000))
                ::kill(-pid_t(sleepers.processId()), SIGKILL);
            sleepers.waitForFinished();
        });
        while (!sleepers.canReadLine() && sleepers.waitForReadyRead(-1))
            ;
        QVERIFY(sleepers.readLine().startsWith("ready"));
        auto descriptors = [] {
            return QDir("/proc/self/fd")
                .entryList(QDir::AllEntries | QDir::System | QDir::NoDotAndDotDot)
                .size();
        };
        const qsizetype before = descriptors();
        for (int i = 0; i < 3; ++i) {
            VXProcess::allProcesses();
            QTest::qWait(200); // whatever watches processes has had its turn
        }
        QCOMPARE(descriptors(), before);

        // Applications are watched until they end: these come after counting.
        QTemporaryDir dir;
        TestChild bundled(makeBundle(dir.path(), {}));
        TestChild plain(kHelpers + "/behaviour");
        QVERIFY(bundled.waitReady() && plain.waitReady());
        QList<qint32> pids;
        for (const VXProcessPtr &p : VXProcess::allProcesses())
            pids << p->unixPID();
        QVERIFY(pids.contains(bundled.pid()));
        QVERIFY(!pids.contains(plain.pid()) && !pids.contains(qint32(::getpid())));
        QVERIFY(std::is_sorted(pids.begin(), pids.end()));
        QCOMPARE(VXProcess::processWithPID(plain.pid())->signatureString(), QStringLiteral("????"));
        QCOMPARE(VXProcess::processWithSignatureString("????")->unixPID(), bundled.pid());

        // A thread's id is no process id: no second record of this process.
        std::promise<pid_t> tid;
        std::promise<void> stop;
        std::thread thread([&] {
            tid.set_value(::gettid());
            stop.get_future().wait();
        });
        const bool found = bool(VXProcess::processWithPID(tid.get_future().get()));
        stop.set_value();
        thread.join();
        QVERIFY(!found);
    }

    void bundledProcessDetails()
    {
        // A background agent whose signature has a high byte (¬ is 0xC2 in Mac
        // OS Roman, widened as a signed byte in the hex form), also in the
        // diagnostics report and in log lines.
        QTemporaryDir dir;
        const QString program = makeBundle(dir.path(),
            { { "CFBundleName", "Test Helper" },
                { "CFBundleIdentifier", "dev.quillet.test.helper" },
                { "CFBundleSignature", "Q¬st" }, { "CFBundleShortVersionString", "3.1.4" },
                { "NSPrincipalClass", "QApplication" }, { "CFBundleIconFile", "Helper" },
                { "LSUIElement", true } });
        const QString app = dir.path() + "/Test Helper.app";
        writeFile(app + "/Contents/Resources/Helper.png", "png");
        TestChild child(program);
        QVERIFY(child.waitReady());
        const VXProcessPtr p = VXProcess::processWithPID(child.pid());
        QCOMPARE(p->signatureHexString(), QStringLiteral("51FFFFFFC27374"));
        QCOMPARE(p->path(), app);
        QVERIFY(p->isCocoa() && p->isBackgroundOnly());
        QCOMPARE(p->iconPath(), app + "/Contents/Resources/Helper.png");
        QCOMPARE(p->description(), QStringLiteral("Process \"Test Helper\" (Q¬st) 3.1.4"));
        QCOMPARE(p->detailedDescription(),
            QStringLiteral("Test Helper V3.1.4 (Q¬st/dev.quillet.test.helper)"));
        // As md5sum writes the digest of "id:dev.quillet.test.helper".
        QCOMPARE(p->hashString(), QStringLiteral("5d44710cb698d0624137378b8e897c95"));
        QVERIFY(qAbs(p->launchDate().secsTo(QDateTime::currentDateTime())) < 60);
        QVERIFY(VXProcess::processWithSignatureString("Q¬st")->isEqual(p));
        QVERIFY(VXProcess::processWithIdentifier("dev.quillet.test.helper")->isEqual(p));
        const QString report = VXProcess::processListForDiagnosticsReport();
        QVERIFY(report.startsWith("Foreground processes:\n") && report.endsWith("\n"));
        const qsizetype background = report.indexOf("\n\nBackground processes:\n");
        QVERIFY(background > 0 && report.indexOf(p->detailedDescription()) > background);

        // This test has no session bus: the accessibility failure lines, and no abort.
        QVERIFY(qEnvironmentVariableIsEmpty("DBUS_SESSION_BUS_ADDRESS"));
        LogCapture capture;
        p->addAXNotification(QStringLiteral("AXFocusedUIElementChanged"));
        p->removeAXNotification(QStringLiteral("AXFocusedUIElementChanged"));
        capture.restore();
        QCOMPARE(capture.messages(),
            (QStringList {
                "AX Notifications: Could not create application object for " + p->description(),
                "AX Notifications: Could not add notification AXFocusedUIElementChanged for "
                    + p->description() }));
    }

    void gnustepBundleAnswersAlikeInAnyOrder_data()
    {
        QTest::addColumn<int>("first");
        int i = 0;
        for (const char *detail : { "path", "version", "identifier", "platform", "hashString" })
            QTest::newRow(detail) << i++;
    }

    void gnustepBundleAnswersAlikeInAnyOrder()
    {
        // Name.app/Resources/Info-gnustep.plist, the program at the top.
        QFETCH(int, first);
        QTemporaryDir dir;
        const QString app = dir.path() + "/Gnu.app";
        writeFile(app + "/Gnu", readFile(kHelpers + "/behaviour"), true);
        writeFile(app + "/Resources/Info-gnustep.plist",
            VXPropertyList::toXml(
                { { "NSExecutable", "Gnu" }, { "CFBundleIdentifier", "dev.quillet.gnu" },
                    { "CFBundleShortVersionString", "4.2" },
                    { "NSPrincipalClass", "NSApplication" } }));
        TestChild child(app + "/Gnu");
        QVERIFY(child.waitReady());
        const VXProcessPtr p = VXProcess::processWithPID(child.pid());
        const QList<std::pair<QString (VXProcess::*)(), QString>> details {
            { &VXProcess::path, app }, { &VXProcess::version, "4.2" },
            { &VXProcess::identifier, "dev.quillet.gnu" }, { &VXProcess::platform, "Cocoa" },
            { &VXProcess::hashStringSource, "id:dev.quillet.gnu" }
        };
        ((*p).*details.at(first).first)();
        for (const auto &[detail, want] : details)
            QCOMPARE(((*p).*detail)(), want);
    }

    void version_data()
    {
        // A bundle's Info dictionary, or a plain program with a classic 'vers'
        // resource beside it; the version, and a comparison with it.
        QTest::addColumn<QVariantMap>("info");
        QTest::addColumn<QByteArray>("fork");
        QTest::addColumn<QString>("version");
        QTest::addColumn<QString>("wanted");
        QTest::addColumn<bool>("atLeast");
        auto shortVersion = [](const char *v) {
            return QVariantMap { { "CFBundleShortVersionString", v } };
        };
        row("short without dot, bundle version",
            QVariantMap { { "CFBundleShortVersionString", "7" }, { "CFBundleVersion", "7.0.1" } },
            QByteArray(), "7.0.1", "7.0.2", false);
        row("short with dot",
            QVariantMap { { "CFBundleShortVersionString", "2.5" }, { "CFBundleVersion", "250" } },
            QByteArray(), "2.5", "2.5", true);
        row("neither", QVariantMap { { "CFBundleName", "X" } }, QByteArray(), "1.0", "1", true);
        row("version not a string", QVariantMap { { "CFBundleVersion", 5 } }, QByteArray(), "1.0",
            "1.0.1", false);
        row("missing component is 0", shortVersion("1.2.0"), QByteArray(), "1.2.0", "1.2", true);
        row("compared by value", shortVersion("1.9"), QByteArray(), "1.9", "1.10", false);
        row("vers: beta with bugfix", QVariantMap(), versFork(0x01236004), "1.2.3b4", "", false);
        row("vers: final stage: no letter, revision as its digits", QVariantMap(),
            versFork(0x02018007), "2.0.17", "", false);
        row("vers: in an AppleDouble file", QVariantMap(), appleDouble(versFork(0x01002009)),
            "1.0d9", "", false);
        row("vers: damaged fork", QVariantMap(), QByteArray("\0\0\1\0\xff\xff\xff\xff", 8), "1.0",
            "", false);
    }

    void version()
    {
        QFETCH(QVariantMap, info);
        QFETCH(QByteArray, fork);
        QFETCH(QString, version);
        QFETCH(QString, wanted);
        QFETCH(bool, atLeast);
        QTemporaryDir dir;
        const QString program
            = fork.isEmpty() ? makeBundle(dir.path(), info) : dir.path() + "/classic";
        if (!fork.isEmpty() && QFile::copy(kHelpers + "/behaviour", program))
            writeFile(fork.startsWith(QByteArrayView("\0\5\26\7", 4)) ? dir.path() + "/._classic"
                                                                      : program + ".rsrc",
                fork);
        TestChild child(program);
        QVERIFY(child.waitReady());
        const VXProcessPtr p = VXProcess::processWithPID(child.pid());
        QCOMPARE(p->version(), version);
        if (!wanted.isEmpty())
            QCOMPARE(p->isAtLeastVersion(wanted), atLeast);
    }

    void quit_data()
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
        row("cooperative", "cooperative", "real", 2.0f, true,
            "^quit behaviour: (terminated|process stopped)" + after, 0);
        row("stubborn: killed after the polite deadline", "stubborn", "real", 0.3f, true,
            "^(force-quit behaviour: terminated|foce-quit behaviour: process stopped)" + after,
            300);
        row("gone before the first request", "", "gone", 1.0f, true,
            "^quit behaviour: process stopped after 0\\.000s \\(1 attempts\\)$", 0);
        row("no signal reaches it: fails after both deadlines", "stubborn", "delivered", 0.25f,
            false, "^quitting behaviour failed$", 500);
    }

    void quit()
    {
        QFETCH(QString, behaviour);
        QFETCH(QString, delivery);
        QFETCH(float, timeout);
        QFETCH(bool, quit);
        QFETCH(QString, line);
        QFETCH(int, atLeastMs);
        TestChild child(kHelpers + "/behaviour",
            behaviour.isEmpty() ? QStringList() : QStringList { behaviour });
        QVERIFY(child.waitReady());
        const VXProcessPtr p = VXProcess::processWithPID(child.pid());
        using Result = VXProcessPlatform::SignalResult;
        const Result result = delivery == "gone" ? Result::Gone : Result::Delivered;
        if (delivery != "real")
            VXProcessPlatform::setSignalSender([=](const auto &, int) { return result; });
        LogCapture capture;
        QElapsedTimer clock;
        clock.start();
        QCOMPARE(p->quitRunningApplicationWithTimeout(timeout), quit);
        QVERIFY(clock.elapsed() >= atLeastMs); // the phases ran to their deadlines
        capture.restore();
        const QStringList log = capture.messages();
        QCOMPARE(log.size(), 1);
        QVERIFY2(QRegularExpression(line).match(log.first()).hasMatch(), qPrintable(log.first()));
        if (delivery != "gone") // a process a signal would not reach stays
            QCOMPARE(p->isStillRunning(), delivery == "delivered");
    }

    void cpuTimeOfBusyProcess()
    {
        TestChild child(kHelpers + "/behaviour", { "busy" });
        QVERIFY(child.waitReady());
        // Wait until it has used over half a second of CPU, however busy the
        // machine is (utime, field 14 of its stat, in clock ticks).
        auto userTicks = [&] {
            const QByteArray line = readFile(QString("/proc/%1/stat").arg(child.pid()));
            return line.mid(line.lastIndexOf(')') + 2).split(' ').value(11).toLongLong();
        };
        QTRY_VERIFY_WITH_TIMEOUT(userTicks() > ::sysconf(_SC_CLK_TCK) * 6 / 10, 30000);
        const VXProcessPtr p = VXProcess::processWithPID(child.pid());
        const double seconds = p->cpuTime();
        QVERIFY2(seconds >= 0.5 && seconds < 60, qPrintable(QString::number(seconds)));
        QVERIFY(readFile("/tmp/proc_cpu_time.txt").contains(':'));
        child.process.kill();
        child.process.waitForFinished();
        QCOMPARE(p->cpuTime(), 0.0);
    }

    void unusualProcessTableEntries()
    {
        // A process table with what a live one holds only for moments: a
        // zombie, a kernel thread, an entry that vanished after the listing, a
        // damaged stat line, a name with parentheses and blanks, and a process
        // whose program file is hidden from us.
        QTemporaryDir root;
        const QByteArray tail = " 1 1 1 0 -1 4194560 0 0 0 0 0 0 0 0 20 0 1 0 5000 0 0";
        for (const QByteArray &line : { "100 (zombie) Z" + tail,
                 QByteArray(
                     "101 (kworker/0:1) I 2 0 0 0 -1 2129984 0 0 0 0 0 0 0 0 20 0 1 0 5000 0 0"),
                 QByteArray("103 (short) S 1"), "104 (my (odd) name) S" + tail,
                 "105 (hidden) S" + tail })
            writeFile(root.path() + "/" + line.left(3) + "/stat", line);
        QDir().mkpath(root.path() + "/102"); // gone: no stat any more
        writeFile(root.path() + "/stat", "cpu 0 0 0 0\nbtime 1700000000\n");
        QFile::link(kHelpers + "/behaviour", root.path() + "/104/exe");
        VXProcessPlatform::setProcRoot(root.path());
        const auto restore = qScopeGuard([] { VXProcessPlatform::setProcRoot(QString()); });

        // Not applications (no bundle, window or bus name), so not listed, but
        // found by their pids; the others are no processes to us.
        QVERIFY(VXProcessPlatform::allSerialNumbers().isEmpty());
        for (int pid : { 100, 101, 102, 103 })
            QVERIFY2(VXProcessPlatform::serialNumberForPid(pid).isNull(),
                qPrintable(QString::number(pid)));
        const VXProcessSerialNumber odd = VXProcessPlatform::serialNumberForPid(104);
        const VXProcessSerialNumber hidden = VXProcessPlatform::serialNumberForPid(105);
        QCOMPARE(odd.highLongOfPSN, 104u);
        QCOMPARE(odd.lowLongOfPSN, 5000u);
        const auto oddInfo = VXProcessPlatform::basicInfo(odd);
        QVERIFY(oddInfo && oddInfo->executable.endsWith("/behaviour"));
        QCOMPARE(oddInfo->name, QStringLiteral("my (odd) name"));
        const auto hiddenInfo = VXProcessPlatform::basicInfo(hidden);
        QVERIFY(hiddenInfo && hiddenInfo->executable.isEmpty());
        QCOMPARE(
            VXProcessPlatform::startTime(hidden), QDateTime::fromSecsSinceEpoch(1700000000 + 50));
    }
};

QTEST_GUILESS_MAIN(TestVXProcess)
#include "tst_vxprocess.moc"

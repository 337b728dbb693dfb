// SPDX-FileCopyrightText: 2026 Quillet developers
// SPDX-License-Identifier: MIT
//
// The installer as a product starts it: a real process, its log file, and
// events from other processes over the session bus.
#include "common/logcapture.h"
#include "installerfixture.h"
#include "utilities/vxfourcharcode.h"

#include <QLabel>
#include <QProcess>
#include <QPushButton>
#include <QScopeGuard>
#include <QTest>

namespace {
const QString kSample = QStringLiteral(QUILLET_BINARY_DIR "/examples/Sample.app");
const QString kInstaller
    = kSample + "/Contents/Resources/QuilletInstaller.app/Contents/Linux/QuilletInstaller";

QString logFile()
{
    return QDir::homePath() + "/Library/Logs/QuilletInstaller.log";
}

// Sends the Done event the way another program would, with dbus-send:
// `wait` for the receiver's reply, else without waiting, so that the
// receiver may be this very process.
int sendDone(qint64 pid, const QString &text, bool wait)
{
    const QStringList args { "--session", wait ? "--print-reply" : "--type=method_call",
        QStringLiteral("--dest=org.quillet.VX.p%1").arg(pid), "/org/quillet/VX/AppleEvents",
        "org.quillet.VX.AppleEvents.HandleEvent",
        QStringLiteral("uint32:%1").arg(VXFourCharCode::fromString("SinS")),
        QStringLiteral("uint32:%1").arg(VXFourCharCode::fromString("Done")), "string:" + text };
    return wait ? QProcess::execute("dbus-send", args)
                : !QProcess::startDetached("dbus-send", args);
}

struct Installer
{
    QProcess process;
    QString err; // what it wrote to standard error so far
    explicit Installer(const QStringList &args, const QString &program = kInstaller)
    {
        QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
        env.insert("QT_QPA_PLATFORM", "offscreen");
        // The offscreen platform warns about raising windows; keep the log to our lines.
        env.insert("QT_LOGGING_RULES", "default.warning=false");
        process.setProcessEnvironment(env);
        process.start(program, args);
    }
    ~Installer()
    {
        process.kill();
        process.waitForFinished();
    }
    QString readErr() { return err += QString::fromUtf8(process.readAllStandardError()); }
};
} // namespace

class TestInstallerLaunch : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void init() { QDir(QDir::homePath() + "/Library").removeRecursively(); }

    void productLaunchLogsToFile()
    {
        const QString readMe = kSample + "/Contents/Resources/ReadMe.rtf";
        Installer installer(
            { "-productName", "Sample", "-sourcePath", kSample, "-readMePath", readMe });
        QTRY_VERIFY_WITH_TIMEOUT(readFile(logFile()).contains("Updated arguments: "), 20000);
        // The first line comes before the streams are reopened.
        QTRY_VERIFY(installer.readErr().contains("AppleEvents installed"));
        QCOMPARE(logMessages(installer.err), QStringList { "AppleEvents installed" });
        const QStringList log = logMessages(QString::fromUtf8(readFile(logFile())));
        QCOMPARE(log.value(0),
            QString("arguments: (\n    \"%1\",\n    \"-productName\",\n    Sample,\n    "
                    "\"-sourcePath\",\n"
                    "    \"%2\",\n    \"-readMePath\",\n    \"%3\"\n)")
                .arg(kInstaller, kSample, readMe));
        QCOMPARE(log.value(1), QStringLiteral("autolaunch = (null)"));
        QCOMPARE(log.value(2),
            QString("Updated arguments: {\n    \"\" = \"%1\";\n    destinationPath = "
                    "\"/opt/Sample.app\";\n"
                    "    productCode = (\n        QSmp\n    );\n    productName = Sample;\n"
                    "    quitCode = (\n        QSmp\n    );\n    readMePath = \"%2\";\n"
                    "    sourcePath = \"%3\";\n}")
                .arg(kInstaller, readMe, kSample));

        // A second launch appends; bytes that are not UTF-8 in its arguments
        // become replacement characters, and set-up goes on.
        Installer second({ "-c",
                             "exec \"$0\" -productName \"$(printf 'S\\377\\376x')\" -sourcePath "
                             "\"$1\" -version \"$(printf '\\300\\200')\"",
                             kInstaller, kSample },
            "/bin/sh");
        QTRY_COMPARE_WITH_TIMEOUT(logMessages(QString::fromUtf8(readFile(logFile())))
                                      .filter("Updated arguments: ")
                                      .size(),
            2, 20000);
        QCOMPARE(second.process.state(), QProcess::Running);
        QVERIFY(readFile(logFile()).contains("productName = \"S\\Ufffd\\Ufffdx\";"));
    }

    void directInvocationKeepsItsStreams_data()
    {
        QTest::addColumn<QStringList>("args");
        QTest::newRow("two arguments") << QStringList { "-productName" };
        QTest::newRow("languages first")
            << QStringList { "-AppleLanguages", "(de)", "-productName", "Foo" };
    }

    void directInvocationKeepsItsStreams()
    {
        QFETCH(QStringList, args);
        Installer installer(args);
        QTRY_VERIFY_WITH_TIMEOUT(installer.readErr().contains("Updated arguments"), 20000);
        QCOMPARE(logMessages(installer.err).mid(0, 2),
            QStringList({ "AppleEvents installed", "direct invocation" }));
        QVERIFY(!QFile::exists(QDir::homePath() + "/Library/Logs"));
    }

    void unopenableLogFileGoesToDevNull()
    {
        QDir().mkpath(logFile()); // a folder where the file should be
        Installer installer({ "-productName", "Sample", "-sourcePath", kSample });
        // Set-up goes on: the installer answers on the bus (once it has
        // handled the event), and writes nowhere.
        QTRY_VERIFY_WITH_TIMEOUT(sendDone(installer.process.processId(), "x", true) == 0, 20000);
        QCOMPARE(installer.process.state(), QProcess::Running);
        QVERIFY(QFileInfo(logFile()).isDir());
        QVERIFY(!installer.readErr().contains("received Done event"));
    }

    void doneEvent_data()
    {
        // clang-format off
        QTest::addColumn<QString>("label"); // of the installation under way
        QTest::addColumn<QString>("sent");
        QTest::addColumn<bool>("completes");
        QTest::newRow("label matches") << "Foo 2.1" << "Foo 2.1" << true;
        QTest::newRow("case differs") << "Foo 2.1" << "foo 2.1" << false;
        QTest::newRow("spacing differs") << "Foo 2.1" << "Foo  2.1" << false;
        QTest::newRow("before any installation") << QString() << "Foo 2.1" << false;
        // clang-format on
    }

    void doneEvent()
    {
        QFETCH(QString, label);
        QFETCH(QString, sent);
        QFETCH(bool, completes);
        ProductFixture fixture;
        LogCapture capture;
        const auto c = fixture.setUp({ "-productName", "Foo", "-version", "2.1" });
        InstallerWinController::setCurrentInstallationLabel(label);
        const auto reset
            = qScopeGuard([] { InstallerWinController::setCurrentInstallationLabel({}); });
        sendDone(QCoreApplication::applicationPid(), sent, false);
        QTRY_VERIFY_WITH_TIMEOUT(capture.text().contains("received Done event"), 10000);
        QCoreApplication::processEvents(); // what the event queued
        capture.restore();
        QCOMPARE(c->isFinished(), completes);
        QVERIFY(capture.messages().contains(
            QString("received Done event (%1), current installation: %2")
                .arg(sent, label.isNull() ? QStringLiteral("(null)") : label)));
        QCOMPARE(c->introField()->text() == "Foo was successfully installed.", completes);
        QCOMPARE(c->cancelButton()->isHidden(), completes);
    }
};

QTEST_MAIN(TestInstallerLaunch)
#include "tst_installerlaunch.moc"

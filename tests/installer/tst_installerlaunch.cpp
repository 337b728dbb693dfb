// SPDX-FileCopyrightText: 2026 Quillet developers
// SPDX-License-Identifier: MIT
//
// The installer as a product starts it: a real process, its log file, and
// events from other processes over the session bus.
#include "common/logcapture.h"
#include "installerfixture.h"
#include "utilities/vxfourcharcode.h"

#include <QApplication>
#include <QLabel>
#include <QProcess>
#include <QPushButton>
#include <QScopeGuard>
#include <QTest>
#include <csignal>

namespace {
const QString kSample = QStringLiteral(QUILLET_BINARY_DIR "/examples/Sample.app");
const QString kInstaller = kSample
    + QLatin1String("/Contents/Resources/QuilletInstaller.app/Contents/Linux/QuilletInstaller");

QString logFile()
{
    return QDir::homePath() + QLatin1String("/Library/Logs/QuilletInstaller.log");
}

QString readAll(const QString &path)
{
    QFile f(path);
    return f.open(QIODevice::ReadOnly) ? QString::fromUtf8(f.readAll()) : QString();
}

// Sends an event the way another program would: with dbus-send, without
// waiting, so that the receiver may be this very process.
void sendEvent(qint64 pid, const char *eventClass, const char *eventID, const QString &text)
{
    QProcess::startDetached(QStringLiteral("dbus-send"),
        { QStringLiteral("--session"), QStringLiteral("--type=method_call"),
            QStringLiteral("--dest=org.quillet.VX.p%1").arg(pid),
            QStringLiteral("/org/quillet/VX/AppleEvents"),
            QStringLiteral("org.quillet.VX.AppleEvents.HandleEvent"),
            QStringLiteral("uint32:%1").arg(VXFourCharCode::fromString(QLatin1String(eventClass))),
            QStringLiteral("uint32:%1").arg(VXFourCharCode::fromString(QLatin1String(eventID))),
            QStringLiteral("string:") + text });
}

struct Installer
{
    QProcess process;
    explicit Installer(const QStringList &args)
    {
        QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
        env.insert(QStringLiteral("QT_QPA_PLATFORM"), QStringLiteral("offscreen"));
        // The offscreen platform warns about raising windows; keep the log to our lines.
        env.insert(QStringLiteral("QT_LOGGING_RULES"), QStringLiteral("default.warning=false"));
        process.setProcessEnvironment(env);
        process.start(kInstaller, args);
    }
    ~Installer()
    {
        if (process.state() != QProcess::NotRunning) {
            process.kill();
            process.waitForFinished();
        }
    }
};
} // namespace

class TestInstallerLaunch : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void init();
    void productLaunchLogsToFile();
    void directInvocationKeepsItsStreams_data();
    void directInvocationKeepsItsStreams();
    void unopenableLogFileGoesToDevNull();
    void doneEvent_data();
    void doneEvent();
};

void TestInstallerLaunch::init()
{
    QDir(QDir::homePath() + QLatin1String("/Library")).removeRecursively();
}

void TestInstallerLaunch::productLaunchLogsToFile()
{
    const QString readMe = kSample + QLatin1String("/Contents/Resources/ReadMe.rtf");
    Installer installer(
        { "-productName", "Sample", "-sourcePath", kSample, "-readMePath", readMe });
    QVERIFY(installer.process.waitForStarted());
    QTRY_VERIFY_WITH_TIMEOUT(
        readAll(logFile()).contains(QLatin1String("Updated arguments: ")), 20000);

    // The first line comes before the streams are reopened.
    QString err;
    QTRY_VERIFY((err += QString::fromUtf8(installer.process.readAllStandardError()))
                    .contains("AppleEvents installed"));
    QCOMPARE(logMessages(err), QStringList { "AppleEvents installed" });

    const QStringList log = logMessages(readAll(logFile()));
    QCOMPARE(log.value(0),
        QString(
            "arguments: (\n    \"%1\",\n    \"-productName\",\n    Sample,\n    \"-sourcePath\",\n"
            "    \"%2\",\n    \"-readMePath\",\n    \"%3\"\n)")
            .arg(kInstaller, kSample, readMe));
    QCOMPARE(log.value(1), QStringLiteral("autolaunch = (null)"));
    QCOMPARE(log.value(2),
        QString(
            "Updated arguments: {\n    \"\" = \"%1\";\n    destinationPath = \"/opt/Sample.app\";\n"
            "    productCode = (\n        QSmp\n    );\n    productName = Sample;\n"
            "    quitCode = (\n        QSmp\n    );\n    readMePath = \"%2\";\n"
            "    sourcePath = \"%3\";\n}")
            .arg(kInstaller, readMe, kSample));

    // A second launch appends; bytes that are not UTF-8 in its arguments
    // become replacement characters, and set-up goes on.
    QProcess second;
    second.setProcessEnvironment(installer.process.processEnvironment());
    second.start("/bin/sh",
        { "-c",
            "exec \"$0\" -productName \"$(printf 'S\\377\\376x')\" -sourcePath \"$1\" -version "
            "\"$(printf '\\300\\200')\"",
            kInstaller, kSample });
    QTRY_COMPARE_WITH_TIMEOUT(
        logMessages(readAll(logFile())).filter("Updated arguments: ").size(), 2, 20000);
    QCOMPARE(second.state(), QProcess::Running);
    QVERIFY(readAll(logFile()).contains(QString::fromUtf8("productName = \"S\\Ufffd\\Ufffdx\";")));
    second.kill();
    second.waitForFinished();
}

void TestInstallerLaunch::directInvocationKeepsItsStreams_data()
{
    // clang-format off
    QTest::addColumn<QStringList>("args");
    QTest::newRow("two arguments") << QStringList { "-productName" };
    QTest::newRow("languages first")
        << QStringList { "-AppleLanguages", "(de)", "-productName", "Foo" };
    // clang-format on
}

void TestInstallerLaunch::directInvocationKeepsItsStreams()
{
    QFETCH(QStringList, args);
    Installer installer(args);
    QString err;
    QTRY_VERIFY_WITH_TIMEOUT((err += QString::fromUtf8(installer.process.readAllStandardError()))
                                 .contains("Updated arguments"),
        20000);
    const QStringList messages = logMessages(err);
    QCOMPARE(messages.value(0), QStringLiteral("AppleEvents installed"));
    QCOMPARE(messages.value(1), QStringLiteral("direct invocation"));
    QVERIFY(!QFile::exists(logFile()));
    QVERIFY(!QFile::exists(QDir::homePath() + QLatin1String("/Library/Logs")));
}

void TestInstallerLaunch::unopenableLogFileGoesToDevNull()
{
    QDir().mkpath(logFile()); // a folder where the file should be
    Installer installer({ "-productName", "Sample", "-sourcePath", kSample });
    QVERIFY(installer.process.waitForStarted());
    // Set-up goes on: the installer answers on the bus, and writes nowhere.
    QTRY_VERIFY_WITH_TIMEOUT(
        QProcess::execute("dbus-send",
            { "--session", "--print-reply", "--dest=org.freedesktop.DBus", "/org/freedesktop/DBus",
                "org.freedesktop.DBus.GetNameOwner",
                QString("string:org.quillet.VX.p%1").arg(installer.process.processId()) })
            == 0,
        20000);
    QTest::qWait(500);
    QCOMPARE(installer.process.state(), QProcess::Running);
    QVERIFY(QFileInfo(logFile()).isDir());
    installer.process.readAllStandardError();
    sendEvent(installer.process.processId(), "SinS", "Done", "x");
    QTest::qWait(300);
    QVERIFY(!installer.process.readAllStandardError().contains("received Done event"));
}

void TestInstallerLaunch::doneEvent_data()
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

void TestInstallerLaunch::doneEvent()
{
    QFETCH(QString, label);
    QFETCH(QString, sent);
    QFETCH(bool, completes);
    ProductFixture fixture;
    LogCapture capture;
    InstallerWinController c(fixture.options({ "-productName", "Foo", "-version", "2.1" }));
    c.awakeFromNib();
    InstallerWinController::setCurrentInstallationLabel(label);
    const auto reset = qScopeGuard([] { InstallerWinController::setCurrentInstallationLabel({}); });
    sendEvent(QCoreApplication::applicationPid(), "SinS", "Done", sent);
    QTRY_VERIFY_WITH_TIMEOUT(capture.text().contains("received Done event"), 10000);
    if (completes)
        QTRY_VERIFY(c.isFinished());
    else
        QTest::qWait(100);
    capture.restore();
    QCOMPARE(c.isFinished(), completes);
    QCOMPARE(capture.messages().contains("installation finished"), completes);
    QVERIFY(capture.messages().contains(
        QString("received Done event (%1), current installation: %2")
            .arg(sent, label.isNull() ? QStringLiteral("(null)") : label)));
    if (completes) {
        QCOMPARE(c.introField()->text(), QStringLiteral("Foo was successfully installed."));
        QCOMPARE(c.installButton()->text(), QStringLiteral("OK"));
        QVERIFY(c.cancelButton()->isHidden());
    }
}

QTEST_MAIN(TestInstallerLaunch)
#include "tst_installerlaunch.moc"

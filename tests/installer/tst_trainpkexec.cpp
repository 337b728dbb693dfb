// SPDX-FileCopyrightText: 2026 Quillet developers
// SPDX-License-Identifier: MIT
//
// The privileged path as a user takes it: an unprivileged user's installer
// runs the helper through the real pkexec, which asks the real polkitd about
// the shipped polkit action. A rule that allows the action installs the
// product for all users; a rule that refuses it, and no rule with no
// authentication agent, end as "could not start". Runs as root, which it
// needs to make the user, the rules and the daemons; all of them are undone
// when it ends.
#include "common/systemtestuser.h"
#include "common/testfiles.h"

#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QDir>
#include <QFile>
#include <QImage>
#include <QProcess>
#include <QTemporaryDir>
#include <QTest>
#include <algorithm>
#include <grp.h>
#include <optional>
#include <sys/stat.h>
#include <unistd.h>

namespace {
// The helper as the system has it installed, where the action points; the
// test puts the built one there when none is.
const QString kHelper = QStringLiteral(QUILLET_INSTALLED_HELPER);
const QString kBuiltHelper
    = QStringLiteral(QUILLET_BINARY_DIR "/QuilletInstaller.app/Contents/Resources/train");
const QString kBuiltWorker = QStringLiteral(QUILLET_BINARY_DIR "/tests/helpers/elevationworker");
const QString kPolicy
    = QStringLiteral(QUILLET_SOURCE_DIR "/resources/polkit/dev.quillet.installer.policy");
const QString kActionId = QStringLiteral("dev.quillet.installer.train");
const QString kActionFile
    = QStringLiteral("/usr/share/polkit-1/actions/dev.quillet.installer.policy");
const QString kBusSocket = QStringLiteral("/run/dbus/system_bus_socket");
const QString kPolkitd = QStringLiteral("/usr/lib/polkit-1/polkitd");
const QString kPkexec = QStringLiteral("/usr/bin/pkexec");

// Whether a name has an owner on the system bus; nullopt: no bus to ask.
std::optional<bool> systemBusHasOwner(const QString &name)
{
    static int connections = 0;
    const QString id = QStringLiteral("quillet-pkexec-%1").arg(++connections);
    std::optional<bool> answer;
    {
        QDBusConnection bus = QDBusConnection::connectToBus(QDBusConnection::SystemBus, id);
        if (bus.isConnected())
            answer = bus.interface()->isServiceRegistered(name).value();
    }
    QDBusConnection::disconnectFromBus(id);
    return answer;
}

template <typename Condition> bool waitFor(Condition condition)
{
    for (int i = 0; i < 200; ++i) {
        if (condition())
            return true;
        QTest::qWait(50);
    }
    return condition();
}

// The system side of polkit, as a test needs it: a system bus at the
// standard socket (pkexec, set-user-ID, ignores any other address), polkitd
// on it, the shipped action with its helper path pointed at the built
// helper, and one rules file of the test's. What was already there is used
// and left as it was; what the object started or wrote goes with it.
class SystemPolkit
{
public:
    ~SystemPolkit()
    {
        if (!m_rules.isEmpty())
            QFile::remove(m_rules);
        if (m_wroteAction) {
            QFile::remove(kActionFile);
            if (!m_savedAction.isNull())
                writeFile(kActionFile, m_savedAction);
        }
        if (m_installedHelper) {
            QFile::remove(kHelper);
            for (const QString &folder : std::as_const(m_madeFolders))
                QDir().rmdir(folder);
        }
        for (QProcess *daemon : { &m_polkitd, &m_bus }) {
            if (daemon->state() != QProcess::NotRunning) {
                daemon->terminate();
                if (!daemon->waitForFinished(10000)) {
                    daemon->kill();
                    daemon->waitForFinished();
                }
            }
        }
        if (m_startedBus)
            QFile::remove(kBusSocket);
        if (m_madeRunDbus)
            QDir(QStringLiteral("/run/dbus")).removeRecursively();
    }

    // Empty when everything runs; else what failed.
    QString start()
    {
        QByteArray policy = readFile(kPolicy);
        const QByteArray key = "org.freedesktop.policykit.exec.path\">";
        const qsizetype from = policy.indexOf(key) + key.size();
        const qsizetype to = policy.indexOf('<', from);
        if (from < key.size() || to < 0)
            return QStringLiteral("the shipped action names no helper path");
        policy.replace(from, to - from, kHelper.toUtf8());
        if (!QFileInfo::exists(kHelper)) {
            for (QString folder = QFileInfo(kHelper).path(); !QFileInfo::exists(folder);
                 folder = QFileInfo(folder).path())
                m_madeFolders.prepend(folder);
            QDir().mkpath(QFileInfo(kHelper).path());
            m_installedHelper = QFile::copy(kBuiltHelper, kHelper)
                && ::chmod(QFile::encodeName(kHelper).constData(), 0755) == 0;
            std::reverse(m_madeFolders.begin(), m_madeFolders.end());
            if (!m_installedHelper)
                return QStringLiteral("cannot install the helper at ") + kHelper;
        }
        if (QFile::exists(kActionFile))
            m_savedAction = readFile(kActionFile);
        m_wroteAction = true;
        writeFile(kActionFile, policy);

        if (!systemBusHasOwner(QStringLiteral("org.freedesktop.DBus")).has_value()) {
            // A bus of our own: the system bus's usual policy, without
            // service activation, so that nothing starts behind our back.
            const QString config = QStringLiteral(QUILLET_TEST_DATA "/polkit/system-bus.conf");
            m_madeRunDbus = !QFileInfo::exists(QStringLiteral("/run/dbus"));
            QDir().mkpath(QStringLiteral("/run/dbus"));
            QFile::remove(kBusSocket); // a stale socket of a bus that is gone
            m_bus.setProcessChannelMode(QProcess::ForwardedErrorChannel);
            m_bus.start(QStringLiteral("dbus-daemon"),
                { "--nofork", "--nopidfile", "--config-file=" + config });
            m_startedBus = true;
            if (!waitFor([] {
                    return systemBusHasOwner(QStringLiteral("org.freedesktop.DBus")).has_value();
                }))
                return QStringLiteral("the system bus did not start");
        }
        if (!systemBusHasOwner(QStringLiteral("org.freedesktop.PolicyKit1")).value_or(false)) {
            m_polkitd.setProcessChannelMode(QProcess::ForwardedErrorChannel);
            m_polkitd.start(kPolkitd, { "--no-debug" });
            if (!waitFor([] {
                    return systemBusHasOwner(QStringLiteral("org.freedesktop.PolicyKit1"))
                        .value_or(false);
                }))
                return QStringLiteral("polkitd did not start");
        }
        return QString();
    }

    // Our rule for the action and the user: "YES", "NO", or none.
    void setRule(const QString &user, const QString &result)
    {
        m_rules = QStringLiteral("/etc/polkit-1/rules.d/49-quillet-test-%1.rules").arg(::getpid());
        if (result.isEmpty()) {
            QFile::remove(m_rules);
            return;
        }
        writeFile(m_rules,
            QStringLiteral("polkit.addRule(function(action, subject) {\n"
                           "    if (action.id == \"%1\" && subject.user == \"%2\")\n"
                           "        return polkit.Result.%3;\n"
                           "});\n")
                .arg(kActionId, user, result)
                .toUtf8());
    }

    // pkcheck's answer for the action and a process: 0 authorized, 1 not,
    // 2 only with authentication.
    static int check(qint64 pid)
    {
        QProcess pkcheck;
        pkcheck.start(QStringLiteral("pkcheck"),
            { "--action-id", kActionId, "--process", QString::number(pid) });
        pkcheck.waitForFinished();
        return pkcheck.exitStatus() == QProcess::NormalExit ? pkcheck.exitCode() : -1;
    }

    bool startedDaemons() const { return m_startedBus || m_polkitd.processId() != 0; }

private:
    QProcess m_bus, m_polkitd;
    bool m_startedBus = false, m_madeRunDbus = false, m_wroteAction = false;
    bool m_installedHelper = false;
    QStringList m_madeFolders; // for the helper, innermost first
    QByteArray m_savedAction;
    QString m_rules;
};

QByteArray infoPlist(const QString &identifier)
{
    return QStringLiteral("<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
                          "<plist version=\"1.0\"><dict>\n"
                          "<key>CFBundleExecutable</key><string>Foo</string>\n"
                          "<key>CFBundleIdentifier</key><string>%1</string>\n"
                          "<key>CFBundleName</key><string>Foo</string>\n"
                          "<key>CFBundleShortVersionString</key><string>2.0</string>\n"
                          "<key>CFBundleIconFile</key><string>Foo</string>\n"
                          "</dict></plist>\n")
        .arg(identifier)
        .toUtf8();
}
} // namespace

class TestTrainPkexec : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void initTestCase();
    void cleanupTestCase();
    void installsThroughPkexec_data();
    void installsThroughPkexec();

private:
    struct Outcome
    {
        int exitCode;
        QString result;
        QString log;
    };
    Outcome runInstallerAsUser(const QString &destination);

    QTemporaryDir m_dir;
    QString m_source, m_id, m_name;
    std::optional<SystemTestUser> m_user;
    std::optional<SystemPolkit> m_polkit;
    std::optional<SystemShareGuard> m_share;
    QProcess m_userProcess; // a process of the user for pkcheck to ask about
    QString m_worker; // the installer's copy step, where the user can run it
};

void TestTrainPkexec::initTestCase()
{
    if (::geteuid() != 0)
        QSKIP("making a user, polkit rules and the system daemons needs root");
    for (const QString &tool : { kPkexec, kPolkitd })
        if (!QFileInfo(tool).isExecutable())
            QSKIP(qPrintable(tool + " is not installed"));
    for (const char *tool : { "dbus-daemon", "pkcheck", "runuser", "useradd" })
        if (QStandardPaths::findExecutable(tool, { "/usr/bin", "/usr/sbin", "/bin", "/sbin" })
                .isEmpty())
            QSKIP(qPrintable(QString::fromLatin1(tool) + " is not installed"));
    if (!(QFileInfo(kPkexec).permissions() & QFile::ExeOther)
        || !(QFileInfo(kPkexec).ownerId() == 0))
        QSKIP("pkexec is not a root program others may run");
    struct stat st;
    if (::stat(QFile::encodeName(kPkexec).constData(), &st) != 0 || !(st.st_mode & S_ISUID))
        QSKIP("pkexec is not set-user-ID");

    // The user reaches the product and the programs through world-readable
    // folders only.
    QFile::setPermissions(m_dir.path(),
        QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner | QFile::ReadOther
            | QFile::ExeOther);
    m_name = QStringLiteral("QuilletPkexecTest-%1").arg(::getpid());
    m_id = QStringLiteral("dev.quillet.pkexectest-%1").arg(::getpid());
    m_source = m_dir.path() + "/Volume/Foo.app";
    writeFile(m_source + "/Contents/Info.plist", infoPlist(m_id));
    writeFile(m_source + "/Contents/Linux/Foo", "#!/bin/sh\nexit 0\n");
    QFile::setPermissions(m_source + "/Contents/Linux/Foo",
        QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner | QFile::ReadOther
            | QFile::ExeOther);
    QImage icon(64, 32, QImage::Format_ARGB32);
    icon.fill(Qt::red);
    QDir().mkpath(m_source + "/Contents/Resources");
    QVERIFY(icon.save(m_source + "/Contents/Resources/Foo.png", "PNG"));
    QProcess::execute("chmod", { "-R", "a+rX", m_dir.path() + "/Volume" });
    // The build may lie where the user cannot enter (a clone under /root).
    m_worker = m_dir.path() + "/bin/elevationworker";
    QDir().mkpath(m_dir.path() + "/bin");
    QVERIFY(QFile::copy(kBuiltWorker, m_worker));
    QVERIFY(::chmod(QFile::encodeName(m_dir.path() + "/bin").constData(), 0755) == 0);
    QVERIFY(::chmod(QFile::encodeName(m_worker).constData(), 0755) == 0);

    m_share.emplace();
    m_share->watch(m_id);
    m_user.emplace(m_dir.path() + "/home");
    QVERIFY2(m_user->isValid(), qPrintable(m_user->error));
    m_polkit.emplace();
    const QString error = m_polkit->start();
    QVERIFY2(error.isEmpty(), qPrintable(error));

    m_userProcess.setChildProcessModifier([uid = m_user->uid, gid = m_user->gid] {
        if (::setgroups(0, nullptr) != 0 || ::setgid(gid) != 0 || ::setuid(uid) != 0)
            ::_exit(126);
    });
    m_userProcess.start("sleep", { "3600" });
    QVERIFY(m_userProcess.waitForStarted());
}

void TestTrainPkexec::cleanupTestCase()
{
    if (m_userProcess.state() != QProcess::NotRunning) {
        m_userProcess.kill();
        m_userProcess.waitForFinished();
    }
    m_user.reset(); // ends the user's processes first
    m_polkit.reset();
    m_share.reset();
    for (const QString &f : QDir("/opt").entryList({ m_name + "*" }, QDir::AllEntries))
        QDir("/opt/" + f).removeRecursively();
}

TestTrainPkexec::Outcome TestTrainPkexec::runInstallerAsUser(const QString &destination)
{
    // The user's own session: nothing of the test's environment.
    const QString home = m_user->home;
    QProcessEnvironment env;
    env.insert("PATH", "/usr/local/bin:/usr/bin:/bin");
    env.insert("HOME", home);
    env.insert("XDG_CONFIG_HOME", home + "/.config");
    env.insert("XDG_DATA_HOME", home + "/.local/share");
    env.insert("XDG_CACHE_HOME", home + "/.cache");
    env.insert("LANG", "C.UTF-8");
    env.insert("LC_ALL", "C.UTF-8");
    env.insert("TZ", "UTC");
    env.insert("QT_QPA_PLATFORM", "offscreen");
    QProcess worker;
    worker.setProcessEnvironment(env);
    worker.setWorkingDirectory(home);
    worker.start("runuser", { "-u", m_user->name, "--", m_worker, m_source, destination });
    worker.waitForFinished(120000);
    return { worker.exitStatus() == QProcess::NormalExit ? worker.exitCode() : -1,
        QString::fromUtf8(worker.readAllStandardOutput()).trimmed(),
        QString::fromUtf8(worker.readAllStandardError()) };
}

void TestTrainPkexec::installsThroughPkexec_data()
{
    QTest::addColumn<QString>("rule");
    QTest::addColumn<int>("pkcheck");
    QTest::newRow("rule allows") << "YES" << 0;
    QTest::newRow("rule refuses") << "NO" << 1;
    QTest::newRow("no rule, no agent") << QString() << 2;
}

void TestTrainPkexec::installsThroughPkexec()
{
    QFETCH(QString, rule);
    QFETCH(int, pkcheck);
    SystemShareGuard::forget(m_id); // whatever an earlier row left
    m_polkit->setRule(m_user->name, rule);
    // polkitd reads rules files when they change: wait until it answers as
    // this row's rule says.
    const qint64 pid = m_userProcess.processId();
    QVERIFY(waitFor([&] { return SystemPolkit::check(pid) == pkcheck; }));

    const QString destination = "/opt/" + m_name + "-"
        + QString::fromUtf8(QTest::currentDataTag()).replace(' ', '_').remove(',') + ".app";
    const QString userEntry = m_user->home + "/.local/share/applications/" + m_id + ".desktop";
    Outcome run = runInstallerAsUser(destination);
    QVERIFY2(run.exitCode == 0, qPrintable(run.log));

    if (rule != "YES") {
        // pkexec's 127: could not start, shown as a failed authorized copy.
        QCOMPARE(run.result, QStringLiteral("result: Authorized copying failed."));
        QVERIFY2(
            run.log.contains("AuthorizationExecuteWithPrivileges failed"), qPrintable(run.log));
        QVERIFY(
            run.log.contains("ERROR -- Could not copy myself to /Applications with authorization"));
        QVERIFY(!QFileInfo::exists(destination));
        QVERIFY(!QFile::exists(SystemShareGuard::entryFile(m_id)));
        return;
    }

    // Installed by root for everybody, and registered once, for everybody.
    QCOMPARE(run.result, QStringLiteral("result: null"));
    QVERIFY2(run.log.contains("successfully copied"), qPrintable(run.log));
    QVERIFY(run.log.contains("registered app: 0"));
    QVERIFY(QFileInfo(destination + "/Contents/Linux/Foo").isExecutable());
    QCOMPARE(QFileInfo(destination).ownerId(), 0u);
    const QByteArray entry = readFile(SystemShareGuard::entryFile(m_id));
    QVERIFY2(
        entry.contains(("\nX-Quillet-Bundle=" + destination + "\n").toUtf8()), entry.constData());
    QVERIFY(entry.contains(("\nExec=\"" + destination + "/Contents/Linux/Foo\"\n").toUtf8()));
    QCOMPARE(QImage(SystemShareGuard::iconFile(m_id)).size(), QSize(256, 256));
    QVERIFY(!QFile::exists(userEntry));

    // An update: the old copy goes to the user's Trash, and is theirs.
    writeFile(destination + "/Contents/Resources/old-marker", "old");
    run = runInstallerAsUser(destination);
    QCOMPARE(run.result, QStringLiteral("result: null"));
    QVERIFY(!QFile::exists(destination + "/Contents/Resources/old-marker"));
    const QString trashed
        = m_user->home + "/.local/share/Trash/files/" + QFileInfo(destination).fileName();
    QCOMPARE(readFile(trashed + "/Contents/Resources/old-marker"), QByteArray("old"));
    QCOMPARE(QFileInfo(trashed).ownerId(), m_user->uid);
    QCOMPARE(QFileInfo(trashed + "/Contents/Resources/old-marker").ownerId(), m_user->uid);
    QVERIFY(!QFile::exists(userEntry));
}

QTEST_GUILESS_MAIN(TestTrainPkexec)
#include "tst_trainpkexec.moc"

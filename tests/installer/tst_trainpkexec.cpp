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

#include <QImage>
#include <QTemporaryDir>
#include <optional>
#include <sys/stat.h>

namespace {
// The helper as the system has it installed, where the action points; the
// test puts the built one there when none is.
const QString kHelper = QStringLiteral(QUILLET_INSTALLED_HELPER);
const QString kActionId = QStringLiteral("dev.quillet.installer.train");
const QString kActionFile
    = "/usr/share/polkit-1/actions/" + kActionId.section('.', 0, 2) + ".policy";
const QString kBusSocket = QStringLiteral("/run/dbus/system_bus_socket");

// Whether a name has an owner on the system bus (false also without a bus).
bool onSystemBus(const QString &name)
{
    return QProcess::execute("dbus-send",
               { "--system", "--print-reply", "--dest=org.freedesktop.DBus",
                   "/org/freedesktop/DBus", "org.freedesktop.DBus.GetNameOwner", "string:" + name })
        == 0;
}

// The system side of polkit, as a test needs it: a system bus at the
// standard socket (pkexec, set-user-ID, ignores any other address), polkitd
// on it, the shipped action with its helper path pointed at the installed
// helper (the built one put there when none is), and one rules file of the
// test's. What was already there is used and left as it was; what the
// object started or wrote goes with it.
class SystemPolkit
{
public:
    ~SystemPolkit()
    {
        QFile::remove(m_rules);
        if (m_wroteAction) {
            QFile::remove(kActionFile);
            if (!m_savedAction.isNull())
                writeFile(kActionFile, m_savedAction);
        }
        if (m_installedHelper)
            QFile::remove(kHelper);
        for (const QString &folder : std::as_const(m_madeFolders)) // innermost first
            QDir().rmdir(folder);
        for (QProcess *daemon : { &m_polkitd, &m_bus }) {
            daemon->terminate();
            if (!daemon->waitForFinished(10000))
                daemon->kill();
            daemon->waitForFinished();
        }
        if (m_startedBus)
            QFile::remove(kBusSocket);
        if (m_madeRunDbus)
            QDir(QStringLiteral("/run/dbus")).removeRecursively();
    }

    // Empty when everything runs; else what failed.
    QString start()
    {
        QByteArray policy = readFile(QUILLET_BINARY_DIR "/polkit/" + kActionFile.section('/', -1));
        const QByteArray key = "org.freedesktop.policykit.exec.path\">";
        const qsizetype from = policy.indexOf(key) + key.size(), to = policy.indexOf('<', from);
        if (from < key.size() || to < 0)
            return QStringLiteral("the shipped action names no helper path");
        if (!QFileInfo::exists(kHelper)) {
            for (QString f = QFileInfo(kHelper).path(); !QFileInfo::exists(f);
                 f = QFileInfo(f).path())
                m_madeFolders << f;
            QDir().mkpath(QFileInfo(kHelper).path());
            m_installedHelper = QFile::copy(
                QUILLET_BINARY_DIR "/QuilletInstaller.app/Contents/Resources/train", kHelper);
            if (!m_installedHelper || ::chmod(QFile::encodeName(kHelper).constData(), 0755) != 0)
                return QStringLiteral("cannot install the helper at ") + kHelper;
        }
        m_savedAction = QFile::exists(kActionFile) ? readFile(kActionFile) : QByteArray();
        m_wroteAction = true;
        writeFile(kActionFile, policy.replace(from, to - from, kHelper.toUtf8()));

        if (!onSystemBus("org.freedesktop.DBus")) {
            // A bus of our own: the system bus's usual policy, without
            // service activation, so that nothing starts behind our back.
            m_madeRunDbus = QDir().mkdir(QStringLiteral("/run/dbus"));
            QFile::remove(kBusSocket); // a stale socket of a bus that is gone
            m_bus.setProcessChannelMode(QProcess::ForwardedErrorChannel);
            m_bus.start("dbus-daemon",
                { "--nofork", "--nopidfile",
                    "--config-file=" QUILLET_TEST_DATA "/polkit/system-bus.conf" });
            m_startedBus = true;
            if (!QTest::qWaitFor([] { return onSystemBus("org.freedesktop.DBus"); }, 20000))
                return QStringLiteral("the system bus did not start");
        }
        auto polkitd = [] { return onSystemBus("org.freedesktop.PolicyKit1"); };
        if (!polkitd()) {
            m_polkitd.setProcessChannelMode(QProcess::ForwardedErrorChannel);
            m_polkitd.start("/usr/lib/polkit-1/polkitd", { "--no-debug" });
            if (!QTest::qWaitFor(polkitd, 20000))
                return QStringLiteral("polkitd did not start");
        }
        return QString();
    }

    // Our rule for the action and the user: "YES", "NO", or none.
    void setRule(const QString &user, const QString &result)
    {
        QFile::remove(m_rules);
        if (!result.isEmpty())
            writeFile(m_rules,
                QStringLiteral("polkit.addRule(function(action, subject) {\n"
                               "    if (action.id == \"%1\" && subject.user == \"%2\")\n"
                               "        return polkit.Result.%3;\n});\n")
                    .arg(kActionId, user, result)
                    .toUtf8());
    }

    // pkcheck's answer for the action and a process: 0 authorized, 1 not,
    // 2 only with authentication.
    static int check(qint64 pid)
    {
        QProcess pkcheck;
        pkcheck.start("pkcheck", { "--action-id", kActionId, "--process", QString::number(pid) });
        pkcheck.waitForFinished();
        return pkcheck.exitStatus() == QProcess::NormalExit ? pkcheck.exitCode() : -1;
    }

private:
    QProcess m_bus, m_polkitd;
    bool m_startedBus = false, m_madeRunDbus = false, m_wroteAction = false;
    bool m_installedHelper = false;
    QStringList m_madeFolders;
    QByteArray m_savedAction;
    const QString m_rules
        = QStringLiteral("/etc/polkit-1/rules.d/49-quillet-test-%1.rules").arg(::getpid());
};
} // namespace

class TestTrainPkexec : public QObject
{
    Q_OBJECT

    struct Outcome
    {
        int exitCode;
        QString result, log;
    };

    // The installer's copy step run by the user in a session of their own:
    // nothing of the test's environment.
    Outcome runInstallerAsUser(const QString &destination)
    {
        const QString home = m_user->home;
        QProcess worker;
        worker.setWorkingDirectory(home);
        worker.start("runuser",
            { "-u", m_user->name, "--", "env", "-i", "PATH=/usr/local/bin:/usr/bin:/bin",
                "HOME=" + home, "XDG_CONFIG_HOME=" + home + "/.config",
                "XDG_DATA_HOME=" + home + "/.local/share", "XDG_CACHE_HOME=" + home + "/.cache",
                "LC_ALL=C.UTF-8", "TZ=UTC", "QT_QPA_PLATFORM=offscreen", m_worker, m_source,
                destination });
        worker.waitForFinished(120000);
        return { worker.exitStatus() == QProcess::NormalExit ? worker.exitCode() : -1,
            QString::fromUtf8(worker.readAllStandardOutput()).trimmed(),
            QString::fromUtf8(worker.readAllStandardError()) };
    }

    QTemporaryDir m_dir;
    QString m_source, m_id, m_name;
    std::optional<SystemTestUser> m_user;
    std::optional<SystemPolkit> m_polkit;
    std::optional<SystemShareGuard> m_share;
    QProcess m_userProcess; // a process of the user for pkcheck to ask about
    QString m_worker; // the installer's copy step, where the user can run it

private Q_SLOTS:
    void initTestCase()
    {
        if (::geteuid() != 0)
            QSKIP("making a user, polkit rules and the system daemons needs root");
        for (const char *tool :
            { "pkexec", "polkitd", "dbus-daemon", "pkcheck", "runuser", "useradd" })
            if (QStandardPaths::findExecutable(
                    tool, { "/usr/bin", "/usr/sbin", "/usr/lib/polkit-1" })
                    .isEmpty())
                QSKIP(qPrintable(QString::fromLatin1(tool) + " is not installed"));
        struct stat st;
        if (::stat("/usr/bin/pkexec", &st) != 0 || st.st_uid != 0
            || (st.st_mode & (S_ISUID | S_IXOTH)) != (S_ISUID | S_IXOTH))
            QSKIP("pkexec is not a set-user-ID root program others may run");

        // The user reaches the product and the programs through
        // world-readable folders only; the build may lie where the user
        // cannot enter (a clone under /root).
        QFile::setPermissions(m_dir.path(),
            QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner | QFile::ReadOther
                | QFile::ExeOther);
        m_name = QStringLiteral("QuilletPkexecTest-%1").arg(::getpid());
        m_id = QStringLiteral("dev.quillet.pkexectest-%1").arg(::getpid());
        m_source = m_dir.path() + "/Volume/Foo.app";
        writeFile(m_source + "/Contents/Info.plist",
            QStringLiteral(
                "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<plist version=\"1.0\"><dict>\n"
                "<key>CFBundleExecutable</key><string>Foo</string>\n"
                "<key>CFBundleIdentifier</key><string>%1</string>\n"
                "<key>CFBundleName</key><string>Foo</string>\n"
                "<key>CFBundleShortVersionString</key><string>2.0</string>\n"
                "<key>CFBundleIconFile</key><string>Foo</string>\n</dict></plist>\n")
                .arg(m_id)
                .toUtf8());
        writeFile(m_source + "/Contents/Linux/Foo", "#!/bin/sh\nexit 0\n", true);
        QImage icon(64, 32, QImage::Format_ARGB32);
        icon.fill(Qt::red);
        QDir().mkpath(m_source + "/Contents/Resources");
        QVERIFY(icon.save(m_source + "/Contents/Resources/Foo.png", "PNG"));
        m_worker = m_dir.path() + "/bin/elevationworker";
        QDir().mkpath(m_dir.path() + "/bin");
        QVERIFY(QFile::copy(QUILLET_BINARY_DIR "/tests/helpers/elevationworker", m_worker));
        QCOMPARE(QProcess::execute(
                     "chmod", { "-R", "a+rX", m_dir.path() + "/Volume", m_dir.path() + "/bin" }),
            0);

        m_share.emplace();
        m_share->watch(m_id);
        m_user.emplace(m_dir.path() + "/home");
        QVERIFY2(m_user->isValid(), qPrintable(m_user->error));
        m_polkit.emplace();
        const QString error = m_polkit->start();
        QVERIFY2(error.isEmpty(), qPrintable(error));
        m_userProcess.start("setpriv",
            { "--reuid", QString::number(m_user->uid), "--regid", QString::number(m_user->gid),
                "--clear-groups", "sleep", "3600" });
        QVERIFY(m_userProcess.waitForStarted());
    }

    void cleanupTestCase()
    {
        m_userProcess.kill();
        m_userProcess.waitForFinished();
        m_user.reset(); // ends the user's processes first
        m_polkit.reset();
        m_share.reset();
        for (const QString &f : QDir("/opt").entryList({ m_name + "*" }, QDir::AllEntries))
            QDir("/opt/" + f).removeRecursively();
    }

    void installsThroughPkexec_data()
    {
        QTest::addColumn<QString>("rule");
        QTest::addColumn<int>("pkcheck");
        QTest::newRow("rule allows") << "YES" << 0;
        QTest::newRow("rule refuses") << "NO" << 1;
        QTest::newRow("no rule, no agent") << QString() << 2;
    }

    void installsThroughPkexec()
    {
        QFETCH(QString, rule);
        QFETCH(int, pkcheck);
        SystemShareGuard::forget(m_id); // whatever an earlier row left
        m_polkit->setRule(m_user->name, rule);
        // polkitd reads rules files when they change: wait until it answers as
        // this row's rule says.
        QVERIFY(QTest::qWaitFor(
            [&] { return SystemPolkit::check(m_userProcess.processId()) == pkcheck; }, 20000));

        const QString destination = "/opt/" + m_name + "-" + rule + ".app";
        const QString userEntry = m_user->home + "/.local/share/applications/" + m_id + ".desktop";
        Outcome run = runInstallerAsUser(destination);
        QVERIFY2(run.exitCode == 0, qPrintable(run.log));
        if (rule != "YES") {
            // pkexec's 127: could not start, shown as a failed authorized copy.
            QCOMPARE(run.result, QStringLiteral("result: Authorized copying failed."));
            QVERIFY2(
                run.log.contains("AuthorizationExecuteWithPrivileges failed"), qPrintable(run.log));
            QVERIFY(!QFileInfo::exists(destination));
            QVERIFY(!QFile::exists(SystemShareGuard::entryFile(m_id)));
            return;
        }

        // Installed by root for everybody, and registered once, for everybody.
        QCOMPARE(run.result, QStringLiteral("result: null"));
        QVERIFY2(run.log.contains("registered app: 0"), qPrintable(run.log));
        QVERIFY(QFileInfo(destination + "/Contents/Linux/Foo").isExecutable());
        QCOMPARE(QFileInfo(destination).ownerId(), 0u);
        const QByteArray entry = readFile(SystemShareGuard::entryFile(m_id));
        QVERIFY2(entry.contains(("\nX-Quillet-Bundle=" + destination + "\n").toUtf8()),
            entry.constData());
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
};

QTEST_GUILESS_MAIN(TestTrainPkexec)
#include "tst_trainpkexec.moc"

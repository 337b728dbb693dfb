// SPDX-FileCopyrightText: 2026 Quillet developers
// SPDX-License-Identifier: MIT
//
// The privileged helper, run as root as pkexec runs it: what it installs,
// and what it refuses without writing anything; then the installer's
// elevation through the real pkexec, polkit and the shipped action file, for
// a user of the test's own.
#include <QDir>
#include <QDirIterator>
#include <QFile>
#include <QProcess>
#include <QTemporaryDir>
#include <QTest>
#include <QUuid>
#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {
const QString kTrain
    = QStringLiteral(QUILLET_BINARY_DIR "/QuilletInstaller.app/Contents/Resources/train");

void write(const QString &path, const QByteArray &content)
{
    QDir().mkpath(QFileInfo(path).path());
    QFile f(path);
    f.open(QIODevice::WriteOnly | QIODevice::Truncate);
    f.write(content);
}

struct Result
{
    int exitCode;
    QString error;
};

Result train(const QStringList &args, const QMap<QString, QString> &env = {})
{
    QProcess p;
    QProcessEnvironment e = QProcessEnvironment::systemEnvironment();
    e.remove("PKEXEC_UID");
    for (auto it = env.cbegin(); it != env.cend(); ++it)
        e.insert(it.key(), it.value());
    p.setProcessEnvironment(e);
    p.start(kTrain, args);
    p.waitForFinished();
    return { p.exitStatus() == QProcess::NormalExit ? p.exitCode() : -1,
        QString::fromUtf8(p.readAllStandardError()) };
}

int run(const QString &program, const QStringList &args, QString *output = nullptr)
{
    QProcess p;
    p.setProcessChannelMode(QProcess::MergedChannels);
    p.start(program, args);
    if (!p.waitForFinished(60000))
        p.kill();
    if (output)
        *output = QString::fromUtf8(p.readAll());
    return p.exitStatus() == QProcess::NormalExit ? p.exitCode() : -1;
}

// Every entry below path (itself included) owned by uid, links not followed.
bool ownedBy(const QString &path, uint uid)
{
    struct stat st;
    if (::lstat(QFile::encodeName(path).constData(), &st) != 0 || st.st_uid != uid)
        return false;
    QDirIterator it(path, QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot,
        QDirIterator::Subdirectories);
    while (it.hasNext()) {
        if (::lstat(QFile::encodeName(it.next()).constData(), &st) != 0 || st.st_uid != uid)
            return false;
    }
    return true;
}

// A system bus and polkitd of the test's own where none runs, the shipped
// action pointing at the built helper, and a rules file that can say yes for
// one user. Everything it set up goes when it goes.
class Polkit
{
public:
    static constexpr const char *kSocket = "/run/dbus/system_bus_socket";
    static constexpr const char *kActions
        = "/usr/share/polkit-1/actions/dev.quillet.installer.policy";
    static constexpr const char *kRules = "/etc/polkit-1/rules.d/00-quillet-test.rules";

    QString start()
    {
        for (const char *tool : { "/usr/bin/pkexec", "/usr/bin/pkcheck",
                 "/usr/lib/polkit-1/polkitd", "/usr/bin/dbus-daemon" }) {
            if (!QFileInfo(tool).isExecutable())
                return QStringLiteral("%1 is not installed").arg(tool);
        }
        if (QFile::exists(kActions) || QFile::exists(kRules))
            return QStringLiteral("polkit files of another test run are in place");
        QFile policy(QUILLET_SOURCE_DIR "/resources/polkit/dev.quillet.installer.policy");
        if (!policy.open(QIODevice::ReadOnly))
            return QStringLiteral("no action file");
        QByteArray text = policy.readAll();
        text.replace("/opt/QuilletInstaller.app/Contents/Resources/train", kTrain.toUtf8());
        write(kActions, text);
        m_wroteActions = true;
        if (!systemBusAnswers()) {
            QFile::remove(kSocket); // left by a bus that is gone
            QDir().mkpath("/run/dbus");
            m_startedBus = true;
            m_bus.start("dbus-daemon", { "--system", "--nofork", "--nopidfile" });
            for (int i = 0; i < 100 && !systemBusAnswers(); ++i)
                QTest::qWait(50);
            if (!systemBusAnswers())
                return QStringLiteral("the system bus did not start");
        }
        QString owner;
        busCall(
            { "org.freedesktop.DBus.NameHasOwner", "string:org.freedesktop.PolicyKit1" }, &owner);
        if (!owner.contains("boolean true")) {
            m_polkitd.start("/usr/lib/polkit-1/polkitd", { "--no-debug" });
            if (!m_polkitd.waitForStarted())
                return QStringLiteral("polkitd did not start");
        }
        return QString();
    }

    // Whether polkit now answers `yes` for the user asking for our action.
    bool authorized(const QString &user)
    {
        return run("runuser",
                   { "-u", user, "--", "sh", "-c",
                       "exec pkcheck --action-id dev.quillet.installer.train --process $$" })
            == 0;
    }

    void allow(const QString &user)
    {
        write(kRules,
            QStringLiteral(
                "polkit.addRule(function(action, subject) {\n"
                "    if (action.id == \"dev.quillet.installer.train\" && subject.user == \"%1\")\n"
                "        return polkit.Result.YES;\n});\n")
                .arg(user)
                .toUtf8());
    }

    ~Polkit()
    {
        QFile::remove(kRules);
        if (m_wroteActions)
            QFile::remove(kActions);
        for (QProcess *daemon : { &m_polkitd, &m_bus }) {
            if (daemon->state() != QProcess::NotRunning) {
                daemon->terminate();
                if (!daemon->waitForFinished(5000))
                    daemon->kill();
                daemon->waitForFinished();
            }
        }
        if (m_startedBus)
            QFile::remove(kSocket); // the bus we started leaves its socket file
    }

private:
    static int busCall(const QStringList &call, QString *output = nullptr)
    {
        return run("dbus-send",
            QStringList { "--system", "--print-reply", "--dest=org.freedesktop.DBus",
                "/org/freedesktop/DBus" }
                + call,
            output);
    }
    static bool systemBusAnswers() { return busCall({ "org.freedesktop.DBus.GetId" }) == 0; }

    bool m_wroteActions = false;
    bool m_startedBus = false;
    QProcess m_bus, m_polkitd;
};

QStringList listing(const QString &folder)
{
    QStringList out;
    QDirIterator it(folder, QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot);
    while (it.hasNext())
        out << it.next();
    out.sort();
    return out;
}
} // namespace

class TestTrain : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void initTestCase();
    void cleanupTestCase();
    void installsIntoSystemFolder();
    void hostileInvocationsAreRefused_data();
    void hostileInvocationsAreRefused();
    void throughPkexecAndPolkit();

private:
    QTemporaryDir m_dir;
    QString m_source;
    QString m_name;
    QString m_user; // an ordinary user of the test's own
    uint m_uid = 0;
};

void TestTrain::initTestCase()
{
    if (::geteuid() != 0)
        QSKIP("the helper's checks are made as root");
    m_source = m_dir.path() + "/Volume/Foo.app";
    write(m_source + "/Contents/Info.plist", "{ CFBundleSignature = WXYZ; }");
    write(m_source + "/Contents/Linux/Foo", "#!/bin/sh\n");
    QFile::setPermissions(m_source + "/Contents/Linux/Foo",
        QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner | QFile::ReadOther
            | QFile::ExeOther);
    QFile::link("Linux/Foo", m_source + "/Contents/foo-link");
    m_name = "QuilletTrainTest-" + QUuid::createUuid().toString(QUuid::Id128).left(8);
    // The source lies where an ordinary user can read it.
    QFile::setPermissions(m_dir.path(),
        QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner | QFile::ReadOther
            | QFile::ExeOther);
    const QString user = "qtrain" + QUuid::createUuid().toString(QUuid::Id128).left(8);
    if (run("useradd",
            { "--create-home", "--home-dir", m_dir.path() + "/home", "--shell", "/bin/sh", user })
        == 0) {
        m_user = user;
        m_uid = ::getpwnam(qPrintable(user))->pw_uid;
    }
}

void TestTrain::cleanupTestCase()
{
    if (!m_user.isEmpty())
        run("userdel", { "--force", m_user });
    if (!m_name.isEmpty()) {
        QDir("/opt/" + m_name + ".app").removeRecursively();
        QDir("/opt/" + m_name).removeRecursively();
        QDir trash(QDir::homePath());
        for (const QString &f :
            QDir("/root/.local/share/Trash/files").entryList({ m_name + "*" }, QDir::AllEntries))
            QDir("/root/.local/share/Trash/files/" + f).removeRecursively();
        for (const QString &f : QDir("/root/.local/share/Trash/info").entryList({ m_name + "*" }))
            QFile::remove("/root/.local/share/Trash/info/" + f);
    }
}

void TestTrain::installsIntoSystemFolder()
{
    const QString destination = "/opt/" + m_name + ".app";
    Result r = train({ m_source, destination });
    QVERIFY2(r.exitCode == 0, qPrintable(r.error));
    QVERIFY(QFileInfo(destination + "/Contents/Linux/Foo").isExecutable());
    QCOMPARE(QFileInfo(destination + "/Contents/foo-link").symLinkTarget(),
        destination + "/Contents/Linux/Foo");
    QCOMPARE(QFileInfo(destination).ownerId(), 0u);
    QVERIFY(!(QFileInfo(destination + "/Contents/Linux/Foo").permissions() & QFile::WriteOther));

    // Over an existing copy: the old one goes to the Trash of the user who
    // asked, and becomes theirs, so that they can empty it.
    write(destination + "/old-marker", "old");
    QString home = "/root";
    QMap<QString, QString> env;
    if (!m_user.isEmpty()) {
        home = m_dir.path() + "/home";
        env.insert("PKEXEC_UID", QString::number(m_uid));
    }
    r = train({ m_source, destination }, env);
    QVERIFY2(r.exitCode == 0, qPrintable(r.error));
    QVERIFY(!QFile::exists(destination + "/old-marker"));
    const QString trashed = home + "/.local/share/Trash/files/" + m_name + ".app";
    QVERIFY(QFile::exists(trashed + "/old-marker"));
    QVERIFY(ownedBy(trashed, m_uid));
    QFile info(home + "/.local/share/Trash/info/" + m_name + ".app.trashinfo");
    QVERIFY(info.open(QIODevice::ReadOnly));
    QVERIFY(info.readAll().contains(("Path=" + destination).toUtf8()));
    QVERIFY(ownedBy(info.fileName(), m_uid));
    QVERIFY(QDir("/opt")
                .entryList({ "." + m_name + "*" }, QDir::AllEntries | QDir::Hidden)
                .isEmpty()); // no staging left
    QVERIFY(ownedBy(destination, 0));
}

void TestTrain::hostileInvocationsAreRefused_data()
{
    QTest::addColumn<QStringList>("args");
    QTest::addColumn<QString>("uid");
    const QString opt = "/opt/@.app";
    QTest::newRow("no arguments") << QStringList {} << QString();
    QTest::newRow("one argument") << QStringList { "@src" } << QString();
    QTest::newRow("too many arguments")
        << QStringList { "@src", opt, "/opt/w", "extra" } << QString();
    QTest::newRow("relative source") << QStringList { "Foo.app", opt } << QString();
    QTest::newRow("relative destination") << QStringList { "@src", "opt/@.app" } << QString();
    QTest::newRow("dot-dot in source")
        << QStringList { "@dir/Volume/../Volume/Foo.app", opt } << QString();
    QTest::newRow("dot-dot in destination")
        << QStringList { "@src", "/opt/../etc/@.app" } << QString();
    QTest::newRow("dot component") << QStringList { "@src", "/opt/./@.app" } << QString();
    QTest::newRow("empty component") << QStringList { "@src", "/opt//@.app" } << QString();
    QTest::newRow("symbolic link in source path")
        << QStringList { "@dir/linked/Foo.app", opt } << QString();
    QTest::newRow("source bundle is a link")
        << QStringList { "@dir/Volume/Link.app", opt } << QString();
    QTest::newRow("wrapper folder is a link")
        << QStringList { "@src", "/opt/@/@.app", "@dir/Volume/@" } << QString();
    QTest::newRow("outside Applications folders")
        << QStringList { "@src", "@dir/@.app" } << QString();
    QTest::newRow("into /etc") << QStringList { "@src", "/etc/@.app" } << QString();
    QTest::newRow("over /etc through a wrapper")
        << QStringList { "@src", "/etc/cron.d/@.app", "@dir/Volume/cron.d" } << QString();
    QTest::newRow("destination not a bundle") << QStringList { "@src", "/opt/@" } << QString();
    QTest::newRow("hidden destination") << QStringList { "@src", "/opt/.@.app" } << QString();
    QTest::newRow("source not a bundle") << QStringList { "@dir/Volume", opt } << QString();
    QTest::newRow("source is a file") << QStringList { "@dir/file.app", opt } << QString();
    QTest::newRow("source the user cannot read")
        << QStringList { "@dir/private/Foo.app", opt } << "65534";
    QTest::newRow("control character") << QStringList { "@src", "/opt/@\n.app" } << QString();
    QTest::newRow("malformed invoking user") << QStringList { "@src", opt } << "12abc";
}

void TestTrain::hostileInvocationsAreRefused()
{
    QFETCH(QStringList, args);
    QFETCH(QString, uid);
    // What the hostile arguments point at.
    QDir().mkpath(m_dir.path() + "/real");
    QFile::link(m_dir.path() + "/Volume", m_dir.path() + "/linked");
    QFile::link(m_source, m_dir.path() + "/Volume/Link.app");
    write(m_dir.path() + "/file.app", "x");
    write(m_dir.path() + "/private/Foo.app/Contents/Info.plist", "{}");
    QFile::setPermissions(
        m_dir.path() + "/private", QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
    QFile::link("/etc", "/opt/" + m_name);
    QDir().mkpath(m_dir.path() + "/Volume/" + m_name);
    QDir().mkpath(m_dir.path() + "/Volume/cron.d");

    args.replaceInStrings("@src", m_source);
    args.replaceInStrings("@dir", m_dir.path());
    args.replaceInStrings("@", m_name);
    QStringList optBefore = listing("/opt");
    optBefore.removeAll("/opt/" + m_name); // the link, removed again below
    const QStringList etcBefore = listing("/etc");
    QMap<QString, QString> env;
    if (!uid.isEmpty())
        env.insert("PKEXEC_UID", uid);
    const Result r = train(args, env);
    QFile::remove("/opt/" + m_name);
    QVERIFY2(r.exitCode != 0, qPrintable(r.error));
    QVERIFY(r.error.startsWith("train: "));
    QCOMPARE(listing("/opt"), optBefore);
    QCOMPARE(listing("/etc"), etcBefore);
}

void TestTrain::throughPkexecAndPolkit()
{
    if (m_user.isEmpty())
        QSKIP("no user could be made for the test (useradd)");
    Polkit polkit;
    const QString why = polkit.start();
    if (!why.isEmpty())
        QSKIP(qPrintable(why));
    const QString destination = "/opt/" + m_name + "-pk.app";
    const QString home = m_dir.path() + "/home";
    // The installer's own way of running the helper, as the user.
    const auto elevate = [&](QString *output) {
        return run("runuser",
            { "-u", m_user, "--", "env", "-i", "PATH=/usr/bin:/bin", "HOME=" + home,
                QUILLET_BINARY_DIR "/tests/helpers/elevatedtool", kTrain, m_source, destination },
            output);
    };

    // No rule for the user and no agent to ask for a password: pkexec
    // refuses, which the installer takes as "could not start".
    const QStringList optBefore = listing("/opt");
    QString output;
    QCOMPARE(elevate(&output), 0);
    QVERIFY2(output.contains("AuthorizationExecuteWithPrivileges failed (" + kTrain + ")"),
        qPrintable(output));
    QVERIFY2(output.trimmed().endsWith("-60031"), qPrintable(output));
    QCOMPARE(listing("/opt"), optBefore);

    // Allowed: installed as root, then over that copy, the old one ending in
    // the user's Trash as theirs.
    polkit.allow(m_user);
    QTRY_VERIFY_WITH_TIMEOUT(polkit.authorized(m_user), 20000);
    QCOMPARE(elevate(&output), 0);
    QVERIFY2(output.trimmed().endsWith("\n0") || output.trimmed() == "0", qPrintable(output));
    QVERIFY(ownedBy(destination, 0));
    QVERIFY(QFileInfo(destination + "/Contents/Linux/Foo").isExecutable());
    write(destination + "/old-marker", "old");
    QCOMPARE(elevate(&output), 0);
    QVERIFY2(output.trimmed().endsWith("0"), qPrintable(output));
    QVERIFY(!QFile::exists(destination + "/old-marker"));
    QVERIFY(ownedBy(home + "/.local/share/Trash/files/" + m_name + "-pk.app", m_uid));
    QDir(destination).removeRecursively();
}

QTEST_GUILESS_MAIN(TestTrain)
#include "tst_train.moc"

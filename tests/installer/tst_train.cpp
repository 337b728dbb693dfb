// SPDX-FileCopyrightText: 2026 Quillet developers
// SPDX-License-Identifier: MIT
//
// The privileged helper, run as root as pkexec runs it, for a user of the
// test's own who plays the attacker: what it installs and how, what it
// refuses without writing anything, the races that user can run against
// it, where old copies go and whose they are there, and what it registers
// for all users.
#include "common/systemtestuser.h"
#include "common/testfiles.h"
#include "installer/desktopentry.h"

#include <QDeadlineTimer>
#include <QDir>
#include <QDirIterator>
#include <QFile>
#include <QProcess>
#include <QScopeGuard>
#include <QStorageInfo>
#include <QTemporaryDir>
#include <QTest>
#include <QUuid>
#include <csignal>
#include <grp.h>
#include <optional>
#include <sys/mount.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

namespace {
const QString kTrain
    = QStringLiteral(QUILLET_BINARY_DIR "/QuilletInstaller.app/Contents/Resources/train");
const QString kSwapper = QStringLiteral(QUILLET_BINARY_DIR "/tests/helpers/swapper");

struct Result
{
    int exitCode;
    QString error;
};

// Runs the helper as root for the caller `uid` (PKEXEC_UID; a null uid
// leaves it unset), optionally under the caller's tiny resource limits.
Result train(const QStringList &args, const QByteArray &uid, const QByteArray &input = {},
    bool tinyLimits = false, const QString &program = kTrain)
{
    QProcess p;
    QProcessEnvironment e = QProcessEnvironment::systemEnvironment();
    e.remove("PKEXEC_UID");
    if (!uid.isNull())
        e.insert("PKEXEC_UID", QString::fromLatin1(uid));
    p.setProcessEnvironment(e);
    if (tinyLimits)
        p.setChildProcessModifier([] {
            // Soft limits only: raising a hard limit again needs
            // CAP_SYS_RESOURCE, which root may lack in a container.
            for (const auto &[resource, value] : { std::pair { RLIMIT_FSIZE, 4096 },
                     std::pair { RLIMIT_NOFILE, 16 }, std::pair { RLIMIT_STACK, 65536 } }) {
                struct rlimit limit;
                ::getrlimit(resource, &limit);
                limit.rlim_cur = rlim_t(value);
                ::setrlimit(resource, &limit);
            }
        });
    p.start(program, args);
    p.write(input);
    p.closeWriteChannel();
    if (!p.waitForFinished(120000)) {
        p.kill();
        p.waitForFinished();
        return { -2, "the helper hung" };
    }
    return { p.exitStatus() == QProcess::NormalExit ? p.exitCode() : -1,
        QString::fromUtf8(p.readAllStandardError()) };
}

// What the installer sends with --desktop-entry. The icon only has to look
// like a PNG of the right size: the helper stores it, it does not draw it.
QByteArray fakePng(quint32 width = 256, quint32 height = 256)
{
    QByteArray png("\x89PNG\r\n\x1a\n\0\0\0\x0dIHDR", 16);
    for (quint32 v : { width, height })
        for (int shift = 24; shift >= 0; shift -= 8)
            png += char((v >> shift) & 0xff);
    return png + QByteArray("\x08\x06\0\0\0pixels", 11);
}

QByteArray request(const QString &id, const QByteArray &icon = fakePng(),
    const QString &executable = "Contents/Linux/Foo", const QString &name = "Foo Deluxe")
{
    const std::string text = DesktopEntry::requestText({ id.toStdString(), name.toStdString(),
        "2.0", executable.toStdString(), icon.toStdString() });
    return QByteArray(text.data(), qsizetype(text.size()));
}

struct stat statOf(const QString &path)
{
    struct stat st = {};
    ::lstat(QFile::encodeName(path).constData(), &st);
    return st;
}

// Owner of every item below and including path, without following links.
QMap<QString, uint> owners(const QString &path)
{
    QMap<QString, uint> out { { ".", statOf(path).st_uid } };
    QDirIterator it(path, QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot,
        QDirIterator::Subdirectories);
    while (it.hasNext()) {
        const QString item = it.next();
        out.insert(item.mid(path.size() + 1), statOf(item).st_uid);
    }
    return out;
}

QStringList listing(const QString &folder)
{
    QStringList out;
    QDirIterator it(folder, QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot);
    while (it.hasNext())
        out << it.next();
    out.sort();
    return out;
}

void giveTo(const QString &path, const SystemTestUser &user)
{
    QDirIterator it(path, QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot,
        QDirIterator::Subdirectories);
    while (it.hasNext())
        ::lchown(QFile::encodeName(it.next()).constData(), user.uid, user.gid);
    ::lchown(QFile::encodeName(path).constData(), user.uid, user.gid);
}

// The swapper run as the user, in the background, from a copy in `folder`:
// the build may lie where the user cannot enter (a clone under /root).
bool startAs(
    QProcess &p, const SystemTestUser &user, const QString &folder, const QStringList &args)
{
    const QString program = folder + "/swapper";
    if (!QFile::exists(program) && !QFile::copy(kSwapper, program))
        return false;
    ::chmod(QFile::encodeName(program).constData(), 0755);
    const uid_t uid = user.uid;
    const gid_t gid = user.gid;
    p.setChildProcessModifier([uid, gid] {
        if (::setgroups(0, nullptr) != 0 || ::setgid(gid) != 0 || ::setuid(uid) != 0)
            ::_exit(126);
    });
    p.start(program, args);
    return p.waitForStarted();
}
} // namespace

class TestTrain : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void initTestCase();
    void cleanupTestCase();
    void installsRootOwnedCopyWhateverTheCallerSet();
    void hostileInvocationsAreRefused_data();
    void hostileInvocationsAreRefused();
    void neverReplacesItself();
    void readsWithAllTheCallersGroups();
    void racesOfTheCallerAreLost_data();
    void racesOfTheCallerAreLost();
    void wrapperItemsGoBesideTheBundle();
    void signalsAndLimitsLeaveNoStaging();
    void registersForAllUsersInItsOwnNamespace();
    void hostileEntriesAreRefused_data();
    void hostileEntriesAreRefused();
    void oldCopyInTrashIsTheCallersWhereTheyCouldReadIt();
    void oldCopyOnAnotherFileSystem();

private:
    QString opt(const QString &suffix) const { return "/opt/" + m_name + suffix; }
    QByteArray uid() const { return QByteArray::number(m_user->uid); }

    QTemporaryDir m_dir;
    QString m_source, m_name, m_id;
    std::optional<SystemShareGuard> m_share;
    std::optional<SystemTestUser> m_user;
};

void TestTrain::initTestCase()
{
    if (::geteuid() != 0)
        QSKIP("the helper's checks are made as root");
    QFile::setPermissions(m_dir.path(),
        QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner | QFile::ReadOther
            | QFile::ExeOther);
    m_user.emplace(m_dir.path() + "/home");
    if (!m_user->isValid())
        QSKIP(qPrintable("no test user: " + m_user->error));
    m_source = m_dir.path() + "/Volume/Foo.app";
    writeFile(m_source + "/Contents/Info.plist", "{ CFBundleSignature = WXYZ; }");
    writeFile(m_source + "/Contents/Linux/Foo", "#!/bin/sh\n");
    QVERIFY(::chmod(QFile::encodeName(m_source + "/Contents/Linux/Foo").constData(), 0755) == 0);
    QFile::link("Linux/Foo", m_source + "/Contents/foo-link");
    m_name = "QuilletTrainTest-" + QUuid::createUuid().toString(QUuid::Id128).left(8);
    m_id = "dev.quillet.traintest-" + m_name.right(8);
    m_share.emplace();
    giveTo(m_dir.path() + "/Volume", *m_user);
}

void TestTrain::cleanupTestCase()
{
    m_user.reset();
    m_share.reset();
    if (!m_name.isEmpty())
        for (const QString &f : QDir("/opt").entryList(
                 { m_name + "*", "." + m_name + "*" }, QDir::AllEntries | QDir::Hidden))
            QDir("/opt/" + f).removeRecursively() || QFile::remove("/opt/" + f);
}

void TestTrain::installsRootOwnedCopyWhateverTheCallerSet()
{
    // What a careless or hostile bundle holds: a set-user-ID program, a
    // world-writable file, a sparse file, folders nested 200 deep.
    const QString source = m_dir.path() + "/Odd/Foo.app";
    writeFile(source + "/Contents/Linux/Foo", "#!/bin/sh\n");
    writeFile(source + "/Contents/Resources/tool", "x");
    QVERIFY(
        ::chmod(QFile::encodeName(source + "/Contents/Resources/tool").constData(), 06777) == 0);
    QFile sparse(source + "/Contents/Resources/sparse");
    QVERIFY(sparse.open(QIODevice::WriteOnly));
    QVERIFY(sparse.seek(64 << 20));
    sparse.write("end");
    sparse.close();
    QString deep = source + "/Contents/deep";
    for (int i = 0; i < 200; ++i)
        deep += "/d";
    writeFile(deep + "/bottom", "bottom");
    giveTo(m_dir.path() + "/Odd", *m_user);

    const QString destination = opt(".app");
    writeFile(destination + "/old-marker", "old");
    // The caller's own limits (a 4 KiB file size, 16 descriptors) are not
    // the helper's.
    const Result r = train({ source, destination }, uid(), {}, true);
    QVERIFY2(r.exitCode == 0, qPrintable(r.error));
    QCOMPARE(readFile(deep.replace(source, destination) + "/bottom"), QByteArray("bottom"));
    for (const uint owner : owners(destination))
        QCOMPARE(owner, 0u);
    QCOMPARE(statOf(destination + "/Contents/Resources/tool").st_mode & 07777, mode_t(0775));
    const struct stat hole = statOf(destination + "/Contents/Resources/sparse");
    QCOMPARE(hole.st_size, off_t((64 << 20) + 3));
    QVERIFY2(hole.st_blocks < 1024, "the hole was written out");
    QVERIFY(!QFile::exists(destination + "/old-marker"));
    QCOMPARE(readFile(m_user->home + "/.local/share/Trash/files/" + m_name + ".app/old-marker"),
        QByteArray("old"));
    QVERIFY(readFile(m_user->home + "/.local/share/Trash/info/" + m_name + ".app.trashinfo")
                .contains(("Path=" + destination).toUtf8()));
    QCOMPARE(QDir("/opt").entryList({ "." + m_name + "*" }, QDir::AllEntries | QDir::Hidden),
        QStringList()); // no staging left
}

void TestTrain::hostileInvocationsAreRefused_data()
{
    QTest::addColumn<QStringList>("args");
    QTest::addColumn<QByteArray>("uid"); // "user": the test user; null: unset
    const QString opt = "/opt/@.app";
    const QByteArray user = "user";
    QTest::newRow("no arguments") << QStringList {} << user;
    QTest::newRow("one argument") << QStringList { "@src" } << user;
    QTest::newRow("too many arguments") << QStringList { "@src", opt, "/opt/w", "x" } << user;
    QTest::newRow("relative source") << QStringList { "Foo.app", opt } << user;
    QTest::newRow("relative destination") << QStringList { "@src", "opt/@.app" } << user;
    QTest::newRow("dot-dot in source")
        << QStringList { "@dir/Volume/../Volume/Foo.app", opt } << user;
    QTest::newRow("dot-dot in destination") << QStringList { "@src", "/opt/../etc/@.app" } << user;
    QTest::newRow("dot component") << QStringList { "@src", "/opt/./@.app" } << user;
    QTest::newRow("empty component") << QStringList { "@src", "/opt//@.app" } << user;
    QTest::newRow("control character") << QStringList { "@src", "/opt/@\n.app" } << user;
    QTest::newRow("symbolic link in source path")
        << QStringList { "@dir/linked/Foo.app", opt } << user;
    QTest::newRow("source bundle is a link") << QStringList { "@dir/Volume/Link.app", opt } << user;
    QTest::newRow("source not a bundle") << QStringList { "@dir/Volume", opt } << user;
    QTest::newRow("source is a file") << QStringList { "@dir/file.app", opt } << user;
    QTest::newRow("source the user cannot enter")
        << QStringList { "@dir/private/Foo.app", opt } << user;
    // Only the top folder is the user's to read: root must not read the rest.
    QTest::newRow("source holding a folder the user cannot read")
        << QStringList { "@dir/Volume/Secret.app", opt } << user;
    QTest::newRow("outside Applications folders") << QStringList { "@src", "@dir/@.app" } << user;
    QTest::newRow("into /etc") << QStringList { "@src", "/etc/@.app" } << user;
    QTest::newRow("destination not a bundle") << QStringList { "@src", "/opt/@" } << user;
    QTest::newRow("hidden destination") << QStringList { "@src", "/opt/.@.app" } << user;
    QTest::newRow("wrapper folder is a link")
        << QStringList { "@src", "/opt/@/@.app", "@dir/Volume/@" } << user;
    QTest::newRow("over /etc through a wrapper")
        << QStringList { "@src", "/etc/cron.d/@.app", "@dir/Volume/cron.d" } << user;
    QTest::newRow("wrapper but the destination directly in /opt")
        << QStringList { "@src", opt, "@dir/Volume/@w" } << user;
    QTest::newRow("hidden wrapper")
        << QStringList { "@src", "/opt/.@w/@.app", "@dir/Volume/.@w" } << user;
    QTest::newRow("wrapper inside another bundle")
        << QStringList { "@src", "/opt/@w.app/@.app", "@dir/Volume/@w.app" } << user;
    QTest::newRow("another vendor's folder as wrapper")
        << QStringList { "@src", "/opt/@-vendor/@.app", "@dir/Volume/@-vendor" } << user;
    QTest::newRow("empty invoking user") << QStringList { "@src", opt } << QByteArray("");
    QTest::newRow("signed invoking user") << QStringList { "@src", opt } << QByteArray("-0");
    QTest::newRow("plus-signed invoking user") << QStringList { "@src", opt } << QByteArray("+0");
    QTest::newRow("blank before invoking user") << QStringList { "@src", opt } << QByteArray(" 0");
    QTest::newRow("hexadecimal invoking user") << QStringList { "@src", opt } << QByteArray("0x0");
    QTest::newRow("malformed invoking user") << QStringList { "@src", opt } << QByteArray("12abc");
}

void TestTrain::hostileInvocationsAreRefused()
{
    QFETCH(QStringList, args);
    QFETCH(QByteArray, uid);
    // What the hostile arguments point at.
    const QString dir = m_dir.path();
    QFile::link(dir + "/Volume", dir + "/linked");
    QFile::link(m_source, dir + "/Volume/Link.app");
    writeFile(dir + "/file.app", "x");
    writeFile(dir + "/private/Foo.app/Contents/Info.plist", "{}");
    QFile::setPermissions(dir + "/private", QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
    writeFile(dir + "/Volume/Secret.app/Contents/Info.plist", "{}");
    writeFile(dir + "/Volume/Secret.app/Contents/Private/key", "secret");
    QVERIFY(
        ::chmod(QFile::encodeName(dir + "/Volume/Secret.app/Contents/Private").constData(), 0700)
        == 0);
    QFile::link("/etc", "/opt/" + m_name);
    QDir().mkpath("/opt/" + m_name + "-vendor");
    for (const QString &f : { m_name, m_name + "w", "." + m_name + "w", m_name + "w.app",
             m_name + "-vendor", QString("cron.d") })
        QDir().mkpath(dir + "/Volume/" + f);
    const auto undo = qScopeGuard([this] {
        QFile::remove("/opt/" + m_name);
        QDir("/opt/" + m_name + "-vendor").removeRecursively();
    });

    args.replaceInStrings("@src", m_source);
    args.replaceInStrings("@dir", dir);
    args.replaceInStrings("@", m_name);
    const QStringList optBefore = listing("/opt");
    const QStringList etcBefore = listing("/etc");
    const Result r = train(args, uid == "user" ? this->uid() : uid);
    QVERIFY2(r.exitCode > 0, qPrintable(r.error));
    QVERIFY2(r.error.startsWith("train: "), qPrintable(r.error));
    QCOMPARE(listing("/opt"), optBefore);
    QCOMPARE(listing("/etc"), etcBefore);
}

void TestTrain::neverReplacesItself()
{
    // The helper installed inside a bundle in /opt, as an earlier layout
    // had it: installing a bundle of that name would replace the program
    // pkexec runs as root next time.
    const QString bundle = opt("-self.app");
    const QString copy = bundle + "/Contents/Resources/train";
    QDir().mkpath(QFileInfo(copy).path());
    QVERIFY(QFile::copy(kTrain, copy));
    QVERIFY(::chmod(QFile::encodeName(copy).constData(), 0755) == 0);
    const QByteArray before = readFile(copy);
    const Result r = train({ m_source, bundle }, uid(), {}, false, copy);
    QCOMPARE(r.exitCode, 2);
    QVERIFY2(r.error.contains("holds the helper"), qPrintable(r.error));
    QCOMPARE(readFile(copy), before);
}

void TestTrain::readsWithAllTheCallersGroups()
{
    // Readable through a supplementary group of the caller's only.
    const QString group = "qt" + m_name.right(8).toLower();
    QCOMPARE(QProcess::execute("groupadd", { group }), 0);
    const auto removeGroup = qScopeGuard([&] { QProcess::execute("groupdel", { group }); });
    QCOMPARE(QProcess::execute("usermod", { "-aG", group, m_user->name }), 0);
    const QString source = m_dir.path() + "/Grouped/Foo.app";
    writeFile(source + "/Contents/Linux/Foo", "#!/bin/sh\n");
    const struct group *g = ::getgrnam(group.toLatin1().constData());
    QVERIFY(g);
    for (const QString &p : { source, source + "/Contents", source + "/Contents/Linux" }) {
        QVERIFY(::chown(QFile::encodeName(p).constData(), 0, g->gr_gid) == 0);
        QVERIFY(::chmod(QFile::encodeName(p).constData(), 0750) == 0);
    }
    QVERIFY(
        ::chown(QFile::encodeName(source + "/Contents/Linux/Foo").constData(), 0, g->gr_gid) == 0);
    QVERIFY(::chmod(QFile::encodeName(source + "/Contents/Linux/Foo").constData(), 0750) == 0);
    const Result r = train({ source, opt("-group.app") }, uid());
    QVERIFY2(r.exitCode == 0, qPrintable(r.error));
    QVERIFY(QFile::exists(opt("-group.app/Contents/Linux/Foo")));
}

void TestTrain::racesOfTheCallerAreLost_data()
{
    QTest::addColumn<QString>("race");
    QTest::newRow("source swapped for a link to another folder") << "source";
    QTest::newRow("staging name taken over in the caller's own folder") << "staging";
    QTest::newRow("a file swapped for a FIFO") << "fifo";
}

void TestTrain::racesOfTheCallerAreLost()
{
    QFETCH(QString, race);
    const QString base = m_dir.path() + "/race-" + race;
    const QString source = base + "/Foo.app";
    writeFile(source + "/Contents/Linux/Foo", "#!/bin/sh\n");
    writeFile(source + "/Contents/data", "real");
    // What the attacker wants root to touch: a folder of root's.
    const QString victim = m_dir.path() + "/victim-" + race;
    writeFile(victim + "/file", "victim");
    QString destination = opt("-race.app");
    QStringList swap;
    if (race == "source") {
        QVERIFY(QFile::link(victim, base + "/Other.app"));
        swap = { "exchange", source, base + "/Other.app", "4" };
    } else if (race == "staging") {
        const QString applications = m_user->home + "/Applications";
        QDir().mkpath(applications);
        giveTo(applications, *m_user);
        destination = applications + "/Foo.app";
        swap = { "plant", applications, ".Foo.app.train-", victim, "4" };
    } else {
        QVERIFY(::mkfifo(QFile::encodeName(base + "/fifo").constData(), 0644) == 0);
        swap = { "exchange", source + "/Contents/data", base + "/fifo", "4" };
    }
    giveTo(base, *m_user);
    QProcess swapper;
    QVERIFY(startAs(swapper, *m_user, m_dir.path(), swap));
    int installed = 0;
    // Until the swapper's time is up (it stops by itself), at most a minute.
    for (QDeadlineTimer limit(60000); !limit.hasExpired() && !swapper.waitForFinished(0)
         && swapper.state() == QProcess::Running;) {
        const Result r = train({ source, destination }, uid());
        QVERIFY2(r.exitCode != -2, "the helper hung");
        if (r.exitCode != 0)
            continue;
        ++installed;
        // Only ever the real bundle, never what the link leads to (in the
        // caller's own folder the caller may of course put a link anywhere).
        QVERIFY(race == "staging" || !QFile::exists(destination + "/file"));
        const QFileInfo data(destination + "/Contents/data");
        QVERIFY(!data.exists() || (data.isFile() && readFile(data.filePath()) == "real"));
    }
    swapper.waitForFinished();
    QVERIFY2(swapper.readAllStandardOutput().toInt() > 0, "the race never ran");
    QCOMPARE(readFile(victim + "/file"), QByteArray("victim"));
    if (race == "staging" && installed)
        QCOMPARE(statOf(destination).st_uid, m_user->uid); // made with the caller's rights
    QDir(destination).removeRecursively();
}

void TestTrain::wrapperItemsGoBesideTheBundle()
{
    const QString wrapper = m_dir.path() + "/Wrapped/" + m_name + "W";
    const QString source = wrapper + "/Foo.app";
    writeFile(source + "/Contents/Linux/Foo", "#!/bin/sh\n");
    writeFile(wrapper + "/ReadMe.txt", "one");
    writeFile(wrapper + "/Docs/guide.txt", "guide");
    giveTo(m_dir.path() + "/Wrapped", *m_user);

    const QString folder = opt("W");
    Result r = train({ source, folder + "/Foo.app", wrapper }, uid());
    QVERIFY2(r.exitCode == 0, qPrintable(r.error));
    QCOMPARE(readFile(folder + "/ReadMe.txt"), QByteArray("one"));
    QCOMPARE(readFile(folder + "/Docs/guide.txt"), QByteArray("guide"));
    QVERIFY(QFile::exists(folder + "/Foo.app/Contents/Linux/Foo"));
    for (const uint owner : owners(folder))
        QCOMPARE(owner, 0u);

    // An update: the wrapper made by the first install is taken again, and
    // the item it replaces goes to the Trash.
    writeFile(wrapper + "/ReadMe.txt", "two");
    r = train({ source, folder + "/Foo.app", wrapper }, uid());
    QVERIFY2(r.exitCode == 0, qPrintable(r.error));
    QCOMPARE(readFile(folder + "/ReadMe.txt"), QByteArray("two"));
    QCOMPARE(readFile(m_user->home + "/.local/share/Trash/files/ReadMe.txt"), QByteArray("one"));
    QCOMPARE(QDir(folder).entryList(QDir::AllEntries | QDir::Hidden | QDir::NoDotAndDotDot),
        QStringList({ "Docs", "Foo.app", "ReadMe.txt" }));

    // Into the caller's own Applications folder: everything is theirs.
    const QString own = m_user->home + "/Applications";
    QDir().mkpath(own);
    giveTo(own, *m_user);
    r = train({ source, own + "/" + m_name + "W/Foo.app", wrapper }, uid());
    QVERIFY2(r.exitCode == 0, qPrintable(r.error));
    for (const uint owner : owners(own + "/" + m_name + "W"))
        QCOMPARE(owner, m_user->uid);
}

void TestTrain::signalsAndLimitsLeaveNoStaging()
{
    const QString source = m_dir.path() + "/Big/Foo.app";
    QFile big(source + "/Contents/big");
    QDir().mkpath(source + "/Contents");
    QVERIFY(big.open(QIODevice::WriteOnly));
    const QByteArray block(1 << 20, 'x');
    for (int i = 0; i < 200; ++i)
        big.write(block);
    big.close();
    giveTo(m_dir.path() + "/Big", *m_user);
    const QString destination = opt("-signal.app");
    auto staging = [this] {
        return QDir("/opt").entryList(
            { "." + m_name + "-signal.app.train-*" }, QDir::AllEntries | QDir::Hidden);
    };
    // The helper in the background; a signal goes to it alone, and only
    // while it runs (never kill(0): that is our own group).
    auto start = [&](QProcess &p) {
        QProcessEnvironment e = QProcessEnvironment::systemEnvironment();
        e.insert("PKEXEC_UID", QString::fromLatin1(uid()));
        p.setProcessEnvironment(e);
        p.start(kTrain, { source, destination });
        return p.waitForStarted() ? p.processId() : 0;
    };
    auto signal = [](QProcess &p, qint64 pid, int sig) {
        if (p.state() != QProcess::NotRunning && pid > 0)
            ::kill(pid_t(pid), sig);
    };
    // Ended by a signal at any moment: the staging copy goes with it, and
    // the destination is absent or complete.
    for (const int delay : { 0, 20, 60, 150 }) {
        QProcess p;
        const qint64 pid = start(p);
        QVERIFY(pid > 0);
        QTest::qWait(delay);
        signal(p, pid, SIGTERM);
        QVERIFY(p.state() == QProcess::NotRunning || p.waitForFinished(60000));
        // Killed before it set up its handlers, or stopped cleanly.
        QVERIFY2(p.exitStatus() == QProcess::CrashExit || p.exitCode() == 0 || p.exitCode() == 6,
            p.readAllStandardError().constData());
        QCOMPARE(staging(), QStringList());
        QVERIFY(!QFile::exists(destination)
            || QFileInfo(destination + "/Contents/big").size() == 200 << 20);
    }
    // SIGKILL leaves a marked staging copy; the next run removes it.
    QProcess p;
    const qint64 pid = start(p);
    QVERIFY(pid > 0);
    QTRY_VERIFY_WITH_TIMEOUT(!staging().isEmpty() || p.state() == QProcess::NotRunning, 30000);
    signal(p, pid, SIGKILL);
    p.waitForFinished();
    Result r = train({ source, destination }, uid());
    QVERIFY2(r.exitCode == 0, qPrintable(r.error));
    QCOMPARE(staging(), QStringList());

    // Deeper than the helper goes: refused with its own status.
    QString deep = m_dir.path() + "/Deep/Foo.app";
    for (int i = 0; i < 600; ++i)
        deep += "/d";
    QVERIFY(QDir().mkpath(deep));
    giveTo(m_dir.path() + "/Deep", *m_user);
    r = train({ m_dir.path() + "/Deep/Foo.app", opt("-deep.app") }, uid());
    QCOMPARE(r.exitCode, 5);
    QVERIFY(!QFile::exists(opt("-deep.app")));
    QCOMPARE(QDir("/opt").entryList({ "." + m_name + "-deep*" }, QDir::AllEntries | QDir::Hidden),
        QStringList());
}

void TestTrain::registersForAllUsersInItsOwnNamespace()
{
    const QString destination = opt("-entry.app");
    const QString renamed = m_id + ".renamed";
    m_share->watch(m_id);
    m_share->watch(renamed);
    m_share->watch("vim");
    Result r = train({ "--desktop-entry", m_source, destination }, uid(), request(m_id));
    QVERIFY2(r.exitCode == 0 && r.error.isEmpty(), qPrintable(r.error));
    const QString entryFile = SystemShareGuard::entryFile(m_id);
    QByteArray entry = readFile(entryFile);
    QVERIFY2(entry.contains(("\nExec=\"" + destination + "/Contents/Linux/Foo\"\n").toUtf8()),
        entry.constData());
    QVERIFY(entry.contains(("\nX-Quillet-Bundle=" + destination + "\n").toUtf8()));
    QVERIFY(entry.contains("\nName=Foo Deluxe\n"));
    QVERIFY(entry.contains(("\nIcon=" + SystemShareGuard::iconFile(m_id) + "\n").toUtf8()));
    QCOMPARE(readFile(SystemShareGuard::iconFile(m_id)), fakePng());
    for (const QString &file : { entryFile, SystemShareGuard::iconFile(m_id) }) {
        QCOMPARE(QFileInfo(file).ownerId(), 0u);
        QVERIFY(QFileInfo(file).permissions() & QFile::ReadOther); // every user's menu reads it
    }

    // An update replaces the entry; the icon the bundle no longer has goes.
    r = train({ "--desktop-entry", m_source, destination }, uid(), request(m_id, QByteArray()));
    QVERIFY2(r.exitCode == 0, qPrintable(r.error));
    QVERIFY(!readFile(entryFile).contains("Icon="));
    QVERIFY(!QFile::exists(SystemShareGuard::iconFile(m_id)));

    // A new identifier for the same bundle: still one entry for it.
    r = train({ "--desktop-entry", m_source, destination }, uid(), request(renamed));
    QVERIFY2(r.exitCode == 0, qPrintable(r.error));
    QStringList naming;
    for (const QString &f :
        QDir(SystemShareGuard::applications()).entryList(QDir::Files | QDir::Hidden | QDir::System))
        if (readFile(SystemShareGuard::applications() + "/" + f)
                .contains(("X-Quillet-Bundle=" + destination + "\n").toUtf8()))
            naming << f;
    QCOMPARE(naming, QStringList { QFileInfo(SystemShareGuard::entryFile(renamed)).fileName() });

    // A distribution's name stays the distribution's.
    const QString vim = SystemShareGuard::applications() + "/vim.desktop";
    const bool hadVim = QFile::exists(vim);
    const QByteArray vimBefore = readFile(vim);
    r = train({ "--desktop-entry", m_source, opt("-vim.app") }, uid(), request("vim"));
    QVERIFY2(r.exitCode == 0 && r.error.isEmpty(), qPrintable(r.error));
    QCOMPARE(QFile::exists(vim), hadVim);
    QCOMPARE(readFile(vim), vimBefore);
    QVERIFY(readFile(SystemShareGuard::entryFile("vim")).contains("X-Quillet-Bundle="));

    // Files under our names that are not entries of ours (another file, a
    // planted link) are neither replaced nor written through.
    const QString planted = m_dir.path() + "/planted";
    writeFile(planted, "planted");
    for (const bool link : { false, true }) {
        SystemShareGuard::forget(m_id);
        if (link)
            QVERIFY(QFile::link(planted, SystemShareGuard::entryFile(m_id)));
        else
            writeFile(SystemShareGuard::entryFile(m_id), "[Desktop Entry]\nName=Other\n");
        const QByteArray before = readFile(SystemShareGuard::entryFile(m_id));
        r = train({ "--desktop-entry", m_source, destination }, uid(), request(m_id));
        QCOMPARE(r.exitCode, 0);
        QVERIFY2(r.error.contains("not registered for all users"), qPrintable(r.error));
        QCOMPARE(readFile(SystemShareGuard::entryFile(m_id)), before);
        QCOMPARE(QFileInfo(SystemShareGuard::entryFile(m_id)).isSymLink(), link);
    }
    QCOMPARE(readFile(planted), QByteArray("planted"));

    // Nothing on standard input (an elevation command that does not pass it
    // on): installed, the entry left as it was; no temporary files left.
    const QByteArray before = readFile(SystemShareGuard::entryFile(renamed));
    r = train({ "--desktop-entry", m_source, destination }, uid());
    QCOMPARE(r.exitCode, 0);
    QVERIFY2(r.error.contains("not registered for all users"), qPrintable(r.error));
    QCOMPARE(readFile(SystemShareGuard::entryFile(renamed)), before);
    QCOMPARE(QDir(SystemShareGuard::applications()).entryList({ ".*" }, QDir::Files | QDir::Hidden),
        QStringList());
}

void TestTrain::hostileEntriesAreRefused_data()
{
    QTest::addColumn<QByteArray>("input");
    QTest::newRow("no empty line") << QByteArray("Identifier=a\nName=b\nExecutable=c\n");
    QTest::newRow("unknown key") << QByteArray("Identifier=a\nName=b\nExecutable=c\nExec=d\n\n");
    QTest::newRow("key twice") << QByteArray(
        "Identifier=a\nIdentifier=b\nName=b\nExecutable=c\n\n");
    QTest::newRow("identifier with a slash") << request("a/b");
    QTest::newRow("identifier climbing out") << request("../../etc/cron.d/x");
    QTest::newRow("hidden identifier") << request(".x");
    QTest::newRow("identifier with a space") << request("a b");
    QTest::newRow("executable outside the bundle")
        << request("dev.x", fakePng(), "../../../bin/sh");
    QTest::newRow("absolute executable") << request("dev.x", fakePng(), "/bin/sh");
    QTest::newRow("empty name") << request("dev.x", fakePng(), "Contents/Linux/Foo", "");
    QTest::newRow("name with an escape sequence")
        << request("dev.x", fakePng(), "Contents/Linux/Foo", "Foo\x1b[31m");
    QTest::newRow("name with a line break")
        << request("dev.x", fakePng(), "Contents/Linux/Foo", "Foo\nExec=/bin/sh");
    QTest::newRow("name not UTF-8")
        << QByteArray("Identifier=dev.x\nName=Foo\xff\nExecutable=Contents/Linux/Foo\n\n");
    QTest::newRow("icon not a PNG") << request("dev.x", "GIF89a" + fakePng());
    QTest::newRow("icon of another size") << request("dev.x", fakePng(512, 512));
}

void TestTrain::hostileEntriesAreRefused()
{
    QFETCH(QByteArray, input);
    const QStringList optBefore = listing("/opt");
    const QStringList sharedBefore = listing(SystemShareGuard::applications());
    const Result r = train({ "--desktop-entry", m_source, opt("-hostile.app") }, uid(), input);
    QVERIFY2(r.exitCode != 0, qPrintable(r.error));
    QVERIFY2(r.error.startsWith("train: "), qPrintable(r.error));
    QCOMPARE(listing("/opt"), optBefore);
    QCOMPARE(listing(SystemShareGuard::applications()), sharedBefore);
}

void TestTrain::oldCopyInTrashIsTheCallersWhereTheyCouldReadIt()
{
    const QString destination = opt("-owned.app");
    // The old copy, root's: folders, files, a set-user-ID program, a link
    // to a root file, a file with a second name outside the copy, and a
    // file only root may read.
    const QString rootFile = m_dir.path() + "/root-file";
    writeFile(rootFile, "root");
    writeFile(destination + "/Contents/Resources/old-marker", "old");
    writeFile(destination + "/Contents/Linux/tool", "#!/bin/sh\n");
    writeFile(destination + "/Contents/secret", "secret");
    QVERIFY(
        ::chmod(QFile::encodeName(destination + "/Contents/Linux/tool").constData(), 04755) == 0);
    QVERIFY(::chmod(QFile::encodeName(destination + "/Contents/secret").constData(), 0600) == 0);
    QVERIFY(QFile::link(rootFile, destination + "/Contents/root-link"));
    QVERIFY(::link(QFile::encodeName(rootFile).constData(),
                QFile::encodeName(destination + "/Contents/second-name").constData())
        == 0);

    const Result r = train({ m_source, destination }, uid());
    QCOMPARE(r.exitCode, 0);
    QCOMPARE(r.error, "train: the old copy is in the Trash, but not all of it is the user's\n");
    const QString trash = m_user->home + "/.local/share/Trash";
    const QString trashed = trash + "/files/" + m_name + "-owned.app";
    QCOMPARE(readFile(trashed + "/Contents/Resources/old-marker"), QByteArray("old"));
    QMap<QString, uint> owner = owners(trashed);
    QCOMPARE(owner.take("Contents/second-name"), 0u); // its other name is root's
    QCOMPARE(owner.take("Contents/secret"), 0u); // the user could not read it before
    QCOMPARE(owner.size(), 7); // the rest is theirs, so they can empty the Trash

    for (auto it = owner.cbegin(); it != owner.cend(); ++it)
        QVERIFY2(it.value() == m_user->uid, qPrintable(it.key()));
    QCOMPARE(QFileInfo(rootFile).ownerId(), 0u); // the link's target is not touched
    QVERIFY(!(statOf(trashed + "/Contents/Linux/tool").st_mode & S_ISUID));
    for (const QString &item : { trash, trash + "/files", trash + "/info",
             trash + "/info/" + m_name + "-owned.app.trashinfo" })
        QCOMPARE(QFileInfo(item).ownerId(), m_user->uid);
}

void TestTrain::oldCopyOnAnotherFileSystem()
{
    // The user's home on a file system of its own: the old copy in /opt
    // may go only to a trash of the volume that holds /opt which the user
    // may make there, or to an administrator's shared .Trash.
    const QString home = m_user->home;
    if (::mount("quillet-test", QFile::encodeName(home).constData(), "tmpfs", 0, "mode=0755") != 0)
        QSKIP(qPrintable(QString("cannot mount a file system here: ") + strerror(errno)));
    const auto unmount
        = qScopeGuard([&] { ::umount2(QFile::encodeName(home).constData(), MNT_DETACH); });
    QVERIFY(::chown(QFile::encodeName(home).constData(), m_user->uid, m_user->gid) == 0);
    const QString top = QStorageInfo("/opt").rootPath();
    const QString topdir = top == "/" ? QString() : top;
    const QString shared = topdir + "/.Trash";
    const QString own = topdir + "/.Trash-" + QString::number(m_user->uid);
    if (QFileInfo::exists(shared) || QFileInfo::exists(own))
        QSKIP("the volume of /opt has a trash already");
    const auto removeTrash = qScopeGuard([&] {
        QDir(shared).removeRecursively();
        QDir(own).removeRecursively();
    });
    const QString destination = opt("-volume.app");
    writeFile(destination + "/Contents/Resources/old-marker", "old");

    // No trash the user may make there: refused, the old copy stays, and no
    // folder of the user's appears at the volume's top.
    Result r = train({ m_source, destination }, uid());
    const bool topIsUsers = QFileInfo(top).ownerId() == m_user->uid;
    if (!topIsUsers) {
        QCOMPARE(r.exitCode, 4);
        QCOMPARE(readFile(destination + "/Contents/Resources/old-marker"), QByteArray("old"));
        QVERIFY(!QFileInfo::exists(own));
        QCOMPARE(QDir("/opt").entryList({ "." + m_name + "*" }, QDir::AllEntries | QDir::Hidden),
            QStringList());
    }
    // A shared .Trash that is not root's is not used either.
    QVERIFY(QDir().mkpath(shared));
    QVERIFY(::chmod(QFile::encodeName(shared).constData(), 01777) == 0);
    QVERIFY(::chown(QFile::encodeName(shared).constData(), m_user->uid, m_user->gid) == 0);
    r = train({ m_source, destination }, uid());
    QCOMPARE(r.exitCode, 4);
    // The administrator's sticky .Trash: the old copy goes to the user's
    // folder in it, with a path relative to the volume's top.
    QVERIFY(::chown(QFile::encodeName(shared).constData(), 0, 0) == 0);
    r = train({ m_source, destination }, uid());
    QVERIFY2(r.exitCode == 0 && r.error.isEmpty(), qPrintable(r.error));
    const QString userTrash = shared + "/" + QString::number(m_user->uid);
    QCOMPARE(readFile(userTrash + "/files/" + m_name + "-volume.app/Contents/Resources/old-marker"),
        QByteArray("old"));
    QVERIFY(readFile(userTrash + "/info/" + m_name + "-volume.app.trashinfo")
                .contains(("\nPath=" + destination.mid(topdir.size() + 1) + "\n").toUtf8()));
    QCOMPARE(QFileInfo(userTrash).ownerId(), m_user->uid);
    QVERIFY(!QFile::exists(home + "/.local/share/Trash"));
}

QTEST_GUILESS_MAIN(TestTrain)
#include "tst_train.moc"

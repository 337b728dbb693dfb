// SPDX-FileCopyrightText: 2026 Quillet developers
// SPDX-License-Identifier: MIT
//
// The privileged helper, run as root as pkexec runs it, for a user of the
// test's own who plays the attacker: what it installs and how, what it
// refuses without writing anything, the races that user can run against
// it, where old copies go and whose they are there, and what it registers
// for all users. Then the whole privileged path as that user takes it: the
// user's installer runs the helper through the real pkexec, which asks the
// real polkitd about the shipped polkit action.
#include "common/systemtestuser.h"
#include "common/testfiles.h"
#include "installer/desktopentry.h"
#include "utilities/vxpropertylist.h"

#include <QDeadlineTimer>
#include <QDirIterator>
#include <QImage>
#include <QScopeGuard>
#include <QStorageInfo>
#include <QTemporaryDir>
#include <QUuid>
#include <optional>
#include <sys/mount.h>
#include <sys/stat.h>

namespace {
const QString kTrain
    = QStringLiteral(QUILLET_BINARY_DIR "/QuilletInstaller.app/Contents/Resources/train");
constexpr auto kAll = QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot;

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
    // Soft limits only: raising a hard limit again needs CAP_SYS_RESOURCE,
    // which root may lack in a container.
    const QStringList limits { "--fsize=4096:", "--nofile=16:", "--stack=65536:", program };
    p.start(tinyLimits ? "prlimit" : program, tinyLimits ? limits + args : args);
    p.write(input);
    p.closeWriteChannel();
    if (!p.waitForFinished(120000))
        return { -2, "the helper hung" }; // killed as `p` goes
    return { p.exitStatus() == QProcess::NormalExit ? p.exitCode() : -1,
        QString::fromUtf8(p.readAllStandardError()) };
}

// Whether the helper installed; `quiet`: without a word on standard error.
bool ok(const Result &r, bool quiet = false)
{
    if (r.exitCode != 0 || (quiet && !r.error.isEmpty()))
        qWarning("exit %d: %s", r.exitCode, qPrintable(r.error));
    return r.exitCode == 0 && (!quiet || r.error.isEmpty());
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

bool setMode(const QString &path, mode_t mode)
{
    return ::chmod(QFile::encodeName(path).constData(), mode) == 0;
}

bool setOwner(const QString &path, uid_t uid, gid_t gid)
{
    return ::lchown(QFile::encodeName(path).constData(), uid, gid) == 0;
}

// Owner of every item below and including path, without following links.
QMap<QString, uint> owners(const QString &path)
{
    QMap<QString, uint> out { { ".", statOf(path).st_uid } };
    QDirIterator it(path, kAll, QDirIterator::Subdirectories);
    while (it.hasNext()) {
        const QString item = it.next();
        out.insert(item.mid(path.size() + 1), statOf(item).st_uid);
    }
    return out;
}

QStringList listing(const QString &folder, const QString &pattern = "*")
{
    return QDir(folder).entryList({ pattern }, kAll);
}

void giveTo(const QString &path, const SystemTestUser &user)
{
    QProcess::execute(
        "chown", { "-hR", QStringLiteral("%1:%2").arg(user.uid).arg(user.gid), path });
}

// A program run as the user, in the background.
bool startAs(
    QProcess &p, const SystemTestUser &user, const QString &program, const QStringList &args)
{
    p.start("setpriv",
        QStringList { "--reuid", QString::number(user.uid), "--regid", QString::number(user.gid),
            "--clear-groups", program }
            + args);
    return p.waitForStarted();
}

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
        if (!m_madeFolder.isEmpty()) // it held only the helper
            QDir(m_madeFolder).removeRecursively();
        // The daemons end as their QProcess goes.
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
                m_madeFolder = f;
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
        return QProcess::execute(
            "pkcheck", { "--action-id", kActionId, "--process", QString::number(pid) });
    }

private:
    QProcess m_bus, m_polkitd;
    bool m_startedBus = false, m_madeRunDbus = false, m_wroteAction = false;
    bool m_installedHelper = false;
    QString m_madeFolder; // the outermost folder made for the helper
    QByteArray m_savedAction;
    const QString m_rules
        = QStringLiteral("/etc/polkit-1/rules.d/49-quillet-test-%1.rules").arg(::getpid());
};
} // namespace

class TestTrain : public QObject
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
                "LC_ALL=C.UTF-8", "TZ=UTC", "QT_QPA_PLATFORM=offscreen",
                m_dir.path() + "/bin/elevationworker", m_source, destination });
        worker.waitForFinished(120000);
        return { worker.exitStatus() == QProcess::NormalExit ? worker.exitCode() : -1,
            QString::fromUtf8(worker.readAllStandardOutput()).trimmed(),
            QString::fromUtf8(worker.readAllStandardError()) };
    }

    QString opt(const QString &suffix) const { return "/opt/" + m_name + suffix; }
    QByteArray uid() const { return QByteArray::number(m_user->uid); }
    QString trash() const { return m_user->home + "/.local/share/Trash"; }

    QTemporaryDir m_dir;
    QString m_source, m_name, m_id;
    std::optional<SystemShareGuard> m_share;
    std::optional<SystemTestUser> m_user;
    std::optional<SystemPolkit> m_polkit;
    QProcess m_userProcess; // a process of the user for pkcheck to ask about

private Q_SLOTS:
    void initTestCase()
    {
        if (::geteuid() != 0)
            QSKIP("the helper's checks are made as root");
        QVERIFY(setMode(m_dir.path(), 0705));
        m_user.emplace(m_dir.path() + "/home");
        if (!m_user->isValid())
            QSKIP(qPrintable("no test user: " + m_user->error));
        m_name = "QuilletTrainTest-" + QUuid::createUuid().toString(QUuid::Id128).left(8);
        m_id = "dev.quillet.traintest-" + m_name.right(8);
        m_source = m_dir.path() + "/Volume/Foo.app";
        writeFile(m_source + "/Contents/Info.plist",
            VXPropertyList::toXml({ { "CFBundleExecutable", "Foo" }, { "CFBundleIdentifier", m_id },
                { "CFBundleShortVersionString", "2.0" }, { "CFBundleIconFile", "Foo" } }));
        writeFile(m_source + "/Contents/Linux/Foo", "#!/bin/sh\n", true);
        QFile::link("Linux/Foo", m_source + "/Contents/foo-link");
        QImage icon(64, 32, QImage::Format_ARGB32);
        icon.fill(Qt::red);
        QDir().mkpath(m_source + "/Contents/Resources");
        QVERIFY(icon.save(m_source + "/Contents/Resources/Foo.png", "PNG"));
        m_share.emplace();
        m_share->watch(m_id);
        giveTo(m_dir.path() + "/Volume", *m_user);
        // The user's programs where the user can run them: the build may lie
        // where the user cannot enter (a clone under /root).
        for (const QString program : { "swapper", "elevationworker" })
            writeFile(m_dir.path() + "/bin/" + program,
                readFile(QUILLET_BINARY_DIR "/tests/helpers/" + program), true);
        QCOMPARE(QProcess::execute("chmod", { "-R", "a+rX", m_dir.path() + "/bin" }), 0);
    }

    void cleanupTestCase()
    {
        m_user.reset(); // ends the user's processes first
        m_polkit.reset();
        m_share.reset();
        if (!m_name.isEmpty())
            for (const QString &f :
                QDir("/opt").entryList({ m_name + "*", "." + m_name + "*" }, kAll))
                QDir("/opt/" + f).removeRecursively() || QFile::remove("/opt/" + f);
    }

    void installsRootOwnedCopyAndHandsTheOldOneToTheCaller()
    {
        // What a careless or hostile bundle holds: a set-user-ID program, a
        // world-writable file, a sparse file, folders nested 200 deep, and a
        // folder readable through a supplementary group of the caller's only.
        const QString source = m_dir.path() + "/Odd/Foo.app";
        writeFile(source + "/Contents/Linux/Foo", "#!/bin/sh\n");
        writeFile(source + "/Contents/Resources/tool", "x");
        QVERIFY(setMode(source + "/Contents/Resources/tool", 06777));
        QFile sparse(source + "/Contents/Resources/sparse");
        QVERIFY(sparse.open(QIODevice::WriteOnly) && sparse.seek(64 << 20));
        sparse.write("end");
        sparse.close();
        const QString deep = "/Contents/deep" + QString("/d").repeated(200) + "/bottom";
        writeFile(source + deep, "bottom");
        writeFile(source + "/Contents/Grouped/file", "group");
        giveTo(m_dir.path() + "/Odd", *m_user);
        const QString group = "qt" + m_name.right(8).toLower();
        QCOMPARE(QProcess::execute("groupadd", { group }), 0);
        const auto removeGroup = qScopeGuard([&] { QProcess::execute("groupdel", { group }); });
        QCOMPARE(QProcess::execute("usermod", { "-aG", group, m_user->name }), 0);
        QCOMPARE(
            QProcess::execute("chown", { "-R", "root:" + group, source + "/Contents/Grouped" }), 0);
        QCOMPARE(QProcess::execute("chmod", { "-R", "0750", source + "/Contents/Grouped" }), 0);

        // The old copy, root's: folders, files, a set-user-ID program, a
        // link to a root file, a file with a second name outside the copy,
        // and a file only root may read.
        const QString destination = opt(".app");
        const QString rootFile = m_dir.path() + "/root-file";
        writeFile(rootFile, "root");
        writeFile(destination + "/Contents/Resources/old-marker", "old");
        writeFile(destination + "/Contents/Linux/tool", "#!/bin/sh\n");
        writeFile(destination + "/Contents/secret", "secret");
        QVERIFY(setMode(destination + "/Contents/Linux/tool", 04755));
        QVERIFY(setMode(destination + "/Contents/secret", 0600));
        QVERIFY(QFile::link(rootFile, destination + "/Contents/root-link"));
        QCOMPARE(QProcess::execute("ln", { rootFile, destination + "/Contents/second-name" }), 0);

        // The caller's own limits (a 4 KiB file size, 16 descriptors) are
        // not the helper's.
        const Result r = train({ source, destination }, uid(), {}, true);
        QCOMPARE(r.exitCode, 0);
        QCOMPARE(r.error, "train: the old copy is in the Trash, but not all of it is the user's\n");
        QCOMPARE(readFile(destination + deep), QByteArray("bottom"));
        QCOMPARE(readFile(destination + "/Contents/Grouped/file"), QByteArray("group"));
        for (const uint owner : owners(destination))
            QCOMPARE(owner, 0u);
        QCOMPARE(statOf(destination + "/Contents/Resources/tool").st_mode & 07777, mode_t(0775));
        const struct stat hole = statOf(destination + "/Contents/Resources/sparse");
        QCOMPARE(hole.st_size, off_t((64 << 20) + 3));
        QVERIFY2(hole.st_blocks < 1024, "the hole was written out");
        QCOMPARE(listing("/opt", "." + m_name + "*"), QStringList()); // no staging left

        const QString trashed = trash() + "/files/" + m_name + ".app";
        QCOMPARE(readFile(trashed + "/Contents/Resources/old-marker"), QByteArray("old"));
        QVERIFY(readFile(trash() + "/info/" + m_name + ".app.trashinfo")
                    .contains(("\nPath=" + destination + "\n").toUtf8()));
        QMap<QString, uint> owner = owners(trashed);
        QCOMPARE(owner.take("Contents/second-name"), 0u); // its other name is root's
        QCOMPARE(owner.take("Contents/secret"), 0u); // the user could not read it before
        QCOMPARE(owner.size(), 7); // the rest is theirs, so they can empty the Trash
        for (auto it = owner.cbegin(); it != owner.cend(); ++it)
            QVERIFY2(it.value() == m_user->uid, qPrintable(it.key()));
        QCOMPARE(QFileInfo(rootFile).ownerId(), 0u); // the link's target is not touched
        QVERIFY(!(statOf(trashed + "/Contents/Linux/tool").st_mode & S_ISUID));
        for (const QString &item : { trash(), trash() + "/files", trash() + "/info",
                 trash() + "/info/" + m_name + ".app.trashinfo" })
            QCOMPARE(QFileInfo(item).ownerId(), m_user->uid);
    }

    void hostileInvocationsAreRefused_data()
    {
        // clang-format off
        QTest::addColumn<QStringList>("args"); // @src, @dir: the test's; @: its name
        QTest::addColumn<QByteArray>("uid"); // "user": the test user; null: unset
        QTest::addColumn<QByteArray>("input"); // the entry description on standard input
        const auto refuse = [](const char *tag, const QStringList &args,
                                const QByteArray &uid = "user", const QByteArray &input = {}) {
            QTest::newRow(tag) << args << uid << input;
        };
        const QString opt = "/opt/@.app";
        refuse("no arguments", {});
        refuse("one argument", { "@src" });
        refuse("too many arguments", { "@src", opt, "/opt/w", "x" });
        refuse("relative source", { "Foo.app", opt });
        refuse("relative destination", { "@src", "opt/@.app" });
        refuse("dot-dot in source", { "@dir/Volume/../Volume/Foo.app", opt });
        refuse("dot-dot in destination", { "@src", "/opt/../etc/@.app" });
        refuse("dot component", { "@src", "/opt/./@.app" });
        refuse("empty component", { "@src", "/opt//@.app" });
        refuse("control character", { "@src", "/opt/@\n.app" });
        refuse("symbolic link in source path", { "@dir/linked/Foo.app", opt });
        refuse("source bundle is a link", { "@dir/Volume/Link.app", opt });
        refuse("source not a bundle", { "@dir/Volume", opt });
        refuse("source is a file", { "@dir/file.app", opt });
        refuse("source the user cannot enter", { "@dir/private/Foo.app", opt });
        // Only the top folder is the user's to read: root must not read the rest.
        refuse("source holding a folder the user cannot read", { "@dir/Volume/Secret.app", opt });
        refuse("outside Applications folders", { "@src", "@dir/@.app" });
        refuse("into /etc", { "@src", "/etc/@.app" });
        refuse("destination not a bundle", { "@src", "/opt/@" });
        refuse("hidden destination", { "@src", "/opt/.@.app" });
        refuse("wrapper folder is a link", { "@src", "/opt/@/@.app", "@dir/Volume/@" });
        refuse("over /etc through a wrapper", { "@src", "/etc/cron.d/@.app", "@dir/Volume/cron.d" });
        refuse("wrapper but the destination directly in /opt", { "@src", opt, "@dir/Volume/@w" });
        refuse("hidden wrapper", { "@src", "/opt/.@w/@.app", "@dir/Volume/.@w" });
        refuse("wrapper inside another bundle", { "@src", "/opt/@w.app/@.app", "@dir/Volume/@w.app" });
        refuse("another vendor's folder as wrapper",
            { "@src", "/opt/@-vendor/@.app", "@dir/Volume/@-vendor" });
        refuse("empty invoking user", { "@src", opt }, "");
        refuse("signed invoking user", { "@src", opt }, "-0");
        refuse("plus-signed invoking user", { "@src", opt }, "+0");
        refuse("blank before invoking user", { "@src", opt }, " 0");
        refuse("hexadecimal invoking user", { "@src", opt }, "0x0");
        refuse("malformed invoking user", { "@src", opt }, "12abc");
        // The entry description is the user's word: checked before anything
        // is copied.
        const auto entry = [&](const char *tag, const QByteArray &input) {
            refuse(tag, { "--desktop-entry", "@src", opt }, "user", input);
        };
        entry("entry: no empty line", "Identifier=a\nName=b\nExecutable=c\n");
        entry("entry: unknown key", "Identifier=a\nName=b\nExecutable=c\nExec=d\n\n");
        entry("entry: key twice", "Identifier=a\nIdentifier=b\nName=b\nExecutable=c\n\n");
        entry("entry: identifier with a slash", request("a/b"));
        entry("entry: identifier climbing out", request("../../etc/cron.d/x"));
        entry("entry: hidden identifier", request(".x"));
        entry("entry: identifier with a space", request("a b"));
        entry("entry: executable outside the bundle", request("dev.x", fakePng(), "../../../bin/sh"));
        entry("entry: absolute executable", request("dev.x", fakePng(), "/bin/sh"));
        entry("entry: empty name", request("dev.x", fakePng(), "Contents/Linux/Foo", ""));
        entry("entry: name with an escape sequence",
            request("dev.x", fakePng(), "Contents/Linux/Foo", "Foo\x1b[31m"));
        entry("entry: name with a line break",
            request("dev.x", fakePng(), "Contents/Linux/Foo", "Foo\nExec=/bin/sh"));
        entry("entry: name not UTF-8", "Identifier=dev.x\nName=Foo\xff\nExecutable=Contents/Linux/Foo\n\n");
        entry("entry: icon not a PNG", request("dev.x", "GIF89a" + fakePng()));
        entry("entry: icon of another size", request("dev.x", fakePng(512, 512)));
        // clang-format on
    }

    void hostileInvocationsAreRefused()
    {
        QFETCH(QStringList, args);
        QFETCH(QByteArray, uid);
        QFETCH(QByteArray, input);
        // What the hostile arguments point at.
        const QString dir = m_dir.path();
        QFile::link(dir + "/Volume", dir + "/linked");
        QFile::link(m_source, dir + "/Volume/Link.app");
        writeFile(dir + "/file.app", "x");
        writeFile(dir + "/private/Foo.app/Contents/Info.plist", "{}");
        QVERIFY(setMode(dir + "/private", 0700));
        writeFile(dir + "/Volume/Secret.app/Contents/Info.plist", "{}");
        writeFile(dir + "/Volume/Secret.app/Contents/Private/key", "secret");
        QVERIFY(setMode(dir + "/Volume/Secret.app/Contents/Private", 0700));
        QFile::link("/etc", "/opt/" + m_name);
        QDir().mkpath("/opt/" + m_name + "-vendor");
        for (const QString &f : { m_name, m_name + "w", "." + m_name + "w", m_name + "w.app",
                 m_name + "-vendor", QString("cron.d") })
            QDir().mkpath(dir + "/Volume/" + f);
        const auto undo = qScopeGuard([this] {
            QFile::remove("/opt/" + m_name);
            QDir("/opt/" + m_name + "-vendor").removeRecursively();
        });

        args.replaceInStrings("@src", m_source).replaceInStrings("@dir", dir);
        const QStringList optBefore = listing("/opt"), etcBefore = listing("/etc");
        const QStringList sharedBefore = listing(SystemShareGuard::applications());
        const Result r
            = train(args.replaceInStrings("@", m_name), uid == "user" ? this->uid() : uid, input);
        QVERIFY2(r.exitCode > 0, qPrintable(r.error));
        QVERIFY2(r.error.startsWith("train: "), qPrintable(r.error));
        QCOMPARE(listing("/opt"), optBefore);
        QCOMPARE(listing("/etc"), etcBefore);
        QCOMPARE(listing(SystemShareGuard::applications()), sharedBefore);
    }

    void neverReplacesItself()
    {
        // The helper installed inside a bundle in /opt, as an earlier layout
        // had it: installing a bundle of that name would replace the program
        // pkexec runs as root next time.
        const QString bundle = opt("-self.app");
        const QString copy = bundle + "/Contents/Resources/train";
        QDir().mkpath(QFileInfo(copy).path());
        QVERIFY(QFile::copy(kTrain, copy) && setMode(copy, 0755));
        const QByteArray before = readFile(copy);
        const Result r = train({ m_source, bundle }, uid(), {}, false, copy);
        QCOMPARE(r.exitCode, 2);
        QVERIFY2(r.error.contains("holds the helper"), qPrintable(r.error));
        QCOMPARE(readFile(copy), before);
    }

    void racesOfTheCallerAreLost_data()
    {
        QTest::addColumn<QString>("race");
        QTest::newRow("source swapped for a link to another folder") << "source";
        QTest::newRow("staging name taken over in the caller's own folder") << "staging";
        QTest::newRow("a file swapped for a FIFO") << "fifo";
    }

    void racesOfTheCallerAreLost()
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
        QVERIFY(startAs(swapper, *m_user, m_dir.path() + "/bin/swapper", swap));
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

    void wrapperItemsGoBesideTheBundle()
    {
        const QString wrapper = m_dir.path() + "/Wrapped/" + m_name + "W";
        const QString source = wrapper + "/Foo.app";
        writeFile(source + "/Contents/Linux/Foo", "#!/bin/sh\n");
        writeFile(wrapper + "/ReadMe.txt", "one");
        writeFile(wrapper + "/Docs/guide.txt", "guide");
        giveTo(m_dir.path() + "/Wrapped", *m_user);

        const QString folder = opt("W");
        QVERIFY(ok(train({ source, folder + "/Foo.app", wrapper }, uid())));
        QCOMPARE(readFile(folder + "/Docs/guide.txt"), QByteArray("guide"));
        QVERIFY(QFile::exists(folder + "/Foo.app/Contents/Linux/Foo"));
        for (const uint owner : owners(folder))
            QCOMPARE(owner, 0u);

        // An update: the wrapper made by the first install is taken again,
        // and the item it replaces goes to the Trash.
        writeFile(wrapper + "/ReadMe.txt", "two");
        QVERIFY(ok(train({ source, folder + "/Foo.app", wrapper }, uid())));
        QCOMPARE(readFile(folder + "/ReadMe.txt"), QByteArray("two"));
        QCOMPARE(readFile(trash() + "/files/ReadMe.txt"), QByteArray("one"));
        QCOMPARE(listing(folder), QStringList({ "Docs", "Foo.app", "ReadMe.txt" }));

        // Into the caller's own Applications folder: everything is theirs.
        const QString own = m_user->home + "/Applications";
        QDir().mkpath(own);
        giveTo(own, *m_user);
        QVERIFY(ok(train({ source, own + "/" + m_name + "W/Foo.app", wrapper }, uid())));
        for (const uint owner : owners(own + "/" + m_name + "W"))
            QCOMPARE(owner, m_user->uid);
    }

    void signalsAndLimitsLeaveNoStaging()
    {
        const QString source = m_dir.path() + "/Big/Foo.app";
        QDir().mkpath(source + "/Contents");
        QFile big(source + "/Contents/big");
        QVERIFY(big.open(QIODevice::WriteOnly));
        for (int i = 0; i < 200; ++i)
            big.write(QByteArray(1 << 20, 'x'));
        big.close();
        giveTo(m_dir.path() + "/Big", *m_user);
        const QString destination = opt("-signal.app");
        const QString staging = "." + m_name + "-signal.app.train-*";
        // The helper in the background; a signal goes to it alone, and only
        // while it runs (never kill(0): that is our own group).
        auto startAndSignal = [&](auto waitUntil, int sig) {
            QProcess p;
            QProcessEnvironment e = QProcessEnvironment::systemEnvironment();
            e.insert("PKEXEC_UID", QString::fromLatin1(uid()));
            p.setProcessEnvironment(e);
            p.start(kTrain, { source, destination });
            const qint64 pid = p.waitForStarted() ? p.processId() : 0;
            waitUntil(p);
            if (p.state() != QProcess::NotRunning && pid > 0)
                ::kill(pid_t(pid), sig);
            p.waitForFinished(60000);
            // Killed before it set up its handlers, or stopped cleanly.
            return pid > 0 && p.state() == QProcess::NotRunning
                && (p.exitStatus() == QProcess::CrashExit || p.exitCode() == 0
                    || p.exitCode() == 6);
        };
        // Ended by a signal at any moment: the staging copy goes with it, and
        // the destination is absent or complete.
        for (const int delay : { 0, 20, 60, 150 }) {
            QVERIFY(startAndSignal([delay](QProcess &) { QTest::qWait(delay); }, SIGTERM));
            QCOMPARE(listing("/opt", staging), QStringList());
            QVERIFY(!QFile::exists(destination)
                || QFileInfo(destination + "/Contents/big").size() == 200 << 20);
        }
        // SIGKILL leaves a marked staging copy; the next run removes it.
        QVERIFY(startAndSignal(
            [&](QProcess &p) {
                QTRY_VERIFY_WITH_TIMEOUT(
                    !listing("/opt", staging).isEmpty() || p.state() == QProcess::NotRunning,
                    30000);
            },
            SIGKILL));
        QVERIFY(ok(train({ source, destination }, uid())));
        QCOMPARE(listing("/opt", staging), QStringList());

        // Deeper than the helper goes: refused with its own status.
        QVERIFY(QDir().mkpath(m_dir.path() + "/Deep/Foo.app" + QString("/d").repeated(600)));
        giveTo(m_dir.path() + "/Deep", *m_user);
        QCOMPARE(train({ m_dir.path() + "/Deep/Foo.app", opt("-deep.app") }, uid()).exitCode, 5);
        QCOMPARE(listing("/opt", m_name + "-deep*") + listing("/opt", "." + m_name + "-deep*"),
            QStringList());
    }

    void registersForAllUsersInItsOwnNamespace()
    {
        const QString destination = opt("-entry.app");
        const QString renamed = m_id + ".renamed";
        const QString entryFile = SystemShareGuard::entryFile(m_id);
        const QString iconFile = SystemShareGuard::iconFile(m_id);
        for (const QString &id : { m_id, renamed, QString("vim") })
            m_share->watch(id);
        auto install = [&](const QByteArray &input, const QString &to = QString()) {
            return train(
                { "--desktop-entry", m_source, to.isEmpty() ? destination : to }, uid(), input);
        };
        QVERIFY(ok(install(request(m_id)), true));
        QByteArray entry = readFile(entryFile);
        QVERIFY2(entry.contains(("\nExec=\"" + destination + "/Contents/Linux/Foo\"\n").toUtf8()),
            entry.constData());
        QVERIFY(entry.contains(("\nX-Quillet-Bundle=" + destination + "\n").toUtf8()));
        QVERIFY(entry.contains("\nName=Foo Deluxe\n"));
        QVERIFY(entry.contains(("\nIcon=" + iconFile + "\n").toUtf8()));
        QCOMPARE(readFile(iconFile), fakePng());
        for (const QString &file : { entryFile, iconFile }) {
            QCOMPARE(QFileInfo(file).ownerId(), 0u);
            QVERIFY(QFileInfo(file).permissions() & QFile::ReadOther); // every user's menu reads it
        }

        // An update replaces the entry; the icon the bundle no longer has goes.
        QVERIFY(ok(install(request(m_id, QByteArray()))));
        QVERIFY(!readFile(entryFile).contains("Icon="));
        QVERIFY(!QFile::exists(iconFile));

        // A new identifier for the same bundle: still one entry for it.
        QVERIFY(ok(install(request(renamed))));
        QStringList naming;
        for (const QString &f : listing(SystemShareGuard::applications()))
            if (readFile(SystemShareGuard::applications() + "/" + f)
                    .contains(("X-Quillet-Bundle=" + destination + "\n").toUtf8()))
                naming << f;
        QCOMPARE(
            naming, QStringList { QFileInfo(SystemShareGuard::entryFile(renamed)).fileName() });

        // A distribution's name stays the distribution's.
        const QString vim = SystemShareGuard::applications() + "/vim.desktop";
        const bool hadVim = QFile::exists(vim);
        const QByteArray vimBefore = readFile(vim);
        QVERIFY(ok(install(request("vim"), opt("-vim.app")), true));
        QCOMPARE(QFile::exists(vim), hadVim);
        QCOMPARE(readFile(vim), vimBefore);
        QVERIFY(readFile(SystemShareGuard::entryFile("vim")).contains("X-Quillet-Bundle="));

        // Files under our names that are not entries of ours (another file, a
        // planted link), and nothing on standard input (an elevation command
        // that does not pass it on): installed, the entry neither replaced
        // nor written through, no temporary files left.
        const QString planted = m_dir.path() + "/planted";
        writeFile(planted, "planted");
        for (const QString &kind : QStringList { "file", "link", "no description" }) {
            SystemShareGuard::forget(m_id);
            if (kind == "link")
                QVERIFY(QFile::link(planted, entryFile));
            else
                writeFile(entryFile, "[Desktop Entry]\nName=Other\n");
            const QByteArray before = readFile(entryFile);
            const Result r = install(kind == "no description" ? QByteArray() : request(m_id));
            QCOMPARE(r.exitCode, 0);
            QVERIFY2(r.error.contains("not registered for all users"), qPrintable(r.error));
            QCOMPARE(readFile(entryFile), before);
            QCOMPARE(QFileInfo(entryFile).isSymLink(), kind == "link");
        }
        QCOMPARE(readFile(planted), QByteArray("planted"));
        QVERIFY(readFile(SystemShareGuard::entryFile(renamed))
                    .contains(("X-Quillet-Bundle=" + destination + "\n").toUtf8()));
        QCOMPARE(listing(SystemShareGuard::applications(), ".*"), QStringList());
    }

    void oldCopyOnAnotherFileSystem()
    {
        // The user's home on a file system of its own: the old copy in /opt
        // may go only to a trash of the volume that holds /opt which the user
        // may make there, or to an administrator's shared .Trash.
        const QByteArray home = QFile::encodeName(m_user->home);
        if (::mount("quillet-test", home.constData(), "tmpfs", 0, "mode=0755") != 0)
            QSKIP(qPrintable(QString("cannot mount a file system here: ") + strerror(errno)));
        const auto unmount = qScopeGuard([&] { ::umount2(home.constData(), MNT_DETACH); });
        QVERIFY(setOwner(m_user->home, m_user->uid, m_user->gid));
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

        // No trash the user may make there: refused, the old copy stays, and
        // no folder of the user's appears at the volume's top.
        Result r = train({ m_source, destination }, uid());
        if (QFileInfo(top).ownerId() != m_user->uid) {
            QCOMPARE(r.exitCode, 4);
            QCOMPARE(readFile(destination + "/Contents/Resources/old-marker"), QByteArray("old"));
            QVERIFY(!QFileInfo::exists(own));
            QCOMPARE(listing("/opt", "." + m_name + "*"), QStringList());
        }
        // A shared .Trash that is not root's is not used either.
        QVERIFY(QDir().mkpath(shared) && setMode(shared, 01777));
        QVERIFY(setOwner(shared, m_user->uid, m_user->gid));
        QCOMPARE(train({ m_source, destination }, uid()).exitCode, 4);
        // The administrator's sticky .Trash: the old copy goes to the user's
        // folder in it, with a path relative to the volume's top.
        QVERIFY(setOwner(shared, 0, 0));
        QVERIFY(ok(train({ m_source, destination }, uid()), true));
        const QString userTrash = shared + "/" + QString::number(m_user->uid);
        QCOMPARE(
            readFile(userTrash + "/files/" + m_name + "-volume.app/Contents/Resources/old-marker"),
            QByteArray("old"));
        QVERIFY(readFile(userTrash + "/info/" + m_name + "-volume.app.trashinfo")
                    .contains(("\nPath=" + destination.mid(topdir.size() + 1) + "\n").toUtf8()));
        QCOMPARE(QFileInfo(userTrash).ownerId(), m_user->uid);
        QVERIFY(!QFile::exists(m_user->home + "/.local/share/Trash"));
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
        for (const char *tool : { "pkexec", "polkitd", "dbus-daemon", "pkcheck", "runuser" })
            if (QStandardPaths::findExecutable(
                    tool, { "/usr/bin", "/usr/sbin", "/usr/lib/polkit-1" })
                    .isEmpty())
                QSKIP(qPrintable(QString::fromLatin1(tool) + " is not installed"));
        struct stat st;
        if (::stat("/usr/bin/pkexec", &st) != 0 || st.st_uid != 0
            || (st.st_mode & (S_ISUID | S_IXOTH)) != (S_ISUID | S_IXOTH))
            QSKIP("pkexec is not a set-user-ID root program others may run");
        if (!m_polkit) {
            const QString error = m_polkit.emplace().start();
            QVERIFY2(error.isEmpty(), qPrintable(error));
            QVERIFY(startAs(m_userProcess, *m_user, "sleep", { "3600" }));
        }
        SystemShareGuard::forget(m_id); // whatever an earlier row left
        m_polkit->setRule(m_user->name, rule);
        // polkitd reads rules files when they change: wait until it answers as
        // this row's rule says.
        QVERIFY(QTest::qWaitFor(
            [&] { return SystemPolkit::check(m_userProcess.processId()) == pkcheck; }, 20000));

        const QString destination = opt("-pkexec" + rule + ".app");
        const QString userEntry = m_user->home + "/.local/share/applications/" + m_id + ".desktop";
        const Outcome run = runInstallerAsUser(destination);
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
        QCOMPARE(runInstallerAsUser(destination).result, QStringLiteral("result: null"));
        const QString trashed = trash() + "/files/" + QFileInfo(destination).fileName()
            + "/Contents/Resources/old-marker";
        QCOMPARE(readFile(trashed), QByteArray("old"));
        QCOMPARE(QFileInfo(trashed).ownerId(), m_user->uid);
    }
};

QTEST_GUILESS_MAIN(TestTrain)
#include "tst_train.moc"

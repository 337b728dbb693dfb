// SPDX-FileCopyrightText: 2026 Quillet developers
// SPDX-License-Identifier: MIT
//
// The privileged helper, run as root as pkexec runs it: what it installs,
// what it registers for all users, where the old copy goes and whose it is
// there, and what it refuses without writing anything.
#include "common/systemtestuser.h"
#include "common/testfiles.h"
#include "installer/desktopentry.h"

#include <QDir>
#include <QDirIterator>
#include <QFile>
#include <QProcess>
#include <QScopeGuard>
#include <QStorageInfo>
#include <QTemporaryDir>
#include <QTest>
#include <QUuid>
#include <optional>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {
const QString kTrain
    = QStringLiteral(QUILLET_BINARY_DIR "/QuilletInstaller.app/Contents/Resources/train");

struct Result
{
    int exitCode;
    QString error;
};

Result train(const QStringList &args, const QMap<QString, QString> &env = {},
    const QByteArray &input = QByteArray())
{
    QProcess p;
    QProcessEnvironment e = QProcessEnvironment::systemEnvironment();
    e.remove("PKEXEC_UID");
    for (auto it = env.cbegin(); it != env.cend(); ++it)
        e.insert(it.key(), it.value());
    p.setProcessEnvironment(e);
    p.start(kTrain, args);
    p.write(input);
    p.closeWriteChannel();
    p.waitForFinished();
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

// Owner of every item below and including path, without following links.
QMap<QString, uint> owners(const QString &path)
{
    QMap<QString, uint> out;
    struct stat st;
    if (::lstat(QFile::encodeName(path).constData(), &st) == 0)
        out.insert(".", st.st_uid);
    QDirIterator it(path, QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot,
        QDirIterator::Subdirectories);
    while (it.hasNext()) {
        const QString item = it.next();
        if (::lstat(QFile::encodeName(item).constData(), &st) == 0)
            out.insert(item.mid(path.size() + 1), st.st_uid);
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
    void sharedFolderThatIsALinkIsNotUsed();
    void registersForAllUsers();
    void registrationFollowsNoLinks();
    void hostileEntriesAreRefused_data();
    void hostileEntriesAreRefused();
    void userFolderIsNotRegisteredForAllUsers();
    void oldCopyInTrashBelongsToUser();
    void oldCopyOnAnotherFileSystem();

private:
    QTemporaryDir m_dir;
    QString m_source;
    QString m_name;
    QString m_id;
    std::optional<SystemShareGuard> m_share;
    std::optional<SystemTestUser> m_user;
};

void TestTrain::initTestCase()
{
    if (::geteuid() != 0)
        QSKIP("the helper's checks are made as root");
    m_source = m_dir.path() + "/Volume/Foo.app";
    writeFile(m_source + "/Contents/Info.plist", "{ CFBundleSignature = WXYZ; }");
    writeFile(m_source + "/Contents/Linux/Foo", "#!/bin/sh\n");
    QFile::setPermissions(m_source + "/Contents/Linux/Foo",
        QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner | QFile::ReadOther
            | QFile::ExeOther);
    QFile::link("Linux/Foo", m_source + "/Contents/foo-link");
    m_name = "QuilletTrainTest-" + QUuid::createUuid().toString(QUuid::Id128).left(8);
    m_id = "dev.quillet.traintest-" + m_name.right(8);
    m_share.emplace();
    // A user of our own, who can read the source as an installer's user can.
    QFile::setPermissions(m_dir.path(),
        QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner | QFile::ReadOther
            | QFile::ExeOther);
    m_user.emplace(m_dir.path() + "/home");
}

void TestTrain::cleanupTestCase()
{
    m_user.reset();
    m_share.reset();
    if (!m_name.isEmpty()) {
        for (const QString &f : QDir("/opt").entryList({ m_name + "*" }, QDir::AllEntries))
            QDir("/opt/" + f).removeRecursively();
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

    // Over an existing copy: the old one goes to the user's Trash.
    writeFile(destination + "/old-marker", "old");
    r = train({ m_source, destination });
    QVERIFY2(r.exitCode == 0, qPrintable(r.error));
    QVERIFY(!QFile::exists(destination + "/old-marker"));
    QVERIFY(QFile::exists("/root/.local/share/Trash/files/" + m_name + ".app/old-marker"));
    QFile info("/root/.local/share/Trash/info/" + m_name + ".app.trashinfo");
    QVERIFY(info.open(QIODevice::ReadOnly));
    QVERIFY(info.readAll().contains(("Path=" + destination).toUtf8()));
    QVERIFY(QDir("/opt")
                .entryList({ "." + m_name + "*" }, QDir::AllEntries | QDir::Hidden)
                .isEmpty()); // no staging left
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
    writeFile(m_dir.path() + "/file.app", "x");
    writeFile(m_dir.path() + "/private/Foo.app/Contents/Info.plist", "{}");
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

void TestTrain::sharedFolderThatIsALinkIsNotUsed()
{
    // Planted before the helper ever made the folder: a link to a folder of
    // someone's choosing. The bundle is installed, nothing goes through the
    // link.
    if (QFileInfo::exists(SystemShareGuard::applications()))
        QSKIP("the shared applications folder exists already");
    const QString elsewhere = m_dir.path() + "/elsewhere";
    QDir().mkpath(elsewhere);
    QVERIFY(QFile::link(elsewhere, SystemShareGuard::applications()));
    const auto unlink = qScopeGuard([] { QFile::remove(SystemShareGuard::applications()); });
    m_share->watch(m_id);
    const QString destination = "/opt/" + m_name + "-linked.app";
    const Result r = train({ "--desktop-entry", m_source, destination }, {}, request(m_id));
    QCOMPARE(r.exitCode, 0);
    QVERIFY2(r.error.contains("not registered for all users"), qPrintable(r.error));
    QVERIFY(QFileInfo(destination + "/Contents/Linux/Foo").isExecutable());
    QCOMPARE(listing(elsewhere), QStringList());
}

void TestTrain::registersForAllUsers()
{
    const QString destination = "/opt/" + m_name + "-entry.app";
    const QString renamed = m_id + ".renamed";
    m_share->watch(m_id);
    m_share->watch(renamed);
    Result r = train({ "--desktop-entry", m_source, destination }, {}, request(m_id));
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
    r = train({ "--desktop-entry", m_source, destination }, {}, request(m_id, QByteArray()));
    QVERIFY2(r.exitCode == 0, qPrintable(r.error));
    entry = readFile(entryFile);
    QVERIFY(!entry.contains("Icon="));
    QVERIFY(!QFile::exists(SystemShareGuard::iconFile(m_id)));

    // A new identifier for the same bundle: still one entry for it.
    r = train({ "--desktop-entry", m_source, destination }, {}, request(renamed));
    QVERIFY2(r.exitCode == 0, qPrintable(r.error));
    QStringList naming;
    for (const QString &f :
        QDir(SystemShareGuard::applications()).entryList(QDir::Files | QDir::Hidden | QDir::System))
        if (readFile(SystemShareGuard::applications() + "/" + f)
                .contains(("X-Quillet-Bundle=" + destination + "\n").toUtf8()))
            naming << f;
    QCOMPARE(naming, QStringList { renamed + ".desktop" });

    // Nothing on standard input (an elevation command that does not pass it
    // on): installed, the entry left as it was.
    const QByteArray before = readFile(SystemShareGuard::entryFile(renamed));
    r = train({ "--desktop-entry", m_source, destination });
    QCOMPARE(r.exitCode, 0);
    QVERIFY2(r.error.contains("not registered for all users"), qPrintable(r.error));
    QCOMPARE(readFile(SystemShareGuard::entryFile(renamed)), before);
    QCOMPARE(QDir(SystemShareGuard::applications()).entryList({ ".*" }, QDir::Files | QDir::Hidden),
        QStringList()); // no temporary files left
}

void TestTrain::registrationFollowsNoLinks()
{
    // Links planted at the entry's and the icon's names are replaced, not
    // written through.
    const QString planted = m_dir.path() + "/planted";
    writeFile(planted, "planted");
    QDir().mkpath(QFileInfo(SystemShareGuard::iconFile(m_id)).path());
    QDir().mkpath(SystemShareGuard::applications());
    m_share->watch(m_id);
    SystemShareGuard::forget(m_id);
    QVERIFY(QFile::link(planted, SystemShareGuard::entryFile(m_id)));
    QVERIFY(QFile::link(planted, SystemShareGuard::iconFile(m_id)));
    const QString destination = "/opt/" + m_name + "-links.app";
    Result r = train({ "--desktop-entry", m_source, destination }, {}, request(m_id));
    QVERIFY2(r.exitCode == 0 && r.error.isEmpty(), qPrintable(r.error));
    QCOMPARE(readFile(planted), QByteArray("planted"));
    QVERIFY(!QFileInfo(SystemShareGuard::entryFile(m_id)).isSymLink());
    QVERIFY(!QFileInfo(SystemShareGuard::iconFile(m_id)).isSymLink());
    QCOMPARE(readFile(SystemShareGuard::iconFile(m_id)), fakePng());

    // A program that is a link in the bundle could lead anywhere: the
    // bundle is installed, but not registered.
    SystemShareGuard::forget(m_id);
    r = train({ "--desktop-entry", m_source, destination }, {},
        request(m_id, fakePng(), "Contents/foo-link"));
    QCOMPARE(r.exitCode, 0);
    QVERIFY2(r.error.contains("not registered for all users"), qPrintable(r.error));
    QVERIFY(!QFile::exists(SystemShareGuard::entryFile(m_id)));
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
    QTest::newRow("empty identifier") << request("");
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
    const QString destination = "/opt/" + m_name + "-hostile.app";
    const QStringList optBefore = listing("/opt");
    const QStringList sharedBefore = listing(SystemShareGuard::applications());
    const Result r = train({ "--desktop-entry", m_source, destination }, {}, input);
    QVERIFY2(r.exitCode != 0, qPrintable(r.error));
    QVERIFY2(r.error.startsWith("train: "), qPrintable(r.error));
    QCOMPARE(listing("/opt"), optBefore);
    QCOMPARE(listing(SystemShareGuard::applications()), sharedBefore);
}

void TestTrain::userFolderIsNotRegisteredForAllUsers()
{
    if (!m_user->isValid())
        QSKIP(qPrintable("no test user: " + m_user->error));
    const QString applications = m_user->home + "/Applications";
    QDir().mkpath(applications);
    QVERIFY(::chown(QFile::encodeName(applications).constData(), m_user->uid, m_user->gid) == 0);
    m_share->watch(m_id);
    SystemShareGuard::forget(m_id);
    const Result r = train({ "--desktop-entry", m_source, applications + "/Foo.app" },
        { { "PKEXEC_UID", QString::number(m_user->uid) } }, request(m_id));
    QVERIFY2(r.exitCode == 0 && r.error.isEmpty(), qPrintable(r.error));
    QVERIFY(QFileInfo(applications + "/Foo.app/Contents/Linux/Foo").isExecutable());
    QVERIFY(!QFile::exists(SystemShareGuard::entryFile(m_id)));
}

void TestTrain::oldCopyInTrashBelongsToUser()
{
    if (!m_user->isValid())
        QSKIP(qPrintable("no test user: " + m_user->error));
    const QString destination = "/opt/" + m_name + "-owned.app";
    // The old copy, root's: folders, files, a set-user-ID program, a link
    // to a root file, and a file with a second name outside the copy.
    const QString rootFile = m_dir.path() + "/root-file";
    writeFile(rootFile, "root");
    writeFile(destination + "/Contents/Resources/old-marker", "old");
    writeFile(destination + "/Contents/Linux/tool", "#!/bin/sh\n");
    QVERIFY(
        ::chmod(QFile::encodeName(destination + "/Contents/Linux/tool").constData(), 04755) == 0);
    QVERIFY(QFile::link(rootFile, destination + "/Contents/root-link"));
    QVERIFY(::link(QFile::encodeName(rootFile).constData(),
                QFile::encodeName(destination + "/Contents/second-name").constData())
        == 0);

    const Result r
        = train({ m_source, destination }, { { "PKEXEC_UID", QString::number(m_user->uid) } });
    QCOMPARE(r.exitCode, 0);
    // Said because of the file with a second name, which stays root's.
    QCOMPARE(r.error, "train: the old copy is in the Trash, but not all of it is the user's\n");
    const QString trash = m_user->home + "/.local/share/Trash";
    const QString trashed = trash + "/files/" + m_name + "-owned.app";
    QCOMPARE(readFile(trashed + "/Contents/Resources/old-marker"), QByteArray("old"));
    QMap<QString, uint> owner = owners(trashed);
    QCOMPARE(owner.take("Contents/second-name"), 0u); // its other name is root's
    QCOMPARE(owner.size(), 7);
    for (auto it = owner.cbegin(); it != owner.cend(); ++it)
        QVERIFY2(it.value() == m_user->uid, qPrintable(it.key()));
    QCOMPARE(QFileInfo(rootFile).ownerId(), 0u); // the link's target is not touched
    struct stat st;
    QVERIFY(::stat(QFile::encodeName(trashed + "/Contents/Linux/tool").constData(), &st) == 0);
    QVERIFY(!(st.st_mode & S_ISUID));
    for (const QString &item : { trash, trash + "/files", trash + "/info",
             trash + "/info/" + m_name + "-owned.app.trashinfo" })
        QCOMPARE(QFileInfo(item).ownerId(), m_user->uid);
}

void TestTrain::oldCopyOnAnotherFileSystem()
{
    // The user's home on a file system of its own: the old copy in /opt
    // goes to the trash of the volume that holds /opt, and only when that
    // trash is the user's.
    if (!m_user->isValid())
        QSKIP(qPrintable("no test user: " + m_user->error));
    const QString home = m_user->home;
    if (::mount("quillet-test", QFile::encodeName(home).constData(), "tmpfs", 0, "mode=0755") != 0)
        QSKIP(qPrintable(QString("cannot mount a file system here: ") + strerror(errno)));
    const auto unmount
        = qScopeGuard([&] { ::umount2(QFile::encodeName(home).constData(), MNT_DETACH); });
    QVERIFY(::chown(QFile::encodeName(home).constData(), m_user->uid, m_user->gid) == 0);
    const QString top = QStorageInfo("/opt").rootPath();
    const QString volumeTrash
        = (top == "/" ? QString() : top) + "/.Trash-" + QString::number(m_user->uid);
    const auto removeTrash = qScopeGuard([&] { QDir(volumeTrash).removeRecursively(); });
    const QString destination = "/opt/" + m_name + "-volume.app";
    writeFile(destination + "/Contents/Resources/old-marker", "old");
    const QMap<QString, QString> env { { "PKEXEC_UID", QString::number(m_user->uid) } };

    // A trash folder that is not the user's: refused, the old copy stays.
    QDir().mkpath(volumeTrash);
    Result r = train({ m_source, destination }, env);
    QCOMPARE(r.exitCode, 4);
    QCOMPARE(readFile(destination + "/Contents/Resources/old-marker"), QByteArray("old"));
    QCOMPARE(QDir("/opt").entryList({ "." + m_name + "*" }, QDir::AllEntries | QDir::Hidden),
        QStringList());
    QCOMPARE(listing(volumeTrash), QStringList());

    QVERIFY(QDir(volumeTrash).removeRecursively());
    r = train({ m_source, destination }, env);
    QVERIFY2(r.exitCode == 0 && r.error.isEmpty(), qPrintable(r.error));
    const QString trashed = volumeTrash + "/files/" + m_name + "-volume.app";
    QCOMPARE(readFile(trashed + "/Contents/Resources/old-marker"), QByteArray("old"));
    for (const uint owner : owners(volumeTrash))
        QCOMPARE(owner, m_user->uid);
    const QString relative = destination.mid(top == "/" ? 1 : top.size() + 1);
    QVERIFY(readFile(volumeTrash + "/info/" + m_name + "-volume.app.trashinfo")
                .contains(("\nPath=" + relative + "\n").toUtf8()));
    QVERIFY(!QFile::exists(home + "/.local/share/Trash"));
    QVERIFY(QFileInfo(destination + "/Contents/Linux/Foo").isExecutable());
}

QTEST_GUILESS_MAIN(TestTrain)
#include "tst_train.moc"

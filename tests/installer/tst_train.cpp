// SPDX-FileCopyrightText: 2026 Quillet developers
// SPDX-License-Identifier: MIT
//
// The privileged helper, run as root as pkexec runs it: what it installs,
// and what it refuses without writing anything.
#include <QDir>
#include <QDirIterator>
#include <QFile>
#include <QProcess>
#include <QTemporaryDir>
#include <QTest>
#include <QUuid>
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

private:
    QTemporaryDir m_dir;
    QString m_source;
    QString m_name;
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
}

void TestTrain::cleanupTestCase()
{
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

    // Over an existing copy: the old one goes to the user's Trash.
    write(destination + "/old-marker", "old");
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

QTEST_GUILESS_MAIN(TestTrain)
#include "tst_train.moc"

// SPDX-FileCopyrightText: 2026 Quillet developers
// SPDX-License-Identifier: MIT
//
// Faults during the copy into place. Whatever happens, the destination holds
// the old bundle or the complete new one, and the old one is never lost: it
// is at the destination, in the Trash, or at a staging name the next run
// puts in the Trash.
#include "common/testfiles.h"
#include "installer/productcopy.h"

#include <QCryptographicHash>
#include <QDir>
#include <QDirIterator>
#include <QProcess>
#include <QTemporaryDir>
#include <QTest>
#include <QThread>
#include <csignal>
#include <sys/mount.h>
#include <unistd.h>

namespace {

// Relative path -> content digest of every file below a folder.
QMap<QString, QByteArray> tree(const QString &root)
{
    QMap<QString, QByteArray> out;
    QDirIterator it(
        root, QDir::Files | QDir::Hidden | QDir::NoDotAndDotDot, QDirIterator::Subdirectories);
    while (it.hasNext()) {
        const QString path = it.next();
        QFile f(path);
        f.open(QIODevice::ReadOnly);
        out.insert(
            path.mid(root.size()), QCryptographicHash::hash(f.readAll(), QCryptographicHash::Md5));
    }
    return out;
}

struct Bundles
{
    QMap<QString, QByteArray> oldTree, newTree;
};

// A new bundle of many files in `source`, an old one at `destination`.
Bundles prepare(const QString &source, const QString &destination, int files, int size)
{
    for (int i = 0; i < files; ++i)
        writeFile(QString("%1/Contents/Resources/part%2.bin").arg(source).arg(i),
            QByteArray(size, char('a' + i % 26)));
    writeFile(source + "/Contents/Info.plist", "{ CFBundleSignature = WXYZ; }");
    writeFile(destination + "/Contents/Resources/old-marker", "the user's old copy");
    writeFile(destination + "/Contents/Info.plist", "{ old = yes; }");
    return { tree(destination), tree(source) };
}

// The old copy is somewhere: at the destination, a staging name or the Trash.
bool oldCopyKept(const QString &destination, const Bundles &b)
{
    if (tree(destination) == b.oldTree)
        return true;
    const QFileInfo info(destination);
    for (const QString &name :
        QDir(info.path())
            .entryList({ "." + info.fileName() + ".quillet-*" }, QDir::Dirs | QDir::Hidden))
        if (tree(info.path() + "/" + name) == b.oldTree)
            return true;
    const QString trash = QDir::homePath() + "/.local/share/Trash/files";
    for (const QString &name : QDir(trash).entryList(QDir::Dirs | QDir::NoDotAndDotDot))
        if (tree(trash + "/" + name) == b.oldTree)
            return true;
    return false;
}

bool mountTmpfs(const QString &where, const QByteArray &options)
{
    QDir().mkpath(where);
    return ::mount("tmpfs", QFile::encodeName(where).constData(), "tmpfs", 0, options.constData())
        == 0;
}
} // namespace

class TestProductCopyFaults : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void init() { QDir(QDir::homePath() + "/.local/share/Trash").removeRecursively(); }
    void destinationRefusesWrites_data();
    void destinationRefusesWrites();
    void sourceRemovedDuringCopy();
    void staleStagingCopyGoesToTrash();
    void killedAtAnyMoment_data();
    void killedAtAnyMoment();
};

void TestProductCopyFaults::destinationRefusesWrites_data()
{
    QTest::addColumn<bool>("readOnly");
    QTest::addColumn<int>("files"); // of 64 KiB, on a 1 MiB volume
    QTest::newRow("fills up during the copy") << false << 40;
    QTest::newRow("read-only") << true << 3;
}

void TestProductCopyFaults::destinationRefusesWrites()
{
    QFETCH(bool, readOnly);
    QFETCH(int, files);
    QTemporaryDir dir;
    const QString volume = dir.path() + "/small";
    if (!mountTmpfs(volume, "size=1m"))
        QSKIP("mounting a tmpfs needs root");
    const auto unmount
        = qScopeGuard([&] { ::umount2(QFile::encodeName(volume).constData(), MNT_DETACH); });
    const QString destination = volume + "/Foo.app";
    const Bundles b = prepare(dir.path() + "/Foo.app", destination, files, 64 * 1024);
    if (readOnly)
        QCOMPARE(::mount("tmpfs", QFile::encodeName(volume).constData(), "tmpfs",
                     MS_REMOUNT | MS_RDONLY, nullptr),
            0);
    QCOMPARE(ProductCopy::installProductCopy(dir.path() + "/Foo.app", destination, QString()),
        int(ProductCopy::CopyFailed));
    QCOMPARE(tree(destination), b.oldTree);
    QCOMPARE(QDir(volume).entryList(QDir::AllEntries | QDir::Hidden | QDir::NoDotAndDotDot),
        QStringList { "Foo.app" });
}

void TestProductCopyFaults::sourceRemovedDuringCopy()
{
    QTemporaryDir dir;
    const QString source = dir.path() + "/Volume/Foo.app";
    const QString destination = dir.path() + "/Applications/Foo.app";
    const Bundles b = prepare(source, destination, 300, 256 * 1024);
    QThread *remover = QThread::create([&] {
        QThread::msleep(30);
        QDir(source).removeRecursively();
    });
    remover->start();
    const int status = ProductCopy::installProductCopy(source, destination, QString());
    remover->wait();
    delete remover;
    // Either the copy was complete before the source went, or it failed.
    QVERIFY(status == ProductCopy::Copied || status == ProductCopy::CopyFailed);
    QVERIFY(tree(destination) == (status == ProductCopy::Copied ? b.newTree : b.oldTree));
    QVERIFY(oldCopyKept(destination, b));
}

void TestProductCopyFaults::staleStagingCopyGoesToTrash()
{
    // A run killed after the exchange leaves the old copy at the staging
    // name: the next run keeps it, in the Trash, under its own name.
    QTemporaryDir dir;
    const QString source = dir.path() + "/Volume/Foo.app";
    const QString destination = dir.path() + "/Applications/Foo.app";
    const QString stale = dir.path() + "/Applications/.Foo.app.quillet-999999";
    const Bundles b = prepare(source, stale, 3, 1024);
    QCOMPARE(
        ProductCopy::installProductCopy(source, destination, QString()), int(ProductCopy::Copied));
    QVERIFY(!QFile::exists(stale));
    QCOMPARE(tree(QDir::homePath() + "/.local/share/Trash/files/Foo.app"), b.oldTree);
    QCOMPARE(tree(destination), b.newTree);
}

void TestProductCopyFaults::killedAtAnyMoment_data()
{
    QTest::addColumn<int>("delayMs");
    for (int delay : { 0, 5, 20, 80, 400 })
        QTest::addRow("after %d ms", delay) << delay;
}

void TestProductCopyFaults::killedAtAnyMoment()
{
    QFETCH(int, delayMs);
    QTemporaryDir dir;
    const QString source = dir.path() + "/Volume/Foo.app";
    const QString destination = dir.path() + "/Applications/Foo.app";
    const Bundles b = prepare(source, destination, 200, 128 * 1024);
    QProcess worker;
    worker.start(
        QStringLiteral(QUILLET_BINARY_DIR "/tests/helpers/copyworker"), { source, destination });
    QVERIFY(worker.waitForStarted());
    QThread::msleep(delayMs);
    ::kill(worker.processId(), SIGKILL);
    worker.waitForFinished();
    const QMap<QString, QByteArray> now = tree(destination);
    QVERIFY2(now == b.oldTree || now == b.newTree,
        "the destination holds neither the old nor the complete new bundle");
    QVERIFY(oldCopyKept(destination, b));
    // The next run finishes the job and keeps the old copy in the Trash.
    QCOMPARE(
        ProductCopy::installProductCopy(source, destination, QString()), int(ProductCopy::Copied));
    QCOMPARE(tree(destination), b.newTree);
    QVERIFY(oldCopyKept(destination, b));
    QVERIFY(QDir(dir.path() + "/Applications")
                .entryList(QDir::AllEntries | QDir::Hidden | QDir::NoDotAndDotDot)
        == QStringList { "Foo.app" });
}

QTEST_GUILESS_MAIN(TestProductCopyFaults)
#include "tst_productcopyfaults.moc"

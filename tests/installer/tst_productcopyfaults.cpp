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
#include <QDirIterator>
#include <QProcess>
#include <QScopeGuard>
#include <QTemporaryDir>
#include <QThread>
#include <csignal>
#include <sys/mount.h>

namespace {
constexpr auto kAll = QDir::AllEntries | QDir::Hidden | QDir::NoDotAndDotDot;

// Relative path -> content digest of every file below a folder.
QMap<QString, QByteArray> tree(const QString &root)
{
    QMap<QString, QByteArray> out;
    for (QDirIterator it(root, QDir::Files | QDir::Hidden, QDirIterator::Subdirectories);
         it.hasNext();) {
        const QString path = it.next();
        out.insert(path.mid(root.size()),
            QCryptographicHash::hash(readFile(path), QCryptographicHash::Md5));
    }
    return out;
}

// A new bundle of many files at Volume/Foo.app, an old one at
// Applications/Foo.app.
struct Bundles
{
    QTemporaryDir dir;
    QString source = dir.path() + "/Volume/Foo.app";
    QString destination = dir.path() + "/Applications/Foo.app";
    QMap<QString, QByteArray> oldTree, newTree;

    Bundles(int files, int size)
    {
        for (int i = 0; i < files; ++i)
            writeFile(QString("%1/Contents/Resources/part%2.bin").arg(source).arg(i),
                QByteArray(size, char('a' + i % 26)));
        newTree = tree(source);
        makeOldCopy(destination);
    }
    void makeOldCopy(const QString &at)
    {
        writeFile(at + "/Contents/Resources/old-marker", "the user's old copy");
        writeFile(at + "/Contents/Info.plist", "{ old = yes; }");
        oldTree = tree(at);
    }

    int install() const { return ProductCopy::installProductCopy(source, destination, QString()); }

    // The old copy is somewhere: at the destination, a staging name or the
    // Trash.
    bool oldCopyKept() const
    {
        const QFileInfo info(destination);
        QStringList places { destination };
        for (const QString &name :
            QDir(info.path()).entryList({ "." + info.fileName() + ".quillet-*" }, kAll))
            places << info.path() + "/" + name;
        const QString trash = QDir::homePath() + "/.local/share/Trash/files/";
        for (const QString &name : QDir(trash).entryList(kAll))
            places << trash + name;
        return std::any_of(
            places.cbegin(), places.cend(), [&](const QString &p) { return tree(p) == oldTree; });
    }
};
} // namespace

class TestProductCopyFaults : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void init() { QDir(QDir::homePath() + "/.local/share/Trash").removeRecursively(); }

    void destinationRefusesWrites_data()
    {
        QTest::addColumn<bool>("readOnly");
        QTest::addColumn<int>("files"); // of 64 KiB, on a 1 MiB volume
        QTest::newRow("fills up during the copy") << false << 40;
        QTest::newRow("read-only") << true << 3;
    }

    void destinationRefusesWrites()
    {
        QFETCH(bool, readOnly);
        QFETCH(int, files);
        Bundles b(files, 64 * 1024);
        const QByteArray volume = QFile::encodeName(b.dir.path() + "/small");
        QDir().mkpath(volume);
        if (::mount("tmpfs", volume.constData(), "tmpfs", 0, "size=1m") != 0)
            QSKIP("mounting a tmpfs needs root");
        const auto unmount = qScopeGuard([&] { ::umount2(volume.constData(), MNT_DETACH); });
        b.makeOldCopy(b.destination = volume + "/Foo.app");
        if (readOnly)
            QCOMPARE(
                ::mount("tmpfs", volume.constData(), "tmpfs", MS_REMOUNT | MS_RDONLY, nullptr), 0);
        QCOMPARE(b.install(), int(ProductCopy::CopyFailed));
        QCOMPARE(tree(b.destination), b.oldTree);
        QCOMPARE(QDir(volume).entryList(kAll), QStringList { "Foo.app" });
    }

    void sourceRemovedDuringCopy()
    {
        Bundles b(300, 256 * 1024);
        QThread *remover = QThread::create([&] {
            QThread::msleep(30);
            QDir(b.source).removeRecursively();
        });
        remover->start();
        const int status = b.install();
        remover->wait();
        delete remover;
        // Either the copy was complete before the source went, or it failed.
        QVERIFY(status == ProductCopy::Copied || status == ProductCopy::CopyFailed);
        QVERIFY(tree(b.destination) == (status == ProductCopy::Copied ? b.newTree : b.oldTree));
        QVERIFY(b.oldCopyKept());
    }

    void staleStagingCopyGoesToTrash()
    {
        // A run killed after the exchange leaves the old copy at the staging
        // name: the next run keeps it, in the Trash, under its own name.
        Bundles b(3, 1024);
        const QString stale = b.dir.path() + "/Applications/.Foo.app.quillet-999999";
        QVERIFY(QFile::rename(b.destination, stale));
        QCOMPARE(b.install(), int(ProductCopy::Copied));
        QVERIFY(!QFile::exists(stale));
        QCOMPARE(tree(QDir::homePath() + "/.local/share/Trash/files/Foo.app"), b.oldTree);
        QCOMPARE(tree(b.destination), b.newTree);
    }

    void killedAtAnyMoment_data()
    {
        QTest::addColumn<int>("delayMs");
        for (int delay : { 0, 5, 20, 80, 400 })
            QTest::addRow("after %d ms", delay) << delay;
    }

    void killedAtAnyMoment()
    {
        QFETCH(int, delayMs);
        Bundles b(200, 128 * 1024);
        QProcess worker;
        worker.start(QUILLET_BINARY_DIR "/tests/helpers/copyworker", { b.source, b.destination });
        QVERIFY(worker.waitForStarted());
        QThread::msleep(delayMs);
        ::kill(worker.processId(), SIGKILL);
        worker.waitForFinished();
        const QMap<QString, QByteArray> now = tree(b.destination);
        QVERIFY2(now == b.oldTree || now == b.newTree,
            "the destination holds neither the old nor the complete new bundle");
        QVERIFY(b.oldCopyKept());
        // The next run finishes the job and keeps the old copy in the Trash.
        QCOMPARE(b.install(), int(ProductCopy::Copied));
        QCOMPARE(tree(b.destination), b.newTree);
        QVERIFY(b.oldCopyKept());
        QCOMPARE(QDir(b.dir.path() + "/Applications").entryList(kAll), QStringList { "Foo.app" });
    }
};

QTEST_GUILESS_MAIN(TestProductCopyFaults)
#include "tst_productcopyfaults.moc"

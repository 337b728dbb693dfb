// SPDX-FileCopyrightText: 2026 Quillet developers
// SPDX-License-Identifier: MIT
#include "productcopy.h"

#include "utilities/vxlog.h"

#include <QCoreApplication>
#include <QDateTime>
#include <QDir>
#include <QDirIterator>
#include <QFile>
#include <QFileInfo>
#include <QStandardPaths>
#include <QUrl>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/time.h>
#include <unistd.h>

#ifndef RENAME_NOREPLACE
#define RENAME_NOREPLACE (1 << 0)
#endif
#ifndef RENAME_EXCHANGE
#define RENAME_EXCHANGE (1 << 1)
#endif

namespace {

QByteArray native(const QString &path)
{
    return QFile::encodeName(path);
}

int renameAt2(const QString &from, const QString &to, unsigned flags)
{
    return int(::syscall(SYS_renameat2, AT_FDCWD, native(from).constData(), AT_FDCWD,
        native(to).constData(), flags));
}

bool exists(const QString &path)
{
    struct stat st;
    return ::lstat(native(path).constData(), &st) == 0;
}

bool copyFile(const QString &from, const QString &to, const struct stat &st)
{
    const int in = ::open(native(from).constData(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW);
    if (in < 0)
        return false;
    const int out = ::open(
        native(to).constData(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC | O_NOFOLLOW, 0600);
    if (out < 0) {
        ::close(in);
        return false;
    }
    bool ok = true;
    off_t left = st.st_size;
    while (left > 0) {
        // In-kernel copy; reflinks where the file system has them.
        const ssize_t n = ::copy_file_range(
            in, nullptr, out, nullptr, size_t(std::min<off_t>(left, 1 << 30)), 0);
        if (n > 0) {
            left -= n;
            continue;
        }
        if (n < 0
            && (errno == EXDEV || errno == ENOSYS || errno == EINVAL || errno == EOPNOTSUPP)) {
            char buffer[1 << 16];
            ssize_t r;
            while ((r = ::read(in, buffer, sizeof buffer)) > 0) {
                for (ssize_t done = 0; done < r;) {
                    const ssize_t w = ::write(out, buffer + done, size_t(r - done));
                    if (w <= 0) {
                        ok = false;
                        break;
                    }
                    done += w;
                }
                if (!ok)
                    break;
            }
            ok = ok && r == 0;
            break;
        }
        ok = n == 0 && left == 0; // the source shrank or an error
        break;
    }
    ok = ok && ::fchmod(out, st.st_mode & 07777) == 0;
    const struct timespec times[2] = { st.st_atim, st.st_mtim };
    ::futimens(out, times);
    ok = (::close(out) == 0) && ok;
    ::close(in);
    if (!ok)
        ::unlink(native(to).constData());
    return ok;
}

bool copyEntry(const QString &from, const QString &to, QString *error, int depth)
{
    struct stat st;
    if (::lstat(native(from).constData(), &st) != 0 || depth > 256) {
        *error = QStringLiteral("cannot read %1").arg(from);
        return false;
    }
    if (S_ISLNK(st.st_mode)) {
        char target[4096];
        const ssize_t n = ::readlink(native(from).constData(), target, sizeof target - 1);
        if (n < 0 || ::symlink(QByteArray(target, n).constData(), native(to).constData()) != 0) {
            *error = QStringLiteral("cannot copy the link %1").arg(from);
            return false;
        }
        return true;
    }
    if (S_ISDIR(st.st_mode)) {
        if (::mkdir(native(to).constData(), 0700) != 0) {
            *error = QStringLiteral("cannot make %1").arg(to);
            return false;
        }
        QDir dir(from);
        const QStringList names
            = dir.entryList(QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot);
        for (const QString &name : names)
            if (!copyEntry(
                    from + QLatin1Char('/') + name, to + QLatin1Char('/') + name, error, depth + 1))
                return false;
        ::chmod(native(to).constData(), st.st_mode & 07777);
        const struct timespec times[2] = { st.st_atim, st.st_mtim };
        ::utimensat(AT_FDCWD, native(to).constData(), times, AT_SYMLINK_NOFOLLOW);
        return true;
    }
    if (S_ISREG(st.st_mode)) {
        if (!copyFile(from, to, st)) {
            *error = QStringLiteral("cannot copy %1: %2")
                         .arg(from, QString::fromLocal8Bit(strerror(errno)));
            return false;
        }
        return true;
    }
    return true; // sockets, devices and pipes are not part of a product
}

// Our staging names: ".Name.app.quillet-<pid>" beside the destination.
QString stagingPrefix(const QString &destination)
{
    const QFileInfo info(destination);
    return info.path() + QLatin1String("/.") + info.fileName() + QLatin1String(".quillet-");
}

// Staging copies of runs that ended without finishing (their process is
// gone) go to the Trash: after an exchange such a copy can be the user's old
// bundle, so it is never deleted.
void trashLeftovers(const QString &destination)
{
    const QString prefix = stagingPrefix(destination);
    const QFileInfo info(prefix);
    const QStringList names = QDir(info.path())
                                  .entryList({ info.fileName() + QLatin1Char('*') },
                                      QDir::AllEntries | QDir::Hidden | QDir::System);
    for (const QString &name : names) {
        const QString path = info.path() + QLatin1Char('/') + name;
        bool ok = false;
        const qint64 pid = name.mid(info.fileName().size()).toLongLong(&ok);
        if (!ok
            || (pid > 0 && ::kill(pid_t(pid), 0) == 0 && pid != QCoreApplication::applicationPid()))
            continue; // another run is under way
        if (Trash::moveToTrash(path, destination).isEmpty())
            vxLog(QStringLiteral("ERROR -- Could not trash '%@'"), path);
    }
}

void removeTree(const QString &path)
{
    QFileInfo info(path);
    if (info.isSymLink() || !info.isDir())
        QFile::remove(path);
    else
        QDir(path).removeRecursively();
}

} // namespace

QString ProductCopy::stagingPath(const QString &destination)
{
    return stagingPrefix(destination) + QString::number(QCoreApplication::applicationPid());
}

bool ProductCopy::copyTree(const QString &from, const QString &to, QString *error)
{
    QString reason;
    if (exists(to)) {
        reason = QStringLiteral("%1 exists").arg(to);
    } else if (copyEntry(from, to, &reason, 0)) {
        return true;
    } else {
        removeTree(to); // our own partial copy
    }
    if (error)
        *error = reason;
    return false;
}

int ProductCopy::installProductCopy(
    const QString &source, const QString &destination, const QString &wrapper)
{
    if (!wrapper.isEmpty()) {
        const QString target = QFileInfo(destination).path();
        if (QFileInfo::exists(target)) {
            const QStringList items = QDir(wrapper).entryList(
                QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot);
            for (const QString &item : items) {
                const QString to = target + QLatin1Char('/') + item;
                if (item == QFileInfo(source).fileName())
                    continue; // the product itself is put in place below
                if (exists(to) && Trash::moveToTrash(to).isEmpty())
                    vxLog(QStringLiteral("ERROR -- Could not delete %@"), to);
                if (!copyTree(wrapper + QLatin1Char('/') + item, to)) {
                    vxLog(QStringLiteral("ERROR -- Could not copy auxiliary item to %@"), to);
                    return CopyFailed;
                }
            }
        } else {
            QString error;
            // The wrapper without the product: that goes in through staging.
            if (!copyTree(wrapper, target, &error)) {
                vxLog(QStringLiteral("ERROR -- Could not copy wrapper to %@"), target);
                return CopyFailed;
            }
            const QString inside = target + QLatin1Char('/') + QFileInfo(destination).fileName();
            if (exists(inside))
                removeTree(inside); // just copied with the wrapper; replaced below
        }
    }

    trashLeftovers(destination);
    const QString staging = stagingPath(destination);
    QString error;
    if (!copyTree(source, staging, &error)) {
        vxLog(QStringLiteral("ERROR -- Could not copy myself to %@"), destination);
        return CopyFailed;
    }
    if (!exists(destination)) {
        if (renameAt2(staging, destination, RENAME_NOREPLACE) != 0) {
            removeTree(staging);
            vxLog(QStringLiteral("ERROR -- Could not copy myself to %@"), destination);
            return CopyFailed;
        }
        return Copied;
    }
    // The new bundle takes the old one's place in one step; the old one is
    // then at the staging name, and goes to the Trash under its own name.
    if (renameAt2(staging, destination, RENAME_EXCHANGE) != 0) {
        removeTree(staging);
        vxLog(QStringLiteral("ERROR -- Could not trash '%@'"), destination);
        vxLog(QStringLiteral("ERROR -- Could not trash existing %@"), destination);
        return CouldNotTrash;
    }
    if (Trash::moveToTrash(staging, destination).isEmpty()) {
        // Put the old copy back; the new one is ours to remove.
        renameAt2(staging, destination, RENAME_EXCHANGE);
        removeTree(staging);
        vxLog(QStringLiteral("ERROR -- Could not trash '%@'"), destination);
        vxLog(QStringLiteral("ERROR -- Could not trash existing %@"), destination);
        return CouldNotTrash;
    }
    return Copied;
}

namespace {
QString trashInfo(const QString &originalPath, const QString &relativeTo)
{
    QString path = originalPath;
    if (!relativeTo.isEmpty() && path.startsWith(relativeTo + QLatin1Char('/')))
        path = path.mid(relativeTo.size() + 1); // volume trashes hold relative paths
    const QByteArray encoded = QUrl::toPercentEncoding(path, "/");
    return QStringLiteral("[Trash Info]\nPath=%1\nDeletionDate=%2\n")
        .arg(QString::fromLatin1(encoded),
            QDateTime::currentDateTime().toString(QStringLiteral("yyyy-MM-ddTHH:mm:ss")));
}

dev_t deviceOf(const QString &path)
{
    struct stat st;
    return ::lstat(native(path).constData(), &st) == 0 ? st.st_dev : dev_t(-1);
}

// The top directory of the mount holding the path.
QString topDirectory(const QString &path)
{
    const dev_t device = deviceOf(path);
    QString top = QFileInfo(path).absolutePath();
    while (top != QLatin1String("/")) {
        const QString parent = QFileInfo(top).path();
        if (deviceOf(parent) != device)
            break;
        top = parent;
    }
    return top;
}

// Writes the info file first (O_EXCL reserves the name), then renames the
// item into files/ (Trash specification, "Contents of a trash directory").
QString moveInto(const QString &trash, const QString &path, const QString &originalPath,
    const QString &relativeTo)
{
    if (!QDir().mkpath(trash + QLatin1String("/files"))
        || !QDir().mkpath(trash + QLatin1String("/info")))
        return QString();
    ::chmod(native(trash).constData(), 0700);
    const QString base = QFileInfo(originalPath).fileName();
    for (int n = 1; n < 10000; ++n) {
        const QString name = n == 1 ? base : QStringLiteral("%1.%2").arg(base).arg(n);
        const QString info = trash + QLatin1String("/info/") + name + QLatin1String(".trashinfo");
        const int fd
            = ::open(native(info).constData(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
        if (fd < 0) {
            if (errno == EEXIST)
                continue;
            return QString();
        }
        const QByteArray text = trashInfo(originalPath, relativeTo).toUtf8();
        const bool written = ::write(fd, text.constData(), size_t(text.size())) == text.size();
        ::close(fd);
        const QString target = trash + QLatin1String("/files/") + name;
        if (written && !exists(target)
            && ::rename(native(path).constData(), native(target).constData()) == 0)
            return target;
        ::unlink(native(info).constData());
        return QString();
    }
    return QString();
}
} // namespace

QString Trash::moveToTrash(const QString &path, const QString &originalPath)
{
    const QString original
        = QFileInfo(originalPath.isEmpty() ? path : originalPath).absoluteFilePath();
    if (!exists(path))
        return QString();
    const QString home = QStandardPaths::writableLocation(QStandardPaths::GenericDataLocation)
        + QLatin1String("/Trash");
    QDir().mkpath(QFileInfo(home).path());
    if (deviceOf(QFileInfo(home).path()) == deviceOf(path))
        return moveInto(home, path, original, QString());
    // Another file system: its own $topdir/.Trash-$uid.
    const QString top = topDirectory(path);
    const QString volumeTrash = top + QStringLiteral("/.Trash-%1").arg(::getuid());
    return moveInto(volumeTrash, path, original, top);
}

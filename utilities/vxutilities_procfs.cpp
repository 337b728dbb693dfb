// SPDX-FileCopyrightText: 2026 Quillet developers
// SPDX-License-Identifier: MIT
//
// Launch context and file systems from /proc. The launcher is the parent
// process, or the session's autostart: a program started from an XDG
// autostart entry runs either in the systemd user unit
// "app-<entry>@autostart.service" that systemd-xdg-autostart-generator makes
// (/proc/self/cgroup names it), or as a child of a session manager that
// starts the entries itself. A parent that has ended leaves us with its
// reaper (init or a subreaper) as parent. File-system types come from the
// mount table (/proc/self/mountinfo), matched by device number, as statfs
// on Linux gives only a magic number.
#include "process/vxprocess.h"
#include "vxutilities_p.h"

#include <QFile>
#include <QFileInfo>
#include <QRegularExpression>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <sys/vfs.h>
#include <unistd.h>

namespace {
struct Mount
{
    QString device; // "major:minor"
    QString mountPoint;
    QString type;
};

// The mount point field escapes blanks, tabs, newlines and backslashes in octal.
QString unescape(const QByteArray &field)
{
    QByteArray out;
    for (qsizetype i = 0; i < field.size(); ++i) {
        if (field[i] == '\\' && i + 3 < field.size()) {
            bool ok = false;
            const int c = field.mid(i + 1, 3).toInt(&ok, 8);
            if (ok) {
                out += char(c);
                i += 3;
                continue;
            }
        }
        out += field[i];
    }
    return QString::fromUtf8(out);
}

QList<Mount> mounts()
{
    QList<Mount> list;
    QFile file(VXUtilitiesPlatform::systemRoot() + QStringLiteral("/proc/self/mountinfo"));
    if (!file.open(QIODevice::ReadOnly))
        return list;
    for (const QByteArray &line : file.readAll().split('\n')) {
        const QList<QByteArray> f = line.split(' ');
        const qsizetype dash = f.indexOf("-");
        if (f.size() < 5 || dash < 6 || dash + 1 >= f.size())
            continue;
        list.append({ QString::fromLatin1(f[2]), unescape(f[4]), QString::fromUtf8(f[dash + 1]) });
    }
    return list;
}

bool startedFromAutostart()
{
    const QString root = VXUtilitiesPlatform::systemRoot();
    QFile cgroup(root + QStringLiteral("/proc/self/cgroup"));
    if (cgroup.open(QIODevice::ReadOnly)) {
        static const QRegularExpression unit(QStringLiteral("/app-[^/]+@autostart\\.service$"));
        for (const QByteArray &line : cgroup.readAll().split('\n')) {
            if (unit.match(QString::fromUtf8(line).trimmed()).hasMatch())
                return true;
        }
    }
    static const QStringList managers { "gnome-session-binary", "gnome-session", "ksmserver",
        "xfce4-session", "lxsession", "lxqt-session", "mate-session", "cinnamon-session",
        "budgie-session" };
    const QString parent
        = QFile::symLinkTarget(root + QStringLiteral("/proc/%1/exe").arg(::getppid()));
    return managers.contains(QFileInfo(parent).fileName());
}
} // namespace

QString VXUtilitiesPlatform::launcherSignature()
{
    if (startedFromAutostart())
        return QStringLiteral("lgnw");
    const VXProcessPtr parent = VXProcess::processWithPID(qint32(::getppid()));
    return parent ? parent->signatureString() : QString();
}

QString VXUtilitiesPlatform::mediaVolumeOf(const QString &path)
{
    QString volume;
    for (const Mount &m : mounts()) {
        if (!m.mountPoint.startsWith(QLatin1String("/media/"))
            && !m.mountPoint.startsWith(QLatin1String("/run/media/")))
            continue;
        if ((path == m.mountPoint || path.startsWith(m.mountPoint + QLatin1Char('/')))
            && m.mountPoint.size() > volume.size())
            volume = m.mountPoint;
    }
    return volume;
}

VXUtilitiesPlatform::FileSystemType VXUtilitiesPlatform::fileSystemType(const QString &path)
{
    FileSystemType type;
    const QByteArray native = QFile::encodeName(path);
    struct statfs fs;
    type.result = ::statfs(native.constData(), &fs);
    struct stat st;
    if (type.result != 0 || ::stat(native.constData(), &st) != 0)
        return type;
    const QString device = QStringLiteral("%1:%2").arg(major(st.st_dev)).arg(minor(st.st_dev));
    const QString canonical = QFileInfo(path).canonicalFilePath();
    qsizetype longest = -1;
    for (const Mount &m : mounts()) {
        if (m.device == device) {
            type.name = m.type;
            return type;
        }
        // A btrfs subvolume that is not mounted by itself has a device of
        // its own: the enclosing mount tells its type.
        const bool holds = canonical == m.mountPoint || m.mountPoint == QLatin1String("/")
            || canonical.startsWith(m.mountPoint + QLatin1Char('/'));
        if (holds && m.mountPoint.size() > longest) {
            longest = m.mountPoint.size();
            type.name = m.type;
        }
    }
    return type;
}

bool VXUtilitiesPlatform::traced()
{
    QFile status(systemRoot() + QStringLiteral("/proc/self/status"));
    if (!status.open(QIODevice::ReadOnly))
        return false;
    for (const QByteArray &line : status.readAll().split('\n')) {
        if (line.startsWith("TracerPid:"))
            return line.mid(10).trimmed().toLongLong() != 0;
    }
    return false;
}

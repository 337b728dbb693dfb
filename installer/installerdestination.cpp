// SPDX-FileCopyrightText: 2026 Quillet developers
// SPDX-License-Identifier: MIT
//
// Where the product goes and whether we may write there. Login items are
// the XDG autostart entries (user folder over the system folders, as the
// XDG Autostart specification orders them); an item's path is the bundle
// that its Exec line starts.
#include "installerwincontroller.h"
#include "utilities/vxbundle.h"
#include "utilities/vxlog.h"

#include <QDir>
#include <QFileInfo>
#include <QMap>
#include <QProcessEnvironment>
#include <QRandomGenerator>
#include <QScopeGuard>
#include <QStandardPaths>
#include <cstdlib>
#include <fcntl.h>
#include <glib.h>
#include <unistd.h>

namespace {
QString g_systemApplications = QStringLiteral("/opt");
QString g_userApplications; // empty: ~/Applications

QString userApplicationsFolder()
{
    return g_userApplications.isEmpty() ? QDir::homePath() + QLatin1String("/Applications")
                                        : g_userApplications;
}

// The program an autostart entry starts, or null when the entry is switched
// off or its program cannot be found. GLib reads the file (string escapes of
// the Desktop Entry Specification) and splits Exec as a shell would, which is
// how "The Exec key" quotes arguments; a literal '%' is written "%%".
QString autostartProgram(const QString &file)
{
    GKeyFile *entry = g_key_file_new();
    const auto release = qScopeGuard([entry] { g_key_file_free(entry); });
    if (!g_key_file_load_from_file(
            entry, QFile::encodeName(file).constData(), G_KEY_FILE_NONE, nullptr))
        return QString();
    const char *group = G_KEY_FILE_DESKTOP_GROUP;
    auto isTrue = [&](const char *key) {
        return g_key_file_get_boolean(entry, group, key, nullptr) == TRUE;
    };
    auto isFalse = [&](const char *key) {
        GError *error = nullptr;
        const gboolean on = g_key_file_get_boolean(entry, group, key, &error);
        if (error)
            g_error_free(error);
        return !error && !on;
    };
    // GNOME's switch in its autostart settings keeps the file and writes this.
    if (isTrue(G_KEY_FILE_DESKTOP_KEY_HIDDEN) || isFalse("X-GNOME-Autostart-enabled"))
        return QString();
    gchar *exec = g_key_file_get_string(entry, group, G_KEY_FILE_DESKTOP_KEY_EXEC, nullptr);
    if (!exec)
        return QString();
    gchar **argv = nullptr;
    const bool split = g_shell_parse_argv(exec, nullptr, &argv, nullptr) && argv && argv[0];
    QString program = split ? QString::fromUtf8(argv[0]) : QString();
    g_strfreev(argv);
    g_free(exec);
    program.replace(QLatin1String("%%"), QLatin1String("%"));
    if (program.isEmpty())
        return QString();
    if (!program.contains(QLatin1Char('/')))
        program = QStandardPaths::findExecutable(program);
    // Items that no longer resolve are skipped.
    if (program.isEmpty() || !QFileInfo(program).isFile())
        return QString();
    return program;
}

// XDG autostart entries in effect (XDG Autostart Specification): an entry
// in a more important folder hides the entries of the same file name in the
// others, also when it is itself switched off.
QStringList loginItemPaths()
{
    QStringList folders;
    const QString configHome
        = QStandardPaths::writableLocation(QStandardPaths::GenericConfigLocation);
    folders << configHome + QLatin1String("/autostart");
    QString dirs
        = QProcessEnvironment::systemEnvironment().value(QStringLiteral("XDG_CONFIG_DIRS"));
    if (dirs.isEmpty())
        dirs = QStringLiteral("/etc/xdg");
    for (const QString &d : dirs.split(QLatin1Char(':'), Qt::SkipEmptyParts))
        folders << d + QLatin1String("/autostart");

    QMap<QString, QString> entries; // file name -> path, sorted by file name
    for (const QString &folder : std::as_const(folders)) {
        // A suffix test, not a name filter: the filter compiles a regular
        // expression, at start-up.
        const QFileInfoList files = QDir(folder).entryInfoList(QDir::Files);
        for (const QFileInfo &f : files)
            if (f.fileName().endsWith(QLatin1String(".desktop")) && !entries.contains(f.fileName()))
                entries.insert(f.fileName(), f.absoluteFilePath());
    }
    QStringList paths;
    for (const QString &file : std::as_const(entries)) {
        const QString program = autostartProgram(file);
        if (program.isNull())
            continue;
        const QString bundle = VXBundle::enclosingBundlePath(program);
        paths << (bundle.isEmpty() ? program : bundle);
    }
    return paths;
}
} // namespace

void InstallerWinController::setApplicationsFolders(const QString &system, const QString &user)
{
    g_systemApplications = system.isEmpty() ? QStringLiteral("/opt") : system;
    g_userApplications = user;
}

bool InstallerWinController::canWriteToFile(const QString &path) const
{
    const int fd = ::open(QFile::encodeName(path).constData(), O_RDWR | O_CLOEXEC);
    if (fd < 0)
        return false;
    ::close(fd);
    return true;
}

bool InstallerWinController::canWriteToDirectory(const QString &path) const
{
    // The first name comes from random(), retries from rand(): intended.
    QString probe
        = path + QLatin1Char('/') + vxFormat(QStringLiteral("temp-%X"), quint32(::random()));
    while (QFileInfo::exists(probe))
        probe = path + QLatin1Char('/') + vxFormat(QStringLiteral("temp-%X"), quint32(::rand()));
    const QByteArray native = QFile::encodeName(probe);
    const int fd = ::open(native.constData(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, 0644);
    if (fd < 0)
        return false;
    ::close(fd);
    ::unlink(native.constData());
    return true;
}

bool InstallerWinController::canWriteToFileOrDirectory(const QString &path) const
{
    const QByteArray native = QFile::encodeName(path);
    return QFileInfo::exists(path) && ::access(native.constData(), W_OK) == 0;
}

bool InstallerWinController::canWriteToPath(const QString &path) const
{
    if (QFileInfo::exists(path) && !canWriteToFileOrDirectory(path)) {
        vxLog(QStringLiteral("Cannot write to item %@"), path);
        return false;
    }
    QString folder = QFileInfo(path).path();
    while (folder.size() >= 2 && !QFileInfo::exists(folder))
        folder = QFileInfo(folder).path();
    if (canWriteToFileOrDirectory(folder))
        return true;
    vxLog(QStringLiteral("Cannot write to folder %@"), folder);
    return false;
}

bool InstallerWinController::isInUnsupportedFolder(const QString &path) const
{
    if (path.isNull())
        return false;
    if (path.contains(QLatin1String("/build")) && path.contains(QLatin1String("/qzv/")))
        return true;
    // Mounted installer volumes: /Volumes, and on Linux /media and /run/media.
    const bool onVolume
        = path.contains(QLatin1String("/Volumes/")) || path.contains(QLatin1String("/media/"));
    if (onVolume && path.contains(QLatin1String("-Install")))
        return true;
    if (path.contains(QLatin1String("/Trash/")) || path.contains(QLatin1String("/.Trash/")))
        return true;
    return path.startsWith(QLatin1String("/private/var/"));
}

QString InstallerWinController::autoLaunchPathFor(const QString &productName) const
{
    for (const QString &path : loginItemPaths())
        if (QFileInfo(path).fileName().startsWith(productName))
            return path;
    return QString();
}

QString InstallerWinController::findPreferredDestinationFor(const QString &productName) const
{
    const QString path = autoLaunchPathFor(productName);
    vxLog(QStringLiteral("autolaunch = %@"), path);
    if (path.isNull() || isInUnsupportedFolder(path))
        return pathToProcessToReplace();
    return path;
}

QString InstallerWinController::applicationsDirectory() const
{
    const QString local = g_systemApplications;
    if (canWriteToFileOrDirectory(local))
        return local;
    vxLog(QStringLiteral("Can't write to /Applications, checking ~/Applications"));
    const QString user = userApplicationsFolder();
    vxLog(QStringLiteral("User applicationsDirectory: %@"), user);
    if (canWriteToFileOrDirectory(user))
        return user;
    return local;
}

QString InstallerWinController::recursiveLocalizedPath(const QString &path) const
{
    if (path.size() < 3)
        return path;
    const QString parent = recursiveLocalizedPath(QFileInfo(path).path());
    QString name = QFileInfo(path).fileName();
    if (name.isEmpty())
        name = path;
    return parent.endsWith(QLatin1Char('/')) ? parent + name : parent + QLatin1Char('/') + name;
}

QString InstallerWinController::localizedPath(const QString &path) const
{
    QString abbreviated = path;
    const QString home = QDir::homePath();
    if (home.size() > 1 && (path == home || path.startsWith(home + QLatin1Char('/'))))
        abbreviated = QLatin1Char('~') + path.mid(home.size());
    return recursiveLocalizedPath(abbreviated);
}

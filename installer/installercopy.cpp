// SPDX-FileCopyrightText: 2026 Quillet developers
// SPDX-License-Identifier: MIT
//
// Copy into place and launch.
#include "installerwincontroller.h"
#include "utilities/vxlog.h"

#include <QDir>
#include <QDirIterator>
#include <QFile>
#include <QFileInfo>

namespace {
bool copyTree(const QString &source, const QString &destination)
{
    if (!QDir().mkpath(destination))
        return false;
    QDirIterator it(source, QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot,
        QDirIterator::Subdirectories);
    while (it.hasNext()) {
        const QString path = it.next();
        const QString target = destination + path.mid(source.size());
        const QFileInfo info = it.fileInfo();
        if (info.isSymLink()) {
            if (!QFile::link(info.symLinkTarget(), target))
                return false;
        } else if (info.isDir()) {
            if (!QDir().mkpath(target))
                return false;
        } else if (!QFile::copy(path, target)) {
            return false;
        }
    }
    return true;
}
} // namespace

QString InstallerWinController::installMyselfInDestination()
{
    const QString source = argument(QStringLiteral("sourcePath"));
    const QString destination = argument(QStringLiteral("destinationPath"));
    setCurrentInstallationLabel(
        vxFormat(QStringLiteral("%@ %@"), m_arguments.value(QStringLiteral("productName")),
            m_arguments.value(QStringLiteral("version"))));
    if (!canWriteToPath(destination))
        return QString::fromUtf8(QT_TRANSLATE_NOOP("Quillet", "Authorized copying failed."));
    if (QFileInfo::exists(destination) && !QFile::moveToTrash(destination))
        return QString::fromUtf8(QT_TRANSLATE_NOOP("Quillet", "Could not delete existing copy."));
    if (!copyTree(source, destination))
        return QString::fromUtf8(QT_TRANSLATE_NOOP("Quillet", "Installation failed."));
    vxLog(QStringLiteral("successfully copied"));
    return QString();
}

bool InstallerWinController::authorizedInstall(
    const QString &, const QString &, const QString &, bool *canceled)
{
    if (canceled)
        *canceled = false;
    return false;
}

// SPDX-FileCopyrightText: 2026 Quillet developers
// SPDX-License-Identifier: MIT
#include "workspace.h"

#include "utilities/vxbundle.h"

#include <QDir>
#include <QFile>
#include <QFileIconProvider>
#include <QFileInfo>
#include <QImageReader>
#include <QProcess>
#include <QSaveFile>
#include <QStandardPaths>

namespace {
QString applicationsFolder()
{
    return QStandardPaths::writableLocation(QStandardPaths::GenericDataLocation)
        + QLatin1String("/applications");
}

QString iconFileOf(const VXBundle &bundle)
{
    const QString name = bundle.stringForInfoKey(QStringLiteral("CFBundleIconFile"));
    if (name.isEmpty())
        return QString();
    for (const QString &type :
        { QStringLiteral("icns"), QStringLiteral("png"), QStringLiteral("svg"), QString() }) {
        const QString path = bundle.pathForResource(name, type);
        if (!path.isEmpty())
            return path;
    }
    return QString();
}

QString entryId(const VXBundle &bundle)
{
    QString id = bundle.bundleIdentifier();
    if (id.isEmpty())
        id = QStringLiteral("quillet.") + QFileInfo(bundle.bundlePath()).completeBaseName();
    // Desktop file ids are reverse-DNS names; keep them to safe characters.
    for (QChar &c : id)
        if (!c.isLetterOrNumber() && c != QLatin1Char('.') && c != QLatin1Char('-')
            && c != QLatin1Char('_'))
            c = QLatin1Char('_');
    return id;
}

// Desktop Entry Specification, "The Exec key": quote arguments that need it.
QString quotedExec(const QString &program)
{
    QString escaped = program;
    for (const char *special : { "\\", "\"", "`", "$" })
        escaped.replace(QLatin1String(special), QLatin1String("\\") + QLatin1String(special));
    return QLatin1Char('"') + escaped + QLatin1Char('"');
}

QString escapeValue(QString value)
{
    return value.replace(QLatin1Char('\\'), QLatin1String("\\\\"))
        .replace(QLatin1Char('\n'), QLatin1String("\\n"));
}
} // namespace

QString Workspace::desktopEntryPath(const QString &bundlePath)
{
    const auto bundle = VXBundle::open(bundlePath);
    return bundle
        ? applicationsFolder() + QLatin1Char('/') + entryId(*bundle) + QLatin1String(".desktop")
        : QString();
}

int Workspace::registerBundle(const QString &bundlePath)
{
    const auto bundle = VXBundle::open(bundlePath);
    if (!bundle || bundle->executablePath().isEmpty())
        return -1;
    const QString id = entryId(*bundle);
    QString name = bundle->stringForInfoKey(QStringLiteral("CFBundleDisplayName"));
    if (name.isEmpty())
        name = bundle->stringForInfoKey(QStringLiteral("CFBundleName"));
    if (name.isEmpty())
        name = QFileInfo(bundlePath).completeBaseName();

    QString icon;
    const QString iconFile = iconFileOf(*bundle);
    if (!iconFile.isEmpty()) {
        QImageReader reader(iconFile);
        const QImage image = reader.read();
        if (!image.isNull()) {
            const QString themed
                = QStandardPaths::writableLocation(QStandardPaths::GenericDataLocation)
                + QLatin1String("/icons/hicolor/256x256/apps/") + id + QLatin1String(".png");
            QDir().mkpath(QFileInfo(themed).path());
            if (image.scaled(256, 256, Qt::KeepAspectRatio, Qt::SmoothTransformation)
                    .save(themed, "PNG"))
                icon = themed;
        }
    }

    QString entry = QStringLiteral("[Desktop Entry]\nType=Application\nVersion=1.0\n");
    entry += QStringLiteral("Name=%1\n").arg(escapeValue(name));
    entry += QStringLiteral("Exec=%1\n").arg(quotedExec(bundle->executablePath()));
    entry += QStringLiteral("Path=%1\n").arg(escapeValue(bundlePath));
    if (!icon.isEmpty())
        entry += QStringLiteral("Icon=%1\n").arg(escapeValue(icon));
    const QString version = bundle->stringForInfoKey(QStringLiteral("CFBundleShortVersionString"));
    if (!version.isEmpty())
        entry += QStringLiteral("X-Quillet-Version=%1\n").arg(escapeValue(version));
    entry += QStringLiteral("X-Quillet-Bundle=%1\n").arg(escapeValue(bundlePath));
    entry += QStringLiteral("Terminal=false\n");

    QDir().mkpath(applicationsFolder());
    QSaveFile file(applicationsFolder() + QLatin1Char('/') + id + QLatin1String(".desktop"));
    if (!file.open(QIODevice::WriteOnly) || file.write(entry.toUtf8()) < 0 || !file.commit())
        return -1;
    noteFileSystemChanged(applicationsFolder());
    return 0;
}

QIcon Workspace::iconForFile(const QString &path)
{
    if (const auto bundle = VXBundle::open(path)) {
        const QString file = iconFileOf(*bundle);
        if (!file.isEmpty()) {
            const QImage image = QImageReader(file).read();
            if (!image.isNull())
                return QIcon(QPixmap::fromImage(image));
        }
    }
    if (!QFileInfo::exists(path))
        return QIcon();
    return QFileIconProvider().icon(QFileInfo(path));
}

bool Workspace::openFile(const QString &path)
{
    if (const auto bundle = VXBundle::open(path); bundle && path.endsWith(QLatin1String(".app"))) {
        const QString executable = bundle->executablePath();
        return !executable.isEmpty() && QProcess::startDetached(executable, {}, path);
    }
    if (!QFileInfo::exists(path))
        return false;
    return QProcess::startDetached(QStringLiteral("xdg-open"), { path });
}

void Workspace::noteFileSystemChanged(const QString &path)
{
    if (!path.endsWith(QLatin1String("/applications")))
        return;
    const QString tool = QStandardPaths::findExecutable(QStringLiteral("update-desktop-database"));
    if (!tool.isEmpty())
        QProcess::execute(tool, { QStringLiteral("-q"), path });
}

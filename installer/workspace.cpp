// SPDX-FileCopyrightText: 2026 Quillet developers
// SPDX-License-Identifier: MIT
#include "workspace.h"

#include "desktopentry.h"
#include "utilities/vxbundle.h"

#include <QBuffer>
#include <QDir>
#include <QFile>
#include <QFileIconProvider>
#include <QFileInfo>
#include <QImageReader>
#include <QPainter>
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
    return QString::fromStdString(DesktopEntry::fileId(bundle.bundleIdentifier().toStdString(),
        QFileInfo(bundle.bundlePath()).completeBaseName().toStdString()));
}

QString displayName(const VXBundle &bundle)
{
    QString name = bundle.stringForInfoKey(QStringLiteral("CFBundleDisplayName"));
    if (name.isEmpty())
        name = bundle.stringForInfoKey(QStringLiteral("CFBundleName"));
    if (name.isEmpty())
        name = QFileInfo(bundle.bundlePath()).completeBaseName();
    return name;
}

// The bundle's icon as a square PNG for the hicolor theme, the picture
// scaled to fit and centred; empty when there is no readable icon.
QByteArray iconPng(const VXBundle &bundle)
{
    const QString iconFile = iconFileOf(bundle);
    if (iconFile.isEmpty())
        return QByteArray();
    const QImage image = QImageReader(iconFile).read();
    if (image.isNull())
        return QByteArray();
    constexpr int size = DesktopEntry::kIconSize;
    const QImage scaled = image.scaled(size, size, Qt::KeepAspectRatio, Qt::SmoothTransformation);
    QImage square(size, size, QImage::Format_ARGB32);
    square.fill(Qt::transparent);
    QPainter(&square).drawImage((size - scaled.width()) / 2, (size - scaled.height()) / 2, scaled);
    QByteArray png;
    QBuffer buffer(&png);
    buffer.open(QIODevice::WriteOnly);
    return square.save(&buffer, "PNG") ? png : QByteArray();
}

QString systemEntryPath(const QString &id)
{
    return QString::fromUtf8(DesktopEntry::kSystemDataFolder) + QLatin1String("/applications/")
        + QString::fromStdString(DesktopEntry::systemFileId(id.toStdString()))
        + QLatin1String(".desktop");
}

// The value of X-Quillet-Bundle in an entry file; null when there is none.
QString bundleOfEntry(const QString &entryPath)
{
    QFile file(entryPath);
    if (!file.open(QIODevice::ReadOnly))
        return QString();
    const auto value = DesktopEntry::value(file.read(1 << 16).toStdString(), "X-Quillet-Bundle");
    return value ? QString::fromStdString(*value) : QString();
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
    DesktopEntry::Fields fields { displayName(*bundle).toStdString(),
        bundle->executablePath().toStdString(), bundlePath.toStdString(), std::string(),
        bundle->stringForInfoKey(QStringLiteral("CFBundleShortVersionString")).toStdString() };

    const QByteArray png = iconPng(*bundle);
    if (!png.isEmpty()) {
        const QString themed = QStandardPaths::writableLocation(QStandardPaths::GenericDataLocation)
            + QLatin1Char('/') + QString::fromUtf8(DesktopEntry::kIconFolder) + QLatin1Char('/')
            + id + QLatin1String(".png");
        QDir().mkpath(QFileInfo(themed).path());
        QSaveFile icon(themed);
        if (icon.open(QIODevice::WriteOnly) && icon.write(png) == png.size() && icon.commit())
            fields.icon = themed.toStdString();
    }

    QDir().mkpath(applicationsFolder());
    QSaveFile file(applicationsFolder() + QLatin1Char('/') + id + QLatin1String(".desktop"));
    const std::string entry = DesktopEntry::text(fields);
    if (!file.open(QIODevice::WriteOnly)
        || file.write(entry.data(), qint64(entry.size())) != qint64(entry.size()) || !file.commit())
        return -1;
    noteFileSystemChanged(applicationsFolder());
    return 0;
}

QByteArray Workspace::helperRequest(const QString &bundlePath)
{
    const auto bundle = VXBundle::open(bundlePath);
    if (!bundle)
        return QByteArray();
    const QString executable = bundle->executablePath();
    const QString inside = QDir(bundlePath).relativeFilePath(executable);
    if (executable.isEmpty() || inside.startsWith(QLatin1String("..")))
        return QByteArray();
    const std::string text = DesktopEntry::requestText(
        { entryId(*bundle).toStdString(), displayName(*bundle).toStdString(),
            bundle->stringForInfoKey(QStringLiteral("CFBundleShortVersionString")).toStdString(),
            inside.toStdString(), iconPng(*bundle).toStdString() });
    return QByteArray(text.data(), qsizetype(text.size()));
}

QString Workspace::systemDesktopEntryPath(const QString &bundlePath)
{
    const auto bundle = VXBundle::open(bundlePath);
    return bundle ? systemEntryPath(entryId(*bundle)) : QString();
}

int Workspace::useSystemRegistration(const QString &bundlePath)
{
    const auto bundle = VXBundle::open(bundlePath);
    if (!bundle || bundleOfEntry(systemEntryPath(entryId(*bundle))) != bundlePath)
        return -1;
    const QString own = desktopEntryPath(bundlePath);
    if (bundleOfEntry(own) == bundlePath && QFile::remove(own))
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

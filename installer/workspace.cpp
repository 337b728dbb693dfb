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
#include <glib.h>

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

// Reads an image in the given format only. Left to find the format itself,
// Qt asks every image plugin, loading each, before its built-in readers.
QImage readWithoutProbing(QIODevice *device, const QByteArray &format)
{
    QImageReader reader(device, format);
    reader.setAutoDetectImageFormat(false);
    reader.setAutoTransform(true);
    return reader.read();
}

// The PNG frame of an icns file whose edge is the smallest at least `edge`
// pixels, else the largest; null when there is none (older frame types, JPEG
// 2000, a damaged file). An icns file is the type "icns" and its length,
// then frames of a four-character type, a big-endian length that counts
// the 8-byte frame header, and the data. Read here rather than through Qt's
// icns plugin, which finds the format of a PNG frame by asking every image
// plugin in turn: at start-up that loaded all of them (docs/installer.md).
QImage icnsPngFrame(const QString &path, int edge)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly) || file.size() > 32 * 1024 * 1024)
        return QImage();
    const QByteArray data = file.readAll();
    auto be32 = [&](qsizetype at) {
        return quint32(quint8(data[at])) << 24 | quint32(quint8(data[at + 1])) << 16
            | quint32(quint8(data[at + 2])) << 8 | quint32(quint8(data[at + 3]));
    };
    static const QByteArray png("\x89PNG\r\n\x1a\n", 8);
    if (data.size() < 8 || !data.startsWith("icns"))
        return QImage();
    QByteArrayView best;
    quint32 bestEdge = 0;
    for (qsizetype at = 8; at + 8 <= data.size();) {
        const quint32 length = be32(at + 4);
        if (length < 8 || length > quint32(data.size() - at))
            break;
        const QByteArrayView frame(data.constData() + at + 8, length - 8);
        at += length;
        if (frame.size() < 24 || !frame.startsWith(png))
            continue;
        const quint32 width = be32(frame.data() - data.constData() + 16);
        const bool fits = width >= quint32(edge);
        const bool bestFits = bestEdge >= quint32(edge);
        if (best.isNull() || (fits && (!bestFits || width < bestEdge))
            || (!fits && !bestFits && width > bestEdge)) {
            best = frame;
            bestEdge = width;
        }
    }
    if (best.isNull())
        return QImage();
    QByteArray bytes(best.data(), best.size());
    QBuffer buffer(&bytes);
    return readWithoutProbing(&buffer, "png");
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
    constexpr int size = DesktopEntry::kIconSize;
    const QImage image = Workspace::readImage(iconFile, size);
    if (image.isNull())
        return QByteArray();
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

// The value of X-Quillet-Bundle in an entry file, read with GLib's key-file
// parser; null when there is none.
QString bundleOfEntry(const QString &entryPath)
{
    GKeyFile *entry = g_key_file_new();
    QString bundle;
    if (g_key_file_load_from_file(
            entry, QFile::encodeName(entryPath).constData(), G_KEY_FILE_NONE, nullptr)) {
        if (gchar *value
            = g_key_file_get_string(entry, G_KEY_FILE_DESKTOP_GROUP, "X-Quillet-Bundle", nullptr)) {
            bundle = QString::fromUtf8(value);
            g_free(value);
        }
    }
    g_key_file_free(entry);
    return bundle;
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
            const QImage image = readImage(file, 128);
            if (!image.isNull())
                return QIcon(QPixmap::fromImage(image));
        }
    }
    if (!QFileInfo::exists(path))
        return QIcon();
    return QFileIconProvider().icon(QFileInfo(path));
}

QImage Workspace::readImage(const QString &path, int edge)
{
    if (path.endsWith(QLatin1String(".icns"), Qt::CaseInsensitive)) {
        const QImage frame = icnsPngFrame(path, edge);
        if (!frame.isNull())
            return frame;
    }
    // By the name's suffix first; a file whose suffix lies is still read.
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return QImage();
    const QImage image = readWithoutProbing(&file, QFileInfo(path).suffix().toLower().toLatin1());
    if (!image.isNull() || !file.seek(0))
        return image;
    QImageReader reader(&file);
    reader.setAutoTransform(true);
    return reader.read();
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

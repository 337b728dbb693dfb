// SPDX-FileCopyrightText: 2026 Quillet developers
// SPDX-License-Identifier: MIT
//
// KDE Plasma's appearance from kdeglobals, the file Plasma writes its colour
// scheme into: the window background of [Colors:Window] BackgroundNormal
// ("r,g,b") decides light or dark (HSL lightness below one half is dark);
// without it, a [General] ColorScheme name with "Dark" in it is dark.
// [General] AccentColor ("r,g,b") is the accent colour. The user's file in
// $XDG_CONFIG_HOME overrides the system's in $XDG_CONFIG_DIRS, key by key, as
// KConfig cascades. Read with QSettings' INI reader (kdeglobals is an INI
// file; its "[$e]" and "[$i]" markers only occur on keys we do not read).
// Plasma replaces the file when it writes, so changes are seen by watching
// the folder and comparing the file's time and size.
#include "desktopappearance_p.h"

#include <QDateTime>
#include <QFileInfo>
#include <QFileSystemWatcher>
#include <QSettings>
#include <QStandardPaths>
#include <QStringList>
#include <algorithm>
#include <memory>

namespace {
QVariant value(const QString &group, const QString &key)
{
    for (const QString &file : QStandardPaths::locateAll(
             QStandardPaths::GenericConfigLocation, QStringLiteral("kdeglobals"))) {
        QSettings settings(file, QSettings::IniFormat);
        // QSettings files the keys of an INI "[General]" group at the top.
        const QVariant v = settings.value(
            group == QLatin1String("General") ? key : group + QLatin1Char('/') + key);
        if (v.isValid())
            return v;
    }
    return QVariant();
}

std::optional<DesktopAppearance::Rgb> rgbValue(const QString &group, const QString &key)
{
    const QVariant v = value(group, key);
    // QSettings reads an unquoted "r,g,b" as a list of three strings.
    const QStringList parts = v.metaType() == QMetaType::fromType<QStringList>()
        ? v.toStringList()
        : v.toString().split(QLatin1Char(','));
    if (parts.size() != 3)
        return std::nullopt;
    double c[3];
    for (int i = 0; i < 3; ++i) {
        bool ok = false;
        const int n = parts.at(i).trimmed().toInt(&ok);
        if (!ok || n < 0 || n > 255)
            return std::nullopt;
        c[i] = n / 255.0;
    }
    return DesktopAppearance::Rgb { c[0], c[1], c[2] };
}

QString userFile()
{
    return QStandardPaths::writableLocation(QStandardPaths::GenericConfigLocation)
        + QLatin1String("/kdeglobals");
}
} // namespace

std::optional<DesktopAppearance::ColorScheme> DesktopAppearancePlatform::kdeColorScheme()
{
    if (const auto window
        = rgbValue(QStringLiteral("Colors:Window"), QStringLiteral("BackgroundNormal"))) {
        const double lightness = (std::max({ window->red, window->green, window->blue })
                                     + std::min({ window->red, window->green, window->blue }))
            / 2;
        return lightness < 0.5 ? ColorScheme::Dark : ColorScheme::Light;
    }
    const QString name = value(QStringLiteral("General"), QStringLiteral("ColorScheme")).toString();
    if (name.isEmpty())
        return std::nullopt;
    return name.contains(QLatin1String("Dark"), Qt::CaseInsensitive) ? ColorScheme::Dark
                                                                     : ColorScheme::Light;
}

std::optional<DesktopAppearance::Rgb> DesktopAppearancePlatform::kdeAccentColor()
{
    return rgbValue(QStringLiteral("General"), QStringLiteral("AccentColor"));
}

void DesktopAppearancePlatform::watchKde(const std::function<void()> &changed)
{
    const QString file = userFile();
    const QString folder = QFileInfo(file).path();
    if (!QFileInfo(folder).isDir())
        return;
    auto *watcher = new QFileSystemWatcher(QStringList { folder }); // kept for the process's life
    auto stamp = [file] {
        const QFileInfo info(file);
        return std::pair(info.lastModified().toMSecsSinceEpoch(), info.exists() ? info.size() : -1);
    };
    // The folder sees the file replaced or created, the file sees it written in place.
    auto follow = [watcher, file] {
        if (QFileInfo::exists(file) && !watcher->files().contains(file))
            watcher->addPath(file);
    };
    follow();
    auto check = [changed, stamp, follow, last = std::make_shared<decltype(stamp())>(stamp())] {
        follow();
        const auto now = stamp();
        if (now == *last)
            return;
        *last = now;
        changed();
    };
    QObject::connect(watcher, &QFileSystemWatcher::directoryChanged, watcher, check);
    QObject::connect(watcher, &QFileSystemWatcher::fileChanged, watcher, check);
}

// SPDX-FileCopyrightText: 2026 Quillet developers
// SPDX-License-Identifier: MIT
#include "desktopappearance.h"

#include "desktopappearance_p.h"

#include <QCoreApplication>
#include <QMutex>
#include <QThread>

namespace DesktopAppearance {
namespace {
QMutex g_probeLock;
PaletteProbe g_probe;

bool kdeFirst()
{
    return qEnvironmentVariable("XDG_CURRENT_DESKTOP")
        .contains(QLatin1String("KDE"), Qt::CaseInsensitive);
}

template <typename T>
std::optional<T> fromDesktop(std::optional<T> (*gnome)(), std::optional<T> (*kde)(), Source *from,
    bool (*decisive)(const T &))
{
    const bool kdeAsked = kdeFirst();
    const std::pair<std::optional<T> (*)(), Source> order[] = {
        { kdeAsked ? kde : gnome, kdeAsked ? Source::Kde : Source::Gnome },
        { kdeAsked ? gnome : kde, kdeAsked ? Source::Gnome : Source::Kde },
    };
    for (const auto &[ask, source] : order) {
        if (const auto value = ask(); value && decisive(*value)) {
            if (from)
                *from = source;
            return value;
        }
    }
    return std::nullopt;
}

bool schemeDecides(const ColorScheme &s)
{
    return s != ColorScheme::NoPreference;
}

bool anyAccent(const Rgb &)
{
    return true;
}
} // namespace

ColorScheme colorScheme(Source *from)
{
    if (from)
        *from = Source::None;
    // A portal without an opinion (0, or a backend that lacks the key) does
    // not hide the desktop's own setting.
    if (const auto scheme = DesktopAppearancePlatform::portalColorScheme();
        scheme && schemeDecides(*scheme)) {
        if (from)
            *from = Source::Portal;
        return *scheme;
    }
    return fromDesktop<ColorScheme>(DesktopAppearancePlatform::gnomeColorScheme,
        DesktopAppearancePlatform::kdeColorScheme, from, schemeDecides)
        .value_or(ColorScheme::NoPreference);
}

bool isDark()
{
    Source from = Source::None;
    switch (colorScheme(&from)) {
    case ColorScheme::Dark:
        return true;
    case ColorScheme::Light:
        return false;
    case ColorScheme::NoPreference:
        break;
    }
    PaletteProbe probe;
    {
        QMutexLocker lock(&g_probeLock);
        probe = g_probe;
    }
    return probe ? probe().value_or(false) : false;
}

std::optional<Rgb> accentColor(Source *from)
{
    if (from)
        *from = Source::None;
    if (const auto rgb = DesktopAppearancePlatform::portalAccentColor()) {
        if (from)
            *from = Source::Portal;
        return rgb;
    }
    return fromDesktop<Rgb>(DesktopAppearancePlatform::gnomeAccentColor,
        DesktopAppearancePlatform::kdeAccentColor, from, anyAccent);
}

void setPaletteProbe(PaletteProbe probe)
{
    QMutexLocker lock(&g_probeLock);
    g_probe = std::move(probe);
}

Notifier::Notifier()
{
    const auto announce = [this] { Q_EMIT changed(); };
    DesktopAppearancePlatform::watchPortal(announce);
    DesktopAppearancePlatform::watchGnome(announce);
    DesktopAppearancePlatform::watchKde(announce);
}

Notifier *Notifier::instance()
{
    // Never deleted: the watchers call into it for the process's life.
    static Notifier *notifier = new Notifier;
    return notifier;
}

} // namespace DesktopAppearance

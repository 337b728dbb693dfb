// SPDX-FileCopyrightText: 2026 Quillet developers
// SPDX-License-Identifier: MIT
//
// The desktop's side of the appearance, from the core library's query:
// the portal's colour scheme and accent colour, else GNOME's or KDE's
// settings, else the application palette's lightness, which this file
// registers as the query's probe.
#include "utilities/desktopappearance.h"
#include "vxappearance.h"

#include <QGuiApplication>

namespace {

// The answers are kept until the desktop announces a change: painting asks
// for them often, and each question may cross the session bus.
struct Cache
{
    std::optional<DesktopAppearance::ColorScheme> scheme;
    std::optional<std::optional<DesktopAppearance::Rgb>> accent;
};
Cache g_cache;

void ensurePaletteProbe()
{
    static bool registered = false;
    if (registered)
        return;
    registered = true;
    DesktopAppearance::setPaletteProbe([]() -> std::optional<bool> {
        if (!qobject_cast<QGuiApplication *>(QCoreApplication::instance()))
            return std::nullopt;
        return VXAppearance::isDarkPalette(QGuiApplication::palette());
    });
}

} // namespace

namespace VXAppearance {

QObject *desktopNotifier()
{
    ensurePaletteProbe();
    DesktopAppearance::Notifier *notifier = DesktopAppearance::Notifier::instance();
    static bool connected = false;
    if (!connected) {
        connected = true;
        // Connected before any receiver of this library, so that each of
        // them reads the new answers.
        QObject::connect(notifier, &DesktopAppearance::Notifier::changed, [] { g_cache = {}; });
    }
    return notifier;
}

namespace {
DesktopAppearance::ColorScheme colorScheme()
{
    desktopNotifier();
    if (!g_cache.scheme)
        g_cache.scheme = DesktopAppearance::colorScheme();
    return *g_cache.scheme;
}
} // namespace

std::optional<bool> desktopPrefersDark()
{
    switch (colorScheme()) {
    case DesktopAppearance::ColorScheme::Dark:
        return true;
    case DesktopAppearance::ColorScheme::Light:
        return false;
    case DesktopAppearance::ColorScheme::NoPreference:
        break;
    }
    return std::nullopt;
}

bool applicationIsDark()
{
    if (const std::optional<bool> dark = desktopPrefersDark())
        return *dark;
    if (!qobject_cast<QGuiApplication *>(QCoreApplication::instance()))
        return false; // no palette to ask
    return isDarkPalette(QGuiApplication::palette());
}

std::optional<QColor> desktopAccentColor()
{
    desktopNotifier();
    if (!g_cache.accent)
        g_cache.accent = DesktopAppearance::accentColor();
    const std::optional<DesktopAppearance::Rgb> rgb = *g_cache.accent;
    if (!rgb)
        return std::nullopt;
    return QColor::fromRgbF(float(rgb->red), float(rgb->green), float(rgb->blue));
}

} // namespace VXAppearance

// SPDX-FileCopyrightText: 2026 Quillet developers
// SPDX-License-Identifier: MIT
#pragma once

#include <QObject>
#include <functional>
#include <optional>

// The desktop's appearance as the user chose it: light or dark, and the
// accent colour. Asked, in this order:
//  1. xdg-desktop-portal's Settings interface, namespace
//     "org.freedesktop.appearance" (keys "color-scheme", "accent-color");
//  2. the desktop's own setting: GNOME's org.gnome.desktop.interface
//     (GSettings) and KDE's kdeglobals, KDE first when XDG_CURRENT_DESKTOP
//     names KDE;
//  3. for the colour scheme only, a probe that the widgets library registers
//     (the application palette's lightness, see setPaletteProbe()).
// Every answer comes quickly: without a session bus or portal the next
// source is asked at once, and a portal that does not answer within
// portalTimeoutMs is not asked again until its name changes owner.
//
// Core library only (QtCore, QtDBus; GLib's gio loaded when first read); no QColor here.
namespace DesktopAppearance {

// The values of the portal's "color-scheme".
enum class ColorScheme { NoPreference = 0, Dark = 1, Light = 2 };

// An sRGB colour, each channel 0..1.
struct Rgb
{
    double red = 0;
    double green = 0;
    double blue = 0;
    friend bool operator==(const Rgb &, const Rgb &) = default;
};

// Where an answer came from, for diagnostics and tests.
enum class Source { None, Portal, Gnome, Kde, Palette };

ColorScheme colorScheme(Source *from = nullptr);
// colorScheme() is Dark; with no preference anywhere, the palette probe's
// verdict; false without one.
bool isDark();
std::optional<Rgb> accentColor(Source *from = nullptr);

// Asks whether the application's palette is dark (window colour lightness
// below one half); nullopt when there is no palette to ask. The widgets
// library registers one when it starts (QGuiApplication::palette()); the core
// library cannot reach QtGui. An empty function removes it.
using PaletteProbe = std::function<std::optional<bool>()>;
void setPaletteProbe(PaletteProbe probe);

constexpr int portalTimeoutMs = 400;

// Announces appearance changes: the portal's SettingChanged for
// "org.freedesktop.appearance", a change of GNOME's color-scheme, gtk-theme
// or accent-color, and a rewrite of kdeglobals. Lives on the thread that
// first asks for it (the main thread); signals arrive through its event loop.
class Notifier : public QObject
{
    Q_OBJECT
public:
    static Notifier *instance();

Q_SIGNALS:
    void changed();

private:
    Notifier();
    friend struct NotifierAccess;
};

} // namespace DesktopAppearance

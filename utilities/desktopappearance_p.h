// SPDX-FileCopyrightText: 2026 Quillet developers
// SPDX-License-Identifier: MIT
#pragma once

#include "desktopappearance.h"

#include <functional>
#include <optional>

// The sources DesktopAppearance asks. Each answers nullopt when it has no
// opinion (missing bus, service, schema or file), never blocks longer than
// DesktopAppearance::portalTimeoutMs, and calls its watcher back on the
// event loop of the thread that installed it.
namespace DesktopAppearancePlatform {

using DesktopAppearance::ColorScheme;
using DesktopAppearance::Rgb;

// xdg-desktop-portal Settings, namespace "org.freedesktop.appearance".
std::optional<ColorScheme> portalColorScheme();
std::optional<Rgb> portalAccentColor();
void watchPortal(const std::function<void()> &changed);

// GNOME: org.gnome.desktop.interface through GSettings.
std::optional<ColorScheme> gnomeColorScheme();
std::optional<Rgb> gnomeAccentColor();
void watchGnome(const std::function<void()> &changed);

// KDE: kdeglobals in the XDG config folders.
std::optional<ColorScheme> kdeColorScheme();
std::optional<Rgb> kdeAccentColor();
void watchKde(const std::function<void()> &changed);

} // namespace DesktopAppearancePlatform

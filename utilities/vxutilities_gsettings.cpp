// SPDX-FileCopyrightText: 2026 Quillet developers
// SPDX-License-Identifier: MIT
//
// Desktop settings through GSettings (gio), where GNOME and most GTK
// desktops keep them; a schema or key that is not installed has no value.
// Reduced transparency: GNOME has no such switch; its high-contrast mode
// (org.gnome.desktop.a11y.interface high-contrast) draws no translucency, so
// it is what answers here.
// clang-format off
#include "vxgio_p.h" // before Qt: GLib's headers use the word "signals"
// clang-format on
#include "vxutilities_p.h"

std::optional<bool> VXUtilitiesPlatform::desktopSettingsBoolean(const char *schema, const char *key)
{
    GSettings *settings = vxDesktopSettings(schema);
    if (!vxDesktopSettingsHaveKey(settings, key))
        return std::nullopt;
    return bool(gio()->p_g_settings_get_boolean(settings, key));
}

std::optional<bool> VXUtilitiesPlatform::desktopReducedTransparency()
{
    if (const auto highContrast
        = desktopSettingsBoolean("org.gnome.desktop.a11y.interface", "high-contrast");
        highContrast && *highContrast)
        return true;
    return std::nullopt;
}

// SPDX-FileCopyrightText: 2026 Quillet developers
// SPDX-License-Identifier: MIT
//
// GNOME's appearance through GSettings (gio), schema
// org.gnome.desktop.interface: "color-scheme" ('prefer-dark',
// 'prefer-light', 'default'; GNOME 42 and later), "gtk-theme" (a theme
// named "*-dark" or with the ":dark" variant is dark; older GNOME and many
// GTK desktops say it only this way) and "accent-color" (GNOME 47 and later,
// a name from libadwaita's palette). A machine without the schema, or a
// schema without a key, has no opinion. The values come from whatever
// backend GLib uses (dconf on a GNOME desktop); changes arrive through the
// GLib main context, which Qt's event dispatcher runs on Linux.
// clang-format off
#include "vxgio_p.h" // before Qt: GLib's headers use the word "signals"
// clang-format on
#include "desktopappearance_p.h"

#include <QString>

namespace {
GSettings *gnome()
{
    return vxDesktopSettings("org.gnome.desktop.interface");
}

QString string(const char *key)
{
    if (!vxDesktopSettingsHaveKey(gnome(), key))
        return QString();
    gchar *value = gio()->p_g_settings_get_string(gnome(), key);
    const QString s = QString::fromUtf8(value);
    gio()->p_g_free(value);
    return s;
}

void onChanged(GSettings *, const gchar *key, gpointer data)
{
    const QByteArray k(key);
    if (k == "color-scheme" || k == "gtk-theme" || k == "accent-color")
        (*static_cast<std::function<void()> *>(data))();
}
} // namespace

std::optional<DesktopAppearance::ColorScheme> DesktopAppearancePlatform::gnomeColorScheme()
{
    if (!gnome())
        return std::nullopt;
    const QString scheme = string("color-scheme");
    if (scheme == QLatin1String("prefer-dark"))
        return ColorScheme::Dark;
    if (scheme == QLatin1String("prefer-light"))
        return ColorScheme::Light;
    const QString theme = string("gtk-theme");
    if (theme.endsWith(QLatin1String("-dark"), Qt::CaseInsensitive)
        || theme.endsWith(QLatin1String(":dark"), Qt::CaseInsensitive))
        return ColorScheme::Dark;
    return ColorScheme::NoPreference;
}

std::optional<DesktopAppearance::Rgb> DesktopAppearancePlatform::gnomeAccentColor()
{
    // libadwaita's accent colours (its "standalone" light-style values).
    static const struct
    {
        const char *name;
        unsigned rgb;
    } names[] = { { "blue", 0x3584e4 }, { "teal", 0x2190a4 }, { "green", 0x3a944a },
        { "yellow", 0xc88800 }, { "orange", 0xed5b00 }, { "red", 0xe62d42 }, { "pink", 0xd56199 },
        { "purple", 0x9141ac }, { "slate", 0x6f8396 } };
    const QString accent = string("accent-color");
    for (const auto &n : names) {
        if (accent == QLatin1String(n.name))
            return Rgb { ((n.rgb >> 16) & 0xff) / 255.0, ((n.rgb >> 8) & 0xff) / 255.0,
                (n.rgb & 0xff) / 255.0 };
    }
    return std::nullopt;
}

void DesktopAppearancePlatform::watchGnome(const std::function<void()> &changed)
{
    if (!gnome())
        return;
    gio()->p_g_signal_connect_data(gnome(), "changed", G_CALLBACK(onChanged),
        new std::function<void()>(changed), nullptr, GConnectFlags(0));
    // GSettings announces only keys that were read since a handler was connected.
    for (const char *key : { "color-scheme", "gtk-theme", "accent-color" })
        string(key);
}

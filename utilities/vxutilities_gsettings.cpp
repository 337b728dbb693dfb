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

#include <QByteArray>
#include <QHash>
#include <QMutex>

VX_LAZY_LIBRARY_DEFINE(GioApi, gio, "libgio-2.0.so.0", VX_GIO_FUNCTIONS)

std::optional<bool> VXUtilitiesPlatform::desktopSettingsBoolean(const char *schema, const char *key)
{
    static QMutex lock;
    static QHash<QByteArray, GSettings *> opened; // kept: reading stays cheap
    QMutexLocker locker(&lock);
    const GioApi *api = gio();
    if (!api)
        return std::nullopt;
    GSettings *settings = opened.value(schema);
    if (!settings && !opened.contains(schema)) {
        GSettingsSchemaSource *source = api->p_g_settings_schema_source_get_default();
        GSettingsSchema *found
            = source ? api->p_g_settings_schema_source_lookup(source, schema, TRUE) : nullptr;
        if (found) {
            settings = api->p_g_settings_new_full(found, nullptr, nullptr);
            api->p_g_settings_schema_unref(found);
        }
        opened.insert(schema, settings);
    }
    if (!settings)
        return std::nullopt;
    GSettingsSchema *found = nullptr;
    api->p_g_object_get(settings, "settings-schema", &found, nullptr);
    const bool has = found && api->p_g_settings_schema_has_key(found, key);
    if (found)
        api->p_g_settings_schema_unref(found);
    if (!has)
        return std::nullopt;
    return bool(api->p_g_settings_get_boolean(settings, key));
}

std::optional<bool> VXUtilitiesPlatform::desktopReducedTransparency()
{
    if (const auto highContrast
        = desktopSettingsBoolean("org.gnome.desktop.a11y.interface", "high-contrast");
        highContrast && *highContrast)
        return true;
    return std::nullopt;
}

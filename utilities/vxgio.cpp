// SPDX-FileCopyrightText: 2026 Quillet developers
// SPDX-License-Identifier: MIT
#include "vxgio_p.h"

#include <QByteArray>
#include <QHash>
#include <QMutex>

VX_LAZY_LIBRARY_DEFINE(GioApi, gio, "libgio-2.0.so.0", VX_GIO_FUNCTIONS)

GSettings *vxDesktopSettings(const char *schema)
{
    static QMutex lock;
    static QHash<QByteArray, GSettings *> opened; // a missing schema is kept as nullptr
    QMutexLocker locker(&lock);
    const GioApi *api = gio();
    if (!api)
        return nullptr;
    if (const auto it = opened.constFind(schema); it != opened.cend())
        return *it;
    GSettingsSchemaSource *source = api->p_g_settings_schema_source_get_default();
    GSettingsSchema *found
        = source ? api->p_g_settings_schema_source_lookup(source, schema, TRUE) : nullptr;
    GSettings *settings = nullptr;
    if (found) {
        settings = api->p_g_settings_new_full(found, nullptr, nullptr);
        api->p_g_settings_schema_unref(found);
    }
    opened.insert(schema, settings);
    return settings;
}

bool vxDesktopSettingsHaveKey(GSettings *settings, const char *key)
{
    if (!settings)
        return false;
    GSettingsSchema *schema = nullptr;
    gio()->p_g_object_get(settings, "settings-schema", &schema, nullptr);
    const bool has = schema && gio()->p_g_settings_schema_has_key(schema, key);
    if (schema)
        gio()->p_g_settings_schema_unref(schema);
    return has;
}

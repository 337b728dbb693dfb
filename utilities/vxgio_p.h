// SPDX-FileCopyrightText: 2026 Quillet developers
// SPDX-License-Identifier: MIT
//
// Desktop settings through GSettings (GIO), where GNOME and most GTK
// desktops keep them. GIO is loaded the first time a setting is read: most
// programs never ask, and loading GIO with its dependencies at start costs
// a program about 3 ms before main() (bench/installer/start-up.sh).
#pragma once

// clang-format off
#include <gio/gio.h> // before Qt: GLib's headers use the word "signals"
// clang-format on
#include "vxlazylibrary_p.h"

#define VX_GIO_FUNCTIONS(F)                                                                        \
    F(g_settings_schema_source_get_default)                                                        \
    F(g_settings_schema_source_lookup)                                                             \
    F(g_settings_schema_has_key)                                                                   \
    F(g_settings_schema_unref)                                                                     \
    F(g_settings_new_full)                                                                         \
    F(g_settings_get_string)                                                                       \
    F(g_settings_get_boolean)                                                                      \
    F(g_signal_connect_data)                                                                       \
    F(g_object_get)                                                                                \
    F(g_free)

// nullptr where GIO is not installed: then no desktop setting has a value.
VX_LAZY_LIBRARY_DECLARE(GioApi, gio, VX_GIO_FUNCTIONS)

// The settings of a schema, made on first use and kept: reading stays cheap,
// and a GSettings object is what hears the schema's changes (in the GLib
// main context of the thread that made it). nullptr where GIO or the schema
// is not installed. Any thread.
GSettings *vxDesktopSettings(const char *schema);

// Whether the settings' schema has the key: a key the installed schema lacks
// has no value.
bool vxDesktopSettingsHaveKey(GSettings *settings, const char *key);

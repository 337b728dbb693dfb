// SPDX-FileCopyrightText: 2026 Quillet developers
// SPDX-License-Identifier: MIT
//
// GIO's settings, loaded the first time a desktop setting is read: most
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

// SPDX-FileCopyrightText: 2026 Quillet developers
// SPDX-License-Identifier: MIT
#pragma once

#include "common/testchild.h"

// The desktop portal's stand-in (tests/helpers/portalstandin) on the test's
// private session bus. set("KEY TYPE VALUE...") changes a setting of the
// appearance namespace (or of the one given) and returns once it was
// announced with SettingChanged.
struct Portal : TestChild
{
    explicit Portal(const QStringList &args = {})
        : TestChild(kHelpers + "/portalstandin", args)
    { }
    bool set(const QString &setting, const QString &ns = "org.freedesktop.appearance")
    {
        process.write((ns + ' ' + setting + '\n').toUtf8());
        return waitReady("set");
    }
};

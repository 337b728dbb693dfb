// SPDX-FileCopyrightText: 2026 Quillet developers
// SPDX-License-Identifier: MIT
#pragma once

#include <QStringList>

// Runs a helper tool as root through the elevation command: pkexec (polkit
// asks for an administrator's password), or the command the user default
// "elevationCommand" names. Blocks until the tool has ended.
namespace Elevation {

// Codes of the authorization services the installer's messages are built on.
constexpr int kAuthorizationCanceled = -60006;
constexpr int kToolExecuteFailure = -60031;

// 0: the tool ran and succeeded; -1: it failed or was killed;
// kAuthorizationCanceled: the password dialog was dismissed;
// kToolExecuteFailure: it could not be started (not authorized, no agent).
int runPrivilegedTool(const QString &tool, const QStringList &arguments);

} // namespace Elevation

// SPDX-FileCopyrightText: 2026 Quillet developers
// SPDX-License-Identifier: MIT
#pragma once

#include <QString>
#include <functional>
#include <optional>

// What a platform provides to VXUtilities.
namespace VXUtilitiesPlatform {

// The system version selectors: 'sys1' (major), 'sys2' (minor), 'sys3'
// (bugfix) and 'sysv' (four BCD digits). nullopt when the system cannot
// answer.
std::optional<quint32> systemVersionSelector(quint32 selector);

// The version number of the user-interface framework that the release
// predicates compare against.
double appKitVersionNumber();

QString machineModel();
// The machine field of uname; nullopt when uname fails.
std::optional<QString> machine();
bool translated();
// The platform serial number; a null QString when it cannot be read.
QString serialNumber();

// Injection for tests: where the system's files are read from ("" = "/"),
// and a stand-in for the kernel's release string.
void setSystemRoot(const QString &root);
void setKernelRelease(const std::optional<QString> &release);

} // namespace VXUtilitiesPlatform

// SPDX-FileCopyrightText: 2026 Quillet developers
// SPDX-License-Identifier: MIT
#pragma once

// A system install's desktop entry and icon, for all users.
#include "../desktopentry.h"

#include <string>

namespace Train {

// What the installer says about the bundle on standard input, read with a
// size limit and a deadline and checked before anything is copied (a
// refusal leaves the system as it was). Empty input answers an empty
// identifier: the installer could not pass it on.
DesktopEntry::Request readCheckedRequest();

// Writes the entry of the bundle now at destinationPath (in the folder
// destinationDir) and its icon under /usr/local/share, in our own
// namespace of file ids. An entry or icon under that name that is not ours
// is left alone. Answers why it could not register; empty when it did.
std::string registerSystemWide(
    int destinationDir, const std::string &destinationPath, const DesktopEntry::Request &request);

} // namespace Train

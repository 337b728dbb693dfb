// SPDX-FileCopyrightText: 2026 Quillet developers
// SPDX-License-Identifier: MIT
#pragma once

// The caller's Trash (freedesktop.org Trash specification): where an old
// copy goes instead of being deleted.
#include "caller.h"

#include <string>

namespace Train {

// Moves dir/name, which came from `original`, into the caller's Trash.
// The trash folders and the info file are found and made by a child that
// runs as the caller, with the caller's rights only; root then moves the
// item in by descriptor and hands what the caller could read before over
// to the caller. The home trash when the home folder is on the item's file
// system, else the volume's "$topdir/.Trash/$uid" (an administrator's
// sticky .Trash) or "$topdir/.Trash-$uid", where the caller can make it.
// False, and the item where it was, when no trash can take it.
bool moveToTrash(
    const Caller &caller, int dir, const std::string &name, const std::string &original);

} // namespace Train

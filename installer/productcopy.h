// SPDX-FileCopyrightText: 2026 Quillet developers
// SPDX-License-Identifier: MIT
#pragma once

#include <QString>

// Putting a product bundle into place without ever losing the user's copy.
namespace ProductCopy {

enum Status { Copied = 0, CouldNotTrash = 1, CopyFailed = 2 };

// Copies the bundle (and the wrapper folder's items beside it) to the
// destination, as the current user. The new bundle is first copied to a
// hidden staging name in the destination's folder and then exchanged with
// the old copy in one step (renameat2 RENAME_EXCHANGE), so that at every
// moment the destination holds either the old bundle or the complete new
// one; the old one then goes to the Trash. Leftovers of an earlier run that
// was stopped are put in the Trash first.
int installProductCopy(const QString &source, const QString &destination, const QString &wrapper);

// A recursive copy that keeps symbolic links, modes and modification
// times; false (and nothing left at `to`) on failure.
bool copyTree(const QString &from, const QString &to, QString *error = nullptr);

// The staging name used for a destination by this process.
QString stagingPath(const QString &destination);

} // namespace ProductCopy

// The user's Trash, as the freedesktop.org Trash specification lays it out.
namespace Trash {

// Moves the item at `path` into the Trash with a .trashinfo that names
// `originalPath` (the item's own path when empty) as where it came from.
// Uses the home trash when the item is on the home trash's file system,
// else the volume's "$topdir/.Trash-$uid". Answers the path in the Trash,
// or an empty string when the item could not be moved (it is then where it
// was).
QString moveToTrash(const QString &path, const QString &originalPath = QString());

} // namespace Trash

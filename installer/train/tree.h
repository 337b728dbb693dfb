// SPDX-FileCopyrightText: 2026 Quillet developers
// SPDX-License-Identifier: MIT
#pragma once

// Writing what the reader describes below a held folder, and removing a
// tree of our own, both by descriptor, iteratively, within the limits.
#include "common.h"
#include "reader.h"

#include <string>

namespace Train {

// The budget one run spends over all its copies.
struct Budget
{
    long entries = 0;
    long long bytes = 0;
};

struct CopyResult
{
    int status = Installed; // or CopyFailed, TooLarge, Interrupted
    std::string why;
};

// Makes `name` in `dir` (it must not exist) and fills it with the tree the
// reader sends. Modes are kept without set-user-ID, set-group-ID, sticky
// and world-write bits; times are kept; a file gets at most the size the
// reader listed, its holes stay holes. The folder is made 0700 and gets its
// own mode only when all of it is written. `marked` tags the new folder as
// a staging copy of ours (see markStaging). On failure the partial copy is
// removed again.
CopyResult receiveTree(
    Reader &reader, int dir, const std::string &name, Budget &budget, bool marked);

// Staging copies made as root carry a mark only root can set (a trusted
// extended attribute), and are locked while their run lasts: a leftover
// with the mark whose lock is free is provably a partial copy of ours.
bool markStaging(int fd);
bool unmarkStaging(int fd);
bool isUnlockedStaging(int dir, const std::string &name);
// The held lock of this run's staging folder (kept open until exit).
void lockStaging(int fd);

// Removes dir/name and everything below it without following links; only
// when dir/name is still the item `expected` names.
bool removeTree(int dir, const std::string &name, const struct stat &expected);

} // namespace Train

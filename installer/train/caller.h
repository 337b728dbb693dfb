// SPDX-FileCopyrightText: 2026 Quillet developers
// SPDX-License-Identifier: MIT
#pragma once

// Who asked for the run, and the process the helper starts as.
#include <string>
#include <sys/stat.h>
#include <sys/types.h>
#include <vector>

namespace Train {

struct Caller
{
    uid_t uid = 0;
    gid_t gid = 0;
    std::vector<gid_t> groups; // all of them, the primary group included
    std::string home;

    // Whether the caller could read (and, for a folder, enter) an item
    // with these owner and mode bits, as the kernel would decide.
    bool mayRead(const struct stat &st) const;
};

// The caller: PKEXEC_UID (digits only) when pkexec started us, else the
// real user id. Its passwd entry names the primary group and home folder,
// the group database the other groups. Refuses anything else.
Caller identifyCaller();

// Makes the process start clean whatever its starter left it: resource
// limits reset (no core files), descriptors above standard error closed,
// the environment emptied, umask 022, signals at their defaults with the
// ones that stop a run routed to a clean-up.
void resetProcess();

// Turns this process into the caller for good: groups, group id and user
// id, real, effective and saved. Answers false when any step failed (the
// process must then not go on).
bool becomeCaller(const Caller &caller);

// Whether a signal asked the run to stop.
bool stopRequested();

} // namespace Train

// SPDX-FileCopyrightText: 2026 Quillet developers
// SPDX-License-Identifier: MIT
#pragma once

// Reading as the caller. A child process that has become the caller opens
// the source tree and describes it, entry by entry, over a socket: folders
// and links by their names and metadata, regular files as open read-only
// descriptors. Root never opens a path inside the source: what it gets is
// what the caller could read.
#include "caller.h"
#include "common.h"

#include <cstdint>
#include <string>
#include <sys/types.h>

namespace Train {

// One entry as it travels; a folder's entries come between its Folder and
// its EndFolder record, depth first.
struct Entry
{
    enum Kind : uint8_t { Folder = 1, EndFolder, File, Link, Failure, Done };
    Kind kind = Done;
    std::string name; // empty for the top folder
    std::string text; // a link's target; a failure's reason
    mode_t mode = 0; // a Failure's: the exit status it calls for
    off_t size = 0;
    struct timespec atime = {}, mtime = {};
    Fd file; // File: the open descriptor
};

class Reader
{
public:
    // Starts the child reading the folder at `path` as the caller. Top
    // level entries named `skip` are left out (the product inside its
    // wrapper folder). Refuses when the child cannot be started.
    Reader(const Caller &caller, const std::string &path, const std::string &skip = {});
    ~Reader();
    Reader(const Reader &) = delete;
    Reader &operator=(const Reader &) = delete;

    // The next entry, checked for form (names without '/', NUL, "." or
    // "..", lengths, a regular file behind every descriptor). A child that
    // stops, dies, stays silent too long or says anything malformed ends
    // in a Failure entry; so does a stop request.
    Entry next();

private:
    pid_t m_child = -1;
    Fd m_socket;
};

} // namespace Train

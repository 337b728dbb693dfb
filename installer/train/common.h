// SPDX-FileCopyrightText: 2026 Quillet developers
// SPDX-License-Identifier: MIT
#pragma once

// What every part of the helper shares: owned descriptors, the exit
// statuses, refusing, and walking a path without following links.
#include <string>
#include <sys/stat.h>
#include <sys/types.h>
#include <utility>
#include <vector>

namespace Train {

// Exit statuses. Anything but Installed leaves the destination as it was.
enum Exit {
    Installed = 0,
    Refused = 2, // the arguments, the caller or the places named are not acceptable
    CopyFailed = 3, // reading or writing failed; nothing was replaced
    TrashFailed = 4, // the old copy could not go to the Trash; nothing was replaced
    TooLarge = 5, // the tree is deeper, has more entries or more bytes than allowed
    Interrupted = 6, // a signal or a reader that stopped answering ended the run
};

// Limits on what one run copies, whatever the source holds.
constexpr int kMaxDepth = 512;
constexpr long kMaxEntries = 1000000;
constexpr long long kMaxBytes = 64LL << 30;
// How long the reading child may stay silent.
constexpr int kReaderSilenceSeconds = 120;

struct Fd
{
    int fd = -1;
    Fd() = default;
    explicit Fd(int f)
        : fd(f)
    { }
    Fd(Fd &&o) noexcept
        : fd(std::exchange(o.fd, -1))
    { }
    Fd &operator=(Fd &&o) noexcept
    {
        std::swap(fd, o.fd);
        return *this;
    }
    Fd(const Fd &) = delete;
    Fd &operator=(const Fd &) = delete;
    ~Fd();
    bool valid() const { return fd >= 0; }
};

// Says "train: why" on standard error, undoes what the run has made so far
// (see onExit) and exits with the status.
[[noreturn]] void refuse(const std::string &why, int status = Refused);
// Said, and the run goes on.
void warn(const std::string &what);
// Registers the clean-up that refuse() and a signal run before exiting
// (removing a staging folder); one at a time, nullptr clears it.
void onExit(void (*cleanup)());

// The components of an absolute path; refuses a relative path, an empty,
// "." or ".." component and control characters.
std::vector<std::string> components(const std::string &path);

// Opens a folder from "/" without following links in any component
// (openat2 with RESOLVE_NO_SYMLINKS where the kernel has it, else one
// O_NOFOLLOW step per component); -1 with errno set when it cannot.
int openFolder(const std::vector<std::string> &parts, size_t count);
int openFolder(const std::string &path);

// One name inside a folder, never following a link.
int openFolderAt(int dir, const std::string &name);

bool sameFile(const struct stat &a, const struct stat &b);

// Whether s is longer than suffix and ends with it.
bool endsWith(const std::string &s, const std::string &suffix);

} // namespace Train

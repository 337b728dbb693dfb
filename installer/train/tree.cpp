// SPDX-FileCopyrightText: 2026 Quillet developers
// SPDX-License-Identifier: MIT
#include "tree.h"

#include "caller.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <dirent.h>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/xattr.h>
#include <unistd.h>
#include <vector>

namespace Train {

namespace {

constexpr const char *kStagingMark = "trusted.quillet.staging";

mode_t keptMode(mode_t mode)
{
    return mode & 0777 & ~mode_t(S_IWOTH);
}

void setTimes(int fd, const Entry &e)
{
    const struct timespec times[2] = { e.atime, e.mtime };
    ::futimens(fd, times);
}

// Copies [from, to) of `in` to the same offsets of `out`: in the kernel
// where it can, through a buffer where it cannot.
bool copyRange(int in, int out, off_t from, off_t to, Budget &budget, CopyResult &result)
{
    static std::vector<char> buffer;
    while (from < to) {
        if (stopRequested()) {
            result = { Interrupted, "stopped by a signal" };
            return false;
        }
        const size_t chunk = size_t(std::min<off_t>(to - from, off_t(64) << 20));
        off_t inAt = from, outAt = from;
        ssize_t n = ::copy_file_range(in, &inAt, out, &outAt, chunk, 0);
        if (n < 0 && errno != EINTR) {
            if (buffer.empty())
                buffer.resize(1 << 20);
            n = ::pread(in, buffer.data(), std::min(chunk, buffer.size()), from);
            for (ssize_t done = 0; n > 0 && done < n;) {
                const ssize_t w
                    = ::pwrite(out, buffer.data() + done, size_t(n - done), from + done);
                if (w <= 0) {
                    result = { CopyFailed, std::strerror(errno) };
                    return false;
                }
                done += w;
            }
        }
        if (n < 0 && errno == EINTR)
            continue;
        if (n < 0) {
            result = { CopyFailed, std::strerror(errno) };
            return false;
        }
        if (n == 0)
            break; // the file is shorter now than it was listed
        from += n;
        budget.bytes += n;
        if (budget.bytes > kMaxBytes) {
            result = { TooLarge, "more than " + std::to_string(kMaxBytes >> 30) + " GiB" };
            return false;
        }
    }
    return true;
}

// A regular file: at most its listed size, holes kept as holes.
bool copyFile(const Entry &e, int dir, Budget &budget, CopyResult &result)
{
    const Fd out(
        ::openat(dir, e.name.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600));
    struct stat st;
    if (!out.valid() || ::fstat(e.file.fd, &st) != 0) {
        result = { CopyFailed, "cannot write " + e.name + ": " + std::strerror(errno) };
        return false;
    }
    const off_t end = std::min(e.size, st.st_size);
    for (off_t at = 0; at < end;) {
        off_t data = ::lseek(e.file.fd, at, SEEK_DATA);
        off_t hole = end;
        if (data < 0 && errno == ENXIO)
            break; // a hole up to the end
        if (data < 0)
            data = at; // no hole information: all of it is data
        else if (const off_t h = ::lseek(e.file.fd, data, SEEK_HOLE); h >= 0)
            hole = std::min(h, end);
        if (data >= end)
            break;
        if (!copyRange(e.file.fd, out.fd, data, hole, budget, result)) {
            if (result.why.find(e.name) == std::string::npos)
                result.why = "cannot copy " + e.name + ": " + result.why;
            return false;
        }
        at = hole;
    }
    if (::ftruncate(out.fd, end) != 0 || ::fchmod(out.fd, keptMode(e.mode)) != 0) {
        result = { CopyFailed, "cannot write " + e.name + ": " + std::strerror(errno) };
        return false;
    }
    setTimes(out.fd, e);
    return true;
}

// Answers the failure after removing the partial copy.
CopyResult failed(int dir, const std::string &name, const struct stat &made, CopyResult result)
{
    removeTree(dir, name, made);
    return result;
}

} // namespace

CopyResult receiveTree(
    Reader &reader, int dir, const std::string &name, Budget &budget, bool marked)
{
    Entry top = reader.next();
    if (top.kind != Entry::Folder || !top.name.empty())
        return { top.kind == Entry::Failure ? int(top.mode) : CopyFailed,
            top.kind == Entry::Failure ? top.text : "the reader sent no folder" };
    if (::mkdirat(dir, name.c_str(), 0700) != 0)
        return { CopyFailed, "cannot make " + name + ": " + std::strerror(errno) };
    Fd made(openFolderAt(dir, name.c_str()));
    struct stat madeStat;
    if (!made.valid() || ::fstat(made.fd, &madeStat) != 0)
        return { CopyFailed, "cannot open " + name };
    if (marked) {
        markStaging(made.fd);
        lockStaging(made.fd);
    }

    struct Level
    {
        Fd fd;
        Entry folder;
    };
    std::vector<Level> levels;
    levels.push_back({ std::move(made), std::move(top) });
    for (;;) {
        Entry e = reader.next();
        if (e.kind == Entry::Failure) {
            levels.clear();
            return failed(dir, name, madeStat, { int(e.mode), e.text });
        }
        if (e.kind == Entry::Done && levels.empty())
            return {};
        if (e.kind == Entry::Done || levels.empty()) {
            levels.clear();
            return failed(dir, name, madeStat, { CopyFailed, "the reader sent a malformed tree" });
        }
        const int here = levels.back().fd.fd;
        if (e.kind == Entry::EndFolder) {
            // Its own mode only now: until it is complete nobody else enters.
            ::fchmod(here, keptMode(levels.back().folder.mode));
            setTimes(here, levels.back().folder);
            levels.pop_back();
            continue;
        }
        if (++budget.entries > kMaxEntries) {
            levels.clear();
            return failed(dir, name, madeStat,
                { TooLarge, "more than " + std::to_string(kMaxEntries) + " entries" });
        }
        CopyResult result;
        if (e.kind == Entry::Folder) {
            if (levels.size() > size_t(kMaxDepth)) {
                result = { TooLarge, "folders nested deeper than " + std::to_string(kMaxDepth) };
            } else if (::mkdirat(here, e.name.c_str(), 0700) != 0) {
                result = { CopyFailed, "cannot make " + e.name + ": " + std::strerror(errno) };
            } else {
                Fd sub(openFolderAt(here, e.name));
                if (sub.valid()) {
                    levels.push_back({ std::move(sub), std::move(e) });
                    continue;
                }
                result = { CopyFailed, "cannot open " + e.name + ": " + std::strerror(errno) };
            }
        } else if (e.kind == Entry::File) {
            if (copyFile(e, here, budget, result))
                continue;
        } else if (e.kind == Entry::Link) {
            if (::symlinkat(e.text.c_str(), here, e.name.c_str()) == 0) {
                const struct timespec times[2] = { e.atime, e.mtime };
                ::utimensat(here, e.name.c_str(), times, AT_SYMLINK_NOFOLLOW);
                continue;
            }
            result = { CopyFailed, "cannot make the link " + e.name + ": " + std::strerror(errno) };
        }
        levels.clear();
        return failed(dir, name, madeStat, result);
    }
}

bool markStaging(int fd)
{
    return ::fsetxattr(fd, kStagingMark, "1", 1, 0) == 0;
}

bool unmarkStaging(int fd)
{
    return ::fremovexattr(fd, kStagingMark) == 0 || errno == ENODATA;
}

void lockStaging(int fd)
{
    // Kept open, and so locked, until the process ends.
    const int held = ::fcntl(fd, F_DUPFD_CLOEXEC, 3);
    if (held >= 0)
        ::flock(held, LOCK_EX | LOCK_NB);
}

bool isUnlockedStaging(int dir, const std::string &name)
{
    const Fd fd(openFolderAt(dir, name));
    struct stat st;
    char value[2] = {};
    return fd.valid() && ::fstat(fd.fd, &st) == 0 && st.st_uid == 0
        && ::fgetxattr(fd.fd, kStagingMark, value, sizeof value) == 1 && value[0] == '1'
        && ::flock(fd.fd, LOCK_EX | LOCK_NB) == 0;
}

bool removeTree(int dir, const std::string &name, const struct stat &expected)
{
    struct stat st;
    if (::fstatat(dir, name.c_str(), &st, AT_SYMLINK_NOFOLLOW) != 0 || !sameFile(st, expected))
        return false;
    if (!S_ISDIR(st.st_mode))
        return ::unlinkat(dir, name.c_str(), 0) == 0;

    struct Level
    {
        Fd fd;
        DIR *listing;
        std::string name;
        int passes;
    };
    std::vector<Level> levels;
    auto enter = [&levels](int parent, const std::string &child) {
        Fd fd(openFolderAt(parent, child));
        DIR *listing = fd.valid() ? ::fdopendir(::dup(fd.fd)) : nullptr;
        if (!listing)
            return false;
        levels.push_back({ std::move(fd), listing, child, 0 });
        return true;
    };
    if (!enter(dir, name))
        return false;
    bool ok = true;
    while (!levels.empty()) {
        Level &level = levels.back();
        const dirent *item = ::readdir(level.listing);
        if (item) {
            const std::string child = item->d_name;
            struct stat cs;
            if (child == "." || child == ".."
                || ::fstatat(level.fd.fd, child.c_str(), &cs, AT_SYMLINK_NOFOLLOW) != 0)
                continue;
            if (!S_ISDIR(cs.st_mode))
                ::unlinkat(level.fd.fd, child.c_str(), 0);
            else if (levels.size() > size_t(kMaxDepth) + 2 || !enter(level.fd.fd, child))
                ok = false;
            continue;
        }
        const int parent = levels.size() > 1 ? levels[levels.size() - 2].fd.fd : dir;
        ::closedir(level.listing);
        const std::string done = level.name;
        const int passes = level.passes;
        Fd kept = std::move(level.fd);
        levels.pop_back();
        if (::unlinkat(parent, done.c_str(), AT_REMOVEDIR) == 0)
            continue;
        if (errno == ENOTEMPTY && passes < 3) {
            // Entries the listing missed while others went: once more.
            DIR *again = ::fdopendir(::dup(kept.fd));
            if (again) {
                levels.push_back({ std::move(kept), again, done, passes + 1 });
                continue;
            }
        }
        ok = false;
    }
    return ok;
}

} // namespace Train

// SPDX-FileCopyrightText: 2026 Quillet developers
// SPDX-License-Identifier: MIT
#include "common.h"

#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <linux/openat2.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace Train {

namespace {
void (*g_cleanup)() = nullptr;
}

Fd::~Fd()
{
    if (fd >= 0)
        ::close(fd);
}

void onExit(void (*cleanup)())
{
    g_cleanup = cleanup;
}

void warn(const std::string &what)
{
    std::fprintf(stderr, "train: %s\n", what.c_str());
}

void refuse(const std::string &why, int status)
{
    warn(why);
    if (void (*cleanup)() = std::exchange(g_cleanup, nullptr))
        cleanup();
    std::exit(status);
}

std::vector<std::string> components(const std::string &path)
{
    if (path.empty() || path[0] != '/' || path.size() >= PATH_MAX)
        refuse("not an absolute path: " + path);
    std::vector<std::string> parts;
    size_t start = 1;
    while (start <= path.size()) {
        const size_t end = path.find('/', start);
        const std::string part
            = path.substr(start, end == std::string::npos ? std::string::npos : end - start);
        if (part.empty() && end != std::string::npos)
            refuse("empty component in " + path);
        if (part == "." || part == "..")
            refuse("\".\" or \"..\" in " + path);
        for (unsigned char c : part)
            if (c < 0x20 || c == 0x7f)
                refuse("control character in " + path);
        if (!part.empty())
            parts.push_back(part);
        if (end == std::string::npos)
            break;
        start = end + 1;
    }
    if (parts.empty())
        refuse("no name in " + path);
    return parts;
}

int openFolderAt(int dir, const std::string &name)
{
    return ::openat(dir, name.c_str(), O_DIRECTORY | O_NOFOLLOW | O_RDONLY | O_CLOEXEC);
}

int openFolder(const std::vector<std::string> &parts, size_t count)
{
    Fd root(::open("/", O_DIRECTORY | O_RDONLY | O_CLOEXEC));
    if (!root.valid() || count == 0)
        return std::exchange(root.fd, -1);
    std::string relative;
    for (size_t i = 0; i < count; ++i)
        relative += (i ? "/" : "") + parts[i];
    struct open_how how = {};
    how.flags = O_DIRECTORY | O_RDONLY | O_CLOEXEC;
    how.resolve = RESOLVE_NO_SYMLINKS | RESOLVE_NO_MAGICLINKS | RESOLVE_BENEATH;
    const long fd = ::syscall(SYS_openat2, root.fd, relative.c_str(), &how, sizeof how);
    if (fd >= 0 || (errno != ENOSYS && errno != EPERM))
        return int(fd);
    // No openat2 (older kernels, or a seccomp filter that forbids it).
    Fd dir = std::move(root);
    for (size_t i = 0; i < count; ++i) {
        dir = Fd(openFolderAt(dir.fd, parts[i]));
        if (!dir.valid())
            return -1;
    }
    return std::exchange(dir.fd, -1);
}

int openFolder(const std::string &path)
{
    const std::vector<std::string> parts = components(path);
    return openFolder(parts, parts.size());
}

bool sameFile(const struct stat &a, const struct stat &b)
{
    return a.st_dev == b.st_dev && a.st_ino == b.st_ino;
}

bool endsWith(const std::string &s, const std::string &suffix)
{
    return s.size() > suffix.size()
        && s.compare(s.size() - suffix.size(), suffix.size(), suffix) == 0;
}

} // namespace Train

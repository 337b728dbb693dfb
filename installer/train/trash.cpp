// SPDX-FileCopyrightText: 2026 Quillet developers
// SPDX-License-Identifier: MIT
//
// Root never makes or names anything in the caller's folders: a child that
// has become the caller opens (and makes) the trash folders and writes the
// info file, then hands root the two folders' descriptors. Root moves the
// item in with renameat2(RENAME_NOREPLACE) from descriptor to descriptor.
// A trash the caller cannot make (a volume whose top folder is not theirs
// to write, such as "/") is no trash: the old copy stays where it is.
#include "trash.h"

#include "common.h"

#include <cctype>
#include <cerrno>
#include <climits>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <dirent.h>
#include <fcntl.h>
#include <poll.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

namespace Train {

namespace {

std::string percentEncoded(const std::string &path)
{
    static const char hex[] = "0123456789ABCDEF";
    std::string out;
    for (unsigned char c : path) {
        if (std::isalnum(c) || std::strchr("/-_.~", c))
            out += char(c);
        else
            out += std::string("%") + hex[c >> 4] + hex[c & 15];
    }
    return out;
}

// As the caller: a folder in dir, made 0700 where missing; it must be the
// caller's, not a link.
int ownFolder(int dir, const char *name)
{
    if (::mkdirat(dir, name, 0700) != 0 && errno != EEXIST)
        return -1;
    const int fd = openFolderAt(dir, name);
    struct stat st;
    if (fd >= 0 && (::fstat(fd, &st) != 0 || st.st_uid != ::geteuid())) {
        ::close(fd);
        return -1;
    }
    return fd;
}

struct Place
{
    Fd files, info;
    std::string top; // where relative Path= values start; empty: absolute
};

bool openFilesAndInfo(int trash, Place &place)
{
    place.files = Fd(ownFolder(trash, "files"));
    place.info = Fd(ownFolder(trash, "info"));
    return place.files.valid() && place.info.valid();
}

bool homeTrash(const std::string &home, dev_t device, Place &place)
{
    Fd dir(openFolder(home));
    struct stat st;
    if (!dir.valid() || ::fstat(dir.fd, &st) != 0 || st.st_dev != device)
        return false;
    for (const char *part : { ".local", "share", "Trash" }) {
        dir = Fd(ownFolder(dir.fd, part));
        if (!dir.valid())
            return false;
    }
    return openFilesAndInfo(dir.fd, place);
}

// Trash specification, "Trash directories": the top folder of the volume
// is the last one on the way up to "/" on the same device.
bool volumeTrash(const std::string &folder, dev_t device, uid_t uid, Place &place)
{
    std::string top = folder;
    for (std::string up = folder; up.size() > 1;) {
        up = up.substr(0, up.rfind('/'));
        if (up.empty())
            up = "/";
        struct stat st;
        if (::stat(up.c_str(), &st) != 0 || st.st_dev != device)
            break;
        top = up;
    }
    const Fd topFd(top == "/" ? ::open("/", O_DIRECTORY | O_RDONLY | O_CLOEXEC) : openFolder(top));
    if (!topFd.valid())
        return false;
    place.top = top;
    const std::string uidName = std::to_string(uid);
    // An administrator's shared .Trash: root's, sticky, not a link.
    const Fd shared(openFolderAt(topFd.fd, ".Trash"));
    struct stat st;
    if (shared.valid() && ::fstat(shared.fd, &st) == 0 && st.st_uid == 0
        && (st.st_mode & S_ISVTX)) {
        const Fd own(ownFolder(shared.fd, uidName.c_str()));
        if (own.valid() && openFilesAndInfo(own.fd, place))
            return true;
    }
    const Fd own(ownFolder(topFd.fd, (".Trash-" + uidName).c_str()));
    return own.valid() && openFilesAndInfo(own.fd, place);
}

// The child: finds the trash, reserves the entry's name with its info file
// (made first, O_EXCL, as the freedesktop Trash specification asks) and
// sends both folders.
[[noreturn]] void prepareTrash(
    int socket, const Caller &caller, const std::string &original, dev_t device)
{
    Place place;
    const std::string folder = original.substr(0, original.rfind('/'));
    if (!homeTrash(caller.home, device, place) && !volumeTrash(folder, device, caller.uid, place))
        ::_exit(1);
    std::string recorded = original;
    if (!place.top.empty())
        recorded = place.top == "/" ? original.substr(1) : original.substr(place.top.size() + 1);
    char date[32];
    const time_t now = std::time(nullptr);
    struct tm local;
    std::strftime(date, sizeof date, "%Y-%m-%dT%H:%M:%S", ::localtime_r(&now, &local));
    const std::string text
        = "[Trash Info]\nPath=" + percentEncoded(recorded) + "\nDeletionDate=" + date + "\n";
    const std::string base = original.substr(original.rfind('/') + 1);
    for (int n = 1; n < 1000; ++n) {
        const std::string entry = n == 1 ? base : base + "." + std::to_string(n);
        struct stat st;
        if (::fstatat(place.files.fd, entry.c_str(), &st, AT_SYMLINK_NOFOLLOW) == 0)
            continue;
        const Fd info(::openat(place.info.fd, (entry + ".trashinfo").c_str(),
            O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600));
        if (!info.valid() && errno == EEXIST)
            continue;
        if (!info.valid() || ::write(info.fd, text.data(), text.size()) != ssize_t(text.size()))
            ::_exit(1);
        struct iovec part = { const_cast<char *>(entry.data()), entry.size() };
        struct msghdr message = {};
        message.msg_iov = &part;
        message.msg_iovlen = 1;
        alignas(struct cmsghdr) char control[CMSG_SPACE(2 * sizeof(int))] = {};
        message.msg_control = control;
        message.msg_controllen = sizeof control;
        struct cmsghdr *header = CMSG_FIRSTHDR(&message);
        header->cmsg_level = SOL_SOCKET;
        header->cmsg_type = SCM_RIGHTS;
        header->cmsg_len = CMSG_LEN(2 * sizeof(int));
        const int fds[2] = { place.files.fd, place.info.fd };
        std::memcpy(CMSG_DATA(header), fds, sizeof fds);
        ::_exit(::sendmsg(socket, &message, MSG_NOSIGNAL) > 0 ? 0 : 1);
    }
    ::_exit(1);
}

// Hands what lies in the Trash now over to the caller, children first: a
// folder stays root's, closed to others, until all of it is done; the walk
// goes by descriptor without following links. Intended: what the caller
// could not read before stays root's (handing it over would let them read
// it), and so do an item with a second link (its other name may be
// anywhere) and a folder others may write (it could change under the walk).
bool giveToCaller(int fd, bool folder, const Caller &caller, int depth = 0)
{
    struct stat st;
    if (::fstat(fd, &st) != 0)
        return false;
    if (st.st_uid == caller.uid)
        return true;
    if (st.st_uid != 0 || !caller.mayRead(st))
        return false;
    if (!folder)
        return st.st_nlink == 1
            && ::fchownat(fd, "", caller.uid, caller.gid, AT_EMPTY_PATH | AT_SYMLINK_NOFOLLOW) == 0;
    if ((st.st_mode & (S_IWGRP | S_IWOTH)) || depth > kMaxDepth)
        return false;
    DIR *listing = ::fdopendir(::dup(fd));
    if (!listing)
        return false;
    bool all = true;
    while (const dirent *item = ::readdir(listing)) {
        const char *name = item->d_name;
        if (std::strcmp(name, ".") == 0 || std::strcmp(name, "..") == 0)
            continue;
        struct stat child;
        if (::fstatat(fd, name, &child, AT_SYMLINK_NOFOLLOW) != 0) {
            all = false;
        } else if (S_ISDIR(child.st_mode)) {
            const Fd sub(openFolderAt(fd, name));
            all = sub.valid() && giveToCaller(sub.fd, true, caller, depth + 1) && all;
        } else if (child.st_uid == 0) {
            all = (S_ISLNK(child.st_mode) || caller.mayRead(child)) && child.st_nlink == 1
                && ::fchownat(fd, name, caller.uid, caller.gid, AT_SYMLINK_NOFOLLOW) == 0 && all;
        } else {
            all = child.st_uid == caller.uid && all;
        }
    }
    ::closedir(listing);
    return ::fchown(fd, caller.uid, caller.gid) == 0 && all;
}

} // namespace

bool moveToTrash(
    const Caller &caller, int dir, const std::string &name, const std::string &original)
{
    struct stat item;
    if (::fstatat(dir, name.c_str(), &item, AT_SYMLINK_NOFOLLOW) != 0)
        return false;
    const bool isFolder = S_ISDIR(item.st_mode);
    const Fd held(::openat(
        dir, name.c_str(), (isFolder ? O_DIRECTORY | O_RDONLY : O_PATH) | O_NOFOLLOW | O_CLOEXEC));
    struct stat heldStat;
    if (!held.valid() || ::fstat(held.fd, &heldStat) != 0 || !sameFile(heldStat, item))
        return false;

    int pair[2];
    if (::socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, pair) != 0)
        return false;
    const pid_t parent = ::getpid();
    const pid_t child = ::fork();
    if (child == 0) {
        if (::dup2(pair[1], 3) != 3)
            ::_exit(1);
        ::syscall(SYS_close_range, 4U, ~0U, 0U);
        if (!becomeCaller(caller))
            ::_exit(1);
        ::prctl(PR_SET_PDEATHSIG, SIGKILL);
        if (::getppid() != parent)
            ::_exit(1);
        prepareTrash(3, caller, original, item.st_dev);
    }
    ::close(pair[1]);
    const Fd socket(pair[0]);
    Fd files, info;
    std::string entry(NAME_MAX + 1, '\0');
    ssize_t n = -1;
    struct pollfd ready = { socket.fd, POLLIN, 0 };
    if (child > 0 && ::poll(&ready, 1, kReaderSilenceSeconds * 1000) == 1) {
        struct iovec part = { entry.data(), entry.size() };
        alignas(struct cmsghdr) char control[CMSG_SPACE(4 * sizeof(int))];
        struct msghdr message = {};
        message.msg_iov = &part;
        message.msg_iovlen = 1;
        message.msg_control = control;
        message.msg_controllen = sizeof control;
        n = ::recvmsg(socket.fd, &message, MSG_CMSG_CLOEXEC);
        std::vector<int> fds;
        for (struct cmsghdr *h = CMSG_FIRSTHDR(&message); n > 0 && h; h = CMSG_NXTHDR(&message, h))
            if (h->cmsg_level == SOL_SOCKET && h->cmsg_type == SCM_RIGHTS)
                for (size_t i = 0; i < (h->cmsg_len - CMSG_LEN(0)) / sizeof(int); ++i) {
                    int fd;
                    std::memcpy(&fd, CMSG_DATA(h) + i * sizeof(int), sizeof fd);
                    fds.push_back(fd);
                }
        if (fds.size() == 2) {
            files = Fd(fds[0]);
            info = Fd(fds[1]);
        } else {
            for (int fd : fds)
                ::close(fd);
        }
    }
    if (child > 0) {
        ::kill(child, SIGKILL);
        while (::waitpid(child, nullptr, 0) < 0 && errno == EINTR) { }
    }
    struct stat st;
    if (n <= 0 || n > NAME_MAX || !files.valid() || !info.valid() || ::fstat(files.fd, &st) != 0
        || !S_ISDIR(st.st_mode) || st.st_uid != caller.uid)
        return false;
    entry.resize(size_t(n));
    if (entry.find('/') != std::string::npos || entry.find('\0') != std::string::npos
        || entry == "." || entry == "..")
        return false;

    if (::syscall(SYS_renameat2, dir, name.c_str(), files.fd, entry.c_str(), RENAME_NOREPLACE)
        != 0) {
        ::unlinkat(info.fd, (entry + ".trashinfo").c_str(), 0);
        return false;
    }
    struct stat moved;
    if (::fstatat(files.fd, entry.c_str(), &moved, AT_SYMLINK_NOFOLLOW) != 0
        || !sameFile(moved, item) || !giveToCaller(held.fd, isFolder, caller))
        warn("the old copy is in the Trash, but not all of it is the user's");
    return true;
}

} // namespace Train

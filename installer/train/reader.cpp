// SPDX-FileCopyrightText: 2026 Quillet developers
// SPDX-License-Identifier: MIT
//
// The reading child and its records. A SOCK_SEQPACKET socket keeps record
// boundaries and carries the descriptors (SCM_RIGHTS). The child opens
// every entry with O_NOFOLLOW, regular files also with O_NONBLOCK, and
// compares what it opened with what it listed: a FIFO, device or socket
// (or one swapped in for a file) is left out, never opened for reading.
#include "reader.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <csignal>
#include <cstring>
#include <dirent.h>
#include <fcntl.h>
#include <poll.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <sys/uio.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

namespace Train {

namespace {

struct Wire
{
    uint8_t kind;
    uint8_t reserved[3];
    uint32_t nameLength;
    uint32_t textLength;
    uint32_t mode;
    int64_t size;
    int64_t atimeSec, atimeNsec, mtimeSec, mtimeNsec;
};

constexpr size_t kMaxText = PATH_MAX;
constexpr size_t kRecordSize = sizeof(Wire) + NAME_MAX + kMaxText;

// Child side. A send that fails means root is gone: nothing left to do.
void send(int socket, Entry::Kind kind, const std::string &name, const std::string &text,
    const struct stat *st = nullptr, int fd = -1)
{
    Wire wire = {};
    wire.kind = kind;
    wire.nameLength = uint32_t(name.size());
    wire.textLength = uint32_t(std::min(text.size(), kMaxText));
    if (st) {
        wire.mode = st->st_mode;
        wire.size = st->st_size;
        wire.atimeSec = st->st_atim.tv_sec;
        wire.atimeNsec = st->st_atim.tv_nsec;
        wire.mtimeSec = st->st_mtim.tv_sec;
        wire.mtimeNsec = st->st_mtim.tv_nsec;
    }
    struct iovec parts[3]
        = { { &wire, sizeof wire }, { const_cast<char *>(name.data()), name.size() },
              { const_cast<char *>(text.data()), wire.textLength } };
    struct msghdr message = {};
    message.msg_iov = parts;
    message.msg_iovlen = 3;
    alignas(struct cmsghdr) char control[CMSG_SPACE(sizeof(int))] = {};
    if (fd >= 0) {
        message.msg_control = control;
        message.msg_controllen = sizeof control;
        struct cmsghdr *header = CMSG_FIRSTHDR(&message);
        header->cmsg_level = SOL_SOCKET;
        header->cmsg_type = SCM_RIGHTS;
        header->cmsg_len = CMSG_LEN(sizeof(int));
        std::memcpy(CMSG_DATA(header), &fd, sizeof fd);
    }
    while (::sendmsg(socket, &message, MSG_NOSIGNAL) < 0)
        if (errno != EINTR)
            ::_exit(1);
}

// A failure carries the exit status it calls for in its mode field.
[[noreturn]] void fail(int socket, const std::string &why, int status = CopyFailed)
{
    struct stat st = {};
    st.st_mode = mode_t(status);
    send(socket, Entry::Failure, std::string(), why, &st);
    ::_exit(1);
}

std::string joined(const std::vector<std::string> &names, const std::string &last)
{
    std::string path;
    for (const std::string &n : names)
        path += n + "/";
    return path + last;
}

// Walks the tree depth first with one open folder per level on the heap;
// the depth is bounded, so the descriptors are too.
[[noreturn]] void readTree(int socket, const std::string &path, const std::string &skip)
{
    const Fd top(openFolder(path));
    struct stat st;
    if (!top.valid() || ::fstat(top.fd, &st) != 0)
        fail(socket,
            "cannot open " + path + " as the calling user (" + std::strerror(errno)
                + "; a symbolic link on the way is refused)");
    send(socket, Entry::Folder, std::string(), std::string(), &st);

    // Each level holds its folder and the names listed in it: one
    // descriptor per level, whatever the folders hold.
    struct Level
    {
        Fd fd;
        std::vector<std::string> names;
        size_t next = 0;
    };
    long listed = 0;
    auto list = [&](Fd fd, const std::string &where) {
        DIR *listing = ::fdopendir(::dup(fd.fd));
        if (!listing)
            fail(socket, "cannot list " + where);
        Level level { std::move(fd), {}, 0 };
        errno = 0;
        while (const dirent *item = ::readdir(listing)) {
            const std::string name = item->d_name;
            if (name != "." && name != ".." && ++listed <= kMaxEntries)
                level.names.push_back(name);
            errno = 0;
        }
        const int error = errno;
        ::closedir(listing);
        if (error != 0)
            fail(socket, "cannot list " + where + ": " + std::strerror(error));
        if (listed > kMaxEntries)
            fail(socket, "more than " + std::to_string(kMaxEntries) + " entries", TooLarge);
        return level;
    };
    std::vector<Level> levels;
    std::vector<std::string> names;
    levels.push_back(list(Fd(::dup(top.fd)), path));
    std::string target(kMaxText, '\0');
    while (!levels.empty()) {
        Level &level = levels.back();
        if (level.next == level.names.size()) {
            send(socket, Entry::EndFolder, std::string(), std::string());
            levels.pop_back();
            if (!names.empty())
                names.pop_back();
            continue;
        }
        const std::string name = level.names[level.next++];
        if (levels.size() == 1 && name == skip)
            continue;
        const std::string relative = joined(names, name);
        if (::fstatat(level.fd.fd, name.c_str(), &st, AT_SYMLINK_NOFOLLOW) != 0) {
            if (errno == ENOENT)
                continue; // gone since it was listed
            fail(socket, "cannot read " + relative + ": " + std::strerror(errno));
        }
        if (S_ISDIR(st.st_mode)) {
            if (levels.size() > size_t(kMaxDepth))
                fail(socket, "folders nested too deeply at " + relative, TooLarge);
            Fd fd(openFolderAt(level.fd.fd, name));
            struct stat opened;
            if (!fd.valid() || ::fstat(fd.fd, &opened) != 0 || !sameFile(opened, st))
                fail(socket, "cannot read " + relative + ": " + std::strerror(errno));
            send(socket, Entry::Folder, name, std::string(), &opened);
            Level sub = list(std::move(fd), relative);
            levels.push_back(std::move(sub));
            names.push_back(name);
        } else if (S_ISREG(st.st_mode)) {
            const Fd file(::openat(level.fd.fd, name.c_str(),
                O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
            if (!file.valid())
                fail(socket, "cannot read " + relative + ": " + std::strerror(errno));
            struct stat opened;
            if (::fstat(file.fd, &opened) != 0 || !S_ISREG(opened.st_mode) || !sameFile(opened, st))
                continue; // swapped for something else since it was listed
            send(socket, Entry::File, name, std::string(), &opened, file.fd);
        } else if (S_ISLNK(st.st_mode)) {
            const ssize_t n = ::readlinkat(level.fd.fd, name.c_str(), target.data(), target.size());
            if (n <= 0 || size_t(n) >= target.size())
                fail(socket, "cannot read the link " + relative);
            send(socket, Entry::Link, name, target.substr(0, size_t(n)), &st);
        }
        // Devices, pipes and sockets are not part of a product.
    }
    send(socket, Entry::Done, std::string(), std::string());
    ::_exit(0);
}

bool validName(const std::string &name)
{
    return !name.empty() && name != "." && name != ".." && name.find('/') == std::string::npos
        && name.find('\0') == std::string::npos;
}

Entry failure(const std::string &why, int status = CopyFailed)
{
    Entry entry;
    entry.kind = Entry::Failure;
    entry.text = why;
    entry.mode = mode_t(status);
    return entry;
}

} // namespace

Reader::Reader(const Caller &caller, const std::string &path, const std::string &skip)
{
    int pair[2];
    if (::socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, pair) != 0)
        refuse("cannot make the reader's socket", CopyFailed);
    const pid_t parent = ::getpid();
    m_child = ::fork();
    if (m_child < 0)
        refuse("cannot start the reader", CopyFailed);
    if (m_child == 0) {
        // Only the socket goes along: none of root's descriptors stay open
        // in a process that runs as the caller.
        if (::dup2(pair[1], 3) != 3)
            ::_exit(1);
        ::syscall(SYS_close_range, 4U, ~0U, 0U);
        const int socket = 3;
        if (!becomeCaller(caller))
            fail(socket, "cannot become the calling user");
        ::prctl(PR_SET_PDEATHSIG, SIGKILL);
        if (::getppid() != parent)
            ::_exit(1);
        readTree(socket, path, skip);
    }
    ::close(pair[1]);
    m_socket = Fd(pair[0]);
}

Reader::~Reader()
{
    if (m_child > 0) {
        ::kill(m_child, SIGKILL);
        while (::waitpid(m_child, nullptr, 0) < 0 && errno == EINTR) { }
    }
}

Entry Reader::next()
{
    for (;;) {
        if (stopRequested())
            return failure("stopped by a signal", Interrupted);
        struct pollfd ready = { m_socket.fd, POLLIN, 0 };
        const int n = ::poll(&ready, 1, kReaderSilenceSeconds * 1000);
        if (n < 0 && errno == EINTR)
            continue;
        if (n == 0)
            return failure("the reader stopped answering");
        if (n < 0)
            return failure("cannot wait for the reader");
        break;
    }
    static std::vector<char> buffer(kRecordSize);
    struct iovec part = { buffer.data(), buffer.size() };
    alignas(struct cmsghdr) char control[CMSG_SPACE(sizeof(int) * 4)];
    struct msghdr message = {};
    message.msg_iov = &part;
    message.msg_iovlen = 1;
    message.msg_control = control;
    message.msg_controllen = sizeof control;
    ssize_t n;
    while ((n = ::recvmsg(m_socket.fd, &message, MSG_CMSG_CLOEXEC)) < 0 && errno == EINTR) { }

    // Every descriptor that came along is closed unless it is the one a
    // File record may carry.
    std::vector<int> fds;
    for (struct cmsghdr *h = CMSG_FIRSTHDR(&message); h; h = CMSG_NXTHDR(&message, h))
        if (h->cmsg_level == SOL_SOCKET && h->cmsg_type == SCM_RIGHTS)
            for (size_t i = 0; i < (h->cmsg_len - CMSG_LEN(0)) / sizeof(int); ++i) {
                int fd;
                std::memcpy(&fd, CMSG_DATA(h) + i * sizeof(int), sizeof fd);
                fds.push_back(fd);
            }
    Entry entry;
    if (fds.size() == 1)
        entry.file = Fd(fds[0]);
    else
        for (int fd : fds)
            ::close(fd);

    if (n == 0)
        return failure("the reader ended before the end of the tree");
    if (n < 0 || (message.msg_flags & (MSG_TRUNC | MSG_CTRUNC)) || size_t(n) < sizeof(Wire)
        || fds.size() > 1)
        return failure("the reader sent a malformed record");
    Wire wire;
    std::memcpy(&wire, buffer.data(), sizeof wire);
    if (wire.nameLength > NAME_MAX || wire.textLength > kMaxText
        || size_t(n) != sizeof wire + wire.nameLength + wire.textLength || wire.kind < Entry::Folder
        || wire.kind > Entry::Done || wire.size < 0)
        return failure("the reader sent a malformed record");
    entry.kind = Entry::Kind(wire.kind);
    entry.name.assign(buffer.data() + sizeof wire, wire.nameLength);
    entry.text.assign(buffer.data() + sizeof wire + wire.nameLength, wire.textLength);
    entry.mode = mode_t(wire.mode);
    entry.size = off_t(wire.size);
    entry.atime = { time_t(wire.atimeSec), long(wire.atimeNsec) };
    entry.mtime = { time_t(wire.mtimeSec), long(wire.mtimeNsec) };
    if (entry.kind == Entry::Failure)
        return failure(entry.text.empty() ? "the reader failed" : entry.text,
            entry.mode == TooLarge ? TooLarge : CopyFailed);
    const bool named = entry.kind == Entry::File || entry.kind == Entry::Link
        || (entry.kind == Entry::Folder && !entry.name.empty());
    if ((named && !validName(entry.name)) || (!named && !entry.name.empty())
        || (entry.kind == Entry::File) != entry.file.valid()
        || (entry.kind == Entry::Link
            && (entry.text.empty() || entry.text.find('\0') != std::string::npos)))
        return failure("the reader sent a malformed record");
    struct stat st;
    if (entry.file.valid() && (::fstat(entry.file.fd, &st) != 0 || !S_ISREG(st.st_mode)))
        return failure("the reader sent something other than a file for " + entry.name);
    return entry;
}

} // namespace Train

// SPDX-FileCopyrightText: 2026 Quillet developers
// SPDX-License-Identifier: MIT
//
// train: puts a product bundle into a shared Applications folder as root.
//
//   train [--desktop-entry] SOURCE.app DESTINATION.app [WRAPPER]
//
// Started through pkexec by the installer of the user named by PKEXEC_UID
// (without pkexec: the calling user). It trusts nothing that user controls:
//  - paths must be absolute, without "." or ".." components;
//  - no path component may be a symbolic link: every path is walked from "/"
//    with openat(O_NOFOLLOW), and every later step works on those
//    descriptors, so nothing can be swapped underneath;
//  - the source must be an ".app" folder that the user can read (checked by
//    a child process running as the user);
//  - the destination must be an ".app" directly in an Applications folder
//    (/opt, or ~/Applications of that user), or in a wrapper folder there;
//  - the bundle is first copied into a root-owned staging folder beside the
//    destination (set-user-ID, set-group-ID and world-write bits dropped),
//    then exchanged with the old copy in one step (renameat2), so the
//    destination always holds either the old or the complete new bundle;
//  - the old copy goes to the user's Trash, never deleted: the home trash
//    when it is on the same file system, else the volume's own trash; it is
//    handed over to the user there, so that they can empty it;
//  - with --desktop-entry, standard input describes the bundle
//    (DesktopEntry::Request); the description is checked before anything is
//    copied, and a bundle put into /opt gets a desktop entry and an icon in
//    /usr/local/share, written without following links.
// Exit status 0: installed; anything else: refused or failed, nothing
// replaced, the reason on standard error.
#include "../desktopentry.h"

#include <cerrno>
#include <climits>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <dirent.h>
#include <fcntl.h>
#include <grp.h>
#include <optional>
#include <poll.h>
#include <pwd.h>
#include <string>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>
#include <utility>
#include <vector>

namespace {

constexpr unsigned kRenameNoReplace = 1, kRenameExchange = 2;

[[noreturn]] void refuse(const std::string &why, int status = 2)
{
    std::fprintf(stderr, "train: %s\n", why.c_str());
    std::exit(status);
}

struct Fd
{
    int fd = -1;
    Fd() = default;
    explicit Fd(int f)
        : fd(f)
    { }
    Fd(Fd &&o) noexcept
        : fd(o.fd)
    {
        o.fd = -1;
    }
    Fd &operator=(Fd &&o) noexcept
    {
        std::swap(fd, o.fd);
        return *this;
    }
    ~Fd()
    {
        if (fd >= 0)
            ::close(fd);
    }
};

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

// The folder holding the last component, walked without following links.
Fd openParent(const std::vector<std::string> &parts, bool create = false, uid_t owner = 0)
{
    Fd dir(::open("/", O_DIRECTORY | O_PATH | O_CLOEXEC));
    for (size_t i = 0; i + 1 < parts.size(); ++i) {
        int next
            = ::openat(dir.fd, parts[i].c_str(), O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC | O_RDONLY);
        if (next < 0 && errno == ENOENT && create && i + 2 == parts.size()) {
            if (::mkdirat(dir.fd, parts[i].c_str(), 0755) != 0)
                refuse("cannot make the wrapper folder " + parts[i], 3);
            next = ::openat(
                dir.fd, parts[i].c_str(), O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC | O_RDONLY);
            (void)owner;
        }
        if (next < 0)
            refuse("cannot open " + parts[i] + " (a missing folder or a symbolic link)");
        dir = Fd(next);
    }
    return dir;
}

bool endsWith(const std::string &s, const std::string &suffix)
{
    return s.size() > suffix.size()
        && s.compare(s.size() - suffix.size(), suffix.size(), suffix) == 0;
}

// Whether the user could list the folder: asked by a child running as them.
bool userCanRead(const std::vector<std::string> &parts, uid_t uid, gid_t gid)
{
    const pid_t child = ::fork();
    if (child == 0) {
        if (::setgroups(0, nullptr) != 0 && ::getuid() == 0)
            ::_exit(1);
        if (::setgid(gid) != 0 || ::setuid(uid) != 0)
            ::_exit(1);
        int dir = ::open("/", O_DIRECTORY | O_RDONLY | O_CLOEXEC);
        for (const std::string &p : parts) {
            const int next
                = ::openat(dir, p.c_str(), O_DIRECTORY | O_NOFOLLOW | O_RDONLY | O_CLOEXEC);
            if (next < 0)
                ::_exit(1);
            ::close(dir);
            dir = next;
        }
        DIR *listing = ::fdopendir(dir);
        ::_exit(listing && ::readdir(listing) ? 0 : 1);
    }
    int status = 0;
    return child > 0 && ::waitpid(child, &status, 0) == child && WIFEXITED(status)
        && WEXITSTATUS(status) == 0;
}

// Copies an entry below `from` into `to` (descriptors of folders), without
// following links; root owns the copy, with no set-ID or world-write bits.
bool copyAt(int fromDir, const char *name, int toDir, const char *toName, int depth)
{
    if (depth > 128)
        return false;
    struct stat st;
    if (::fstatat(fromDir, name, &st, AT_SYMLINK_NOFOLLOW) != 0)
        return false;
    const mode_t mode = st.st_mode & 0777 & ~mode_t(S_IWOTH);
    if (S_ISLNK(st.st_mode)) {
        char target[PATH_MAX];
        const ssize_t n = ::readlinkat(fromDir, name, target, sizeof target - 1);
        if (n < 0)
            return false;
        target[n] = '\0';
        return ::symlinkat(target, toDir, toName) == 0;
    }
    if (S_ISDIR(st.st_mode)) {
        if (::mkdirat(toDir, toName, 0700) != 0)
            return false;
        Fd in(::openat(fromDir, name, O_DIRECTORY | O_NOFOLLOW | O_RDONLY | O_CLOEXEC));
        Fd out(::openat(toDir, toName, O_DIRECTORY | O_NOFOLLOW | O_RDONLY | O_CLOEXEC));
        if (in.fd < 0 || out.fd < 0)
            return false;
        DIR *listing = ::fdopendir(::dup(in.fd));
        if (!listing)
            return false;
        bool ok = true;
        while (const dirent *entry = ::readdir(listing)) {
            if (std::strcmp(entry->d_name, ".") == 0 || std::strcmp(entry->d_name, "..") == 0)
                continue;
            if (!copyAt(in.fd, entry->d_name, out.fd, entry->d_name, depth + 1)) {
                ok = false;
                break;
            }
        }
        ::closedir(listing);
        return ok && ::fchmod(out.fd, mode) == 0;
    }
    if (!S_ISREG(st.st_mode))
        return true; // devices, pipes and sockets are not part of a product
    Fd in(::openat(fromDir, name, O_RDONLY | O_NOFOLLOW | O_CLOEXEC));
    Fd out(::openat(toDir, toName, O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600));
    if (in.fd < 0 || out.fd < 0)
        return false;
    off_t left = st.st_size;
    while (left > 0) {
        const ssize_t n = ::copy_file_range(in.fd, nullptr, out.fd, nullptr, size_t(left), 0);
        if (n <= 0) {
            char buffer[1 << 16];
            ssize_t r;
            while ((r = ::read(in.fd, buffer, sizeof buffer)) > 0)
                if (::write(out.fd, buffer, size_t(r)) != r)
                    return false;
            if (r < 0)
                return false;
            break;
        }
        left -= n;
    }
    const struct timespec times[2] = { st.st_atim, st.st_mtim };
    ::futimens(out.fd, times);
    return ::fchmod(out.fd, mode) == 0;
}

void removeAt(int dir, const char *name, int depth = 0)
{
    if (::unlinkat(dir, name, 0) == 0 || depth > 128)
        return;
    Fd sub(::openat(dir, name, O_DIRECTORY | O_NOFOLLOW | O_RDONLY | O_CLOEXEC));
    if (sub.fd >= 0) {
        DIR *listing = ::fdopendir(::dup(sub.fd));
        if (listing) {
            while (const dirent *entry = ::readdir(listing))
                if (std::strcmp(entry->d_name, ".") != 0 && std::strcmp(entry->d_name, "..") != 0)
                    removeAt(sub.fd, entry->d_name, depth + 1);
            ::closedir(listing);
        }
    }
    ::unlinkat(dir, name, AT_REMOVEDIR);
}

// A folder in dir, made (mode 0700, owned by the user) where missing; an
// existing one must be a folder, not a link.
int openUserFolder(int dir, const char *name, uid_t uid, gid_t gid)
{
    int fd = ::openat(dir, name, O_DIRECTORY | O_NOFOLLOW | O_RDONLY | O_CLOEXEC);
    if (fd < 0 && errno == ENOENT && ::mkdirat(dir, name, 0700) == 0) {
        fd = ::openat(dir, name, O_DIRECTORY | O_NOFOLLOW | O_RDONLY | O_CLOEXEC);
        if (fd >= 0 && ::fchown(fd, uid, gid) != 0) {
            ::close(fd);
            fd = -1;
        }
    }
    return fd;
}

bool ownedBy(int fd, uid_t uid)
{
    struct stat st;
    return ::fstat(fd, &st) == 0 && st.st_uid == uid;
}

// A trash folder's files/ and info/, and the folder that relative Path=
// values in its info files start from (empty for the home trash).
struct TrashFolder
{
    Fd files, info;
    std::string top;
};

bool openFilesAndInfo(int trash, uid_t uid, gid_t gid, TrashFolder *out)
{
    out->files = Fd(openUserFolder(trash, "files", uid, gid));
    out->info = Fd(openUserFolder(trash, "info", uid, gid));
    return out->files.fd >= 0 && out->info.fd >= 0;
}

// The home trash, $XDG_DATA_HOME/Trash with the default XDG_DATA_HOME (the
// user's environment is not ours to trust), when the home folder is on the
// file system `device`. Missing folders below the home folder are made as
// the user's.
bool openHomeTrash(const std::string &home, dev_t device, uid_t uid, gid_t gid, TrashFolder *out)
{
    std::vector<std::string> parts = components(home + "/x");
    parts.pop_back();
    Fd dir(::open("/", O_DIRECTORY | O_PATH | O_CLOEXEC));
    for (const std::string &part : parts) {
        dir = Fd(::openat(dir.fd, part.c_str(), O_DIRECTORY | O_NOFOLLOW | O_RDONLY | O_CLOEXEC));
        if (dir.fd < 0)
            return false;
    }
    struct stat st;
    if (::fstat(dir.fd, &st) != 0 || st.st_dev != device)
        return false;
    for (const char *part : { ".local", "share", "Trash" }) {
        dir = Fd(openUserFolder(dir.fd, part, uid, gid));
        if (dir.fd < 0)
            return false;
    }
    return openFilesAndInfo(dir.fd, uid, gid, out);
}

// The trash of the volume holding `dir` (Trash specification, "Trash
// directories"): its top folder is the last one on the way up to "/" on the
// same device; there $topdir/.Trash/$uid when the administrator made
// $topdir/.Trash (a folder with the sticky bit, not a link), else
// $topdir/.Trash-$uid. Either must be the user's.
bool openVolumeTrash(int dir, const std::string &dirPath, uid_t uid, gid_t gid, TrashFolder *out)
{
    Fd top(::dup(dir));
    std::string topPath = dirPath;
    struct stat current;
    if (top.fd < 0 || ::fstat(top.fd, &current) != 0)
        return false;
    for (int depth = 0; topPath.size() > 1 && depth < 256; ++depth) {
        Fd parent(::openat(top.fd, "..", O_DIRECTORY | O_RDONLY | O_CLOEXEC));
        struct stat st;
        if (parent.fd < 0 || ::fstat(parent.fd, &st) != 0)
            return false;
        if (st.st_dev != current.st_dev || st.st_ino == current.st_ino)
            break;
        top = std::move(parent);
        current = st;
        topPath.resize(topPath.rfind('/'));
        if (topPath.empty())
            topPath = "/";
    }
    out->top = topPath;
    const std::string uidName = std::to_string(uid);
    Fd shared(::openat(top.fd, ".Trash", O_DIRECTORY | O_NOFOLLOW | O_RDONLY | O_CLOEXEC));
    struct stat st;
    if (shared.fd >= 0 && ::fstat(shared.fd, &st) == 0 && (st.st_mode & S_ISVTX)) {
        Fd own(openUserFolder(shared.fd, uidName.c_str(), uid, gid));
        if (own.fd >= 0 && ownedBy(own.fd, uid) && openFilesAndInfo(own.fd, uid, gid, out))
            return true;
    }
    Fd own(openUserFolder(top.fd, (".Trash-" + uidName).c_str(), uid, gid));
    return own.fd >= 0 && ownedBy(own.fd, uid) && openFilesAndInfo(own.fd, uid, gid, out);
}

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

// Hands a tree that now lies in the user's Trash over to the user, so that
// they can empty it, children first: a folder stays root's, and so closed
// to everybody else, until everything in it is done, and the walk goes by
// descriptor without following links. Intended: an item with more than one
// link stays root's (its other name may be anywhere), and so does a folder
// that is not root's alone, with its contents (someone else could change it
// under the walk). Answers whether everything was handed over.
bool giveToUser(int fd, bool folder, uid_t uid, gid_t gid, int depth = 0)
{
    struct stat st;
    if (::fstat(fd, &st) != 0)
        return false;
    if (st.st_uid != 0)
        return st.st_uid == uid;
    if (!folder)
        return st.st_nlink == 1
            && ::fchownat(fd, "", uid, gid, AT_EMPTY_PATH | AT_SYMLINK_NOFOLLOW) == 0;
    if ((st.st_mode & (S_IWGRP | S_IWOTH)) || depth > 128)
        return false;
    DIR *listing = ::fdopendir(::dup(fd));
    if (!listing)
        return false;
    bool all = true;
    while (const dirent *entry = ::readdir(listing)) {
        const char *name = entry->d_name;
        if (std::strcmp(name, ".") == 0 || std::strcmp(name, "..") == 0)
            continue;
        struct stat child;
        if (::fstatat(fd, name, &child, AT_SYMLINK_NOFOLLOW) != 0) {
            all = false;
        } else if (S_ISDIR(child.st_mode)) {
            Fd sub(::openat(fd, name, O_DIRECTORY | O_NOFOLLOW | O_RDONLY | O_CLOEXEC));
            all = sub.fd >= 0 && giveToUser(sub.fd, true, uid, gid, depth + 1) && all;
        } else if (child.st_uid == 0) {
            all = child.st_nlink == 1 && ::fchownat(fd, name, uid, gid, AT_SYMLINK_NOFOLLOW) == 0
                && all;
        }
    }
    ::closedir(listing);
    return ::fchown(fd, uid, gid) == 0 && all;
}

// Moves dir/name into the user's Trash as "original" came from (freedesktop
// Trash specification: the info file first, then the item), and makes it
// the user's. The home trash when it is on the same file system, else the
// volume's own; when neither can take it, nothing is moved.
bool trash(int dir, const std::string &name, const std::string &original, const std::string &home,
    uid_t uid, gid_t gid)
{
    struct stat folder, item;
    if (::fstat(dir, &folder) != 0 || ::fstatat(dir, name.c_str(), &item, AT_SYMLINK_NOFOLLOW) != 0)
        return false;
    TrashFolder trash;
    const std::string dirPath = original.substr(0, original.rfind('/'));
    if (!openHomeTrash(home, folder.st_dev, uid, gid, &trash)
        && !openVolumeTrash(dir, dirPath, uid, gid, &trash))
        return false;
    const bool isFolder = S_ISDIR(item.st_mode);
    const Fd held(::openat(
        dir, name.c_str(), (isFolder ? O_DIRECTORY | O_RDONLY : O_PATH) | O_NOFOLLOW | O_CLOEXEC));
    struct stat heldStat;
    if (held.fd < 0 || ::fstat(held.fd, &heldStat) != 0 || heldStat.st_ino != item.st_ino)
        return false;
    // Volume trashes hold paths relative to their top folder.
    std::string recorded = original;
    if (!trash.top.empty())
        recorded = trash.top == "/" ? original.substr(1) : original.substr(trash.top.size() + 1);

    const std::string base = original.substr(original.rfind('/') + 1);
    for (int n = 1; n < 1000; ++n) {
        const std::string entry = n == 1 ? base : base + "." + std::to_string(n);
        Fd infoFile(::openat(trash.info.fd, (entry + ".trashinfo").c_str(),
            O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600));
        if (infoFile.fd < 0) {
            if (errno == EEXIST)
                continue;
            return false;
        }
        char date[32];
        const time_t now = std::time(nullptr);
        struct tm local;
        std::strftime(date, sizeof date, "%Y-%m-%dT%H:%M:%S", ::localtime_r(&now, &local));
        const std::string text
            = "[Trash Info]\nPath=" + percentEncoded(recorded) + "\nDeletionDate=" + date + "\n";
        const bool written = ::write(infoFile.fd, text.data(), text.size()) == ssize_t(text.size())
            && ::fchown(infoFile.fd, uid, gid) == 0;
        if (written
            && ::syscall(SYS_renameat2, dir, name.c_str(), trash.files.fd, entry.c_str(),
                   kRenameNoReplace)
                == 0) {
            struct stat moved;
            if (::fstatat(trash.files.fd, entry.c_str(), &moved, AT_SYMLINK_NOFOLLOW) != 0
                || moved.st_ino != item.st_ino || moved.st_dev != item.st_dev
                || !giveToUser(held.fd, isFolder, uid, gid))
                std::fprintf(stderr,
                    "train: the old copy is in the Trash, but not all of it is the user's\n");
            return true;
        }
        ::unlinkat(trash.info.fd, (entry + ".trashinfo").c_str(), 0);
        return false;
    }
    return false;
}

// What the installer says about the bundle (DesktopEntry::Request), read
// from standard input with limits, so that a writer that never finishes or
// never stops cannot hold the helper.
std::string readRequest()
{
    constexpr size_t kLimit = 4 << 20;
    constexpr int kSeconds = 30;
    const time_t deadline = std::time(nullptr) + kSeconds;
    std::string text;
    char buffer[1 << 16];
    for (;;) {
        const time_t left = deadline - std::time(nullptr);
        struct pollfd in = { STDIN_FILENO, POLLIN, 0 };
        const int ready = left > 0 ? ::poll(&in, 1, int(left) * 1000) : 0;
        if (ready < 0 && errno == EINTR)
            continue;
        if (ready <= 0)
            refuse("no complete entry description on standard input within "
                + std::to_string(kSeconds) + " s");
        const ssize_t n = ::read(STDIN_FILENO, buffer, sizeof buffer);
        if (n < 0 && errno == EINTR)
            continue;
        if (n < 0)
            refuse("cannot read the entry description");
        if (n == 0)
            return text;
        text.append(buffer, size_t(n));
        if (text.size() > kLimit)
            refuse("the entry description is too long");
    }
}

// Text without control characters, in well-formed UTF-8 (lead and
// continuation bytes; desktop entries are UTF-8).
bool isPlainText(const std::string &s, size_t limit)
{
    if (s.size() > limit)
        return false;
    for (size_t i = 0; i < s.size();) {
        const unsigned char c = s[i];
        if (c < 0x20 || c == 0x7f)
            return false;
        const size_t more = c < 0x80 ? 0
            : c >= 0xc2 && c < 0xe0  ? 1
            : c >= 0xe0 && c < 0xf0  ? 2
            : c >= 0xf0 && c < 0xf5  ? 3
                                     : 4;
        if (more == 4 || i + more >= s.size())
            return false;
        for (size_t k = 1; k <= more; ++k)
            if ((static_cast<unsigned char>(s[i + k]) & 0xc0) != 0x80)
                return false;
        i += more + 1;
    }
    return true;
}

uint32_t bigEndian32(const std::string &s, size_t at)
{
    return uint32_t(static_cast<unsigned char>(s[at])) << 24
        | uint32_t(static_cast<unsigned char>(s[at + 1])) << 16
        | uint32_t(static_cast<unsigned char>(s[at + 2])) << 8
        | uint32_t(static_cast<unsigned char>(s[at + 3]));
}

// The request, checked before anything is copied: a refusal leaves the
// system as it was.
DesktopEntry::Request checkedRequest(const std::string &text)
{
    std::string why;
    std::optional<DesktopEntry::Request> request = DesktopEntry::parseRequest(text, &why);
    if (!request)
        refuse(why);
    if (!DesktopEntry::isSafeFileId(request->identifier))
        refuse("the bundle identifier is not a safe file name: " + request->identifier);
    if (request->name.empty() || !isPlainText(request->name, 256))
        refuse("the application name is empty, too long or not plain text");
    if (!isPlainText(request->version, 64))
        refuse("the version is too long or not plain text");
    const std::string &exec = request->executable;
    if (exec.empty() || exec[0] == '/' || !isPlainText(exec, 1024))
        refuse("the executable is not a path inside the bundle");
    components("/" + exec); // no ".", "..", empty or control-character parts
    // PNG: the signature, then the IHDR chunk with the width and height.
    const std::string &png = request->iconPng;
    static const char signature[] = "\x89PNG\r\n\x1a\n";
    if (!png.empty()
        && (png.size() < 24 || png.size() > (2 << 20) || png.compare(0, 8, signature) != 0
            || png.compare(12, 4, "IHDR") != 0
            || bigEndian32(png, 16) != uint32_t(DesktopEntry::kIconSize)
            || bigEndian32(png, 20) != uint32_t(DesktopEntry::kIconSize)))
        refuse("the icon is not a " + std::to_string(DesktopEntry::kIconSize) + " pixel PNG");
    return *request;
}

// A folder walked from "/" without following links; -1 when a part is
// missing or a link.
int openFolder(const std::string &path)
{
    Fd dir(::open("/", O_DIRECTORY | O_PATH | O_CLOEXEC));
    for (const std::string &part : components(path)) {
        dir = Fd(::openat(dir.fd, part.c_str(), O_DIRECTORY | O_NOFOLLOW | O_RDONLY | O_CLOEXEC));
        if (dir.fd < 0)
            return -1;
    }
    return std::exchange(dir.fd, -1);
}

// A folder in dir, made root's (0755) where missing, never through a link.
int openSharedFolder(int dir, const char *name)
{
    int fd = ::openat(dir, name, O_DIRECTORY | O_NOFOLLOW | O_RDONLY | O_CLOEXEC);
    if (fd < 0 && errno == ENOENT && (::mkdirat(dir, name, 0755) == 0 || errno == EEXIST))
        fd = ::openat(dir, name, O_DIRECTORY | O_NOFOLLOW | O_RDONLY | O_CLOEXEC);
    return fd;
}

// Replaces dir/name with a file holding data: written under a temporary
// name made with O_EXCL (never an existing file, never through a link),
// then renamed over the old one, so readers see the old or the new file.
bool writeReplacing(int dir, const std::string &name, const std::string &data)
{
    const std::string temporary = "." + name + ".train-" + std::to_string(::getpid());
    ::unlinkat(dir, temporary.c_str(), 0); // a leftover of an earlier helper with this pid
    Fd out(::openat(
        dir, temporary.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0644));
    if (out.fd < 0)
        return false;
    const bool written = ::write(out.fd, data.data(), data.size()) == ssize_t(data.size())
        && ::fchmod(out.fd, 0644) == 0 && ::fsync(out.fd) == 0;
    if (written && ::renameat(dir, temporary.c_str(), dir, name.c_str()) == 0)
        return true;
    ::unlinkat(dir, temporary.c_str(), 0);
    return false;
}

// A regular file's text, at most limit bytes; empty when it is anything else.
std::string readSmallFile(int dir, const char *name, size_t limit)
{
    Fd in(::openat(dir, name, O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
    struct stat st;
    if (in.fd < 0 || ::fstat(in.fd, &st) != 0 || !S_ISREG(st.st_mode) || size_t(st.st_size) > limit)
        return std::string();
    std::string text(size_t(st.st_size), '\0');
    const ssize_t n = ::read(in.fd, text.data(), text.size());
    text.resize(n > 0 ? size_t(n) : 0);
    return text;
}

// Entries of ours under other ids that name the same bundle (its
// identifier changed): removed with their icons, so that the bundle has one
// entry.
void removeOtherEntries(int applications, int icons, const std::string &id,
    const std::string &bundlePath, const std::string &iconFolder)
{
    DIR *listing = ::fdopendir(::dup(applications));
    if (!listing)
        return;
    std::vector<std::string> stale;
    while (const dirent *entry = ::readdir(listing)) {
        const std::string name = entry->d_name;
        if (!endsWith(name, ".desktop") || name == id + ".desktop" || name[0] == '.')
            continue;
        const std::string text = readSmallFile(applications, name.c_str(), 1 << 16);
        if (DesktopEntry::value(text, "X-Quillet-Bundle") == bundlePath)
            stale.push_back(name.substr(0, name.size() - 8));
    }
    ::closedir(listing);
    for (const std::string &other : stale) {
        const std::string text = readSmallFile(applications, (other + ".desktop").c_str(), 1 << 16);
        ::unlinkat(applications, (other + ".desktop").c_str(), 0);
        if (DesktopEntry::value(text, "Icon") == iconFolder + "/" + other + ".png")
            ::unlinkat(icons, (other + ".png").c_str(), 0);
    }
}

void updateDesktopDatabase(const std::string &folder)
{
    const char *tool = "/usr/bin/update-desktop-database";
    if (::access(tool, X_OK) != 0)
        return;
    const pid_t child = ::fork();
    if (child == 0) {
        const int null = ::open("/dev/null", O_RDONLY);
        if (null >= 0)
            ::dup2(null, STDIN_FILENO);
        char *const argv[] = { const_cast<char *>(tool), const_cast<char *>("-q"),
            const_cast<char *>(folder.c_str()), nullptr };
        char *const env[] = { const_cast<char *>("PATH=/usr/sbin:/usr/bin:/sbin:/bin"),
            const_cast<char *>("LC_ALL=C"), nullptr };
        ::execve(tool, argv, env);
        ::_exit(127);
    }
    int status = 0;
    if (child > 0)
        ::waitpid(child, &status, 0);
}

// The desktop entry of the bundle now at destinationPath, for all users
// (Desktop Entry Specification; the icon in the hicolor theme of the same
// data folder). Answers why it could not be written; empty when it was.
std::string registerSystemWide(
    int destinationDir, const std::string &destinationPath, const DesktopEntry::Request &request)
{
    // The program must be a file of the installed bundle, reached without
    // links.
    std::vector<std::string> exec = components("/" + request.executable);
    const std::string bundleName = destinationPath.substr(destinationPath.rfind('/') + 1);
    exec.insert(exec.begin(), bundleName);
    Fd dir(::dup(destinationDir));
    for (size_t i = 0; i + 1 < exec.size() && dir.fd >= 0; ++i)
        dir = Fd(
            ::openat(dir.fd, exec[i].c_str(), O_DIRECTORY | O_NOFOLLOW | O_RDONLY | O_CLOEXEC));
    struct stat st;
    if (dir.fd < 0 || ::fstatat(dir.fd, exec.back().c_str(), &st, AT_SYMLINK_NOFOLLOW) != 0
        || !S_ISREG(st.st_mode) || !(st.st_mode & 0111))
        return "the executable is not a program file in the bundle";

    const std::string data(DesktopEntry::kSystemDataFolder);
    const Fd share(openFolder(data));
    const Fd applications(share.fd >= 0 ? openSharedFolder(share.fd, "applications") : -1);
    if (applications.fd < 0)
        return "cannot open " + data + "/applications (missing, or a symbolic link)";
    // The icon folders are made only for an icon to go there.
    Fd icons(::dup(share.fd));
    const std::string iconFolder = data + "/" + std::string(DesktopEntry::kIconFolder);
    for (const std::string &part : components("/" + std::string(DesktopEntry::kIconFolder)))
        if (icons.fd >= 0)
            icons = Fd(request.iconPng.empty() ? ::openat(
                           icons.fd, part.c_str(), O_DIRECTORY | O_NOFOLLOW | O_RDONLY | O_CLOEXEC)
                                               : openSharedFolder(icons.fd, part.c_str()));

    const std::string &id = request.identifier;
    DesktopEntry::Fields fields { request.name, destinationPath + "/" + request.executable,
        destinationPath, std::string(), request.version };
    if (!request.iconPng.empty() && icons.fd >= 0
        && writeReplacing(icons.fd, id + ".png", request.iconPng))
        fields.icon = iconFolder + "/" + id + ".png";
    else if (request.iconPng.empty() && icons.fd >= 0)
        ::unlinkat(icons.fd, (id + ".png").c_str(), 0); // an icon the bundle no longer has
    if (!writeReplacing(applications.fd, id + ".desktop", DesktopEntry::text(fields)))
        return "cannot write " + data + "/applications/" + id + ".desktop";
    removeOtherEntries(applications.fd, icons.fd, id, destinationPath, iconFolder);
    updateDesktopDatabase(data + "/applications");
    return std::string();
}

} // namespace

int main(int argc, char **argv)
{
    const bool withEntry = argc > 1 && std::strcmp(argv[1], "--desktop-entry") == 0;
    if (withEntry) {
        --argc;
        ++argv;
    }
    if (argc != 3 && argc != 4)
        refuse("usage: train [--desktop-entry] SOURCE.app DESTINATION.app [WRAPPER]");
    ::umask(022);

    uid_t uid = ::getuid();
    if (const char *pkexecUid = std::getenv("PKEXEC_UID"); pkexecUid && ::geteuid() == 0) {
        char *end = nullptr;
        const unsigned long value = std::strtoul(pkexecUid, &end, 10);
        if (!end || *end || value > 0x7fffffff)
            refuse("bad PKEXEC_UID");
        uid = uid_t(value);
    }
    const struct passwd *user = ::getpwuid(uid);
    if (!user || !user->pw_dir || user->pw_dir[0] != '/')
        refuse("unknown user");
    const gid_t gid = user->pw_gid;
    const std::string home = user->pw_dir;
    components(home + "/x"); // checked now: the Trash is walked from it later

    const std::string sourcePath = argv[1], destinationPath = argv[2];
    const std::vector<std::string> source = components(sourcePath);
    const std::vector<std::string> destination = components(destinationPath);
    const std::string name = destination.back();
    if (!endsWith(source.back(), ".app") || !endsWith(name, ".app") || name[0] == '.')
        refuse("source and destination must be .app bundles");

    // Where the destination may be: an Applications folder, or a wrapper
    // folder directly inside one.
    std::string parent = destinationPath.substr(0, destinationPath.rfind('/'));
    const std::string grandparent = parent.substr(0, parent.rfind('/'));
    const std::string allowed[] = { "/opt", home + "/Applications" };
    const bool direct = parent == allowed[0] || parent == allowed[1];
    const bool wrapped = argc == 4 && (grandparent == allowed[0] || grandparent == allowed[1]);
    if (!direct && !wrapped)
        refuse("the destination is not in an Applications folder: " + destinationPath);
    // Only a bundle in the system folder is registered for all users; one in
    // the user's own folder is the installer's to register.
    const bool system = direct ? parent == allowed[0] : grandparent == allowed[0];
    std::optional<DesktopEntry::Request> entry;
    if (withEntry) {
        // An elevation command that does not pass standard input on leaves
        // it empty: the bundle is installed, and the installer registers it
        // for the user. Anything else must be a valid description.
        if (const std::string text = readRequest(); !text.empty())
            entry = checkedRequest(text);
        else if (system)
            std::fprintf(stderr,
                "train: no entry description on standard input; the bundle "
                "is not registered for all users\n");
    }
    if (wrapped && !direct) {
        const std::vector<std::string> wrapper = components(argv[3]);
        if (wrapper.back() != destination[destination.size() - 2])
            refuse("the wrapper folder's name does not match the destination");
        if (!userCanRead(wrapper, uid, gid))
            refuse("the user cannot read the wrapper folder");
    }

    // The source: a folder ending in .app, reached without links, that the
    // user may read.
    Fd sourceParent = openParent(source);
    Fd sourceDir(::openat(
        sourceParent.fd, source.back().c_str(), O_DIRECTORY | O_NOFOLLOW | O_RDONLY | O_CLOEXEC));
    if (sourceDir.fd < 0)
        refuse("the source is not a bundle folder (or is a symbolic link): " + sourcePath);
    if (!userCanRead(source, uid, gid))
        refuse("the user cannot read the source: " + sourcePath);

    Fd destinationDir = openParent(destination, wrapped && !direct, uid);

    // A root-owned staging copy beside the destination.
    const std::string staging = "." + name + ".train-" + std::to_string(::getpid());
    // A leftover of an earlier helper with this pid may be a user's old
    // copy: it goes to the Trash like one.
    struct stat leftover;
    if (::fstatat(destinationDir.fd, staging.c_str(), &leftover, AT_SYMLINK_NOFOLLOW) == 0
        && !trash(destinationDir.fd, staging, destinationPath, home, uid, gid))
        refuse("cannot clear the staging name " + staging, 3);
    if (!copyAt(sourceParent.fd, source.back().c_str(), destinationDir.fd, staging.c_str(), 0)) {
        removeAt(destinationDir.fd, staging.c_str());
        refuse("cannot copy the bundle", 3);
    }

    struct stat existing;
    if (::fstatat(destinationDir.fd, name.c_str(), &existing, AT_SYMLINK_NOFOLLOW) != 0) {
        if (::syscall(SYS_renameat2, destinationDir.fd, staging.c_str(), destinationDir.fd,
                name.c_str(), kRenameNoReplace)
            != 0) {
            removeAt(destinationDir.fd, staging.c_str());
            refuse("cannot put the bundle in place", 3);
        }
    } else {
        if (::syscall(SYS_renameat2, destinationDir.fd, staging.c_str(), destinationDir.fd,
                name.c_str(), kRenameExchange)
            != 0) {
            removeAt(destinationDir.fd, staging.c_str());
            refuse("cannot exchange the old bundle for the new one", 3);
        }
        if (!trash(destinationDir.fd, staging, destinationPath, home, uid, gid)) {
            // Back as it was: the old copy in place, the new one removed.
            ::syscall(SYS_renameat2, destinationDir.fd, staging.c_str(), destinationDir.fd,
                name.c_str(), kRenameExchange);
            removeAt(destinationDir.fd, staging.c_str());
            refuse("cannot move the old copy to the Trash; nothing was replaced", 4);
        }
    }

    // The bundle is in place: a registration that fails is reported, but it
    // does not make the installation a failure.
    if (entry && system) {
        const std::string why = registerSystemWide(destinationDir.fd, destinationPath, *entry);
        if (!why.empty())
            std::fprintf(
                stderr, "train: installed, but not registered for all users: %s\n", why.c_str());
    }
    return 0;
}

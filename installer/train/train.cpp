// SPDX-FileCopyrightText: 2026 Quillet developers
// SPDX-License-Identifier: MIT
//
// train: puts a product bundle into a shared Applications folder as root.
//
//   train SOURCE.app DESTINATION.app [WRAPPER]
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
//  - the old copy goes to the user's Trash, never deleted, and becomes the
//    user's (so the user can empty the Trash). When the Trash is on another
//    file system than the destination, nothing is replaced.
// Exit status 0: installed; anything else: refused or failed, nothing
// replaced, the reason on standard error.
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <dirent.h>
#include <fcntl.h>
#include <grp.h>
#include <pwd.h>
#include <string>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>
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

// Gives dir/name and everything below it to the user, deepest entries
// first: the user gains a folder only when nothing in it is left to change,
// and no symbolic link is followed.
bool chownTree(int dir, const char *name, uid_t uid, gid_t gid, int depth = 0)
{
    if (depth > 128)
        return false;
    bool ok = true;
    Fd sub(::openat(dir, name, O_DIRECTORY | O_NOFOLLOW | O_RDONLY | O_CLOEXEC));
    if (sub.fd >= 0) {
        DIR *listing = ::fdopendir(::dup(sub.fd));
        if (!listing)
            return false;
        while (const dirent *entry = ::readdir(listing)) {
            if (std::strcmp(entry->d_name, ".") != 0 && std::strcmp(entry->d_name, "..") != 0)
                ok = chownTree(sub.fd, entry->d_name, uid, gid, depth + 1) && ok;
        }
        ::closedir(listing);
    }
    return ::fchownat(dir, name, uid, gid, AT_SYMLINK_NOFOLLOW) == 0 && ok;
}

// Opens (making as the user where missing) home/.local/share/Trash/{files,info}.
bool openUserTrash(const std::string &home, uid_t uid, gid_t gid, Fd *files, Fd *info)
{
    std::vector<std::string> parts = components(home + "/.local/share/Trash/x");
    parts.pop_back();
    Fd dir(::open("/", O_DIRECTORY | O_PATH | O_CLOEXEC));
    const size_t homeDepth = components(home + "/x").size() - 1;
    for (size_t i = 0; i < parts.size(); ++i) {
        int next
            = ::openat(dir.fd, parts[i].c_str(), O_DIRECTORY | O_NOFOLLOW | O_RDONLY | O_CLOEXEC);
        if (next < 0 && errno == ENOENT && i >= homeDepth) {
            if (::mkdirat(dir.fd, parts[i].c_str(), 0700) != 0)
                return false;
            next = ::openat(
                dir.fd, parts[i].c_str(), O_DIRECTORY | O_NOFOLLOW | O_RDONLY | O_CLOEXEC);
            if (next >= 0 && ::fchown(next, uid, gid) != 0) {
                ::close(next);
                return false;
            }
        }
        if (next < 0)
            return false;
        dir = Fd(next);
    }
    for (auto [name, out] : { std::pair { "files", files }, std::pair { "info", info } }) {
        int fd = ::openat(dir.fd, name, O_DIRECTORY | O_NOFOLLOW | O_RDONLY | O_CLOEXEC);
        if (fd < 0 && errno == ENOENT && ::mkdirat(dir.fd, name, 0700) == 0) {
            fd = ::openat(dir.fd, name, O_DIRECTORY | O_NOFOLLOW | O_RDONLY | O_CLOEXEC);
            if (fd >= 0 && ::fchown(fd, uid, gid) != 0) {
                ::close(fd);
                fd = -1;
            }
        }
        if (fd < 0)
            return false;
        *out = Fd(fd);
    }
    return true;
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

// Moves dir/name into the user's Trash as "original" came from (freedesktop
// Trash specification: the info file first, then the item).
bool trash(int dir, const std::string &name, const std::string &original, const std::string &home,
    uid_t uid, gid_t gid)
{
    Fd files, info;
    if (!openUserTrash(home, uid, gid, &files, &info))
        return false;
    const std::string base = original.substr(original.rfind('/') + 1);
    for (int n = 1; n < 1000; ++n) {
        const std::string entry = n == 1 ? base : base + "." + std::to_string(n);
        Fd infoFile(::openat(info.fd, (entry + ".trashinfo").c_str(),
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
            = "[Trash Info]\nPath=" + percentEncoded(original) + "\nDeletionDate=" + date + "\n";
        const bool written = ::write(infoFile.fd, text.data(), text.size()) == ssize_t(text.size())
            && ::fchown(infoFile.fd, uid, gid) == 0;
        if (written
            && ::syscall(
                   SYS_renameat2, dir, name.c_str(), files.fd, entry.c_str(), kRenameNoReplace)
                == 0) {
            // The user's Trash holds the user's files, which they may empty.
            if (!chownTree(files.fd, entry.c_str(), uid, gid))
                std::fprintf(stderr, "train: some of the old copy stays root's in the Trash\n");
            return true;
        }
        ::unlinkat(info.fd, (entry + ".trashinfo").c_str(), 0);
        return false;
    }
    return false;
}

} // namespace

int main(int argc, char **argv)
{
    if (argc != 3 && argc != 4)
        refuse("usage: train SOURCE.app DESTINATION.app [WRAPPER]");
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
        return 0;
    }
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
    return 0;
}

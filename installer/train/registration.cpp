// SPDX-FileCopyrightText: 2026 Quillet developers
// SPDX-License-Identifier: MIT
//
// Files under /usr/local/share are written as a temporary name made with
// O_CREAT|O_EXCL|O_NOFOLLOW and renamed over the old one, so a link planted
// at the final name is replaced, never written through. Every file id is
// "quillet-app." and the bundle's id: a distribution's entries never share
// that namespace, and a file in it that does not say X-Quillet-Bundle is
// not ours and is never replaced or removed.
#include "registration.h"

#include "common.h"

#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <dirent.h>
#include <fcntl.h>
#include <optional>
#include <poll.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

namespace Train {

namespace {

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

// Whether dir/name is an entry of ours: a regular file of root's that
// names the bundle it stands for.
std::optional<std::string> bundleOfOurEntry(int dir, const std::string &name)
{
    const Fd in(::openat(dir, name.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
    struct stat st;
    if (!in.valid() || ::fstat(in.fd, &st) != 0 || !S_ISREG(st.st_mode) || st.st_uid != 0)
        return std::nullopt;
    return DesktopEntry::value(readSmallFile(dir, name.c_str(), 1 << 16), "X-Quillet-Bundle");
}

// Entries of ours under other ids that name the same bundle (its
// identifier changed): removed with the icons they name, so that the
// bundle has one entry.
void removeOtherEntries(int applications, int icons, const std::string &id,
    const std::string &bundlePath, const std::string &iconFolder)
{
    DIR *listing = ::fdopendir(::dup(applications));
    if (!listing)
        return;
    std::vector<std::string> stale;
    const std::string prefix(DesktopEntry::kSystemIdPrefix);
    while (const dirent *entry = ::readdir(listing)) {
        const std::string name = entry->d_name;
        if (name.compare(0, prefix.size(), prefix) != 0 || !endsWith(name, ".desktop")
            || name == id + ".desktop")
            continue;
        if (bundleOfOurEntry(applications, name) == bundlePath)
            stale.push_back(name.substr(0, name.size() - 8));
    }
    ::closedir(listing);
    for (const std::string &other : stale) {
        const std::string text = readSmallFile(applications, (other + ".desktop").c_str(), 1 << 16);
        ::unlinkat(applications, (other + ".desktop").c_str(), 0);
        if (icons >= 0 && DesktopEntry::value(text, "Icon") == iconFolder + "/" + other + ".png")
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

} // namespace

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

    const std::string id = DesktopEntry::systemFileId(request.identifier);
    const std::string entryName = id + ".desktop", iconName = id + ".png";
    const std::string iconPath = iconFolder + "/" + iconName;
    // A file under our name that is not an entry of ours stays as it is.
    struct stat existing;
    std::optional<std::string> ours;
    if (::fstatat(applications.fd, entryName.c_str(), &existing, AT_SYMLINK_NOFOLLOW) == 0) {
        ours = bundleOfOurEntry(applications.fd, entryName);
        if (!ours)
            return data + "/applications/" + entryName + " exists and is not ours";
    }
    // The icon likewise: ours when our entry names it, or when there is none.
    bool iconIsOurs = icons.fd >= 0
        && ::fstatat(icons.fd, iconName.c_str(), &existing, AT_SYMLINK_NOFOLLOW) != 0;
    if (!iconIsOurs && icons.fd >= 0 && ours)
        iconIsOurs = DesktopEntry::value(
                         readSmallFile(applications.fd, entryName.c_str(), 1 << 16), "Icon")
            == iconPath;
    DesktopEntry::Fields fields { request.name, destinationPath + "/" + request.executable,
        destinationPath, std::string(), request.version };
    if (!request.iconPng.empty() && iconIsOurs
        && writeReplacing(icons.fd, iconName, request.iconPng))
        fields.icon = iconPath;
    else if (request.iconPng.empty() && iconIsOurs)
        ::unlinkat(icons.fd, iconName.c_str(), 0); // an icon the bundle no longer has
    if (!writeReplacing(applications.fd, entryName, DesktopEntry::text(fields)))
        return "cannot write " + data + "/applications/" + entryName;
    removeOtherEntries(applications.fd, icons.fd, id, destinationPath, iconFolder);
    updateDesktopDatabase(data + "/applications");
    return std::string();
}

DesktopEntry::Request readCheckedRequest()
{
    const std::string text = readRequest();
    return text.empty() ? DesktopEntry::Request() : checkedRequest(text);
}

} // namespace Train

// SPDX-FileCopyrightText: 2026 Quillet developers
// SPDX-License-Identifier: MIT
//
// train: puts a product bundle into an Applications folder for a user who
// may not write there.
//
//   train [--desktop-entry] SOURCE.app DESTINATION.app [WRAPPER]
//
// pkexec runs it as root for the installer of the user named by
// PKEXEC_UID. That user is the one it must not trust: everything they
// name is checked, read with their rights only and written through held
// descriptors (docs/copy-and-helper.md has the threat model).
//
// Exit status 0: installed (the wrapper's items too); anything else: the
// destination is as it was, the reason on standard error (Train::Exit).
#include "caller.h"
#include "common.h"
#include "reader.h"
#include "registration.h"
#include "trash.h"
#include "tree.h"

#include <cerrno>
#include <climits>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <dirent.h>
#include <fcntl.h>
#include <set>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/xattr.h>
#include <unistd.h>
#include <utility>

#ifndef QUILLET_POLICY_FILE
#define QUILLET_POLICY_FILE "/usr/share/polkit-1/actions/dev.quillet.installer.policy"
#endif

using namespace Train;

namespace {

constexpr const char *kWrapperMark = "trusted.quillet.wrapper";

std::string folderOf(const std::string &path)
{
    return path.substr(0, path.rfind('/'));
}

// The staging copy that a refusal or a signal removes again.
struct Staging
{
    int dir = -1;
    std::string name;
    struct stat made = {};
} g_staging;

void removeStaging()
{
    if (g_staging.dir >= 0)
        removeTree(g_staging.dir, g_staging.name, g_staging.made);
    g_staging = Staging();
}

void checkStop()
{
    if (stopRequested())
        refuse("stopped by a signal", Interrupted);
}

// The files the helper must never replace: itself, its polkit action, and
// every folder above them. Compared by device and inode.
class Protected
{
public:
    Protected()
    {
        char self[PATH_MAX];
        const ssize_t n = ::readlink("/proc/self/exe", self, sizeof self - 1);
        if (n <= 0)
            refuse("cannot tell where the helper itself lies");
        addWithFolders(std::string(self, size_t(n)));
        addWithFolders(QUILLET_POLICY_FILE);
    }
    bool holds(const struct stat &st) const { return m_items.count({ st.st_dev, st.st_ino }) != 0; }
    void check(int dir, const std::string &name, const std::string &path) const
    {
        struct stat st;
        if (::fstatat(dir, name.c_str(), &st, AT_SYMLINK_NOFOLLOW) == 0 && holds(st))
            refuse(path + " holds the helper or its polkit action");
    }

private:
    void addWithFolders(std::string path)
    {
        for (;;) {
            struct stat st;
            if (::lstat(path.c_str(), &st) == 0)
                m_items.insert({ st.st_dev, st.st_ino });
            if (path.size() <= 1)
                return;
            path = folderOf(path);
            if (path.empty())
                path = "/";
        }
    }
    std::set<std::pair<dev_t, ino_t>> m_items;
};

// Root writes only where nobody else can change anything by name: every
// folder from "/" down to the Applications folder is root's and closed to
// others' writes. Answers the folder, and whether that holds.
Fd openApplicationsFolder(const std::string &path, bool *rootOnly)
{
    Fd dir(::open("/", O_DIRECTORY | O_RDONLY | O_CLOEXEC));
    struct stat st;
    *rootOnly = ::fstat(dir.fd, &st) == 0 && st.st_uid == 0 && !(st.st_mode & (S_IWGRP | S_IWOTH));
    for (const std::string &part : components(path)) {
        dir = Fd(openFolderAt(dir.fd, part));
        if (!dir.valid() || ::fstat(dir.fd, &st) != 0)
            refuse("cannot open " + path + " (missing, or a symbolic link on the way)");
        *rootOnly = *rootOnly && st.st_uid == 0 && !(st.st_mode & (S_IWGRP | S_IWOTH));
    }
    return dir;
}

// Leftover staging copies of this name from runs that are gone: a marked
// one is a partial copy of ours and is removed; an unmarked one can be a
// user's old copy (a run stopped right after the exchange) and goes to the
// Trash. Staging names of runs still under way are left alone.
void clearLeftovers(const Caller &caller, int dir, const std::string &dirPath,
    const std::string &prefix, const std::string &original, const Protected &guard)
{
    DIR *listing = ::fdopendir(::dup(dir));
    if (!listing)
        return;
    std::vector<std::string> names;
    while (const dirent *item = ::readdir(listing)) {
        const std::string name = item->d_name;
        if (name.compare(0, prefix.size(), prefix) != 0)
            continue;
        const std::string pid = name.substr(prefix.size());
        if (pid.empty() || pid.size() > 10
            || pid.find_first_not_of("0123456789") != std::string::npos)
            continue;
        if (::kill(pid_t(std::stol(pid)), 0) == 0 || errno != ESRCH)
            continue; // its run may still be under way
        names.push_back(name);
    }
    ::closedir(listing);
    for (const std::string &name : names) {
        guard.check(dir, name, dirPath + "/" + name);
        struct stat st;
        if (::fstatat(dir, name.c_str(), &st, AT_SYMLINK_NOFOLLOW) != 0)
            continue;
        if (isUnlockedStaging(dir, name))
            removeTree(dir, name, st);
        else if (!original.empty() && !moveToTrash(caller, dir, name, original))
            refuse("cannot clear the leftover " + dirPath + "/" + name, TrashFailed);
    }
}

// Reads `path` as the caller into dir/name (a new staging folder), which
// refusals and signals remove from now on.
void stage(const Caller &caller, const std::string &path, const std::string &skip, int dir,
    const std::string &name, Budget &budget, bool rootMode)
{
    checkStop();
    Reader reader(caller, path, skip);
    const CopyResult result = receiveTree(reader, dir, name, budget, rootMode);
    if (result.status != Installed)
        refuse("cannot copy " + path + ": " + result.why, result.status);
    g_staging.dir = dir;
    g_staging.name = name;
    ::fstatat(dir, name.c_str(), &g_staging.made, AT_SYMLINK_NOFOLLOW);
    onExit(removeStaging);
    checkStop();
}

// Puts the staged dir/staging in place as dir/name. An item already there
// is exchanged with it in one step (renameat2), so that dir/name holds the
// old or the new item at every moment, and then goes to the Trash; when it
// cannot, the exchange is undone. Signals wait until this is done. `staged`
// is what was staged: anything else at that name now is not put in place.
int putInPlace(const Caller &caller, int dir, const std::string &staging, const struct stat &staged,
    const std::string &name, const std::string &path, bool rootMode)
{
    struct stat now;
    if (::fstatat(dir, staging.c_str(), &now, AT_SYMLINK_NOFOLLOW) != 0 || !sameFile(now, staged))
        return CopyFailed;
    if (rootMode && S_ISDIR(now.st_mode))
        unmarkStaging(Fd(openFolderAt(dir, staging)).fd); // a leftover of it would be an old copy
    sigset_t stops, previous;
    sigemptyset(&stops);
    for (int sig : { SIGINT, SIGTERM, SIGHUP, SIGQUIT, SIGALRM })
        sigaddset(&stops, sig);
    ::sigprocmask(SIG_BLOCK, &stops, &previous);
    struct stat old;
    int status = Installed;
    if (::fstatat(dir, name.c_str(), &old, AT_SYMLINK_NOFOLLOW) != 0) {
        if (::syscall(SYS_renameat2, dir, staging.c_str(), dir, name.c_str(), RENAME_NOREPLACE)
            != 0)
            status = CopyFailed;
    } else if (::syscall(SYS_renameat2, dir, staging.c_str(), dir, name.c_str(), RENAME_EXCHANGE)
        != 0) {
        status = CopyFailed;
    } else {
        // The old item is at the staging name now: a refusal must not
        // remove it from there.
        void (*cleanup)() = g_staging.name == staging ? removeStaging : nullptr;
        if (cleanup)
            onExit(nullptr);
        struct stat there;
        if (::fstatat(dir, staging.c_str(), &there, AT_SYMLINK_NOFOLLOW) != 0
            || !sameFile(there, old) || !moveToTrash(caller, dir, staging, path)) {
            ::syscall(SYS_renameat2, dir, staging.c_str(), dir, name.c_str(), RENAME_EXCHANGE);
            status = TrashFailed;
            if (cleanup)
                onExit(cleanup);
        }
    }
    if (status == Installed && g_staging.name == staging) {
        onExit(nullptr);
        g_staging = Staging();
    }
    ::sigprocmask(SIG_SETMASK, &previous, nullptr);
    return status;
}

// The wrapper's items beside the bundle, as the plain copy puts them: each
// replaces an item of that name, which goes to the Trash.
void installWrapperItems(const Caller &caller, int target, const std::string &targetPath,
    const std::string &wrapperPath, const std::string &productName, Budget &budget, bool rootMode,
    const Protected &guard)
{
    const std::string prefix = ".quillet-items.train-";
    clearLeftovers(caller, target, targetPath, prefix, std::string(), guard);
    const std::string staging = prefix + std::to_string(::getpid());
    stage(caller, wrapperPath, productName, target, staging, budget, rootMode);
    const Fd items(openFolderAt(target, staging));
    DIR *listing = items.valid() ? ::fdopendir(::dup(items.fd)) : nullptr;
    if (!listing)
        refuse("cannot list the wrapper's items", CopyFailed);
    std::vector<std::string> names;
    while (const dirent *item = ::readdir(listing))
        if (std::strcmp(item->d_name, ".") != 0 && std::strcmp(item->d_name, "..") != 0)
            names.push_back(item->d_name);
    ::closedir(listing);
    for (const std::string &name : names) {
        checkStop();
        const std::string path = targetPath + "/" + name;
        guard.check(target, name, path);
        // One item at a time through a staging name of its own in the
        // wrapper folder, so that the exchange stays in one folder.
        const std::string single = ".quillet-item.train-" + std::to_string(::getpid());
        struct stat item;
        if (::fstatat(items.fd, name.c_str(), &item, AT_SYMLINK_NOFOLLOW) != 0
            || ::renameat(items.fd, name.c_str(), target, single.c_str()) != 0)
            refuse("cannot put " + path + " in place", CopyFailed);
        if (putInPlace(caller, target, single, item, name, path, rootMode) != Installed) {
            removeTree(target, single, item);
            refuse("cannot put " + path + " in place; it is as it was", CopyFailed);
        }
    }
    removeStaging();
}

// The wrapper folder directly inside the Applications folder: made now, or
// made by an earlier install of this product (root's, carrying our mark
// with the product's name); never a folder of anyone else's.
Fd openWrapperFolder(int apps, const std::string &appsPath, const std::string &wrapperName,
    const std::string &productName, const Caller &caller, bool rootMode, const Protected &guard)
{
    const std::string path = appsPath + "/" + wrapperName;
    guard.check(apps, wrapperName, path);
    bool made = false;
    if (::mkdirat(apps, wrapperName.c_str(), 0755) == 0)
        made = true;
    else if (errno != EEXIST)
        refuse("cannot make the wrapper folder " + path + ": " + std::strerror(errno), CopyFailed);
    Fd folder(openFolderAt(apps, wrapperName));
    struct stat st;
    if (!folder.valid() || ::fstat(folder.fd, &st) != 0)
        refuse(path + " is not a folder (or is a symbolic link)");
    if (!rootMode)
        return st.st_uid == caller.uid ? std::move(folder)
                                       : (refuse(path + " is not the calling user's"), Fd());
    if (made) {
        if (::fsetxattr(folder.fd, kWrapperMark, productName.data(), productName.size(), 0) != 0)
            warn("cannot mark " + path + " as this product's: a later update will refuse it");
        return folder;
    }
    std::string mark(NAME_MAX, '\0');
    const ssize_t n = ::fgetxattr(folder.fd, kWrapperMark, mark.data(), mark.size());
    if (st.st_uid != 0 || (st.st_mode & (S_IWGRP | S_IWOTH)) || n < 0
        || mark.substr(0, size_t(n)) != productName)
        refuse(path + " exists and was not made by an install of " + productName);
    return folder;
}

} // namespace

int main(int argc, char **argv)
{
    // Said first: pkexec starts the helper only once the user is
    // authorized, and the installer shows progress again on this line.
    std::fputs("authorized\n", stdout);
    std::fflush(stdout);

    const bool withEntry = argc > 1 && std::strcmp(argv[1], "--desktop-entry") == 0;
    if (withEntry) {
        --argc;
        ++argv;
    }
    if (argc != 3 && argc != 4)
        refuse("usage: train [--desktop-entry] SOURCE.app DESTINATION.app [WRAPPER]");
    const Caller caller = identifyCaller(); // reads PKEXEC_UID before the environment goes
    resetProcess();
    const Protected guard;

    const std::string sourcePath = argv[1], destinationPath = argv[2];
    const std::string wrapperPath = argc == 4 ? argv[3] : std::string();
    const std::vector<std::string> source = components(sourcePath);
    const std::vector<std::string> destination = components(destinationPath);
    const std::string name = destination.back();
    if (!endsWith(source.back(), ".app") || !endsWith(name, ".app") || name[0] == '.')
        refuse("source and destination must be visible .app bundles");

    // Where: directly in an Applications folder (/opt, or the caller's
    // ~/Applications), or in a wrapper folder directly inside one.
    const std::string parent = folderOf(destinationPath);
    const std::string home = caller.home == "/" ? std::string() : caller.home;
    auto isApplications
        = [&](const std::string &p) { return p == "/opt" || p == home + "/Applications"; };
    std::string appsPath = parent, wrapperName;
    if (!wrapperPath.empty()) {
        wrapperName = destination[destination.size() - 2];
        appsPath = folderOf(parent);
        if (destination.size() < 3 || !isApplications(appsPath))
            refuse("with a wrapper, the destination must be in a folder directly inside an "
                   "Applications folder: "
                + destinationPath);
        if (components(wrapperPath).back() != wrapperName)
            refuse("the wrapper folder's name does not match the destination");
        if (wrapperName[0] == '.' || endsWith(wrapperName, ".app"))
            refuse("the wrapper folder must be visible and not a bundle: " + wrapperName);
    } else if (!isApplications(appsPath)) {
        refuse("the destination is not in an Applications folder: " + destinationPath);
    }

    bool rootOnly = false;
    Fd apps = openApplicationsFolder(appsPath, &rootOnly);
    struct stat appsStat;
    ::fstat(apps.fd, &appsStat);
    bool rootMode;
    if (appsStat.st_uid == caller.uid && caller.uid != 0) {
        // The caller's own folder: the whole job runs with their rights.
        if (!becomeCaller(caller))
            refuse("cannot become the calling user");
        rootMode = false;
    } else if (rootOnly) {
        rootMode = true;
    } else {
        refuse(appsPath + " can be changed by others than root; nothing is written there");
    }

    // The description of the bundle for its system-wide entry: only a
    // bundle that root puts into the system folder gets one.
    const bool system = rootMode && appsPath == "/opt";
    DesktopEntry::Request entry;
    if (withEntry && system) {
        entry = readCheckedRequest();
        if (entry.identifier.empty())
            warn("no entry description on standard input; the bundle is not registered for all "
                 "users");
    }
    checkStop();

    Budget budget;
    Fd folder;
    std::string folderPath = appsPath;
    if (!wrapperName.empty()) {
        folder = openWrapperFolder(apps.fd, appsPath, wrapperName, name, caller, rootMode, guard);
        folderPath = parent;
        installWrapperItems(
            caller, folder.fd, folderPath, wrapperPath, source.back(), budget, rootMode, guard);
    } else {
        folder = std::move(apps);
    }

    // The bundle, staged beside its place and exchanged with the old copy.
    const std::string prefix = "." + name + ".train-";
    clearLeftovers(caller, folder.fd, folderPath, prefix, destinationPath, guard);
    guard.check(folder.fd, name, destinationPath);
    const std::string staging = prefix + std::to_string(::getpid());
    stage(caller, sourcePath, std::string(), folder.fd, staging, budget, rootMode);
    const struct stat staged = g_staging.made;
    switch (putInPlace(caller, folder.fd, staging, staged, name, destinationPath, rootMode)) {
    case Installed:
        break;
    case TrashFailed:
        refuse("cannot move the old copy to the Trash; nothing was replaced", TrashFailed);
    default:
        refuse("cannot put the bundle in place", CopyFailed);
    }

    // The bundle is in place: a registration that fails is reported, but it
    // does not make the installation a failure.
    if (system && !entry.identifier.empty()) {
        const std::string why = registerSystemWide(folder.fd, destinationPath, entry);
        if (!why.empty())
            warn("installed, but not registered for all users: " + why);
    }
    return Installed;
}

// SPDX-FileCopyrightText: 2026 Quillet developers
// SPDX-License-Identifier: MIT
//
// The caller is who pkexec says started it (PKEXEC_UID), or, without
// pkexec, the real user id. Another elevation command must set PKEXEC_UID
// itself (tests do); sudo's SUDO_UID is not read, so under sudo the
// caller is root.
#include "caller.h"

#include "common.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <grp.h>
#include <pwd.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace Train {

namespace {
volatile sig_atomic_t g_stop = 0;

void stopHandler(int)
{
    g_stop = 1;
}

std::string passwdHome(const struct passwd *pw)
{
    return pw && pw->pw_dir ? std::string(pw->pw_dir) : std::string();
}
} // namespace

bool stopRequested()
{
    return g_stop != 0;
}

bool Caller::mayRead(const struct stat &st) const
{
    if (uid == 0)
        return true;
    const mode_t need = S_ISDIR(st.st_mode) ? 5 : 4; // read, and search for folders
    mode_t bits = st.st_mode & 7;
    if (st.st_uid == uid)
        bits = (st.st_mode >> 6) & 7;
    else if (std::find(groups.begin(), groups.end(), st.st_gid) != groups.end())
        bits = (st.st_mode >> 3) & 7;
    return (bits & need) == need;
}

Caller identifyCaller()
{
    Caller caller;
    caller.uid = ::getuid();
    if (const char *text = std::getenv("PKEXEC_UID")) {
        // Digits only: no sign, no blanks, no base prefix, not empty.
        const size_t length = std::strlen(text);
        if (length == 0 || length > 10 || std::strspn(text, "0123456789") != length)
            refuse("PKEXEC_UID is not a user id: \"" + std::string(text) + "\"");
        const unsigned long long value = std::strtoull(text, nullptr, 10);
        if (value >= 0xffffffffULL)
            refuse("PKEXEC_UID is out of range: " + std::string(text));
        caller.uid = uid_t(value);
    }
    errno = 0;
    const struct passwd *pw = ::getpwuid(caller.uid);
    if (!pw)
        refuse("the calling user " + std::to_string(caller.uid) + " is unknown");
    caller.gid = pw->pw_gid;
    caller.home = passwdHome(pw);
    if (caller.home.empty() || caller.home[0] != '/')
        refuse("the calling user has no home folder");
    int count = 64;
    std::vector<gid_t> groups(static_cast<size_t>(count));
    while (::getgrouplist(pw->pw_name, pw->pw_gid, groups.data(), &count) < 0) {
        if (count > 65536)
            refuse("the calling user is in too many groups");
        groups.resize(size_t(count));
    }
    groups.resize(size_t(count));
    caller.groups = groups;
    return caller;
}

void resetProcess()
{
    // The caller's limits are not ours: a tiny file size or stack limit
    // would cut a copy short, a core file could hold what root read. Root
    // raises hard limits; where it may not (no CAP_SYS_RESOURCE), the soft
    // limit goes as far as the hard one allows.
    const auto reset = [](int resource, rlim_t value) {
        const struct rlimit wanted = { value, value };
        struct rlimit now;
        if (::setrlimit(resource, &wanted) != 0 && ::getrlimit(resource, &now) == 0) {
            now.rlim_cur
                = now.rlim_max == RLIM_INFINITY || now.rlim_max > value ? value : now.rlim_max;
            ::setrlimit(resource, &now);
        }
    };
    for (int resource : { RLIMIT_FSIZE, RLIMIT_CPU, RLIMIT_AS, RLIMIT_DATA, RLIMIT_STACK })
        reset(resource, RLIM_INFINITY);
    reset(RLIMIT_NOFILE, 4096);
    reset(RLIMIT_CORE, 0);

    // Descriptors the starter left open are not ours to use.
    ::syscall(SYS_close_range, 3U, ~0U, 0U);
    ::clearenv();
    ::setenv("PATH", "/usr/sbin:/usr/bin:/sbin:/bin", 1);
    ::setenv("LC_ALL", "C", 1);
    ::umask(022);

    sigset_t all;
    sigemptyset(&all);
    ::sigprocmask(SIG_SETMASK, &all, nullptr);
    for (int sig = 1; sig < NSIG; ++sig)
        if (sig != SIGKILL && sig != SIGSTOP)
            ::signal(sig, SIG_DFL);
    // A terminal's interrupt or hang-up, or a plain kill, ends the run
    // cleanly; stopping from the terminal is not offered.
    struct sigaction stop = {};
    stop.sa_handler = stopHandler;
    for (int sig : { SIGINT, SIGTERM, SIGHUP, SIGQUIT, SIGALRM })
        ::sigaction(sig, &stop, nullptr); // no SA_RESTART: blocking calls return EINTR
    for (int sig : { SIGPIPE, SIGTSTP, SIGTTIN, SIGTTOU, SIGXFSZ })
        ::signal(sig, SIG_IGN);
}

bool becomeCaller(const Caller &caller)
{
    if (::getuid() == caller.uid && ::geteuid() == caller.uid && caller.uid != 0)
        return true; // already the caller, and nothing to give up
    if (::setgroups(caller.groups.size(), caller.groups.data()) != 0
        || ::setresgid(caller.gid, caller.gid, caller.gid) != 0
        || ::setresuid(caller.uid, caller.uid, caller.uid) != 0)
        return false;
    // Nothing of root's may be left to take back.
    if (caller.uid != 0 && (::setuid(0) == 0 || ::seteuid(0) == 0))
        return false;
    return true;
}

} // namespace Train

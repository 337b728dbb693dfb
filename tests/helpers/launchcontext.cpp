// SPDX-FileCopyrightText: 2026 Quillet developers
// SPDX-License-Identifier: MIT
//
// A program that starts others and asks how it was itself started:
//   launchcontext spawn PROGRAM ARGS...  runs PROGRAM as its child, passes
//                                        on its output and exit status
//   launchcontext traced PROGRAM ARGS... the same, the child traced by us
//   launchcontext ask CODE               prints "launched by CODE: yes|no",
//                                        "login item: yes|no" and
//                                        "debugging: yes|no"
#include "utilities/vxutilities.h"

#include <QCoreApplication>
#include <cstdio>
#include <cstring>
#include <sys/ptrace.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {
int run(char **argv, bool traced)
{
    const pid_t child = fork();
    if (child < 0)
        return 127;
    if (child == 0) {
        if (traced)
            ptrace(PTRACE_TRACEME, 0, nullptr, nullptr);
        execv(argv[0], argv);
        _exit(127);
    }
    int status = 0;
    while (waitpid(child, &status, 0) == child) {
        if (WIFEXITED(status))
            return WEXITSTATUS(status);
        if (WIFSIGNALED(status))
            return 128 + WTERMSIG(status);
        // Stopped under our trace (at exec, or by a signal): let it go on,
        // handing it any signal but the exec trap.
        const int signal = WSTOPSIG(status) == SIGTRAP ? 0 : WSTOPSIG(status);
        ptrace(PTRACE_CONT, child, nullptr, reinterpret_cast<void *>(intptr_t(signal)));
    }
    return 127;
}
} // namespace

int main(int argc, char **argv)
{
    if (argc > 2 && (std::strcmp(argv[1], "spawn") == 0 || std::strcmp(argv[1], "traced") == 0)) {
        std::fflush(stdout);
        return run(argv + 2, std::strcmp(argv[1], "traced") == 0);
    }
    if (argc != 3 || std::strcmp(argv[1], "ask") != 0)
        return 2;
    QCoreApplication app(argc, argv);
    const auto yesNo = [](bool b) { return b ? "yes" : "no"; };
    std::printf("launched by %s: %s\n", argv[2],
        yesNo(VXUtilities::wasLaunchedByProcess(QString::fromUtf8(argv[2]))));
    std::printf("login item: %s\n", yesNo(VXUtilities::wasLaunchedAsLoginItem()));
    std::printf("debugging: %s\n", yesNo(VXUtilities::debugging()));
    return 0;
}

// SPDX-FileCopyrightText: 2026 Quillet developers
// SPDX-License-Identifier: MIT
//
// A child process for tests; its first argument says how it behaves:
//   cooperative  ends on SIGTERM (the default)
//   stubborn     ignores SIGTERM; only SIGKILL ends it
//   gone         exits at once
//   busy         spends CPU time until killed
// It writes "ready" on standard output once it behaves so.
#include <signal.h>
#include <stdio.h>
#include <string.h>
#include <unistd.h>

int main(int argc, char **argv)
{
    const char *mode = argc > 1 ? argv[1] : "cooperative";
    if (strcmp(mode, "gone") == 0)
        return 0;
    if (strcmp(mode, "stubborn") == 0)
        signal(SIGTERM, SIG_IGN);
    printf("ready\n");
    fflush(stdout);
    if (strcmp(mode, "busy") == 0) {
        volatile unsigned long n = 0;
        for (;;)
            ++n;
    }
    for (;;)
        pause();
}

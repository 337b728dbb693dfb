// SPDX-FileCopyrightText: 2026 Quillet developers
// SPDX-License-Identifier: MIT
//
// Swaps names in a loop for a bounded time, as an attacker racing the
// helper would (run it as the attacking user):
//   swapper exchange A B SECONDS   exchanges A and B over and over
//   swapper plant DIR PREFIX TARGET SECONDS
//                                  moves every DIR/PREFIX* that appears
//                                  aside and puts a link to TARGET in its
//                                  place
// Prints the number of swaps made when the time is up.
#define _GNU_SOURCE
#include <dirent.h>
#include <fcntl.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <time.h>
#include <unistd.h>

int main(int argc, char **argv)
{
    long swaps = 0;
    if (argc == 5 && strcmp(argv[1], "exchange") == 0) {
        const time_t end = time(NULL) + atoi(argv[4]);
        while (time(NULL) < end)
            if (renameat2(AT_FDCWD, argv[2], AT_FDCWD, argv[3], RENAME_EXCHANGE) == 0)
                ++swaps;
    } else if (argc == 6 && strcmp(argv[1], "plant") == 0) {
        const time_t end = time(NULL) + atoi(argv[5]);
        const size_t prefix = strlen(argv[3]);
        char from[4096], aside[4200];
        while (time(NULL) < end) {
            DIR *dir = opendir(argv[2]);
            if (!dir)
                return 1;
            const struct dirent *e;
            while ((e = readdir(dir))) {
                if (strncmp(e->d_name, argv[3], prefix) != 0 || strstr(e->d_name, ".aside"))
                    continue;
                snprintf(from, sizeof from, "%s/%s", argv[2], e->d_name);
                snprintf(aside, sizeof aside, "%s.aside%ld", from, swaps);
                if (rename(from, aside) == 0 && symlink(argv[4], from) == 0)
                    ++swaps;
            }
            closedir(dir);
        }
    } else {
        fprintf(stderr, "usage: swapper exchange A B SECONDS | plant DIR PREFIX TARGET SECONDS\n");
        return 2;
    }
    printf("%ld\n", swaps);
    return 0;
}

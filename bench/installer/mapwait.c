// SPDX-FileCopyrightText: 2026 Quillet developers
// SPDX-License-Identifier: MIT
//
// mapwait PROGRAM [ARGS...]: starts the program on the X display and prints
// the milliseconds from its start to the first top-level window it maps,
// and its resident memory in KiB at that moment; then kills it. Watches
// only the root window's children, so it must run on a display of its own.
#define _GNU_SOURCE
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>
#include <xcb/xcb.h>

static long residentKiB(pid_t pid)
{
    char path[64], line[256];
    long kib = -1;
    snprintf(path, sizeof path, "/proc/%d/status", (int)pid);
    FILE *f = fopen(path, "r");
    if (!f)
        return -1;
    while (fgets(line, sizeof line, f))
        if (strncmp(line, "VmRSS:", 6) == 0)
            kib = strtol(line + 6, NULL, 10);
    fclose(f);
    return kib;
}

int main(int argc, char **argv)
{
    if (argc < 2) {
        fprintf(stderr, "usage: mapwait PROGRAM [ARGS...]\n");
        return 2;
    }
    xcb_connection_t *c = xcb_connect(NULL, NULL);
    if (xcb_connection_has_error(c)) {
        fprintf(stderr, "mapwait: no X display\n");
        return 2;
    }
    xcb_screen_t *screen = xcb_setup_roots_iterator(xcb_get_setup(c)).data;
    const uint32_t mask = XCB_EVENT_MASK_SUBSTRUCTURE_NOTIFY;
    xcb_change_window_attributes(c, screen->root, XCB_CW_EVENT_MASK, &mask);
    free(xcb_get_input_focus_reply(c, xcb_get_input_focus(c), NULL)); // applied before the start

    struct timespec t0, t1;
    clock_gettime(CLOCK_MONOTONIC, &t0);
    const pid_t pid = fork();
    if (pid == 0) {
        freopen("/dev/null", "w", stdout);
        freopen("/dev/null", "w", stderr);
        execv(argv[1], argv + 1);
        _exit(127);
    }
    xcb_generic_event_t *e;
    while ((e = xcb_wait_for_event(c))) {
        const int type = e->response_type & ~0x80;
        const int mapped
            = type == XCB_MAP_NOTIFY && !((xcb_map_notify_event_t *)e)->override_redirect;
        free(e);
        if (mapped)
            break;
    }
    clock_gettime(CLOCK_MONOTONIC, &t1);
    const long kib = residentKiB(pid);
    kill(pid, SIGKILL);
    waitpid(pid, NULL, 0);
    if (!e) {
        fprintf(stderr, "mapwait: the X connection ended\n");
        return 1;
    }
    printf("%.3f %ld\n", (t1.tv_sec - t0.tv_sec) * 1e3 + (t1.tv_nsec - t0.tv_nsec) / 1e6, kib);
    return 0;
}

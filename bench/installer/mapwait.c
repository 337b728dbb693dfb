// SPDX-FileCopyrightText: 2026 Quillet developers
// SPDX-License-Identifier: MIT
//
// mapwait PROGRAM [ARGS...]: starts the program on the X display and prints
//   MAP_MS MAP_KIB PAINT_MS PAINT_KIB
// the milliseconds from its start to the first top-level window it maps and
// to the first drawing inside that window, with its resident memory in KiB
// at each moment; then kills it. Watches the root window (its children's
// maps, and drawing through the DAMAGE extension), so it must run on a
// display of its own without a compositing manager.
#define _GNU_SOURCE
#include <poll.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>
#include <xcb/damage.h>
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

static double msSince(const struct timespec *t0)
{
    struct timespec t;
    clock_gettime(CLOCK_MONOTONIC, &t);
    return (t.tv_sec - t0->tv_sec) * 1e3 + (t.tv_nsec - t0->tv_nsec) / 1e6;
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
    const xcb_query_extension_reply_t *damage = xcb_get_extension_data(c, &xcb_damage_id);
    if (!damage || !damage->present) {
        fprintf(stderr, "mapwait: the X server has no DAMAGE extension\n");
        return 2;
    }
    free(xcb_damage_query_version_reply(c, xcb_damage_query_version(c, 1, 1), NULL));
    xcb_screen_t *screen = xcb_setup_roots_iterator(xcb_get_setup(c)).data;
    const uint32_t mask = XCB_EVENT_MASK_SUBSTRUCTURE_NOTIFY;
    xcb_change_window_attributes(c, screen->root, XCB_CW_EVENT_MASK, &mask);
    xcb_damage_create(c, xcb_generate_id(c), screen->root, XCB_DAMAGE_REPORT_LEVEL_RAW_RECTANGLES);
    free(xcb_get_input_focus_reply(c, xcb_get_input_focus(c), NULL)); // applied before the start

    struct timespec t0;
    clock_gettime(CLOCK_MONOTONIC, &t0);
    const pid_t pid = fork();
    if (pid == 0) {
        freopen("/dev/null", "w", stdout);
        freopen("/dev/null", "w", stderr);
        execv(argv[1], argv + 1);
        _exit(127);
    }
    double mapMs = -1, paintMs = -1;
    long mapKiB = -1, paintKiB = -1;
    xcb_window_t window = XCB_NONE;
    int x = 0, y = 0, width = 0, height = 0;
    struct pollfd pfd = { xcb_get_file_descriptor(c), POLLIN, 0 };
    while (paintMs < 0) {
        xcb_generic_event_t *e = xcb_poll_for_event(c);
        if (!e) {
            if (xcb_connection_has_error(c) || poll(&pfd, 1, 10000) <= 0)
                break; // the connection ended, or nothing for ten seconds
            continue;
        }
        const int type = e->response_type & ~0x80;
        if (type == XCB_MAP_NOTIFY && window == XCB_NONE
            && !((xcb_map_notify_event_t *)e)->override_redirect) {
            mapMs = msSince(&t0);
            mapKiB = residentKiB(pid);
            window = ((xcb_map_notify_event_t *)e)->window;
            xcb_get_geometry_reply_t *g
                = xcb_get_geometry_reply(c, xcb_get_geometry(c, window), NULL);
            if (g) {
                x = g->x, y = g->y, width = g->width, height = g->height;
                free(g);
            }
        } else if (type == damage->first_event + XCB_DAMAGE_NOTIFY && window != XCB_NONE) {
            const xcb_rectangle_t *r = &((xcb_damage_notify_event_t *)e)->area;
            if (r->x < x + width && r->x + r->width > x && r->y < y + height
                && r->y + r->height > y) {
                paintMs = msSince(&t0);
                paintKiB = residentKiB(pid);
            }
        }
        free(e);
    }
    kill(pid, SIGKILL);
    waitpid(pid, NULL, 0);
    if (paintMs < 0) {
        fprintf(stderr, "mapwait: no window was %s\n", mapMs < 0 ? "mapped" : "painted");
        return 1;
    }
    printf("%.3f %ld %.3f %ld\n", mapMs, mapKiB, paintMs, paintKiB);
    return 0;
}

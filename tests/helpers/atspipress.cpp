// SPDX-FileCopyrightText: 2026 Quillet developers
// SPDX-License-Identifier: MIT
//
// Presses buttons of a running program through AT-SPI, as a screen reader
// would: the one way to press a button in a Wayland session, where no client
// may send input to another. atspipress PID BUTTON... waits (up to a minute
// each) for a shown, enabled push button of that name in the program and
// presses it, in turn. Exit 1 names the button that never came.
#include <atspi/atspi.h>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace {
// A child of node (the desktop's children are applications) for which
// found() holds, or the first of its descendants down to depth; a new
// reference, or null.
template <typename Found> AtspiAccessible *find(AtspiAccessible *node, int depth, Found found)
{
    const int count = atspi_accessible_get_child_count(node, nullptr);
    for (int i = 0; i < count; ++i) {
        AtspiAccessible *child = atspi_accessible_get_child_at_index(node, i, nullptr);
        if (!child)
            continue;
        AtspiAccessible *hit = nullptr;
        if (found(child))
            hit = static_cast<AtspiAccessible *>(g_object_ref(child));
        else if (depth > 0)
            hit = find(child, depth - 1, found);
        g_object_unref(child);
        if (hit)
            return hit;
    }
    return nullptr;
}

bool isButton(AtspiAccessible *node, const char *name)
{
    if (atspi_accessible_get_role(node, nullptr) != ATSPI_ROLE_PUSH_BUTTON)
        return false;
    gchar *text = atspi_accessible_get_name(node, nullptr);
    AtspiStateSet *states = atspi_accessible_get_state_set(node);
    const bool yes = text && std::strcmp(text, name) == 0
        && atspi_state_set_contains(states, ATSPI_STATE_SHOWING)
        && atspi_state_set_contains(states, ATSPI_STATE_ENABLED);
    g_free(text);
    g_object_unref(states);
    return yes;
}

bool press(int pid, const char *name)
{
    for (int attempt = 0; attempt < 600; ++attempt, g_usleep(100 * 1000)) {
        AtspiAccessible *desktop = atspi_get_desktop(0);
        atspi_accessible_clear_cache(desktop);
        AtspiAccessible *app = find(desktop, 0, [pid](AtspiAccessible *a) {
            return int(atspi_accessible_get_process_id(a, nullptr)) == pid;
        });
        g_object_unref(desktop);
        if (!app)
            continue;
        atspi_accessible_clear_cache(app);
        AtspiAccessible *button
            = find(app, 64, [name](AtspiAccessible *a) { return isButton(a, name); });
        g_object_unref(app);
        if (!button)
            continue;
        AtspiAction *action = atspi_accessible_get_action_iface(button);
        const bool done = action && atspi_action_do_action(action, 0, nullptr);
        if (action)
            g_object_unref(action);
        g_object_unref(button);
        if (done)
            return true;
    }
    return false;
}
} // namespace

int main(int argc, char **argv)
{
    if (argc < 3) {
        std::fprintf(stderr, "usage: atspipress PID BUTTON...\n");
        return 64;
    }
    if (atspi_init() < 0) {
        std::fprintf(stderr, "atspipress: no accessibility bus\n");
        return 1;
    }
    const int pid = std::atoi(argv[1]);
    for (int i = 2; i < argc; ++i) {
        if (!press(pid, argv[i])) {
            std::fprintf(stderr, "atspipress: no button \"%s\" in process %d\n", argv[i], pid);
            return 1;
        }
    }
    return 0;
}

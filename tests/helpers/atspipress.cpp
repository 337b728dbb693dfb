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
AtspiAccessible *findApplication(int pid)
{
    AtspiAccessible *desktop = atspi_get_desktop(0);
    atspi_accessible_clear_cache(desktop);
    AtspiAccessible *found = nullptr;
    const int count = atspi_accessible_get_child_count(desktop, nullptr);
    for (int i = 0; i < count && !found; ++i) {
        AtspiAccessible *child = atspi_accessible_get_child_at_index(desktop, i, nullptr);
        if (child && int(atspi_accessible_get_process_id(child, nullptr)) == pid)
            found = child;
        else if (child)
            g_object_unref(child);
    }
    g_object_unref(desktop);
    return found;
}

bool usable(AtspiAccessible *node)
{
    AtspiStateSet *states = atspi_accessible_get_state_set(node);
    const bool yes = atspi_state_set_contains(states, ATSPI_STATE_SHOWING)
        && atspi_state_set_contains(states, ATSPI_STATE_ENABLED);
    g_object_unref(states);
    return yes;
}

AtspiAccessible *findButton(AtspiAccessible *node, const char *name, int depth = 0)
{
    if (depth > 64)
        return nullptr;
    if (atspi_accessible_get_role(node, nullptr) == ATSPI_ROLE_PUSH_BUTTON) {
        gchar *text = atspi_accessible_get_name(node, nullptr);
        const bool match = text && std::strcmp(text, name) == 0 && usable(node);
        g_free(text);
        return match ? static_cast<AtspiAccessible *>(g_object_ref(node)) : nullptr;
    }
    AtspiAccessible *found = nullptr;
    const int count = atspi_accessible_get_child_count(node, nullptr);
    for (int i = 0; i < count && !found; ++i) {
        AtspiAccessible *child = atspi_accessible_get_child_at_index(node, i, nullptr);
        if (!child)
            continue;
        found = findButton(child, name, depth + 1);
        g_object_unref(child);
    }
    return found;
}

bool press(int pid, const char *name)
{
    for (int attempt = 0; attempt < 600; ++attempt) {
        if (AtspiAccessible *app = findApplication(pid)) {
            atspi_accessible_clear_cache(app);
            AtspiAccessible *button = findButton(app, name);
            g_object_unref(app);
            if (button) {
                AtspiAction *action = atspi_accessible_get_action_iface(button);
                const bool done = action && atspi_action_do_action(action, 0, nullptr);
                if (action)
                    g_object_unref(action);
                g_object_unref(button);
                if (done)
                    return true;
            }
        }
        g_usleep(100 * 1000);
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

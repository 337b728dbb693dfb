// SPDX-FileCopyrightText: 2026 Quillet developers
// SPDX-License-Identifier: MIT
//
// What the X server tells about the session: the clipboard's change count
// (XFixes selection-owner events on CLIPBOARD, so other applications'
// copies count too; counted from the first question on), full screen
// (EWMH _NET_WM_STATE_FULLSCREEN on the window in _NET_ACTIVE_WINDOW, whose
// changes stand for the menu bar hiding and showing) and idle time (the
// MIT-SCREEN-SAVER extension). One connection, opened on first use and kept;
// its events are read by the event loop of the thread that opened it and
// before every answer. Without an X server (or without XFixes) the count
// stays 0, no handler is installed and the idle time is unknown.
#include "vxutilities_p.h"

#include <QCoreApplication>
#include <QMutex>
#include <QSocketNotifier>
#include <X11/Xatom.h>
#include <X11/Xlib.h>
#include <X11/extensions/Xfixes.h>
#include <X11/extensions/scrnsaver.h>

namespace {
int ignoreErrors(Display *, XErrorEvent *)
{
    return 0; // the active window may vanish between two requests
}

struct Session
{
    Display *display = nullptr;
    Window root = None;
    Atom activeWindowAtom = None, stateAtom = None, fullScreenAtom = None;
    int fixesEventBase = 0;
    bool fixes = false;
    qint64 clipboardChanges = 0;
    Window active = None;
    bool fullScreen = false;
    std::function<void(bool)> menuBarHandler;

    bool activeIsFullScreen() const
    {
        if (active == None)
            return false;
        Atom type = None;
        int format = 0;
        unsigned long count = 0, after = 0;
        unsigned char *data = nullptr;
        bool found = false;
        if (XGetWindowProperty(display, active, stateAtom, 0, 64, False, XA_ATOM, &type, &format,
                &count, &after, &data)
                == Success
            && data && format == 32) {
            const auto *atoms = reinterpret_cast<const unsigned long *>(data);
            for (unsigned long i = 0; i < count; ++i)
                found = found || atoms[i] == fullScreenAtom;
        }
        if (data)
            XFree(data);
        return found;
    }

    void followActiveWindow()
    {
        Atom type = None;
        int format = 0;
        unsigned long count = 0, after = 0;
        unsigned char *data = nullptr;
        Window now = None;
        if (XGetWindowProperty(display, root, activeWindowAtom, 0, 1, False, XA_WINDOW, &type,
                &format, &count, &after, &data)
                == Success
            && data && format == 32 && count == 1)
            now = Window(*reinterpret_cast<const unsigned long *>(data));
        if (data)
            XFree(data);
        if (now != active) {
            active = now;
            if (active != None)
                XSelectInput(display, active, PropertyChangeMask); // its _NET_WM_STATE
        }
    }

    void updateFullScreen()
    {
        const bool now = activeIsFullScreen();
        if (now == fullScreen)
            return;
        fullScreen = now;
        if (menuBarHandler)
            menuBarHandler(now);
    }

    void drain()
    {
        while (XPending(display)) {
            XEvent event;
            XNextEvent(display, &event);
            if (fixes && event.type == fixesEventBase + XFixesSelectionNotify) {
                ++clipboardChanges;
            } else if (event.type == PropertyNotify && menuBarHandler) {
                if (event.xproperty.window == root && event.xproperty.atom == activeWindowAtom) {
                    followActiveWindow();
                    updateFullScreen();
                } else if (event.xproperty.window == active && event.xproperty.atom == stateAtom) {
                    updateFullScreen();
                }
            }
        }
    }
};

QMutex g_lock;

// Opened once; nullptr without an X server.
Session *session()
{
    static Session *s = []() -> Session * {
        if (qEnvironmentVariableIsEmpty("DISPLAY"))
            return nullptr;
        XSetErrorHandler(ignoreErrors);
        Display *display = XOpenDisplay(nullptr);
        if (!display)
            return nullptr;
        auto *session = new Session; // kept for the process's life
        session->display = display;
        session->root = DefaultRootWindow(display);
        session->activeWindowAtom = XInternAtom(display, "_NET_ACTIVE_WINDOW", False);
        session->stateAtom = XInternAtom(display, "_NET_WM_STATE", False);
        session->fullScreenAtom = XInternAtom(display, "_NET_WM_STATE_FULLSCREEN", False);
        int errorBase = 0;
        session->fixes = XFixesQueryExtension(display, &session->fixesEventBase, &errorBase);
        if (session->fixes)
            XFixesSelectSelectionInput(display, session->root,
                XInternAtom(display, "CLIPBOARD", False), XFixesSetSelectionOwnerNotifyMask);
        XFlush(display);
        if (QCoreApplication::instance()) {
            auto *notifier = new QSocketNotifier(ConnectionNumber(display), QSocketNotifier::Read);
            QObject::connect(notifier, &QSocketNotifier::activated, notifier, [session] {
                QMutexLocker lock(&g_lock);
                session->drain();
            });
        }
        return session;
    }();
    return s;
}
} // namespace

qint64 VXUtilitiesPlatform::clipboardChangeCount()
{
    QMutexLocker lock(&g_lock);
    Session *s = session();
    if (!s)
        return 0;
    XSync(s->display, False); // every owner change the server made so far
    s->drain();
    return s->clipboardChanges;
}

bool VXUtilitiesPlatform::installMenuBarVisibilityHandler(const std::function<void(bool)> &handler)
{
    QMutexLocker lock(&g_lock);
    Session *s = session();
    if (!s)
        return false;
    s->menuBarHandler = handler;
    XSelectInput(s->display, s->root, PropertyChangeMask);
    s->followActiveWindow();
    // The state at installation is not an event: only later changes are.
    s->fullScreen = s->activeIsFullScreen();
    XFlush(s->display);
    return true;
}

std::optional<double> VXUtilitiesPlatform::idleSecondsFromX()
{
    QMutexLocker lock(&g_lock);
    Session *s = session();
    int eventBase = 0, errorBase = 0;
    if (!s || !XScreenSaverQueryExtension(s->display, &eventBase, &errorBase))
        return std::nullopt;
    XScreenSaverInfo *info = XScreenSaverAllocInfo();
    if (!info)
        return std::nullopt;
    std::optional<double> idle;
    if (XScreenSaverQueryInfo(s->display, s->root, info))
        idle = info->idle / 1000.0;
    XFree(info);
    return idle;
}

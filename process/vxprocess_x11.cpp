// SPDX-FileCopyrightText: 2026 Quillet developers
// SPDX-License-Identifier: MIT
//
// Windows of processes through the X server and the window manager's
// Extended Window Manager Hints: the front application is the owner
// (_NET_WM_PID) of _NET_ACTIVE_WINDOW; a process comes forward by a
// _NET_ACTIVE_WINDOW client message for its windows (EWMH "_NET_ACTIVE_WINDOW",
// source indication 2, as pagers send it, so the window manager does not
// apply focus-stealing prevention); it hides by iconifying (ICCCM 4.1.4).
// A window without _NET_WM_PID is taken as its client leader's
// (ICCCM WM_CLIENT_LEADER); windows of neither cannot be told apart.
// The applications with windows are the owners of _NET_CLIENT_LIST.
// Without an X server every call fails quietly.
#include "utilities/vxlazylibrary_p.h"
#include "vxprocess_p.h"

#include <QCoreApplication>
#include <QMutex>
#include <QSet>
#include <QSocketNotifier>
#include <X11/Xatom.h>
#include <X11/Xlib.h>
#include <X11/Xutil.h>
#include <memory>
#include <optional>
#include <vector>

namespace {
// libX11 is loaded when a window function is first used, not when the
// program starts: a program that only lists processes never pays for it.
#define XLIB_FUNCTIONS(F)                                                                          \
    F(XCloseDisplay)                                                                               \
    F(XFlush)                                                                                      \
    F(XFree)                                                                                       \
    F(XGetWindowProperty)                                                                          \
    F(XIconifyWindow)                                                                              \
    F(XInternAtom)                                                                                 \
    F(XNextEvent)                                                                                  \
    F(XOpenDisplay)                                                                                \
    F(XPending)                                                                                    \
    F(XSelectInput)                                                                                \
    F(XSendEvent)                                                                                  \
    F(XSetErrorHandler)                                                                            \
    F(XSync)
VX_LAZY_LIBRARY(XlibApi, xlib, "libX11.so.6", XLIB_FUNCTIONS)
} // namespace

// Every Xlib call below goes through the loaded library.
#define XCloseDisplay (xlib()->p_XCloseDisplay)
#define XFlush (xlib()->p_XFlush)
#define XFree (xlib()->p_XFree)
#define XGetWindowProperty (xlib()->p_XGetWindowProperty)
#define XIconifyWindow (xlib()->p_XIconifyWindow)
#define XInternAtom (xlib()->p_XInternAtom)
#define XNextEvent (xlib()->p_XNextEvent)
#define XOpenDisplay (xlib()->p_XOpenDisplay)
#define XPending (xlib()->p_XPending)
#define XSelectInput (xlib()->p_XSelectInput)
#define XSendEvent (xlib()->p_XSendEvent)
#define XSetErrorHandler (xlib()->p_XSetErrorHandler)
#define XSync (xlib()->p_XSync)

namespace {

struct DisplayCloser
{
    void operator()(Display *d) const
    {
        if (d)
            XCloseDisplay(d);
    }
};
using DisplayPtr = std::unique_ptr<Display, DisplayCloser>;

int ignoreErrors(Display *, XErrorEvent *)
{
    return 0; // a window that vanished between two calls is not an error to us
}

DisplayPtr openDisplay()
{
    if (qEnvironmentVariableIsEmpty("DISPLAY") || !xlib())
        return nullptr;
    static const bool handlerSet = [] {
        XSetErrorHandler(ignoreErrors);
        return true;
    }();
    Q_UNUSED(handlerSet);
    if (qEnvironmentVariableIsEmpty("DISPLAY"))
        return nullptr;
    return DisplayPtr(XOpenDisplay(nullptr));
}

std::vector<unsigned long> property(Display *d, Window w, const char *name, Atom type)
{
    std::vector<unsigned long> values;
    Atom actualType = None;
    int format = 0;
    unsigned long count = 0, after = 0;
    unsigned char *data = nullptr;
    const Atom atom = XInternAtom(d, name, False);
    if (XGetWindowProperty(
            d, w, atom, 0, 65536, False, type, &actualType, &format, &count, &after, &data)
            == Success
        && data && format == 32) {
        const auto *longs = reinterpret_cast<const unsigned long *>(data);
        values.assign(longs, longs + count);
    }
    if (data)
        XFree(data);
    return values;
}

qint32 pidOfWindow(Display *d, Window w)
{
    const auto pid = property(d, w, "_NET_WM_PID", XA_CARDINAL);
    if (!pid.empty())
        return qint32(pid.front());
    const auto leader = property(d, w, "WM_CLIENT_LEADER", XA_WINDOW);
    if (leader.empty() || Window(leader.front()) == w)
        return 0;
    const auto leaderPid = property(d, Window(leader.front()), "_NET_WM_PID", XA_CARDINAL);
    return leaderPid.empty() ? 0 : qint32(leaderPid.front());
}

QSet<qint32> clientPids(Display *d)
{
    QSet<qint32> pids;
    for (unsigned long w : property(d, DefaultRootWindow(d), "_NET_CLIENT_LIST", XA_WINDOW))
        if (const qint32 pid = pidOfWindow(d, Window(w)); pid > 0)
            pids.insert(pid);
    return pids;
}

// One connection for lookups from any thread, kept open: a listing asks the
// server afresh, so it never lags behind the watcher's events.
QMutex g_queryLock;
Display *g_queryDisplay = nullptr;
bool g_queryTried = false;

Window activeWindow(Display *d)
{
    const auto active = property(d, DefaultRootWindow(d), "_NET_ACTIVE_WINDOW", XA_WINDOW);
    return active.empty() ? None : Window(active.front());
}

// The process's managed windows, bottom to top.
std::vector<Window> windowsOf(Display *d, qint32 pid)
{
    std::vector<Window> out;
    for (unsigned long w :
        property(d, DefaultRootWindow(d), "_NET_CLIENT_LIST_STACKING", XA_WINDOW))
        if (pidOfWindow(d, Window(w)) == pid)
            out.push_back(Window(w));
    return out;
}

void requestActivation(Display *d, Window w)
{
    XEvent event {};
    event.xclient.type = ClientMessage;
    event.xclient.window = w;
    event.xclient.message_type = XInternAtom(d, "_NET_ACTIVE_WINDOW", False);
    event.xclient.format = 32;
    event.xclient.data.l[0] = 2; // source: pager
    event.xclient.data.l[1] = CurrentTime;
    event.xclient.data.l[2] = 0;
    XSendEvent(
        d, DefaultRootWindow(d), False, SubstructureRedirectMask | SubstructureNotifyMask, &event);
}

class DisplayWatcher : public QObject
{
public:
    DisplayWatcher(DisplayPtr display, std::function<void()> windowsChanged,
        std::function<void()> frontSwitched, QObject *parent)
        : QObject(parent)
        , m_display(std::move(display))
        , m_windowsChanged(std::move(windowsChanged))
        , m_frontSwitched(std::move(frontSwitched))
    {
        Display *d = m_display.get();
        m_activeAtom = XInternAtom(d, "_NET_ACTIVE_WINDOW", False);
        m_clientListAtom = XInternAtom(d, "_NET_CLIENT_LIST", False);
        XSelectInput(d, DefaultRootWindow(d), PropertyChangeMask);
        m_lastPid = pidOfWindow(d, activeWindow(d));
        m_owners = clientPids(d);
        XFlush(d);
        m_notifier = new QSocketNotifier(ConnectionNumber(d), QSocketNotifier::Read, this);
        connect(m_notifier, &QSocketNotifier::activated, this, &DisplayWatcher::drain);
        QMetaObject::invokeMethod(this, &DisplayWatcher::drain, Qt::QueuedConnection);
    }

private:
    void drain()
    {
        Display *d = m_display.get();
        // Reading a property may queue further events in Xlib, where the
        // socket notifier cannot see them: go on until the queue is empty.
        for (;;) {
            bool front = false, clients = false;
            while (XPending(d)) {
                XEvent event;
                XNextEvent(d, &event);
                if (event.type != PropertyNotify)
                    continue;
                front = front || event.xproperty.atom == m_activeAtom;
                clients = clients || event.xproperty.atom == m_clientListAtom;
            }
            if (!front && !clients)
                return;
            if (clients) {
                QSet<qint32> owners = clientPids(d);
                if (owners != m_owners) {
                    m_owners = owners;
                    m_windowsChanged();
                }
            }
            if (front) {
                // Only a switch to another application counts, not between
                // its windows; no active window is a passing state between
                // two applications.
                const qint32 pid = pidOfWindow(d, activeWindow(d));
                if (pid != 0 && pid != m_lastPid) {
                    m_lastPid = pid;
                    m_frontSwitched();
                }
            }
        }
    }

    DisplayPtr m_display;
    std::function<void()> m_windowsChanged;
    std::function<void()> m_frontSwitched;
    Atom m_activeAtom = None;
    Atom m_clientListAtom = None;
    qint32 m_lastPid = 0;
    QSet<qint32> m_owners;
    QSocketNotifier *m_notifier = nullptr;
};

} // namespace

qint32 VXProcessPlatform::frontPid()
{
    DisplayPtr d = openDisplay();
    if (!d)
        return 0;
    const Window w = activeWindow(d.get());
    return w == None ? 0 : pidOfWindow(d.get(), w);
}

bool VXProcessPlatform::activate(qint32 pid, bool frontWindowOnly)
{
    DisplayPtr d = openDisplay();
    if (!d || pid <= 0)
        return false;
    const std::vector<Window> windows = windowsOf(d.get(), pid);
    if (windows.empty())
        return false;
    if (frontWindowOnly) {
        requestActivation(d.get(), windows.back());
    } else {
        for (Window w : windows) // bottom to top: the top one ends up active
            requestActivation(d.get(), w);
    }
    XSync(d.get(), False);
    return true;
}

bool VXProcessPlatform::setHidden(qint32 pid, bool hidden)
{
    if (!hidden)
        return activate(pid, false);
    DisplayPtr d = openDisplay();
    if (!d || pid <= 0)
        return false;
    const std::vector<Window> windows = windowsOf(d.get(), pid);
    for (Window w : windows)
        XIconifyWindow(d.get(), w, DefaultScreen(d.get()));
    XSync(d.get(), False);
    return !windows.empty();
}

QSet<qint32> VXProcessPlatform::windowOwnerPids()
{
    QMutexLocker lock(&g_queryLock);
    if (!g_queryTried) {
        g_queryTried = true;
        g_queryDisplay = openDisplay().release(); // kept for the life of the program
    }
    return g_queryDisplay ? clientPids(g_queryDisplay) : QSet<qint32>();
}

bool VXProcessPlatform::installWindowWatcher(
    const std::function<void()> &windowsChanged, const std::function<void()> &frontSwitched)
{
    DisplayPtr d = openDisplay();
    if (!d || !QCoreApplication::instance())
        return false;
    new DisplayWatcher(std::move(d), windowsChanged, frontSwitched, QCoreApplication::instance());
    return true;
}

// SPDX-FileCopyrightText: 2026 Quillet developers
// SPDX-License-Identifier: MIT
//
// Blur-behind on X11, as KWin offers it: a compositor announces the effect
// by keeping the property _KDE_NET_WM_BLUR_BEHIND_REGION on the root
// window, and blurs behind a window that carries that property (a list of
// rectangles; none means the whole window). Compositors without the effect
// (and X servers without a compositor) get an opaque material. Wayland is
// not handled: there the material is opaque.
#include "vxviewextensions_p.h"

#include <QGuiApplication>
#include <QWidget>
#include <X11/Xatom.h>
#include <X11/Xlib.h>

namespace {

Display *display()
{
    auto *x11 = qGuiApp ? qGuiApp->nativeInterface<QNativeInterface::QX11Application>() : nullptr;
    return x11 ? x11->display() : nullptr;
}

} // namespace

namespace VXViewExtensionsPlatform {

bool blurBehindAvailable()
{
    Display *dpy = display();
    if (!dpy)
        return false;
    // A compositing manager owns _NET_WM_CM_Sn (EWMH, "Compositing Managers").
    const QByteArray selection = "_NET_WM_CM_S" + QByteArray::number(DefaultScreen(dpy));
    const Atom cm = XInternAtom(dpy, selection.constData(), False);
    if (XGetSelectionOwner(dpy, cm) == None)
        return false;
    const Atom blur = XInternAtom(dpy, "_KDE_NET_WM_BLUR_BEHIND_REGION", True);
    if (blur == None)
        return false;
    int count = 0;
    Atom *properties = XListProperties(dpy, DefaultRootWindow(dpy), &count);
    bool found = false;
    for (int i = 0; i < count && !found; ++i)
        found = properties[i] == blur;
    if (properties)
        XFree(properties);
    return found;
}

void enableBlurBehind(QWidget *window)
{
    Display *dpy = display();
    if (!dpy || !window)
        return;
    const Atom blur = XInternAtom(dpy, "_KDE_NET_WM_BLUR_BEHIND_REGION", False);
    XChangeProperty(dpy, window->winId(), blur, XA_CARDINAL, 32, PropModeReplace, nullptr, 0);
    XFlush(dpy);
}

} // namespace VXViewExtensionsPlatform

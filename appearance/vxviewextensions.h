// SPDX-FileCopyrightText: 2026 Quillet developers
// SPDX-License-Identifier: MIT
#pragma once

#include <QPointF>
#include <QRectF>
#include <QWidget>

// A translucent material behind other widgets. Where the desktop's
// compositor offers blur-behind (KWin's _KDE_NET_WM_BLUR_BEHIND_REGION on
// X11) and the window was made translucent before it was shown, the
// material lets the blurred desktop through; everywhere else it is an
// opaque material in the palette's window colour.
class VXVisualEffectView : public QWidget
{
    Q_OBJECT
public:
    explicit VXVisualEffectView(QWidget *parent = nullptr);
    // Whether the material is translucent at the moment.
    bool isBlurringBehind() const;

protected:
    void paintEvent(QPaintEvent *event) override;
    void showEvent(QShowEvent *event) override;
};

// Small operations the library's windows share. None keeps state of its own.
namespace VXViewExtensions {

// Raises the view above its siblings; nothing without a parent.
void bringToFrontInsideSuperView(QWidget *view);

// Scrolls the QScrollArea around the view vertically, animated with the
// toolkit's default duration, just far enough to show rect (in the view's
// coordinates). Answers whether a scroll was started: false when rect is
// already visible or there is no scroll area. A rect taller than the visible
// area shows its high-y end (the bottom, y growing downwards) with
// preferTop, else its origin.
bool animatedVerticalScrollRectToVisible(QWidget *view, const QRectF &rect, bool preferTop);
// The plain, unanimated scroll to make rect visible, whatever animated
// says; answers whether anything scrolled.
bool scrollRectToVisible(QWidget *view, const QRectF &rect, bool animated);
// Scrolls, animated, so that point (in the scrolled widget's coordinates)
// is the visible area's origin, as far as the scroll area's range allows.
void scrollPointAnimated(QWidget *view, const QPointF &point);

// true: a light palette on the view and everything inside it, whatever
// the application's appearance; false: the view inherits its parent's
// palette again.
void useLightAquaAppearance(QWidget *view, bool light);

// Calls the view's slot member (given as SLOT(name())) whenever the
// desktop's light/dark appearance or accent colour changes. The view
// unregisters before it goes away or lets QObject's disconnection on
// destruction do it.
void registerDarkModeNotifications(QWidget *view, const char *member);
void unregisterDarkModeNotifications(QWidget *view);

// The view's direct parent when that is a visual-effect view, else null.
VXVisualEffectView *enclosingVisualEffectView(QWidget *view);
// Puts the view into a new visual-effect view of its geometry that takes
// its place on top of its former siblings, or answers the one it is already
// in. A view without a parent is wrapped all the same; the new view then
// has no parent either.
VXVisualEffectView *wrapInVisualEffectView(QWidget *view);

// Scale: how many device-independent pixels one unit of the view is.
// A QGraphicsView's scale is that of its transform; any other widget keeps
// its factor in the property "vxScale" (1.0 when unset), which a widget that
// paints through a transform applies itself (painter.scale()).
double scale(const QWidget *view);
// Resets the scaling first, so that setting 2.0 twice gives 2.0. A factor
// that is not a positive number changes nothing.
void setScale(QWidget *view, double scale);
// One view unit is one pixel again.
void resetScaling(QWidget *view);

} // namespace VXViewExtensions

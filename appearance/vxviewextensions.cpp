// SPDX-FileCopyrightText: 2026 Quillet developers
// SPDX-License-Identifier: MIT
#include "vxviewextensions.h"

#include "vxappearance.h"
#include "vxviewextensions_p.h"

#include <QGraphicsView>
#include <QPainter>
#include <QParallelAnimationGroup>
#include <QPropertyAnimation>
#include <QScrollArea>
#include <QScrollBar>
#include <QtMath>
#include <cmath>

namespace {

const char *const kScaleProperty = "vxScale";

// The scroll area whose scrolled widget is the view or holds it.
QScrollArea *enclosingScrollArea(QWidget *view)
{
    for (QWidget *w = view ? view->parentWidget() : nullptr; w; w = w->parentWidget()) {
        if (auto *area = qobject_cast<QScrollArea *>(w)) {
            if (area->widget() && (area->widget() == view || area->widget()->isAncestorOf(view)))
                return area;
        }
    }
    return nullptr;
}

// Moves both scroll bars to the new origin inside one animation of the
// toolkit's default duration (QVariantAnimation's 250 ms). A later scroll
// replaces one still under way.
void animateOrigin(QScrollArea *area, int x, int y)
{
    const QString name = QStringLiteral("vxScrollAnimation");
    if (auto *running
        = area->findChild<QParallelAnimationGroup *>(name, Qt::FindDirectChildrenOnly))
        running->stop(); // deletes it
    auto *group = new QParallelAnimationGroup(area);
    group->setObjectName(name);
    auto *horizontal = new QPropertyAnimation(area->horizontalScrollBar(), "value", group);
    horizontal->setEndValue(x);
    auto *vertical = new QPropertyAnimation(area->verticalScrollBar(), "value", group);
    vertical->setEndValue(y);
    group->start(QAbstractAnimation::DeleteWhenStopped);
}

} // namespace

VXVisualEffectView::VXVisualEffectView(QWidget *parent)
    : QWidget(parent)
{
    setAutoFillBackground(false);
}

bool VXVisualEffectView::isBlurringBehind() const
{
    const QWidget *top = window();
    return top && top->testAttribute(Qt::WA_TranslucentBackground)
        && VXViewExtensionsPlatform::blurBehindAvailable();
}

void VXVisualEffectView::showEvent(QShowEvent *event)
{
    QWidget::showEvent(event);
    if (isBlurringBehind())
        VXViewExtensionsPlatform::enableBlurBehind(window());
}

void VXVisualEffectView::paintEvent(QPaintEvent *)
{
    QPainter painter(this);
    QColor material = palette().color(QPalette::Window);
    if (isBlurringBehind())
        material.setAlphaF(0.75f); // the compositor blurs what shows through
    painter.setCompositionMode(QPainter::CompositionMode_Source);
    painter.fillRect(rect(), material);
}

namespace VXViewExtensions {

void bringToFrontInsideSuperView(QWidget *view)
{
    if (view && view->parentWidget())
        view->raise();
}

bool animatedVerticalScrollRectToVisible(QWidget *view, const QRectF &rect, bool preferTop)
{
    QScrollArea *area = enclosingScrollArea(view);
    if (!area)
        return false;
    QWidget *viewport = area->viewport();
    const QRectF visible = QRectF(view->mapFrom(viewport, QPoint(0, 0)), viewport->size());
    double y = rect.y();
    double height = rect.height();
    if (height > visible.height()) {
        height = visible.height();
        if (preferTop)
            y = rect.y() + rect.height() - visible.height();
    }
    double change;
    if (visible.y() > y) {
        change = y - visible.y();
    } else if (y + height >= visible.y() + visible.height()) {
        // intended: a far edge exactly on the visible edge still scrolls, by 0
        change = (y + height) - (visible.y() + visible.height());
    } else {
        return false;
    }
    // kept on purpose: the new origin passes through single precision
    const float newY = float(area->verticalScrollBar()->value() + change);
    animateOrigin(area, 0, qRound(newY));
    return true;
}

bool scrollRectToVisible(QWidget *view, const QRectF &rect, bool /*animated*/)
{
    QScrollArea *area = enclosingScrollArea(view);
    if (!area)
        return false;
    const int x = area->horizontalScrollBar()->value();
    const int y = area->verticalScrollBar()->value();
    const QRectF r = rect.translated(view->mapTo(area->widget(), QPoint(0, 0)));
    // ensureVisible() shows a point with margins: the centre, with half the
    // size on either side.
    area->ensureVisible(qRound(r.center().x()), qRound(r.center().y()), qCeil(r.width() / 2),
        qCeil(r.height() / 2));
    return x != area->horizontalScrollBar()->value() || y != area->verticalScrollBar()->value();
}

void scrollPointAnimated(QWidget *view, const QPointF &point)
{
    QScrollArea *area = enclosingScrollArea(view);
    if (!area)
        return;
    const QScrollBar *h = area->horizontalScrollBar();
    const QScrollBar *v = area->verticalScrollBar();
    animateOrigin(area, std::clamp(qRound(point.x()), h->minimum(), h->maximum()),
        std::clamp(qRound(point.y()), v->minimum(), v->maximum()));
}

void useLightAquaAppearance(QWidget *view, bool light)
{
    if (!view)
        return;
    // A palette with an empty resolve mask makes the view inherit again.
    view->setPalette(light ? VXAppearance::lightPalette() : QPalette());
}

void registerDarkModeNotifications(QWidget *view, const char *member)
{
    if (view && member)
        QObject::connect(
            VXAppearance::desktopNotifier(), SIGNAL(changed()), view, member, Qt::UniqueConnection);
}

void unregisterDarkModeNotifications(QWidget *view)
{
    if (view)
        QObject::disconnect(VXAppearance::desktopNotifier(), SIGNAL(changed()), view, nullptr);
}

VXVisualEffectView *enclosingVisualEffectView(QWidget *view)
{
    return view ? qobject_cast<VXVisualEffectView *>(view->parentWidget()) : nullptr;
}

VXVisualEffectView *wrapInVisualEffectView(QWidget *view)
{
    if (!view)
        return nullptr;
    if (VXVisualEffectView *existing = enclosingVisualEffectView(view))
        return existing;
    QWidget *former = view->parentWidget();
    const bool wasVisible = view->isVisibleTo(former);
    auto *effect = new VXVisualEffectView;
    effect->setGeometry(view->geometry());
    view->setParent(effect);
    view->setGeometry(0, 0, effect->width(), effect->height());
    if (wasVisible || !former)
        view->show();
    if (former) {
        // intended: on top of the former siblings, not in the view's place
        effect->setParent(former);
        effect->raise();
        if (wasVisible)
            effect->show();
    }
    return effect;
}

double scale(const QWidget *view)
{
    if (auto *graphics = qobject_cast<const QGraphicsView *>(view))
        return graphics->transform().map(QLineF(0, 0, 1, 0)).dx();
    const QVariant factor = view ? view->property(kScaleProperty) : QVariant();
    return factor.isValid() ? factor.toDouble() : 1.0;
}

void resetScaling(QWidget *view)
{
    if (auto *graphics = qobject_cast<QGraphicsView *>(view)) {
        const QTransform t = graphics->transform();
        const QSizeF unit(t.map(QLineF(0, 0, 1, 0)).dx(), t.map(QLineF(0, 0, 0, 1)).dy());
        if (unit.width() != 0 && unit.height() != 0)
            graphics->scale(1 / unit.width(), 1 / unit.height());
        return;
    }
    if (view)
        view->setProperty(kScaleProperty, QVariant());
}

void setScale(QWidget *view, double factor)
{
    if (!view || !std::isfinite(factor) || factor <= 0)
        return; // a view cannot be scaled to nothing, or mirrored this way
    resetScaling(view);
    if (auto *graphics = qobject_cast<QGraphicsView *>(view))
        graphics->scale(factor, factor);
    else
        view->setProperty(kScaleProperty, factor);
    view->update();
}

} // namespace VXViewExtensions

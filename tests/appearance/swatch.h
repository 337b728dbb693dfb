// SPDX-FileCopyrightText: 2026 Quillet developers
// SPDX-License-Identifier: MIT
#pragma once

#include "appearance/vxdynamiccolor.h"

#include <QPainter>
#include <QScreen>
#include <QWidget>

// How long a window test waits for what it started (a window shown, a
// repaint, a signal from the portal) on a machine that may be busy: a
// deadline, not a measure of speed.
constexpr int kPatience = 30000;

// A widget that paints itself in a dynamic colour, the way an application's
// widget would: resolved while painting, against the widget painted.
class Swatch : public QWidget
{
public:
    explicit Swatch(const VXDynamicColor &color, QWidget *parent = nullptr)
        : QWidget(parent)
        , m_color(color)
    {
        setFixedSize(48, 48);
    }

protected:
    void paintEvent(QPaintEvent *) override
    {
        QPainter painter(this);
        painter.setPen(Qt::NoPen);
        m_color.setFill(&painter);
        painter.drawRect(rect());
    }

private:
    VXDynamicColor m_color;
};

// What the X server shows at the centre of a widget.
inline QColor shownAtCentre(const QWidget *widget)
{
    const QPoint centre = widget->mapToGlobal(widget->rect().center());
    const QImage image = widget->screen()->grabWindow(0, centre.x(), centre.y(), 1, 1).toImage();
    return image.isNull() ? QColor() : image.pixelColor(0, 0);
}

// The same colour to within what the X server's 24 bits keep.
inline bool sameShown(const QColor &a, const QColor &b)
{
    return qAbs(a.red() - b.red()) <= 1 && qAbs(a.green() - b.green()) <= 1
        && qAbs(a.blue() - b.blue()) <= 1;
}

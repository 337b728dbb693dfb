// SPDX-FileCopyrightText: 2026 Quillet developers
// SPDX-License-Identifier: MIT
#pragma once

#include <QColor>
#include <QPalette>
#include <optional>

class QObject;
class QWidget;

// Light and dark appearance on the widget side.
//
// A widget's appearance is its palette's: dark when the window colour is
// darker than its text. Palettes propagate to children, so a widget given a
// light palette (VXViewExtensions::useLightAquaAppearance) stays light with
// everything inside it while the window around it turns dark.
//
// The application's overall appearance is the desktop's (the appearance
// portal, else the desktop's settings), else the application palette's.
// followDesktopAppearance() keeps the application palette in step with the
// desktop where Qt's platform theme does not.
namespace VXAppearance {

bool isDarkPalette(const QPalette &palette);
// The application's overall appearance.
bool applicationIsDark();
// The appearance of that widget.
bool widgetIsDark(const QWidget *widget);
// The appearance current while drawing: that of the widget of the innermost
// Drawing scope on this thread, else the application's.
bool currentIsDark();

// Makes a widget the one being drawn for as long as it lives; meant for a
// paintEvent: VXAppearance::Drawing drawing(this);
class Drawing
{
public:
    explicit Drawing(const QWidget *widget);
    ~Drawing();
    Drawing(const Drawing &) = delete;
    Drawing &operator=(const Drawing &) = delete;

private:
    const QWidget *m_previous;
};

// A light palette (the style's standard one, when light) and a dark one
// derived from it.
QPalette lightPalette();
QPalette darkPalette();

// From now on, when the desktop switches between light and dark and the
// application palette does not already match, the application palette
// becomes lightPalette() or darkPalette(); "no preference" gives the
// platform theme's palette back. Applies the desktop's current answer at
// once. Idempotent.
void followDesktopAppearance();

// Emits changed() when the desktop's appearance (colour scheme or accent
// colour) changes.
QObject *desktopNotifier();
// The desktop's colour scheme: dark or light; nullopt for no preference or
// no answer.
std::optional<bool> desktopPrefersDark();
// The desktop's accent colour; nullopt when it names none.
std::optional<QColor> desktopAccentColor();
// Which of the eight accent names an RGB colour is closest to: "Graphite"
// for greys, else the nearest hue.
QString accentNameForColor(const QColor &color);

} // namespace VXAppearance

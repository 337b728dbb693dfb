// SPDX-FileCopyrightText: 2026 Quillet developers
// SPDX-License-Identifier: MIT
#include "vxappearance.h"

#include "vxappearance_p.h"

#include <QApplication>
#include <QEvent>
#include <QLoggingCategory>
#include <QStyle>
#include <QWidget>
#include <cmath>

Q_LOGGING_CATEGORY(lcAppearance, "quillet.appearance", QtWarningMsg)

namespace {

thread_local const QWidget *t_drawing = nullptr;
bool g_following = false;
bool g_paletteSetByUs = false;

void setPaletteColors(
    QPalette &p, QPalette::ColorRole role, const QColor &active, const QColor &disabled = QColor())
{
    p.setColor(QPalette::Active, role, active);
    p.setColor(QPalette::Inactive, role, active);
    p.setColor(QPalette::Disabled, role, disabled.isValid() ? disabled : active);
}

// A widget with a style sheet keeps the palette it was polished with: Qt
// 6.4's style-sheet style stores the palette of that moment as the widget's
// own and gives it back on unpolish, so its text would stay white on a
// window that turned light. Such widgets inherit again and are polished
// against the new palette. (A palette set on a style-sheet widget by hand is
// lost here; none of ours has one.)
void repolishStyleSheetWidgets()
{
    for (QWidget *widget : QApplication::allWidgets()) {
        if (!widget->testAttribute(Qt::WA_StyleSheet))
            continue;
        widget->style()->unpolish(widget);
        widget->setPalette(QPalette());
        widget->style()->polish(widget);
        widget->update();
    }
}

// Follows the desktop once: see followDesktopAppearance().
void applyDesktopAppearance()
{
    if (g_paletteSetByUs) {
        // Back to the platform theme's palette: it may follow by itself.
        QApplication::setPalette(QPalette());
        g_paletteSetByUs = false;
    }
    const std::optional<bool> dark = VXAppearance::desktopPrefersDark();
    if (!dark || VXAppearance::isDarkPalette(QApplication::palette()) == *dark)
        return;
    qCDebug(lcAppearance) << "application palette follows the desktop:"
                          << (*dark ? "dark" : "light");
    QApplication::setPalette(*dark ? VXAppearance::darkPalette() : VXAppearance::lightPalette());
    g_paletteSetByUs = true;
}

// Polishes the style-sheet widgets again after every change of the
// application palette, ours or the platform theme's. Queued: top-level
// windows hear of the new palette through posted events, and the widgets in
// them must have it first.
class PaletteWatcher : public QObject
{
public:
    using QObject::QObject;
    bool eventFilter(QObject *watched, QEvent *event) override
    {
        if (watched == qApp && event->type() == QEvent::ApplicationPaletteChange && !m_queued) {
            m_queued = true;
            QMetaObject::invokeMethod(
                this,
                [this] {
                    m_queued = false;
                    repolishStyleSheetWidgets();
                },
                Qt::QueuedConnection);
        }
        return false;
    }

private:
    bool m_queued = false;
};

} // namespace

namespace VXAppearance {

bool isDarkPalette(const QPalette &palette)
{
    return palette.color(QPalette::Window).lightnessF()
        < palette.color(QPalette::WindowText).lightnessF();
}

bool widgetIsDark(const QWidget *widget)
{
    return widget ? isDarkPalette(widget->palette()) : applicationIsDark();
}

bool currentIsDark()
{
    return t_drawing ? widgetIsDark(t_drawing) : applicationIsDark();
}

Drawing::Drawing(const QWidget *widget)
    : m_previous(t_drawing)
{
    t_drawing = widget;
}

Drawing::~Drawing()
{
    t_drawing = m_previous;
}

QPalette lightPalette()
{
    if (const QStyle *style = QApplication::style()) {
        const QPalette standard = style->standardPalette();
        if (!isDarkPalette(standard))
            return standard;
    }
    // The light palette of Qt's own Fusion style.
    QPalette p(QColor(239, 239, 239));
    return p;
}

QPalette darkPalette()
{
    QPalette p = lightPalette();
    const QColor text(252, 252, 252);
    const QColor disabledText(110, 113, 116);
    setPaletteColors(p, QPalette::Window, QColor(42, 46, 50));
    setPaletteColors(p, QPalette::WindowText, text, disabledText);
    setPaletteColors(p, QPalette::Base, QColor(27, 30, 32));
    setPaletteColors(p, QPalette::AlternateBase, QColor(35, 38, 41));
    setPaletteColors(p, QPalette::Text, text, disabledText);
    setPaletteColors(p, QPalette::Button, QColor(49, 54, 59));
    setPaletteColors(p, QPalette::ButtonText, text, disabledText);
    setPaletteColors(p, QPalette::BrightText, QColor(255, 255, 255));
    setPaletteColors(p, QPalette::Light, QColor(64, 70, 76));
    setPaletteColors(p, QPalette::Midlight, QColor(56, 62, 67));
    setPaletteColors(p, QPalette::Mid, QColor(37, 41, 44));
    setPaletteColors(p, QPalette::Dark, QColor(25, 27, 29));
    setPaletteColors(p, QPalette::Shadow, QColor(14, 15, 16));
    setPaletteColors(p, QPalette::Highlight, QColor(61, 174, 233), QColor(49, 54, 59));
    setPaletteColors(p, QPalette::HighlightedText, text, disabledText);
    setPaletteColors(p, QPalette::ToolTipBase, QColor(49, 54, 59));
    setPaletteColors(p, QPalette::ToolTipText, text);
    setPaletteColors(p, QPalette::PlaceholderText, QColor(161, 169, 177));
    setPaletteColors(p, QPalette::Link, QColor(29, 153, 243));
    setPaletteColors(p, QPalette::LinkVisited, QColor(155, 89, 182));
    return p;
}

void followDesktopAppearance()
{
    if (g_following || !qobject_cast<QApplication *>(QCoreApplication::instance()))
        return;
    g_following = true;
    qApp->installEventFilter(new PaletteWatcher(qApp));
    auto *relay = new SignalRelay(applyDesktopAppearance, qApp);
    QObject::connect(desktopNotifier(), SIGNAL(changed()), relay, SLOT(relay()));
    applyDesktopAppearance();
}

QString accentNameForColor(const QColor &color)
{
    const QColor c = color.toHsv();
    if (!c.isValid() || c.hsvSaturationF() < 0.2f || c.hsvHue() < 0)
        return QStringLiteral("Graphite");
    // The hues of the light menu item colours of each accent.
    static const struct
    {
        const char *name;
        QColor sample;
    } kSamples[] = {
        { "Blue", QColor(60, 139, 246) },
        { "Purple", QColor(169, 99, 170) },
        { "Pink", QColor(248, 114, 176) },
        { "Red", QColor(229, 95, 100) },
        { "Orange", QColor(248, 154, 79) },
        { "Yellow", QColor(252, 198, 90) },
        { "Green", QColor(128, 198, 107) },
    };
    const char *best = "Blue";
    int bestDistance = 360;
    for (const auto &s : kSamples) {
        int d = std::abs(s.sample.hsvHue() - c.hsvHue());
        d = std::min(d, 360 - d);
        if (d < bestDistance) {
            bestDistance = d;
            best = s.name;
        }
    }
    return QLatin1String(best);
}

} // namespace VXAppearance

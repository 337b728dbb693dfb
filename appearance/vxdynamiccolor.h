// SPDX-FileCopyrightText: 2026 Quillet developers
// SPDX-License-Identifier: MIT
#pragma once

#include <QColor>
#include <QString>
#include <optional>

class QDataStream;
class QPainter;
class QWidget;

// A colour that stands for two: one for the light (Aqua) and one for the dark
// (Dark Aqua) appearance, answering at every moment as the one that fits.
//
// QColor is a value type without virtual functions, so a dynamic colour
// cannot pass itself off as one. It resolves instead:
//  - at paint time: set(), setFill() and setStroke() resolve against the
//    widget the painter draws on, and a VXAppearance::Drawing scope makes
//    that widget the "appearance current while drawing" for every other
//    member (effectiveColor(), the component getters, the derivations);
//  - when handed to code that takes a QColor: the conversion operator gives
//    the colour of that moment.
// A widget that paints with a dynamic colour is repainted when the
// appearance changes because the application's palette (or its own) changes
// with it; see docs/appearance.md. Meant for the main thread, where the
// appearance and painting live; the shared colours are made without a lock.
class VXDynamicColor
{
public:
    // What colorWithSystemEffect() can apply.
    enum SystemEffect { None, Pressed, DeepPressed, Disabled, Rollover };

    // An invalid light colour and no dark one; what decoding fills in.
    VXDynamicColor() = default;
    // The designated initialiser. A nil (nullopt or invalid) dark colour
    // means the light one is always used. global: decide by the
    // application's overall appearance instead of the one current while
    // drawing.
    VXDynamicColor(
        const QColor &aquaColor, const std::optional<QColor> &darkAquaColor, bool global);
    // initWithCoder: reads what encodeWithCoder() wrote. On bad data the
    // stream's status is set and the colour is left as the default one.
    explicit VXDynamicColor(QDataStream &coder);

    static VXDynamicColor lightColor(const QColor &light, const std::optional<QColor> &darkColor);
    static VXDynamicColor lightColor(
        const QColor &light, const std::optional<QColor> &darkColor, bool global);

    // Red for warning texts, shared.
    static const VXDynamicColor &redWarningTextColor();
    // One of "Blue", "Purple", "Pink", "Red", "Orange", "Yellow", "Green",
    // "Graphite": the user default "AppleAccentColor" where set (-1 Graphite,
    // 0 Red, 1 Orange, 2 Yellow, 3 Green, 5 Purple, 6 Pink; any other number,
    // 4 included on purpose, is "Blue" and logged once per new number; a
    // value that is no number is "Blue"), else the desktop's accent colour by
    // its nearest hue, else "Blue".
    static QString accentColorName();
    // The highlighted menu title's colour (global flag YES) and the
    // highlighted menu item's colour for the current accent colour.
    static VXDynamicColor menuHighlightColor();
    static VXDynamicColor menuItemHighlightColor();
    static bool supportsSecureCoding() { return true; }

    void encodeWithCoder(QDataStream &coder) const;

    QColor aquaColor() const { return m_aquaColor; }
    std::optional<QColor> darkAquaColor() const { return m_darkAquaColor; }
    bool usesGlobalAppearance() const { return m_useGlobalAppearance; }
    VXDynamicColor &useGlobalAppearance(bool global);

    // The colour in force now: see the class comment.
    QColor effectiveColor() const;
    // The colour in force while drawing on that widget.
    QColor effectiveColor(const QWidget *widget) const;
    operator QColor() const { return effectiveColor(); }

    // Forwarded to effectiveColor(); results are plain colours of the moment.
    QColor::Spec colorSpace() const;
    QColor colorUsingColorSpace(QColor::Spec space) const;
    // "Rgb", "Hsv", "Cmyk", "Hsl", "ExtendedRgb" or "Invalid".
    QString colorSpaceName() const;
    // An invalid colour for a name colorSpaceName() never answers.
    QColor colorUsingColorSpaceName(const QString &name) const;
    int numberOfComponents() const;
    // The components of the colour's own space, alpha last;
    // numberOfComponents() floats.
    void getComponents(float *components) const;
    float redComponent() const;
    float greenComponent() const;
    float blueComponent() const;
    void getRed(float *red, float *green, float *blue, float *alpha) const;
    float hueComponent() const;
    float saturationComponent() const;
    float brightnessComponent() const;
    void getHue(float *hue, float *saturation, float *brightness, float *alpha) const;
    float whiteComponent() const;
    void getWhite(float *white, float *alpha) const;
    float cyanComponent() const;
    float magentaComponent() const;
    float yellowComponent() const;
    float blackComponent() const;
    void getCyan(float *cyan, float *magenta, float *yellow, float *black, float *alpha) const;
    float alphaComponent() const;
    // The toolkit's own colour value: the plain QColor.
    QColor CGColor() const;
    // QColor knows no colour lists: the catalog names are null, the colour
    // name is the "#rrggbb" form.
    QString catalogNameComponent() const;
    QString colorNameComponent() const;
    QString localizedCatalogNameComponent() const;
    QString localizedColorNameComponent() const;
    // Onto the painter: the pen's colour, the brush, both. Resolved against
    // the widget the painter draws on.
    void setStroke(QPainter *painter) const;
    void setFill(QPainter *painter) const;
    void set(QPainter *painter) const;
    // Blends towards white or black by level (0 to 1, clamped).
    QColor highlightWithLevel(float level) const;
    QColor shadowWithLevel(float level) const;
    QColor colorWithAlphaComponent(float alpha) const;
    // (1 - fraction) of this colour and fraction of the other, in RGB;
    // invalid when either colour is.
    QColor blendedColorWithFraction(float fraction, const QColor &ofColor) const;
    QColor colorWithSystemEffect(SystemEffect effect) const;

    friend bool operator==(const VXDynamicColor &, const VXDynamicColor &) = default;

private:
    QColor resolved(bool dark) const;

    QColor m_aquaColor;
    std::optional<QColor> m_darkAquaColor;
    bool m_useGlobalAppearance = false;
};

QDataStream &operator<<(QDataStream &stream, const VXDynamicColor &color);
QDataStream &operator>>(QDataStream &stream, VXDynamicColor &color);

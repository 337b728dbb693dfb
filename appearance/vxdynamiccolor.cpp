// SPDX-FileCopyrightText: 2026 Quillet developers
// SPDX-License-Identifier: MIT
#include "vxdynamiccolor.h"

#include "utilities/vxlog.h"
#include "utilities/vxuserdefaults.h"
#include "vxappearance.h"

#include <QDataStream>
#include <QGuiApplication>
#include <QHash>
#include <QPaintDevice>
#include <QPainter>
#include <QWidget>
#include <algorithm>

namespace {

// Version 1: a map of "aquaColor" and, when there is one, "darkAquaColor" to
// QColor values.
constexpr quint8 kCodingVersion = 1;
const QString kAquaKey = QStringLiteral("aquaColor");
const QString kDarkAquaKey = QStringLiteral("darkAquaColor");

QColor rgb(double red, double green, double blue)
{
    return QColor::fromRgbF(float(red), float(green), float(blue), 1.0f);
}

QColor rgb255(int red, int green, int blue)
{
    return rgb(red / 255.0, green / 255.0, blue / 255.0);
}

float clamp01(float value)
{
    return std::clamp(value, 0.0f, 1.0f);
}

QColor blend(const QColor &a, float fraction, const QColor &b)
{
    if (!a.isValid() || !b.isValid())
        return QColor();
    const float f = clamp01(fraction);
    const QColor x = a.toRgb();
    const QColor y = b.toRgb();
    return QColor::fromRgbF(x.redF() + (y.redF() - x.redF()) * f,
        x.greenF() + (y.greenF() - x.greenF()) * f, x.blueF() + (y.blueF() - x.blueF()) * f,
        x.alphaF() + (y.alphaF() - x.alphaF()) * f);
}

const QWidget *widgetOf(const QPainter *painter)
{
    QPaintDevice *device = painter ? painter->device() : nullptr;
    if (!device || device->devType() != QInternal::Widget)
        return nullptr;
    return static_cast<QWidget *>(device);
}

qlonglong g_lastLoggedAccentIndex = 0; // 0 is never unknown

} // namespace

VXDynamicColor::VXDynamicColor(
    const QColor &aquaColor, const std::optional<QColor> &darkAquaColor, bool global)
    : m_aquaColor(aquaColor)
    , m_darkAquaColor(darkAquaColor && darkAquaColor->isValid() ? darkAquaColor : std::nullopt)
    , m_useGlobalAppearance(global)
{ }

VXDynamicColor::VXDynamicColor(QDataStream &coder)
{
    quint8 version = 0;
    QVariantMap keyed;
    coder >> version;
    if (coder.status() != QDataStream::Ok)
        return;
    if (version != kCodingVersion) {
        coder.setStatus(QDataStream::ReadCorruptData);
        return;
    }
    coder >> keyed;
    // Secure decoding: both keys hold colours or nothing at all.
    const QVariant aqua = keyed.value(kAquaKey);
    const QVariant dark = keyed.value(kDarkAquaKey);
    if (coder.status() != QDataStream::Ok || aqua.typeId() != QMetaType::QColor
        || (dark.isValid() && dark.typeId() != QMetaType::QColor)) {
        coder.setStatus(QDataStream::ReadCorruptData);
        return;
    }
    m_aquaColor = aqua.value<QColor>();
    if (dark.isValid())
        m_darkAquaColor = dark.value<QColor>();
    // intended: the global flag is not part of the coding; a decoded colour
    // decides by the appearance current while drawing.
}

void VXDynamicColor::encodeWithCoder(QDataStream &coder) const
{
    QVariantMap keyed;
    keyed.insert(kAquaKey, m_aquaColor);
    if (m_darkAquaColor)
        keyed.insert(kDarkAquaKey, *m_darkAquaColor);
    coder << kCodingVersion << keyed;
}

QDataStream &operator<<(QDataStream &stream, const VXDynamicColor &color)
{
    color.encodeWithCoder(stream);
    return stream;
}

QDataStream &operator>>(QDataStream &stream, VXDynamicColor &color)
{
    VXDynamicColor decoded(stream);
    color = stream.status() == QDataStream::Ok ? decoded : VXDynamicColor();
    return stream;
}

VXDynamicColor VXDynamicColor::lightColor(
    const QColor &light, const std::optional<QColor> &darkColor)
{
    return VXDynamicColor(light, darkColor, false);
}

VXDynamicColor VXDynamicColor::lightColor(
    const QColor &light, const std::optional<QColor> &darkColor, bool global)
{
    return VXDynamicColor(light, darkColor, global);
}

const VXDynamicColor &VXDynamicColor::redWarningTextColor()
{
    static const VXDynamicColor red = lightColor(rgb(0.75, 0, 0), rgb(1.0, 0.2, 0));
    return red;
}

QString VXDynamicColor::accentColorName()
{
    const QVariant value
        = VXUserDefaults::standard().objectForKey(QStringLiteral("AppleAccentColor"));
    if (!value.isValid()) {
        if (const std::optional<QColor> desktop = VXAppearance::desktopAccentColor())
            return VXAppearance::accentNameForColor(*desktop);
        return QStringLiteral("Blue");
    }
    bool isNumber = false;
    const qlonglong n = value.toString().trimmed().toLongLong(&isNumber);
    if (!isNumber)
        return QStringLiteral("Blue");
    switch (n) {
    case -1:
        return QStringLiteral("Graphite");
    case 0:
        return QStringLiteral("Red");
    case 1:
        return QStringLiteral("Orange");
    case 2:
        return QStringLiteral("Yellow");
    case 3:
        return QStringLiteral("Green");
    case 5:
        return QStringLiteral("Purple");
    case 6:
        return QStringLiteral("Pink");
    default:
        break; // kept on purpose: 4 counts as unknown too
    }
    if (n != g_lastLoggedAccentIndex) {
        vxLog(QStringLiteral("*** unknown accent color index: %ld"), n);
        g_lastLoggedAccentIndex = n;
    }
    return QStringLiteral("Blue");
}

namespace {

VXDynamicColor lookUpAccent(const QHash<QString, VXDynamicColor> &table)
{
    const auto it = table.constFind(VXDynamicColor::accentColorName());
    if (it != table.cend())
        return *it;
    QColor accent = QGuiApplication::palette().color(QPalette::Highlight);
    accent.setAlphaF(0.8f);
    return VXDynamicColor::lightColor(accent, std::nullopt);
}

} // namespace

VXDynamicColor VXDynamicColor::menuHighlightColor()
{
    static const QHash<QString, VXDynamicColor> table = [] {
        QHash<QString, VXDynamicColor> t;
        auto add = [&](const char *name, QColor light, QColor dark) {
            t.insert(QLatin1String(name), lightColor(light, dark, true));
        };
        add("Blue", rgb(0.16, 0.43, 0.95), rgb(0.04, 0.29, 0.76));
        add("Purple", rgb(0.57, 0.26, 0.58), rgb(0.44, 0.18, 0.45));
        add("Pink", rgb(0.95, 0.31, 0.61), rgb(0.73, 0.16, 0.43));
        add("Red", rgb(0.85, 0.25, 0.29), rgb(0.76, 0.18, 0.22));
        add("Orange", rgb(0.95, 0.51, 0.22), rgb(0.73, 0.34, 0.08));
        add("Yellow", rgb(0.97, 0.71, 0.25), rgb(0.76, 0.53, 0.11));
        add("Green", rgb(0.42, 0.73, 0.32), rgb(0.26, 0.54, 0.17));
        add("Graphite", rgb(0.59, 0.59, 0.59), rgb(0.34, 0.34, 0.34));
        return t;
    }();
    return lookUpAccent(table);
}

VXDynamicColor VXDynamicColor::menuItemHighlightColor()
{
    static const QHash<QString, VXDynamicColor> table = [] {
        QHash<QString, VXDynamicColor> t;
        auto add = [&](const char *name, QColor light, QColor dark) {
            t.insert(QLatin1String(name), lightColor(light, dark));
        };
        add("Blue", rgb255(60, 139, 246), rgb255(12, 111, 225));
        add("Purple", rgb255(169, 99, 170), rgb255(135, 59, 135));
        add("Pink", rgb255(248, 114, 176), rgb255(218, 74, 142));
        add("Red", rgb255(229, 95, 100), rgb255(199, 54, 60));
        add("Orange", rgb255(248, 154, 79), rgb255(218, 117, 31));
        add("Yellow", rgb255(252, 198, 90), rgb255(222, 164, 42));
        add("Green", rgb255(128, 198, 107), rgb255(90, 165, 66));
        add("Graphite", rgb255(162, 162, 162), rgb255(124, 128, 131));
        return t;
    }();
    return lookUpAccent(table);
}

VXDynamicColor &VXDynamicColor::useGlobalAppearance(bool global)
{
    m_useGlobalAppearance = global;
    return *this;
}

QColor VXDynamicColor::resolved(bool dark) const
{
    return dark && m_darkAquaColor ? *m_darkAquaColor : m_aquaColor;
}

QColor VXDynamicColor::effectiveColor() const
{
    if (!m_darkAquaColor)
        return m_aquaColor;
    return resolved(
        m_useGlobalAppearance ? VXAppearance::applicationIsDark() : VXAppearance::currentIsDark());
}

QColor VXDynamicColor::effectiveColor(const QWidget *widget) const
{
    if (!m_darkAquaColor)
        return m_aquaColor;
    if (m_useGlobalAppearance || !widget)
        return effectiveColor();
    return resolved(VXAppearance::widgetIsDark(widget));
}

QColor::Spec VXDynamicColor::colorSpace() const
{
    return effectiveColor().spec();
}

QColor VXDynamicColor::colorUsingColorSpace(QColor::Spec space) const
{
    return effectiveColor().convertTo(space);
}

namespace {
struct SpaceName
{
    QColor::Spec spec;
    const char *name;
};
constexpr SpaceName kSpaceNames[] = {
    { QColor::Rgb, "Rgb" },
    { QColor::Hsv, "Hsv" },
    { QColor::Cmyk, "Cmyk" },
    { QColor::Hsl, "Hsl" },
    { QColor::ExtendedRgb, "ExtendedRgb" },
    { QColor::Invalid, "Invalid" },
};
} // namespace

QString VXDynamicColor::colorSpaceName() const
{
    const QColor::Spec spec = colorSpace();
    for (const SpaceName &s : kSpaceNames) {
        if (s.spec == spec)
            return QLatin1String(s.name);
    }
    return QStringLiteral("Invalid");
}

QColor VXDynamicColor::colorUsingColorSpaceName(const QString &name) const
{
    for (const SpaceName &s : kSpaceNames) {
        if (name == QLatin1String(s.name))
            return s.spec == QColor::Invalid ? QColor() : colorUsingColorSpace(s.spec);
    }
    return QColor();
}

int VXDynamicColor::numberOfComponents() const
{
    switch (colorSpace()) {
    case QColor::Invalid:
        return 0;
    case QColor::Cmyk:
        return 5;
    default:
        return 4;
    }
}

void VXDynamicColor::getComponents(float *components) const
{
    const QColor c = effectiveColor();
    switch (c.spec()) {
    case QColor::Invalid:
        return;
    case QColor::Cmyk:
        c.getCmykF(&components[0], &components[1], &components[2], &components[3], &components[4]);
        return;
    case QColor::Hsv:
        c.getHsvF(&components[0], &components[1], &components[2], &components[3]);
        return;
    case QColor::Hsl:
        c.getHslF(&components[0], &components[1], &components[2], &components[3]);
        return;
    default:
        c.getRgbF(&components[0], &components[1], &components[2], &components[3]);
        return;
    }
}

float VXDynamicColor::redComponent() const
{
    return effectiveColor().redF();
}

float VXDynamicColor::greenComponent() const
{
    return effectiveColor().greenF();
}

float VXDynamicColor::blueComponent() const
{
    return effectiveColor().blueF();
}

void VXDynamicColor::getRed(float *red, float *green, float *blue, float *alpha) const
{
    effectiveColor().getRgbF(red, green, blue, alpha);
}

float VXDynamicColor::hueComponent() const
{
    return effectiveColor().hsvHueF();
}

float VXDynamicColor::saturationComponent() const
{
    return effectiveColor().hsvSaturationF();
}

float VXDynamicColor::brightnessComponent() const
{
    return effectiveColor().valueF();
}

void VXDynamicColor::getHue(float *hue, float *saturation, float *brightness, float *alpha) const
{
    effectiveColor().getHsvF(hue, saturation, brightness, alpha);
}

float VXDynamicColor::whiteComponent() const
{
    // The grey of the same luminance, weighted as qGray() weighs.
    const QColor c = effectiveColor().toRgb();
    return (c.redF() * 11 + c.greenF() * 16 + c.blueF() * 5) / 32;
}

void VXDynamicColor::getWhite(float *white, float *alpha) const
{
    if (white)
        *white = whiteComponent();
    if (alpha)
        *alpha = alphaComponent();
}

float VXDynamicColor::cyanComponent() const
{
    return effectiveColor().cyanF();
}

float VXDynamicColor::magentaComponent() const
{
    return effectiveColor().magentaF();
}

float VXDynamicColor::yellowComponent() const
{
    return effectiveColor().yellowF();
}

float VXDynamicColor::blackComponent() const
{
    return effectiveColor().blackF();
}

void VXDynamicColor::getCyan(
    float *cyan, float *magenta, float *yellow, float *black, float *alpha) const
{
    effectiveColor().getCmykF(cyan, magenta, yellow, black, alpha);
}

float VXDynamicColor::alphaComponent() const
{
    return effectiveColor().alphaF();
}

QColor VXDynamicColor::CGColor() const
{
    return effectiveColor();
}

QString VXDynamicColor::catalogNameComponent() const
{
    return QString();
}

QString VXDynamicColor::colorNameComponent() const
{
    const QColor c = effectiveColor();
    return c.isValid() ? c.name() : QString();
}

QString VXDynamicColor::localizedCatalogNameComponent() const
{
    return catalogNameComponent();
}

QString VXDynamicColor::localizedColorNameComponent() const
{
    return colorNameComponent();
}

void VXDynamicColor::setStroke(QPainter *painter) const
{
    if (!painter)
        return;
    QPen pen = painter->pen();
    pen.setColor(effectiveColor(widgetOf(painter)));
    painter->setPen(pen);
}

void VXDynamicColor::setFill(QPainter *painter) const
{
    if (!painter)
        return;
    painter->setBrush(effectiveColor(widgetOf(painter)));
}

void VXDynamicColor::set(QPainter *painter) const
{
    setStroke(painter);
    setFill(painter);
}

QColor VXDynamicColor::highlightWithLevel(float level) const
{
    return blend(effectiveColor(), level, Qt::white);
}

QColor VXDynamicColor::shadowWithLevel(float level) const
{
    return blend(effectiveColor(), level, Qt::black);
}

QColor VXDynamicColor::colorWithAlphaComponent(float alpha) const
{
    QColor c = effectiveColor();
    if (c.isValid())
        c.setAlphaF(clamp01(alpha));
    return c;
}

QColor VXDynamicColor::blendedColorWithFraction(float fraction, const QColor &ofColor) const
{
    return blend(effectiveColor(), fraction, ofColor);
}

QColor VXDynamicColor::colorWithSystemEffect(SystemEffect effect) const
{
    const QColor c = effectiveColor();
    switch (effect) {
    case Pressed:
        return shadowWithLevel(0.2f);
    case DeepPressed:
        return shadowWithLevel(0.4f);
    case Disabled:
        return colorWithAlphaComponent(c.alphaF() * 0.5f);
    case Rollover:
        return highlightWithLevel(0.2f);
    case None:
        break;
    }
    return c;
}

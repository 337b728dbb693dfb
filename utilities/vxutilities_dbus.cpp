// SPDX-FileCopyrightText: 2026 Quillet developers
// SPDX-License-Identifier: MIT
//
// The session's idle time and Do Not Disturb over the session bus. Idle
// time: GNOME Mutter's IdleMonitor (milliseconds), else the X server's
// MIT-SCREEN-SAVER extension, else org.freedesktop.ScreenSaver's
// GetSessionIdleTime (seconds; asked last because it is also answered by
// services that only count since the screen saver was last reset). Do Not
// Disturb: GNOME's notification banners switched off (GSettings
// org.gnome.desktop.notifications show-banners), or the notification server's
// "Inhibited" property (KDE Plasma's server has it). Every call waits at most
// 400 ms; without a session bus nothing is asked.
#include "vxutilities_p.h"

#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusVariant>

namespace {
constexpr int kTimeoutMs = 400;

std::optional<QVariant> call(const QString &service, const QString &path, const QString &interface,
    const QString &method, const QVariantList &args = {})
{
    QDBusConnection bus = QDBusConnection::sessionBus();
    if (!bus.isConnected())
        return std::nullopt;
    QDBusMessage message = QDBusMessage::createMethodCall(service, path, interface, method);
    message.setArguments(args);
    const QDBusMessage reply = bus.call(message, QDBus::Block, kTimeoutMs);
    if (reply.type() != QDBusMessage::ReplyMessage || reply.arguments().isEmpty())
        return std::nullopt;
    QVariant value = reply.arguments().constFirst();
    if (value.metaType() == QMetaType::fromType<QDBusVariant>())
        value = value.value<QDBusVariant>().variant();
    return value;
}
} // namespace

std::optional<double> VXUtilitiesPlatform::idleSeconds()
{
    if (const auto ms = call(QStringLiteral("org.gnome.Mutter.IdleMonitor"),
            QStringLiteral("/org/gnome/Mutter/IdleMonitor/Core"),
            QStringLiteral("org.gnome.Mutter.IdleMonitor"), QStringLiteral("GetIdletime")))
        return ms->toULongLong() / 1000.0;
    if (const auto x = idleSecondsFromX())
        return x;
    if (const auto s = call(QStringLiteral("org.freedesktop.ScreenSaver"),
            QStringLiteral("/org/freedesktop/ScreenSaver"),
            QStringLiteral("org.freedesktop.ScreenSaver"), QStringLiteral("GetSessionIdleTime")))
        return s->toDouble();
    return std::nullopt;
}

std::optional<bool> VXUtilitiesPlatform::desktopDoNotDisturb()
{
    if (const auto banners
        = desktopSettingsBoolean("org.gnome.desktop.notifications", "show-banners");
        banners && !*banners)
        return true;
    if (const auto inhibited = call(QStringLiteral("org.freedesktop.Notifications"),
            QStringLiteral("/org/freedesktop/Notifications"),
            QStringLiteral("org.freedesktop.DBus.Properties"), QStringLiteral("Get"),
            { QStringLiteral("org.freedesktop.Notifications"), QStringLiteral("Inhibited") }))
        return inhibited->toBool();
    return std::nullopt;
}

// SPDX-FileCopyrightText: 2026 Quillet developers
// SPDX-License-Identifier: MIT
//
// The appearance through xdg-desktop-portal's Settings interface on the
// session bus: ReadOne (portal version 2), else the older Read, whose value
// some portals wrap in a second variant. "color-scheme" is a uint32 (0 no
// preference, 1 dark, 2 light); "accent-color" is (ddd) in 0..1, a value
// outside that range meaning "not set". Changes arrive as SettingChanged.
// Without a session bus or a portal the answers are nullopt at once; a
// portal that lets a call time out is not asked again until the portal's
// name changes owner, so a hung portal costs one time-out, not one per call.
#include "desktopappearance_p.h"

#include <QDBusArgument>
#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusServiceWatcher>
#include <QDBusVariant>
#include <QLoggingCategory>
#include <atomic>

Q_LOGGING_CATEGORY(lcAppearancePortal, "quillet.appearance.portal")

namespace {
const QString kService = QStringLiteral("org.freedesktop.portal.Desktop");
const QString kPath = QStringLiteral("/org/freedesktop/portal/desktop");
const QString kInterface = QStringLiteral("org.freedesktop.portal.Settings");
const QString kNamespace = QStringLiteral("org.freedesktop.appearance");

std::atomic<bool> g_unresponsive { false };

QVariant unwrap(QVariant value)
{
    while (value.metaType() == QMetaType::fromType<QDBusVariant>())
        value = value.value<QDBusVariant>().variant();
    return value;
}

std::optional<QVariant> read(const QString &key)
{
    if (g_unresponsive.load())
        return std::nullopt;
    QDBusConnection bus = QDBusConnection::sessionBus();
    if (!bus.isConnected())
        return std::nullopt;
    for (const QString &method : { QStringLiteral("ReadOne"), QStringLiteral("Read") }) {
        QDBusMessage call = QDBusMessage::createMethodCall(kService, kPath, kInterface, method);
        call << kNamespace << key;
        const QDBusMessage reply = bus.call(call, QDBus::Block, DesktopAppearance::portalTimeoutMs);
        if (reply.type() == QDBusMessage::ReplyMessage && !reply.arguments().isEmpty())
            return unwrap(reply.arguments().constFirst());
        const QString error = reply.errorName();
        if (error == QLatin1String("org.freedesktop.DBus.Error.UnknownMethod"))
            continue; // a portal older than ReadOne
        if (error == QLatin1String("org.freedesktop.DBus.Error.NoReply")
            || error == QLatin1String("org.freedesktop.DBus.Error.Timeout")) {
            qCWarning(lcAppearancePortal)
                << "portal did not answer; not asked again until it restarts";
            g_unresponsive.store(true);
        }
        return std::nullopt;
    }
    return std::nullopt;
}

class PortalWatcher : public QObject
{
    Q_OBJECT
public:
    explicit PortalWatcher(std::function<void()> changed)
        : m_changed(std::move(changed))
    { }

public Q_SLOTS:
    void settingChanged(const QString &ns, const QString &key, const QDBusVariant &value)
    {
        Q_UNUSED(key);
        Q_UNUSED(value);
        if (ns == kNamespace)
            m_changed();
    }
    void ownerChanged()
    {
        g_unresponsive.store(false);
        m_changed(); // a new portal may see things differently
    }

private:
    std::function<void()> m_changed;
};
} // namespace

std::optional<DesktopAppearance::ColorScheme> DesktopAppearancePlatform::portalColorScheme()
{
    const auto value = read(QStringLiteral("color-scheme"));
    if (!value)
        return std::nullopt;
    bool ok = false;
    const uint scheme = value->toUInt(&ok);
    if (!ok || scheme > 2)
        return ColorScheme::NoPreference; // unknown values, as the portal documents
    return ColorScheme(scheme);
}

std::optional<DesktopAppearance::Rgb> DesktopAppearancePlatform::portalAccentColor()
{
    const auto value = read(QStringLiteral("accent-color"));
    if (!value || value->metaType() != QMetaType::fromType<QDBusArgument>())
        return std::nullopt;
    const QDBusArgument arg = value->value<QDBusArgument>();
    if (arg.currentSignature() != QLatin1String("(ddd)"))
        return std::nullopt;
    Rgb rgb;
    arg.beginStructure();
    arg >> rgb.red >> rgb.green >> rgb.blue;
    arg.endStructure();
    for (const double c : { rgb.red, rgb.green, rgb.blue }) {
        if (!(c >= 0.0 && c <= 1.0)) // also NaN
            return std::nullopt;
    }
    return rgb;
}

void DesktopAppearancePlatform::watchPortal(const std::function<void()> &changed)
{
    QDBusConnection bus = QDBusConnection::sessionBus();
    if (!bus.isConnected())
        return;
    qRegisterMetaType<QDBusVariant>(); // the slot's third parameter
    auto *watcher = new PortalWatcher(changed); // lives as long as the process
    // Any sender: a match on the portal's name, made before the portal runs,
    // would never see it. A stray sender can only make us ask again.
    if (!bus.connect(QString(), kPath, kInterface, QStringLiteral("SettingChanged"), watcher,
            SLOT(settingChanged(QString, QString, QDBusVariant))))
        qCWarning(lcAppearancePortal) << "cannot watch the portal's SettingChanged";
    auto *owner
        = new QDBusServiceWatcher(kService, bus, QDBusServiceWatcher::WatchForOwnerChange, watcher);
    QObject::connect(
        owner, &QDBusServiceWatcher::serviceOwnerChanged, watcher, &PortalWatcher::ownerChanged);
}

#include "desktopappearance_dbus.moc"

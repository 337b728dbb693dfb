// SPDX-FileCopyrightText: 2026 Quillet developers
// SPDX-License-Identifier: MIT
//
// Events travel over the D-Bus session bus. Each process owns the
// well-known name "org.quillet.VX.p<pid>" and exports one object whose
// HandleEvent method takes (event class, event ID, text). Without a session
// bus nothing can be received, and installHandler says so.
#include "utilities/vxfourcharcode.h"
#include "utilities/vxlog.h"
#include "vxappleevents.h"
#include "vxappleevents_p.h"

#include <QCoreApplication>
#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QDBusError>
#include <QDBusMessage>
#include <QDBusReply>
#include <QFileInfo>
#include <QHash>
#include <QLoggingCategory>

Q_LOGGING_CATEGORY(lcAppleEvents, "quillet.process.events", QtWarningMsg)

namespace {
QHash<quint64, VXAppleEvents::Handler> &handlers()
{
    static QHash<quint64, VXAppleEvents::Handler> table;
    return table;
}

quint64 key(quint32 eventClass, quint32 eventID)
{
    return (quint64(eventClass) << 32) | eventID;
}

// Only a bus the session already has counts; asking for the bus without one
// would have libdbus start a new one.
bool sessionBusAvailable()
{
    if (!qEnvironmentVariableIsEmpty("DBUS_SESSION_BUS_ADDRESS"))
        return true;
    const QByteArray runtime = qgetenv("XDG_RUNTIME_DIR");
    return !runtime.isEmpty()
        && QFileInfo::exists(QString::fromLocal8Bit(runtime) + QLatin1String("/bus"));
}

bool ensureExported()
{
    static bool exported = false;
    if (exported)
        return true;
    if (!sessionBusAvailable()) {
        qCDebug(lcAppleEvents) << "no session bus";
        return false;
    }
    QDBusConnection bus = QDBusConnection::sessionBus();
    if (!bus.isConnected()) {
        qCWarning(lcAppleEvents) << "no session bus:" << bus.lastError().message();
        return false;
    }
    auto *receiver = new VXAppleEventReceiver(QCoreApplication::instance());
    if (!bus.registerObject(QString::fromLatin1(VXAppleEventsPrivate::objectPath), receiver,
            QDBusConnection::ExportAllSlots)) {
        qCWarning(lcAppleEvents) << "cannot export the event object";
        delete receiver;
        return false;
    }
    const QString name = VXAppleEvents::serviceNameForPid(QCoreApplication::applicationPid());
    if (!bus.registerService(name)) {
        qCWarning(lcAppleEvents) << "cannot own" << name << bus.lastError().message();
        return false;
    }
    exported = true;
    return true;
}
} // namespace

int VXAppleEventReceiver::HandleEvent(uint eventClass, uint eventID, const QString &directParameter)
{
    const auto it = handlers().constFind(key(eventClass, eventID));
    if (it == handlers().cend())
        return -1708; // errAEEventNotHandled
    (*it)(directParameter);
    return 0;
}

QString VXAppleEvents::serviceNameForPid(qint64 pid)
{
    return QStringLiteral("org.quillet.VX.p%1").arg(pid);
}

bool VXAppleEvents::installHandler(quint32 eventClass, quint32 eventID, Handler handler)
{
    handlers().insert(key(eventClass, eventID), std::move(handler));
    return ensureExported();
}

int VXAppleEvents::send(
    qint64 pid, quint32 eventClass, quint32 eventID, const QString &directParameter, int timeoutMs)
{
    if (!sessionBusAvailable())
        return ConnectionInvalid;
    QDBusConnection bus = QDBusConnection::sessionBus();
    if (!bus.isConnected())
        return ConnectionInvalid;
    const QString service = serviceNameForPid(pid);
    if (!bus.interface()->isServiceRegistered(service).value())
        return ProcessNotFound;
    QDBusMessage call = QDBusMessage::createMethodCall(service,
        QString::fromLatin1(VXAppleEventsPrivate::objectPath),
        QString::fromLatin1(VXAppleEventsPrivate::interfaceName), QStringLiteral("HandleEvent"));
    call << uint(eventClass) << uint(eventID) << directParameter;
    call.setAutoStartService(false);
    if (timeoutMs < 0) {
        call.setDelayedReply(false);
        return bus.send(call) ? NoError : ConnectionInvalid;
    }
    const QDBusMessage reply = bus.call(call, QDBus::Block, std::max(timeoutMs, 1));
    if (reply.type() == QDBusMessage::ErrorMessage) {
        if (reply.errorName() == QLatin1String("org.freedesktop.DBus.Error.NoReply")
            || reply.errorName() == QLatin1String("org.freedesktop.DBus.Error.Timeout"))
            return TimedOut;
        if (reply.errorName() == QLatin1String("org.freedesktop.DBus.Error.ServiceUnknown"))
            return ProcessNotFound;
        return ConnectionInvalid;
    }
    return reply.arguments().value(0).toInt();
}

void VXAppleEvents::installDefaultHandlers()
{
    if (!QCoreApplication::instance())
        return;
    installHandler(VXFourCharCode::make("aevt"), VXFourCharCode::make("quit"), [](const QString &) {
        QMetaObject::invokeMethod(
            QCoreApplication::instance(), &QCoreApplication::quit, Qt::QueuedConnection);
    });
}

// Every program that links the library can be asked to quit.
static void installDefaultEventHandlers()
{
    VXAppleEvents::installDefaultHandlers();
}
Q_COREAPP_STARTUP_FUNCTION(installDefaultEventHandlers)

// SPDX-FileCopyrightText: 2026 Quillet developers
// SPDX-License-Identifier: MIT
//
// Events travel over the D-Bus session bus. Each process owns the
// well-known name "org.quillet.VX.p<pid>" and exports one object whose
// HandleEvent method takes (event class, event ID, text). Without a session
// bus nothing can be received, and installHandler says so. An event goes to
// the unique connection that owns the name, after the connection's process
// id has been checked, so it never reaches a later owner of the name.
//
// The owners of these names are applications (docs/process.md); a bus-name
// watcher keeps their process ids for the process list.
#include "utilities/vxfourcharcode.h"
#include "utilities/vxlog.h"
#include "vxappleevents.h"
#include "vxappleevents_p.h"
#include "vxprocess_p.h"

#include <QCoreApplication>
#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QDBusError>
#include <QDBusMessage>
#include <QDBusReply>
#include <QFileInfo>
#include <QHash>
#include <QLoggingCategory>
#include <QSet>

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

using VXAppleEventsPrivate::sessionBusAvailable;
} // namespace

// Only a bus the session already has counts; asking for the bus without one
// would have libdbus start a new one.
bool VXAppleEventsPrivate::sessionBusAvailable()
{
    if (!qEnvironmentVariableIsEmpty("DBUS_SESSION_BUS_ADDRESS"))
        return true;
    const QByteArray runtime = qgetenv("XDG_RUNTIME_DIR");
    return !runtime.isEmpty()
        && QFileInfo::exists(QString::fromLocal8Bit(runtime) + QLatin1String("/bus"));
}

namespace {

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
    return sendToProcess(pid, {}, eventClass, eventID, directParameter, timeoutMs);
}

int VXAppleEvents::sendToProcess(qint64 pid, const std::function<bool()> &stillThatProcess,
    quint32 eventClass, quint32 eventID, const QString &directParameter, int timeoutMs)
{
    if (!sessionBusAvailable())
        return ConnectionInvalid;
    QDBusConnection bus = QDBusConnection::sessionBus();
    if (!bus.isConnected())
        return ConnectionInvalid;
    // The unique name of the owner is never given to another connection:
    // once its process id is the one asked for, and that process is still
    // the one meant, the event can reach no other.
    const QDBusReply<QString> owner = bus.interface()->serviceOwner(serviceNameForPid(pid));
    if (!owner.isValid())
        return ProcessNotFound;
    const QDBusReply<uint> ownerPid = bus.interface()->servicePid(owner.value());
    if (!ownerPid.isValid() || qint64(ownerPid.value()) != pid
        || (stillThatProcess && !stillThatProcess()))
        return ProcessNotFound;
    QDBusMessage call = QDBusMessage::createMethodCall(owner.value(),
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

namespace {
constexpr char kNamePrefix[] = "org.quillet.VX.p";

// The process id a name claims, when the connection that owns it belongs
// to that process; 0 otherwise.
qint32 verifiedPidOf(QDBusConnection &bus, const QString &name)
{
    if (!name.startsWith(QLatin1String(kNamePrefix)))
        return 0;
    bool ok = false;
    const qint32 pid = name.mid(int(sizeof kNamePrefix) - 1).toInt(&ok);
    if (!ok || pid <= 0)
        return 0;
    const QDBusReply<uint> owner = bus.interface()->servicePid(name);
    return owner.isValid() && qint32(owner.value()) == pid ? pid : 0;
}

QSet<qint32> listBusNamePids(QDBusConnection &bus)
{
    QSet<qint32> pids;
    const QDBusReply<QStringList> names = bus.interface()->registeredServiceNames();
    if (names.isValid())
        for (const QString &name : names.value())
            if (const qint32 pid = verifiedPidOf(bus, name))
                pids.insert(pid);
    return pids;
}

} // namespace

QSet<qint32> VXProcessPlatform::busNamePids()
{
    // A program without an application object (a command-line lister) does
    // not start Qt's bus thread for this: it sees these applications by
    // their bundle or window only.
    if (!QCoreApplication::instance() || !sessionBusAvailable())
        return {};
    QDBusConnection bus = QDBusConnection::sessionBus();
    return bus.isConnected() ? listBusNamePids(bus) : QSet<qint32>();
}

void VXBusNameWatcher::nameOwnerChanged(const QString &name, const QString &, const QString &)
{
    if (name.startsWith(QLatin1String(kNamePrefix)) && changed)
        changed();
}

bool VXProcessPlatform::installBusNameWatcher(const std::function<void()> &changed)
{
    if (!QCoreApplication::instance() || !sessionBusAvailable())
        return false;
    QDBusConnection bus = QDBusConnection::sessionBus();
    if (!bus.isConnected())
        return false;
    // Every name change of the bus comes here and is filtered by its prefix:
    // Qt 6.4 offers no namespace match for a signal.
    auto *watcher = new VXBusNameWatcher(QCoreApplication::instance());
    watcher->changed = changed;
    return bus.connect(QStringLiteral("org.freedesktop.DBus"),
        QStringLiteral("/org/freedesktop/DBus"), QStringLiteral("org.freedesktop.DBus"),
        QStringLiteral("NameOwnerChanged"), watcher,
        SLOT(nameOwnerChanged(QString, QString, QString)));
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

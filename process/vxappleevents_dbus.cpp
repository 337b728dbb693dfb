// SPDX-FileCopyrightText: 2026 Quillet developers
// SPDX-License-Identifier: MIT
//
// Events travel over the D-Bus session bus. Each process owns the
// well-known name "org.quillet.VX.p<pid>" and exports one object whose
// HandleEvent method takes (event class, event ID, text). Without a session
// bus nothing can be received, and installHandler says so.
#include "utilities/vxlog.h"
#include "vxappleevents.h"
#include "vxappleevents_p.h"

#include <QCoreApplication>
#include <QDBusConnection>
#include <QDBusError>
#include <QHash>
#include <QLoggingCategory>

Q_LOGGING_CATEGORY(lcAppleEvents, "quillet.process.events")

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

bool ensureExported()
{
    static bool exported = false;
    if (exported)
        return true;
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

// SPDX-FileCopyrightText: 2026 Quillet developers
// SPDX-License-Identifier: MIT
#pragma once

#include <QObject>
#include <QString>
#include <functional>

// The object every library process exports on the session bus, at
// VXAppleEventsPrivate::objectPath under the name serviceNameForPid().
class VXAppleEventReceiver : public QObject
{
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "org.quillet.VX.AppleEvents")
public:
    using QObject::QObject;

public Q_SLOTS:
    // Answers 0 when a handler took the event, -1708 (event not handled)
    // otherwise.
    int HandleEvent(uint eventClass, uint eventID, const QString &directParameter);
};

// Hears the library's event names appear and go on the session bus.
class VXBusNameWatcher : public QObject
{
    Q_OBJECT
public:
    using QObject::QObject;
    std::function<void()> changed;

public Q_SLOTS:
    void nameOwnerChanged(const QString &name, const QString &oldOwner, const QString &newOwner);
};

namespace VXAppleEventsPrivate {
inline constexpr char objectPath[] = "/org/quillet/VX/AppleEvents";
inline constexpr char interfaceName[] = "org.quillet.VX.AppleEvents";
// Whether the session has a bus (asking for one without would start one).
bool sessionBusAvailable();
} // namespace VXAppleEventsPrivate

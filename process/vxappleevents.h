// SPDX-FileCopyrightText: 2026 Quillet developers
// SPDX-License-Identifier: MIT
#pragma once

#include <QString>
#include <functional>

// Inter-application events: four-character event class and ID, with an
// optional text as the direct parameter. Every process that uses the library
// can receive them once it has installed a handler.
namespace VXAppleEvents {

using Handler = std::function<void(const QString &directParameter)>;

// Installs (or replaces) the handler for one event class and ID; handlers
// run on the thread that owns the application object (the main thread).
// Answers false when the process cannot receive events (no session bus).
bool installHandler(quint32 eventClass, quint32 eventID, Handler handler);

// The name under which a process receives events on the session bus.
QString serviceNameForPid(qint64 pid);

// Result codes, as the event manager has always answered them.
enum Result : int {
    NoError = 0,
    ProcessNotFound = -600,
    ConnectionInvalid = -609,
    EventNotHandled = -1708,
    TimedOut = -1712,
};

// Sends an event to the process with this pid. With a time-out (ms, >= 0)
// the call waits for the handler's answer; with -1 it returns once the event
// is on its way. Answers NoError or one of the codes above.
int send(
    qint64 pid, quint32 eventClass, quint32 eventID, const QString &directParameter, int timeoutMs);
// The same, but only while stillThatProcess() answers true once the
// receiving connection has been found (a record's start-time check): a
// later process with the same pid never receives the event.
int sendToProcess(qint64 pid, const std::function<bool()> &stillThatProcess, quint32 eventClass,
    quint32 eventID, const QString &directParameter, int timeoutMs);

// Every library process quits its application on 'aevt'/'quit'. Installed
// when the application object is created; a program may replace the handler.
void installDefaultHandlers();

} // namespace VXAppleEvents

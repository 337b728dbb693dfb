// SPDX-FileCopyrightText: 2026 Quillet developers
// SPDX-License-Identifier: MIT
#pragma once

#include "vxprocess.h"

#include <QDateTime>
#include <QList>
#include <QString>
#include <functional>
#include <optional>

// What a platform provides to VXProcess.
namespace VXProcessPlatform {

// Serial numbers of all application processes, in the platform's order.
QList<VXProcessSerialNumber> allSerialNumbers();
VXProcessSerialNumber currentSerialNumber();
// The serial number of a live process id; null when there is none.
VXProcessSerialNumber serialNumberForPid(qint32 pid);
// The pid of a live process; 0 when it has ended (zombies included).
qint32 pidForSerialNumber(const VXProcessSerialNumber &psn);

struct BasicInfo
{
    QString name; // the process name as the system knows it
    QString executable; // the program file; empty when hidden from us
};
std::optional<BasicInfo> basicInfo(const VXProcessSerialNumber &psn);
std::optional<QDateTime> startTime(const VXProcessSerialNumber &psn);

// The shell command that writes a process's user CPU time, as "M:SS.ss", to
// a file: a format with %d (the pid) and %@ (the file).
QString cpuTimeCommand();

// Signals
enum class SignalResult { Delivered, Gone, Refused };
SignalResult sendSignal(const VXProcessSerialNumber &psn, int signal);
// Whether the process has ended (a zombie has ended).
bool hasTerminated(const VXProcessSerialNumber &psn);

// Fault injection for tests: replaces signal delivery, e.g. by one that
// never reaches the process. An empty function restores the real one.
void setSignalSender(std::function<SignalResult(const VXProcessSerialNumber &, int)> sender);

// Windows (X11, EWMH): without an X server these fail quietly.
qint32 frontPid();
bool activate(qint32 pid, bool frontWindowOnly);
bool setHidden(qint32 pid, bool hidden);

// A source of application events. Calls back on the thread that installed it.
struct EventHandlers
{
    std::function<void()> launched;
    std::function<void()> terminated;
    std::function<void()> frontSwitched;
};
void installEventSource(const EventHandlers &handlers);

// Where /proc is read from; tests point it at a prepared tree.
void setProcRoot(const QString &root);

} // namespace VXProcessPlatform

namespace VXProcessPlatform {
// Watches the X server's active window and calls back on the calling
// thread's event loop when it changes; false without an X server.
bool installFrontSwitchWatcher(const std::function<void()> &frontSwitched);
} // namespace VXProcessPlatform

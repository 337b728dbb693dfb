// SPDX-FileCopyrightText: 2026 Quillet developers
// SPDX-License-Identifier: MIT
#pragma once

#include "vxprocess.h"

#include <QDateTime>
#include <QList>
#include <QSet>
#include <QString>
#include <functional>
#include <optional>

// What a platform provides to VXProcess.
namespace VXProcessPlatform {

// Serial numbers of the current user's applications (see docs/process.md:
// a bundle, a top-level window or the library's bus name), in pid order.
QList<VXProcessSerialNumber> allSerialNumbers();
VXProcessSerialNumber currentSerialNumber();
// The serial number of a live process of the current user with this process
// id (a thread id is no process id); null when there is none.
VXProcessSerialNumber serialNumberForPid(qint32 pid);
// The pid of a live process; 0 when it has ended (zombies included).
qint32 pidForSerialNumber(const VXProcessSerialNumber &psn);
// The application bundle a program file runs from: the nearest enclosing
// ".app" that holds an Info file; empty when there is none.
QString bundlePathOf(const QString &executable);

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
// Waits for one process's end: a pidfd held from construction to
// destruction, for a caller that waits (a quit). Without pidfds, wait()
// sleeps and asks hasTerminated().
class EndWatch
{
public:
    explicit EndWatch(const VXProcessSerialNumber &psn);
    ~EndWatch();
    EndWatch(const EndWatch &) = delete;
    EndWatch &operator=(const EndWatch &) = delete;
    // True when the process had already ended (or was never this one).
    bool ended() const { return m_ended; }
    // Up to timeoutMs; true once the process has ended.
    bool wait(int timeoutMs);
    // Through the held pidfd, which can only reach the watched process.
    SignalResult signal(int signal);

private:
    VXProcessSerialNumber m_psn;
    int m_fd = -1;
    bool m_ended = false;
};

// Fault injection for tests: replaces signal delivery, e.g. by one that
// never reaches the process. An empty function restores the real one.
void setSignalSender(std::function<SignalResult(const VXProcessSerialNumber &, int)> sender);

// Windows (X11, EWMH): without an X server these fail quietly.
qint32 frontPid();
bool activate(qint32 pid, bool frontWindowOnly);
bool setHidden(qint32 pid, bool hidden);
// The processes that own a top-level window of the display.
QSet<qint32> windowOwnerPids();
// Watches the window list and the active window and calls back on the
// calling thread's event loop when either changes; false without an X
// server.
bool installWindowWatcher(
    const std::function<void()> &windowsChanged, const std::function<void()> &frontSwitched);

// The processes that own the library's event name on the session bus.
QSet<qint32> busNamePids();
// Calls back when such a name appears or goes; false without a session bus.
bool installBusNameWatcher(const std::function<void()> &changed);

// A source of application events. Calls back on the thread that installed it.
struct EventHandlers
{
    std::function<void()> launched;
    std::function<void()> terminated;
    std::function<void()> frontSwitched;
};
void installEventSource(const EventHandlers &handlers);
// Pidfds the event source holds (for tests of the descriptor bound).
int watchedDescriptorCount();

// Where /proc is read from; tests point it at a prepared tree.
void setProcRoot(const QString &root);

} // namespace VXProcessPlatform

// SPDX-FileCopyrightText: 2026 Quillet developers
// SPDX-License-Identifier: MIT
//
// Processes from /proc. A serial number is (pid, start time in clock ticks
// since boot): the pair names one process for its whole life, so a reused
// pid never answers for an earlier process. Signals go through a pidfd that
// is checked against the start time before use, so a signal meant for an
// ended process never reaches a newer one with the same pid.
//
// The list holds applications only: processes of the current user that run
// from a bundle in this session (the same XDG_RUNTIME_DIR), own a top-level
// window of our display or own the library's name on our session bus.
// Kernel threads, threads, zombies and other users' processes never count.
// Launches and ends come from the window list, the bus names and pidfds of
// applications without either; a scan every few seconds looks only at
// process ids it has not seen before, for bundle programs without a window.
#include "utilities/vxbundle.h"
#include "vxprocess_p.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QHash>
#include <QMutex>
#include <QSet>
#include <QSocketNotifier>
#include <QTimer>
#include <atomic>
#include <cctype>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <dirent.h>
#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#ifndef SYS_pidfd_open
#define SYS_pidfd_open 434
#endif
#ifndef SYS_pidfd_send_signal
#define SYS_pidfd_send_signal 424
#endif

namespace {

QString g_procRoot = QStringLiteral("/proc");
std::function<VXProcessPlatform::SignalResult(const VXProcessSerialNumber &, int)> g_signalSender;

constexpr quint64 kKernelThreadFlag = 0x00200000; // PF_KTHREAD

struct Stat
{
    qint32 pid = 0;
    QString comm;
    char state = '?';
    quint64 flags = 0;
    quint64 startTime = 0;
};

// Read with plain system calls: this runs for every process on every
// listing, and /proc files are small.
std::optional<Stat> readStat(qint32 pid)
{
    char path[64];
    const QByteArray root = QFile::encodeName(g_procRoot);
    std::snprintf(path, sizeof path, "%.40s/%d/stat", root.constData(), pid);
    const int fd = ::open(path, O_RDONLY | O_CLOEXEC);
    if (fd < 0)
        return std::nullopt;
    char buffer[1024];
    const ssize_t n = ::read(fd, buffer, sizeof buffer - 1);
    ::close(fd);
    if (n <= 0)
        return std::nullopt;
    buffer[n] = '\0';
    const char *open = std::strchr(buffer, '(');
    const char *close = std::strrchr(buffer, ')');
    if (!open || !close || close < open || close[1] == '\0')
        return std::nullopt;
    Stat s;
    s.pid = pid;
    s.comm = QString::fromUtf8(open + 1, close - open - 1);
    // Fields after the name, counted from 3 (state) as proc(5) numbers them.
    const char *p = close + 2;
    s.state = *p;
    int field = 3;
    while (*p && field < 22) {
        while (*p && *p != ' ')
            ++p;
        if (*p == ' ')
            ++p;
        ++field;
        if (field == 9)
            s.flags = std::strtoull(p, nullptr, 10);
    }
    if (field != 22 || !std::isdigit(static_cast<unsigned char>(*p)))
        return std::nullopt;
    s.startTime = std::strtoull(p, nullptr, 10);
    return s;
}

VXProcessSerialNumber serialOf(const Stat &s)
{
    return { quint32(s.pid), quint32(s.startTime & 0xffffffffu) };
}

bool alive(const Stat &s)
{
    return s.state != 'Z' && s.state != 'X' && s.state != 'x';
}

// The stat of the process the serial number names, if it has not ended.
std::optional<Stat> liveStat(const VXProcessSerialNumber &psn)
{
    if (psn.highLongOfPSN == 0 || psn.highLongOfPSN > 0x7fffffffu)
        return std::nullopt;
    const auto s = readStat(qint32(psn.highLongOfPSN));
    if (!s || serialOf(*s) != psn || !alive(*s))
        return std::nullopt;
    return s;
}

qint64 clockTicks()
{
    static const qint64 ticks = ::sysconf(_SC_CLK_TCK) > 0 ? ::sysconf(_SC_CLK_TCK) : 100;
    return ticks;
}

qint64 bootTime()
{
    QFile f(g_procRoot + QLatin1String("/stat"));
    if (!f.open(QIODevice::ReadOnly))
        return 0;
    for (const QByteArray &line : f.readAll().split('\n'))
        if (line.startsWith("btime "))
            return line.mid(6).trimmed().toLongLong();
    return 0;
}

QList<qint32> listPids()
{
    QList<qint32> pids;
    DIR *dir = ::opendir(QFile::encodeName(g_procRoot).constData());
    if (!dir)
        return pids;
    while (const dirent *entry = ::readdir(dir)) {
        char *end = nullptr;
        const long pid = std::strtol(entry->d_name, &end, 10);
        if (end != entry->d_name && *end == '\0' && pid > 0)
            pids.append(qint32(pid));
    }
    ::closedir(dir);
    std::sort(pids.begin(), pids.end());
    return pids;
}

int pidfdOpen(qint32 pid)
{
    return int(::syscall(SYS_pidfd_open, pid, 0));
}

VXProcessPlatform::SignalResult realSendSignal(const VXProcessSerialNumber &psn, int signal)
{
    using R = VXProcessPlatform::SignalResult;
    const int fd = pidfdOpen(qint32(psn.highLongOfPSN));
    if (fd < 0)
        return errno == ESRCH ? R::Gone : R::Refused;
    // The pidfd holds the process it was opened for; if that is not ours,
    // ours has ended.
    const auto s = readStat(qint32(psn.highLongOfPSN));
    if (!s || serialOf(*s) != psn || !alive(*s)) {
        ::close(fd);
        return R::Gone;
    }
    const long rc = ::syscall(SYS_pidfd_send_signal, fd, signal, nullptr, 0);
    const int error = errno;
    ::close(fd);
    if (rc == 0)
        return R::Delivered;
    return error == ESRCH ? R::Gone : R::Refused;
}

} // namespace

void VXProcessPlatform::setProcRoot(const QString &root)
{
    g_procRoot = root.isEmpty() ? QStringLiteral("/proc") : root;
}

namespace {
quint64 keyOf(const VXProcessSerialNumber &psn)
{
    return (quint64(psn.highLongOfPSN) << 32) | psn.lowLongOfPSN;
}

// Whether the process belongs to the user we run as: the owner of its /proc
// folder is its effective user.
bool ownedByUser(qint32 pid)
{
    char path[64];
    const QByteArray root = QFile::encodeName(g_procRoot);
    std::snprintf(path, sizeof path, "%.40s/%d", root.constData(), pid);
    struct stat st;
    return ::stat(path, &st) == 0 && st.st_uid == ::geteuid();
}

// A thread's id opens /proc/TID too; only a thread group's leader is a
// process. Without a status file (a prepared tree) the id counts as one.
bool isProcessId(qint32 pid)
{
    char path[64];
    const QByteArray root = QFile::encodeName(g_procRoot);
    std::snprintf(path, sizeof path, "%.40s/%d/status", root.constData(), pid);
    const int fd = ::open(path, O_RDONLY | O_CLOEXEC);
    if (fd < 0)
        return true;
    char buffer[512]; // Tgid is among the first lines
    const ssize_t n = ::read(fd, buffer, sizeof buffer - 1);
    ::close(fd);
    if (n <= 0)
        return true;
    buffer[n] = '\0';
    const char *tgid = std::strstr(buffer, "\nTgid:");
    return !tgid || std::strtol(tgid + 6, nullptr, 10) == pid;
}

QString executableOf(qint32 pid)
{
    QString exe = QFile::symLinkTarget(
        g_procRoot + QLatin1Char('/') + QString::number(pid) + QLatin1String("/exe"));
    if (exe.endsWith(QLatin1String(" (deleted)")))
        exe.chop(10);
    return exe;
}

// Whether a process belongs to our session: its runtime folder
// (XDG_RUNTIME_DIR, where the session's bus and display sockets live) is
// ours; unset in both counts as the same. A process whose environment we
// may not read is not ours.
bool inOurSession(qint32 pid)
{
    static const QByteArray ours = qgetenv("XDG_RUNTIME_DIR");
    QFile file(g_procRoot + QLatin1Char('/') + QString::number(pid) + QLatin1String("/environ"));
    if (!file.open(QIODevice::ReadOnly))
        return false;
    QByteArray theirs;
    for (const QByteArray &entry : file.readAll().split('\0'))
        if (entry.startsWith("XDG_RUNTIME_DIR="))
            theirs = entry.mid(16);
    return theirs == ours;
}

// Whether a process runs from a bundle in our session, kept per process (and its name, as
// a program that replaces itself keeps its serial number): the program file
// of a process does not change otherwise.
struct BundleCache
{
    QMutex lock;
    QHash<quint64, std::pair<QString, bool>> byProcess;
} g_bundles;

bool runsFromBundle(const Stat &s, QHash<quint64, std::pair<QString, bool>> *seen)
{
    const quint64 key = keyOf(serialOf(s));
    {
        QMutexLocker lock(&g_bundles.lock);
        const auto it = g_bundles.byProcess.constFind(key);
        if (it != g_bundles.byProcess.cend() && it->first == s.comm) {
            if (seen)
                seen->insert(key, *it);
            return it->second;
        }
    }
    const QString exe = executableOf(s.pid);
    // Most programs are not in a folder named .app: no file look-ups for them.
    const bool bundled = exe.contains(QLatin1String(".app/"))
        && !VXProcessPlatform::bundlePathOf(exe).isEmpty() && inOurSession(s.pid);
    QMutexLocker lock(&g_bundles.lock);
    g_bundles.byProcess.insert(key, { s.comm, bundled });
    if (seen)
        seen->insert(key, { s.comm, bundled });
    return bundled;
}

// Applications the event source knows: they stay applications until they
// end, also after their last window has closed.
QMutex g_knownLock;
QSet<quint64> g_known;
} // namespace

QString VXProcessPlatform::bundlePathOf(const QString &executable)
{
    const QString app = VXBundle::enclosingBundlePath(executable);
    if (app.isEmpty())
        return QString();
    if (QFileInfo::exists(app + QLatin1String("/Contents/Info.plist"))
        || QFileInfo::exists(app + QLatin1String("/Resources/Info-gnustep.plist")))
        return app;
    return QString();
}

QList<VXProcessSerialNumber> VXProcessPlatform::allSerialNumbers()
{
    QList<VXProcessSerialNumber> out;
    const QSet<qint32> windows = windowOwnerPids();
    const QSet<qint32> bus = busNamePids();
    QSet<quint64> known;
    {
        QMutexLocker lock(&g_knownLock);
        known = g_known;
    }
    QHash<quint64, std::pair<QString, bool>> seen;
    for (qint32 pid : listPids()) {
        if (!ownedByUser(pid))
            continue;
        const auto s = readStat(pid); // may have ended since the listing
        if (!s || !alive(*s) || (s->flags & kKernelThreadFlag))
            continue;
        const VXProcessSerialNumber psn = serialOf(*s);
        if (windows.contains(pid) || bus.contains(pid) || known.contains(keyOf(psn))
            || runsFromBundle(*s, &seen))
            out.append(psn);
    }
    // Only processes that still run keep their entry.
    QMutexLocker lock(&g_bundles.lock);
    g_bundles.byProcess.swap(seen);
    return out;
}

VXProcessSerialNumber VXProcessPlatform::currentSerialNumber()
{
    return serialNumberForPid(qint32(::getpid()));
}

VXProcessSerialNumber VXProcessPlatform::serialNumberForPid(qint32 pid)
{
    if (pid <= 0 || !ownedByUser(pid))
        return {};
    const auto s = readStat(pid);
    if (!s || !alive(*s) || (s->flags & kKernelThreadFlag) || !isProcessId(pid))
        return {};
    return serialOf(*s);
}

qint32 VXProcessPlatform::pidForSerialNumber(const VXProcessSerialNumber &psn)
{
    return liveStat(psn) ? qint32(psn.highLongOfPSN) : 0;
}

std::optional<VXProcessPlatform::BasicInfo> VXProcessPlatform::basicInfo(
    const VXProcessSerialNumber &psn)
{
    const auto s = liveStat(psn);
    if (!s)
        return std::nullopt;
    BasicInfo info;
    info.name = s->comm;
    info.executable = executableOf(s->pid);
    return info;
}

std::optional<QDateTime> VXProcessPlatform::startTime(const VXProcessSerialNumber &psn)
{
    const auto s = liveStat(psn);
    const qint64 boot = bootTime();
    if (!s || boot == 0)
        return std::nullopt;
    const qint64 msecs = boot * 1000 + qint64(s->startTime) * 1000 / clockTicks();
    return QDateTime::fromMSecsSinceEpoch(msecs);
}

QString VXProcessPlatform::cpuTimeCommand()
{
    // procps has no "utime" column and counts whole seconds only: the user
    // time comes from the process's stat (field 14, in clock ticks), written
    // as M:SS.ss.
    return QStringLiteral(
        "sed 's/.*) //' /proc/%d/stat | awk -v hz=\"$(getconf CLK_TCK)\" "
        "'{ t = $12 / hz; m = int(t / 60); printf \"%%d:%%05.2f\\n\", m, t - m * 60 }' > %@");
}

void VXProcessPlatform::setSignalSender(
    std::function<SignalResult(const VXProcessSerialNumber &, int)> sender)
{
    g_signalSender = std::move(sender);
}

VXProcessPlatform::SignalResult VXProcessPlatform::sendSignal(
    const VXProcessSerialNumber &psn, int signal)
{
    return g_signalSender ? g_signalSender(psn, signal) : realSendSignal(psn, signal);
}

bool VXProcessPlatform::hasTerminated(const VXProcessSerialNumber &psn)
{
    return !liveStat(psn);
}

VXProcessPlatform::EndWatch::EndWatch(const VXProcessSerialNumber &psn)
    : m_psn(psn)
    , m_fd(pidfdOpen(qint32(psn.highLongOfPSN)))
{
    // Checked after the open: the pidfd may belong to a newer process.
    if (m_fd >= 0 && !liveStat(psn)) {
        ::close(m_fd);
        m_fd = -1;
        m_ended = true;
    } else if (m_fd < 0) {
        m_ended = errno == ESRCH || !liveStat(psn);
    }
}

VXProcessPlatform::EndWatch::~EndWatch()
{
    if (m_fd >= 0)
        ::close(m_fd);
}

VXProcessPlatform::SignalResult VXProcessPlatform::EndWatch::signal(int signal)
{
    if (g_signalSender)
        return g_signalSender(m_psn, signal);
    if (m_ended)
        return SignalResult::Gone;
    if (m_fd < 0)
        return realSendSignal(m_psn, signal);
    if (::syscall(SYS_pidfd_send_signal, m_fd, signal, nullptr, 0) == 0)
        return SignalResult::Delivered;
    return errno == ESRCH ? SignalResult::Gone : SignalResult::Refused;
}

bool VXProcessPlatform::EndWatch::wait(int timeoutMs)
{
    if (m_ended)
        return true;
    if (m_fd < 0) {
        ::usleep(useconds_t(std::max(timeoutMs, 0)) * 1000);
        return m_ended = hasTerminated(m_psn);
    }
    // Readable once the process has ended (a zombie has ended).
    pollfd p { m_fd, POLLIN, 0 };
    return m_ended = ::poll(&p, 1, std::max(timeoutMs, 0)) > 0;
}

namespace {
// Pidfds are kept only for applications whose end no window list or bus
// name reports; past this many, the slow scan notices their ends.
constexpr int kMaxWatched = 64;
constexpr int kScanIntervalMs = 3000;
std::atomic<int> g_watchedDescriptors { 0 };

// Keeps the set of running applications and reports each that joins or
// leaves it once. Window-list and bus-name changes, and pidfds of
// applications without either, trigger a look at the applications alone;
// every few seconds the process ids that were not there at the last look
// are checked for bundle programs, so a look never reads every process.
class ApplicationWatcher : public QObject
{
public:
    explicit ApplicationWatcher(VXProcessPlatform::EventHandlers handlers, QObject *parent)
        : QObject(parent)
        , m_handlers(std::move(handlers))
    {
        VXProcessPlatform::installWindowWatcher(
            [this] { reconcile({}); }, [this] { m_handlers.frontSwitched(); });
        VXProcessPlatform::installBusNameWatcher([this] { reconcile({}); });
        const QList<qint32> pids = listPids();
        m_seenPids = QSet<qint32>(pids.cbegin(), pids.cend());
        // The applications that run already are known without a "started".
        for (const VXProcessSerialNumber &psn : VXProcessPlatform::allSerialNumbers())
            m_known.insert(keyOf(psn), Known { psn });
        publish();
        watchEnds(VXProcessPlatform::windowOwnerPids(), VXProcessPlatform::busNamePids());
        connect(&m_timer, &QTimer::timeout, this, &ApplicationWatcher::scan);
        m_timer.start(kScanIntervalMs);
    }

    ~ApplicationWatcher() override
    {
        for (Known &k : m_known)
            unwatch(k);
    }

private:
    struct Known
    {
        VXProcessSerialNumber psn;
        QSocketNotifier *notifier = nullptr;
    };

    void scan()
    {
        const QList<qint32> pids = listPids();
        QSet<qint32> now(pids.cbegin(), pids.cend());
        QList<VXProcessSerialNumber> fresh;
        for (qint32 pid : pids) {
            if (m_seenPids.contains(pid) || !ownedByUser(pid))
                continue;
            const auto s = readStat(pid);
            if (s && alive(*s) && !(s->flags & kKernelThreadFlag) && runsFromBundle(*s, nullptr))
                fresh.append(serialOf(*s));
        }
        m_seenPids.swap(now);
        reconcile(fresh);
    }

    void reconcile(const QList<VXProcessSerialNumber> &fresh)
    {
        const QSet<qint32> windows = VXProcessPlatform::windowOwnerPids();
        const QSet<qint32> bus = VXProcessPlatform::busNamePids();
        QHash<quint64, VXProcessSerialNumber> now;
        for (const QSet<qint32> *set : { &windows, &bus })
            for (qint32 pid : *set) {
                const VXProcessSerialNumber psn = VXProcessPlatform::serialNumberForPid(pid);
                if (!psn.isNull())
                    now.insert(keyOf(psn), psn);
            }
        for (const Known &k : std::as_const(m_known))
            if (liveStat(k.psn))
                now.insert(keyOf(k.psn), k.psn);
        for (const VXProcessSerialNumber &psn : fresh)
            now.insert(keyOf(psn), psn);

        int ended = 0, started = 0;
        for (auto it = m_known.begin(); it != m_known.end();) {
            if (now.contains(it.key())) {
                ++it;
                continue;
            }
            unwatch(*it);
            it = m_known.erase(it);
            ++ended;
        }
        for (auto it = now.cbegin(); it != now.cend(); ++it)
            if (!m_known.contains(it.key())) {
                m_known.insert(it.key(), Known { it.value() });
                ++started;
            }
        publish();
        watchEnds(windows, bus);
        for (int i = 0; i < ended; ++i)
            m_handlers.terminated();
        for (int i = 0; i < started; ++i)
            m_handlers.launched();
    }

    void publish()
    {
        QSet<quint64> keys;
        for (auto it = m_known.cbegin(); it != m_known.cend(); ++it)
            keys.insert(it.key());
        QMutexLocker lock(&g_knownLock);
        g_known.swap(keys);
    }

    // A pidfd for each application whose end neither source reports.
    void watchEnds(const QSet<qint32> &windows, const QSet<qint32> &bus)
    {
        for (Known &k : m_known) {
            const qint32 pid = qint32(k.psn.highLongOfPSN);
            const bool reported = windows.contains(pid) || bus.contains(pid);
            if (reported) {
                unwatch(k);
                continue;
            }
            if (k.notifier || g_watchedDescriptors.load() >= kMaxWatched)
                continue;
            const int fd = pidfdOpen(pid);
            if (fd < 0)
                continue;
            if (!liveStat(k.psn)) { // the pidfd may be a newer process's
                ::close(fd);
                continue;
            }
            k.notifier = new QSocketNotifier(qintptr(fd), QSocketNotifier::Read, this);
            ++g_watchedDescriptors;
            connect(
                k.notifier, &QSocketNotifier::activated, this, [this] { reconcile({}); },
                Qt::QueuedConnection);
        }
    }

    static void unwatch(Known &k)
    {
        if (!k.notifier)
            return;
        k.notifier->setEnabled(false);
        ::close(int(k.notifier->socket()));
        k.notifier->deleteLater();
        k.notifier = nullptr;
        --g_watchedDescriptors;
    }

    VXProcessPlatform::EventHandlers m_handlers;
    QHash<quint64, Known> m_known;
    QSet<qint32> m_seenPids;
    QTimer m_timer;
};
} // namespace

void VXProcessPlatform::installEventSource(const EventHandlers &handlers)
{
    if (!QCoreApplication::instance())
        return;
    new ApplicationWatcher(handlers, QCoreApplication::instance());
}

int VXProcessPlatform::watchedDescriptorCount()
{
    return g_watchedDescriptors.load();
}

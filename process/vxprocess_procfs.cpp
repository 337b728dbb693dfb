// SPDX-FileCopyrightText: 2026 Quillet developers
// SPDX-License-Identifier: MIT
//
// Processes from /proc. A serial number is (pid, start time in clock ticks
// since boot): the pair names one process for its whole life, so a reused
// pid never answers for an earlier process. Signals go through a pidfd that
// is checked against the start time before use, so a signal meant for an
// ended process never reaches a newer one with the same pid.
//
// Kernel threads are not listed; threads of a process are not processes.
// Processes of other users whose /proc entries are hidden (hidepid) are not
// listed; those whose program file we may not read are listed without one.
// Births and deaths are seen by a scan of /proc four times a second, and
// deaths of the processes that have records at once through their pidfds.
#include "vxprocess_p.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QHash>
#include <QSocketNotifier>
#include <QTimer>
#include <cctype>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <dirent.h>
#include <fcntl.h>
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

QList<VXProcessSerialNumber> VXProcessPlatform::allSerialNumbers()
{
    QList<VXProcessSerialNumber> out;
    const QList<qint32> pids = listPids();
    out.reserve(pids.size());
    for (qint32 pid : pids) {
        const auto s = readStat(pid); // may have ended since the listing
        if (!s || !alive(*s) || (s->flags & kKernelThreadFlag))
            continue;
        out.append(serialOf(*s));
    }
    return out;
}

VXProcessSerialNumber VXProcessPlatform::currentSerialNumber()
{
    return serialNumberForPid(qint32(::getpid()));
}

VXProcessSerialNumber VXProcessPlatform::serialNumberForPid(qint32 pid)
{
    if (pid <= 0)
        return {};
    const auto s = readStat(pid);
    if (!s || !alive(*s) || (s->flags & kKernelThreadFlag))
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
    QString exe = QFile::symLinkTarget(
        g_procRoot + QLatin1Char('/') + QString::number(s->pid) + QLatin1String("/exe"));
    if (exe.endsWith(QLatin1String(" (deleted)")))
        exe.chop(10);
    info.executable = exe;
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

namespace {
// Scans /proc for births and deaths, and watches the pidfds of processes
// that have records so their ends are seen at once.
class ProcessWatcher : public QObject
{
public:
    explicit ProcessWatcher(VXProcessPlatform::EventHandlers handlers, QObject *parent)
        : QObject(parent)
        , m_handlers(std::move(handlers))
    {
        m_known = snapshot();
        connect(&m_timer, &QTimer::timeout, this, &ProcessWatcher::scan);
        m_timer.start(250);
    }

    void watch(const VXProcessSerialNumber &psn)
    {
        const quint64 key = (quint64(psn.highLongOfPSN) << 32) | psn.lowLongOfPSN;
        if (m_pidfds.contains(key) || !liveStat(psn))
            return;
        const int fd = pidfdOpen(qint32(psn.highLongOfPSN));
        if (fd < 0)
            return;
        auto *notifier = new QSocketNotifier(fd, QSocketNotifier::Read, this);
        m_pidfds.insert(key, notifier);
        connect(notifier, &QSocketNotifier::activated, this, [this, key, notifier, fd] {
            notifier->setEnabled(false);
            notifier->deleteLater();
            ::close(fd);
            m_pidfds.remove(key);
            scan();
        });
    }

private:
    QHash<quint64, bool> snapshot() const
    {
        QHash<quint64, bool> set;
        for (const VXProcessSerialNumber &psn : VXProcessPlatform::allSerialNumbers())
            set.insert((quint64(psn.highLongOfPSN) << 32) | psn.lowLongOfPSN, true);
        return set;
    }

    void scan()
    {
        const QHash<quint64, bool> now = snapshot();
        int ended = 0, started = 0;
        for (auto it = m_known.cbegin(); it != m_known.cend(); ++it)
            if (!now.contains(it.key()))
                ++ended;
        for (auto it = now.cbegin(); it != now.cend(); ++it)
            if (!m_known.contains(it.key()))
                ++started;
        m_known = now;
        for (int i = 0; i < ended; ++i)
            m_handlers.terminated();
        for (int i = 0; i < started; ++i)
            m_handlers.launched();
        for (const VXProcessPtr &p : VXProcess::cachedProcesses())
            watch(p->serialNumber());
    }

    VXProcessPlatform::EventHandlers m_handlers;
    QHash<quint64, bool> m_known;
    QHash<quint64, QSocketNotifier *> m_pidfds;
    QTimer m_timer;
};
} // namespace

void VXProcessPlatform::installEventSource(const EventHandlers &handlers)
{
    if (!QCoreApplication::instance())
        return;
    new ProcessWatcher(handlers, QCoreApplication::instance());
    installFrontSwitchWatcher(handlers.frontSwitched);
}

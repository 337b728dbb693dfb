// SPDX-FileCopyrightText: 2026 Quillet developers
// SPDX-License-Identifier: MIT
#include "vxprocess.h"

#include "utilities/vxbundle.h"
#include "utilities/vxfourcharcode.h"
#include "utilities/vxlog.h"
#include "vxappleevents.h"
#include "vxnotificationcenter.h"
#include "vxprocess_p.h"
#include "vxresourcefile.h"

#include <QCoreApplication>
#include <QCryptographicHash>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QFileInfo>
#include <QHash>
#include <QRecursiveMutex>
#include <QThread>
#include <atomic>
#include <csignal>
#include <cstdlib>
#include <list>
#include <unistd.h>

namespace {
// The cache: most recently used first, and an index by serial number, so a
// lookup does not walk the list.
QRecursiveMutex g_lock;
std::list<VXProcessPtr> g_cache;
QHash<quint64, std::list<VXProcessPtr>::iterator> g_cacheIndex;
VXProcessPtr g_current;
std::atomic<quint32> g_changeCount { 0 };
std::atomic<bool> g_notificationsInstalled { false };
// A lookup before the application object existed asks for the handler to be
// installed as soon as it does.
std::atomic<bool> g_notificationsWanted { false };

quint64 keyOf(const VXProcessSerialNumber &psn)
{
    return (quint64(psn.highLongOfPSN) << 32) | psn.lowLongOfPSN;
}

constexpr quint32 kUnknownSignature = VXFourCharCode::make("????");

// The bundle a program runs from, else the program file itself: the one
// rule for every detail, whichever is asked first.
QString pathFor(const QString &executable)
{
    if (executable.isEmpty())
        return QString();
    const QString bundle = VXProcessPlatform::bundlePathOf(executable);
    return bundle.isEmpty() ? executable : bundle;
}

bool isBundlePath(const QString &path)
{
    return path.endsWith(QLatin1String(".app")) && QFileInfo(path).isDir();
}

// The leading integer of a string, 0 when there is none.
int leadingInteger(const QString &s)
{
    qsizetype i = 0;
    while (i < s.size() && s.at(i).isSpace())
        ++i;
    const qsizetype start = i;
    if (i < s.size() && (s.at(i) == QLatin1Char('-') || s.at(i) == QLatin1Char('+')))
        ++i;
    while (i < s.size() && s.at(i).isDigit() && s.at(i).unicode() < 128)
        ++i;
    return s.mid(start, i - start).toInt();
}
} // namespace

Q_DECLARE_METATYPE(VXProcessPtr)

VXProcess::VXProcess(const VXProcessSerialNumber &psn)
    : m_psn(psn)
{ }

VXProcess::~VXProcess()
{
    unregisterAXNotifications();
}

VXProcessPtr VXProcess::create(const VXProcessSerialNumber &psn)
{
    installNotifications();
    return VXProcessPtr(new VXProcess(psn));
}

// ---- Lookups and cache

VXProcessPtr VXProcess::processWithSerialNumber(const VXProcessSerialNumber &psn)
{
    QMutexLocker lock(&g_lock);
    if (VXProcessPtr cached = cachedProcessWithSerialNumber(psn))
        return cached;
    VXProcessPtr record = create(psn);
    record->addToCache();
    return record;
}

VXProcessPtr VXProcess::currentProcess()
{
    installNotifications();
    QMutexLocker lock(&g_lock);
    if (!g_current) {
        const VXProcessSerialNumber psn = VXProcessPlatform::currentSerialNumber();
        if (!psn.isNull())
            g_current = processWithSerialNumber(psn);
    }
    return g_current;
}

VXProcessPtr VXProcess::frontProcess()
{
    const qint32 pid = VXProcessPlatform::frontPid();
    return pid > 0 ? processWithPID(pid) : nullptr;
}

QList<VXProcessPtr> VXProcess::allProcesses()
{
    installNotifications();
    QList<VXProcessPtr> out;
    const QList<VXProcessSerialNumber> serials = VXProcessPlatform::allSerialNumbers();
    out.reserve(serials.size());
    QMutexLocker lock(&g_lock);
    for (const VXProcessSerialNumber &psn : serials)
        out.append(processWithSerialNumber(psn));
    return out;
}

VXProcessPtr VXProcess::processWithPID(qint32 pid)
{
    const VXProcessSerialNumber psn = VXProcessPlatform::serialNumberForPid(pid);
    return psn.isNull() ? nullptr : processWithSerialNumber(psn);
}

VXProcessPtr VXProcess::processWithSignature(quint32 signature)
{
    installNotifications();
    for (const VXProcessSerialNumber &psn : VXProcessPlatform::allSerialNumbers()) {
        VXProcessPtr p = processWithSerialNumber(psn);
        if (p->getProcessInfo() && p->signature() == signature)
            return p;
    }
    return nullptr;
}

VXProcessPtr VXProcess::processWithSignatureString(const QString &signature)
{
    return processWithSignature(VXFourCharCode::fromString(signature));
}

VXProcessPtr VXProcess::processWithIdentifier(const QString &identifier)
{
    for (const VXProcessPtr &p : allProcesses())
        if (p->identifier() == identifier)
            return p;
    return nullptr;
}

qsizetype VXProcess::indexOfCachedProcessWithSerialNumber(const VXProcessSerialNumber &psn)
{
    QMutexLocker lock(&g_lock);
    const auto hit = g_cacheIndex.constFind(keyOf(psn));
    if (psn.isNull() || hit == g_cacheIndex.cend())
        return NotFound;
    return qsizetype(std::distance(g_cache.begin(), *hit));
}

VXProcessPtr VXProcess::cachedProcessWithSerialNumber(const VXProcessSerialNumber &psn)
{
    QMutexLocker lock(&g_lock);
    const auto hit = g_cacheIndex.constFind(keyOf(psn));
    if (psn.isNull() || hit == g_cacheIndex.cend())
        return nullptr;
    // most recently used first
    g_cache.splice(g_cache.begin(), g_cache, *hit);
    return g_cache.front();
}

void VXProcess::addToCache()
{
    QMutexLocker lock(&g_lock);
    const quint64 key = keyOf(m_psn);
    if (const auto old = g_cacheIndex.constFind(key); old != g_cacheIndex.cend())
        g_cache.erase(*old); // one record per process
    g_cache.push_front(shared_from_this());
    g_cacheIndex.insert(key, g_cache.begin());
}

void VXProcess::cleanupCache()
{
    QMutexLocker lock(&g_lock);
    for (auto it = g_cache.begin(); it != g_cache.end();) {
        if ((*it)->isStillRunning()) {
            ++it;
            continue;
        }
        g_cacheIndex.remove(keyOf((*it)->m_psn));
        it = g_cache.erase(it);
    }
}

QList<VXProcessPtr> VXProcess::cachedProcesses()
{
    QMutexLocker lock(&g_lock);
    return QList<VXProcessPtr>(g_cache.cbegin(), g_cache.cend());
}

// ---- Identity

qint32 VXProcess::unixPID() const
{
    return VXProcessPlatform::pidForSerialNumber(m_psn);
}

bool VXProcess::isStillRunning() const
{
    return unixPID() != 0;
}

bool VXProcess::isSameProcess(const VXProcessSerialNumber &psn) const
{
    return !psn.isNull() && psn == m_psn;
}

bool VXProcess::isEqual(const VXProcessPtr &other) const
{
    if (!other)
        return false;
    return other.get() == this || isSameProcess(other->m_psn);
}

int VXProcess::compare(const VXProcessPtr &other) const
{
    const QString mine = const_cast<VXProcess *>(this)->name();
    const QString theirs = other ? other->name() : QString();
    return mine.compare(theirs, Qt::CaseInsensitive);
}

// ---- Details

bool VXProcess::getProcessInfo()
{
    QMutexLocker lock(&m_lock);
    if (!m_name.isEmpty())
        return true;
    const auto info = VXProcessPlatform::basicInfo(m_psn);
    if (!info)
        return false;
    if (!m_path)
        m_path = pathFor(info->executable);
    const std::optional<VXBundle> bundle
        = isBundlePath(*m_path) ? VXBundle::open(*m_path) : std::nullopt;
    quint32 signature = kUnknownSignature;
    QString name;
    if (bundle) {
        const quint32 code = VXFourCharCode::fromString(
            bundle->stringForInfoKey(QStringLiteral("CFBundleSignature")));
        if (code)
            signature = code;
        name = bundle->stringForInfoKey(QStringLiteral("CFBundleName"));
        if (name.isEmpty())
            name = QFileInfo(*m_path).completeBaseName();
    }
    if (name.isEmpty())
        name = info->executable.isEmpty() ? info->name : QFileInfo(info->executable).fileName();
    if (name.isEmpty())
        return false;
    m_signature = signature;
    m_name = name;
    return true;
}

QString VXProcess::name()
{
    return getProcessInfo() ? m_name : QString();
}

QString VXProcess::displayName()
{
    QMutexLocker lock(&m_lock);
    if (m_displayName.isNull()) {
        const std::optional<VXBundle> b = bundle();
        const QString display
            = b ? b->stringForInfoKey(QStringLiteral("CFBundleDisplayName")) : QString();
        m_displayName = display.isEmpty() ? name() : display;
    }
    return m_displayName;
}

QString VXProcess::appName()
{
    QMutexLocker lock(&m_lock);
    if (m_appName.isNull()) {
        QString n = QFileInfo(path()).fileName();
        if (n == QLatin1String("WinAppHelper"))
            n = QFileInfo(VXBundle::enclosingBundlePath(path())).completeBaseName();
        if (n.isEmpty())
            n = displayName();
        m_appName = n;
    }
    return m_appName;
}

quint32 VXProcess::signature()
{
    return getProcessInfo() ? m_signature : 0;
}

QString VXProcess::signatureString()
{
    return getProcessInfo() ? VXFourCharCode::toString(m_signature) : QString(QLatin1String(""));
}

QString VXProcess::signatureHexString()
{
    const quint32 code = signature();
    QString out;
    for (int shift = 24; shift >= 0; shift -= 8) {
        // Widened as a signed byte: 0x80 and up print as eight digits. Intended.
        const qint32 byte = qint8(quint8(code >> shift));
        out += vxFormat(QStringLiteral("%02X"), byte);
    }
    return out;
}

std::optional<VXBundle> VXProcess::bundle()
{
    const QString p = path();
    if (!isBundlePath(p))
        return std::nullopt;
    return VXBundle::open(p);
}

QVariantMap VXProcess::infoDictionary()
{
    QMutexLocker lock(&m_lock);
    if (!m_infoDictionary) {
        QVariantMap info;
        if (const std::optional<VXBundle> b = bundle())
            info = b->infoDictionary();
        if (const auto basic = VXProcessPlatform::basicInfo(m_psn)) {
            info.insert(QStringLiteral("CFBundleExecutable"), basic->executable);
            info.insert(QStringLiteral("pid"), qlonglong(m_psn.highLongOfPSN));
        }
        info.insert(
            QStringLiteral("PSN"), (qlonglong(m_psn.highLongOfPSN) << 32) | m_psn.lowLongOfPSN);
        if (!path().isEmpty())
            info.insert(QStringLiteral("BundlePath"), path());
        if (getProcessInfo())
            info.insert(QStringLiteral("FileCreator"), signatureString());
        m_infoDictionary = info;
    }
    return *m_infoDictionary;
}

QString VXProcess::identifier()
{
    const QVariant id = infoDictionary().value(QStringLiteral("CFBundleIdentifier"));
    return id.typeId() == QMetaType::QString ? id.toString() : QString(QLatin1String(""));
}

QString VXProcess::path()
{
    QMutexLocker lock(&m_lock);
    if (!m_path) {
        const auto info = VXProcessPlatform::basicInfo(m_psn);
        if (!info || info->executable.isEmpty())
            return QString(); // not known yet: asked again next time
        m_path = pathFor(info->executable);
    }
    return *m_path;
}

QString VXProcess::iconPath()
{
    QMutexLocker lock(&m_lock);
    if (!m_iconPath) {
        QString icon;
        if (const std::optional<VXBundle> b = bundle()) {
            const QString file = b->stringForInfoKey(QStringLiteral("CFBundleIconFile"));
            if (!file.isEmpty()) {
                for (const QString &type : { QStringLiteral("icns"), QStringLiteral("png"),
                         QStringLiteral("svg"), QString() }) {
                    icon = b->pathForResource(file, type);
                    if (!icon.isEmpty())
                        break;
                }
            }
        }
        m_iconPath = icon;
    }
    return *m_iconPath;
}

bool VXProcess::isCocoa()
{
    QMutexLocker lock(&m_lock);
    if (m_cocoaStatus == 0) {
        bool cocoa = false;
        const QString p = path();
        if (!p.isEmpty() && p.endsWith(QLatin1String(".app"))) {
            const std::optional<VXBundle> b = VXBundle::open(p);
            // A package that holds a native program for this platform, with
            // an application class named in its Info dictionary.
            cocoa = b && !b->executablePath().isEmpty()
                && !b->stringForInfoKey(QStringLiteral("NSPrincipalClass")).isEmpty();
        }
        m_cocoaStatus = cocoa ? 1 : 2;
    }
    return m_cocoaStatus == 1;
}

QString VXProcess::platform()
{
    if (isCocoa())
        return QStringLiteral("Cocoa");
    if (identifier().contains(QLatin1String(".java")))
        return QStringLiteral("Java");
    return QStringLiteral("Carbon");
}

bool VXProcess::isBackgroundOnly()
{
    const QVariantMap info = infoDictionary();
    auto truth = [&](const char *key) {
        const QVariant v = info.value(QLatin1String(key));
        return v.typeId() == QMetaType::Bool
            ? v.toBool()
            : (v.toString() == QLatin1String("1")
                || v.toString().compare(QLatin1String("YES"), Qt::CaseInsensitive) == 0
                || v.toString() == QLatin1String("true"));
    };
    return truth("LSBackgroundOnly") || truth("LSUIElement");
}

bool VXProcess::isFrontProcess()
{
    return isEqual(frontProcess());
}

QDateTime VXProcess::launchDate()
{
    QMutexLocker lock(&m_lock);
    if (!m_launchDate) {
        std::optional<QDateTime> start;
        if (unixPID() != 0)
            start = VXProcessPlatform::startTime(m_psn);
        if (!start) {
            vxLog(QStringLiteral("*** Cannot get launch date for %@"), name());
            start = QDateTime::currentDateTime();
        }
        m_launchDate = *start;
    }
    return *m_launchDate;
}

double VXProcess::secondsRunning()
{
    return launchDate().msecsTo(QDateTime::currentDateTime()) / 1000.0;
}

double VXProcess::cpuTime()
{
    const qint32 pid = unixPID();
    if (pid == 0)
        return 0;
    const QString file = QStringLiteral("/tmp/proc_cpu_time.txt");
    const QString command = vxFormat(VXProcessPlatform::cpuTimeCommand(), pid, file);
    if (std::system(command.toLocal8Bit().constData()) == -1)
        return 0;
    QFile f(file);
    if (!f.open(QIODevice::ReadOnly))
        return 0;
    const QString text = QString::fromUtf8(f.readAll());
    const qsizetype colon = text.indexOf(QLatin1Char(':'));
    if (colon < 0)
        return 0;
    return leadingInteger(text.left(colon)) * 60.0 + text.mid(colon + 1).trimmed().toDouble();
}

QString VXProcess::carbonVersion()
{
    const QString p = path();
    if (p.isEmpty())
        return QString();
    const QString forkPath = VXResourceFile::forkPathFor(p);
    if (forkPath.isEmpty())
        return QString();
    const auto fork = VXResourceFile::forkFromFile(forkPath);
    if (!fork)
        return QString();
    const auto vers = VXResourceFile::resource(*fork, VXFourCharCode::make("vers"), 1);
    if (!vers)
        return QString();
    const QString text = VXResourceFile::versionText(*vers);
    return text.isEmpty() ? QString() : text;
}

QString VXProcess::version()
{
    QMutexLocker lock(&m_lock);
    if (!m_version.isNull())
        return m_version;
    m_version = QStringLiteral("1.0");
    if (!getProcessInfo() || path().isEmpty())
        return m_version;
    const QString p = path();
    if (const std::optional<VXBundle> b = isBundlePath(p) ? VXBundle::open(p) : std::nullopt) {
        const QVariantMap info = b->infoDictionary();
        if (info.isEmpty())
            return m_version;
        const QVariant shortVersion = info.value(QStringLiteral("CFBundleShortVersionString"));
        const QVariant bundleVersion = info.value(QStringLiteral("CFBundleVersion"));
        if (shortVersion.typeId() == QMetaType::QString
            && shortVersion.toString().contains(QLatin1Char('.')))
            m_version = shortVersion.toString();
        else if (bundleVersion.typeId() == QMetaType::QString)
            m_version = bundleVersion.toString();
        return m_version;
    }
    const QString classic = carbonVersion();
    if (!classic.isNull())
        m_version = classic;
    return m_version;
}

int VXProcess::majorVersionNumber()
{
    return leadingInteger(version());
}

bool VXProcess::isAtLeastVersion(const QString &wanted)
{
    const QStringList mine = version().split(QLatin1Char('.'));
    const QStringList theirs = wanted.split(QLatin1Char('.'));
    const qsizetype n = std::max(mine.size(), theirs.size());
    for (qsizetype i = 0; i < n; ++i) {
        const int a = leadingInteger(mine.value(i));
        const int b = leadingInteger(theirs.value(i));
        if (a != b)
            return a > b;
    }
    return true;
}

QString VXProcess::hashStringSource()
{
    const QString id = identifier();
    if (!id.isEmpty())
        return QStringLiteral("id:") + id;
    const QString sig = signatureString();
    if (!sig.isEmpty() && sig != QLatin1String("????"))
        return QStringLiteral("sig:") + sig;
    return QStringLiteral("name:") + name();
}

QString VXProcess::hashString()
{
    return QString::fromLatin1(
        QCryptographicHash::hash(hashStringSource().toUtf8(), QCryptographicHash::Md5).toHex());
}

QString VXProcess::description()
{
    return vxFormat(QStringLiteral("Process \"%@\" (%@) %@"), name(), signatureString(), version());
}

QString VXProcess::detailedDescription()
{
    return vxFormat(
        QStringLiteral("%@ V%@ (%@/%@)"), name(), version(), signatureString(), identifier());
}

QVariant VXProcess::infoForKey(const QString &key) const
{
    QMutexLocker lock(&m_lock);
    return m_customInfo.value(key);
}

void VXProcess::setInfo(const QVariant &value, const QString &key)
{
    QMutexLocker lock(&m_lock);
    if (!value.isValid())
        m_customInfo.remove(key);
    else
        m_customInfo.insert(key, value);
}

// ---- Windows

void VXProcess::wakeUp()
{
    VXProcessPlatform::sendSignal(m_psn, SIGCONT);
}

void VXProcess::setHidden(bool hidden)
{
    VXProcessPlatform::setHidden(unixPID(), hidden);
}

void VXProcess::setFrontProcess()
{
    VXProcessPlatform::activate(unixPID(), false);
}

void VXProcess::setFrontProcessFrontWindowOnly()
{
    VXProcessPlatform::activate(unixPID(), true);
}

void VXProcess::temporarilySwitchOut()
{
    if (VXProcessPtr current = currentProcess())
        current->setFrontProcess();
    setFrontProcessFrontWindowOnly();
    wakeUp();
}

// ---- Quitting

bool VXProcess::quitRunningApplicationWithTimeout(float timeout)
{
    using VXProcessPlatform::SignalResult;
    const QString processName = name();
    const qint32 pid = unixPID();
    if (pid == 0) {
        vxLog(QStringLiteral("cannot quit %@: no pid"), processName);
        return false;
    }
    // The watch's pidfd is opened for this record's process (pid and start
    // time), so every signal below reaches that process or nobody.
    VXProcessPlatform::EndWatch ends(m_psn);
    if (ends.ended()) {
        vxLog(QStringLiteral("cannot quit %@: no process found"), processName);
        return false;
    }
    const double deadline = double(timeout);
    QElapsedTimer clock;
    clock.start();
    int attempts = 0;
    // The request is sent again in every pass, about once a millisecond,
    // until the deadline: intended.
    while (clock.nsecsElapsed() / 1e9 < deadline) {
        if (ends.signal(SIGTERM) == SignalResult::Gone) {
            vxLog(QStringLiteral("quit %@: process stopped after %1.3fs (%d attempts)"),
                processName, clock.nsecsElapsed() / 1e9, attempts + 1);
            return true;
        }
        // The 1 ms pause, cut short when the process ends.
        const bool ended = ends.wait(1);
        ++attempts;
        if (ended) {
            vxLog(QStringLiteral("quit %@: terminated after %1.3fs (%d attempts)"), processName,
                clock.nsecsElapsed() / 1e9, attempts);
            return true;
        }
    }
    clock.restart();
    attempts = 0;
    while (clock.nsecsElapsed() / 1e9 < deadline) {
        if (ends.signal(SIGKILL) == SignalResult::Gone) {
            // "foce" is how this line has always read: intended.
            vxLog(QStringLiteral("foce-quit %@: process stopped after %1.3fs (%d attempts)"),
                processName, clock.nsecsElapsed() / 1e9, attempts + 1);
            return true;
        }
        const bool ended = ends.wait(1);
        ++attempts;
        if (ended) {
            vxLog(QStringLiteral("force-quit %@: terminated after %1.3fs (%d attempts)"),
                processName, clock.nsecsElapsed() / 1e9, attempts);
            return true;
        }
    }
    vxLog(QStringLiteral("quitting %@ failed"), processName);
    return false;
}

void VXProcess::quit()
{
    if (quitRunningApplicationWithTimeout(4.0f))
        return;
    const QString processName = name();
    // A record whose process has ended has nobody to address: its pid may
    // belong to another process by now.
    if (m_psn.isNull() || unixPID() == 0) {
        vxLog(QStringLiteral("quitting %@ failed (%d; could not create descriptor)"), processName,
            int(VXAppleEvents::ProcessNotFound));
        return;
    }
    const int error
        = sendEvent(VXFourCharCode::make("aevt"), VXFourCharCode::make("quit"), QString(), -1);
    if (error != VXAppleEvents::NoError)
        vxLog(QStringLiteral("quitting %@ failed (%d; could not send event)"), processName, error);
}

int VXProcess::sendEvent(
    quint32 eventClass, quint32 eventID, const QString &parameter, int timeoutMs)
{
    const qint32 pid = unixPID();
    if (pid == 0)
        return VXAppleEvents::ProcessNotFound;
    const VXProcessSerialNumber psn = m_psn;
    return VXAppleEvents::sendToProcess(
        pid, [psn] { return VXProcessPlatform::pidForSerialNumber(psn) != 0; }, eventClass, eventID,
        parameter, timeoutMs);
}

void VXProcess::forceQuit()
{
    const qint32 pid = unixPID();
    if (pid == 0)
        return;
    char command[100];
    std::snprintf(command, sizeof command, "kill -9 %d", pid);
    [[maybe_unused]] const int ignored = std::system(command);
}

void VXProcess::sendAppleEventClass(quint32 eventClass, quint32 eventID, float timeout)
{
    if (unixPID() == 0)
        return; // the event could not be addressed
    const int ticks = int(timeout * 60);
    const int error = sendEvent(eventClass, eventID, QString(), ticks * 1000 / 60);
    if (error != VXAppleEvents::NoError)
        vxLog(QStringLiteral("*** event error: %d"), error);
}

void VXProcess::sendAppleEventClass(quint32 eventClass, quint32 eventID)
{
    if (unixPID() == 0)
        return;
    const int error = sendEvent(eventClass, eventID, QString(), -1);
    if (error != VXAppleEvents::NoError)
        vxLog(QStringLiteral("*** event error: %d"), error);
}

void VXProcess::sendAppleEventClass(quint32 eventClass, quint32 eventID, const QString &parameter)
{
    if (m_psn.isNull())
        return;
    // Errors of this send are not reported: intended.
    sendEvent(eventClass, eventID, parameter, -1);
}

// ---- Notifications

void VXProcess::installNotifications()
{
    QCoreApplication *app = QCoreApplication::instance();
    if (!app) {
        // Installed when the application object is made (below).
        g_notificationsWanted = true;
        return;
    }
    if (g_notificationsInstalled.exchange(true))
        return;
    auto install = [] {
        auto post = [](const char *change) {
            VXNotificationCenter::defaultCenter()->enqueue(
                QStringLiteral("VXProcessChangeNotification"), QStringLiteral("VXProcess"),
                { { QStringLiteral("change"), QLatin1String(change) } });
        };
        VXProcessPlatform::EventHandlers handlers;
        handlers.launched = [post] {
            applicationStarted();
            post("started");
        };
        handlers.terminated = [post] {
            applicationEnded();
            post("ended");
        };
        handlers.frontSwitched = [post] { post("front"); };
        VXProcessPlatform::installEventSource(handlers);
    };
    if (QThread::currentThread() == app->thread())
        install();
    else
        QMetaObject::invokeMethod(app, install, Qt::QueuedConnection);
}

static void installWantedNotifications()
{
    if (g_notificationsWanted.load())
        VXProcess::installNotifications();
}
Q_COREAPP_STARTUP_FUNCTION(installWantedNotifications)

void VXProcess::applicationStarted()
{
    ++g_changeCount;
}

void VXProcess::applicationEnded()
{
    cleanupCache();
    ++g_changeCount;
}

quint32 VXProcess::applicationLaunchEndCount()
{
    return g_changeCount.load();
}

QString VXProcess::processListForDiagnosticsReport()
{
    QStringList foreground, background;
    foreground.reserve(100);
    background.reserve(100);
    for (const VXProcessPtr &p : allProcesses())
        (p->isBackgroundOnly() ? background : foreground).append(p->detailedDescription());
    for (QStringList *list : { &foreground, &background }) {
        std::sort(list->begin(), list->end(), [](const QString &a, const QString &b) {
            return a.compare(b, Qt::CaseInsensitive) < 0;
        });
        if (list->isEmpty())
            list->append(QStringLiteral("none"));
    }
    return vxFormat(QStringLiteral("Foreground processes:\n%@\n\nBackground processes:\n%@\n"),
        foreground.join(QLatin1Char('\n')), background.join(QLatin1Char('\n')));
}

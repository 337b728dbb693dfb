// SPDX-FileCopyrightText: 2026 Quillet developers
// SPDX-License-Identifier: MIT
#pragma once

#include <QDateTime>
#include <QRecursiveMutex>
#include <QString>
#include <QVariantMap>
#include <memory>
#include <optional>

class VXBundle;
class VXProcess;
using VXProcessPtr = std::shared_ptr<VXProcess>;

// Identifies one process for its whole life. On Linux: the process id and
// the process's start time in clock ticks since boot, so a reused pid never
// matches an earlier process.
struct VXProcessSerialNumber
{
    quint32 highLongOfPSN = 0;
    quint32 lowLongOfPSN = 0;
    bool isNull() const { return highLongOfPSN == 0 && lowLongOfPSN == 0; }
    friend bool operator==(const VXProcessSerialNumber &, const VXProcessSerialNumber &) = default;
};

// One running application process. Records are made only by the lookups and
// kept in a process-wide cache, most recently used first; a record loads each
// detail once and keeps it, also after its process has ended. The cache holds
// shared pointers, so a record a caller keeps stays valid after the cache
// drops it.
//
// Lookups, the cache and a record's details may be used from any thread
// (the installer's run looks processes up beside the main thread): the cache
// has one lock, each record another that covers the loading of its details.
// Notifications and the change counter's events arrive on the main thread.
class VXProcess : public std::enable_shared_from_this<VXProcess>
{
public:
    ~VXProcess();
    VXProcess(const VXProcess &) = delete;
    VXProcess &operator=(const VXProcess &) = delete;

    // Lookups
    static VXProcessPtr processWithSerialNumber(const VXProcessSerialNumber &psn);
    static VXProcessPtr currentProcess();
    static VXProcessPtr frontProcess();
    static QList<VXProcessPtr> allProcesses();
    static VXProcessPtr processWithPID(qint32 pid);
    static VXProcessPtr processWithSignature(quint32 signature);
    static VXProcessPtr processWithSignatureString(const QString &signature);
    static VXProcessPtr processWithIdentifier(const QString &identifier);

    // Cache
    static qsizetype indexOfCachedProcessWithSerialNumber(const VXProcessSerialNumber &psn);
    static VXProcessPtr cachedProcessWithSerialNumber(const VXProcessSerialNumber &psn);
    static void cleanupCache();
    static QList<VXProcessPtr> cachedProcesses();
    void addToCache();
    static constexpr qsizetype NotFound = std::numeric_limits<qint64>::max();

    // Identity
    VXProcessSerialNumber serialNumber() const { return m_psn; }
    qint32 unixPID() const;
    bool isStillRunning() const;
    bool isSameProcess(const VXProcessSerialNumber &psn) const;
    bool isEqual(const VXProcessPtr &other) const;
    uint hash() const { return m_psn.highLongOfPSN + m_psn.lowLongOfPSN; }
    int compare(const VXProcessPtr &other) const;

    // Details, loaded once
    bool getProcessInfo();
    QString name();
    QString displayName();
    QString appName();
    quint32 signature();
    QString signatureString();
    QString signatureHexString();
    QVariantMap infoDictionary();
    QString identifier();
    QString path();
    std::optional<VXBundle> bundle();
    QString iconPath();
    bool isCocoa();
    QString platform();
    bool isBackgroundOnly();
    bool isFrontProcess();
    QDateTime launchDate();
    double secondsRunning();
    double cpuTime();
    QString carbonVersion();
    QString version();
    int majorVersionNumber();
    bool isAtLeastVersion(const QString &version);
    QString hashStringSource();
    QString hashString();
    QString description();
    QString detailedDescription();

    // Values a caller attaches to the record
    QVariant infoForKey(const QString &key) const;
    void setInfo(const QVariant &value, const QString &key);
    QVariant info() const { return infoForKey(QString(QLatin1String(""))); }
    void setInfo(const QVariant &value) { setInfo(value, QString(QLatin1String(""))); }

    // Windows
    void wakeUp();
    void setHidden(bool hidden);
    void setFrontProcess();
    void setFrontProcessFrontWindowOnly();
    void temporarilySwitchOut();

    // Quitting and events
    bool quitRunningApplicationWithTimeout(float timeout);
    void quit();
    void forceQuit();
    void sendAppleEventClass(quint32 eventClass, quint32 eventID, float timeout);
    void sendAppleEventClass(quint32 eventClass, quint32 eventID);
    void sendAppleEventClass(quint32 eventClass, quint32 eventID, const QString &parameter);

    // Notifications
    static void installNotifications();
    static void applicationStarted();
    static void applicationEnded();
    static quint32 applicationLaunchEndCount();
    static QString processListForDiagnosticsReport();

    // Accessibility events of this process's interface
    void installAXObserver();
    void addAXNotification(const QString &name);
    void removeAXNotification(const QString &name);
    void unregisterAXNotifications();

private:
    explicit VXProcess(const VXProcessSerialNumber &psn);
    void loadBundleInfo();
    static VXProcessPtr create(const VXProcessSerialNumber &psn);
    // Sends to this process only: never to a later process with its pid.
    int sendEvent(quint32 eventClass, quint32 eventID, const QString &parameter, int timeoutMs);

    VXProcessSerialNumber m_psn;
    std::optional<QVariantMap> m_infoDictionary;
    quint32 m_signature = 0;
    QString m_name;
    QString m_displayName;
    QString m_appName;
    std::optional<QString> m_path;
    QString m_version;
    std::optional<QDateTime> m_launchDate;
    std::optional<QString> m_iconPath;
    int m_cocoaStatus = 0;

public:
    struct AXState;
    struct AXStateDeleter
    {
        void operator()(AXState *state) const;
    };

private:
    std::unique_ptr<AXState, AXStateDeleter> m_ax;
    QVariantMap m_customInfo;
    mutable QRecursiveMutex m_lock;
};

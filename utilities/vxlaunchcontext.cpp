// SPDX-FileCopyrightText: 2026 Quillet developers
// SPDX-License-Identifier: MIT
//
// Where and how the application was started, the companion "Micro", alias
// resolution and the clipboard publisher bookkeeping; the class's one-time
// set-up.
#include "desktopappearance.h"
#include "process/vxnotificationcenter.h"
#include "process/vxprocess.h"
#include "vxbundle.h"
#include "vxlog.h"
#include "vxutilities.h"
#include "vxutilities_p.h"

#include <QAbstractEventDispatcher>
#include <QCoreApplication>
#include <QFileInfo>
#include <QMutex>
#include <QThread>
#include <QTimer>
#include <exception>
#include <unistd.h>

namespace {
QMutex g_classLock;
bool g_initialized = false;

// Clipboard bookkeeping: main thread only, as the notifications that drive it.
VXProcessPtr g_lastFrontProcess;
qint64 g_lastChangeCount = 0;
VXProcessPtr g_clipboardPublisher;

// A record compared with another as a message to a possibly absent object
// would be: an absent record equals nothing, not even itself.
bool same(const VXProcessPtr &a, const VXProcessPtr &b)
{
    return a && a->isEqual(b);
}
} // namespace

void VXUtilities::initialize()
{
    QMutexLocker lock(&g_classLock);
    if (g_initialized)
        return;
    // The watcher waits for a running event loop; without one it is never
    // installed, as a delayed perform on a run loop that never runs.
    if (QCoreApplication::instance() && QAbstractEventDispatcher::instance())
        QTimer::singleShot(1000, QCoreApplication::instance(), &VXUtilities::installProcessWatcher);
    // The desktop's theme change, posted under the system's name and observed
    // like any other notification; wired on the main thread, whose event loop
    // delivers both.
    if (QCoreApplication *app = QCoreApplication::instance()) {
        QMetaObject::invokeMethod(
            app,
            [] {
                auto *center = VXNotificationCenter::defaultCenter();
                QObject::connect(DesktopAppearance::Notifier::instance(),
                    &DesktopAppearance::Notifier::changed, center, [center] {
                        center->enqueue(QStringLiteral("AppleInterfaceThemeChangedNotification"),
                            QVariant(), QVariantMap());
                    });
                QObject::connect(center, &VXNotificationCenter::notified, center,
                    [](const QString &name, const QVariant &object) {
                        if (name == QLatin1String("AppleInterfaceThemeChangedNotification"))
                            darkModeChanged(object);
                    });
            },
            QThread::currentThread() == app->thread() ? Qt::DirectConnection
                                                      : Qt::QueuedConnection);
    }
    VXUtilitiesPlatform::clipboardChangeCount(); // changes are counted from here on
    g_initialized = true;
    vxLog(QStringLiteral("**Utilities initialized"));
}

void VXUtilities::installProcessWatcher()
{
    auto *center = VXNotificationCenter::defaultCenter();
    QObject::connect(center, &VXNotificationCenter::notified, center,
        [](const QString &name, const QVariant &object) {
            if (name == QLatin1String("VXProcessChangeNotification"))
                processSwitched(object);
        });
    VXProcess::installNotifications();
}

void VXUtilities::processSwitched(const QVariant &notification)
{
    Q_UNUSED(notification);
    initialize();
    const VXProcessPtr front = VXProcess::frontProcess();
    if (same(front, g_lastFrontProcess))
        return;
    const qint64 count = VXUtilitiesPlatform::clipboardChangeCount();
    if (g_lastFrontProcess && count != g_lastChangeCount)
        g_clipboardPublisher = g_lastFrontProcess;
    g_lastFrontProcess = front;
    g_lastChangeCount = count;
}

VXProcessPtr VXUtilities::clipboardPublisherProcess()
{
    initialize();
    if (!same(VXProcess::frontProcess(), g_lastFrontProcess))
        processSwitched();
    if (VXUtilitiesPlatform::clipboardChangeCount() == g_lastChangeCount)
        return g_clipboardPublisher;
    return g_lastFrontProcess;
}

QString VXUtilities::applicationName()
{
    const QString name
        = VXBundle::mainBundle().stringForInfoKey(QStringLiteral("CFBundleExecutable"));
    return name.isNull() ? QStringLiteral("") : name;
}

bool VXUtilities::runningFromDistributionDisk()
{
    initialize();
    const QString path = VXBundle::mainBundle().bundlePath();
    QString volume;
    if (path.startsWith(QLatin1String("/Volumes/"))) {
        QStringList components { QStringLiteral("/") };
        components += path.split(QLatin1Char('/'), Qt::SkipEmptyParts);
        if (components.size() < 3)
            return false;
        volume = QStringLiteral("/Volumes/") + components.at(2);
    } else {
        volume = VXUtilitiesPlatform::mediaVolumeOf(path);
        if (volume.isEmpty())
            return false;
    }
    // The marker lies at the volume's root, the bundle at any depth below it.
    return VXUtilitiesPlatform::fileExists(volume + QStringLiteral("/.launchlock"))
        || VXUtilitiesPlatform::fileExists(volume + QStringLiteral("/launchlock"));
}

bool VXUtilities::installationMode()
{
    const QString path = VXBundle::mainBundle().bundlePath();
    return runningFromDistributionDisk() || path.contains(QLatin1String("/AppTranslocation/"))
        || path.contains(QLatin1String("/var/tmp/"));
}

QString VXUtilities::resolvedAlias(const QString &path)
{
    // An alias is a symbolic link here; the whole chain is followed. A plain
    // file, a missing path and a chain that ends nowhere come back unchanged.
    const QFileInfo info(path);
    if (path.isEmpty() || !info.isSymLink())
        return path;
    const QString target = info.canonicalFilePath();
    return target.isEmpty() ? path : target;
}

void VXUtilities::launchMicro(bool flag)
{
    initialize();
    if (fullScreenMode())
        return;
    VXProcessPtr front;
    struct Finally
    {
        VXProcessPtr &front;
        ~Finally()
        {
            if (front) {
                front->setFrontProcessFrontWindowOnly();
                front->wakeUp();
            }
        }
    } finally { front };
    try {
        front = VXProcess::frontProcess();
        openFile(
            VXBundle::mainBundle().pathForResource(QStringLiteral("Micro"), QStringLiteral("app")));
        // Intended: the remembered process always equals itself, so this is
        // a fixed pause of 500 passes of 1 ms (none when nothing is in front).
        int count = 0;
        for (; count < 500; ++count) {
            if (!same(front, front))
                break;
            ::usleep(1000);
        }
        vxLog(QStringLiteral("wait count (Micro) = %d"), count);
        if (front) {
            front->wakeUp();
            ::usleep(1);
            front->wakeUp();
            if (!flag)
                front->setFrontProcessFrontWindowOnly();
        }
        for (int i = 0; i < 500; ++i) {
            if (same(VXProcess::frontProcess(), front))
                break;
            ::usleep(1000);
        }
    } catch (const std::exception &e) {
        vxLog(QStringLiteral("** Error while running Micro: %@"), QString::fromLocal8Bit(e.what()));
    }
}

bool VXUtilities::wasLaunchedByProcess(const QString &creator)
{
    initialize();
    const QString signature = VXUtilitiesPlatform::launcherSignature();
    return !signature.isNull() && signature == creator;
}

bool VXUtilities::wasLaunchedAsLoginItem()
{
    return wasLaunchedByProcess(QStringLiteral("lgnw"));
}

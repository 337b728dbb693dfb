// SPDX-FileCopyrightText: 2026 Quillet developers
// SPDX-License-Identifier: MIT
//
// Shell commands and scripts, opening files, and the user's environment:
// appearance, full screen, idle time, Do Not Disturb, secure input,
// debugger, file-system type, https on old systems.
#include "desktopappearance.h"
#include "extensions/stringextensions.h"
#include "process/vxprocess.h"
#include "vxlog.h"
#include "vxpropertylist.h"
#include "vxuserdefaults.h"
#include "vxutilities.h"
#include "vxutilities_p.h"

#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QProcess>
#include <QSettings>
#include <QStringDecoder>
#include <QTemporaryFile>
#include <atomic>
#include <unistd.h>

namespace {
// The full-screen state, written by the menu-bar handler on the main thread.
std::atomic<bool> g_fullScreen { false };
std::atomic<bool> g_menuBarHandlerTried { false };

QString expandTilde(const QString &path)
{
    if (path == QLatin1String("~"))
        return QDir::homePath();
    if (path.startsWith(QLatin1String("~/")))
        return QDir::homePath() + path.mid(1);
    return path;
}

// Cocoa's intValue of a number or a string; nullopt for anything else.
std::optional<int> intValue(const QVariant &v)
{
    switch (v.metaType().id()) {
    case QMetaType::Int:
    case QMetaType::UInt:
    case QMetaType::LongLong:
    case QMetaType::ULongLong:
    case QMetaType::Double:
    case QMetaType::Float:
    case QMetaType::Bool:
        return int(v.toLongLong());
    case QMetaType::QString:
        return StringExtensions::intValue(v.toString());
    case QMetaType::QByteArray:
        return StringExtensions::intValue(QString::fromUtf8(v.toByteArray()));
    default:
        return std::nullopt;
    }
}
} // namespace

QString VXUtilities::runShellScript(
    const QString &path, const std::optional<QStringList> &withParameters, double timeout)
{
    initialize();
    const QString launchPath = expandTilde(path);
    const QString name = QFileInfo(launchPath).fileName();
    // Kept on failure, as it always was: the failure text is the only report.
    QTemporaryFile output(QDir::tempPath() + QStringLiteral("/vxscript.XXXXXX"));
    output.setAutoRemove(false);
    if (!output.open())
        return vxFormat(QStringLiteral("script %@ failed: %@"), name, output.errorString());
    output.close();

    QProcess task;
    task.setProgram(launchPath);
    if (withParameters)
        task.setArguments(*withParameters);
    task.setStandardInputFile(QProcess::nullDevice());
    task.setProcessChannelMode(QProcess::MergedChannels);
    task.setStandardOutputFile(output.fileName(), QIODevice::Truncate);
    task.setWorkingDirectory(QDir::homePath());
    task.start();
    if (!task.waitForStarted())
        return vxFormat(QStringLiteral("script %@ failed: %@"), name, task.errorString());

    QElapsedTimer started;
    started.start();
    while (!task.waitForFinished(0) && task.state() != QProcess::NotRunning) {
        if (started.nsecsElapsed() / 1e9 > timeout) {
            vxLog(QStringLiteral("script timeout: %@ %@"), name,
                withParameters ? QVariant(*withParameters) : QVariant(QString()));
            task.terminate();
            break;
        }
        ::usleep(1000);
    }
    task.terminate(); // intended: after a time-out this is the second one

    QString text;
    QFile file(output.fileName());
    if (!file.open(QIODevice::ReadOnly)) {
        vxLog(QStringLiteral("error getting result: %@"), file.errorString());
    } else {
        QStringDecoder utf8(QStringDecoder::Utf8, QStringDecoder::Flag::Stateless);
        const QString decoded = utf8(file.readAll());
        if (utf8.hasError())
            vxLog(QStringLiteral("error getting result: %@"),
                QStringLiteral("the output is not valid UTF-8 text"));
        else
            text = decoded.isNull() ? QStringLiteral("") : decoded;
    }
    QFile::remove(output.fileName());
    // A script that ignores its terminate does not outlive the call.
    if (task.state() != QProcess::NotRunning && !task.waitForFinished(100)) {
        task.kill();
        task.waitForFinished();
    }
    return text;
}

QString VXUtilities::shellCommandResult(const QString &command)
{
    initialize();
    QProcess task;
    task.setProcessChannelMode(QProcess::ForwardedErrorChannel);
    task.setStandardInputFile(QProcess::nullDevice());
    task.start(QStringLiteral("/bin/sh"), { QStringLiteral("-c"), command });
    if (!task.waitForStarted())
        return QString();
    QByteArray data;
    // To the end of its output; no time-out, as documented.
    while (task.waitForReadyRead(-1) || task.bytesAvailable())
        data += task.readAllStandardOutput();
    task.waitForFinished(-1);
    data += task.readAllStandardOutput();
    QStringDecoder utf8(QStringDecoder::Utf8, QStringDecoder::Flag::Stateless);
    const QString text = utf8(data);
    if (utf8.hasError())
        return QString();
    return text.isNull() ? QStringLiteral("") : text;
}

void VXUtilities::openFile(const QString &path)
{
    initialize();
    VXUtilitiesPlatform::openFile(path);
}

QString VXUtilities::fileSystemTypeFor(const QString &path)
{
    initialize();
    vxLog(QStringLiteral("FS Info %@"), path);
    const VXUtilitiesPlatform::FileSystemType type = VXUtilitiesPlatform::fileSystemType(path);
    vxLog(QStringLiteral("statfs err = %d"), type.result);
    return type.result == 0 ? type.name : QStringLiteral("");
}

std::optional<QList<VXProcessPtr>> VXUtilities::secureInputProcesses()
{
    initialize();
    QString report = VXUtilitiesPlatform::secureInputReport();
    if (report.isNull())
        return std::nullopt;
    const QString marker = QStringLiteral("\"kCGSSessionSecureInputPID\"=");
    std::optional<QList<VXProcessPtr>> found;
    for (qsizetype at = report.indexOf(marker); at >= 0; at = report.indexOf(marker)) {
        report = report.mid(at + marker.size());
        const VXProcessPtr process = VXProcess::processWithPID(StringExtensions::intValue(report));
        if (!process)
            continue;
        if (!found)
            found.emplace();
        const bool listed = std::any_of(found->cbegin(), found->cend(),
            [&](const VXProcessPtr &p) { return p->isEqual(process); });
        if (!listed)
            found->append(process);
    }
    return found;
}

float VXUtilities::idleTime()
{
    initialize();
    return float(VXUtilitiesPlatform::idleSeconds().value_or(-1.0));
}

bool VXUtilities::doNotDisturbMode()
{
    initialize();
    // The desktop's own switch is the hand-set preference.
    if (VXUtilitiesPlatform::desktopDoNotDisturb().value_or(false))
        return true;
    static const std::unique_ptr<QSettings> suite
        = VXUserDefaults::suite(QStringLiteral("com.apple.ncprefs"));
    if (!suite)
        return false;
    suite->sync();
    const QVariant data = suite->value(QStringLiteral("dnd_prefs"));
    if (!data.isValid())
        return false;
    const QVariant prefs = VXPropertyList::fromData(data.toByteArray()).value;
    if (prefs.metaType() != QMetaType::fromType<QVariantMap>())
        return false;
    const QVariantMap dnd = prefs.toMap();
    if (dnd.contains(QStringLiteral("userPref")))
        return true;
    const QVariantMap scheduled = dnd.value(QStringLiteral("scheduledTime")).toMap();
    if (intValue(scheduled.value(QStringLiteral("enabled"))) != 1)
        return false;
    return currentTimeInDNDRangeStartMinutes(
        scheduled.value(QStringLiteral("start")), scheduled.value(QStringLiteral("end")));
}

bool VXUtilities::currentTimeInDNDRangeStartMinutes(
    const QVariant &start, const QVariant &endMinutes)
{
    const std::optional<int> s = intValue(start);
    const std::optional<int> e = intValue(endMinutes);
    if (!s || !e)
        return false;
    const QTime time = VXUtilitiesPlatform::now().toLocalTime().time();
    const int now = time.hour() * 60 + time.minute();
    // Intended: 1440 is added once, and the remainder keeps the dividend's
    // sign, so a value below -1440 stays negative.
    auto normalized = [](int minutes) { return (minutes < 0 ? minutes + 1440 : minutes) % 1440; };
    const int from = normalized(*s);
    const int to = normalized(*e);
    if (from < to)
        return from <= now && now < to;
    if (from == to)
        return false;
    return now >= from || now < to;
}

bool VXUtilities::darkMenuTheme()
{
    initialize();
    if (mojaveOrNewer())
        return darkAppearance();
    return VXUserDefaults::standard().stringForKey(QStringLiteral("AppleInterfaceStyle"))
        == QLatin1String("Dark");
}

bool VXUtilities::darkAppearance()
{
    initialize();
    return DesktopAppearance::isDark();
}

void VXUtilities::darkModeChanged(const QVariant &notification)
{
    Q_UNUSED(notification); // intended: observing is all it does
}

bool VXUtilities::reducedTransparency()
{
    initialize();
    if (const auto desktop = VXUtilitiesPlatform::desktopReducedTransparency())
        return *desktop;
    const auto suite = VXUserDefaults::suite(QStringLiteral("com.apple.universalaccess"));
    return suite && VXUserDefaults::boolValue(suite->value(QStringLiteral("reduceTransparency")));
}

bool VXUtilities::fullScreenMode()
{
    initialize();
    // Tried once only: marked before it is tried, so a failure is not retried.
    if (!g_menuBarHandlerTried.exchange(true)) {
        if (!VXUtilitiesPlatform::installMenuBarVisibilityHandler(
                [](bool hidden) { g_fullScreen = hidden; }))
            vxLog(QStringLiteral(
                "could not install menu bar visibility event handl)")); // the text as it always was
    }
    return g_fullScreen;
}

bool VXUtilities::displayIsZoomed()
{
    return false;
}

bool VXUtilities::debugging()
{
    initialize();
    return VXUtilitiesPlatform::traced();
}

QString VXUtilities::safeHTTPS(const QString &url)
{
    initialize();
    quint32 threshold = 101300;
    const QVariant configured
        = VXUserDefaults::standard().objectForKey(QStringLiteral("httpsMinSys"));
    if (configured.isValid()) {
        const qlonglong n = VXUserDefaults::standard().integerForKey(QStringLiteral("httpsMinSys"));
        if (n >= 100000 && n <= 109999)
            threshold = quint32(n);
    }
    // The threshold is a release of the other platform; the platform layer
    // answers in that numbering (on Linux: a release new enough for any
    // threshold the range allows, so https stays https).
    if (VXUtilitiesPlatform::releaseForThresholds() >= threshold)
        return url;
    if (url.startsWith(QLatin1String("https:")))
        return QStringLiteral("http") + url.mid(5);
    return url;
}

// SPDX-FileCopyrightText: 2026 Quillet developers
// SPDX-License-Identifier: MIT
#pragma once

#include <QList>
#include <QString>
#include <QStringList>
#include <QVariant>
#include <memory>
#include <optional>

class VXProcess;
using VXProcessPtr = std::shared_ptr<VXProcess>;

struct VXThreePartVersion
{
    quint16 major = 0;
    quint16 minor = 0;
    quint16 bugfix = 0;
    friend bool operator==(const VXThreePartVersion &, const VXThreePartVersion &) = default;
};

// System services: versions, machine identity, launch context, shell
// commands and the user's environment. Static members only.
class VXUtilities
{
public:
    VXUtilities() = delete;

    // Versions of the application
    static QString versionString();
    static QString plainVersionOf(const QString &version);
    static QString plainVersionString();

    // Versions of the system
    static quint32 hexSystemVersion();
    static VXThreePartVersion threePartVersion();
    static quint32 decimalSystemVersion();
    static QString systemVersionString();
    static int compareVersion(const QString &a, const QString &withVersion);

    static bool pantherOrOlder();
    static bool leopardOrNewer();
    static bool snowleopardOrNewer();
    static bool lionOrNewer();
    static bool mountainLionOrNewer();
    static bool mavericksOrNewer();
    static bool yosemiteOrNewer();
    static bool elCapitanOrNewer();
    static bool sierraOrNewer();
    static bool highSierraOrNewer();
    static bool mojaveOrNewer();
    static bool catalinaOrNewer();
    static bool bigSurOrNewer();
    static bool montereyOrNewer();
    static bool venturaOrNewer();

    // The machine
    static QString computerModel();
    static QString processorType();
    static QString processorTypeLetter();
    static bool rosettaMode();
    static QString uniqueComputerID();

    static QString localizedDateString(const QString &isoDate);

    // One-time set-up: the process watcher (1.0 s after the event loop runs)
    // and the theme-change observer. Every method below runs it first.
    static void initialize();
    static void installProcessWatcher();
    static void processSwitched(const QVariant &notification = QVariant());
    // The process that was in front when the clipboard last changed.
    static VXProcessPtr clipboardPublisherProcess();

    // Launch context
    static QString applicationName();
    static bool runningFromDistributionDisk();
    static bool installationMode();
    static QString resolvedAlias(const QString &path);
    static void launchMicro(bool flag);
    static bool wasLaunchedByProcess(const QString &creator);
    static bool wasLaunchedAsLoginItem();

    // Shell commands
    static QString runShellScript(
        const QString &path, const std::optional<QStringList> &withParameters, double timeout);
    static QString shellCommandResult(const QString &command);
    static void openFile(const QString &path);
    static QString fileSystemTypeFor(const QString &path);

    // The user's environment
    static std::optional<QList<VXProcessPtr>> secureInputProcesses();
    static float idleTime();
    static bool doNotDisturbMode();
    // Each argument: a number, or a string read as an integer; an invalid
    // QVariant is nil.
    static bool currentTimeInDNDRangeStartMinutes(
        const QVariant &start, const QVariant &endMinutes);
    static bool darkMenuTheme();
    static bool darkAppearance();
    static void darkModeChanged(const QVariant &notification = QVariant());
    static bool reducedTransparency();
    static bool fullScreenMode();
    static bool displayIsZoomed();
    static bool debugging();
    static QString safeHTTPS(const QString &url);
};

// SPDX-FileCopyrightText: 2026 Quillet developers
// SPDX-License-Identifier: MIT
#pragma once

#include <QString>

struct VXThreePartVersion
{
    quint16 major = 0;
    quint16 minor = 0;
    quint16 bugfix = 0;
    friend bool operator==(const VXThreePartVersion &, const VXThreePartVersion &) = default;
};

// System services: versions, machine identity. Static members only.
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
};

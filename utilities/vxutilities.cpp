// SPDX-FileCopyrightText: 2026 Quillet developers
// SPDX-License-Identifier: MIT
#include "vxutilities.h"

#include "vxbundle.h"
#include "vxfourcharcode.h"
#include "vxlog.h"
#include "vxstringcompare.h"
#include "vxutilities_p.h"

#include <QDateTime>
#include <QLocale>
#include <QTimeZone>
#include <atomic>
#include <cmath>

namespace {
std::atomic<quint32> g_decimalSystemVersion { 0 };

// Ranks of the build letters; the blank at rank 5 can never match a letter
// and is kept as the table has always been.
constexpr char16_t kRankTable[] = { u'p', u'd', u'a', u'b', u'f', u' ' };

struct VersionParts
{
    QString prefix;
    int rank = 5;
    QString suffix = QStringLiteral("0");
};

VersionParts splitVersion(const QString &version)
{
    VersionParts parts;
    for (qsizetype i = 0; i < version.size(); ++i) {
        if (!version.at(i).isLetter())
            continue;
        parts.prefix = version.left(i);
        parts.rank = 0; // unknown letters, upper case included, rank as "p"
        for (int r = 0; r < 6; ++r) {
            if (version.at(i).unicode() == kRankTable[r]) {
                parts.rank = r;
                break;
            }
        }
        parts.suffix = version.mid(i + 1);
        return parts;
    }
    parts.prefix = version;
    return parts;
}
} // namespace

QString VXUtilities::versionString()
{
    const QString v = VXBundle::mainBundle().stringForInfoKey(QStringLiteral("CFBundleVersion"));
    return v.isNull() ? QStringLiteral("") : v;
}

QString VXUtilities::plainVersionOf(const QString &version)
{
    qsizetype i = 0;
    while (i < version.size()) {
        const char16_t c = version.at(i).unicode();
        if (c != '.' && (c < '0' || c > '9'))
            break;
        ++i;
    }
    return i == version.size() ? version : version.left(i);
}

QString VXUtilities::plainVersionString()
{
    return plainVersionOf(versionString());
}

quint32 VXUtilities::hexSystemVersion()
{
    return VXUtilitiesPlatform::systemVersionSelector(VXFourCharCode::make("sysv")).value_or(0);
}

VXThreePartVersion VXUtilities::threePartVersion()
{
    using VXUtilitiesPlatform::systemVersionSelector;
    VXThreePartVersion v;
    if (const auto major = systemVersionSelector(VXFourCharCode::make("sys1"))) {
        v.major = quint16(*major);
        if (const auto minor = systemVersionSelector(VXFourCharCode::make("sys2")))
            v.minor = quint16(*minor);
        else
            vxLog(QStringLiteral("cannot get minor version number"));
        if (const auto bugfix = systemVersionSelector(VXFourCharCode::make("sys3")))
            v.bugfix = quint16(*bugfix);
        else
            vxLog(QStringLiteral("cannot get bugfix version number"));
        return v;
    }
    const auto bcd = systemVersionSelector(VXFourCharCode::make("sysv"));
    if (!bcd)
        return v;
    const quint32 x = *bcd;
    v.major = quint16(((x >> 12) & 15) * 10 + ((x >> 8) & 15));
    v.minor = quint16((x >> 4) & 15);
    v.bugfix = quint16(x & 15);
    return v;
}

quint32 VXUtilities::decimalSystemVersion()
{
    quint32 cached = g_decimalSystemVersion.load(std::memory_order_relaxed);
    if (cached == 0) {
        const VXThreePartVersion v = threePartVersion();
        cached = quint32(v.major) * 10000 + quint32(v.minor) * 100 + v.bugfix;
        g_decimalSystemVersion.store(cached, std::memory_order_relaxed); // 0 is asked again
    }
    return cached;
}

QString VXUtilities::systemVersionString()
{
    const VXThreePartVersion v = threePartVersion();
    if (v.bugfix != 0)
        return vxFormat(QStringLiteral("%d.%d.%d"), v.major, v.minor, v.bugfix);
    return vxFormat(QStringLiteral("%d.%d"), v.major, v.minor);
}

int VXUtilities::compareVersion(const QString &a, const QString &withVersion)
{
    const VersionParts pa = splitVersion(a);
    const VersionParts pb = splitVersion(withVersion);
    if (const int r = VXStringCompare::compare(pa.prefix, pb.prefix, VXStringCompare::Numeric))
        return r;
    if (pa.rank != pb.rank)
        return pa.rank < pb.rank ? -1 : 1;
    return VXStringCompare::compare(pa.suffix, pb.suffix, VXStringCompare::Numeric);
}

// The thresholds are kept exactly as the predicates have always used them,
// the odd 1537.2 and the strict test of leopardOrNewer included.
bool VXUtilities::pantherOrOlder()
{
    return std::floor(VXUtilitiesPlatform::appKitVersionNumber()) <= 743;
}
bool VXUtilities::leopardOrNewer()
{
    return std::floor(VXUtilitiesPlatform::appKitVersionNumber()) > 824;
}
bool VXUtilities::snowleopardOrNewer()
{
    return std::floor(VXUtilitiesPlatform::appKitVersionNumber()) >= 1038;
}
bool VXUtilities::lionOrNewer()
{
    return VXUtilitiesPlatform::appKitVersionNumber() >= 1138;
}
bool VXUtilities::mountainLionOrNewer()
{
    return VXUtilitiesPlatform::appKitVersionNumber() >= 1187;
}
bool VXUtilities::mavericksOrNewer()
{
    return VXUtilitiesPlatform::appKitVersionNumber() >= 1265;
}
bool VXUtilities::yosemiteOrNewer()
{
    return VXUtilitiesPlatform::appKitVersionNumber() >= 1343;
}
bool VXUtilities::elCapitanOrNewer()
{
    return VXUtilitiesPlatform::appKitVersionNumber() >= 1404;
}
bool VXUtilities::sierraOrNewer()
{
    return VXUtilitiesPlatform::appKitVersionNumber() >= 1490;
}
bool VXUtilities::highSierraOrNewer()
{
    return VXUtilitiesPlatform::appKitVersionNumber() >= 1537.2;
}
bool VXUtilities::mojaveOrNewer()
{
    return VXUtilitiesPlatform::appKitVersionNumber() >= 1639;
}
bool VXUtilities::catalinaOrNewer()
{
    return VXUtilitiesPlatform::appKitVersionNumber() >= 1861;
}
bool VXUtilities::bigSurOrNewer()
{
    return VXUtilitiesPlatform::appKitVersionNumber() >= 2000;
}
bool VXUtilities::montereyOrNewer()
{
    return VXUtilitiesPlatform::appKitVersionNumber() >= 2080;
}
bool VXUtilities::venturaOrNewer()
{
    return VXUtilitiesPlatform::appKitVersionNumber() >= 2299;
}

QString VXUtilities::computerModel()
{
    return VXUtilitiesPlatform::machineModel();
}

QString VXUtilities::processorType()
{
    return VXUtilitiesPlatform::machine().value_or(QStringLiteral("?"));
}

QString VXUtilities::processorTypeLetter()
{
    const QString type = processorType();
    if (type.startsWith(QLatin1String("x86")))
        return rosettaMode() ? QStringLiteral("A") : QStringLiteral("I");
    if (type.startsWith(QLatin1String("arm")) || type.startsWith(QLatin1String("aarch64")))
        return QStringLiteral("A");
    return type;
}

bool VXUtilities::rosettaMode()
{
    return VXUtilitiesPlatform::translated();
}

QString VXUtilities::uniqueComputerID()
{
    // Filled once it could be read; a failure is asked again next time.
    static QString cached;
    if (cached.isNull())
        cached = VXUtilitiesPlatform::serialNumber();
    return cached;
}

QString VXUtilities::localizedDateString(const QString &isoDate)
{
    const QDate date = QDate::fromString(isoDate, QStringLiteral("yyyy-MM-dd"));
    if (!date.isValid())
        return QString();
    const QDateTime utcMidnight(date, QTime(0, 0), Qt::UTC);
    // Midnight UTC shown in the local time zone, as the short date style
    // has always shown it: west of Greenwich that is the day before.
    return QLocale().toString(utcMidnight.toLocalTime().date(), QLocale::ShortFormat);
}

// SPDX-FileCopyrightText: 2026 Quillet developers
// SPDX-License-Identifier: MIT
//
// System identity on Linux. The system version is the running kernel's
// release from uname ("6.1.0-18-amd64" reads as 6.1.0); the model comes from
// the DMI table in /sys (or the device tree on boards without DMI); the
// serial number is the DMI product serial, which only root may read on most
// machines, else /etc/machine-id, which is stable per installation rather
// than per machine. There is no binary translation layer to report.
#include "vxbundle.h"
#include "vxfourcharcode.h"
#include "vxutilities_p.h"

#include <QFile>
#include <QFileInfo>
#include <QProcess>
#include <QVersionNumber>
#include <sys/utsname.h>

namespace {
QString g_root;
std::optional<QString> g_kernelRelease;
std::optional<quint32> g_releaseForThresholds;
std::function<QDateTime()> g_clock;

QString systemPath(const char *path)
{
    return g_root + QLatin1String(path);
}

QString readFirstLine(const QString &path)
{
    QFile f(path);
    if (!f.open(QIODevice::ReadOnly))
        return QString();
    // Device-tree strings end in NUL.
    QByteArray line = f.read(4096);
    const qsizetype cut = line.indexOf('\0');
    if (cut >= 0)
        line.truncate(cut);
    return QString::fromUtf8(line).section(QLatin1Char('\n'), 0, 0).trimmed();
}

QString kernelRelease()
{
    if (g_kernelRelease)
        return *g_kernelRelease;
    struct utsname u;
    if (::uname(&u) != 0)
        return QString();
    return QString::fromUtf8(u.release);
}
} // namespace

void VXUtilitiesPlatform::setSystemRoot(const QString &root)
{
    g_root = root;
}

void VXUtilitiesPlatform::setKernelRelease(const std::optional<QString> &release)
{
    g_kernelRelease = release;
}

QString VXUtilitiesPlatform::systemRoot()
{
    return g_root;
}

void VXUtilitiesPlatform::setReleaseForThresholds(const std::optional<quint32> &release)
{
    g_releaseForThresholds = release;
}

quint32 VXUtilitiesPlatform::releaseForThresholds()
{
    // A kernel release (6.1) means nothing against the other platform's
    // numbering (10.13 is 101300): the newest release the predicates know
    // answers, as appKitVersionNumber() does.
    return g_releaseForThresholds.value_or(130000);
}

void VXUtilitiesPlatform::setClock(const std::function<QDateTime()> &now)
{
    g_clock = now;
}

QDateTime VXUtilitiesPlatform::now()
{
    return g_clock ? g_clock() : QDateTime::currentDateTime();
}

bool VXUtilitiesPlatform::fileExists(const QString &path)
{
    return QFileInfo::exists(g_root + path);
}

void VXUtilitiesPlatform::openFile(const QString &path)
{
    if (path.isEmpty())
        return; // nothing to open: as a launcher handed no file
    if (const auto bundle = VXBundle::open(path); bundle && path.endsWith(QLatin1String(".app"))) {
        const QString executable = bundle->executablePath();
        if (!executable.isEmpty())
            QProcess::startDetached(executable, {}, path);
        return;
    }
    QProcess::startDetached(QStringLiteral("xdg-open"), { path });
}

QString VXUtilitiesPlatform::secureInputReport()
{
    // X11 has no secure input: any client may read the keyboard.
    return QString();
}

std::optional<quint32> VXUtilitiesPlatform::systemVersionSelector(quint32 selector)
{
    // The release's leading "major[.minor[.patch]]"; what follows (as in
    // "6.1.0-13-amd64") is not part of the version.
    const QVector<int> parts = QVersionNumber::fromString(kernelRelease()).segments();
    auto component = [&](int n) -> std::optional<quint32> {
        if (n > parts.size() || parts.at(n - 1) < 0 || parts.at(n - 1) > 0xFFFF)
            return std::nullopt;
        return quint32(parts.at(n - 1));
    };
    switch (selector) {
    case VXFourCharCode::make("sys1"):
        return component(1);
    case VXFourCharCode::make("sys2"):
        return component(2);
    case VXFourCharCode::make("sys3"):
        return component(3);
    case VXFourCharCode::make("sysv"): {
        const auto major = component(1);
        if (!major || *major > 99)
            return std::nullopt;
        const quint32 minor = std::min<quint32>(component(2).value_or(0), 15);
        const quint32 bugfix = std::min<quint32>(component(3).value_or(0), 15);
        return ((*major / 10) << 12) | ((*major % 10) << 8) | (minor << 4) | bugfix;
    }
    default:
        return std::nullopt;
    }
}

double VXUtilitiesPlatform::appKitVersionNumber()
{
    // The newest release the predicates know: every "...OrNewer" answers true.
    return 2299.0;
}

QString VXUtilitiesPlatform::machineModel()
{
    QString model = readFirstLine(systemPath("/sys/class/dmi/id/product_name"));
    if (model.isEmpty())
        model = readFirstLine(systemPath("/proc/device-tree/model"));
    return model;
}

std::optional<QString> VXUtilitiesPlatform::machine()
{
    struct utsname u;
    if (::uname(&u) != 0)
        return std::nullopt;
    return QString::fromUtf8(u.machine);
}

bool VXUtilitiesPlatform::translated()
{
    return false;
}

QString VXUtilitiesPlatform::serialNumber()
{
    QString serial = readFirstLine(systemPath("/sys/class/dmi/id/product_serial"));
    if (serial.isEmpty())
        serial = readFirstLine(systemPath("/etc/machine-id"));
    return serial.isEmpty() ? QString() : serial;
}

// SPDX-FileCopyrightText: 2026 Quillet developers
// SPDX-License-Identifier: MIT
#include "vxlog.h"

#include <QCoreApplication>
#include <QFile>
#include <QFileInfo>
#include <cerrno>
#include <cstdio>
#include <ctime>
#include <unistd.h>

namespace {
QString processName()
{
    if (QCoreApplication::instance() && !QCoreApplication::applicationName().isEmpty())
        return QCoreApplication::applicationName();
    // Before the application object exists: the executable's own name,
    // which cannot change while the process runs.
    static const QString executable
        = QFileInfo(QFile::symLinkTarget(QStringLiteral("/proc/self/exe"))).fileName();
    return executable;
}

// "yyyy-MM-dd HH:mm:ss.zzz " in local time, without a formatter per line.
QString timestamp()
{
    timespec now {};
    ::clock_gettime(CLOCK_REALTIME, &now);
    tm local = {};
    ::localtime_r(&now.tv_sec, &local);
    char text[64]; // room for any int the fields could hold
    std::snprintf(text, sizeof text, "%04d-%02d-%02d %02d:%02d:%02d.%03d ", local.tm_year + 1900,
        local.tm_mon + 1, local.tm_mday, local.tm_hour, local.tm_min, local.tm_sec,
        int(now.tv_nsec / 1000000));
    return QString::fromLatin1(text);
}
} // namespace

void vxLogLine(const QString &message)
{
    const QString line = timestamp() + processName() + QLatin1Char('[')
        + QString::number(QCoreApplication::applicationPid()) + QLatin1Char(':')
        + QString::number(vxLogThreadNumber()) + QLatin1String("] ") + message + QLatin1Char('\n');
    const QByteArray bytes = line.toUtf8();
    const char *p = bytes.constData();
    qsizetype left = bytes.size();
    while (left > 0) {
        const ssize_t written = ::write(STDERR_FILENO, p, size_t(left));
        if (written < 0) {
            if (errno == EINTR)
                continue;
            return;
        }
        p += written;
        left -= written;
    }
}

// SPDX-FileCopyrightText: 2026 Quillet developers
// SPDX-License-Identifier: MIT
#include "vxlog.h"

#include <QCoreApplication>
#include <QDateTime>
#include <QFileInfo>
#include <cerrno>
#include <unistd.h>

namespace {
QString processName()
{
    if (QCoreApplication::instance() && !QCoreApplication::applicationName().isEmpty())
        return QCoreApplication::applicationName();
    return QFileInfo(QCoreApplication::applicationFilePath()).fileName();
}
} // namespace

void vxLogLine(const QString &message)
{
    const QString line
        = QDateTime::currentDateTime().toString(QStringLiteral("yyyy-MM-dd HH:mm:ss.zzz "))
        + processName() + QLatin1Char('[') + QString::number(QCoreApplication::applicationPid())
        + QLatin1Char(':') + QString::number(vxLogThreadNumber()) + QLatin1String("] ") + message
        + QLatin1Char('\n');
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

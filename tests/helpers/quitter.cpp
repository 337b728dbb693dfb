// SPDX-FileCopyrightText: 2026 Quillet developers
// SPDX-License-Identifier: MIT
//
// A program that uses the library and ignores SIGTERM: it ends only when
// asked with the quit event (or killed). Writes "ready" once it can receive
// events, and "quit event" when it quits through one. With "early" it looks
// itself up before it makes its application object, and writes "change X"
// for every process change it hears.
#include "process/vxnotificationcenter.h"
#include "process/vxprocess.h"

#include <QCoreApplication>
#include <QTimer>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <unistd.h>

int main(int argc, char **argv)
{
    std::signal(SIGTERM, SIG_IGN);
    std::setvbuf(stdout, nullptr, _IOLBF, 0);
    const bool early = argc > 1 && std::strcmp(argv[1], "early") == 0;
    if (early)
        VXProcess::processWithPID(qint32(::getpid()));
    QCoreApplication app(argc, argv);
    if (early)
        QObject::connect(VXNotificationCenter::defaultCenter(), &VXNotificationCenter::notified,
            [](const QString &, const QVariant &, const QVariantMap &info) {
                std::printf(
                    "change %s\n", qPrintable(info.value(QStringLiteral("change")).toString()));
            });
    QTimer::singleShot(
        0, [] { std::printf("ready %s\n", qPrintable(VXProcess::currentProcess()->name())); });
    const int rc = app.exec();
    std::printf("quit event\n");
    return rc;
}

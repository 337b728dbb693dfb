// SPDX-FileCopyrightText: 2026 Quillet developers
// SPDX-License-Identifier: MIT
//
// A program that uses the library and ignores SIGTERM: it ends only when
// asked with the quit event (or killed). Writes "ready" once it can receive
// events, and "quit event" when it quits through one.
#include "process/vxprocess.h"

#include <QCoreApplication>
#include <QTimer>
#include <csignal>
#include <cstdio>

int main(int argc, char **argv)
{
    std::signal(SIGTERM, SIG_IGN);
    QCoreApplication app(argc, argv);
    QTimer::singleShot(0, [] {
        std::printf("ready %s\n", qPrintable(VXProcess::currentProcess()->name()));
        std::fflush(stdout);
    });
    const int rc = app.exec();
    std::printf("quit event\n");
    return rc;
}

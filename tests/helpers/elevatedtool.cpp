// SPDX-FileCopyrightText: 2026 Quillet developers
// SPDX-License-Identifier: MIT
//
// Runs a tool as root the way the installer does: elevatedtool TOOL ARGS...
// Prints the outcome code on standard output; the installer's log lines go
// to standard error.
#include "installer/elevation.h"

#include <QCoreApplication>
#include <cstdio>

int main(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    QStringList arguments = app.arguments().mid(1);
    if (arguments.isEmpty())
        return 64;
    const QString tool = arguments.takeFirst();
    std::printf("%d\n", Elevation::runPrivilegedTool(tool, arguments));
    return 0;
}

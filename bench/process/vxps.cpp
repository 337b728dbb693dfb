// SPDX-FileCopyrightText: 2026 Quillet developers
// SPDX-License-Identifier: MIT
//
// Lists every process with its pid, name, signature and path, as
// `ps -eo pid,comm,args` lists its columns: the program the benchmark
// compares with ps. With "--repeat N" it lists N times in one run and
// prints the time of one listing in a running program, where records and
// their details are already cached, to standard error.
#include "process/vxprocess.h"

#include <QElapsedTimer>
#include <cstdio>
#include <cstring>

static QByteArray listing()
{
    QByteArray out;
    out.reserve(64 * 1024);
    for (const VXProcessPtr &p : VXProcess::allProcesses()) {
        out += QByteArray::number(p->unixPID()) + ' ' + p->name().toUtf8() + ' '
            + p->signatureString().toUtf8() + ' ' + p->path().toUtf8() + '\n';
    }
    return out;
}

// A command-line lister needs no application object, as ps has none.
int main(int argc, char **argv)
{
    const int repeat = argc > 2 && std::strcmp(argv[1], "--repeat") == 0 ? std::atoi(argv[2]) : 0;
    QByteArray out = listing();
    if (repeat > 0) {
        QElapsedTimer clock;
        clock.start();
        for (int i = 0; i < repeat; ++i)
            out = listing();
        std::fprintf(stderr, "%.3f\n", clock.nsecsElapsed() / 1e6 / repeat);
    }
    std::fwrite(out.constData(), 1, size_t(out.size()), stdout);
    return 0;
}

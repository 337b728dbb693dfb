// SPDX-FileCopyrightText: 2026 Quillet developers
// SPDX-License-Identifier: MIT
//
// How long quitRunningApplicationWithTimeout takes to report a cooperative
// child as ended, against the least it could take: SIGTERM through a pidfd
// and a poll of that pidfd. Both run in turns on fresh children of the same
// helper; prints the medians and their ratio. The record's details are read
// before the clock starts, as the installer reads them before a quit.
//   quitlatency BEHAVIOUR-PROGRAM [rounds]
#include "process/vxprocess.h"

#include <QElapsedTimer>
#include <algorithm>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <poll.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

namespace {
// A cooperative child that has written "ready".
pid_t startChild(const char *program)
{
    int out[2];
    if (::pipe(out) != 0)
        std::exit(2);
    const pid_t pid = ::fork();
    if (pid == 0) {
        ::dup2(out[1], 1);
        ::close(out[0]);
        ::close(out[1]);
        ::execl(program, program, "cooperative", static_cast<char *>(nullptr));
        ::_exit(127);
    }
    ::close(out[1]);
    char line[16] = {};
    if (::read(out[0], line, sizeof line - 1) <= 0)
        std::exit(2);
    ::close(out[0]);
    return pid;
}

double median(std::vector<double> v)
{
    std::sort(v.begin(), v.end());
    return v[v.size() / 2];
}
} // namespace

int main(int argc, char **argv)
{
    if (argc < 2) {
        std::fprintf(stderr, "usage: quitlatency BEHAVIOUR-PROGRAM [rounds]\n");
        return 2;
    }
    const int rounds = argc > 2 ? std::atoi(argv[2]) : 200;
    // The quit's log lines are not what is measured.
    const int devnull = ::open("/dev/null", O_WRONLY);
    const int savedErr = ::dup(2);
    ::dup2(devnull, 2);
    std::vector<double> ours, bare;
    QElapsedTimer clock;
    for (int i = 0; i < rounds; ++i) {
        pid_t pid = startChild(argv[1]);
        // As the installer holds a record it quits: matched by signature
        // and named in its "Quitting" line just before.
        const VXProcessPtr p = VXProcess::processWithPID(pid);
        p->signature();
        p->name();
        clock.start();
        p->quitRunningApplicationWithTimeout(2.0f);
        ours.push_back(clock.nsecsElapsed() / 1e6);
        ::waitpid(pid, nullptr, 0);

        pid = startChild(argv[1]);
        clock.start();
        const int fd = int(::syscall(SYS_pidfd_open, pid, 0));
        ::syscall(SYS_pidfd_send_signal, fd, SIGTERM, nullptr, 0);
        pollfd ready { fd, POLLIN, 0 };
        ::poll(&ready, 1, 2000);
        bare.push_back(clock.nsecsElapsed() / 1e6);
        ::close(fd);
        ::waitpid(pid, nullptr, 0);
    }
    ::dup2(savedErr, 2);
    const double a = median(ours), b = median(bare);
    std::printf("rounds: %d\n", rounds);
    std::printf("quitRunningApplicationWithTimeout: %.3f ms median\n", a);
    std::printf("pidfd SIGTERM + poll:              %.3f ms median\n", b);
    std::printf("ratio: %.2f\n", a / b);
    return 0;
}

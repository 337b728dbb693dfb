// SPDX-FileCopyrightText: 2026 Quillet developers
// SPDX-License-Identifier: MIT
//
// An application with one window titled by its first argument, for tests of
// the front process. Writes "ready" once the window is shown.
#include <QApplication>
#include <QLabel>
#include <QTimer>
#include <cstdio>

int main(int argc, char **argv)
{
    QApplication app(argc, argv);
    QLabel window(argc > 1 ? QString::fromLocal8Bit(argv[1]) : QStringLiteral("window"));
    window.setWindowTitle(window.text());
    window.resize(240, 120);
    window.show();
    QTimer::singleShot(300, [] {
        std::printf("ready\n");
        std::fflush(stdout);
    });
    return app.exec();
}

// SPDX-FileCopyrightText: 2026 Quillet developers
// SPDX-License-Identifier: MIT
#pragma once

#include <QProcess>

// Where the build puts the helper programs (tests/helpers).
inline const QString kHelpers = QStringLiteral(QUILLET_BINARY_DIR "/tests/helpers");

// A child process started for a test and killed when the test ends. The
// helper programs write "ready" once they behave as asked; waitReady() also
// waits for another answer line.
struct TestChild
{
    QProcess process;
    explicit TestChild(const QString &program, const QStringList &args = {})
    {
        process.start(program, args);
        process.waitForStarted();
    }
    bool waitReady(const char *answer = "ready")
    {
        for (int i = 0; i < 100 && !process.canReadLine(); ++i)
            process.waitForReadyRead(100);
        return process.readLine().startsWith(answer);
    }
    qint32 pid() const { return qint32(process.processId()); }
    ~TestChild()
    {
        if (process.state() != QProcess::NotRunning) {
            process.kill();
            process.waitForFinished();
        }
    }
};

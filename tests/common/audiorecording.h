// SPDX-FileCopyrightText: 2026 Quillet developers
// SPDX-License-Identifier: MIT
#pragma once

// For tests run with session-run.sh --audio: the private sound server's
// outputs "alert" and "speakers" are silent, and what reaches them can be
// recorded from their monitors.

#include <QProcess>
#include <QTest>

inline QString pactl(const QStringList &arguments)
{
    QProcess process;
    process.start(QStringLiteral("pactl"), arguments);
    process.waitForFinished(10000);
    return QString::fromUtf8(process.readAllStandardOutput());
}

// Records one output's monitor for as long as it lives.
class MonitorRecording
{
public:
    explicit MonitorRecording(const QString &sink)
    {
        const auto recordings = [] {
            return pactl({ QStringLiteral("list"), QStringLiteral("short"),
                             QStringLiteral("source-outputs") })
                .count(QLatin1Char('\n'));
        };
        const qsizetype before = recordings();
        m_process.start(QStringLiteral("parec"),
            { QStringLiteral("--device=") + sink + QStringLiteral(".monitor"),
                QStringLiteral("--raw"), QStringLiteral("--format=s16le"),
                QStringLiteral("--channels=1"), QStringLiteral("--rate=44100"),
                QStringLiteral("--latency-msec=20") });
        QVERIFY(m_process.waitForStarted());
        QTRY_VERIFY_WITH_TIMEOUT(recordings() > before, 10000);
        // Recording has begun once the first (silent) samples arrive.
        QTRY_VERIFY_WITH_TIMEOUT((m_data += m_process.readAllStandardOutput()).size() > 0, 10000);
    }

    // The loudest sample so far, 0 to 32768.
    int peak()
    {
        m_data += m_process.readAllStandardOutput();
        int loudest = 0;
        const auto *samples = reinterpret_cast<const qint16 *>(m_data.constData());
        for (qsizetype i = 0; i < m_data.size() / 2; ++i)
            loudest = std::max(loudest, std::abs(int(samples[i])));
        return loudest;
    }

    ~MonitorRecording()
    {
        m_process.kill();
        m_process.waitForFinished();
    }

private:
    QProcess m_process;
    QByteArray m_data;
};

// SPDX-FileCopyrightText: 2026 Quillet developers
// SPDX-License-Identifier: MIT
#pragma once

#include <QFile>
#include <QStringList>
#include <QTemporaryFile>
#include <cstdio>
#include <unistd.h>

// The messages of log lines, without date, time and process; a message of
// several lines stays one.
inline QStringList logMessages(const QString &text)
{
    QStringList out;
    for (const QString &line : text.split(QLatin1Char('\n'))) {
        const qsizetype cut = line.indexOf(QLatin1String("] "));
        if (cut > 0 && line.size() > 24 && line.at(4) == QLatin1Char('-'))
            out << line.mid(cut + 2);
        else if (!out.isEmpty() && !line.isEmpty())
            out.last() += QLatin1Char('\n') + line;
    }
    return out;
}

// Captures what the process writes to standard error (where the log
// function writes) into a file for as long as it lives.
class LogCapture
{
public:
    LogCapture()
    {
        m_file.open();
        fflush(stderr);
        m_saved = ::dup(STDERR_FILENO);
        ::dup2(m_file.handle(), STDERR_FILENO);
    }
    ~LogCapture() { restore(); }

    void restore()
    {
        if (m_saved < 0)
            return;
        fflush(stderr);
        ::dup2(m_saved, STDERR_FILENO);
        ::close(m_saved);
        m_saved = -1;
    }

    QString text() const
    {
        fflush(stderr);
        QFile f(m_file.fileName());
        f.open(QIODevice::ReadOnly);
        return QString::fromUtf8(f.readAll());
    }

    QStringList messages() const { return logMessages(text()); }

private:
    QTemporaryFile m_file;
    int m_saved = -1;
};

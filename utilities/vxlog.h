// SPDX-FileCopyrightText: 2026 Quillet developers
// SPDX-License-Identifier: MIT
#pragma once

#include "vxformat.h"

// The one log function for the texts the system logs as its behaviour.
// Writes "2026-11-22 10:00:00.123 Name[pid:tid] message" and a newline to
// standard error in one write, so lines from several threads never mix.
void vxLogLine(const QString &message);

template <typename... Args> void vxLog(const QString &format, const Args &...args)
{
    vxLogLine(vxFormat(format, args...));
}

// Platform: a small number identifying the calling thread in log lines.
quint64 vxLogThreadNumber();

// SPDX-FileCopyrightText: 2026 Quillet developers
// SPDX-License-Identifier: MIT
//
// Thread numbers for log lines: the kernel's thread id (gettid), the number
// that ps, top and gdb show for the thread.
#include "vxlog.h"

#include <unistd.h>

quint64 vxLogThreadNumber()
{
    return quint64(::gettid());
}

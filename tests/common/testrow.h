// SPDX-FileCopyrightText: 2026 Quillet developers
// SPDX-License-Identifier: MIT
#pragma once

#include <QTest>

// One row of a test's data table: its name, then the values in column order.
template <typename... T> void row(const char *name, const T &...values)
{
    (QTest::newRow(name) << ... << values);
}

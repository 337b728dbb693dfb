// SPDX-FileCopyrightText: 2026 Quillet developers
// SPDX-License-Identifier: MIT
#pragma once

#include <QString>

// String comparison with the option bits of Cocoa's compare:options:.
namespace VXStringCompare {

enum Option : unsigned {
    CaseInsensitive = 1,
    Numeric = 64,
};

// -1, 0 or +1. With Numeric, runs of the digits 0-9 compare by value
// ("file9" < "file10"; "01" equals "1"); everything else compares by UTF-16
// code unit (case-folded with CaseInsensitive). A string that is a prefix of
// the other is the smaller one, so "1.0" < "1.0.0".
int compare(const QString &a, const QString &b, unsigned options = 0);

} // namespace VXStringCompare

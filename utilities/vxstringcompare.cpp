// SPDX-FileCopyrightText: 2026 Quillet developers
// SPDX-License-Identifier: MIT
#include "vxstringcompare.h"

namespace {
inline bool isDigit(char16_t c)
{
    return c >= '0' && c <= '9';
}
} // namespace

int VXStringCompare::compare(const QString &a, const QString &b, unsigned options)
{
    const bool numeric = options & Numeric;
    const bool folded = options & CaseInsensitive;
    const qsizetype na = a.size(), nb = b.size();
    qsizetype i = 0, j = 0;
    while (i < na && j < nb) {
        char16_t ca = a.at(i).unicode();
        char16_t cb = b.at(j).unicode();
        if (numeric && isDigit(ca) && isDigit(cb)) {
            qsizetype ei = i, ej = j;
            while (ei < na && isDigit(a.at(ei).unicode()))
                ++ei;
            while (ej < nb && isDigit(b.at(ej).unicode()))
                ++ej;
            qsizetype si = i, sj = j;
            while (si + 1 < ei && a.at(si) == QLatin1Char('0'))
                ++si;
            while (sj + 1 < ej && b.at(sj) == QLatin1Char('0'))
                ++sj;
            const qsizetype la = ei - si, lb = ej - sj;
            if (la != lb)
                return la < lb ? -1 : 1;
            for (qsizetype k = 0; k < la; ++k) {
                const char16_t da = a.at(si + k).unicode(), db = b.at(sj + k).unicode();
                if (da != db)
                    return da < db ? -1 : 1;
            }
            i = ei;
            j = ej;
            continue;
        }
        if (folded) {
            ca = QChar::toCaseFolded(ca);
            cb = QChar::toCaseFolded(cb);
        }
        if (ca != cb)
            return ca < cb ? -1 : 1;
        ++i;
        ++j;
    }
    if (i < na)
        return 1;
    if (j < nb)
        return -1;
    return 0;
}

// SPDX-FileCopyrightText: 2026 Quillet developers
// SPDX-License-Identifier: MIT
// Arbitrary bytes as an HTML document in its declared character set, then
// its text through the HTML import.
#include "extensions/stringextensions.h"

#include <cstdint>
#include <cstdio>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    static const bool quiet
        = [] { return freopen("/dev/null", "w", stderr) != nullptr; }(); // log lines
    (void)quiet;
    const QByteArray bytes(reinterpret_cast<const char *>(data), qsizetype(size));
    const QString text = StringExtensions::stringWithHTML(bytes);
    StringExtensions::stringByExpandingHTMLEntities(text);
    StringExtensions::stringByExpandingHTMLEntities(QString::fromUtf8(bytes));
    return 0;
}

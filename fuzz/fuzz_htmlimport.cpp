// SPDX-FileCopyrightText: 2026 Quillet developers
// SPDX-License-Identifier: MIT
// Arbitrary bytes through the HTML import (the nesting limit and the HTML5
// parser), read as UTF-8 and as Latin 1.
#include "extensions/stringextensions.h"

#include <cstdint>
#include <cstdlib>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const QByteArray bytes(reinterpret_cast<const char *>(data), qsizetype(size));
    for (const QString &html : { QString::fromUtf8(bytes), QString::fromLatin1(bytes) }) {
        const QString text = StringExtensions::stringByExpandingHTMLEntities(html);
        // Collapsed white space never starts the text.
        if (text.startsWith(u' '))
            abort();
    }
    return 0;
}

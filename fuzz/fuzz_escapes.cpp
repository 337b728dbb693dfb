// SPDX-FileCopyrightText: 2026 Quillet developers
// SPDX-License-Identifier: MIT
// Escaping with an arbitrary character set, and every expanding operation,
// on arbitrary UTF-16 text. The first byte splits the input into the set
// and the text.
#include "extensions/stringextensions.h"

#include <cstdint>

using namespace StringExtensions;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    if (size < 1)
        return 0;
    const size_t split = qMin<size_t>(data[0], size - 1) & ~size_t(1);
    const QString set(reinterpret_cast<const QChar *>(data + 1), qsizetype(split / 2));
    const QString text(
        reinterpret_cast<const QChar *>(data + 1 + split), qsizetype((size - 1 - split) / 2));
    stringByEscapingCharacters(text, set);
    stringByExpandingEscapedCharacters(text, set);
    stringByExpandingEscapedCharacters(text, defaultEscapeSet());
    stringByExpandingEscapedControlCharacters(text);
    QString work = text;
    expandEscapedControlCharactersIncludingBackslash(work, false);
    stringWithObjCString(text);
    stringWithExpandedPercentEscapes(text);
    stringWithPercentEscapes(text);
    return 0;
}

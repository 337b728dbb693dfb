// SPDX-FileCopyrightText: 2026 Quillet developers
// SPDX-License-Identifier: MIT
// Arbitrary UTF-16, lone surrogates included, through the code-point walks
// and the skin-tone edit; the first byte picks the skin colour.
#include "extensions/stringextensions.h"

#include <cstdint>
#include <cstdlib>

using namespace StringExtensions;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    if (size < 1)
        return 0;
    const QString text(reinterpret_cast<const QChar *>(data + 1), qsizetype((size - 1) / 2));
    int count = 0;
    forUTF32Characters(text, [&](quint32 c) {
        if (c > 0x10FFFF)
            abort();
        ++count;
    });
    if (count > numberOfUnicodeCharacters(text))
        abort();
    UTF16SequenceString(text);
    UTF32SequenceString(text);
    UTF32Character(text);
    for (qsizetype i = 0; i < text.size(); ++i)
        longCharacterAtIndex(text, int(i));
    emojiStringWithSkinColor(text, int8_t(data[0]));
    if (text.size() >= 2) {
        const quint32 code = quint32(text.at(0).unicode()) << 16 | text.at(1).unicode();
        isVirtualCharacter(qint32(code));
        stringWithUTF32Character(code);
    }
    arrayOfLines(text);
    asSingleLine(text);
    withLineSeparator(text, QStringLiteral("\r\n"));
    matchesWildcardPattern(text, text.left(text.size() / 2) + u'*');
    return 0;
}

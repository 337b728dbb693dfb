// SPDX-FileCopyrightText: 2026 Quillet developers
// SPDX-License-Identifier: MIT
#pragma once

#include <QByteArray>
#include <QString>

// Four-character codes (creator codes, event classes and IDs): 32-bit
// numbers whose big-endian bytes are Mac OS Roman characters, as in 'SinS'.
namespace VXFourCharCode {

// The code of a string of exactly four Mac OS Roman characters; 0 for any
// other string (shorter, longer, or with a character Mac OS Roman lacks).
quint32 fromString(const QString &code);

// The four characters of a code; the empty string for 0.
QString toString(quint32 code);

constexpr quint32 make(const char (&s)[5])
{
    return (quint32(quint8(s[0])) << 24) | (quint32(quint8(s[1])) << 16)
        | (quint32(quint8(s[2])) << 8) | quint32(quint8(s[3]));
}

} // namespace VXFourCharCode

// Mac OS Roman, the 8-bit character set of four-character codes and of
// classic resource strings.
namespace VXMacRoman {
QString decode(const QByteArray &bytes);
// Encodes; answers false (and leaves *out partial) when a character has no
// Mac OS Roman byte.
bool encode(const QString &text, QByteArray *out);
} // namespace VXMacRoman

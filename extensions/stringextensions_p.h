// SPDX-FileCopyrightText: 2026 Quillet developers
// SPDX-License-Identifier: MIT
#pragma once

#include <QByteArray>
#include <QString>

// What a platform provides to StringExtensions.
namespace StringExtensions {
// Decodes in an encoding Qt's own converters do not cover; a null QString
// when the bytes are invalid or the encoding is unknown.
QString platformDecode(const QByteArray &bytes, quint32 encoding);
// The platform's own reading of a file's bytes in the encoding it guesses; a
// null QString when it has no confident guess.
QString platformReadWithDetectedEncoding(const QByteArray &bytes);
} // namespace StringExtensions

// SPDX-FileCopyrightText: 2026 Quillet developers
// SPDX-License-Identifier: MIT
#pragma once

#include <QRegularExpression>
#include <QString>
#include <functional>
#include <optional>

// Regular expressions for the library, resolved once per process. On a
// platform without a regular-expression engine the string replacements
// leave their text unchanged.
class VXRegularExpression
{
public:
    VXRegularExpression() = delete;

    // Option bits as the platform's regular-expression class numbers them.
    enum Option : unsigned {
        CaseInsensitive = 1,
        AllowCommentsAndWhitespace = 2,
        IgnoreMetacharacters = 4,
        DotMatchesLineSeparators = 8,
        AnchorsMatchLines = 16,
        UseUnixLineSeparators = 32,
        UseUnicodeWordBoundaries = 64,
    };

    // The engine's name, or null when there is none. Looked up once.
    static const char *regexClass();
    static bool regexAvailable();
    // Null optional on a bad pattern (with *error set) or without an engine
    // (with *error untouched).
    static std::optional<QRegularExpression> regularExpressionWithPattern(
        const QString &pattern, unsigned options, QString *error);

    // Replaces every match with a template in which "$n" names group n and
    // a backslash takes the next character literally.
    static QString replace(const QString &text, const QRegularExpression &re, const QString &templ);

    // Tests only: replaces the engine lookup and forgets the stored answer.
    static void setLookupForTesting(std::function<const char *()> lookup);
};

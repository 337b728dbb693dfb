// SPDX-FileCopyrightText: 2026 Quillet developers
// SPDX-License-Identifier: MIT
#pragma once

#include <QString>
#include <functional>
#include <memory>
#include <unicode/uregex.h>

// Regular expressions for the library on ICU's engine, resolved once per
// process. On a platform without a regular-expression engine the string
// replacements leave their text unchanged.
class VXRegularExpression
{
public:
    VXRegularExpression() = delete;

    // Option bits as the platform's regular-expression class numbers them;
    // each maps to one ICU flag.
    enum Option : unsigned {
        CaseInsensitive = 1,
        AllowCommentsAndWhitespace = 2,
        IgnoreMetacharacters = 4,
        DotMatchesLineSeparators = 8,
        AnchorsMatchLines = 16,
        UseUnixLineSeparators = 32,
        UseUnicodeWordBoundaries = 64,
    };

    // A compiled pattern. Matching changes its state: one thread at a time.
    using Pattern = std::shared_ptr<URegularExpression>;

    // The engine's name, or null when there is none. Looked up once.
    static const char *regexClass();
    static bool regexAvailable();
    // Null on a bad pattern (with *error set) or without an engine (with
    // *error untouched).
    static Pattern regularExpressionWithPattern(
        const QString &pattern, unsigned options, QString *error);

    // Replaces every match with an ICU template ("$1", "${name}", a
    // backslash takes the next character literally). A null QString and
    // *error set when the template names a group the pattern lacks.
    static QString replace(
        const QString &text, const Pattern &re, const QString &templ, QString *error);

    // Tests only: replaces the engine lookup and forgets the stored answer.
    static void setLookupForTesting(std::function<const char *()> lookup);
};

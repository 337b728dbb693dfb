// SPDX-FileCopyrightText: 2026 Quillet developers
// SPDX-License-Identifier: MIT
#include "vxregularexpression.h"

#include "stringextensions.h"
#include "utilities/vxlog.h"

#include <mutex>
#include <unicode/utypes.h>

namespace {
std::mutex classLock;
bool lookupDone = false;
const char *lookedUpClass = nullptr;
std::function<const char *()> lookupOverride;

const char *lookUpEngine()
{
    // ICU is linked in; a platform that lacks an engine answers null here.
    return "uregex";
}

const UChar *uchars(const QString &s)
{
    return reinterpret_cast<const UChar *>(s.utf16());
}

QString describe(UErrorCode status, const UParseError *where, const QString &pattern)
{
    QString text = QString::fromLatin1(u_errorName(status));
    if (where && where->offset >= 0)
        text += QStringLiteral(" at offset %1").arg(where->offset);
    return text + QStringLiteral(" in \"%1\"").arg(pattern);
}
} // namespace

const char *VXRegularExpression::regexClass()
{
    std::lock_guard lock(classLock);
    if (!lookupDone) {
        lookedUpClass = lookupOverride ? lookupOverride() : lookUpEngine();
        lookupDone = true;
    }
    return lookedUpClass;
}

bool VXRegularExpression::regexAvailable()
{
    return regexClass() != nullptr;
}

void VXRegularExpression::setLookupForTesting(std::function<const char *()> lookup)
{
    std::lock_guard lock(classLock);
    lookupOverride = std::move(lookup);
    lookupDone = false;
}

VXRegularExpression::Pattern VXRegularExpression::regularExpressionWithPattern(
    const QString &pattern, unsigned options, QString *error)
{
    if (!regexAvailable())
        return nullptr;
    static const struct
    {
        unsigned option;
        uint32_t icu;
    } flags[] = {
        { CaseInsensitive, UREGEX_CASE_INSENSITIVE },
        { AllowCommentsAndWhitespace, UREGEX_COMMENTS },
        { IgnoreMetacharacters, UREGEX_LITERAL },
        { DotMatchesLineSeparators, UREGEX_DOTALL },
        { AnchorsMatchLines, UREGEX_MULTILINE },
        { UseUnixLineSeparators, UREGEX_UNIX_LINES },
        { UseUnicodeWordBoundaries, UREGEX_UWORD },
    };
    uint32_t icuFlags = 0;
    for (const auto &f : flags)
        if (options & f.option)
            icuFlags |= f.icu;
    UParseError where {};
    where.offset = -1;
    UErrorCode status = U_ZERO_ERROR;
    URegularExpression *re
        = uregex_open(uchars(pattern), int32_t(pattern.size()), icuFlags, &where, &status);
    if (U_FAILURE(status)) {
        if (error)
            *error = describe(status, &where, pattern);
        return nullptr;
    }
    return Pattern(re, uregex_close);
}

QString VXRegularExpression::replace(
    const QString &text, const Pattern &re, const QString &templ, QString *error)
{
    UErrorCode status = U_ZERO_ERROR;
    // ICU reads the text in place: it stays alive until the end of the call.
    uregex_setText(re.get(), uchars(text), int32_t(text.size()), &status);
    const int32_t length
        = uregex_replaceAll(re.get(), uchars(templ), int32_t(templ.size()), nullptr, 0, &status);
    QString out;
    if (status == U_BUFFER_OVERFLOW_ERROR || (U_SUCCESS(status) && length == 0)) {
        status = U_ZERO_ERROR;
        out.resize(length);
        uregex_replaceAll(re.get(), uchars(templ), int32_t(templ.size()),
            reinterpret_cast<UChar *>(out.data()), length, &status);
        if (status == U_STRING_NOT_TERMINATED_WARNING)
            status = U_ZERO_ERROR;
    }
    uregex_setText(re.get(), u"", 0, &status);
    if (U_FAILURE(status)) {
        if (error)
            *error = describe(status, nullptr, templ);
        return QString();
    }
    return out.isNull() ? QStringLiteral("") : out;
}

namespace StringExtensions {

// Replaces in place; false (text untouched) when no engine or a bad pattern.
static bool replaceAll(
    QString &s, const QString &pattern, const QString &templ, bool &notAvailableLogged)
{
    if (!VXRegularExpression::regexAvailable()) {
        if (!notAvailableLogged) {
            notAvailableLogged = true;
            vxLog(QStringLiteral(
                "Regular expressions are not available (require OS X 10.7 or newer)."));
        }
        return false;
    }
    QString error;
    const VXRegularExpression::Pattern re = VXRegularExpression::regularExpressionWithPattern(
        pattern, VXRegularExpression::UseUnicodeWordBoundaries, &error);
    QString replaced = re ? VXRegularExpression::replace(s, re, templ, &error) : QString();
    if (replaced.isNull()) {
        vxLog(QStringLiteral("Regular expression error: %@"), error);
        return false;
    }
    s = replaced;
    return true;
}

QString stringByReplacingOccurrencesOfRegexPattern(
    const QString &s, const QString &pattern, const QString &templ)
{
    static bool logged = false;
    QString work = s;
    return replaceAll(work, pattern, templ, logged) ? work : s;
}

void replaceOccurrencesOfRegexPattern(QString &s, const QString &pattern, const QString &templ)
{
    static bool logged = false;
    replaceAll(s, pattern, templ, logged);
}

} // namespace StringExtensions

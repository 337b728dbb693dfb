// SPDX-FileCopyrightText: 2026 Quillet developers
// SPDX-License-Identifier: MIT
#include "vxregularexpression.h"

#include "stringextensions.h"
#include "utilities/vxlog.h"

#include <mutex>

namespace {
std::mutex classLock;
bool lookupDone = false;
const char *lookedUpClass = nullptr;
std::function<const char *()> lookupOverride;

const char *lookUpEngine()
{
    // Qt's engine is linked in; a platform that lacks one answers null here.
    return "QRegularExpression";
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

std::optional<QRegularExpression> VXRegularExpression::regularExpressionWithPattern(
    const QString &pattern, unsigned options, QString *error)
{
    if (!regexAvailable())
        return std::nullopt;
    QRegularExpression::PatternOptions qt = QRegularExpression::NoPatternOption;
    if (options & CaseInsensitive)
        qt |= QRegularExpression::CaseInsensitiveOption;
    if (options & AllowCommentsAndWhitespace)
        qt |= QRegularExpression::ExtendedPatternSyntaxOption;
    if (options & DotMatchesLineSeparators)
        qt |= QRegularExpression::DotMatchesEverythingOption;
    if (options & AnchorsMatchLines)
        qt |= QRegularExpression::MultilineOption;
    if (options & UseUnicodeWordBoundaries)
        qt |= QRegularExpression::UseUnicodePropertiesOption;
    QRegularExpression re(
        options & IgnoreMetacharacters ? QRegularExpression::escape(pattern) : pattern, qt);
    if (!re.isValid()) {
        if (error)
            *error = QStringLiteral("%1 at offset %2 in \"%3\"")
                         .arg(re.errorString())
                         .arg(re.patternErrorOffset())
                         .arg(pattern);
        return std::nullopt;
    }
    return re;
}

QString VXRegularExpression::replace(
    const QString &text, const QRegularExpression &re, const QString &templ)
{
    QString out;
    qsizetype last = 0;
    auto it = re.globalMatch(text);
    while (it.hasNext()) {
        const QRegularExpressionMatch m = it.next();
        out += QStringView(text).mid(last, m.capturedStart() - last);
        for (qsizetype i = 0; i < templ.size(); ++i) {
            const QChar c = templ.at(i);
            if (c == u'\\' && i + 1 < templ.size()) {
                out += templ.at(++i);
            } else if (c == u'$' && i + 1 < templ.size() && templ.at(i + 1).isDigit()) {
                // Take as many digits as still name an existing group.
                int group = templ.at(++i).digitValue();
                while (i + 1 < templ.size() && templ.at(i + 1).isDigit()
                    && group * 10 + templ.at(i + 1).digitValue() <= re.captureCount())
                    group = group * 10 + templ.at(++i).digitValue();
                if (group <= re.captureCount())
                    out += m.captured(group);
            } else {
                out += c;
            }
        }
        last = m.capturedEnd();
    }
    out += QStringView(text).mid(last);
    return out;
}

namespace StringExtensions {

static bool compile(
    const QString &pattern, bool &notAvailableLogged, std::optional<QRegularExpression> &re)
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
    re = VXRegularExpression::regularExpressionWithPattern(
        pattern, VXRegularExpression::UseUnicodeWordBoundaries, &error);
    if (!re) {
        vxLog(QStringLiteral("Regular expression error: %@"), error);
        return false;
    }
    return true;
}

QString stringByReplacingOccurrencesOfRegexPattern(
    const QString &s, const QString &pattern, const QString &templ)
{
    static bool logged = false;
    std::optional<QRegularExpression> re;
    if (!compile(pattern, logged, re))
        return s;
    return VXRegularExpression::replace(s, *re, templ);
}

void replaceOccurrencesOfRegexPattern(QString &s, const QString &pattern, const QString &templ)
{
    static bool logged = false;
    std::optional<QRegularExpression> re;
    if (compile(pattern, logged, re))
        s = VXRegularExpression::replace(s, *re, templ);
}

} // namespace StringExtensions

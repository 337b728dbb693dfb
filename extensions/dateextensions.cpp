// SPDX-FileCopyrightText: 2026 Quillet developers
// SPDX-License-Identifier: MIT
#include "dateextensions.h"

#include <QLocale>
#include <QTimeZone>
#include <ctime>
#include <memory>
#include <unicode/udat.h>

namespace DateExtensions {

namespace {
// Earlier than any date ICU represents: the Gregorian rules apply throughout.
constexpr UDate ProlepticChange = -1.8e17;

QByteArray icuLocale()
{
    const QLocale locale;
    return locale.language() == QLocale::C ? QByteArrayLiteral("en_US_POSIX")
                                           : locale.name().toLatin1();
}

// The default time zone at an instant, as ICU should use it: the zone's own
// identifier when ICU knows it and agrees with the C library's offset (the
// offset local time is read with), else that offset as "GMT+hh:mm".
QString zoneAt(const QDateTime &date)
{
    const qint64 ms = date.toMSecsSinceEpoch();
    const time_t seconds = time_t(ms >= 0 ? ms / 1000 : (ms - 999) / 1000);
    struct tm local
    {
    };
    tzset();
    const long offset = localtime_r(&seconds, &local) ? local.tm_gmtoff : 0;
    const QString id = QString::fromLatin1(QTimeZone::systemTimeZoneId());
    if (!id.isEmpty()) {
        UErrorCode status = U_ZERO_ERROR;
        std::unique_ptr<UCalendar, decltype(&ucal_close)> cal(
            ucal_open(reinterpret_cast<const UChar *>(id.utf16()), int32_t(id.size()), "",
                UCAL_GREGORIAN, &status),
            ucal_close);
        if (U_SUCCESS(status)) {
            ucal_setMillis(cal.get(), UDate(ms), &status);
            const qint64 icuOffset = qint64(ucal_get(cal.get(), UCAL_ZONE_OFFSET, &status))
                + ucal_get(cal.get(), UCAL_DST_OFFSET, &status);
            UChar canonical[64];
            UBool known = false;
            ucal_getCanonicalTimeZoneID(reinterpret_cast<const UChar *>(id.utf16()),
                int32_t(id.size()), canonical, 64, &known, &status);
            if (U_SUCCESS(status) && known && icuOffset == qint64(offset) * 1000)
                return id;
        }
    }
    const long minutes = qAbs(offset) / 60;
    return QStringLiteral("GMT%1%2:%3")
        .arg(QChar(offset < 0 ? u'-' : u'+'))
        .arg(minutes / 60, 2, 10, QLatin1Char('0'))
        .arg(minutes % 60, 2, 10, QLatin1Char('0'));
}

using Calendar = std::unique_ptr<UCalendar, decltype(&ucal_close)>;

// A private copy of the shared calendar set to the date in the default zone.
Calendar calendarAt(const QDateTime &date)
{
    UErrorCode status = U_ZERO_ERROR;
    Calendar cal(ucal_clone(gregorianCalendar(), &status), ucal_close);
    const QString zone = zoneAt(date);
    ucal_setTimeZone(
        cal.get(), reinterpret_cast<const UChar *>(zone.utf16()), int32_t(zone.size()), &status);
    ucal_setMillis(cal.get(), UDate(date.toMSecsSinceEpoch()), &status);
    return cal;
}

int field(const Calendar &cal, UCalendarDateFields f)
{
    UErrorCode status = U_ZERO_ERROR;
    const int value = ucal_get(cal.get(), f, &status);
    return U_SUCCESS(status) ? value : 0;
}
} // namespace

int year(const QDateTime &date)
{
    return field(calendarAt(date), UCAL_EXTENDED_YEAR);
}

const UCalendar *gregorianCalendar(const QDateTime &)
{
    static const UCalendar *calendar = [] {
        UErrorCode status = U_ZERO_ERROR;
        UCalendar *cal = ucal_open(u"UTC", 3, icuLocale().constData(), UCAL_GREGORIAN, &status);
        ucal_setGregorianChange(cal, ProlepticChange, &status);
        return cal;
    }();
    return calendar;
}

DateComponents gregorianDateComponents(const QDateTime &date, unsigned units)
{
    const Calendar cal = calendarAt(date);
    DateComponents c;
    const auto take = [&](Unit unit, std::optional<int> &out, UCalendarDateFields f, int add = 0) {
        if (units & unit)
            out = field(cal, f) + add;
    };
    take(Era, c.era, UCAL_ERA);
    take(Year, c.year, UCAL_YEAR);
    take(Month, c.month, UCAL_MONTH, 1);
    take(Day, c.day, UCAL_DATE);
    take(Hour, c.hour, UCAL_HOUR_OF_DAY);
    take(Minute, c.minute, UCAL_MINUTE);
    take(Second, c.second, UCAL_SECOND);
    take(Weekday, c.weekday, UCAL_DAY_OF_WEEK);
    take(WeekdayOrdinal, c.weekdayOrdinal, UCAL_DAY_OF_WEEK_IN_MONTH);
    take(WeekOfMonth, c.weekOfMonth, UCAL_WEEK_OF_MONTH);
    take(WeekOfYear, c.weekOfYear, UCAL_WEEK_OF_YEAR);
    take(YearForWeekOfYear, c.yearForWeekOfYear, UCAL_YEAR_WOY);
    // ICU's calendar has no quarter field; its formatter's "Q" is this.
    if (units & Quarter)
        c.quarter = field(cal, UCAL_MONTH) / 3 + 1;
    if (units & Nanosecond)
        c.nanosecond = qint64(field(cal, UCAL_MILLISECOND)) * 1000000;
    return c;
}

QString localDescription(const QDateTime &date)
{
    const QDateTime local = date.toLocalTime();
    const int offset = local.offsetFromUtc() / 60;
    return local.toString(QStringLiteral("yyyy-MM-dd HH:mm:ss "))
        + QStringLiteral("%1%2%3")
              .arg(QChar(offset < 0 ? u'-' : u'+'))
              .arg(qAbs(offset) / 60, 2, 10, QLatin1Char('0'))
              .arg(qAbs(offset) % 60, 2, 10, QLatin1Char('0'));
}

namespace {
UDateFormatStyle icuStyle(Style style)
{
    switch (style) {
    case ShortStyle:
        return UDAT_SHORT;
    case MediumStyle:
        return UDAT_MEDIUM;
    case LongStyle:
        return UDAT_LONG;
    case FullStyle:
        return UDAT_FULL;
    case NoStyle:
        break;
    }
    return UDAT_NONE;
}

// A fresh formatter per call, in the current locale and default time zone.
QString format(const QDateTime &date, Style dateStyle, Style timeStyle)
{
    if (icuStyle(dateStyle) == UDAT_NONE && icuStyle(timeStyle) == UDAT_NONE)
        return QStringLiteral("");
    const QString zone = zoneAt(date);
    UErrorCode status = U_ZERO_ERROR;
    std::unique_ptr<UDateFormat, decltype(&udat_close)> formatter(
        udat_open(icuStyle(timeStyle), icuStyle(dateStyle), icuLocale().constData(),
            reinterpret_cast<const UChar *>(zone.utf16()), int32_t(zone.size()), nullptr, 0,
            &status),
        udat_close);
    if (U_FAILURE(status))
        return QStringLiteral("");
    Calendar cal(ucal_clone(udat_getCalendar(formatter.get()), &status), ucal_close);
    ucal_setGregorianChange(cal.get(), ProlepticChange, &status);
    udat_setCalendar(formatter.get(), cal.get());
    QString out(64, Qt::Uninitialized);
    status = U_ZERO_ERROR;
    int32_t n = udat_format(formatter.get(), UDate(date.toMSecsSinceEpoch()),
        reinterpret_cast<UChar *>(out.data()), int32_t(out.size()), nullptr, &status);
    if (status == U_BUFFER_OVERFLOW_ERROR) {
        status = U_ZERO_ERROR;
        out.resize(n);
        n = udat_format(formatter.get(), UDate(date.toMSecsSinceEpoch()),
            reinterpret_cast<UChar *>(out.data()), n, nullptr, &status);
    }
    if (U_FAILURE(status))
        return QStringLiteral("");
    out.truncate(n);
    return out;
}
} // namespace

QString descriptionWithDateStyle(const QDateTime &date, Style style)
{
    return format(date, style, NoStyle);
}

QString descriptionWithTimeStyle(const QDateTime &date, Style style)
{
    return format(date, NoStyle, style);
}

QString descriptionWithDateAndTimeStyle(const QDateTime &date, Style style)
{
    return format(date, style, style);
}

} // namespace DateExtensions

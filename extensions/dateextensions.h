// SPDX-FileCopyrightText: 2026 Quillet developers
// SPDX-License-Identifier: MIT
#pragma once

#include <QDateTime>
#include <QString>
#include <optional>
#include <unicode/ucal.h>

// Year, Gregorian components and localised descriptions of a date, on ICU's
// Gregorian calendar (proleptic: no Julian dates before 1582) and date
// formatter. Dates are read in the default (local) time zone.
namespace DateExtensions {

// Unit flags as the platform's calendar numbers them.
enum Unit : unsigned {
    Era = 1u << 1,
    Year = 1u << 2,
    Month = 1u << 3,
    Day = 1u << 4,
    Hour = 1u << 5,
    Minute = 1u << 6,
    Second = 1u << 7,
    Weekday = 1u << 9,
    WeekdayOrdinal = 1u << 10,
    Quarter = 1u << 11,
    WeekOfMonth = 1u << 12,
    WeekOfYear = 1u << 13,
    YearForWeekOfYear = 1u << 14,
    Nanosecond = 1u << 15,
};

// A component not asked for stays empty. Years count within their era
// (era 0 is before Christ, era 1 the common era); weekday 1 is Sunday.
struct DateComponents
{
    std::optional<int> era, year, month, day, hour, minute, second, weekday, weekdayOrdinal,
        quarter, weekOfMonth, weekOfYear, yearForWeekOfYear;
    std::optional<qint64> nanosecond;
};

// Date-formatter styles: none, short, medium, long, full.
enum Style { NoStyle = 0, ShortStyle = 1, MediumStyle = 2, LongStyle = 3, FullStyle = 4 };

// The year as a number without era: 1 BC is 0, 2 BC is -1.
int year(const QDateTime &date);
// The shared calendar, made on first use with the current locale's week
// rules. Read it through a clone (ucal_clone): it is not locked.
const UCalendar *gregorianCalendar(const QDateTime &date = {});
DateComponents gregorianDateComponents(const QDateTime &date, unsigned units);
// "2024-03-05 10:00:00 +0000"
QString localDescription(const QDateTime &date);
QString descriptionWithDateStyle(const QDateTime &date, Style style);
QString descriptionWithTimeStyle(const QDateTime &date, Style style);
QString descriptionWithDateAndTimeStyle(const QDateTime &date, Style style);

} // namespace DateExtensions

// SPDX-FileCopyrightText: 2026 Quillet developers
// SPDX-License-Identifier: MIT
#pragma once

#include <QCalendar>
#include <QDateTime>
#include <QString>
#include <optional>

// Year, Gregorian components and localised descriptions of a date. Dates
// are read in the default (local) time zone.
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
};

// A component not asked for stays empty.
struct DateComponents
{
    std::optional<int> era, year, month, day, hour, minute, second, weekday;
};

// Date-formatter styles: none, short, medium, long, full.
enum Style { NoStyle = 0, ShortStyle = 1, MediumStyle = 2, LongStyle = 3, FullStyle = 4 };

int year(const QDateTime &date);
const QCalendar &gregorianCalendar(const QDateTime &date = {});
DateComponents gregorianDateComponents(const QDateTime &date, unsigned units);
// "2024-03-05 10:00:00 +0000"
QString localDescription(const QDateTime &date);
QString descriptionWithDateStyle(const QDateTime &date, Style style);
QString descriptionWithTimeStyle(const QDateTime &date, Style style);
QString descriptionWithDateAndTimeStyle(const QDateTime &date, Style style);

} // namespace DateExtensions

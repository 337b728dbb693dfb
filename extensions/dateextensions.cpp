// SPDX-FileCopyrightText: 2026 Quillet developers
// SPDX-License-Identifier: MIT
#include "dateextensions.h"

#include <QLocale>
#include <QTimeZone>

namespace DateExtensions {

int year(const QDateTime &date)
{
    return date.toLocalTime().toString(QStringLiteral("yyyy")).toInt();
}

const QCalendar &gregorianCalendar(const QDateTime &)
{
    static const QCalendar calendar(QCalendar::System::Gregorian);
    return calendar;
}

DateComponents gregorianDateComponents(const QDateTime &date, unsigned units)
{
    const QDateTime local = date.toLocalTime();
    const QCalendar &cal = gregorianCalendar();
    const QCalendar::YearMonthDay ymd = cal.partsFromDate(local.date());
    DateComponents c;
    if (units & Era)
        c.era = ymd.year > 0 ? 1 : 0;
    if (units & Year)
        c.year = ymd.year > 0 ? ymd.year : 1 - ymd.year;
    if (units & Month)
        c.month = ymd.month;
    if (units & Day)
        c.day = ymd.day;
    if (units & Hour)
        c.hour = local.time().hour();
    if (units & Minute)
        c.minute = local.time().minute();
    if (units & Second)
        c.second = local.time().second();
    if (units & Weekday)
        c.weekday = cal.dayOfWeek(local.date()) % 7 + 1; // 1 is Sunday
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

// Qt has two lengths of its own; medium and longer styles take the long one.
static QString format(const QDateTime &date, Style dateStyle, Style timeStyle)
{
    const QLocale locale;
    const QDateTime local = date.toLocalTime();
    auto qtFormat
        = [](Style s) { return s == ShortStyle ? QLocale::ShortFormat : QLocale::LongFormat; };
    QStringList parts;
    if (dateStyle != NoStyle)
        parts.append(locale.toString(local.date(), qtFormat(dateStyle)));
    if (timeStyle != NoStyle)
        parts.append(locale.toString(local.time(), qtFormat(timeStyle)));
    return parts.join(u' ');
}

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

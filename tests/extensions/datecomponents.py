# SPDX-FileCopyrightText: 2026 Quillet developers
# SPDX-License-Identifier: MIT
"""Reference date components, on Python's datetime and calendar.

Writes a JSON array of rows for eight instants in every seventh year from
-500 to 3000 (proleptic Gregorian, UTC): [milliseconds since 1970, era,
year of era, month, day, hour, minute, second, weekday (Sunday 1), weekday
ordinal, quarter, week of month (ISO rules), ISO week, ISO week-year,
nanosecond, year without era]. datetime counts days from year 1, so every
year is computed 2000 years later (five 400-year cycles repeat weekdays and
leap days exactly) and shifted back.
"""
import calendar
import datetime
import json

shift = 5 * 146097 + datetime.date(1970, 1, 1).toordinal()
out = []
for y in range(-500, 3001, 7):
    feb = 29 if calendar.isleap(y + 2000) else 28
    for m, d, h, mi, s, ms in [(1, 1, 0, 0, 0, 0), (1, 4, 12, 30, 45, 250), (2, feb, 6, 1, 2, 3),
                               (3, 31, 9, 9, 9, 9), (6, 15, 18, 0, 0, 500), (9, 30, 1, 2, 3, 4),
                               (12, 28, 22, 0, 1, 1), (12, 31, 23, 59, 59, 999)]:
        dt = datetime.date(y + 2000, m, d)
        msec = (((dt.toordinal() - shift) * 24 + h) * 60 + mi) * 60000 + s * 1000 + ms
        iy, iw, _ = dt.isocalendar()
        off = dt.replace(day=1).weekday()
        wom = (d - 1 + off) // 7 + (1 if 7 - off >= 4 else 0)
        out.append([msec, 1 if y > 0 else 0, y if y > 0 else 1 - y, m, d, h, mi, s,
                    dt.isoweekday() % 7 + 1, (d - 1) // 7 + 1, (m - 1) // 3 + 1, wom, iw,
                    iy - 2000, ms * 1000000, y])
print(json.dumps(out))

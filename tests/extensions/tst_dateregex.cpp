// SPDX-FileCopyrightText: 2026 Quillet developers
// SPDX-License-Identifier: MIT
#include "common/logcapture.h"
#include "common/testrow.h"
#include "extensions/dateextensions.h"
#include "extensions/stringextensions.h"

#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QProcess>
#include <QTest>
#include <ctime>

using namespace DateExtensions;
using StringExtensions::stringByReplacingOccurrencesOfRegexPattern;

class tst_DateRegex : public QObject
{
    Q_OBJECT
private slots:
    void initTestCase()
    {
        // The shared calendar takes its week rules from the locale at first use:
        // German weeks are ISO weeks (Monday first, four days make week 1).
        QLocale::setDefault(QLocale(QLocale::German, QLocale::Germany));
    }

    void cleanup()
    {
        qputenv("TZ", "UTC");
        tzset();
    }

    void dateReadInDefaultTimeZone_data()
    {
        // One instant, 1999-12-31 23:59:59 UTC, in zones given as POSIX TZ
        // strings ICU does not know, and one it does: the date, weekday
        // (Sunday is 1) and hour, and the description.
        QTest::addColumn<QByteArray>("zone");
        QTest::addColumn<QString>("expected");
        row("east, next year", QByteArray("XST-5:30"), "2000-01-01 7 5, 2000-01-01 05:29:59 +0530");
        row("west", QByteArray("XST3:30"), "1999-12-31 6 20, 1999-12-31 20:29:59 -0330");
        row("named zone", QByteArray("Asia/Tokyo"), "2000-01-01 7 8, 2000-01-01 08:59:59 +0900");
    }

    void dateReadInDefaultTimeZone()
    {
        QFETCH(QByteArray, zone);
        QFETCH(QString, expected);
        qputenv("TZ", zone);
        tzset();
        const QDateTime instant(QDate(1999, 12, 31), QTime(23, 59, 59), Qt::UTC);
        const DateComponents c = gregorianDateComponents(instant, Year | Month | Day | Weekday);
        // Components not asked for stay empty.
        QVERIFY(!c.era && !c.hour && !c.minute && !c.second && !c.quarter && !c.nanosecond);
        QCOMPARE(QDate(*c.year, *c.month, *c.day).toString(Qt::ISODate)
                + QStringLiteral(" %1 %2, ")
                      .arg(*c.weekday)
                      .arg(*gregorianDateComponents(instant, Hour).hour)
                + localDescription(instant),
            expected);
    }

    void componentsAgreeWithPython()
    {
        // Rows of datecomponents.py (Python's datetime, proleptic Gregorian).
        QProcess python;
        python.start("python3",
            { QStringLiteral(QUILLET_SOURCE_DIR "/tests/extensions/datecomponents.py") });
        QVERIFY(python.waitForFinished(-1));
        const QJsonArray rows = QJsonDocument::fromJson(python.readAllStandardOutput()).array();
        QVERIFY(rows.size() > 3000);
        const unsigned all = Era | Year | Month | Day | Hour | Minute | Second | Weekday
            | WeekdayOrdinal | Quarter | WeekOfMonth | WeekOfYear | YearForWeekOfYear | Nanosecond;
        for (const QJsonValue &r : rows) {
            const QDateTime date = QDateTime::fromMSecsSinceEpoch(qint64(r[0].toDouble()), Qt::UTC);
            const DateComponents c = gregorianDateComponents(date, all);
            const QJsonArray got { r[0], *c.era, *c.year, *c.month, *c.day, *c.hour, *c.minute,
                *c.second, *c.weekday, *c.weekdayOrdinal, *c.quarter, *c.weekOfMonth, *c.weekOfYear,
                *c.yearForWeekOfYear, *c.nanosecond, DateExtensions::year(date) };
            QVERIFY2(got == r.toArray(),
                QJsonDocument(got).toJson(QJsonDocument::Compact) + " wanted "
                    + QJsonDocument(r.toArray()).toJson(QJsonDocument::Compact));
        }
    }

    void descriptions_data()
    {
        // 2024-03-05 10:20:30 UTC; each style is its own text, in the locale's
        // language. U+202F is CLDR's narrow no-break space before "AM".
        QTest::addColumn<QLocale>("locale");
        // The date short to full, the short time, the short date and time.
        QTest::addColumn<QStringList>("texts");
        row("en_US", QLocale(QLocale::English, QLocale::UnitedStates),
            QStringList { "3/5/24", "Mar 5, 2024", "March 5, 2024", "Tuesday, March 5, 2024",
                "10:20\u202FAM", "3/5/24, 10:20\u202FAM" });
        row("de_DE", QLocale(QLocale::German, QLocale::Germany),
            QStringList { "05.03.24", "05.03.2024", "5. März 2024", "Dienstag, 5. März 2024",
                "10:20", "05.03.24, 10:20" });
    }

    void descriptions()
    {
        QFETCH(QLocale, locale);
        QFETCH(QStringList, texts);
        const QLocale saved;
        QLocale::setDefault(locale);
        const QDateTime d(QDate(2024, 3, 5), QTime(10, 20, 30), Qt::UTC);
        QStringList got, times;
        for (Style s : { ShortStyle, MediumStyle, LongStyle, FullStyle }) {
            got << descriptionWithDateStyle(d, s);
            times << descriptionWithTimeStyle(d, s);
        }
        got << times.first() << descriptionWithDateAndTimeStyle(d, ShortStyle);
        const QString none = descriptionWithDateStyle(d, NoStyle);
        QLocale::setDefault(saved);
        QCOMPARE(got, texts);
        QVERIFY(none.isEmpty());
        QCOMPARE(QSet<QString>(times.begin(), times.end()).size(), 4);
        QVERIFY(times.last().contains(u"10:20:30") && !times.last().contains(u"2024"));
    }

    void replacement_data()
    {
        QTest::addColumn<QString>("text");
        QTest::addColumn<QString>("pattern");
        QTest::addColumn<QString>("templ");
        QTest::addColumn<QString>("expected");
        QTest::addColumn<int>("errors"); // "Regular expression error" lines
        row("group", "xaby", "a(b)", "$1", "xby", 0);
        row("every match, whole match", "a1b22", "\\d+", "<$0>", "a<1>b<22>", 0);
        row("named group", "2024-03", "(?<y>\\d+)-(?<m>\\d+)", "${m}/${y}", "03/2024", 0);
        row("escaped dollar", "a", "a", "\\$1", "$1", 0);
        row("all removed", "aaa", "a", "", "", 0);
        // Option 64: "don't" is one word under Unicode's rules, and so is 3.5.
        row("word boundaries", "don't stop 3.5", "\\b", "|", "|don't| |stop| |3.5|", 0);
        // A lone surrogate is one code point of its own, matched like any other.
        row("lone surrogate", QStringLiteral("a") + QChar(0xD800) + QStringLiteral("b"),
            "\\x{D800}", "?", "a?b", 0);
        row("lone surrogate kept", QStringLiteral("a") + QChar(0xDC00), "a", "b",
            QStringLiteral("b") + QChar(0xDC00), 0);
        row("bad pattern", "keep me", "(", "x", "keep me", 1);
        row("missing group", "keep me", "k", "$9", "keep me", 1);
    }

    void replacement()
    {
        QFETCH(QString, text);
        QFETCH(QString, pattern);
        QFETCH(QString, templ);
        QFETCH(QString, expected);
        QFETCH(int, errors);
        LogCapture capture;
        const QString a = stringByReplacingOccurrencesOfRegexPattern(text, pattern, templ);
        QString b = text;
        StringExtensions::replaceOccurrencesOfRegexPattern(b, pattern, templ);
        capture.restore();
        QCOMPARE(a, expected);
        QCOMPARE(b, expected);
        if (errors)
            QCOMPARE(a.constData(), text.constData()); // the receiver itself
        QCOMPARE(capture.text().count(u"Regular expression error: "), 2 * errors);
    }

    void wordBoundariesFollowUnicodeTests()
    {
        // Unicode's own conformance cases for word boundaries (UAX #29): "\b"
        // with the library's option 64 must stand exactly at every "÷".
        QFile f(QStringLiteral("/usr/share/unicode/auxiliary/WordBreakTest.txt"));
        if (!f.open(QIODevice::ReadOnly))
            QSKIP("unicode-data is not installed");
        int cases = 0;
        while (!f.atEnd()) {
            const QString line = QString::fromUtf8(f.readLine()).section(u'#', 0, 0).trimmed();
            // Kept on purpose: ICU follows CLDR's root tailoring, which takes the
            // colon out of MidLetter (so "a:A" is three words); the 15 cases with
            // a colon are left out.
            if (line.isEmpty() || line.contains(u"003A"))
                continue;
            QString marked;
            for (const QString &item : line.split(u' ', Qt::SkipEmptyParts)) {
                const char32_t code = item == u"÷" ? 0xE000 : item.toUInt(nullptr, 16);
                if (item != u"×")
                    marked += QString::fromUcs4(&code, 1);
            }
            ++cases;
            const QString text = QString(marked).remove(QChar(0xE000));
            QCOMPARE(
                stringByReplacingOccurrencesOfRegexPattern(text, "\\b", QChar(0xE000)), marked);
        }
        QVERIFY(cases > 1000);
    }
};

QTEST_GUILESS_MAIN(tst_DateRegex)
#include "tst_dateregex.moc"

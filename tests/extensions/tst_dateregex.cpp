// SPDX-FileCopyrightText: 2026 Quillet developers
// SPDX-License-Identifier: MIT
#include "common/logcapture.h"
#include "extensions/dateextensions.h"
#include "extensions/stringextensions.h"
#include "extensions/vxregularexpression.h"

#include <QTest>
#include <ctime>

using namespace DateExtensions;

class tst_DateRegex : public QObject
{
    Q_OBJECT
private slots:
    void cleanup();
    void dateReadInDefaultTimeZone_data();
    void dateReadInDefaultTimeZone();
    void descriptions();
    void invalidPatternLogsEveryCallAndKeepsText();
    void missingEngineLogsOnceAndKeepsText();
};

void tst_DateRegex::cleanup()
{
    qputenv("TZ", "UTC");
    tzset();
}

void tst_DateRegex::dateReadInDefaultTimeZone_data()
{
    // One instant, 1999-12-31 23:59:59 UTC, in three zones (POSIX TZ strings).
    QTest::addColumn<QByteArray>("zone");
    QTest::addColumn<QDate>("date");
    QTest::addColumn<int>("weekday"); // Sunday is 1
    QTest::addColumn<int>("hour");
    QTest::addColumn<QString>("description");
    QTest::newRow("UTC") << QByteArray("UTC") << QDate(1999, 12, 31) << 6 << 23
                         << QStringLiteral("1999-12-31 23:59:59 +0000");
    QTest::newRow("east, next year") << QByteArray("XST-5:30") << QDate(2000, 1, 1) << 7 << 5
                                     << QStringLiteral("2000-01-01 05:29:59 +0530");
    QTest::newRow("west") << QByteArray("XST3:30") << QDate(1999, 12, 31) << 6 << 20
                          << QStringLiteral("1999-12-31 20:29:59 -0330");
}

void tst_DateRegex::dateReadInDefaultTimeZone()
{
    QFETCH(QByteArray, zone);
    QFETCH(QDate, date);
    QFETCH(int, weekday);
    QFETCH(int, hour);
    QFETCH(QString, description);
    qputenv("TZ", zone);
    tzset();
    const QDateTime instant(QDate(1999, 12, 31), QTime(23, 59, 59), Qt::UTC);
    QCOMPARE(DateExtensions::year(instant), date.year());
    const DateComponents c = gregorianDateComponents(instant, Year | Month | Day | Weekday);
    QCOMPARE(c.year, date.year());
    QCOMPARE(c.month, date.month());
    QCOMPARE(c.day, date.day());
    QCOMPARE(c.weekday, weekday);
    QVERIFY(!c.era && !c.hour && !c.minute && !c.second);
    QCOMPARE(gregorianDateComponents(instant, Hour).hour, hour);
    QCOMPARE(localDescription(instant), description);
}

void tst_DateRegex::descriptions()
{
    const QDateTime d(QDate(2024, 3, 5), QTime(10, 20, 30), Qt::UTC);
    const QLocale locale;
    const QString date = descriptionWithDateStyle(d, ShortStyle);
    QCOMPARE(date, locale.toString(d.date(), QLocale::ShortFormat));
    QVERIFY(!date.contains(u"10:20"));
    const QString time = descriptionWithTimeStyle(d, ShortStyle);
    QVERIFY(time.contains(u"10:20"));
    QVERIFY(!time.contains(u"2024") && !time.contains(u"24"));
    QCOMPARE(descriptionWithDateAndTimeStyle(d, ShortStyle), date + u' ' + time);
    QCOMPARE(descriptionWithDateStyle(d, NoStyle), QString());
}

void tst_DateRegex::invalidPatternLogsEveryCallAndKeepsText()
{
    const QString text = QStringLiteral("keep me");
    LogCapture capture;
    const QString a = StringExtensions::stringByReplacingOccurrencesOfRegexPattern(
        text, QStringLiteral("("), QStringLiteral("x"));
    QString b = text;
    StringExtensions::replaceOccurrencesOfRegexPattern(b, QStringLiteral("("), QStringLiteral("x"));
    capture.restore();
    QCOMPARE(a.constData(), text.constData());
    QCOMPARE(b, text);
    QCOMPARE(capture.text().count(u"Regular expression error: "), 2);
}

void tst_DateRegex::missingEngineLogsOnceAndKeepsText()
{
    VXRegularExpression::setLookupForTesting([] { return static_cast<const char *>(nullptr); });
    QVERIFY(!VXRegularExpression::regexAvailable());
    QString error = QStringLiteral("untouched");
    QVERIFY(!VXRegularExpression::regularExpressionWithPattern(QStringLiteral("a"), 0, &error));
    QCOMPARE(error, QStringLiteral("untouched"));
    const QString text = QStringLiteral("abc");
    LogCapture capture;
    for (int i = 0; i < 2; ++i)
        QCOMPARE(StringExtensions::stringByReplacingOccurrencesOfRegexPattern(
                     text, QStringLiteral("b"), QStringLiteral("x")),
            text);
    capture.restore();
    VXRegularExpression::setLookupForTesting({});
    QCOMPARE(capture.messages(),
        QStringList { "Regular expressions are not available (require OS X 10.7 or newer)." });
    QCOMPARE(StringExtensions::stringByReplacingOccurrencesOfRegexPattern(
                 text, QStringLiteral("b"), QStringLiteral("x")),
        QStringLiteral("axc"));
}

QTEST_GUILESS_MAIN(tst_DateRegex)
#include "tst_dateregex.moc"

// SPDX-FileCopyrightText: 2026 Quillet developers
// SPDX-License-Identifier: MIT
#include "extensions/dateextensions.h"
#include "extensions/stringextensions.h"
#include "extensions/vxregularexpression.h"

#include <QTest>
#include <unistd.h>

using namespace DateExtensions;

// Captures what the process writes to standard error, where log lines go.
class StderrCapture
{
public:
    StderrCapture()
    {
        fflush(stderr);
        m_saved = dup(2);
        if (pipe(m_pipe) != 0)
            qFatal("pipe");
        dup2(m_pipe[1], 2);
    }
    QString finish()
    {
        fflush(stderr);
        dup2(m_saved, 2);
        close(m_saved);
        close(m_pipe[1]);
        QByteArray all;
        char buf[4096];
        ssize_t n;
        while ((n = read(m_pipe[0], buf, sizeof buf)) > 0)
            all.append(buf, n);
        close(m_pipe[0]);
        return QString::fromUtf8(all);
    }

private:
    int m_saved = -1;
    int m_pipe[2] = { -1, -1 };
};

class tst_DateRegex : public QObject
{
    Q_OBJECT
private slots:
    void yearInDefaultTimeZone_data();
    void yearInDefaultTimeZone();
    void componentsOnlyThoseAskedFor();
    void descriptions();
    void invalidPatternLogsEveryCallAndKeepsText();
    void missingEngineLogsOnceAndKeepsText();
};

void tst_DateRegex::yearInDefaultTimeZone_data()
{
    QTest::addColumn<QDateTime>("date");
    QTest::addColumn<int>("year");
    QTest::newRow("2024") << QDateTime(QDate(2024, 6, 1), QTime(12, 0), Qt::UTC) << 2024;
    QTest::newRow("new year's eve UTC")
        << QDateTime(QDate(1999, 12, 31), QTime(23, 59, 59), Qt::UTC) << 1999;
}

void tst_DateRegex::yearInDefaultTimeZone()
{
    QFETCH(QDateTime, date);
    QFETCH(int, year);
    QCOMPARE(DateExtensions::year(date), year);
}

void tst_DateRegex::componentsOnlyThoseAskedFor()
{
    const QDateTime d(QDate(2024, 3, 5), QTime(10, 20, 30), Qt::UTC);
    const DateComponents c = gregorianDateComponents(d, Year | Month | Day | Weekday);
    QCOMPARE(c.year, 2024);
    QCOMPARE(c.month, 3);
    QCOMPARE(c.day, 5);
    QCOMPARE(c.weekday, 3); // a Tuesday; Sunday is 1
    QVERIFY(!c.hour);
    QCOMPARE(&gregorianCalendar(), &gregorianCalendar());
    QVERIFY(gregorianCalendar().isGregorian());
}

void tst_DateRegex::descriptions()
{
    const QDateTime d(QDate(2024, 3, 5), QTime(10, 20, 30), Qt::UTC);
    QCOMPARE(localDescription(d), QStringLiteral("2024-03-05 10:20:30 +0000"));
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
    StderrCapture capture;
    const QString a = StringExtensions::stringByReplacingOccurrencesOfRegexPattern(
        text, QStringLiteral("("), QStringLiteral("x"));
    QString b = text;
    StringExtensions::replaceOccurrencesOfRegexPattern(b, QStringLiteral("("), QStringLiteral("x"));
    const QString log = capture.finish();
    QCOMPARE(a.constData(), text.constData());
    QCOMPARE(b, text);
    QCOMPARE(log.count(u"Regular expression error: "), 2);
}

void tst_DateRegex::missingEngineLogsOnceAndKeepsText()
{
    VXRegularExpression::setLookupForTesting([] { return static_cast<const char *>(nullptr); });
    QVERIFY(!VXRegularExpression::regexAvailable());
    QString error = QStringLiteral("untouched");
    QVERIFY(!VXRegularExpression::regularExpressionWithPattern(QStringLiteral("a"), 0, &error));
    QCOMPARE(error, QStringLiteral("untouched"));
    const QString text = QStringLiteral("abc");
    StderrCapture capture;
    for (int i = 0; i < 2; ++i)
        QCOMPARE(StringExtensions::stringByReplacingOccurrencesOfRegexPattern(
                     text, QStringLiteral("b"), QStringLiteral("x")),
            text);
    const QString log = capture.finish();
    VXRegularExpression::setLookupForTesting({});
    QCOMPARE(log.count(u"Regular expressions are not available (require OS X 10.7 or newer)."), 1);
    QCOMPARE(StringExtensions::stringByReplacingOccurrencesOfRegexPattern(
                 text, QStringLiteral("b"), QStringLiteral("x")),
        QStringLiteral("axc"));
}

QTEST_GUILESS_MAIN(tst_DateRegex)
#include "tst_dateregex.moc"

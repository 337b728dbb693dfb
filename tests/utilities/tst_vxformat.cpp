// SPDX-FileCopyrightText: 2026 Quillet developers
// SPDX-License-Identifier: MIT
#include "common/logcapture.h"
#include "utilities/vxformat.h"
#include "utilities/vxlog.h"

#include <QRegularExpression>
#include <QTest>

class TestVXFormat : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void formats_data();
    void formats();
    void descriptions_data();
    void descriptions();
    void missingArgumentsNeverCrash();
    void logLineHasDateProcessAndThread();
};

void TestVXFormat::formats_data()
{
    // clang-format off
    QTest::addColumn<QString>("format");
    QTest::addColumn<QVariantList>("args");
    QTest::addColumn<QString>("expected");

    QTest::newRow("positional reuse")
        << "%1$@ cannot run.\rQuit %1$@." << QVariantList { QStringLiteral("Foo") }
        << "Foo cannot run.\rQuit Foo.";
    QTest::newRow("positional order")
        << "%2$@ before %1$@" << QVariantList { QStringLiteral("a"), QStringLiteral("b") }
        << "b before a";
    QTest::newRow("three decimals") << "after %1.3fs (%d attempts)" << QVariantList { 0.0456, 3 }
                                    << "after 0.046s (3 attempts)";
    QTest::newRow("long") << "%ld" << QVariantList { qlonglong(1) << 40 } << "1099511627776";
    QTest::newRow("int truncates to 32 bits") << "%d" << QVariantList { qlonglong(1) << 32 } << "0";
    QTest::newRow("hex upper") << "temp-%X" << QVariantList { 0xBEEFu } << "temp-BEEF";
    QTest::newRow("hex byte signed widening") << "%02X" << QVariantList { -62 } << "FFFFFFC2";
    QTest::newRow("percent") << "100%%" << QVariantList {} << "100%";
    QTest::newRow("nil object") << "autolaunch = %@" << QVariantList { QVariant(QString()) }
                                << "autolaunch = (null)";
    QTest::newRow("empty string is not nil")
        << "[%@]" << QVariantList { QString(QLatin1String("")) } << "[]";
    QTest::newRow("unknown conversion copied") << "50%y" << QVariantList {} << "50%y";
    QTest::newRow("dangling percent") << "ends in %" << QVariantList {} << "ends in %";
    QTest::newRow("width from argument") << "[%*d]" << QVariantList { 4, 7 } << "[   7]";
    QTest::newRow("non-ASCII kept")
        << "%@ – ok" << QVariantList { QStringLiteral("Größe") } << "Größe – ok";
    // clang-format on
}

void TestVXFormat::formats()
{
    QFETCH(QString, format);
    QFETCH(QVariantList, args);
    QFETCH(QString, expected);
    QCOMPARE(vxFormatList(format, args), expected);
}

void TestVXFormat::descriptions_data()
{
    // clang-format off
    QTest::addColumn<QVariant>("value");
    QTest::addColumn<QString>("expected");
    QTest::newRow("list") << QVariant(QStringList {
        QStringLiteral("/path/to/exe"), QStringLiteral("-productName"), QStringLiteral("Foo") })
                          << "(\n    \"/path/to/exe\",\n    \"-productName\",\n    Foo\n)";
    QTest::newRow("empty list") << QVariant(QStringList()) << "(\n)";
    QVariantMap map;
    map.insert(QStringLiteral("productName"), QStringLiteral("Foo Bar"));
    map.insert(QStringLiteral("productCode"), QStringList { QStringLiteral("ABCD") });
    map.insert(QString(QLatin1String("")), QStringLiteral("/x"));
    QTest::newRow("nested map, sorted keys") << QVariant(map)
                                             << "{\n    \"\" = \"/x\";\n    productCode = (\n      "
                                                "  ABCD\n    );\n    productName = \"Foo Bar\";\n}";
    QTest::newRow("quotes and escapes in lists")
        << QVariant(QStringList { QStringLiteral("say \"hi\"\n"), QStringLiteral("é") })
        << "(\n    \"say \\\"hi\\\"\\n\",\n    \"\\U00e9\"\n)";
    QTest::newRow("invalid") << QVariant() << "(null)";
    // clang-format on
}

void TestVXFormat::descriptions()
{
    QFETCH(QVariant, value);
    QFETCH(QString, expected);
    QCOMPARE(vxDescription(value), expected);
}

void TestVXFormat::missingArgumentsNeverCrash()
{
    QCOMPARE(vxFormat(QStringLiteral("%@ %d %s %1.1f %9$@")),
        QStringLiteral("(null) 0 (null) 0.0 (null)"));
    // Absurd widths and precisions are clamped rather than allocated.
    QVERIFY(vxFormat(QStringLiteral("%999999999d"), 1).size() <= 4096);
    QVERIFY(vxFormat(QStringLiteral("%.999999999f"), 1.0).size() <= 4200);
}

void TestVXFormat::logLineHasDateProcessAndThread()
{
    LogCapture capture;
    vxLog(QStringLiteral("quit %@: terminated after %1.3fs (%d attempts)"), QStringLiteral("Foo"),
        0.01, 2);
    capture.restore();
    const QString line = capture.text();
    static const QRegularExpression shape(QStringLiteral(
        "^\\d{4}-\\d\\d-\\d\\d \\d\\d:\\d\\d:\\d\\d\\.\\d{3} \\S+\\[(\\d+):(\\d+)\\] "
        "quit Foo: terminated after 0\\.010s \\(2 attempts\\)\\n$"));
    const auto m = shape.match(line);
    QVERIFY2(m.hasMatch(), qPrintable(line));
    QCOMPARE(m.captured(1).toLongLong(), QCoreApplication::applicationPid());
    QCOMPARE(capture.messages(),
        QStringList { QStringLiteral("quit Foo: terminated after 0.010s (2 attempts)") });
}

QTEST_GUILESS_MAIN(TestVXFormat)
#include "tst_vxformat.moc"

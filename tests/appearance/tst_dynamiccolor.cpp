// SPDX-FileCopyrightText: 2026 Quillet developers
// SPDX-License-Identifier: MIT
//
// Dynamic colours on a private X server and session bus, with no desktop
// portal: the application's appearance is its palette's (the route a
// platform theme takes), and widgets are checked by what the screen shows.
#include "appearance/vxappearance.h"
#include "appearance/vxdynamiccolor.h"
#include "common/logcapture.h"
#include "swatch.h"
#include "utilities/vxuserdefaults.h"

#include <QApplication>
#include <QBuffer>
#include <QDataStream>
#include <QTest>
#include <QVBoxLayout>

namespace {

const QColor kLight(200, 220, 60);
const QColor kDark(20, 40, 120);

void setApplicationDark(bool dark)
{
    QApplication::setPalette(dark ? VXAppearance::darkPalette() : QPalette());
}

QByteArray encoded(const VXDynamicColor &color)
{
    QByteArray data;
    QDataStream out(&data, QIODevice::WriteOnly);
    out << color;
    return data;
}

// Red, green and blue to two places, as the tables of accent colours give them.
using Rgb = QList<double>;

Rgb components(const QColor &c)
{
    return { qRound(c.redF() * 100) / 100.0, qRound(c.greenF() * 100) / 100.0,
        qRound(c.blueF() * 100) / 100.0 };
}

Rgb components255(int r, int g, int b)
{
    return components(QColor(r, g, b));
}

} // namespace

Q_DECLARE_METATYPE(VXDynamicColor)

class TestDynamicColor : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void initTestCase();
    void cleanup();
    void showsTheVariantOfTheWidgetsAppearance_data();
    void showsTheVariantOfTheWidgetsAppearance();
    void switchesWhenTheThemeChangesWithoutRestart();
    void nilDarkColorAnswersTheLightOne_data();
    void nilDarkColorAnswersTheLightOne();
    void derivationsAreColoursOfTheMoment();
    void menuHighlightsFollowTheAccentDefault_data();
    void menuHighlightsFollowTheAccentDefault();
    void coding_data();
    void coding();
    void badCodingIsRefused_data();
    void badCodingIsRefused();
};

void TestDynamicColor::initTestCase()
{
    QCOMPARE(QGuiApplication::platformName(), QStringLiteral("xcb"));
    QVERIFY(!VXAppearance::applicationIsDark());
}

void TestDynamicColor::cleanup()
{
    setApplicationDark(false);
    VXUserDefaults::standard().removeObject(QStringLiteral("AppleAccentColor"));
}

void TestDynamicColor::showsTheVariantOfTheWidgetsAppearance_data()
{
    QTest::addColumn<bool>("global");
    QTest::addColumn<bool>("hasDark");
    QTest::addColumn<bool>("applicationDark");
    QTest::addColumn<QString>("forced"); // the container's own palette
    QTest::addColumn<QColor>("shown");

    QTest::newRow("light application") << false << true << false << "" << kLight;
    QTest::newRow("dark application") << false << true << true << "" << kDark;
    QTest::newRow("forced dark in a light application")
        << false << true << false << "dark" << kDark;
    QTest::newRow("global, forced dark in a light application")
        << true << true << false << "dark" << kLight;
    QTest::newRow("forced light in a dark application")
        << false << true << true << "light" << kLight;
    QTest::newRow("global, forced light in a dark application")
        << true << true << true << "light" << kDark;
    QTest::newRow("no dark colour, dark application") << false << false << true << "" << kLight;
    QTest::newRow("no dark colour, global, dark application")
        << true << false << true << "" << kLight;
}

void TestDynamicColor::showsTheVariantOfTheWidgetsAppearance()
{
    QFETCH(bool, global);
    QFETCH(bool, hasDark);
    QFETCH(bool, applicationDark);
    QFETCH(QString, forced);
    QFETCH(QColor, shown);

    setApplicationDark(applicationDark);
    QCOMPARE(VXAppearance::applicationIsDark(), applicationDark);
    QWidget window;
    auto *container = new QWidget(&window);
    if (forced == QLatin1String("dark"))
        container->setPalette(VXAppearance::darkPalette());
    else if (forced == QLatin1String("light"))
        container->setPalette(VXAppearance::lightPalette());
    auto *swatch = new Swatch(
        VXDynamicColor::lightColor(kLight, hasDark ? std::optional(kDark) : std::nullopt, global),
        container);
    (new QVBoxLayout(container))->addWidget(swatch);
    (new QVBoxLayout(&window))->addWidget(container);
    window.show();
    QVERIFY(QTest::qWaitForWindowExposed(&window));
    QTRY_VERIFY2(sameShown(shownAtCentre(swatch), shown), qPrintable(shownAtCentre(swatch).name()));
}

void TestDynamicColor::switchesWhenTheThemeChangesWithoutRestart()
{
    Swatch swatch(VXDynamicColor::lightColor(kLight, kDark));
    swatch.show();
    QVERIFY(QTest::qWaitForWindowExposed(&swatch));
    QTRY_VERIFY(sameShown(shownAtCentre(&swatch), kLight));
    setApplicationDark(true);
    QTRY_VERIFY(sameShown(shownAtCentre(&swatch), kDark));
    setApplicationDark(false);
    QTRY_VERIFY(sameShown(shownAtCentre(&swatch), kLight));
}

void TestDynamicColor::nilDarkColorAnswersTheLightOne_data()
{
    QTest::addColumn<bool>("global");
    QTest::addColumn<bool>("applicationDark");
    QTest::newRow("light") << false << false;
    QTest::newRow("dark") << false << true;
    QTest::newRow("global, light") << true << false;
    QTest::newRow("global, dark") << true << true;
}

void TestDynamicColor::nilDarkColorAnswersTheLightOne()
{
    QFETCH(bool, global);
    QFETCH(bool, applicationDark);
    setApplicationDark(applicationDark);
    QWidget darkWidget;
    darkWidget.setPalette(VXAppearance::darkPalette());

    // An invalid dark colour is nil as well.
    for (const std::optional<QColor> &dark : { std::optional<QColor>(), std::optional(QColor()) }) {
        const VXDynamicColor c = VXDynamicColor::lightColor(kLight, dark, global);
        QVERIFY(!c.darkAquaColor());
        QCOMPARE(c.effectiveColor(), kLight);
        QCOMPARE(c.effectiveColor(&darkWidget), kLight);
        float r, g, b, a;
        c.getRed(&r, &g, &b, &a);
        QCOMPARE(QColor::fromRgbF(r, g, b, a), kLight);
        QCOMPARE(c.colorNameComponent(), kLight.name());
    }
}

void TestDynamicColor::derivationsAreColoursOfTheMoment()
{
    VXDynamicColor c = VXDynamicColor::lightColor(kLight, kDark);
    QCOMPARE(c.useGlobalAppearance(true).usesGlobalAppearance(), true);
    setApplicationDark(true);
    const QColor translucent = c.colorWithAlphaComponent(0.5f);
    const QColor lighter = c.highlightWithLevel(0.5f);
    setApplicationDark(false);
    QCOMPARE(translucent.rgb(), kDark.rgb());
    QCOMPARE(translucent.alpha(), 128);
    QCOMPARE(lighter.red(), (kDark.red() + 255 + 1) / 2);
    QCOMPARE(QColor(c), kLight); // handed to code that takes a QColor, now
    QVERIFY(!c.blendedColorWithFraction(0.5f, QColor()).isValid());
}

void TestDynamicColor::menuHighlightsFollowTheAccentDefault_data()
{
    QTest::addColumn<QVariant>("setting");
    QTest::addColumn<QString>("name");
    QTest::addColumn<Rgb>("menuLight");
    QTest::addColumn<Rgb>("menuDark");
    QTest::addColumn<Rgb>("itemLight");
    QTest::addColumn<Rgb>("itemDark");
    QTest::addColumn<QStringList>("logged"); // over two calls

    const Rgb blue[] = { { 0.16, 0.43, 0.95 }, { 0.04, 0.29, 0.76 }, components255(60, 139, 246),
        components255(12, 111, 225) };
    const auto row = [&](const char *name, const QVariant &setting, const QString &accent,
                         const Rgb(&rgb)[4], const QStringList &logged = {}) {
        QTest::newRow(name) << setting << accent << rgb[0] << rgb[1] << rgb[2] << rgb[3] << logged;
    };
    row("absent", QVariant(), "Blue", blue);
    row("not a number", QStringLiteral("teal"), "Blue", blue);
    const Rgb graphite[] = { { 0.59, 0.59, 0.59 }, { 0.34, 0.34, 0.34 },
        components255(162, 162, 162), components255(124, 128, 131) };
    row("-1", -1, "Graphite", graphite);
    const Rgb red[] = { { 0.85, 0.25, 0.29 }, { 0.76, 0.18, 0.22 }, components255(229, 95, 100),
        components255(199, 54, 60) };
    row("0", 0, "Red", red);
    const Rgb pink[] = { { 0.95, 0.31, 0.61 }, { 0.73, 0.16, 0.43 }, components255(248, 114, 176),
        components255(218, 74, 142) };
    row("6", 6, "Pink", pink);
    // 4 is unknown on purpose; each new unknown index is logged once.
    row("4, logged once", 4, "Blue", blue, { "*** unknown accent color index: 4" });
    row("4 again, silent", 4, "Blue", blue);
    row("7, a new index", 7, "Blue", blue, { "*** unknown accent color index: 7" });
    row("4 after 7, logged again", 4, "Blue", blue, { "*** unknown accent color index: 4" });
}

void TestDynamicColor::menuHighlightsFollowTheAccentDefault()
{
    QFETCH(QVariant, setting);
    QFETCH(QString, name);
    QFETCH(Rgb, menuLight);
    QFETCH(Rgb, menuDark);
    QFETCH(Rgb, itemLight);
    QFETCH(Rgb, itemDark);
    QFETCH(QStringList, logged);

    VXUserDefaults::standard().setObject(setting, QStringLiteral("AppleAccentColor"));
    LogCapture log;
    QCOMPARE(VXDynamicColor::accentColorName(), name);
    const VXDynamicColor menu = VXDynamicColor::menuHighlightColor();
    const VXDynamicColor item = VXDynamicColor::menuItemHighlightColor();
    QCOMPARE(log.messages(), logged); // three calls, at most one line
    QCOMPARE(components(menu.aquaColor()), menuLight);
    QCOMPARE(components(*menu.darkAquaColor()), menuDark);
    QVERIFY(menu.usesGlobalAppearance());
    QCOMPARE(components(item.aquaColor()), itemLight);
    QCOMPARE(components(*item.darkAquaColor()), itemDark);
    QVERIFY(!item.usesGlobalAppearance());
}

void TestDynamicColor::coding_data()
{
    QTest::addColumn<VXDynamicColor>("color");
    QTest::newRow("no dark colour") << VXDynamicColor::lightColor(kLight, std::nullopt);
    QTest::newRow("both colours") << VXDynamicColor::lightColor(kLight, kDark);
    QTest::newRow("global flag, not kept") << VXDynamicColor::lightColor(kLight, kDark, true);
    QTest::newRow("translucent dark")
        << VXDynamicColor::lightColor(kLight, QColor::fromRgbF(0.1f, 0.2f, 0.3f, 0.4f));
}

void TestDynamicColor::coding()
{
    QFETCH(VXDynamicColor, color);
    QByteArray data = encoded(color);
    QDataStream in(&data, QIODevice::ReadOnly);
    VXDynamicColor decoded = VXDynamicColor::lightColor(Qt::red, Qt::blue, true);
    in >> decoded;
    QCOMPARE(in.status(), QDataStream::Ok);
    QVERIFY(in.atEnd());
    QCOMPARE(decoded.aquaColor(), color.aquaColor());
    QCOMPARE(decoded.darkAquaColor(), color.darkAquaColor());
    QVERIFY(!decoded.usesGlobalAppearance());
}

void TestDynamicColor::badCodingIsRefused_data()
{
    QTest::addColumn<QByteArray>("data");
    const QByteArray good = encoded(VXDynamicColor::lightColor(kLight, kDark));
    QTest::newRow("empty") << QByteArray();
    QTest::newRow("cut short") << good.left(good.size() / 2);
    QByteArray newer = good;
    newer[0] = char(2);
    QTest::newRow("a later version") << newer;

    QByteArray wrongType;
    QDataStream out(&wrongType, QIODevice::WriteOnly);
    out << quint8(1)
        << QVariantMap { { QStringLiteral("aquaColor"), kLight },
               { QStringLiteral("darkAquaColor"), QStringLiteral("#000000") } };
    QTest::newRow("dark colour is text") << wrongType;
}

void TestDynamicColor::badCodingIsRefused()
{
    QFETCH(QByteArray, data);
    QDataStream in(&data, QIODevice::ReadOnly);
    VXDynamicColor decoded = VXDynamicColor::lightColor(kLight, kDark);
    in >> decoded;
    QVERIFY(in.status() != QDataStream::Ok);
    QVERIFY(!decoded.aquaColor().isValid());
    QVERIFY(!decoded.darkAquaColor());
}

QTEST_MAIN(TestDynamicColor)
#include "tst_dynamiccolor.moc"

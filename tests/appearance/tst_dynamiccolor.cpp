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

// Red, green and blue to two places, as the accent colours are given.
using Rgb = QList<double>;

Rgb components(const QColor &c)
{
    return { qRound(c.redF() * 100) / 100.0, qRound(c.greenF() * 100) / 100.0,
        qRound(c.blueF() * 100) / 100.0 };
}

Rgb components255(int r, int g, int b) // out of 255
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
    void derivationsAreColoursOfTheMoment();
    void menuHighlightsFollowTheAccentDefault_data();
    void menuHighlightsFollowTheAccentDefault();
    void coding_data();
    void coding();
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
    QTest::addColumn<QColor>("dark"); // invalid: nil
    QTest::addColumn<bool>("applicationDark");
    QTest::addColumn<QString>("forced"); // the container's own palette
    QTest::addColumn<QColor>("shown");

    const QColor nil;
    QTest::newRow("light application") << false << kDark << false << "" << kLight;
    QTest::newRow("dark application") << false << kDark << true << "" << kDark;
    QTest::newRow("forced dark in a light application")
        << false << kDark << false << "dark" << kDark;
    QTest::newRow("global, forced dark in a light application")
        << true << kDark << false << "dark" << kLight;
    QTest::newRow("forced light in a dark application")
        << false << kDark << true << "light" << kLight;
    QTest::newRow("global, forced light in a dark application")
        << true << kDark << true << "light" << kDark;
    QTest::newRow("nil dark colour, dark application") << false << nil << true << "" << kLight;
    QTest::newRow("nil dark colour, forced dark") << false << nil << false << "dark" << kLight;
    QTest::newRow("nil dark colour, global, dark application")
        << true << nil << true << "" << kLight;
}

void TestDynamicColor::showsTheVariantOfTheWidgetsAppearance()
{
    QFETCH(bool, global);
    QFETCH(QColor, dark);
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
    const VXDynamicColor color = VXDynamicColor::lightColor(kLight, dark, global);
    QCOMPARE(color.darkAquaColor().has_value(), dark.isValid()); // an invalid colour is nil
    auto *swatch = new Swatch(color, container);
    (new QVBoxLayout(container))->addWidget(swatch);
    (new QVBoxLayout(&window))->addWidget(container);
    window.show();
    QVERIFY(QTest::qWaitForWindowExposed(&window, kPatience));
    QTRY_VERIFY2_WITH_TIMEOUT(sameShown(shownAtCentre(swatch), shown),
        qPrintable(shownAtCentre(swatch).name()), kPatience);
    VXAppearance::Drawing drawing(swatch); // the appearance current while drawing
    QCOMPARE(color.redComponent(), shown.redF());
}

void TestDynamicColor::switchesWhenTheThemeChangesWithoutRestart()
{
    Swatch swatch(VXDynamicColor::lightColor(kLight, kDark));
    swatch.show();
    QVERIFY(QTest::qWaitForWindowExposed(&swatch, kPatience));
    QTRY_VERIFY_WITH_TIMEOUT(sameShown(shownAtCentre(&swatch), kLight), kPatience);
    setApplicationDark(true);
    QTRY_VERIFY_WITH_TIMEOUT(sameShown(shownAtCentre(&swatch), kDark), kPatience);
    setApplicationDark(false);
    QTRY_VERIFY_WITH_TIMEOUT(sameShown(shownAtCentre(&swatch), kLight), kPatience);
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
    QTest::addColumn<QStringList>("logged"); // over three lookups
    const QStringList none;
    QTest::newRow("absent") << QVariant() << "Blue" << none;
    QTest::newRow("not a number") << QVariant(QStringLiteral("teal")) << "Blue" << none;
    QTest::newRow("-1") << QVariant(-1) << "Graphite" << none;
    // 4 is unknown on purpose; each new unknown index is logged once.
    const QStringList four { "*** unknown accent color index: 4" };
    QTest::newRow("4, logged once") << QVariant(4) << "Blue" << four;
    QTest::newRow("4 again, silent") << QVariant(4) << "Blue" << none;
    QTest::newRow("7, a new index")
        << QVariant(7) << "Blue" << QStringList { "*** unknown accent color index: 7" };
    QTest::newRow("4 after 7, logged again") << QVariant(4) << "Blue" << four;
}

void TestDynamicColor::menuHighlightsFollowTheAccentDefault()
{
    QFETCH(QVariant, setting);
    QFETCH(QString, name);
    QFETCH(QStringList, logged);
    // Menu title light, dark; menu item light, dark.
    const QHash<QString, QList<Rgb>> pairs {
        { "Blue",
            { { 0.16, 0.43, 0.95 }, { 0.04, 0.29, 0.76 }, components255(60, 139, 246),
                components255(12, 111, 225) } },
        { "Graphite",
            { { 0.59, 0.59, 0.59 }, { 0.34, 0.34, 0.34 }, components255(162, 162, 162),
                components255(124, 128, 131) } },
    };

    VXUserDefaults::standard().setObject(setting, QStringLiteral("AppleAccentColor"));
    LogCapture log;
    QCOMPARE(VXDynamicColor::accentColorName(), name);
    const VXDynamicColor menu = VXDynamicColor::menuHighlightColor();
    const VXDynamicColor item = VXDynamicColor::menuItemHighlightColor();
    QCOMPARE(log.messages(), logged);
    QCOMPARE((QList<Rgb> { components(menu.aquaColor()), components(*menu.darkAquaColor()),
                 components(item.aquaColor()), components(*item.darkAquaColor()) }),
        pairs.value(name));
    QVERIFY(menu.usesGlobalAppearance() && !item.usesGlobalAppearance());
}

void TestDynamicColor::coding_data()
{
    QTest::addColumn<QByteArray>("data");
    QTest::addColumn<VXDynamicColor>("decoded"); // default-made: refused

    const VXDynamicColor both = VXDynamicColor::lightColor(kLight, kDark);
    const VXDynamicColor lightOnly = VXDynamicColor::lightColor(kLight, std::nullopt);
    QTest::newRow("nil dark colour") << encoded(lightOnly) << lightOnly;
    QTest::newRow("both colours") << encoded(both) << both;
    QTest::newRow("global flag, not kept")
        << encoded(VXDynamicColor::lightColor(kLight, kDark, true)) << both;

    const QByteArray good = encoded(both);
    QTest::newRow("empty") << QByteArray() << VXDynamicColor();
    QTest::newRow("cut short") << good.left(good.size() / 2) << VXDynamicColor();
    QByteArray later = good;
    later[0] = char(2);
    QTest::newRow("a later version") << later << VXDynamicColor();
    QByteArray text;
    QDataStream out(&text, QIODevice::WriteOnly);
    out << quint8(1)
        << QVariantMap { { QStringLiteral("aquaColor"), kLight },
               { QStringLiteral("darkAquaColor"), QStringLiteral("#000000") } };
    QTest::newRow("dark colour is text") << text << VXDynamicColor();
}

void TestDynamicColor::coding()
{
    QFETCH(QByteArray, data);
    QFETCH(VXDynamicColor, decoded);
    QDataStream in(&data, QIODevice::ReadOnly);
    VXDynamicColor color = VXDynamicColor::lightColor(Qt::red, Qt::blue, true);
    in >> color;
    QCOMPARE(in.status() == QDataStream::Ok, decoded.aquaColor().isValid());
    QVERIFY(color == decoded);
}

QTEST_MAIN(TestDynamicColor)
#include "tst_dynamiccolor.moc"

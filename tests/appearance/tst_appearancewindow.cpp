// SPDX-FileCopyrightText: 2026 Quillet developers
// SPDX-License-Identifier: MIT
//
// Windows that follow the desktop's appearance as the desktop portal
// announces it: a stand-in owns org.freedesktop.portal.Desktop on the
// test's private session bus, answers "color-scheme" and "accent-color" and
// emits SettingChanged. What the windows show is read back from the X
// server.
#include "../installer/installerfixture.h"
#include "appearance/vxappearance.h"
#include "appearance/vxdynamiccolor.h"
#include "appearance/vxviewextensions.h"
#include "common/logcapture.h"
#include "common/testchild.h"
#include "swatch.h"
#include "utilities/vxuserdefaults.h"

#include <QApplication>
#include <QLabel>
#include <QPushButton>
#include <QTest>
#include <QTextEdit>
#include <memory>

namespace {

const QColor kLight(200, 220, 60);
const QColor kDark(20, 40, 120);

struct Portal : TestChild
{
    Portal()
        : TestChild(QStringLiteral(QUILLET_BINARY_DIR "/tests/helpers/portalstandin"))
    { }
    // "KEY TYPE VALUE..." in the appearance namespace, announced with
    // SettingChanged.
    bool set(const QString &setting)
    {
        process.write("org.freedesktop.appearance " + setting.toUtf8() + '\n');
        for (int i = 0; i < 100 && !process.canReadLine(); ++i)
            process.waitForReadyRead(100);
        return process.readLine().startsWith("set");
    }
};

// Counts the desktop's theme-change notifications it is sent.
class Observer : public QWidget
{
    Q_OBJECT
public:
    int changes = 0;
public Q_SLOTS:
    void darkModeChanged() { ++changes; }
};

void screenshot(QWidget *window, const QString &name)
{
    const QString folder = QStringLiteral(QUILLET_BINARY_DIR "/screenshots");
    QDir().mkpath(folder);
    const QRect frame = window->frameGeometry();
    window->screen()
        ->grabWindow(0, frame.x(), frame.y(), frame.width(), frame.height())
        .save(folder + QLatin1Char('/') + name);
}

// A point of a widget where nothing but its background shows.
QColor backgroundOf(QWidget *widget)
{
    const QPoint corner = widget->mapToGlobal(QPoint(widget->width() - 4, widget->height() - 4));
    return widget->screen()->grabWindow(0, corner.x(), corner.y(), 1, 1).toImage().pixelColor(0, 0);
}

// The lightness of the darkest and of the lightest pixel the X server shows
// of a widget.
std::pair<int, int> lightnessRange(QWidget *widget)
{
    const QPoint origin = widget->mapToGlobal(QPoint(0, 0));
    const QImage image
        = widget->screen()
              ->grabWindow(0, origin.x(), origin.y(), widget->width(), widget->height())
              .toImage();
    int darkest = 255, lightest = 0;
    for (int y = 0; y < image.height(); ++y) {
        for (int x = 0; x < image.width(); ++x) {
            const int l = image.pixelColor(x, y).lightness();
            darkest = std::min(darkest, l);
            lightest = std::max(lightest, l);
        }
    }
    return { darkest, lightest };
}

} // namespace

class TestAppearanceWindow : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void initTestCase();
    void followsThePortalWithoutRestart();
    void accentFromThePortal_data();
    void accentFromThePortal();
    void installerWindowDarkWithItsReadMeLight();

private:
    std::unique_ptr<Portal> m_portal;
};

void TestAppearanceWindow::initTestCase()
{
    QCOMPARE(QGuiApplication::platformName(), QStringLiteral("xcb"));
    m_portal = std::make_unique<Portal>();
    QVERIFY(m_portal->waitReady());
    QVERIFY(m_portal->set(QStringLiteral("color-scheme u 2"))); // light
    VXAppearance::followDesktopAppearance();
    QTRY_VERIFY_WITH_TIMEOUT(!VXAppearance::applicationIsDark(), kPatience);
}

void TestAppearanceWindow::followsThePortalWithoutRestart()
{
    QWidget window;
    auto *local = new Swatch(VXDynamicColor::lightColor(kLight, kDark), &window);
    auto *global = new Swatch(VXDynamicColor::lightColor(kLight, kDark, true), &window);
    global->move(60, 0);
    Observer observer;
    VXViewExtensions::registerDarkModeNotifications(&observer, SLOT(darkModeChanged()));
    window.show();
    QVERIFY(QTest::qWaitForWindowExposed(&window, kPatience));
    QTRY_VERIFY_WITH_TIMEOUT(sameShown(shownAtCentre(local), kLight), kPatience);
    QTRY_VERIFY_WITH_TIMEOUT(sameShown(shownAtCentre(global), kLight), kPatience);

    QVERIFY(m_portal->set(QStringLiteral("color-scheme u 1"))); // dark
    QTRY_VERIFY_WITH_TIMEOUT(sameShown(shownAtCentre(local), kDark), kPatience);
    QTRY_VERIFY_WITH_TIMEOUT(sameShown(shownAtCentre(global), kDark), kPatience);
    QVERIFY(VXAppearance::applicationIsDark());
    // At least once: on a busy machine the set-up's own change to light can
    // arrive after the observer registered.
    QTRY_VERIFY_WITH_TIMEOUT(observer.changes >= 1, kPatience);

    VXViewExtensions::unregisterDarkModeNotifications(&observer);
    const int heard = observer.changes;
    QVERIFY(m_portal->set(QStringLiteral("color-scheme u 2")));
    QTRY_VERIFY_WITH_TIMEOUT(sameShown(shownAtCentre(local), kLight), kPatience);
    QTRY_VERIFY_WITH_TIMEOUT(sameShown(shownAtCentre(global), kLight), kPatience);
    QCOMPARE(observer.changes, heard);
}

void TestAppearanceWindow::accentFromThePortal_data()
{
    QTest::addColumn<QString>("rgb");
    QTest::addColumn<QVariant>("setting"); // "AppleAccentColor"
    QTest::addColumn<QString>("name");
    QTest::newRow("red") << "0.88 0.11 0.14" << QVariant() << "Red";
    QTest::newRow("teal is nearest to blue") << "0.13 0.56 0.64" << QVariant() << "Blue";
    QTest::newRow("slate grey") << "0.44 0.48 0.50" << QVariant() << "Graphite";
    QTest::newRow("the user default first") << "0.88 0.11 0.14" << QVariant(5) << "Purple";
    QTest::newRow("an unknown user default: Blue") << "0.88 0.11 0.14" << QVariant(9) << "Blue";
}

void TestAppearanceWindow::accentFromThePortal()
{
    QFETCH(QString, rgb);
    QFETCH(QVariant, setting);
    QFETCH(QString, name);
    VXUserDefaults::standard().setObject(setting, QStringLiteral("AppleAccentColor"));
    LogCapture quiet;
    QVERIFY(m_portal->set(QStringLiteral("accent-color rgb ") + rgb));
    QTRY_COMPARE_WITH_TIMEOUT(VXDynamicColor::accentColorName(), name, kPatience);
    VXUserDefaults::standard().removeObject(QStringLiteral("AppleAccentColor"));
}

void TestAppearanceWindow::installerWindowDarkWithItsReadMeLight()
{
    QVERIFY(m_portal->set(QStringLiteral("color-scheme u 1")));
    QTRY_VERIFY_WITH_TIMEOUT(VXAppearance::isDarkPalette(QApplication::palette()), kPatience);
    ProductFixture fixture(QStringLiteral("Sample"));
    LogCapture quiet;
    InstallerWinController c(fixture.options(
        { "-readMePath", QStringLiteral(QUILLET_SOURCE_DIR "/examples/sample/ReadMe.rtf") }));
    c.awakeFromNib();
    QWidget *window = c.window();
    QVERIFY(QTest::qWaitForWindowExposed(window, kPatience));
    QWidget *readMe = c.readMeTextView()->viewport();
    QTRY_VERIFY2_WITH_TIMEOUT(
        backgroundOf(window).lightness() < 80, qPrintable(backgroundOf(window).name()), kPatience);
    QTRY_VERIFY2_WITH_TIMEOUT(
        backgroundOf(readMe).lightness() > 240, qPrintable(backgroundOf(readMe).name()), kPatience);
    // The product's name, styled by a style sheet, is written light on dark.
    QTRY_VERIFY_WITH_TIMEOUT(lightnessRange(c.nameField()).second > 200, kPatience);
    screenshot(window, QStringLiteral("installer-dark.png"));

    // Back to light, the window with it; the read-me was light all along.
    QVERIFY(m_portal->set(QStringLiteral("color-scheme u 2")));
    QTRY_VERIFY2_WITH_TIMEOUT(
        backgroundOf(window).lightness() > 200, qPrintable(backgroundOf(window).name()), kPatience);
    QVERIFY(backgroundOf(readMe).lightness() > 240);
    QTRY_VERIFY_WITH_TIMEOUT(lightnessRange(c.nameField()).first < 80, kPatience);
    screenshot(window, QStringLiteral("installer-light.png"));
}

QTEST_MAIN(TestAppearanceWindow)
#include "tst_appearancewindow.moc"

// SPDX-FileCopyrightText: 2026 Quillet developers
// SPDX-License-Identifier: MIT
//
// View extensions on widgets shown on a private X server.
#include "appearance/vxappearance.h"
#include "appearance/vxviewextensions.h"
#include "swatch.h"

#include <QApplication>
#include <QGraphicsRectItem>
#include <QGraphicsScene>
#include <QGraphicsView>
#include <QScrollArea>
#include <QScrollBar>
#include <QTest>

using namespace VXViewExtensions;

namespace {

// A 200 x 200 view onto a 400 x 1000 page, scrolled to (50, 300), with a
// 10 x 10 child at y 600 of the page.
struct Page
{
    QScrollArea area;
    QWidget *page = new QWidget;
    QWidget *child = new QWidget(page);

    Page()
    {
        area.setFrameShape(QFrame::NoFrame);
        area.setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
        area.setVerticalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
        page->resize(400, 1000);
        child->setGeometry(0, 600, 10, 10);
        area.setWidget(page);
        area.resize(200, 200);
        area.show();
        area.horizontalScrollBar()->setValue(50);
        area.verticalScrollBar()->setValue(300);
    }
    int x() const { return area.horizontalScrollBar()->value(); }
    int y() const { return area.verticalScrollBar()->value(); }
};

QWidget *filled(QWidget *parent, const QColor &colour, const QRect &geometry)
{
    auto *w = new QWidget(parent);
    w->setAutoFillBackground(true);
    QPalette p = w->palette();
    p.setColor(QPalette::Window, colour);
    w->setPalette(p);
    w->setGeometry(geometry);
    return w;
}

} // namespace

class TestViewExtensions : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void animatedVerticalScroll_data();
    void animatedVerticalScroll();
    void plainAndPointScrolls();
    void lightAppearanceInsideADarkWindow();
    void wrapInVisualEffectView();
    void scale_data();
    void scale();
};

void TestViewExtensions::animatedVerticalScroll_data()
{
    QTest::addColumn<bool>("inChild");
    QTest::addColumn<QRectF>("rect");
    QTest::addColumn<bool>("preferTop");
    QTest::addColumn<bool>("scrolls");
    QTest::addColumn<int>("y");

    // The visible part of the page is y 300 to 500.
    QTest::newRow("inside") << false << QRectF(0, 350, 10, 50) << false << false << 300;
    QTest::newRow("above") << false << QRectF(0, 250, 10, 20) << false << true << 250;
    QTest::newRow("below") << false << QRectF(0, 520, 10, 30) << false << true << 350;
    QTest::newRow("far edge on the visible edge, by 0")
        << false << QRectF(0, 450, 10, 50) << false << true << 300;
    QTest::newRow("taller, preferTop: ends at its high-y edge")
        << false << QRectF(0, 100, 10, 500) << true << true << 400;
    QTest::newRow("taller: starts at its origin")
        << false << QRectF(0, 100, 10, 500) << false << true << 100;
    QTest::newRow("a child's rectangle, below")
        << true << QRectF(0, 0, 10, 10) << false << true << 410;
    QTest::newRow("fractional, rounded")
        << false << QRectF(0, 100.4, 10, 10) << false << true << 100;
}

void TestViewExtensions::animatedVerticalScroll()
{
    QFETCH(bool, inChild);
    QFETCH(QRectF, rect);
    QFETCH(bool, preferTop);
    QFETCH(bool, scrolls);
    QFETCH(int, y);

    Page page;
    QVERIFY(QTest::qWaitForWindowExposed(&page.area, kPatience));
    QCOMPARE(page.y(), 300);
    QCOMPARE(animatedVerticalScrollRectToVisible(inChild ? page.child : page.page, rect, preferTop),
        scrolls);
    if (!scrolls) {
        QCOMPARE(page.x(), 50);
        QCOMPARE(page.y(), 300);
        return;
    }
    // The horizontal origin goes to 0 with every scroll.
    QTRY_COMPARE_WITH_TIMEOUT(page.x(), 0, kPatience);
    QTRY_COMPARE_WITH_TIMEOUT(page.y(), y, kPatience);
}

void TestViewExtensions::plainAndPointScrolls()
{
    Page page;
    QVERIFY(QTest::qWaitForWindowExposed(&page.area, kPatience));
    QVERIFY(!scrollRectToVisible(page.page, QRectF(60, 320, 20, 20), true)); // visible already
    // Not animated, whatever is asked: done on return.
    QVERIFY(scrollRectToVisible(page.child, QRectF(0, 0, 10, 10), true));
    QCOMPARE(page.y(), 410);
    // A point is kept inside the scroll range; a later scroll replaces one
    // under way, and one after a finished scroll starts afresh.
    scrollPointAnimated(page.child, QPointF(10, 10));
    scrollPointAnimated(page.child, QPointF(900, -1));
    QTRY_COMPARE_WITH_TIMEOUT(QPoint(page.x(), page.y()), QPoint(200, 0), kPatience);
    scrollPointAnimated(page.child, QPointF(20, 5000));
    QTRY_COMPARE_WITH_TIMEOUT(QPoint(page.x(), page.y()), QPoint(20, 800), kPatience);
    QWidget loose;
    QVERIFY(!scrollRectToVisible(&loose, QRectF(0, 0, 1, 1), false)); // no scroll area
}

void TestViewExtensions::lightAppearanceInsideADarkWindow()
{
    QApplication::setPalette(VXAppearance::darkPalette());
    QWidget window;
    auto *view = new QWidget(&window);
    auto *inside = new QWidget(view);
    QVERIFY(VXAppearance::widgetIsDark(inside));
    useLightAquaAppearance(view, true);
    QVERIFY(!VXAppearance::widgetIsDark(view));
    QVERIFY(!VXAppearance::widgetIsDark(inside));
    QVERIFY(VXAppearance::widgetIsDark(&window));
    useLightAquaAppearance(view, false);
    QVERIFY(VXAppearance::widgetIsDark(inside));
    // and follows the application again
    QApplication::setPalette(QPalette());
    // top-level windows hear of it queued
    QTRY_VERIFY_WITH_TIMEOUT(!VXAppearance::widgetIsDark(inside), kPatience);
}

void TestViewExtensions::wrapInVisualEffectView()
{
    QWidget parent;
    QWidget *view = filled(&parent, Qt::red, QRect(10, 20, 100, 50));
    filled(&parent, Qt::blue, QRect(200, 200, 20, 20));
    parent.show();
    QVERIFY(QTest::qWaitForWindowExposed(&parent, kPatience));
    QVERIFY(!enclosingVisualEffectView(view));

    VXVisualEffectView *effect = VXViewExtensions::wrapInVisualEffectView(view);
    QCOMPARE(effect->parentWidget(), &parent);
    QCOMPARE(effect->geometry(), QRect(10, 20, 100, 50));
    QCOMPARE(view->parentWidget(), effect);
    QCOMPARE(view->geometry(), QRect(0, 0, 100, 50));
    QVERIFY(view->isVisible() && effect->isVisible());
    QCOMPARE(parent.children().last(), effect); // on top of the former siblings
    QCOMPARE(enclosingVisualEffectView(view), effect);
    QVERIFY(!effect->isBlurringBehind()); // no compositor here: opaque
    QCOMPARE(VXViewExtensions::wrapInVisualEffectView(view), effect);
    QVERIFY(!enclosingVisualEffectView(new QWidget(view))); // only the direct parent counts

    // Without a parent: wrapped all the same, and added nowhere.
    QWidget loose;
    loose.setGeometry(30, 40, 70, 80);
    std::unique_ptr<VXVisualEffectView> wrapper(VXViewExtensions::wrapInVisualEffectView(&loose));
    QVERIFY(!wrapper->parentWidget() && !wrapper->isVisible());
    QCOMPARE(loose.parentWidget(), wrapper.get());
    QCOMPARE(wrapper->geometry(), QRect(30, 40, 70, 80));
    loose.setParent(nullptr); // the test's own
}

void TestViewExtensions::scale_data()
{
    QTest::addColumn<bool>("graphics");
    QTest::addColumn<QList<double>>("steps"); // setScale() each; 0 resets
    QTest::addColumn<double>("scale");
    for (bool graphics : { true, false }) {
        const QByteArray kind = graphics ? "graphics view, " : "plain widget, ";
        QTest::newRow(kind + "unscaled") << graphics << QList<double> {} << 1.0;
        QTest::newRow(kind + "2.0 twice") << graphics << QList<double> { 2.0, 2.0 } << 2.0;
        QTest::newRow(kind + "3.0 then 0.5") << graphics << QList<double> { 3.0, 0.5 } << 0.5;
        QTest::newRow(kind + "2.0, reset") << graphics << QList<double> { 2.0, 0 } << 1.0;
        QTest::newRow(kind + "not positive, ignored")
            << graphics << QList<double> { 2.0, -1.0, qQNaN() } << 2.0;
    }
}

void TestViewExtensions::scale()
{
    QFETCH(bool, graphics);
    QFETCH(QList<double>, steps);
    QFETCH(double, scale);

    QGraphicsScene scene(0, 0, 100, 100);
    scene.addRect(0, 0, 10, 10, Qt::NoPen, Qt::red);
    QGraphicsView graphicsView(&scene);
    QWidget plain;
    QWidget *view = graphics ? static_cast<QWidget *>(&graphicsView) : &plain;
    for (double step : steps) {
        if (step == 0)
            resetScaling(view);
        else
            setScale(view, step);
    }
    QCOMPARE(VXViewExtensions::scale(view), scale);
    if (!graphics)
        return;
    // What the view draws: the 10-unit square as scale x 10 pixels.
    graphicsView.setFrameShape(QFrame::NoFrame);
    graphicsView.setAlignment(Qt::AlignLeft | Qt::AlignTop);
    graphicsView.resize(300, 300);
    const QImage image = graphicsView.grab().toImage();
    int red = 0;
    while (red < image.width() && image.pixelColor(red, 2) == QColor(Qt::red))
        ++red;
    QCOMPARE(red, qRound(10 * scale));
}

QTEST_MAIN(TestViewExtensions)
#include "tst_viewextensions.moc"

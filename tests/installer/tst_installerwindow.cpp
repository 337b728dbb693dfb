// SPDX-FileCopyrightText: 2026 Quillet developers
// SPDX-License-Identifier: MIT
//
// The installer window on a real X server with a window manager.
#include "common/logcapture.h"
#include "installerfixture.h"
#include "utilities/vxlocalization.h"
#include "utilities/vxutilities.h"

#include <QAbstractButton>
#include <QApplication>
#include <QLabel>
#include <QMessageBox>
#include <QPushButton>
#include <QScreen>
#include <QSignalSpy>
#include <QTabBar>
#include <QTabWidget>
#include <QTest>
#include <QTextEdit>
#include <QWindow>
#include <memory>

namespace {
QString screenshotFolder()
{
    const QString folder = QStringLiteral(QUILLET_BINARY_DIR "/screenshots");
    QDir().mkpath(folder);
    return folder;
}

// What the X server shows of the window, decorations included.
QImage screenshot(QWidget *window, const QString &name)
{
    QScreen *screen = window->screen();
    const QRect frame = window->frameGeometry();
    const QImage image
        = screen->grabWindow(0, frame.x(), frame.y(), frame.width(), frame.height()).toImage();
    image.save(screenshotFolder() + QLatin1Char('/') + name);
    return image;
}
} // namespace

class TestInstallerWindow : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void initTestCase();
    void showsProductWindow();
    void systemVersionGate_data();
    void systemVersionGate();

private:
    QString m_browserLog;
};

void TestInstallerWindow::initTestCase()
{
    QCOMPARE(QGuiApplication::platformName(), QStringLiteral("xcb"));
    // The browser is a script that writes down what it was asked to open.
    m_browserLog = QDir::homePath() + QLatin1String("/browser.log");
    const QString browser = QDir::homePath() + QLatin1String("/browser.sh");
    writeFile(browser, ("#!/bin/sh\necho \"$1\" >> '" + m_browserLog + "'\n").toUtf8());
    QFile::setPermissions(browser, QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
    qputenv("BROWSER", browser.toUtf8());
    vxInstallTranslations(
        QStringLiteral(QUILLET_BINARY_DIR "/QuilletInstaller.app/Contents/Resources"));
}

void TestInstallerWindow::showsProductWindow()
{
    // The sample's read-me first, then (a real click on "Continue") the
    // install page; texts are checked by the set-up tests, here what the
    // screen shows.
    ProductFixture fixture(QStringLiteral("Sample"));
    QImage icon(128, 128, QImage::Format_ARGB32);
    icon.fill(QColor(220, 30, 30));
    icon.save(fixture.path("icon.png"));
    LogCapture quiet;
    InstallerWinController c(fixture.options({ "-iconPath", fixture.path("icon.png"), "-readMePath",
        QStringLiteral(QUILLET_SOURCE_DIR "/examples/sample/ReadMe.rtf") }));
    c.awakeFromNib();
    QWidget *window = c.window();
    QVERIFY(QTest::qWaitForWindowExposed(window));
    QTRY_VERIFY(window->isActiveWindow());
    QVERIFY(c.readMeTextView()->isVisible());
    QVERIFY(c.readMeTextView()->toPlainText().startsWith(QStringLiteral("Welcome to Sample 1.0")));
    // The read-me stays light whatever the desktop's theme.
    QCOMPARE(c.readMeTextView()->palette().color(QPalette::Base), QColor(Qt::white));
    QTest::qWait(200);
    screenshot(window, QStringLiteral("installer-readme.png"));

    QTest::mouseClick(c.installButton(), Qt::LeftButton);
    QCOMPARE(c.tabView()->currentIndex(), 1);
    QVERIFY(c.pathField()->isVisible() && c.nameField()->isVisible());
    QVERIFY(c.installButton()->isVisible() && c.installButton()->isEnabled());
    QVERIFY(c.cancelButton()->isVisible());
    QVERIFY(!c.helpButton()->isVisible());
    QVERIFY(!c.checkmarkField()->isVisible() && !c.messageField()->isVisible());
    QVERIFY(!c.tabView()->tabBar()->isVisible()); // pages without tabs
    // The icon's red where the icon is.
    QTest::qWait(200);
    const QImage shot = screenshot(window, QStringLiteral("installer-window.png"));
    QVERIFY(!shot.isNull());
    const QPoint iconCentre = c.iconField()->mapTo(window, c.iconField()->rect().center())
        + (window->geometry().topLeft() - window->frameGeometry().topLeft());
    const QColor seen = shot.pixelColor(iconCentre);
    QVERIFY2(seen.red() > 180 && seen.green() < 80 && seen.blue() < 80, qPrintable(seen.name()));
}

void TestInstallerWindow::systemVersionGate_data()
{
    // clang-format off
    QTest::addColumn<QString>("minimum");
    QTest::addColumn<QString>("button"); // empty: no sheet
    QTest::newRow("too old, Quit") << "999.0" << "Quit";
    QTest::newRow("too old, Visit Archive") << "999.0" << "Visit Archive";
    QTest::newRow("equal to the minimum") << VXUtilities::systemVersionString() << "";
    // clang-format on
}

void TestInstallerWindow::systemVersionGate()
{
    QFETCH(QString, minimum);
    QFETCH(QString, button);
    QFile::remove(m_browserLog);
    ProductFixture fixture;
    LogCapture quiet;
    InstallerWinController c(fixture.options({ "-minSystemVersion", minimum }));
    c.awakeFromNib();
    QVERIFY(QTest::qWaitForWindowExposed(c.window()));
    if (button.isEmpty()) {
        QTest::qWait(100);
        QVERIFY(!c.window()->findChild<QMessageBox *>());
        return;
    }
    QMessageBox *sheet = nullptr;
    QTRY_VERIFY((sheet = c.window()->findChild<QMessageBox *>(QStringLiteral("systemVersionAlert")))
        && sheet->isVisible());
    QCOMPARE(sheet->windowModality(), Qt::WindowModal);
    QCOMPARE(sheet->text(),
        QStringLiteral("Foo 2.0 cannot be installed on this computer because it requires Linux "
                       "999.0 or newer."));
    QCOMPARE(sheet->informativeText(),
        QStringLiteral("To check if an older version of Foo is available for your computer, please "
                       "visit our software archive."));
    QVERIFY(!sheet->iconPixmap().isNull());
    QTest::qWait(200);
    screenshot(sheet, QStringLiteral("installer-system-too-old.png"));

    // Either button quits; the second opens the archive first.
    QSignalSpy quitting(&c, &InstallerWinController::terminating);
    QCOMPARE(sheet->buttons().size(), 2);
    for (QAbstractButton *b : sheet->buttons())
        if (b->text() == button)
            b->click();
    QTRY_COMPARE(quitting.size(), 1);
    if (button == QLatin1String("Quit")) {
        QVERIFY(!QFile::exists(m_browserLog));
        return;
    }
    QTRY_VERIFY(QFile::exists(m_browserLog));
    const QUrl opened(QString::fromUtf8(readFile(m_browserLog).trimmed()));
    QCOMPARE(opened.scheme(), QStringLiteral("https"));
    QCOMPARE(opened.path(), QStringLiteral("/downloads/archive/"));
}

QTEST_MAIN(TestInstallerWindow)
#include "tst_installerwindow.moc"

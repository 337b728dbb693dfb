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
    void showsReadMePageFromRtf();
    void systemTooOldShowsSheet();
    void systemVersionEqualToMinimumShowsNoSheet();
    void visitArchiveOpensBrowserAndQuits();

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
    ProductFixture fixture;
    QImage icon(128, 128, QImage::Format_ARGB32);
    icon.fill(QColor(220, 30, 30));
    icon.save(fixture.path("icon.png"));
    LogCapture quiet;
    InstallerWinController c(fixture.options(
        { "-productName", "Foo", "-version", "2.1", "-iconPath", fixture.path("icon.png") }));
    c.awakeFromNib();
    QWidget *window = c.window();
    QVERIFY(QTest::qWaitForWindowExposed(window));
    QTRY_VERIFY(window->isActiveWindow());

    QCOMPARE(window->windowTitle(), QStringLiteral("Foo Installer"));
    QCOMPARE(c.nameField()->text(), QStringLiteral("Foo 2.1"));
    QCOMPARE(c.introField()->text(), QStringLiteral("This will install Foo on your computer."));
    QCOMPARE(c.pathField()->text(), fixture.applications + QLatin1String("/Foo.app"));
    QVERIFY(c.pathField()->isVisible());
    QCOMPARE(c.installButton()->text(), QStringLiteral("Install"));
    QVERIFY(c.installButton()->isVisible() && c.installButton()->isEnabled());
    QCOMPARE(c.cancelButton()->text(), QStringLiteral("Cancel"));
    QVERIFY(c.cancelButton()->isVisible());
    QVERIFY(!c.helpButton()->isVisible());
    QVERIFY(!c.checkmarkField()->isVisible() && !c.messageField()->isVisible());
    QVERIFY(!c.tabView()->tabBar()->isVisible()); // pages without tabs

    // The screen really shows it: the icon's red where the icon is.
    QTest::qWait(200);
    const QImage shot = screenshot(window, QStringLiteral("installer-window.png"));
    QVERIFY(!shot.isNull());
    const QPoint iconCentre = c.iconField()->mapTo(window, c.iconField()->rect().center())
        + (window->geometry().topLeft() - window->frameGeometry().topLeft());
    const QColor seen = shot.pixelColor(iconCentre);
    QVERIFY2(seen.red() > 180 && seen.green() < 80 && seen.blue() < 80, qPrintable(seen.name()));
}

void TestInstallerWindow::showsReadMePageFromRtf()
{
    ProductFixture fixture(QStringLiteral("Sample"));
    LogCapture quiet;
    InstallerWinController c(fixture.options(
        { "-readMePath", QStringLiteral(QUILLET_SOURCE_DIR "/examples/sample/ReadMe.rtf") }));
    c.awakeFromNib();
    QVERIFY(QTest::qWaitForWindowExposed(c.window()));
    QCOMPARE(c.tabView()->currentIndex(), 0);
    QVERIFY(c.readMeTextView()->isVisible());
    QVERIFY(c.readMeTextView()->toPlainText().startsWith(QStringLiteral("Welcome to Sample 1.0")));
    QCOMPARE(c.installButton()->text(), QStringLiteral("Continue"));
    QCOMPARE(c.cancelButton()->text(), QStringLiteral("Cancel"));
    // The read-me stays light whatever the desktop's theme.
    QCOMPARE(c.readMeTextView()->palette().color(QPalette::Base), QColor(Qt::white));
    QTest::qWait(200);
    screenshot(c.window(), QStringLiteral("installer-readme.png"));
    QTest::mouseClick(c.installButton(), Qt::LeftButton);
    QCOMPARE(c.tabView()->currentIndex(), 1);
    QCOMPARE(c.cancelButton()->text(), QStringLiteral("Go Back"));
}

void TestInstallerWindow::systemTooOldShowsSheet()
{
    ProductFixture fixture;
    LogCapture quiet;
    InstallerWinController c(fixture.options({ "-minSystemVersion", "999.0" }));
    c.awakeFromNib();
    QVERIFY(QTest::qWaitForWindowExposed(c.window()));
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
    QCOMPARE(sheet->buttons().size(), 2);
    QVERIFY(!sheet->iconPixmap().isNull());
    QTest::qWait(200);
    screenshot(sheet, QStringLiteral("installer-system-too-old.png"));

    QSignalSpy quitting(&c, &InstallerWinController::terminating);
    QPushButton *quit = nullptr;
    for (QAbstractButton *b : sheet->buttons())
        if (b->text() == QLatin1String("Quit"))
            quit = qobject_cast<QPushButton *>(b);
    QVERIFY(quit);
    quit->click();
    QTRY_COMPARE(quitting.size(), 1);
    QVERIFY(!QFile::exists(m_browserLog));
}

void TestInstallerWindow::systemVersionEqualToMinimumShowsNoSheet()
{
    ProductFixture fixture;
    LogCapture quiet;
    InstallerWinController c(
        fixture.options({ "-minSystemVersion", VXUtilities::systemVersionString() }));
    c.awakeFromNib();
    QVERIFY(QTest::qWaitForWindowExposed(c.window()));
    QTest::qWait(100);
    QVERIFY(!c.window()->findChild<QMessageBox *>());
}

void TestInstallerWindow::visitArchiveOpensBrowserAndQuits()
{
    ProductFixture fixture;
    LogCapture quiet;
    InstallerWinController c(fixture.options({ "-minSystemVersion", "999" }));
    c.awakeFromNib();
    QMessageBox *sheet = nullptr;
    QTRY_VERIFY((sheet = c.window()->findChild<QMessageBox *>()) && sheet->isVisible());
    QSignalSpy quitting(&c, &InstallerWinController::terminating);
    for (QAbstractButton *b : sheet->buttons())
        if (b->text() == QLatin1String("Visit Archive"))
            b->click();
    QTRY_COMPARE(quitting.size(), 1);
    QTRY_VERIFY(QFile::exists(m_browserLog));
    QFile log(m_browserLog);
    QVERIFY(log.open(QIODevice::ReadOnly));
    const QUrl opened(QString::fromUtf8(log.readAll().trimmed()));
    QCOMPARE(opened.scheme(), QStringLiteral("https"));
    QCOMPARE(opened.path(), QStringLiteral("/downloads/archive/"));
}

QTEST_MAIN(TestInstallerWindow)
#include "tst_installerwindow.moc"

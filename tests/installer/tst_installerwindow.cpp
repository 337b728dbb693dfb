// SPDX-FileCopyrightText: 2026 Quillet developers
// SPDX-License-Identifier: MIT
//
// The installer window on a real X server with a window manager.
#include "common/logcapture.h"
#include "installerfixture.h"
#include "utilities/vxlocalization.h"
#include "utilities/vxutilities.h"

#include <QAbstractButton>
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

namespace {
// What the X server shows of the window, decorations included; kept beside
// the build for the documentation.
QImage screenshot(QWidget *window, const QString &name)
{
    QTest::qWait(200);
    const QRect frame = window->frameGeometry();
    const QImage image = window->screen()
                             ->grabWindow(0, frame.x(), frame.y(), frame.width(), frame.height())
                             .toImage();
    QDir().mkpath(QUILLET_BINARY_DIR "/screenshots");
    image.save(QUILLET_BINARY_DIR "/screenshots/" + name);
    return image;
}
} // namespace

class TestInstallerWindow : public QObject
{
    Q_OBJECT
    const QString m_browserLog = QDir::homePath() + "/browser.log";

private Q_SLOTS:
    void initTestCase()
    {
        QCOMPARE(QGuiApplication::platformName(), QStringLiteral("xcb"));
        // The browser is a script that writes down what it was asked to open.
        const QString browser = QDir::homePath() + "/browser.sh";
        writeFile(browser, ("#!/bin/sh\necho \"$1\" >> '" + m_browserLog + "'\n").toUtf8(), true);
        qputenv("BROWSER", browser.toUtf8());
        vxInstallTranslations(QUILLET_BINARY_DIR "/QuilletInstaller.app/Contents/Resources");
    }

    void showsProductWindow()
    {
        // The sample's read-me first, then (a real click on "Continue") the
        // install page; texts are checked by the set-up tests, here what the
        // screen shows.
        ProductFixture fixture("Sample");
        QImage icon(128, 128, QImage::Format_ARGB32);
        icon.fill(QColor(220, 30, 30));
        icon.save(fixture.path("icon.png"));
        const auto c = fixture.setUp({ "-iconPath", fixture.path("icon.png"), "-readMePath",
            QUILLET_SOURCE_DIR "/examples/sample/ReadMe.rtf" });
        QWidget *window = c->window();
        QVERIFY(QTest::qWaitForWindowExposed(window));
        QTRY_VERIFY(window->isActiveWindow());
        QVERIFY(c->readMeTextView()->isVisible());
        QVERIFY(c->readMeTextView()->toPlainText().startsWith("Welcome to Sample 1.0"));
        // The read-me stays light whatever the desktop's theme.
        QCOMPARE(c->readMeTextView()->palette().color(QPalette::Base), QColor(Qt::white));
        screenshot(window, "installer-readme.png");

        QTest::mouseClick(c->installButton(), Qt::LeftButton);
        QCOMPARE(c->tabView()->currentIndex(), 1);
        for (QWidget *shown : std::initializer_list<QWidget *> {
                 c->pathField(), c->nameField(), c->installButton(), c->cancelButton() })
            QVERIFY(shown->isVisible() && shown->isEnabled());
        // Pages without tabs.
        for (QWidget *hidden : std::initializer_list<QWidget *> {
                 c->helpButton(), c->checkmarkField(), c->messageField(), c->tabView()->tabBar() })
            QVERIFY(!hidden->isVisible());
        // The icon's red where the icon is.
        const QImage shot = screenshot(window, "installer-window.png");
        const QPoint iconCentre = c->iconField()->mapTo(window, c->iconField()->rect().center())
            + (window->geometry().topLeft() - window->frameGeometry().topLeft());
        const QColor seen = shot.pixelColor(iconCentre);
        QVERIFY2(
            seen.red() > 180 && seen.green() < 80 && seen.blue() < 80, qPrintable(seen.name()));
    }

    void systemVersionGate_data()
    {
        // clang-format off
        QTest::addColumn<QString>("minimum");
        QTest::addColumn<QString>("button"); // empty: no sheet
        QTest::newRow("too old, Quit") << "999.0" << "Quit";
        QTest::newRow("too old, Visit Archive") << "999.0" << "Visit Archive";
        QTest::newRow("equal to the minimum") << VXUtilities::systemVersionString() << "";
        // clang-format on
    }

    void systemVersionGate()
    {
        QFETCH(QString, minimum);
        QFETCH(QString, button);
        QFile::remove(m_browserLog);
        ProductFixture fixture;
        const auto c = fixture.setUp({ "-minSystemVersion", minimum });
        QVERIFY(QTest::qWaitForWindowExposed(c->window()));
        auto *sheet = c->window()->findChild<QMessageBox *>("systemVersionAlert");
        QCOMPARE(sheet != nullptr, !button.isEmpty());
        if (!sheet)
            return;
        QTRY_VERIFY(sheet->isVisible());
        QCOMPARE(sheet->windowModality(), Qt::WindowModal);
        QCOMPARE(sheet->text(),
            "Foo 2.0 cannot be installed on this computer because it requires Linux 999.0 or "
            "newer.");
        QCOMPARE(sheet->informativeText(),
            "To check if an older version of Foo is available for your computer, please visit our "
            "software archive.");
        QVERIFY(!sheet->iconPixmap().isNull());
        screenshot(sheet, "installer-system-too-old.png");

        // Either button quits; the second opens the archive first.
        QSignalSpy quitting(c.get(), &InstallerWinController::terminating);
        QCOMPARE(sheet->buttons().size(), 2);
        for (QAbstractButton *b : sheet->buttons())
            if (b->text() == button)
                b->click();
        QTRY_COMPARE(quitting.size(), 1);
        QTRY_COMPARE(QFile::exists(m_browserLog), button != "Quit");
        if (button == "Quit")
            return;
        const QUrl opened(QString::fromUtf8(readFile(m_browserLog).trimmed()));
        QCOMPARE(opened.scheme(), QStringLiteral("https"));
        QCOMPARE(opened.path(), QStringLiteral("/downloads/archive/"));
    }
};

QTEST_MAIN(TestInstallerWindow)
#include "tst_installerwindow.moc"

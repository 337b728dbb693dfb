// SPDX-FileCopyrightText: 2026 Quillet developers
// SPDX-License-Identifier: MIT
//
// The installation run: the buttons, the background thread, the final
// message, the completion sound and the delayed quit.
#include "extensions/stringextensions.h"
#include "installerwincontroller.h"
#include "utilities/vxbundle.h"
#include "utilities/vxlocalization.h"
#include "utilities/vxlog.h"
#include "utilities/vxuserdefaults.h"

#include <QAbstractButton>
#include <QApplication>
#include <QDesktopServices>
#include <QFileInfo>
#include <QLabel>
#include <QProgressBar>
#include <QPushButton>
#include <QTabWidget>
#include <QTimer>
#include <QUrl>
#include <thread>
#include <unistd.h>

namespace {
const char *const kCannotBeRunning = QT_TRANSLATE_NOOP("Quillet",
    "%1$@ cannot be running during the installation.\rQuit %1$@, then click \"Install\" again.");
const char *const kTryManually = QT_TRANSLATE_NOOP(
    "Quillet", "Try installing %1$@ manually by copying it to the Applications folder.");
const char *const kSuccess = QT_TRANSLATE_NOOP("Quillet", "%@ was successfully installed.");

// Messages separate their lines with a carriage return; labels show it as a
// line break.
QString displayText(QString text)
{
    return text.replace(QLatin1Char('\r'), QLatin1Char('\n'));
}
} // namespace

void InstallerWinController::install()
{
    if (m_finished) {
        terminate();
        return;
    }
    if (m_tabView->currentIndex() == 0) {
        selectTab(1);
        return;
    }
    m_installButton->setEnabled(false);
    m_cancelButton->setEnabled(false);
    recordOptionKey();
    // Detached: closing the window quits without waiting for the run.
    std::thread([this] { installThread(); }).detach();
}

void InstallerWinController::cancel()
{
    if (m_arguments.contains(QStringLiteral("readMePath")) && m_tabView->currentIndex() == 1) {
        selectTab(0);
        return;
    }
    terminate();
}

void InstallerWinController::installThread()
{
    const QString productName = argument(QStringLiteral("productName"));
    vxLog(QStringLiteral("Install"));
    QMetaObject::invokeMethod(
        this, [this] { animateProgress(true); }, Qt::QueuedConnection);

    quitProcesses();
    QString running = processToQuitStillRunning();
    if (!running.isNull()) {
        vxLog(QStringLiteral("%@ did not quit; will retry"), running);
        for (int attempt = 0; attempt < 3 && !running.isNull(); ++attempt) {
            ::usleep(1000000);
            quitProcesses();
            running = processToQuitStillRunning();
        }
    }
    running = processToQuitStillRunning();

    QString result;
    if (!running.isNull()) {
        vxLog(QStringLiteral("%@ refused to quit; installation cancelled"), running);
        result = vxLocalizedFormat(QString::fromUtf8(kCannotBeRunning), running);
    } else {
        const QString error = installMyselfInDestination();
        if (error.isNull()) {
            result = QString();
        } else if (error.isEmpty()) {
            result = QStringLiteral(""); // the user cancelled the password dialog
        } else {
            result = vxLocalizedFormat(error, productName);
            if (!m_arguments.contains(QStringLiteral("wrapperPath")))
                result += vxFormat(QStringLiteral("\r%@"),
                    vxLocalizedFormat(QString::fromUtf8(kTryManually), productName));
        }
    }
    QMetaObject::invokeMethod(
        this, [this, result] { installationFinished(result); }, Qt::QueuedConnection);
}

void InstallerWinController::installationFinished(const QString &errorText)
{
    if (!errorText.isNull()) {
        // The field stays hidden as it has been since set-up: a failure shows
        // as the re-enabled buttons and in the log. Intended.
        m_messageField->setText(displayText(errorText));
        m_cancelButton->setEnabled(true);
    } else {
        showFinalMessage(QString::fromUtf8(kSuccess));
        m_checkmarkField->setVisible(true);
        m_cancelButton->setVisible(false);
        m_cancelButton->setEnabled(false);
        if (!VXUserDefaults::standard().boolForKey(QStringLiteral("nosound")))
            playDoneSound();
    }
    m_installButton->setEnabled(true);
    animateProgress(false);

    if (m_arguments.contains(QStringLiteral("completionQuit"))) {
        // Read as a float value: the leading number ("2.5s" is 2.5, "3,5" is
        // 3), 0 when there is none.
        const double delay
            = StringExtensions::floatValue(argument(QStringLiteral("completionQuit")));
        vxLog(QStringLiteral("quit delay: %1.1f"), delay);
        if (delay > 0)
            QTimer::singleShot(qRound64(delay * 1000), this, [this] { terminate(); });
    }
    Q_EMIT runFinished(errorText);
}

void InstallerWinController::showFinalMessage(const QString &format)
{
    m_cancelButton->setVisible(false);
    m_installButton->setText(vxLocalized(QT_TRANSLATE_NOOP("Quillet", "OK")));
    m_pathField->setVisible(false);
    m_messageField->setVisible(false);
    m_helpButton->setVisible(false);
    if (QWidget *label = m_window->findChild<QWidget *>(QStringLiteral("destinationLabel")))
        label->setVisible(false);
    m_introField->setText(
        displayText(vxLocalizedFormat(format, m_arguments.value(QStringLiteral("productName")))));
    m_tabView->setCurrentIndex(1);
    m_finished = true;
}

void InstallerWinController::playDoneSound()
{
    if (argument(QStringLiteral("completionSound")) != QLatin1String("YES"))
        return;
    // The sound module of the bundle (donesound.cpp), loaded on first use and
    // kept for the life of the process.
    using Play = void (*)(const char *mainBundlePath);
    QString error;
    const auto play = reinterpret_cast<Play>(
        plugInFunction("libquilletsound.so", "quilletPlayDoneSound", &error));
    if (!play) {
        vxLog(QStringLiteral("cannot play the completion sound: %@"), error);
        return;
    }
    play(QFile::encodeName(VXBundle::mainBundle().bundlePath()).constData());
}

void InstallerWinController::openDocumentation()
{
    const QString path = argument(QStringLiteral("documentationPath"));
    if (!path.isNull()) {
        QDesktopServices::openUrl(QUrl::fromLocalFile(path));
        return;
    }
    const QString address = argument(QStringLiteral("documentationURL"));
    if (!address.isNull()) {
        const QUrl url(address, QUrl::StrictMode);
        if (url.isValid() && !url.scheme().isEmpty())
            QDesktopServices::openUrl(url);
        return;
    }
    vxLog(QStringLiteral("documentation path missing"));
    QApplication::beep();
}

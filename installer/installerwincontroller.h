// SPDX-FileCopyrightText: 2026 Quillet developers
// SPDX-License-Identifier: MIT
#pragma once

#include <QObject>
#include <QPointer>
#include <QStringList>
#include <QThread>
#include <QVariantMap>

class QLabel;
class QProgressBar;
class QPushButton;
class QTabWidget;
class QTextEdit;
class QAbstractButton;
#include <QWidget>
#include <atomic>

// The argument dictionary: key to value, a QString, or a QStringList under
// keys that end in "Code".
using InstallerArguments = QVariantMap;

// Owns the installer window and runs the session: arguments, set-up, the
// two pages, the installation run, the copy into place and the launch.
class InstallerWinController : public QObject
{
    Q_OBJECT
public:
    struct Options
    {
        // The process's argument list; the executable's path first.
        QStringList arguments;
        // Whether a product launch reopens standard output and error onto
        // the log file. Tests that run the controller in-process keep their
        // own streams.
        bool redirectOutput = true;
        // Where the interface file is read from; empty: the main bundle's
        // resource "InstallerWindow.ui".
        QString interfaceFile;
    };

    explicit InstallerWinController(Options options, QObject *parent = nullptr);
    ~InstallerWinController() override;

    // Set-up, once, in its fixed order.
    void awakeFromNib();

    void extractArguments();
    const InstallerArguments &arguments() const { return m_arguments; }
    QString argument(const QString &key) const;

    void showSetupError(const QString &message);
    void selectTab(int index);
    void installAppleEvents();
    void installationDone(const QString &directParameter);
    void systemVersionAlertDidEnd(int returnCode);
    void animateProgress(bool on);
    bool isFinished() const { return m_finished; }

    // The run
    void install();
    void cancel();
    void installThread();
    void installationFinished(const QString &errorText);
    void showFinalMessage(const QString &format);
    void playDoneSound();
    void openDocumentation();

    // Destination and write access
    bool canWriteToFile(const QString &path) const;
    bool canWriteToDirectory(const QString &path) const;
    bool canWriteToFileOrDirectory(const QString &path) const;
    bool canWriteToPath(const QString &path) const;
    bool isInUnsupportedFolder(const QString &path) const;
    QString autoLaunchPathFor(const QString &productName) const;
    QString pathToProcessToReplace() const;
    QString findPreferredDestinationFor(const QString &productName) const;
    QString applicationsDirectory() const;
    QString recursiveLocalizedPath(const QString &path) const;
    QString localizedPath(const QString &path) const;

    // Quitting running copies
    bool signatureIsInArray(quint32 signature, const QStringList &codes) const;
    QString processToQuitStillRunning() const;
    void quitProcesses() const;

    // Copy into place and launch
    QString installMyselfInDestination();
    bool authorizedInstall(
        const QString &source, const QString &destination, const QString &wrapper, bool *canceled);

    // The current-installation label: "name version" of the run under way.
    static QString currentInstallationLabel();
    static void setCurrentInstallationLabel(const QString &label);

    // Where the Applications folders are: system /opt, user ~/Applications.
    // Tests point them elsewhere.
    static void setApplicationsFolders(const QString &system, const QString &user);
    // Acts as if Alt (Option) were held when the copy starts: the
    // privileged path even for a writable destination.
    void setForcePrivileged(bool force) { m_forcePrivileged = force; }
    // The privileged helper; empty: the main bundle's resource "train".
    static void setHelperPath(const QString &path);
    // The web page of older versions.
    static QString archiveUrl();

    QWidget *window() const { return m_window; }
    QTabWidget *tabView() const { return m_tabView; }
    QLabel *nameField() const { return m_nameField; }
    QLabel *introField() const { return m_introField; }
    QLabel *pathField() const { return m_pathField; }
    QLabel *messageField() const { return m_messageField; }
    QLabel *iconField() const { return m_iconField; }
    QLabel *checkmarkField() const { return m_checkmarkField; }
    QTextEdit *readMeTextView() const { return m_readMeTextView; }
    QPushButton *installButton() const { return m_installButton; }
    QPushButton *cancelButton() const { return m_cancelButton; }
    QAbstractButton *helpButton() const { return m_helpButton; }
    QProgressBar *progressIndicator() const { return m_progressIndicator; }
    QString interfaceError() const { return m_interfaceError; }

Q_SIGNALS:
    // Emitted on the main thread when installationFinished: has run.
    void runFinished(const QString &errorText);
    // Emitted when the installer is about to quit (the quit itself is queued).
    void terminating();

protected:
    // Brings the installer to the front after the window's first drawing.
    bool eventFilter(QObject *watched, QEvent *event) override;

private:
    // A function of a module in the bundle's PlugIns folder, loaded on first
    // use and kept; null, with the loader's reason in *error, when missing.
    static QFunctionPointer plugInFunction(const char *file, const char *symbol, QString *error);
    bool loadInterface();
    void startFontWarmUp();
    void redirectOutputToLog();
    void showSystemVersionAlert(
        const QString &productName, const QString &version, const QString &minimum);
    void terminate();
    void bringInstallerToFront();
    // Main thread, when a run starts: whether Alt is held, for the copy.
    void recordOptionKey();

    Options m_options;

    // Outlets, owned by the window
    QPointer<QWidget> m_window;
    QTabWidget *m_tabView = nullptr;
    QLabel *m_nameField = nullptr;
    QLabel *m_introField = nullptr;
    QLabel *m_pathField = nullptr;
    QLabel *m_messageField = nullptr;
    QLabel *m_iconField = nullptr;
    QLabel *m_checkmarkField = nullptr;
    QTextEdit *m_readMeTextView = nullptr;
    QPushButton *m_installButton = nullptr;
    QPushButton *m_cancelButton = nullptr;
    QAbstractButton *m_helpButton = nullptr;
    QProgressBar *m_progressIndicator = nullptr;

    InstallerArguments m_arguments;
    bool m_argumentsExtracted = false;
    bool m_finished = false;
    bool m_forcePrivileged = false;
    std::atomic<bool> m_optionKeyAtRunStart { false };
    QString m_titleFormat;
    QString m_introFormat;
    QString m_interfaceError;
    QThread *m_fontWarmUp = nullptr;
};

// SPDX-FileCopyrightText: 2026 Quillet developers
// SPDX-License-Identifier: MIT
//
// Copy into place and launch: a plain copy when the destination is
// writable, else the helper "train" as root through the elevation command
// (pkexec; polkit asks for the password). Runs on the installation thread.
#include "installerwincontroller.h"
#include "process/vxprocess.h"
#include "productcopy.h"
#include "utilities/vxbundle.h"
#include "utilities/vxlog.h"
#include "utilities/vxuserdefaults.h"
#include "workspace.h"

#include <QApplication>
#include <QFileInfo>
#include <QProcess>
#include <QThread>
#include <functional>
#include <sys/stat.h>
#include <unistd.h>

namespace {
constexpr int kAuthorizationCanceled = -60006; // errAuthorizationCanceled
constexpr int kToolExecuteFailure = -60031; // errAuthorizationToolExecuteFailure

QString g_helperPath;

// Whether Alt (the Option key) is held now; asked on the main thread.
bool optionKeyHeld()
{
    bool held = false;
    QCoreApplication *app = QCoreApplication::instance();
    if (!app)
        return false;
    auto ask = [&held] { held = QGuiApplication::queryKeyboardModifiers() & Qt::AltModifier; };
    if (QThread::currentThread() == app->thread())
        ask();
    else
        QMetaObject::invokeMethod(app, ask, Qt::BlockingQueuedConnection);
    return held;
}

// The helper to run: the one installed with the system (root's, in
// <libexec>/quillet, which its polkit action names), else the bundle's own,
// which pkexec runs under its generic action: the administrator then
// authorizes that exact program each time.
QString privilegedTool()
{
    if (!g_helperPath.isEmpty())
        return g_helperPath;
#ifdef QUILLET_INSTALLED_HELPER
    struct stat st;
    if (::stat(QUILLET_INSTALLED_HELPER, &st) == 0 && S_ISREG(st.st_mode) && st.st_uid == 0
        && !(st.st_mode & (S_IWGRP | S_IWOTH)))
        return QStringLiteral(QUILLET_INSTALLED_HELPER);
#endif
    const QString own = VXBundle::mainBundle().pathForResource(QStringLiteral("train"));
    return own.isEmpty() ? QStringLiteral("train") : own;
}

// Runs the helper as root. 0: it ran and succeeded; -1: it failed or was
// killed; kAuthorizationCanceled: the password dialog was dismissed; any
// other code: it could not be started. `authorized` runs once the helper
// says it runs, which it does first, so once the user is authorized.
int runPrivilegedTool(const QString &tool, const QStringList &arguments, const QByteArray &input,
    const std::function<void()> &authorized)
{
    QString command = VXUserDefaults::standard().stringForKey(QStringLiteral("elevationCommand"));
    if (command.trimmed().isEmpty())
        command = QStringLiteral("pkexec");
    QStringList parts = QProcess::splitCommand(command);
    const QString program = parts.takeFirst();
    QProcess process;
    process.setProcessChannelMode(QProcess::ForwardedErrorChannel);
    process.start(program, parts + QStringList { tool } + arguments);
    if (!process.waitForStarted(-1)) {
        vxLog(QStringLiteral("AuthorizationExecuteWithPrivileges failed (%s)"), tool);
        return kToolExecuteFailure;
    }
    // pkexec passes its standard input on to the helper; a helper that
    // never runs leaves it unread, which QProcess copes with.
    process.write(input);
    process.closeWriteChannel();
    QByteArray said;
    while (process.state() != QProcess::NotRunning) {
        process.waitForReadyRead(100);
        if (said.size() < 64
            && (said += process.readAllStandardOutput()).contains("authorized\n")) {
            said.fill('-', 64);
            authorized();
        }
    }
    process.waitForFinished(-1);
    if (process.exitStatus() != QProcess::NormalExit) {
        vxLog(QStringLiteral("!WIFEXITED"));
        return -1;
    }
    // pkexec: 126 the dialog was dismissed, 127 not authorized or no agent.
    switch (process.exitCode()) {
    case 0:
        return 0;
    case 126:
        return kAuthorizationCanceled;
    case 127:
        vxLog(QStringLiteral("AuthorizationExecuteWithPrivileges failed (%s)"), tool);
        return kToolExecuteFailure;
    default:
        vxLog(QStringLiteral("WEXITSTATUS"));
        return -1;
    }
}
} // namespace

void InstallerWinController::setHelperPath(const QString &path)
{
    g_helperPath = path;
}

QString InstallerWinController::installMyselfInDestination()
{
    const QString source = argument(QStringLiteral("sourcePath"));
    const QString destination = argument(QStringLiteral("destinationPath"));
    const QString wrapper = argument(QStringLiteral("wrapperPath"));
    const bool writable = canWriteToPath(destination);
    setCurrentInstallationLabel(
        vxFormat(QStringLiteral("%@ %@"), m_arguments.value(QStringLiteral("productName")),
            m_arguments.value(QStringLiteral("version"))));

    bool privileged = !writable;
    if (m_forcePrivileged || optionKeyHeld()) {
        vxLog(QStringLiteral("enforcing authorization"));
        privileged = true;
    }
    if (!privileged) {
        const int status = ProductCopy::installProductCopy(source, destination, wrapper);
        if (status == ProductCopy::CouldNotTrash)
            return QString::fromUtf8(
                QT_TRANSLATE_NOOP("Quillet", "Could not delete existing copy."));
        if (status != ProductCopy::Copied)
            return QString::fromUtf8(QT_TRANSLATE_NOOP("Quillet", "Installation failed."));
    } else {
        bool canceled = false;
        if (!authorizedInstall(source, destination, wrapper, &canceled)) {
            if (canceled)
                vxLog(QStringLiteral("User canceled authorization"));
            else
                vxLog(QStringLiteral(
                    "ERROR -- Could not copy myself to /Applications with authorization"));
            return canceled
                ? QStringLiteral("")
                : QString::fromUtf8(QT_TRANSLATE_NOOP("Quillet", "Authorized copying failed."));
        }
    }

    vxLog(QStringLiteral("successfully copied"));
    Workspace::noteFileSystemChanged(destination);
    vxLog(QStringLiteral("launching %@"), destination);
    ::usleep(500000);
    vxLog(QStringLiteral("waited 0.5"));
    // A system install is registered by the helper, for all users; a second
    // entry of the user's own would only hide it. Without one (the helper
    // could not write it, or the destination is the user's own folder) the
    // bundle is registered for this user.
    int registered = privileged ? Workspace::useSystemRegistration(destination) : -1;
    if (registered != 0)
        registered = Workspace::registerBundle(destination);
    vxLog(QStringLiteral("registered app: %d"), registered);
    ::usleep(300000);
    vxLog(QStringLiteral("waited 0.3"));

    if (Workspace::iconForFile(destination).isNull()) {
        vxLog(QStringLiteral("did not get icon"));
        ::usleep(1000000);
        const bool got = !Workspace::iconForFile(destination).isNull();
        vxLog(QStringLiteral("retry; %@"),
            got ? QStringLiteral("succeeded") : QStringLiteral("failed"));
    }

    bool launched = Workspace::openFile(destination);
    vxLog(QStringLiteral("launched immediately: %d"), int(launched));
    for (int count = 0; !launched && count <= 9;) {
        ++count;
        ::usleep(500000);
        vxLog(QStringLiteral("retry opening (count=%d)"), count);
        launched = Workspace::openFile(destination);
        vxLog(QStringLiteral("launched: %d"), int(launched));
    }
    // A launch that failed is not a failed installation.
    if (const VXProcessPtr current = VXProcess::currentProcess())
        current->setFrontProcessFrontWindowOnly();
    return QString();
}

bool InstallerWinController::authorizedInstall(
    const QString &source, const QString &destination, const QString &wrapper, bool *canceled)
{
    if (canceled)
        *canceled = false;
    if (destination.trimmed().isEmpty() || source.trimmed().isEmpty())
        return false;
    QMetaObject::invokeMethod(
        this, [this] { animateProgress(false); }, Qt::QueuedConnection);
    const QString tool = privilegedTool();
    // The helper registers a bundle it puts into the system folder for all
    // users, from what it is told about the bundle on its standard input.
    const QByteArray request = Workspace::helperRequest(source);
    QStringList arguments { source, destination };
    if (!request.isEmpty())
        arguments.prepend(QStringLiteral("--desktop-entry"));
    if (!wrapper.isEmpty())
        arguments << wrapper;
    // Progress shows again once the password dialog is done with, while
    // the helper copies.
    const int status = runPrivilegedTool(tool, arguments, request, [this] {
        QMetaObject::invokeMethod(
            this, [this] { animateProgress(true); }, Qt::QueuedConnection);
    });
    if (status == kAuthorizationCanceled) {
        if (canceled)
            *canceled = true;
        return false;
    }
    return status == 0;
}

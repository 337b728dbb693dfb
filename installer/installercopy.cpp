// SPDX-FileCopyrightText: 2026 Quillet developers
// SPDX-License-Identifier: MIT
//
// Copy into place and launch: a plain copy when the destination is
// writable, else the helper "train" as root through the elevation command
// (pkexec; polkit asks for the password). Runs on the installation thread.
#include "elevation.h"
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
#include <unistd.h>

namespace {
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
    vxLog(QStringLiteral("registered app: %d"), Workspace::registerBundle(destination));
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
    QString tool = g_helperPath;
    if (tool.isEmpty())
        tool = VXBundle::mainBundle().pathForResource(QStringLiteral("train"));
    QStringList arguments { source, destination };
    if (!wrapper.isEmpty())
        arguments << wrapper;
    const int status
        = Elevation::runPrivilegedTool(tool.isEmpty() ? QStringLiteral("train") : tool, arguments);
    if (status == Elevation::kAuthorizationCanceled) {
        if (canceled)
            *canceled = true;
        return false;
    }
    QMetaObject::invokeMethod(
        this, [this] { animateProgress(true); }, Qt::QueuedConnection);
    return status == 0;
}

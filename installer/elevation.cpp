// SPDX-FileCopyrightText: 2026 Quillet developers
// SPDX-License-Identifier: MIT
#include "elevation.h"

#include "utilities/vxlog.h"
#include "utilities/vxuserdefaults.h"

#include <QProcess>

int Elevation::runPrivilegedTool(const QString &tool, const QStringList &arguments)
{
    QString command = VXUserDefaults::standard().stringForKey(QStringLiteral("elevationCommand"));
    if (command.trimmed().isEmpty())
        command = QStringLiteral("pkexec");
    QStringList parts = QProcess::splitCommand(command);
    const QString program = parts.takeFirst();
    QProcess process;
    process.setProcessChannelMode(QProcess::ForwardedChannels);
    process.start(program, parts + QStringList { tool } + arguments);
    if (!process.waitForStarted(-1)) {
        vxLog(QStringLiteral("AuthorizationExecuteWithPrivileges failed (%s)"), tool);
        return kToolExecuteFailure;
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

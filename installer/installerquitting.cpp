// SPDX-FileCopyrightText: 2026 Quillet developers
// SPDX-License-Identifier: MIT
//
// Quitting the running copies of the product before it is replaced.
// Processes are matched by creator code only, never by name or path.
#include "installerwincontroller.h"
#include "utilities/vxfourcharcode.h"
#include "utilities/vxlog.h"

bool InstallerWinController::signatureIsInArray(quint32 signature, const QStringList &codes) const
{
    for (const QString &code : codes)
        if (VXFourCharCode::fromString(code) == signature)
            return true;
    return false;
}

QString InstallerWinController::processToQuitStillRunning() const
{
    return QString();
}

void InstallerWinController::quitProcesses() const { }

QString InstallerWinController::pathToProcessToReplace() const
{
    return QString();
}

void InstallerWinController::bringInstallerToFront() { }

// SPDX-FileCopyrightText: 2026 Quillet developers
// SPDX-License-Identifier: MIT
//
// Quitting the running copies of the product before it is replaced.
// Processes are matched by creator code only, never by name or path, and
// the installer never quits itself, even when it carries a listed code.
#include "installerwincontroller.h"
#include "process/vxprocess.h"
#include "utilities/vxfourcharcode.h"
#include "utilities/vxlog.h"

#include <unistd.h>

bool InstallerWinController::signatureIsInArray(quint32 signature, const QStringList &codes) const
{
    for (const QString &code : codes)
        if (VXFourCharCode::fromString(code) == signature)
            return true;
    return false;
}

QString InstallerWinController::processToQuitStillRunning() const
{
    const QStringList quitList = m_arguments.value(QStringLiteral("quitCode")).toStringList();
    const VXProcessPtr current = VXProcess::currentProcess();
    for (const VXProcessPtr &p : VXProcess::allProcesses()) {
        if (!signatureIsInArray(p->signature(), quitList) || p->isEqual(current))
            continue;
        vxLog(QStringLiteral("Still running '%@': %@"), p->signatureString(), p->name());
        return p->name();
    }
    return QString();
}

void InstallerWinController::quitProcesses() const
{
    const QStringList quitList = m_arguments.value(QStringLiteral("quitCode")).toStringList();
    const VXProcessPtr current = VXProcess::currentProcess();
    for (const VXProcessPtr &p : VXProcess::allProcesses()) {
        if (!signatureIsInArray(p->signature(), quitList) || p->isEqual(current))
            continue;
        vxLog(QStringLiteral("Quitting '%@': %@"), p->signatureString(), p->name());
        p->quit();
        ::usleep(100000);
    }
}

QString InstallerWinController::pathToProcessToReplace() const
{
    const QStringList codes = m_arguments.value(QStringLiteral("productCode")).toStringList();
    if (!m_arguments.contains(QStringLiteral("productCode")) || codes.isEmpty())
        return QString();
    const quint32 main = VXFourCharCode::fromString(codes.first());
    const VXProcessPtr current = VXProcess::currentProcess();
    auto acceptable = [&](const VXProcessPtr &p) {
        return !p->isEqual(current) && !isInUnsupportedFolder(p->path());
    };
    const QList<VXProcessPtr> processes = VXProcess::allProcesses();
    for (const VXProcessPtr &p : processes)
        if (p->signature() == main && acceptable(p))
            return p->path();
    if (codes.size() >= 2) {
        for (const VXProcessPtr &p : processes)
            if (signatureIsInArray(p->signature(), codes) && acceptable(p))
                return p->path();
    }
    return QString();
}

void InstallerWinController::bringInstallerToFront()
{
    if (const VXProcessPtr current = VXProcess::currentProcess())
        current->setFrontProcess();
}

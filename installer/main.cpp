// SPDX-FileCopyrightText: 2026 Quillet developers
// SPDX-License-Identifier: MIT
#include "installerwincontroller.h"
#include "utilities/vxbundle.h"
#include "utilities/vxlocalization.h"

#include <QApplication>

int main(int argc, char **argv)
{
    QApplication app(argc, argv);
    QApplication::setApplicationName(QStringLiteral("QuilletInstaller"));
    vxInstallTranslations(VXBundle::mainBundle().resourcePath());

    // Lives until the process ends: the installation thread may still use it
    // while the application quits.
    auto *controller
        = new InstallerWinController({ QCoreApplication::arguments(), true, QString() });
    controller->awakeFromNib();
    return app.exec();
}

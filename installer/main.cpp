// SPDX-FileCopyrightText: 2026 Quillet developers
// SPDX-License-Identifier: MIT
#include "installerwincontroller.h"
#include "utilities/vxbundle.h"
#include "utilities/vxlocalization.h"

#include <QApplication>
#include <QFontMetrics>
#include <QThread>

int main(int argc, char **argv)
{
    QApplication app(argc, argv);
    QApplication::setApplicationName(QStringLiteral("QuilletInstaller"));
    // The first use of a font reads the font configuration and its caches,
    // which takes longer than all the rest of the window's set-up. A worker
    // does it meanwhile; Qt's font database serialises its users, so the
    // window's first font waits for it at most.
    QThread *warmUp = QThread::create([] { QFontMetrics(QApplication::font()).height(); });
    warmUp->start();
    vxInstallTranslations(VXBundle::mainBundle().resourcePath());

    // Lives until the process ends: the installation thread may still use it
    // while the application quits.
    auto *controller
        = new InstallerWinController({ QCoreApplication::arguments(), true, QString() });
    controller->awakeFromNib();
    const int status = app.exec();
    warmUp->wait();
    delete warmUp;
    return status;
}

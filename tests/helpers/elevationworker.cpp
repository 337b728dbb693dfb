// SPDX-FileCopyrightText: 2026 Quillet developers
// SPDX-License-Identifier: MIT
//
// Puts a bundle in place through the installer's own copy step, as whoever
// starts it, so that a test can take the privileged path as an
// unprivileged user: elevationworker SOURCE DESTINATION [HELPER]; without
// a helper, the installer chooses it as it always does.
// Prints "result: null" when the product was installed, else "result: "
// and the message the installer would show; the log goes to standard error.
#include "installer/installerwincontroller.h"

#include <QApplication>
#include <cstdio>

int main(int argc, char **argv)
{
    QApplication app(argc, argv);
    if (argc != 3 && argc != 4)
        return 64;
    const QStringList args = QCoreApplication::arguments();
    if (argc == 4)
        InstallerWinController::setHelperPath(args[3]);
    InstallerWinController controller({ { args[0], "-sourcePath", args[1], "-destinationPath",
                                            args[2], "-productName", "Foo", "-version", "2.0" },
        false, QString() });
    controller.extractArguments();
    const QString text = controller.installMyselfInDestination();
    std::printf("result: %s\n", text.isNull() ? "null" : qPrintable(text));
    return 0;
}

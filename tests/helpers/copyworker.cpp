// SPDX-FileCopyrightText: 2026 Quillet developers
// SPDX-License-Identifier: MIT
//
// Puts a bundle in place as the installer does, so that tests can kill it at
// any moment: copyworker SOURCE DESTINATION. Exits with the copy status.
#include "installer/productcopy.h"

#include <QCoreApplication>

int main(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    if (argc != 3)
        return 64;
    return ProductCopy::installProductCopy(
        QString::fromLocal8Bit(argv[1]), QString::fromLocal8Bit(argv[2]), QString());
}

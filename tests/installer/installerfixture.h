// SPDX-FileCopyrightText: 2026 Quillet developers
// SPDX-License-Identifier: MIT
#pragma once

#include "common/testfiles.h"
#include "installer/installerwincontroller.h"
#include "utilities/vxbundle.h"
#include "utilities/vxpropertylist.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QTemporaryDir>

// A product on a distribution volume, with the installer inside it, as a
// product ships:
//   <root>/Volumes/Foo/Foo.app/Contents/Resources/QuilletInstaller.app
// and the Applications folders <root>/Applications (system) and
// <root>/home-apps (user).
class ProductFixture
{
public:
    explicit ProductFixture(const QString &name = QStringLiteral("Foo"))
        : m_name(name)
    {
        volume = m_dir.path() + QLatin1String("/Volumes/") + name;
        product = volume + QLatin1Char('/') + name + QLatin1String(".app");
        installer = product + QLatin1String("/Contents/Resources/QuilletInstaller.app");
        applications = m_dir.path() + QLatin1String("/Applications");
        userApplications = m_dir.path() + QLatin1String("/home-apps");
        QDir().mkpath(applications);
        info = { { QStringLiteral("CFBundleExecutable"), name },
            { QStringLiteral("CFBundleIdentifier"),
                QStringLiteral("dev.example.") + name.toLower() },
            { QStringLiteral("CFBundleSignature"), QStringLiteral("WXYZ") },
            { QStringLiteral("CFBundleShortVersionString"), QStringLiteral("2.0") } };
        writeInfo();
        // The installer's own resources, from the built bundle.
        const QString built = QStringLiteral(QUILLET_BINARY_DIR "/QuilletInstaller.app");
        QDir().mkpath(installer + QLatin1String("/Contents/Resources"));
        for (const QString &file :
            QDir(built + QLatin1String("/Contents/Resources")).entryList(QDir::Files))
            QFile::copy(built + QLatin1String("/Contents/Resources/") + file,
                installer + QLatin1String("/Contents/Resources/") + file);
        QFile::copy(built + QLatin1String("/Contents/Info.plist"),
            installer + QLatin1String("/Contents/Info.plist"));
        QDir().mkpath(installer + QLatin1String("/Contents/PlugIns"));
        for (const QString &file :
            QDir(built + QLatin1String("/Contents/PlugIns")).entryList(QDir::Files))
            QFile::copy(built + QLatin1String("/Contents/PlugIns/") + file,
                installer + QLatin1String("/Contents/PlugIns/") + file);
        VXBundle::setMainBundlePath(installer);
        InstallerWinController::setApplicationsFolders(applications, userApplications);
    }
    ~ProductFixture()
    {
        VXBundle::setMainBundlePath(QString());
        InstallerWinController::setApplicationsFolders(QString(), QString());
    }

    void writeInfo()
    {
        writeFile(product + QLatin1String("/Contents/Info.plist"), VXPropertyList::toXml(info));
    }

    // Where this test program's fixtures live: its name and process id, so
    // that nothing of another run on the machine matches.
    static QString rootPrefix()
    {
        return QDir::tempPath() + QLatin1Char('/') + QCoreApplication::applicationName()
            + QLatin1Char('-') + QString::number(QCoreApplication::applicationPid())
            + QLatin1Char('-');
    }

    QString path(const QString &relative) const
    {
        return m_dir.path() + QLatin1Char('/') + relative;
    }

    // An installer started by the product with these key/value arguments.
    InstallerWinController::Options options(const QStringList &keysAndValues) const
    {
        InstallerWinController::Options o;
        o.arguments = QStringList { installer + QLatin1String("/Contents/Linux/QuilletInstaller") }
            + keysAndValues;
        o.redirectOutput = false;
        return o;
    }

    QVariantMap info;
    QString volume, product, installer, applications, userApplications;

private:
    QTemporaryDir m_dir { rootPrefix() + QLatin1String("XXXXXX") };
    QString m_name;
};

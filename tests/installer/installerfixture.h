// SPDX-FileCopyrightText: 2026 Quillet developers
// SPDX-License-Identifier: MIT
#pragma once

#include "common/testfiles.h"
#include "installer/installerwincontroller.h"
#include "utilities/vxbundle.h"
#include "utilities/vxpropertylist.h"

#include <QCoreApplication>
#include <QTemporaryDir>
#include <memory>

// A product on a distribution volume, with the installer inside it, as a
// product ships:
//   <root>/Volumes/Foo/Foo.app/Contents/Resources/QuilletInstaller.app
// and the Applications folders <root>/Applications (system) and
// <root>/home-apps (user).
class ProductFixture
{
public:
    explicit ProductFixture(const QString &name = QStringLiteral("Foo"))
        : volume(path("Volumes/" + name))
        , product(volume + "/" + name + ".app")
        , installer(product + "/Contents/Resources/QuilletInstaller.app")
        , applications(path("Applications"))
        , userApplications(path("home-apps"))
    {
        QDir().mkpath(applications);
        info = { { "CFBundleExecutable", name },
            { "CFBundleIdentifier", "dev.example." + name.toLower() },
            { "CFBundleSignature", "WXYZ" }, { "CFBundleShortVersionString", "2.0" } };
        writeInfo();
        // The installer's own resources, from the built bundle.
        const QString built = QStringLiteral(QUILLET_BINARY_DIR "/QuilletInstaller.app/Contents/");
        QStringList files { "Info.plist" };
        for (const QString folder : { "Resources", "PlugIns" })
            for (const QString &file : QDir(built + folder).entryList(QDir::Files))
                files << folder + "/" + file;
        for (const QString &file : files) {
            QDir().mkpath(QFileInfo(installer + "/Contents/" + file).path());
            QFile::copy(built + file, installer + "/Contents/" + file);
        }
        VXBundle::setMainBundlePath(installer);
        InstallerWinController::setApplicationsFolders(applications, userApplications);
    }
    ~ProductFixture()
    {
        VXBundle::setMainBundlePath(QString());
        InstallerWinController::setApplicationsFolders(QString(), QString());
    }

    void writeInfo() { writeFile(product + "/Contents/Info.plist", VXPropertyList::toXml(info)); }

    // Where this test program's fixtures live: its name and process id, so
    // that nothing of another run on the machine matches.
    static QString rootPrefix()
    {
        return QDir::tempPath() + "/" + QCoreApplication::applicationName() + "-"
            + QString::number(QCoreApplication::applicationPid()) + "-";
    }

    QString path(const QString &relative) const { return m_dir.path() + "/" + relative; }

    // An installer started by the product with these key/value arguments.
    InstallerWinController::Options options(const QStringList &keysAndValues) const
    {
        return { QStringList { installer + "/Contents/Linux/QuilletInstaller" } + keysAndValues,
            false, QString() };
    }
    // The same, set up as the window opens.
    std::unique_ptr<InstallerWinController> setUp(const QStringList &keysAndValues) const
    {
        auto c = std::make_unique<InstallerWinController>(options(keysAndValues));
        c->awakeFromNib();
        return c;
    }

private:
    // First: the paths below are made from it.
    QTemporaryDir m_dir { rootPrefix() + "XXXXXX" };

public:
    QString volume, product, installer, applications, userApplications;
    QVariantMap info;
};

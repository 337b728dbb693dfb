// SPDX-FileCopyrightText: 2026 Quillet developers
// SPDX-License-Identifier: MIT
//
// Sample: the smallest product that installs itself. Started from anywhere
// but an Applications folder (its distribution volume, a download folder),
// it hands itself to the installer in its bundle and quits. Started from an
// Applications folder, it shows its window and tells a waiting installer
// that the installation is complete.
#include "utilities/vxbundle.h"
#include "utilities/vxfourcharcode.h"

#include <QApplication>
#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QDBusMessage>
#include <QDir>
#include <QLabel>
#include <QProcess>
#include <QVBoxLayout>

namespace {
bool inApplicationsFolder(const QString &bundlePath)
{
    const QString path = QDir::cleanPath(bundlePath);
    return path.startsWith(QLatin1String("/opt/"))
        || path.startsWith(QDir::homePath() + QLatin1String("/Applications/"));
}

bool startInstaller(const VXBundle &bundle)
{
    const auto installer
        = VXBundle::open(bundle.resourcePath() + QLatin1String("/QuilletInstaller.app"));
    if (!installer || installer->executablePath().isEmpty())
        return false;
    const QStringList arguments {
        QStringLiteral("-productName"),
        bundle.stringForInfoKey(QStringLiteral("CFBundleName")),
        QStringLiteral("-version"),
        bundle.stringForInfoKey(QStringLiteral("CFBundleShortVersionString")),
        QStringLiteral("-sourcePath"),
        bundle.bundlePath(),
        QStringLiteral("-readMePath"),
        bundle.resourcePath() + QLatin1String("/ReadMe.rtf"),
        QStringLiteral("-completionSound"),
        QStringLiteral("YES"),
        QStringLiteral("-documentationURL"),
        QStringLiteral("https://www.quillet.dev/sample/"),
    };
    return QProcess::startDetached(installer->executablePath(), arguments);
}

// Tells every installer on the session bus that "Sample 1.0" is in place;
// only the one installing this version takes the event.
void sendDone(const QString &label)
{
    QDBusConnection bus = QDBusConnection::sessionBus();
    if (!bus.isConnected())
        return;
    const QStringList names = bus.interface()->registeredServiceNames().value();
    for (const QString &name : names) {
        if (!name.startsWith(QLatin1String("org.quillet.VX.p")))
            continue;
        QDBusMessage call
            = QDBusMessage::createMethodCall(name, QStringLiteral("/org/quillet/VX/AppleEvents"),
                QStringLiteral("org.quillet.VX.AppleEvents"), QStringLiteral("HandleEvent"));
        call << uint(VXFourCharCode::make("SinS")) << uint(VXFourCharCode::make("Done")) << label;
        bus.call(call, QDBus::NoBlock);
    }
}
} // namespace

int main(int argc, char **argv)
{
    QApplication app(argc, argv);
    QApplication::setApplicationName(QStringLiteral("Sample"));
    const VXBundle &bundle = VXBundle::mainBundle();
    const QString name = bundle.stringForInfoKey(QStringLiteral("CFBundleName"));
    const QString version = bundle.stringForInfoKey(QStringLiteral("CFBundleShortVersionString"));

    if (!inApplicationsFolder(bundle.bundlePath())) {
        if (startInstaller(bundle))
            return 0;
        qWarning(
            "Sample: the installer in %s cannot be started", qPrintable(bundle.resourcePath()));
        return 1;
    }

    QWidget window;
    window.setWindowTitle(name);
    auto *layout = new QVBoxLayout(&window);
    auto *label = new QLabel(QStringLiteral("<h2>%1 %2</h2><p>is installed in %3 and running.</p>")
                                 .arg(name.toHtmlEscaped(), version.toHtmlEscaped(),
                                     bundle.bundlePath().toHtmlEscaped()));
    layout->addWidget(label);
    const QString icon = bundle.pathForResource(
        bundle.stringForInfoKey(QStringLiteral("CFBundleIconFile")), QStringLiteral("icns"));
    if (!icon.isEmpty())
        window.setWindowIcon(QIcon(icon));
    window.resize(420, 160);
    window.show();
    sendDone(name + QLatin1Char(' ') + version);
    return app.exec();
}

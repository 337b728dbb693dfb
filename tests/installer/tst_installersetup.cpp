// SPDX-FileCopyrightText: 2026 Quillet developers
// SPDX-License-Identifier: MIT
#include "common/logcapture.h"
#include "installerfixture.h"

#include <QAbstractButton>
#include <QApplication>
#include <QBuffer>
#include <QDataStream>
#include <QLabel>
#include <QPushButton>
#include <QScopeGuard>
#include <QTabWidget>
#include <QTest>
#include <QTextEdit>
#include <memory>

using Controller = std::unique_ptr<InstallerWinController>;

class TestInstallerSetup : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void extractArguments_data();
    void extractArguments();
    void completesArgumentsFromBundle();
    void interfaceFile_data();
    void interfaceFile();
    void quitListAlwaysHoldsProductCodes();
    void destination_data();
    void destination();
    void setupErrors_data();
    void setupErrors();
    void helpButtonVisibility_data();
    void helpButtonVisibility();
    void readMeFallbacks_data();
    void readMeFallbacks();
    void icon_data();
    void icon();
    void pageButtons();
    void applicationsDirectoryFallsBackToUserFolder();
    void unsupportedFolders_data();
    void unsupportedFolders();
    void canWriteToPathWalksUpToExistingFolder();
    void loginItems_data();
    void loginItems();
    void localizedPath_data();
    void localizedPath();
};

static Controller setUp(
    const ProductFixture &fixture, const QStringList &args, LogCapture *capture = nullptr)
{
    Q_UNUSED(capture);
    Controller c(new InstallerWinController(fixture.options(args)));
    c->awakeFromNib();
    return c;
}

void TestInstallerSetup::extractArguments_data()
{
    QTest::addColumn<QStringList>("argv");
    QTest::addColumn<QVariantMap>("expected");
    QTest::newRow("codes collect")
        << QStringList { "/path/to/exe", "-productName", "Foo", "-productCode", "ABCD",
               "-productCode", "EFGH" }
        << QVariantMap { { "", "/path/to/exe" }, { "productName", "Foo" },
               { "productCode", QStringList { "ABCD", "EFGH" } } };
    QTest::newRow("codes after one key") << QStringList { "/x", "-quitCode", "ABCD",
        "EFGH" } << QVariantMap { { "", "/x" }, { "quitCode", QStringList { "ABCD", "EFGH" } } };
    QTest::newRow("last value wins; key without value not recorded")
        << QStringList { "/x", "-productName", "A", "-productName", "B", "-version" }
        << QVariantMap { { "", "/x" }, { "productName", "B" } };
    QTest::newRow("two minus signs keep one")
        << QStringList { "/x", "--x", "1" } << QVariantMap { { "", "/x" }, { "-x", "1" } };
    QTest::newRow("key is not reset after a value") << QStringList { "/x", "-readMePath", "a",
        "b" } << QVariantMap { { "", "/x" }, { "readMePath", "b" } };
    QTest::newRow("nothing") << QStringList {} << QVariantMap {};
}

void TestInstallerSetup::extractArguments()
{
    QFETCH(QStringList, argv);
    QFETCH(QVariantMap, expected);
    InstallerWinController::Options o;
    o.arguments = argv.isEmpty() ? QStringList { QString() } : argv;
    InstallerWinController c(o);
    LogCapture capture;
    c.extractArguments();
    c.extractArguments(); // a second call changes nothing
    capture.restore();
    if (argv.isEmpty())
        expected.insert(QString(QLatin1String("")), QString());
    else
        QVERIFY(capture.messages().value(0).startsWith(QLatin1String("arguments: (\n")));
    QCOMPARE(c.arguments().keys(), expected.keys());
    for (auto it = expected.cbegin(); it != expected.cend(); ++it)
        QCOMPARE(c.arguments().value(it.key()), it.value());
}

void TestInstallerSetup::completesArgumentsFromBundle()
{
    ProductFixture fixture;
    LogCapture capture;
    Controller c = setUp(fixture, { "-completionSound", "NO" });
    capture.restore();
    const InstallerArguments &a = c->arguments();
    QCOMPARE(a.value("sourcePath").toString(), fixture.product);
    QCOMPARE(a.value("productName").toString(), QStringLiteral("Foo"));
    QCOMPARE(a.value("productCode").toStringList(), QStringList { "WXYZ" });
    QCOMPARE(a.value("quitCode").toStringList(), QStringList { "WXYZ" });
    QCOMPARE(a.value("destinationPath").toString(), fixture.applications + "/Foo.app");
    // The bundle's version is shown but not stored: the run sees only a passed one.
    QVERIFY(!a.contains("version"));
    QCOMPARE(c->nameField()->text(), QStringLiteral("Foo 2.0"));
    QCOMPARE(c->window()->windowTitle(), QStringLiteral("Foo Installer"));
    QCOMPARE(c->introField()->text(), QStringLiteral("This will install Foo on your computer."));
    const QStringList log = capture.messages();
    QVERIFY(log.contains(QStringLiteral("AppleEvents installed")));
    QVERIFY(log.contains(QStringLiteral("shortened path = ") + fixture.product + "/Contents"));
    QVERIFY(log.contains(QStringLiteral("shortened path = ") + fixture.product));
    QVERIFY(log.contains(QStringLiteral("autolaunch = (null)")));
    const QString updated = log.filter(QStringLiteral("Updated arguments: ")).value(0);
    QVERIFY(updated.contains(QStringLiteral("productCode = (\n        WXYZ\n    );")));
    QVERIFY(!c->isFinished());
}

void TestInstallerSetup::interfaceFile_data()
{
    // clang-format off
    // What the bundle's interface file becomes: its window as it stands.
    QTest::addColumn<QByteArray>("from");
    QTest::addColumn<QByteArray>("to");
    QTest::addColumn<QString>("title"); // null: not loaded
    QTest::newRow("as built") << QByteArray() << QByteArray() << "Foo Installer";
    QTest::newRow("edited in the bundle") << QByteArray("%@ Installer") << QByteArray("%@ Setup")
        << "Foo Setup";
    QTest::newRow("broken") << QByteArray("</ui>") << QByteArray() << QString();
    // clang-format on
}

void TestInstallerSetup::interfaceFile()
{
    QFETCH(QByteArray, from);
    QFETCH(QByteArray, to);
    QFETCH(QString, title);
    ProductFixture fixture;
    const QString file = fixture.installer + "/Contents/Resources/InstallerWindow.ui";
    if (!from.isEmpty())
        writeFile(file, readFile(file).replace(from, to));
    LogCapture quiet;
    Controller c = setUp(fixture, {});
    if (title.isNull()) {
        QVERIFY(!c->interfaceError().isEmpty());
        QVERIFY(!c->window());
    } else {
        QCOMPARE(c->window()->windowTitle(), title);
        QCOMPARE(c->nameField()->text(), QStringLiteral("Foo 2.0"));
    }
}

void TestInstallerSetup::quitListAlwaysHoldsProductCodes()
{
    ProductFixture fixture;
    LogCapture quiet;
    Controller c = setUp(fixture, { "-quitCode", "ABCD" });
    QCOMPARE(c->arguments().value("productCode").toStringList(), QStringList { "WXYZ" });
    QCOMPARE(c->arguments().value("quitCode").toStringList(), (QStringList { "ABCD", "WXYZ" }));
    c = setUp(fixture, { "-productCode", "P1", "-productCode", "P2", "-quitCode", "Q1" });
    QCOMPARE(c->arguments().value("quitCode").toStringList(), (QStringList { "Q1", "P1", "P2" }));
}

void TestInstallerSetup::destination_data()
{
    // clang-format off
    // Paths relative to the test's folder; the source is Volumes/Foo/Foo.app.
    QTest::addColumn<QString>("given"); // -destinationPath
    QTest::addColumn<QString>("wrapper"); // -wrapperPath
    QTest::addColumn<QString>("expected");
    QTest::newRow("existing folder kept") << "Other/Foo Pro.app" << "" << "Other/Foo Pro.app";
    QTest::newRow("missing folder falls back") << "Missing/Sub/Foo.app" << ""
        << "Applications/Foo.app";
    QTest::newRow("parent is a file falls back") << "afile/Foo.app" << "" << "Applications/Foo.app";
    QTest::newRow("wrapper moves the destination") << "" << "Volumes/Foo/Foo Folder"
        << "Applications/Foo Folder/Foo.app";
    QTest::newRow("already inside the wrapper") << "Applications/Foo Folder/Foo.app"
        << "Volumes/Foo/Foo Folder" << "Applications/Foo Folder/Foo.app";
    QTest::newRow("wrapper outside the source folder dropped") << "" << "Elsewhere/Foo Folder"
        << "Applications/Foo.app";
    QTest::newRow("missing wrapper dropped") << "" << "Volumes/Foo/Nothing"
        << "Applications/Foo.app";
    // clang-format on
}

void TestInstallerSetup::destination()
{
    QFETCH(QString, given);
    QFETCH(QString, wrapper);
    QFETCH(QString, expected);
    ProductFixture fixture;
    for (const char *folder :
        { "Other", "Volumes/Foo/Foo Folder", "Elsewhere/Foo Folder", "Applications/Foo Folder" })
        QDir().mkpath(fixture.path(folder));
    writeFile(fixture.path("afile"), "x");
    QStringList args;
    if (!given.isEmpty())
        args << "-destinationPath" << fixture.path(given);
    if (!wrapper.isEmpty())
        args << "-wrapperPath" << fixture.path(wrapper);
    LogCapture capture;
    Controller c = setUp(fixture, args);
    capture.restore();
    QCOMPARE(c->arguments().value("destinationPath").toString(), fixture.path(expected));
    QCOMPARE(c->pathField()->text(), fixture.path(expected));
    const bool kept = expected.contains("Foo Folder");
    QCOMPARE(c->arguments().contains("wrapperPath"), kept);
    QCOMPARE(capture.messages().contains("wrapper = " + fixture.path(wrapper)), kept);
}

void TestInstallerSetup::setupErrors_data()
{
    // clang-format off
    QTest::addColumn<QString>("case_");
    QTest::addColumn<QString>("message");
    QTest::newRow("installer outside any bundle") << "outside" << "missing source path";
    QTest::newRow("source is the root folder") << "root" << "missing program name";
    QTest::newRow("no signature") << "nosig" << "missing product signature";
    QTest::newRow("source is a plain file") << "file" << "missing product signature";
    QTest::newRow("binary Info.plist") << "binary" << "missing product signature";
    QTest::newRow("malformed Info.plist") << "malformed" << "missing product signature";
    // clang-format on
}

void TestInstallerSetup::setupErrors()
{
    QFETCH(QString, case_);
    QFETCH(QString, message);
    ProductFixture fixture;
    QStringList args;
    QTemporaryDir loose;
    if (case_ == "outside") {
        QDir().mkpath(loose.path() + "/QuilletInstaller.app/Contents/Resources");
        VXBundle::setMainBundlePath(loose.path() + "/QuilletInstaller.app");
        args << "-completionSound"
             << "NO"
             << "-productName"
             << "Foo";
    } else if (case_ == "root") {
        args << "-sourcePath"
             << "/";
    } else if (case_ == "nosig") {
        fixture.info.remove("CFBundleSignature");
        fixture.writeInfo();
    } else if (case_ == "file") {
        writeFile(fixture.path("plain.app"), "data");
        args << "-sourcePath" << fixture.path("plain.app");
    } else if (case_ == "binary") {
        writeFile(
            fixture.product + "/Contents/Info.plist", QByteArray("bplist00\x01\x02\x03\xff", 12));
    } else if (case_ == "malformed") {
        writeFile(
            fixture.product + "/Contents/Info.plist", "<?xml version=\"1.0\"?><plist><dict><key>");
    }
    LogCapture capture;
    Controller c = setUp(fixture, args);
    capture.restore();
    QVERIFY(capture.messages().contains(message));
    QVERIFY(c->isFinished());
    QCOMPARE(c->introField()->text(), message);
    QCOMPARE(c->installButton()->text(), QStringLiteral("OK"));
    QVERIFY(c->cancelButton()->isHidden());
    QVERIFY(c->checkmarkField()->isHidden());
    // The "%@" title is cleared when the name is not known yet.
    if (case_ == "outside" || case_ == "root")
        QCOMPARE(c->window()->windowTitle(), QString());
    QVERIFY(!c->window()->windowTitle().contains('%'));
}

void TestInstallerSetup::helpButtonVisibility_data()
{
    // clang-format off
    QTest::addColumn<QStringList>("args");
    QTest::addColumn<bool>("visible");
    QTest::newRow("none") << QStringList {} << false;
    QTest::newRow("URL") << QStringList { "-documentationURL", "https://example.org/help" } << true;
    QTest::newRow("existing file") << QStringList { "-documentationPath", "@doc" } << true;
    QTest::newRow("missing file hides even with a URL")
        << QStringList { "-documentationPath", "@missing", "-documentationURL", "https://example.org" }
        << false;
    // clang-format on
}

void TestInstallerSetup::helpButtonVisibility()
{
    QFETCH(QStringList, args);
    QFETCH(bool, visible);
    ProductFixture fixture;
    writeFile(fixture.path("doc.pdf"), "%PDF");
    args.replaceInStrings("@doc", fixture.path("doc.pdf"));
    args.replaceInStrings("@missing", fixture.path("gone.pdf"));
    LogCapture quiet;
    Controller c = setUp(fixture, args);
    QCOMPARE(!c->helpButton()->isHidden(), visible);
    QVERIFY(c->messageField()->isHidden());
}

void TestInstallerSetup::readMeFallbacks_data()
{
    // clang-format off
    QTest::addColumn<QByteArray>("content");
    QTest::addColumn<QString>("suffix");
    QTest::addColumn<QString>("shown");
    QTest::newRow("plain text") << QByteArray("Read me first.\nSecond line.") << "txt"
        << "Read me first.\nSecond line.";
    QTest::newRow("markdown") << QByteArray("# Title\n\nSome *text*.") << "md"
        << "Title\nSome text.";
    QTest::newRow("html") << QByteArray("<html><body><p>Hello <b>there</b></p></body></html>")
        << "html" << "Hello there";
    QTest::newRow("rtf by content, any name") << QByteArray("{\\rtf1\\ansi Hello\\par World}")
        << "txt" << "Hello\nWorld";
    QTest::newRow("empty") << QByteArray() << "rtf" << "";
    QTest::newRow("binary") << QByteArray("\x7f" "ELF\x02\x01\x01\0\0\0\0\0\0\0\0\0", 16) << "rtf"
        << "";
    QTest::newRow("huge") << QByteArray(50 * 1024 * 1024, 'x') << "txt" << "";
    QTest::newRow("Latin-1 text") << QByteArray("Gr\xfc\xdf" "e") << "txt"
        << QString::fromUtf8("Grüße");
    // clang-format on
}

void TestInstallerSetup::readMeFallbacks()
{
    QFETCH(QByteArray, content);
    QFETCH(QString, suffix);
    QFETCH(QString, shown);
    ProductFixture fixture;
    const QString readMe = fixture.path("ReadMe." + suffix);
    writeFile(readMe, content);
    LogCapture quiet;
    Controller c = setUp(fixture, { "-readMePath", readMe });
    QCOMPARE(c->tabView()->currentIndex(), 0); // the file exists: the read-me page comes first
    QCOMPARE(c->readMeTextView()->toPlainText(), shown);
    QCOMPARE(c->installButton()->text(), QStringLiteral("Continue"));
    QCOMPARE(c->cancelButton()->text(), QStringLiteral("Cancel"));
}

namespace {
// A square of one colour in the format the name's suffix gives; an icns file
// holds it as its 128-pixel PNG frame after a blue 16-pixel one.
QByteArray picture(const QString &name, QColor colour, int edge = 32)
{
    if (name.endsWith(".svg"))
        return "<svg xmlns='http://www.w3.org/2000/svg' width='32' height='32'><rect width='32' "
               "height='32' fill='"
            + colour.name().toLatin1() + "'/></svg>";
    QByteArray bytes;
    QBuffer buffer(&bytes);
    buffer.open(QIODevice::WriteOnly);
    if (!name.endsWith(".icns")) {
        QImage image(edge, edge, QImage::Format_ARGB32);
        image.fill(colour);
        image.save(&buffer, "PNG");
        return bytes;
    }
    QDataStream icns(&buffer); // big-endian
    const QByteArray small = picture("s.png", Qt::blue, 16), large = picture("l.png", colour, 128);
    icns.writeRawData("icns", 4);
    icns << quint32(8 + 8 + small.size() + 8 + large.size());
    for (const auto &[type, data] : { std::pair { "icp4", small }, std::pair { "ic07", large } }) {
        icns.writeRawData(type, 4);
        icns << quint32(8 + data.size());
        icns.writeRawData(data.constData(), int(data.size()));
    }
    return bytes;
}
} // namespace

void TestInstallerSetup::icon_data()
{
    // clang-format off
    QTest::addColumn<QString>("resource"); // in Contents/Resources, named by CFBundleIconFile "Foo"
    QTest::addColumn<QByteArray>("content"); // empty: a red picture
    QTest::addColumn<QString>("given"); // -iconPath, a red PNG when it exists
    QTest::addColumn<bool>("red"); // what is shown
    const QByteArray corrupt("icns\x00\x00\x10\x00garbage", 16);
    QTest::newRow("given file wins") << "Foo.icns" << corrupt << "icon.png" << true;
    QTest::newRow("icns, PNG frame that fits") << "Foo.icns" << QByteArray() << "" << true;
    QTest::newRow("bundle PNG without extension") << "Foo.png" << QByteArray() << "" << true;
    QTest::newRow("bundle SVG without extension") << "Foo.svg" << QByteArray() << "" << true;
    QTest::newRow("corrupt icns, missing given file") << "Foo.icns" << corrupt << "missing.png"
        << false;
    // clang-format on
}

void TestInstallerSetup::icon()
{
    QFETCH(QString, resource);
    QFETCH(QByteArray, content);
    QFETCH(QString, given);
    QFETCH(bool, red);
    ProductFixture fixture;
    fixture.info.insert("CFBundleIconFile", "Foo");
    fixture.writeInfo();
    writeFile(fixture.product + "/Contents/Resources/" + resource,
        content.isEmpty() ? picture(resource, Qt::red) : content);
    writeFile(fixture.path("icon.png"), picture("icon.png", Qt::red));
    QStringList args;
    if (!given.isEmpty())
        args << "-iconPath" << fixture.path(given);
    LogCapture quiet;
    Controller c = setUp(fixture, args);
    QVERIFY(!c->isFinished()); // a bad icon never stops set-up
    const QImage shown = c->iconField()->pixmap().toImage();
    QCOMPARE(!shown.isNull() && shown.pixelColor(shown.rect().center()) == QColor(Qt::red), red);
}

void TestInstallerSetup::pageButtons()
{
    ProductFixture fixture;
    LogCapture quiet;
    // Without a read-me the cancel button keeps the interface file's title.
    Controller c = setUp(fixture, {});
    QCOMPARE(c->tabView()->currentIndex(), 1);
    QCOMPARE(c->installButton()->text(), QStringLiteral("Install"));
    QCOMPARE(c->cancelButton()->text(), QStringLiteral("Cancel"));

    // A read-me that is missing: the install page first, yet "Go Back" leads
    // to the (empty) read-me page, and "Continue" returns.
    c = setUp(fixture, { "-readMePath", fixture.path("gone.rtf") });
    QCOMPARE(c->tabView()->currentIndex(), 1);
    QCOMPARE(c->cancelButton()->text(), QStringLiteral("Go Back"));
    c->cancelButton()->click();
    QCOMPARE(c->tabView()->currentIndex(), 0);
    QCOMPARE(c->installButton()->text(), QStringLiteral("Continue"));
    QCOMPARE(c->cancelButton()->text(), QStringLiteral("Cancel"));
    QVERIFY(c->readMeTextView()->toPlainText().isEmpty());
    c->installButton()->click();
    QCOMPARE(c->tabView()->currentIndex(), 1);
    QCOMPARE(c->installButton()->text(), QStringLiteral("Install"));
}

void TestInstallerSetup::applicationsDirectoryFallsBackToUserFolder()
{
    ProductFixture fixture;
    InstallerWinController c(fixture.options({}));
    LogCapture capture;
    QCOMPARE(c.applicationsDirectory(), fixture.applications);
    InstallerWinController::setApplicationsFolders(
        fixture.path("no-such-folder"), fixture.userApplications);
    // A missing ~/Applications is not writable: the system folder it is.
    QCOMPARE(c.applicationsDirectory(), fixture.path("no-such-folder"));
    QDir().mkpath(fixture.userApplications);
    QCOMPARE(c.applicationsDirectory(), fixture.userApplications);
    capture.restore();
    QVERIFY(capture.messages().contains("Can't write to /Applications, checking ~/Applications"));
    QVERIFY(capture.messages().contains("User applicationsDirectory: " + fixture.userApplications));
}

void TestInstallerSetup::unsupportedFolders_data()
{
    QTest::addColumn<QString>("path");
    QTest::addColumn<bool>("unsupported");
    QTest::newRow("installer volume") << "/Volumes/Name-Install/Name.app" << true;
    QTest::newRow("data volume") << "/Volumes/Data/Apps/Name.app" << false;
    QTest::newRow("removable media installer") << "/run/media/ann/Name-Install/Name.app" << true;
    QTest::newRow("removable media data") << "/media/ann/USB/Name.app" << false;
    QTest::newRow("build without qzv") << "/home/ann/build/Name.app" << false;
    QTest::newRow("development build") << "/home/ann/build/qzv/Name.app" << true;
    QTest::newRow("Trash") << "/home/ann/.local/share/Trash/files/Name.app" << true;
    QTest::newRow("dot Trash") << "/Users/x/.Trash/Name.app" << true;
    QTest::newRow("private var") << "/private/var/folders/xy/Name.app" << true;
    QTest::newRow("nil") << QString() << false;
}

void TestInstallerSetup::unsupportedFolders()
{
    QFETCH(QString, path);
    QFETCH(bool, unsupported);
    InstallerWinController c({ { "/x" }, false, {} });
    QCOMPARE(c.isInUnsupportedFolder(path), unsupported);
}

void TestInstallerSetup::canWriteToPathWalksUpToExistingFolder()
{
    ProductFixture fixture;
    InstallerWinController c(fixture.options({}));
    LogCapture capture;
    QVERIFY(c.canWriteToPath(fixture.applications + "/New Folder/Sub/Name.app"));
    QVERIFY(c.canWriteToDirectory(fixture.applications));
    QVERIFY(QDir(fixture.applications)
                .entryList(QDir::Files | QDir::Hidden)
                .isEmpty()); // the probe is gone
    // /proc/1 exists and is not writable even for root.
    QVERIFY(!c.canWriteToPath("/proc/1/Name.app"));
    capture.restore();
    QVERIFY(capture.messages().contains("Cannot write to folder /proc/1"));
}

void TestInstallerSetup::loginItems_data()
{
    // clang-format off
    // Autostart entries of the same file name in the user's folder and in a
    // system folder; @ stands for the test's folder. The expected
    // destination is relative to it.
    QTest::addColumn<QString>("user");
    QTest::addColumn<QString>("system");
    QTest::addColumn<QString>("expected");
    const QString exec = "[Desktop Entry]\nType=Application\nName=Foo\nExec=";
    QTest::newRow("quoted program path with a blank")
        << exec + "\"@/Foo Folder/Foo.app/Contents/Linux/Foo\" --hidden\n" << ""
        << "Foo Folder/Foo.app";
    QTest::newRow("system folder entry") << "" << exec + "@/Other/Foo.app/Contents/Linux/Foo\n"
        << "Other/Foo.app";
    QTest::newRow("switched off in GNOME")
        << exec + "@/Other/Foo.app/Contents/Linux/Foo\nX-GNOME-Autostart-enabled=false\n" << ""
        << "Applications/Foo.app";
    QTest::newRow("hidden user entry masks the system one") << "[Desktop Entry]\nHidden=true\n"
        << exec + "@/Other/Foo.app/Contents/Linux/Foo\n" << "Applications/Foo.app";
    QTest::newRow("program gone") << exec + "@/Gone/Foo.app/Contents/Linux/Foo\n" << ""
        << "Applications/Foo.app";
    QTest::newRow("not a desktop entry") << "Exec=@/Other/Foo.app/Contents/Linux/Foo\n" << ""
        << "Applications/Foo.app";
    // clang-format on
}

void TestInstallerSetup::loginItems()
{
    QFETCH(QString, user);
    QFETCH(QString, system);
    QFETCH(QString, expected);
    ProductFixture fixture;
    for (const char *bundle : { "Foo Folder/Foo.app", "Other/Foo.app" })
        writeFile(fixture.path(bundle) + "/Contents/Linux/Foo", "#!/bin/sh\n", true);
    QDir().mkpath(fixture.path("Gone/Foo.app/Contents"));
    const QString userFolder = QDir::homePath() + "/.config/autostart";
    const QString systemFolder = fixture.path("xdg");
    qputenv("XDG_CONFIG_DIRS", QFile::encodeName(systemFolder));
    const auto restore = qScopeGuard([&] {
        qunsetenv("XDG_CONFIG_DIRS");
        QDir(userFolder).removeRecursively();
    });
    writeFile(userFolder + "/a-other.desktop", "[Desktop Entry]\nExec=/usr/bin/env\n");
    if (!user.isEmpty())
        writeFile(userFolder + "/foo.desktop", user.replace("@/", fixture.path("")).toUtf8());
    if (!system.isEmpty())
        writeFile(systemFolder + "/autostart/foo.desktop",
            system.replace("@/", fixture.path("")).toUtf8());
    LogCapture quiet;
    Controller c = setUp(fixture, {});
    QCOMPARE(c->arguments().value("destinationPath").toString(), fixture.path(expected));
    if (!expected.startsWith("Applications")) {
        QCOMPARE(c->autoLaunchPathFor("Fo"), fixture.path(expected)); // a prefix of the name
        QVERIFY(c->autoLaunchPathFor("foo").isNull()); // case-sensitive
    }
}

void TestInstallerSetup::localizedPath_data()
{
    // clang-format off
    QTest::addColumn<QString>("path");
    QTest::addColumn<QString>("shown");
    QTest::newRow("home") << "@home" << "~";
    QTest::newRow("in home") << "@home/Applications/Foo.app" << "~/Applications/Foo.app";
    QTest::newRow("root") << "/" << "/";
    QTest::newRow("system") << "/opt/Foo.app" << "/opt/Foo.app";
    QTest::newRow("home prefix but other user") << "@home2/x" << "@home2/x";
    // clang-format on
}

void TestInstallerSetup::localizedPath()
{
    QFETCH(QString, path);
    QFETCH(QString, shown);
    path.replace("@home", QDir::homePath());
    shown.replace("@home", QDir::homePath());
    InstallerWinController c({ { "/x" }, false, {} });
    QCOMPARE(c.localizedPath(path), shown);
}

QTEST_MAIN(TestInstallerSetup)
#include "tst_installersetup.moc"

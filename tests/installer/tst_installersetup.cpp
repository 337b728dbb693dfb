// SPDX-FileCopyrightText: 2026 Quillet developers
// SPDX-License-Identifier: MIT
//
// The installer's set-up, from its arguments and the product's bundle to
// the window's first state, and its answers about folders.
#include "common/logcapture.h"
#include "installerfixture.h"

#include <QAbstractButton>
#include <QBuffer>
#include <QDataStream>
#include <QLabel>
#include <QPushButton>
#include <QRegularExpression>
#include <QScopeGuard>
#include <QTabWidget>
#include <QTest>
#include <QTextEdit>

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

class TestInstallerSetup : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void extractArguments_data()
    {
        // clang-format off
        QTest::addColumn<QStringList>("argv");
        QTest::addColumn<QVariantMap>("expected");
        QTest::newRow("codes collect")
            << QStringList { "/x", "-productName", "Foo", "-productCode", "ABCD", "-productCode", "EFGH" }
            << QVariantMap { { "", "/x" }, { "productName", "Foo" },
                   { "productCode", QStringList { "ABCD", "EFGH" } } };
        QTest::newRow("codes after one key") << QStringList { "/x", "-quitCode", "ABCD", "EFGH" }
            << QVariantMap { { "", "/x" }, { "quitCode", QStringList { "ABCD", "EFGH" } } };
        QTest::newRow("last value wins; key without value not recorded")
            << QStringList { "/x", "-productName", "A", "-productName", "B", "-version" }
            << QVariantMap { { "", "/x" }, { "productName", "B" } };
        QTest::newRow("two minus signs keep one")
            << QStringList { "/x", "--x", "1" } << QVariantMap { { "", "/x" }, { "-x", "1" } };
        QTest::newRow("key is not reset after a value") << QStringList { "/x", "-readMePath", "a", "b" }
            << QVariantMap { { "", "/x" }, { "readMePath", "b" } };
        QTest::newRow("nothing") << QStringList { QString() } << QVariantMap { { "", QString() } };
        // clang-format on
    }

    void extractArguments()
    {
        QFETCH(QStringList, argv);
        QFETCH(QVariantMap, expected);
        InstallerWinController c({ argv, false, QString() });
        c.extractArguments();
        c.extractArguments(); // a second call changes nothing
        QCOMPARE(c.arguments().keys(), expected.keys());
        for (auto it = expected.cbegin(); it != expected.cend(); ++it)
            QCOMPARE(c.arguments().value(it.key()), it.value());
    }

    // Set-up from the product's arguments and bundle, as the window then
    // shows it. Paths: "@" is the test's folder (the product is
    // Volumes/Foo/Foo.app, the Applications folder Applications); files
    // named "~/..." are in the home folder. Only the observations a row
    // names are compared (see observe()).
    void setUp_data()
    {
        // clang-format off
        QTest::addColumn<QStringList>("args");
        QTest::addColumn<QVariantMap>("files"); // written first: path -> content
        QTest::addColumn<QVariantMap>("expected");
        using Map = QVariantMap;
        const QString exec = "[Desktop Entry]\nType=Application\nName=Foo\nExec=";
        const QByteArray corruptIcns("icns\x00\x00\x10\x00garbage", 16);
        const QString product = "@Volumes/Foo/Foo.app/Contents/";

        // The bundle completes the arguments: its creator code joins the
        // codes given, and the quit list always holds the product codes.
        QTest::newRow("bundle: nothing given") << QStringList {} << Map {} << Map {
            { "destination", "Applications/Foo.app" }, { "source", "Volumes/Foo/Foo.app" },
            { "product", "Foo" }, { "codes", "WXYZ / WXYZ" }, { "name", "Foo 2.0" },
            { "title", "Foo Installer" }, { "intro", "This will install Foo on your computer." },
            { "version", "" }, // shown, but not stored: the run sees only a passed one
            { "finished", false }, { "page", 1 }, { "buttons", "Install/Cancel" },
            { "help", false }, { "checkmark", false } };
        QTest::newRow("bundle: quit code given") << QStringList { "-quitCode", "ABCD" } << Map {}
            << Map { { "codes", "WXYZ / ABCD,WXYZ" } };
        QTest::newRow("bundle: product codes given")
            << QStringList { "-productCode", "P1", "-productCode", "P2", "-quitCode", "Q1" } << Map {}
            << Map { { "codes", "P1,P2 / Q1,P1,P2" } };

        QTest::newRow("destination: existing folder kept")
            << QStringList { "-destinationPath", "@Other/Foo Pro.app" } << Map {}
            << Map { { "destination", "Other/Foo Pro.app" } };
        QTest::newRow("destination: missing folder falls back")
            << QStringList { "-destinationPath", "@Missing/Sub/Foo.app" } << Map {}
            << Map { { "destination", "Applications/Foo.app" } };
        QTest::newRow("destination: parent is a file falls back")
            << QStringList { "-destinationPath", "@afile/Foo.app" } << Map {}
            << Map { { "destination", "Applications/Foo.app" } };
        QTest::newRow("destination: wrapper moves it")
            << QStringList { "-wrapperPath", "@Volumes/Foo/Foo Folder" } << Map {}
            << Map { { "destination", "Applications/Foo Folder/Foo.app" }, { "wrapper", true } };
        QTest::newRow("destination: already inside the wrapper") << QStringList {
            "-destinationPath", "@Applications/Foo Folder/Foo.app", "-wrapperPath",
            "@Volumes/Foo/Foo Folder" } << Map {}
            << Map { { "destination", "Applications/Foo Folder/Foo.app" }, { "wrapper", true } };
        QTest::newRow("destination: wrapper outside the source folder dropped")
            << QStringList { "-wrapperPath", "@Elsewhere/Foo Folder" } << Map {}
            << Map { { "destination", "Applications/Foo.app" }, { "wrapper", false } };
        QTest::newRow("destination: missing wrapper dropped")
            << QStringList { "-wrapperPath", "@Volumes/Foo/Nothing" } << Map {}
            << Map { { "destination", "Applications/Foo.app" }, { "wrapper", false } };

        // Errors stop set-up with the message in place of the introduction
        // and an "OK" that quits; no check mark, and no "%@" title.
        const auto error = [](const QString &message, const QString &title) {
            return Map { { "intro", message }, { "logged", message }, { "finished", true },
                { "buttons", "OK/-" }, { "checkmark", false }, { "title", title } };
        };
        QTest::newRow("error: installer outside any bundle") << QStringList { "-productName", "Foo" }
            << Map {} << error("missing source path", "");
        QTest::newRow("error: source is the root folder") << QStringList { "-sourcePath", "/" }
            << Map {} << error("missing program name", "");
        QTest::newRow("error: no signature") << QStringList {} << Map { { product + "Info.plist",
            "<?xml version=\"1.0\"?><plist><dict><key>CFBundleExecutable</key><string>Foo"
            "</string></dict></plist>" } } << error("missing product signature", "Foo Installer");
        QTest::newRow("error: source is a plain file") << QStringList { "-sourcePath", "@plain.app" }
            << Map { { "@plain.app", "data" } } << error("missing product signature", "plain Installer");
        QTest::newRow("error: binary Info.plist") << QStringList {}
            << Map { { product + "Info.plist", QByteArray("bplist00\x01\x02\x03\xff", 12) } }
            << error("missing product signature", "Foo Installer");
        QTest::newRow("error: malformed Info.plist") << QStringList {}
            << Map { { product + "Info.plist", "<?xml version=\"1.0\"?><plist><dict><key>" } }
            << error("missing product signature", "Foo Installer");

        QTest::newRow("help: URL") << QStringList { "-documentationURL", "https://example.org/help" }
            << Map {} << Map { { "help", true } };
        QTest::newRow("help: existing file") << QStringList { "-documentationPath", "@doc.pdf" }
            << Map { { "@doc.pdf", "%PDF" } } << Map { { "help", true } };
        QTest::newRow("help: missing file hides it even with a URL") << QStringList {
            "-documentationPath", "@gone.pdf", "-documentationURL", "https://example.org" }
            << Map {} << Map { { "help", false } };

        // A read-me that exists comes first, whatever it holds.
        const auto readMe = [](const QString &name, const QByteArray &content, const QString &shown) {
            QTest::addRow("read-me: %s", qPrintable(name)) << QStringList { "-readMePath", "@" + name }
                << Map { { "@" + name, content } } << Map { { "readMe", shown }, { "page", 0 },
                    { "buttons", "Continue/Cancel" } };
        };
        readMe("plain.txt", "Read me first.\nSecond line.", "Read me first.\nSecond line.");
        readMe("markdown.md", "# Title\n\nSome *text*.", "Title\nSome text.");
        readMe("page.html", "<html><body><p>Hello <b>there</b></p></body></html>", "Hello there");
        readMe("rtf-by-content.txt", "{\\rtf1\\ansi Hello\\par World}", "Hello\nWorld");
        readMe("empty.rtf", "", "");
        readMe("binary.rtf", QByteArray("\x7f" "ELF\x02\x01\x01\0\0\0\0\0\0\0\0\0", 16), "");
        readMe("huge.txt", QByteArray(50 * 1024 * 1024, 'x'), "");
        readMe("latin-1.txt", "Gr\xfc\xdf" "e", QString::fromUtf8("Grüße"));
        QTest::newRow("read-me: missing") << QStringList { "-readMePath", "@gone.rtf" } << Map {}
            << Map { { "readMe", "" }, { "page", 1 }, { "buttons", "Install/Go Back" } };

        // CFBundleIconFile says "Foo"; a bad icon never stops set-up.
        const auto icon = [](const char *tag, const QString &resource, const QByteArray &content,
                              const QStringList &args, bool red) {
            QTest::newRow(tag) << args << Map { { "@Volumes/Foo/Foo.app/Contents/Resources/" + resource, content },
                    { "@icon.png", picture("icon.png", Qt::red) } }
                << Map { { "red icon", red }, { "finished", false } };
        };
        icon("icon: given file wins", "Foo.icns", corruptIcns, { "-iconPath", "@icon.png" }, true);
        icon("icon: icns, PNG frame that fits", "Foo.icns", picture("Foo.icns", Qt::red), {}, true);
        icon("icon: bundle PNG without extension", "Foo.png", picture("Foo.png", Qt::red), {}, true);
        icon("icon: bundle SVG without extension", "Foo.svg", picture("Foo.svg", Qt::red), {}, true);
        icon("icon: corrupt icns, missing given file", "Foo.icns", corruptIcns,
            { "-iconPath", "@missing.png" }, false);

        // Autostart entries (~/.config/autostart, then the system folder
        // @xdg/autostart) read with a desktop entry parser: the bundle of
        // the product's login item is the destination.
        const auto loginItem = [&](const char *tag, const QString &user, const QString &system,
                                   const QString &expected) {
            QTest::newRow(tag) << QStringList {}
                << Map { { "~/.config/autostart/foo.desktop", user }, { "@xdg/autostart/foo.desktop", system } }
                << Map { { "destination", expected },
                    { "login item", expected.startsWith("Applications") ? "" : expected } };
        };
        loginItem("login item: quoted program path with a blank",
            exec + "\"@Foo Folder/Foo.app/Contents/Linux/Foo\" --hidden\n", "", "Foo Folder/Foo.app");
        loginItem("login item: system folder", "", exec + "@Other/Foo.app/Contents/Linux/Foo\n",
            "Other/Foo.app");
        loginItem("login item: switched off in GNOME",
            exec + "@Other/Foo.app/Contents/Linux/Foo\nX-GNOME-Autostart-enabled=false\n", "",
            "Applications/Foo.app");
        loginItem("login item: hidden user entry masks the system one",
            "[Desktop Entry]\nHidden=true\n", exec + "@Other/Foo.app/Contents/Linux/Foo\n",
            "Applications/Foo.app");
        loginItem("login item: program gone", exec + "@Gone/Foo.app/Contents/Linux/Foo\n", "",
            "Applications/Foo.app");
        loginItem("login item: not a desktop entry", "Exec=@Other/Foo.app/Contents/Linux/Foo\n", "",
            "Applications/Foo.app");
        // clang-format on
    }

    void setUp()
    {
        QFETCH(QStringList, args);
        QFETCH(QVariantMap, files);
        QFETCH(QVariantMap, expected);
        ProductFixture fixture;
        const QString root = fixture.path("");
        fixture.info.insert("CFBundleIconFile", "Foo");
        fixture.writeInfo();
        for (const char *folder : { "Other", "Volumes/Foo/Foo Folder", "Elsewhere/Foo Folder",
                 "Applications/Foo Folder", "Gone/Foo.app/Contents" })
            QDir().mkpath(root + folder);
        for (const char *bundle : { "Foo Folder/Foo.app", "Other/Foo.app" })
            writeFile(root + bundle + "/Contents/Linux/Foo", "#!/bin/sh\n", true);
        writeFile(root + "afile", "x");
        writeFile(QDir::homePath() + "/.config/autostart/a-other.desktop",
            "[Desktop Entry]\nExec=/usr/bin/env\n");
        qputenv("XDG_CONFIG_DIRS", QFile::encodeName(root + "xdg"));
        const auto restore = qScopeGuard([] {
            qunsetenv("XDG_CONFIG_DIRS");
            QDir(QDir::homePath() + "/.config/autostart").removeRecursively();
        });
        // Autostart entries name programs in the test's folder; an empty one
        // is not written.
        for (auto it = files.cbegin(); it != files.cend(); ++it) {
            const bool entry = it.key().contains("autostart");
            if (!entry || !it.value().toByteArray().isEmpty())
                writeFile(QString(it.key())
                              .replace(QRegularExpression("^~"), QDir::homePath())
                              .replace(QRegularExpression("^@"), root),
                    entry ? it.value().toByteArray().replace("@", root.toUtf8())
                          : it.value().toByteArray());
        }
        QTemporaryDir loose;
        if (QByteArray(QTest::currentDataTag()).startsWith("error: installer outside")) {
            QDir().mkpath(loose.path() + "/QuilletInstaller.app/Contents/Resources");
            VXBundle::setMainBundlePath(loose.path() + "/QuilletInstaller.app");
        }
        LogCapture capture;
        const auto c = fixture.setUp(args.replaceInStrings(QRegularExpression("^@"), root));
        capture.restore();

        const auto relative = [&](const QString &path) { return QString(path).remove(root); };
        const InstallerArguments &a = c->arguments();
        const QImage icon = c->iconField()->pixmap().toImage();
        const QString destination = relative(a.value("destinationPath").toString());
        const QVariantMap observed {
            { "destination",
                destination
                    + (relative(c->pathField()->text()) == destination ? "" : " (not shown)") },
            { "source", relative(a.value("sourcePath").toString()) },
            { "product", a.value("productName") }, { "version", a.value("version") },
            { "codes",
                a.value("productCode").toStringList().join(',') + " / "
                    + a.value("quitCode").toStringList().join(',') },
            { "wrapper", a.contains("wrapperPath") }, { "name", c->nameField()->text() },
            { "title", c->window()->windowTitle() }, { "intro", c->introField()->text() },
            { "finished", c->isFinished() }, { "page", c->tabView()->currentIndex() },
            { "buttons",
                c->installButton()->text() + "/"
                    + (c->cancelButton()->isHidden() ? "-" : c->cancelButton()->text()) },
            { "help", !c->helpButton()->isHidden() },
            { "readMe", c->readMeTextView()->toPlainText() },
            { "checkmark", !c->checkmarkField()->isHidden() },
            { "red icon",
                !icon.isNull() && icon.pixelColor(icon.rect().center()) == QColor(Qt::red) },
            // A prefix of the name finds it; the lookup is case-sensitive.
            { "login item",
                relative(c->autoLaunchPathFor("Fo"))
                    + (c->autoLaunchPathFor("foo").isNull() ? "" : " (also lower-case)") },
            { "logged", expected.value("logged") }
        };
        if (expected.contains("logged"))
            QVERIFY2(capture.messages().contains(expected.value("logged").toString()),
                qPrintable(capture.text()));
        for (auto it = expected.cbegin(); it != expected.cend(); ++it)
            QCOMPARE(it.key() + ": " + observed.value(it.key()).toString(),
                it.key() + ": " + it.value().toString());
    }

    void interfaceFile_data()
    {
        // clang-format off
        // What the bundle's interface file becomes: its window as it stands.
        QTest::addColumn<QByteArray>("from");
        QTest::addColumn<QByteArray>("to");
        QTest::addColumn<QString>("title");
        QTest::newRow("edited in the bundle") << QByteArray("%@ Installer") << QByteArray("%@ Setup")
            << "Foo Setup";
        QTest::newRow("broken") << QByteArray("</ui>") << QByteArray() << "(not loaded)";
        // clang-format on
    }

    void interfaceFile()
    {
        QFETCH(QByteArray, from);
        QFETCH(QByteArray, to);
        QFETCH(QString, title);
        ProductFixture fixture;
        const QString file = fixture.installer + "/Contents/Resources/InstallerWindow.ui";
        writeFile(file, readFile(file).replace(from, to));
        const auto c = fixture.setUp({});
        QCOMPARE(c->window() ? c->window()->windowTitle() : QStringLiteral("(not loaded)"), title);
        QCOMPARE(c->interfaceError().isEmpty(), c->window() != nullptr);
    }

    void pageButtons()
    {
        // A read-me that is missing: "Go Back" still leads to the (empty)
        // read-me page, and "Continue" returns.
        ProductFixture fixture;
        const auto c = fixture.setUp({ "-readMePath", fixture.path("gone.rtf") });
        c->cancelButton()->click();
        QCOMPARE(c->tabView()->currentIndex(), 0);
        QCOMPARE(c->installButton()->text() + "/" + c->cancelButton()->text(), "Continue/Cancel");
        c->installButton()->click();
        QCOMPARE(c->tabView()->currentIndex(), 1);
        QCOMPARE(c->installButton()->text() + "/" + c->cancelButton()->text(), "Install/Go Back");
    }

    void writableFolders()
    {
        ProductFixture fixture;
        InstallerWinController c(fixture.options({}));
        QCOMPARE(c.applicationsDirectory(), fixture.applications);
        // A missing ~/Applications is not writable: the system folder it is.
        InstallerWinController::setApplicationsFolders(
            fixture.path("no-such-folder"), fixture.userApplications);
        QCOMPARE(c.applicationsDirectory(), fixture.path("no-such-folder"));
        QDir().mkpath(fixture.userApplications);
        QCOMPARE(c.applicationsDirectory(), fixture.userApplications);

        // A path is writable where its nearest existing folder is; the probe
        // file is gone afterwards. /proc/1 is not writable even for root.
        QVERIFY(c.canWriteToPath(fixture.applications + "/New Folder/Sub/Name.app"));
        QCOMPARE(QDir(fixture.applications).entryList(QDir::Files | QDir::Hidden), QStringList());
        QVERIFY(!c.canWriteToPath("/proc/1/Name.app"));
    }

    void pathAnswers_data()
    {
        // clang-format off
        // How a path is shown (~ for the home folder) and whether the installer
        // refuses to run from it; @home is the home folder.
        QTest::addColumn<QString>("path");
        QTest::addColumn<QString>("shown");
        QTest::addColumn<bool>("unsupported");
        QTest::newRow("home") << "@home" << "~" << false;
        QTest::newRow("in home") << "@home/Applications/Foo.app" << "~/Applications/Foo.app" << false;
        QTest::newRow("root") << "/" << "/" << false;
        QTest::newRow("home prefix but other user") << "@home2/x" << "@home2/x" << false;
        QTest::newRow("installer volume") << "/Volumes/Name-Install/Name.app" << "" << true;
        QTest::newRow("data volume") << "/Volumes/Data/Apps/Name.app" << "" << false;
        QTest::newRow("removable media installer") << "/run/media/ann/Name-Install/Name.app" << ""
            << true;
        QTest::newRow("removable media data") << "/media/ann/USB/Name.app" << "" << false;
        QTest::newRow("build without qzv") << "/home/ann/build/Name.app" << "" << false;
        QTest::newRow("development build") << "/home/ann/build/qzv/Name.app" << "" << true;
        QTest::newRow("Trash") << "/home/ann/.local/share/Trash/files/Name.app" << "" << true;
        QTest::newRow("dot Trash") << "/Users/x/.Trash/Name.app" << "" << true;
        QTest::newRow("private var") << "/private/var/folders/xy/Name.app" << "" << true;
        QTest::newRow("nil") << QString() << "" << false;
        // clang-format on
    }

    void pathAnswers()
    {
        QFETCH(QString, path);
        QFETCH(QString, shown);
        QFETCH(bool, unsupported);
        path.replace("@home", QDir::homePath());
        InstallerWinController c({ { "/x" }, false, {} });
        QCOMPARE(c.isInUnsupportedFolder(path), unsupported);
        if (!shown.isEmpty())
            QCOMPARE(c.localizedPath(path), shown.replace("@home", QDir::homePath()));
    }
};

QTEST_MAIN(TestInstallerSetup)
#include "tst_installersetup.moc"

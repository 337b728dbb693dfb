// SPDX-FileCopyrightText: 2026 Quillet developers
// SPDX-License-Identifier: MIT
//
// The installer's set-up: started by a product (a real process, its log
// file, events from other processes over the session bus), from its
// arguments and the product's bundle to the window's first state, its
// answers about folders, and the texts it reads and writes: Rich Text
// read-mes and desktop entries.
#include "common/logcapture.h"
#include "installer/desktopentry.h"
#include "installer/rtfreader.h"
#include "installerfixture.h"
#include "utilities/vxfourcharcode.h"

#include <QAbstractButton>
#include <QBuffer>
#include <QDataStream>
#include <QLabel>
#include <QProcess>
#include <QPushButton>
#include <QRegularExpression>
#include <QScopeGuard>
#include <QTabWidget>
#include <QTextBlock>
#include <QTextCursor>
#include <QTextDocument>
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

const QString kSample = QStringLiteral(QUILLET_BINARY_DIR "/examples/Sample.app");
const QString kInstaller
    = kSample + "/Contents/Resources/QuilletInstaller.app/Contents/Linux/QuilletInstaller";

QString logFile()
{
    return QDir::homePath() + "/Library/Logs/QuilletInstaller.log";
}

QStringList logged()
{
    return logMessages(QString::fromUtf8(readFile(logFile())));
}

// Sends the Done event the way another program would, with dbus-send:
// `wait` for the receiver's reply, else without waiting, so that the
// receiver may be this very process.
int sendDone(qint64 pid, const QString &text, bool wait)
{
    const QStringList args { "--session", wait ? "--print-reply" : "--type=method_call",
        QStringLiteral("--dest=org.quillet.VX.p%1").arg(pid), "/org/quillet/VX/AppleEvents",
        "org.quillet.VX.AppleEvents.HandleEvent",
        QStringLiteral("uint32:%1").arg(VXFourCharCode::fromString("SinS")),
        QStringLiteral("uint32:%1").arg(VXFourCharCode::fromString("Done")), "string:" + text };
    return wait ? QProcess::execute("dbus-send", args)
                : !QProcess::startDetached("dbus-send", args);
}

// The installer as a process of its own, ended (if need be) as the object
// goes. The offscreen platform warns about raising windows: initTestCase()
// keeps the log to our lines.
struct Installer
{
    QProcess process;
    QString err; // what it wrote to standard error so far
    explicit Installer(const QStringList &args, const QString &program = kInstaller)
    {
        process.start(program, args);
    }
    QString readErr() { return err += QString::fromUtf8(process.readAllStandardError()); }
};

// Reads a document shaped like an editor's output; the test fails when the
// reader refuses it.
void readDocument(const char *name, QTextDocument *doc)
{
    QFile f(QStringLiteral(QUILLET_TEST_DATA "/readme/") + QLatin1String(name));
    QVERIFY(f.open(QIODevice::ReadOnly));
    QVERIFY(RtfReader::read(f.readAll(), doc));
}

// The character format in effect at the first occurrence of `text`.
QTextCharFormat formatAt(const QTextDocument &doc, const QString &text)
{
    QTextCursor c = doc.find(text);
    c.setPosition(c.selectionStart() + 1);
    return c.isNull() ? QTextCharFormat() : c.charFormat();
}

QTextBlockFormat blockOf(const QTextDocument &doc, const QString &text)
{
    return doc.find(text).block().blockFormat();
}
} // namespace

class TestInstallerSetup : public QObject
{
    Q_OBJECT
private Q_SLOTS:
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
        const auto row = [](const char *tag, const QStringList &args, const Map &expected,
                             const Map &files = {}) { QTest::newRow(tag) << args << files << expected; };
        row("bundle: nothing given", {}, { { "destination", "Applications/Foo.app" },
            { "shown", "Applications/Foo.app" },
            { "source", "Volumes/Foo/Foo.app" }, { "product", "Foo" }, { "codes", "WXYZ / WXYZ" },
            { "name", "Foo 2.0" }, { "title", "Foo Installer" },
            { "intro", "This will install Foo on your computer." },
            { "version", "" }, // shown, but not stored: the run sees only a passed one
            { "finished", false }, { "page", 1 }, { "buttons", "Install/Cancel" },
            { "help", false }, { "checkmark", false } });
        row("bundle: quit code given", { "-quitCode", "ABCD" }, { { "codes", "WXYZ / ABCD,WXYZ" } });
        row("bundle: product codes given", { "-productCode", "P1", "-productCode", "P2", "-quitCode",
            "Q1" }, { { "codes", "P1,P2 / Q1,P1,P2" } });
        // How the arguments are read: "-key value" pairs, codes collected
        // under keys that end in "Code". Oddities kept on purpose: "--x"
        // is the key "-x", and a key stays set after its value. Observations
        // named "-key" are the argument of that key.
        row("arguments: codes after one key", { "-quitCode", "AB", "CD" }, { { "codes", "WXYZ / AB,CD,WXYZ" } });
        row("arguments: last value wins; a key without value not recorded",
            { "-productName", "A", "-productName", "B", "-version" },
            { { "-productName", "B" }, { "-version", QVariant() } });
        row("arguments: two minus signs keep one", { "--x", "1" }, { { "--x", "1" } });
        row("arguments: key not reset after a value", { "-helpAnchor", "a", "b" }, { { "-helpAnchor", "b" } });

        const auto destination = [&](const char *tag, const QStringList &args, const QString &expected,
                                     bool wrapper = false) {
            row(tag, args, { { "destination", expected }, { "wrapper", wrapper } });
        };
        destination("destination: existing folder kept", { "-destinationPath", "@Other/Foo Pro.app" },
            "Other/Foo Pro.app");
        destination("destination: missing folder falls back", { "-destinationPath", "@Missing/Sub/Foo.app" },
            "Applications/Foo.app");
        destination("destination: parent is a file falls back", { "-destinationPath", "@afile/Foo.app" },
            "Applications/Foo.app");
        destination("destination: wrapper moves it", { "-wrapperPath", "@Volumes/Foo/Foo Folder" },
            "Applications/Foo Folder/Foo.app", true);
        destination("destination: already inside the wrapper", { "-destinationPath",
            "@Applications/Foo Folder/Foo.app", "-wrapperPath", "@Volumes/Foo/Foo Folder" },
            "Applications/Foo Folder/Foo.app", true);
        destination("destination: wrapper outside the source folder dropped",
            { "-wrapperPath", "@Elsewhere/Foo Folder" }, "Applications/Foo.app");
        destination("destination: missing wrapper dropped", { "-wrapperPath", "@Volumes/Foo/Nothing" },
            "Applications/Foo.app");
        row("destination: in the home folder, shown with ~", { "-destinationPath", "~/Apps/Foo.app" },
            { { "shown", "~/Apps/Foo.app" } }, { { "~/Apps/x", "" } });
        row("destination: beside the home folder", { "-destinationPath", "~2/Apps/Foo.app" },
            { { "shown", QDir::homePath() + "2/Apps/Foo.app" } }, { { "~2/Apps/x", "" } });

        // Errors stop set-up with the message in place of the introduction
        // and an "OK" that quits; no check mark, and no "%@" title.
        const auto error = [&](const char *tag, const QStringList &args, const QString &message,
                               const QString &title, const Map &files = {}) {
            row(tag, args, { { "intro", message }, { "logged", message }, { "finished", true },
                { "buttons", "OK/-" }, { "checkmark", false }, { "title", title } }, files);
        };
        error("error: installer outside any bundle", { "-productName", "Foo" }, "missing source path", "");
        error("error: source is the root folder", { "-sourcePath", "/" }, "missing program name", "");
        error("error: no signature", {}, "missing product signature", "Foo Installer", { { product
            + "Info.plist", "<?xml version=\"1.0\"?><plist><dict><key>CFBundleExecutable</key>"
            "<string>Foo</string></dict></plist>" } });
        error("error: source is a plain file", { "-sourcePath", "@plain.app" },
            "missing product signature", "plain Installer", { { "@plain.app", "data" } });
        error("error: binary Info.plist", {}, "missing product signature", "Foo Installer",
            { { product + "Info.plist", QByteArray("bplist00\x01\x02\x03\xff", 12) } });
        error("error: malformed Info.plist", {}, "missing product signature", "Foo Installer",
            { { product + "Info.plist", "<?xml version=\"1.0\"?><plist><dict><key>" } });

        row("help: URL", { "-documentationURL", "https://example.org/help" }, { { "help", true } });
        row("help: existing file", { "-documentationPath", "@doc.pdf" }, { { "help", true } },
            { { "@doc.pdf", "%PDF" } });
        row("help: missing file hides it even with a URL", { "-documentationPath", "@gone.pdf",
            "-documentationURL", "https://example.org" }, { { "help", false } });

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
        // "Go Back" still leads to the (empty) read-me page, and "Continue" returns.
        row("read-me: missing", { "-readMePath", "@gone.rtf" }, { { "readMe", "" }, { "page", 1 },
            { "buttons", "Install/Go Back" },
            { "back and forth", "0 Continue/Cancel, 1 Install/Go Back" } });

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
                                   const QString &expected, const QString &item = "") {
            row(tag, {}, { { "destination", expected }, { "login item",
                    item.isEmpty() && !expected.startsWith("Applications") ? expected : item } },
                { { "~/.config/autostart/foo.desktop", user }, { "@xdg/autostart/foo.desktop", system } });
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
        // The installer does not install into a copy it must not replace.
        loginItem("login item: in the Trash", exec + "@Trash/files/Foo.app/Contents/Linux/Foo\n", "",
            "Applications/Foo.app", "Trash/files/Foo.app");
        loginItem("login item: on an installer volume",
            exec + "@Volumes/Foo-Install/Foo.app/Contents/Linux/Foo\n", "", "Applications/Foo.app",
            "Volumes/Foo-Install/Foo.app");
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
        for (const char *bundle : { "Foo Folder/Foo.app", "Other/Foo.app", "Trash/files/Foo.app",
                 "Volumes/Foo-Install/Foo.app" })
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
        args.replaceInStrings(QRegularExpression("^~"), QDir::homePath());
        const auto c = fixture.setUp(args.replaceInStrings(QRegularExpression("^@"), root));
        capture.restore();

        const auto relative = [&](const QString &path) { return QString(path).remove(root); };
        const InstallerArguments a = c->arguments();
        const QImage icon = c->iconField()->pixmap().toImage();
        const QString logged = expected.value("logged").toString();
        const auto page = [&] {
            return QString::number(c->tabView()->currentIndex()) + " " + c->installButton()->text()
                + "/" + c->cancelButton()->text();
        };
        const auto backAndForth = [&] {
            c->cancelButton()->click();
            const QString back = page();
            c->installButton()->click();
            return back + ", " + page();
        };
        const QVariantMap observed {
            { "destination", relative(a.value("destinationPath").toString()) },
            { "shown", relative(c->pathField()->text()) },
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
            { "logged", capture.messages().contains(logged) ? logged : capture.text() },
            // Last: it clicks "Go Back", then "Continue".
            { "back and forth", expected.contains("back and forth") ? backAndForth() : QString() }
        };
        for (auto it = expected.cbegin(); it != expected.cend(); ++it) {
            const QVariant seen
                = it.key().startsWith('-') ? a.value(it.key().mid(1)) : observed.value(it.key());
            QCOMPARE(it.key() + ": " + seen.toString(), it.key() + ": " + it.value().toString());
        }
        // Reading the arguments again changes nothing.
        c->extractArguments();
        QCOMPARE(c->arguments(), a);
    }

    void interfaceFile_data()
    {
        // clang-format off
        // What the bundle's interface file becomes: its window as it stands,
        // at the size it gives.
        QTest::addColumn<QByteArray>("from");
        QTest::addColumn<QByteArray>("to");
        QTest::addColumn<QString>("window");
        QTest::newRow("as built") << QByteArray() << QByteArray() << "Foo Installer 600x440";
        QTest::newRow("edited in the bundle") << QByteArray("%@ Installer<") << QByteArray("%@ Setup<")
            << "Foo Setup 600x440";
        QTest::newRow("resized in the bundle") << QByteArray("<width>600<")
            << QByteArray("<width>700<") << "Foo Installer 700x440";
        QTest::newRow("broken") << QByteArray("</ui>") << QByteArray() << "(not loaded)";
        // clang-format on
    }

    void interfaceFile()
    {
        QFETCH(QByteArray, from);
        QFETCH(QByteArray, to);
        QFETCH(QString, window);
        ProductFixture fixture;
        const QString file = fixture.installer + "/Contents/Resources/InstallerWindow.ui";
        if (!from.isEmpty())
            writeFile(file, readFile(file).replace(from, to));
        const auto c = fixture.setUp({});
        const QWidget *w = c->window();
        QCOMPARE(w
                ? QStringLiteral("%1 %2x%3").arg(w->windowTitle()).arg(w->width()).arg(w->height())
                : QStringLiteral("(not loaded)"),
            window);
        QCOMPARE(c->interfaceError().isEmpty(), w != nullptr);
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

    void initTestCase() { qputenv("QT_LOGGING_RULES", "default.warning=false"); }
    void init() { QDir(QDir::homePath() + "/Library").removeRecursively(); }

    void productLaunchLogsToFile()
    {
        const QString readMe = kSample + "/Contents/Resources/ReadMe.rtf";
        Installer installer(
            { "-productName", "Sample", "-sourcePath", kSample, "-readMePath", readMe });
        QTRY_VERIFY_WITH_TIMEOUT(logged().filter("Updated arguments: ").size() == 1, 20000);
        // The first line comes before the streams are reopened.
        QTRY_VERIFY(installer.readErr().contains("AppleEvents installed"));
        QCOMPARE(logMessages(installer.err), QStringList { "AppleEvents installed" });
        // Then the arguments as given, the login item and the completed
        // arguments (their format is the format function's).
        const QStringList log = logged();
        QVERIFY(log.value(0).startsWith(
            "arguments: (\n    \"" + kInstaller + "\",\n    \"-productName\""));
        QCOMPARE(log.value(1), QStringLiteral("autolaunch = (null)"));
        QVERIFY(log.value(2).startsWith("Updated arguments: {"));
        for (const char *completed :
            { "destinationPath = \"/opt/Sample.app\";", "quitCode = (\n        QSmp\n    );" })
            QVERIFY2(log.value(2).contains(completed), qPrintable(log.value(2)));

        // A second launch appends; bytes that are not UTF-8 in its arguments
        // become replacement characters, and set-up goes on.
        Installer second({ "-c",
                             "exec \"$0\" -productName \"$(printf 'S\\377\\376x')\" -sourcePath "
                             "\"$1\" -version \"$(printf '\\300\\200')\"",
                             kInstaller, kSample },
            "/bin/sh");
        QTRY_COMPARE_WITH_TIMEOUT(logged().filter("Updated arguments: ").size(), 2, 20000);
        QCOMPARE(second.process.state(), QProcess::Running);
        QVERIFY(readFile(logFile()).contains("productName = \"S\\Ufffd\\Ufffdx\";"));
    }

    void directInvocationKeepsItsStreams_data()
    {
        QTest::addColumn<QStringList>("args");
        QTest::newRow("two arguments") << QStringList { "-productName" };
        QTest::newRow("languages first")
            << QStringList { "-AppleLanguages", "(de)", "-productName", "Foo" };
    }

    void directInvocationKeepsItsStreams()
    {
        QFETCH(QStringList, args);
        Installer installer(args);
        QTRY_VERIFY_WITH_TIMEOUT(installer.readErr().contains("Updated arguments"), 20000);
        QCOMPARE(logMessages(installer.err).mid(0, 2),
            QStringList({ "AppleEvents installed", "direct invocation" }));
        QVERIFY(!QFile::exists(QDir::homePath() + "/Library/Logs"));
    }

    void unopenableLogFileGoesToDevNull()
    {
        QDir().mkpath(logFile()); // a folder where the file should be
        Installer installer({ "-productName", "Sample", "-sourcePath", kSample });
        // Set-up goes on: the installer answers on the bus (once it has
        // handled the event), and writes nowhere.
        QTRY_VERIFY_WITH_TIMEOUT(sendDone(installer.process.processId(), "x", true) == 0, 20000);
        QCOMPARE(installer.process.state(), QProcess::Running);
        QVERIFY(QFileInfo(logFile()).isDir());
        QVERIFY(!installer.readErr().contains("received Done event"));
    }

    void doneEvent_data()
    {
        // clang-format off
        QTest::addColumn<QString>("label"); // of the installation under way
        QTest::addColumn<QString>("sent");
        QTest::addColumn<bool>("completes");
        QTest::newRow("label matches") << "Foo 2.1" << "Foo 2.1" << true;
        QTest::newRow("case differs") << "Foo 2.1" << "foo 2.1" << false;
        QTest::newRow("spacing differs") << "Foo 2.1" << "Foo  2.1" << false;
        QTest::newRow("before any installation") << QString() << "Foo 2.1" << false;
        // clang-format on
    }

    void doneEvent()
    {
        QFETCH(QString, label);
        QFETCH(QString, sent);
        QFETCH(bool, completes);
        ProductFixture fixture;
        LogCapture capture;
        const auto c = fixture.setUp({ "-productName", "Foo", "-version", "2.1" });
        InstallerWinController::setCurrentInstallationLabel(label);
        const auto reset
            = qScopeGuard([] { InstallerWinController::setCurrentInstallationLabel({}); });
        sendDone(QCoreApplication::applicationPid(), sent, false);
        QTRY_VERIFY_WITH_TIMEOUT(capture.text().contains("received Done event"), 10000);
        QCoreApplication::processEvents(); // what the event queued
        capture.restore();
        QCOMPARE(c->isFinished(), completes);
        QVERIFY(capture.messages().contains(
            QString("received Done event (%1), current installation: %2")
                .arg(sent, label.isNull() ? QStringLiteral("(null)") : label)));
        QCOMPARE(c->introField()->text() == "Foo was successfully installed.", completes);
        QCOMPARE(c->cancelButton()->isHidden(), completes);
    }

    // Documents shaped like the common editors' output: their text, and the
    // format at the first occurrence of a piece of it.
    void editorDocuments()
    {
        QTextDocument wordPad, textEdit, libreOffice;
        readDocument("wordpad.rtf", &wordPad);
        readDocument("textedit.rtf", &textEdit);
        readDocument("libreoffice.rtf", &libreOffice);
        QString text = wordPad.toPlainText();
        QVERIFY2(text.startsWith("Release Notes\nCafé and naïve text, red and underlined.\n"),
            qPrintable(text));
        QVERIFY(text.contains("Привет means hello.")); // a Cyrillic font's code page
        QVERIFY(text.contains("Euro €, emoji 😀 done.")); // \u with its fallback skipped
        QVERIFY(!text.contains("Riched20") && !text.contains("HYPERLINK"));
        QCOMPARE(formatAt(wordPad, "Release").fontWeight(), int(QFont::Bold));
        QCOMPARE(formatAt(wordPad, "Release").fontPointSize(), 16.0);
        QCOMPARE(blockOf(wordPad, "Release").alignment(), Qt::AlignHCenter);
        QCOMPARE(formatAt(wordPad, "Café").fontWeight(), int(QFont::Normal));
        QVERIFY(formatAt(wordPad, "naïve").fontItalic());
        QCOMPARE(formatAt(wordPad, "red").foreground().color(), QColor(255, 0, 0));
        QVERIFY(formatAt(wordPad, "underlined").fontUnderline());
        QVERIFY(!formatAt(wordPad, " text,").fontUnderline());
        QCOMPARE(
            formatAt(wordPad, "Get help").anchorHref(), QStringLiteral("https://example.org/help"));
        QVERIFY(blockOf(wordPad, "First point").leftMargin() > 0);

        text = textEdit.toPlainText();
        QVERIFY2(
            text.startsWith(
                "Line one\nTab\there and a brace { and backslash \\.\nRight aligned — with dash\n"),
            qPrintable(text));
        QVERIFY(text.endsWith("code"));
        QVERIFY(!text.contains("89504e")); // pictures are skipped
        QCOMPARE(blockOf(textEdit, "Right aligned").alignment(), Qt::AlignRight);
        QCOMPARE(formatAt(textEdit, "code").fontFamilies().toStringList(),
            QStringList { "Menlo-Regular" });

        text = libreOffice.toPlainText();
        QVERIFY2(text.startsWith("Bold heading\nPlain italic and struck and x2\nCell A\tCell B\t"),
            qPrintable(text));
        // Style sheet, document information and font table are not text.
        QVERIFY(!text.contains("Normal;") && !text.contains("Ann") && !text.contains("Arial"));
        QCOMPARE(formatAt(libreOffice, "Plain").fontWeight(), int(QFont::Normal));
        QVERIFY(formatAt(libreOffice, "struck").fontStrikeOut());
        QCOMPARE(formatAt(libreOffice, "x2").verticalAlignment(), QTextCharFormat::AlignNormal);
        QTextCursor two = libreOffice.find("x2");
        two.setPosition(two.selectionEnd());
        QCOMPARE(two.charFormat().verticalAlignment(), QTextCharFormat::AlignSuperScript);
        QCOMPARE(formatAt(libreOffice, "Plain").fontFamilies().toStringList(),
            QStringList { "Liberation Sans" });
    }

    void controlWordsAndHostileInput_data()
    {
        // clang-format off
        QTest::addColumn<QByteArray>("rtf");
        QTest::addColumn<QString>("text"); // null: read, whatever it holds; "(refused)": not RTF
        QTest::newRow("symbols") << QByteArray(
            "{\\rtf1 a\\~b\\_c\\-d \\endash\\emdash\\bullet\\lquote x\\rquote\\ldblquote y\\rdblquote}")
            << QStringLiteral("a\u00a0b\u2011cd –—•‘x’“y”");
        QTest::newRow("line break") << QByteArray("{\\rtf1 one\\line two}") << QStringLiteral("one\u2028two");
        QTest::newRow("uc2 skips two") << QByteArray("{\\rtf1\\uc2 A\\u252??B}") << QStringLiteral("AüB");
        QTest::newRow("uc0 skips none") << QByteArray("{\\rtf1\\uc0 A\\u252 B}") << QStringLiteral("AüB");
        QTest::newRow("uc scoped to group") << QByteArray("{\\rtf1{\\uc0 \\u252}\\u252?x}") << QStringLiteral("üüx");
        QTest::newRow("skip counts a hex escape") << QByteArray("{\\rtf1 \\u8364\\'80 euro}") << QStringLiteral("€ euro");
        QTest::newRow("mac code page") << QByteArray("{\\rtf1\\mac \\'8a}") << QStringLiteral("ä");
        QTest::newRow("unknown starred destination") << QByteArray("{\\rtf1 a{\\*\\unknown hidden}b}") << "ab";
        QTest::newRow("unknown word ignored") << QByteArray("{\\rtf1 a\\frobnicate42 b}") << "ab";
        QTest::newRow("raw newlines ignored") << QByteArray("{\\rtf1 a\r\nb}") << "ab";
        QTest::newRow("leading white space") << QByteArray("\n  {\\rtf1 ok}") << "ok";
        QTest::newRow("not rtf") << QByteArray("hello") << "(refused)";
        QTest::newRow("empty") << QByteArray() << "(refused)";
        QTest::newRow("unbalanced close") << QByteArray("{\\rtf1 a}}}}} b") << QString();
        QTest::newRow("unterminated") << QByteArray("{\\rtf1 {{{ a \\b") << QString();
        QTest::newRow("deep nesting") << QByteArray("{\\rtf1 ") + QByteArray(200000, '{') + "x"
            + QByteArray(200000, '}') << QString();
        QTest::newRow("huge parameter")
            << QByteArray("{\\rtf1\\fs99999999999999999999 \\li-99999999999999 x\\u99999999999}") << QString();
        QTest::newRow("bad hex escape") << QByteArray("{\\rtf1 \\'zz\\' \\'") << QString();
        QTest::newRow("trailing backslash") << QByteArray("{\\rtf1 x\\") << QString();
        QTest::newRow("long control word") << QByteArray("{\\rtf1 \\") + QByteArray(100000, 'a') + "}"
            << QString();
        QTest::newRow("field without result") << QByteArray("{\\rtf1{\\field{\\*\\fldinst HYPERLINK}}}")
            << QString();
        QTest::newRow("color index out of range") << QByteArray("{\\rtf1{\\colortbl;}\\cf99\\cb-1 x}")
            << QString();
        QTest::newRow("binary junk") << QByteArray("{\\rtf1 \x00\x01\xff\xfe", 11) << QString();
        // clang-format on
    }

    void controlWordsAndHostileInput()
    {
        QFETCH(QByteArray, rtf);
        QFETCH(QString, text);
        QTextDocument doc;
        QString error;
        const bool isRtf = text != "(refused)";
        QCOMPARE(RtfReader::read(rtf, &doc, &error), isRtf);
        QCOMPARE(error.isEmpty(), isRtf);
        if (isRtf && !text.isNull())
            QCOMPARE(doc.toRawText(), text);
    }

    void fileIdIsASafeFileName_data()
    {
        // clang-format off
        QTest::addColumn<QString>("identifier");
        QTest::addColumn<QString>("bundleName");
        QTest::addColumn<QString>("id");
        QTest::newRow("reverse DNS") << "dev.example.foo" << "Foo" << "dev.example.foo";
        QTest::newRow("no identifier") << "" << "Foo Bar" << "quillet.Foo_Bar";
        QTest::newRow("slash and dot-dot") << "../../etc/x" << "Foo" << "_._.._etc_x";
        QTest::newRow("leading dash") << "-rf" << "Foo" << "_rf";
        QTest::newRow("non-ASCII") << "dev.exämple" << "Foo" << "dev.ex__mple";
        // clang-format on
    }

    void fileIdIsASafeFileName()
    {
        QFETCH(QString, identifier);
        QFETCH(QString, bundleName);
        QFETCH(QString, id);
        const std::string made
            = DesktopEntry::fileId(identifier.toStdString(), bundleName.toStdString());
        QCOMPARE(QString::fromStdString(made), id);
        QVERIFY(DesktopEntry::isSafeFileId(made));
        QVERIFY(!DesktopEntry::isSafeFileId(identifier.toStdString()) || identifier == id);
    }

    void valuesSurviveEscaping_data()
    {
        // clang-format off
        // The Exec value as read back (string escapes undone, the quoting kept);
        // in the file each backslash is doubled once more.
        QTest::addColumn<QString>("path");
        QTest::addColumn<QString>("exec");
        QTest::newRow("plain") << "/opt/Foo.app" << "\"/opt/Foo.app/Contents/Linux/Foo\"";
        QTest::newRow("space") << "/opt/Foo Bar.app" << "\"/opt/Foo Bar.app/Contents/Linux/Foo\"";
        // A field code otherwise.
        QTest::newRow("percent") << "/opt/100%.app" << "\"/opt/100%%.app/Contents/Linux/Foo\"";
        QTest::newRow("shell characters") << "/opt/$x`y\".app"
            << "\"/opt/\\$x\\`y\\\".app/Contents/Linux/Foo\"";
        QTest::newRow("backslash") << "/opt/a\\b.app" << "\"/opt/a\\\\b.app/Contents/Linux/Foo\"";
        // clang-format on
    }

    void valuesSurviveEscaping()
    {
        QFETCH(QString, path);
        QFETCH(QString, exec);
        const std::string text = DesktopEntry::text({ "Foo\nBar",
            path.toStdString() + "/Contents/Linux/Foo", path.toStdString(), std::string(), "1.0" });
        QCOMPARE(QString::fromStdString(DesktopEntry::value(text, "Exec").value_or("")), exec);
        QVERIFY(text.find("\nExec=" + exec.replace("\\", "\\\\").toStdString() + "\n")
            != std::string::npos);
        QCOMPARE(DesktopEntry::value(text, "Name"), std::optional<std::string>("Foo\nBar"));
        QCOMPARE(DesktopEntry::value(text, "X-Quillet-Bundle"),
            std::optional<std::string>(path.toStdString()));
        QCOMPARE(DesktopEntry::value(text, "Icon"), std::nullopt); // no icon, no key
        // One entry per line: nothing in a value starts a line of its own.
        QCOMPARE(QString::fromStdString(text).count('\n'), 9);

        // The installer's request to the helper, with the path as the name
        // (blanks at the ends, a tab) and an icon of any bytes, read back whole.
        const DesktopEntry::Request sent { "dev.example.foo", " " + path.toStdString() + "\t",
            "2.0", "Contents/Linux/Foo", std::string("\x89PNG\r\n\x1a\n\0\n\nbinary", 17) };
        std::string why;
        const auto read = DesktopEntry::parseRequest(DesktopEntry::requestText(sent), &why);
        QVERIFY2(read, why.c_str());
        QVERIFY(
            std::tie(read->identifier, read->name, read->version, read->executable, read->iconPng)
            == std::tie(sent.identifier, sent.name, sent.version, sent.executable, sent.iconPng));
    }
};

QTEST_MAIN(TestInstallerSetup)
#include "tst_installersetup.moc"

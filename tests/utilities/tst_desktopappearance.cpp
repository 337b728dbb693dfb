// SPDX-FileCopyrightText: 2026 Quillet developers
// SPDX-License-Identifier: MIT
//
// The desktop's appearance from a portal stand-in on the private session
// bus, from GNOME's settings (written with the gsettings command through
// dconf) and from kdeglobals.
#include "common/testchild.h"
#include "common/testfiles.h"
#include "utilities/desktopappearance.h"

#include <QCoreApplication>
#include <QProcess>
#include <QSignalSpy>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <QTest>
#include <memory>

using namespace DesktopAppearance;

namespace {
const QString kHelpers = QStringLiteral(QUILLET_BINARY_DIR "/tests/helpers");
const QString kNs = QStringLiteral("org.freedesktop.appearance ");

struct Portal : TestChild
{
    explicit Portal(const QStringList &args)
        : TestChild(kHelpers + "/portalstandin", args)
    { }
    bool set(const QString &line)
    {
        process.write((line + '\n').toUtf8());
        for (int i = 0; i < 100 && !process.canReadLine(); ++i)
            process.waitForReadyRead(100);
        return process.readLine().startsWith("set");
    }
};

bool gsettings(const QStringList &args)
{
    return QProcess::execute(QStringLiteral("gsettings"), args) == 0;
}

QString kdeglobals()
{
    return QStandardPaths::writableLocation(QStandardPaths::GenericConfigLocation) + "/kdeglobals";
}

bool haveGnomeSchema()
{
    QProcess p;
    p.start(QStringLiteral("gsettings"), { "list-keys", "org.gnome.desktop.interface" });
    return p.waitForFinished() && p.exitCode() == 0;
}
} // namespace

class TestDesktopAppearance : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void initTestCase();
    void cleanup();
    // First: signals of later rows' stand-ins would still be arriving.
    void changedFollowsTheAppearanceNamespaceOnly();
    void portal_data();
    void portal();
    void desktopSetting_data();
    void desktopSetting();
    void paletteProbeDecidesWithoutAnyPreference();

private:
    QTemporaryDir m_systemConfig;
};

void TestDesktopAppearance::initTestCase()
{
    QVERIFY(!qEnvironmentVariableIsEmpty("DBUS_SESSION_BUS_ADDRESS"));
    // The machine's own /etc/xdg stays out of the answers.
    qputenv("XDG_CONFIG_DIRS", m_systemConfig.path().toUtf8());
    Notifier::instance();
}

void TestDesktopAppearance::cleanup()
{
    QFile::remove(kdeglobals());
    qunsetenv("XDG_CURRENT_DESKTOP");
    if (haveGnomeSchema()) {
        gsettings({ "reset", "org.gnome.desktop.interface", "color-scheme" });
        gsettings({ "reset", "org.gnome.desktop.interface", "gtk-theme" });
    }
    setPaletteProbe({});
}

void TestDesktopAppearance::portal_data()
{
    QTest::addColumn<QStringList>("args");
    QTest::addColumn<QStringList>("lines");
    QTest::addColumn<ColorScheme>("scheme");
    QTest::addColumn<Source>("source");
    QTest::addColumn<std::optional<Rgb>>("accent");
    QTest::newRow("dark and accent through ReadOne")
        << QStringList()
        << QStringList { kNs + "color-scheme u 1", kNs + "accent-color rgb 0.25 0.5 0.75" }
        << ColorScheme::Dark << Source::Portal << std::optional(Rgb { 0.25, 0.5, 0.75 });
    QTest::newRow("older portal: Read, doubly wrapped")
        << QStringList { "--read-only" }
        << QStringList { kNs + "color-scheme u 2", kNs + "accent-color rgb 1 0 0" }
        << ColorScheme::Light << Source::Portal << std::optional(Rgb { 1, 0, 0 });
    QTest::newRow("no preference gives way to the desktop")
        << QStringList() << QStringList { kNs + "color-scheme u 0" } << ColorScheme::NoPreference
        << Source::None << std::optional<Rgb>();
    QTest::newRow("accent out of range is unset")
        << QStringList()
        << QStringList { kNs + "color-scheme u 1", kNs + "accent-color rgb -1 -1 -1" }
        << ColorScheme::Dark << Source::Portal << std::optional<Rgb>();
    QTest::newRow("unknown scheme value is no preference")
        << QStringList() << QStringList { kNs + "color-scheme u 7" } << ColorScheme::NoPreference
        << Source::None << std::optional<Rgb>();
    QTest::newRow("portal that never answers")
        << QStringList { "--silent" } << QStringList() << ColorScheme::NoPreference << Source::None
        << std::optional<Rgb>();
    QTest::newRow("no portal") << QStringList { "--absent" } << QStringList()
                               << ColorScheme::NoPreference << Source::None << std::optional<Rgb>();
}

void TestDesktopAppearance::portal()
{
    QFETCH(QStringList, args);
    QFETCH(QStringList, lines);
    QFETCH(ColorScheme, scheme);
    QFETCH(Source, source);
    QFETCH(std::optional<Rgb>, accent);

    std::unique_ptr<Portal> portal;
    if (!args.contains("--absent")) {
        portal = std::make_unique<Portal>(args);
        QVERIFY(portal->waitReady());
        for (const QString &line : lines)
            QVERIFY(portal->set(line));
    }
    Source from = Source::Gnome;
    QCOMPARE(colorScheme(&from), scheme);
    QCOMPARE(from, source);
    QCOMPARE(isDark(), scheme == ColorScheme::Dark);
    QCOMPARE(accentColor(), accent);
    QCOMPARE(colorScheme(), scheme); // a portal that hung once is not waited for again
}

void TestDesktopAppearance::changedFollowsTheAppearanceNamespaceOnly()
{
    QSignalSpy spy(Notifier::instance(), &Notifier::changed);
    Portal portal({});
    QVERIFY(portal.waitReady());
    QTRY_COMPARE(spy.count(), 1); // a new portal may answer differently
    spy.clear();
    // Signals of one sender arrive in order: when the appearance change is
    // seen, the other namespace's was seen before it.
    QVERIFY(portal.set("org.gnome.desktop.privacy remember-recent-files u 1"));
    QVERIFY(portal.set(kNs + "color-scheme u 1"));
    QTRY_COMPARE(spy.count(), 1);
    QVERIFY(portal.set(kNs + "accent-color rgb 0 0 1"));
    QTRY_COMPARE(spy.count(), 2);
    QCOMPARE(colorScheme(), ColorScheme::Dark);
}

void TestDesktopAppearance::desktopSetting_data()
{
    QTest::addColumn<QString>("desktop");
    QTest::addColumn<QStringList>("gnome"); // color-scheme, gtk-theme
    QTest::addColumn<QByteArray>("kde");
    QTest::addColumn<ColorScheme>("scheme");
    QTest::addColumn<Source>("source");
    QTest::addColumn<std::optional<Rgb>>("accent");
    const QByteArray kdeDark = "[General]\nColorScheme=BreezeDark\nAccentColor=61,174,233\n"
                               "[Colors:Window]\nBackgroundNormal=32,35,38\n";
    QTest::newRow("GNOME prefers dark")
        << "GNOME" << QStringList { "prefer-dark", "Adwaita" } << QByteArray() << ColorScheme::Dark
        << Source::Gnome << std::optional<Rgb>();
    QTest::newRow("GNOME prefers light")
        << "GNOME" << QStringList { "prefer-light", "Adwaita" } << QByteArray()
        << ColorScheme::Light << Source::Gnome << std::optional<Rgb>();
    QTest::newRow("GTK theme named dark")
        << "XFCE" << QStringList { "default", "Adwaita-dark" } << QByteArray() << ColorScheme::Dark
        << Source::Gnome << std::optional<Rgb>();
    QTest::newRow("KDE window colour and accent")
        << "KDE" << QStringList() << kdeDark << ColorScheme::Dark << Source::Kde
        << std::optional(Rgb { 61 / 255.0, 174 / 255.0, 233 / 255.0 });
    QTest::newRow("KDE scheme name only")
        << "KDE" << QStringList() << QByteArray("[General]\nColorScheme=BreezeLight\n")
        << ColorScheme::Light << Source::Kde << std::optional<Rgb>();
    QTest::newRow("KDE asked first on Plasma")
        << "KDE" << QStringList { "prefer-light", "Adwaita" } << kdeDark << ColorScheme::Dark
        << Source::Kde << std::optional(Rgb { 61 / 255.0, 174 / 255.0, 233 / 255.0 });
    QTest::newRow("GNOME asked first elsewhere")
        << "GNOME" << QStringList { "prefer-light", "Adwaita" } << kdeDark << ColorScheme::Light
        << Source::Gnome << std::optional(Rgb { 61 / 255.0, 174 / 255.0, 233 / 255.0 });
    QTest::newRow("KDE colours that do not parse")
        << "KDE" << QStringList()
        << QByteArray("[General]\nAccentColor=red\n[Colors:Window]\nBackgroundNormal=1,2\n")
        << ColorScheme::NoPreference << Source::None << std::optional<Rgb>();
}

void TestDesktopAppearance::desktopSetting()
{
    QFETCH(QString, desktop);
    QFETCH(QStringList, gnome);
    QFETCH(QByteArray, kde);
    QFETCH(ColorScheme, scheme);
    QFETCH(Source, source);
    QFETCH(std::optional<Rgb>, accent);
    if (!gnome.isEmpty() && !haveGnomeSchema())
        QSKIP("GNOME's org.gnome.desktop.interface schema is not installed");

    qputenv("XDG_CURRENT_DESKTOP", desktop.toUtf8());
    QSignalSpy spy(Notifier::instance(), &Notifier::changed);
    if (!gnome.isEmpty()) {
        QVERIFY(gsettings({ "set", "org.gnome.desktop.interface", "color-scheme", gnome[0] }));
        QVERIFY(gsettings({ "set", "org.gnome.desktop.interface", "gtk-theme", gnome[1] }));
    }
    if (!kde.isEmpty())
        writeFile(kdeglobals(), kde);
    // Each change is announced, whichever desktop it came from.
    QTRY_VERIFY(!spy.isEmpty());

    Source from = Source::None;
    QCOMPARE(colorScheme(&from), scheme);
    QCOMPARE(from, source);
    QCOMPARE(accentColor(), accent);
}

void TestDesktopAppearance::paletteProbeDecidesWithoutAnyPreference()
{
    QVERIFY(!isDark());
    setPaletteProbe([] { return std::optional(true); });
    QVERIFY(isDark());
    setPaletteProbe([] { return std::optional<bool>(); });
    QVERIFY(!isDark());
    // A desktop's preference outranks the palette.
    writeFile(kdeglobals(), "[General]\nColorScheme=BreezeLight\n");
    setPaletteProbe([] { return std::optional(true); });
    QVERIFY(!isDark());
}

QTEST_GUILESS_MAIN(TestDesktopAppearance)
#include "tst_desktopappearance.moc"

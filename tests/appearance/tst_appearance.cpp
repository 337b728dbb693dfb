// SPDX-FileCopyrightText: 2026 Quillet developers
// SPDX-License-Identifier: MIT
//
// Dynamic colours and view extensions on widgets shown on a private X
// server, checked by what the screen shows. First the application's
// appearance is its palette's (the route a platform theme takes); the last
// tests start a stand-in desktop portal on the private session bus that
// answers "color-scheme" and "accent-color" and emits SettingChanged, and
// the windows follow it.
//
// Sounds play on a private sound server that has two silent outputs,
// "alert" (the default) and "speakers". What a sound puts out is recorded
// from the outputs' monitors, so "heard on the alert device" is measured,
// not assumed.
#include "../installer/installerfixture.h"
#include "../utilities/portal.h"
#include "appearance/soundextensions.h"
#include "appearance/soundextensions_p.h"
#include "appearance/vxappearance.h"
#include "appearance/vxdynamiccolor.h"
#include "appearance/vxviewextensions.h"
#include "common/audiorecording.h"
#include "common/logcapture.h"
#include "common/testrow.h"
#include "utilities/vxuserdefaults.h"

#include <QApplication>
#include <QDataStream>
#include <QGraphicsScene>
#include <QGraphicsView>
#include <QLabel>
#include <QPainter>
#include <QScreen>
#include <QScrollArea>
#include <QScrollBar>
#include <QSettings>
#include <QSoundEffect>
#include <QTest>
#include <QTextEdit>
#include <QVBoxLayout>
#include <memory>

using namespace SoundExtensions;
using namespace VXViewExtensions;

namespace {
// How long a test waits for what it started (a window shown, a repaint, a
// signal from the portal) on a machine that may be busy: a deadline, not a
// measure of speed.
constexpr int kPatience = 30000;
const QColor kLight(200, 220, 60);
const QColor kDark(20, 40, 120);

// A widget that paints itself in a dynamic colour, the way an application's
// widget would: resolved while painting, against the widget painted.
struct Swatch : QWidget
{
    VXDynamicColor color;
    Swatch(const VXDynamicColor &c, QWidget *parent = nullptr)
        : QWidget(parent)
        , color(c)
    {
        setFixedSize(48, 48);
    }
    void paintEvent(QPaintEvent *) override
    {
        QPainter painter(this);
        painter.setPen(Qt::NoPen);
        color.setFill(&painter);
        painter.drawRect(rect());
    }
};

// What the X server shows of a widget.
QImage shown(const QWidget *widget)
{
    const QPoint origin = widget->mapToGlobal(QPoint(0, 0));
    return widget->screen()
        ->grabWindow(0, origin.x(), origin.y(), widget->width(), widget->height())
        .toImage();
}

// Shown at the centre of a swatch: the colour, to within what the X
// server's 24 bits keep.
bool shows(const QWidget *swatch, const QColor &c)
{
    const QColor s = shown(swatch).pixelColor(swatch->rect().center());
    return qAbs(s.red() - c.red()) <= 1 && qAbs(s.green() - c.green()) <= 1
        && qAbs(s.blue() - c.blue()) <= 1;
}

// A point of a widget where nothing but its background shows.
int backgroundLightness(const QWidget *widget)
{
    return shown(widget).pixelColor(widget->width() - 4, widget->height() - 4).lightness();
}

// The lightness of the darkest and of the lightest pixel shown of a widget.
std::pair<int, int> lightnessRange(const QWidget *widget)
{
    const QImage image = shown(widget);
    int darkest = 255, lightest = 0;
    for (int y = 0; y < image.height(); ++y) {
        for (int x = 0; x < image.width(); ++x) {
            darkest = std::min(darkest, image.pixelColor(x, y).lightness());
            lightest = std::max(lightest, image.pixelColor(x, y).lightness());
        }
    }
    return { darkest, lightest };
}

QByteArray encoded(const VXDynamicColor &color)
{
    QByteArray data;
    QDataStream out(&data, QIODevice::WriteOnly);
    out << color;
    return data;
}

// A 200 x 200 view onto a 400 x 1000 page, scrolled to (50, 300), with a
// 10 x 10 child at y 600 of the page.
struct Page
{
    QScrollArea area;
    QWidget *page = new QWidget;
    QWidget *child = new QWidget(page);

    Page()
    {
        area.setFrameShape(QFrame::NoFrame);
        area.setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
        area.setVerticalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
        page->resize(400, 1000);
        child->setGeometry(0, 600, 10, 10);
        area.setWidget(page);
        area.resize(200, 200);
        area.show();
        area.horizontalScrollBar()->setValue(50);
        area.verticalScrollBar()->setValue(300);
    }
    QPoint at() const
    {
        return { area.horizontalScrollBar()->value(), area.verticalScrollBar()->value() };
    }
};
} // namespace

Q_DECLARE_METATYPE(VXDynamicColor)

class TestAppearance : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void initTestCase()
    {
        QCOMPARE(QGuiApplication::platformName(), "xcb");
        QVERIFY(!VXAppearance::applicationIsDark());
        // The product's sounds, beside files that are not sounds.
        VXBundle::setMainBundlePath(QDir::homePath() + "/Sounds.app");
        writeFile(QDir::homePath() + "/Sounds.app/Contents/Info.plist",
            "<?xml version=\"1.0\"?><plist version=\"1.0\"><dict/></plist>");
        for (const QString name : { "Done.wav", "SoundOfSilence.wav" })
            writeFile(m_resources + name, readFile(QUILLET_SOURCE_DIR "/resources/sounds/" + name));
        // Extensions of one case, type codes; not: mixed case, unknown ones,
        // hidden files, files in folders.
        for (const QString name :
            { "Beep.aiff", "Alarm.MP3", "Alarm.m4a", "Wave.'WAVE'", "Tune.'Mp3 '", "ReadMe.rtf",
                "Chime.Wav", "Tune.caf", ".wav", "Beep.wav.txt", "nested.wav/Deep.wav" })
            writeFile(m_resources + name);
    }

    void cleanup()
    {
        QApplication::setPalette(QPalette());
        VXUserDefaults::standard().removeObject("AppleAccentColor");
        VXUserDefaults::standard().setArguments({ "tst" });
    }

    void showsTheVariantOfTheWidgetsAppearance_data()
    {
        QTest::addColumn<bool>("global");
        QTest::addColumn<QColor>("dark"); // invalid: nil
        QTest::addColumn<bool>("applicationDark");
        QTest::addColumn<QString>("forced"); // the container's own appearance
        QTest::addColumn<QColor>("shown");
        const QColor nil;
        row("light application", false, kDark, false, "", kLight);
        row("dark application", false, kDark, true, "", kDark);
        row("forced dark in a light application", false, kDark, false, "dark", kDark);
        row("global, forced dark in a light application", true, kDark, false, "dark", kLight);
        row("forced light in a dark application", false, kDark, true, "light", kLight);
        row("global, forced light in a dark application", true, kDark, true, "light", kDark);
        row("nil dark colour, dark application", false, nil, true, "", kLight);
        row("nil dark colour, forced dark", false, nil, false, "dark", kLight);
    }

    void showsTheVariantOfTheWidgetsAppearance()
    {
        QFETCH(bool, global);
        QFETCH(QColor, dark);
        QFETCH(bool, applicationDark);
        QFETCH(QString, forced);
        QFETCH(QColor, shown);
        QApplication::setPalette(applicationDark ? VXAppearance::darkPalette() : QPalette());
        QCOMPARE(VXAppearance::applicationIsDark(), applicationDark);
        QWidget window;
        auto *container = new QWidget(&window);
        if (forced == "dark")
            container->setPalette(VXAppearance::darkPalette());
        else if (forced == "light")
            useLightAquaAppearance(container, true);
        const VXDynamicColor color = VXDynamicColor::lightColor(kLight, dark, global);
        QCOMPARE(color.darkAquaColor().has_value(), dark.isValid()); // an invalid colour is nil
        auto *swatch = new Swatch(color, container);
        (new QVBoxLayout(container))->addWidget(swatch);
        (new QVBoxLayout(&window))->addWidget(container);
        window.show();
        QVERIFY(QTest::qWaitForWindowExposed(&window, kPatience));
        QTRY_VERIFY_WITH_TIMEOUT(shows(swatch, shown), kPatience);
        {
            VXAppearance::Drawing drawing(swatch); // the appearance current while drawing
            QCOMPARE(color.redComponent(), shown.redF());
        }
        if (forced != "light")
            return;
        useLightAquaAppearance(container, false); // and follows the application again
        QTRY_VERIFY_WITH_TIMEOUT(shows(swatch, kDark), kPatience);
    }

    void menuHighlightsFollowTheAccentDefault_data()
    {
        QTest::addColumn<QVariant>("setting");
        QTest::addColumn<QString>("name");
        QTest::addColumn<QStringList>("logged");
        const QStringList none;
        row("absent", QVariant(), "Blue", none);
        row("-1", QVariant(-1), "Graphite", none);
        // 4 is unknown on purpose; each new unknown index is logged once.
        const QStringList four { "*** unknown accent color index: 4" };
        row("4, logged once", QVariant(4), "Blue", four);
        row("4 again, silent", QVariant(4), "Blue", none);
        row("7, a new index", QVariant(7), "Blue",
            QStringList { "*** unknown accent color index: 7" });
        row("4 after 7, logged again", QVariant(4), "Blue", four);
    }

    void menuHighlightsFollowTheAccentDefault()
    {
        QFETCH(QVariant, setting);
        QFETCH(QString, name);
        QFETCH(QStringList, logged);
        VXUserDefaults::standard().setObject(setting, "AppleAccentColor");
        LogCapture log;
        QCOMPARE(VXDynamicColor::accentColorName(), name);
        const VXDynamicColor menu = VXDynamicColor::menuHighlightColor();
        const VXDynamicColor item = VXDynamicColor::menuItemHighlightColor();
        QCOMPARE(log.messages(), logged);
        // Menu title and item, light and dark: grey, or in the accent's hue.
        for (const QColor &c :
            { menu.aquaColor(), *menu.darkAquaColor(), item.aquaColor(), *item.darkAquaColor() })
            QCOMPARE(c.hsvSaturation() < 40, name == "Graphite");
        QVERIFY(menu.usesGlobalAppearance() && !item.usesGlobalAppearance());
    }

    void coding_data()
    {
        QTest::addColumn<QByteArray>("data");
        QTest::addColumn<VXDynamicColor>("decoded"); // default-made: refused
        const VXDynamicColor both = VXDynamicColor::lightColor(kLight, kDark);
        const VXDynamicColor lightOnly = VXDynamicColor::lightColor(kLight, std::nullopt);
        const QByteArray good = encoded(both);
        QByteArray text;
        QDataStream(&text, QIODevice::WriteOnly)
            << quint8(1) << QVariantMap { { "aquaColor", kLight }, { "darkAquaColor", "#000000" } };
        row("nil dark colour", encoded(lightOnly), lightOnly);
        row("both colours", good, both);
        row("global flag, not kept", encoded(VXDynamicColor::lightColor(kLight, kDark, true)),
            both);
        row("empty", QByteArray(), VXDynamicColor());
        row("cut short", good.left(good.size() / 2), VXDynamicColor());
        row("a later version", QByteArray(good).replace(0, 1, "\x02"), VXDynamicColor());
        row("dark colour is text", text, VXDynamicColor());
    }

    void coding()
    {
        QFETCH(QByteArray, data);
        QFETCH(VXDynamicColor, decoded);
        QDataStream in(&data, QIODevice::ReadOnly);
        VXDynamicColor color = VXDynamicColor::lightColor(Qt::red, Qt::blue, true);
        in >> color;
        QCOMPARE(in.status() == QDataStream::Ok, decoded.aquaColor().isValid());
        QVERIFY(color == decoded);
    }

    void animatedVerticalScroll_data()
    {
        QTest::addColumn<bool>("inChild");
        QTest::addColumn<QRectF>("rect");
        QTest::addColumn<bool>("preferTop");
        QTest::addColumn<bool>("scrolls");
        QTest::addColumn<int>("y");
        // The visible part of the page is y 300 to 500.
        row("inside", false, QRectF(0, 350, 10, 50), false, false, 300);
        row("above", false, QRectF(0, 250, 10, 20), false, true, 250);
        row("below", false, QRectF(0, 520, 10, 30), false, true, 350);
        row("far edge on the visible edge, by 0", false, QRectF(0, 450, 10, 50), false, true, 300);
        row("taller, preferTop: ends at its high-y edge", false, QRectF(0, 100, 10, 500), true,
            true, 400);
        row("taller: starts at its origin", false, QRectF(0, 100, 10, 500), false, true, 100);
        row("a child's rectangle, below", true, QRectF(0, 0, 10, 10), false, true, 410);
        row("fractional, rounded", false, QRectF(0, 100.4, 10, 10), false, true, 100);
    }

    void animatedVerticalScroll()
    {
        QFETCH(bool, inChild);
        QFETCH(QRectF, rect);
        QFETCH(bool, preferTop);
        QFETCH(bool, scrolls);
        QFETCH(int, y);
        Page page;
        QVERIFY(QTest::qWaitForWindowExposed(&page.area, kPatience));
        QCOMPARE(
            animatedVerticalScrollRectToVisible(inChild ? page.child : page.page, rect, preferTop),
            scrolls);
        // The horizontal origin goes to 0 with every scroll.
        QTRY_COMPARE_WITH_TIMEOUT(page.at(), QPoint(scrolls ? 0 : 50, y), kPatience);
    }

    void wrapInVisualEffectView()
    {
        QWidget parent;
        auto *view = new QWidget(&parent);
        view->setGeometry(10, 20, 100, 50);
        (new QWidget(&parent))->setGeometry(200, 200, 20, 20);
        parent.show();
        QVERIFY(QTest::qWaitForWindowExposed(&parent, kPatience));
        QVERIFY(!enclosingVisualEffectView(view));
        VXVisualEffectView *effect = VXViewExtensions::wrapInVisualEffectView(view);
        QCOMPARE(effect->parentWidget(), &parent);
        QCOMPARE(effect->geometry(), QRect(10, 20, 100, 50));
        QCOMPARE(view->parentWidget(), effect);
        QCOMPARE(view->geometry(), QRect(0, 0, 100, 50));
        QVERIFY(view->isVisible() && effect->isVisible());
        QCOMPARE(parent.children().last(), effect); // on top of the former siblings
        QCOMPARE(enclosingVisualEffectView(view), effect);
        QVERIFY(!effect->isBlurringBehind()); // no compositor here: opaque
        QCOMPARE(VXViewExtensions::wrapInVisualEffectView(view), effect);
        QVERIFY(!enclosingVisualEffectView(new QWidget(view))); // only the direct parent counts

        // Without a parent: wrapped all the same, and added nowhere.
        QWidget loose;
        loose.setGeometry(30, 40, 70, 80);
        std::unique_ptr<VXVisualEffectView> wrapper(
            VXViewExtensions::wrapInVisualEffectView(&loose));
        QVERIFY(!wrapper->parentWidget() && !wrapper->isVisible());
        QCOMPARE(loose.parentWidget(), wrapper.get());
        QCOMPARE(wrapper->geometry(), QRect(30, 40, 70, 80));
        loose.setParent(nullptr); // the test's own
    }

    void scale_data()
    {
        QTest::addColumn<QList<double>>("steps"); // setScale() each; 0 resets
        QTest::addColumn<double>("scale");
        row("2.0 twice", QList<double> { 2.0, 2.0 }, 2.0);
        row("2.0, reset", QList<double> { 2.0, 0 }, 1.0);
        row("not positive, ignored", QList<double> { 2.0, -1.0, qQNaN() }, 2.0);
    }

    void scale()
    {
        QFETCH(QList<double>, steps);
        QFETCH(double, scale);
        QGraphicsScene scene(0, 0, 100, 100);
        scene.addRect(0, 0, 10, 10, Qt::NoPen, Qt::red);
        QGraphicsView graphicsView(&scene);
        QWidget plain; // keeps the factor for its own painting
        for (QWidget *view : { static_cast<QWidget *>(&graphicsView), &plain }) {
            for (double step : steps)
                step == 0 ? resetScaling(view) : setScale(view, step);
            QCOMPARE(VXViewExtensions::scale(view), scale);
        }
        // What the graphics view draws: the 10-unit square as scale x 10 pixels.
        graphicsView.setFrameShape(QFrame::NoFrame);
        graphicsView.setAlignment(Qt::AlignLeft | Qt::AlignTop);
        graphicsView.resize(300, 300);
        const QImage image = graphicsView.grab().toImage();
        int red = 0;
        while (red < image.width() && image.pixelColor(red, 2) == QColor(Qt::red))
            ++red;
        QCOMPARE(red, qRound(10 * scale));
    }

    void listsAndLookup()
    {
        // No ~/Library/Sounds yet: skipped without a word.
        const QString user = QDir::homePath() + "/Library/Sounds/";
        const QStringList before = systemSoundFiles();
        QVERIFY(before.filter(QDir::homePath()).isEmpty());
        QCOMPARE(
            applicationSounds(), QStringList({ "Alarm", "Alarm", "Beep", "Done", "Tune", "Wave" }));
        QCOMPARE(applicationSoundFiles().size(), 7); // with SoundOfSilence.wav
        for (const QString name :
            { "Beep.wav", "Glass.aiff", "Glass.au", "notes.txt", "Sub/In.wav" })
            writeFile(user + name);
        QCOMPARE(systemSoundFiles().size(), before.size() + 3);
        const QStringList names = systemSounds();
        QCOMPARE(names.count("Glass"), 1); // unique
        QVERIFY(std::is_sorted(names.begin(), names.end()));
        // The application's first, names matched exactly.
        QCOMPARE(pathOfSound("Beep"), m_resources + "Beep.aiff");
        QCOMPARE(pathOfSound("Glass").section('/', 0, -2) + '/', user);
        for (const QString name : { "In", "beep", "" })
            QVERIFY(pathOfSound(name).isNull());
        QCOMPARE(soundNamed("Nothing"), nullptr);
        QCOMPARE(soundNamed("Done"), soundNamed("Done"));
    }

    void alertVolumeFromSettingsAndDesktop_data()
    {
        QTest::addColumn<QVariant>("setting");
        QTest::addColumn<QString>("argument"); // given on the command line
        QTest::addColumn<QStringList>("event"); // the desktop's event-sound volume and mute
        QTest::addColumn<double>("volume");
        const QStringList none;
        row("none", QVariant(), "", none, 1.0);
        row("0.35", QVariant(0.35), "", none, 0.0);
        row("0.61", QVariant(0.61), "", none, 0.5);
        row("1.5 clamped", QVariant(1.5), "", none, 1.0);
        row("not a number", QVariant("loud"), "", none, 0.0);
        row("a list", QVariant(QStringList { "0.5", "0.6" }), "", none, 1.0);
        row("the command line wins", QVariant(0.61), "0.47", none, 0.25);
        // The desktop's event-sound volume is what the sound server stores for
        // streams in the event role once one has been turned down; it outranks
        // the setting from then on, so these rows come last.
        row("desktop at 50%, on the cubic scale", QVariant(0.2), "", QStringList { "50%", "0" },
            0.125);
        row("desktop muted", QVariant(0.2), "", QStringList { "50%", "1" }, 0.0);
        row("desktop at 100%", QVariant(0.2), "", QStringList { "100%", "0" }, 1.0);
    }

    void alertVolumeFromSettingsAndDesktop()
    {
        QFETCH(QVariant, setting);
        QFETCH(QString, argument);
        QFETCH(QStringList, event);
        QFETCH(double, volume);
        const QString key = "com.apple.sound.beep.volume";
        if (const auto suite = VXUserDefaults::suite("com.apple.systemsound"); setting.isValid())
            suite->setValue(key, setting);
        else
            suite->remove(key);
        if (!argument.isEmpty())
            VXUserDefaults::standard().setArguments({ "tst", "-" + key, argument });
        QProcess player; // a stream in the event role, changed as a desktop does
        if (!event.isEmpty()) {
            player.start("pacat",
                { "--property=media.role=event", "--format=s16le", "--channels=1",
                    "--rate=44100" });
            QVERIFY(player.waitForStarted());
            player.write(QByteArray(44100 * 2 * 20, '\0'));
            QString input;
            QTRY_VERIFY_WITH_TIMEOUT(
                !(input = pactl({ "list", "short", "sink-inputs" }).section('\t', 0, 0)).isEmpty(),
                10000);
            pactl({ "set-sink-input-volume", input, event[0] });
            pactl({ "set-sink-input-mute", input, event[1] });
        }
        QTRY_COMPARE_WITH_TIMEOUT(alertVolume(), float(volume), 10000);
        player.kill();
        player.waitForFinished();
        QTRY_VERIFY(pactl({ "list", "short", "sink-inputs" }).isEmpty());
    }

    void warmUpOncePerWindow()
    {
        VXUserDefaults::standard().setArguments({ "tst", "-soundLog", "YES" });
        LogCapture log;
        auto warmUps = [&log] {
            return log.messages()
                .filter(QRegularExpression("^playAsSoundEffect: .*Silence"))
                .size();
        };
        // No sound yet: one warm-up, and none more within 25 seconds.
        QVERIFY(!soundDate().isValid());
        prepareForSound();
        prepareForSound();
        QTRY_COMPARE(warmUps(), 1);
        prepareForSound();
        QTest::qWait(300);
        QCOMPARE(warmUps(), 1);
        QTRY_COMPARE(soundNamed("SoundOfSilence")->volume(), 0.01f); // not to be heard
    }

    void playsOnTheAlertOutput_data()
    {
        QTest::addColumn<QString>("defaultSink"); // where the desktop sends alert sounds
        QTest::addColumn<QString>("override"); // the output asked for instead
        QTest::addColumn<QStringList>("logged"); // among the lines of -soundLog
        // Only the device that names its maker is listed.
        row("alert", "alert", "",
            QStringList {
                "   device Alert by Quillet id alert", "+SL: setPlaybackDeviceIdentifier:alert" });
        row("moved to the speakers by the desktop", "speakers", "",
            QStringList { "+SL: setPlaybackDeviceIdentifier:speakers" });
        row("unknown output: the default one", "alert", "no-such-output",
            QStringList {
                "+SL: exception no audio output device with the identifier \"no-such-output\"" });
    }

    void playsOnTheAlertOutput()
    {
        QFETCH(QString, defaultSink);
        QFETCH(QString, override);
        QFETCH(QStringList, logged);
        pactl({ "set-default-sink", defaultSink });
        QCOMPARE(systemAudioDeviceID(), defaultSink);
        QCOMPARE(_alertSoundAlertDeviceIdentifier(), defaultSink);
        if (!override.isEmpty())
            SoundPlatform::setAlertOutputDeviceOverride(override);
        VXUserDefaults::standard().setArguments({ "tst", "-soundLog", "YES" });
        LogCapture log;
        const QDateTime before = QDateTime::currentDateTime();
        MonitorRecording alert("alert"), speakers("speakers");
        QSoundEffect *sound = soundNamed("Done");
        QVERIFY(sound);
        QTRY_VERIFY_WITH_TIMEOUT(sound->status() == QSoundEffect::Ready, 10000);
        playAsSoundEffect(sound);
        // Each play has a player of its own, which goes when it is done.
        QCOMPARE(sound->findChildren<QSoundEffect *>().size(), 1);
        QTRY_VERIFY_WITH_TIMEOUT(sound->findChildren<QSoundEffect *>().isEmpty(), 10000);
        QTest::qWait(300); // what is still on its way through the server
        SoundPlatform::setAlertOutputDeviceOverride(std::nullopt);
        pactl({ "set-default-sink", "alert" });
        QVERIFY(soundDate() >= before.addMSecs(-1));
        MonitorRecording &heard = defaultSink == "alert" ? alert : speakers;
        MonitorRecording &silent = defaultSink == "alert" ? speakers : alert;
        QVERIFY2(heard.peak() > 3000, qPrintable(QString::number(heard.peak())));
        QCOMPARE(silent.peak(), 0);
        for (const QString &line : logged)
            QVERIFY2(log.messages().contains(line), qPrintable(log.text()));
        QVERIFY_THROWS_EXCEPTION(
            std::invalid_argument, setPlaybackDeviceIdentifier(sound, "no-such-output"));
    }

    // From here on the application follows the portal stand-in.
    void followsThePortalWithoutRestart()
    {
        VXBundle::setMainBundlePath(QString()); // no longer the sounds' bundle
        m_portal = std::make_unique<Portal>();
        QVERIFY(m_portal->waitReady());
        QVERIFY(m_portal->set("color-scheme u 2")); // light
        VXAppearance::followDesktopAppearance();
        QTRY_VERIFY_WITH_TIMEOUT(!VXAppearance::applicationIsDark(), kPatience);
        QWidget window;
        auto *local = new Swatch(VXDynamicColor::lightColor(kLight, kDark), &window);
        auto *global = new Swatch(VXDynamicColor::lightColor(kLight, kDark, true), &window);
        global->move(60, 0);
        auto showBoth = [&](const QColor &c) { return shows(local, c) && shows(global, c); };
        QWidget observer; // shown when told of a change, away from the swatches
        observer.setGeometry(600, 400, 10, 10);
        registerDarkModeNotifications(&observer, SLOT(show()));
        window.show();
        QVERIFY(QTest::qWaitForWindowExposed(&window, kPatience));
        QTRY_VERIFY_WITH_TIMEOUT(showBoth(kLight), kPatience);
        QVERIFY(m_portal->set("color-scheme u 1")); // dark
        QTRY_VERIFY_WITH_TIMEOUT(showBoth(kDark), kPatience);
        QVERIFY(VXAppearance::applicationIsDark());
        // At least once: on a busy machine the set-up's own change to light can
        // arrive after the observer registered.
        QTRY_VERIFY_WITH_TIMEOUT(observer.isVisible(), kPatience);
        unregisterDarkModeNotifications(&observer);
        observer.hide();
        QVERIFY(m_portal->set("color-scheme u 2"));
        QTRY_VERIFY_WITH_TIMEOUT(showBoth(kLight), kPatience);
        QVERIFY(!observer.isVisible());
    }

    void installerWindowDarkWithItsReadMeLight()
    {
        QVERIFY(m_portal->set("color-scheme u 1"));
        QTRY_VERIFY_WITH_TIMEOUT(VXAppearance::isDarkPalette(QApplication::palette()), kPatience);
        ProductFixture fixture("Sample");
        LogCapture quiet;
        InstallerWinController c(
            fixture.options({ "-readMePath", QUILLET_SOURCE_DIR "/examples/sample/ReadMe.rtf" }));
        c.awakeFromNib();
        QWidget *window = c.window();
        QVERIFY(QTest::qWaitForWindowExposed(window, kPatience));
        QWidget *readMe = c.readMeTextView()->viewport();
        for (const bool dark : { true, false }) {
            if (!dark)
                QVERIFY(m_portal->set("color-scheme u 2"));
            QTRY_VERIFY2_WITH_TIMEOUT(
                dark ? backgroundLightness(window) < 80 : backgroundLightness(window) > 200,
                qPrintable(QString::number(backgroundLightness(window))), kPatience);
            QTRY_VERIFY_WITH_TIMEOUT(backgroundLightness(readMe) > 240, kPatience); // always light
            // The product's name, styled by a style sheet, is written light on dark.
            const auto name = [&] { return lightnessRange(c.nameField()); };
            QTRY_VERIFY_WITH_TIMEOUT(dark ? name().second > 200 : name().first < 80, kPatience);
            const QString folder = QUILLET_BINARY_DIR "/screenshots";
            QDir().mkpath(folder);
            const QRect frame = window->frameGeometry();
            window->screen()
                ->grabWindow(0, frame.x(), frame.y(), frame.width(), frame.height())
                .save(folder + (dark ? "/installer-dark.png" : "/installer-light.png"));
        }
    }

private:
    std::unique_ptr<Portal> m_portal;
    const QString m_resources = QDir::homePath() + "/Sounds.app/Contents/Resources/";
};

QTEST_MAIN(TestAppearance)
#include "tst_appearance.moc"

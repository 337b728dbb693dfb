// SPDX-FileCopyrightText: 2026 Quillet developers
// SPDX-License-Identifier: MIT
//
// Runs with a private sound server that has two silent outputs, "alert"
// (the default) and "speakers". What a sound puts out is recorded from the
// outputs' monitors, so "heard on the alert device" is measured, not assumed.
#include "appearance/soundextensions.h"
#include "appearance/soundextensions_p.h"
#include "common/audiorecording.h"
#include "common/logcapture.h"
#include "common/testfiles.h"
#include "utilities/vxbundle.h"
#include "utilities/vxuserdefaults.h"

#include <QAudioDevice>
#include <QDir>
#include <QMediaDevices>
#include <QProcess>
#include <QSettings>
#include <QSoundEffect>
#include <QTest>
#include <QThread>

using namespace SoundExtensions;

namespace {

// Plays "Done" as a sound effect and answers the peaks the two outputs
// recorded meanwhile.
void playDoneAndListen(int &alertPeak, int &speakersPeak)
{
    alertPeak = speakersPeak = -1;
    MonitorRecording alert(QStringLiteral("alert"));
    MonitorRecording speakers(QStringLiteral("speakers"));
    QSoundEffect *sound = soundNamed(QStringLiteral("Done"));
    QVERIFY(sound);
    QTRY_VERIFY_WITH_TIMEOUT(sound->status() == QSoundEffect::Ready, 10000);
    playAsSoundEffect(sound);
    // Each play has a player of its own, which goes when it is done.
    QCOMPARE(sound->findChildren<QSoundEffect *>().size(), 1);
    QTRY_VERIFY_WITH_TIMEOUT(sound->findChildren<QSoundEffect *>().isEmpty(), 10000);
    QTest::qWait(300); // what is still on its way through the server
    alertPeak = alert.peak();
    speakersPeak = speakers.peak();
}

} // namespace

class TestSoundExtensions : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void extensions_data();
    void extensions();
    void listsAndLookup();
    void alertVolumeFromSettings_data();
    void alertVolumeFromSettings();
    void alertVolumeFromTheDesktop();
    void warmUpOncePerWindow();
    void playsOnTheAlertDevice();
    void invalidDeviceFallsBackToDefault();
    void recordedPreferredOutput();

private:
    QString m_bundle;
};

void TestSoundExtensions::initTestCase()
{
    // The product's sounds, beside files that are not sounds.
    m_bundle = QDir::homePath() + QStringLiteral("/Sounds.app");
    const QString resources = m_bundle + QStringLiteral("/Contents/Resources/");
    writeFile(m_bundle + QStringLiteral("/Contents/Info.plist"),
        "<?xml version=\"1.0\"?><plist version=\"1.0\"><dict/></plist>");
    QVERIFY(QDir().mkpath(resources));
    for (const QString &name : { QStringLiteral("Done.wav"), QStringLiteral("SoundOfSilence.wav") })
        QVERIFY(QFile::copy(QUILLET_SOURCE_DIR "/resources/sounds/" + name, resources + name));
    writeFile(resources + QStringLiteral("Beep.aiff"));
    writeFile(resources + QStringLiteral("Alarm.MP3"));
    writeFile(resources + QStringLiteral("Alarm.m4a"));
    writeFile(resources + QStringLiteral("ReadMe.rtf"));
    writeFile(resources + QStringLiteral("Chime.Wav"));
    writeFile(resources + QStringLiteral("nested/Deep.wav"));
    VXBundle::setMainBundlePath(m_bundle);
}

void TestSoundExtensions::extensions_data()
{
    QTest::addColumn<QString>("path");
    QTest::addColumn<bool>("sound");
    QTest::newRow("upper") << "/x/song.AIFF" << true;
    QTest::newRow("lower") << "song.aiff" << true;
    QTest::newRow("mixed case") << "song.Aiff" << false;
    QTest::newRow("unknown") << "song.caf" << false;
    QTest::newRow("type code") << "song.'WAVE'" << true;
    QTest::newRow("type code with blank") << "song.'Mp3 '" << true;
    QTest::newRow("only the last dot") << "song.wav.txt" << false;
    QTest::newRow("dot in a folder") << "/a.wav/song" << false;
    QTest::newRow("hidden file") << "/x/.wav" << false;
}

void TestSoundExtensions::extensions()
{
    QFETCH(QString, path);
    QFETCH(bool, sound);
    QCOMPARE(isSoundFileAtPath(path), sound);
}

void TestSoundExtensions::listsAndLookup()
{
    const QString resources = m_bundle + QStringLiteral("/Contents/Resources/");
    // No ~/Library/Sounds yet: skipped without a word.
    QVERIFY(!QFileInfo::exists(QDir::homePath() + QStringLiteral("/Library/Sounds")));
    const QStringList before = systemSoundFiles();
    for (const QString &path : before)
        QVERIFY(!path.startsWith(QDir::homePath()));

    QCOMPARE(applicationSounds(),
        QStringList({ "Alarm", "Alarm", "Beep", "Done" })); // sorted, duplicates kept
    QStringList files = applicationSoundFiles();
    files.sort();
    QCOMPARE(files,
        QStringList({ resources + "Alarm.MP3", resources + "Alarm.m4a", resources + "Beep.aiff",
            resources + "Done.wav", resources + "SoundOfSilence.wav" }));

    const QString user = QDir::homePath() + QStringLiteral("/Library/Sounds/");
    writeFile(user + QStringLiteral("Beep.wav"));
    writeFile(user + QStringLiteral("Glass.aiff"));
    writeFile(user + QStringLiteral("Glass.au"));
    writeFile(user + QStringLiteral("notes.txt"));
    writeFile(user + QStringLiteral("Sub/Inner.wav"));
    QCOMPARE(systemSoundFiles().size(), before.size() + 3);
    const QStringList names = systemSounds();
    QCOMPARE(names.count(QStringLiteral("Glass")), 1); // unique
    QVERIFY(std::is_sorted(names.begin(), names.end()));

    QCOMPARE(pathOfSound(QStringLiteral("Beep")), resources + QStringLiteral("Beep.aiff"));
    QCOMPARE(pathOfSound(QStringLiteral("Glass")).section('/', 0, -2) + '/', user);
    QVERIFY(pathOfSound(QStringLiteral("Inner")).isNull());
    QVERIFY(pathOfSound(QStringLiteral("beep")).isNull()); // names match exactly
    QVERIFY(pathOfSound(QString()).isNull());
    QCOMPARE(soundNamed(QStringLiteral("Nothing")), nullptr);
    QCOMPARE(soundNamed(QStringLiteral("Done")), soundNamed(QStringLiteral("Done")));
}

void TestSoundExtensions::alertVolumeFromSettings_data()
{
    QTest::addColumn<QVariant>("setting");
    QTest::addColumn<double>("volume");
    QTest::newRow("none") << QVariant() << 1.0;
    QTest::newRow("0.35") << QVariant(0.35) << 0.0;
    QTest::newRow("0.47") << QVariant(0.47) << 0.25;
    QTest::newRow("0.61") << QVariant(0.61) << 0.5;
    QTest::newRow("1.5 clamped") << QVariant(1.5) << 1.0;
    QTest::newRow("text") << QVariant(QStringLiteral("0.61 or so")) << 0.5;
    QTest::newRow("not a number") << QVariant(QStringLiteral("loud")) << 0.0;
    QTest::newRow("a list") << QVariant(QStringList { "0.5", "0.6" }) << 1.0;
}

void TestSoundExtensions::alertVolumeFromSettings()
{
    QFETCH(QVariant, setting);
    QFETCH(double, volume);
    const QString key = QStringLiteral("com.apple.sound.beep.volume");
    {
        auto suite = VXUserDefaults::suite(QStringLiteral("com.apple.systemsound"));
        if (setting.isValid())
            suite->setValue(key, setting);
        else
            suite->remove(key);
    }
    QCOMPARE(alertVolume(), float(volume));

    // The command line wins over the suite.
    VXUserDefaults::standard().setArguments({ "tst", "-" + key, QStringLiteral("0.47") });
    QCOMPARE(alertVolume(), 0.25f);
    VXUserDefaults::standard().setArguments({ "tst" });
}

void TestSoundExtensions::alertVolumeFromTheDesktop()
{
    // The desktop's event-sound volume is what the sound server stores for
    // streams in the event role once one has been turned down.
    {
        auto suite = VXUserDefaults::suite(QStringLiteral("com.apple.systemsound"));
        suite->setValue(QStringLiteral("com.apple.sound.beep.volume"), 0.2);
    }
    QCOMPARE(alertVolume(), 0.0f); // no stored event volume yet: the suite
    QByteArray silence(44100 * 2 * 20, '\0');
    QProcess player;
    player.start(QStringLiteral("pacat"),
        { QStringLiteral("--property=media.role=event"), QStringLiteral("--format=s16le"),
            QStringLiteral("--channels=1"), QStringLiteral("--rate=44100") });
    QVERIFY(player.waitForStarted());
    player.write(silence);
    QString input;
    QTRY_VERIFY_WITH_TIMEOUT(
        !(input = pactl({ "list", "short", "sink-inputs" }).section('\t', 0, 0)).isEmpty(), 10000);
    pactl({ "set-sink-input-volume", input, "50%" });
    QTRY_COMPARE_WITH_TIMEOUT(alertVolume(), 0.125f, 10000); // 50% on the cubic scale
    pactl({ "set-sink-input-mute", input, "1" });
    QTRY_COMPARE_WITH_TIMEOUT(alertVolume(), 0.0f, 10000);
    pactl({ "set-sink-input-mute", input, "0" });
    pactl({ "set-sink-input-volume", input, "100%" });
    QTRY_COMPARE_WITH_TIMEOUT(alertVolume(), 1.0f, 10000);
    player.kill();
    player.waitForFinished();
}

void TestSoundExtensions::playsOnTheAlertDevice()
{
    // Qt knows the server's outputs by the names the library answers.
    QStringList outputs;
    for (const QAudioDevice &device : QMediaDevices::audioOutputs())
        outputs << QString::fromUtf8(device.id());
    QVERIFY2(
        outputs.contains("alert") && outputs.contains("speakers"), qPrintable(outputs.join(' ')));
    QCOMPARE(systemAudioDeviceID(), QStringLiteral("alert"));
    QCOMPARE(_alertSoundAlertDeviceIdentifier(), QStringLiteral("alert"));

    VXUserDefaults::standard().setArguments({ "tst", "-soundLog", "YES" });
    LogCapture log;
    const QDateTime before = QDateTime::currentDateTime();
    int alert, speakers;
    playDoneAndListen(alert, speakers);
    QVERIFY2(alert > 3000, qPrintable(QString::number(alert)));
    QCOMPARE(speakers, 0);
    QVERIFY(soundDate() >= before.addMSecs(-1));

    const QStringList lines = log.messages();
    QCOMPARE(lines.size(), 5);
    QVERIFY(lines[0].startsWith("playAsSoundEffect: <QSoundEffect "));
    QVERIFY(lines[0].endsWith("/Done.wav\">"));
    // Only the device that names its maker is listed.
    QCOMPARE(lines.mid(1, 3),
        QStringList({ "   device Alert by Quillet id alert", "+SL: soundEffectID=alert",
            "+SL: setPlaybackDeviceIdentifier:alert" }));
    QCOMPARE(lines[4], "+SL: play self (" + lines[0].mid(19) + ")");
    log.restore();

    // The desktop moves alert sounds to the other output: they follow.
    pactl({ "set-default-sink", "speakers" });
    int alert2, speakers2;
    playDoneAndListen(alert2, speakers2);
    pactl({ "set-default-sink", "alert" });
    VXUserDefaults::standard().setArguments({ "tst" });
    QCOMPARE(alert2, 0);
    QVERIFY(speakers2 > 3000);
}

void TestSoundExtensions::invalidDeviceFallsBackToDefault()
{
    QSoundEffect *sound = soundNamed(QStringLiteral("Done"));
    QVERIFY(sound);
    QVERIFY_THROWS_EXCEPTION(std::invalid_argument,
        setPlaybackDeviceIdentifier(sound, QStringLiteral("no-such-output")));

    SoundPlatform::setAlertOutputDeviceOverride(QStringLiteral("no-such-output"));
    VXUserDefaults::standard().setArguments({ "tst", "-soundLog", "YES" });
    LogCapture log;
    int alert, speakers;
    playDoneAndListen(alert, speakers);
    SoundPlatform::setAlertOutputDeviceOverride(std::nullopt);
    VXUserDefaults::standard().setArguments({ "tst" });
    QVERIFY(alert > 3000); // the default output
    QCOMPARE(speakers, 0);
    QVERIFY(log.messages().contains(
        "+SL: exception no audio output device with the identifier \"no-such-output\""));
}

void TestSoundExtensions::warmUpOncePerWindow()
{
    VXUserDefaults::standard().setArguments({ "tst", "-soundLog", "YES" });
    LogCapture log;
    auto warmUps = [&log] {
        return log.messages()
            .filter(QRegularExpression("^playAsSoundEffect: .*SoundOfSilence"))
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

    // Concurrent warm-ups set up one silent sound and play it once.
    QList<QThread *> threads;
    for (int i = 0; i < 4; ++i)
        threads << QThread::create(&SoundExtensions::playSilentSoundThread);
    for (QThread *thread : threads)
        thread->start();
    for (QThread *thread : threads) {
        QVERIFY(thread->wait(10000));
        delete thread;
    }
    QTRY_COMPARE(warmUps(), 5);
    QSoundEffect *silence = soundNamed(QStringLiteral("SoundOfSilence"));
    QVERIFY(silence);
    QTRY_COMPARE(silence->volume(), 0.01f);
    QCOMPARE(silence->thread(), QCoreApplication::instance()->thread());
    VXUserDefaults::standard().setArguments({ "tst" });
}

void TestSoundExtensions::recordedPreferredOutput()
{
    QCOMPARE(soundEffectDeviceID(), QString());
    QFile id(QStringLiteral("/etc/machine-id"));
    if (id.open(QIODevice::ReadOnly)) {
        const QString machine = QString::fromLatin1(id.readLine()).trimmed();
        writeFile(QDir::homePath() + "/.config/pulse/" + machine + "-default-sink", "speakers\n");
        QCOMPARE(soundEffectDeviceID(), QStringLiteral("speakers"));
    }
    writeFile(QDir::homePath() + "/.local/state/wireplumber/default-nodes",
        "[default-nodes]\ndefault.configured.audio.source=mic\n"
        "default.configured.audio.sink=alsa_output.pci-0000_00_1f.3.analog-stereo\n");
    QCOMPARE(soundEffectDeviceID(), QStringLiteral("alsa_output.pci-0000_00_1f.3.analog-stereo"));
}

QTEST_GUILESS_MAIN(TestSoundExtensions)
#include "tst_soundextensions.moc"

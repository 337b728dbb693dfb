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
#include <QMediaDevices>
#include <QRegularExpression>
#include <QSettings>
#include <QSoundEffect>
#include <QThread>

using namespace SoundExtensions;

class TestSoundExtensions : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void initTestCase()
    {
        // The product's sounds, beside files that are not sounds.
        VXBundle::setMainBundlePath(QDir::homePath() + "/Sounds.app");
        writeFile(QDir::homePath() + "/Sounds.app/Contents/Info.plist",
            "<?xml version=\"1.0\"?><plist version=\"1.0\"><dict/></plist>");
        for (const QString name : { "Done.wav", "SoundOfSilence.wav" })
            writeFile(m_resources + name, readFile(QUILLET_SOURCE_DIR "/resources/sounds/" + name));
        for (const QString name :
            { "Beep.aiff", "Alarm.MP3", "Alarm.m4a", "ReadMe.rtf", "Chime.Wav", "nested/Deep.wav" })
            writeFile(m_resources + name);
    }

    void cleanup() { VXUserDefaults::standard().setArguments({ "tst" }); }

    void extensions_data()
    {
        // clang-format off
        QTest::addColumn<QString>("path");
        QTest::addColumn<bool>("sound");
        QTest::newRow("upper") << "/x/song.AIFF" << true;
        QTest::newRow("mixed case") << "song.Aiff" << false;
        QTest::newRow("unknown") << "song.caf" << false;
        QTest::newRow("type code") << "song.'WAVE'" << true;
        QTest::newRow("type code with blank") << "song.'Mp3 '" << true;
        QTest::newRow("dot in a folder") << "/a.wav/song" << false;
        QTest::newRow("hidden file") << "/x/.wav" << false;
        // clang-format on
    }

    void extensions()
    {
        QFETCH(QString, path);
        QFETCH(bool, sound);
        QCOMPARE(isSoundFileAtPath(path), sound);
    }

    void listsAndLookup()
    {
        // No ~/Library/Sounds yet: skipped without a word.
        const QString user = QDir::homePath() + "/Library/Sounds/";
        const QStringList before = systemSoundFiles();
        QVERIFY(before.filter(QDir::homePath()).isEmpty());
        QCOMPARE(applicationSounds(), QStringList({ "Alarm", "Alarm", "Beep", "Done" }));
        QCOMPARE(applicationSoundFiles().size(), 5); // with SoundOfSilence.wav
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

    void alertVolumeFromSettings_data()
    {
        // clang-format off
        QTest::addColumn<QVariant>("setting");
        QTest::addColumn<QString>("argument"); // given on the command line
        QTest::addColumn<double>("volume");
        QTest::newRow("none") << QVariant() << "" << 1.0;
        QTest::newRow("0.35") << QVariant(0.35) << "" << 0.0;
        QTest::newRow("0.47") << QVariant(0.47) << "" << 0.25;
        QTest::newRow("0.61") << QVariant(0.61) << "" << 0.5;
        QTest::newRow("1.5 clamped") << QVariant(1.5) << "" << 1.0;
        QTest::newRow("text") << QVariant("0.61 or so") << "" << 0.5;
        QTest::newRow("not a number") << QVariant("loud") << "" << 0.0;
        QTest::newRow("a list") << QVariant(QStringList { "0.5", "0.6" }) << "" << 1.0;
        QTest::newRow("the command line wins") << QVariant(0.61) << "0.47" << 0.25;
        // clang-format on
    }

    void alertVolumeFromSettings()
    {
        QFETCH(QVariant, setting);
        QFETCH(QString, argument);
        QFETCH(double, volume);
        const QString key = "com.apple.sound.beep.volume";
        if (const auto suite = VXUserDefaults::suite("com.apple.systemsound"); setting.isValid())
            suite->setValue(key, setting);
        else
            suite->remove(key);
        if (!argument.isEmpty())
            VXUserDefaults::standard().setArguments({ "tst", "-" + key, argument });
        QCOMPARE(alertVolume(), float(volume));
    }

    void alertVolumeFromTheDesktop()
    {
        // The desktop's event-sound volume is what the sound server stores for
        // streams in the event role once one has been turned down.
        VXUserDefaults::suite("com.apple.systemsound")
            ->setValue("com.apple.sound.beep.volume", 0.2);
        QCOMPARE(alertVolume(), 0.0f); // no stored event volume yet: the suite
        QProcess player;
        player.start("pacat",
            { "--property=media.role=event", "--format=s16le", "--channels=1", "--rate=44100" });
        QVERIFY(player.waitForStarted());
        player.write(QByteArray(44100 * 2 * 20, '\0'));
        QString input;
        QTRY_VERIFY_WITH_TIMEOUT(
            !(input = pactl({ "list", "short", "sink-inputs" }).section('\t', 0, 0)).isEmpty(),
            10000);
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
        // Concurrent warm-ups set up one silent sound and play it once each.
        std::unique_ptr<QThread> threads[4];
        for (auto &thread : threads)
            (thread = std::unique_ptr<QThread>(QThread::create(&playSilentSoundThread)))->start();
        for (auto &thread : threads)
            QVERIFY(thread->wait(10000));
        QTRY_COMPARE(warmUps(), 5);
        QSoundEffect *silence = soundNamed("SoundOfSilence");
        QTRY_COMPARE(silence->volume(), 0.01f);
        QCOMPARE(silence->thread(), QCoreApplication::instance()->thread());
    }

    void playsOnTheAlertOutput_data()
    {
        // clang-format off
        QTest::addColumn<QString>("defaultSink"); // where the desktop sends alert sounds
        QTest::addColumn<QString>("override"); // the output asked for instead
        QTest::addColumn<QStringList>("logged"); // among the lines of -soundLog
        // Only the device that names its maker is listed.
        QTest::newRow("alert") << "alert"
                               << ""
                               << QStringList { "   device Alert by Quillet id alert",
                                      "+SL: setPlaybackDeviceIdentifier:alert" };
        QTest::newRow("moved to the speakers by the desktop")
            << "speakers" << "" << QStringList { "+SL: setPlaybackDeviceIdentifier:speakers" };
        QTest::newRow("unknown output: the default one")
            << "alert"
            << "no-such-output"
            << QStringList {
                   "+SL: exception no audio output device with the identifier \"no-such-output\""
               };
        // clang-format on
    }

    void playsOnTheAlertOutput()
    {
        QFETCH(QString, defaultSink);
        QFETCH(QString, override);
        QFETCH(QStringList, logged);
        // Qt knows the server's outputs by the names the library answers.
        QStringList outputs;
        for (const QAudioDevice &device : QMediaDevices::audioOutputs())
            outputs << device.id();
        QVERIFY2(outputs.contains("alert") && outputs.contains("speakers"),
            qPrintable(outputs.join(' ')));
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

    void recordedPreferredOutput()
    {
        QCOMPARE(soundEffectDeviceID(), QString());
        const QString machine = QString(readFile("/etc/machine-id")).trimmed();
        if (!machine.isEmpty()) {
            writeFile(QDir::homePath() + "/.config/pulse/" + machine + "-default-sink", "speakers");
            QCOMPARE(soundEffectDeviceID(), "speakers");
        }
        writeFile(QDir::homePath() + "/.local/state/wireplumber/default-nodes",
            "[default-nodes]\ndefault.configured.audio.source=mic\n"
            "default.configured.audio.sink=alsa_output.pci-0000_00_1f.3.analog-stereo\n");
        QCOMPARE(soundEffectDeviceID(), "alsa_output.pci-0000_00_1f.3.analog-stereo");
    }

private:
    const QString m_resources = QDir::homePath() + "/Sounds.app/Contents/Resources/";
};

QTEST_GUILESS_MAIN(TestSoundExtensions)
#include "tst_soundextensions.moc"

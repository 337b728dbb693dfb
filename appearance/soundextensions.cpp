// SPDX-FileCopyrightText: 2026 Quillet developers
// SPDX-License-Identifier: MIT
#include "soundextensions.h"

#include "extensions/stringextensions.h"
#include "soundextensions_p.h"
#include "utilities/vxbundle.h"
#include "utilities/vxlog.h"
#include "utilities/vxuserdefaults.h"

#include <QAudioDevice>
#include <QCoreApplication>
#include <QDir>
#include <QFileInfo>
#include <QHash>
#include <QMediaDevices>
#include <QPointer>
#include <QSettings>
#include <QSoundEffect>
#include <QThread>
#include <QUrl>
#include <atomic>
#include <cmath>
#include <mutex>
#include <stdexcept>

namespace {

const QString kSilence = QStringLiteral("SoundOfSilence");

QString nameOfSoundFile(const QString &path)
{
    return QFileInfo(path).completeBaseName();
}

// The sound's own name and file, for log lines.
QString describe(const QSoundEffect *sound)
{
    if (!sound)
        return QStringLiteral("(null)");
    const QString path = sound->source().toLocalFile();
    return QStringLiteral("<QSoundEffect %1 \"%2\">")
        .arg(QString::number(quintptr(sound), 16), path.isEmpty() ? sound->objectName() : path);
}

// Runs f on the sound's thread: at once when that is the calling thread,
// else queued there (the caller never waits for the main thread).
template <typename F> void onSoundThread(QSoundEffect *sound, F &&f)
{
    if (QThread::currentThread() == sound->thread())
        f();
    else
        QMetaObject::invokeMethod(sound, std::forward<F>(f), Qt::QueuedConnection);
}

// Plays the sound through a player of its own, made for the sound's
// current output: a QSoundEffect keeps the output it was first loaded for,
// while the player finds the sound's data already decoded in Qt's cache.
// The player goes when it has played or cannot play.
void playOnce(QSoundEffect *sound)
{
    if (QMediaDevices::audioOutputs().isEmpty())
        return; // nowhere to play: a machine without sound
    auto *player = new QSoundEffect(sound->audioDevice(), sound);
    player->setObjectName(sound->objectName());
    player->setVolume(sound->volume());
    player->setMuted(sound->isMuted());
    player->setLoopCount(sound->loopCount());
    QObject::connect(player, &QSoundEffect::playingChanged, player, [player] {
        if (!player->isPlaying())
            player->deleteLater();
    });
    QObject::connect(player, &QSoundEffect::statusChanged, player, [player] {
        if (player->status() == QSoundEffect::Error)
            player->deleteLater();
    });
    player->setSource(sound->source());
    player->play();
    if (player->status() == QSoundEffect::Null || player->status() == QSoundEffect::Error)
        player->deleteLater();
}

// Milliseconds since the epoch of the last sound; 0 when none.
std::atomic<qint64> g_soundDate { 0 };

std::mutex g_namedLock; // the shared sounds by name
std::mutex g_silenceLock; // the warm-up job
QPointer<QSoundEffect> g_silence;

QHash<QString, QPointer<QSoundEffect>> &namedSounds()
{
    static QHash<QString, QPointer<QSoundEffect>> sounds;
    return sounds;
}

std::optional<double> floatValueOf(const QVariant &value)
{
    // Numbers and strings answer a float value, the way a string's leading
    // number does ("0.5 loud" is 0.5, "loud" is 0); lists and data do not.
    switch (value.typeId()) {
    case QMetaType::Double:
    case QMetaType::Float:
    case QMetaType::Int:
    case QMetaType::UInt:
    case QMetaType::LongLong:
    case QMetaType::ULongLong:
    case QMetaType::Bool:
        return value.toDouble();
    case QMetaType::QString:
        return StringExtensions::floatValue(value.toString());
    default:
        return std::nullopt;
    }
}

} // namespace

const QSet<QString> &SoundExtensions::soundFileExtensions()
{
    static const QSet<QString> extensions {
        QStringLiteral("aiff"),
        QStringLiteral("AIFF"),
        QStringLiteral("'AIFF'"),
        QStringLiteral("aif"),
        QStringLiteral("AIF"),
        QStringLiteral("aifc"),
        QStringLiteral("AIFC"),
        QStringLiteral("wav"),
        QStringLiteral("WAV"),
        QStringLiteral("'WAVE'"),
        QStringLiteral("snd"),
        QStringLiteral("SND"),
        QStringLiteral("au"),
        QStringLiteral("AU"),
        QStringLiteral("'ULAW'"),
        QStringLiteral("'ALAW'"),
        QStringLiteral("mp3"),
        QStringLiteral("MP3"),
        QStringLiteral("'Mp3 '"),
        QStringLiteral("ulw"),
        QStringLiteral("ULW"),
        QStringLiteral("m4p"),
        QStringLiteral("m4a"),
    };
    return extensions;
}

bool SoundExtensions::isSoundFileAtPath(const QString &path)
{
    // The extension is what follows the last dot of the last component.
    const QString name = path.section(QLatin1Char('/'), -1);
    const qsizetype dot = name.lastIndexOf(QLatin1Char('.'));
    if (dot <= 0)
        return false;
    return soundFileExtensions().contains(name.mid(dot + 1));
}

QStringList SoundExtensions::applicationSoundFiles()
{
    QStringList files;
    for (const QString &path : VXBundle::mainBundle().pathsForResourcesOfType(QString())) {
        if (isSoundFileAtPath(path))
            files.append(path);
    }
    return files;
}

QStringList SoundExtensions::applicationSounds()
{
    QStringList names;
    for (const QString &path : applicationSoundFiles()) {
        const QString name = nameOfSoundFile(path);
        if (name != kSilence)
            names.append(name);
    }
    names.sort(); // plain UTF-16 order
    return names;
}

QStringList SoundExtensions::systemSoundFiles()
{
    const QStringList folders { QStringLiteral("/System/Library/Sounds"),
        QStringLiteral("/Library/Sounds"), QDir::homePath() + QStringLiteral("/Library/Sounds") };
    QStringList files;
    for (const QString &folder : folders) {
        // The file system's own order; a missing folder has no entries.
        const QDir dir(folder);
        const QStringList entries = dir.entryList(
            QDir::Files | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot, QDir::Unsorted);
        for (const QString &entry : entries) {
            if (isSoundFileAtPath(entry))
                files.append(folder + QLatin1Char('/') + entry);
        }
    }
    return files;
}

QStringList SoundExtensions::systemSounds()
{
    QStringList names;
    for (const QString &path : systemSoundFiles())
        names.append(nameOfSoundFile(path));
    names.sort(); // plain UTF-16 order
    names.erase(std::unique(names.begin(), names.end()), names.end());
    return names;
}

QString SoundExtensions::pathOfSound(const QString &name)
{
    for (const QStringList &files : { applicationSoundFiles(), systemSoundFiles() }) {
        for (const QString &path : files) {
            if (nameOfSoundFile(path) == name)
                return path;
        }
    }
    return QString();
}

QSoundEffect *SoundExtensions::soundNamed(const QString &name)
{
    QCoreApplication *app = QCoreApplication::instance();
    if (!app || name.isEmpty())
        return nullptr;
    std::lock_guard lock(g_namedLock);
    if (QSoundEffect *known = namedSounds().value(name))
        return known;
    const QString path = pathOfSound(name);
    if (path.isNull())
        return nullptr;

    auto *sound = new QSoundEffect;
    sound->setObjectName(name);
    if (sound->thread() != app->thread())
        sound->moveToThread(app->thread());
    // The application owns the sound; it is set up on its thread.
    onSoundThread(sound, [sound, app, path] {
        sound->setParent(app);
        sound->setSource(QUrl::fromLocalFile(path));
    });
    namedSounds().insert(name, sound);
    return sound;
}

void SoundExtensions::setVolume(QSoundEffect *sound, float volume)
{
    if (sound)
        onSoundThread(sound, [sound, volume] { sound->setVolume(volume); });
}

void SoundExtensions::setPlaybackDeviceIdentifier(QSoundEffect *sound, const QString &identifier)
{
    if (!sound)
        return;
    QAudioDevice device = QMediaDevices::defaultAudioOutput();
    if (!identifier.isNull()) {
        const QByteArray id = identifier.toUtf8();
        const QList<QAudioDevice> outputs = QMediaDevices::audioOutputs();
        const auto found = std::find_if(outputs.begin(), outputs.end(),
            [&id](const QAudioDevice &output) { return output.id() == id; });
        if (found == outputs.end()) {
            throw std::invalid_argument(
                "no audio output device with the identifier \"" + id.toStdString() + '"');
        }
        device = *found;
    }
    onSoundThread(sound, [sound, device] { sound->setAudioDevice(device); });
}

QDateTime SoundExtensions::soundDate()
{
    const qint64 msecs = g_soundDate.load();
    return msecs == 0 ? QDateTime() : QDateTime::fromMSecsSinceEpoch(msecs);
}

void SoundExtensions::setSoundDateNow()
{
    g_soundDate.store(QDateTime::currentMSecsSinceEpoch());
}

double SoundExtensions::alertVolumeForSetting(double v)
{
    // Piecewise linear through (0.35, 0), (0.47, 0.25), (0.61, 0.5),
    // (0.78, 0.75), (1.0, 1.0); everything above 0.78 follows the last
    // segment, and only the top is clamped.
    double volume;
    if (v <= 0.35)
        volume = 0.0;
    else if (v <= 0.47)
        volume = (v - 0.35) / 0.12 * 0.25;
    else if (v <= 0.61)
        volume = 0.25 + (v - 0.47) / 0.14 * 0.25;
    else if (v <= 0.78)
        volume = 0.5 + (v - 0.61) / 0.17 * 0.25;
    else
        volume = 0.75 + (v - 0.78) / 0.22 * 0.25;
    return volume > 1.0 ? 1.0 : volume;
}

float SoundExtensions::alertVolume()
{
    if (const std::optional<double> desktop = SoundPlatform::eventSoundVolume())
        return float(std::clamp(*desktop, 0.0, 1.0));

    const QString key = QStringLiteral("com.apple.sound.beep.volume");
    QVariant value = VXUserDefaults::standard().objectForKey(key);
    if (!value.isValid())
        value = VXUserDefaults::suite(QStringLiteral("com.apple.systemsound"))->value(key);
    const std::optional<double> setting = floatValueOf(value);
    if (!setting || std::isnan(*setting))
        return 1.0f;
    return float(alertVolumeForSetting(*setting));
}

void SoundExtensions::playSilentSoundThread()
{
    std::lock_guard lock(g_silenceLock);
    if (!g_silence) {
        g_silence = soundNamed(kSilence);
        if (!g_silence)
            return;
        setVolume(g_silence, 0.01f);
    }
    playAsSoundEffect(g_silence);
}

void SoundExtensions::prepareForSound()
{
    const QDateTime last = soundDate();
    if (last.isValid() && last.msecsTo(QDateTime::currentDateTime()) <= 25000)
        return;
    setSoundDateNow();
    QThread *job = QThread::create(&SoundExtensions::playSilentSoundThread);
    job->setObjectName(QStringLiteral("sound warm-up"));
    QObject::connect(job, &QThread::finished, job, &QObject::deleteLater);
    job->start();
}

void SoundExtensions::playAsSoundEffect(QSoundEffect *sound)
{
    if (!sound)
        return;
    const bool verbose = VXUserDefaults::standard().boolForKey(QStringLiteral("soundLog"));
    if (verbose) {
        vxLog(QStringLiteral("playAsSoundEffect: %@"), describe(sound));
        listAudioDevices(sound);
    }
    const QString device = systemAudioDeviceID(sound);
    if (verbose)
        vxLog(QStringLiteral("+SL: soundEffectID=%@"), device);
    if (!device.isNull()) {
        if (verbose)
            vxLog(QStringLiteral("+SL: setPlaybackDeviceIdentifier:%@"), device);
        try {
            setPlaybackDeviceIdentifier(sound, device);
        } catch (const std::exception &error) {
            if (verbose)
                vxLog(QStringLiteral("+SL: exception %@"), QString::fromUtf8(error.what()));
            setPlaybackDeviceIdentifier(sound, QString());
        }
    }
    if (verbose)
        vxLog(QStringLiteral("+SL: play self (%@)"), describe(sound));
    onSoundThread(sound, [sound] { playOnce(sound); });
    setSoundDateNow();
}

QString SoundExtensions::systemAudioDeviceID(QSoundEffect *)
{
    return SoundPlatform::alertOutputDevice(SoundPlatform::Scope::Output);
}

QString SoundExtensions::_alertSoundAlertDeviceIdentifier(QSoundEffect *)
{
    return SoundPlatform::alertOutputDevice(SoundPlatform::Scope::Global);
}

QString SoundExtensions::soundEffectDeviceID(QSoundEffect *)
{
    return SoundPlatform::recordedPreferredOutput();
}

void SoundExtensions::listAudioDevices(QSoundEffect *)
{
    for (const SoundPlatform::AudioDevice &device : SoundPlatform::audioDevices()) {
        // A device that does not tell all three is left out.
        if (device.name.isEmpty() || device.maker.isEmpty() || device.identifier.isEmpty())
            continue;
        vxLog(QStringLiteral("   device %s by %s id %@"), device.name.constData(),
            device.maker.constData(), device.identifier);
    }
}

// SPDX-FileCopyrightText: 2026 Quillet developers
// SPDX-License-Identifier: MIT
#pragma once

#include <QDateTime>
#include <QSet>
#include <QStringList>

class QSoundEffect;

// Sounds: the sound files an application or the system offers, lookup by
// name, playback on the device the desktop uses for alerts, the alert volume,
// and a silent warm-up of the audio output.
//
// Sounds are QSoundEffect objects (WAV). The ones soundNamed() hands out
// belong to the library, are shared per name, and live on the application's
// main thread; the functions here may be called from any thread and forward
// to that thread as needed, so a QCoreApplication with a running event loop
// is required for sound to be heard.
namespace SoundExtensions {

// The 23 extensions, compared case-sensitively. The quoted entries are file
// type codes written as extensions.
const QSet<QString> &soundFileExtensions();
// Looks at the extension only, never at the file.
bool isSoundFileAtPath(const QString &path);

// Sound files among the main bundle's resources (no subfolders), in the
// bundle's order, and their names (without "SoundOfSilence"), sorted.
QStringList applicationSoundFiles();
QStringList applicationSounds();
// Sound files directly in /System/Library/Sounds, /Library/Sounds and
// ~/Library/Sounds, folder by folder, and their names, sorted and unique.
QStringList systemSoundFiles();
QStringList systemSounds();
// The application's sound file of that name, else the system's; null when
// there is none.
QString pathOfSound(const QString &name);

// The shared sound of that name, or nullptr when there is no such file.
QSoundEffect *soundNamed(const QString &name);
void setVolume(QSoundEffect *sound, float volume);
// Plays on the given output device (a device identifier as
// systemAudioDeviceID() answers it); a null identifier means the default
// output. Throws std::invalid_argument for an identifier no output has.
void setPlaybackDeviceIdentifier(QSoundEffect *sound, const QString &identifier);

// The date of the last sound played; invalid when none was.
QDateTime soundDate();
void setSoundDateNow();

// The playback volume for alert sounds, 0.0 to 1.0: the desktop's
// event-sound volume where the sound server keeps one, else the setting
// "com.apple.sound.beep.volume" of the suite "com.apple.systemsound" mapped
// through the alert-volume curve, else 1.0.
float alertVolume();
// The curve from a stored beep-volume fraction to a playback volume.
double alertVolumeForSetting(double value);

// Warm-up: plays "SoundOfSilence" at volume 0.01 as a sound effect. The
// body of the background job that prepareForSound() starts when no sound
// was played in the last 25 seconds.
void playSilentSoundThread();
void prepareForSound();

// Plays the sound on the alert device; logs every step when the user
// default "soundLog" is set.
void playAsSoundEffect(QSoundEffect *sound);
// Identifier of the alert output device, or null.
QString systemAudioDeviceID(QSoundEffect *sound = nullptr);
QString _alertSoundAlertDeviceIdentifier(QSoundEffect *sound = nullptr);
// The preferred output device as the sound server's settings record it, or
// null.
QString soundEffectDeviceID(QSoundEffect *sound = nullptr);
// Logs "   device <name> by <maker> id <identifier>" for every audio device.
void listAudioDevices(QSoundEffect *sound = nullptr);

} // namespace SoundExtensions

// SPDX-FileCopyrightText: 2026 Quillet developers
// SPDX-License-Identifier: MIT
#pragma once

#include <QByteArray>
#include <QList>
#include <QString>
#include <optional>

// What the platform's sound server tells. Every call answers on its own and
// gives up (null, empty) when no server answers within a short time.
namespace SoundPlatform {

enum class Scope { Output, Global };

// The output device that alert sounds go to, read in the given scope.
QString alertOutputDevice(Scope scope);

struct AudioDevice
{
    QByteArray name;
    QByteArray maker; // empty when the device does not say
    QString identifier;
};
QList<AudioDevice> audioDevices();

// The desktop's own event-sound volume (0.0 up, 1.0 = full), when the sound
// server keeps one.
std::optional<double> eventSoundVolume();

// The preferred output device recorded in the sound server's settings.
QString recordedPreferredOutput();

// Tests: answer this identifier as the alert device instead of asking the
// server; std::nullopt asks the server again.
void setAlertOutputDeviceOverride(const std::optional<QString> &identifier);

} // namespace SoundPlatform

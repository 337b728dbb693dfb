// SPDX-FileCopyrightText: 2026 Quillet developers
// SPDX-License-Identifier: MIT
//
// The completion chime, in a module of its own that the installer loads
// when the chime plays: the sound libraries (Qt Multimedia, PulseAudio and
// their codecs, and through Qt Multimedia Qt Network with Kerberos) stay out
// of the installer's start-up. The module carries its own copy of the
// library's state, so it is told which bundle is the main one.
#include "appearance/soundextensions.h"
#include "utilities/vxbundle.h"

#include <QSoundEffect>

extern "C" Q_DECL_EXPORT void quilletPlayDoneSound(const char *mainBundlePath)
{
    VXBundle::setMainBundlePath(QString::fromUtf8(mainBundlePath));
    QSoundEffect *sound = SoundExtensions::soundNamed(QStringLiteral("Done"));
    if (!sound)
        return;
    SoundExtensions::setVolume(sound, SoundExtensions::alertVolume());
    SoundExtensions::playAsSoundEffect(sound);
}

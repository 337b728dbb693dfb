// SPDX-FileCopyrightText: 2026 Quillet developers
// SPDX-License-Identifier: MIT
#include "installersound.h"

#include "utilities/vxbundle.h"

#include <QCoreApplication>
#include <QSoundEffect>
#include <QUrl>

void InstallerSound::playDone()
{
    const QString path
        = VXBundle::mainBundle().pathForResource(QStringLiteral("Done"), QStringLiteral("wav"));
    if (path.isEmpty())
        return;
    auto *effect = new QSoundEffect(QCoreApplication::instance());
    effect->setSource(QUrl::fromLocalFile(path));
    QObject::connect(effect, &QSoundEffect::playingChanged, effect, [effect] {
        if (!effect->isPlaying())
            effect->deleteLater();
    });
    effect->play();
}

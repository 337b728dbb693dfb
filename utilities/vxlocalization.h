// SPDX-FileCopyrightText: 2026 Quillet developers
// SPDX-License-Identifier: MIT
#pragma once

#include "vxformat.h"

#include <QCoreApplication>

// Localization: the English literal is the key. Mark literals with
// QT_TRANSLATE_NOOP("Quillet", "...") where they are defined, so that
// lupdate finds them; look them up with vxLocalized().
inline QString vxLocalized(const QString &key)
{
    const QByteArray utf8 = key.toUtf8();
    return QCoreApplication::translate("Quillet", utf8.constData());
}

template <typename... Args> QString vxLocalizedFormat(const QString &key, const Args &...args)
{
    return vxFormat(vxLocalized(key), args...);
}

// Loads the translation for the preferred language from a bundle's
// Resources/translations folder: the "AppleLanguages" default when given
// ("de" or "(de, en)"), else the system locale. Answers the language used,
// or an empty string for English (whose table holds only the texts that
// differ from their keys).
QString vxInstallTranslations(const QString &resourcePath);

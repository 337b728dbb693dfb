// SPDX-FileCopyrightText: 2026 Quillet developers
// SPDX-License-Identifier: MIT
#include "vxlocalization.h"

#include "vxuserdefaults.h"

#include <QLocale>
#include <QRegularExpression>
#include <QTranslator>

QString vxInstallTranslations(const QString &resourcePath)
{
    QStringList languages;
    const QString requested
        = VXUserDefaults::standard().stringForKey(QStringLiteral("AppleLanguages"));
    if (!requested.isEmpty()) {
        static const QRegularExpression separators(QStringLiteral("[(),\\s\"]+"));
        languages = requested.split(separators, Qt::SkipEmptyParts);
    } else {
        languages = QLocale().uiLanguages();
    }
    // English last: its table holds the texts that read differently from
    // their keys.
    languages << QStringLiteral("en");
    for (QString language : languages) {
        language.replace(QLatin1Char('-'), QLatin1Char('_'));
        auto *translator = new QTranslator(QCoreApplication::instance());
        const QString dir = resourcePath + QLatin1String("/translations");
        if (translator->load(QStringLiteral("quillet_") + language, dir)
            || translator->load(
                QStringLiteral("quillet_") + language.section(QLatin1Char('_'), 0, 0), dir)) {
            QCoreApplication::installTranslator(translator);
            return language.startsWith(QLatin1String("en")) ? QString() : language;
        }
        delete translator;
    }
    return QString();
}

// SPDX-FileCopyrightText: 2026 Quillet developers
// SPDX-License-Identifier: MIT
#include "vxuserdefaults.h"

#include <QCoreApplication>
#include <QSettings>

VXUserDefaults::VXUserDefaults()
{
    if (QCoreApplication::instance())
        setArguments(QCoreApplication::arguments());
}

VXUserDefaults &VXUserDefaults::standard()
{
    static VXUserDefaults defaults;
    return defaults;
}

std::unique_ptr<QSettings> VXUserDefaults::suite(const QString &name)
{
    return std::make_unique<QSettings>(
        QSettings::IniFormat, QSettings::UserScope, QStringLiteral("Quillet"), name);
}

QSettings &VXUserDefaults::settings() const
{
    if (!m_settings) {
        QString name = QCoreApplication::applicationName();
        if (name.isEmpty())
            name = QStringLiteral("Quillet");
        m_settings = std::make_unique<QSettings>(
            QSettings::IniFormat, QSettings::UserScope, QStringLiteral("Quillet"), name);
    }
    return *m_settings;
}

void VXUserDefaults::setArguments(const QStringList &arguments)
{
    m_arguments.clear();
    for (qsizetype i = 1; i + 1 < arguments.size(); ++i) {
        const QString &key = arguments.at(i);
        if (key.size() < 2 || !key.startsWith(QLatin1Char('-')))
            continue;
        const QString &value = arguments.at(i + 1);
        if (value.startsWith(QLatin1Char('-')))
            continue;
        m_arguments.insert(key.mid(1), value);
        ++i;
    }
}

QVariant VXUserDefaults::objectForKey(const QString &key) const
{
    const auto it = m_arguments.constFind(key);
    if (it != m_arguments.cend())
        return *it;
    return settings().value(key);
}

QString VXUserDefaults::stringForKey(const QString &key) const
{
    const QVariant v = objectForKey(key);
    return v.isValid() ? v.toString() : QString();
}

bool VXUserDefaults::boolValue(const QVariant &v)
{
    if (!v.isValid())
        return false;
    if (v.typeId() == QMetaType::Bool)
        return v.toBool();
    const QString s = v.toString().trimmed();
    if (s.compare(QLatin1String("YES"), Qt::CaseInsensitive) == 0
        || s.compare(QLatin1String("true"), Qt::CaseInsensitive) == 0)
        return true;
    return s.toLongLong() != 0 || s.toDouble() != 0.0;
}

bool VXUserDefaults::boolForKey(const QString &key) const
{
    return boolValue(objectForKey(key));
}

double VXUserDefaults::doubleForKey(const QString &key) const
{
    return objectForKey(key).toString().trimmed().toDouble();
}

qlonglong VXUserDefaults::integerForKey(const QString &key) const
{
    return qlonglong(doubleForKey(key));
}

void VXUserDefaults::setObject(const QVariant &value, const QString &key)
{
    if (!value.isValid()) {
        removeObject(key);
        return;
    }
    settings().setValue(key, value);
    settings().sync();
}

void VXUserDefaults::removeObject(const QString &key)
{
    settings().remove(key);
    settings().sync();
}

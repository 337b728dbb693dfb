// SPDX-FileCopyrightText: 2026 Quillet developers
// SPDX-License-Identifier: MIT
#pragma once

#include <QStringList>
#include <QVariant>
#include <memory>

class QSettings;

// User defaults: the argument domain ("-key value" pairs on the command
// line) over the application domain (an INI file in the XDG config folder,
// named after the application). Suites are INI files named after the suite.
class VXUserDefaults
{
public:
    static VXUserDefaults &standard();
    // A suite's own file, e.g. "com.example.shared".
    static std::unique_ptr<QSettings> suite(const QString &name);

    // Parses "-key value" pairs; a later pair wins. Called with the process's
    // arguments on first use of standard(); tests may call it again.
    void setArguments(const QStringList &arguments);
    QVariantMap argumentDomain() const { return m_arguments; }

    QVariant objectForKey(const QString &key) const;
    QString stringForKey(const QString &key) const;
    // Cocoa's reading of booleans: true, YES (any case) or a non-zero number.
    bool boolForKey(const QString &key) const;
    double doubleForKey(const QString &key) const;
    qlonglong integerForKey(const QString &key) const;

    void setObject(const QVariant &value, const QString &key);
    void removeObject(const QString &key);

    static bool boolValue(const QVariant &value);

private:
    VXUserDefaults();
    QSettings &settings() const;

    QVariantMap m_arguments;
    mutable std::unique_ptr<QSettings> m_settings;
};

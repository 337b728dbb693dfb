// SPDX-FileCopyrightText: 2026 Quillet developers
// SPDX-License-Identifier: MIT
#pragma once

#include <QString>
#include <QStringList>
#include <QVariantMap>
#include <optional>

// An application bundle on disk and its Info dictionary.
//
// Two layouts are read:
//  - "Name.app/Contents/Info.plist", resources in Contents/Resources, the
//    executable in Contents/Linux (or an ELF file in Contents/MacOS);
//  - GNUstep's "Name.app/Resources/Info-gnustep.plist", resources in
//    Resources, the executable at the top of the bundle.
// GNUstep's keys NSExecutable, NSIcon, ApplicationName and NSRole are also
// offered under the CF names when those are absent, so callers ask one set
// of keys.
class VXBundle
{
public:
    enum class Layout { Contents, GNUstep, Folder };

    // A bundle for any existing folder (its Info dictionary may be empty);
    // nullopt when the path is not a folder.
    static std::optional<VXBundle> open(const QString &path);

    // The bundle of the running program: the nearest enclosing ".app" of its
    // executable, else the executable's folder.
    static const VXBundle &mainBundle();
    // Tests and tools can point the main bundle elsewhere.
    static void setMainBundlePath(const QString &path);
    // The nearest enclosing folder of the path whose name ends in ".app"
    // (the path itself included); empty when there is none.
    static QString enclosingBundlePath(const QString &path);

    QString bundlePath() const { return m_path; }
    Layout layout() const { return m_layout; }
    QString infoPlistPath() const;
    QString resourcePath() const;
    QString executablePath() const;

    // The Info dictionary; empty when missing or unreadable.
    QVariantMap infoDictionary() const { return m_info; }
    // Why the Info dictionary could not be read; empty when it could (or
    // when there is none).
    QString infoError() const { return m_infoError; }
    QVariant objectForInfoDictionaryKey(const QString &key) const { return m_info.value(key); }
    // A string value of the Info dictionary; a null QString when the key is
    // missing or does not hold a string.
    QString stringForInfoKey(const QString &key) const;
    QString bundleIdentifier() const
    {
        return stringForInfoKey(QStringLiteral("CFBundleIdentifier"));
    }

    // The file "name.type" (or "name" when type is empty) among the bundle's
    // resources, also in a language folder (en.lproj, English.lproj);
    // a null QString when there is none.
    QString pathForResource(const QString &name, const QString &type = QString()) const;
    // Every file "*.type" (any file when type is empty) directly among the
    // resources, then in the language folders, each folder in the order the
    // file system lists it.
    QStringList pathsForResourcesOfType(const QString &type) const;

private:
    VXBundle() = default;
    void load();

    QString m_path;
    Layout m_layout = Layout::Folder;
    QVariantMap m_info;
    QString m_infoError;
};

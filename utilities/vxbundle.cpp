// SPDX-FileCopyrightText: 2026 Quillet developers
// SPDX-License-Identifier: MIT
#include "vxbundle.h"

#include "vxpropertylist.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QFileInfo>

namespace {

QString g_mainBundlePath;

bool isElf(const QString &path)
{
    QFile f(path);
    return f.open(QIODevice::ReadOnly)
        && f.read(4)
        == QByteArray("\x7f"
                      "ELF",
            4);
}

} // namespace

std::optional<VXBundle> VXBundle::open(const QString &path)
{
    if (path.isEmpty())
        return std::nullopt;
    const QFileInfo info(path);
    if (!info.isDir())
        return std::nullopt;
    VXBundle bundle;
    bundle.m_path = QDir::cleanPath(info.absoluteFilePath());
    bundle.load();
    return bundle;
}

QString VXBundle::enclosingBundlePath(const QString &path)
{
    QString p = QDir::cleanPath(path);
    while (p.size() > 1) {
        if (p.endsWith(QLatin1String(".app")))
            return p;
        p = QFileInfo(p).path();
    }
    return QString();
}

void VXBundle::setMainBundlePath(const QString &path)
{
    g_mainBundlePath = path;
}

const VXBundle &VXBundle::mainBundle()
{
    static QString loadedFor;
    static VXBundle bundle;
    QString path = g_mainBundlePath;
    if (path.isEmpty()) {
        const QString exe = QCoreApplication::applicationFilePath();
        path = enclosingBundlePath(QFileInfo(exe).path());
        if (path.isEmpty())
            path = QFileInfo(exe).path();
    }
    if (loadedFor != path || bundle.m_path.isEmpty()) {
        loadedFor = path;
        if (auto b = open(path))
            bundle = *b;
        else
            bundle.m_path = path;
    }
    return bundle;
}

void VXBundle::load()
{
    QString plist;
    if (QFileInfo::exists(m_path + QLatin1String("/Contents/Info.plist"))) {
        m_layout = Layout::Contents;
        plist = m_path + QLatin1String("/Contents/Info.plist");
    } else if (QFileInfo::exists(m_path + QLatin1String("/Resources/Info-gnustep.plist"))) {
        m_layout = Layout::GNUstep;
        plist = m_path + QLatin1String("/Resources/Info-gnustep.plist");
    } else if (QFileInfo(m_path + QLatin1String("/Contents")).isDir()) {
        m_layout = Layout::Contents;
    } else if (QFileInfo(m_path + QLatin1String("/Resources")).isDir()) {
        m_layout = Layout::GNUstep;
    }
    if (plist.isEmpty())
        return;
    const VXPropertyList::Result result = VXPropertyList::fromFile(plist);
    if (!result.error.isEmpty()) {
        m_infoError = result.error;
        return;
    }
    if (result.value.typeId() != QMetaType::QVariantMap) {
        m_infoError = QStringLiteral("Info property list is not a dictionary");
        return;
    }
    m_info = result.value.toMap();
    static const std::pair<const char *, const char *> aliases[] = {
        { "CFBundleExecutable", "NSExecutable" },
        { "CFBundleIconFile", "NSIcon" },
        { "CFBundleName", "ApplicationName" },
        { "CFBundleShortVersionString", "ApplicationRelease" },
    };
    for (const auto &[cf, gnustep] : aliases) {
        const QString cfKey = QLatin1String(cf);
        const QString gsKey = QLatin1String(gnustep);
        if (!m_info.contains(cfKey) && m_info.contains(gsKey))
            m_info.insert(cfKey, m_info.value(gsKey));
    }
}

QString VXBundle::infoPlistPath() const
{
    switch (m_layout) {
    case Layout::Contents:
        return m_path + QLatin1String("/Contents/Info.plist");
    case Layout::GNUstep:
        return m_path + QLatin1String("/Resources/Info-gnustep.plist");
    case Layout::Folder:
        break;
    }
    return QString();
}

QString VXBundle::resourcePath() const
{
    switch (m_layout) {
    case Layout::Contents:
        return m_path + QLatin1String("/Contents/Resources");
    case Layout::GNUstep:
        return m_path + QLatin1String("/Resources");
    case Layout::Folder:
        break;
    }
    return m_path;
}

QString VXBundle::stringForInfoKey(const QString &key) const
{
    const QVariant v = m_info.value(key);
    return v.typeId() == QMetaType::QString ? v.toString() : QString();
}

QString VXBundle::executablePath() const
{
    QString name = stringForInfoKey(QStringLiteral("CFBundleExecutable"));
    if (name.contains(QLatin1Char('/')) || name == QLatin1String("..")
        || name == QLatin1String("."))
        name.clear(); // an executable name never leaves its folder
    if (name.isEmpty())
        name = QFileInfo(m_path).completeBaseName();
    QStringList candidates;
    if (m_layout == Layout::Contents) {
        candidates << m_path + QLatin1String("/Contents/Linux/") + name
                   << m_path + QLatin1String("/Contents/MacOS/") + name;
    } else {
        candidates << m_path + QLatin1Char('/') + name;
    }
    for (const QString &c : candidates) {
        const QFileInfo fi(c);
        if (!fi.isFile() || !fi.isExecutable())
            continue;
        if (c.contains(QLatin1String("/Contents/MacOS/")) && !isElf(c))
            continue;
        return c;
    }
    return QString();
}

namespace {
QStringList resourceFolders(const QString &base)
{
    return { base, base + QLatin1String("/en.lproj"), base + QLatin1String("/English.lproj"),
        base + QLatin1String("/Base.lproj") };
}
} // namespace

QStringList VXBundle::pathsForResourcesOfType(const QString &type) const
{
    QStringList paths;
    const QString suffix = QLatin1Char('.') + type;
    for (const QString &folder : resourceFolders(resourcePath())) {
        const QFileInfoList entries = QDir(folder).entryInfoList(
            QDir::Files | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot, QDir::Unsorted);
        for (const QFileInfo &entry : entries) {
            if (type.isEmpty() || entry.fileName().endsWith(suffix))
                paths.append(entry.filePath());
        }
    }
    return paths;
}

QString VXBundle::pathForResource(const QString &name, const QString &type) const
{
    if (name.isEmpty() || name.contains(QLatin1String("..")))
        return QString();
    const QString file = type.isEmpty() ? name : name + QLatin1Char('.') + type;
    const QString base = resourcePath();
    for (const QString &folder : resourceFolders(base)) {
        const QString candidate = folder + QLatin1Char('/') + file;
        if (QFileInfo::exists(candidate)) // a file, or a folder such as a bundle
            return candidate;
    }
    return QString();
}

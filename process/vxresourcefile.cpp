// SPDX-FileCopyrightText: 2026 Quillet developers
// SPDX-License-Identifier: MIT
#include "vxresourcefile.h"

#include "utilities/vxformat.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>

namespace {
constexpr qint64 kMaximumFork = 16 * 1024 * 1024;

quint32 be32(const QByteArray &b, qsizetype at)
{
    return (quint32(quint8(b[at])) << 24) | (quint32(quint8(b[at + 1])) << 16)
        | (quint32(quint8(b[at + 2])) << 8) | quint32(quint8(b[at + 3]));
}
quint16 be16(const QByteArray &b, qsizetype at)
{
    return quint16((quint8(b[at]) << 8) | quint8(b[at + 1]));
}
bool fits(const QByteArray &b, qint64 at, qint64 length)
{
    return at >= 0 && length >= 0 && at + length <= b.size();
}
} // namespace

std::optional<QByteArray> VXResourceFile::resource(const QByteArray &fork, quint32 type, qint16 id)
{
    if (fork.size() < 16)
        return std::nullopt;
    const qint64 dataOffset = be32(fork, 0);
    const qint64 mapOffset = be32(fork, 4);
    if (!fits(fork, mapOffset, 30))
        return std::nullopt;
    const qint64 typeList = mapOffset + be16(fork, mapOffset + 24);
    if (!fits(fork, typeList, 2))
        return std::nullopt;
    const int types = be16(fork, typeList) + 1;
    for (int t = 0; t < types && t < 0x10000; ++t) {
        const qint64 entry = typeList + 2 + qint64(t) * 8;
        if (!fits(fork, entry, 8))
            return std::nullopt;
        if (be32(fork, entry) != type)
            continue;
        const int count = be16(fork, entry + 4) + 1;
        const qint64 refList = typeList + be16(fork, entry + 6);
        for (int r = 0; r < count; ++r) {
            const qint64 ref = refList + qint64(r) * 12;
            if (!fits(fork, ref, 12))
                return std::nullopt;
            if (qint16(be16(fork, ref)) != id)
                continue;
            const qint64 at = dataOffset + (be32(fork, ref + 4) & 0x00ffffff);
            if (!fits(fork, at, 4))
                return std::nullopt;
            const qint64 length = be32(fork, at);
            if (!fits(fork, at + 4, length))
                return std::nullopt;
            return fork.mid(at + 4, length);
        }
    }
    return std::nullopt;
}

std::optional<QByteArray> VXResourceFile::forkFromFile(const QString &path)
{
    QFile f(path);
    if (!f.open(QIODevice::ReadOnly) || f.size() > kMaximumFork)
        return std::nullopt;
    const QByteArray data = f.readAll();
    if (data.size() >= 26 && be32(data, 0) == 0x00051607) { // AppleDouble
        const int entries = be16(data, 24);
        for (int i = 0; i < entries; ++i) {
            const qint64 e = 26 + qint64(i) * 12;
            if (!fits(data, e, 12))
                return std::nullopt;
            if (be32(data, e) != 2) // the resource fork
                continue;
            const qint64 offset = be32(data, e + 4), length = be32(data, e + 8);
            if (!fits(data, offset, length))
                return std::nullopt;
            return data.mid(offset, length);
        }
        return std::nullopt;
    }
    return data;
}

QString VXResourceFile::forkPathFor(const QString &path)
{
    const QFileInfo info(path);
    if (info.isDir()) {
        const QDir resources(path + QLatin1String("/Contents/Resources"));
        const QString own = info.completeBaseName() + QLatin1String(".rsrc");
        if (resources.exists(own))
            return resources.filePath(own);
        const QStringList forks
            = resources.entryList({ QStringLiteral("*.rsrc") }, QDir::Files, QDir::Name);
        if (!forks.isEmpty())
            return resources.filePath(forks.first());
    } else if (QFileInfo::exists(path + QLatin1String(".rsrc"))) {
        return path + QLatin1String(".rsrc");
    }
    const QString appleDouble = info.path() + QLatin1String("/._") + info.fileName();
    return QFileInfo::exists(appleDouble) ? appleDouble : QString();
}

QString VXResourceFile::versionText(const QByteArray &vers)
{
    if (vers.size() < 4)
        return QString();
    const quint8 majorBcd = quint8(vers[0]);
    const int major = (majorBcd >> 4) * 10 + (majorBcd & 15);
    const int minor = quint8(vers[1]) >> 4;
    const int bugfix = quint8(vers[1]) & 15;
    const quint8 stage = quint8(vers[2]);
    const int revision = quint8(vers[3]);
    QString text = bugfix ? vxFormat(QStringLiteral("%d.%d.%d"), major, minor, bugfix)
                          : vxFormat(QStringLiteral("%d.%d"), major, minor);
    if (revision != 0) {
        const QString letter = stage == 0x20 ? QStringLiteral("d")
            : stage == 0x40                  ? QStringLiteral("a")
            : stage == 0x60                  ? QStringLiteral("b")
                                             : QString(QLatin1String(""));
        text = vxFormat(QStringLiteral("%@%@%d"), text, letter, revision);
    }
    return text;
}

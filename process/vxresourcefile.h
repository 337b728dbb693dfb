// SPDX-FileCopyrightText: 2026 Quillet developers
// SPDX-License-Identifier: MIT
#pragma once

#include <QByteArray>
#include <QString>
#include <optional>

// Classic resource files: a resource fork stored as a plain file (".rsrc")
// or inside an AppleDouble file ("._Name"), as archives and file systems
// without forks keep them.
namespace VXResourceFile {

// The data of one resource, or nullopt when the fork is missing, damaged
// or has no such resource.
std::optional<QByteArray> resource(const QByteArray &fork, quint32 type, qint16 id);

// The resource fork held by an AppleDouble file, or the file itself when it
// is a plain resource fork.
std::optional<QByteArray> forkFromFile(const QString &path);

// Where the resource fork of a bundle or file is kept: the bundle's
// Contents/Resources/*.rsrc, an AppleDouble "._Name" beside it, or
// "Name.rsrc" beside a plain file.
QString forkPathFor(const QString &path);

// The text of a 'vers' resource: "1.2.3" or "1.2", with the stage letter
// and revision for development, alpha and beta builds ("1.2.3b4").
QString versionText(const QByteArray &vers);

} // namespace VXResourceFile

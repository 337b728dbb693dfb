// SPDX-FileCopyrightText: 2026 Quillet developers
// SPDX-License-Identifier: MIT
#pragma once

#include <QIcon>
#include <QImage>
#include <QString>

// What the desktop does with an installed bundle: make it known, show its
// icon, open it.
namespace Workspace {

// Makes the bundle known to the desktop: a desktop entry (Desktop Entry
// Specification) named after its CFBundleIdentifier in the user's
// applications folder, so an update replaces its entry, with the icon
// converted into the user's hicolor icon theme. Runs update-desktop-database
// where it exists. Answers 0, or -1 when the bundle cannot be read or the
// entry cannot be written.
int registerBundle(const QString &bundlePath);

// Where registerBundle writes the entry of this bundle.
QString desktopEntryPath(const QString &bundlePath);

// What the helper "train" needs to register the bundle for all users once
// it has put it in place (DesktopEntry::Request, read from this copy of the
// bundle); empty when the bundle has no executable.
QByteArray helperRequest(const QString &bundlePath);

// Where the helper writes the system-wide entry of this bundle.
QString systemDesktopEntryPath(const QString &bundlePath);

// After the helper installed the bundle: 0 when its system-wide entry names
// this bundle, so no entry of the user's own is needed; a per-user entry for
// the same bundle (as earlier versions wrote) is then removed, because it
// would hide the system one in this user's menus. -1 when there is no such
// system entry: the caller registers the bundle for the user instead.
int useSystemRegistration(const QString &bundlePath);

// The bundle's icon (CFBundleIconFile: .icns, .png, .svg), else the theme's
// icon for the file's type; a null icon when there is none.
QIcon iconForFile(const QString &path);

// Reads an image file for showing at about edge pixels. From an Apple icon
// file (.icns) the PNG frame that fits is decoded directly; anything else
// goes through Qt's image plugins. A null image when it cannot be read.
QImage readImage(const QString &path, int edge);

// Opens a file: a bundle by starting its executable detached, anything else
// with xdg-open. Answers whether it started.
bool openFile(const QString &path);

// Tells the desktop that something changed at the path: refreshes the
// desktop database when the path holds desktop entries.
void noteFileSystemChanged(const QString &path);

} // namespace Workspace

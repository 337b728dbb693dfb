// SPDX-FileCopyrightText: 2026 Quillet developers
// SPDX-License-Identifier: MIT
#pragma once

#include <QDateTime>
#include <QString>
#include <functional>
#include <optional>

// What a platform provides to VXUtilities.
namespace VXUtilitiesPlatform {

// The system version selectors: 'sys1' (major), 'sys2' (minor), 'sys3'
// (bugfix) and 'sysv' (four BCD digits). nullopt when the system cannot
// answer.
std::optional<quint32> systemVersionSelector(quint32 selector);

// The version number of the user-interface framework that the release
// predicates compare against.
double appKitVersionNumber();

QString machineModel();
// The machine field of uname; nullopt when uname fails.
std::optional<QString> machine();
bool translated();
// The platform serial number; a null QString when it cannot be read.
QString serialNumber();

// The system's release in the numbering that safeHTTPS:'s threshold uses
// (major * 10000 + minor * 100 + bugfix of the other platform's releases).
quint32 releaseForThresholds();

// Launch context
// How often the general clipboard changed owner since the count started
// (the first call); stays 0 where changes cannot be seen.
qint64 clipboardChangeCount();
// The signature of the process that launched this one: "lgnw" when it was
// started from the session's autostart entries; a null QString when unknown.
QString launcherSignature();
// The volume (removable-media mount point) that holds the path, such as
// "/media/user/Disk"; empty when the path is not on one.
QString mediaVolumeOf(const QString &path);
// Whether a file exists, read under the system root.
bool fileExists(const QString &path);
// Hands the path to the bundle launcher or the desktop's opener; no wait.
void openFile(const QString &path);

// The user's environment
struct FileSystemType
{
    int result = -1; // of the file-system query, as it logs it
    QString name; // "ext4", "tmpfs"; empty when the query failed
};
FileSystemType fileSystemType(const QString &path);
// The text a secure-input report gives (lines with
// "kCGSSessionSecureInputPID"=pid); a null QString where there is none.
QString secureInputReport();
// Seconds since the last user input; nullopt when no monitor answers.
std::optional<double> idleSeconds();
std::optional<double> idleSecondsFromX(); // the X11 part of idleSeconds()
// The desktop's own Do Not Disturb and reduced-transparency settings;
// nullopt where the desktop has none.
std::optional<bool> desktopDoNotDisturb();
std::optional<bool> desktopReducedTransparency();
// Calls back with true when the menu bar hides (the front window goes full
// screen) and false when it shows again, on the installing thread's event
// loop; false when no handler can be installed.
bool installMenuBarVisibilityHandler(const std::function<void(bool hidden)> &handler);
bool traced();
// A boolean of the desktop's settings store (GSettings); nullopt when the
// schema or key is not installed.
std::optional<bool> desktopSettingsBoolean(const char *schema, const char *key);

// Injection for tests: where the system's files are read from ("" = "/"),
// a stand-in for the kernel's release string, and for the clock.
void setSystemRoot(const QString &root);
void setKernelRelease(const std::optional<QString> &release);
void setReleaseForThresholds(const std::optional<quint32> &release);
void setClock(const std::function<QDateTime()> &now);
QDateTime now();
// The system root set for tests, "" for "/".
QString systemRoot();

} // namespace VXUtilitiesPlatform

// SPDX-FileCopyrightText: 2026 Quillet developers
// SPDX-License-Identifier: MIT
#pragma once

// The desktop entry of an installed bundle (Desktop Entry Specification),
// written by the installer for a user install and by the helper "train" for
// a system install. Plain C++ without Qt: the helper runs as root and links
// this file and nothing else of ours.
#include <optional>
#include <string>
#include <string_view>

namespace DesktopEntry {

// Where the helper registers a system install: applications/ and
// icons/hicolor/... below it. The user's equivalent is $XDG_DATA_HOME.
constexpr std::string_view kSystemDataFolder = "/usr/local/share";
// The icon's edge in pixels, and its folder below the data folder.
constexpr int kIconSize = 256;
constexpr std::string_view kIconFolder = "icons/hicolor/256x256/apps";

// What an entry says about an installed bundle; paths are absolute.
struct Fields
{
    std::string name;
    std::string executable;
    std::string bundlePath;
    std::string icon; // a PNG; empty: no icon
    std::string version; // empty: not known
};

// The desktop file id of a bundle (without ".desktop"): its
// CFBundleIdentifier, else "quillet." and the bundle's name, with every
// character other than ASCII letters, digits, '.', '-' and '_' replaced by
// '_'. A leading '.' or '-' becomes '_' as well.
std::string fileId(std::string_view identifier, std::string_view bundleBaseName);

// Whether the id can name a file in a shared folder as it is: what fileId
// answers, not empty, at most 200 bytes.
bool isSafeFileId(std::string_view id);

// The file id of a system install's entry and icon: the bundle's id in a
// namespace of ours, so that it can never take the name of a
// distribution's entry ("vim" stays "quillet-app.vim").
constexpr std::string_view kSystemIdPrefix = "quillet-app.";
std::string systemFileId(std::string_view id);

// The entry's text, UTF-8.
std::string text(const Fields &fields);

// The unescaped value of a key in the entry's [Desktop Entry] group;
// nullopt when the key is not there.
std::optional<std::string> value(std::string_view entryText, std::string_view key);

// What the installer tells the helper about a bundle it is about to put in
// place, on the helper's standard input: "Key=Value" lines (Identifier: the
// file id; Name; Version; Executable: its path inside the bundle), an empty
// line, then the icon as PNG bytes (nothing when there is no icon). Values
// are escaped as in a desktop entry.
struct Request
{
    std::string identifier;
    std::string name;
    std::string version;
    std::string executable;
    std::string iconPng;
};
std::string requestText(const Request &request);

// Reads a request; nullopt with the reason in *why when it is malformed.
// It checks the form only; whoever acts on it checks the values.
std::optional<Request> parseRequest(std::string_view text, std::string *why);

} // namespace DesktopEntry

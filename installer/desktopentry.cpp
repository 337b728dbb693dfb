// SPDX-FileCopyrightText: 2026 Quillet developers
// SPDX-License-Identifier: MIT
#include "desktopentry.h"

namespace {
bool isIdCharacter(char c)
{
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '.'
        || c == '-' || c == '_';
}

// Desktop Entry Specification, "Possible value types": \s \n \t \r \\ in
// string values. A leading space is written as \s so that it survives.
std::string escaped(std::string_view value)
{
    std::string out;
    for (size_t i = 0; i < value.size(); ++i) {
        const char c = value[i];
        switch (c) {
        case '\\':
            out += "\\\\";
            break;
        case '\n':
            out += "\\n";
            break;
        case '\t':
            out += "\\t";
            break;
        case '\r':
            out += "\\r";
            break;
        case ' ':
            out += i == 0 ? "\\s" : " ";
            break;
        default:
            out += c;
        }
    }
    return out;
}

std::string unescaped(std::string_view value)
{
    std::string out;
    for (size_t i = 0; i < value.size(); ++i) {
        if (value[i] != '\\' || i + 1 == value.size()) {
            out += value[i];
            continue;
        }
        switch (value[++i]) {
        case 's':
            out += ' ';
            break;
        case 'n':
            out += '\n';
            break;
        case 't':
            out += '\t';
            break;
        case 'r':
            out += '\r';
            break;
        default:
            out += value[i];
        }
    }
    return out;
}

// "The Exec key": the program as one quoted argument, with '"', '`', '$'
// and '\' escaped inside the quotes and '%' doubled (a field code
// otherwise). The string escapes above apply on top, so a backslash in the
// path becomes four in the file: intended.
std::string execValue(std::string_view program)
{
    std::string quoted = "\"";
    for (const char c : program) {
        if (c == '"' || c == '`' || c == '$' || c == '\\')
            quoted += '\\';
        else if (c == '%')
            quoted += '%';
        quoted += c;
    }
    return escaped(quoted + '"');
}
} // namespace

std::string DesktopEntry::fileId(std::string_view identifier, std::string_view bundleBaseName)
{
    std::string id
        = identifier.empty() ? "quillet." + std::string(bundleBaseName) : std::string(identifier);
    for (char &c : id)
        if (!isIdCharacter(c))
            c = '_';
    if (!id.empty() && (id[0] == '.' || id[0] == '-'))
        id[0] = '_';
    if (id.size() > 200)
        id.resize(200);
    return id;
}

std::string DesktopEntry::systemFileId(std::string_view id)
{
    return std::string(kSystemIdPrefix) + std::string(id);
}

bool DesktopEntry::isSafeFileId(std::string_view id)
{
    if (id.empty() || id.size() > 200 || id[0] == '.' || id[0] == '-')
        return false;
    for (const char c : id)
        if (!isIdCharacter(c))
            return false;
    return true;
}

std::string DesktopEntry::text(const Fields &f)
{
    std::string entry = "[Desktop Entry]\nType=Application\nVersion=1.0\n";
    entry += "Name=" + escaped(f.name) + '\n';
    entry += "Exec=" + execValue(f.executable) + '\n';
    entry += "Path=" + escaped(f.bundlePath) + '\n';
    if (!f.icon.empty())
        entry += "Icon=" + escaped(f.icon) + '\n';
    if (!f.version.empty())
        entry += "X-Quillet-Version=" + escaped(f.version) + '\n';
    entry += "X-Quillet-Bundle=" + escaped(f.bundlePath) + '\n';
    entry += "Terminal=false\n";
    return entry;
}

std::optional<std::string> DesktopEntry::value(std::string_view entryText, std::string_view key)
{
    bool inGroup = false;
    size_t at = 0;
    while (at < entryText.size()) {
        size_t end = entryText.find('\n', at);
        if (end == std::string_view::npos)
            end = entryText.size();
        const std::string_view line = entryText.substr(at, end - at);
        at = end + 1;
        if (!line.empty() && line[0] == '[')
            inGroup = line == "[Desktop Entry]";
        else if (inGroup && line.size() > key.size() && line.substr(0, key.size()) == key
            && line[key.size()] == '=')
            return unescaped(line.substr(key.size() + 1));
    }
    return std::nullopt;
}

std::string DesktopEntry::requestText(const Request &r)
{
    return "Identifier=" + escaped(r.identifier) + "\nName=" + escaped(r.name) + "\nVersion="
        + escaped(r.version) + "\nExecutable=" + escaped(r.executable) + "\n\n" + r.iconPng;
}

std::optional<DesktopEntry::Request> DesktopEntry::parseRequest(
    std::string_view text, std::string *why)
{
    Request r;
    bool seen[4] = {};
    size_t at = 0;
    for (;;) {
        const size_t end = text.find('\n', at);
        if (end == std::string_view::npos) {
            *why = "the entry description ends before its empty line";
            return std::nullopt;
        }
        const std::string_view line = text.substr(at, end - at);
        at = end + 1;
        if (line.empty())
            break;
        const size_t equals = line.find('=');
        if (equals == std::string_view::npos) {
            *why = "a line without '=' in the entry description";
            return std::nullopt;
        }
        const std::string_view key = line.substr(0, equals);
        const std::string value = unescaped(line.substr(equals + 1));
        static constexpr std::string_view keys[]
            = { "Identifier", "Name", "Version", "Executable" };
        std::string *const targets[] = { &r.identifier, &r.name, &r.version, &r.executable };
        bool known = false;
        for (int i = 0; i < 4; ++i) {
            if (key != keys[i])
                continue;
            if (seen[i]) {
                *why = "the key " + std::string(key) + " twice in the entry description";
                return std::nullopt;
            }
            seen[i] = known = true;
            *targets[i] = value;
        }
        if (!known) {
            *why = "an unknown key in the entry description";
            return std::nullopt;
        }
    }
    if (!seen[0] || !seen[1] || !seen[3]) {
        *why = "the entry description lacks Identifier, Name or Executable";
        return std::nullopt;
    }
    r.iconPng = std::string(text.substr(at));
    return r;
}

// SPDX-FileCopyrightText: 2026 Quillet developers
// SPDX-License-Identifier: MIT
#pragma once

#include <QString>
#include <functional>

// Inter-application events: four-character event class and ID, with an
// optional text as the direct parameter. Every process that uses the library
// can receive them once it has installed a handler.
namespace VXAppleEvents {

using Handler = std::function<void(const QString &directParameter)>;

// Installs (or replaces) the handler for one event class and ID; handlers
// run on the thread that owns the application object (the main thread).
// Answers false when the process cannot receive events (no session bus).
bool installHandler(quint32 eventClass, quint32 eventID, Handler handler);

// The name under which a process receives events on the session bus.
QString serviceNameForPid(qint64 pid);

} // namespace VXAppleEvents

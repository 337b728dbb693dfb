// SPDX-FileCopyrightText: 2026 Quillet developers
// SPDX-License-Identifier: MIT
#pragma once

#include <QObject>
#include <functional>

namespace VXAppearance {

// Calls a function whenever a signal given by its SIGNAL() signature is
// emitted: the desktop's notifier is reached by signature only.
class SignalRelay : public QObject
{
    Q_OBJECT
public:
    SignalRelay(std::function<void()> function, QObject *parent)
        : QObject(parent)
        , m_function(std::move(function))
    { }

public Q_SLOTS:
    void relay() { m_function(); }

private:
    std::function<void()> m_function;
};

} // namespace VXAppearance

// SPDX-FileCopyrightText: 2026 Quillet developers
// SPDX-License-Identifier: MIT
#pragma once

#include <QObject>
#include <QVariant>

// Notifications by name, delivered through the event loop of the thread
// that owns the center (the main thread): posting enqueues, so observers
// never run inside the code that posted, and may freely look processes up.
class VXNotificationCenter : public QObject
{
    Q_OBJECT
public:
    static VXNotificationCenter *defaultCenter();

    // Enqueues the notification; it is delivered as soon as the event loop
    // runs, never synchronously.
    void enqueue(const QString &name, const QVariant &object, const QVariantMap &userInfo);

Q_SIGNALS:
    void notified(const QString &name, const QVariant &object, const QVariantMap &userInfo);

private:
    using QObject::QObject;
};

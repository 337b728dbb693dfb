// SPDX-FileCopyrightText: 2026 Quillet developers
// SPDX-License-Identifier: MIT
#include "vxnotificationcenter.h"

#include <QCoreApplication>

VXNotificationCenter *VXNotificationCenter::defaultCenter()
{
    static VXNotificationCenter *center = [] {
        auto *c = new VXNotificationCenter;
        if (QCoreApplication::instance())
            c->moveToThread(QCoreApplication::instance()->thread());
        return c;
    }();
    return center;
}

void VXNotificationCenter::enqueue(
    const QString &name, const QVariant &object, const QVariantMap &userInfo)
{
    QMetaObject::invokeMethod(
        this, [this, name, object, userInfo] { Q_EMIT notified(name, object, userInfo); },
        Qt::QueuedConnection);
}

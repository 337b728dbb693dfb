// SPDX-FileCopyrightText: 2026 Quillet developers
// SPDX-License-Identifier: MIT
//
// Another application's interface events through AT-SPI 2 (libatspi). The
// application element is the accessible, among the desktop's children,
// whose process id is the record's. Events arrive through GLib's main
// context, which Qt's event dispatcher runs on the main thread. The common
// accessibility notification names are mapped to AT-SPI event types; any
// other name is taken as an AT-SPI event type itself ("object:text-changed").
// Without an accessibility bus, or for an application that does not publish
// its interface, the calls fail and are logged.
#include "utilities/vxlazylibrary_p.h"
#include "utilities/vxlog.h"
#include "vxappleevents_p.h"
#include "vxnotificationcenter.h"
#include "vxprocess.h"

#include <QHash>
#include <atspi/atspi.h>

namespace {
// libatspi (and GObject with it) is loaded when an observer is first made,
// not when the program starts.
#define ATSPI_FUNCTIONS(F)                                                                         \
    F(atspi_accessible_get_child_at_index)                                                         \
    F(atspi_accessible_get_child_count)                                                            \
    F(atspi_accessible_get_name)                                                                   \
    F(atspi_accessible_get_process_id)                                                             \
    F(atspi_accessible_get_role_name)                                                              \
    F(atspi_event_listener_deregister)                                                             \
    F(atspi_event_listener_new)                                                                    \
    F(atspi_event_listener_register)                                                               \
    F(atspi_get_desktop)                                                                           \
    F(atspi_init)                                                                                  \
    F(g_error_free)                                                                                \
    F(g_free)                                                                                      \
    F(g_object_unref)
VX_LAZY_LIBRARY(AtspiApi, atspi, "libatspi.so.0", ATSPI_FUNCTIONS)
} // namespace

#define atspi_accessible_get_child_at_index (atspi()->p_atspi_accessible_get_child_at_index)
#define atspi_accessible_get_child_count (atspi()->p_atspi_accessible_get_child_count)
#define atspi_accessible_get_name (atspi()->p_atspi_accessible_get_name)
#define atspi_accessible_get_process_id (atspi()->p_atspi_accessible_get_process_id)
#define atspi_accessible_get_role_name (atspi()->p_atspi_accessible_get_role_name)
#define atspi_event_listener_deregister (atspi()->p_atspi_event_listener_deregister)
#define atspi_event_listener_new (atspi()->p_atspi_event_listener_new)
#define atspi_event_listener_register (atspi()->p_atspi_event_listener_register)
#define atspi_get_desktop (atspi()->p_atspi_get_desktop)
#define atspi_init (atspi()->p_atspi_init)
#define g_error_free (atspi()->p_g_error_free)
#define g_free (atspi()->p_g_free)
#define g_object_unref (atspi()->p_g_object_unref)

struct VXProcess::AXState
{
    AtspiAccessible *application = nullptr;
    AtspiEventListener *listener = nullptr;
    std::weak_ptr<VXProcess> owner;
    qint32 pid = 0;
    QHash<QString, QString> nameForType; // AT-SPI event type -> our name
};

namespace {
QString eventTypeFor(const QString &name)
{
    static const QHash<QString, QString> table {
        { QStringLiteral("AXFocusedUIElementChanged"),
            QStringLiteral("object:state-changed:focused") },
        { QStringLiteral("AXFocusedWindowChanged"), QStringLiteral("window:activate") },
        { QStringLiteral("AXMainWindowChanged"), QStringLiteral("window:activate") },
        { QStringLiteral("AXApplicationActivated"), QStringLiteral("window:activate") },
        { QStringLiteral("AXApplicationDeactivated"), QStringLiteral("window:deactivate") },
        { QStringLiteral("AXWindowCreated"), QStringLiteral("window:create") },
        { QStringLiteral("AXUIElementDestroyed"), QStringLiteral("window:destroy") },
        { QStringLiteral("AXWindowMiniaturized"), QStringLiteral("window:minimize") },
        { QStringLiteral("AXWindowDeminiaturized"), QStringLiteral("window:restore") },
        { QStringLiteral("AXWindowMoved"), QStringLiteral("object:bounds-changed") },
        { QStringLiteral("AXWindowResized"), QStringLiteral("object:bounds-changed") },
        { QStringLiteral("AXTitleChanged"),
            QStringLiteral("object:property-change:accessible-name") },
        { QStringLiteral("AXValueChanged"),
            QStringLiteral("object:property-change:accessible-value") },
        { QStringLiteral("AXSelectedTextChanged"),
            QStringLiteral("object:text-selection-changed") },
        { QStringLiteral("AXSelectedChildrenChanged"), QStringLiteral("object:selection-changed") },
    };
    return table.value(name, name);
}

void onEvent(AtspiEvent *event, void *data)
{
    auto *state = static_cast<VXProcess::AXState *>(data);
    VXProcessPtr record = state->owner.lock();
    if (!record || !event || !event->source)
        return;
    GError *error = nullptr;
    const guint pid = atspi_accessible_get_process_id(event->source, &error);
    if (error) {
        g_error_free(error);
        return;
    }
    if (qint32(pid) != state->pid)
        return; // another application's event
    QString element = QStringLiteral("");
    gchar *role = atspi_accessible_get_role_name(event->source, nullptr);
    gchar *name = atspi_accessible_get_name(event->source, nullptr);
    if (role || name)
        element = QString::fromUtf8(role ? role : "") + QLatin1Char(' ')
            + QString::fromUtf8(name ? name : "");
    g_free(role);
    g_free(name);
    const QString type = QString::fromUtf8(event->type);
    QString ourName = state->nameForType.value(type);
    for (auto it = state->nameForType.cbegin();
         ourName.isEmpty() && it != state->nameForType.cend(); ++it)
        if (type.startsWith(it.key()))
            ourName = it.value();
    VXNotificationCenter::defaultCenter()->enqueue(QStringLiteral("VXProcessUINotification"),
        QVariant::fromValue(record),
        { { QStringLiteral("element"), element.trimmed() },
            { QStringLiteral("event"), ourName.isEmpty() ? type : ourName } });
}
} // namespace

void VXProcess::AXStateDeleter::operator()(AXState *state) const
{
    delete state;
}

void VXProcess::installAXObserver()
{
    if (m_ax && m_ax->application)
        return;
    if (!m_ax)
        m_ax.reset(new AXState);
    m_ax->owner = weak_from_this();
    m_ax->pid = unixPID();
    // libatspi aborts the program when it finds no accessibility bus; its
    // address comes from the environment or from the session bus.
    const bool busReachable = (!qEnvironmentVariableIsEmpty("AT_SPI_BUS_ADDRESS")
                                  || VXAppleEventsPrivate::sessionBusAvailable())
        && atspi();
    if (busReachable)
        atspi_init();
    AtspiAccessible *desktop = busReachable ? atspi_get_desktop(0) : nullptr;
    if (desktop && m_ax->pid != 0) {
        GError *error = nullptr;
        const gint count = atspi_accessible_get_child_count(desktop, &error);
        if (error) {
            g_error_free(error);
            error = nullptr;
        }
        for (gint i = 0; i < count && !m_ax->application; ++i) {
            AtspiAccessible *child = atspi_accessible_get_child_at_index(desktop, i, &error);
            if (error) {
                {
                    g_error_free(error);
                    error = nullptr;
                }
                continue;
            }
            if (child && qint32(atspi_accessible_get_process_id(child, nullptr)) == m_ax->pid)
                m_ax->application = child;
            else if (child)
                g_object_unref(child);
        }
    }
    if (desktop)
        g_object_unref(desktop);
    if (!m_ax->application) {
        vxLog(QStringLiteral("AX Notifications: Could not create application object for %@"),
            description());
        return;
    }
    m_ax->listener = atspi_event_listener_new(onEvent, m_ax.get(), nullptr);
    if (!m_ax->listener)
        vxLog(QStringLiteral("AX Notifications: Could not create observer for %@"), description());
}

void VXProcess::addAXNotification(const QString &name)
{
    installAXObserver();
    const QString type = eventTypeFor(name);
    GError *error = nullptr;
    const bool ok = m_ax && m_ax->listener
        && atspi_event_listener_register(m_ax->listener, type.toUtf8().constData(), &error);
    if (error)
        g_error_free(error);
    if (!ok) {
        vxLog(QStringLiteral("AX Notifications: Could not add notification %@ for %@"), name,
            description());
        return;
    }
    m_ax->nameForType.insert(type, name);
}

void VXProcess::removeAXNotification(const QString &name)
{
    if (!m_ax || !m_ax->listener)
        return;
    const QString type = eventTypeFor(name);
    atspi_event_listener_deregister(m_ax->listener, type.toUtf8().constData(), nullptr);
    m_ax->nameForType.remove(type);
}

void VXProcess::unregisterAXNotifications()
{
    if (!m_ax)
        return;
    if (m_ax->listener) {
        for (auto it = m_ax->nameForType.cbegin(); it != m_ax->nameForType.cend(); ++it)
            atspi_event_listener_deregister(m_ax->listener, it.key().toUtf8().constData(), nullptr);
        g_object_unref(m_ax->listener);
    }
    if (m_ax->application)
        g_object_unref(m_ax->application);
    m_ax.reset();
}

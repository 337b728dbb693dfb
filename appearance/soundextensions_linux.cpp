// SPDX-FileCopyrightText: 2026 Quillet developers
// SPDX-License-Identifier: MIT
//
// The sound server through libpulse, which PulseAudio and PipeWire (through
// pipewire-pulse) both answer. Its sink names are the identifiers Qt
// Multimedia gives its audio outputs, so a device named here can be handed
// to a QSoundEffect as it is.
#include "soundextensions_p.h"

#include <QDir>
#include <QFile>
#include <QMutex>
#include <QStandardPaths>
#include <chrono>
#include <pulse/context.h>
#include <pulse/ext-stream-restore.h>
#include <pulse/introspect.h>
#include <pulse/mainloop.h>
#include <pulse/proplist.h>
#include <pulse/volume.h>

namespace {

// Every exchange with the server ends within this time: a server that hangs
// must not hang a sound.
constexpr std::chrono::milliseconds kServerTimeLimit { 1500 };

QMutex g_overrideLock;
std::optional<QString> g_alertOverride;

// One connection for one question: connect, ask, wait for the answer, close.
class PulseSession
{
public:
    PulseSession()
        : m_deadline(std::chrono::steady_clock::now() + kServerTimeLimit)
    {
        m_loop = pa_mainloop_new();
        if (!m_loop)
            return;
        m_context = pa_context_new(pa_mainloop_get_api(m_loop), "Quillet");
        if (!m_context)
            return;
        if (pa_context_connect(m_context, nullptr, PA_CONTEXT_NOAUTOSPAWN, nullptr) < 0)
            return;
        m_ready = runUntil([this] {
            const pa_context_state_t state = pa_context_get_state(m_context);
            return state == PA_CONTEXT_READY || !PA_CONTEXT_IS_GOOD(state);
        }) && pa_context_get_state(m_context) == PA_CONTEXT_READY;
    }

    ~PulseSession()
    {
        if (m_context) {
            pa_context_disconnect(m_context);
            pa_context_unref(m_context);
        }
        if (m_loop)
            pa_mainloop_free(m_loop);
    }

    PulseSession(const PulseSession &) = delete;
    PulseSession &operator=(const PulseSession &) = delete;

    bool ready() const { return m_ready; }
    pa_context *context() const { return m_context; }

    // Waits for the operation to finish; false when it failed or took too
    // long (it is cancelled then, so no callback comes later).
    bool wait(pa_operation *operation)
    {
        if (!operation)
            return false;
        const bool done = runUntil(
            [operation] { return pa_operation_get_state(operation) != PA_OPERATION_RUNNING; });
        if (!done)
            pa_operation_cancel(operation);
        const bool ok = done && pa_operation_get_state(operation) == PA_OPERATION_DONE;
        pa_operation_unref(operation);
        return ok;
    }

private:
    template <typename Done> bool runUntil(Done done)
    {
        while (!done()) {
            const auto left = std::chrono::duration_cast<std::chrono::microseconds>(
                m_deadline - std::chrono::steady_clock::now());
            if (left.count() <= 0)
                return false;
            if (pa_mainloop_prepare(m_loop, int(left.count())) < 0 || pa_mainloop_poll(m_loop) < 0
                || pa_mainloop_dispatch(m_loop) < 0)
                return false;
        }
        return true;
    }

    std::chrono::steady_clock::time_point m_deadline;
    pa_mainloop *m_loop = nullptr;
    pa_context *m_context = nullptr;
    bool m_ready = false;
};

QByteArray property(const pa_proplist *properties, const char *key)
{
    const char *value = properties ? pa_proplist_gets(properties, key) : nullptr;
    return value ? QByteArray(value) : QByteArray();
}

QString firstLine(const QString &path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return QString();
    return QString::fromUtf8(file.readLine(4096)).trimmed();
}

} // namespace

QString SoundPlatform::alertOutputDevice(Scope)
{
    {
        QMutexLocker lock(&g_overrideLock);
        if (g_alertOverride)
            return *g_alertOverride;
    }
    // The server has one default output; alert and interface sounds go
    // there in either scope.
    PulseSession session;
    if (!session.ready())
        return QString();
    QString name;
    const bool ok = session.wait(pa_context_get_server_info(
        session.context(),
        [](pa_context *, const pa_server_info *info, void *target) {
            if (info && info->default_sink_name)
                *static_cast<QString *>(target) = QString::fromUtf8(info->default_sink_name);
        },
        &name));
    return ok ? name : QString();
}

QList<SoundPlatform::AudioDevice> SoundPlatform::audioDevices()
{
    QList<AudioDevice> devices;
    PulseSession session;
    if (!session.ready())
        return devices;
    session.wait(pa_context_get_sink_info_list(
        session.context(),
        [](pa_context *, const pa_sink_info *info, int eol, void *target) {
            if (eol || !info)
                return;
            static_cast<QList<AudioDevice> *>(target)->append({ QByteArray(info->description),
                property(info->proplist, PA_PROP_DEVICE_VENDOR_NAME),
                QString::fromUtf8(info->name) });
        },
        &devices));
    session.wait(pa_context_get_source_info_list(
        session.context(),
        [](pa_context *, const pa_source_info *info, int eol, void *target) {
            // A sink's monitor is a view of that sink, not a device.
            if (eol || !info || info->monitor_of_sink != PA_INVALID_INDEX)
                return;
            static_cast<QList<AudioDevice> *>(target)->append({ QByteArray(info->description),
                property(info->proplist, PA_PROP_DEVICE_VENDOR_NAME),
                QString::fromUtf8(info->name) });
        },
        &devices));
    return devices;
}

std::optional<double> SoundPlatform::eventSoundVolume()
{
    // The desktops' "system sounds" volume: the stored volume of streams in
    // the event role. Stored volumes are on the server's cubic scale; Qt's
    // are linear factors.
    PulseSession session;
    if (!session.ready())
        return std::nullopt;
    std::optional<double> volume;
    session.wait(pa_ext_stream_restore_read(
        session.context(),
        [](pa_context *, const pa_ext_stream_restore_info *info, int eol, void *target) {
            if (eol || !info || qstrcmp(info->name, "sink-input-by-media-role:event") != 0)
                return;
            auto *result = static_cast<std::optional<double> *>(target);
            if (info->mute)
                *result = 0.0;
            else if (pa_cvolume_valid(&info->volume))
                *result = pa_sw_volume_to_linear(pa_cvolume_max(&info->volume));
        },
        &volume));
    return volume;
}

QString SoundPlatform::recordedPreferredOutput()
{
    // WirePlumber keeps the configured default in its state folder...
    QString state = qEnvironmentVariable("XDG_STATE_HOME");
    if (state.isEmpty())
        state = QDir::homePath() + QStringLiteral("/.local/state");
    QFile nodes(state + QStringLiteral("/wireplumber/default-nodes"));
    if (nodes.open(QIODevice::ReadOnly)) {
        const QByteArray key = "default.configured.audio.sink=";
        while (!nodes.atEnd()) {
            const QByteArray line = nodes.readLine(4096).trimmed();
            if (line.startsWith(key) && line.size() > key.size())
                return QString::fromUtf8(line.mid(key.size()));
        }
    }
    // ...PulseAudio in its configuration folder, per machine.
    QString machine = firstLine(QStringLiteral("/etc/machine-id"));
    if (machine.isEmpty())
        machine = firstLine(QStringLiteral("/var/lib/dbus/machine-id"));
    if (machine.isEmpty())
        return QString();
    const QString config = QStandardPaths::writableLocation(QStandardPaths::GenericConfigLocation);
    const QString sink
        = firstLine(config + QStringLiteral("/pulse/") + machine + QStringLiteral("-default-sink"));
    return sink.isEmpty() ? QString() : sink;
}

void SoundPlatform::setAlertOutputDeviceOverride(const std::optional<QString> &identifier)
{
    QMutexLocker lock(&g_overrideLock);
    g_alertOverride = identifier;
}

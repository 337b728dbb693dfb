// SPDX-FileCopyrightText: 2026 Quillet developers
// SPDX-License-Identifier: MIT
//
// Stands in for the desktop portal's Settings interface on the test's
// private session bus: owns org.freedesktop.portal.Desktop and serves
// /org/freedesktop/portal/desktop.
//   portalstandin [--read-only | --silent]
// --read-only: an older portal without ReadOne, whose Read wraps the value
// in a second variant; --silent: takes every call and never answers.
// Standard input sets values and announces them with SettingChanged, one a
// line: "NAMESPACE KEY u 1", "NAMESPACE KEY rgb 0.1 0.2 0.3", "NAMESPACE KEY
// s text". Writes "ready" once it owns the name and "set" after each line.
#include <QCoreApplication>
#include <QDBusArgument>
#include <QDBusConnection>
#include <QDBusContext>
#include <QDBusVariant>
#include <QHash>
#include <QSocketNotifier>
#include <cstdio>
#include <unistd.h>

class Settings : public QObject, protected QDBusContext
{
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "org.freedesktop.portal.Settings")
public:
    bool readOnly = false;
    bool silent = false;
    QHash<QString, QVariant> values;

public Q_SLOTS:
    QDBusVariant ReadOne(const QString &ns, const QString &key)
    {
        if (readOnly) {
            sendErrorReply(QDBusError::UnknownMethod, "No such method ReadOne");
            return {};
        }
        return lookup(ns, key);
    }
    QDBusVariant Read(const QString &ns, const QString &key)
    {
        const QDBusVariant v = lookup(ns, key);
        return readOnly ? QDBusVariant(QVariant::fromValue(v)) : v;
    }

Q_SIGNALS:
    void SettingChanged(const QString &ns, const QString &key, const QDBusVariant &value);

private:
    QDBusVariant lookup(const QString &ns, const QString &key)
    {
        if (silent) {
            setDelayedReply(true); // and never reply
            return {};
        }
        const auto it = values.constFind(ns + ' ' + key);
        if (it == values.cend()) {
            sendErrorReply("org.freedesktop.portal.Error.NotFound", "Requested setting not found");
            return {};
        }
        return QDBusVariant(*it);
    }
};

// A line's value as the portal sends it: "u N", "rgb R G B" (a (ddd)
// structure) or text.
QVariant valueOf(const QStringList &w)
{
    if (w[2] == "u")
        return QVariant::fromValue(w[3].toUInt());
    if (w[2] != "rgb" || w.size() != 6)
        return w.mid(3).join(' ');
    QDBusArgument rgb;
    rgb.beginStructure();
    rgb << w[3].toDouble() << w[4].toDouble() << w[5].toDouble();
    rgb.endStructure();
    return QVariant::fromValue(rgb);
}

void say(const char *line)
{
    std::puts(line);
    std::fflush(stdout);
}

int main(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    qRegisterMetaType<QDBusVariant>(); // for the relayed signal
    Settings settings;
    settings.readOnly = app.arguments().contains("--read-only");
    settings.silent = app.arguments().contains("--silent");
    QDBusConnection bus = QDBusConnection::sessionBus();
    if (!bus.registerObject("/org/freedesktop/portal/desktop", &settings,
            QDBusConnection::ExportAllSlots | QDBusConnection::ExportAllSignals)
        || !bus.registerService("org.freedesktop.portal.Desktop"))
        return 1;

    QSocketNotifier input(STDIN_FILENO, QSocketNotifier::Read);
    QObject::connect(&input, &QSocketNotifier::activated, &app, [&] {
        char line[512];
        const ssize_t n = ::read(STDIN_FILENO, line, sizeof line - 1);
        if (n <= 0)
            return app.quit();
        for (const QByteArray &l : QByteArray(line, n).split('\n')) {
            const QStringList w = QString::fromUtf8(l).split(' ', Qt::SkipEmptyParts);
            if (w.size() < 4)
                continue;
            settings.values.insert(w[0] + ' ' + w[1], valueOf(w));
            Q_EMIT settings.SettingChanged(w[0], w[1], QDBusVariant(valueOf(w)));
            say("set");
        }
    });
    say("ready");
    return app.exec();
}

#include "portalstandin.moc"

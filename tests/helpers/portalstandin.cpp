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
#include <QDBusMetaType>
#include <QDBusVariant>
#include <QHash>
#include <QSocketNotifier>
#include <QTextStream>
#include <cstdio>
#include <unistd.h>

struct Rgb
{
    double r = 0, g = 0, b = 0;
};
Q_DECLARE_METATYPE(Rgb)

QDBusArgument &operator<<(QDBusArgument &arg, const Rgb &c)
{
    arg.beginStructure();
    arg << c.r << c.g << c.b;
    arg.endStructure();
    return arg;
}
const QDBusArgument &operator>>(const QDBusArgument &arg, Rgb &c)
{
    arg.beginStructure();
    arg >> c.r >> c.g >> c.b;
    arg.endStructure();
    return arg;
}

class Settings : public QObject, protected QDBusContext
{
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "org.freedesktop.portal.Settings")
public:
    bool readOnly = false;
    bool silent = false;
    QHash<QString, QVariant> values;

    void set(const QString &ns, const QString &key, const QVariant &value)
    {
        values.insert(ns + QLatin1Char(' ') + key, value);
        Q_EMIT SettingChanged(ns, key, QDBusVariant(value));
    }

public Q_SLOTS:
    QDBusVariant ReadOne(const QString &ns, const QString &key)
    {
        if (readOnly) {
            sendErrorReply(QDBusError::UnknownMethod, QStringLiteral("No such method ReadOne"));
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
        const auto it = values.constFind(ns + QLatin1Char(' ') + key);
        if (it == values.cend()) {
            sendErrorReply(QStringLiteral("org.freedesktop.portal.Error.NotFound"),
                QStringLiteral("Requested setting not found"));
            return {};
        }
        return QDBusVariant(*it);
    }
};

int main(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    qDBusRegisterMetaType<Rgb>();
    qRegisterMetaType<QDBusVariant>(); // for the relayed signal
    Settings settings;
    settings.readOnly = app.arguments().contains(QStringLiteral("--read-only"));
    settings.silent = app.arguments().contains(QStringLiteral("--silent"));
    QDBusConnection bus = QDBusConnection::sessionBus();
    if (!bus.registerObject(QStringLiteral("/org/freedesktop/portal/desktop"), &settings,
            QDBusConnection::ExportAllSlots | QDBusConnection::ExportAllSignals)
        || !bus.registerService(QStringLiteral("org.freedesktop.portal.Desktop")))
        return 1;

    QSocketNotifier input(STDIN_FILENO, QSocketNotifier::Read);
    QObject::connect(&input, &QSocketNotifier::activated, &app, [&] {
        char line[512];
        const ssize_t n = ::read(STDIN_FILENO, line, sizeof line - 1);
        if (n <= 0) {
            app.quit();
            return;
        }
        for (const QByteArray &l : QByteArray(line, n).split('\n')) {
            const QStringList w = QString::fromUtf8(l).split(QLatin1Char(' '), Qt::SkipEmptyParts);
            if (w.size() < 4)
                continue;
            if (w[2] == QLatin1String("u"))
                settings.set(w[0], w[1], QVariant::fromValue(w[3].toUInt()));
            else if (w[2] == QLatin1String("rgb") && w.size() == 6)
                settings.set(w[0], w[1],
                    QVariant::fromValue(Rgb { w[3].toDouble(), w[4].toDouble(), w[5].toDouble() }));
            else
                settings.set(w[0], w[1], w.mid(3).join(QLatin1Char(' ')));
            std::fputs("set\n", stdout);
            std::fflush(stdout);
        }
    });
    std::fputs("ready\n", stdout);
    std::fflush(stdout);
    return app.exec();
}

#include "portalstandin.moc"

// SPDX-FileCopyrightText: 2026 Quillet developers
// SPDX-License-Identifier: MIT
#pragma once

// What the helper's tests change on the machine, undone when they end: an
// unprivileged user of their own, and the system-wide desktop entries and
// icons the helper writes. Root only.
#include <QDir>
#include <QFile>
#include <QProcess>
#include <QStandardPaths>
#include <cerrno>
#include <csignal>
#include <pwd.h>
#include <unistd.h>

// A user made with useradd, home folder inside the test's folder, removed
// with userdel (after its processes end) when the object goes.
class SystemTestUser
{
public:
    explicit SystemTestUser(const QString &home)
        : home(home)
        , name(QStringLiteral("quillet-t%1").arg(::getpid()))
    {
        if (::geteuid() != 0
            || QStandardPaths::findExecutable("useradd", { "/usr/sbin", "/sbin" }).isEmpty()) {
            error = QStringLiteral("not root, or no useradd");
            return;
        }
        removeUsersOfEndedTests();
        m_made = QProcess::execute("useradd",
                     { "--no-create-home", "--home-dir", home, "--shell", "/bin/sh", "--user-group",
                         "--comment", "Quillet test", name })
            == 0;
        const struct passwd *pw = m_made ? ::getpwnam(name.toLocal8Bit().constData()) : nullptr;
        if (!pw) {
            error = QStringLiteral("useradd failed");
            return;
        }
        uid = pw->pw_uid;
        gid = pw->pw_gid;
        QDir().mkpath(home);
        if (::chown(QFile::encodeName(home).constData(), uid, gid) != 0)
            error = QStringLiteral("cannot give the home folder to the user");
    }
    ~SystemTestUser()
    {
        if (!m_made)
            return;
        // Every process that runs as the user (the tests start them) ends first.
        for (const QString &pid : QDir("/proc").entryList(QDir::Dirs)) {
            QFile status("/proc/" + pid + "/status");
            if (pid.toInt() > 0 && status.open(QIODevice::ReadOnly))
                for (const QByteArray &line : status.readAll().split('\n'))
                    if (line.startsWith("Uid:")
                        && line.simplified().split(' ').value(1) == QByteArray::number(uid))
                        ::kill(pid.toInt(), SIGKILL);
        }
        QProcess::execute("userdel", { name });
    }
    SystemTestUser(const SystemTestUser &) = delete;
    SystemTestUser &operator=(const SystemTestUser &) = delete;

    bool isValid() const { return error.isEmpty(); }

    // Users that tests killed before their end left behind: "quillet-t"
    // and the pid of a test that no longer runs.
    static void removeUsersOfEndedTests()
    {
        QFile passwd("/etc/passwd");
        if (passwd.open(QIODevice::ReadOnly))
            for (const QByteArray &line : passwd.readAll().split('\n')) {
                const QByteArray user = line.left(line.indexOf(':'));
                const int pid = user.mid(9).toInt();
                if (user.startsWith("quillet-t") && pid > 0 && ::kill(pid, 0) != 0
                    && errno == ESRCH)
                    QProcess::execute("userdel", { QString::fromLatin1(user) });
            }
    }

    QString home, name, error;
    uid_t uid = 0;
    gid_t gid = 0;

private:
    bool m_made = false;
};

// The shared data folder the helper registers into. Remembers which of its
// folders existed; forget() removes an id's entry and icon, and the guard
// removes the folders it saw appear (with the desktop database's cache).
class SystemShareGuard
{
public:
    static QString applications() { return QStringLiteral("/usr/local/share/applications"); }
    static QString icons() { return QStringLiteral("/usr/local/share/icons"); }
    // Where the helper writes the entry and icon of a bundle with this id.
    static QString iconFile(const QString &id)
    {
        return icons() + "/hicolor/256x256/apps/quillet-app." + id + ".png";
    }
    static QString entryFile(const QString &id)
    {
        return applications() + "/quillet-app." + id + ".desktop";
    }

    ~SystemShareGuard()
    {
        for (const QString &id : std::as_const(m_ids))
            forget(id);
        if (!m_hadApplications)
            QDir(applications()).removeRecursively();
        else if (!m_ids.isEmpty())
            QProcess::execute("update-desktop-database", { "-q", applications() });
        if (!m_hadIcons)
            QDir(icons()).removeRecursively();
    }

    // The id's files go when the guard goes (and now, when asked).
    void watch(const QString &id) { m_ids << id; }
    static void forget(const QString &id)
    {
        QFile::remove(entryFile(id));
        QFile::remove(iconFile(id));
    }

private:
    const bool m_hadApplications = QFileInfo::exists(applications());
    const bool m_hadIcons = QFileInfo::exists(icons());
    QStringList m_ids;
};

// SPDX-FileCopyrightText: 2026 Quillet developers
// SPDX-License-Identifier: MIT
//
// The desktop entry text shared by the installer and the helper: file ids
// that are safe file names, values and Exec lines that a desktop reads back
// as written, and the description the installer hands to the helper.
#include "installer/desktopentry.h"

#include <QTest>

class TestDesktopEntry : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void fileIdIsASafeFileName_data()
    {
        // clang-format off
        QTest::addColumn<QString>("identifier");
        QTest::addColumn<QString>("bundleName");
        QTest::addColumn<QString>("id");
        QTest::newRow("reverse DNS") << "dev.example.foo" << "Foo" << "dev.example.foo";
        QTest::newRow("no identifier") << "" << "Foo Bar" << "quillet.Foo_Bar";
        QTest::newRow("slash and dot-dot") << "../../etc/x" << "Foo" << "_._.._etc_x";
        QTest::newRow("leading dash") << "-rf" << "Foo" << "_rf";
        QTest::newRow("non-ASCII") << "dev.exämple" << "Foo" << "dev.ex__mple";
        // clang-format on
    }

    void fileIdIsASafeFileName()
    {
        QFETCH(QString, identifier);
        QFETCH(QString, bundleName);
        QFETCH(QString, id);
        const std::string made
            = DesktopEntry::fileId(identifier.toStdString(), bundleName.toStdString());
        QCOMPARE(QString::fromStdString(made), id);
        QVERIFY(DesktopEntry::isSafeFileId(made));
        QVERIFY(!DesktopEntry::isSafeFileId(identifier.toStdString()) || identifier == id);
    }

    void valuesSurviveEscaping_data()
    {
        // clang-format off
        // The Exec value as read back (string escapes undone, the quoting kept);
        // in the file each backslash is doubled once more.
        QTest::addColumn<QString>("path");
        QTest::addColumn<QString>("exec");
        QTest::newRow("plain") << "/opt/Foo.app" << "\"/opt/Foo.app/Contents/Linux/Foo\"";
        QTest::newRow("space") << "/opt/Foo Bar.app" << "\"/opt/Foo Bar.app/Contents/Linux/Foo\"";
        // A field code otherwise.
        QTest::newRow("percent") << "/opt/100%.app" << "\"/opt/100%%.app/Contents/Linux/Foo\"";
        QTest::newRow("shell characters") << "/opt/$x`y\".app"
            << "\"/opt/\\$x\\`y\\\".app/Contents/Linux/Foo\"";
        QTest::newRow("backslash") << "/opt/a\\b.app" << "\"/opt/a\\\\b.app/Contents/Linux/Foo\"";
        // clang-format on
    }

    void valuesSurviveEscaping()
    {
        QFETCH(QString, path);
        QFETCH(QString, exec);
        const std::string text = DesktopEntry::text({ "Foo\nBar",
            path.toStdString() + "/Contents/Linux/Foo", path.toStdString(), std::string(), "1.0" });
        QCOMPARE(QString::fromStdString(DesktopEntry::value(text, "Exec").value_or("")), exec);
        QVERIFY(text.find("\nExec=" + exec.replace("\\", "\\\\").toStdString() + "\n")
            != std::string::npos);
        QCOMPARE(DesktopEntry::value(text, "Name"), std::optional<std::string>("Foo\nBar"));
        QCOMPARE(DesktopEntry::value(text, "X-Quillet-Bundle"),
            std::optional<std::string>(path.toStdString()));
        QCOMPARE(DesktopEntry::value(text, "Icon"), std::nullopt); // no icon, no key
        // One entry per line: nothing in a value starts a line of its own.
        QCOMPARE(QString::fromStdString(text).count('\n'), 9);
    }

    void requestRoundTrip()
    {
        const DesktopEntry::Request sent { "dev.example.foo", " Foo\\Bar\t", "2.0",
            "Contents/Linux/Foo", std::string("\x89PNG\r\n\x1a\n\0\n\nbinary", 17) };
        std::string why;
        const auto read = DesktopEntry::parseRequest(DesktopEntry::requestText(sent), &why);
        QVERIFY2(read, why.c_str());
        QVERIFY(
            std::tie(read->identifier, read->name, read->version, read->executable, read->iconPng)
            == std::tie(sent.identifier, sent.name, sent.version, sent.executable, sent.iconPng));
        QVERIFY(!DesktopEntry::parseRequest("Identifier=a\nName=b\n\n", &why));
        QVERIFY(!why.empty());
    }
};

QTEST_GUILESS_MAIN(TestDesktopEntry)
#include "tst_desktopentry.moc"

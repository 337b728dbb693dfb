// SPDX-FileCopyrightText: 2026 Quillet developers
// SPDX-License-Identifier: MIT
//
// Builds the window from an interface file that is not the one the program
// was compiled with (an edited bundle). Qt's form loader brings Designer's
// widget plugins and OpenGL with it, so it lives in a module of its own that
// the installer loads only for such a file.
#include <QBuffer>
#include <QUiLoader>
#include <QWidget>

extern "C" Q_DECL_EXPORT QWidget *quilletLoadInterface(const QByteArray &contents, QString *error)
{
    QBuffer buffer;
    buffer.setData(contents);
    buffer.open(QIODevice::ReadOnly);
    QUiLoader loader;
    QWidget *window = loader.load(&buffer);
    if (!window)
        *error = loader.errorString();
    return window;
}

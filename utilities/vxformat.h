// SPDX-FileCopyrightText: 2026 Quillet developers
// SPDX-License-Identifier: MIT
#pragma once

#include <QString>
#include <QStringList>
#include <QVariant>

// Cocoa-style string formatting, shared by logging and localization.
//
// Supports %@ (an object's description), positional arguments (%1$@, %2$d),
// the printf conversions d i u o x X c s f F e E g G with flags, width,
// precision and length modifiers (h hh l ll q z t j L), and %%. A missing
// argument formats as "(null)" for %@ and %s and as 0 for numbers; an
// unknown conversion is copied through unchanged.
QString vxFormatList(const QString &format, const QVariantList &args);

// The description Cocoa prints for %@: strings as they are, null as
// "(null)", numbers plainly, lists as "(\n    a,\n    b\n)" and maps as
// "{\n    key = value;\n}" with sorted keys.
QString vxDescription(const QVariant &value);

namespace VXFormatDetail {
inline QVariant arg(const QString &s)
{
    return s;
}
inline QVariant arg(const char *s)
{
    return s ? QVariant(QString::fromUtf8(s)) : QVariant(QString());
}
inline QVariant arg(std::nullptr_t)
{
    return QVariant(QString());
}
inline QVariant arg(const QVariant &v)
{
    return v;
}
template <typename T> QVariant arg(const T &v)
{
    return QVariant::fromValue(v);
}
} // namespace VXFormatDetail

template <typename... Args> QString vxFormat(const QString &format, const Args &...args)
{
    return vxFormatList(format, QVariantList { VXFormatDetail::arg(args)... });
}

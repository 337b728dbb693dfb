// SPDX-FileCopyrightText: 2026 Quillet developers
// SPDX-License-Identifier: MIT
#pragma once

#include <QByteArray>
#include <QString>
#include <QVariant>

// Property lists in the XML and binary forms (through libplist) and in the
// OpenStep text form with GNUstep's extensions (our own reader: Debian's
// libplist cannot read it). Dictionaries become QVariantMap, arrays
// QVariantList, strings QString, integers qlonglong, reals double, booleans
// bool, dates QDateTime, data QByteArray.
namespace VXPropertyList {

enum class Format { Unknown, Xml, Binary, OpenStep };

struct Result
{
    QVariant value; // invalid on failure
    Format format = Format::Unknown;
    QString error; // empty on success
};

// Files larger than this are refused rather than parsed.
constexpr qint64 maximumSize = 8 * 1024 * 1024;

Result fromData(const QByteArray &data);
Result fromFile(const QString &path);

// XML form, for the files the installer writes.
QByteArray toXml(const QVariantMap &dictionary);

} // namespace VXPropertyList

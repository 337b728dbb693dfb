// SPDX-FileCopyrightText: 2026 Quillet developers
// SPDX-License-Identifier: MIT
#include "readmedocument.h"

#include "rtfreader.h"

#include <QFile>
#include <QFileInfo>
#include <QStringDecoder>
#include <QTextDocument>

namespace {
bool looksBinary(const QByteArray &data)
{
    // UTF-16 and UTF-32 text carries NULs; anything else with NULs is not text.
    if (data.startsWith("\xFF\xFE") || data.startsWith("\xFE\xFF"))
        return false;
    return data.left(64 * 1024).contains('\0');
}

QString decodeText(const QByteArray &data)
{
    if (auto encoding = QStringConverter::encodingForData(data)) {
        QStringDecoder decoder(*encoding);
        return decoder.decode(data);
    }
    QStringDecoder utf8(QStringDecoder::Utf8);
    const QString text = utf8.decode(data);
    if (!utf8.hasError())
        return text;
    // Not UTF-8: older read-mes are in a single-byte set; Latin-1 keeps every byte.
    return QString::fromLatin1(data);
}
} // namespace

ReadMeDocument::Format ReadMeDocument::detectFormat(const QString &path, const QByteArray &head)
{
    const QByteArray start = head.left(512).trimmed();
    if (start.startsWith("{\\rtf"))
        return Format::RichText;
    const QByteArray lower = start.toLower();
    if (lower.startsWith("<!doctype html") || lower.startsWith("<html"))
        return Format::Html;
    const QString suffix = QFileInfo(path).suffix().toLower();
    if (suffix == QLatin1String("html") || suffix == QLatin1String("htm"))
        return Format::Html;
    if (suffix == QLatin1String("md") || suffix == QLatin1String("markdown"))
        return Format::Markdown;
    return Format::PlainText;
}

bool ReadMeDocument::load(const QString &path, QTextDocument *document, QString *error)
{
    auto fail = [&](const QString &reason) {
        if (error)
            *error = reason;
        return false;
    };
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return fail(file.errorString());
    if (file.size() > maximumSize)
        return fail(QStringLiteral("the file is too large (%1 bytes)").arg(file.size()));
    const QByteArray data = file.read(maximumSize + 1);
    if (data.size() > maximumSize)
        return fail(QStringLiteral("the file is too large"));
    if (looksBinary(data))
        return fail(QStringLiteral("the file holds binary data"));

    switch (detectFormat(path, data)) {
    case Format::RichText: {
        if (!data.trimmed().startsWith("{\\rtf"))
            return fail(QStringLiteral("not a Rich Text Format file"));
        document->clear();
        RtfReader::read(data, document);
        break;
    }
    case Format::Html:
        document->setHtml(decodeText(data));
        break;
    case Format::Markdown:
        document->setMarkdown(decodeText(data));
        break;
    case Format::PlainText:
        document->setPlainText(decodeText(data));
        break;
    }
    return true;
}

// SPDX-FileCopyrightText: 2026 Quillet developers
// SPDX-License-Identifier: MIT
#pragma once

#include <QString>

class QTextDocument;
class QTextEdit;

// The read-me shown before installing: Rich Text, HTML, Markdown or plain
// text, the format taken from the file itself.
namespace ReadMeDocument {

enum class Format { RichText, Html, Markdown, PlainText };

// Files larger than this are not shown (a read-me is a few pages; loading
// tens of megabytes would freeze the window).
constexpr qint64 maximumSize = 8 * 1024 * 1024;

// The format of a file from its first bytes, then its name: "{\rtf" is Rich
// Text, a leading "<!DOCTYPE html" or "<html" (or .html/.htm) is HTML, .md
// and .markdown are Markdown, everything else is plain text.
Format detectFormat(const QString &path, const QByteArray &head);

// Replaces the document's content with the file's. Answers false, leaving
// the document as it was, when the file cannot be read, is too large, or
// holds binary data rather than text.
bool load(const QString &path, QTextDocument *document, QString *error = nullptr);

} // namespace ReadMeDocument

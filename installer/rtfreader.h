// SPDX-FileCopyrightText: 2026 Quillet developers
// SPDX-License-Identifier: MIT
#pragma once

#include <QByteArray>
#include <QString>

class QTextDocument;

// A reader for the Rich Text Format subset that editors write for read-me
// files: character formatting (bold, italic, underline, strike-through,
// size, font, colours, super- and subscript), paragraphs with alignment and
// indents, line breaks and tabs, Unicode (\u) and code-page (\'hh) text in
// the document's and each font's character set, the common symbol words,
// hyperlink fields, and tables read as tab-separated rows. Pictures,
// headers, footers, notes and other destinations are skipped.
namespace RtfReader {

// Appends the document's text to `document`. Answers false, with a reason,
// when the data is not RTF; damaged RTF (unbalanced groups, unknown words)
// is read as far as it makes sense.
bool read(const QByteArray &rtf, QTextDocument *document, QString *error = nullptr);

} // namespace RtfReader

// SPDX-FileCopyrightText: 2026 Quillet developers
// SPDX-License-Identifier: MIT
#pragma once

#include <QByteArray>
#include <QString>
#include <QStringList>
#include <functional>

// Small exact text operations on QString. Characters are UTF-16 code units;
// positions and lengths are counted in code units. Operations documented as
// answering "the receiver" hand back the same implicitly shared QString.
namespace StringExtensions {

// Parsing and comparison
qint64 numericValue(const QString &s);
bool booleanValue(const QString &s);
bool isIntegerNumber(const QString &s);
float smartFloatValue(const QString &s);
int numericCompare(const QString &s, const QString &other);
int caseInsensitiveNumericCompare(const QString &s, const QString &other);
// Misspelt twin of caseInsensitiveNumericCompare; existing callers use it.
int casdInsensitiveNumericCompare(const QString &s, const QString &other);
bool matchesWildcardPattern(const QString &s, const QString &pattern);

// Leading integer / float of the text, 0 when there is none.
int intValue(const QString &s);
float floatValue(const QString &s);

// Trimming, lines and components
QString trimWhitespace(const QString &s);
QString stringByTrimmingWhitespace(const QString &s);
QString asSingleLine(const QString &s);
QStringList arrayOfLines(const QString &s);
// A null separator removes every line break.
QString withLineSeparator(const QString &s, const QString &separator);
QStringList componentsSeparatedByCharacter(const QString &s, QChar separator);
QString repeated(const QString &s, int count);

// Escapes
QString stringByEscapingCharacters(const QString &s, const QString &characters);
// The shared default set (LF, CR, tab, backslash), recognised by identity.
const QString &defaultEscapeSet();
QString stringByExpandingEscapedCharacters(const QString &s, const QString &characters);
QString stringByExpandingEscapedControlCharacters(const QString &s);
QString stringByExpandingEscapedControlCharactersIncludingBackslash(
    const QString &s, bool backslash);
bool expandEscapedControlCharactersIncludingBackslash(QString &s, bool backslash);

// Encodings, numbered as the platform numbers them.
enum Encoding : quint32 {
    UTF8Encoding = 4,
    ISOLatin1Encoding = 5,
    UnicodeEncoding = 10,
    MacOSRomanEncoding = 30,
    UTF16BigEndianEncoding = 0x90000100,
    UTF16LittleEndianEncoding = 0x94000100,
    UTF32BigEndianEncoding = 0x98000100,
    UTF32LittleEndianEncoding = 0x9C000100,
};

// Decodes bytes; a null QString when they are not valid in the encoding.
QString decode(const QByteArray &bytes, quint32 encoding);
// Encodes; an empty optional-like null array when a character cannot be
// represented.
QByteArray encode(const QString &s, quint32 encoding, bool *ok = nullptr);
// Encoding number for an IANA character-set name, 0 when unknown.
quint32 encodingForIANACharSetName(const QString &name);

quint32 explicitEncodingOfFile(const QString &path, quint32 defaultEncoding);
float reasonableTextFactor(const QString &s, const QString &label);
QString stringWithBestEncodingFromFile(const QString &path);
QString stringWithHTML(const QByteArray &data);
// Plain text of an HTML fragment: markup dropped, references expanded.
QString stringByExpandingHTMLEntities(const QString &s);
QString stringWithPercentEscapes(const QString &s);
QString stringWithExpandedPercentEscapes(const QString &s);

// Code points over UTF-16
int numberOfUnicodeCharacters(const QString &s);
quint32 longCharacterAtIndex(const QString &s, int index);
void forUTF32Characters(const QString &s, const std::function<void(quint32)> &block);
QString UTF16SequenceString(const QString &s);
QString UTF32SequenceString(const QString &s);
quint32 UTF32Character(const QString &s);
QString stringWithUTF32Character(quint32 code);

// Virtual characters: private-use codes standing for flags, emoji sequences,
// keycaps and caller-defined ligatures.
bool isVirtualCharacter(qint32 code);
// Zero-terminated; flags share one static buffer overwritten by the next call.
const quint32 *utf32CharactersForVirtualCharacter(quint32 code);
void defineLigatures(const QStringList &ligatures);
QString emojiStringWithSkinColor(const QString &s, qint32 skinColor);

// The key's text in the current keyboard layout; "<ERR>" without one.
QString stringWithVirtualKeyCode(quint16 keyCode, quint32 modifiers);

QString stringWithOSType(quint32 code);
QString stringWithMacRomanCString(const char *bytes, int length);
QString stringWithMacRomanCString(const char *bytes);
QString stringWithObjCString(const QString &literal);
QString objCStringWithString(const QString &s);
QString MD5String(const QString &s);
QString xmlElementForKey(const QString &s, const QString &key);
bool appendToFile(const QString &s, const QString &path, quint32 encoding);

// Regular expressions
QString stringByReplacingOccurrencesOfRegexPattern(
    const QString &s, const QString &pattern, const QString &templ);
void replaceOccurrencesOfRegexPattern(QString &s, const QString &pattern, const QString &templ);

} // namespace StringExtensions

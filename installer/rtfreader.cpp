// SPDX-FileCopyrightText: 2026 Quillet developers
// SPDX-License-Identifier: MIT
#include "rtfreader.h"

#include "utilities/vxfourcharcode.h"

#include <QColor>
#include <QHash>
#include <QTextBlockFormat>
#include <QTextCharFormat>
#include <QTextCursor>
#include <QTextDocument>
#include <QVector>
#include <iconv.h>

namespace {

constexpr int kMaximumDepth = 2048;

enum class Destination { Text, FontTable, ColorTable, Skip, FieldInstruction, FieldResult };

struct State
{
    QTextCharFormat chars;
    QTextBlockFormat block;
    Destination destination = Destination::Text;
    int unicodeSkip = 1;
    int codepage = 1252;
    bool fieldGroup = false;
};

// Windows code page of an RTF \fcharset value.
int codepageForCharset(int charset)
{
    switch (charset) {
    case 77:
        return 10000; // Mac Roman
    case 128:
        return 932;
    case 129:
        return 949;
    case 134:
        return 936;
    case 136:
        return 950;
    case 161:
        return 1253;
    case 162:
        return 1254;
    case 163:
        return 1258;
    case 177:
        return 1255;
    case 178:
        return 1256;
    case 186:
        return 1257;
    case 204:
        return 1251;
    case 222:
        return 874;
    case 238:
        return 1250;
    default:
        return 1252;
    }
}

QString decodeBytes(const QByteArray &bytes, int codepage)
{
    if (bytes.isEmpty())
        return QString();
    if (codepage == 10000)
        return VXMacRoman::decode(bytes);
    const QByteArray name = codepage == 437 ? QByteArray("CP437")
        : codepage == 850                   ? QByteArray("CP850")
                                            : "CP" + QByteArray::number(codepage);
    iconv_t cd = iconv_open("UTF-16LE", name.constData());
    if (cd == iconv_t(-1))
        cd = iconv_open("UTF-16LE", "CP1252");
    if (cd == iconv_t(-1))
        return QString::fromLatin1(bytes);
    QByteArray in = bytes;
    QByteArray out(bytes.size() * 4 + 8, '\0');
    char *inPtr = in.data();
    size_t inLeft = size_t(in.size());
    char *outPtr = out.data();
    size_t outLeft = size_t(out.size());
    while (inLeft > 0) {
        if (iconv(cd, &inPtr, &inLeft, &outPtr, &outLeft) == size_t(-1)) {
            if (outLeft < 2)
                break;
            // An undecodable byte becomes U+FFFD and reading goes on.
            *outPtr++ = char(0xFD);
            *outPtr++ = char(0xFF);
            outLeft -= 2;
            ++inPtr;
            --inLeft;
        }
    }
    iconv_close(cd);
    const qsizetype produced = (out.size() - qsizetype(outLeft)) / 2;
    return QString::fromUtf16(reinterpret_cast<const char16_t *>(out.constData()), produced);
}

class Reader
{
public:
    Reader(const QByteArray &data, QTextDocument *document)
        : m_data(data)
        , m_cursor(document)
    {
        m_cursor.movePosition(QTextCursor::End);
        m_stack.append(State());
    }

    void run()
    {
        const qsizetype n = m_data.size();
        while (m_pos < n) {
            const char c = m_data.at(m_pos);
            if (c == '{') {
                ++m_pos;
                pushGroup();
            } else if (c == '}') {
                ++m_pos;
                popGroup();
            } else if (c == '\\') {
                readControl();
            } else if (c == '\r' || c == '\n') {
                ++m_pos;
            } else {
                const qsizetype start = m_pos;
                while (m_pos < n) {
                    const char d = m_data.at(m_pos);
                    if (d == '{' || d == '}' || d == '\\' || d == '\r' || d == '\n')
                        break;
                    ++m_pos;
                }
                addBytes(m_data.mid(start, m_pos - start));
            }
        }
        flush();
    }

private:
    State &state() { return m_stack.last(); }

    void pushGroup()
    {
        flushBytes();
        if (m_stack.size() >= kMaximumDepth) {
            ++m_overflow; // too deep: keep the text, drop the grouping
            return;
        }
        State next = state();
        next.fieldGroup = false;
        m_stack.append(next);
        m_groupStart = true;
    }

    void popGroup()
    {
        flushBytes();
        if (m_overflow > 0) {
            --m_overflow;
            return;
        }
        if (m_stack.size() <= 1)
            return; // unbalanced: ignore the extra brace
        const State closed = m_stack.takeLast();
        if (closed.destination == Destination::FontTable && !m_fontName.isEmpty())
            finishFont();
        if (closed.destination == Destination::FieldInstruction
            && state().destination != Destination::FieldInstruction)
            m_fieldInstruction = m_fieldInstruction.trimmed();
        if (closed.fieldGroup) {
            flush();
            m_fieldInstruction.clear();
        }
    }

    void readControl()
    {
        const qsizetype n = m_data.size();
        ++m_pos; // backslash
        if (m_pos >= n)
            return;
        const char c = m_data.at(m_pos);
        if (!isalpha(uchar(c))) {
            ++m_pos;
            controlSymbol(c);
            return;
        }
        const qsizetype start = m_pos;
        while (m_pos < n && isalpha(uchar(m_data.at(m_pos))) && m_pos - start < 32)
            ++m_pos;
        const QByteArray word = m_data.mid(start, m_pos - start);
        bool hasParam = false;
        long param = 0;
        bool negative = false;
        if (m_pos < n && m_data.at(m_pos) == '-' && m_pos + 1 < n
            && isdigit(uchar(m_data.at(m_pos + 1)))) {
            negative = true;
            ++m_pos;
        }
        int digits = 0;
        while (m_pos < n && isdigit(uchar(m_data.at(m_pos)))) {
            if (digits < 10)
                param = param * 10 + (m_data.at(m_pos) - '0');
            ++digits;
            ++m_pos;
            hasParam = true;
        }
        if (negative)
            param = -param;
        if (m_pos < n && m_data.at(m_pos) == ' ')
            ++m_pos;
        controlWord(word, hasParam, int(std::clamp<long>(param, -2147483647L, 2147483647L)));
    }

    void controlSymbol(char c)
    {
        switch (c) {
        case '\\':
        case '{':
        case '}':
            addBytes(QByteArray(1, c));
            break;
        case '~':
            addText(QString(QChar(0x00A0)));
            break;
        case '_':
            addText(QString(QChar(0x2011)));
            break;
        case '-':
            break; // optional hyphen
        case '*':
            m_starPending = true;
            return;
        case '\'': {
            if (m_pos + 2 <= m_data.size()) {
                bool ok = false;
                const int byte = m_data.mid(m_pos, 2).toInt(&ok, 16);
                m_pos += 2;
                if (ok) {
                    if (m_skipChars > 0) {
                        --m_skipChars;
                        break;
                    }
                    m_pendingBytes.append(char(byte));
                }
            }
            break;
        }
        case '\r':
        case '\n':
            paragraph();
            break;
        default:
            break;
        }
        m_starPending = false;
        m_groupStart = false;
    }

    void controlWord(const QByteArray &w, bool hasParam, int p)
    {
        flushBytes(); // text before a word belongs to the state before it
        const bool star = m_starPending;
        m_starPending = false;
        const bool first = m_groupStart;
        m_groupStart = false;
        const bool on = !hasParam || p != 0;
        State &s = state();

        if (w == "fldinst") {
            flushBytes();
            s.destination = Destination::FieldInstruction;
            return;
        }
        if (star && first) {
            flushBytes();
            s.destination = Destination::Skip;
            return;
        }
        if (first && isSkippedDestination(w)) {
            flushBytes();
            s.destination = Destination::Skip;
            return;
        }
        if (s.destination == Destination::Skip)
            return;

        if (w == "fonttbl") {
            s.destination = Destination::FontTable;
        } else if (w == "colortbl") {
            s.destination = Destination::ColorTable;
            m_colors.clear();
            m_colorOpen = false;
        } else if (w == "field") {
            s.fieldGroup = true;
        } else if (w == "fldrslt") {
            flushBytes();
            s.destination = Destination::FieldResult;
            const QString inst = m_fieldInstruction.trimmed();
            if (inst.startsWith(QLatin1String("HYPERLINK"))) {
                QString target = inst.mid(9).trimmed();
                const qsizetype q1 = target.indexOf(QLatin1Char('"'));
                const qsizetype q2 = target.indexOf(QLatin1Char('"'), q1 + 1);
                if (q1 >= 0 && q2 > q1)
                    target = target.mid(q1 + 1, q2 - q1 - 1);
                else
                    target = target.section(QLatin1Char(' '), 0, 0);
                s.chars.setAnchor(true);
                s.chars.setAnchorHref(target);
                s.chars.setFontUnderline(true);
                s.chars.setForeground(QColor(0x1a, 0x5f, 0xb4));
            }
        } else if (s.destination == Destination::FontTable) {
            if (w == "f") {
                if (!m_fontName.isEmpty())
                    finishFont();
                m_fontId = p;
            } else if (w == "fcharset") {
                m_fontCharset = p;
            }
        } else if (s.destination == Destination::ColorTable) {
            if (!m_colorOpen) {
                m_color = QColor(0, 0, 0);
                m_colorOpen = true;
            }
            if (w == "red")
                m_color.setRed(std::clamp(p, 0, 255));
            else if (w == "green")
                m_color.setGreen(std::clamp(p, 0, 255));
            else if (w == "blue")
                m_color.setBlue(std::clamp(p, 0, 255));
        } else {
            textControlWord(w, hasParam, p, on);
        }
    }

    static bool isSkippedDestination(const QByteArray &w)
    {
        static const char *const words[] = {
            "stylesheet",
            "info",
            "pict",
            "header",
            "headerl",
            "headerr",
            "headerf",
            "footer",
            "footerl",
            "footerr",
            "footerf",
            "footnote",
            "annotation",
            "object",
            "themedata",
            "colorschememapping",
            "latentstyles",
            "datastore",
            "xmlnstbl",
            "listtable",
            "listoverridetable",
            "rsidtbl",
            "generator",
            "filetbl",
            "revtbl",
            "pgdsctbl",
            "expandedcolortbl",
            "bkmkstart",
            "bkmkend",
            "nonshppict",
            "shp",
            "author",
            "operator",
            "title",
            "subject",
            "keywords",
            "comment",
            "doccomm",
            "mmathPr",
            "pnseclvl",
            "xe",
            "tc",
        };
        for (const char *word : words)
            if (w == word)
                return true;
        return false;
    }

    void textControlWord(const QByteArray &w, bool hasParam, int p, bool on)
    {
        State &s = state();
        if (w == "par" || w == "sect" || w == "page" || w == "row") {
            paragraph();
        } else if (w == "line") {
            addText(QString(QChar::LineSeparator));
        } else if (w == "tab" || w == "cell") {
            addText(QStringLiteral("\t"));
        } else if (w == "u") {
            flushBytes();
            int code = p;
            if (code < 0)
                code += 65536;
            appendUnicode(char16_t(code));
            m_skipChars = s.unicodeSkip;
        } else if (w == "uc") {
            s.unicodeSkip = std::clamp(p, 0, 16);
        } else if (w == "ansicpg") {
            m_documentCodepage = p > 0 ? p : 1252;
            s.codepage = m_documentCodepage;
        } else if (w == "mac") {
            m_documentCodepage = 10000;
            s.codepage = 10000;
        } else if (w == "pc") {
            m_documentCodepage = 437;
            s.codepage = 437;
        } else if (w == "pca") {
            m_documentCodepage = 850;
            s.codepage = 850;
        } else if (w == "b") {
            setFormat(
                [&](QTextCharFormat &f) { f.setFontWeight(on ? QFont::Bold : QFont::Normal); });
        } else if (w == "i") {
            setFormat([&](QTextCharFormat &f) { f.setFontItalic(on); });
        } else if (w == "ul" || w == "uld" || w == "uldb" || w == "ulw" || w == "ulth") {
            setFormat([&](QTextCharFormat &f) { f.setFontUnderline(on); });
        } else if (w == "ulnone") {
            setFormat([&](QTextCharFormat &f) { f.setFontUnderline(false); });
        } else if (w == "strike" || w == "striked") {
            setFormat([&](QTextCharFormat &f) { f.setFontStrikeOut(on); });
        } else if (w == "fs") {
            if (hasParam && p > 0)
                setFormat(
                    [&](QTextCharFormat &f) { f.setFontPointSize(std::clamp(p, 2, 400) / 2.0); });
        } else if (w == "f") {
            const auto it = m_fonts.constFind(p);
            if (it != m_fonts.cend()) {
                const QString family = it->first;
                setFormat([&](QTextCharFormat &f) { f.setFontFamilies({ family }); });
                s.codepage = it->second > 0 ? it->second : m_documentCodepage;
            }
        } else if (w == "cf") {
            setFormat([&](QTextCharFormat &f) {
                if (p > 0 && p < m_colors.size() && m_colors.at(p).isValid())
                    f.setForeground(m_colors.at(p));
                else
                    f.clearForeground();
            });
        } else if (w == "cb" || w == "highlight" || w == "chcbpat") {
            setFormat([&](QTextCharFormat &f) {
                if (p > 0 && p < m_colors.size() && m_colors.at(p).isValid())
                    f.setBackground(m_colors.at(p));
                else
                    f.clearBackground();
            });
        } else if (w == "super") {
            setFormat([&](QTextCharFormat &f) {
                f.setVerticalAlignment(QTextCharFormat::AlignSuperScript);
            });
        } else if (w == "sub") {
            setFormat([&](QTextCharFormat &f) {
                f.setVerticalAlignment(QTextCharFormat::AlignSubScript);
            });
        } else if (w == "nosupersub") {
            setFormat(
                [&](QTextCharFormat &f) { f.setVerticalAlignment(QTextCharFormat::AlignNormal); });
        } else if (w == "plain") {
            setFormat([&](QTextCharFormat &f) {
                const bool anchor = f.isAnchor();
                const QString href = f.anchorHref();
                f = QTextCharFormat();
                if (anchor) { // a field result keeps its link
                    f.setAnchor(true);
                    f.setAnchorHref(href);
                }
            });
        } else if (w == "pard") {
            flushBytes();
            s.block = QTextBlockFormat();
        } else if (w == "ql") {
            s.block.setAlignment(Qt::AlignLeft);
        } else if (w == "qr") {
            s.block.setAlignment(Qt::AlignRight);
        } else if (w == "qc") {
            s.block.setAlignment(Qt::AlignHCenter);
        } else if (w == "qj") {
            s.block.setAlignment(Qt::AlignJustify);
        } else if (w == "tx" || w == "tqr" || w == "tqc" || w == "tqdec") {
            if (w == "tx") {
                QList<QTextOption::Tab> tabs = s.block.tabPositions();
                QTextOption::TabType type = QTextOption::LeftTab;
                if (m_pendingTabType == "tqr")
                    type = QTextOption::RightTab;
                else if (m_pendingTabType == "tqc")
                    type = QTextOption::CenterTab;
                else if (m_pendingTabType == "tqdec")
                    type = QTextOption::DelimiterTab;
                tabs.append(QTextOption::Tab(twipsToPixels(p), type));
                s.block.setTabPositions(tabs);
                m_pendingTabType.clear();
            } else {
                m_pendingTabType = w; // the kind of the next tab stop
            }
        } else if (w == "li") {
            s.block.setLeftMargin(twipsToPixels(p));
        } else if (w == "ri") {
            s.block.setRightMargin(twipsToPixels(p));
        } else if (w == "fi") {
            s.block.setTextIndent(twipsToPixels(p));
        } else if (w == "sb") {
            s.block.setTopMargin(twipsToPixels(p));
        } else if (w == "sa") {
            s.block.setBottomMargin(twipsToPixels(p));
        } else if (w == "emdash") {
            addText(QString(QChar(0x2014)));
        } else if (w == "endash") {
            addText(QString(QChar(0x2013)));
        } else if (w == "bullet") {
            addText(QString(QChar(0x2022)));
        } else if (w == "lquote") {
            addText(QString(QChar(0x2018)));
        } else if (w == "rquote") {
            addText(QString(QChar(0x2019)));
        } else if (w == "ldblquote") {
            addText(QString(QChar(0x201C)));
        } else if (w == "rdblquote") {
            addText(QString(QChar(0x201D)));
        } else if (w == "emspace" || w == "enspace" || w == "qmspace") {
            addText(QStringLiteral(" "));
        }
        // Every other word (document settings, Cocoa's own words, list
        // properties) changes nothing that a read-me shows.
    }

    static double twipsToPixels(int twips) { return std::clamp(twips, -20000, 20000) / 15.0; }

    template <typename F> void setFormat(F change)
    {
        flushBytes();
        change(state().chars);
    }

    void finishFont()
    {
        QString name = m_fontName.trimmed();
        if (name.endsWith(QLatin1Char(';')))
            name.chop(1);
        m_fonts.insert(m_fontId,
            { name.trimmed(), m_fontCharset >= 0 ? codepageForCharset(m_fontCharset) : 0 });
        m_fontName.clear();
        m_fontCharset = -1;
    }

    void addBytes(const QByteArray &bytes)
    {
        if (bytes.isEmpty())
            return;
        m_groupStart = false;
        qsizetype from = 0;
        // Characters after \u that stand in for it are skipped.
        while (m_skipChars > 0 && from < bytes.size()) {
            ++from;
            --m_skipChars;
        }
        m_pendingBytes.append(bytes.constData() + from, bytes.size() - from);
    }

    void flushBytes()
    {
        if (m_pendingBytes.isEmpty())
            return;
        const QByteArray bytes = m_pendingBytes;
        m_pendingBytes.clear();
        addText(decodeBytes(bytes, state().codepage));
    }

    void appendUnicode(char16_t code) { addText(QString(QChar(code))); }

    void addText(const QString &text)
    {
        if (!m_pendingBytes.isEmpty()) {
            const QByteArray bytes = m_pendingBytes;
            m_pendingBytes.clear();
            addText(decodeBytes(bytes, state().codepage));
        }
        State &s = state();
        switch (s.destination) {
        case Destination::Skip:
        case Destination::ColorTable:
            if (s.destination == Destination::ColorTable) {
                for (QChar c : text) {
                    if (c == QLatin1Char(';')) {
                        m_colors.append(m_colorOpen ? m_color : QColor());
                        m_colorOpen = false;
                    }
                }
            }
            return;
        case Destination::FontTable:
            m_fontName += text;
            if (m_fontName.contains(QLatin1Char(';')))
                finishFont();
            return;
        case Destination::FieldInstruction:
            m_fieldInstruction += text;
            return;
        case Destination::Text:
        case Destination::FieldResult:
            break;
        }
        if (text.isEmpty())
            return;
        if (m_runFormat != s.chars || m_runBlock != s.block)
            flush();
        m_runFormat = s.chars;
        m_runBlock = s.block;
        m_run += text;
    }

    void paragraph()
    {
        flushBytes();
        if (state().destination != Destination::Text
            && state().destination != Destination::FieldResult)
            return;
        flush();
        m_cursor.setBlockFormat(state().block);
        m_cursor.insertBlock(state().block, state().chars);
        m_blockStarted = true;
    }

    void flush()
    {
        if (m_run.isEmpty())
            return;
        m_cursor.setBlockFormat(m_runBlock);
        m_cursor.insertText(m_run, m_runFormat);
        m_run.clear();
    }

    const QByteArray &m_data;
    qsizetype m_pos = 0;
    QTextCursor m_cursor;
    QVector<State> m_stack;
    int m_overflow = 0;
    bool m_starPending = false;
    bool m_groupStart = false;
    bool m_blockStarted = false;
    int m_skipChars = 0;
    int m_documentCodepage = 1252;
    QByteArray m_pendingBytes;

    QHash<int, std::pair<QString, int>> m_fonts;
    int m_fontId = 0;
    int m_fontCharset = -1;
    QString m_fontName;

    QVector<QColor> m_colors;
    QColor m_color;
    bool m_colorOpen = false;

    QString m_fieldInstruction;
    QByteArray m_pendingTabType;

    QString m_run;
    QTextCharFormat m_runFormat;
    QTextBlockFormat m_runBlock;
};

} // namespace

bool RtfReader::read(const QByteArray &rtf, QTextDocument *document, QString *error)
{
    qsizetype start = 0;
    while (start < rtf.size() && isspace(uchar(rtf.at(start))))
        ++start;
    if (!rtf.mid(start, 5).startsWith("{\\rtf")) {
        if (error)
            *error = QStringLiteral("not a Rich Text Format file");
        return false;
    }
    const QByteArray data = rtf.mid(start);
    Reader reader(data, document);
    reader.run();
    return true;
}

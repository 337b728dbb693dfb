// SPDX-FileCopyrightText: 2026 Quillet developers
// SPDX-License-Identifier: MIT
//
// The plain text of an HTML fragment, through gumbo: an HTML5 parser that
// tokenizes, expands character references and builds the tree as browsers
// do (comments, raw-text script and style, quoted attributes holding ">",
// implied and misnested elements). QtGui's importer is out of reach of the
// core library.
#include "stringextensions.h"

#include <gumbo.h>
#include <vector>

namespace StringExtensions {

namespace {
// Browsers' parsers stop nesting deeper than a few hundred elements, too.
constexpr int MaxDepth = 512;

bool isRawText(const QByteArray &name)
{
    static const char *const names[] = { "script", "style", "textarea", "title", "xmp", "iframe",
        "noembed", "noframes", "noscript", "plaintext" };
    return std::any_of(
        std::begin(names), std::end(names), [&](const char *n) { return name == n; });
}

bool isVoid(const QByteArray &name)
{
    static const char *const names[] = { "area", "base", "br", "col", "embed", "hr", "img", "input",
        "link", "meta", "param", "source", "track", "wbr" };
    return std::any_of(
        std::begin(names), std::end(names), [&](const char *n) { return name == n; });
}

bool isAsciiLetter(char c)
{
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
}

// Gumbo's tree construction walks the stack of open elements for every tag,
// so its time grows with tags times nesting depth (100,000 nested <div>s
// take minutes). Start tags that would nest deeper than MaxDepth are taken
// out before parsing; the text inside them stays. The depth here is an
// estimate from the tags alone: elements that close their own kind (p, li,
// ...) and end tags closing one of the last 16 open elements are followed.
QByteArray limitNesting(const QByteArray &html)
{
    std::vector<QByteArray> open;
    std::vector<std::pair<qsizetype, qsizetype>> dropped;
    const qsizetype n = html.size();
    const char *s = html.constData();
    const QByteArray lower = html.toLower(); // end tags of raw text in any case
    auto find = [&](const char *what, qsizetype from) {
        const qsizetype at = lower.indexOf(what, from);
        return at < 0 ? n : at + qsizetype(qstrlen(what));
    };
    for (qsizetype i = 0; i < n;) {
        if (s[i] != '<' || i + 1 >= n) {
            ++i;
            continue;
        }
        const qsizetype start = i;
        if (html.mid(i, 4) == "<!--") {
            i = find("-->", i + 4);
            continue;
        }
        if (s[i + 1] == '!' || s[i + 1] == '?') {
            i = find(">", i + 1);
            continue;
        }
        const bool end = s[i + 1] == '/';
        qsizetype k = i + (end ? 2 : 1);
        if (k >= n || !isAsciiLetter(s[k])) {
            ++i;
            continue;
        }
        const qsizetype nameStart = k;
        while (k < n && s[k] != '>' && s[k] != '/' && !QChar::isSpace(uchar(s[k])))
            ++k;
        const QByteArray name = html.mid(nameStart, k - nameStart).toLower();
        // Attributes: a quote opens a value only right behind "=".
        bool selfClosing = false;
        while (k < n && s[k] != '>') {
            if (s[k] == '=') {
                ++k;
                while (k < n && QChar::isSpace(uchar(s[k])))
                    ++k;
                if (k < n && (s[k] == '"' || s[k] == '\'')) {
                    const qsizetype close = html.indexOf(s[k], k + 1);
                    k = close < 0 ? n : close + 1;
                    continue;
                }
            }
            selfClosing = s[k] == '/' && k + 1 < n && s[k + 1] == '>';
            ++k;
        }
        i = k < n ? k + 1 : n;
        if (end) {
            for (qsizetype d = qsizetype(open.size()) - 1;
                 d >= 0 && d >= qsizetype(open.size()) - 16; --d)
                if (open[size_t(d)] == name) {
                    open.resize(size_t(d));
                    break;
                }
        } else if (isRawText(name)) {
            i = find(("</" + name).constData(), i);
        } else if (!isVoid(name) && !selfClosing) {
            static const char *const selfClosers[]
                = { "p", "li", "dt", "dd", "tr", "td", "th", "option" };
            const bool replaces = !open.empty() && open.back() == name
                && std::any_of(std::begin(selfClosers), std::end(selfClosers),
                    [&](const char *c) { return name == c; });
            if (replaces)
                continue;
            if (open.size() >= size_t(MaxDepth))
                dropped.emplace_back(start, i);
            else
                open.push_back(name);
        }
    }
    if (dropped.empty())
        return html;
    QByteArray out;
    out.reserve(html.size());
    qsizetype from = 0;
    for (const auto &[a, b] : dropped) {
        out.append(s + from, a - from);
        from = b;
    }
    out.append(s + from, n - from);
    return out;
}

bool isHidden(GumboTag tag)
{
    switch (tag) {
    case GUMBO_TAG_HEAD:
    case GUMBO_TAG_TITLE:
    case GUMBO_TAG_SCRIPT:
    case GUMBO_TAG_STYLE:
    case GUMBO_TAG_TEMPLATE:
        return true;
    default:
        return false;
    }
}

bool isBlock(GumboTag tag)
{
    switch (tag) {
    case GUMBO_TAG_ADDRESS:
    case GUMBO_TAG_ARTICLE:
    case GUMBO_TAG_ASIDE:
    case GUMBO_TAG_BLOCKQUOTE:
    case GUMBO_TAG_CAPTION:
    case GUMBO_TAG_CENTER:
    case GUMBO_TAG_DD:
    case GUMBO_TAG_DETAILS:
    case GUMBO_TAG_DIR:
    case GUMBO_TAG_DIV:
    case GUMBO_TAG_DL:
    case GUMBO_TAG_DT:
    case GUMBO_TAG_FIELDSET:
    case GUMBO_TAG_FIGCAPTION:
    case GUMBO_TAG_FIGURE:
    case GUMBO_TAG_FOOTER:
    case GUMBO_TAG_FORM:
    case GUMBO_TAG_H1:
    case GUMBO_TAG_H2:
    case GUMBO_TAG_H3:
    case GUMBO_TAG_H4:
    case GUMBO_TAG_H5:
    case GUMBO_TAG_H6:
    case GUMBO_TAG_HEADER:
    case GUMBO_TAG_HGROUP:
    case GUMBO_TAG_HR:
    case GUMBO_TAG_LEGEND:
    case GUMBO_TAG_LI:
    case GUMBO_TAG_LISTING:
    case GUMBO_TAG_MAIN:
    case GUMBO_TAG_MENU:
    case GUMBO_TAG_NAV:
    case GUMBO_TAG_OL:
    case GUMBO_TAG_P:
    case GUMBO_TAG_PRE:
    case GUMBO_TAG_SECTION:
    case GUMBO_TAG_SUMMARY:
    case GUMBO_TAG_TABLE:
    case GUMBO_TAG_TR:
    case GUMBO_TAG_UL:
        return true;
    default:
        return false;
    }
}

bool keepsWhiteSpace(GumboTag tag)
{
    return tag == GUMBO_TAG_PRE || tag == GUMBO_TAG_LISTING || tag == GUMBO_TAG_TEXTAREA
        || tag == GUMBO_TAG_PLAINTEXT;
}

// Collapses white space as a browser shows it: a run is one space, none at
// the start of a line; block boundaries are one line break, given only
// before further text; <br> is a line break of its own.
class PlainText
{
public:
    void text(const QString &t, bool keepWhiteSpace)
    {
        for (QChar c : t) {
            if (!keepWhiteSpace
                && (c == u' ' || c == u'\t' || c == u'\n' || c == u'\r' || c == u'\f')) {
                m_space = !m_out.isEmpty() && !m_out.endsWith(u'\n');
                continue;
            }
            flushBreak();
            if (m_space && !keepWhiteSpace)
                m_out += u' ';
            m_space = false;
            m_out += c;
        }
    }
    void blockBoundary()
    {
        m_break = !m_out.isEmpty() && !m_out.endsWith(u'\n');
        m_space = false;
    }
    void space() { m_space = !m_out.isEmpty() && !m_out.endsWith(u'\n'); }
    void lineBreak()
    {
        flushBreak();
        m_out += u'\n';
        m_space = false;
    }
    QString result() const { return m_out.isNull() ? QStringLiteral("") : m_out; }

private:
    void flushBreak()
    {
        if (m_break) {
            m_out += u'\n';
            m_break = false;
            m_space = false;
        }
    }
    QString m_out;
    bool m_space = false;
    bool m_break = false;
};
} // namespace

QString stringByExpandingHTMLEntities(const QString &s)
{
    const QByteArray html = limitNesting(s.toUtf8());
    GumboOptions options = kGumboDefaultOptions;
    options.max_errors = 0; // each error keeps a copy of the open elements
    GumboOutput *output = gumbo_parse_with_options(&options, html.constData(), size_t(html.size()));
    PlainText out;
    int keepWhiteSpace = 0;
    // Depth-first without recursion: (node, next child) pairs.
    std::vector<std::pair<const GumboNode *, unsigned>> stack { { output->root, 0 } };
    while (!stack.empty()) {
        auto &[node, next] = stack.back();
        if (node->type != GUMBO_NODE_ELEMENT && node->type != GUMBO_NODE_TEMPLATE) {
            if (node->type != GUMBO_NODE_COMMENT)
                out.text(QString::fromUtf8(node->v.text.text), keepWhiteSpace > 0);
            stack.pop_back();
            continue;
        }
        const GumboElement &e = node->v.element;
        if (next == 0) {
            if (isHidden(e.tag)) {
                stack.pop_back();
                continue;
            }
            if (isBlock(e.tag))
                out.blockBoundary();
            if (e.tag == GUMBO_TAG_BR)
                out.lineBreak();
            if (keepsWhiteSpace(e.tag))
                ++keepWhiteSpace;
        }
        if (next < e.children.length) {
            const auto *child = static_cast<const GumboNode *>(e.children.data[next++]);
            stack.emplace_back(child, 0);
            continue;
        }
        if (isBlock(e.tag))
            out.blockBoundary();
        else if (e.tag == GUMBO_TAG_TD || e.tag == GUMBO_TAG_TH)
            out.space();
        if (keepsWhiteSpace(e.tag))
            --keepWhiteSpace;
        stack.pop_back();
    }
    gumbo_destroy_output(&options, output);
    return out.result();
}

} // namespace StringExtensions

# SPDX-FileCopyrightText: 2026 Quillet developers
# SPDX-License-Identifier: MIT
"""Reference plain text of HTML fragments, on Python's html.parser.

Writes a JSON array of [fragment, text] for 400 fragments made of random
pieces (comments, script, style, attributes holding ">", pre, nested blocks,
broken markup; every third a whole document). The text: comments, head,
title, script, style and template dropped; white-space runs one space (none
at a line start), kept in pre; block elements a line break before further
text; <br> a line break.
"""
import json
import random
from html.parser import HTMLParser

PIECES = ["alpha", "beta gamma", "  spaced\t\nout  ", "a &amp; b", "&lt;tag&gt;", "caf&eacute;",
          "x &notit; y", "1 < 2", "&#x41;&#66;", "<b>", "</b>", "<i>", "</i>", "<span>", "</span>",
          "</em>", "<p>", "</p>", "<div>", "</div>", "<br>", "<br/>", "<ul><li>one<li>two</ul>",
          "<ol>\n<li>x</li>\n</ol>", "<!-- a > b -->", "<!---->",
          "<script>if (a < b) { x = '</p>'; }</script>", "<style>p > a { color: red }</style>",
          "<a href=\"b>\">link</a>", "<a title='x > y'>t</a>", "<pre>  keep\n   this  </pre>",
          "<h1>Head</h1>", "<blockquote>q</blockquote>", "<img src=x alt=y>",
          "<div><div>in</div>out</div>"]

HIDDEN = {"head", "title", "script", "style", "template"}
BLOCK = set("""address article aside blockquote caption center dd details dir
div dl dt fieldset figcaption figure footer form h1 h2 h3 h4 h5 h6 header hgroup
hr legend li listing main menu nav ol p pre section summary table tr ul""".split())
KEEP = {"pre", "listing", "textarea", "plaintext"}
VOID = {"area", "base", "br", "col", "embed", "hr", "img", "input", "link", "meta",
        "param", "source", "track", "wbr"}


class Text(HTMLParser):
    def __init__(self):
        super().__init__(convert_charrefs=True)
        self.out, self.space, self.brk, self.hidden, self.keep = "", False, False, 0, 0
        self.opened = {}

    def at_line_start(self):
        return self.out == "" or self.out.endswith("\n")

    def boundary(self):
        self.brk, self.space = not self.at_line_start(), False

    def flush(self):
        if self.brk:
            self.out, self.brk, self.space = self.out + "\n", False, False

    def handle_starttag(self, tag, attrs):
        if tag not in VOID:
            self.opened[tag] = self.opened.get(tag, 0) + 1
        if tag in HIDDEN:
            self.hidden += 1
        if self.hidden:
            return
        if tag in BLOCK:
            self.boundary()
        if tag == "br":
            self.flush()
            self.out, self.space = self.out + "\n", False
        if tag in KEEP:
            self.keep += 1

    def handle_endtag(self, tag):
        # An end tag closes only an element that is open (a tree builder
        # ignores the others), except </p>, which stands for an empty p.
        if self.opened.get(tag, 0) == 0:
            if tag == "p" and not self.hidden:
                self.boundary()
            return
        self.opened[tag] -= 1
        if tag in HIDDEN:
            self.hidden -= 1
            return
        if self.hidden:
            return
        if tag in BLOCK:
            self.boundary()
        elif tag in ("td", "th"):
            self.space = not self.at_line_start()
        if tag in KEEP:
            self.keep -= 1

    def handle_data(self, data):
        if self.hidden:
            return
        for c in data:
            if not self.keep and c in " \t\n\r\f":
                self.space = not self.at_line_start()
                continue
            self.flush()
            if self.space and not self.keep:
                self.out += " "
            self.space = False
            self.out += c


def text(fragment):
    p = Text()
    p.feed(fragment)
    p.close()
    return p.out


rng = random.Random(11)
fragments = []
for i in range(400):
    body = "".join(rng.choice(PIECES) for _ in range(rng.randint(1, 11)))
    fragments.append(body if i % 3 else "<!DOCTYPE html><html><head><title>T</title>"
                     "<style>s</style></head><body>" + body + "</body></html>")
print(json.dumps([[f, text(f)] for f in fragments]))

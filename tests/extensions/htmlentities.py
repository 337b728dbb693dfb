# SPDX-FileCopyrightText: 2026 Quillet developers
# SPDX-License-Identifier: MIT
"""Reference expansions of every named character reference, by Python's html.

Python's html module carries its own copy of the standard's full list of
named references and an independent tokenizer. Writes [text, expanded] for
"x&NAMEy" and "&NAME" of every name; white space a reference produces (&Tab;,
&NewLine;) is shown collapsed, as any.
"""
import html
import html.entities
import json
import re

names = sorted(html.entities.html5)
cases = ["x&" + n + "y" for n in names] + ["&" + n for n in names]
show = lambda t: re.sub("[ \t\n\r\f]+", " ", t).strip(" ")
print(json.dumps([[c, show(html.unescape(c))] for c in cases]))

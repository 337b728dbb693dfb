# SPDX-FileCopyrightText: 2026 Quillet developers
# SPDX-License-Identifier: MIT
"""Samples for encoding detection, written by Python's codecs.

Writes a JSON array of [label, text, bytes as hex]. The English sample has
an even length, so that ASCII read as UTF-16 would be a plausible misreading.
"""
import json

en = "The quick brown fox jumps over the lazy dog. It is 7 o'clock.\n" * 4
fr = "Naïve café, résumé, déjà vu; où est la forêt? Ça va très bien.\n" * 4
ja = "日本語のテキストです。これはシフトJISで書かれたファイルです。\n" * 4
ru = "Привет, мир! Это текст в кодировке, написанный по-русски.\n" * 4
assert len(en) % 2 == 0
cases = [("ascii", en, "ascii", b""), ("utf-8", fr, "utf-8", b""), ("latin-1", fr, "latin-1", b""),
         ("utf-16 le with mark", fr, "utf-16", b""), ("utf-16 be with mark", ru, "utf-16-be", b"\xfe\xff"),
         ("utf-16 le", fr, "utf-16-le", b""), ("utf-16 be", ru, "utf-16-be", b""),
         ("shift_jis", ja, "shift_jis", b""), ("windows-1251", ru, "cp1251", b""),
         ("utf-8 japanese", ja, "utf-8", b"")]
print(json.dumps([[label, text, (mark + text.encode(codec)).hex()]
                  for label, text, codec, mark in cases]))

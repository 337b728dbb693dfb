#!/usr/bin/env python3
# SPDX-FileCopyrightText: 2026 Quillet developers
# SPDX-License-Identifier: MIT
"""Draws the sample product's icon and writes it as Sample.icns (one 256x256
PNG entry, 'ic08'). Standard library only."""
import math, struct, sys, zlib

SIZE = 256

def pixel(x, y):
    cx = cy = SIZE / 2
    r = math.hypot(x + 0.5 - cx, y + 0.5 - cy)
    if r > 118:
        return (0, 0, 0, 0)
    edge = max(0.0, min(1.0, 118 - r))
    t = y / SIZE
    # a blue disc with a lighter quill stroke across it
    red, green, blue = int(40 + 40 * t), int(110 + 60 * t), int(210 - 30 * t)
    d = abs(0.8 * (x - cx) + 0.6 * (y - cy))
    if d < 10 and r < 95:
        red, green, blue = 250, 246, 230
    return (red, green, blue, int(255 * edge))

def png():
    rows = b"".join(b"\x00" + b"".join(bytes(pixel(x, y)) for x in range(SIZE)) for y in range(SIZE))
    def chunk(kind, data):
        return struct.pack(">I", len(data)) + kind + data + struct.pack(">I", zlib.crc32(kind + data) & 0xffffffff)
    return (b"\x89PNG\r\n\x1a\n" + chunk(b"IHDR", struct.pack(">IIBBBBB", SIZE, SIZE, 8, 6, 0, 0, 0))
            + chunk(b"IDAT", zlib.compress(rows, 9)) + chunk(b"IEND", b""))

data = png()
entry = b"ic08" + struct.pack(">I", 8 + len(data)) + data
out = sys.argv[1] if len(sys.argv) > 1 else "."
open(f"{out}/Sample.icns", "wb").write(b"icns" + struct.pack(">I", 8 + len(entry)) + entry)

#!/usr/bin/env python3
# SPDX-FileCopyrightText: 2026 Quillet developers
# SPDX-License-Identifier: MIT
"""Makes the installer's sounds, reproducibly, with the standard library:
Done.wav, a two-note chime (0.7 s), and SoundOfSilence.wav (0.2 s of
silence, played quietly to wake the audio output up)."""
import math, struct, wave

RATE = 44100

def write(name, samples):
    with wave.open(name, "wb") as w:
        w.setnchannels(1)
        w.setsampwidth(2)
        w.setframerate(RATE)
        w.writeframes(b"".join(struct.pack("<h", max(-32767, min(32767, int(s * 32767)))) for s in samples))

def chime():
    notes = [(0.0, 880.0), (0.12, 1318.5)]  # A5, then E6
    length = int(0.7 * RATE)
    out = [0.0] * length
    for start, freq in notes:
        begin = int(start * RATE)
        for i in range(begin, length):
            t = (i - begin) / RATE
            envelope = min(1.0, t / 0.005) * math.exp(-t * 6.0)
            out[i] += 0.35 * envelope * (math.sin(2 * math.pi * freq * t) + 0.25 * math.sin(4 * math.pi * freq * t))
    return out

write("Done.wav", chime())
write("SoundOfSilence.wav", [0.0] * int(0.2 * RATE))

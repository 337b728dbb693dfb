# SPDX-FileCopyrightText: 2026 Quillet developers
# SPDX-License-Identifier: MIT
"""Reference decodings by glibc's iconv, in one process.

Reads a JSON array of samples (hex) on standard input and writes, for every
name `iconv -l` lists, [name, [text or null per sample]]: the text as
`iconv -f NAME -t UTF-8` gives it, null where that command fails (unknown
name, invalid or incomplete input).
"""
import ctypes
import json
import subprocess
import sys

libc = ctypes.CDLL(None, use_errno=True)
libc.iconv_open.restype = ctypes.c_void_p
libc.iconv_open.argtypes = [ctypes.c_char_p, ctypes.c_char_p]
libc.iconv.restype = ctypes.c_size_t
libc.iconv.argtypes = [ctypes.c_void_p, ctypes.POINTER(ctypes.c_char_p),
                       ctypes.POINTER(ctypes.c_size_t), ctypes.POINTER(ctypes.c_char_p),
                       ctypes.POINTER(ctypes.c_size_t)]
libc.iconv_close.argtypes = [ctypes.c_void_p]
FAILED = ctypes.c_size_t(-1).value


def decode(name, data):
    cd = libc.iconv_open(b"UTF-8", name.encode())
    if cd is None or cd == ctypes.c_void_p(-1).value:
        return None
    try:
        inbuf = ctypes.create_string_buffer(data, len(data))
        outbuf = ctypes.create_string_buffer(16 * len(data) + 64)
        inp, outp = ctypes.c_char_p(ctypes.addressof(inbuf)), ctypes.c_char_p(ctypes.addressof(outbuf))
        inleft, outleft = ctypes.c_size_t(len(data)), ctypes.c_size_t(len(outbuf))
        # Like the command: the whole input, then the shift state flushed.
        if libc.iconv(cd, ctypes.byref(inp), ctypes.byref(inleft), ctypes.byref(outp),
                      ctypes.byref(outleft)) == FAILED:
            return None
        if libc.iconv(cd, None, None, ctypes.byref(outp), ctypes.byref(outleft)) == FAILED:
            return None
        return outbuf.raw[:len(outbuf) - outleft.value].decode("utf-8")
    finally:
        libc.iconv_close(cd)


samples = [bytes.fromhex(s) for s in json.load(sys.stdin)]
listed = subprocess.run(["iconv", "-l"], capture_output=True, text=True, check=True).stdout
names = listed.replace(",", "\n").replace("//", "").split()
print(json.dumps([[n, [decode(n, s) for s in samples]] for n in names]))

#!/usr/bin/python3
"""libmix from Python, by ctypes: the fragment settings, and the IPv6 neighbours as a list of dictionaries.

LD_LIBRARY_PATH=build/release/lib lets a libmix be found that is not installed."""
import ctypes
import ipaddress
import json
import os
import sys

# The answer goes to standard output; what the C library prints there to standard error.
answer = os.fdopen(os.dup(1), "w")
os.dup2(2, 1)

libmix = ctypes.CDLL("libmix.so.1")
# Failures are told through any function that is shaped like printf: the C library's own.
printf = ctypes.cast(ctypes.CDLL(None).printf, ctypes.c_void_p)
ROW_CALLBACK = ctypes.CFUNCTYPE(ctypes.c_int, ctypes.c_void_p, ctypes.c_void_p, ctypes.c_int)

libmix.get_ipdefrag_para.argtypes = [ctypes.POINTER(ctypes.c_uint32), ctypes.POINTER(ctypes.c_uint32), ctypes.c_void_p]
libmix.get_nd_items.restype = ctypes.c_uint32
libmix.get_nd_items.argtypes = [ctypes.c_uint16, ctypes.c_char_p, ROW_CALLBACK, ctypes.c_void_p, ctypes.c_void_p,
                                ctypes.c_uint32, ctypes.c_int32, ctypes.c_uint32, ctypes.c_uint32]
ROW_SIZE = 64


def fragment_settings():
    limit, seconds = ctypes.c_uint32(), ctypes.c_uint32()
    if libmix.get_ipdefrag_para(ctypes.byref(limit), ctypes.byref(seconds), printf) < 0:
        sys.exit(1)
    return {"limit": limit.value, "seconds": seconds.value}


def neighbours():
    found = []

    def keep(row, _context, _first):
        data = ctypes.string_at(row, ROW_SIZE)  # the row is gone after the call: copied
        found.append({"address": str(ipaddress.IPv6Address(data[0:16])),
                      "interface": data[22:54].split(b"\0")[0].decode(),
                      "mac": ":".join(f"{byte:02x}" for byte in data[54:60])})
        return 0

    libmix.get_nd_items(0, None, ROW_CALLBACK(keep), None, printf, 0, 0, 0, 0)
    return found


print(json.dumps({"fragment": fragment_settings(), "neighbours": neighbours()}, indent=4), file=answer)

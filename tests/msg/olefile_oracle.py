#!/usr/bin/python3
"""Independent reading of .msg files with olefile, for the corpus tests.

For each file given, prints one JSON line: the subject and plain body as the
file stores them (UTF-16 stream, else the 8-bit one read as Windows-1252),
and the FNV-1a 64-bit hash and size of every attachment's data stream (embedded
messages, attachment method 5, left out).
"""
import json
import struct
import sys

import olefile


def fnv1a64(data):
    value = 0xCBF29CE484222325
    for byte in data:
        value ^= byte
        value = (value * 0x100000001B3) & 0xFFFFFFFFFFFFFFFF
    return "%016x" % value


def text(ole, storage, prop):
    for suffix, encoding in (("001F", "utf-16-le"), ("001E", "cp1252")):
        path = storage + ["__substg1.0_" + prop + suffix]
        if ole.exists(path):
            data = ole.openstream(path).read()
            if data:
                return data.decode(encoding, errors="replace")
    return None


def method(ole, storage):
    path = storage + ["__properties_version1.0"]
    if not ole.exists(path):
        return None
    data = ole.openstream(path).read()[8:]
    for offset in range(0, len(data) - 15, 16):
        kind, ident = struct.unpack_from("<HH", data, offset)
        if kind == 0x0003 and ident == 0x3705:
            return struct.unpack_from("<I", data, offset + 8)[0]
    return None


def main():
    for name in sys.argv[1:]:
        result = {"file": name}
        try:
            ole = olefile.OleFileIO(name)
        except Exception as error:  # noqa: BLE001 - report and go on
            result["error"] = str(error)
            print(json.dumps(result))
            continue
        result["subject"] = text(ole, [], "0037")
        result["body"] = text(ole, [], "1000")
        attachments = []
        for entry in ole.listdir(streams=False, storages=True):
            if len(entry) != 1 or not entry[0].lower().startswith("__attach"):
                continue
            if method(ole, entry) == 5:
                continue
            path = entry + ["__substg1.0_37010102"]
            if ole.exists(path):
                data = ole.openstream(path).read()
                if data:
                    attachments.append({"hash": fnv1a64(data), "size": len(data)})
        result["attachments"] = attachments
        print(json.dumps(result))


if __name__ == "__main__":
    main()

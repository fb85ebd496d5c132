#!/usr/bin/env python3
"""Lists compound files with python3-olefile, an independent reader, for the
agreement test: for each file one JSON line, {"file", "entries": {"/path":
null for a storage, {"size", "base64" of the exact contents} for a stream}}.
Exit 3 when olefile is missing."""
import base64
import json
import sys

try:
    import olefile
except ImportError:
    sys.exit(3)


def clean(name):
    # The reader under test drops control characters from names.
    return "".join(c for c in name if ord(c) >= 32)


def listing(path):
    ole = olefile.OleFileIO(path)
    entries = {}
    for parts in ole.listdir(streams=True, storages=True):
        joined = "/".join(parts)
        shown = "/" + "/".join(clean(p) for p in parts)
        kind = ole.get_type(joined)
        if kind == olefile.STGTY_STREAM:
            data = ole.openstream(joined).read()
            entries[shown] = {"size": ole.get_size(joined), "base64": base64.b64encode(data).decode()}
        elif kind == olefile.STGTY_STORAGE:
            entries[shown] = None
    sys.stdout.write(json.dumps({"file": path, "entries": entries}) + "\n")


if __name__ == "__main__":
    for argument in sys.argv[1:]:
        listing(argument)

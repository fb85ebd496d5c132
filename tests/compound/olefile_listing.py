#!/usr/bin/env python3
"""Lists compound files with python3-olefile, an independent reader, for the
agreement test: for each file a line "F\t<file>", then one line per storage
("D\t/path") and per stream ("S\t/path\tsize\thex of the exact contents").
Exit 3 when olefile is missing."""
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
    out = ["F\t%s" % path]
    for parts in ole.listdir(streams=True, storages=True):
        joined = "/".join(parts)
        shown = "/" + "/".join(clean(p) for p in parts)
        kind = ole.get_type(joined)
        if kind == olefile.STGTY_STREAM:
            data = ole.openstream(joined).read()
            out.append("S\t%s\t%d\t%s" % (shown, ole.get_size(joined), data.hex()))
        elif kind == olefile.STGTY_STORAGE:
            out.append("D\t%s" % shown)
    sys.stdout.write("\n".join(out) + "\n")


if __name__ == "__main__":
    for argument in sys.argv[1:]:
        listing(argument)

#!/usr/bin/python3
"""Independent reading of TNEF streams with Debian's `tnef` program.

For each file given, prints one JSON line: {"file", "exit" (the status of
extracting), "files" ({name: base64 of the bytes} as tnef writes them),
"dumpExit" (the status of its attribute dump), "dumped" (whether it printed
anything), and from that dump "subject",
"from" ({"name", "address"}) and "body" ("" when the dump has none)}.
"""
import base64
import json
import os
import subprocess
import sys
import tempfile

TNEF = "/usr/bin/tnef"


def dump_value(dump, marker):
    """The value printed after `marker`: "='v'" on its line for an attribute,
    "= 'v'" on the next for a MAPI property; "" when absent."""
    at = dump.find(marker)
    if at < 0:
        return ""
    quote = dump.find("'", at)
    if quote < 0:
        return ""
    end = dump.find("'\n", quote + 1)
    return "" if end < 0 else dump[quote + 1:end]


def first_of(dump, *markers):
    for marker in markers:
        value = dump_value(dump, marker)
        if value:
            return value
    return ""


def read(path):
    with tempfile.TemporaryDirectory() as folder:
        extract = subprocess.run([TNEF, "--overwrite", "-f", path, "-C", folder], capture_output=True)
        files = {}
        for name in os.listdir(folder):
            with open(os.path.join(folder, name), "rb") as handle:
                files[os.fsencode(name).decode("utf-8", "replace")] = base64.b64encode(handle.read()).decode()
    run = subprocess.run([TNEF, "--debug", "-t", "-f", path], capture_output=True)
    dump = (run.stdout + run.stderr).decode("utf-8", "replace")
    address = first_of(dump, "(MAPI) 5d02 ", "(MAPI) 5d01 ",  # the SMTP addresses have no name in the dump
                       "MAPI_SENT_REPRESENTING_EMAIL_ADDRESS <0065>", "MAPI_SENDER_EMAIL_ADDRESS <0c1f>",
                       "sender_address=")
    return {
        "file": path,
        "exit": extract.returncode,
        "files": files,
        "dumpExit": run.returncode,
        "dumped": bool(dump),
        "subject": first_of(dump, "MAPI_SUBJECT <0037>", "(MESS) Subject <8004>", "MAPI_CONVERSATION_TOPIC <0070>"),
        "from": {
            "name": first_of(dump, "MAPI_SENT_REPRESENTING_NAME <0042>", "MAPI_SENDER_NAME <0c1a>",
                             "sender_display_name="),
            "address": address[5:] if address.startswith("SMTP:") else address,
        },
        "body": first_of(dump, "MAPI_BODY <1000>", "(MESS) Body <800c>"),
    }


if __name__ == "__main__":
    for argument in sys.argv[1:]:
        sys.stdout.write(json.dumps(read(argument)) + "\n")

#!/usr/bin/env python3
"""Independent reading of an Internet message with Python's email package.

Prints one JSON object per message named on the command line, one per line: subject, from/to/cc addresses, the first text/plain and
text/html bodies (as text), and every part that carries a file name (lower-cased
name, base64 of the decoded bytes). Used by the corpus test as its oracle.
"""
import base64
import email
import email.policy
import email.utils
import json
import sys


def addresses(msg, name):
    values = msg.get_all(name, [])
    return [addr for _, addr in email.utils.getaddresses([str(v) for v in values]) if addr]


def text_of(part):
    try:
        return part.get_content()
    except Exception:
        payload = part.get_payload(decode=True) or b""
        return payload.decode("utf-8", "replace")


def read(path):
    with open(path, "rb") as handle:
        msg = email.message_from_bytes(handle.read(), policy=email.policy.default)
    result = {
        "subject": str(msg.get("subject", "")),
        "from": addresses(msg, "from"),
        "to": addresses(msg, "to"),
        "cc": addresses(msg, "cc"),
        "plain": None,
        "html": None,
        "attachments": [],
    }
    for part in msg.walk():
        if part.is_multipart():
            continue
        name = part.get_filename()
        if name:
            data = part.get_payload(decode=True) or b""
            result["attachments"].append({"name": name.lower(), "base64": base64.b64encode(data).decode()})
            continue
        kind = part.get_content_type()
        if kind == "text/plain" and result["plain"] is None:
            result["plain"] = text_of(part)
        elif kind == "text/html" and result["html"] is None:
            result["html"] = text_of(part)
    return result


if __name__ == "__main__":
    for path in sys.argv[1:]:
        sys.stdout.write(json.dumps(read(path)) + "\n")

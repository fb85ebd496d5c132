#!/usr/bin/env python3
"""Checks MIME messages with Python's email package (policy default), an
oracle independent of ours. For each file given, prints one JSON line:
{"file", "problems": [...], "subject", "message_id", "date" (Unix seconds),
"from", "to", "cc", "bcc", "reply_to" ([[name, address], ...]), "plain",
"html" (the bodies a mail client shows), "parts" (every content type),
"attachments" ([{"name", "type", "base64"}]: every other leaf part and
attached message, the latter without its bytes)}.
A problem is a defect on the message or any part, a header defect, a line
longer than 998 characters, a bare CR or LF, a multipart whose closing
boundary is missing, or a text part that does not decode in its charset.

Python registers two header defects for the RFC 2047 `name` parameter that
old clients need ("encoded word inside quoted string" and the missing white
space after it); they are expected on Content-Type and are not reported.
"""
import base64
import json
import re
import sys
from email import policy
from email.parser import BytesParser

EXPECTED_NAME_DEFECTS = ("encoded word inside quoted string", "missing trailing whitespace after encoded-word")


def header_problems(part):
    problems = []
    for name, value in part.items():
        for defect in getattr(value, "defects", ()):
            text = str(defect)
            if name.lower() == "content-type" and any(e in text for e in EXPECTED_NAME_DEFECTS):
                continue
            problems.append("%s: %s: %s" % (name, type(defect).__name__, text))
    return problems


def line_problems(raw):
    problems = []
    if re.search(rb"\r(?!\n)", raw) or re.search(rb"(?<!\r)\n", raw):
        problems.append("bare CR or LF")
    for number, line in enumerate(raw.split(b"\r\n"), 1):
        if len(line) > 998:
            problems.append("line %d has %d characters" % (number, len(line)))
            break
    return problems


def closing_problems(message, raw):
    problems = []
    for part in message.walk():
        if part.get_content_maintype() == "multipart":
            boundary = part.get_boundary()
            if boundary is None:
                problems.append("multipart without boundary")
            elif b"--" + boundary.encode("ascii", "replace") + b"--" not in raw:
                problems.append("boundary %s never closed" % boundary)
    return problems


def leaves(part):
    """The leaf parts and attached messages, not descending into the latter."""
    if part.get_content_maintype() == "multipart":
        for child in part.iter_parts():
            yield from leaves(child)
    else:
        yield part


def addresses(message, name):
    value = message.get(name)
    if value is None:
        return []
    return [[a.display_name, a.addr_spec] for a in value.addresses if a.addr_spec and a.addr_spec != "<>"]


def check(path):
    raw = open(path, "rb").read()
    message = BytesParser(policy=policy.default).parsebytes(raw)
    problems = line_problems(raw) + closing_problems(message, raw)
    parts = []
    for part in message.walk():
        for defect in part.defects:
            problems.append("%s: %s: %s" % (part.get_content_type(), type(defect).__name__, defect))
        problems.extend(header_problems(part))
        parts.append(part.get_content_type())

    bodies = {}
    for kind in ("plain", "html"):
        body = message.get_body((kind,))
        if body is not None and body.get_content_type() == "text/" + kind:
            bodies[kind] = body
    attachments = []
    for part in leaves(message):
        if any(part is body for body in bodies.values()):
            continue
        if part.get_content_maintype() == "text":
            try:
                part.get_content()
            except Exception as error:  # a charset that does not decode
                problems.append("%s: %s" % (part.get_content_type(), error))
        if part.get_content_type() == "message/rfc822":
            data = b""
        else:
            data = part.get_payload(decode=True) or b""
        attachments.append({"name": part.get_filename() or "", "type": part.get_content_type(),
                            "base64": base64.b64encode(data).decode("ascii")})

    def text(name):
        value = message.get(name)
        return None if value is None else str(value)

    date = message.get("Date")
    return {"file": path, "problems": problems, "subject": text("Subject"), "message_id": text("Message-ID"),
            "date": date.datetime.timestamp() if date is not None and date.datetime is not None else None,
            "from": addresses(message, "From"), "to": addresses(message, "To"), "cc": addresses(message, "Cc"),
            "bcc": addresses(message, "Bcc"), "reply_to": addresses(message, "Reply-To"),
            "plain": bodies["plain"].get_content() if "plain" in bodies else None,
            "html": bodies["html"].get_content() if "html" in bodies else None,
            "parts": parts, "attachments": attachments}


def main(paths):
    for path in paths:
        print(json.dumps(check(path), ensure_ascii=False))
    return 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))

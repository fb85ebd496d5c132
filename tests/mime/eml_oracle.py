#!/usr/bin/env python3
"""Independent reading of an Internet message with Python's email package.

Prints one JSON object per message named on the command line, one per line:
subject, from/to/cc addresses, the first text/plain and text/html bodies (as
text), and every part that carries a file name (lower-cased name, base64 of
the decoded bytes). Used by the corpus test as its oracle for the classic
reading. Under "complete" the same message as a mail client shows it: the
address lists with names, the date in UTC, the message identifiers, and every
leaf part (an attached message is one leaf) that is not the first unnamed
plain or HTML body, with its type, content id and bytes.
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


def mailboxes(msg, name):
    out = []
    for value in msg.get_all(name, []):
        try:
            found = [[a.display_name, a.addr_spec] for a in value.addresses]
        except Exception:
            found = [[n, a] for n, a in email.utils.getaddresses([str(value)])]
        out.extend(entry for entry in found if entry[1])
    return out


def text_of(part):
    try:
        return part.get_content()
    except Exception:
        payload = part.get_payload(decode=True) or b""
        return payload.decode("utf-8", "replace")


def leaves(part):
    """Leaf parts in order; an attached message is a leaf."""
    if part.is_multipart() and part.get_content_type() != "message/rfc822":
        for sub in part.get_payload():
            yield from leaves(sub)
    else:
        yield part


def complete(msg):
    date = None
    try:
        stamp = msg["date"].datetime if msg["date"] is not None else None
        if stamp is not None and stamp.tzinfo is not None:
            date = stamp.astimezone(__import__("datetime").timezone.utc).strftime("%Y-%m-%dT%H:%M:%SZ")
    except Exception:
        date = None
    result = {
        "from": mailboxes(msg, "from"),
        "to": mailboxes(msg, "to"),
        "cc": mailboxes(msg, "cc"),
        "replyTo": mailboxes(msg, "reply-to"),
        "date": date,
        "messageId": str(msg.get("message-id", "")).strip(),
        "plain": None,
        "html": None,
        "attachments": [],
    }
    for part in leaves(msg):
        kind = part.get_content_type()
        name = part.get_filename()
        disposition = part.get_content_disposition()
        if not name and disposition != "attachment":
            if kind == "text/plain" and result["plain"] is None:
                result["plain"] = text_of(part)
                continue
            if kind == "text/html" and result["html"] is None:
                result["html"] = text_of(part)
                continue
        if kind == "message/rfc822":
            data = None  # the attached message as Python writes it again, not as sent
        else:
            data = base64.b64encode(part.get_payload(decode=True) or b"").decode()
        cid = part.get("content-id")
        result["attachments"].append({
            "name": name,
            "type": kind,
            "contentId": str(cid).strip().strip("<>") if cid else None,
            "base64": data,
        })
    return result


def clean(value):
    """Raw 8-bit header bytes come back from the email package as lone
    surrogates; give them as UTF-8 (U+FFFD where they are not) so the JSON
    stays valid."""
    if isinstance(value, str):
        return value.encode("utf-8", "surrogateescape").decode("utf-8", "replace")
    if isinstance(value, list):
        return [clean(v) for v in value]
    if isinstance(value, dict):
        return {k: clean(v) for k, v in value.items()}
    return value


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
        "complete": clean(complete(msg)),
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

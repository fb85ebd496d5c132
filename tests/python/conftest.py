"""Shared pieces of the Python package's tests: the built command, the corpus
of real messages, and the command's JSON form of Python values."""
import base64
import datetime
import json
import math
import os
import re
import subprocess
from pathlib import Path

import pytest

CLI = os.environ.get("QH_CLI", "")
CORPUS = Path(os.environ.get("QH_CORPUS_DIR", ""))
# The extension is built with the sanitizers and runs under their runtime.
SANITIZED = os.environ.get("QH_SANITIZED") == "1"


def corpus_messages():
    """Every message file of the corpus (not the expected outputs beside them), sorted."""
    if not os.environ.get("QH_CORPUS_DIR") or not CORPUS.is_dir():
        return []
    found = []
    for kind in ("msg", "eml", "tnef"):
        folder = CORPUS / kind
        if folder.is_dir():
            found += [p for p in folder.iterdir() if p.is_file() and ".expected" not in p.name]
    return sorted(found)


MESSAGES = corpus_messages()
needs_corpus = pytest.mark.skipif(not MESSAGES, reason="no corpus")


def message_params():
    """The corpus messages as parameters named by file."""
    return [pytest.param(p, id=f"{p.parent.name}/{p.name}") for p in MESSAGES] or [
        pytest.param(None, marks=pytest.mark.skip(reason="no corpus"), id="no-corpus")
    ]


def run_cli(*args, cwd=None):
    """Runs the built command; its CompletedProcess with stdout as bytes."""
    if not CLI:
        pytest.skip("QH_CLI does not name the built command")
    return subprocess.run([CLI, *map(str, args)], capture_output=True, cwd=cwd, check=False)


def to_command_json(value):
    """A value from the package in the command's JSON form: bytes as
    {"$base64": ...}, dates as {"$date": "...Z"} (whole seconds, UTC),
    integral floats as integers, dictionaries in their order."""
    if value is None or isinstance(value, (bool, str, int)):
        return value
    if isinstance(value, float):
        if not math.isfinite(value):
            return None
        if value == math.floor(value) and abs(value) < 9e15:
            return int(value)
        return value
    if isinstance(value, bytes):
        return {"$base64": base64.b64encode(value).decode("ascii")}
    if isinstance(value, datetime.datetime):
        assert value.tzinfo is not None, "dates must be timezone-aware"
        return {"$date": value.astimezone(datetime.timezone.utc).strftime("%Y-%m-%dT%H:%M:%SZ")}
    if isinstance(value, list):
        return [to_command_json(item) for item in value]
    if isinstance(value, dict):
        return {key: to_command_json(item) for key, item in value.items()}
    raise AssertionError(f"unexpected type {type(value).__name__}")


# MIME boundaries are random UUIDs, different on every run of the writer.
_UUID = re.compile(rb"[0-9A-Fa-f]{8}-[0-9A-Fa-f]{4}-[0-9A-Fa-f]{4}-[0-9A-Fa-f]{4}-[0-9A-Fa-f]{12}")


_UUID_TEXT = re.compile(_UUID.pattern.decode("ascii"))
_BASE64_LINE = re.compile(rb"[A-Za-z0-9+/]+=*\r?")


def without_uuids(data: bytes, depth: int = 0) -> bytes:
    """`data` with every random boundary replaced by one marker, also inside
    base64 blocks (a converted message attached to a converted message)."""
    data = _UUID.sub(b"<uuid>", data)
    if depth >= 4:
        return data
    lines = data.split(b"\n")
    out, run = [], []

    def flush():
        block = b"".join(line.rstrip(b"\r") for line in run)
        try:
            decoded = base64.b64decode(block, validate=True) if len(run) > 1 else None
        except ValueError:
            decoded = None
        if decoded is None:
            out.extend(run)
        else:
            out.append(b"<base64>" + without_uuids(decoded, depth + 1) + b"</base64>")
        run.clear()

    for line in lines:
        if _BASE64_LINE.fullmatch(line):
            run.append(line)
        else:
            flush()
            out.append(line)
    flush()
    return b"\n".join(out)


def _steady(document):
    """The document with the random boundaries inside its byte buffers and
    texts replaced by one marker."""
    if isinstance(document, list):
        return [_steady(item) for item in document]
    if isinstance(document, dict):
        if set(document) == {"$base64"}:
            data = base64.b64decode(document["$base64"])
            return {"$base64": base64.b64encode(without_uuids(data)).decode("ascii")}
        return {key: _steady(item) for key, item in document.items()}
    if isinstance(document, str):
        return _UUID_TEXT.sub("<uuid>", document)
    return document


def json_text(document):
    """One canonical text of a JSON document, keeping the order of keys,
    random MIME boundaries replaced."""
    return json.dumps(_steady(document), ensure_ascii=False, separators=(",", ":"))


# The command's flags for each reading, and the package's keywords for it.
READINGS = {
    "complete": ([], {}),
    "classic": (["--classic"], {"classic": True}),
    "whole_sectors": (["--whole-sectors"], {"whole_sectors": True}),
}


@pytest.fixture(scope="session")
def command_documents():
    """{(command, reading): {path: JSON text}} from one run of the command per
    command and reading over the whole corpus (JSON Lines, one job)."""
    cache = {}

    def get(command, reading):
        key = (command, reading)
        if key not in cache:
            flags, _ = READINGS[reading]
            done = run_cli(command, "-j", "1", *flags, *MESSAGES)
            documents = {}
            for line in done.stdout.decode("utf-8").splitlines():
                record = json.loads(line)
                documents[record["file"]] = json_text(record["result"])
            assert len(documents) == len(MESSAGES), done.stderr.decode(errors="replace")
            cache[key] = documents
        return cache[key]

    return get


def pytest_configure(config):
    # Debian 12's distributed starts its event loop in a way tornado 6.2 warns about.
    config.addinivalue_line("filterwarnings", "ignore:make_current is deprecated:DeprecationWarning")

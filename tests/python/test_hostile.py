"""Bad input raises a Python exception or gives no message, and never
crashes the interpreter: wrong arguments, unreadable files, and broken
messages (cut short, or with bytes changed) through every function."""
import io
import random

import pytest

import quillhaven
from conftest import MESSAGES

COMPOUND_MAGIC = bytes.fromhex("D0CF11E0A1B11AE1")
TNEF_MAGIC = bytes.fromhex("789F3E22")


@pytest.mark.parametrize(
    "call, error",
    [
        (lambda: quillhaven.read(b"x", kind="zip"), ValueError),
        (lambda: quillhaven.read(b"x", kind=""), ValueError),
        (lambda: quillhaven.convert(b"x", kind="MSG"), ValueError),
        (lambda: quillhaven.attachments(b"x", kind="pdf"), ValueError),
        (lambda: quillhaven.read(b"x", kind=3), TypeError),
        (lambda: quillhaven.read("/nonexistent/quillhaven/mail.msg"), FileNotFoundError),
        (lambda: quillhaven.read("/"), IsADirectoryError),
        (lambda: quillhaven.preview("/nonexistent/mail.msg"), OSError),
        (lambda: quillhaven.read(12), TypeError),
        (lambda: quillhaven.read(None), TypeError),
        (lambda: quillhaven.read(io.StringIO("Subject: text mode\n\n")), TypeError),
        (lambda: quillhaven.read(b"x", classic=True, nonsense=1), TypeError),
    ],
    ids=["kind", "empty-kind", "upper-kind", "attachments-kind", "kind-type", "missing", "folder",
         "preview-missing", "int", "none", "text-file", "keyword"],
)
def test_wrong_arguments_raise(call, error):
    with pytest.raises(error):
        call()


@pytest.mark.parametrize(
    "data",
    [
        b"",
        COMPOUND_MAGIC,
        COMPOUND_MAGIC + b"\xff" * 600,
        COMPOUND_MAGIC + bytes(4096),
        TNEF_MAGIC,
        TNEF_MAGIC + b"\x00" * 3 + b"\x01" + b"\xff" * 64,
        b"Content-Type: multipart/mixed; boundary=b\r\n\r\n" + b"--b\r\n" * 2000,
        b"Subject: =?utf-8?B?" + b"\xff\xfe" * 100 + b"?=\r\n\r\n",
        bytes(range(256)) * 8,
    ],
    ids=["empty", "magic", "magic-ff", "magic-zeros", "tnef-magic", "tnef-short", "many-parts",
         "bad-encoded-word", "all-bytes"],
)
@pytest.mark.parametrize("kind", [None, "msg", "eml", "tnef"])
def test_broken_bytes_give_a_result_or_none(data, kind):
    for function in (quillhaven.read, quillhaven.summary, quillhaven.convert):
        function(data, kind=kind)
        function(data, kind=kind, whole_sectors=True)
    assert isinstance(quillhaven.attachments(data, kind=kind, expand_tnef=True), list)
    assert quillhaven.preview(data) is None or isinstance(quillhaven.preview(data), tuple)


def _damaged(data: bytes, rng: random.Random):
    """Versions of a real message: cut short, and with a few bytes changed."""
    yield data[: len(data) // 2]
    yield data[: rng.randrange(1, len(data))]
    for _ in range(6):
        changed = bytearray(data)
        for _ in range(rng.randrange(1, 16)):
            changed[rng.randrange(len(changed))] = rng.randrange(256)
        yield bytes(changed)


@pytest.mark.skipif(not MESSAGES, reason="no corpus")
def test_damaged_corpus_messages_never_crash():
    rng = random.Random(13)
    # A few small messages of each kind keep this quick, also under the sanitizers.
    chosen = []
    for suffix in (".msg", ".eml", ".tnef", ".dat"):
        small = sorted((p for p in MESSAGES if p.suffix == suffix), key=lambda p: p.stat().st_size)
        chosen += small[:4]
    for path in chosen:
        for data in _damaged(path.read_bytes(), rng):
            quillhaven.read(data)
            quillhaven.read(data, classic=True)
            quillhaven.summary(data)
            quillhaven.convert(data)
            quillhaven.attachments(data, expand_tnef=True)
            quillhaven.preview(data)

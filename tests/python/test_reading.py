"""The package against the command, file by file over the corpus: the same
dictionaries, summaries, MIME text, attachment files and previews."""
import base64
import datetime
import io
import json
import re

import pytest

import quillhaven
from conftest import READINGS, json_text, message_params, run_cli, to_command_json, without_uuids


@pytest.mark.parametrize("reading", list(READINGS))
@pytest.mark.parametrize("path", message_params())
def test_read_and_summary_equal_the_command(path, reading, command_documents):
    _, keywords = READINGS[reading]
    for command, function in (("read", quillhaven.read), ("summary", quillhaven.summary)):
        expected = command_documents(command, reading)[str(path)]
        assert json_text(to_command_json(function(path, **keywords))) == expected, command


def test_value_types_and_sources(tmp_path):
    """Sources of every accepted form give the same dictionary; dates are
    aware datetimes and byte buffers bytes."""
    from conftest import MESSAGES

    if not MESSAGES:
        pytest.skip("no corpus")
    path = next(p for p in MESSAGES if p.suffix == ".msg")
    data = path.read_bytes()
    expected = quillhaven.read(path)
    with open(path, "rb") as stream:
        from_file = quillhaven.read(stream)
    for other in (quillhaven.read(str(path)), quillhaven.read(data), quillhaven.read(bytearray(data)),
                  quillhaven.read(memoryview(data)), quillhaven.read(io.BytesIO(data)), from_file,
                  quillhaven.read(data, kind="msg")):
        assert other == expected
    dates = [v for v in expected.values() if isinstance(v, datetime.datetime)]
    assert dates and all(d.tzinfo is datetime.timezone.utc for d in dates)
    assert isinstance(expected.get("RTF", b""), bytes)


@pytest.mark.parametrize("reading", ["complete", "classic"])
def test_convert_equals_the_command(reading, tmp_path):
    from conftest import MESSAGES

    if not MESSAGES:
        pytest.skip("no corpus")
    flags, keywords = READINGS[reading]
    done = run_cli("convert", "-j", "1", *flags, "-d", tmp_path, *MESSAGES)
    lines = done.stdout.decode().splitlines()
    assert len(lines) == len(MESSAGES)
    for line in lines:
        status, source, output = line.split("\t")
        converted = quillhaven.convert(source, **keywords)
        if status == "none":
            assert converted is None, source
        else:
            # One run of `convert -d` gives a Message-ID that an earlier file
            # of the run had a fresh one; a single conversion keeps it.
            ours, theirs = (re.sub(rb"(?m)^Message-ID: .*$", b"Message-ID:", without_uuids(text), count=1)
                            for text in (converted, open(output, "rb").read()))
            assert ours == theirs, source


@pytest.mark.parametrize("expand", [False, True], ids=["outer", "expand-tnef"])
@pytest.mark.parametrize("path", message_params())
def test_attachments_equal_the_command(path, expand, tmp_path):
    files = quillhaven.attachments(path, expand_tnef=expand)
    if not files and not expand:
        # Most messages carry nothing; one check that the command agrees is enough.
        assert run_cli("attachments", "-d", tmp_path, path).stdout == b""
        return
    flags = ["--expand-tnef"] if expand else []
    done = run_cli("attachments", *flags, "-d", tmp_path, path)
    rows = [line.split("\t", 1) for line in done.stdout.decode().splitlines()]
    assert [(len(f["data"]), f["file_name"]) for f in files] == [(int(size), name) for size, name in rows]
    for entry in files:
        assert without_uuids((tmp_path / entry["file_name"]).read_bytes()) == without_uuids(entry["data"])
        assert "/" in entry["mime_type"]


def test_attachment_names_are_safe_and_numbered_like_the_command(tmp_path):
    """Hostile and clashing names in one message: the same names as the
    command writes into an empty folder."""
    names = ["../../etc/passwd", "report.pdf", "report.pdf", "report (2).pdf", "..", "\u202egpj.exe", "a/b\\c:d"]
    parts = "".join(
        f"--b\r\nContent-Type: application/octet-stream\r\n"
        f"Content-Disposition: attachment; filename=\"{name}\"\r\n"
        f"Content-Transfer-Encoding: base64\r\n\r\n{base64.b64encode(name.encode()).decode()}\r\n"
        for name in names
    )
    message = ("From: a@example.com\r\nSubject: names\r\nMIME-Version: 1.0\r\n"
               "Content-Type: multipart/mixed; boundary=\"b\"\r\n\r\n" + parts + "--b--\r\n").encode()
    source = tmp_path / "names.eml"
    source.write_bytes(message)
    out = tmp_path / "out"
    done = run_cli("attachments", "-d", out, source)
    written = [line.split("\t", 1)[1] for line in done.stdout.decode().splitlines()]
    files = quillhaven.attachments(message)
    assert [f["file_name"] for f in files] == written
    assert len(set(written)) == len(written)
    assert all("/" not in name and name not in (".", "..") for name in written)


@pytest.mark.parametrize("path", [p for p in message_params() if p.values[0] is None or p.values[0].suffix == ".msg"])
def test_preview_equals_the_command(path):
    document = json.loads(run_cli("preview", "--json", path).stdout)
    result = quillhaven.preview(path)
    if document["contentType"] is None:
        assert result is None
    else:
        assert result == (document["contentType"], base64.b64decode(document["data"]["$base64"]))


def test_help_and_stubs_describe_the_functions():
    for function in (quillhaven.read, quillhaven.summary, quillhaven.convert, quillhaven.attachments,
                     quillhaven.preview):
        assert "source" in function.__doc__ or "Arguments" in function.__doc__
    assert "Raises" in quillhaven.read.__doc__ and "classic" in quillhaven.read.__doc__
    package = __import__("pathlib").Path(quillhaven.__file__).parent
    assert (package / "py.typed").exists() and (package / "_quillhaven.pyi").exists()

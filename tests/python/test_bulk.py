"""quillhaven.bulk: the local pool, and a two-worker Dask LocalCluster that
converts the corpus into the same files as `convert -d`."""
import os
import threading

import pytest

import quillhaven
from quillhaven import bulk
from conftest import MESSAGES, SANITIZED, json_text, run_cli, to_command_json, without_uuids

needs_corpus = pytest.mark.skipif(not MESSAGES, reason="no corpus")


def _folder(path):
    return {name: without_uuids((path / name).read_bytes()) for name in sorted(os.listdir(path))}


def _steady(result):
    """A result in a form that compares equal across runs of the writer."""
    return json_text(to_command_json(result))


def _command_convert(out, paths, *flags):
    done = run_cli("convert", "-j", "1", *flags, "-d", out, *paths)
    return done.stdout.decode().splitlines()


def _inputs(tmp_path):
    """The corpus, plus an input that clashes by name and one that cannot be
    read."""
    clash = tmp_path / "again"
    clash.mkdir()
    first = MESSAGES[0]
    (clash / first.name).write_bytes(first.read_bytes())
    return [*MESSAGES, clash / first.name, tmp_path / "missing.msg"]


@needs_corpus
def test_read_many_equals_read_in_order():
    paths = MESSAGES[:40] + ["/nonexistent/x.msg"]
    records = list(bulk.read_many(paths, workers=2))
    assert [r["file"] for r in records] == [os.fspath(p) for p in paths]
    for record, path in zip(records[:-1], paths):
        assert record["error"] is None
        assert _steady(record["result"]) == _steady(quillhaven.read(path))
    assert records[-1]["result"] is None and "FileNotFoundError" in records[-1]["error"]


@needs_corpus
def test_threads_read_the_same_as_one_thread():
    paths = MESSAGES[:24]
    def both(path):
        converted = quillhaven.convert(path)
        return _steady(quillhaven.read(path)), converted and without_uuids(converted)

    expected = {p: both(p) for p in paths}
    problems = []

    def work(part):
        for path in part:
            if both(path) != expected[path]:
                problems.append(path)

    threads = [threading.Thread(target=work, args=(paths[i::4],)) for i in range(4)]
    for thread in threads:
        thread.start()
    for thread in threads:
        thread.join()
    assert not problems


@needs_corpus
@pytest.mark.parametrize("classic", [False, True], ids=["complete", "classic"])
def test_convert_many_here_equals_the_command(tmp_path, classic):
    inputs = _inputs(tmp_path)
    ours, theirs = tmp_path / "ours", tmp_path / "theirs"
    for out in (ours, theirs):
        out.mkdir()
        (out / f"{inputs[0].stem}.eml").write_bytes(b"already here")
    flags = ["--classic"] if classic else []
    lines = bulk.convert_many(inputs, ours, classic=classic, workers=2)
    expected = _command_convert(theirs, inputs, *flags)
    assert lines == [line.replace(str(theirs), str(ours)) for line in expected]
    assert _folder(ours) == _folder(theirs)
    assert (ours / f"{inputs[0].stem}.eml").read_bytes() == b"already here"


@needs_corpus
@pytest.mark.skipif(SANITIZED, reason="worker processes under the sanitizer runtime take minutes; "
                    "the same conversion code runs on threads in the test above")
def test_local_cluster_converts_the_corpus_like_the_command(tmp_path):
    distributed = pytest.importorskip("distributed")
    inputs = _inputs(tmp_path)
    ours, theirs = tmp_path / "ours", tmp_path / "theirs"
    with distributed.LocalCluster(n_workers=2, threads_per_worker=1, processes=True,
                                  dashboard_address=None, silence_logs=40) as cluster, \
            distributed.Client(cluster) as client:
        lines = bulk.convert_many(inputs, ours, client=client)
        records = bulk.to_bag(MESSAGES[:12]).compute()
    assert lines == [line.replace(str(theirs), str(ours)) for line in _command_convert(theirs, inputs)]
    assert _folder(ours) == _folder(theirs)
    assert [r["file"] for r in records] == [os.fspath(p) for p in MESSAGES[:12]]
    assert [_steady(r["result"]) for r in records] == [_steady(quillhaven.read(p)) for p in MESSAGES[:12]]
    assert not [name for name in os.listdir(ours) if name.endswith(".part")]


def test_convert_many_refuses_a_file_as_folder_and_passes_over_folders(tmp_path):
    blocker = tmp_path / "plain"
    blocker.write_bytes(b"x")
    with pytest.raises(OSError):
        bulk.convert_many([], blocker)
    assert bulk.convert_many([tmp_path, blocker], tmp_path / "out") == [
        f"none\t{tmp_path}\t", f"ok\t{blocker}\t{tmp_path / 'out' / 'plain.eml'}"]

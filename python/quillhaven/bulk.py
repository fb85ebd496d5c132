"""Many messages at once: on a local thread pool, or on a Dask cluster.

* :func:`read_many` reads files on a pool of threads in this process (the
  library releases the GIL, so they run in parallel) and yields the results
  in the order given.
* :func:`to_bag` gives a ``dask.bag`` of the same records, for pipelines that
  run on a Dask cluster (a ``distributed.LocalCluster`` or ``dask scheduler``
  plus ``dask worker`` on other machines).
* :func:`convert_many` writes one ``.eml`` file per input into a folder, named
  as ``quillhaven convert -d`` names them, locally or on a cluster, and
  returns the command's status lines.

On a cluster every worker needs this package installed and must see the
input files (and, for :func:`convert_many`, the output folder) at the same
absolute paths as the client: a shared file system.
"""
from __future__ import annotations

import collections
import concurrent.futures
import os
import uuid
from typing import Any, Dict, Iterable, Iterator, List, Optional, Sequence, Tuple

from . import _quillhaven, read

__all__ = ["read_many", "to_bag", "convert_many", "keep_large_buffers_on_heap"]

Record = Dict[str, Any]

# Inputs per cluster task: enough to outweigh a task's scheduling cost, few
# enough that the work spreads over every worker.
_FILES_PER_TASK = 16
# Numbered candidates tried before an output name is given up, as the command.
_MAX_CLASHES = 10000


def keep_large_buffers_on_heap() -> None:
    """Lets the C library keep freed large buffers for reuse instead of
    returning each to the system: for a batch of messages the page faults
    otherwise cost more than the reading (a quarter of the time on the
    corpus). Process-wide and lasting; the functions of this module call it
    (on every worker of a cluster too). Call it yourself before a loop of
    :func:`quillhaven.read` over many files."""
    _quillhaven.keep_large_buffers_on_heap()


def _record(path: str, classic: bool) -> Record:
    """``{"file", "result", "error"}`` for one path; a file that cannot be read
    or parsed gives ``result`` None and the reason in ``error``."""
    keep_large_buffers_on_heap()
    try:
        return {"file": path, "result": read(path, classic=classic), "error": None}
    except Exception as problem:  # one bad file never stops a batch
        return {"file": path, "result": None, "error": f"{type(problem).__name__}: {problem}"}


def read_many(
    paths: Iterable["str | os.PathLike[str]"],
    *,
    workers: Optional[int] = None,
    classic: bool = False,
) -> Iterator[Record]:
    """Read many files on a pool of threads; yields one record per path, in order.

    Each record is ``{"file": path, "result": dict | None, "error": str | None}``:
    ``result`` is what :func:`quillhaven.read` gives, ``error`` says why a file
    could not be read (then ``result`` is None). ``workers`` threads (default:
    one per core); only a few files are read ahead of the consumer, so memory
    stays bounded however many paths are given.

    >>> for record in read_many(glob.glob("mail/*.msg")):
    ...     print(record["file"], (record["result"] or {}).get("Subject"))
    """
    count = workers if workers is not None else (os.cpu_count() or 1)
    if count < 1:
        raise ValueError("workers must be at least 1")
    with concurrent.futures.ThreadPoolExecutor(max_workers=count) as pool:
        pending: collections.deque = collections.deque()
        for path in paths:
            pending.append(pool.submit(_record, os.fspath(path), classic))
            if len(pending) >= 2 * count:
                yield pending.popleft().result()
        while pending:
            yield pending.popleft().result()


def to_bag(
    paths: Iterable["str | os.PathLike[str]"],
    *,
    classic: bool = False,
    npartitions: Optional[int] = None,
) -> Any:
    """A ``dask.bag`` of ``{"file": path, "result": dict | None, "error": str | None}``.

    Nothing is read until the bag is computed, on whatever scheduler is in
    use (with a ``distributed.Client`` made, on its cluster). Records as for
    :func:`read_many`.

    >>> bag = to_bag(paths)
    >>> subjects = bag.map(lambda r: (r["result"] or {}).get("Subject")).compute()
    """
    import dask.bag

    names = [os.fspath(path) for path in paths]
    return dask.bag.from_sequence(names, npartitions=npartitions).map(_record, classic=classic)


def _convert_to_parts(inputs: Sequence[str], out_dir: str, classic: bool) -> List[Optional[Tuple[str, Optional[str]]]]:
    """Converts each input into a hidden part file inside `out_dir`; the
    part's name and the Message-ID written, or None when the input gave no
    message or could not be read."""
    keep_large_buffers_on_heap()
    parts: List[Optional[Tuple[str, Optional[str]]]] = []
    for path in inputs:
        try:
            text = _quillhaven.convert(_read_bytes(path), classic=classic)
            if text is None:
                parts.append(None)
                continue
            part = f".quillhaven-{uuid.uuid4().hex}.part"
            with open(os.path.join(out_dir, part), "xb") as stream:
                stream.write(text)
            parts.append((part, None if classic else _quillhaven.UniqueMessageIds.find(text)))
        except Exception:  # counted as "none", as the command does
            parts.append(None)
    return parts


def _give_fresh_id(out_dir: str, part: str, ids: Any) -> None:
    """Rewrites a part whose Message-ID an earlier message of the run had."""
    path = os.path.join(out_dir, part)
    with open(path, "rb") as stream:
        text = stream.read()
    with open(path, "wb") as stream:
        stream.write(ids.make_unique(text))


def _read_bytes(path: str) -> bytes:
    with open(path, "rb") as stream:
        return stream.read()


def _claim(out_dir: str, name: str, part: str) -> Optional[str]:
    """Gives the part file the first free form of `name` (never replacing a
    file); the name used, or None."""
    for attempt in range(1, _MAX_CLASHES + 1):
        candidate = name if attempt == 1 else _quillhaven.numbered(name, attempt)
        target = os.path.join(out_dir, candidate)
        try:
            # Creating the name exclusively first makes taking it one step, as
            # the command does; the part then replaces the empty file we made.
            descriptor = os.open(target, os.O_WRONLY | os.O_CREAT | os.O_EXCL | os.O_NOFOLLOW, 0o666)
        except FileExistsError:
            continue
        except OSError:
            return None
        os.close(descriptor)
        try:
            os.replace(os.path.join(out_dir, part), target)
        except OSError:
            os.unlink(target)
            return None
        return candidate
    return None


def convert_many(
    paths: Iterable["str | os.PathLike[str]"],
    out_dir: "str | os.PathLike[str]",
    *,
    client: Any = None,
    classic: bool = False,
    workers: Optional[int] = None,
) -> List[str]:
    """Write each input's message to ``out_dir/<name without extension>.eml``.

    The same files and status lines as ``quillhaven convert -d out_dir
    PATH...``: one line ``"ok\\t<input>\\t<output>"`` or ``"none\\t<input>\\t"``
    per input (no line feed), in the order given. Names are safe forms of the
    input's file name; a clash, with a file already there or an earlier
    input, gets the next free ``name (2).eml``; nothing is replaced. The
    folder is made when missing.

    ``client``: a ``distributed.Client`` to convert on its cluster (the
    workers write into ``out_dir``, which they must see at the same path);
    None converts here on ``workers`` threads (default: one per core).
    ``classic``: the classic reading and the EML writer, as ``--classic``.
    """
    given_dir = os.fspath(out_dir)
    os.makedirs(given_dir, exist_ok=True)
    if not os.path.isdir(given_dir):
        raise NotADirectoryError(given_dir)
    absolute_dir = os.path.abspath(given_dir)
    inputs = [os.fspath(path) for path in paths]
    absolute = [os.path.abspath(path) for path in inputs]
    chunks = [absolute[i:i + _FILES_PER_TASK] for i in range(0, len(absolute), _FILES_PER_TASK)]

    if client is not None:
        futures = client.map(_convert_to_parts, chunks, out_dir=absolute_dir, classic=classic, pure=False)
        results: Iterator[List[Any]] = (future.result() for future in futures)
        pool = None
    else:
        count = workers if workers is not None else (os.cpu_count() or 1)
        pool = concurrent.futures.ThreadPoolExecutor(max_workers=max(1, count))
        results = pool.map(_convert_to_parts, chunks, [absolute_dir] * len(chunks), [classic] * len(chunks))

    lines: List[str] = []
    leftovers: List[str] = []
    ids = _quillhaven.UniqueMessageIds()
    try:
        # Names and Message-IDs are taken here, in input order, so that they
        # come out the same on every run and on any cluster.
        index = 0
        for parts in results:
            for converted in parts:
                source = inputs[index]
                index += 1
                written = None
                if converted is not None:
                    part, message_id = converted
                    try:
                        if message_id is not None and not ids.add(message_id):
                            _give_fresh_id(absolute_dir, part, ids)
                        written = _claim(absolute_dir, _quillhaven.converted_name(os.fsencode(source)), part)
                    except OSError:
                        written = None
                    if written is None:
                        leftovers.append(part)
                if written is None:
                    lines.append(f"none\t{source}\t")
                else:
                    lines.append(f"ok\t{source}\t{os.path.join(given_dir, written)}")
    finally:
        if pool is not None:
            pool.shutdown(wait=True, cancel_futures=True)
        for part in leftovers:
            try:
                os.unlink(os.path.join(absolute_dir, part))
            except OSError:
                pass
    return lines

"""Read Outlook .msg files, MIME .eml messages and TNEF streams (winmail.dat).

Every function takes a *source*: a path (``str`` or ``os.PathLike``), the
message itself as ``bytes`` (or another bytes-like object), or a file object
opened in binary mode. The kind of message is told from its first bytes
unless ``kind`` ("msg", "eml" or "tnef") says otherwise.

Two readings are offered, as by the ``quillhaven`` command:

* the complete reading (the default): nothing the file holds is lost, and
  :func:`convert` writes standards-conformant MIME;
* the classic reading (``classic=True``): the dictionary the library's reader
  classes have always produced; ``whole_sectors=True`` also gives them the
  compound document's whole-sector buffers, as the library's own classes see
  them.

The GIL is released while a message is parsed, so threads run in parallel;
:mod:`quillhaven.bulk` reads and converts many files at once, on a local
thread pool or a Dask cluster.

>>> import quillhaven
>>> message = quillhaven.read("mail.msg")
>>> message["Subject"], message["TimeStamp"]
('Quarterly figures', datetime.datetime(2024, 3, 5, 10, 2, 3, tzinfo=datetime.timezone.utc))
"""
from __future__ import annotations

import mimetypes
import os
from typing import IO, Any, Dict, List, Optional, Tuple, Union

from . import _quillhaven

__all__ = [
    "Source",
    "read",
    "summary",
    "convert",
    "attachments",
    "preview",
    "detect_kind",
    "__version__",
]

__version__: str = _quillhaven.__version__

#: What every function accepts as a message: a path, the bytes, or a binary file object.
Source = Union[str, "os.PathLike[str]", bytes, bytearray, memoryview, IO[bytes]]

_BYTES_LIKE = (bytes, bytearray, memoryview)


def _data(source: Source) -> Any:
    """The bytes of `source`: read from a path or a file object, or as given."""
    if isinstance(source, _BYTES_LIKE):
        return source
    if isinstance(source, (str, os.PathLike)):
        with open(source, "rb") as stream:
            return stream.read()
    reader = getattr(source, "read", None)
    if reader is None:
        raise TypeError(
            "source must be a path, bytes or a binary file object, not " + type(source).__name__
        )
    data = reader()
    if not isinstance(data, _BYTES_LIKE):
        raise TypeError("the file object must be opened in binary mode (its read() gave "
                        + type(data).__name__ + ")")
    return data


def read(
    source: Source,
    *,
    kind: Optional[str] = None,
    classic: bool = False,
    whole_sectors: bool = False,
) -> Optional[Dict[str, Any]]:
    """Read a message into its dictionary.

    Returns the message dictionary, or None when the source holds no message
    of its kind. Keys are those of the command's ``read`` (``"Subject"``,
    ``"From"``, ``"To"``, ``"CC"``, ``"TimeStamp"``, ``"Body"``, ``"HTML"``,
    ``"AttachmentList"``, ...); values are ``str``, ``int``, ``float``,
    ``bool``, ``bytes`` (byte buffers), timezone-aware ``datetime`` in UTC
    (dates), ``list`` and ``dict`` (in the message's order).

    Arguments:
        source: a path, the message's bytes, or a binary file object.
        kind: "msg", "eml" or "tnef" to force a kind; None tells it from the
            first bytes.
        classic: the classic reading instead of the complete one.
        whole_sectors: the classic reading on whole-sector stream buffers
            (implies ``classic``).

    Raises:
        OSError: the file cannot be read.
        ValueError: ``kind`` is not one of the three names.
        TypeError: ``source`` is none of the accepted types.
    """
    return _quillhaven.read(_data(source), kind=kind, classic=classic, whole_sectors=whole_sectors)


def summary(
    source: Source,
    *,
    kind: Optional[str] = None,
    classic: bool = False,
    whole_sectors: bool = False,
) -> Optional[Dict[str, Any]]:
    """The reader's short summary of a message: ``{"Subject", "Body", "From"}``.

    Quicker than :func:`read` for listing many files. None when the source
    holds no message. Arguments and errors as for :func:`read`.
    """
    return _quillhaven.summary(_data(source), kind=kind, classic=classic, whole_sectors=whole_sectors)


def convert(
    source: Source,
    *,
    kind: Optional[str] = None,
    classic: bool = False,
    whole_sectors: bool = False,
) -> Optional[bytes]:
    """The message as MIME text (the bytes of an ``.eml`` file).

    The same bytes as ``quillhaven convert``: standards-conformant MIME from
    the complete reading, or with ``classic=True`` the EML writer's text from
    the classic reading. None when the source holds no message (where the
    command exits with status 1). Arguments and errors as for :func:`read`.
    """
    return _quillhaven.convert(_data(source), kind=kind, classic=classic, whole_sectors=whole_sectors)


def attachments(
    source: Source,
    *,
    expand_tnef: bool = False,
    kind: Optional[str] = None,
    classic: bool = False,
    whole_sectors: bool = False,
) -> List[Dict[str, Any]]:
    """The files a message carries, in order, each a dict:

    * ``name``: the name the message gives it (may be empty or hostile);
    * ``file_name``: a safe file name for it, the one ``quillhaven
      attachments -d DIR`` writes into an empty folder: no path separators,
      never ``..``, clashes numbered (``a.txt``, ``a (2).txt``);
    * ``data``: its bytes;
    * ``mime_type``: its type as the message declares it, else guessed from
      ``file_name``, else ``"application/octet-stream"``.

    With ``expand_tnef`` the files inside attachments that are TNEF streams
    (winmail.dat) follow the outer ones. An empty list when the source holds
    no message. Other arguments and errors as for :func:`read`.
    """
    files = _quillhaven.attachments(
        _data(source), kind=kind, classic=classic, whole_sectors=whole_sectors, expand_tnef=expand_tnef
    )
    for entry in files:
        if entry["mime_type"] is None:
            guessed, _ = mimetypes.guess_type(entry["file_name"], strict=False)
            entry["mime_type"] = guessed or "application/octet-stream"
    return files


def preview(source: Source) -> Optional[Tuple[str, bytes]]:
    """The preview the desktop plug-in makes of a ``.msg`` document.

    ``("public.rtf", rtf_bytes)`` when the message has a compressed-RTF body,
    ``("public.plain-text", utf8_bytes)`` for its plain-text body, None when
    there is no preview (not a compound document, or no readable body). The
    same result as ``quillhaven preview --json``.

    Raises OSError when the file cannot be read, TypeError for a source of
    another type.
    """
    return _quillhaven.preview(_data(source))


def detect_kind(source: Source) -> str:
    """``"msg"``, ``"tnef"`` or ``"eml"``: the kind told by the first bytes."""
    return _quillhaven.detect_kind(_data(source))

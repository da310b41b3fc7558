"""Backing up and restoring drive parameters as parameter files, over the register translator.

The files are those the library's upload writes (docs/parameter-files.md), with one change that
makes every backup restorable: an element the drive does not let anyone write (a read-only one,
which a download refuses and stops at) is written as a comment, ``# read-only: M1.0=3``. A restore
hands the download only the lines that can be written and counts the others as skipped; a line
that fails stops the restore and raises with its line number in the file, and a line a drive
refused raises :class:`ryn.Refused` once the restore has run through.
"""

from __future__ import annotations

import ctypes
import io
import os
from typing import (Callable, IO, List, NamedTuple, Optional, Sequence, Tuple, Union)

from . import errors, translator
from ._lib import WRITE_LINE, lib
from .bus import Bus
from .dictionary import Dictionary
from .translator import Callbacks, Translator, axis_mask, line_reader, stream_report

READ_ONLY_MARK = "# read-only: "
Progress = Optional[Callable[[float], None]]
Source = Union[str, "os.PathLike[str]", IO[str]]
Types = Optional[Sequence[Union[str, int]]]

# Layout keywords of backup() and the translator flags they set.
_LAYOUT = {
    "use_aliases": translator.USE_ALIASES, "reserved_comment": translator.RESERVED_COMMENT,
    "skip_defaults": translator.SKIP_DEFAULTS, "no_axis": translator.NO_AXIS,
    "vector_form": translator.VECTOR_FORM, "group_classes": translator.GROUP_CLASSES,
    "drive_only": translator.DRIVE_ONLY, "no_comments": translator.NO_COMMENTS,
    "verbose": translator.VERBOSE, "descriptions": translator.DESCRIPTIONS,
    "tabs4": translator.TABS4, "tabs8": translator.TABS8, "tab": translator.TAB,
    "raw_values": translator.RAW_VALUES, "full_precision": translator.FULL_PRECISION,
}


class BackupReport(NamedTuple):
    """What a backup wrote."""

    lines: int  # lines of the file
    values: int  # register elements written as assignments
    read_only: int  # read-only elements written as comments


class RestoreReport(NamedTuple):
    """What a restore did: the download's stream report, and the read-only lines left out."""

    lines: int
    sent: int
    acknowledged: int
    refused: int
    skipped: int  # lines not sent: other types or axes, filter mode, read-only elements
    read_only: int


def _is_value_line(line: str) -> bool:
    stripped = line.lstrip()
    return bool(stripped) and stripped[0] not in "#;"


def _mask(bus: Bus, axes: Union[None, int, Sequence[int]]) -> int:
    return bus.present_mask if axes is None else axis_mask(axes)


def _types(bus: Bus, mask: int, types: Types) -> bytes:
    """The register types as kind bytes: names resolved in the dictionaries of the axes' drives;
    by default every type that a bus stream may carry and a download can write (no vector or
    matrix types), in kind order."""
    dictionaries = []
    try:
        for axis in bus.present_axes:
            if mask >> axis & 1:
                info = bus.drive_info(axis)
                dictionaries.append(Dictionary(info.product, info.version))
        if not dictionaries:
            raise errors.NoDriveError(errors.TRA_ENODRIVE, "no drive on the axes", [])
        names = {}
        for d in dictionaries:
            names.update({n.upper(): k for k, n in d.types()})
        if types is not None:
            out = []
            for t in types:
                if isinstance(t, int):
                    out.append(t)
                elif t.upper() in names:
                    out.append(names[t.upper()])
                else:
                    raise errors.ParameterError(errors.TRA_EBADPARAM, "no register type %r" % t)
            return bytes(out)
        allowed = ctypes.c_uint8()
        out = []
        for kind in sorted(set(names.values())):
            one = (ctypes.c_uint8 * 1)(kind)
            errors.check(lib.oxb.oxb_check_types(bus.handle, ctypes.byref(allowed), 1, one))
            if allowed.value and not lib.vok.vok_is_vector_kind(kind):
                out.append(kind)
        return bytes(out)
    finally:
        for d in dictionaries:
            d.close()


def _type_array(kinds: bytes):
    return (ctypes.c_uint8 * max(1, len(kinds))).from_buffer_copy(kinds or b"\0")


def backup(bus: Bus, destination: Source, axes: Union[None, int, Sequence[int]] = None,
           types: Types = None, *, first_index: int = 0, max_index: int = -1,
           max_subindex: int = -1, progress: Progress = None, **layout: bool) -> BackupReport:
    """Backs up the registers of the drives on ``axes`` (default: every present drive) into a
    parameter file (a path, written whole or not at all, or an open text file).

    ``types`` lists register types by name ("K", "XF") or kind; by default every type that can
    be restored. Layout keywords (``descriptions=True``, ``group_classes=True``, ``verbose``,
    ``use_aliases``, ``skip_defaults``, ``no_axis``, ``vector_form``, ``no_comments``,
    ``drive_only``, ``reserved_comment``, ``tabs4``, ``tabs8``, ``tab``, ``raw_values``,
    ``full_precision``) shape the file as docs/parameter-files.md says. ``progress`` is called
    with the fraction done (0.0 to 1.0) as lines are written; an exception it raises stops the
    backup and is raised here.
    """
    flags = 0
    for key, value in layout.items():
        if key not in _LAYOUT:
            raise TypeError("backup() got an unexpected keyword argument %r" % key)
        flags |= _LAYOUT[key] if value else 0
    mask = _mask(bus, axes)
    kinds = _types(bus, mask, types)
    lines: List[str] = []
    callbacks = Callbacks()
    with Translator.on(bus, flags, register=True) as tra:
        def take(line: bytes) -> int:
            lines.append(line.decode("utf-8", "replace"))
            if progress is not None:
                progress(tra.progress)
            return 0

        writer = WRITE_LINE(lambda handle, line, user, reserved: callbacks.run(
            lambda: take(line), 1))
        rc = lib.tra.tra_oxcom_upload_register_stream_e(
            tra.handle, mask, len(kinds), _type_array(kinds), first_index, max_index,
            max_subindex, writer, None)
        callbacks.reraise()
        errors.check(rc)
        values = read_only = 0
        for i, line in enumerate(lines):
            if not _is_value_line(line):
                continue
            try:
                tra.to_record(line)
                values += 1
            except errors.ReadOnlyError:
                lines[i] = READ_ONLY_MARK + line
                read_only += 1
            except errors.Error:
                values += 1  # the download judges it; the backup keeps what the drive holds
    _write(destination, lines)
    if progress is not None:
        progress(1.0)
    return BackupReport(len(lines), values, read_only)


def _write(destination: Source, lines: List[str]) -> None:
    text = "".join(line + "\n" for line in lines)
    if isinstance(destination, io.IOBase) or hasattr(destination, "write"):
        destination.write(text)  # type: ignore[union-attr]
        return
    path = os.fspath(destination)  # type: ignore[arg-type]
    temporary = "%s.%d.partial" % (path, os.getpid())
    try:
        with open(temporary, "w", encoding="utf-8") as f:
            f.write(text)
        os.replace(temporary, path)
    except BaseException:
        if os.path.exists(temporary):
            os.unlink(temporary)
        raise


def _read(source: Source) -> List[str]:
    if isinstance(source, io.IOBase) or hasattr(source, "read"):
        content = source.read()  # type: ignore[union-attr]
    else:
        with open(os.fspath(source), encoding="utf-8") as f:  # type: ignore[arg-type]
            content = f.read()
    return content.splitlines()


def restore(bus: Bus, source: Source, axes: Union[None, int, Sequence[int]] = None,
            types: Types = None, *, filter_mode: int = 0, flags: int = 0,
            progress: Progress = None) -> RestoreReport:
    """Restores a parameter file (a path or an open text file) to the drives on ``axes``
    (default: every present drive), over the register translator's download.

    Read-only elements (``# read-only:`` comments, or assignments to elements no one may write)
    are left out and counted as skipped. ``types`` as for backup; ``filter_mode`` 1 or 2 sends
    only lines that are not, or only lines that are, user data; ``flags`` are translator flags
    (``ryn.DOWNLOAD_AXES`` gives lines without an axis the restore's axes). The first line that
    fails stops the restore (the lines before it stay applied) and raises with its line number
    in the file; when the drives refused a line, ryn.Refused is raised after the restore.
    ``progress`` is called with the fraction done; an exception it raises stops the restore.
    """
    mask = _mask(bus, axes)
    kinds = _types(bus, mask, types)
    file_lines = _read(source)
    callbacks = Callbacks()
    with Translator.on(bus, flags, register=True) as tra:
        handed: List[Tuple[int, str]] = []
        read_only = 0
        for number, line in enumerate(file_lines, 1):
            if line.lstrip().startswith(READ_ONLY_MARK.strip()):
                read_only += 1
                continue
            if _is_value_line(line):
                try:
                    tra.to_record(line)
                except errors.ReadOnlyError:
                    read_only += 1
                    continue
                except errors.Error:
                    pass  # handed on: the download stops at it and says why
            handed.append((number, line))

        def advance(count: int) -> None:
            # The download knows no total; this restore does, so it reports lines handed.
            if progress is not None:
                progress(count / len(handed))

        reader = line_reader((line for _, line in handed), callbacks, advance)
        if filter_mode:
            rc = lib.tra.tra_oxcom_download_register_stream_e2(
                tra.handle, mask, len(kinds), _type_array(kinds), filter_mode, reader, None)
        else:
            rc = lib.tra.tra_oxcom_download_register_stream_e(
                tra.handle, mask, len(kinds), _type_array(kinds), reader, None)
        callbacks.reraise()
        report = stream_report(tra.handle)

    def in_file(stream_line: int) -> Tuple[Optional[int], Optional[str]]:
        if 1 <= stream_line <= len(handed):
            return handed[stream_line - 1]
        return None, None

    if rc != 0:
        raise errors.error(rc, *in_file(report.lines))
    if report.refused:
        number, line = in_file(report.first_refused_line)
        raise errors.Refused(report, number or 0, line or report.first_refused_text)
    if progress is not None:
        progress(1.0)
    return RestoreReport(report.lines, report.sent, report.acknowledged, report.refused,
                         report.skipped + read_only, read_only)

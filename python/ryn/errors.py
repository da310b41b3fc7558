"""The exceptions of the ryn package: every failure of a C call becomes one of them.

An error carries the library's code, its message and the frames of the calling thread's error
trace, read right after the failing call (the trace is per thread, and ctypes runs the call on the
calling thread). Errors that concern a line of a stream or a parameter file carry its number.
"""

from __future__ import annotations

import ctypes
from typing import List, NamedTuple, Optional, Tuple

from ._lib import SUP_FRAME, lib, text

# Codes of ryn/tra.h, ryn/oxb.h and ryn/vok.h that select an exception class; the others fall to
# the class of their library.
TRA_EBADPARAM = -515
TRA_ENOCOMMAND = -525
TRA_ENODRIVE = -568
TRA_EREADONLY = -567
TRA_EBADDRVPROD, TRA_EBADEXTPROD, TRA_EBADDRVVER, TRA_EBADEXTVER = -520, -521, -518, -519
OXB_ENOTHING = -210
OXB_EBADPARAM = -202


class Frame(NamedTuple):
    """One frame of a C error trace: origin first, then each function that passed it on."""

    file: str
    line: int
    function: str
    code: int
    message: str
    note: str
    details: Tuple[str, ...]

    def __str__(self) -> str:
        where = "%s:%d %s" % (self.file, self.line, self.function)
        if self.code:
            extra = ", ".join(d for d in self.details if d)
            return "%s: %d %s%s" % (where, self.code, self.message,
                                    " (%s)" % extra if extra else "")
        return "%s%s" % (where, ": " + self.note if self.note else "")


class Error(Exception):
    """A failure reported by the ryn libraries.

    Attributes: ``code`` (the library's negative code), ``message`` (its fixed text), ``trace``
    (the :class:`Frame` list, origin first), ``line`` (1-based line of a stream or file, or
    None) and ``text`` (that line's text, or None).
    """

    def __init__(self, code: int, message: str, trace: Optional[List[Frame]] = None,
                 line: Optional[int] = None, text: Optional[str] = None) -> None:
        self.code = code
        self.message = message
        self.trace: List[Frame] = list(trace or [])
        self.line = line
        self.text = text
        super().__init__(code, message)

    def __str__(self) -> str:
        where = "line %d: " % self.line if self.line is not None else ""
        said = " (%s)" % self.text if self.text else ""
        detail = ""
        if self.trace and self.trace[0].code == self.code:
            found = [d for d in self.trace[0].details if d]
            detail = ": " + ", ".join(found) if found and not said else ""
        return "%s%d %s%s%s" % (where, self.code, self.message, detail, said)


class TranslatorError(Error):
    """A failure of the translator library (codes -5xx)."""


class ParameterError(TranslatorError, ValueError):
    """A bad argument (TRA_EBADPARAM, OXB_EBADPARAM)."""


class ProductError(TranslatorError, ValueError):
    """A drive or extension card product or version the dictionary does not know."""


class NoDriveError(TranslatorError):
    """No drive on the addressed axes, or a drive left the bus (TRA_ENODRIVE)."""


class ReadOnlyError(TranslatorError):
    """An assignment to a read-only register element (TRA_EREADONLY)."""


class Timeout(TranslatorError, TimeoutError):
    """No answer arrived in time (TRA_ENOCOMMAND)."""


class BusError(Error):
    """A failure of the bus library (codes -2xx)."""


class DictionaryError(Error):
    """A failure of the dictionary library (codes -4xx)."""


class Refused(Error):
    """A stream or restore ran through, but a drive refused a line (no acknowledge).

    ``line`` and ``text`` name the first refused line; ``report`` is the whole stream report.
    """

    def __init__(self, report: object, line: int, text: str) -> None:
        super().__init__(0, "%s of %s commands refused by the drives"
                         % (getattr(report, "refused"), getattr(report, "sent")), [], line, text)
        self.report = report

    def __str__(self) -> str:
        return "line %d: %s (%s)" % (self.line or 0, self.message, self.text)


_BY_CODE = {
    TRA_EBADPARAM: ParameterError, OXB_EBADPARAM: ParameterError,
    TRA_EBADDRVPROD: ProductError, TRA_EBADEXTPROD: ProductError, TRA_EBADDRVVER: ProductError,
    TRA_EBADEXTVER: ProductError, TRA_ENODRIVE: NoDriveError, TRA_EREADONLY: ReadOnlyError,
    TRA_ENOCOMMAND: Timeout,
}


def read_trace() -> List[Frame]:
    """The calling thread's error trace, origin first; the trace is emptied afterwards, so that a
    later failure never shows frames of this one."""
    frames: List[Frame] = []
    frame = SUP_FRAME()
    for i in range(lib.sup.sup_trace_count()):
        if lib.sup.sup_trace_get(i, ctypes.byref(frame)) != 0:
            break
        frames.append(Frame(text(frame.file) or "", frame.line, text(frame.function) or "",
                            frame.code, text(frame.message) or "", text(frame.note) or "",
                            tuple(text(d) or "" for d in frame.details)))
    lib.sup.sup_trace_clear()
    return frames


def message_of(code: int) -> str:
    """The fixed message of a code of any of the libraries."""
    if -299 <= code <= -200:
        return text(lib.oxb.oxb_translate_error(code)) or "unknown error"
    if -499 <= code <= -400:
        return text(lib.vok.vok_translate_error(code)) or "unknown error"
    return text(lib.tra.tra_translate_error(code)) or "unknown error"


def error(code: int, line: Optional[int] = None, line_text: Optional[str] = None) -> Error:
    """The exception for a failed call's code, with the trace it left."""
    message = message_of(code)  # first: the bus library's text of a failed open is per thread
    trace = read_trace()
    if code in _BY_CODE:
        cls = _BY_CODE[code]
    elif -299 <= code <= -200:
        cls = BusError
    elif -499 <= code <= -400:
        cls = DictionaryError
    else:
        cls = TranslatorError
    return cls(code, message, trace, line, line_text)


def check(code: int) -> int:
    """Raises the error of a non-zero status; returns 0."""
    if code != 0:
        raise error(code)
    return 0

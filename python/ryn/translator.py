"""Translators: command text to bus records and back, offline or on a bus of drives."""

from __future__ import annotations

import ctypes
from typing import (Callable, Iterable, Iterator, List, NamedTuple, Optional, Sequence, Tuple,
                    Union)

from . import dictionary, errors
from ._lib import READ_LINE, TRA_STREAM_REPORT, Owned, encode, lib, text
from .bus import Bus, close_port

_tra = lib.tra
MAX_SLOTS = 65
_RECORD_BYTES = 8 + 16 * MAX_SLOTS
_NOTHING = 0xFFFFFFFF  # slot count of a line with nothing to send
_FOREVER = 0xFFFFFFFF
ALL_AXES = (1 << 64) - 1

# Translator flags (ryn/tra.h, TRA_F...).
USE_ALIASES = 0x1
RESERVED_COMMENT = 0x2
SKIP_DEFAULTS = 0x4
NO_AXIS = 0x8
VECTOR_FORM = 0x10
ISO_CONVERT = 0x20
GROUP_CLASSES = 0x40
EMPTY_IS_ERROR = 0x100
REQUEST_FLAG = 0x200
ACCEPT_UNKNOWN_VERSION = 0x800
DRIVE_ONLY = 0x1000
NO_CHECK = 0x2000
NO_COMMENTS = 0x10000
VERBOSE = 0x20000
DESCRIPTIONS = 0x40000
TABS4 = 0x100000
TABS8 = 0x200000
TAB = 0x400000
RAW_VALUES = 0x1000000
DOWNLOAD_AXES = 0x2000000
FULL_PRECISION = 0x4000000


class Record(NamedTuple):
    """A command record as the translator built it: its bytes (8-byte header, 16-byte slots,
    little-endian), the axes it goes to (bit n: axis n) and its slot count."""

    data: bytes
    axes: int
    slots: int

    @property
    def command(self) -> int:
        """Command number (page * 256 + command byte; 1537 an element assignment), -1 for a kind
        that carries none (a register read)."""
        return int(_tra.tra_record_command(self.data))

    @property
    def header(self) -> int:
        """The header word: slot count, gate, status and acknowledge bits, command, kind."""
        return int.from_bytes(self.data[:4], "little")


class Answer(NamedTuple):
    """An answer of the drives to a command sent by :meth:`Translator.send`."""

    text: str  # the answer as command text ("K1.0=1234" for a read)
    acknowledged: bool  # every addressed drive accepted the command
    status: bool  # the answer's error status: some drive met an error
    request: bool  # the answer of a register read (or the REQUEST_FLAG translator flag)
    user: int  # the value given to send()


class StreamReport(NamedTuple):
    """What a stream did (sent lines, restores): counts and the first refused line."""

    lines: int
    sent: int
    acknowledged: int
    refused: int
    skipped: int
    first_refused_line: int  # 1-based, 0 when none
    first_refused_text: str


class Callbacks:
    """Runs Python callbacks under a C call: an exception is kept, the C side is told to stop
    with ``stop``, and :meth:`reraise` raises it once the call has returned."""

    def __init__(self) -> None:
        self.exception: Optional[BaseException] = None

    def run(self, function: Callable[[], int], stop: int) -> int:
        if self.exception is not None:
            return stop
        try:
            return function()
        except BaseException as e:  # noqa: B902 - handed back to the caller after the C call
            self.exception = e
            return stop

    def reraise(self) -> None:
        if self.exception is not None:
            e, self.exception = self.exception, None
            raise e


def line_reader(lines: Iterable[str], callbacks: Callbacks,
                on_line: Optional[Callable[[int], None]] = None):
    """A TRA_READ_LINE over an iterable of lines (line ends stripped); -1 at its end.

    A line that does not fit the translator's buffer is an error rather than a cut line. on_line
    is called with the count of lines handed so far."""
    it: Iterator[str] = iter(lines)
    count = [0]

    def give(buffer: int, size: int) -> int:
        try:
            line = next(it)
        except StopIteration:
            return -1
        data = encode(line.rstrip("\r\n"))
        if len(data) >= size:
            raise errors.ParameterError(errors.TRA_EBADPARAM,
                                        "line longer than %d characters" % (size - 1),
                                        line=count[0] + 1, text=line[:60])
        ctypes.memmove(buffer, data, len(data))
        ctypes.memset(buffer + len(data), 0, 1)
        count[0] += 1
        if on_line is not None:
            on_line(count[0])
        return 0

    return READ_LINE(lambda tra, buffer, size, user: callbacks.run(
        lambda: give(buffer, size), -2))


def stream_report(handle: ctypes.c_void_p) -> StreamReport:
    """The report of a translator's last stream."""
    r = TRA_STREAM_REPORT(size=ctypes.sizeof(TRA_STREAM_REPORT))
    errors.check(_tra.tra_get_stream_report(handle, ctypes.byref(r)))
    return StreamReport(r.lines, r.sent, r.acknowledged, r.refused, r.skipped,
                        r.first_refused_line, text(r.first_refused_text) or "")


def _destroy(handle: ctypes.c_void_p, port: Optional[ctypes.c_void_p]) -> None:
    """Destroys a translator, then closes the port it was bound to (which it does not own)."""
    if handle:
        _tra.tra_destroy(ctypes.byref(handle))
    if port is not None:
        close_port(port)


def axis_mask(axes: Union[None, int, Sequence[int]]) -> int:
    """An axis mask from a list of axes (None: every axis; an int is taken as a mask)."""
    if axes is None:
        return ALL_AXES
    if isinstance(axes, int):
        return axes
    mask = 0
    for a in axes:
        if not 0 <= a <= 63:
            raise errors.ParameterError(errors.TRA_EBADPARAM, "axis %d outside 0..63" % a)
        mask |= 1 << a
    return mask


class Translator(Owned):
    """A translator of ORAX command text. Create one with :meth:`offline` or :meth:`on`.

    Use it in a ``with`` block or call :meth:`close`; the garbage collector destroys a forgotten
    one. A translator may be shared by threads (each call takes its lock), but each thread reads
    its own error traces.
    """

    def __init__(self, handle: ctypes.c_void_p, port: Optional[ctypes.c_void_p] = None,
                 bus: Optional[Bus] = None) -> None:
        self._handle = handle
        self.bus = bus
        self._own(_destroy, handle, port)

    @classmethod
    def offline(cls, product: Union[str, int] = "ORX-D32", version: Union[str, int] = "3.12B",
                ext: Union[str, int, None] = None, ext_version: Union[str, int, None] = None,
                flags: int = 0, register: bool = False,
                axis63: Optional[Tuple[Union[str, int], Union[str, int]]] = None) -> "Translator":
        """A translator for one drive configuration on all 64 axes, with no bus.

        ``ext`` names an extension card (at its default version unless ``ext_version``);
        ``register`` makes a register translator instead of a direct one; ``axis63`` gives axis
        63 a configuration of its own, a (product, version) pair such as ("ORX-M51", "2.01A")."""
        configuration = [dictionary.product_code(product), dictionary.version_from_text(version),
                         *dictionary.card_and_version(ext, ext_version)]
        handle = ctypes.c_void_p()
        if axis63 is None:
            create = (_tra.tra_create_register_traductor_o if register
                      else _tra.tra_create_direct_traductor_o)
        else:
            create = (_tra.tra_create_register_traductor_o2 if register
                      else _tra.tra_create_direct_traductor_o2)
            configuration += [dictionary.product_code(axis63[0]),
                              dictionary.version_from_text(axis63[1]), 0, 0]
        errors.check(create(ctypes.byref(handle), *configuration, flags))
        return cls(handle)

    @classmethod
    def on(cls, bus: Bus, flags: int = 0, register: bool = False) -> "Translator":
        """A translator bound to a bus, on a port of its own: it learns each axis's drive from
        the bus, sends commands and receives their answers."""
        port = bus.open_port()
        handle = ctypes.c_void_p()
        create = (_tra.tra_create_register_traductor_e if register
                  else _tra.tra_create_direct_traductor_e)
        rc = create(ctypes.byref(handle), port, flags)
        if rc != 0:
            e = errors.error(rc)
            close_port(port)
            raise e
        return cls(handle, port, bus)

    @property
    def handle(self) -> ctypes.c_void_p:
        """The C TRA handle (ParameterError once the translator is closed)."""
        if not self._handle:
            raise errors.ParameterError(errors.TRA_EBADPARAM, "the translator is closed")
        return self._handle

    @property
    def flags(self) -> int:
        """The translator flags (TRA_F..., e.g. ``ryn.USE_ALIASES``)."""
        return int(_tra.tra_get_flags(self.handle))

    @flags.setter
    def flags(self, value: int) -> None:
        errors.check(_tra.tra_set_flags(self.handle, value))

    @property
    def progress(self) -> float:
        """Progress (0.0 to 1.0) of the stream transfer running on this translator."""
        value = ctypes.c_double()
        errors.check(_tra.tra_get_progress(self.handle, ctypes.byref(value)))
        return value.value

    # ---- Translation ----

    def to_record(self, text: str) -> Optional[Record]:
        """Translates one line into its record; None for a line with nothing to send (a comment
        or a blank line). Raises TranslatorError with the code and trace of a refused line."""
        # Buffers of the call's own: threads sharing a translator must not share them.
        record = ctypes.create_string_buffer(_RECORD_BYTES)
        count, axes = ctypes.c_uint32(), ctypes.c_uint64()
        rc = _tra.tra_oxcom_translate_cmd_from_ascii_ex(self.handle, record, MAX_SLOTS,
                                                        ctypes.byref(count), ctypes.byref(axes),
                                                        encode(text))
        if rc != 0:
            raise errors.error(rc, line_text=text)
        if count.value == _NOTHING:
            return None
        return Record(record.raw[:8 + 16 * count.value], axes.value, count.value)

    def to_records(self, lines: Iterable[str]) -> List[Optional[Record]]:
        """Translates a batch of lines (one call per line, without per-call set-up): a list with
        one record, or None for a line with nothing to send, per line. The first line that does
        not translate raises, with its 1-based line number in the batch."""
        translate = _tra.tra_oxcom_translate_cmd_from_ascii_ex
        handle, buffer = self.handle, ctypes.create_string_buffer(_RECORD_BYTES)
        count, axes = ctypes.c_uint32(), ctypes.c_uint64()
        count_ref, axes_ref = ctypes.byref(count), ctypes.byref(axes)
        out: List[Optional[Record]] = []
        append = out.append
        for number, line in enumerate(lines, 1):
            data = encode(line)
            rc = translate(handle, buffer, MAX_SLOTS, count_ref, axes_ref, data)
            if rc != 0:
                raise errors.error(rc, line=number, line_text=line)
            n = count.value
            if n == _NOTHING:
                append(None)
            else:
                append(Record(buffer.raw[:8 + 16 * n], axes.value, n))
        return out

    def to_text(self, record: Union[Record, bytes], axes: Optional[int] = None) -> str:
        """Writes a record as command text (``axes``: the record's mask, by default its own)."""
        data = record.data if isinstance(record, Record) else bytes(record)
        if axes is None:
            axes = record.axes if isinstance(record, Record) else 1
        if len(data) < 8 or len(data) < 8 + 16 * (data[0]):
            raise errors.ParameterError(errors.TRA_EBADPARAM,
                                        "a record of %d bytes is shorter than its header says"
                                        % len(data))
        buffer = ctypes.create_string_buffer(4096)
        while True:
            errors.check(_tra.tra_oxcom_translate_cmd_to_ascii_ex(self.handle, data, axes,
                                                                  buffer, len(buffer)))
            result = buffer.value
            if len(result) < len(buffer) - 1:  # a text that filled the buffer may have been cut
                return result.decode("utf-8", "replace")
            buffer = ctypes.create_string_buffer(len(buffer) * 4)

    # ---- On a bus ----

    def send(self, text: str, user: Optional[int] = None) -> bool:
        """Translates a line and sends it; False when the line had nothing to send. ``user`` (an
        integer, 0..2**64-1) comes back with the answer."""
        sent = ctypes.c_uint8()
        rc = _tra.tra_send_direct_cmd_e(self.handle, encode(text), user or 0, ctypes.byref(sent))
        if rc != 0:
            raise errors.error(rc, line_text=text)
        return bool(sent.value)

    def receive(self, timeout: Optional[float] = None) -> Answer:
        """The next answer; waits up to ``timeout`` seconds (None: until one comes, 0: polls).
        Raises ryn.Timeout when none came in time."""
        ack, status, request = ctypes.c_uint8(), ctypes.c_uint8(), ctypes.c_uint8()
        user, answer = ctypes.c_uint64(), ctypes.create_string_buffer(4096)
        # Waits without limit as a series of short waits, so that Ctrl-C still reaches Python.
        step = 200 if timeout is None else max(0, int(timeout * 1000))
        while True:
            rc = _tra.tra_receive_direct_cmd_e_ex(
                self.handle, answer, len(answer), ctypes.byref(ack),
                ctypes.byref(status), ctypes.byref(request), ctypes.byref(user), step)
            if rc == errors.TRA_ENOCOMMAND and timeout is None and self.bus is not None:
                errors.read_trace()
                continue
            errors.check(rc)
            return Answer(answer.value.decode("utf-8", "replace"), bool(ack.value),
                          bool(status.value), bool(request.value), user.value)

    def send_stream(self, lines: Iterable[str], axes: Union[None, int, Sequence[int]] = None,
                    allow_refused: bool = False) -> StreamReport:
        """Sends every line, each after the previous one was answered (comments and blank lines
        skipped, register version lines applied). A line that does not translate ends the
        stream and raises with its line number; a line a drive refused raises ryn.Refused after
        the stream (unless ``allow_refused``), so that a refusal is never silent."""
        callbacks = Callbacks()
        reader = line_reader(lines, callbacks)
        rc = _tra.tra_oxcom_send_direct_stream_e(self.handle, axis_mask(axes), reader, None)
        callbacks.reraise()
        report = stream_report(self.handle)
        if rc != 0:
            raise errors.error(rc, line=report.lines or None)
        if report.refused and not allow_refused:
            raise errors.Refused(report, report.first_refused_line, report.first_refused_text)
        return report

    def drive(self, axis: int) -> Optional[str]:
        """The drive configuration the translator sees at an axis, as "ORX-D32 3.12B" (with the
        card after a plus sign); None when the axis has no drive."""
        product = _tra.tra_get_drv_product(self.handle, axis)
        if not product:
            return None
        name = text(lib.vok.vok_get_product_name(product)) or str(product)
        out = "%s %s" % (name, dictionary.version_text(_tra.tra_get_drv_version(self.handle, axis)))
        card = _tra.tra_get_ext_product(self.handle, axis)
        if card:
            out += " + %s %s" % (text(lib.vok.vok_get_ext_product_name(card)) or card,
                                 dictionary.version_text(_tra.tra_get_ext_version(self.handle,
                                                                                  axis)))
        return out


def library_version() -> str:
    """Version of the loaded translator library ("4.27B")."""
    return dictionary.version_text(_tra.tra_get_version())

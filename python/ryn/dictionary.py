"""Browsing the drive family's dictionaries: products, versions, registers and commands.

>>> import ryn
>>> [p.name for p in ryn.dictionary.products()][:2]
['ORX-L1', 'ORX-L25']
>>> with ryn.dictionary.open("ORX-D32", "3.12B") as d:
...     d.register("K1").elements[0].maximum
1000000
"""

from __future__ import annotations

import ctypes
import re
from typing import Iterator, List, NamedTuple, Optional, Tuple, Union

from . import errors
from ._lib import Owned, encode, lib, text

_vok = lib.vok
Number = Union[int, float]

# Value classes of a kind word (bits 5 and 6).
CLASS_INT32, CLASS_FLOAT, CLASS_INT64, CLASS_DOUBLE = 0x00, 0x20, 0x40, 0x60
_RANGE = {
    CLASS_INT32: (_vok.vok_get_reg_min_int32, _vok.vok_get_reg_max_int32),
    CLASS_FLOAT: (_vok.vok_get_reg_min_float, _vok.vok_get_reg_max_float),
    CLASS_INT64: (_vok.vok_get_reg_min_int64, _vok.vok_get_reg_max_int64),
    CLASS_DOUBLE: (_vok.vok_get_reg_min_double, _vok.vok_get_reg_max_double),
}
_PARAM_RANGE = {
    CLASS_INT32: (_vok.vok_get_param_min_int32, _vok.vok_get_param_max_int32),
    CLASS_FLOAT: (_vok.vok_get_param_min_float, _vok.vok_get_param_max_float),
    CLASS_INT64: (_vok.vok_get_param_min_int64, _vok.vok_get_param_max_int64),
    CLASS_DOUBLE: (_vok.vok_get_param_min_double, _vok.vok_get_param_max_double),
}
_ENUM_VALUE = {
    CLASS_INT32: _vok.vok_get_enum_value_int32, CLASS_FLOAT: _vok.vok_get_enum_value_float,
    CLASS_INT64: _vok.vok_get_enum_value_int64, CLASS_DOUBLE: _vok.vok_get_enum_value_double,
}


def version_from_text(value: Union[str, int]) -> int:
    """The packed form of a version ("3.12B" is 0x03128100); an int is taken as packed."""
    if isinstance(value, int):
        return value
    packed = ctypes.c_uint32()
    errors.check(lib.tra.tra_string_to_version(encode(value), ctypes.byref(packed)))
    return packed.value


def version_text(packed: int) -> str:
    """The text form of a packed version ("3.12B")."""
    buffer = ctypes.create_string_buffer(32)
    lib.tra.tra_version_to_string(buffer, len(buffer), packed)
    return buffer.value.decode("ascii", "replace")


class Product(NamedTuple):
    """A drive product of the family."""

    code: int
    name: str
    description: Optional[str]
    versions: Tuple[str, ...]
    default_version: Optional[str]
    controller: bool  # sits at axis 63 (a motion controller)
    reserved: bool  # known to the family, but without versions


class Card(NamedTuple):
    """An extension card product of the family."""

    code: int
    name: str
    description: Optional[str]
    versions: Tuple[str, ...]
    default_version: Optional[str]


def family() -> str:
    """Name of the active family ("ORAX")."""
    return text(_vok.vok_get_family_name()) or ""


def load_family(path: Optional[str] = None) -> None:
    """Makes the family described in a JSON file active (None: the embedded ORAX family again).
    No dictionary or translator may be open meanwhile (DictionaryError -420 otherwise)."""
    rc = _vok.vok_load_default_family() if path is None else _vok.vok_load_family_file(
        encode(path))
    if rc != 0:
        detail = text(_vok.vok_get_family_error()) or ""
        e = errors.error(rc)
        e.text = detail or None
        raise e


def _listed(count, code_of, name_of, description_of, version_count, version_of, default_of):
    """(code, name, description, versions, default version) of each product of a list."""
    for i in range(count()):
        code = code_of(i)
        default = default_of(code)
        yield (code, text(name_of(code)) or str(code), text(description_of(code)),
               tuple(version_text(version_of(code, j)) for j in range(version_count(code))),
               version_text(default) if default else None)


def products() -> List[Product]:
    """The drive products of the active family, reserved product numbers included."""
    v = _vok
    return [Product(*p, bool(v.vok_is_axis63_product(p[0])), bool(v.vok_is_reserved_product(p[0])))
            for p in _listed(v.vok_get_product_count, v.vok_get_product_code,
                             v.vok_get_product_name, v.vok_get_product_description,
                             v.vok_get_product_version_count, v.vok_get_product_version,
                             v.vok_get_default_version)]


def cards() -> List[Card]:
    """The extension card products of the active family."""
    v = _vok
    return [Card(*c) for c in _listed(
        v.vok_get_ext_product_count, v.vok_get_ext_product_code, v.vok_get_ext_product_name,
        v.vok_get_ext_product_description, v.vok_get_ext_product_version_count,
        v.vok_get_ext_product_version, v.vok_get_ext_product_default_version)]


def _code(value: Union[str, int], known: List, what: str, error_code: int) -> int:
    if isinstance(value, int):
        return value
    for item in known:
        if item.name.upper() == value.upper():
            return item.code
    raise errors.ProductError(error_code, "unknown %s %r; known: %s"
                              % (what, value, ", ".join(i.name for i in known)))


def product_code(product: Union[str, int]) -> int:
    """The code of a drive product given by name ("ORX-D32") or code."""
    return _code(product, products(), "drive product", errors.TRA_EBADDRVPROD)


def card_code(card: Union[str, int, None]) -> int:
    """The code of an extension card given by name ("IOX-8") or code; None is 0, no card."""
    return 0 if card is None else _code(card, cards(), "extension card", errors.TRA_EBADEXTPROD)


def card_and_version(ext: Union[str, int, None],
                     version: Union[str, int, None] = None) -> Tuple[int, int]:
    """Code and version of an extension card: (0, 0) for none, its default version unless given."""
    card = card_code(ext)
    if not card:
        return 0, 0
    return card, (version_from_text(version) if version is not None
                  else _vok.vok_get_ext_product_default_version(card))


class EnumEntry(NamedTuple):
    """An entry of an enumeration: a value (or, for a mask entry, a bit group) with its name."""

    name: str
    value: Number
    description: Optional[str]
    mask: bool
    parent: int  # index of the parent entry, -1 at the top


class Element(NamedTuple):
    """One element of a register: what it accepts and holds."""

    subindex: int
    writable: bool
    reserved: bool
    minimum: Number
    maximum: Number
    default: Number
    enumeration: Tuple[EnumEntry, ...]


class Register(NamedTuple):
    """A register of a dictionary with its elements."""

    kind: int
    index: int
    name: str  # "K12"
    alias: Optional[str]
    description: Optional[str]
    group: Optional[str]  # class name under which uploads group it
    elements: Tuple[Element, ...]


class Param(NamedTuple):
    """A parameter of a command."""

    position: int
    name: Optional[str]
    kind: int
    minimum: Number
    maximum: Number
    enumeration: Tuple[EnumEntry, ...]


class Command(NamedTuple):
    """A command of a dictionary with its parameters."""

    number: int
    name: str
    description: Optional[str]
    params: Tuple[Param, ...]


def _close(handle: ctypes.c_void_p) -> None:
    _vok.vok_close(ctypes.byref(handle))


class Dictionary(Owned):
    """The open dictionary of one drive configuration; use it as a context manager."""

    def __init__(self, product: Union[str, int], version: Union[str, int],
                 ext: Union[str, int, None] = None,
                 ext_version: Union[str, int, None] = None) -> None:
        self._handle = ctypes.c_void_p()
        errors.check(_vok.vok_open(ctypes.byref(self._handle), product_code(product),
                                   version_from_text(version), *card_and_version(ext, ext_version)))
        self._own(_close, self._handle)


    @property
    def _h(self) -> ctypes.c_void_p:
        if not self._handle:
            raise errors.ParameterError(errors.TRA_EBADPARAM, "the dictionary is closed")
        return self._handle

    def type_name(self, kind: int) -> Optional[str]:
        """Name of a register type (kind word 0..127): "K", "KF"...; None when it has none."""
        return text(_vok.vok_get_type_name(self._h, 1, kind))

    def types(self) -> List[Tuple[int, str]]:
        """(kind, name) of every register type of this dictionary."""
        return [(k, self.type_name(k) or "") for k in range(128)
                if _vok.vok_type_exists(self._h, k)]

    def _enumeration(self, enum: int, cls: int, applies) -> Tuple[EnumEntry, ...]:
        if enum <= 0:
            return ()
        h = self._h
        return tuple(
            EnumEntry(text(_vok.vok_get_enum_entry_name(h, enum, e)) or "",
                      _ENUM_VALUE[cls](h, enum, e),
                      text(_vok.vok_get_enum_entry_description(h, enum, e)),
                      bool(_vok.vok_enum_entry_is_mask(h, enum, e)),
                      _vok.vok_get_enum_entry_parent(h, enum, e))
            for e in range(_vok.vok_get_enum_count(h, enum)) if applies(e))

    def _find(self, name: str) -> Tuple[int, int]:
        kind, index = ctypes.c_uint32(), ctypes.c_uint32()
        if _vok.vok_find_register_alias(self._h, encode(name), ctypes.byref(kind),
                                        ctypes.byref(index)) == 0:
            return kind.value & 0x7F, index.value
        m = re.fullmatch(r"([A-Za-z]+)(\d+)", name.strip())
        if m:
            names = {n.upper(): k for k, n in self.types()}
            if m.group(1).upper() in names:
                return names[m.group(1).upper()], int(m.group(2))
        raise errors.ParameterError(errors.TRA_EBADPARAM, "no register %r in this dictionary"
                                    % name)

    def register(self, name: str, index: Optional[int] = None) -> Register:
        """A register by name ("K12"), alias ("MODE"), or kind word and index."""
        h = self._h
        kind, index = (self._find(name) if index is None else (int(name), index))
        length = _vok.vok_get_register_length(h, kind, index)
        if length <= 0:
            raise errors.ParameterError(errors.TRA_EBADPARAM, "no register %s%d"
                                        % (self.type_name(kind) or "?", index))
        cls = _vok.vok_value_class(kind)
        low, high = _RANGE[cls]
        default = {CLASS_INT32: _vok.vok_get_reg_default_int32,
                   CLASS_FLOAT: _vok.vok_get_reg_default_float}.get(cls)
        elements = []
        for sub in range(length):
            if default is not None:
                value: Number = default(h, kind, index, sub)
            else:
                raw = _vok.vok_get_reg_default_int64(h, kind, index, sub)
                value = (ctypes.c_double.from_buffer_copy(ctypes.c_int64(raw)).value
                         if cls == CLASS_DOUBLE else raw)
            enum = _vok.vok_get_reg_enum(h, kind, index, sub)
            elements.append(Element(
                sub, bool(_vok.vok_register_writable(h, kind, index, sub)),
                bool(_vok.vok_element_is_reserved(h, kind, index, sub)),
                low(h, kind, index, sub), high(h, kind, index, sub), value,
                self._enumeration(enum, cls, lambda e, s=sub: _vok.vok_enum_entry_for_reg(
                    h, e, kind, index, s))))
        return Register(kind, index, "%s%d" % (self.type_name(kind) or "?", index),
                        text(_vok.vok_get_register_name(h, 1, kind, index, 0)),
                        text(_vok.vok_get_register_name(h, 2, kind, index, 0)),
                        text(_vok.vok_get_register_class(h, 1, kind, index)), tuple(elements))

    def registers(self, kind: Union[int, str]) -> Iterator[Register]:
        """Every register of a type (kind word or name: "K"), in index order."""
        if isinstance(kind, str):
            names = {n.upper(): k for k, n in self.types()}
            if kind.upper() not in names:
                raise errors.ParameterError(errors.TRA_EBADPARAM, "no register type %r" % kind)
            kind = names[kind.upper()]
        index = _vok.vok_get_next_index(self._h, kind, 0)
        while index >= 0:
            yield self.register(kind, index)  # type: ignore[arg-type]
            index = _vok.vok_get_next_index(self._h, kind, index + 1)

    def command(self, name: Union[str, int]) -> Command:
        """A command by name ("MVE") or number, with its parameters."""
        h = self._h
        number = name if isinstance(name, int) else _vok.vok_find_command_name(h, encode(name))
        if number < 0 or not _vok.vok_command_exists(h, number):
            raise errors.ParameterError(errors.TRA_EBADPARAM, "no command %r in this dictionary"
                                        % (name,))
        params = []
        for p in range(_vok.vok_get_param_count(h, number)):
            kind = _vok.vok_get_param_kind(h, number, p)
            cls = _vok.vok_value_class(kind)
            low, high = _PARAM_RANGE[cls]
            enum = _vok.vok_get_param_enum(h, number, p)
            params.append(Param(p, text(_vok.vok_get_param_name(h, number, p)), kind,
                                low(h, number, p), high(h, number, p),
                                self._enumeration(enum, cls, lambda e, q=p: _vok.
                                                  vok_enum_entry_for_param(h, e, number, q))))
        return Command(number, text(_vok.vok_get_command_name(h, 1, number)) or "@%d" % number,
                       text(_vok.vok_get_command_name(h, 2, number)), tuple(params))

    def commands(self) -> Iterator[Command]:
        """Every command of this dictionary, in number order."""
        number = _vok.vok_get_next_command(self._h, 0)
        while number >= 0:
            yield self.command(number)
            number = _vok.vok_get_next_command(self._h, number + 1)


def open(product: Union[str, int], version: Union[str, int, None] = None,  # noqa: A001
         ext: Union[str, int, None] = None,
         ext_version: Union[str, int, None] = None) -> Dictionary:
    """Opens the dictionary of a drive configuration (version None: the product's default)."""
    if version is None:
        version = _vok.vok_get_default_version(product_code(product))
    return Dictionary(product, version, ext, ext_version)  # type: ignore[arg-type]

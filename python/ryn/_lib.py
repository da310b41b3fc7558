"""Loading of the ryn C libraries and the prototypes of their exported functions.

The libraries are looked for, in this order, in the directories of ``RYN_LIBRARY_PATH``
(separated as ``PATH`` is), next to this package (a build that put them beside it), and where the
system's dynamic loader finds them. The four libraries are loaded from one place each, the support
and dictionary libraries first, so that the translator's and bus library's own dependencies
resolve to the very objects loaded here.
"""

from __future__ import annotations

import ctypes
import ctypes.util
import os
import sys
import weakref
from ctypes import (CFUNCTYPE, POINTER, c_char_p, c_double, c_float, c_int, c_int32, c_int64,
                    c_uint8, c_uint32, c_uint64, c_void_p)
from typing import Any, Callable, Dict, List, Optional, Sequence, Tuple, TypeVar

SOVERSION = 4

# Callback types of ryn/tra.h and ryn/oxb.h. The read-line buffer is taken as a plain address so
# that the callback can fill it; the handles are opaque addresses.
READ_LINE = CFUNCTYPE(c_int, c_void_p, c_void_p, c_int32, c_void_p)
WRITE_LINE = CFUNCTYPE(c_int, c_void_p, c_char_p, c_void_p, c_int32)
ISO_CONVERTER = CFUNCTYPE(c_int, c_void_p, c_void_p, POINTER(c_double), c_uint32, c_int32, c_int32,
                          c_int32, c_void_p)
OXB_HANDLER = CFUNCTYPE(c_int, c_void_p, c_int, c_int, c_void_p)


class SUP_FRAME(ctypes.Structure):
    """One frame of the calling thread's error trace (ryn/sup.h)."""

    _fields_ = [("file", c_char_p), ("line", c_int), ("function", c_char_p), ("code", c_int),
                ("message", c_char_p), ("note", c_char_p), ("details", c_char_p * 5)]


class TRA_STREAM_REPORT(ctypes.Structure):
    """What the last stream of a translator did (ryn/tra.h)."""

    _fields_ = [("size", c_uint32), ("lines", c_uint32), ("sent", c_uint32),
                ("acknowledged", c_uint32), ("refused", c_uint32), ("skipped", c_uint32),
                ("first_refused_line", c_int32), ("first_refused_text", ctypes.c_char * 256)]


class OXB_DRIVE_INFO(ctypes.Structure):
    """The drive information record of oxb_get_drive_info (size field 76)."""

    _fields_ = [("size", c_uint32), ("product", c_uint32), ("boot_revision", c_uint32),
                ("serial", c_uint32), ("version", c_uint32), ("reserved", c_uint32 * 14)]


class OXB_EXT_INFO(ctypes.Structure):
    """The extension card record of oxb_get_ext_info (size field 20)."""

    _fields_ = [("size", c_uint32), ("product", c_uint32), ("boot_revision", c_uint32),
                ("serial", c_uint32), ("version", c_uint32)]


class OXBSIM_DRIVE(ctypes.Structure):
    """Identity of a simulated drive (ryn/oxbsim.h)."""

    _fields_ = [("product", c_uint32), ("version", c_uint32), ("ext_product", c_uint32),
                ("ext_version", c_uint32), ("serial", c_uint32), ("boot_revision", c_uint32)]


class OXBSIM_FAULTS(ctypes.Structure):
    """Faults and timing of a simulated bus (ryn/oxbsim.h)."""

    _fields_ = [("answer_ms", c_uint32), ("latency_us", c_uint32), ("drop", c_double),
                ("nack", c_double), ("detach_after", c_uint32), ("seed", c_uint64)]


assert ctypes.sizeof(OXB_DRIVE_INFO) == 76 and ctypes.sizeof(OXB_EXT_INFO) == 20

_P = c_void_p
_PP = POINTER(c_void_p)
_u8p = POINTER(c_uint8)
_u32p = POINTER(c_uint32)
_u64p = POINTER(c_uint64)
_i, _i32, _u32, _u64, _i64, _s, _f, _d = (c_int, c_int32, c_uint32, c_uint64, c_int64, c_char_p,
                                          c_float, c_double)
_dict_rtk = [_P, _u32, _u32, _u32]  # dictionary, kind, index, subindex
_dict_cp = [_P, _u32, _i]  # dictionary, command, parameter

# Prototypes, as ryn/*.h declare them (the two printf-like functions, oxb_build_record and
# sup_snprintf, are not bound: Python builds no records and formats its own text).
_PROTOTYPES: Dict[str, Dict[str, Tuple[object, List[object]]]] = {
    "sup": {
        "sup_trace_count": (_i, []),
        "sup_trace_get": (_i, [_i, POINTER(SUP_FRAME)]),
        "sup_trace_format": (_i, [_s, _i]),
        "sup_trace_clear": (None, []),
        "sup_trace_error": (None, [_s, _i, _s, _i, _s, _s, _s, _s, _s, _s]),
        "sup_trace_pass": (None, [_s, _i, _s, _s]),
        "sup_trace_suspend": (None, []),
        "sup_trace_resume": (None, []),
        "sup_string_to_version": (_i, [_s, _u32p]),
        "sup_version_to_string": (_i, [_s, _i, _u32]),
    },
    "vok": {
        "vok_translate_error": (_s, [_i]),
        "vok_load_family_file": (_i, [_s]),
        "vok_load_family_text": (_i, [_s]),
        "vok_load_default_family": (_i, []),
        "vok_get_family_error": (_s, []),
        "vok_get_family_source": (_s, []),
        "vok_open": (_i, [_PP, _u32, _u32, _u32, _u32]),
        "vok_open_offline": (_i, [_PP, _i, _u32, _u32, _u32, _u32]),
        "vok_close": (None, [_PP]),
        "vok_get_default_version": (_u32, [_u32]),
        "vok_is_known_version": (_i, [_u32, _u32]),
        "vok_is_axis63_product": (_i, [_u32]),
        "vok_get_drv_product": (_u32, [_P]),
        "vok_get_drv_version": (_u32, [_P]),
        "vok_get_ext_product": (_u32, [_P]),
        "vok_get_ext_version": (_u32, [_P]),
        "vok_string_to_version": (_i, [_s, _u32p]),
        "vok_version_to_string": (None, [_s, _i, _u32, _s]),
        "vok_get_product_name": (_s, [_u32]),
        "vok_get_ext_product_name": (_s, [_u32]),
        "vok_get_type_name": (_s, [_P, _i, _u32]),
        "vok_get_register_name": (_s, [_P, _i, _u32, _u32, _u32]),
        "vok_get_command_name": (_s, [_P, _i, _u32]),
        "vok_get_command_comment": (_s, [_P, _i, _u32, _u32, _u32, _u32]),
        "vok_get_dictionary_class": (_i, [_P]),
        "vok_register_exists": (_i, _dict_rtk),
        "vok_register_writable": (_i, _dict_rtk),
        "vok_register_type_writable": (_i, [_P, _u32]),
        "vok_get_register_format": (_i, _dict_rtk),
        "vok_get_register_length": (_i, [_P, _u32, _u32]),
        "vok_is_vector_kind": (_i, [_u32]),
        "vok_get_register_count": (_i, [_P, _u32]),
        "vok_type_is_hidden": (_i, [_P, _u32]),
        "vok_test_register": (_i, _dict_rtk),
        "vok_type_exists": (_i, [_P, _u32]),
        "vok_get_subindex_count": (_i, [_P, _u32]),
        "vok_index_exists": (_i, [_P, _u32, _u32]),
        "vok_register_is_iso": (_i, _dict_rtk),
        "vok_element_is_reserved": (_i, _dict_rtk),
        "vok_get_register_class": (_s, [_P, _i, _u32, _u32]),
        "vok_get_register_columns": (_i, [_P, _u32, _u32]),
        "vok_get_register_rows": (_i, [_P, _u32, _u32]),
        "vok_command_exists": (_i, [_P, _u32]),
        "vok_get_param_count": (_i, [_P, _u32]),
        "vok_get_param_kind": (_u32, _dict_cp),
        "vok_find_command": (_i, [_P, _u32, _P]),
        "vok_param_is_vector": (_i, _dict_cp),
        "vok_command_has_vector_params": (_i, [_P, _u32]),
        "vok_get_param_format": (_i, _dict_cp),
        "vok_get_param_is_iso": (_i, _dict_cp),
        "vok_get_reg_default_int32": (_i32, _dict_rtk),
        "vok_get_reg_default_int64": (_i64, _dict_rtk),
        "vok_get_reg_default_float": (_f, _dict_rtk),
        "vok_value_class": (_u32, [_u32]),
        "vok_get_reg_default_raw": (_i, _dict_rtk + [_u64p]),
        "vok_get_reg_enum": (_i, _dict_rtk),
        "vok_get_param_enum": (_i, _dict_cp),
        "vok_get_enum_count": (_i, [_P, _i]),
        "vok_enum_entry_for_reg": (_i, [_P, _i, _u32, _u32, _u32]),
        "vok_enum_entry_for_param": (_i, [_P, _i, _u32, _i]),
        "vok_get_enum_entry_parent": (_i, [_P, _i, _i]),
        "vok_enum_entry_is_mask": (_i, [_P, _i, _i]),
        "vok_get_enum_entry_name": (_s, [_P, _i, _i]),
        "vok_get_enum_name": (_s, [_P, _i]),
        "vok_get_family_name": (_s, []),
        "vok_get_product_count": (_i, []),
        "vok_get_product_code": (_u32, [_i]),
        "vok_get_product_description": (_s, [_u32]),
        "vok_is_reserved_product": (_i, [_u32]),
        "vok_get_product_version_count": (_i, [_u32]),
        "vok_get_product_version": (_u32, [_u32, _i]),
        "vok_get_ext_product_count": (_i, []),
        "vok_get_ext_product_code": (_u32, [_i]),
        "vok_get_ext_product_description": (_s, [_u32]),
        "vok_get_ext_product_version_count": (_i, [_u32]),
        "vok_get_ext_product_version": (_u32, [_u32, _i]),
        "vok_get_ext_product_default_version": (_u32, [_u32]),
        "vok_ext_fits_product": (_i, [_u32, _u32]),
        "vok_get_next_index": (_i32, [_P, _u32, _u32]),
        "vok_get_next_command": (_i32, [_P, _u32]),
        "vok_find_register_alias": (_i, [_P, _s, _u32p, _u32p]),
        "vok_find_command_name": (_i32, [_P, _s]),
        "vok_get_param_name": (_s, _dict_cp),
        "vok_get_register_iso_unit": (_i, [_P, _u32, _u32]),
        "vok_get_param_iso_unit": (_i, _dict_cp),
        "vok_get_enum_entry_description": (_s, [_P, _i, _i]),
    },
    "oxb": {
        "oxb_record_size": (_i, [_i]),
        "oxb_translate_error": (_s, [_i]),
        "oxb_open": (_i, [_s, _PP]),
        "oxb_close": (_i, [_PP]),
        "oxb_port_is_valid": (_i, [_P]),
        "oxb_get_port_bus": (_i, [_P, _PP]),
        "oxb_get_present_axes": (_i, [_P, _u64p]),
        "oxb_get_drive_info": (_i, [_P, _i, _P]),
        "oxb_get_ext_info": (_i, [_P, _i, _P]),
        "oxb_get_bus_info": (_i, [_P, _i, _P]),
        "oxb_register_handler": (_i, [_P, _P, _u64, _i, _i, _i, OXB_HANDLER, _P]),
        "oxb_unregister_handler": (_i, [_P, _P]),
        "oxb_send": (_i, [_P, _P, _u64, _P, _i]),
        "oxb_receive": (_i, [_P, _PP, _i, _P, _i, _i, _i]),
        "oxb_lock": (_i, [_P, _i]),
        "oxb_unlock": (_i, [_P]),
        "oxb_check_types": (_i, [_P, _u8p, _i, _u8p]),
        "oxbsim_attach": (_i, [_P, _i, POINTER(OXBSIM_DRIVE)]),
        "oxbsim_detach": (_i, [_P, _i]),
        "oxbsim_get_faults": (_i, [_P, POINTER(OXBSIM_FAULTS)]),
        "oxbsim_set_faults": (_i, [_P, POINTER(OXBSIM_FAULTS)]),
        "oxbsim_read": (_i, [_P, _i, _u32, _u32, _u32, _u64p]),
        "oxbsim_write": (_i, [_P, _i, _u32, _u32, _u32, _u64]),
        "oxbsim_reset": (_i, [_P, _u64]),
    },
    "tra": {
        "tra_translate_error": (_s, [_i]),
        "tra_destroy": (_i, [_PP]),
        "tra_get_flags": (_u32, [_P]),
        "tra_set_flags": (_i, [_P, _u32]),
        "tra_get_progress": (_i, [_P, POINTER(c_double)]),
        "tra_set_progress": (_i, [_P, _d]),
        "tra_oxcom_get_iso_converter": (_i, [_P, POINTER(ISO_CONVERTER), _PP]),
        "tra_oxcom_set_iso_converter": (_i, [_P, ISO_CONVERTER, _P]),
        "tra_oxcom_get_preference_axis_mask": (_u64, [_P]),
        "tra_oxcom_set_preference_axis_mask": (_i, [_P, _u64]),
        "tra_get_oxb_port": (_P, [_P]),
        "tra_get_drv_product": (_u32, [_P, _i]),
        "tra_get_drv_version": (_u32, [_P, _i]),
        "tra_get_ext_product": (_u32, [_P, _i]),
        "tra_get_ext_version": (_u32, [_P, _i]),
        "tra_get_version": (_u32, []),
        "tra_get_ryn_version": (_u32, []),
        "tra_get_build_time": (_u32, []),
        "tra_string_to_version": (_i, [_s, _u32p]),
        "tra_version_to_string": (_i, [_s, _i, _u32]),
        "tra_create_direct_traductor_o": (_i, [_PP, _u32, _u32, _u32, _u32, _u32]),
        "tra_create_direct_traductor_o2": (_i, [_PP] + [_u32] * 9),
        "tra_is_valid_direct_traductor": (_i, [_P]),
        "tra_is_valid_direct_traductor_e": (_i, [_P]),
        "tra_create_register_traductor_o": (_i, [_PP, _u32, _u32, _u32, _u32, _u32]),
        "tra_create_register_traductor_o2": (_i, [_PP] + [_u32] * 9),
        "tra_is_valid_register_traductor": (_i, [_P]),
        "tra_is_valid_register_traductor_e": (_i, [_P]),
        "tra_create_register_traductor_e": (_i, [_PP, _P, _u32]),
        "tra_oxcom_download_register_stream_e": (_i, [_P, _u64, _i32, _u8p, READ_LINE, _P]),
        "tra_oxcom_download_register_stream_e2": (_i, [_P, _u64, _i32, _u8p, _u32, READ_LINE,
                                                        _P]),
        "tra_register_downloaded": (_i, [_P, _u8p]),
        "tra_oxcom_upload_register_stream_e": (_i, [_P, _u64, _i32, _u8p, _i32, _i32, _i32,
                                                     WRITE_LINE, _P]),
        "tra_create_direct_traductor_e": (_i, [_PP, _P, _u32]),
        "tra_send_direct_cmd_e": (_i, [_P, _s, _u64, _u8p]),
        "tra_receive_direct_cmd_e_ex": (_i, [_P, _s, _u32, _u8p, _u8p, _u8p, _u64p, _u32]),
        "tra_receive_direct_cmd_e": (_i, [_P, _s, _u32, _u8p, _u8p, _u8p, _u64p, c_uint8]),
        "tra_oxcom_send_direct_stream_e": (_i, [_P, _u64, READ_LINE, _P]),
        "tra_oxcom_get_axis_mask_e": (_i, [_P, _u64p]),
        "tra_oxcom_set_axis_mask_e": (_i, [_P, _u64]),
        "tra_get_stream_report": (_i, [_P, POINTER(TRA_STREAM_REPORT)]),
        "tra_oxcom_translate_cmd_from_ascii_ex": (_i, [_P, _P, _u32, _u32p, _u64p, _s]),
        "tra_oxcom_translate_cmd_to_ascii_ex": (_i, [_P, _P, _u64, _s, _i]),
        "tra_oxcom_translate_rqs_to_ascii_ex": (_i, [_P, _P, _P, _u64, _s, _i]),
        "tra_record_command": (_i32, [_P]),
    },
}

# The dictionary's typed families: one function per value type for each of these.
for _name, _type in (("int32", _i32), ("int64", _i64), ("float", _f), ("double", _d)):
    _PROTOTYPES["vok"].update({
        "vok_param_is_" + _name: (_i, _dict_cp), "vok_reg_is_" + _name: (_i, [_P, _u32]),
        "vok_get_param_min_" + _name: (_type, _dict_cp),
        "vok_get_param_max_" + _name: (_type, _dict_cp),
        "vok_get_reg_min_" + _name: (_type, _dict_rtk),
        "vok_get_reg_max_" + _name: (_type, _dict_rtk),
        "vok_get_enum_value_" + _name: (_type, [_P, _i, _i]),
    })

_LOAD_ORDER = ("sup", "vok", "oxb", "tra")


def _file_names(name: str) -> Sequence[str]:
    """File names under which library ``ryn_<name>`` may exist, the versioned one first."""
    base = "ryn_" + name
    if sys.platform == "darwin":
        return ("lib%s.%d.dylib" % (base, SOVERSION), "lib%s.dylib" % base)
    if sys.platform == "win32":
        return (base + ".dll", "lib%s.dll" % base)
    return ("lib%s.so.%d" % (base, SOVERSION), "lib%s.so" % base)


def _candidate_dirs() -> List[str]:
    """Directories searched before the system: RYN_LIBRARY_PATH, then beside the package."""
    dirs = [d for d in os.environ.get("RYN_LIBRARY_PATH", "").split(os.pathsep) if d]
    here = os.path.dirname(os.path.abspath(__file__))
    dirs += [os.path.join(here, "lib"), here]
    return dirs


def _find(name: str, dirs: Sequence[str]) -> Optional[str]:
    for d in dirs:
        for file_name in _file_names(name):
            path = os.path.join(d, file_name)
            if os.path.isfile(path):
                return path
    return None


class Libraries:
    """The four loaded libraries with their prototypes set; ``lib.tra.tra_destroy`` etc."""

    def __init__(self) -> None:
        dirs = _candidate_dirs()
        self.paths: Dict[str, str] = {}
        for name in _LOAD_ORDER:
            path = _find(name, dirs)
            if path is None:  # the system's loader, by versioned name first
                found = ctypes.util.find_library("ryn_" + name)
                path = _file_names(name)[0] if found is None else found
            try:
                library = ctypes.CDLL(path)
            except OSError as e:
                raise ImportError(
                    "ryn: cannot load the C library ryn_%s (%s); set RYN_LIBRARY_PATH to the "
                    "directory that holds libryn_%s, or install the ryn libraries" % (name, e, name)
                ) from e
            for function, (restype, argtypes) in _PROTOTYPES[name].items():
                f = getattr(library, function)
                f.restype = restype
                f.argtypes = argtypes
            self.paths[name] = path
            setattr(self, name, library)

    sup: ctypes.CDLL
    vok: ctypes.CDLL
    oxb: ctypes.CDLL
    tra: ctypes.CDLL


lib = Libraries()


_Self = TypeVar("_Self", bound="Owned")


class Owned:
    """An object that owns C handles: released by close() or at the end of a with block, else by
    the garbage collector (weakref.finalize holds the handles, never the object, so no cycle)."""

    _finalizer: Any

    def _own(self, release: Callable[..., None], *handles: Any) -> None:
        self._finalizer = weakref.finalize(self, release, *handles)

    def close(self) -> None:
        """Releases the C handles; closing twice is harmless."""
        self._finalizer()

    def __enter__(self: _Self) -> _Self:
        return self

    def __exit__(self, *exc: object) -> None:
        self.close()


def text(value: Optional[bytes]) -> Optional[str]:
    """A C text as a Python string (None stays None)."""
    return None if value is None else value.decode("utf-8", "replace")


def encode(value: str) -> bytes:
    """A Python string as a C text; a NUL character inside is refused."""
    data = value.encode("utf-8")
    if b"\0" in data:
        raise ValueError("a text handed to the ryn libraries cannot hold a NUL character")
    return data

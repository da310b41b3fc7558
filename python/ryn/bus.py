"""Buses of drives, opened by address: ``sim:`` (simulated drives in process) or ``tcp://``."""

from __future__ import annotations

import ctypes
import itertools
import os
from typing import List, NamedTuple, Optional, Tuple, Union

from . import dictionary, errors
from ._lib import OXB_DRIVE_INFO, OXB_EXT_INFO, OXBSIM_DRIVE, Owned, encode, lib, text

_oxb = lib.oxb
_names = itertools.count(1)


class DriveInfo(NamedTuple):
    """What the bus says of the drive at an axis."""

    axis: int
    product: int
    product_name: Optional[str]
    version: str
    serial: int
    boot_revision: int
    ext_product: int  # 0: no extension card
    ext_name: Optional[str]
    ext_version: Optional[str]


def open_port(address: str) -> ctypes.c_void_p:
    """Opens a port by address; raises BusError with the library's message."""
    port = ctypes.c_void_p()
    rc = _oxb.oxb_open(encode(address), ctypes.byref(port))
    if rc != 0:
        raise errors.error(rc, line_text=address)
    return port


def close_port(port: ctypes.c_void_p) -> None:
    """Closes a port opened by open_port; a closed one is left alone."""
    if port:
        _oxb.oxb_close(ctypes.byref(port))


def _addresses(address: str) -> Tuple[str, str]:
    """The address to open first and the one under which further ports reach the same bus.

    Every open of an unnamed ``sim:`` address makes a bus of its own, so such a bus gets a name of
    this process; a named one is joined by its name alone; a ``tcp://`` address is a served bus
    that every open reaches.
    """
    if not address.startswith("sim:"):
        return address, address
    options = [o for o in address[4:].split(";") if o]
    for option in options:
        if option.startswith("name="):
            return address, "sim:" + option
    name = "name=ryn-python-%d-%d" % (os.getpid(), next(_names))
    return "sim:" + ";".join(options + [name]), "sim:" + name


class Bus(Owned):
    """A bus of drives opened by address, ``Bus("sim:")`` being the demo bus of five drives.

    Translators, backups and restores on the bus each open a port of their own on it (a port
    serves one translator), so they may run side by side. Close the bus with :meth:`close` or a
    ``with`` block; the garbage collector closes a forgotten one. Closing the bus closes its own
    port: translators opened on it keep theirs until they are closed.
    """

    def __init__(self, address: str = "sim:") -> None:
        opened, self._shared = _addresses(address)
        self.address = address
        self._port = open_port(opened)
        self._own(close_port, self._port)
        handle = ctypes.c_void_p()
        errors.check(_oxb.oxb_get_port_bus(self._port, ctypes.byref(handle)))
        self._bus = handle


    def __repr__(self) -> str:
        return "ryn.Bus(%r%s)" % (self.address, "" if self._port else ", closed")

    @property
    def handle(self) -> ctypes.c_void_p:
        """The C OXB_BUS handle (raises BusError once the bus is closed)."""
        if not self._port:
            raise errors.BusError(-204, "the bus is closed")
        return self._bus

    def open_port(self) -> ctypes.c_void_p:
        """Opens another port on this bus (the caller closes it with close_port)."""
        self.handle  # refuses a closed bus
        return open_port(self._shared)

    @property
    def present_mask(self) -> int:
        """Mask of the axes where a drive is present (bit n: axis n)."""
        mask = ctypes.c_uint64()
        errors.check(_oxb.oxb_get_present_axes(self.handle, ctypes.byref(mask)))
        return mask.value

    @property
    def present_axes(self) -> List[int]:
        """The axes where a drive is present, in ascending order."""
        mask = self.present_mask
        return [a for a in range(64) if mask >> a & 1]

    def drive_info(self, axis: int) -> DriveInfo:
        """The identity of the drive at an axis (BusError -214 when there is none)."""
        info = OXB_DRIVE_INFO(size=ctypes.sizeof(OXB_DRIVE_INFO))
        errors.check(_oxb.oxb_get_drive_info(self.handle, axis, ctypes.byref(info)))
        ext = OXB_EXT_INFO(size=ctypes.sizeof(OXB_EXT_INFO))
        errors.check(_oxb.oxb_get_ext_info(self.handle, axis, ctypes.byref(ext)))
        return DriveInfo(axis, info.product, text(_vok_name(info.product)),
                         dictionary.version_text(info.version), info.serial, info.boot_revision,
                         ext.product, text(lib.vok.vok_get_ext_product_name(ext.product))
                         if ext.product else None,
                         dictionary.version_text(ext.version) if ext.product else None)

    # ---- Simulated buses only (BusError -217 on another bus) ----

    def attach(self, axis: int, product: Union[str, int] = "ORX-D32",
               version: Union[str, int] = 0, ext: Union[str, int, None] = None,
               serial: int = 0) -> None:
        """Attaches a simulated drive at an axis (version 0: the product's default)."""
        drive = OXBSIM_DRIVE(product=dictionary.product_code(product),
                             version=dictionary.version_from_text(version),
                             ext_product=dictionary.card_code(ext), serial=serial)
        errors.check(_oxb.oxbsim_attach(self.handle, axis, ctypes.byref(drive)))

    def detach(self, axis: int) -> None:
        """Detaches the simulated drive at an axis."""
        errors.check(_oxb.oxbsim_detach(self.handle, axis))

    def reset(self, axes: Optional[List[int]] = None) -> None:
        """Puts the memory of simulated drives (all, or those of the axes) back to defaults."""
        mask = (1 << 64) - 1 if axes is None else sum(1 << a for a in axes)
        errors.check(_oxb.oxbsim_reset(self.handle, mask))


def _vok_name(product: int) -> Optional[bytes]:
    return lib.vok.vok_get_product_name(product)

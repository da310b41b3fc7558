"""Python interface to the ryn libraries of the ORAX motion-control drives.

Translate command text to bus records and back, send commands to drives and receive their
answers, back up and restore parameter sets, and browse the family's dictionaries. Everything
runs in the C libraries ``libryn_tra`` and ``libryn_oxb`` through ctypes; see docs/python.md.
"""

from . import dictionary
from .bus import Bus, DriveInfo
from .errors import (BusError, DictionaryError, Error, Frame, NoDriveError, ParameterError,
                     ProductError, ReadOnlyError, Refused, Timeout, TranslatorError)
from .params import BackupReport, RestoreReport, backup, restore
from .translator import (ACCEPT_UNKNOWN_VERSION, DESCRIPTIONS, DOWNLOAD_AXES, DRIVE_ONLY,
                         EMPTY_IS_ERROR, FULL_PRECISION, GROUP_CLASSES, ISO_CONVERT, NO_AXIS,
                         NO_CHECK, NO_COMMENTS, RAW_VALUES, REQUEST_FLAG, RESERVED_COMMENT,
                         SKIP_DEFAULTS, TAB, TABS4, TABS8, USE_ALIASES, VECTOR_FORM, VERBOSE,
                         Answer, Record, StreamReport, Translator, library_version)

__version__ = "4.27.1"

__all__ = [
    "ACCEPT_UNKNOWN_VERSION", "Answer", "BackupReport", "Bus", "BusError", "DESCRIPTIONS",
    "DOWNLOAD_AXES", "DRIVE_ONLY", "DictionaryError", "DriveInfo", "EMPTY_IS_ERROR", "Error",
    "FULL_PRECISION", "Frame", "GROUP_CLASSES", "ISO_CONVERT", "NO_AXIS", "NO_CHECK",
    "NO_COMMENTS", "NoDriveError", "ParameterError", "ProductError", "RAW_VALUES",
    "REQUEST_FLAG", "RESERVED_COMMENT", "ReadOnlyError", "Record", "Refused", "RestoreReport",
    "SKIP_DEFAULTS", "StreamReport", "TAB", "TABS4", "TABS8", "Timeout", "Translator",
    "TranslatorError", "USE_ALIASES", "VECTOR_FORM", "VERBOSE", "backup", "dictionary",
    "library_version", "restore",
]

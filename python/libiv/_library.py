"""The shared library: where it is, its records and the types of its functions."""

from __future__ import annotations

import ctypes
import os
import threading
from collections.abc import Iterator
from pathlib import Path
from typing import Any

SONAME = "libiv.so.0"
VARIABLE = "LIBIV_LIBRARY"


class MatrixRecord(ctypes.Structure):
    """iv_mat_t: a header over dense row-major storage."""

    _fields_ = [
        ("type", ctypes.c_int32),
        ("rows", ctypes.c_int32),
        ("cols", ctypes.c_int32),
        ("step", ctypes.c_int32),
        ("data", ctypes.c_void_p),
    ]


_MATRIX = ctypes.POINTER(MatrixRecord)

# The fourteen matrices of a filter, in the order of the record.
FILTER_MATRICES = (
    *("x_pre", "x_post", "P_pre", "P_post", "K"),
    *("temp1", "temp2", "temp3", "temp4", "temp5"),
    *("A", "H", "Q", "R"),
)


class KalmanRecord(ctypes.Structure):
    """iv_kalman_t: a filter and the matrices in its block."""

    _fields_ = [
        ("ns", ctypes.c_int32),
        ("nm", ctypes.c_int32),
        *((name, _MATRIX) for name in FILTER_MATRICES),
        ("mbuf", ctypes.c_void_p),
    ]


_FILTER = ctypes.POINTER(KalmanRecord)
_ANY = ctypes.c_void_p
_INT = ctypes.c_int
_FLOAT = ctypes.c_float

# Result and arguments of every exported function.
SIGNATURES: dict[str, tuple[Any, list[Any]]] = {
    "iv_tracker_create": (_ANY, [_INT, _INT, _INT, _FLOAT, _FLOAT, _INT, _INT, _INT]),
    "iv_tracker_set_params": (None, [_ANY, _FLOAT, _FLOAT, _INT, _INT, _INT]),
    "iv_tracker_process": (None, [_ANY, _ANY, _ANY]),
    "iv_tracker_release": (None, [_ANY]),
    "iv_mat_initheader": (_MATRIX, [_MATRIX, _INT, _INT, _INT, _ANY]),
    "iv_mat_create": (_MATRIX, [_INT, _INT, _INT]),
    "iv_mat_release": (None, [_MATRIX]),
    "iv_mat_setzero": (None, [_MATRIX]),
    "iv_mat_print": (None, [ctypes.c_char_p, _MATRIX]),
    "iv_mat_setidentity": (None, [_MATRIX]),
    "iv_mat_setdiagonal": (None, [_ANY, _MATRIX]),
    "iv_mat_setone": (None, [_MATRIX]),
    "iv_mat_neg": (None, [_MATRIX] * 2),
    "iv_mat_scale": (None, [_ANY, _MATRIX, _MATRIX]),
    "iv_mat_add": (None, [_MATRIX] * 3),
    "iv_mat_sub": (None, [_MATRIX] * 3),
    "iv_mat_transpose": (None, [_MATRIX] * 2),
    "iv_mat_mul": (None, [_MATRIX] * 3 + [_INT]),
    "iv_mat_muladd": (None, [_MATRIX] * 4 + [_INT]),
    "iv_mat_submul": (None, [_MATRIX] * 4 + [_INT]),
    "iv_mat_inv": (_INT, [_MATRIX] * 2),
    "_matmult_3x3": (None, [_ANY] * 3),
    "_matmult_3x3t": (None, [_ANY] * 3),
    "_matmult_3x3vec": (None, [_ANY] * 3),
    "_matmult_3x3tvec": (None, [_ANY] * 3),
    "_matneg_3x3": (None, [_ANY]),
    "_matdet_3x3": (_FLOAT, [_ANY]),
    "_vecoutp_3": (None, [_ANY] * 3),
    "_veccrossp_3": (None, [_ANY] * 3),
    "_vecdotp_3": (_FLOAT, [_ANY] * 2),
    "iv_kalman_create": (_FILTER, [_INT, _INT, _INT] + [_MATRIX] * 4),
    "iv_kalman_release": (None, [_FILTER]),
    "iv_kalman_predict": (None, [_FILTER]),
    "iv_kalman_correct": (None, [_FILTER, _MATRIX]),
}


def _built() -> Iterator[str]:
    """The library in the source tree that this file lies in, if it does and it is built."""
    tree = Path(__file__).resolve().parents[2]
    if (tree / "src" / "libiv.h").is_file():
        for build in ("release", "demo"):
            library = tree / "build" / build / "src" / SONAME
            if library.is_file():
                yield str(library)


def _load() -> ctypes.CDLL:
    named = os.environ.get(VARIABLE)
    candidates = [named] if named else [*_built(), SONAME]
    failures = []
    for name in candidates:
        try:
            library = ctypes.CDLL(name)
            for function, (result, arguments) in SIGNATURES.items():
                declared = getattr(library, function)
                declared.restype, declared.argtypes = result, arguments
            return library
        except (OSError, AttributeError) as error:  # not there, or another library of the name
            failures.append(str(error))
    raise ImportError(
        f"libiv: expected the shared library {SONAME} installed, built by `./dev demo`, or "
        f"named by {VARIABLE}; tried: {'; '.join(failures)}"
    )


lib = _load()

# Calls that share the inverse's work area must not overlap in time; they hold this lock. It may be
# taken twice by one thread: the garbage collector closes forgotten trackers wherever it runs.
lock = threading.RLock()

"""The C functions as the headers declare them, called by hand: records by their bytes, rows one by
one. Nothing here comes from the module under test."""

import ctypes
import os
import struct
from typing import Any, Optional

import numpy as np

lib = ctypes.CDLL(os.environ["LIBIV_LIBRARY"])
lib.iv_tracker_create.restype = ctypes.c_void_p
lib.iv_mat_create.restype = ctypes.c_void_p
lib.iv_kalman_create.restype = ctypes.c_void_p

RECORD = "iiiiP"  # type, rows, cols, step, data
DEPTHS = {"u1": 0, "i1": 1, "u2": 2, "i2": 3, "i4": 4, "f4": 5, "i8": 6, "f8": 7}
STRINGS = {depth: dtype for dtype, depth in DEPTHS.items()}


def pointer(address: Optional[int]) -> ctypes.c_void_p:
    return ctypes.c_void_p(address)


class Matrix:
    """A matrix in the library's own memory: one that it made, or one of a filter's."""

    def __init__(self, values: Any = None, at: Optional[int] = None) -> None:
        self.owned = at is None
        if at is None:
            channels = values.shape[2] if values.ndim == 3 else 1
            code = DEPTHS[values.dtype.str[1:]] + 8 * (channels - 1)
            at = lib.iv_mat_create(values.shape[0], values.shape[1], code)
        self.address: int = at  # type: ignore[assignment]
        if values is not None:
            self.write(values)

    def __del__(self) -> None:
        if self.owned:
            lib.iv_mat_release(pointer(self.address))

    def fields(self) -> tuple[int, ...]:
        record = ctypes.string_at(self.address, struct.calcsize(RECORD))
        return struct.unpack(RECORD, record)

    def write(self, values: Any) -> None:
        ctypes.memmove(self.fields()[4], values.tobytes(), values.nbytes)

    def read(self) -> Any:
        code, rows, cols, step, data = self.fields()
        channels = (code >> 3) + 1
        shape = (rows, cols, channels) if channels > 1 else (rows, cols)
        return np.frombuffer(ctypes.string_at(data, rows * step), STRINGS[code & 7]).reshape(shape)


def call(function: str, *arguments: Any) -> Any:
    """Calls with matrices, integers, or None for null."""
    converted = [
        pointer(a.address) if isinstance(a, Matrix) else pointer(None) if a is None else a
        for a in arguments
    ]
    return getattr(lib, function)(*converted)


class Filter:
    """A filter with a model of its own; its matrices by name."""

    NAMES = "x_pre x_post P_pre P_post K temp1 temp2 temp3 temp4 temp5 A H Q R".split()

    def __init__(self, ns: int, nm: int) -> None:
        self.address = lib.iv_kalman_create(ns, nm, 0, *[pointer(None)] * 4)
        fields = struct.unpack("ii15P", ctypes.string_at(self.address, struct.calcsize("ii15P")))
        self.matrices = {name: Matrix(at=at) for name, at in zip(self.NAMES, fields[2:])}

    def __del__(self) -> None:
        lib.iv_kalman_release(pointer(self.address))


class Tracker:
    """One instance; frames as lists of rows."""

    def __init__(
        self,
        capacity: int,
        distance: float = 1.0,
        overlap: float = 0.1,
        stable: int = 3,
        removal: int = 5,
        ignore_class: bool = False,
    ) -> None:
        self.capacity = capacity
        self.stable = stable
        self.handle = lib.iv_tracker_create(
            *(0, 0, capacity, ctypes.c_float(distance), ctypes.c_float(overlap)),
            *(stable, removal, int(ignore_class)),
        )

    def __del__(self) -> None:
        zero = ctypes.c_float(0)
        lib.iv_tracker_set_params(pointer(self.handle), zero, zero, self.stable, 0, 0)
        self.process([])
        lib.iv_tracker_release(pointer(self.handle))

    def process(self, rows: list[list[float]]) -> list[list[float]]:
        """Rows of class, left, top, right, bottom, score give rows as the header describes them."""
        flat = [value for row in rows for value in row] + [0.0] * 6
        source = (ctypes.c_float * len(flat))(*flat)
        target = (ctypes.c_float * (8 * self.capacity))()
        lib.iv_tracker_process(pointer(self.handle), source, target)
        tracks = []
        for n in range(self.capacity):
            if target[8 * n] == -1:
                break
            tracks.append(target[8 * n : 8 * n + 8])
        return tracks

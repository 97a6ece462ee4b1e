"""Kernels for 3x3 matrices, shape (3, 3), and 3-vectors, shape (3,), of float32.

Products, the dot and the cross product sum in double precision and round once; negation,
determinant and outer product are single precision. Operands of another type are refused (TypeError)
and so are other shapes (ValueError); non-contiguous ones are copied. Results are new arrays.
"""

from __future__ import annotations

from typing import Any

import numpy as np
import numpy.typing as npt

from ._library import lib

Array = npt.NDArray[np.float32]


def _operand(name: str, given: npt.ArrayLike, *shape: int) -> Array:
    array = np.asarray(given)
    if array.dtype != np.float32:
        raise TypeError(f"{name}: expected float32, got {array.dtype}")
    if array.shape != shape:
        raise ValueError(f"{name}: expected shape {shape}, got {array.shape}")
    return np.ascontiguousarray(array)


def _call(function: Any, a: Array, b: Array, *shape: int) -> Array:
    result = np.empty(shape, np.float32)
    function(a.ctypes.data, b.ctypes.data, result.ctypes.data)
    return result


def mul(a: npt.ArrayLike, b: npt.ArrayLike) -> Array:
    """a b of two matrices."""
    return _call(lib._matmult_3x3, _operand("a", a, 3, 3), _operand("b", b, 3, 3), 3, 3)


def mul_transposed(a: npt.ArrayLike, b: npt.ArrayLike) -> Array:
    """a b' of two matrices."""
    return _call(lib._matmult_3x3t, _operand("a", a, 3, 3), _operand("b", b, 3, 3), 3, 3)


def apply(a: npt.ArrayLike, x: npt.ArrayLike) -> Array:
    """a x of a matrix and a vector."""
    return _call(lib._matmult_3x3vec, _operand("a", a, 3, 3), _operand("x", x, 3), 3)


def apply_transposed(a: npt.ArrayLike, x: npt.ArrayLike) -> Array:
    """a' x of a matrix and a vector."""
    return _call(lib._matmult_3x3tvec, _operand("a", a, 3, 3), _operand("x", x, 3), 3)


def neg(a: npt.ArrayLike) -> Array:
    """-a of a matrix; every sign bit flips."""
    result = _operand("a", a, 3, 3).copy()
    lib._matneg_3x3(result.ctypes.data)
    return result


def det(a: npt.ArrayLike) -> float:
    """Determinant of a matrix."""
    return float(lib._matdet_3x3(_operand("a", a, 3, 3).ctypes.data))


def outer(x: npt.ArrayLike, y: npt.ArrayLike) -> Array:
    """x y' of two vectors, a matrix."""
    return _call(lib._vecoutp_3, _operand("x", x, 3), _operand("y", y, 3), 3, 3)


def cross(x: npt.ArrayLike, y: npt.ArrayLike) -> Array:
    """Cross product of two vectors."""
    return _call(lib._veccrossp_3, _operand("x", x, 3), _operand("y", y, 3), 3)


def dot(x: npt.ArrayLike, y: npt.ArrayLike) -> float:
    """Dot product of two vectors."""
    first, second = _operand("x", x, 3), _operand("y", y, 3)
    return float(lib._vecdotp_3(first.ctypes.data, second.ctypes.data))

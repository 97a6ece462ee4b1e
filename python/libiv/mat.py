"""The matrix toolkit on numpy arrays.

A matrix is an array of shape (rows, cols), or (rows, cols, channels) with 1 to 32 channels, of one
of the types uint8, int8, uint16, int16, int32, float32, int64 and float64 in the machine's byte
order. What numpy takes for an array, such as a list of lists, will do.

Operands that are C-contiguous are read where they are, others from a copy. Results go to a new
array, or to `out`, which must have their shape and type and be C-contiguous and writeable.

Integers wrap around at their width. Floats have one order of operations: products sum in ascending
index with one fused multiply-add a term, so results are the same bits on every machine, which those
of numpy's own products are not.

Errors: TypeError for element types that do not fit, ValueError for shapes and storage that do not.
"""

from __future__ import annotations

import operator
from typing import Any

import numpy as np
import numpy.typing as npt

from ._library import MatrixRecord, lib, lock

Array = npt.NDArray[Any]
Out = Array | None

# Type codes count the depths from 0 in this order.
TYPES = ("uint8", "int8", "uint16", "int16", "int32", "float32", "int64", "float64")
_DEPTHS = {np.dtype(name).str: depth for depth, name in enumerate(TYPES)}

_TRANSPOSE_FIRST, _TRANSPOSE_SECOND, _IDENTITY = 1, 2, 16
_MOST_CHANNELS = 32
_MOST_BYTES = 2**31 - 1  # the library counts bytes in 32 bits


def _check(name: str, array: Array, channels: bool = True) -> None:
    """Raises unless the array is a matrix."""
    if array.dtype.str not in _DEPTHS:
        raise TypeError(f"{name}: expected one of {', '.join(TYPES)}, got {array.dtype.str}")
    deep = array.ndim == 3 and channels and 1 <= array.shape[2] <= _MOST_CHANNELS
    if array.ndim != 2 and not deep:
        expected = f" or (rows, cols, 1 to {_MOST_CHANNELS})" if channels else ", one channel"
        raise ValueError(f"{name}: expected shape (rows, cols){expected}, got {array.shape}")
    if array.nbytes > _MOST_BYTES:
        raise ValueError(f"{name}: expected at most {_MOST_BYTES} bytes, got {array.nbytes}")


def _operand(name: str, given: npt.ArrayLike, channels: bool = True) -> Array:
    array = np.asarray(given)
    _check(name, array, channels)
    return np.ascontiguousarray(array)


def _like(first: Array, name: str, given: npt.ArrayLike, shape: tuple[int, ...]) -> Array:
    """A further operand, of the first one's type."""
    array = _operand(name, given)
    _expect_type(name, array, first.dtype)
    _expect_shape(name, array, shape)
    return array


def _expect_type(name: str, array: Array, dtype: np.dtype[Any]) -> None:
    if array.dtype != dtype:
        raise TypeError(f"{name}: expected {dtype} like the first operand, got {array.dtype}")


def _expect_shape(name: str, array: Array, shape: tuple[int, ...]) -> None:
    if array.shape != shape:
        raise ValueError(f"{name}: expected shape {shape}, got {array.shape}")


def _expect_writeable(name: str, array: Array) -> None:
    if not isinstance(array, np.ndarray):
        raise TypeError(f"{name}: expected a numpy array, got {type(array).__name__}")
    if not (array.flags.c_contiguous and array.flags.writeable):
        raise ValueError(f"{name}: expected a C-contiguous, writeable array")


def _result(out: Out, like: Array, shape: tuple[int, ...], apart: tuple[Array, ...] = ()) -> Array:
    """Where the result goes: `out` if it fits and shares no storage with what it is kept apart."""
    if out is None:
        out = np.empty(shape, like.dtype)
        _check("the result", out)
        return out
    _expect_writeable("out", out)
    _expect_type("out", out, like.dtype)
    _expect_shape("out", out, shape)
    if any(np.may_share_memory(out, operand) for operand in apart):
        raise ValueError("out: expected storage apart from the operands'")
    return out


def header(array: Array) -> MatrixRecord:
    """The record over the array's values, which it does not keep alive."""
    depth = _DEPTHS[array.dtype.str]
    channels = array.shape[2] if array.ndim == 3 else 1
    record = MatrixRecord()
    lib.iv_mat_initheader(
        record, array.shape[0], array.shape[1], depth | (channels - 1) << 3, array.ctypes.data
    )
    return record


def _in_place(matrix: Array) -> Array:
    _expect_writeable("matrix", matrix)
    _check("matrix", matrix)
    return matrix


def setzero(matrix: Array) -> None:
    """Fills with zeros, all channels."""
    lib.iv_mat_setzero(header(_in_place(matrix)))


def setone(matrix: Array) -> None:
    """Fills with ones, all channels."""
    lib.iv_mat_setone(header(_in_place(matrix)))


def setidentity(matrix: Array) -> None:
    """Ones on the main diagonal, zeros elsewhere, in channel 0; others keep their values."""
    if _in_place(matrix).size:  # the library writes a first element in any case
        lib.iv_mat_setidentity(header(matrix))


def setdiagonal(values: npt.ArrayLike, matrix: Array) -> None:
    """`values` on the main diagonal, zeros elsewhere, in channel 0; others keep their values.

    values: shape (min(rows, cols),), of the matrix's type; copied bit for bit
    """
    if _in_place(matrix).size:
        diagonal = np.ascontiguousarray(values)
        if diagonal.dtype != matrix.dtype:
            raise TypeError(f"values: expected {matrix.dtype}, got {diagonal.dtype}")
        _expect_shape("values", diagonal, (min(matrix.shape[:2]),))
        lib.iv_mat_setdiagonal(diagonal.ctypes.data, header(matrix))


def neg(a: npt.ArrayLike, *, out: Out = None) -> Array:
    """-a; floats flip their sign bit. TypeError for uint8 and uint16. `out` may overlap `a`."""
    a = _operand("a", a)
    if a.dtype.kind == "u":
        raise TypeError(f"a: expected a signed type, got {a.dtype}")
    out = _result(out, a, a.shape)
    lib.iv_mat_neg(header(a), header(out))
    return out


def scale(a: npt.ArrayLike, value: float, *, out: Out = None) -> Array:
    """a * value. `out` may overlap `a`.

    value: a number of a's type, an integer in its range if it is one; OverflowError beyond it
    """
    a = _operand("a", a)
    if a.dtype.kind in "iu":
        value = operator.index(value)  # type: ignore[arg-type]  # a TypeError names the type
        limits = np.iinfo(a.dtype)
        if not limits.min <= value <= limits.max:
            raise OverflowError(f"value: expected {limits.min} to {limits.max}, got {value}")
    factor = np.array(value, a.dtype)
    _expect_shape("value", factor, ())
    out = _result(out, a, a.shape)
    lib.iv_mat_scale(factor.ctypes.data, header(a), header(out))
    return out


def add(a: npt.ArrayLike, b: npt.ArrayLike, *, out: Out = None) -> Array:
    """a + b, of equal shapes. `out` may overlap both."""
    a = _operand("a", a)
    b = _like(a, "b", b, a.shape)
    out = _result(out, a, a.shape)
    lib.iv_mat_add(header(a), header(b), header(out))
    return out


def sub(a: npt.ArrayLike, b: npt.ArrayLike, *, out: Out = None) -> Array:
    """a - b, of equal shapes. `out` may overlap both."""
    a = _operand("a", a)
    b = _like(a, "b", b, a.shape)
    out = _result(out, a, a.shape)
    lib.iv_mat_sub(header(a), header(b), header(out))
    return out


def transpose(a: npt.ArrayLike, *, out: Out = None) -> Array:
    """Rows become columns; the channels of an element stay together."""
    a = _operand("a", a)
    out = _result(out, a, (a.shape[1], a.shape[0], *a.shape[2:]), apart=(a,))
    lib.iv_mat_transpose(header(a), header(out))
    return out


def mul(
    a: npt.ArrayLike,
    b: npt.ArrayLike,
    *,
    transpose_a: bool = False,
    transpose_b: bool = False,
    out: Out = None,
) -> Array:
    """a b, a' b or a b', of one channel and an inner length of at least 1."""
    if transpose_a and transpose_b:
        raise ValueError("expected at most one of transpose_a and transpose_b")
    a, b, shape = _factors(a, b, transpose_a, transpose_b)
    if a.shape[0 if transpose_a else 1] == 0:
        raise ValueError(f"a: expected an inner length of at least 1, got shape {a.shape}")
    out = _result(out, a, shape, apart=(a, b))
    flags = _TRANSPOSE_FIRST * transpose_a | _TRANSPOSE_SECOND * transpose_b
    lib.iv_mat_mul(header(a), header(b), header(out), flags)
    return out


def muladd(
    a: npt.ArrayLike,
    b: npt.ArrayLike,
    c: npt.ArrayLike,
    *,
    transpose_b: bool = False,
    out: Out = None,
) -> Array:
    """c + a b or c + a b', of one channel. `out` may be `c`."""
    a, b, shape = _factors(a, b, False, transpose_b)
    c = _like(a, "c", c, shape)
    out = _result(out, a, shape, apart=_apart(out, a, b, c))
    lib.iv_mat_muladd(header(a), header(b), header(c), header(out), _TRANSPOSE_SECOND * transpose_b)
    return out


def submul(
    a: npt.ArrayLike | None, b: npt.ArrayLike, c: npt.ArrayLike, *, out: Out = None
) -> Array:
    """a - b c, of one channel; None for `a` stands for the identity. `out` may be `a`."""
    b, c, shape = _factors(b, c, False, False, names="bc")
    if a is None:
        out = _result(out, b, shape, apart=(b, c))
        lib.iv_mat_submul(None, header(b), header(c), header(out), _IDENTITY)
    else:
        a = _like(b, "a", a, shape)
        out = _result(out, b, shape, apart=_apart(out, b, c, a))
        lib.iv_mat_submul(header(a), header(b), header(c), header(out), 0)
    return out


def _factors(
    a: npt.ArrayLike, b: npt.ArrayLike, transpose_a: bool, transpose_b: bool, names: str = "ab"
) -> tuple[Array, Array, tuple[int, int]]:
    """Both factors of a product, and its shape."""
    a = _operand(names[0], a, channels=False)
    b = _operand(names[1], b, channels=False)
    _expect_type(names[1], b, a.dtype)
    inner, rows = a.shape if transpose_a else a.shape[::-1]
    cols = b.shape[0 if transpose_b else 1]
    _expect_shape(names[1], b, (cols, inner) if transpose_b else (inner, cols))
    return a, b, (rows, cols)


def _apart(out: Out, a: Array, b: Array, start: Array) -> tuple[Array, ...]:
    """What `out` must not overlap where the sums start from a matrix: it may be that matrix."""
    whole = out is not None and out.ctypes.data == start.ctypes.data
    return (a, b) if whole else (a, b, start)


def inv(a: npt.ArrayLike, *, out: Out = None) -> Array:
    """The inverse of a float32 matrix of one channel, square, of order 40 or less.

    Gauss-Jordan elimination without a search for the largest pivot. A singular matrix is not
    detected: the result holds infinities, NaNs or meaningless numbers, and may depend on earlier
    inverses. `out` may be `a`.
    """
    a = _operand("a", a)
    out = _result(out, a, a.shape, apart=() if out is a else (a,))
    with lock:
        refused = a.shape[0] != a.shape[1] or lib.iv_mat_inv(header(a), header(out)) != 0
    if refused:
        raise ValueError(
            "a: expected a square float32 matrix of one channel and order 40 at most, "
            f"got {a.dtype} of shape {a.shape}"
        )
    return out

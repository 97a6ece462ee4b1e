"""Arithmetic in exact numbers, rounded or wrapped as the library's contract says, and a comparison
of arrays to the bit."""

from fractions import Fraction
from typing import Any

import numpy as np

TYPES = [
    np.dtype(t)
    for t in (np.uint8, np.int8, np.uint16, np.int16, np.int32, np.float32, np.int64, np.float64)
]
FLOATS = [t for t in TYPES if t.kind == "f"]


def assert_same(got: Any, expected: Any) -> None:
    assert got.dtype == expected.dtype
    assert got.shape == expected.shape
    assert got.tobytes() == expected.tobytes(), f"got {got}, expected {expected}"


def any_values(random: np.random.Generator, dtype: np.dtype[Any], *shape: int) -> Any:
    """Integers from the whole range, floats around 0."""
    if dtype.kind == "f":
        return random.standard_normal(shape).astype(dtype)
    limits = np.iinfo(dtype)
    return random.integers(limits.min, limits.max, shape, dtype, endpoint=True)


def rounded(exact: Fraction, dtype: np.dtype[Any]) -> Any:
    """The nearest float, of two equally near ones that of even mantissa."""
    near = dtype.type(float(exact))
    bits = f"i{dtype.itemsize}"
    around = [near, *(np.nextafter(near, dtype.type(end)) for end in (-np.inf, np.inf))]
    return min(around, key=lambda x: (abs(Fraction(float(x)) - exact), x.view(bits) & 1))


def wrapped(exact: int, dtype: np.dtype[Any]) -> Any:
    low = np.iinfo(dtype).min
    return dtype.type((exact - low) % 2 ** (8 * dtype.itemsize) + low)


def fused(a: Any, b: Any, start: Any) -> Any:
    """start + a b, rounded or wrapped once."""
    if a.dtype.kind == "f":
        exact = Fraction(float(a)) * Fraction(float(b)) + Fraction(float(start))
        return rounded(exact, a.dtype)
    return wrapped(int(a) * int(b) + int(start), a.dtype)


def product(a: Any, b: Any, start: Any = None) -> Any:
    """start + a b, ascending, one fused multiply-add a term; without start, first a product."""
    result = np.empty((a.shape[0], b.shape[1]), a.dtype)
    for i, j in np.ndindex(*result.shape):
        value = a.dtype.type(0) if start is None else start[i, j]
        for k in range(a.shape[1]):
            value = fused(a[i, k], b[k, j], value)
        result[i, j] = value
    return result

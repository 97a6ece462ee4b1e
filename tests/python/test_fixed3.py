"""The 3x3 kernels give the C functions' results to the bit."""

from fractions import Fraction

import numpy as np
import pytest

from bits import any_values, assert_same, rounded
from libiv import fixed3

F32, F64 = np.dtype(np.float32), np.dtype(np.float64)


def sum_of_three(x, y):
    """x . y as the header says: in double precision, the middle term first, rounded once."""
    total = np.float64(x[1]) * np.float64(y[1])
    for k in (0, 2):
        exact = Fraction(float(x[k])) * Fraction(float(y[k])) + Fraction(float(total))
        total = rounded(exact, F64)
    return np.float32(total)


def test_products_sum_in_double_precision_the_middle_term_first(random):
    a, b = any_values(random, F32, 3, 3), any_values(random, F32, 3, 3)
    x, y = any_values(random, F32, 3), any_values(random, F32, 3)
    expected = np.array([[sum_of_three(row, col) for col in b.T] for row in a])
    assert_same(fixed3.mul(a, b), expected)
    assert_same(fixed3.mul_transposed(a, b.T), expected)
    assert_same(fixed3.apply(a, x), np.array([sum_of_three(row, x) for row in a]))
    assert_same(fixed3.apply_transposed(a.T, x), fixed3.apply(a, x))
    assert fixed3.dot(x, y) == sum_of_three(x, y)


def test_the_others_are_what_their_names_say(random):
    a, x, y = (any_values(random, F32, *shape) for shape in ((3, 3), (3,), (3,)))
    assert_same(fixed3.neg(a), -a)
    assert_same(fixed3.outer(x, y), np.outer(x, y))
    unit = np.eye(3, dtype=np.float32)
    assert_same(fixed3.cross(unit[0], unit[1]), unit[2])
    counted = np.arange(1, 10, dtype=np.float32).reshape(3, 3)
    assert fixed3.det(counted) == 0
    assert fixed3.det(2 * unit) == 8


def test_what_does_not_fit_is_refused():
    unit = np.eye(3, dtype=np.float32)
    with pytest.raises(ValueError, match=r"b: expected shape \(3, 3\), got \(2, 3\)"):
        fixed3.mul(unit, unit[:2])
    with pytest.raises(TypeError, match="a: expected float32, got float64"):
        fixed3.det(np.eye(3))
    with pytest.raises(ValueError, match=r"y: expected shape \(3,\), got \(3, 3\)"):
        fixed3.dot(unit[0], unit)

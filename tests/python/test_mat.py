"""The matrix toolkit gives the C functions' results to the bit, and says what does not fit."""

import re

import numpy as np
import pytest

import raw
from bits import FLOATS, TYPES, any_values, assert_same, product
from libiv import mat

INTEGERS = [t for t in TYPES if t.kind != "f"]
each_type = pytest.mark.parametrize("dtype", TYPES, ids=str)


def by_hand(function, shape, dtype, *operands, flags=()):
    """The C function's result, into a destination that held other values."""
    target = raw.Matrix(np.ones(shape, dtype))
    sources = [None if o is None else raw.Matrix(o) for o in operands]
    raw.call(function, *sources, target, *flags)
    return target.read()


@each_type
@pytest.mark.parametrize("shape", [(3, 4), (1, 1), (5, 1), (0, 4), (3, 0), (2, 3, 3), (1, 2, 32)])
@pytest.mark.parametrize("name, numpys", [("add", np.add), ("sub", np.subtract)])
def test_sums_are_those_of_c_and_wrap_around(random, dtype, shape, name, numpys):
    a, b = any_values(random, dtype, *shape), any_values(random, dtype, *shape)
    got = getattr(mat, name)(a, b)
    assert_same(got, by_hand(f"iv_mat_{name}", shape, dtype, a, b))
    assert_same(got, numpys(a, b))


@pytest.mark.parametrize("dtype", [t for t in TYPES if t.kind != "u"], ids=str)
@pytest.mark.parametrize("shape", [(3, 4), (0, 4), (2, 3, 3)])
def test_negation_is_that_of_c(random, dtype, shape):
    a = any_values(random, dtype, *shape)
    assert_same(mat.neg(a), by_hand("iv_mat_neg", shape, dtype, a))
    assert_same(mat.neg(a), -a)
    zero = np.zeros((1, 1), dtype)
    assert_same(mat.neg(zero), -zero)


@each_type
def test_scaling_wraps_around_or_rounds_once(random, dtype):
    a, value = any_values(random, dtype, 3, 4), any_values(random, dtype, 1)[0]
    assert_same(mat.scale(a, value), a * value)
    assert_same(mat.scale(a, value.item()), a * value)


@each_type
@pytest.mark.parametrize("shape", [(3, 4), (1, 7), (0, 2), (3, 3), (2, 3, 5)])
def test_the_transpose_keeps_channels_together(random, dtype, shape):
    a = any_values(random, dtype, *shape)
    expected = np.ascontiguousarray(np.swapaxes(a, 0, 1))
    assert_same(mat.transpose(a), expected)
    assert_same(mat.transpose(a), by_hand("iv_mat_transpose", expected.shape, dtype, a))


@each_type
@pytest.mark.parametrize("rows, inner, cols", [(1, 1, 1), (4, 1, 3), (0, 2, 3), (9, 8, 7)])
def test_products_are_those_of_c_and_fuse_in_ascending_order(random, dtype, rows, inner, cols):
    a, b = any_values(random, dtype, rows, inner), any_values(random, dtype, inner, cols)
    expected = product(a, b)
    assert_same(mat.mul(a, b), expected)
    assert_same(mat.mul(a.T, b, transpose_a=True), expected)
    assert_same(mat.mul(a, b.T, transpose_b=True), expected)
    for flags, first, second in ((0, a, b), (1, a.T, b), (2, a, b.T)):
        operands = np.ascontiguousarray(first), np.ascontiguousarray(second)
        by_c = by_hand("iv_mat_mul", (rows, cols), dtype, *operands, flags=[flags])
        assert_same(by_c, expected)


@each_type
@pytest.mark.parametrize("rows, inner, cols", [(3, 4, 2), (1, 1, 1), (2, 0, 3), (8, 4, 8)])
def test_fused_products_start_from_the_addend(random, dtype, rows, inner, cols):
    a, b = any_values(random, dtype, rows, inner), any_values(random, dtype, inner, cols)
    c = any_values(random, dtype, rows, cols)
    expected = product(a, b, start=c)
    assert_same(mat.muladd(a, b, c), expected)
    assert_same(mat.muladd(a, b.T, c, transpose_b=True), expected)
    assert_same(by_hand("iv_mat_muladd", c.shape, dtype, a, b, c, flags=[0]), expected)
    assert_same(mat.submul(c, a, b), product(-a, b, start=c))
    assert_same(by_hand("iv_mat_submul", c.shape, dtype, c, a, b, flags=[0]), mat.submul(c, a, b))
    identity = np.eye(rows, cols, dtype=dtype)
    assert_same(mat.submul(None, a, b), product(-a, b, start=identity))


@pytest.mark.parametrize("order", [0, 1, 2, 4, 40])
def test_the_inverse_is_that_of_c(random, order):
    a = any_values(random, np.dtype(np.float32), order, order)
    assert_same(mat.inv(a), by_hand("iv_mat_inv", a.shape, a.dtype, a))
    assert_same(mat.inv([[np.float32(4)]]), np.array([[0.25]], np.float32))


@each_type
@pytest.mark.parametrize("shape", [(3, 3), (2, 4), (4, 2), (0, 4), (3, 0), (2, 2, 3)])
def test_fills_are_those_of_c(random, dtype, shape):
    for name in ("setzero", "setone", "setidentity"):
        got = any_values(random, dtype, *shape)
        by_c = raw.Matrix(got) if got.size else None
        getattr(mat, name)(got)
        if by_c:
            raw.call(f"iv_mat_{name}", by_c)
            assert_same(got, by_c.read())
    diagonal = any_values(random, dtype, min(shape[:2]))
    got = any_values(random, dtype, *shape)
    expected = got.copy()
    (expected if got.ndim == 2 else expected[:, :, 0])[...] = 0
    for k, value in enumerate(diagonal):
        expected[(k, k, 0)[: got.ndim]] = value
    mat.setdiagonal(diagonal, got)
    assert_same(got, expected)


@pytest.mark.parametrize("shape", [(0, 4), (4, 0)])
def test_fills_of_empty_matrices_write_nothing(shape):
    around = np.full(8, 9, np.float32)
    empty = around[:0].reshape(shape)
    assert empty.ctypes.data == around.ctypes.data
    mat.setidentity(empty)
    mat.setdiagonal(np.empty(0, np.float32), empty)
    mat.setone(empty)
    mat.setzero(empty)
    assert around.tolist() == [9] * 8


def test_contiguous_arrays_are_used_where_they_are(random):
    a = any_values(random, np.dtype(np.int32), 3, 4)
    assert mat.header(a).data == a.ctypes.data
    out = np.empty_like(a)
    assert mat.add(a, a, out=out) is out
    assert_same(out, a + a)
    assert mat.add(a, a, out=a) is a
    assert_same(a, out)


@each_type
def test_other_layouts_are_copied(random, dtype):
    wide = any_values(random, dtype, 8, 6)
    for a in (wide[::2, ::2], wide.T, wide[::-1], np.asfortranarray(wide)):
        assert_same(mat.add(a, a), np.ascontiguousarray(a + a))
    unaligned = np.frombuffer(b"\0" + wide.tobytes(), np.uint8)[1:].view(dtype).reshape(8, 6)
    assert_same(mat.sub(wide, unaligned), np.zeros_like(wide))


def test_sums_may_start_in_the_result(random):
    a, b, c = (any_values(random, np.dtype(np.float32), 4, 4) for _ in range(3))
    expected = mat.muladd(a, b, c), mat.submul(c, a, b)
    first, second = c.copy(), c.copy()
    mat.muladd(a, b, first, out=first)
    mat.submul(second, a, b, out=second)
    assert_same(first, expected[0])
    assert_same(second, expected[1])
    inverse = mat.inv(a)
    mat.inv(a, out=a)
    assert_same(a, inverse)


F = np.ones((2, 3), np.float32)
SQUARE = np.ones((3, 3), np.float32)
FIXED = np.ones((2, 3), np.float32)
FIXED.flags.writeable = False


@pytest.mark.parametrize(
    "call, error, said",
    [
        (lambda: mat.add(F, F.astype(np.float64)), TypeError, "b: expected float32"),
        (lambda: mat.add(F, F[:1]), ValueError, "b: expected shape (2, 3), got (1, 3)"),
        (lambda: mat.add(F[0], F[0]), ValueError, "a: expected shape (rows, cols)"),
        (lambda: mat.add(F.astype(np.uint32), F), TypeError, "a: expected one of uint8"),
        (lambda: mat.add(F.astype(">f4"), F), TypeError, "got >f4"),
        (lambda: mat.add(F == 1, F == 1), TypeError, "got |b1"),
        (lambda: mat.neg(np.ones((1, 1, 33), np.int8)), ValueError, "1 to 32), got (1, 1, 33)"),
        (lambda: mat.neg(np.ones((1, 1, 0), np.int8)), ValueError, "1 to 32), got (1, 1, 0)"),
        (lambda: mat.neg(F.astype(np.uint8)), TypeError, "a: expected a signed type"),
        (lambda: mat.add(F, F, out=F.T), ValueError, "out: expected a C-contiguous"),
        (lambda: mat.add(F, F, out=FIXED), ValueError, "writeable"),
        (lambda: mat.add(F, F, out=[[0.0]]), TypeError, "out: expected a numpy array, got list"),
        (lambda: mat.add(F, F, out=SQUARE), ValueError, "out: expected shape (2, 3)"),
        (lambda: mat.add(F, F, out=F.astype(int)), TypeError, "out: expected float32"),
        (lambda: mat.scale(F.astype(np.int8), 128), OverflowError, "expected -128 to 127, got 128"),
        (lambda: mat.scale(F.astype(np.int8), 0.5), TypeError, "float"),
        (lambda: mat.scale(F, [1, 2]), ValueError, "value: expected shape ()"),
        (lambda: mat.mul(F, F), ValueError, "b: expected shape (3, 3), got (2, 3)"),
        (lambda: mat.mul(F[:, :0], F[:0]), ValueError, "inner length of at least 1"),
        (lambda: mat.mul(F[:, :, None], F), ValueError, "one channel"),
        (lambda: mat.mul(F, F, transpose_a=True, transpose_b=True), ValueError, "at most one"),
        (lambda: mat.mul(SQUARE, SQUARE, out=SQUARE), ValueError, "storage apart"),
        (lambda: mat.transpose(SQUARE, out=SQUARE), ValueError, "storage apart"),
        (lambda: mat.muladd(F, SQUARE, SQUARE), ValueError, "c: expected shape (2, 3)"),
        (lambda: mat.submul(SQUARE, F, SQUARE), ValueError, "a: expected shape (2, 3)"),
        (lambda: mat.inv(F), ValueError, "a: expected a square float32"),
        (lambda: mat.inv(np.eye(3)), ValueError, "got float64 of shape (3, 3)"),
        (lambda: mat.inv(np.eye(41, dtype=np.float32)), ValueError, "order 40 at most"),
        (lambda: mat.setone(F.T), ValueError, "matrix: expected a C-contiguous"),
        (lambda: mat.setdiagonal([1.0, 1.0], F.copy()), TypeError, "values: expected float32"),
        (lambda: mat.setdiagonal(F[0], F.copy()), ValueError, "values: expected shape (2,)"),
    ],
)
def test_what_does_not_fit_is_refused(call, error, said):
    with pytest.raises(error, match=re.escape(said)):
        call()


def test_a_result_that_overlaps_a_factor_in_part_is_refused():
    values = np.zeros(12, np.float32)
    a, b = values[:9].reshape(3, 3), values[3:].reshape(3, 3)
    with pytest.raises(ValueError, match="storage apart"):
        mat.muladd(SQUARE, SQUARE, a, out=b)
    mat.muladd(SQUARE, SQUARE, a, out=a)
    with pytest.raises(ValueError, match="storage apart"):
        mat.inv(a, out=b)


def test_matrices_beyond_32_bits_are_refused():
    huge = np.broadcast_to(np.int8(0), (1 << 16, 1 << 16))
    with pytest.raises(ValueError, match="expected at most 2147483647 bytes, got 4294967296"):
        mat.neg(huge)
    with pytest.raises(ValueError, match="the result: expected at most"):
        mat.mul(np.zeros((1 << 16, 1), np.int8), np.zeros((1, 1 << 15), np.int8))


@pytest.mark.parametrize("dtype", FLOATS, ids=str)
def test_the_exact_model_tells_fused_from_rounded_twice(dtype):
    eps = np.finfo(dtype).eps
    a = np.array([[1 + eps, -1]], dtype)
    b = np.array([[1 + eps], [1 + 2 * eps]], dtype)
    assert product(a[:, ::-1], b[::-1])[0, 0] == dtype.type(eps) ** 2

"""The filter's matrices are the library's own, and its steps those of C to the bit."""

import gc
import re

import numpy as np
import pytest

import raw
from bits import any_values, assert_same
from heap import heap_in_use
from libiv import KalmanFilter, mat

F32 = np.dtype(np.float32)
SHAPES = [(8, 4), (2, 1), (1, 1), (3, 2), (5, 40)]
NAMES = raw.Filter.NAMES


def values_of(random, ns, nm):
    """A model and a first estimate, with covariances that are positive definite."""

    def covariance(n):
        root = any_values(random, F32, n, n)
        return (root @ root.T + n * np.eye(n, dtype=np.float32)).astype(np.float32)

    return {
        "A": any_values(random, F32, ns, ns),
        "H": any_values(random, F32, nm, ns),
        "Q": covariance(ns),
        "R": covariance(nm),
        "x_post": any_values(random, F32, ns, 1),
        "P_post": covariance(ns),
    }


@pytest.mark.parametrize("ns, nm", SHAPES)
def test_all_fourteen_matrices_are_those_of_c_after_every_step(random, ns, nm):
    ours, by_c = KalmanFilter(ns, nm), raw.Filter(ns, nm)
    assert (ours.ns, ours.nm) == (ns, nm)
    for name, values in values_of(random, ns, nm).items():
        setattr(ours, name, values)
        by_c.matrices[name].write(values)
    for _ in range(4):
        z = any_values(random, F32, nm)
        assert ours.predict() is ours.x_pre
        raw.call("iv_kalman_predict", raw.pointer(by_c.address))
        assert ours.correct(z) is ours.x_post
        raw.call("iv_kalman_correct", raw.pointer(by_c.address), raw.Matrix(z.reshape(nm, 1)))
        for name in NAMES:
            assert_same(getattr(ours, name), by_c.matrices[name].read())


@pytest.mark.parametrize("ns, nm", SHAPES)
def test_every_step_is_one_call_of_the_matrix_toolkit(random, ns, nm):
    f = KalmanFilter(ns, nm)
    for name, values in values_of(random, ns, nm).items():
        setattr(f, name, values)
    z = any_values(random, F32, nm, 1)
    x_pre = mat.mul(f.A, f.x_post)
    spread = mat.mul(f.A, f.P_post, transpose_b=True)
    P_pre = mat.muladd(spread, f.A, f.Q, transpose_b=True)
    cross = mat.mul(P_pre, f.H, transpose_b=True)
    gain = mat.mul(cross, mat.inv(mat.muladd(f.H, cross, f.R)), transpose_b=True)
    x_post = mat.muladd(gain, mat.submul(z, f.H, x_pre), x_pre)
    P_post = mat.mul(mat.submul(None, gain, f.H), P_pre, transpose_b=True)
    f.predict()
    f.correct(z)
    results = dict(x_pre=x_pre, P_pre=P_pre, K=gain, x_post=x_post, P_post=P_post)
    for name, expected in results.items():
        assert_same(getattr(f, name), expected)


def test_matrices_are_views_that_outlive_the_filter(random):
    f = KalmanFilter(2, 1)
    view = f.x_post
    f.x_post[1, 0] = 7
    f.x_post = [[3], [7]]
    assert view is f.x_post
    del f
    gc.collect()
    others = [KalmanFilter(2, 1) for _ in range(100)]  # would take freed memory
    for other in others:
        other.x_post = [[1], [1]]
    assert view.tolist() == [[3], [7]]


def test_the_memory_of_a_filter_goes_with_the_last_of_its_matrices():
    KalmanFilter(8, 4)
    before = heap_in_use()
    for _ in range(100):
        view = KalmanFilter(100, 4).x_post  # 200 KB
    assert heap_in_use() - before < 1_000_000
    assert view.shape == (100, 1)


def test_filters_share_a_model_without_copies(random):
    values = values_of(random, 3, 2)
    model = tuple(values[name] for name in "AHQR")
    alone, *sharing = KalmanFilter(3, 2), *(KalmanFilter(3, 2, model=model) for _ in range(2))
    for name in "AHQR":
        setattr(alone, name, values[name])
        assert getattr(sharing[0], name) is values[name]
    values["Q"][0, 0] = alone.Q[0, 0] = 9
    del values, model
    gc.collect()
    for f in (alone, *sharing):
        f.P_post = np.eye(3)
        f.predict()
        f.correct([1, 2])
        assert_same(f.x_post, alone.x_post)
        assert_same(f.P_post, alone.P_post)


GOOD = (np.eye(2), np.eye(1, 2), np.eye(2), np.eye(1))


def model_with(n, matrix):
    matrices = [m.astype(np.float32) for m in GOOD]
    matrices[n] = matrix
    return matrices


@pytest.mark.parametrize(
    "call, error, said",
    [
        (lambda: KalmanFilter(0, 1), ValueError, "ns: expected an integer from 1 to 10000, got 0"),
        (lambda: KalmanFilter(1, 41), ValueError, "nm: expected an integer from 1 to 40, got 41"),
        (lambda: KalmanFilter(2.0, 1), TypeError, "ns: expected an integer, got 2.0"),
        (lambda: KalmanFilter(2, 1, model=GOOD), TypeError, "A: expected an array of float32"),
        (lambda: KalmanFilter(2, 1, model=GOOD[:3]), ValueError, "(A, H, Q, R), got 3 values"),
        (
            lambda: KalmanFilter(2, 1, model=model_with(1, np.ones((2, 1), np.float32))),
            ValueError,
            "H: expected a C-contiguous array of shape (1, 2), got (2, 1)",
        ),
        (
            lambda: KalmanFilter(2, 1, model=model_with(2, np.eye(2, dtype=np.float32)[::-1])),
            ValueError,
            "Q: expected a C-contiguous array of shape (2, 2)",
        ),
        (lambda: KalmanFilter(2, 1).correct([1, 2]), ValueError, "expected shape (1,) or (1, 1)"),
        (lambda: setattr(KalmanFilter(2, 1), "A", 1), ValueError, "A: expected shape (2, 2)"),
    ],
)
def test_what_does_not_fit_is_refused(call, error, said):
    with pytest.raises(error, match=re.escape(said)):
        call()

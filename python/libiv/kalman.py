"""The linear Kalman filter."""

from __future__ import annotations

from typing import Any, overload

import numpy as np
import numpy.typing as npt

from ._library import FILTER_MATRICES, MatrixRecord, lib, lock
from ._values import count
from .mat import header

Array = npt.NDArray[np.float32]

_MODEL = ("A", "H", "Q", "R")
_MOST_MEASURED = 40  # the order of the largest inverse
_MOST_STATES = 10000  # the library counts bytes in 32 bits


class _Block:
    """The filter's memory. Arrays over it hold on to it, so it outlives the last of them."""

    def __init__(self, states: int, measured: int, model: tuple[Array, ...]) -> None:
        headers: list[MatrixRecord | None] = [header(matrix) for matrix in model]
        self.headers = headers or [None] * len(_MODEL)
        self.record = lib.iv_kalman_create(states, measured, bool(model), *self.headers)
        if not self.record:
            raise MemoryError(f"no room for a filter of {states} states, {measured} measured")

    def __del__(self) -> None:
        if getattr(self, "record", None):
            lib.iv_kalman_release(self.record)


class _Storage:
    """One matrix in a block, as numpy understands it."""

    def __init__(self, block: _Block, name: str) -> None:
        self.block = block
        record = getattr(block.record.contents, name).contents
        self.__array_interface__ = {
            "version": 3,
            "typestr": np.dtype(np.float32).str,
            "shape": (record.rows, record.cols),
            "data": (record.data, False),
        }


class _Matrix:
    """Reading gives the filter's matrix itself, assigning copies values into it."""

    def __init__(self, doc: str) -> None:
        self.__doc__ = doc

    def __set_name__(self, owner: type, name: str) -> None:
        self.name = name

    @overload
    def __get__(self, kalman: None, owner: Any = None) -> _Matrix: ...

    @overload
    def __get__(self, kalman: KalmanFilter, owner: Any = None) -> Array: ...

    def __get__(self, kalman: KalmanFilter | None, owner: Any = None) -> _Matrix | Array:
        return self if kalman is None else kalman._matrices[self.name]

    def __set__(self, kalman: KalmanFilter, values: npt.ArrayLike) -> None:
        matrix = kalman._matrices[self.name]
        array = np.asarray(values)
        if array.shape != matrix.shape:
            raise ValueError(f"{self.name}: expected shape {matrix.shape}, got {array.shape}")
        matrix[...] = array


class KalmanFilter:
    """A filter of `ns` states and `nm` measured values: x' = A x + noise(Q), z = H x + noise(R).

    Write the model, and the first estimate into `x_post` and `P_post`; then for each step predict
    and, when there is a measurement, correct. Every matrix is a float32 array over the filter's own
    memory: reading costs no copy, `f.Q[0, 0] = 0.1` and `f.Q = values` write into it, and what was
    read before shows what the next step writes. The arrays stay valid without the filter.

    ns: number of states, 1 to 10000
    nm: number of measured values, 1 to 40
    model: the four matrices (A, H, Q, R), which the filter then refers to and does not copy, so
        that filters may share one model; each C-contiguous, float32 and of its shape. Without it
        the filter has a model of its own, all zero.

    Raises ValueError or TypeError for what does not fit, MemoryError where no memory is left. A
    filter is used by one thread at a time; corrections of several wait for each other.
    """

    x_pre = _Matrix("(ns, 1): predicted state")
    x_post = _Matrix("(ns, 1): corrected state, the estimate; the caller writes the first one")
    P_pre = _Matrix("(ns, ns): covariance of x_pre")
    P_post = _Matrix("(ns, ns): covariance of x_post; the caller writes the first one")
    K = _Matrix("(ns, nm): gain")
    temp1 = _Matrix("(ns, ns): A P_post' in predict, I - K H in correct")
    temp2 = _Matrix("(ns, nm): P_pre H'")
    temp3 = _Matrix("(nm, nm): innovation covariance H P_pre H' + R")
    temp4 = _Matrix("(nm, nm): its inverse")
    temp5 = _Matrix("(nm, 1): innovation z - H x_pre")
    A = _Matrix("(ns, ns): transition")
    H = _Matrix("(nm, ns): measurement")
    Q = _Matrix("(ns, ns): process noise")
    R = _Matrix("(nm, nm): measurement noise")

    def __init__(
        self, ns: int, nm: int, *, model: tuple[Array, Array, Array, Array] | None = None
    ) -> None:
        ns, nm = count("ns", ns, _MOST_STATES), count("nm", nm, _MOST_MEASURED)
        if model is not None:
            self._check_model(model, ns, nm)
        self._block = _Block(ns, nm, model or ())
        self._matrices: dict[str, Array] = {
            name: np.asarray(_Storage(self._block, name))
            for name in FILTER_MATRICES
        }
        if model is not None:
            self._matrices.update(zip(_MODEL, model))

    @staticmethod
    def _check_model(model: tuple[Array, ...], ns: int, nm: int) -> None:
        if len(model) != len(_MODEL):
            raise ValueError(f"model: expected the matrices (A, H, Q, R), got {len(model)} values")
        for name, matrix, shape in zip(_MODEL, model, ((ns, ns), (nm, ns), (ns, ns), (nm, nm))):
            if not isinstance(matrix, np.ndarray) or matrix.dtype != np.float32:
                kind = getattr(matrix, "dtype", type(matrix).__name__)
                raise TypeError(f"{name}: expected an array of float32, got {kind}")
            if matrix.shape != shape or not matrix.flags.c_contiguous:
                raise ValueError(
                    f"{name}: expected a C-contiguous array of shape {shape}, got {matrix.shape} "
                    f"with strides {matrix.strides}"
                )

    @property
    def ns(self) -> int:
        """Number of states."""
        return self.x_pre.shape[0]

    @property
    def nm(self) -> int:
        """Number of measured values."""
        return self.temp5.shape[0]

    def predict(self) -> Array:
        """Writes x_pre = A x_post and P_pre = A P_post' A' + Q; returns x_pre.

        Repeated without a correction, it gives the same again.
        """
        lib.iv_kalman_predict(self._block.record)
        return self.x_pre

    def correct(self, measurement: npt.ArrayLike) -> Array:
        """Corrects the prediction with a measurement; returns x_post.

        measurement: shape (nm,) or (nm, 1); rounded to float32

        Writes temp1 to temp5, K, x_post and P_post. A singular innovation covariance is not
        detected and gives infinities or NaNs.
        """
        z = np.ascontiguousarray(measurement, np.float32)
        if z.shape not in ((self.nm,), (self.nm, 1)):
            raise ValueError(
                f"measurement: expected shape ({self.nm},) or ({self.nm}, 1), got {z.shape}"
            )
        record = header(z.reshape(self.nm, 1))
        with lock:
            lib.iv_kalman_correct(self._block.record, record)
        return self.x_post

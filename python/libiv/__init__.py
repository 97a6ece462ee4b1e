"""Multi-object tracking for video analytics, on numpy arrays.

    import libiv

    with libiv.Tracker(width=1920) as tracker:
        tracks = tracker.process(boxes, scores, classes)  # once a frame

`Tracker` gives every object an identity that stays the same from frame to frame. `KalmanFilter` is
a linear Kalman filter, `mat` the matrix toolkit and `fixed3` the kernels for 3x3 matrices. All of
it is the C library libiv, called through ctypes; equal inputs give equal results to the bit.

The shared library is the file that the environment variable LIBIV_LIBRARY names, or else the one
built in the source tree that this package lies in, or else the one that is installed.
"""

from . import fixed3, mat
from .kalman import KalmanFilter
from .tracker import Tracker, Tracks

__version__ = "0.1.0"

__all__ = ["KalmanFilter", "Tracker", "Tracks", "fixed3", "mat"]

"""The tracker."""

from __future__ import annotations

import weakref
from dataclasses import dataclass
from types import TracebackType
from typing import Any

import numpy as np
import numpy.typing as npt

from ._library import lib, lock
from ._values import count, fraction, positive

_MOST_OBJECTS = 1_000_000
_MOST_CLASSES = 2**24  # above this, not every integer is a float32
_FEWEST_REMOVAL_FRAMES = 5

# Units a pixel: in this range, boxes stay far inside single precision.
_SMALLEST_FACTOR, _LARGEST_FACTOR = 1e-12, 1e12

# The library stores the image size and computes nothing with it.
_IMAGE_SIZE = 0

# Kinds of numpy types that boxes and scores may have, types that classes may have.
_NUMBERS = "fiu"
_INTEGERS = "bhilqBHI"

# Columns of the library's rows.
_CLASS, _SCORE = 0, 5
_ID, _TRACK_CLASS, _TRACK_SCORE, _DETECTION = 0, 1, 6, 7


@dataclass(frozen=True, eq=False)
class Tracks:
    """The confirmed tracks of one frame, oldest first: row k of every array is one track.

    `len(tracks)` is their number. The arrays are the caller's to keep.
    """

    ids: npt.NDArray[np.int64]
    """(n,): identities, 1 to 1048574; then they start again."""
    boxes: npt.NDArray[np.float64]
    """(n, 4): left, top, right, bottom in pixels, filtered. A coasting track repeats its last box.
    The box of an object that shrinks fast may be inside out for a few frames."""
    scores: npt.NDArray[np.float32]
    """(n,): score of the detection last matched."""
    classes: npt.NDArray[np.int64]
    """(n,): class of the detection last matched."""
    detections: npt.NDArray[np.int64]
    """(n,): row of the input that the track was matched with in this frame, or -1 where it coasts,
    that is, where it missed this frame and at most one before."""
    dropped: int
    """Number of the frame's detections above the capacity, which the tracker did not see."""

    def __len__(self) -> int:
        return len(self.ids)


class _ClassTable:
    """Any integers outside, 1, 2, 3, ... inside.

    In the library's input class 0 ends the list, and a float32 holds no large number exactly.
    """

    def __init__(self) -> None:
        self._classes = np.zeros(2, np.int64)  # by inner number, from 1 on; class 0 is the first
        self._sort()

    def _add(self, classes: npt.NDArray[np.int64]) -> None:
        if len(self._classes) + len(classes) > _MOST_CLASSES:
            raise ValueError(f"classes: expected less than {_MOST_CLASSES} different ones")
        self._classes = np.append(self._classes, classes)
        self._sort()

    def _sort(self) -> None:
        order = self._classes[1:].argsort()
        self._known = self._classes[1:][order]
        self._numbers = (order + 1).astype(np.float32)

    def to_library(self, classes: npt.NDArray[np.int64]) -> npt.NDArray[np.float32]:
        place = self._known.searchsorted(classes)
        if not _all(self._known.take(place, mode="clip") == classes):
            self._add(np.setdiff1d(classes, self._known))
            place = self._known.searchsorted(classes)
        numbers: npt.NDArray[np.float32] = self._numbers[place]
        return numbers

    def from_library(self, column: npt.NDArray[np.float32]) -> npt.NDArray[np.int64]:
        return self._classes[column.astype(np.int64)]


class Tracker:
    """Gives every object of one camera an identity that stays the same from frame to frame.

    width: image width in pixels
    units: the image width in the library's units, which the boxes are scaled to. Nothing is
        associated across 10 units or more, so this is the first thing to tune; 16 to 100 suit most
        scenes.
    capacity: most detections read a frame and tracks alive, 1 to 1000000. Twice the fullest frame
        is a good choice. Of more detections in a frame the highest scores are kept, of equal ones
        the earlier, and `Tracks.dropped` counts the rest.
    distance: distance gate (`euc_thresh` in C): greatest squared distance of centres, in units
        squared, at which a detection continues a track without overlapping it; 0 to 1
    overlap: overlap gate (`iou_thresh`): beyond the distance gate, intersection over union must be
        above this; 0 to 1, and 1 rejects everything
    stable: matched frames (`fcnt_stable`) after which a track is confirmed and gets its id
    removal: missed frames in a row (`fcnt_removal`) that a track survives. A static camera bears 20
        to 60, a moving one 2 to 5. Half of `fps` unless given, and at least 5.
    fps: frames a second, for the default of `removal` alone
    ignore_class: a detection may continue a track of another class; for detectors that mix up
        classes

    Raises ValueError for a value out of range, TypeError for one of another type, MemoryError where
    no memory is left.

    Use it as a context manager or call `close`: that lets the tracks go. Four small model matrices,
    800 bytes, stay allocated for each tracker ever made, so make one per camera and keep it.
    Trackers may be used from any threads; their calls wait for each other.
    """

    def __init__(
        self,
        width: float,
        *,
        units: float = 64,
        capacity: int = 1024,
        distance: float = 1.0,
        overlap: float = 0.1,
        stable: int = 3,
        removal: int | None = None,
        fps: float | None = None,
        ignore_class: bool = False,
    ) -> None:
        self._factor = positive("units", units) / positive("width", width)
        if not _SMALLEST_FACTOR <= self._factor <= _LARGEST_FACTOR:
            raise ValueError(
                f"expected {_SMALLEST_FACTOR} to {_LARGEST_FACTOR} units a pixel, got "
                f"{units} units to a width of {width}"
            )
        self._capacity = count("capacity", capacity, _MOST_OBJECTS)
        if removal is None:
            half = 0.0 if fps is None else min(positive("fps", fps) // 2, 1e9)
            removal = max(_FEWEST_REMOVAL_FRAMES, int(half))
        self._tuning = (
            fraction("distance", distance),
            fraction("overlap", overlap),
            count("stable", stable),
            count("removal", removal),
            bool(ignore_class),
        )
        # A row more than the capacity: one ends a full list, of the other the id stays -1.
        self._input = np.zeros((self._capacity + 1, 6), np.float32)
        self._output = np.full((self._capacity + 1, 8), -1, np.float32)
        self._reported = 0
        self._classes = _ClassTable()
        handle = lib.iv_tracker_create(_IMAGE_SIZE, _IMAGE_SIZE, self._capacity, *self._tuning)
        if handle is None:
            raise MemoryError(f"no room for a tracker of {self._capacity} objects")
        self._arguments = (handle, self._input.ctypes.data, self._output.ctypes.data)
        self._end = weakref.finalize(self, _drain_and_release, handle)

    def set_params(
        self,
        *,
        distance: float | None = None,
        overlap: float | None = None,
        removal: int | None = None,
        ignore_class: bool | None = None,
    ) -> None:
        """Replaces tuning values from the next frame on; those not given stay.

        `stable` stays as it is: with another one, tracks that have an id could get a new one.
        """
        with lock:
            self._expect_open()
            old = self._tuning
            tuning = (
                old[0] if distance is None else fraction("distance", distance),
                old[1] if overlap is None else fraction("overlap", overlap),
                old[2],
                old[3] if removal is None else count("removal", removal),
                old[4] if ignore_class is None else bool(ignore_class),
            )
            lib.iv_tracker_set_params(self._arguments[0], *tuning)
            self._tuning = tuning

    def process(
        self,
        boxes: npt.ArrayLike = (),
        scores: npt.ArrayLike = (),
        classes: npt.ArrayLike = (),
    ) -> Tracks:
        """Takes the detections of one frame and returns its confirmed tracks.

        boxes: (n, 4): left, top, right, bottom in pixels
        scores: (n,): any scale; it decides what is kept above the capacity, and no more
        classes: (n,): any integers that int64 holds, 0 and negative ones included

        A frame without detections must be passed too, as `process()`, or its misses are not
        counted. Arrays of any layout and numeric type will do; they are copied.

        Raises ValueError for shapes that do not fit, for boxes and scores that are not finite in
        float32, for a box whose right or bottom lies before its left or top, and for a closed
        tracker; TypeError for classes that are no integers. The tracker is then as it was.
        """
        boxes, scores, classes = np.asarray(boxes), np.asarray(scores), np.asarray(classes)
        n = scores.size
        if boxes.shape != (n, 4) or scores.shape != (n,) or classes.shape != (n,):
            if n or boxes.size or classes.size:
                raise ValueError(
                    "expected boxes (n, 4), scores (n,) and classes (n,), got "
                    f"{boxes.shape}, {scores.shape} and {classes.shape}"
                )
        with lock:
            self._expect_open()
            kept = self._write(boxes, scores, classes)
            lib.iv_tracker_process(*self._arguments)
            return self._read(n, kept)

    def _write(self, boxes: Any, scores: Any, classes: Any) -> npt.NDArray[np.int64] | None:
        """Fills the library's input; returns which rows it kept where they are too many."""
        n, capacity = scores.size, self._capacity
        rows = self._input[:n] if n <= capacity else np.empty((n, 6), np.float32)
        if n:
            kinds = boxes.dtype.kind + scores.dtype.kind
            if kinds.strip(_NUMBERS) or classes.dtype.char not in _INTEGERS:
                raise TypeError(
                    "expected boxes and scores of numbers, classes of integers that int64 holds, "
                    f"got {boxes.dtype}, {scores.dtype} and {classes.dtype}"
                )
            rows[:, 1:5] = np.multiply(boxes, self._factor, dtype=np.float64)
            rows[:, _SCORE] = scores
            rows[:, _CLASS] = self._classes.to_library(classes)
            if not (_all(np.isfinite(rows)) and _all(rows[:, 1:3] <= rows[:, 3:5])):
                raise ValueError(_what_is_wrong(rows, boxes, scores))
        self._input[min(n, capacity), _CLASS] = 0
        if n <= capacity:
            return None
        kept = np.sort(np.argsort(-rows[:, _SCORE], kind="stable")[:capacity])
        self._input[:capacity] = rows[kept]
        return kept

    def _read(self, n: int, kept: npt.NDArray[np.int64] | None) -> Tracks:
        # A reported track was matched in this frame or reported in the last one.
        most = min(len(self._output), self._reported + n + 1)
        self._reported = (self._output[:most, _ID] < 0).tobytes().index(b"\1")
        rows = self._output[: self._reported]
        detections = rows[:, _DETECTION].astype(np.int64)
        if kept is not None:
            matched = detections >= 0
            detections[matched] = kept[detections[matched]]
        boxes = rows[:, 2:6].astype(np.float64)
        boxes /= self._factor
        return Tracks(
            ids=rows[:, _ID].astype(np.int64),
            boxes=boxes,
            scores=rows[:, _TRACK_SCORE].copy(),
            classes=self._classes.from_library(rows[:, _TRACK_CLASS]),
            detections=detections,
            dropped=0 if kept is None else n - len(kept),
        )

    def close(self) -> None:
        """Lets all tracks go and frees the tracker. Closing again does nothing."""
        self._end()

    @property
    def closed(self) -> bool:
        """Whether the tracker is closed."""
        return not self._end.alive

    def _expect_open(self) -> None:
        if self.closed:
            raise ValueError("expected an open tracker, got a closed one")

    def __enter__(self) -> Tracker:
        self._expect_open()
        return self

    def __exit__(
        self,
        kind: type[BaseException] | None,
        error: BaseException | None,
        trace: TracebackType | None,
    ) -> None:
        self.close()


def _drain_and_release(handle: int) -> None:
    # Release leaves live tracks allocated: without patience, one empty frame lets all of them go.
    # In such a frame nothing else than the patience counts.
    nothing = np.zeros(6, np.float32)
    with lock:
        lib.iv_tracker_set_params(handle, 0, 0, 1, 0, False)
        lib.iv_tracker_process(handle, nothing.ctypes.data, None)
        lib.iv_tracker_release(handle)


def _all(flags: npt.NDArray[np.bool_]) -> bool:
    """flags.all(), in a third of its time."""
    return b"\0" not in flags.tobytes()


def _what_is_wrong(rows: Any, boxes: Any, scores: Any) -> str:
    finite = np.isfinite(rows).all(axis=1)
    if not finite.all():
        row = int(finite.argmin())
        return (
            f"detection {row}: expected a box and a score that are finite in float32, "
            f"got {boxes[row].tolist()} and {scores[row]}"
        )
    row = int((rows[:, 1:3] <= rows[:, 3:5]).all(axis=1).argmin())
    return f"detection {row}: expected left, top, right, bottom, got {boxes[row].tolist()}"

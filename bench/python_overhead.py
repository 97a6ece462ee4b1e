#!/usr/bin/env python3
"""Measures what Python adds to a frame: `Tracker.process` against the bare C call.

    PYTHONPATH=python python3 bench/python_overhead.py [OBJECTS]

Two trackers see the same frames, one through `process`, one through the C function on buffers that
were filled before. They alternate frame by frame; printed are the medians over the frames, which
other work on the machine hardly moves.
"""

from __future__ import annotations

import statistics
import sys
import time
from collections.abc import Iterator
from typing import Any

import numpy as np

import libiv
from libiv._library import lib

FRAMES = 100  # of the scene, a round
ROUNDS = 101
WIDTH, UNITS, CAPACITY = 1920, 64, 1024


def scene(objects: int) -> Iterator[Any]:
    """Boxes of objects in a grid that move one pixel a frame and turn back, frame by frame."""
    grid = np.arange(objects)
    corner = np.stack([grid % 10 * 180, grid // 10 * 100], axis=1).astype(np.float64)
    still = np.hstack([corner, corner + [40, 80]])
    for frame in range(FRAMES):
        yield still + min(frame, FRAMES - frame)


def measure(objects: int) -> tuple[float, ...]:
    """Microseconds a frame: `process`, the C call, and the difference."""
    boxes = list(scene(objects))
    scores = np.linspace(0.5, 1, objects)
    classes = np.arange(objects) % 3
    inputs = np.zeros((FRAMES, objects + 1, 6), np.float32)
    for frame, rows in enumerate(boxes):
        inputs[frame, :objects, 0] = classes + 1
        inputs[frame, :objects, 1:5] = rows * (UNITS / WIDTH)
        inputs[frame, :objects, 5] = scores
    addresses = [rows.ctypes.data for rows in inputs]
    output = np.empty((CAPACITY, 8), np.float32)
    target = output.ctypes.data
    bare = lib.iv_tracker_create(WIDTH, 0, CAPACITY, 1.0, 0.1, 3, 5, 0)

    whole_times, bare_times = [], []
    with libiv.Tracker(WIDTH, units=UNITS, capacity=CAPACITY) as tracker:
        process, c_process = tracker.process, lib.iv_tracker_process
        for rows, address in list(zip(boxes, addresses)) * ROUNDS:
            begin = time.perf_counter()
            tracks = process(rows, scores, classes)
            middle = time.perf_counter()
            c_process(bare, address, target)
            end = time.perf_counter()
            whole_times.append((middle - begin) * 1e6)
            bare_times.append((end - middle) * 1e6)
    assert len(tracks) == objects, "every object is tracked"
    assert (output[:objects, 0] == tracks.ids).all(), "both saw the same frames"
    lib.iv_tracker_set_params(bare, 1.0, 0.1, 3, 0, 0)
    lib.iv_tracker_process(bare, np.zeros(6, np.float32).ctypes.data, None)
    lib.iv_tracker_release(bare)
    differences = [whole - part for whole, part in zip(whole_times, bare_times)]
    return tuple(map(statistics.median, (whole_times, bare_times, differences)))


if __name__ == "__main__":
    count = int(sys.argv[1]) if len(sys.argv) > 1 else 50
    whole, part, difference = measure(count)
    print(f"{count} objects a frame, medians of {ROUNDS * FRAMES} frames:")
    print(f"process {whole:.1f} us, C call {part:.1f} us, Python's own part {difference:.1f} us")

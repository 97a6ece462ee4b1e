#!/usr/bin/env python3
"""Tracks what moves in a video or before a camera, and draws boxes, ids and fading trails.

    python3 examples/video.py street.mp4 tracked.avi --strip strip.png --tracks tracks.txt

Needs python3-opencv and no display. Detects by background subtraction, which wants a camera that
stands still, or with the people detector that OpenCV brings along.
"""

from __future__ import annotations

import argparse
import colorsys
import contextlib
import itertools
import math
import os
import signal
import sys
from collections.abc import Callable, Iterator
from pathlib import Path
from typing import Any, NoReturn

import numpy as np
import numpy.typing as npt

import libiv

# One line says what is wrong; OpenCV and FFmpeg would add theirs. They look when they are loaded.
os.environ.setdefault("OPENCV_LOG_LEVEL", "SILENT")
os.environ.setdefault("OPENCV_FFMPEG_LOGLEVEL", "-8")
import cv2

Array = npt.NDArray[Any]
Colour = tuple[float, ...]  # blue, green, red
Detector = Callable[[Array], tuple[Array, Array]]  # a frame gives boxes and scores

CODECS = {".avi": "MJPG", ".mp4": "mp4v"}
USUAL_FPS = 25.0  # for cameras that do not tell
TRAIL_SECONDS = 3
STRIP_HEIGHT = 360  # most pixels: larger frames are shrunk
STRIP_GAP = 4


def fail(message: str) -> NoReturn:
    sys.exit(f"video.py: {message}")


# Detect
def motion_detector(min_area: int) -> Detector:
    """What differs from the background, which is learned all the while."""
    background = cv2.createBackgroundSubtractorMOG2()

    def detect(frame: Array) -> tuple[Array, Array]:
        height, width = frame.shape[:2]
        sure = (background.apply(frame) == 255).astype(np.uint8)  # shadows are 127
        for operation, part in ((cv2.MORPH_OPEN, 200), (cv2.MORPH_CLOSE, 50)):  # specks, then holes
            side = max(3, width // part | 1)
            brush = cv2.getStructuringElement(cv2.MORPH_ELLIPSE, (side, side))
            sure = cv2.morphologyEx(sure, operation, brush)
        blobs = cv2.connectedComponentsWithStats(sure)[2][1:]  # the first one is the background
        left, top, across, down, area = blobs.T
        # Where half of the image differs, the light has changed, or the camera has moved.
        kept = (area >= min_area) & (area <= height * width / 2)
        boxes = np.column_stack([left, top, left + across, top + down])
        return boxes[kept], (area / (across * down))[kept]

    return detect


def people_detector() -> Detector:
    """People upright, 96 pixels tall or more."""
    hog = cv2.HOGDescriptor()
    hog.setSVMDetector(cv2.HOGDescriptor_getDefaultPeopleDetector())

    def detect(frame: Array) -> tuple[Array, Array]:
        windows, scores = hog.detectMultiScale(frame, winStride=(8, 8), scale=1.05)
        left, top, across, down = np.reshape(windows, (-1, 4)).T
        # The detector's windows leave a margin around people.
        x, y = across / 6, down / 8
        boxes = np.column_stack([left + x, top + y, left + across - x, top + down - y])
        return boxes, np.reshape(scores, -1)

    return detect


# Draw
def colour_of(identity: int) -> Colour:
    """Hues a golden section apart: neighbours differ, and an id has its colour in every video."""
    hue = identity * (math.sqrt(5) - 1) / 2 % 1
    return tuple(255 * part for part in reversed(colorsys.hsv_to_rgb(hue, 0.65, 1)))


class Painter:
    """Draws tracks into frames. The trails lie in a layer of their own, which fades."""

    def __init__(self, shape: tuple[int, ...], fps: float) -> None:
        self._paint = np.zeros(shape, np.uint8)
        self._strength = np.zeros(shape[:2], np.uint8)
        self._fading = max(1, round(255 / (TRAIL_SECONDS * fps)))
        self._feet: dict[int, tuple[int, int]] = {}
        self._pen = max(2, shape[0] // 270)

    def draw(self, frame: Array, tracks: libiv.Tracks, boxes: Array) -> Array:
        """A copy of the frame with the tracks in it, thin where they coast."""
        last_feet, self._feet = self._feet, {}
        self._strength = cv2.subtract(self._strength, self._fading)
        for identity, (left, top, right, bottom) in zip(tracks.ids.tolist(), boxes.tolist()):
            foot = self._feet[identity] = round((left + right) / 2), round(bottom)
            ends = last_feet.get(identity, foot), foot
            cv2.line(self._paint, *ends, colour_of(identity), 3 * self._pen)
            cv2.line(self._strength, *ends, 255, self._pen, cv2.LINE_AA)
        strength = self._strength / np.float32(255)
        image: Array = cv2.blendLinear(frame, self._paint, 1 - strength, strength)
        for identity, box, row in zip(tracks.ids.tolist(), boxes, tracks.detections):
            left, top, right, bottom = box.round().astype(int).tolist()
            pen = self._pen if row >= 0 else 1
            cv2.rectangle(image, (left, top), (right, bottom), colour_of(identity), pen)
            write(image, str(identity), (left, top), colour_of(identity), self._pen)
        return image


def write(image: Array, text: str, place: tuple[int, int], colour: Colour, pen: int) -> None:
    """Black text on a coloured ground that stands on the place, or as near as the image allows."""
    font, scale, rim = cv2.FONT_HERSHEY_SIMPLEX, 0.25 * pen, 2 * pen
    (across, down), _ = cv2.getTextSize(text, font, scale, max(1, pen // 2))
    left = min(max(place[0], 0), image.shape[1] - across - 2 * rim)
    bottom = min(max(place[1], down + 2 * rim), image.shape[0])
    far = left + across + 2 * rim, bottom - down - 2 * rim
    cv2.rectangle(image, (left, bottom), far, colour, cv2.FILLED)
    start = left + rim, bottom - rim
    cv2.putText(image, text, start, font, scale, (0, 0, 0), max(1, pen // 2), cv2.LINE_AA)


class Strip:
    """Keeps frames evenly spaced over a video whose length shows at its end only."""

    def __init__(self, wanted: int) -> None:
        self._wanted = wanted
        self._kept: list[Array] = []
        self._stride = 1

    def add(self, number: int, image: Array) -> None:
        if (number - 1) % self._stride:
            return
        height, width = image.shape[:2]
        if height > STRIP_HEIGHT:
            size = max(1, width * STRIP_HEIGHT // height), STRIP_HEIGHT
            image = cv2.resize(image, size, interpolation=cv2.INTER_AREA)
        else:
            image = image.copy()
        write(image, f"frame {number}", (0, len(image)), (255, 255, 255), 2)
        self._kept.append(image)
        if len(self._kept) == 8 * self._wanted:  # twice as far apart from here on
            del self._kept[1::2]
            self._stride *= 2

    def picture(self) -> Array:
        """The middles of as many equal parts, side by side."""
        n, parts = len(self._kept), min(self._wanted, len(self._kept))
        picked = [self._kept[(2 * k + 1) * n // (2 * parts)] for k in range(parts)]
        right = (0, 0), (0, STRIP_GAP), (0, 0)
        return np.hstack([np.pad(image, right, constant_values=255) for image in picked])[
            :, :-STRIP_GAP
        ]


# Read and write
def opened(source: str) -> Any:
    """The camera of that number, or the file or stream of that name."""
    camera = source.isdecimal() and len(source) <= 2
    if not camera and "://" not in source and not Path(source).is_file():
        fail(f"{source}: no such file")
    capture = cv2.VideoCapture(int(source) if camera else source)
    if not capture.isOpened():
        fail(f"camera {source}: not there" if camera else f"{source}: expected a video")
    return capture


def frames_of(capture: Any) -> Iterator[Array]:
    while True:
        read, frame = capture.read()
        if not read:
            return
        yield frame


def expect_writable(file: Path, source: str) -> None:
    if file.exists() and Path(source).exists() and file.samefile(source):
        fail(f"{file}: expected another file than the source")
    try:
        file.open("ab").close()
    except OSError as error:
        fail(f"{file}: {error.strerror}")


def motchallenge_row(number: int, identity: int, box: Array, score: float) -> str:
    left, top, right, bottom = box
    return (
        f"{number},{identity},{left:.3f},{top:.3f},{right - left:.3f},{bottom - top:.3f},"
        f"{score:g},0,-1,-1\n"
    )


# Run
def positive(text: str) -> float:
    if not 0 < float(text) < math.inf:
        raise argparse.ArgumentTypeError(f"expected a number above 0, got {text}")
    return float(text)


def count(text: str) -> int:
    if int(text) < 1:
        raise argparse.ArgumentTypeError(f"expected 1 or more, got {text}")
    return int(text)


def name_in(*suffixes: str) -> Callable[[str], Path]:
    def name(text: str) -> Path:
        if Path(text).suffix not in suffixes:
            ends = " or ".join(suffixes)
            raise argparse.ArgumentTypeError(f"expected a name that ends in {ends}, got {text}")
        return Path(text)

    return name


def arguments() -> argparse.Namespace:
    parser = argparse.ArgumentParser(
        description="Track what moves in a video or before a camera, and draw it. Ctrl-C ends the "
        "run and keeps what is written."
    )
    add = parser.add_argument
    add("source", help="video file, stream (rtsp://...), or number of a camera: 0 is the first one")
    add("output", type=name_in(*CODECS), help="video to write, .avi (Motion JPEG) or .mp4 (MPEG-4)")
    add("--strip", type=name_in(".png"), metavar="PNG", help="frames side by side to write")
    add("--strip-frames", type=count, default=6, metavar="N", help="frames in it [6]")
    add("--tracks", type=Path, metavar="TXT", help="tracks to write, as MOTChallenge text")
    add("--detector", choices=("motion", "people"), default="motion",
        help="what differs from the background of a camera that stands still, or people upright, "
        "96 pixels tall or more [motion]")
    add("--min-area", type=count, metavar="PIXELS",
        help="motion: smallest object [a thousandth of the image]")
    add("--units", type=positive, default=64,
        help="image width in the library's units, the first value to tune: 16 to 100 suit most "
        "scenes [64]")
    add("--removal", type=count, metavar="FRAMES",
        help="frames missed in a row that a track survives [half a second, at least 5]")
    add("--fps", type=positive, help="frames a second [what the source tells]")
    add("--frames", type=count, metavar="N", help="stop after so many")
    add("--show", action="store_true", help="show the video in a window; q ends the run")
    return parser.parse_args()


def main() -> int:
    """Reads, detects, tracks, draws and writes frame by frame; says how much there was."""
    options = arguments()
    capture = opened(options.source)
    frames = frames_of(capture)
    first = next(frames, None)
    if first is None:
        fail(f"{options.source}: expected a video, got no frame")
    height, width = first.shape[:2]
    if options.detector == "people" and (height < 128 or width < 64):
        fail(f"expected frames of 64x128 pixels or more for people, got {width}x{height}")
    if options.show and not {"DISPLAY", "WAYLAND_DISPLAY"} & os.environ.keys():
        fail("--show: expected a display")
    told = capture.get(cv2.CAP_PROP_FPS)
    fps = options.fps or (told if 1 <= told <= 1000 else USUAL_FPS)
    total = min(int(capture.get(cv2.CAP_PROP_FRAME_COUNT)), options.frames or sys.maxsize)
    for file in (options.output, options.strip, options.tracks):
        if file:
            expect_writable(file, options.source)
    codec = cv2.VideoWriter_fourcc(*CODECS[options.output.suffix])
    video = cv2.VideoWriter(str(options.output), codec, fps, (width, height))
    if not video.isOpened():
        fail(f"{options.output}: cannot take {width}x{height} at {fps:g} frames a second")

    stopped: list[int] = []

    def stop(kind: int, _: Any) -> None:
        """After the frame at hand; a second signal ends the process at once."""
        stopped.append(kind)
        signal.signal(kind, signal.SIG_DFL)

    for kind in (signal.SIGINT, signal.SIGTERM):
        signal.signal(kind, stop)
    detect = people_detector() if options.detector == "people" else motion_detector(
        options.min_area or height * width // 1000
    )
    painter, strip, seen = Painter(first.shape, fps), Strip(options.strip_frames), set[int]()
    with contextlib.ExitStack() as stack:
        tracker = stack.enter_context(
            libiv.Tracker(width, units=options.units, removal=options.removal, fps=fps)
        )
        text = stack.enter_context(open(options.tracks or os.devnull, "w"))
        for number, frame in enumerate(itertools.chain([first], frames), 1):
            boxes, scores = detect(frame)
            tracks = tracker.process(boxes, scores, np.zeros(len(boxes), np.int64))
            # Of an object that shrinks fast, left and right or top and bottom may be swapped.
            boxes = np.sort(tracks.boxes.reshape(-1, 2, 2), axis=1).reshape(-1, 4)
            image = painter.draw(frame, tracks, boxes)
            video.write(image)
            strip.add(number, image)
            seen.update(tracks.ids.tolist())
            for row in np.flatnonzero(tracks.detections >= 0):
                text.write(
                    motchallenge_row(number, tracks.ids[row], boxes[row], tracks.scores[row])
                )
            if sys.stderr.isatty() and total > 0:
                print(f"\rframe {number} of {total}", end="", file=sys.stderr, flush=True)
            if options.show:
                cv2.imshow("libiv", image)
                if cv2.waitKey(1) == ord("q"):
                    break
            if stopped or number == options.frames:
                break
    video.release()  # which does not tell whether the disk was full
    if cv2.VideoCapture(str(options.output)).get(cv2.CAP_PROP_FRAME_COUNT) < number:
        fail(f"{options.output}: could not be written whole")
    if sys.stderr.isatty() and total > 0:
        print(file=sys.stderr)
    if options.strip and not cv2.imwrite(str(options.strip), strip.picture()):
        fail(f"{options.strip}: not written")
    print(f"{number} frames, {len(seen)} tracks: {options.output}")
    return 128 + stopped[0] if stopped else 0


if __name__ == "__main__":
    try:
        sys.exit(main())
    except (OSError, ValueError) as error:
        fail(str(error))

#!/usr/bin/env python3
"""Tracks the detections of a MOTChallenge file and draws the tracks.

    python3 examples/track_and_draw.py samples/crossing/det/det.txt tracks.png

The image size and the frame rate come from --size and --fps, or else from the seqinfo.ini one
folder up.
The cells, from one `# %%` to the next, run one by one in a notebook or an editor that knows them.
"""

# %% What is needed: libiv, numpy, matplotlib
from __future__ import annotations

import argparse
import configparser
from collections.abc import Iterator
from pathlib import Path
from typing import Any, NamedTuple

import matplotlib
import numpy as np
import numpy.typing as npt

import libiv

matplotlib.use("agg")
import matplotlib.pyplot as plt
from matplotlib.collections import LineCollection
from matplotlib.patches import Rectangle

Array = npt.NDArray[Any]


# %% Read: a row is frame,-1,left,top,width,height,score and perhaps a class
def frames_of(rows: Array) -> Iterator[tuple[int, Array, Array, Array]]:
    """Every frame, the empty ones, too: its number, boxes, scores and classes."""
    for frame in range(int(rows[:, 0].min()), int(rows[:, 0].max()) + 1):
        found = rows[rows[:, 0] == frame]
        corners = found[:, 2:4]
        boxes = np.hstack([corners, corners + found[:, 4:6]])
        classes = found[:, 7] if rows.shape[1] > 7 else np.zeros(len(found))
        yield frame, boxes, found[:, 6], classes.astype(np.int64)


def sequence_of(file: Path) -> tuple[float, float, float] | None:
    """Width, height and frame rate as the sequence's own file says, if there is one."""
    info = configparser.ConfigParser()
    if not info.read(file.resolve().parent.parent / "seqinfo.ini"):
        return None
    sequence = info["Sequence"]
    return (
        sequence.getfloat("imWidth"),
        sequence.getfloat("imHeight"),
        sequence.getfloat("frameRate"),
    )


# %% Track: one call a frame
class Row(NamedTuple):
    """One track in one frame."""

    frame: int
    id: int
    box: Array
    coasting: bool


def track(rows: Array, width: float, fps: float) -> list[Row]:
    """All rows of all tracks, frame by frame."""
    result = []
    with libiv.Tracker(width, fps=fps) as tracker:
        for frame, boxes, scores, classes in frames_of(rows):
            tracks = tracker.process(boxes, scores, classes)
            for identity, box, row in zip(tracks.ids, tracks.boxes, tracks.detections):
                result.append(Row(frame, int(identity), box, coasting=bool(row < 0)))
    return result


# %% Draw: where the tracks went, and when
def draw(rows: list[Row], width: float, height: float, target: Path) -> None:
    """The path of every track in the image, above a chart of the frames it was seen in."""
    identities = sorted({row.id for row in rows})
    colours = plt.get_cmap("tab10").colors
    figure, (image, chart) = plt.subplots(
        2, figsize=(12, 11), layout="constrained", height_ratios=[3, 0.1 + 0.08 * len(identities)]
    )
    for place, identity in enumerate(identities):
        own = [row for row in rows if row.id == identity]
        colour = colours[place % len(colours)]
        draw_path(image, own, colour)
        for coasting, shade in ((False, 1.0), (True, 0.3)):
            frames = [row.frame for row in own if row.coasting == coasting]
            chart.scatter(frames, [place] * len(frames), s=9, marker="s", color=colour, alpha=shade)
    image.set(xlim=(0, width), ylim=(height, 0), aspect="equal", facecolor="#f6f6f6")
    image.set(xlabel="x, pixels", ylabel="y, pixels")
    image.set_title(f"{len(identities)} tracks: the feet of the boxes, and each box half-way")
    chart.set(yticks=range(len(identities)), yticklabels=identities, xlabel="frame", ylabel="id")
    chart.set_title("When each was seen, pale where it coasts")
    chart.invert_yaxis()
    chart.margins(x=0.01)
    chart.grid(axis="x", alpha=0.3)
    chart.spines[["top", "right"]].set_visible(False)
    figure.savefig(target, dpi=100)
    plt.close(figure)


def draw_path(axes: Any, rows: list[Row], colour: Any) -> None:
    """One track: its path, which darkens with time, and its box and id half-way."""
    boxes = np.array([row.box for row in rows])
    feet = np.column_stack([(boxes[:, 0] + boxes[:, 2]) / 2, boxes[:, 3]])
    steps = np.stack([feet[:-1], feet[1:]], axis=1)
    shades = np.linspace(0.3, 1, len(steps))
    axes.add_collection(LineCollection(steps, colors=colour, alpha=shades, linewidths=2.5))
    axes.plot(*feet[-1], marker="o", markersize=6, color=colour)
    left, top, right, bottom = boxes[len(boxes) // 2]
    size = right - left, bottom - top
    axes.add_patch(Rectangle((left, top), *size, facecolor=colour, alpha=0.06))
    axes.add_patch(Rectangle((left, top), *size, fill=False, edgecolor=colour, linewidth=1.5))
    label = dict(facecolor=colour, edgecolor="none", boxstyle="square,pad=0.2")
    axes.text(max(left, 0), top, str(rows[0].id), color="white", va="bottom", bbox=label)


# %% Run
def main() -> None:
    """Reads the arguments, tracks, draws, and says how much there was."""
    parser = argparse.ArgumentParser(description="Track a MOTChallenge file and draw the tracks.")
    parser.add_argument("detections", type=Path)
    parser.add_argument("picture", type=Path, help="PNG to write")
    parser.add_argument("--size", type=float, nargs=2, metavar=("WIDTH", "HEIGHT"), help="pixels")
    parser.add_argument("--fps", type=float, help="frames a second")
    options = parser.parse_args()
    rows = np.loadtxt(options.detections, delimiter=",", ndmin=2)
    if options.size and options.fps:
        (width, height), fps = options.size, options.fps
    elif sequence := sequence_of(options.detections):
        width, height, fps = sequence
    else:
        parser.error("expected a seqinfo.ini above the detections' folder, or --size and --fps")
    tracks = track(rows, width, fps)
    draw(tracks, width, height, options.picture)
    seen = len({row.id for row in tracks})
    print(f"{len(rows)} detections, {seen} tracks in {len(tracks)} rows: {options.picture}")


if __name__ == "__main__":
    main()

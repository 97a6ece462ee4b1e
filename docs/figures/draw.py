#!/usr/bin/env python3
"""Draws the pictures of the guide: draw.py FOLDER

Every mark comes from a run of the tracker, through the Python module, but for the machine of
states, which is a drawing. The same library and Debian's Matplotlib give the same files.
"""

import sys
from pathlib import Path

import matplotlib

matplotlib.use("svg")
matplotlib.rcParams.update({
    "svg.hashsalt": "libiv",  # equal runs give equal files
    "font.size": 9,
    "axes.spines.top": False,
    "axes.spines.right": False,
    "savefig.facecolor": "white",
})
import matplotlib.pyplot as plt
import numpy as np
from matplotlib.patches import Circle, FancyArrowPatch, FancyBboxPatch, Rectangle

import libiv

BLUE, ORANGE, GREEN, RED, GREY = "#1f6fb4", "#e07b00", "#2a8f3c", "#c22f2f", "#8a8a8a"
WIDTH = 64  # of the images here, in pixels and in units: one pixel is one unit


def tracker(**options):
    return libiv.Tracker(WIDTH, units=WIDTH, **options)


def box(x, y, w, h):
    return [x - w / 2, y - h / 2, x + w / 2, y + h / 2]


def centre(corners):
    return (corners[0] + corners[2]) / 2, (corners[1] + corners[3]) / 2


def draw_states(target):
    figure, axes = plt.subplots(figsize=(8.6, 4.5))
    axes.set(xlim=(0, 86), ylim=(0, 45))
    axes.axis("off")

    def state(x, y, title, text, colour):
        axes.add_patch(FancyBboxPatch((x - 11, y - 4), 22, 8, boxstyle="round,pad=0.6",
                                      facecolor=colour + "22", edgecolor=colour, linewidth=1.6))
        axes.text(x, y + 1.5, title, ha="center", va="center", weight="bold")
        axes.text(x, y - 1.8, text, ha="center", va="center", fontsize=7.2)

    def arrow(begin, end, text, at, bend=0.0, align="center"):
        axes.add_patch(FancyArrowPatch(begin, end, connectionstyle=f"arc3,rad={bend}",
                                       arrowstyle="-|>", mutation_scale=12, color="#333333",
                                       shrinkA=0, shrinkB=0))
        axes.text(*at, text, ha=align, va="center", fontsize=7.5, linespacing=1.35)

    state(20, 26, "tentative", "no id, not reported", GREY)
    state(66, 26, "confirmed", "id and filter, reported", GREEN)
    state(66, 6, "coasting", "last box, reported for 2 frames", ORANGE)
    state(20, 6, "removed", "memory freed", RED)

    arrow((20, 41), (20, 31), "a detection that no track takes,\nand room left", (21.2, 38.5),
          align="left")
    arrow((32, 26), (54, 26), "match number\nfcnt_stable: new id", (43, 29))
    arrow((61, 21.2), (61, 10.8), "a miss", (60, 16), align="right")
    arrow((71, 10.8), (71, 21.2), "a match: corrected,\nsame id", (72.2, 16), align="left")
    arrow((54, 6), (32, 6), "miss number\nfcnt_removal + 1", (43, 9))
    arrow((20, 21.2), (20, 10.8), "6th miss in a row,\nor fcnt_removal + 1", (21.2, 16),
          align="left")
    # Loops: out at the side and back.
    arrow((8.2, 24), (8.2, 28), "a match before that:\ncounted\n\n1st to 3rd miss:\n"
          "count kept\n\n4th, 5th miss:\ncount back to 0", (0.2, 37.6), bend=-2.6, align="left")
    arrow((68, 30.8), (73, 30.8), "a match: filter corrected", (70.5, 38.2), bend=-1.7)
    arrow((77.8, 4), (77.8, 8), "a miss", (81.5, 1.4), bend=1.8)
    figure.savefig(target, metadata={"Date": None}, bbox_inches="tight")
    plt.close(figure)


def taken(offsets, size):
    """For each offset, whether a track at rest continues with a detection that far away.

    All tracks rest at one place: each has a class of its own, which keeps them apart.
    """
    count = len(offsets)
    with tracker(stable=1, capacity=2 * count) as one:
        for _ in range(3):
            one.process([box(32, 32, *size)] * count, [1.0] * count, range(count))
        moved = [box(32 + x, 32 + y, *size) for x, y in offsets]
        tracks = one.process(moved, [1.0] * count, range(count))
    result = np.zeros(count, bool)
    old = tracks.ids <= count  # later ids are those of detections that no track took
    result[tracks.classes[old]] = tracks.detections[old] >= 0
    return result


def draw_gates(target):
    sizes = {"a tall box, 4 x 10 units": (4, 10), "a small box, 1 x 1 unit": (1, 1),
             "a big box, 24 x 18 units": (24, 18)}
    places = np.arange(-12, 12.01, 0.25)
    figure, all_axes = plt.subplots(1, 3, figsize=(8.6, 3.6), sharey=True)
    for axes, (title, size) in zip(all_axes, sizes.items()):
        accepted = taken([(x, y) for y in places for x in places], size)
        accepted = accepted.reshape(len(places), -1)
        axes.contourf(places, places, accepted, levels=[0.5, 1.5], colors=["#a9d3ae"])
        axes.add_patch(Circle((0, 0), 10, fill=False, color=RED, linestyle="--"))
        axes.add_patch(Circle((0, 0), 1, fill=False, color=BLUE, linewidth=1.6))
        w, h = size
        axes.add_patch(Rectangle((-w / 2, -h / 2), w, h, fill=False, color="#333333"))
        axes.plot(0, 0, "k+")
        axes.set(title=title, xlim=(-13, 13), ylim=(13, -13), aspect="equal",
                 xlabel="offset in units", xticks=range(-10, 11, 5), yticks=range(-10, 11, 5))
        axes.title.set_size(9)
    all_axes[0].set_ylabel("offset in units")
    handles = [Rectangle((0, 0), 1, 1, color="#a9d3ae"),
               Rectangle((0, 0), 1, 1, fill=False, color="#333333"),
               plt.Line2D([], [], color=BLUE, linewidth=1.6),
               plt.Line2D([], [], color=RED, linestyle="--")]
    figure.legend(handles, ["centres of detections that the track takes", "predicted box",
                            "distance gate: 1 unit", "ceiling: 10 units"],
                  loc="lower center", ncol=4, frameon=False, fontsize=8)
    figure.tight_layout(rect=(0, 0.09, 1, 1))
    figure.savefig(target, metadata={"Date": None})
    plt.close(figure)


def motion_filter(x, earlier):
    """The filter that the tracker gives to a track."""
    model = libiv.KalmanFilter(ns=8, nm=4)
    a = np.zeros((8, 8), np.float32)
    h = np.zeros((4, 8), np.float32)
    for now, before, measured in ((0, 2, 0), (1, 3, 1), (4, 6, 2), (5, 7, 3)):
        a[now, [now, before]] = 2, -1
        a[before, now] = 1
        h[measured, now] = 1
    model.A, model.H, model.Q, model.R = a, h, 0.1 * np.eye(8, dtype=np.float32), np.eye(4)
    model.P_post = np.eye(8)
    model.x_post = np.array([x[0], x[1], earlier[0], earlier[1], x[2], x[3], earlier[2],
                             earlier[3]], np.float32).reshape(8, 1)
    return model


def draw_motion(target):
    """An object that stands, goes at 0.9 units a frame, is lost for six frames and comes back."""
    frames = np.arange(1, 45)
    truth = 6 + 0.9 * np.clip(frames - 8, 0, None)
    noise = np.random.RandomState(5).normal(0, 0.35, len(frames))
    lost = (frames >= 24) & (frames < 30)
    reported, coasting, predicted = [], [], []
    model, before = None, None
    with tracker(stable=3, removal=12) as one:
        for frame, place, is_lost in zip(frames, truth + noise, lost):
            here = (place, 20, 12, 10)
            detections = [] if is_lost else [box(*here)]
            tracks = one.process(detections, [1.0] * len(detections), [1] * len(detections))
            if model:
                model.predict()
                predicted.append((frame, model.x_pre[0, 0]))
                if not is_lost:
                    model.correct(np.array(here, np.float32).reshape(4, 1))
            for corners, row in zip(tracks.boxes, tracks.detections):
                (reported if row >= 0 else coasting).append((frame, centre(corners)[0]))
                if not model:
                    model = motion_filter(here, before)
                elif not is_lost:
                    assert abs(model.x_post[0, 0] - centre(corners)[0]) < 1e-4, "one and the same"
            before = here

    figure, axes = plt.subplots(figsize=(8.6, 3.6))
    axes.axvspan(23.5, 29.5, color="#eeeeee")
    axes.text(26.5, 3.5, "not detected", ha="center", color=GREY)
    axes.plot(frames, truth, color=GREY, linewidth=1, label="the object")
    axes.plot(frames[~lost], (truth + noise)[~lost], "x", color=RED, markersize=5,
              label="detections")
    axes.plot(*zip(*predicted), "_", color=BLUE, markersize=9, label="predicted")
    axes.plot(*zip(*reported), ".", color=GREEN, label="reported, corrected")
    axes.plot(*zip(*coasting), "o", color=ORANGE, fillstyle="none", label="reported, coasting")
    axes.annotate("the prediction waits, one step ahead", (27, predicted[27 - 4][1]), (31, 13),
                  arrowprops={"arrowstyle": "->", "color": BLUE}, color=BLUE)
    axes.set(xlabel="frame", ylabel="centre x in units", ylim=(2, 44))
    axes.legend(frameon=False, loc="upper left")
    figure.tight_layout()
    figure.savefig(target, metadata={"Date": None})
    plt.close(figure)


def draw_counters(target):
    """When tracks are reported, by what is seen of their objects."""
    objects = {  # x: seen, .: not seen
        "seen in every frame": "xxxxxxxxxxxxxxxxxxxxxxxxxx",
        "3 misses while tentative": "xx...xxxxxxxxxxxxxxxxxxxxx",
        "4 misses while tentative": "xx....xxxxxxxxxxxxxxxxxxxx",
        "6 misses while tentative": "xx......xxxxxxxxxxxxxxxxxx",
        "7 misses, confirmed": "xxxxxx.......xxxxxxxxxxxxx",
        "9 misses, confirmed": "xxxxxx.........xxxxxxxxxxx",
        "a false alarm": "...x......................",
    }
    frames = len(next(iter(objects.values())))
    reported = {}
    with tracker(stable=3, removal=8) as one:
        for frame in range(frames):
            seen = [n for n, pattern in enumerate(objects.values()) if pattern[frame] == "x"]
            tracks = one.process([box(10, 2 + 11 * n, 4, 8) for n in seen], [1.0] * len(seen),
                                 [1] * len(seen))
            for identity, corners, row in zip(tracks.ids, tracks.boxes, tracks.detections):
                reported[frame, round((centre(corners)[1] - 2) / 11)] = identity, row >= 0

    figure, axes = plt.subplots(figsize=(8.6, 4))
    first = {}
    for n, (name, pattern) in enumerate(objects.items()):
        axes.text(0.2, n, name, ha="right", va="center")
        for frame, mark in enumerate(pattern):
            identity, matched = reported.get((frame, n), (None, None))
            colour = "white" if identity is None else GREEN if matched else ORANGE
            axes.add_patch(Rectangle((frame + 0.55, n - 0.28), 0.9, 0.56, facecolor=colour,
                                     edgecolor="#bbbbbb", linewidth=0.6))
            if mark == "x":
                axes.plot(frame + 1, n, "x", markersize=4, markeredgewidth=1,
                          color="#444444" if identity is None else "white")
            if identity is not None and identity not in first:
                first[identity] = n
                axes.text(frame + 0.55, n - 0.3, f"id {identity}", ha="left", va="bottom",
                          fontsize=7, color=GREEN)
    axes.set(xlim=(0.3, frames + 0.7), ylim=(len(objects) - 0.4, -0.8), yticks=[], xlabel="frame",
             xticks=range(1, frames + 1, 2))
    axes.spines[["left"]].set_visible(False)
    handles = [plt.Line2D([], [], marker="x", linestyle="", color="#444444"),
               Rectangle((0, 0), 1, 1, facecolor="white", edgecolor="#bbbbbb"),
               Rectangle((0, 0), 1, 1, color=GREEN), Rectangle((0, 0), 1, 1, color=ORANGE)]
    axes.legend(handles, ["detected", "not reported", "reported", "reported, coasting"],
                loc="upper center", bbox_to_anchor=(0.35, -0.14), ncol=4, frameon=False)
    figure.tight_layout()
    figure.savefig(target, metadata={"Date": None})
    plt.close(figure)


def main():
    folder = Path(sys.argv[1])
    draw_states(folder / "states.svg")
    draw_gates(folder / "gates.svg")
    draw_motion(folder / "motion.svg")
    draw_counters(folder / "counters.svg")


main()

#!/usr/bin/env python3
"""Draws the results of the benchmark: picture.py results.json picture.svg"""

import json
import sys

import matplotlib

matplotlib.use("svg")
matplotlib.rcParams["svg.hashsalt"] = "libiv"  # equal results give equal files
import matplotlib.pyplot as plt

PEER_GROUPS = ("run time", "compile time")


def size_of(row):
    return int(row["name"].rsplit("/", 1)[1])


def ratio(row):
    """r against the best peer."""
    return min(e["ratio"] for e in row["entrants"] if e["group"] in PEER_GROUPS)


def time(row, name):
    return min(e["ns"] for e in row["entrants"] if e["name"].startswith(name))


def series(rows, prefix):
    """Aligned rows whose names are the prefix and a size."""
    found = [r for r in rows if r["offset"] == 0 and "entrants" in r
             and r["name"].startswith(prefix) and r["name"][len(prefix):].isdigit()]
    return sorted(found, key=size_of)


def plot_ratios(axes, rows, title, label, prefixes):
    axes.axhline(1, color="gray", linewidth=1)
    for name, prefix in prefixes.items():
        found = series(rows, prefix)
        axes.plot([size_of(r) for r in found], [ratio(r) for r in found], marker="o",
                  markersize=3, label=name)
    axes.set(title=title, xlabel=label, ylabel="best peer's time / libiv's time")
    axes.set_xscale("log", base=2)
    axes.set_yscale("log", base=2)
    axes.xaxis.set_major_formatter("{x:g}")
    axes.yaxis.set_major_formatter("{x:g}")
    low, high = axes.get_ylim()
    axes.set_ylim(min(low, 0.5), max(high, 2))  # small differences look small, and have ticks
    axes.legend(fontsize="x-small")


def plot_tracker(axes, rows):
    found = series(rows, "tracker/")
    sizes = [size_of(r) for r in found]
    axes.plot(sizes, [time(r, "libiv") for r in found], marker="o", markersize=3,
              label="libiv: one object in a frame")
    axes.plot(sizes, [time(r, "Eigen fixed") for r in found], linestyle="--",
              label="Eigen, fixed size: one predict and correct")
    axes.set(title="Tracker", xlabel="objects", ylabel="ns")
    axes.set_xscale("log")
    axes.xaxis.set_major_formatter("{x:g}")
    axes.set_ylim(bottom=0)
    axes.legend(fontsize="x-small")


def main(source, target):
    with open(source, encoding="utf-8") as file:
        results = json.load(file)
    rows = results["rows"]
    figure, axes = plt.subplots(3, 2, figsize=(11, 12), layout="constrained")
    for place, kind in ((axes[0][0], "f32"), (axes[0][1], "f64")):
        plot_ratios(place, rows, f"Products, {kind}", "n",
                    {"A B": f"product/{kind}/AB/", "A' B": f"product/{kind}/AtB/",
                     "A B'": f"product/{kind}/ABt/"})
    plot_ratios(axes[1][0], rows, "Integer products and the inverse", "n",
                {**{t: f"product/{t}/AB/" for t in ("u8", "s16", "s32", "s64")},
                 "inverse": "inverse/f32/"})
    plot_ratios(axes[1][1], rows, "Element-wise, f32", "values",
                {o: f"elementwise/f32/{o}/" for o in ("add", "sub", "scale", "neg", "one")})
    plot_ratios(axes[2][0], rows, "Transpose", "n",
                {t: f"transpose/{t}/" for t in ("u8", "u16", "f32", "f64")})
    plot_tracker(axes[2][1], rows)
    figure.suptitle(f"{results['environment']['cpu']}: above 1, libiv is faster than its best peer")
    figure.savefig(target, metadata={"Date": None})


if __name__ == "__main__":
    main(*sys.argv[1:])

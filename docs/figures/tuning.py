#!/usr/bin/env python3
"""Measures what docs/tuning.md says of the tuning values: tuning.py IVTRACK QUALITY [--write PAGE]

Simulates scenes, tracks them with each value and counts misses, strays, switches and tracks beside
the truth. QUALITY is tests/quality.txt: what is counted here with the defaults has to be what stands
there. Prints the tables, or puts them into the page between its marks.
"""

import re
import subprocess
import sys
import tempfile
from collections import defaultdict
from pathlib import Path

IVTRACK, QUALITY = sys.argv[1:3]
BELONGS = 0.5  # overlap of an object and its track
VISIBLE = 0.3  # part of an object that a detector needs

STREET = "--frames 200 --objects 8 --seed 4"
CROWD = "--frames 200 --objects 30 --seed 12"
POOR = "--frames 300 --objects 8 --seed 13 --miss 0.3 --false-alarms 0.5 --jitter 0.06"
SLOW = "--frames 200 --objects 8 --seed 14 --fps 8"
SCENES = {"street": STREET, "crowd": CROWD, "poor detector": POOR, "8 frames a second": SLOW}


def ivtrack(*arguments):
    return subprocess.run([IVTRACK, *map(str, arguments)], check=True, text=True,
                          capture_output=True).stdout


def rows_by_frame(text):
    frames = defaultdict(list)
    for line in text.splitlines():
        values = line.split(",")
        frame, identity = int(values[0]), int(values[1])
        left, top, width, height = map(float, values[2:6])
        frames[frame].append((identity, values[7], (left, top, left + width, top + height),
                              float(values[8])))
    return frames


def overlap(a, b):
    w = min(a[2], b[2]) - max(a[0], b[0])
    h = min(a[3], b[3]) - max(a[1], b[1])
    common = w * h if w > 0 and h > 0 else 0
    area = (a[2] - a[0]) * (a[3] - a[1]) + (b[2] - b[0]) * (b[3] - b[1]) - common
    return common / area if area else 0


def judge(truth, tracks, any_class=False):
    """Objects and tracks belong together while they overlap by half: first those that did in the
    frame before, then by overlap."""
    misses = strays = switches = 0
    latest, current, ids = {}, {}, set()
    for frame in sorted(truth.keys() | tracks.keys()):
        objects = [row for row in truth.get(frame, []) if row[3] >= VISIBLE]
        found = tracks.get(frame, [])
        ids.update(row[0] for row in found)
        pairs = []
        for identity, kind, box, _ in objects:
            for track, track_kind, track_box, _ in found:
                common = overlap(box, track_box)
                if common >= BELONGS and (any_class or kind == track_kind):
                    pairs.append((current.get(identity) != track, 1 - common, identity, track))
        current, taken = {}, set()
        for _, _, identity, track in sorted(pairs):
            if identity not in current and track not in taken:
                current[identity] = track
                taken.add(track)
                switches += latest.get(identity, track) != track
                latest[identity] = track
        misses += len(objects) - len(current)
        strays += len(found) - len(current)
    return len(ids), misses, strays, switches


class Scene:
    def __init__(self, options):
        self.folder = tempfile.TemporaryDirectory()
        ivtrack("simulate", self.folder.name, *options.split())
        self.truth = rows_by_frame((Path(self.folder.name) / "gt/gt.txt").read_text())
        self.detections = Path(self.folder.name) / "det/det.txt"

    def counts(self, options="", any_class=False):
        text = ivtrack("track", "--quiet", *options.split(), self.detections)
        return judge(self.truth, rows_by_frame(text), any_class)

    def flip_classes(self):
        """Every tenth detection is of the other class."""
        lines = self.detections.read_text().splitlines()
        for n in range(0, len(lines), 10):
            values = lines[n].split(",")
            values[7] = "1" if values[7] == "2" else "2"
            lines[n] = ",".join(values)
        self.detections.write_text("\n".join(lines) + "\n")


def check_defaults():
    for line in Path(QUALITY).read_text().splitlines()[1:]:
        values = line.split()
        expected = tuple(map(int, (values[1], *values[3:6])))
        counted = Scene(line[line.index("--") :]).counts()
        if counted != expected:
            sys.exit(f"FAILED: {line}: counted {counted}")


def table(head, rows):
    lines = [f"| {' | '.join(head)} |", "|---|" + "--:|" * (len(head) - 1)]
    return "\n".join(lines + [f"| {' | '.join(map(str, row))} |" for row in rows]) + "\n"


def sweep(options, scenes, name):
    """Switches / misses / tracks with each option in each scene."""
    made = {title: Scene(SCENES[title]) for title in scenes}
    rows = []
    for option in options:
        row = [f"`{option}`"]
        for scene in made.values():
            tracks, misses, _, switches = scene.counts(option)
            row.append(f"{switches} / {misses} / {tracks}")
        rows.append(row)
    return table([name, *made], rows)


def class_table():
    rows = []
    for title in ("clean classes", "a tenth flipped"):
        scene = Scene(CROWD)
        if title != "clean classes":
            scene.flip_classes()
        for option in ("", "--ignore-class"):
            tracks, misses, _, switches = scene.counts(option, any_class=True)
            name = f"{title}, `{option}`" if option else title
            rows.append([name, switches, misses, tracks])
    return table(["detector", "switches", "misses", "tracks"], rows)


def jitter_table():
    rows = []
    for jitter in (0, 0.01, 0.02, 0.04, 0.08):
        tracks, misses, _, switches = Scene(f"{CROWD} --jitter {jitter}").counts()
        rows.append([f"`--jitter {jitter}`", switches, misses, tracks])
    return table(["detector", "switches", "misses", "tracks"], rows)


def tables():
    two = ("crowd", "poor detector")

    def options(name, *values):
        return [f"--{name} {value}" for value in values]

    return {
        "units": sweep(options("units", 8, 16, 32, 64, 100, 150, 200, 300, 1280), SCENES, "scale"),
        "gates": sweep(
            options("distance", 0, 1) + options("overlap", 0, 0.1, 0.2, 0.3, 0.5, 0.7), SCENES,
            "gate"),
        "counters": sweep(
            options("stable", 1, 2, 3, 5) + options("removal", 1, 5, 12, 25, 60), two, "counter"),
        "detector": sweep(
            options("min-score", 0, 0.5, 0.6, 0.7, 0.8) + options("max-objects", 15, 25, 60), two,
            "option"),
        "classes": class_table(),
        "jitter": jitter_table(),
    }


def main():
    check_defaults()
    if len(sys.argv) <= 3:
        for name, text in tables().items():
            print(f"{name}\n\n{text}")
        return
    page = Path(sys.argv[4])
    text = page.read_text()
    for name, rows in tables().items():
        # A mark, the table behind it, and the empty line that ends it.
        mark = re.compile(rf"(<!-- measured: {name} -->\n\n)(\|[^\n]*\n)*")
        text, count = mark.subn(lambda found: found[1] + rows, text)
        if count != 1:
            sys.exit(f"FAILED: {page} has no place for the table of {name}")
    page.write_text(text)



main()

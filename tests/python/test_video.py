"""The video example by its documented command: what it writes, and what it refuses."""

import os
import pty
import re
import shutil
import signal
import subprocess
import sys
import threading
from pathlib import Path

import cv2
import numpy as np
import pytest

from conftest import SEED

sys.path.insert(0, str(Path(__file__).resolve().parents[2] / "examples"))
import video

ROOT = Path(__file__).resolve().parents[2]
SCRIPT = ROOT / "examples" / "video.py"
FRAMES, WIDTH, HEIGHT, FPS = 120, 480, 270, 25
SETTLED = 10  # frames in view after which an object has its track

# First frame, then left, top, width, height, and pixels a frame to the right and down.
OBJECTS = [
    (15, (-60, 55, 60, 36), (3.5, 0.0)),
    (20, (480, 100, 70, 40), (-4.0, 0.2)),
    (30, (100, 270, 30, 60), (1.0, -1.2)),
    (35, (480, 10, 40, 24), (-2.5, 0.0)),
    (40, (-40, 195, 40, 30), (2.0, -0.1)),
]


def box_of(entry, frame):
    """The part of an object that is in view: left, top, right, bottom."""
    first, (left, top, width, height), (right_speed, down_speed) = entry
    left += right_speed * (frame - first)
    top += down_speed * (frame - first)
    return np.clip([left, top, left + width, top + height], 0, [WIDTH, HEIGHT] * 2)


def in_view(entry, frame):
    left, top, right, bottom = box_of(entry, frame)
    return frame >= entry[0] and (right - left) * (bottom - top) > 500


def texture(random, width, height, low, high, grain):
    """Noise of a grain, as grey values."""
    coarse = random.uniform(low, high, (height // grain + 2, width // grain + 2)).astype(np.float32)
    return cv2.resize(coarse, (width, height), interpolation=cv2.INTER_CUBIC)[:, :, None]


@pytest.fixture(scope="module")
def scene(tmp_path_factory):
    """A folder with the video that the documented command reads."""
    random = np.random.default_rng(SEED)
    ground = texture(random, WIDTH, HEIGHT, 70, 150, 24) * np.float32([1, 1.03, 1.06])
    coats = [
        texture(random, *entry[1][2:], 0.5, 1, 6) * random.uniform(120, 255, 3)
        for entry in OBJECTS
    ]
    folder = tmp_path_factory.mktemp("scene")
    video = cv2.VideoWriter(
        str(folder / "street.mp4"), cv2.VideoWriter_fourcc(*"mp4v"), FPS, (WIDTH, HEIGHT)
    )
    for frame in range(1, FRAMES + 1):
        image = ground.copy()
        for entry, coat in zip(OBJECTS, coats):
            if in_view(entry, frame):
                left, top, right, bottom = box_of(entry, frame).round().astype(int)
                x = -min(0, round(entry[1][0] + entry[2][0] * (frame - entry[0])))
                image[top:bottom, left:right] = coat[: bottom - top, x : x + right - left]
        image += random.normal(0, 3, image.shape)
        video.write(image.clip(0, 255).astype(np.uint8))
    video.release()
    (folder / "examples").symlink_to(ROOT / "examples")
    (folder / "python").symlink_to(ROOT / "python")
    return folder


def command(*arguments):
    return [sys.executable, SCRIPT, *arguments]


def call(*arguments, **options):
    return subprocess.run(command(*arguments), capture_output=True, text=True, **options)


def frames_of(file):
    return list(video.frames_of(cv2.VideoCapture(str(file))))


@pytest.fixture(scope="module")
def tracked(scene):
    """The folder after the documented command."""
    (documented,) = re.findall(
        r"^```sh\n(.*video\.py.*)\n```", (ROOT / "python" / "README.md").read_text(), re.MULTILINE
    )
    path = "/usr/bin:" + os.environ["PATH"]  # Debian's Python before any other
    result = subprocess.run(
        documented, shell=True, cwd=scene, env=os.environ | {"PATH": path}, capture_output=True,
        text=True, check=True,
    )
    assert result.stdout == f"{FRAMES} frames, {len(OBJECTS)} tracks: tracked.avi\n"
    assert result.stderr == "", "progress is for terminals"
    return scene


@pytest.fixture(scope="module")
def rows(tracked):
    return np.loadtxt(tracked / "tracks.txt", delimiter=",")


def overlap(a, b):
    """Intersection over union."""
    across, down = np.minimum(a[2:], b[2:]) - np.maximum(a[:2], b[:2])
    shared = max(across, 0) * max(down, 0)
    return shared / (np.prod(a[2:] - a[:2]) + np.prod(b[2:] - b[:2]) - shared)


def test_the_video_has_each_frame_in_the_size_and_at_the_rate_of_the_source(tracked):
    images = frames_of(tracked / "tracked.avi")
    assert [image.shape for image in images] == [(HEIGHT, WIDTH, 3)] * FRAMES
    assert cv2.VideoCapture(str(tracked / "tracked.avi")).get(cv2.CAP_PROP_FPS) == FPS


def test_every_object_has_one_id_through_the_whole_clip(rows):
    found = []
    for entry in OBJECTS:
        ids = set()
        settled = next(f for f in range(1, FRAMES) if in_view(entry, f)) + SETTLED
        for frame in range(settled, FRAMES + 1):
            truth = box_of(entry, frame)
            own = [
                row[1]
                for row in rows[rows[:, 0] == frame]
                if overlap(truth, np.hstack([row[2:4], row[2:4] + row[4:6]])) > 0.5
            ]
            assert len(own) == 1, f"frame {frame}: {truth} is in {rows[rows[:, 0] == frame]}"
            ids.update(own)
        assert len(ids) == 1, entry
        found += ids
    assert sorted(found) == sorted(set(rows[:, 1])), "nothing else is tracked"
    assert rows.shape[1] == 10 and (rows[:, 7:] == [0, -1, -1]).all()


def panels(tracked):
    """Pictures of the strip, each with the number of the frame that it shows."""
    strip = cv2.imread(str(tracked / "strip.png"))
    assert strip.shape == (HEIGHT, 6 * WIDTH + 5 * video.STRIP_GAP, 3)
    images = np.array(frames_of(tracked / "tracked.avi"))[:, :-30].astype(np.int16)  # no captions
    for left in range(0, strip.shape[1], WIDTH + video.STRIP_GAP):
        picture = strip[:, left : left + WIDTH]
        difference = np.abs(images - picture[:-30]).mean(axis=(1, 2, 3))
        yield int(difference.argmin()) + 1, picture


def test_the_strip_shows_the_middles_of_six_equal_parts(tracked):
    shown = [frame for frame, _ in panels(tracked)]
    assert np.abs(np.array(shown) - FRAMES * (np.arange(6) + 0.5) / 6).max() <= 2, shown


def test_every_id_keeps_a_colour_of_its_own(tracked, rows):
    colours = {}
    for frame, picture in panels(tracked):
        for _, identity, left, top, width, height, *_ in rows[rows[:, 0] == frame]:
            right, middle = round(left + width), round(top + height * 0.75)
            if right < WIDTH and middle < HEIGHT - 30:
                colours.setdefault(identity, []).append(tuple(picture[middle, right].tolist()))
    assert sum(map(len, colours.values())) > 10
    assert all(len(set(own)) == 1 for own in colours.values()), colours
    assert len({own[0] for own in colours.values()}) == len(OBJECTS)


def test_trails_fade_away():
    painter = video.Painter((100, 100, 3), FPS)
    frame = np.full((100, 100, 3), 40, np.uint8)
    strengths = []
    with video.libiv.Tracker(100, stable=1) as tracker:
        for step in range((video.TRAIL_SECONDS + 2) * FPS):
            there = [[10 + 4 * step, 20, 20 + 4 * step, 40]] if step < 15 else np.empty((0, 4))
            tracks = tracker.process(there, np.ones(len(there)), np.zeros(len(there), int))
            image = painter.draw(frame, tracks, tracks.boxes)
            if step > 16:
                strengths.append(int(np.abs(image.astype(int) - frame)[41:].sum()))
    assert strengths[0] > 0 and strengths[-1] == 0
    assert strengths == sorted(strengths, reverse=True)


def draw_person(image, x, y, height, phase):
    """A dark figure that walks: head, body, arms and legs, in eighths of its height."""
    unit, swing, grey = height / 8, 0.9 * np.sin(phase), (50, 45, 40)

    def limb(x1, y1, x2, y2, thickness):
        ends = [(round(x + a * unit), round(y + b * unit)) for a, b in ((x1, y1), (x2, y2))]
        cv2.line(image, *ends, grey, round(thickness * unit), cv2.LINE_AA)

    for side in (-1, 1):
        limb(0, 4.2, side * swing, 7.8, 0.9)
        limb(0.7 * side, 1.7, side, 4, 0.6)
    limb(0, 2.2, 0, 3.6, 1.8)
    limb(0, 0.5, 0, 0.7, 0.9)


def test_people_are_found_by_the_detector_of_opencv(tmp_path):
    random = np.random.default_rng(SEED)
    ground = texture(random, 320, 200, 150, 190, 20) * np.ones(3)
    source = cv2.VideoWriter(
        str(tmp_path / "people.avi"), cv2.VideoWriter_fourcc(*"MJPG"), FPS, (320, 200)
    )
    steps = range(20)
    for step in steps:
        image = ground + random.normal(0, 3, ground.shape)
        draw_person(image, 60 + 2 * step, 30, 140, step / 4)
        draw_person(image, 250 - step, 50, 120, step / 3)
        source.write(image.clip(0, 255).astype(np.uint8))
    source.release()
    people = "people.avi", "out.mp4", "--detector", "people", "--tracks", "tracks.txt"
    result = call(*people, cwd=tmp_path)
    assert result.stdout == "20 frames, 2 tracks: out.mp4\n", result.stderr
    assert len(frames_of(tmp_path / "out.mp4")) == len(steps)
    for row in np.loadtxt(tmp_path / "tracks.txt", delimiter=","):
        middle = row[2] + row[4] / 2
        assert min(abs(middle - 60 - 2 * row[0]), abs(middle - 250 + row[0])) < 10
        assert 90 < row[5] < 170, "as tall as the figures"


@pytest.mark.parametrize(
    ("arguments", "told"),
    [
        ("no.mp4 out.avi", "no.mp4: no such file"),
        ("text.mp4 out.avi", "text.mp4: expected a video"),
        ("empty.mp4 out.avi", "empty.mp4: expected a video"),
        ("99 out.avi", "camera 99: not there"),
        ("street.mp4 no/out.avi", "no/out.avi: No such file or directory"),
        ("street.mp4 folder.avi", "folder.avi: Is a directory"),
        ("street.mp4 full.avi --frames 2", "full.avi: could not be written whole"),
        ("street.mp4 out.avi --strip no/s.png", "no/s.png: No such file or directory"),
        ("street.mp4 out.avi --strip s.text", "expected a name that ends in .png, got s.text"),
        ("street.mp4 out.avi --tracks no/t.txt", "no/t.txt: No such file or directory"),
        ("street.mp4 street.mp4", "street.mp4: expected another file than the source"),
        ("street.mp4 out.avi --show", "--show: expected a display"),
        ("street.mp4 out.avi --units 1e20", "expected 1e-12 to .* units a pixel, got 1e\\+20 .*"),
        ("tiny.avi out.avi --detector people", "expected frames of 64x128 .*, got 64x48"),
        ("street.mp4 out.mkv", "expected a name that ends in .avi or .mp4, got out.mkv"),
        ("street.mp4 out.avi --fps 0", "expected a number above 0, got 0"),
        ("street.mp4 out.avi --strip-frames 0", "expected 1 or more, got 0"),
    ],
)
def test_what_cannot_be_done_ends_with_one_line(scene, tiny, tmp_path, arguments, told):
    shutil.copy(scene / "street.mp4", tmp_path)
    shutil.copy(tiny, tmp_path)
    (tmp_path / "text.mp4").write_text("no video\n" * 100)
    (tmp_path / "empty.mp4").touch()
    (tmp_path / "folder.avi").mkdir()
    (tmp_path / "full.avi").symlink_to("/dev/full")
    headless = {k: v for k, v in os.environ.items() if k not in ("DISPLAY", "WAYLAND_DISPLAY")}
    result = call(*arguments.split(), cwd=tmp_path, env=headless)
    assert result.returncode in (1, 2)
    usage, _, line = result.stderr.rpartition("video.py: ")
    assert re.fullmatch(f"(error: argument .*: )?{told}\n", line), result.stderr
    assert usage == "" or usage.startswith("usage: ")
    original = (scene / "street.mp4").read_bytes()
    assert (tmp_path / "street.mp4").read_bytes() == original, "the source stays as it was"


TINY_FRAMES = 6000


@pytest.fixture(scope="module")
def tiny(tmp_path_factory):
    """Small frames, so many that telling the progress of each fills a terminal's buffer."""
    file = tmp_path_factory.mktemp("tiny") / "tiny.avi"
    long = cv2.VideoWriter(str(file), cv2.VideoWriter_fourcc(*"MJPG"), FPS, (64, 48))
    for _ in range(TINY_FRAMES):
        long.write(np.zeros((48, 64, 3), np.uint8))
    long.release()
    return file


@pytest.mark.parametrize("kind", [signal.SIGINT, signal.SIGTERM])
def test_a_run_that_is_stopped_keeps_what_it_has_written(tiny, tmp_path, kind):
    keyboard, terminal = pty.openpty()
    arguments = command(tiny, "out.avi", "--strip", "strip.png")
    run = subprocess.Popen(arguments, cwd=tmp_path, stderr=terminal, stdout=subprocess.PIPE)
    os.close(terminal)
    guard = threading.Timer(300, run.kill)  # a hang fails instead of holding up the others
    guard.start()
    told = os.read(keyboard, 100)  # from here on it waits for a reader before it is through
    run.send_signal(kind)
    with open(keyboard, "rb", buffering=0) as progress:
        try:
            while part := progress.read(4096):
                told += part
        except OSError:  # the other end is closed
            pass
    out = run.communicate()[0].decode()
    guard.cancel()
    assert run.returncode == 128 + kind
    frames = int(out.split()[0])
    assert out == f"{frames} frames, 0 tracks: out.avi\n"
    assert 1 <= frames < TINY_FRAMES
    assert told.startswith(b"\rframe 1 of %d\r" % TINY_FRAMES)
    assert told.endswith(b"\rframe %d of %d\r\n" % (frames, TINY_FRAMES))
    assert len(frames_of(tmp_path / "out.avi")) == frames
    assert cv2.imread(str(tmp_path / "strip.png")).shape[0] == 48

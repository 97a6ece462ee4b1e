"""The tracker's frames are those of the C functions to the bit: scaled, renumbered, cut to the
capacity and let go as promised."""

import re
import threading

import numpy as np
import pytest

import libiv
import raw
from heap import heap_in_use
from libiv import Tracker, _library

WIDTH, UNITS = 640, 64
BOX = [100, 100, 140, 180]


class ByHand:
    """The C functions fed row by row, in numbers of Python: what `Tracker` has to equal."""

    def __init__(self, capacity=1024, units=UNITS, **options):
        self.factor = units / WIDTH
        self.capacity = capacity
        self.tracker = raw.Tracker(capacity, **options)
        self.numbers = {}

    def process(self, boxes, scores, classes):
        order = sorted(range(len(scores)), key=lambda n: -scores[n])[: self.capacity]
        kept = sorted(order)
        rows = [
            [self.numbers.setdefault(classes[n], float(len(self.numbers) + 1))]
            + [edge * self.factor for edge in boxes[n]]
            + [scores[n]]
            for n in kept
        ]
        names = {number: name for name, number in self.numbers.items()}
        return [
            (
                int(track[0]),
                [edge / self.factor for edge in track[2:6]],
                track[6],
                names[track[1]],
                kept[int(track[7])] if track[7] >= 0 else -1,
            )
            for track in self.tracker.process(rows)
        ]


def rows_of(tracks):
    columns = (tracks.ids, tracks.boxes, tracks.scores, tracks.classes, tracks.detections)
    assert [c.dtype.str[1:] for c in columns] == ["i8", "f8", "f4", "i8", "i8"]
    assert tracks.boxes.shape == (len(tracks), 4)
    return list(zip(*(column.tolist() for column in columns)))


CLASSES = [0, 1, -1, 2**40, 2**24 + 1, -(2**63), 2**63 - 1]


def scene(random, frames=60, objects=20):
    """Boxes that drift, of many classes, with misses, false alarms and empty frames."""
    corners = random.uniform(0, 500, (objects, 2))
    speed = random.uniform(-3, 3, (objects, 2))
    sizes = random.uniform(10, 60, (objects, 2))
    kinds = random.choice(CLASSES, objects)
    for frame in range(frames):
        seen = random.random(objects) < (0 if frame % 17 == 16 else 0.85)
        corner = (corners + frame * speed)[seen] + random.normal(0, 1, (seen.sum(), 2))
        boxes = np.hstack([corner, corner + sizes[seen]])
        order = random.permutation(len(boxes))
        yield boxes[order], random.random(len(boxes))[order], kinds[seen][order]


def assert_equal_over(frames, ours, by_hand):
    reported = 0
    for boxes, scores, classes in frames:
        got = rows_of(ours.process(boxes, scores, classes))
        assert got == by_hand.process(boxes.tolist(), scores.tolist(), classes.tolist())
        reported += len(got)
    return reported


@pytest.mark.parametrize(
    "options",
    [
        {},
        {"units": 30},
        {"distance": 0.1, "overlap": 0.5},
        {"stable": 1, "removal": 1},
        {"stable": 6, "removal": 20},
        {"ignore_class": True},
        {"capacity": 12, "stable": 1},
        {"capacity": 1, "stable": 1},
        {"capacity": 20, "stable": 1, "removal": 50},
    ],
    ids=str,
)
def test_every_option_gives_the_frames_of_c_to_the_bit(random, options):
    with Tracker(WIDTH, **options) as tracker:
        assert assert_equal_over(scene(random, 150), tracker, ByHand(**options)) > 50


@pytest.mark.parametrize("dtype", ["f2", "f4", "f8", ">f4", "i1", "u1", "i2", "u2", "i4", "i8"])
def test_numbers_of_any_type_and_layout_are_read_alike(random, dtype):
    corners = random.integers(0, 60, (9, 2))
    boxes = np.hstack([corners, corners + 20])
    scores, classes = np.arange(9) % 5, np.arange(9) % 3
    spread = np.zeros((9, 12), dtype)
    spread[:, ::3] = boxes
    as_type = np.asfortranarray(boxes.astype(dtype)), scores.astype(dtype), classes
    with Tracker(WIDTH) as first, Tracker(WIDTH) as second, Tracker(WIDTH) as third:
        for _ in range(4):
            expected = rows_of(first.process(boxes.tolist(), scores.tolist(), classes.tolist()))
            assert rows_of(second.process(*as_type)) == expected
            assert rows_of(third.process(spread[:, ::3], scores, classes)) == expected
        assert len(expected) == 9


@pytest.mark.parametrize("dtype", ["i1", "u1", "i2", "u2", "i4", "u4", "i8", ">i8"])
def test_any_integer_is_a_class(dtype):
    limits = np.iinfo(dtype)
    classes = np.array([limits.min, 0, 1, limits.max]).astype(dtype)
    boxes = np.arange(4)[:, None] * 100 + BOX
    with Tracker(WIDTH, stable=1) as tracker:
        tracks = tracker.process(boxes, np.ones(4), classes)
        assert tracks.classes.tolist() == classes.tolist()
        assert tracker.process().classes.tolist() == classes.tolist(), "while they coast, too"


def test_more_classes_than_a_float_can_tell_apart_are_refused(monkeypatch):
    monkeypatch.setattr(libiv.tracker, "_MOST_CLASSES", 4)
    with Tracker(WIDTH, stable=1) as tracker:
        for kind in (5, 6, 5, 0):
            tracker.process([BOX], [1], [kind])
        with pytest.raises(ValueError, match="classes: expected less than 4 different ones"):
            tracker.process([BOX, BOX], [1, 1], [5, 7])
        assert tracker.process([BOX], [1], [6]).classes.tolist().count(6) > 0


def test_a_frame_without_detections_counts_a_miss():
    with Tracker(WIDTH, stable=1, removal=3) as tracker:
        assert tracker.process([BOX], [0.5], [0]).detections.tolist() == [0]
        assert tracker.process().detections.tolist() == [-1]
        assert tracker.process([], [], []).ids.tolist() == [1]
        assert len(tracker.process(np.empty((0, 4)), np.empty((3, 0)), np.empty(0, int))) == 0
        tracker.process()  # the fourth miss
        assert tracker.process([BOX], [0.5], [0]).ids.tolist() == [2]


@pytest.mark.parametrize("fps, removal", [(None, 5), (5, 5), (11, 5), (25, 12), (60, 30)])
def test_patience_is_half_a_second_and_at_least_five_frames(fps, removal):
    for misses, expected in ((removal, 1), (removal + 1, 2)):
        with Tracker(WIDTH, stable=1, fps=fps) as tracker:
            tracker.process([BOX], [0.5], [0])
            for _ in range(misses):
                tracker.process()
            assert tracker.process([BOX], [0.5], [0]).ids.tolist() == [expected]


def test_above_the_capacity_the_highest_scores_are_kept_and_of_equal_ones_the_earlier():
    boxes = np.arange(5)[:, None] * 100 + BOX
    with Tracker(WIDTH, capacity=3, stable=1) as tracker:
        tracks = tracker.process(boxes, [0.5, 0.9, 0.1, 0.7, 0.5], np.zeros(5, int))
        assert tracks.detections.tolist() == [0, 1, 3]
        assert tracks.scores.tolist() == np.array([0.5, 0.9, 0.7], np.float32).tolist()
        assert tracks.dropped == 2
        assert tracker.process().dropped == 0
    with Tracker(WIDTH, capacity=2, stable=1) as tracker:
        unsigned = np.array([0, 1, 200, 200, 200], np.uint8)
        tracks = tracker.process(boxes, unsigned, np.zeros(5, int))
        assert tracks.detections.tolist() == [2, 3]
    many = np.arange(100)[:, None] * 50 + BOX
    with Tracker(WIDTH, capacity=60, stable=1) as tracker:
        tracks = tracker.process(many, np.arange(100) % 10 // 5, np.zeros(100, int))
        assert tracks.dropped == 40
        low = [n for n in range(100) if n % 10 < 5]
        assert sorted({*range(100)} - {*tracks.detections.tolist()}) == low[10:]
        with pytest.raises(ValueError, match="detection 99: expected a box and a score"):
            tracker.process(many, np.append(np.ones(99), np.nan), np.zeros(100, int))


def test_a_full_list_is_reported_whole():
    boxes = np.arange(4)[:, None] * 100 + BOX
    with Tracker(WIDTH, capacity=4, stable=1) as tracker:
        for _ in range(3):
            tracks = tracker.process(boxes, np.ones(4), np.zeros(4, int))
            assert (tracks.ids.tolist(), tracks.dropped) == ([1, 2, 3, 4], 0)
        assert len(tracker.process()) == 4


def test_what_a_frame_gave_stays():
    with Tracker(WIDTH, stable=1) as tracker:
        tracks = tracker.process([BOX], [0.5], [7])
        before = rows_of(tracks)
        for step in range(5):
            tracker.process([[x + 5 * step for x in BOX]], [0.9], [7])
        assert rows_of(tracks) == before


@pytest.mark.parametrize(
    "arguments, error, said",
    [
        (([BOX], [1], [1, 2]), ValueError, "got (1, 4), (1,) and (2,)"),
        (([BOX],), ValueError, "expected boxes (n, 4), scores (n,) and classes (n,), got (1, 4)"),
        ((BOX, [1], [1]), ValueError, "got (4,), (1,) and (1,)"),
        (([BOX[:3]], [1], [1]), ValueError, "got (1, 3), (1,) and (1,)"),
        (([BOX], [[1]], [1]), ValueError, "got (1, 4), (1, 1) and (1,)"),
        (([BOX], 1, 1), ValueError, "got (1, 4), () and ()"),
        (([BOX], [1], [1.0]), TypeError, "classes of integers that int64 holds, got int64, int64"),
        (([BOX], [1], np.ones(1, np.uint64)), TypeError, "and uint64"),
        (([BOX], [1], ["car"]), TypeError, "and <U3"),
        (([["a"] * 4], [1], [1]), TypeError, "expected boxes and scores of numbers"),
        (([BOX], [1j], [1]), TypeError, "complex128"),
        (([BOX, [1, 2, np.nan, 3]], [1, 1], [1, 1]), ValueError, "detection 1: expected a box"),
        (([[-1e300, 0, 1, 1]], [1], [1]), ValueError, "detection 0: expected a box and a score"),
        (([BOX], [np.inf], [1]), ValueError, "and inf"),
        (([BOX, [9, 9, 5, 9]], [1, 1], [1, 1]), ValueError, "detection 1: expected left, top, ri"),
        (([[5, 9, 9, 5]], [1], [1]), ValueError, "right, bottom, got [5, 9, 9, 5]"),
    ],
)
@pytest.mark.filterwarnings("ignore:overflow")
def test_a_refused_frame_says_why_and_changes_nothing(arguments, error, said):
    with Tracker(WIDTH, stable=2) as tracker:
        tracker.process([BOX], [0.5], [0])
        with pytest.raises(error, match=re.escape(said)):
            tracker.process(*arguments)
        assert tracker.process([BOX], [0.5], [0]).ids.tolist() == [1], "two in a row"


@pytest.mark.parametrize(
    "options, error, said",
    [
        ({"width": 0}, ValueError, "width: expected a finite number above 0, got 0"),
        ({"width": "640"}, TypeError, "width: expected a number, got '640'"),
        ({"units": float("nan")}, ValueError, "units: expected a finite number above 0, got nan"),
        ({"units": 1e-20}, ValueError, "units a pixel"),
        ({"capacity": 0}, ValueError, "capacity: expected an integer from 1 to 1000000, got 0"),
        ({"capacity": 1.5}, TypeError, "capacity: expected an integer, got 1.5"),
        ({"distance": 1.1}, ValueError, "distance: expected a number from 0 to 1, got 1.1"),
        ({"overlap": -1}, ValueError, "overlap: expected a number from 0 to 1, got -1"),
        ({"stable": 0}, ValueError, "stable: expected an integer from 1 to 2147483647, got 0"),
        ({"removal": 2**31}, ValueError, "removal: expected"),
        ({"fps": 0}, ValueError, "fps: expected"),
    ],
    ids=str,
)
def test_options_out_of_range_are_refused(options, error, said):
    with pytest.raises(error, match=re.escape(said)):
        Tracker(**{"width": WIDTH, **options})


def test_new_parameters_hold_from_the_next_frame_on_and_the_others_stay():
    near = [x + 1 for x in BOX]
    with Tracker(WIDTH, stable=1, distance=0) as tracker:
        assert tracker.process([BOX], [1], [0]).detections.tolist() == [0]
        assert tracker.process([near], [1], [0]).detections.tolist() == [0]
        tracker.set_params(overlap=1)
        tracker.set_params(removal=2)
        assert tracker.process([BOX], [1], [0]).detections.tolist() == [-1, 0], "nothing overlaps"
        tracker.set_params(overlap=0, ignore_class=True)
        assert tracker.process([near], [1], [5]).classes.tolist() == [5, 0], "of two, the older"
        tracker.set_params(removal=1)
        assert tracker.process().ids.tolist() == [1], "the other one missed twice"
        tracker.set_params(distance=1, ignore_class=False)
        with pytest.raises(ValueError, match="removal: expected an integer from 1"):
            tracker.set_params(removal=0)
        assert tracker.process([BOX], [1], [5]).detections.tolist() == [0]


def test_a_closed_tracker_refuses_frames_and_may_be_closed_again():
    tracker = Tracker(WIDTH)
    assert not tracker.closed
    with tracker:
        tracker.process([BOX], [1], [1])
    tracker.close()
    assert tracker.closed
    for call in (tracker.process, tracker.set_params, tracker.__enter__):
        with pytest.raises(ValueError, match="expected an open tracker, got a closed one"):
            call()


@pytest.mark.parametrize("end", ["close", "with", "forget"])
def test_the_end_lets_live_tracks_go_and_leaves_the_model_alone(end):
    boxes = np.arange(30)[:, None] * 100 + BOX

    def live_and_end():
        tracker = Tracker(WIDTH, capacity=64, stable=1)
        for _ in range(2):
            assert len(tracker.process(boxes, np.ones(30), np.zeros(30, int))) == 30
        tracker.process(boxes[:20] + 5000, np.ones(20), np.zeros(20, int))
        if end == "close":
            tracker.close()
        elif end == "with":
            with tracker:
                pass

    live_and_end()
    before = heap_in_use()
    for _ in range(200):
        live_and_end()
    # Four matrices, 704 bytes of values in blocks with headers of their own and of the heap.
    assert 700 <= (heap_in_use() - before) / 200 <= 900


def test_several_trackers_do_not_touch_each_other(random):
    trackers = [Tracker(WIDTH) for _ in range(3)]
    by_hand = [ByHand() for _ in trackers]
    for frames in zip(*(scene(random) for _ in trackers)):
        for frame, ours, theirs in zip(frames, trackers, by_hand):
            assert_equal_over([frame], ours, theirs)


def test_threads_with_a_tracker_each_get_the_frames_of_one_thread(random):
    scenes = [list(scene(random, 100)) for _ in range(4)]
    got = [[] for _ in scenes]

    def track(frames, rows):
        with Tracker(WIDTH) as tracker:
            rows.extend(rows_of(tracker.process(*frame)) for frame in frames)

    threads = [threading.Thread(target=track, args=pair) for pair in zip(scenes, got)]
    for thread in threads:
        thread.start()
    for thread in threads:
        thread.join()
    for frames, rows in zip(scenes, got):
        alone = []
        track(frames, alone)
        assert rows == alone


def test_threads_may_share_a_tracker():
    with Tracker(WIDTH, stable=1) as tracker:

        def watch(n):
            box = [x + 200 * n for x in BOX]
            for _ in range(200):
                tracks = tracker.process([box], [0.5], [n])
                assert tracks.classes[tracks.detections == 0].tolist() == [n]

        failures = []
        threading.excepthook, before = failures.append, threading.excepthook
        threads = [threading.Thread(target=watch, args=[n]) for n in range(4)]
        for thread in threads:
            thread.start()
        for thread in threads:
            thread.join()
        threading.excepthook = before
        assert not failures


def inverse():
    from libiv import mat

    mat.inv(np.eye(2, dtype=np.float32))


def correction():
    from libiv import KalmanFilter

    KalmanFilter(1, 1).correct([1])


@pytest.mark.parametrize(
    "call", [Tracker(WIDTH).process, Tracker(WIDTH).close, inverse, correction]
)
def test_calls_that_share_the_work_area_wait_for_each_other(call):
    thread = threading.Thread(target=call)
    with _library.lock:
        thread.start()
        thread.join(timeout=0.2)
        assert thread.is_alive(), "waits for the lock"
    thread.join()

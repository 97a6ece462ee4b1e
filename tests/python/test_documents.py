"""Every block of the module's README runs as it stands, and the example draws what it tracks."""

import os
import re
import subprocess
import sys
from pathlib import Path

import matplotlib
import numpy as np
import pytest

matplotlib.use("agg")
import matplotlib.image

ROOT = Path(__file__).resolve().parents[2]
README = (ROOT / "python" / "README.md").read_text()
SAMPLE = ROOT / "samples" / "crossing" / "det" / "det.txt"

sys.path.insert(0, str(ROOT / "examples"))
import track_and_draw


def blocks(kind):
    return re.findall(rf"^```{kind}\n(.*?)^```", README, re.DOTALL | re.MULTILINE)


def test_the_python_of_the_readme_runs_and_prints_what_it_says(capsys):
    names = {}
    first, *others = blocks("python")
    exec(first, names)
    assert capsys.readouterr().out == blocks("text")[0]
    for block in others:
        exec(block, names)


@pytest.fixture
def tree(tmp_path):
    """A source tree whose build is the one under test, and which may be written to."""
    for name in ("src", "examples", "samples"):
        (tmp_path / name).symlink_to(ROOT / name)
    package = tmp_path / "python"
    (package / "libiv").mkdir(parents=True)
    for file in ["README.md", "pyproject.toml", *(ROOT / "python" / "libiv").glob("*.py*")]:
        source = ROOT / "python" / file
        (package / source.relative_to(ROOT / "python")).write_bytes(source.read_bytes())
    (package / "libiv" / "py.typed").touch()
    (tmp_path / "build").mkdir()
    (tmp_path / "build" / "release").symlink_to(os.environ["LIBIV_BUILD"])
    return tmp_path


def run(script, folder, **environment):
    kept = {k: v for k, v in os.environ.items() if k not in ("LIBIV_LIBRARY", "PYTHONPATH")}
    kept["PATH"] = "/usr/bin:" + kept["PATH"]  # Debian's Python before any other
    return subprocess.run(
        ["sh", "-ec", script], cwd=folder, env=kept | environment, check=True, text=True,
        stdout=subprocess.PIPE,
    ).stdout


def test_the_commands_for_the_source_tree_work(tree):
    build, example = blocks("sh")[0].splitlines()
    assert build == "./dev demo"  # what it builds is built, as this runs
    out = run(example, tree)
    assert "15 tracks" in out
    assert (tree / "tracks.png").is_file()


def test_the_commands_for_an_environment_work_without_network(tree):
    nowhere = "http://127.0.0.1:9"
    run(blocks("sh")[1], tree, PIP_INDEX_URL=nowhere, PIP_DISABLE_PIP_VERSION_CHECK="1")
    told = "import libiv; print(libiv.__file__, libiv.__version__); libiv.Tracker(1).close()"
    out = run(f"cd env; bin/python -c '{told}'", tree, LIBIV_LIBRARY=os.environ["LIBIV_LIBRARY"])
    assert out.startswith(str(tree / "env"))


def test_the_table_of_options_has_each_with_its_default():
    import inspect

    import libiv

    rows = dict(re.findall(r"^\| `(\w+)` \| (.*?) \|", README, re.MULTILINE))
    parameters = dict(inspect.signature(libiv.Tracker).parameters)
    assert list(rows) == list(parameters)
    for name, parameter in parameters.items():
        if parameter.default not in (None, inspect.Parameter.empty):
            assert rows[name].strip("`") == str(parameter.default)


def test_the_example_tracks_the_sample_as_ivtrack_does():
    rows = np.loadtxt(SAMPLE, delimiter=",")
    width, _, fps = track_and_draw.sequence_of(SAMPLE)
    tracks = track_and_draw.track(rows, width, fps)
    command = [os.environ["IVTRACK"], "track", SAMPLE, "--coasting", "report", "--quiet"]
    program = subprocess.run(command, check=True, capture_output=True, text=True).stdout
    expected = np.loadtxt(program.splitlines(), delimiter=",")
    assert [(row.frame, row.id) for row in tracks] == [tuple(row) for row in expected[:, :2]]
    boxes = np.array([row.box for row in tracks])
    boxes[:, 2:] -= boxes[:, :2]
    assert np.abs(boxes - expected[:, 2:6]).max() <= 0.0005 + 1e-9, "three decimals are written"


def test_the_example_draws_in_colour(tmp_path):
    picture = tmp_path / "tracks.png"
    script = ROOT / "examples" / "track_and_draw.py"
    subprocess.run([sys.executable, script, SAMPLE, picture], check=True, stdout=subprocess.DEVNULL)
    image = matplotlib.image.imread(picture)[:, :, :3]
    assert image.shape == (1100, 1200, 3)
    colours = {tuple(c) for c in (image * 255).round().astype(int).reshape(-1, 3)}
    full = [tuple(round(255 * x) for x in c) for c in matplotlib.colormaps["tab10"].colors]
    assert colours.issuperset(full), "ten and more tracks, in the colours of the palette"


def test_the_example_says_what_it_needs(tmp_path):
    script = ROOT / "examples" / "track_and_draw.py"
    det = tmp_path / "det.txt"
    det.write_text("1,-1,0,0,10,10,1\n")
    command = [sys.executable, script, det, tmp_path / "out.png"]
    refused = subprocess.run(command, capture_output=True, text=True)
    assert refused.returncode == 2
    assert "expected a seqinfo.ini" in refused.stderr
    subprocess.run([*command, "--size", "100", "80", "--fps", "10"], check=True)


def test_the_benchmark_measures_the_same_frames_twice():
    script = ROOT / "bench" / "python_overhead.py"
    out = subprocess.run([sys.executable, script, "5"], check=True, capture_output=True, text=True)
    assert re.search(r"5 objects .*\nprocess \S+ us, C call \S+ us, Python's own part", out.stdout)

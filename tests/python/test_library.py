"""The package finds the right library, declares all of it, and works where it is installed."""

import ctypes
import os
import re
import shutil
import subprocess
import sys
from pathlib import Path

import pytest

import libiv
from libiv import _library

ROOT = Path(__file__).resolve().parents[2]
BUILD = Path(os.environ["LIBIV_BUILD"])

TRACK = """
import libiv
with libiv.Tracker(width=640, stable=1) as tracker:
    assert tracker.process([[1, 2, 3, 4]], [0.5], [0]).ids.tolist() == [1]
print(libiv.__file__)
print({line.split()[-1] for line in open("/proc/self/maps") if "libiv.so" in line}.pop())
"""


def run(code, **environment):
    kept = {k: v for k, v in os.environ.items() if k not in ("LIBIV_LIBRARY", "PYTHONPATH")}
    return subprocess.run(
        [sys.executable, "-c", code], env=kept | environment, capture_output=True, text=True
    )


def test_every_exported_function_is_declared():
    exported = (ROOT / "src" / "libiv.exports").read_text().split()
    assert sorted(_library.SIGNATURES) == sorted(exported)


def test_declarations_have_as_many_arguments_as_the_header():
    header = re.sub(r"/\*.*?\*/", "", (ROOT / "src" / "libiv.h").read_text(), flags=re.DOTALL)
    found = re.findall(r"^LIBIV_API ([^(]*?)(\w+)\((.*)\);", re.sub(r",\s+", ", ", header), re.M)
    assert len(found) == len(_library.SIGNATURES)
    plain = {"void": None, "int": ctypes.c_int, "float": ctypes.c_float}
    for result, name, arguments in found:
        declared, types = _library.SIGNATURES[name]
        listed = arguments.split(", ")
        assert len(types) == len(listed), name
        for argument, kind in zip([result, *listed], [declared, *types]):
            if "*" not in argument:
                assert kind is plain[argument.split()[0]], (name, argument)
            else:
                assert kind not in plain.values(), (name, argument)


def test_the_version_is_the_headers():
    header = (ROOT / "src" / "libiv.h").read_text()
    numbers = re.findall(r"#define LIBIV_VERSION_\w+ (\d+)", header)
    assert libiv.__version__ == ".".join(numbers)
    assert _library.SONAME == f"libiv.so.{numbers[0]}"


def test_the_variable_names_the_library_and_nothing_takes_its_place():
    result = run(TRACK, PYTHONPATH=str(ROOT / "python"), LIBIV_LIBRARY=os.environ["LIBIV_LIBRARY"])
    assert result.stdout.split()[1] == os.path.realpath(os.environ["LIBIV_LIBRARY"]), result.stderr
    result = run("import libiv", PYTHONPATH=str(ROOT / "python"), LIBIV_LIBRARY="/nowhere/libiv.so")
    assert "ImportError: libiv: expected the shared library" in result.stderr
    assert "tried: /nowhere/libiv.so: cannot open" in result.stderr


def test_a_library_of_another_kind_is_an_import_error():
    result = run("import libiv", PYTHONPATH=str(ROOT / "python"), LIBIV_LIBRARY="libc.so.6")
    assert re.search(r"ImportError: libiv: expected .*undefined symbol: iv_tracker_create",
                     result.stderr)


def test_in_a_source_tree_its_own_build_is_taken(tmp_path):
    shutil.copytree(ROOT / "python" / "libiv", tmp_path / "python" / "libiv")
    (tmp_path / "src").mkdir()
    (tmp_path / "src" / "libiv.h").touch()
    library = tmp_path / "build" / "release" / "src" / "libiv.so.0"
    library.parent.mkdir(parents=True)
    shutil.copy(os.environ["LIBIV_LIBRARY"], library)
    installed = os.path.dirname(os.environ["LIBIV_LIBRARY"])
    paths = {"PYTHONPATH": str(tmp_path / "python"), "LD_LIBRARY_PATH": installed}
    assert run(TRACK, **paths).stdout.split()[1] == str(library)
    library.unlink()
    assert os.path.dirname(run(TRACK, **paths).stdout.split()[1]) == os.path.realpath(installed)


def test_the_installed_package_takes_the_installed_library(tmp_path):
    subprocess.run(
        [os.environ["LIBIV_CMAKE"], "--install", BUILD, "--prefix", tmp_path],
        check=True,
        capture_output=True,
    )
    package = next(tmp_path.glob("lib*/python3*/dist-packages"))
    library = next(tmp_path.rglob("libiv.so.0"))
    result = run(TRACK, PYTHONPATH=str(package), LD_LIBRARY_PATH=str(library.parent))
    assert result.stdout.split() == [
        str(package / "libiv" / "__init__.py"),
        os.path.realpath(library),
    ], result.stderr
    assert (package / "libiv" / "py.typed").is_file(), "type checkers look for it"


@pytest.mark.parametrize("folder", ["python/libiv", "examples", "bench/python_overhead.py"])
def test_type_hints_hold(folder, tmp_path):
    result = subprocess.run(
        ["/usr/bin/mypy", "--strict", "--ignore-missing-imports"]
        + ["--python-executable", sys.executable]
        + ["--cache-dir", str(BUILD / "mypy"), str(ROOT / folder)],
        env=os.environ | {"MYPYPATH": str(ROOT / "python")},
        capture_output=True,
        text=True,
    )
    assert result.returncode == 0, result.stdout

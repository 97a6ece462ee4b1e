#!/usr/bin/env python3
"""The blocks of documents work as they stand.

    examples.py SOURCE_DIR LIBRARY [OPTION...] DOCUMENT...

Each fenced block of sh, c, cpp and python in a page runs, in the page's order and in one folder,
which looks like the source tree and may be written to. A block of text right behind one is what it
prints; a line of three dots in it stands for any lines. A block of sh that begins with
"# on the device" is left out. Of a header, the blocks between @code and @endcode run.

C and C++ compile without a warning, link the static LIBRARY, and are the body of main if they have
none.
"""

import argparse
import os
import re
import subprocess
import sys
import tempfile
from pathlib import Path

WARNINGS = ["-Wall", "-Wextra", "-Wpedantic", "-Werror"]
HEAD = {
    "c": "#include <stdio.h>\n#include <libiv.h>\nint main(void) {\n",
    "cpp": "#include <cstdio>\n#include <libiv.hpp>\n#include <vector>\nint main() {\n",
}
ON_THE_DEVICE = "# on the device"


def blocks_of(document):
    """Kind, line, code and what it prints, or None."""
    text = document.read_text()
    if document.suffix in (".h", ".hpp"):
        for found in re.finditer(r" @code\n(.*?)\n \* @endcode", text, re.DOTALL):
            code = re.sub(r"^ \* ?", "", found[1], flags=re.MULTILINE)
            yield "cpp", text.count("\n", 0, found.start()) + 2, code + "\n", None
        return
    fences = list(re.finditer(r"^```(\w*)\n(.*?)^```$", text, re.DOTALL | re.MULTILINE))
    for fence, following in zip(fences, [*fences[1:], None]):
        printed = None
        if following and following[1] == "text":
            between = text[fence.end() : following.start()]
            # Prose between the two may lead to what is printed; a headline begins something else.
            printed = None if re.search("^#", between, re.MULTILINE) else following[2]
        if fence[1] in ("sh", "c", "cpp", "python"):
            yield fence[1], text.count("\n", 0, fence.start()) + 2, fence[2], printed


def is_as_expected(expected, printed):
    pattern = "".join(
        "(.*\n)*" if line == "...\n" else re.escape(line) for line in expected.splitlines(True)
    )
    return re.fullmatch(pattern, printed) is not None


class Runner:
    def __init__(self, options, folder):
        self.options = options
        self.folder = folder
        programs = folder / "build" / "programs"
        programs.mkdir(parents=True)
        for entry in options.source.iterdir():
            if entry.name not in ("build", ".git"):
                (folder / entry.name).symlink_to(entry)
        if options.ivtrack:
            command = " ".join([*options.emulator, str(options.ivtrack)])
            (programs / "ivtrack").write_text(f'#!/bin/sh\nexec {command} "$@"\n')
            (programs / "ivtrack").chmod(0o755)
        self.environment = os.environ | {
            # Debian's Python before any other
            "PATH": f"{programs}:/usr/bin:{os.environ['PATH']}",
            "PYTHONPATH": str(options.source / "python"),
            "PYTHONDONTWRITEBYTECODE": "1",
            "MPLBACKEND": "agg",
            "CMAKE_GENERATOR": "Ninja",
        }

    def run(self, *command):
        done = subprocess.run(
            command, cwd=self.folder, env=self.environment, text=True,
            stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, stderr=subprocess.PIPE,
        )
        if done.returncode != 0:
            raise RuntimeError(f"exit status {done.returncode}\n{done.stdout}{done.stderr}")
        return done.stdout

    def sh(self, code):
        return self.run("sh", "-euc", code)

    def python(self, code):
        return self.run("/usr/bin/python3", "-c", code)

    def c(self, code):
        return self.compiled("c", code, self.options.cc, "-std=c11")

    def cpp(self, code):
        return self.compiled("cpp", code, self.options.cxx, "-std=c++17")

    def compiled(self, kind, code, compiler, standard):
        if not re.search(r"^int main", code, re.MULTILINE):
            code = HEAD[kind] + code + "}\n"
        source = self.folder / "build" / f"example.{kind}"
        source.write_text(code)
        include = self.options.source / "src"
        self.run(compiler, standard, *WARNINGS, f"-I{include}", str(source),
                 str(self.options.library), "-lm", "-o", "build/example")
        return self.run(*self.options.emulator, "build/example")


def failures_of(document, options):
    count = failures = 0
    with tempfile.TemporaryDirectory() as folder:
        runner = Runner(options, Path(folder))
        for kind, line, code, expected in blocks_of(document):
            if code.startswith(ON_THE_DEVICE):
                print(f"{document}:{line}: SKIPPED, needs a device")
                continue
            count += 1
            try:
                printed = getattr(runner, kind)(code)
                if expected is not None and not is_as_expected(expected, printed):
                    raise RuntimeError(f"expected:\n{expected}printed:\n{printed}")
            except RuntimeError as error:
                failures += 1
                print(f"FAILED: {document}:{line}: {kind}: {error}")
    print(f"{document}: {count} blocks, {failures} failed")
    # A page without blocks would be a mistake of who calls this.
    return failures or count == 0


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("source", type=Path)
    parser.add_argument("library", type=Path)
    parser.add_argument("documents", type=Path, nargs="+")
    parser.add_argument("--cc", default="cc")
    parser.add_argument("--cxx", default="c++")
    parser.add_argument("--ivtrack", type=Path)
    parser.add_argument("--emulator", type=lambda words: list(filter(None, words.split("|"))),
                        default=[])
    options = parser.parse_args()
    failed = [document for document in options.documents if failures_of(document, options)]
    sys.exit(1 if failed else 0)


main()

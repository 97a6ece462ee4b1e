#!/usr/bin/env python3
"""report.py BINARY PROFILE: what of src/ the tests reach, from clang's source-based coverage.

A region or a branch counts as reached when any instance of its template is: what differs between
instances is the element type and the instruction set, and tests that go through those say so by
name. A line that cannot be reached says why: "// Not covered: reason". Fails if anything else is
not reached, or if what has a reason is.
"""

import json
import re
import subprocess
import sys
from collections import Counter
from pathlib import Path

ROOT = Path(__file__).resolve().parents[2]
CODE = 0  # the kind of a region that is neither skipped nor a gap
REASON = re.compile(r"// Not covered: \S")


def exported(binary, profile):
    """All functions with their regions and branches."""
    out = subprocess.run(["llvm-cov", "export", binary, f"-instr-profile={profile}"],
                         check=True, capture_output=True, text=True).stdout  # fmt: skip
    return json.loads(out)["data"][0]["functions"]


def main():
    binary, profile = sys.argv[1:]
    sources = {str(p): p.read_text().splitlines()
               for p in [*ROOT.glob("src/**/*.h"), *ROOT.glob("src/**/*.cpp")]}  # fmt: skip

    def counts(file, line):
        return file in sources and "constexpr" not in sources[file][line - 1]

    regions, taken = Counter(), Counter()
    for function in exported(binary, profile):
        names = function["filenames"]
        for line, column, _, _, count, file, _, kind in function["regions"]:
            if kind == CODE and counts(names[file], line):
                regions[names[file], line, column] += count
        for line, column, _, _, yes, no, file, _, _ in function["branches"]:
            if counts(names[file], line):
                taken[names[file], line, column, "true"] += yes
                taken[names[file], line, column, "false"] += no
    # A condition that the compiler knows is counted neither way.
    for *place, way in list(taken):
        if way == "true" and not taken[(*place, "true")] and not taken[(*place, "false")]:
            del taken[(*place, "true")], taken[(*place, "false")]

    def is_explained(file, line):
        return any(REASON.search(text) for text in sources[file][max(line - 2, 0) : line])

    print(f"{'':40}{'regions':>16}{'branches':>16}")
    left = []
    sums = [0, 0, 0, 0]
    for file in sorted(sources):
        found = []
        for table in (regions, taken):
            mine = {key: count for key, count in table.items() if key[0] == file}
            missed = [key for key, count in mine.items() if not count]
            left += [key for key in missed if not is_explained(file, key[1])]
            found += [len(mine) - len(missed), len(mine)]
        sums = [a + b for a, b in zip(sums, found)]
        if found[1]:
            print(f"{file[len(str(ROOT)) + 1:]:40}"
                  f"{found[0]:>7} of {found[1]:>5}{found[2]:>7} of {found[3]:>5}")  # fmt: skip
    print(f"{'':40}{sums[0]:>7} of {sums[1]:>5}{sums[2]:>7} of {sums[3]:>5}")
    for file, line, column, *way in sorted(left):
        what = f"never {way[0]}" if way else "never reached"
        print(f"{file}:{line}:{column}: {what}: {sources[file][line - 1].strip()}")
    reached = {key[:2] for key, count in regions.items() if count and is_explained(*key[:2])}
    for file, line in sorted(reached):
        missed = any(not count for key, count in [*regions.items(), *taken.items()]
                     if key[:2] == (file, line))  # fmt: skip
        if not missed:
            left.append((file, line))
            print(f"{file}:{line}: reached, although it says it is not covered")
    print("Everything else is reached." if not left else f"{len(left)} places are left.")
    sys.exit(bool(left))


if __name__ == "__main__":
    main()

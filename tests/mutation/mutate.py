#!/usr/bin/env python3
"""Changes the library one small fault at a time and sees whether the tests notice.

Every mutant is one edit of one line of src/: a comparison turned, a constant moved by one, a fused
multiply-add taken apart, operands exchanged, a statement removed. It is built in a copy of the tree
and tested, first by the digests of everything in a program of their own, then by the tests of its
own stem, then by all; the first failure kills it, as does a run that uses up its time of the
processor. All that happens with one table of kernels; what lives there is tried once more, by the
digests with each other table and by the tests with all of them. What survives that, too, lacks a test,
or changes nothing that these builds show; survivors.tsv says why of each of those, and then the
second trial is left out.

Results are kept by the text of the line, so that a run goes on where the last one ended and only
visits again what has changed; what survived is tried again when the tests have changed, unless
survivors.tsv has it.
"""

import argparse
import concurrent.futures
import hashlib
import json
import os
import platform
import queue
import re
import shlex
import shutil
import subprocess
import sys
from pathlib import Path

ROOT = Path(__file__).resolve().parents[2]
BUILD = ROOT / "build" / "mutation"
PROGRAM = BUILD / "program"


def one_table(flag):
    return ["-DLIBIV_DISPATCH=OFF", f"-DCMAKE_CXX_FLAGS=-O1 -DNDEBUG {flag}"]


ONE_TABLE, OTHER_TABLES = one_table(""), []
if platform.machine() == "x86_64":
    ONE_TABLE, OTHER_TABLES = one_table("-march=x86-64-v3"), [one_table("-march=x86-64")]
    if "avx512bw" in Path("/proc/cpuinfo").read_text():
        OTHER_TABLES += [one_table("-march=x86-64-v4")]
SURVIVORS = Path(__file__).with_name("survivors.tsv")

# Tests of a stem, by the prefix of the file's path; the rest of the tests come after them.
TESTS_OF = {
    "src/iv_kalman": "*Kalman*:*Filter*:*Fused*",
    "src/iv_lanes/level": "Level*",
    "src/iv_list": "*List*",
    "src/iv_matrix/elementwise": "*Elementwise*:*Add*:*Sub*:*Scale*:*Neg*",
    "src/iv_matrix/fill": "*Fill*:*Set*",
    "src/iv_matrix/fixed3": "*Fixed3*",
    "src/iv_matrix/inverse": "*Inverse*",
    "src/iv_matrix/product": "*Product*:*Fused*",
    "src/iv_matrix/transpose": "*Transpose*",
    "src/iv_tracker": "*Tracker*:*Search*:*Nearest*",
}

OPPOSITES = {
    " < ": " <= ", " <= ": " < ", " > ": " >= ", " >= ": " > ", " == ": " != ", " != ": " == ",
    " + ": " - ", " - ": " + ", " * ": " + ", " / ": " * ", " += ": " -= ", " -= ": " += ",
    " && ": " || ", " || ": " && ", " & ": " | ", " | ": " & ", " << ": " >> ", " >> ": " << ",
    "++": "--", "--": "++",
}  # fmt: skip
OPERATOR = re.compile("|".join(re.escape(o) for o in sorted(OPPOSITES, key=len, reverse=True)))
NUMBER = re.compile(r"(?<![\w.])(\d+)(\.\d+)?(f?)(?![\w.])")
EXCHANGE = re.compile(r"(?<![\w.)\]])([\w.]+(?:\[\w+\])?) ([-/]) ([\w.]+(?:\[\w+\])?)(?![\w.(\[])")
FUSED = re.compile(r"\b(?:std::)?(?:__builtin_)?(?:fmaf?|multiply_add)\(")
STATEMENT = re.compile(r"^\s+(?=\S)(?!return\b|using\b|const\b|constexpr\b|static|auto\b|case\b|template\b)"
                       r"[\w.\->\[\]:*+ ]*(?:\(.*\)| [-+|&^]?= .*|\+\+|--);$")  # fmt: skip
DECLARATION = re.compile(r"^\s+(?:[\w:]+(?:<.*>)?[*&]? )+\w+(?:\[.*\])?(?:\{.*\})? = ")
# Room for one more value changes nothing.
ROOM = re.compile(r"^\s+(?:alignas\(\d+\) )?[\w:]+(?:<.*>)? \w+\[[^=(]*\](?:, \w+\[[^=(]*\])*(?:\{\})?;")
# Neither do hints.
SKIPPED = re.compile(r"^\s*(?:#|//|/?\*|static_assert|template|using |friend |extern |__builtin_prefetch)")


def arguments_end(text, start):
    """Where the parenthesis that opens before `start` closes, and the commas between."""
    depth, commas = 1, []
    for i in range(start, len(text)):
        depth += (text[i] in "([{") - (text[i] in ")]}")
        if depth == 0:
            return i, commas
        if depth == 1 and text[i] == ",":
            commas.append(i)
    return None, commas


def mutations_of(line):
    """All (what, mutated line) of a line."""
    code = re.sub(r"/\*.*?\*/", "", line.split(" //")[0]).rstrip()
    if SKIPPED.match(code) or not code.strip():
        return
    for m in OPERATOR.finditer(code):
        before, after = code[: m.start()], code[m.end() :]
        yield f"{m.group().strip()} to {OPPOSITES[m.group()].strip()}", \
            before + OPPOSITES[m.group()] + after
    for m in NUMBER.finditer("" if ROOM.match(code) else code):
        whole, fraction, suffix = m.groups()
        if not fraction:
            changed = f"{int(whole) + 1}{suffix}"
        elif int(whole) < 1e6:  # beyond, a hundredth is less than a float knows
            changed = f"{whole}{fraction}1{suffix}"
        else:
            changed = f"{int(whole) + 1000}{fraction}{suffix}"
        yield f"{m.group()} to {changed}", code[: m.start()] + changed + code[m.end() :]
    for m in EXCHANGE.finditer(code):
        a, sign, b = m.groups()
        if a != b:
            yield f"{m.group()} exchanged", \
                code[: m.start()] + f"{b} {sign} {a}" + code[m.end() :]
    for m in FUSED.finditer(code):
        end, commas = arguments_end(code, m.end())
        if end and len(commas) == 2 and "IV_INLINE" not in code:
            a, b, c = (code[i:j] for i, j in zip(
                [m.end(), commas[0] + 1, commas[1] + 1], [commas[0], commas[1], end]))
            yield "not fused", code[: m.start()] + f"(({a}) * ({b}) + ({c}))" + code[end + 1 :]
    if STATEMENT.match(code) and not DECLARATION.match(code):
        yield "removed", re.match(r"\s*", code).group() + ";"
    if code.strip() in ("continue;", "break;"):
        yield "removed", re.match(r"\s*", code).group() + ";"
    m = re.search(r"(?<=[( ])!(?=\w)", code)
    if m:
        yield "not taken back", code[: m.start()] + code[m.end() :]


class Mutant:
    def __init__(self, file, number, line, occurrence, what, mutated):
        self.file, self.number, self.line = file, number, line
        self.what, self.mutated = what, mutated
        self.key = "\t".join([file, line.strip(), f"{what} #{occurrence}"])
        self.any_key = "\t".join([file, line.strip(), "any"])

    def is_explained(self, reasons):
        return self.key in reasons or self.any_key in reasons

    def stands_in(self, lines):
        return self.number in lines.get(self.file, ())

    def hash(self):
        return int.from_bytes(hashlib.sha256(self.key.encode()).digest()[:8], "big")


def all_mutants():
    mutants = []
    files = [*ROOT.glob("src/**/*.cpp"), *ROOT.glob("src/*/*.h"), ROOT / "src/iv_list.h"]
    for path in sorted(files):
        file = str(path.relative_to(ROOT))
        seen = {}
        for number, line in enumerate(path.read_text().splitlines()):
            for what, mutated in mutations_of(line):
                if mutated.strip() == line.strip():
                    continue
                same = (line.strip(), what)
                seen[same] = occurrence = seen.get(same, 0) + 1
                mutants.append(Mutant(file, number, line, occurrence, what, mutated))
    return mutants


def tests_digest():
    digest = hashlib.sha256()
    for path in sorted([*ROOT.glob("tests/**/*.cpp"), *ROOT.glob("tests/**/*.h")]):
        digest.update(path.read_bytes())
    return digest.hexdigest()[:12]


class Build:
    """A build of a copy of the tree, and what judges it."""

    def __init__(self, tree, build, options):
        self.tree, self.build, self.options = tree, build, options
        self.prepared = False

    def configure(self, source, *options):
        run(["cmake", "-S", str(source), "-B", str(self.build), "-G", "Ninja",
             "-DCMAKE_BUILD_TYPE=", "-DLIBIV_WERROR=ON", "-DCMAKE_EXPORT_COMPILE_COMMANDS=ON",
             *self.options, *options])  # fmt: skip

    def prepare(self):
        if not self.prepared:
            self.make()
            if self.kills(None):
                sys.exit(f"mutate.py: the tests in {self.build} fail without any change")
            self.prepared = True

    def builds(self):
        build = f"cd {self.build} && {self.rebuild}"
        # A mutant may ask for so many copies of a loop that the compiler never ends.
        return subprocess.run(["sh", "-c", f"ulimit -t 300; {build}"], stdout=subprocess.DEVNULL,
                              stderr=subprocess.DEVNULL).returncode == 0  # fmt: skip

    def fails(self, seconds, *command):
        """Whether it fails, crashes or takes too long, by the processor's time: others may use it, too."""
        environment = dict(os.environ, LIBIV_TEST_SCALE="0.2")
        limit = f"ulimit -v 8000000; ulimit -t {seconds}; exec \"$@\""
        try:
            return subprocess.run(["sh", "-c", limit, "sh", *map(str, command)], env=environment,
                                  stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL,
                                  timeout=20 * seconds).returncode != 0  # fmt: skip
        except subprocess.TimeoutExpired:
            return True

    def lines(self):
        """The lines of src/ that the preprocessor leaves in, as {file: {number from 0}}."""
        kept = {}
        for command in json.loads((self.build / "compile_commands.json").read_text()):
            if "/src/" not in command["file"] or "/tests/" in command["file"]:
                continue
            words = shlex.split(command["command"])
            words = words[: words.index("-o")] + ["-E", "-o", "-", command["file"]]
            text = subprocess.run(words, cwd=command["directory"], stdout=subprocess.PIPE, text=True,
                                  check=True).stdout  # fmt: skip
            file, number = "", 0
            for line in text.splitlines():
                marker = re.match(r'# (\d+) "(.*?)"', line)
                if marker:
                    number, file = int(marker.group(1)) - 1, marker.group(2)
                else:
                    if line.strip() and file.startswith(f"{self.tree}/src/"):
                        kept.setdefault(file[len(f"{self.tree}/") :], set()).add(number)
                    number += 1
        return kept


class Digests(Build):
    """The library alone, linked with the program that compares its digests."""

    rebuild = "ninja libiv_digests"

    def configure(self):
        super().configure(self.tree / "tests/bits", f"-DBITS_PROGRAM={PROGRAM}/libbits_program.a")

    def make(self):
        self.configure()
        run(["ninja", "-C", str(self.build), "libiv_digests"])

    def kills(self, own):
        return self.fails(15, self.build / "libiv_digests", self.tree / "tests/digests.txt")


class Tests(Build):
    """The library and its tests: as they are, or those built anew that see into its headers."""

    def __init__(self, tree, build, options, whole):
        super().__init__(tree, build, options)
        self.whole = whole

    def configure(self):
        super().configure(self.tree, "-DLIBIV_TOOLS=OFF", "-DLIBIV_PYTHON=OFF", "-DLIBIV_INSTALL=OFF",
                          "-DCMAKE_EXE_LINKER_FLAGS=-fuse-ld=gold",
                          # not at every link
                          "-DCMAKE_GTEST_DISCOVER_TESTS_DISCOVERY_MODE=PRE_TEST")  # fmt: skip

    def make(self):
        self.configure()
        run(["ninja", "-C", str(self.build), "libiv_tests"])
        commands = run(["ninja", "-C", str(self.build), "-t", "commands", "libiv_tests"])
        link = commands.splitlines()[-1]
        self.rebuild = "ninja libiv_tests" if self.whole else f"ninja src/libiv.a && {link}"

    def kills(self, own):
        tests = [self.build / "tests" / "libiv_tests", "--gtest_brief=1", "--gtest_fail_fast"]
        return any(self.fails(seconds, *tests, f"--gtest_filter={selection}")
                   for selection, seconds in [(own, 60), ("*", 240)] if selection)  # fmt: skip


class Worker:
    """A copy of the tree with builds of its own."""

    def __init__(self, number):
        self.tree = BUILD / f"tree{number}"
        self.digests = Digests(self.tree, BUILD / f"digests{number}", ONE_TABLE)
        self.others = [Digests(self.tree, BUILD / f"other{number}_{i}", table)
                       for i, table in enumerate(OTHER_TABLES)]  # fmt: skip
        self.quick = Tests(self.tree, BUILD / f"quick{number}", ONE_TABLE, False)
        self.full = Tests(self.tree, BUILD / f"full{number}", ["-DCMAKE_CXX_FLAGS=-O2 -DNDEBUG"], True)

        self.tree.mkdir(parents=True, exist_ok=True)
        for part in ("src", "tests", "cmake", "CMakeLists.txt"):
            copy_changed(ROOT / part, self.tree / part)

    def judge(self, mutant, build):
        build.prepare()
        path = self.tree / mutant.file
        original = path.read_text()
        lines = original.splitlines(keepends=True)
        lines[mutant.number] = mutant.mutated + "\n"
        try:
            path.write_text("".join(lines))
            if not build.builds():
                return "does not build"
            own = next((t for p, t in TESTS_OF.items() if mutant.file.startswith(p)), "Level*")
            return "killed" if build.kills(own) else "survived"
        finally:
            path.write_text(original)


def build_program():
    """What compares digests is compiled once for all; only the library changes."""
    run(["cmake", "-S", str(ROOT / "tests/bits"), "-B", str(PROGRAM), "-G", "Ninja",
         *ONE_TABLE])  # fmt: skip
    run(["ninja", "-C", str(PROGRAM), "bits_program"])


def copy_changed(source, target):
    """Copies a file or folder, but leaves alone what is the same: it is not built again then."""
    if source.is_dir():
        target.mkdir(exist_ok=True)
        for old in target.iterdir():
            if not (source / old.name).exists():
                shutil.rmtree(old) if old.is_dir() else old.unlink()
        for child in source.iterdir():
            copy_changed(child, target / child.name)
    elif not target.exists() or target.read_bytes() != source.read_bytes():
        target.write_bytes(source.read_bytes())
        target.chmod(source.stat().st_mode)


def run(command):
    done = subprocess.run(command, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True)
    if done.returncode:
        sys.exit(f"mutate.py: {' '.join(command)} failed:\n{done.stdout}")
    return done.stdout


def read_table(path):
    """{key: last column} of a table with four columns; of rows with one key the last counts."""
    if not path.exists():
        return {}
    rows = (line.rstrip("\n").rsplit("\t", 1) for line in path.read_text().splitlines()
            if line and not line.startswith("#"))  # fmt: skip
    return {key: value for key, value in rows}


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--share", type=int, metavar="N",
                        help="only one mutant of N, the same ones whatever else changes")  # fmt: skip
    parser.add_argument("--files", default="", metavar="REGEX", help="only in files that match")
    parser.add_argument("--quick", action="store_true",
                        help="leave out the second trial, with all tables of kernels")  # fmt: skip
    parser.add_argument("--jobs", type=int, default=os.cpu_count(), metavar="N")
    parser.add_argument("--list", action="store_true", help="list the mutants and end")
    options = parser.parse_args()

    mutants = all_mutants()
    reasons = read_table(SURVIVORS)
    for key in reasons.keys() - {m.key for m in mutants} - {m.any_key for m in mutants}:
        sys.exit(f"{SURVIVORS}: no such mutant: {key}")
    mutants = [m for m in mutants if re.search(options.files, m.file)]
    if options.share:
        mutants = [m for m in mutants if m.hash() % options.share == 0]
    if options.list:
        for m in mutants:
            print(f"{m.file}:{m.number + 1}: {m.what}\n-{m.line}\n+{m.mutated}")
        return

    BUILD.mkdir(parents=True, exist_ok=True)
    tests = tests_digest()
    results = BUILD / "results.tsv"
    known = {}
    fates = read_table(results)
    for m in mutants:
        fate, _, by = fates.get(m.key, "").partition(" by ")
        if fate and (by in ("", tests) or m.is_explained(reasons)):
            known[m.key] = fate

    build_program()
    workers = [Worker(number) for number in range(options.jobs)]
    for build in (workers[0].digests, workers[0].full):
        build.configure()
    quick, full = workers[0].digests.lines(), workers[0].full.lines()
    elsewhere = [m for m in mutants if not m.stands_in(quick) and not m.stands_in(full)]
    mutants = [m for m in mutants if m.stands_in(quick) or m.stands_in(full)]
    mutants.sort(key=Mutant.hash)  # what an unfinished run has seen is a fair sample

    free = queue.SimpleQueue()
    for worker in workers:
        free.put(worker)

    def visit(stages, candidates, survived):
        """Judges mutants by builds, one after the other while they live, all workers at once."""

        def judge(mutant):
            worker = free.get()
            try:
                fates = (worker.judge(mutant, build) for build in stages(worker))
                return mutant, next((fate for fate in fates if fate != "survived"), "survived")
            finally:
                free.put(worker)

        with results.open("a") as table, \
                concurrent.futures.ThreadPoolExecutor(options.jobs) as pool:  # fmt: skip
            for count, (mutant, fate) in enumerate(pool.map(judge, candidates), 1):
                known[mutant.key] = fate = survived if fate == "survived" else fate
                print(mutant.key, f"{fate} by {tests}" if fate == survived else fate, sep="\t",
                      file=table, flush=True)  # fmt: skip
                if fate == "survived":
                    print(f"\n{mutant.file}:{mutant.number + 1}: {mutant.what}: survived\n"
                          f"-{mutant.line}\n+{mutant.mutated}", flush=True)  # fmt: skip
                if sys.stdout.isatty():
                    print(f"\r{count} of {len(candidates)}", end="", flush=True)

    visit(lambda worker: (worker.digests, worker.quick),
          [m for m in mutants if m.stands_in(quick) and m.key not in known], "lived")  # fmt: skip
    if not options.quick:
        visit(lambda worker: (*worker.others, worker.full),
              [m for m in mutants
               if known.get(m.key, "lived") == "lived" and not m.is_explained(reasons)],
              "survived")  # fmt: skip

    fates = [known.get(m.key) for m in mutants]
    tried = [f for f in fates if f]
    explained = sum(m.is_explained(reasons) for m in mutants
                    if known.get(m.key) in ("lived", "survived"))  # fmt: skip
    killed, survived = fates.count("killed"), fates.count("lived") + fates.count("survived")
    print(f"\n{len(tried)} of {len(mutants)} mutants tried: {fates.count('does not build')} do not "
          f"build, {killed} of {killed + survived} killed, {explained} explained, "
          f"{survived - explained} survived; {len(elsewhere)} more stand in code for other "
          "machines")  # fmt: skip
    sys.exit(survived > explained)


if __name__ == "__main__":
    main()

#!/usr/bin/python3
"""Prints what can be said of 64-bit Arm without a machine: the hot loops as LLVM's models of two
cores see them, and the instructions of a tracker's frame as the emulator counts them."""

import os
import re
import subprocess
import sys

SOURCE = os.path.dirname(os.path.dirname(os.path.dirname(os.path.abspath(__file__))))
FLAGS = ["-std=c++17", "-O2", "-fPIC", "-ffp-contract=off", "-fno-exceptions", "-fno-rtti",
         "-fvisibility=hidden", "-DIV_KERNELS=KERNELS_BASELINE", '-DIV_LEVEL="baseline"']
COMPILERS = {"g++": ["aarch64-linux-gnu-g++"], "clang": ["clang++", "--target=aarch64-linux-gnu"]}

# Title and a part of the symbol that holds the loop: a tile may be a function or a part of one.
KERNELS = {
    "product, 4 rows x 2 registers": r"tiles?<float, \(iv::internal::ProductMode\)0, 16, (4, )?2\b",
    "A·B', 4 rows x 8 terms": r"pass_rows<float, \(iv::internal::ProductMode\)2, 16, 1, false, 8>",
    "add": r"elementwise<float, \(iv::internal::ElementwiseOperation\)2>",
    "inverse, row update": r"::invert\(",
    "nearest track": r"nearest\(",
}

# The units of LLVM's models, by what they do.
CORES = {
    "cortex-a55": {"vector": ["FPALU", "FPMAC"], "load": ["UnitLd"], "store": ["UnitSt"]},
    "ampere1": {"vector": ["Unit[XY]"], "load": ["UnitL"], "store": ["UnitS", "UnitZ"]},
}
ITERATIONS = 200

FMA = re.compile(r"fml[as]\t")
SCALAR_FMA = re.compile(r"fn?m(add|sub)\t|fml[as]\t[hsd]\d")
WHOLE_LOAD = re.compile(r"ld[rpu]+\t[qd]\d")
STACK = re.compile(r"\[sp|\[x29")
BRANCH = re.compile(r"^(b|b\.\w+|cbn?z|tbn?z)\t(.*, )?([0-9a-f]+)$")


def run(*command, **options):
    return subprocess.run(command, check=True, text=True, stdout=subprocess.PIPE, **options).stdout


def functions(compiler, build):
    """Name and code of each function, the code as pairs of address and instruction."""
    built = os.path.join(build, "kernels-%s.o" % compiler)
    run(*COMPILERS[compiler], *FLAGS, "-I" + os.path.join(SOURCE, "src"), "-c", "-o", built,
        os.path.join(SOURCE, "src/iv_lanes/kernels.cpp"))
    code = {}
    for line in run("aarch64-linux-gnu-objdump", "-dC", "--no-show-raw-insn", built).splitlines():
        start = re.match(r"[0-9a-f]+ <(.*)>:$", line)
        if start:
            name = start[1]
            code[name] = []
        instruction = re.match(r" *([0-9a-f]+):\t(.*)", line)
        if instruction:
            text = re.sub(r"\s*(//|<).*", "", instruction[2])
            code[name].append((int(instruction[1], 16), text))
    return code


def work(loop):
    """Ranks loops: multiply-adds first, then loaded registers, then instructions."""
    loads = sum(1 + text.startswith("ldp") for text in loop if WHOLE_LOAD.match(text))
    return sum(bool(FMA.match(text)) for text in loop), loads


def straight_loops(code):
    """Loops without a branch but the last."""
    place = {address: i for i, (address, _) in enumerate(code)}
    for end, (address, text) in enumerate(code):
        branch = BRANCH.match(text)
        if branch and int(branch[3], 16) <= address and int(branch[3], 16) in place:
            loop = [text for _, text in code[place[int(branch[3], 16)]:end + 1]]
            if not any(BRANCH.match(text) or text.startswith("bl\t") for text in loop[:-1]):
                yield loop


def ways_round(code):
    """Ways from a place that is jumped back to, round to it again, without a call."""
    place = {address: i for i, (address, _) in enumerate(code)}
    heads = set()
    for address, text in code:
        branch = BRANCH.match(text)
        if branch and int(branch[3], 16) in place and int(branch[3], 16) <= address:
            heads.add(place[int(branch[3], 16)])
    for head in heads:
        ways = [(head, ())]
        while ways:
            at, way = ways.pop()
            if at == head and way:
                yield [code[i][1] for i in way]
                continue
            text = code[at][1] if at < len(code) else "ret"
            if at in way or re.match(r"(bl|blr|br|ret)\b", text):
                continue
            branch = BRANCH.match(text)
            way += (at,)
            if branch and int(branch[3], 16) in place:
                ways.append((place[int(branch[3], 16)], way))
            if not branch or branch[1] != "b":
                ways.append((at + 1, way))


def hot_loop(code):
    """The straight loop with the most work and, of those, the shortest. Where every loop has
    branches, the way round with the most work and, of those, the longest: all rows are there."""
    straight = list(straight_loops(code))
    if any(work(loop) != (0, 0) for loop in straight):
        return max(straight, key=lambda loop: (work(loop), -len(loop)))
    return max(ways_round(code), key=lambda loop: (work(loop), len(loop)), default=[])


def apart(loop):
    """The loop with every address written back by an instruction of its own: the models let the
    new address of a store or load wait for the data, which processors do not."""
    for text in loop:
        write_back = re.match(r"(.*\[(x\d+)\]), (#?-?\w+)$", text)
        if write_back:
            yield write_back[1]
            yield "add\t%s, %s, %s" % (write_back[2], write_back[2], write_back[3])
        else:
            yield text


def simulate(loop, core):
    """Cycles an iteration, and how long each kind of unit and the issue are busy in one."""
    text = "again:\n" + "".join(
        "\t%s\n" % re.sub(r"^((?:b|b\.\w+|cbn?z|tbn?z)\t(?:.*, )?)[0-9a-f]+$", r"\1again", line)
        for line in loop)
    out = run("llvm-mca", "-mtriple=aarch64", "-mcpu=" + core,
              "-iterations=%d" % ITERATIONS, input=text)
    cycles = int(re.search(r"Total Cycles: +(\d+)", out)[1]) / ITERATIONS
    dispatch = int(re.search(r"uOps: +(\d+)\n", out)[1]) / ITERATIONS \
        / int(re.search(r"Dispatch Width: +(\d+)", out)[1])
    units = re.findall(r"^\[[\d.]+\] +- (\S+)$", out, re.M)
    pressure = re.search(r"pressure per iteration:\n.*\n(.*)\n", out)[1].split()
    busy = {}
    for kind, patterns in CORES[core].items():
        busy[kind] = 0.0
        for pattern in patterns: # units that a pattern matches share their work
            alike = [0.0 if time == "-" else float(time)
                     for unit, time in zip(units, pressure) if re.search(pattern + "$", unit)]
            busy[kind] = max(busy[kind], sum(alike) / len(alike))
    busy["issue"] = dispatch
    return cycles, busy


def print_loops(build):
    print("| loop | compiler | core | instructions | FMA | cycles | write-back apart |"
          " bound: vector | load | store | issue | of the bound | stack accesses | scalar fma |")
    print("|---|---|---|--:|--:|--:|--:|--:|--:|--:|--:|--:|--:|---|")
    shown = []
    code = {compiler: functions(compiler, build) for compiler in COMPILERS}
    for title, symbol in KERNELS.items():
        for compiler in COMPILERS:
            loops = [hot_loop(lines) for name, lines in code[compiler].items()
                     if re.search(symbol, name)]
            loop = max(loops, key=work)
            shown.append("%s, %s:\n\t%s" % (title, compiler, "\n\t".join(loop)))
            stack = sum(bool(STACK.search(text)) for text in loop)
            scalar = "yes" if any(SCALAR_FMA.match(text) for text in loop) else "no"
            for core in CORES:
                cycles, busy = simulate(loop, core)
                best = min(cycles, simulate(list(apart(loop)), core)[0])
                print("| %s | %s | %s | %d | %d | %.1f | %.1f | %.1f | %.1f | %.1f | %.1f |"
                      " %.0f %% | %d | %s |" % (
                    title, compiler, core, len(loop), work(loop)[0], cycles, best,
                    busy["vector"], busy["load"], busy["store"], busy["issue"],
                    100 * max(busy.values()) / best, stack, scalar))
    print()
    for compiler in COMPILERS:
        scalars = sorted(re.sub(r"iv::internal::|\(anonymous namespace\)::|\(.*", "", name)
                         for name, lines in code[compiler].items()
                         if any(SCALAR_FMA.match(text) for _, text in lines))
        print("Functions with a scalar fma anywhere, %s: %s." % (compiler,
                                                                 ", ".join(scalars) or "none"))
    with open(os.path.join(build, "loops.txt"), "w") as file:
        file.write("\n".join(shown) + "\n")


def instructions(program, frames):
    """Counts the instructions that the emulator steps through."""
    with subprocess.Popen(["qemu-aarch64", "-singlestep", "-d", "nochain,exec", program,
                           str(frames)], stderr=subprocess.PIPE, stdout=subprocess.DEVNULL) as it:
        count = sum(line.startswith(b"Trace") for line in it.stderr)
    if it.returncode != 0:
        sys.exit("%s failed" % program)
    return count


def print_frame(build):
    run("cmake", "-S", SOURCE, "-B", build, "-G", "Ninja", "-DCMAKE_BUILD_TYPE=Release",
        "-DCMAKE_TOOLCHAIN_FILE=" + os.path.join(SOURCE, "cmake/aarch64-linux-gnu.cmake"),
        "-DLIBIV_TESTS=OFF", "-DLIBIV_TOOLS=OFF")
    run("cmake", "--build", build, "--target", "iv_static")
    program = os.path.join(build, "frame")
    run("aarch64-linux-gnu-gcc", "-O2", "-static", "-I" + os.path.join(SOURCE, "src"), "-o",
        program, os.path.join(SOURCE, "bench/aarch64/frame.c"),
        os.path.join(build, "src/libiv.a"), "-lm")
    count = (instructions(program, 120) - instructions(program, 40)) / 80
    print("\nOne frame of 20 objects, library by g++: %.0f instructions, %.0f an object."
          % (count, count / 20))


def main():
    build = os.path.join(SOURCE, "build/aarch64-report")
    os.makedirs(build, exist_ok=True)
    print_loops(build)
    print_frame(build)


main()

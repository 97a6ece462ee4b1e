#!/usr/bin/python3
"""What the library takes: bytes of code and data, and the stack of each exported function.

size.py measure FIGURES MACHINE CC READELF SOURCE_DIR LIBRARY OBJECT...
size.py check DOCUMENT MACHINE CC READELF SOURCE_DIR LIBRARY OBJECT...
size.py write DOCUMENT FIGURES...

Beside each object lies the call graph that gcc wrote with it (-fcallgraph-info=su). A call through
the table of kernels counts as the worst of the functions of every instruction set that the entry
may hold, and one through a table of a kernel as the worst of that table. Functions of the C run time
count nothing: their stack is not the library's to promise. The stack of a function is the sum along
its worst chain of calls; there is no recursion, or the measurement fails.
"""

import json
import os
import re
import subprocess
import sys

# How far a figure may lie from the document's: small changes of the code are not worth a new one.
SIZE_SHARE = 0.01
SIZE_BYTES = 256
STACK_BYTES = 64

# No function on its own takes more, or a stack of a few pages might not do.
FRAME_LIMIT = 4096

SKIPPED = 77

# An entry of the table names the kernel that it holds, but for one.
KERNEL_OF_ENTRY = {"fill": "elementwise"}
# Kernels that call through a table of their own: by the file of the call.
OWN_TABLES = {"product_kernel.h": "pass_rows"}

# Frames are aligned to the registers, by up to so many bytes that gcc does not count.
ALIGNMENT = {"iv_kernels_v3": 32, "iv_kernels_v4": 64}


def fail(message):
    sys.exit(f"FAILED: {message}")


def output_of(*command, text=None):
    return subprocess.run(command, input=text, check=True, capture_output=True, text=True).stdout


def name_of(demangled):
    """The function's own name, without what it returns, namespaces and template arguments."""
    plain = demangled.replace("(anonymous namespace)::", "")
    return re.split(r"[<(]", plain)[0].split("::")[-1].split(" ")[-1]


class Function:
    def __init__(self, library_object, frame):
        self.object = library_object
        self.frame = frame
        self.called = []  # keys of functions
        self.indirect = []  # files of calls through tables
        self.name = ""


def library_of(path):
    """The CMake target that an object belongs to."""
    return re.search(r"/CMakeFiles/([^/]*)\.dir/", os.path.abspath(path)).group(1)


def read_graph(path, functions):
    library = library_of(path)

    def key(title):
        # Those that the linker does not see are the object's own, but for second names of others.
        symbol = title.split(":")[-1]
        name = symbol.removesuffix(".localalias")
        return (path, symbol) if ":" in title and name == symbol else ("", name)

    with open(re.sub(r"\.o$", ".ci", path)) as graph:
        for line in graph:
            node = re.match(r'node: { title: "(.*?)" label: ".*\\n(\d+) bytes \((.*)\)" }$', line)
            edge = re.match(r'edge: { sourcename: "(.*?)" targetname: "(.*?)" label: "(.*?)" }$',
                            line)
            if node:
                title, frame, kind = node.groups()
                if kind == "dynamic":
                    fail(f"{title} has a frame of a size that is known before it runs")
                functions[key(title)] = Function(library, int(frame) + ALIGNMENT.get(library, 0))
            elif edge:
                caller, called, place = edge.groups()
                if called == "__indirect_call":
                    functions[key(caller)].indirect.append(place.split(":")[0])
                else:
                    functions[key(caller)].called.append(key(called))


def read_graphs(objects):
    functions = {}
    for path in objects:
        read_graph(path, functions)
    symbols = [re.sub(r"\.(part|isra|constprop|cold)\b.*", "", symbol) for _, symbol in functions]
    names = output_of("c++filt", text="\n".join(symbols)).splitlines()
    for function, name in zip(functions.values(), names):
        function.name = name_of(name)
    return functions


def reached_by(function, functions, source_dir):
    """The functions that a call through a table may run, for every such call."""
    for path in function.indirect:
        file = os.path.basename(path)
        if file in OWN_TABLES:
            names = [OWN_TABLES[file]]
            libraries = [function.object]
        else:
            with open(path) as source:
                entries = re.findall(r"\b(?:kernels\(\)|table)\.(\w+)\b(?=[\[(])", source.read())
            names = [KERNEL_OF_ENTRY.get(entry, entry) for entry in entries]
            libraries = [f.object for f in functions.values() if f.object.startswith("iv_kernels_")]
        for name in set(names):
            found = [k for k, f in functions.items() if f.name == name and f.object in libraries]
            if not found:
                fail(f"kernels have a function {name}, which {file} calls")
            yield from found
        if not names:
            fail(f"the calls through pointers in {file} are known")


def worst_chain(key, functions, source_dir, known, above=()):
    """Bytes of the worst chain from a function on, and its functions."""
    if key not in functions:
        if key[0] or key[1].startswith(("iv_", "_Z")):
            fail(f"the call graphs have a function {key[1]}")
        return 0, []
    if key in above:
        fail(f"{functions[key].name} is not recursive")
    if key not in known:
        function = functions[key]
        called = function.called + list(reached_by(function, functions, source_dir))
        chains = [worst_chain(k, functions, source_dir, known, above + (key,)) for k in set(called)]
        most, chain = max(chains, default=(0, []), key=lambda c: (c[0], [k[1] for k in c[1]]))
        known[key] = (function.frame + most, [key] + chain)
    return known[key]


def section_sizes(readelf, library):
    """As `size` counts them, and the code alone."""
    sizes = {"code": 0, "text": 0, "data": 0, "bss": 0}
    for line in output_of(readelf, "-SW", library).splitlines():
        section = re.match(r"\s*\[ *\d+\] (\S+)\s+(\S+)\s+\S+ \S+ (\S+) \S+\s+(\w*A\w*) ", line)
        if section:
            name, kind, size, flags = section.groups()
            taken = "bss" if kind == "NOBITS" else "data" if "W" in flags else "text"
            sizes[taken] += int(size, 16)
            sizes["code"] += int(size, 16) if name == ".text" else 0
    if not sizes["code"]:
        fail(f"the sections of {library} could be read")
    return sizes


def measure(machine, compiler, readelf, source_dir, library, *objects):
    functions = read_graphs(objects)
    for (_, symbol), function in functions.items():
        if function.frame > FRAME_LIMIT:
            fail(f"{symbol} takes at most {FRAME_LIMIT} bytes of stack, not {function.frame}")
    with open(os.path.join(source_dir, "libiv.exports")) as exports:
        exported = exports.read().split()
    known = {}
    stack = {}
    for name in exported:
        if ("", name) not in functions:
            fail(f"the call graphs have a function {name}")
        most, chain = worst_chain(("", name), functions, source_dir, known)
        stack[name] = {"bytes": most,
                       "chain": [[functions[k].name, functions[k].frame] for k in chain]}
    return {"machine": machine,
            "compiler": "gcc " + output_of(compiler, "-dumpfullversion").strip(),
            "sizes": section_sizes(readelf, library),
            "stack": stack}


SIZES = {"code": "code (`.text`)", "text": "text: code, constants, what the loader reads",
         "data": "data: tables of functions", "bss": "bss: the inverse's work area"}


def document(measurements):
    machines = [m["machine"] for m in measurements]
    head = " | ".join(machines)
    rule = " | ".join("---:" for _ in machines)
    lines = [
        "# What the library takes",
        "",
        f"Of a release build with {measurements[0]['compiler']}; `./dev size` renews these figures,"
        " and a test compares",
        f"them: sizes may differ by {SIZE_SHARE:.0%} or {SIZE_BYTES} bytes, stacks by"
        f" {STACK_BYTES} bytes.",
        "",
        "## Bytes of the shared library",
        "",
        "As `size` counts them. On x86-64 every kernel is there three times, once for each"
        " instruction set.",
        "",
        f"| | {head} |",
        f"| --- | {rule} |",
    ]
    for key, words in SIZES.items():
        figures = " | ".join(str(m["sizes"][key]) for m in measurements)
        lines.append(f"| {words} | {figures} |")
    lines += [
        "",
        "## Bytes of stack",
        "",
        "The most that a call of each function takes, its own frame and all below it: the sum along"
        " the worst",
        "chain of calls, from the frames that the compiler reports. A call through the table of"
        " kernels counts",
        "as the worst function that the entry has for any instruction set, whatever the machine"
        " runs and the",
        "operands ask for. So a call never takes more, and often less. No frame is larger than"
        f" {FRAME_LIMIT}"
        " bytes,",
        "nothing recurses, and nothing has a frame of variable size.",
        "",
        "What the C run time takes is not in here: `printf` in `iv_mat_print`; the allocation in"
        " the functions",
        "that create and release and in `iv_tracker_process`; else copying, clearing and, on x86-64"
        " machines",
        "without the instruction, fused multiply-add.",
        "",
        f"| | {head} |",
        f"| --- | {rule} |",
    ]
    for name in measurements[0]["stack"]:
        figures = " | ".join(str(m["stack"][name]["bytes"]) for m in measurements)
        lines.append(f"| `{name}` | {figures} |")
    lines += ["", "The worst chain of all:", ""]
    for m in measurements:
        worst = max(m["stack"].values(), key=lambda s: s["bytes"])
        chain = ", ".join(f"`{name}` {frame}" for name, frame in worst["chain"])
        lines.append(f"- {m['machine']}, {worst['bytes']} bytes: {chain}")
    return "\n".join(lines) + "\n"


def table_of(text, machine):
    """The figures of one machine by the first column, and the compiler that they are from."""
    figures = {}
    column = None
    for line in text.splitlines():
        cells = [cell.strip() for cell in line.strip("|").split("|")]
        if line.startswith("| |"):
            column = cells.index(machine)
        elif line.startswith("| ") and column and not cells[0].startswith("---"):
            figures[cells[0]] = int(cells[column])
    return figures, re.search(r"release build with (gcc [\d.]+)", text).group(1)


def check(path, *arguments):
    with open(path) as file:
        expected, compiler = table_of(file.read(), arguments[0])
    measured = measure(*arguments)
    if measured["compiler"] != compiler:
        print(f"SKIPPED: {path} tells of {compiler}, this is {measured['compiler']}")
        sys.exit(SKIPPED)
    rows = {SIZES[key]: (size, max(SIZE_BYTES, size * SIZE_SHARE))
            for key, size in measured["sizes"].items()}
    rows.update({f"`{name}`": (s["bytes"], STACK_BYTES) for name, s in measured["stack"].items()})
    wrong = [f"{row}: {size} bytes, {path} says {expected.get(row)}"
             for row, (size, tolerance) in rows.items()
             if row not in expected or abs(size - expected[row]) > tolerance]
    wrong += [f"{row} is gone" for row in expected.keys() - rows.keys()]
    if wrong:
        print("\n".join(wrong))
        fail("sizes and stacks are those of the document; `./dev size` renews it")
    worst = max(measured["stack"].items(), key=lambda s: s[1]["bytes"])
    print(f"{len(rows)} figures agree; the most stack takes {worst[0]}, {worst[1]['bytes']} bytes")


def main(verb, *arguments):
    if verb == "measure":
        measured = measure(*arguments[1:])
        with open(arguments[0], "w") as file:
            json.dump(measured, file, indent=1)
    elif verb == "check":
        check(*arguments)
    elif verb == "write":
        measurements = []
        for path in arguments[1:]:
            with open(path) as file:
                measurements.append(json.load(file))
        with open(arguments[0], "w") as file:
            file.write(document(measurements))
    else:
        fail(f"{verb} is one of measure, check, write")


main(*sys.argv[1:])

#!/bin/sh
# from_source.sh
# Runs on a fresh Debian, as root, in a copy of this tree: builds and installs the library and uses it in
# all ways, by the commands that the documents give.
set -eu
cd "$(dirname "$0")/.."
. packaging/documents.sh

say "Installing"
quietly apt-get update
run README.md Installing 4
use_compiler
use_examples /usr/local

for n in 1 2; do
    say "The program of the README, by its lines for CMake"
    block README.md Linking cmake $n | sed 's/^/   /'
    {
        echo "cmake_minimum_required(VERSION 3.22)"
        echo "project(track C CXX)"
        echo "add_executable(track track.c)"
        block README.md Linking cmake $n
    } >"$work/CMakeLists.txt"
    cp track.c "$work"
    ln -sfn "$PWD" "$work/libiv"
    quietly cmake -S "$work" -B "$work/build$n"
    quietly cmake --build "$work/build$n" --parallel 2
    "$work/build$n/track" >"$work/printed"
    diff "$work/expected" "$work/printed"
done

say "The Python module, in an environment of its own"
quietly apt-get install python3-numpy python3-venv python3-wheel
run python/README.md "Running it" 2
block python/README.md "libiv for Python" python >"$work/program.py"
block python/README.md "libiv for Python" text >"$work/expected"
env/bin/python "$work/program.py" >"$work/printed"
diff "$work/expected" "$work/printed"

say "The tracks of a file, drawn"
quietly apt-get install python3-matplotlib
run python/README.md "Running it" 1
[ -s tracks.png ]

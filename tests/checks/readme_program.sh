#!/bin/sh
# readme_program.sh README CC INCLUDE_DIR LIBRARY [EMULATOR...]
# The C program of the README compiles without a warning and prints what the README says.
set -eu
readme=$1 cc=$2 include=$3 library=$4
shift 4
work=$(mktemp -d)
trap 'rm -r "$work"' EXIT
# The first C block is the program, the first text block behind it is its output.
awk '/^```c$/ && !c { c = 1; next } /^```/ && c == 1 { exit } c == 1' "$readme" >"$work/track.c"
awk '/^```c$/ { c = 1 } /^```text$/ && c { t = 1; next } /^```/ && t { exit } t' "$readme" >"$work/expected"
[ -s "$work/track.c" ] && [ -s "$work/expected" ]
"$cc" -std=c99 -Wall -Wextra -Wpedantic -Werror -I"$include" "$work/track.c" "$library" \
    -Wl,-rpath,"$(dirname "$library")" -o "$work/track"
"$@" "$work/track" >"$work/printed"
diff "$work/expected" "$work/printed"

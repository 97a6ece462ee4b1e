#!/bin/sh
# readme_program.sh README BUILD_DIR CMAKE CC [EMULATOR...]
# The C program of the README, built against the installed library alone, compiles without a warning and
# prints what the README says; installed tools work.
set -eu
readme=$1 build=$2 cmake=$3 cc=$4
shift 4
work=$(mktemp -d)
trap 'rm -r "$work"' EXIT
# The first C block is the program, the first text block behind it is its output.
awk '/^```c$/ && !c { c = 1; next } /^```/ && c == 1 { exit } c == 1' "$readme" >"$work/track.c"
awk '/^```c$/ { c = 1 } /^```text$/ && c { t = 1; next } /^```/ && t { exit } t' "$readme" >"$work/expected"
[ -s "$work/track.c" ] && [ -s "$work/expected" ]

"$cmake" --install "$build" --prefix "$work/usr" >/dev/null
lib=$(dirname "$(find "$work/usr" -name libiv.so)")
for link in "-L$lib -liv -Wl,-rpath,$lib" "$lib/libiv.a -lm"; do
    # shellcheck disable=SC2086
    "$cc" -std=c99 -Wall -Wextra -Wpedantic -Werror -I"$work/usr/include" "$work/track.c" $link -o "$work/track"
    "$@" "$work/track" >"$work/printed"
    diff "$work/expected" "$work/printed"
done
# The installed host program, where one is built, finds the installed library.
[ ! -d "$build/tools" ] || "$@" "$work/usr/bin/ivtrack" --version

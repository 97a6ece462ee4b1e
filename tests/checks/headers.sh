#!/bin/sh
# headers.sh DIR CC CXX
# Each header compiles alone, without a warning, in every language that a host may be written in.
set -u
dir=$1 cc=$2 cxx=$3
warnings="-Wall -Wextra -Wpedantic -Wconversion -Wshadow -Wundef -Wstrict-prototypes -Werror"
work=$(mktemp -d)
trap 'rm -r "$work"' EXIT
status=0
for header in libiv.h _libiv.h; do
    # Twice: the second time it must be empty.
    printf '#include "%s"\n#include "%s"\nextern int used;\nint used = LIBIV_VERSION_MAJOR;\n' \
        $header $header >"$work/host.c"
    cp "$work/host.c" "$work/host.cpp"
    for std in c99 c11 c17; do
        # shellcheck disable=SC2086
        "$cc" -std=$std $warnings -I"$dir" -fsyntax-only "$work/host.c" || {
            echo "FAILED: $header as $std"
            status=1
        }
    done
    for std in c++11 c++14 c++17 c++20; do
        # shellcheck disable=SC2086
        "$cxx" -std=$std ${warnings% -Wstrict-prototypes*} -Wold-style-cast -Werror -I"$dir" -fsyntax-only \
            "$work/host.cpp" || {
            echo "FAILED: $header as $std"
            status=1
        }
    done
done
exit $status

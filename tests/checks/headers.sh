#!/bin/sh
# headers.sh DIR CC CXX
# Each header compiles alone, without a warning, in every language that a host may be written in: with
# the compilers of this build, and with gcc and clang as far as they are installed.
set -u
dir=$1 cc=$2 cxx=$3
warnings="-Wall -Wextra -Wpedantic -Wconversion -Wshadow -Wundef -Werror"
work=$(mktemp -d)
trap 'rm -r "$work"' EXIT
status=0

# compile COMPILER STANDARD FILE OPTION...
compile() {
    compiler=$1 std=$2 file=$3
    shift 3
    # shellcheck disable=SC2086
    "$compiler" -std="$std" $warnings "$@" -I"$dir" -fsyntax-only "$file" || {
        echo "FAILED: $header as $std with $compiler"
        status=1
    }
}

for header in libiv.h _libiv.h; do
    # Twice: the second time it must be empty.
    printf '#include "%s"\n#include "%s"\nextern int used;\nint used = LIBIV_VERSION_MAJOR;\n' \
        $header $header >"$work/host.c"
    cp "$work/host.c" "$work/host.cpp"
    for compiler in "$cc" gcc clang; do
        command -v "$compiler" >/dev/null || continue
        for std in c99 c11 c17 c2x gnu99 gnu2x; do
            compile "$compiler" $std "$work/host.c" -Wstrict-prototypes -Wc++-compat
        done
    done
    for compiler in "$cxx" g++ clang++; do
        command -v "$compiler" >/dev/null || continue
        for std in c++11 c++14 c++17 c++20 gnu++11 gnu++20; do
            compile "$compiler" $std "$work/host.cpp" -Wold-style-cast
        done
    done
done
# The C++ header, also in hosts without exceptions and run-time type information.
header=libiv.hpp
printf '#include "%s"\n#include "%s"\ntemplate class iv::Matrix<float>;\n' $header $header >"$work/host.cpp"
for compiler in "$cxx" g++ clang++; do
    command -v "$compiler" >/dev/null || continue
    for std in c++17 c++20; do
        compile "$compiler" $std "$work/host.cpp" -Wold-style-cast -Wsign-conversion -DNDEBUG
        compile "$compiler" $std "$work/host.cpp" -fno-exceptions -fno-rtti
    done
done
for compiler in "$cc" "$cxx"; do
    command -v "$compiler" >/dev/null || {
        echo "FAILED: $compiler is there"
        status=1
    }
done
exit $status

#!/bin/sh
# compiler.sh SOURCE_DIR INSTALLED CMAKE CC CXX
# The compiler is told where the library is, and finds it.
. "$(dirname "$0")/consumer.sh"
for link in "-L$lib -liv -Wl,-rpath,$lib" "$lib/libiv.a -lm"; do
    # shellcheck disable=SC2086
    "$cc" -std=c99 $CFLAGS -I"$installed/include" "$source/examples/host.c" $link -o "$work/host_c"
    # shellcheck disable=SC2086
    "$cxx" -std=c++17 $CXXFLAGS -I"$installed/include" "$source/examples/host.cpp" $link \
        -o "$work/host_cpp"
    expect_tracks "$work/host_c" "$work/host_cpp"
    case $link in
        -L*) kind=shared ;;
        *) kind=static ;;
    esac
    expect_library "$work/host_c" $kind
    expect_library "$work/host_cpp" $kind
done

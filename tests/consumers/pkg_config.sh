#!/bin/sh
# pkg_config.sh SOURCE_DIR INSTALLED CMAKE CC CXX
# pkg-config gives the flags for the shared library, and with --static those of a static program.
. "$(dirname "$0")/consumer.sh"
export PKG_CONFIG_PATH="$lib/pkgconfig"
for link in "" --static; do
    # shellcheck disable=SC2046,SC2086
    "$cc" -std=c99 $CFLAGS "$source/examples/host.c" $(pkg-config $link --cflags --libs libiv) \
        ${link#-} -o "$work/host_c"
    # shellcheck disable=SC2046,SC2086
    "$cxx" -std=c++17 $CXXFLAGS "$source/examples/host.cpp" \
        $(pkg-config $link --cflags --libs libiv) ${link#-} -o "$work/host_cpp"
    LD_LIBRARY_PATH=$lib expect_tracks "$work/host_c" "$work/host_cpp"
    kind=${link#--}
    expect_library "$work/host_c" "${kind:-shared}"
    expect_library "$work/host_cpp" "${kind:-shared}"
done
version=$(sed -n 's/^#define LIBIV_VERSION_[A-Z]* //p' "$source/src/libiv.h" | paste -sd.)
pkg-config --exact-version="$version" libiv || {
    echo "FAILED: pkg-config says $(pkg-config --modversion libiv), libiv.h $version"
    exit 1
}

#!/bin/sh
# add_subdirectory.sh SOURCE_DIR INSTALLED CMAKE CC CXX
# A project builds the library along with itself, under the names that it has when it is found.
. "$(dirname "$0")/consumer.sh"
mkdir "$work/project"
cat >"$work/project/CMakeLists.txt" <<TXT
cmake_minimum_required(VERSION 3.22)
project(host LANGUAGES C CXX)
add_subdirectory($source libiv)
add_subdirectory($source/examples examples)
TXT
build_project "$work/project" -DCMAKE_BUILD_TYPE=Debug # which takes least to compile
expect_tracks "$work/build/examples/host_c" "$work/build/examples/host_cpp"
expect_library "$work/build/examples/host_c" shared
expect_library "$work/build/examples/host_cpp" static

# What the project installs is its own.
"$cmake" --install "$work/build" --prefix "$work/installed" >/dev/null
if [ -e "$work/installed" ]; then
    find "$work/installed"
    echo "FAILED: nothing of the library is installed"
    exit 1
fi

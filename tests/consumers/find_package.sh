#!/bin/sh
# find_package.sh SOURCE_DIR INSTALLED CMAKE CC CXX
# CMake finds the installed library: the examples, and a project in C alone.
. "$(dirname "$0")/consumer.sh"
build_project "$source/examples" -DCMAKE_PREFIX_PATH="$installed"
expect_tracks "$work/build/host_c" "$work/build/host_cpp"
expect_library "$work/build/host_c" shared
expect_library "$work/build/host_cpp" static

rm -r "$work/build"
mkdir "$work/c"
cat >"$work/c/CMakeLists.txt" <<TXT
cmake_minimum_required(VERSION 3.22)
project(c_alone LANGUAGES C)
find_package(libiv 99 QUIET)
if(libiv_FOUND)
    message(FATAL_ERROR "version 99 was found")
endif()
find_package(libiv REQUIRED)
add_executable(host_c $source/examples/host.c)
target_link_libraries(host_c PRIVATE libiv::static)
TXT
build_project "$work/c" -DCMAKE_PREFIX_PATH="$installed"
expect_tracks "$work/build/host_c"
expect_library "$work/build/host_c" static

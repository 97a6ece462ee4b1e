# The libraries of Debian that the host programs, the tests and the benchmark use. The library itself uses none.
#
#   CLI11 (libcli11-dev)                options with checks and help; reads seqinfo.ini
#   nlohmann-json (nlohmann-json3-dev)  reads JSON lines
#   fmt (libfmt-dev)                    numbers as text: the fewest digits that read back the same
#   GoogleTest (googletest, libgtest-dev)  the tests; see tests/CMakeLists.txt
#
# The benchmark alone (see bench/CMakeLists.txt) uses the last two above and measures with, against:
#
#   Google Benchmark (libbenchmark-dev)  selects and reports rows, keeps the compiler from leaving
#                                        work out
#   Eigen (libeigen3-dev)                the best that templates do, sizes known at compile time
#                                        or not
#   OpenBLAS (libopenblas-dev)           the best general products
#   libxsmm (libxsmm-dev)                the best small products: code generated for each shape
#   OpenCV (libopencv-core-dev, libopencv-video-dev)  what a vision program has at hand, with a
#                                        Kalman filter
#   Matplotlib (python3-matplotlib)      draws the picture of the results
#
# All three of the program are used as headers alone, so that a cross build needs no foreign
# packages.
foreach(header CLI/CLI.hpp nlohmann/json.hpp fmt/format.h)
    if(NOT EXISTS /usr/include/${header})
        message(FATAL_ERROR "${header} is missing: install libcli11-dev nlohmann-json3-dev libfmt-dev, "
                            "or build without the program (-DLIBIV_TOOLS=OFF)")
    endif()
endforeach()

add_library(iv_host_libraries INTERFACE)
target_compile_definitions(iv_host_libraries INTERFACE FMT_HEADER_ONLY=1)
# When cross compiling the headers are reached through links in the build tree: the host's include
# directory as a whole would bring the host's C library along.
if(CMAKE_CROSSCOMPILING)
    set(host_headers ${CMAKE_BINARY_DIR}/host-headers)
    file(MAKE_DIRECTORY ${host_headers})
    foreach(library CLI nlohmann fmt)
        file(CREATE_LINK /usr/include/${library} ${host_headers}/${library} SYMBOLIC)
    endforeach()
    target_include_directories(iv_host_libraries SYSTEM INTERFACE ${host_headers})
endif()

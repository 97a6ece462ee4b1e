# The libraries of Debian that the host programs and the tests use. The library itself uses none.
#
#   CLI11 (libcli11-dev)            options with checks and help; reads seqinfo.ini
#   nlohmann-json (nlohmann-json3-dev)  reads and writes JSON lines
#   fmt (libfmt-dev)                numbers as text: the shortest digits that read back as the same value
#   GoogleTest (googletest, libgtest-dev)  the tests; see tests/CMakeLists.txt
#
# All three of the program are used as headers alone, so that a cross build needs no foreign packages.
# When cross compiling they are reached through links in the build tree: the host's include directory as a
# whole would bring the host's C library along.
add_library(iv_host_libraries INTERFACE)
target_compile_definitions(iv_host_libraries INTERFACE FMT_HEADER_ONLY=1)
if(CMAKE_CROSSCOMPILING)
    foreach(library CLI nlohmann fmt)
        file(MAKE_DIRECTORY ${CMAKE_BINARY_DIR}/host-headers)
        file(CREATE_LINK /usr/include/${library} ${CMAKE_BINARY_DIR}/host-headers/${library} SYMBOLIC)
    endforeach()
    target_include_directories(iv_host_libraries SYSTEM INTERFACE ${CMAKE_BINARY_DIR}/host-headers)
endif()

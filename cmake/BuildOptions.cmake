# The warnings that every target is compiled with. Link it PRIVATE.
add_library(iv_warnings INTERFACE)
target_compile_features(iv_warnings INTERFACE cxx_std_17 c_std_99)
target_compile_options(
    iv_warnings
    INTERFACE -Wall
              -Wextra
              -Wpedantic
              -Wshadow
              -Wconversion
              -Wsign-conversion
              -Wcast-align
              -Wdouble-promotion
              -Wundef
              $<$<COMPILE_LANGUAGE:CXX>:-Wold-style-cast>
              $<$<BOOL:${LIBIV_WERROR}>:-Werror>)

# What every target of this project is compiled with, but for the benchmark's peers. Link it
# PRIVATE.
add_library(iv_build_options INTERFACE)
target_link_libraries(iv_build_options INTERFACE iv_warnings)
# Contraction would fuse what the contract rounds twice. g++ ignores the pragma for it.
target_compile_options(iv_build_options INTERFACE -ffp-contract=off)

# Without it there is one table of kernels, for whatever the compiler's flags say, as on other machines.
option(LIBIV_DISPATCH "On x86-64, choose the kernels by the CPU at run time" ON)
if(LIBIV_DISPATCH AND CMAKE_SYSTEM_PROCESSOR MATCHES "x86_64|AMD64")
    target_compile_definitions(iv_build_options INTERFACE IV_DISPATCH)
    set(LIBIV_DISPATCHES ON)
endif()

option(LIBIV_SANITIZE "Build with the address and undefined-behaviour sanitizers" OFF)
if(LIBIV_SANITIZE)
    # Of the debugger's information a report needs the lines.
    set(sanitizers -fsanitize=address,undefined,float-cast-overflow -fno-sanitize-recover=all
                   -fno-omit-frame-pointer -gline-tables-only)
    if(CMAKE_CXX_COMPILER_ID MATCHES Clang)
        list(APPEND sanitizers
             -fsanitize-ignorelist=${CMAKE_CURRENT_LIST_DIR}/not_sanitized.txt)
    endif()
    target_compile_options(iv_build_options INTERFACE ${sanitizers})
    target_link_options(iv_build_options INTERFACE ${sanitizers})
endif()

# The tests, too: of inline functions the linker keeps one copy, which may be a test's.
option(LIBIV_COVERAGE "Count which lines and branches run (clang)" OFF)
if(LIBIV_COVERAGE)
    target_compile_options(iv_build_options INTERFACE -fprofile-instr-generate -fcoverage-mapping)
    target_link_options(iv_build_options INTERFACE -fprofile-instr-generate)
endif()

option(LIBIV_SANITIZE_THREADS "Build with the thread sanitizer" OFF)
if(LIBIV_SANITIZE_THREADS)
    target_compile_options(iv_build_options INTERFACE -fsanitize=thread -fno-omit-frame-pointer
                                                      -gline-tables-only)
    target_link_options(iv_build_options INTERFACE -fsanitize=thread)
endif()

# Records which code a fuzz target reaches: for the code that the fuzzer is to explore, not for the
# model beside it. Link it PRIVATE.
add_library(iv_explored INTERFACE)
if(LIBIV_FUZZ)
    target_compile_options(iv_explored INTERFACE -fsanitize=fuzzer-no-link)
endif()

#!/bin/sh
# cpp_examples.sh DOCUMENT HEADER LIBRARY CXX [EMULATOR...]
# Each block of C++ in the document, and each @code of the header, compiles without a warning and runs.
# A block of text behind it is what it prints. Blocks without a main are the body of one.
set -eu
document=$1 header=$2 library=$3 cxx=$4
shift 4
work=$(mktemp -d)
trap 'rm -r "$work"' EXIT

# Blocks become 1.cpp, 2.cpp, ... and what they print 1.txt, ...
awk -v work="$work" '
    /^```cpp$/ { n++; file = work "/" n ".cpp"; next }
    /^```text$/ { file = work "/" n ".txt"; next }
    /^```/ { close(file); file = ""; next }
    file { print >file }' "$document"
blocks=$(find "$work" -name '*.cpp' | wc -l)
awk -v work="$work" -v n="$blocks" '
    / @code$/ { n++; file = work "/" n ".cpp"; next }
    / @endcode$/ { close(file); file = ""; next }
    file { sub(/^ \* ?/, ""); print >file }' "$header"
blocks=$(find "$work" -name '*.cpp' | wc -l)
echo "$blocks examples"
[ "$blocks" -ge 8 ]

i=0
while [ $((i += 1)) -le "$blocks" ]; do
    if ! grep -q '^int main' "$work/$i.cpp"; then
        {
            printf '#include <cstdio>\n#include <libiv.hpp>\n#include <vector>\nint main() {\n'
            cat "$work/$i.cpp"
            echo '}'
        } >"$work/body.cpp"
        mv "$work/body.cpp" "$work/$i.cpp"
    fi
    "$cxx" -std=c++17 -Wall -Wextra -Wpedantic -Werror -I"$(dirname "$header")" \
        "$work/$i.cpp" "$library" -lm -o "$work/example"
    "$@" "$work/example" >"$work/printed"
    if [ -e "$work/$i.txt" ]; then
        diff "$work/$i.txt" "$work/printed"
    fi
done

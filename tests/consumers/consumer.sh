# What the scripts beside this one share: . consumer.sh SOURCE_DIR INSTALLED CMAKE CC CXX
# Each builds host_c and host_cpp in $work, with warnings as errors, and calls expect_tracks.
set -eu
source=$1 installed=$2 cmake=$3 cc=$4 cxx=$5
work=$(mktemp -d)
trap 'rm -r "$work"' EXIT
export CFLAGS="-Wall -Wextra -Wpedantic -Werror" CXXFLAGS="-Wall -Wextra -Wpedantic -Werror"
lib=$(dirname "$(find "$installed" -name libiv.so)")
sample=$source/samples/crossing/det/det.txt

# expect_tracks PROGRAM...: each prints the tracks that ivtrack finds, as it writes numbers.
expect_tracks() {
    "$installed/bin/ivtrack" track -q "$sample" |
        awk -F, '{ printf "%d,%d,%.3f,%.3f,%.3f,%.3f,%s,%d\n", $1, $2, $3, $4, $5, $6, $7, $8 }' \
            >"$work/expected"
    [ -s "$work/expected" ]
    for program; do
        "$program" "$sample" 1280 >"$work/printed"
        diff "$work/expected" "$work/printed" || {
            echo "FAILED: $program prints (>) what ivtrack does (<)"
            exit 1
        }
    done
}

# expect_library PROGRAM shared|static
expect_library() {
    if readelf -d "$1" | grep -q 'NEEDED.*libiv\.so\.'; then kind=shared; else kind=static; fi
    [ $kind = "$2" ] || {
        echo "FAILED: $1 has the $2 library"
        exit 1
    }
}

# build_project FOLDER OPTION...
build_project() {
    folder=$1
    shift
    "$cmake" -S "$folder" -B "$work/build" -G Ninja -DCMAKE_C_COMPILER="$cc" \
        -DCMAKE_CXX_COMPILER="$cxx" "$@" >"$work/log" 2>&1 &&
        "$cmake" --build "$work/build" -j 2 >"$work/log" 2>&1 || {
        cat "$work/log"
        echo "FAILED: a project in $folder"
        exit 1
    }
}

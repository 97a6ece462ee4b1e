#!/bin/sh
# use.sh [--hosts]
# Runs on a fresh Debian, as root, in a copy of this tree with the packages in build/packages: installs
# them, uses them by the commands that the documents give, and removes them. --hosts also builds hosts in
# all the ways that the tests do, and installs Debian's own libiv beside.
set -eu
cd "$(dirname "$0")/.."
. packaging/documents.sh

say "A compiler, CMake, pkg-config, man"
quietly apt-get update
quietly apt-get install g++ cmake make ninja-build pkg-config man-db

say "Installing"
run README.md Installing 2
dpkg-query -W -f '   ${Package} ${Version} ${Architecture}\n' libiv-tracker0 libiv-tracker-dev python3-libiv ivtrack

use_compiler
use_examples /usr

say "ivtrack"
command_of detector <<'END'
echo '{"frame":1,"detections":[{"class":2,"box":[10,10,50,90],"score":0.9}]}'
END
(cd samples/crossing && run ../../README.md "Tracking a file or a stream" 1)
tests/checks/sample_picture.sh "$PWD" ivtrack
man -w ivtrack

say "The Python module"
block python/README.md "libiv for Python" python >"$work/program.py"
block python/README.md "libiv for Python" text >"$work/expected"
python3 "$work/program.py" >"$work/printed"
diff "$work/expected" "$work/printed"
cat "$work/printed"

if [ "${1:-}" = --hosts ]; then
    for way in find_package pkg_config compiler; do
        say "The hosts of tests/consumers/$way.sh"
        "tests/consumers/$way.sh" "$PWD" /usr cmake gcc g++
    done
    say "Debian's own libiv2 and its headers beside"
    quietly apt-get install libiv2 ivtools-dev
    quietly apt-get purge libiv2 ivtools-dev
fi

say "Removing"
dpkg -L libiv-tracker0 libiv-tracker-dev python3-libiv ivtrack | sort -u >"$work/files"
run README.md Installing 3
while read -r file; do
    if [ -e "$file" ] && [ ! -d "$file" ]; then
        echo "FAILED: $file is gone"
        exit 1
    fi
done <"$work/files"
[ ! -e /usr/lib/python3/dist-packages/libiv ] || {
    echo "FAILED: nothing of the Python module stays"
    exit 1
}

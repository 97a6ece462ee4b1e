#!/bin/sh
# use.sh [--hosts]
# Runs on a fresh Debian, as root, in a copy of this tree with the packages in build/packages: installs
# them, uses them by the commands that the documents give, and removes them. --hosts also builds hosts in
# all the ways that the tests do, and installs Debian's own libiv beside.
set -eu
cd "$(dirname "$0")/.."
export DEBIAN_FRONTEND=noninteractive
echo 'APT::Get::Assume-Yes "true"; APT::Install-Recommends "false";' >/etc/apt/apt.conf.d/99unattended
work=$(mktemp -d)
trap 'rm -r "$work"' EXIT

say() { printf -- '-- %s\n' "$*"; }

# command_of NAME: what is read becomes a command that the documents' blocks can call.
command_of() {
    { echo '#!/bin/sh'; cat; } >"/usr/local/bin/$1"
    chmod +x "/usr/local/bin/$1"
}
echo '"$@"' | command_of sudo # root needs none, and a fresh Debian has none

# block DOCUMENT HEADING LANGUAGE [N]: the Nth block of code below the heading in this language.
block() {
    awk -v heading="$2" -v fence="\`\`\`$3" -v n="${4:-1}" '
        /^```/ && open { open = wanted = 0; next }
        /^```/ { open = 1; wanted = below && $0 == fence && ++found == n; next }
        !open && /^#+ / { below = $0 ~ "^#+ " heading "$" }
        wanted { print; printed = 1 }
        END { exit !printed }' "$1" || {
        echo "FAILED: $1 has block ${4:-1} of $3 below \"$2\"" >&2
        exit 1
    }
}

quietly() { "$@" >"$work/log" 2>&1 || { cat "$work/log"; exit 1; }; }

# run DOCUMENT HEADING N: says and runs the Nth block of commands below the heading, as it stands there.
run() {
    block "$1" "$2" sh "$3" >"$work/commands"
    sed 's/^/   /' "$work/commands"
    quietly sh -e "$work/commands"
}

say "A compiler, CMake, pkg-config, man"
quietly apt-get update
quietly apt-get install g++ cmake make ninja-build pkg-config man-db

say "Installing"
run README.md Installing 2
dpkg-query -W -f '   ${Package} ${Version} ${Architecture}\n' libiv-tracker0 libiv-tracker-dev python3-libiv ivtrack

say "The program of the README, by each of its compiler lines"
block README.md libiv c >track.c
block README.md libiv text >"$work/expected"
block README.md Linking sh >"$work/lines"
while read -r line; do
    echo "   $line"
    rm -f track
    sh -ec "$line"
    ./track >"$work/printed"
    diff "$work/expected" "$work/printed"
done <"$work/lines"

say "The examples, found by CMake"
run README.md Linking 2
(
    set -- "$PWD" /usr cmake gcc g++
    . tests/consumers/consumer.sh
    expect_tracks build/examples/host_c build/examples/host_cpp
)

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

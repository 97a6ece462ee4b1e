# What the scripts beside this one share: they follow the documents on a fresh Debian, as root, in a copy
# of this tree. Source it there.
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

# Builds the program of the README by each of its compiler lines.
use_compiler() {
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
}

# use_examples PREFIX: builds the examples with the library that CMake finds.
use_examples() (
    say "The examples, found by CMake"
    run README.md Linking 2
    set -- "$PWD" "$1" cmake gcc g++
    . tests/consumers/consumer.sh
    expect_tracks build/examples/host_c build/examples/host_cpp
)

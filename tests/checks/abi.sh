#!/bin/sh
# abi.sh [--renew] RECORD CONSTANTS HEADER_DIR CC LIBRARY
# What a host was compiled against still holds: records, functions and constants are those of the last
# release, which RECORD and CONSTANTS keep, as far as the version in the header does not say otherwise.
# Functions and constants may come with a new minor version; all else that changes takes a new major
# version, and so a new SONAME. With --renew, what the library has today becomes the record, under
# the same condition. LIBRARY has debug information.
set -eu
renew=
[ "$1" != --renew ] || { renew=yes; shift; }
record=$1 constants=$2 headers=$(cd "$3" && pwd) cc=$4 library=$5
work=$(mktemp -d)
trap 'rm -r "$work"' EXIT

version=$(sed -n 's/^#define LIBIV_VERSION_[A-Z]* \([0-9]*\)$/\1/p' "$headers/libiv.h" | paste -s -d .)
# Only what hosts can reach: no types of the library's own, no places of this build.
abidw --exported-interfaces-only --drop-private-types --header-file "$headers/libiv.h" \
    --header-file "$headers/_libiv.h" --no-show-locs --no-corpus-path --no-comp-dir-path \
    --no-elf-needed --type-id-style hash "$library" >"$work/dump"
sed "1a\\  <!-- libiv $version -->
s|path='$headers/|path='|" "$work/dump" >"$work/record"
"$cc" -E -dM -x c "$headers/_libiv.h" | grep '^#define IV_[A-Z0-9_]* ' | LC_ALL=C sort >"$work/constants"
described() {
    grep -q "$1" "$work/record" || {
        echo "FAILED: the debug information of $library describes $1"
        exit 1
    }
}
described "<class-decl name='_iv_mat_t' size-in-bits"
described "<class-decl name='_iv_kalman_t' size-in-bits"
while read -r function; do
    described "<function-decl name='$function'"
done <"$headers/libiv.exports"

# What hosts relied on, and what is new. abidiff returns 4 or more for changes, 1 to 3 for errors.
differ() {
    status=0
    abidiff --no-show-locs --ignore-soname --harmless "$@" "$record" "$work/record" || status=$?
    [ $((status & 3)) = 0 ] || exit 1
    [ "$status" != 0 ]
}
broken=
added=
if [ -e "$record" ] && [ -e "$constants" ]; then
    differ --no-added-syms >"$work/broken" && broken=yes
    differ >"$work/all" && added=yes
    LC_ALL=C comm -23 "$constants" "$work/constants" >"$work/constants_gone"
    LC_ALL=C comm -13 "$constants" "$work/constants" >"$work/constants_new"
    [ ! -s "$work/constants_gone" ] || broken=yes
    [ ! -s "$work/constants_new" ] || added=yes
    recorded=$(sed -n 's/^ *<!-- libiv \(.*\) -->$/\1/p' "$record")
    echo "compared libiv $version with the record of libiv $recorded"
    major=${recorded%%.*}
    minor=${recorded#*.}
    minor=${minor%.*}
    this_minor=${version#*.}
    this_minor=${this_minor%.*}
    failed=
    if [ -n "$broken" ] && [ "${version%%.*}" -le "$major" ]; then
        failed="hosts of libiv $recorded work with this library, or LIBIV_VERSION_MAJOR is above $major"
    elif [ -n "$added" ] && [ "${version%%.*}" = "$major" ] && [ "$this_minor" -le "$minor" ]; then
        failed="nothing is new since libiv $recorded, or LIBIV_VERSION_MINOR is above $minor"
    fi
    if [ -n "$failed" ]; then
        cat "$work/all"
        sed 's/^/gone: /' "$work/constants_gone"
        sed 's/^/new:  /' "$work/constants_new"
        echo "FAILED: $failed"
        exit 1
    fi
elif [ -z "$renew" ]; then
    echo "FAILED: $record and $constants are there"
    exit 1
fi
[ -z "$renew" ] || {
    cp "$work/record" "$record"
    cp "$work/constants" "$constants"
    echo "wrote $record and $constants"
}

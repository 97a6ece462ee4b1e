#!/bin/sh
# debian_symbols.sh EXPORTS SYMBOLS
# The Debian package says of exactly the exported functions since when they are there.
set -eu
work=$(mktemp -d)
trap 'rm -r "$work"' EXIT
LC_ALL=C sort "$1" >"$work/exported"
sed -n 's/^ \([A-Za-z0-9_]*\)@Base [0-9.]*$/\1/p' "$2" | LC_ALL=C sort >"$work/known"
[ -s "$work/exported" ]
diff "$work/exported" "$work/known" || {
    echo "FAILED: $2 (>) lists the functions of $1 (<)"
    exit 1
}

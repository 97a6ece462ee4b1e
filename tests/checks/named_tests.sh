#!/bin/sh
# named_tests.sh DOCUMENT TESTS... -- [EMULATOR...]
# Every row of the document's tables names a test that holds it, and every test it names is one of those
# in the given programs.
set -u
document=$1
shift
work=$(mktemp -d)
trap 'rm -r "$work"' EXIT
programs=0
for word; do
    [ "$word" != -- ] || break
    programs=$((programs + 1))
done
# Behind the programs and the mark is what runs them: it comes first in a command.
i=0
while [ $i -lt $programs ]; do
    printf '%s\n' "$1" >>"$work/programs"
    shift
    i=$((i + 1))
done
shift
while read -r program; do
    "$@" "$program" --gtest_list_tests </dev/null >"$work/list" || {
        echo "FAILED: $program lists its tests"
        exit 1
    }
    # A suite of types or values is named without its variants: Suite/Type, Values/Suite.
    awk '/^[^ ]+\.( |$)/ { suite = $1; sub(/\.$/, "", suite); parts = split(suite, part, "/"); next }
         /^  / { test = $1; sub(/\/.*/, "", test); for (i = 1; i <= parts; ++i) print part[i] "." test }' \
        "$work/list" >>"$work/tests"
done <"$work/programs"

name='`[A-Z][A-Za-z0-9_]*\.[A-Z][A-Za-z0-9_]*`'
status=0
grep -o "$name" "$document" | tr -d '`' | sort -u >"$work/named"
sort -u "$work/tests" | comm -23 "$work/named" - >"$work/missing"
if [ -s "$work/missing" ]; then
    echo "FAILED: these tests of $document exist:"
    cat "$work/missing"
    status=1
fi
# The heads of tables are the rows in front of the lines of dashes.
awk '/^\|/ { if (held != "" && $0 !~ /^\|[-|: ]*\|$/) print held; held = $0 ~ /^\|[-|: ]*\|$/ ? "" : $0; next }
     { if (held != "") print held; held = "" }
     END { if (held != "") print held }' "$document" >"$work/rows"
if grep -v "$name" "$work/rows"; then
    echo "FAILED: these rows of $document name a test"
    status=1
fi
echo "$document: $(wc -l <"$work/rows") rows, $(wc -l <"$work/named") tests"
[ -s "$work/rows" ] || {
    echo "FAILED: $document has a table"
    status=1
}
exit $status

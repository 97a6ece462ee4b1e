#!/bin/sh
# exports.sh NM READELF LIBRARY LIST HEADER
# The built library exports exactly the listed functions, the public header declares exactly those, the
# library needs nothing but the C run time, and its SONAME is the one hosts link against.
set -u
nm=$1 readelf=$2 library=$3 list=$4 header=$5
work=$(mktemp -d)
trap 'rm -r "$work"' EXIT
status=0

same() {
    if ! diff "$2" "$3"; then
        echo "FAILED: $1"
        status=1
    fi
}

LC_ALL=C sort "$list" >"$work/listed"
"$nm" -D --defined-only "$library" | sed 's/^[0-9a-f]* //' | LC_ALL=C sort >"$work/symbols"
sed 's/^/T /' "$work/listed" >"$work/expected"
same "the library exports the listed functions and nothing else" "$work/expected" "$work/symbols"

grep -o '^LIBIV_API [^(]*(' "$header" | sed 's/($//; s/.*[ *]//' | LC_ALL=C sort >"$work/declared"
same "the header declares the listed functions and nothing else" "$work/listed" "$work/declared"

"$readelf" -d "$library" | sed -n 's/.*(NEEDED).*\[\(.*\)\]/\1/p' >"$work/needed"
if grep -vE '^(libc\.so\.6|libm\.so\.6)$' "$work/needed"; then
    echo "FAILED: the library needs nothing but the C run time"
    status=1
fi
grep -q '^libc\.so\.6$' "$work/needed" || {
    echo "FAILED: the needed libraries could be read"
    status=1
}

soname=$("$readelf" -d "$library" | sed -n 's/.*(SONAME).*\[\(.*\)\]/\1/p')
[ "$soname" = libiv.so.0 ] || {
    echo "FAILED: SONAME is \"$soname\", expected \"libiv.so.0\""
    status=1
}
if "$readelf" -SW "$library" | grep -qE '\.(init_array|ctors) '; then
    # The C run time puts one entry of its own there.
    size=$("$readelf" -SW "$library" | sed -n 's/.*\.init_array *INIT_ARRAY *[0-9a-f]* [0-9a-f]* \([0-9a-f]*\).*/\1/p')
    [ "$size" = 000008 ] || {
        echo "FAILED: the library has no constructor of its own (.init_array holds 0x$size bytes)"
        status=1
    }
fi
exit $status

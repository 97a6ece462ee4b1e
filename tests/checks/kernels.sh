#!/bin/sh
# kernels.sh NM OBJECT
# The kernels of one instruction set share no function or value with anything else: what the linker
# may merge (weak and unique symbols) would bring instructions of one set into the code of another.
set -u
nm=$1 object=$2
symbols=$("$nm" "$object") || exit 1
if ! printf '%s\n' "$symbols" | grep -q ' [DR] .*KERNELS_'; then
    echo "FAILED: $object defines a table of kernels"
    exit 1
fi
if printf '%s\n' "$symbols" | grep ' [WwVvuCi] '; then
    echo "FAILED: $object has no symbol that the linker may merge"
    exit 1
fi
if printf '%s\n' "$symbols" | grep ' [A-UX-Z] ' | grep -v ' [DR] .*KERNELS_' |
    grep -vE ' U (fma|fmaf|mem(cpy|move|set))$'; then
    echo "FAILED: $object defines nothing but its table, and needs nothing but the C run time"
    exit 1
fi

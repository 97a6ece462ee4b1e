#!/bin/sh
# text_size.sh READELF LIBRARY LIMIT
# The code of the library takes fewer than LIMIT bytes.
set -u
readelf=$1 library=$2 limit=$3
size=$("$readelf" -SW "$library" | sed -n 's/.* \.text *PROGBITS *[0-9a-f]* [0-9a-f]* \([0-9a-f]*\).*/\1/p')
[ -n "$size" ] || {
    echo "FAILED: the size of .text of $library could be read"
    exit 1
}
bytes=$((0x$size))
echo ".text of $library takes $bytes bytes, $((limit - bytes)) are left"
[ "$bytes" -lt "$limit" ]

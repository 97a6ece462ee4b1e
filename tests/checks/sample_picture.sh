#!/bin/sh
# sample_picture.sh SOURCE_DIR IVTRACK...
# The picture of the README shows what the program does with the sample today.
set -eu
source=$1
shift
work=$(mktemp -d)
trap 'rm -r "$work"' EXIT
"$@" track --quiet "$source/samples/crossing/det/det.txt" -o "$work/tracks.txt"
"$@" draw "$work/tracks.txt" -o "$work/sample.svg"
cmp "$source/docs/sample.svg" "$work/sample.svg"

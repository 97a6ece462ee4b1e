#!/bin/sh
# same.sh FOLDER PATTERN -- COMMAND...
# The command, which writes files into the current folder, leaves copies of the folder's as they are.
set -eu
folder=$1 pattern=$2
shift 3
work=$(mktemp -d)
trap 'rm -r "$work"' EXIT
cd "$work"
# shellcheck disable=SC2086
cp "$folder"/$pattern .
"$@"
for file in *; do
    cmp "$folder/$file" "$file" || {
        echo "FAILED: $folder/$file is what this writes: $*"
        exit 1
    }
done

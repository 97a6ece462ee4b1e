#!/bin/sh
# run.sh SECONDS TARGET: fuzzes one target, from what the corpus and earlier runs have, and says in one
# line what came of it. Inputs that reach something new go to build/fuzz/finds, those that fail to
# build/fuzz/artifacts.
# run.sh --keep TARGET: makes the corpus anew, of as few inputs as reach what all of them reach.
set -eu
cd "$(dirname "$0")/.."
target=$2
program=build/sanitize/fuzz/fuzz_$target
corpus=fuzz/corpus/$target
finds=build/fuzz/finds/$target
artifacts=build/fuzz/artifacts
log=build/fuzz/$target.log
mkdir -p "$corpus" "$finds" "$artifacts"

if [ "$1" = --keep ]; then
    kept=$(mktemp -d)
    # Reached edges alone, not how often: thousands of inputs differ only in that.
    "$program" -merge=1 -use_counters=0 "$kept" "$corpus" "$finds" >"$log" 2>&1 || {
        echo "$target: merging failed, see $log" >&2
        exit 1
    }
    rm -r "$corpus"
    mv "$kept" "$corpus"
    chmod 755 "$corpus"
    printf '%-8s %4d inputs in fuzz/corpus\n' "$target" "$(find "$corpus" -type f | wc -l)"
    exit
fi

case $target in
    # Any bytes are calls of the library: as many as an input takes from the start.
    matrix | filter | tracker) options="-max_len=256 -len_control=0 -entropic=0" ;;
    *) options="-max_len=2048 -dict=fuzz/text.dict" ;;
esac
before=$(find "$finds" -type f | wc -l)
# shellcheck disable=SC2086
"$program" -max_total_time="$1" -timeout=20 $options -artifact_prefix="$artifacts/$target-" \
    "$finds" "$corpus" >"$log" 2>&1 || {
    printf '%-8s FAILED: %s (see %s)\n' "$target" \
        "$(sed -n 's/.*Test unit written to //p' "$log" | head -n 1)" "$log"
    exit 1
}
after=$(find "$finds" -type f | wc -l)
# "#N DONE cov: EDGES ft: FEATURES corp: INPUTS/SIZE ... exec/s: RATE ..."
sed -n 's|^#\([0-9]*\)[[:space:]]*DONE *cov: \([0-9]*\).*exec/s: \([0-9]*\).*|\1 \3 \2|p' "$log" |
    while read -r runs rate edges; do
        printf '%-8s %9d executions, %5d a second; %5d edges reached; %d new inputs\n' \
            "$target" "$runs" "$rate" "$edges" $((after - before))
    done

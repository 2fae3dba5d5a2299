#!/usr/bin/env bash
# Runs fuzzers, two at once. Fails when one finds something, and prints where the input is kept that
# shows it.
#
# usage: run.sh BUILD SECONDS [NAME...]
#
# BUILD is a build directory; SECONDS is for each. Without NAME: all of them. What they have learned
# is in BUILD/corpus, what they have found in BUILD/found.
set -euo pipefail

jobs=2

[ $# -ge 2 ] || { sed -n '/^# usage/s/^# //p' "$0" >&2; exit 2; }
seeds=$(realpath "$(dirname "$0")")/seeds
build=$(realpath "$1")
seconds=$2
shift 2

# run NAME
run() {
    local name=$1 log=$build/found/$1.log corpus=$build/corpus/$1 found
    mkdir -p "$corpus"
    if "$build/bin/fuzz_$name" -max_total_time="$seconds" -max_len=4096 -timeout=30 \
        -artifact_prefix="$build/found/$name-" "$corpus" "$seeds/$name" >"$log" 2>&1; then
        printf '%-14s %s\n' "$name" "$(grep '^Done' "$log")"
        return
    fi
    found=$(sed -n 's/.*Test unit written to //p' "$log")
    {
        tail -n 40 "$log"
        echo "$name: a find; the log is $log"
        [ -z "$found" ] || echo "to run it again: $build/bin/fuzz_$name $found"
    } >&2
    return 1
}

names=("$@")
[ $# -gt 0 ] || mapfile -t names < <(ls "$seeds")
for name in "${names[@]}"; do
    [ -x "$build/bin/fuzz_$name" ] || { echo "there is no fuzzer '$name'" >&2; exit 2; }
done
mkdir -p "$build/found"
export -f run
export seeds build seconds
printf '%s\n' "${names[@]}" | xargs -P "$jobs" -I{} bash -c 'run "$1"' run {}

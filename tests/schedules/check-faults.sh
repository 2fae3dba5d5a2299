#!/usr/bin/env bash
# Runs the scenarios with each build of the library, or of the runtime's threads, that has a fault
# seeded (see faults/), and says which scenario finds it, and after how many schedules. Fails when one is not found.
#
# usage: check-faults.sh BUILD [--markdown] [FAULT...]
#
# BUILD is a build directory. --markdown prints the table as docs/testing.md has it. Without FAULT:
# all of them.
set -euo pipefail

limit=120 # seconds; what takes longer does not count as found
jobs=2

[ $# -gt 0 ] || { sed -n '/^# usage/s/^# //p' "$0" >&2; exit 2; }
here=$(realpath "$(dirname "$0")")
build=$(realpath "$1")
shift
schedules=$build/bin/schedules_test
threads=$build/bin/kept_threads_steps_test
libraries=$build/tests/schedules/faults

# scenarios DIRECTORY: runs the scenarios, up to the first that fails, with the library in DIRECTORY;
# if that is empty, with the one that the program has been linked with.
scenarios() {
    LD_LIBRARY_PATH=$1 timeout "$limit" "$program" --gtest_fail_fast 2>&1
}

# A fault of the runtime is in a program of its own.
programOf() {
    local own=$libraries/$1/$(basename "$threads")
    if [ -x "$own" ]; then echo "$own"; else echo "$schedules"; fi
}

# check FAULT: writes what comes of it to a file, as a line of fields separated by tabs.
check() {
    local fault=$1 directory=$libraries/$1 status=0 mode program
    program=$(programOf "$fault")
    # The program has a path of its own to the library, which must not come first.
    [ "$program" != "$schedules" ] || LD_LIBRARY_PATH=$directory LD_TRACE_LOADED_OBJECTS=1 "$program" |
        grep -F "=> $directory/liblibrary_in_steps.so" >/dev/null || {
        echo "$fault: the program does not load the library that has it" >&2
        exit 255 # stops xargs
    }
    for mode in quick full; do
        status=0
        # Not shown: the shell's own line about a program that crashed.
        MIREL_SCHEDULES=$mode scenarios "$directory" >"$directory/log" 2>/dev/null || status=$?
        [ $status -ne 127 ] || {
            echo "$fault: the program does not start" >&2
            exit 255
        }
        [ $status -eq 0 ] || break
    done
    awk -v fault="$fault" -v status=$status -v OFS='\t' '
        /^\[ RUN / && !failed { scenario = $NF }
        /: Failure$/ { failed = 1 }
        match($0, /[0-9]+ runs?(,.*)?, the last one failed: /) {
            schedules = substr($0, RSTART) + 0
            seen = substr($0, RSTART + RLENGTH)
            exit
        }
        match($0, /the simulated run crashed \(signal [0-9]+\)/) {
            seen = substr($0, RSTART, RLENGTH)
            exit
        }
        END {
            found = status != 0 && status != 124
            print fault, found ? scenario : "not found", schedules ? schedules : "-", seen ? seen : "-"
        }
    ' "$directory/log" >"$directory/result"
}

markdown=
case ${1:-} in
--check) # this script calls itself
    check "$2"
    exit
    ;;
--markdown)
    markdown=1
    shift
    ;;
esac

cmake --build "$build" --target schedules_test kept_threads_steps_test faulty_libraries -- \
    -j$jobs --quiet

log=$libraries/log
for program in "$schedules" "$threads"; do
    scenarios "" >"$log" || {
        cat "$log" >&2
        echo "$(basename "$0"): the scenarios fail without a seeded fault" >&2
        exit 2
    }
done

if [ $# -eq 0 ]; then
    set -- "$here"/faults/*.patch
    set -- "${@##*/}"
    set -- "${@%.patch}"
fi
printf '%s\n' "$@" | xargs -P $jobs -I FAULT "$0" "$build" --check FAULT

results() { for fault; do cat "$libraries/$fault/result"; done; }

if [ "$markdown" ]; then
    echo "| fault | what it does | found by | schedules |"
    echo "|---|---|---|---|"
    results "$@" | while IFS=$'\t' read -r fault scenario schedules _; do
        text=$(sed '/^$/,$d' "$here/faults/$fault.patch" | tr '\n' ' ')
        echo "| [$fault](../tests/schedules/faults/$fault.patch) | $text| $scenario | $schedules |"
    done
else
    { printf 'fault\tfound by\tschedules\twhat it saw\n' && results "$@"; } | column -t -s $'\t'
fi

missed=$(results "$@" | grep -c $'\tnot found\t' || true)
echo "$(($# - missed)) of $# seeded faults found" >&2
[ "$missed" -eq 0 ]

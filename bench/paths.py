#!/usr/bin/env python3
"""Counts instructions and allocations per request on each path through the library. They depend on
the compiler, on the C library and, in a few string functions of the latter, on the processor.

The program `paths` is run with two numbers of requests, and the difference is divided by that of
the numbers: what a run costs once is not in the figures. Instructions are counted by callgrind,
thread by thread; allocations by the program itself, which replaces operator new.
"""

import argparse
import json
import subprocess
import sys
import tempfile
from collections import Counter
from pathlib import Path

EXPECTED = Path(__file__).with_name("paths-expected.json")
COUNTS = 1000, 5000
TIMEOUT = 600  # seconds: longer than any run takes

MOST_ADDED_INLINE = 1200  # instructions: what inline costs more than direct stays below
TOLERANCE = 0.10  # of the instructions
FRACTION = 0.01  # of an allocation: some containers allocate once in several requests

# The sides, each by the function that its threads, and no others, execute.
READER, WORKERS = "LoadChannel::readMessage(", "ServiceThread_MT::run("

# Name -> what the program calls it, whose cost it is, what it means.
PATHS = {
    "direct": ("direct", READER, "the framework's own objects, and a call of the invoker"),
    "inline": ("inline", READER, "a single-threaded executor"),
    "dispatch": ("workers", READER, "the executor's side: to an idle worker"),
    "completion": ("workers", WORKERS, "the worker's side: runs it, and back to the pool"),
    "holding_back": ("held_back", READER, "the executor's side where the channel is busy"),
    "handing_over": ("held_back", WORKERS, "the worker's side: runs it, and takes the next"),
}


class Failure(Exception):
    """A program did not do what it should; the text is for the user."""


def output_of(command):
    name = Path(command[0]).name
    try:
        done = subprocess.run(command, capture_output=True, text=True, timeout=TIMEOUT)
    except OSError as failure:
        raise Failure(f"{name}: {failure.strerror}") from None
    except subprocess.TimeoutExpired:
        raise Failure(f"{name} was not done after {TIMEOUT} s") from None
    if done.returncode != 0:
        last_line = (done.stderr.strip().splitlines() or ["and said nothing"])[-1]
        raise Failure(f"{name} ended with {done.returncode}: {last_line[:200]}")
    return done.stdout


def self_costs(file):
    """Function -> the instructions that it executed itself, from one of callgrind's files."""
    costs = Counter()
    function, of_callee = None, False
    for line in file.read_text().splitlines():
        if line.startswith("fn="):
            function = line[3:]
        elif line.startswith("calls="):
            of_callee = True  # the next line is the cost of the call
        elif line[:1].isdigit():
            if not of_callee:
                costs[function] += int(line.split()[1])
            of_callee = False
    return costs


def count(program, run, requests):
    """Side -> instructions of all its threads by function, and allocations."""
    with tempfile.TemporaryDirectory() as folder:
        printed = output_of([
            "valgrind", "--tool=callgrind", "--fair-sched=yes",
            "--separate-threads=yes", "--dump-line=no",
            "--compress-strings=no", "--compress-pos=no",
            # Everything is counted except what happens inside of Turn's functions.
            "--toggle-collect=bench::*Turn::*", "--collect-atstart=yes",
            f"--callgrind-out-file={folder}/costs", program, run, str(requests),
        ])  # fmt: skip
        sides = {READER: Counter(), WORKERS: Counter()}
        for costs in map(self_costs, Path(folder).glob("costs-*")):
            for side, counted in sides.items():
                if any(side in function for function in costs):
                    counted.update(costs)
    return {side: (sides[side], int(n)) for side, n in zip(sides, printed.split())}


def measure(program):
    """Path -> figure -> value per request, and path -> function -> instructions per request."""
    runs = {run: [count(program, run, n) for n in COUNTS] for run, _, _ in PATHS.values()}
    requests = COUNTS[1] - COUNTS[0]
    figures, functions = {}, {}
    for name, (run, side, _) in PATHS.items():
        (few, few_allocations), (many, many_allocations) = (counted[side] for counted in runs[run])
        if not few:
            raise Failure(f"{name}: no thread was seen to execute {side}...)")
        functions[name] = {f: (many[f] - few[f]) / requests for f in {**few, **many}}
        figures[name] = {
            "instructions": round(sum(functions[name].values()), 1),
            "allocations": round((many_allocations - few_allocations) / requests, 3),
        }
    return figures, functions


def added_inline(figures):
    return figures["inline"]["instructions"] - figures["direct"]["instructions"]


def failures(figures, expected):
    """A line for each figure that is more than it should be."""
    lines = []
    for name in PATHS:
        for figure in ("instructions", "allocations"):
            now, then = figures[name][figure], expected[name][figure]
            allowed = FRACTION if figure == "allocations" else then * TOLERANCE
            if now > then + allowed:
                lines.append(f"{name}: {now:g} {figure} per request, expected are {then:g}")
    if added_inline(figures) >= MOST_ADDED_INLINE:
        lines.append(f"inline: {added_inline(figures):g} instructions per request more than direct;"
                     f" less than {MOST_ADDED_INLINE} are allowed")  # fmt: skip
    return lines


def table(figures):
    lines = ["| path | | instructions per request | allocations per request |", "|---|---|--:|--:|"]
    for name, (_, _, meaning) in PATHS.items():
        instructions, allocations = figures[name].values()
        lines.append(f"| {name} | {meaning} | {instructions:,.0f} | {allocations:g} |")
    added = figures["inline"]["allocations"] - figures["direct"]["allocations"]
    lines.append(f"| inline - direct | what the library adds: less than {MOST_ADDED_INLINE:,} is "
                 f"wanted | {added_inline(figures):,.0f} | {added:g} |")  # fmt: skip
    return "\n".join(lines)


def main():
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("build_dir", type=Path)
    parser.add_argument("--check", action="store_true", help="fail where more is used")
    parser.add_argument("--renew", action="store_true", help="expect these figures from now on")
    parser.add_argument("--profile", choices=PATHS, help="tell where a path's instructions go")
    options = parser.parse_args()
    figures, functions = measure((options.build_dir / "bin" / "paths").resolve())
    print(table(figures))
    if options.profile:
        print(f"\n{options.profile}, instructions per request:")
        for function, cost in Counter(functions[options.profile]).most_common(20):
            print(f"{cost:8.1f}  {function}")
    if options.renew:
        lines = [f"  {json.dumps(name)}: {json.dumps(found)}" for name, found in figures.items()]
        EXPECTED.write_text("{\n" + ",\n".join(lines) + "\n}\n")
    failed = failures(figures, json.loads(EXPECTED.read_text())) if options.check else []
    for line in failed:
        print(f"paths.py: FAILED: {line}", file=sys.stderr)
    return 1 if failed else 0


if __name__ == "__main__":
    try:
        sys.exit(main())
    except Failure as failure:
        sys.exit(f"paths.py: {failure}")

#!/usr/bin/env python3
"""Counts instructions and allocations per request on each path through the library.

These figures do not depend on the machine's mood. They do depend on the compiler, on the C library
and, in a few string functions of the latter, on the processor.

The program `paths` is run with two numbers of requests, and the difference is divided by that of
the numbers: what a run costs once is not in the figures. Instructions are counted by callgrind,
thread by thread; allocations by the program itself, which replaces operator new.
"""

import argparse
import json
import shutil
import subprocess
import sys
import tempfile
from collections import Counter
from dataclasses import dataclass
from pathlib import Path

EXPECTED = Path(__file__).with_name("paths-expected.json")
COUNTS = 1000, 5000
TIMEOUT = 300  # seconds, for one run of the program

MOST_ADDED_INLINE = 1200  # instructions: what inline costs more than direct stays below
TOLERANCE = 0.10  # of the instructions
FRACTION = 0.01  # of an allocation: some containers allocate once in several requests

# The sides, each by the function that its threads, and no others, execute.
READER, WORKERS = "WatchedChannel::readMessage(", "ServiceThread_MT::run("


class Failure(Exception):
    """The text is for the user."""


@dataclass(frozen=True)
class Route:
    program: str  # what the program calls it
    side: str  # whose cost it is
    meaning: str


PATHS = {
    "direct": Route("direct", READER, "the framework's own objects, and a call of the invoker"),
    "inline": Route("inline", READER, "a single-threaded executor"),
    "dispatch": Route("workers", READER, "the executor's side: to an idle worker"),
    "completion": Route("workers", WORKERS, "the worker's side: runs it, and back to the pool"),
    "holding_back": Route("held_back", READER, "the executor's side where the channel is busy"),
    "handing_over": Route("held_back", WORKERS, "the worker's side: runs it, and takes the next"),
}


# ---- Counting --------------------------------------------------------------------------------


def output_of(command):
    try:
        done = subprocess.run(command, capture_output=True, text=True, timeout=TIMEOUT)
    except subprocess.TimeoutExpired:
        raise Failure(f"no end after {TIMEOUT} s: {' '.join(map(str, command))}") from None
    if done.returncode != 0:
        raise Failure(f"failed: {' '.join(map(str, command))}\n{done.stderr}")
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


def run_under_callgrind(program, path, count):
    """Side -> function -> instructions of all its threads."""
    if not program.exists():
        raise Failure(f"there is no {program}: build the target `paths` first")
    if not shutil.which("valgrind"):
        raise Failure("there is no valgrind: install the package `valgrind`")
    with tempfile.TemporaryDirectory() as folder:
        output_of([
            "valgrind", "--tool=callgrind", "--fair-sched=yes",
            "--separate-threads=yes", "--dump-line=no",
            "--compress-strings=no", "--compress-pos=no",
            # Everything is counted except what happens inside of Turn's functions.
            "--toggle-collect=bench::*Turn::*", "--collect-atstart=yes",
            f"--callgrind-out-file={folder}/costs", program, path, str(count),
        ])  # fmt: skip
        sides = {READER: Counter(), WORKERS: Counter()}
        for file in Path(folder).glob("costs-*"):
            costs = self_costs(file)
            for side, counted in sides.items():
                if any(side in function for function in costs):
                    counted.update(costs)
        return sides


def run_counting_allocations(program, path, count):
    """Side -> allocations of all its threads."""
    return dict(zip((READER, WORKERS), map(int, output_of([program, path, str(count)]).split())))


def per_request(few, many):
    return (many - few) / (COUNTS[1] - COUNTS[0])


def functions_of(program, name):
    """Function -> the instructions per request that it executes itself on a path."""
    path = PATHS[name]
    few, many = (run_under_callgrind(program, path.program, count)[path.side] for count in COUNTS)
    return {function: per_request(few[function], many[function]) for function in many}


def measure(program):
    """Path -> figure -> value per request."""
    figures = {name: {} for name in PATHS}
    for run in dict.fromkeys(path.program for path in PATHS.values()):
        instructions = [run_under_callgrind(program, run, count) for count in COUNTS]
        allocations = [run_counting_allocations(program, run, count) for count in COUNTS]
        for name, path in PATHS.items():
            if path.program != run:
                continue
            few, many = (sum(sides[path.side].values()) for sides in instructions)
            if few == 0:
                raise Failure(f"{name}: no thread was seen to execute {path.side}...)")
            figures[name] = {
                "instructions": round(per_request(few, many), 1),
                "allocations": round(per_request(*(s[path.side] for s in allocations)), 3),
            }
    return figures


# ---- Judging ---------------------------------------------------------------------------------


def added_inline(figures):
    return figures["inline"]["instructions"] - figures["direct"]["instructions"]


def compare(figures, expected):
    """(failures, hints): lines of text."""
    failures, hints = [], []

    def judge(name, figure, excess, allowed):
        now, then = figures[name][figure], expected[name][figure]
        text = f"{name}: {now:g} {figure} per request, expected are {then:g}"
        if excess(now, then) > allowed:
            failures.append(text)
        elif excess(now, then) < -allowed:
            hints.append(f"{text}; --renew keeps it so")

    for name in PATHS:
        if name not in expected:
            failures.append(f"{name}: nothing is expected of it yet; see --renew")
            continue
        judge(name, "instructions", lambda now, then: now / then - 1, TOLERANCE)
        judge(name, "allocations", lambda now, then: now - then, FRACTION)
    if added_inline(figures) >= MOST_ADDED_INLINE:
        failures.append(
            f"inline: {added_inline(figures):g} instructions per request more than direct; "
            f"less than {MOST_ADDED_INLINE} are allowed"
        )
    return failures, hints


# ---- Telling ---------------------------------------------------------------------------------


def table(figures):
    lines = ["| path | | instructions per request | allocations per request |", "|---|---|--:|--:|"]
    lines += [
        f"| {name} | {path.meaning} | {figures[name]['instructions']:,.0f} "
        f"| {figures[name]['allocations']:g} |"
        for name, path in PATHS.items()
    ]
    allocations = figures["inline"]["allocations"] - figures["direct"]["allocations"]
    lines.append(
        f"| inline - direct | what the library adds | {added_inline(figures):,.0f} "
        f"| {allocations:g} |"
    )
    return "\n".join(lines)


def show_profile(program, name, length):
    functions = functions_of(program, name)
    print(f"{name}: {sum(functions.values()):,.0f} instructions per request")
    for function, cost in sorted(functions.items(), key=lambda item: -item[1])[:length]:
        print(f"{cost:8.1f}  {function}")


def write_json(file, figures):
    file.write_text(json.dumps(figures, indent=2) + "\n")


def arguments():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("build_dir", type=Path)
    parser.add_argument("--json", type=Path, metavar="FILE", help="also write the figures there")
    what = parser.add_mutually_exclusive_group()
    what.add_argument("--check", action="store_true", help="fail where more is used than expected")
    what.add_argument("--renew", action="store_true", help="expect these figures from now on")
    what.add_argument("--profile", choices=PATHS, help="only tell where a path's instructions go")
    parser.add_argument("--top", type=int, default=20, help="functions in the profile")
    return parser.parse_args()


def main():
    options = arguments()
    program = (options.build_dir / "bin" / "paths").resolve()
    if options.profile:
        show_profile(program, options.profile, options.top)
        return 0
    figures = measure(program)
    print(table(figures))
    if options.json:
        write_json(options.json, figures)
    if options.renew:
        write_json(EXPECTED, figures)
    if not options.check:
        return 0
    failures, hints = compare(figures, json.loads(EXPECTED.read_text()))
    for hint in hints:
        print(f"paths.py: better than expected: {hint}")
    for failure in failures:
        print(f"paths.py: FAILED: {failure}", file=sys.stderr)
    return 1 if failures else 0


if __name__ == "__main__":
    try:
        sys.exit(main())
    except Failure as failure:
        sys.exit(f"paths.py: {failure}")

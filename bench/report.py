#!/usr/bin/python3
"""Runs the benchmark programs of a build round by round and reports what came out.

A round is one run of every benchmark, each in a process of its own, so that none finds the heap or
the threads of another one. The contestants of a cell run next to each other, in an order that
changes from round to round; ratios are taken within a round, and the report tells their median.
The page is BUILD_DIR/report.md, and what was measured, round by round, BUILD_DIR/report.json.
"""

import argparse
import datetime
import json
import os
import platform
import re
import resource
import statistics
import subprocess
import sys
import time
from pathlib import Path

import paths
from paths import Failure, output_of
from report_aims import AIMS, QUICK_AIMS, failures, names_of
from report_figures import by_cell, figures_of, short_name
from report_page import page

PROGRAMS = ("throughput_bench", "latency_bench", "window_bench", "growth_bench",
            "channel_bench", "nats_bench")  # fmt: skip
MIN_TIME = 0.3  # seconds, of each benchmark in each round

PACKAGES = ("libboost-dev", "libtbb-dev", "libcaf-dev", "libzmq3-dev", "libnats-dev",
            "nats-server", "libbenchmark-dev", "libc6", "valgrind")  # fmt: skip


def say(text):
    print(f"report: {text}", file=sys.stderr, flush=True)


def run_benchmark(program, listed):
    output = output_of([program, f"--benchmark_filter=^{re.escape(listed)}$",
                        f"--benchmark_min_time={MIN_TIME}", "--benchmark_format=json"])  # fmt: skip
    (entry,) = json.loads(output)["benchmarks"]
    return figures_of(entry)


def others_seconds():
    """The processor time that others have had since the machine was started."""
    fields = Path("/proc/stat").read_text().split("\n", 1)[0].split()
    user, nice, system, _idle, _wait, irq, softirq, steal = map(int, fields[1:9])
    own = [resource.getrusage(who) for who in (resource.RUSAGE_SELF, resource.RUSAGE_CHILDREN)]
    everybody = (user + nice + system + irq + softirq + steal) / os.sysconf("SC_CLK_TCK")
    return everybody - sum(usage.ru_utime + usage.ru_stime for usage in own)


def in_turn(names, number):
    """The order of a round: the cells back and forth, the contestants each first in their turn."""
    cells = list(by_cell(names).values())
    order = []
    for contestants in cells if number % 2 else reversed(cells):
        first = (number - 1) % len(contestants)
        order += contestants[first:] + contestants[:first]
    return order


class Measurement:
    """All rounds of one report. What goes wrong is kept and does not keep others from running."""

    def __init__(self, bin_dir, only=None):
        """Of all benchmarks, or `only` those."""
        self.names = []
        self.rounds = []
        self.errors = []
        self.others = []  # the share of the processors that others had, of each run
        self._programs = {}  # program -> name of a benchmark -> as the program lists it
        for program in [bin_dir / name for name in PROGRAMS]:
            try:
                listed = output_of([program, "--benchmark_list_tests"]).splitlines()
            except Failure as failure:
                self._fail(failure)
                continue
            names = {short_name(line): line for line in listed}
            self._programs[program] = {n: l for n, l in names.items() if not only or n in only}
            self.names += self._programs[program]

    def measure_round(self):
        self.rounds.append({})
        number = len(self.rounds)
        for program, names in self._programs.items():
            say(f"round {number}, {program.name}: {len(names)} to run")
            for name in in_turn(names, number):
                begin, others_before = time.monotonic(), others_seconds()
                try:
                    self.rounds[-1][name] = run_benchmark(program, names[name])
                except Failure as failure:
                    self._fail(f"{name}: {failure}")
                cpu_seconds = (time.monotonic() - begin) * os.cpu_count()
                self.others.append(max(0.0, (others_seconds() - others_before) / cpu_seconds))

    def _fail(self, failure):
        self.errors.append(str(failure))
        say(failure)


def machine(build_dir, others):
    """With what it was measured. No host names, no paths."""
    cpu = re.search(r"^model name\s*:\s*(.+)$", Path("/proc/cpuinfo").read_text(), re.MULTILINE)
    cache = dict(re.findall(r"^(\w+):\w+=(.*)$", (build_dir / "CMakeCache.txt").read_text(), re.M))
    return {
        "date": datetime.date.today().isoformat(),
        "processor": f"{os.cpu_count()} cores, {cpu[1] if cpu else platform.machine()}",
        "kernel": f"{platform.system()} {platform.release()}",
        "compiler": output_of([cache["CMAKE_CXX_COMPILER"], "--version"]).split("\n")[0],
        "build": cache["CMAKE_BUILD_TYPE"],
        "packages": output_of(["dpkg-query", "-W", "-f=${Package} ${Version}, ", *PACKAGES])[:-2],
        "other processes": f"had {statistics.median(others):.0%} of the processors while a"
        f" benchmark ran (median; at most {max(others):.0%})",
    }


def arguments():
    parser = argparse.ArgumentParser(
        description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter
    )
    parser.add_argument("build_dir", type=Path, metavar="BUILD_DIR")
    parser.add_argument("--rounds", type=int, metavar="N", help="5; of the quick version 3")
    parser.add_argument("--quick", action="store_true",
                        help="only what the aims speak of, without 512 sources and three servers")
    parser.add_argument("--check", action="store_true",
                        help="the quick version, and no report; fails where a ratio fell too low")
    options = parser.parse_args()  # fmt: skip
    options.quick |= options.check
    if options.rounds is None:
        options.rounds = 3 if options.quick else 5
    if options.rounds < 1:
        parser.error("--rounds must be at least 1")
    return options


def write_report(options, aims, measurement):
    say("counting instructions and allocations")
    counts, errors = {}, measurement.errors
    try:
        counts, _ = paths.measure((options.build_dir / "bin" / "paths").resolve())
    except Failure as failure:
        errors.append(f"instructions and allocations: {failure}")
    about = machine(options.build_dir, measurement.others)
    about["rounds"] = f"{options.rounds}, each benchmark for at least {MIN_TIME} s in each"
    if options.quick:
        about["left out"] = "what no aim speaks of, 512 sources, and three servers"
    report = options.build_dir / "report.md"
    report.write_text(page(about, measurement.names, measurement.rounds, aims, counts, errors))
    raw = {"about": about, "rounds": measurement.rounds, "paths": counts, "errors": errors}
    report.with_suffix(".json").write_text(json.dumps(raw, indent=1))
    say(f"{report} is written")
    return not errors


def main():
    options = arguments()
    aims = QUICK_AIMS if options.quick else AIMS
    measurement = Measurement(options.build_dir / "bin", names_of(aims) if options.quick else None)
    for _ in range(options.rounds):
        measurement.measure_round()
    if not options.check:
        return write_report(options, aims, measurement)
    failed = failures(measurement.rounds, aims)
    for line in failed:
        say(f"FAILED: {line}")
    say(f"{len(aims) - len(failed)} of {len(aims)} ratios hold")
    return not failed


if __name__ == "__main__":
    try:
        sys.exit(0 if main() else 1)
    except (Failure, KeyboardInterrupt) as end:
        sys.exit(f"report: {end or 'interrupted'}")

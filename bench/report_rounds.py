"""Runs the benchmark programs round by round and keeps what they say.

Each benchmark has a process of its own, so that none finds the heap or the threads of another one,
and so that the contestants of a cell can take turns in being first. A round's file is written anew
after each benchmark: an interrupted measurement loses no more than one.
"""

import hashlib
import json
import os
import re
import resource
import signal
import statistics
import subprocess
import sys
import tempfile
import time
from pathlib import Path

import paths
from report_figures import by_cell, figures_of, short_name
from report_machine import describe

PROGRAMS = ("throughput_bench", "latency_bench", "growth_bench", "channel_bench",
            "nats_bench")  # fmt: skip

# Longer than any benchmark takes. One that hangs fails, and the others go on.
TIMEOUT = 600

# What Google Benchmark appends to a name.
APPENDED = "(/(process_time|real_time|manual_time|[a-z_]+:[0-9.]+))*"


class Failure(Exception):
    """A program could not be run, or did not give what was asked of it."""


def say(text):
    print(f"report: {text}", file=sys.stderr, flush=True)


def run(command):
    """The program's output. A program that is not waited for to its end ends with its children."""
    what = Path(command[0]).name
    with subprocess.Popen(
        [str(part) for part in command],
        stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True, start_new_session=True,
    ) as process:  # fmt: skip
        try:
            output, errors = process.communicate(timeout=TIMEOUT)
        except BaseException as error:
            os.killpg(process.pid, signal.SIGKILL)
            if isinstance(error, subprocess.TimeoutExpired):
                raise Failure(f"{what} was not done after {TIMEOUT} s") from None
            raise
    if process.returncode != 0:
        last_line = (errors.strip().splitlines() or ["and said nothing"])[-1]
        raise Failure(f"{what} ended with {process.returncode}: {last_line[:200]}")
    return output


def list_benchmarks(program):
    if not program.exists():
        raise Failure(f"{program.name} is not there: it was not built")
    lines = run([program, "--benchmark_list_tests"]).splitlines()
    return [short_name(line) for line in lines if "/" in line]


def run_benchmark(program, name, min_time):
    """The benchmark's entry of Google Benchmark's JSON."""
    with tempfile.TemporaryDirectory() as folder:
        file = Path(folder, "result.json")
        run(
            [program, f"--benchmark_filter=^{re.escape(name)}{APPENDED}$",
             f"--benchmark_min_time={min_time}",
             f"--benchmark_out={file}", "--benchmark_out_format=json"]
        )  # fmt: skip
        try:
            entries = json.loads(file.read_text())["benchmarks"]
        except (OSError, ValueError, KeyError) as error:
            raise Failure(f"{program.name} wrote no results") from error
    if len(entries) != 1:
        raise Failure(f"{program.name} wrote {len(entries)} results")
    if entries[0].get("error_occurred"):
        raise Failure(entries[0].get("error_message", "it failed"))
    return entries[0]


def processor_seconds():
    """What all processes have used since the machine was started, and what others took from it."""
    fields = Path("/proc/stat").read_text().split("\n", 1)[0].split()
    user, nice, system, _idle, _wait, irq, softirq, steal = map(int, fields[1:9])
    return (user + nice + system + irq + softirq + steal) / os.sysconf("SC_CLK_TCK")


def own_seconds():
    usage = [resource.getrusage(who) for who in (resource.RUSAGE_SELF, resource.RUSAGE_CHILDREN)]
    return sum(u.ru_utime + u.ru_stime for u in usage)


def measure_one(program, name, min_time):
    """The entry, how long it took, and the share of the processors that others had meanwhile."""
    begin, all_before, own_before = time.monotonic(), processor_seconds(), own_seconds()
    try:
        result = {"entry": run_benchmark(program, name, min_time)}
    except Failure as failure:
        result = {"error": f"{name}: {failure}"}
    seconds = time.monotonic() - begin
    others = (processor_seconds() - all_before) - (own_seconds() - own_before)
    result["seconds"] = round(seconds, 3)
    result["others"] = round(max(0.0, others / (seconds * os.cpu_count())), 3)
    return result


def in_turn(names, number):
    """The order of a round: the cells back and forth, the contestants each first in their turn."""
    cells = list(by_cell(names).values())
    order = []
    for contestants in cells if number % 2 else reversed(cells):
        first = (number - 1) % len(contestants)
        order += contestants[first:] + contestants[:first]
    return order


class RoundFile:
    """A round as it is on disk: what it was measured with, and the results so far."""

    def __init__(self, path, head=None):
        self.path = path
        self.data = json.loads(path.read_text()) if path.exists() else {**head, "results": {}}

    @property
    def results(self):
        return self.data["results"]

    def lacks(self, name):
        return "entry" not in self.results.get(name, {})

    def add(self, name, result):
        self.results[name] = result
        self.write()

    def write(self):
        unfinished = self.path.with_suffix(".new")
        unfinished.write_text(json.dumps(self.data, indent=1))
        unfinished.replace(self.path)

    def figures(self):
        return {n: figures_of(r["entry"]) for n, r in self.results.items() if "entry" in r}

    def errors(self):
        failed = [r["error"] for r in self.results.values() if "error" in r]
        return self.data["missing"] + failed


def fingerprint(build_dir):
    """Of all that was built and is measured: rounds of different builds are not mixed."""
    digest = hashlib.sha256()
    files = [build_dir / "bin" / program for program in PROGRAMS]
    for file in sorted(files + list((build_dir / "lib").glob("*.so"))):
        if file.exists():
            digest.update(file.name.encode() + file.read_bytes())
    return digest.hexdigest()[:16]


_TO_BE_EQUAL = {"min_time": "minimum time", "quick": "choice of cells", "build": "build"}


class Measurement:
    """All rounds of one report."""

    def __init__(self, build_dir, folder, rounds, min_time, only=None):
        """Measures all benchmarks, or `only` those."""
        self.build_dir = build_dir
        self.folder = folder
        self.rounds = rounds
        self.min_time = min_time
        self.only = only
        self.missing = []
        self.names = {}  # program -> its benchmarks
        for program in PROGRAMS:
            self._list(program)
        if not self.names:
            raise Failure("there is nothing to measure")

    def _list(self, program):
        try:
            names = list_benchmarks(self._program(program))
        except Failure as failure:
            self.missing.append(str(failure))
            say(str(failure))
            return
        self.names[program] = [name for name in names if not self.only or name in self.only]

    def _program(self, name):
        return self.build_dir / "bin" / name

    def _open_files(self):
        head = {
            "min_time": self.min_time,
            "quick": self.only is not None,
            "build": fingerprint(self.build_dir),
            "machine": describe(self.build_dir),
            "missing": self.missing,
        }
        files = []
        for number in range(1, self.rounds + 1):
            file = RoundFile(self.folder / f"round-{number:02}.json", head)
            for key, what in _TO_BE_EQUAL.items():
                if file.data[key] != head[key]:
                    raise Failure(f"round {number} is of another {what}: it cannot be resumed")
            file.data["missing"] = self.missing
            files.append(file)
        return files

    def start_afresh(self):
        self.folder.mkdir(parents=True, exist_ok=True)
        for old in self.folder.glob("*.json"):
            old.unlink()

    def measure(self):
        """Runs whatever the folder's rounds lack."""
        files = self._open_files()
        for number, file in enumerate(files, 1):
            file.write()
            for program, names in self.names.items():
                lacking = [name for name in in_turn(names, number) if file.lacks(name)]
                if lacking:
                    say(f"round {number} of {self.rounds}, {program}: {len(lacking)} to run, "
                        f"{self._time_left(files)}")  # fmt: skip
                for name in lacking:
                    result = measure_one(self._program(program), name, self.min_time)
                    if "error" in result:
                        say(result["error"])
                    file.add(name, result)

    def _time_left(self, files):
        known = {}
        for file in files:
            for name, result in file.results.items():
                known.setdefault(name, []).append(result["seconds"])
        means = {name: statistics.mean(seconds) for name, seconds in known.items()}
        usual = statistics.mean(means.values()) if means else 4 * self.min_time + 1
        left = sum(
            means.get(name, usual)
            for file in files
            for names in self.names.values()
            for name in names
            if file.lacks(name)
        )
        return f"about {max(1, round(left / 60))} min left"


def stored_rounds(folder):
    files = [RoundFile(path) for path in sorted(folder.glob("round-*.json"))]
    if not files:
        raise Failure("there is no round to report on")
    return files


def measure_paths(build_dir, folder):
    """Counts instructions and allocations; once, since they do not differ from round to round."""
    file = folder / "paths.json"
    file.unlink(missing_ok=True)
    say("counting instructions and allocations")
    try:
        file.write_text(json.dumps(paths.measure((build_dir / "bin" / "paths").resolve())))
    except paths.Failure as failure:
        say(str(failure))
        raise Failure("instructions and allocations could not be counted") from failure


def stored_paths(folder):
    file = folder / "paths.json"
    return json.loads(file.read_text()) if file.exists() else {}

"""Names and figures of what the benchmark programs measured, and ratios between them.

A benchmark is called CELL/WHO: `throughput/8/2us/asio` is what asio did in the cell
`throughput/8/2us`. In a curve WHO is the number along its axis: `growth/sources/64`.

A round is a dictionary: the benchmark's name -> the figure's name -> the value. Ratios are taken
within a round, because the contestants of one round ran next to each other.
"""

import math
import re
import statistics
from dataclasses import dataclass

OURS = "mirel"

TIME = "us"  # per request, as seen from outside
CPU_TIME = "cpu us"  # per request, of all threads together
RATE = "per second"

# Of a request's way, in the order in which they are shown.
STAGES = {
    "": "",
    "hand_over": "hand-over",
    "read_handler": "read to handler",
    "read_answer": "read to answer",
    "arrival_answer": "arrival to answer",
}

_NO_FIGURES = {
    "family_index", "per_family_instance_index", "repetitions", "repetition_index", "threads",
    "iterations", "real_time", "cpu_time", "items_per_second", "bytes_per_second",
    "error_occurred",
}  # fmt: skip

_MICROSECONDS = {"ns": 1e-3, "us": 1.0, "ms": 1e3, "s": 1e6}

_PERCENTILE = re.compile(r"(?:(?P<stage>.+)_)?p(?P<digits>50|99|999)(?:_us)?")


def short_name(name):
    """The name without what Google Benchmark appends: how time was taken, how often it ran."""
    appended = ("process_time", "real_time", "manual_time")
    return "/".join(p for p in name.split("/") if ":" not in p and p not in appended)


def cell_of(name):
    return name.rpartition("/")[0]


def who_of(name):
    return name.rpartition("/")[2]


def by_cell(names):
    """Cell -> its benchmarks, both in the order in which they come."""
    cells = {}
    for name in names:
        cells.setdefault(cell_of(name), []).append(name)
    return cells


def percentile_of(figure):
    """("read_handler", "p99.9") of read_handler_p999; nothing where it is no percentile."""
    match = _PERCENTILE.fullmatch(figure)
    if not match:
        return None
    digits = match["digits"]
    return match["stage"] or "", "p99.9" if digits == "999" else "p" + digits


def by_stage(figures):
    """Stage -> its figures. Those that are no percentiles are with the stage that has no name."""
    stages = {}
    for figure in figures:
        stage, _ = percentile_of(figure) or ("", None)
        stages.setdefault(stage, []).append(figure)
    return {stage: stages[stage] for stage in dict.fromkeys([*STAGES, *stages]) if stage in stages}


def stage_title(stage):
    return STAGES.get(stage, stage.replace("_", " "))


def figures_of(entry):
    """The figures in one benchmark's entry of Google Benchmark's JSON."""
    figures = {
        key: float(value)
        for key, value in entry.items()
        if isinstance(value, (int, float)) and math.isfinite(value) and key not in _NO_FIGURES
    }
    microseconds = _MICROSECONDS[entry["time_unit"]]
    rate = entry.get("items_per_second")
    if rate:
        figures[TIME] = 1e6 / rate
        figures[RATE] = rate
        if "/process_time" in entry["name"]:
            requests = rate * entry["real_time"] * microseconds / 1e6
            figures[CPU_TIME] = entry["cpu_time"] * microseconds / requests
    elif not figures:
        figures[TIME] = entry["real_time"] * microseconds
    return figures


@dataclass(frozen=True)
class Spread:
    """One value of each round, told in three."""

    median: float
    least: float
    most: float


def spread(values):
    return Spread(statistics.median(values), min(values), max(values)) if values else None


def spreads(rounds):
    """The benchmark's name -> the figure's name -> its spread over the rounds that have it."""
    collected = {}
    for one_round in rounds:
        for name, figures in one_round.items():
            for figure, value in figures.items():
                collected.setdefault(name, {}).setdefault(figure, []).append(value)
    return {
        name: {figure: spread(values) for figure, values in figures.items()}
        for name, figures in collected.items()
    }


@dataclass(frozen=True)
class Pair:
    """Two figures that are compared: ours, and what it is held against."""

    ours: str
    theirs: str
    our_figure: str = TIME
    their_figure: str = TIME

    @property
    def title(self):
        return f"{cell_of(self.ours)}: {who_of(self.theirs)}"

    def ratios(self, rounds):
        """Theirs over ours, of each round that has both."""
        ratios = []
        for one_round in rounds:
            theirs = one_round.get(self.theirs, {}).get(self.their_figure)
            ours = one_round.get(self.ours, {}).get(self.our_figure)
            if theirs is not None and ours:
                ratios.append(theirs / ours)
        return ratios

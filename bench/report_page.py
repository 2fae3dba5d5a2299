"""The report as a page of Markdown: where, with what, the aims, and every figure that was taken."""

import math

from paths import MOST_ADDED_INLINE, PATHS, added_inline
from report_figures import (
    CPU_TIME, OURS, RATE, TIME, Pair, by_cell, by_stage, cell_of, percentile_of, spread, spreads,
    stage_title, who_of,
)  # fmt: skip

SETTINGS = {
    "mirel": "this library: a multi-threaded executor, and a pool that keeps up to as many idle"
    " workers as there are sources (`channel/`, `nats/`: 16); `inline/`: a single-threaded"
    " executor, which has no workers",
    "asio": "Boost.Asio: a `thread_pool` with as many threads as sources, and a strand per source",
    "tbb": "oneTBB: a `task_arena` with as many slots as sources, none of them reserved, and a"
    " serial `function_node` per source; `max_allowed_parallelism` is one more, for the reader",
    "caf": "CAF: the work-stealing scheduler with as many threads as sources, and an actor per"
    " source; all else as CAF sets it",
    "student": "one mutex, one condition variable, a queue per source, and as many threads as"
    " sources; a thread stays with a source until its queue is empty",
    "asio_cores": "as asio, with as many threads as cores",
    "tbb_cores": "as tbb, with as many threads as cores",
    "caf_cores": "as caf, with as many threads as cores",
    "student_cores": "as student, with as many threads as cores",
    "hand_over": "two threads that wake each other in turn by `FUTEX_WAKE`, without spinning",
    "bare": "`channel/`: ZeroMQ by itself, a DEALER sends and a ROUTER in another process sends"
    " back; `nats/`: the same stream, consumer and connections as ours, and one thread that pulls,"
    " answers and acknowledges; no envelopes, and answers are neither confirmed nor repeated",
}

FIGURE_TITLES = {TIME: "µs", CPU_TIME: "processor µs", RATE: "requests per second",
                 "rate": "rate, per second"}  # fmt: skip

COST_TITLES = {"0us": "nothing", "1000us_blocking": "1 ms of blocking"}

# Kind of benchmark -> heading, and what is measured.
SECTIONS = {
    "throughput": (
        "Throughput",
        "From the channel's read to the answer, with always one more request to read. Requests of"
        " 64 bytes, from the sources in turn.",
    ),
    "inline": (
        "Inline path",
        "The same with a single-threaded executor, which runs a request before it reads the next.",
    ),
    "latency": (
        "Latency",
        "`closed/SOURCES/COST`: the next request is read when the former was answered."
        " `half/SOURCES/COST`: requests arrive at random, at half of the rate that the contestant"
        " itself was just seen to reach. `futex`: what a wake-up takes without anybody's queue.",
    ),
    "growth": (
        "Growth",
        "This library alone: the cost of a request by the number of sources, by the length of the"
        " backlog, and by the number of idle workers; and what workers and requests need.",
    ),
    "channel": (
        "Channel between processes",
        "Requests of 64 bytes and their answers over `ipc://`, between two processes: one in flight"
        " (`closed`), or 100 (`saturated/SOURCES`).",
    ),
    "nats": (
        "Channel over NATS JetStream",
        "The same through a stream in files: one request in flight (`closed`), or 256"
        " (`saturated/SOURCES`), with one server; and with three on this machine, each of which"
        " keeps every request (`replicated/SOURCES`). Of each source one request at a time is on"
        " its way into the stream.",
    ),
}


def number(value):
    """Three digits that count, and no more than are there."""
    if value == 0:
        return "0"
    return f"{value:,.{max(0, 2 - math.floor(math.log10(abs(value))))}f}"


def span(found):
    """The median, and from where to where the rounds went."""
    if not found:
        return "—"
    if found.least == found.most:
        return number(found.median)
    return f"{number(found.median)} ({number(found.least)}..{number(found.most)})"


def table(head, rows):
    lines = ["| " + " | ".join(row) + " |" for row in [head, *rows]]
    lines.insert(1, "|" + "---|" * len(head))
    return [*lines, ""]


def figure_title(figure):
    percentile = percentile_of(figure)
    if percentile:
        return f"{percentile[1]}, µs"
    if figure.endswith("_us"):
        figure = figure.removesuffix("_us") + ", µs"
    return FIGURE_TITLES.get(figure, figure.replace("_", " "))


def cost_title(cost):
    return COST_TITLES.get(cost, cost.replace("us", " µs") + " of computation")


def in_order(names):
    """Contestants as they are listed above, points of a curve by their number."""
    known = list(SETTINGS)

    def place(name):
        who = who_of(name)
        if who.isdigit():
            return int(who)
        return known.index(who) if who in known else len(known)

    return sorted(names, key=place)


class Page:
    """Makes the text. `plots` maps a cell or a heading to the file that shows it."""

    def __init__(self, rounds, plots):
        self._rounds = rounds
        self._plots = plots
        self._spreads = spreads(rounds)

    def text(self, machine, verdicts, paths, errors):
        parts = [
            ["# Benchmarks", ""],
            self._machine(machine),
            self._errors(errors),
            self._aims(verdicts, paths),
            self._paths(paths),
        ]
        kinds = dict.fromkeys(name.split("/")[0] for name in self._spreads)
        parts += [self._section(kind) for kind in sorted(kinds, key=_section_order)]
        parts.append(self._contestants())
        return "\n".join(line for part in parts for line in part)

    def _machine(self, machine):
        return table(["", ""], [[key, value] for key, value in machine.items()])

    def _errors(self, errors):
        if not errors:
            return []
        return ["## Not measured", "", *[f"- {error}" for error in dict.fromkeys(errors)], ""]

    def _aims(self, verdicts, paths):
        rows = []
        for verdict in verdicts:
            rows.append([
                verdict.aim.against,
                f"`{verdict.pair.title}`",
                f"{verdict.aim.least:.2f}",
                span(verdict.measured) if verdict.measured else "not measured",
                "yes" if verdict.reached else "**no**",
                verdict.reason,
            ])
        rows.append(self._inline_aim(paths))
        return [
            "## Aims",
            "",
            "The contestant's time over ours is to be at least the aim. Measured are the median of"
            " the rounds and, in brackets, the smallest and the largest of them.",
            "",
            *table(["against", "cell", "aim", "measured", "reached", "what is in the way"], rows),
        ]

    def _inline_aim(self, paths):
        row = ["a direct call", "instructions that the inline path adds",
               f"under {MOST_ADDED_INLINE:,}"]  # fmt: skip
        if not paths:
            return [*row, "not measured", "**no**", ""]
        added = added_inline(paths)
        return [*row, f"{added:,.0f}", "yes" if added < MOST_ADDED_INLINE else "**no**", ""]

    def _paths(self, paths):
        if not paths:
            return []
        rows = [
            [name, PATHS[name].meaning, f"{f['instructions']:,.0f}", f"{f['allocations']:g}"]
            for name, f in paths.items()
        ]
        return [
            "## Instructions and allocations per request",
            "",
            *table(["path", "", "instructions", "allocations"], rows),
        ]

    def _section(self, kind):
        names = [name for name in self._spreads if name.split("/")[0] == kind]
        title, meaning = SECTIONS.get(kind, (kind, ""))
        lines = [f"## {title}", "", meaning, ""]
        if kind == "throughput":
            costs = dict.fromkeys(name.split("/")[2] for name in names)
            for cost in costs:
                lines += self._throughput(cost, [n for n in names if n.split("/")[2] == cost])
        else:
            for cell, benchmarks in by_cell(names).items():
                lines += self._cell(cell, in_order(benchmarks))
        return lines

    def _plot(self, key):
        return [f"![{key}]({self._plots[key]})", ""] if key in self._plots else []

    def _throughput(self, cost, names):
        lines = [f"### A handler that does {cost_title(cost)}", ""]
        lines += self._plot(f"throughput {cost}")
        lines += ["µs per request:", ""]
        lines += self._grid(names, lambda name: self._median(name, TIME))
        lines += ["The contestant's time over ours:", ""]
        others = [name for name in names if who_of(name) != OURS]
        lines += self._grid(others, lambda name: self._ratio(name, TIME))
        lines += ["Processor time per request, µs, of all threads together:", ""]
        lines += self._grid(names, lambda name: self._median(name, CPU_TIME))
        return lines

    def _grid(self, names, content):
        """Contestants down, numbers of sources across."""
        cells = sorted({cell_of(name) for name in names}, key=lambda cell: int(cell.split("/")[1]))
        rows = [
            [who, *[content(f"{cell}/{who}") for cell in cells]]
            for who in dict.fromkeys(who_of(name) for name in in_order(names))
        ]
        return table(["sources", *[cell.split("/")[1] for cell in cells]], rows)

    def _cell(self, cell, names):
        """All figures of the cell; those of one stage of a request's way in a table together."""
        lines = [f"### {cell}", "", *self._plot(cell)]
        contest = f"{cell}/{OURS}" in names and len(names) > 1
        figures = dict.fromkeys(f for name in names for f in self._spreads[name])
        for stage, figures_of_stage in by_stage(figures).items():
            if stage:
                lines += [f"{stage_title(stage)}:", ""]
            lines += self._stage(names, figures_of_stage, contest)
        return lines

    def _stage(self, names, figures, contest):
        compared = [f for f in figures if contest and f != RATE]
        titles = [figure_title(f) for f in figures]
        head = ["", *titles, *[f"{figure_title(f)}: over ours" for f in compared]]
        rows = [
            [
                who_of(name),
                *[span(self._find(name, f)) for f in figures],
                *["" if who_of(name) == OURS else self._ratio(name, f) for f in compared],
            ]
            for name in names
        ]
        return table(head, rows)

    def _find(self, name, figure):
        return self._spreads.get(name, {}).get(figure)

    def _median(self, name, figure):
        found = self._find(name, figure)
        return number(found.median) if found else "—"

    def _ratio(self, name, figure):
        pair = Pair(f"{cell_of(name)}/{OURS}", name, figure, figure)
        return span(spread(pair.ratios(self._rounds)))

    def _contestants(self):
        present = {who_of(name) for name in self._spreads}
        present |= {who.removesuffix("_cores") for who in present}
        rows = [[who, settings] for who, settings in SETTINGS.items() if who in present]
        return [
            "## Contestants",
            "",
            "Within a process all have the same messages, look-up of the invoker, response objects,"
            " handlers and allocator. They differ in what brings a request from the thread that"
            " reads it to the handler.",
            "",
            *table(["", "settings"], rows),
        ]


def _section_order(kind):
    known = list(SECTIONS)
    return known.index(kind) if kind in known else len(known)

"""The report as a page of Markdown: with what, the aims, and every figure that was taken."""

import math
import re

import paths
from report_figures import (
    CPU_TIME, OURS, TIME, by_cell, figure_spread, ratio_spread, who_of,
)  # fmt: skip

CONTESTANTS = {
    "mirel": "this library: a multi-threaded executor, and a pool that keeps up to as many idle"
    " workers as there are sources (`channel/`, `nats/`: 16); `inline/`: without workers",
    "asio": "Boost.Asio: a `thread_pool` with as many threads as sources, and a strand per source",
    "tbb": "oneTBB: a `task_arena` with as many slots as sources, none of them reserved, and a"
    " serial `function_node` per source; `max_allowed_parallelism` is one more, for the reader",
    "caf": "CAF: the work-stealing scheduler with as many threads as sources, and an actor per"
    " source; all else as CAF sets it",
    "threads": "a thread per source with a queue: one mutex, one condition variable, a queue per"
    " source, and as many threads; a thread that is free takes a source until its queue is empty",
    "..._cores": "the same with as many threads as cores",
    "..._16": "the same with 16 threads, as many as `mirel-host` keeps workers; in `churn/`,"
    " `priorities/` and `urgency/` this library keeps as many",
    "enough_kept": "this library with as many kept workers as sources",
    "one_priority": "this library, all requests at priority 1",
    "priority_0": "this library, the one source's requests at priority 0 as well",
    "without_failures": "this library, no handler throws",
    "hand_over": "two threads that wake each other in turn by `FUTEX_WAKE`, without spinning",
    "bare": "`channel/`: ZeroMQ by itself, a DEALER and a ROUTER; `nats/`: a loop on the same"
    " stream that pulls, answers and acknowledges; answers are neither confirmed nor repeated",
}

SECTIONS = {
    "throughput": "From the channel's read to the answer, with always one more request to read."
    " Requests of 64 bytes, from the sources in turn.",
    "inline": "The same on a single-threaded executor, which runs a request before it reads on.",
    "latency": "`closed/SOURCES/COST`: the next request is read when the former was answered."
    " `futex`: what a wake-up takes without anybody's queue.",
    "tails": "`PERCENT/COST`: requests of eight sources arrive at random, at that share of the rate"
    " that the contestant itself was just seen to reach. `arrival answer` counts from when a"
    " request was due, so with all waits.",
    "churn": "More busy sources than kept workers, 256 requests on their way. A request gets a"
    " temporary worker when its source has none and all that are kept work.",
    "failing": "As `throughput`, with handlers that do nothing but throw at each tenth request;"
    " this library makes a report of each.",
    "priorities": "16 sources in turn, 256 requests on their way, handlers that do nothing."
    " `of_sources`: each source has one of the three priorities. `of_requests`: each request of a"
    " source has another one than the former.",
    "urgency": "`COST`: one request at a time, of priority 2, while 32 other sources keep 256"
    " requests of priority 0 on their way.",
    "growth": "This library alone: the cost of a request by the number of sources, by the length of"
    " the backlog, and by the number of idle workers; and what workers and requests need.",
    "channel": "Requests of 64 bytes and their answers over `ipc://`, between two processes: one in"
    " flight (`closed`), or 100 (`saturated/SOURCES`).",
    "nats": "The same through a stream in files: one request in flight (`closed`), or 256"
    " (`saturated/SOURCES`), with one server; and with three on this machine, each of which keeps"
    " every request (`replicated/SOURCES`). One of each source is on its way into the stream.",
}

# Of a request's way, in its order; figures that are no percentiles come first.
STAGES = "", "hand over", "read handler", "read answer", "arrival answer", "answer"


def number(value):
    """Three digits that count, and no more than are there."""
    return f"{value:,.{max(0, 2 - math.floor(math.log10(abs(value))))}f}" if value else "0"


def span(found):
    """The median, and from where to where the rounds went."""
    if not found:
        return "—"
    median, least, most = map(number, found)
    return median if least == most else f"{median} ({least}..{most})"


def table(head, rows):
    lines = ["| " + " | ".join(row) + " |" for row in [head, *rows]]
    return [lines[0], "|" + "---|" * len(head), *lines[1:], ""]


def split_percentile(figure):
    """(stage of a request's way, title): of read_handler_p999 ("read handler", "p99.9, µs")."""
    stage, percentile = re.fullmatch(r"(.*?)(?:_p(50|99|999))?", figure).groups()
    if percentile:
        return stage.replace("_", " "), f"p{percentile.replace('999', '99.9')}, µs"
    return "", re.sub(" us$", ", µs", figure.replace("_", " "))


def aims_table(aims, rounds):
    rows = []
    for aim in aims:
        found = aim.measured(rounds)
        reached = "yes" if found and found[0] >= aim.least else "**no**"
        rows.append([f"`{aim.cell}`", aim.against, f"{aim.least:.2f}", span(found), reached])
    return table(["cell", "against", "aim", "measured", "reached"], rows)


def throughput_tables(rounds, names):
    """For each cost of the handler: contestants down, numbers of sources across."""
    def median(figure):
        return lambda cell, who: span(figure_spread(rounds, cell + who, figure)).split(" ")[0]

    def ratio(cell, who):
        return span(ratio_spread(rounds, (cell + OURS, TIME), (cell + who, TIME)))

    shown = {"µs per request": median(TIME), "The contestant's time over ours": ratio,
             "Processor time per request, µs, of all threads": median(CPU_TIME)}  # fmt: skip
    lines = []
    for cost in dict.fromkeys(name.split("/")[2] for name in names):
        parts = [name.split("/") for name in names if f"/{cost}/" in name]
        sources, contestants = (list(dict.fromkeys(part[i] for part in parts)) for i in (1, 3))
        lines += [f"### A handler of {cost.replace('us', ' µs').replace('_', ', ')}", ""]
        for title, content in shown.items():
            rows = [[who, *[content(f"throughput/{n}/{cost}/", who) for n in sources]]
                    for who in contestants]  # fmt: skip
            lines += [f"{title}:", "", *table(["sources", *sources], rows)]
    return lines


def cell_tables(rounds, cell, names):
    """All figures of the cell; those of one stage of a request's way in a table together."""
    stages = {stage: {} for stage in STAGES}
    for figure in dict.fromkeys(f for each in rounds for n in names for f in each.get(n, {})):
        stage, title = split_percentile(figure)
        stages.setdefault(stage, {})[figure] = title
    ours = f"{cell}/{OURS}"
    lines = [f"### {cell}", ""]
    for stage, titles in stages.items():
        if not titles:
            continue
        head = [stage, *titles.values()]
        rows = [[who_of(n), *[span(figure_spread(rounds, n, f)) for f in titles]] for n in names]
        if ours in names and len(names) > 1:
            first = next(iter(titles))
            head.append(f"{titles[first]}: over ours")
            for row, name in zip(rows, names):
                row.append(span(ratio_spread(rounds, (ours, first), (name, first))))
        lines += table(head, rows)
    return lines


def page(about, names, rounds, aims, counts, errors):
    """Of all benchmarks of these names; `counts` is what paths.py measured."""
    lines = ["# Benchmarks", "", *table(["", ""], list(about.items()))]
    if errors:
        lines += ["## Not measured", "", *[f"- {error}" for error in dict.fromkeys(errors)], ""]
    lines += ["## Aims", "",
              "The other's time over ours is to be at least the aim. Measured are the median"
              " of the rounds and, in brackets, the smallest and the largest of them.", "",
              *aims_table(aims, rounds)]  # fmt: skip
    if counts:
        lines += ["## Instructions and allocations per request", "", paths.table(counts), ""]
    for kind, meaning in SECTIONS.items():
        of_kind = [name for name in names if name.startswith(kind + "/")]
        if of_kind:
            lines += [f"## {kind.capitalize()}", "", meaning, ""]
        if kind == "throughput":
            lines += throughput_tables(rounds, of_kind)
        else:
            for cell, of_cell in by_cell(of_kind).items():
                lines += cell_tables(rounds, cell, of_cell)
    lines += ["## Contestants", "",
              "Within a process all have the same messages, look-up of the invoker, response"
              " objects, handlers and allocator. They differ in what brings a request from the"
              " thread that reads it to the handler.", "",
              *table(["", "settings"], list(CONTESTANTS.items()))]  # fmt: skip
    return "\n".join(lines)

"""What the benchmark programs measured: names, figures, and ratios between them.

A benchmark is called CELL/WHO, such as `throughput/8/2us/asio`; in a curve WHO is the number along
its axis: `growth/sources/64`. A round is a dictionary: name -> the figure's name -> the value.
"""

import re
import statistics

OURS = "mirel"

TIME = "µs"  # per request, as seen from outside
CPU_TIME = "processor µs"  # per request, of all threads together
RATE = "requests per second"

NO_FIGURES = ("family_index per_family_instance_index repetitions repetition_index threads"
              " iterations real_time cpu_time items_per_second").split()  # fmt: skip


def short_name(listed):
    """The name without what Google Benchmark appends: how time was taken, how often it ran."""
    return re.sub(r"(/(process_time|real_time|iterations:\d+))+$", "", listed)


def who_of(name):
    return name.rpartition("/")[2]


def by_cell(names):
    """Cell -> its benchmarks, both in the order in which they come."""
    cells = {}
    for name in names:
        cells.setdefault(name.rpartition("/")[0], []).append(name)
    return cells


def figures_of(entry):
    """The figures in one benchmark's entry of Google Benchmark's JSON; its times are in ms."""
    figures = {key: value for key, value in entry.items()
               if isinstance(value, (int, float)) and key not in NO_FIGURES}  # fmt: skip
    rate = entry.get("items_per_second")
    if rate:
        figures[TIME] = 1e6 / rate
        figures[RATE] = rate
        if "/process_time" in entry["name"]:
            figures[CPU_TIME] = figures[TIME] * entry["cpu_time"] / entry["real_time"]
    return figures


def spread(values):
    """The median, the least and the most; nothing of nothing."""
    return (statistics.median(values), min(values), max(values)) if values else None


def figure_spread(rounds, name, figure):
    return spread([each[name][figure] for each in rounds if figure in each.get(name, {})])


def ratio_spread(rounds, ours, theirs):
    """Theirs over ours, each a pair of a name and a figure, of the rounds that have both."""
    pairs = [[each.get(name, {}).get(figure) for name, figure in (theirs, ours)] for each in rounds]
    return spread([their / our for their, our in pairs if their is not None and our])

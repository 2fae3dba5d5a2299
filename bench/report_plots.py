"""The report's plots, as SVG files."""

import math

import matplotlib

matplotlib.use("svg")
matplotlib.rcParams.update({
    "svg.hashsalt": "report", "svg.fonttype": "none", "font.size": 9, "axes.grid": True,
    "grid.alpha": 0.3, "axes.axisbelow": True, "legend.frameon": False,
})  # fmt: skip

from matplotlib import pyplot
from matplotlib.ticker import FuncFormatter, NullLocator

from report_figures import (
    CPU_TIME, OURS, RATE, TIME, by_cell, by_stage, cell_of, percentile_of, spreads, stage_title,
    who_of,
)  # fmt: skip

COLOURS = {
    OURS: "black", "asio": "#0072b2", "tbb": "#e69f00", "caf": "#009e73", "student": "#d55e00",
    "hand_over": "#999999", "bare": "#cc79a7",
}  # fmt: skip


def draw(rounds, folder):
    """Draws what there is; returns a dictionary: what is shown -> the file's name."""
    measured = spreads(rounds)
    plots = {}

    def save(key, figure):
        name = key.replace("/", "-").replace(" ", "-") + ".svg"
        figure.savefig(folder / name, metadata={"Date": None}, bbox_inches="tight")
        pyplot.close(figure)
        plots[key] = name

    for cost, names in _by_cost(measured).items():
        save(f"throughput {cost}", _throughput(measured, names))
    for cell, names in by_cell(measured).items():
        if cell.startswith("growth/") and sum(who_of(name).isdigit() for name in names) > 1:
            save(cell, _curve(measured, names))
        elif any(percentile_of(f) for name in names for f in measured[name]) and len(names) > 1:
            save(cell, _bars(measured, names))
    return plots


def _by_cost(names):
    costs = {}
    for name in names:
        if name.startswith("throughput/"):
            costs.setdefault(name.split("/")[2], []).append(name)
    return costs


def _style(who):
    """The two settings of a peer share their colour."""
    kin = who.removesuffix("_cores")
    return {
        "color": COLOURS.get(kin, "#666666"),
        "linestyle": "--" if kin != who else "-",
        "linewidth": 2.5 if who == OURS else 1.3,
    }


def _mark_points(axis, points):
    """One mark for each number that was measured."""
    axis.set_ticks(sorted({x for line in points for x, _ in line}))
    axis.set_minor_locator(NullLocator())
    axis.set_major_formatter(FuncFormatter(lambda value, _: f"{value:,.0f}"))


def _mark_decades(axis):
    """Plain numbers: each power of ten, and twice and five times of it."""
    axis.set_major_formatter(FuncFormatter(lambda value, _: f"{value:g}"))
    axis.set_minor_formatter(
        FuncFormatter(lambda value, _: f"{value:g}" if f"{value:e}"[0] in "25" else "")
    )


def _decade_below(value):
    return 10 ** (math.ceil(math.log10(value)) - 1)


def _throughput(measured, names):
    figure, axes = pyplot.subplots(figsize=(7, 4))
    lines = {}
    for name in names:
        if TIME in measured[name]:
            lines.setdefault(who_of(name), []).append(
                (int(name.split("/")[1]), measured[name][TIME].median)
            )
    for who, points in lines.items():
        axes.plot(*zip(*sorted(points)), marker="o", markersize=3, label=who, **_style(who))
    axes.set(xscale="log", yscale="log", xlabel="sources", ylabel="µs per request")
    _mark_points(axes.xaxis, lines.values())
    _mark_decades(axes.yaxis)
    axes.legend(loc="center left", bbox_to_anchor=(1, 0.5))
    return figure


def _bars(measured, names):
    """Percentiles as groups of bars, one panel for each stage of a request's way."""
    percentiles = dict.fromkeys(f for name in names for f in measured[name] if percentile_of(f))
    stages = by_stage(percentiles)
    figure, panels = pyplot.subplots(
        1, len(stages), figsize=(4.5 * len(stages) + 1, 3.8), sharey=True, squeeze=False
    )
    width = 0.8 / len(names)
    for axes, (stage, shown) in zip(panels[0], stages.items()):
        groups = [percentile_of(figure)[1] for figure in shown]
        for index, name in enumerate(names):
            who = who_of(name)
            found = [measured[name].get(figure) for figure in shown]
            axes.bar(
                [x + (index + 0.5) * width - 0.4 for x in range(len(groups))],
                [f.median if f else 0 for f in found],
                width,
                label=who,
                color=_style(who)["color"],
                hatch="///" if who.endswith("_cores") else None,
                edgecolor="white",
                linewidth=0,
            )
        if stage == "read_handler":
            _mark_hand_over(axes, measured.get("latency/futex/hand_over", {}), groups)
        axes.set(yscale="log", title=stage_title(stage))
        axes.set_xticks(range(len(groups)), groups)
        axes.grid(visible=False, axis="x")
    lowest = min(bar.get_height() for axes in panels[0] for bar in axes.patches if bar.get_height())
    panels[0][0].set_ylim(bottom=_decade_below(lowest))
    _mark_decades(panels[0][0].yaxis)
    panels[0][0].set_ylabel("µs")
    legend = panels[0][0].get_legend_handles_labels()
    panels[0][-1].legend(*legend, loc="center left", bbox_to_anchor=(1, 0.5))
    return figure


def _mark_hand_over(axes, figures, groups):
    """The physical limit of what brings a request to another thread."""
    found = {percentile_of(figure)[1]: figures[figure].median for figure in figures
             if percentile_of(figure)}  # fmt: skip
    for x, percentile in enumerate(groups):
        if percentile in found:
            axes.hlines(found[percentile], x - 0.45, x + 0.45, color="red", linestyle=":",
                        label="bare futex" if x == 0 else None)  # fmt: skip


def _curve(measured, names):
    figure, axes = pyplot.subplots(figsize=(6, 3.6))
    lines = {}
    for name in names:
        for key, found in measured[name].items():
            if key not in (RATE, CPU_TIME) and found.median > 0:
                lines.setdefault(key, []).append((int(who_of(name)), found.median))
    for key, points in lines.items():
        label = "µs per request" if key == TIME else key.removesuffix("_us").replace("_", " ")
        axes.plot(*zip(*sorted(points)), marker="o", markersize=3, label=label)
    axes.set(xscale="symlog", yscale="log", ylabel="µs",
             xlabel=cell_of(names[0]).rpartition("/")[2].replace("_", " "))  # fmt: skip
    _mark_points(axes.xaxis, lines.values())
    axes.set_ylim(bottom=_decade_below(min(y for line in lines.values() for _, y in line)))
    _mark_decades(axes.yaxis)
    axes.legend()
    return figure

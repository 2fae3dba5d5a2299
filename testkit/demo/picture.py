#!/usr/bin/python3
"""Draws what a run of nats_demo has written down: picture.py RUN.JSON PICTURE.SVG"""

import json
import re
import sys
from datetime import datetime

import matplotlib

matplotlib.use("svg")
matplotlib.rcParams.update({
    "svg.hashsalt": "demo", "svg.fonttype": "none", "font.size": 9, "axes.grid": True,
    "grid.alpha": 0.3, "axes.axisbelow": True, "legend.frameon": False,
})  # fmt: skip

from matplotlib import pyplot

COLOURS = ["#0072b2", "#e69f00", "#009e73", "#cc79a7"]
_TENURE = re.compile(r"^(\S+ \S+) .*partition (\d+) is (not )?served here (now|any more: .*)$")


def tenures(hosts, end):
    """Who served which partition, by the hosts' logs: (partition, host, from, until), in seconds
    since 1970."""
    changes = []
    for name, host in hosts.items():
        if host["killed"]:
            changes.append((host["killed"], None, None, name))
        for line in host["log"].splitlines():
            if found := _TENURE.match(line):
                when = datetime.strptime(found[1], "%Y-%m-%d %H:%M:%S.%f").timestamp()
                changes.append((when, int(found[2]), None if found[3] else name, name))

    result, held = [], {}  # partition -> (host, from)
    for when, partition, owner, speaker in sorted(changes, key=lambda change: change[0]):
        for each in [partition] if partition is not None else sorted(held):
            # What a host lost or gave back may be another's already when it says so.
            if each in held and (owner or held[each][0] == speaker):
                result.append((each, *held.pop(each), when))
        if owner:
            held[partition] = owner, when
    return result + [(each, *held[each], end) for each in held]


def draw(file, start, answers, served, marks):
    """`answers`: (seconds since `start`, answers per second); `marks`: (when, text)."""
    figure, (above, below) = pyplot.subplots(
        2, 1, sharex=True, figsize=(9, 5), height_ratios=[3, 2], layout="constrained"
    )
    above.step(*zip(*answers), where="pre", color="black", linewidth=1)
    above.set(ylabel="answers per second", xlim=(0, answers[-1][0]))
    above.set_ylim(bottom=0)

    hosts = sorted({host for _, host, _, _ in served})
    for host, colour in zip(hosts, COLOURS):
        for partition, who, begin, until in served:
            if who == host:
                below.broken_barh([(begin - start, until - begin)], (partition - 0.4, 0.8),
                                  color=colour)  # fmt: skip
        below.broken_barh([], (0, 0), color=colour, label=host)
    partitions = sorted({partition for partition, _, _, _ in served})
    below.set_yticks(partitions)
    below.set(xlabel="seconds", ylabel="partition served by", ylim=(max(partitions) + 0.6, -0.6))
    below.legend(loc="center left", bbox_to_anchor=(1, 0.5))

    for when, text in marks:
        for axes in (above, below):
            axes.axvline(when - start, color="#d55e00", linestyle="--", linewidth=1.2)
        above.annotate(text, (when - start, 1), xycoords=("data", "axes fraction"), xytext=(0, 3),
                       textcoords="offset points", color="#d55e00", rotation=12)  # fmt: skip
    figure.savefig(file, metadata={"Date": None})


def main():
    if len(sys.argv) != 3:
        sys.exit("usage: picture.py RUN.JSON PICTURE.SVG")
    with open(sys.argv[1]) as file:
        run = json.load(file)
    start, answers = run["start"], run["answers"]
    rates = [(seconds, count / run["step"]) for seconds, count in answers]
    served = tenures(run["hosts"], start + answers[-1][0])
    draw(sys.argv[2], start, rates, served, run["marks"])
    print(f"5. Answers over time, and who served what: {sys.argv[2]}")


main()

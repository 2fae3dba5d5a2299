#!/usr/bin/python3
"""Runs the benchmark programs of a build round by round and reports what came out.

    report.py BUILD_DIR            measures, and writes BUILD_DIR/report.md with its plots
    report.py BUILD_DIR --resume   goes on with a measurement that was interrupted
    report.py BUILD_DIR --reuse    measures nothing: reports on the rounds that are there
    report.py BUILD_DIR --check    measures the quick version; fails where a ratio fell too low

A round is one run of every benchmark. The contestants of a cell run next to each other, in an order
that changes from round to round; ratios are taken within a round and the report tells their median.
The raw results stay in BUILD_DIR/report/round-*.json (of a check: BUILD_DIR/check/).
"""

import argparse
import importlib.util
import signal
import statistics
import sys
from pathlib import Path

import report_aims
import report_rounds
from report_page import Page
from report_rounds import Failure, say


def arguments():
    parser = argparse.ArgumentParser(
        description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter
    )
    parser.add_argument("build_dir", type=Path, metavar="BUILD_DIR")
    parser.add_argument("--rounds", type=int, metavar="N", help="5; of the quick version 3")
    parser.add_argument("--min-time", type=float, default=0.3, metavar="SECONDS",
                        help="of each benchmark in each round (%(default)s)")  # fmt: skip
    parser.add_argument("--quick", action="store_true",
                        help="only what the aims speak of, without 512 sources"
                        " and three servers")  # fmt: skip
    parser.add_argument("--check", action="store_true", help="the quick version, and no report")
    stored = parser.add_mutually_exclusive_group()
    stored.add_argument("--resume", action="store_true", help="keep the rounds that are there")
    stored.add_argument("--reuse", action="store_true", help="run nothing")
    options = parser.parse_args()
    options.quick |= options.check
    if options.rounds is None:
        options.rounds = 3 if options.quick else 5
    if options.rounds < 1:
        parser.error("--rounds must be at least 1")
    return options


def measure(options, folder):
    """Leaves the results in files. Returns what went wrong and is not in the rounds' files."""
    only = report_aims.names_of(report_aims.quick_aims()) if options.quick else None
    measurement = report_rounds.Measurement(
        options.build_dir, folder, options.rounds, options.min_time, only
    )
    if not options.resume:
        measurement.start_afresh()
    measurement.measure()
    if options.check:
        return []
    try:
        report_rounds.measure_paths(options.build_dir, folder)
        return []
    except Failure as failure:
        return [str(failure)]


def are_quick(files):
    return any(file.data["quick"] for file in files)


def about(files):
    """With what it was measured: each fact once, or all that the rounds say where they differ."""
    facts = {}
    for file in files:
        for key, fact in file.data["machine"].items():
            facts.setdefault(key, {})[fact] = None
    others = [result["others"] for file in files for result in file.results.values()]
    min_time = files[0].data["min_time"]
    told = {key: "; ".join(found) for key, found in facts.items()}
    told["rounds"] = f"{len(files)}, each benchmark for at least {min_time} s in each"
    if are_quick(files):
        told["left out"] = (
            "what no aim speaks of, 512 sources, and three servers: this is the quick version"
        )
    if others:
        told["other processes"] = (
            f"had {statistics.median(others):.0%} of the processors while a benchmark ran"
            f" (median; at most {max(others):.0%})"
        )
    return told


def write_report(options, folder, errors):
    import report_plots  # needs a package that a check does without

    files = report_rounds.stored_rounds(folder)
    rounds = [file.figures() for file in files]
    aims = report_aims.quick_aims() if are_quick(files) else report_aims.AIMS
    plots = {
        key: f"{folder.name}/{name}" for key, name in report_plots.draw(rounds, folder).items()
    }
    page = Page(rounds, plots)
    errors = [*errors, *[error for file in files for error in file.errors()]]
    text = page.text(
        about(files), report_aims.judge(rounds, aims), report_rounds.stored_paths(folder), errors
    )
    target = options.build_dir / "report.md"
    target.write_text(text)
    say(f"{target} is written")
    return not errors


def check(folder):
    """Whether every ratio of the quick version is where it has to be; says which is not."""
    rounds = [file.figures() for file in report_rounds.stored_rounds(folder)]
    verdicts = report_aims.judge(rounds, report_aims.quick_aims())
    for verdict in verdicts:
        ratio = f"{verdict.measured.median:.2f}" if verdict.measured else "not measured"
        say(f"{'ok    ' if verdict.holds else 'FAILED'} {verdict.pair.title}: {ratio}, "
            f"at least {verdict.floor:.2f} (aim {verdict.aim.least:.2f})")  # fmt: skip
    failed = sum(not verdict.holds for verdict in verdicts)
    say(f"{failed} of {len(verdicts)} ratios are too low" if failed else "all ratios hold")
    return failed == 0


def need_matplotlib():
    if not importlib.util.find_spec("matplotlib"):
        raise Failure("matplotlib is missing (Debian package python3-matplotlib)")


def main():
    options = arguments()
    folder = options.build_dir / ("check" if options.check else "report")
    if not options.check:
        need_matplotlib()
    errors = [] if options.reuse else measure(options, folder)
    done = check(folder) if options.check else write_report(options, folder, errors)
    return 0 if done else 1


if __name__ == "__main__":
    signal.signal(signal.SIGTERM, lambda *_: sys.exit(143))
    try:
        sys.exit(main())
    except Failure as failure:
        say(str(failure))
        sys.exit(1)
    except KeyboardInterrupt:
        say("interrupted; --resume goes on from here")
        sys.exit(130)

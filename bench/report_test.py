"""Tests of the report: its arithmetic, its judgement, and what it does when a program fails."""

import tempfile
import unittest
from pathlib import Path
from unittest import mock

import report
from report_aims import AIMS, Aim, failures
from report_figures import CPU_TIME, TIME, figures_of, ratio_spread, short_name
from report_page import number, page, split_percentile

OURS = "throughput/8/2us/mirel"
THEIRS = "throughput/8/2us/asio"
AIM = Aim("throughput/8/2us", "asio", 2.0, 1.5)

# Stands for a benchmark program whose second benchmark crashes.
PROGRAM = """#!/bin/sh
case $1 in
--benchmark_list_tests) echo "t/1/mirel/real_time"; echo "t/1/asio/real_time"; exit ;;
*asio*) echo "out of luck" >&2; kill -SEGV $$ ;;
esac
echo '{"benchmarks": [{"name": "t/1/mirel/real_time", "real_time": 2, "items_per_second": 5e5}]}'
"""


def rounds_of(*times):
    """A round for each pair of times, ours first; None is a benchmark that is missing."""
    return [{n: {TIME: t} for n, t in zip((OURS, THEIRS), both) if t} for both in times]


class ReportTest(unittest.TestCase):
    def test_times_are_per_request_and_in_microseconds(self):
        entry = {"name": OURS + "/process_time/real_time", "real_time": 10.0, "cpu_time": 15.0,
                 "items_per_second": 200_000.0, "iterations": 3, "p50": 1.5}  # fmt: skip
        figures = figures_of(entry)  # of 2000 requests in 10 ms
        self.assertEqual((figures[TIME], figures[CPU_TIME], figures["p50"]), (5.0, 7.5, 1.5))
        self.assertNotIn("iterations", figures)
        # Without the suffix the processor time is that of one thread.
        self.assertNotIn(CPU_TIME, figures_of(entry | {"name": OURS + "/real_time"}))

    def test_ratios_are_taken_within_a_round_that_has_both(self):
        # The machine is ten times slower in the second round; the medians' ratio would be 20 / 3.
        rounds = rounds_of((1, 2), (10, 30), (3, 21), (1, None), (None, 9))
        self.assertEqual(ratio_spread(rounds, (OURS, TIME), (THEIRS, TIME)), (3, 2, 7))

    def test_names_and_numbers(self):
        self.assertEqual(short_name("growth/memory/x/iterations:1/real_time"), "growth/memory/x")
        self.assertEqual(split_percentile("read_handler_p999"), ("read handler", "p99.9, µs"))
        self.assertEqual(split_percentile("drain_us"), ("", "drain, µs"))
        found = [number(value) for value in (0, 0.01234, 1.0, 45.67, 1234567.8, -2.345)]
        self.assertEqual(found, ["0", "0.0123", "1.00", "45.7", "1,234,568", "-2.35"])

    def test_a_median_below_its_floor_fails_and_so_does_what_was_not_measured(self):
        for times, failed in [
            ([(1, 1.5)], 0), ([(1, 1.49)], 1), ([(1, 0.1), (1, 2), (1, 9)], 0),
            ([(1, None)], 1), ([], 1),
        ]:  # fmt: skip
            with self.subTest(times):
                self.assertEqual(len(failures(rounds_of(*times), [AIM])), failed)

    def test_an_aim_may_speak_of_a_figure_and_of_two(self):
        rounds = [{OURS: {"p50": 2, "p99": 8}, THEIRS: {"p50": 3, "p99": 4}}]
        for aim, ratio in [
            (Aim("throughput/8/2us", "asio", 1, 0, "p99"), 0.5),
            (Aim("throughput/8/2us", "mirel", 1, 0, "p99", "p50"), 0.25),
        ]:  # fmt: skip
            self.assertEqual(aim.measured(rounds)[0], ratio)

    def test_each_cell_is_asked_once_and_for_no_more_than_its_aim(self):
        self.assertEqual(len({aim.compared for aim in AIMS}), len(AIMS))
        self.assertTrue(all(aim.floor < aim.least for aim in AIMS))

    def test_a_crash_and_a_missing_program_are_told_and_cost_nothing_else(self):
        with tempfile.TemporaryDirectory() as folder, mock.patch.object(report, "say"):
            program = Path(folder, "throughput_bench")
            program.write_text(PROGRAM)
            program.chmod(0o755)
            measurement = report.Measurement(Path(folder))
            measurement.measure_round()
        self.assertEqual({n: f[TIME] for n, f in measurement.rounds[0].items()}, {"t/1/mirel": 2.0})
        self.assertIn("channel_bench: No such file or directory", measurement.errors)
        self.assertIn("t/1/asio: throughput_bench ended with -11: out of luck", measurement.errors)

    def test_each_round_has_another_first_contestant_and_all_benchmarks(self):
        names = ["t/1/a", "t/1/b", "t/8/a", "t/8/b"]
        self.assertEqual(report.in_turn(names, 1), names)
        self.assertEqual(report.in_turn(names, 2), ["t/8/b", "t/8/a", "t/1/b", "t/1/a"])

    def test_the_page_tells_figures_ratios_aims_and_what_failed(self):
        rounds = rounds_of((1.25, 5.0))
        rounds[0]["growth/memory/worker"] = {"resident_bytes": 4711.0}
        text = page({}, list(rounds[0]), rounds, [AIM], {}, ["no luck"])
        for expected in ("| mirel | 1.25 |", "| asio | 4.00 |", "4,711", "no luck", "| yes |"):
            self.assertIn(expected, text)


if __name__ == "__main__":
    unittest.main()

"""Tests of the report: its arithmetic, its judgement, and what it does when a program fails."""

import tempfile
import unittest
from pathlib import Path
from unittest import mock

import report_aims
import report_rounds
from report_aims import Aim, Shortfall, judge
from report_figures import (
    CPU_TIME, TIME, Pair, figures_of, percentile_of, short_name, spread,
)  # fmt: skip
from report_page import Page, number

OURS = "throughput/8/2us/mirel"
THEIRS = "throughput/8/2us/asio"


def rounds_of(*times):
    """A round for each pair of times, ours first; None is a benchmark that is missing."""
    names = OURS, THEIRS
    return [{n: {TIME: t} for n, t in zip(names, both) if t is not None} for both in times]


def entry(**more):
    usual = {"name": OURS + "/process_time/real_time", "iterations": 3, "real_time": 10.0,
             "cpu_time": 15.0, "time_unit": "ms", "threads": 1}  # fmt: skip
    return usual | more


class Names(unittest.TestCase):
    def test_what_google_benchmark_appends_is_no_part_of_a_name(self):
        self.assertEqual(short_name(OURS + "/process_time/real_time"), OURS)
        self.assertEqual(
            short_name("growth/memory/worker/iterations:1/real_time"), "growth/memory/worker"
        )

    def test_percentiles_are_told_from_other_figures(self):
        self.assertEqual(percentile_of("read_handler_p999"), ("read_handler", "p99.9"))
        self.assertEqual(percentile_of("p50_us"), ("", "p50"))
        self.assertIsNone(percentile_of("rate"))
        self.assertIsNone(percentile_of("top50"))

    def test_each_round_has_another_first_contestant_and_all_benchmarks(self):
        names = ["t/1/a", "t/1/b", "t/8/a", "t/8/b"]
        self.assertEqual(report_rounds.in_turn(names, 1), names)
        self.assertEqual(report_rounds.in_turn(names, 2), ["t/8/b", "t/8/a", "t/1/b", "t/1/a"])


class Figures(unittest.TestCase):
    def test_times_are_per_request_and_in_microseconds(self):
        figures = figures_of(entry(items_per_second=200_000.0))  # 2000 in 10 ms
        self.assertAlmostEqual(figures[TIME], 5.0)
        self.assertAlmostEqual(figures[CPU_TIME], 7.5)

    def test_processor_time_of_one_thread_is_not_taken_for_that_of_all(self):
        figures = figures_of(entry(name=OURS + "/real_time", items_per_second=200_000.0))
        self.assertNotIn(CPU_TIME, figures)

    def test_counters_are_figures_and_stand_for_the_time(self):
        self.assertEqual(figures_of(entry(p50_us=1.5, label="x")), {"p50_us": 1.5})
        self.assertEqual(figures_of(entry()), {TIME: 10_000.0})
        self.assertEqual(figures_of(entry(p50=float("nan"), rate=2.0)), {"rate": 2.0})


class Ratios(unittest.TestCase):
    def test_are_taken_within_a_round(self):
        # The machine is ten times slower in the second round; the medians' ratio would be 20 / 3.
        rounds = rounds_of((1, 2), (10, 30), (3, 20))
        ratios = spread(Pair(OURS, THEIRS).ratios(rounds))
        self.assertEqual((ratios.median, ratios.least), (3, 2))
        self.assertAlmostEqual(ratios.most, 20 / 3)

    def test_leave_out_a_round_that_lacks_one_of_both(self):
        rounds = rounds_of((1, 2), (1, None), (None, 9), (0, 9))
        self.assertEqual(Pair(OURS, THEIRS).ratios(rounds), [2])
        self.assertIsNone(spread([]))


class Judgements(unittest.TestCase):
    aims = (Aim("asio", 2.0, (Pair(OURS, THEIRS),)),)
    title = "throughput/8/2us: asio"

    def verdict(self, rounds, shortfalls=None):
        (verdict,) = judge(rounds, self.aims, shortfalls or {})
        return verdict.reached, verdict.holds

    def test_a_ratio_may_fall_a_quarter_below_its_aim(self):
        self.assertEqual(self.verdict(rounds_of((1, 2.0))), (True, True))
        self.assertEqual(self.verdict(rounds_of((1, 1.5))), (False, True))
        self.assertEqual(self.verdict(rounds_of((1, 1.49))), (False, False))

    def test_the_median_counts(self):
        self.assertEqual(self.verdict(rounds_of((1, 0.1), (1, 2), (1, 9))), (True, True))

    def test_what_was_not_measured_is_not_reached_and_does_not_hold(self):
        self.assertEqual(self.verdict(rounds_of((1, None))), (False, False))
        self.assertEqual(self.verdict([]), (False, False))

    def test_a_known_shortfall_has_its_own_floor(self):
        known = {self.title: Shortfall(0.8, "for a reason")}
        self.assertEqual(self.verdict(rounds_of((1, 0.8)), known), (False, True))
        self.assertEqual(self.verdict(rounds_of((1, 0.79)), known), (False, False))

    def test_every_known_shortfall_is_one_of_an_aim(self):
        aims = {pair.title: aim for aim in report_aims.AIMS for pair in aim.pairs}
        self.assertEqual(len(aims), sum(len(aim.pairs) for aim in report_aims.AIMS))
        for title, known in report_aims.SHORTFALLS.items():
            self.assertIn(title, aims)
            self.assertLess(known.floor, aims[title].least)
            self.assertTrue(known.reason)

    def test_the_quick_version_has_something_of_every_aim(self):
        self.assertTrue(all(aim.pairs for aim in report_aims.quick_aims()))


# Stands for a benchmark program: notes that it was run, and crashes where it is told to.
PROGRAM = """#!/bin/sh
folder=$(dirname "$0")
case $1 in
--benchmark_list_tests) echo "t/1/mirel/real_time"; echo "t/1/asio/real_time"; exit ;;
*mirel*) name=mirel ;;
*) name=asio ;;
esac
echo $name >>"$folder/runs"
[ -e "$folder/crash_$name" ] && { echo "out of luck" >&2; kill -SEGV $$; }
for argument; do
    case $argument in --benchmark_out=*) file=${argument#*=} ;; esac
done
echo '{"benchmarks": [
    {"name": "t/1/'$name'/real_time", "real_time": 2, "time_unit": "us"}]}' >"$file"
"""


class Measuring(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.build_dir = Path(folder.name)
        self.results = self.build_dir / "report"
        self.results.mkdir()
        self.bin = self.build_dir / "bin"
        self.bin.mkdir()
        self.write_program(PROGRAM)
        self.enterContext(mock.patch.object(report_rounds, "say"))

    def write_program(self, text):
        program = self.bin / "throughput_bench"
        program.write_text(text)
        program.chmod(0o755)

    def measure(self, rounds=1):
        report_rounds.Measurement(self.build_dir, self.results, rounds, 0.1).measure()
        return report_rounds.stored_rounds(self.results)

    def runs(self):
        return (self.bin / "runs").read_text().split()

    def test_a_crash_is_told_and_costs_one_result_which_is_measured_again(self):
        (self.bin / "crash_mirel").touch()
        (file,) = self.measure()
        self.assertEqual(list(file.figures()), ["t/1/asio"])
        self.assertIn("t/1/mirel: throughput_bench ended with -11: out of luck", file.errors())
        (self.bin / "crash_mirel").unlink()
        (file,) = self.measure()
        self.assertEqual(file.figures(), {"t/1/mirel": {TIME: 2.0}, "t/1/asio": {TIME: 2.0}})
        self.assertEqual(self.runs(), ["mirel", "asio", "mirel"])

    def test_a_program_that_was_not_built_is_told(self):
        (file,) = self.measure()
        self.assertIn("channel_bench is not there: it was not built", file.errors())
        self.assertEqual(len(file.figures()), 2)

    def test_rounds_of_different_builds_are_not_mixed(self):
        self.measure()
        self.write_program(PROGRAM + "# another one")
        with self.assertRaisesRegex(report_rounds.Failure, "round 1 is of another build"):
            self.measure(rounds=2)


class Pages(unittest.TestCase):
    def test_have_every_figure_also_of_a_kind_that_nobody_knows(self):
        rounds = rounds_of((1.25, 5.0))
        rounds[0]["new/kind/mirel"] = {"things": 4711.0}
        text = Page(rounds, {}).text({}, judge(rounds, Judgements.aims, {}), {}, ["no luck"])
        for expected in ("| mirel | 1.25 |", "| asio | 4.00 |", "4,711", "no luck", "| yes |"):
            self.assertIn(expected, text)

    def test_numbers_keep_three_digits(self):
        found = [number(value) for value in (0, 0.01234, 1.0, 45.67, 1234567.8, -2.345)]
        self.assertEqual(found, ["0", "0.0123", "1.00", "45.7", "1,234,568", "-2.35"])


if __name__ == "__main__":
    unittest.main()

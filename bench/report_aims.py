"""What is to be reached, and what was.

All aims on times are ratios: the contestant's time over ours, so that more is better for us.
"""

from dataclasses import dataclass

from report_figures import OURS, Pair, Spread, spread

ALL_COSTS = ("0us", "2us", "20us", "1000us_blocking")

# A ratio of the quick version may fall this far below its aim before the check fails: a few rounds
# on a machine that does other things as well.
TOLERANCE = 0.25


@dataclass(frozen=True)
class Aim:
    against: str
    least: float
    pairs: tuple


@dataclass(frozen=True)
class Shortfall:
    """A cell that is known not to reach its aim: what the check asks of it instead, and why."""

    floor: float
    reason: str


def throughput(contestants, sources, costs):
    return tuple(
        Pair(f"throughput/{count}/{cost}/{OURS}", f"throughput/{count}/{cost}/{who}")
        for cost in costs
        for count in sources
        for who in contestants
    )


AIMS = (
    Aim("Asio, as many threads as sources", 2.0,
        throughput(["asio"], [8, 64, 512], ["0us", "2us"])),
    Aim("Asio, as many threads as sources", 1.3,
        throughput(["asio"], [64, 512], ["20us"])),
    Aim("the student's pool, as many threads as sources", 2.0,
        throughput(["student"], [8, 64, 512], ALL_COSTS)),
    Aim("Asio, threads = cores", 0.9,
        throughput(["asio_cores"], [1, 8, 64, 512], ["20us"])),
    Aim("Asio, threads = cores", 1.0,
        throughput(["asio_cores"], [1], ["0us", "2us"])),
    Aim("Asio, CAF, TBB, threads = cores", 20.0,
        throughput(["asio_cores", "caf_cores", "tbb_cores"], [64], ["1000us_blocking"])),
    Aim("bare futex hand-over: ours within 1.5 of it, read to handler, p50", 1 / 1.5,
        # Where the two threads run decides most: as the system places them, and bound.
        tuple(Pair(f"latency/closed{place}/1/0us/{OURS}", f"latency/futex/hand_over{place}",
                   "read_handler_p50", "hand_over_p50")
              for place in ("", "_one_core", "_two_cores"))),
    Aim("bare ZeroMQ echo: at least half of its rate", 0.5,
        tuple(Pair(f"channel/saturated/{count}/{OURS}", f"channel/saturated/{count}/bare")
              for count in (1, 8))),
    Aim("bare loop over NATS JetStream: at least 0.6 of its rate", 0.6,
        tuple(Pair(f"nats/{cell}/{OURS}", f"nats/{cell}/bare")
              for cell in ("saturated/8", "saturated/64", "replicated/64"))),
)  # fmt: skip

WAKES_EACH = ("most requests find their worker asleep, so each costs a wake-up, and a change of"
              " threads on the other core")  # fmt: skip
FAIR_SHARE = ("hundreds of workers that can run leave the executor's thread a small share of its"
              " core, so it gets no lead on them and most requests cost a wake-up")  # fmt: skip
TWO_CORES = ("the handlers alone keep two cores busy for nearly as long as the contestant takes:"
             " nobody could reach the aim")  # fmt: skip
SLEEPING = "the handlers sleep, and both sides do nothing but wait for them"
SOCKETS = ("two more changes of threads for each request and each answer, and messages that are"
           " packed and unpacked; see docs/performance.md")  # fmt: skip
CONFIRMED = ("answers that the caller confirms, which is a fourth message for the server to take"
             " and to pass on, a subject for each source, and twice as many changes of threads")

# Pair.title -> Shortfall. The floors are three quarters of the least that three rounds on a quiet
# machine with two cores gave.
SHORTFALLS = {
    "throughput/8/0us: asio": Shortfall(0.9, WAKES_EACH),
    "throughput/512/0us: asio": Shortfall(0.9, FAIR_SHARE),
    "throughput/8/2us: asio": Shortfall(0.7, WAKES_EACH),
    "throughput/512/2us: asio": Shortfall(0.9, FAIR_SHARE),
    "throughput/512/20us: asio": Shortfall(0.9, FAIR_SHARE),
    "throughput/64/0us: student": Shortfall(1.0, WAKES_EACH),
    "throughput/512/0us: student": Shortfall(0.7, FAIR_SHARE),
    "throughput/64/2us: student": Shortfall(1.3, WAKES_EACH),
    "throughput/512/2us: student": Shortfall(0.8, FAIR_SHARE),
    "throughput/8/20us: student": Shortfall(0.7, TWO_CORES),
    "throughput/64/20us: student": Shortfall(0.9, TWO_CORES),
    "throughput/512/20us: student": Shortfall(0.7, FAIR_SHARE),
    "throughput/8/1000us_blocking: student": Shortfall(0.7, SLEEPING),
    "throughput/64/1000us_blocking: student": Shortfall(0.7, SLEEPING),
    "throughput/512/1000us_blocking: student": Shortfall(0.6, SLEEPING),
    "throughput/64/20us: asio_cores": Shortfall(0.6, FAIR_SHARE),
    "throughput/512/20us: asio_cores": Shortfall(0.48, FAIR_SHARE),
    "throughput/1/0us: asio_cores": Shortfall(
        0.68, "runs fall into two kinds: in one the executor's thread has a lead and the worker never"
        " sleeps, in the other it is woken again and again"),
    "throughput/1/2us: asio_cores": Shortfall(
        0.7, "the handler's 2 us and what the worker does around it follow each other"),
    "latency/closed_one_core/1/0us: hand_over_one_core": Shortfall(
        0.42, "on one core a bare hand-over takes 1.1 us, and the library's dispatch of 3,000"
        " instructions lies before ours"),
    "channel/saturated/1: bare": Shortfall(0.22, SOCKETS),
    "channel/saturated/8: bare": Shortfall(0.2, SOCKETS),
    "nats/saturated/8: bare": Shortfall(0.41, CONFIRMED),
    "nats/saturated/64: bare": Shortfall(0.31, CONFIRMED),
    "nats/replicated/64: bare": Shortfall(0.30, CONFIRMED),
}  # fmt: skip


@dataclass(frozen=True)
class Verdict:
    aim: Aim
    pair: Pair
    measured: Spread | None
    floor: float
    reason: str = ""

    @property
    def reached(self):
        return self.measured is not None and self.measured.median >= self.aim.least

    @property
    def holds(self):
        return self.measured is not None and self.measured.median >= self.floor


def judge(rounds, aims=AIMS, shortfalls=SHORTFALLS):
    """A verdict on every pair of every aim, also where nothing was measured."""
    verdicts = []
    for aim in aims:
        for pair in aim.pairs:
            known = shortfalls.get(pair.title, Shortfall(aim.least * (1 - TOLERANCE), ""))
            measured = spread(pair.ratios(rounds))
            verdicts.append(Verdict(aim, pair, measured, known.floor, known.reason))
    return verdicts


def is_quick(name):
    """512 sources take as long as all others together, and the figures of three servers say most
    about how these share the machine."""
    return "/512/" not in name and not name.startswith("nats/replicated/")


def quick_aims():
    return tuple(
        Aim(aim.against, aim.least, tuple(pair for pair in aim.pairs if is_quick(pair.ours)))
        for aim in AIMS
    )


def names_of(aims):
    """The benchmarks that the aims speak of."""
    return {name for aim in aims for pair in aim.pairs for name in (pair.ours, pair.theirs)}

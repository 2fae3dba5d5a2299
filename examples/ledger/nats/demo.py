#!/usr/bin/python3
"""Shows that a service goes on when a node of its NATS cluster is killed, and then one host.

    demo.py BUILD_DIR    exits with 0 when everything came out as it should; leaves a picture
"""

import contextlib
import json
import os
import re
import signal
import sys
import tempfile
import time
from datetime import datetime
from pathlib import Path

import book
import picture
from programs import Cluster, Failure, Program

SOURCES = 64
PARTITIONS = 4
UNACKNOWLEDGED = 256  # of each partition, at most: mirel-host's default
TRIAL = 3000  # requests
SECONDS = 8  # that the load would last if nobody was killed
STEP = 0.1  # seconds, of mirel-call's timeline
LIMIT = 110  # seconds; then something hangs
SIGNALS = (signal.SIGALRM, signal.SIGHUP, signal.SIGINT, signal.SIGTERM)


def say(text):
    print(text, flush=True)


class Demo:
    def __init__(self, build, folder, stack, cluster):
        self._build = build
        self._folder = folder
        self._book = folder / "book"
        self._book.mkdir()
        self._stack = stack
        self._cluster = cluster
        self._url = cluster.url("book")
        self._hosts = {}
        self._deaths = {}  # host -> when
        self._marks = []  # (when, text)
        self.each = 0  # requests of each source; see choose_size

    def _program(self, *arguments, **more):
        return self._stack.enter_context(Program(*arguments, **more))

    def start_host(self, name):
        host = self._hosts[name] = self._program(
            name,
            [self._build / "bin/mirel-host", "--library", self._build / "examples/libledger.so",
             "--creator", "createBook", "--interface", "Book", "--channel", self._url,
             "--patience", "20000", "--partitions", PARTITIONS, "--replicas", 3, "--lease", 2000,
             "--log", "3,NatsLeases=4"],
            env={**os.environ, "LEDGER_BOOK": str(self._book)},
        )  # fmt: skip
        host.wait_for_text("serving")
        share = PARTITIONS // len(self._hosts)
        host.wait_for(
            f"{share} partitions", lambda: len(re.findall(r"\d is ours", host.output())) >= share
        )

    def _call(self, *arguments, **more):
        return self._program("mirel-call", [
            self._build / "bin/mirel-call", "--channel", self._url, "--deadline", 60000, *arguments,
        ], **more)  # fmt: skip

    def _load(self, source, requests, *arguments, **more):
        return self._call(
            "--load", requests, "--sources", SOURCES, "--source", source, "--interface", "Book",
            "--protocol", "text", "--data", "post {source} {n}", *arguments, **more,
        )  # fmt: skip

    def choose_size(self):
        """So many requests of each source that the load lasts long enough on this machine."""
        trial = self._load("trial", TRIAL)
        if trial.wait_for_end() != 0:
            raise Failure(f"the trial did not go through\n{trial.output()}")
        rate = int(re.search(r"throughput: (\d+)", trial.output())[1])
        self.each = max(50, rate * SECONDS // SOURCES)
        return rate

    def run_load(self):
        requests = self.each * SOURCES
        plan = [(0.25, self._kill_node), (0.55, self._kill_host), (0.8, self._restart_node)]
        rows, told = [], 0
        reading, writing = os.pipe()
        load = self._load(
            "account", requests, "--timeline", f"/dev/fd/{writing}", pass_fds=[writing]
        )
        os.close(writing)
        with open(reading) as timeline:
            for line in timeline:
                if line.startswith("seconds"):
                    start = time.time()
                    continue
                seconds, count = line.split(",")
                rows.append((float(seconds), int(count)))
                told += int(count)
                while plan and told >= plan[0][0] * requests:
                    plan.pop(0)[1]()
        if load.wait_for_end() != 0:
            raise Failure(f"the load did not go through\n{load.output()}")
        if plan:
            raise Failure("the load ended before all was done to the service")
        if told != requests:
            raise Failure(f"the timeline tells of {told} answers instead of {requests}")
        self._start, self._rows = start, rows

    def _mark(self, text):
        self._marks.append((time.time(), text))
        return self._marks[-1][0]

    def _kill_node(self):
        self._node = self._cluster.leader_of("book")
        self._mark(f"{self._node} killed")
        self._cluster.kill(self._node)
        say(f"     SIGKILL to {self._node}, which leads the stream of requests")

    def _kill_host(self):
        name, host = next(iter(self._hosts.items()))
        self._deaths[name] = self._mark(f"{name} killed")
        host.kill()
        say(f"     SIGKILL to {name}")

    def _restart_node(self):
        self._mark(f"{self._node} back")
        self._cluster.start(self._node)
        say(f"     {self._node} is started again")

    def pause(self):
        """The longest time without any answer."""
        longest = last = 0.0
        for seconds, count in self._rows:
            if count:
                longest, last = max(longest, seconds - last - STEP), seconds
        return longest

    def check_files(self):
        """What ran, by the accounts' files; returns how many postings ran once more."""
        hosts = {host.pid for host in self._hosts.values()}
        found = [
            book.check_account(self._book / f"account-{i + 1}", self.each, hosts)
            for i in range(SOURCES)
        ]
        repeated = sum(each for each, _ in found)
        handovers = max(turns for _, turns in found) - 1
        if handovers == 0:
            raise Failure("no account has changed its host")
        if repeated > handovers * PARTITIONS * UNACKNOWLEDGED:
            raise Failure(f"{repeated} postings ran once more, more than can be unacknowledged")
        return repeated

    def check_balances(self):
        """What the service says itself."""
        balance = self.each * (self.each + 1) // 2
        accounts = [f"account-{i + 1}" for i in range(SOURCES)]
        statements = self._folder / "statements"
        statements.write_text("".join(
            json.dumps({"kind": "request", "source": account, "interface": "Book",
                        "protocol": "text", "data": f"statement {account}"}) + "\n"
            for account in accounts
        ))  # fmt: skip
        call = self._call("--input", statements)
        call.wait_for_end()
        told = set(call.output().splitlines())
        for account in accounts:
            if f"{account}: {account} {balance}" not in told:
                raise Failure(f"{account} does not hold {balance}\n{call.output()[-2000:]}")
        return balance

    def stop_hosts(self):
        for name, host in self._hosts.items():
            if name not in self._deaths:
                host.terminate()
                if (status := host.wait_for_end()) != 0:
                    raise Failure(f"{name} exited with {status}\n{host.output()[-2000:]}")

    def draw(self, file):
        end = self._start + self._rows[-1][0]
        picture.draw(
            file, self._start, [(seconds, count / STEP) for seconds, count in self._rows],
            picture.tenures(self._hosts, self._deaths, end), self._marks,
        )  # fmt: skip


def run(build, stack):
    folder = Path(stack.enter_context(tempfile.TemporaryDirectory(prefix="mirel-demo-")))
    say("1. Three NATS servers make a cluster, which keeps each request three times. Two hosts")
    say(f"   share the {PARTITIONS} partitions of a service whose accounts are files, a line a run.")
    demo = Demo(build, folder, stack, Cluster(folder, stack))
    demo.start_host("host A")
    demo.start_host("host B")
    rate = demo.choose_size()
    say(f"2. {SOURCES} sources post the numbers 1 to {demo.each:,} each to their accounts.")
    say(f"   (A trial made {rate:,} answers/s.)")
    say("   Meanwhile:")
    demo.run_load()
    say(f"     all {SOURCES * demo.each:,} requests are answered, each source's in order;")
    say(f"     the longest pause was {demo.pause():.1f} s")
    say("3. The accounts' files: every posting is there, in order; only a host that took over may")
    say("   have run again what its predecessor had not acknowledged, and that counts once.")
    say(f"     all are right; {demo.check_files()} postings ran once more")
    say("4. The host that is left tells every account's balance, the sum of its numbers.")
    say(f"     all {SOURCES} are {demo.check_balances():,}")
    demo.stop_hosts()
    file = build / "demo-nats.svg"
    demo.draw(file)
    say(f"5. Answers over time, and who served what: {file}")


def stop(number, _):
    for each in SIGNALS:
        signal.signal(each, signal.SIG_IGN)  # what follows cleans up, and is short
    if number == signal.SIGALRM:
        raise Failure(f"not done after {LIMIT} s")
    sys.exit(128 + number)


def write_logs(folder):
    file = folder / "demo-nats.log"
    file.write_text("".join(
        f"{datetime.fromtimestamp(when):%H:%M:%S.%f} {name}: {text}\n"
        for when, name, text in Program.everything()
    ))  # fmt: skip
    return file


def main():
    if len(sys.argv) != 2:
        sys.exit("usage: demo.py BUILD_DIR")
    for number in SIGNALS:
        signal.signal(number, stop)
    signal.alarm(LIMIT)
    try:
        with contextlib.ExitStack() as stack:
            run(Path(sys.argv[1]), stack)
    except Failure as failure:
        log = write_logs(Path(sys.argv[1]))
        sys.exit(f"demo: {failure}\n      what the programs said is in {log}")


main()

#!/usr/bin/python3
"""How long a service over NATS is away when a host or a server dies: nats_failures.py BUILD_DIR.

Three servers keep three copies, two hosts share four partitions, and two sources of each partition
post requests of some milliseconds, each with several on their way and from a program of its own, so
that no source waits for another one's. Then somebody is killed. A line a run, in seconds from the
kill: the server's last election, the last lease that was taken, and for the partitions that moved
and those that did not, the first answer and the full rate of the last of them."""

import argparse
import os
import re
import shutil
import signal
import socket
import statistics
import subprocess
import sys
import tempfile
import threading
import time
from datetime import datetime, timedelta

PARTITIONS = 4
SOURCES = 8
WORK_US = 5000  # of each request
STEP = 0.1  # of mirel-call's timeline, in seconds
STEADY = 3.0  # seconds before the kill
WATCHED = 30.0  # and at most after it
FULL = 0.8  # of the steady rate, over half a second
EVENTS = {
    "host": "a host is killed",
    "degraded": "a host is killed while one server of three is down",
    "leader": "the server that leads the stream is killed",
}


def partition_of(source):
    """As the callers do: FNV-1a, 64 bits."""
    value = 14695981039346656037
    for byte in source.encode():
        value = (value ^ byte) * 1099511628211 % 2**64
    return value % PARTITIONS


def source_names():
    """Bases of names; the sources are called BASE-1. Each partition has as many."""
    names, number = {partition: [] for partition in range(PARTITIONS)}, 0
    while any(len(of) < SOURCES // PARTITIONS for of in names.values()):
        base, number = f"s{number}", number + 1
        of = names[partition_of(base + "-1")]
        if len(of) < SOURCES // PARTITIONS:
            of.append(base)
    return [(base, partition) for partition, of in names.items() for base in of]


def free_ports(count):
    sockets = [socket.socket() for _ in range(count)]
    for each in sockets:
        each.bind(("127.0.0.1", 0))
    ports = [each.getsockname()[1] for each in sockets]
    for each in sockets:
        each.close()
    return ports


class Server:
    def __init__(self, folder, name, port, cluster):
        self.name, self.port, self.folder = name, port, os.path.join(folder, name)
        os.makedirs(self.folder)
        self.log = os.path.join(self.folder, "log")
        self.conf = os.path.join(self.folder, "conf")
        with open(self.conf, "w") as file:
            file.write(f'server_name: {name}\nlisten: "127.0.0.1:{port}"\nlog_file: "{self.log}"\n'
                       f'jetstream {{ store_dir: "{self.folder}/store" }}\n{cluster}')  # fmt: skip
        self.process = subprocess.Popen(["/usr/sbin/nats-server", "-c", self.conf])

    def kill(self):
        self.process.kill()
        self.process.wait()

    def elections(self):
        """(when, of what), of those that this server has won."""
        line = re.compile(r"^\[\d+\] (\S+ \S+) .*new (\w+) leader(?: for '([^']*)')?")
        with open(self.log) as file:
            for found in map(line.match, file):
                if found:
                    when = datetime.strptime(found[1], "%Y/%m/%d %H:%M:%S.%f").timestamp()
                    yield when, f"{found[2]} {(found[3] or '').replace('$G > ', '')}".strip()


class Reader(threading.Thread):
    """Reads a program's output; for each line calls what is given."""

    def __init__(self, stream, use):
        super().__init__(daemon=True)
        self.stream, self.use = stream, use
        self.start()

    def run(self):
        for line in self.stream:
            self.use(line)


class Host:
    def __init__(self, build, url, lease):
        self.lines = []
        self.process = subprocess.Popen(
            [f"{build}/bin/mirel-host", "--library", f"{build}/lib/librecording_service.so",
             "--creator", "makeRecordingService", "--interface", "Recording", "--channel", url,
             "--partitions", str(PARTITIONS), "--replicas", "3", "--lease", str(lease),
             "--patience", "30000", "--log", "3,NatsLeases=4,NatsChannel=4"],
            stdout=subprocess.DEVNULL, stderr=subprocess.PIPE, text=True)  # fmt: skip
        Reader(self.process.stderr, self.lines.append)

    def tenures(self):
        """(when, partition, whether it is this host's from now on)."""
        line = re.compile(r"^(\S+ \S+) .*partition (\d+) is (not )?served here (now|any more)")
        for found in map(line.match, list(self.lines)):
            if found:
                when = datetime.strptime(found[1], "%Y-%m-%d %H:%M:%S.%f").timestamp()
                yield when, int(found[2]), not found[3]

    def held(self):
        held = set()
        for _, partition, ours in self.tenures():
            (held.add if ours else held.discard)(partition)
        return held


class Caller:
    def __init__(self, build, url, base, partition):
        self.partition, self.start, self.steps = partition, None, []
        self.process = subprocess.Popen(
            [f"{build}/bin/mirel-call", "--channel", url, "--interface", "Recording",
             "--protocol", "run", "--load", "100000000", "--source", base, "--window", "8",
             "--deadline", "120000", "--data", f"{{source}} {{n}} work {WORK_US}",
             "--timeline", "/dev/stdout"],
            stdout=subprocess.PIPE, stderr=subprocess.DEVNULL, text=True)  # fmt: skip
        Reader(self.process.stdout, self.take)

    def take(self, line):
        if line.startswith("seconds,answers"):
            self.start = time.time()
        elif found := re.match(r"^([\d.]+),(\d+)$", line):
            self.steps.append((self.start + float(found[1]), int(found[2])))

    def rate(self, begin, end):
        return sum(n for when, n in list(self.steps) if begin < when <= end) / (end - begin)


def wait_until(good, what, patience=60):
    deadline = time.time() + patience
    while not good():
        if time.time() > deadline:
            sys.exit(f"nats_failures: {what}")
        time.sleep(0.05)  # of an instrument that looks at others' output


def ask(server, name):
    """The server's answer of JetStream's interface."""
    with socket.create_connection(("127.0.0.1", server.port), timeout=2) as connection:
        file = connection.makefile("rb")
        file.readline()
        connection.sendall(b'CONNECT {"verbose":false}\r\nSUB i 1\r\nPUB $JS.API.%s i 0\r\n\r\n'
                           % name.encode())  # fmt: skip
        for line in file:
            if line.startswith(b"MSG"):
                return file.read(int(line.split()[-1])).decode()
    return ""


def leader(servers):
    for server in servers:
        if server.process.poll() is None:
            try:
                if found := re.search(r'"leader":"(\w+)"', ask(server, "STREAM.INFO.service")):
                    return next(each for each in servers if each.name == found[1])
            except OSError:
                pass
    return None


def recovery(callers, killed, steady):
    """(first answer after the longest pause, full rate), in seconds from the kill; 0 without a
    pause of half a second."""
    steps = {}
    for caller in callers:
        for when, answers in list(caller.steps):
            if when > killed:
                slot = int((when - killed) / STEP)
                steps[slot] = steps.get(slot, 0) + answers
    last = int(WATCHED / STEP)
    first, silent, longest = 0.0, 0, 0
    for slot in range(last):
        if steps.get(slot, 0):
            if silent >= 5 and silent > longest:
                first, longest = slot * STEP, silent
            silent = 0
        else:
            silent += 1
    span = round(0.5 / STEP)
    low = [slot for slot in range(1, last - span)
           if sum(steps.get(slot + i, 0) for i in range(span)) < FULL * steady * span * STEP]  # fmt: skip
    return first, (low[-1] + 1) * STEP if low else 0.0


def run(build, event, lease, keep):
    folder = tempfile.mkdtemp(prefix="nats-failures-")
    ports = free_ports(6)
    routes = ", ".join(f'"nats-route://127.0.0.1:{port}"' for port in ports[3:])
    servers = [
        Server(folder, f"n{i + 1}", ports[i],
               f'cluster {{ name: C, no_advertise: true, listen: "127.0.0.1:{ports[3 + i]}", '
               f"routes: [{routes}] }}\n")
        for i in range(3)
    ]  # fmt: skip
    os.environ["MIREL_HISTORY"] = os.path.join(folder, "history")
    url = "nats://" + ",".join(f"127.0.0.1:{port}" for port in ports[:3]) + "/service"
    programs = []
    try:
        hosts = [Host(build, url, lease) for _ in range(2)]
        programs += hosts
        share = PARTITIONS // len(hosts)
        wait_until(lambda: all(len(host.held()) == share for host in hosts), "no shares")
        callers = [Caller(build, url, base, partition) for base, partition in source_names()]
        programs += callers
        wait_until(lambda: all(sum(n for _, n in c.steps) > 50 for c in callers), "no answers")
        if event == "degraded":
            next(each for each in servers if each is not leader(servers)).kill()
            time.sleep(20)  # until all that this moves has come to rest
        time.sleep(STEADY)
        before = [host.held() for host in hosts]
        victim = leader(servers) if event == "leader" else hosts[0]
        killed = time.time()
        (victim.kill if event == "leader" else victim.process.kill)()
        steady = {p: sum(c.rate(killed - STEADY, killed) for c in callers if c.partition == p)
                  for p in range(PARTITIONS)}  # fmt: skip
        time.sleep(WATCHED)
        elections = sorted(each for server in servers for each in server.elections()
                           if each[0] > killed)  # fmt: skip
        gained = [(when, p) for host in hosts for when, p, ours in host.tenures()
                  if ours and when > killed]  # fmt: skip
        held = [host.held() for host in hosts]
        moved = before[0] if event != "leader" else {
            p for p in range(PARTITIONS)
            if [p in of for of in before] != [p in of for of in held]}  # fmt: skip
        result = {
            "election": max((when - killed for when, _ in elections), default=0),
            "last elected": elections[-1][1] if elections else "-",
            "lease": max((when - killed for when, _ in gained), default=0),
            "moved": len(moved),
        }
        for title, group in (("moved", moved), ("stayed", set(range(PARTITIONS)) - moved)):
            each = [recovery([c for c in callers if c.partition == p], killed, steady[p])
                    for p in group]  # fmt: skip
            result[title + " first"] = max((first for first, _ in each), default=0)
            result[title + " full"] = max((full for _, full in each), default=0)
        result["rate"] = sum(steady.values())
        if keep:
            with open(os.path.join(folder, "events"), "w") as file:
                def note(when, text):
                    file.write(f"{when - killed:8.3f} {text}\n")
                for when, what in elections:
                    note(when, what)
                for number, host in enumerate(hosts):
                    for line in host.lines:
                        if found := re.match(r"^(\S+ \S+) (.*)", line):
                            try:
                                when = datetime.strptime(found[1], "%Y-%m-%d %H:%M:%S.%f")
                            except ValueError:
                                continue
                            note(when.timestamp(), f"host {number}: {found[2]}")
                for p in range(PARTITIONS):
                    steps = {}
                    for c in callers:
                        if c.partition == p:
                            for when, n in c.steps:
                                slot = int((when - killed) // 0.5)
                                steps[slot] = steps.get(slot, 0) + n
                    file.write(f"partition {p}, answers each 0.5 s from -1 s: "
                               + " ".join(str(steps.get(s, 0)) for s in range(-2, 40)) + "\n")
            print("kept:", folder, file=sys.stderr)
        return result
    finally:
        for program in programs:
            program.process.kill()
        for server in servers:
            server.kill()
        if not keep:
            shutil.rmtree(folder, ignore_errors=True)


def main():
    parser = argparse.ArgumentParser(description=__doc__,
                                     formatter_class=argparse.RawDescriptionHelpFormatter)  # fmt: skip
    parser.add_argument("build", help="a build directory, such as build/default")
    parser.add_argument("--event", choices=EVENTS, default="host",
                        help="; ".join(f"{name}: {text}" for name, text in EVENTS.items()))
    parser.add_argument("--runs", type=int, default=1)
    parser.add_argument("--lease", type=int, default=5000, help="milliseconds")
    parser.add_argument("--keep", action="store_true", help="leave the logs, and a list of events")
    options = parser.parse_args()

    columns = ["last election", "of", "last lease", "partitions moved", "moved: first answer",
               "full rate", "stayed: first answer", "full rate", "requests/s before"]  # fmt: skip
    print(f"{EVENTS[options.event]}; seconds from then on\n")
    print("| " + " | ".join(["run"] + columns) + " |\n" + "|--:" * (len(columns) + 1) + "|")
    for number in range(1, options.runs + 1):
        r = run(options.build, options.event, options.lease, options.keep)
        print(f"| {number} | {r['election']:.1f} | {r['last elected']} | {r['lease']:.1f} "
              f"| {r['moved']} | {r['moved first']:.1f} | {r['moved full']:.1f} "
              f"| {r['stayed first']:.1f} | {r['stayed full']:.1f} | {r['rate']:.0f} |",
              flush=True)  # fmt: skip


if __name__ == "__main__":
    main()

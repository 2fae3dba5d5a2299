"""The programs of the demo: started, listened to, killed."""

import contextlib
import socket
import subprocess
import threading
import time


class Failure(Exception):
    """What did not hold, in one line."""


class Program:
    """A process whose log is read line by line, as it comes; ended with its `with` block."""

    _all = []

    def __init__(self, name, command, **more):
        self._all.append(self)
        self.name = name
        self.lines = []  # (when it came, text); grows only
        self._changed = threading.Condition()
        self._process = subprocess.Popen(
            [str(word) for word in command], stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
            stderr=subprocess.STDOUT, text=True, errors="replace", **more,
        )  # fmt: skip
        self._reader = threading.Thread(target=self._read, daemon=True)
        self._reader.start()

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.kill()

    def _read(self):
        for line in self._process.stdout:
            with self._changed:
                self.lines.append((time.time(), line.rstrip()))
                self._changed.notify_all()
        with self._changed:
            self._process.wait()
            self._changed.notify_all()

    @classmethod
    def everything(cls):
        """What all programs have said so far: (when, name, text), in time's order."""
        return sorted(
            (when, each.name, text) for each in cls._all for when, text in list(each.lines)
        )

    @property
    def pid(self):
        return self._process.pid

    def output(self):
        return "\n".join(text for _, text in self.lines)

    def wait_for(self, what, holds, seconds=20):
        """Waits until `holds()`, which looks at the lines. It must become so while this runs."""
        with self._changed:
            good = self._changed.wait_for(
                lambda: holds() or self._process.returncode is not None, seconds
            )
            if not good or not holds():
                raise Failure(f"{self.name}: {what} did not come\n{self.output()[-2000:]}")

    def wait_for_text(self, text):
        self.wait_for(f'"{text}"', lambda: text in self.output())

    def wait_for_end(self, seconds=30):
        """The exit status."""
        try:
            self._process.wait(seconds)
        except subprocess.TimeoutExpired:
            raise Failure(f"{self.name} does not come to its end") from None
        self._reader.join()
        return self._process.returncode

    def terminate(self):
        self._process.terminate()

    def kill(self):
        """As a crash would: SIGKILL."""
        self._process.kill()
        self._process.wait()
        self._reader.join()


class Cluster:
    """NATS servers that know each other, with stores of their own. `stack` ends them."""

    def __init__(self, folder, stack, size=3):
        self._stack = stack
        names = [f"node{i + 1}" for i in range(size)]
        ports = _free_ports(2 * size)
        self._clients = dict(zip(names, ports))
        routes = dict(zip(names, ports[size:]))
        others = ", ".join(f'"nats://127.0.0.1:{port}"' for port in routes.values())
        self._configuration = {}
        for name in names:
            path = self._configuration[name] = folder / f"{name}.conf"
            path.write_text(
                f'server_name: {name}\nlisten: "127.0.0.1:{self._clients[name]}"\n'
                f'jetstream {{ store_dir: "{folder / name}" }}\n'
                f'cluster {{ name: demo, listen: "127.0.0.1:{routes[name]}", '
                f"no_advertise: true, routes: [{others}] }}\n"
            )
        self._nodes = {}
        for name in names:
            self.start(name)
        self._nodes[names[0]].wait_for_text("metadata leader")

    def url(self, service):
        servers = ",".join(f"127.0.0.1:{port}" for port in self._clients.values())
        return f"nats://{servers}/{service}"

    def start(self, name):
        self._nodes[name] = self._stack.enter_context(
            Program(name, ["nats-server", "-c", self._configuration[name]])
        )

    def kill(self, name):
        self._nodes[name].kill()

    def leader_of(self, stream):
        """The node that leads the stream, as the nodes' logs tell."""
        became = [
            (when, name)
            for name, node in self._nodes.items()
            for when, text in list(node.lines)
            if "new stream leader" in text and f"> {stream}'" in text
        ]
        if not became:
            raise Failure(f"no node says that it leads the stream {stream}")
        return max(became)[1]


def _free_ports(count):
    with contextlib.ExitStack() as stack:
        found = [stack.enter_context(socket.socket()) for _ in range(count)]
        for each in found:
            each.bind(("127.0.0.1", 0))
        return [each.getsockname()[1] for each in found]

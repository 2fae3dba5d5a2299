"""On what was measured: the machine, the build and the peers' versions. No host names, no paths."""

import datetime
import os
import platform
import re
import subprocess
from pathlib import Path

PACKAGES = ("libboost-dev", "libtbb-dev", "libcaf-dev", "libzmq3-dev", "cppzmq-dev",
            "libbenchmark-dev", "libc6", "valgrind")  # fmt: skip


def describe(build_dir):
    return {
        "date": datetime.date.today().isoformat(),
        "processor": f"{os.cpu_count()} cores, {_processor()}",
        "kernel": f"{platform.system()} {platform.release()}",
        **_build(build_dir),
        "packages": ", ".join(f"{name} {_version(name)}" for name in PACKAGES),
    }


def _processor():
    found = re.search(r"^model name\s*:\s*(.+)$", _read("/proc/cpuinfo"), re.MULTILINE)
    return found[1] if found else platform.machine()


def _build(build_dir):
    cache = dict(re.findall(r"^(\w+):\w+=(.*)$", _read(build_dir / "CMakeCache.txt"), re.MULTILINE))
    kind = cache.get("CMAKE_BUILD_TYPE", "")
    flags = cache.get(f"CMAKE_CXX_FLAGS_{kind.upper()}", "")
    compiler = _first_line([cache.get("CMAKE_CXX_COMPILER", "c++"), "--version"])
    return {"compiler": compiler, "build": f"{kind} {flags}".strip() or "not known"}


def _version(package):
    return _first_line(["dpkg-query", "-W", "-f=${Version}", package])


def _first_line(command):
    try:
        done = subprocess.run(command, capture_output=True, text=True, timeout=60, check=True)
        return done.stdout.strip().splitlines()[0]
    except (OSError, subprocess.SubprocessError, IndexError):
        return "not known"


def _read(path):
    try:
        return Path(path).read_text()
    except OSError:
        return ""

# SPDX-License-Identifier: GPL-2.0-or-later
"""Upgrades of the machine's own program on a simulated device, measured."""

import collections
import json
import os
import re
import socket
import statistics
import subprocess
import tempfile
import time
from pathlib import Path

from servers import servers

LARGEST = 4096000
MIB = 1 << 20
BLOCK = 4096
KEY = "a device's own key"


class Bench:
    """Runs the dynamic program of the small build under the release build's simdev."""

    def __init__(self, root, folder):
        self.tools = root / "build/release/tools"
        self.program = root / "build/small/upgrade/upgrade"
        self.folder = folder
        self.device = folder / "device"
        description = folder / "device.toml"
        description.write_text("[partitions]\n2 = 4194304\n3 = 4194304\n4 = 4194304\n"
                               f'[configuration]\nWD = "5"\nVENDOR_KEY = "{KEY}"\n')
        self._call(self.tools / "simdev/simdev", "init", self.device, "--device", description)

    def _call(self, *command):
        done = subprocess.run([str(word) for word in command], check=False, capture_output=True,
                              text=True)
        if done.returncode != 0:
            raise SystemExit(f"budget: {command} ended with {done.returncode}\n{done.stderr}")
        return done

    def package(self, size):
        """An enciphered package of `size` bytes with one part."""
        (self.folder / "kernel.bin").write_bytes(os.urandom(size - BLOCK))
        (self.folder / "key").write_text(KEY + "\n")
        (self.folder / "package.toml").write_text(
            '[package]\nencrypt = true\n[[part]]\ntype = "kernel"\nfile = "kernel.bin"\n')
        made = self.folder / "made.pkg"
        self._call(self.tools / "fwpkg/fwpkg", "make", self.folder / "package.toml", "-o", made,
                   "--key-file", self.folder / "key")
        content = made.read_bytes()
        assert len(content) == size
        return content

    def served(self, size, folder):
        """Protocol, server and URL of a package of `size` bytes, for each protocol."""
        for protocol, (start, url) in servers(self.package(size), folder).items():
            authority = self.device / "usr/etc/ca-cert.pem"
            authority.write_bytes((folder / "ca.pem").read_bytes())
            yield protocol, start, url

    def run(self, protocol, port, url, wrap=(), fast=True):
        """One upgrade, below the command `wrap` if there is one; the log of its operations."""
        wrapper = self.folder / "wrapper"
        # The words in quotes keep simdev from preloading its library into the wrapper itself.
        wrapper.write_text(
            '#!/bin/sh\n# "simdev: the platform is wrapped"\n'
            f"exec {' '.join(str(word) for word in wrap)} "
            f"env LD_PRELOAD={self.tools}/simdev/libsimdev_preload.so {self.program} \"$@\"\n")
        wrapper.chmod(0o755)
        log = self.folder / "log"
        at = {"TFTP": f"--tftp-port={port}", "FTP": f"--map-port=21={port}",
              "HTTP": f"--map-port=80={port}", "HTTPS": f"--map-port=443={port}"}[protocol]
        self._call(self.tools / "simdev/simdev", "run", self.device, "--json", f"--log={log}", at,
                   f"--program={wrapper}", *(["--fast"] if fast else []), "--", url)
        return [json.loads(line) for line in log.read_text().splitlines()]


def peak_memory(bench, *server):
    """Peak resident bytes of one upgrade, the simulation included: the median of five, since it
    varies how much of a library the system maps at once."""
    out = bench.folder / "time"
    peaks = []
    for _ in range(5):
        bench.run(*server, wrap=["/usr/bin/time", "-q", "-f", "%M", "-o", out])
        peaks.append(int(out.read_text()) * 1024)
    return statistics.median(peaks)


def memory_of_simulation(bench):
    """Code, data and zeroed memory of the simulation's library, which a run touches all of."""
    library = bench.tools / "simdev/libsimdev_preload.so"
    listing = subprocess.run(["size", library], capture_output=True, check=True, text=True).stdout
    return int(listing.splitlines()[1].split()[3])


def system_calls(bench, size, *server):
    """Calls to the system for each MiB of a download, without those of the simulation."""
    out = bench.folder / "trace"
    log = bench.run(*server, wrap=["strace", "-qq", "-o", out])
    lines = out.read_text().splitlines()
    begin = next(i for i, line in enumerate(lines) if "download start" in line)
    end = next(i for i, line in enumerate(lines) if re.match(r"v?fork|clone", line))
    # The simulation reports each operation in a record of one size, and nothing else writes as often.
    records = re.findall(r"^write\((\d{2,}|[3-9]), .*, (\d+)\) = \2$", "\n".join(lines), re.M)
    log_fd = collections.Counter(records).most_common(1)[0][0][0]
    calls = [line for line in lines[begin:end]
             if re.match(r"\w+\(", line) and not line.startswith(f"write({log_fd},")]
    script = next(i for i, operation in enumerate(log) if operation["op"] == "script")
    # The simulation answers the watchdog's request itself.
    kicks = sum(operation["op"] == "kick" for operation in log[:script])
    return (len(calls) + kicks) * MIB / size


def start_to_request(bench, repeats=15):
    """Seconds from the start of the program to its first connection, the median."""
    times = []
    with socket.create_server(("127.0.0.1", 0)) as sock:
        for _ in range(repeats):
            start = time.perf_counter()
            with subprocess.Popen([bench.program, f"http://127.0.0.1:{sock.getsockname()[1]}/x"],
                                  stderr=subprocess.DEVNULL) as program:
                sock.accept()[0].close()
                times.append(time.perf_counter() - start)
                program.kill()
    return statistics.median(times)


def phases(log):
    """Phase -> (begin, end) in real microseconds, from the log."""
    stage = {operation["text"][12:]: operation["real_us"] for operation in reversed(log)
             if operation["op"] == "datagram" and operation["text"].startswith("UPGRD_STAGE=")}
    script = next(operation for operation in log if operation["op"] == "script")
    before = log[log.index(script) - 1]
    verified = max(operation["real_us"] for operation in log if operation["op"] == "read")
    return {
        "download": (0, before["real_us"]),
        "script": (before["real_us"], script["real_us"]),
        "checks": (script["real_us"], stage["WRITING"]),
        "writing": (stage["WRITING"], stage["VERIFYING"]),
        "verifying": (stage["VERIFYING"], verified),
    }


def longest_gap(log, begin, end):
    """The longest time without a kick, in seconds; the phase's ends count as kicks."""
    kicks = [operation["real_us"] for operation in log if operation["op"] == "kick"]
    times = [begin, *(kick for kick in kicks if begin < kick < end), end]
    return max(later - earlier for earlier, later in zip(times, times[1:])) / 1e6


def measure(root, timed):
    """Row -> value. Memory alone, or everything with `timed` (about a minute more)."""
    rows = {}
    with tempfile.TemporaryDirectory() as name:
        bench = Bench(root, Path(name))
        served = bench.folder / "served"
        served.mkdir()
        simulation = memory_of_simulation(bench)
        for protocol, start, url in bench.served(LARGEST, served):
            with start() as port:
                rows[f"peak memory, {protocol}"] = peak_memory(bench, protocol, port,
                                                               url) - simulation
        if not timed:
            return rows
        for protocol, start, url in bench.served(MIB, served):
            with start() as port:
                server = (protocol, port, url)
                rows[f"system calls a MiB, {protocol}"] = round(system_calls(bench, MIB, *server))
                log = bench.run(*server)
                rows[f"longest gap, {protocol} download"] = longest_gap(log,
                                                                        *phases(log)["download"])
                if protocol == "HTTP":
                    rows.update(timed_rows(bench.run(*server, fast=False)))
        rows["start to first request"] = start_to_request(bench)
    return rows


def timed_rows(log):
    """What a real run of a 1 MiB package over HTTP shows, its sleeps slept."""
    spans = phases(log)
    total = log[-1]["real_us"]
    slept = log[-1]["virtual_us"]
    rows = {f"longest gap, {phase}": longest_gap(log, *spans[phase])
            for phase in ("script", "checks", "writing", "verifying")}
    begin, end = spans["verifying"]
    late = sum(operation["real_us"] - before["real_us"] - operation["duration_us"]
               for before, operation in zip(log, log[1:]) if operation["op"] == "sleep")
    rows["share of verifying"] = (end - begin) / total
    rows["real time beyond the sleeps"] = (total - slept) / slept
    rows["of it sleeps that end late"] = late / slept
    return rows

#!/usr/bin/env python3
# SPDX-License-Identifier: GPL-2.0-or-later
"""Downloads of many sizes over a link of 256 kbit/s and at full speed with Ethernet's segments, over HTTP
and HTTPS, from nginx with the configuration that its package brings. How many fail?

    cmake --preset release -D UPGRADE_BENCH=ON && cmake --build --preset release
    bench/slow_link.py [RUNS]

The slow link is tried once a size, full speed RUNS times (20). The downloads of one link and size have
a network namespace of their own, whose loopback has Ethernet's MTU. Needs `tc` and user namespaces, no
root.
"""

import concurrent.futures
import os
import pathlib
import subprocess
import sys
import tempfile

ROOT = pathlib.Path(__file__).resolve().parents[1]
sys.path.insert(0, str(ROOT / "tests/system"))
from nginx import Nginx  # noqa: E402  pylint: disable=wrong-import-position

BENCH = ROOT / "build/release/bench"
KINDS = {"HTTP": ("fetch", "http"), "HTTP, whole asks": ("fetch_whole_asks", "http"),
         "HTTPS": ("fetch", "https"), "HTTPS, usual head": ("fetch", "https", "unfilled")}
LIMIT = ["tc", "qdisc", "add", "dev", "lo", "root", "tbf", "rate", "256kbit", "burst", "3000",
         "latency", "2s"]
# Full blocks and the bytes of the last one, from 1 to 4096.
TAILS = [1, 2, 100, 536, 1000, 1447, 1448, 1449, 2047, 2048, 2049, 2896, 3000, 3583, 4000, 4095, 4096]
BLOCKS = [2, 3, 4, 5, 6, 7, 8, 11, 15, 16, 20, 23, 24, 31, 32, 40, 47]
SIZES = sorted({blocks * 4096 + tail for blocks, tail in [
    *zip(BLOCKS, TAILS), *zip(reversed(BLOCKS), TAILS), *((12, tail) for tail in TAILS[::2]),
    (1, 4096), (49, 4096)]})


def one(size, program, scheme, head="filled"):
    """In a namespace of its own: downloads and prints the outcome."""
    subprocess.run(["ip", "link", "set", "lo", "mtu", "1500", "up"], check=True)
    subprocess.run(LIMIT, check=True)
    with tempfile.TemporaryDirectory() as folder:
        with Nginx(folder, {"p": os.urandom(size)}, head == "filled") as server:
            url = f"{scheme}://127.0.0.1:{getattr(server, scheme)}/p"
            done = subprocess.run([BENCH / program, url, server.authority],
                                  capture_output=True, check=False)
            print(done.stdout.decode().strip())


def outcome(size, kind):
    done = subprocess.run(["unshare", "--user", "--map-root-user", "--net", sys.executable, __file__,
                           str(size), *KINDS[kind]], capture_output=True, text=True, check=True)
    result, total = map(int, done.stdout.split())
    return "ok" if (result, total) == (0, size) else f"fails at {total}"


def main():
    print(f"{'size':>7} {'last block':>10}  " + "  ".join(f"{kind:18}" for kind in KINDS))
    failures = dict.fromkeys(KINDS, 0)
    with concurrent.futures.ThreadPoolExecutor(8) as pool:
        rows = [(size, {kind: pool.submit(outcome, size, kind) for kind in KINDS})
                for size in SIZES]
        for size, row in rows:
            results = {kind: future.result() for kind, future in row.items()}
            for kind, result in results.items():
                failures[kind] += result != "ok"
            print(f"{size:7} {(size - 1) % 4096 + 1:10}  "
                  + "  ".join(f"{result:18}" for result in results.values()), flush=True)
    print(f"of {len(SIZES)} sizes failed: "
          + ", ".join(f"{kind} {count}" for kind, count in failures.items()))


if len(sys.argv) > 3:
    one(int(sys.argv[1]), *sys.argv[2:])
else:
    main()

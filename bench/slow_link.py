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
import json
import os
import pathlib
import subprocess
import sys
import tempfile
import zlib

from stock_nginx import StockNginx

ROOT = pathlib.Path(__file__).resolve().parents[1]

FETCH = ROOT / "build/release/bench/fetch"
SCHEMES = ("http", "https")
LIMIT = "tc qdisc add dev lo root tbf rate 256kbit burst 3000 latency 2s"
# Full blocks and the bytes of the last one, from 1 to 4096.
TAILS = [1, 2, 100, 536, 1000, 1447, 1448, 1449, 2047, 2048, 2049, 2896, 3000, 3583, 4000, 4095, 4096]
BLOCKS = [2, 3, 4, 5, 6, 7, 8, 11, 15, 16, 20, 23, 24, 31, 32, 40, 47]
SLOW_SIZES = sorted({blocks * 4096 + tail for blocks, tail in [
    *zip(BLOCKS, TAILS), *zip(reversed(BLOCKS), TAILS), *((12, tail) for tail in TAILS[::2]),
    (1, 4096), (49, 4096)]})
# From the smallest response that nginx's head (some 240 bytes) makes long enough.
FULL_SIZES = [1, 700, 800, 1024, 4095, 4096, 4097, 5119, 5120, 8192, 100_001, 4_096_000]


def failures(link, size, runs):
    """In a namespace of its own: downloads, and says how many of each scheme failed."""
    subprocess.run(["ip", "link", "set", "lo", "mtu", "1500", "up"], check=True)
    if link == "slow":
        subprocess.run(LIMIT.split(), check=True)
    content = os.urandom(size)
    right = f"0 {size} {zlib.crc32(content)}"
    with tempfile.TemporaryDirectory() as folder:
        with StockNginx(folder, {"p": content}) as server:
            urls = {scheme: f"{scheme}://127.0.0.1:{getattr(server, scheme)}/p" for scheme in SCHEMES}
            return {scheme: sum(subprocess.run([FETCH, url, server.authority], capture_output=True,
                                               check=False).stdout.decode().strip() != right
                                for _ in range(runs)) for scheme, url in urls.items()}


def measure(link, sizes, runs, at_once):
    print(f"{link} link, {runs} downloads each\n   size  last block  HTTP fails  HTTPS fails")
    total = dict.fromkeys(SCHEMES, 0)
    command = ["unshare", "--user", "--map-root-user", "--net", sys.executable, __file__, "--one", link]
    with concurrent.futures.ThreadPoolExecutor(at_once) as pool:
        rows = [(size, pool.submit(subprocess.run, [*command, str(size), str(runs)], check=True,
                                   stdout=subprocess.PIPE)) for size in sizes]
        for size, row in rows:
            failed = json.loads(row.result().stdout)
            print(f"{size:7}  {(size - 1) % 4096 + 1:10}  {failed['http']:10}  {failed['https']:11}",
                  flush=True)
            for scheme in SCHEMES:
                total[scheme] += failed[scheme]
    print(f"of {len(sizes) * runs}: HTTP {total['http']}, HTTPS {total['https']} failed\n")


if sys.argv[1:2] == ["--one"]:
    print(json.dumps(failures(sys.argv[2], int(sys.argv[3]), int(sys.argv[4]))))
else:
    measure("slow", SLOW_SIZES, 1, 8)
    measure("full", FULL_SIZES, int(sys.argv[1]) if len(sys.argv) > 1 else 20, 1)

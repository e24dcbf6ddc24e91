#!/usr/bin/env python3
# SPDX-License-Identifier: GPL-2.0-or-later
"""Downloads 3 MiB with the program's downloader and with curl, in turn, over HTTP and HTTPS.

    cmake --preset release -D UPGRADE_BENCH=ON && cmake --build --preset release
    bench/download.py [RUNS]

Prints the median wall time of each, process start to end, standard error to a file, and their
ratio. nginx runs with the configuration of docs/package-server.md.
"""

import os
import pathlib
import statistics
import subprocess
import sys
import tempfile
import time

ROOT = pathlib.Path(__file__).resolve().parents[1]
sys.path.insert(0, str(ROOT / "tests/system"))
from nginx import Nginx  # noqa: E402  pylint: disable=wrong-import-position

FETCH = ROOT / "build/release/bench/fetch"
SIZE = 3 * 1024 * 1024


def seconds(command, folder):
    with open(folder / "stdout", "wb") as out, open(folder / "stderr", "wb") as error:
        start = time.perf_counter()
        subprocess.run(command, stdout=out, stderr=error, check=True)
        return time.perf_counter() - start


def main():
    runs = int(sys.argv[1]) if len(sys.argv) > 1 else 51
    with tempfile.TemporaryDirectory() as name:
        folder = pathlib.Path(name)
        with Nginx(folder, {"3m.pkg": os.urandom(SIZE)}) as server:
            for scheme in ("http", "https"):
                url = f"{scheme}://127.0.0.1:{getattr(server, scheme)}/3m.pkg"
                # curl checks names; the certificate's leads to the loopback.
                port = getattr(server, scheme)
                named = f"{scheme}://packages.example:{port}/3m.pkg"
                commands = {
                    "fetch": [FETCH, url, server.authority],
                    "curl": ["curl", "--cacert", server.authority, "--resolve",
                             f"packages.example:{port}:127.0.0.1", "-s", "-o",
                             folder / "copy", named],
                }
                times = {program: [] for program in commands}
                for _ in range(runs):
                    for program, command in commands.items():
                        times[program].append(seconds(command, folder))
                medians = {program: statistics.median(taken) for program, taken in times.items()}
                print(f"{scheme:5}  fetch {medians['fetch'] * 1000:6.1f} ms  "
                      f"curl -o {medians['curl'] * 1000:6.1f} ms  "
                      f"ratio {medians['fetch'] / medians['curl']:.2f}  ({runs} runs each)")


main()

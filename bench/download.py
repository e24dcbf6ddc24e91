#!/usr/bin/env python3
# SPDX-License-Identifier: GPL-2.0-or-later
"""Downloads 3 MiB with the program's downloaders and with curl, in turn, over HTTP,
HTTPS, TFTP and FTP.

    bench/download.py [RUNS]

builds what it needs, the HTTPS of 64-bit PCs also with a TLS library of its own that has assembly
for ciphers (scripts/build-tls-client), and prints the median wall time of each, process start to end, standard error to a file, and their
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
sys.path.insert(0, str(ROOT / "bench"))
from size import build  # noqa: E402  pylint: disable=wrong-import-position
from nginx import Nginx  # noqa: E402  pylint: disable=wrong-import-position

FETCH = ROOT / "build/bench/bench/fetch"
ASSEMBLY = ROOT / "build/bench-assembly"
TLS = ROOT / "build/tls-client/amd64-assembly"
SIZE = 3 * 1024 * 1024


def seconds(command, folder):
    with open(folder / "stdout", "wb") as out, open(folder / "stderr", "wb") as error:
        start = time.perf_counter()
        subprocess.run(command, stdout=out, stderr=error, check=True)
        return time.perf_counter() - start


def compare(scheme, fetch, curl, runs, folder):
    """Both commands in turn, and one line of their medians."""
    times = {"fetch": [], "curl": []}
    for _ in range(runs):
        times["fetch"].append(seconds(fetch, folder))
        times["curl"].append(seconds(curl, folder))
    medians = {program: statistics.median(taken) for program, taken in times.items()}
    print(f"{scheme:5}  fetch {medians['fetch'] * 1000:6.1f} ms  "
          f"curl -o {medians['curl'] * 1000:6.1f} ms  "
          f"ratio {medians['fetch'] / medians['curl']:.2f}  ({runs} runs each)", flush=True)


def make():
    build(ROOT, "bench", "fetch")
    if os.uname().machine != "x86_64":
        return
    for command in ([ROOT / "scripts/build-tls-client", TLS.name],
                    ["cmake", "--preset", "bench", "-B", ASSEMBLY, f"-DUPGRADE_TLS={TLS}"],
                    ["cmake", "--build", ASSEMBLY, "--target", "fetch"]):
        subprocess.run(command, cwd=ROOT, stdout=subprocess.DEVNULL, check=True)


def web(runs, folder):
    with Nginx(folder, {"3m.pkg": os.urandom(SIZE)}) as server:
        programs = [("http", FETCH), ("https", FETCH)]
        if TLS.exists():
            programs.append(("https", ASSEMBLY / "bench/fetch"))
        for scheme, program in programs:
            port = getattr(server, scheme)
            if program != FETCH:
                print("with assembly for ciphers:")
            # curl checks names; the certificate's leads to the loopback.
            compare(scheme, [program, f"{scheme}://127.0.0.1:{port}/3m.pkg", server.authority],
                    ["curl", "--cacert", server.authority, "--resolve",
                     f"packages.example:{port}:127.0.0.1", "-s", "-o", folder / "copy",
                     f"{scheme}://packages.example:{port}/3m.pkg"], runs, folder)


def files(runs, folder):
    """TFTP and FTP, in a network of our own for the sake of TFTP's fixed port."""
    subprocess.run(["ip", "link", "set", "lo", "up"], check=True)
    (folder / "3m.pkg").write_bytes(os.urandom(SIZE))
    folder.chmod(0o755)
    servers = [
        subprocess.Popen([ROOT / "scripts/server", "atftpd", "--daemon", "--no-fork", "--user", "root.root",
                          "--bind-address", "127.0.0.1", "--logfile", "-", folder],
                         stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL),
        subprocess.Popen(["/usr/bin/python3", "-m", "pyftpdlib", "-i", "127.0.0.1", "-p", "2121",
                          "-d", folder], stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)]
    try:
        for options, port in (("-Hlun", 69), ("-Hltn", 2121)):
            while f":{port} " not in subprocess.check_output(["ss", options], text=True):
                assert all(server.poll() is None for server in servers)
        for url in ("tftp://127.0.0.1/3m.pkg", "ftp://127.0.0.1:2121/3m.pkg"):
            compare(url.partition(":")[0], [FETCH, url],
                    ["curl", "-s", "-o", folder / "copy", url], runs, folder)
    finally:
        for server in servers:
            server.terminate()
            server.wait()


def main():
    runs = int(sys.argv[1]) if len(sys.argv) > 1 else 51
    own_network = len(sys.argv) > 2
    if not own_network:
        make()
    with tempfile.TemporaryDirectory() as name:
        (files if own_network else web)(runs, pathlib.Path(name))
    if not own_network:
        # One system call a byte: FTP takes seconds.
        subprocess.run(["unshare", "--user", "--map-root-user", "--net", sys.executable, __file__,
                        str(max(3, runs // 10)), "files"], check=True)


main()

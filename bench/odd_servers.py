#!/usr/bin/env python3
# SPDX-License-Identifier: GPL-2.0-or-later
"""What a download over HTTP and HTTPS comes to from servers that are slow, stop, or drop connections.

    cmake --preset release -D UPGRADE_BENCH=ON && cmake --build --preset release
    bench/odd_servers.py [RUNS]

Slow and silent servers meet a whole upgrade on a simulated device, in virtual time; those that drop
their first connection meet bench/fetch. Prints the successes, and for the first the virtual seconds
and the longest time between two kicks of the watchdog while the download lasted.
"""

import json
import pathlib
import socket
import ssl
import struct
import subprocess
import sys
import tempfile
import threading
import time

from stock_nginx import StockNginx
from package import Part, make_package  # found where stock_nginx found its base

ROOT = pathlib.Path(__file__).resolve().parents[1]
TOOLS = ROOT / "build/release/tools"
PACKAGE = make_package([Part(3, bytes(range(251)) * 33)])
DRIPS = {"a byte a second": "server-drip:bytes=1",
         "200 s of rest behind each 3000 bytes": "server-drip:bytes=3000,seconds=200",
         "silence behind 5000 bytes": "server-stall@5000",
         "silence from the first byte on": "server-stall@0"}


def serve(listener, context, spoil):
    """The first connection is for `spoil`, if there is one, and then reset; the others get the package."""
    for _ in range(6):
        try:
            connection = listener.accept()[0]
            if spoil:
                spoil(connection)
                connection.setsockopt(socket.SOL_SOCKET, socket.SO_LINGER, struct.pack("ii", 1, 0))
                connection.close()
                spoil = None
                continue
            if context:
                connection = context.wrap_socket(connection, server_side=True)
            request = b""
            while not request.endswith(b"\r\n\r\n"):
                request += connection.recv(1000) or b"\r\n\r\n"
            connection.sendall(b"HTTP/1.0 200 OK\r\nContent-Length: %d\r\n\r\n" % len(PACKAGE)
                               + PACKAGE)
            connection.close()
        except OSError:
            pass


def start(listener, context, spoil=None):
    threading.Thread(target=serve, args=(listener, context, spoil), daemon=True).start()


def nothing(_connection):
    pass


def a_few_bytes(connection):
    connection.recv(5)


def fetch(scheme, context, authority, spoil=None):
    """Whether a download succeeds. Without `spoil` the port is nobody's until connections were refused."""
    with socket.socket() as listener:
        listener.bind(("127.0.0.1", 0))
        if spoil:
            listener.listen()
            start(listener, context, spoil)
        url = f"{scheme}://127.0.0.1:{listener.getsockname()[1]}/p"
        with subprocess.Popen([ROOT / "build/release/bench/fetch", url, authority],
                              stdout=subprocess.PIPE, stderr=subprocess.DEVNULL) as program:
            if not spoil:
                time.sleep(0.5)
                listener.listen()
                start(listener, context)
            output = program.communicate()[0]
            listener.shutdown(socket.SHUT_RDWR)  # ends the thread
            return output.split()[:2] == [b"0", str(len(PACKAGE)).encode()]


def drop_first(runs, nginx):
    context = ssl.SSLContext(ssl.PROTOCOL_TLS_SERVER)
    context.load_cert_chain(nginx.folder / "packages.pem", nginx.folder / "packages.key")
    for scheme, made in (("http", None), ("https", context)):
        good = sum(fetch(scheme, made, nginx.authority) for _ in range(runs))
        print(f"{scheme:5}  refuses connections for half a second: {good} of {runs}", flush=True)
        for name, spoil in (("at once", nothing), ("behind five bytes", a_few_bytes)):
            good = sum(fetch(scheme, made, nginx.authority, spoil) for _ in range(runs))
            print(f"{scheme:5}  resets the first connection {name}: {good} of {runs}", flush=True)


def longest_gap(log):
    """Of the download, in virtual seconds."""
    kicks, longest = 0, 0
    for line in log.read_text().splitlines():
        operation = json.loads(line)
        if operation["op"] == "script":
            break
        longest = max(longest, operation["virtual_us"] - kicks)
        if operation["op"] == "kick":
            kicks = operation["virtual_us"]
    return longest / 1e6


def drips(runs, nginx, folder):
    (folder / "device.toml").write_text('[partitions]\n3 = 65536\n[configuration]\nWD = "5"\n')
    device = folder / "device"
    subprocess.run([TOOLS / "simdev/simdev", "init", device, "--device", folder / "device.toml"],
                   check=True, stdout=subprocess.DEVNULL)
    authority = device / "usr/etc/ca-cert.pem"
    authority.parent.mkdir(parents=True, exist_ok=True)
    authority.write_bytes(nginx.authority.read_bytes())
    for name, fault in DRIPS.items():
        for scheme in ("http", "https"):
            good, seen = 0, set()
            for _ in range(runs):
                done = subprocess.run([TOOLS / "simdev/simdev", "run", device, "--fast", "--json",
                                       "--grace=5000" if "drip" in fault else "--grace=200",
                                       f"--log={folder}/log", f"--fault={fault}", "--",
                                       f"{scheme}://127.0.0.1:{getattr(nginx, scheme)}/p"],
                                      capture_output=True, check=False)
                report = json.loads(done.stdout)
                good += report["exit_status"] == 0
                seen.add((report["virtual_us"] / 1e6, longest_gap(folder / "log")))
            print(f"{scheme:5}  {name}: {good} of {runs}; (virtual s, longest gap): {sorted(seen)}",
                  flush=True)


def main():
    runs = int(sys.argv[1]) if len(sys.argv) > 1 else 20
    with tempfile.TemporaryDirectory() as name:
        folder = pathlib.Path(name)
        (folder / "nginx").mkdir()
        with StockNginx(folder / "nginx", {"p": PACKAGE}) as nginx:
            drop_first(runs, nginx)
            drips(max(1, runs // 10), nginx, folder)


main()

# SPDX-License-Identifier: GPL-2.0-or-later
"""System tests: the whole program on a simulated device.

UPGRADE_BUILD names the build folder (default build/dev, relative to the repository). In a build
with sanitizers the program has the model linked into it; a finding of theirs fails the test.
UPGRADE_PROGRAM names another program to run than simdev's own choice, one for ARM for instance.

    device = make_device(partitions={2: 65536}, configuration={"WD": "5"},
                         requirements={"kernel": "ram:<=64"})
    port = serve_tftp({"fw": make_package([Part(2, b"data")])})
    run = device.run("tftp://127.0.0.1/fw", tftp_port=port)

Peers: serve_tftp(files) is a plain TFTP server; udp_peer(script) and tcp_peer(script) run
script(socket) in a thread, of which a failure fails the test, and return the port. Packages:
package.py. All runs are fast: sleeps are counted, unanswered waits end after
`grace` real ms (1000; choose less where the test is about waits that nobody answers).
"""

import concurrent.futures
import contextlib
import json
import os
import pathlib
import socket
import struct
import subprocess
import sys
import threading

import pytest

ROOT = pathlib.Path(__file__).resolve().parents[2]
BUILD = ROOT / os.environ.get("UPGRADE_BUILD", "build/dev")
PROGRAM = os.environ.get("UPGRADE_PROGRAM")
SIMDEV = BUILD / "tools/simdev/simdev"
# Texts of EIO and of no error, as the C library of the program has them.
IO_ERROR, SUCCESS = (("I/O error", "No error information") if "-musl/" in (PROGRAM or "")
                     else ("Input/output error", "Success"))
FINDING = 99  # exit status that simdev asks the sanitizers for
PEER_SECONDS = 30  # no peer waits longer, so that no thread is left behind

sys.path.insert(0, str(pathlib.Path(__file__).parent))


def pytest_configure(config):
    """A failure in any thread, of a server for instance, is the test's."""
    config.addinivalue_line("filterwarnings", "error::pytest.PytestUnhandledThreadExceptionWarning")


class Run:
    def __init__(self, device, report, log):
        self.report = report
        self.status = report["exit_status"]
        self.stdout = (device.folder / "run/stdout").read_bytes()
        self.stderr = (device.folder / "run/stderr").read_bytes()
        self.datagrams, self.server_datagrams = (
            [datagram["text"] for datagram in report["datagrams"][receiver]]
            for receiver in ("/tmp/.upgrd_info", "/tmp/.syscfg-server"))
        self.operations = [json.loads(line) for line in log.read_text().splitlines()]

    def of(self, *names):
        """The operations of these kinds."""
        return [operation for operation in self.operations if operation["op"] in names]

    def names(self, *names):
        return [operation["op"] for operation in self.of(*names)]


class Device:
    def __init__(self, folder):
        self.folder = folder

    def flash(self, number):
        return (self.folder / f"dev/fla{number}").read_bytes()

    def command(self, *arguments, program=None, grace=1000, tftp_port=None, ports=(), **settings):
        """A simdev command line up to its "--"; settings become options."""
        command = [SIMDEV, *arguments[:1], self.folder, *arguments[1:], f"--grace={grace}"]
        if program or PROGRAM:
            command.append(f"--program={program or ROOT / PROGRAM}")
        if tftp_port:
            command.append(f"--tftp-port={tftp_port}")
        command += [f"--map-port={device}={real}" for device, real in ports]
        command += [f"--{name}={value}" for name, value in settings.items()]
        return [str(word) for word in command]

    def run(self, *url, faults=(), environment=None, **settings):
        """Runs the program with the URL (none: its default) to its end."""
        log = self.folder / "run/log"
        command = self.command("run", "--fast", "--json", f"--log={log}",
                               *[f"--fault={fault}" for fault in faults], **settings)
        done = subprocess.run([*command, "--", *url], capture_output=True, timeout=120,
                              env={**os.environ, **(environment or {})})
        assert done.returncode != 125, done.stderr.decode()
        run = Run(self, json.loads(done.stdout), log)
        assert run.status == done.returncode
        assert run.status != FINDING, run.stderr.decode(errors="replace")
        return run


def toml_table(name, pairs):
    return f"[{name}]\n" + "".join(f"{json.dumps(str(key))} = {json.dumps(value)}\n"
                                   for key, value in pairs.items())


@pytest.fixture
def make_device(tmp_path):
    """Makes device folders, by default with small partitions 2, 3 and 4."""
    made = []

    def make(partitions=None, configuration=None, requirements=None, script=None):
        folder = tmp_path / f"device{len(made)}"
        description = tmp_path / f"device{len(made)}.toml"
        description.write_text(
            toml_table("partitions", partitions or {2: 65536, 3: 65536, 4: 65536})
            + toml_table("configuration", {"WD": "5"} if configuration is None else configuration)
            + toml_table("requirements", requirements or {})
            + toml_table("script", script or {}))
        subprocess.run([SIMDEV, "init", folder, "--device", description], check=True,
                       stdout=subprocess.DEVNULL)
        made.append(Device(folder))
        return made[-1]

    return make


@pytest.fixture
def peers():
    """Runs scripts in threads; at the end of the test it waits for them and hands on failures."""
    running = []
    with contextlib.ExitStack() as sockets, concurrent.futures.ThreadPoolExecutor() as pool:
        def start(script, sock):
            sock.settimeout(PEER_SECONDS)
            running.append(pool.submit(script, sockets.enter_context(sock)))
            return sock.getsockname()[1]

        yield start
        for script in running:
            script.result()


def udp_socket():
    sock = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
    sock.bind(("127.0.0.1", 0))
    return sock


@pytest.fixture
def udp_peer(peers):
    return lambda script: peers(script, udp_socket())


@pytest.fixture
def tcp_peer(peers):
    """The script gets the listening socket."""
    return lambda script: peers(script, socket.create_server(("127.0.0.1", 0)))


def read_request(connection):
    request = b""
    while not request.endswith(b"\r\n\r\n"):
        request += connection.recv(1) or b"\r\n\r\n"
    return request


def answer_request(files, request, client):
    """One transfer, from a port of its own; a name that is not there gets an error packet."""
    name = request[2:].split(b"\0")[0].decode()
    with udp_socket() as transfer, contextlib.suppress(TimeoutError):  # clients may go away
        transfer.settimeout(PEER_SECONDS)
        if name not in files:
            transfer.sendto(struct.pack(">HH", 5, 1) + b"no such file\0", client)
            return
        content = files[name]
        for number in range(1, len(content) // 512 + 2):  # the last block may be empty
            block = content[(number - 1) * 512:number * 512]
            transfer.sendto(struct.pack(">HH", 3, number & 0xFFFF) + block, client)
            assert transfer.recvfrom(600)[0] == struct.pack(">HH", 4, number & 0xFFFF)


def tftp_server(sock, files):
    """Answers all requests, several at a time, until the socket is closed."""
    with contextlib.suppress(OSError):
        while True:
            threading.Thread(target=answer_request, args=(files, *sock.recvfrom(600)),
                             daemon=True).start()


@pytest.fixture
def serve_tftp():
    """serve_tftp({name: bytes}): a server until the test ends; returns the port."""
    with contextlib.ExitStack() as sockets:
        def start(files):
            sock = sockets.enter_context(udp_socket())
            threading.Thread(target=tftp_server, args=(sock, files), daemon=True).start()
            return sock.getsockname()[1]

        yield start


@pytest.fixture
def start_server():
    """start_server(command, kind): runs a real server, command(port), until the test ends; returns
    the port, once it listens there, of the kind socket.SOCK_STREAM or socket.SOCK_DGRAM."""
    servers = []

    def start(command, kind):
        with socket.socket(socket.AF_INET, kind) as probe:
            probe.bind(("127.0.0.1", 0))
            port = probe.getsockname()[1]
        servers.append(subprocess.Popen(command(port), stdin=subprocess.DEVNULL,
                                        stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL))
        listing = ["ss", "-Hltn" if kind == socket.SOCK_STREAM else "-Hlun"]
        while f":{port} " not in subprocess.check_output(listing, text=True):
            assert servers[-1].poll() is None
        return port

    yield start
    for server in servers:
        server.terminate()
        server.wait()

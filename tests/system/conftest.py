# SPDX-License-Identifier: GPL-2.0-or-later
"""System tests: the whole program on a simulated device.

UPGRADE_BUILD names the build folder (default build/dev, relative to the repository). In a build
with sanitizers the program has the model linked into it; a finding of theirs fails the test.
UPGRADE_PROGRAM names another program to run than simdev's own choice, one for ARM for instance.

The vocabulary:

    def test_it(make_device, serve_tftp):
        device = make_device(partitions={2: 65536}, configuration={"WD": "5"},
                             requirements={"kernel": "ram:<=64"})
        port = serve_tftp({"fw": make_package([Part(2, b"data")])})
        run = device.run("tftp://127.0.0.1/fw", tftp_port=port)

    run.status                exit status
    run.stderr, run.stdout    bytes, complete
    run.datagrams             texts that .upgrd_info received; run.server_datagrams: .syscfg-server
    run.operations            the log: a list of dictionaries (docs/simulated-device.md)
    run.names("write", ...)   the names of the operations, in order, of these kinds only
    run.report                simdev's report
    device.flash(2)           the content of a partition
    device.folder             the device folder, to spoil what is in it

Peers: serve_tftp(files) is a plain TFTP server for one request; udp_peer(script) and tcp_peer(script) give a script
a socket of its own in a thread and return the port. What a script raises fails the test. Packages:
package.py. All runs are fast: sleeps are counted, unanswered waits end after
`grace` real ms (1000; choose less where the test is about waits that nobody answers).
"""

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
# EIO's text, as the C library of the program has it.
IO_ERROR = "I/O error" if "-musl/" in (PROGRAM or "") else "Input/output error"
FINDING = 99  # exit status that simdev asks the sanitizers for
PEER_SECONDS = 30  # no peer waits longer, so that no thread is left behind

sys.path.insert(0, str(pathlib.Path(__file__).parent))


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

    def partition(self, number):
        return self.folder / f"dev/fla{number}"

    def flash(self, number):
        return self.partition(number).read_bytes()

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
    """Starts scripts in threads; at the end of the test it waits for them and hands on failures."""
    threads, failures, sockets = [], [], []

    def start(script, sock):
        sock.settimeout(PEER_SECONDS)
        sockets.append(sock)

        def body():
            try:
                script(sock)
            except BaseException as failure:  # pylint: disable=broad-except
                failures.append(failure)

        thread = threading.Thread(target=body, daemon=True)
        thread.start()
        threads.append(thread)
        return sock.getsockname()[1]

    yield start
    for thread in threads:
        thread.join(PEER_SECONDS)
    for sock in sockets:
        sock.close()
    if failures:
        raise failures[0]


@pytest.fixture
def udp_peer(peers):
    """udp_peer(script): script(socket) runs beside the test; returns the socket's port."""

    def start(script):
        sock = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
        sock.bind(("127.0.0.1", 0))
        return peers(script, sock)

    return start


@pytest.fixture
def tcp_peer(peers):
    """tcp_peer(script): script(listening socket) runs beside the test; returns the port."""

    def start(script):
        sock = socket.create_server(("127.0.0.1", 0))
        return peers(script, sock)

    return start


def send_by_tftp(sock, client, content):
    """Sends `content` in blocks of 512 to a client, each acknowledged; the last may be empty."""
    for number in range(1, len(content) // 512 + 2):
        block = content[(number - 1) * 512:number * 512]
        sock.sendto(struct.pack(">HH", 3, number & 0xFFFF) + block, client)
        assert sock.recvfrom(600)[0] == struct.pack(">HH", 4, number & 0xFFFF)


def answer_request(files, request, client):
    """One transfer, from a port of its own; a name that is not there gets an error packet."""
    with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as transfer:
        transfer.bind(("127.0.0.1", 0))
        transfer.settimeout(PEER_SECONDS)
        name = request[2:].split(b"\0")[0].decode()
        if name in files:
            send_by_tftp(transfer, client, files[name])
        else:
            transfer.sendto(struct.pack(">HH", 5, 1) + b"no such file\0", client)


@pytest.fixture
def serve_tftp(udp_peer):
    """serve_tftp({name: bytes}): a server for one request; returns the port. With many=True it
    answers all that come, several at a time, and does not mind clients that go away."""
    sockets = []

    def answer_many(files, sock):
        def answer(request, client):
            with contextlib.suppress(OSError):
                answer_request(files, request, client)

        with contextlib.suppress(OSError):  # closed when the test ends
            while True:
                threading.Thread(target=answer, args=sock.recvfrom(600), daemon=True).start()

    def start(files, many=False):
        if not many:
            return udp_peer(lambda sock: answer_request(files, *sock.recvfrom(600)))
        sock = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
        sock.bind(("127.0.0.1", 0))
        sockets.append(sock)
        threading.Thread(target=answer_many, args=(files, sock), daemon=True).start()
        return sock.getsockname()[1]

    yield start
    for sock in sockets:
        sock.close()


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

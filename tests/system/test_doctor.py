# SPDX-License-Identifier: GPL-2.0-or-later
"""fwdoctor: logs of runs that failed for real, and partitions as they were left."""

import contextlib
import json
import os
import re
import shutil
import socket
import subprocess
import time

import pytest

from conftest import BUILD, ROOT
from doctor_runs import FAILURES, PACKAGE, Server
from nginx import free_ports
from package import Part, make_package
from servers import atftpd, vsftpd

FWDOCTOR = BUILD / "tools/doctor/fwdoctor"


def fwdoctor(*words, **more):
    return subprocess.run([FWDOCTOR, *map(str, words)], capture_output=True, timeout=120, **more)


def explain(log):
    """What fwdoctor says of a log, as JSON, and its exit status."""
    done = fwdoctor("log", "--json", "-", input=log)
    assert done.stderr == b""
    return json.loads(done.stdout), done.returncode


@pytest.fixture(scope="module")
def nginx(tmp_path_factory):
    with Server(tmp_path_factory.mktemp("nginx"), {"flash.pkg": PACKAGE}) as good, \
            Server(tmp_path_factory.mktemp("old"), {}, days=-1) as expired:
        yield good, expired


@pytest.fixture
def ports(nginx, tmp_path, start_server, tcp_peer):
    """Ports by name, those of real servers among them."""
    served = tmp_path / "served"
    served.mkdir()
    (served / "flash.pkg").write_bytes(PACKAGE)

    def silent(listener):
        with contextlib.suppress(OSError), listener.accept()[0] as connection:
            while connection.recv(4096):
                pass

    class Ports(dict):
        def __missing__(self, name):
            self[name] = {
                "http": lambda: nginx[0].http, "https": lambda: nginx[0].https,
                "expired": lambda: nginx[1].https, "closed": lambda: free_ports(1)[0],
                "silent": lambda: tcp_peer(silent),
                "ftp": lambda: start_server(lambda port: vsftpd(served, port), socket.SOCK_STREAM),
                "tftp": lambda: start_server(lambda port: atftpd(served, port), socket.SOCK_DGRAM),
            }[name]()
            return self[name]

    return Ports()


@pytest.mark.parametrize("name", FAILURES)
def test_the_true_cause_is_named_first(name, nginx, ports, make_device, serve_tftp):
    row = FAILURES[name]
    device = make_device(**row.device)
    if row.trusted:
        shutil.copy(nginx[0].folder / f"{row.trusted}.pem", device.folder / "usr/etc/ca-cert.pem")
    if "expired" in (row.url or ""):
        shutil.copy(nginx[1].authority, device.folder / "usr/etc/ca-cert.pem")
    url = row.url.format_map(ports) if row.url else "tftp://127.0.0.1/fw"
    tftp_port = serve_tftp({"fw": row.package}) if not row.url else \
        ports["tftp"] if url.startswith("tftp://127") else None
    run = device.run(url, faults=row.faults, tftp_port=tftp_port, grace=500)
    report, status = explain(run.stderr)
    said = report["runs"][0]
    assert len(report["runs"]) == 1
    assert said["cause"].startswith(row.cause), said
    assert said["network"] == row.network
    assert (said["remedies"] == []) == (status == 0)
    if run.status < 100:  # else the log has no end
        assert said["exit_status"] == run.status
    assert (status == 0) == (said["cause"] == "The upgrade is complete.")
    written = {f"/dev/fla{number}" for number in run.report["partitions"]}
    assert set(said["partitions"]) == written


def test_the_last_run_decides_the_exit_status():
    failed = b"download start ...\nUPGRD_ERROR=DOWNLOAD FAILED\n"
    assert explain(failed + b"download start ...\nUPGRD_STAGE=DONE\n")[1] == 0
    assert explain(b"download start ...\nUPGRD_STAGE=DONE\n" + failed)[1] == 1


def test_what_is_no_log_gets_one_line(tmp_path):
    for log, lines in ((b"", 0), (bytes(3_000_000), 1),
                       (b"Linux version 6.1\nmtd: block 7 is bad\n" * 50, 100)):
        done = fwdoctor("log", "-", input=log)
        assert (done.returncode, done.stdout, done.stderr.decode()) == (
            2, b"", f"fwdoctor: -: no message of upgrade in its {lines} lines\n")
    for path, reason in ((tmp_path / "none", "No such file or directory"),
                         (tmp_path, "Is a directory")):
        done = fwdoctor("log", path)
        assert (done.returncode, done.stderr.decode()) == (
            2, f"fwdoctor: {path}: cannot be read: {reason}\n")


def test_a_log_of_100_megabytes_takes_little_memory(tmp_path):
    log = tmp_path / "log"
    with open(log, "wb") as file:
        file.write(b"download start ...\nUPGRD_STAGE=WRITING\nopen /dev/fla2 for writing\n\n")
        lines = b"write block #7 failed: Input/output error\nreset watchdog error: Input/output error\n"
        for _ in range(1000 if BUILD.name != "dev" else 50):  # 5 MB where everything is slow
            file.write(lines * (100_000 // len(lines)))
        file.write(b"write block #7 failed: Input/output error\n")
    with subprocess.Popen([FWDOCTOR, "log", "--json", log], stdout=subprocess.PIPE,
                          env={**os.environ, "ASAN_OPTIONS": "quarantine_size_mb=1"}) as done:
        report = json.loads(done.stdout.read())
        _, done.returncode, usage = os.wait4(done.pid, 0)
    assert report["runs"][0]["cause"].startswith("The flash refused block 7")
    assert usage.ru_maxrss < 100_000  # KiB, that of the sanitizers included


EXAMPLES = ROOT / "examples/device"
SHELLS = [["dash"], ["busybox", "sh"]]


def logged(shell, tmp_path, text, status, **environment):
    """What upgrade-logged keeps of a program that says `text`."""
    program = tmp_path / "upgrade"
    (tmp_path / "said").write_bytes(text)
    program.write_text(f"#!/bin/sh\necho dump\ncat {tmp_path}/said >&2\nexit {status}\n")
    program.chmod(0o755)
    starter = tmp_path / "network.start"
    starter.write_text(f"#!/bin/sh\necho started >>{tmp_path}/starts\n")
    starter.chmod(0o755)
    done = subprocess.run([*shell, EXAMPLES / "upgrade-logged", "url"], capture_output=True, env={
        "PATH": os.environ["PATH"], "UPGRADE": str(program), "UPGRADE_LOG": str(tmp_path / "log"),
        "NETWORK_START": str(starter), **environment}, timeout=60)
    assert (done.returncode, done.stdout, done.stderr) == (status, b"", b"")
    return (tmp_path / "log").read_bytes() if (tmp_path / "log").exists() else None


@pytest.mark.parametrize("shell", SHELLS, ids=" ".join)
def test_upgrade_logged_keeps_what_the_doctor_needs(shell, tmp_path, make_device, serve_tftp):
    starts = tmp_path / "starts"
    # A real run: what the program says becomes the log.
    run = make_device(configuration={"VENID": "top secret"}).run(
        "tftp://127.0.0.1/f", tftp_port=serve_tftp({"f": FAILURES["another key"].package}))
    log = logged(shell, tmp_path, run.stderr, run.status)
    assert b"decrypt using: ***\n" in log and b"top secret" not in log
    assert (tmp_path / "log").stat().st_mode & 0o777 == 0o600
    report, _ = explain(log)
    assert report["runs"][0]["cause"].startswith("The package's checksum is wrong")
    assert (report["runs"][0]["exit_status"], report["runs"][0]["network"]) == (1, "started again")
    assert starts.read_text() == "started\n"
    # The second run is behind the first. Its network was never stopped.
    text = b"download start ...\nurl = ftp://me:word@h/f\ncannot download url: ftp://me:word\n" \
        b"UPGRD_ERROR=DOWNLOAD FAILED\n_httpc_read_char:7: \n-10\nno end of line"
    log = logged(shell, tmp_path, text, 1)
    assert b"word" not in log and log.count(b"ftp://me:***") == 2 and b"read_char" not in log
    assert b"no end of line\nupgrade-logged: outcome DOWNLOAD FAILED\n" in log
    assert len(explain(log)[0]["runs"]) == 2
    logged(shell, tmp_path, b"download start ...\nUPGRD_STAGE=DONE\n", 0)
    assert starts.read_text() == "started\n"
    # Two files of half the limit each, and what is said when the log cannot be written.
    logged(shell, tmp_path, b"write block #1 failed: x\n" * 3000, 2, UPGRADE_LOG_KB="4")
    sizes = [(tmp_path / name).stat().st_size for name in ("log", "log.old")]
    assert max(sizes) < 2048 + 100 and starts.read_text() == "started\n" * 2
    logged(shell, tmp_path, b"bad package!\n", 1, UPGRADE_LOG="/nowhere/log")


@pytest.mark.parametrize("shell", SHELLS, ids=" ".join)
def test_network_stop_ends_whatever_hangs(shell, tmp_path):
    tools, net, init = (tmp_path / name for name in ("bin", "net", "init.d"))
    for folder in (tools, net, init):
        folder.mkdir()
    for name in ("lo", "eth0", "wlan0"):
        (net / name).touch()
    (tools / "ip").write_text(f"#!/bin/sh\necho \"$@\" >>{tmp_path}/done\n")
    (init / "web").write_text("#!/bin/sh\nexec sleep 1000\n")
    (init / "shell").write_text(f"#!/bin/sh\necho shell \"$@\" >>{tmp_path}/done\n")
    for script in (tools / "ip", init / "web", init / "shell"):
        script.chmod(0o755)
    begin = time.monotonic()
    done = subprocess.run([*shell, EXAMPLES / "network.stop"], capture_output=True, timeout=30, env={
        "PATH": f"{tools}:{os.environ['PATH']}", "NETWORK_STOP_SECONDS": "1", "INIT_DIR": str(init),
        "SERVICES": "none web shell", "NET_DIR": str(net)})
    assert (done.returncode, done.stdout, done.stderr) == (0, b"", b"")
    assert 1 <= time.monotonic() - begin < 10
    assert (tmp_path / "done").read_text() == "shell stop\nlink set eth0 down\nlink set wlan0 down\n"


def test_the_sample_configuration_and_rules(make_device, serve_tftp):
    device = make_device()
    sample = (EXAMPLES / "syscfg.conf").read_text()
    (device.folder / "etc/syscfg.conf").write_text(
        sample.replace("#VENDOR_KEY=", "VENDOR_KEY=a key"))
    package = make_package([Part(2, b"k", conditions=b"\0board\0rev2\0\x0bram\00064\0")], key=b"a key")
    run = device.run("tftp://127.0.0.1/f", tftp_port=serve_tftp({"f": package}))
    assert run.status == 0 and {kick["line"] for kick in run.of("kick")} == {5}
    # Each kind of flash has the three partitions, by name, for root alone.
    rules = [dict(re.findall(r'([\w{}]+)(?:==|\+=|=)"([^"]*)"(?:, |$)', line))
             for line in (EXAMPLES / "70-upgrade-flash.rules").read_text().splitlines()
             if line and not line.startswith("#")]
    named = [(rule.get("ATTRS{name}") or rule["ENV{PARTNAME}"], rule["SYMLINK"]) for rule in rules]
    assert named == [("kernel", "fla2"), ("base", "fla3"), ("app", "fla4")] * 2
    assert all((rule["SUBSYSTEM"], rule["OWNER"], rule["MODE"]) == ("block", "root", "0600")
               for rule in rules)

# SPDX-License-Identifier: GPL-2.0-or-later
"""fwdoctor: logs of runs that failed for real, and partitions as they were left."""

import json
import os
import re
import shutil
import socket
import subprocess

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
    with Server(tmp_path_factory.mktemp("nginx"), {"flash.pkg": PACKAGE}) as server:
        yield server


@pytest.fixture
def ports(nginx, tmp_path, start_server):
    """Ports by name, those of real servers among them."""
    served = tmp_path / "served"
    served.mkdir()
    (served / "flash.pkg").write_bytes(PACKAGE)

    class Ports(dict):
        def __missing__(self, name):
            self[name] = {
                "http": lambda: nginx.http, "https": lambda: nginx.https,
                "closed": lambda: free_ports(1)[0],
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
        shutil.copy(nginx.folder / f"{row.trusted}.pem", device.folder / "usr/etc/ca-cert.pem")
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
    for log, lines in (b"", 0), (b"Linux version 6.1\nmtd: block 7 is bad\n" * 50, 100):
        done = fwdoctor("log", "-", input=log)
        assert (done.returncode, done.stdout, done.stderr.decode()) == (
            2, b"", f"fwdoctor: -: no message of upgrade in its {lines} lines\n")
    for path, reason in (tmp_path / "none", "No such file or directory"), (tmp_path, "Is a directory"):
        done = fwdoctor("log", path)
        assert (done.returncode, done.stderr.decode()) == (
            2, f"fwdoctor: {path}: cannot be read: {reason}\n")


EXAMPLES = ROOT / "examples/device"
SHELLS = [["dash"], ["busybox", "sh"]]


def logged(shell, tmp_path, text, status, **environment):
    """What upgrade-logged keeps of a program that says `text`."""
    (tmp_path / "said").write_bytes(text)
    program, starter = tmp_path / "upgrade", tmp_path / "network.start"
    for script, lines in ((program, f"echo dump\ncat {tmp_path}/said >&2\nexit {status}\n"),
                          (starter, f"echo started >>{tmp_path}/starts\n")):
        script.write_text("#!/bin/sh\n" + lines)
        script.chmod(0o755)
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
    done = subprocess.run([*shell, EXAMPLES / "network.stop"], capture_output=True, timeout=10, env={
        "PATH": f"{tools}:{os.environ['PATH']}", "NETWORK_STOP_SECONDS": "1", "INIT_DIR": str(init),
        "SERVICES": "none web shell", "NET_DIR": str(net)})
    assert (done.returncode, done.stdout, done.stderr) == (0, b"", b"")
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
    named = re.findall(r'SUBSYSTEM=="block",.*=="(\w+)",.* SYMLINK\+="(\w+)",.*OWNER="root",.*MODE="0600"',
                       (EXAMPLES / "70-upgrade-flash.rules").read_text())
    assert named == [("kernel", "fla2"), ("base", "fla3"), ("app", "fla4")] * 2

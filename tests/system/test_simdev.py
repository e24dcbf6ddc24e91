# SPDX-License-Identifier: GPL-2.0-or-later
"""simdev itself: what it keeps apart, what it records, what it refuses."""

import contextlib
import json
import os
import re
import resource
import shutil
import signal
import struct
import subprocess
import zlib

import pytest

from conftest import BUILD, IO_ERROR, PROGRAM, ROOT, SIMDEV
from package import Part, make_package
from test_upgrade import KERNEL, trailer


def upgrade(device, serve_tftp, parts, **settings):
    port = serve_tftp({"fw": make_package(parts)})
    return device.run("tftp://127.0.0.1/fw", tftp_port=port, **settings)


def test_an_upgrade_leaves_data_trailer_log_and_report(make_device, serve_tftp):
    device = make_device(script={"seconds": 1.5, "status": 3})
    (device.folder / "run/stderr").write_text("block #9 differ\n" * 9999)  # of an earlier run
    run = upgrade(device, serve_tftp, [Part(2, KERNEL)])
    assert run.status == 0
    assert device.flash(2) == KERNEL + b"\xff" * (65536 - 5120 - 16) + trailer(KERNEL)
    assert device.flash(3) == b"\xff" * 65536
    # The two blocks in order: each written, synced and fed, then rest; the trailer comes last.
    assert run.names("write", "sync", "kick")[:8] == ["write", "sync", "kick"] * 2 + ["write", "sync"]
    assert [(o["offset"], o["result"], o["virtual_us"]) for o in run.of("write")] == [
        (0, 4096, 1500000), (4096, 1024, 1540000), (65520, 16, 1580000)]
    assert [(o["number"], o["line"], o["level"]) for o in run.of("kick")] == [
        (1, 5, 0), (2, 5, 1), (3, 5, 0), (4, 5, 1)]
    # The whole transfer is one line of the log: 18 blocks and an empty one, a request and their answers.
    assert [(o["received"], o["sent"]) for o in run.of("network")] == [(9216 + 19 * 4, 11 + 19 * 4)]
    assert run.datagrams == run.server_datagrams
    assert [o["text"] for o in run.of("datagram")[::2]] == run.datagrams
    assert run.report["script"] == 3
    assert run.report["virtual_us"] == 1500000 + 2 * 40000 + 100000 + 2000000
    assert run.report["partitions"] == {"2": {
        "writes": 3, "bytes": 5136, "failed": 0, "crc": f"{zlib.crc32(KERNEL):08x}", "length": 5120,
        "trailer": "valid"}}
    assert "differences" not in run.report
    watchdog = run.report["watchdog"]
    assert (watchdog["kicks"], watchdog["longest"]["virtual_us"]) == (4, 2000000)
    assert watchdog["longest_phases"] == "verifying to end"


def test_the_script_gets_the_environment_without_the_simulation(make_device, serve_tftp):
    device = make_device(requirements={"kernel": "ram=1"})
    script = device.folder / "etc/rc.d/init.d/network.stop"
    script.write_text(f"#!/bin/sh\nenv > {device.folder}/seen\nls -l /proc/$$/fd > {device.folder}/open\nkill $$\n")
    run = upgrade(device, serve_tftp, [Part(2, KERNEL)],
                  environment={"KEPT": "yes", "app_features": "of the host"})
    seen = dict(line.split("=", 1) for line in (device.folder / "seen").read_text().splitlines())
    assert (seen["KEPT"], seen["kernel_features"]) == ("yes", "ram=1")
    assert [n for n in seen if n.startswith(("LD_PRELOAD", "SIMDEV_", "app_features"))] == []
    assert "pipe:" not in (device.folder / "open").read_text()
    assert run.report["script"] == 128 + signal.SIGTERM
    script.chmod(0o644)
    [ended] = upgrade(device, serve_tftp, [Part(2, KERNEL)]).of("script")
    assert (ended["result"], ended["error"]) == (-1, "EACCES")


def test_a_server_of_datagrams_that_is_cut_is_given_up_after_25_seconds(make_device, udp_peer):
    def serve_three_blocks(sock):
        for number in (1, 2, 3):
            _, client = sock.recvfrom(600)
            sock.sendto(struct.pack(">HH", 3, number) + bytes(512), client)

    run = make_device().run("tftp://127.0.0.1/fw", faults=["server-cut@1000"],
                            tftp_port=udp_peer(serve_three_blocks))
    assert (run.status, run.report["virtual_us"]) == (1, 25000000)
    assert b"last timeout\ntftp download packet length: 1024\n" in run.stderr
    assert run.report["real_us"] < 1000000


def test_the_default_server_is_unreachable_unless_it_is_mapped(make_device, tcp_peer):
    run = make_device().run()
    assert {(o["target"], o["error"]) for o in run.of("connect")} == {("192.168.1.1:80", "ENETUNREACH")}
    run = make_device().run(ports=[(80, tcp_peer(serve_http)), (65535, 65535)])
    assert (run.status, [o["target"] for o in run.of("connect")]) == (0, ["192.168.1.1:80"])
    run = make_device().run("http://firmware.example/", **{"map-host": "firmware.example=127.0.0.1"},
                            ports=[(80, tcp_peer(serve_http))])
    assert (run.status, [o["target"] for o in run.of("connect")]) == (0, ["127.0.0.1:80"])


def test_real_time_starves_the_watchdog_too(make_device, serve_tftp):
    device = make_device()
    script = device.folder / "etc/rc.d/init.d/network.stop"
    script.write_text("#!/bin/sh\nexec sleep 20\n")
    port = serve_tftp({"fw": make_package([Part(2, KERNEL)])})
    command = device.command("run", "--fault=watchdog:seconds=1", "--json", tftp_port=port)
    done = subprocess.run([*command, "--", "tftp://127.0.0.1/fw"], capture_output=True, timeout=15)
    report = json.loads(done.stdout)
    assert (done.returncode, report["ended_by"], report["virtual_us"]) == (101, "reset", 0)
    assert report["script"] is None and report["faults"] == {"watchdog:seconds=1": 1}


def test_a_folder_is_one_commands_at_a_time(make_device, udp_peer):
    device = make_device()

    def run_another(sock):
        sock.recvfrom(600)
        for command in (device.command("run"), device.command("sweep")):
            done = subprocess.run(command, capture_output=True, text=True, timeout=30)
            assert (done.returncode, done.stderr) == (
                125, f"simdev: {device.folder}: another simdev is at work on it\n")
        os.kill(simdev.pid, signal.SIGINT)  # which ends the program by a signal of its own

    simdev = subprocess.Popen(device.command("run", tftp_port=udp_peer(run_another))
                              + ["--", "tftp://127.0.0.1/\33[1m"], stdout=subprocess.PIPE,
                              stderr=subprocess.DEVNULL)
    report = simdev.communicate(timeout=60)[0]
    assert b"(ended by signal 15, Terminated), interrupted\n" in report
    assert b"url = tftp://127.0.0.1/\\x1b[1m\n" in report
    assert simdev.returncode == 128 + 15


def test_a_device_that_cannot_be_made_whole_is_not_made(tmp_path):
    def limit_file_size():
        signal.signal(signal.SIGXFSZ, signal.SIG_IGN)
        resource.setrlimit(resource.RLIMIT_FSIZE, (5000000, 5000000))

    for existing in (False, True):
        if existing:
            (tmp_path / "new").mkdir()
        done = subprocess.run([SIMDEV, "init", "new"], cwd=tmp_path, capture_output=True, text=True,
                              preexec_fn=limit_file_size, timeout=60)
        assert done.returncode == 125
        assert done.stderr == "simdev: new/dev/fla3: cannot be written: File too large\n"
        assert list(tmp_path.rglob("*")) == [tmp_path / "new"] * existing


def test_an_interrupted_init_leaves_nothing(tmp_path):
    (tmp_path / "large.toml").write_text("[partitions]\n2 = 4294967296\n")
    simdev = subprocess.Popen([SIMDEV, "init", "new", "--device=large.toml"], cwd=tmp_path,
                              stderr=subprocess.PIPE)
    while not (tmp_path / "new/dev/fla2").exists():
        assert simdev.poll() is None
    simdev.send_signal(signal.SIGINT)
    assert simdev.communicate(timeout=60)[1] == b"simdev: interrupted: nothing was made\n"
    assert simdev.returncode == 130 and not (tmp_path / "new").exists()


def test_every_fault_is_documented_and_completed():
    text = subprocess.check_output([SIMDEV, "run", "--help"], text=True)
    forms = re.findall(r"^  ([a-z-]+\S*)\n      ", text[text.index("Faults:"):], re.M)
    assert len(forms) == 18
    documented = re.findall(r"^\| `([a-z-]+[^`]*)` \|", section("docs/simulated-device.md", "## Faults"), re.M)
    assert documented == forms
    # A completion stops where a number or a name is wanted.
    words = [re.match(r"[a-z-]+(@|:[a-z]+=)?", form.replace("[xM]", "").replace("[@N]:", "[@N] :"))[0]
             for form in forms]
    for file in ("simdev.bash", "_simdev"):
        completion = (ROOT / "tools/simdev/completion" / file).read_text()
        found = completion[completion.index("cut@"):completion.index("server-cut@") + len("server-cut@")]
        assert found.split() == words, file


def section(file, heading):
    text = (ROOT / file).read_text()
    return text[text.index(heading):].split("\n## ")[0]


PACKAGE = make_package([Part(2, KERNEL)])


def serve_http(sock, content=PACKAGE):
    connection, _ = sock.accept()
    with connection:
        request = b""
        while not request.endswith(b"\r\n\r\n"):
            request += connection.recv(4096)
        connection.sendall(b"HTTP/1.0 200 OK\r\nContent-Length: %d\r\n\r\n" % len(content) + content)
        with contextlib.suppress(ConnectionResetError):
            connection.recv(1)  # until the client has gone


@pytest.mark.parametrize("faults, status, ended_by, virtual_us", [
    (["server-stall@5000"], 1, None, 300000000),
    (["server-stall@5000", "watchdog:seconds=30"], 101, "reset", 30000000),
    (["server-cut@5000"], 1, None, 0),
])
def test_server_faults_over_http(make_device, tcp_peer, faults, status, ended_by, virtual_us):
    run = make_device().run("http://127.0.0.1/fw", ports=[(80, tcp_peer(serve_http))],
                            faults=faults)
    assert (run.status, run.report["ended_by"]) == (status, ended_by), run.stderr
    assert sum(o["received"] for o in run.of("network")) == 5000
    assert [o["target"] for o in run.of("connect")] == ["127.0.0.1:80"]
    assert run.report["virtual_us"] == virtual_us
    assert {fault: count > 0 for fault, count in run.report["faults"].items()} == dict.fromkeys(faults, True)
    assert run.report["real_us"] < 5000000


@pytest.mark.parametrize("words, said", [
    (["run", "nowhere"], "nowhere: is no device folder"),
    (["run", "{device}", "--fault=cut"], 'fault "cut": "@N" is missing'),
    (["run", "{device}", "--map-port=80"], '--map-port: "80" is not A=B, two ports of 1 to 65535'),
    (["run", "{device}", "--map-host=fw"], '--map-host: "fw" is not NAME=ADDRESS'),
    (["run", "{device}", "--receiver=3=x"], '--receiver: "3=x" is not 1=PATH or 2=PATH'),
    (["run", "{device}", "--receiver=1={device}/x"], "receiver 1: nobody listens on {device}/x"),
    (["run", "{device}", "--program=/bin/nothing"], "/bin/nothing: cannot be read"),
    (["run", "{device}", "--program={device}/device.toml"], "cannot be started"),
    (["run", "{device}", "--json", "--log=/dev/full", "--", "http:///"], "/dev/full: cannot be written: No space"),
    (["sweep", "{device}", "--json", "--", "http:///"], "the undisturbed run ends with exit status 1: there is nothing"),
    (["init", "{device}"], "is there already and not empty"),
    (["init", "new", "--device=wrong.toml"], 'wrong.toml:2: partition "12" is not one of 0 to 9'),
    (["init", "new", "--device=odd.toml"], 'odd.toml:1: unknown key "\\x1b[1m\\x0a"'),
    (["init", "new", "--device=torn.toml"], "torn.toml:2: "),
    (["init", "new", "--device=deep.toml"], "deep.toml:2: more than 10000 dots"),
    (["init", "new", "--device=."], ".: cannot be read: Is a directory"),
    (["init", ""], "the folder's name is empty"),
    (["run", "{device}", "--program=static"], "static: is not linked dynamically for this machine"),
    (["run", "{device}", "--program=foreign"], "foreign: is not linked dynamically for this machine"),
    (["run", "{device}", "--grace=0"], "--grace: Value 0 not in range"),
])
def test_what_it_refuses(make_device, tmp_path, words, said):
    device = make_device()
    files = {"wrong": "[partitions]\n12 = 65536\n", "odd": '"\\u001b[1m\\n" = 1\n', "torn": "\n\x1b=1\n",
             "deep": "\n" + "a." * 100000 + "a=1\n"}
    for name, text in files.items():
        (tmp_path / f"{name}.toml").write_text(text)
    # The same program without its interpreter, and for a machine of another kind.
    program = (BUILD / "upgrade/upgrade").read_bytes()
    interpreter = struct.pack("<II", 3, 4)
    assert program.count(interpreter, 64, 1024) == 1
    for name, content in {"static": program.replace(interpreter, bytes(8), 1),
                          "foreign": program[:18] + b"\xff" + program[19:]}.items():
        (tmp_path / name).write_bytes(content)
        (tmp_path / name).chmod(0o755)
    done = subprocess.run([SIMDEV, *[w.format(device=device.folder) for w in words]],
                          capture_output=True, text=True, cwd=tmp_path, timeout=30)
    assert done.returncode == 125
    said = said.format(device=device.folder)
    assert said in done.stderr and done.stderr[:-1].isprintable(), done.stderr
    if "linked" in said:
        assert not (device.folder / "run/stderr").exists(), "it was run on this machine itself"


def test_the_model_is_there_in_odd_places(make_device, tmp_path):
    """Without it the program would run on this machine itself."""
    odd = tmp_path / "a b:c"
    odd.mkdir()
    for file in ("simdev", "libsimdev_preload.so", "upgrade_wrapped", "../../upgrade/upgrade"):
        shutil.copy2(SIMDEV.parent / file, odd)
    log = tmp_path / "log"
    # Few descriptors, and a closed one that the log must not be opened on.
    done = subprocess.run(["sh", "-c", 'ulimit -n 64; exec "$0" "$@" 2>&-', odd / "simdev", "run",
                           make_device().folder, f"--log={log}", "--", "http:///"], timeout=30)
    assert done.returncode == 1
    operations = [json.loads(line) for line in log.read_text().splitlines()]
    assert operations[0]["op"] == "start"
    assert "UPGRD_ERROR=DOWNLOAD FAILED" in [operation.get("text") for operation in operations]


def test_an_error_output_that_has_no_end_is_not_read(make_device):
    device = make_device()
    read, write = os.pipe()
    command = device.command("run", "--fast", f"--stderr=/dev/fd/{write}")
    done = subprocess.run([*command, "--", "http://127.0.0.1/fw"], pass_fds=[write], timeout=30,
                          capture_output=True, text=True, check=False)
    assert done.returncode == 1 and "\nat last" not in done.stdout
    assert b"cannot download url" in os.read(read, 65536)
    os.close(read)
    os.close(write)


def test_of_an_error_output_that_goes_on_and_on_the_two_ends_are_kept(make_device, tmp_path):
    if PROGRAM or "dev" in BUILD.name:
        pytest.skip("the sanitized program has the simulation in it, others cannot be replaced")
    (tmp_path / "talker.c").write_text(
        '#include <unistd.h>\nstatic char block[4096];\nint main(void) {\n'
        '    int failed = write(2, "first", 5) != 5;\n'
        '    for (int i = 0; i < 2048; i++) { failed |= write(2, block, 4096) != 4096; usleep(1000); }\n'
        '    return failed || write(2, "last", 4) != 4;\n}\n')
    subprocess.run(["cc", "-o", "talker", "talker.c"], cwd=tmp_path, check=True)
    run = make_device().run("http:///", program=tmp_path / "talker")
    assert run.status == 0
    left_out = 2048 * 4096 + 9 - (2 << 20)
    assert run.stderr == (b"first" + bytes((1 << 20) - 5) + b"\n(simdev left out %d bytes here)\n" % left_out
                          + bytes((1 << 20) - 4) + b"last")


def test_the_same_seed_flips_the_same_bit(make_device, serve_tftp):
    def flipped(seed):
        device = make_device()
        run = upgrade(device, serve_tftp, [Part(2, KERNEL)], faults=["bit-flip@1", "read-error@1"], seed=seed)
        assert run.report["faults"] == {"bit-flip@1": 1, "read-error@1": 1}
        assert b"read block #0 failed: %s\n" % IO_ERROR.encode() in run.stderr
        return [i for i, (a, b) in enumerate(zip(device.flash(2), KERNEL)) if a != b]

    first = flipped(1)
    assert len(first) == 1 and first == flipped(1) != flipped(2)


def test_a_url_that_is_no_text_is_no_trouble_for_the_report(make_device):
    done = subprocess.run([os.fsencode(word) for word in make_device().command("run", "--json")]
                          + [b"--", b"\xff:"], capture_output=True, timeout=60)
    assert (done.returncode, json.loads(done.stdout)["watchdog"]["longest_phases"]) == (1, "download (\xff)")

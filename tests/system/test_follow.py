# SPDX-License-Identifier: GPL-2.0-or-later
"""upgrade-follow: live upgrades, recordings, floods, and what goes wrong around it."""

import contextlib
import itertools
import json
import os
import pathlib
import pty
import resource
import signal
import socket
import subprocess
import threading
import time
import urllib.request

import pytest

from conftest import BUILD, ROOT
from package import Part, make_package

FOLLOW = BUILD / "tools/follow/upgrade-follow"
RECORDINGS = ROOT / "tests/recordings"
STATUSES = {"http": 0, "tftp": 0, "written-twice": 0, "above-100": 0, "refused-url": 1,
            "refused-package": 1, "failed-download": 1, "failed-upgrade": 2, "reset": 4}


class Follower:
    """A follower on a socket of its own."""

    def __init__(self, folder, *options, **settings):
        self.path = folder / "socket"
        self.process = subprocess.Popen([FOLLOW, "--socket", self.path, *map(str, options)],
                                        **{"stdout": subprocess.PIPE, "stderr": subprocess.PIPE,
                                           **settings})
        self.sender = socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM)
        while self.process.poll() is None and self.sender.connect_ex(str(self.path)) != 0:
            time.sleep(0.01)

    def say(self, *texts):
        for text in texts:
            data = text if isinstance(text, bytes) else f"UPGRD_{text}".encode()
            self.sender.send(data)

    def end(self, status):
        output, errors = self.process.communicate(timeout=20)
        assert self.process.returncode == status, errors
        return output.decode() if output else "", errors.decode() if errors else ""


@pytest.fixture
def follow(tmp_path):
    made = []

    def start(*options, **settings):
        made.append(Follower(tmp_path, *options, **settings))
        return made[-1]

    yield start
    for follower in made:
        follower.sender.close()
        if follower.process.poll() is None:
            follower.process.kill()
            follower.process.wait()


def wait_for(condition):
    end = time.monotonic() + 10
    while not condition():
        assert time.monotonic() < end
        time.sleep(0.01)


def replay(recording, *options, **settings):
    return subprocess.run([FOLLOW, "--replay", recording, "--speed", "0", *options],
                          capture_output=True, text=True, timeout=60, check=False, **settings)


@pytest.mark.parametrize("name", STATUSES)
def test_each_recording_ends_as_its_upgrade_did(name, tmp_path):
    recording = RECORDINGS / f"{name}.jsonl"
    seen = tmp_path / "seen"
    done = replay(recording, "--json", "--state", tmp_path / "state", "--run",
                  f'echo "$UPGRADE_OUTCOME $UPGRADE_STATUS $UPGRADE_ATTEMPT $UPGRADE_ERROR" >{seen}')
    assert (done.returncode, done.stderr) == (STATUSES[name], "")
    lines = [json.loads(line) for line in done.stdout.splitlines()]
    last = lines[-1]
    assert last == json.loads((tmp_path / "state").read_text())
    assert seen.read_text() == "{outcome} {exit_status} {attempt} ".format_map(last) + (last["error"] or "") + "\n"
    texts = [json.loads(line).get("text", "") for line in recording.read_text().splitlines()[1:]]
    assert last["attempt"] == texts.count("UPGRD_STAGE=WRITING")
    for before, after in zip(lines, lines[1:]):
        assert (after["time"], after["attempt"]) >= (before["time"], before["attempt"])
        assert after["overall"] >= before["overall"] or after["attempt"] > before["attempt"]
        assert 0 <= after["percent"] <= 100
        assert (after["overall"] == 100) == (after["state"] == "done")
    plain = replay(recording)
    assert plain.returncode == STATUSES[name] and "\033" not in plain.stdout
    assert f"\n{last['title']}\n" in "\n" + plain.stdout


def test_a_live_upgrade_is_followed_and_its_recording_says_the_same(make_device, serve_tftp, follow,
                                                                   tmp_path):
    device = make_device()
    port = serve_tftp({"fw": make_package([Part(2, bytes(20_000))])})
    follower = follow("--json", "--record", tmp_path / "record", "--wait", 20)
    run = device.run("tftp://127.0.0.1/fw", tftp_port=port, receiver=f"1={follower.path}")
    assert run.status == 0
    lines, _ = follower.end(0)
    states = [json.loads(line)["state"] for line in lines.splitlines()]
    assert list(dict.fromkeys(states)) == ["writing", "verifying", "verified", "done"]
    assert not follower.path.exists()
    texts = [json.loads(line).get("text") for line in (tmp_path / "record").read_text().splitlines()]
    assert texts[1:-1][:len(run.server_datagrams)] == run.server_datagrams[:len(texts) - 2]
    again = replay(tmp_path / "record", "--json").stdout
    assert [json.loads(line)["state"] for line in again.splitlines()] == states


def peak_memory(follower):
    status = pathlib.Path(f"/proc/{follower.process.pid}/status").read_text()
    return int(status.split("VmHWM:")[1].split()[0])


def test_a_flood_is_read_whatever_the_terminal_does(follow, tmp_path):
    """As fast as they can be sent while nobody reads the terminal: none is lost."""
    texts = ["STAGE=WRITING", "STAGE=VERIFYING", "STAGE=DOWNLOADING", *[f"PERCENTAGE={n}" for n in range(100)]]
    master, terminal = pty.openpty()
    follower = follow("--record", tmp_path / "record", "--state", tmp_path / "state",
                      stdout=terminal, stdin=terminal, env={**os.environ, "TERM": "xterm"})
    os.close(terminal)
    follower.sender.settimeout(2)  # as long as the upgrade waits
    follower.say(*texts * 20)
    before = peak_memory(follower)
    follower.say(*texts * 300)
    assert peak_memory(follower) - before < 256  # KiB
    follower.say("STAGE=DONE")
    threading.Thread(target=os.read, args=(master, 65536), daemon=True).start()
    follower.end(0)
    lines = [json.loads(line) for line in (tmp_path / "record").read_text().splitlines()]
    assert [line["text"] for line in lines[1:-1]] == [f"UPGRD_{text}" for text in [*texts * 320, "STAGE=DONE"]]
    assert lines[-1]["end"] == json.loads((tmp_path / "state").read_text())["state"] == "done"
    os.close(master)


def test_whatever_reads_the_output_it_ends_with_the_outcome(follow, tmp_path):
    follower = follow("--json")
    for _ in range(20):
        follower.say("STAGE=WRITING", *[f"PERCENTAGE={n}" for n in range(100)])
    follower.say("STAGE=DONE")
    lines = [json.loads(line) for line in follower.end(0)[0].splitlines()]
    assert lines[-1]["state"] == "done" and len(lines) < 2000
    reading, writing = os.pipe()
    os.close(reading)
    for output, complaints in ((open("/dev/full", "w"), 1), (writing, 0)):
        follower = follow("--json", stdout=output)
        follower.say("STAGE=DONE")
        assert follower.end(0)[1].count("\n") == complaints
    os.close(writing)
    with open(tmp_path / "output", "w+") as output:
        output.write("before\n")
        output.flush()
        follower = follow(stdout=output)
        follower.say("STAGE=DONE")
        follower.end(0)
        output.seek(0)
        assert output.readline() == "before\n"


def test_it_ends_after_its_wait_by_a_signal_or_never(follow, tmp_path):
    assert follow("--wait", "0.1").end(3) == ("Waiting for an upgrade to begin.\n", "")
    for number in (signal.SIGINT, signal.SIGTERM, signal.SIGHUP):
        follower = follow("--record", tmp_path / "record")
        assert follower.path.stat().st_mode & 0o777 == 0o600
        follower.say("STAGE=WRITING")
        # Kept when it is said, for a follower that is reset with its device.
        wait_for(lambda: "WRITING" in (tmp_path / "record").read_text())
        follower.process.send_signal(number)
        follower.end(-number)
        assert not follower.path.exists()
        assert json.loads((tmp_path / "record").read_text().splitlines()[-1])["end"] == "stopped"
    follower = follow("--stay", "--mode=622")
    # Given behind its making: who connects may be the quicker one.
    wait_for(lambda: follower.path.stat().st_mode & 0o777 == 0o622)
    follower.say("ERROR=INVALID URL", "STAGE=WRITING", "STAGE=DONE")
    timer = threading.Timer(10, follower.process.kill)
    timer.start()
    lines = list(itertools.takewhile(lambda line: line != b"Done\n", follower.process.stdout))
    timer.cancel()
    assert b"Address refused\n" in lines and follower.process.poll() is None


def test_state_file_command_and_linger_keep_up(follow, tmp_path):
    state, outcomes = tmp_path / "state", tmp_path / "outcomes"
    (tmp_path / "state.new").write_text("x" * 9999)  # left by one that was killed
    follower = follow("--quiet", "--stay", "--state", state, "--run",
                      f"echo $UPGRADE_OUTCOME >>{outcomes}")
    follower.say("STAGE=WRITING")
    wait_for(lambda: state.exists() and json.loads(state.read_text())["state"] == "writing")
    follower.say("PERCENTAGE=50")
    wait_for(lambda: json.loads(state.read_text())["percent"] == 50)
    follower.say("ERROR=INVALID URL")
    wait_for(lambda: outcomes.exists() and outcomes.read_text() == "refused\n")

    def another_in_one_turn():
        follower.process.send_signal(signal.SIGSTOP)
        follower.say("STAGE=WRITING", "STAGE=DONE")
        follower.process.send_signal(signal.SIGCONT)
        return outcomes.read_text().splitlines()[1:2] == ["done"]

    wait_for(another_in_one_turn)  # until the command for the one before has ended
    follower.process.terminate()
    assert follower.end(-signal.SIGTERM) == ("", "")
    # The first outcome is the one that counts, and the command is waited for.
    follower = follow("--run", f"sleep 0.3; touch {tmp_path}/over", "--web", 0, "--linger", 1.2,
                      "--wait", 1)
    start = time.monotonic()
    follower.say("ERROR=INVALID URL", "STAGE=WRITING")
    next(line for line in follower.process.stdout if line.startswith(b"Writing"))
    follower.say("STAGE=DONE")
    follower.end(1)
    assert (tmp_path / "over").exists() and time.monotonic() - start >= 1.2


def test_what_cannot_be_done_gets_one_line_and_following_goes_on(follow, tmp_path):
    with socket.create_server(("127.0.0.1", 0)) as taken:
        port = taken.getsockname()[1]
        (tmp_path / "s.new").symlink_to(tmp_path / "another's")
        follower = follow("--quiet", "--web", port, "--state", tmp_path / "s", "--run",
                          f"grep -E 'Sig(Blk|Ign)' /proc/self/status >{tmp_path}/signals; kill $$")
        follower.say("STAGE=WRITING", "PERCENTAGE=10", "STAGE=DONE")
        errors = follower.end(0)[1].splitlines()
    assert errors == [
        f"upgrade-follow: 127.0.0.1, port {port}: Address already in use",
        f"upgrade-follow: {tmp_path}/s: Too many levels of symbolic links",
        "upgrade-follow: --run: the command was ended by signal 15"]
    blocked, ignored = (int(word, 16) for word in (tmp_path / "signals").read_text().split()[1::2])
    assert blocked == 0 and not ignored & 1 << signal.SIGPIPE - 1

    def no_space():
        signal.signal(signal.SIGXFSZ, signal.SIG_IGN)
        resource.setrlimit(resource.RLIMIT_FSIZE, (0, 0))  # as a full disk: nothing can be written

    state = tmp_path / "state"
    state.write_text("as it was")
    follower = follow("--quiet", "--state", state, "--record", tmp_path / "r", preexec_fn=no_space)
    follower.say("STAGE=WRITING", "STAGE=DONE")
    errors = follower.end(0)[1].splitlines()
    assert sorted(line.split(": ")[1] for line in errors) == [str(tmp_path / "r"), str(state)]
    assert state.read_text() == "as it was" and not (tmp_path / "state.new").exists()


def test_hostile_peers_of_the_page_hold_up_nothing(follow, tmp_path):
    room = 24  # descriptors: fewer than there are peers
    state = tmp_path / "state"
    follower = follow("--quiet", "--web", 0, "--linger", 0, "--state", state,
                      "--run", f"ls -l /proc/self/fd >{tmp_path}/descriptors",
                      preexec_fn=lambda: resource.setrlimit(resource.RLIMIT_NOFILE, (room, room)))
    port = int(follower.process.stderr.readline().split(b":")[-1].strip(b"/\n"))
    with contextlib.ExitStack() as peers:
        endless = peers.enter_context(socket.create_connection(("127.0.0.1", port), 10))
        with pytest.raises(OSError):  # a line of 64 MiB
            for _ in range(1024):
                endless.sendall(bytes(65536))
        slow = [peers.enter_context(socket.socket()) for _ in range(2 * room)]
        for peer in slow:
            peer.setblocking(False)
            peer.connect_ex(("127.0.0.1", port))
        time.sleep(0.5)  # to be taken in
        follower.say("STAGE=WRITING", "STAGE=DONE")
        begin = time.monotonic()
        while follower.process.poll() is None and time.monotonic() < begin + 15:
            for peer in slow:
                with contextlib.suppress(OSError):
                    peer.send(b"G")
            time.sleep(0.1)
    assert follower.process.poll() == 0 and follower.process.stderr.read() == b""
    assert json.loads(state.read_text())["state"] == "done"
    assert "socket" not in (tmp_path / "descriptors").read_text()


def test_what_is_printed_to_a_closed_output_gets_into_no_file(follow, tmp_path):
    follower = follow("--record", tmp_path / "record", stdout=None, stderr=None,
                      preexec_fn=lambda: os.closerange(0, 3))
    follower.say("STAGE=WRITING", "STAGE=DONE")
    follower.end(0)
    assert [list(json.loads(line)) for line in (tmp_path / "record").read_text().splitlines()] == [
        ["format", "version", "clock"], ["at", "text"], ["at", "text"], ["at", "end"]]


def test_what_it_cannot_take_gets_one_line(tmp_path):
    cut = tmp_path / "cut"
    cut.write_text('{"format":"upgrade datagrams","version":1}\n{"at":0,"text":"UPGRD_STAGE=WRITING"}\n{"at"')
    rows = [(["--replay=none"], "none: No such file or directory"),
            (["-q", f"--replay={cut}"], f"{cut}:3: ends within a line"),
            (["--record=a", "--replay=b"], "--record: a recording is not recorded again"),
            (["--wait"], "--wait: a value is missing"), (["x"], "x: there are no arguments but options")]
    rows += [([option], f"{option}: no such option") for option in ("--no", "-x")]
    rows += [([f"--{name}={value}"], f"--{name}: not a value for it: {value}") for name, values in (
        ("wait", ["-1", "x", "nan", "1s", ""]), ("mode", ["8", "1777", ""]), ("speed", ["inf", "1e7"]),
        ("web", ["", "65536", ":80", "a:b", "80x", "x" * 64 + ":80"])) for value in values]
    for words, fault in rows:
        done = subprocess.run([FOLLOW, *words], capture_output=True, text=True, timeout=60, check=False)
        assert (done.returncode, done.stderr) == (125, f"upgrade-follow: {fault}\n"), words
    done = subprocess.run([FOLLOW, "--help"], capture_output=True, text=True, check=True)
    assert done.stdout.startswith("usage: upgrade-follow ") and not done.stderr


def test_a_replay_keeps_its_speed_and_the_page_gets_its_state(tmp_path):
    start = time.monotonic()
    done = subprocess.run([FOLLOW, "--replay", RECORDINGS / "http.jsonl", "--speed", "8", "-q"],
                          timeout=20, check=False)
    last = json.loads((RECORDINGS / "http.jsonl").read_text().splitlines()[-1])["at"]
    assert done.returncode == 0 and last / 8 <= time.monotonic() - start < last / 2 + 2
    with subprocess.Popen([FOLLOW, "--replay", RECORDINGS / "http.jsonl", "--speed", "0", "-q",
                           "--web", "[::1]:0"], stderr=subprocess.PIPE, text=True) as follower:
        line = follower.stderr.readline()
        assert line.startswith("The page: http://[::1]:")
        url = line.split()[-1] + "state.json"
        states = (json.load(urllib.request.urlopen(url, timeout=10)) for _ in range(200))
        assert next(state for state in states if state["state"] == "done")["exit_status"] == 0
        follower.terminate()

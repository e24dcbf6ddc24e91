# SPDX-License-Identifier: GPL-2.0-or-later
"""fwpkg's command line, and whether what it plans is what the program does."""

import json
import os
import subprocess

import pytest

from conftest import BUILD
from package import OPTIONAL, Part, make_package
from test_upgrade import REFUSED, SELECTED

FWPKG = BUILD / "tools/fwpkg/fwpkg"
REV2 = b"\0board\0rev2\0\xff"
RAM64 = b"\x0bram\x0064\0\xff"  # ram:>=64
MALFORMED = b"\0board\0rev"  # counts as met
NEVER = b"\0board\0none\0\xff"
DATA = bytes(range(256)) * 20


def fwpkg(*arguments, folder=None, status=0):
    done = subprocess.run([str(FWPKG), *map(str, arguments)], cwd=folder, capture_output=True,
                          text=True, timeout=60, check=False)
    assert done.returncode == status, done.stderr
    return done


# Name, package, device: what the tests of the program have, and what only a plan tells apart. Data
# differs in length, so that parts are told apart.
ROWS = [
    *((name, package, device) for name, (package, device, _) in REFUSED.items()),
    *((name, make_package(parts), device) for name, (parts, device, _) in SELECTED.items()),
    *((name, make_package(parts), device) for name, parts, device in [
        ("plain", [Part(2, DATA), Part(3, DATA[:100]), Part(4, DATA[:4096])], {}),
        ("alternatives", [Part(2, DATA, flags=OPTIONAL, conditions=REV2),
                          Part(2, DATA[1:], flags=OPTIONAL, conditions=RAM64), Part(3, b"base")],
         {"configuration": {"board": "rev1", "ram": "0x40"}}),
        ("both alternatives", [Part(2, DATA, conditions=REV2), Part(2, DATA[1:], conditions=RAM64)],
         {"configuration": {"board": "rev2", "ram": "64"}}),
        ("requirement met", [Part(2, DATA, features={"ram": "64"})],
         {"requirements": {"kernel": "ram:<=64"}}),
        ("requirement used up", [Part(2, DATA, features={"a": "1"}), Part(3, b"x"),
                                 Part(2, DATA[2:], features={"a": "1"}, flags=OPTIONAL)],
         {"requirements": {"kernel": "! b=1 & a=1"}}),
        ("requirement without comparison", [Part(4, DATA), Part(4, DATA[3:])],
         {"requirements": {"app": "( )"}}),
        ("requirement that does not compile", [Part(4, DATA, flags=OPTIONAL), Part(3, b"x")],
         {"requirements": {"app": "a.b=1"}}),
        ("missing and small partitions", [Part(2, DATA, flags=OPTIONAL), Part(3, DATA, flags=OPTIONAL),
                                          Part(4, b"app")],
         {"partitions": {3: 5119, 4: 4096}}),
        ("unchecked and missing", [Part(3, b"x"), Part(2, DATA, actual_size=0)],
         {"partitions": {3: 65536}}),
        ("never ends", [Part(3, b"x"), Part(2, DATA, actual_size=1)],
         {"partitions": {2: 4096, 3: 4096}}),
        ("type that is not written", [Part(2, DATA), Part(8, b"x"), Part(3, b"x")],
         {"partitions": {2: 65536, 3: 65536, 8: 65536}}),
        ("negative size", [Part(2, DATA, size=0x80000000, actual_size=1)], {}),
        ("eight parts", [Part(2, bytes([n]) * 10) for n in range(8)], {}),
    ]),
    ("enciphered", make_package([Part(2, DATA)], key=b"secret"),
     {"configuration": {"VENID": "secret"}}),
]


# What the program says of a failure, and the plan's words for it.
REASONS = [
    (b"error reading package", "error reading package"),
    (b"decrypt package failed", "decrypt package failed"),
    (b"invalid package", "invalid package"),
    (b"cannot open target device", "cannot open target device"),
    (b"not enougth space on target device", "not enough space on target device"),
    (b"is not in the package", "is not in the package"),
    (b"writing partition 8 not supported", "writing partition 8 is not supported"),
]


def written_by(run):
    """The parts that the run wrote: partition and bytes of data, each closed by its trailer."""
    parts, data, trailer = [], 0, False
    for operation in run.of("seek", "write"):
        if not operation["target"].startswith("/dev/fla"):
            continue
        if operation["op"] == "seek":
            trailer = operation["offset"] == -16
        elif trailer:
            parts.append((operation["target"], data))
            data, trailer = 0, False
        elif operation["result"] >= 0:
            data += operation["length"]
    return parts


@pytest.mark.parametrize("name, package, device", ROWS, ids=[row[0] for row in ROWS])
def test_the_plan_is_what_the_program_does(name, package, device, tmp_path, make_device,
                                           serve_tftp):
    (tmp_path / "fw").write_bytes(package)
    simulated = make_device(**device)
    plan = json.loads(fwpkg("plan", tmp_path / "fw", "--device", tmp_path / "device0.toml",
                            "--json").stdout)[0]
    endless = plan["exit_status"] is None
    run = simulated.run("tftp://127.0.0.1/fw", tftp_port=serve_tftp({"fw": package}),
                        faults=["watchdog:seconds=60"] if endless else [])
    assert run.status == (101 if endless else plan["exit_status"])
    written = [(part["partition"], part["bytes"]) for part in plan["parts"]
               if part["outcome"] == "written"]
    assert written_by(run) == written * max(1, run.datagrams.count("UPGRD_STAGE=WRITING"))
    if run.status == 0:
        # What a trailer or a later part covers reads back different.
        rooms = [part["room_left"] for part in plan["parts"] if part["outcome"] == "written"]
        covered = len(dict(written)) < len(written) or any(room < 0 for room in rooms)
        assert (b"differ" in run.stderr) == covered
    for said, planned in REASONS:
        assert (said in run.stderr) == (planned in plan["reason"]), plan["reason"]
    if not endless:
        assert sum(sleep["duration_us"] for sleep in run.of("sleep")) == plan["milliseconds"] * 1000


MANIFEST = """[package]
encrypt = true
[[part]]
type = "kernel"
file = "zImage"
conditions = "ram:>=64 & board=rev2"
features = { ram = "64", board = "rev2" }
"""


@pytest.fixture
def folder(tmp_path):
    (tmp_path / "m.toml").write_text(MANIFEST)
    (tmp_path / "zImage").write_bytes(DATA)
    (tmp_path / "key").write_bytes(b"secret\n")
    return tmp_path


def test_a_package_is_the_same_whatever_the_day_and_the_folder(folder):
    made = fwpkg("make", "m.toml", "-o", "one", "--key-file", "key", folder=folder)
    os.utime(folder / "zImage", (1, 1))
    fwpkg("make", folder / "m.toml", "-o", folder / "two", "--key-file", folder / "key", folder="/")
    expected = make_package([Part(2, DATA, features={"board": "rev2", "ram": "64"},
                                  conditions=RAM64[:-1] + b"\x12" + REV2)], key=b"secret")
    assert (folder / "one").read_bytes() == (folder / "two").read_bytes() == expected
    assert made.stderr == ""
    assert "content identifier: " + expected[12:28].hex() in made.stdout


def test_commands_end_with_their_exit_status_and_one_line(folder):
    """Rows: arguments, exit status, what standard error begins with; the key shows nowhere."""
    fwpkg("make", "m.toml", "-o", "fw", "--key-file", "key", folder=folder)
    (folder / "d.toml").write_text('[partitions]\n2=65536\n[configuration]\nVENDOR_KEY="secret"\n')
    (folder / "small\33.toml").write_text("[partitions]\n2=5120\n")
    (folder / "cut").write_bytes((folder / "fw").read_bytes()[:-1])
    (folder / "large").write_bytes(bytes(4096001))
    (folder / "asks").write_bytes(make_package(
        [Part(2, DATA, flags=OPTIONAL, conditions=b"\0VENDOR_KEY\0x\0\xff")], key=b"secret"))
    (folder / "dangling").symlink_to("made")
    (folder / "loop").symlink_to("loop")
    rows = [
        ("show fw --key-file key", 0, ""),
        ("show fw --json --key-file key", 0, ""),
        ("show fw", 2, "fwpkg: fw: enciphered, and no key is given"),
        ("check fw --key-file key --device d.toml", 0, ""),
        ("check fw --key-file key --device small\33.toml", 0, ""),
        ("check fw", 2, "fwpkg: fw: enciphered, and no key is given"),
        ("check cut --key-file key", 1, ""),
        ("check large", 1, "fwpkg: large: 4096001 bytes, more than the 4096000 bytes that can be used"),
        ("check gone", 2, "fwpkg: gone: cannot be read: No such file or directory"),
        ("plan fw --device d.toml", 0, ""),
        ("plan asks --device d.toml", 0, ""),
        ("plan asks --device d.toml --json", 0, ""),
        ("plan fw --device gone", 2, "fwpkg: gone: "),
        ("plan fw --device /dev/zero", 2, "fwpkg: /dev/zero: more than the 1048576 bytes"),
        ("plan fw", 2, "fwpkg: --device is required"),
        ("extract fw out --key-file key", 0, ""),
        ("extract cut out2 --key-file key", 1, "fwpkg: cut: not deciphered, since the length"),
        ("extract fw key --key-file key", 2, "fwpkg: key: "),
        ("make m.toml -o x", 2, "fwpkg: m.toml: encrypt = true needs --key-file"),
        ("make m.toml -o . --key-file key", 2, "fwpkg: .: not a regular file"),
        ("make m.toml -o gone/x --key-file key", 2, "fwpkg: gone/x: cannot be created: "),
        ("make m.toml -o dangling --key-file key", 0, ""),
        ("make m.toml -o loop --key-file key", 2, "fwpkg: loop: cannot be created: Too many levels"),
        ("condition a==1 a=1", 0, "warning: condition: a==1: the value"),
        ("condition 1a=2", 2, "fwpkg: condition: \"1a=2\" cannot be read from column 1 on"),
        ("condition a=1 =1", 2, "fwpkg: \"=1\" is not NAME=VALUE"),
        ("", 2, "fwpkg: A subcommand is required"),
        ("show fw --key=secret", 2, "fwpkg: The following argument was not expected: --key=secret"),
    ]
    for arguments, status, line in rows:
        done = fwpkg(*arguments.split(), folder=folder, status=status)
        assert done.stderr.startswith(line) and bool(done.stderr) == bool(line), done.stderr
        assert "secret" not in (done.stdout + done.stderr).replace("--key=secret", "")
        assert "\033" not in done.stdout + done.stderr
        if "show" in arguments and "--json" in arguments:
            assert json.loads(done.stdout)["digest_right"]
    assert (folder / "out/0-kernel.bin").read_bytes() == DATA
    assert not (folder / "out2").exists()
    assert (folder / "made").read_bytes() == (folder / "fw").read_bytes()
    for command in ["show fw --key-file key", "--help", "show --help"]:
        with open("/dev/full", "w") as full:
            done = subprocess.run([FWPKG, *command.split()], cwd=folder, stdout=full,
                                  stderr=subprocess.PIPE, text=True, timeout=60, check=False)
        assert (done.returncode, done.stderr) == (2, "fwpkg: cannot write the output\n")
    for command in ["make", "show", "check", "plan", "condition", "extract"]:
        assert f"Example:\n  fwpkg {command} " in fwpkg(command, "--help").stdout

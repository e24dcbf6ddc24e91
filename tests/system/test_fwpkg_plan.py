# SPDX-License-Identifier: GPL-2.0-or-later
"""Whether what fwpkg plans is what the program does."""

import json

import pytest

from fwpkg_tool import DATA, RAM64, REV2, fwpkg
from package import OPTIONAL, Part, make_package

# Name, package, device: the order, what is used up, what is counted, and how writing ends. Data differs in
# length, so that parts are told apart.
ROWS = [
    *((name, make_package(parts), device) for name, parts, device in [
        ("plain", [Part(2, DATA), Part(3, DATA[:100]), Part(4, DATA[:4096])], {}),
        ("alternatives", [Part(2, DATA, flags=OPTIONAL, conditions=REV2),
                          Part(2, DATA[1:], flags=OPTIONAL, conditions=RAM64), Part(3, b"base")],
         {"configuration": {"board": "rev1", "ram": "0x40"}}),
        ("requirement used up", [Part(2, DATA, features={"a": "1"}), Part(3, b"x"),
                                 Part(2, DATA[2:], features={"a": "1"}, flags=OPTIONAL)],
         {"requirements": {"kernel": "! b=1 & a=1"}}),
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
    ]),
    ("enciphered", make_package([Part(2, DATA)], key=b"secret"),
     {"configuration": {"VENID": "secret"}}),
    ("another key", make_package([Part(2, DATA)], key=b"secret"),
     {"configuration": {"VENDOR_KEY": "terces"}}),
    ("data that is not there", make_package([Part(2, DATA), Part(3, b"x", offset=1 << 20)]), {}),
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
                            "--json").stdout)["devices"][0]
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


def test_details_of_many_devices_are_shown_on_request(tmp_path):
    (tmp_path / "fw").write_bytes(make_package([Part(2, DATA)]))
    (tmp_path / "d.toml").write_text("[partitions]\n2=65536\n")
    (tmp_path / "small.toml").write_text("[partitions]\n2=5119\n")
    device, small = ("--device", "d.toml"), ("--device", "small.toml")
    table = "device      result    time    kernel\n" + "d.toml      upgraded  2.18 s  written\n" * 3 \
        + "small.toml  refused   -       refused\n\n"
    refused = ("small.toml: package refused (exit status 1): part 0 (kernel): not enough space on target "
               "device: 5120 bytes needed, /dev/fla2 has 5119\n")
    hint = "--details shows what each device compares, and the room it has left\n"
    assert fwpkg("plan", "fw", *device * 3, *small, folder=tmp_path).stdout == table + refused + hint
    shown = fwpkg("plan", "fw", *device * 3, *small, "--details", folder=tmp_path).stdout
    assert "/dev/fla2 has 65536 bytes" in shown and refused in shown and hint not in shown

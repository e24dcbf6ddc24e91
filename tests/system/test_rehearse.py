# SPDX-License-Identifier: GPL-2.0-or-later
"""simdev rehearse: whether a package comes to what its plan says, and whether it is seen when not."""

import json
import os
import random
import resource
import shutil
import subprocess
import xml.etree.ElementTree as xml
from hashlib import sha256

import pytest

from conftest import BUILD, PROGRAM, ROOT, SIMDEV, toml_table
from fwpkg_tool import DATA, RAM64, REV2
from package import OPTIONAL, Part, make_package
from test_json import check_page

PAIRS = int(os.environ.get("REHEARSED_PAIRS", "50"))
KEY = b"secret"
PARTITIONS = {2: 65536, 3: 65536, 4: 65536}


def describe(path, **tables):
    tables = {"partitions": PARTITIONS, "configuration": {"board": "rev2"}} | tables
    path.write_text("".join(toml_table(name, pairs) for name, pairs in tables.items()))
    return f"--device={path.name}"


def rehearse(folder, *arguments, status=0, **settings):
    program = [f"--program={ROOT / PROGRAM}"] if PROGRAM else []
    done = subprocess.run([SIMDEV, "rehearse", "fw", "--fast", *program, *arguments], cwd=folder,
                          capture_output=True, text=True, timeout=600, check=False, **settings)
    assert done.returncode == status, done.stdout + done.stderr
    assert status == 125 or done.stderr == ""  # no progress where there is no terminal
    return done


def troubles(device):
    return [(trouble["kind"], trouble["text"]) for trouble in device["troubles"]]


@pytest.fixture
def devices(tmp_path):
    """A package, the one before it, and options for three devices, the last of which refuses it."""
    parts = [Part(2, DATA, flags=OPTIONAL, conditions=REV2), Part(3, DATA[:100])]
    (tmp_path / "fw").write_bytes(make_package(parts, key=KEY))
    (tmp_path / "old").write_bytes(make_package([Part(2, DATA[::-1]), Part(4, b"app")], key=KEY))
    (tmp_path / "key").write_bytes(KEY + b"\n")
    return [describe(tmp_path / "rev2.toml"),
            describe(tmp_path / "rev1.toml", configuration={"VENDOR_KEY": "secret", "board": "rev1"}),
            describe(tmp_path / "small.toml", partitions={2: 65536, 4: 65536}), "--key-file=key"]


@pytest.mark.parametrize("protocol", [[], ["--https"]], ids=["http", "https"])
def test_all_that_can_be_asked_of_a_package_at_once(devices, tmp_path, protocol):
    (tmp_path / "expected").write_text('"rev1.toml" = "upgraded"\n"rev2.toml" = "upgraded"\n'
                                       '"small.toml" = "refused"\n')
    options = [*devices, *protocol, "--from=old", "--sweep", "--expect=expected", "--junit=out.xml"]
    result = json.loads(rehearse(tmp_path, *options, "--json").stdout)
    assert result["good"] and not result["interrupted"]
    rev2, rev1, small = result["devices"]
    assert [part["outcome"] for part in rev2["parts"] + rev1["parts"]] == [
        "written", "written", "dropped", "written"]
    # Two blocks and one, a trailer each: as many cuts, and the rests of the pacing.
    assert rev2["sweep"] == {"writes": 5, "recovered": 5, "mixed_but_valid": 0}
    assert (rev2["blocks"], rev2["milliseconds"]) == (3, 3 * 40 + 2 * 100 + 2000)
    assert (small["result"], small["exit_status"], small["sweep"]) == ("refused", 1, None)
    suite = xml.parse(tmp_path / "out.xml").getroot()
    assert [suite.get(name) for name in ("tests", "failures", "errors")] == ["3", "0", "0"]
    text, _, real = rehearse(tmp_path, *options).stdout.partition("duration    real ")
    assert real and text == REHEARSED.format(sha256((tmp_path / "fw").read_bytes()).hexdigest())


REHEARSED = """\
package     fw
sha256      {}
rehearsed   device      0 kernel     1 base   planned   expected  result    exit  blocks  time     power cuts     verdict
            rev2.toml   written      written  upgraded  upgraded  upgraded  0     3       2.320 s  5 of 5 mended  good
            rev1.toml   dropped      written  upgraded  upgraded  upgraded  0     1       2.140 s  2 of 2 mended  good
            small.toml  not written  refused  refused   refused   refused   1     0       0.000 s  -              good
            small.toml: refused: part 1 (base): cannot open target device: there is no /dev/fla3
devices     3, 0 with trouble
"""


@pytest.mark.parametrize("fault, kinds", [
    ("bit-flip@1", ["/dev/fla2 differs from the plan in 1 blocks, the first is block 0; trailer: CRC wrong"]),
    # Twice tried again: nothing but the time tells.
    ("write-error@1x2", ["3.120 s of rests in writing, planned: 2.320 s"]),
    ("cut@2", ["exit status 100, planned: exit status 0", "/dev/fla2 differs", "/dev/fla3 differs",
               "2 blocks written", "0.040 s of rests"]),
    # It is ended: no retry comes to an end.
    ("write-error@1x100000", ["no end, planned: exit status 0", "/dev/fla2 differs", "/dev/fla3 differs",
                              "0 blocks written", "39.600 s of rests"]),
    ("closed:fd=2", []),
])
def test_what_the_plan_does_not_say_is_a_failure_of_its_own_kind(devices, tmp_path, fault, kinds):
    options = [devices[0], "--key-file=key", f"--fault={fault}", "--expect=upgraded", "--junit=out.xml"]
    [device] = json.loads(rehearse(tmp_path, *options, "--json", status=1 if kinds else 0)
                          .stdout)["devices"]
    found = [text for kind, text in troubles(device) if kind == "not as planned"]
    assert len(found) == len(kinds)
    for text, start in zip(found, kinds):
        assert text.startswith(start), text
    # What it was to come to is a matter of its own.
    missed = [text for kind, text in troubles(device) if kind == "not as expected"]
    assert len(missed) == (device["result"] != "upgraded")
    failures = xml.parse(tmp_path / "out.xml").getroot().findall("testcase/failure")
    assert [each.get("type") for each in failures] == ["not as planned"] * bool(kinds)


def test_a_program_that_only_seems_to_upgrade_is_seen(devices, tmp_path):
    if PROGRAM or "dev" in BUILD.name:
        pytest.skip("the sanitized program has the simulation in it, others cannot be replaced")
    # Other data with each run: no run leaves what one before it did.
    (tmp_path / "fake.c").write_text(
        '#include <fcntl.h>\n#include <unistd.h>\n'
        'int main(void) { int pid = getpid(); return write(open("/dev/fla2", O_WRONLY), &pid, 4) != 4; }\n')
    subprocess.run(["cc", "-o", "fake", "fake.c"], cwd=tmp_path, check=True)
    options = [*devices[:2], "--key-file=key", "--from=old", "--sweep", "--program=./fake", "--json"]
    for device in json.loads(rehearse(tmp_path, *options, status=1).stdout)["devices"]:
        assert device["result"] == "upgraded" and device["verdict"] == "not as planned, no recovery"
        said = " ".join(text for kind, text in troubles(device))
        assert "the older package: /dev/fla2 differs" in said and "0.000 s of rests in writing" in said
        assert "1 of 1 power cuts are not mended by the next run" in said


def test_what_is_expected_and_what_cannot_be(devices, tmp_path):
    lines = rehearse(tmp_path, *devices, "--expect=upgraded", status=1).stdout.splitlines()
    assert [line.split("  ")[-1].strip() for line in lines[3:6]] == ["good", "good", "not as expected"]
    assert lines[7].startswith("            small.toml: not as expected: refused, expected: upgraded (part 1 (base): ")
    assert lines[8] == "devices     3, 1 with trouble"
    for content, said in [('"rev1.toml" = 3\n', 'expected:1: "rev1.toml" must be upgraded'),
                          ('"rev3.toml" = "refused"\n', 'expected:1: no device is called "rev3.toml"'),
                          ('"rev1.toml" = "refused"\n', 'expected: has nothing for "rev2.toml"'),
                          ("= x\n", "expected:1: ")]:
        (tmp_path / "expected").write_text(content)
        done = rehearse(tmp_path, *devices, "--expect=expected", status=125)
        assert done.stderr.startswith("simdev: " + said) and done.stderr.count("\n") == 1
    # A key that is described is the device's own, whatever its name.
    (tmp_path / "other").write_bytes(b"terces")
    own = describe(tmp_path / "own.toml", configuration={"VENID": "secret"})
    assert rehearse(tmp_path, own, "--key-file=other").stdout.splitlines()[2:4] == [
        "rehearsed   device    0 kernel  1 base   planned   result    exit  blocks  time     verdict",
        "            own.toml  dropped   written  upgraded  upgraded  0     1       2.140 s  good"]
    # One that cannot be tried is an error and no failure; the others are tried.
    large = describe(tmp_path / "large.toml", partitions={2: 1 << 21})
    done = rehearse(tmp_path, devices[0], large, "--key-file=key", "--junit=out.xml", status=1,
                    restore_signals=False, preexec_fn=lambda: resource.setrlimit(
                        resource.RLIMIT_FSIZE, (1 << 20, 1 << 20)))
    assert "not rehearsed: " in done.stdout and "File too large" in done.stdout
    suite = xml.parse(tmp_path / "out.xml").getroot()
    assert [suite.get(name) for name in ("tests", "failures", "errors")] == ["2", "0", "1"]


# Name, package, device, and the reason of a plan that is no upgrade: the order, what is used up, what is
# counted, and how writing ends. Data differs in length, so that parts are told apart.
PLANS = [
    *((name, make_package(parts), device, reason) for name, parts, device, reason in [
        ("plain", [Part(2, DATA), Part(3, DATA[:100]), Part(4, DATA[:4096])], {}, ""),
        ("alternatives", [Part(2, DATA, flags=OPTIONAL, conditions=REV2),
                          Part(2, DATA[1:], flags=OPTIONAL, conditions=RAM64), Part(3, b"base")],
         {"configuration": {"board": "rev1", "ram": "0x40"}}, ""),
        ("requirement used up", [Part(2, DATA, features={"a": "1"}), Part(3, b"x"),
                                 Part(2, DATA[2:], features={"a": "1"}, flags=OPTIONAL)],
         {"requirements": {"kernel": "! b=1 & a=1"}}, ""),
        ("requirement used up and needed", [Part(2, DATA, features={"a": "1"}, flags=OPTIONAL), Part(2, DATA)],
         {"requirements": {"kernel": "b:=2"}},
         "part 1 (kernel): the device's requirement was used up by an earlier part of the type"),
        ("requirement that never holds", [Part(4, DATA)], {"requirements": {"app": "b"}},
         "part 0 (app): the device's requirement does not compile"),
        ("requirement that does not compile", [Part(4, DATA, flags=OPTIONAL), Part(3, b"x")],
         {"requirements": {"app": "a.b=1"}}, ""),
        ("missing and small partitions", [Part(2, DATA, flags=OPTIONAL), Part(3, DATA, flags=OPTIONAL),
                                          Part(4, b"app")],
         {"partitions": {3: 5119, 4: 4096}}, ""),
        ("unchecked and missing", [Part(3, b"x"), Part(2, DATA, actual_size=0)],
         {"partitions": {3: 65536}}, "part 1 (kernel): cannot open /dev/fla2"),
        ("never ends", [Part(3, b"x"), Part(2, DATA, actual_size=1)], {"partitions": {2: 4096, 3: 4096}},
         "part 1 (kernel): its 5120 bytes run over the end of /dev/fla2: that write is tried again for ever"),
        ("type that is not written", [Part(2, DATA), Part(8, b"x"), Part(3, b"x")],
         {"partitions": {2: 65536, 3: 65536, 8: 65536}}, "part 1 (bios): writing partition 8 is not supported"),
    ]),
    ("empty", b"", {}, "error reading package: it is empty"),
    ("enciphered", make_package([Part(2, DATA)], key=KEY), {"configuration": {"VENID": "secret"}}, ""),
    ("no key", make_package([Part(2, DATA)], key=KEY), {"configuration": {}},
     "decrypt package failed: enciphered, and the device has no key"),
    ("another key", make_package([Part(2, DATA)], key=KEY), {"configuration": {"VENDOR_KEY": "terces"}},
     "invalid package: the digest is wrong: another key, or damaged"),
    ("cut", make_package([Part(2, DATA)])[:-1], {}, "invalid package: the header says 9216 bytes, there are 9215"),
    ("data that is not there", make_package([Part(2, DATA, offset=1 << 20), Part(3, b"x")]), {},
     "part 0 (kernel): its data is not in the package"),
]


@pytest.mark.parametrize("name, package, tables, reason", PLANS, ids=[row[0] for row in PLANS])
def test_the_program_does_what_the_plan_says(name, package, tables, reason, tmp_path):
    (tmp_path / "fw").write_bytes(package)
    [device] = json.loads(rehearse(tmp_path, describe(tmp_path / "d.toml", **tables), "--json").stdout)["devices"]
    assert device["reason"] == reason


def random_package(dice):
    sizes = [0, 1, 16, 4095, 4096, 4097, 20000]
    parts = []
    for number in range(dice.choice([0, 1, 2, 3, 3, 4, 8])):
        data = dice.randbytes(dice.choice(sizes))
        kernel = dice.random() < 0.5
        parts.append(Part(
            dice.choice([2, 3, 4, 4, 5, 7, 8, 9]) if number and not kernel else 2, data,
            flags=dice.choice([0, OPTIONAL]), conditions=dice.choice([b"", b"", b"", REV2, RAM64]),
            features=dice.choice([{}, {"ram": "64"}, {"ram": "128", "a": "1"}]),
            actual_size=dice.choice([None, None, None, 0, 1, 4097]),
            size=dice.choice([None] * 20 + [0x80000000, 1 << 20]),
            offset=dice.choice([None] * 20 + [4096, 4097, 1 << 22])))
    package = make_package(parts, key=dice.choice([None, None, KEY]))
    if dice.random() < 0.05:
        package = package[:-1] if dice.random() < 0.5 else package[:30] + b"!" + package[31:]
    return package


def random_device(dice, path):
    sizes = [16, 4096, 4112, 5000, 8192, 65536, 65536, 65536]
    partitions = {number: dice.choice(sizes) for number in range(10) if dice.random() < 0.9}
    configuration = {"board": dice.choice(["rev1", "rev2"]), "ram": dice.choice(["32", "64", "0x80"])}
    if dice.random() < 0.4:
        configuration[dice.choice(["VENDOR_KEY", "VENID"])] = dice.choice(["secret"] * 4 + ["terces"])
    requirement = dice.choice([None, None, "ram:<=64", "ram=64 & a=1", "! a=1", "( )", "a.b=1"])
    script = {"present": dice.random() < 0.8, "status": dice.choice([0, 1]), "seconds": dice.choice([0, 1.5])}
    return describe(path, partitions=partitions, configuration=configuration, script=script,
                    requirements={"kernel": requirement} if requirement else {})


def test_random_packages_do_to_random_devices_what_the_plan_says(tmp_path):
    dice = random.Random(17)
    results = []
    while len(results) < PAIRS:
        folder = tmp_path / str(len(results))
        folder.mkdir()
        (folder / "fw").write_bytes(random_package(dice))
        (folder / "old").write_bytes(random_package(dice))
        older = ["--from=old"] if dice.random() < 0.3 else []
        options = [random_device(dice, folder / f"{number}.toml") for number in range(5)]
        found = json.loads(rehearse(folder, *options, *older, "--json").stdout)["devices"]
        results += [device["result"] for device in found]
        shutil.rmtree(folder)
    # All kinds of ends are among them.
    assert len(results) == PAIRS and {"upgraded", "refused", "failed", "endless"} == set(results)


def test_the_page_on_json_has_the_fields_of_a_rehearsal(devices, tmp_path):
    runs = [["--expect=upgraded", "--sweep"], ["--fault=write-error@1x100000"]]
    check_page("simdev rehearse", [rehearse(tmp_path, *devices, "--json", *options, status=1).stdout
                                   for options in runs])


def test_the_pipeline_lets_pass_what_it_should(tmp_path):
    (tmp_path / "manifest.toml").write_text(
        '[package]\nencrypt = true\n[[part]]\ntype = "kernel"\nfile = "kernel"\nconditions = "board=rev2"\n'
        'optional = true\n[[part]]\ntype = "app"\nfile = "app"\n')
    (tmp_path / "kernel").write_bytes(DATA)
    (tmp_path / "app").write_bytes(DATA[::-1])
    (tmp_path / "key").write_bytes(b"pipeline secret\n")
    (tmp_path / "devices").mkdir()
    for board in ("rev1", "rev2"):
        describe(tmp_path / f"devices/{board}.toml",
                 configuration={"board": board, "VENDOR_KEY_FILE": "../key"})
    path = f"{BUILD / 'tools/fwpkg'}:{BUILD / 'tools/simdev'}:{os.environ['PATH']}"

    def release(out, *last, status=0):
        done = subprocess.run([ROOT / "examples/pipeline/release", "manifest.toml", "devices", out, *last],
                              cwd=tmp_path, env=os.environ | {"PATH": path, "KEY_FILE": "key"},
                              capture_output=True, text=True, timeout=120, check=False)
        assert done.returncode == status, done.stdout + done.stderr
        assert (tmp_path / out / "flash.pkg.json").exists() == (status == 0)
        return done.stdout

    assert "6 of 6 mended  good" in release("1")
    (tmp_path / "app").write_bytes(DATA[1:])
    assert "rev2.toml" in release("2", "1/flash.pkg")
    side = json.loads((tmp_path / "2/flash.pkg.json").read_text())
    assert [part["size"] for part in side["parts"]] == [len(DATA), len(DATA) - 1]
    assert side["tool_version"].startswith("fwpkg ") and len(side["sha256"]) == 64
    assert "app" in (tmp_path / "2/difference.txt").read_text()
    (tmp_path / "devices/expected").write_text('"rev1.toml" = "refused"\n"rev2.toml" = "upgraded"\n')
    assert "not as expected: upgraded, expected: refused" in release("2", "1/flash.pkg", status=1)

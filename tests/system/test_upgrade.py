# SPDX-License-Identifier: GPL-2.0-or-later
"""The run as a whole: messages, order, datagrams, flash and exit status."""

import signal
import struct
import zlib

import pytest

from package import OPTIONAL, Part, make_package, seal

KERNEL = bytes(range(256)) * 20  # 5120 bytes: a block and a part of one
MAGIC = 0x44427031
FAILS = b"\0none\0x\0"  # condition code: an unknown name is the empty text
URL = "tftp://127.0.0.1/fw"
STARTED = f"download start ...\nurl = {URL}\ntftp download start ...\nreceive last packet\n"


def start(device, serve_tftp, package, **settings):
    return device.run(URL, tftp_port=serve_tftp({"fw": package}), **settings)


def after_download(run):
    """What was said once the package was there."""
    return run.stderr.decode().split("tftp download packet length: ")[1].partition("\n")[2]


def trailer(data):
    crc = zlib.crc32(data)
    return struct.pack("<IIII", crc, len(data), (crc + len(data) + MAGIC) & 0xFFFFFFFF, MAGIC)


def stage(name):
    return [f"UPGRD_STAGE={name}", "UPGRD_PERCENTAGE=0"]


def lines(*texts):
    return "".join(text + "\n" for text in texts)


def test_everything_of_a_whole_run(make_device, serve_tftp):
    device = make_device(configuration={"WD": "09", "VENDOR_KEY": "top secret", "VENID": "other",
                                        "ram": "128"},
                         requirements={"app": "lang=en"})
    app = b"a" * 4096
    package = make_package([Part(2, KERNEL, conditions=b"\x0bram\00064\0\xff"),
                            Part(3, b"dropped", actual_size=9, conditions=FAILS, flags=OPTIONAL),
                            Part(4, app, features={"lang": "en"}, compress=1),
                            Part(9, b"", actual_size=1, flags=OPTIONAL)], key=b"top secret")
    run = start(device, serve_tftp, package)
    writing = ["UPGRD_PERCENTAGE=44", "UPGRD_PERCENTAGE=55"]
    assert run.stderr.decode() == STARTED + lines(
        f"tftp download packet length: {len(package)}", "decrypt using: top secret",
        *stage("WRITING"), "open /dev/fla2 for writing", "", *writing, "open /dev/fla4 for writing",
        "", "UPGRD_PERCENTAGE=100",
        *stage("VERIFYING"), "open /dev/fla2 for writing", "", *writing,
        "open /dev/fla4 for writing", "", "UPGRD_PERCENTAGE=100", *stage("DONE"))
    parts = [("kernel", 0, 5120, 0, 5120, 4096), ("base", 0, 9, 1, 7, 12288),
             ("app", 1, 4096, 0, 4096, 16384), ("unknown<9>", 0, 1, 1, 0, 20480)]
    assert run.stdout.decode() == lines(
        "magic: dbad475e", "checksum: " + package[12:28].hex(" ") + " ", "version: 1", "encryp: 1",
        f"size: {len(package)}",
        *(f"  part #{i}:\n    type: {kind}\n    compress: {compress}\n    actual size: {actual}\n"
          f"    flags: {flags:08x}\n    size: {size}\n    offset: {offset}"
          for i, (kind, compress, actual, flags, size, offset) in enumerate(parts)))
    percentages = [*writing, "UPGRD_PERCENTAGE=100"]
    assert run.datagrams == [*stage("WRITING"), *percentages, *stage("VERIFYING"), *percentages,
                             *stage("DONE")]
    assert run.server_datagrams == run.datagrams
    assert device.flash(2)[:5120] == KERNEL and device.flash(2)[-16:] == trailer(KERNEL)
    assert device.flash(4)[:4096] == app and device.flash(4)[-16:] == trailer(app)
    assert run.status == 0
    assert {(kick["line"], kick["level"]) for kick in run.of("kick")} == {(9, 0), (9, 1)}


DAMAGED = bytearray(make_package([Part(2, b"x")]))
DAMAGED[27] ^= 1  # the last byte of the digest

REFUSED = {  # package, device, what is said; everything ends in INVALID PACKAGE and status 1
    "nothing": (b"", {}, "error reading package"),
    "magic": (seal(b"", magic=0xDBAD475F), {}, "Bad magic: dbad475f\nerror reading package"),
    "version": (seal(b"", version=2), {}, "Bad version: 2\nerror reading package"),
    "cut header": (seal(b"")[:5], {}, "Bad version: 0\nerror reading package"),
    "digest": (bytes(DAMAGED), {}, "Checksum error!\ninvalid package"),
    "length": (make_package([], size=4000), {}, "Bad package length!\ninvalid package"),
    "length, enciphered": (
        make_package([], key=b"k", size=5000), {"configuration": {"VENID": "k"}},
        "decrypt using: k\nBad package length!\nBad package length!\ninvalid package"),
    "another key": (make_package([], key=b"k"), {"configuration": {"VENID": "l"}},
                    "decrypt using: l\nChecksum error!\ninvalid package"),
    "no key": (make_package([], key=b"k"), {}, "No key!\ndecrypt package failed"),
    "in clear": (make_package([]), {"configuration": {"VENDOR_KEY": "k"}}, "decrypt package failed"),
    "unknown cipher": (seal(b"", encryp=2), {}, "decrypt package failed"),
    "table": (seal(b"\0\x13"), {},
              "invalid part header size: 19\nerror while reading part info\n"
              "error reading package parts"),
    "conditions": (make_package([Part(2, b"x", conditions=FAILS, flags=~OPTIONAL & 0xFFFFFFFF)]), {},
                   None),
    "features": (make_package([Part(2, b"x", features={"a": "2"})]),
                 {"requirements": {"kernel": "a=1"}}, None),
    "type without a name": (make_package([Part(9, b"x")]), {}, None),
    "second of a type": (make_package([Part(2, b"x", features={"a": "1"})] * 2),
                         {"requirements": {"kernel": "a=1"}}, None),
    "no device": (make_package([Part(8, b"x")]), {}, "cannot open target device"),
    "too small": (make_package([Part(2, b"x", actual_size=65537, size=4097)]), {},
                  "not enougth space on target device"),
    "data that is not there": (make_package([Part(2, b"x"), Part(3, b"x", offset=8192, size=4097)]),
                               {}, "data of part #1 is not in the package"),
    "data beyond the buffer": (make_package([Part(4, b"x", offset=0xFFFFF000, flags=OPTIONAL)]), {},
                               "data of part #0 is not in the package"),
}


@pytest.mark.parametrize("name", REFUSED)
def test_a_refused_package_touches_no_flash(name, make_device, serve_tftp):
    package, settings, messages = REFUSED[name]
    device = make_device(**settings)
    run = start(device, serve_tftp, package)
    expected = lines(messages) if messages else ""  # a mandatory part that is not met says nothing
    assert after_download(run) == expected + "UPGRD_ERROR=INVALID PACKAGE\nbad package!\n"
    assert run.datagrams == ["UPGRD_ERROR=INVALID PACKAGE"]
    assert run.names("script", "write") == ["script"]
    assert run.status == 1


@pytest.mark.parametrize("length", [0, 1, 4096, 4097])
def test_an_enciphered_package_may_have_any_length(length, make_device, serve_tftp):
    device = make_device(configuration={"VENDOR_KEY": "", "VENID": "k"})  # the empty key is a zero
    data = b"b" * length
    package = make_package([Part(3, data)], key=b"\0")
    if not data:
        package = seal(Part(3, b"").entry(4096) + b"\0\0", key=b"\0")
    assert start(device, serve_tftp, package).status == 0
    assert device.flash(3).startswith(data)


def test_the_first_line_with_exactly_the_key_is_its_value(make_device, serve_tftp):
    device = make_device()
    (device.folder / "etc/syscfg.conf").write_text(
        "VENID_OLD=old\n#VENID=1\nno separator\nVENID= 5 =x\nVENID=6\n=nameless\nLAST=no newline")
    run = start(device, serve_tftp, make_package(
        [Part(2, b"k", conditions=b"\0LAST\0no newline\0\0D\0\0\0#VENID\0\0")], key=b" 5 =x"))
    assert after_download(run).startswith("decrypt using:  5 =x\nUPGRD_STAGE=WRITING\n")


@pytest.mark.parametrize("spoil", [lambda file: file.mkdir(), lambda file: file.symlink_to(file)])
def test_a_configuration_that_cannot_be_read_ends_the_run(spoil, make_device):
    device = make_device()
    file = device.folder / "etc/syscfg.conf"
    file.unlink()
    spoil(file)
    run = device.run(URL)
    assert b"cannot read /etc/syscfg.conf: " in run.stderr
    assert (run.status, run.names("write")) == (1, [])


@pytest.mark.parametrize("argument", ["--help", "-h", "--version", "-V"])
def test_a_question_is_answered_and_nothing_else_done(argument, make_device):
    run = make_device().run(argument)
    assert run.stdout.startswith(b"Usage: upgrade [URL]\n" if "h" in argument else b"upgrade ")
    assert (run.status, run.stderr, run.datagrams) == (0, b"", [])
    assert [operation["op"] for operation in run.operations] == ["start"]


@pytest.mark.parametrize("arguments, url, host", [
    *(([word], word, word) for word in ("--helpme", "-v", "help", "")),
    ([], "http://192.168.1.1/upgrade/flash.pkg", "192.168.1.1"),
])
def test_every_other_text_is_a_url(arguments, url, host, make_device):
    run = make_device().run(*arguments)
    assert run.stderr.startswith(f"download start ...\nurl = {url}\nhost: {host}, port: 80\n".encode())
    # Behind each of six refused connects a server gets a moment; an unknown host does not.
    assert run.report["virtual_us"] == (0 if arguments else 6_000_000)
    assert run.status == 1


@pytest.mark.parametrize("url, said", [
    ("TfTpd", ["tftp.c:tftp_downloader_open:505: FUNCTION_FAILED"]),
    ("gopher://127.0.0.1/f", []),
    ("FTP://h/f", ["not a ftp url: FTP://h/f"]),
])
def test_an_unusable_url_says_so_and_nothing_else(url, said, make_device):
    run = make_device().run(url)
    assert run.stderr.decode() == lines("download start ...", f"url = {url}", *said,
                                        "UPGRD_ERROR=INVALID URL", f"cannot open url: {url}")
    assert (run.status, run.datagrams) == (1, ["UPGRD_ERROR=INVALID URL"])
    assert run.names("script", "kick") == []


SELECTED = {  # parts, device, the partitions that get written
    "all optional, all dropped": (
        [Part(2, b"k", conditions=FAILS, flags=0xFFFFFFFF), Part(3, b"b", features={"a": "2"},
                                                               flags=OPTIONAL),
         Part(8, b"no device", flags=OPTIONAL), Part(4, b"a", actual_size=65537, flags=OPTIONAL),
         Part(9, b"no name", flags=OPTIONAL)],
        {"requirements": {"base": "a=1"}}, []),
    "malformed code counts as met": ([Part(2, b"k", conditions=b"\0cut")], {}, [2]),
    "in clear, and there is but a vendor's number": (
        [Part(2, b"k")], {"configuration": {"VENID": "v"}}, [2]),
    "in clear, and the key is empty": ([Part(2, b"k")], {"configuration": {"VENDOR_KEY": ""}}, [2]),
    "the requirement is used up even by a part that was dropped": (
        [Part(2, b"k", conditions=FAILS, flags=OPTIONAL, features={"a": "1"}),
         Part(2, b"l", flags=OPTIONAL, features={"a": "1"}), Part(3, b"b")],
        {"requirements": {"kernel": "a=1"}}, [3]),
    "actual size 0 skips the device check alone": ([Part(4, b"a" * 5000, actual_size=0)], {}, [4]),
    "size 0 writes nothing, and a part may need all the room": (
        [Part(2, b"", actual_size=9), Part(3, b"b", actual_size=65536)], {}, [3]),
    "a type that is not written, without data": ([Part(0, b"", actual_size=0), Part(3, b"b")], {},
                                                 [3]),
}


@pytest.mark.parametrize("name", SELECTED)
def test_parts_are_selected(name, make_device, serve_tftp):
    parts, settings, written = SELECTED[name]
    run = start(make_device(**settings), serve_tftp, make_package(parts))
    assert run.status == 0, run.stderr.decode()
    assert sorted(int(number) for number in run.report["partitions"]) == written
    assert run.datagrams[-2:] == stage("DONE")


def test_eight_parts_are_read_and_named(make_device, serve_tftp):
    parts = [Part(kind, b"") for kind in (0, 2, 3, 4, 5, 6, 7, 8)]
    run = start(make_device(), serve_tftp, make_package([*parts, Part(3, b"a ninth")]))
    named = [line.split()[1] for line in run.stdout.decode().splitlines() if "type:" in line]
    assert named == "image kernel base app unkown<5> unkown<6> unkown<7> bios".split()
    assert (run.status, run.report["partitions"]) == (0, {})


def test_a_type_that_is_not_written_fails_three_attempts(make_device, serve_tftp):
    device = make_device(partitions={0: 65536, 2: 65536, 3: 65536})
    run = start(device, serve_tftp, make_package([
        Part(2, b"k"), Part(3, b"too large", actual_size=70000, flags=OPTIONAL), Part(0, b"i")]))
    attempt = ["UPGRD_STAGE=WRITING", "UPGRD_PERCENTAGE=0", "open /dev/fla2 for writing", "",
               "UPGRD_PERCENTAGE=50", "writing partition 0 not supported", "write package failed!"]
    assert after_download(run) == lines(*attempt * 3, "UPGRD_ERROR=UPGRADE FAILED",
                                        "upgrade failed!")
    assert run.datagrams[-1] == "UPGRD_ERROR=UPGRADE FAILED"
    assert run.status == 2
    assert run.report["virtual_us"] == 3 * (40_000 + 100_000)  # no pause, and no rest at the end
    for target in ("/dev/fla0", "/dev/fla2", "/dev/fla3", "/dev/gpio"):
        opened, closed = ([o for o in run.of(name) if o.get("target") == target]
                          for name in ("open", "close"))
        assert len(opened) == len(closed) > 0, target


def test_the_third_attempt_may_succeed(make_device, serve_tftp):
    # The second open of the device is that for writing, the fourth that for reading.
    run = start(make_device(), serve_tftp, make_package([Part(2, KERNEL)]),
                faults=["open-error@2:partition=2", "open-error@4:partition=2"])
    failed = ["cannot open /dev/fla2 for writing", ""]
    done = ["open /dev/fla2 for writing", "", "UPGRD_PERCENTAGE=80", "UPGRD_PERCENTAGE=100"]
    assert after_download(run) == lines(
        *stage("WRITING"), *failed, "write package failed!",
        *stage("WRITING"), *done, *stage("VERIFYING"), *failed, "verify package failed!",
        *stage("WRITING"), *done, *stage("VERIFYING"), *done, *stage("DONE"))
    assert run.report["virtual_us"] == 2 * (2 * 40_000 + 100_000) + 2_000_000
    assert run.status == 0


def test_receivers_that_do_not_read_cost_two_seconds_a_datagram(make_device, serve_tftp):
    run = start(make_device(), serve_tftp, make_package([Part(2, b"k" * 4096 * 10)]),
                faults=["receiver-stuck:receiver=2"])
    late = [o for o in run.of("datagram") if o["target"] == "/tmp/.syscfg-server"][11:]  # its queue
    assert [o for o in run.of("datagram") if o.get("error") == "EAGAIN"] == late != []
    assert run.report["virtual_us"] == 10 * 40_000 + 2_100_000 + len(late) * 2_000_000
    assert run.status == 0


@pytest.mark.parametrize("closed", [(0,), (1,), (2,), (0, 1, 2)])
def test_closed_standard_streams_reach_no_partition(closed, make_device, serve_tftp):
    device = make_device()
    run = start(device, serve_tftp, make_package([Part(2, KERNEL)]),
                faults=[f"closed:fd={fd}" for fd in closed])
    assert run.status == 0
    assert (run.stdout == b"", run.stderr == b"") == (1 in closed, 2 in closed)
    assert device.flash(2) == KERNEL + b"\xff" * (65536 - 5120 - 16) + trailer(KERNEL)
    assert run.datagrams[-2:] == stage("DONE")


def test_the_package_is_looked_at_after_the_script(make_device, serve_tftp):
    device = make_device(configuration={})
    script = device.folder / "etc/rc.d/init.d/network.stop"
    # Keeps the state that it inherits, and only then sets the key that the package needs.
    script.write_text(f"""#!/bin/sh
cd {device.folder}
grep -h SigIgn /proc/self/status /proc/$PPID/status >ignored
echo VENID=late >etc/syscfg.conf
""")
    run = start(device, serve_tftp, make_package([Part(2, KERNEL)], key=b"late"))
    assert run.status == 0
    assert after_download(run).startswith("decrypt using: late\n")
    masks = [int(mask, 16) for mask in (device.folder / "ignored").read_text().split()[1::2]]
    assert [mask >> (signal.SIGPIPE - 1) & 1 for mask in masks] == [0, 1]  # the program's own is
    # A watchdog line that is not configured goes to the driver, which judges it.
    assert {kick["line"] for kick in run.of("kick")} == {-1}


@pytest.mark.parametrize("missing, heard, silent", [
    (1, "server_datagrams", "datagrams"), (2, "datagrams", "server_datagrams")])
def test_a_missing_receiver_leaves_the_other_all(missing, heard, silent, make_device, serve_tftp):
    run = start(make_device(), serve_tftp, make_package([Part(2, b"k")]),
                faults=[f"receiver-missing:receiver={missing}"])
    assert getattr(run, heard) == [*stage("WRITING"), "UPGRD_PERCENTAGE=100", *stage("VERIFYING"),
                                   "UPGRD_PERCENTAGE=100", *stage("DONE")]
    assert getattr(run, silent) == []
    assert run.status == 0 and b"sendto" not in run.stderr

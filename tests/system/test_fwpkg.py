# SPDX-License-Identifier: GPL-2.0-or-later
"""fwpkg's command line."""

import os
import subprocess

from fwpkg_tool import DATA, FITS, FWPKG, KEY, RAM64, REV2, REV2_RAM, folder, fwpkg
from package import OPTIONAL, Part, make_package

# Used as a fixture.
__all__ = ["folder"]


def test_a_package_is_the_same_whatever_the_day_and_the_folder(folder):
    made = fwpkg("make", "m.toml", "-o", "one", "--key-file", "key", folder=folder)
    os.utime(folder / "zImage", (1, 1))
    fwpkg("make", folder / "m.toml", "-o", folder / "two", "--key-file", folder / "key", folder="/")
    expected = make_package([Part(2, DATA, features={"board": "rev2", "ram": "64"},
                                  conditions=RAM64[:-1] + b"\x12" + REV2)], key=KEY)
    assert (folder / "one").read_bytes() == (folder / "two").read_bytes() == expected
    assert made.stderr == ""
    assert "content identifier: " + expected[12:28].hex() in made.stdout


WITH_KEY = ("--key-file", "key")
# Arguments, exit status, what standard error begins with.
LINES = [
    (("show", "fw", *WITH_KEY), 0, ""),
    (("show", "fw"), 2, "fwpkg: fw: enciphered, and no key is given"),
    (("check", "fw", *WITH_KEY, "--device", "d.toml"), 0, ""),
    (("check", "fw", *WITH_KEY, "--device", "small\33.toml"), 1, ""),
    (("check", "cut", *WITH_KEY), 1, ""),
    (("show", "cut"), 1, "fwpkg: cut: not deciphered, since the length is wrong"),
    (("check", "warned"), 0, ""),
    (("check", "warned", "--strict"), 1, ""),
    (("plan", "fw", "--device", "d.toml", "--expect", "upgraded"), 0, ""),
    (("plan", "fw", "--device", "d.toml", "--expect", "refused"), 1, ""),
    (("plan", "fw", "--device", "other.toml", "--expect", "refused"), 0, ""),
    (("plan", "fw", "--device", "d.toml", "--device", "other.toml", "--expect", "upgraded"), 1, ""),
    (("plan", "asks", "--device", "d.toml"), 0, ""),
    (("plan", "fw", "--device", "/dev/zero"), 2, "fwpkg: /dev/zero: more than the 1048576 bytes"),
    (("diff", "fw", "fw", *WITH_KEY), 0, ""),
    (("diff", "fw", "warned", *WITH_KEY), 1, ""),
    (("extract", "fw", "out", *WITH_KEY), 0, ""),
    (("extract", "cut", "out2", *WITH_KEY), 1, "fwpkg: cut: not deciphered, since the length"),
    (("make", "m.toml", "-o", "x"), 2, "fwpkg: m.toml: encrypt = true needs --key-file"),
    (("make", "m.toml", "-o", "./m.toml", *WITH_KEY), 2,
     "fwpkg: ./m.toml: would be written over, and is read as m.toml"),
    (("make", "m.toml", "-o", "zImage link", *WITH_KEY), 2, "fwpkg: zImage link: would be written over"),
    (("make", "m.toml", "-o", "key", *WITH_KEY), 2, "fwpkg: key: would be written over"),
    (("make", "m.toml", "-o", "unfit", "--device", "small\33.toml", *WITH_KEY), 1,
     "error: small\\x1b.toml: part 0 (kernel): its 5120 bytes and the trailer's 16 do not fit"),
    (("condition", "a==1", "a=1"), 1, "warning: condition: a==1: the value"),
    (("condition", "a=1", "a=1"), 0, ""),
    (("chek", "fw"), 2, 'fwpkg: there is no command "chek" (did you mean "check"?) (see --help)'),
    (("show", "fw", "--key=a secret"), 2, "fwpkg: there is no option --key (see --help)\n"),
]


def test_commands_end_with_their_exit_status_and_one_line(folder):
    """The key shows nowhere."""
    fwpkg("make", "m.toml", "-o", "fw", "--key-file", "key", folder=folder)
    (folder / "d.toml").write_text(f"{FITS}[configuration]\nVENDOR_KEY_FILE = 'key'\n{REV2_RAM}")
    (folder / "other.toml").write_text(f"{FITS}[configuration]\nVENDOR_KEY='other key'\n{REV2_RAM}")
    (folder / "small\33.toml").write_text(f"[partitions]\n2=5120\n[configuration]\n{REV2_RAM}")
    (folder / "cut").write_bytes((folder / "fw").read_bytes()[:-1])
    (folder / "warned").write_bytes(make_package([Part(2, DATA, flags=3)]))
    (folder / "asks").write_bytes(make_package(
        [Part(2, DATA, flags=OPTIONAL, conditions=b"\0VENDOR_KEY\0x\0\xff")], key=KEY))
    (folder / "zImage link").symlink_to("zImage")
    for arguments, status, line in LINES:
        done = fwpkg(*arguments, folder=folder, status=status)
        assert done.stderr.startswith(line) and bool(done.stderr) == bool(line), done.stderr
        assert KEY.decode() not in done.stdout + done.stderr
        assert "\033" not in done.stdout + done.stderr
    fwpkg("plan", folder / "fw", "--device", folder / "d.toml", "--expect", "upgraded", folder="/")
    assert (folder / "out/0-kernel.bin").read_bytes() == DATA
    assert not (folder / "out2").exists()
    assert (folder / "zImage").read_bytes() == DATA
    with open("/dev/full", "w") as full:
        done = subprocess.run([FWPKG, "show", "fw", "--key-file", "key"], cwd=folder, stdout=full,
                              stderr=subprocess.PIPE, text=True, timeout=60, check=False)
    assert (done.returncode, done.stderr) == (2, "fwpkg: cannot write the output\n")


def test_standard_input_and_output(folder):
    expected = fwpkg("make", "m.toml", "-o", "fw", "--key-file", "key", folder=folder).stdout
    manifest = (folder / "m.toml").read_bytes()
    made = subprocess.run([FWPKG, "make", "-", "-o", "-", "--key-file", "key"], cwd=folder, input=manifest,
                          capture_output=True, timeout=60, check=True)
    assert made.stdout == (folder / "fw").read_bytes()
    assert made.stderr.decode() == expected
    for option, content, name in [("-", made.stdout, "key"), ("fw", KEY + b"\n", "-")]:
        shown = subprocess.run([FWPKG, "show", option, "--key-file", name], cwd=folder, input=content,
                               capture_output=True, timeout=60, check=True)
        assert b", right\n" in shown.stdout


def test_a_key_that_looks_like_a_slip_is_warned_about_wherever_it_is_read(folder):
    (folder / "key").write_bytes(b"vendor key\r\n")
    (folder / "file.toml").write_text(f"{FITS}[configuration]\nVENDOR_KEY_FILE='key'\n")
    ends = "the key begins or ends with a line end, which is part of it\n"
    key, device = f"warning: key: {ends}", f"warning: file.toml: VENDOR_KEY: {ends}"
    rows = [
        (("make", "m.toml", "-o", "fw", "--key-file", "key"), "stderr", key, 0),
        (("check", "fw", "--key-file", "key", "--strict"), "stdout", key, 1),
        (("diff", "fw", "fw", "--key-file", "key", "--key-file-after", "key"), "stderr", key + key, 0),
        (("plan", "fw", "--device", "file.toml"), "stderr", device, 0),
    ]
    for arguments, stream, lines, status in rows:
        done = fwpkg(*arguments, folder=folder, status=status)
        assert getattr(done, stream).startswith(lines), (arguments, done)


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

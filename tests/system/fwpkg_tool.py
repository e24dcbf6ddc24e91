# SPDX-License-Identifier: GPL-2.0-or-later
"""What the tests of fwpkg share: how it is run, and a folder with a package's makings."""

import subprocess

import pytest

from conftest import BUILD

FWPKG = BUILD / "tools/fwpkg/fwpkg"
REV2 = b"\0board\0rev2\0\xff"
RAM64 = b"\x0bram\x0064\0\xff"  # ram:>=64
DATA = bytes(range(256)) * 20
COMMANDS = ["make", "show", "check", "plan", "diff", "condition", "extract"]
KEY = b"vendor secret"
FITS = "[partitions]\n2=65536\n3=65536\n4=65536\n"
REV2_RAM = "board='rev2'\nram='64'\n"
MANIFEST = """[package]
encrypt = true
[[part]]
type = "kernel"
file = "zImage"
conditions = "ram:>=64 & board=rev2"
features = { ram = "64", board = "rev2" }
"""


def fwpkg(*arguments, folder=None, status=0):
    done = subprocess.run([str(FWPKG), *map(str, arguments)], cwd=folder, capture_output=True,
                          text=True, timeout=60, check=False)
    assert done.returncode == status, done.stderr
    return done


@pytest.fixture
def folder(tmp_path):
    (tmp_path / "m.toml").write_text(MANIFEST)
    (tmp_path / "zImage").write_bytes(DATA)
    (tmp_path / "key").write_bytes(KEY + b"\n")
    return tmp_path

# SPDX-License-Identifier: GPL-2.0-or-later
"""The flash chip's image, and the package that goes into it.

The expected bytes are worked out here from the parts' files, not taken from any program of ours.
"""
import random
import re
import struct
import subprocess
import zlib
from pathlib import Path

TOP = Path(__file__).resolve().parents[2]
CHIP_SIZE = 16 << 20
TRAILER_MAGIC = 0x44427031
KEY = "Emulated Board"  # VENID of the board's configuration

# Type name, partition, optional, conditions. The last does not apply to this board.
PARTS = (
    ("kernel", 2, False, "ram:>=64"),
    ("base", 3, False, ""),
    ("app", 4, False, ""),
    ("image", 0, True, "ram:>=128"),
)


def layout():
    """{partition: (offset, size)}, as the board's device tree says."""
    text = (TOP / "board/flash.dtso").read_text()
    found = re.findall(r'label = "fla(\d)"; reg = <(\w+) (\w+)>', text)
    return {int(number): (int(offset, 0), int(size, 0)) for number, offset, size in found}


def create_chip(path, seed):
    """A chip that was in use: every byte of it is set to something."""
    path.write_bytes(random.Random(seed).randbytes(CHIP_SIZE))


class Package:
    """A package of `parts` with the given sizes, made by fwpkg at `path`."""

    def __init__(self, path, sizes, seed, parts=PARTS):
        source = random.Random(seed)
        self.data = {}
        manifest = "[package]\nencrypt = true\n"
        for (name, partition, optional, conditions), size in zip(parts, sizes):
            data = source.randbytes(size)
            file = path.with_suffix(f".{name}")
            file.write_bytes(data)
            if not optional:
                self.data[partition] = data
            manifest += f'[[part]]\ntype = "{name}"\nfile = "{file.name}"\n'
            manifest += f"optional = {str(optional).lower()}\n"
            manifest += f'conditions = "{conditions}"\n' if conditions else ""
        path.with_suffix(".toml").write_text(manifest)
        path.with_suffix(".key").write_text(KEY)
        subprocess.run(
            [TOP / "build/release/tools/fwpkg/fwpkg", "make", path.with_suffix(".toml"), "-o", path]
            + ["--key-file", path.with_suffix(".key")],
            check=True,
            stdout=subprocess.DEVNULL,
            stderr=subprocess.DEVNULL,  # a warning of the part that this board does not take
        )

    def partition(self, number, before):
        """What partition `number` holds after the upgrade if it held `before`."""
        if number not in self.data:
            return before
        data = self.data[number]
        crc = zlib.crc32(data)
        check = (crc + len(data) + TRAILER_MAGIC) & 0xFFFFFFFF
        trailer = struct.pack("<4I", crc, len(data), check, TRAILER_MAGIC)
        return data + before[len(data) : -len(trailer)] + trailer

    def chip(self, before):
        """What the chip holds after the upgrade if it held `before`."""
        after = bytearray(before)
        for number, (offset, size) in layout().items():
            end = offset + size
            after[offset:end] = self.partition(number, before[offset:end])
        return bytes(after)

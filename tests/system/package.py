# SPDX-License-Identifier: GPL-2.0-or-later
"""Packages for tests, made byte by byte from docs/package-format.md, without the project's code."""

import dataclasses
import hashlib
import struct

MAGIC = 0xDBAD475E
BLOCK = 4096
OPTIONAL = 1


@dataclasses.dataclass
class Part:
    type: int
    data: bytes
    actual_size: int = None  # the data's length
    flags: int = 0
    compress: int = 0
    conditions: bytes = b""  # condition code
    features: dict = dataclasses.field(default_factory=dict)
    size: int = None  # the data's length
    offset: int = None  # the next free block

    def entry(self, offset):
        features = b"".join(f"{name}\0{value}\0".encode() for name, value in self.features.items())
        # The length word and the code are padded together to a multiple of 4.
        conditions = struct.pack(">H", len(self.conditions)) + self.conditions
        conditions = conditions.ljust((len(self.conditions) + 5) & ~3, b"\0")
        variable = conditions + struct.pack(">H", len(features)) + features
        header_size = 20 + len(variable)
        header_size += -header_size % 4
        length = len(self.data)
        fixed = struct.pack(
            ">HBBIIII", header_size, self.type, self.compress,
            length if self.actual_size is None else self.actual_size,
            length if self.size is None else self.size,
            offset if self.offset is None else self.offset, self.flags)
        return (fixed + variable).ljust(header_size, b"\0")


def rc4(key, data):
    state, j, out = list(range(256)), 0, bytearray()
    for i in range(256):
        j = (j + state[i] + key[i % len(key)]) % 256
        state[i], state[j] = state[j], state[i]
    i = j = 0
    for byte in data:
        i = (i + 1) % 256
        j = (j + state[i]) % 256
        state[i], state[j] = state[j], state[i]
        out.append(byte ^ state[(state[i] + state[j]) % 256])
    return bytes(out)


def seal(body, encryp=0, key=None, version=1, magic=MAGIC, size=None):
    """A header in front of `body` (all from offset 28 on), which is enciphered with `key`."""
    tail = b"" if len(body) >= BLOCK - 28 else bytes(BLOCK - 28 - len(body))
    if key and tail:
        # A short package is deciphered and digested up to the end of the first block.
        tail = rc4(key, bytes(BLOCK - 28))[len(body):]
    digest = hashlib.md5(body + tail).digest()
    if key:
        encryp, body = 1, rc4(key, body)
    total = 28 + len(body) if size is None else size
    return struct.pack(">IHHI", magic, version, encryp, total) + digest + body


def make_package(parts, key=None, **header):
    """A package of `parts` in order, each part's data on the next block boundary."""
    table, data, offset = b"", b"", BLOCK
    for part in parts:
        table += part.entry(offset)
        data += part.data + bytes(-len(part.data) % BLOCK)
        offset = BLOCK + len(data)
    if len(parts) < 8:
        table += b"\0\0"
    if parts:
        data = data[:len(data) - -len(parts[-1].data) % BLOCK]
    return seal(table.ljust(BLOCK - 28, b"\0") + data, key=key, **header)

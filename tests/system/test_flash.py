# SPDX-License-Identifier: GPL-2.0-or-later
"""What goes to the flash, in which order, and what is made of what it answers."""

import pytest

from conftest import IO_ERROR, SUCCESS
from package import Part, make_package
from test_upgrade import KERNEL, start, trailer


def test_blocks_come_one_by_one_and_the_trailer_last(make_device, serve_tftp):
    run = start(make_device(), serve_tftp, make_package([Part(2, KERNEL)]))
    steps = [(o["op"], o.get("offset"), o.get("length") or o.get("duration_us"))
             for o in run.of("seek", "write", "sync", "sleep", "read")]
    block = [("sync", None, None), ("sleep", None, 40_000)]
    end = [("sync", None, None), ("sleep", None, 100_000)]
    assert steps[-13:] == [
        ("write", 0, 4096), *block, ("write", 4096, 1024), *block,
        ("seek", -16, None), ("write", 65520, 16), *end,
        # Always a whole block is asked for.
        ("read", 0, 4096), ("read", 4096, 4096), ("sleep", None, 2_000_000)]
    # The first open is for the partition's size.
    assert [o["access"] for o in run.of("open") if o["target"] == "/dev/fla2"] == [
        "write", "write", "read"]


WHOLE = b"\1" * 8192
FAILS = f"failed: {IO_ERROR}"
ANSWERS = {  # data, the partition's size, fault, what is said of blocks, how the partition begins and ends
    "a block that fails is written again, beyond the budget of tries": (
        KERNEL, 65536, "write-error@2x150", [f"write block #1 {FAILS}"] * 150, KERNEL, trailer(KERNEL)),
    "a short write counts as whole, also in the checksum": (
        KERNEL, 65536, "short-write@1:bytes=3", ["block #0 differ"], KERNEL[:3] + KERNEL[4096:],
        trailer(KERNEL)),
    "a trailer that finds no place goes behind the data": (
        KERNEL, 65536, "seek-error@1", [f"partition checksum seek error: {IO_ERROR}"],
        KERNEL + trailer(KERNEL), b"\xff"),
    "the partition ends in the last block": (
        KERNEL, 5000, "seek-error@1", [f"partition checksum seek error: {IO_ERROR}",
                                       "partition checksum write error: No space left on device",
                                       f"read last block #1 failed: {SUCCESS}"], KERNEL[:5000], b""),
    "a difference in the last of two whole blocks": (
        WHOLE, 65536, "bit-flip@2:bit=9", ["last block #1 differ"], WHOLE[:4097], trailer(WHOLE)),
    "a read that fails": (KERNEL, 65536, "read-error@1", [f"read block #0 {FAILS}"], KERNEL, b""),
    "the last read fails": (
        KERNEL, 65536, "read-error@2", [f"read last block #1 {FAILS}"], KERNEL, b""),
}


@pytest.mark.parametrize("name", ANSWERS)
def test_no_answer_of_the_flash_fails_an_upgrade(name, make_device, serve_tftp):
    data, size, fault, said, begins, ends = ANSWERS[name]
    device = make_device(partitions={2: size})
    # Without an actual size the partition's own is not checked.
    run = start(device, serve_tftp, make_package([Part(2, data, actual_size=0)]), faults=[fault])
    assert [line for line in run.stderr.decode().splitlines()
            if "block #" in line or "checksum" in line] == said
    assert device.flash(2).startswith(begins) and device.flash(2).endswith(ends)
    retries = sum(line.startswith("write block") for line in said)
    assert run.report["virtual_us"] == 2_180_000 + 400_000 * retries
    assert run.status == 0

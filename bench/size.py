# SPDX-License-Identifier: GPL-2.0-or-later
"""Sizes of the program as it is built for an architecture, and whose code takes them."""

import collections
import pathlib
import re
import subprocess

# Architecture -> prefix of its tools, preset.
ARCHITECTURES = {
    "x86-64": ("", "small"),
    "armhf": ("arm-linux-gnueabihf-", "armhf"),
    "armel": ("arm-linux-gnueabi-", "armel"),
}

# "section address size file", where a long section name has a line of its own.
INPUT = re.compile(r"^ (\S+)\s+0x([0-9a-f]+)\s+0x([0-9a-f]+) (\S.*)$", re.MULTILINE)
NOT_LOADED = re.compile(r"^\.(debug|comment|note\.GNU-stack|ARM\.attributes|gnu\.warning)")


def build(root, preset, target="upgrade"):
    for command in (["cmake", "--preset", preset], ["cmake", "--build", "--preset", preset,
                                                    "--target", target]):
        done = subprocess.run(command, cwd=root, capture_output=True, text=True, check=False)
        if done.returncode != 0:
            raise SystemExit(f"budget: {' '.join(command)} failed\n{done.stdout}{done.stderr}")


def stripped_size(root, architecture, preset):
    program = root / "build" / preset / "upgrade/upgrade"
    stripped = program.with_suffix(".stripped")
    subprocess.run([ARCHITECTURES[architecture][0] + "strip", "-o", stripped, program], check=True)
    return stripped.stat().st_size


def shares(root, preset):
    """Bytes by owner (own, tls, rest) from the linker's map: of code and data, and of what is
    zero at first and in no file ("tls zeroed", ...)."""
    text = (root / "build" / preset / "upgrade/upgrade.map").read_text()
    text = text[text.index("Linker script and memory map"):]
    text = re.sub(r"^ (\S+)\n +0x", r" \1 0x", text, flags=re.MULTILINE)
    sums = collections.Counter()
    for section, _, size, file in INPUT.findall(text):
        if NOT_LOADED.match(section) or section.startswith("*"):
            continue
        if "libwolfssl" in file:
            owner = "tls"
        elif pathlib.PurePath(file).is_absolute():
            owner = "rest"  # the C library and the compiler's
        else:
            owner = "own"
        zeroed = re.match(r"\.t?bss|COMMON", section)
        sums[owner + (" zeroed" if zeroed else "")] += int(size, 16)
    return sums


def sizes(root, architecture):
    preset = ARCHITECTURES[architecture][1]
    for each in (preset, preset + "-static"):
        build(root, each)
    own, static = shares(root, preset), shares(root, preset + "-static")
    return {
        "dynamic program, stripped": stripped_size(root, architecture, preset),
        "own code and data": own["own"] + own["own zeroed"],
        "static program, stripped": stripped_size(root, architecture, preset + "-static"),
        "of it the TLS library": static["tls"],
    }

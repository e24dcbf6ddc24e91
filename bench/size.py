# SPDX-License-Identifier: GPL-2.0-or-later
"""Sizes of the program as it is built for an architecture, and whose code takes them."""

import collections
import os
import pathlib
import re
import subprocess
import tempfile

# Architecture -> prefix of its tools, preset, preset on musl.
ARCHITECTURES = {
    "x86-64": ("", "small", "amd64-musl"),
    "armhf": ("arm-linux-gnueabihf-", "armhf", "armhf-musl"),
    "armel": ("arm-linux-gnueabi-", "armel", "armel-musl"),
}

# "section address size file", where a long section name has a line of its own.
INPUT = re.compile(r"^ (\S+)\s+0x([0-9a-f]+)\s+0x([0-9a-f]+) (\S.*)$", re.MULTILINE)
NOT_LOADED = re.compile(r"^\.(debug|comment|note\.GNU-stack|ARM\.attributes|gnu\.warning)")


# What says how a build is made, "NAME:TYPE=VALUE" in its cache; the rest is CMake's own.
OPTION = re.compile(r"^([A-Za-z]\w*):(?:BOOL|STRING|PATH|FILEPATH|UNINITIALIZED)=(.*)$", re.MULTILINE)
FLAGS = ("CFLAGS", "CPPFLAGS", "CXXFLAGS", "LDFLAGS", "CXX", "CMAKE_BUILD_TYPE",
         "CMAKE_TOOLCHAIN_FILE")


def run(root, *command, **options):
    done = subprocess.run(command, cwd=root, capture_output=True, text=True, check=False, **options)
    if done.returncode != 0:
        raise SystemExit(f"budget: {' '.join(command)} failed\n{done.stdout}{done.stderr}")


def options_of(folder):
    text = (folder / "CMakeCache.txt").read_text().replace(str(folder), "")
    options = dict(OPTION.findall(text))
    options.pop("UPGRADE_WERROR", None)  # what a warning is called changes no byte
    return options


def refuse_other_options(root, preset):
    """Ends the program where the preset's folder is configured otherwise than a new one would be, by
    an option that somebody set there or by flags in the environment."""
    own = options_of(root / "build" / preset)
    with tempfile.TemporaryDirectory() as name:
        clean = {key: value for key, value in os.environ.items() if key not in FLAGS}
        run(root, "cmake", "--preset", preset, "-B", name, env=clean)
        fresh = options_of(pathlib.Path(name))
    other = [f"{key} is '{own.get(key, '')}', not '{fresh.get(key, '')}'"
             for key in sorted(own.keys() | fresh.keys()) if own.get(key, "") != fresh.get(key, "")]
    if other:
        raise SystemExit(f"budget: build/{preset} is not as its preset has it: {'; '.join(other)}\n"
                         "budget: remove it; builds with other options have folders of their own "
                         "(cmake --preset NAME -B FOLDER)")


def build(root, preset, target="upgrade"):
    run(root, "cmake", "--preset", preset)
    refuse_other_options(root, preset)
    run(root, "cmake", "--build", "--preset", preset, "--target", target)


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


def sizes_on_musl(root, architecture):
    preset = ARCHITECTURES[architecture][2]
    build(root, preset)
    parts = shares(root, preset)
    return {
        "static program on musl, stripped": stripped_size(root, architecture, preset),
        "of that one the TLS library": parts["tls"],
        "of that one musl and the compiler's": parts["rest"],
    }

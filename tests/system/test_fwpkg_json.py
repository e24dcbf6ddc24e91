# SPDX-License-Identifier: GPL-2.0-or-later
"""fwpkg's JSON, and the page that describes it."""

import hashlib
import json
import re
import subprocess
import zlib

from conftest import ROOT
from fwpkg_tool import COMMANDS, DATA, FWPKG, folder, fwpkg
from package import OPTIONAL, Part, make_package

# Used as a fixture.
__all__ = ["folder"]


def described(command):
    """Path -> type of the fields that docs/json.md has for a command."""
    page = (ROOT / "docs/json.md").read_text()
    name = command if " " in command else f"fwpkg {command}"
    section = page.split(f"## `{name}`\n")[1].split("\n## ")[0]
    fields = dict(re.findall(r"^\| `(\S+)` \| (\S+) \|", section, re.M))
    if command == "make":
        found = {path: kind for path, kind in described("check").items() if path.startswith("findings")}
        fields |= found | {path: kind for path, kind in described("show").items() if path != "problem"}
    return fields


def real(value, path=""):
    """Path and type of each field of a document."""
    if path.endswith(".numbers"):
        yield path, "object"
    elif isinstance(value, dict):
        for name, member in value.items():
            yield from real(member, f"{path}.{name}".lstrip("."))
    elif isinstance(value, list):
        for member in value:
            yield from real(member, f"{path}[]")
    else:
        yield path, {bool: "boolean", int: "number", str: "text", type(None): "null"}[type(value)]


def test_the_page_on_json_has_every_field_and_no_other(folder):
    odd = make_package([Part(2, DATA, flags=OPTIONAL, features={"ram": "64"}, conditions=b"\0a\x001\0\xff"),
                        Part(2, b"", flags=2)])
    (folder / "old").write_bytes(odd)
    (folder / "new").write_bytes(make_package([Part(2, DATA[:-1]), Part(3, b"x")]))
    (folder / "text").write_text("no package")
    (folder / "d.toml").write_text("[partitions]\n2=4096\n[configuration]\na='2'\n[requirements]\n"
                                   "kernel='ram:=64 & b=1'\n")
    (folder / "roomy.toml").write_text("[partitions]\n2=65536\n3=65536\n[configuration]\na='1'\n"
                                       "[requirements]\nkernel='! ram:=010'\n")
    (folder / "bare.toml").write_text("")
    devices = ("--device", "d.toml", "--device", "roomy.toml", "--device", "bare.toml")
    runs = {
        "make": [("make", "m.toml", "-o", "fw", "--key-file", "key", *devices)],
        "show": [("show", "old"), ("show", "text"), ("show", "fw")],
        "check": [("check", "old")],
        "plan": [("plan", "old", *devices)],
        "diff": [("diff", "old", "new", *devices)],
        "condition": [("condition", "a==1 & b=2", "b=2")],
        "extract": [("extract", "old", "out")],
    }
    assert list(runs) == COMMANDS
    for command, lines in runs.items():
        kinds = {}
        for arguments in lines:
            done = subprocess.run([FWPKG, *arguments, "--json"], cwd=folder, capture_output=True,
                                  timeout=60, check=False)
            document = json.loads(done.stdout)
            assert list(document)[0] == "format" and document["format"] == 1
            for path, kind in real(document):
                kinds.setdefault(path, set()).add(kind)
        fields = described(command)
        assert set(kinds) == set(fields), command
        for path, found in kinds.items():
            allowed = {fields[path].rstrip("?")} | ({"null"} if fields[path].endswith("?") else set())
            assert found <= allowed, (command, path)
    assert json.loads(fwpkg("check", "old", "--json", folder=folder).stdout)["sound"]
    strict = fwpkg("check", "old", "--json", "--strict", folder=folder, status=1)
    assert not json.loads(strict.stdout)["sound"]
    made = json.loads(fwpkg("make", "m.toml", "-o", "fw", "--key-file", "key", "--json",
                            folder=folder).stdout)
    content = (folder / "fw").read_bytes()
    data = hashlib.sha256(DATA).hexdigest()
    assert made["sha256"] == hashlib.sha256(content).hexdigest() and made["size"] == len(content)
    assert made["inputs"] == [{"file": "zImage", "size": len(DATA), "sha256": data}]
    assert made["parts"][0]["crc32"] == f"{zlib.crc32(DATA):08x}" and made["parts"][0]["sha256"] == data
    assert made["content_identifier"] == content[12:28].hex()

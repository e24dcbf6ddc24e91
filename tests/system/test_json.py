# SPDX-License-Identifier: GPL-2.0-or-later
"""The JSON of the host tools, and the page that describes it."""

import hashlib
import json
import re
import subprocess
import zlib

from conftest import BUILD, ROOT, SIMDEV
from fwpkg_tool import COMMANDS, DATA, FWPKG, folder, fwpkg
from package import OPTIONAL, Part, make_package

# Used as a fixture.
__all__ = ["folder"]

FWDOCTOR = BUILD / "tools/doctor/fwdoctor"
MAGIC = 0x44427031  # of a trailer

# Objects with any number of members of one kind, and what the page calls the names of these.
MAPS = {"partitions": "<partition>", "faults": "<fault>", "datagrams": "<receiver>"}


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
        any_name = MAPS.get(path.rsplit(".", 1)[-1])
        for name, member in value.items():
            yield from real(member, f"{path}.{any_name or name}".lstrip("."))
    elif isinstance(value, list):
        for member in value:
            yield from real(member, f"{path}[]")
    else:
        yield path, {bool: "boolean", int: "number", float: "number", str: "text",
                     type(None): "null"}[type(value)]


def check_page(command, documents):
    """The page has every field that these outputs have, with its types, and no other."""
    kinds = {}
    for document in map(json.loads, documents):
        assert document["format"] == 1, command
        for path, kind in real(document):
            kinds.setdefault(path, set()).add(kind)
    fields = described(command)
    # Of an object that may be null the page has the members.
    kinds = {path: found for path, found in kinds.items()
             if found != {"null"} or not any(field.startswith(f"{path}.") for field in fields)}
    assert set(kinds) == set(fields), command
    for path, found in kinds.items():
        allowed = {fields[path].rstrip("?")} | ({"null"} if fields[path].endswith("?") else set())
        assert found <= allowed, (command, path)


def output(*words, **settings):
    return subprocess.run(list(map(str, words)), capture_output=True, timeout=60, check=False,
                          **settings).stdout


def test_the_page_on_json_has_fwpkgs_fields_and_no_other(folder):
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
        check_page(command, [output(FWPKG, *arguments, "--json", cwd=folder) for arguments in lines])
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


def test_the_page_on_json_has_the_fields_of_a_device_and_no_other(make_device, serve_tftp, tmp_path):
    package = tmp_path / "fw"
    package.write_bytes(make_package([Part(2, DATA), Part(3, DATA[:100])]))
    port = serve_tftp({"fw": package.read_bytes()})
    device, url = make_device(partitions={2: 16384, 3: 8192}), ["--", "tftp://127.0.0.1/fw"]

    def run(*options, command="run"):
        return output(*device.command(command, "--json", *options, tftp_port=port), *url)

    first = run("--fault=bit-flip@1:bit=9", "--fault=read-error@2")
    log = (device.folder / "run/stderr").read_bytes()
    cut = run("--fast", "--fault=cut@4")
    log += (device.folder / "run/stderr").read_bytes()
    slept = json.loads(first)
    assert 2180000 <= slept["virtual_us"] <= slept["real_us"] and "overhead_percent" not in json.loads(cut)
    words = [*(device.folder / f"dev/fla{number}" for number in (2, 3)), "--package", package, "--json"]
    flash = output(FWDOCTOR, "flash", *words)
    assert output(SIMDEV, "status", device.folder, *words[2:]) == flash
    check_page("simdev sweep", [run(command="sweep")])
    url[1] = "no URL"
    check_page("simdev run", [first, cut, run("--fast")])
    log += (device.folder / "run/stderr").read_bytes()
    check_page("fwdoctor log", [output(FWDOCTOR, "log", "--json", "-", input=log)])
    (tmp_path / "short").write_bytes(b"short")
    check_page("fwdoctor flash", [flash, output(FWDOCTOR, "flash", "--json", tmp_path / "short")])

    crc = zlib.crc32(DATA)
    assert json.loads(cut)["partitions"]["2"]["crc"] == f"{crc:08x}"
    assert json.loads(flash)["partitions"][0]["trailer"] == {
        "state": "valid", "crc": f"{crc:08x}", "length": len(DATA),
        "check": f"{(crc + len(DATA) + MAGIC) & 0xFFFFFFFF:08x}", "magic": f"{MAGIC:08x}",
        "check_right": True, "magic_right": True, "content_crc": f"{crc:08x}"}

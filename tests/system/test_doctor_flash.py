# SPDX-License-Identifier: GPL-2.0-or-later
"""Partitions as upgrades leave them, judged by fwdoctor and by bootloader/trailer.c."""

import concurrent.futures
import ctypes
import json
import os
import shutil
import struct
import subprocess
import zlib

import pytest

from conftest import BUILD, ROOT, SIMDEV, Device
from package import Part, make_package
from test_upgrade import trailer

FWDOCTOR = BUILD / "tools/doctor/fwdoctor"
BLOCK = 4096
SIZES = {2: 25_000, 3: 70_001, 4: 8_192}  # the new one is longer, as long, and shorter
OLD_SIZES = {2: 20_000, 3: 70_001, 4: 9_000}
PARTITIONS = {2: 65536, 3: 131072, 4: 65536}
WHOLE, MISSING, CRC_WRONG, UNREADABLE = range(4)


def data(number, old=False):
    size = (OLD_SIZES if old else SIZES)[number]
    return bytes((i * 7 + i // 251 * (number + 10 * old)) & 0xFF for i in range(size))


def fwdoctor(*words, **more):
    done = subprocess.run([FWDOCTOR, "flash", "--json", *map(str, words)], capture_output=True,
                          timeout=300, **more)
    verdicts = json.loads(done.stdout)["partitions"] if done.stdout else None
    return verdicts, done.returncode, done.stderr.decode()


@pytest.fixture(scope="module")
def boot_loader(tmp_path_factory):
    """boot_loader(path): what trailer.c says of a partition."""
    library = tmp_path_factory.mktemp("boot") / "trailer.so"
    subprocess.run(["cc", "-std=c99", "-ffreestanding", "-nostdlib", "-shared", "-fPIC", "-o",
                    library, ROOT / "bootloader/trailer.c"], check=True)
    check = ctypes.CDLL(library).trailer_check_partition
    callback = ctypes.CFUNCTYPE(ctypes.c_int, ctypes.c_void_p, ctypes.c_uint32, ctypes.c_void_p,
                                ctypes.c_uint32)

    def judge(path, fail_at=-1):
        bytes_ = path.read_bytes()
        calls = []

        def read(_, offset, into, size):
            assert 0 < size <= 256 and offset + size <= len(bytes_)
            calls.append(offset)
            ctypes.memmove(into, bytes_[offset:offset + size], size)
            return -1 if len(calls) == fail_at else 0

        return check(callback(read), None, ctypes.c_uint32(len(bytes_)))

    return judge


def test_every_partition_of_a_sweep_is_judged(make_device, serve_tftp, tmp_path, boot_loader):
    writes = {number: -(-size // BLOCK) + 1 for number, size in SIZES.items()}
    points = range(1, sum(writes.values()) + 1)
    assert len(points) == 30
    packages = {}
    for name, old in (("old", True), ("new", False)):
        packages[name] = tmp_path / f"{name}.pkg"
        packages[name].write_bytes(make_package([Part(n, data(n, old)) for n in SIZES]))
    port = serve_tftp({p.name: p.read_bytes() for p in packages.values()})
    device = make_device(partitions=PARTITIONS)
    assert device.run("tftp://127.0.0.1/old.pkg", tftp_port=port).status == 0

    def cut(point):
        folder = tmp_path / f"cut{point}"
        shutil.copytree(device.folder, folder)
        run = Device(folder).run("tftp://127.0.0.1/new.pkg", tftp_port=port, faults=[f"cut@{point}"])
        assert run.status == 100, run.stderr

    with concurrent.futures.ThreadPoolExecutor(os.cpu_count()) as pool:
        list(pool.map(cut, points))
    dumps = [tmp_path / f"cut{point}/dev/fla{n}" for point in points for n in SIZES]
    verdicts, status, said = fwdoctor(*dumps, "--package", packages["old"], "--package",
                                      packages["new"])
    assert (status, said) == (1, "")
    by_path = {verdict["path"]: verdict for verdict in verdicts}
    for point in points:
        left = point
        for number, count in writes.items():
            path = tmp_path / f"cut{point}/dev/fla{number}"
            verdict = by_path[str(path)]
            done = min(left, count)
            left -= done
            mixed = 0 < done < count
            place = (point, number)
            assert sum(run["count"] for run in verdict["runs"] if any(
                part["package"].endswith("new.pkg") for part in run["parts"])) == min(done, count - 1)
            assert verdict["whole"] == (not mixed), place
            assert verdict["trailer"]["state"] == ("CRC wrong" if mixed else "valid"), place
            assert verdict["boot_loader"] == {"crc": not mixed, "check_word_alone": True}, place
            assert boot_loader(path) == (CRC_WRONG if mixed else WHOLE), place
            # All data is there before the trailer's own write.
            if mixed and done < count - 1:
                assert verdict["content"] == "mixed", place
                assert "new.pkg: it writes everything anew" in verdict["advice"], place
            elif mixed:
                assert verdict["holds"]["package"].endswith("new.pkg")


def test_odd_dumps_get_what_can_be_said(tmp_path, boot_loader):
    part = data(2)[:9000]
    package = tmp_path / "flash.pkg"
    package.write_bytes(make_package([Part(2, part), Part(8, b"not written")], key=b"right one"))
    (tmp_path / "right").write_text("right one\n")
    keyed = ["--package", package, "--key-file", tmp_path / "right"]
    whole = part.ljust(65520, b"\xff") + trailer(part)
    beyond = struct.pack("<IIII", 1, 70_000, 70_001 + 0x44427031, 0x44427031)
    full = data(3)[:65536]
    rows = {  # content, trailer, content's word, whole, boot loader, advice
        "whole": (whole, "valid", "whole", True, WHOLE, "Nothing"),
        "empty": (b"", "no trailer", "erased", False, MISSING, "Take the dump again"),
        "trailer alone": (trailer(b""), "valid", "unknown", False, WHOLE, "Name the package"),
        "erased": (b"\xff" * 8192, "no trailer", "erased", False, MISSING, "Run the upgrade: the"),
        "changed": (b"?" + whole[1:], "CRC wrong", "mixed", False, CRC_WRONG, "Run the upgrade again"),
        "trailer torn": (whole[:-9] + b"?" + whole[-8:], "no trailer", "whole", False, MISSING,
                         "Run the upgrade again with"),
        "check torn": (whole[:-5] + b"?" + whole[-4:], "no trailer", "whole", False, MISSING, "Run the"),
        "magic torn": (whole[:-1] + b"?", "no trailer", "whole", False, MISSING, "Run the"),
        "length beyond": (whole[:-16] + beyond, "CRC wrong", "whole", False, CRC_WRONG, "Run the"),
        "another's": (full[:-16] + trailer(full[:-16]), "valid", "unknown", False, WHOLE, "Name"),
    }
    for name, (dump, *_) in rows.items():
        (tmp_path / name).write_bytes(dump)
    verdicts, status, said = fwdoctor(*rows, *keyed, cwd=tmp_path)
    assert (status, said) == (1, "")
    for verdict, (name, row) in zip(verdicts, rows.items()):
        _, state, word, is_whole, loader, advice = row
        assert (verdict["trailer"]["state"], verdict["content"], verdict["whole"]) == (
            state, word, is_whole), name
        assert boot_loader(tmp_path / name) == loader, name
        assert verdict["boot_loader"] == {"crc": state == "valid",
                                          "check_word_alone": state != "no trailer"}, name
        assert verdict["advice"].startswith(advice), name
        if "torn" in name:
            right = [verdict["trailer"][field] for field in ("magic_right", "check_right")]
            assert right == [name != "magic torn", name == "magic torn"]
        if state == "CRC wrong" and "beyond" not in name:
            assert verdict["trailer"]["content_crc"] == f"{zlib.crc32(row[0][:len(part)]):08x}"
    assert boot_loader(tmp_path / "whole", fail_at=3) == UNREADABLE
    assert fwdoctor("whole", "another's", cwd=tmp_path)[1] == 0  # the trailer alone counts
    assert fwdoctor("whole", *keyed, cwd=tmp_path)[1] == 0


def test_what_cannot_be_judged_or_compared_is_said(tmp_path):
    part = data(2)[:9000]
    (tmp_path / "good").write_bytes(part.ljust(65520, b"\xff") + trailer(part))
    one = make_package([Part(2, part)], key=b"eight or more")
    for name, content in {"bad": b"?", "one": one, "cut": one[:-1], "a.key": b"eight or more\n",
                          "cr.key": b"eight or more\r\n"}.items():
        (tmp_path / name).write_bytes(content)
    line_end = "warning: cr.key: the key begins or ends with a line end, which is part of it"
    another = "has another key than this one, or is damaged: its checksum is wrong"
    for words, status, lines in (
            (".", 2, [".: cannot be read: Is a directory"]),
            ("none bad", 2, ["none: cannot be read: No such file or directory"]),
            ("--package one --key-file cr.key", 2, [line_end, f"one: cannot be compared with: {another}"]),
            ("--package one", 2, ["one: cannot be compared with: is enciphered: --key-file with its key is "
                                  "needed behind it"]),
            ("--package cut --key-file a.key", 2, ["cut: cannot be compared with: has another length than "
                                                   "its header says"]),
            ("--package good", 2, ["good: cannot be compared with: is no package: not a package: Bad magic: "
                                   "00070e15"])):
        verdicts, ended, said = fwdoctor("good", *words.split(), cwd=tmp_path)
        assert (ended, said) == (status, "".join(f"fwdoctor: {line}\n" for line in lines)), words
        assert verdicts[0]["whole"]
    for words in ("--key-file a.key --package one", "--package one" + 2 * " --key-file a.key"):
        assert fwdoctor("good", *words.split(), cwd=tmp_path) == (
            None, 2, "fwdoctor: --key-file belongs behind the --package that it deciphers\n")


def test_of_several_parts_it_holds_the_one_that_the_trailer_names(tmp_path):
    """"other" differs from "long" where the trailer of a small partition stands alone."""
    short, long = data(2)[:BLOCK], data(2)[:3 * BLOCK]
    other, packages = long[:-1] + b"?", []
    for name, part in {"short": short, "long": long, "other": other}.items():
        (tmp_path / name).write_bytes(make_package([Part(2, part)]))
        packages += ["--package", name]
    for content, size, named, held, advice in (
            (long, 65536, short, "short", "Nothing"),
            (long, 65536, long, "long", "Nothing"),
            (long, 65536, b"?", "long", "Run the upgrade again with long: all"),
            (long, 3 * BLOCK, long, "long", "Make the part smaller"),
            (long, 3 * BLOCK, other, "other", "Make the part smaller"),
            (b"?" * BLOCK + long[BLOCK:][:BLOCK], 65536, b"?", None, "Run the upgrade again with long: it")):
        (tmp_path / "dump").write_bytes(content.ljust(65536, b"\xff")[:size - 16] + trailer(named))
        verdict = fwdoctor("dump", *packages, cwd=tmp_path)[0][0]
        assert (verdict["holds"] and verdict["holds"]["package"]) == held
        assert verdict["advice"].startswith(advice)


def test_the_report_for_people(tmp_path):
    old, new = data(2, old=True)[:9000], data(2)[:20_000]
    for name, part in (("old.pkg", old), ("new.pkg", new)):
        (tmp_path / name).write_bytes(make_package([Part(8, b"not written"), Part(2, part)]))
    mixed = (new[:4096] + old[4096:] + b"?" * 9000).ljust(65520, b"\xff")
    (tmp_path / "mixed").write_bytes(mixed + struct.pack("<IIII", 0xab, 5, 0xb0 + 0x44427031, 0x44427031))
    (tmp_path / "whole").write_bytes(new.ljust(65520, b"\xff") + trailer(new))
    done = subprocess.run([FWDOCTOR, "flash", "mixed", "whole", "--package", "old.pkg", "--package",
                           "new.pkg"], capture_output=True, text=True, cwd=tmp_path)
    mixed, whole = done.stdout.split("whole\n  size", 1)
    assert mixed == f"""\
mixed
  size         65536 bytes
  trailer      CRC wrong: crc 000000ab, length 5, check 444270e1 (right), magic 44427031 (right); \
the bytes have the CRC {zlib.crc32(new[:5]):08x}
  content      mixed
               blocks 0 to 0: part 1 (kernel) of new.pkg
               blocks 1 to 2: part 1 (kernel) of old.pkg
               blocks 3 to 4: of none of the packages
               blocks 5 to 14: erased
               blocks 15 to 15: of none of the packages
  boot loader  that checks the CRC: refuses it
               that checks the check word alone: STARTS IT, though it is not whole
  what to do   Run the upgrade again with new.pkg: it writes everything anew. \
Do not start the device from this partition.
"""
    for line in ("trailer      valid: ", "content      whole: part 1 (kernel) of new.pkg\n",
                 "that checks the CRC: starts it\n", "check word alone: starts it\n"):
        assert line in whole


def test_a_device_is_made_from_dumps_and_judged(tmp_path):
    def simdev(command, *words):
        return subprocess.run([SIMDEV, command, tmp_path / "device", *words], capture_output=True,
                              text=True, timeout=60)

    dump = tmp_path / "dump"
    dump.write_bytes(data(2)[:9000].ljust(65520, b"\xff") + trailer(data(2)[:9000]))
    (tmp_path / "other.toml").write_text("[partitions]\n2 = 65537\n")
    for words, said in (
            ([f"--flash=2={dump}", "--device", tmp_path / "other.toml"],
             f"{dump}: has 65536 bytes, partition 2 of {tmp_path}/other.toml has 65537"),
            ([f"--flash=3={dump}", "--device", tmp_path / "other.toml"],
             f"{tmp_path}/other.toml: has no partition 3 for {dump}")):
        done = simdev("init", *words)
        assert (done.returncode, done.stderr) == (125, f"simdev: {said}\n")
        assert not (tmp_path / "device").exists()
    assert simdev("init", f"--flash=2={dump}").returncode == 0
    assert simdev("status").returncode == 0
    (tmp_path / "device/dev/fla2").write_bytes(b"?" + dump.read_bytes()[1:])
    assert simdev("status").returncode == 1

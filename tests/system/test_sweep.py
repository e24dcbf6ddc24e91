# SPDX-License-Identifier: GPL-2.0-or-later
"""simdev sweep: the power cut after every write, and what the next run makes of it."""

import json
import os
import signal
import subprocess

from package import OPTIONAL, Part, make_package
from test_simdev import PACKAGE, serve_http, upgrade
from test_upgrade import KERNEL, trailer


def sweep(device, serve_tftp, old, new, *options):
    """Upgrades to `old`, then sweeps the upgrade to `new`; simdev's exit status and its JSON."""
    upgrade(device, serve_tftp, old)
    port = serve_tftp({"fw": make_package(new)})
    done = subprocess.run(device.command("sweep", "--json", *options, tftp_port=port)
                          + ["--", "tftp://127.0.0.1/fw"], capture_output=True, timeout=120)
    return done.returncode, json.loads(done.stdout)


def test_every_power_cut_is_mended_by_the_next_run(make_device, serve_tftp):
    device = make_device()
    new = [Part(2, KERNEL), Part(3, KERNEL[::-1] * 3), Part(4, b"app", flags=OPTIONAL)]
    status, result = sweep(device, serve_tftp, [Part(2, b"old" * 4000), Part(4, b"old app")], new)
    assert (status, result["writes"], result["swept"], result["recovered"]) == (0, 10, 10, 10)
    # Until its own trailer is written, each partition that held firmware shows the old trailer.
    states = [[f"{state['content']} {state['trailer']}"
               for state in point["partitions"].values()] for point in result["points"]]
    assert states == (
        [["mixed CRC wrong", "old no trailer", "old valid"]] * 2
        + [["new valid", "old no trailer", "old valid"]]
        + [["new valid", "mixed no trailer", "old valid"]] * 4
        + [["new valid", "new valid", "old valid"]]
        + [["new valid", "new valid", "mixed CRC wrong"]]
        + [["new valid", "new valid", "new valid"]])
    assert (result["mixed_under_right_check_word"], result["mixed_but_valid"]) == (3, 0)
    # The folder itself still holds the old firmware.
    assert device.flash(2).startswith(b"old") and device.flash(4)[-16:] == trailer(b"old app")


def test_an_old_image_that_the_new_one_begins_with_is_taken_for_whole(make_device, serve_tftp):
    new = bytes(range(256)) * 32
    status, result = sweep(make_device(), serve_tftp, [Part(2, new[:4096])], [Part(2, new)])
    assert (status, result["recovered"]) == (0, 3)
    # The first write changes nothing, the second one lies behind what the old trailer covers.
    assert (result["mixed_under_right_check_word"], result["mixed_but_valid"]) == (1, 1)


def test_torn_writes_are_mended_too(make_device, serve_tftp):
    device = make_device()
    status, result = sweep(device, serve_tftp, [Part(2, b"old")], [Part(2, KERNEL)], "--torn=9")
    assert (status, result["recovered"]) == (0, 3)
    # A torn trailer is recognised: crc and length are new, check and magic are old.
    assert [p["partitions"]["2"]["trailer"] for p in result["points"]] == ["CRC wrong"] * 2 + ["no trailer"]


def test_a_power_cut_that_the_next_run_does_not_mend_is_told(make_device, tcp_peer):
    other, none = make_package([Part(2, b"other" * 300)]), bytes(2000)

    def sweep_with(*contents):
        def serve(sock):
            for content in contents:
                serve_http(sock, content)

        command = make_device().command("sweep", "--jobs=1", ports=[(80, tcp_peer(serve))])
        return subprocess.run([*command, "--", "http://127.0.0.1/fw"], capture_output=True, text=True, timeout=120)

    # The undisturbed run, then each cut and what the next run gets.
    done = sweep_with(PACKAGE, PACKAGE, none, PACKAGE, other, PACKAGE, PACKAGE)
    assert done.returncode == 1
    verdicts = [line.split("  ")[-1].strip() for line in done.stdout.splitlines()[1:4]]
    assert verdicts == ["FAILS, exit status 1", "LEAVES ANOTHER FLASH, exit status 0", "recovers"]
    assert "recovered   1 by the next run" in done.stdout
    done = sweep_with(PACKAGE, none)
    assert done.returncode == 125
    assert done.stderr.endswith("simdev: the run that is cut after write 1 ends with exit status 1\n")


def test_an_interrupted_sweep_tells_what_it_has_and_leaves_nothing(make_device, serve_tftp, tmp_path):
    device = make_device(partitions={2: 1048576})
    port = serve_tftp({"fw": make_package([Part(2, bytes(900000))])})
    scratch = tmp_path / "scratch"
    scratch.mkdir()
    simdev = subprocess.Popen(device.command("sweep", tftp_port=port) + ["--", "tftp://127.0.0.1/fw"],
                              stdout=subprocess.PIPE, stderr=subprocess.PIPE,
                              env={**os.environ, "TMPDIR": str(scratch)})
    assert simdev.stderr.readline().startswith(b"cut and recover")
    simdev.send_signal(signal.SIGINT)
    assert b"interrupted: no more were tried" in simdev.communicate(timeout=60)[0]
    assert simdev.returncode == 130 and list(scratch.iterdir()) == []

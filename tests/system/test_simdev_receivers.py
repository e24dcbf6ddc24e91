# SPDX-License-Identifier: GPL-2.0-or-later
"""Who receives a simulated device's status datagrams."""

import contextlib
import os
import select
import socket

from package import Part
from test_simdev import serve_http, upgrade


def test_the_status_receivers_can_be_others(make_device, serve_tftp, tcp_peer, tmp_path):
    """One elsewhere, under a path that no socket's address has room for; one bound in the device
    folder before the run. What neither has bound is received by simdev."""
    device = make_device()
    elsewhere = tmp_path / ("long" * 30)
    elsewhere.mkdir()
    with contextlib.ExitStack() as stack:
        def bind(folder, name):
            sock = stack.enter_context(socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM))
            directory = os.open(folder, os.O_PATH)
            sock.bind(f"/proc/self/fd/{directory}/{name}")
            os.close(directory)
            sock.setblocking(False)
            return sock

        def received(sock):
            with contextlib.suppress(BlockingIOError):
                while True:
                    yield sock.recv(100).decode()

        linked, own = bind(elsewhere, "follower"), bind(device.folder / "tmp", ".syscfg-server")
        # Few enough of them for the queue of a socket that is read after each run: once it holds 11,
        # each further one is waited for.
        run = upgrade(device, serve_tftp, [Part(2, b"x", actual_size=1)],
                      receiver=f"1={elsewhere}/follower")
        texts = ["UPGRD_STAGE=WRITING", "UPGRD_PERCENTAGE=0", "UPGRD_PERCENTAGE=100",
                 "UPGRD_STAGE=VERIFYING", "UPGRD_PERCENTAGE=0", "UPGRD_PERCENTAGE=100",
                 "UPGRD_STAGE=DONE", "UPGRD_PERCENTAGE=0"]
        assert list(received(linked)) == list(received(own)) == run.datagrams == texts
        times = [d["virtual_us"] for d in run.report["datagrams"]["/tmp/.upgrd_info"]]
        assert times == [0, 0, 0, 140000, 140000, 140000, 2140000, 2140000]
        # The link is gone, his own is left to who bound it. One that was left behind is no receiver.
        (device.folder / "tmp/.upgrd_info").symlink_to(elsewhere / "follower")
        run = upgrade(device, serve_tftp, [Part(2, b"x", actual_size=1)])
        assert (list(received(own)), list(received(linked))) == (run.datagrams, []) != ([], [])
        assert [entry.name for entry in (device.folder / "tmp").iterdir()] == [".syscfg-server"]

        def hang_up(sock):
            select.select([sock], [], [], 30)  # the run has begun
            linked.close()
            serve_http(sock, bytes(2000))

        run = device.run("http://127.0.0.1/fw", ports=[(80, tcp_peer(hang_up))],
                         receiver=f"1={elsewhere}/follower")
        assert run.datagrams == [], "nobody receives for one that has gone"
        assert list(received(own)) == run.server_datagrams != []
    run = upgrade(device, serve_tftp, [Part(2, b"x")])
    assert run.datagrams == run.server_datagrams != []
    assert list((device.folder / "tmp").iterdir()) == []

# SPDX-License-Identifier: GPL-2.0-or-later
"""TFTP downloads against peers that do what real servers do not.

A script is a list of steps: ("69", bytes) is what the client must send next to the well-known port,
("<", bytes) what it must send to the server's transfer port; (">", bytes) goes to it from that port,
("other", bytes) from another port, ("host", bytes) from the transfer port of another address.
"""

import contextlib
import socket

import pytest

from conftest import udp_socket
from package import Part, make_package
from servers import atftpd

REQUEST = b"\0\1f\0octet\0"
FULL = bytes(range(256)) * 2
TIMEOUT = "tftp.c:do_tftp:339: timeout\n"
LAST = "receive last packet\n"


def data(number, content=b"end"):
    return b"\0\3" + number.to_bytes(2, "big") + content


def ack(number):
    return b"\0\4" + number.to_bytes(2, "big")


def play(script):
    def peer(sock):
        client = None
        with udp_socket() as server, udp_socket() as other, \
                socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as host:
            host.bind(("127.0.0.2", server.getsockname()[1]))
            for step, (kind, packet) in enumerate(script):
                if kind in ("69", "<"):
                    listening = sock if kind == "69" else server
                    listening.settimeout(20)
                    received, client = listening.recvfrom(600)
                    assert received == packet, f"step {step}: {received}"
                else:
                    {">": server, "other": other, "host": host}[kind].sendto(packet, client)
    return peer


def fetch(make_device, port, name="f", **settings):
    return make_device().run(f"tftp://127.0.0.1/{name}", tftp_port=port, **settings)


def transfer_messages(run):
    """What was said from the beginning of the transfer to its end."""
    text = run.stderr.decode()
    start = text.index("tftp download start ...\n") + len("tftp download start ...\n")
    return text[start:text.index("UPGRD_ERROR")].partition("Bad magic")[0]


DIALOGUES = {
    "a duplicate is acknowledged and not stored again": (
        [(">", data(1, FULL)), ("<", ack(1)), (">", data(1, FULL)), ("<", ack(1)),
         (">", data(2)), ("<", ack(2))], LAST, 515),
    "an empty last packet ends it": (
        [(">", data(1, FULL)), ("<", ack(1)), (">", data(2, b"")), ("<", ack(2))], LAST, 512),
    "a block that lacks a byte is the last": (
        [(">", data(1, FULL[:511])), ("<", ack(1))], LAST, 511),
    "another port counts as a time-out, but as none of the five in a row": (
        [(">", data(1, FULL)), ("<", ack(1)), *[("other", data(2)), ("<", ack(1))] * 5,
         (">", data(2, b"x")), ("<", ack(2))], TIMEOUT * 5 + LAST, 513),
    "only the port is compared": (
        [(">", data(1, FULL)), ("<", ack(1)), ("host", data(2)), ("<", ack(2))], LAST, 515),
    "an unknown opcode comes back": (
        [(">", b"\0\7xyz"), ("<", b"\0\7"), (">", data(1)), ("<", ack(1))], LAST, 3),
    "a block that is not awaited comes back as its opcode": (
        [(">", data(7, FULL)), ("<", b"\0\3"), (">", data(1, FULL)), ("<", ack(1)),
         (">", data(2, FULL)), ("<", ack(2)), (">", data(1)), ("<", b"\0\3"),
         (">", data(3)), ("<", ack(3))], LAST, 1027),
    "an acknowledgement is acknowledged, and its number awaited no more": (
        [(">", ack(0)), ("<", ack(1)), (">", data(2)), ("<", ack(2))], LAST, 3),
    "a read request is asked anew, from the adopted port": (
        [(">", b"\0\1"), ("<", REQUEST), (">", data(1)), ("<", ack(1))], LAST, 3),
    "packets too short to be read count as from another port": (
        [("other", b""), ("69", REQUEST), ("other", b"\0"), ("69", REQUEST), ("other", b"\0\3\0"),
         ("69", REQUEST), (">", data(1)), ("<", ack(1))], TIMEOUT * 3 + LAST, 3),
    "error with a text": (
        [(">", b"\0\5\0\1gone\0")], "tftp.c:do_tftp:378: gone\n", 0),
    "error after data, with a text that the packet ends": (
        [(">", data(1, FULL)), ("<", ack(1)), (">", b"\0\5\0\1gone")],
        "tftp.c:do_tftp:378: gone\n", 512),
    "error of four bytes": ([(">", b"\0\5\0\7")], "tftp.c:do_tftp:378: No such user\n", 0),
    "unknown error without a text": ([(">", b"\0\5\0\x08\0")], "", 0),
    "error cut short": ([(">", b"\0\5\0")], "", 0),
    **{f"error {code} without a text": ([(">", b"\0\5\0%c\0" % code)],
                                        f"tftp.c:do_tftp:378: {text}\n", 0)
       for code, text in enumerate((
           "Undefined error", "File not found", "Access violation",
           "Disk full or allocation error", "Illegal TFTP operation", "Unknown transfer ID",
           "File already exists", "No such user"))},
}


@pytest.mark.parametrize("name", DIALOGUES)
def test_dialogue(name, make_device, udp_peer):
    script, messages, length = DIALOGUES[name]
    run = fetch(make_device, udp_peer(play([("69", REQUEST), *script])))
    assert transfer_messages(run) == messages + f"tftp download packet length: {length}\n"
    finished = LAST in messages
    assert run.datagrams == ["UPGRD_ERROR=" + ("INVALID PACKAGE" if finished else "DOWNLOAD FAILED")]
    assert run.status == 1
    # No callback: nothing feeds the watchdog, nothing reports a stage.
    assert run.names("kick", "script") == (["script"] if finished else [])


def test_silence_ends_after_five_time_outs(make_device, udp_peer):
    run = fetch(make_device, udp_peer(play([("69", REQUEST)] * 5)), grace=100)
    assert run.stderr.decode() == (
        "download start ...\nurl = tftp://127.0.0.1/f\ntftp download start ...\n" + TIMEOUT * 5 +
        "tftp.c:do_tftp:344: last timeout\ntftp download packet length: 0\n"
        "UPGRD_ERROR=DOWNLOAD FAILED\ncannot download url: tftp://127.0.0.1/f\n")
    assert run.report["virtual_us"] == 25_000_000


def test_a_peer_that_talks_without_end_is_left(make_device, udp_peer):
    def chatter(sock):
        client = sock.recvfrom(600)[1]
        with udp_socket() as server, contextlib.suppress(TimeoutError):  # nobody answers any more
            server.settimeout(3)
            while len(answers) < 20_000:
                server.sendto(b"\0\7", client)
                answers.append(server.recvfrom(600)[0])

    answers = []
    run = fetch(make_device, udp_peer(chatter))
    assert set(answers) == {b"\0\7"} and len(answers) <= 9_999
    assert transfer_messages(run).endswith(
        "tftp.c:do_tftp:344: last timeout\ntftp download packet length: 0\n")


def test_a_package_beyond_the_buffer_fails(make_device, serve_tftp):
    run = fetch(make_device, serve_tftp({"f": bytes(4_096_001)}))
    assert transfer_messages(run) == ("tftp.c:do_tftp:404: no room for the package\n"
                                      "tftp download packet length: 4096000\n")
    assert run.datagrams == ["UPGRD_ERROR=DOWNLOAD FAILED"]


def test_file_names_have_at_most_506_characters(make_device, udp_peer):
    name = "n" * 506
    run = fetch(make_device, udp_peer(play([("69", b"\0\1" + name.encode() + b"\0octet\0"),
                                            (">", data(1)), ("<", ack(1))])), name)
    assert LAST in run.stderr.decode()


@pytest.mark.parametrize("url, said", [
    ("127.0.0.1/" + "n" * 507, "tftp download start ...\ntftp.c:do_tftp:257: too long remote-filename\n"
                               "tftp download packet length: 0\n"),
    *((f"{host}/f", "tftp.c:tftp_downloader_download:466: unknown host\n")
      for host in ("no-such-host.invalid", "127.0.0.1:69", "")),
])
def test_a_file_that_cannot_be_asked_for_fails_the_download(url, said, make_device):
    run = make_device().run(f"tftp://{url}")
    assert run.stderr.decode() == (
        f"download start ...\nurl = tftp://{url}\n{said}"
        f"UPGRD_ERROR=DOWNLOAD FAILED\ncannot download url: tftp://{url}\n")


def test_without_a_socket_there_is_an_empty_package(make_device):
    run = make_device().run("tftp://127.0.0.1/f", faults=["socket-error"])
    assert b"tftp.c:do_tftp:208: socket error : " in run.stderr
    assert run.datagrams == ["UPGRD_ERROR=INVALID PACKAGE"]


def test_a_real_server_serves_an_upgrade(make_device, start_server, tmp_path):
    served = tmp_path / "served"
    served.mkdir()
    content = bytes(range(251)) * 300
    (served / "flash.pkg").write_bytes(make_package([Part(3, content)]))
    port = start_server(lambda port: atftpd(served, port), socket.SOCK_DGRAM)
    device = make_device(partitions={3: 131072})
    run = device.run("tftp://127.0.0.1/flash.pkg", tftp_port=port)
    assert run.status == 0
    assert device.flash(3).startswith(content)
    run = device.run("tftp://127.0.0.1/missing", tftp_port=port)
    assert "tftp.c:do_tftp:378: File not found\n" in run.stderr.decode()
    assert run.datagrams == ["UPGRD_ERROR=DOWNLOAD FAILED"]

# SPDX-License-Identifier: GPL-2.0-or-later
"""TFTP downloads against peers that do what real servers do not.

A script is a list of steps: ("69", bytes) is what the client must send next to the well-known port,
("<", bytes) what it must send to the server's transfer port; (">", bytes) goes to it from that port,
("other", bytes) from another port, ("host", bytes) from the transfer port of another address.
"""

import contextlib
import socket

import pytest

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
        with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as server, \
                socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as other, \
                socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as host:
            server.bind(("127.0.0.1", 0))
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


def fetch(make_device, port, name="f", host="127.0.0.1", **settings):
    return make_device().run(f"tftp://{host}/{name}", tftp_port=port, **settings)


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
        with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as server:
            server.settimeout(3)
            with contextlib.suppress(TimeoutError):  # nobody answers any more
                while len(answers) < 20_000:
                    server.sendto(b"\0\7", client)
                    answers.append(server.recvfrom(600)[0])

    answers = []
    port = udp_peer(chatter)
    run = fetch(make_device, port)
    assert set(answers) == {b"\0\7"} and len(answers) <= 9_999
    assert transfer_messages(run).endswith(
        "tftp.c:do_tftp:344: last timeout\ntftp download packet length: 0\n")
    assert run.status == 1


def test_a_package_beyond_the_buffer_fails(make_device, udp_peer):
    def endless(sock):
        client = sock.recvfrom(600)[1]
        with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as server:
            server.settimeout(5)
            for number in range(1, 8001):
                server.sendto(data(number, FULL), client)
                assert server.recvfrom(600)[0] == ack(number)
            server.sendto(data(8001), client)

    run = fetch(make_device, udp_peer(endless))
    assert transfer_messages(run) == ("tftp.c:do_tftp:404: no room for the package\n"
                                      "tftp download packet length: 4096000\n")
    assert run.datagrams == ["UPGRD_ERROR=DOWNLOAD FAILED"]


def test_file_names_have_at_most_506_characters(make_device, udp_peer):
    longest = "n" * 506
    run = fetch(make_device, udp_peer(play([("69", b"\0\1" + longest.encode() + b"\0octet\0"),
                                            (">", data(1)), ("<", ack(1))])), name=longest)
    assert LAST in run.stderr.decode()
    run = fetch(make_device, 1, name=longest + "n")
    assert transfer_messages(run) == ("tftp.c:do_tftp:257: too long remote-filename\n"
                                      "tftp download packet length: 0\n")


def test_without_a_socket_there_is_an_empty_package(make_device):
    run = fetch(make_device, 1, faults=["socket-error"])
    said = "tftp.c:do_tftp:208: socket error : {}\nerror reading package\n" \
           "UPGRD_ERROR=INVALID PACKAGE\nbad package!\n"
    assert run.stderr.decode().split("f\n", 1)[1] in [said.format(reason) for reason in (
        "Too many open files", "No file descriptors available")]  # of the GNU C library, of musl


@pytest.mark.parametrize("host", ["no-such-host.invalid", "127.0.0.1:69", ""])
def test_an_unknown_host_fails_the_download(host, make_device):
    run = fetch(make_device, 1, host=host)
    assert run.stderr.decode() == (
        f"download start ...\nurl = tftp://{host}/f\n"
        "tftp.c:tftp_downloader_download:466: unknown host\n"
        f"UPGRD_ERROR=DOWNLOAD FAILED\ncannot download url: tftp://{host}/f\n")


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

# SPDX-License-Identifier: GPL-2.0-or-later
"""HTTP and HTTPS: upgrades from nginx as docs/package-server.md configures it, and peers that do
what no server should."""

import contextlib
import re
import shutil
import socket
import ssl
import struct

import pytest

from conftest import read_request
from nginx import Nginx
from package import Part, make_package

CONTENT = bytes(range(251)) * 20
PACKAGE = make_package([Part(3, CONTENT)])
PATIENT = {"grace": 10_000}  # every wait is answered, however busy the machine is
RESET = struct.pack("ii", 1, 0)  # in place of an orderly end


@pytest.fixture(scope="module")
def nginx(tmp_path_factory):
    with Nginx(tmp_path_factory.mktemp("nginx"), {"upgrade/flash.pkg": PACKAGE}) as server:
        yield server


def trust(device, authority):
    target = device.folder / "usr/etc/ca-cert.pem"
    target.parent.mkdir(parents=True, exist_ok=True)
    shutil.copy(authority, target)


@pytest.fixture
def trusting(make_device, nginx):
    """A device that trusts the server's authority."""
    device = make_device()
    trust(device, nginx.authority)
    return device


def failed(run):
    """Nothing was touched: the script has not run either."""
    assert run.status == 1
    assert run.names("execv", "script") == []
    return run.datagrams[-1:] == ["UPGRD_ERROR=DOWNLOAD FAILED"]


@pytest.mark.parametrize("url", [
    "http://127.0.0.1/upgrade/flash.pkg",
    "http://127.0.0.1:{http}/upgrade/latest.pkg",  # redirected
    "https://127.0.0.2:{https}/upgrade/flash.pkg",  # no host name is checked
    "https://127.0.0.1/upgrade/flash.pkg",
])
def test_nginx_serves_an_upgrade(url, nginx, trusting):
    run = trusting.run(url.format(http=nginx.http, https=nginx.https),
                       ports=[(80, nginx.http), (443, nginx.https)], **PATIENT)
    assert run.status == 0, run.stderr[-2000:]
    assert trusting.flash(3).startswith(CONTENT)
    assert run.datagrams[:2] == ["UPGRD_STAGE=DOWNLOADING", "UPGRD_PERCENTAGE=0"]
    assert "UPGRD_PERCENTAGE=100" in run.datagrams[:run.datagrams.index("UPGRD_STAGE=WRITING")]
    assert (b"write buf: GET /upgrade/" in run.stderr) == url.startswith("https")
    reads = run.stderr.count(b"sslcli.c:cyassl_client_read:160: CHECKPOINT\n")
    assert reads == run.stderr.count(b", rlen=") and (reads > 0) == url.startswith("https")


def test_strangers_are_refused(nginx, make_device):
    device = make_device()
    url = f"https://127.0.0.1:{nginx.https}/upgrade/flash.pkg"
    run = device.run(url)  # no CA file
    assert run.datagrams == ["UPGRD_ERROR=INVALID URL"]
    assert (b"sslcli.c:create_cyassl_client:66: CHECKPOINT\n"
            b"sslcli.c:create_cyassl_client:78: FUNCTION FAILED!\nhttpc.c:httpcOpenClient:") in run.stderr
    trust(device, nginx.stranger)
    run = device.run(url)
    assert failed(run)
    # Each of the six tries gets its socket, reports the handshake, and fails at its first write.
    assert len(re.findall(
        rb"sslcli.c:cyassl_client_connect:98: CHECKPOINT\nConnect to 127.0.0.1:\d+......connected\n"
        rb"sock = \d+\nsslcli.c:cyassl_client_connect:120: FUNCTION FAILED!\n", run.stderr)) == 6
    assert run.stderr.count(b"len: 33\n") == 6
    trust(device, nginx.authority)
    assert failed(device.run(f"https://127.0.0.1:{nginx.http}/upgrade/flash.pkg"))  # no TLS there
    run = device.run(url.replace("https", "HTTPS"))  # a host "HTTPS" and port 0
    assert run.datagrams == ["UPGRD_ERROR=INVALID URL"]


def server_context(nginx):
    """What nginx does not meet: elliptic curves, and the older version."""
    context = ssl.SSLContext(ssl.PROTOCOL_TLS_SERVER)
    context.maximum_version = ssl.TLSVersion.TLSv1_2
    context.load_cert_chain(nginx.folder / "elliptic.pem", nginx.folder / "elliptic.key")
    return context


def answer_secured(connection, nginx, requests, answer):
    """Over TLS. The request is in `requests` before the answer goes out."""
    with server_context(nginx).wrap_socket(connection, server_side=True) as secured:
        requests.append(read_request(secured))
        secured.sendall(answer)


def each_of(count, serve):
    """A script that calls serve(connection) for `count` connections, one after the other."""
    def script(listener):
        for _ in range(count):
            connection = listener.accept()[0]
            connection.settimeout(30)
            with connection, contextlib.suppress(ConnectionError, ssl.SSLError):
                serve(connection)
    return script


HEAD = b"HTTP/1.0 200 OK\r\nContent-Length: %d\r\n\r\n" % len(PACKAGE)


def moved(location):
    """A redirect, as long as one must be."""
    return b"HTTP/1.0 302 Found\r\nLocation: " + location + b"\r\n\r\n" + b"X" * 1100


# In clear this is a unit test's.
@pytest.mark.parametrize("drip, seconds", [
    ("bytes=10", len(PACKAGE) // 10),
    ("bytes=1000,seconds=200", 200 * (len(PACKAGE) // 1000)),
])
def test_a_slow_server_is_waited_for(drip, seconds, nginx, trusting):
    run = trusting.run(f"https://127.0.0.1:{nginx.https}/upgrade/flash.pkg",
                       faults=[f"server-drip:{drip}"], **PATIENT)
    assert run.status == 0
    assert trusting.flash(3).startswith(CONTENT)
    assert run.report["virtual_us"] > seconds * 1_000_000


@pytest.mark.parametrize("answer, failures", [(b"", 6), (PACKAGE[:2000], 0)])
def test_silence_is_waited_out_once(answer, failures, nginx, trusting, tcp_peer):
    """In the handshake and, behind a piece of the package, in a record."""
    def serve(connection):
        if answer:
            with server_context(nginx).wrap_socket(connection, server_side=True) as secured:
                read_request(secured)
                secured.sendall(HEAD + answer)
                secured.recv(1)
        elif connection.recv(5000):
            connection.recv(5000)

    run = trusting.run(f"https://127.0.0.1:{tcp_peer(each_of(1, serve))}/p", grace=300)
    assert failed(run)
    assert run.stderr.count(b"cyassl_client_connect:120: FUNCTION FAILED!") == failures
    assert run.stderr.count(b"Connect to ") == 1
    assert run.report["virtual_us"] == 300_000_000


@pytest.mark.parametrize("received", [0, 5])
def test_a_server_that_restarts_is_reached_by_a_later_try(received, nginx, trusting, tcp_peer):
    """It resets five connections before or in the handshake. (Without TLS the request may go out before
    a reset is there; it counts as sent then, and there is no other try.)"""
    turns = iter(range(6))

    def serve(connection):
        if next(turns) < 5:
            connection.recv(received)
            return connection.setsockopt(socket.SOL_SOCKET, socket.SO_LINGER, RESET)
        answer_secured(connection, nginx, [], HEAD + PACKAGE)

    run = trusting.run(f"https://127.0.0.1:{tcp_peer(each_of(6, serve))}/p", **PATIENT)
    assert run.status == 0
    assert run.stderr.count(b"cyassl_client_connect:120: FUNCTION FAILED!") == 5


@pytest.mark.parametrize("trusts, both_on_one_port", [(True, True), (True, False), (False, True)])
def test_a_redirect_to_https_goes_to_the_same_port_if_a_server_is_trusted(
        trusts, both_on_one_port, nginx, make_device, tcp_peer):
    requests = []
    location = b"https://127.0.0.2:%d/upgrade/flash.pkg" % nginx.https

    def serve(connection):
        if connection.recv(1, socket.MSG_PEEK) == b"\x16" and both_on_one_port:
            answer_secured(connection, nginx, requests, HEAD + PACKAGE)
        else:
            read_request(connection)
            connection.sendall(moved(location))

    device = make_device()
    if trusts:
        trust(device, nginx.authority)
    # The ordinary server goes on reading what it takes for a request.
    run = device.run(f"http://127.0.0.1:{tcp_peer(each_of(1 + trusts, serve))}/p",
                     grace=10_000 if both_on_one_port else 100)
    arrives = trusts and both_on_one_port
    assert run.status == 0 if arrives else failed(run)
    assert [b"GET /upgrade/flash.pkg HTTP/1.0\r\n" in each for each in requests] == [True] * arrives
    assert trusts or run.stderr.count(b"FUNCTION FAILED!") == 2  # nothing goes on in clear


def test_a_redirect_to_http_leaves_tls(nginx, trusting, tcp_peer):
    answer = moved(b"http://127.0.0.2:%d/upgrade/flash.pkg" % nginx.http)
    port = tcp_peer(each_of(1, lambda connection: answer_secured(connection, nginx, [], answer)))
    run = trusting.run(f"https://127.0.0.1:{port}/p", **PATIENT)
    assert run.status == 0
    assert run.stderr.count(b"cyassl_client_release:152: CHECKPOINT\n") == 1


def test_a_thousand_redirects_end_where_they_lead(make_device, tcp_peer):
    requests = []

    def serve(connection):
        requests.append(read_request(connection))
        connection.sendall(moved(b"http://127.0.0.1/%d" % len(requests)) if len(requests) < 1000
                           else HEAD + PACKAGE)

    run = make_device().run(f"http://127.0.0.1:{tcp_peer(each_of(1000, serve))}/p", **PATIENT)
    assert run.status == 0
    assert requests[-1].startswith(b"GET /999 HTTP/1.0\r\n")
    # C libraries print a null pointer in one of these ways.
    assert len(re.findall(rb"client->ssl = (?:\(nil\)|0+)\n", run.stderr)) == 2 * 1000

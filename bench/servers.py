# SPDX-License-Identifier: GPL-2.0-or-later
"""Servers on this machine's loopback that hand out one package, each on a free port."""

import contextlib
import functools
import http.server
import socket
import ssl
import struct
import subprocess
import sys
import threading
import time

NAME = "flash.pkg"


def free_port():
    with socket.create_server(("127.0.0.1", 0)) as sock:
        return sock.getsockname()[1]


def make_certificate(folder):
    """A certificate for 127.0.0.1 that is its own authority; the files of certificate and key."""
    certificate, key = folder / "ca.pem", folder / "key.pem"
    subprocess.run(["openssl", "req", "-x509", "-newkey", "rsa:2048", "-nodes", "-days", "2",
                    "-subj", "/CN=127.0.0.1", "-keyout", key, "-out", certificate],
                   check=True, capture_output=True)
    return certificate, key


@contextlib.contextmanager
def http_server(content, certificate=None):
    class Handler(http.server.BaseHTTPRequestHandler):
        def do_GET(self):  # pylint: disable=invalid-name
            self.send_response(200)
            self.send_header("Content-Length", str(len(content)))
            self.end_headers()
            self.wfile.write(content)

        def log_message(self, *_):  # pylint: disable=arguments-differ
            pass

    with http.server.ThreadingHTTPServer(("127.0.0.1", 0), Handler) as server:
        if certificate:
            context = ssl.SSLContext(ssl.PROTOCOL_TLS_SERVER)
            context.load_cert_chain(*certificate)
            server.socket = context.wrap_socket(server.socket, server_side=True)
        thread = threading.Thread(target=server.serve_forever)
        thread.start()
        try:
            yield server.server_port
        finally:
            server.shutdown()
            thread.join()


@contextlib.contextmanager
def tftp_server(content):
    def serve(sock):
        with contextlib.suppress(OSError):  # ends when the socket is closed
            while True:
                client = sock.recvfrom(600)[1]
                with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as transfer:
                    transfer.bind(("127.0.0.1", 0))
                    for number in range(1, len(content) // 512 + 2):
                        block = content[(number - 1) * 512:number * 512]
                        transfer.sendto(struct.pack(">HH", 3, number & 0xFFFF) + block, client)
                        transfer.recvfrom(600)

    with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as sock:
        sock.bind(("127.0.0.1", 0))
        thread = threading.Thread(target=serve, args=(sock,), daemon=True)
        thread.start()
        yield sock.getsockname()[1]


@contextlib.contextmanager
def ftp_server(content, folder):
    (folder / NAME).write_bytes(content)
    port = free_port()
    with subprocess.Popen([sys.executable, "-m", "pyftpdlib", "-i", "127.0.0.1", "-p", str(port),
                           "-d", str(folder)], stderr=subprocess.DEVNULL) as server:
        try:
            for _ in range(100):
                with contextlib.suppress(OSError), socket.create_connection(("127.0.0.1", port)):
                    break
                time.sleep(0.1)
            yield port
        finally:
            server.terminate()


def servers(content, folder):
    """Protocol -> (a context manager that yields the port, the URL's form)."""
    certificate = make_certificate(folder)
    return {
        "TFTP": (functools.partial(tftp_server, content), "tftp://127.0.0.1/" + NAME),
        "FTP": (functools.partial(ftp_server, content, folder), "ftp://127.0.0.1/" + NAME),
        "HTTP": (functools.partial(http_server, content), "http://127.0.0.1/" + NAME),
        "HTTPS": (functools.partial(http_server, content, certificate),
                  "https://127.0.0.1/" + NAME),
    }

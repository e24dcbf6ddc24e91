# SPDX-License-Identifier: GPL-2.0-or-later
"""Runs that fail for real, each in its own way: the table that makes the logs for fwdoctor.

    @dataclass Failure
    url      may hold the names of ports: {http} {https} {expired} {ftp} {closed} {silent}
    cause    how the cause begins that fwdoctor has to name first
    network  what it has to say of the device's network; None: of a run that is flawless
    package  served over TFTP in place of an URL
    faults, device, trusted   of the simulated device; the CA file: authority, stranger or none
"""

import dataclasses
import re

from nginx import Nginx
from package import Part, make_package, seal

CONTENT = bytes(range(251)) * 200
PACKAGE = make_package([Part(2, CONTENT), Part(3, CONTENT[:30_000])])
FAILS = b"\0none\0x\0"  # condition code
DAMAGED = PACKAGE[:-1] + b"?"

# What nginx says to these paths. The filler makes the answer one that the program reads.
SITE = """
    location = /401 {{ error_page 401 @401; return 401; }}
    location @401 {{ return 401 "{filler}"; }}
    location = /403 {{ error_page 403 @403; return 403; }}
    location @403 {{ return 403 "{filler}"; }}
    location = /404 {{ error_page 404 @404; return 404; }}
    location @404 {{ return 404 "{filler}"; }}
    location = /500 {{ error_page 500 @500; return 500; }}
    location @500 {{ return 500 "{filler}"; }}
    location = /307 {{ error_page 307 @moved; return 307 http://127.0.0.2:{port}/flash.pkg; }}
    location @moved {{ return 200 "{filler}"; }}
"""

class Server(Nginx):
    """nginx that refuses in every way; with days below 0 its certificate has expired."""

    def __init__(self, folder, files, days=2):
        super().__init__(folder, files)
        self.openssl("x509", "-req", "-in", "packages.csr", "-CA", "authority.pem", "-CAkey",
                     "authority.key", "-CAcreateserial", "-days", str(days), "-out", "packages.pem")

    def documented(self):
        site = SITE.format(filler="x" * 1100, port=self.http)
        return re.sub(r"\n +root [^;]*;", lambda match: match.group() + site, super().documented(),
                      count=1)


@dataclasses.dataclass
class Failure:
    url: str
    cause: str
    network: str = "runs"
    package: bytes = None
    faults: tuple = ()
    device: dict = dataclasses.field(default_factory=dict)
    trusted: str = "authority"


def http(path, cause, **more):
    return Failure("http://127.0.0.1:{http}/" + path, cause, **more)


def https(path, cause, port="https", **more):
    return Failure("https://127.0.0.1:{%s}/%s" % (port, path), cause, **more)


def ftp(login, path, cause, **more):
    return Failure("ftp://" + login + "127.0.0.1:{ftp}/" + path, cause, **more)


def refused(package, cause, **device):
    return Failure(None, cause, "stopped", package, device=device)


def flash(cause, *faults, network="stopped", package=PACKAGE, **device):
    return Failure(None, cause, network, package, faults, device)


SHORT = "The HTTP server's answer has less than 1024 bytes"
BROKE = "The download broke off in the middle"
HANDSHAKE = "The TLS handshake failed: the server's certificate is not accepted"
NOT_MEANT = "A part that must be installed is not meant for this device"

FAILURES = {
    "404": http("404", "The HTTP server answers 404"),
    "404 as nginx comes": http("none.pkg", SHORT),
    "401": http("401", "The HTTP server answers 401"),
    "403": http("403", "The HTTP server answers 403"),
    "500": http("500", "The HTTP server failed itself: it answers 500 "),
    "307": http("307", "The HTTP server redirects with 307 "),
    "redirected to nothing": http("upgrade/latest.pkg", SHORT),
    "cut in the middle": http("flash.pkg", BROKE, faults=("server-cut@20000",)),
    "silent in the middle": http("flash.pkg", BROKE, faults=("server-stall@20000",)),
    "silent from the start": Failure("http://127.0.0.1:{silent}/f", SHORT),
    "http refused": Failure("http://127.0.0.1:{closed}/f", "The HTTP server refuses the conn"),
    "http unknown": Failure("http://no.such.invalid/f", "The HTTP server's host is unknown"),
    "http long": Failure("http://127.0.0.1/" + "f" * 120, "The URL is too long"),
    "https wrong authority": https("flash.pkg", HANDSHAKE, trusted="stranger"),
    "https expired": https("flash.pkg", HANDSHAKE, port="expired"),
    "https without a CA file": https("flash.pkg", "The CA file /usr/etc/ca-cert.pem is not",
                                     trusted=None),
    "https from a port for http": https("flash.pkg", HANDSHAKE, port="http"),
    "https cut": https("flash.pkg", BROKE, faults=("server-cut@20000",)),
    "https silent": Failure("https://127.0.0.1:{silent}/f", "The TLS handshake got no answer"),
    "https refused": https("f", "The HTTPS server refuses the connection", port="closed"),
    "https unknown": Failure("https://no.such.invalid/f", "The HTTPS server's host is unknown"),
    "no scheme": Failure("gopher://127.0.0.1/f", "The URL cannot be used"),
    "ftp password": ftp("me:wrong@", "flash.pkg", "The FTP server refuses the login, in its words",
                        network="stopped"),
    "ftp missing": ftp("", "none.pkg", "The FTP server does not give out the file",
                       network="stopped"),
    "ftp refused": Failure("ftp://127.0.0.1:{closed}/f", "The FTP server refuses the connection"),
    "ftp unknown": Failure("ftp://u:p@no.such.invalid/f", "The FTP server's host is unknown"),
    "ftp cut": ftp("", "flash.pkg", BROKE, faults=("server-cut@20000",)),
    "ftp silent": Failure("ftp://127.0.0.1:{silent}/f", "The FTP server sent no reply in time"),
    "ftps": Failure("ftps://127.0.0.1/f", 'The URL begins with "ftp" and not with ftp://'),
    "tftp missing": Failure("tftp://127.0.0.1/none.pkg", "The TFTP server does not have the file"),
    "tftp silent": Failure("tftp://127.0.0.1/flash.pkg", "The TFTP server does not answer",
                           faults=("server-stall@2000",)),
    "tftp unknown": Failure("tftp://no.such.invalid/f", "The TFTP server's host is unknown"),
    "tftp no path": Failure("tftp:", "The TFTP URL has no"),
    "empty": refused(b"", "The download brought no package header"),
    "an error page": refused(b"<html>" * 99, "What was downloaded is no package: it begins with 3c"),
    "version": refused(seal(b"", version=2), "The package has format version 2"),
    "damaged": refused(DAMAGED, "The package's checksum is wrong"),
    "cut on the server": refused(PACKAGE[:-9], "The download has more or less bytes"),
    "no key": refused(make_package([], key=b"k"), "The package is enciphered, and the device has"),
    "another key": refused(make_package([], key=b"k"), "The package's checksum is wrong",
                           configuration={"VENID": "l"}),
    "in clear": refused(PACKAGE, "The package's encryption does not suit the device",
                        configuration={"VENDOR_KEY": "k"}),
    "table": refused(seal(b"\0\x13"), "An entry of the package's part table has an impossible"),
    "condition": refused(make_package([Part(2, b"x", conditions=FAILS)]), NOT_MEANT),
    "feature": refused(make_package([Part(2, b"x", features={"a": "2"})]), NOT_MEANT,
                       requirements={"kernel": "a=1"}),
    "no partition": refused(make_package([Part(8, b"x")]), "A part's partition cannot be opened"),
    "too large": refused(PACKAGE, "A part is larger than its partition",
                         partitions={2: 40_000, 3: 65536}),
    "data missing": refused(make_package([Part(2, b"x", offset=8192, size=9)]), "Part 0 points at"),
    "script hangs": flash("The log ends while the network was being stopped", "script-hang",
                          network="unknown"),
    "power cut": flash("The log ends while a partition was written", "cut@5"),
    "write error": flash("The upgrade is complete", "write-error@3x4"),
    "flash refuses for ever": flash("The flash refused block 2 (Input/output error)",
                                    "write-error@3x1000000", "watchdog:seconds=30"),
    "differs": flash("Block 3 reads back different", "bit-flip@4:bit=3"),
    "unreadable": flash("Block 2 could not be read back", "read-error@3"),
    "no trailer": flash("The partition's checksum could not be written", "write-error@14"),
    "full partition": flash("The partition is full before block", "watchdog:seconds=30",
                            package=make_package([Part(2, CONTENT, actual_size=9)]),
                            partitions={2: 40_960}),
    "part fills partition": flash("The last block, 15, reads back different",
                                  package=make_package([Part(2, b"k" * 65536)])),
    "never opens": flash("The partition /dev/fla2 cannot be opened",
                         "open-error@2x9:partition=2"),
    "type 0": flash("The package has a part of type 0",
                    package=make_package([Part(3, b"k"), Part(0, b"i")]),
                    partitions={0: 65536, 3: 65536}),
}

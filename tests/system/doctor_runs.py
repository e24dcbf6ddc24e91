# SPDX-License-Identifier: GPL-2.0-or-later
"""Runs that fail for real, each in its own way: the table that makes the logs for fwdoctor.

    @dataclass Failure
    url      may hold the names of ports: {http} {https} {ftp} {closed}
    cause    how the cause begins that fwdoctor has to name first
    network  what it has to say of the device's network; None: of a run that is flawless
    package  served over TFTP in place of an URL
    faults, device, trusted   of the simulated device; the CA file: authority, stranger or none
"""

import dataclasses
import re

from nginx import Nginx
from package import Part, make_package

CONTENT = bytes(range(251)) * 200
PACKAGE = make_package([Part(2, CONTENT), Part(3, CONTENT[:30_000])])

# What nginx says to these paths. The filler makes the answer one that the program reads.
SITE = """
    location = /404 {{ error_page 404 @404; return 404; }}
    location @404 {{ return 404 "{filler}"; }}
"""

class Server(Nginx):
    def template(self):
        site = SITE.format(filler="x" * 1100)
        return re.sub(r"\n +root [^;]*;", lambda match: match.group() + site, super().template(),
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


def https(path, cause, **more):
    return Failure("https://127.0.0.1:{https}/" + path, cause, **more)


def ftp(login, path, cause, **more):
    return Failure("ftp://" + login + "127.0.0.1:{ftp}/" + path, cause, **more)


def refused(package, cause, **device):
    return Failure(None, cause, "stopped", package, device=device)


def flash(cause, *faults, network="stopped", package=PACKAGE, **device):
    return Failure(None, cause, network, package, faults, device)


SHORT = "The HTTP server's answer has less than 1024 bytes"
BROKE = "The download broke off in the middle"

FAILURES = {
    "404": http("404", "The HTTP server answers 404"),
    "404 as nginx comes": http("none.pkg", SHORT),
    "cut in the middle": http("flash.pkg", BROKE, faults=("server-cut@20000",)),
    "silent in the middle": http("flash.pkg", BROKE, faults=("server-stall@20000",)),
    "http refused": Failure("http://127.0.0.1:{closed}/f", "The HTTP server refuses the conn"),
    "http unknown": Failure("http://no.such.invalid/f", "The HTTP server's host is unknown"),
    "https wrong authority": https("flash.pkg", "The TLS handshake failed: the server's certificate",
                                   trusted="stranger"),
    "https without a CA file": https("flash.pkg", "The CA file /usr/etc/ca-cert.pem is not",
                                     trusted=None),
    "no scheme": Failure("gopher://127.0.0.1/f", "The URL cannot be used"),
    "ftp password": ftp("me:wrong@", "flash.pkg", "The FTP server refuses the login, in its words",
                        network="stopped"),
    "ftp missing": ftp("", "none.pkg", "The FTP server does not give out the file",
                       network="stopped"),
    "tftp missing": Failure("tftp://127.0.0.1/none.pkg", "The TFTP server does not have the file"),
    "tftp silent": Failure("tftp://127.0.0.1/flash.pkg", "The TFTP server does not answer",
                           faults=("server-stall@2000",)),
    "empty": refused(b"", "The download brought no package header"),
    "an error page": refused(b"<html>" * 99, "What was downloaded is no package: it begins with 3c"),
    "damaged": refused(PACKAGE[:-1] + b"?", "The package's checksum is wrong"),
    "cut on the server": refused(PACKAGE[:-9], "The download has more or less bytes"),
    "no key": refused(make_package([], key=b"k"), "The package is enciphered, and the device has"),
    "another key": refused(make_package([], key=b"k"), "The package's checksum is wrong",
                           configuration={"VENID": "l"}),
    "in clear": refused(PACKAGE, "The package's encryption does not suit the device",
                        configuration={"VENDOR_KEY": "k"}),
    "condition": refused(make_package([Part(2, b"x", conditions=b"\0none\0x\0")]),
                         "A part that must be installed is not meant for this device"),
    "no partition": refused(make_package([Part(8, b"x")]), "A part's partition cannot be opened"),
    "too large": refused(PACKAGE, "A part is larger than its partition",
                         partitions={2: 40_000, 3: 65536}),
    "script hangs": flash("The log ends while the network was being stopped", "script-hang",
                          network="unknown"),
    "power cut": flash("The log ends while a partition was written", "cut@5"),
    "write error": flash("The upgrade is complete", "write-error@3x4"),
    "flash refuses for ever": flash("The flash refused block 2 (Input/output error)",
                                    "write-error@3x1000000", "watchdog:seconds=30"),
    "differs": flash("Block 3 reads back different", "bit-flip@4:bit=3"),
    "unreadable": flash("Block 2 could not be read back", "read-error@3"),
    "no trailer": flash("The partition's checksum could not be written", "write-error@14"),
    "part fills partition": flash("The last block, 15, reads back different",
                                  package=make_package([Part(2, b"k" * 65536)])),
    "never opens": flash("The partition /dev/fla2 cannot be opened",
                         "open-error@2x9:partition=2"),
}

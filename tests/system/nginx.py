# SPDX-License-Identifier: GPL-2.0-or-later
"""nginx with the configuration of docs/package-server.md on free ports of the loopback, as an ordinary
user; its files stay in `folder`.

    with Nginx(folder, {"a.pkg": bytes}) as server:
        server.http, server.https     ports, both on 127.0.0.1 and 127.0.0.2
        server.authority              the CA file
        server.stranger               the CA file of somebody else
"""

import os
import pathlib
import re
import signal
import socket
import subprocess
import sys

ROOT = pathlib.Path(__file__).resolve().parents[2]
KEY = "-newkey rsa:2048 -nodes".split()
ELLIPTIC = "-newkey ec -pkeyopt ec_paramgen_curve:prime256v1 -nodes".split()


def free_ports(count):
    """Ports that nobody listens on, taken together so that they differ."""
    sockets = [socket.create_server(("127.0.0.1", 0)) for _ in range(count)]
    ports = [sock.getsockname()[1] for sock in sockets]
    for sock in sockets:
        sock.close()
    return ports


class Nginx:
    def __init__(self, folder, files):
        self.folder = pathlib.Path(folder)
        served = self.folder / "served"
        for name, content in files.items():
            (served / name).parent.mkdir(parents=True, exist_ok=True)
            (served / name).write_bytes(content)
        self.authority = self.make_authority("authority")
        self.stranger = self.make_authority("stranger")
        for name, key in (("packages", KEY), ("elliptic", ELLIPTIC)):
            self.openssl("req", *key, "-subj", "/CN=packages.example", "-keyout",
                         f"{name}.key", "-out", f"{name}.csr")
            self.openssl("x509", "-req", "-in", f"{name}.csr", "-CA", "authority.pem", "-CAkey",
                         "authority.key", "-CAcreateserial", "-days", "2", "-out", f"{name}.pem")
        self.http, self.https = free_ports(2)
        self.process = None

    def openssl(self, *arguments):
        subprocess.run(["openssl", *arguments], cwd=self.folder, check=True, capture_output=True)

    def make_authority(self, name):
        self.openssl("req", "-x509", *KEY, "-days", "2", "-subj", f"/CN={name}", "-keyout",
                     f"{name}.key", "-out", f"{name}.pem")
        return self.folder / f"{name}.pem"

    def template(self):
        """The configuration, with the ports and folders of this server."""
        page = (ROOT / "docs/package-server.md").read_text()
        text = re.search(r"```nginx\n(.*?)```", page, re.S).group(1)
        changes = {
            "listen 80;": "".join(f"listen 127.0.0.{n}:{self.http};" for n in (1, 2)),
            "listen 443 ssl;": "".join(f"listen 127.0.0.{n}:{self.https} ssl;" for n in (1, 2)),
            "/etc/nginx/": f"{self.folder}/",
            "/srv/packages": f"{self.folder}/served",
            "http://packages.example/": f"http://127.0.0.2:{self.http}/",
        }
        for old, new in changes.items():
            assert old in text, old
            text = text.replace(old, new)
        return text

    def configuration(self):
        text = self.template()
        paths = "".join(f"{kind}_temp_path {self.folder}/{kind};\n"
                        for kind in ("client_body", "proxy", "fastcgi", "uwsgi", "scgi"))
        text = text.replace("http {\n", "http {\naccess_log off;\n" + paths)
        user = "user root root;" if os.getuid() == 0 else ""  # no other in a user namespace
        return (f"{user} daemon off; master_process off; pid {self.folder}/pid;"
                f"error_log {self.folder}/error.log;\n{text}")

    def __enter__(self):
        configuration = self.folder / "nginx.conf"
        configuration.write_text(self.configuration())
        self.process = subprocess.Popen(
            [ROOT / "scripts/server", "nginx", "-c", configuration, "-p", self.folder, "-e", "stderr"],
            stdin=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
        while f":{self.https} " not in subprocess.check_output(["ss", "-Hltn"], text=True):
            assert self.process.poll() is None
        return self

    def __exit__(self, *_):
        self.process.terminate()
        self.process.wait()


def main():
    """nginx.py FOLDER: serves FOLDER/served, says both ports in one line, and runs until it is
    terminated. The authority is FOLDER/authority.pem."""
    signal.signal(signal.SIGTERM, lambda *_: sys.exit())
    with Nginx(sys.argv[1], {}) as server:
        print(server.http, server.https, flush=True)
        server.process.wait()


if __name__ == "__main__":
    main()

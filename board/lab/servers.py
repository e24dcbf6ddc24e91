# SPDX-License-Identifier: GPL-2.0-or-later
"""The servers, and the file server that takes the board's results.

All listen on addresses of a network namespace of their own, so that the ports that clients expect
are free, and nothing outside can be reached.
"""
import os
import socket
import subprocess
import sys
import tempfile
import time
from pathlib import Path

sys.path.append(str(Path(__file__).resolve().parents[2] / "tests/system"))
from servers import SERVER, atftpd, vsftpd
ADDRESS = "192.0.2.1"  # the servers
NOBODY = 65534
LAB_ADDRESS = "192.0.2.2"  # the results; the board reaches it over another interface

NGINX = """
daemon off; master_process off; user root root; pid {work}/nginx.pid; error_log {work}/nginx.log;
events {{}}
http {{
    access_log {work}/nginx.access;
    client_body_temp_path {work}/nginx.1; proxy_temp_path {work}/nginx.2;
    fastcgi_temp_path {work}/nginx.3; uwsgi_temp_path {work}/nginx.4; scgi_temp_path {work}/nginx.5;
    server {{
        listen {address}:80;
        listen {address}:443 ssl;
        ssl_certificate {tls}/server.pem;
        ssl_certificate_key {tls}/server.key;
        root {files};
    }}
}}
"""

VSFTPD = """no_anon_password=YES
seccomp_sandbox=NO
xferlog_enable=YES
vsftpd_log_file={work}/vsftpd.log
"""


def replace_file(path, text):
    """Lays `text` over the file `path` of this machine, for this namespace alone."""
    with tempfile.NamedTemporaryFile("w") as file:
        file.write(text)
        file.flush()
        os.chmod(file.name, 0o644)
        subprocess.run(["mount", "--bind", file.name, path], check=True)


def in_namespace():
    return "BOARD_NAMESPACE" in os.environ


def enter_namespace():
    """Starts this program again in user, network and mount namespaces of its own."""
    if in_namespace():
        # diod turns away peers without a name.
        replace_file("/etc/hosts", f"127.0.0.1 localhost\n{ADDRESS} servers\n{LAB_ADDRESS} lab\n")
        subprocess.run(["ip", "link", "set", "lo", "up"], check=True)
        for address in (ADDRESS, LAB_ADDRESS):
            subprocess.run(["ip", "address", "add", f"{address}/32", "dev", "lo"], check=True)
        return
    os.environ["BOARD_NAMESPACE"] = "yes"
    command = ["unshare", "--user", "--map-root-user", "--net", "--mount", "--pid", "--fork"]
    command.append("--kill-child")
    os.execvp("unshare", command + [sys.executable] + sys.argv)


class Servers:
    """Serves `files`, and `lab` to the board; logs are in `work`. A context manager."""

    def __init__(self, work, files, lab, tls):
        values = {"work": work, "address": ADDRESS, "tls": tls, "files": files}
        nginx = work / "nginx.conf"
        nginx.write_text(NGINX.format(**values))
        self.commands = {
            "nginx": [SERVER, "nginx", "-c", nginx, "-p", f"{work}/", "-e", "stderr"],
            "ftp": vsftpd(files, 21, VSFTPD.format(**values), ADDRESS),
            "tftp": atftpd(files, 69, ADDRESS),
            # Not as root: then it does not change its user, which it may not here. It wants one that
            # every machine knows.
            "9p": ["unshare", "--user", f"--map-user={NOBODY}", f"--map-group={NOBODY}"]
            + [SERVER, "diod", "-f", "-n", "-L", "stderr", "-l", f"{LAB_ADDRESS}:5640", "-e", lab],
        }
        self.work = work
        self.running = {}

    def __enter__(self):
        for name, command in self.commands.items():
            with open(self.work / f"{name}.log", "wb") as log:
                streams = {"stdin": subprocess.DEVNULL, "stdout": log, "stderr": log}
                self.running[name] = subprocess.Popen(command, **streams)
        for address, port in ((ADDRESS, 80), (ADDRESS, 443), (ADDRESS, 21), (LAB_ADDRESS, 5640)):
            self.wait_for(address, port)
        return self

    def wait_for(self, address, port):
        for _ in range(100):
            with socket.socket() as probe:
                if probe.connect_ex((address, port)) == 0:
                    return
            time.sleep(0.05)
        raise RuntimeError(f"nothing listens on {address}:{port}; see {self.work}/*.log")

    def __exit__(self, *_):
        for process in self.running.values():
            process.terminate()
            process.wait()

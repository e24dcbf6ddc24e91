# SPDX-License-Identifier: GPL-2.0-or-later
"""The tests' nginx with the configuration that its package brings."""

import pathlib
import re
import sys

ROOT = pathlib.Path(__file__).resolve().parents[1]
sys.path.insert(0, str(ROOT / "tests/system"))
from nginx import Nginx  # noqa: E402  pylint: disable=wrong-import-position


class StockNginx(Nginx):
    def template(self):
        """/etc/nginx/nginx.conf with other files and servers, as an ordinary user can run it."""
        text = pathlib.Path("/etc/nginx/nginx.conf").read_text()
        text = re.sub(r"^\s*(user|pid|error_log|access_log|include /etc/nginx/(?!mime)\S*) ?.*;", "",
                      text, flags=re.M)
        addresses = f"listen 127.0.0.1:{self.http}; listen 127.0.0.1:{self.https} ssl;"
        servers = (f"server {{ {addresses} root {self.folder}/served;"
                   f"ssl_certificate {self.folder}/packages.pem;"
                   f"ssl_certificate_key {self.folder}/packages.key; }}\n")
        end = text.index("}", text.index("http {"))
        return text[:end] + servers + text[end:]

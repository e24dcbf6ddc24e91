# SPDX-License-Identifier: GPL-2.0-or-later
"""The commands of real servers that serve `folder` on `port` of `address` as the user who runs
them: the users that their packages would make are not there where they are only unpacked.
"""

import grp
import os
import pathlib
import pwd

SERVER = pathlib.Path(__file__).resolve().parents[2] / "scripts/server"

VSFTPD = """listen=YES
listen_address={address}
listen_port={port}
background=NO
run_as_launching_user=YES
ftp_username={user}
anonymous_enable=YES
anon_root={folder}
xferlog_enable=NO
pasv_address=192.0.2.1
"""


def user():
    return pwd.getpwuid(os.getuid()).pw_name


def vsftpd(folder, port, more="", address="127.0.0.1"):
    """`more`: further lines of its configuration."""
    configuration = folder.parent / "vsftpd.conf"
    configuration.write_text(VSFTPD.format(port=port, folder=folder, user=user(),
                                           address=address) + more)
    return [SERVER, "vsftpd", configuration]


def atftpd(folder, port, address="127.0.0.1"):
    return [SERVER, "atftpd", "--daemon", "--no-fork",
            "--user", f"{user()}.{grp.getgrgid(os.getgid()).gr_name}",
            "--bind-address", address, "--port", str(port), "--logfile", "-", folder]

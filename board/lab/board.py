# SPDX-License-Identifier: GPL-2.0-or-later
"""The emulated board: an AST2600 evaluation board with a flash chip whose content is a file."""
import contextlib
import json
import re
import subprocess
import textwrap
import time
from types import SimpleNamespace

from .flash import TOP

# A 16 MiB chip with erase blocks of 64 KiB, so that 16 of the upgrade's blocks share one.
CHIP = "s25fl129p1"
BUILT = TOP / "build/board"
KERNEL_PARAMETERS = "console=ttyS4,115200 quiet panic=-1 sysrq_always_enabled"
RUN_SECONDS = 400  # far more than a run takes, also on a busy machine


class Run:
    """One start of the board: from power-on to a reset, or to `cut`.

    `task` are BOARD_* values of the board's init. The results appear in the folder `lab`. A
    board that takes longer than RUN_SECONDS is stalled: it says what its tasks wait for, on the
    console, and is cut.
    """

    def __init__(self, lab, chip, console, **task):
        for file in lab.iterdir():
            file.unlink()
        self.lab, self.console = lab, console
        values = {"clock": int(time.time()), "flash": "nor", "program": "upgrade", **task}
        words = " ".join(f"BOARD_{name.upper()}={value}" for name, value in values.items())
        self.started = time.monotonic()
        with open(console, "ab") as log:
            self.process = subprocess.Popen(
                ["qemu-system-arm", "-M", f"ast2600-evb,spi-model={CHIP}", "-m", "256M"]
                + ["-display", "none", "-serial", "mon:stdio", "-no-reboot"]
                + ["-kernel", BUILT / "kernel", "-dtb", BUILT / "board.dtb"]
                + ["-initrd", BUILT / "initramfs"]
                + ["-append", f"{KERNEL_PARAMETERS} LAB={lab} {words}"]
                # Drive 0 would be the boot chip's.
                + ["-drive", f"if=mtd,index=1,format=raw,file={chip}"]
                + ["-nic", "user,net=10.0.2.0/24", "-nic", "user,net=10.0.3.0/24"],
                stdin=subprocess.PIPE,
                stdout=log,
                stderr=log,
            )

    def text(self, name):
        file = self.lab / name
        return file.read_text(errors="replace") if file.exists() else ""

    def has_reported(self, stage):
        return f"UPGRD_STAGE={stage}" in self.text("info")

    def datagrams(self, receiver):
        """What upgrade-follow recorded: its first line and its last are its own."""
        records = [json.loads(line) for line in self.text(receiver).splitlines()
                   if line.endswith("}")]  # all of it, whenever the power was cut
        return [record["text"] for record in records if "text" in record]

    def running(self):
        """False once the board was reset or cut; cuts a board that takes too long."""
        if self.process.poll() is None and time.monotonic() > self.started + RUN_SECONDS:
            print(f"  the board did not finish in {RUN_SECONDS} s; what it waits for:", flush=True)
            self.ask_what_it_waits_for()
            self.cut()
            print(textwrap.indent("\n".join(self.console_lines()[-100:]), "         | "))
        return self.process.poll() is None

    def ask_what_it_waits_for(self):
        """With the kernel's keys for that, behind a break of the serial line (Ctrl-A B)."""
        for key in (b"8", b"t", b"l", b"w"):  # everything is printed, then tasks and processors
            with contextlib.suppress(BrokenPipeError):  # it may end on its own just now
                self.process.stdin.write(b"\x01b" + key)
                self.process.stdin.flush()
            time.sleep(3)

    def wait_for(self, holds):
        """Waits until `holds()`. False when the board stopped before."""
        while not holds():
            if not self.running():
                return False
            time.sleep(0.005)
        return True

    def console_lines(self):
        return self.console.read_text(errors="replace").splitlines()

    def cut(self):
        """Cuts the power."""
        self.process.kill()
        self.process.wait()

    def finish(self):
        """Waits for the board's reset. Gives what is in the results."""
        while self.running():
            time.sleep(0.05)
        values = dict(re.findall(r"(\w+) ([\d.]+)", self.text("result")))
        kicks = [line.split() for line in self.text("kicks").splitlines()]
        return SimpleNamespace(
            finished=(self.lab / "finished").exists(),
            seconds=time.monotonic() - self.started,
            returncode=self.process.returncode,  # the emulator's
            exit=int(values.get("exit", -1)),
            program_seconds=float(values.get("seconds", 0)),
            peak_kib=int(values.get("fourfold_kib", 0)) // 4,
            kicks=[(float(when), int(line), int(level), what) for when, line, level, what in kicks],
            info=self.datagrams("info"),
            syscfg=self.datagrams("syscfg"),
            log=self.text("log"),
            network=self.text("network"),
            raw={int(file.suffix[1:]): file.read_bytes() for file in self.lab.glob("raw.*")},
        )

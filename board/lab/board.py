# SPDX-License-Identifier: GPL-2.0-or-later
"""The emulated board: an AST2600 evaluation board with a flash chip whose content is a file."""
import subprocess
import time
from types import SimpleNamespace

from .flash import TOP

# A 16 MiB chip with erase blocks of 64 KiB, so that 16 of the upgrade's blocks share one.
CHIP = "s25fl129p1"
BUILT = TOP / "build/board"
RUN_SECONDS = 400  # far more than a run takes, also on a busy machine


class Run:
    """One start of the board: from power-on to a reset, or to `cut`.

    `task` are the BOARD_* values of the board's init. The results appear in the folder `lab`.
    """

    def __init__(self, lab, chip, console, **task):
        for file in lab.iterdir():
            file.unlink()
        self.lab = lab
        values = {"clock": int(time.time()), "flash": "nor", "program": "upgrade", **task}
        self.limit = time.monotonic() + RUN_SECONDS
        words = " ".join(f"BOARD_{name.upper()}={value}" for name, value in values.items())
        self.started = time.monotonic()
        with open(console, "ab") as log:
            self.process = subprocess.Popen(
                ["qemu-system-arm", "-M", f"ast2600-evb,spi-model={CHIP}", "-m", "256M"]
                + ["-display", "none", "-monitor", "none", "-serial", "stdio", "-no-reboot"]
                + ["-kernel", BUILT / "kernel", "-dtb", BUILT / "board.dtb"]
                + ["-initrd", BUILT / "initramfs"]
                + ["-append", f"console=ttyS4,115200 quiet panic=-1 LAB={lab} {words}"]
                # Drive 0 would be the boot chip's.
                + ["-drive", f"if=mtd,index=1,format=raw,file={chip}"]
                + ["-nic", "user,net=10.0.2.0/24", "-nic", "user,net=10.0.3.0/24"],
                stdin=subprocess.DEVNULL,
                stdout=log,
                stderr=log,
            )

    def text(self, name):
        file = self.lab / name
        return file.read_text(errors="replace") if file.exists() else ""

    def wait_for(self, stage):
        """Waits for a status datagram with `stage`. False when the board stopped before."""
        while f"UPGRD_STAGE={stage}" not in self.text("status"):
            if self.process.poll() is not None:
                return False
            self.check_limit()
            time.sleep(0.02)
        return True

    def check_limit(self):
        if time.monotonic() > self.limit:
            self.cut()
            raise RuntimeError("the board did not finish in time")

    def cut(self):
        """Cuts the power."""
        self.process.kill()
        self.process.wait()

    def finish(self):
        """Waits for the board's reset. Gives what is in the results."""
        while self.process.poll() is None:
            self.check_limit()
            time.sleep(0.05)
        values = dict(line.split() for line in self.text("result").splitlines())
        kicks = [line.split() for line in self.text("kicks").splitlines()]
        status = [line.split(" ", 2) for line in self.text("status").splitlines()]
        return SimpleNamespace(
            finished=(self.lab / "finished").exists(),
            seconds=time.monotonic() - self.started,
            returncode=self.process.returncode,  # the emulator's
            exit=int(values.get("exit", -1)),
            program_seconds=float(values.get("seconds", 0)),
            peak_kib=int(values.get("peak_kib", 0)),
            kicks=[(float(when), int(line), int(level), what) for when, line, level, what in kicks],
            status=[(float(when), who, text) for when, who, text in status],
            log=self.text("log"),
            network=self.text("network"),
        )

# SPDX-License-Identifier: GPL-2.0-or-later
"""What the board has to go through, and what must be seen of it."""
import random
import textwrap
import time

from .board import Run
from .flash import CHIP_SIZE, PARTS, Package, create_chip, layout
from .servers import ADDRESS

BLOCK = 4096
WATCHDOG_SECONDS = 20
SIZES = (300_000, 200_001, 65_536, 5_000)
LARGEST_SIZE = 4_091_904  # with its package's first block the most that the device takes
SMALL_SIZES = (154_000, 100_001, 65_536, 5_000)


def url_of(scheme, name="flash.pkg"):
    return f"{scheme}://{ADDRESS}/{name}"


def block_count(package):
    return sum(-(-len(data) // BLOCK) for data in package.data.values())


class Laboratory:
    """Runs the board on one chip in the folder `work`, and counts checks. Servers are running."""

    def __init__(self, work, files, lab, seed):
        self.work, self.lab, self.seed = work, lab, seed
        self.chip = work / "chip"
        self.passed = self.failed = 0
        self.package = Package(files / "flash.pkg", SIZES, seed)
        self.small = Package(files / "small.pkg", SMALL_SIZES, seed + 1)
        parts = [("kernel", 2, False, "ram:>=128")]  # more than the board has
        Package(files / "largest.pkg", [LARGEST_SIZE], seed + 2, parts)

    def check(self, holds, text):
        self.passed += bool(holds)
        self.failed += not holds
        print(f"  {'ok    ' if holds else 'FAILED'} {text}", flush=True)

    def start(self, **task):
        return Run(self.lab, self.chip, self.work / "console", **task)

    def new_chip(self):
        """A chip in use; gives what it holds."""
        create_chip(self.chip, self.seed)
        return self.chip.read_bytes()

    def check_run(self, run, package, downloads_silently):
        """What the device saw of a successful run."""
        self.check(run.finished and run.exit == 0, f"exit status 0 (was {run.exit})")
        if run.exit != 0:
            print(textwrap.indent(run.log, "         | "))
        stages = [text.split("=")[1] for text in run.info if "STAGE" in text]
        expected = ["DOWNLOADING", "WRITING", "VERIFYING", "DONE"][1 if downloads_silently else 0 :]
        seen_by_both = stages == expected and run.info == run.syscfg
        self.check(seen_by_both, f"both receivers saw {' '.join(stages)}")
        levels = [level for _, _, level, _ in run.kicks]
        fed = all(line == 17 and what == "fed" for _, line, _, what in run.kicks)
        least = 2 * block_count(package)
        right = len(levels) == least if downloads_silently else len(levels) > least
        alternate = levels == [index % 2 for index in range(len(levels))]
        self.check(fed and right and alternate, f"{len(levels)} kicks, levels alternating from 0")
        self.check(run.network and ",UP" not in run.network, "the network interface is down")
        times = [when for when, _, _, _ in run.kicks]
        gap = max((later - earlier for earlier, later in zip(times, times[1:])), default=0)
        print(
            f"         board {run.seconds:.1f} s, program {run.program_seconds:.1f} s, peak memory"
            f" {run.peak_kib} KiB, longest time between kicks {gap:.2f} s"
        )

    def check_chip(self, expected, text):
        self.check(self.chip.read_bytes() == expected, text)

    def upgrade(self, url, program="upgrade"):
        """An upgrade of a chip in use; gives what the written partitions hold then, by number."""
        print(f"{program} {url}")
        before = self.new_chip()
        package = self.upgrade_chip(url, program, before)
        slices = {n: before[at : at + size] for n, (at, size) in layout().items()}
        return {n: package.partition(n, slices[n]) for n in package.data}

    def upgrade_chip(self, url, program, before):
        """An upgrade of what is in the chip, where it is to change what `before` holds."""
        package = self.small if url.endswith("small.pkg") else self.package
        run = self.start(url=url, program=program, watchdog=WATCHDOG_SECONDS).finish()
        self.check_run(run, package, url.startswith("tftp:"))
        self.check_chip(package.chip(before), f"all {CHIP_SIZE} bytes of the chip are right")
        return package

    def check_reboot(self, run, written):
        self.check(run.raw == written, "the board reads what was written before it started")

    def memory(self, scheme, program):
        """The largest package, which asks for another board: refused once all memory is in use."""
        before = self.new_chip()
        url = url_of(scheme, "largest.pkg")
        run = self.start(url=url, program=program).finish()
        refused = run.exit == 1 and "UPGRD_ERROR=INVALID PACKAGE" in run.log
        print(f"{program} {url}: peak memory {run.peak_kib} KiB")
        self.check(refused and self.chip.read_bytes() == before, "refused, the chip is untouched")

    def watchdog(self, written):
        """On the chip that an upgrade left with `written`, which is read first."""
        print("the board after a reboot, and a network-stop script that never ends")
        chip = self.chip.read_bytes()
        url = url_of("tftp", "small.pkg")
        run = self.start(url=url, inspect=1, watchdog=WATCHDOG_SECONDS // 2, stop="network.hang").finish()
        self.check_reboot(run, written)
        self.check("tftp download packet length" in run.log, "the package was downloaded")
        panic = "panic" in (self.work / "console").read_text(errors="replace")
        reset = not run.finished and run.returncode == 0 and not panic
        self.check(reset, "the watchdog reset the board")
        self.check_chip(chip, "the chip is untouched")

    def nand(self):
        print("a simulated NAND chip")
        self.new_chip()
        run = self.start(url=url_of("tftp"), flash="nand").finish()
        self.check_run(run, self.package, True)
        erased = b"\xff" * (8 << 20)
        expected = {n: self.package.partition(n, erased) for n in self.package.data}
        self.check(run.raw == expected, "the partitions, read raw, are right")

    def nand_bad_block(self, hold, differs):
        """The second erase block (128 KiB) of partition 3 is bad; `hold` keeps its node open."""
        print(f"a NAND chip with a bad block, {'held open' if hold else 'not held open'} by others")
        self.new_chip()
        task = {"hold": 3} if hold else {}
        run = self.start(url=url_of("tftp"), flash="nand", nand="badblocks=193", **task).finish()
        self.check(run.exit == 0 and "STAGE=DONE" in run.log, "the run is successful all the same")
        seen = "block #32 differ" in run.log
        self.check(seen == differs, f"the read-back {'sees' if differs else 'does not see'} it")
        erased = b"\xff" * (8 << 20)
        raw = run.raw.get(3, b"")
        expected = self.package.partition(3, erased)
        starts = range(0, len(raw), BLOCK)
        bad = [at for at in starts if raw[at : at + BLOCK] != expected[at : at + BLOCK]]
        last = len(self.package.data[3]) // BLOCK
        lost = [block * BLOCK for block in range(32, last + 1)] + [len(raw) - BLOCK]
        self.check(bad == lost, "raw, everything from the bad block on is missing, the trailer too")

    def check_cut_chip(self, chip, before, after, written):
        """What a power cut may leave; `written` is the number of blocks that had been reported."""
        foreign = [
            index
            for index, (now, old, new) in enumerate(zip(chip, before, after))
            if now not in (old, new, 0xFF)
        ]
        self.check(not foreign, "every byte of the chip is the old one, the new one or erased")
        whole, arrived = True, 0
        for name, number, optional, _ in PARTS:
            if optional:
                continue
            offset, size = layout()[number]
            end = offset + size
            length = len(self.small.data[number])
            for at in range(offset, offset + length, BLOCK):
                stop = min(at + BLOCK, offset + length)
                arrived += chip[at:stop] == after[at:stop]
            if chip[end - 16 : end] == after[end - 16 : end]:
                whole = whole and chip[offset:end] == after[offset:end]
        self.check(whole, "a partition with the new trailer is new as a whole")
        print(f"         {written} blocks were reported written, {arrived} are on the chip")

    def cut(self, number, scheme="http"):
        """A power cut at a random moment of writing, and an upgrade over `scheme` after it."""
        moment = random.Random(f"{self.seed} {number}")
        blocks = block_count(self.small)
        kick, pause = moment.randrange(blocks), moment.uniform(0, 0.06)
        print(f"power cut {number}: {pause * 1000:.0f} ms after block {kick} of {blocks}")
        before = self.new_chip()
        after = self.small.chip(before)
        run = self.start(url=url_of("tftp", "small.pkg"))
        reached = run.wait_for(lambda: run.has_reported("WRITING"))
        reached = reached and run.wait_for(lambda: run.text("kicks").count("\n") >= kick)
        time.sleep(pause)
        self.check(reached and run.process.poll() is None, "the power was cut while writing")
        run.cut()
        self.check_cut_chip(self.chip.read_bytes(), before, after, run.text("kicks").count("\n"))
        self.upgrade_chip(url_of(scheme, "small.pkg"), "upgrade-static", before)

    def cut_while_verifying(self):
        print("power cut at the first datagram of the read-back")
        before = self.new_chip()
        run = self.start(url=url_of("tftp", "small.pkg"))
        reached = run.wait_for(lambda: run.has_reported("VERIFYING"))
        run.cut()
        self.check(reached, "the read-back was reached")
        self.check_chip(self.small.chip(before), f"all {CHIP_SIZE} bytes of the chip are right")

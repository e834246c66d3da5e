#!/usr/bin/env python3
"""Cuts the power of the emulated board: stops it, copies an image as a cut would leave it, resumes.

usage: power_cuts.py flash DIRECTORY CUTS
       power_cuts.py log DIRECTORY CUTS MODE
DIRECTORY holds flash.img, card.img, console and the emulator's second monitor, control.

flash: the board stops itself in the middle of a write (PowerCut.cpp), CUTS times with one copy of
the variables and CUTS times with two. What each cut leaves of the partition goes to the files
single-N and redundant-N in DIRECTORY/cuts.

log: the board logs to /board/log-MODE of its card and says on its console which lines have been
written, and which of them must not be lost (LogCut.cpp). At random moments the card is copied. Its
file system is repaired as the next boot would do it, and the log in it is compared with the console.
"""
import json
import random
import re
import socket
import statistics
import subprocess
import sys
import time
from pathlib import Path

PARTITION = slice(0xC0000, 0xC2000)  # of the variables, in board.dts
PATIENCE = 300  # seconds; bounds a hang


class Emulator:
    def __init__(self, path):
        deadline = time.monotonic() + PATIENCE
        self.socket = socket.socket(socket.AF_UNIX)
        self.socket.settimeout(PATIENCE)
        while not self.connects_to(path) and time.monotonic() < deadline:
            time.sleep(0.1)
        self.stream = self.socket.makefile("rw")
        self.stream.readline()  # its greeting
        self.tell("qmp_capabilities")

    def connects_to(self, path):
        """@return false while the emulator has not made the socket or does not listen yet."""
        try:
            self.socket.connect(str(path))
        except (FileNotFoundError, ConnectionRefusedError):
            return False
        return True

    def tell(self, command):
        self.stream.write(json.dumps({"execute": command}) + "\n")
        self.stream.flush()
        self.wait_for(lambda message: "return" in message)

    def wait_for(self, wanted):
        while not wanted(json.loads(self.stream.readline())):
            pass


# ------------------------------------------------------------------------------------------ flash


def cut_flash(directory, cuts):
    emulator = Emulator(directory / "control")
    (directory / "cuts").mkdir()
    for copies in ("single", "redundant"):
        for number in range(1, cuts + 1):
            emulator.wait_for(lambda message: message.get("event") == "STOP")
            left = (directory / "flash.img").read_bytes()[PARTITION]
            (directory / "cuts" / f"{copies}-{number}").write_bytes(left)
            emulator.tell("cont")


# -------------------------------------------------------------------------------------------- log


def written_lines(console):
    """@return for each line its number, how many lines are safe, and microseconds of a line."""
    found = re.findall(r"^written (\d+), safe (\d+), (\d+) us each\r?$", console.read_text("latin-1"),
                       re.M)
    return [tuple(int(number) for number in line) for line in found]


def cut_card(emulator, directory, mode):
    """@return lines lost, and whether the log ends in NUL bytes.

    Counts the lines that the console has shown before the cut. Lines that were written but not shown
    yet are not counted as lost.
    """
    copy = directory / "cut.img"
    emulator.tell("stop")
    written, safe, _ = written_lines(directory / "console")[-1]
    subprocess.run(["cp", "--sparse=always", directory / "card.img", copy], check=True)
    emulator.tell("cont")
    repair = subprocess.run(["e2fsck", "-fy", copy], stdout=subprocess.PIPE,
                            stderr=subprocess.STDOUT, text=True)
    if repair.returncode >= 4:  # 1 to 3: it has mended everything
        sys.exit(f"power_cuts.py: e2fsck cannot repair the card:\n{repair.stdout}")
    log = subprocess.run(["debugfs", "-R", f"cat /board/log-{mode}", copy], check=True,
                         stdout=subprocess.PIPE, stderr=subprocess.DEVNULL).stdout
    copy.unlink()
    numbers = [int(number) for number in re.findall(rb"\]line (\d+) and some more text\n", log)]
    if numbers != list(range(1, len(numbers) + 1)):
        sys.exit("power_cuts.py: a line in the middle of the log is missing")
    if len(numbers) < safe:
        sys.exit(f"power_cuts.py: {len(numbers)} lines are left of {safe} that had to be safe")
    return max(0, written - len(numbers)), log.endswith(b"\0")


def cut_log(directory, cuts, mode):
    emulator = Emulator(directory / "control")
    console = directory / "console"
    deadline = time.monotonic() + PATIENCE
    while not (console.exists() and len(written_lines(console)) > 100):
        if time.monotonic() > deadline:
            sys.exit("power_cuts.py: the board logs nothing")
        time.sleep(1)
    lost, nul_tails = [], 0
    for number in range(1, cuts + 1):
        time.sleep(random.uniform(3, 9))
        count, nul_tail = cut_card(emulator, directory, mode)
        lost.append(count)
        nul_tails += nul_tail
        print(f"{mode}: power cut {number}: {count} lines lost"
              f"{', a tail of NUL bytes' * nul_tail}", flush=True)
    lines, _, each = written_lines(console)[-1]
    print(f"{mode}: {cuts} cuts, {lines} lines: {statistics.median(lost):g} lines lost (median), "
          f"{max(lost)} (worst), {nul_tails} tails of NUL bytes, {each} us of processor time a line")


if __name__ == "__main__":
    {"flash": cut_flash, "log": cut_log}[sys.argv[1]](Path(sys.argv[2]), int(sys.argv[3]),
                                                      *sys.argv[4:])

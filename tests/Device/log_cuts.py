#!/usr/bin/env python3
"""Finds out which log lines a power cut loses.

usage: log_cuts.py DIRECTORY CUTS
The emulated board logs to /board/log of its card and says on its console which lines have been
written (LogCut.cpp). At moments of chance this program stops the board, copies the image of the card
as a power cut would leave it, and lets the board go on. Then it repairs the copy's file system as
the next boot would, and compares the log in it with the console. DIRECTORY holds card.img, console
and the emulator's second monitor, control.
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


class Emulator:
    def __init__(self, path):
        self.socket = socket.socket(socket.AF_UNIX)
        self.socket.connect(str(path))
        self.stream = self.socket.makefile("rw")
        self.stream.readline()  # its greeting
        self.tell("qmp_capabilities")

    def tell(self, command):
        self.stream.write(json.dumps({"execute": command}) + "\n")
        self.stream.flush()
        while "return" not in json.loads(self.stream.readline()):
            pass  # events


def written_lines(console):
    return re.findall(r"^written (\d+), (\d+) us each\r?$", console.read_text("latin-1"), re.M)


def cut(emulator, directory):
    """@return lines lost, and whether the log ends in NUL bytes."""
    copy = directory / "cut.img"
    emulator.tell("stop")
    written = int(written_lines(directory / "console")[-1][0])
    subprocess.run(["cp", "--sparse=always", directory / "card.img", copy], check=True)
    emulator.tell("cont")
    subprocess.run(["e2fsck", "-fy", copy], stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
    log = subprocess.run(["debugfs", "-R", "cat /board/log", copy], check=True,
                         stdout=subprocess.PIPE, stderr=subprocess.DEVNULL).stdout
    copy.unlink()
    numbers = [int(number) for number in re.findall(rb"\]line (\d+) and some more text\n", log)]
    if numbers != list(range(1, len(numbers) + 1)):
        sys.exit("log_cuts.py: a line in the middle of the log is missing")
    return max(0, written - len(numbers)), log.endswith(b"\0")


def main():
    directory, cuts = Path(sys.argv[1]), int(sys.argv[2])
    console = directory / "console"
    while not (console.exists() and len(written_lines(console)) > 100):
        time.sleep(1)
    emulator = Emulator(directory / "control")
    lost, nul_tails = [], 0
    for number in range(1, cuts + 1):
        time.sleep(random.uniform(3, 9))
        count, nul_tail = cut(emulator, directory)
        lost.append(count)
        nul_tails += nul_tail
        print(f"power cut {number}: {count} lines lost{', a tail of NUL bytes' * nul_tail}",
              flush=True)
    lines, each = written_lines(console)[-1]
    print(f"{cuts} cuts, {lines} lines, 50 a second or less: {statistics.median(lost):g} lines lost "
          f"(median), {max(lost)} (worst), {nul_tails} tails of NUL bytes, {each} us of processor "
          "time a line")


if __name__ == "__main__":
    main()

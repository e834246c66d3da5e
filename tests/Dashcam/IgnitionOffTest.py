#!/usr/bin/env python3
"""Ignition off beside participants that hang."""
import json
import os
import pathlib
import re
import tempfile
import threading
import time
import unittest

from dashcam import (Drive, TooSlow, check_whole, clips, eventually, main, repeated_when_too_slow,
                     scratch)

budgets = 14.0  # seconds; the sum of those in main.cpp
capture_budget = 2.0
summary_budget = 2.0


def stolen():
    """The seconds since the boot in which each processor was taken away from this virtual machine."""
    processors = re.findall(r"^cpu\d.*", pathlib.Path("/proc/stat").read_text(), re.MULTILINE)
    return [int(line.split()[8]) / os.sysconf("SC_CLK_TCK") for line in processors]


class Machine(threading.Thread):
    """Measures how slow the machine is for any program.

    A step is a sleep of 50 ms, 20 ms of work, and a byte on the medium. An idle machine takes less
    than 0.1 s for it. The processor of another program may be away without delaying a step, so the
    time that was stolen from each processor during a step counts as well.
    """
    tolerable = 0.3  # seconds for a step; a slower machine can keep a participant from its budget

    def __init__(self):
        super().__init__()
        self.ended = threading.Event()
        self.longest = 0.0  # seconds
        self.stolen = 0.0  # seconds, the most in one step

    def run(self):
        with tempfile.TemporaryFile() as file:
            begin, stolen_before = time.monotonic(), stolen()
            while not self.ended.wait(0.05):
                work = time.thread_time()
                while time.thread_time() < work + 0.02:
                    pass
                os.write(file.fileno(), b"0")
                os.fdatasync(file.fileno())
                now, stolen_now = time.monotonic(), stolen()
                self.longest = max(self.longest, now - begin)
                self.stolen = max(self.stolen, *(
                    after - before for before, after in zip(stolen_before, stolen_now)))
                begin, stolen_before = now, stolen_now

    def __enter__(self):
        self.start()
        return self

    def __exit__(self, *_):
        self.ended.set()
        self.join()

    def check(self, good, what):
        """Fails unless something is good; with TooSlow if a slow machine may be the cause."""
        if not good and max(self.longest, self.stolen) > self.tolerable:
            raise TooSlow(f"{what}; a step of 0.1 s took {self.longest:.1f} s; "
                          f"{self.stolen:.1f} s of a processor were stolen")
        if not good:
            raise AssertionError(what)


class IgnitionOffTest(unittest.TestCase):
    def length(self, drive):
        return int(re.search(r"Ignition off took (\d+) ms", drive.said())[1]) / 1000

    def check_left_behind(self, drive, machine, *hanging):
        """The participants that hang are left behind, and no others."""
        left = re.findall(r"^(\w+) hangs", drive.said(), re.MULTILINE)
        machine.check(left == list(hanging), f"left behind: {left}")

    @repeated_when_too_slow
    def test_without_a_hang_no_participant_is_left_behind(self):
        folder = scratch(self)
        with Drive(folder) as drive:
            drive.await_pictures()
            with Machine() as machine:
                drive.ignition_off()
        self.check_left_behind(drive, machine)
        self.assertNotIn("hangs", drive.said())
        self.assertLess(self.length(drive), budgets)

    @repeated_when_too_slow
    def test_summary_that_hangs_is_left_behind_within_its_budget_and_named_at_the_next_start(self):
        folder = scratch(self)
        with Drive(folder) as drive:
            drive.await_pictures()
            drive.press_button()
            drive.await_log("event: button")
            os.mkfifo(folder / "drive.json.part")  # opening it waits for a reader
            begin = time.monotonic()
            with Machine() as machine:
                drive.ignition_off()
            self.assertGreaterEqual(time.monotonic() - begin, summary_budget)
        self.check_left_behind(drive, machine, "Summary")
        self.assertIn("Summary hangs and was left behind", drive.said())
        self.assertLess(self.length(drive), budgets)
        check_whole(self, clips(folder)[0])
        self.assertIn("All triggers have been stopped", drive.log().splitlines()[-1])
        with Drive(folder) as drive:
            drive.await_log("Summary took too long")
            drive.await_log("removed drive.json.part")
            drive.await_log("160x120", 2)  # opening the source may take longer than its budget
            with Machine() as machine:
                drive.ignition_off()
        self.check_left_behind(drive, machine)
        self.assertNotIn("hangs", drive.said())

    @repeated_when_too_slow
    def test_clip_that_hangs_is_told_at_the_end_and_in_the_summary(self):
        folder = scratch(self)
        with Drive(folder, settings={"secondsAfter": 8}) as drive:  # the second event prolongs
            drive.await_pictures()
            now = time.time()
            for second in range(-1, 60):
                name = time.strftime("EVENT_FRONT_%d%m%y%H%M%S", time.localtime(now + second))
                os.mkfifo(folder / f"{name}.jpg.part")  # opening it waits for a reader
            begin, _ = drive.await_event("button", drive.press_button)
            _, end = drive.await_event("button", drive.press_button)
            with Machine() as machine:
                drive.ignition_off()
        self.check_left_behind(drive, machine, "Clips")
        if ", prolongs the open clip" not in drive.log() and end[1] - begin[1] >= 1:
            raise TooSlow("a clip with the second event would have been longer than the longest one")
        self.assertIn("Clips hangs and was left behind", drive.said())
        self.assertIn("\n1 not written yet\n", drive.said())
        summary = json.loads((folder / "drive.json").read_text())
        self.assertEqual(summary["clipsUnfinished"], 1)
        self.assertEqual(summary["events"],
                         sum(summary[what] for what in ("eventsThatProlonged", "clipsWritten",
                                                        "clipsLost", "clipsUnfinished")))
        self.assertEqual(clips(folder), [])
        with Drive(folder) as drive:
            drive.await_log("160x120", 2)
            drive.ignition_off()
        self.assertEqual(list(folder.glob("EVENT_*")), [], "the next start removes what is left")

    def test_source_that_hangs_is_left_behind(self):
        folder = scratch(self)
        pipe = folder / "pipe.mp4"
        os.mkfifo(pipe)
        with Drive(folder, "--file", str(pipe)) as drive:
            drive.await_log("these workers do not work: Capture")
            drive.ignition_off_without_picture()
        self.assertIn("Capture hangs and was left behind", drive.said())
        self.assertGreaterEqual(self.length(drive), capture_budget)
        self.assertLess(self.length(drive), budgets)

    @repeated_when_too_slow
    def test_blocked_display_does_not_delay_ignition_off(self):
        folder = scratch(self)
        reader, writer = os.pipe()
        with Drive(folder, output=writer) as drive:
            os.set_blocking(writer, False)
            try:
                while os.write(writer, bytes(4096)):
                    pass
            except BlockingIOError:
                os.set_blocking(writer, True)
            drive.await_log("160x120")
            drive.press_button()
            drive.await_log("event: button")
            with Machine() as machine:
                drive.process.terminate()
                eventually(lambda: "All triggers" in drive.log(), "ignition off")
            os.close(reader)
            drive.process.wait(60)
        os.close(writer)
        machine.check(clips(folder), "the clip was not finished in time")
        check_whole(self, clips(folder)[0])


if __name__ == "__main__":
    main()

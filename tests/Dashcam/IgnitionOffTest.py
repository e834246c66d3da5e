#!/usr/bin/env python3
"""Ignition off beside participants that hang."""
import os
import re
import time
import unittest

from dashcam import Drive, check_whole, clips, eventually, main, scratch

budgets = 14.0  # seconds; the sum of those in Drive.cpp
capture_budget = 2.0
summary_budget = 2.0


class IgnitionOffTest(unittest.TestCase):
    def length(self, drive):
        return int(re.search(r"Ignition off took (\d+) ms", drive.said())[1]) / 1000

    def test_without_a_hang_nobody_is_left_behind(self):
        folder = scratch(self)
        with Drive(folder) as drive:
            drive.await_pictures()
            drive.ignition_off()
        self.assertNotIn("hangs", drive.said())
        self.assertLess(self.length(drive), budgets)

    def test_summary_that_hangs_is_left_behind_within_its_budget_and_named_at_the_next_start(self):
        folder = scratch(self)
        with Drive(folder) as drive:
            drive.await_pictures()
            drive.press_button()
            drive.await_log("event: button")
            os.mkfifo(folder / "drive.json.part")  # opening it waits for a reader
            begin = time.monotonic()
            drive.ignition_off()
            self.assertGreaterEqual(time.monotonic() - begin, summary_budget)
        self.assertIn("Summary hangs and was left behind", drive.said())
        self.assertLess(self.length(drive), budgets)
        check_whole(self, clips(folder)[0])
        self.assertIn("All triggers have been stopped", drive.log().splitlines()[-1])
        with Drive(folder) as drive:
            drive.await_log("Summary took too long")
            drive.await_log("removed drive.json.part")
            drive.ignition_off()
        self.assertNotIn("hangs", drive.said())

    def test_source_that_hangs_is_left_behind(self):
        folder = scratch(self)
        pipe = folder / "pipe.mp4"
        os.mkfifo(pipe)
        with Drive(folder, "--file", str(pipe)) as drive:
            drive.await_log("these workers hang: Capture")
            drive.process.terminate()
            self.assertEqual(drive.process.wait(60), 1)
        self.assertIn("Capture hangs and was left behind", drive.said())
        self.assertGreaterEqual(self.length(drive), capture_budget)
        self.assertLess(self.length(drive), budgets)

    def test_display_that_nobody_reads_holds_nothing(self):
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
            drive.process.terminate()
            eventually(lambda: "All triggers" in drive.log(), "ignition off")
            os.close(reader)
            drive.process.wait(60)
        os.close(writer)
        check_whole(self, clips(folder)[0])


if __name__ == "__main__":
    main()

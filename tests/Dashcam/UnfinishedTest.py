#!/usr/bin/env python3
"""Clips that are not written when the drive ends, because the disk hangs."""
import json
import os
import time
import unittest

from dashcam import Drive, clips, main, scratch


class UnfinishedTest(unittest.TestCase):
    def test_clip_that_hangs_is_told_at_the_end_and_in_the_summary(self):
        folder = scratch(self)
        with Drive(folder) as drive:
            drive.await_pictures()
            now = time.time()
            for second in range(-1, 60):
                name = time.strftime("EVENT_FRONT_%d%m%y%H%M%S", time.localtime(now + second))
                os.mkfifo(folder / f"{name}.jpg.part")  # opening it waits for a reader
            drive.press_button()
            drive.await_log("event: button")
            drive.press_button()
            drive.await_log("event: button", 2)
            drive.ignition_off()
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


if __name__ == "__main__":
    main()

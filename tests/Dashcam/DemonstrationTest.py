#!/usr/bin/env python3
"""Drives that end by themselves, with the recorded samples and the key of the example."""
import pathlib
import re
import subprocess
import unittest

from dashcam import (TooSlow, check_none_left_behind, check_reach, check_whole, clips, display_line,
                     main, program, repeated_when_too_slow, scratch, took_no_picture)

samples = pathlib.Path(__file__).resolve().parents[2] / "examples/dashcam/drive.txt"

# Of the two shocks, in g: the samples with the largest numbers, divided by 32. No y of the first
# one: its largest is close to an end of the clip.
recorded_peaks = [{"x": -1.125, "z": 1.156}, {"x": -0.406, "y": 0.406, "z": 2.281}]


class DemonstrationTest(unittest.TestCase):
    @repeated_when_too_slow
    def test_recorded_drive_makes_two_clips_and_says_where_they_are(self):
        folder = scratch(self)
        run = subprocess.run([program, "--folder", folder, "--acceleration", samples, "--seconds", "27"],
                             timeout=120, capture_output=True, text=True, stdin=subprocess.DEVNULL)
        if pictures_lost := re.search(r"\(\d+ lost\)", run.stdout):
            raise TooSlow(pictures_lost[0])
        check_none_left_behind(run.stdout)
        self.assertEqual(run.returncode, 0, run.stderr)
        self.assertEqual(len(clips(folder)), 2)
        for clip, peaks in zip(clips(folder), recorded_peaks):
            data = check_whole(self, clip, "change this key", key_interval=15)
            self.assertEqual(data["peak"], data["peak"] | peaks)
            check_reach(self, clip, data, 5, 4)
        self.assertIn(f"2 clips in {folder}", run.stdout)
        self.assertIn(f"Page: {folder}/index.html", run.stdout)
        self.assertIn("Ignition off took", run.stdout)
        self.assertNotRegex(run.stdout, "[\r\033]")
        display = run.stdout.splitlines()[:-3]
        for line in display:
            self.assertRegex(line, f"^{display_line.pattern}$")
        self.assertGreaterEqual(len(display), 5)
        self.assertNotIn("lost", run.stdout)

    def drive(self, *options):
        """A drive of few seconds."""
        run = subprocess.run([program, *options], capture_output=True, text=True, timeout=60)
        if run.returncode == 1 and took_no_picture(run.stdout):
            raise TooSlow("the first picture did not come in time")
        check_none_left_behind(run.stdout)
        self.assertEqual(run.returncode, 0, run.stderr)

    @repeated_when_too_slow
    def test_options_of_the_script_that_are_given_again_replace_its_own(self):
        folder = scratch(self)
        self.drive("--folder", folder / "first", "--folder", folder / "second",
                   "--acceleration", folder / "missing", "--acceleration", samples, "--seconds", "1")
        self.assertEqual([path.name for path in folder.iterdir()], ["second"])
        self.assertNotIn("missing", (folder / "second/dashcam.log").read_text())

    @repeated_when_too_slow
    def test_drive_without_an_accelerometer_complains_of_none(self):
        folder = scratch(self)
        self.drive("--folder", folder, "--seconds", "2")
        self.assertNotIn("[#Accelerometer]", (folder / "dashcam.log").read_text())
        self.assertIn("<main>", (folder / "index.html").read_text())
        self.assertIn('"samplesSkipped":0', (folder / "drive.json").read_text())


if __name__ == "__main__":
    main()

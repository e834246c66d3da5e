#!/usr/bin/env python3
"""Options and the log at the start."""
import os
import pathlib
import shutil
import subprocess
import unittest

from dashcam import Drive, eventually, main, program, scratch

nobody = 64321  # a user who has no other process


class StartTest(unittest.TestCase):
    def test_help_names_every_option(self):
        run = subprocess.run([program, "--help"], capture_output=True, text=True, check=True)
        for option in ("--camera", "--file", "--acceleration", "--settings", "--folder",
                       "--seconds", "SIGUSR1"):
            self.assertIn(option, run.stdout)

    def test_wrong_options_are_refused(self):
        for options in (["--file", "/nowhere"], ["--seconds", "-1"], ["--camera"], ["--surprise"],
                        ["--camera", "/dev/video0", "--file", __file__]):
            run = subprocess.run([program] + options, capture_output=True, text=True, timeout=60)
            self.assertNotEqual(run.returncode, 0, options)

    def test_record_of_the_drive_that_cannot_be_written_is_logged(self):
        folder = scratch(self)
        (folder / "drive").mkdir()
        with Drive(folder) as drive:
            drive.await_log("Failed to write the drive record")
            drive.await_log("160x120")
            drive.ignition_off()

    @unittest.skipUnless(os.geteuid() == 0 and shutil.which("prlimit"),
                         "needs the right to be another user")
    def test_participants_and_watch_without_a_thread_are_logged(self):
        folder = scratch(self)
        folder.chmod(0o777)
        clips = folder / "clips"
        process = subprocess.Popen(
            ["prlimit", "--nproc=7", program, "--folder", clips, "--seconds", "0"],
            user=nobody, group=nobody, extra_groups=[], stdin=subprocess.DEVNULL,
            stdout=subprocess.DEVNULL)
        self.addCleanup(process.wait)
        self.addCleanup(process.kill)
        log = pathlib.Path(clips) / "dashcam.log"
        for text in ("ignition off without Log: ", "no thread for the watch"):
            eventually(lambda: process.poll() is not None or log.exists() and text in log.read_text(),
                       text)
            if process.poll() is not None:
                self.skipTest("another user cannot run the program here")


if __name__ == "__main__":
    main()

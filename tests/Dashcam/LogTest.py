#!/usr/bin/env python3
"""The log of a drive: when it reaches the medium, how long it becomes, and what a clip keeps of it."""
import re
import shutil
import subprocess
import unittest

from dashcam import (Drive, check_none_left_behind, clips, eventually, main, repeated_when_too_slow,
                     scratch, side)

limit = 1000000  # bytes of a file
black_box = 30  # lines
may_trace = bool(shutil.which("strace")) and subprocess.run(
    ["strace", "-o", "/dev/null", "true"], capture_output=True).returncode == 0


class LogTest(unittest.TestCase):
    @unittest.skipUnless(may_trace, "needs strace, and the right to trace a program")
    @repeated_when_too_slow
    def test_log_is_synced_at_ignition_off_and_not_before(self):
        folder = scratch(self)
        trace = scratch(self) / "trace"
        # The tracer is not the program's parent, so that signals reach the program. The leak checker
        # of the address sanitizer cannot work in a program that is traced.
        strace = ("strace", "-D", "-f", "-y", "--seccomp-bpf", "-E", "ASAN_OPTIONS=detect_leaks=0",
                  "-e", "trace=write,fdatasync,fsync", "-o", trace)

        def calls():
            """The calls on the log and its folder, in order, and whether they are complete."""
            return re.findall(r"(write|fdatasync|fsync)\(\d+<" + re.escape(str(folder)) +
                              r"(/dashcam\.log)?>", trace.read_text(errors="replace"))

        with Drive(folder, launcher=strace) as drive:
            drive.await_log("160x120")
            eventually(lambda: ("write", "/dashcam.log") in calls(), "the trace shows the log")
            driving = calls()
            drive.ignition_off()
        check_none_left_behind(drive.said())
        self.assertIn("All triggers have been stopped", drive.log().splitlines()[-1])
        eventually(lambda: "exited with 0 +++" in trace.read_text().splitlines()[-1], "end of the trace")
        self.assertEqual({call for call in driving if call[1]}, {("write", "/dashcam.log")})
        last_line = len(calls()) - calls()[::-1].index(("write", "/dashcam.log"))
        self.assertIn(("fdatasync", "/dashcam.log"), calls()[last_line:])
        self.assertIn(("fsync", ""), calls()[last_line:], "the name of the file")

    def drive(self, folder):
        """Drives, and returns the first line of the log."""
        with Drive(folder, settings={"surprise": 1}) as drive:  # its first line is always the same
            drive.await_log("160x120")
            drive.ignition_off()
        check_none_left_behind(drive.said())
        self.assertIn("All triggers have been stopped", drive.log().splitlines()[-1])
        return drive.log().splitlines(keepends=True)[0]

    @repeated_when_too_slow
    def test_log_that_is_full_continues_in_a_new_file_and_two_old_ones_are_kept(self):
        line = self.drive(scratch(self))
        # The first line of a process counts as one byte longer, because it may have to end another.
        for spare in (1, 0):
            with self.subTest(spare=spare):
                folder = scratch(self)
                log, first, second, third = [folder / f"dashcam.log{end}"
                                             for end in ("", ".1", ".2", ".3")]
                full = "x" * (limit - len(line) - spare - 1) + "\n"
                log.write_text(full)
                first.write_text("older\n")
                second.write_text("oldest\n")
                self.drive(folder)
                self.assertEqual(second.read_text(), "older\n")
                self.assertFalse(third.exists())
                self.assertTrue(first.read_text().startswith(full))
                # The lines of the drives differ in their times, but not in their lengths.
                self.assertEqual(first.stat().st_size, len(full) + (len(line) if spare else 0))

    @repeated_when_too_slow
    def test_side_file_has_the_last_thirty_lines_of_the_log(self):
        folder = scratch(self)
        with Drive(folder, settings={"longestClip": 300}) as drive:
            drive.await_pictures()
            for _ in range(black_box + 5):
                drive.await_event("button", drive.press_button)
            drive.ignition_off()
        check_none_left_behind(drive.said())
        newest = clips(folder)[-1]
        last_lines = side(newest)["log"]
        self.assertEqual(len(last_lines.splitlines()), black_box)
        before, rest = drive.log().split(last_lines)
        self.assertTrue(before.endswith("\n"), "whole lines")
        until_written = rest[:rest.index(newest.name)]
        self.assertNotIn("event: ", until_written)

    def test_key_of_the_example_is_named_and_a_key_of_your_own_is_not(self):
        for key in ("change this key", "a key of your own"):
            with self.subTest(key=key), Drive(scratch(self), settings={"key": key}) as drive:
                drive.await_log("160x120")
                drive.ignition_off()
                self.assertEqual(drive.log().count("clips are signed with the example's key"),
                                 key == "change this key")


if __name__ == "__main__":
    main()

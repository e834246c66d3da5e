#!/usr/bin/env python3
"""The line that shows how the drive is going: on a terminal, and anywhere else."""
import os
import pty
import re
import subprocess
import threading
import time
import unittest

from dashcam import (Drive, TooSlow, check_none_left_behind, check_whole, clips, display_line,
                     eventually, main, repeated_when_too_slow, scratch, side, small)

may_mount = subprocess.run(["unshare", "-m", "true"], capture_output=True).returncode == 0


def with_sensor(text):
    """Words that begin a command, so that its program finds a temperature; an empty text: none."""
    script = """mount -t tmpfs none /sys/devices/virtual
        mkdir -p /sys/devices/virtual/thermal/thermal_zone0
        printf %s "$0" >/sys/devices/virtual/thermal/thermal_zone0/temp
        exec "$@" """
    return ("unshare", "-m", "--propagation", "private", "sh", "-ec", script, text)


class Terminal:
    """A terminal, and all that was written to it."""

    def __init__(self, test):
        self.master, self.slave = pty.openpty()
        self.bytes = b""
        self.reader = threading.Thread(target=self.read)
        self.reader.start()
        test.addCleanup(self.close)

    def read(self):
        try:
            while piece := os.read(self.master, 4096):
                self.bytes += piece
        except OSError:  # no program has it open any more
            pass

    def text(self):
        return self.bytes.decode()

    def close(self):
        """Reads to the end. The program has to have ended."""
        if self.slave >= 0:
            os.close(self.slave)
            self.slave = -1
            self.reader.join()
            os.close(self.master)


class DisplayTest(unittest.TestCase):
    def drive(self, temperature, shown, **options):
        """A drive with one event, until the display has shown it.

        Where there is no right to mount, it has the machine's sensor.
        """
        self.folder = scratch(self)
        self.begin = time.time()
        launcher = with_sensor(temperature) if may_mount else ()
        with Drive(self.folder, launcher=launcher, **options) as drive:
            drive.await_pictures()
            drive.press_button()
            eventually(shown, "the clip is shown")
            drive.ignition_off()
        return drive

    def check(self, lines, temperature):
        """The texts of a drive's display, from its first one to its last one."""
        shown = [display_line.fullmatch(line) for line in lines]
        self.assertTrue(all(shown), lines)
        if any(" lost)" in line for line in lines):
            raise TooSlow(lines[-1])
        drive_time = range(int(self.begin), int(time.time()) + 1)
        clock = {time.strftime("%H:%M:%S", time.localtime(second)) for second in drive_time}
        self.assertLessEqual({line["time"] for line in shown}, clock)
        frames = [int(line["frames"]) for line in shown]
        if frames[0] >= small["framesPerSecond"]:
            raise TooSlow("the first line was shown a second late")
        self.assertEqual(frames, sorted(frames))
        self.assertLess(frames[0], frames[-1])
        fills = [int(line["fill"]) for line in shown]
        self.assertEqual(fills, sorted(fills))
        self.assertLess(fills[0], fills[-1])
        self.assertEqual(fills[-1], 100)
        self.assertEqual(shown[0]["last"], "no event yet")
        self.assertEqual(shown[-1]["last"], clips(self.folder)[0].name)
        if may_mount:
            self.assertEqual({line["temperature"] for line in shown}, {temperature})
        return [line["last"] for line in shown], max(b - a for a, b in zip(frames, frames[1:]))

    @repeated_when_too_slow
    def test_line_on_a_terminal_updates_itself_and_shows_time_frames_ring_temperature_and_event(self):
        terminal = Terminal(self)
        self.drive("42345", lambda: ".mp4" in terminal.text(), output=terminal.slave)
        terminal.close()
        check_none_left_behind(terminal.text())
        display, end, summary = terminal.text().partition("\r\n")
        self.assertEqual(end, "\r\n", "the line ends")
        self.assertTrue(summary.startswith("1 clip in "), summary)
        # The terminal does not begin a new line at its edge, and clears what an older text leaves.
        updates = display.split("\r")
        self.assertEqual(updates[0], "")
        lines = [re.fullmatch(r"\x1b\[\?7l([^\x1b]*)\x1b\[K\x1b\[\?7h", text)
                 for text in updates[1:]]
        self.assertTrue(all(lines), updates)
        events, longest_step = self.check([line[1] for line in lines], "42")
        taken = small["framesPerSecond"] * small["secondsAfter"]  # frames while the clip is taken
        if longest_step > taken - 5:  # a line that comes in time is 3 frames after the last one
            raise TooSlow(f"no line for {longest_step} frames")
        self.assertIn("button, clip is being taken", events)
        if may_mount:
            self.assertEqual(side(clips(self.folder)[0])["temperature"], 42)

    @repeated_when_too_slow
    def test_lines_that_go_to_no_terminal_are_plain_and_leave_out_a_temperature_that_is_not_there(self):
        said = self.drive("", lambda: clips(self.folder)).said()
        check_none_left_behind(said)
        self.assertNotRegex(said, "[\r\033]")
        lines = said.splitlines()
        self.assertTrue(lines[-3].startswith("1 clip in "), said)
        self.check(lines[:-3], None)
        if may_mount:
            self.assertIsNone(side(clips(self.folder)[0])["temperature"])
        check_whole(self, clips(self.folder)[0])


if __name__ == "__main__":
    main()

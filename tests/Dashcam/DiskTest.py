#!/usr/bin/env python3
"""A small disk that fills, is emptied, goes away and comes back; and the limits of the folder."""
import os
import subprocess
import sys
import time
import unittest

here = os.environ.get("DASHCAM_OWN_MOUNTS")
if not here and subprocess.run(["unshare", "-m", "true"], capture_output=True).returncode == 0:
    os.environ["DASHCAM_OWN_MOUNTS"] = "yes"
    os.execvp("unshare", ["unshare", "-m", "--propagation", "private", sys.executable] + sys.argv)

from dashcam import (Drive, check_none_left_behind, check_whole, clips, display_line,  # noqa: E402
                     eventually, main, repeated_when_too_slow, scratch)


def mount(folder, megabytes):
    subprocess.run(["mount", "-t", "tmpfs", "-o", f"size={megabytes}m", "none", folder], check=True)


def unmount(folder):
    subprocess.run(["umount", "--lazy", folder], check=True)


def frames(drive):
    """How many frames there are, by the last line that the program has printed."""
    lines = [*display_line.finditer(drive.said())]
    return int(lines[-1]["frames"]) if lines else 0


class DiskTest(unittest.TestCase):
    def setUp(self):
        self.folder = scratch(self)

    def new_disk(self, megabytes):
        """A folder that is a disk of its own until the end of the test."""
        self.folder = scratch(self)
        mount(self.folder, megabytes)
        self.addCleanup(unmount, self.folder)

    def await_clip(self, drive, known):
        """Presses the button and waits for the clip."""
        drive.press_button()
        return eventually(lambda: set(clips(self.folder)) - known, lambda: f"a new clip:\n{drive.log()}")

    def await_next_frame(self, drive):
        before = frames(drive)
        eventually(lambda: frames(drive) > before, "the capture continues")

    @unittest.skipUnless(here, "needs the right to mount")
    @repeated_when_too_slow
    def test_disk_that_fills_goes_away_and_comes_back_stops_nothing(self):
        self.new_disk(20)
        with Drive(self.folder, settings={"folderMegabytes": 1000}) as drive:
            drive.await_pictures()
            self.await_clip(drive, set())
            for clip in clips(self.folder):  # otherwise it would be removed to make room
                check_whole(self, clip)
                for path in self.folder.glob(clip.stem + "*"):
                    path.unlink()

            filler = self.folder / "filler"
            with open(filler, "wb", buffering=0) as file, self.assertRaises(OSError):
                while True:
                    file.write(bytes(65536))
            drive.press_button()
            eventually(lambda: "clip lost" in drive.said() + drive.log(), "the loss is told")
            self.await_next_frame(drive)
            self.assertEqual(list(self.folder.glob("EVENT_*")), [])
            filler.unlink()
            known = self.await_clip(drive, set())

            unmount(self.folder)
            drive.press_button()
            eventually(lambda: "the disk is away" in drive.said() + drive.log(), "that is told")
            self.await_next_frame(drive)
            self.assertEqual(list(self.folder.glob("EVENT_*")), [], "nothing under the mount point")
            mount(self.folder, 20)
            drive.await_log("the disk was away")
            self.assertIn("clip lost", (self.folder / "away.log").read_text())
            self.await_clip(drive, known)
            drive.ignition_off()
        check_none_left_behind(drive.said())
        for clip in clips(self.folder):
            check_whole(self, clip)
        self.assertIn("2 lost", drive.said())
        self.assertIn('"clipsLost":2', (self.folder / "drive.json").read_text())

    def test_folder_that_is_removed_and_comes_back_stops_nothing(self):
        folder, away = self.folder / "clips", self.folder / "away"
        self.folder = folder
        with Drive(folder) as drive:
            drive.await_pictures()
            folder.rename(away)
            drive.press_button()
            eventually(lambda: "clip lost" in drive.said(), "the loss is told")
            self.await_next_frame(drive)
            away.rename(folder)
            self.await_clip(drive, set())
            drive.ignition_off()
        check_whole(self, clips(folder)[0])
        self.assertIn("1 lost", drive.said())

    @unittest.skipUnless(here, "needs the right to mount")
    def test_full_disk_of_clips_keeps_the_newest_ones(self):
        self.new_disk(20)
        settings = {"width": 640, "height": 480, "kilobitsPerSecond": 20000, "longestClip": 3,
                    "diskFloorMegabytes": 12, "folderMegabytes": 1000}
        with Drive(self.folder, settings=settings) as drive:
            drive.await_log("640x480")
            time.sleep(1.5)
            known = set()
            while "to make room" not in drive.log():
                known |= self.await_clip(drive, known)
            newest = self.await_clip(drive, known)
            drive.ignition_off()
        self.assertLessEqual(newest, set(clips(self.folder)))
        self.assertLess(len(clips(self.folder)), len(known | newest))
        for clip in clips(self.folder):
            check_whole(self, clip)

    def test_folder_beyond_its_limit_loses_its_oldest_clips(self):
        settings = {"kilobitsPerSecond": 2000, "folderMegabytes": 1}
        old = self.folder / "EVENT_FRONT_010120000000"
        for extension in ("mp4", "json", "jpg", "sig"):
            old.with_suffix("." + extension).write_bytes(bytes(300000))
        with Drive(self.folder, settings=settings) as drive:
            drive.await_log(f"removed {old.name} to make room")
            drive.await_pictures()
            drive.press_button()
            eventually(lambda: clips(self.folder), "a clip")
            drive.ignition_off()
        self.assertEqual(list(self.folder.glob(old.name + "*")), [])
        check_whole(self, clips(self.folder)[0])


if __name__ == "__main__":
    main()

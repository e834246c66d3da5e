#!/usr/bin/env python3
"""Video files of several kinds as the source."""
import json
import os
import pathlib
import shutil
import struct
import subprocess
import time
import unittest

from dashcam import (Drive, TooSlow, check_no_gap, check_none_left_behind, check_whole, clips, decode,
                     eventually, main, packets, repeated_when_too_slow, scratch, side, small)

phone_film = pathlib.Path(__file__).with_name("phone.mov")  # phone.txt tells where it is from
package_folder = pathlib.Path("/usr/share/gem/examples/data")
package_files = {package_folder / "alea.mpg": 160,    # MPEG-1, of three hundredths of a second
                 package_folder / "anim-1.mov": 120}  # Motion JPEG in QuickTime, as cameras make it


def make(path, *options):
    subprocess.run(["ffmpeg", "-v", "error", "-f", "lavfi", "-i",
                    "testsrc2=size=320x240:rate=25:duration=2", *options, path], check=True)


def turn(path, a, b, c, d):
    """Writes into a film how its only track has to be turned, as a camera does."""
    fixed = 65536
    straight = struct.pack(">9i", fixed, 0, 0, 0, fixed, 0, 0, 0, 1 << 30)
    turned = struct.pack(">9i", a * fixed, b * fixed, 0, c * fixed, d * fixed, 0, 0, 0, 1 << 30)
    before, after = path.read_bytes().rsplit(straight, 1)
    path.write_bytes(before + turned + after)


def brightest_corner(clip):
    """0 is top left, 1 top right, 2 bottom left, 3 bottom right."""
    run = subprocess.run(["ffmpeg", "-v", "error", "-i", clip, "-frames:v", "1", "-vf", "scale=2:2",
                          "-f", "rawvideo", "-pix_fmt", "gray", "-"],
                         capture_output=True, check=True)
    if len(run.stdout) != 4:
        raise AssertionError(f"{clip} has no picture")
    return run.stdout.index(max(run.stdout))


@unittest.skipUnless(shutil.which("ffmpeg"), "needs ffmpeg")
class FileTest(unittest.TestCase):
    @repeated_when_too_slow
    def check(self, path, width=160):
        """Drives with the file and checks a clip that is longer than the file."""
        folder = scratch(self)
        with Drive(folder, "--file", str(path)) as drive:
            drive.await_log(f"{width}x120")
            time.sleep(2.5)
            drive.press_button()
            eventually(lambda: clips(folder), lambda: f"a clip:\n{drive.log()}")
            drive.ignition_off()
        self.assertNotIn("no picture", drive.log())
        data = check_whole(self, clips(folder)[0])
        check_no_gap(self, data["frames"])
        steps = [moment for moment, _ in packets(clips(folder)[0])]
        for before, after in zip(steps, steps[1:]):
            self.assertAlmostEqual(after - before, 1 / small["framesPerSecond"], delta=0.01)

    def test_file_with_reordered_frames_plays_in_a_loop(self):
        path = scratch(self) / "drive.mp4"
        make(path, "-c:v", "libx264", "-bf", "2", "-pix_fmt", "yuv420p")
        self.check(path)

    def test_file_whose_times_begin_late_and_whose_pixels_differ_plays(self):
        path = scratch(self) / "drive.avi"
        make(path, "-c:v", "mjpeg", "-pix_fmt", "yuvj422p", "-vf", "scale=200:100,setsar=1",
             "-r", "50")
        self.check(path, width=240)

    def test_file_with_sound_and_uneven_times_plays(self):
        path = scratch(self) / "drive.mkv"
        make(path, "-f", "lavfi", "-i", "sine=duration=2", "-c:v", "mpeg4", "-c:a", "aac", "-vf",
             "select='not(mod(n,3))'", "-fps_mode", "vfr", "-output_ts_offset", "7")
        self.check(path)

    def test_file_whose_name_has_characters_that_mean_something_to_libav_plays(self):
        folder = scratch(self)
        make(folder / "drive.mp4", "-c:v", "mpeg4")
        path = folder / "it's a\\b: [c], 50 %; d=e.mp4"
        (folder / "drive.mp4").rename(path)
        self.check(path)

    def test_file_that_is_no_video_is_logged_and_ends_with_an_error(self):
        folder = scratch(self)
        path = folder / "text.mp4"
        path.write_text("no video\n" * 1000)
        with Drive(folder, "--file", str(path)) as drive:
            drive.await_log("no picture")
            drive.ignition_off_without_picture()

    def test_file_without_a_picture_is_logged_and_ends_with_an_error(self):
        folder = scratch(self)
        path = folder / "empty.mp4"
        make(path, "-c:v", "mpeg4", "-movflags", "+faststart")
        whole = path.read_bytes()
        path.write_bytes(whole[:whole.index(b"mdat") + 4])
        with Drive(folder, "--file", str(path)) as drive:
            drive.await_log("no picture")
            drive.ignition_off_without_picture()

    @repeated_when_too_slow
    def test_pictures_that_a_file_has_not_given_for_a_while_are_lost_and_named(self):
        folder = scratch(self)
        path = scratch(self) / "drive.mp4"
        make(path, "-c:v", "mpeg4")
        good = path.read_bytes()
        before = 5
        with Drive(folder, "--file", str(path), settings={"secondsBefore": before}) as drive:
            drive.await_pictures()
            path.write_bytes(b"no video")
            drive.await_log("no picture")
            time.sleep(2)
            end = time.monotonic()
            path.write_bytes(good)
            drive.await_log("160x120", times=2)
            # At once: the seconds before reach back beyond the outage.
            drive.await_event("button", drive.press_button)
            length = time.monotonic() - end
            eventually(lambda: clips(folder), lambda: f"a clip:\n{drive.log()}")
            drive.ignition_off()
        check_none_left_behind(drive.said())
        if length >= before:
            raise TooSlow(f"the event came {length} s after the outage")
        lost = json.loads((folder / "drive.json").read_text())["framesLost"]
        self.assertGreaterEqual(lost, 2 * small["framesPerSecond"])
        clip = clips(folder)[0]
        self.assertEqual(decode(clip), "")
        frames = side(clip)["frames"]
        outages = [gap for gap in frames["gaps"] if gap["missing"] >= 2 * small["framesPerSecond"]]
        if len(outages) > 1:
            raise TooSlow(outages)
        outage, = outages
        missing = sum(gap["missing"] for gap in frames["gaps"])
        self.assertLessEqual(missing, lost)
        self.assertEqual(frames["last"] - frames["first"] + 1, frames["count"] + missing)
        # The first frame after the outage is that of a new encoder. Its time tells of the outage.
        number = outage["after"] - frames["first"] + 1 - sum(
            gap["missing"] for gap in frames["gaps"] if gap["after"] < outage["after"])
        film = packets(clip)
        self.assertTrue(film[number][1], "a key frame")
        self.assertGreaterEqual(film[number][0] - film[number - 1][0], 2)

    def test_file_that_is_cut_off_plays_as_far_as_it_goes(self):
        path = scratch(self) / "drive.ts"
        make(path, "-c:v", "mpeg2video")
        whole = path.read_bytes()
        path.write_bytes(whole[:len(whole) * 2 // 3 + 77])
        self.check(path)

    def test_film_of_a_camera_that_was_turned_is_upright(self):
        for name, matrix, width, corner in (("clockwise", (0, 1, -1, 0), 90, 1),
                                            ("upside down", (-1, 0, 0, -1), 160, 3),
                                            ("counterclockwise", (0, -1, 1, 0), 90, 2),
                                            ("no direction", (0, 0, 0, 0), 160, 0)):
            with self.subTest(name):
                folder = scratch(self)
                path = folder / "film.mov"
                make(path, "-c:v", "mpeg4", "-vf", "drawbox=color=black:t=fill,"
                     "drawbox=w=iw/2:h=ih/2:color=white:t=fill")
                turn(path, *matrix)
                with Drive(folder, "--file", str(path)) as drive:
                    drive.await_log(f"{width}x120")
                    time.sleep(1)
                    drive.press_button()
                    eventually(lambda: clips(folder), "a clip")
                    drive.ignition_off()
                self.assertEqual(brightest_corner(clips(folder)[0]), corner)

    def test_pipe_is_opened_only_once(self):
        folder = scratch(self)
        path = folder / "pipe"
        os.mkfifo(path)
        writer = subprocess.Popen(["ffmpeg", "-y", "-f", "lavfi", "-i", "testsrc2=size=320x240",
                                   "-c:v", "mpeg4", "-f", "matroska", path],
                                  stdin=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
        self.addCleanup(writer.wait)
        self.addCleanup(writer.kill)
        with Drive(folder, "--file", str(path)) as drive:
            drive.await_log("160x120")
            drive.ignition_off()
        self.assertNotIn("no picture", drive.log())

    def test_pixels_that_are_not_square_become_square(self):
        folder = scratch(self)
        path = folder / "film.mov"
        make(path, "-c:v", "mpeg4", "-vf", "setsar=4/3")
        with Drive(folder, "--file", str(path)) as drive:
            drive.await_log("214x120")
            drive.ignition_off()

    def test_file_whose_size_changes_plays_at_its_first_width(self):
        folder = scratch(self)
        path = folder / "drive.ts"
        make(path, "-c:v", "mpeg2video", "-vf", "scale=400:200,setsar=1")
        make(folder / "rest.ts", "-c:v", "mpeg2video", "-output_ts_offset", "2")
        path.write_bytes(path.read_bytes() + (folder / "rest.ts").read_bytes())
        self.check(path, width=240)

    def test_scene_that_changes_adds_no_key_frame(self):
        path = scratch(self) / "scenes.mp4"
        make(path, "-c:v", "mpeg4", "-vf", "negate=enable='lt(mod(t,0.62),0.31)'")
        self.check(path)

    def test_film_of_a_phone_plays(self):
        self.check(phone_film, width=214)

    def test_files_of_another_package_play(self):
        found = [path for path in package_files if path.is_file()]
        if not found:
            self.skipTest("needs the files of gem-doc")
        for path in found:
            with self.subTest(path.name):
                self.check(path, package_files[path])


if __name__ == "__main__":
    main()

#!/usr/bin/env python3
"""Video files of several kinds as the source."""
import pathlib
import shutil
import subprocess
import time
import unittest

from dashcam import (Drive, check_no_gap, check_whole, clips, eventually, main, packets,
                     repeated_when_too_slow, scratch, small)

phone_film = pathlib.Path(__file__).with_name("phone.mov")  # phone.txt tells where it is from
package_folder = pathlib.Path("/usr/share/gem/examples/data")
package_files = {package_folder / "alea.mpg": 160,    # MPEG-1, of three hundredths of a second
                 package_folder / "anim-1.mov": 120}  # Motion JPEG in QuickTime, as cameras make it


def make(path, *options):
    subprocess.run(["ffmpeg", "-v", "error", "-f", "lavfi", "-i",
                    "testsrc2=size=320x240:rate=25:duration=2", *options, path], check=True)


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
            eventually(lambda: clips(folder), f"a clip:\n{drive.log()}")
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
        make(path, "-c:v", "mjpeg", "-pix_fmt", "yuvj422p", "-vf", "scale=200:100", "-r", "50")
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

    def test_file_that_is_no_video_is_told_and_ends_with_an_error(self):
        folder = scratch(self)
        path = folder / "text.mp4"
        path.write_text("no video\n" * 1000)
        with Drive(folder, "--file", str(path)) as drive:
            drive.await_log("no picture")
            drive.process.terminate()
            self.assertEqual(drive.process.wait(60), 1)

    def test_file_without_a_picture_is_told_and_ends_with_an_error(self):
        folder = scratch(self)
        path = folder / "empty.mp4"
        make(path, "-c:v", "mpeg4", "-movflags", "+faststart")
        whole = path.read_bytes()
        path.write_bytes(whole[:whole.index(b"mdat") + 4])
        with Drive(folder, "--file", str(path)) as drive:
            drive.await_log("no picture")
            drive.process.terminate()
            self.assertEqual(drive.process.wait(60), 1)

    def test_file_that_is_cut_off_plays_as_far_as_it_goes(self):
        path = scratch(self) / "drive.ts"
        make(path, "-c:v", "mpeg2video")
        whole = path.read_bytes()
        path.write_bytes(whole[:len(whole) * 2 // 3 + 77])
        self.check(path)

    def test_file_whose_size_changes_plays_at_its_first_width(self):
        folder = scratch(self)
        path = folder / "drive.ts"
        make(path, "-c:v", "mpeg2video", "-vf", "scale=400:200,setsar=1")
        make(folder / "rest.ts", "-c:v", "mpeg2video", "-output_ts_offset", "2")
        path.write_bytes(path.read_bytes() + (folder / "rest.ts").read_bytes())
        self.check(path, width=240)

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

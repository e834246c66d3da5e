#!/usr/bin/env python3
"""Clips, side files and signatures of whole drives."""
import json
import os
import pathlib
import signal
import subprocess
import time
import unittest

from dashcam import (Drive, TooSlow, check_no_gap, check_none_left_behind, check_reach, check_whole,
                     clips, clocks, eventually, main, packets, patience, place_where_it_is,
                     repeated_when_too_slow, scratch, side, signature, small)


def gray_pictures(*options, box, zone="UTC"):
    """A box of each picture, with one byte for each pixel.

    @param box  Width, height, left, top.
    """
    crop = ":".join(map(str, box))
    run = subprocess.run(["ffmpeg", "-v", "error", *options, "-vf", f"format=gray,crop={crop}",
                          "-fps_mode", "passthrough", "-f", "rawvideo", "-"],
                         capture_output=True, check=True, timeout=patience,
                         env=os.environ | {"TZ": zone})
    width, height = box[:2]
    return [run.stdout[at:at + width * height] for at in range(0, len(run.stdout), width * height)]


class ClipsTest(unittest.TestCase):
    def check_clip(self, clip, moment, log):
        """A whole clip, whose side file tells when its only event was, and what the log said then.

        @param moment  The clocks before the event, and when the log told of it.
        """
        (wall, boot), (later, later_boot) = moment
        data = check_whole(self, clip)
        check_reach(self, clip, data, small["secondsBefore"], small["secondsAfter"], later_boot - boot)
        times = [moment for moment, _ in packets(clip)]
        self.assertAlmostEqual(times[-1] - times[0], data["seconds"], delta=0.002)
        self.assertTrue(all(a < b for a, b in zip(times, times[1:])), "times grow")

        self.assertGreaterEqual(data["unixTime"], int(wall))
        self.assertLessEqual(data["unixTime"], later)
        self.assertGreaterEqual(data["bootSeconds"], boot - 0.011)  # the clock may count in 0.01 s
        self.assertLessEqual(data["bootSeconds"], later_boot + 0.001)  # it is rounded
        self.assertEqual(data["localTime"],
                         time.strftime("%Y-%m-%d %H:%M:%S", time.localtime(data["unixTime"])))
        self.assertIs(data["clockPlausible"], True)
        self.assertIn(data["log"], log)
        self.assertIn("event: " + data["events"][-1]["cause"], data["log"])
        return data

    @repeated_when_too_slow
    def test_shock_and_button_each_make_a_whole_clip_with_the_seconds_before_and_after(self):
        folder = scratch(self)
        with Drive(folder, settings=place_where_it_is(12)) as drive:
            drive.await_pictures()
            shocked = drive.await_event("acceleration", lambda: drive.shock(
                (63, -47, 95), (30, 48, -96), ("no", "more", "samples")))
            drive.await_log("no samples")
            _, read = clocks()
            eventually(lambda: len(clips(folder)) == 1, "a clip of the shock")
            pressed = drive.await_event("button", drive.press_button)
            eventually(lambda: len(clips(folder)) == 2, "a clip of the button")
            drive.ignition_off()
        check_none_left_behind(drive.said())
        shock, button = [self.check_clip(clip, moment, drive.log())
                         for clip, moment in zip(clips(folder), (shocked, pressed))]
        self.assertEqual(shock["events"][0]["cause"], "acceleration")
        self.assertEqual(button["events"][0]["cause"], "button")
        if len(shock["acceleration"]) < 3 and read - shocked[0][1] > small["secondsAfter"]:
            raise TooSlow("the clip may have ended before the last samples were read")
        self.assertEqual(len(shock["acceleration"]), 3)
        self.assertEqual(shock["peak"], {"x": -2.0, "y": 1.5, "z": -3.0})
        self.assertEqual([shock["light"], button["light"]], ["day", "day"])
        self.assertNotEqual(shock["identifier"], button["identifier"])
        self.assertIn("All triggers have been stopped", drive.log().splitlines()[-1])

    def test_signature_fails_after_one_changed_byte(self):
        folder = scratch(self)
        with Drive(folder) as drive:
            drive.await_pictures()
            drive.shock()
            eventually(lambda: clips(folder), "a clip")
            drive.ignition_off()
        clip = clips(folder)[0]
        good = clip.with_suffix(".sig").read_text().strip()
        self.assertEqual(signature(clip), good)
        self.assertNotEqual(signature(clip, "another key"), good)
        for file in (clip, clip.with_suffix(".json")):
            bytes_ = bytearray(file.read_bytes())
            bytes_[len(bytes_) // 2] ^= 1
            file.write_bytes(bytes_)
            self.assertNotEqual(signature(clip), good)
            bytes_[len(bytes_) // 2] ^= 1
            file.write_bytes(bytes_)
        self.assertEqual(signature(clip), good)

    @repeated_when_too_slow
    def test_second_event_prolongs_the_open_clip(self):
        folder = scratch(self)
        after = 3
        with Drive(folder, settings=place_where_it_is(0) | {"secondsAfter": after}) as drive:
            drive.await_pictures()
            begin, _ = drive.await_event("button", drive.press_button)
            time.sleep(1.2)
            _, end = drive.await_event("button", drive.press_button)
            eventually(lambda: clips(folder), "a clip")
            drive.ignition_off()
        check_none_left_behind(drive.said())
        if len(clips(folder)) == 2 and end[1] - begin[1] >= after:
            raise TooSlow("the second event may have come after the end of the clip")
        self.assertEqual(len(clips(folder)), 1)
        clip = clips(folder)[0]
        data = check_whole(self, clip)
        self.assertEqual(len(data["events"]), 2)
        self.assertEqual(data["light"], "night")
        check_reach(self, clip, data, small["secondsBefore"], after)

    @repeated_when_too_slow
    def test_ignition_off_finishes_the_open_clip(self):
        folder = scratch(self)
        with Drive(folder, settings={"secondsAfter": 60}) as drive:
            drive.await_pictures()
            drive.press_button()
            drive.await_log("event: button")
            drive.ignition_off()
        check_none_left_behind(drive.said())
        check_whole(self, clips(folder)[0])
        self.assertIn("Ignition off took", drive.said())

    @repeated_when_too_slow
    def test_lines_that_are_no_samples_are_skipped_and_counted(self):
        folder = scratch(self)
        with Drive(folder) as drive:
            drive.await_pictures()
            for line in ("nan nan nan", "", "1 2", "1 2 3 4", "128 0 0", "-129 0 0", "inf 0 0",
                         "1e9 0 0", "0 -inf 32", "99999999999999999999 0 0", "\0\0\0", "x" * 9000):
                os.write(drive.writer, line.encode() + b"\n")
            drive.await_log("no samples")
            drive.shock()
            eventually(lambda: clips(folder), "a clip in spite of them")
            drive.ignition_off()
        check_none_left_behind(drive.said())
        self.assertEqual(check_whole(self, clips(folder)[0])["events"][0]["cause"], "acceleration")
        summary = json.loads((folder / "drive.json").read_text())
        self.assertGreaterEqual(summary["samplesSkipped"], 12)

    def test_shock_right_behind_a_line_that_is_too_long_counts(self):
        folder = scratch(self)
        with Drive(folder) as drive:
            drive.await_pictures()
            drive.process.send_signal(signal.SIGSTOP)  # so that it reads all at once
            os.write(drive.writer, b"x" * 4300 + b"\n-64 0 32\n")
            drive.process.send_signal(signal.SIGCONT)
            drive.await_log("event: acceleration")
            drive.ignition_off()

    def read_second(self, picture, drawn):
        """Returns the second whose drawn text is in a picture."""
        unlike = {second: sum(abs(a - b) for a, b in zip(picture, text))
                  for second, text in drawn.items()}
        best, next_best = sorted(unlike, key=unlike.get)[:2]
        self.assertLess(unlike[best] * 3, unlike[next_best], "only one text is like the picture")
        return best

    @repeated_when_too_slow
    def test_test_picture_shows_the_local_time_at_which_it_was_taken(self):
        folder = scratch(self)
        zone = "TEST-5:30"  # another hour, and another minute, than most machines have
        width, height, rate = 640, 360, 5
        with Drive(folder, launcher=("env", f"TZ={zone}"),
                   settings={"width": width, "height": height, "framesPerSecond": rate,
                             "kilobitsPerSecond": 2000}) as drive:
            drive.await_log(f"{width}x{height}")
            time.sleep(2)
            drive.press_button()
            eventually(lambda: clips(folder), "a clip")
            drive.ignition_off()
        clip = clips(folder)[0]
        data = check_whole(self, clip)
        wall, boot = clocks()
        begin = data["bootSeconds"] - boot + wall - data["events"][0]["second"]

        seconds = range(int(begin) - 30, int(begin) + 31)
        (folder / "text").write_text(f"%{{pts:localtime:{seconds[0]}:%T}}")
        box = (height // 3, height // 14, height // 20, int(height * 0.87))  # of the text
        drawn = dict(zip(seconds, gray_pictures(
            "-f", "lavfi", "-t", str(len(seconds)), "-i",
            f"color=black:size={width}x{height}:rate=1,drawtext=textfile={folder}/text:"
            "fontsize=h/14:x=h/20:y=h*0.87:fontcolor=white", box=box, zone=zone)))
        shown = [self.read_second(picture, drawn) for picture in gray_pictures("-i", clip, box=box)]
        still, = gray_pictures("-i", clip.with_suffix(".jpg"), box=box)
        self.assertEqual(self.read_second(still, drawn), shown[0])
        moments = [begin + moment for moment, _ in packets(clip)]
        self.assertEqual(len(shown), len(moments))
        for second, moment in zip(shown, moments):
            self.assertGreaterEqual(second, int(moment - 0.02))  # that clock counts in 0.01 s
        check_no_gap(self, data["frames"])
        for second, moment in zip(shown[:-1], moments):  # no gap tells how late the last one is
            self.assertLessEqual(second, moment + 1.0 + 2 / rate)  # later ones are left out
        self.assertGreater(shown[-1], shown[0], "the time advances")

    @repeated_when_too_slow
    def test_many_events_make_several_clips_of_limited_length(self):
        folder = scratch(self)
        presses, longest = 12, 3
        with Drive(folder, settings={"longestClip": longest}) as drive:
            drive.await_pictures()
            for _ in range(presses):
                drive.press_button()
                time.sleep(0.3)
            drive.ignition_off()
        check_none_left_behind(drive.said())
        summary = json.loads((folder / "drive.json").read_text())
        if summary["events"] < presses:
            raise TooSlow("two presses were one event, because nothing took the first one in time")
        if summary["clipsLost"]:
            raise TooSlow("the clips were not written in time")
        found = clips(folder)
        self.assertEqual(len(found), summary["clipsWritten"], "each has a name of its own")
        self.assertGreaterEqual(len(found), 2)
        for clip in found:
            data = check_whole(self, clip)
            check_no_gap(self, data["frames"])
            self.assertLess(data["seconds"], longest + 1)  # it begins at a key frame

    def test_settings_of_the_example_are_complete_and_are_the_defaults(self):
        folder = scratch(self)
        example = pathlib.Path(__file__).resolve().parents[2] / "examples/dashcam/settings.json"
        with Drive(folder, "--settings", str(example)) as drive:
            drive.await_log("1280x720")
            drive.ignition_off()
        for text in ("is missing", "unknown setting", "default is used", "defaults are used"):
            self.assertNotIn(text, drive.log())

    def test_sensor_without_samples_leaves_peaks_null(self):
        folder = scratch(self)
        with Drive(folder, "--acceleration", "/dev/null") as drive:
            drive.await_pictures()
            drive.press_button()
            eventually(lambda: clips(folder), "a clip")
            drive.ignition_off()
        self.assertEqual(side(clips(folder)[0])["peak"], {"x": None, "y": None, "z": None})
        self.assertEqual(side(clips(folder)[0])["acceleration"], [])

    def test_clip_of_an_event_without_pictures_is_counted_as_lost(self):
        folder = scratch(self)
        with Drive(folder, "--camera", "/dev/null") as drive:
            drive.await_log("no picture")
            drive.press_button()
            drive.await_log("clip lost")
            drive.ignition_off_without_picture()
        self.assertEqual(clips(folder), [])


if __name__ == "__main__":
    main()

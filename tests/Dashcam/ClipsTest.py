#!/usr/bin/env python3
"""Clips, side files and signatures of whole drives."""
import json
import os
import pathlib
import signal
import time
import unittest

from dashcam import (Drive, TooSlow, check_no_gap, check_whole, clips, eventually, main, packets,
                     patience, place_where_it_is, repeated_when_too_slow, scratch, seconds_after,
                     side, signature, small)


def clocks():
    return time.time(), time.clock_gettime(time.CLOCK_BOOTTIME)


class ClipsTest(unittest.TestCase):
    def check_reach(self, clip):
        data = check_whole(self, clip)
        check_no_gap(self, data["frames"])
        before, after = small["secondsBefore"], small["secondsAfter"]
        if data["frames"]["first"] == 0 and data["events"][0]["second"] < before:
            raise TooSlow("the first picture came too late for the seconds before the event")
        if seconds_after(data, -1) < after and '"framesLost":0' not in (clip.parent / "drive.json").read_text():
            raise TooSlow("no picture came for so long that the clip ended without its last ones")
        self.assertGreaterEqual(data["events"][0]["second"], before)
        self.assertGreaterEqual(seconds_after(data, -1), after)
        times = [moment for moment, _ in packets(clip)]
        self.assertAlmostEqual(times[-1] - times[0], data["seconds"], delta=0.002)
        self.assertTrue(all(a < b for a, b in zip(times, times[1:])), "times grow")
        return data

    def check_moment(self, data, before, log):
        """The side file tells when its event was, and what the log said until then.

        @param before  The clocks before the event: the one that people read, and that of the boot.
        """
        wall, boot = before
        self.assertGreaterEqual(data["unixTime"], int(wall))
        self.assertGreaterEqual(data["bootSeconds"], boot - 0.011)  # the clock may count in 0.01 s
        self.assertLess(data["bootSeconds"], boot + patience)
        second = data["bootSeconds"] - boot + wall - data["unixTime"]  # a part of one was cut off
        self.assertGreater(second, -0.1)
        self.assertLess(second, 1.1)
        self.assertEqual(data["localTime"],
                         time.strftime("%Y-%m-%d %H:%M:%S", time.localtime(data["unixTime"])))
        self.assertIs(data["clockPlausible"], True)
        self.assertIn(data["log"], log)
        self.assertIn("event: " + data["events"][-1]["cause"], data["log"])

    @repeated_when_too_slow
    def test_shock_and_button_each_make_a_whole_clip_with_the_seconds_before_and_after(self):
        folder = scratch(self)
        with Drive(folder, settings=place_where_it_is(12)) as drive:
            drive.await_pictures()
            shocked = clocks()
            drive.shock()
            for sample in ((63, -47, 95), (30, 48, -96)):
                drive.sample(*sample)
            eventually(lambda: len(clips(folder)) == 1, "a clip of the shock")
            pressed = clocks()
            drive.press_button()
            eventually(lambda: len(clips(folder)) == 2, "a clip of the button")
            drive.ignition_off()
        shock, button = [self.check_reach(clip) for clip in clips(folder)]
        self.assertEqual(shock["events"][0]["cause"], "acceleration")
        self.assertEqual(button["events"][0]["cause"], "button")
        self.assertEqual(shock["peak"], {"x": -2.0, "y": 1.5, "z": -3.0})
        self.assertEqual([shock["light"], button["light"]], ["day", "day"])
        self.assertNotEqual(shock["identifier"], button["identifier"])
        self.check_moment(shock, shocked, drive.log())
        self.check_moment(button, pressed, drive.log())
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
            drive.press_button()
            drive.await_log("event: button")
            time.sleep(1.2)
            drive.press_button()
            drive.await_log("event: button", 2)
            eventually(lambda: clips(folder), "a clip")
            drive.ignition_off()
        data = check_whole(self, clips(folder)[0])
        if len(clips(folder)) == 2:
            apart = side(clips(folder)[1])["bootSeconds"] - data["bootSeconds"]
            if apart > after - 0.5:
                raise TooSlow(f"the second event came {apart} s after the first one")
        self.assertEqual(len(clips(folder)), 1)
        self.assertEqual(len(data["events"]), 2)
        self.assertEqual(data["light"], "night")
        self.assertGreaterEqual(seconds_after(data, 1), after)

    def test_ignition_off_finishes_the_open_clip(self):
        folder = scratch(self)
        with Drive(folder, settings={"secondsAfter": 60}) as drive:
            drive.await_pictures()
            drive.press_button()
            drive.await_log("event: button")
            drive.ignition_off()
        check_whole(self, clips(folder)[0])
        self.assertIn("Ignition off took", drive.said())

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

    def test_events_of_one_second_have_different_names(self):
        folder = scratch(self)
        with Drive(folder, settings={"secondsBefore": 1, "secondsAfter": 1, "longestClip": 3}) as drive:
            drive.await_pictures()
            for _ in range(12):
                drive.press_button()
                time.sleep(0.3)
            drive.ignition_off()
        found = clips(folder)
        self.assertGreaterEqual(len(found), 2)
        for clip in found:
            check_whole(self, clip)
            self.assertLess(side(clip)["seconds"], 5)

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

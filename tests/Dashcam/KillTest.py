#!/usr/bin/env python3
"""kill -9 at random moments: what has a finished name is whole, and the next start tells."""
import concurrent.futures
import random
import signal
import time
import unittest

from dashcam import (Drive, check_none_left_behind, check_whole, clips, eventually, main,
                     repeated_when_too_slow, scratch)

kills = 50
at_once = 10
settings = {"width": 96, "height": 64, "secondsBefore": 1, "secondsAfter": 1, "longestClip": 3}


class KillTest(unittest.TestCase):
    def drives(self, folder, seed):
        """Drives again and again in one folder; every drive is killed somewhere in its events."""
        chance = random.Random(seed)
        for round_ in range(kills // at_once):
            with Drive(folder, settings=settings) as drive:
                if round_ > 0:
                    eventually(lambda: "The last drive died" in drive.said(), "the death is told")
                drive.await_log("96x64", round_ + 1)
                end = time.monotonic() + chance.uniform(0.1, 4.0)
                while time.monotonic() < end:
                    drive.press_button()
                    time.sleep(0.1)
                drive.process.send_signal(signal.SIGKILL)
                drive.process.wait()

    @repeated_when_too_slow
    def test_after_fifty_kills_every_finished_clip_is_whole(self):
        seed = random.randrange(1 << 30)
        print("seed", seed, flush=True)
        folders = [scratch(self) for _ in range(at_once)]
        with concurrent.futures.ThreadPoolExecutor(at_once) as pool:
            for result in [pool.submit(self.drives, folder, seed + i)
                           for i, folder in enumerate(folders)]:
                result.result()
        whole = 0
        for folder in folders:
            for clip in clips(folder):
                check_whole(self, clip)
                whole += 1
            with Drive(folder) as drive:
                eventually(lambda: "The last drive died" in drive.said(), "the death is told")
                drive.await_log("160x120")
                drive.ignition_off()
            check_none_left_behind(drive.said())
            self.assertEqual(list(folder.glob("*.part")), [])
            self.assertEqual({path.stem for path in folder.glob("EVENT_*")},
                             {path.stem for path in clips(folder)})
            with Drive(folder) as drive:
                drive.await_log("the last drive ended properly")
                drive.ignition_off()
            self.assertNotIn("died", drive.said())
        print(whole, "whole clips", flush=True)
        self.assertGreater(whole, 0)


if __name__ == "__main__":
    main()

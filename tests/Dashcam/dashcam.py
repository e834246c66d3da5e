"""What the tests of the dashcam share: a drive in a folder of its own, and a look at what it leaves.

Every test is called with the path of tolvex-dashcam.
"""
import contextlib
import functools
import json
import os
import pathlib
import re
import shutil
import signal
import subprocess
import sys
import tempfile
import time
import unittest

program = sys.argv.pop(1)
patience = 60  # seconds; bounds a hang and asserts no speed
late_pictures = 2  # seconds; Recorder::AwaitEnd() waits so long for them
spare_second = 1  # the ring of the recorder is longer by so much, for late events
small = {"width": 160, "height": 120, "framesPerSecond": 15, "keyInterval": 5,
         "kilobitsPerSecond": 200, "secondsBefore": 1, "secondsAfter": 1, "longestClip": 10,
         "threshold": 0.6, "sensorRange": 4, "samplesPerSecond": 50, "latitude": 46.9,
         "longitude": 7.4, "folderMegabytes": 100, "diskFloorMegabytes": 0, "key": "a test's key"}


def eventually(condition, what):
    """Waits until a condition holds, and returns its value.

    @param what  What is awaited: a text, or a function that makes it when it never came.
    """
    deadline = time.monotonic() + patience
    while not (value := condition()):
        if time.monotonic() > deadline:
            raise AssertionError(f"never: {what if isinstance(what, str) else what()}")
        time.sleep(0.02)
    return value


def boot_clock():
    return time.clock_gettime(time.CLOCK_BOOTTIME)


def clocks():
    """The clock that people read, and that of the boot, at one moment."""
    while True:
        boot, wall = boot_clock(), time.time()
        if boot_clock() - boot < 0.005:
            return wall, boot


class Drive:
    """The program, running. The folder may be that of an earlier drive."""

    def __init__(self, folder, *options, settings=None, output=None, launcher=()):
        self.folder = pathlib.Path(folder)
        self.final = ""
        self.work = pathlib.Path(tempfile.mkdtemp(prefix="dashcam."))
        self.fifo = self.work / "acceleration"
        os.mkfifo(self.fifo)
        self.writer = os.open(self.fifo, os.O_RDWR)
        (self.work / "settings.json").write_text(json.dumps(small | (settings or {})))
        arguments = {"--folder": str(folder), "--settings": str(self.work / "settings.json"),
                     "--acceleration": str(self.fifo), "--seconds": "0"}
        arguments |= dict(zip(options[::2], options[1::2]))
        self.output = open(self.work / "output", "w+")
        self.process = subprocess.Popen(
            [*launcher, program] + [word for pair in arguments.items() for word in pair],
            stdin=subprocess.DEVNULL, stdout=output or self.output, stderr=subprocess.STDOUT)

    def __enter__(self):
        return self

    def __exit__(self, *_):
        if self.process.poll() is None:
            self.process.kill()
            self.process.wait()
        self.final = self.said()
        os.close(self.writer)
        self.output.close()
        shutil.rmtree(self.work)
        if re.search("(ERROR|WARNING): [A-Z][A-Za-z]+Sanitizer|runtime error:", self.final):
            findings = re.findall("^SUMMARY: .*", self.final, re.MULTILINE)
            raise AssertionError("\n".join([*findings, self.final]))

    def said(self):
        """What the program has printed."""
        return self.final or (self.work / "output").read_text(errors="replace")

    def log(self):
        try:
            return (self.folder / "dashcam.log").read_text(errors="replace")
        except FileNotFoundError:  # not yet, or just renamed because it is full
            return ""

    def await_log(self, text, times=1):
        eventually(lambda: self.log().count(text) >= times,
                   lambda: f"{times} x {text!r} in:\n{self.log()[-4000:]}")

    def await_pictures(self, drives=1):
        """Waits until the ring holds the seconds before an event.

        @param drives  How many drives have written to this log, with this one.
        """
        self.await_log("160x120", drives)
        time.sleep(small["secondsBefore"] + 1.5)

    def samples(self, *rows):
        """One write, so that the program reads all of them at once."""
        os.write(self.writer, "".join(f"{x} {y} {z}\n" for x, y, z in rows).encode())

    def shock(self, *rest):
        """A shock, and samples that follow it at once."""
        self.samples((-64, 0, 32), *rest)

    def press_button(self):
        self.process.send_signal(signal.SIGUSR1)

    def await_event(self, cause, happen):
        """Makes an event happen, and waits until the log tells of it.

        Returns the clocks before and after that.
        """
        text = f"event: {cause}"
        known = self.log().count(text)
        before = clocks()
        happen()
        self.await_log(text, known + 1)
        return before, clocks()

    def ignition_off(self):
        self.process.send_signal(signal.SIGTERM)
        code = self.process.wait(patience)
        # A drive that ends before its first picture says so by its exit code.
        if code != 0 and not (code == 1 and took_no_picture(self.said())):
            raise AssertionError(f"ended with {code}:\n{self.said()}{self.log()}")

    def ignition_off_without_picture(self):
        """Ends a drive that took no picture and says so by its exit code."""
        self.process.terminate()
        code = self.process.wait(patience)
        if code != 1:
            raise AssertionError(f"ended with {code}:\n{self.said()}{self.log()}")


display_line = re.compile(r"(?P<time>\d\d:\d\d:\d\d)  (?P<frames>\d+) frames( \(\d+ lost\))?"
                          r"  ring (?P<fill>\d+) %  ((?P<temperature>-?\d+) C  )?(?P<last>\S.*)")


def place_where_it_is(hour):
    """Settings of a place on the equator, where the sun's time is now this hour."""
    now = time.gmtime()
    east = (hour - now.tm_hour - now.tm_min / 60) * 15
    return {"latitude": 0.0, "longitude": (east + 180) % 360 - 180}


def clips(folder):
    """The finished clips, the oldest first."""
    found = []
    for path in pathlib.Path(folder).glob("*.mp4"):
        with contextlib.suppress(FileNotFoundError):  # the drive removes clips to make room
            found.append((path.stat().st_mtime_ns, path))
    return [path for _, path in sorted(found)]


def side(clip):
    """The side file of a clip, by a reader that takes standard JSON alone."""
    def refuse(word):
        raise AssertionError(f"{word} is no JSON")
    return json.loads(clip.with_suffix(".json").read_text(encoding="utf-8"), parse_constant=refuse)


def signature(clip, key=small["key"]):
    """What openssl makes of a clip and its side file."""
    text = clip.read_bytes() + clip.with_suffix(".json").read_bytes()
    made = subprocess.run(["openssl", "dgst", "-sha1", "-hmac", key, "-binary"], input=text,
                          capture_output=True, check=True)
    return subprocess.run(["base64"], input=made.stdout, capture_output=True,
                          check=True).stdout.decode().strip()


def decode(clip):
    """Decodes every frame. Returns what was wrong; empty when nothing was."""
    run = subprocess.run(["ffmpeg", "-v", "error", "-xerror", "-i", clip, "-f", "null", "-"],
                         capture_output=True, text=True, timeout=patience)
    return run.stderr or ("" if run.returncode == 0 else f"code {run.returncode}")


def packets(clip):
    """Time and key flag of every frame in the file."""
    run = subprocess.run(["ffprobe", "-v", "error", "-show_entries", "packet=pts_time,flags",
                          "-of", "json", clip], capture_output=True, text=True, check=True,
                         timeout=patience)
    return [(float(packet["pts_time"]), "K" in packet["flags"])
            for packet in json.loads(run.stdout)["packets"]]


def codec(clip):
    """The name of the codec of the video."""
    run = subprocess.run(["ffprobe", "-v", "error", "-show_entries", "stream=codec_name", "-of",
                          "csv=p=0", clip], capture_output=True, text=True, check=True,
                         timeout=patience)
    return run.stdout.strip()


def check_whole(test, clip, key=small["key"], key_interval=small["keyInterval"]):
    """A clip as it has to be: decodes, begins with a key frame, belongs to its other files.

    Key frames come at their fixed interval, and nowhere else.
    """
    test.assertEqual(decode(clip), "", clip)
    test.assertEqual(codec(clip), "h264")
    frames = packets(clip)
    test.assertEqual([number for number, (_, is_key) in enumerate(frames) if is_key],
                     list(range(0, len(frames), key_interval)), "numbers of the key frames")
    data = side(clip)
    test.assertEqual(data["clip"], clip.name)
    test.assertEqual(len(frames), data["frames"]["count"])
    test.assertEqual(clip.with_suffix(".sig").read_text().strip(), signature(clip, key))
    test.assertEqual(clip.with_suffix(".jpg").read_bytes()[:2], b"\xff\xd8")
    return data


def seconds_after(data, number):
    """How many seconds of the clip follow one of its events, to the microsecond."""
    return round(data["seconds"] - data["events"][number]["second"], 6)


class TooSlow(AssertionError):
    """The machine was too slow for the test, and a measurement or the program says so."""


def check_no_gap(test, frames):
    """Every picture is in the clip. What is missing has to be named as a gap all the same."""
    missing = sum(gap["missing"] for gap in frames["gaps"])
    test.assertEqual(frames["last"] - frames["first"] + 1, frames["count"] + missing)
    if missing:
        raise TooSlow(frames["gaps"])


def check_reach(test, clip, data, before, after, handled=0.0):
    """A clip has every picture, the seconds before its first event and those after its last one.

    @param handled  The seconds in which the program has begun the clip.
    """
    check_no_gap(test, data["frames"])
    if data["events"][0]["second"] < before:
        if data["frames"]["first"] == 0:
            raise TooSlow("the first picture came too late for the seconds before the event")
        if handled > spare_second:
            raise TooSlow(f"the event was handled after {handled} s, and the ring went on")
    if seconds_after(data, -1) < after:
        wall, boot = clocks()
        written = clip.with_suffix(".jpg").stat().st_mtime - wall + boot
        since = written - data["bootSeconds"] - data["events"][-1]["second"] + data["events"][0]["second"]
        if since > after + late_pictures:
            raise TooSlow(f"no picture came for so long that the clip ended {since} s after its event")
    test.assertGreaterEqual(data["events"][0]["second"], before)
    test.assertGreaterEqual(seconds_after(data, -1), after)


def took_no_picture(said):
    """Whether the last display line of a drive counts no frame."""
    return any("  0 frames" in line for line in said.splitlines()[-4:])


def check_none_left_behind(said):
    """All parts ended within their budgets, so the files are complete. IgnitionOffTest holds that.

    @param said  What the program has printed.
    """
    if left := re.findall(r"^(\w+) hangs", said, re.MULTILINE):
        raise TooSlow(f"left behind at ignition off: {left}")


def repeated_when_too_slow(method):
    """Tries again: pictures that a busy machine had no time for are no fault of the program."""
    @functools.wraps(method)
    def repeated(test, *arguments, **named):
        for last in (False, False, True):
            try:
                return method(test, *arguments, **named)
            except TooSlow as reason:
                print(f"too slow: {reason}", file=sys.stderr, flush=True)
                if last and "DASHCAM_SANITIZED" in os.environ:
                    test.skipTest(f"the sanitizer is too slow: {reason}")
                if last:
                    raise
    return repeated


def scratch(test):
    """A folder that ends with the test."""
    directory = tempfile.TemporaryDirectory(prefix="dashcam.")
    test.addCleanup(directory.cleanup)
    return pathlib.Path(directory.name)


def summary_of(traceback):
    """One line: what was raised, and by which lines of the tests."""
    lines = traceback.splitlines()
    places = [number for number, line in enumerate(lines) if line.startswith("  File ")]
    raised = [line for line in lines[places[-1]:] if line and not line.startswith(" ")] if places else lines
    where = re.findall(r'File ".*/Dashcam/(\w+\.py)", line (\d+)', traceback)
    return f"{raised[0][:300]} ({', '.join(':'.join(place) for place in where)})"


def main():
    """Runs all tests. The last lines tell what failed, because a log may be cut off before them."""
    result = unittest.main(verbosity=2, exit=False).result
    for test, traceback in result.failures + result.errors:
        print(f"failed: {test.id().split('.', 1)[1]}: {summary_of(traceback)}", file=sys.stderr)
    sys.exit(not result.wasSuccessful())

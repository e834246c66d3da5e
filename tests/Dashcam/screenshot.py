#!/usr/bin/env python3
"""Drives for half a minute and stores a picture of the page: the one in docs/ and the README.

usage: screenshot.py PROGRAM [FILE.png]      needs chromium and chromium-driver
"""
import json
import pathlib
import subprocess
import sys
import tempfile
import time

from browser import Browser

root = pathlib.Path(__file__).resolve().parents[2]
program = sys.argv[1]
picture = pathlib.Path(sys.argv[2]) if len(sys.argv) > 2 else root / "docs/dashcam.png"

# The test picture shows daylight: drive where it is noon now, at the equator.
now = time.gmtime()
longitude = (12 - now.tm_hour - now.tm_min / 60) * 15
settings = json.loads((root / "examples/dashcam/settings.json").read_text())
settings |= {"latitude": 0.0, "longitude": longitude}

with tempfile.TemporaryDirectory() as work:
    (pathlib.Path(work) / "settings.json").write_text(json.dumps(settings))
    folder = f"{work}/clips"
    subprocess.run([program, "--folder", folder, "--settings", f"{work}/settings.json",
                    "--acceleration", root / "examples/dashcam/drive.txt", "--seconds", "27"],
                   check=True)
    with Browser() as browser:
        browser.resize(1180, 1360)
        browser.open(f"{folder}/index.html")
        browser.await_videos()
        # The controls of a player cover the road.
        browser.run("document.querySelectorAll('video').forEach(v => v.controls = false)")
        time.sleep(2)  # until the players show no sign of loading
        browser.screenshot(picture)
print(picture, picture.stat().st_size, "bytes")

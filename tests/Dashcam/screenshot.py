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
from dashcam import place_where_it_is, program

root = pathlib.Path(__file__).resolve().parents[2]
picture = pathlib.Path(sys.argv[1]) if len(sys.argv) > 1 else root / "docs/dashcam.png"

settings = json.loads((root / "examples/dashcam/settings.json").read_text())
settings |= place_where_it_is(12)  # the test picture shows daylight

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

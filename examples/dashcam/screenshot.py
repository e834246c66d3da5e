#!/usr/bin/env python3
"""Drives for half a minute and stores a picture of the page: the one in docs/ and the README.

usage: screenshot.py PROGRAM [FILE.png]      needs chromium and chromium-driver
"""
import pathlib
import subprocess
import sys
import tempfile
import time

root = pathlib.Path(__file__).resolve().parents[2]
sys.path.insert(0, str(root / "tests/Dashcam"))
from browser import Browser  # noqa: E402

program = sys.argv[1]
picture = pathlib.Path(sys.argv[2]) if len(sys.argv) > 2 else root / "docs/dashcam.png"
with tempfile.TemporaryDirectory() as folder:
    subprocess.run([program, "--folder", folder, "--seconds", "27"], check=True)
    with Browser() as browser:
        browser.resize(1180, 1100)
        browser.open(f"{folder}/index.html")
        browser.await_videos()
        time.sleep(2)  # until the players show no sign of loading
        browser.screenshot(picture)
print(picture, picture.stat().st_size, "bytes")

"""A headless browser, steered through its driver by WebDriver over HTTP."""
import base64
import http.client
import json
import re
import shutil
import subprocess
import time

available = bool(shutil.which("chromium") and shutil.which("chromedriver"))


class Browser:
    """One browser with one window."""

    def __init__(self, width=1280, height=900):
        self.driver = subprocess.Popen(["chromedriver", "--port=0"], stdout=subprocess.PIPE,
                                       stderr=subprocess.DEVNULL, text=True)
        self.session = ""
        for line in self.driver.stdout:
            if port := re.search(r"on port (\d+)\.$", line):
                break
        self.port = int(port[1])
        options = {"binary": shutil.which("chromium"),
                   "args": ["--headless=new", "--no-sandbox", "--disable-gpu", "--hide-scrollbars",
                            "--disable-dev-shm-usage", "--force-device-scale-factor=1",
                            f"--window-size={width},{height}"]}
        wishes = {"goog:chromeOptions": options, "goog:loggingPrefs": {"browser": "ALL"}}
        for attempts_left in (2, 1, 0):
            try:
                self.session = self.call("", {"capabilities": {"alwaysMatch": wishes}})["sessionId"]
                break
            except AssertionError:  # the driver gives up when the browser starts too slowly
                if attempts_left == 0:
                    raise

    def __enter__(self):
        return self

    def __exit__(self, *_):
        try:
            self.call("", method="DELETE")
        finally:
            self.driver.terminate()
            self.driver.wait()
            self.driver.stdout.close()

    def call(self, command, body=None, method="POST"):
        connection = http.client.HTTPConnection("127.0.0.1", self.port, timeout=120)
        path = f"/session/{self.session}{command}" if self.session else "/session"
        connection.request(method, path, json.dumps(body or {}),
                           {"Content-Type": "application/json"})
        value = json.loads(connection.getresponse().read())["value"]
        connection.close()
        if isinstance(value, dict) and "error" in value:
            raise AssertionError(value["message"])
        return value

    def open(self, path, dark=False):
        """Shows a file, light or dark."""
        self.protocol("Emulation.setEmulatedMedia", media="", features=[
            {"name": "prefers-color-scheme", "value": "dark" if dark else "light"}])
        self.call("/url", {"url": f"file://{path}"})

    def protocol(self, command, **parameters):
        return self.call("/goog/cdp/execute", {"cmd": command, "params": parameters})

    def resize(self, width, height):
        """Sets the size of the page, which may be smaller than a window can be."""
        self.protocol("Emulation.setDeviceMetricsOverride", width=width, height=height,
                      deviceScaleFactor=1, mobile=width < 600)

    def run(self, script):
        """Runs a script in the page and returns its result."""
        return self.call("/execute/sync", {"script": script, "args": []})

    def console(self):
        """What was written to the console since the last call."""
        return [entry["message"] for entry in self.call("/se/log", {"type": "browser"})]

    def screenshot(self, path):
        """Stores a picture of the whole page, or of the visible part."""
        path.write_bytes(base64.b64decode(self.call("/screenshot", method="GET")))

    def await_videos(self):
        """Waits until the browser knows all videos or has given up; returns their lengths."""
        deadline = time.monotonic() + 60
        while not self.run("return [...document.querySelectorAll('video')].every("
                           "v => v.readyState >= 2 || v.error)"):
            if time.monotonic() > deadline:
                raise AssertionError("the videos do not load")
            time.sleep(0.1)
        return self.run("return [...document.querySelectorAll('video')].map("
                        "v => v.error ? v.error.message : v.duration)")

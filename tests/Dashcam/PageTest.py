#!/usr/bin/env python3
"""The page of two events in a real browser."""
import re
import time
import unittest

from browser import Browser, available
from dashcam import (Drive, TooSlow, check_none_left_behind, clips, decode, eventually, main,
                     repeated_when_too_slow, scratch, side, small)


@unittest.skipUnless(available, "needs chromium and chromium-driver")
class PageTest(unittest.TestCase):
    @repeated_when_too_slow
    def setUp(self):
        self.folder = scratch(self)
        with Drive(self.folder) as drive:
            drive.await_pictures()
            begin = time.monotonic()
            drive.shock((-127, 0, 32), ("no", "more", "samples"))  # the shock grows after its event
            drive.await_log("no samples")
            shock_length = time.monotonic() - begin
            eventually(lambda: len(clips(self.folder)) == 1, "a clip of the shock")
            begin = time.monotonic()
            drive.samples((0, 0, 32))  # at rest: so that this clip has a chart too
            drive.await_event("button", drive.press_button)
            drive.samples((0, 0, 32))
            button_length = time.monotonic() - begin
            eventually(lambda: len(clips(self.folder)) == 2, "a clip of the button")
            drive.ignition_off()
        self.page = self.folder / "index.html"
        check_none_left_behind(drive.said())
        for clip, length, count in zip(clips(self.folder), (shock_length, button_length), (2, 1)):
            if len(side(clip)["acceleration"]) < count and length > small["secondsAfter"]:
                raise TooSlow("the clip may have ended before its last samples were read")

    def test_page_shows_both_videos_stills_charts_and_tables_without_an_error(self):
        newest_first = clips(self.folder)[::-1]
        backgrounds, columns = {}, {}
        with Browser() as browser:
            for dark in (False, True):
                for width in (1280, 390):
                    browser.resize(width, 800)
                    browser.open(self.page, dark)
                    lengths = browser.await_videos()
                    self.assertEqual(len(lengths), 2)
                    for length, clip in zip(lengths, newest_first):
                        self.assertAlmostEqual(length, side(clip)["seconds"], delta=0.2)
                    self.assertEqual(browser.console(), [])
                    self.assertLessEqual(browser.run("return document.body.scrollWidth"), width)
                    backgrounds[dark] = browser.run(
                        "return getComputedStyle(document.body).backgroundColor")
                    columns[width] = browser.run("return getComputedStyle(document.querySelector("
                                                 "'.columns')).gridTemplateColumns.split(' ').length")
            self.assertEqual(backgrounds, {False: "rgb(244, 245, 247)", True: "rgb(14, 16, 19)"})
            self.assertEqual(columns, {1280: 2, 390: 1})
            order = browser.run("return [...document.querySelectorAll('video')].map("
                                "v => v.getAttribute('src'))")
            self.assertEqual(order, [clip.name for clip in newest_first])
            stills = browser.run("return [...document.querySelectorAll('img')].map("
                                 "i => i.complete && i.naturalWidth)")
            self.assertEqual(stills, [160, 160])
            lines = browser.run("return [...document.querySelectorAll('article svg')].map(s => "
                                "[...s.querySelectorAll('polyline')].map(l => l.points.length))")
            samples = [len(side(clip)["acceleration"]) for clip in newest_first]
            self.assertEqual(lines, [[count] * 3 for count in samples], "a line for each axis")
            causes = browser.run("return [...document.querySelectorAll('.cause')].map("
                                 "c => c.textContent)")
            self.assertEqual(causes, ["Driver's button", "Shock of 4.0 g"])
            self.assertIn(side(newest_first[0])["identifier"],
                          browser.run("return document.querySelector('article table').innerText"))
            plays = browser.run("const v = document.querySelector('video'); v.muted = true;"
                                "return v.play().then(() => true, e => e.message)")
            self.assertIs(plays, True)
            self.assertEqual(browser.console(), [])

    def test_page_asks_nothing_of_the_network_and_every_link_leads_to_a_file(self):
        self.assertEqual(re.findall(r"https?://\S+", self.page.read_text()), [])
        with Browser() as browser:
            browser.open(self.page)
            links = browser.run("return [...document.querySelectorAll('[src], [href], [poster]')].flatMap("
                                "e => ['src', 'href', 'poster'].map(n => e.getAttribute(n) ?? ''))")
            for link in filter(None, links):
                if not link.startswith(("data:", "#")):
                    self.assertTrue((self.folder / link).exists(), link)
            self.assertGreaterEqual(len([link for link in links if link.endswith(".sig")]), 2)
            anchors = [link[1:] for link in links if link.startswith("#")]
            self.assertEqual(anchors, browser.run("return [...document.querySelectorAll('article')].map("
                                                  "a => a.id)"))
            loaded = browser.run("return performance.getEntriesByType('resource').map(r => r.name)")
            self.assertTrue(all(name.startswith("file:") for name in loaded), loaded)

    def test_text_in_a_side_file_cannot_become_markup(self):
        clip = clips(self.folder)[0]
        file = clip.with_suffix(".json")
        attack = "</script><img src=x onerror=alert(1)>"
        file.write_text(file.read_text().replace('"localTime":"', '"localTime":"' + attack)
                        .replace('"log":"', '"log":"' + attack)
                        .replace('"acceleration":[', '"acceleration":["abcd",[0,1e308,0,0],[1e300,0,0,0],')
                        .replace('"identifier":', '"identifier":{"toString":1},"other":'))
        (self.folder / '"><i id=abc>010120000000.mp4').write_bytes(b"")
        other = clips(self.folder)[1].with_suffix(".json")
        other.write_text('{"broken')
        with Drive(self.folder) as drive:
            drive.await_pictures(drives=2)
            drive.press_button()
            eventually(lambda: len(list(self.folder.glob("EVENT_*.mp4"))) == 3, "a third clip")
            drive.ignition_off()
        with Browser() as browser:
            browser.open(self.page)
            titles = browser.run("return [...document.querySelectorAll('h2')].map(h => h.textContent)")
            self.assertEqual(len(titles), 3)
            self.assertTrue(titles[2].startswith(attack), titles)
            self.assertEqual(browser.run("return document.querySelectorAll('i').length"), 0)
            charts = browser.run("return [...document.querySelectorAll('article')].map("
                                 "a => a.querySelectorAll('svg').length)")
            self.assertEqual(charts[1:], [0, 1])
            self.assertIn(attack, browser.run("return document.body.textContent"))
            self.assertEqual(browser.run("return document.querySelectorAll('[onerror]').length"), 0)
            self.assertEqual(browser.run("return document.querySelectorAll('main script').length"), 0)
            self.assertEqual(browser.console(), [])
        self.assertEqual(decode(clip), "")


if __name__ == "__main__":
    main()

#!/usr/bin/env python3
"""The page of two events in a real browser."""
import re
import unittest

from browser import Browser, available
from dashcam import Drive, clips, decode, eventually, main, scratch, side


@unittest.skipUnless(available, "needs chromium and chromium-driver")
class PageTest(unittest.TestCase):
    def setUp(self):
        self.folder = scratch(self)
        with Drive(self.folder) as drive:
            drive.await_pictures()
            drive.shock()
            eventually(lambda: len(clips(self.folder)) == 1, "a clip of the shock")
            drive.press_button()
            drive.sample(0, 0, 32)  # at rest: so that this clip has a chart too
            eventually(lambda: len(clips(self.folder)) == 2, "a clip of the button")
            drive.ignition_off()
        self.page = self.folder / "index.html"

    def test_page_shows_both_videos_stills_charts_and_tables_without_an_error(self):
        newest_first = clips(self.folder)[::-1]
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
            order = browser.run("return [...document.querySelectorAll('video')].map("
                                "v => v.getAttribute('src'))")
            self.assertEqual(order, [clip.name for clip in newest_first])
            stills = browser.run("return [...document.querySelectorAll('img')].map("
                                 "i => i.complete && i.naturalWidth)")
            self.assertEqual(stills, [160, 160])
            self.assertEqual(browser.run("return document.querySelectorAll('article svg').length"), 2)
            self.assertIn(side(newest_first[0])["identifier"],
                          browser.run("return document.querySelector('article table').innerText"))
            plays = browser.run("const v = document.querySelector('video'); v.muted = true;"
                                "return v.play().then(() => true, e => e.message)")
            self.assertIs(plays, True)
            self.assertEqual(browser.console(), [])

    def test_page_asks_nothing_of_the_network_and_runs_no_script(self):
        text = self.page.read_text()
        self.assertNotIn("<script", text)
        self.assertEqual(re.findall(r"https?://\S+", text), [])
        for reference in re.findall(r'(?:src|href|poster)="([^"#]+)"', text):
            if not reference.startswith("data:"):
                self.assertTrue((self.folder / reference).exists(), reference)

    def test_text_in_a_side_file_cannot_become_markup(self):
        clip = clips(self.folder)[0]
        file = clip.with_suffix(".json")
        file.write_text(file.read_text().replace('"localTime":"', '"localTime":"<script>alert(1)</script>'))
        other = clips(self.folder)[1].with_suffix(".json")
        other.write_text('{"broken')
        with Drive(self.folder) as drive:
            drive.await_pictures()
            drive.press_button()
            eventually(lambda: len(clips(self.folder)) == 3, "a third clip")
            drive.ignition_off()
        text = self.page.read_text()
        self.assertNotIn("<script", text)
        self.assertIn("&lt;script>", text)
        self.assertEqual(text.count("<article"), 3)
        self.assertEqual(decode(clip), "")


if __name__ == "__main__":
    main()

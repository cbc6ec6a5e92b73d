#!/usr/bin/env python3
"""A report in real browsers, Chromium and Firefox: nothing of a bookmark runs, it fits a phone and a desk, in light and dark,
axe-core finds no fault, keys and search work, and it can be read without its script.

usage: report_test.py BUILD_DIRECTORY [TEST...]

Leaves pictures of the page in BUILD_DIRECTORY/report-pictures.
"""

import os
import pathlib
import sys
import tempfile
import unittest

sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))

import axe  # noqa: E402
import report_home  # noqa: E402
from browsers import Chromium, Firefox  # noqa: E402
from homes import Tools  # noqa: E402

BUILD = None
WIDTHS = (360, 800, 1400)
HEIGHT = 1000
TALL = 5600  # for pictures, down into the tree
SCHEMES = ("light", "dark")
FOLDERS, IN_FOLDER = 130, 40  # of a large tree
TAB, ENTER, ESCAPE = "\ue004", "\ue007", "\ue00c"

RUN_AXE = """
const [source] = arguments;
if (!window.axe) new Function('window', source).call(window, window);
const library = window.axe;
return library.run(document, {resultTypes: ['violations']}).then(found => found.violations.flatMap(each =>
  each.nodes.map(node => each.id + ': ' + each.help + ': ' + node.target + ' ' + node.failureSummary)));
"""
# The names of what sticks out of the window.
STICKING_OUT = """
const width = document.documentElement.clientWidth;
if (document.documentElement.scrollWidth <= width) return [];
return [...document.querySelectorAll('main *')].filter(each => each.getBoundingClientRect().right > width + 1)
  .map(each => each.tagName + '.' + each.className + ' ' + each.textContent.slice(0, 40)).slice(0, 5);
"""
LOADED = """
return {alarm: typeof window.alarm, scripts: document.scripts.length, strange: document.querySelectorAll(
  'img, iframe, object, embed, form, base, link, svg [onload], [onclick], [onerror], [onfocus], [style]').length,
  links: [...document.links].map(each => each.protocol).filter(each => !/^(https?|file):$/.test(each)),
  files: [...document.links].filter(each => each.protocol === 'file:' && !each.getAttribute('href').startsWith('#')).length};
"""


class ReportInABrowser:
    """What holds in each browser; TestCases below name one."""

    @classmethod
    def setUpClass(cls):
        cls.library = axe.source(BUILD)
        cls.pictures = pathlib.Path(BUILD, "report-pictures")
        cls.pictures.mkdir(exist_ok=True)
        cls.directory = cls.enterClassContext(tempfile.TemporaryDirectory())
        page, _ = report_home.make_page(Tools(os.path.join(BUILD, "bin")), cls.directory)
        cls.address = pathlib.Path(page).as_uri()
        cls.large = report_home.make_large_page(Tools(os.path.join(BUILD, "bin")), cls.directory, FOLDERS, IN_FOLDER).as_uri()
        cls.browser = cls.enterClassContext(cls.kind())

    def setUp(self):
        self.browser.look(1400, HEIGHT, "light")
        self.browser.open(self.address)

    def unfold_all(self):
        self.browser.script("document.getElementById('unfold').click()")

    def test_nothing_of_a_bookmark_runs(self):
        self.unfold_all()
        self.browser.script("""
            for (const each of document.querySelectorAll('main *')) {
              each.dispatchEvent(new MouseEvent('mouseover', {bubbles: true}));
              each.dispatchEvent(new FocusEvent('focus'));
            }""")
        self.assertEqual(self.browser.script(LOADED),
                         {"alarm": "undefined", "scripts": 1, "strange": 0, "links": [], "files": 0})
        self.assertEqual(self.browser.messages(), [])

    def test_policy_stops_what_is_added(self):
        self.browser.script("""
            for (const [tag, text] of [['script', 'window.alarm=1'], ['style', 'body{display:none}']]) {
              const element = document.createElement(tag);
              element.append(text);
              document.body.append(element);
            }""")
        self.assertEqual(self.browser.script("return [typeof window.alarm, getComputedStyle(document.body).display]"),
                         ["undefined", "grid"])
        self.browser.messages()

    def test_fits_phone_and_desk_in_light_and_dark_without_a_fault(self):
        grounds = set()
        for scheme in SCHEMES:
            for width in WIDTHS:
                with self.subTest(scheme=scheme, width=width):
                    self.browser.look(width, TALL, scheme)
                    self.browser.open(self.address)
                    self.browser.screenshot(self.pictures / f"{self.name}-{scheme}-{width}.png")
                    self.unfold_all()
                    self.assertEqual(self.browser.script(STICKING_OUT), [])
                    self.assertEqual(self.browser.script(RUN_AXE, self.library), [])
                    grounds.add(self.browser.script("return getComputedStyle(document.body).backgroundColor"))
        self.assertEqual(len(grounds), len(SCHEMES))

    def test_search_finds_titles_and_addresses(self):
        self.browser.script("document.getElementById('search').focus()")
        for words, count, first in (("DEEP", 1, "Deep Reading › Inside"), ("page 1", 12, None), ("weather.example", 2, None),
                                    ("</script>", 4, None)):
            with self.subTest(words=words):
                self.browser.press(*words)
                found = self.wait_for_results(count)
                if first:
                    self.assertEqual(found, [first])
                self.browser.press(ESCAPE)
        self.assertTrue(self.browser.script("return document.getElementById('results').hidden"))
        self.assertEqual(self.browser.script("return typeof window.alarm"), "undefined")

    def wait_for_results(self, count):
        found = self.browser.script("""
            const [count] = arguments, list = document.getElementById('results');
            return new Promise(resolve => {
              const end = Date.now() + 20000;
              const look = () => list.children.length === count || Date.now() > end
                ? resolve([...list.children].map(each => each.textContent)) : setTimeout(look, 20);
              look();
            });""", count)
        self.assertEqual(len(found), count, found)
        self.assertEqual(self.browser.script("return document.getElementById('found').textContent"), f"Found: {count}")
        return found

    def test_keys_reach_and_unfold_a_folder(self):
        self.browser.script("document.getElementById('fold').click(); document.getElementById('fold').focus();")
        self.browser.press(TAB)
        focus = "const at = document.activeElement; return [at.tagName, at.textContent, at.parentElement.open]"
        self.assertEqual(self.browser.script(focus), ["SUMMARY", "BookmarksBar 2", False])
        self.browser.press(ENTER)
        self.assertEqual(self.browser.script(focus), ["SUMMARY", "BookmarksBar 2", True])
        self.browser.press(TAB)
        self.assertEqual(self.browser.script(focus)[1], "Weather")

    def test_large_tree_is_made_as_it_is_unfolded(self):
        self.browser.open(self.large)
        made = "return document.querySelectorAll('.tree li').length"
        self.assertEqual(self.browser.script(made), 1)
        self.browser.script("document.querySelector('.tree details').open = true")
        self.browser.wait_for(lambda: self.browser.script(made) == 1 + FOLDERS)
        self.browser.script("document.querySelectorAll('.tree details')[2].open = true")
        self.browser.wait_for(lambda: self.browser.script(made) == 1 + FOLDERS + IN_FOLDER)
        self.assertEqual(self.browser.script("return document.querySelectorAll('.tree details')[2].textContent.slice(0, 27)"),
                         f"Folder 1 {IN_FOLDER}Page 1.0Page 1.1")
        self.browser.script("document.getElementById('search').focus()")
        self.browser.press(*"page 77.8 ")
        self.assertEqual(self.wait_for_results(1), ["Page 77.8 Shelf › Folder 77"])
        self.browser.press(ESCAPE)
        self.unfold_all()
        self.assertEqual(self.browser.script(made), 1 + FOLDERS * (1 + IN_FOLDER))
        self.assertEqual(self.browser.script("return document.querySelectorAll('.tree details:not([open])').length"), 0)

    def test_first_key_skips_to_the_bookmarks(self):
        self.browser.press(TAB)
        self.assertEqual(self.browser.script("return document.activeElement.getAttribute('href')"), "#bookmarks")

    def test_prints_without_what_only_a_screen_can_do(self):
        shown = self.browser.script("""
            const rules = [...document.styleSheets[0].cssRules].filter(each => each.media?.mediaText === 'print');
            return rules.flatMap(each => [...each.cssRules]).filter(each => each.style.display === 'none')
              .map(each => each.selectorText);""")
        self.assertEqual(shown, ["nav, .skip, .finder, button"])


class ChromiumReport(ReportInABrowser, unittest.TestCase):
    kind, name = Chromium, "chromium"

    def test_can_be_read_without_its_script(self):
        self.browser.command("Emulation.setScriptExecutionDisabled", value=True)
        try:
            self.browser.open(self.address)
            self.assertTrue(self.browser.script("return document.querySelector('.finder').hidden"))
            self.assertEqual(self.browser.script("return document.querySelectorAll('.tree li li').length"), 69)
        finally:
            self.browser.command("Emulation.setScriptExecutionDisabled", value=False)


class FirefoxReport(ReportInABrowser, unittest.TestCase):
    kind, name = Firefox, "firefox"


if __name__ == "__main__":
    BUILD = os.path.abspath(sys.argv.pop(1))
    unittest.main(verbosity=2)

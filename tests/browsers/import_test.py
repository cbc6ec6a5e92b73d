#!/usr/bin/env python3
"""What real browsers write of their bookmarks, Chromium and Firefox, comes in by `loomerctl import`, while they run and after;
what `loomerctl export` writes, both read.

usage: import_test.py BUILD_DIRECTORY [TEST...]
"""

import json
import os
import pathlib
import sys
import tempfile
import time
import unittest

sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))
sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "crash"))

from browsers import Chromium, Firefox  # noqa: E402
from homes import Home, Tools  # noqa: E402

BUILD = None
WRITTEN_SECONDS = 60  # a browser writes a few seconds after a change

# A folder is [title, contents], a bookmark [title, address]; null is a separator.
ODD = [
    ["<b>\"q\" & 'r'</b> %1 \\u", "http://odd.example/?a=1&copy=2"],
    ["  two  blanks ", "http://blanks.example/"],
    ["עברית \u202eturned\u202c 日本語 \U0001f600", "http://xn--wgv71a.example/%E6%97%A5"],
    ["", "http://untitled.example/"],
    ["a bookmarklet", "javascript:alert(%22x%22)"],
]
NEWS = ["News", [["Daily", "http://daily.example/"], ["Inner", [["Deep", "http://deep.example/"]]], ["Daily", "http://daily.example/"]]]


def tree(entries):
    """The records that `loomerctl tree` lists for these entries of the root."""
    def walk(nodes, depth):
        for title, contents in filter(None, nodes):
            is_folder = isinstance(contents, list)
            yield depth, title, None if is_folder else contents
            if is_folder:
                yield from walk(contents, depth + 1)
    return list(walk(entries, 0))


class Imports(unittest.TestCase):
    """Each test has one home for all that it imports."""

    def setUp(self):
        self.directory = self.enterContext(tempfile.TemporaryDirectory())
        self.homes = 0

    def new_home(self):
        self.homes += 1
        return Home(Tools(os.path.join(BUILD, "bin")), os.path.join(self.directory, f"home{self.homes}")).make()

    def run_in(self, home, *arguments):
        status, output = home.control(*arguments)
        self.assertEqual(status, 0, output)
        return output

    def records(self, home):
        listed = json.loads(self.run_in(home, "tree", "--json"))
        return [(record["depth"], record["title"], record.get("url")) for record in listed]

    def assert_comes_in(self, path, wanted, left_out):
        """The file brings the wanted tree, says what it leaves out, and brings nothing when it comes again."""
        home = self.new_home()
        preview = self.run_in(home, "import", "--dry-run", path)
        self.assertFalse(os.path.exists(home.store()))
        self.assertIn(left_out, preview)
        self.assertIn(left_out, self.run_in(home, "import", path))
        self.assertEqual(self.records(home), wanted)
        self.assertIn("is there already", self.run_in(home, "import", path))
        home.must_be_sound()
        return preview

    def wait_until(self, condition):
        end = time.monotonic() + WRITTEN_SECONDS
        while not condition():
            self.assertLess(time.monotonic(), end, "the browser writes nothing")
            time.sleep(0.1)


MAKE_IN_CHROMIUM = """
const roots = (await chrome.bookmarks.getTree())[0].children;
const make = async (entries, parentId) => {
  for (const [title, contents] of entries) {
    const isFolder = Array.isArray(contents);
    const made = await chrome.bookmarks.create(isFolder ? {parentId, title} : {parentId, title, url: contents});
    if (isFolder) await make(contents, made.id);
  }
};
const [entries] = arguments;
for (const root of roots) if (entries[root.folderType]) await make(entries[root.folderType], root.id);
"""
# What stands in an opened file, in the form of `records`.
READ_IN_CHROMIUM = """
const depth = each => { let lists = -1; while ((each = each.parentElement)) lists += each.tagName === "DL"; return lists; };
return [...document.querySelectorAll("h3, a")].map(each => [depth(each), each.textContent, each.getAttribute("href")]);
"""


class ChromiumImports(Imports):
    def test_bookmarks_of_its_profile_come_in(self):
        bar, other = [NEWS, *ODD], [["Loose", "http://loose.example/"], ["Empty", []]]
        with Chromium() as browser:
            browser.open("chrome://bookmarks")
            browser.script(f"return (async (...arguments) => {{{MAKE_IN_CHROMIUM}}})(...arguments);",
                           {"bookmarks-bar": bar, "other": other})
            path = pathlib.Path(browser.profile, "data", "Default", "Bookmarks")
            self.wait_until(lambda: path.exists() and '"Empty"' in path.read_text(encoding="utf-8"))
            wanted = tree([["BookmarksBar", bar], ["Other Bookmarks", other]])
            self.assert_comes_in(str(path), wanted, "Left out: 12 dates")
            self.check_export(browser, path, wanted)

    def check_export(self, browser, path, wanted):
        """Its parser finds in our HTML what is in the tree; its own importer has no way in for programs."""
        home = self.new_home()
        self.run_in(home, "import", str(path))
        exported = pathlib.Path(self.directory, "exported.html")
        self.run_in(home, "export", str(exported))
        browser.open(exported.as_uri())
        self.assertEqual([(depth, title, address) for depth, title, address in browser.script(READ_IN_CHROMIUM)], wanted)


# Everything but the separators' places goes by the same tree.
MAKE_IN_FIREFOX = """
const {PlacesUtils} = ChromeUtils.importESModule("resource://gre/modules/PlacesUtils.sys.mjs");
const {TYPE_BOOKMARK, TYPE_FOLDER, TYPE_SEPARATOR} = PlacesUtils.bookmarks;
const [roots] = arguments;
const form = entry => entry === null ? {type: TYPE_SEPARATOR} : Array.isArray(entry[1])
  ? {type: TYPE_FOLDER, title: entry[0], children: entry[1].map(form)} : {type: TYPE_BOOKMARK, title: entry[0], url: entry[1]};
await PlacesUtils.bookmarks.eraseEverything();
for (const [guid, entries] of Object.entries(roots)) {
  await PlacesUtils.bookmarks.insertTree({guid, children: entries.map(form)});
}
PlacesUtils.tagging.tagURI(Services.io.newURI("http://deep.example/"), ["red", "two words"]);
await PlacesUtils.keywords.insert({keyword: "o", url: "http://odd.example/?a=1&copy=2", postData: "q=%s"});
"""
BACK_UP_FIREFOX = """
const {PlacesBackups} = ChromeUtils.importESModule("resource://gre/modules/PlacesBackups.sys.mjs");
const {BookmarkHTMLUtils} = ChromeUtils.importESModule("resource://gre/modules/BookmarkHTMLUtils.sys.mjs");
const [json, html] = arguments;
await PlacesBackups.saveBookmarksToJSONFile(json);
await BookmarkHTMLUtils.exportToFile(html);
await PlacesBackups.create(5, true);
return await PlacesBackups.getMostRecentBackup();
"""
# What it holds after reading a file anew, in the form of `tree`.
READ_IN_FIREFOX = """
const {PlacesUtils} = ChromeUtils.importESModule("resource://gre/modules/PlacesUtils.sys.mjs");
const {BookmarkHTMLUtils} = ChromeUtils.importESModule("resource://gre/modules/BookmarkHTMLUtils.sys.mjs");
await PlacesUtils.bookmarks.eraseEverything();
await BookmarkHTMLUtils.importFromFile(arguments[0], {replace: true});
const form = node => [node.title ?? "", node.uri ?? (node.children ?? []).map(form)];
const whole = await PlacesUtils.promiseBookmarksTree("root________");
return Object.fromEntries(whole.children.map(root => [root.guid, (root.children ?? []).map(form)]));
"""


def in_firefox(browser, body, *arguments):
    return browser.in_browser(f"return (async (...arguments) => {{{body}}})(...arguments);", *arguments)


class FirefoxImports(Imports):
    def files_of(self, profile):
        return {name: os.stat(os.path.join(profile, name)).st_ino for name in os.listdir(profile) if "places" in name}

    def test_all_that_it_writes_comes_in_and_it_reads_what_is_exported(self):
        toolbar, menu = [NEWS, None, *ODD], [["In the menu", "http://menu.example/"], None, ["Empty", []]]
        other, mobile = [["Loose", "http://loose.example/"]], [["From a phone", "http://phone.example/"]]
        wanted = tree([["BookmarksMenu", menu], ["BookmarksBar", toolbar], ["Other Bookmarks", other], ["Mobile Bookmarks", mobile]])
        with Firefox() as browser:
            in_firefox(browser, MAKE_IN_FIREFOX, {"toolbar_____": toolbar, "menu________": menu, "unfiled_____": other,
                                                  "mobile______": mobile})
            self.check_database(browser, wanted)
            html, plain = (os.path.join(self.directory, name) for name in ("bookmarks.html", "backup.json"))
            compressed = in_firefox(browser, BACK_UP_FIREFOX, plain, html)
            self.check_backups(plain, compressed, wanted)
            self.check_export(browser, html, toolbar, menu, other)

    def check_database(self, browser, wanted):
        """While the browser has it open, and without a trace beside it."""
        path = os.path.join(browser.profile, "places.sqlite")
        before = self.files_of(browser.profile)
        listing = self.assert_comes_in(path, wanted, "Left out: 2 tags, 1 keyword, 2 separators, 14 dates, 1 other value.")
        self.assertEqual(self.files_of(browser.profile), before)
        self.assertIn('left out: the tag "two words" of /BookmarksBar/News/Inner/Deep\n', listing)
        self.assertIn("left out: a separator in /BookmarksMenu/\n", listing)

    def check_backups(self, plain, compressed, wanted):
        self.assertTrue(compressed.endswith(".jsonlz4"), compressed)
        for path in (plain, compressed):
            listing = self.assert_comes_in(path, wanted, "Left out: 2 tags, 1 keyword, 2 separators, 14 dates, 1 other value.")
            self.assertIn("left out: the keyword \"o\" of /BookmarksBar/", listing)

    def check_export(self, browser, html, toolbar, menu, other):
        """Its HTML has the menu at the root and nothing of a phone; ours, read by it, brings the same."""
        home = self.new_home()
        self.assertRegex(self.run_in(home, "import", html), r"Left out: 2 tags, 1 keyword, 2 separators, [0-9]+ dates")
        self.assertEqual(self.records(home), tree([*menu, ["BookmarksBar", toolbar], ["Other Bookmarks", other]]))
        exported = os.path.join(self.directory, "exported.html")
        self.run_in(home, "export", exported)
        read = in_firefox(browser, READ_IN_FIREFOX, exported)
        # It reads titles without the blanks at their ends.
        trimmed = [(depth, title.strip(), address) for depth, title, address in tree(toolbar)]
        self.assertEqual(tree(read["toolbar_____"]), trimmed)
        self.assertEqual(tree(read["menu________"]), tree([*menu, ["Other Bookmarks", other]]))


if __name__ == "__main__":
    BUILD = os.path.abspath(sys.argv.pop(1))
    unittest.main()

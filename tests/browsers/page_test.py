#!/usr/bin/env python3
"""A report read by another parser than browsers': it is whole, needs nothing else, and holds every bookmark as text.

usage: page_test.py DIRECTORY_OF_PROGRAMS [TEST...]
"""

import base64
import hashlib
import html.parser
import json
import os
import re
import sys
import tempfile
import unittest

sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))

import report_home  # noqa: E402
from homes import Tools  # noqa: E402

PROGRAMS = None
VOID = {"meta", "input", "link", "br", "img"}
KNOWN = set("""html head meta title style body a header h1 h2 h3 p time nav ul li main section strong code dl div dt dd table
caption thead tbody tr th td b small span figure figcaption svg rect details summary ol bdi del ins label input button
noscript script""".split())
# Attributes by which a page would load or run something, besides the links of bookmarks.
LOADING = {"src", "srcset", "srcdoc", "action", "formaction", "poster", "data", "background", "ping", "style", "xlink:href"}
TURNING = re.compile("[\u202a-\u202e\u2066-\u2069\x00-\x08\x0b-\x1f\x7f-\x9f]")


class Page(html.parser.HTMLParser):
    """Notes what stands where; a tag that does not fit is an error."""

    def __init__(self, text):
        super().__init__(convert_charrefs=True)
        self.open = []
        self.elements = []  # (tag, attributes)
        self.texts = {"style": [], "script": []}
        self.links = []  # (address, text)
        self.items = []  # the text of each entry of the tree that is no folder
        self.feed(text)
        self.close()
        if self.open:
            raise AssertionError(f"not closed: {self.open}")

    def handle_starttag(self, tag, attributes):
        if len(set(name for name, _ in attributes)) != len(attributes):
            raise AssertionError(f"an attribute twice: {tag} {attributes}")
        self.elements.append((tag, dict(attributes)))
        if tag in VOID:
            return
        self.open.append(tag)
        if tag == "a":
            self.links.append([dict(attributes).get("href"), ""])
        if tag == "li":
            self.items.append("")

    def handle_startendtag(self, tag, attributes):
        raise AssertionError(f"closes itself: {tag}")

    def handle_endtag(self, tag):
        if not self.open or self.open[-1] != tag:
            raise AssertionError(f"</{tag}> in {self.open}")
        self.open.pop()

    def handle_data(self, data):
        if self.open and self.open[-1] in self.texts:
            self.texts[self.open[-1]].append(data)
        if "a" in self.open:
            self.links[-1][1] += data
        if "li" in self.open:
            self.items[-1] += data

    def unknown_decl(self, data):
        raise AssertionError(f"a declaration: {data}")

    def handle_comment(self, data):
        raise AssertionError(f"a comment: {data}")


def shown(text):
    """As the page shows a text: control characters as pictures or replaced."""
    pictures = {code: 0x2400 + code for code in range(0x20)}
    pictures[0x7F] = 0x2421
    replaced = {code: 0xFFFD for code in (*range(0x80, 0xA0), *range(0x202A, 0x202F), *range(0x2066, 0x206A))}
    return text.translate({**pictures, **replaced})


class ReportPage(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.directory = tempfile.TemporaryDirectory()
        path, cls.home = report_home.make_page(Tools(PROGRAMS), cls.directory.name)
        with open(path, encoding="utf-8") as file:
            cls.text = file.read()
        cls.page = Page(cls.text)

    @classmethod
    def tearDownClass(cls):
        cls.directory.cleanup()

    def attributes(self, name):
        return [attributes[name] for _, attributes in self.page.elements if name in attributes]

    def policy(self):
        policies = [attributes["content"] for tag, attributes in self.page.elements
                    if tag == "meta" and attributes.get("http-equiv") == "Content-Security-Policy"]
        self.assertEqual(len(policies), 1)
        return dict(directive.strip().partition(" ")[::2] for directive in policies[0].split(";"))

    def test_holds_known_elements_with_nothing_that_loads_or_runs(self):
        self.assertLessEqual({tag for tag, _ in self.page.elements}, KNOWN)
        names = {name for _, attributes in self.page.elements for name in attributes}
        self.assertFalse(names & LOADING)
        self.assertFalse([name for name in names if name.startswith("on")])
        self.assertNotRegex("".join(self.page.texts["style"]), r"url\(|@import")

    def test_policy_names_the_one_style_and_the_one_script_and_nothing_else(self):
        def source(tag):
            self.assertEqual(sum(each == tag for each, _ in self.page.elements), 1)
            digest = hashlib.sha256("".join(self.page.texts[tag]).encode()).digest()
            return f"'sha256-{base64.b64encode(digest).decode()}'"
        self.assertEqual(self.policy(), {
            "default-src": "'none'", "style-src": source("style"), "script-src": source("script"), "base-uri": "'none'",
            "form-action": "'none'", "require-trusted-types-for": "'script'", "trusted-types": "'none'"})
        head = [tag for tag, _ in self.page.elements[:5]]
        self.assertEqual(head, ["html", "head", "meta", "meta", "meta"], "the policy stands before all that it is for")
        referrers = [attributes["content"] for _, attributes in self.page.elements if attributes.get("name") == "referrer"]
        self.assertEqual(referrers, ["no-referrer"])

    def test_references_lead_to_what_is_there(self):
        identifiers = self.attributes("id")
        self.assertEqual(len(identifiers), len(set(identifiers)))
        for name in ("for", "aria-labelledby", "aria-describedby"):
            self.assertLessEqual(set(self.attributes(name)), set(identifiers), name)
        for address, _ in self.page.links:
            if address.startswith("#"):
                self.assertIn(address[1:], identifiers)
            else:
                self.assertRegex(address, r"^https?://")

    def test_language_and_direction_are_said(self):
        self.assertEqual(self.page.elements[0], ("html", {"lang": "en", "dir": "ltr"}))

    def bookmarks(self):
        """What the store holds, as loomerctl's JSON says it."""
        status, tree = self.home.control("tree", "--json")
        self.assertEqual(status, 0)
        return [record for record in json.loads(tree) if record["kind"] == "bookmark"]

    def test_holds_every_bookmark_as_text(self):
        links = {tuple(link) for link in self.page.links}
        for number, title in enumerate(map(report_home.storable, report_home.HOSTILE)):
            self.assertTrue((f"https://title{number}.example.com/", shown(title)) in links, title[:80])
        bookmarks = self.bookmarks()
        self.assertGreater(len(bookmarks), 50)
        items = set("\n".join(self.page.items).split("\n"))
        for record in bookmarks:
            address = record["url"] or ""
            linked = re.match("https?://.", address, re.IGNORECASE)
            line = shown(record["title"]) + ("" if linked or not address else " " + shown(address))
            self.assertTrue(line in items, line[:80])

    def test_addresses_that_a_browser_may_run_are_no_links(self):
        addresses = [record["url"] for record in self.bookmarks() if record["url"]]
        runnable = [address for address in addresses if not re.match("https?://.", address, re.IGNORECASE)]
        self.assertGreaterEqual(len(runnable), 5)
        self.assertFalse(set(runnable) & {address for address, _ in self.page.links})

    def test_nothing_turns_the_direction_or_is_a_control_character(self):
        self.assertIsNone(TURNING.search(self.text))


if __name__ == "__main__":
    PROGRAMS = sys.argv.pop(1)
    unittest.main(verbosity=2)

#!/usr/bin/env python3
"""The extension in real browsers, Chromium and Firefox: each request of the host's does what it says, what the user does is told
of, and the popup shows it, on a phone's width, in light and dark, by keys and without a fault that axe-core finds.

usage: extension_test.py BUILD_DIRECTORY [TEST...]

Leaves pictures of the popup in BUILD_DIRECTORY/popup-pictures.
"""

import os
import pathlib
import re
import sys
import tempfile
import time
import unittest

sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))

from extended import ChromiumWithExtension, FirefoxWithExtension, copy_extension, write_relay  # noqa: E402
from host_side import ANSWER_SECONDS, Listener  # noqa: E402
from suite import Requests  # noqa: E402

import axe  # noqa: E402
from report_test import RUN_AXE, STICKING_OUT  # noqa: E402

BUILD = None
QUIET_SECONDS = 2  # more than the extension waits before it says that something is different
STICKING_OUT_OF_THE_POPUP = STICKING_OUT.replace("main *", "main, main *")
RESOURCES = pathlib.Path(__file__).resolve().parents[2] / "resources"
TAB, ENTER = "\ue004", "\ue007"


def texts_of_the_host(language):
    """What a text of the host's is in that language."""
    table = {}
    if language != "en":
        strings = (RESOURCES / f"{language}.lproj" / "Messages.strings").read_text(encoding="utf-8")
        table = dict(re.findall(r'^"((?:[^"\\]|\\.)*)"\s*=\s*"((?:[^"\\]|\\.)*)";', strings, re.MULTILINE))
    return lambda text: table[text] if table else text


class Extension(Requests):
    """One browser for all tests of a class, and one connection, but where a test makes another."""

    @classmethod
    def setUpClass(cls):
        cls.library = axe.source(BUILD)
        cls.pictures = pathlib.Path(BUILD, "popup-pictures")
        cls.pictures.mkdir(exist_ok=True)
        directory = cls.enterClassContext(tempfile.TemporaryDirectory())
        extension = copy_extension(os.path.join(BUILD, "share", "corvane", "browser", "extension"), directory)
        cls.listener = Listener(os.path.join(directory, "socket"))
        cls.addClassCleanup(cls.listener.close)
        cls.flavour = cls.kind.flavour
        cls.browser = cls.enterClassContext(cls.kind(extension, write_relay(directory, os.path.join(directory, "socket"))))
        cls.connect()
        cls.first_hello = cls.hello

    @classmethod
    def connect(cls):
        cls.host = cls.listener.accept()
        cls.hello = cls.host.receive()

    def reconnect(self):
        """Somebody who looks has the extension connect at once."""
        self.listener.hang_up()
        self.browser.open("about:blank")
        self.browser.open(self.browser.popup())
        self.connect()

    def tearDown(self):
        self.browser.remove(self.folder)

    def by_user(self, *entries):
        """The user makes these, and the host hears of it."""
        self.browser.make(self.folder, entries)
        self.host.next("changed")

    def own(self):
        return [node for node in self.host.read() if node.get("parent") == self.folder]

    # ---- what the extension says by itself

    def test_hello_says_who_is_there(self):
        hello = dict(self.first_hello)
        self.assertRegex(hello.pop("run"), r"^[0-9a-f-]{36}$")
        self.assertRegex(hello.pop("token"), r"^[0-9a-f]{8}(-[0-9a-f]{4}){3}-[0-9a-f]{12}$")
        self.assertRegex(hello.pop("version"), r"^\d+(\.\d+)+")
        self.assertRegex(hello.pop("extension"), r"^\d+\.\d+\.\d+$")
        self.assertEqual(hello, {"type": "hello", "protocol": 1, "browser": self.flavour, "language": self.kind.language,
                                 "profile": "", "generation": 0})

    def test_token_and_generation_are_kept_and_replaced(self):
        self.reconnect()
        before = self.hello
        self.host.send({"type": "token", "token": "0" * 8 + before["token"][8:]})
        self.host.send({"type": "generation", "generation": before["generation"] + 7})
        self.host.read()
        self.reconnect()
        self.assertEqual(self.hello, {**before, "token": "0" * 8 + before["token"][8:], "generation": before["generation"] + 7})

    def test_answers_go_to_the_host_that_asked(self):
        self.by_user(*([f"Page {number}", "https://example.com/" + "x" * 2000] for number in range(200)))
        self.host.send({"type": "read", "id": 99})
        self.reconnect()
        self.assertEqual(len(self.own()), 200)

    def test_edits_of_the_user_are_told_of_once_until_they_are_read(self):
        self.by_user(["One", "https://one.example/"], ["Two", []])
        self.browser.make(self.folder, [["Three", "https://three.example/"]])
        self.assertTrue(self.host.is_quiet("changed", QUIET_SECONDS))
        nodes = self.own()
        self.assertEqual([node["title"] for node in nodes], ["One", "Two", "Three"])
        self.browser.rename(nodes[0]["id"], "One, renamed")
        self.host.next("changed")
        self.assertEqual(self.own()[0]["title"], "One, renamed")
        self.browser.remove(nodes[1]["id"])
        self.host.next("changed")
        self.assertEqual([node["title"] for node in self.own()], ["One, renamed", "Three"])

    def test_what_the_host_asks_for_is_no_news(self):
        node = self.make(self.folder, "a", "https://a.example/")
        self.make(self.folder, "b", "https://b.example/")
        self.host.ask("update", node=node, title="a2", url="https://a2.example/")
        self.host.ask("move", node=node, parent=self.folder, index=0)
        self.host.ask("remove", node=node, expect={"kind": "bookmark", "title": "a2", "url": "https://a2.example/"})
        self.assertTrue(self.host.is_quiet("changed", QUIET_SECONDS))

    # ---- the popup

    def open_popup(self, width=360, scheme="light"):
        self.browser.look(width, 640, scheme)
        self.browser.open(self.browser.popup())
        self.host.next("status")

    def shown(self, name):
        return self.browser.script("const at = document.getElementById(arguments[0]); "
                                   "return at.checkVisibility() ? at.textContent : null", name)

    def say_state(self, **state):
        self.host.send({"type": "state", **state})
        # An answer that comes back says that it has got there; the popup is told in the same order.
        self.host.read()
        self.browser.script("return new Promise(resolve => requestAnimationFrame(() => setTimeout(resolve)))")

    def wait_until_shown(self, name, pattern):
        end = time.monotonic() + ANSWER_SECONDS
        while time.monotonic() < end:
            text = self.shown(name)
            if text is not None and re.search(pattern, text):
                return text
            self.browser.script("return new Promise(resolve => setTimeout(resolve, 20))")
        self.fail(f"{name} shows {text!r} and not {pattern!r}")

    def test_popup_shows_each_state_without_a_fault(self):
        last = {"time": 1_700_000_000_000, "pushed": 3, "pulled": 12_000, "conflicts": 1}
        notice = {"text": "The browser's own account syncs bookmarks, too."}
        states = {
            "idle": {"state": "idle", "since": 1_700_000_000_000, "last": last},
            "stopped": {"state": "idle", "last": last},
            "syncing": {"state": "syncing", "progress": {"done": 1200, "of": 50_000}, "notice": notice},
            "paused": {"state": "paused", "last": last},
            "problem": {"state": "problem", "problem": {"text": "Most bookmarks are gone from this browser: " + "x" * 200,
                                                        "remedy": "Run `loomerctl approve " + "y" * 80 + "`."}, "last": last},
        }
        grounds = set()
        for scheme in ("light", "dark"):
            self.open_popup(360, scheme)
            for name, state in states.items():
                with self.subTest(state=name, scheme=scheme):
                    self.say_state(**state)
                    self.wait_until_shown("state", self.texts[name])
                    self.browser.screenshot(self.pictures / f"{self.flavour}-{name}-{scheme}.png")
                    self.assertEqual(self.browser.script(STICKING_OUT_OF_THE_POPUP), [])
                    self.assertEqual(self.browser.script(RUN_AXE, self.library), [])
            grounds.add(self.browser.script("return getComputedStyle(document.body).backgroundColor"))
        self.assertEqual(len(grounds), 2)
        self.assertEqual(self.shown("pulled"), self.texts["12000"])
        self.assertEqual(self.shown("conflicts"), "1")
        self.say_state(state="idle", last={"time": 1_700_000_000_000, "pushed": 3, "pulled": 2})
        self.wait_until_shown("pulled", "^2$")
        self.assertIsNone(self.shown("conflicts"), "that nobody has told of")
        self.assertEqual(self.browser.script("return document.documentElement.lang"), self.kind.language)

    def test_popup_takes_what_it_is_told_for_text(self):
        self.open_popup()
        hostile = "<img src=x onerror='window.alarm=1'>`<b>bold</b>"
        self.say_state(state="problem", problem={"text": hostile, "remedy": hostile}, last={"time": hostile, "pushed": hostile})
        shown = hostile.replace("`", "")
        self.wait_until_shown("problem-text", re.escape(shown))
        self.assertEqual(self.shown("remedy"), shown)
        self.assertEqual(self.shown("pushed"), "0")
        self.assertEqual(self.browser.script("return [typeof window.alarm, document.querySelectorAll('img, b').length]"),
                         ["undefined", 0])

    def test_popup_is_worked_by_keys(self):
        self.open_popup()
        self.say_state(state="idle")
        focus = "return document.activeElement.id"
        self.browser.press(TAB)
        self.assertEqual(self.browser.script(focus), "sync")
        self.browser.press(ENTER)
        self.assertEqual(self.host.next("syncNow"), {"type": "syncNow"})
        self.say_state(state="syncing", progress={"done": 1, "of": 2})
        self.assertEqual(self.browser.script(focus), "sync", "keeps the focus, though nothing comes of it")
        self.browser.press(ENTER, TAB, TAB)
        self.assertEqual(self.browser.script(focus), "stop")
        self.browser.press(ENTER)
        self.host.next("stop")
        self.assertTrue(self.host.is_quiet("syncNow", 0.1))

    def test_pause_is_kept_over_connections(self):
        self.open_popup()
        self.say_state(state="idle")
        self.browser.press(TAB, TAB, ENTER)
        self.assertEqual(self.host.next("pause"), {"type": "pause", "paused": True})
        self.host.read()
        self.reconnect()
        self.assertEqual(self.host.receive(), {"type": "pause", "paused": True})
        self.open_popup()
        self.say_state(state="paused")
        self.browser.press(TAB, TAB, ENTER)
        self.assertEqual(self.host.next("pause"), {"type": "pause", "paused": False})

    def test_popup_says_that_the_host_is_not_there(self):
        self.open_popup()
        self.say_state(state="idle")
        self.listener.hang_up()
        try:
            self.wait_until_shown("problem-text", self.texts["unreachable"])
            self.assertEqual(self.shown("remedy"), "loomerctl browser status")
            self.assertEqual(self.browser.script("return document.querySelector('#remedy code').textContent"),
                             "loomerctl browser status")
        finally:
            self.reconnect()

    def test_what_the_host_said_last_stays_when_it_ends(self):
        self.open_popup()
        self.say_state(state="problem", problem={"text": "Update the extension.", "remedy": ""})
        self.reconnect()
        self.wait_until_shown("problem-text", "^Update the extension.$")


class ChromiumExtension(Extension, unittest.TestCase):
    kind = ChromiumWithExtension
    texts = {"idle": "^Auf demselben Stand seit 14.11.2023", "stopped": "^Noch ist nicht alles auf demselben Stand",
             "syncing": "^Wird synchronisiert: 1.200 von 50.000$", "paused": "^Angehalten", "problem": "^Etwas braucht",
             "unreachable": "^Das Programm auf diesem Rechner", "12000": "12.000"}

    def test_what_is_longer_than_a_message_is_a_separator(self):
        self.by_user(["before", "https://a.example/"], ["x" * 300_000, "https://b.example/"], ["after", "https://c.example/"],
                     ["y" * 300_000, [["inside", "https://d.example/"]]])
        self.assertEqual([node["kind"] for node in self.own()], ["bookmark", "separator", "bookmark", "separator"])
        self.assertEqual([node for node in self.host.read() if node["title"] == "inside"], [])
        self.browser.by_user("for (const each of await chrome.bookmarks.getChildren(parameters[0])) "
                             "await chrome.bookmarks.removeTree(each.id)", self.folder)
        self.host.next("changed")

    def test_reordering_in_the_bookmark_manager_is_told_of(self):
        self.by_user(["b", "https://b.example/"], ["a", "https://a.example/"])
        self.own()
        self.browser.in_manager("await new Promise(done => chrome.bookmarkManagerPrivate.sortChildren(parameters[0]) ?? done())",
                                self.folder)
        self.host.next("changed")
        self.assertEqual([node["title"] for node in self.own()], ["a", "b"])


class FirefoxExtension(Extension, unittest.TestCase):
    kind = FirefoxWithExtension
    texts = {"idle": "^In step since Nov 14, 2023", "stopped": "^Not everything is in step", "syncing": "^Syncing: 1,200 of 50,000$",
             "paused": "^Paused", "problem": "^Something needs you", "unreachable": "^The program on this computer", "12000": "12,000"}

    def test_popup_fits_in_every_language(self):
        problem, remedy, notice = ("The extension in the browser and the program that it speaks to do not fit together.",
                                   "Update Corvane Sync.", "The browser's own account keeps these bookmarks in step as well.")
        last = {"time": 1_700_000_000_000, "pushed": 12_345, "pulled": 50_000, "conflicts": 12}
        try:
            for language in ("de", "es", "fr", "ja", "en"):
                self.browser.speak(language)
                self.connect()
                self.assertEqual(self.hello["language"], language)
                host = texts_of_the_host(language)
                states = {"idle": {"since": 1_700_000_000_000}, "syncing": {"progress": {"done": 1200, "of": 50_000}}, "paused": {},
                          "problem": {"problem": {"text": host(problem), "remedy": host(remedy)}}}
                self.open_popup()
                for name, state in states.items():
                    with self.subTest(language=language, state=name):
                        self.say_state(state=name, last=last, notice={"text": host(notice)}, **state)
                        self.browser.screenshot(self.pictures / f"{self.flavour}-{name}-{language}.png")
                        self.assertEqual(self.browser.script(STICKING_OUT_OF_THE_POPUP), [])
        finally:
            self.browser.speak("en-US")
            self.connect()

    def test_separators_have_a_place(self):
        self.by_user(["before", "https://a.example/"], ["", None], ["after", "https://c.example/"])
        self.assertEqual([node["kind"] for node in self.own()], ["bookmark", "separator", "bookmark"])

    def test_what_comes_late_for_one_before_it_is_there_once(self):
        wanted = {"parent": self.folder, "index": 0, "nodes": [{"title": "a", "url": "https://a.example"}]}
        self.browser.hold_writes()
        try:
            self.host.send({"type": "create", "id": 1, **wanted})
            time.sleep(1)  # for the request to get there: nothing is to be seen of it
            self.browser.reload_extension()
            self.connect()
            self.assertEqual(self.own(), [])
            self.host.send({"type": "create", "id": 1, **wanted})
        finally:
            time.sleep(1)
            self.browser.release_writes()
        self.assertEqual(self.host.next("answer")["node"]["index"], 0)
        self.assertEqual([node["title"] for node in self.own()], ["a"])

    def test_tags_are_neither_given_nor_touched(self):
        self.by_user(["tagged", "https://tagged.example/"])
        before = len(self.host.read())
        self.browser.tag("https://tagged.example/", "red", "two words")
        self.assertEqual(len(self.host.read()), before)
        for request in ({"type": "create", "parent": "tags________", "index": 0, "nodes": [{"title": "x"}]},
                        {"type": "update", "node": "tags________", "title": "x"}):
            self.assert_refused(self.host.ask(request.pop("type"), **request))
        tags = self.browser.by_user("return PlacesUtils.tagging.getTagsForURI(Services.io.newURI(parameters[0]))",
                                    "https://tagged.example/")
        self.assertEqual(tags, ["red", "two words"])


if __name__ == "__main__":
    BUILD = os.path.abspath(sys.argv.pop(1))
    unittest.main(verbosity=2)

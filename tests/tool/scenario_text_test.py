#!/usr/bin/env python3
"""scenario_text_test.py: tests the text form of scripted sessions."""

import datetime
import unittest

from scenario_text.scenarios import read_scenario, scenario_text
from scenario_text.values import MalformedScenario, Scanner, same, value_text

DATE = datetime.datetime(2026, 11, 21, 10, 0)
VALUES = [
    True, False, 0, 1, -1, 10**20, 0.0, 1.0, -2.5, 1e300, 1e16, "", "1", "true", "a", " a ", 'a "b"', "a\\nb", "a\nb",
    "a\tb", "\u00a0", "é", "\U0001f600", "\U000e0001", "<>", "2026-11-21T10:00:00Z", DATE, b"", b"\x00hi", "<00>", [],
    [[]], [1, "1"], ["1, 2"], ["1", "2"], {}, {"": {}}, {"a": 1, "b c": [True]}, {"a": {"b": 1}}, [{"a": 1}, {}],
]  # fmt: skip


def leaf(uid, title, url, **more):
    usual = {"WebBookmarkType": "WebBookmarkTypeLeaf", "WebBookmarkUUID": uid, "URLString": url}
    return {**usual, "URIDictionary": {"title": title}, **more}


def folder(uid, title, *children, **more):
    usual = {"WebBookmarkType": "WebBookmarkTypeList", "WebBookmarkUUID": uid, "Title": title}
    return {**usual, **more, "Children": list(children)}


ODD_ENTRIES = [
    leaf("ant", "Ant", "http://ant.example/"),
    leaf("twice", "Twice", "http://a.example/", URIDictionary={"title": "Twice", "": "http://a.example/"}),
    leaf("stale", "Stale", "http://a.example/", URIDictionary={"title": "Stale", "": "http://b.example/"}),
    leaf("untitled", "", "http://a.example/", URIDictionary={"": "http://a.example/"}),
    leaf("number", 5, "http://a.example/"),
    leaf("blanks", "Blanks", "  http://a.example/ "),
    leaf("none", "None", ""),
    leaf("Größe = 1", "Quoted", "http://a.example/", Rating=5, **{"b c": "d"}),
    {"WebBookmarkType": "WebBookmarkTypeLeaf", "WebBookmarkUUID": "bare"},
    {"WebBookmarkType": "WebBookmarkTypeList", "WebBookmarkUUID": "bare/", "b c": 1},
    {"WebBookmarkType": "WebBookmarkTypeProxy", "WebBookmarkUUID": "history", "Title": "History"},
    {"WebBookmarkType": "WebBookmarkTypeList", "WebBookmarkUUID": 5},
    {},
    "stray",
    3,
    folder("empty", "Empty"),
    folder("deep", "Deep", folder("deeper", "Deeper", leaf("bee", "Bee", "http://bee.example/")), ShouldOmitFromUI=1),
    folder("text", "Text", Title=7, Children="none"),
]
SESSION = {
    "ClientId": "com.keldra.Corvane.Test",
    "UUIDs": ["new 1", "new-2"],
    "SessionResult": False,
    "SessionError": "no",
    "ClientValues": {"modDateOnLastSync": DATE, "a b": b"\x01"},
    "Preferences": {"SCLog": "YES"},
    "Bookmarks": {"WebBookmarkFileVersion": 1, "Children": ODD_ENTRIES},
    "BookmarksDate": DATE,
    "BrowserWrites": [{"Bookmarks": {}, "Date": DATE}, {}, {"Date": DATE}, {"Bookmarks": {"Children": []}}],
    "Steps": [
        {"Call": "didRegister"},
        {"Call": "preferredSyncMode", "Entity": ""},
        {"Call": "records", "Entity": "Folder"},
        {"Call": "applyChange", "Entity": "Folder", "Type": 1, "Identifier": "e 1", "Record": {}},
        {"Call": "applyChange", "Entity": "Tag", "Type": -7, "Identifier": "record"},
        {
            "Call": "applyChange",
            "Entity": "Bookmark",
            "Type": 3,
            "Identifier": "ant",
            "Record": {
                "LoomerRelationship_Bookmarks_Folder_Parent": ["a"],
                "LoomerRecordEntityNameKey": "Bookmark",
                "LoomerRelationship_Bookmarks_Bookmark_Parent": ["b"],
                "LoomerAttribute_Bookmarks_Bookmark_Url": {"URL": "http://ant.example/"},
                "Folder_Name": "a key of its own",
                "is tab group": 1,
            },
        },
        {"Call": "willCancel"},
    ],
}


def node(title, parent, position, url):
    return {"Class": "Bookmark", "Title": title, "ParentId": parent, "Position": position, "Special": False,
            "Ignored": False, "URL": url}  # fmt: skip


GIVEN = {"Children": [leaf("ant", "Ant", "http://ant.example/")]}
STEPS = [
    {"Call": "didRegister"},
    {"Call": "records", "Entity": "Bookmark"},
    {"Call": "applyChange", "Entity": "Bookmark", "Type": 1, "Identifier": "e1"},
    {"Call": "willFinish"},
    {"Call": "willFinish"},
]
OUTCOME = {
    "Created": True,
    "Synced": True,
    "Exception": {"Name": "Some", "Reason": "because"},
    "Results": [
        {"Call": "didRegister", "Answer": True},
        {"Call": "records", "Answer": {"ant": {"LoomerRecordEntityNameKey": "Bookmark", "x": 1}, "bee": {}}},
        {"Call": "applyChange", "Answer": 1, "Remapped": "UUID-1"},
        {"Call": "willFinish"},
    ],
    "Bookmarks": {
        "WebBookmarkFileVersion": 1,
        "Children": [
            folder("Bar", "BookmarksBar", leaf("ant", "Ant", "http://ant.example/", URIDictionary={
                "title": "Ant", "": "http://ant.example/"}), WebBookmarkAutoTab=True),  # fmt: skip
            leaf("bee", "Bee", "http://bee.example/", Data=b"\x01", Date=DATE, Real=1.0),
        ],
    },
    "SaveAttempts": 1,
    "Backups": [],
    "ClientValues": {"modDateOnLastSync": DATE},
    "WorkingMap": {
        "Root": {"Class": "Folder", "Title": "/", "Position": 0, "Special": False, "Ignored": False, "AutoTab": False,
                 "Children": ["Bar", "bee"]},
        "Bar": {"Class": "Folder", "Title": "BookmarksBar", "ParentId": "Root", "Position": -2, "Special": True,
                "Ignored": False, "AutoTab": True, "Children": ["ant"]},
        "BookmarksBar-SpecialBookmarkKey": "BookmarksBar-SpecialBookmarkKey",
        "ant": node("Ant", "Bar", 0, "http://ant.example/"),
        "bee": node("Bee", "Root", 7, "http://bee.example/"),
        "new": node("New", "Root", 2, "http://new.example/"),
    },
    "Notifications": ["Changed"],
    "FeedAgentWoken": True,
    "SystemLog": ["one", 'a "line"', "a \\ b\nc"],
    "DiagnosticLog": [],
}  # fmt: skip


def other_values(value):
    """Values that are easily taken for this one."""
    yield from ([value], {"value": value}, "absent")
    if isinstance(value, bool):
        yield from (not value, int(value), float(value), value_text(value))
    elif isinstance(value, (int, float)):
        other_type = float(value) if isinstance(value, int) else int(value)
        yield from (value + 1, -value - 1, other_type, str(value), value == 1)
    elif isinstance(value, str):
        yield from (value + " ", " " + value, value + '"', value + "\\", value.swapcase() + "x", value[:-1] + "#")
    elif isinstance(value, datetime.datetime):
        yield from (value + datetime.timedelta(seconds=1), value_text(value))
    elif isinstance(value, bytes):
        yield from (value + b"\x00", value_text(value))
    elif isinstance(value, list):
        yield from (value + value, value + [[]], value[1:], value[:-1], value[::-1], {})
    elif isinstance(value, dict):
        yield from (value | {"Novel": 1}, value | {"": ""}, [])


def changes(value, keeps_order=False):
    """Every value that differs from this one in one place."""
    yield from (other for other in other_values(value) if not same(other, value))
    if isinstance(value, dict):
        for key, item in value.items():
            others = {other: value[other] for other in value if other != key}
            yield others
            yield {**others, key + "x": item}
            yield from ({**value, key: changed} for changed in changes(item, key == "WorkingMap"))
            if keeps_order and list(value)[-1] != key:
                yield {**others, key: item}
    elif isinstance(value, list):
        for index, item in enumerate(value):
            yield value[:index] + value[index + 1 :]
            yield from (value[:index] + [changed] + value[index + 1 :] for changed in changes(item))


class ValuesTest(unittest.TestCase):
    def test_values_are_read_as_they_were_written(self):
        for value in VALUES:
            scanner = Scanner(1, value_text(value))
            self.assertTrue(same(scanner.value(), value), value_text(value))
            scanner.end()

    def test_no_two_values_look_alike(self):
        self.assertEqual(len({value_text(value) for value in VALUES}), len(VALUES))


class ScenarioTextTest(unittest.TestCase):
    def text(self, session, **result):
        whole = {"Created": True, "Synced": True, "Results": [], "SaveAttempts": 0, "Backups": [], "ClientValues": {},
                 "Notifications": [], "FeedAgentWoken": True, "SystemLog": [], "DiagnosticLog": []}  # fmt: skip
        return scenario_text([], session, {**whole, **result})

    def test_what_is_given_is_read_as_it_was_written(self):
        comment = ["# What it is", "#", "# about."]
        text = scenario_text(comment, SESSION, OUTCOME)
        read_comment, session = read_scenario(text)
        self.assertEqual(read_comment, comment)
        self.assertEqual(session.keys(), SESSION.keys())
        for key, value in SESSION.items():
            self.assertTrue(same(session[key], value), f"{key}: {session[key]!r}")
        self.assertEqual(scenario_text(read_comment, session, OUTCOME), text)

    def test_a_records_keys_keep_their_order(self):
        record = read_scenario(self.text(SESSION))[1]["Steps"][5]["Record"]
        self.assertEqual(list(record), list(SESSION["Steps"][5]["Record"]))

    def test_a_session_without_an_outcome_is_read(self):
        self.assertEqual(read_scenario("# New.\n\nwillFinish\n"), (["# New."], {"Steps": [{"Call": "willFinish"}]}))

    def test_no_change_of_an_outcome_leaves_its_text_as_it_was(self):
        session = {"Bookmarks": GIVEN, "Steps": STEPS, "BrowserWrites": [{"Bookmarks": {"Children": []}}]}
        for outcome in (OUTCOME, {**OUTCOME, "Bookmarks": GIVEN}, {**OUTCOME, "Bookmarks": {"Children": []}}):
            expected = scenario_text([], session, outcome)
            for changed in changes(outcome):
                if isinstance(changed, dict):
                    self.assertNotEqual(self.text_or_error(session, changed), expected, changed)

    @staticmethod
    def text_or_error(session, outcome):
        try:
            return scenario_text([], session, outcome)
        except (AttributeError, KeyError, TypeError) as error:  # a result of another type ends the run of the scenarios
            return error

    def test_bookmarks_that_the_session_leaves_alone_are_unchanged(self):
        given, written = {"Children": []}, {"WebBookmarkFileVersion": 1}
        session = {"Bookmarks": given, "BrowserWrites": [{"Bookmarks": written}, {}]}
        for bookmarks, attempts, line in (
            (given, 0, "Bookmarks unchanged"),
            (given, 1, "Bookmarks Children=[]"),
            (written, 0, "Bookmarks WebBookmarkFileVersion=1"),
            (written, 1, "Bookmarks unchanged"),
            (written, 2, "Bookmarks WebBookmarkFileVersion=1"),
            ("text", 0, 'Bookmarks = "text"'),
        ):
            text = self.text(session, Bookmarks=bookmarks, SaveAttempts=attempts)
            self.assertIn("\n" + line + "\n", text)
        self.assertNotIn("Bookmarks", self.text({}))

    def test_a_map_shows_only_what_the_file_does_not(self):
        text = scenario_text([], {}, OUTCOME)
        self.assertEqual(
            text[text.index("WorkingMap") : text.index("SystemLog")],
            "WorkingMap as the file in the order Root Bar BookmarksBar-SpecialBookmarkKey ant bee new\n"
            "  bee Position=7\n"
            '  new Class="Bookmark" Ignored=false ParentId="Root" Position=2 Special=false Title="New"'
            ' URL="http://new.example/"\n',
        )

    def test_calls_stand_beside_their_answers(self):
        text = scenario_text([], {"Steps": STEPS}, OUTCOME)
        self.assertEqual(
            text[: text.index("\n\n")],
            "didRegister -> true\n"
            "records Bookmark ->\n"
            '  ant Entity="Bookmark" x=1\n'
            "  bee\n"
            'applyChange Bookmark add e1 -> accepted Remapped="UUID-1"\n'
            "willFinish -> absent\n"
            "willFinish -> not made",
        )

    def test_malformed_lines_are_named_with_the_cause(self):
        for text, message in (
            ("Bookmark", 'line 1: a key of a scenario or a call is expected instead of "Bookmark"'),
            ("\n   ant", "line 2: the indentation does not follow from the line before"),
            ("  ant", "line 1: the indentation does not follow from the line before"),
            ("Bookmarks\n  = 3\n    ant", 'line 3: an entry beside the one before is expected instead of "ant"'),
            ("Bookmarks 2026-13-21T10:00:00Z", "line 1: 2026-13-21T10:00:00Z: month must be in 1..12"),
            ("Bookmarks Version", "line 1: = is expected instead of the end of the line"),
            ("Bookmarks Version=one", 'line 1: a value is expected instead of "one"'),
            ("Bookmarks Version=[1", "line 1: a comma or ] is expected instead of the end of the line"),
            ("Bookmarks absent Version=1", 'line 1: the end of the line is expected instead of "Version=1"'),
            ("Bookmarks\n  ?", 'line 2: a uid is expected instead of "?"'),
            ("didPull Folder", 'line 1: the end of the line is expected instead of "Folder"'),
            ("records -> {}", 'line 1: an entity is expected instead of "-> {}"'),
            ("applyChange Folder move x", 'line 1: add, modify, delete or a number is expected instead of "x"'),
            ("applyChange Folder add x\n  Entity=1", 'line 2: record is expected instead of "Entity=1"'),
        ):
            with self.assertRaises(MalformedScenario, msg=text) as raised:
                read_scenario(text)
            self.assertEqual(str(raised.exception), message)


if __name__ == "__main__":
    unittest.main()

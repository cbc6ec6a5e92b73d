#!/usr/bin/env python3
"""The commands of README.md and docs/guide.md, typed as they stand there.

usage: guide_test.py PROJECT_ROOT DIRECTORY_OF_PROGRAMS [TEST...]

A chapter's commands run in a home of the test's, one after the other. Those that need a server of somebody's, or root, are
named in ELSEWHERE with what tries them; a new command of the documents that nothing runs fails the test.
"""

import contextlib
import json
import os
import pathlib
import plistlib
import re
import sqlite3
import subprocess
import sys
import tempfile
import unittest

sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "crash"))

from homes import FIRST, Home, Tools, child, folder, leaf, root_with, write  # noqa: E402

ROOT = None
PROGRAMS = None

# What no home of a test's can run, by its beginning, and where it is tried.
ELSEWHERE = {
    "./scripts/": "by hand and in continuous integration",
    "./scripts/package": "scripts/test package",
    "scripts/package": "scripts/test package",
    "sudo apt install": "scripts/test package",
    "cmake ": "scripts/test, and tests/install/install_test.py",
    "systemctl ": "scripts/test package",
    "systemctl --user ": "tests/units/manager_test.py",
    "journalctl ": "by hand: it needs a system log",
    "loomerctl enable": "tests/units/manager_test.py",
    "*/15 * * * * ": "tests/units/units_test.py, which runs the line's command",
    "inotifywait ": "tests/units/units_test.py",
    "corvane-hub ": "tests/corvane-hub, with a configuration of their own",
    "curl ": "a server of somebody's; tests/pelto/place makes the folders of its own",
}
# Its place is a server that no test may reach; with a closed port of this computer for a proxy, it must be the only thing
# that fails.
OUT_OF_REACH = re.compile(r"loomerctl account set .*(s3://|https://|hub://)")

# Lines of the system log that name a fault of the program's own: nobody can do anything about them.
FAULTS = (
    "Asked to apply a change that's not",
    "Broken invariant",
    "I was asked to",
    "No parent specified",
    "SaveBookmarks - error trying to serialize",
    "This is an abstract class",
    "setURL called with an unknown type",
)


def system_log_lines():
    """The sources' lines, with a dash for each value."""
    lines = set()
    for room in ("CorvaneSyncClient", "browsers/host", "tools/loomerctl"):
        for path in pathlib.Path(ROOT, room).rglob("*.[ch]*"):
            calls = re.findall(r'(?:systemLog|reportProblem)\(\s*(?:Message\(\s*)?((?:"(?:[^"\\]|\\.)*"\s*)+)',
                               path.read_text(encoding="utf-8"))
            for call in calls:
                text = "".join(re.findall(r'"((?:[^"\\]|\\.)*)"', call)).replace('\\"', '"')
                lines.add(re.sub(r"%[@sd1-9]", "–", text))
    return sorted(lines)


def readme_session():
    """The README's session at a terminal: commands, and the lines that each writes."""
    with open(os.path.join(ROOT, "README.md"), encoding="utf-8") as file:
        paragraph = next(each for each in file.read().split("\n\n") if each.startswith("    $ "))
    session = []
    for line in (each[4:] for each in paragraph.splitlines()):
        if line.startswith("$ "):
            session.append((line[2:], []))
        else:
            session[-1][1].append(line)
    return session


def chapters(document):
    """The commands of each chapter, in order: lines that are indented by four, as far as their comments."""
    found = {}
    title = ""
    in_session = False
    with open(os.path.join(ROOT, document), encoding="utf-8") as file:
        text = re.sub(r"\\\n\s+", "", file.read())
    for line in text.splitlines():
        if line.startswith("## "):
            title = line[3:]
        elif re.match(r"    [^ $]", line) and not in_session:
            # A comment, or what a line says about its command, stands behind a gap.
            found.setdefault(title, []).append(re.split(r"\s{2,}", line.strip())[0])
        # What a terminal shows begins with a prompt, and ends with the paragraph.
        in_session = line.startswith("    $ ") or (in_session and bool(line.strip()))
    return found


class Documents(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.chapters = chapters("docs/guide.md")
        cls.run_commands = set()

    def setUp(self):
        directory = tempfile.TemporaryDirectory(prefix="corvane-guide-")
        self.addCleanup(directory.cleanup)
        self.directory = directory.name

    def home(self, name="home"):
        home = Home(Tools(PROGRAMS), os.path.join(self.directory, name)).make()
        closed = "http://127.0.0.1:9"
        home.environment.update(PATH=PROGRAMS + ":" + os.environ["PATH"], http_proxy=closed, https_proxy=closed)
        return home

    def type(self, home, command, status=0, given=""):
        """Runs a command in the home's directory; what it writes."""
        done = subprocess.run(["bash", "-c", command], env=home.environment, cwd=home.path, input=given, text=True,
                              stdout=subprocess.PIPE, stderr=subprocess.STDOUT, timeout=120)
        self.assertEqual(done.returncode, status, f"{command}: {done.stdout}")
        self.run_commands.add(command)
        return done.stdout

    def synced_home(self, *entries, name="home"):
        home = self.home(name)
        write(home.bookmarks(FIRST), root_with(list(entries)))
        home.must_sync(FIRST)
        return home

    def titles(self, home):
        return re.findall(r"^ *#\d+ +(\S+?)/?(?:  \S+)?(?: \(.*)?$", home.control("tree")[1], re.MULTILINE)

    def test_one_computer(self):
        home = self.home()
        write(home.bookmarks(FIRST), root_with([leaf("Weather")]))
        outputs = [self.type(home, command) for command in self.chapters["One computer"]]
        self.assertEqual(self.titles(home), ["Weather"])
        self.assertIn("Work.plist", "".join(outputs), "the further file is a client")
        self.assertTrue(os.path.exists(os.path.join(home.path, "all-bookmarks.html")))

    def test_what_another_browser_has_comes_in(self):
        home = self.home()
        files = {"bookmarks.html": '<DL><DT><A HREF="https://bread.example.com/">Bread</A></DL>',
                 ".config/chromium/Default/Bookmarks": json.dumps({"version": 1, "roots": {"bookmark_bar": {"children": [
                     {"type": "url", "name": "Soup", "url": "https://soup.example.com/"}]}}})}
        for name, text in files.items():
            path = os.path.join(home.path, name)
            os.makedirs(os.path.dirname(path), exist_ok=True)
            with open(path, "w", encoding="utf-8") as file:
                file.write(text)
        self.make_places(os.path.join(home.path, ".mozilla/firefox/PROFILE"))
        commands = self.chapters["Bookmarks of another browser"]
        self.assertIn("Nothing was changed.", self.type(home, commands[0]))
        for command in commands[1:]:
            self.type(home, command)
        self.assertEqual(self.titles(home), ["Bread", "BookmarksBar", "Soup", "Tea"])

    def test_browsers_are_told_of_the_program(self):
        home = self.home()
        said = [self.type(home, command) for command in self.chapters["Chromium and Firefox, live"]]
        self.assertIn("chrome://extensions", said[0])
        for directory in (".config/chromium/NativeMessagingHosts", ".mozilla/native-messaging-hosts"):
            with open(os.path.join(home.path, directory, "com.keldra.corvane.bookmarks.json"), encoding="utf-8") as file:
                self.assertTrue(os.access(json.load(file)["path"], os.X_OK))

    def make_places(self, profile):
        os.makedirs(profile)
        with contextlib.closing(sqlite3.connect(os.path.join(profile, "places.sqlite"))) as places:
            places.executescript("""
                CREATE TABLE moz_places (id INTEGER PRIMARY KEY, url TEXT);
                CREATE TABLE moz_bookmarks (id INTEGER PRIMARY KEY, type INTEGER, fk INTEGER, parent INTEGER,
                  position INTEGER, title TEXT, dateAdded INTEGER, lastModified INTEGER, guid TEXT);
                CREATE TABLE moz_keywords (id INTEGER PRIMARY KEY, keyword TEXT, place_id INTEGER, post_data TEXT);
                CREATE TABLE moz_anno_attributes (id INTEGER PRIMARY KEY, name TEXT);
                CREATE TABLE moz_items_annos (id INTEGER PRIMARY KEY, item_id INTEGER, anno_attribute_id INTEGER, content TEXT);
                INSERT INTO moz_places VALUES (1, 'https://tea.example.com/');
                INSERT INTO moz_bookmarks (id, type, fk, parent, position, title, guid) VALUES
                  (1, 2, NULL, 0, 0, '', 'root________'), (2, 2, NULL, 1, 0, 'toolbar', 'toolbar_____'), (3, 1, 1, 2, 0, 'Tea', 'a');
            """)

    def test_two_computers(self):
        commands = self.chapters["A second computer"]
        second_begins = commands.index("loomerctl account join")
        look = commands.index("loomerctl account computers")
        first = self.synced_home(leaf("Weather"))
        invitation = [self.type(first, command) for command in commands[:second_begins]][-1]
        second = self.home("second")
        # The share, which both see.
        os.symlink(os.path.join(first.path, "Share"), os.path.join(second.path, "Share"))
        words = invitation.split("\n", 1)[1]
        for command in commands[second_begins:look]:
            self.type(second, command, given=words if command.endswith("join") else "")
        self.assertEqual(self.titles(second), ["Weather"])
        for command in commands[look:]:
            self.type(first, command)

    def test_an_undo_brings_a_deleted_folder_back(self):
        home = self.synced_home(folder("Recipes", [leaf("Bread")]), *(leaf(f"Page{i}") for i in range(9)))
        root = home.root(FIRST)
        root["Children"].remove(child(root, "Recipes"))
        write(home.bookmarks(FIRST), root)
        home.must_sync(FIRST)
        self.assertNotIn("Recipes", self.titles(home))
        for command in self.chapters["I deleted a folder, and it is gone everywhere"]:
            self.type(home, command)
        self.assertIn("Bread", self.titles(home))
        self.assertEqual(len(child(home.root(FIRST), "Recipes")["Children"]), 1)

    def test_the_session_in_the_readme_is_one(self):
        home = self.synced_home(folder("Recipes", [leaf("Bread")]), leaf("Weather"))
        root = home.root(FIRST)
        root["Children"].remove(child(root, "Recipes"))
        write(home.bookmarks(FIRST), root)
        home.must_sync(FIRST)
        moment = re.compile(r"\d{4}-\d\d-\d\d \d\d:\d\d:\d\d [+-]\d{4}")
        for command, shown in readme_session():
            written = [moment.sub("MOMENT", line) for line in self.type(home, command).splitlines()]
            self.assertEqual(written, [moment.sub("MOMENT", line) for line in shown], command)

    def refused_home(self, name):
        home = self.synced_home(*(leaf(f"Page{i}") for i in range(9)), name=name)
        write(home.bookmarks(FIRST), root_with([]))
        self.assertEqual(home.sync(FIRST)[0], 1)
        return home

    def test_a_refused_session_is_refused_for_good_or_let_pass(self):
        plan, restore, sync, approve, again = self.chapters["The guard refused"]
        for decision, left in ((restore, 9), (approve, 0)):
            home = self.refused_home(decision.split()[1])
            self.assertIn("Page8", self.type(home, plan))
            self.type(home, decision)
            self.type(home, sync)
            self.assertEqual(len(self.titles(home)), left)
        self.assertEqual(sync, again)

    def test_a_store_is_built_anew_from_what_could_be_rescued(self):
        check, export, move, sync, take = self.chapters["It says that something is damaged"]
        home = self.synced_home(leaf("Weather"), leaf("News"))
        self.type(home, check)
        self.type(home, export)
        write(home.bookmarks(FIRST), root_with([leaf("Weather")]))
        self.type(home, move)
        self.type(home, sync)
        self.assertEqual(self.titles(home), ["Weather"])
        self.type(home, take)
        self.assertEqual(self.titles(home), ["Weather", "News"])

    def test_backups(self):
        export, make, switch_on, copy, restore, sync = self.chapters["Backups"]
        home = self.synced_home(leaf("Weather"))
        for command in (export, make, switch_on):
            self.type(home, command)
        with open(os.path.join(home.path, "more.html"), "w", encoding="utf-8") as file:
            file.write('<DL><DT><A HREF="https://bread.example.com/">Bread</A></DL>')
        home.control("import", os.path.join(home.path, "more.html"))
        home.must_sync(FIRST)
        self.type(home, copy)
        self.assertEqual(len(home.root(FIRST)["Children"]), 1, "the version from before")
        self.type(home, restore)
        self.type(home, sync)
        self.assertEqual(self.titles(home), ["Weather", "Bread"])
        self.assertEqual(len(home.root(FIRST)["Children"]), 2)

    def test_a_new_computer(self):
        remove, export, take, sync = self.chapters["A new computer"]
        old = self.synced_home(leaf("Weather"))
        self.type(old, export)
        self.assertIn("No account is set.", self.type(old, remove, status=1))
        new = self.home("new")
        os.rename(os.path.join(old.path, "bookmarks-backup.html"), os.path.join(new.path, "bookmarks-backup.html"))
        self.type(new, take)
        self.type(new, sync)
        with open(new.bookmarks(FIRST), "rb") as file:
            self.assertEqual([each["URLString"] for each in plistlib.load(file)["Children"]], [leaf("Weather")["URLString"]])

    def test_a_place_that_is_out_of_reach_is_all_that_fails(self):
        home = self.home()
        commands = [each for chapter in self.chapters.values() for each in chapter if OUT_OF_REACH.match(each)]
        self.assertEqual(len(commands), 3)
        joined = self.synced_home(leaf("Weather"), name="joined")
        os.mkdir(os.path.join(joined.path, "place"))
        self.assertEqual(joined.control("account", "set", os.path.join(joined.path, "place"))[0], 0)
        self.type(joined, "loomerctl account invite")
        for command in commands:
            # What stands in capitals is the reader's to fill in.
            output = self.type(home, command.replace("BUCKET", "my-bucket"), status=1, given="name\nsecret\n")
            self.run_commands.add(command)
            self.assertTrue(output.startswith("Trying "), f"{command}: {output}")
            self.assertEqual(output.count("\n"), 2, f"{command}: {output}")

    def test_each_line_of_the_system_log_is_told_what_to_do_about(self):
        with open(os.path.join(ROOT, "docs/guide.md"), encoding="utf-8") as file:
            rows = re.findall(r"^\| (?!the line|---)(.*?) \| ", file.read(), re.MULTILINE)
        # Several lines that ask for one thing stand in one row.
        told = [re.escape(line).replace("…", ".*") for row in rows for line in row.split("; ")] + \
               [re.escape(row).replace("…", ".*") for row in rows]
        missing = [line for line in system_log_lines()
                   if not line.startswith(FAULTS) and not any(re.fullmatch(each, line) for each in told)]
        self.assertEqual(missing, [])

    def test_z_nothing_stands_there_that_nobody_runs(self):
        missing = []
        for document in ("README.md", "docs/guide.md"):
            for chapter, commands in chapters(document).items():
                for command in commands:
                    if not command.startswith(tuple(ELSEWHERE)) and command not in self.run_commands:
                        missing.append(f"{document}, {chapter}: {command}")
        self.assertEqual(missing, [])


def main():
    global ROOT, PROGRAMS
    ROOT, PROGRAMS = os.path.abspath(sys.argv.pop(1)), os.path.abspath(sys.argv.pop(1))
    unittest.main(verbosity=1)


if __name__ == "__main__":
    main()

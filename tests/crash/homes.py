"""Private homes for the tests that interrupt the real tools: two bookmarks files of one user, and what stands in them."""

import os
import plistlib
import shutil
import subprocess
import sys
import tempfile
import unittest

FIRST = "com.keldra.Corvane"
SECOND = "com.keldra.Corvane.Second.plist"
FILES = {FIRST: "Bookmarks.plist", SECOND: "Second.plist"}
SINGLE_RUN_LOCK = "com.keldra.Corvane.SyncClient.IsRunning"
STALE_AFTER_SECONDS = 300
SPECIAL = ("BookmarksBar", "BookmarksMenu")


class Failure(Exception):
    """Something that a user must never meet."""


class Tools:
    """The programs under test, from a build's directory of programs."""

    def __init__(self, directory):
        self.tool = os.path.join(directory, "corvanetool")
        self.control = os.path.join(directory, "loomerctl")


class Home:
    """One home directory. The temporary directory lies in it, so that every file that a run leaves is found."""

    def __init__(self, tools, path):
        self.tools = tools
        self.path = path
        # A run under strace cannot look for leaks.
        self.environment = {"HOME": path, "TMPDIR": os.path.join(path, "tmp"), "PATH": os.environ["PATH"], "LANG": "C",
                            "ASAN_OPTIONS": "detect_leaks=0"}

    def make(self):
        for directory in (self.environment["TMPDIR"], os.path.dirname(self.bookmarks(FIRST))):
            os.makedirs(directory)
        return self

    def copy(self, path):
        """The same home, dates included, at another path."""
        shutil.copytree(self.path, path, symlinks=True)
        return Home(self.tools, path)

    def remove(self):
        shutil.rmtree(self.path)

    def bookmarks(self, client):
        return os.path.join(self.path, "Library", "Corvane", FILES[client])

    def store(self):
        return os.path.join(self.path, "Library", "Application Support", "Loomer", "Truth.db")

    def lock(self):
        return os.path.join(self.environment["TMPDIR"], SINGLE_RUN_LOCK)

    def command(self, client):
        return [self.tools.tool, "--sync", client, "--entitynames", "bookmarks"]

    def start(self, client, before=(), **options):
        return subprocess.Popen([*before, *self.command(client)], env=self.environment, stdin=subprocess.DEVNULL,
                                stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True, errors="replace", **options)

    def sync(self, client, before=()):
        """Runs one session; its exit status and what it printed."""
        process = self.start(client, before)
        output, _ = process.communicate(timeout=300)
        return process.returncode, output

    def must_sync(self, client):
        status, output = self.sync(client)
        if status != 0:
            raise Failure(f"a session of {client} ended with status {status}: {output.strip()}")

    def age_lock(self):
        """Lets the time pass after which a killed run's lock counts as stale; whether there was one."""
        try:
            status = os.stat(self.lock())
        except FileNotFoundError:
            return False
        aged = status.st_mtime - STALE_AFTER_SECONDS - 1
        os.utime(self.lock(), (aged, aged))
        return True

    def control(self, *arguments):
        done = subprocess.run([self.tools.control, *arguments], env=self.environment, stdin=subprocess.DEVNULL,
                              stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True, timeout=300)
        return done.returncode, done.stdout

    def must_be_sound(self):
        status, output = self.control("check")
        if status != 0:
            raise Failure(f"the store is not sound: {output.strip()}")

    def root(self, client):
        with open(self.bookmarks(client), "rb") as file:
            return plistlib.load(file)

    def tree(self, client):
        """Everything in the file but the uids, which two files of one tree need not share."""
        return normalised(self.root(client), True)

    def shared_tree(self, client):
        """What all files must have in common: titles, addresses, order."""
        return shared(self.root(client), True)

    def leftovers(self):
        """Every path in the home, for comparison with an undisturbed one. That a run failed stays on record."""
        paths = set()
        for directory, folders, files in os.walk(self.path):
            paths.update(os.path.relpath(os.path.join(directory, name), self.path) for name in folders + files)
        return {path for path in paths if os.path.basename(path) != "FailedRuns.plist"}


def in_shown_order(entries, is_root):
    if not is_root:
        return entries
    return sorted(entries, key=lambda entry: SPECIAL.index(entry["Title"]) if entry.get("Title") in SPECIAL else 9)


def normalised(entry, is_root=False):
    kept = {key: value for key, value in entry.items() if key not in ("WebBookmarkUUID", "Children")}
    return kept, [normalised(child) for child in in_shown_order(entry.get("Children", []), is_root)]


def shared(entry, is_root=False):
    if entry["WebBookmarkType"] != "WebBookmarkTypeList":
        return entry["URIDictionary"]["title"], entry["URLString"]
    children = [shared(child) for child in in_shown_order(entry.get("Children", []), is_root)]
    return None if is_root else entry["Title"], bool(entry.get("WebBookmarkAutoTab")), children


def leaf(title, **more):
    address = f"https://{title.lower().replace(' ', '-')}.example.com/"
    return {"WebBookmarkType": "WebBookmarkTypeLeaf", "WebBookmarkUUID": f"UID {title}", "URLString": address,
            "URIDictionary": {"title": title, "": address}, **more}


def folder(title, children, **more):
    return {"WebBookmarkType": "WebBookmarkTypeList", "WebBookmarkUUID": f"UID {title}", "Title": title,
            "Children": children, **more}


def write(path, root):
    """As the browser does: whole, and by a rename."""
    temporary = path + ".new"
    with open(temporary, "wb") as file:
        plistlib.dump(root, file, fmt=plistlib.FMT_BINARY, sort_keys=False)
    os.replace(temporary, path)


def child(entry, title):
    for each in entry["Children"]:
        if title in (each.get("Title"), each.get("URIDictionary", {}).get("title")):
            return each
    raise KeyError(title)


def root_with(children):
    return {"WebBookmarkType": "WebBookmarkTypeList", "WebBookmarkUUID": "UID Root", "WebBookmarkFileVersion": 1,
            "UnknownInRoot": ["kept", 1], "Children": children}


def preloadable(path):
    """The library by a name of this process's: in LD_PRELOAD a name ends at a blank or a colon, and a path may hold both."""
    return f"/proc/{os.getpid()}/fd/{os.open(path, os.O_RDONLY)}"


def taken_lines(log):
    """What was logged since this was asked last: reading takes the file away."""
    if not os.path.exists(log):
        return []
    with open(log, encoding="utf-8") as file:
        found = file.read().splitlines()
    os.remove(log)
    return found


def write_two_histories(home):
    """Two files that grew apart: some is in both, some in one alone."""
    write(home.bookmarks(FIRST), root_with([
        folder("BookmarksBar", [leaf("Weather"), leaf("News", Unknown={"kept": True})]),
        folder("BookmarksMenu", [leaf("Bread")]),
        folder("Reading", [leaf(f"Page {i}") for i in range(6)], UnknownInFolder="kept"),
        leaf("Loose"), leaf("Twin"), leaf("Twin", WebBookmarkUUID="UID Twin 2")]))
    write(home.bookmarks(SECOND), root_with([
        folder("BookmarksBar", [leaf("Weather"), leaf("Sailing")]),
        folder("Reading", [leaf("Page 0"), leaf("Page of the second")]),
        folder("Second", [leaf(f"Note {i}") for i in range(4)]),
        leaf("Loose")]))


def edit_both(home, deleting=True):
    """Every kind of edit on both sides, at different records; the first client's deletion only when `deleting`."""
    first = home.root(FIRST)
    child(child(first, "Reading"), "Page 1")["URIDictionary"]["title"] = "Page 1, read"
    child(first, "Reading")["Children"].insert(0, leaf("New on the first"))
    first["Children"].append(folder("Made on the first", [leaf("Inside the first")]))
    if deleting:
        first["Children"].remove(child(first, "Loose"))
    child(first, "BookmarksMenu")["Children"].append(child(first, "Second")["Children"].pop())
    write(home.bookmarks(FIRST), first)
    second = home.root(SECOND)
    page = child(child(second, "Reading"), "Page 2")
    page["URLString"] = page["URIDictionary"][""] = "https://moved.example.com/"
    reading = child(second, "Reading")["Children"]
    reading.append(reading.pop(3))
    second["Children"].append(folder("Made on the second", [leaf("Inside the second")]))
    child(second, "Made on the second")["Children"].append(child(second, "Second")["Children"].pop(0))
    child(second, "BookmarksBar")["Children"].remove(child(child(second, "BookmarksBar"), "Sailing"))
    write(home.bookmarks(SECOND), second)


class HomeTest(unittest.TestCase):
    """A test with a home of its own."""

    tools = None

    def setUp(self):
        self.directory = tempfile.mkdtemp(prefix="corvane-home-")
        self.addCleanup(shutil.rmtree, self.directory)
        self.home = Home(self.tools, os.path.join(self.directory, "home")).make()


def run_tests():
    """Those of the script that calls this, whose first argument is the directory of the programs."""
    HomeTest.tools = Tools(os.path.abspath(sys.argv.pop(1)))
    unittest.main(verbosity=1)

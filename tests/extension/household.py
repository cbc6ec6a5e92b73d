"""One user with Chromium, Firefox and a bookmarks file: the browsers with the extension and the real host, each with a profile of
its own, and one home for the host and the tools."""

import os
import pathlib
import signal
import sys
import time

HERE = os.path.dirname(os.path.abspath(__file__))
sys.path.insert(0, os.path.join(HERE, "..", "crash"))

from extended import ChromiumWithExtension, FirefoxWithExtension, copy_extension  # noqa: E402
from homes import FIRST, Home, Tools, root_with, write  # noqa: E402

ARRIVAL_SECONDS = 600  # only what hangs takes so long
BAR = "BookmarksBar"  # how the truth calls the browsers' toolbars


def eventually(condition, what):
    """What the condition answers, once that is something; `what` says what is there instead. A condition that takes its time is
    asked less often, so that it holds up nobody."""
    end = time.monotonic() + ARRIVAL_SECONDS
    while True:
        begin = time.monotonic()
        found = condition()
        if found:
            return found
        if time.monotonic() > end:
            raise AssertionError(what())
        time.sleep(max(0.05, 3 * (time.monotonic() - begin)))


def shape(node):
    """[title, contents] of a browser's node, contents being an address or a list."""
    return [node["title"], [shape(each) for each in node["children"]] if "children" in node else node["url"]]


def shape_in_file(entry):
    if entry["WebBookmarkType"] == "WebBookmarkTypeLeaf":
        return [entry["URIDictionary"]["title"], entry["URLString"]]
    return [entry.get("Title", ""), [shape_in_file(each) for each in entry.get("Children", [])]]


def entry(shaped):
    """The file's entry for such a pair."""
    title, contents = shaped
    identifier = os.urandom(8).hex()
    if isinstance(contents, str):
        return {"WebBookmarkType": "WebBookmarkTypeLeaf", "WebBookmarkUUID": identifier, "URLString": contents,
                "URIDictionary": {"title": title, "": contents}}
    return {"WebBookmarkType": "WebBookmarkTypeList", "WebBookmarkUUID": identifier, "Title": title,
            "Children": [entry(each) for each in contents]}


class Hand:
    """A user's, who works in a folder of the bar, or in the bar itself, and names what lies there by the titles that lead to it."""

    folder = ""  # of the bar

    def titles(self, path):
        return [title for title in (self.folder + "/" + path).split("/") if title]


class BrowserHand(Hand):
    def __init__(self, browser):
        self.browser = browser
        self.flavour = browser.flavour

    def find(self, path=""):
        node = self.browser.roots()["bar"]
        for title in self.titles(path):
            node = next(each for each in node["children"] if each["title"] == title)
        return node

    def shapes(self):
        """What is in the folder; nothing as long as it is not there."""
        try:
            return shape(self.find())[1]
        except StopIteration:
            return None

    def everything(self):
        """What is in each of the browser's roots."""
        return {name: shape(root)[1] for name, root in self.browser.roots().items()}

    def make(self, path, *shapes):
        self.browser.make(self.find(path)["id"], list(shapes))

    def rename(self, path, title):
        self.browser.rename(self.find(path)["id"], title)

    def readdress(self, path, address):
        self.browser.readdress(self.find(path)["id"], address)

    def move(self, path, folder, index):
        self.browser.move(self.find(path)["id"], self.find(folder)["id"], index)

    def remove(self, path):
        self.browser.remove(self.find(path)["id"])


class FileHand(Hand):
    """The same in the bookmarks file, which is in step before each edit and after it."""

    flavour = "file"

    def __init__(self, home):
        self.home = home
        self.save(root_with([entry([BAR, []])]))

    def load(self):
        self.home.must_sync(FIRST)
        return self.home.root(FIRST)

    def save(self, root):
        write(self.home.bookmarks(FIRST), root)
        self.home.must_sync(FIRST)

    def fill(self, size):
        """So many bookmarks in the bar, in folders of a hundred."""
        pages = [[f"Page {number}", f"https://example.com/{number}"] for number in range(size)]
        folders = [[f"Folder {at}", pages[at:at + 100]] for at in range(0, size, 100)]
        self.save(root_with([entry([BAR, folders])]))

    def find(self, root, path=""):
        """The entry, and the list that holds it."""
        found, siblings = root, None
        for title in (BAR, *self.titles(path)):
            siblings = found["Children"]
            found = next(each for each in siblings if title in (each.get("Title"), each.get("URIDictionary", {}).get("title")))
            if "Title" in found:
                found.setdefault("Children", [])
        return found, siblings

    def shapes(self):
        try:
            return shape_in_file(self.find(self.load())[0])[1]
        except StopIteration:
            return None

    def make(self, path, *shapes):
        root = self.load()
        self.find(root, path)[0]["Children"].extend(entry(each) for each in shapes)
        self.save(root)

    def rename(self, path, title):
        root = self.load()
        found, _ = self.find(root, path)
        if "Title" in found:
            found["Title"] = title
        else:
            found["URIDictionary"]["title"] = title
        self.save(root)

    def readdress(self, path, address):
        root = self.load()
        found, _ = self.find(root, path)
        found["URLString"] = found["URIDictionary"][""] = address
        self.save(root)

    def move(self, path, folder, index):
        root = self.load()
        (found, siblings), target = self.find(root, path), self.find(root, folder)[0]["Children"]
        place = siblings.index(found)
        del siblings[place]
        target.insert(index - (1 if target is siblings and place < index else 0), found)
        self.save(root)

    def remove(self, path):
        root = self.load()
        found, siblings = self.find(root, path)
        siblings.remove(found)
        self.save(root)


class Household:
    def __init__(self, build, directory):
        self.build = os.path.abspath(build)
        self.home = Home(Tools(os.path.join(self.build, "bin")), os.path.join(directory, "home")).make()
        self.extension = copy_extension(os.path.join(self.build, "share", "corvane", "browser", "extension"), directory)
        self.host = self.write_host(directory)

    def write_host(self, directory):
        """The browsers have homes of their own, the host has the user's."""
        path = pathlib.Path(directory, "host")
        settings = " ".join(f"'{name}={value}'" for name, value in self.home.environment.items())
        path.write_text(f'#!/bin/sh\nexec env {settings} "{self.build}/bin/corvane-browser-host" "$@"\n', encoding="utf-8")
        path.chmod(0o755)
        return str(path)

    def kill_host(self, flavour):
        """The program that serves that browser."""
        host, = [each for each in pathlib.Path("/proc").iterdir() if self.is_host(each, flavour)]
        os.kill(int(host.name), signal.SIGKILL)

    def is_host(self, process, flavour):
        try:
            arguments = (process / "cmdline").read_bytes().split(b"\0")
            environment = (process / "environ").read_bytes().split(b"\0")
        except OSError:  # it is none, has ended, or is somebody else's
            return False
        return (arguments[0] == f"{self.build}/bin/corvane-browser-host".encode()
                and f"HOME={self.home.path}".encode() in environment
                and arguments[1].startswith(b"chrome-") == (flavour == "chromium"))

    def file(self):
        return FileHand(self.home)

    def chromium(self):
        return ChromiumWithExtension(self.extension, self.host)

    def firefox(self):
        return FirefoxWithExtension(self.extension, self.host)

"""The kinds of sessions that are measured: what a home holds before each of them, and which client it is of.

For `scripts/bench`, which measures time and memory, and for `tests/work`, which counts instructions.
"""

import glob
import os
import shutil
import subprocess
import sys
import threading
import time

BENCH = os.path.dirname(os.path.abspath(__file__))
MAKE_BOOKMARKS = os.path.join(os.path.dirname(BENCH), "scripts", "make-bookmarks")
sys.path.insert(0, os.path.join(os.path.dirname(BENCH), "tests", "crash"))

from homes import FIRST, SECOND, Home, Tools, root_with, write  # noqa: E402,F401 (the path to it is set above)

# Older than anything that the tool writes, so that a touched file is newer than it.
LONG_AGO = 1_700_000_000


class Files:
    """Bookmarks files of one count and shape, each made when it is first asked for."""

    def __init__(self, directory, count, shape):
        self.directory = directory
        self.count = count
        self.shape = shape

    def _made(self, name, *options):
        path = os.path.join(self.directory, f"{self.shape}-{self.count}-{name}.plist")
        if not os.path.exists(path):
            subprocess.run([MAKE_BOOKMARKS, "--count", str(self.count), "--shape", self.shape, *options, path], check=True)
            os.utime(path, (LONG_AGO, LONG_AGO))
        return path

    def plain(self):
        return self._made("plain")

    def renamed(self):
        """The plain one, as it is when one bookmark has got another title."""
        return self._made("renamed", "--renamed")

    def under_other_uids(self):
        """The plain one, but for the uids."""
        return self._made("other", "--uids", "2")

    def renamed_under_other_uids(self):
        return self._made("other-renamed", "--uids", "2", "--renamed")


def put(home, client, path):
    """The file as the browser saves it: newer than any session."""
    shutil.copyfile(path, home.bookmarks(client))


def synced(home, files):
    """The first client has given its bookmarks to the truth, and nothing is new any more."""
    shutil.copy2(files.plain(), home.bookmarks(FIRST))
    home.must_sync(FIRST)
    home.must_sync(FIRST)
    return FIRST


def touched(home, files):
    synced(home, files)
    os.utime(home.bookmarks(FIRST))
    return FIRST


def renamed(home, files):
    synced(home, files)
    put(home, FIRST, files.renamed())
    return FIRST


def one_to_pull(home, files):
    synced(home, files)
    put(home, SECOND, files.under_other_uids())
    home.must_sync(SECOND)
    put(home, SECOND, files.renamed_under_other_uids())
    home.must_sync(SECOND)
    return FIRST


def first(home, files):
    shutil.copy2(files.plain(), home.bookmarks(FIRST))
    return FIRST


def same_under_other_uids(home, files):
    synced(home, files)
    put(home, SECOND, files.under_other_uids())
    return SECOND


def all_to_pull(home, files):
    synced(home, files)
    write(home.bookmarks(SECOND), root_with([]))
    return SECOND


def reset(home, files):
    synced(home, files)
    status, output = home.control("reset", FIRST)
    if status != 0:
        raise SystemExit(f"the client could not be reset: {output}")
    return FIRST


class BrowserSaving:
    """The browser saves once while a session of the second client runs: between the reading of the file and the saving,
    so that the save is refused and everything is replayed.

    It holds the file's lock until the session has come to its journal, which precedes the saving.
    """

    def __init__(self, home):
        self._home = home
        self._lock = os.path.join(os.path.dirname(home.bookmarks(SECOND)), "lock")
        self._ended = False

    def __enter__(self):
        os.mkdir(self._lock)
        self._thread = threading.Thread(target=self._save)
        self._thread.start()

    def __exit__(self, *_):
        self._ended = True
        self._thread.join()

    def _save(self):
        journal = os.path.join(os.path.dirname(self._home.store()), "Journal-*.plist")
        while not self._ended and not glob.glob(journal):
            time.sleep(0.01)
        os.utime(self._home.bookmarks(SECOND))
        os.rmdir(self._lock)


class Kind:
    """One kind of session."""

    def __init__(self, name, prepare, shape=None, meanwhile=None):
        self.name = name
        self.prepare = prepare  # prepares a home with files; answers the client whose session is measured
        self.shape = shape  # of the files; None where any will do
        self.meanwhile = meanwhile  # what goes on during the session

    def during(self, home):
        return self.meanwhile(home) if self.meanwhile else _Nothing()


class _Nothing:
    def __enter__(self):
        pass

    def __exit__(self, *_):
        pass


KINDS = (
    Kind("quiet, fast", synced),
    Kind("quiet, slow", touched),
    Kind("one renamed", renamed),
    Kind("one pulled", one_to_pull),
    Kind("first", first),
    Kind("second client", same_under_other_uids),
    Kind("all pulled, one folder", all_to_pull, shape="wide"),
    Kind("all pulled", all_to_pull),
    Kind("delete-all", reset),
    Kind("refused once", all_to_pull, meanwhile=BrowserSaving),
)

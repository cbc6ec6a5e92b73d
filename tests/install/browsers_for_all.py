#!/usr/bin/env python3
"""Chromium and Firefox as they are on a computer on which the package is installed, with new profiles of a user who does nothing:
each finds the extension and its program, and becomes a client.

usage: browsers_for_all.py TREE      that the package installs; for packages_test.py, in a mount namespace of its own
"""

import os
import pathlib
import subprocess
import sys
import time

TESTS = pathlib.Path(__file__).resolve().parent.parent
sys.path.insert(0, str(TESTS / "browsers"))

from browsers import Chromium, Firefox  # noqa: E402

ARRIVAL_SECONDS = 120


def loomerctl(home, *arguments):
    """Its exit status and what it prints."""
    environment = {"HOME": home, "PATH": os.environ["PATH"], "LC_ALL": "C", "COLUMNS": "200"}
    done = subprocess.run(["/usr/bin/loomerctl", *arguments], env=environment, stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
                          stderr=subprocess.STDOUT, text=True, check=False)
    return done.returncode, done.stdout


def wait_for_client(home, name):
    end = time.monotonic() + ARRIVAL_SECONDS
    while name not in (clients := loomerctl(home, "clients")[1]):
        if time.monotonic() > end:
            sys.exit(f"{name} does not become a client: {clients}")
        time.sleep(0.1)


def main():
    tree = sys.argv[1]
    for part in ("usr", "etc"):
        subprocess.run(["mount", "-t", "overlay", "-o", f"lowerdir={tree}/{part}:/{part}", "overlay", f"/{part}"], check=True)
    for kind, name in ((Chromium, "Chromium"), (Firefox, "Firefox")):
        with kind() as browser:
            wait_for_client(browser.profile, name)
            status, said = loomerctl(browser.profile, "browser", "status", name.lower())
            if status != 0 or said.count("/usr/") != 2:
                sys.exit(f"loomerctl does not see what {name} does: {said}")


if __name__ == "__main__":
    main()

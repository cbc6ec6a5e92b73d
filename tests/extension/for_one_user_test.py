#!/usr/bin/env python3
"""What `loomerctl browser` does for one user, as Debian's browsers see it: without it they do not find the program, with it they
become clients, and Firefox takes the extension, which is not signed, where it is told to.

usage: for_one_user_test.py BUILD_DIRECTORY [TEST...]
"""

import os
import re
import subprocess
import sys
import time
import unittest

HERE = os.path.dirname(os.path.abspath(__file__))
sys.path.insert(0, os.path.join(HERE, "..", "browsers"))

from browsers import Chromium, Firefox  # noqa: E402

BUILD = None
ARRIVAL_SECONDS = 120
# "Install Add-on From File"; answers the manager's error, 0 for none.
INSTALL_FROM_FILE = """
const {AddonManager} = ChromeUtils.importESModule("resource://gre/modules/AddonManager.sys.mjs");
const {FileUtils} = ChromeUtils.importESModule("resource://gre/modules/FileUtils.sys.mjs");
return AddonManager.getInstallForFile(new FileUtils.File(arguments[0]))
  .then(install => install.install().then(() => 0, () => install.error));
"""


class ForOneUser(unittest.TestCase):
    def loomerctl(self, *arguments):
        environment = {"HOME": self.home, "PATH": os.environ["PATH"], "LC_ALL": "C", "COLUMNS": "2000"}
        done = subprocess.run([os.path.join(BUILD, "bin", "loomerctl"), *arguments], env=environment, stdin=subprocess.DEVNULL,
                              stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True, check=False)
        return done.returncode, " ".join(done.stdout.split())

    def install(self, name):
        """What it says then."""
        status, said = self.loomerctl("browser", "status", name)
        self.assertEqual(status, 1, said)
        status, said = self.loomerctl("browser", "install", name)
        self.assertEqual(status, 0, said)
        return said

    def wait_for_client(self, name):
        end = time.monotonic() + ARRIVAL_SECONDS
        while name not in (clients := self.loomerctl("clients")[1]):
            self.assertLess(time.monotonic(), end, f"{name} does not become a client: {clients}")
            time.sleep(0.1)

    def remove(self, name):
        self.assertEqual(self.loomerctl("browser", "remove", name)[0], 0)
        self.assertEqual(self.loomerctl("browser", "status", name)[0], 1)

    def test_chromium_finds_the_program_and_loads_the_folder(self):
        browser = Chromium()
        self.home = browser.profile
        # Where it has its data when nobody names another place.
        browser.data = os.path.join(self.home, ".config", "chromium")
        folder = re.search(r"Load unpacked, and (.*)\.$", self.install("chromium"))[1]
        browser.arguments = (f"--load-extension={folder}",)
        with browser:
            self.wait_for_client("Chromium")
            self.remove("chromium")

    def test_firefox_finds_the_program_and_takes_what_is_not_signed_where_it_is_told_to(self):
        browser = Firefox()
        self.home = browser.profile
        file = re.search(r"Install Add-on From File in about:addons, and (.*)\.$", self.install("firefox"))[1]
        with browser:
            signed = "Services.prefs.setBoolPref('xpinstall.signatures.required', arguments[0])"
            browser.in_browser(signed, True)
            self.assertNotEqual(browser.in_browser(INSTALL_FROM_FILE, file), 0)
            browser.in_browser(signed, False)
            self.assertEqual(browser.in_browser(INSTALL_FROM_FILE, file), 0)
            self.wait_for_client("Firefox")
            self.remove("firefox")


if __name__ == "__main__":
    BUILD = os.path.abspath(sys.argv.pop(1))
    unittest.main(verbosity=2)

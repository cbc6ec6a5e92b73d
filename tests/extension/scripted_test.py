#!/usr/bin/env python3
"""The scripted browser, in the place of which the tests of the host put real ones: it does with each request what the extension
does in those.

usage: scripted_test.py PROGRAM [TEST...]
"""

import os
import socket
import subprocess
import sys
import unittest

sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))

from host_side import HostSide  # noqa: E402
from suite import Requests  # noqa: E402

PROGRAM = None


class Scripted(Requests):
    @classmethod
    def setUpClass(cls):
        here, there = socket.socketpair()
        with there:
            cls.process = subprocess.Popen([PROGRAM, cls.flavour], stdin=there, stdout=there)
        cls.addClassCleanup(cls.process.wait)
        cls.addClassCleanup(here.shutdown, socket.SHUT_RDWR)
        cls.host = HostSide(here)
        cls.hello = cls.host.receive()

    def test_hello_says_who_is_there(self):
        self.assertEqual((self.hello["type"], self.hello["protocol"], self.hello["browser"]), ("hello", 1, self.flavour))


class ScriptedChromium(Scripted, unittest.TestCase):
    flavour = "chromium"


class ScriptedFirefox(Scripted, unittest.TestCase):
    flavour = "firefox"


if __name__ == "__main__":
    PROGRAM = sys.argv.pop(1)
    unittest.main(verbosity=2)

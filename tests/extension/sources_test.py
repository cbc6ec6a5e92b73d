#!/usr/bin/env python3
"""The extension as its sources have it: its types by TypeScript, its manifest and code by Mozilla's linter, its names by those that
the programs use, its texts in every language.

usage: sources_test.py SOURCE_DIRECTORY BUILD_DIRECTORY [TEST...]
"""

import base64
import contextlib
import fcntl
import hashlib
import json
import os
import pathlib
import re
import shutil
import subprocess
import sys
import unittest

SOURCE = BUILD = None
LANGUAGES = ("de", "en", "es", "fr", "ja")
# Firefox has no service workers for extensions: it runs the same script in another way, which the manifest names as well.
MEANT = {"BACKGROUND_SERVICE_WORKER_IGNORED"}


@contextlib.contextmanager
def alone(path):
    """One process at a time."""
    with open(path, "w", encoding="ascii") as lock:
        fcntl.flock(lock, fcntl.LOCK_EX)
        yield


def checkers():
    """Where the programs are that check: those of the lock file, fetched once for the build, none of whose scripts is run."""
    wanted = SOURCE / "tests" / "extension" / "checks"
    place = BUILD / "extension-checks"
    place.mkdir(exist_ok=True)
    installed = place / "installed"
    with alone(place / "lock"):
        lock = (wanted / "package-lock.json").read_bytes()
        if not installed.exists() or installed.read_bytes() != lock:
            if not shutil.which("npm"):
                raise AssertionError("there is no npm; scripts/packages test installs it")
            for name in ("package.json", "package-lock.json"):
                shutil.copy(wanted / name, place / name)
            done = subprocess.run(["npm", "ci", "--ignore-scripts", "--no-audit", "--no-fund", "--prefer-offline"], cwd=place,
                                  stdin=subprocess.DEVNULL, capture_output=True, text=True, check=False)
            if done.returncode != 0:
                raise AssertionError(f"npm does not fetch what checks the extension: {done.stderr}")
            installed.write_bytes(lock)
    return place / "node_modules"


class Sources(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.extension = BUILD / "share" / "corvane" / "browser" / "extension"
        cls.manifest = json.loads((cls.extension / "manifest.json").read_text(encoding="utf-8"))

    def check(self, program, *arguments):
        done = subprocess.run([str(checkers() / ".bin" / program), *arguments], cwd=self.extension, stdin=subprocess.DEVNULL,
                              capture_output=True, text=True, check=False,
                              env={**os.environ, "HOME": str(BUILD / "extension-checks"), "NO_UPDATE_NOTIFIER": "1"})
        return done.returncode, done.stdout + done.stderr

    def test_types_agree(self):
        options = json.loads((SOURCE / "tests" / "extension" / "checks" / "tsconfig.json").read_text(encoding="utf-8"))
        options["compilerOptions"]["typeRoots"] = [str(checkers() / "@types")]
        options["files"] = sorted(str(each) for each in self.extension.glob("*.js"))
        project = BUILD / "extension-checks" / "tsconfig.json"
        project.write_text(json.dumps(options), encoding="utf-8")
        self.assertEqual(self.check("tsc", "--noEmit", "--project", str(project)), (0, ""))

    def test_mozillas_linter_finds_nothing_that_is_not_meant(self):
        _, output = self.check("web-ext", "lint", "--no-config-discovery", "--output=json", "--source-dir", str(self.extension))
        found = json.loads(output)
        self.assertEqual({kind: [each for each in found[kind] if each["code"] not in MEANT]
                          for kind in ("errors", "notices", "warnings")}, {"errors": [], "notices": [], "warnings": []})

    def test_extension_asks_for_no_more_than_it_uses(self):
        self.assertEqual(self.manifest["permissions"], ["bookmarks", "nativeMessaging", "storage"])
        for key in ("host_permissions", "optional_permissions", "optional_host_permissions", "content_scripts",
                    "externally_connectable", "web_accessible_resources"):
            self.assertNotIn(key, self.manifest)
        policy = self.manifest["content_security_policy"]["extension_pages"]
        self.assertEqual(policy, "default-src 'none'; script-src 'self'; style-src 'self'; img-src 'self'")

    def test_both_sides_call_one_another_the_same(self):
        header = (SOURCE / "browsers" / "BrowserNames.h").read_text(encoding="utf-8")
        names = dict(re.findall(r'(k\w+) = "?([^";]+)', header))
        key = hashlib.sha256(base64.b64decode(self.manifest["key"], validate=True)).hexdigest()[:32]
        self.assertEqual(names["kChromiumExtension"], key.translate(str.maketrans("0123456789abcdef", "abcdefghijklmnop")))
        self.assertEqual(names["kFirefoxExtension"], self.manifest["browser_specific_settings"]["gecko"]["id"])
        script = (self.extension / "background.js").read_text(encoding="utf-8")
        self.assertIn(f'const HOST = "{names["kHostName"]}";', script)
        self.assertIn(f'const PROTOCOL = {names["kProtocol"]};', script)

    def test_texts_stand_in_every_language(self):
        tables = {path.parent.name: json.loads(path.read_text(encoding="utf-8"))
                  for path in (self.extension / "_locales").glob("*/messages.json")}
        self.assertEqual(sorted(tables), sorted(LANGUAGES))
        for language, table in tables.items():
            self.assertEqual(table.keys(), tables["en"].keys(), language)
            for name, entry in table.items():
                with self.subTest(language=language, name=name):
                    placeholders = set(re.findall(r"\$(\w+)\$", entry["message"].lower()))
                    self.assertEqual(placeholders, entry.get("placeholders", {}).keys())
                    self.assertEqual(entry.get("placeholders"), tables["en"][name].get("placeholders"))
                    self.assertTrue(entry["message"])

    def test_no_text_is_missing_and_none_is_left(self):
        code = "".join(path.read_text(encoding="utf-8") for pattern in ("*.js", "*.html", "manifest.json")
                       for path in self.extension.glob(pattern))
        table = json.loads((self.extension / "_locales" / "en" / "messages.json").read_text(encoding="utf-8"))
        named = set(re.findall(r'(?:\btext\(|getMessage\(|data-message=)"(\w+)"|__MSG_(\w+)__', code))
        self.assertLessEqual({a or b for a, b in named}, table.keys())
        self.assertEqual([name for name in table if f'"{name}"' not in code and f"__MSG_{name}__" not in code], [])


if __name__ == "__main__":
    SOURCE, BUILD = pathlib.Path(sys.argv.pop(1)).resolve(), pathlib.Path(sys.argv.pop(1)).resolve()
    unittest.main(verbosity=2)

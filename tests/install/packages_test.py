#!/usr/bin/env python3
"""The Debian packages of this build, looked into without being installed.

usage: packages_test.py BUILD_DIRECTORY VERSION [TEST...]
"""

import gzip
import json
import os
import pathlib
import stat
import subprocess
import sys
import tempfile
import unittest
import zipfile

HERE = pathlib.Path(__file__).resolve().parent
BUILD = None
VERSION = None


def sh(*command):
    done = subprocess.run(command, stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True,
                          umask=0o077, timeout=300)
    if done.returncode != 0:
        raise RuntimeError(f"{' '.join(map(str, command))}: exit status {done.returncode}\n{done.stdout}")
    return done.stdout


class Packages(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        directory = tempfile.TemporaryDirectory(prefix="corvane-packages-")
        cls.addClassCleanup(directory.cleanup)
        made = pathlib.Path(directory.name)
        # How small they are is not looked at.
        sh("cpack", "--config", os.path.join(BUILD, "CPackConfig.cmake"), "-D", "CPACK_DEBIAN_COMPRESSION_TYPE=gzip", "-B", made)
        cls.packages = {path.name.split("_")[0]: path for path in made.glob("*.deb")}
        cls.trees = {name: made / name for name in cls.packages}
        for name, path in cls.packages.items():
            sh("dpkg-deb", "--raw-extract", path, cls.trees[name])

    def files(self, name):
        """What the package installs, directories left out, by its path in the system."""
        tree = self.trees[name]
        return {f"/{path.relative_to(tree)}": path for path in tree.rglob("*")
                if "DEBIAN" not in path.parts and not path.is_dir()}

    def test_there_are_two_of_the_projects_version(self):
        self.assertEqual(sorted(self.packages), ["corvane-hub", "corvane-sync"])
        for path in self.packages.values():
            self.assertEqual(sh("dpkg-deb", "--field", path, "Version").strip(), VERSION)

    def test_each_command_is_in_one_of_them(self):
        commands = {name: sorted(path for path in self.files(name) if path.startswith("/usr/bin/")) for name in self.packages}
        self.assertEqual(commands, {"corvane-hub": ["/usr/bin/corvane-hub"],
                                    "corvane-sync": ["/usr/bin/corvane-browser-host", "/usr/bin/corvanetool",
                                                     "/usr/bin/loomerctl"]})
        self.assertTrue((self.trees["corvane-sync"] / "usr/bin/corvanetool").exists(), "a link that leads somewhere")

    def test_what_is_loaded_at_its_first_use_is_depended_on_like_what_is_linked(self):
        depends = sh("dpkg-deb", "--field", self.packages["corvane-sync"], "Depends")
        for library in ("libcurl4", "libidn2-0", "libsodium23", "libsqlite3-0", "libsystemd0", "libzstd1"):
            self.assertIn(library, depends)

    def test_everybody_may_read_and_none_but_root_write_what_was_packed_under_a_closed_umask(self):
        for name, tree in self.trees.items():
            for path in [*tree.rglob("*"), *(tree / "DEBIAN").rglob("*")]:
                mode = path.lstat().st_mode
                if not stat.S_ISLNK(mode):
                    self.assertEqual(mode & 0o066, 0o044, f"{name}: {path.relative_to(tree)}")

    def test_manual_pages_and_changes_are_compressed_and_told_to_dpkg(self):
        for name in self.packages:
            files = self.files(name)
            pages = [path for path in files if path.startswith("/usr/share/man/")]
            self.assertTrue(pages and all(path.endswith(".gz") for path in pages), pages)
            changes = self.trees[name].parent / f"{name}.changes"
            changes.write_bytes(gzip.decompress(files[f"/usr/share/doc/{name}/changelog.gz"].read_bytes()))
            for field, expected in (("Source", name), ("Version", VERSION)):
                self.assertEqual(sh("dpkg-parsechangelog", "-l", changes, "-S", field).strip(), expected)
            self.assertIn(f"/usr/share/doc/{name}/copyright", files)

    def test_browsers_find_the_extension_and_its_program_for_all_users(self):
        files = self.files("corvane-sync")
        name = "com.keldra.corvane.bookmarks"
        common = {"name": name, "description": "Corvane Bookmarks", "path": "/usr/bin/corvane-browser-host", "type": "stdio"}
        self.assertIn(common["path"], files)
        for path, allowed in ((f"/etc/chromium/native-messaging-hosts/{name}.json",
                               {"allowed_origins": ["chrome-extension://jkhpgakcmhjkmpknlofaaacbbofenkdk/"]}),
                              (f"/usr/lib/mozilla/native-messaging-hosts/{name}.json",
                               {"allowed_extensions": ["bookmarks@corvane.keldra.com"]})):
            self.assertEqual(json.loads(files[path].read_text(encoding="utf-8")), {**common, **allowed})
        folder = "/usr/share/chromium/extensions/corvane-bookmarks/"
        unpacked = {path.removeprefix(folder): each.read_bytes() for path, each in files.items() if path.startswith(folder)}
        packed = "/usr/share/mozilla/extensions/{ec8030f7-c20a-464f-9b0e-13a3a9e97384}/bookmarks@corvane.keldra.com.xpi"
        with zipfile.ZipFile(files[packed]) as archive:
            self.assertEqual({each.filename: archive.read(each) for each in archive.infolist() if not each.is_dir()}, unpacked)
        self.assertEqual(json.loads(unpacked["manifest.json"])["version"], VERSION)
        self.assertEqual([path for path in files if path.startswith("/usr/share/corvane/")], [])

    def test_browsers_of_all_users_become_clients(self):
        as_root = [] if os.getuid() == 0 else ["--user", "--map-root-user"]
        sh("unshare", *as_root, "--mount", "--propagation", "private", sys.executable, "-B", HERE / "browsers_for_all.py",
           self.trees["corvane-sync"])

    def test_only_what_lies_in_etc_is_asked_for_before_it_is_replaced(self):
        for name in self.packages:
            listed = sh("dpkg-deb", "--info", self.packages[name], "conffiles").split()
            self.assertEqual(listed, sorted(path for path in self.files(name) if path.startswith("/etc/")))

    def test_the_servers_unit_starts_what_is_installed(self):
        files = self.files("corvane-hub")
        unit = files["/usr/lib/systemd/system/corvane-hub.service"].read_text(encoding="utf-8")
        self.assertIn("\nExecStart=/usr/bin/corvane-hub serve\n", unit)


def main():
    global BUILD, VERSION
    BUILD, VERSION = sys.argv.pop(1), sys.argv.pop(1)
    unittest.main(verbosity=1)


if __name__ == "__main__":
    main()

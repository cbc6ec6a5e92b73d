#!/usr/bin/env python3
"""The Debian packages in a clean Debian: installed, used, upgraded and purged.

usage: package_test.py PACKAGES ROOT [TEST...]

PACKAGES is the directory that holds the packages. ROOT is where a Debian is made, or was made by an earlier run; nothing in
it is changed but the packages that ours depend on. Only root can do that. Each test has a layer of its own over it, in
memory, and all of them are in mount, process and network namespaces of their own.
"""

import fcntl
import os
import pathlib
import re
import shutil
import socket
import sqlite3
import stat
import struct
import subprocess
import sys
import tempfile
import unittest

TESTS = pathlib.Path(__file__).resolve().parent.parent
sys.path.insert(0, str(TESTS / "crash"))

from homes import leaf, root_with, write  # noqa: E402

NAMES = ("corvane-sync", "corvane-hub")
DEVICES = ("full", "null", "random", "urandom", "zero")
# What changes by a package's coming and going, and says so itself.
BOOKS = ("var/lib/dpkg/", "var/log/", "var/cache/", "tmp/", "run/")
# What the programs that add a user leave beside the users.
USERS = {"etc/.pwd.lock"} | {f"etc/{name}{old}" for name in ("passwd", "group", "shadow", "gshadow") for old in ("", "-")}
PATH = "/usr/sbin:/usr/bin:/sbin:/bin"
SYNC = ["corvanetool", "--sync", "com.keldra.Corvane", "--entitynames", "bookmarks"]

PACKAGES = None
ROOT = None


def sh(*command, **options):
    """What the command printed; fails with all that it said."""
    done = subprocess.run(command, stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True,
                          **options)
    if done.returncode != 0:
        raise RuntimeError(f"{' '.join(map(str, command))}: exit status {done.returncode}\n{done.stdout}")
    return done.stdout


def field(package, name):
    return sh("dpkg-deb", "--field", package, name).strip()


def make_root():
    """A Debian of this machine's release, with what our packages depend on."""
    if not (ROOT / "etc/debian_version").exists():
        system = pathlib.Path("/etc/os-release").read_text(encoding="utf-8")
        release = re.search(r"^VERSION_CODENAME=(\w+)", system, re.MULTILINE)[1]
        making = ROOT.with_name(ROOT.name + ".making")
        shutil.rmtree(making, ignore_errors=True)
        # What it mounts in there is gone however it ends: the next run removes what is left of it.
        sh("unshare", "--mount", "debootstrap", "--variant=minbase", release, making)
        making.rename(ROOT)
    depends = [field(each, "Depends") for each in PACKAGES]
    proxies = {name: value for name, value in os.environ.items() if name.lower().endswith("_proxy")}
    environment = {"PATH": PATH, "DEBIAN_FRONTEND": "noninteractive", **proxies}
    sh("chroot", ROOT, "apt-get", "update", "-q", env=environment)
    sh("chroot", ROOT, "apt-get", "satisfy", "-y", "-q", "--no-install-recommends", ", ".join(depends), env=environment)


def switch_loopback_on():
    """A network namespace begins without."""
    with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as any_socket:
        up = struct.pack("16sh14x", b"lo", 0x1)  # IFF_UP, see netdevice(7)
        fcntl.ioctl(any_socket, 0x8914, up)  # SIOCSIFFLAGS


class CleanDebian(unittest.TestCase):
    def setUp(self):
        self.work = pathlib.Path(tempfile.mkdtemp(prefix="corvane-package-"))
        self.addCleanup(self.work.rmdir)
        self.mount("tmpfs", "none", self.work)
        self.upper, self.root = self.work / "upper", self.work / "root"
        for each in (self.upper, self.root, self.work / "work"):
            each.mkdir()
        self.mount("overlay", "none", self.root, f"lowerdir={ROOT},upperdir={self.upper},workdir={self.work / 'work'}")
        self.mount("proc", "none", self.root / "proc")
        self.mount("tmpfs", "none", self.root / "run")
        # Without the system log.
        self.mount("tmpfs", "none", self.root / "dev", "mode=755")
        for name in DEVICES:
            (self.root / "dev" / name).touch()
            sh("mount", "--bind", f"/dev/{name}", self.root / "dev" / name)
            self.addCleanup(sh, "umount", self.root / "dev" / name)
        self.run_in("useradd", "--create-home", "ada")

    def mount(self, kind, what, where, options="defaults"):
        sh("mount", "-t", kind, "-o", options, what, where)
        self.addCleanup(sh, "umount", where)

    def command(self, *command, user="root"):
        home = "/root" if user == "root" else f"/home/{user}"
        as_user = () if user == "root" else ("setpriv", f"--reuid={user}", f"--regid={user}", "--init-groups")
        return ["chroot", self.root, "env", "-i", f"PATH={PATH}", f"HOME={home}", "LC_ALL=C.UTF-8",
                "DEBIAN_FRONTEND=noninteractive", *as_user, *command]

    def run_in(self, *command, user="root", **options):
        return sh(*self.command(*command, user=user), **options)

    def install(self, packages):
        for each in packages:
            shutil.copy(each, self.root / "tmp")
        self.run_in("dpkg", "--install", *(f"/tmp/{each.name}" for each in packages))

    def write_bookmarks(self, *titles):
        library = self.root / "home/ada/Library/Corvane"
        library.mkdir(parents=True, exist_ok=True)
        write(str(library / "Bookmarks.plist"), root_with([leaf(title) for title in titles]))
        self.run_in("chown", "-R", "ada:ada", "/home/ada")

    def titles(self, user="ada"):
        return re.findall(r'"title": "(.*)"', self.run_in("loomerctl", "tree", "--json", user=user))

    def left(self):
        """Every path that is there and was not before, or has been changed, but the books of dpkg and the like."""
        paths = set()
        for where, directories, names in os.walk(self.upper):
            for name in (*directories, *names):
                path = os.path.relpath(os.path.join(where, name), self.upper)
                is_directory = stat.S_ISDIR(os.lstat(os.path.join(where, name)).st_mode)
                if not path.startswith(BOOKS) and not (is_directory and (ROOT / path).is_dir()):
                    paths.add(path)
        return paths


class InstalledUsedAndPurged(CleanDebian):
    def serve(self):
        """As the unit does."""
        self.run_in("install", "-d", "-o", "corvane-hub", "-m", "700", "/var/lib/corvane-hub")
        server = subprocess.Popen(self.command("corvane-hub", "serve", user="corvane-hub"), stdin=subprocess.DEVNULL,
                                  stdout=subprocess.DEVNULL, stderr=subprocess.PIPE, text=True)
        self.addCleanup(server.stderr.close)
        self.addCleanup(server.wait)
        self.addCleanup(server.terminate)
        for line in server.stderr:
            if "serves" in line:
                return server
        raise RuntimeError("corvane-hub does not run")

    def test_nothing_is_left_but_what_people_made(self):
        before = self.left()
        self.install(PACKAGES)
        self.write_bookmarks("One", "Two")
        self.run_in(*SYNC, user="ada")
        self.assertEqual(sorted(self.titles()), ["One", "Two"])

        server = self.serve()
        token = self.run_in("corvane-hub", "account", "add", "ada", "laptop")
        done = subprocess.run(self.command("loomerctl", "account", "set", "hub://127.0.0.1:8420?tls=no", user="ada"),
                              input=token, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True)
        self.assertEqual(done.returncode, 0, done.stdout)
        self.run_in("corvanetool", "--register", user="ada")
        self.run_in(*SYNC, user="ada")
        self.assertNotIn(" 0 bytes", self.run_in("corvane-hub", "account", "list", "ada"))
        server.terminate()
        server.wait()

        self.run_in("dpkg", "--purge", *NAMES)
        left = self.left() - before
        made = {path for path in left if path.startswith(("home/ada/Library", "var/lib/corvane-hub"))}
        for path in ("home/ada/Library/Application Support/Loomer/Truth.db", "var/lib/corvane-hub/accounts/ada"):
            self.assertIn(path, made)
        self.assertEqual(left - made - USERS, set())

    def test_the_user_units_are_where_systemd_looks_and_run_as_written(self):
        self.install(PACKAGES)
        self.write_bookmarks("One")
        directory = pathlib.PurePosixPath("/usr/lib/systemd/user")
        units = ("corvane-sync.service", "corvane-sync.timer", "corvane-sync@Bookmarks.plist.path")
        environment = ("env", "XDG_RUNTIME_DIR=/home/ada", "SYSTEMD_LOG_LEVEL=warning")
        self.assertEqual(self.run_in(*environment, "systemd-analyze", "--user", "verify", "--man=no",
                                     *(str(directory / unit) for unit in units), user="ada"), "")
        service = (self.root / directory.relative_to("/") / units[0]).read_text(encoding="utf-8")
        command = re.search(r"^ExecStart=(.*)", service, re.MULTILINE)[1].replace("%Y", str(directory)).split()
        self.run_in(*command, user="ada")
        self.assertEqual(self.titles(), ["One"])
        # Nobody's manager runs here.
        done = subprocess.run(self.command("loomerctl", "enable", user="ada"), stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
                              stderr=subprocess.STDOUT, text=True)
        self.assertEqual(done.returncode, 1, done.stdout)
        self.assertIn("\n    */15 * * * * /usr/bin/loomerctl sync --unattended\n", done.stdout)
        guide = "usr/share/doc/corvane-sync/guide.md"
        self.assertIn(f" /{guide} ", done.stdout)
        self.assertTrue((self.root / guide).exists())

    def test_the_servers_user_goes_where_nothing_is_his(self):
        users = self.root / "etc/passwd"
        before, files = users.read_text(encoding="utf-8"), self.left()
        self.install(PACKAGES)
        self.assertIn("corvane-hub:", users.read_text(encoding="utf-8"))
        self.run_in("dpkg", "--purge", *NAMES)
        self.assertEqual(users.read_text(encoding="utf-8"), before)
        self.assertEqual(self.left() - files - USERS, set())


class Hardened(unittest.TestCase):
    def readelf(self, program):
        return sh("readelf", "--wide", "--file-header", "--dynamic", "--segments", "--dyn-syms", program)

    def test_every_program_is_built_so_that_faults_in_memory_are_hard_to_use(self):
        with tempfile.TemporaryDirectory(prefix="corvane-package-") as directory:
            for each in PACKAGES:
                sh("dpkg-deb", "--extract", each, directory)
            programs = [path for path in pathlib.Path(directory).rglob("*")
                        if path.is_file() and not path.is_symlink() and path.read_bytes()[:4] == b"\x7fELF"]
            self.assertEqual(sorted(path.name for path in programs), ["corvane-browser-host", "corvane-hub", "corvanetool", "loomerctl"])
            for program in programs:
                text = self.readelf(program)
                for what, pattern in (("position-independent", r"Flags:.* PIE"), ("bound at once", r"Flags:.* NOW"),
                                      ("read-only relocations", "GNU_RELRO"), ("stack not executable", r"GNU_STACK .* RW "),
                                      ("stack protection", "__stack_chk_fail"), ("fortified calls", r"__\w+_chk@")):
                    self.assertRegex(text, pattern, f"{program.name}: {what}")
                if "X86-64" in text:
                    # A function that may be called by its address begins with "endbr64".
                    self.assertGreater(program.read_bytes().count(b"\xf3\x0f\x1e\xfa"), 1000, program.name)


class Upgraded(CleanDebian):
    def before(self, package):
        """The package as one of an earlier version."""
        tree = self.work / "earlier"
        sh("dpkg-deb", "--raw-extract", package, tree)
        control = tree / "DEBIAN/control"
        text = control.read_text(encoding="utf-8")
        control.write_text(re.sub(r"^Version: .*", "Version: 1.0.0", text, flags=re.MULTILINE), encoding="utf-8")
        earlier = self.work / f"{field(package, 'Package')}-earlier.deb"
        sh("dpkg-deb", "--root-owner-group", "--build", tree, earlier)
        shutil.rmtree(tree)
        return earlier

    def test_the_store_the_accounts_and_a_changed_configuration_stay(self):
        self.install([self.before(each) for each in PACKAGES])
        self.write_bookmarks("One", "Two")
        self.run_in(*SYNC, user="ada")
        configuration = self.root / "etc/corvane-hub.conf"
        configuration.write_text("data = /srv/accounts\nlisten = 127.0.0.1:9\n", encoding="utf-8")
        self.run_in("corvane-hub", "account", "add", "ada")

        self.install(PACKAGES)
        for name in NAMES:
            self.assertEqual(self.run_in("dpkg-query", "-W", "-f=${Version}", name), field(PACKAGES[0], "Version"))
        self.assertEqual(self.run_in("loomerctl", "--version").split()[1], field(PACKAGES[0], "Version"))
        self.assertEqual(sorted(self.titles()), ["One", "Two"])
        self.write_bookmarks("One", "Two", "Three")
        self.run_in(*SYNC, user="ada")
        self.assertEqual(sorted(self.titles()), ["One", "Three", "Two"])
        self.run_in("loomerctl", "check", user="ada")
        self.assertIn("listen = 127.0.0.1:9", configuration.read_text(encoding="utf-8"))
        self.assertIn("ada", self.run_in("corvane-hub", "account", "list"))

    def test_a_store_that_the_first_version_wrote_is_taken_over(self):
        self.install(PACKAGES)
        header = (TESTS / "loomer/engine/FirstVersionStore.h").read_text(encoding="utf-8")
        statements = re.search(r'R"sql\((.*?)\)sql"', header, re.DOTALL)
        directory = self.root / "home/ada/Library/Application Support/Loomer"
        directory.mkdir(parents=True)
        store = sqlite3.connect(directory / "Truth.db")
        store.executescript(statements[1])
        store.close()
        self.write_bookmarks("New")
        self.run_in(*SYNC, user="ada")
        self.assertEqual(sorted(self.titles()), ["A", "F", "New"])
        self.run_in("loomerctl", "check", user="ada")


def main():
    global PACKAGES, ROOT
    inside = sys.argv[1] == "--inside"
    arguments = sys.argv[2:] if inside else sys.argv[1:]
    PACKAGES = sorted(pathlib.Path(arguments[0]).resolve().glob("*.deb"), reverse=True)
    ROOT = pathlib.Path(arguments[1]).resolve()
    if sorted(field(each, "Package") for each in PACKAGES) != sorted(NAMES):
        sys.exit(f"package_test: {arguments[0]} does not hold the packages {' and '.join(NAMES)}")
    if not inside:
        make_root()
        os.execvp("unshare", ["unshare", "--mount", "--pid", "--fork", "--kill-child", "--net", "--propagation", "private",
                              sys.executable, "-B", __file__, "--inside", *arguments])
    switch_loopback_on()
    unittest.main(argv=[sys.argv[0], *arguments[2:]], verbosity=1)


if __name__ == "__main__":
    main()

#!/usr/bin/env python3
"""What real shells make of a line when they are asked to complete it, with the real tools and a store of theirs.

usage: completion_test.py SHELL PROJECT_ROOT DIRECTORY_OF_PROGRAMS [TEST...]

SHELL is bash, zsh or fish.
"""

import os
import pty
import re
import shlex
import shutil
import subprocess
import sys
import tempfile
import threading
import time
import unittest

sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "crash"))

from homes import FIRST, Home, Tools, leaf, root_with, write  # noqa: E402

SHELL = None
COMPLETIONS = None
PROGRAMS = None

# A line, and what can stand in place of its last word. In the home there are one client, one session that changed
# something, the file "bookmarks.html" and the directory "books".
LINES = (
    ("loomerctl stat", ["status"]),
    ("loomerctl --v", ["--version"]),
    ("loomerctl wat", ["watch"]),
    ("loomerctl diff --json ", [FIRST]),
    ("loomerctl account rem", ["remove", "remove-computer"]),
    ("loomerctl account pass", ["passphrase"]),
    ("loomerctl plan ", [FIRST]),
    ("loomerctl plan --json com", [FIRST]),
    ("loomerctl plan " + FIRST + " c", []),
    ("loomerctl enable ", [FIRST]),
    ("loomerctl enable " + FIRST + " c", [FIRST]),
    ("loomerctl sync --u", ["--unattended"]),
    ("loomerctl undo ", ["1"]),
    ("loomerctl undo --f", ["--force"]),
    ("loomerctl changes --limit 5 --s", ["--session"]),
    ("loomerctl changes --limit ", []),
    ("loomerctl changes --limit 5 --session ", ["1"]),
    ("loomerctl changes --session=", ["--session=1"]),
    ("loomerctl import bookm", ["bookmarks.html"]),
    ("loomerctl import --d", ["--dry-run"]),
    ("loomerctl import --dry-run bookm", ["bookmarks.html"]),
    ("loomerctl account set boo", ["books"]),
    ("loomerctl browser inst", ["install"]),
    ("loomerctl browser install fire", ["firefox"]),
    ("loomerctl browser remove firefox c", []),
    ("loomerctl nonsense ", []),
    ("corvanetool --isr", ["--isregistered"]),
    ("corvanetool --un", ["--unregister", "--unregistersyncclient"]),
    ("corvanetool --sync ", [FIRST]),
    ("corvanetool --registersyncclient com", [FIRST]),
    ("corvanetool --registersyncclient " + FIRST + " ", []),
    ("corvanetool --sync " + FIRST + " --e", ["--entitynames"]),
    ("corvanetool --sync " + FIRST + " --entitynames ", ["bookmarks"]),
)


class Terminal:
    """An interactive shell in a home, at a terminal of its own."""

    def __init__(self, home, arguments, setup):
        self.home = home
        process, self.terminal = pty.fork()
        if process == 0:
            os.chdir(home.path)
            os.execvpe(arguments[0], arguments, home.environment)
        self.process = process
        self.said = b""
        self.reader = threading.Thread(target=self.read)
        self.reader.start()
        while not self.said and self.reader.is_alive():  # until then the keys would not be the shell's
            time.sleep(0.01)
        self.words(setup + "; ", "")

    def read(self):
        while True:
            try:
                got = os.read(self.terminal, 65536)
            except OSError:  # what a terminal answers when its last user has gone
                return
            if not got:
                return
            self.said += got

    def words(self, before, line, keys=""):
        """The words that the line has after the keys were pressed at its end. What goes `before` it is typed after that."""
        answer = os.path.join(self.home.path, ".answer")
        typed = f"{line}{keys}\x01{before}printf '%s\\n' \x05 >.new; mv .new .answer\r"
        os.write(self.terminal, typed.encode())
        end = time.monotonic() + 120
        while not os.path.exists(answer):
            if time.monotonic() > end:
                raise RuntimeError(f"{SHELL} does not answer: {self.said!r}")
            time.sleep(0.01)
        with open(answer, encoding="utf-8") as file:
            words = file.read().splitlines()
        os.unlink(answer)
        return words

    def close(self):
        os.write(self.terminal, b"\x15exit\r")
        os.waitpid(self.process, 0)
        self.reader.join()
        os.close(self.terminal)

    def completed(self, line, key):
        """All that can stand in place of the line's last word, which the key inserts."""
        before = line[:line.rfind(" ")]
        words = self.words("", line, key)[len(before.split()):]
        # The word stays as it is where nothing can stand in its place.
        return [] if words == line[len(before):].split() else words


class Bash(Terminal):
    def __init__(self, home):
        files = " ".join(shlex.quote(os.path.join(COMPLETIONS, "bash", name)) for name in ("loomerctl", "corvanetool"))
        super().__init__(home, ["bash", "--noprofile", "--norc", "-i"],
                         f"for each in {files}; do source $each; done; bind 'set enable-bracketed-paste off'")

    def completed(self, line):
        return super().completed(line, "\x1b*")  # readline's insert-completions


class Zsh(Terminal):
    def __init__(self, home):
        directory = shlex.quote(os.path.join(COMPLETIONS, "zsh"))
        super().__init__(home, ["zsh", "-f", "-i"],
                         f"fpath=({directory} $fpath); autoload -Uz compinit; compinit -u -d .dump; bindkey -e; "
                         "setopt no_beep; bindkey '^I' complete-word; zstyle ':completion:*' completer _all_matches _complete; "
                         "zstyle ':completion:*' insert true; zle -C explain list-choices _generic; bindkey '^D' explain; "
                         "zstyle ':completion:explain:*' completer _complete")

    def completed(self, line):
        return super().completed(line, "\t")

    def explanation(self, line, word):
        # Until it pastes in brackets the terminal is not the editor's, and takes the key for its end of file.
        self.awaited(lambda: self.said.rfind(b"\x1b[?2004h") > self.said.rfind(b"\x1b[?2004l"))
        before = len(self.said)
        os.write(self.terminal, line.encode())
        # Nothing follows the key, since zsh shows no list while there are others to come. It is pressed until there is one.
        explained = re.escape(word).encode() + rb" +-- ([^\x1b\r\n]+)[\x1b\r\n]"
        shown = self.awaited(lambda: re.search(explained, self.said[before:]), pressed=b"\x04")
        self.words("", "")
        return shown[1].decode()

    def awaited(self, answer, pressed=b""):
        for _ in range(60):
            os.write(self.terminal, pressed)
            end = time.monotonic() + 2
            while time.monotonic() < end:
                if found := answer():
                    return found
                time.sleep(0.01)
        raise RuntimeError(f"zsh does not show it: {self.said!r}")


class Fish:
    def __init__(self, home):
        self.home = home

    def answers(self, line):
        """Each word with what it is for."""
        files = "; ".join("source " + shlex.quote(os.path.join(COMPLETIONS, "fish", name + ".fish"))
                          for name in ("loomerctl", "corvanetool"))
        done = subprocess.run(["fish", "--no-config", "-c", f"{files}; complete -C {shlex.quote(line)}"],
                              cwd=self.home.path, env=self.home.environment, stdin=subprocess.DEVNULL, capture_output=True,
                              text=True, timeout=120)
        if done.stderr:
            raise RuntimeError(done.stderr)
        return [(each + "\t").split("\t")[:2] for each in done.stdout.splitlines()]

    def completed(self, line):
        return [word for word, _ in self.answers(line)]

    def explanation(self, line, word):
        return dict(self.answers(line)).get(word)

    def close(self):
        pass


class ShellTest(unittest.TestCase):
    """A user whose language is German, in a locale that every system has."""

    @classmethod
    def setUpClass(cls):
        directory = tempfile.TemporaryDirectory(prefix="corvane-completion-")
        cls.addClassCleanup(directory.cleanup)
        cls.home = Home(Tools(PROGRAMS), os.path.join(directory.name, "home")).make()
        cls.home.environment.update(PATH=PROGRAMS + ":" + os.environ["PATH"], TERM="vt100", LC_CTYPE="C.UTF-8",
                                    LC_MESSAGES="de_DE.UTF-8")
        write(cls.home.bookmarks(FIRST), root_with([leaf("One")]))
        cls.home.must_sync(FIRST)
        with open(os.path.join(cls.home.path, "bookmarks.html"), "w", encoding="utf-8"):
            pass
        os.mkdir(os.path.join(cls.home.path, "books"))
        cls.shell = {"bash": Bash, "zsh": Zsh, "fish": Fish}[SHELL](cls.home)
        cls.addClassCleanup(cls.shell.close)


class Completion(ShellTest):
    def test_words_are_completed_by_what_the_program_understands_and_the_store_holds(self):
        for line, expected in LINES:
            with self.subTest(line=line):
                self.assertEqual(sorted(each.rstrip("/") for each in self.shell.completed(line)), expected)

    def test_every_command_is_offered(self):
        status, text = self.home.control("--help")
        self.assertEqual(status, 0)
        commands = [re.split(r" {2,}| \[?[A-Z]", line.strip())[0] for line in text.splitlines() if line.startswith("  ")]
        commands = [each.split() for each in commands if not each.startswith("loomerctl")]
        self.assertGreater(len(commands), 20)
        offered = set(self.shell.completed("loomerctl ")) - {"--help", "--version"}
        self.assertEqual(offered, {each[0] for each in commands})
        self.assertEqual(sorted(self.shell.completed("loomerctl account ")),
                         sorted(each[1] for each in commands if each[0] == "account"))


class Descriptions(ShellTest):
    """In the shells that show what a word is for."""

    def test_commands_and_options_are_explained_in_the_users_language(self):
        for line, word, explanation in (("loomerctl ", "status", "ob alles in Ordnung ist"),
                                        ("loomerctl account ", "show", "das Konto, und ob der Dienst antwortet"),
                                        ("loomerctl changes --", "--session", "nur diese Sitzung"),
                                        ("loomerctl changes --", "--help", "dieser Text")):
            with self.subTest(line=line, word=word):
                self.assertEqual(self.shell.explanation(line, word)[:len(explanation)], explanation)


def main():
    global SHELL, COMPLETIONS, PROGRAMS
    SHELL, COMPLETIONS, PROGRAMS = sys.argv.pop(1), os.path.join(sys.argv.pop(1), "completions"), sys.argv.pop(1)
    tests = ["Completion"] if SHELL == "bash" else ["Completion", "Descriptions"]
    unittest.main(verbosity=1, defaultTest=tests)


if __name__ == "__main__":
    main()

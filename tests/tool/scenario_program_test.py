#!/usr/bin/env python3
"""scenario_program_test.py PROGRAM RUNNER: tests corvane-scenario and the comparison of its results."""

import os
import plistlib
import subprocess
import sys
import tempfile
import unittest

PROGRAM, RUNNER = sys.argv[1:3]

SAVE = """\
Bookmarks 2026-11-21T10:00:00Z
  ant "Ant" http://ant.example/
  bee "Bee" http://bee.example/

deleteAllRecords Folder -> true
willFinish -> true

Outcome: Synced=true SaveAttempts=1 Notifications=["CorvaneBookmarkFileNotificationName"] FeedAgentWoken=true
ClientValues modDateOnLastSync=(date of the save)
Bookmarks WebBookmarkFileVersion=1 WebBookmarkType="WebBookmarkTypeList"
  ant "Ant" http://ant.example/ twice
  bee "Bee" http://bee.example/ twice
WorkingMap as the file
"""
# Stores the date of the file, which is long past.
QUIET = """\
Bookmarks

willFinish -> true

Outcome: Synced=true SaveAttempts=0 Notifications=[] FeedAgentWoken=true
ClientValues modDateOnLastSync=2001-01-01T00:16:40Z
Bookmarks unchanged
WorkingMap as the file
"""
# Prints the same result for every scenario, but notes one notification more if the diagnostic log is on.
MEDDLER = """\
#!/usr/bin/env python3
import plistlib, sys
traced = [b"SCLog" in open(path, "rb").read() for path in sys.argv[1:]]
results = [{"Created": True, "Synced": True, "Results": [], "SaveAttempts": 0, "Backups": [], "ClientValues": {},
            "Notifications": ["traced"] * trace, "FeedAgentWoken": True, "SystemLog": [], "DiagnosticLog": []}
           for trace in traced]
plistlib.dump(results if len(results) > 1 else results[0], sys.stdout.buffer)
"""


class ScenarioProgramTest(unittest.TestCase):
    def setUp(self):
        self.directory = tempfile.TemporaryDirectory()
        self.addCleanup(self.directory.cleanup)

    def write(self, name, value, **options):
        path = os.path.join(self.directory.name, name)
        with open(path, "wb") as file:
            plistlib.dump(value, file, **options)
        return path

    def run_program(self, *files):
        return subprocess.run([PROGRAM, *files], capture_output=True, check=False)

    def compare(self, *options, program=PROGRAM, **texts):
        """Runs the texts as the scenarios of a folder, which are called as the arguments are."""
        for name, text in texts.items():
            with open(os.path.join(self.directory.name, name + ".scenario"), "w", encoding="utf-8") as file:
                file.write(text)
        command = [sys.executable, RUNNER, *options, program, self.directory.name]
        return subprocess.run(command, capture_output=True, text=True, check=False)

    def written(self, name):
        with open(os.path.join(self.directory.name, name + ".scenario"), encoding="utf-8") as file:
            return file.read()

    def result(self, scenario):
        return plistlib.loads(self.run_program(self.write("r.plist", scenario)).stdout)

    def test_one_file_is_one_dictionary(self):
        run = self.run_program(self.write("a.plist", {}, fmt=plistlib.FMT_BINARY))
        self.assertEqual(run.returncode, 0)
        result = plistlib.loads(run.stdout)
        self.assertIs(result["Created"], True)
        self.assertIs(result["FeedAgentWoken"], True)
        self.assertEqual(list(result["WorkingMap"]), ["Root"])

    def test_several_files_are_one_array_of_fresh_runs(self):
        on = self.write("on.plist", {"Preferences": {"SCLog": "YES"}})
        off = self.write("off.plist", {})
        results = plistlib.loads(self.run_program(on, off, on).stdout)
        self.assertEqual([bool(result["DiagnosticLog"]) for result in results], [True, False, True])

    def test_malformed_scenarios_are_named(self):
        path = self.write("bad.plist", {"Steps": [{"Call": "records"}]})
        run = self.run_program(self.write("good.plist", {}), path)
        self.assertEqual(run.returncode, 2)
        self.assertEqual(run.stdout, b"")
        self.assertIn(f"{path}: Steps[0].Entity".encode(), run.stderr)

    def test_files_that_are_no_property_lists_are_named(self):
        missing = os.path.join(self.directory.name, "missing.plist")
        run = self.run_program(missing)
        self.assertEqual(run.returncode, 2)
        self.assertIn(missing.encode(), run.stderr)

    def test_rubbish_is_named(self):
        for content in (b"rubbish", b"", b"bplist00 and then nothing", b"<plist><dict>"):
            path = os.path.join(self.directory.name, "rubbish.plist")
            with open(path, "wb") as file:
                file.write(content)
            run = self.run_program(path)
            self.assertEqual(run.returncode, 2, content)
            self.assertEqual(run.stdout, b"")
            self.assertIn(f"corvane-scenario: {path}: ".encode(), run.stderr)

    def test_no_file_at_all_shows_the_usage(self):
        run = self.run_program()
        self.assertEqual(run.returncode, 2)
        self.assertTrue(run.stderr.startswith(b"usage: corvane-scenario FILE..."))

    def test_unusable_client_has_no_session(self):
        result = self.result({"ClientId": "com.example.Other"})
        self.assertIs(result["Created"], False)
        for key in ("Synced", "WorkingMap", "Bookmarks", "Exception"):
            self.assertNotIn(key, result)
        self.assertEqual(result["Results"], [])

    def test_session_that_fails_still_counts_as_run(self):
        result = self.result({"SessionResult": False, "SessionError": "no"})
        self.assertIs(result["Synced"], False)
        line = "Corvane Sync Client got the following error when attempting a sync: no"
        self.assertIn(line, result["SystemLog"])

    def test_comparison_accepts_what_is_equal(self):
        run = self.compare(save=SAVE, quiet=QUIET)
        self.assertEqual(run.returncode, 0, run.stdout + run.stderr)
        self.assertEqual(run.stdout, "")

    def test_comparison_shows_every_difference_below_its_scenario(self):
        wrong = SAVE.replace("SaveAttempts=1", "SaveAttempts=2").replace('twice\n  bee "Bee"', 'twice\n  bee "Bye"')
        run = self.compare(right=SAVE, wrong=wrong)
        self.assertEqual(run.returncode, 1)
        self.assertNotIn("right", run.stdout)
        self.assertTrue(run.stdout.startswith("wrong:\n"))
        changed = [line for line in run.stdout.split("\n") if line[:1] in "+-" and line[1:4] not in ("++ ", "-- ")]
        outcome = 'Outcome: Synced=true SaveAttempts={} Notifications=["CorvaneBookmarkFileNotificationName"]'
        self.assertEqual(
            [line for line in changed if line],
            [
                "-" + outcome.format(2) + " FeedAgentWoken=true",
                "+" + outcome.format(1) + " FeedAgentWoken=true",
                '-  bee "Bye" http://bee.example/ twice',
                '+  bee "Bee" http://bee.example/ twice',
            ],
        )

    def test_comparison_wants_every_line(self):
        lines = SAVE.splitlines(True)
        for index in range(lines.index("\n") + 1, len(lines)):
            text = "".join(lines[:index] + lines[index + 1 :])
            self.assertNotEqual(self.compare(save=text).returncode, 0, lines[index])

    def test_comparison_wants_the_working_maps_order(self):
        text = SAVE.replace("WorkingMap as the file", "WorkingMap as the file in the order bee ant Root")
        self.assertIn("-WorkingMap as the file in the order bee ant Root\n+WorkingMap", self.compare(save=text).stdout)

    def test_accepted_scenarios_are_written_as_they_are_found(self):
        given = "# What it is about.\n" + SAVE[: SAVE.index("Outcome:")].replace(" -> true", "")
        self.assertEqual(self.compare("--accept", save=given).returncode, 1)
        self.assertEqual(self.written("save"), "# What it is about.\n\n" + SAVE)
        self.assertEqual(self.compare("--accept", save=self.written("save")).returncode, 0)

    def test_a_difference_that_the_diagnostic_log_makes_is_shown(self):
        program = os.path.join(self.directory.name, "meddler")
        with open(program, "w", encoding="utf-8") as file:
            file.write(MEDDLER)
        os.chmod(program, 0o700)
        text = "Outcome: Synced=true SaveAttempts=0 Notifications=[] FeedAgentWoken=true\n"
        run = self.compare(program=program, quiet=text)
        self.assertEqual(run.returncode, 1, run.stderr)
        self.assertTrue(run.stdout.startswith("quiet, with the diagnostic log on:\n"))
        self.assertIn('Notifications=["traced"]', run.stdout)

    def test_malformed_scenarios_are_named_by_the_comparison(self):
        run = self.compare(bad="# About.\n\nrecords\n")
        self.assertEqual(run.returncode, 1)
        self.assertIn("bad.scenario: line 3: an entity is expected instead of the end of the line", run.stderr)

    def test_folder_without_scenarios_fails(self):
        run = self.compare()
        self.assertEqual(run.returncode, 1)
        self.assertIn("there are no scenarios", run.stderr)

    def test_save_date_words_stand_for_dates_of_the_run_alone(self):
        self.assertEqual(self.compare(save=SAVE).returncode, 0)
        text = QUIET.replace("2001-01-01T00:16:40Z", "(date of the save)")
        self.assertEqual(self.compare(save=SAVE, quiet=text).returncode, 1)

    def test_words_in_log_lines_stand_for_the_home_and_for_dates_of_the_run_alone(self):
        traced = 'Preferences SCLog="YES"\n' + SAVE.replace("2026-11-21T10:00:00Z", "2001-01-01T00:16:40Z")
        self.compare("--accept", traced=traced)
        accepted = self.written("traced")
        read = "  | read bookmarks at (home)/Library/Corvane/Bookmarks.plist with mod date "
        then = "2001-01-01 00:16:40 +0000 ( 1000.000000000000000000)\n"
        saved = "  | com.keldra.Corvane - Engine pushed changes and we modified bookmarks file at (date of the save)\n"
        self.assertIn(read + then, accepted)
        self.assertIn(saved, accepted)
        self.assertEqual(self.compare(traced=accepted).returncode, 0)
        for one, other in (("(home)", "(home)/home"), ("2001-01-01 00:16:40 +0000", "(date of the save)"),
                           ("at (date of the save)", "at 2026-11-21 10:00:00 +0000")):  # fmt: skip
            self.assertEqual(self.compare(traced=accepted.replace(one, other)).returncode, 1, other)


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1])

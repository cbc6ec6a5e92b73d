#!/usr/bin/env python3
"""scenario_program_test.py PROGRAM RUNNER: tests corvane-scenario and the comparison of its results."""

import os
import plistlib
import subprocess
import sys
import tempfile
import unittest

PROGRAM, RUNNER = sys.argv[1:3]


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

    def compare(self, scenario, expected):
        with tempfile.TemporaryDirectory() as folder:
            self.write(os.path.join(folder, "s.plist"), scenario)
            self.write(os.path.join(folder, "s.expected.plist"), expected, sort_keys=False)
            return self.run_folder(folder)

    def run_folder(self, folder):
        command = [sys.executable, RUNNER, PROGRAM, folder]
        return subprocess.run(command, capture_output=True, text=True, check=False)

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
        run = self.compare({}, self.result({}))
        self.assertEqual(run.returncode, 0, run.stdout + run.stderr)

    def test_comparison_tells_values_and_types_apart(self):
        for key, value in (("SaveAttempts", 1), ("Created", 1), ("Backups", ["x"])):
            expected = self.result({})
            expected[key] = value
            run = self.compare({}, expected)
            self.assertEqual(run.returncode, 1)
            self.assertIn(key, run.stdout)

    def test_differences_bear_the_scenarios_names(self):
        with tempfile.TemporaryDirectory() as folder:
            for name, created in (("right", True), ("wrong", False), ("wrong too", False)):
                self.write(os.path.join(folder, name + ".plist"), {})
                expected = self.result({})
                expected["Created"] = created
                self.write(os.path.join(folder, name + ".expected.plist"), expected, sort_keys=False)
            run = self.run_folder(folder)
            self.assertEqual(run.returncode, 1)
            self.assertEqual(
                run.stdout,
                "wrong: Created: expected False, is True\n"
                "wrong too: Created: expected False, is True\n"
                "with the diagnostic log on, wrong: Created: expected False, is True\n"
                "with the diagnostic log on, wrong too: Created: expected False, is True\n",
            )

    def test_scenarios_and_expectations_come_in_pairs(self):
        with tempfile.TemporaryDirectory() as folder:
            self.assertIn("no scenarios", self.run_folder(folder).stderr)
            self.write(os.path.join(folder, "lonely.plist"), {})
            run = self.run_folder(folder)
            self.assertEqual(run.returncode, 1)
            self.assertIn("lonely", run.stderr)

    def test_comparison_wants_every_key(self):
        expected = self.result({})
        del expected["Notifications"]
        self.assertIn("Notifications: expected absent", self.compare({}, expected).stdout)

    def test_comparison_wants_the_working_maps_order(self):
        def entry(uid):
            return {
                "WebBookmarkType": "WebBookmarkTypeLeaf",
                "WebBookmarkUUID": uid,
                "URLString": "http://a.example/",
            }

        scenario = {"Bookmarks": {"Children": [entry("a"), entry("b")]}}
        expected = self.result(scenario)
        self.assertEqual(self.compare(scenario, expected).returncode, 0)
        expected["WorkingMap"] = dict(reversed(expected["WorkingMap"].items()))
        run = self.compare(scenario, expected)
        self.assertEqual(run.returncode, 1)
        self.assertIn("WorkingMap: expected the order ['b', 'a', 'Root']", run.stdout)

    def test_save_date_words_stand_for_dates_of_the_run_alone(self):
        scenario = {"Steps": [{"Call": "deleteAllRecords", "Entity": "Folder"}, {"Call": "willFinish"}]}
        expected = self.result(scenario)
        expected["ClientValues"]["modDateOnLastSync"] = "(date of the save)"
        run = self.compare(scenario, expected)
        self.assertEqual(run.returncode, 0, run.stdout)

        quiet = {"Bookmarks": {}, "Steps": [{"Call": "willFinish"}]}  # stores the file's date, long past
        expected = self.result(quiet)
        expected["ClientValues"]["modDateOnLastSync"] = "(date of the save)"
        self.assertEqual(self.compare(quiet, expected).returncode, 1)

    def test_words_in_log_lines_stand_for_paths_and_for_dates_of_the_run_alone(self):
        scenario = {
            "Preferences": {"SCLog": "YES"},
            "Bookmarks": {},
            "Steps": [{"Call": "deleteAllRecords", "Entity": "Folder"}, {"Call": "willFinish"}],
        }
        read = "read bookmarks at (home)/Library/Corvane/Bookmarks.plist with mod date "
        saved = "com.keldra.Corvane - Engine pushed changes and we modified bookmarks file at (date of the save)"
        then = "2001-01-01 00:16:40 +0000 ( 1000.000000000000000000)"
        for line, status in (
            (read + then, 0),
            (read + then.replace("1000.", "1001."), 1),
            (read.replace("Library", "Elsewhere") + then, 1),
            (read + "(date of the save) ( 1000.000000000000000000)", 1),
            (read + "(date of the save)", 1),
        ):
            expected = self.result(scenario)
            expected["ClientValues"]["modDateOnLastSync"] = "(date of the save)"
            log = expected["DiagnosticLog"]
            log[0] = line
            log[[text[:40] for text in log].index(saved[:40])] = saved
            run = self.compare(scenario, expected)
            self.assertEqual(run.returncode, status, line + run.stdout)


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1])

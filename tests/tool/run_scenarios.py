#!/usr/bin/env python3
"""run_scenarios.py [--accept] PROGRAM FOLDER: runs the scripted sessions of a folder and compares the outcomes.

Each NAME.scenario is a session and what comes of it, in the form that scenario_text/ explains. It must read as the
text of the session run anew does, to the letter. "(date of the save)" stands for any date within the run and, in the
lines of the logs, "(home)" for the session's home and "(hash)" for the hash of a file. Every session is run once more
with the diagnostic log on, which must change nothing but that log. Differences are printed below the name of their
scenario. Exit status 0 when there is none.

With --accept, scenarios that differ are rewritten as they are found; read what changes before you commit it.
"""

import argparse
import datetime
import difflib
import os
import plistlib
import re
import subprocess
import sys
import tempfile

from scenario_text.scenarios import read_scenario, scenario_text
from scenario_text.values import MalformedScenario, Words

SUFFIX = ".scenario"
DATE_OF_THE_SAVE = Words("(date of the save)")
DATE_IN_LOG = re.compile(r"\d{4}-\d\d-\d\d \d\d:\d\d:\d\d [+-]\d{4}")
HASH = re.compile(r"\b[0-9a-f]{32}\b")


class Scenario:
    """A file of the folder; ends the run with a message if it is malformed."""

    def __init__(self, folder, name):
        self.name, self.path = name, os.path.join(folder, name + SUFFIX)
        with open(self.path, encoding="utf-8") as file:
            self.text = file.read()
        try:
            self.comment, self.session = read_scenario(self.text)
        except MalformedScenario as error:
            sys.exit(f"{self.path}: {error}")

    def text_with(self, result):
        return scenario_text(self.comment, self.session, result)


class Run:
    """The results of the program for some sessions, without what differs from run to run."""

    def __init__(self, program, sessions):
        with tempfile.TemporaryDirectory() as directory:
            self._home = re.compile(re.escape(os.path.realpath(directory)) + r"/[^/]+/home")
            self._begin = self._now()
            found = self._results(program, sessions, directory)
            self._end = self._now()
        self.results = [self._settled(result) for result in found]

    @staticmethod
    def _now():
        return datetime.datetime.now(datetime.timezone.utc)

    @staticmethod
    def _results(program, sessions, directory):
        files = [os.path.join(directory, name + ".plist") for name in sessions]
        for path, session in zip(files, sessions.values()):
            with open(path, "wb") as file:
                plistlib.dump(session, file, sort_keys=False)
        environment = {**os.environ, "TMPDIR": directory}
        run = subprocess.run([program, *files], stdout=subprocess.PIPE, env=environment, check=False)
        if run.returncode != 0:
            sys.exit(f"{program} ended with status {run.returncode}")
        found = plistlib.loads(run.stdout)
        found = [found] if len(files) == 1 else found
        if len(found) != len(files):
            sys.exit(f"{program} answered {len(found)} results for {len(files)} scenarios")
        return found

    def _is_of_the_run(self, date):
        # Dates come with whole seconds, and a file system's clock may lag behind by a tick.
        return self._begin.replace(microsecond=0) - datetime.timedelta(seconds=1) <= date <= self._end

    def _settled_value(self, value):
        if not isinstance(value, datetime.datetime):
            return value
        return DATE_OF_THE_SAVE if self._is_of_the_run(value.replace(tzinfo=datetime.timezone.utc)) else value

    def _settled_date(self, match):
        date = datetime.datetime.strptime(match[0], "%Y-%m-%d %H:%M:%S %z")
        return DATE_OF_THE_SAVE.words if self._is_of_the_run(date) else match[0]

    def _settled_line(self, line):
        return DATE_IN_LOG.sub(self._settled_date, HASH.sub("(hash)", self._home.sub("(home)", line)))

    def _settled(self, result):
        for log in ("SystemLog", "DiagnosticLog"):
            result[log] = [self._settled_line(line) for line in result[log]]
        result["ClientValues"] = {key: self._settled_value(value) for key, value in result["ClientValues"].items()}
        return result


def scenarios_in(folder):
    names = sorted(file.removesuffix(SUFFIX) for file in os.listdir(folder) if file.endswith(SUFFIX))
    if not names:
        sys.exit(f"{folder}: there are no scenarios")
    return [Scenario(folder, name) for name in names]


def traced(session):
    return {**session, "Preferences": {**session.get("Preferences", {}), "SCLog": "YES"}}


def difference(expected, actual):
    lines = difflib.unified_diff(expected.splitlines(True), actual.splitlines(True), "expected", "found", n=1)
    return "".join(lines)


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--accept", action="store_true")
    parser.add_argument("program")
    parser.add_argument("folder")
    arguments = parser.parse_args()
    scenarios = scenarios_in(arguments.folder)
    plain = Run(arguments.program, {scenario.name: scenario.session for scenario in scenarios})
    trace = Run(arguments.program, {scenario.name: traced(scenario.session) for scenario in scenarios})
    agree = True
    for scenario, result, with_trace in zip(scenarios, plain.results, trace.results):
        text = scenario.text_with(result)
        text_with_trace = scenario.text_with({**with_trace, "DiagnosticLog": result["DiagnosticLog"]})
        if text != scenario.text:
            agree = False
            print(f"{scenario.name}:\n{difference(scenario.text, text)}")
            if arguments.accept:
                with open(scenario.path, "w", encoding="utf-8") as file:
                    file.write(text)
        if text != text_with_trace:
            agree = False
            print(f"{scenario.name}, with the diagnostic log on:\n{difference(text, text_with_trace)}")
    sys.exit(0 if agree else 1)


if __name__ == "__main__":
    main()

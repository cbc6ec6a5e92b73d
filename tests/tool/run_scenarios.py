#!/usr/bin/env python3
"""run_scenarios.py PROGRAM FOLDER: runs the scripted sessions of a folder and compares the outcomes.

Each NAME.plist is a session and its NAME.expected.plist what is expected of it. The two property lists
must be equal, and the working map's entries must stand in the same order besides. Where the expected client
values or a line of a log say "(date of the save)", any date within the run will do, and where a line says
"(home)", any absolute path. Every session is run once more with the diagnostic log on, which must make no
difference but its lines. Every difference is printed behind its scenario's name. Exit status 0 when all
agree.
"""

import datetime
import os
import plistlib
import re
import subprocess
import sys
import tempfile

DATE_OF_THE_SAVE = "(date of the save)"
HOME = "(home)"
EXPECTED = ".expected.plist"
SCENARIO = ".plist"


def now():
    return datetime.datetime.now(datetime.timezone.utc).replace(tzinfo=None)


def same(expected, actual):
    """Equality that tells types apart: true is not 1, and 1 is not 1.0."""
    if type(expected) is not type(actual):
        return False
    if isinstance(expected, dict):
        return expected.keys() == actual.keys() and all(same(expected[key], actual[key]) for key in expected)
    if isinstance(expected, list):
        return len(expected) == len(actual) and all(map(same, expected, actual))
    return expected == actual


def differences(expected, actual, place):
    """Where the two differ, one line each, as deep down as it can be told."""
    if isinstance(expected, dict) and isinstance(actual, dict):
        for key in list(expected) + [key for key in actual if key not in expected]:
            here = f"{place}.{key}" if place else key
            if key not in actual:
                yield f"{here}: expected {expected[key]!r}, is absent"
            elif key not in expected:
                yield f"{here}: expected absent, is {actual[key]!r}"
            else:
                yield from differences(expected[key], actual[key], here)
    elif isinstance(expected, list) and isinstance(actual, list) and len(expected) == len(actual):
        for index, pair in enumerate(zip(expected, actual)):
            yield from differences(*pair, f"{place}[{index}]")
    elif not same(expected, actual):
        yield f"{place}: expected {expected!r}, is {actual!r}"


def order_differences(expected, actual):
    wanted, found = list(expected.get("WorkingMap", {})), list(actual.get("WorkingMap", {}))
    if wanted != found:
        yield f"WorkingMap: expected the order {wanted}, is {found}"


def is_of_the_run(date, begin, end):
    # Dates come with whole seconds, and a file system's clock may lag behind by a tick.
    return begin.replace(microsecond=0) - datetime.timedelta(seconds=1) <= date <= end


def fill_in_save_dates(expected, actual, begin, end):
    """Replaces the words for the date of the save by the actual date where that is one of the run."""
    values = expected.get("ClientValues", {})
    for key, value in values.items():
        date = actual.get("ClientValues", {}).get(key)
        if value == DATE_OF_THE_SAVE and isinstance(date, datetime.datetime) and is_of_the_run(date, begin, end):
            values[key] = date


def stands_for(line, found, begin, end):
    """Whether a line of a log is the expected one, with a path and a date of the run in place of the words."""
    pattern = re.escape(line).replace(re.escape(HOME), "/.+").replace(re.escape(DATE_OF_THE_SAVE), "(?P<date>.+)")
    match = re.fullmatch(pattern, found)
    if not match or "date" not in match.groupdict():
        return match is not None
    try:
        date = datetime.datetime.strptime(match["date"], "%Y-%m-%d %H:%M:%S %z")
    except ValueError:
        return False
    return is_of_the_run(date.astimezone(datetime.timezone.utc).replace(tzinfo=None), begin, end)


def fill_in_logs(expected, actual, begin, end):
    """Replaces expected lines of the logs by the actual ones that they stand for."""
    for log in ("SystemLog", "DiagnosticLog"):
        lines = expected.get(log, [])
        for index, pair in enumerate(zip(lines, actual.get(log, []))):
            if stands_for(*pair, begin, end):
                lines[index] = pair[1]


def names_in(folder):
    """The scenarios of a folder; each must have its expectation, and each expectation its scenario."""
    files = os.listdir(folder)
    expected = {file.removesuffix(EXPECTED) for file in files if file.endswith(EXPECTED)}
    scenarios = {file.removesuffix(SCENARIO) for file in files
                 if file.endswith(SCENARIO) and not file.endswith(EXPECTED)}
    if alone := sorted(expected ^ scenarios):
        sys.exit(f"{folder}: without a scenario or without an expectation: {', '.join(alone)}")
    if not scenarios:
        sys.exit(f"{folder}: there are no scenarios")
    return sorted(scenarios)


def results(program, files):
    run = subprocess.run([program, *files], stdout=subprocess.PIPE, check=False)
    if run.returncode != 0:
        sys.exit(f"{program} ended with status {run.returncode}")
    result = plistlib.loads(run.stdout)
    return [result] if len(files) == 1 else result


def traced(scenario, directory):
    """A copy of a scenario, in `directory`, with the diagnostic log on."""
    with open(scenario, "rb") as file:
        copy = plistlib.load(file)
    copy.setdefault("Preferences", {})["SCLog"] = "YES"
    path = os.path.join(directory, os.path.basename(scenario))
    with open(path, "wb") as file:
        plistlib.dump(copy, file, sort_keys=False)
    return path


def disagreements(program, scenarios, expectations, leave_out=()):
    """Where the outcomes are not the expected ones, but for the keys to leave out; one line each."""
    begin = now()
    actuals = results(program, scenarios)
    end = now()
    if len(actuals) != len(scenarios):
        sys.exit(f"{program} answered {len(actuals)} results for {len(scenarios)} scenarios")
    for path, actual in zip(expectations, actuals):
        with open(path, "rb") as file:
            expected = plistlib.load(file)
        for key in leave_out:
            expected[key] = actual[key]
        fill_in_save_dates(expected, actual, begin, end)
        fill_in_logs(expected, actual, begin, end)
        name = os.path.basename(path).removesuffix(EXPECTED)
        for difference in list(differences(expected, actual, "")) or order_differences(expected, actual):
            yield f"{name}: {difference}"


def main():
    program, folder = sys.argv[1:]
    names = names_in(folder)
    scenarios = [os.path.join(folder, name + SCENARIO) for name in names]
    expectations = [os.path.join(folder, name + EXPECTED) for name in names]
    found = list(disagreements(program, scenarios, expectations))
    with tempfile.TemporaryDirectory() as directory:
        copies = [traced(scenario, directory) for scenario in scenarios]
        for difference in disagreements(program, copies, expectations, ["DiagnosticLog"]):
            found.append(f"with the diagnostic log on, {difference}")
    print("".join(line + "\n" for line in found), end="")
    sys.exit(1 if found else 0)


if __name__ == "__main__":
    main()

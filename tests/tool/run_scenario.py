#!/usr/bin/env python3
"""run_scenario.py PROGRAM SCENARIO EXPECTED: runs a scripted session and compares the outcome with what is expected.

The two property lists must be equal, and the working map's entries must stand in the same order besides. Where the
expected client values say "(date of the save)", any date within the run will do. Exit status 0 when they agree.
"""

import datetime
import plistlib
import subprocess
import sys

DATE_OF_THE_SAVE = "(date of the save)"


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


def fill_in_save_dates(expected, actual, begin, end):
    """Replaces the words for the date of the save by the actual date where that is one of the run."""
    # Dates come with whole seconds, and a file system's clock may lag behind by a tick.
    begin = begin.replace(microsecond=0) - datetime.timedelta(seconds=1)
    values = expected.get("ClientValues", {})
    for key, value in values.items():
        date = actual.get("ClientValues", {}).get(key)
        if value == DATE_OF_THE_SAVE and isinstance(date, datetime.datetime) and begin <= date <= end:
            values[key] = date


def main():
    program, scenario, expectation = sys.argv[1:]
    begin = now()
    run = subprocess.run([program, scenario], stdout=subprocess.PIPE, check=False)
    end = now()
    if run.returncode != 0:
        sys.exit(f"{program} ended with status {run.returncode}")
    actual = plistlib.loads(run.stdout)
    with open(expectation, "rb") as file:
        expected = plistlib.load(file)
    fill_in_save_dates(expected, actual, begin, end)
    found = list(differences(expected, actual, "")) or list(order_differences(expected, actual))
    for difference in found:
        print(difference)
    sys.exit(1 if found else 0)


if __name__ == "__main__":
    main()

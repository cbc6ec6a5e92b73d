"""Fails when a test's name holds anything but printable ASCII, or a parameter's bytes in memory.

check_test_names.py CTEST BUILD_DIRECTORY. It looks at the tests' names and at those of the cases that GoogleTest programs
list. GoogleTest prints a parameter that it cannot print otherwise as "16-byte object <…>", addresses included, so that the
case is called otherwise in each run.
"""

import json
import re
import subprocess
import sys


def fault(name):
    if not re.fullmatch(rb"[ -~]+", name):
        return "not printable"
    if b"-byte object <" in name:
        return "a parameter's memory"
    return None


def output(*command):
    return subprocess.run(command, check=True, stdout=subprocess.PIPE).stdout


def names(ctest, directory):
    tests = json.loads(output(ctest, "--test-dir", directory, "--show-only=json-v1").decode(errors="surrogateescape"))["tests"]
    programs = set()
    for test in tests:
        yield test["name"].encode(errors="surrogateescape")
        command = test.get("command", [])
        if any(word.startswith("--gtest_filter=") for word in command):
            programs.add(command[0])
    for program in sorted(programs):
        # Other characters than the line feed may stand in a name: that is what is looked for.
        yield from output(program, "--gtest_list_tests").rstrip(b"\n").split(b"\n")


def main():
    ctest, directory = sys.argv[1:]
    looked_at = list(names(ctest, directory))
    faults = [(name, fault(name)) for name in looked_at if fault(name)]
    for name, cause in faults:
        print(f"{cause}: {name!r}")
    print(len(looked_at), "names,", len(faults), "faults")
    return 1 if faults or not looked_at else 0


if __name__ == "__main__":
    sys.exit(main())

"""Fails when a test's name holds anything but printable ASCII, or a parameter's bytes in memory.

check_test_names.py CTEST BUILD_DIRECTORY. GoogleTest prints a parameter that it cannot print otherwise as "16-byte
object <…>", addresses included, so that the test is called otherwise in each run.
"""

import re
import subprocess
import sys

LINE = re.compile(rb"\s*Test\s+#\d+: (.*)")


def fault(name):
    if not re.fullmatch(rb"[ -~]+", name):
        return "not printable"
    if b"-byte object <" in name:
        return "a parameter's memory"
    return None


def main():
    ctest, directory = sys.argv[1:]
    listing = subprocess.run([ctest, "--test-dir", directory, "-N"], check=True, stdout=subprocess.PIPE).stdout
    # Other characters than the line feed may stand in a name: that is what is looked for.
    names = [match[1] for match in map(LINE.fullmatch, listing.split(b"\n")) if match]
    faults = [(name, fault(name)) for name in names if fault(name)]
    for name, cause in faults:
        print(f"{cause}: {name!r}")
    print(len(names), "names,", len(faults), "faults")
    return 1 if faults or not names else 0


if __name__ == "__main__":
    sys.exit(main())

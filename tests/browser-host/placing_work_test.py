#!/usr/bin/env python3
"""Counts the instructions of what a session does to one large folder of a browser, as tests/work does, and holds them to n log n:
a walk of the folder for each of its bookmarks would show.

usage: placing_work_test.py CORVANE_PLACING_WORK COUNTER
"""

import os
import subprocess
import sys

sys.path.insert(0, os.path.join(os.path.dirname(os.path.dirname(os.path.abspath(__file__))), "work"))

from counted_work import COUNTED, counting_command, too_fast_growth  # noqa: E402 (the path to it is set above)


def instructions(program, count, counting):
    done = subprocess.run([*counting, program, str(count)], stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
                          stderr=subprocess.STDOUT, text=True, check=False)
    counted = COUNTED.search(done.stdout)
    if done.returncode != 0 or not counted:
        raise SystemExit(f"{count} bookmarks: status {done.returncode}: {done.stdout}")
    return int((counted.group(1) or counted.group(2)).replace(",", ""))


def main():
    program, counter = sys.argv[1:]
    counting = counting_command(counter)
    taken = [(count, instructions(program, count, counting)) for count in (1, 250, 2500)]
    print(taken)
    problems = too_fast_growth(taken)
    for problem in problems:
        print(problem)
    return 1 if problems else 0


if __name__ == "__main__":
    sys.exit(main())

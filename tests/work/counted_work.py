#!/usr/bin/env python3
"""Counts the instructions of whole sessions of one kind (bench/sessions.py), in user space, by an emulator: a busy
machine counts as many as an idle one. It fails when

- they grow faster than n log n from one number of bookmarks to the next, less what a session takes for nearly none; or
- a session takes over a tenth more than is kept for it in instructions.json, if the programs were built as those were
  from which the figures are.

usage: counted_work.py PROGRAMS COUNTER BUILT_BY KIND

COUNTER is the emulator's plugin (InstructionCounter.cpp). Where the emulator is of a version that does not take it, valgrind
counts, which differs by less than a hundredth, and takes more than twice as long.

The numbers of bookmarks, the first of which stands for nearly none, are those of CORVANE_WORK where it is set. It takes
minutes for each kind to count up to 100,000:

    CORVANE_WORK=10,10000,100000 ctest --test-dir build/plain -R work/

Where CORVANE_KEEP_WORK is set, the figure of the largest number is kept, and nothing held to it:

    CORVANE_KEEP_WORK=1 ctest --test-dir build/plain -R work/
"""

import json
import math
import os
import platform
import re
import subprocess
import sys
import tempfile

HERE = os.path.dirname(os.path.abspath(__file__))
sys.path.insert(0, os.path.join(os.path.dirname(os.path.dirname(HERE)), "bench"))

from sessions import KINDS, Files, Home, Tools  # noqa: E402 (the path to it is set above)

KEPT = os.path.join(HERE, "instructions.json")
VALGRIND = ("valgrind", "--tool=cachegrind", "--cache-sim=no", "--cachegrind-out-file=/dev/null")
COUNTED = re.compile(r"^instructions: (\d+)$|I +refs: +([\d,]+)", re.MULTILINE)
# What grows by doubling, arrays and pages, does not follow the logarithm from one size to the next.
GROWTH_ALLOWANCE = 1.1
KEPT_ALLOWANCE = 1.1


def counting_command(counter):
    """What a program is run by to have its instructions counted."""
    emulated = (f"qemu-{platform.machine()}", "-plugin", counter)
    tried = subprocess.run([*emulated, "/bin/true"], stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, stderr=subprocess.STDOUT,
                           text=True)
    if COUNTED.search(tried.stdout):
        return emulated
    print(f"counted by valgrind, since the emulator says: {tried.stdout.strip()}")
    return VALGRIND


def instructions(kind, count, tools, counting):
    with tempfile.TemporaryDirectory(prefix="corvane-work-") as directory:
        home = Home(tools, os.path.join(directory, "home")).make()
        client = kind.prepare(home, Files(directory, count, kind.shape or "real"))
        with kind.during(home):
            status, output = home.sync(client, counting)
    counted = COUNTED.search(output)
    if status != 0 or not counted:
        raise SystemExit(f"{kind.name}, {count} bookmarks: the session ended with status {status}: {output}")
    return int((counted.group(1) or counted.group(2)).replace(",", ""))


def too_fast_growth(taken):
    """A sentence for each step from one count to the next that takes more than n log n."""
    (_, constant), *larger = taken
    problems = []
    for (before, small), (after, large) in zip(larger, larger[1:]):
        most = (small - constant) * after * math.log(after) / (before * math.log(before)) * GROWTH_ALLOWANCE
        if large - constant > most:
            problems.append(f"{large - constant} instructions for {after} bookmarks, where n log n is {most:.0f}, since"
                            f" {before} take {small - constant}")
    return problems


def over_kept(taken, kept):
    """A sentence for each count for which more is taken than is kept, a dictionary of instructions by count."""
    return [f"{now} instructions for {count} bookmarks, over a tenth more than the {kept[str(count)]} that are kept in {KEPT}"
            for count, now in taken if now > kept.get(str(count), math.inf) * KEPT_ALLOWANCE]


def read_kept(built_by):
    with open(KEPT, encoding="ascii") as file:
        kept = json.load(file)
    if kept["built by"] == built_by:
        return kept
    print(f"no figures are kept for programs built by {built_by}, only for {kept['built by']}")
    return {"built by": built_by, "instructions": {}}


def write_kept(kept):
    with open(KEPT, "w", encoding="ascii") as file:
        json.dump(kept, file, indent=2, sort_keys=True)
        file.write("\n")


def main():
    programs, counter, built_by, name = sys.argv[1:]
    kind = next(each for each in KINDS if each.name.replace(",", "").replace(" ", "-") == name)
    tools = Tools(os.path.abspath(programs))
    counting = counting_command(counter)
    kept = read_kept(built_by)
    of_kind = kept["instructions"].setdefault(name, {})
    taken = []
    for count in os.environ.get("CORVANE_WORK", "10,1000,10000").split(","):
        taken.append((int(count), instructions(kind, int(count), tools, counting)))
        print(f"{count} bookmarks: {taken[-1][1]} instructions, {of_kind.get(count, 'none')} kept", flush=True)
    problems = too_fast_growth(taken)
    if "CORVANE_KEEP_WORK" in os.environ:
        of_kind[str(taken[-1][0])] = taken[-1][1]
        write_kept(kept)
    else:
        problems += over_kept(taken, of_kind)
    for problem in problems:
        print(problem)
    return 1 if problems else 0


if __name__ == "__main__":
    sys.exit(main())

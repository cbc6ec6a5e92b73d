#!/usr/bin/env python3
"""Kills a session of the real tool at its system calls, or lets them fail, syncs on, and demands the end that an
undisturbed run has: both trees, unknown keys, a sound store, and no file more. After a session that failed and said so, the
end may also be that of a run without the client's deletions: its next session is a refresh, which deletes nothing.

usage: interrupt_everywhere.py [--all] [--points N] [--seed S] [--jobs N] [--only SUBSTRING] PROGRAMS

PROGRAMS is the directory of corvanetool and loomerctl. Without --all, a selection is run: every point around a rename, the
making durable and the commit, and others drawn by the seed, which is printed. Every system call that changes a file is a point,
three times: killed before it, failing with EIO, failing with ENOSPC. "--only" takes the points whose names contain it.
"""

import argparse
import collections
import concurrent.futures
import difflib
import os
import random
import re
import shutil
import subprocess
import sys
import tempfile

from homes import FIRST, SECOND, Failure, Home, Tools, edit_both, write_two_histories

OPENING = ("open", "openat", "creat")
CHANGING = ("write pwrite64 writev pwritev rename renameat renameat2 link linkat symlink symlinkat unlink unlinkat "
            "mkdir mkdirat rmdir fsync fdatasync ftruncate fallocate chmod fchmod fchmodat chown fchown fchownat "
            "utime utimes utimensat setxattr fsetxattr").split()
TRACED = ",".join((*OPENING, *CHANGING))
DURABLE = ("rename", "renameat", "renameat2", "fsync", "fdatasync")
FAULTS = ("signal=SIGKILL", "error=EIO", "error=ENOSPC")
CALL = re.compile(r"^(?:\d+ +)?(\w+)\((.*)$")

Point = collections.namedtuple("Point", "scenario call number fault what")


def name_of(point):
    return f"{point.scenario}: {point.fault} at {point.call} {point.number} ({point.what})"


def prepare_first(home, deleting=True):
    """The first session of all: no store yet, and a second history that it does not know."""
    write_two_histories(home)


def prepare_second(home, deleting=True):
    """The second client's first session, which merges two histories."""
    write_two_histories(home)
    home.must_sync(FIRST)


def prepare_both(home, deleting=True):
    """A session that pushes the first client's edits and takes the second's."""
    write_two_histories(home)
    for client in (FIRST, SECOND, FIRST, SECOND):
        home.must_sync(client)
    edit_both(home, deleting)
    home.must_sync(SECOND)


# What is interrupted, by name: how the home is prepared, and whose session it is.
SCENARIOS = {"both ways": (prepare_both, FIRST), "first": (prepare_first, FIRST), "merging": (prepare_second, SECOND)}


def other(client):
    return SECOND if client == FIRST else FIRST


def sync_on(home, client):
    for each in (client, other(client), client, other(client)):
        home.must_sync(each)


def outcome(home):
    return home.tree(FIRST), home.tree(SECOND), home.leftovers()


class Scenario:
    """A home to be copied for every point, what its session does, and how an undisturbed run ends."""

    def __init__(self, name, tools, directory):
        prepare, self.client = SCENARIOS[name]
        self.name = name
        self.directory = os.path.join(directory, name.replace(" ", "-"))
        self.home = Home(tools, os.path.join(self.directory, "prepared")).make()
        prepare(self.home)
        self.calls = self.trace()
        self.end = self.undisturbed(self.home)
        # A client whose session was cancelled asks for refresh next, which deletes nothing that the client lacks.
        keeping = Home(tools, os.path.join(self.directory, "keeping")).make()
        prepare(keeping, deleting=False)
        self.cancelled_end = self.undisturbed(keeping)
        keeping.remove()

    def undisturbed(self, prepared):
        """How an undisturbed run from the prepared home ends."""
        home = prepared.copy(os.path.join(self.directory, "undisturbed"))
        home.must_sync(self.client)
        sync_on(home, self.client)
        home.must_be_sound()
        if home.shared_tree(FIRST) != home.shared_tree(SECOND):
            raise Failure(f"{self.name}: the trees differ after an undisturbed run")
        end = outcome(home)
        home.remove()
        return end

    def trace(self):
        """The session's changing system calls: for each, its name, its number among those of its name, and its subject."""
        home = self.home.copy(os.path.join(self.directory, "traced"))
        log = os.path.join(self.directory, "trace")
        status, output = home.sync(self.client, ("strace", "-f", "-y", "-s", "0", "-o", log, "-e", f"trace={TRACED}"))
        if status != 0:
            raise Failure(f"{self.name}: tracing the session ended with status {status}: {output.strip()}")
        numbers = collections.Counter()
        calls = []
        with open(log, encoding="utf-8", errors="replace") as file:
            for line in file:
                match = CALL.match(line)
                if not match:
                    continue
                call, rest = match.groups()
                numbers[call] += 1
                if call in OPENING and not re.search(r"O_CREAT|O_WRONLY|O_RDWR|O_TRUNC", rest) and call != "creat":
                    continue
                calls.append((call, numbers[call], subject(rest, home.path)))
        home.remove()
        # The very first session delivers nothing, and so saves nothing.
        expected = {"mkdir", "fdatasync", "pwrite64"} | (set() if self.name == "first" else {"rename", "fsync"})
        if not expected <= {call for call, _, _ in calls}:
            raise Failure(f"{self.name}: the session does not save and commit as expected: {calls}")
        return calls

    def points(self):
        for call, number, what in self.calls:
            for fault in FAULTS:
                yield Point(self.name, call, number, fault, what)

    def crucial(self):
        """Points right before and after what makes something visible or durable."""
        chosen = set()
        for index, (call, _, _) in enumerate(self.calls):
            if call in DURABLE:
                chosen.update(self.calls[max(0, index - 1):index + 2])
        return [point for point in self.points() if (point.call, point.number, point.what) in chosen
                and point.fault == FAULTS[0]]


def subject(rest, home):
    match = re.search(r'"([^"]*)"|<([^>]*)>', rest.replace("AT_FDCWD<", "AT_FDCWD("))
    path = next((each for each in match.groups() if each), "?") if match else "?"
    path = path.removeprefix(home + "/")
    return re.sub(r"\.corvane-[^/]*\.tmp", "a temporary file", path)


def run(scenario, point, number):
    """What is wrong after an interruption at the point; nothing when all is well."""
    home = scenario.home.copy(os.path.join(scenario.directory, f"case-{number}"))
    injection = ("strace", "-f", "-o", os.path.join(scenario.directory, f"trace-{number}"), "-e", f"trace={point.call}", "-e",
                 f"inject={point.call}:{point.fault}:when={point.number}")
    try:
        status, output = home.sync(scenario.client, injection)
        with open(injection[3], encoding="utf-8", errors="replace") as file:
            log = file.read()
        killed = "SIGKILL" in point.fault
        if killed and "+++ killed by SIGKILL" not in log or not killed and "(INJECTED)" not in log:
            raise Failure(f"the session did not come to that point; status {status}: {output.strip()}\n{log}")
        if not killed and status not in (0, 1):
            raise Failure(f"the session ended with status {status}: {output.strip()}\n{log[-2000:]}")
        home.age_lock()
        sync_on(home, scenario.client)
        home.must_be_sound()
        if "Library/Corvane/" in point.what and not killed:
            # A lock directory that cannot be deleted stays aside by design; while it is deleted it has a temporary name.
            shutil.rmtree(os.path.join(home.path, "Library", "Corvane", ".staleLockDirectory"), ignore_errors=True)
        end = outcome(home)
        if status == 0 or killed or end != scenario.cancelled_end:
            compare(end, scenario.end)
    except (Failure, subprocess.TimeoutExpired) as failure:
        return f"{name_of(point)}: {failure}"
    home.remove()
    os.remove(injection[3])
    return None


def compare(now, undisturbed):
    names = ("the first file", "the second file")
    for name, ours, theirs in zip(names, now, undisturbed):
        if ours != theirs:
            raise Failure(f"{name} differs from an undisturbed run's:\n" + difference(theirs, ours))
    if now[2] != undisturbed[2]:
        raise Failure(f"files differ: left over {sorted(now[2] - undisturbed[2])}, missing {sorted(undisturbed[2] - now[2])}")


def difference(undisturbed, now):
    return "\n".join(difflib.unified_diff(list(lines(undisturbed)), list(lines(now)), "undisturbed", "interrupted", lineterm=""))


def lines(tree, depth=0):
    """A line for each entry; the trees here are a few levels deep."""
    entry, children = tree
    yield "  " * depth + str(entry)
    for each in children:
        yield from lines(each, depth + 1)


def select(scenarios, arguments):
    points = [point for scenario in scenarios.values() for point in scenario.points()]
    if arguments.only:
        return [point for point in points if arguments.only in name_of(point)]
    if arguments.all:
        return points
    chosen = scenarios["both ways"].crucial()
    left = [point for point in points if point not in set(chosen)]
    return chosen + random.Random(arguments.seed).sample(left, max(0, min(len(left), arguments.points - len(chosen))))


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--all", action="store_true")
    parser.add_argument("--points", type=int, default=120)
    parser.add_argument("--seed", type=int, default=1)
    parser.add_argument("--jobs", type=int, default=os.cpu_count())
    parser.add_argument("--only")
    parser.add_argument("programs")
    arguments = parser.parse_args()
    directory = tempfile.mkdtemp(prefix="corvane-crash-")
    failures = []
    try:
        tools = Tools(os.path.abspath(arguments.programs))
        scenarios = {name: Scenario(name, tools, directory) for name in SCENARIOS}
        points = select(scenarios, arguments)
        total = sum(1 for scenario in scenarios.values() for _ in scenario.points())
        print(f"{len(points)} of {total} points, seed {arguments.seed}", flush=True)
        with concurrent.futures.ThreadPoolExecutor(arguments.jobs) as pool:
            jobs = [pool.submit(run, scenarios[point.scenario], point, number) for number, point in enumerate(points)]
            for job in concurrent.futures.as_completed(jobs):
                if job.result():
                    failures.append(job.result())
                    print(f"FAILED {job.result()}", flush=True)
    except Failure as failure:
        failures.append(str(failure))
        print(f"FAILED {failure}")
    finally:
        shutil.rmtree(directory)
    if not failures and not points:
        failures.append("no point was chosen")
    print(f"{len(failures)} failed")
    sys.exit(1 if failures else 0)


if __name__ == "__main__":
    main()

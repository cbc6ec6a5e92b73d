#!/usr/bin/env python3
"""First sessions of several clients at one moment, over a store that does not exist yet.

usage: first_sessions.py PROGRAMS [--pairs COUNT] [--groups COUNT] [--crowds COUNT]

PROGRAMS is the directory of corvanetool and loomerctl. Each session has a temporary directory of its own, as a terminal
and a service have, so that none of them sees another's single-run lock and the store alone is between them. Pairs are of
two clients, groups of eight, crowds of eight sessions of one client. All sessions have to end well, with one sound store
that knows every client.
"""

import argparse
import json
import os
import subprocess
import sys
import tempfile

from homes import FIRST, SECOND, Failure, Home, Tools, folder, leaf, root_with, write, write_two_histories

GROUP = 8
# Makes the moments long in which one of them is halfway through making the store.
SLOW_DISK = ("strace", "-o", os.devnull, "-e", "trace=fdatasync,fsync", "-e", "inject=fdatasync,fsync:delay_exit=10ms")


def pair():
    return [FIRST, SECOND]


def group():
    return [FIRST, SECOND, *(f"{FIRST}.Other{number}.plist" for number in range(3, GROUP + 1))]


def crowd():
    return [FIRST] * GROUP


def file_of(home, client):
    if client in (FIRST, SECOND):
        return home.bookmarks(client)
    return os.path.join(os.path.dirname(home.bookmarks(FIRST)), client.removeprefix(FIRST + "."))


def sight(tools, home, number):
    """The home as one who has another temporary directory sees it."""
    seen = Home(tools, home.path)
    seen.environment = dict(home.environment, TMPDIR=os.path.join(home.path, f"tmp-{number}"))
    os.mkdir(seen.environment["TMPDIR"])
    return seen


def start_together(tools, home, clients):
    """What went wrong: a line for each session that failed."""
    gate, opened = os.pipe()
    processes = []
    for number, client in enumerate(clients):
        # Each waits for the end of its standard input, which comes to all at once.
        command = ["sh", "-c", 'read -r _; exec "$@"', "sh", *SLOW_DISK, *home.command(client)]
        processes.append((client, subprocess.Popen(command, env=sight(tools, home, number).environment, stdin=gate,
                                                   stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True)))
    os.close(gate)
    os.close(opened)
    problems = []
    for client, process in processes:
        output, _ = process.communicate(timeout=300)
        if process.returncode != 0:
            problems.append(f"{client} ended with status {process.returncode} {output.strip()}")
    return problems


def first_sessions(tools, clients):
    with tempfile.TemporaryDirectory(prefix="corvane-first-") as directory:
        home = Home(tools, os.path.join(directory, "home")).make()
        write_two_histories(home)
        for client in set(clients) - {FIRST, SECOND}:
            write(file_of(home, client), root_with([folder("BookmarksBar", [leaf("Weather"), leaf(client)])]))
        problems = start_together(tools, home, clients)
        if problems:
            raise Failure("\n".join(problems))
        home.must_be_sound()
        status, output = home.control("clients", "--json")
        known = {each["identifier"] for each in json.loads(output)} if status == 0 else set()
        if not known.issuperset(clients):
            raise Failure(f"the store knows {sorted(known)}: {output}")


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("programs")
    parser.add_argument("--pairs", type=int, default=10, help="how many times two clients start together (%(default)s)")
    parser.add_argument("--groups", type=int, default=5, help="how many times eight clients do (%(default)s)")
    parser.add_argument("--crowds", type=int, default=3, help="how many times eight of one client do (%(default)s)")
    arguments = parser.parse_args()
    tools = Tools(os.path.abspath(arguments.programs))
    failed = 0
    for clients, times in ((pair, arguments.pairs), (group, arguments.groups), (crowd, arguments.crowds)):
        bad = 0
        for _ in range(times):
            try:
                first_sessions(tools, clients())
            except Failure as failure:
                bad += 1
                print(f"{clients.__name__}: {failure}", file=sys.stderr)
        print(f"{clients.__name__}, {times} times: all done in {times - bad}")
        failed += bad
    return 1 if failed else 0


if __name__ == "__main__":
    sys.exit(main())

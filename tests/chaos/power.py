"""What a power cut takes from a program that makes its files durable: names that were made, in directories that were not synced
afterwards. Told by a trace of its system calls."""

import os
import re

CALLS = "fsync,link,linkat,mkdir,mkdirat,rename,renameat,renameat2"
MADE = re.compile(r"(?:link|linkat|mkdir|mkdirat|rename|renameat|renameat2)\((.*)\) = 0$")
SYNCED = re.compile(r"fsync\(\d+<(.*)>\) = 0$")
# The last name of the arguments, with the open directory that it starts from.
LAST_NAME = re.compile(r"(?:[\w-]+<([^>]*)>, )?\"([^\"]*)\"[^\"]*$")


def tracing(trace, number):
    """Runs a program that is killed instead of its `number`-th fsync. Its parent remains its parent."""
    return ["strace", "-D", "-f", "-qq", "-y", "-o", trace, "-e", f"trace={CALLS}", "-e",
            f"inject=fsync:signal=SIGKILL:when={number}"]


def unsynced(trace, data):
    """The names below `data` that may be gone, the newest last."""
    names = []
    with open(trace, encoding="utf-8", errors="replace") as file:
        for line in file:
            call = line.rstrip("\n").partition(" ")[2].lstrip()
            if made := MADE.match(call):
                directory, name = LAST_NAME.search(made.group(1)).groups()
                names.append(os.path.join(directory or "", name))
            elif synced := SYNCED.match(call):
                names = [name for name in names if os.path.dirname(name) != synced.group(1)]
    return [name for name in names if name.startswith(data + "/") and os.path.exists(name)]

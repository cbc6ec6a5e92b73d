#!/usr/bin/env python3
"""Checks that includes point one way: front → session → {model, store} → platform, and within platform
{loomer, pelto} → system → foundation.  usage: check_includes.py PROJECT_ROOT

front/SCLog.h, the diagnostic log, stands on platform/ alone; every subsystem may include it.

Checks as well that integers of a given width come from <cstdint>, and not by way of some other header of the standard
library, which may cease to include it.
"""

import functools
import pathlib
import re
import sys

SYSTEM = {"platform/system", "platform/foundation"}
ALLOWED = {
    "platform/foundation": set(),
    "platform/system": {"platform/foundation"},
    "platform/loomer": SYSTEM | {"platform/pelto"},
    "platform/pelto": SYSTEM,
    "model": SYSTEM | {"platform/loomer"},
    "store": SYSTEM,
    "session": SYSTEM | {"platform/loomer", "model", "store"},
    "front": SYSTEM | {"platform/loomer", "platform/pelto", "session"},
}
EVERYBODY = {"front/SCLog.h"}
# Of the engine the model knows the record keys alone.
ONLY = {("model", "platform/loomer"): {"platform/loomer/LoomerConstants.h"}}
INCLUDE = re.compile(r'^\s*#\s*include\s+"([^"]+)"')


def area(path):
    return next((name for name in ALLOWED if path.startswith(name + "/")), None)


def problems(root):
    source = root / "CorvaneSyncClient"
    for file in sorted(source.rglob("*")):
        if file.suffix not in (".h", ".cpp"):
            continue
        here = area(file.relative_to(source).as_posix())
        if here is None:
            yield f"{file.relative_to(root)}: lies in no known folder"
            continue
        for number, line in enumerate(file.read_text(encoding="utf-8").splitlines(), 1):
            match = INCLUDE.match(line)
            if not match:
                continue
            where = f"{file.relative_to(root)}:{number}"
            if not match.group(1).startswith("CorvaneSyncClient/"):
                yield f"{where}: includes {match.group(1)}, not written from the project's root"
                continue
            target = match.group(1).removeprefix("CorvaneSyncClient/")
            there = area(target)
            if there == here or (target in EVERYBODY and here not in SYSTEM):
                continue
            if there not in ALLOWED[here] or target not in ONLY.get((here, there), {target}):
                yield f"{where}: {here} may not include {target}"


def unregistered(root):
    """Test files that no CMakeLists.txt of their folder or the one above names would never run."""
    for file in sorted((root / "tests").rglob("*.cpp")):
        lists = [folder / "CMakeLists.txt" for folder in (file.parent, file.parent.parent)]
        if not any(one.exists() and re.search(rf"\b{re.escape(file.name)}\b", one.read_text()) for one in lists):
            yield f"{file.relative_to(root)}: named by no CMakeLists.txt"


@functools.cache
def includes_widths(root, file):
    """Whether the file or one of ours that it includes has <cstdint>."""
    text = file.read_text(encoding="utf-8")
    if re.search(r"^#include <cstdint>", text, re.MULTILINE):
        return True
    names = [match.group(1) for line in text.splitlines() if (match := INCLUDE.match(line))]
    included = [next((path for path in (root / name, file.parent / name) if path.exists()), None) for name in names]
    return any(path and includes_widths(root, path) for path in included)


def unincluded_widths(root):
    for folder in ("CorvaneSyncClient", "tools", "tests", "bench", "fuzz"):
        for file in sorted((root / folder).rglob("*")):
            if file.suffix not in (".h", ".cpp") or not re.search(r"\bu?int(8|16|32|64)_t\b", file.read_text(encoding="utf-8")):
                continue
            if not includes_widths(root, file):
                yield f"{file.relative_to(root)}: has integers of a given width, and <cstdint> by chance"


def main():
    root = pathlib.Path(sys.argv[1])
    found = [*problems(root), *unregistered(root), *unincluded_widths(root)]
    print("\n".join(found) if found else "includes point one way; every test file is registered")
    return 1 if found else 0


if __name__ == "__main__":
    sys.exit(main())

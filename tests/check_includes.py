#!/usr/bin/env python3
"""Checks that includes point one way: front → session → {model, store} → platform, and within platform
{loomer, pelto} → system → foundation.  usage: check_includes.py PROJECT_ROOT

front/SCLog.h, the diagnostic log, stands on platform/ alone; every subsystem may include it.
"""

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


def main():
    root = pathlib.Path(sys.argv[1])
    found = [*problems(root), *unregistered(root)]
    print("\n".join(found) if found else "includes point one way; every test file is registered")
    return 1 if found else 0


if __name__ == "__main__":
    sys.exit(main())

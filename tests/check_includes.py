#!/usr/bin/env python3
"""Checks that includes point one way: front → session → {model, store} → platform, and within platform
{loomer, pelto} → system → foundation. Foundation's: plist → values → text; the system's: linux → {files, bundles}, locks → files,
over the interfaces beside them. The engine's rooms: {hub, edit} → session → {store, merge} → records, over its
api.  usage: check_includes.py PROJECT_ROOT

Checks as well that what is named below comes from its own header of the standard library, and not by way of another one,
which may cease to include it.
"""

import functools
import pathlib
import re
import sys

LOOMER = "platform/loomer"


def folders(parent, *names):
    return {f"{parent}/{name}" for name in names}


FOUNDATION = {"platform/foundation"} | folders("platform/foundation", "text", "values", "plist")
# What everybody may use; linux/ and bundles/ are seen by nobody but `linuxPlatform`.
SYSTEM = FOUNDATION | {"platform/system"} | folders("platform/system", "files", "locks")


def rooms(*names):
    return folders(LOOMER, *names)


ALLOWED = {
    "platform/foundation": set(),
    "platform/foundation/text": {"platform/foundation"},
    "platform/foundation/values": {"platform/foundation", "platform/foundation/text"},
    "platform/foundation/plist": FOUNDATION,
    "platform/system": FOUNDATION,
    "platform/system/files": FOUNDATION | {"platform/system"},
    "platform/system/locks": FOUNDATION | {"platform/system", "platform/system/files"},
    "platform/system/bundles": FOUNDATION | {"platform/system"},
    "platform/system/linux": SYSTEM | folders("platform/system", "bundles"),
    LOOMER + "/records": FOUNDATION,
    LOOMER + "/api": SYSTEM | rooms("records"),
    LOOMER + "/merge": FOUNDATION | rooms("api", "records"),
    LOOMER + "/store": SYSTEM | rooms("records"),
    LOOMER + "/edit": SYSTEM | rooms("api", "records", "merge", "store"),
    LOOMER + "/session": SYSTEM | rooms("api", "records", "merge", "store"),
    LOOMER + "/hub": SYSTEM | {"platform/pelto"} | rooms("api", "records", "merge", "store", "session"),
    LOOMER: SYSTEM | {"platform/pelto", "platform/pelto/account"} | rooms("api", "records", "store", "session", "hub"),
    "platform/pelto/seal": SYSTEM,
    "platform/pelto/place": SYSTEM,
    "platform/pelto": SYSTEM,
    "platform/pelto/chain": SYSTEM | {"platform/pelto"} | folders("platform/pelto", "place", "seal"),
    "platform/pelto/account": SYSTEM | {"platform/pelto"} | folders("platform/pelto", "place", "seal", "chain"),
    "model": SYSTEM | rooms("api"),
    "store": SYSTEM,
    "session": SYSTEM | {"model", "store"} | rooms("api", "store"),
    "front": SYSTEM | {"platform/pelto/account", "session"} | rooms("api"),
}
# Names of the standard library, by header: those that came by chance before.
STANDARD = {
    "algorithm": re.compile(r"\bstd::(?:min|max|clamp|find|find_if|count|count_if|sort|stable_sort|any_of|all_of|none_of)\b"),
    "cstdint": re.compile(r"\bu?int(?:8|16|32|64)_t\b"),
}
INCLUDE = re.compile(r'^\s*#\s*include\s+"([^"]+)"')


def area(path):
    return max((name for name in ALLOWED if path.startswith(name + "/")), key=len, default=None)


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
            if there == here:
                continue
            if there not in ALLOWED[here]:
                yield f"{where}: {here} may not include {target}"


def unregistered(root):
    """Test files that no CMakeLists.txt of their folder or the one above names would never run."""
    for file in sorted((root / "tests").rglob("*.cpp")):
        lists = [folder / "CMakeLists.txt" for folder in (file.parent, file.parent.parent)]
        if not any(one.exists() and re.search(rf"\b{re.escape(file.name)}\b", one.read_text()) for one in lists):
            yield f"{file.relative_to(root)}: named by no CMakeLists.txt"


@functools.cache
def includes(root, file, header):
    """Whether the file or one of ours that it includes has the standard library's header."""
    text = file.read_text(encoding="utf-8")
    if f"#include <{header}>" in text:
        return True
    names = [match.group(1) for line in text.splitlines() if (match := INCLUDE.match(line))]
    included = [next((path for path in (root / name, file.parent / name) if path.exists()), None) for name in names]
    return any(path and includes(root, path, header) for path in included)


def by_chance(root):
    for folder in ("CorvaneSyncClient", "tools", "tests", "bench", "fuzz"):
        for file in sorted((root / folder).rglob("*")):
            if file.suffix not in (".h", ".cpp"):
                continue
            for header, names in STANDARD.items():
                match = names.search(file.read_text(encoding="utf-8"))
                if match and not includes(root, file, header):
                    yield f"{file.relative_to(root)}: has {match.group(0)} without <{header}>"


def main():
    root = pathlib.Path(sys.argv[1])
    found = [*problems(root), *unregistered(root), *by_chance(root)]
    print("\n".join(found) if found else "includes point one way; every test file is registered")
    return 1 if found else 0


if __name__ == "__main__":
    sys.exit(main())

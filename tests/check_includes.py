#!/usr/bin/env python3
"""Checks that includes point one way: front → session → {model, store} → platform, and within platform
{loomer, pelto} → system → foundation. Foundation's: plist → values → text; the system's: linux → {files, bundles}, locks → files,
over the interfaces beside them. The engine's rooms: {hub, edit} → session → {store, merge} → records, over its
api. browsers → session, and the engine's api alone.  usage: check_includes.py PROJECT_ROOT

Checks as well that what is named below comes from its own header of the standard library, and not by way of another one,
which may cease to include it; and that each of our types comes from a header that the source includes, by way of others of
ours or not, and not from a source that is compiled together with it.
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
    "platform/pelto/place": SYSTEM | {"platform/pelto/seal"},
    "platform/pelto": SYSTEM,
    "platform/pelto/chain": SYSTEM | {"platform/pelto"} | folders("platform/pelto", "place", "seal"),
    "platform/pelto/account": SYSTEM | {"platform/pelto"} | folders("platform/pelto", "place", "seal", "chain"),
    "model": SYSTEM | rooms("api"),
    "store": SYSTEM,
    "session": SYSTEM | {"model", "store"} | rooms("api", "store"),
    "front": SYSTEM | {"platform/pelto/account", "session"} | rooms("api"),
}
# Browsers are clients of the engine by its api alone, as a file is.
BROWSERS = SYSTEM | {"session"} | rooms("api")
# Names of the standard library, by header.
STANDARD = {
    "algorithm": "min max clamp find find_if count count_if sort stable_sort any_of all_of none_of",
    "array": "array",
    "atomic": "atomic",
    "cerrno": "errno",
    "charconv": "from_chars to_chars",
    "chrono": "chrono",
    "condition_variable": "condition_variable",
    "cstdint": "int8_t int16_t int32_t int64_t uint8_t uint16_t uint32_t uint64_t",
    "deque": "deque",
    "filesystem": "filesystem",
    "fstream": "fstream ifstream ofstream",
    "functional": "function",
    "iostream": "cin cout cerr",
    "limits": "numeric_limits",
    "map": "map multimap",
    "memory": "unique_ptr shared_ptr weak_ptr make_unique make_shared",
    "mutex": "mutex lock_guard unique_lock call_once",
    "numeric": "accumulate iota",
    "optional": "optional nullopt",
    "random": "mt19937 mt19937_64 random_device uniform_int_distribution",
    "regex": "regex",
    "set": "set multiset",
    "span": "span",
    "sstream": "stringstream istringstream ostringstream",
    "stdexcept": "runtime_error logic_error invalid_argument out_of_range",
    "string": "string to_string",
    "string_view": "string_view",
    "system_error": "system_error error_code system_category",
    "thread": "thread",
    "tuple": "tuple tie",
    "unordered_map": "unordered_map",
    "unordered_set": "unordered_set",
    "utility": "pair exchange swap",
    "variant": "variant monostate visit",
    "vector": "vector",
}
STANDARD_HEADERS = {name: header for header, names in STANDARD.items() for name in names.split()}
# Those of C are also said without "std::".
STANDARD_NAME = re.compile(r"\b(?:std::(\w+)|(errno|u?int(?:8|16|32|64)_t))\b")
INCLUDE = re.compile(r'^\s*#\s*include\s+"([^"]+)"')
# What is said in comments and literals counts for nothing.
UNCODED = re.compile(r'R"(\w*)\(.*?\)\1"|"(?:\\.|[^"\\\n])*"|//[^\n]*|/\*.*?\*/', re.DOTALL)
TYPE = re.compile(r"^(?:class|struct|union|enum|enum class)\s+([A-Z]\w+)\b[^;{]*\{|^using\s+([A-Z]\w+)\s*=", re.MULTILINE)


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


def outsiders(root):
    for file in sources(root, "browsers"):
        for number, line in enumerate(file.read_text(encoding="utf-8").splitlines(), 1):
            match = INCLUDE.match(line)
            if match and area(match.group(1).removeprefix("CorvaneSyncClient/")) not in {None, *BROWSERS}:
                yield f"{file.relative_to(root)}:{number}: browsers may not include {match.group(1)}"


def unregistered(root):
    """Test files that no CMakeLists.txt of their folder or the one above names would never run."""
    for file in sorted((root / "tests").rglob("*.cpp")):
        lists = [folder / "CMakeLists.txt" for folder in (file.parent, file.parent.parent)]
        if not any(one.exists() and re.search(rf"\b{re.escape(file.name)}\b", one.read_text()) for one in lists):
            yield f"{file.relative_to(root)}: named by no CMakeLists.txt"


def sources(root, *folders):
    return [file for folder in folders for file in sorted((root / folder).rglob("*")) if file.suffix in (".h", ".cpp")]


@functools.cache
def code(file):
    return UNCODED.sub(" ", file.read_text(encoding="utf-8"))


@functools.cache
def included(root, file):
    """What the file includes: of ours as files, of others by name."""
    text = file.read_text(encoding="utf-8")
    pairs = ((root / name, file.parent / name) for name in re.findall(r'^#include "([^"]+)"', text, re.MULTILINE))
    ours = [next((path for path in pair if path.exists()), None) for pair in pairs]
    return [path for path in ours if path], re.findall(r"^#include <([^>]+)>", text, re.MULTILINE)


@functools.cache
def reached(root, file):
    """The file, what it includes of ours, and what that includes."""
    return {file}.union(*(reached(root, path) for path in included(root, file)[0]))


def by_chance(root):
    for file in sources(root, "CorvaneSyncClient", "tools", "browsers", "tests", "bench", "fuzz"):
        there = {header for one in reached(root, file) for header in included(root, one)[1]}
        for name in sorted({a or b for a, b in set(STANDARD_NAME.findall(code(file)))} & STANDARD_HEADERS.keys()):
            if STANDARD_HEADERS[name] not in there:
                yield f"{file.relative_to(root)}: has {name} without <{STANDARD_HEADERS[name]}>"


@functools.cache
def declared(file):
    return set(re.findall(r"\b(?:class|struct|typename)\s+([A-Z]\w+)\b", code(file)))


def types(root):
    """Our types by name, each with its header; but for names of several types."""
    found = {}
    for file in sources(root, "CorvaneSyncClient", "tools", "browsers"):
        for match in TYPE.finditer(code(file)):
            found.setdefault(match.group(1) or match.group(2), []).append(file)
    return {name: files[0] for name, files in found.items() if len(files) == 1 and files[0].suffix == ".h"}


def out_of_reach(root):
    headers = types(root)
    for file in sources(root, "CorvaneSyncClient", "tools", "browsers"):
        for name in sorted(set(re.findall(r"\b[A-Z]\w+\b", code(file))) & headers.keys()):
            if headers[name] not in reached(root, file) and not any(name in declared(one) for one in reached(root, file)):
                yield f"{file.relative_to(root)}: has {name} without {headers[name].relative_to(root)}"


def main():
    root = pathlib.Path(sys.argv[1])
    found = [*problems(root), *outsiders(root), *unregistered(root), *by_chance(root), *out_of_reach(root)]
    print("\n".join(found) if found else "includes point one way; every test file is registered")
    return 1 if found else 0


if __name__ == "__main__":
    sys.exit(main())

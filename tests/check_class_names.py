"""Fails when two classes of the tests have one name.

check_class_names.py ROOT. Classes, structures and enumerations count that stand in a namespace, a nameless one
included. What a function or a class holds may have any name.
"""

import collections
import pathlib
import re
import sys

NOT_CODE = re.compile(
    r'//[^\n]*|/\*.*?\*/|R"(\w*)\(.*?\)\1"|"(?:[^"\\\n]|\\.)*"|(?<![0-9a-fA-F])\'(?:[^\'\\\n]|\\.)*\'', re.DOTALL
)
OPENS_NAMESPACE = re.compile(r"\bnamespace\b[\w\s:]*$")
OPENS_CLASS = re.compile(r"\b(?:class|struct|union|enum(?:\s+(?:class|struct))?)\s+([\w:]+)(?:\s+final)?\s*(?::[^()]*)?$")


def class_names(text):
    """Of the classes that a source defines in its namespaces."""
    code = NOT_CODE.sub(" ", re.sub(r"^\s*#.*?(?<!\\)$", "", text, flags=re.DOTALL | re.MULTILINE))
    inner = 0  # braces that are open within a namespace
    head = 0
    for mark in re.finditer(r"[{};]", code):
        before = code[head : mark.start()].rpartition(";")[2].strip()
        head = mark.end()
        if mark[0] == "{":
            name = OPENS_CLASS.search(before)
            if inner == 0 and name and "::" not in name[1]:
                yield name[1]
            if inner or not OPENS_NAMESPACE.search(before):
                inner += 1
        elif mark[0] == "}" and inner:
            inner -= 1


def main():
    root = pathlib.Path(sys.argv[1])
    places = collections.defaultdict(list)
    for folder in ("tests", "fuzz"):
        for file in sorted((root / folder).rglob("*")):
            if file.suffix in (".h", ".cpp"):
                for name in class_names(file.read_text(encoding="utf-8")):
                    places[name].append(file.relative_to(root))
    doubled = {name: files for name, files in places.items() if len(files) > 1}
    for name, files in sorted(doubled.items()):
        print(f"{name}:", *files)
    print(len(places), "names,", len(doubled), "of them given twice")
    return 1 if doubled or not places else 0


if __name__ == "__main__":
    sys.exit(main())

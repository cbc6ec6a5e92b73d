#!/usr/bin/env python3
"""Checks the texts for people: each one that the sources use stands in each language's table, and no other does.

    check_messages.py ROOT              says what is wrong
    check_messages.py ROOT --update     brings the tables in the sources' order, writes the English one, leaves out what
                                        nobody uses, and adds what is missing with an empty translation

A translation has the placeholders of its text and its `commands`, a counted text all plural forms of the language. How
texts are written in the sources, and found in the tables, says CorvaneSyncClient/platform/system/Messages.h.

What is thrown is shown to a person, and so is what is printed, so that its words come from the tables, too: in a `throw`, in
a call of a function that never returns, and in one that writes to the terminal, words stand in a text alone. LOGGED names the
places whose exceptions nobody shows. An exception goes into a text as its `message`, for its `reason` is English.
"""

import collections
import pathlib
import re
import sys

LANGUAGES = {"en": ("one", "other"), "de": ("one", "other"), "es": ("one", "other"), "fr": ("one", "other"), "ja": ("other",)}
SOURCES = ("CorvaneSyncClient", "tools", "browsers")
MECHANISM = "CorvaneSyncClient/platform/system/Messages"

# Their exceptions reach the logs alone, which are in English: those of the server while it serves, and of a browser's messages.
LOGGED = tuple(f"tools/corvane-hub/{source}" for source in (
    "Connection", "FolderWatch", "HubServer", "Listeners", "ObjectFiles", "TlsCertificate")) + ("browsers/host/",)
# What they say is a programmer's fault, or is caught by those who throw it.
UNSHOWN = ("NSInvalidArgumentException", "NoJournal", "OutputClosed", "failForm")
# How a program writes to its terminal, in the programs that have texts in the user's language.
PRINTS = r"\b(?:out|err|_out|output)\.write\s*\(|\b(?:std::)?(?:fputs|puts|printf|fprintf|print|writeMessage|complain)\s*\(|\bstd::c(?:out|err)\b"
PRINTING = ("tools/", "browsers/")

COMMENT = re.compile(r'("(?:[^"\\\n]|\\.)*"|\'(?:[^\'\\\n]|\\.)*\')|//[^\n]*|/\*.*?\*/', re.DOTALL)
CALL = re.compile(r"(?<![.>\w])(tr|counted|Message(?:\s+\w+)?|TextKey|MessageText<\d>)\s*\(")
LITERAL = re.compile(r'\s*"((?:[^"\\\n]|\\.)*)"')
ESCAPE = re.compile(r"\\(u[0-9A-Fa-f]{4}|.)")
OTHER_TABLE = re.compile(r"\blocalized\s*\(")  # by keys of other tables
INCLUDE = re.compile(r'#include "([^"]+)"')
NEVER_RETURNS = re.compile(r"\[\[noreturn\]\][^;{]*?\b(\w+)\s*\(")
WORDS = re.compile(r"[A-Za-z]{2,}[^A-Za-z]* [^A-Za-z]*[A-Za-z]|[A-Za-z]{2,} $|^ [A-Za-z]{2,}")
PROGRAM = re.compile(r"[ /]*(?:loomerctl|corvanetool|corvane-hub) ")  # what one types is the same in every language
SAID_TOO_SOON = re.compile(r"(?<![.>:\w])(?:tr|counted)\s*\(")
PLACEHOLDER = re.compile(r"%[1-9]")
COMMAND = re.compile(r"`[^`]*`")


class Fault(Exception):
    pass


Text = collections.namedtuple("Text", "key one place")  # `one` is None for texts that are not counted


def unescaped(literal):
    names = {"n": "\n", "t": "\t"}
    return ESCAPE.sub(lambda m: chr(int(m[1][1:], 16)) if len(m[1]) == 5 else names.get(m[1], m[1]), literal)


def literals(code, at):
    """The text of the adjacent literals at `at`, None where there are none, and where they end."""
    pieces = []
    while match := LITERAL.match(code, at):
        pieces.append(unescaped(match[1]))
        at = match.end()
    return ("".join(pieces) if pieces else None), at


def next_argument(code, at):
    """Where the argument behind the one at `at` begins, or the call ends."""
    depth = 0
    while depth or code[at] not in ",)":
        if quoted := LITERAL.match(code, at):
            at = quoted.end()
            continue
        depth += (code[at] in "([{") - (code[at] in ")]}")
        at += 1
    return at + (code[at] == ",")


def texts_of(code, name):
    for call in CALL.finditer(code):
        place = f"{name}:{code.count(chr(10), 0, call.start()) + 1}"
        at = call.end()
        if call[1] == "counted":
            one, at = literals(code, next_argument(code, at))
            key, _ = literals(code, next_argument(code, at))
        else:
            one = None
            key, _ = literals(code, at)
        if key is not None:  # else a MessageText, which stands elsewhere
            yield Text(key, one, place)


def end_of_call(code, at):
    """Behind the bracket that closes the call whose arguments begin at `at`."""
    depth = 1
    while depth:
        if quoted := LITERAL.match(code, at):
            at = quoted.end()
            continue
        depth += (code[at] in "([{") - (code[at] in ")]}")
        at += 1
    return at


def shown_untranslated(code, name, shows):
    """The words in what is shown, by calls that match `shows`, that stand in no text."""
    for call in re.finditer(shows, code):
        arguments = code[call.start() : end_of_call(code, call.end())]
        if any(word in arguments for word in UNSHOWN):
            continue
        while text := CALL.search(arguments) or OTHER_TABLE.search(arguments):
            arguments = arguments[: text.start()] + arguments[end_of_call(arguments, text.end()) :]
        for literal in LITERAL.finditer(arguments):
            if WORDS.search(literal[1]) and not PROGRAM.match(literal[1]):
                yield f'{name}:{code.count(chr(10), 0, call.start()) + 1}: "{literal[1]}" is shown and stands in no table'


def sources(root):
    """Name and code of each, comments becoming space of as many lines."""
    for source in sorted(file for folder in SOURCES for file in (root / folder).rglob("*") if file.suffix in (".h", ".cpp")):
        name = source.relative_to(root).as_posix()
        if not name.startswith(MECHANISM):
            yield name, COMMENT.sub(lambda m: m[1] or "\n" * m[0].count("\n"), source.read_text(encoding="utf-8"))


def thrown_in_words(code, name):
    """What is thrown in the language of who throws it, which is that of who reads it in `tools/` alone: other rooms' failures
    are logged, and kept for whoever asks later."""
    for call in re.finditer(r"\bthrow\s+[\w:]+\s*[({]", code):
        if SAID_TOO_SOON.search(code[call.end() : end_of_call(code, call.end())]):
            yield f"{name}:{code.count(chr(10), 0, call.start()) + 1}: words are thrown where a `Message` is what is put into words"


def problems_of_shown(root):
    codes = dict(sources(root))
    for name, code in codes.items():
        if not name.startswith("tools/"):
            yield from thrown_in_words(code, name)
        if not name.startswith(LOGGED):
            # What it declares itself, and what it includes.
            known = [code, *(codes.get(header, "") for header in INCLUDE.findall(code))]
            never_return = {function for each in known for function in NEVER_RETURNS.findall(each)} | {"throw"}
            yield from shown_untranslated(code, name, rf"\bthrow\s+[\w:]+\s*[({{]|\b(?:{'|'.join(sorted(never_return))})\s*\(")
        if name.startswith(PRINTING):
            yield from shown_untranslated(code, name, PRINTS)
        for call in CALL.finditer(code):
            if re.search(r"\breason\(\)", code[call.start() : end_of_call(code, call.end())]):
                yield f"{name}:{code.count(chr(10), 0, call.start()) + 1}: a reason is English; `message` is what a text takes"


def used_texts(root):
    """The sources' texts by source, each where it is first used."""
    found = {}
    for name, code in sources(root):
        for text in texts_of(code, name):
            known = found.setdefault(text.key, text)
            if known.one != text.one:
                raise Fault(f"{text.place}: this text has another singular than at {known.place}")
    return found


TOKEN = re.compile(r'\s+|/\*.*?\*/|(?P<string>"(?:[^"\\]|\\.)*")|(?P<word>\w+)|(?P<mark>[={};])', re.DOTALL)


def tokens(content, path):
    at = 0
    while at < len(content):
        match = TOKEN.match(content, at)
        if not match:
            raise Fault(f"{path}: line {content.count(chr(10), 0, at) + 1} cannot be read")
        at = match.end()
        if match["string"]:
            yield unescaped(match["string"][1:-1])
        elif match["word"] or match["mark"]:
            yield match["word"] or match["mark"]


def read_table(path):
    """Each entry's text, or its plural forms in a dictionary."""
    if not path.exists():
        return {}
    entries = {}
    rest = collections.deque(tokens(path.read_text(encoding="utf-8"), path))

    def take(*expected):
        got = rest.popleft() if rest else "the end"
        if expected and got not in expected:
            raise Fault(f'{path}: "{got}" where {" or ".join(expected)} is expected')
        return got

    while rest:
        key = take()
        take("=")
        value = take()
        if value == "{":
            value = {}
            while (form := take()) != "}":
                take("=")
                value[form] = take()
                take(";")
        take(";")
        if key in entries:
            raise Fault(f'{path}: "{key}" stands there twice')
        entries[key] = value
    return entries


def problems_of_text(text):
    for english in filter(None, (text.key, text.one)):
        if english != english.strip() or "\n" in english:
            yield f'{text.place}: "{english}" begins or ends with white space, or holds a line end'
    if text.one is not None and "%1" not in text.one:
        yield f'{text.place}: "{text.one}" does not say the count'


def problems_of_translation(text, value, forms):
    if text.one is None:
        if not isinstance(value, str):
            yield "is no text"
            return
        values = [value]
    else:
        if not isinstance(value, dict) or set(value) != set(forms):
            yield f'has not the forms {" and ".join(forms)}'
            return
        values = value.values()
    for each in values:
        if not each:
            yield "has no translation"
            continue
        if each != each.strip():
            yield f'begins or ends with white space: "{each}"'
        if set(PLACEHOLDER.findall(each)) != set(PLACEHOLDER.findall(text.key)):
            yield f'has not the placeholders of its text: "{each}"'
        if sorted(COMMAND.findall(each)) != sorted(COMMAND.findall(text.key)):
            yield f'has not the `commands` of its text: "{each}"'


def problems_of_table(language, table, used):
    for key in table:
        if key not in used:
            yield f'"{key}" is used nowhere'
    for key, text in used.items():
        if key not in table:
            yield f'"{key}" is missing ({text.place})'
            continue
        for problem in problems_of_translation(text, table[key], LANGUAGES[language]):
            yield f'"{key}" {problem}'
    if language == "en":
        for key, text in used.items():
            if key in table and table[key] != (key if text.one is None else {"one": text.one, "other": key}):
                yield f'"{key}" is not its own text'


def quoted(text):
    return '"' + text.replace("\\", "\\\\").replace('"', '\\"') + '"'


def entry(text, value):
    if isinstance(value, str):
        return f"{quoted(text.key)} = {quoted(value)};\n"
    forms = "".join(f"  {form} = {quoted(each)};\n" for form, each in value.items())
    return f"{quoted(text.key)} = {{\n{forms}}};\n"


def update(path, language, used):
    known = read_table(path)
    # What stands at the head, up to the first source's name, stays.
    head = re.match(r"(?:(?!/\* (?:%s)/).)*" % "|".join(SOURCES), path.read_text(encoding="utf-8"), re.DOTALL)[0] if known else ""
    sections = collections.defaultdict(str)
    for text in used.values():
        value = known.get(text.key)
        if language == "en":
            value = text.key if text.one is None else {"one": text.one, "other": text.key}
        elif text.one is not None:
            value = {form: value.get(form, "") if isinstance(value, dict) else "" for form in LANGUAGES[language]}
        elif not isinstance(value, str):
            value = ""
        sections[text.place.split(":")[0]] += entry(text, value)
    body = "\n".join(f"/* {source} */\n{entries}" for source, entries in sections.items())
    path.write_text(head.rstrip() + "\n\n" * bool(head) + body, encoding="utf-8")


def main():
    root = pathlib.Path(sys.argv[1])
    try:
        used = used_texts(root)
        problems = [problem for text in used.values() for problem in problems_of_text(text)]
        problems += problems_of_shown(root)
        for language in LANGUAGES:
            path = root / "resources" / f"{language}.lproj" / "Messages.strings"
            if "--update" in sys.argv:
                update(path, language, used)
            found = problems_of_table(language, read_table(path), used)
            problems += [f"{path.relative_to(root)}: {problem}" for problem in found]
    except Fault as fault:
        problems = [str(fault)]
    print("\n".join(problems) or f"{len(used)} texts stand in {len(LANGUAGES)} tables")
    return 1 if problems else 0


if __name__ == "__main__":
    sys.exit(main())

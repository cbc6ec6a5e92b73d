"""Bookmarks as indented text.

    Bookmarks WebBookmarkFileVersion=1
      news/ "News"
        ant "Ant" http://ant.example/
      bee "Bee" http://bee.example/ twice Rating=5

A line is an entry: its uid, with a slash for a folder; the title; the address, and "twice" where the entry's dictionary
repeats it; then every other key with its value. An entry without a uid or of another type is an asterisk and all its
keys. An entry that is not a dictionary is an equals sign and its value.
"""

import json
import re

from scenario_text.values import STRING, Scanner, attributes, name_text, quoted, same, value_text

LEAF, LIST = "WebBookmarkTypeLeaf", "WebBookmarkTypeList"
URL = re.compile(r"[a-z]+:[!#-~]+")
TITLE = re.compile(STRING.pattern + "(?!=)")  # and not a quoted key of an attribute


class Block:
    """A numbered line and the lines indented below it."""

    def __init__(self, number, line):
        self.number, self.line, self.children = number, line, []

    def scanner(self):
        return Scanner(self.number, self.line)


def is_known(entry):
    """Whether an entry is a bookmark or a folder with a uid."""
    return (
        isinstance(entry, dict)
        and isinstance(entry.get("WebBookmarkUUID"), str)
        and entry.get("WebBookmarkType") in (LEAF, LIST)
    )


def indented(lines):
    return ["  " + line for line in lines]


def take_usual_keys_of_list(rest):
    return [quoted(rest.pop("Title"))] if isinstance(rest.get("Title"), str) else []


def take_usual_keys_of_leaf(rest):
    words = []
    url, uri = rest.get("URLString"), rest.get("URIDictionary")
    if isinstance(url, str) and URL.fullmatch(url):
        words.append(rest.pop("URLString"))
    if isinstance(uri, dict) and isinstance(uri.get("title"), str):
        if uri.keys() == {"title"}:
            words.insert(0, quoted(rest.pop("URIDictionary")["title"]))
        elif words and same(uri, {"title": uri["title"], "": url}):
            words = [quoted(rest.pop("URIDictionary")["title"]), url, "twice"]
    return words


def lines_of(words, rest):
    """The line of a dictionary behind those words, and the lines of its children."""
    rest = dict(rest)
    children = rest.pop("Children") if isinstance(rest.get("Children"), list) and rest["Children"] else []
    return [" ".join(words + attributes(rest)), *indented(line for child in children for line in entry_lines(child))]


def entry_lines(entry):
    if not isinstance(entry, dict):
        return [f"= {value_text(entry)}"]
    if not is_known(entry):
        return lines_of(["*"], entry)
    rest = dict(entry)
    uid = name_text(rest.pop("WebBookmarkUUID"))
    if rest.pop("WebBookmarkType") == LIST:
        return lines_of([uid + "/", *take_usual_keys_of_list(rest)], rest)
    return lines_of([uid, *take_usual_keys_of_leaf(rest)], rest)


def tree_lines(words, bookmarks):
    """The contents of a bookmarks file behind the words that introduce them."""
    return lines_of(words, bookmarks) if isinstance(bookmarks, dict) else [" ".join([*words, *entry_lines(bookmarks)])]


def read_rest(scanner, block, entry):
    """Adds the attributes and the children to an entry."""
    entry.update(scanner.attributes({}))
    if block.children:
        entry["Children"] = [read_entry(child) for child in block.children]
    return entry


def read_usual_keys_of_list(scanner):
    title = scanner.take(TITLE)
    return {"Title": json.loads(title)} if title else {}


def read_usual_keys_of_leaf(scanner):
    title, url = scanner.take(TITLE), scanner.take(URL)
    keys = {"URLString": url} if url else {}
    if title:
        keys["URIDictionary"] = {"title": json.loads(title)}
        if url and scanner.take_word("twice"):
            keys["URIDictionary"][""] = url
    return keys


def read_entry(block):
    scanner = block.scanner()
    if scanner.take_mark("="):
        value = scanner.value()
        scanner.end()
        for child in block.children:
            child.scanner().fail("an entry beside the one before")
        return value
    if scanner.take_mark("*"):
        return read_rest(scanner, block, {})
    uid = scanner.name("a uid")
    if scanner.take_mark("/"):
        keys = {"WebBookmarkType": LIST, "WebBookmarkUUID": uid, **read_usual_keys_of_list(scanner)}
    else:
        keys = {"WebBookmarkType": LEAF, "WebBookmarkUUID": uid, **read_usual_keys_of_leaf(scanner)}
    return read_rest(scanner, block, keys)

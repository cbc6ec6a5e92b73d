"""The values of property lists as text, written so that no two look alike, types included: "1", 1, 1.0 and true.

Dictionaries are {key: value}, arrays [value], data <6869>, dates 2026-11-21T10:00:00Z. A key is bare where it is a
word, and so is a name (a uid, an identifier, an entity) where it is plain; else they are in quotes.
"""

import datetime
import json
import re

STRING = re.compile(r'"(?:[^"\\]|\\.)*"')
DATE = re.compile(r"\d{4}-\d\d-\d\dT\d\d:\d\d:\d\dZ")
REAL = re.compile(r"-?\d+(?:\.\d+(?:e[+-]?\d+)?|e[+-]?\d+)")
INTEGER = re.compile(r"-?\d+")
DATA = re.compile(r"<(?:[0-9a-f]{2})*>")
WORD = re.compile(r"[A-Za-z_]\w*", re.ASCII)
NAME = re.compile(r"[A-Za-z0-9][A-Za-z0-9_.:-]*")


class MalformedScenario(Exception):
    """A text that is not a scenario; the message names the line and the cause."""


class Words:
    """A value that is printed as these words, and that equals no value of a property list."""

    def __init__(self, words):
        self.words = words


ABSENT = Words("absent")


def escaped(text):
    """A string with escapes for what cannot be seen."""
    return "".join(
        character if character.isprintable() and character != "\\" else json.dumps(character)[1:-1]
        for character in text
    )


def quoted(text):
    return '"' + escaped(text).replace('"', '\\"') + '"'


def name_text(name):
    return name if NAME.fullmatch(name) else quoted(name)


def key_text(key):
    return key if WORD.fullmatch(key) else quoted(key)


def value_text(value):
    if isinstance(value, Words):
        return value.words
    if isinstance(value, bool):
        return "true" if value else "false"
    if isinstance(value, (int, float)):
        return repr(value)
    if isinstance(value, str):
        return quoted(value)
    if isinstance(value, datetime.datetime):
        return value.isoformat() + "Z"
    if isinstance(value, bytes):
        return f"<{value.hex()}>"
    if isinstance(value, list):
        return "[" + ", ".join(map(value_text, value)) + "]"
    if isinstance(value, dict):
        return "{" + ", ".join(f"{key_text(key)}: {value_text(item)}" for key, item in value.items()) + "}"
    raise TypeError(f"a property list has no values like {value!r}")


def attributes(dictionary):
    """The entries of a dictionary as words of a line."""
    return [f"{key_text(key)}={value_text(value)}" for key, value in dictionary.items()]


def same(one, other):
    """Equality that tells types apart: true is not 1, and 1 is not 1.0."""
    if type(one) is not type(other):
        return False
    if isinstance(one, dict):
        return one.keys() == other.keys() and all(same(one[key], other[key]) for key in one)
    if isinstance(one, list):
        return len(one) == len(other) and all(map(same, one, other))
    return one == other


class Scanner:
    """Takes a line to pieces, from left to right; spaces between the pieces do not count."""

    def __init__(self, number, line):
        self._number, self._line = number, line
        self._at = 0

    def take(self, pattern):
        """The next piece if it matches the pattern, else None."""
        while self._line.startswith(" ", self._at):
            self._at += 1
        match = pattern.match(self._line, self._at)
        if match:
            self._at = match.end()
        return match and match[0]

    def take_mark(self, mark):
        return self.take(re.compile(re.escape(mark)))

    def take_word(self, word):
        return self.take(re.compile(word + r"(?![\w=])"))

    def take_date(self):
        date = self.take(DATE)
        try:
            return date and datetime.datetime.fromisoformat(date.removesuffix("Z"))
        except ValueError as error:
            raise MalformedScenario(f"line {self._number}: {date}: {error}") from None

    def fail(self, wanted):
        rest = self._line[self._at :].strip()
        found = quoted(rest) if rest else "the end of the line"
        raise MalformedScenario(f"line {self._number}: {wanted} is expected instead of {found}")

    def name(self, wanted):
        text = self.take(STRING)
        return json.loads(text) if text else self.take(NAME) or self.fail(wanted)

    def value(self):
        if text := self.take(STRING):
            return json.loads(text)
        if date := self.take_date():
            return date
        if text := self.take(REAL):
            return float(text)
        if text := self.take(INTEGER):
            return int(text)
        if text := self.take(DATA):
            return bytes.fromhex(text[1:-1])
        if self.take_mark("["):
            return self._items("]", self.value)
        if self.take_mark("{"):
            return dict(self._items("}", lambda: self._entry(":", {})))
        if self.take_word("true"):
            return True
        return False if self.take_word("false") else self.fail("a value")

    def attributes(self, constants):
        """The rest of the line as a dictionary; a bare key that is one of `constants` is short for its value."""
        found = {}
        while self._line[self._at :].strip():
            found.update([self._entry("=", constants)])
        return found

    def end(self):
        if self._line[self._at :].strip():
            self.fail("the end of the line")

    def _items(self, end, item):
        items = []
        while not self.take_mark(end):
            if items and not self.take_mark(","):
                self.fail(f"a comma or {end}")
            items.append(item())
        return items

    def _entry(self, mark, constants):
        if text := self.take(STRING):
            key = json.loads(text)
        else:
            key = self.take(WORD) or self.fail("a key")
            key = constants.get(key, key)
        if not self.take_mark(mark):
            self.fail(mark)
        return key, self.value()

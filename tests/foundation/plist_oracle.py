"""Checks the property-list codecs against Python's own.

plist_oracle.py CONVERT [SEED]: generates values, lets Python write them, has CONVERT read that and write it again in
both flavours, and compares what Python reads back with the value. A failure prints the seed that repeats it.
"""

import datetime
import plistlib
import random
import struct
import subprocess
import sys
import tempfile
from pathlib import Path

INTEGERS = [0, 1, 127, 128, 255, 256, 32767, 32768, 65535, 65536, 2**31 - 1, 2**31, 2**32 - 1, 2**32, 2**63 - 1, 2**63,
            2**64 - 1, -1, -128, -129, -32768, -65536, -(2**31), -(2**31) - 1, -(2**63)]
REALS = [1.0, -1.5, 0.1, 5e-324, -5e-324, 2.2250738585072014e-308, 1.7976931348623157e308, float("inf"),
         float("-inf"), 1e22, 123456789.125, 2**53 + 0.0]
ALPHABETS = ["abc XYZ 019_-./:", "é ü ß Ω я", "日本語", "😀🧭𝒳", "&<>\"'", "\t\n"]


class Generator:
    def __init__(self, seed, for_xml):
        self.random = random.Random(seed)
        self.for_xml = for_xml
        self.shared = []
        # One zero in a document: Python writes equal numbers once, and to it 0.0 equals -0.0.
        self.reals = REALS + [self.random.choice([0.0, -0.0])]

    def text(self):
        alphabet = "".join(self.random.sample(ALPHABETS, self.random.randint(1, 3)))
        length = self.random.choice([0, 1, 3, 14, 15, 16, 40, 255, 256, 300])
        text = "".join(self.random.choices(alphabet, k=length))
        return text if self.for_xml else text + self.random.choice(["", "", "\r"])

    def date(self):
        epoch = datetime.datetime(2001, 1, 1)
        whole = self.random.choice([0, 1, -1, 800000000, self.random.randint(-60000000000, 200000000000)])
        # Multiples of 1/64 second: exact both as doubles and as Python's microseconds.
        fraction = 0 if self.for_xml else self.random.randrange(64) * 15625
        return epoch + datetime.timedelta(seconds=whole, microseconds=fraction)

    def scalar(self):
        kind = self.random.randrange(8)
        if kind == 0:
            return self.random.choice([True, False])
        if kind == 1:
            return self.random.choice(INTEGERS)
        if kind == 2:
            return self.random.randint(-(2**63), 2**64 - 1)
        if kind == 3:
            return self.random.choice(self.reals)
        if kind == 4:
            return self.random.gauss(0, 1) * 10 ** self.random.randint(-300, 300)
        if kind == 5:
            return self.date()
        if kind == 6:
            return self.random.randbytes(self.random.choice([0, 1, 2, 3, 14, 15, 57, 58, 200, 300]))
        return self.text()

    def container(self, depth):
        count = self.random.choice([0, 1, 2, 5, 14, 15, 20])
        if self.random.random() < 0.5:
            made = [self.value(depth - 1) for _ in range(count)]
        else:
            made = {self.text(): self.value(depth - 1) for _ in range(count)}
        if depth == 1:  # sharing what holds shared containers would grow without end in XML
            self.shared.append(made)
        return made

    def value(self, depth):
        draw = self.random.random()
        if depth > 0 and draw < 0.35:
            return self.container(depth)
        if depth > 0 and self.shared and draw < 0.4:
            return self.random.choice(self.shared)
        return self.scalar()

    def document(self):
        self.shared = []
        return {"": self.scalar(), "values": [self.value(3) for _ in range(60)], "text": self.text()}

    def deep(self):
        value = self.scalar()
        for level in range(150):
            value = {"level": level, "inside": [value]} if level % 2 else [value]
        return value


def bits(number):
    return struct.pack(">d", number)


def same(a, b):
    """Equality that distinguishes 1 from 1.0 and True, and 0.0 from -0.0, and looks at the order of keys."""
    if type(a) is not type(b):
        return False
    if isinstance(a, float):
        return bits(a) == bits(b)
    if isinstance(a, list):
        return len(a) == len(b) and all(map(same, a, b))
    if isinstance(a, dict):
        return list(a) == list(b) and all(map(same, a.values(), b.values()))
    return a == b


def whole_seconds(value):
    if isinstance(value, datetime.datetime):
        return value.replace(microsecond=0)
    if isinstance(value, list):
        return [whole_seconds(each) for each in value]
    if isinstance(value, dict):
        return {key: whole_seconds(each) for key, each in value.items()}
    return value


def check_widths(written):
    """The widths that every reader takes, and numbers that hold how many objects there are and where the table is."""
    offset_size, reference_size, count, _, table = struct.unpack(">6xBBQQQ", written[-32:])
    for size, number in ((offset_size, table), (reference_size, count)):
        assert size == next(width for width in (1, 2, 4, 8) if number < 256**width), f"{number} in {size} bytes"


def check(convert, folder, documents):
    """Of pairs of a value and the format in which Python writes it."""
    conversions = []
    for number, (value, python_format) in enumerate(documents):
        source = folder / f"{number}.plist"
        source.write_bytes(plistlib.dumps(value, fmt=python_format, sort_keys=False))
        conversions += [(value, python_format, source, folder / f"{number}.{name}", name) for name in ("binary", "xml")]
    # In one process: to start it takes longer than to convert.
    subprocess.run([convert, *(each for conversion in conversions for each in conversion[2:])], check=True, timeout=600)
    for value, python_format, _, target, name in conversions:
        written = target.read_bytes()
        assert written.startswith(b"bplist00" if name == "binary" else b"<?xml"), "not the flavour asked for"
        if name == "binary":
            check_widths(written)
        expected = value if name == "binary" else whole_seconds(value)
        assert same(plistlib.loads(written), expected), f"{python_format} to {name} changed the value"


def main():
    convert = sys.argv[1]
    seed = int(sys.argv[2]) if len(sys.argv) > 2 else random.SystemRandom().getrandbits(32)
    print("seed", seed)
    documents = []
    for number in range(12):
        for python_format in (plistlib.FMT_BINARY, plistlib.FMT_XML):
            generator = Generator(seed + number, for_xml=python_format == plistlib.FMT_XML)
            documents += [(generator.document(), python_format), (generator.deep(), python_format)]
    for count in (254, 255, 65534, 65535):  # numbers of one array, which is one object more
        documents.append((list(range(count)), plistlib.FMT_BINARY))
    for size in (244, 245, 65523, 65524):  # the table behind one object stands at 255, 256, 65,535 and 65,536
        documents.append((bytes(size), plistlib.FMT_BINARY))
    bookmarks = [{"URLString": f"http://host{number}.example/"} for number in range(1800)]
    documents.append(({"Children": bookmarks}, plistlib.FMT_BINARY))  # just over 64 KiB
    with tempfile.TemporaryDirectory() as folder:
        check(convert, Path(folder), documents)
    print("all agree")


if __name__ == "__main__":
    main()

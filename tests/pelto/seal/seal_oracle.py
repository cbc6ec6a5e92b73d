#!/usr/bin/env python3
"""Seals, opens, hashes and names folders from the published descriptions alone: RFC 8439 (ChaCha20-Poly1305),
draft-irtf-cfrg-xchacha-03 (HChaCha20 and the long nonce), RFC 7693 (keyed BLAKE2b, Python's own), RFC 8878 (zstd frames whose
blocks are stored or repeat one byte), RFC 7748 (X25519).

usage: seal_oracle.py check                                                the published test vectors
       seal_oracle.py seal KEY ACCOUNT GENERATION NAME NONCE CONTENTS       hexadecimal but ACCOUNT, GENERATION and NAME
       seal_oracle.py open KEY ACCOUNT GENERATION NAME SEALED
       seal_oracle.py hash KEY BYTES | folder KEY ACCOUNT GENERATION | public SECRET
       seal_oracle.py line KEY ACCOUNT GENERATION PLACE                    an invitation without a commit; also words
"""

import base64
import hashlib
import struct
import sys
import uuid

MASK = 0xFFFFFFFF


def quarter_round(s, a, b, c, d):
    for x, y, z, turn in ((a, b, d, 16), (c, d, b, 12), (a, b, d, 8), (c, d, b, 7)):
        s[x] = (s[x] + s[y]) & MASK
        s[z] ^= s[x]
        s[z] = ((s[z] << turn) | (s[z] >> (32 - turn))) & MASK


def rounds(state):
    s = list(state)
    for _ in range(10):
        for column in range(4):
            quarter_round(s, column, 4 + column, 8 + column, 12 + column)
        for a, b, c, d in ((0, 5, 10, 15), (1, 6, 11, 12), (2, 7, 8, 13), (3, 4, 9, 14)):
            quarter_round(s, a, b, c, d)
    return s


def initial(key, last_row):
    return [0x61707865, 0x3320646E, 0x79622D32, 0x6B206574, *struct.unpack("<8I", key), *struct.unpack("<4I", last_row)]


def hchacha20(key, nonce16):
    s = rounds(initial(key, nonce16))
    return struct.pack("<8I", *s[:4], *s[12:])


def chacha20(key, counter, nonce, data):
    out = bytearray()
    for block in range(0, len(data), 64):
        state = initial(key, struct.pack("<I", counter + block // 64) + nonce)
        stream = struct.pack("<16I", *((a + b) & MASK for a, b in zip(rounds(state), state)))
        out += bytes(a ^ b for a, b in zip(data[block:block + 64], stream))
    return bytes(out)


def poly1305(key, message):
    r = int.from_bytes(key[:16], "little") & 0x0FFFFFFC0FFFFFFC0FFFFFFC0FFFFFFF
    total = 0
    for at in range(0, len(message), 16):
        total = (total + int.from_bytes(message[at:at + 16] + b"\1", "little")) * r % (2**130 - 5)
    return ((total + int.from_bytes(key[16:], "little")) % 2**128).to_bytes(16, "little")


def filled(data):
    return data + bytes(-len(data) % 16)


def tag(key, nonce, cipher, associated):
    one_time = chacha20(key, 0, nonce, bytes(32))
    return poly1305(one_time, filled(associated) + filled(cipher) + struct.pack("<QQ", len(associated), len(cipher)))


def xchacha_key(key, nonce24):
    return hchacha20(key, nonce24[:16]), bytes(4) + nonce24[16:]


def encrypt(key, nonce24, plain, associated):
    key, nonce = xchacha_key(key, nonce24)
    cipher = chacha20(key, 1, nonce, plain)
    return cipher + tag(key, nonce, cipher, associated)


def decrypt(key, nonce24, sealed, associated):
    key, nonce = xchacha_key(key, nonce24)
    if tag(key, nonce, sealed[:-16], associated) != sealed[-16:]:
        raise ValueError("not authentic")
    return chacha20(key, 1, nonce, sealed[:-16])


def subkey(key, number):
    """libsodium's crypto_kdf: BLAKE2b keyed with the key, salted with the number, personalised with the context."""
    return hashlib.blake2b(b"", digest_size=32, key=key, salt=struct.pack("<QQ", number, 0),
                           person=b"corvseal" + bytes(8)).digest()


def prefixed(data):
    return struct.pack(">Q", len(data)) + data


def associated_data(account, generation, name):
    return prefixed(account.encode()) + struct.pack(">q", generation) + prefixed(name.encode())


def frame(contents):
    """A zstd frame of one stored block, with the size of its contents in one byte."""
    assert len(contents) < 256
    return struct.pack("<IBB", 0xFD2FB528, 0x20, len(contents)) + (len(contents) << 3 | 1).to_bytes(3, "little") + contents


def unframed(plain):
    magic, descriptor = struct.unpack("<IB", plain[:5])
    assert magic == 0xFD2FB528 and descriptor & 0x20 and not descriptor & 0x07, "no frame of one segment"
    width = (1, 2, 4, 8)[descriptor >> 6]
    size = int.from_bytes(plain[5:5 + width], "little") + (256 if width == 2 else 0)
    at, contents, last = 5 + width, b"", False
    while not last:
        header = int.from_bytes(plain[at:at + 3], "little")
        last, kind, length = header & 1, header >> 1 & 3, header >> 3
        assert kind < 2, "a compressed block"
        contents += plain[at + 3:at + 3 + length] if kind == 0 else plain[at + 3:at + 4] * length
        at += 3 + (length if kind == 0 else 1)
    assert len(contents) == size and not any(plain[at:]), "other sizes than told"
    return contents


def seal(key, account, generation, name, nonce, contents):
    plain = frame(contents)
    plain += bytes(-(len(plain) + 41) % 1024)
    return b"\1" + nonce + encrypt(subkey(key, 1), nonce, plain, associated_data(account, generation, name))


def opened(key, account, generation, name, sealed):
    assert sealed[0] == 1 and len(sealed) % 1024 == 0
    return unframed(decrypt(subkey(key, 1), sealed[1:25], sealed[25:], associated_data(account, generation, name)))


def x25519(scalar, u):
    prime, a24 = 2**255 - 19, 121665
    k = int.from_bytes(scalar, "little") & ~(7 | 1 << 255) & (2**256 - 1) | 1 << 254
    x1 = int.from_bytes(u, "little") & (2**255 - 1)
    x2, z2, x3, z3 = 1, 0, x1, 1
    for bit in range(254, -1, -1):
        if k >> bit & 1:
            x2, z2, x3, z3 = x3, z3, x2, z2
        a, b, c, d = x2 + z2, x2 - z2, x3 + z3, x3 - z3
        da, cb, aa, bb = d * a, c * b, a * a, b * b
        x3, z3 = (da + cb)**2 % prime, x1 * (da - cb)**2 % prime
        x2, z2 = aa * bb % prime, (aa - bb) * (aa + a24 * (aa - bb)) % prime
        if k >> bit & 1:
            x2, z2, x3, z3 = x3, z3, x2, z2
    return (x2 * pow(z2, prime - 2, prime) % prime).to_bytes(32, "little")


def invitation_groups(key, account, generation, place):
    size = 75 + len(place) + 2 + 4
    carried = (b"\1" + struct.pack(">H", size) + key + uuid.UUID(account).bytes + generation.to_bytes(3, "big") +
               bytes(5 + 16) + place.encode() + bytes(2))
    carried += hashlib.blake2b(carried, digest_size=32).digest()[:4]
    carried += bytes(-len(carried) % 9)
    running, groups = hashlib.blake2b(b"corvane invitation", digest_size=32), []
    for at in range(0, len(carried), 9):
        running.update(carried[at:at + 9])
        groups.append(carried[at:at + 9] + running.digest()[:1])
    return groups


def word(number):
    consonants, vowels = "bdfghklmnprstvxz", "aeio"
    return (consonants[number >> 12] + vowels[number >> 10 & 3] + consonants[number >> 6 & 15] + vowels[number >> 4 & 3] +
            consonants[number & 15])


def check():
    """The documents' own examples."""
    text = b"Ladies and Gentlemen of the class of '99: If I could offer you only one tip for the future, sunscreen would be it."
    key = bytes(range(0x80, 0xA0))
    sealed = encrypt(key, bytes(range(0x40, 0x58)), text, bytes.fromhex("50515253c0c1c2c3c4c5c6c7"))
    assert sealed[:16].hex() == "bd6d179d3e83d43b9576579493c0e939"
    assert sealed[-16:].hex() == "c0875924c1c7987947deafd8780acf49"
    hashed = hchacha20(bytes(range(32)), bytes.fromhex("000000090000004a0000000031415927"))
    assert hashed.hex() == "82413b4227b27bfed30e42508a877d73a0f9e4d58a74a853c12ec41326d3ecdc"
    assert x25519(bytes.fromhex("a546e36bf0527c9d3b16154b82465edd62144c0ac1fc5a18506a2244ba449ac4"), bytes.fromhex(
        "e6db6867583030db3594c1a424b15f7c726624ec26b3353b10a903a6d0ab1c4c")).hex() == \
        "c3da55379de9c6908e94ea4df28d084f32eccf03491c71f754b4075577a28552"


def main():
    command, arguments = sys.argv[1], sys.argv[2:]
    raw = bytes.fromhex
    if command == "check":
        check()
    elif command == "seal":
        key, account, generation, name, nonce, contents = arguments
        print(seal(raw(key), account, int(generation), name, raw(nonce), raw(contents)).hex())
    elif command == "open":
        key, account, generation, name, sealed = arguments
        print(opened(raw(key), account, int(generation), name, raw(sealed)).hex())
    elif command == "hash":
        key, data = arguments
        print(hashlib.blake2b(raw(data), digest_size=32, key=subkey(raw(key), 2)).hexdigest())
    elif command == "folder":
        key, account, generation = arguments
        data = prefixed(account.encode()) + struct.pack(">q", int(generation))
        print(hashlib.blake2b(data, digest_size=16, key=subkey(raw(key), 3)).hexdigest())
    elif command in ("line", "words"):
        key, account, generation, place = arguments
        groups = invitation_groups(raw(key), account, int(generation), place)
        if command == "line":
            print("-".join(["CORVANE"] + [base64.b32encode(each).decode() for each in groups]))
        else:
            print("\n".join(" ".join(map(word, struct.unpack(">5H", each))) for each in groups))
    elif command == "public":
        print(x25519(raw(arguments[0]), (9).to_bytes(32, "little")).hex())
    else:
        sys.exit(__doc__)


if __name__ == "__main__":
    main()

"""The host's side of a conversation with the extension, as docs/browsers.md describes it."""

import collections
import json
import socket
import struct

LIMIT = 256 * 1024  # bytes of a message
ANSWER_SECONDS = 120


class Lost(Exception):
    """The other side ended the conversation."""


class HostSide:
    """Asks requests, one at a time, and keeps what else the other side says until somebody wants it."""

    def __init__(self, connection):
        connection.settimeout(ANSWER_SECONDS)
        self.connection = connection
        self.reader = connection.makefile("rb")
        self.number = 0
        self.others = collections.deque()

    def send(self, message):
        data = json.dumps(message).encode()
        self.connection.sendall(struct.pack("=I", len(data)) + data)

    def receive(self):
        header = self.reader.read(4)
        if len(header) < 4:
            raise Lost
        size = struct.unpack("=I", header)[0]
        if size > LIMIT:
            raise AssertionError(f"a message of {size} bytes")
        return json.loads(self.reader.read(size).decode())

    def next(self, kind):
        """The next message of that type; nothing comes before `hello`."""
        for each in self.others:
            if each["type"] == kind:
                self.others.remove(each)
                return each
        while True:
            message = self.receive()
            if message["type"] == kind:
                return message
            self.others.append(message)

    def answers(self, kind, **fields):
        """All answers to a request."""
        self.number += 1
        self.send({"type": kind, "id": self.number, **fields})
        found = []
        while not found or found[-1].get("more"):
            found.append(self.next("answer"))
            if found[-1].pop("id") != self.number:
                raise AssertionError("an answer to another request")
            del found[-1]["type"]
        return found

    def ask(self, kind, **fields):
        answer, = self.answers(kind, **fields)
        answer.pop("more", None)
        return answer

    def read(self):
        """All nodes, in their order."""
        return [node for answer in self.answers("read") for node in answer["nodes"]]

    def is_quiet(self, kind, seconds):
        """Whether no message of that type comes for so long."""
        if any(each["type"] == kind for each in self.others):
            return False
        self.connection.settimeout(seconds)
        try:
            while True:
                message = self.receive()
                self.others.append(message)
                if message["type"] == kind:
                    return False
        except TimeoutError:
            return True
        finally:
            self.connection.settimeout(ANSWER_SECONDS)
            # A file object refuses to be read again after a time-out.
            self.reader = self.connection.makefile("rb")


class Listener:
    """Where relays call, one connection for each time that the extension connects."""

    def __init__(self, path):
        self.socket = socket.socket(socket.AF_UNIX)
        self.socket.settimeout(ANSWER_SECONDS)
        self.socket.bind(path)
        self.socket.listen()
        self.connection = None

    def accept(self):
        self.hang_up()
        self.connection, _ = self.socket.accept()
        return HostSide(self.connection)

    def hang_up(self):
        if self.connection:
            self.connection.shutdown(socket.SHUT_RDWR)
            self.connection.close()
        self.connection = None

    def close(self):
        self.hang_up()
        self.socket.close()

"""corvane-browser-host as a browser starts it, with a scripted browser at the other end."""

import json
import queue
import struct
import subprocess
import threading

OWN = ("/anywhere/manifest.json", "bookmarks@corvane.keldra.com")
PATIENCE = 60  # seconds, after which a test fails


def framed(message):
    return struct.pack("=I", len(message)) + message


class Connection:
    """A host; what it sends comes out of `next`."""

    def __init__(self, program, environment, *arguments):
        self.process = subprocess.Popen([program, *arguments], env=environment,
                                        stdin=subprocess.PIPE, stdout=subprocess.PIPE)
        self.messages = queue.Queue()
        self.reader = threading.Thread(target=self.read, daemon=True)
        self.reader.start()

    def read(self):
        while len(size := self.process.stdout.read(4)) == 4:
            self.messages.put(self.process.stdout.read(struct.unpack("=I", size)[0]))
        self.messages.put(None)

    def send(self, message):
        self.process.stdin.write(framed(message if isinstance(message, bytes) else json.dumps(message).encode()))
        self.process.stdin.flush()

    def next(self, patience=PATIENCE):
        return self.messages.get(timeout=patience)

    def end(self):
        """Has the input end. Answers the exit status."""
        self.process.stdin.close()
        status = self.process.wait(timeout=PATIENCE)
        self.reader.join()
        self.process.stdout.close()
        return status


class HostedFirefox(Connection):
    """A host with a scripted Firefox, which answers what `until` passes on to it."""

    def __init__(self, program, browser, environment):
        super().__init__(program, environment, *OWN)
        self.browser = subprocess.Popen([browser, "firefox"], stdin=subprocess.PIPE, stdout=subprocess.PIPE)
        self.pass_on(1)

    def pass_on(self, count):
        for _ in range(count):
            size = struct.unpack("=I", self.browser.stdout.read(4))[0]
            self.send(self.browser.stdout.read(size))

    def until(self, wanted, patience=PATIENCE):
        """The first message of the host that is wanted; the browser is given all. Raises queue.Empty when none comes for that
        many seconds."""
        while (text := self.next(patience)) is not None:
            message = json.loads(text)
            self.browser.stdin.write(framed(text))
            self.browser.stdin.flush()
            if "id" in message:
                self.pass_on(1)
            if wanted(message):
                return message
        raise AssertionError("the host ends before it says what is wanted")

    def close(self):
        """Ends the browser."""
        self.browser.stdin.close()
        self.browser.wait(timeout=PATIENCE)
        self.browser.stdout.close()

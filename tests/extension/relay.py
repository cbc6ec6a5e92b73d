#!/usr/bin/env python3
"""Started by a browser in the place of corvane-browser-host: passes what it gets on to a socket, and back, until either ends.

usage: relay.py SOCKET ARGUMENT_OF_THE_BROWSER...
"""

import os
import selectors
import socket
import sys


def pass_on(connection):
    ways = {sys.stdin.fileno(): connection.sendall,
            connection.fileno(): lambda data: sys.stdout.buffer.write(data) and sys.stdout.buffer.flush()}
    with selectors.DefaultSelector() as selector:
        for source in ways:
            selector.register(source, selectors.EVENT_READ)
        while True:
            for key, _ in selector.select():
                data = os.read(key.fd, 1 << 16)
                if not data:
                    return
                ways[key.fd](data)


if __name__ == "__main__":
    with socket.socket(socket.AF_UNIX) as peer:
        peer.connect(sys.argv[1])
        pass_on(peer)

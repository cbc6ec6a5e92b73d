"""A relay before a server, which understands just enough HTTP to cut a connection where it is told to."""

import re
import socket
import struct
import threading

PATIENCE_SECONDS = 600

# Of a request, what reaches the server, and when; of an answer, what reaches the client before the connection ends.
REQUEST_CUTS = ("no request", "part of the request", "a late request")
MOST_LATE_SECONDS = 2
ANSWER_CUTS = ("no answer", "in the status line", "behind the status line", "in the headers", "before the blank line",
               "in the blank line", "before the body", "in the body", "before the last byte", "behind the last byte")
CUTS = REQUEST_CUTS + ANSWER_CUTS


class _Ended(Exception):
    pass


class _Stream:
    """One end of a connection, read message by message."""

    def __init__(self, connection):
        self.connection = connection
        self.buffer = b""

    def _read_more(self):
        more = self.connection.recv(1 << 16)
        if not more:
            raise _Ended
        self.buffer += more

    def _take(self, count):
        while len(self.buffer) < count:
            self._read_more()
        taken, self.buffer = self.buffer[:count], self.buffer[count:]
        return taken

    def _take_until(self, mark):
        while mark not in self.buffer:
            self._read_more()
        return self._take(self.buffer.index(mark) + len(mark))

    def _chunks(self):
        text = b""
        while True:
            line = self._take_until(b"\r\n")
            text += line
            size = int(line.split(b";")[0], 16)
            if size == 0:
                return text + self._take_until(b"\r\n")
            text += self._take(size + 2)

    def head(self):
        return self._take_until(b"\r\n\r\n")

    def body(self, head):
        if re.search(rb"\r\nTransfer-Encoding: *chunked", head, re.I):
            return self._chunks()
        length = re.search(rb"\r\nContent-Length: *(\d+)", head, re.I)
        return self._take(int(length.group(1))) if length else b""


def _reset(connection):
    connection.setsockopt(socket.SOL_SOCKET, socket.SO_LINGER, struct.pack("ii", 1, 0))


def _end_of_part(cut, answer, draw):
    """How many bytes of the answer arrive."""
    status = answer.index(b"\r\n") + 2
    head = answer.index(b"\r\n\r\n") + 4
    whole = len(answer)
    return {
        "no answer": 0,
        "in the status line": draw.randint(1, status - 1),
        "behind the status line": status,
        "in the headers": draw.randint(status, head - 3),
        "before the blank line": head - 2,
        "in the blank line": head - 1,
        "before the body": head,
        "in the body": draw.randint(min(head + 1, whole), max(min(head + 1, whole), whole - 2)),
        "before the last byte": whole - 1,
        "behind the last byte": whole,
    }[cut]


class CuttingProxy:
    """Listens at one port for all its life, `refuse` and `listen` apart. `plan`, where it is set, is asked at each exchange
    for one of the cuts, or None."""

    def __init__(self, port, target, draw):
        self.port = port
        self.target = target
        self.draw = draw
        self.plan = None
        self.cuts = {cut: 0 for cut in CUTS}
        self.lock = threading.Lock()
        self.late = []
        self.listener = None
        self.listen()

    def listen(self):
        self.listener = socket.create_server(("127.0.0.1", self.port), backlog=256)
        threading.Thread(target=self._accept, args=(self.listener,), daemon=True).start()

    def refuse(self):
        """Connections are refused from now on."""
        self.listener.shutdown(socket.SHUT_RDWR)
        self.listener.close()

    def _accept(self, listener):
        while True:
            try:
                client, _ = listener.accept()
            except OSError:
                return
            threading.Thread(target=self._serve, args=(client,), daemon=True).start()

    def _serve(self, client):
        server = None
        try:
            client.settimeout(PATIENCE_SECONDS)
            server = socket.create_connection(("127.0.0.1", self.target), timeout=PATIENCE_SECONDS)
            for each in (client, server):
                each.setsockopt(socket.IPPROTO_TCP, socket.TCP_NODELAY, 1)
            asking, answering = _Stream(client), _Stream(server)
            while self._exchange(asking, answering):
                pass
        except (OSError, _Ended):
            pass
        finally:
            for each in (client, server):
                if each:
                    each.close()

    def _exchange(self, client, server):
        """One request and its answer; whether the connection goes on."""
        request = self._request(client)
        cut, part = self._draw_cut(len(request))
        if cut == "a late request":
            self._send_later(request)
            return False
        if cut in REQUEST_CUTS:
            server.connection.sendall(request[:part])
            return False
        try:
            server.connection.sendall(request)
        except OSError:
            pass  # a server may answer before it has read all, and end the connection
        answer = self._answer(server, request)
        if cut is None:
            client.connection.sendall(answer)
            return b"\r\nconnection: close" not in answer[:answer.index(b"\r\n\r\n")].lower()
        with self.lock:
            end, is_reset = _end_of_part(cut, answer, self.draw), self.draw.random() < 0.5
        client.connection.sendall(answer[:end])
        if is_reset and end == 0:
            _reset(client.connection)
        return False

    def _send_later(self, request):
        with self.lock:
            sender = threading.Timer(self.draw.uniform(0, MOST_LATE_SECONDS), self._send, (request,))
            self.late.append(sender)
        sender.start()

    def _send(self, request):
        try:
            with socket.create_connection(("127.0.0.1", self.target), timeout=PATIENCE_SECONDS) as connection:
                connection.sendall(request)
                self._answer(_Stream(connection), request)
        except (OSError, _Ended):
            pass  # the server has ended meanwhile

    def await_late(self):
        """Until nothing is on its way any more."""
        while self.late:
            self.late.pop().join()

    def _draw_cut(self, request_length):
        with self.lock:
            cut = self.plan() if self.plan else None
            if cut:
                self.cuts[cut] += 1
            return cut, self.draw.randrange(1, request_length) if cut == "part of the request" else 0

    @staticmethod
    def _request(client):
        head = client.head()
        if re.search(rb"\r\nExpect: *100-continue", head, re.I):
            client.connection.sendall(b"HTTP/1.1 100 Continue\r\n\r\n")
            head = re.sub(rb"\r\nExpect: *100-continue", b"", head, flags=re.I)
        return head + client.body(head)

    @staticmethod
    def _answer(server, request):
        head = server.head()
        if request.startswith(b"HEAD ") or re.match(rb"HTTP/1\.1 (204|304)", head):
            return head
        return head + server.body(head)

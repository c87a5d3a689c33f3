"""A fake control API with answers set by the test."""

import contextlib
import json
import socket
import threading

TOKEN = "0123456789abcdef0123456789abcdef"
DIAGNOSTICS = {"agent": {"reachable": True, "running": True, "state": "enrolled"}, "indexing": [],
               "model": {"phase": "ready", "downloadedBytes": 0, "totalBytes": 0}}


class ScriptedTray:
    """The part of the control API that the window uses. Records the requests. GET /status returns
    the screens in `requests`, one at a time."""

    def __init__(self):
        self.received = []  # (method, path, headers, body)
        self.requests = []
        self.answers = {"GET /servers": (200, {"servers": []}), "GET /roots": (200, {"roots": []}),
                        "GET /diagnostics": (200, DIAGNOSTICS)}
        self.token = TOKEN
        self.port = 0
        self.listen()

    def listen(self):
        """Starts listening, after `close` on the same port."""
        self.listener = socket.create_server(("127.0.0.1", self.port))
        self.port = self.listener.getsockname()[1]
        self.thread = threading.Thread(target=self._serve)
        self.thread.start()

    def _serve(self):
        with contextlib.suppress(OSError):
            while True:
                connection, _ = self.listener.accept()
                with contextlib.suppress(OSError), connection:
                    self._answer(connection)

    def _answer(self, connection):
        head, body = b"", b""
        with connection.makefile("rb") as stream:
            while (line := stream.readline()) not in (b"\r\n", b""):
                head += line
            if not head:
                return  # the window ended before it sent a request
            first, *lines = head.decode().splitlines()
            headers = dict(line.split(": ", 1) for line in lines)
            body = stream.read(int(headers.get("Content-Length", 0)))
        method, path, _ = first.split()
        self.received.append((method, path, headers, body.decode()))
        status, answer = self.answers.get(f"{method} {path}", (200, {"ok": True}))
        if headers["X-Zephyl-Onboard-Token"] != self.token:
            status, answer = 403, {"error": "bad or missing onboarding token"}
        elif path == "/status":
            answer = {"available": True, "enrolled": False, "running": False}
            if self.requests:
                answer["request"] = self.requests.pop(0)
        text = json.dumps(answer).encode()
        connection.sendall(f"HTTP/1.1 {status} X\r\nContent-Length: {len(text)}\r\nConnection: close\r\n\r\n".encode()
                           + text)

    def last(self):
        """Returns the newest requested change."""
        method, path, headers, body = next(entry for entry in reversed(self.received) if entry[0] != "GET")
        return f"{method} {path}", json.loads(body) if body else None

    def close(self):
        self.listener.shutdown(socket.SHUT_RDWR)
        self.thread.join()
        self.listener.close()

"""Runs the sandbox's agent in private directories on a free port, and calls its API."""

import http.client
import json
import os
import pathlib
import re
import signal
import socket
import subprocess
import threading
import time

from support import agent_records
from support.tray import SANITIZERS, eventually

REPOSITORY = pathlib.Path(__file__).resolve().parents[3]
PROGRAM = pathlib.Path(
    os.environ.get("ZEPHYL_SANDBOX_DIR", REPOSITORY / "build" / "sandbox")) / "zephyl-agent"

FAST = ("--port", "0", "--embed-rate", "100000", "--model-rate", "1e10")

RECORDS = {"/api/status": agent_records.status, "/api/activity": agent_records.activity,
           "/api/roots": agent_records.roots, "/api/escape-grants": agent_records.grants}


def run(*arguments, environment=None):
    """Runs the program and waits for its end."""
    return subprocess.run([PROGRAM, *arguments], env=environment or {}, text=True, timeout=10,
                          stdin=subprocess.DEVNULL, capture_output=True, check=False)


class RunningAgent:
    """One run of the agent. Validates every answer with status 2xx."""

    def __init__(self, home, *arguments, **environment):
        self.lines = []
        self.process = subprocess.Popen(
            [PROGRAM, *(arguments or FAST)], env={"HOME": str(home), **SANITIZERS, **environment},
            stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, text=True)
        self._reader = threading.Thread(target=self._read)
        self._reader.start()
        try:
            self.port = int(self.log_line(r"^listening on 127\.0\.0\.1:(\d+)$").group(1))
        except AssertionError:
            self.process.kill()
            self.wait()
            raise

    def _read(self):
        for line in self.process.stdout:
            self.lines.append(line.rstrip("\n"))

    def log_line(self, pattern):
        """Waits for a log line that matches."""
        def find():
            ended = self.process.poll() is not None and not self._reader.is_alive()
            found = next(filter(None, (re.search(pattern, line) for line in self.lines)), None)
            assert found or not ended, f"no line {pattern!r} in {self.lines}"
            return found
        return eventually(find, what=f"a line {pattern!r}")

    def ask(self, method, path, body=None):
        """Returns the status and the decoded body."""
        connection = http.client.HTTPConnection("127.0.0.1", self.port, timeout=10)
        try:
            content = body if body is None or isinstance(body, (str, bytes)) else json.dumps(body)
            connection.request(method, path, content, {"content-type": "application/json"})
            answer = connection.getresponse()
            decoded = json.loads(answer.read())
        finally:
            connection.close()
        if answer.status < 300:
            RECORDS.get(path, lambda _: None)(decoded)
        else:
            assert isinstance(decoded["error"], str) and decoded["error"]
        return answer.status, decoded

    def get(self, path):
        status, answer = self.ask("GET", path)
        assert status == 200, answer
        return answer

    def activity(self):
        return self.get("/api/activity")

    def index(self, root):
        """Waits until the agent has indexed a folder, and returns its index."""
        def find():
            return next((index for index in self.activity()["indexing"]
                         if index["root"] == str(root) and index["ready"]), None)
        return eventually(find, what=f"the index of {root}")

    def share(self, root, **more):
        status, answer = self.ask("POST", "/api/roots", {"root": str(root), **more})
        assert status == 200, answer
        return answer["roots"]

    def find(self, word):
        return [pathlib.Path(path).name for path in self.get(f"/sandbox/search?q={word}")["files"]]

    def raise_request(self, **request):
        status, answer = self.ask("POST", "/sandbox/requests", request)
        assert status == 202, answer
        return answer["id"]

    def decide(self, request, decision, **more):
        return self.ask("POST", "/api/approvals", {"id": request, "decision": decision, **more})

    def outcome(self, request):
        return self.get(f"/sandbox/requests/{request}")["state"]

    def events(self, **options):
        return ActivityStream(self.port, **options)

    def stop(self, number=signal.SIGTERM):
        """Ends the agent like the tray; returns its exit status and the time in seconds."""
        began = time.monotonic()
        self.process.send_signal(number)
        return self.wait(), time.monotonic() - began

    def wait(self):
        status = self.process.wait(10)
        self._reader.join(10)
        return status

    def close(self):
        """Ends the agent if it still runs. Fails, and kills it, if it does not end in order."""
        try:
            if self.process.poll() is None:
                assert self.stop()[0] == 0, self.lines
        finally:
            self.process.kill()
            self.process.wait()
            self._reader.join(10)
            self.process.stdout.close()


class ActivityStream:
    """The agent's event stream: `records` and `comments` as they arrive, with their times."""

    def __init__(self, port):
        self.records = []  # (monotonic time, activity)
        self.comments = []  # monotonic times
        self.ended_in_order = False
        self._problem = None
        connection = http.client.HTTPConnection("127.0.0.1", port, timeout=10)
        connection.request("GET", "/api/events")
        self._socket = connection.sock
        self._answer = connection.getresponse()
        assert self._answer.status == 200
        assert self._answer.getheader("Content-Type") == "text/event-stream"
        self._reader = threading.Thread(target=self._read)
        self._reader.start()

    def _read(self):
        try:
            for line in self._answer:
                self._take(line.decode().rstrip("\n"))
            self.ended_in_order = True
        except (OSError, http.client.HTTPException):
            pass  # the connection was closed by either side
        except AssertionError as problem:
            self._problem = problem

    def _take(self, line):
        if line.startswith("data: "):
            activity = json.loads(line[len("data: "):])
            agent_records.activity(activity)
            self.records.append((time.monotonic(), activity))
        elif line == ":":
            self.comments.append(time.monotonic())
        else:
            assert line == "", line

    @property
    def activities(self):
        return [activity for _, activity in self.records]

    def wait_for(self, condition):
        """Waits for an activity for which condition(activity) holds."""
        return eventually(
            lambda: next((activity for activity in self.activities if condition(activity)), None),
            what="an activity on the stream")

    def join(self):
        self._reader.join(10)
        assert not self._reader.is_alive()
        if self._problem:
            raise self._problem

    def __enter__(self):
        return self

    def __exit__(self, *_):
        try:
            self._socket.shutdown(socket.SHUT_RDWR)
        except OSError:
            pass  # the peer has closed first
        self.join()
        self._answer.close()

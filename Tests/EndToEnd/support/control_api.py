"""Calls the tray's control API like the desktop window."""

import contextlib
import http.client
import json
import socket

import pytest

from support.tray import Tray, World, eventually

TOKEN_HEADER = "X-Zephyl-Onboard-Token"

# Stores its environment in a file, and keeps running.
WINDOW = """#!/bin/sh
umask 077
env -0 >'{environment_file}.new'
mv '{environment_file}.new' '{environment_file}'
exec sleep 1000
"""


class Window:
    """A desktop window that only records its environment."""

    def __init__(self, world):
        self.program = world.resources / "Zephyl Window.app"
        self.environment_file = world.root / "window-environment"
        self.environment_file.unlink(missing_ok=True)
        self.program.write_text(WINDOW.format(environment_file=self.environment_file))
        self.program.chmod(0o755)

    def environment(self):
        """Returns the environment of the newest window."""
        text = eventually(lambda: self.environment_file.exists() and self.environment_file.read_bytes(),
                          what="a window with an environment")
        return dict(entry.split("=", 1) for entry in text.decode().split("\0") if entry)

    @property
    def token(self):
        return self.environment()["ZEPHYL_ONBOARD_TOKEN"]


class ControlApi:
    """The control API of a running tray."""

    def __init__(self, port, token):
        self.port = port
        self.token = token

    def ask(self, method, path, body=None, limit=10):
        """Returns the status and the decoded JSON. A body that is not text is sent as JSON."""
        connection = http.client.HTTPConnection("127.0.0.1", self.port, timeout=limit)
        try:
            content = body if body is None or isinstance(body, (str, bytes)) else json.dumps(body)
            connection.request(method, path, content, {TOKEN_HEADER: self.token})
            answer = connection.getresponse()
            return answer.status, json.loads(answer.read())
        finally:
            connection.close()

    def get(self, path):
        status, answer = self.ask("GET", path)
        assert status == 200, (status, answer)
        return answer

    def do(self, method, path, body=None):
        """Sends a change that must succeed."""
        assert self.ask(method, path, body) == (200, {"ok": True})

    def refusal(self, method, path, body=None):
        """Sends a change that must be refused, and returns the message."""
        status, answer = self.ask(method, path, body)
        assert (status, list(answer)) == (400, ["error"]), (status, answer)
        return answer["error"]

    def server(self, identifier=None):
        """Returns the record of a server, by default of the only one."""
        servers = self.get("/servers")["servers"]
        if identifier is None:
            assert len(servers) == 1, servers
            return servers[0]
        return next((server for server in servers if server["id"] == identifier), None)

    def head(self, line, *more, token=None):
        """Returns the bytes of a request's head with the token."""
        lines = [line, f"{TOKEN_HEADER}: {token or self.token}", *more]
        return ("\r\n".join(lines) + "\r\n\r\n").encode()

    def connect(self):
        return socket.create_connection(("127.0.0.1", self.port), timeout=10)

    def exchange(self, raw, half_close=False):
        """Sends bytes, and returns everything received until the tray closes."""
        with self.connect() as sock:
            sock.sendall(raw)
            if half_close:
                sock.shutdown(socket.SHUT_WR)
            return receive_all(sock)


def receive_all(sock):
    received = b""
    while piece := sock.recv(65536):
        received += piece
    return received


def split_answer(raw):
    """Returns status line, headers in order, and decoded JSON of a complete answer."""
    head, body = raw.split(b"\r\n\r\n", 1)
    first, *lines = head.decode().split("\r\n")
    headers = [tuple(line.split(": ", 1)) for line in lines]
    assert int(dict(headers)["Content-Length"]) == len(body)
    return first, headers, json.loads(body)


def status_of(raw):
    return int(raw.split(b" ", 2)[1])


@pytest.fixture
def window(world):
    """Installs a window in the test's world, for trays that are started later."""
    return Window(world)


@pytest.fixture
def start_api(world, window, start_tray):
    """Starts a tray and returns its control API, whose `tray` is the tray."""
    apis = []

    def start():
        window.environment_file.unlink(missing_ok=True)
        tray = start_tray()
        apis.append(ControlApi(world.control_port, window.token))
        apis[-1].tray = tray
        return apis[-1]

    yield start
    for api in apis:
        stop(api.tray)


def stop(tray):
    """Ends a running tray in order, which is faster than the clean-up after a kill."""
    if tray.process.poll() is None:
        assert tray.stop() == 0, tray.lines


@pytest.fixture(scope="module")
def shared_api():
    """A tray without servers, with an agent that does nothing, for all tests of a file that do not
    change its state."""
    with contextlib.ExitStack() as running:
        world = World()
        running.callback(world.remove)
        world.use_agent_script("#!/bin/sh\nexec sleep 1000\n")
        window = Window(world)
        tray = Tray(world)
        running.callback(tray.close)
        api = ControlApi(world.control_port, window.token)
        api.tray = tray
        yield api
        stop(tray)

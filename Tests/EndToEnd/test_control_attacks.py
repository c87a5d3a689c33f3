"""The control API under clients without the token that try to block other clients."""

import contextlib
import os
import pathlib
import socket
import threading
import time

import pytest

from support.control_api import shared_api, start_api, status_of, window  # noqa: F401
from support.tray import eventually

MOST_CONNECTIONS = 256
LONG_HEAD = b"POST /status HTTP/1.1\r\n" + b"".join(b"%03x:\r\n" % number for number in range(4000)) * 2


@pytest.fixture(name="api")
def fixture_api(shared_api):
    return shared_api


def processor_seconds(pid):
    fields = pathlib.Path(f"/proc/{pid}/stat").read_text().rsplit(")", 1)[1].split()
    return (int(fields[11]) + int(fields[12])) / os.sysconf("SC_CLK_TCK")


def open_connections(api):
    """Returns the number of open descriptors of the tray, one of them for each connection."""
    return len(os.listdir(f"/proc/{api.tray.pid}/fd"))


@contextlib.contextmanager
def running(work):
    """Runs work(stop) on a thread until the block ends."""
    stop = threading.Event()
    thread = threading.Thread(target=work, args=(stop,))
    thread.start()
    try:
        yield
    finally:
        stop.set()
        thread.join()


def slowest_status(api, seconds):
    """Returns the longest time of GET /status, called repeatedly for some seconds."""
    slowest = 0.0
    end = time.monotonic() + seconds
    while time.monotonic() < end:
        began = time.monotonic()
        api.get("/status")
        slowest = max(slowest, time.monotonic() - began)
        time.sleep(0.01)
    return slowest


def dribble(sock, stop):
    """Sends about 500 single bytes a second until the tray closes the connection."""
    sock.setsockopt(socket.IPPROTO_TCP, socket.TCP_NODELAY, 1)
    with contextlib.suppress(OSError):
        while not stop.wait(0.002):
            sock.send(b"x")


def dribbling_costs_nothing(api, beginning):
    """Four clients send the beginning of a request, and then byte by byte."""
    with contextlib.ExitStack() as open_sockets:
        for _ in range(4):
            sock = open_sockets.enter_context(api.connect())
            sock.sendall(beginning)
            open_sockets.enter_context(running(lambda stop, sock=sock: dribble(sock, stop)))
        api.get("/status")
        used = processor_seconds(api.tray.pid)
        slowest = slowest_status(api, 3)
        used = processor_seconds(api.tray.pid) - used
    print(f"GET /status at most {slowest * 1000:.1f} ms, {used / 3:.1%} of a processor")
    assert slowest < 0.2
    assert used < 0.6, f"{used:.2f} s of processor time in 3 s"


@pytest.mark.parametrize("with_token", [False, True])
def test_a_slow_body_after_a_long_head_costs_little(api, with_token):
    head = LONG_HEAD + b"Content-Length: 10000\r\n"
    assert len(head) > 40_000
    if with_token:
        head += f"X-Zephyl-Onboard-Token: {api.token}\r\n".encode()
    dribbling_costs_nothing(api, head + b"\r\n")


def test_a_slow_head_costs_little(api):
    dribbling_costs_nothing(api, LONG_HEAD + b"X: ")


def test_refused_clients_that_keep_sending_block_nobody(api):
    """There are more refused clients than places, and they keep their connections open."""
    refusal = b"GET /status HTTP/1.1\r\n\r\n" + b"x" * 20_000

    def flood(stop):
        kept = []
        while not stop.wait(1 / 400):
            with contextlib.suppress(OSError):
                kept.append(api.connect())
                kept[-1].sendall(refusal)
            if len(kept) > 2 * MOST_CONNECTIONS:
                kept.pop(0).close()
        for sock in kept:
            sock.close()

    with running(flood):
        eventually(lambda: open_connections(api) >= MOST_CONNECTIONS - 5, what="a full house")
        slowest = slowest_status(api, 4)
    print(f"GET /status at most {slowest * 1000:.1f} ms")
    assert slowest < 0.5


def test_a_request_without_the_token_is_refused_before_its_body(api):
    with api.connect() as sock:
        sock.sendall(b"POST /invite HTTP/1.1\r\nContent-Length: 5000\r\n\r\n{")
        assert status_of(sock.recv(65536)) == 403

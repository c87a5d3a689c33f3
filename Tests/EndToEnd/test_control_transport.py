"""The control API on the wire: framing, limits, the token, and clients that misbehave."""

import contextlib
import json
import os
import pathlib
import re
import resource
import select
import signal
import socket
import threading
import time

import pytest

from support.control_api import (TOKEN_HEADER, receive_all, shared_api, split_answer,  # noqa: F401
                                 start_api, status_of, window)  # noqa: F401
from support.tray import descendants, eventually

MOST_BYTES = 65536
MOST_CONNECTIONS = 256
MOST_BUFFERED_BYTES = int(pathlib.Path("/proc/sys/net/ipv4/tcp_wmem").read_text().split()[2])
IDLE = "#!/bin/sh\nexec sleep 1000\n"
NO_KEY = "expected a JSON body with a \"key\" field"
BAD_KEY = "That doesn't look like a Zephyl invite key."


@pytest.fixture(name="api")
def fixture_api(shared_api):
    return shared_api


def answered(raw):
    """Returns the decoded JSON of an answer with status 200."""
    first, _, answer = split_answer(raw)
    assert first == "HTTP/1.1 200 OK"
    return answer


def request_of(api, size):
    """Returns a request that is exactly so many bytes long."""
    def build(filler):
        body = json.dumps({"label": "x" * filler}).encode()
        return api.head("POST /servers/none/label HTTP/1.1", f"Content-Length: {len(body)}") + body
    raw = build(size - len(build(size)) + size)
    assert len(raw) == size
    return raw


# Framing


def test_an_answer_is_one_compact_json_document_and_the_connection_ends(api):
    first, headers, answer = split_answer(api.exchange(api.head("GET /servers HTTP/1.1")))
    assert first == "HTTP/1.1 200 OK"
    assert headers == [("Content-Type", "application/json"), ("Content-Length", "14"), ("Connection", "close")]
    assert answer == {"servers": []}


def test_every_status_has_its_reason_phrase(api):
    lines = {
        api.head("GET /servers HTTP/1.1"): "200 OK",
        api.head("POST /invite HTTP/1.1"): "400 Bad Request",
        api.head("GET /servers HTTP/1.1", token="none"): "403 Forbidden",
        api.head("GET /nothing HTTP/1.1"): "404 Not Found",
        b"x" * (MOST_BYTES + 1): "413 Payload Too Large",
        api.head("GET /roots HTTP/1.1"): "502 Bad Gateway",
    }
    for raw, line in lines.items():
        assert split_answer(api.exchange(raw))[0] == "HTTP/1.1 " + line


def test_a_request_may_arrive_byte_by_byte(api):
    body = b'{"key":"     "}'
    raw = api.head("POST /invite HTTP/1.1", f"Content-Length: {len(body)}") + body
    with api.connect() as sock:
        sock.setsockopt(socket.IPPROTO_TCP, socket.TCP_NODELAY, 1)
        for byte in raw:
            sock.send(bytes([byte]))
        assert split_answer(receive_all(sock))[2] == {"error": BAD_KEY}


def test_a_client_that_half_closes_after_a_complete_request_is_answered(api):
    assert answered(api.exchange(api.head("GET /servers HTTP/1.1"), half_close=True)) == {"servers": []}


@pytest.mark.parametrize("cut", [1, 30, -1])
def test_a_client_that_half_closes_within_a_request_gets_no_answer(api, cut):
    raw = api.head("POST /invite HTTP/1.1", "Content-Length: 10") + b"123456789"
    assert api.exchange(raw[:cut] if cut > 0 else raw, half_close=True) == b""


def test_a_client_that_closes_at_once_changes_nothing(api):
    for raw in (b"", b"GET", api.head("GET /servers HTTP/1.1")):
        with api.connect() as sock:
            sock.sendall(raw)
    assert api.get("/servers") == {"servers": []}


def test_of_two_requests_on_a_connection_the_first_is_answered(api):
    raw = api.head("GET /servers HTTP/1.1") + api.head("GET /nothing HTTP/1.1")
    assert answered(api.exchange(raw)) == {"servers": []}


def test_bytes_after_the_body_are_ignored(api):
    body = b'{"key":"     "}'
    raw = api.head("POST /invite HTTP/1.1", f"Content-Length: {len(body)}") + body + b"}}" * 1000
    assert split_answer(api.exchange(raw))[2] == {"error": BAD_KEY}


# Limits


def test_65536_bytes_are_accepted_and_65537_are_not(api):
    assert split_answer(api.exchange(request_of(api, MOST_BYTES)))[2] == {"error": "That server is gone."}
    first, _, answer = split_answer(api.exchange(request_of(api, MOST_BYTES + 1)))
    assert (first, answer) == ("HTTP/1.1 413 Payload Too Large", {"error": "request too large"})


def test_a_client_that_keeps_sending_still_gets_its_413(api):
    for size in (MOST_BYTES + 1, 200_000, 700_000):
        for _ in range(5):
            assert status_of(api.exchange(b"x" * size)) == 413


def test_a_413_requires_no_token(api):
    assert status_of(api.exchange(b"GET /servers HTTP/1.1\r\n" + b"x" * MOST_BYTES)) == 413


# The head


def test_a_head_that_is_not_utf8_gets_no_answer(api):
    raw = api.head("GET /servers HTTP/1.1", "X-Name: \0").replace(b"\0", b"\xff")
    assert api.exchange(raw, half_close=True) == b""
    with api.connect() as sock:
        sock.sendall(raw)
        assert api.get("/servers") == {"servers": []}  # other requests are answered
        assert select.select([sock], [], [], 0.05)[0] == []
        sock.sendall(b"x" * MOST_BYTES)
        assert status_of(receive_all(sock)) == 413


@pytest.mark.parametrize("bad", [b"\xff", b"\xc0\x80", b"\xed\xa0\x80", b"\xf4\x90\x80\x80", b"\xe2\x82"])
def test_no_form_of_invalid_utf8_is_accepted_in_a_head(api, bad):
    raw = api.head("GET /servers HTTP/1.1", "X-Name: \0").replace(b"\0", bad)
    assert api.exchange(raw, half_close=True) == b""


def test_invalid_header_lines_are_skipped(api):
    raw = api.head("GET /servers HTTP/1.1", "no colon", ": no name", "X: a:b:c", "X-\u00e9: \u20ac\0")
    assert answered(api.exchange(raw)) == {"servers": []}


@pytest.mark.parametrize("line", ["", "GET", "  GET  ", "GET\t/servers"])
def test_a_request_line_of_fewer_than_two_words_gets_no_answer(api, line):
    assert api.exchange(api.head(line), half_close=True) == b""


@pytest.mark.parametrize("line", [
    "GET /servers HTTP/1.1", "get /servers HTTP/1.1", "gEt /servers", "GET   /servers   HTTP/1.1",
    "GET /servers HTTP/9.9 and more", "GET /servers/ HTTP/1.1", "GET //servers// HTTP/1.1",
    "GET servers HTTP/1.1", "GET /servers?a=b HTTP/1.1", "GET /servers/?a?b/c HTTP/1.1"])
def test_a_request_line_is_read_leniently(api, line):
    assert answered(api.exchange(api.head(line))) == {"servers": []}


@pytest.mark.parametrize("length, error", [
    ("15", BAD_KEY), (" \t 15 \t", BAD_KEY), ("+15", BAD_KEY), ("015", BAD_KEY),
    ("14", NO_KEY), ("0", NO_KEY), ("-15", NO_KEY), ("-0", NO_KEY), ("", NO_KEY), ("15x", NO_KEY),
    ("0x0f", NO_KEY), ("fifteen", NO_KEY), ("1 5", NO_KEY), ("++15", NO_KEY), ("15.0", NO_KEY),
    ("99999999999999999999", NO_KEY), ("-99999999999999999999", NO_KEY)])
def test_content_length_is_a_decimal_integer_or_nothing(api, length, error):
    raw = api.head("POST /invite HTTP/1.1", f"Content-Length:{length}") + b'{"key":"     "}'
    assert split_answer(api.exchange(raw))[2] == {"error": error}


@pytest.mark.parametrize("length", ["65536", "9223372036854775807"])
def test_a_body_shorter_than_its_content_length_gets_no_answer(api, length):
    raw = api.head("POST /invite HTTP/1.1", f"Content-Length: {length}") + b'{"key":"     "}'
    assert api.exchange(raw, half_close=True) == b""


def test_without_content_length_the_body_is_empty(api):
    raw = api.head("POST /invite HTTP/1.1") + b'{"key":"     "}'
    assert split_answer(api.exchange(raw))[2] == {"error": NO_KEY}


def test_the_last_of_repeated_headers_is_used(api):
    good, bad = f"{TOKEN_HEADER}: {api.token}", f"{TOKEN_HEADER}: none"
    line = b"GET /servers HTTP/1.1\r\n"
    assert status_of(api.exchange(line + f"{bad}\r\n{good}\r\n\r\n".encode())) == 200
    assert status_of(api.exchange(line + f"{good}\r\n{bad}\r\n\r\n".encode())) == 403
    raw = api.head("POST /invite HTTP/1.1", "Content-Length: 1", "content-length: 15") + b'{"key":"     "}'
    assert split_answer(api.exchange(raw))[2] == {"error": BAD_KEY}


# The token


@pytest.mark.parametrize("name", [
    "X-Zephyl-Onboard-Token", "x-zephyl-onboard-token", "X-ZEPHYL-ONBOARD-TOKEN", " \tx-Zephyl-onboard-Token\t "])
def test_the_name_of_the_token_header_is_not_case_sensitive(api, name):
    for value in (api.token, f" \t{api.token} \t"):
        raw = f"GET /servers HTTP/1.1\r\n{name}:{value}\r\n\r\n".encode()
        assert answered(api.exchange(raw)) == {"servers": []}


def test_a_wrong_token_is_refused_on_every_route(api):
    assert re.fullmatch("[0-9a-f]{32}", api.token) and api.token.upper() != api.token
    wrong = [api.token.upper(), api.token[:-1], api.token + "0", api.token[::-1], "", "0" * 32, f'"{api.token}"']
    for token in wrong:
        for line in ("GET /status", "POST /invite", "DELETE /servers/x", "GET /nothing", "OPTIONS *"):
            raw = f"{line} HTTP/1.1\r\n{TOKEN_HEADER}: {token}\r\n\r\n".encode()
            first, headers, answer = split_answer(api.exchange(raw))
            assert first == "HTTP/1.1 403 Forbidden"
            assert answer == {"error": "bad or missing onboarding token"}
            assert len(headers) == 3
    assert status_of(api.exchange(b"GET /status HTTP/1.1\r\n\r\n")) == 403
    assert status_of(api.exchange(f"GET /status?{TOKEN_HEADER}={api.token} HTTP/1.1\r\n\r\n".encode())) == 403


def test_the_token_is_valid_for_one_run_and_only_the_window_has_it(world, window, start_api):
    world.use_sandbox_agent()
    world.use_sandbox_tailnet()
    world.add_servers(1)
    api = start_api()
    eventually(lambda: api.server().get("boundAddress"), what="a tailnet that is up")
    api.tray.agent_pid()
    api.get("/diagnostics")
    token = api.token.encode()
    children = [pid for pid in descendants(api.tray.pid)]
    assert len(children) >= 4, "guardian, agent, daemon, client, window"
    holders = [pid for pid in children if token in read(f"/proc/{pid}/environ")]
    assert len(holders) == 1 and read(f"/proc/{holders[0]}/cmdline") == b"sleep\x001000\0"
    assert token not in read(f"/proc/{api.tray.pid}/environ")
    for pid in [api.tray.pid, *children]:
        assert token not in read(f"/proc/{pid}/cmdline")
    assert not any(api.token in line for line in api.tray.lines)
    assert token not in json.dumps(api.get("/diagnostics")).encode()
    files = [path for path in world.root.rglob("*") if path.is_file() and path != window.environment_file]
    assert len(files) > 5
    assert not [path for path in files if token in path.read_bytes()]
    assert api.tray.stop() == 0
    assert start_api().token != api.token


def read(path):
    try:
        return pathlib.Path(path).read_bytes()
    except (FileNotFoundError, ProcessLookupError, PermissionError):
        return b""


# Clients that misbehave


def test_silent_clients_delay_nobody(api):
    with contextlib.ExitStack() as open_sockets:
        for number in range(100):
            sock = open_sockets.enter_context(api.connect())
            sock.sendall([b"", b"GET /servers", api.head("POST /invite", "Content-Length: 9")][number % 3])
        times = []
        for _ in range(20):
            began = time.monotonic()
            api.get("/status")
            times.append(time.monotonic() - began)
        assert max(times) < 0.5, times


def test_a_client_that_does_not_read_delays_nobody(world, start_api):
    world.use_agent_script(IDLE)
    world.use_tailnet_script("tailscaled", IDLE)
    world.use_tailnet_script("zephyl-tailnet", "#!/bin/sh\nyes $(printf %04000d 0) | head -40\nexec sleep 1000\n")
    world.add_servers(MOST_BUFFERED_BYTES // 160_000 + 4)  # each has 40 lines of 4,000 bytes
    api = start_api()
    request = api.head("GET /diagnostics HTTP/1.1")
    eventually(lambda: len(api.exchange(request)) > MOST_BUFFERED_BYTES, what="a long answer")
    with contextlib.ExitStack() as open_sockets:
        clients = [open_sockets.enter_context(socket.socket()) for _ in range(4)]
        for sock in clients:
            sock.setsockopt(socket.SOL_SOCKET, socket.SO_RCVBUF, 1)
            sock.connect(("127.0.0.1", api.port))
            sock.sendall(request)
        for sock in clients:
            assert select.select([sock], [], [], 10)[0], "no beginning of an answer"
        began = time.monotonic()
        api.get("/status")
        assert time.monotonic() - began < 0.5
        assert unfinished_answers(api.port) == len(clients)
        assert api.tray.stop() == 0


def unfinished_answers(port):
    """Returns the number of connections with unsent data that the server has not closed yet."""
    established = "01"
    lines = [line.split() for line in pathlib.Path("/proc/net/tcp").read_text().splitlines()[1:]]
    return sum(fields[1].endswith(f":{port:04X}") and fields[3] == established
               and int(fields[4].split(":")[0], 16) > 0 for fields in lines)


def test_the_257th_connection_replaces_the_oldest_waiting_one(api):
    with contextlib.ExitStack() as open_sockets:
        open_clients = []
        for _ in range(MOST_CONNECTIONS):
            open_clients.append(open_sockets.enter_context(api.connect()))
            open_clients[-1].sendall(b"GET /servers HTTP/1.1\r\n")
        # A full server evicts the first one only for another connection.
        assert select.select([open_clients[0]], [], [], 0.05)[0] == []
        assert api.get("/servers") == {"servers": []}
        assert is_closed(open_clients[0])
        rest = f"{TOKEN_HEADER}: {api.token}\r\n\r\n".encode()
        for sock in open_clients[1:]:
            sock.sendall(rest)
            assert answered(receive_all(sock)) == {"servers": []}


def is_closed(sock):
    """Returns whether the peer closes or resets the connection without sending a byte."""
    with contextlib.suppress(ConnectionResetError):
        assert sock.recv(1) == b""
    return True


def test_a_burst_of_connections_is_answered(api):
    answers = []

    def ask():
        for _ in range(10):
            answers.append(status_of(api.exchange(api.head("GET /status HTTP/1.1"))))

    clients = [threading.Thread(target=ask) for _ in range(30)]
    for client in clients:
        client.start()
    for client in clients:
        client.join()
    assert answers == [200] * 300


def test_running_out_of_descriptors_is_survived(api):
    pid = api.tray.pid
    before = resource.prlimit(pid, resource.RLIMIT_NOFILE)
    highest = max(int(entry) for entry in os.listdir(f"/proc/{pid}/fd"))
    with contextlib.ExitStack() as open_sockets:
        resource.prlimit(pid, resource.RLIMIT_NOFILE, (highest + 1, before[1]))
        try:
            # More connections than free descriptors.
            waiting = [open_sockets.enter_context(api.connect()) for _ in range(highest + 2)]
            last = waiting[-1]
            last.sendall(api.head("GET /servers HTTP/1.1"))
            used = processor_seconds(pid)
            assert select.select([last], [], [], 0.5)[0] == []
            assert processor_seconds(pid) - used < 0.25, "it retries in a busy loop"
        finally:
            resource.prlimit(pid, resource.RLIMIT_NOFILE, before)
        assert answered(receive_all(last)) == {"servers": []}
    assert api.tray.process.poll() is None
    assert api.get("/servers") == {"servers": []}


def processor_seconds(pid):
    fields = pathlib.Path(f"/proc/{pid}/stat").read_text().rsplit(")", 1)[1].split()
    return (int(fields[11]) + int(fields[12])) / os.sysconf("SC_CLK_TCK")


def test_it_leaks_no_descriptors(api):
    api.get("/servers")
    count = lambda: len(os.listdir(f"/proc/{api.tray.pid}/fd"))
    # The number varies: a poll of the agent uses a descriptor, for example.
    before = count()
    for raw in (b"", b"x", b"x" * (MOST_BYTES + 1), api.head("GET /servers"), api.head("GET /roots")):
        for _ in range(20):
            api.exchange(raw, half_close=True)
    eventually(lambda: count() <= before + 2, what=f"no more than {before} descriptors")


# The listener


def test_it_listens_only_on_loopback(api):
    state = "0A"
    lines = [line.split() for line in pathlib.Path("/proc/net/tcp").read_text().splitlines()[1:]]
    listeners = [fields[1] for fields in lines if fields[3] == state and fields[1].endswith(f":{api.port:04X}")]
    assert listeners == [f"0100007F:{api.port:04X}"]
    lines6 = [line.split() for line in pathlib.Path("/proc/net/tcp6").read_text().splitlines()[1:]]
    assert not [fields for fields in lines6 if fields[3] == state and fields[1].endswith(f":{api.port:04X}")]


def test_a_port_in_use_is_only_logged(world, window, start_tray):
    world.use_agent_script(IDLE)
    with socket.create_server(("127.0.0.1", world.control_port)):
        tray = start_tray()
        tray.log_line("[tray] could not start the onboarding listener: ")
        tray.log_line("agent not reachable")
        assert "ZEPHYL_ONBOARD_PORT" not in window.environment(), "another program has that port"
        assert sum("onboarding listener" in line for line in tray.lines) == 1
        assert tray.stop() == 0


@pytest.mark.parametrize("port", ["65536", "70000"])
def test_an_invalid_port_ends_the_tray_in_order(world, start_tray, port):
    world.use_agent_script(IDLE)
    world.environment["ZEPHYL_ONBOARD_PORT"] = port
    tray = start_tray()
    assert tray.wait() == 1
    lines = [line for line in tray.lines if port in line]
    assert len(lines) == 1 and lines[0].startswith("[tray] ")
    eventually(lambda: not processes_in(world), 3, "the end of its children")


def processes_in(world):
    """Returns the ids of all processes with the home of a world."""
    home = f"HOME={world.home}".encode()
    return [path.parent.name for path in pathlib.Path("/proc").glob("[0-9]*/environ")
            if home in read(path).split(b"\0")]


def test_the_processes_of_a_world_are_found(world, start_api):
    """Shows that the test above can fail."""
    world.use_agent_script(IDLE)
    api = start_api()
    eventually(lambda: len(processes_in(world)) == 4, what="tray, guardian, agent and window")
    assert api.tray.stop() == 0
    eventually(lambda: not processes_in(world), 3, "the end of all processes")


def test_the_port_is_free_for_the_next_tray_at_once(world, start_api):
    world.use_agent_script(IDLE)
    for _ in range(3):
        api = start_api()
        assert api.get("/servers") == {"servers": []}
        assert api.tray.stop() == 0


def test_it_ends_in_order_with_pending_requests(world, start_api):
    world.use_agent_script(IDLE)
    api = start_api()
    stopped = threading.Event()
    unexpected = []

    def ask():
        while not stopped.is_set():
            try:
                raw = api.exchange(api.head("GET /status HTTP/1.1"))
            except OSError:
                return
            if raw and status_of(raw) not in (200, 400):
                unexpected.append(raw)

    with contextlib.ExitStack() as open_sockets:
        for _ in range(20):
            open_sockets.enter_context(api.connect()).sendall(b"GET /status")
        clients = [threading.Thread(target=ask) for _ in range(8)]
        for client in clients:
            client.start()
        began = time.monotonic()
        api.tray.send(signal.SIGTERM)
        assert api.tray.wait() == 0
        assert time.monotonic() - began < 2
        stopped.set()
        for client in clients:
            client.join(10)
            assert not client.is_alive()
    assert unexpected == []

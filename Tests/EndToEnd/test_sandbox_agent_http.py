"""The HTTP server of the sandbox's agent, with short answers and streams."""

import concurrent.futures
import http.client
import json
import time

from support.agent_fixtures import folder, start  # noqa: F401 (fixtures)
from support.agent_process import FAST
from support.agent_sockets import exchange, exchange_until
from support.tray import eventually


# Permitted clients


def status_with(port, *headers, line="GET /api/status HTTP/1.1"):
    raw = "\r\n".join([line, *headers, "Connection: close"]) + "\r\n\r\n"
    return int(exchange(port, raw.encode()).split(b" ", 2)[1])


def test_it_answers_only_under_names_of_loopback(start):
    port = start().port
    for host in (f"127.0.0.1:{port}", "127.0.0.1", f"localhost:{port}", "LocalHost", f"[::1]:{port}", "[::1]"):
        assert status_with(port, f"Host: {host}") == 200, host
    for host in (f"rebound.example:{port}", "127.0.0.1.example", "0.0.0.0", f"localhost.example:{port}", ""):
        assert status_with(port, f"Host: {host}") == 403, host


def test_pages_of_other_origins_are_refused(start):
    port = start().port
    own = f"127.0.0.1:{port}"
    assert status_with(port, f"Host: {own}", f"Origin: http://{own}") == 200
    for origin in ("http://rebound.example", f"https://{own}", "http://localhost:3000", "null", ""):
        for line in ("GET /api/status HTTP/1.1", "GET /api/events HTTP/1.1", "POST /sandbox/requests HTTP/1.1"):
            assert status_with(port, f"Host: {own}", f"Origin: {origin}", line=line) == 403, (origin, line)
    assert status_with(port, "Origin: http://127.0.0.1") == 403, "an origin without a host"


# The event stream


def test_the_stream_sends_each_change_but_at_most_ten_a_second(start, folder):
    agent = start()
    with agent.events() as stream:
        stream.wait_for(lambda a: a["model"]["phase"] == "ready")
        stream.records.clear()
        agent.share(folder)
        for _ in range(150):
            last = agent.raise_request()
        stream.wait_for(lambda a: [p["id"] for p in a["pendingApprovals"]][-1:] == [last])
        time_of = [at for at, _ in stream.records]
        assert len(time_of) <= (time_of[-1] - time_of[0]) / 0.1 + 2
        count = len(stream.records)
    assert all(a != b for a, b in zip(stream.activities, stream.activities[1:])), "each is news"
    assert count < 150


def test_a_silent_stream_is_kept_alive_by_comments(start):
    agent = start(*FAST, "--stream-keep-alive", "0.1")
    with agent.events() as stream:
        eventually(lambda: len(stream.comments) >= 3)
    raw = exchange_until(agent.port, b"GET /api/events HTTP/1.0\r\n\r\n", b"\n:\n\n")
    assert raw.startswith(b"HTTP/1.0 200 OK\r\n") and b"chunked" not in raw
    assert b"\r\n\r\ndata: {" in raw


def test_busy_can_be_forced_for_a_while(start):
    agent = start()
    with agent.events() as stream:
        stream.wait_for(lambda a: not a["busy"] and a["model"]["phase"] == "ready")
        began = time.monotonic()
        assert agent.ask("POST", "/sandbox/activity", {"busy": True, "seconds": 0.3})[0] == 200
        stream.wait_for(lambda a: a["busy"])
        stream.records.clear()
        stream.wait_for(lambda a: not a["busy"])
        assert 0.3 <= time.monotonic() - began < 2
    agent.ask("POST", "/sandbox/activity", {"busy": True})
    assert agent.activity()["busy"]
    agent.ask("POST", "/sandbox/activity", {"busy": False})
    assert not agent.activity()["busy"]
    for body in ({}, {"busy": 1}, {"busy": True, "seconds": -1}, {"busy": True, "seconds": "x"}):
        assert agent.ask("POST", "/sandbox/activity", body)[0] == 400


def test_many_clients_are_served_at_once(start, folder):
    agent = start()
    streams = [agent.events() for _ in range(60)]
    with concurrent.futures.ThreadPoolExecutor(20) as pool:
        answers = list(pool.map(agent.ask, ["GET"] * 300, ["/api/activity", "/api/status", "/api/roots"] * 100))
    assert {status for status, _ in answers} == {200}
    agent.share(folder)
    for stream in streams:
        with stream:
            stream.wait_for(lambda a: a["indexing"] and a["indexing"][0]["ready"])
    assert agent.get("/api/status")


# HTTP


def test_a_connection_serves_one_request_after_another(start):
    agent = start()
    connection = http.client.HTTPConnection("127.0.0.1", agent.port, timeout=10)
    for path, status in (("/api/status", 200), ("/none", 404), ("/api/activity?x=1", 200)):
        connection.request("GET", path)
        answer = connection.getresponse()
        assert answer.status == status and answer.getheader("Content-Type") == "application/json"
        json.loads(answer.read())
    connection.close()
    both = b"GET /api/roots HTTP/1.1\r\n\r\nGET /api/roots HTTP/1.1\r\nConnection: close\r\n\r\n"
    assert exchange(agent.port, both).count(b'{"roots":[]}') == 2


def test_invalid_requests_are_refused(start):
    agent = start()
    for method, path, status in (("GET", "/", 404), ("POST", "/api/status", 405), ("PUT", "/api/roots", 405),
                                 ("POST", "/api/events", 405), ("GET", "/sandbox/requests/", 404)):
        assert agent.ask(method, path)[0] == status, (method, path)
    large = b"POST /api/roots HTTP/1.1\r\nContent-Length: %d\r\n\r\n" % 200_000 + b"x" * 200_000
    for raw, status in ((large, 413), (b"GET / HTTP/1.1\r\nA: " + b"x" * 50_000, 431),
                        (b"nonsense\r\n\r\n", 400), (b"GET x HTTP/1.1\r\nConnection: close\r\n\r\n", 400),
                        (b"HEAD /api/status HTTP/1.1\r\nConnection: close\r\n\r\n", 405)):
        assert exchange(agent.port, raw).startswith(b"HTTP/1.1 %d " % status), raw[:40]
    assert b"\r\nAllow: GET, POST, DELETE, PATCH\r\n" in exchange(
        agent.port, b"PUT /api/roots HTTP/1.1\r\nConnection: close\r\n\r\n")
    assert agent.get("/api/status")

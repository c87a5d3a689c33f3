"""The sandbox's tailnet client and daemon behave as documented, so that tests can rely on them."""

import contextlib
import json
import os
import pathlib
import re
import signal
import socket
import stat
import time

import pytest

from support.memory import is_sanitized, private_memory
from support.tailnet import CLIENT, DAEMON, FINGERPRINT, KEY, Tailnet, echo, get, serving, socks_open
from support.tray import eventually


@pytest.fixture
def tailnet():
    tailnet = Tailnet()
    yield tailnet
    tailnet.close()


# Arguments


def test_both_print_help_and_version(tailnet):
    for program, option in ((DAEMON, "--socks5-server"), (CLIENT, "--tunnel-fallback")):
        printed = tailnet.run(program, ["--help"])
        assert printed.returncode == 0 and option in printed.stdout
        printed = tailnet.run(program, ["--version"])
        assert printed.returncode == 0 and re.fullmatch(program.name + r" \d+\.\d+\.\d+ .*\n", printed.stdout)


def test_the_client_refuses_unknown_arguments(tailnet):
    usual = list(map(str, tailnet.client_arguments()))
    attached = [f"{name}={value}" for name, value in zip(usual[::2], usual[1::2])]
    for arguments in ([*usual, "--bogus", "1"], [*usual, "stray"], usual[2:], usual[:-1], attached,
                      [*usual, "--target", ""], tailnet.client_arguments(fingerprint=""),
                      tailnet.client_arguments(tunnel="192.0.2.1:80"),
                      tailnet.client_arguments(tunnel="localhost")):
        ended = tailnet.run(CLIENT, arguments)
        assert ended.returncode == 2 and ended.stderr.startswith("zephyl-tailnet: "), arguments
    for environment in ({"ZEPHYL_TAILSCALED_SOCKET": ""},
                        {"ZEPHYL_SANDBOX_TAILNET_EXIT_AFTER": "soon"}):
        ended = tailnet.run(CLIENT, usual, **environment)
        assert ended.returncode == 2 and next(iter(environment)) in ended.stderr


def test_the_order_of_arguments_is_free(tailnet):
    tailnet.start_daemon(list(reversed(tailnet.daemon_arguments())))
    pairs = list(map(str, tailnet.client_arguments()))
    arguments = [part for at in range(len(pairs) - 2, -1, -2) for part in pairs[at:at + 2]]
    tailnet.start_client(arguments=arguments)


# Enrolment


def test_a_key_enrols_and_every_marker_is_logged(tailnet):
    tailnet.start_daemon()
    client = tailnet.start_client()
    node = tailnet.status()["node"]
    name = client.value("server name: ")
    assert re.fullmatch(r"[A-Z][a-z]+ [A-Z][a-z]+", name)
    assert re.fullmatch(r"#[0-9A-F]{6}", client.value("server accent: "))
    assert client.lines == [
        f"tailscaled is up as node {node}",
        "joined the tailnet",
        "verified control plane via relay-1.zephyl.example",
        f"data tunnel on http://127.100.0.1:{tailnet.tunnel}",
        f"server name: {name}",
        f"server accent: {client.value('server accent: ')}",
        f"found Zephyl at {name} (tailnet {FINGERPRINT})",
        f"target resolved to http://127.0.0.1:{tailnet.shim}",
    ]


def test_a_stored_enrolment_needs_no_key(tailnet):
    tailnet.start_daemon()
    first = tailnet.start_client()
    assert first.stop() == 0
    enrolment = tailnet.state / "enrolment.json"
    assert stat.S_IMODE(enrolment.stat().st_mode) == 0o600
    assert json.loads(enrolment.read_text()) == {"fingerprint": FINGERPRINT}
    second = tailnet.start_client(key=None,
                                  arguments=tailnet.client_arguments(FINGERPRINT.upper()))
    assert second.lines == first.lines[:-2], "all but how the first ended"
    assert "joined the tailnet" in second.lines


def test_an_enrolment_in_another_tailnet_is_ignored(tailnet):
    tailnet.start_daemon()
    tailnet.start_client().stop()
    other = tailnet.client_arguments("f" * 32)
    client = tailnet.launch_client(key=None, arguments=other)
    assert client.wait() == 1 and client.lines[-1].startswith("ENROLMENT FAILED: ")
    renamed = tailnet.start_client(arguments=other)
    assert renamed.value("server name: ") != tailnet.children[1].value("server name: ")


@pytest.mark.parametrize("key, reason", [
    (None, "no invite key has been redeemed on this machine"),
    ("", "no invite key has been redeemed on this machine"),
    ("hskey-auth-expired-1", "key expired"),
    ("hskey-auth-used-1", "key already used"),
])
def test_a_failed_enrolment_has_a_reason_and_is_not_stored(tailnet, key, reason):
    tailnet.start_daemon()
    client = tailnet.launch_client(key=key)
    assert client.wait() == 1
    assert client.lines[-1] == f"ENROLMENT FAILED: {reason}"
    assert not any("joined the tailnet" in line for line in client.lines)
    assert not (tailnet.state / "enrolment.json").exists()


def test_a_used_key_is_removed_from_environment_and_memory(tailnet):
    tailnet.start_daemon()
    client = tailnet.start_client()
    assert KEY.encode() not in pathlib.Path(f"/proc/{client.pid}/environ").read_bytes()
    memory = list(private_memory(client.pid))
    assert any(FINGERPRINT.encode() in piece for piece in memory), "the search does not find existing text"
    mentions = [piece for piece in memory if KEY.encode() in piece]
    assert not mentions or is_sanitized(client.pid), "the key is still in memory"


@pytest.mark.parametrize("key, status", [(KEY, 0), ("hskey-auth-expired-and-secret", 1)])
def test_no_key_is_written_to_a_file_or_log(tailnet, key, status):
    daemon = tailnet.start_daemon()
    client = tailnet.launch_client(key=key)
    client.log_line("target resolved to " if status == 0 else "ENROLMENT FAILED: ")
    if status == 0:
        client.process.terminate()
    assert (client.wait(), daemon.stop()) == (status, 0)
    files = [file for file in tailnet.root.rglob("*") if file.is_file()]
    assert files
    for text in [*client.lines, *daemon.lines, *(file.read_text() for file in files)]:
        assert key not in text and key.removeprefix("hskey-auth-") not in text


# Reaching the daemon


def handles_term(pid):
    """Returns whether a process has installed its handler of SIGTERM."""
    status = pathlib.Path(f"/proc/{pid}/status").read_text()
    caught = int(re.search(r"^SigCgt:\s*([0-9a-f]+)$", status, re.MULTILINE).group(1), 16)
    return caught >> (signal.SIGTERM - 1) & 1


def test_the_client_waits_for_a_late_daemon(tailnet):
    client = tailnet.launch_client()
    eventually(lambda: handles_term(client.pid), what="a working client")
    tailnet.start_daemon()
    client.log_line("data tunnel on ")


def test_the_client_fails_if_no_daemon_answers(tailnet):
    began = time.monotonic()
    client = tailnet.launch_client()
    assert client.wait() == 1
    assert 2.5 < time.monotonic() - began < 10
    assert "tailscaled does not answer" in client.lines[-1]
    assert not any("ENROLMENT FAILED" in line for line in client.lines)


def test_the_client_recognizes_a_proxy(tailnet):
    tailnet.start_daemon()
    with serving(lambda connection: connection.sendall(b"220 mail")) as port:
        arguments = tailnet.client_arguments()
        arguments[arguments.index("--socks5") + 1] = f"127.0.0.1:{port}"
        client = tailnet.launch_client(arguments=arguments)
        assert client.wait() == 1 and f"127.0.0.1:{port}" in client.lines[-1]


def test_a_file_breaks_the_tailnet_until_it_is_removed(tailnet):
    tailnet.start_daemon()
    (tailnet.state / "fail").touch()
    client = tailnet.launch_client()
    assert client.wait() == 1 and client.lines == ["relay unreachable"]
    (tailnet.state / "fail").unlink()
    tailnet.start_client()


# Tunnel, shim and target


def test_the_tunnel_serves_a_page_about_the_server(tailnet):
    tailnet.start_daemon()
    client = tailnet.start_client("--target", "http://<srv>:5173/?a=1&b='2'")
    host, port = client.value("data tunnel on http://").split(":")
    status, headers, page = get(host, int(port))
    assert status == 200 and headers["Content-Type"] == "text/html; charset=utf-8"
    assert page.startswith("<!DOCTYPE html>") and page.rstrip().endswith("</html>")
    assert f"<title>{client.value('server name: ')}</title>" in page
    for fact in (FINGERPRINT, client.value("server accent: "), "http://&lt;srv&gt;:5173/?a=1&amp;b="):
        assert fact in page
    assert not re.search(r"(src|href)=|url\(|@import", page), "the page needs something else"
    assert get(host, int(port), method="HEAD")[2] == ""
    assert get(host, int(port), "/favicon.ico")[0] == 404
    assert get(host, int(port), method="POST")[0] == 405


def test_the_shim_answers_directly_and_through_the_proxy(tailnet):
    tailnet.start_daemon()
    tailnet.start_client()
    for path in ("/", "/agent?x=1"):
        status, _, body = get("127.0.0.1", tailnet.shim, path)
        assert (status, body) == (200, "agent shim")
    sock, reply = socks_open(tailnet.socks, "127.0.0.1", tailnet.shim)
    with sock, sock.makefile("rb") as answer:
        assert reply == 0
        sock.sendall(b"GET /agent HTTP/1.0\r\n\r\n")
        assert answer.read().endswith(b"\r\n\r\nagent shim")


def test_the_shim_survives_invalid_requests_and_many_clients(tailnet):
    tailnet.start_daemon()
    tailnet.start_client()
    for raw, expected in ((b"\x16\x03\x01\x02\x00", b"HTTP/1.1 400"), (b"GET\r\n\r\n", b"HTTP/1.1 400"),
                          (b"GET / HTTP/1.1\r\nx: " + b"y" * 20_000, b"HTTP/1.1 400"),
                          (b"GET / HTTP/1.1\r\n", b""), (b"", b"")):
        with socket.create_connection(("127.0.0.1", tailnet.shim), timeout=10) as sock:
            sock.sendall(raw)
            sock.shutdown(socket.SHUT_WR)
            assert sock.recv(12) == expected, raw
    with contextlib.ExitStack() as idle:
        for _ in range(100):
            idle.enter_context(socket.create_connection(("127.0.0.1", tailnet.shim), timeout=10))
        assert get("127.0.0.1", tailnet.shim)[0] == 200


def test_a_tunnel_address_in_use_leads_to_the_fallback(tailnet):
    tailnet.start_daemon()
    with serving(echo, "127.100.0.9") as port:
        client = tailnet.start_client(
            arguments=tailnet.client_arguments(tunnel=f"127.100.0.9:{port}"))
    assert client.value("data tunnel on ") == f"http://127.0.0.1:{tailnet.fallback}"
    assert get("127.0.0.1", tailnet.fallback)[0] == 200


def test_port_80_is_used_if_the_system_allows_it(tailnet):
    tailnet.start_daemon()
    alias = f"127.100.{os.getpid() % 250}.77"
    with socket.socket() as probe:
        probe.setsockopt(socket.SOL_SOCKET, socket.SO_REUSEADDR, 1)
        try:
            probe.bind((alias, 80))
            expected = f"{alias}:80"
        except OSError:
            expected = f"127.0.0.1:{tailnet.fallback}"
    client = tailnet.start_client(arguments=tailnet.client_arguments(tunnel=f"{alias}:80"))
    assert client.value("data tunnel on ") == f"http://{expected}"
    host, port = expected.split(":")
    assert get(host, int(port))[0] == 200


def test_ports_in_use_are_reported(tailnet):
    tailnet.start_daemon()
    with serving(echo) as taken:
        tailnet.fallback = taken
        client = tailnet.launch_client(
            arguments=tailnet.client_arguments(tunnel=f"127.0.0.1:{taken}"))
        assert client.wait() == 1 and f"127.0.0.1:{taken}" in client.lines[-1]
        tailnet.shim = taken
        client = tailnet.launch_client()
        assert client.wait() == 1 and f"127.0.0.1:{taken}" in client.lines[-1]
    assert not any("data tunnel on " in line for line in client.lines)


@pytest.mark.parametrize("target", ["https://zephyl.example:8443/", "http://10.0.0.5:5173", "srv",
                                    "http://srv/unresolved.invalid", "http://a.invalid@srv:80"])
def test_a_target_that_resolves_is_logged_unchanged(tailnet, target):
    tailnet.start_daemon()
    assert tailnet.start_client("--target", target).lines[-1] == f"target resolved to {target}"


@pytest.mark.parametrize("target", ["http://srv.invalid", "HTTPS://Srv.Invalid:8443/x", "srv.invalid:80",
                                    "http://unresolved-host:5173"])
def test_a_target_that_does_not_resolve_is_logged_and_the_tunnel_stays(tailnet, target):
    tailnet.start_daemon()
    client = tailnet.start_client("--target", target)
    assert client.lines[-1] == f"TARGET UNRESOLVED: {target}"
    assert "not resolved yet" in get("127.100.0.1", tailnet.tunnel)[2]


def test_a_target_resolves_once_a_file_exists(tailnet):
    tailnet.start_daemon()
    client = tailnet.start_client("--target", "http://srv.invalid")
    (tailnet.state / "resolve").touch()
    client.log_line("target resolved to http://srv.invalid")
    assert sum("srv.invalid" in line for line in client.lines) == 2, "it did not retry quietly"
    assert "not resolved yet" not in get("127.100.0.1", tailnet.tunnel)[2]


def test_a_target_cannot_forge_a_line(tailnet):
    tailnet.start_daemon()
    client = tailnet.start_client("--target", "http://srv\nserver name: Mallory")
    assert sum(line.startswith("server name: ") for line in client.lines) == 1


# Ending


@pytest.mark.parametrize("number", [signal.SIGTERM, signal.SIGINT])
def test_a_signal_ends_both_in_order_and_removes_the_socket(tailnet, number):
    daemon = tailnet.start_daemon()
    client = tailnet.start_client()
    with serving(echo) as port:
        sock, _ = socks_open(tailnet.socks, "127.0.0.1", port)
        with sock:
            assert client.stop(number) == 0
            assert daemon.stop(number) == 0
            assert sock.recv(1) == b"", "a connection that was open ends with the proxy"
    assert daemon.lines[-1] == client.lines[-1] == "stopped"
    assert not tailnet.control.exists()


def test_a_waiting_client_ends_in_order(tailnet):
    client = tailnet.launch_client()
    eventually(lambda: handles_term(client.pid), what="a working client")
    assert client.stop() == 0
    assert client.lines == ["stopping (SIGTERM)", "stopped"]


def test_both_ignore_sigterm_on_request(tailnet):
    stubborn = {"ZEPHYL_SANDBOX_TAILNET_IGNORE_TERM": "1"}
    for child in (tailnet.start_daemon(**stubborn), tailnet.start_client(**stubborn)):
        child.process.send_signal(signal.SIGTERM)
        child.log_line("SIGTERM ignored")
        assert child.process.poll() is None
    assert tailnet.status()["running"] and get("127.0.0.1", tailnet.shim)[0] == 200
    assert tailnet.children[0].stop(signal.SIGINT) == 0


def test_only_the_client_ends_by_itself_on_request(tailnet):
    limited = {"ZEPHYL_SANDBOX_TAILNET_EXIT_AFTER": "0.3"}
    tailnet.start_daemon(**limited)
    client = tailnet.start_client(**limited)
    assert client.wait() == 1 and "as requested" in client.lines[-1]
    assert tailnet.status()["running"]


def test_both_survive_a_closed_standard_output(tailnet):
    daemon, client = tailnet.start_daemon(), tailnet.start_client()
    for child in (daemon, client):
        with open(os.devnull, "rb") as nothing:
            os.dup2(nothing.fileno(), child.process.stdout.fileno())
    for last in range(1, 4):  # each logs a line without a reader
        socks_open(tailnet.socks, f"192.0.2.{last}", 80)[0].close()
    assert tailnet.status()["running"] and get("127.0.0.1", tailnet.shim)[0] == 200
    assert (daemon.stop(), client.stop()) == (0, 0)

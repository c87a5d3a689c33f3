"""The sandbox's tailnet daemon behaves as documented, so that tests can rely on it."""

import contextlib
import hashlib
import json
import os
import pathlib
import socket
import stat
import struct
import threading

import pytest

from support.tailnet import DAEMON, Tailnet, echo, receive_exactly, serving, socks_open
from support.tray import eventually, free_port


@pytest.fixture
def tailnet():
    tailnet = Tailnet()
    yield tailnet
    tailnet.close()


def test_the_daemon_refuses_unknown_arguments(tailnet):
    usual = tailnet.daemon_arguments()
    for arguments in ([*usual, "--verbose"], [*usual, "stray"], [*usual, "--port=0"], usual[1:],
                      usual[:-1], tailnet.daemon_arguments(tun="tun0"),
                      tailnet.daemon_arguments(port="41641"), tailnet.daemon_arguments(statedir=""),
                      tailnet.daemon_arguments(socks5_server="127.0.0.1"),
                      tailnet.daemon_arguments(socks5_server="127.0.0.1:70000"),
                      tailnet.daemon_arguments(socks5_server="0.0.0.0:1055"),
                      [part for argument in usual for part in argument.split("=")]):
        ended = tailnet.run(DAEMON, arguments)
        assert ended.returncode == 2 and ended.stderr.startswith("tailscaled: "), arguments
    assert not tailnet.state.exists() and not tailnet.control.exists()


# The daemon's control socket and state


def test_the_daemon_is_the_same_node_after_a_restart_and_keeps_its_files_private(tailnet):
    daemon = tailnet.start_daemon()
    first = tailnet.status()
    assert first["running"] is True and len(first["node"]) == 36
    assert stat.S_IMODE(tailnet.control.stat().st_mode) == 0o600
    assert stat.S_IMODE(tailnet.state.stat().st_mode) == 0o700
    for file in tailnet.state.iterdir():
        assert stat.S_IMODE(file.stat().st_mode) == 0o600
    assert daemon.stop() == 0
    tailnet.start_daemon()
    assert tailnet.status() == first


def test_an_unparsable_state_is_renamed(tailnet):
    tailnet.state.mkdir()
    (tailnet.state / "node.json").write_text("{half")
    tailnet.start_daemon().log_line("renamed to")
    assert (tailnet.state / "node.json.unreadable").read_text() == "{half"
    assert json.loads((tailnet.state / "node.json").read_text())["node"] == tailnet.status()["node"]


def test_the_control_socket_answers_every_line_and_survives_invalid_ones(tailnet):
    tailnet.start_daemon()
    for nonsense in (b"\n", b"status\n", b"[]\n", b'{"op":1}\n', b'{"op":"halt"}\n', b"\xff\x00\n",
                     b"[" * 3000 + b"\n"):
        assert "error" in json.loads(tailnet.ask_control(nonsense)), nonsense
    with contextlib.suppress(ConnectionError):
        assert tailnet.ask_control(b"x" * 100_000) == b"", "a line without end"
    with socket.socket(socket.AF_UNIX) as sock, sock.makefile("rb") as answers:
        sock.connect(str(tailnet.control))
        sock.sendall(b'{"op":"status"}\n{"op":"what"}\n{"op":"st')
        sock.sendall(b'atus"}\n')
        kinds = [sorted(json.loads(answers.readline())) for _ in range(3)]
    assert kinds == [["node", "running"], ["error"], ["node", "running"]]


def test_a_socket_path_that_is_too_long_is_reported_by_both(tailnet):
    path = tailnet.root / ("x" * 100)
    ended = tailnet.run(DAEMON, tailnet.daemon_arguments(socket=path))
    assert ended.returncode == 1
    assert f"{len(str(path))} bytes" in ended.stderr and str(path) in ended.stderr
    client = tailnet.launch_client(ZEPHYL_TAILSCALED_SOCKET=str(path))
    assert client.wait() == 1 and f"{len(str(path))} bytes" in client.lines[-1]


def test_the_longest_possible_socket_path_works(tailnet):
    tailnet.control = pathlib.Path(str(tailnet.root / "x").ljust(107, "x"))
    tailnet.start_daemon()
    tailnet.start_client()


def test_only_a_stale_socket_is_replaced(tailnet):
    with socket.socket(socket.AF_UNIX) as stale:
        stale.bind(str(tailnet.control))
    daemon = tailnet.start_daemon()
    assert tailnet.status()["running"]

    port = free_port()
    second = tailnet.daemon_arguments(socks5_server=f"127.0.0.1:{port}")
    ended = tailnet.run(DAEMON, second)
    assert ended.returncode == 1 and "another program" in ended.stderr
    assert tailnet.status()["running"], "the socket of the first was taken away"
    assert daemon.stop() == 0

    tailnet.control.write_text("precious")
    ended = tailnet.run(DAEMON, second)
    assert ended.returncode == 1 and "no socket" in ended.stderr
    assert tailnet.control.read_text() == "precious"


def test_a_daemon_that_ends_keeps_the_socket_of_its_successor(tailnet):
    first = tailnet.start_daemon()
    tailnet.control.unlink()
    tailnet.socks = free_port()
    tailnet.start_daemon()
    assert first.stop() == 0
    assert tailnet.status()["running"]


def test_a_socks_port_in_use_is_reported(tailnet):
    with serving(echo) as port:
        ended = tailnet.run(DAEMON, tailnet.daemon_arguments(socks5_server=f"127.0.0.1:{port}"))
    assert ended.returncode == 1 and f"127.0.0.1:{port}" in ended.stderr
    assert not tailnet.control.exists()


# The SOCKS proxy


@pytest.mark.parametrize("host", ["127.0.0.1", "127.100.3.7", "::1", "::ffff:127.0.0.1",
                                  "localhost", "App.LocalHost"])
def test_the_proxy_reaches_this_machine_by_any_of_its_names(tailnet, host):
    tailnet.start_daemon()
    own = {"::1": "::1", "127.100.3.7": host}.get(host, "127.0.0.1")
    with serving(echo, own) as port:
        sock, reply = socks_open(tailnet.socks, host, port)
        with sock:
            assert reply == 0
            sock.sendall(b"hello")
            assert receive_exactly(sock, 5) == b"hello"


def test_localhost_is_reached_if_only_its_ipv6_address_listens(tailnet):
    tailnet.start_daemon()
    with serving(echo, "::1") as port:
        sock, reply = socks_open(tailnet.socks, "localhost", port)
        sock.close()
        assert reply == 0


@pytest.mark.parametrize("host", ["192.0.2.1", "0.0.0.0", "10.0.0.1", "2001:db8::1", "::",
                                  "::ffff:192.0.2.1", "example.org", "localhost.example.org", "x\n\x1b"])
def test_the_proxy_reaches_nothing_else(tailnet, host):
    daemon = tailnet.start_daemon()
    sock, reply = socks_open(tailnet.socks, host, 80)
    with sock:
        assert reply == 2
        assert sock.recv(1) == b""
    assert daemon.log_line("refused a connection to ").isprintable()


def test_the_proxy_reports_why_it_does_not_connect(tailnet):
    daemon = tailnet.start_daemon()
    for host, port, command, expected in (("127.0.0.1", free_port(), 1, 5), ("127.0.0.1", 80, 2, 7),
                                          ("127.0.0.1", 80, 3, 7)):
        sock, reply = socks_open(tailnet.socks, host, port, command)
        sock.close()
        assert reply == expected
    with socket.create_connection(("127.0.0.1", tailnet.socks), timeout=10) as sock:
        sock.sendall(b"\x05\x01\x00\x05\x01\x00\x07")
        assert receive_exactly(sock, 4) == b"\x05\x00\x05\x08"
    with socket.create_connection(("127.0.0.1", tailnet.socks), timeout=10) as sock:
        sock.sendall(b"\x05\x01\x02")
        assert receive_exactly(sock, 2) == b"\x05\xff" and sock.recv(1) == b""
    assert not any("refused" in line for line in daemon.lines)


def test_the_proxy_disconnects_clients_of_other_protocols(tailnet):
    tailnet.start_daemon()
    for raw, expected in ((b"GET / HTTP/1.1\r\n\r\n", b""), (b"\x04\x01\x00\x50", b""),
                          (b"\x05\x01\x00\x04\x01\x00\x01", b"\x05\x00")):
        with socket.create_connection(("127.0.0.1", tailnet.socks), timeout=10) as sock:
            sock.sendall(raw)
            with sock.makefile("rb") as answer:
                assert answer.read() == expected
    assert tailnet.status()["running"]


def test_a_client_that_ends_its_own_direction_still_gets_the_answer(tailnet):
    tailnet.start_daemon()

    def answer_after_the_end(connection):
        received = b""
        while piece := connection.recv(65536):
            received += piece
        connection.sendall(hashlib.sha256(received).digest())

    sent = os.urandom(3_000_000)
    with serving(answer_after_the_end) as port:
        sock, reply = socks_open(tailnet.socks, "127.0.0.1", port)
        with sock:
            assert reply == 0
            sock.sendall(sent)
            sock.shutdown(socket.SHUT_WR)
            assert receive_exactly(sock, 32) == hashlib.sha256(sent).digest()
            assert sock.recv(1) == b""


def test_a_server_that_ends_its_own_direction_is_still_sent_to(tailnet):
    tailnet.start_daemon()
    received = []

    def end_first(connection):
        connection.sendall(b"bye")
        connection.shutdown(socket.SHUT_WR)
        received.append(receive_exactly(connection, 5))

    with serving(end_first) as port:
        sock, _ = socks_open(tailnet.socks, "127.0.0.1", port)
        with sock:
            assert receive_exactly(sock, 3) == b"bye" and sock.recv(1) == b""
            sock.sendall(b"later")
            eventually(lambda: received == [b"later"], what="the bytes after the server's end")


def test_a_client_that_resets_ends_its_server_connection(tailnet):
    tailnet.start_daemon()
    ended = threading.Event()

    def wait_for_the_end(connection):
        try:
            while connection.recv(65536):
                pass
        finally:
            ended.set()

    with serving(wait_for_the_end) as port:
        sock, _ = socks_open(tailnet.socks, "127.0.0.1", port)
        sock.setsockopt(socket.SOL_SOCKET, socket.SO_LINGER, struct.pack("ii", 1, 0))
        sock.close()
        assert ended.wait(10)


def test_a_slow_reader_blocks_the_writer_and_uses_bounded_memory(tailnet):
    daemon = tailnet.start_daemon()
    go_on = threading.Event()
    try:
        with serving(lambda connection: go_on.wait(20)) as port:
            sock, _ = socks_open(tailnet.socks, "127.0.0.1", port)
            with sock:
                before = daemon.resident_bytes()
                sock.settimeout(0.3)
                taken = 0
                with pytest.raises(TimeoutError):
                    while taken < 200_000_000:
                        taken += sock.send(b"x" * 1_000_000)
                assert daemon.resident_bytes() - before < 8_000_000
            go_on.set()
    finally:
        go_on.set()


def test_the_proxy_serves_many_clients_and_closes_those_beyond_its_limit(tailnet):
    tailnet.start_daemon()
    with serving(echo) as port, contextlib.ExitStack() as open_sockets:
        clients = [open_sockets.enter_context(socks_open(tailnet.socks, "127.0.0.1", port)[0])
                   for _ in range(256)]
        for number, client in enumerate(clients):
            client.sendall(number.to_bytes(2, "big") * 500)
        for number, client in enumerate(clients):
            assert receive_exactly(client, 1000) == number.to_bytes(2, "big") * 500
        with pytest.raises((AssertionError, ConnectionError)):
            socks_open(tailnet.socks, "127.0.0.1", port)
        clients[0].close()

        def opens_again():
            with contextlib.suppress(AssertionError, ConnectionError):
                socks_open(tailnet.socks, "127.0.0.1", port)[0].close()
                return True
        eventually(opens_again, what="a free place after one client has gone")

"""Sockets for tests that compare bytes."""

import socket


def listener(port=0):
    sock = socket.socket()
    sock.setsockopt(socket.SOL_SOCKET, socket.SO_REUSEADDR, 1)
    sock.bind(("127.0.0.1", port))
    sock.listen()
    return sock


def exchange(port, raw):
    """Sends bytes and returns everything received until the agent closes."""
    with socket.create_connection(("127.0.0.1", port), timeout=10) as sock:
        sock.sendall(raw)
        answer = b""
        while piece := sock.recv(65536):
            answer += piece
        return answer


def exchange_until(port, raw, until):
    """Sends bytes and returns everything received up to and including a text."""
    with socket.create_connection(("127.0.0.1", port), timeout=10) as sock:
        sock.sendall(raw)
        answer = b""
        while until not in answer:
            piece = sock.recv(65536)
            assert piece, answer
            answer += piece
        return answer

"""Runs the sandbox's tailnet programs in private directories on free ports, and talks to them."""

import contextlib
import http.client
import ipaddress
import json
import os
import pathlib
import shutil
import signal
import socket
import subprocess
import tempfile
import threading

from support.tray import eventually, free_port

REPOSITORY = pathlib.Path(__file__).resolve().parents[3]
PROGRAMS = pathlib.Path(os.environ.get("ZEPHYL_SANDBOX_DIR", REPOSITORY / "build" / "sandbox"))
DAEMON = PROGRAMS / "tailscaled"
CLIENT = PROGRAMS / "zephyl-tailnet"

FINGERPRINT = "0123456789abcdef0123456789abcdef"
KEY = "hskey-auth-kq7v-good-and-secret"


class Child:
    """One run of a program, with the lines of both its outputs."""

    def __init__(self, program, arguments, environment):
        self.lines = []
        self.process = subprocess.Popen(
            [program, *map(str, arguments)], env=environment, stdin=subprocess.DEVNULL,
            stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True, errors="surrogateescape")
        self.pid = self.process.pid
        self._reader = threading.Thread(target=self._read)
        self._reader.start()

    def _read(self):
        for line in self.process.stdout:
            self.lines.append(line.rstrip("\n"))

    def log_line(self, text):
        """Waits for a log line that contains text."""
        def find():
            ended = self.process.poll() is not None and not self._reader.is_alive()
            found = next((line for line in self.lines if text in line), None)
            assert found or not ended, f"no line with {text!r} in {self.lines}"
            return found
        return eventually(find, what=f"a line with {text!r}")

    def value(self, marker):
        """Waits for a marker and returns its value, like the tray."""
        return self.log_line(marker).split(marker, 1)[1].strip(" \t")

    def stop(self, number=signal.SIGTERM):
        self.process.send_signal(number)
        return self.wait()

    def wait(self):
        status = self.process.wait(15)
        self._reader.join(10)
        return status

    def resident_bytes(self):
        pages = int(pathlib.Path(f"/proc/{self.pid}/statm").read_text().split()[1])
        return pages * os.sysconf("SC_PAGE_SIZE")

    def close(self):
        """Kills the program if it still runs."""
        self.process.kill()
        self.process.wait()
        self._reader.join(10)
        self.process.stdout.close()


class Tailnet:
    """The directories, ports and programs of one tailnet."""

    def __init__(self):
        # Short, because the path of a local socket may have 107 bytes at most.
        self.root = pathlib.Path(tempfile.mkdtemp(prefix="zn-", dir="/tmp"))
        self.state = self.root / "state"
        self.control = self.root / "run" / "c.sock"
        self.control.parent.mkdir(mode=0o700)
        self.socks, self.shim, self.tunnel, self.fallback = (free_port() for _ in range(4))
        self.children = []

    def daemon_arguments(self, **changes):
        values = {"tun": "userspace-networking", "port": "0",
                  "socks5-server": f"127.0.0.1:{self.socks}", "statedir": self.state,
                  "socket": self.control} | {name.replace("_", "-"): value
                                             for name, value in changes.items()}
        return [f"--{name}={value}" for name, value in values.items()]

    def client_arguments(self, fingerprint=FINGERPRINT, tunnel=None):
        return ["--fingerprint", fingerprint, "--socks5", f"127.0.0.1:{self.socks}",
                "--state-dir", self.state, "--shim-listen", f"127.0.0.1:{self.shim}",
                "--tunnel-listen", tunnel or f"127.100.0.1:{self.tunnel}",
                "--tunnel-fallback", f"127.0.0.1:{self.fallback}"]

    def environment(self, **more):
        own = {"PATH": os.environ["PATH"], "ZEPHYL_TAILSCALED_SOCKET": str(self.control)}
        return own | {name: value for name, value in os.environ.items() if "SAN_OPTIONS" in name} | more

    def launch(self, program, arguments, **environment):
        self.children.append(Child(program, arguments, self.environment(**environment)))
        return self.children[-1]

    def start_daemon(self, arguments=None, **environment):
        """Starts a daemon and waits until it is ready."""
        daemon = self.launch(DAEMON, arguments or self.daemon_arguments(), **environment)
        daemon.log_line("control socket at ")
        return daemon

    def launch_client(self, *more, key=KEY, arguments=None, **environment):
        if key is not None:
            environment["ZEPHYL_PREAUTH_KEY"] = key
        return self.launch(CLIENT, [*(arguments or self.client_arguments()), *more], **environment)

    def start_client(self, *more, **options):
        """Starts a client and waits for its last line, which is about the target."""
        client = self.launch_client(*more, **options)
        eventually(lambda: any("target resolved to " in line or "TARGET UNRESOLVED: " in line
                               for line in client.lines) or client.process.poll() is not None,
                   what="the client's last line")
        assert client.process.poll() is None, client.lines
        return client

    def run(self, program, arguments, **environment):
        """Runs a program and waits for its end."""
        return subprocess.run([program, *map(str, arguments)], env=self.environment(**environment),
                              text=True, timeout=15, stdin=subprocess.DEVNULL, capture_output=True,
                              check=False)

    def status(self):
        return json.loads(self.ask_control(b'{"op":"status"}\n'))

    def ask_control(self, raw):
        """Sends bytes to the control socket and returns the first line of the answer."""
        with socket.socket(socket.AF_UNIX) as sock:
            sock.settimeout(10)
            sock.connect(str(self.control))
            sock.sendall(raw)
            with sock.makefile("rb") as answers:
                return answers.readline()

    def close(self):
        for child in self.children:
            child.close()
        shutil.rmtree(self.root, ignore_errors=True)


def get(host, port, path="/", method="GET"):
    """Returns status, headers and body."""
    connection = http.client.HTTPConnection(host, port, timeout=10)
    try:
        connection.request(method, path)
        answer = connection.getresponse()
        return answer.status, answer.headers, answer.read().decode()
    finally:
        connection.close()


def receive_exactly(sock, size):
    received = b""
    while len(received) < size:
        piece = sock.recv(size - len(received))
        assert piece, f"the end after {received!r}"
        received += piece
    return received


def socks_address(host):
    try:
        address = ipaddress.ip_address(host)
    except ValueError:
        return b"\x03" + bytes([len(host)]) + host.encode()
    return (b"\x01" if address.version == 4 else b"\x04") + address.packed


def socks_open(proxy, host, port, command=1):
    """Connects through SOCKS 5; returns the socket and the reply's code."""
    sock = socket.create_connection(("127.0.0.1", proxy), timeout=10)
    try:
        sock.sendall(b"\x05\x02\x02\x00")
        assert receive_exactly(sock, 2) == b"\x05\x00"
        sock.sendall(bytes([5, command, 0]) + socks_address(host) + port.to_bytes(2, "big"))
        version, reply, reserved, kind = receive_exactly(sock, 4)
        assert (version, reserved) == (5, 0)
        receive_exactly(sock, {1: 4, 4: 16}[kind] + 2)
    except BaseException:
        sock.close()
        raise
    return sock, reply


@contextlib.contextmanager
def serving(handle, host="127.0.0.1"):
    """Runs a server on a free port that calls handle(connection) for each client; yields the port."""
    listener = socket.create_server((host, 0), backlog=512,
                                    family=socket.AF_INET6 if ":" in host else socket.AF_INET)
    connections = []

    def accept():
        with contextlib.suppress(OSError):
            while True:
                connection, _ = listener.accept()
                connections.append(connection)
                threading.Thread(target=serve, args=(connection,), daemon=True).start()

    def serve(connection):
        with contextlib.suppress(OSError), connection:
            handle(connection)

    acceptor = threading.Thread(target=accept)
    acceptor.start()
    try:
        yield listener.getsockname()[1]
    finally:
        listener.shutdown(socket.SHUT_RDWR)
        acceptor.join()
        listener.close()
        for connection in connections:
            with contextlib.suppress(OSError):
                connection.shutdown(socket.SHUT_RDWR)


def echo(connection):
    while piece := connection.recv(65536):
        connection.sendall(piece)

"""Runs the real tray in a private world with its own directories and free ports."""

import atexit
import functools
import json
import os
import pathlib
import shutil
import signal
import socket
import subprocess
import tempfile
import threading
import time

import pytest

REPOSITORY = pathlib.Path(__file__).resolve().parents[3]
BUILD = pathlib.Path(os.environ.get("ZEPHYL_BUILD_DIR", REPOSITORY / "build"))
SANDBOX = BUILD / "sandbox"
SLOWNESS = float(os.environ.get("ZEPHYL_SLOWNESS", 1))  # of programs with sanitizers
SANITIZERS = {name: value for name, value in os.environ.items() if name.endswith("SAN_OPTIONS")}


def without_sanitizers(reason):
    """Leaves out a test of what a program with sanitizers cannot do."""
    return pytest.mark.skipif(bool(SANITIZERS), reason=reason)


def free_port():
    with socket.socket() as probe:
        probe.bind(("127.0.0.1", 0))
        return probe.getsockname()[1]


def eventually(condition, limit=10.0, what="the condition"):
    """Waits until condition() is true, and returns its value."""
    deadline = time.monotonic() + limit * SLOWNESS
    while not (value := condition()):
        assert time.monotonic() < deadline, f"{what} did not come true within {limit} s"
        time.sleep(0.005)
    return value


def is_alive(pid):
    """Returns whether a process exists and is not a zombie."""
    try:
        state = pathlib.Path(f"/proc/{pid}/stat").read_text().rsplit(")", 1)[1].split()[0]
    except (FileNotFoundError, ProcessLookupError):
        return False
    return state not in "ZX"


def descendants(pid):
    """Returns the ids of all descendants of a process."""
    found = []
    try:
        tasks = list(pathlib.Path(f"/proc/{pid}/task").iterdir())
    except FileNotFoundError:
        return found
    for task in tasks:
        try:
            children = (task / "children").read_text().split()
        except (FileNotFoundError, ProcessLookupError):
            continue
        for child in map(int, children):
            found += [child] + descendants(child)
    return found


def command_name(pid):
    try:
        return pathlib.Path(f"/proc/{pid}/comm").read_text().strip()
    except (FileNotFoundError, ProcessLookupError):
        return ""


def processes_of(prefix):
    """Returns the ids of the running programs of an installation, including its updater."""
    pids = [int(entry.name) for entry in pathlib.Path("/proc").iterdir() if entry.name.isdigit()]
    places = (f"{prefix}/", f"{prefix.parent}/.{prefix.name}.updates/")
    return [pid for pid in pids if command_line(pid).startswith(places) and is_alive(pid)]


def command_line(pid):
    """Returns the command line as one text, empty if the process has ended."""
    try:
        return pathlib.Path(f"/proc/{pid}/cmdline").read_bytes().replace(b"\0", b" ").decode()
    except (FileNotFoundError, ProcessLookupError):
        return ""


@functools.cache
def installed(component):
    """Installs a component of the build, once for all worlds, and returns the prefix."""
    prefix = pathlib.Path(tempfile.mkdtemp(prefix="zi-", dir="/tmp"))
    prefix.chmod(0o755)  # for tests that run a program as another user
    atexit.register(shutil.rmtree, prefix, ignore_errors=True)
    subprocess.run(["cmake", "--install", BUILD, "--prefix", prefix, "--component", component],
                   check=True, stdout=subprocess.DEVNULL)
    return prefix


class World:
    """A home, a staged installation and ports for one tray."""

    def __init__(self):
        # Short, because the path of a local socket may have 107 bytes at most.
        self.root = pathlib.Path(tempfile.mkdtemp(prefix="zt-", dir="/tmp"))
        self.home = self.root / "home"
        self.folder = self.root / "project"
        self.prefix = self.root / "prefix"
        self.resources = self.prefix / "share" / "zephyl-tray"
        self.base = self.home / ".local" / "share" / "Zephyl"
        self.working_directory = self.root  # of the tray
        self.launcher = []                  # a command with arguments that starts the tray
        self.agent_port = free_port()
        self.control_port = free_port()
        self.install("tray")
        self.install("commands")
        for directory in (self.home, self.folder, self.resources / "agent"):
            directory.mkdir(parents=True)
        self.environment = {
            "PATH": os.environ["PATH"],
            "LANG": "C.UTF-8",
            "HOME": str(self.home),
            "AGENT_TRAY_PORT": str(self.agent_port),
            "ZEPHYL_ONBOARD_PORT": str(self.control_port),
            "ZEPHYL_SANDBOX_FOLDERS": str(self.folder),
            "ZEPHYL_SANDBOX_MODEL_RATE": "1000000000",
            "ZEPHYL_SANDBOX_EMBED_RATE": "1000",
        } | SANITIZERS

    def install(self, component):
        """Adds a component of the build to the installation, such as "desktop"."""
        shutil.copytree(installed(component), self.prefix, symlinks=True, dirs_exist_ok=True)

    @property
    def agent_program(self):
        return self.resources / "agent" / "zephyl-agent"

    def use_sandbox_agent(self):
        self.agent_program.symlink_to(SANDBOX / "zephyl-agent")

    def use_sandbox_tailnet(self):
        for name in ("tailscaled", "zephyl-tailnet"):
            (self.resources / "agent" / name).symlink_to(SANDBOX / name)

    def use_tailnet_script(self, name, script):
        program = self.resources / "agent" / name
        program.write_text(script)
        program.chmod(0o755)

    def state_directory(self, server_id):
        return self.base / "servers" / server_id / "tailnet"

    def add_servers(self, count):
        """Registers joined servers with separate ports, and returns their ids."""
        servers = []
        for number in range(1, count + 1):
            identifier = f"{number:08x}-0000-4000-8000-000000000000"
            fingerprint = f"{number:032x}"
            servers.append({
                "id": identifier, "label": f"Server {number}", "ordinal": number, "enabled": True,
                "tailnetFingerprint": fingerprint, "agentId": identifier,
                "ports": {"socks": free_port(), "shim": free_port(),
                          "tunnelHost": f"127.100.0.{number}", "tunnelFallback": free_port()}})
            state = self.state_directory(identifier)
            state.mkdir(parents=True)
            (state / "enrolment.json").write_text(json.dumps({"fingerprint": fingerprint}))
        (self.base / "servers.json").write_text(json.dumps(servers))
        return [server["id"] for server in servers]

    def registry(self):
        return json.loads((self.base / "servers.json").read_text())

    def use_agent_script(self, script):
        self.agent_program.write_text(script)
        self.agent_program.chmod(0o755)

    def add_files(self, count):
        for number in range(count):
            (self.folder / f"file{number}.txt").write_text(f"some words of file {number}\n")

    def remove(self):
        shutil.rmtree(self.root, ignore_errors=True)


class Tray:
    """A running tray with its log."""

    def __init__(self, world, *arguments):
        self.world = world
        self.lines = []
        self.process = subprocess.Popen(
            [*world.launcher, world.prefix / "bin" / "zephyl-tray",
             *(arguments or ("--headless",))],
            env=world.environment, cwd=world.working_directory, stdin=subprocess.DEVNULL,
            stderr=subprocess.PIPE, text=True, errors="replace")
        self.pid = self.process.pid
        self._reader = threading.Thread(target=self._read)
        self._reader.start()
        self._children_seen = set()

    def _read(self):
        for line in self.process.stderr:
            self.lines.append(line.rstrip("\n"))

    def log_line(self, text, limit=10.0):
        """Waits for a log line that contains text."""
        def find():
            assert self.process.poll() is None or any(text in line for line in self.lines), self.lines
            return next((line for line in self.lines if text in line), None)
        try:
            return eventually(find, limit)
        except AssertionError as error:
            raise AssertionError(f"no line with {text!r} in {self.lines}") from error

    def agent_pid(self):
        """The process id of the agent, after the shell that frees its port has executed it."""
        def find():
            return next((pid for pid in descendants(self.pid)
                         if command_name(pid) == "zephyl-agent" and is_alive(pid)), None)
        return eventually(find, what="an agent process")

    def children(self):
        self._children_seen.update(descendants(self.pid))
        return list(self._children_seen)

    def send(self, number):
        self.process.send_signal(number)

    def wait(self, limit=10.0):
        status = self.process.wait(limit * SLOWNESS)
        self._reader.join(limit)
        return status

    def stop(self):
        """Ends the tray like the end of a session, and returns its exit status."""
        self.send(signal.SIGTERM)
        return self.wait()

    def close(self):
        """Ends all processes that the test has left."""
        left = self.children()
        if self.process.poll() is None:
            self.process.kill()
            self.process.wait()
        self._reader.join(10)
        for pid in left:
            eventually(lambda pid=pid: not is_alive(pid), what=f"the end of child {pid}")

"""The stand-in for the desktop window, and the commands that control it."""

import contextlib
import json
import os
import pathlib
import signal
import socket
import stat
import subprocess
import time

import pytest

from support.control_api import stop
from support.scripted_tray import TOKEN, ScriptedTray
from support.tray import (SANDBOX, SANITIZERS, Tray, World, command_name, descendants, eventually,
                          free_port, is_alive)

PROGRAM = SANDBOX / "zephyl-desktop"
IDLE = "#!/bin/sh\nexec sleep 1000\n"
FINGERPRINT = "0123456789abcdef0123456789abcdef"


class Desktop:
    """A window and its commands in private directories."""

    def __init__(self, root, port):
        self.root = root
        self.socket = root / "data" / "Zephyl" / "desktop.sock"
        self.environment = {"HOME": str(root), "XDG_DATA_HOME": str(root / "data")} | SANITIZERS
        self.window_environment = self.environment | {"ZEPHYL_ONBOARD_TOKEN": TOKEN,
                                                      "ZEPHYL_ONBOARD_PORT": str(port)}
        self.windows = []

    def launch(self, program=(PROGRAM,)):
        self.windows.append(subprocess.Popen(program, env=self.window_environment, stdin=subprocess.DEVNULL,
                                             stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True))
        return self.windows[-1]

    def start(self):
        """Starts a window and waits until it accepts commands."""
        window = self.launch()
        assert window.stdout.readline() == f"zephyl-desktop: accepting commands at {self.socket}\n"
        return window

    def run(self, *words, stdin=""):
        return subprocess.run([PROGRAM, *words], env=self.environment, input=stdin, text=True, timeout=15,
                              capture_output=True, check=False)

    def output(self, *words, stdin=""):
        """Runs a command that must succeed, and returns its output."""
        ended = self.run(*words, stdin=stdin)
        assert (ended.returncode, ended.stderr) == (0, ""), ended
        return ended.stdout

    def refusal(self, *words):
        """Runs a command that must fail, and returns its message without the program's name."""
        ended = self.run(*words)
        assert (ended.returncode, ended.stdout) == (1, ""), ended
        assert ended.stderr.startswith(f"{PROGRAM}: ") and ended.stderr.endswith("\n")
        return ended.stderr[len(f"{PROGRAM}: "):-1]

    @contextlib.contextmanager
    def watching(self, *options):
        """Starts a `requests` command, and yields its process."""
        watch = subprocess.Popen([PROGRAM, "requests", *options], env=self.environment, text=True,
                                 stdin=subprocess.DEVNULL, stdout=subprocess.PIPE)
        try:
            yield watch
        finally:
            watch.kill()
            watch.wait()
            watch.stdout.close()

    def close(self):
        for window in self.windows:
            window.kill()
            window.wait()
            window.stdout.close()


@pytest.fixture
def tray():
    tray = ScriptedTray()
    yield tray
    tray.close()


@pytest.fixture
def desktop(world, tray):
    desktop = Desktop(world.root, tray.port)
    yield desktop
    desktop.close()


SERVERS = [
    {"id": "5a7d0b7e-0000-4000-8000-000000000001", "name": "Büro", "accent": "#3366cc", "enabled": True,
     "usesTailnet": True, "running": True, "enrolled": True, "webUrl": "http://127.100.0.1:80", "relay": "relay-1"},
    {"id": "5a7d0b7f-0000-4000-8000-000000000002", "name": "Zephyl 2", "accent": "", "enabled": True,
     "usesTailnet": True, "running": False, "enrolled": False, "enrolError": "key expired"},
    {"id": "9c", "name": "Lab\x1b[31m", "accent": "", "enabled": False, "usesTailnet": False, "running": False,
     "enrolled": False},
]


# The window


def test_its_socket_is_private_and_removed_at_its_end(desktop):
    window = desktop.start()
    assert stat.S_IMODE(os.stat(desktop.socket).st_mode) == 0o600
    assert stat.S_IMODE(os.stat(desktop.socket.parent).st_mode) == 0o700
    window.terminate()
    assert window.wait(5) == 0
    assert not desktop.socket.exists()


def test_it_does_not_disclose_the_token(desktop, tray):
    window = desktop.start()
    eventually(lambda: tray.received, what="a first request")
    assert tray.received[0][2]["X-Zephyl-Onboard-Token"] == TOKEN
    assert TOKEN.encode() not in pathlib.Path(f"/proc/{window.pid}/environ").read_bytes()
    for words in (("status",), ("--json", "diagnostics"), ("--help",)):
        assert TOKEN not in desktop.output(*words)
    window.terminate()
    assert TOKEN not in window.stdout.read()


def test_it_polls_about_once_a_second(desktop, tray):
    desktop.start()
    times = []
    for count in (1, 2, 3):
        eventually(lambda count=count: len(tray.received) >= count)
        times.append(time.monotonic())
    assert {entry[:2] for entry in tray.received} == {("GET", "/status")}
    assert 0.8 < times[2] - times[1] < 1.5


def test_a_stale_socket_is_replaced_and_a_live_one_is_not(desktop):
    first = desktop.start()
    second = desktop.launch()
    assert second.wait(5) == 1
    assert second.stdout.read() == f"zephyl-desktop: another program listens on {desktop.socket}\n"
    desktop.output("status")
    first.kill()
    first.wait()
    assert desktop.socket.exists()
    desktop.start()
    desktop.output("status")


def test_it_ends_when_the_tray_has_ended(desktop):
    # A shell replaces the tray: it starts the window, and is killed.
    shell = desktop.launch(["/bin/sh", "-c", f"'{PROGRAM}' & echo $!; wait"])
    lines = [shell.stdout.readline(), shell.stdout.readline()]  # of two processes, in either order
    window = int(next(line for line in lines if line.strip().isdigit()))
    assert is_alive(window) and desktop.socket.exists()
    shell.kill()
    shell.wait()
    eventually(lambda: not is_alive(window), 3, "the end of the window")
    assert not desktop.socket.exists()


def test_it_survives_an_unreachable_control_api(desktop, tray):
    desktop.window_environment["ZEPHYL_ONBOARD_PORT"] = str(free_port())
    window = desktop.start()
    assert desktop.refusal("status") == "The tray does not answer: Connection refused"
    assert window.poll() is None


def test_an_invalid_port_is_refused(desktop):
    desktop.window_environment["ZEPHYL_ONBOARD_PORT"] = "70000"
    window = desktop.launch()
    assert window.wait(5) == 1
    assert window.stdout.read() == "zephyl-desktop: ZEPHYL_ONBOARD_PORT is not a port\n"


def test_the_path_of_the_socket_can_be_set(desktop):
    desktop.socket = desktop.root / "elsewhere.sock"
    for environment in (desktop.environment, desktop.window_environment):
        environment["ZEPHYL_SANDBOX_DESKTOP_SOCKET"] = str(desktop.socket)
    desktop.start()
    assert "tailnet programs" in desktop.output("status")


@pytest.mark.parametrize("line", [
    b"nonsense\n", b"[]\n", b"{}\n", b'{"method":"GET"}\n', b'{"method":"GET","path":"status"}\n',
    b'{"method":"GET","path":"/status HTTP/1.1\\r\\nX: y"}\n', b'{"method":"G T","path":"/"}\n'])
def test_an_unknown_command_is_refused(desktop, tray, line):
    desktop.start()
    with socket.socket(socket.AF_UNIX) as sock:
        sock.settimeout(10)
        sock.connect(str(desktop.socket))
        sock.sendall(line)
        with sock.makefile("rb") as answer:
            assert list(json.loads(answer.readline())) == ["error"]
    assert {entry[:2] for entry in tray.received} <= {("GET", "/status")}


# Commands


def test_a_wrong_command_line_is_reported(desktop):
    for words in ((), ("nonsense",), ("join",), ("rename", "a"), ("status", "more"), ("--bogus", "status")):
        ended = desktop.run(*words)
        assert (ended.returncode, ended.stdout) == (2, "")
        assert "--help" in ended.stderr


def test_the_help_names_every_command(desktop):
    text = desktop.output("--help")
    for name in ("status", "join KEY", "servers", "rename ID NAME", "accent ID COLOR", "enable ID", "disable ID",
                 "remove ID", "folders", "share ID", "unshare ID FOLDER", "restart-agent", "diagnostics",
                 "requests"):
        assert f"\n  {name}  " in text
    assert max(map(len, text.splitlines())) <= 100


def test_without_a_window_a_command_fails_with_a_message(desktop):
    assert desktop.refusal("servers") == f"no window accepts commands at {desktop.socket}: No such file or directory"


def test_the_list_of_servers_is_a_table(desktop, tray):
    tray.answers["GET /servers"] = (200, {"servers": SERVERS})
    desktop.start()
    assert desktop.output("servers").splitlines() == [
        "ID        NAME      COLOR    STATE         ADDRESS                RELAY    TROUBLE",
        "5a7d0b7e  Büro      #3366cc  connected     http://127.100.0.1:80  relay-1",
        "5a7d0b7f  Zephyl 2           network down                                  key expired",
        "9c        Lab␛[31m           disabled"]


def test_empty_lists_print_a_hint(desktop):
    desktop.start()
    assert desktop.output("servers") == f"No servers yet. Join one with: {PROGRAM} join KEY\n"
    assert desktop.output("folders") == f"No folder is shared. Share one with: {PROGRAM} share ID\n"
    assert desktop.output("--json", "servers") == '{"servers": []}\n'


def test_folders_name_the_servers_they_are_shared_with(desktop, tray):
    tray.answers["GET /servers"] = (200, {"servers": SERVERS})
    tray.answers["GET /roots"] = (200, {"roots": [
        {"root": "/src/a", "name": "a"}, {"root": "/src/long name", "name": "long name",
                                          "servers": [SERVERS[1]["id"], SERVERS[0]["id"], "unknown"]}]})
    desktop.start()
    assert desktop.output("folders").splitlines() == [
        "FOLDER          NAME       SHARED WITH",
        "/src/a          a          every server",
        "/src/long name  long name  Zephyl 2, Büro, unknown"]


@pytest.mark.parametrize("name", ["5a7d0b7f-0000-4000-8000-000000000002", "5a7d0b7f", "Zephyl 2", "zephyl 2"])
def test_a_server_is_found_by_id_prefix_or_name(desktop, tray, name):
    tray.answers["GET /servers"] = (200, {"servers": SERVERS})
    desktop.start()
    assert desktop.output("rename", name, "New \"name\"") == "Renamed.\n"
    assert tray.last() == (f"POST /servers/{SERVERS[1]['id']}/label", {"label": 'New "name"'})


def test_an_ambiguous_server_is_refused(desktop, tray):
    desktop.start()
    assert desktop.refusal("enable", "x") == "There are no servers yet."
    tray.answers["GET /servers"] = (200, {"servers": SERVERS})
    for name in ("5a7d0b7", "5"):
        assert desktop.refusal("enable", name).startswith(f'"{name}" is ambiguous: "Büro" (5a7d0b7e-')
    for name in ("other", "", "0b7e"):
        assert desktop.refusal("remove", name).startswith(f'No server is called "{name}". There is "Büro" (')
    assert not [entry for entry in tray.received if entry[0] != "GET"]


def test_each_command_sends_its_request(desktop, tray):
    tray.answers["GET /servers"] = (200, {"servers": SERVERS})
    tray.answers["GET /roots"] = (200, {"roots": [{"root": "/src/a", "name": "work"}]})
    desktop.start()
    path = f"/servers/{SERVERS[0]['id']}"
    scope = {"root": "/src/a", "shared": False}
    asked = {
        ("join", "inv_v2_x"): ("POST /invite", {"key": "inv_v2_x"}),
        ("rename", "Büro", ""): (f"POST {path}/label", {"label": ""}),
        ("accent", "Büro", "#fff"): (f"POST {path}/accent", {"accent": "#fff"}),
        ("enable", "Büro"): (f"POST {path}/enabled", {"enabled": True}),
        ("disable", "Büro"): (f"POST {path}/enabled", {"enabled": False}),
        ("remove", "Büro"): (f"DELETE {path}", None),
        ("share", "Büro"): (f"POST {path}/roots", None),
        ("unshare", "Büro", "/src/a"): (f"POST {path}/roots/scope", scope),
        ("unshare", "Büro", "work"): (f"POST {path}/roots/scope", scope),
        ("unshare", "Büro", "/src/x/../a/"): (f"POST {path}/roots/scope", scope),
        ("unshare", "Büro", "/src/b"): (f"POST {path}/roots/scope", {"root": "/src/b", "shared": False}),
        ("restart-agent",): ("POST /agent/restart", None),
    }
    for words, request in asked.items():
        assert desktop.output(*words), words
        assert tray.last() == request, words
        assert desktop.output("--json", *words) == '{"ok": true}\n'


def test_a_refusal_is_printed_with_the_apis_message(desktop, tray):
    tray.answers["POST /invite"] = (400, {"error": "That doesn't look like a Zephyl invite key."})
    desktop.start()
    assert desktop.refusal("join", "x") == "That doesn't look like a Zephyl invite key."
    ended = desktop.run("--json", "join", "x")
    assert (ended.returncode, json.loads(ended.stdout)) == (1, tray.answers["POST /invite"][1])
    tray.answers["GET /roots"] = (502, {})
    assert desktop.refusal("folders") == "the tray answered 502"


def test_a_key_is_read_from_standard_input(desktop, tray):
    desktop.start()
    assert "Joining." in desktop.output("join", "-", stdin="inv_v2_from_stdin\nmore\n")
    assert tray.last() == ("POST /invite", {"key": "inv_v2_from_stdin"})
    assert desktop.refusal("join", "-") == "no key on standard input"


def test_large_answers_arrive_completely(desktop, tray):
    tray.answers["GET /diagnostics"] = (200, {"servers": [{"log": ["x" * 1000] * 5000}]})
    desktop.start()
    assert json.loads(desktop.output("--json", "diagnostics")) == tray.answers["GET /diagnostics"][1]
    assert desktop.output("diagnostics").count("x" * 1000 + "\n") == 5000


# Requests of the tray


def test_requests_are_printed_as_they_arrive(desktop, tray):
    desktop.start()
    with desktop.watching() as watch, desktop.watching("--json") as other:
        eventually(lambda: len(tray.received) > 1)
        tray.requests += ["join", "servers/5/rename\x1b"]
        assert watch.stdout.readline() == "join\n"
        assert watch.stdout.readline() == "servers/5/rename␛\n"
        assert json.loads(other.stdout.readline()) == {"request": "join"}


def test_requests_wait_for_a_watcher(desktop, tray):
    tray.requests += ["join", "servers"]
    desktop.start()
    eventually(lambda: not tray.requests, what="requests accepted by the window")
    assert "wants to see" not in desktop.output("status")
    with desktop.watching() as watch:
        assert [watch.stdout.readline() for _ in range(2)] == ["join\n", "servers\n"]
    tray.requests.append("join")
    assert "wants to see      join\n" in desktop.output("status")
    with desktop.watching() as watch:
        assert watch.stdout.readline() == "join\n"


def test_watching_ends_with_the_window(desktop):
    window = desktop.start()
    with desktop.watching() as watch:
        eventually(lambda: len(list(pathlib.Path(f"/proc/{watch.pid}/fd").iterdir())) > 3)
        window.terminate()
        assert watch.wait(5) == 1


# With the real tray


@pytest.fixture(scope="module", name="home")
def fixture_home():
    """A tray that has started the stand-in, with an agent and a joined server."""
    with contextlib.ExitStack() as running:
        world = World()
        running.callback(world.remove)
        (world.resources / "Zephyl Window.app").symlink_to(PROGRAM)
        world.use_sandbox_agent()
        world.use_sandbox_tailnet()
        tray = Tray(world)
        running.callback(tray.close)
        desktop = Desktop(world.root, world.control_port)
        desktop.environment = {"HOME": str(world.home)} | SANITIZERS
        desktop.socket = world.base / "desktop.sock"
        desktop.world, desktop.tray = world, tray
        eventually(desktop.socket.exists, what="the window's socket")
        eventually(lambda: desktop.run("folders").returncode == 0, what="an agent")
        yield desktop
        stop(tray)
        assert not desktop.socket.exists(), "the window ends in order with the tray"


@pytest.mark.joins
def test_the_tray_starts_it_and_a_server_is_joined_managed_and_removed(home):
    assert "joined a server   no\n" in home.output("status")
    assert home.output("servers").startswith("No servers yet.")
    home.output("join", "-", stdin=f"inv_v2_{FINGERPRINT}_very-secret\n")
    eventually(lambda: "http://" in home.output("servers"), what="a connected server")
    home.output("rename", json.loads(home.output("--json", "servers"))["servers"][0]["name"], "Office")
    home.output("accent", "Office", "#3366cc")
    assert "Office  #3366cc" in home.output("servers")
    assert "joined a server   yes\n" in home.output("status")
    home.output("disable", "office")
    assert "disabled" in home.output("servers")
    home.output("enable", "office")
    assert home.refusal("share", "Office") == "There is no desktop to choose a folder on."
    # Every change of the servers restarts the agent, which is unreachable for a moment.
    shared = f"{home.world.folder}  project  every server"
    eventually(lambda: shared in home.run("folders").stdout, what="the folder")
    eventually(lambda: home.run("unshare", "Office", "project").returncode == 0, what="an agent without the folder")
    eventually(lambda: home.run("folders").stdout.startswith("No folder is shared."), what="no folder")
    text = home.output("diagnostics")
    assert text.startswith("tray\n") and "very-secret" not in text
    home.output("remove", "office")
    assert home.output("servers").startswith("No servers yet.")


def test_the_agent_is_restarted_by_a_command(home):
    eventually(lambda: home.run("folders").returncode == 0, what="an agent")
    first = home.tray.agent_pid()
    home.output("restart-agent")
    eventually(lambda: not is_alive(first), what="the end of the first agent")


def test_it_ends_when_the_tray_is_killed(world):
    (world.resources / "Zephyl Window.app").symlink_to(PROGRAM)
    world.use_agent_script(IDLE)
    tray = Tray(world)
    try:
        socket_file = world.base / "desktop.sock"
        eventually(socket_file.exists, what="the window's socket")
        window, = [pid for pid in descendants(tray.pid) if command_name(pid) == "zephyl-desktop" or
                   "Window" in command_name(pid)]
        tray.send(signal.SIGKILL)
        tray.wait()
        eventually(lambda: not is_alive(window), 3, "the end of the window")
    finally:
        tray.close()

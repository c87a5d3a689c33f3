"""The commands that need a running tray, without a session bus."""

import json
import os
import signal
import socket
import stat
import subprocess
import time

import pytest

from support.commands import Commands
from support.memory import copies_in_memory
from support.other_user import as_other_user, skip_unless_root
from support.tray import REPOSITORY, eventually

KEY = "inv_v2_0123456789abcdef0123456789abcdef_anything"


@pytest.fixture
def commands(world):
    return Commands(world)


@pytest.fixture
def tray(world, start_tray):
    """A tray with the sandbox's agent."""
    world.use_sandbox_agent()
    tray = start_tray()
    tray.log_line("reachable, 1 folder")
    return tray


def socket_of(world):
    return world.base / "tray.sock"


def test_without_a_tray_a_command_fails_and_leaves_no_files(world, commands):
    for verb in (["status"], ["servers"], ["requests"], ["logs", "--follow"], ["watch"],
                 ["answer", "1", "deny"], ["quit"], ["open"]):
        answer = commands.run(*verb)
        assert (answer.returncode, answer.stdout) == (3, ""), verb
        assert "not running" in answer.stderr
    assert not world.base.exists()


def test_status_prints_the_state_in_words_and_as_json(world, tray, commands):
    answer = commands.run("status")
    assert answer.returncode == 0, answer.stdout
    assert f"process {tray.pid}, headless" in answer.stdout
    assert "reachable, 1 folder" in answer.stdout
    assert "Nothing needs your attention." in answer.stdout
    status = commands.json("status")
    assert (status["pid"], status["mode"], status["folders"]) == (tray.pid, "headless", 1)
    assert status["agent"]["reachable"] and status["agent"]["port"] == world.agent_port
    assert commands.json("folders")[0]["path"] == str(world.folder)
    assert str(world.folder) in commands.run("folders").stdout


def test_an_incomplete_installation_gives_advice(world, start_tray, commands):
    tray = start_tray()
    tray.log_line("Agent Failed to Start")
    answer = commands.run("status")
    assert answer.returncode == 1
    assert str(world.agent_program) in answer.stdout
    assert "ZEPHYL_REPO_ROOT" in answer.stdout
    assert "window is not installed" in answer.stdout
    opened = commands.run("open")
    assert opened.returncode == 1 and "not installed" in opened.stderr
    world.use_sandbox_agent()
    assert commands.run("restart-agent").returncode == 0
    eventually(lambda: commands.attention() == [], what="an agent")


def test_a_tray_that_hangs_is_reported_within_two_seconds(tray, commands):
    tray.send(signal.SIGSTOP)
    try:
        for verb in (["status"], ["servers"], ["status", "--json"]):
            begin = time.monotonic()
            answer = commands.run(*verb)
            assert answer.returncode == 4
            assert time.monotonic() - begin < 2.5
            assert "does not answer" in answer.stderr + answer.stdout
            assert str(tray.pid) in answer.stderr + answer.stdout
    finally:
        tray.send(signal.SIGCONT)
    assert commands.run("status").returncode == 0


@pytest.mark.joins
def test_a_server_is_joined_and_its_network_restarted(world, start_tray, commands):
    world.use_sandbox_agent()
    world.use_sandbox_tailnet()
    start_tray().log_line("reachable, 1 folder")
    answer = commands.run("join", text=f"  {KEY}\r\n")
    assert answer.returncode == 0, answer.stderr
    assert KEY not in answer.stdout + answer.stderr

    def connected():
        return [server for server in commands.json("servers")
                if server["state"] == "connected" and not server["name"].startswith("Zephyl ")]
    server, = eventually(connected, 20, what="a connected server with the name that it announces")
    assert server["id"] == world.registry()[0]["id"]
    eventually(lambda: commands.attention() == [], 20)
    for name in (server["id"], server["id"][:6], server["name"].upper()):
        assert "tailscaled" in commands.run("logs", name).stdout
    assert commands.run("restart-tailnet", server["id"][:6]).returncode == 0
    assert commands.run("restart-tailnet", "nobody").returncode == 1
    diagnostics = json.loads(commands.run("diagnostics").stdout)
    assert diagnostics["servers"][0]["id"] == server["id"]


def test_a_wrong_invite_key_is_refused_and_not_printed(world, tray, commands):
    for key, reason in (("", "no invite key"), ("rubbish", ""), ("x" * 5000, "too long"),
                        ("inv_v9_0123456789abcdef0123456789abcdef_x", "")):
        answer = commands.run("join", text=key)
        assert answer.returncode == 1
        assert reason in answer.stderr and answer.stderr.startswith("zephyl-tray: ")
        assert "0123456789abcdef" not in answer.stderr
    assert not (world.base / "servers.json").exists() or world.registry() == []


@pytest.mark.joins
def test_an_expired_invite_key_is_explained(world, start_tray, commands):
    world.use_sandbox_agent()
    world.use_sandbox_tailnet()
    start_tray().log_line("reachable, 1 folder")
    assert commands.run("join", text=KEY.replace("anything", "expired")).returncode == 0
    eventually(lambda: commands.attention() == ["joinFailed"], 20, what="a refused key")
    answer = commands.run("status")
    assert answer.returncode == 1
    assert "expired" in answer.stdout and "zephyl-tray join" in answer.stdout


@pytest.mark.joins
def test_a_used_key_is_removed_from_the_trays_memory(world, start_tray, commands):
    section = "kq7vgood2secret3of4the5lab6server7and8nobody9else"
    rest = section[16:]  # the allocator overwrites the beginning of freed memory
    world.use_agent_script("#!/bin/sh\nexec sleep 1000\n")
    world.use_sandbox_tailnet()
    tray = start_tray()
    eventually(lambda: commands.run("status").returncode != 3, what="a tray")
    assert commands.run("join", text=KEY.replace("anything", section)).returncode == 0
    assert copies_in_memory(tray.pid, rest) > 0, "the search does not find existing text"
    tray.log_line("1 of 1 server connected")
    assert copies_in_memory(tray.pid, rest) == 0
    for text in (commands.run("diagnostics").stdout, commands.run("logs").stdout, *tray.lines):
        assert section not in text


def test_a_typed_key_is_not_echoed(tray, commands):
    status, shown = commands.type("join", answers=[("Invite key: ", "inv_v2_secret\n")])
    assert status == 1
    assert "secret" not in shown


def read_until(process, text):
    """Reads lines up to one that contains the text. Fails if the process ends before."""
    while text not in (line := process.stdout.readline()):
        assert line, process.stderr.read()


def test_the_log_of_the_agent_is_followed(world, tray, commands):
    assert "listening on" in commands.run("logs").stdout
    follower = commands.start("logs", "--follow")
    try:
        read_until(follower, "listening on")
        assert commands.run("restart-agent").returncode == 0
        read_until(follower, "listening on")
        tray.stop()
        assert follower.wait(10) == 1
        assert "The tray has ended." in follower.stderr.read()
    finally:
        follower.kill()
        follower.communicate()


def test_watch_prints_a_line_for_each_change(world, tray, commands):
    words, values = commands.start("watch"), commands.start("watch", "--json")
    try:
        assert "reachable, 1 folder" in words.stdout.readline()
        assert json.loads(values.stdout.readline())["agent"]["reachable"]
        os.kill(tray.agent_pid(), signal.SIGKILL)
        read_until(words, "agent not reachable")
        while json.loads(values.stdout.readline())["agent"]["reachable"]:
            pass
        words.send_signal(signal.SIGINT)
        assert words.wait(10) == -signal.SIGINT
    finally:
        for process in (words, values):
            process.kill()
            process.communicate()


def test_stalled_clients_delay_nobody(world, tray, commands):
    stalled = []
    try:
        for text in (b"", b'{"sta', b'{"watch":true}\n', b'{"logs":{"follow":true}}\n') * 8:
            client = socket.socket(socket.AF_UNIX)
            client.connect(str(socket_of(world)))
            client.sendall(text)
            stalled.append(client)
        begin = time.monotonic()
        assert commands.run("status").returncode == 0
        assert time.monotonic() - begin < 1
        assert tray.stop() == 0
    finally:
        for client in stalled:
            client.close()


def test_an_invalid_request_is_answered_with_an_error(world, tray):
    for line in (b"\n", b"status\n", b"[]\n", b'{"fly":true}\n', b'{"answer":{"id":7}}\n', b"\xff\xfe\n"):
        with socket.socket(socket.AF_UNIX) as client:
            client.settimeout(10)
            client.connect(str(socket_of(world)))
            client.sendall(line)
            assert "error" in json.loads(client.makefile().read()), line


def test_quit_returns_when_another_tray_can_start(tray, start_tray, commands):
    answer = commands.run("quit")
    assert (answer.returncode, answer.stdout) == (0, "The tray has ended.\n")
    assert tray.wait() == 0
    start_tray().log_line("reachable, 1 folder")
    assert commands.run("status").returncode == 0


def test_the_socket_is_private_and_removed_with_the_tray(world, start_tray, commands):
    runtime = world.root / "run"
    runtime.mkdir(mode=0o700)
    world.environment["XDG_RUNTIME_DIR"] = str(runtime)
    world.use_sandbox_agent()
    tray = start_tray()
    tray.log_line("reachable, 1 folder")
    path, = (runtime / "com.zephyl.tray").iterdir()
    assert stat.S_IMODE(path.stat().st_mode) == 0o600
    assert stat.S_IMODE(path.parent.stat().st_mode) == 0o700
    assert commands.run("status").returncode == 0
    tray.send(signal.SIGKILL)
    tray.wait()
    assert path.is_socket()  # remains after the kill
    assert commands.run("status").returncode == 3
    again = start_tray()
    eventually(lambda: commands.run("status").returncode == 0, what="an answer")
    assert again.stop() == 0
    assert not path.exists()
    assert not socket_of(world).exists()


def test_another_user_is_refused(world, tray):
    skip_unless_root()
    for directory in (world.root, world.home, world.home / ".local", world.home / ".local/share",
                      world.base):
        directory.chmod(0o755)
    socket_of(world).chmod(0o666)  # so that only the check of the peer's user protects it
    client = ("import socket; s = socket.socket(socket.AF_UNIX); s.connect('%s');"
              "s.sendall(b'{\"status\":true}\\n'); print(s.recv(10))" % socket_of(world))
    answer = subprocess.run(as_other_user("/usr/bin/python3", "-c", client), capture_output=True,
                            text=True, timeout=20)
    assert "tray" not in answer.stdout
    assert answer.stdout == "b''\n" or "Error" in answer.stderr
    tray.log_line("refused a command from a program of another user")


def test_a_tray_of_another_user_is_not_used(world, commands):
    skip_unless_root()
    world.base.mkdir(parents=True)
    for directory in (world.root, world.home, world.home / ".local", world.home / ".local/share"):
        directory.chmod(0o755)
    world.base.chmod(0o777)
    server = ("import socket; s = socket.socket(socket.AF_UNIX); s.bind('%s'); s.listen();"
              "print('ready', flush=True); c = s.accept()[0]; print(c.recv(100), flush=True)"
              % socket_of(world))
    process = subprocess.Popen(as_other_user("/usr/bin/python3", "-c", server),
                               stdout=subprocess.PIPE, text=True, cwd="/")
    try:
        assert process.stdout.readline() == "ready\n"
        assert commands.run("join", text=KEY).returncode == 3
        assert process.stdout.readline() == "b''\n"  # no byte of the key
    finally:
        process.kill()
        process.communicate()


def test_the_manual_and_the_page_name_every_command(commands):
    manual = (REPOSITORY / "Packaging" / "zephyl-tray.1").read_text().replace("\\-", "-")
    page = (REPOSITORY / "docs" / "commands.md").read_text()
    summary = commands.run("--help").stdout.split("Commands:\n")[1]
    verbs = [line.split()[0] for line in summary.splitlines() if line.startswith("  ")]
    assert len(verbs) == 16
    for verb in verbs:
        assert verb in manual and f"`{verb}" in page
        assert commands.run(verb, "--help").stdout.startswith(f"Usage: zephyl-tray {verb}")


def test_a_command_is_fast(tray, commands):
    def seconds():
        begin = time.monotonic()
        assert commands.run("servers").returncode == 0
        return time.monotonic() - begin
    assert min(seconds() for _ in range(10)) < 0.1

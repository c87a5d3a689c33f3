"""The tray finds or launches its agent, follows it, and ends with it."""

import http.client
import json
import os
import signal
import socket
import subprocess
import sys
import time

import pytest

from support.control_api import start_api, window  # noqa: F401
from support.tray import (SANDBOX, command_line, descendants, eventually, free_port, is_alive,
                          without_sanitizers)


def test_it_launches_an_agent_shares_a_folder_and_shows_its_progress(world, start_tray):
    world.add_files(120)
    world.use_sandbox_agent()
    world.environment["ZEPHYL_SANDBOX_EMBED_RATE"] = "30"
    tray = start_tray()
    tray.log_line("[tray] agent not reachable")
    tray.log_line("[tray] reachable, 1 folder, indexing ")
    tray.log_line("/120")
    eventually(lambda: tray.lines[-1] == "[tray] reachable, 1 folder", what="the end of indexing")
    states = [line for line in tray.lines if "reachable" in line]
    assert all(a != b for a, b in zip(states, states[1:])), "a line without a change"


def test_a_file_added_to_the_folder_shows_in_the_state(world, start_tray):
    world.add_files(12)
    world.use_sandbox_agent()
    world.environment["ZEPHYL_SANDBOX_EMBED_RATE"] = "4"
    tray = start_tray()
    tray.log_line("/12")
    (world.folder / "new.txt").write_text("more words\n")
    tray.log_line("/13")


def test_a_port_from_the_settings_is_passed_to_the_agent(world, start_tray):
    settings = world.home / ".config" / "com.zephyl.tray"
    settings.mkdir(parents=True)
    (settings / "defaults.json").write_text(json.dumps({"trayPort": free_port()}))
    world.use_sandbox_agent()
    start_tray().log_line("[tray] reachable, 1 folder")


def test_an_agent_that_answers_is_never_reported_as_unreachable(world, start_tray, scripted_agent):
    tray = start_tray()
    tray.log_line("[tray] reachable, 0 folders")
    assert not any("not reachable" in line for line in tray.lines), tray.lines


@pytest.mark.parametrize("number", [signal.SIGTERM, signal.SIGINT])
def test_a_signal_ends_tray_and_agent_in_order(world, start_tray, number):
    world.use_sandbox_agent()
    tray = start_tray()
    tray.log_line("reachable, 1 folder")
    children = tray.children()
    assert tray.agent_pid() in children
    began = time.monotonic()
    tray.send(number)
    assert tray.wait() == 0
    assert time.monotonic() - began < 2
    for pid in children:
        eventually(lambda pid=pid: not is_alive(pid), 1, f"the end of {pid}")


def test_no_child_survives_a_killed_tray(world, start_tray):
    world.use_agent_script("#!/bin/sh\ntrap '' TERM\nsleep 1000 & \nwhile :; do sleep 1; done\n")
    tray = start_tray()
    eventually(lambda: len(descendants(tray.pid)) >= 4, what="guardian, shell and its sleeps")
    children = tray.children()
    tray.send(signal.SIGKILL)
    tray.wait()
    for pid in children:
        eventually(lambda pid=pid: not is_alive(pid), 3, f"the end of {pid}")


def test_an_agent_that_ignores_sigterm_is_killed_after_three_seconds(world, start_tray):
    world.use_agent_script("#!/bin/sh\ntrap '' TERM\nwhile :; do sleep 0.1; done\n")
    tray = start_tray()
    agent = eventually(lambda: [pid for pid in descendants(tray.pid)
                                if "zephyl-agent" in command_line(pid)
                                and "lsof" not in command_line(pid)])[0]
    eventually(lambda: descendants(agent), what="the agent's first sleep, which follows its trap")
    began = time.monotonic()
    assert tray.stop() == 0
    assert 2.5 < time.monotonic() - began < 5
    assert not is_alive(agent)


def test_an_agent_that_answers_is_used_and_not_replaced(world, start_tray):
    world.use_sandbox_agent()
    own = subprocess.Popen([SANDBOX / "zephyl-agent"], env=world.environment,
                           stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
    try:
        eventually(lambda: socket.create_connection(("127.0.0.1", world.agent_port)).close() is None
                   if own.poll() is None and port_answers(world.agent_port) else False)
        tray = start_tray()
        tray.log_line("reachable, 1 folder")
        assert [name for name in map(command, descendants(tray.pid)) if "agent" in name] == []
        assert tray.stop() == 0
        assert own.poll() is None, "the tray ended an agent that it had not launched"
    finally:
        own.terminate()
        own.wait()


def port_answers(port):
    try:
        socket.create_connection(("127.0.0.1", port), 1).close()
        return True
    except OSError:
        return False


def command(pid):
    try:
        return open(f"/proc/{pid}/comm").read().strip()
    except FileNotFoundError:
        return ""


def test_a_stale_listener_is_killed_and_clients_of_its_port_survive(world, start_tray):
    world.use_sandbox_agent()
    world.environment["PYTHONUNBUFFERED"] = "1"
    listener = subprocess.Popen(
        [sys.executable, "-c",
         "import socket\n"
         "s = socket.socket(); s.setsockopt(socket.SOL_SOCKET, socket.SO_REUSEADDR, 1)\n"
         f"s.bind(('127.0.0.1', {world.agent_port})); s.listen()\n"
         "print('listening', flush=True)\n"
         "c = []\n"
         "while True:\n"
         "  k, _ = s.accept(); k.close() if len(c) else c.append(k)\n"],
        stdout=subprocess.PIPE)
    client = None
    try:
        assert listener.stdout.readline() == b"listening\n"
        client = subprocess.Popen(
            [sys.executable, "-c",
             f"import socket,time; s=socket.create_connection(('127.0.0.1',{world.agent_port}))\n"
             "print('connected', flush=True); time.sleep(1000)"], stdout=subprocess.PIPE)
        assert client.stdout.readline() == b"connected\n"
        tray = start_tray()
        tray.log_line("reachable, 1 folder")
        assert listener.wait(10) == -signal.SIGTERM
        assert client.poll() is None
        assert tray.process.poll() is None
    finally:
        for process in filter(None, (listener, client)):
            process.kill()
            process.wait()
            process.stdout.close()


def test_a_restart_replaces_an_agent_that_the_tray_did_not_launch(world, start_api):
    world.use_sandbox_agent()
    foreign = subprocess.Popen([SANDBOX / "zephyl-agent"], env=world.environment,
                               stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
    try:
        eventually(lambda: port_answers(world.agent_port))
        api = start_api()
        api.tray.log_line("reachable, 1 folder")
        api.do("POST", "/agent/restart")
        foreign.wait(10)
        api.tray.agent_pid()
        eventually(lambda: api.ask("GET", "/roots")[0] == 200, what="the tray's own agent")
    finally:
        foreign.kill()
        foreign.wait()


def test_an_agent_that_ends_by_a_signal_is_no_failure(world, start_tray):
    world.use_agent_script("#!/bin/sh\nkill -SEGV $$\n")
    tray = start_tray()
    tray.log_line("[tray] agent ended by signal 11")
    assert tray.stop() == 0
    assert not any("Agent Exited" in line for line in tray.lines), tray.lines


def test_an_exit_with_a_status_is_reported_with_the_end_of_the_log(world, start_tray):
    world.use_agent_script("#!/bin/sh\necho cannot open the index\nexit 3\n")
    tray = start_tray()
    tray.log_line("[tray] Agent Exited Unexpectedly: The Zephyl agent didn't start cleanly — "
                  "it exited with code 3.")
    tray.log_line("cannot open the index")


def test_a_missing_agent_is_reported(world, start_tray):
    tray = start_tray()
    tray.log_line("[tray] Agent Failed to Start: The Zephyl agent could not be started: "
                  "No Rust agent binary found.")


def test_children_inherit_only_standard_descriptors(world, start_tray):
    world.environment.update(NOTIFY_SOCKET="/x", WATCHDOG_USEC="1", XDG_ACTIVATION_TOKEN="t")
    world.use_agent_script("#!/bin/sh\n"
                           f"env > {world.root}/env\nls -l /proc/self/fd > {world.root}/fds\n"
                           f"mv {world.root}/fds {world.root}/done\nsleep 1000\n")
    start_tray()
    done = eventually(lambda: (world.root / "done").exists() and (world.root / "done").read_text())
    descriptors = [line.split()[-3:] for line in done.splitlines() if "->" in line]
    by_number = {number: target for number, _, target in descriptors}
    assert by_number["0"] == "/dev/null"
    assert by_number["1"].endswith("/fds") and by_number["2"].startswith("pipe:")
    assert set(by_number) <= {"0", "1", "2", "3"}  # 3: the folder that ls reads
    environment = (world.root / "env").read_text()
    for name in ("NOTIFY_SOCKET", "WATCHDOG_USEC", "XDG_ACTIVATION_TOKEN"):
        assert name not in environment


@without_sanitizers("a sanitizer takes memory of its own")
def test_a_flood_of_output_uses_bounded_memory(world, start_tray):
    world.use_agent_script("#!/bin/sh\nexec yes "
                           "'a line of output that is about as long as lines of logs are on the whole'\n")
    tray = start_tray()
    flood = eventually(lambda: [p for p in descendants(tray.pid) if command(p) == "yes"])[0]
    written = lambda: int(dict(line.split(": ") for line in
                               open(f"/proc/{flood}/io").read().splitlines())["wchar"])
    eventually(lambda: written() > 200e6, 60, "200 MB of output")
    assert resident(tray.pid) < 16e6
    began = time.monotonic()
    assert tray.stop() == 0
    assert time.monotonic() - began < 2


def resident(pid):
    pages = int(open(f"/proc/{pid}/statm").read().split()[1])
    return pages * os.sysconf("SC_PAGE_SIZE")


# An agent that misbehaves


@without_sanitizers("a program with sanitizers is too slow for the limit")
def test_a_new_tray_polls_its_agent_within_50_ms(world, start_tray, scripted_agent):
    delays = []
    for _ in range(5):
        scripted_agent.requests.clear()
        began = time.monotonic()
        tray = start_tray()
        eventually(lambda: scripted_agent.count("/api/activity") >= 1)
        eventually(lambda: scripted_agent.count("/api/status"))
        delays.append(next(t for t, path in scripted_agent.requests if path == "/api/status") - began)
        tray.stop()
    assert sorted(delays)[2] < 0.05, delays


@without_sanitizers("a sanitizer takes memory of its own")
def test_the_state_is_right_within_one_poll_whatever_the_agent_answers(world, start_tray, scripted_agent):
    tray = start_tray()
    tray.log_line("reachable, 0 folders")
    good = dict(scripted_agent.answers)
    troubles = {
        "garbage": b"\x00\xff{{{",
        "a list": b"[]",
        "a hundred megabytes": lambda handler: handler.reply(200, b'{"state":"' + b"x" * 100_000_000 + b'"}'),
        "an error": lambda handler: handler.reply(500, b"{}"),
        "no answer": scripted_agent.hang,
        "half an answer": lambda handler: handler.wfile.write(b"HTTP/1.1 200 OK\r\nContent-Length: 50\r\n\r\n{"),
        "no HTTP": lambda handler: handler.wfile.write(b"220 mail ready\r\n"),
    }
    for name, trouble in troubles.items():
        begun = scripted_agent.count("/api/status")
        tray.lines.clear()
        scripted_agent.answers["/api/status"] = trouble
        tray.log_line("agent not reachable", 20)
        # Others begin while one waits four seconds for its answer.
        polls = scripted_agent.count("/api/status") - begun
        assert polls <= (4 if name == "no answer" else 2), (name, polls)
        begun = scripted_agent.count("/api/status")
        tray.lines.clear()
        scripted_agent.answers.update(good)
        tray.log_line("reachable, 0 folders", 20)
        polls = scripted_agent.count("/api/status") - begun
        assert polls <= 2, (name, polls)
    assert resident(tray.pid) < 40e6


@without_sanitizers("a sanitizer takes memory of its own")
def test_ten_thousand_events_a_second_are_processed(world, start_tray, scripted_agent):
    stop_flood = []
    sent = [0]

    def flood(handler):
        handler.wfile.write(b"HTTP/1.1 200 OK\r\nContent-Type: text/event-stream\r\n\r\n")
        began = time.monotonic()
        while not stop_flood:
            due = int((time.monotonic() - began) * 10_000)
            events = b"".join(
                b'data: {"busy":true,"inFlight":%d,"counters":{},"recent":[],"indexing":[]}\n\n' % n
                for n in range(sent[0], due))
            handler.wfile.write(events)
            sent[0] = max(sent[0], due)
            time.sleep(0.005)
        # The last one says something new.
        handler.wfile.write(b'data: {"busy":true,"inFlight":0,"counters":{},"recent":[],"indexing":'
                            b'[{"root":"/a","ready":false,"embedding":true,"filesEmbedded":7,'
                            b'"chunksEmbedded":0,"lexicalFiles":9,"ragEnabled":true}]}\n\n')
        scripted_agent.hang(handler)

    scripted_agent.answers["/api/events"] = flood
    tray = start_tray()
    tray.log_line("reachable, 0 folders")
    eventually(lambda: sent[0] > 30_000, 30)
    assert resident(tray.pid) < 16e6
    stop_flood.append(True)
    tray.log_line("indexing 7/9", 1)


def test_a_stream_that_ends_is_opened_again_after_two_seconds(world, start_tray, scripted_agent):
    opened = []

    def once(handler):
        opened.append(time.monotonic())
        handler.reply(200, b"data: nonsense\n\n")

    scripted_agent.answers["/api/events"] = once
    start_tray()
    eventually(lambda: len(opened) == 3, 10)
    pauses = [b - a for a, b in zip(opened, opened[1:])]
    assert all(1.9 < pause < 2.5 for pause in pauses), pauses

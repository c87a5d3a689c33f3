"""The start of the program: its options, and one tray per base directory."""

import os
import pathlib
import re
import resource
import signal
import subprocess

import pytest

from support.tray import REPOSITORY, World, command_name, descendants, eventually


def run(world, *arguments):
    return subprocess.run([world.prefix / "bin" / "zephyl-tray", *arguments], env=world.environment,
                          capture_output=True, text=True, timeout=10)


def test_it_prints_version_and_help(world):
    answer = run(world, "--version")
    assert (answer.returncode, answer.stdout.split()[0], answer.stderr) == (0, "zephyl-tray", "")
    answer = run(world, "--help")
    assert answer.returncode == 0
    for option in ("--desktop", "--terminal", "--headless", "--version", "--help"):
        assert option in answer.stdout


@pytest.mark.parametrize("arguments", [["--nonsense"], ["folder"], ["--desktop", "--headless"],
                                       ["--terminal", "--headless"]])
def test_a_wrong_command_line_is_refused_with_a_reason(world, arguments):
    answer = run(world, *arguments)
    assert answer.returncode == 2
    assert answer.stderr.startswith("zephyl-tray: ") and "--help" in answer.stderr
    assert not world.base.exists()


def test_the_manual_names_every_option(world):
    manual = (REPOSITORY / "Packaging" / "zephyl-tray.1").read_text().replace("\\-", "-")
    for word in run(world, "--help").stdout.split():
        if word.startswith("--"):
            assert word.rstrip(",]") in manual


def test_a_second_start_reports_that_a_tray_is_running(world, start_tray):
    world.use_agent_script("#!/bin/sh\nexec sleep 1000\n")
    first = start_tray()
    first.log_line("agent not reachable")
    second = run(world, "--headless")
    assert second.returncode == 1
    assert second.stderr == f"[tray] already running as process {first.pid}\n"
    assert first.process.poll() is None
    assert first.stop() == 0
    start_tray().log_line("agent not reachable")


def test_a_killed_tray_does_not_prevent_the_next_start(world, start_tray):
    world.use_agent_script("#!/bin/sh\nexec sleep 1000\n")
    first = start_tray()
    first.log_line("agent not reachable")
    first.send(signal.SIGKILL)
    first.wait()
    start_tray().log_line("agent not reachable")


def test_trays_of_two_base_directories_run_side_by_side(world, start_tray):
    world.use_agent_script("#!/bin/sh\nexec sleep 1000\n")
    start_tray().log_line("agent not reachable")
    other = World()
    try:
        world.environment.update(HOME=other.environment["HOME"],
                                 AGENT_TRAY_PORT=other.environment["AGENT_TRAY_PORT"])
        start_tray().log_line("agent not reachable")
    finally:
        other.remove()


def core_limit(pid):
    """Returns a process's soft limit for core files, as text from the kernel."""
    limits = pathlib.Path(f"/proc/{pid}/limits").read_text()
    return re.search(r"Max core file size +(\S+)", limits).group(1)


def test_the_tray_dumps_no_core_and_its_children_keep_their_limit(world, start_tray):
    soft, hard = resource.getrlimit(resource.RLIMIT_CORE)
    if hard == 0:
        pytest.skip("no process may dump a core here")
    resource.setrlimit(resource.RLIMIT_CORE, (hard, hard))
    try:
        world.use_agent_script("#!/bin/sh\nexec sleep 1000\n")
        tray = start_tray()
        tray.log_line("agent not reachable")
        agent, = eventually(lambda: [pid for pid in descendants(tray.pid)
                                     if command_name(pid) == "sleep"], what="the agent")
        assert core_limit(tray.pid) == "0"
        assert core_limit(agent) == core_limit(os.getpid()) != "0"
    finally:
        resource.setrlimit(resource.RLIMIT_CORE, (soft, hard))


def test_an_unreadable_registry_is_reported_and_kept(world, start_tray):
    world.base.mkdir(parents=True)
    (world.base / "servers.json").write_text('[{"id": 7}]')
    tray = start_tray()
    tray.log_line("[tray] servers.json is unreadable ([0].id: not a string); treating as empty")
    assert tray.stop() == 0
    assert (world.base / "servers.json").read_text() == '[{"id": 7}]'

"""Every joined server has a tailnet, which the tray supervises."""

import concurrent.futures
import os
import pathlib
import signal
import sys
import time

from support.control_api import start_api, window  # noqa: F401 (fixtures)
from support.memory import kilobytes
from support.tray import (SANDBOX, command_name, descendants, eventually, is_alive,
                          without_sanitizers)

STUBBORN = "#!/bin/sh\ntrap '' TERM\n{first}while :; do sleep 0.2; done\n"

# Reports the address of its server all the time. One server has another address once the file exists.
ADDRESS = """#!/bin/sh
echo data tunnel on http://a:80
address=https://server-$$.example
while sleep 0.05; do
  if mv {move} {move}d 2>/dev/null; then address=https://moved.example; fi
  echo target resolved to $address
done
"""

# Reports 5,000 server names a second for three seconds.
FLOOD = f"""#!{sys.executable}
import sys, time
print("data tunnel on a:80", flush=True)
for number in range(300):
    for part in range(50):
        print(f"server name: Lab {{number}} {{part}}")
    sys.stdout.flush()
    time.sleep(0.01)
print("server name: The last", flush=True)
time.sleep(1000)
"""


def programs(tray, name):
    return [pid for pid in descendants(tray.pid) if command_name(pid) == name]


def test_a_joined_server_is_connected_and_reports_its_name(world, start_tray):
    world.use_sandbox_agent()
    world.use_sandbox_tailnet()
    server, = world.add_servers(1)
    tray = start_tray()
    tray.log_line("1 of 1 server connected")
    entry = eventually(lambda: next((e for e in world.registry() if "serverName" in e
                                     and "serverAccent" in e and "address" in e), None))
    assert entry["id"] == server and entry["label"] == "Server 1"
    tray.log_line("agent enrolled", 15)


@without_sanitizers("slow programs do not report within a second")
def test_learned_addresses_restart_the_agent_once(world, start_tray):
    starts, move = world.root / "agent-starts", world.root / "move"
    world.use_agent_script(f"#!/bin/sh\necho >>{starts}\nexec {SANDBOX}/zephyl-agent \"$@\"\n")
    world.use_tailnet_script("tailscaled", "#!/bin/sh\nexec sleep 1000\n")
    world.use_tailnet_script("zephyl-tailnet", ADDRESS.format(move=move))
    world.add_servers(3)
    tray = start_tray()

    def start_count():
        return len(starts.read_text()) if starts.exists() else 0
    eventually(lambda: all("address" in entry for entry in world.registry()))
    eventually(lambda: start_count() == 2, what="a restart")
    tray.log_line("3 of 3 servers connected")
    began = time.monotonic()
    move.touch()
    eventually(lambda: start_count() > 2, what="a restart for the new address")
    # The tray gathers addresses for a second. Another restart for the first ones would come earlier.
    assert time.monotonic() - began > 1.5 and start_count() == 3
    assert "https://moved.example" in [entry["address"] for entry in world.registry()]
    eventually(lambda: len(programs(tray, "zephyl-agent")) == 1, what="the end of the other agents")


def test_a_pair_that_loses_a_child_is_restarted(world, start_tray):
    world.use_agent_script("#!/bin/sh\nexec sleep 1000\n")
    world.use_sandbox_tailnet()
    world.add_servers(1)
    tray = start_tray()
    tray.log_line("1 of 1 server connected")
    daemon, = programs(tray, "tailscaled")
    client, = programs(tray, "zephyl-tailnet")
    os.kill(daemon, signal.SIGKILL)
    tray.log_line("[tray] tailscaled terminated")
    tray.log_line("[tray] retrying the tailnet in 2s (attempt 1/6)")
    eventually(lambda: not is_alive(client))
    tray.log_line("0 of 1 server connected")
    tray.lines.clear()
    tray.log_line("1 of 1 server connected")


@without_sanitizers("a sanitizer takes memory of its own")
def test_fifty_servers_start_and_stop_side_by_side(world, start_tray):
    world.use_agent_script("#!/bin/sh\nexec sleep 1000\n")
    world.use_tailnet_script("tailscaled", "#!/bin/sh\nexec sleep 1000\n")
    world.use_tailnet_script("zephyl-tailnet",
                             "#!/bin/sh\necho data tunnel on http://127.100.0.1:80\nexec sleep 1000\n")
    world.add_servers(50)
    began = time.monotonic()
    tray = start_tray()
    tray.log_line("50 of 50 servers connected", 20)
    assert time.monotonic() - began < 15  # one after the other: 50 s
    fields = dict(line.split(":", 1) for line in
                  pathlib.Path(f"/proc/{tray.pid}/status").read_text().splitlines())
    assert int(fields["Threads"]) <= 8
    assert kilobytes(tray.pid, "Pss") < 8000
    children = tray.children()
    assert len(children) >= 101
    assert tray.stop() == 0
    assert not any(map(is_alive, children))


def test_children_that_ignore_sigterm_share_one_grace_period(world, start_tray):
    world.use_agent_script("#!/bin/sh\nexec sleep 1000\n")
    world.use_tailnet_script("tailscaled", STUBBORN.format(first=""))
    world.use_tailnet_script("zephyl-tailnet", STUBBORN.format(first="echo data tunnel on a:80\n"))
    world.add_servers(10)
    tray = start_tray()
    tray.log_line("10 of 10 servers connected")
    children = tray.children()
    began = time.monotonic()
    assert tray.stop() == 0
    assert 2.5 < time.monotonic() - began < 4.5
    for pid in children:
        eventually(lambda pid=pid: not is_alive(pid), 2, f"the end of {pid}")


def test_each_child_of_a_server_has_its_own_grace_period(world, start_api):
    world.use_agent_script("#!/bin/sh\nexec sleep 1000\n")
    world.use_tailnet_script("tailscaled", "#!/bin/sh\ntrap 'sleep 3.5; exit 0' TERM\n"
                                           "while :; do sleep 0.05; done\n")
    world.use_tailnet_script("zephyl-tailnet", STUBBORN.format(first="echo data tunnel on a:80\n"))
    server, = world.add_servers(1)
    api = start_api()
    api.tray.log_line("1 of 1 server connected")
    client, = programs(api.tray, "zephyl-tailnet")
    began = time.monotonic()
    api.do("POST", f"/servers/{server}/enabled", {"enabled": False})
    assert 3.5 <= time.monotonic() - began < 5.5
    killed = [line for line in api.tray.lines if "ignored SIGTERM" in line]
    assert killed == [f"[tray] {client} ignored SIGTERM; killing it"]


def test_the_tray_stays_responsive_while_a_servers_children_end(world, start_api):
    world.use_agent_script("#!/bin/sh\nexec sleep 1000\n")
    world.use_tailnet_script("tailscaled", STUBBORN.format(first=""))
    world.use_tailnet_script("zephyl-tailnet", STUBBORN.format(first="echo data tunnel on a:80\n"))
    first, second = world.add_servers(2)
    api = start_api()
    api.tray.log_line("2 of 2 servers connected")
    with concurrent.futures.ThreadPoolExecutor() as requests:
        began = time.monotonic()
        disabled = requests.submit(api.do, "POST", f"/servers/{first}/enabled", {"enabled": False})
        removed = requests.submit(api.do, "DELETE", f"/servers/{second}")
        for _ in range(20):
            started = time.monotonic()
            api.get("/status")
            assert time.monotonic() - started < 0.5
        assert not disabled.done() and not removed.done()
        disabled.result()
        removed.result()
    assert 5.5 < time.monotonic() - began < 8, "the client and then the daemon have 3 s each"
    assert programs(api.tray, "tailscaled") == [] and programs(api.tray, "zephyl-tailnet") == []
    assert [entry["id"] for entry in world.registry()] == [first]


@without_sanitizers("a sanitizer takes memory of its own")
def test_a_flood_of_reports_costs_little_and_the_last_one_is_stored(world, start_api):
    world.use_agent_script("#!/bin/sh\nexec sleep 1000\n")
    world.use_tailnet_script("tailscaled", "#!/bin/sh\nexec sleep 1000\n")
    world.use_tailnet_script("zephyl-tailnet", FLOOD)
    world.add_servers(1)
    api = start_api()
    before = kilobytes(api.tray.pid, "Anonymous")
    api.tray.log_line("1 of 1 server connected")

    def is_stored():
        started = time.monotonic()
        api.get("/status")
        assert time.monotonic() - started < 0.5
        return any(entry.get("serverName") == "The last" for entry in world.registry())
    eventually(is_stored, 30, "the last name")
    assert kilobytes(api.tray.pid, "Anonymous") < before + 2048


def test_the_last_output_of_a_client_is_processed(world, start_tray):
    world.use_agent_script("#!/bin/sh\nexec sleep 1000\n")
    world.use_tailnet_script("tailscaled", "#!/bin/sh\nexec sleep 1000\n")
    world.use_tailnet_script("zephyl-tailnet",
                             "#!/bin/sh\nprintf 'server name: Lab\nENROLMENT FAILED: key expired'\n")
    world.add_servers(1)
    tray = start_tray()
    tray.log_line("tailscaled terminated")
    assert not any("retrying" in line for line in tray.lines)
    eventually(lambda: world.registry()[0].get("serverName") == "Lab")


def test_hostile_output_costs_little_and_reaches_no_screen(world, start_tray):
    world.use_agent_script("#!/bin/sh\nexec sleep 1000\n")
    world.use_tailnet_script("tailscaled", "#!/bin/sh\nexec sleep 1000\n")
    world.use_tailnet_script(
        "zephyl-tailnet",
        "#!/bin/sh\n"
        "head -c 1000000 /dev/zero | tr '\\0' x; echo\n"
        "printf 'server name: L\\033[31mab\\a\\n'\n"
        "printf '\\377\\376 server accent: #bad\\n'\n"
        "printf 'data tun'; sleep 0.2; printf 'nel on http://a:80\\n'\n"
        "exec sleep 1000\n")
    world.add_servers(1)
    tray = start_tray()
    tray.log_line("1 of 1 server connected")
    entry, = world.registry()
    assert entry["serverName"] == "L[31mab"
    assert "serverAccent" not in entry
    assert not any("\x1b" in line or "\a" in line for line in tray.lines)

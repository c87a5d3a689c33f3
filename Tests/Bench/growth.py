#!/usr/bin/env python3
"""Measures the tray with growing numbers of servers and folders.

    Tests/Bench/growth.py [--seconds S] [--servers N...] [--folders N...] [--json FILE]
                          [--only table|flood|failures]

Prints three results:

  table         one row each for 1, 10, 50 and 250 servers (--servers) with 10 folders, and for one
                server with 1,000 and 10,000 folders (--folders)
  flood         the load while the agent sends 1,000 events per second that each change the menu
  failures      the recovery after all tailnet programs of the tray with the most servers were killed

The figures in brackets are those of bare_tray.c, a minimal program of this kind, from the same run.
--json writes all figures to a file for plot_growth.py. Needs gcc, libsystemd and dbus-daemon.

The columns of the table are medians of five starts (item, ready), of ten events (publish), or of one
period of S idle seconds (default: 10):

  item          time from exec until the item is registered
  ready         the same, until the control port accepts connections, too
  memory        proportional memory (smaps_rollup) of the tray without its children
  threads       number of threads
  processor     processor time of all threads (schedstat)
  wake-ups      voluntary context switches of all threads
  publish       time from an event of the agent that changes a row to the signal on the bus; in
                brackets, the time of a round trip on the bus
  GET           median and 99th percentile of 300 sequential requests
"""

import argparse
import contextlib
import json
import os
import pathlib
import signal
import socket
import statistics
import subprocess
import sys
import threading
import time

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parent))
sys.path.insert(0, str(pathlib.Path(__file__).resolve().parents[1] / "EndToEnd"))

from idle_cost import cpu_seconds, memory  # noqa: E402
from support.control_api import TOKEN_HEADER, Window  # noqa: E402
from support.scripted_agent import HEALTHY_ACTIVITY, ScriptedAgent  # noqa: E402
from support.session_bus import SessionBus, Watcher  # noqa: E402
from support.tray import Tray, World, command_line, descendants, eventually  # noqa: E402

STARTS, REQUESTS, PUBLISHED = 5, 300, 10
FLOOD_PER_SECOND, FLOOD_SERVERS = 1000, 10

DAEMON = "#!/bin/sh\nexec sleep 100000\n"
CLIENT = """#!/bin/sh
echo 'data tunnel on http://127.0.0.1:1'
echo 'joined the tailnet'
exec sleep 100000
"""


class ConnectedAgent(ScriptedAgent):
    """An agent with persistent connections that is connected to every server and shares folders."""

    def __init__(self, port, servers, folders):
        super().__init__(port, keeps_connections=True)
        connections = [{"serverId": each, "state": "connected"} for each in servers]
        roots = [{"root": f"/home/user/projects/folder-{number}", "name": f"folder-{number}",
                  "servers": servers[:1]} for number in range(folders)]
        self.streams = []
        self.server.handle_error = lambda *_: None  # a tray that exits resets its connections
        self.answers |= {
            "/api/status": json.dumps({"state": "connected", "connections": connections}).encode(),
            "/api/roots": json.dumps({"roots": roots}).encode(),
            "/api/events": self._open_stream,
        }

    def _open_stream(self, handler):
        handler.send_response(200)
        handler.end_headers()
        self.streams.append(handler.wfile)
        self.closing.wait()

    def send(self, data):
        """Writes data to every event stream. Ignores closed ones."""
        for stream in self.streams:
            with contextlib.suppress(OSError, ValueError):  # the stream of an earlier tray
                stream.write(data)


def event(number):
    """Returns an activity event whose row in the menu is different for each number."""
    grant = {"path": f"/etc/file-{number}", "root": "/home/user/projects/folder-0",
             "kind": "path", "grantedAt": number}
    return f"data: {json.dumps(dict(HEALTHY_ACTIVITY, escapeGrants=[grant]))}\n\n".encode()


class Scene:
    """Owns a bus with a watcher, an agent, and a world for a tray with `servers` servers."""

    def __init__(self, servers, folders):
        self.world = World()
        self.bus = SessionBus().start()
        self.world.environment["DBUS_SESSION_BUS_ADDRESS"] = self.bus.address
        self.servers = self.world.add_servers(servers)
        self.world.use_agent_script("#!/bin/sh\nexit 1\n")  # not run, because an agent answers
        self.world.use_tailnet_script("tailscaled", DAEMON)
        self.world.use_tailnet_script("zephyl-tailnet", CLIENT)
        self.window = Window(self.world)
        self.agent = ConnectedAgent(self.world.agent_port, self.servers, folders)
        self.peer = self.bus.peer()
        self.watcher = Watcher(self.peer)

    def start_tray(self):
        """Returns a new tray and the time of its start. The caller stops it."""
        begin = time.monotonic()
        tray = Tray(self.world, "--desktop")
        return tray, begin

    def start_reference(self, program):
        """Returns a new process of bare_tray.c and the time of its start. The caller ends it."""
        begin = time.monotonic()
        ports = [str(self.world.agent_port), str(self.world.control_port)]
        process = subprocess.Popen([program, *ports, str(2 * len(self.servers))],
                                   env=self.world.environment, stdin=subprocess.DEVNULL)
        return process, begin

    def milliseconds_to_ready(self, begin, starts):
        """Returns the times from `begin` until the item was registered, and until the control port
        was open, too. Requires that this is the `starts`-th program of the scene."""
        address = ("127.0.0.1", self.world.control_port)

        def accepts():
            with socket.socket() as probe:
                return probe.connect_ex(address) == 0
        eventually(accepts, 60, "an open control port")
        listening = time.monotonic()
        eventually(lambda: len(self.watcher.times) >= starts, 60, "a registered item")
        registered = self.watcher.times[starts - 1]
        return 1000 * (registered - begin), 1000 * (max(registered, listening) - begin)

    def close(self):
        self.agent.close()
        self.bus.close()
        self.world.remove()


def wake_ups(pid):
    """Returns the voluntary context switches of all threads so far."""
    total = 0
    for task in pathlib.Path(f"/proc/{pid}/task").iterdir():
        for line in (task / "status").read_text().splitlines():
            if line.startswith("voluntary_ctxt_switches"):
                total += int(line.split()[1])
    return total


def idle(pid, seconds):
    """Returns the processor time in milliseconds and the wake-ups, both per second."""
    before = cpu_seconds(pid), wake_ups(pid)
    time.sleep(seconds)
    used, woken = cpu_seconds(pid) - before[0], wake_ups(pid) - before[1]
    return 1000 * used / seconds, woken / seconds


def request_time(port, path, token):
    """Returns the milliseconds until the connection is closed after a complete answer."""
    begin = time.monotonic()
    with socket.create_connection(("127.0.0.1", port), timeout=30) as connection:
        connection.sendall(f"GET {path} HTTP/1.1\r\n{TOKEN_HEADER}: {token}\r\n\r\n".encode())
        status = b""
        while piece := connection.recv(1 << 16):
            status = status or piece[:12]
    assert status == b"HTTP/1.1 200", status
    return 1000 * (time.monotonic() - begin)


def latency(port, path, token=""):
    """Returns the median and the 99th percentile in milliseconds."""
    times = sorted(request_time(port, path, token) for _ in range(REQUESTS))
    return statistics.median(times), times[-REQUESTS // 100 - 1]


def publish_times(scene):
    """Returns two medians in milliseconds: from an event to the signal of the menu, and of a round
    trip on the bus."""
    published, round_trips = [], []
    for number in range(PUBLISHED):
        time.sleep(1.2)  # the tray limits the rate of its signals
        earlier, begin = len(scene.peer.signals), time.monotonic()
        scene.agent.send(event(number))
        signals = eventually(lambda: [each for each in scene.peer.signals[earlier:]
                                      if each.member in ("ItemsPropertiesUpdated", "LayoutUpdated")],
                             10, "a signal of the menu")
        published.append(1000 * (signals[0].time - begin))
        begin = time.monotonic()
        scene.peer.call("org.freedesktop.DBus", "/", "org.freedesktop.DBus.Peer", "Ping")
        round_trips.append(1000 * (time.monotonic() - begin))
    return statistics.median(published), statistics.median(round_trips)


def settle(pid, children):
    """Waits until the program has `children` descendants and, for at most 10 s, until it is idle.

    Fails if the program ends."""
    def all_run():
        assert os.path.exists(f"/proc/{pid}/exe"), f"process {pid} has ended"
        return len(descendants(pid)) >= children
    eventually(all_run, 60, "children")

    def is_idle():
        before = cpu_seconds(pid)
        time.sleep(1)
        return cpu_seconds(pid) - before < 0.02
    with contextlib.suppress(AssertionError):  # many folders keep the tray busy
        eventually(is_idle, 10)
    time.sleep(2)


def costs(pid, seconds):
    """Returns the columns of the table that both programs have, measured over idle seconds."""
    processor, woken = idle(pid, seconds)
    return {"memory": memory(pid)[0] / 1000, "processor": processor, "wake-ups": woken,
            "threads": len(os.listdir(f"/proc/{pid}/task"))}


def start_several(start, close, scene, first):
    """Starts a program STARTS times and closes all but the last. Returns the median times and the
    last program. `first` is the number of the first start in the scene."""
    times = []
    for number in range(STARTS):
        program, begin = start()
        try:
            times.append(scene.milliseconds_to_ready(begin, first + number))
        except AssertionError:
            close(program)
            raise
        if number < STARTS - 1:
            close(program)
    item, ready = map(statistics.median, zip(*times))
    return {"item": item, "ready": ready}, program


def measure_tray(scene, seconds):
    def close(tray):
        scene.window.environment_file.unlink(missing_ok=True)
        tray.stop()
    result, tray = start_several(scene.start_tray, close, scene, 1)
    try:
        scene.watcher.item(STARTS).layout()  # the tray signals changes only to a host that has read the menu
        settle(tray.pid, 2 * len(scene.servers))
        token, port = scene.window.token, scene.world.control_port
        result |= costs(tray.pid, seconds)
        result["GET /status"] = latency(port, "/status", token)
        result["GET /servers"] = latency(port, "/servers", token)
        result["publish"], result["round trip"] = publish_times(scene)
    finally:
        tray.stop()
    return result


def end_reference(process):
    """Kills the process and its children."""
    children = descendants(process.pid)
    process.kill()
    process.wait()
    for child in children:
        with contextlib.suppress(ProcessLookupError):
            os.kill(child, signal.SIGKILL)


def measure_reference(scene, program, seconds):
    result, process = start_several(lambda: scene.start_reference(program), end_reference, scene,
                                    STARTS + 1)
    try:
        settle(process.pid, 2 * len(scene.servers))
        result |= costs(process.pid, seconds)
        result["GET /status"] = latency(scene.world.control_port, "/status")
    finally:
        end_reference(process)
    return result


def measure(servers, folders, program, seconds):
    """Returns one row of the table."""
    scene = Scene(servers, folders)
    try:
        tray = measure_tray(scene, seconds)
        return {"servers": servers, "folders": folders, "tray": tray,
                "bare": measure_reference(scene, program, seconds)}
    finally:
        scene.close()


HEAD = ("servers", "folders", "item", "ready", "memory", "threads", "processor", "wake-ups",
        "publish", "GET /status", "GET /servers")


def print_head():
    print("| " + " | ".join(HEAD) + " |\n" + "|---" * len(HEAD) + "|", flush=True)


def print_row(case):
    tray, bare = case["tray"], case["bare"]

    def pair(name, form):
        return f"{tray[name]:{form}} ({bare[name]:{form}})"

    def latencies(name):
        text = "{:.2f}, {:.2f}".format(*tray[name])
        return text + (" ({:.2f}, {:.2f})".format(*bare[name]) if name in bare else "")
    cells = [f"{case['servers']:,}", f"{case['folders']:,}", pair("item", ".1f") + " ms",
             pair("ready", ".1f") + " ms", pair("memory", ".1f") + " MB", pair("threads", "d"),
             pair("processor", ".2f") + " ms/s", pair("wake-ups", ".1f") + " /s",
             f"{tray['publish']:.1f} ({tray['round trip']:.1f}) ms", latencies("GET /status") + " ms",
             latencies("GET /servers") + " ms"]
    print("| " + " | ".join(cells) + " |", flush=True)


def measure_flood(seconds):
    """Returns the figures of a tray during a flood of events that each change the menu."""
    scene, stopping = Scene(FLOOD_SERVERS, 10), threading.Event()
    tray, _ = scene.start_tray()

    def flood():
        number, begin = 0, time.monotonic()
        while not stopping.is_set():
            number += 1
            scene.agent.send(event(number))
            stopping.wait(max(0, begin + number / FLOOD_PER_SECOND - time.monotonic()))
        sent.append(number / (time.monotonic() - begin))

    sent, sender = [], threading.Thread(target=flood)
    try:
        item = scene.watcher.item()
        item.layout()
        settle(tray.pid, 2 * FLOOD_SERVERS)
        sender.start()
        time.sleep(2)
        used, before, signals = cpu_seconds(tray.pid), memory(tray.pid)[0], len(item.signals())
        time.sleep(seconds)
        result = {"processor": 100 * (cpu_seconds(tray.pid) - used) / seconds,
                  "signals": (len(item.signals()) - signals) / seconds,
                  "memory": [before / 1000, memory(tray.pid)[0] / 1000],
                  "GET /status": latency(scene.world.control_port, "/status", scene.window.token)}
        stopping.set()
        sender.join()
        result["events"] = sent[0]
        return result
    finally:
        stopping.set()
        tray.stop()
        scene.close()


def measure_failures(servers):
    """Kills all tailnet programs of a tray at once. Returns how long the tray takes to start all of
    them again and how it answers requests during that time."""
    scene = Scene(servers, 10)
    tray, _ = scene.start_tray()
    try:
        scene.watcher.item().layout()
        settle(tray.pid, 2 * servers)
        token, port = scene.window.token, scene.world.control_port
        latency_before = latency(port, "/status", token)
        before, used = memory(tray.pid)[0], cpu_seconds(tray.pid)
        children = [pid for pid in descendants(tray.pid)
                    if command_line(pid).strip() == "sleep 100000"]
        begin, slowest = time.monotonic(), 0
        for pid in children:
            with contextlib.suppress(ProcessLookupError):  # The tray ends the other half of a pair.
                os.kill(pid, signal.SIGKILL)
        old = set(children)
        while len([pid for pid in descendants(tray.pid) if pid not in old]) < len(children):
            assert time.monotonic() < begin + 120, "the children were not all started again"
            for _ in range(10):
                slowest = max(slowest, request_time(port, "/status", token))
                time.sleep(0.01)
        recovered = time.monotonic() - begin
        settle(tray.pid, 2 * servers)
        return {"children": len(children), "recovered": recovered, "slowest": slowest,
                "latency before": latency_before, "processor": cpu_seconds(tray.pid) - used,
                "memory": [before / 1000, memory(tray.pid)[0] / 1000]}
    finally:
        tray.stop()
        scene.close()


def print_flood(flood):
    print(f"\nFlood of {flood['events']:.0f} events/s that each change the menu, {FLOOD_SERVERS} "
          f"servers: {flood['processor']:.1f} % of a core, {flood['signals']:.1f} signals/s, memory "
          "{:.1f} MB before and {:.1f} MB after, GET /status {:.2f} ms, 99th percentile {:.2f} ms"
          .format(*flood["memory"], *flood["GET /status"]), flush=True)


def print_failures(failures):
    print("\n{children} children killed at once: all started again after {recovered:.1f} s, "
          "{processor:.2f} s of processor time, slowest GET /status {slowest:.1f} ms".format(**failures)
          + " (before: {:.2f} ms, 99th percentile {:.2f} ms), memory {:.1f} MB before and {:.1f} MB after"
          .format(*failures["latency before"], *failures["memory"]), flush=True)


def compile_reference(directory):
    """Returns the path of the compiled bare_tray.c."""
    program = directory / "bare_tray"
    subprocess.run(["gcc", "-O2", "-o", program, pathlib.Path(__file__).with_name("bare_tray.c"),
                    "-lsystemd"], check=True)
    return program


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--seconds", type=float, default=10)
    parser.add_argument("--servers", type=int, nargs="*", default=[1, 10, 50, 250])
    parser.add_argument("--folders", type=int, nargs="*", default=[1000, 10000])
    parser.add_argument("--only", choices=["table", "flood", "failures"])
    parser.add_argument("--json", type=pathlib.Path)
    options = parser.parse_args()
    figures = {"load": os.getloadavg()[0], "cases": []}
    print(f"Load average at the start: {figures['load']:.1f}. In brackets: the bare program; for "
          "publish, a round trip on the bus.\n")
    if options.only in (None, "table"):
        home = World()
        program = compile_reference(home.root)
        print_head()
        cases = [(each, 10) for each in options.servers] + [(1, each) for each in options.folders]
        for servers, folders in cases:
            figures["cases"].append(measure(servers, folders, program, options.seconds))
            print_row(figures["cases"][-1])
        home.remove()
    if options.only in (None, "flood"):
        figures["flood"] = measure_flood(options.seconds)
        print_flood(figures["flood"])
    if options.only in (None, "failures"):
        figures["failures"] = measure_failures(max(options.servers))
        print_failures(figures["failures"])
    if options.json:
        options.json.write_text(json.dumps(figures, indent=1) + "\n")


if __name__ == "__main__":
    main()

"""One tray under a seeded random mix of faults and user actions, with checks of its invariants."""

import collections
import http.client
import json
import os
import pathlib
import random
import resource
import shutil
import signal
import socket
import subprocess
import threading
import time
import urllib.error

from gi.repository import GLib

from support.approvals import Agent
from support.control_api import ControlApi, Window
from support.fault_dialogs import FaultDialogs
from support.session_bus import SessionBus, Watcher, outline, rows
from support.tray import SANITIZERS, Tray, World, command_name, descendants, eventually, processes_of

SERVERS = 4
ANSWER_SECONDS = 1.0
QUIET_SECONDS = 3.0
END_SECONDS = 8.0
FAULTY = ("zephyl-agent", "tailscaled", "zephyl-tailnet")


class Violation(Exception):
    """An invariant was violated."""


class FaultRun:
    """The tray, its environment, and a record of all requests to it."""

    def __init__(self, seed, slowness=1.0):
        self.random = random.Random(seed)
        self.slowness = slowness
        self.events = collections.deque(maxlen=40)
        self.count = 0
        self.seen = collections.Counter()  # the number of checks of each kind
        self.begun = time.monotonic()
        self.resume = []       # (time, action) that ends a fault
        self.acknowledged = {}  # (server, field) -> the values that the registry may hold
        self.requests = {}     # id of a request of the agent -> its target
        self.agent_at = None   # the agent process of the requests
        self.world = World()
        self.world.use_sandbox_agent()
        self.world.use_sandbox_tailnet()
        self.dialogs = FaultDialogs(self.world)
        self.window = Window(self.world)
        self.bus = SessionBus().start()
        self.world.environment["DBUS_SESSION_BUS_ADDRESS"] = self.bus.address
        self.peer = self.bus.peer()
        self.watcher = Watcher(self.peer)
        self.world.base.mkdir(parents=True)
        self.own_disk = os.geteuid() == 0 and shutil.which("mount") and subprocess.run(
            ["mount", "-t", "tmpfs", "-o", "size=2m,mode=0700", "tmpfs", self.world.base],
            check=False).returncode == 0
        self.servers = self.world.add_servers(SERVERS)
        self.tray = Tray(self.world, "--desktop")
        self.api = ControlApi(self.world.control_port, self.window.token)
        self.agent = Agent(self.world.agent_port)
        eventually(self._agent_answers, 30 * slowness, "an agent that answers")
        self.item = self.watcher.item()
        # From before the first fault, because two of them at once must not keep each other's limit.
        self.descriptor_limit = resource.prlimit(self.tray.pid, resource.RLIMIT_NOFILE)

    def close(self):
        self.tray.close()
        self.bus.close()
        if self.own_disk:
            subprocess.run(["umount", self.world.base], check=True)
        self.world.remove()

    def note(self, text):
        self.count += 1
        self.events.append(f"{time.monotonic() - self.begun:8.2f} {text}")

    def later(self, seconds, action):
        self.resume.append((time.monotonic() + seconds, action))

    def end_faults(self, all_of_them=False):
        now = time.monotonic()
        due = [each for each in self.resume if all_of_them or each[0] <= now]
        self.resume = [each for each in self.resume if each not in due]
        for _, action in due:
            action()

    def _agent_answers(self):
        try:
            return self.agent.call("GET", "/api/status")
        except (OSError, http.client.HTTPException, ValueError):
            return None

    # Faults.

    def hurt_child(self):
        children = [pid for pid in descendants(self.tray.pid) if command_name(pid) in FAULTY]
        if self.random.random() < 0.8:  # a dead agent is not restarted, and decides nothing
            children = [pid for pid in children if command_name(pid) != "zephyl-agent"]
        if not children:
            return
        pid = self.random.choice(sorted(children))
        number = self.random.choice([signal.SIGKILL, signal.SIGTERM, signal.SIGSTOP, signal.SIGABRT])
        self.note(f"{number.name} to {command_name(pid)} {pid}")
        send(pid, number)
        if number == signal.SIGSTOP:
            self.later(self.random.uniform(0.1, 5), lambda: send(pid, signal.SIGCONT))

    def fail_relay(self):
        failing = self.world.state_directory(self.random.choice(self.servers)) / "fail"
        self.note(f"the relay of {failing.parent.parent.name[:8]} cannot be reached")
        try:
            failing.touch()
        except OSError:
            return
        self.later(self.random.uniform(1, 10), lambda: failing.unlink(missing_ok=True))

    def change_dialogs(self):
        mode = self.random.choice(FaultDialogs.MODES)
        self.note(f"dialogs: {mode}")
        self.dialogs.set(mode)

    def suspend_bus(self):
        self.note("the bus stands still")
        self.bus.suspend()
        time.sleep(self.random.uniform(0.05, 1.0))
        self.bus.resume()

    def lose_watcher(self):
        self.note("the watcher goes and returns")
        self.watcher.peer.release("org.kde.StatusNotifierWatcher")
        time.sleep(self.random.uniform(0, 0.3))
        before = len(self.watcher.items)
        self.watcher.peer.own("org.kde.StatusNotifierWatcher")
        self.item = self.watcher.item(before + 1, 10 * self.slowness)

    def block_registry(self):
        """Fills the disk of the base directory, or makes it read-only if it has no separate disk."""
        self.note("the registry cannot be written")
        base, seconds = self.world.base, self.random.uniform(0.2, 3)
        if not self.own_disk:
            base.chmod(0o500)
            return self.later(seconds, lambda: base.chmod(0o700))
        filler = base / "filler"
        try:
            with filler.open("wb", 0) as file:
                while file.write(bytes(1024)):
                    pass
        except OSError:
            pass
        self.later(seconds, lambda: filler.unlink(missing_ok=True))

    def spare_descriptors(self):
        pid = self.tray.pid
        soft, hard = self.descriptor_limit
        used = len(os.listdir(f"/proc/{pid}/fd"))
        self.note(f"descriptors: {used} used and 4 more")
        resource.prlimit(pid, resource.RLIMIT_NOFILE, (used + 4, hard))
        self.later(self.random.uniform(0.2, 3),
                   lambda: resource.prlimit(pid, resource.RLIMIT_NOFILE, (soft, hard)))

    def misbehave_as_client(self):
        kind = self.random.choice(["stall", "cut", "garbage", "flood"])
        self.note(f"control client: {kind}")
        head = f"GET /status HTTP/1.1\r\nX-Zephyl-Onboard-Token: {self.api.token}\r\n".encode()
        sockets = []
        for _ in range(50 if kind == "flood" else 1):
            try:
                sockets.append(socket.create_connection(("127.0.0.1", self.api.port), timeout=1))
                sockets[-1].sendall({"stall": head, "cut": head[:20], "flood": head + b"\r\n",
                                     "garbage": self.random.randbytes(500)}[kind])
            except OSError:
                break
        wait = self.random.uniform(0.5, 5) if kind == "stall" else 0
        self.later(wait, lambda: [each.close() for each in sockets])

    # Actions of a user, an agent and a window.

    def change_servers(self):
        """Changes several servers at once, each on its own thread."""
        chosen = self.random.sample(self.servers, self.random.randint(1, 3))
        changes = []
        for server in chosen:
            field = self.random.choice(["label", "accent", "enabled"])
            value = {"label": f"Name {self.random.randrange(10**6)}",
                     "accent": f"#{self.random.randrange(1 << 24):06x}",
                     "enabled": self.random.random() < 0.6}[field]
            changes.append((server, field, value))
        self.note(f"changes: {[(server[:8], field, value) for server, field, value in changes]}")
        threads = [threading.Thread(target=self._change, args=change) for change in changes]
        for thread in threads:
            thread.start()
        for thread in threads:
            thread.join()

    def _change(self, server, field, value):
        possible = self.acknowledged.setdefault((server, field), set())
        try:
            answer = self.api.ask("POST", f"/servers/{server}/{field}", {field: value})
        except (OSError, http.client.HTTPException, ValueError):
            answer = None
        self.seen["changes acknowledged" if answer == (200, {"ok": True}) else
                  "changes not acknowledged"] += 1
        if answer == (200, {"ok": True}):
            possible.clear()
        if answer is None or answer[0] == 200:
            possible.add(value)

    def raise_request(self):
        target = f"cat /etc/secret-{self.random.randrange(10**9)}"
        try:
            pid = self.tray_agent()
            identifier = self.agent.raise_request(target)
        except (OSError, http.client.HTTPException, ValueError):
            return
        if pid != self.agent_at:
            self.agent_at, self.requests = pid, {}
        self.note(f"request {identifier}: {target}")
        self.requests[identifier] = target

    def withdraw_request(self):
        if not self.requests:
            return
        identifier = self.random.choice(sorted(self.requests))
        self.note(f"request {identifier} is withdrawn")
        try:
            self.agent.call("DELETE", f"/sandbox/requests/{identifier}")
        except (OSError, http.client.HTTPException, ValueError):
            pass
        del self.requests[identifier]

    def restart_agent(self):
        self.note("agent restarted")
        try:
            self.api.ask("POST", "/agent/restart")
        except (OSError, http.client.HTTPException, ValueError):
            pass

    def use_menu(self):
        action = self.random.choice(["open", "close", "about to show", "click"])
        self.note(f"menu: {action}")
        try:
            if action == "click":
                row = self.random.choice(["Restart Tailnet", "Connect", "Agent Logs…"])
                found = [each for each, properties, _ in rows(self.item.layout())
                         if properties.get("label") == row]
                if row == "Connect":  # enables a server, without an acknowledgement
                    for server in self.servers:
                        if (server, "enabled") in self.acknowledged:
                            self.acknowledged[server, "enabled"].add(True)
                if found:
                    self.item.event(self.random.choice(found), "clicked")
            elif action == "about to show":
                self.item.about_to_show()
            else:
                self.item.event(0, {"open": "opened", "close": "closed"}[action])
        except GLib.Error as error:
            if "Timeout" in str(error):
                raise Violation(f"the menu did not answer: {error}") from error

    ACTIONS = [(hurt_child, 6), (fail_relay, 2), (change_dialogs, 3), (suspend_bus, 1),
               (lose_watcher, 1), (block_registry, 1), (spare_descriptors, 1),
               (misbehave_as_client, 4), (change_servers, 6), (raise_request, 6),
               (withdraw_request, 2), (restart_agent, 1), (use_menu, 5)]

    def tray_agent(self):
        return next((pid for pid in descendants(self.tray.pid)
                     if command_name(pid) == "zephyl-agent"), None)

    # Invariants.

    def check_answer(self):
        begun = time.monotonic()
        try:
            status, _ = self.api.ask("GET", "/status")
        except (OSError, http.client.HTTPException, ValueError) as error:
            if self.resume:  # descriptors may be exhausted
                return
            raise Violation(f"GET /status: {error!r}") from error
        duration = time.monotonic() - begun
        if status != 200 or duration > ANSWER_SECONDS * self.slowness:
            raise Violation(f"GET /status: {status} after {duration:.2f} s")

    def check_alive(self):
        if self.tray.process.poll() is not None:
            raise Violation(f"the tray ended with status {self.tray.process.returncode}")

    def check_registry(self):
        stored = {server["id"]: server for server in self.world.registry()}
        if list(stored) != self.servers:
            raise Violation(f"servers in the registry: {list(stored)}")
        defaults = {"label": "", "accent": None, "enabled": True}
        for (server, field), possible in self.acknowledged.items():
            found = stored[server].get(field, defaults[field])
            if possible and found not in possible:
                raise Violation(f"{server[:8]} {field}: {found!r}, acknowledged {possible!r}")

    def check_decisions(self):
        for identifier, target in list(self.requests.items()):
            try:
                if self.tray_agent() != self.agent_at:
                    return
                state = self.agent.state(identifier)
            except (OSError, http.client.HTTPException, ValueError, urllib.error.URLError):
                return
            self.seen[f"requests found {state}"] += 1
            allowed, denied = (self.dialogs.answers(kind, target) for kind in ("allow", "deny"))
            lost = self.dialogs.answers("hang", target)
            if state == "approved" and not allowed or state == "denied" and not denied + lost:
                raise Violation(f"request {identifier} is {state}, answers: {allowed} x allow, "
                                f"{denied} x deny, {lost} x hang")
            if allowed + denied > 1 and state != "pending":
                self.note(f"request {identifier} was asked about {allowed + denied} times")

    def check_menu(self):
        """Checks that the menu shows the servers by their names after a quiet time."""
        try:
            labels = str(outline(self.item.layout()))
        except GLib.Error as error:
            raise Violation(f"the menu could not be read: {error}") from error
        for server in self.api.get("/servers")["servers"]:
            if server["name"] not in labels:
                raise Violation(f"{server['name']!r} is not in the menu: {labels}")

    def be_quiet(self):
        self.end_faults(all_of_them=True)
        self.dialogs.set("deny")
        for pid in descendants(self.tray.pid):
            send(pid, signal.SIGCONT)
        self.item.event(0, "closed")  # an open menu is not updated
        time.sleep(QUIET_SECONDS * self.slowness)
        self.check_alive()
        self.check_answer()
        self.check_registry()
        self.check_decisions()
        self.check_menu()

    def footprint(self):
        status = pathlib.Path(f"/proc/{self.tray.pid}/status").read_text()
        value = {line.split(":")[0]: line.split()[1] for line in status.splitlines()
                 if line.startswith(("VmRSS", "Threads"))}
        return {"resident kB": int(value["VmRSS"]), "threads": int(value["Threads"]),
                "descriptors": len(os.listdir(f"/proc/{self.tray.pid}/fd"))}

    def run(self, minutes):
        end = time.monotonic() + 60 * minutes
        chosen, weights = zip(*self.ACTIONS)
        self.be_quiet()
        first, next_quiet = self.footprint(), time.monotonic() + 20
        while time.monotonic() < end:
            self.random.choices(chosen, weights)[0](self)
            if self.random.random() < 0.1 and not self.tray_agent():
                self.restart_agent()
            time.sleep(self.random.uniform(0, 0.2))
            self.end_faults()
            self.check_alive()
            self.check_answer()
            if self.random.random() < 0.2:
                self.check_decisions()
            if time.monotonic() > next_quiet:
                self.be_quiet()
                next_quiet = time.monotonic() + 20
        self.be_quiet()
        last = self.footprint()
        limits = {"resident kB": 3000, "threads": 8, "descriptors": 16}
        if SANITIZERS:  # they keep memory of their own
            del limits["resident kB"]
        for what, limit in limits.items():
            if last[what] - first[what] > limit:
                raise Violation(f"{what}: {first[what]} at first, {last[what]} at last")
        self.finish()
        return first, last

    def finish(self):
        self.tray.children()
        begun = time.monotonic()
        self.tray.send(signal.SIGTERM)
        status = self.tray.wait(60)
        duration = time.monotonic() - begun
        if status != 0 or duration > END_SECONDS * self.slowness:
            raise Violation(f"the end took {duration:.1f} s, status {status}")
        if left := processes_of(self.world.prefix):
            raise Violation(f"processes left: {[(pid, command_name(pid)) for pid in left]}")


def send(pid, number):
    try:
        os.kill(pid, number)
    except ProcessLookupError:
        pass

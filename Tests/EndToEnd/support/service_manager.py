"""A stand-in for the service manager of the user's session."""

import socket

from support.tray import eventually


class ServiceManager:
    """Receives what a service of the type "notify" reports."""

    def __init__(self, world, watchdog=None):
        """`watchdog`: the seconds after which a service that does not report would be killed."""
        path = world.root / "notify"
        self._socket = socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM)
        self._socket.bind(str(path))
        self._socket.setblocking(False)
        self._states = []
        self.environment = {"NOTIFY_SOCKET": str(path)}
        if watchdog is not None:
            self.environment["WATCHDOG_USEC"] = str(int(watchdog * 1_000_000))
        world.environment.update(self.environment)

    @property
    def states(self):
        """Everything that was reported, one assignment an item."""
        while True:
            try:
                self._states += self._socket.recv(4096).decode().split("\n")
            except BlockingIOError:
                return self._states

    def until(self, state, count=1, limit=10.0):
        eventually(lambda: self.states.count(state) >= count, limit, f"{state} {count} times")

    def close(self):
        self._socket.close()

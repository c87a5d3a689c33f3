"""A fake service manager."""

import socket

from support.tray import eventually


class ServiceManager:
    """Receives the notifications of a service of the type "notify"."""

    def __init__(self, world, watchdog=None):
        """`watchdog` is the watchdog interval of the service in seconds."""
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
        """Returns all received assignments."""
        while True:
            try:
                self._states += self._socket.recv(4096).decode().split("\n")
            except BlockingIOError:
                return self._states

    def until(self, state, count=1, limit=10.0):
        eventually(lambda: self.states.count(state) >= count, limit, f"{state} {count} times")

    def close(self):
        self._socket.close()

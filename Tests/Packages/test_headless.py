"""The installed tray on a system without a session bus, with an agent, operated by its commands."""

import http.client
import json
import os
import pathlib
import shutil
import signal
import subprocess
import tempfile

import pytest

from session import install
from support.tray import eventually, free_port

AGENTS = pathlib.Path("/usr/share/zephyl-tray/agent")


class HeadlessTray:
    """A tray in private directories that shares one folder through the sandbox's agent."""

    def __init__(self, agent):
        self.root = pathlib.Path(tempfile.mkdtemp(prefix="zephyl-"))
        self.folder = self.root / "project"
        self.folder.mkdir()
        AGENTS.mkdir()
        (AGENTS / "zephyl-agent").symlink_to(agent)
        self.port = free_port()
        self.environment = {"PATH": os.environ["PATH"], "HOME": str(self.root), "LANG": "C.UTF-8",
                            "AGENT_TRAY_PORT": str(self.port), "ZEPHYL_ONBOARD_PORT": str(free_port()),
                            "ZEPHYL_SANDBOX_FOLDERS": str(self.folder)}
        with open(self.root / "tray.log", "wb") as log:
            self.process = self.start("--headless", stdout=log, stderr=log)

    def start(self, *arguments, **streams):
        return subprocess.Popen(["zephyl-tray", *arguments], env=self.environment, stdin=subprocess.DEVNULL,
                                **streams)

    def run(self, *arguments):
        return subprocess.run(["zephyl-tray", *arguments], env=self.environment, stdin=subprocess.DEVNULL,
                              capture_output=True, text=True, timeout=30)

    def json(self, *arguments):
        return json.loads(self.run(*arguments, "--json").stdout)

    def ask_agent(self, method, path, body=None):
        connection = http.client.HTTPConnection("127.0.0.1", self.port, timeout=10)
        try:
            connection.request(method, path, body and json.dumps(body), {"content-type": "application/json"})
            return json.loads(connection.getresponse().read())
        finally:
            connection.close()

    def close(self):
        self.process.send_signal(signal.SIGTERM)
        status = self.process.wait(20)
        shutil.rmtree(AGENTS)
        shutil.rmtree(self.root)
        assert status == 0


@pytest.fixture
def headless(packages):
    install(packages / "current")
    tray = HeadlessTray(packages / "sandbox" / "zephyl-agent")
    yield tray
    tray.close()


def test_status_becomes_fine_once_the_agent_answers(headless):
    eventually(lambda: headless.run("status").returncode == 0, 30, "a status without a problem")
    status = headless.json("status")
    assert (status["mode"], status["folders"]) == ("headless", 1)
    assert headless.json("folders")[0]["path"] == str(headless.folder)


def test_a_request_is_listed_and_answered(headless):
    eventually(lambda: headless.run("status").returncode == 0, 30, "a status without a problem")
    raised = headless.ask_agent("POST", "/sandbox/requests", {"target": "cat /etc/hostname"})
    eventually(lambda: "cat /etc/hostname" in headless.run("requests").stdout, 20, "a request")
    assert headless.run("status").returncode == 1, "a request needs attention"
    answer = headless.run("answer", raised["id"], "deny")
    assert answer.returncode == 0, answer
    assert headless.ask_agent("GET", f"/sandbox/requests/{raised['id']}")["state"] == "denied"
    eventually(lambda: headless.run("status").returncode == 0, 20, "a status without a problem")


def test_a_followed_log_shows_what_the_agent_prints_later(headless):
    eventually(lambda: headless.run("status").returncode == 0, 30, "a status without a problem")
    follower = headless.start("logs", "--follow", stdout=subprocess.PIPE, text=True)
    try:
        starts = 0
        while starts < 2:
            line = follower.stdout.readline()
            assert line, "the follower ended"
            starts += "listening on" in line
            if starts == 1 and "listening on" in line:
                assert headless.run("restart-agent").returncode == 0
    finally:
        follower.kill()
        follower.communicate()

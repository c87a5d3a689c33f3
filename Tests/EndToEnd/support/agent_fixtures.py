"""Fixtures for tests of the sandbox's agent."""

import contextlib
import os

import pytest

from support.agent_process import RunningAgent


@pytest.fixture
def start(tmp_path):
    """Starts agents that share one home, and ends them after the test."""
    with contextlib.ExitStack() as running:
        def start_agent(*arguments, **environment):
            agent = RunningAgent(tmp_path / "home", *arguments, **environment)
            running.callback(agent.close)
            return agent

        yield start_agent


@pytest.fixture
def folder(tmp_path):
    """A folder with three text files, and many files that are not indexed."""
    root = tmp_path / "project"
    texts = {"readme.md": "alpha beta\n", "src/main.txt": "Beta gamma\n", "src/deep/er.txt": "",
             ".git/config": "hidden\n", "node_modules/x/index.js": "foreign\n", "build/out.txt": "made\n",
             "src/target/made.txt": "made\n"}
    for name, content in texts.items():
        (root / name).parent.mkdir(parents=True, exist_ok=True)
        (root / name).write_text(content)
    (root / "image.png").write_bytes(b"PNG\0\1\2beta")
    (tmp_path / "outside.txt").write_text("beta\n")
    (root / "link.txt").symlink_to(tmp_path / "outside.txt")
    (root / "way-out").symlink_to(tmp_path)
    os.mkfifo(root / "pipe")
    return root

"""The search path for programs when the tray is started in a source tree."""

import os
import shutil
import subprocess

import pytest

from support.tray import eventually

USER, STRANGER = 54321, 54399
PROGRAMS = ["target/release/zephyl-agent", "packages/tailnet-client/tailscaled",
            "packages/tailnet-client/zephyl-tailnet",
            "packages/desktop/src-tauri/target/release/zephyl-desktop"]

as_root = pytest.mark.skipif(os.geteuid() != 0 or shutil.which("setpriv") is None,
                             reason="needs root and setpriv, to have files of another user")


class Tree:
    """A source tree whose programs record that they ran. It is the tray's working directory."""

    def __init__(self, world):
        self.root = world.root / "tree"
        self.notes = world.root / "notes"
        self.marker = self.root / "pnpm-workspace.yaml"
        for name in PROGRAMS:
            program = self.root / name
            program.parent.mkdir(parents=True, exist_ok=True)
            program.write_text(f"#!/bin/sh\ntouch '{self.notes}/{program.name}'\nexec sleep 1000\n")
            program.chmod(0o755)
        self.marker.touch()
        self.notes.mkdir()
        self.notes.chmod(0o777)
        world.environment["ZEPHYL_DESKTOP_LAUNCH_CMD"] = f"touch '{self.notes}/command'"
        world.working_directory = self.root

    def ran(self):
        return {note.name for note in self.notes.iterdir()}


@pytest.fixture
def tree(world):
    return Tree(world)


def unpackage(world):
    (world.resources / "Info.json").unlink()


def refuses(tree, tray):
    """Waits until the tray has searched for agent and window, and asserts that it did not use the tree."""
    tray.log_line("No Rust agent binary found")
    tray.log_line("the desktop app is not installed")
    assert tray.stop() == 0
    assert tree.ran() == set()


def test_a_developers_tray_uses_programs_of_its_working_tree(world, start_tray, tree):
    unpackage(world)
    start_tray()
    eventually(lambda: {"zephyl-agent", "zephyl-desktop"} <= tree.ran())


def test_a_packaged_tray_uses_nothing_from_its_working_directory(world, start_tray, tree):
    world.add_servers(1)
    refuses(tree, start_tray())


def test_without_a_marker_nothing_in_the_working_directory_is_used(world, start_tray, tree):
    unpackage(world)
    tree.marker.unlink()
    refuses(tree, start_tray())


def test_a_packaged_tray_uses_programs_of_a_configured_tree(world, start_tray, tree):
    world.environment["ZEPHYL_REPO_ROOT"] = str(tree.root)
    start_tray()
    eventually(lambda: {"zephyl-agent", "zephyl-desktop"} <= tree.ran())


@pytest.mark.parametrize("what", ["root", "marker"])
@pytest.mark.parametrize("mode", [0o1777, 0o770])
def test_nothing_in_a_tree_that_others_can_write_is_used(world, start_tray, tree, what, mode):
    unpackage(world)
    getattr(tree, what).chmod(mode)
    tray = start_tray()
    tray.log_line(f"programs in {tree.root} are not used, because other users can write")
    refuses(tree, tray)
    assert len([line for line in tray.lines if "are not used" in line]) == 1


@as_root
@pytest.mark.parametrize("what", ["root", "marker"])
def test_nothing_in_a_tree_of_another_user_is_used(world, start_tray, tree, what):
    unpackage(world)
    os.chown(getattr(tree, what), STRANGER, STRANGER)
    refuses(tree, start_tray())


@as_root
def test_a_tree_of_root_is_used_and_a_tree_of_another_user_is_not(
        world, start_tray, tree):
    unpackage(world)
    subprocess.run(["chown", "-R", f"{USER}:{USER}", world.root], check=True)
    world.launcher = ["setpriv", f"--reuid={USER}", f"--regid={USER}", "--clear-groups"]
    os.chown(tree.root, STRANGER, STRANGER)
    refuses(tree, start_tray())
    os.chown(tree.root, 0, 0)
    start_tray()
    eventually(lambda: "zephyl-agent" in tree.ran())

"""A pre-authorization key is used once, and is then removed from memory."""

import json

import pytest

from support.control_api import start_api, window  # noqa: F401 (fixtures)
from support.memory import copies_in_memory
from support.tailnet import FINGERPRINT
from support.tray import command_line, descendants, eventually

SECTION = "kq7vgood2secret3of4the5lab6server7and8nobody9else"

# The allocator overwrites the beginning of freed memory.
REST = SECTION[16:]


def written(world, tray, api):
    """Returns everything that the tray has written."""
    yield "the log", "\n".join(tray.lines)
    yield "the diagnostics", json.dumps(api.get("/diagnostics"))
    yield "the servers", json.dumps(api.get("/servers"))
    for pid in [tray.pid, *descendants(tray.pid)]:
        yield f"the command line of {pid}", command_line(pid)
    for file in world.root.rglob("*"):
        if file.is_file() and not file.is_symlink() and world.prefix / "bin" not in file.parents:
            yield str(file), file.read_text(errors="replace")


def redeem(world, start_api, client=None):
    world.use_agent_script("#!/bin/sh\nexec sleep 1000\n")
    world.use_sandbox_tailnet()
    if client:
        (world.resources / "agent" / "zephyl-tailnet").unlink()
        world.use_tailnet_script("zephyl-tailnet", client)
    api = start_api()
    api.do("POST", "/invite", {"key": f"inv_v2_{FINGERPRINT}_{SECTION}"})
    return api


@pytest.mark.joins
def test_a_spent_key_leaves_memory(world, start_api):
    api = redeem(world, start_api)
    assert copies_in_memory(api.tray.pid, REST) > 0, "the search does not find existing text"
    api.tray.log_line("1 of 1 server connected")
    assert copies_in_memory(api.tray.pid, REST) == 0


@pytest.mark.joins
def test_while_a_key_is_kept_there_is_one_copy_of_it(world, start_api):
    api = redeem(world, start_api, "#!/bin/sh\necho data tunnel on a:80\nexec sleep 1000\n")
    api.tray.log_line("1 of 1 server connected")
    assert copies_in_memory(api.tray.pid, REST) == 1


@pytest.mark.joins
@pytest.mark.parametrize("ending", ["joined the tailnet", "ENROLMENT FAILED: bad key $ZEPHYL_PREAUTH_KEY"])
def test_a_key_printed_by_a_child_is_removed(world, start_api, ending):
    api = redeem(world, start_api, "#!/bin/sh\n"
                 "echo given $ZEPHYL_PREAUTH_KEY\n"
                 "echo server name: $ZEPHYL_PREAUTH_KEY\n"
                 f"echo {ending}\n"
                 "exec sleep 1000\n")
    entry = eventually(lambda: next((e for e in world.registry() if "serverName" in e), None))
    assert entry["serverName"] == "[redacted]"
    end = ending.split("$")[0]
    eventually(lambda: any(end in line for line in api.get("/diagnostics")["servers"][0]["log"]))
    for place, text in written(world, api.tray, api):
        assert SECTION not in text, place

"""Shared folders through the control API: the agent's answers, and changes sent to the agent."""

from support.control_api import shared_api, start_api, window  # noqa: F401
from support.tray import eventually, is_alive

IDLE = "#!/bin/sh\nexec sleep 1000\n"


def test_the_agents_folders_are_returned(world, start_api):
    world.use_sandbox_agent()
    api = start_api()
    roots = eventually(lambda: api.ask("GET", "/roots")[0] == 200 and api.get("/roots"), what="an agent")
    assert roots == {"roots": [{"root": str(world.folder), "name": "project"}]}


def test_an_unreachable_agent_is_a_bad_gateway(shared_api):
    status, answer = shared_api.ask("GET", "/roots")
    assert status == 502 and list(answer) == ["error"] and answer["error"]
    scope = {"root": "/x", "shared": True}
    assert shared_api.refusal("POST", "/servers/x/roots/scope", scope) == answer["error"]


def test_an_invalid_answer_of_the_agent_is_a_bad_gateway(world, scripted_agent, start_api):
    api = start_api()
    for nonsense in (b"[]", b"\x00\xff", b'{"roots": 7}', b'{"roots": [{"root": 7}]}'):
        scripted_agent.answers["/api/roots"] = nonsense
        status, answer = api.ask("GET", "/roots")
        assert status == 502 and list(answer) == ["error"] and answer["error"]


def test_a_refusal_of_the_agent_is_returned(world, scripted_agent, start_api):
    identifier, = world.add_servers(1)
    scripted_agent.answers["/api/roots"] = b'{"roots": [{"root": "/x", "name": "x", "servers": []}]}'
    api = start_api()
    # The scripted agent supports only GET.
    refusal = api.refusal("POST", f"/servers/{identifier}/roots/scope", {"root": "/x", "shared": True})
    assert refusal == "request failed (501)"


def test_an_agent_that_does_not_answer_delays_no_other_request(world, scripted_agent, start_api):
    api = start_api()
    scripted_agent.answers["/api/roots"] = scripted_agent.hang
    with api.connect() as waiting:
        waiting.sendall(api.head("GET /roots HTTP/1.1"))
        eventually(lambda: scripted_agent.count("/api/roots") >= 2)
        for _ in range(10):
            api.get("/status")
        scripted_agent.closing.set()
        assert waiting.recv(4096).startswith(b"HTTP/1.1 502 Bad Gateway\r\n")


def test_sharing_a_folder_requires_a_known_server_and_a_desktop(world, start_api):
    world.use_agent_script(IDLE)
    identifier, = world.add_servers(1)
    api = start_api()
    assert api.refusal("POST", "/servers/x/roots") == "That is not a Zephyl this machine knows about."
    assert api.refusal("POST", f"/servers/{identifier}/roots") == "There is no desktop to choose a folder on."


def test_a_folder_is_shared_with_exactly_the_given_servers(world, start_api):
    world.use_sandbox_agent()
    first, second = world.add_servers(2)
    api = start_api()
    folder = str(world.folder)
    eventually(lambda: api.ask("GET", "/roots")[0] == 200, what="an agent")

    def share(server, shared):
        api.do("POST", f"/servers/{server}/roots/scope", {"root": folder, "shared": shared})
        return [root.get("servers") for root in api.get("/roots")["roots"]]

    # At first the folder is shared with all known servers.
    assert share(first, False) == [[second]]
    assert share(first, True) == [[second, first]]
    assert share(first, True) == [[second, first]]
    assert share(second, False) == [[first]]
    assert share(second, False) == [[first]]
    assert share(first, False) == [], "a folder shared with nobody is not shared"
    gone = api.refusal("POST", f"/servers/{first}/roots/scope", {"root": folder, "shared": True})
    assert gone == "That folder is not shared from this machine."


def test_removed_servers_are_dropped_from_a_folders_list(world, start_api):
    world.use_sandbox_agent()
    first, second, third = world.add_servers(3)
    api = start_api()
    folder = str(world.folder)
    eventually(lambda: api.ask("GET", "/roots")[0] == 200, what="an agent")
    api.do("POST", f"/servers/{first}/roots/scope", {"root": folder, "shared": False})
    agent = api.tray.agent_pid()
    api.do("DELETE", f"/servers/{second}")
    eventually(lambda: not is_alive(agent), what="the end of the first agent")
    eventually(lambda: api.ask("GET", "/roots")[0] == 200, what="an agent again")
    api.do("POST", f"/servers/{first}/roots/scope", {"root": folder, "shared": True})
    assert api.get("/roots")["roots"][0]["servers"] == [third, first]


def test_a_folder_must_be_named_exactly(world, start_api):
    world.use_sandbox_agent()
    identifier, = world.add_servers(1)
    api = start_api()
    eventually(lambda: api.ask("GET", "/roots")[0] == 200, what="an agent")
    for path in (f"{world.folder}/", str(world.folder.parent), "project", ""):
        refusal = api.refusal("POST", f"/servers/{identifier}/roots/scope", {"root": path, "shared": True})
        assert refusal == "That folder is not shared from this machine."

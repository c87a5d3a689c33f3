"""The routes of the control API and their effects on a running tray."""

import json
import pathlib
import re

import pytest

from support.control_api import shared_api, start_api, window  # noqa: F401
from support.tray import SANDBOX, command_name, descendants, eventually, is_alive

IDLE = "#!/bin/sh\nexec sleep 1000\n"
FINGERPRINT = "0123456789abcdef0123456789abcdef"
GONE = "That server is gone."
NO_ENDPOINT = (404, {"error": "no such endpoint"})

ROUTES = {
    "GET /status", "POST /invite", "GET /servers", "GET /diagnostics", "POST /agent/restart",
    "POST /servers/:id/label", "POST /servers/:id/accent", "POST /servers/:id/enabled",
    "DELETE /servers/:id", "GET /roots", "POST /servers/:id/roots", "POST /servers/:id/roots/scope",
}
EXPECTED_BODY = {
    "/invite": 'expected a JSON body with a "key" field',
    "/servers/x/label": 'expected a "label" field',
    "/servers/x/accent": 'expected an "accent" field',
    "/servers/x/enabled": 'expected a boolean "enabled" field',
    "/servers/x/roots/scope": 'expected a "root" string and a boolean "shared"',
}


def programs(tray, name):
    return [pid for pid in descendants(tray.pid) if command_name(pid) == name]


def use_quick_agent(world):
    """The sandbox's agent, which polls its servers more often than by default."""
    world.use_agent_script(f"#!/bin/sh\nexec {SANDBOX}/zephyl-agent --connect-interval 0.05\n")


def key(fingerprint=FINGERPRINT, section="good-and-secret"):
    return f"inv_v2_{fingerprint}_{section}"


# Routes


def test_every_route_exists(shared_api):
    for route in ROUTES - {"POST /agent/restart"}:
        method, path = route.replace(":id", "x").split()
        assert shared_api.ask(method, path) != NO_ENDPOINT, route


def test_there_is_no_other_route(shared_api):
    paths = {route.split()[1] for route in ROUTES} | {
        "/", "/servers/:id/roots/scope/more", "/agent", "/roots/scope", "/servers/:id/nothing", "/Status",
        "/status/x", "/servers/:id/label/x", "/invite/x"}
    for path in paths:
        for method in ("GET", "POST", "PUT", "PATCH", "DELETE", "OPTIONS"):
            if f"{method} {path}" not in ROUTES:
                assert shared_api.ask(method, path.replace(":id", "x"), "{}") == NO_ENDPOINT, (method, path)


@pytest.mark.parametrize("path", [
    "/servers/abc/label", "/servers/abc/label/", "//servers/abc/label", "/servers///abc//label//",
    "/servers/abc/label?x=/y", "/servers/%61bc/label", "/servers/:id/label"])
def test_slashes_and_queries_are_ignored(shared_api, path):
    assert shared_api.refusal("POST", path, {"label": "x"}) == GONE


def test_an_id_is_required(shared_api):
    assert shared_api.ask("POST", "/servers//label", {"label": "x"}) == NO_ENDPOINT
    assert shared_api.ask("DELETE", "/servers/") == NO_ENDPOINT


@pytest.mark.parametrize("path", EXPECTED_BODY)
@pytest.mark.parametrize("body", [None, "", "{", "[]", "7", "null", '"key"', "{}", b"\xff", "[" * 60_000,
                                  '["key", "label", "accent", "enabled", "root", "shared"]'])
def test_a_body_without_the_field_is_refused(shared_api, path, body):
    assert shared_api.refusal("POST", path, body) == EXPECTED_BODY[path]


@pytest.mark.parametrize("path, body", [
    ("/invite", {"key": 7}), ("/invite", {"key": None}), ("/invite", {"Key": "x"}), ("/invite", {"key": ["x"]}),
    ("/servers/x/label", {"label": True}), ("/servers/x/label", {"accent": "x"}),
    ("/servers/x/accent", {"accent": {}}), ("/servers/x/accent", {"accent": 1.5}),
    ("/servers/x/enabled", {"enabled": "true"}), ("/servers/x/enabled", {"enabled": 1}),
    ("/servers/x/enabled", {"enabled": None}),
    ("/servers/x/roots/scope", {"root": "/x"}), ("/servers/x/roots/scope", {"shared": True}),
    ("/servers/x/roots/scope", {"root": "/x", "shared": "yes"}),
    ("/servers/x/roots/scope", {"root": 1, "shared": True})])
def test_a_field_of_another_type_is_refused(shared_api, path, body):
    assert shared_api.refusal("POST", path, body) == EXPECTED_BODY[path]


def test_unknown_fields_and_unexpected_bodies_are_ignored(shared_api):
    assert shared_api.refusal("POST", "/servers/x/label", {"label": "", "more": [1]}) == GONE
    assert shared_api.ask("GET", "/servers", "{nonsense") == (200, {"servers": []})
    assert shared_api.refusal("DELETE", "/servers/x", "[]") == GONE


@pytest.mark.parametrize("method, path, body", [
    ("POST", "/servers/x/label", {"label": "a"}), ("POST", "/servers/x/accent", {"accent": "a"}),
    ("POST", "/servers/x/enabled", {"enabled": True}), ("DELETE", "/servers/x", None)])
def test_an_unknown_server_is_refused(shared_api, method, path, body):
    assert shared_api.refusal(method, path, body) == GONE


# The window's environment


def test_a_window_without_a_server_starts_with_onboarding(shared_api, window, world, start_api):
    world.use_agent_script(IDLE)
    start_api()
    variables = {name: value for name, value in window.environment().items() if name.startswith("ZEPHYL_ONBOARD")}
    assert variables == {"ZEPHYL_ONBOARD": "1", "ZEPHYL_ONBOARD_TOKEN": window.token,
                    "ZEPHYL_ONBOARD_PORT": str(world.control_port)}
    assert "ZEPHYL_URL" not in window.environment()


def test_a_window_with_a_server_starts_without_onboarding(window, world, start_api):
    world.use_agent_script(IDLE)
    world.add_servers(1)
    start_api()
    assert "ZEPHYL_ONBOARD" not in window.environment()


# Status and servers


def test_a_new_tray_has_an_empty_state(world, start_api):
    world.use_agent_script(IDLE)
    api = start_api()
    assert api.get("/status") == {"available": False, "enrolled": False, "running": False}
    assert api.get("/servers") == {"servers": []}


def test_joining_requires_both_tailnet_programs(world, start_api):
    world.use_agent_script(IDLE)
    world.use_tailnet_script("tailscaled", IDLE)
    api = start_api()
    assert api.get("/status")["available"] is False
    world.use_tailnet_script("zephyl-tailnet", IDLE)
    assert api.get("/status")["available"] is True


def test_a_connected_server_has_all_fields(world, start_api):
    use_quick_agent(world)
    world.use_sandbox_tailnet()
    identifier, = world.add_servers(1)
    api = start_api()
    server = eventually(lambda: api.server()["enrolled"] and api.server(), what="a connected server")
    entry = eventually(lambda: world.registry()[0] if "serverName" in world.registry()[0] else None)
    address = server["boundAddress"]
    assert re.fullmatch(r"127\.100\.0\.1:80|127\.0\.0\.1:\d+", address)
    assert server == {
        "id": identifier, "name": "Server 1", "label": "Server 1", "nameResolved": True,
        "accent": entry["serverAccent"], "localAccent": "", "enabled": True, "usesTailnet": True,
        "running": True, "enrolled": True, "serverName": entry["serverName"],
        "serverAccent": entry["serverAccent"], "boundAddress": address, "webUrl": f"http://{address}",
        "relay": "relay-1.zephyl.example"}
    assert api.get("/status") == {"available": True, "enrolled": False, "running": True,
                                  "url": f"http://{address}", "relay": "relay-1.zephyl.example"}


@pytest.mark.parametrize("state, enrolled", [
    ("disconnected", False), ("connecting", False), ("connected", True), ("enrolled", True)])
def test_a_server_is_enrolled_while_the_agent_is_connected_to_it(world, scripted_agent, start_api, state, enrolled):
    first, second = world.add_servers(2)
    connection = {"serverId": first, "state": state, "lastError": "so it is"}
    scripted_agent.answers["/api/status"] = json.dumps({"state": state, "connections": [connection]}).encode()
    api = start_api()
    eventually(lambda: api.server(first).get("agentError") == "so it is", what="what the agent says")
    assert api.server(first)["enrolled"] is enrolled
    assert api.server(second)["enrolled"] is False and "agentError" not in api.server(second)


def test_a_requested_screen_is_returned_once(world, start_api):
    world.use_agent_script(IDLE)
    world.use_sandbox_tailnet()
    world.add_servers(1)
    servers = world.registry()
    servers[0]["address"] = "http://unresolved.example"
    (world.base / "servers.json").write_text(json.dumps(servers))
    api = start_api()
    answers = []
    eventually(lambda: answers.append(api.get("/status")) or "request" in answers[-1], what="a request")
    assert answers[-1]["request"] == "servers"
    assert api.server()["addressUnresolved"] == "http://unresolved.example"
    for _ in range(5):
        assert "request" not in api.get("/status")


# Joining


@pytest.mark.joins
def test_an_invite_key_joins_a_server(world, start_api):
    use_quick_agent(world)
    world.use_sandbox_tailnet()
    api = start_api()
    agent = api.tray.agent_pid()
    api.do("POST", "/invite", {"key": f"  {key(FINGERPRINT.upper())}\n"})
    assert api.get("/status")["enrolled"] is True
    server = api.server()
    assert (server["label"], server["enabled"], server["usesTailnet"]) == ("", True, True)
    eventually(lambda: api.server()["enrolled"], 20, "a connected server")
    entry, = world.registry()
    assert entry["tailnetFingerprint"] == FINGERPRINT
    assert api.server()["name"] == entry["serverName"] and api.server()["nameResolved"] is True
    assert not is_alive(agent), "the agent was not restarted"
    # A second key for a known server does not add a server.
    api.do("POST", f"/servers/{server['id']}/label", {"label": "Mine"})
    clients = programs(api.tray, "zephyl-tailnet")
    api.do("POST", "/invite", {"key": key(section="another-good-one")})
    assert (api.server()["id"], api.server()["label"]) == (server["id"], "Mine")
    eventually(lambda: not any(map(is_alive, clients)), what="a new connection")


@pytest.mark.parametrize("bad", [
    ("", "That doesn't look like a Zephyl invite key."),
    ("   ", "That doesn't look like a Zephyl invite key."),
    ("inv_v2_xyz_secret", "The invite key's fingerprint is invalid. Ask for a fresh invite."),
    (f"inv_v2_{FINGERPRINT}_", "The invite key is missing its key section. Ask for a fresh invite."),
    ("inv7_secret", "This invite key (inv7) is newer than this copy of Zephyl. Update Zephyl and try again."),
])
def test_an_invalid_key_changes_nothing(shared_api, bad):
    text, message = bad
    agents = programs(shared_api.tray, "sleep")
    assert shared_api.refusal("POST", "/invite", {"key": text}) == message
    assert shared_api.get("/servers") == {"servers": []}
    assert shared_api.get("/status")["enrolled"] is False
    assert programs(shared_api.tray, "sleep") == agents


@pytest.mark.joins
def test_a_key_refused_by_the_server_shows_in_its_state(world, start_api):
    world.use_agent_script(IDLE)
    world.use_sandbox_tailnet()
    api = start_api()
    api.do("POST", "/invite", {"key": key(section="expired")})
    server = eventually(lambda: api.server() if "enrolError" in api.server() else None)
    assert server["enrolError"] == "key expired"
    assert (server["running"], server["enrolled"]) == (False, False)
    assert "expired" not in " ".join(api.tray.lines).replace("key expired", "")


@pytest.mark.joins
def test_an_invite_key_is_written_nowhere(world, start_api):
    world.use_sandbox_agent()
    world.use_sandbox_tailnet()
    api = start_api()
    api.do("POST", "/invite", {"key": key(section="kq7vx-mostsecret")})
    eventually(lambda: api.server().get("boundAddress"), what="a tailnet that is up")
    secret = b"kq7vx-mostsecret"
    assert not any("mostsecret" in line for line in api.tray.lines)
    assert secret.decode() not in json.dumps([api.get("/diagnostics"), api.get("/servers")])
    assert not [path for path in world.root.rglob("*") if path.is_file() and secret in path.read_bytes()]
    for pid in [api.tray.pid, *descendants(api.tray.pid)]:
        for name in ("cmdline", "environ"):
            assert secret not in pathlib.Path(f"/proc/{pid}/{name}").read_bytes()


# Servers


def test_label_and_accent_are_trimmed_and_kept(world, start_api):
    world.use_agent_script(IDLE)
    identifier, other = world.add_servers(2)
    api = start_api()
    api.do("POST", f"/servers/{identifier}/label", {"label": " \t Büro & Zuhause \t"})
    api.do("POST", f"/servers/{identifier}/accent", {"accent": "\t#123abc "})
    server = api.server(identifier)
    assert (server["name"], server["label"]) == ("Büro & Zuhause", "Büro & Zuhause")
    assert (server["accent"], server["localAccent"]) == ("#123abc", "#123abc")
    assert world.registry()[0]["label"] == "Büro & Zuhause"
    assert world.registry()[0]["accent"] == "#123abc"
    assert api.server(other)["name"] == "Server 2"


def test_an_empty_label_or_accent_removes_it(world, start_api):
    world.use_agent_script(IDLE)
    world.add_servers(1)
    servers = world.registry()
    servers[0] |= {"accent": "#111111", "serverAccent": "#222222", "serverName": "Its own name"}
    (world.base / "servers.json").write_text(json.dumps(servers))
    api = start_api()
    identifier = api.server()["id"]
    for blank in ("", " \t "):
        api.do("POST", f"/servers/{identifier}/label", {"label": blank})
        api.do("POST", f"/servers/{identifier}/accent", {"accent": blank})
        server = api.server()
        assert (server["name"], server["label"]) == ("Its own name", "")
        assert (server["accent"], server["localAccent"]) == ("#222222", "")


def test_a_disabled_server_is_not_connected_until_it_is_enabled(world, start_api):
    world.use_sandbox_agent()
    world.use_sandbox_tailnet()
    identifier, _ = world.add_servers(2)
    api = start_api()
    agent = api.tray.agent_pid()
    eventually(lambda: api.server(identifier)["running"] and len(programs(api.tray, "tailscaled")) == 2)
    api.do("POST", f"/servers/{identifier}/enabled", {"enabled": False})
    assert api.server(identifier)["enabled"] is False
    assert world.registry()[0]["enabled"] is False
    eventually(lambda: not api.server(identifier)["running"] and len(programs(api.tray, "tailscaled")) == 1)
    eventually(lambda: not is_alive(agent), what="a restart of the agent")
    api.do("POST", f"/servers/{identifier}/enabled", {"enabled": True})
    eventually(lambda: api.server(identifier)["running"], what="its tailnet")


def test_a_removed_server_leaves_nothing_running(world, start_api):
    world.use_sandbox_agent()
    world.use_sandbox_tailnet()
    api = start_api()
    for number in (1, 2):
        api.do("POST", "/invite", {"key": key(str(number) * 32)})
    first, second = (server["id"] for server in api.get("/servers")["servers"])
    eventually(lambda: len(programs(api.tray, "zephyl-tailnet")) == 2, what="two tailnets")
    api.do("DELETE", f"/servers/{first}")
    assert [server["id"] for server in api.get("/servers")["servers"]] == [second]
    assert api.refusal("DELETE", f"/servers/{first}") == GONE
    eventually(lambda: len(programs(api.tray, "zephyl-tailnet")) == 1, what="one tailnet")
    assert api.get("/status")["enrolled"] is True, "one that was joined is left"
    agent = api.tray.agent_pid()
    settings = world.home / ".config/com.zephyl.tray/defaults.json"
    assert "2" * 32 in settings.read_text(), "the fingerprint of the joined server"
    api.do("DELETE", f"/servers/{second}")
    assert world.registry() == []
    status = api.get("/status")
    assert status["enrolled"] is False and "url" not in status
    eventually(lambda: api.get("/status")["running"] is False, what="no tailnet")
    eventually(lambda: not is_alive(agent), what="a restart of the agent")
    assert "2" * 32 not in settings.read_text()


def test_a_server_without_a_fingerprint_does_not_count_as_joined(world, start_api):
    world.use_agent_script(IDLE)
    by_address, = world.add_servers(1)
    servers = world.registry()
    servers[0] |= {"address": "http://127.0.0.1:9"}
    del servers[0]["tailnetFingerprint"]
    (world.base / "servers.json").write_text(json.dumps(servers))
    api = start_api()
    assert api.server()["usesTailnet"] is False
    api.do("POST", "/invite", {"key": key()})
    joined = next(server["id"] for server in api.get("/servers")["servers"] if server["usesTailnet"])
    assert api.get("/status")["enrolled"] is True
    api.do("DELETE", f"/servers/{joined}")
    assert api.get("/status")["enrolled"] is False
    assert api.server()["id"] == by_address


# The agent and diagnostics


def test_the_agent_is_restarted(world, start_api):
    world.use_sandbox_agent()
    api = start_api()
    first = api.tray.agent_pid()
    eventually(lambda: api.ask("GET", "/roots")[0] == 200, what="an agent")
    api.do("POST", "/agent/restart")
    eventually(lambda: not is_alive(first), what="the end of the first agent")
    eventually(lambda: api.tray.agent_pid() != first, what="another agent")
    eventually(lambda: api.ask("GET", "/roots")[0] == 200, what="an agent again")


def test_diagnostics_have_everything_for_a_bug_report(world, start_api):
    use_quick_agent(world)
    world.use_sandbox_tailnet()
    world.add_files(3)
    identifier, = world.add_servers(1)
    api = start_api()

    def settled():
        found = api.get("/diagnostics")
        indexed = found["indexing"] and found["indexing"][0]["ready"]
        return found if indexed and found["agent"]["machineId"] and found["servers"][0]["connection"] else None

    found = eventually(settled, 20, "an indexed folder and a connected agent")
    assert list(found) == ["tray", "agent", "servers", "activity", "indexing", "model"]
    assert found["tray"] == {"version": "0.1.0", "platform": "linux", "trayPort": world.agent_port,
                             "repoRoot": str(world.root), "standalone": True}
    machine = found["agent"].pop("machineId")
    assert found["agent"].pop("state") in ("connecting", "connected", "enrolled", "disconnected") and machine
    assert found["agent"] == {"reachable": True, "running": True, "managed": True}
    server, = found["servers"]
    assert server.pop("log")[0]
    assert server.pop("connection")["serverId"] == identifier
    assert {name: type(value) for name, value in server.items()} == {
        "id": str, "name": str, "enabled": bool, "usesTailnet": bool, "tailnetRunning": bool,
        "boundAddress": str, "relay": str}
    assert set(found["activity"]) == {"busy", "inFlight", "counters", "recent"}
    for event in found["activity"]["recent"]:
        assert set(event) == {"tool", "path", "detail", "at"}
    index, = found["indexing"]
    assert set(index) == {"root", "ready", "embedding", "filesEmbedded", "chunksEmbedded", "lexicalFiles",
                          "ragEnabled", "indexBytes"}
    assert (index["root"], index["lexicalFiles"]) == (str(world.folder), 3)
    assert set(found["model"]) == {"phase", "downloadedBytes", "totalBytes", "error"}
    assert found["model"]["phase"] in ("checking", "absent", "downloading", "ready", "failed")


def test_diagnostics_are_complete_without_an_agent(shared_api):
    found = shared_api.get("/diagnostics")
    assert found["servers"] == [] and found["indexing"] == []
    assert found["agent"] | {"running": True} == {"reachable": False, "running": True, "managed": True,
                                                  "state": None, "machineId": None}
    assert found["activity"] == {"busy": False, "inFlight": 0, "counters": {}, "recent": []}


def test_diagnostics_show_the_newest_40_lines_of_a_tailnet(world, start_api):
    world.use_agent_script(IDLE)
    world.use_tailnet_script("tailscaled", IDLE)
    world.use_tailnet_script("zephyl-tailnet", "#!/bin/sh\nseq -f 'line %g' 100\nprintf 'a\\033[31mb\\n'\n"
                                               "exec sleep 1000\n")
    world.add_servers(1)
    api = start_api()

    def last_line():
        log = api.get("/diagnostics")["servers"][0].get("log") or [""]
        return log if "[31mb" in log[-1] else None

    log = eventually(last_line, what="the last line")
    assert len(log) == 40 and log[-2].endswith("line 100")
    assert "\x1b" not in log[-1]

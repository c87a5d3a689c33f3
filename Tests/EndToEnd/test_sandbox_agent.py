"""The sandbox's agent behaves as documented, so that tests can rely on it."""

import json
import signal
import socket
import stat
import subprocess
import time

import pytest

from support.agent_fixtures import folder, start  # noqa: F401 (fixtures)
from support.agent_process import FAST, PROGRAM, run
from support.agent_sockets import exchange, listener
from support.tray import SANITIZERS, eventually, free_port


# Starting


def test_the_port_on_the_command_line_overrides_the_environment(start):
    port = free_port()
    assert start(AGENT_TRAY_PORT=str(port)).port != port, "--port 0 picks another"
    agent = start("--embed-rate", "1", AGENT_TRAY_PORT=f"+{port}")
    assert agent.port == port
    assert agent.get("/api/status")["state"] == "disconnected"


def test_a_port_in_use_is_reported():
    with listener() as taken:
        port = taken.getsockname()[1]
        ended = run("--port", str(port), environment={"HOME": "/nonexistent"})
    assert ended.returncode == 1
    assert f"127.0.0.1:{port}" in ended.stderr and "another program" in ended.stderr


def test_it_prints_help_and_version_and_refuses_unknown_options(tmp_path):
    printed = run("--help")
    assert printed.returncode == 0 and "--embed-rate" in printed.stdout and "ZEPHYL_SERVERS" in printed.stdout
    assert run("--version").stdout.startswith("zephyl-agent ")
    home = {"HOME": str(tmp_path)}
    for arguments in (["--bogus"], ["--port", "70000"], ["--port", "x"], ["stray"],
                      ["--embed-rate", "-1"], ["--exit-status", "3"]):
        ended = run(*arguments, environment=home)
        assert ended.returncode == 2 and ended.stderr.startswith("zephyl-agent: "), arguments
    ended = run(environment={**home, "ZEPHYL_SANDBOX_MODEL_RATE": "fast"})
    assert ended.returncode == 2 and "ZEPHYL_SANDBOX_MODEL_RATE" in ended.stderr


def test_it_fails_on_request(start):
    ended = run(environment={"ZEPHYL_SANDBOX_EXIT_STATUS": "7", "HOME": "/nonexistent"})
    assert (ended.returncode, len(ended.stdout.splitlines())) == (7, 1)
    agent = start(*FAST, "--exit-after", "0.05", "--exit-status", "3")
    assert agent.wait() == 3


def test_it_reports_that_it_runs_packaged(start):
    start(ZEPHYL_STANDALONE="1").log_line("packaged")


# State


def test_the_state_is_private_and_its_directory_can_be_set(start, tmp_path):
    places = {
        tmp_path / "home/.local/share/Zephyl/agent": ((), {"XDG_DATA_HOME": "relative"}),
        tmp_path / "data/Zephyl/agent": ((), {"XDG_DATA_HOME": str(tmp_path / "data")}),
        tmp_path / "own": ((), {"ZEPHYL_AGENT_STATE": str(tmp_path / "own")}),
        tmp_path / "given": (("--state", str(tmp_path / "given")),
                             {"ZEPHYL_AGENT_STATE": str(tmp_path / "own")}),
    }
    machines = set()
    for directory, (arguments, environment) in places.items():
        machines.add(start(*FAST, *arguments, **environment).get("/api/status")["machineId"])
        assert stat.S_IMODE((directory / "state.json").stat().st_mode) == 0o600
        assert stat.S_IMODE(directory.stat().st_mode) == 0o700
    assert len(machines) == len(places)


def test_the_state_survives_a_restart(start, folder, tmp_path):
    first = start(*FAST, ZEPHYL_SANDBOX_FOLDERS=f"{folder}:{tmp_path}/none")
    other = tmp_path / "other"
    other.mkdir()
    first.share(other, name="Other", servers=["s1"])
    first.decide(first.raise_request(target="x"), "always")
    with first.events() as stream:
        stream.wait_for(lambda a: not a["busy"] and a["indexing"][0]["filesEmbedded"] == 3)
    before = first.get("/api/status"), first.get("/api/roots"), first.activity()["escapeGrants"]
    assert first.stop()[0] == 0

    second = start("--port", "0", "--embed-rate", "0", ZEPHYL_SANDBOX_FOLDERS=str(tmp_path))
    activity = second.activity()
    assert (second.get("/api/status"), second.get("/api/roots"), activity["escapeGrants"]) == before
    assert activity["model"]["phase"] == "ready", "the download is remembered"
    assert second.index(folder)["filesEmbedded"] == 3, "embedded files are restored, too"
    assert int(second.raise_request()) == 2, "an id is never given out twice"


def test_an_unparsable_state_is_renamed(start, tmp_path):
    state = tmp_path / "state"
    state.mkdir()
    (state / "state.json").write_text('{"machineId": 5}')
    agent = start(*FAST, "--state", str(state), ZEPHYL_SANDBOX_FOLDERS=str(tmp_path))
    assert agent.get("/api/roots") == {"roots": []}, "this was not the first start"
    agent.log_line("renamed to")
    assert (state / "state.json.unreadable").read_text() == '{"machineId": 5}'


# Shared folders


def test_a_folder_is_shared_renamed_widened_narrowed_and_unshared(start, folder):
    agent = start()
    path = str(folder)
    assert agent.share(path) == [{"root": path, "name": "project"}]
    assert agent.ask("DELETE", "/api/roots", {"root": path}) == (200, {"roots": []})
    named = {"root": path, "name": "My work", "servers": ["a"]}
    assert agent.share(path + "/src/..", name="My work", servers=["a"]) == [named]
    assert agent.share(path, servers=["b"]) == [{**named, "servers": ["a", "b"]}]
    answer = agent.ask("PATCH", "/api/roots", {"root": path, "servers": ["c", "c"]})
    assert answer == (200, {"roots": [{**named, "servers": ["c"]}]})
    answer = agent.ask("PATCH", "/api/roots", {"root": path, "servers": []})
    assert answer == (200, {"roots": [{**named, "servers": []}]})
    agent.log_line(r"sharing .*/project \(3 files\)")


def test_invalid_operations_on_folders_are_refused(start, folder):
    agent = start()
    agent.share(folder, servers=["a"])
    path = str(folder)
    refusals = [
        ("POST", {"root": path, "servers": ["a"]}, 409), ("POST", {}, 400), ("POST", {"root": 5}, 400),
        ("POST", {"root": "relative"}, 400), ("POST", {"root": path + "/readme.md"}, 400),
        ("POST", {"root": path + "/none"}, 404), ("POST", {"root": "/"}, 400),
        ("POST", {"root": path + "\0"}, 400), ("POST", {"root": path, "servers": "a"}, 400),
        ("POST", {"root": path, "servers": [1]}, 400), ("POST", {"root": path, "name": 1}, 400),
        ("DELETE", {"root": path + "/src"}, 404), ("DELETE", {}, 400),
        ("PATCH", {"root": path}, 400), ("PATCH", {"root": path + "/src", "servers": []}, 404),
        ("POST", "", 400), ("POST", "[]", 400), ("POST", "{", 400), ("POST", b'{"root":"\xff"}', 400),
        ("POST", "[" * 5000, 400), ("POST", '{"root":"\\ud800"}', 400)]
    for method, body, status in refusals:
        assert agent.ask(method, "/api/roots", body)[0] == status, (method, body)
    assert len(agent.get("/api/roots")["roots"]) == 1


# The index


def test_only_text_files_inside_the_folder_are_indexed(start, folder):
    agent = start()
    agent.share(folder)
    index = agent.index(folder)
    assert index["lexicalFiles"] == 3 and index["indexBytes"] > 0
    activity = agent.activity()
    assert (activity["counters"]["files"], activity["counters"]["bytes"]) == (3, 22)
    assert agent.find("BETA") == ["readme.md", "main.txt"]
    assert agent.find("alpha") == ["readme.md"]
    assert agent.find("hidden") + agent.find("foreign") + agent.find("made") == []
    assert agent.ask("GET", "/sandbox/search")[0] == 400


def test_the_index_follows_changes_in_the_folder(start, folder, tmp_path):
    agent = start()
    agent.share(folder)
    agent.index(folder)

    def becomes(files, word, names):
        eventually(lambda: agent.find(word) == names and agent.index(folder)["lexicalFiles"] == files,
                   what=f"{word} in {names} of {files} files")

    (folder / "new.txt").write_text("delta")
    becomes(4, "delta", ["new.txt"])
    (folder / "new.txt").write_text("epsilon")
    becomes(4, "epsilon", ["new.txt"])
    assert agent.find("delta") == []
    (folder / "new.txt").write_bytes(b"epsilon\0")
    becomes(3, "epsilon", [])
    (folder / "a/b").mkdir(parents=True)
    (folder / "a/b/c.txt").write_text("zeta")
    becomes(4, "zeta", ["c.txt"])
    (folder / "a").rename(folder / "z")
    (folder / "z/b/d.txt").write_text("zeta")
    becomes(5, "zeta", ["c.txt", "d.txt"])
    (folder / "z").rename(tmp_path / "z")
    becomes(3, "zeta", [])
    (tmp_path / "z").rename(folder / "y")
    becomes(5, "zeta", ["c.txt", "d.txt"])
    (folder / "y/b/c.txt").unlink()
    (folder / "dist").mkdir()
    (folder / "dist/made.txt").write_text("eta")
    becomes(4, "zeta", ["d.txt"])
    (folder / "last.txt").write_text("eta")
    becomes(5, "eta", ["last.txt"])


def test_a_folder_that_is_removed_and_restored_is_indexed_again(start, folder):
    agent = start()
    agent.share(folder)
    agent.index(folder)
    folder.rename(folder.with_name("elsewhere"))
    eventually(lambda: agent.index(folder)["lexicalFiles"] == 0)
    folder.with_name("elsewhere").rename(folder)
    eventually(lambda: agent.index(folder)["lexicalFiles"] == 3)


def test_it_answers_at_once_while_it_indexes_a_large_folder(start, tmp_path):
    root = tmp_path / "large"
    content = " ".join(f"word{number}" for number in range(2000))
    for directory in range(40):
        (root / str(directory)).mkdir(parents=True)
        for number in range(100):
            (root / str(directory) / f"{number}.txt").write_text(content)
    agent = start("--port", "0", "--embed-rate", "0")
    agent.share(root)
    seen = set()

    def is_ready():
        index = agent.activity()["indexing"][0]
        seen.add(index["lexicalFiles"])
        began = time.monotonic()
        agent.get("/api/status")
        assert time.monotonic() - began < 0.5
        return index["ready"]
    eventually(is_ready, 60, "an index")
    assert max(seen) == 4000
    assert any(0 < files < 4000 for files in seen), "no progress was reported"


# Embedding and the model


def test_the_stream_reports_the_progress_of_model_and_embedding(start, folder):
    for number in range(60):
        (folder / f"{number}.txt").write_text("words " * 1000)
    agent = start("--port", "0", "--embed-rate", "100", "--model-rate", "3e8",
                  ZEPHYL_SANDBOX_FOLDERS=str(folder))
    with agent.events() as stream:
        stream.wait_for(lambda a: a["model"]["phase"] == "ready" and not a["busy"])
    phases = [a["model"]["phase"] for a in stream.activities]
    assert sorted(set(phases), key=phases.index) == ["checking", "downloading", "ready"]
    downloaded = [a["model"]["downloadedBytes"] for a in stream.activities]
    assert downloaded == sorted(downloaded) and 0 < downloaded[len(downloaded) // 2]
    assert downloaded[-1] == stream.activities[-1]["model"]["totalBytes"] == 130_000_000
    embedded = [(a["indexing"][0]["filesEmbedded"], a["indexing"][0]["chunksEmbedded"])
                for a in stream.activities]
    assert embedded == sorted(embedded) and len(set(embedded)) > 3
    last = stream.activities[-1]["indexing"][0]
    assert last["filesEmbedded"] == last["lexicalFiles"] == 63
    assert last["chunksEmbedded"] == 60 * 3 + 3 and not last["embedding"]
    for activity in stream.activities:
        assert not activity["indexing"][0]["embedding"] or activity["model"]["phase"] == "ready"
        assert activity["busy"] or not activity["indexing"][0]["embedding"]


def test_a_rewritten_file_is_embedded_again(start, folder):
    agent = start("--port", "0", "--embed-rate", "8", "--model-rate", "1e10",
                  ZEPHYL_SANDBOX_FOLDERS=str(folder))
    with agent.events() as stream:
        stream.wait_for(lambda a: a["indexing"][0]["filesEmbedded"] == 3)
        stream.records.clear()
        (folder / "readme.md").write_text("other words")
        stream.wait_for(lambda a: a["indexing"][0]["filesEmbedded"] == 2 and a["busy"])
        stream.wait_for(lambda a: a["indexing"][0]["filesEmbedded"] == 3)


def test_a_model_in_the_cache_is_ready_at_once(start, tmp_path):
    (tmp_path / "cache").mkdir()
    for expected in ("checking", "ready"):
        agent = start("--port", "0", "--model-rate", "0", ZEPHYL_MODEL_CACHE_DIR=str(tmp_path / "cache"))
        assert agent.activity()["model"]["phase"] == expected
        (tmp_path / "cache/model.ready").touch()


def test_a_failed_model_has_a_reason_and_embeds_nothing(start, folder):
    agent = start(*FAST, ZEPHYL_SANDBOX_MODEL_FAIL="1", ZEPHYL_SANDBOX_FOLDERS=str(folder))
    with agent.events() as stream:
        failed = stream.wait_for(lambda a: a["model"]["phase"] == "failed" and not a["busy"])
    assert failed["model"]["error"]
    assert 0 < failed["model"]["downloadedBytes"] < failed["model"]["totalBytes"]
    assert failed["indexing"][0]["filesEmbedded"] == 0 and not failed["indexing"][0]["ragEnabled"]


# Approvals


def test_a_request_is_held_until_it_is_decided(start, folder):
    agent = start(*FAST, ZEPHYL_SANDBOX_FOLDERS=str(folder))
    agent.index(folder)
    eventually(lambda: not agent.activity()["busy"])
    approved = agent.raise_request()
    denied = agent.raise_request(kind="path", tool="read", target="/x", root=str(folder), userName=None,
                                 chatTitle="Chat", reasons=[{"code": "c", "detail": "d"}])
    activity = agent.activity()
    first, second = activity["pendingApprovals"]
    assert (first["id"], first["kind"], first["root"]) == (approved, "shell", str(folder))
    assert first["userName"] and first["chatTitle"] and len(first["reasons"]) == 1
    assert {key: second[key] for key in second if key != "createdAt"} == {
        "id": denied, "kind": "path", "tool": "read", "target": "/x", "root": str(folder),
        "chatTitle": "Chat", "reasons": [{"code": "c", "detail": "d"}]}
    assert abs(second["createdAt"] / 1000 - time.time()) < 60
    assert activity["busy"] and activity["inFlight"] == 2
    assert agent.outcome(approved) == "pending"
    agent.log_line(f"request {approved} waits for approval: ")

    assert agent.decide(approved, "approve")[0] == 200
    assert agent.decide(denied, "deny")[0] == 200
    assert [agent.outcome(request) for request in (approved, denied)] == ["approved", "denied"]
    activity = agent.activity()
    assert activity["pendingApprovals"] == activity["escapeGrants"] == []
    assert not activity["busy"] and activity["inFlight"] == 0
    assert [activity["counters"][name] for name in ("requests", "approved", "denied")] == [2, 1, 1]
    assert [event["ok"] for event in activity["recent"][-2:]] == [True, False]


def test_a_permanent_exception_permits_the_same_request_until_revoked(start, folder):
    agent = start()
    agent.share(folder)
    request = {"kind": "path", "target": "/etc/hosts", "userName": "Ana"}
    one, same = agent.raise_request(**request), agent.raise_request(**request)
    other = agent.raise_request(kind="path", target="/etc/passwd")
    assert agent.decide(one, "always", confirm="always allow")[0] == 400, "not the phrase"
    assert agent.decide(one, "always", confirm="ALWAYS ALLOW")[0] == 200
    assert [agent.outcome(each) for each in (one, same, other)] == ["approved", "approved", "pending"]
    grant, = agent.activity()["escapeGrants"]
    assert (grant["kind"], grant["path"], grant["root"], grant["grantedBy"]) == (
        "path", "/etc/hosts", str(folder), "Ana")
    assert agent.ask("POST", "/sandbox/requests", request) == (200, {"granted": True})
    assert agent.raise_request(**{**request, "kind": "shell"}), "another kind asks"

    named = {"kind": "path", "path": "/etc/hosts"}
    assert agent.ask("DELETE", "/api/escape-grants", {**named, "kind": "shell"})[0] == 404
    assert agent.ask("DELETE", "/api/escape-grants", named) == (200, {"escapeGrants": []})
    assert agent.ask("DELETE", "/api/escape-grants", named)[0] == 404
    assert agent.raise_request(**request)


def test_a_request_ends_when_it_is_withdrawn_or_its_folder_is_unshared(start, folder):
    agent = start()
    assert agent.ask("POST", "/sandbox/requests", {})[0] == 409, "nothing is shared"
    agent.share(folder)
    withdrawn, orphaned, always = (agent.raise_request(target=name) for name in "abc")
    assert agent.decide(always, "always")[0] == 200
    assert agent.ask("DELETE", f"/sandbox/requests/{withdrawn}")[0] == 200
    assert agent.ask("DELETE", f"/sandbox/requests/{withdrawn}")[0] == 404
    agent.ask("DELETE", "/api/roots", {"root": str(folder)})
    assert [agent.outcome(each) for each in (withdrawn, orphaned)] == ["withdrawn", "denied"]
    assert agent.activity()["escapeGrants"] == agent.activity()["pendingApprovals"] == []


def test_an_invalid_decision_changes_nothing(start, folder):
    agent = start()
    agent.share(folder)
    held = agent.raise_request()
    assert agent.decide("99", "approve")[0] == 404
    assert agent.decide(held, "maybe")[0] == 400
    for body in ({"id": held}, {"decision": "deny"}, {"id": 1, "decision": "deny"}, "null", ""):
        assert agent.ask("POST", "/api/approvals", body)[0] == 400
    for body in ({"target": 5}, {"reasons": [{}]}, {"reasons": "no"}, {"root": "/none"}):
        assert agent.ask("POST", "/sandbox/requests", body)[0] in (400, 404), body
    assert agent.ask("GET", "/sandbox/requests/99")[0] == 404
    assert agent.outcome(held) == "pending"


# Connections


def test_a_connection_follows_the_state_of_its_proxy(start):
    with listener() as proxy:
        port = proxy.getsockname()[1]
    servers = [{"url": "ws://a/agent", "label": "A", "socks5": f"127.0.0.1:{port}", "agentId": "id-a"},
               {"url": "ws://b/agent", "label": "B"},
               {"url": "ws://c/agent", "label": "C", "socks5": "nowhere"}]
    agent = start(*FAST, "--connect-interval", "0.1", ZEPHYL_SERVERS=json.dumps(servers))
    machine = agent.get("/api/status")["machineId"]

    def becomes(state, **more):
        def connection():
            status = agent.get("/api/status")
            return {"serverId": "id-a", "state": state, **more} == status["connections"][0] and status
        return eventually(connection, what=state)

    status = becomes("connecting", lastError=f"nothing listens on 127.0.0.1:{port}")
    assert status["state"] == "connecting"
    assert status["connections"][1] == {"serverId": "B", "state": "disconnected", "lastError": "no tailnet"}
    assert "nowhere" in status["connections"][2]["lastError"]
    with listener(port):
        assert becomes("connected", machineId=machine)["state"] == "connected"
        assert becomes("enrolled", machineId=machine)["state"] == "enrolled"
    becomes("connecting", lastError=f"nothing listens on 127.0.0.1:{port}")


@pytest.mark.parametrize("text", ["{", "{}", '[{"url": "x"}]', "[5]"])
def test_an_invalid_list_of_servers_is_ignored(start, text):
    agent = start(*FAST, ZEPHYL_SERVERS=text)
    agent.log_line("ZEPHYL_SERVERS is ignored: ")
    assert agent.get("/api/status")["connections"] == []
    assert agent.get("/api/status")["state"] == "disconnected"


# The end


@pytest.mark.parametrize("number", [signal.SIGTERM, signal.SIGINT])
def test_a_signal_ends_it_in_order(start, folder, number):
    agent = start(*FAST, ZEPHYL_SANDBOX_FOLDERS=str(folder))
    with socket.create_connection(("127.0.0.1", agent.port)) as idle, agent.events() as stream:
        stream.wait_for(lambda a: a["indexing"][0]["filesEmbedded"] == 3)
        status, seconds = agent.stop(number)
        stream.join()
        assert stream.ended_in_order
        assert idle.recv(1) == b""
    assert (status, agent.lines[-1]) == (0, "stopped")
    assert seconds < 0.5


def test_it_survives_a_closed_standard_output(start, tmp_path):
    process = subprocess.Popen([PROGRAM, *FAST], env={"HOME": str(tmp_path), **SANITIZERS}, text=True,
                               stdout=subprocess.PIPE)
    try:
        port = int(process.stdout.readline().rpartition(":")[2])
        process.stdout.close()
        raw = b"POST /api/roots HTTP/1.1\r\nContent-Length: %d\r\nConnection: close\r\n\r\n%s"
        body = json.dumps({"root": str(tmp_path)}).encode()
        assert exchange(port, raw % (len(body), body)).startswith(b"HTTP/1.1 200 ")
        process.send_signal(signal.SIGTERM)
        assert process.wait(10) == 0
    finally:
        process.kill()
        process.wait()

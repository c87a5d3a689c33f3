"""Checks docs/control-api.md: its routes are those of the program, and its examples work."""

import json
import re

import pytest

from support.control_api import ControlApi, shared_api, split_answer, start_api, window  # noqa: F401
from support.tray import BUILD, REPOSITORY, eventually

DOCUMENT = (REPOSITORY / "docs" / "control-api.md").read_text()
EXAMPLES = [(info.split(), text) for info, text in re.findall(r"^```http(.*)\n([^`]*)^```$", DOCUMENT, re.M)]
TYPES = {"text": str, "number": (int, float), "flag": bool, "null": type(None)}


def parts(example):
    """Returns method, path, request body, status line and answer of an example."""
    request, answer = example.strip().split("\n\n")
    (line, *body), (status, *document) = request.split("\n"), answer.split("\n")
    method, path = line.split(" ")
    return method, path, "\n".join(body), status, json.loads("\n".join(document))


def is_like(value, shown):
    """Returns whether a value matches its placeholder in the document."""
    if isinstance(shown, dict):
        return isinstance(value, dict) and is_like_object(value, shown)
    if isinstance(shown, list):
        return isinstance(value, list) and all(is_like(element, shown[0]) for element in value)
    placeholder = re.fullmatch("<(.*)>", shown) if isinstance(shown, str) else None
    if not placeholder:
        return type(value) is type(shown) and value == shown
    meaning = placeholder[1]
    if meaning == "anything":
        return True
    if ", " in meaning:
        return value in meaning.split(", ")
    kinds = [TYPES[name] for name in meaning.split(" or ")]
    return any(isinstance(value, kind) for kind in kinds) and (bool in kinds or not isinstance(value, bool))


def is_like_object(value, shown):
    known = {name.rstrip("?"): meaning for name, meaning in shown.items()}
    needed = {name for name in shown if not name.endswith("?")}
    return needed <= set(value) <= set(known) and all(
        is_like(element, known[name]) for name, element in value.items())


@pytest.mark.parametrize("value, shown, alike", [
    (True, "<flag>", True), (1, "<flag>", False), (True, "<number>", False), (1.5, "<number>", True),
    ("x", "<text>", True), (None, "<text>", False), (None, "<text or null>", True), ("b", "<a, b>", True),
    ("c", "<a, b>", False), ({}, {"a?": "<text>"}, True), ({"b": 1}, {"a?": "<text>"}, False),
    ({}, {"a": "<text>"}, False), ([1, "x"], ["<number>"], False), (1, True, False)])
def test_the_comparison_distinguishes_equal_and_different_values(value, shown, alike):
    assert is_like(value, shown) == alike


def test_the_document_has_exactly_the_routes_of_the_program():
    program = (BUILD / "zephyl-tray").read_bytes()
    found = re.findall(rb"\0((?:DELETE|GET|PATCH|POST|PUT) /[a-z/:]+)(?=\0)", program)
    routes = {route.decode() for route in found}
    assert len(routes) >= 12
    documented = re.findall(r"^### ([A-Z]+ /.*)$", DOCUMENT, re.M)
    assert sorted(documented) == sorted(routes)


def test_every_route_has_an_example_in_its_own_section():
    for section in re.split("^##+ ", DOCUMENT, flags=re.M):
        heading = section.split("\n", 1)[0]
        if not re.match("[A-Z]+ /", heading):
            continue
        shown = {" ".join(parts(text)[:2]) for _, text in re.findall(r"^```http(.*)\n([^`]*)^```$", section, re.M)}
        templates = {re.sub("/servers/[^/]+", "/servers/:id", line) for line in shown}
        assert templates == {heading}


def test_every_status_of_an_example_is_documented():
    assert set(re.findall(r"^\| (\d{3} [A-Z][A-Za-z ]+?) \|", DOCUMENT, re.M)) >= {
        parts(text)[3] for _, text in EXAMPLES}


def send(api, method, path, body):
    content = body.encode()
    return split_answer(api.exchange(api.head(f"{method} {path} HTTP/1.1", f"Content-Length: {len(content)}")
                                     + content))


def outcome(api, text, **values):
    """Returns whether the API gives the answer of an example, and the actual answer."""
    for name, value in values.items():
        text = text.replace(f"<{name}>", value)
    method, path, body, status, expected = parts(text)
    line, _, answer = send(api, method, path, body)
    return line == f"HTTP/1.1 {status}" and is_like(answer, expected), (text, line, answer)


@pytest.mark.joins
def test_every_example_works(world, start_api):
    world.use_sandbox_agent()
    world.use_sandbox_tailnet()
    server, other = world.add_servers(2)
    api = start_api()
    eventually(lambda: api.server(server).get("boundAddress"), what="a running tailnet")
    examples = [text for info, text in EXAMPLES if info == []]
    assert len(examples) >= 20
    for text in examples:
        ask = lambda text=text: outcome(api, text, server=server, other=other, folder=str(world.folder))
        if "roots" in parts(text)[1]:
            # Several examples restart the agent, which is unreachable for a moment.
            eventually(lambda: ask()[0], what=text)
        else:
            works, details = ask()
            assert works, details


def test_the_examples_of_errors_work(shared_api):
    without_agent = [text for info, text in EXAMPLES if info == ["without-agent"]]
    without_token = [text for info, text in EXAMPLES if info == ["without-token"]]
    assert len(without_agent) == 1 and len(without_token) == 1
    for api, text in ((shared_api, without_agent[0]), (ControlApi(shared_api.port, "none"), without_token[0])):
        works, details = outcome(api, text)
        assert works, details
    assert {tuple(info) for info, _ in EXAMPLES} == {(), ("without-agent",), ("without-token",)}

"""The required fields of the records of the agent's API."""

NUMBER = (int, float)


def check(record, required, optional=()):
    """Asserts that required keys have their type, and optional ones are missing, null or of theirs."""
    assert isinstance(record, dict), record
    for key, kind in dict(required).items():
        assert key in record, f"{key} is missing in {record}"
        check_type(record[key], kind, key)
    for key, kind in dict(optional).items():
        if record.get(key) is not None:
            check_type(record[key], kind, key)
    return record


def check_type(value, kind, key):
    if callable(kind) and not isinstance(kind, type):
        kind(value)
    elif kind is not bool and isinstance(value, bool):
        raise AssertionError(f"{key} is a boolean: {value!r}")
    else:
        assert isinstance(value, kind), f"{key} is {value!r}"


def one_of(*names):
    def check_name(value):
        assert value in names, value
    return check_name


def list_of(check_element):
    def check_list(value):
        assert isinstance(value, list), value
        for element in value:
            check_element(element)
    return check_list


def text(value):
    assert isinstance(value, str), value


def counters(value):
    assert isinstance(value, dict), value
    for count in value.values():
        assert type(count) is int, value


STATE = one_of("connecting", "connected", "enrolled", "disconnected")


def connection(value):
    check(value, {"serverId": str, "state": STATE}, {"machineId": str, "lastError": str})


def status(value):
    check(value, {"state": STATE}, {"machineId": str, "connections": list_of(connection)})


def root(value):
    check(value, {"root": str, "name": str}, {"servers": list_of(text)})


def roots(value):
    check(value, {"roots": list_of(root)})


def event(value):
    check(value, {"tool": str, "ok": bool, "at": NUMBER}, {"path": str, "detail": str})


def progress(value):
    check(value, {"root": str, "ready": bool, "embedding": bool, "filesEmbedded": int,
                  "chunksEmbedded": int, "lexicalFiles": int, "ragEnabled": bool},
          {"indexBytes": int})


def model(value):
    check(value, {"phase": one_of("absent", "checking", "downloading", "ready", "failed"),
                  "downloadedBytes": int, "totalBytes": int}, {"error": str})


def reason(value):
    check(value, {"code": str, "detail": str})


def approval(value):
    check(value, {"id": str, "kind": str, "tool": str, "target": str, "root": str,
                  "reasons": list_of(reason), "createdAt": NUMBER},
          {"userName": str, "chatTitle": str})


def grant(value):
    check(value, {"path": str, "root": str, "kind": str, "grantedAt": NUMBER}, {"grantedBy": str})


def grants(value):
    check(value, {"escapeGrants": list_of(grant)})


def activity(value):
    check(value, {"busy": bool, "inFlight": int, "counters": counters, "recent": list_of(event),
                  "indexing": list_of(progress)},
          {"model": model, "pendingApprovals": list_of(approval), "escapeGrants": list_of(grant)})
    assert len(value["recent"]) <= 20

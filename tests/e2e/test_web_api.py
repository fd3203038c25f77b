"""The interface of nqeweb: requests are written from its own description, and answers are held against its schemas and
against what nqecli prints."""

import json
import shlex
import shutil

import jsonschema
import pytest

from conftest import BIN, nqecli, run
from web import Web

API = "/api/v1"


@pytest.fixture(scope="module")
def web(campus):
    with Web("--arena", campus.engine.arena, "--snapshot", campus.snapshot) as server:
        yield server


@pytest.fixture(scope="module")
def description(web):
    return web.data("openapi.json")


def validate(description, schema, value):
    resolver = jsonschema.RefResolver("", description)
    jsonschema.Draft202012Validator(schema, resolver=resolver).validate(value)


def schema_of(operation, status="200"):
    content = operation["responses"][status]["content"]
    return next(iter(content.items()))


# What parameters without an example are given where they are needed.
VALUES = {"a": "arena", "target": "arena", "b": "copy", "engine": "arena", "cursor": "1", "key": ["vpn=0", "next_hop=192.0.2.11"]}


def value_of(parameter):
    schema = parameter["schema"]
    if "example" in parameter:
        return parameter["example"]
    if parameter["name"] in VALUES:
        return VALUES[parameter["name"]]
    if "enum" in schema:
        return schema["enum"][0]
    return {"integer": schema.get("minimum"), "boolean": "true"}[schema["type"]]


def requests_of(path, operation):
    """(path, parameters) of requests: with what is needed alone, with each other parameter, and with all of them."""
    needed, others = {}, {}
    for parameter in operation["parameters"]:
        value = value_of(parameter)
        if parameter["in"] == "path":
            path = path.replace("{" + parameter["name"] + "}", value)
        elif parameter["required"]:
            needed[parameter["name"]] = value
        else:
            others[parameter["name"]] = value
    yield path, needed
    for name, value in others.items():
        yield path, {**needed, name: value}
    yield path, {**needed, **others}


def operations(description, method="get"):
    for path, methods in description["paths"].items():
        if method in methods:
            yield path, methods[method]


def test_the_description_is_one(description):
    assert description["openapi"] == "3.1.0"
    text = json.dumps(description)
    assert "#/$defs/" not in text
    for name, schema in description["components"]["schemas"].items():
        jsonschema.Draft202012Validator.check_schema(schema), name
    for _, operation in operations(description):
        for parameter in operation["parameters"]:
            jsonschema.Draft202012Validator.check_schema(parameter["schema"])


def test_every_path_answers_as_described(web, description):
    asked = 0
    for path, operation in operations(description):
        kind, schema = schema_of(operation)
        for concrete, parameters in requests_of(path, operation):
            if kind == "text/event-stream":
                continue
            answer = web.get(concrete, parameters)
            assert answer.status == 200, answer
            assert answer.headers["Content-Type"] == kind, answer
            if not kind.startswith("application/json"):
                continue
            validate(description, schema["schema"], answer.json)
            asked += 1
    assert asked > 60


def test_every_path_refuses_what_it_does_not_take(web, description):
    _, problem = next(iter(schema_of(op, "default") for _, op in operations(description)))
    for path, operation in operations(description):
        concrete, needed = next(requests_of(path, operation))
        bad = [{**needed, "no_such_parameter": "1"}]
        for parameter in operation["parameters"]:
            name, schema = parameter["name"], parameter["schema"]
            if parameter["in"] == "path":
                continue
            if schema["type"] == "integer":
                bad += [{**needed, name: value} for value in (schema["minimum"] - 1, schema["maximum"] + 1, "x", "")]
            elif schema["type"] == "boolean":
                bad.append({**needed, name: "maybe"})
            elif schema["type"] == "string":
                bad.append([*needed.items(), (name, "a"), (name, "b")])
            if parameter["required"]:
                bad.append({key: value for key, value in needed.items() if key != name})
        for parameters in bad:
            answer = web.get(concrete, parameters).is_problem(400)
            validate(description, problem["schema"], answer.json)
        if any(parameter["name"] == "engine" for parameter in operation["parameters"]):
            web.get(concrete, {**needed, "engine": "no such"}).is_problem(404)


def both_answers(path, answer, command):
    """What the interface has said, and what the command says that it names, as far as both say the same."""
    words = shlex.split(command)
    assert words[0] == "nqecli"
    done = run(BIN / words[0], *words[1:])
    assert done.code in (0, 1), done
    if path.endswith("/text"):
        return answer["text"], done.out
    there = json.loads(done.out)
    if path.endswith("/sql"):
        return answer["rows"], there["rows"][:answer["count"]]
    if path.endswith("/overview"):
        return answer["snapshot"], there["snapshot"]
    if path.endswith("/record"):
        return [answer["record"]], there["records"]
    answer.pop("next", None)
    return answer, there


def test_answers_are_those_of_the_command_that_they_name(web, description):
    compared = set()
    for path, operation in operations(description):
        for concrete, parameters in requests_of(path, operation):
            if path in (API + "/events", API + "/history", API + "/measurement", API + "/views", API + "/tables"):
                continue
            asked = {key: value for key, value in parameters.items() if key not in ("cursor", "warn")}
            # Times go on between the two questions; both are asked again then.
            for _ in range(5):
                answer = web.get(concrete, asked)
                command = answer.headers["Nqe-Command"]
                if command is None:
                    break
                here, there = both_answers(path, answer.json, command)
                if here == there:
                    break
            if command is not None:
                assert here == there, command
                compared.add(path)
    assert len(compared) >= 15, compared
    # No command tells only the fuller tables.
    assert web.get(API + "/usage", {"warn": "50"}).headers["Nqe-Command"] is None
    assert web.get(API + "/usage").headers["Nqe-Command"].endswith(" usage --json")


def test_pages_join_to_the_whole_list(web):
    for order in ({}, {"sort": "next_hop"}, {"sort": "-dmac"}, {"filter": "valid=1", "sort": "vlan_id"}):
        whole = web.data("tables/arp/records", {"limit": 1000, **order})
        assert whole["next"] is None and not whole["truncated"]
        records, cursor = [], {}
        for _ in range(100):
            page = web.data("tables/arp/records", {"limit": 7, **order, **cursor})
            assert len(page["records"]) == page["count"] <= 7
            records += page["records"]
            if page["next"] is None:
                break
            cursor = {"cursor": page["next"]}
        assert records == whole["records"], order
        assert len(records) > 30


def test_records_of_all_tables_are_as_their_schemas_say(web):
    texts = 0
    for table in web.data("tables")["tables"]:
        if not table["readable"] or table["entries"] == 0:
            continue
        name = table["name"]
        page = web.data(f"tables/{name}/records", {"limit": 3})
        page.pop("next")
        jsonschema.Draft202012Validator(web.data(f"schema/{name}")).validate(page)
        # The first one again, by its key.
        keys = web.data(f"tables/{name}/fields")["fields"]
        key = []
        for field in keys:
            if not field["in"].startswith("key") or field["path"] not in page["records"][0]:
                continue
            value = page["records"][0][field["path"]]
            if isinstance(value, bool):
                value = int(value)
            key.append(f"{field['path']}={value}")
        if not key:
            continue
        record = web.data(f"tables/{name}/record", {"key": key})
        # Times go on between the two questions.
        times = {field["path"].split(".")[0] for field in keys if field["kind"].endswith("_ago")}
        again, first = ({name: value for name, value in one.items() if name not in times}
                        for one in (record["record"], page["records"][0]))
        assert again == first, name
        if record["view"] is not None:
            assert record["text"] and "rror" not in record["text"][:40], record
            texts += 1
        for reference in record["references"]:
            words = [f"{field}={value}" for field, value in reference["key"].items()]
            if words:
                assert web.data(f"tables/{reference['table']}/record", {"key": words})["key"] == reference["key"]
    assert texts > 40


ENDLESS = "WITH RECURSIVE n(i) AS (SELECT 1 UNION ALL SELECT i + 1 FROM n) SELECT "


def test_statements_end_in_time(campus):
    with Web("--arena", campus.engine.arena, "--statement-time", "1") as server:
        server.get(API + "/sql", {"q": ENDLESS + "max(i) FROM n"}).is_problem(504, "time-limit")


def test_statements_are_bounded(campus):
    with Web("--arena", campus.engine.arena, "--statement-time", "60") as server:  # which no machine is too slow for
        rows = server.data("sql", {"q": ENDLESS + "i FROM n", "limit": 10})
        assert rows == {"rows": [{"i": i} for i in range(1, 11)], "count": 10, "truncated": True}
        wide = server.data("sql", {"q": ENDLESS + "i, printf('%.100000c', 'x') AS wide FROM n", "limit": 10000})
        assert wide["truncated"] and 0 < wide["count"] < 1000
        for bad in ("DELETE FROM arp", "ATTACH 'x' AS y", "SELECT load_extension('x')", "SELECT nothing", "", "PRAGMA journal_mode"):
            server.get(API + "/sql", {"q": bad}).is_problem(400, "sql")
        server.get(API + "/sql", {"q": "SELECT zeroblob(2000000000)"}).is_problem(400, "sql")
        assert server.data("sql", {"q": "SELECT 1 AS one"})["rows"] == [{"one": 1}]


def test_keys_are_never_options(web):
    for keys in ("--help", "--arena=/etc/passwd", "-x", "$(id) 0", "`id`"):
        answer = web.get(API + "/text", {"view": "arp", "keys": keys})
        assert answer.status == 400 or answer.json["failed"], answer
        assert b"usage" not in answer.body and b"uid=" not in answer.body


def test_an_engine_that_ends_and_comes_back(tmp_path, campus, place):
    engine = place
    copy = tmp_path / "copy"
    shutil.copy(campus.snapshot, copy)
    with Web("--arena", engine.arena, "--snapshot", copy, "--snapshot", tmp_path / "later") as server:

        def states():
            return [each["state"] for each in server.data("engines")["engines"]]

        assert states() == ["missing", "saved", "missing"]
        server.get(API + "/overview").is_problem(503, "engine-missing")
        first = engine.start()
        assert states()[0] == "up"
        assert server.data("overview")["snapshot"]["engine"]["pid"] == first.process.pid
        engine.end()
        assert states()[0] == "missing"
        engine.start()
        assert server.data("tables/ctrlif_map_fwdif/records", {"limit": 1})["truncated"]
        engine.end(how=9)
        assert states()[0] == "ended"
        for path in ("overview", "tables", "find?value=1", "text?view=arp", "sql?q=SELECT+1", "history"):
            server.get(f"{API}/{path}").is_problem(503, "engine-ended")
        # What it left is cut short under the server's eyes.
        with open(engine.arena, "r+b") as arena:
            arena.truncate(0)
        assert states()[0] == "damaged"
        server.get(API + "/tables").is_problem(503, "engine-damaged")
        # And so is a saved arena that has been read.
        assert server.data("tables", {"engine": "copy"})["count"] > 50
        with open(copy, "r+b") as arena:
            arena.truncate(10000)
        assert states()[1] == "damaged"
        server.get(API + "/tables", {"engine": "copy"}).is_problem(503, "engine-damaged")
        shutil.copy(campus.snapshot, tmp_path / "new")
        (tmp_path / "new").rename(copy)
        shutil.copy(campus.snapshot, tmp_path / "later")
        assert states()[1:] == ["saved", "saved"]
        with open(tmp_path / "later", "r+b") as arena:
            arena.seek(8)
            arena.write(b"\x63")
        assert states()[2] == "version"
        engine.arena.unlink()
        engine.start()
        assert states() == ["up", "saved", "version"]
        engine.end()


def test_changes(tmp_path, campus):
    token = tmp_path / "token"
    token.write_text("0123456789abcdef\n")
    token.chmod(0o600)
    bearer = {"Authorization": "Bearer 0123456789abcdef", "Content-Type": "application/json"}
    words = ["--arena", campus.engine.arena, "--snapshot", campus.snapshot, "--token-file", token]
    with Web(*words) as server:
        server.ask("POST", API + "/reset", '{"what":"cpcar"}', bearer).is_problem(403)
        assert server.get(API + "/engines", headers=bearer).json["changes"] is False
    with Web(*words, "--allow-changes") as server:
        assert server.get(API + "/engines", headers=bearer).json["changes"] is True

        def change(path, body, headers=bearer):
            return server.ask("POST", f"{API}/{path}", body if isinstance(body, str) else json.dumps(body), headers)

        change("trace", {"action": "set"}, {"Content-Type": "application/json"}).is_problem(401)
        change("trace", {"action": "set"}, {**bearer, "Content-Type": "text/plain"}).is_problem(415)
        change("trace?engine=copy", {"action": "clear"}).is_problem(409)
        for bad in ("", "[]", "{", '{"action":1}', '{"action":"drop"}', '{"action":"set","sip":""}',
                    '{"action":"set","sip":"-x"}', '{"action":"set","sip":"a\\nb"}', '{"action":"set","--arena":"x"}',
                    '{"action":"set","sip":{"a":1}}', "[" * 60000, json.dumps({"action": "set", **{f"a{i}": 1 for i in range(40)}})):
            change("trace", bad).is_problem(400)
        done = change("trace", {"action": "set", "protocol": 6, "sip": "192.0.2.11", "icmp": True})
        assert done.status == 200, done
        assert [shlex.split(command)[4:] for command in done.json["commands"]] == [
            ["clear"], ["set", "protocol", "6"], ["set", "sip", "192.0.2.11"], ["set", "icmp"], ["enable"]]
        assert "DebugFlag                : 1" in nqecli("--arena", campus.engine.arena, "pkt_trace", "show").out
        change("trace", {"action": "set", "no_such": 1}).is_problem(409, "refused")
        assert change("trace", {"action": "clear"}).status == 200
        assert "DebugFlag                : 0" in nqecli("--arena", campus.engine.arena, "pkt_trace", "show").out
        assert change("measurement", {"tasks": "time"}).status == 200
        assert server.get(API + "/measurement", headers=bearer).json["scheduler"]["traces"] == "time"
        assert change("measurement", {"tasks": "disable"}).status == 200
        change("measurement", {"tasks": "nothing"})
        change("measurement", {"points": 99}).is_problem(409, "refused")
        change("measurement", {"tasks": "time", "points": 1}).is_problem(400)
        change("reset", {"what": "everything"}).is_problem(400)
        for bad in ({"what": "cpcar", "dry_run": True}, {"what": "session", "dry_run": 1}, {"what": "session", "dry-run": True, "x": 1}):
            assert change("reset", bad).status in (400, 409), bad
        change("reset", {"what": "server-map", "type": "nothing"}).is_problem(409, "refused")
        maps = ["--arena", campus.engine.arena, "list", "server_map", "aging_time!=0", "--count"]
        before = nqecli(*maps).out
        would = change("reset", {"what": "server-map", "type": "aspf", "dry_run": True})
        assert would.status == 200 and would.json["text"] == "2 server maps would end\n", would
        assert would.json["commands"][0].endswith(" agent reset-server-map type=aspf --dry-run") and nqecli(*maps).out == before
        done = change("reset", {"what": "server-map", "type": "aspf", "dry_run": False})
        assert done.json["text"] == "2 server maps told to end\n", done
        assert change("reset", {"what": "cpcar"}).status == 200
        assert nqecli("--arena", campus.engine.arena, "list", "cpcar_pro", "drop_packets>0", "--count").out == "0\n"


def test_values_that_look_like_options_are_values(campus):
    """In the answer, and in the command that shows the same."""
    with Web("--arena", campus.engine.arena) as server:
        for path, parameters, words in (
                ("/find", {"value": "--help"}, ["find", "--limit", "1000", "--json", "--", "--help"]),
                ("/find", {"value": "x"}, ["find", "--limit", "1000", "--json", "x"]),
                ("/statistics", {"pattern": "--csv"}, ["statistics", "--json", "--", "--csv"]),
                ("/text", {"view": "arp", "keys": "--arena=/none"}, ["show", "--", "arp", "--arena=/none"])):
            answer = server.get(API + path, parameters)
            command = shlex.split(answer.headers["Nqe-Command"])
            assert command[3:] == words, answer
            same = nqecli(*command[1:])
            assert same.out == (answer.json["text"] if path == "/text" else answer.body.decode()), (same, answer)

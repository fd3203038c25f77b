"""nqecli schema and nqecli fields: everything that is printed as JSON is valid by the schemas."""

import json
import random
import struct

import pytest

import schemas
from conftest import ROOT, nqecli, short_directory, site_of
from schemas import FORMATS, VALIDATOR, check, parsed, valid


@pytest.fixture(scope="module")
def whole():
    return schemas.whole()


@pytest.fixture(scope="module")
def tables(whole):
    """Names of the tables that have fields."""
    return [name[len("list."):] for name in whole["$defs"] if name.startswith("list.")]


def test_each_tables_schema_is_one_and_fits_its_list(campus, whole, tables):
    assert len(tables) > 80
    filled = 0
    for name in tables:
        schema = parsed(nqecli("schema", name))
        VALIDATOR.check_schema(schema)
        assert schema["$schema"] == "https://json-schema.org/draft/2020-12/schema"
        assert schema["$id"] == f"urn:qdt:list:{name}"
        document = valid(parsed(nqecli("--snapshot", campus.snapshot, "list", name, "--json")))
        check(VALIDATOR(schema, format_checker=FORMATS), document)
        check(VALIDATOR(whole, format_checker=FORMATS), {**document, "records": document["records"][:1]})
        record = schemas.of(f"{name}.whole")
        for row in schemas.some(document["records"]):
            check(record, row)
        filled += bool(document["records"])
    assert filled > 60, "the site leaves too many tables empty for this to say much"


def test_live_engine_limit_count_and_lines(campus, whole, tables):
    for name in ("fib", "session", "ssw_macinfo"):
        validator = schemas.of(f"list.{name}")
        for words in (["--limit", "1"], ["--limit", "0"], ["--count"], ["--count", "--limit", "1"],
                      ["--sort", "-" + first_value(whole, name)]):
            check(validator, parsed(campus.engine.cli("list", name, "--json", *words)))
        lines = campus.engine.cli("list", name, "--ndjson").out.splitlines()
        assert lines
        for line in lines:
            check(schemas.of(f"{name}.whole"), json.loads(line))
    check(schemas.of("usage"), parsed(campus.engine.cli("usage", "--json")))
    check(VALIDATOR(whole), parsed(campus.engine.cli("usage", "--json")))


def first_value(whole, name):
    """A path of one value."""
    return next(field for field, schema in whole["$defs"][name]["properties"].items() if "x-kind" in schema
                and schema.get("type") != "array")


def paths(schema, defs):
    """Paths that --fields can name: values, structures, elements and their fields."""
    for name, field in schema["properties"].items():
        if name == "record" and "x-offset" not in field:
            continue
        yield name
        element = field
        if field.get("type") == "array":
            element, name = field["items"], f"{name}[{field['maxItems'] - 1}]"
            yield name
        if "oneOf" in element and "properties" in element["oneOf"][0]:
            element = element["oneOf"][0]
        if element.get("type") == "object":
            yield from (f"{name}.{inner}" for inner in paths(element, defs))


def test_chosen_fields(campus, whole, tables):
    """Every path of every table, some at a time."""
    chance = random.Random(15)
    for name in tables:
        every = list(paths(whole["$defs"][name], whole["$defs"]))
        chance.shuffle(every)
        for start in range(0, min(len(every), 64), 16):
            chosen = ",".join(every[start:start + 16])
            result = nqecli("--snapshot", campus.snapshot, "list", name, "--json", "--fields", chosen)
            check(schemas.of(f"list.{name}"), parsed(result))


def records_in(data):
    """(offset, size) of each record of an arena file, with what is attached to it; docs/arena.md has the map."""
    version, tables = (struct.unpack_from("<I", data, at)[0] for at in (8, 40))
    assert version == 6, "the offsets below are those of another format"
    directory, = struct.unpack_from("<Q", data, 48)
    for shape in range(directory, directory + 112 * tables, 112):
        defined, record, capacity, slot, attached = (
            struct.unpack_from(form, data, shape + at)[0]
            for form, at in (("<H", 2), ("<I", 4), ("<I", 12), ("<I", 32), ("<I", 36)))
        slab, = struct.unpack_from("<Q", data, shape + 96)
        for at in range(slab, slab + capacity * slot, slot) if defined else ():
            if any(data[at:at + 8]):
                yield at + 16, record + attached


@pytest.fixture(scope="module")
def random_arena(campus):
    """Records of a site whose bytes are no longer what an engine wrote."""
    data = bytearray(campus.snapshot.read_bytes())
    chance = random.Random(2020)
    changed = 0
    for at, size in records_in(data):
        for byte in range(at, at + size):
            if chance.random() < 0.5:
                data[byte] = chance.choice((0, 0xff, chance.randrange(256)))
        changed += 1
    assert changed > 500
    with short_directory() as directory:
        (directory / "random").write_bytes(data)
        yield directory / "random"


def test_random_bytes(random_arena, tables):
    filled = 0
    for name in tables:
        document = valid(parsed(nqecli("--snapshot", random_arena, "list", name, "--json")))
        for row in schemas.some(document["records"]):
            check(schemas.of(f"{name}.whole"), row)
        filled += bool(document["records"])
    assert filled > 60


# A command for each document, and what it has to have found for its schema to be held against something.
def count_is_at_least(least):
    return lambda document: document["count"] >= least


COMMANDS = {
    ("usage",): count_is_at_least(80),
    ("fields", "session"): count_is_at_least(40),
    ("regions",): count_is_at_least(5),
    ("regions", "PKT_TRACE_CTX_PTR"): count_is_at_least(1),
    ("statistics",): count_is_at_least(831),
    ("list", "fib", "--count"): count_is_at_least(10),
    ("show", "arp", "192.0.2.11"): count_is_at_least(1),
    ("show", "tbm_memory_stat"): count_is_at_least(109),
    ("find", "192.0.2.11"): lambda document: document["kind"] == "ipv4" and document["count"] > 3,
    ("find", "2001:db8:8::/48"): lambda document: document["kind"] == "ipv6" and document["count"] == 1,
    ("find", "02:00:5e:30:00:04"): lambda document: document["kind"] == "mac" and document["count"] == 10,
    ("find", "101"): lambda document: document["kind"] == "interface" and document["count"] > 3,
    ("find", "*.example.com*"): lambda document: document["kind"] == "text" and document["count"] == 2,
    ("explain", "192.0.2.11"): lambda document: document["kind"] == "ipv4" and document["count"] > 3,
    ("explain", "2001:db8:8::1"): lambda document: document["kind"] == "ipv6" and document["count"] > 0,
    ("explain", "02:00:5e:30:00:04"): lambda document: document["kind"] == "mac" and document["count"] > 3,
    ("check",): count_is_at_least(3),
    ("sql", "SELECT 1 AS a, 'b' AS b, 2.5 AS c, NULL AS d"): count_is_at_least(1),
    ("watch", "--times", "1", "list", "fib", "--count"): lambda document: document["answer"]["count"] >= 10,
    ("watch", "--times", "1", "tables"): lambda document: "fwdif" in document["answer"],
}


def answer(*words):
    """A document, whatever its command found."""
    result = nqecli(*words, "--json")
    assert result.code in (0, 1) and result.err == "", result
    return json.loads(result.out)


@pytest.mark.parametrize("words", COMMANDS, ids=" ".join)
def test_documents(campus, random_arena, words):
    """Of a site, of its snapshot, and where the records are random."""
    place = ("--arena", campus.engine.arena)
    document = valid(answer(*place, *words))
    assert COMMANDS[words](document), document
    check(VALIDATOR(schemas.whole(), format_checker=FORMATS), document)
    for file in (campus.snapshot, random_arena):
        valid(answer("--snapshot", file, *words))


def test_usage_of_a_table_that_counts_more_than_it_holds(campus, directory):
    """A damaged arena is told as it is, and by the schema."""
    data = campus.snapshot.read_bytes()
    entries = next(row["entries"] for row in answer("--snapshot", campus.snapshot, "usage")["usage"] if row["table"] == "arp")
    for at in range(0, 65536, 4):
        if data[at:at + 4] != struct.pack("<I", entries):
            continue
        (directory / "odd").write_bytes(data[:at] + struct.pack("<I", 50000) + data[at + 4:])
        result = nqecli("--snapshot", directory / "odd", "usage", "--json")
        rows = valid(json.loads(result.out))["usage"] if result.code == 0 else []
        if any(row["table"] == "arp" and (row["entries"], row["percent"]) == (50000, 305.2) for row in rows):
            return
    raise AssertionError("the number of entries stands nowhere")


def test_documents_of_differences(campus, random_arena, directory):
    """Fields of all kinds with any values, and entries that one side alone has."""
    with site_of("arp: [{next_hop: 192.0.2.11, vpn: 0}, {next_hop: 192.0.2.254, vpn: 0}]\n") as other:
        site = valid(answer("diff", campus.snapshot, other.snapshot))
    assert {change["change"] for change in site["diff"]} == {"added", "removed", "changed"}
    assert any("region" in change for change in site["diff"])
    damaged = valid(answer("diff", campus.snapshot, random_arena, "--counters"))
    values = [value for change in damaged["diff"] for field in change.get("fields", {}).values()
              for value in field.values()]
    assert {type(value) for value in values} >= {str, int, bool, dict, type(None)}


def changed(value, path="$"):
    """Copies of a JSON value with one thing changed to what no document has: (where, the copy)."""
    yield path, [[]]
    if isinstance(value, dict):
        yield f"{path} and another member", {**value, "another": [[]]}
        for name, inner in value.items():
            for where, other in changed(inner, f"{path}.{name}"):
                yield where, {**value, name: other}
    elif isinstance(value, list):
        yield f"{path} and another element", [*value, [[]]]
        for at, inner in enumerate(value[:3]):
            for where, other in changed(inner, f"{path}[{at}]"):
                yield where, [*value[:at], other, *value[at + 1:]]


def without_one(value, path="$"):
    """Copies of a document that lack a member somewhere, as far as its records: (where, the copy)."""
    if isinstance(value, dict):
        for name, inner in value.items():
            yield f"{path}.{name}", {other: value[other] for other in value if other != name}
            if name not in ("records", "rows", "key", "looked_for", "found", "answer", "value"):
                for where, other in without_one(inner, f"{path}.{name}"):
                    yield where, {**value, name: other}
    elif isinstance(value, list) and value:
        for where, other in without_one(value[0], f"{path}[0]"):
            yield where, [other, *value[1:]]


# What a document may lack.
OPTIONAL = {
    "$.fields[0].bits", "$.fields[0].width", "$.fields[0].unit",  # of a field that is no number of its own
    "$.findings[0].key",  # of a table as a whole
    "$.snapshot.engine.arena",  # of an arena without a name
}


@pytest.mark.parametrize("words", [*COMMANDS, ("snapshot", "--info")], ids=" ".join)
def test_each_schema_can_fail(campus, words):
    document = answer("--arena", campus.engine.arena, *words) if words[0] != "snapshot" else answer(
        *words, campus.snapshot)
    # Of long lists the first entries are enough.
    document = {name: value[:2] if isinstance(value, list) else value for name, value in document.items()}
    validator = schemas.of(schemas.name_of(document))
    check(validator, document)
    count = 0
    for where, wrong in changed(document):
        assert not validator.is_valid(wrong), where
        count += 1
    assert count >= 5
    for where, less in without_one(document):
        assert validator.is_valid(less) == (where in OPTIONAL), where


def test_schemas_refuse_what_is_not_printed(campus, whole):
    """They say enough to be wrong."""
    document = parsed(nqecli("--snapshot", campus.snapshot, "list", "fib", "--json"))
    route = document["records"][0]
    validator = schemas.of("list.fib")
    for field, wrong in (("prefix", 65536), ("prefix", -1), ("prefix", "24"), ("op_code", 8), ("direct", 1),
                         ("destination", "192.0.2"), ("destination", "192.0.2.256"), ("next_hop", {"nhp": {}}),
                         ("next_hop", {"fwdif": {"index": 1}}), ("next_hop", "7f00"), ("next_hop", {"index": 1}),
                         ("another", 1), ("record", {}), ("record", {"vpn": 1})):
        assert not validator.is_valid({**document, "records": [{**route, field: wrong}]}), (field, wrong)
    for field, right in (("prefix", 65535), ("next_hop", None), ("next_hop", {"nhp": {"stale": "0x1"}}),
                         ("next_hop", {"nhp_group": {"index": 1}}), ("record", {"prefix": 1})):
        check(validator, {**document, "records": [{**route, field: right}]})
    for wrong in ({"table": "nhp"}, {"id": 2}, {"count": -1}, {"truncated": 0}, {"more": 1}):
        assert not validator.is_valid({**document, **wrong}), wrong
    assert not schemas.of("fib.whole").is_valid({name: route[name] for name in route if name != "vpn"})
    assert not VALIDATOR(whole).is_valid({**document, "id": 2})
    assert not VALIDATOR(whole).is_valid({"count": 1})


def test_what_is_known_of_a_field(whole):
    route = whole["$defs"]["fib"]["properties"]
    assert route["op_code"] == {
        "description": "operation code of the route", "type": "integer", "minimum": 0, "maximum": 7,
        "x-in": "record", "x-offset": 0, "x-kind": "u8", "x-width": 3, "x-bits": "0-2"}
    assert route["destination"]["x-byte-order"] == "big" and route["destination"]["x-in"] == "key"
    assert route["next_hop"]["x-agrees-with"] == ["nhp_index"]
    assert route["next_hop"]["x-targets"] == ["nhp", "nhp_group"]
    hop = whole["$defs"]["nhp"]["properties"]
    assert hop["if_index"]["x-leads-to"] == "fwdif"
    assert hop["encap_size"]["x-counts"] == "encap_data" and hop["encap_size"]["x-unit"] == "bytes"
    assert hop["arp_miss"]["minimum"] == -128 and hop["arp_miss"]["maximum"] == 127
    service = hop["l3_services"]["items"]["properties"]["fwd_if_index"]
    assert (hop["l3_services"]["x-stride"], service["x-offset"]) == (16, 132)
    counters = whole["$defs"]["fwdif"]["properties"]["counters"]["items"]["properties"]
    assert counters["in_bytes"]["x-role"] == "counter"


FIELDS = """\
field           in           kind               bits  offset  unit  meaning
prefix          key, record  u16                      0             bits of the destination's prefix
vpn             key          u16                      2             VPN of the route
destination     key          ipv4_net                 4             destination of the route
op_code         record       u8                 0-2   0             operation code of the route
multi_next_hop  record       u8                 3     0             whether the next hop is a group
default         record       u8                 4     0             whether this is a default route
direct          record       u8                 5     0             whether the destination is directly connected
nhp_index       record       u16                      2             number of the next hop, or of its group when there are many
re_index        record       u32                      4             re-index of the route
next_hop        record       ref nhp|nhp_group        8             next hop or group that the engine bound to the route
"""


def test_fields():
    nqecli("fields", "fib").answered(FIELDS)
    lines = nqecli("fields", "session").out.splitlines()
    assert any(line.startswith("positive.source") for line in lines), lines
    assert any(line.startswith("l3_services[0-3].fwdif ") for line in nqecli("fields", "nhp").out.splitlines())


def test_fields_as_json(whole, tables):
    for name in tables:
        document = parsed(nqecli("fields", name, "--json"))
        check(schemas.of("fields"), document)
        check(VALIDATOR(whole), document)
        assert document["count"] == len(document["fields"])


def test_regions(whole):
    regions = [name[len("region."):] for name in whole["$defs"] if name.startswith("region.")]
    assert "IP_REASS_CTX_PTR" in regions
    for name in regions:
        schema = parsed(nqecli("schema", name))
        VALIDATOR.check_schema(schema)
        assert schema["$id"] == f"urn:qdt:region:{name}"
        check(schemas.of("fields"), parsed(nqecli("fields", name, "--json")))


def test_bad_words():
    nqecli("schema", "fibb").failed('unknown table "fibb"', "did you mean fib?")
    nqecli("schema", "fib", "nhp").failed("schema takes one table or region, or none")
    nqecli("fields").failed("fields takes the name of a table or region")
    nqecli("fields", "vrf").failed("nothing is known of the fields of table vrf")
    nqecli("fields", "fib", "--csv").failed('unknown option "--csv"')


def test_documented_examples(whole):
    text = "".join(part.read_text() for part in sorted((ROOT / "docs").glob("data*")))
    assert "    $ nqecli fields fib\n" + "".join(f"    {line}\n" for line in FIELDS.splitlines()) in text
    example = text[text.index('    "op_code": {'):]
    example = "{" + example[:example.index("}") + 1] + "}"
    assert json.loads(example) == {"op_code": whole["$defs"]["fib"]["properties"]["op_code"]}
    members = {member for member in json.dumps(whole).split('"') if member.startswith("x-")}
    assert len(members) > 12
    for member in members:
        assert f"`{member}`" in text, member

"""nqecli schema and nqecli fields: everything that is printed as JSON is valid by the schemas."""

import json
import random
import struct

import jsonschema
import pytest

from conftest import ROOT, nqecli

VALIDATOR = jsonschema.Draft202012Validator
FORMATS = jsonschema.FormatChecker(["ipv4", "ipv6"])


def parsed(result):
    assert (result.code, result.err) == (0, ""), result
    return json.loads(result.out)


@pytest.fixture(scope="module")
def whole():
    schema = parsed(nqecli("schema"))
    VALIDATOR.check_schema(schema)
    return schema


@pytest.fixture(scope="module")
def tables(whole):
    """Names of the tables that have fields."""
    return [name[len("list."):] for name in whole["$defs"] if name.startswith("list.")]


def of(whole, name):
    """A validator of one definition of the whole schema."""
    return VALIDATOR({"$defs": whole["$defs"], "$ref": f"#/$defs/{name}"}, format_checker=FORMATS)


def check(validator, document):
    for error in validator.iter_errors(document):
        raise AssertionError(f"{error.json_path}: {error.message[:300]}")


def test_each_tables_schema_is_one_and_fits_its_list(campus, whole, tables):
    assert len(tables) > 80
    filled = 0
    for name in tables:
        schema = parsed(nqecli("schema", name))
        VALIDATOR.check_schema(schema)
        assert schema["$schema"] == "https://json-schema.org/draft/2020-12/schema"
        assert schema["$id"] == f"urn:qdt:list:{name}"
        document = parsed(nqecli("--snapshot", campus.snapshot, "list", name, "--json"))
        check(VALIDATOR(schema, format_checker=FORMATS), document)
        check(of(whole, f"list.{name}"), document)
        check(VALIDATOR(whole, format_checker=FORMATS), document)
        record = of(whole, f"{name}.whole")
        for row in document["records"][:50]:
            check(record, row)
        filled += bool(document["records"])
    assert filled > 60, "the site leaves too many tables empty for this to say much"


def test_live_engine_limit_count_and_lines(campus, whole, tables):
    for name in ("fib", "session", "ssw_macinfo"):
        validator = of(whole, f"list.{name}")
        for words in (["--limit", "1"], ["--limit", "0"], ["--count"], ["--sort", "-" + first_value(whole, name)]):
            check(validator, parsed(campus.engine.cli("list", name, "--json", *words)))
        lines = campus.engine.cli("list", name, "--ndjson").out.splitlines()
        assert lines
        for line in lines:
            check(of(whole, f"{name}.whole"), json.loads(line))
    check(of(whole, "usage"), parsed(campus.engine.cli("usage", "--json")))
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
            check(of(whole, f"list.{name}"), parsed(result))


def records_in(data):
    """(offset, size) of each record of an arena file, with what is attached to it; docs/arena.md has the map."""
    version, tables = (struct.unpack_from("<I", data, at)[0] for at in (8, 40))
    assert version == 4, "the offsets below are those of another format"
    directory, = struct.unpack_from("<Q", data, 48)
    for shape in range(directory, directory + 112 * tables, 112):
        defined, record, capacity, slot, attached = (
            struct.unpack_from(form, data, shape + at)[0]
            for form, at in (("<H", 2), ("<I", 4), ("<I", 12), ("<I", 32), ("<I", 36)))
        slab, = struct.unpack_from("<Q", data, shape + 96)
        for at in range(slab, slab + capacity * slot, slot) if defined else ():
            if any(data[at:at + 8]):
                yield at + 16, record + attached


def test_random_bytes(campus, whole, tables, tmp_path):
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
    (tmp_path / "copy").write_bytes(data)
    filled = 0
    for name in tables:
        result = nqecli("--snapshot", tmp_path / "copy", "list", name, "--json")
        document = parsed(result)
        check(of(whole, f"list.{name}"), document)
        for row in document["records"][:50]:
            check(of(whole, f"{name}.whole"), row)
        filled += bool(document["records"])
    assert filled > 60


def test_schemas_refuse_what_is_not_printed(campus, whole):
    """They say enough to be wrong."""
    document = parsed(nqecli("--snapshot", campus.snapshot, "list", "fib", "--json"))
    route = document["records"][0]
    validator = of(whole, "list.fib")
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
    assert not of(whole, "fib.whole").is_valid({name: route[name] for name in route if name != "vpn"})
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
        check(of(whole, "fields"), document)
        check(VALIDATOR(whole), document)
        assert document["count"] == len(document["fields"])


def test_regions(whole):
    regions = [name[len("region."):] for name in whole["$defs"] if name.startswith("region.")]
    assert "IP_REASS_CTX_PTR" in regions
    for name in regions:
        schema = parsed(nqecli("schema", name))
        VALIDATOR.check_schema(schema)
        assert schema["$id"] == f"urn:qdt:region:{name}"
        check(of(whole, "fields"), parsed(nqecli("fields", name, "--json")))


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

"""What nqecli prints as JSON, held against the schemas that nqecli tells."""

import functools
import json

import jsonschema

from conftest import nqecli

VALIDATOR = jsonschema.Draft202012Validator
FORMATS = jsonschema.FormatChecker(["ipv4", "ipv6"])

# The member that a command's document has and no other, and the name of its schema.
BY_MEMBER = {"answer": "watch", "diff": "diff", "explain": "explain", "fields": "fields", "find": "find",
             "findings": "check", "regions": "regions", "rows": "sql", "snapshot": "snapshot",
             "statistics": "statistics", "usage": "usage"}


def parsed(result, code=0):
    assert (result.code, result.err) == (code, ""), result
    return json.loads(result.out)


@functools.cache
def whole():
    """The schema of all documents."""
    schema = parsed(nqecli("schema"))
    VALIDATOR.check_schema(schema)
    return schema


@functools.cache
def of(name):
    """A validator of one definition of the whole schema."""
    return VALIDATOR({"$defs": whole()["$defs"], "$ref": f"#/$defs/{name}"}, format_checker=FORMATS)


def name_of(document):
    """The schema that a document claims to be of."""
    for member, name in BY_MEMBER.items():
        if member in document:
            return name
    for member, kind in (("view", "view"), ("region", "region"), ("table", "list")):
        if member in document:
            return f"{kind}.{document[member]}"
    raise AssertionError(f"what is this? {str(document)[:300]}")


def some(rows):
    """Not more than fifty of many rows, from all over."""
    return rows[::len(rows) // 50 + 1]


def check(validator, document):
    for error in validator.iter_errors(document):
        raise AssertionError(f"{error.json_path}: {error.message[:300]}")


def valid(document):
    """The document, which is valid by its schema. Of a long list some rows are looked at."""
    shorter = {name: some(value) if isinstance(value, list) else value for name, value in document.items()}
    check(of(name_of(document)), shorter)
    return document

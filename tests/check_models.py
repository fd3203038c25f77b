#!/usr/bin/env python3
"""Holds data models against what authors of YANG modules are asked for: RFC 7950 (the order of statements in its section
14, which it calls canonical) and RFC 8407 (sections 4.1, 4.3.1, 4.4, 4.8, 4.10 and 4.14). Whether a model is valid YANG
is yanglint's to say.

usage: check_models.py MODULE...
"""

import dataclasses
import pathlib
import re
import sys

TOKEN = re.compile(r"""\s+ | //[^\n]* | /\*.*?\*/ | (?P<mark>[{};+]) | "(?P<double>(?:[^"\\]|\\.)*)" | '(?P<single>[^']*)'
                       | (?P<word>[^\s{};"']+)""", re.X | re.S)
MAX_LINE = 72  # what stands in a line of an RFC (RFC 7994)
MAX_NAME = 64

NODES = {"container", "leaf", "leaf-list", "list", "choice", "anydata", "anyxml", "uses"}
LOCAL = {"typedef", "grouping"}
ENDING = ["status", "description", "reference"]
# Statements in their order; a set holds those that stand among each other.
ORDER = {
    "module": ["yang-version", "namespace", "prefix", "import", "include", "organization", "contact", "description",
               "reference", "revision",
               {"extension", "feature", "identity", "augment", "rpc", "notification", "deviation", *NODES, *LOCAL}],
    "import": ["prefix", "revision-date", "description", "reference"],
    "revision": ["description", "reference"],
    "extension": ["argument", *ENDING],
    "feature": ["if-feature", *ENDING],
    "identity": ["if-feature", "base", *ENDING],
    "typedef": ["type", "units", "default", *ENDING],
    "type": ["fraction-digits", "range", "length", "pattern", "path", "base", "require-instance", "enum", "bit", "type"],
    "range": ["error-message", "error-app-tag", "description", "reference"],
    "length": ["error-message", "error-app-tag", "description", "reference"],
    "pattern": ["modifier", "error-message", "error-app-tag", "description", "reference"],
    "must": ["error-message", "error-app-tag", "description", "reference"],
    "when": ["description", "reference"],
    "enum": ["if-feature", "value", *ENDING],
    "bit": ["if-feature", "position", *ENDING],
    "grouping": [*ENDING, {"action", "notification", *LOCAL, *NODES}],
    "container": ["when", "if-feature", "must", "presence", "config", *ENDING, {"action", "notification", *LOCAL, *NODES}],
    "leaf": ["when", "if-feature", "type", "units", "must", "default", "config", "mandatory", *ENDING],
    "leaf-list": ["when", "if-feature", "type", "units", "must", "default", "config", "min-elements", "max-elements",
                  "ordered-by", *ENDING],
    "anydata": ["when", "if-feature", "must", "config", "mandatory", *ENDING],
    "anyxml": ["when", "if-feature", "must", "config", "mandatory", *ENDING],
    "list": ["when", "if-feature", "must", "key", "unique", "config", "min-elements", "max-elements", "ordered-by",
             *ENDING, {"action", "notification", *LOCAL, *NODES}],
    "choice": ["when", "if-feature", "default", "config", "mandatory", *ENDING, {"case", *NODES}],
    "case": ["when", "if-feature", *ENDING, NODES],
    "uses": ["when", "if-feature", *ENDING, {"refine", "augment"}],
    "refine": ["if-feature", "must", "presence", "default", "config", "mandatory", "min-elements", "max-elements",
               "description", "reference"],
    "augment": ["when", "if-feature", *ENDING, {"case", "action", "notification", *NODES}],
    "rpc": ["if-feature", *ENDING, LOCAL, "input", "output"],
    "action": ["if-feature", *ENDING, LOCAL, "input", "output"],
    "input": ["must", LOCAL | NODES],
    "output": ["must", LOCAL | NODES],
    "notification": ["if-feature", "must", *ENDING, LOCAL | NODES],
    "deviation": ["description", "reference", "deviate"],
    "deviate": ["type", "units", "must", "unique", "default", "config", "mandatory", "min-elements", "max-elements"],
}
NEEDED = {"module": ["organization", "contact", "description", "revision"], "revision": ["description", "reference"],
          "import": ["reference"]}
DESCRIBED = {"extension", "feature", "identity", "typedef", "grouping", "container", "leaf", "leaf-list", "list", "choice",
             "anydata", "anyxml", "augment", "rpc", "action", "notification", "deviation", "enum", "bit", "must"}
SAID_ANYHOW = {"config": "true", "mandatory": "false", "status": "current", "ordered-by": "system", "min-elements": "0",
               "max-elements": "unbounded", "require-instance": "true"}
NAMED = {"extension", "feature", "identity", "typedef", "grouping", "container", "leaf", "leaf-list", "list", "choice", "case",
         "anydata", "anyxml", "rpc", "action", "notification"}


@dataclasses.dataclass
class Statement:
    keyword: str
    argument: str
    line: int
    parts: list = dataclasses.field(default_factory=list)

    def all(self):
        yield self
        for part in self.parts:
            yield from part.all()

    def has(self, keyword):
        return any(part.keyword == keyword for part in self.parts)


def tokens(text):
    at = 0
    while at < len(text):
        match = TOKEN.match(text, at)
        if match is None:
            raise ValueError(f"line {text.count(chr(10), 0, at) + 1} cannot be read")
        if match.lastgroup is not None:
            yield match.lastgroup, match[match.lastgroup], text.count("\n", 0, at) + 1
        at = match.end()


def parse(text):
    """The text's first statement."""
    stream = list(tokens(text))
    root = Statement("", "", 0)
    path, at = [root], 0
    while at < len(stream):
        kind, word, line = stream[at]
        at += 1
        if (kind, word) == ("mark", "}"):
            path.pop()
            continue
        statement = Statement(word, "", line)
        path[-1].parts.append(statement)
        while stream[at][:2] not in (("mark", "{"), ("mark", ";")):
            if stream[at][0] != "mark":
                statement.argument += stream[at][1]
            at += 1
        if stream[at][1] == "{":
            path.append(statement)
        at += 1
    return root.parts[0]


def out_of_order(statement):
    order = [group if isinstance(group, set) else {group} for group in ORDER.get(statement.keyword, [])]
    at = 0
    for part in statement.parts:
        if ":" in part.keyword:  # of an extension
            continue
        places = [place for place, group in enumerate(order) if part.keyword in group]
        if not places:
            yield part.line, f'"{part.keyword}" is no part of "{statement.keyword}"'
        elif places[0] < at:
            yield part.line, f'"{part.keyword}" comes too late in "{statement.keyword}"'
        else:
            at = places[0]


def lacking(statement, shows):
    needed = NEEDED.get(statement.keyword, ["description"] if statement.keyword in DESCRIBED else [])
    for keyword in needed:
        # What a condition means may be said by its message.
        if not statement.has(keyword) and not (statement.keyword == "must" and statement.has("error-message")):
            yield statement.line, f'"{statement.keyword} {shows}" lacks "{keyword}"'


def is_mandatory(node):
    """Whether configuration without the node is not valid (RFC 7950, 3)."""
    says = {part.keyword: part.argument for part in node.parts}
    if says.get("config") == "false":
        return False
    if node.keyword == "container":
        return "presence" not in says and any(map(is_mandatory, node.parts))
    if node.keyword in ("list", "leaf-list"):
        return says.get("min-elements", "0") != "0"
    return node.keyword in ("leaf", "choice", "anydata", "anyxml") and says.get("mandatory") == "true"


def mistakes(text):
    for number, line in enumerate(text.splitlines(), 1):
        if len(line) > MAX_LINE:
            yield number, f"{len(line)} characters, more than {MAX_LINE}"
        if "\t" in line or line != line.rstrip():
            yield number, "a tab, or blanks at the line's end"
    module = parse(text)
    for statement in module.all():
        shows = statement.argument.split("\n")[0]
        yield from out_of_order(statement)
        yield from lacking(statement, shows)
        if statement.keyword in NAMED and not re.fullmatch(r"[a-z][a-z0-9]*(-[a-z0-9]+)*", statement.argument):
            yield statement.line, f'"{shows}" is not in lower case with hyphens'
        if statement.keyword in NAMED and len(statement.argument) > MAX_NAME:
            yield statement.line, f'"{shows}" is longer than {MAX_NAME} characters'
        if SAID_ANYHOW.get(statement.keyword) == statement.argument:
            yield statement.line, f'"{statement.keyword} {shows}" says what holds without it'
    for part in module.parts:
        if is_mandatory(part):
            yield part.line, f'"{part.argument}" is mandatory at the top'
    revisions = [part.argument for part in module.parts if part.keyword == "revision"]
    if revisions != sorted(revisions, reverse=True):
        yield module.line, "the latest revision is not the first one"


def main(paths):
    if not paths:
        sys.exit(__doc__)
    wrong = 0
    for path in map(pathlib.Path, paths):
        try:
            found = list(mistakes(path.read_text(encoding="ascii")))
        except (OSError, ValueError, IndexError) as error:
            sys.exit(f"check_models: {path}: no module that can be read: {error}")
        for line, text in found:
            print(f"{path.name}:{line}: {text}")
        wrong += len(found)
    sys.exit(1 if wrong else 0)


if __name__ == "__main__":
    main(sys.argv[1:])

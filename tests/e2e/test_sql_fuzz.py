"""Random statements over damaged arenas: an answer or one line, and never a crash.

QDT_FUZZ_ROUNDS makes a longer run, QDT_FUZZ_SEED repeats one.
"""

import os
import random
import struct

from conftest import nqecli
from test_sql import columns_of, table_names

ROUNDS = int(os.environ.get("QDT_FUZZ_ROUNDS", "60"))
SEED = int(os.environ.get("QDT_FUZZ_SEED", "20"))
STATEMENTS = 12  # in one process
KEPT = 4096  # bytes of the header, which is checked when the arena is opened

VALUES = ["0", "1", "-1", "10", "2001", "9223372036854775807", "-9223372036854775808", "1.5", "1e300", "NULL", "''", "'x'",
          "'192.0.2.11'", "'0.0.0.0'", "'2001:db8:0:10::a1'", "'02:00:5e:30:00:01'", "x'00ff'", "'5x'", "'\\x00'",
          "char(0)", "hex(randomblob(9))", "random()"]
OPERATORS = ["=", "=", "=", "<>", "<", ">=", "IS", "IS NOT", "LIKE", "GLOB"]
FUNCTIONS = ["ip", "mac", "prefix_length", "ago", "typeof", "length", "hex", "upper", "json_type", "abs"]
AGGREGATES = ["count", "min", "max", "total", "group_concat"]


class Statements:
    """A small grammar over the tables that there are."""

    def __init__(self, dice):
        self.dice = dice
        self.columns = {name: [f'"{column}"' for column in columns_of(name)] for name in table_names()}

    def table(self):
        return self.dice.choice(list(self.columns))

    def column(self, aliases):
        alias, table = self.dice.choice(aliases)
        return f"{alias}.{self.dice.choice(self.columns[table])}"

    def value(self, aliases, depth=0):
        way = self.dice.random()
        if way < 0.5:
            return self.column(aliases)
        if way < 0.8 or depth > 2:
            return self.dice.choice(VALUES)
        if way < 0.9:
            return f"{self.dice.choice(FUNCTIONS)}({self.value(aliases, depth + 1)})"
        return f"in_prefix({self.value(aliases, depth + 1)}, '192.0.2.0/24')"

    def condition(self, aliases):
        way = self.dice.random()
        left = self.column(aliases)
        if way < 0.1:
            return f"{left} IN ({', '.join(self.dice.choices(VALUES, k=3))})"
        if way < 0.2:
            table = self.table()
            inner = [("z", table)] + aliases
            return f"EXISTS (SELECT 1 FROM {table} z WHERE {self.column([('z', table)])} = {self.column(inner)})"
        if way < 0.3:
            return f"({self.condition(aliases)} OR {self.condition(aliases)})"
        return f"{left} {self.dice.choice(OPERATORS)} {self.value(aliases)}"

    def make(self):
        aliases = [(chr(ord("a") + i), self.table()) for i in range(self.dice.choice([1, 1, 2, 2, 3]))]
        text = f"{aliases[0][1]} {aliases[0][0]}"
        for i, (alias, table) in enumerate(aliases[1:], 1):
            kind = self.dice.choice(["JOIN", "JOIN", "LEFT JOIN", "CROSS JOIN"])
            text += f" {kind} {table} {alias} ON {alias}.{self.dice.choice(self.columns[table])} = {self.column(aliases[:i])}"
        where = " AND ".join(self.condition(aliases) for _ in range(self.dice.randrange(3)))
        if self.dice.random() < 0.3:
            shown = f"{self.dice.choice(AGGREGATES)}({self.column(aliases)})"
            tail = f" GROUP BY {self.column(aliases)}" if self.dice.random() < 0.5 else ""
        else:
            shown = self.dice.choice(["*", ", ".join(self.value(aliases) for _ in range(3))])
            tail = f" ORDER BY {self.column(aliases)}" if self.dice.random() < 0.3 else ""
        return f"SELECT {shown} FROM {text}{' WHERE ' + where if where else ''}{tail} LIMIT 50"


class Damage:
    """Copies of an arena with some words other than they were, most of them where there are some."""

    def __init__(self, dice, saved):
        self.dice, self.saved = dice, saved
        self.pages = [at for at in range(0, len(saved), KEPT) if saved[at:at + KEPT] != bytes(len(saved[at:at + KEPT]))]
        self.used = [at for page in self.pages[1:] for at in range(page, min(page + KEPT, len(saved) - 8), 8)
                     if saved[at:at + 8] != bytes(8)]

    def write(self, file, words):
        """With so many words changed; holes stay holes."""
        with open(file, "wb") as copy:
            copy.truncate(len(self.saved))
            for page in self.pages:
                copy.seek(page)
                copy.write(self.saved[page:page + KEPT])
            for _ in range(words):
                at = self.dice.choice(self.used) if self.dice.random() < 0.9 else self.dice.randrange(
                    KEPT, len(self.saved) - 8, 8)
                copy.seek(at)
                copy.write(self.word(at))

    def word(self, at):
        way = self.dice.random()
        if way < 0.4:
            return struct.pack("<Q", int.from_bytes(self.saved[at:at + 8], "little") ^ 1 << self.dice.randrange(64))
        if way < 0.7:
            other = self.dice.choice(self.used)
            return self.dice.choice([bytes(8), b"\xff" * 8, b"\x01" + bytes(7), self.saved[other:other + 8]])
        return struct.pack("<Q", self.dice.getrandbits(64))


def test_random_statements_over_damaged_arenas(campus, directory):
    dice = random.Random(SEED)
    statements = Statements(dice)
    damage = Damage(dice, campus.snapshot.read_bytes())
    answered = failed = 0
    for number in range(ROUNDS):
        file = directory / "damaged"
        damage.write(file, dice.choice([1, 10, 100, 1000]) if number % 8 else 0)
        for _ in range(STATEMENTS):
            statement = statements.make()
            option = dice.choice(["--json", "--ndjson", "--csv", "--column"])
            result = nqecli("--snapshot", file, "sql", option, statement)
            told = f"round {number} of seed {SEED}: {statement}\n{result}"
            assert result.code in (0, 2), told
            if result.code == 0:
                assert result.err == "", told
                answered += 1
            else:
                assert result.err.startswith("nqecli: ") and result.err.count("\n") == 1, told
                failed += 1
    # Most of the statements mean something, and some of the damage shows.
    assert answered > ROUNDS and failed > 0, (answered, failed)

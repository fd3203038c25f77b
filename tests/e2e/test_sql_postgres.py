"""What docs/sql.md says of going on elsewhere: an NDJSON export in PostgreSQL, loaded as it says there."""

import contextlib
import glob
import json
import os
import pwd
import re
import shutil
import subprocess

import pytest

from conftest import BIN, PATIENCE, ROOT, nqecli, run, short_directory, wait_until

DOCS = (ROOT / "docs" / "sql.md").read_text()
PROGRAMS = (sorted(glob.glob("/usr/lib/postgresql/*/bin")) or [""])[-1]


def unprivileged():
    """The words that run a command as somebody whom PostgreSQL accepts, and that user; None when there is nobody."""
    if os.geteuid() != 0:
        return [], pwd.getpwuid(os.geteuid())
    for name in ("postgres", "nobody"):
        with contextlib.suppress(KeyError):
            user = pwd.getpwnam(name)
            return ["setpriv", f"--reuid={user.pw_uid}", f"--regid={user.pw_gid}", "--clear-groups"], user
    return None


if not (os.path.exists(f"{PROGRAMS}/initdb") and shutil.which("psql")):
    pytest.skip("PostgreSQL is not installed (package postgresql)", allow_module_level=True)
if unprivileged() is None:
    pytest.skip("PostgreSQL refuses root, and there is no user postgres or nobody", allow_module_level=True)


class Postgres:
    def __init__(self, directory):
        self.directory = directory

    def ask(self, statements, text=b""):
        """Rows as psql -At writes them; `text` goes to COPY ... FROM STDIN."""
        result = run("psql", "-h", self.directory, "-U", "tester", "-d", "postgres", "-X", "-q", "-A", "-t",
                     "-v", "ON_ERROR_STOP=1", "-c", "SET client_min_messages = warning", "-c", statements, input=text)
        assert (result.code, result.err) == (0, ""), result
        return result.out


@pytest.fixture(scope="module")
def postgres():
    """A server of its own in a directory of its own, on a socket there and nowhere else."""
    words, user = unprivileged()
    with short_directory() as directory:
        os.chown(directory, user.pw_uid, user.pw_gid)
        made = run(*words, f"{PROGRAMS}/initdb", "-D", directory / "data", "-U", "tester", "-A", "trust", "-E", "UTF8",
                   "--no-locale", "--no-sync", cwd=directory)
        assert made.code == 0, made
        with open(directory / "log", "wb") as log:
            server = subprocess.Popen(
                [*words, f"{PROGRAMS}/postgres", "-D", directory / "data", "-k", directory, "-c", "listen_addresses=",
                 "-c", "fsync=off"], stdin=subprocess.DEVNULL, stdout=log, stderr=log, cwd=directory)
        try:
            def ready():
                assert server.poll() is None, (directory / "log").read_text()
                return run("psql", "-h", directory, "-U", "tester", "-d", "postgres", "-c", "SELECT 1").code == 0

            wait_until(ready, "PostgreSQL")
            yield Postgres(directory)
        finally:
            server.terminate()
            try:
                server.wait(PATIENCE)
            except subprocess.TimeoutExpired:
                server.kill()
                server.wait()


def make_table(postgres, name):
    """The command of docs/sql.md that makes the table's statement, with its own words."""
    (edit,) = re.findall(r"^    nqecli sql --schema arp \| (sed '.*')$", DOCS, re.M)
    schema = run("sh", "-c", f'"$0" --snapshot "*" sql --schema {name} | {edit}', BIN / "nqecli")
    assert (schema.code, schema.err) == (0, ""), schema
    postgres.ask(f'DROP TABLE IF EXISTS "{name}"; ' + schema.out)


def load(postgres, name, lines):
    statements = re.findall(r"^    ((?:CREATE TABLE raw|COPY raw|INSERT INTO arp).*;)$", DOCS, re.M)
    assert len(statements) == 3
    make_table(postgres, name)
    create, copy, insert = [re.sub(r"\barp\b", f'"{name}"', statement) for statement in statements]
    postgres.ask("DROP TABLE IF EXISTS raw; " + create)
    postgres.ask(copy, lines.encode())
    postgres.ask(insert)


@pytest.fixture(scope="module")
def files(campus):
    with short_directory() as directory:
        for name in ("gw1", "gw2"):
            shutil.copy(campus.snapshot, directory / f"{name}.snapshot")
        yield directory


def export(files, table):
    result = nqecli("--snapshot", f"{files}/*.snapshot", "sql", "--ndjson", f'SELECT *, _address FROM "{table}"')
    assert (result.code, result.err) == (0, ""), result
    return result.out


def both(postgres, files, statement):
    """Asserts that nqecli sql and PostgreSQL answer alike, and returns the answer as rows."""
    ours = nqecli("--snapshot", f"{files}/*.snapshot", "sql", "--json", statement)
    assert (ours.code, ours.err) == (0, ""), ours
    rows = [list(row.values()) for row in json.loads(ours.out)["rows"]]
    theirs = [line.split("|") for line in postgres.ask(statement).splitlines()]
    assert [["" if cell is None else str(cell) for cell in row] for row in rows] == theirs
    return rows


def test_an_export_answers_alike(postgres, files):
    for table in ("arp", "session", "ssw_macinfo", "fwdif_counters"):
        load(postgres, table, export(files, table))
    assert both(postgres, files, "SELECT count(*), count(DISTINCT dmac), min(next_hop), sum(vlan_id) FROM arp")[0][0] == 88
    assert len(both(postgres, files, "SELECT arena, vlan_id, count(*) FROM ssw_macinfo GROUP BY arena, vlan_id "
                                     "ORDER BY arena, vlan_id")) == 8
    assert both(postgres, files, "SELECT positive_protocol, count(*), count(positive_source), sum(positive_destination_port) "
                                 "FROM session GROUP BY positive_protocol ORDER BY positive_protocol IS NULL, "
                                 "positive_protocol")[0][0] == 1
    both(postgres, files, "SELECT if_index, sum(in_bytes), sum(out_bytes) FROM fwdif_counters GROUP BY if_index "
                          "ORDER BY 2 DESC, 1 LIMIT 5")
    # A join across tables, devices kept apart.
    assert both(postgres, files, "SELECT a.arena, count(*) FROM arp a JOIN ssw_macinfo m ON m.arena = a.arena AND m.mac = "
                                 "a.dmac AND m.vlan_id = a.vlan_id GROUP BY a.arena ORDER BY a.arena")[0][1] > 30


def test_references_join_there_as_well(postgres, files):
    lines = {table: nqecli("--snapshot", f"{files}/*.snapshot", "sql", "--ndjson",
                           f"SELECT *, _address{more} FROM {table}").out
             for table, more in (("fib", ", next_hop_address"), ("nhp", ""))}
    for table, text in lines.items():
        load(postgres, table, text)
    rows = both(postgres, files, 'SELECT f.arena, f.destination, n."index" FROM fib f JOIN nhp n ON n.arena = f.arena AND '
                                 "n._address = f.next_hop_address ORDER BY 1, 2, 3")
    assert len(rows) == 18

"""nqecli sql: statements against a running engine and its snapshot, its forms and its bad input."""

import json
import signal
import subprocess

import pytest

from conftest import BIN, PATIENCE, ROOT, nqecli, run, short_directory, site_of, wait_until
from schemas import valid

ONLY_READING = "nqecli: only reading is possible here (SELECT, or PRAGMA table_xinfo(TABLE))\n"


def ask(site, statement, *options, **more):
    return nqecli("--snapshot", site.snapshot, "sql", *options, statement, **more)


def rows_of(site, statement):
    result = ask(site, statement, "--json")
    assert (result.code, result.err) == (0, ""), result
    return valid(json.loads(result.out))["rows"]


def table_names():
    """Those of the schema, in its order."""
    schema = nqecli("sql", "--schema").out
    return [line.split('"')[1] for line in schema.splitlines() if line.startswith("CREATE TABLE")]


def columns_of(name):
    """{column: (type, hidden)} by nqecli sql --schema."""
    lines = nqecli("sql", "--schema", name).out.splitlines()
    columns = [line.split('"', 2)[1:] for line in lines if line.startswith('  "')]
    return {name: (rest.split()[0].rstrip(","), "HIDDEN" in rest.split("--")[0]) for name, rest in columns}


# ---- The same as nqecli list ----

def key_text(value):
    """What a column shows of a reference that list writes as an object: all behind the table's name."""
    if "stale" in value:
        return "stale"
    return "/".join(str(part) for part in value.values())


def flat(record, columns, prefix=""):
    """A record of list --json by the columns of SQL, or {column: None} for what the record lacks."""
    cells = {}
    for name, value in record.items():
        column = prefix + name
        if column in columns:
            cells[column] = value
        elif isinstance(value, dict):
            cells.update(flat(value, columns, column + "_"))
        else:
            raise AssertionError(f"no column {column}")
    return cells


def same(cell, value, other):
    """Whether a cell shows a value of list. `other` is the value a moment later: ages may grow between."""
    if isinstance(value, bool):
        return cell == int(value)
    if isinstance(value, int) and isinstance(cell, int):
        return value <= cell <= other
    if isinstance(value, int):
        return value >= 2**63 and cell == str(value)
    if isinstance(value, list):
        return json.loads(cell) == value
    if isinstance(value, dict):
        (name, inner), = value.items() if len(value) == 1 else [(None, None)]
        if isinstance(inner, dict):
            return cell == f"{name}/{key_text(inner)}"
        return cell.split("/", 1)[1] == key_text(value)
    return cell == value


def listed(site, name):
    result = nqecli("--snapshot", site.snapshot, "list", name, "--json")
    assert result.code == 0, result
    return json.loads(result.out)["records"]


def record_tables(site):
    usage = json.loads(nqecli("--snapshot", site.snapshot, "usage", "--json").out)
    names = set(table_names())
    return [table["table"] for table in usage["usage"] if table["table"] in names]


def test_every_table_shows_what_list_shows(campus):
    checked = 0
    for name in record_tables(campus):
        columns = columns_of(name)
        before = listed(campus, name)
        rows = rows_of(campus, f'SELECT * FROM "{name}"')
        after = listed(campus, name)
        assert len(rows) == len(before), name
        for row, record, later in zip(rows, before, after):
            record.pop("record", None)
            cells, others = flat(record, columns), flat(later, columns)
            assert list(row) == [column for column, (_, hidden) in columns.items() if not hidden]
            for column, cell in row.items():
                if cells.get(column) is None:
                    assert cell is None, (name, column, cell)
                else:
                    assert same(cell, cells[column], others[column]), (name, column, cell, cells[column])
                    checked += 1
    assert checked > 5000


def lists_of(record, prefix=""):
    for name, value in record.items():
        if isinstance(value, list) and value and isinstance(value[0], dict):
            yield prefix + name, value
        elif isinstance(value, dict):
            yield from lists_of(value, prefix + name + "_")


def test_every_list_shows_its_elements(campus):
    names = table_names()
    seen = set()
    for table in record_tables(campus):
        here = {f"{table}_{path}" for record in listed(campus, table) for path, _ in lists_of(record)}
        assert here <= set(names)
        seen |= here
        for name in here:
            path = name[len(table) + 1:]
            wanted = [(i, element) for record in listed(campus, table)
                      for i, element in enumerate(dict(lists_of(record)).get(path, []))]
            rows = rows_of(campus, f'SELECT * FROM "{name}"')
            assert [row["element"] for row in rows] == [i for i, _ in wanted], name
            columns = columns_of(name)
            for row, (_, element) in zip(rows, wanted):
                cells = {"reference": element} if "reference" in columns else flat(element, columns)
                for column, value in cells.items():
                    if value is not None:
                        assert same(row[column], value, value), (name, column, row[column], value)
    assert len(seen) >= 12, seen


# ---- Forms ----

FORMS = """SELECT 'a"b,c' AS text, 5 AS number, 1.5 AS real, NULL AS none, x'00ff' AS blob,
                  CAST(x'61ff62' AS TEXT) AS bytes, 'a' || char(0, 10) || 'b' AS controls, 'x\\y' AS back"""


def test_json(campus):
    ask(campus, FORMS, "--json").answered(
        '{"rows":[{"text":"a\\"b,c","number":5,"real":1.5,"none":null,"blob":"00ff","bytes":"a\\\\xffb",'
        '"controls":"a\\\\x00\\\\x0ab","back":"x\\\\y"}],"count":1}\n')
    ask(campus, "SELECT 1 WHERE 0", "--json").answered('{"rows":[],"count":0}\n')
    ask(campus, "SELECT 1e999 AS a, -1e999 AS b, 9223372036854775807 AS c, -9223372036854775808 AS d", "--json").answered(
        '{"rows":[{"a":null,"b":null,"c":9223372036854775807,"d":-9223372036854775808}],"count":1}\n')


def test_ndjson(campus):
    ask(campus, "SELECT column1 AS a, column2 AS b FROM (VALUES (1, 'x'), (2, NULL))", "--ndjson").answered(
        '{"a":1,"b":"x"}\n{"a":2,"b":null}\n')
    ask(campus, "SELECT 1 WHERE 0", "--ndjson").answered("")


def test_csv(campus):
    result = ask(campus, FORMS, "--csv")
    assert result.out == ('text,number,real,none,blob,bytes,controls,back\r\n'
                          '"a""b,c",5,1.5,,00ff,a\\xffb,a\\x00\\x0ab,x\\y\r\n'), result
    ask(campus, "SELECT 1 AS a WHERE 0", "--csv").answered("a\r\n")
    ask(campus, "SELECT NULL AS a UNION ALL SELECT 'b' UNION ALL SELECT ''", "--csv").answered('a\r\n""\r\nb\r\n""\r\n')


def test_columns(campus):
    statement = "SELECT prefix, destination, next_hop FROM fib WHERE NOT direct AND prefix > 0"
    for options in ([], ["--column"]):
        ask(campus, statement, *options).answered(
            "prefix  destination    next_hop\n"
            "    24  203.0.113.0    nhp_group/2\n"
            "    25  203.0.113.128  nhp/stale\n"
            "    28  192.0.2.208\n")


def test_columns_of_one_name(campus):
    ask(campus, "SELECT 1 AS a, 2 AS a, 3 AS a_2, 4 AS a", "--ndjson").answered('{"a":1,"a_2":2,"a_2_2":3,"a_3":4}\n')


def test_hostile_names(campus):
    ask(campus, "SELECT 1 AS \"a\nb\", 2 AS \"\"", "--csv").answered("a\\x0ab,\r\n1,2\r\n")


def test_statements_on_standard_input(campus):
    def given(text):
        return nqecli("--snapshot", campus.snapshot, "sql", "--ndjson", input=text)

    given(b"SELECT 1 AS a; -- one\n\n/* two */ SELECT 2 AS b;;\n").answered('{"a":1}\n{"b":2}\n')
    result = given(b"SELECT 1 AS a; SELEC 2; SELECT 3 AS c")
    assert (result.code, result.out, result.err) == (2, '{"a":1}\n', 'nqecli: near "SELEC": syntax error\n'), result
    given(b"").failed('no statement (write nqecli sql "SELECT ...", or statements on standard input)')
    given(b" ; -- nothing\n").failed("no statement")
    given(b"SELECT 1;\0 SELECT 2").failed("the statements have a byte 0 in them, which is no character of SQL")
    given(b"SELECT '\xff' AS a").answered('{"a":"\\\\xff"}\n')


# ---- Bad input ----

@pytest.mark.parametrize("statement, message", [
    ("SELECT", "incomplete input"),
    ("SELECT * FROM", "incomplete input"),
    ("SELECT ' ", 'unrecognized token: "\' "'),
    ("SELECT * FROM fibx", "no such table: fibx; did you mean fib?"),
    ("SELECT * FROM nhp_l1_service", "no such table: nhp_l1_service; did you mean nhp_l1_services?"),
    ("SELECT * FROM main.arps", "no such table: main.arps; did you mean arp?"),
    ("SELECT * FROM qwertyuiop", 'no such table: qwertyuiop; "nqecli sql --schema" lists them'),
    ("SELECT nope FROM fib", "no such column: nope"),
    ("SELECT nope(1)", "no such function: nope"),
    ("SELECT ip(1, 2)", "wrong number of arguments to function ip()"),
    ("SELECT zeroblob(300000000)", "string or blob too big"),
    ("SELECT json('{')", "malformed JSON"),
    ("SELECT abs(-9223372036854775808)", "integer overflow"),
    ("SELECT load_extension('x')", "not authorized to use function: load_extension"),
    ("SELECT 1; \x01", 'unrecognized token: "\\x01"'),
    ("SELECT * FROM fib WHERE match = '192.0.2.9' COLLATE NOCASE",
     "no query solution; match has to be compared by = with a value that is known before (name its table first)"),
])
def test_statements_that_fail(campus, statement, message):
    result = ask(campus, statement)
    assert (result.code, result.err) == (2, f"nqecli: {message}\n"), result


@pytest.mark.parametrize("statement", [
    "CREATE TABLE t(a)", "CREATE TEMP TABLE t(a)", "CREATE VIEW v AS SELECT 1", "CREATE VIRTUAL TABLE t USING fib",
    "ATTACH 'written.db' AS other", "DETACH main", "VACUUM", "VACUUM INTO 'written.db'", "PRAGMA writable_schema = 1",
    "PRAGMA temp_store_directory = '.'", "PRAGMA journal_mode = WAL", "PRAGMA query_only = 0", "ANALYZE",
    "BEGIN IMMEDIATE", "CREATE TRIGGER t AFTER INSERT ON fib BEGIN SELECT 1; END",
])
def test_what_writes_is_refused(campus, statement):
    with short_directory() as directory:
        result = ask(campus, statement, cwd=directory)
        assert (result.code, result.out) == (2, ""), result
        assert result.err in (ONLY_READING, "nqecli: cannot create triggers on virtual tables\n"), result
        assert list(directory.iterdir()) == []


@pytest.mark.parametrize("statement, message", [
    ("INSERT INTO fib(vpn) VALUES (1)", "table fib may not be modified"),
    ("REPLACE INTO usage(name) VALUES ('x')", "table usage may not be modified"),
    ("UPDATE arp SET vpn = 1", "table arp may not be modified"),
    ("DELETE FROM nhp_fwdifs", "table nhp_fwdifs may not be modified"),
    ("DROP TABLE session", "table session may not be dropped"),
    ("ALTER TABLE fib RENAME TO x", "table fib may not be altered"),
    ("CREATE INDEX i ON fib(vpn)", "virtual tables may not be indexed"),
])
def test_tables_are_not_changed(campus, statement, message):
    ask(campus, statement).failed(message)


def test_options(campus):
    nqecli("sql", "--jsn", "SELECT 1").failed('unknown option "--jsn"')
    nqecli("sql", "--json", "--csv", "SELECT 1").failed("--csv and another form exclude each other; name one")
    nqecli("sql", "SELECT 1", "SELECT 2").failed("sql takes one text of statements; put it between quotes")
    nqecli("sql", "--schema", "fibx").failed('unknown table "fibx" (did you mean fib?)')
    assert nqecli("sql", "--help").out.startswith("usage: nqecli [--arena PATH | --snapshot FILE] sql ")
    for remark in (["-- A remark, not an option\nSELECT 1 AS a"], ["--remark\nSELECT(1)a"], ["--", "--csv\nSELECT 1 AS a"]):
        ask(campus, *remark).answered("a\n1\n")
    with short_directory() as directory:
        spaced = directory / "saved on monday"
        spaced.symlink_to(campus.snapshot)
        for words in (["--snapshot", spaced, "sql"], ["sql", f"--snapshot={spaced}"]):
            nqecli(*words, "SELECT count(*) AS n FROM global").answered("n\n1\n")
    # Before and behind the command.
    campus.engine.cli("sql", "SELECT 1 AS a").answered("a\n1\n")
    nqecli("sql", "--snapshot", campus.snapshot, "SELECT 1 AS a").answered("a\n1\n")
    nqecli("sql", "--snapshot", "/nowhere", "SELECT 1 AS a").answered("a\n1\n")  # asks no arena
    nqecli("sql", "--snapshot", "/nowhere", "SELECT * FROM fib").failed("there is no snapshot at /nowhere")
    with short_directory() as directory:
        nqecli("sql", "--arena", directory / "none", "SELECT * FROM fib").failed("no engine runs", "none")


ENDLESS = "WITH RECURSIVE c(x) AS (SELECT 1 UNION ALL SELECT x + 1 FROM c) SELECT x FROM c"


def piped(site, statement, lines, *options):
    """The first lines of an answer whose reader then goes away; how the tool ends."""
    process = subprocess.Popen([BIN / "nqecli", "--snapshot", site.snapshot, "sql", *options, statement],
                               stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, stderr=subprocess.PIPE)
    try:
        first = [process.stdout.readline().decode() for _ in range(lines)]
        process.stdout.close()
        assert process.wait(PATIENCE) == 2
        assert process.stderr.read() == b""
        return first
    finally:
        process.kill()
        process.wait()
        process.stderr.close()


def test_whoever_closes_the_pipe_has_seen_enough(campus):
    assert piped(campus, ENDLESS, 2) == ["  x\n", "  1\n"]
    assert piped(campus, ENDLESS, 2, "--csv") == ["x\r\n", "1\r\n"]
    assert piped(campus, ENDLESS, 1, "--ndjson") == ['{"x":1}\n']
    # A gigabyte in rows of a megabyte.
    wide = "WITH RECURSIVE c(x) AS (SELECT 1 UNION ALL SELECT x + 1 FROM c LIMIT 500) SELECT hex(zeroblob(1000000)) FROM c"
    assert [len(line) for line in piped(campus, wide, 2, "--csv")] == [24, 2000002]


def test_a_full_disk_is_said(campus):
    for option in ("--column", "--json", "--ndjson", "--csv"):
        with open("/dev/full", "wb") as full:
            done = subprocess.run([BIN / "nqecli", "--snapshot", campus.snapshot, "sql", option, "SELECT * FROM arp"],
                                  stdout=full, stderr=subprocess.PIPE, timeout=PATIENCE)
        assert (done.returncode, done.stderr.decode()) == (
            2, "nqecli: cannot write the answer: No space left on device\n"), option


def test_what_fails_on_its_way_does_not_look_whole(campus):
    late = "SELECT abs(column1) AS a FROM (VALUES (1), (-9223372036854775808))"
    for option, out in (("--column", "a\n1\n"), ("--csv", "a\r\n1\r\n#error: integer overflow\r\n"),
                        ("--ndjson", '{"a":1}\n{"error":"integer overflow"}\n'), ("--json", '{"rows":[{"a":1}\n')):
        result = ask(campus, late, option)
        assert (result.code, result.out, result.err) == (2, out, "nqecli: integer overflow\n"), result


# ---- A running engine ----

# Reads one counter of the uplink again and again.
AGAIN = """WITH RECURSIVE c(i) AS (SELECT 1 UNION ALL SELECT i + 1 FROM c LIMIT 40000)
           SELECT count(DISTINCT (SELECT total(in_packets) + i - i FROM fwdif_counters WHERE if_index = 1)) AS n FROM c"""


def test_frozen_is_one_moment():
    with site_of(ROOT / "examples" / "campus.yaml", "--traffic", "2000") as site:
        def values(*options):
            return json.loads(site.engine.cli("sql", "--json", *options, AGAIN).out)["rows"][0]["n"]

        wait_until(lambda: values() > 1, "an answer of several moments")
        assert values("--frozen") == 1
        site.engine.cli("sql", "--frozen", "SELECT count(*) AS n FROM fib").answered(" n\n13\n")


def test_an_engine_that_goes_away_ends_the_statement():
    with short_directory() as directory:
        with site_of(ROOT / "examples" / "campus.yaml") as site:
            many = "SELECT a.next_hop FROM arp a, arp b, arp c, arp d, arp e"
            process = subprocess.Popen([BIN / "nqecli", "--arena", site.engine.arena, "sql", "--ndjson", many],
                                       stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, stderr=subprocess.PIPE)
            try:
                assert process.stdout.readline() == b'{"next_hop":"192.0.2.11"}\n'
                site.engine.end(signal.SIGKILL)
                out, err = process.communicate(timeout=PATIENCE)
            finally:
                process.kill()
                process.wait()
            message = f"the engine is gone: the arena at {site.engine.arena} has no engine any more"
            assert (process.returncode, err.decode()) == (2, f"nqecli: {message}\n")
            assert out.decode().splitlines()[-1] == json.dumps({"error": message}, separators=(",", ":"))
            site.engine.cli("sql", "SELECT * FROM fib").failed("the engine is gone")
            # The arena that it left is a saved one.
            nqecli("--snapshot", site.engine.arena, "sql", "SELECT count(*) AS n FROM fib").answered(" n\n13\n")
            site.engine.start()
        assert list(directory.iterdir()) == []


# ---- Many arenas ----

@pytest.fixture(scope="module")
def fleet(campus):
    with short_directory() as directory:
        for name in ("b", "a", "c"):
            (directory / f"{name}.snapshot").write_bytes(campus.snapshot.read_bytes())
        yield directory


def test_many_arenas(fleet):
    def asked(statement, *options):
        return run(BIN / "nqecli", "--snapshot", "*.snapshot", "sql", "--csv", *options, statement, cwd=fleet)

    asked("SELECT arena, count(*) AS n FROM arp GROUP BY arena").answered(
        "arena,n\r\na.snapshot,44\r\nb.snapshot,44\r\nc.snapshot,44\r\n")
    asked("SELECT DISTINCT arena FROM session").answered("arena\r\na.snapshot\r\nb.snapshot\r\nc.snapshot\r\n")
    asked("SELECT arena, dmac FROM arp WHERE vpn = 0 AND next_hop = '192.0.2.11' AND arena > 'a.snapshot'").answered(
        "arena,dmac\r\nb.snapshot,02:00:5e:30:00:01\r\nc.snapshot,02:00:5e:30:00:01\r\n")
    asked("SELECT count(*) AS n FROM fib f JOIN nhp n ON n.arena = f.arena AND n._address = f.next_hop_address").answered(
        "n\r\n27\r\n")
    assert nqecli("--snapshot", "*.snapshot", "sql", "--schema", "arp").out.splitlines()[2] == (
        '  "arena" TEXT, -- the arena that the row is from')
    run(BIN / "nqecli", "--snapshot", "*.none", "sql", "SELECT 1", cwd=fleet).failed('no file fits "*.none"')


def test_a_file_whose_name_could_be_a_pattern(fleet):
    with short_directory() as directory:
        (directory / "a[1].snapshot").symlink_to(fleet / "a.snapshot")
        run(BIN / "nqecli", "--snapshot", "a[1].snapshot", "sql", "--csv", "SELECT *, _arena FROM ipv6_portip_head LIMIT 1",
            cwd=directory).answered("fwd_if_index,list_id,_arena\r\n201,601,a[1].snapshot\r\n")


def test_a_damaged_one_among_many(fleet):
    with short_directory() as directory:
        for name in ("a", "c"):
            (directory / f"{name}.snapshot").symlink_to(fleet / f"{name}.snapshot")
        (directory / "b.snapshot").write_bytes((fleet / "b.snapshot").read_bytes()[:5000])
        for statement in ("SELECT count(*) FROM arp", "SELECT * FROM arp WHERE vpn = 0 AND next_hop = '192.0.2.11'",
                          "SELECT * FROM usage", "SELECT * FROM arp a JOIN arp b ON a.dmac = b.dmac"):
            result = nqecli("--snapshot", f"{directory}/*.snapshot", "sql", statement)
            assert result.code == 2 and result.err.count("\n") == 1, result
            assert f"{directory}/b.snapshot" in result.err, result
        nqecli("--snapshot", f"{directory}/*.snapshot", "sql",
               f"SELECT count(*) AS n FROM arp WHERE arena = '{directory}/c.snapshot'").answered(" n\n44\n")


# ---- The extension, in programs that are not ours ----

EXTENSION = BIN.parent / "lib" / "libnqe_sql"
SANITIZED = "no sanitizers" not in nqecli("--version").out
loads = pytest.mark.skipif(SANITIZED, reason="a program without sanitizers cannot load what has them")

PYTHON = """
import sqlite3, sys
connection = sqlite3.connect(":memory:")
connection.enable_load_extension(True)
connection.load_extension(sys.argv[1])
try:
    for statement in sys.argv[2:]:
        print(connection.execute(statement).fetchall())
except sqlite3.Error as error:
    print(type(error).__name__ + ":", error)
"""


def in_python(*statements):
    return run("/usr/bin/python3", "-c", PYTHON, str(EXTENSION), *statements)


def in_shell(*statements):
    return run("/usr/bin/sqlite3", "-batch", "-cmd", f".load {EXTENSION}", ":memory:", "; ".join(statements))


@loads
def test_sqlite_shell(campus):
    attach = f"SELECT nqe_attach('{campus.engine.arena}')"
    in_shell(attach, "SELECT count(*) FROM fib", "SELECT prefix FROM fib WHERE match = '192.0.2.9'").answered("1\n13\n26\n")
    in_shell(attach, attach, "SELECT count(*) FROM fib").answered("1\n1\n13\n")
    in_shell(attach, f"SELECT nqe_attach('{campus.snapshot}')", "SELECT count(*), count(DISTINCT _arena) FROM fib").answered(
        "1\n2\n26|2\n")
    in_shell(f"SELECT nqe_attach('{campus.engine.arena}', 'frozen')", "SELECT count(*) FROM arp").answered("1\n44\n")
    result = in_shell("SELECT * FROM fib")
    assert result.code != 0 and "no arena is attached (SELECT nqe_attach('PATH')" in result.err, result
    result = in_shell("SELECT nqe_attach('/nowhere')")
    assert result.code != 0 and "there is no snapshot at /nowhere" in result.err, result
    result = in_shell(attach, "DELETE FROM fib")
    assert result.code != 0 and "table fib may not be modified" in result.err, result
    # Answers can be kept, which is the database's own affair.
    in_shell(attach, "CREATE TABLE kept AS SELECT * FROM arp", "SELECT count(*) FROM kept").answered("1\n44\n")


@loads
def test_python(campus):
    attach = f"SELECT nqe_attach('{campus.engine.arena}')"
    in_python(attach, "SELECT dmac FROM arp WHERE vpn = 0 AND next_hop = '192.0.2.11'",
              "SELECT positive6_source, new_source_port FROM session WHERE \"index\" = 1").answered(
        "[(1,)]\n[('02:00:5e:30:00:01',)]\n[(None, 20011)]\n")
    in_python("SELECT count(*) FROM arp").answered(
        "OperationalError: no arena is attached (SELECT nqe_attach('PATH'), or nqe_attach('PATH', 'frozen'))\n")
    in_python("SELECT nqe_attach('/nowhere')").answered(
        "OperationalError: there is no snapshot at /nowhere (write one with nqecli snapshot FILE)\n")
    in_python(attach, "SELECT nqe_attach('x', 'thawed')").answered(
        "[(1,)]\nOperationalError: nqe_attach: \"thawed\" is not a way to look (write 'live' or 'frozen')\n")


@loads
def test_python_sees_the_engine_go():
    with site_of(ROOT / "examples" / "campus.yaml") as site:
        process = subprocess.Popen(["/usr/bin/python3", "-u", "-c", PYTHON + """
sys.stdin.readline()
try:
    print(connection.execute("SELECT count(*) FROM fib").fetchone())
except sqlite3.Error as error:
    print(error)
connection.execute("SELECT nqe_attach(?)", (sys.argv[2].split("'")[1],))
""", str(EXTENSION), f"SELECT nqe_attach('{site.engine.arena}')", "SELECT count(*) FROM fib"],
                                   stdin=subprocess.PIPE, stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True)
        try:
            assert [process.stdout.readline() for _ in range(2)] == ["[(1,)]\n", "[(13,)]\n"]
            site.engine.end(signal.SIGKILL)
            out, err = process.communicate("\n", timeout=PATIENCE)
        finally:
            process.kill()
            process.wait()
        assert out == f"the engine is gone: the arena at {site.engine.arena} has no engine any more\n", (out, err)
        # What it left is a saved arena.
        assert (process.returncode, err) == (0, "")
        site.engine.start()


def test_findings_statistics_and_snapshots(campus):
    """The tables that tell of the arena itself say what the tool's own commands say."""
    def rows(statement):
        return json.loads(campus.engine.cli("sql", "--json", statement).out)["rows"]

    findings = json.loads(campus.engine.cli("check", "--json").out)["findings"]
    assert len(findings) == 14
    assert [(row["severity"], row["table_name"], row["field"], row["problem"]) for row in rows("SELECT * FROM findings")] == [
        (one["severity"], one["table"], one["field"], one["problem"]) for one in findings]
    assert rows("SELECT core, value FROM statistics WHERE name = 'CAR - arp-request' ORDER BY core") == [
        {"core": 0, "value": 60}, {"core": 1, "value": 52}, {"core": 2, "value": 29}, {"core": 3, "value": 27}]
    assert rows("SELECT count(*) AS n, count(DISTINCT number) AS counters FROM statistics") == [
        {"n": 4 * 831, "counters": 831}]
    live = rows("SELECT saved, pid, arena_path FROM snapshots")
    assert live == [{"saved": None, "pid": campus.engine.process.pid, "arena_path": str(campus.engine.arena)}]
    frozen = json.loads(campus.engine.cli("sql", "--frozen", "--json", "SELECT * FROM snapshots").out)["rows"]
    assert [(row["path"], row["arena_path"]) for row in frozen] == [(None, str(campus.engine.arena))]
    saved = json.loads(nqecli("--snapshot", campus.snapshot, "sql", "--json", "SELECT saved, pid FROM snapshots").out)
    assert saved["rows"][0]["saved"] and saved["rows"][0]["pid"] == campus.engine.process.pid

"""nqecli list: tables as data, whatever they and the words are like."""

import csv
import io
import json
import random
import re
import shutil
import signal
import struct
import subprocess
import time

import pytest

from conftest import BIN, PATIENCE, ROOT, engine_on, nqecli, run

MACS = """\
ssw_macinfo:
  - {repeat: 16384, bridge_id: 1, vlan_id: {from: 0, step: 1}, mac: {from: 02:00:5e:00:00:00, step: 1},
     out_if_index: {from: 100000, step: 1}}
"""


def document(answer):
    """A whole JSON answer, parsed."""
    assert (answer.code, answer.err) == (0, ""), answer
    assert answer.out.endswith("}\n")
    return json.loads(answer.out)


@pytest.fixture(scope="module")
def macs():
    with engine_on(MACS) as place:
        yield place


def test_options_stand_anywhere(campus):
    wanted = campus.engine.cli("list", "nhp", "index=1", "--json")
    assert document(wanted)["count"] == 1
    arena = ("--arena", campus.engine.arena)
    for words in (["list", "--json", "nhp", "index=1"], ["list", "nhp", "--json", "index=1"]):
        for at in range(len(words) + 1):
            answer = nqecli(*words[:at], *arena, *words[at:])
            assert (answer.code, answer.out, answer.err) == (0, wanted.out, ""), answer
    saved = nqecli("list", "nhp", f"--snapshot={campus.snapshot}", "--json", "index=1")
    assert saved.out == wanted.out, saved
    campus.engine.cli("list", "nhp", "--limit=1", "--fields=index", "--csv").answered(
        "index\r\n1\r\n#truncated behind 1 records\r\n")


@pytest.mark.parametrize("words, line", [
    (["list"], 'list what? Name a table; "nqecli tables" lists them'),
    (["list", "nph"], 'unknown table "nph" (did you mean nhp?)'),
    (["list", "temperature"], 'unknown table "temperature" ("nqecli tables" lists them)'),
    (["list", "aspf_policy"], "nothing is known of the fields of table aspf_policy, so that it cannot be read"),
    (["list", "nhp", "indx=1"], 'nhp has no field "indx" (did you mean index?)'),
    (["list", "nhp", "--fields", "indx"], 'nhp has no field "indx" (did you mean index?)'),
    (["list", "nhp", "--fields", "index,"], None),
    (["list", "nhp", "--sort", "indx"], 'nhp has no field "indx" (did you mean index?)'),
    (["list", "nhp", "index"], '"index" is no condition (write FIELD=VALUE, with = != < <= > or >=)'),
    (["list", "nhp", "index=x"], '"index=x": "x" is not a number (decimal or 0x...)'),
    (["list", "nhp", "index=4294967296"], '"index=4294967296": 4294967296 does not fit 32 bits (0 to 4294967295)'),
    (["list", "nhp", "--limit", "x"], '--limit "x" is not a number from 0 to 18446744073709551614'),
    (["list", "nhp", "--limit"], "--limit"),
    (["list", "nhp", "--josn"], 'unknown option "--josn" (did you mean --json?)'),
    (["list", "nhp", "--warn", "5"], 'unknown option "--warn" (try --help)'),
    (["list", "nhp", "--json", "--csv"], "--csv and another form exclude each other; name one"),
    (["--snapshot", "x", "list", "nhp"], "--arena and --snapshot exclude each other; name one"),
])
def test_bad_words(campus, words, line):
    if line is None:
        assert campus.engine.cli(*words).code == 0
    else:
        campus.engine.cli(*words).failed(line)


def test_long_words(campus):
    long = "k" * 131000
    campus.engine.cli("list", long).failed("unknown table", "...")
    campus.engine.cli("list", "nhp", "index=" + long).failed("is not a number")
    campus.engine.cli("list", "nhp", long + "=1").failed("has no field")
    campus.engine.cli("list", "nhp", "--fields", long).failed("has no field")
    campus.engine.cli("list", "nhp", "--sort", long).failed("has no field")
    assert document(campus.engine.cli("list", "nhp", "--json", *["index>=0"] * 5000))["count"] > 0


def test_forms_agree(campus):
    listed = document(campus.engine.cli("list", "fwdif", "--json"))
    assert listed["table"] == "fwdif" and listed["count"] == len(listed["records"]) > 20
    lines = campus.engine.cli("list", "fwdif", "--ndjson")
    assert [json.loads(line) for line in lines.out.splitlines()] == listed["records"]
    rows = list(csv.DictReader(io.StringIO(campus.engine.cli("list", "fwdif", "--csv").out)))
    assert [int(row["if_index"]) for row in rows] == [record["if_index"] for record in listed["records"]]
    assert [row["source_mac"] for row in rows] == [record["source_mac"] for record in listed["records"]]
    assert [json.loads(row["counters"]) for row in rows] == [record["counters"] for record in listed["records"]]
    columns = campus.engine.cli("list", "fwdif", "--fields", "if_index,source_mac")
    assert columns.out.splitlines()[0].split() == ["if_index", "source_mac"]
    assert [line.split() for line in columns.out.splitlines()[1:]] == [
        [str(record["if_index"]), record["source_mac"]] for record in listed["records"]]
    count = campus.engine.cli("list", "fwdif", "--count")
    assert count.out == f"{listed['count']}\n"
    assert document(campus.engine.cli("list", "fwdif", "--count", "--json")) == {
        "table": "fwdif", "id": listed["id"], "count": listed["count"]}
    for form in ("--csv", "--yaml"):
        refused = campus.engine.cli("list", "fwdif", "--count", form)
        assert (refused.code, refused.out) == (2, "")
        assert refused.err == f"nqecli: --count tells a number, with --json a document; leave out {form}\n"


def test_numbers_stay_exact(place):
    place.scenario.write_text("fwdif: [{if_index: 1, counters: [{in_bytes: 9223372036854775807, in_packets: -1}]}]\n")
    place.start()
    assert '"in_bytes":9223372036854775807,"in_packets":-1' in place.cli("list", "fwdif", "--json").out
    place.stop()


def test_what_is_cut_says_so(macs):
    cut = document(macs.cli("list", "ssw_macinfo", "--json", "--limit", "3"))
    assert (cut["count"], cut["truncated"], len(cut["records"])) == (3, True, 3)
    whole = document(macs.cli("list", "ssw_macinfo", "--json", "--limit", "16384"))
    assert (whole["count"], whole["truncated"], len(whole["records"])) == (16384, False, 16384)
    lines = macs.cli("list", "ssw_macinfo", "--ndjson", "--limit", "1").out.splitlines()
    assert json.loads(lines[1]) == {"truncated": True, "count": 1}
    top = document(macs.cli("list", "ssw_macinfo", "--json", "--sort", "-out_if_index", "--limit", "2"))
    assert [record["out_if_index"] for record in top["records"]] == [116383, 116382] and top["truncated"]
    answer = macs.cli("list", "ssw_macinfo", "--limit", "1", "--fields", "mac")
    assert (answer.code, answer.out, answer.err) == (
        0, "mac\n02:00:5e:00:00:00\n", "more entries follow behind these 1; raise --limit\n"), answer
    count = macs.cli("list", "ssw_macinfo", "--count", "--limit", "3")
    assert (count.code, count.out, count.err) == (0, "3\n", "there are more than these 3; leave out --limit\n"), count
    counted = {"table": "ssw_macinfo", "id": 26, "count": 3, "truncated": True}
    assert document(macs.cli("list", "ssw_macinfo", "--count", "--limit", "3", "--json")) == counted
    macs.cli("list", "ssw_macinfo", "--count", "--limit", "16384").answered("16384\n")


@pytest.mark.parametrize("form", ["--json", "--ndjson", "--csv", "--yaml", "--fields=mac"])
def test_full_and_closed_output(macs, form):
    words = [BIN / "nqecli", "--arena", macs.arena, "list", "ssw_macinfo", form]
    with open("/dev/full", "wb") as full:
        done = subprocess.run(words, stdout=full, stderr=subprocess.PIPE, timeout=PATIENCE)
    assert (done.returncode, done.stderr) == (2, b"nqecli: cannot write the answer: No space left on device\n")
    tool = subprocess.Popen(words, stdout=subprocess.PIPE, stderr=subprocess.PIPE)
    assert tool.stdout.read(100) != b""
    tool.stdout.close()
    assert (tool.wait(PATIENCE), tool.stderr.read()) == (2, b"")
    tool.stderr.close()
    result = run("sh", "-c", f"exec {BIN}/nqecli --arena {macs.arena} list ssw_macinfo {form} >&-")
    result.failed("cannot write the answer")


def order_damaged(snapshot):
    """Sets the numbers of the slots in the order of the MAC table to ones that there are not."""
    data = bytearray(snapshot.read_bytes())
    # The log has the entries' serials, which count from 1 on, and their slots, which do so as well here.
    start = data.index(b"".join(struct.pack("<QII", n, n, 0) for n in range(1000, 1010)))
    for at in range(start, start + 16 * 10000, 16):
        struct.pack_into("<I", data, at + 8, 0x7fffffff)
    snapshot.write_bytes(data)


def test_cut_streams_end_with_an_error(macs, directory):
    copy = directory / "copy"
    macs.cli("snapshot", copy).answered("")
    order_damaged(copy)
    line = f"the table ssw_macinfo of {copy} is damaged (its order leads astray)"

    def cut(*words):
        answer = nqecli("--snapshot", copy, "list", "ssw_macinfo", *words)
        assert (answer.code, answer.err) == (2, f"nqecli: {line}\n"), (answer.code, answer.err, answer.out[-300:])
        return answer.out

    lines = cut("--ndjson").splitlines()
    assert len(lines) > 900 and json.loads(lines[-1]) == {"error": line}
    assert all("mac" in json.loads(record) for record in lines[:-1])
    with pytest.raises(json.JSONDecodeError):
        json.loads(cut("--json"))
    assert cut("--csv").splitlines()[-1] == f"#error: {line}"
    assert cut().splitlines()[-1] == f"error: {line}"
    (directory / "cut.yaml").write_text(cut("--yaml"))
    run(BIN / "nqed", "--scenario", directory / "cut.yaml", "--arena", directory / "arena").failed(
        "YAML syntax", tool="nqed")
    # Keys are found all the same.
    key = nqecli("--snapshot", copy, "list", "ssw_macinfo", "bridge_id=1", "vlan_id=5000", "mac=02:00:5e:00:13:88", "--json")
    assert document(key)["records"][0]["out_if_index"] == 105000


def test_tables_of_other_layouts(place, directory):
    layouts = directory / "layouts"
    shutil.copytree(ROOT / "host" / "layout", layouts, ignore=lambda _, names: [n for n in names if not n.endswith(".yaml")])
    file = layouts / "switching.yaml"
    text, changes = re.subn(r"(  ssw_macinfo:.*?record_size: )20", r"\g<1>24", file.read_text(), count=1, flags=re.DOTALL)
    assert changes == 1
    file.write_text(text)
    place.scenario.write_text(MACS)
    place.start("--layout", layouts)
    line = (f"the table ssw_macinfo of {place.arena} was made with another layout "
            "(its engine has nqed --layout; ask with show)")
    for words in (["--json"], ["--count"], ["bridge_id=1", "vlan_id=1", "mac=02:00:5e:00:00:01"]):
        place.cli("list", "ssw_macinfo", *words).failed(line)
    place.cli("export", directory / "new.yaml").failed("ssw_macinfo", "was made with another layout")
    assert not (directory / "new.yaml").exists()
    assert document(place.cli("list", "nhp", "--json"))["count"] == 0
    place.stop()


def place_of_session(data):
    """Where the record of session 1 of the campus starts: index, then nat_index 9001 in its place."""
    layout = (ROOT / "host" / "layout" / "session.yaml").read_text()
    offset = int(re.search(r"^      nat_index: (\d+) u32", layout, re.M).group(1))
    found = [m.start() - offset for m in re.finditer(re.escape(struct.pack("<I", 9001)), data)
             if data[m.start() - offset:m.start() - offset + 4] == struct.pack("<I", 1)]
    assert len(found) == 1, found
    return found[0]


def test_record_damaged_at_every_byte(campus, directory):
    data = bytearray(campus.snapshot.read_bytes())
    start = place_of_session(data)
    copy = directory / "copy"
    copy.write_bytes(data)

    def records():
        """Those of the sessions, without the times, which go on."""
        listed = document(nqecli("--snapshot", copy, "list", "session", "--json"))
        assert listed["count"] == len(listed["records"])
        return [{name: value for name, value in record.items() if name not in ("refreshed", "created")}
                for record in listed["records"]]

    sound = records()
    size = int(re.search(r"record_size: (\d+)", (ROOT / "host/layout/session.yaml").read_text()).group(1))
    changed = 0
    with open(copy, "r+b") as file:
        for at in range(start, start + size):
            file.seek(at)
            file.write(bytes([data[at] ^ 0xff]))
            file.flush()
            damaged = records()
            assert damaged[1:] == sound[1:]
            changed += damaged[0] != sound[0]
            file.seek(at)
            file.write(bytes([data[at]]))
    assert changed > size // 3


def test_snapshot_damaged_anywhere(campus, directory):
    data = campus.snapshot.read_bytes()
    used = [at for at in range(0, len(data), 8) if data[at:at + 8] != bytes(8)]
    seed = random.randrange(1 << 32)
    dice = random.Random(seed)
    copy = directory / "copy"
    copy.write_bytes(data)
    with open(copy, "r+b") as file:
        for _ in range(60):
            spots = [(dice.choice(used) + dice.randrange(8)) for _ in range(dice.choice([1, 10, 100]))]
            for at in spots:
                file.seek(at)
                file.write(bytes([dice.randrange(256)]))
            file.flush()
            table = dice.choice(["fib", "nhp", "session", "fwdif", "acl_rule", "arp", "server_map", "dhcp_snooping_bind"])
            form = dice.choice(["--json", "--ndjson", "--csv", "--yaml", "--sort=-" + {"fib": "prefix"}.get(table, "")])
            words = ["list", table] + ([form] if not form.endswith("-") else [])
            for command in (words, ["export", "-"], ["usage", "--json"]):
                answer = nqecli("--snapshot", copy, *command)
                assert answer.code in (0, 2) and answer.err.count("\n") <= 1, (seed, answer)
                if answer.code == 0 and "--json" in command:
                    json.loads(answer.out)
            for at in spots:
                file.seek(at)
                file.write(data[at:at + 1])


def test_engine_that_changes_everything_meanwhile(place):
    place.scenario.unlink()
    place.scenario = ROOT / "examples" / "campus.yaml"
    place.start("--traffic", "1000000")
    first = document(place.cli("list", "fwdif", "--json"))
    shapes = [sorted(record) for record in first["records"]]
    moved = 0
    for _ in range(50):
        listed = document(place.cli("list", "fwdif", "--json"))
        assert [sorted(record) for record in listed["records"]] == shapes
        moved += listed != first
    assert moved > 0
    place.stop()


def test_entries_that_leave_meanwhile(place):
    place.scenario.write_text(
        "session:\n"
        "  - {repeat: 30000, index: {from: 0, step: 1}, valid: 1, aging_time: 65535, new_source_port: 7, positive: {protocol: 6}}\n"
        "  - {repeat: 30000, index: {from: 30000, step: 1}, valid: 1, aging_time: 2, new_source_port: 7, positive: {protocol: 6}}\n")
    place.start()
    deadline = time.monotonic() + PATIENCE
    count = 0
    while count != 30000:
        assert time.monotonic() < deadline, count
        listed = document(place.cli("list", "session", "--json", "--fields", "index,new_source_port,positive.protocol"))
        count = listed["count"]
        assert 30000 <= count <= 60000
        indexes = [record["index"] for record in listed["records"]]
        assert indexes[:30000] == list(range(30000)) and len(set(indexes)) == count
        assert all(record["new_source_port"] == 7 and record["positive"] == {"protocol": 6} for record in listed["records"])
    place.stop()


def test_readers_that_are_killed(macs):
    for delay in range(20):
        tool = subprocess.Popen([BIN / "nqecli", "--arena", macs.arena, "list", "ssw_macinfo", "--json"],
                                stdout=subprocess.PIPE)
        tool.stdout.read(delay * 1000)
        tool.send_signal(signal.SIGKILL)
        tool.stdout.close()
        assert tool.wait(PATIENCE) == -signal.SIGKILL
    assert document(macs.cli("list", "ssw_macinfo", "--json"))["count"] == 16384


def test_engine_that_dies_meanwhile(place):
    place.scenario.write_text(MACS)
    place.start()
    tool = subprocess.Popen([BIN / "nqecli", "--arena", place.arena, "list", "ssw_macinfo", "--ndjson"],
                            stdout=subprocess.PIPE, stderr=subprocess.PIPE)
    first = tool.stdout.readline()  # the rest waits in the tool until the pipe is read
    place.end(signal.SIGKILL)
    records = [json.loads(line) for line in (first + tool.stdout.read()).splitlines()]
    assert (tool.wait(PATIENCE), tool.stderr.read(), len(records)) == (0, b"", 16384)
    tool.stdout.close()
    tool.stderr.close()
    nqecli("--arena", place.arena, "list", "ssw_macinfo").failed("engine")
    assert document(nqecli("--snapshot", place.arena, "list", "ssw_macinfo", "--json"))["count"] == 16384


def test_without_engine(directory):
    nqecli("--arena", directory / "none", "list", "nhp").failed("no engine runs")
    nqecli("--snapshot", directory / "none", "list", "nhp").failed("none")
    (directory / "text").write_text("this is no arena\n" * 1000)
    nqecli("--snapshot", directory / "text", "list", "nhp").failed("not an arena")
    # What a mistake would do anyhow is said first.
    nqecli("--arena", directory / "none", "list", "nph").failed("did you mean nhp?")


def test_lists_load_again(campus, directory):
    for table in ("arp", "ssw_macinfo", "acl_group", "car"):
        text = campus.engine.cli("list", table, "--yaml")
        assert text.code == 0, text
        file = directory / f"{table}.yaml"
        file.write_text(text.out)
        with engine_on(file) as twin:
            assert twin.cli("list", table, "--json").out == campus.engine.cli("list", table, "--json").out

"""nqecli export: what an engine holds, as a scenario that another engine loads."""

import json
import os
import pathlib
import re
import resource
import signal
import stat
import subprocess

import pytest

from conftest import BIN, PATIENCE, ROOT, engine_place, nqecli, run, wait_until

# What changes by itself: times, which are seconds or milliseconds ago.
TIME = re.compile(r"\b(refreshed|created|waited): \d+")
CLOCKS = {"refreshed", "created", "waited"}


def timeless(text):
    return TIME.sub(r"\1: some", text)


def same_everywhere(value):
    """A record without its times and without addresses, which are another engine's own."""
    if isinstance(value, dict):
        return {name: "0x" if name == "stale" else same_everywhere(inner)
                for name, inner in value.items() if name not in CLOCKS}
    if isinstance(value, list):
        return [same_everywhere(inner) for inner in value]
    return value


def all_records(cli):
    tables = json.loads(cli("usage", "--json").out)["usage"]
    assert len(tables) > 80
    records = {}
    for table in tables:
        answer = cli("list", table["table"], "--json")
        assert (answer.code, answer.err) == (0, ""), answer
        records[table["table"]] = same_everywhere(json.loads(answer.out))
    return records


def exported(cli, file):
    cli("export", file).answered("")
    return file.read_text()


def test_a_copy_says_the_same_at_any_time(campus):
    first, second = (nqecli("--snapshot", campus.snapshot, "export", "-") for _ in range(2))
    assert first.code == 0 and "waited: " in first.out and first.out == second.out


def test_campus_loads_into_an_equal_engine(campus, directory):
    first = exported(campus.engine.cli, directory / "first.yaml")
    with engine_place() as twin:
        twin.scenario.unlink()
        twin.scenario = directory / "first.yaml"
        twin.start()
        second = exported(twin.cli, directory / "second.yaml")
        assert timeless(second) == timeless(first)
        assert first.count("\n") > 1000 and "refreshed: " in first and "stale" in first
        records = all_records(twin.cli)
        assert records == all_records(campus.engine.cli)
        assert sum(table["count"] for table in records.values()) > 900
        twin.cli("snapshot", directory / "twin").answered("")
        nqecli("diff", campus.snapshot, directory / "twin").answered("")
        campus.engine.cli("diff", "live", directory / "twin").answered("")
        # What stands in no table.
        for words in (["show", "nat_policy", "guest-out"], ["show", "fast_aging"],
                      ["engine", "region", "IPP_SESSION_AGING_TIME"]):
            mine, its = twin.cli(*words), campus.engine.cli(*words)
            assert (mine.code, mine.out) == (its.code, its.out), (mine, its)
    # As docs/data.md shows it.
    assert first[first.index("\narp:\n") + 1:].startswith("""\
arp:
  - {vpn: 0, next_hop: '192.0.2.11', valid: 1, ctrl_if_index: 2001, fwd_if_index: 101, l3_ctrl_if_index: 3010, \
l3_fwd_if_index: 201, dmac: '02:00:5e:30:00:01', vlan_id: 10}
  - {vpn: 0, next_hop: '192.0.2.12', valid: 1, ctrl_if_index: 2001, fwd_if_index: 101, l3_ctrl_if_index: 3010, \
l3_fwd_if_index: 201, dmac: '02:00:5e:30:00:02', vlan_id: 10}
""")
    # Nothing is left out; and it is not for everybody.
    assert first.startswith("# An engine's state as a scenario: nqed --scenario FILE\n")
    assert [line for line in first.splitlines() if line.startswith("#")][1:] == [
        "# 4 forwarding cores: nqed --cores 4"]
    assert stat.S_IMODE(os.stat(directory / "first.yaml").st_mode) == 0o640


def test_snapshot_says_the_same(campus, directory):
    live = exported(campus.engine.cli, directory / "live.yaml")

    def saved(*words):
        return nqecli("--snapshot", campus.snapshot, *words)

    text = exported(saved, directory / "saved.yaml")
    comment = "# not in it: the NAT policy; only a running engine can tell it, and this is a saved arena\n"
    assert comment in text
    policy = re.compile(r"nat_policy:\n(  .*\n)+")
    assert policy.search(live)
    assert timeless(text.replace(comment, "")) == timeless(policy.sub("", live))


def test_standard_output(campus, directory):
    answer = campus.engine.cli("export", "-")
    assert (answer.code, answer.err) == (0, ""), answer
    assert timeless(answer.out) == timeless(exported(campus.engine.cli, directory / "file.yaml"))
    assert os.listdir(directory) == ["file.yaml"]
    with open("/dev/full", "w") as full:
        done = subprocess.run([BIN / "nqecli", "--snapshot", campus.snapshot, "export", "-"], stdout=full,
                              stderr=subprocess.PIPE, timeout=PATIENCE)
    assert (done.returncode, done.stderr) == (2, b"nqecli: cannot write the answer: No space left on device\n")
    reader, writer = os.pipe()
    os.close(reader)
    done = subprocess.run([BIN / "nqecli", "--snapshot", campus.snapshot, "export", "-"], stdout=writer,
                          stderr=subprocess.PIPE, timeout=PATIENCE)
    os.close(writer)
    assert (done.returncode, done.stderr) == (2, b"")


def test_nothing_is_overwritten_or_left_behind(campus, directory):
    there = directory / "there"
    there.write_text("mine")
    campus.engine.cli("export", there).failed("exists already; remove it or name another file")
    assert there.read_text() == "mine"
    (directory / "link").symlink_to(directory / "nowhere")
    campus.engine.cli("export", directory / "link").failed("exists already")
    campus.engine.cli("export", directory / "no" / "such").failed("cannot make", "No such file or directory")
    campus.engine.cli("export").failed("export takes the name of the file to write, or -; try --help")
    campus.engine.cli("export", "").failed("export takes the name of the file to write, or -; try --help")
    campus.engine.cli("export", "a", "b").failed("export takes the name of the file to write")
    campus.engine.cli("export", "--json", "a").failed('unknown option "--json" (try --help)')
    nqecli("--snapshot", there, "export", directory / "new").failed("not an arena")
    nqecli("--arena", directory / "gone", "export", directory / "new").failed("no engine runs")
    assert sorted(os.listdir(directory)) == ["link", "there"]


def test_past_the_file_size_limit(campus, directory):
    def limit():
        resource.setrlimit(resource.RLIMIT_FSIZE, (100_000, 100_000))

    run(BIN / "nqecli", "--snapshot", campus.snapshot, "export", directory / "new", preexec_fn=limit).failed(
        "cannot write", "File too large")
    assert os.listdir(directory) == []


def writes_into(process, directory):
    """Whether a process has a file of the directory open, with a name or without one."""
    files = pathlib.Path(f"/proc/{process.pid}/fd")
    return any(os.readlink(file).startswith(f"{directory}/") for file in files.iterdir())


@pytest.mark.parametrize("how", [signal.SIGINT, signal.SIGTERM, signal.SIGHUP, signal.SIGKILL])
def test_interrupted(place, directory, how):
    place.start()
    # The engine does not answer while it is stopped, so that the tool waits for it.
    place.process.send_signal(signal.SIGSTOP)
    tool = subprocess.Popen([BIN / "nqecli", "--arena", place.arena, "export", directory / "new"],
                            stdout=subprocess.PIPE, stderr=subprocess.PIPE)
    wait_until(lambda: writes_into(tool, directory), "the file without a name")
    tool.send_signal(how)
    place.process.send_signal(signal.SIGCONT)
    out, err = tool.communicate(timeout=PATIENCE)
    assert out == b""
    if how == signal.SIGKILL:
        assert tool.returncode == -how and not (directory / "new").exists()
    else:
        # It was quicker, or it has cleaned up.
        assert tool.returncode in (2, 0, -how), err
        assert sorted(os.listdir(directory)) == (["new"] if tool.returncode == 0 else [])
        if tool.returncode == 2:
            assert err == f"nqecli: interrupted, {directory}/new is not written\n".encode()
    place.stop()


def test_of_an_engine_that_changes_everything_meanwhile(place, directory):
    place.scenario.unlink()
    place.scenario = ROOT / "examples" / "campus.yaml"
    place.start("--traffic", "100000")
    for attempt in range(5):
        file = directory / f"{attempt}.yaml"
        text = exported(place.cli, file)
        with engine_place() as twin:
            twin.scenario.unlink()
            twin.scenario = file
            twin.start()
            assert timeless(exported(twin.cli, directory / f"{attempt}.again")) == timeless(text)
            twin.stop()
    place.stop()


FULL = """\
nhp: [{repeat: 8192, index: {from: 0, step: 1}, next_hop: {from: 172.16.0.1, step: 1}}]
fib: [{repeat: 8192, prefix: 32, vpn: 0, destination: {from: 10.1.0.0, step: 1}, nhp_index: {from: 0, step: 1},
       next_hop: {nhp: {index: {from: 0, step: 1}}}}]
arp: [{repeat: 16384, vpn: 0, next_hop: {from: 172.16.0.1, step: 1}, dmac: {from: "02:00:5e:00:00:01", step: 1}}]
"""


def test_full_tables(place, directory):
    place.scenario.write_text(FULL)
    place.start()
    usage = {row["table"]: row["percent"] for row in json.loads(place.cli("usage", "--json").out)["usage"]}
    assert usage["nhp"] == usage["arp"] == usage["fib"] == 100, usage
    exported(place.cli, directory / "full.yaml")
    place.cli("snapshot", directory / "full").answered("")
    place.stop()
    with engine_place() as twin:
        twin.scenario.unlink()
        twin.scenario = directory / "full.yaml"
        twin.start()
        twin.cli("diff", directory / "full", "live").answered("")
        twin.stop()


def test_texts_of_any_bytes(place, directory):
    place.scenario.write_text(r"""
sac_app_mapping:
  - {app_id: 1, app_name: '\\''"#: ,&*!|>%@`{}[]-?'}
  - {app_id: 2, app_name: '\x01\x09\x0a\x1b\x7f\x80\xff\xc3'}
  - {app_id: 3, app_name: ' é 漢 😀 '}
  - {app_id: 4, app_name: '~'}
  - {app_id: 5, app_name: 'null'}
  - {app_id: 6, app_name: '\xc2\x85\xef\xbb\xbf '}
""")
    place.start()
    text = exported(place.cli, directory / "first.yaml")
    names = [record["app_name"] for record in json.loads(place.cli("list", "sac_app_mapping", "--json").out)["records"]]
    assert names == [r"""\\'"#: ,&*!|>%@`{}[]-?""", r"\x01\x09\x0a\x1b\x7f\x80\xff\xc3", " é 漢 😀 ", "~", "null",
                     "\\xc2\\x85\ufeff "]
    with engine_place() as twin:
        twin.scenario.unlink()
        twin.scenario = directory / "first.yaml"
        twin.start()
        assert exported(twin.cli, directory / "second.yaml") == text
        assert twin.cli("list", "sac_app_mapping", "--json").out == place.cli("list", "sac_app_mapping", "--json").out
        twin.stop()

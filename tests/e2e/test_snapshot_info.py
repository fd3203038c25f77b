"""A snapshot knows when it was made, of which engine, and by which version."""

import datetime
import json
import os
import re
import signal
import subprocess

from conftest import BIN, nqecli, wait_until
from schemas import valid

SCENARIO = """\
session: [{index: 1, valid: 1, aging_time: 65535, created: 300, refreshed: 20}]
arp: [{next_hop: 192.0.2.7, vpn: 0}]
"""


def version():
    return re.match(r"nqecli (\S+) ", nqecli("--version").out)[1]


def moment(text):
    assert re.fullmatch(r"\d{4}-\d\d-\d\dT\d\d:\d\d:\d\d\.\d{3}Z", text), text
    return datetime.datetime.fromisoformat(text[:-1] + "+00:00").timestamp()


def clock():
    return datetime.datetime.now(datetime.timezone.utc).timestamp()


def test_what_a_snapshot_tells(place, directory):
    place.scenario.write_text(SCENARIO)
    begun = clock()
    place.start()
    pid = place.process.pid
    started = clock()
    place.cli("snapshot", directory / "copy").answered("")
    saved = clock()
    place.stop()

    answer = nqecli("snapshot", "--info", directory / "copy", "--json")
    assert (answer.code, answer.err) == (0, ""), answer
    info = valid(json.loads(answer.out))["snapshot"]
    # Times are cut to milliseconds.
    assert started - 0.001 <= moment(info.pop("saved")) <= saved
    assert begun - 0.001 <= moment(info["engine"].pop("started")) <= started
    assert info == {"file": str(directory / "copy"), "kind": "snapshot", "version": version(),
                    "engine": {"pid": pid, "arena": str(place.arena), "socket": str(place.socket)},
                    "entries": 2, "tables": 2}
    text = nqecli("snapshot", "--info", directory / "copy")
    assert (text.code, text.err) == (0, ""), text
    lines = text.out.splitlines()
    assert [line.split()[0] for line in lines] == ["file", "kind", "saved", "version", "engine", "arena", "socket",
                                                   "entries"]
    assert lines[1] == "kind     snapshot" and lines[3] == f"version  {version()}", text
    assert lines[4].startswith(f"engine   process {pid}, started 20"), text
    assert lines[5] == f"arena    {place.arena}" and lines[7] == "entries  2 in 2 tables", text


def test_an_engine_s_own_file(place):
    place.start()
    running = nqecli("snapshot", "--info", place.arena)
    assert running.code == 0 and "\nkind     arena of a running engine\n" in running.out, running
    assert "saved" not in running.out
    assert "saved" not in valid(json.loads(nqecli("snapshot", "--info", place.arena, "--json").out))["snapshot"]
    place.end(signal.SIGKILL)
    left = nqecli("snapshot", "--info", place.arena)
    assert left.code == 0 and "\nkind     arena that an engine has left behind\n" in left.out, left
    os.unlink(place.arena)


def test_a_relative_path_is_recorded_whole(place):
    place.process = subprocess.Popen(
        [BIN / "nqed", "--scenario", place.scenario, "--arena", "lab", "--socket", "s"], cwd=place.directory,
        stdout=subprocess.PIPE, stderr=subprocess.PIPE)
    assert place.process.stdout.readline().startswith(b"nqed: ready, ")
    info = json.loads(nqecli("snapshot", "--info", place.directory / "lab", "--json").out)["snapshot"]
    assert info["engine"]["arena"] == f"{place.directory}/lab"


def test_times_ago_are_those_of_its_moment(place, directory):
    place.scenario.write_text(SCENARIO)
    place.start()

    def times(*where):
        answer = nqecli(*where, "list", "session", "--json", "--fields", "created,refreshed")
        assert answer.code == 0, answer
        record = json.loads(answer.out)["records"][0]
        return record["created"], record["refreshed"]

    before = times("--arena", place.arena)
    place.cli("snapshot", directory / "copy").answered("")
    after = times("--arena", place.arena)
    saved = times("--snapshot", directory / "copy")
    assert all(low <= is_ <= high for low, is_, high in zip(before, saved, after))
    # The engine grows older, the snapshot does not.
    wait_until(lambda: all(now > was + 1 for now, was in zip(times("--arena", place.arena), after)), "two seconds")
    assert times("--snapshot", directory / "copy") == saved
    lines = place.cli("diff", directory / "copy", "live", "--counters")
    assert lines.code == 1 and lines.out.startswith(f"~ session index=1: refreshed {saved[1]} -> "), lines
    place.cli("diff", directory / "copy", "live").answered("")
    place.stop()


def test_bad_usage(engine, directory):
    nqecli("snapshot", "--info").failed("--info needs a value")
    nqecli("snapshot", "--info", "a", "b").failed("takes one file")
    nqecli("snapshot", "--info", "a", "--info", "b").failed("takes one file")
    nqecli("--snapshot", "a", "snapshot", "--info", "b").failed("leave --snapshot out")
    nqecli("snapshot", "--info", directory / "none").failed("there is no snapshot at")
    nqecli("snapshot", "--info", "/dev/null").failed("/dev/null is not an arena")
    # One byte of what it says of itself.
    engine.cli("snapshot", directory / "copy").answered("")
    for at in (408, 664, 672, 680, 711):
        with open(directory / "copy", "r+b") as file:
            file.seek(at)
            was = file.read(1)
            file.seek(at)
            file.write(bytes([was[0] ^ 1]))
            file.flush()
            nqecli("snapshot", "--info", directory / "copy").failed("damaged header")
            file.seek(at)
            file.write(was)
    assert nqecli("snapshot", "--info", directory / "copy").code == 0

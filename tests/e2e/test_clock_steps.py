"""A wall clock that is set forth and back, by days and by decades: nothing hangs, and nothing has happened in the future."""

import json
import re
import struct
import subprocess
import time

import pytest

from conftest import BIN, PATIENCE, ROOT, run, short_directory
from netconf import Agent
from short_memory import shared_tools
from test_netconf_access import command
from web import Web

CLOCK = BIN / "tests" / "stepping_clock.so"
DAY = 86400
STEPS = (DAY, -DAY, -2 * DAY, 20 * 365 * DAY, -50 * 365 * DAY, 3600, 0)
pytestmark = pytest.mark.skipif(not CLOCK.exists(), reason="sanitizers have clocks of their own")


@pytest.fixture
def step(directory, monkeypatch):
    """Sets the clock of all programs that are started from here on, running ones too."""
    file = directory / "clock"
    file.write_bytes(bytes(8))
    monkeypatch.setenv("LD_PRELOAD", str(CLOCK))
    monkeypatch.setenv("QDT_STEPPING_CLOCK", str(file))

    def set_to(seconds):
        with open(file, "r+b") as clock:
            clock.write(struct.pack("<q", seconds))
            clock.flush()
    return set_to


@pytest.fixture
def place(place):
    place.scenario.unlink()
    place.scenario = ROOT / "examples" / "campus.yaml"
    return place


TIME = re.compile(r"time|age|ago|created|refreshed|seconds|since|uptime|saved", re.IGNORECASE)


def times_ahead(value, path=""):
    """(path, number) of all times in a document that lie ahead."""
    if isinstance(value, dict):
        for name, member in value.items():
            yield from times_ahead(member, f"{path}.{name}")
    elif isinstance(value, list):
        for member in value:
            yield from times_ahead(member, path)
    elif isinstance(value, (int, float)) and not isinstance(value, bool) and value < 0 and TIME.search(path):
        yield path, value


def test_each_program_goes_on(place, directory, step):
    tool = shared_tools(directory)
    place.start()

    def cli(*words):
        return run(tool, "--arena", place.arena, *words)

    with Web("--arena", place.arena) as web, short_directory() as own:
        agent = Agent(place.arena, own).start(ssh=False)
        session = agent.raw().hello()
        watch = subprocess.Popen([tool, "--arena", place.arena, "watch", "-i", "0.1", "--times", "8", "usage"],
                                 stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True)
        try:
            for seconds in STEPS:
                step(seconds)
                for table in ("fib", "session", "server_map", "arp", "dhcp_snooping_bind"):
                    answer = cli("list", table, "--json")
                    assert answer.code == 0 and answer.err == "", answer
                    assert not list(times_ahead(json.loads(answer.out))), answer
                for words in (["engine", "status"], ["check"], ["export", "-"], ["agent", "query-session"]):
                    answer = cli(*words)
                    assert answer.code in (0, 1) and answer.err == "", answer
                    assert not re.search(r"-\d+ (s|seconds|h|days) ago", answer.out), answer
                assert "<text" in session.rpc(command("tbl-usage"))
                for path in ("overview", "history", "tables/session/records", "check"):
                    assert not list(times_ahead(web.data(path))), path
            out, err = watch.communicate(timeout=PATIENCE)
            assert watch.returncode == 0 and err == "", (out, err)
        finally:
            watch.kill()
            session.close()
            agent.process.terminate()
            assert agent.process.communicate(timeout=PATIENCE)[1] == ""
    place.stop()


def test_a_copy_from_the_future(place, directory, step):
    tool = shared_tools(directory)
    place.start()
    step(DAY)
    assert run(tool, "--arena", place.arena, "snapshot", directory / "copy").code == 0
    step(0)
    answer = run(tool, "snapshot", "--info", directory / "copy", "--json")
    assert answer.code == 0 and not list(times_ahead(json.loads(answer.out))), answer
    assert run(tool, "--snapshot", directory / "copy", "list", "session", "--json").code == 0
    place.stop()


def test_the_record_tells_the_time_of_the_clock(place, directory, step):
    place.start()
    with short_directory() as own:
        agent = Agent(place.arena, own).start(ssh=False)
        for seconds in (DAY, -DAY):
            step(seconds)
            agent.raw().hello().close()
            assert abs(int(run("date", "+%s").out) - seconds - time.time()) < PATIENCE  # it is set indeed
        agent.process.terminate()
        agent.process.communicate(timeout=PATIENCE)
        assert len(agent.recorded("LOGIN")) == 2
    place.stop()

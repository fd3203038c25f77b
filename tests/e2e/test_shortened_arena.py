"""An arena or a snapshot that somebody shortens while it is in use: one line, or an error and the program goes on."""

import os
import signal
import subprocess

import pytest

from conftest import BIN, PATIENCE, ROOT, run, short_directory, wait_until
from netconf import Agent
from test_netconf_access import command
from web import Web

LOST = "the arena was shortened while it was in use, and what stood there is lost (start its engine again)\n"


@pytest.fixture
def place(place):
    place.scenario.unlink()
    place.scenario = ROOT / "examples" / "campus.yaml"
    return place.start()


@pytest.fixture
def copy(place, directory):
    place.cli("snapshot", directory / "copy").answered("")
    place.stop()
    return directory / "copy"


def test_a_command_over_a_snapshot(copy):
    process = subprocess.Popen([BIN / "nqecli", "--snapshot", copy, "agent", "-"], stdin=subprocess.PIPE,
                               stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True)
    process.stdin.write("tbl-usage\n")
    process.stdin.flush()
    process.stdout.readline()
    os.truncate(copy, 4096)
    _, err = process.communicate("query-session\n", timeout=PATIENCE)
    assert (process.returncode, err) == (2, "nqecli: " + LOST)


@pytest.mark.parametrize("words", [["list", "arp"], ["show", "fwdif", "1"], ["agent", "tbl-usage"], ["check"], ["usage"],
                                   ["sql", "SELECT count(*) FROM arp"], ["find", "10.1.0.7"], ["diff", "live", "live"]])
def test_commands_over_what_is_left(copy, words):
    os.truncate(copy, os.stat(copy).st_size // 2 // 4096 * 4096)
    place = [] if words[0] == "diff" else ["--snapshot", copy]
    words = ["diff", str(copy), str(copy)] if words[0] == "diff" else words
    run(BIN / "nqecli", *place, *words).failed(str(copy), "is truncated")


def test_the_engine_itself(place):
    os.truncate(place.arena, 4096)
    assert place.collect() == (2, "nqed: " + LOST)
    place.start()


def test_an_agent(place):
    with short_directory() as directory:
        agent = Agent(place.arena, directory).start(ssh=False)
        session = agent.raw().hello()
        assert "<text" in session.rpc(command("query-session"))
        # The engine stands still, so that it is the agent that finds out.
        place.process.send_signal(signal.SIGSTOP)
        os.truncate(place.arena, 4096)
        assert "rpc-error" in session.rpc(command("query-session"))
        assert agent.process.poll() is None
        place.process.kill()
        place.collect()
        place.start()
        wait_until(lambda: "<text" in session.rpc(command("query-session")), "the agent finds the new engine")
        session.close()
        agent.process.terminate()
        _, err = agent.process.communicate(timeout=PATIENCE)
        assert (agent.process.returncode, err) == (0, "omad: " + LOST)  # the process that runs commands


def test_a_console(copy):
    with Web("--snapshot", copy) as web:
        assert web.get("/api/v1/tables/arp/records").status == 200
        os.truncate(copy, 4096)
        answer = web.get("/api/v1/tables/fib/records")
        assert answer.status in (500, 503), answer
        assert web.get("/api/v1/engines").status == 200

"""Clients that do harm, and processes that die: each session harms only itself."""

import os
import pathlib
import re
import signal
import socket
import time

import pytest
from ncclient.transport.errors import TransportError

from conftest import BIN, engine_place, run, wait_until
from netconf import BASE, END_1_0, MODEL, agent_of, call
from test_netconf_access import MONITORING, agent_without_ssh, command, worker_of

HELLO = (f'<hello xmlns="{BASE}"><capabilities><capability>urn:ietf:params:netconf:base:1.1</capability></capabilities></hello>'
         "]]>]]>").encode()
SANITIZED = b"__asan_init" in (BIN / "omad-session").read_bytes()


@pytest.fixture(scope="module")
def engine():
    with engine_place() as place:
        place.start()
        yield place
        place.stop()


@pytest.fixture(scope="module")
def agent(engine):
    with agent_without_ssh(engine) as agent:
        yield agent


def chunk(text):
    return f"\n#{len(text)}\n{text}".encode()


def dialogue():
    """All that a client says, its requests in chunks."""
    rpc = f'<rpc xmlns="{BASE}" message-id="1">{command("session-statistics")}</rpc>'
    close = f'<rpc xmlns="{BASE}" message-id="2"><close-session/></rpc>'
    return HELLO + chunk(rpc[:7]) + chunk(rpc[7:]) + b"\n##\n" + chunk(close) + b"\n##\n"


def test_a_dialogue_byte_by_byte(agent):
    session = agent.raw()
    for byte in dialogue():
        session.socket.sendall(bytes([byte]))
    assert session.ended() == (0, "")
    session.message()
    assert "Session" in session.chunks() and "<ok/>" in session.chunks()


def test_cuts_at_every_byte_of_a_dialogue(agent):
    whole = dialogue()
    for start in range(0, len(whole), 64):
        sessions = []
        for end in range(start, min(start + 64, len(whole))):
            session = agent.raw()
            session.socket.sendall(whole[:end])
            session.close()
            sessions.append((end, session))
        for end, session in sessions:
            assert session.ended() == (0, ""), end
        agent.sessions.clear()
    assert "TableName" in agent.raw().hello().rpc(command("tbl-usage"))


def memory_of(pid):
    return int(re.search(r"VmRSS:\s+(\d+) kB", pathlib.Path(f"/proc/{pid}/status").read_text())[1])


def test_slow_readers_cost_omad_nothing(agent):
    before = memory_of(agent.process.pid)
    readers = [agent.raw().hello() for _ in range(20)]
    schema = (f'<rpc xmlns="{BASE}" message-id="1"><get-schema xmlns="{MONITORING}"><identifier>ietf-netconf</identifier>'
              f"</get-schema></rpc>").encode() + END_1_0
    for reader in readers:
        reader.socket.setblocking(False)
        try:
            while True:
                reader.socket.send(schema * 100)
        except BlockingIOError:
            pass
    quick = agent.raw().hello()
    for _ in range(20):
        assert "TableName" in quick.rpc(command("tbl-usage"))
    # What a sanitizer holds back for a while is its own.
    assert SANITIZED or memory_of(agent.process.pid) < before + 8192
    # One of them reads at last, and gets whole answers.
    readers[0].socket.setblocking(True)
    for _ in range(50):
        assert b"module ietf-netconf {" in readers[0].message()


def test_sessions_have_no_rights(agent):
    session = agent.raw().hello()
    status = pathlib.Path(f"/proc/{session.process.pid}/status").read_text()
    if os.geteuid() == 0:
        assert re.search(r"^Uid:\t65534\t65534\t65534\t65534$", status, re.M), status
        assert re.search(r"^Gid:\t65534\t65534\t65534\t65534$", status, re.M), status
        assert re.search(r"^Groups:\t ?$", status, re.M), status
    assert re.search(r"^CapEff:\t0+$", status, re.M) or os.geteuid() != 0, status
    assert re.search(r"^NoNewPrivs:\t1$", status, re.M), status
    if not SANITIZED:
        assert re.search(r"^Seccomp:\t2$", status, re.M), status
    # With that it still does all that a session does, XPath filters with their schemas, too.
    assert "<packet-drop-nobuff>" in session.rpc(
        f'<get><filter type="xpath" xmlns:f="{MODEL}" select="//f:fwd-statistics-info[f:slot-id=\'0\']"/></get>')


def test_paths_that_are_none(agent):
    session = agent.raw().hello()
    for path in ("/f:software-fwd[", "//*[", "/g:x", "f:software-fwd/@", "'", "count(", "/" * 5000, "(" * 5000, "f:x" * 5000):
        answer = session.rpc(f'<get><filter type="xpath" xmlns:f="{MODEL}" select="{path}"/></get>')
        assert "<error-tag>invalid-value</error-tag>" in answer, (path[:20], answer[:500])
    assert "TableName" in session.rpc(command("tbl-usage"))


def test_a_path_that_takes_for_ever(agent):
    other = agent.raw().hello()
    session = agent.raw().hello()
    path = "//*"
    for _ in range(8):
        path = f"//*[count({path})&gt;0]"
    session.send(f'<rpc xmlns="{BASE}" message-id="1"><get><filter type="xpath" select="{path}"/></get></rpc>')
    assert session.ended() == (1, "omad-session: the request takes too long\n")
    assert "TableName" in other.rpc(command("tbl-usage"))


def test_a_session_that_is_killed(agent):
    other = agent.raw().hello()
    session = agent.raw("victim").hello()
    session.socket.sendall(b"<rpc")
    session.process.kill()
    session.ended()
    wait_until(lambda: [line for line in agent.recorded("LOGOUT") if line["user"] == "victim"], "the end in the record")
    assert agent.recorded("LOGOUT")[-1]["reason"] == "the connection was lost"
    assert "TableName" in other.rpc(command("tbl-usage"))


def test_a_worker_that_is_killed_in_mid_command(agent):
    first, second = agent.raw().hello(), agent.raw().hello()
    assert "TableName" in first.rpc(command("tbl-usage"))
    worker = worker_of(agent)
    os.kill(worker, signal.SIGSTOP)
    for session in (first, second):
        session.send(f'<rpc xmlns="{BASE}" message-id="1">{command("tbl-usage")}</rpc>')
    os.kill(worker, signal.SIGKILL)
    answers = sorted(session.message().decode() for session in (first, second))
    assert "TableName" in answers[1] or "ended without an answer" in answers[1]
    assert "TableName" in first.rpc(command("tbl-usage"))


def test_silent_connections_keep_nobody_out(engine):
    with agent_of(engine.arena) as agent:
        silent = [socket.create_connection(("127.0.0.1", agent.port)) for _ in range(30)]
        with agent.connect() as session:
            assert "TableName" in call(session, "tbl-usage")
        for connection in silent:
            connection.close()


def alive(pid):
    return pathlib.Path(f"/proc/{pid}").exists()


def test_an_agent_that_is_killed(engine):
    """Its sessions, its worker and its sshd go with it; another takes its place."""
    with agent_of(engine.arena) as agent:
        session = agent.connect()
        raw = agent.raw().hello()
        assert "TableName" in call(session, "tbl-usage")
        children = [int(pid) for pid in run("pgrep", "-P", str(agent.process.pid)).out.split()]
        assert len(children) == 2
        agent.process.kill()
        agent.process.communicate()
        assert raw.ended() == (1, "omad-session: omad has ended, or has ended this session\n")
        with pytest.raises(TransportError):
            call(session, "tbl-usage")
        for child in children:
            wait_until(lambda child=child: not alive(child), "its children to end")
        agent.start()
        with agent.connect() as session:
            assert "TableName" in call(session, "tbl-usage")
        # The sshd alone: those who are in stay, and others get in again.
        with agent.connect() as session:
            sshd = [pid for pid in run("pgrep", "-P", str(agent.process.pid)).out.split()
                    if b"sshd" in pathlib.Path(f"/proc/{pid}/cmdline").read_bytes()]
            assert len(sshd) == 1
            os.kill(int(sshd[0]), signal.SIGKILL)
            assert "TableName" in call(session, "tbl-usage")
            wait_until(lambda: can_connect(agent), "the sshd to be started again")
            assert "TableName" in call(session, "tbl-usage")


def can_connect(agent):
    try:
        with agent.connect():
            return True
    except TransportError:
        return False


def ticks_of(pid):
    fields = pathlib.Path(f"/proc/{pid}/stat").read_text().rpartition(")")[2].split()
    return int(fields[11]) + int(fields[12])


def test_idle_sessions_sleep(engine):
    """150 of them; bench/agent_bench.py has 500 over SSH and for longer."""
    with agent_without_ssh(engine, "--max-user-sessions", "150") as agent:
        sessions = [agent.raw().hello() for _ in range(150)]
        assert "TableName" in sessions[0].rpc(command("tbl-usage"))
        pids = [agent.process.pid, worker_of(agent), *(session.process.pid for session in sessions)]
        before = sum(map(ticks_of, pids))
        time.sleep(1)
        assert sum(map(ticks_of, pids)) - before <= 1
        for session in sessions:
            assert "<data/>" in session.rpc("<get-config><source><running/></source></get-config>")

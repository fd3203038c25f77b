#!/usr/bin/env python3
"""What a NETCONF session costs: from a login to the first answer, and one rpc, with 0, 100 and 500 idle sessions beside it;
and what the idle ones take. All over SSH, on this machine. Prints the table's rows.

usage: bench/agent_bench.py [BIN_DIRECTORY] [LOGINS]
"""

import contextlib
import getpass
import os
import pathlib
import signal
import socket
import statistics
import subprocess
import sys
import tempfile
import time

BIN = pathlib.Path(sys.argv[1] if len(sys.argv) > 1 else "build/bin").resolve()
ROOT = pathlib.Path(__file__).resolve().parent.parent
LOGINS = int(sys.argv[2]) if len(sys.argv) > 2 else 20
RPCS = 200
IDLE = tuple(map(int, sys.argv[3].split(","))) if len(sys.argv) > 3 else (0, 100, 500)
WATCHED = 10  # seconds that idle sessions are watched
BASE = "urn:ietf:params:xml:ns:netconf:base:1.0"
MODEL = "urn:tavrix:params:xml:ns:yang:tavrix-software-fwd"
END = b"]]>]]>"
HELLO = f'<hello xmlns="{BASE}"><capabilities><capability>urn:ietf:params:netconf:base:1.0</capability></capabilities></hello>'
RPC = f'<rpc xmlns="{BASE}" message-id="1"><session-statistics xmlns="{MODEL}"/></rpc>'


def free_port():
    with socket.socket() as probe:
        probe.bind(("127.0.0.1", 0))
        return probe.getsockname()[1]


class Session:
    """A NETCONF session through ssh."""

    def __init__(self, place):
        self.process = subprocess.Popen(
            ["ssh", "-F", "none", "-T", "-p", str(place.port), "-i", place.key, "-o", "IdentitiesOnly=yes", "-o",
             "StrictHostKeyChecking=no", "-o", "UserKnownHostsFile=/dev/null", "-o", "LogLevel=ERROR",
             f"{getpass.getuser()}@127.0.0.1", "-s", "netconf"], stdin=subprocess.PIPE, stdout=subprocess.PIPE)
        self.pending = b""
        self.send(HELLO)
        assert b"<hello" in self.message()

    def send(self, text):
        self.process.stdin.write(text.encode() + END)
        self.process.stdin.flush()

    def message(self):
        while END not in self.pending:
            piece = os.read(self.process.stdout.fileno(), 65536)
            assert piece, self.pending
            self.pending += piece
        text, _, self.pending = self.pending.partition(END)
        return text

    def ask(self):
        self.send(RPC)
        assert b"<text" in self.message()

    def close(self):
        self.process.stdin.close()
        self.process.wait()


class Place:
    def __init__(self, directory):
        self.directory = pathlib.Path(directory)
        self.key = self.directory / "user"
        subprocess.run(["ssh-keygen", "-q", "-t", "ed25519", "-N", "", "-f", self.key], check=True)
        self.port = free_port()
        self.engine = self.start("nqed", "--scenario", ROOT / "examples" / "campus.yaml")
        self.agent = self.start("omad", "--socket", self.directory / "omad.sock", "--port", str(self.port), "--user-key",
                                f"bench={self.key}.pub", "--log", self.directory / "record", "--max-sessions", "1000",
                                "--max-user-sessions", "1000", "--idle-time", "0")

    def start(self, program, *words):
        process = subprocess.Popen([BIN / program, "--arena", self.directory / "arena", *words], stdout=subprocess.PIPE,
                                   text=True)
        assert "ready" in process.stdout.readline()
        return process

    def stop(self):
        for process in (self.agent, self.engine):
            process.send_signal(signal.SIGTERM)
            process.wait()

    def processes(self):
        """omad, and all that has come from it."""
        children = {}
        for stat in pathlib.Path("/proc").glob("[0-9]*/stat"):
            with contextlib.suppress(OSError):
                fields = stat.read_text().rpartition(")")[2].split()
                children.setdefault(int(fields[1]), []).append(int(stat.parent.name))
        found, left = [], [self.agent.pid]
        while left:
            found.append(left.pop())
            left += children.get(found[-1], [])
        return found


def ticks_of(pid):
    with contextlib.suppress(OSError):
        fields = pathlib.Path(f"/proc/{pid}/stat").read_text().rpartition(")")[2].split()
        return int(fields[11]) + int(fields[12])
    return 0


def memory_of(pid):
    """Kilobytes that nobody else shares."""
    with contextlib.suppress(OSError):
        for line in pathlib.Path(f"/proc/{pid}/smaps_rollup").read_text().splitlines():
            if line.startswith("Private_Dirty:"):
                return int(line.split()[1])
    return 0


def seconds(work):
    begun = time.monotonic()
    work()
    return time.monotonic() - begun


def log_in(place):
    session = Session(place)
    session.ask()
    session.close()


def main():
    rows = []
    with tempfile.TemporaryDirectory() as directory:
        place = Place(directory)
        idle = []
        try:
            for wanted in IDLE:
                while len(idle) < wanted:
                    idle.append(Session(place))
                pids = place.processes()
                before = sum(map(ticks_of, pids))
                time.sleep(WATCHED)
                busy = (sum(map(ticks_of, pids)) - before) / os.sysconf("SC_CLK_TCK") / WATCHED
                logins = [seconds(lambda: log_in(place)) for _ in range(LOGINS)]
                session = Session(place)
                rpcs = [seconds(session.ask) for _ in range(RPCS)]
                session.close()
                sessions = [pid for pid in pids if b"omad-session" in command_of(pid)]
                memory = statistics.median(map(memory_of, sessions)) if sessions else 0
                rows.append((wanted, statistics.median(logins), statistics.median(rpcs), busy, memory))
        finally:
            for session in idle:
                session.process.kill()
                session.process.wait()
            place.stop()
    print("| idle sessions | login to first answer | one rpc | processor, all idle | memory of one session |")
    print("| --- | --- | --- | --- | --- |")
    for wanted, login, rpc, busy, memory in rows:
        print(f"| {wanted} | {login * 1e3:.0f} ms | {rpc * 1e6:.0f} us | {busy * 100:.2f} % | {memory or '-'} KB |")
    if rows[-1][3] >= 0.01:
        sys.exit("the idle sessions take 1 % of a processor or more")


def command_of(pid):
    with contextlib.suppress(OSError):
        return pathlib.Path(f"/proc/{pid}/cmdline").read_bytes().split(b"\0")[0]
    return b""


if __name__ == "__main__":
    main()

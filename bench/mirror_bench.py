"""nqecli on a mirror of the Linux kernel beside the kernel's own tools, on the same entries: 4,000 addresses of a bridge,
4,000 routes and 4,000 tracked connections, each asked from exec to exit with nobody reading the answer.

usage: mirror_bench.py BIN_DIRECTORY [RUNS]

Takes root, ip, bridge, nft and conntrack; without them there are no rows. Makes a network namespace, enters it (entering it
for each question would be on the tools' account), and removes it. Runs of what is compared take turns. Prints medians as JSON
in the shape that Google Benchmark uses.
"""

import contextlib
import ctypes
import json
import os
import pathlib
import shutil
import signal
import socket
import statistics
import subprocess
import sys
import tempfile
import time

COUNT = 4000
NAME = f"nqe-mirror-{os.getpid()}"
PATIENCE = 60  # seconds
SETTINGS = """
link add b0 type bridge
link add v0 type veth peer name v1
link set v0 master b0 up
link set v1 up
link set b0 up
link set lo up
address add 10.0.0.1/8 dev b0
"""
# The kernel tracks connections where a rule asks for their state.
RULES = "add table ip t; add chain ip t o {type filter hook output priority 0;}; add rule ip t o ct state new accept"


def may_ask_kernel():
    return os.geteuid() == 0 and all(map(shutil.which, ("ip", "bridge", "nft", "conntrack")))


def row(name, took_ms, goal_ms=0):
    return {"name": f"mirror/{name}", "run_name": f"mirror/{name}", "aggregate_name": "median", "real_time": took_ms,
            "time_unit": "ms", "goal_ns": goal_ms * 1e6}


def enter_namespace():
    with open(f"/run/netns/{NAME}", "rb") as namespace:
        if ctypes.CDLL(None, use_errno=True).setns(namespace.fileno(), 0) != 0:
            sys.exit(f"mirror_bench: cannot enter {NAME}: {os.strerror(ctypes.get_errno())}")


def batch(tool, lines):
    subprocess.run([tool, "-batch", "-"], input="\n".join(lines), text=True, check=True, stdout=subprocess.DEVNULL)


def fill():
    """The entries. Each connection is one datagram to a port of its own; the first ten have a source of their own."""
    batch("ip", SETTINGS.strip().splitlines())
    batch("bridge", [f"fdb add 02:00:5e:50:{n >> 8:02x}:{n & 255:02x} dev v0 master static" for n in range(COUNT)])
    batch("ip", [f"route add 172.16.{n >> 8}.{n & 255}/32 via 10.1.1.1" for n in range(COUNT)])
    batch("ip", ["address add 127.0.0.9/8 dev lo"])
    subprocess.run(["nft", RULES], check=True)
    for source, ports in (("127.0.0.9", range(10000, 10010)), ("127.0.0.1", range(10010, 10000 + COUNT))):
        with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as sender:
            sender.bind((source, 0))
            for port in ports:
                with contextlib.suppress(ConnectionRefusedError):
                    sender.sendto(b"x", ("127.0.0.1", port))


def answer(argv):
    done = subprocess.run(argv, stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, stderr=subprocess.DEVNULL, check=True,
                          timeout=PATIENCE)
    return done.stdout


def milliseconds(argv):
    begin = time.perf_counter()
    process = os.posix_spawn(argv[0], argv, os.environ,
                             file_actions=[(os.POSIX_SPAWN_OPEN, 1, "/dev/null", os.O_WRONLY, 0),
                                           (os.POSIX_SPAWN_OPEN, 2, "/dev/null", os.O_WRONLY, 0)])
    if os.waitpid(process, 0)[1] != 0:
        sys.exit(f"mirror_bench: {argv} fails")
    return (time.perf_counter() - begin) * 1000


def in_turns(questions, runs):
    took = [[] for _ in questions]
    for _ in range(runs):
        for argv, times in zip(questions, took):
            times.append(milliseconds(argv))
    return map(statistics.median, took)


def rows(ask, runs):
    tools = {name: shutil.which(name) for name in ("ip", "bridge", "conntrack")}
    # With what stands in each entry of either answer.
    for name, ours, theirs, marks, goal in (
            ("show ssw_macinfo all, 4,000 addresses of a bridge", [*ask, "show", "ssw_macinfo", "all"],
             [tools["bridge"], "fdb", "show"], [b"02:00:5e:50:"] * 2, 0.15),
            ("list fib, 4,000 routes", [*ask, "list", "fib"], [tools["ip"], "route", "show"], [b"172.16."] * 2, 0.4),
            ("show session of one source, 4,000 connections", [*ask, "show", "session", "sip:127.0.0.9"],
             [tools["conntrack"], "-L", "-s", "127.0.0.9"], [b"PosSrcIp     :  0x7f000009", b"src=127.0.0.9"], 0.1),
            ("list session of the same source", [*ask, "list", "session", "positive.source=127.0.0.9"],
             [tools["conntrack"], "-L", "-s", "127.0.0.9"], [b"127.0.0.9", b"src=127.0.0.9"], 0.1)):
        held = [answer(argv).count(mark) for argv, mark in zip((ours, theirs), marks)]
        if min(held) < 10 or ("session" not in name and held != [COUNT, COUNT]):
            sys.exit(f"mirror_bench: {name}: {held} entries")
        our_ms, their_ms = in_turns([ours, theirs], runs)
        yield row(" ".join(pathlib.Path(word).name for word in theirs), their_ms)
        yield row(name, our_ms, goal * their_ms)


def main():
    binaries = pathlib.Path(sys.argv[1]).resolve()
    runs = int(sys.argv[2]) if len(sys.argv) > 2 else 200
    benchmarks = []
    if not may_ask_kernel():
        print("mirror_bench: without root, ip, bridge, nft and conntrack there is nothing to compare with", file=sys.stderr)
    else:
        subprocess.run(["ip", "netns", "add", NAME], check=True)
        try:
            enter_namespace()
            fill()
            with tempfile.TemporaryDirectory(dir="/dev/shm") as directory:
                arena = f"{directory}/arena"
                with subprocess.Popen([binaries / "nqed", "--linux", "--arena", arena], stdout=subprocess.PIPE) as engine:
                    try:
                        if b"ready" not in engine.stdout.readline():
                            sys.exit("mirror_bench: nqed does not start")
                        benchmarks = list(rows([str(binaries / "nqecli"), "--arena", arena], runs))
                    finally:
                        engine.send_signal(signal.SIGTERM)
        finally:
            subprocess.run(["ip", "netns", "del", NAME], check=True)
    print(json.dumps({"context": {}, "benchmarks": benchmarks}, indent=1))


main()

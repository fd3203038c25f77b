#!/usr/bin/env python3
"""How fast nqed --linux loads a kernel's routes and follows its changes. Makes and removes a network namespace.

usage: bench/linux_bench.py [BIN_DIRECTORY] [ROUTES]
"""

import os
import pathlib
import socket
import statistics
import struct
import subprocess
import sys
import tempfile
import time

BIN = pathlib.Path(sys.argv[1] if len(sys.argv) > 1 else "build/bin").resolve()
ROUTES = int(sys.argv[2]) if len(sys.argv) > 2 else 1_000_000
NAME = f"nqe-bench-{os.getpid()}"
CHANGES = 200


def ip(*words, **options):
    subprocess.run(["ip", "-n", NAME, *words], check=True, **options)


def add_routes(first, count):
    lines = "".join(f"route add 11.{i >> 16 & 255}.{i >> 8 & 255}.{i & 255}/32 via 10.0.0.{2 + i % 8}\n"
                    for i in range(first, first + count))
    ip("-batch", "-", input=lines, text=True)


class Engine:
    def __init__(self, directory):
        self.arena = pathlib.Path(directory) / "arena"
        begun = time.monotonic()
        self.process = subprocess.Popen([BIN / "nqed", "--linux", "--netns", NAME, "--arena", self.arena, "--capacity",
                                         f"fib={1 << 20}"], stdout=subprocess.PIPE, text=True)
        assert "ready" in self.process.stdout.readline()
        self.seconds = time.monotonic() - begun
        self.processor = self.processor_seconds()
        self.socket = socket.socket(socket.AF_UNIX)
        self.socket.connect(str(self.arena) + ".sock")

    def processor_seconds(self):
        fields = pathlib.Path(f"/proc/{self.process.pid}/stat").read_text().rsplit(")", 1)[1].split()
        return (int(fields[11]) + int(fields[12])) / os.sysconf("SC_CLK_TCK")

    def ask(self, line):
        self.socket.sendall(struct.pack("<I4s", len(line), b"NQE1") + line.encode())
        length, _ = struct.unpack("<Ii", self.socket.recv(8, socket.MSG_WAITALL))
        return self.socket.recv(length, socket.MSG_WAITALL).decode()

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.process.terminate()
        self.process.wait()


def metric_of(answer):
    return next((line.split(":")[1].strip() for line in answer.splitlines() if "ReIndex" in line), None)


def load(engine, count):
    answers = []
    for i in range(2000):
        line = f"diag search nqpTable 3 11.0.{i % 4}.{i % 230} 32 0 0"
        begun = time.perf_counter()
        answer = engine.ask(line)
        answers.append(time.perf_counter() - begun)
        assert "NhpIndex" in answer, answer
    print(f"{count:9} routes: ready after {engine.seconds:.2f} s, of that {engine.processor:.2f} s of processor time: "
          f"{count / engine.seconds:,.0f} and {count / engine.processor:,.0f} routes a second; "
          f"one of them asked for: {1e6 * statistics.median(answers):.1f} us")


def follow(engine):
    waits = []
    for i in range(CHANGES):
        ip("route", "replace", "10.250.0.0/16", "via", f"10.0.0.{2 + i % 2}", "metric", str(1000 + i))
        if i > 0:
            ip("route", "del", "10.250.0.0/16", "metric", str(999 + i))
        begun = time.perf_counter()
        while metric_of(engine.ask("diag search nqpTable 3 10.250.0.0 16 0 0")) != str(1000 + i):
            assert time.perf_counter() - begun < 10
        waits.append(1000 * (time.perf_counter() - begun))
    waits.sort()
    print(f"{CHANGES} changes of a route, from the command's end until they are seen: median {waits[CHANGES // 2]:.2f} ms, "
          f"99 % {waits[CHANGES * 99 // 100]:.2f} ms, most {waits[-1]:.2f} ms")


def idle(engine):
    begun = engine.processor_seconds()
    time.sleep(10)
    print(f"10 s without changes: {1000 * (engine.processor_seconds() - begun):.0f} ms of processor time")


def main():
    subprocess.run(["ip", "netns", "add", NAME], check=True)
    try:
        ip("link", "add", "v0", "type", "veth", "peer", "name", "v1")
        for link in ("v0", "v1"):
            ip("link", "set", link, "up")
        ip("addr", "add", "10.0.0.1/24", "dev", "v0")
        with tempfile.TemporaryDirectory() as directory:
            add_routes(0, 1000)
            with Engine(directory) as engine:
                load(engine, 1000)
                follow(engine)
                idle(engine)
            add_routes(1000, ROUTES - 1000)
            with Engine(directory) as engine:
                load(engine, ROUTES)
                follow(engine)
    finally:
        subprocess.run(["ip", "netns", "del", NAME], check=True)


main()

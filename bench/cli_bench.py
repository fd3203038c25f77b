"""nqecli from exec to exit against /bin/true: starts lab engines on arenas of their own and asks them. The two programs
take turns, so that whatever else the machine does meets both alike. Then what one query costs by itself and in the shell,
and what the engine needs to load a million entries, to hand over a snapshot of them and to let 65,536 sessions expire.

usage: cli_bench.py BIN_DIRECTORY [RUNS]

What one query costs is counted with strace and valgrind; without them these rows are left out. Prints medians as JSON in the shape that Google Benchmark uses.
"""

import contextlib
import json
import os
import pathlib
import pty
import re
import shutil
import socket
import statistics
import struct
import subprocess
import sys
import tempfile
import time

ROOT = pathlib.Path(__file__).resolve().parents[1]
PATIENCE = 30  # seconds
WARM_UP = 20  # runs that fill the page cache
TRUE = ["/bin/true"]

# Scenario, and the name and words of each query; one row a query.
QUERIES = [
    (ROOT / "examples" / "campus.yaml", [
        ("show_map", ["show", "ctrlif_map_fwdif", "0", "1101"]),
        ("show_fwdif", ["show", "fwdif", "0", "1101"]),
    ]),
    (ROOT / "bench" / "macs.yaml", [
        ("list_4000_MACs", ["show", "ssw_macinfo", "all"]),
    ]),
]


MILLION = """
fwdif:
  - {repeat: 2, if_index: {from: 1, step: 1}, enable: 1}
ssw_macinfo:
  - {repeat: 1000000, bridge_id: 1, vlan_id: 1234, mac: {from: 02:00:5e:00:00:00, step: 1}, static: 1, aging: 200,
     out_if_index: {from: 10000, step: 1}}
"""
LOADS = 5
SNAPSHOTS = 5

# The half that stays stands before the half that leaves.
SESSIONS = """
session:
  - {repeat: 32768, index: {from: 0, step: 1}, valid: 1, aging_time: 65535}
  - {repeat: 32768, index: {from: 32768, step: 1}, valid: 1, aging_time: 2}
"""
EXPIRIES = 3


def stop(why):
    sys.exit(f"cli_bench: {why}")


@contextlib.contextmanager
def engine(binaries, scenario, *words):
    """A running engine; gives the path of its arena and its process."""
    with tempfile.TemporaryDirectory(prefix="nqe-bench-", dir="/dev/shm") as directory:
        arena = os.path.join(directory, "arena")
        process = subprocess.Popen(
            [binaries / "nqed", "--scenario", scenario, "--arena", arena, *words],
            stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, text=True)
        try:
            if not process.stdout.readline().startswith("nqed: ready"):
                stop("the engine does not start; what it said stands above")
            yield arena, process.pid
        finally:
            process.terminate()
            try:
                process.wait(PATIENCE)
            except subprocess.TimeoutExpired:
                process.kill()
                process.wait()


def check(argv):
    """The query has to be answered, or its time means nothing."""
    done = subprocess.run(argv, capture_output=True, text=True, timeout=PATIENCE)
    if done.returncode != 0 or not done.stdout:
        stop(f"{' '.join(argv)}: exit code {done.returncode}\n{done.stdout}{done.stderr}")


def timed_ms(argv, output):
    """Milliseconds from exec to exit."""
    actions = [(os.POSIX_SPAWN_DUP2, output, 1)]
    begin = time.perf_counter()
    pid = os.posix_spawn(argv[0], argv, os.environ, file_actions=actions)
    _, status = os.waitpid(pid, 0)
    took = time.perf_counter() - begin
    if status != 0:
        stop(f"{' '.join(argv)} failed while it was timed")
    return took * 1000


def measure(name, argv, runs, output):
    check(argv)
    for _ in range(WARM_UP):
        timed_ms(argv, output)
        timed_ms(TRUE, output)
    pairs = [(timed_ms(argv, output), timed_ms(TRUE, output)) for _ in range(runs)]
    ours, true = (statistics.median(column) for column in zip(*pairs))
    return {"name": f"cli/{name}", "aggregate_name": "median", "runs": runs,
            "nqecli_ms": ours, "true_ms": true, "ratio": ours / true}


def cost(name, value, unit):
    return {"name": f"cost/{name}", "aggregate_name": "median", "value": value, "unit": unit}


def query_costs(argv):
    """System calls and instructions of one query, from exec to exit."""
    check(argv)
    with tempfile.NamedTemporaryFile() as counts:
        if shutil.which("strace"):
            run(["strace", "-f", "-c", "-o", counts.name, *argv])
            total = re.search(r"(\d+) +(?:\d+ )?total", pathlib.Path(counts.name).read_text())
            yield cost("show_map:_system_calls", int(total[1]), "calls")
        if shutil.which("valgrind"):
            told = run(["valgrind", "--tool=callgrind", f"--callgrind-out-file={counts.name}", *argv])
            yield cost("show_map:_instructions", int(re.search(r"Collected : (\d+)", told)[1]), "instructions")


def shell_cost(argv, question, runs):
    """What somebody waits for in the shell: from the first key of a question to the next prompt, its text, the terminal
    and this program included."""
    with directory() as state:
        pid, terminal = pty.fork()
        if pid == 0:
            os.execve(argv[0], argv, {"TERM": "xterm", "PAGER": "", "LC_ALL": "C.UTF-8", "XDG_STATE_HOME": str(state)})

        def until_prompt():
            said = b""
            while not said.endswith(b"nqe> "):
                said += os.read(terminal, 65536)
            return said

        def asked_us():
            begin = time.perf_counter()
            os.write(terminal, question.encode() + b"\r")
            said = until_prompt()
            took = time.perf_counter() - begin
            if b"FwdIfIdx" not in said:
                stop(f"the shell does not answer {question}: {said!r}")
            return took * 1e6

        until_prompt()
        for _ in range(WARM_UP):
            asked_us()
        took = statistics.median(asked_us() for _ in range(runs))
        os.write(terminal, b"\x04")
        os.waitpid(pid, 0)
        os.close(terminal)
    return cost("show_map_in_the_shell:_first_key_to_prompt", round(took, 1), "us")


def run(argv):
    done = subprocess.run(argv, capture_output=True, text=True, timeout=PATIENCE, check=True)
    return done.stderr


def cpu_ms(pid):
    """What the process has had of its processors."""
    return int(pathlib.Path(f"/proc/{pid}/schedstat").read_text().split()[0]) / 1e6


@contextlib.contextmanager
def directory():
    with tempfile.TemporaryDirectory(prefix="nqe-bench-") as path:
        yield pathlib.Path(path)


@contextlib.contextmanager
def million(binaries, *words):
    """An engine with a million entries; gives the path of its arena and its process."""
    with directory() as place:
        layout = shutil.copytree(ROOT / "host" / "layout", place / "layout")
        file = layout / "switching.yaml"
        text, changes = re.subn(r"(ssw_macinfo:.*?capacity: )\d+", r"\g<1>1000000", file.read_text(), 1, re.DOTALL)
        if changes != 1:
            stop("the layout of ssw_macinfo has no capacity")
        file.write_text(text)
        scenario = place / "million.yaml"
        scenario.write_text(MILLION)
        with engine(binaries, scenario, "--layout", layout, *words) as (arena, pid):
            yield arena, pid


def load_cost(binaries):
    """Processor time of an engine that begins with a million entries, until it is ready."""
    samples = []
    for _ in range(LOADS):
        with million(binaries) as (_, pid):
            samples.append(cpu_ms(pid))
    return cost("load_of_1,000,000_entries_by_repeat", statistics.median(samples), "ms")


def snapshot_costs(binaries):
    """The most that somebody who keeps asking waits for while a snapshot is taken, of an engine at rest and of one that
    forwards 10,000 packets a second, on a machine that does nothing else."""
    for what, words in (("", []), (" under traffic", ["--traffic", "10000"])):
        waits = []
        for _ in range(SNAPSHOTS):
            with million(binaries, *words) as (arena, pid):
                copying = subprocess.Popen([binaries / "nqecli", "--arena", arena, "snapshot", arena + ".copy"])
                waits.append(longest_wait(Client(arena + ".sock"), pid, lambda: copying.poll() is not None))
                if copying.returncode != 0:
                    stop("the snapshot fails; what it said stands above")
        yield cost(f"snapshot_of_1,000,000_entries{what}:_longest_wait_for_an_answer".replace(" ", "_"),
                   statistics.median(waits), "ms")


class Client:
    """A connection to the engine's socket."""

    def __init__(self, path):
        self.socket = socket.socket(socket.AF_UNIX)
        self.socket.settimeout(PATIENCE)
        self.socket.connect(path)

    def ask(self, line):
        self.socket.sendall(struct.pack("<I4s", len(line), b"NQE1") + line.encode())
        length, _ = struct.unpack("<Ii", self.socket.recv(8, socket.MSG_WAITALL))
        return self.socket.recv(length, socket.MSG_WAITALL).decode() if length else ""

    def half_is_gone(self):
        return "entries   32768\n" in self.ask("status")


def longest_wait(client, pid, is_over):
    """The most processor time of the engine between a question and its answer, until something is over: what somebody
    who keeps asking waits for on a machine that does nothing else."""
    longest = 0
    while not is_over():
        for _ in range(100):
            begin = cpu_ms(pid)
            client.ask("perf-mode")
            longest = max(longest, cpu_ms(pid) - begin)
    return longest


def expiry_costs(binaries):
    """Processor time of the engine while sessions expire, and the longest wait for an answer meanwhile."""
    times, waits = [], []
    with directory() as place:
        scenario = place / "sessions.yaml"
        scenario.write_text(SESSIONS)
        for _ in range(EXPIRIES):
            with engine(binaries, scenario) as (arena, pid):
                client = Client(arena + ".sock")
                began = cpu_ms(pid)
                while not client.half_is_gone():
                    time.sleep(0.2)
                times.append(cpu_ms(pid) - began)
            with engine(binaries, scenario) as (arena, pid):
                client = Client(arena + ".sock")
                waits.append(longest_wait(client, pid, client.half_is_gone))
    yield cost("expiry_of_32,768_of_65,536_sessions:_engine_time", statistics.median(times), "ms")
    yield cost("the_same:_longest_wait_for_an_answer", statistics.median(waits), "ms")


def main():
    if len(sys.argv) not in (2, 3):
        sys.exit(__doc__)
    binaries = pathlib.Path(sys.argv[1]).resolve()
    runs = int(sys.argv[2]) if len(sys.argv) == 3 else 500
    results = []
    for scenario, queries in QUERIES:
        with engine(binaries, scenario) as (arena, _), open(os.devnull, "wb") as output:
            results += [measure(name, [str(binaries / "nqecli"), "--arena", arena, *words], runs, output.fileno())
                        for name, words in queries]
    with engine(binaries, QUERIES[0][0]) as (arena, _):
        tool, (_, words) = [str(binaries / "nqecli"), "--arena", arena], QUERIES[0][1][0]
        results += query_costs([*tool, *words])
        if (binaries / "nqecli-shell").exists():
            results.append(shell_cost(tool, " ".join(words), runs))
    results.append(load_cost(binaries))
    results += snapshot_costs(binaries)
    results += expiry_costs(binaries)
    json.dump({"benchmarks": results}, sys.stdout, indent=1)
    print()


if __name__ == "__main__":
    main()

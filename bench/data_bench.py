"""The engine's state as data, from exec to exit: a list of 4,000 MAC addresses as JSON beside its text and beside
`bridge -j fdb show` on as many entries, one record, find and diff over an arena of 200,000 entries, and the memory
that the commands take there beside the arena's pages.

usage: data_bench.py BIN_DIRECTORY [RUNS]

The kernel's side needs root, ip and bridge; without them its row is left out. Runs of what is compared take turns. Prints
medians, of memory the most, as JSON in the shape that Google Benchmark uses.
"""

import json
import os
import pathlib
import re
import shutil
import statistics
import subprocess
import sys
import tempfile
import time

from cli_bench import ROOT, engine, stop

PATIENCE = 120  # seconds
MACS = 4000
# Together 196,000 entries.
FULL = """\
session:
  - {repeat: 65536, index: {from: 0, step: 1}, valid: 1, aging_time: 65535,
     positive: {source: {from: 10.0.0.1, step: 1}, destination: 198.51.100.1, source_port: 1, destination_port: 2}}
acl_stat:
  - {repeat: 32768, group_type: 0, group_id: 1, stat_id: {from: 0, step: 1}}
ssw_boardcast:
  - {repeat: 32768, bridge_id: 1, vlan_id: 10, fwd_if_index: {from: 1, step: 1}}
arp:
  - {repeat: 16384, vpn: 0, next_hop: {from: 172.16.0.1, step: 1}, dmac: {from: "02:00:5e:00:00:01", step: 1}}
nd:
  - {repeat: 16384, vpn: 0, next_hop: {from: "2001:db8::1", step: 1}, dmac: {from: "02:00:5e:00:00:01", step: 1}}
ssw_macinfo:
  - {repeat: 16384, bridge_id: 1, vlan_id: 1, mac: {from: "02:00:5e:00:00:01", step: 1}, out_if_index: 7}
nhp:
  - {repeat: 8000, index: {from: 1, step: 1}, next_hop: {from: 172.16.0.1, step: 1}}
fib:
  - {repeat: 8000, prefix: 32, vpn: 0, destination: {from: 10.1.0.0, step: 1}, nhp_index: {from: 1, step: 1},
     next_hop: {nhp: {index: {from: 1, step: 1}}}}
"""


def row(name, took_ms, goal_ms=0):
    return {"name": f"data/{name}", "run_name": f"data/{name}", "aggregate_name": "median", "real_time": took_ms,
            "time_unit": "ms", "goal_ns": goal_ms * 1e6}


def in_turns(commands, runs):
    """Medians of milliseconds from exec to exit; each answer is looked at by its check."""
    took = {name: [] for name in commands}
    for _ in range(runs):
        for name, (argv, check) in commands.items():
            begin = time.perf_counter()
            done = subprocess.run(argv, stdin=subprocess.DEVNULL, capture_output=True, timeout=PATIENCE)
            took[name].append((time.perf_counter() - begin) * 1000)
            if not check(done):
                stop(f"{argv}: exit code {done.returncode}, {len(done.stdout)} bytes\n{done.stderr.decode()[:500]}")
    return {name: statistics.median(times) for name, times in took.items()}


def holds(count):
    return lambda done: done.returncode == 0 and done.stdout.count(b'"mac":') == count


def lists(binaries, runs):
    with engine(binaries, ROOT / "bench" / "macs.yaml") as (arena, _):
        ask = [binaries / "nqecli", "--arena", arena]
        first = json.loads(subprocess.run([*ask, "list", "ssw_macinfo", "--limit", "1", "--json"], capture_output=True,
                                          check=True).stdout)["records"][0]
        one = [*ask, "show", "ssw_macinfo", first["mac"], str(first["bridge_id"]), str(first["vlan_id"])]
        took = in_turns({
            "text": ([*ask, "show", "ssw_macinfo", "all"], lambda done: done.returncode == 0),
            "json": ([*ask, "list", "ssw_macinfo", "--json"], holds(MACS)),
            "one": (one, lambda done: done.returncode == 0),
            "one_json": ([*one, "--json"], holds(1)),
            "kernel": kernels_question(),
        }, runs)
    yield row("show ssw_macinfo all, 4,000 MACs", took["text"])
    yield row("list ssw_macinfo --json, the same", took["json"], 2 * took["text"])
    if took["kernel"] > 1:
        yield row("bridge -j fdb show, as many", took["kernel"])
        yield row("list ssw_macinfo --json, beside it", took["json"], took["kernel"] / 5)
    yield row("show of one MAC", took["one"])
    yield row("the same with --json", took["one_json"], 1.5 * took["one"])


NAMESPACE = "nqe-data-bench"


def kernels_question():
    if not may_ask_kernel():
        return ["true"], lambda done: True
    return (["ip", "netns", "exec", NAMESPACE, "bridge", "-j", "fdb", "show", "br", "b0"],
            lambda done: done.returncode == 0 and done.stdout.count(b'"mac"') >= MACS)


def may_ask_kernel():
    return os.geteuid() == 0 and all(map(shutil.which, ("ip", "bridge")))


class Bridge:
    """A bridge with 4,000 learnt addresses, in a namespace of its own."""

    def __enter__(self):
        if not may_ask_kernel():
            print("data_bench: without root, ip and bridge there is nothing to compare with", file=sys.stderr)
            return
        subprocess.run(["ip", "netns", "add", NAMESPACE], check=True)
        with tempfile.NamedTemporaryFile("w") as batch:
            print("link add b0 type bridge\nlink add v0 type veth peer name v1\nlink set v0 master b0 up", file=batch)
            batch.flush()
            subprocess.run(["ip", "-n", NAMESPACE, "-batch", batch.name], check=True)
        with tempfile.NamedTemporaryFile("w") as batch:
            for number in range(MACS):
                print(f"fdb add 02:00:5e:50:{number >> 8:02x}:{number & 255:02x} dev v0 master static", file=batch)
            batch.flush()
            subprocess.run(["ip", "netns", "exec", NAMESPACE, "bridge", "-batch", batch.name], check=True)

    def __exit__(self, *_):
        if may_ask_kernel():
            subprocess.run(["ip", "netns", "del", NAMESPACE], check=True)


def most_memory(argv, runs):
    """The most KiB of memory of its own that the process was seen to have; the arena's pages are a file's."""
    most = 0
    for _ in range(runs):
        process = subprocess.Popen(argv, stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL, stderr=subprocess.PIPE)
        with open(f"/proc/{process.pid}/status", encoding="ascii") as status:
            while process.poll() is None:
                status.seek(0)
                if own := re.search(r"RssAnon:\s+(\d+) kB", status.read()):
                    most = max(most, int(own[1]))
        if process.returncode not in (0, 1):
            stop(f"{argv}: exit code {process.returncode}\n{process.stderr.read().decode()[:500]}")
        process.stderr.close()
    return most


MEMORY_RUNS = 5
MEMORY = (
    ("list session", "list session"),
    ("list session --json", "list session --json"),
    ("list session --sort=-positive.source --json", "list session --sort=-positive.source --json"),
    ("find 198.51.100.1", "find of what every session has"),
    ("diff {directory}/a live", "diff of a snapshot and the engine"),
    ("check", "check"),
    ("explain 172.16.9.9", "explain of an address"),
    ("export -", "export"),
    ("usage", "usage"),
)
QUESTIONS = (
    ("SELECT * FROM session ORDER BY positive_source DESC", "sql, the sessions in another order"),
    ("SELECT a.next_hop FROM arp a JOIN ssw_macinfo m ON m.mac = a.dmac", "sql, a join by an index"),
)


def memory(ask, directory):
    commands = [(line.format(directory=directory).split(), name) for line, name in MEMORY]
    commands += [(["sql", question], name) for question, name in QUESTIONS]
    for words, name in commands:
        yield {"name": f"memory/{name}", "aggregate_name": "median", "kib": most_memory([*ask, *words], MEMORY_RUNS)}


def large(binaries, runs):
    with tempfile.TemporaryDirectory(prefix="nqe-bench-", dir="/dev/shm") as directory:
        scenario = pathlib.Path(directory, "full.yaml")
        scenario.write_text(FULL)
        with engine(binaries, scenario) as (arena, _):
            ask = [binaries / "nqecli", "--arena", arena]
            for name in ("a", "b"):
                subprocess.run([*ask, "snapshot", f"{directory}/{name}"], check=True)
            found = lambda done: done.returncode == 0 and done.stdout
            took = in_turns({
                "find": ([*ask, "find", "172.16.9.9"], found),
                "mac": ([*ask, "find", "02:00:5e:00:09:09"], found),
                "diff": ([*ask, "diff", f"{directory}/a", f"{directory}/b"], lambda done: done.returncode == 0),
                "live": ([*ask, "diff", f"{directory}/a", "live"], lambda done: done.returncode == 0),
                "check": ([*ask, "check"], lambda done: done.returncode in (0, 1)),
            }, runs)
            yield from memory(ask, directory)
    yield row("find of an IPv4 address, 196,000 entries", took["find"], 60)
    yield row("find of a MAC address", took["mac"], 60)
    yield row("diff of two snapshots", took["diff"], 150)
    yield row("diff of a snapshot and the engine", took["live"], 150)
    yield row("check", took["check"])


def main():
    if len(sys.argv) < 2:
        sys.exit(__doc__)
    binaries = pathlib.Path(sys.argv[1]).resolve()
    runs = int(sys.argv[2]) if len(sys.argv) > 2 else 200
    with Bridge():
        results = [*lists(binaries, runs), *large(binaries, max(runs // 10, 5))]
    print(json.dumps({"benchmarks": results}, indent=1))


if __name__ == "__main__":
    main()

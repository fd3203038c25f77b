"""nqecli sql from exec to exit, a hundred snapshots on one processor and on two (the least of 40 runs), and beside them what people use today:
`ip -j` and jq on as many routes and neighbours in a network namespace of the kernel.

usage: sql_bench.py BIN_DIRECTORY [RUNS]

The kernel's side needs root, ip and jq; without them these rows are left out. Prints medians as JSON in the shape that
Google Benchmark uses.
"""

import json
import os
import pathlib
import shutil
import statistics
import subprocess
import sys
import tempfile
import time

from cli_bench import ROOT, engine, stop

PATIENCE = 120  # seconds
GROWTH = 0.8  # at most, of one processor's time, with two
ROUTES = 8192
JOIN = ("SELECT f.destination, n.next_hop, a.dmac FROM fib f JOIN nhp n ON n._address = f.next_hop_address "
        "JOIN arp a ON a.vpn = f.vpn AND a.next_hop = n.next_hop")
JQ_JOIN = ("ip -j neigh show dev d0 >{0}/n && ip -j route show >{0}/r && jq -c -n --slurpfile r {0}/r --slurpfile n {0}/n "
           "'(reduce $n[0][] as $e ({{}}; .[$e.dst] = $e.lladdr)) as $at | $r[0][] | select(.gateway) | "
           "{{dst, gateway, mac: $at[.gateway]}}'")


def row(name, took_ms, goal_ms=0):
    return {"name": f"sql/{name}", "run_name": f"sql/{name}", "aggregate_name": "median", "real_time": took_ms,
            "time_unit": "ms", "goal_ns": goal_ms * 1e6}


def timed(argv, lines, runs, pick=statistics.median):
    """Milliseconds from exec to exit, the median of all runs; the answer has to have so many lines."""
    took = []
    for _ in range(runs):
        begin = time.perf_counter()
        done = subprocess.run(argv, stdin=subprocess.DEVNULL, capture_output=True, timeout=PATIENCE)
        took.append((time.perf_counter() - begin) * 1000)
        if done.returncode != 0 or done.stdout.count(b"\n") != lines:
            stop(f"{argv}: exit code {done.returncode}, {done.stdout.count(10)} lines\n{done.stderr.decode()[:500]}")
    return pick(took)


def ours(binaries, runs):
    with engine(binaries, ROOT / "bench" / "sql.yaml") as (arena, _):
        sql = [binaries / "nqecli", "--arena", arena, "sql"]
        key = "SELECT * FROM arp WHERE vpn = 0 AND next_hop = '172.16.9.9'"
        yield row("nqecli sql, a lookup, exec to exit", timed([*sql, key], 2, runs), 3)
        yield row(f"nqecli sql, {ROUTES:,} routes as NDJSON", timed([*sql, "--ndjson", "SELECT * FROM fib"], ROUTES, 9))
        yield row("nqecli sql, the same joined with nhp and arp", timed([*sql, "--ndjson", JOIN], ROUTES, 9))


def many(binaries, runs):
    with tempfile.TemporaryDirectory(prefix="nqe-bench-", dir="/dev/shm") as directory:
        with engine(binaries, ROOT / "bench" / "macs.yaml") as (arena, _):
            subprocess.run([binaries / "nqecli", "--arena", arena, "snapshot", f"{directory}/0.snapshot"], check=True)
        for number in range(1, 100):
            os.link(f"{directory}/0.snapshot", f"{directory}/{number}.snapshot")
        argv = [binaries / "nqecli", "--snapshot", f"{directory}/*.snapshot", "sql",
                "SELECT count(*) AS n, count(DISTINCT arena) FROM ssw_macinfo WHERE vlan_id = 1234"]
        count = [*argv[:-1], "SELECT count(*) FROM ssw_macinfo"]
        for what, words in (("counted", count), ("read and counted", argv)):
            alone = timed(["taskset", "-c", "0", *words], 2, runs, min)
            yield row(f"100 snapshots of 4,000 MACs {what}, one processor", alone)
            yield row("the same, two processors", timed(["taskset", "-c", "0,1", *words], 2, runs, min),
                      alone * GROWTH)


def kernels(runs):
    """The same questions to the kernel of this machine."""
    if os.geteuid() != 0 or not all(map(shutil.which, ("ip", "jq", "unshare"))):
        print("sql_bench: without root, ip, jq and unshare there is nothing to compare with", file=sys.stderr)
        return
    with tempfile.TemporaryDirectory(prefix="nqe-bench-", dir="/dev/shm") as directory:
        batch = ["link add d0 type bridge", "link set d0 up", "address add 172.16.0.1/16 dev d0"]
        for number in range(ROUTES):
            low, high = number % 256, number // 256
            hop = f"172.16.{1 + high}.{low}"
            batch.append(f"neigh add {hop} lladdr 02:00:5e:60:{high:02x}:{low:02x} nud permanent dev d0")
            batch.append(f"route add 10.1.{high}.{low}/32 via {hop} onlink dev d0")
        pathlib.Path(directory, "batch").write_text("\n".join(batch) + "\n")
        commands = {"ip -j route show through jq": ("ip -j route show | jq -c '.[]'", ROUTES + 1),
                    "ip -j route and ip -j neigh joined by jq": (JQ_JOIN.format(directory), ROUTES)}
        # All in one namespace, which ends with its last process.
        script = f"ip -batch {directory}/batch || exit 1\n"
        for name, (command, _) in commands.items():
            script += f"for i in $(seq {runs}); do\n  s=$(date +%s%N); ({command}) >{directory}/out; e=$(date +%s%N)\n" \
                      f"  echo \"{name}|$((e - s))|$(wc -l <{directory}/out)\"\ndone\n"
        done = subprocess.run(["unshare", "-n", "sh", "-c", script], capture_output=True, text=True, timeout=PATIENCE * 5)
        if done.returncode != 0:
            stop(f"the kernel's tables: {done.stderr[:500]}")
        told = [line.split("|") for line in done.stdout.splitlines()]
        for name, (_, lines) in commands.items():
            took = [int(parts[-2]) / 1e6 for parts in told if "|".join(parts[:-2]) == name]
            if any(int(parts[-1]) != lines for parts in told if "|".join(parts[:-2]) == name):
                stop(f"{name}: not {lines} lines")
            yield row(name, statistics.median(took))


def main():
    if len(sys.argv) < 2:
        sys.exit(__doc__)
    binaries = pathlib.Path(sys.argv[1]).resolve()
    runs = int(sys.argv[2]) if len(sys.argv) > 2 else 200
    results = [*ours(binaries, runs), *many(binaries, 40), *kernels(9)]
    print(json.dumps({"benchmarks": results}, indent=1))


if __name__ == "__main__":
    main()

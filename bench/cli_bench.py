"""nqecli from exec to exit against /bin/true: starts lab engines on arenas of their own and asks them. The two programs
take turns, so that whatever else the machine does meets both alike.

usage: cli_bench.py BIN_DIRECTORY [RUNS]

Prints medians as JSON in the shape that Google Benchmark uses.
"""

import contextlib
import json
import os
import pathlib
import statistics
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


def stop(why):
    sys.exit(f"cli_bench: {why}")


@contextlib.contextmanager
def engine(binaries, scenario):
    """A running engine; gives the path of its arena."""
    with tempfile.TemporaryDirectory(prefix="nqe-bench-", dir="/dev/shm") as directory:
        arena = os.path.join(directory, "arena")
        process = subprocess.Popen(
            [binaries / "nqed", "--scenario", scenario, "--arena", arena],
            stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, text=True)
        try:
            if not process.stdout.readline().startswith("nqed: ready"):
                stop("the engine does not start; what it said stands above")
            yield arena
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


def main():
    if len(sys.argv) not in (2, 3):
        sys.exit(__doc__)
    binaries = pathlib.Path(sys.argv[1]).resolve()
    runs = int(sys.argv[2]) if len(sys.argv) == 3 else 500
    results = []
    for scenario, queries in QUERIES:
        with engine(binaries, scenario) as arena, open(os.devnull, "wb") as output:
            results += [measure(name, [str(binaries / "nqecli"), "--arena", arena, *words], runs, output.fileno())
                        for name, words in queries]
    json.dump({"benchmarks": results}, sys.stdout, indent=1)
    print()


if __name__ == "__main__":
    main()

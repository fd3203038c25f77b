"""A scrape of nqeweb's metrics over HTTP on the loopback: of the campus site, of an engine with as many series as one can
have, and of one whose tables hold 196,000 entries; and what findings and sessions take, which are counted apart.

usage: metrics_bench.py BIN_DIRECTORY [RUNS]

Prints medians as JSON in the shape that Google Benchmark uses.
"""

import contextlib
import http.client
import json
import pathlib
import re
import statistics
import subprocess
import sys
import tempfile
import time

from cli_bench import PATIENCE, ROOT, engine, stop
from data_bench import FULL

MOST_MS = 5  # of the campus site
MOST_BYTES = 64 * 1024
# As many series as one engine can have: 256 entries of each table that has some, and all statistics.
FULLEST = """\
fwdif:
  - {repeat: 300, if_index: {from: 1, step: 1}, counters: [{in_bytes: 123456789012, in_packets: 123456789, in_unicast: 12345678,
     in_multicast: 1234567, in_broadcast: 123456, out_bytes: 123456789012, out_packets: 123456789, out_unicast: 12345678,
     out_multicast: 1234567, out_broadcast: 123456}]}
cpcar_pro: [{repeat: 256, protocol: {from: 0, step: 1}, wireless: 0, pass_packets: 123456, drop_packets: 1234}]
cause: [{repeat: 300, cp_cause_id: {from: 0, step: 1}, packets: 123456}]
buf_cache_stat: [{index: 0, capwap_over_max: 1, capwap_over_fragments: 1, capwap_other_drops: 1, capwap_fragments: 1,
  capwap_reassembled: 1, capwap_fragmented: 1}]
statistics:
""" + "".join(f"  {number}: 123456789\n" for number in range(831))


@contextlib.contextmanager
def web(binaries, arena):
    """nqeweb before one engine; gives a connection to it."""
    process = subprocess.Popen([binaries / "nqeweb", "--arena", arena, "--listen", "127.0.0.1:0"],
                               stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, text=True)
    try:
        ready = re.search(r"http://([0-9.]+):(\d+)/", process.stdout.readline())
        if not ready:
            stop("nqeweb does not start; what it said stands above")
        connection = http.client.HTTPConnection(ready[1], int(ready[2]), timeout=PATIENCE)
        yield connection
        connection.close()
    finally:
        process.terminate()
        process.wait()


def scrape(connection):
    connection.request("GET", "/metrics")
    answer = connection.getresponse()
    text = answer.read()
    if answer.status != 200 or b"\nnqe_up 1\n" not in text:
        stop(f"a scrape failed: {answer.status} {text[:200]!r}")
    return text


def value(text, name):
    found = re.search(rb"^" + name.encode() + rb" (\S+)$", text, re.M)
    return float(found[1]) if found else None


def row(name, unit, took, most=None):
    return {"name": f"metrics/{name}", "aggregate_name": "median", "unit": unit, "value": took, "most": most}


def measure(binaries, name, scenario, runs, limits=(None, None)):
    with engine(binaries, scenario) as (arena, _), web(binaries, arena) as connection:
        # Once findings are counted a scrape has all of its series.
        text = scrape(connection)
        while value(text, "nqe_survey_duration_seconds") is None:
            text = scrape(connection)
        took = []
        for _ in range(runs):
            begin = time.perf_counter()
            text = scrape(connection)
            took.append((time.perf_counter() - begin) * 1000)
        yield row(f"{name}: scrape", "ms", statistics.median(took), limits[0])
        yield row(f"{name}: slowest of 100 scrapes", "ms", statistics.quantiles(took, n=100)[-1], limits[0])
        yield row(f"{name}: answer", "bytes", len(text), limits[1])
        yield row(f"{name}: series", "series", len([line for line in text.splitlines() if not line.startswith(b"#")]))
        yield row(f"{name}: findings and sessions, apart", "ms", value(text, "nqe_survey_duration_seconds") * 1000)


def main():
    binaries = pathlib.Path(sys.argv[1]).resolve()
    runs = int(sys.argv[2]) if len(sys.argv) > 2 else 500
    rows = list(measure(binaries, "campus", ROOT / "examples" / "campus.yaml", runs, (MOST_MS, MOST_BYTES)))
    for name, text in (("most series", FULLEST), ("196,000 entries", FULL)):
        with tempfile.NamedTemporaryFile("w", suffix=".yaml") as file:
            file.write(text)
            file.flush()
            rows += measure(binaries, name, file.name, runs)
    print(json.dumps({"benchmarks": rows}, indent=1))


if __name__ == "__main__":
    if len(sys.argv) < 2:
        sys.exit(__doc__)
    main()

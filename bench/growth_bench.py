"""How times grow: with records, with capacity at equal fill, with fill, with readers; and the times of the kernel's own tools
beside ours on the same entries. Each question goes from exec to exit with nobody reading the answer.

usage: growth_bench.py BIN_DIRECTORY measure [RUNS] >growth.json
       growth_bench.py plot growth.json DIRECTORY        one SVG a question, the goal in each (python3-matplotlib)

The comparison takes root and what mirror_bench.py takes; without them it is left out.
"""

import json
import os
import pathlib
import signal
import statistics
import subprocess
import sys
import tempfile

import cli_bench

RECORDS = (100, 1_000, 10_000, 100_000, 1_000_000)
CAPACITIES = (1_000, 10_000, 100_000, 1_000_000)
FILLS = (1, 10, 25, 50, 75, 90, 100)  # percent of CAPACITY
CAPACITY = 200_000
READERS = (0, 1, 2, 4, 8)
TABLE = "ssw_macinfo"
ENTRIES = """
fwdif: [{if_index: 7, enable: 1}]
ssw_macinfo:
  - {repeat: COUNT, bridge_id: 1, vlan_id: 10, mac: {from: 02:00:5e:00:00:00, step: 1}, static: 1, out_if_index: 7}
"""
# What is asked of a table of MAC addresses, and the goal in milliseconds: a function of the records.
QUESTIONS = {
    "show, one key": (["show", TABLE, "02:00:5e:00:00:07", "1", "10"], lambda records: 5),
    "list --json": (["list", TABLE, "--json"], lambda records: 5 + records * 0.0005),
    "find": (["find", "02:00:5e:00:00:07"], lambda records: 5 + records * 0.0005),
    "usage": (["usage"], lambda records: 5),
    "check": (["check"], lambda records: 5 + records * 0.0005),
}


def asked_ms(argv, runs):
    """The median, after a run that fills the caches; slow questions are asked less often."""
    with open(os.devnull, "wb") as nobody:
        first = cli_bench.timed_ms(argv, nobody.fileno())
        count = max(5, min(runs, int(3000 / first)))
        return statistics.median(cli_bench.timed_ms(argv, nobody.fileno()) for _ in range(count))


def in_engine(binaries, records, capacity, work):
    with tempfile.NamedTemporaryFile("w", suffix=".yaml") as scenario:
        scenario.write(ENTRIES.replace("COUNT", str(records)))
        scenario.flush()
        with cli_bench.engine(binaries, scenario.name, "--capacity", f"{TABLE}={capacity}") as (arena, _):
            return work([str(binaries / "nqecli"), "--arena", arena])


def all_questions(ask, runs):
    return {name: asked_ms([*ask, *words], runs) for name, (words, _) in QUESTIONS.items()}


def beside_readers(ask, count, runs):
    """One key asked for while others list the table again and again."""
    loop = f"while :; do {' '.join(ask)} list {TABLE} --json; done >/dev/null"
    readers = [subprocess.Popen(["sh", "-c", loop], start_new_session=True) for _ in range(count)]
    try:
        return {"show, one key": asked_ms([*ask, *QUESTIONS["show, one key"][0]], runs)}
    finally:
        for reader in readers:
            os.killpg(reader.pid, signal.SIGKILL)
            reader.wait()


def comparison(binaries, runs):
    done = subprocess.run([sys.executable, pathlib.Path(__file__).parent / "mirror_bench.py", binaries, str(runs)],
                          capture_output=True, text=True)
    rows = json.loads(done.stdout)["benchmarks"] if done.returncode == 0 and done.stdout else []
    return [{"name": row["name"].split("/", 1)[1], "ms": row["real_time"], "goal_ms": row["goal_ns"] / 1e6} for row in rows]


def measure(binaries, runs):
    grown = {"load": list(os.getloadavg()), "processors": os.cpu_count()}
    grown["records"] = {n: in_engine(binaries, n, max(n, 1000), lambda ask: all_questions(ask, runs)) for n in RECORDS}
    grown["capacity"] = {n: in_engine(binaries, 1000, n, lambda ask: all_questions(ask, runs)) for n in CAPACITIES}
    grown["fill"] = {n: in_engine(binaries, CAPACITY * n // 100, CAPACITY, lambda ask: all_questions(ask, runs)) for n in FILLS}
    grown["readers"] = {n: in_engine(binaries, 1000, 1000, lambda ask, n=n: beside_readers(ask, n, runs)) for n in READERS}
    grown["comparison"] = comparison(binaries, runs)
    grown["load_after"] = list(os.getloadavg())
    json.dump(grown, sys.stdout, indent=1)


GROWTH = {  # by what, the axis, whether its scale is logarithmic, the records behind a point
    "records": ("records", True, lambda x: x),
    "capacity": ("capacity, 1,000 records in it", True, lambda x: 1000),
    "fill": (f"fill of {CAPACITY:,} places, percent", False, lambda x: x * CAPACITY // 100),
    "readers": ("readers that list all the time, 2 processors", False, lambda x: 1000),
}


def plot_growth(plt, grown, kind, file):
    label, is_log, records_of = GROWTH[kind]
    points = sorted((int(x), times) for x, times in grown[kind].items())
    figure, axes = plt.subplots(figsize=(7, 4.5))
    for name in points[0][1]:
        xs = [x for x, _ in points]
        line, = axes.plot(xs, [times[name] for _, times in points], marker="o", label=name)
        axes.plot(xs, [QUESTIONS[name][1](records_of(x)) for x in xs], linestyle=":", color=line.get_color(), linewidth=1)
    axes.plot([], [], linestyle=":", color="gray", label="goal")
    axes.set_xscale("log" if is_log else "linear")
    axes.set_yscale("log")
    axes.set_xlabel(label)
    axes.set_ylabel("milliseconds from exec to exit")
    axes.grid(True, which="major", alpha=0.3)
    axes.legend(fontsize=8)
    figure.tight_layout()
    figure.savefig(file, metadata={"Date": None})
    plt.close(figure)


def plot_comparison(plt, rows, file):
    figure, axes = plt.subplots(figsize=(9, 0.5 + 0.42 * len(rows)))
    axes.set_yticks(range(len(rows)), [row["name"] for row in rows[::-1]], fontsize=8)
    for place, row in enumerate(rows[::-1]):
        axes.barh(place, row["ms"], height=0.6, color="tab:blue" if row["goal_ms"] else "tab:gray")
        if row["goal_ms"]:
            axes.plot([row["goal_ms"]] * 2, [place - 0.4, place + 0.4], color="red")
    axes.plot([], [], color="red", label="goal")
    axes.set_xlabel("milliseconds from exec to exit")
    axes.legend(fontsize=8)
    figure.tight_layout()
    figure.savefig(file, metadata={"Date": None})
    plt.close(figure)


def plot(path, directory):
    import matplotlib
    matplotlib.use("svg")
    matplotlib.rcParams["svg.hashsalt"] = "growth"
    import matplotlib.pyplot as plt
    grown = json.loads(pathlib.Path(path).read_text())
    directory = pathlib.Path(directory)
    directory.mkdir(parents=True, exist_ok=True)
    for kind in GROWTH:
        plot_growth(plt, grown, kind, directory / f"{kind}.svg")
    if grown["comparison"]:
        plot_comparison(plt, grown["comparison"], directory / "comparison.svg")


def main():
    words = sys.argv[1:]
    if len(words) == 3 and words[0] == "plot":
        plot(words[1], words[2])
    elif len(words) in (2, 3) and words[1] == "measure":
        measure(pathlib.Path(words[0]).resolve(), int(words[2]) if len(words) == 3 else 100)
    else:
        print(__doc__, file=sys.stderr)
        sys.exit(2)


if __name__ == "__main__":
    main()

"""Prints the results of the benchmarks as the tables of docs/benchmarks.md, and judges them by their goals.

usage: report.py RESULT.json...

Exit code 1 when a goal is missed.
"""

import json
import statistics
import sys

VIEW_SPEEDUP = 7  # at least
VIEW_MEAN_SPEEDUP = 12  # at least, the geometric mean
COPY_RATIO = 0.2  # at least: a copy of a list's text over printing it
SESSION_RATIOS = {"query, one of 65,536": 2, "diag view, none of 65,536": 2}  # at most
SEARCH_RATIO = 3  # at most, to the C++ library's hash table
WALK_NS = 45  # a record, at most
WRITER_RATIO = {"1000": 1.25, "262144": 1.10}  # at most, to the writer alone
EXPIRY_MS = 50  # of 65,536 sessions, at most
CLI_MS = 5  # below
CLI_RATIO = 2  # at most
LIST_MS = 10  # below, for a list of some thousand entries
COSTS = {  # at most
    "show map: system calls": 20,
    "show map: instructions": 100_000,
    "show map in the shell: first key to prompt": 100,
    "load of 1,000,000 entries by repeat": 1000,
    "snapshot of 1,000,000 entries: longest wait for an answer": 20,
    "snapshot of 1,000,000 entries under traffic: longest wait for an answer": 20,
    "expiry of 32,768 of 65,536 sessions: engine time": 50,
    "the same: longest wait for an answer": 5,
}
MEMORY_MIB = 32  # at most, of a command's own beside the arena's pages
ROUTE_CHANGE_NS = 1000  # at most, the mean of an insertion and a removal


def medians(paths):
    """(family, [words of the name], result) of each benchmark."""
    for path in paths:
        with open(path, encoding="utf-8") as file:
            for result in json.load(file)["benchmarks"]:
                if result.get("aggregate_name") == "median":
                    family, *words = result["name"].split("/")
                    yield family, words, result


def nanoseconds(value):
    return f"{value:,.0f} ns" if value >= 100 else f"{value:.1f} ns"


# Each gives the cells of a row and whether the goal is met; None: there is none.


def view_row(words, result):
    return [words[0], words[1], nanoseconds(result["print_ns"]), nanoseconds(result["snprintf_ns"]),
            f"{result['speedup']:.1f}"], result["speedup"] >= VIEW_SPEEDUP


def copy_row(words, result):
    return [words[0], words[1], nanoseconds(result["print_ns"]), nanoseconds(result["copy_ns"]),
            f"{result['ratio']:.2f}"], result["ratio"] >= COPY_RATIO


def table_row(words, result):
    what, took, baseline = words[0], result["table_ns"], result.get("baseline_ns")
    met = None
    if what.startswith("search"):
        met = took / baseline <= SEARCH_RATIO
    elif what.startswith("walk of"):
        met = took <= WALK_NS
    elif what.startswith("change"):
        met = took / baseline <= WRITER_RATIO[what.split()[-1]]
    elif what.startswith("expiry"):
        met = took <= EXPIRY_MS * 1e6
    return [what, nanoseconds(took), nanoseconds(baseline) if baseline else "",
            f"{took / baseline:.2f}" if baseline else ""], met


def session_row(words, result):
    goal = SESSION_RATIOS.get(words[0])
    return [words[0], nanoseconds(result["run_ns"]), nanoseconds(result["baseline_ns"]),
            f"{result['ratio']:.2f}"], None if goal is None else result["ratio"] <= goal


def route_row(words, result):
    what, _, where = words[:3]
    found = "" if result["found"] == 1 else f", {100 * result['found']:.0f} % found"
    goal = result["goal_ns"]
    return [what, f"{result['routes']:,.0f}", where + found, nanoseconds(result["run_ns"]),
            nanoseconds(result["baseline_ns"])], result["run_ns"] <= goal if goal else None


def route_change_row(words, result):
    took = (result["insert_ns"] + result["remove_ns"]) / 2
    return [words[0], f"{result['routes']:,.0f}", nanoseconds(result["insert_ns"]), nanoseconds(result["remove_ns"]),
            f"{result['bytes']:,.0f}"], took <= ROUTE_CHANGE_NS if result["goal_ns"] else None


def sql_row(words, result):
    took = result["real_time"] * {"ns": 1, "us": 1e3, "ms": 1e6}[result["time_unit"]]
    goal = result["goal_ns"]
    shown = [f"{value / 1e6:.2f} ms" if value >= 1e6 else f"{value / 1e3:.2f} us" for value in (took, goal)]
    return [result["run_name"].split("/", 1)[1], shown[0], shown[1] if goal else ""], took <= goal if goal else None


def memory_row(words, result):
    return [words[0], f"{result['kib'] / 1024:.1f} MiB", f"{MEMORY_MIB} MiB"], result["kib"] <= MEMORY_MIB * 1024


def cli_row(words, result):
    met = result["nqecli_ms"] < CLI_MS and result["ratio"] <= CLI_RATIO
    if words[0].startswith("list"):
        met = result["nqecli_ms"] < LIST_MS
    return [words[0].replace("_", " "), f"{result['nqecli_ms']:.2f} ms", f"{result['true_ms']:.2f} ms",
            f"{result['ratio']:.2f}"], met


def cost_row(words, result):
    what = words[0].replace("_", " ")
    value = f"{result['value']:,.1f}" if result["unit"] == "ms" else f"{result['value']:,}"
    return [what, f"{value} {result['unit']}", f"{COSTS[what]:,} {result['unit']}"], result["value"] <= COSTS[what]


def metrics_row(words, result):
    def shown(value):
        return f"{value:.2f} ms" if result["unit"] == "ms" else f"{value:,.0f} {result['unit']}"

    most = result["most"]
    return [words[0], shown(result["value"]), "" if most is None else shown(most)], \
        None if most is None else result["value"] <= most


# Family: what makes a row, its columns.
TABLES = {
    "view": (view_row, ["view", "record", "`Print`", "snprintf", "speedup"]),
    "copy": (copy_row, ["list", "record", "`Print`", "copy of its text", "ratio"]),
    "table": (table_row, ["full table", "least time", "baseline", "ratio"]),
    "session": (session_row, ["sessions", "median", "baseline", "ratio"]),
    "cost": (cost_row, ["costs", "median", "at most"]),
    "route": (route_row, ["routes", "number", "destinations", "median", "a map a length"]),
    "routechange": (route_change_row, ["routes", "number", "insertion", "removal", "bytes a route"]),
    "sql": (sql_row, ["SQL", "median", "at most"]),
    "data": (sql_row, ["data, exec to exit", "median", "at most"]),
    "metrics": (metrics_row, ["metrics", "median", "at most"]),
    "memory": (memory_row, ["memory of a command's own, 196,000 entries", "most", "at most"]),
    "cli": (cli_row, ["nqecli", "exec to exit", "/bin/true", "ratio"]),
}


def print_row(cells):
    print("| " + " | ".join(cells) + " |")


def main():
    if len(sys.argv) < 2:
        sys.exit(__doc__)
    family = None
    missed = 0
    results = sorted(medians(sys.argv[1:]), key=lambda result: list(TABLES).index(result[0]))
    for next_family, words, result in results:
        make_row, columns = TABLES[next_family]
        if next_family != family:
            family = next_family
            print()
            print_row(columns + ["goal"])
            print_row(["---"] * (len(columns) + 1))
        cells, met = make_row(words, result)
        print_row(cells + [{True: "met", False: "missed", None: "none"}[met]])
        missed += met is False
    speedups = [result["speedup"] for family, _, result in results if family == "view"]
    if speedups:
        mean = statistics.geometric_mean(speedups)
        missed += mean < VIEW_MEAN_SPEEDUP
        print(f"\ngeometric mean of the views' speedups: {mean:.1f}, {'met' if mean >= VIEW_MEAN_SPEEDUP else 'missed'}")
    print(f"\ngoals missed: {missed}")
    sys.exit(missed != 0)


if __name__ == "__main__":
    main()

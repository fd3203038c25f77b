"""Prints the results of the benchmarks as the tables of docs/benchmarks.md, and judges them by their goals.

usage: report.py RESULT.json...

Exit code 1 when a goal is missed.
"""

import json
import sys

VIEW_SPEEDUP = 8  # at least
VIEW_SPEEDUPS = {"ssw_macinfo": 10}  # views of tables that are long
SEARCH_NS = 200  # below
CLI_MS = 5  # below
CLI_RATIO = 2  # at most
LIST_MS = 10  # below, for a list of some thousand entries
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
            f"{result['speedup']:.1f}"], result["speedup"] >= VIEW_SPEEDUPS.get(words[0].split(",")[0], VIEW_SPEEDUP)


def table_row(words, result):
    took = result["per_entry"] * 1e9
    what = words[0].removesuffix("_median").replace("_", ", ")
    return [what, nanoseconds(took)], took < SEARCH_NS if what.startswith("search") else None


def session_row(words, result):
    return [words[0], nanoseconds(result["run_ns"]), nanoseconds(result["baseline_ns"]),
            f"{result['ratio']:.2f}"], None


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


def cli_row(words, result):
    met = result["nqecli_ms"] < CLI_MS and result["ratio"] <= CLI_RATIO
    if words[0].startswith("list"):
        met = result["nqecli_ms"] < LIST_MS
    return [words[0].replace("_", " "), f"{result['nqecli_ms']:.2f} ms", f"{result['true_ms']:.2f} ms",
            f"{result['ratio']:.2f}"], met


# Family: what makes a row, its columns.
TABLES = {
    "view": (view_row, ["view", "record", "`Print`", "snprintf", "speedup"]),
    "table": (table_row, ["full table of 16,384 entries", "median per entry"]),
    "session": (session_row, ["sessions", "median", "baseline", "ratio"]),
    "route": (route_row, ["routes", "number", "destinations", "median", "a map a length"]),
    "routechange": (route_change_row, ["routes", "number", "insertion", "removal", "bytes a route"]),
    "cli": (cli_row, ["nqecli", "exec to exit", "/bin/true", "ratio"]),
}


def print_row(cells):
    print("| " + " | ".join(cells) + " |")


def main():
    if len(sys.argv) < 2:
        sys.exit(__doc__)
    family = None
    missed = 0
    for next_family, words, result in sorted(medians(sys.argv[1:]), key=lambda row: list(TABLES).index(row[0])):
        make_row, columns = TABLES[next_family]
        if next_family != family:
            family = next_family
            print()
            print_row(columns + ["goal"])
            print_row(["---"] * (len(columns) + 1))
        cells, met = make_row(words, result)
        print_row(cells + [{True: "met", False: "missed", None: "none"}[met]])
        missed += met is False
    print(f"\ngoals missed: {missed}")
    sys.exit(missed != 0)


if __name__ == "__main__":
    main()

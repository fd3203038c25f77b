"""Fast statistics (pmc) and scheduler trace (perf task) on the simulated packet path of a running engine."""

import re
import shutil
import subprocess
import time

import pytest

from conftest import ROOT, engine_place, nqecli, wait_until

RATE = 2000  # packets a second
CORES = 4

# The tasks of the packet path: id to name and to the tasks that may follow.
TASKS = {
    1: ("TASK_ID_DRV_TX", [66]),
    10: ("TASK_ID_DRV_FAST_RX", [24, 66]),
    21: ("TASK_ID_DRV_HOST_TX_OUT", []),
    24: ("TASK_ID_FWK_ING", [66, 79]),
    25: ("TASK_ID_FWK_EGR", [1, 21, 66]),
    26: ("TASK_ID_IP_FWD", [25, 66]),
    27: ("TASK_ID_SSW_FWD", [25, 66]),
    66: ("TASK_ID_RELEASE_PKT", []),
    79: ("TASK_ID_SVC_ING_GLOBAL_CAR", [66, 83]),
    83: ("TASK_ID_SVC_ING_IPTABLES", [66, 94]),
    84: ("TASK_ID_IP6_FWD", [25, 66]),
    94: ("TASK_SELECT", [26, 27, 84]),
}
RECEIVE, TRANSMIT, CLASSIFY, RELEASE, SELECT = 10, 1, 24, 66, 94


def shown_successors(task):
    """The successors as the commands show them: each with the node 32 above."""
    return sorted(number for after in TASKS[task][1] for number in (after, after + 32))


HELP = """\
nqecli perf task clear
nqecli perf task disable
nqecli perf task show
nqecli perf task topdown
        avg | total
nqecli perf task set
        time | icache | dcache
        task_path
nqecli perf task show_graph
nqecli perf task show_active_node
"""

PMC_HELP = "nqecli pmc [ 1 ~ 12]\nnqecli pmc stop\n"


@pytest.fixture(scope="module")
def busy():
    """An engine with traffic, shared by the tests; each sets what it measures."""
    with engine_place() as place:
        place.scenario.unlink()
        place.scenario = ROOT / "examples" / "campus.yaml"
        place.start("--traffic", str(RATE), "--cores", str(CORES))
        yield place
        place.stop()


@pytest.fixture
def idle(place):
    place.start("--cores", "6")
    yield place
    place.stop()


# Fast statistics


def parse_pmc(text, mode, columns):
    """The points by core: {core: {point: [hits, packets, events...]}}."""
    assert text.endswith(f"stop fast pmc, {mode} -> 0\r\n"), text
    cores, core = {}, None
    for line in text.split("\r\n")[:-2]:
        if line.startswith("core="):
            core = cores.setdefault(int(line[5:]), {})
        elif line.startswith("[No]statId"):
            assert line == "[No]statId, Hit-Cnt, Packets" + "".join("," + name for name in columns), line
        else:
            point, *values = (int(number) for number in line.split(", "))
            assert len(values) == 2 + len(columns), line
            core[point] = values
    return cores


def stop_pmc(engine):
    result = engine.cli("pmc", "stop")
    assert (result.code, result.err) == (0, ""), result
    return result.out


def measure(engine, mode, seconds, columns):
    engine.cli("pmc", str(mode)).answered(f"set fast stat mode, 0 -> {mode}\n")
    time.sleep(seconds)
    return parse_pmc(stop_pmc(engine), mode, columns)


def hits(cores, point):
    return sum(core[point][0] for core in cores.values() if point in core)


def test_pmc_grows_with_the_traffic(busy):
    short = measure(busy, 3, 0.3, ["CYCLES"])
    began = time.monotonic()
    long = measure(busy, 3, 2, ["CYCLES"])
    took = time.monotonic() - began
    for cores in (short, long):
        assert sorted(cores) == list(range(CORES)), cores
        for core in cores.values():
            for values in core.values():
                count, packets, cycles = values
                assert packets == count and cycles > 0, cores
        # Packets are discarded or handed to the control plane on their way.
        assert hits(cores, 0) > hits(cores, 5) >= hits(cores, 6) > 0, cores
        assert hits(cores, 0) - hits(cores, 7) - CORES <= hits(cores, 5), cores
        assert 0 < hits(cores, 7) < hits(cores, 0) / 4, cores
    assert hits(long, 0) > hits(short, 0)
    # What a machine with other work has missed is lost to the traffic.
    assert 2 * RATE * 0.3 <= hits(long, 0) <= (took + 0.2) * RATE, (took, long)
    for core in range(CORES):
        assert sorted(long[core]) == list(range(8)), long


def test_pmc_counts_begin_anew(busy):
    first = measure(busy, 3, 2, ["CYCLES"])
    second = measure(busy, 3, 0.1, ["CYCLES"])
    assert 0 < hits(second, 0) < hits(first, 0)


@pytest.mark.parametrize("mode, columns", [
    (1, ["L1D_TLB_REFILL", "L1D_CACHE_REFILL", "L1D_CACHE", "L2D_CACHE_REFILL", "L2D_CACHE", "MEM_ACCESS", "CYCLES"]),
    (5, ["STALL_FRONTEND_TLB", "STALL_BACKEND_LD_TLB", "STALL_BACKEND_ST_TLB", "CYCLES"]),
    (12, ["BUS_ACCESS", "BUS_CYCLES", "CYCLES"]),
])
def test_pmc_columns(busy, mode, columns):
    cores = measure(busy, mode, 0.3, columns)
    assert hits(cores, 0) > 0
    assert all(values[-1] > 0 for core in cores.values() for values in core.values()), cores


def test_pmc_refusals(busy):
    for mode in ("0", "13"):
        result = busy.cli("pmc", mode)
        assert (result.code, result.err) == (1, ""), result
        assert result.out == (f"error in get_evt_from_mode, mode={mode}\n"
                              f"Error in fast_pmc_start, ret=-1, mode={mode}\n"), result
    busy.cli("pmc", "5").answered("set fast stat mode, 0 -> 5\n")
    result = busy.cli("pmc", "3")
    assert (result.code, result.out) == (1, "stop pmc first, cur mode=5\nError in fast_pmc_start, ret=-10, mode=3\n")
    assert stop_pmc(busy).endswith("stop fast pmc, 5 -> 0\r\n")
    assert stop_pmc(busy) == "stop fast pmc, 0 -> 0\r\n"
    result = busy.cli("pmc")
    assert (result.code, result.out, result.err) == (2, PMC_HELP, ""), result
    result = busy.cli("pmc", "begin")
    assert (result.code, result.out, result.err) == (2, "Not support keyword, begin\n" + PMC_HELP, ""), result


def test_pmc_inside_the_engine(busy):
    client = busy.client()
    assert client.ask("pmc 2") == (0, "set fast stat mode, 0 -> 2\n")
    time.sleep(0.3)
    status, text = client.ask("pmc stop")
    assert status == 0 and text.startswith("core=0\r\n") and text.endswith("stop fast pmc, 2 -> 0\r\n"), text
    client.close()


def test_pmc_of_an_idle_engine_with_six_cores(idle):
    idle.cli("pmc", "3").answered("set fast stat mode, 0 -> 3\n")
    assert stop_pmc(idle) == "".join(
        f"core={core}\r\n[No]statId, Hit-Cnt, Packets,CYCLES\r\n" for core in range(4)) + "stop fast pmc, 3 -> 0\r\n"


# Scheduler trace


def set_flag(engine, name):
    """Sets what is traced, from no flag on."""
    engine.cli("perf", "task", "disable").answered("Trace flag disable\n")
    time.sleep(0.1)  # what the engine still books under the old flag is cleared by the next
    engine.cli("perf", "task", "set", name).answered(f"{name} done.\nTrace Flag set: {name}. \n" * CORES)


TASK_LINE = re.compile(r"task_id = (\d+), task_name = (\S+), task_cnt = (\d+),(.*)")


def runcs(text, title):
    """The run contexts' parts of an answer that names each "Runc N:"."""
    parts = re.split(r"\nRunc (\d+):\n", text)
    assert [int(number) for number in parts[1::2]] == list(range(CORES)), text
    return [part.removesuffix(title) for part in parts[2::2]]


def runs(text):
    """Runs by task id of all the task lines."""
    return {int(match[1]): int(match[3]) for match in TASK_LINE.finditer(text)}


def wait_for_all_tasks(engine):
    def all_ran():
        return all(len(runs(part)) == len(TASKS) for part in engine.cli("perf", "task", "show").out.split("Runc ")[1:])

    wait_until(all_ran, "every task to run on every core")


def test_time_of_the_engines_own_tasks(busy):
    set_flag(busy, "time")
    busy.cli("perf", "task", "set", "time").answered("Trace Flag is remains: time\nTrace Flag set: time. \n" * CORES)
    show = lambda: busy.cli("perf", "task", "show").out
    wait_for_all_tasks(busy)
    first = runcs(show(), "Time Trace:\n")
    counted = lambda parts: [runs(part)[TRANSMIT] for part in parts]
    wait_until(lambda: all(now > then + 100 for now, then in zip(counted(runcs(show(), "")), counted(first))),
               "a hundred packets more on every core")
    second = runcs(show(), "Time Trace:\n")
    for before, after in zip(first, second):
        lines = after.splitlines()
        match = re.fullmatch(r"oTCnt/\(oTCnt\+batchCnt\) = \((\d+)/(\d+)\), over_time_rate = +(\d\.\d{3})", lines[0])
        assert match and int(match[1]) <= int(match[2]) and int(match[2]) > 0, after
        found = {}
        for line in lines[1:]:
            match = re.fullmatch(r"task_id = (\d+), task_name = (\S+), task_cnt = (\d+), max=(\d+),"
                                 r"avg_cycle = +(-?\d+\.\d{3}), avg_pkts = +(\d+\.\d{3})", line)
            assert match, line
            found[int(match[1])] = match[2]
            assert float(match[5]) > 0 and int(match[4]) >= float(match[5]) - 0.001, line
            if int(match[1]) != SELECT:
                assert match[6] == "1.000", line
        assert found == {task: name for task, (name, _) in TASKS.items()}
        before, after = runs(before), runs(after)
        assert after[RECEIVE] > before[RECEIVE] and after[TRANSMIT] > before[TRANSMIT]
        assert after[RECEIVE] >= after[CLASSIFY] > after[TRANSMIT] > after[RELEASE]


def test_top_down(busy):
    set_flag(busy, "time")
    wait_for_all_tasks(busy)
    for kind in ("total", "avg"):
        result = busy.cli("perf", "task", "topdown", kind)
        assert (result.code, result.err) == (0, ""), result
        for part in runcs(result.out, ""):
            lines = part.strip("\n").splitlines()
            assert lines[0] == f"<< Sorted by {kind} cycle >>", part
            keys = []
            for line in lines[1:]:
                match = re.fullmatch(r"task_id = (\d+), task_name = \S+, task_cnt = (\d+),"
                                     r"avg_cycle = +(\d+\.\d{3}), avg_pkts = +\d+\.\d{3}", line)
                assert match, line
                keys.append(float(match[3]) * (int(match[2]) if kind == "total" else 1))
            assert len(keys) == len(set(TASK_LINE.findall(part))) == len(TASKS), part
            # Averages are rounded to a thousandth.
            assert all(after <= before + 1 + before / 1000 for before, after in zip(keys, keys[1:])), part
    set_flag(busy, "icache")
    refusal = "current trace flag doesn't have top down info, please set flag to time.\n"
    busy.cli("perf", "task", "topdown", "avg").refused(refusal * CORES)


@pytest.mark.parametrize("name, title", [("icache", "ICache Trace:\n"), ("dcache", "DCache Trace:\n")])
def test_caches(busy, name, title):
    set_flag(busy, name)
    wait_until(lambda: f"task_id = {TRANSMIT}," in busy.cli("perf", "task", "show").out, "packets")
    text = busy.cli("perf", "task", "show").out
    assert text.startswith(title), text
    for part in runcs(text, title):
        for line in part.splitlines()[1:]:
            assert re.fullmatch(r"task_id = .*, max=\d+,avg_miss = +\d+\.\d{3}, avg_hit = +-?\d+\.\d{3}, "
                                r"avg_pkts = +\d+\.\d{3}", line), line


def test_graph(busy):
    expected = "".join(f'"{task}" -> "{after}"\n' for task in sorted(TASKS) for after in shown_successors(task))
    busy.cli("perf", "task", "show_graph").answered(
        "".join(f"\nrunc {runc}\ndigraph {{\n{expected}}}\n" for runc in range(CORES)))


@pytest.mark.skipif(shutil.which("dot") is None, reason="Graphviz is not installed")
def test_graphviz_draws_the_graph(busy):
    graph = busy.cli("perf", "task", "show_graph").out
    first = graph[graph.index("digraph"):graph.index("}\n") + 2]
    drawn = subprocess.run(["dot", "-Tsvg"], input=first, capture_output=True, text=True, timeout=30, check=True).stdout
    titles = set(re.findall(r"<title>(.*?)</title>", drawn))
    for task in TASKS:
        assert str(task) in titles, drawn
        for after in TASKS[task][1]:
            assert f"{task}&#45;&gt;{after}" in titles, drawn


def test_active_nodes(busy):
    set_flag(busy, "snapshot")
    node = re.compile(r"current: (\d+), pktNum: (\d+), status: (active|inactive), next: \[([\d ]*)\]")

    def nodes():
        text = busy.cli("perf", "task", "show_active_node").out
        parts = re.split(r"\nrunc: (\d+)\n", text)
        assert [int(number) for number in parts[1::2]] == list(range(CORES)), text
        found = [[node.fullmatch(line) for line in part.splitlines()] for part in parts[2::2]]
        assert all(all(part) for part in found), text
        return found

    for part in nodes():
        assert [int(match[1]) for match in part] == sorted(TASKS)
        for match in part:
            assert [int(number) for number in match[4].split()] == shown_successors(int(match[1]))

    def receiver_is_active():
        matches = [part[sorted(TASKS).index(RECEIVE)] for part in nodes()]
        return all(match[3] == "active" and int(match[2]) > 0 for match in matches)

    wait_until(receiver_is_active, "packets in the receiving task")
    text = busy.cli("perf", "task", "show").out
    assert text.startswith("Active Node Trace:\n\nRunc 0:\n\nrunc: 0\ncurrent: 1, pktNum: "), text


def test_task_path(busy):
    set_flag(busy, "task_path")
    paths = lambda: re.findall(r"traceId: 0, taskId: \[([\d \n]*)\]\n", busy.cli("perf", "task", "show").out)
    wait_until(lambda: len(paths()) == CORES, "a path on every core")
    ends = set()
    for _ in range(50):
        for path in paths():
            tasks = [int(number) for number in path.split()]
            assert tasks[0] == RECEIVE, path
            assert all(after in TASKS[task][1] for task, after in zip(tasks, tasks[1:])), path
            ends.add(tasks[-1])
        if ends == {1, 21, 66}:
            break
        time.sleep(0.05)
    assert ends <= {1, 21, 66} and TRANSMIT in ends


def test_clear_and_disable(busy):
    set_flag(busy, "time")
    show = lambda: busy.cli("perf", "task", "show").out
    wait_until(lambda: runs(show()).get(RECEIVE, 0) > 1000, "more packets than come while a command runs")
    before = runs(show())[RECEIVE]
    busy.cli("perf", "task", "clear").answered("clear data done.\n")
    assert runs(show()).get(RECEIVE, 0) < before
    wait_until(lambda: runs(show()).get(RECEIVE, 0) > 0, "packets after the clear")
    busy.cli("perf", "task", "disable").answered("Trace flag disable\n")
    busy.cli("perf", "task", "show").answered("".join(f"Trace flag is not set\n\nRunc {n}:\n" for n in range(CORES)))
    busy.cli("perf", "task", "set", "speed").refused("Trace flag type is wrong\n")


def test_perf_usage(busy):
    for words in ([], ["task"], ["task", "topdown", "most"], ["tasks", "show"], ["task", "set"]):
        result = busy.cli("perf", *words)
        assert (result.code, result.out, result.err) == (2, HELP, ""), result


def test_a_saved_arena_keeps_the_figures(busy, directory):
    set_flag(busy, "time")
    wait_until(lambda: f"task_id = {TRANSMIT}," in busy.cli("perf", "task", "show").out, "packets")
    busy.cli("pmc", "3").answered("set fast stat mode, 0 -> 3\n")
    time.sleep(0.3)
    busy.cli("snapshot", directory / "copy").answered("")
    stop_pmc(busy)
    saved = lambda *words: nqecli("--snapshot", directory / "copy", *words)
    text = saved("perf", "task", "show").out
    assert runs(text)[RECEIVE] > 0 and saved("perf", "task", "show").out == text
    # Whatever is changed there is changed in this process's copy alone.
    saved("perf", "task", "clear").answered("clear data done.\n")
    assert saved("perf", "task", "show").out == text
    assert "stop fast pmc, 3 -> 0" in saved("pmc", "stop").out
    assert "stop fast pmc, 3 -> 0" in saved("pmc", "stop").out


@pytest.mark.parametrize("cores", [1, 64])
def test_a_run_context_for_every_core(place, cores):
    place.start("--cores", str(cores))
    place.cli("perf", "task", "show").answered(
        "".join(f"Trace flag is not set\n\nRunc {n}:\n" for n in range(cores)))
    place.stop()


def test_without_an_engine(place):
    for words in (["pmc"], ["pmc", "3"], ["perf"], ["perf", "task", "show"]):
        place.cli(*words).failed("no engine")

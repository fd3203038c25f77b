"""Engine and readers killed at random points, two hundred times over four arenas.

Half of the engines are killed from their first instruction on, the other half once they serve. All spans are multiples
of what this machine takes to start an engine, so that slow machines meet the same moments as fast ones.
"""

import random
import signal
import subprocess
import time

import pytest

from conftest import BIN, PATIENCE, map_answer, nqed

ARENAS = 4  # side by side where pytest has several processes
CYCLES = 50  # of each
READERS = 3
SEED = 20240117


def start_reader(place, chance):
    """(process, what it may answer) of one short-lived client."""
    index = chance.randint(1, 60)
    words, answer = chance.choice([
        (["show", "ctrlif_map_fwdif", str(1000 + index)], map_answer(index)),
        (["diag", "search", "nqpTable", "1", "0", str(1000 + index), "0", "0"], map_answer(index)),
        (["diag", "clear", "cpcar", "status"], ""),
        (["snapshot", str(place.directory / "copies" / f"{chance.getrandbits(64)}")], ""),
    ])
    process = subprocess.Popen([BIN / "nqecli", "--arena", place.arena, *words], stdin=subprocess.DEVNULL,
                               stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True)
    return process, answer


def check_reader(process, answer, killed):
    """A reader answers rightly, or says in one line why it cannot; only a kill ends it otherwise."""
    out, err = process.communicate(timeout=PATIENCE)
    shown = (process.args[3:], process.returncode, out, err)
    if killed and process.returncode == -signal.SIGKILL:
        return False
    if process.returncode == 0:
        assert (out, err) == (answer, ""), shown
        return True
    assert process.returncode == 2, shown
    assert out == "" and err.startswith("nqecli: ") and err.count("\n") == 1, shown
    return False


def quickest_start(place):
    """What a start takes when nothing else keeps the machine."""
    spans = []
    for _ in range(5):
        began = time.monotonic()
        place.start()
        spans.append(time.monotonic() - began)
        place.stop()
    return min(spans)


@pytest.mark.apart
@pytest.mark.parametrize("arena", range(ARENAS))
def test_engine_and_readers_killed_at_random_points(place, arena):
    chance = random.Random(SEED + arena)
    start_span = quickest_start(place)
    copies = place.directory / "copies"
    copies.mkdir()
    answered = 0
    ended = {"by kill": 0, "by signal": 0}
    for cycle in range(CYCLES):
        if serving := cycle % 2 == 1:
            place.start()
            answered += check_reader(*start_reader(place, chance), killed=False)
        else:
            place.spawn()
        span = start_span if serving else 2 * start_span
        readers = []
        moments = sorted([(chance.uniform(0.0, span), "reader") for _ in range(READERS)] +
                         [(chance.uniform(0.0, 1.3 * span), "end engine")] +
                         [(chance.uniform(0.0, 1.6 * span), "kill reader")])
        how = chance.choice([signal.SIGKILL, signal.SIGKILL, signal.SIGTERM])
        killed = set()
        started = time.monotonic()
        for moment, what in moments:
            time.sleep(max(0.0, started + moment - time.monotonic()))
            if what == "reader":
                readers.append(start_reader(place, chance))
            elif what == "kill reader" and readers:
                victim = chance.randrange(len(readers))
                readers[victim][0].kill()
                killed.add(victim)
            elif what == "end engine":
                place.process.send_signal(how)
        code, err = place.collect()
        assert err == "", f"cycle {cycle}: {err}"
        assert code == -how or (how == signal.SIGTERM and code == 0), f"cycle {cycle}: {code}"
        ended["by kill" if how == signal.SIGKILL else "by signal"] += 1
        for number, (process, answer) in enumerate(readers):
            answered += check_reader(process, answer, number in killed)
        nqed("status", "--arena", place.arena).failed(tool="nqed")

    # The arena serves as if nothing had happened, and goes without a trace.
    for copy in copies.iterdir():
        copy.unlink()
    copies.rmdir()
    place.start()
    place.cli("show", "ctrlif_map_fwdif", "1033").answered(map_answer(33))
    place.stop()
    print(f"{CYCLES} cycles of {start_span:.3f} s, engine ended {ended}, {answered} answers")
    assert answered >= CYCLES // 2, "an engine that served did not answer"

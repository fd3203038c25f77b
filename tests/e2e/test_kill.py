"""Engine and readers killed at random points, two hundred times over one arena."""

import random
import signal
import subprocess
import time

from conftest import BIN, PATIENCE, map_answer, nqed

CYCLES = 200
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


def test_engine_and_readers_killed_at_random_points(place):
    chance = random.Random(SEED)
    copies = place.directory / "copies"
    copies.mkdir()
    answered = 0
    ended = {"by kill": 0, "by signal": 0}
    for cycle in range(CYCLES):
        place.spawn()
        readers = []
        moments = sorted([(chance.uniform(0.0, 0.15), "reader") for _ in range(READERS)] +
                         [(chance.uniform(0.0, 0.20), "end engine")] +
                         [(chance.uniform(0.0, 0.25), "kill reader")])
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
    print(f"{CYCLES} cycles, engine ended {ended}, {answered} answers of {CYCLES * READERS} readers")
    assert answered > CYCLES / 2, "the readers hardly ever met a running engine"

"""Engine, mirror of the kernel, agent, console and readers side by side, each killed at random points again and again: the
others go on, what starts again works, nothing is left.

QDT_KILLS is how many are killed in all; scripts/kill_everything.sh does a thousand.
"""

import collections
import json
import os
import random
import shutil
import subprocess
import time
import urllib.request

import pytest

from conftest import BIN, PATIENCE, SCENARIO, map_answer, run, short_directory, wait_until
from netconf import RawSession, rules_of
from test_netconf_access import command

KILLS = int(os.environ.get("QDT_KILLS", "40"))
SEED = int(os.environ.get("QDT_KILLS_SEED", "7"))
SPAN = 0.08  # seconds in which most things start


def may_unshare():
    return shutil.which("unshare") is not None and run("unshare", "-n", "true").code == 0


class Part:
    """A program that is started again when it has been killed."""

    def __init__(self, name, words, directory):
        self.name, self.words, self.errors = name, words, directory / f"{name}.errors"
        self.process, self.line = None, None

    def start(self):
        with open(self.errors, "ab") as errors:
            self.process = subprocess.Popen(self.words, stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, stderr=errors)
        return self

    def kill(self):
        self.process.kill()
        self.process.communicate()

    def ready(self):
        """Waits until it is ready; an engine may find that its arena is being left by the last one."""
        for _ in range(100):
            line = self.process.stdout.readline().decode()
            if ": ready" in line:
                return line
            self.process.communicate(timeout=PATIENCE)
            assert self.process.returncode == 2, (self.name, self.process.returncode, self.errors.read_text())
            time.sleep(0.05)
            self.start()
        raise AssertionError((self.name, self.errors.read_text()))


class World:
    def __init__(self, directory):
        self.directory = directory
        self.arena, self.mirrored = directory / "engine.arena", directory / "mirror.arena"
        self.socket = directory / "omad.sock"
        (directory / "scenario.yaml").write_text(SCENARIO)
        self.parts = [
            Part("engine", [BIN / "nqed", "--scenario", directory / "scenario.yaml", "--arena", self.arena], directory),
            Part("agent", [BIN / "omad", "--arena", self.arena, "--socket", self.socket, "--nacm", rules_of(directory),
                           "--log", directory / "record"], directory),
            Part("console", [BIN / "nqeweb", "--arena", self.arena, "--arena", self.mirrored, "--listen", "127.0.0.1:0"],
                 directory)]
        if may_unshare():
            self.parts.append(Part("mirror", ["unshare", "-n", BIN / "nqed", "--linux", "--arena", self.mirrored], directory))

    def reader(self, chance):
        index = chance.randint(1, 60)
        words = chance.choice((["show", "ctrlif_map_fwdif", str(1000 + index)], ["list", "ctrlif_map_fwdif", "--json"],
                               ["snapshot", self.directory / "copies" / str(chance.getrandbits(60))],
                               ["diff", "live", "live"], ["agent", "tbl-usage"], ["check"]))
        process = subprocess.Popen([BIN / "nqecli", "--arena", self.arena, *words], stdin=subprocess.DEVNULL,
                                   stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True)
        return process, map_answer(index) if words[0] == "show" else None

    @staticmethod
    def check_reader(process, answer, killed):
        out, err = process.communicate(timeout=PATIENCE)
        shown = (process.args, process.returncode, out[-500:], err)
        if killed and process.returncode == -9:
            return
        assert process.returncode in (0, 1, 2), shown
        if process.returncode == 0 and answer is not None:
            assert out == answer, shown
        if process.returncode != 0 and not out:
            assert err.startswith("nqecli: ") and err.count("\n") == 1, shown

    def check_whole(self):
        """All parts are up: each answers."""
        run(BIN / "nqecli", "--arena", self.arena, "show", "ctrlif_map_fwdif", "1007").answered(map_answer(7))
        session = RawSession(self.socket)
        try:
            assert "<text" in session.hello().rpc(command("tbl-usage"))
        finally:
            session.kill()


def states_on_console(line):
    """Of the console that became ready with this line."""
    with urllib.request.urlopen(line.split()[-1] + "api/v1/engines", timeout=PATIENCE) as answer:
        return {engine["state"] for engine in json.load(answer)["engines"]}


@pytest.mark.apart
def test_everything_killed_at_random_points():
    chance = random.Random(SEED)
    killed = collections.Counter()
    with short_directory() as directory:
        (directory / "copies").mkdir()
        world = World(directory)
        try:
            lines = {part.name: part.start().ready() for part in world.parts}
            for number in range(KILLS):
                readers = [world.reader(chance) for _ in range(2)]
                victim = chance.choice([*world.parts, None])
                time.sleep(chance.uniform(0, SPAN))
                if victim is None:
                    readers[0][0].kill()
                else:
                    victim.kill()
                    victim.start()
                    if chance.random() < 0.3:  # and again, while it starts
                        time.sleep(chance.uniform(0, SPAN))
                        victim.kill()
                        victim.start()
                        killed[victim.name] += 1
                killed["reader" if victim is None else victim.name] += 1
                for process, answer in readers:
                    world.check_reader(process, answer, killed=victim is None)
                if victim is not None:
                    lines[victim.name] = victim.ready()
                if number % 10 == 9:
                    world.check_whole()
                    assert states_on_console(lines["console"])
            world.check_whole()
            wait_until(lambda: states_on_console(lines["console"]) == {"up"} or "mirror" not in lines, "all are up")
        finally:
            for part in world.parts:
                if part.process is not None:
                    part.kill()
        wait_until(lambda: not processes_about(directory), "workers of killed agents end by themselves")
        for part in world.parts:  # the last one of each tidies up what the killed ones have left
            part.start().ready()
            part.process.terminate()
            part.process.communicate(timeout=PATIENCE)
            assert part.process.returncode == 0, part.errors.read_text()
        files = {entry.name.split(".")[0] for entry in directory.iterdir()}
        assert files == {"agent", "console", "copies", "engine", "mirror", "nacm", "record", "scenario"}, files
        assert not [entry for entry in directory.rglob("*") if entry.name.endswith(".new")]
    print(f"killed: {dict(killed)}")


def processes_about(directory):
    found = []
    for entry in os.listdir("/proc"):
        try:
            words = open(f"/proc/{entry}/cmdline", "rb").read() if entry.isdigit() else b""
        except OSError:
            continue
        if str(directory).encode() in words and int(entry) != os.getpid():
            found.append(words)
    return found

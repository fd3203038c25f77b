"""Where engine and tools meet unless told otherwise, and whose engines they believe."""

import os
import shutil
import signal
import stat
import subprocess

import pytest

from conftest import BIN, PATIENCE, SCENARIO, map_answer, run, wait_until

pytestmark = pytest.mark.skipif(os.geteuid() != 0, reason="takes root to become somebody else")

NOBODY = dict(user="nobody", group="nogroup", extra_groups=[], cwd="/")
PROGRAMS = ("nqed", "nqecli", "nqecli-agent", "nqecli-sql")
REFUSED = "belongs to user nobody, who is neither this user nor root (--trust nobody believes it all the same)"


class Nobody:
    """The programs where everybody can run them, a runtime directory of the user nobody, and that user's engine."""

    def __init__(self, directory):
        self.directory = directory
        for program in PROGRAMS:
            shutil.copy(BIN / program, directory)
        self.scenario = directory / "scenario.yaml"
        self.scenario.write_text(SCENARIO)
        self.runtime = directory / "runtime"
        self.runtime.mkdir(mode=0o700)
        shutil.chown(self.runtime, "nobody", "nogroup")
        self.arena = self.runtime / "nqe" / "arena"
        self.environment = {"XDG_RUNTIME_DIR": str(self.runtime), "PATH": os.environ["PATH"]}
        self.engine = None

    def start(self, umask):
        self.engine = subprocess.Popen([self.directory / "nqed", "--scenario", self.scenario], env=self.environment,
                                       umask=umask, stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, **NOBODY)
        line = self.engine.stdout.readline().decode()
        assert f"arena {self.arena}, socket {self.arena}.sock" in line, line

    def run(self, program, *words):
        return run(self.directory / program, *words, env=self.environment, **NOBODY)

    def end(self):
        self.engine.terminate()
        assert self.engine.wait(PATIENCE) == 0
        self.engine.stdout.close()


@pytest.fixture
def nobody(directory):
    user = Nobody(directory)
    yield user
    if user.engine is not None and user.engine.poll() is None:
        user.engine.kill()
        user.engine.wait()


def mode(path):
    return stat.S_IMODE(os.lstat(path).st_mode)


@pytest.mark.parametrize("umask", [0, 0o22, 0o777])
def test_rights_and_places_of_a_user(nobody, umask):
    nobody.start(umask)
    assert (mode(nobody.arena.parent), mode(nobody.arena), mode(f"{nobody.arena}.sock")) == (0o700, 0o660, 0o660)
    nobody.run("nqecli", "show", "1", "1005").answered(map_answer(5))
    assert f"arena     {nobody.arena}\n" in nobody.run("nqecli", "engine", "status").out
    assert f"arena     {nobody.arena}\n" in nobody.run("nqed", "status").out
    assert "CAP_TABLE_CTRLIF_MAP" in nobody.run("nqecli", "agent", "tbl-usage").out
    assert nobody.run("nqecli", "sql", "SELECT fwd_if_index FROM ctrlif_map_fwdif WHERE ctrl_if_index=1005").code == 0
    nobody.end()
    assert os.listdir(nobody.arena.parent) == []


def test_an_engine_of_another_user(nobody, directory):
    nobody.start(0o22)
    tool = ["nqecli", "--arena", nobody.arena]
    commands = (["show", "1", "1005"], ["list", "arp"], ["engine", "status"], ["snapshot", directory / "copy"],
                ["export", directory / "out.yaml"], ["agent", "tbl-usage"], ["sql", "SELECT 1 FROM arp"],
                ["diag", "search", "nqpTable", "1", "0", "1005", "0", "0"])
    for words in commands:
        result = run(BIN / tool[0], *tool[1:], *words)
        result.failed(f"the arena at {nobody.arena} {REFUSED}", tool=result.err.split(":")[0])
        assert result.err.startswith("nqecli"), result
    run(BIN / "nqed", "status", "--arena", nobody.arena).failed(f"the arena at {nobody.arena} {REFUSED}", tool="nqed")
    for words in (*commands, ["watch", "--times", "1", "list", "arp"]):
        assert run(BIN / tool[0], "--trust", "nobody", *tool[1:], *words).code == 0, words
    run(BIN / "nqed", "status", "--trust=65534", "--arena", nobody.arena).err == ""
    run(BIN / "nqecli", "--trust", "nosuchuser", "tables").failed('--trust: no user "nosuchuser" is in /etc/passwd')
    # Nor does another engine believe what such an arena says of its process.
    run(BIN / "nqed", "--scenario", nobody.scenario, "--arena", nobody.arena).failed(
        f"{nobody.arena} belongs to user nobody and is left alone", tool="nqed")
    nobody.end()


def test_a_killed_copy_leaves_nothing_behind_the_next_one(engine, directory):
    copy = directory / "copy"
    # What an older or killed one has left under a name of its own.
    (directory / "copy.tmp4711").write_text("half")
    os.symlink(engine.arena, directory / "copy.tmp1")
    tool = subprocess.Popen([BIN / "nqecli", "--arena", engine.arena, "snapshot", copy])
    tool.send_signal(signal.SIGKILL)
    tool.wait(PATIENCE)
    if not copy.exists():
        engine.cli("snapshot", copy).answered("")
    wait_until(copy.exists, "the copy")
    left = sorted(os.listdir(directory))
    assert left in (["copy", "copy.tmp1"], ["copy", "copy.tmp1", "copy.tmp4711"]), left
    copy.unlink()
    engine.cli("snapshot", copy).answered("")
    assert sorted(os.listdir(directory)) == ["copy", "copy.tmp1"]
    assert os.readlink(directory / "copy.tmp1") == str(engine.arena)


def test_what_is_planted_where_an_engine_builds(place):
    victim = place.directory / "victim"
    victim.write_text("kept")
    planted = [place.directory / f"arena.{name}.new" for name in ("1", "22", "abc", "0123456789abcdef")]
    os.symlink(victim, planted[0])
    os.mkfifo(planted[1])
    planted[2].mkdir()
    planted[3].write_bytes(b"QDTARENA")
    shutil.chown(planted[3], "nobody")
    place.start()
    place.cli("show", "1", "1005").answered(map_answer(5))
    assert place.end() == (0, "")
    assert victim.read_text() == "kept"
    assert place.leftovers() == sorted([path.name for path in planted] + ["victim"])


@pytest.mark.filterwarnings("ignore::DeprecationWarning")  # ncclient's own
def test_an_agent_over_an_engine_of_another_user(nobody):
    netconf = pytest.importorskip("netconf")
    nobody.start(0o22)
    with netconf.agent_of(nobody.arena) as agent, agent.connect() as session:
        tag, text = netconf.error_of(session, "tbl-usage")
        assert (tag, text) == ("operation-failed", f"the arena at {nobody.arena} {REFUSED}")
    with netconf.agent_of(nobody.arena, "--trust", "nobody") as agent, agent.connect() as session:
        assert "CAP_TABLE_CTRLIF_MAP" in netconf.call(session, "tbl-usage")
    nobody.end()

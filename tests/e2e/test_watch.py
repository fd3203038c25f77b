"""nqecli watch: a command again and again, what changes, and what is counted a second."""

import contextlib
import fcntl
import json
import os
import pty
import re
import select
import signal
import struct
import subprocess
import termios
import time

import pytest

from conftest import BIN, PATIENCE, engine_on, engine_place, nqecli, wait_until
from schemas import valid

SCENARIO = """\
ctrlif_map_fwdif:
  - {repeat: 4, ctrl_if_index: {from: 1011, step: 1}, fwd_if_index: {from: 11, step: 1}}
fwdif:
  - {repeat: 4, if_index: {from: 11, step: 1}, enable: 1, pvid: {from: 10, step: 10}}
arp: [{next_hop: 192.0.2.7, vpn: 0, dmac: 02:00:5e:00:00:01}]
"""
TIME = r"20\d\d-\d\d-\d\dT\d\d:\d\d:\d\d\.\d{3}Z"


@pytest.fixture(scope="module")
def busy():
    """An engine under traffic."""
    with engine_on(SCENARIO, "--traffic", "5000") as place:
        yield place


class Watch:
    """A watch that runs, read line by line."""

    def __init__(self, place, *words):
        self.process = subprocess.Popen([BIN / "nqecli", "--arena", place.arena, "watch", *words],
                                        stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, stderr=subprocess.PIPE)
        self.rest = b""

    def line(self):
        """The next line; fails when none comes."""
        deadline = time.monotonic() + PATIENCE
        while b"\n" not in self.rest:
            ready, _, _ = select.select([self.process.stdout], [], [], max(0, deadline - time.monotonic()))
            assert ready, f"no line within {PATIENCE} s, only {self.rest!r}"
            piece = os.read(self.process.stdout.fileno(), 65536)
            assert piece, f"ended: {self.rest!r} {self.process.stderr.read()!r}"
            self.rest += piece
        line, self.rest = self.rest.split(b"\n", 1)
        return line.decode()

    def until(self, pattern):
        """The first line that is of the form."""
        while True:
            line = self.line()
            if match := re.fullmatch(pattern, line):
                return match

    def child(self):
        """The process id of the command that it has begun."""
        children = f"/proc/{self.process.pid}/task/{self.process.pid}/children"
        wait_until(lambda: open(children).read(), "the command's process")
        return open(children).read().split()[0]

    def end(self, how=signal.SIGINT):
        """Sends the signal; exit code and standard error."""
        self.process.send_signal(how)
        return self.ended()

    def ended(self):
        _, err = self.process.communicate(timeout=PATIENCE)
        return self.process.returncode, err.decode()


@contextlib.contextmanager
def watching(place, *words):
    watch = Watch(place, *words)
    try:
        yield watch
    finally:
        watch.process.kill()
        watch.process.communicate()


def test_the_whole_answer_and_then_what_changes(engine):
    region = ["engine", "region", "IPP_SESSION_AGING_TIME"]
    with watching(engine, "-i", "0.1", *region) as watch:
        assert [watch.line() for _ in range(3)] == ["tcp 0", "udp 0", "icmp 0"]
        engine.cli(*region, "udp", "120")
        assert re.fullmatch(TIME + r" - udp 0", watch.line())
        assert re.fullmatch(TIME + r" \+ udp 120", watch.line())
        engine.cli(*region, "udp", "0")
        assert re.fullmatch(TIME + r" - udp 120", watch.line())
        assert re.fullmatch(TIME + r" \+ udp 0", watch.line())
        assert watch.end() == (0, "") and watch.rest == b""


def test_rates_of_interfaces(busy):
    with watching(busy, "-i", "0.2", "list", "fwdif", "if_index=12", "--fields", "if_index") as watch:
        assert [watch.line().split() for _ in range(2)] == [["if_index"], ["12"]]
        # Only the fields that are asked for.
    with watching(busy, "-i", "0.2", "list", "fwdif", "if_index=12", "--fields",
                  "if_index,counters[1].in_bytes,counters[1].in_packets") as watch:
        rate = watch.until(TIME + r" fwdif if_index=12 counters\[1\]\.in_bytes (\d+\.\d)/s")
        assert float(rate[1]) > 0
        rate = watch.until(TIME + r" fwdif if_index=12 counters\[1\]\.in_packets (\d+\.\d)/s")
        # Of 5,000 packets a second some come in by this interface, on this group of cores.
        assert 0 < float(rate[1]) < 5000
        assert watch.end() == (0, "")


def test_rates_of_what_a_query_shows(busy):
    with watching(busy, "-i", "0.2", "show", "fwdif", "1012") as watch:
        rate = watch.until(TIME + r" fwdif if_index=12 counters\[\d\]\.in_bytes (\d+\.\d)/s")
        assert float(rate[1]) > 0
        # Of what is shown alone.
        for _ in range(50):
            assert (rate := watch.until(TIME + r" fwdif (\S+) \S+ (\d+\.\d)/s"))[1] == "if_index=12", rate[0]
        assert watch.end() == (0, "")


def test_rates_of_the_statistics(busy):
    """By the names, and the pattern, that the command itself has."""
    with watching(busy, "-i", "0.2", "statistics", "Total IP* transmitted") as watch:
        names = set()
        while len(names) < 2:
            rate = watch.until(TIME + r" statistics number=(\d+) (.*) (\d+\.\d)/s")
            names.add((rate[1], rate[2]))
        assert watch.end() == (0, "")
    listed = json.loads(busy.cli("statistics", "--json", "Total IP* transmitted").out)["statistics"]
    assert names <= {(str(counter["number"]), counter["name"]) for counter in listed}


def test_rates_of_a_region(busy):
    assert busy.cli("pkt_trace", "enable").code == 0
    with watching(busy, "-i", "0.2", "regions", "PKT_TRACE_CTX_PTR") as watch:
        rate = watch.until(TIME + r" PKT_TRACE_CTX_PTR from_driver (\d+\.\d)/s")
        assert float(rate[1]) > 0
        assert watch.end() == (0, "")
    assert busy.cli("pkt_trace", "clear").code == 0


@pytest.mark.parametrize("command", ["list fwdif --fields if_index,counters", "show fwdif 1012", "statistics Total*",
                                     "regions PKT_TRACE_CTX_PTR", "usage", "check", "find 12", "sql SELECT(1)",
                                     "engine status"])
def test_documents_are_as_the_schema_says(busy, command):
    """Until one of them has rates, where the command has counters."""
    counts = command.split()[0] in ("list", "show", "statistics")
    with watching(busy, "-i", "0.1", "--json", *command.split()) as watch:
        documents = [valid(json.loads(watch.line())) for _ in range(2)]
        while counts and not documents[-1]["rates"]:
            documents.append(valid(json.loads(watch.line())))
        assert watch.end() == (0, "")
    assert documents[0]["rates"] == [] and documents[0]["seconds"] == 0 < documents[1]["seconds"]
    assert documents[0]["command"] == command.split()


def test_documents(busy):
    """Counters and rates of one answer tell the same."""
    command = ["list", "fwdif", "if_index=13", "--fields", "if_index,counters[0].in_packets"]
    answer = nqecli("--arena", busy.arena, "watch", "--json", "-i", "0.5", "--times", "3", *command)
    assert (answer.code, answer.err) == (0, ""), answer
    documents = [valid(json.loads(line)) for line in answer.out.splitlines()]
    assert len(documents) == 3
    for document in documents:
        assert list(document) == ["time", "seconds", "command", "answer", "rates"]
        assert re.fullmatch(TIME, document["time"]) and document["command"] == command
        assert document["answer"]["count"] == 1 and document["answer"]["table"] == "fwdif"
    assert documents[0]["seconds"] == 0 and documents[0]["rates"] == []
    packets = [document["answer"]["records"][0]["counters[0]"]["in_packets"] for document in documents]
    assert packets[0] < packets[1] < packets[2]
    counted = []
    for document in documents[1:]:
        (rate,) = document["rates"]
        assert document["seconds"] > 0
        counted.append(rate.pop("per_second") * document["seconds"])
        assert rate == {"table": "fwdif", "id": 29, "key": {"if_index": 13}, "field": "counters[0].in_packets"}
    # Each answer is older than the reading for its rate, and younger than the one before; milliseconds are cut.
    assert 0 < counted[0] <= (packets[2] - packets[0]) * 1.02, (packets, counted)
    assert sum(counted) >= (packets[2] - packets[1]) * 0.98, (packets, counted)


def test_any_form_of_the_words(busy):
    for words in (["--json", "--times", "1", "usage"], ["--times", "1", "usage", "--json"], ["--times=1", "--json", "usage"]):
        answer = nqecli("--arena", busy.arena, "watch", *words)
        assert answer.code == 0 and valid(json.loads(answer.out))["answer"]["count"] > 80, answer
    answer = nqecli("watch", "--times", "1", "list", "arp", "--arena", busy.arena)
    assert answer.code == 0 and "192.0.2.7" in answer.out, answer
    answer = nqecli("watch", "--arena", busy.arena, "--times", "2", "-i", "0.1", "list", "arp", "--ndjson")
    assert answer.code == 0 and json.loads(answer.out)["next_hop"] == "192.0.2.7", answer


def test_answers_that_are_no_json_are_texts(busy):
    answer = nqecli("--arena", busy.arena, "watch", "--json", "--times", "1", "engine", "region", "IPP_SESSION_AGING_TIME")
    assert answer.code == 0, answer
    assert valid(json.loads(answer.out))["answer"] == "tcp 0\nudp 0\nicmp 0"


def test_failed_queries_go_on(engine):
    """Exit code 1 is an answer, too."""
    with watching(engine, "-i", "0.1", "diag", "search", "nqpTable", "1", "0", "5", "0", "0") as watch:
        assert watch.line() == "search result not found"
        assert watch.end() == (0, "")


def test_diff_with_the_live_engine(engine, directory):
    engine.cli("snapshot", directory / "copy").answered("")
    with watching(engine, "-i", "0.1", "--json", "diff", directory / "copy", "live") as watch:
        assert valid(json.loads(watch.line()))["answer"] == {"diff": [], "count": 0}
        engine.cli("engine", "region", "IPP_SESSION_AGING_TIME", "tcp", "300")
        while not (changed := valid(json.loads(watch.line()))["answer"])["count"]:
            pass
        assert changed["diff"][0]["fields"] == {"tcp": {"from": 0, "to": 300}}
        assert watch.end() == (0, "")


@pytest.mark.parametrize("how", [signal.SIGTERM, signal.SIGKILL])
def test_an_engine_that_ends(place, how):
    place.start()
    with watching(place, "-i", "0.1", "list", "ctrlif_map_fwdif", "fwd_if_index=1") as watch:
        assert "ctrl_if_index" in watch.line()
        place.end(how)
        code, err = watch.ended()
        assert code == 2 and err.startswith("nqecli: ") and err.count("\n") == 1, err
        assert "engine" in err, err


def test_another_engine_is_not_the_one_that_was_watched(place):
    place.start()
    with watching(place, "-i", "1", "list", "ctrlif_map_fwdif", "fwd_if_index=1") as watch:
        assert "ctrl_if_index" in watch.line()
        place.end()
        place.start()
        assert watch.ended() == (2, "nqecli: the engine has ended\n")
    place.stop()


def test_a_reader_that_goes_away(busy):
    """Also while nothing changes, so that nothing is written."""
    with watching(busy, "-i", "0.1", "list", "arp") as watch:
        watch.line()
        watch.process.stdout.close()
        assert watch.process.wait(PATIENCE) == 2
        assert watch.process.stderr.read() == b""
        watch.process.stdout = None
    with open("/dev/full", "wb") as full:
        done = subprocess.run([BIN / "nqecli", "--arena", busy.arena, "watch", "list", "arp"], stdout=full,
                              stderr=subprocess.PIPE, timeout=PATIENCE)
    assert (done.returncode, done.stderr) == (2, b"nqecli: cannot write the answer: No space left on device\n")


def test_interrupted_while_the_command_runs(busy, directory):
    """A command that hangs, here because the engine does, is ended with the watch."""
    with engine_place() as place:
        place.start()
        os.kill(place.process.pid, signal.SIGSTOP)
        try:
            with watching(place, "engine", "status") as watch:
                child = watch.child()
                assert watch.end() == (0, "")
                assert not os.path.exists(f"/proc/{child}")
        finally:
            os.kill(place.process.pid, signal.SIGCONT)


def has_ended(process):
    """Whether nothing is left of it but what its parent has yet to hear."""
    try:
        return open(f"/proc/{process}/stat").read().split()[2] == "Z"
    except (FileNotFoundError, ProcessLookupError):
        return True


def test_nothing_is_left_of_a_watch_that_is_killed(place):
    place.start()
    os.kill(place.process.pid, signal.SIGSTOP)
    try:
        with watching(place, "engine", "status") as watch:
            child = watch.child()
            # It has begun to be the command, and goes with whoever began it, from then on.
            wait_until(lambda: "watch" not in open(f"/proc/{child}/cmdline").read(), "the command itself")
            watch.end(signal.SIGKILL)
            wait_until(lambda: has_ended(child), "the command's end")
    finally:
        os.kill(place.process.pid, signal.SIGCONT)
    place.stop()


@pytest.mark.parametrize("words, message", [
    ([], "watch what?"),
    (["-i", "2"], "watch what?"),
    (["-i"], "-i needs a value"),
    (["-i", "0", "usage"], "-i \"0\" is not a number of seconds from 0.1 to 86400"),
    (["--times", "0", "usage"], "--times"),
    (["--time", "1", "usage"], 'unknown option "--time" (did you mean --times?)'),
    (["watch", "usage"], 'not "watch"'),
    (["snapshot", "x"], 'not "snapshot"'),
    (["nonsense"], 'unknown command "nonsense"'),
    (["list", "nonsense"], 'unknown table "nonsense"'),
    (["list", "arp", "--nonsense"], "unknown option"),
    (["--arena", "/nowhere/at/all", "usage"], "there is no arena at /nowhere/at/all"),
    (["--snapshot", "/dev/null", "usage"], "/dev/null is not an arena"),
])
def test_bad_usage(words, message):
    nqecli("watch", *words).failed(message)


def test_saved_arenas(engine, directory):
    engine.cli("snapshot", directory / "copy").answered("")
    answer = nqecli("--snapshot", directory / "copy", "watch", "-i", "0.1", "--times", "3", "list", "ctrlif_map_fwdif",
                    "fwd_if_index=3")
    assert answer.code == 0 and answer.out.count("1003") == 1 and answer.err == "", answer
    answer = nqecli("watch", "-i", "0.1", "--times", "2", "diff", directory / "copy", directory / "copy")
    answer.answered("")


def test_on_a_terminal(busy):
    """In place: home, lines over lines, what is new in reverse video, nothing scrolls."""
    leader, follower = pty.openpty()
    fcntl.ioctl(follower, termios.TIOCSWINSZ, struct.pack("HHHH", 24, 70, 0, 0))
    process = subprocess.Popen(
        [BIN / "nqecli", "--arena", busy.arena, "watch", "-i", "0.2", "list", "fwdif", "if_index<13", "--fields",
         "if_index,counters[0].in_bytes"], stdin=follower, stdout=follower, stderr=follower, start_new_session=True)
    os.close(follower)
    shown = b""
    try:
        deadline = time.monotonic() + PATIENCE
        while shown.count(b"\x1b[J") < 3:
            ready, _, _ = select.select([leader], [], [], max(0, deadline - time.monotonic()))
            assert ready, shown
            shown += os.read(leader, 65536)
        process.send_signal(signal.SIGINT)
        assert process.wait(PATIENCE) == 0
    finally:
        process.kill()
        process.wait()
        os.close(leader)
    first, second, _ = shown.split(b"\x1b[J")[:3]
    assert first.startswith(b"\x1b[2J\x1b[Hevery 0.2 s: list fwdif if_index<13"), shown
    assert b"\x1b[7m" not in first and first.count(b"\r\n") == 4, shown
    assert second.startswith(b"\x1b[Hevery 0.2 s:"), shown
    assert re.search(rb"\x1b\[7m +11 +\d+\x1b\[0m\x1b\[K", second), shown
    assert re.search(rb"fwdif if_index=12 counters\[0\]\.in_bytes \d+\.\d/s\x1b\[K", second), shown
    # Nothing is wider than the terminal or higher.
    for line in second.replace(b"\x1b[7m", b"").split(b"\r\n"):
        assert len(re.sub(rb"\x1b\[\d*[A-Za-z]", b"", line).rstrip(b"\r")) <= 70, line
    assert second.count(b"\r\n") < 24


@pytest.mark.skipif("sanitizers address" in nqecli("--version").out, reason="AddressSanitizer keeps what is freed")
def test_memory_stays_flat(busy):
    """However many answers there were."""
    with watching(busy, "-i", "0.1", "--json", "list", "fwdif") as watch:
        def resident():
            status = open(f"/proc/{watch.process.pid}/status").read()
            return int(re.search(r"RssAnon:\s+(\d+) kB", status)[1])
        for _ in range(5):
            watch.line()
        early = resident()
        for _ in range(20):
            watch.line()
        assert resident() <= early + 256
        assert watch.end() == (0, "")

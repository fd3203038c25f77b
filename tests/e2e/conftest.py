"""Real processes: nqed with a scenario in a directory of its own, nqecli against it.

QDT_BIN names the directory of the binaries (default: build/bin).
"""

import contextlib
import os
import pathlib
import shutil
import signal
import socket
import stat
import struct
import subprocess
import tempfile
import time

import pytest

ROOT = pathlib.Path(__file__).resolve().parents[2]
BIN = pathlib.Path(os.environ.get("QDT_BIN", ROOT / "build" / "bin")).resolve()
PATIENCE = int(os.environ.get("QDT_PATIENCE", 30))  # seconds that anything may take before a test calls it hanging

# Files whose tests take longest, the longest first.
LONGEST = ("test_kill", "test_engine", "test_netconf", "test_sessions")


def pytest_configure(config):
    config.addinivalue_line("markers", "apart: shares no engine with other tests of its file")
    config.addinivalue_line("markers", "xdist_group: goes to one process with the others of the group")


@pytest.hookimpl(tryfirst=True)
def pytest_collection_modifyitems(items):
    """For runs on several processes (-n 4 --dist loadgroup): which tests go together, and in which order."""
    rank = {name: place for place, name in enumerate(LONGEST)}
    items.sort(key=lambda item: rank.get(item.path.stem, len(rank)))
    for item in items:
        apart = item.get_closest_marker("apart")
        item.add_marker(pytest.mark.xdist_group(item.name if apart else item.path.stem))


# Interface n + 1000 of the control plane is forwarding interface n.
SCENARIO = """\
ctrlif_map_fwdif:
  - {repeat: 60, ctrl_if_index: {from: 1001, step: 1}, fwd_if_index: {from: 1, step: 1}}
"""


def map_answer(index):
    """What table 1 shows for control interface 1000 + index."""
    dashes = "-" * 30
    return f"{dashes}\n  CtrlIfIdx  :  {1000 + index}\n  FwdIfIdx   :  {index}\n{dashes}\n"


class Result:
    """What a process wrote and how it ended. Shows itself whole when an assertion fails."""

    def __init__(self, argv, code, out, err):
        self.argv, self.code, self.out, self.err = argv, code, out, err

    def __repr__(self):
        words = " ".join(str(word)[:80] for word in self.argv[:20])
        return f"\n$ {words}\nexit code {self.code}\n--- stdout\n{self.out}\n--- stderr\n{self.err}\n---"

    def answered(self, text):
        """Asserts the whole answer."""
        assert (self.code, self.out, self.err) == (0, text, ""), self
        return self

    def refused(self, text):
        """Asserts the whole answer, which only says what was wrong."""
        assert (self.code, self.out, self.err) == (1, text, ""), self
        return self

    def failed(self, *parts, code=2, tool="nqecli"):
        """Asserts one line on standard error that holds the parts, and nothing on standard output."""
        assert self.code == code, self
        assert self.out == "", self
        assert self.err.startswith(f"{tool}: ") and self.err.endswith("\n") and self.err.count("\n") == 1, self
        for part in parts:
            assert part in self.err, self
        return self


def run(*argv, **options):
    """Runs a program to its end, with `input` (bytes) or nothing on its standard input."""
    argv = [str(word) if isinstance(word, os.PathLike) else word for word in argv]
    if "input" not in options:
        options["stdin"] = subprocess.DEVNULL
    done = subprocess.run(argv, stdout=subprocess.PIPE, stderr=subprocess.PIPE, timeout=PATIENCE, **options)
    return Result(argv, done.returncode, done.stdout.decode(errors="replace"), done.stderr.decode(errors="replace"))


def nqecli(*words, **options):
    return run(BIN / "nqecli", *words, **options)


def nqed(*words, **options):
    return run(BIN / "nqed", *words, **options)


MARK = struct.unpack("<I", b"NQE1")[0]


def frame(text, word=MARK):
    data = text.encode() if isinstance(text, str) else text
    return struct.pack("<II", len(data), word) + data


class Client:
    """Speaks the engine's socket protocol byte by byte."""

    def __init__(self, path):
        self.socket = socket.socket(socket.AF_UNIX)
        self.socket.settimeout(PATIENCE)
        self.socket.connect(str(path))

    def send(self, data):
        self.socket.sendall(data)

    def read(self, count):
        """Up to `count` bytes; fewer when the engine closes."""
        data = b""
        while len(data) < count:
            try:
                piece = self.socket.recv(count - len(data))
            except ConnectionResetError:
                break
            if not piece:
                break
            data += piece
        return data

    def reply(self):
        """(status, text) of the next reply."""
        header = self.read(8)
        assert len(header) == 8, f"no reply, only {header!r}"
        length, status = struct.unpack("<Ii", header)
        data = self.read(length)
        assert len(data) == length, f"{length} bytes announced, {len(data)} came: {data[:200]!r}"
        return status, data.decode()

    def ask(self, line):
        self.send(frame(line))
        return self.reply()

    def close(self):
        self.socket.close()


class Engine:
    """One nqed with its own directory, arena and socket."""

    def __init__(self, directory):
        self.directory = pathlib.Path(directory)
        self.arena = self.directory / "arena"
        self.socket = self.directory / "arena.sock"
        self.scenario = self.directory / "scenario.yaml"
        self.scenario.write_text(SCENARIO)
        self.linux = None  # the options that have it mirror the kernel, in place of the scenario
        self.process = None
        self.ready_line = None
        self.trusted = ()  # options that have the tool believe an engine of another user

    def spawn(self, *words, stderr=subprocess.PIPE):
        """Starts the process without waiting for anything."""
        assert self.process is None
        source = ["--scenario", self.scenario] if self.linux is None else self.linux
        self.process = subprocess.Popen(
            [BIN / "nqed", *source, "--arena", self.arena, *words],
            stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, stderr=stderr)
        return self

    def start(self, *words, stderr=subprocess.PIPE):
        """Starts the engine and waits until it is ready. With a file for `stderr` nothing is collected there."""
        self.spawn(*words, stderr=stderr)
        self.ready_line = self.process.stdout.readline().decode()
        assert self.ready_line.startswith("nqed: ready, "), self.ready_line + self.errors(self.process.communicate()[1])
        return self

    def end(self, how=signal.SIGTERM):
        """Sends a signal and returns the exit code and what came on standard error."""
        self.process.send_signal(how)
        return self.collect()

    def collect(self):
        try:
            _, err = self.process.communicate(timeout=PATIENCE)
            return self.process.returncode, self.errors(err)
        finally:
            self.process.kill()
            self.process.wait()
            self.process = None

    @staticmethod
    def errors(collected):
        return "" if collected is None else collected.decode()

    def stop(self):
        """A clean end: exit code 0, nothing said, no file left."""
        assert self.end() == (0, "")
        assert self.leftovers() == []

    def leftovers(self):
        """Files in the directory that are not the test's."""
        return sorted(entry.name for entry in self.directory.iterdir() if entry != self.scenario)

    def cli(self, *words, **options):
        return nqecli(*self.trusted, "--arena", self.arena, *words, **options)

    def client(self):
        return Client(self.socket)


@contextlib.contextmanager
def short_directory():
    # Socket paths have little room, less than pytest's own directories take.
    path = tempfile.mkdtemp(prefix="nqe-")
    os.chmod(path, 0o755)
    try:
        yield pathlib.Path(path)
    finally:
        shutil.rmtree(path)


@contextlib.contextmanager
def engine_place():
    """An engine that does not run yet; whatever the test leaves behind is ended and removed."""
    with short_directory() as directory:
        place = Engine(directory)
        try:
            yield place
        finally:
            if place.process is not None:
                place.process.kill()
                place.process.communicate()


@pytest.fixture
def place():
    with engine_place() as fresh:
        yield fresh


@pytest.fixture
def engine(place):
    """A running engine that is stopped after the test, cleanly unless the test has ended it."""
    place.start()
    yield place
    if place.process is not None:
        place.stop()


@pytest.fixture
def directory():
    with short_directory() as path:
        yield path


def view(text):
    """A whole answer: the records' text between the dashes, without an empty line before the end."""
    dashes = "-" * 30
    return f"{dashes}\n{text[:-1] if text.endswith(chr(10) * 2) else text}{dashes}\n"


class Site:
    """An engine on a whole scenario, and a snapshot of it. Both answer alike."""

    def __init__(self, engine, snapshot):
        self.engine, self.snapshot = engine, snapshot

    def shows(self, query, text):
        """Asserts the whole answer to `nqecli show QUERY`."""
        self.engine.cli("show", *query.split()).answered(view(text))
        nqecli("--snapshot", self.snapshot, "show", *query.split()).answered(view(text))

    def refuses(self, query, message):
        """Asserts the answer of a query that fails."""
        for result in (self.engine.cli("show", *query.split()),
                       nqecli("--snapshot", self.snapshot, "show", *query.split())):
            assert (result.code, result.out) == (1, message + "\n"), result


@contextlib.contextmanager
def engine_on(scenario, *words):
    """A running engine on the scenario, which is a file or the text of one; a test may end it before."""
    with engine_place() as place:
        if isinstance(scenario, os.PathLike):
            place.scenario.unlink()
            place.scenario = scenario
        else:
            place.scenario.write_text(scenario)
        place.start(*words)
        yield place
        if place.process is not None:
            place.stop()


@contextlib.contextmanager
def site_of(scenario, *words):
    """The same with a snapshot of it."""
    with engine_on(scenario, *words) as place, short_directory() as directory:
        place.cli("snapshot", directory / "copy").answered("")
        yield Site(place, directory / "copy")


@pytest.fixture(scope="module")
def campus():
    with site_of(ROOT / "examples" / "campus.yaml") as site:
        yield site


def is_socket(path):
    return stat.S_ISSOCK(os.lstat(path).st_mode)


def wait_until(condition, what):
    deadline = time.monotonic() + PATIENCE
    while not condition():
        assert time.monotonic() < deadline, f"waited {PATIENCE} s for: {what}"
        time.sleep(0.01)

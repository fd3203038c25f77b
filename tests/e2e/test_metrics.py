"""nqeweb as a metrics server: engines that are there, gone, damaged or of another version, and those who ask at once."""

import concurrent.futures
import contextlib
import os
import signal
import urllib.parse

import pytest
from conftest import ROOT, engine_place
from web import Web

TYPE = "text/plain; version=0.0.4; charset=utf-8"
GONE = """\
# HELP nqe_up Whether the arena can be read, 0 when the engine is gone, damaged or of another version
# TYPE nqe_up gauge
nqe_up 0
"""


@contextlib.contextmanager
def web(*words):
    """nqeweb on a free port; gives the function that asks it for a path: status, type and text."""
    def ask(path):
        answer = server.ask("GET", path)
        return answer.status, answer.headers["Content-Type"], answer.body.decode()

    with Web(*words) as server:
        yield ask


@pytest.fixture
def campus_engine(place):
    place.scenario.unlink()
    place.scenario = ROOT / "examples" / "campus.yaml"
    place.start()
    yield place
    if place.process is not None:
        place.stop()


def series(text):
    return dict(line.rsplit(" ", 1) for line in text.splitlines() if not line.startswith("#"))


def test_names_of_files(tmp_path):
    """A file may be called anything; its name spoils the scrape of no other."""
    with web("--arena", tmp_path / "fine", "--arena", os.fsdecode(bytes(tmp_path) + b'/a"\xff\n\x1b')) as ask:
        status, _, text = ask("/metrics")
        assert status == 200 and {line for line in text.splitlines() if line.startswith("nqe_up")} == {
            'nqe_up{target="a\\"\\\\xff\\\\x0a\\\\x1b"} 0', 'nqe_up{target="fine"} 0'}, text
        assert ask("/probe?target=" + urllib.parse.quote('a"\\xff\\x0a\\x1b')) == (200, TYPE, GONE)


def test_one_engine(campus_engine):
    with web("--arena", campus_engine.arena) as ask:
        status, kind, text = ask("/metrics")
        assert (status, kind) == (200, TYPE)
        found = series(text)
        assert found["nqe_up"] == "1"
        assert found['nqe_discarded_packets_by_reason_total{reason="arp miss"}'] == "817"
        assert found['nqe_received_packets_by_class_total{class="TCP packets received"}'] == "285515085"
        assert found['nqe_cpcar_pro_drop_packets_total{protocol="arp-request",wireless="1"}'] == "951"
        assert found['nqe_table_entries{table="acl_group"}'] == "9"
        assert found["nqe_series_cut"] == "0"
        assert len(text.encode()) <= 64 * 1024
        while "nqe_survey_time_seconds" not in found:
            found = series(ask("/metrics")[2])
        assert found['nqe_findings{severity="error"}'] == "14"
        assert found['nqe_stale_bindings{table="fib"}'] == "1"
        assert found['nqe_sessions{family="ipv4",protocol="udp"}'] == "21"


def test_engines_in_every_state(campus_engine, directory):
    copy = directory / "copy"
    campus_engine.cli("snapshot", copy).answered("")
    whole = copy.read_bytes()[:4096]
    with engine_place() as other:
        other.start()
        # What was left by an engine that has died, then files that are none.
        other.end(signal.SIGKILL)
        made = {name: other.directory / name for name in ("empty", "text", "cut", "version", "missing")}
        made["empty"].write_bytes(b"")
        made["text"].write_text("nqe_up 1\n" * 1000)
        made["cut"].write_bytes(whole)
        made["version"].write_bytes(whole[:8] + b"\x63\0\0\0" + whole[12:])
        left = other.directory / "left"
        other.arena.rename(left)
        words = ["--arena", campus_engine.arena, "--snapshot", copy, "--arena", left]
        for name in made.values():
            words += ["--arena", name]
        with web(*words) as ask:
            status, kind, text = ask("/metrics")
            assert (status, kind) == (200, TYPE)
            assert series(text) == {
                'nqe_exporter_info{version="1.0.0"}': "1", 'nqe_up{target="arena"}': "1", 'nqe_up{target="copy"}': "1",
                **{f'nqe_up{{target="{name}"}}': "0" for name in ("left", *made)}}
            for name in ("left", *made):
                assert ask(f"/probe?target={name}") == (200, TYPE, GONE), name
            assert series(ask("/probe?target=arena")[2])["nqe_up"] == "1"
            saved = series(ask("/probe?target=copy")[2])
            assert saved["nqe_up"] == "1" and "nqe_snapshot_time_seconds" in saved
            # The one that was missing comes, and goes.
            other.arena = made["missing"]
            other.start()
            assert series(ask("/probe?target=missing")[2])["nqe_up"] == "1"
            assert other.end() == (0, "")
            assert ask("/probe?target=missing") == (200, TYPE, GONE)


def test_what_is_no_target(campus_engine):
    with web("--arena", campus_engine.arena) as ask:
        for path, status in ((f"/probe?target={campus_engine.arena}", 404), ("/probe?target=..%2Farena", 404),
                             ("/probe?target=", 404), ("/probe", 400), ("/probe?target=arena%00", 400),
                             ("/probe?target=arena&target=arena", 400), ("/probe?target=arena&path=x", 400),
                             ("/metrics?target=arena", 400), ("/metrics/", 404)):
            answer = ask(path)
            assert (answer[0], answer[1]) == (status, "application/problem+json"), (path, answer)
        assert ask("/probe?target=arena")[0] == 200


def test_many_ask_at_once_while_the_engine_comes_and_goes(place):
    place.start()
    with web("--arena", place.arena) as ask, concurrent.futures.ThreadPoolExecutor(8) as pool:
        def scrape(_):
            status, kind, text = ask("/metrics")
            assert (status, kind) == (200, TYPE)
            found = series(text)
            # All of it or nothing.
            assert (found["nqe_up"] == "1") == ("nqe_start_time_seconds" in found), text
            return found["nqe_up"]

        asked = pool.map(scrape, range(200))
        for _ in range(5):
            assert place.end() == (0, "")
            place.start()
        assert set(asked) <= {"0", "1"}
        assert scrape(0) == "1"

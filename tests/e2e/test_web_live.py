"""What nqeweb tells while an engine works: events, curves, lines of the packet trace; and an engine that ends and comes back."""

import json
import time

from conftest import BIN, PATIENCE, ROOT, run, wait_until
from web import Web

API = "/api/v1"
BEARER = {"Authorization": "Bearer 0123456789abcdef"}


class Events:
    """A listener; `next` waits for an event of a name for which a condition holds."""

    def __init__(self, server, query=""):
        self.connection = server.connection()
        self.connection.request("GET", API + "/events" + query, headers=BEARER)
        self.answer = self.connection.getresponse()
        assert self.answer.status == 200 and self.answer.headers["Content-Type"] == "text/event-stream"

    def next(self, name, wanted=lambda data: True):
        event = None
        for _ in range(5000):
            line = self.answer.readline().decode().rstrip("\n")
            assert line is not None
            if line.startswith("event: "):
                event = line[7:]
            elif line.startswith("data: ") and event == name:
                data = json.loads(line[6:])
                if wanted(data):
                    return data
        raise AssertionError(f"no event {name}")

    def close(self):
        self.connection.close()


def test_events_of_an_engine_at_work(tmp_path, place):
    token = tmp_path / "token"
    token.write_text("0123456789abcdef\n")
    token.chmod(0o600)
    place.linux = ["--scenario", ROOT / "examples" / "campus.yaml"]
    with open(tmp_path / "console", "wb") as console, \
            Web("--arena", place.arena, "--token-file", token, "--allow-changes") as server:
        events = Events(server)
        assert events.next("state") == {
            "engine": "arena", "state": "missing",
            "message": f"no engine runs: there is no arena at {place.arena} (start nqed, or name its arena with --arena)"}
        place.start("--traffic", "1000", stderr=console)
        assert events.next("state")["state"] == "up"
        sample = events.next("sample", lambda data: data["interfaces"] and any(each["per_second"] for each in data["discards"]))
        assert sample["seconds"] > 0
        assert sum(each["in_packets"] for each in sample["interfaces"]) > 0
        rates = [each["per_second"] for each in sample["discards"]]
        assert rates == sorted(rates, reverse=True)

        # The curves of who comes later begin where these did.
        history = server.get(API + "/history", headers=BEARER).json
        assert [each for each in history["samples"] if each["number"] == sample["number"]] == [sample]

        body = json.dumps({"action": "set", "protocol": 6, "print_num": 200})
        headers = {**BEARER, "Content-Type": "application/json"}
        assert server.ask("POST", API + "/trace", body, headers).status == 200
        line = events.next("trace")["line"]
        assert "TCP" in line or "protocol 6" in line, line
        assert server.ask("POST", API + "/trace", '{"action":"clear"}', headers).status == 200

        place.end(how=9)
        assert events.next("state")["state"] == "ended"
        place.start("--traffic", "1000", stderr=console)
        assert events.next("state")["state"] == "up"
        assert events.next("sample", lambda data: data["interfaces"])["number"] > sample["number"]
        events.close()
        assert place.end()[0] == 0


def test_a_question_about_events_is_none(campus):
    with Web("--arena", campus.engine.arena) as server:
        answer = server.ask("HEAD", API + "/events")
        assert answer.status == 200 and answer.headers["Content-Type"] == "text/event-stream" and answer.body == b""


def test_a_server_ends_at_once_with_its_listeners(campus):
    with Web("--arena", campus.engine.arena) as server:
        events = Events(server)
        events.next("state")
        server.process.terminate()
        assert server.process.wait(PATIENCE) == 0
        events.close()


def test_nobody_looks_and_nothing_is_read(campus):
    with Web("--arena", campus.engine.arena) as server:
        assert server.data("history")["samples"] == []
        wait_until(lambda: server.data("history")["count"] >= 2, "two samples")
        samples = server.data("history", {"minutes": 1})["samples"]
        assert [each["number"] for each in samples] == list(range(1, len(samples) + 1))
        # An engine at rest counts nothing.
        assert all(each["per_second"] == 0 for sample in samples for each in sample["discards"])
        assert all(sample["interfaces"] == [] for sample in samples)


def test_curves_are_kept_while_nobody_looks(campus, tmp_path):
    # The first look at a console finds samples; as only the first one tells, each try has a console of its own, and leaves it
    # longer alone.
    for pause in range(1, PATIENCE):
        with Web("--arena", campus.engine.arena, "--snapshot", campus.snapshot, "--curves") as server:
            time.sleep(pause)
            count = server.data("history")["count"]
            assert server.data("history", {"engine": "copy"})["count"] == 0
        if count > 0:
            break
    assert count > 0
    many = [tmp_path / f"missing-{i}" for i in range(17)]
    done = run(BIN / "nqeweb", "--curves", "--listen", "127.0.0.1:0", *(word for each in many for word in ("--arena", each)))
    assert (done.code, done.out, done.err) == (2, "", "nqeweb: curves are kept of 16 engines at most; name fewer\n"), done


def test_history_has_limits(place, tmp_path):
    """Minutes, the greatest of each sample, and the engines that are looked at."""
    # Rate limits by number: more reasons than a sample has room for, each with another count.
    place.scenario.write_text("statistics:\n" + "".join(f"  {number}: {number}\n" for number in range(190, 290)))
    place.start()
    copies = [tmp_path / f"copy-{i}" for i in range(17)]
    for copy in copies:
        place.cli("snapshot", copy).answered("")
    with Web("--arena", place.arena, *(word for copy in copies for word in ("--snapshot", copy))) as server:
        for wrong in ("0", "11", "-1", "x", "1.5", ""):
            server.get(API + "/history", {"minutes": wrong}).is_problem(400)
        wait_until(lambda: server.data("history")["count"] >= 1, "a sample")
        [first, *_] = server.data("history", {"minutes": 10})["samples"]
        totals = [each["total"] for each in first["discards"]]
        assert len(totals) == 32 and totals == sorted(totals, reverse=True) and totals[0] == 289, totals
        # Sixteen are looked at, the live one among them; one more has to wait, and costs those nothing.
        names = [copy.name for copy in copies]
        assert all(server.get(API + "/history", {"engine": name}).status == 200 for name in names[:15])
        for name in names[15:]:
            server.get(API + "/history", {"engine": name}).is_problem(503, "busy")
        last = server.data("history")["samples"][-1]["number"]
        wait_until(lambda: server.data("history")["samples"][-1]["number"] > last, "the live one to go on")
    assert place.end()[0] == 0

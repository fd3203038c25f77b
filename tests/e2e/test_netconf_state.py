"""The engine's state as data over NETCONF: what the tool prints, valid by the model, and walked rather than built."""

import json
import pathlib
import re
import signal
import socket
import struct

import pytest
from ncclient.xml_ import to_ele

from conftest import BIN, PATIENCE, ROOT, engine_on, engine_place, wait_until
from netconf import BASE, END_1_0, NACM
from test_measurement import parse_pmc
from test_netconf_access import agent_without_ssh, worker_of

STATE = "urn:tavrix:params:xml:ns:yang:tavrix-engine-state"
SANITIZED = b"__asan_init" in (BIN / "omad-session").read_bytes() or b"__tsan_init" in (BIN / "omad-session").read_bytes()
SESSIONS = 4096 if SANITIZED else 65536


@pytest.fixture(scope="module")
def engine():
    with engine_on(ROOT / "examples" / "campus.yaml", "--traffic", "2000", "--cores", "4") as place:
        yield place


@pytest.fixture(scope="module")
def agent(engine):
    with agent_without_ssh(engine, administrator=["operator"], observer=["olga"]) as agent:
        yield agent


@pytest.fixture(scope="module")
def session(agent):
    return agent.raw().hello()


def data_of(reply):
    root = to_ele(reply)
    data = root.find(f"{{{BASE}}}data")
    assert data is not None and len(root) == 1, reply[:2000]
    return data


def selected(session, path):
    """The elements that an XPath leads to, each as (name without namespace, text) of its leaves and its children."""
    return data_of(session.rpc(f'<get><filter type="xpath" xmlns:e="{STATE}" select="{path}"/></get>'))


def filtered(session, xml):
    return data_of(session.rpc(f'<get><filter type="subtree"><engine xmlns="{STATE}">{xml}</engine></filter></get>'))


def entries(data, *path):
    return data.findall("/".join(f"{{{STATE}}}{name}" for name in ("engine", *path)))


def leaves(entry):
    """A list's entry as a dictionary, its containers' leaves as "container.leaf"."""
    found = {}
    for child in entry:
        name = child.tag.rpartition("}")[2]
        if len(child):
            found.update({f"{name}.{inner}": text for inner, text in leaves(child).items()})
        else:
            found[name] = child.text or ""
    return found


def as_leaf(value):
    return str(value).lower() if isinstance(value, bool) else str(value)


def flat(record, path=""):
    """A record of the tool's JSON with the names of the model; of an array the sum."""
    found = {}
    for name, value in record.items():
        name = path + name.replace("_", "-")
        if isinstance(value, dict):
            found.update(flat(value, name + "."))
        elif isinstance(value, list):
            for part in (part for part in value if isinstance(part, dict)):
                for inner, text in flat(part, name + ".").items():
                    found[inner] = str(int(found.get(inner, 0)) + int(text)) if text.isdigit() else text
        else:
            found[name] = as_leaf(value)
    return found


def listed(engine, *words):
    shown = engine.cli(*words, "--json")
    assert shown.code == 0, shown
    return json.loads(shown.out)


def test_tables(engine, session):
    shown = {row["table"]: row for row in listed(engine, "usage")["usage"]}
    told = {row["name"]: row for row in map(leaves, entries(filtered(session, "<tables/>"), "tables", "table"))}
    assert sorted(told) == sorted(shown) and len(told) > 80
    for name, row in told.items():
        same = shown[name]
        assert [row[key] for key in ("id", "capacity", "bytes")] == [str(same[key]) for key in ("id", "capacity", "bytes")]
        assert row["about"]
    assert told["fib"]["entries"] == str(shown["fib"]["entries"])
    assert told["global"]["percent"] == "100.0"
    one = selected(session, "/e:engine/e:tables/e:table[e:name='fib']/e:capacity")
    assert [leaves(each) for each in entries(one, "tables", "table")] == [{"name": "fib", "capacity": told["fib"]["capacity"]}]


def test_statistics(engine, session):
    shown = {row["number"]: row for row in listed(engine, "statistics")["statistics"]}
    counters = entries(filtered(session, "<statistics/>"), "statistics", "counter")
    assert len(counters) == len(shown) == 831
    for counter in counters:
        own = leaves(counter)
        same = shown[int(own["number"])]
        assert own["class"] == same["class"] and own.get("name") == same["name"]
        cores = [int(core.findtext(f"{{{STATE}}}value")) for core in counter.findall(f"{{{STATE}}}core")]
        assert len(cores) == 4 and sum(cores) == int(own["sum"])
    # The one of a class and a name, by a path and by a filter.
    path = "/e:engine/e:statistics/e:counter[e:class='discard'][e:name='CAR - arp-request']"
    by_path = leaves(*entries(selected(session, path), "statistics", "counter"))
    by_filter = leaves(*entries(filtered(session, "<statistics><counter><class>discard</class><name>CAR - arp-request</name>"
                                         "</counter></statistics>"), "statistics", "counter"))
    assert by_path["number"] == by_filter["number"] == "577" and int(by_path["sum"]) >= 168


def test_interfaces(engine, session):
    shown = {str(row["if_index"]): flat(row) for row in listed(engine, "list", "fwdif")["records"]}
    told = {row["if-index"]: row for row in map(leaves, entries(filtered(session, "<interfaces/>"), "interfaces", "interface"))}
    assert sorted(told) == sorted(shown) and len(told) > 20
    later = {str(row["if_index"]): flat(row) for row in listed(engine, "list", "fwdif")["records"]}
    for index, row in told.items():
        assert len(row) == 31
        for name, value in row.items():
            # Traffic goes on between the three looks.
            assert int(shown[index].get(name, 0)) <= int(value) <= int(later[index].get(name, 0)) \
                if name.startswith("counters.") else value == shown[index][name], (index, name)


MOVES = {"created", "refreshed", "aging-time"}


def test_sessions(engine, session):
    told = {row["index"]: row for row in map(leaves, entries(filtered(session, "<sessions/>"), "sessions", "session"))}
    shown = {str(row["index"]): flat(row) for row in listed(engine, "list", "session")["records"]}
    assert len(set(told) & set(shown)) > 20
    for index in set(told) & set(shown):
        for name, value in told[index].items():
            if name not in MOVES and not name.startswith("tcp."):
                assert value == shown[index][name], (index, name)
    families = {row["is-ipv6"] for row in told.values()}
    assert families == {"true", "false"}
    assert all(("positive6.source" in row) == (row["is-ipv6"] == "true") for row in told.values())
    key = selected(session, "/e:engine/e:sessions/e:session[e:positive/e:source='192.0.2.11']/e:index")
    assert {leaves(each)["index"] for each in entries(key, "sessions", "session")} == {
        index for index, row in told.items() if row.get("positive.source") == "192.0.2.11"} != set()


def test_measurements(engine, session):
    def points():
        return {(leaves(core)["core"], leaves(point)["point"]): point
                for core in entries(filtered(session, "<measurements/>"), "measurements", "points", "core")
                for point in core.findall(f"{{{STATE}}}point")}

    assert engine.cli("pmc", "3").code == 0
    wait_until(lambda: len(points()) > 8, "the points to be reached")
    assert {event.findtext(f"{{{STATE}}}name") for point in points().values()
            for event in point.findall(f"{{{STATE}}}event")} == {"CYCLES"}
    stopped = engine.cli("pmc", "stop")
    shown = parse_pmc(stopped.out, 3, ["CYCLES"])
    for (core, number), point in points().items():
        counts = [point.findtext(f"{{{STATE}}}{name}") for name in ("hits", "packets")]
        assert [int(count) for count in counts] == shown[int(core)][int(number)][:2]
    assert engine.cli("perf", "task", "set", "time").code == 0
    contexts = "/e:engine/e:measurements/e:scheduler/e:context/e:task[e:task='10']/e:runs"
    wait_until(lambda: entries(selected(session, contexts), "measurements", "scheduler", "context"), "the tasks to run")
    assert engine.cli("perf", "task", "disable").code == 0


def deny_otto(agent, *paths):
    """Rules that keep parts of the engine from one user, read before all others."""
    rules = "".join(f"""<rule><name>{number}</name><module-name>tavrix-engine-state</module-name>
      <path xmlns:e="{STATE}">/e:engine/e:{path}</path>
      <access-operations>read</access-operations><action>deny</action></rule>""" for number, path in enumerate(paths))
    file = agent.rules / "aa.xml"
    file.write_text(f"""<nacm xmlns="{NACM}"><groups><group><name>few</name><user-name>otto</user-name></group></groups>
      <rule-list><name>a</name><group>few</group>{rules}</rule-list></nacm>""")
    file.chmod(0o600)
    agent.process.send_signal(signal.SIGHUP)
    wait_until(lambda: agent.recorded("RULES"), "the rules to be read")


def test_rules_of_access_filter_it(engine):
    with agent_without_ssh(engine, observer=["olga", "otto"]) as agent:
        deny_otto(agent, "sessions/e:session/e:positive", "sessions/e:session[e:index='1']", "statistics")
        few, all_of_it = agent.raw("otto").hello(), agent.raw("olga").hello()
        for who, denied in ((all_of_it, False), (few, True)):
            found = [leaves(each) for each in entries(filtered(who, "<sessions/>"), "sessions", "session")]
            assert any("positive.source" in row for row in found) != denied
            assert any(row["index"] == "1" for row in found) != denied and len(found) > 20
            assert (entries(filtered(who, "<statistics/>"), "statistics", "counter") == []) == denied
            assert len(entries(filtered(who, "<tables/>"), "tables", "table")) > 80


class Link:
    """What a process says to omad that is no omad-session: frames of fields."""

    HELLO, CALL, NEXT = 1, 2, 3
    DATA, DATA_END = 6, 7

    def __init__(self, agent, user):
        self.socket = socket.socket(socket.AF_UNIX)
        self.socket.settimeout(PATIENCE)
        self.socket.connect(str(agent.socket))
        self.ask(self.HELLO, user, "-", "2")
        self.answer()

    def ask(self, word, *fields):
        text = b"".join(struct.pack("<I", len(field)) + field.encode() for field in fields)
        self.socket.sendall(struct.pack("<II", len(text), word) + text)

    def answer(self):
        length, word = struct.unpack("<II", self.exactly(8))
        return word, self.exactly(length)

    def exactly(self, count):
        bytes_ = b""
        while len(bytes_) < count:
            piece = self.socket.recv(count - len(bytes_))
            assert piece, "omad has closed the connection"
            bytes_ += piece
        return bytes_

    def get(self, *places):
        """All data that these places lead to."""
        self.ask(self.CALL, BASE, "get", *(field for place in places for field in ("want", place)))
        data = b""
        while (answer := self.answer())[0] == self.DATA:
            data += answer[1]
            self.ask(self.NEXT)
        assert answer == (self.DATA_END, b"")
        return data


def test_what_is_asked_of_a_denied_leaf_tells_nothing(engine):
    """A place's condition leaves entries out before the rules do: not for those who may not read its leaf."""
    with agent_without_ssh(engine, observer=["olga", "otto"]) as agent:
        deny_otto(agent, "sessions/e:session/e:index")
        sessions = f"{{{STATE}}}engine/sessions"
        whole, few = Link(agent, "olga"), Link(agent, "otto")
        number = whole.get(sessions).count(b"<session>")
        assert number > 20
        for condition, there in (("?index=1", 1), ("?index=4294967295", 0)):
            assert whole.get(sessions + condition).count(b"<session>") == there
            assert few.get(sessions + condition).count(b"<session>") == number
        assert b"<index>" in whole.get(sessions) and b"<index>" not in few.get(sessions)


def memory_of(pid, name="VmHWM"):
    return int(re.search(rf"{name}:\s+(\d+) kB", pathlib.Path(f"/proc/{pid}/status").read_text())[1])


def count_sessions(session, body):
    """How many sessions an answer has, which is not kept."""
    session.send(f'<rpc xmlns="{BASE}" message-id="1"><get>{body}</get></rpc>')
    count, rest = 0, b""
    while not rest.endswith(END_1_0):
        piece = rest + session.socket.recv(1 << 20)
        count += piece.count(b"<session><index>") - rest.count(b"<session><index>")
        rest = piece[-32:]
    return count


def test_a_full_table_is_walked():
    with engine_place() as engine:
        engine.scenario.write_text(f"""\
session:
  - {{repeat: {SESSIONS}, index: {{from: 0, step: 1}}, valid: 1, aging_time: 600,
     positive: {{source: {{from: 10.0.0.0, step: 1}}, destination: 192.0.2.1, source_port: 1000, destination_port: 80,
                protocol: 6}}}}
""")
        engine.start()
        with agent_without_ssh(engine) as agent:
            session = agent.raw().hello()
            wanted = f'<filter><engine xmlns="{STATE}"><{{}}/></engine></filter>'
            assert count_sessions(session, wanted.format("tables")) == 0
            pids = [agent.process.pid, session.process.pid]
            before = [memory_of(pid) for pid in pids]
            worker = memory_of(worker_of(agent), "RssAnon")
            assert count_sessions(session, wanted.format("sessions")) == SESSIONS
            # Some 70 MB have gone through. What a sanitizer holds back for a while is its own.
            after = [memory_of(pid) for pid in pids]
            assert SANITIZED or all(now < then + 2048 for now, then in zip(after, before)), (before, after)
            assert SANITIZED or memory_of(worker_of(agent), "RssAnon") < worker + 2048
            # One of them by its key, or by another number: the others are not even told to the session.
            for predicate, found in (("e:index='4000'", ["4000"]), ("e:index='4000'][e:valid='false'", []), ("e:nat-index=7", [])):
                told = selected(session, f"/e:engine/e:sessions/e:session[{predicate}]/e:index")
                assert [leaves(each)["index"] for each in entries(told, "sessions", "session")] == found
            inner = "<sessions><session><index>4000</index></session></sessions>"
            assert [leaves(each)["index"] for each in entries(filtered(session, inner), "sessions", "session")] == ["4000"]
            # Who does not read on holds nobody up, and nothing is kept for it.
            session.send(f'<rpc xmlns="{BASE}" message-id="1"><get>{wanted.format("sessions")}</get></rpc>')
            other = agent.raw().hello()
            assert entries(filtered(other, "<tables/>"), "tables", "table")
            assert SANITIZED or memory_of(agent.process.pid) < before[0] + 2048
        engine.stop()

"""Alarms (RFC 8632) and notifications (RFC 5277, RFC 6470) over NETCONF."""

import datetime
import os
import re
import signal
import time

import pytest
from ncclient.xml_ import to_ele

from conftest import BIN, engine_on, engine_place, run, wait_until
from netconf import BASE, agent_of, data_text, error_in, yanglint
from test_netconf_access import agent_without_ssh, worker_of
from test_netconf_state import SANITIZED, memory_of

NOTIFICATION = "urn:ietf:params:xml:ns:netconf:notification:1.0"
MANAGEMENT = "urn:ietf:params:xml:ns:netmod:notification"
EVENTS = "urn:ietf:params:xml:ns:yang:ietf-netconf-notifications"
ALARMS = "urn:ietf:params:xml:ns:yang:ietf-alarms"
TYPES = "urn:tavrix:params:xml:ns:yang:tavrix-alarms"
STATE = "urn:tavrix:params:xml:ns:yang:tavrix-engine-state"

# A table of 64 entries (trunk) that is 50 % full.
SCENARIO = "trunk:\n  - {repeat: 32, trunk_id: {from: 0, step: 1}}\n"


@pytest.fixture(scope="module")
def engine():
    with engine_on(SCENARIO) as place:
        yield place


@pytest.fixture
def agent(engine):
    with agent_without_ssh(engine, "--alarm-period", "1") as agent:
        yield agent


def subscribe(session, body=""):
    """The reply to create-subscription."""
    return session.rpc(f'<create-subscription xmlns="{NOTIFICATION}">{body}</create-subscription>')


def subscribed(agent, body="", user="listener"):
    session = agent.raw(user).hello()
    reply = subscribe(session, body)
    assert "<ok/>" in reply, reply
    return session


def event_in(message):
    """(time, name, {leaf: text}) of a notification."""
    root = to_ele(message)
    assert root.tag == f"{{{NOTIFICATION}}}notification" and len(root) == 2, message
    assert re.fullmatch(r"\d{4}-\d\d-\d\dT\d\d:\d\d:\d\d\.\d{3}Z", root[0].text), message
    return root[0].text, root[1].tag, {each.tag.rpartition("}")[2]: each.text for each in root[1]}


def next_event(session):
    return event_in(session.message().decode())


def next_of(session, *names):
    """The next notification of these names; others are passed over."""
    while True:
        when, tag, leaves = next_event(session)
        if tag.rpartition("}")[2] in names:
            return when, tag.rpartition("}")[2], leaves


def names_until(session, last):
    names = []
    while not names or names[-1] != last:
        names.append(next_event(session)[1].rpartition("}")[2])
    return names


def alarms(session, inner=""):
    data = data_text(session.rpc(f'<get><filter><alarms xmlns="{ALARMS}">{inner}</alarms></filter></get>'))
    return to_ele(f'<data xmlns="{BASE}">{data}</data>')


def alarm_list(session):
    """The alarms, by type and resource: (is-cleared, severity, [severity of each change, the last one first])."""
    found = {}
    for alarm in alarms(session, "<alarm-list/>").iter(f"{{{ALARMS}}}alarm"):
        kind = alarm.findtext(f"{{{ALARMS}}}alarm-type-id").rpartition(":")[2]
        resource = alarm.findtext(f"{{{ALARMS}}}resource").replace("tavrix-engine-state:", "")
        found[kind, resource] = (alarm.findtext(f"{{{ALARMS}}}is-cleared"), alarm.findtext(f"{{{ALARMS}}}perceived-severity"), [
            change.findtext(f"{{{ALARMS}}}perceived-severity") for change in alarm.findall(f"{{{ALARMS}}}status-change")])
    return found


# Sessions and the configuration


def test_sessions_begin_and_end(agent):
    session = subscribed(agent)
    listener = session
    for how, reason in (("close", "closed"), ("drop", "dropped"), ("kill", "killed")):
        other = agent.raw("visitor").hello()
        when, name, start = next_of(listener, "netconf-session-start")
        assert start["username"] == "visitor" and start["source-host"] == "192.0.2.7"
        assert abs(datetime.datetime.fromisoformat(when) - datetime.datetime.now(datetime.timezone.utc)).seconds < 60
        if how == "close":
            other.rpc("<close-session/>")
        elif how == "drop":
            other.process.kill()
        else:
            admin = agent.raw("operator").hello()
            number = next_of(listener, "netconf-session-start")[2]["session-id"]
            assert "<ok/>" in admin.rpc(f'<kill-session><session-id>{start["session-id"]}</session-id></kill-session>')
            assert other.ended()[0] == 1
        end = next_of(listener, "netconf-session-end")[2]
        assert (end["session-id"], end["termination-reason"]) == (start["session-id"], reason)
        assert end.get("killed-by") == (number if how == "kill" else None)


def test_a_session_that_is_idle_too_long(engine):
    with agent_without_ssh(engine, "--idle-time", "1") as agent:
        listener = subscribed(agent)
        agent.raw("sleeper").hello()
        assert next_of(listener, "netconf-session-end")[2]["termination-reason"] == "timeout"


def test_the_rules_are_read_again(agent):
    listener = subscribed(agent)
    agent.process.send_signal(signal.SIGHUP)
    _, tag, leaves = next_event(listener)
    while not tag.endswith("}netconf-config-change"):
        _, tag, leaves = next_event(listener)
    assert tag == f"{{{EVENTS}}}netconf-config-change" and leaves["datastore"] == "running"


# create-subscription


def test_what_is_refused(agent):
    session = agent.raw().hello()
    soon = (datetime.datetime.now(datetime.timezone.utc) + datetime.timedelta(days=1)).isoformat()
    where = "/nc:rpc/op:create-subscription/op:"
    for body, tag, path in [
        ("<stream>SYSLOG</stream>", "invalid-value", where + "stream"),
        ("<startTime>yesterday</startTime>", "invalid-value", where + "startTime"),
        (f"<startTime>{soon}</startTime>", "bad-element", where + "startTime"),
        ("<stopTime>2026-01-01T00:00:00Z</stopTime>", "missing-element", where + "startTime"),
        ("<startTime>2026-01-02T00:00:00Z</startTime><stopTime>2026-01-01T00:00:00Z</stopTime>", "bad-element",
         where + "stopTime"),
        ("<colour/>", "unknown-element", where[:-4]),
        ("<stream>NETCONF</stream><stream>NETCONF</stream>", "bad-element", where + "stream"),
        ("<filter/><filter/>", "bad-element", where + "filter"),
        ('<filter type="xpath" select="/x["/>', "invalid-value", where + "filter"),
        ('<filter type="xpath" select="/n:netconf-session-start"/>', "invalid-value", where + "filter"),
    ]:
        reply = subscribe(session, body)
        assert error_in(reply)[1:3] == (tag, path), (body, reply)
        if tag in ("bad-element", "missing-element"):
            assert f"<bad-element>{path.rpartition(':')[2]}</bad-element>" in reply
    assert "<ok/>" in subscribe(session, "<stream>NETCONF</stream>")
    assert error_in(subscribe(session))[1] == "operation-failed"
    streams = data_text(session.rpc(f'<get><filter><netconf xmlns="{MANAGEMENT}"/></filter></get>'))
    assert "<name>NETCONF</name>" in streams and "<replaySupport>true</replaySupport>" in streams


def test_filters(agent):
    by_path = subscribed(agent, f'<filter type="xpath" xmlns:n="{EVENTS}" '
                                "select=\"/n:netconf-session-end[n:termination-reason='closed']\"/>")
    by_tree = subscribed(agent, f'<filter type="subtree"><netconf-session-end xmlns="{EVENTS}">'
                                "<termination-reason>closed</termination-reason></netconf-session-end></filter>")
    for user in ("one", "two"):
        session = agent.raw(user).hello()
        if user == "two":
            session.rpc("<close-session/>")
        else:
            session.process.kill()
            wait_until(lambda: [line for line in agent.recorded("LOGOUT") if line["user"] == "one"], "the end of the first")
    for listener in (by_path, by_tree):
        # Whole, not only what the filter names.
        _, tag, leaves = next_event(listener)
        assert tag == f"{{{EVENTS}}}netconf-session-end" and leaves["username"] == "two" and leaves["session-id"]


def test_replay(agent):
    agent.raw("before").hello().rpc("<close-session/>")
    wait_until(lambda: agent.recorded("LOGOUT"), "its end")
    listener = subscribed(agent, "<startTime>2026-01-01T00:00:00Z</startTime>")
    told = []
    while not told or told[-1][1] != f"{{{MANAGEMENT}}}replayComplete":
        told.append(next_event(listener))
    sessions = [(tag.rpartition("}")[2], leaves["username"]) for _, tag, leaves in told if "session" in tag]
    assert sessions == [("netconf-session-start", "before"), ("netconf-session-end", "before"),
                        ("netconf-session-start", "listener")]
    assert [when for when, _, _ in told] == sorted(when for when, _, _ in told)
    agent.raw("after").hello()
    assert next_of(listener, "netconf-session-start")[2]["username"] == "after"
    # From the time of an event on, that one is told.
    at = next(when for when, tag, _ in told if tag.endswith("netconf-session-end"))
    later = subscribed(agent, f"<startTime>{at}</startTime>")
    assert next_event(later)[::2] == (at, told[[when for when, _, _ in told].index(at)][2]) or next_event(later)[0] == at


def test_a_subscription_that_stops(agent):
    now = datetime.datetime.now(datetime.timezone.utc)
    # In the past: the replay, and that is all.
    session = subscribed(agent, "<startTime>2026-01-01T00:00:00Z</startTime><stopTime>2026-01-02T00:00:00Z</stopTime>")
    assert names_until(session, "notificationComplete") == ["replayComplete", "notificationComplete"]
    # However far the times are.
    far = subscribed(agent, "<startTime>1969-12-31T23:59:59Z</startTime><stopTime>9999-12-31T23:59:59Z</stopTime>")
    assert names_until(far, "replayComplete")[-1] == "replayComplete"
    # Soon: what comes until then. The session goes on, and may subscribe again.
    stop = (now + datetime.timedelta(seconds=2)).isoformat()
    assert "<ok/>" in subscribe(session, f"<startTime>{now.isoformat()}</startTime><stopTime>{stop}</stopTime>")
    agent.raw("early").hello()
    names = names_until(session, "notificationComplete")
    assert names.count("replayComplete") == names.count("notificationComplete") == 1 and "netconf-session-start" in names
    assert datetime.datetime.now(datetime.timezone.utc) >= datetime.datetime.fromisoformat(stop)
    agent.raw("late").hello()
    assert "<data/>" in session.rpc("<get-config><source><running/></source></get-config>")
    assert "<ok/>" in subscribe(session)


def test_requests_between_notifications(agent):
    listener = subscribed(agent)
    for _ in range(20):
        agent.raw("visitor").hello()
        listener.send(f'<rpc xmlns="{BASE}" message-id="1"><get/></rpc>')
    answers = events = 0
    while answers < 20 or events < 20:
        message = listener.message()
        answers += message.startswith(b"<rpc-reply") and message.endswith(b"</rpc-reply>")
        events += b"netconf-session-start" in message and message.startswith(b"<notification")


def test_rules_of_access_keep_notifications_back(engine):
    with agent_without_ssh(engine, "--alarm-period", "0", administrator=["operator"], observer=["olga"]) as agent:
        rules = agent.rules / "aa.xml"
        rules.write_text("""\
<nacm xmlns="urn:ietf:params:xml:ns:yang:ietf-netconf-acm"><rule-list><name>a</name><group>observer</group>
  <rule><name>no</name><module-name>ietf-netconf-notifications</module-name>
    <notification-name>netconf-session-start</notification-name><action>deny</action></rule></rule-list></nacm>
""")
        rules.chmod(0o600)
        agent.process.send_signal(signal.SIGHUP)
        wait_until(lambda: agent.recorded("RULES"), "the rules to be read")
        olga = subscribed(agent, "<startTime>2026-01-01T00:00:00Z</startTime>", "olga")
        assert names_until(olga, "replayComplete") == ["netconf-config-change", "replayComplete"]
        agent.raw("visitor").hello().rpc("<close-session/>")
        assert next_event(olga)[1] == f"{{{EVENTS}}}netconf-session-end"
        counted = agent.raw().hello().rpc('<get><filter><nacm xmlns="urn:ietf:params:xml:ns:yang:ietf-netconf-acm"/></filter></get>')
        assert int(re.search(r"<denied-notifications>(\d+)<", counted)[1]) >= 3


def test_who_does_not_read_harms_nobody(agent):
    """More events than the log keeps: the slow one has missed some when it reads, and cost nothing meanwhile."""
    slow, quick = subscribed(agent, user="slow"), subscribed(agent, user="quick")
    slow.process.send_signal(signal.SIGSTOP)
    before = memory_of(agent.process.pid, "VmRSS")
    heard = 0
    for _ in range(40):
        for _ in range(100):
            agent.process.send_signal(signal.SIGHUP)
            next_of(quick, "netconf-config-change")
            heard += 1
    assert heard == 4000
    # The log itself has 4,096 events.
    assert SANITIZED or memory_of(agent.process.pid, "VmRSS") < before + 8192
    slow.process.send_signal(signal.SIGCONT)
    assert next_of(slow, "netconf-config-change")


def test_with_a_client_of_others(engine):
    with agent_of(engine.arena) as agent, agent.connect() as session:
        session.create_subscription()
        with agent.connect():
            pass
        for name in ("netconf-session-start", "netconf-session-end"):
            event = session.take_notification(timeout=60)
            while name not in event.notification_xml:
                event = session.take_notification(timeout=60)
            assert "<username>operator</username>" in event.notification_xml


# Alarms


def test_a_table_above_its_threshold(engine):
    trunk = ("table-usage", "/engine/tables/table[name='trunk']")
    with agent_without_ssh(engine, "--alarm-period", "1", "--alarm-threshold", "60", "--alarm-clear", "50") as agent:
        listener = subscribed(agent)
        assert "<tables>" in agent.raw().hello().rpc("<get/>")  # so that there is a worker
        for entries, change in ((45, "major"), (64, "critical"), (32, "cleared")):
            set_trunks(engine, agent, entries)
            leaves = next_of(listener, "alarm-notification")[2]
            assert leaves["resource"].endswith("table[tavrix-engine-state:name='trunk']")
            assert (leaves["alarm-type-id"], leaves["perceived-severity"]) == ("tavrix-alarms:table-usage", change)
            assert leaves["alarm-text"].startswith("the table trunk is ")
        session = agent.raw().hello()
        assert alarm_list(session)[trunk] == ("true", "critical", ["cleared", "critical", "major"])
        summary = alarms(session, "<summary/>")
        assert {row[0].text: row[3].text for row in summary.iter(f"{{{ALARMS}}}alarm-summary")}["critical"] == "1"
        # By an identity whatever its prefix, and by a path.
        inner = f'<alarm-list><alarm><alarm-type-id xmlns:t="{TYPES}">t:table-usage</alarm-type-id></alarm></alarm-list>'
        assert [each.findtext(f"{{{ALARMS}}}is-cleared") for each in alarms(session, inner).iter(f"{{{ALARMS}}}alarm")] == ["true"]
        path = "/a:alarms/a:alarm-list/a:alarm[a:is-cleared='false']"
        assert "<alarm>" not in session.rpc(f'<get><filter type="xpath" xmlns:a="{ALARMS}" select="{path}"/></get>')
        checked = yanglint(data_text(session.rpc("<get/>")), agent.directory)
        assert (checked.code, checked.err) == (0, "") and '"ietf-alarms:alarms"' in checked.out


def set_trunks(engine, agent, entries):
    """Another engine at the same place, with so many trunks; the agent does not look in between."""
    worker = worker_of(agent)
    os.kill(worker, signal.SIGSTOP)
    engine.stop()
    engine.scenario.write_text(SCENARIO.replace("32", str(entries)))
    engine.start()
    os.kill(worker, signal.SIGCONT)


def test_the_engine_goes_and_comes():
    gone = ("engine-gone", "/engine")
    with engine_place() as engine:
        engine.scenario.write_text(SCENARIO.replace("32", "60"))
        with agent_without_ssh(engine, "--alarm-period", "1") as agent:
            session = agent.raw().hello()
            wait_until(lambda: alarm_list(session).get(gone) == ("false", "critical", ["critical"]), "the alarm")
            listener = subscribed(agent)
            engine.start()
            changes = [next_of(listener, "alarm-notification")[2] for _ in range(2)]
            assert [(each["alarm-type-id"], each["perceived-severity"]) for each in changes] == [
                ("tavrix-alarms:engine-gone", "cleared"), ("tavrix-alarms:table-usage", "major")]
            engine.process.kill()
            engine.process.communicate()
            engine.process = None
            changes = [next_of(listener, "alarm-notification")[2] for _ in range(2)]
            assert [(each["alarm-type-id"], each["perceived-severity"]) for each in changes] == [
                ("tavrix-alarms:engine-gone", "critical"), ("tavrix-alarms:table-usage", "cleared")]
            assert alarm_list(session)[gone] == ("false", "critical", ["critical", "cleared", "critical"])


def test_a_worker_that_dies_is_no_engine_that_is_gone():
    with engine_on(SCENARIO) as engine:
        with agent_without_ssh(engine, "--alarm-period", "1") as agent:
            session = agent.raw().hello()
            wait_until(lambda: "<tables>" in session.rpc(f'<get><filter><engine xmlns="{STATE}"><tables/></engine></filter></get>'),
                       "a worker")
            worker = worker_of(agent)
            os.kill(worker, signal.SIGSTOP)
            wait_until(lambda: has_unread(worker), "a look to be under way")
            os.kill(worker, signal.SIGKILL)
            wait_until(lambda: pids_of_workers(agent) not in ([], [worker]), "another worker")
            listener = subscribed(agent, "<startTime>2026-01-01T00:00:00Z</startTime>")
            assert "alarm-notification" not in names_until(listener, "replayComplete")
            engine.process.kill()
            engine.process.communicate()
            engine.process = None
            assert next_of(listener, "alarm-notification")[2]["alarm-type-id"] == "tavrix-alarms:engine-gone"


def has_unread(pid):
    """Whether a socket of the process has bytes that it has not read."""
    rows = [line.split() for line in run("ss", "-xpH").out.splitlines() if f"pid={pid}," in line]
    assert rows
    return any(int(row[2]) > 0 for row in rows)


def pids_of_workers(agent):
    return [int(pid) for pid in run("pgrep", "-P", str(agent.process.pid)).out.split()]


def test_the_agents_own_alarms(engine):
    with agent_without_ssh(engine, "--max-sessions", "10") as agent:
        listener = subscribed(agent)
        others = [agent.raw(f"user{i}").hello() for i in range(9)]
        assert agent.raw("refused").ended()[0] == 1
        leaves = next_of(listener, "alarm-notification")[2]
        assert (leaves["alarm-type-id"], leaves["perceived-severity"]) == ("tavrix-alarms:sessions-used-up", "major")
        for session in others[:2]:
            session.rpc("<close-session/>")
        assert next_of(listener, "alarm-notification")[2]["perceived-severity"] == "cleared"
        # The record's place is a directory for a while.
        agent.record.rename(agent.directory / "aside")
        agent.record.mkdir()
        agent.process.send_signal(signal.SIGHUP)
        leaves = next_of(listener, "alarm-notification")[2]
        assert (leaves["alarm-type-id"], leaves["perceived-severity"]) == ("tavrix-alarms:record-lost", "major")
        agent.record.rmdir()
        agent.process.send_signal(signal.SIGHUP)
        assert next_of(listener, "alarm-notification")[2]["perceived-severity"] == "cleared"
        agent.process.send_signal(signal.SIGTERM)
        _, said = agent.process.communicate(timeout=60)
        assert agent.process.returncode == 0 and said.startswith("omad: the record loses lines: ")
        agent.process = None
        agent.kill()
        agent.start(ssh=False)


def test_bad_levels(tmp_path):
    for words, message in [(["--alarm-threshold", "100"], '--alarm-threshold "100" is not a number from 1 to 99'),
                           (["--alarm-threshold", "50", "--alarm-clear", "60"],
                            "alarms would be cleared above 60 % and raised above 50 %"),
                           (["--alarm-period", "-1"], '--alarm-period "-1" is not a number from 0 to 86400')]:
        run(BIN / "omad", "--socket", tmp_path / "s", *words).failed(message, tool="omad")


def test_every_schema_can_be_had(agent):
    session = agent.raw().hello()
    schemas = re.findall(r"<schema><identifier>([^<]*)</identifier><version>([^<]*)</version>", session.rpc("<get/>"))
    assert {"tavrix-software-fwd", "tavrix-engine-state", "tavrix-alarms", "ietf-alarms", "nc-notifications", "notifications",
            "ietf-netconf-notifications", "ietf-yang-library"} <= {name for name, _ in schemas}
    for name, version in schemas:
        reply = session.rpc('<get-schema xmlns="urn:ietf:params:xml:ns:yang:ietf-netconf-monitoring">'
                            f"<identifier>{name}</identifier><version>{version}</version></get-schema>")
        assert f"module {name} {{" in reply and "<rpc-error>" not in reply, name
    library = session.rpc('<get><filter><yang-library xmlns="urn:ietf:params:xml:ns:yang:ietf-yang-library"/></filter></get>')
    assert {name for name, _ in schemas} == set(re.findall(r"module><name>([^<]*)</name>", library))
    assert "<feature>alarm-history</feature><feature>alarm-summary</feature><deviation>tavrix-alarms</deviation>" in library

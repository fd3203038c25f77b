"""Who may do what over NETCONF, what is written down of it, and how many may ask for how much."""

import getpass
import itertools
import os
import re
import signal
import socket

import pytest

from conftest import BIN, PATIENCE, ROOT, engine_on, run, short_directory, wait_until
from netconf import BASE, MODEL, NACM, Agent, error_in, recorded_line, rules_of

MONITORING = "urn:ietf:params:xml:ns:yang:ietf-netconf-monitoring"
USERS = {"observer": ["olga"], "operator": ["otto"], "administrator": ["ada"]}
# What changes something, and who may do it.
CHANGES = {
    "cmdline": "operator", "sysstat-reset": "operator", "debug-pkt": "operator", "trace-pkt-set": "operator",
    "egn-dbg-switch-set": "operator", "egn-stat-switch-set": "operator", "egn-detect-threshold-set": "administrator",
    "egn-stat-reset": "operator", "perf-task-reset": "operator", "perf-task-set": "operator",
    "perf-mode-set": "administrator", "reset-session": "administrator", "reset-server-map": "administrator",
}
MANDATORY = {"cmdline": "<cmdline>diag</cmdline>", "trace-pkt-query": "<index>0</index>"}


def rpcs():
    return re.findall(r"^  rpc ([a-z0-9-]+) \{", (ROOT / "yang" / "tavrix-software-fwd.yang").read_text(), re.M)


@pytest.fixture(scope="module")
def engine():
    with engine_on("statistics:\n  arp miss: 3\n") as place:
        yield place


@pytest.fixture(scope="module")
def agent(engine):
    """An agent without an sshd, in whose rules there is one user of each role, and eve has none."""
    with agent_without_ssh(engine, **USERS) as agent:
        yield agent


class agent_without_ssh:
    def __init__(self, engine, *words, **groups):
        self.engine, self.words, self.groups = engine, words, groups

    def __enter__(self):
        self.place = short_directory()
        self.agent = Agent(self.engine.arena, self.place.__enter__())
        if self.groups:
            for file in self.agent.rules.iterdir():
                file.unlink()
            self.agent.rules.rmdir()
            self.agent.rules = rules_of(self.agent.directory, **self.groups)
        return self.agent.start(*self.words, ssh=False)

    def __exit__(self, kind, *_):
        try:
            if kind is None:
                self.agent.stop()
        finally:
            self.agent.kill()
            self.place.__exit__(kind, *_)


def command(rpc, parameters=None):
    return f'<{rpc} xmlns="{MODEL}">{MANDATORY.get(rpc, "") if parameters is None else parameters}</{rpc}>'


@pytest.mark.parametrize("role, user", [("observer", "olga"), ("operator", "otto"), ("administrator", "ada"), ("none", "eve")])
def test_what_the_ready_roles_may(agent, role, user):
    session = agent.raw(user).hello()
    allowed = {"observer": (), "none": (), "operator": ("operator",), "administrator": ("operator", "administrator")}[role]
    assert set(CHANGES) <= set(rpcs())
    for rpc in rpcs():
        answer = session.rpc(command(rpc))
        if rpc not in CHANGES or CHANGES[rpc] in allowed:
            assert "access-denied" not in answer, (rpc, answer)
        else:
            assert error_in(answer) == ("application", "access-denied", f"/nc:rpc/op:{rpc}", f"{user} may not run {rpc}")
    assert error_in(session.rpc("<kill-session><session-id>4294967295</session-id></kill-session>"))[1] == (
        "invalid-value" if role == "administrator" else "access-denied")
    assert "<data/>" in session.rpc("<get-config><source><running/></source></get-config>")
    session.close()


def counter(session, name):
    answer = session.rpc(f'<get><filter><nacm xmlns="{NACM}"/></filter></get>')
    found = re.search(f"<{name}>(\\d+)</{name}>", answer)
    return found and int(found[1])


def test_refusals_are_counted_for_administrators(agent):
    ada, olga = agent.raw("ada").hello(), agent.raw("olga").hello()
    before = counter(ada, "denied-operations")
    for _ in range(3):
        assert olga.error(command("reset-session"))[1] == "access-denied"
    assert counter(ada, "denied-operations") == before + 3
    assert counter(ada, "denied-data-writes") == 0 and counter(ada, "denied-notifications") == 0
    assert counter(olga, "denied-operations") is None, "the model denies it to everybody whom no rule permits it"


def test_sessions_are_told_and_ended(agent):
    ada, olga = agent.raw("ada").hello(), agent.raw("olga", address="fe80::17%eth0").hello()
    told = ada.rpc(f'<get><filter><netconf-state xmlns="{MONITORING}"><sessions><session><username>olga</username></session>'
                   "</sessions></netconf-state></filter></get>")
    number = re.findall(r"<session-id>(\d+)</session-id><transport>netconf-ssh</transport><username>olga</username>"
                        r"<source-host>fe80::17%eth0</source-host><login-time>\d{4}-", told)[-1]
    mine = int(number) - 1
    assert "<ok/>" in ada.rpc(f"<kill-session><session-id>{number}</session-id></kill-session>")
    assert olga.message() == b""
    assert olga.ended() == (1, f"omad-session: session {mine} of ada has ended it\n")
    for none in (number, mine, "0", "x", ""):
        assert ada.error(f"<kill-session><session-id>{none}</session-id></kill-session>")[1:3] == (
            "invalid-value", "/nc:rpc/op:kill-session/op:session-id")
    wait_until(lambda: [line for line in agent.recorded("LOGOUT") if line["session"] == number], "the end in the record")


def write_rules(agent, text, name="rules.xml"):
    file = agent.directory / name
    file.write_text(text)
    file.chmod(0o600)
    return file


SOME = f"""<nacm xmlns="{NACM}">
  <groups>
    <group><name>g</name><user-name>olga</user-name></group>
  </groups>
  <rule-list>
    <name>l</name>
    <group>g</group>
    <rule><name>r</name>%s<action>%s</action></rule>
  </rule-list>
</nacm>
"""


def test_data_rules_and_reading_them_again(engine):
    with short_directory() as directory:
        agent = Agent(engine.arena, directory)
        agent.rules = write_rules(agent, SOME % (
            f'<path xmlns:m="{MODEL}">/m:software-fwd/m:fwd-statistics-infos/m:fwd-statistics-info/m:fwd-memory-usage</path>',
            "deny"))
        try:
            agent.start(ssh=False)
            olga, eve = agent.raw("olga").hello(), agent.raw("eve").hello()
            get = f'<get><filter><software-fwd xmlns="{MODEL}"/></filter></get>'
            assert "<fwd-memory-usage>" in eve.rpc(get)
            answer = olga.rpc(get)
            assert "<packet-drop-nobuff>" in answer and "fwd-memory-usage" not in answer
            assert "fwd-memory-usage" not in olga.rpc('<get><filter type="xpath" select="//*"/></get>')
            assert "<fwd-memory-usage>" in eve.rpc(
                f'<get><filter type="xpath" xmlns:m="{MODEL}" select="//m:fwd-memory-usage"/></get>')
            # A mistake leaves the rules as they are.
            agent.rules.write_text(SOME % ("<rpc-name>tbl-usages</rpc-name>", "deny"))
            agent.process.send_signal(signal.SIGHUP)
            wait_until(lambda: agent.recorded("RULES"), "the rules to be read")
            wrong = (f'{agent.rules}:8: there is no operation "tbl-usages" (did you mean tbl-usage?)')
            assert agent.recorded("RULES")[0]["text"] == f"the old rules stay: {wrong}"
            assert "fwd-memory-usage" not in olga.rpc(get) and "TableName" in olga.rpc(command("tbl-usage"))
            agent.rules.write_text(SOME % ("<rpc-name>tbl-usage</rpc-name>", "deny"))
            agent.process.send_signal(signal.SIGHUP)
            wait_until(lambda: len(agent.recorded("RULES")) == 2, "the rules to be read again")
            assert olga.error(command("tbl-usage"))[1] == "access-denied"
            assert "<fwd-memory-usage>" in olga.rpc(get) and "TableName" in eve.rpc(command("tbl-usage"))
            agent.process.send_signal(signal.SIGTERM)
            _, said = agent.process.communicate(timeout=PATIENCE)
            assert (agent.process.returncode, said) == (0, f"omad: {wrong}; the old rules stay\n")
            agent.process = None
        finally:
            agent.kill()


JSON = '{"ietf-netconf-acm:nacm": {"exec-default": "deny", "groups": {"group": [{"name": "g", "user-name": ["olga"]}]}}}\n'


def test_rules_in_json(engine):
    with short_directory() as directory:
        agent = Agent(engine.arena, directory)
        agent.rules = write_rules(agent, JSON, "rules.json")
        try:
            session = agent.start(ssh=False).raw("olga").hello()
            assert session.error(command("tbl-usage"))[1] == "access-denied"
            assert session.error("<get/>")[1] == "access-denied"
            assert "<ok/>" in session.rpc("<close-session/>")
            agent.stop()
        finally:
            agent.kill()


def test_without_rules_nobody_changes_anything(engine):
    with short_directory() as directory:
        agent = Agent(engine.arena, directory)
        agent.words = lambda: [BIN / "omad", "--arena", engine.arena, "--socket", agent.socket, "--log", agent.record]
        try:
            session = agent.start(ssh=False).raw(None).hello()
            assert session.error(command("sysstat-reset", "<type>all</type>")) == (
                "application", "access-denied", "/nc:rpc/op:sysstat-reset", f"{getpass.getuser()} may not run sysstat-reset")
            assert "TableName" in session.rpc(command("tbl-usage"))
            agent.stop()
        finally:
            agent.kill()


@pytest.mark.parametrize("text, line, message", [
    ("", 1, "the file is empty (write the container nacm of ietf-netconf-acm)"),
    ("not XML", 1, ""),
    (f'<nacm xmlns="{NACM}">\n  <groups>\n    <group><nam>g</nam></group>\n  </groups>\n</nacm>\n', 3, "nam"),
    (f'<nacm xmlns="{NACM}">\n  <read-default>\n  maybe</read-default>\n</nacm>\n', 3, "maybe"),
    (SOME % ("<module-name>tavrix-software-fw</module-name>", "deny"), 8,
     'there is no module "tavrix-software-fw" (did you mean tavrix-software-fwd?)'),
    (SOME % ("<module-name>ietf-netconf</module-name><rpc-name>tbl-usage</rpc-name>", "deny"), 8,
     'there is no operation "tbl-usage" in the module ietf-netconf ("*" means all of them)'),
    (SOME % ("<notification-name>rain</notification-name>", "deny"), 8, 'there is no notification "rain"'),
    (SOME % (f'<path xmlns:m="{MODEL}">/m:software-fwd/m:cpu</path>', "deny"), 8, "/m:software-fwd/m:cpu"),
    (SOME % (f'<path xmlns:m="{MODEL}">/m:tbl-usage</path>', "deny"), 8, '"/tavrix-software-fwd:tbl-usage" is an operation and no data'),
    (SOME % ("<rpc-name>tbl-usage</rpc-name><access-operations>read</access-operations>", "deny"), 8,
     'the rule "r" never applies: its access-operations lack exec'),
    (SOME % ("<notification-name>*</notification-name><access-operations>exec</access-operations>", "deny"), 8,
     'the rule "r" never applies: its access-operations lack read'),
    (SOME % ("<path>/</path><access-operations>exec</access-operations>", "deny"), 8, "lack create, read, update and delete"),
    (SOME.replace("<name>g</name>", "<name>night</name>").replace("<group>g</group>", "<group>nigth</group>") % ("", "deny"), 7,
     'there is no group "nigth" (did you mean night?)'),
    (SOME % ("", "allow"), 8, "allow"),
    ((SOME % ("", "")).replace("<action></action>", ""), 8, 'Mandatory node "action"'),
    ('{"ietf-netconf-acm:nacm": {"rule-list": [{"name": "l",\n"rule": [{"name": "one"}]}]}}\n', 2, 'Mandatory node "action"'),
])
def test_mistakes_in_rules(engine, text, line, message):
    with short_directory() as directory:
        file = directory / "rules.xml"
        file.write_text(text)
        file.chmod(0o600)
        done = run(BIN / "omad", "--arena", engine.arena, "--socket", directory / "s", "--log", directory / "log", "--nacm", file)
        done.failed(f"omad: {file}:{line}: ", message, tool="omad")


@pytest.mark.parametrize("mode, message", [(0o604, "everybody may read these rules (chmod o-r"),
                                           (0o620, "others may write these rules (chmod go-w")])
def test_rights_of_rules(engine, mode, message):
    with short_directory() as directory:
        file = directory / "rules.xml"
        file.write_text(SOME % ("", "deny"))
        file.chmod(mode)
        for path in (file, directory):
            run(BIN / "omad", "--arena", engine.arena, "--socket", directory / "s", "--log", directory / "log", "--nacm",
                path).failed(f"{file}: {message} {file})", tool="omad")
        file.chmod(0o600)
        (directory / "open").mkdir()
        (directory / "open").chmod(0o777)
        run(BIN / "omad", "--arena", engine.arena, "--socket", directory / "s", "--log", directory / "log", "--nacm",
            directory / "open").failed(f"{directory / 'open'}: others may write these rules", tool="omad")


def test_the_record(engine):
    with agent_without_ssh(engine, **USERS) as agent:
        ada = agent.raw("ada", address="2001:db8::5").hello()
        olga = agent.raw("olga", address="not an address\n<85>1").hello()
        assert "<ok/>" in ada.rpc(command("sysstat-reset", "<type>all</type>"))
        assert ada.error(command("reset-session", "<type>ipv5</type>"))[1] == "invalid-value"
        assert olga.error(command("reset-session", "<protocol>17</protocol><type>ipv6</type>"))[1] == "access-denied"
        assert "TableName" in olga.rpc(command("tbl-usage"))
        # An answer that only tells how it is asked is one all the same, and has changed nothing.
        assert "egn help" in ada.rpc(command("egn-dbg-switch-set", "<level>error</level>"))
        # Nothing of what clients send ends a line, a value or the data, or passes for a parameter.
        assert ada.error(command("reset-session", "<protocol>17 type=ipv6</protocol>"))[1] == "invalid-value"
        forged = 'diag "] x\\\n&lt;85>1 2026-01-01T00:00:00Z h omad 1 LOGIN [omad@32473 user="root"] \x85&#x2028;&#x9b;2J\t&#x202e;!'
        ada.rpc(command("cmdline", f"<cmdline>{forged}</cmdline>"))
        ada.rpc(command("cmdline", f'<cmdline>diag {"x" * 5000}</cmdline>'))
        assert "<ok/>" in ada.rpc("<close-session/>")
        ada.ended()
        olga.close()
        olga.ended()
        wait_until(lambda: len(agent.recorded("LOGOUT")) == 2, "both ends in the record")
        lines = [{name: line.get(name) for name in ("event", "user", "address", "operation", "parameters", "result")}
                 for line in agent.recorded()]
        assert lines[:6] == [
            {"event": "LOGIN", "user": "ada", "address": "2001:db8::5", "operation": None, "parameters": None, "result": None},
            {"event": "LOGIN", "user": "olga", "address": "-", "operation": None, "parameters": None, "result": None},
            {"event": "COMMAND", "user": "ada", "address": "2001:db8::5", "operation": "sysstat-reset", "parameters": "type=all",
             "result": "ok"},
            {"event": "COMMAND", "user": "ada", "address": "2001:db8::5", "operation": "reset-session", "parameters": "type=ipv5",
             "result": 'refused: "ipv5" is no value for "type" (it takes ipv4|ipv6)'},
            {"event": "REFUSED", "user": "olga", "address": "-", "operation": "reset-session",
             "parameters": "protocol=17 type=ipv6", "result": "access-denied"},
            {"event": "COMMAND", "user": "ada", "address": "2001:db8::5", "operation": "egn-dbg-switch-set",
             "parameters": "level=error", "result": "failed: its answer only says what was wrong"},
        ]
        assert lines[6]["parameters"] == 'protocol="17 type=ipv6"' and lines[6]["result"].startswith("refused: ")
        assert lines[7]["parameters"] == (r'cmdline="diag \"] x\\?<85>1 2026-01-01T00:00:00Z h omad 1 LOGIN [omad@32473 user=\"root\"] '
                                          '???2J??!"')
        assert lines[8]["parameters"] == f"cmdline=\"diag {'x' * (2048 - 14)}..."
        assert [line["event"] for line in lines[9:]] == ["LOGOUT", "LOGOUT"]
        assert {line["reason"] for line in agent.recorded("LOGOUT")} == {"closed by the client", "the connection was lost"}
        assert {line["priority"] for line in agent.recorded()} == {84, 85}
        assert agent.record.stat().st_mode & 0o777 == 0o600
        # The file may be moved away.
        agent.record.rename(f"{agent.record}.1")
        agent.process.send_signal(signal.SIGHUP)
        wait_until(lambda: agent.record.exists() and agent.recorded("RULES"), "a new file")


def test_a_log_daemon_gets_the_record(engine):
    with short_directory() as directory, socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM) as daemon:
        daemon.bind(str(directory / "log"))
        daemon.settimeout(PATIENCE)
        agent = Agent(engine.arena, directory)
        agent.record = directory / "log"
        try:
            agent.start(ssh=False).raw("ada").hello().close()
            lines = [recorded_line(daemon.recv(65536).decode()) for _ in range(2)]
            assert [(line["event"], line["user"], line["address"]) for line in lines] == [
                ("LOGIN", "ada", "192.0.2.7"), ("LOGOUT", "ada", "192.0.2.7")]
            agent.stop()
        finally:
            agent.kill()


def test_names_that_are_none(agent):
    for name in ("a\nb", "x" * 65, "a b", "-x", "ä"):
        session = agent.raw(name)
        code, said = session.ended()
        assert code == 1 and said.startswith("omad-session: ") and "is no user's name" in said and said.count("\n") == 1, said
    assert agent.recorded("REFUSED")[-1]["user"] == "-"


@pytest.mark.skipif(os.geteuid() != 0, reason="only root can be another user")
def test_processes_of_others_speak_for_themselves(engine):
    nobody = ["setpriv", "--reuid", "65534", "--regid", "65534", "--clear-groups"]
    with short_directory() as directory:
        directory.chmod(0o711)
        for carrier, words in ((False, ()), (True, ("--carrier", "nobody"))):
            agent = Agent(engine.arena, directory) if not carrier else agent
            agent.start(*words, ssh=False)
            try:
                agent.socket.chmod(0o666)
                session = agent.raw("ada", wrapper=nobody)
                if carrier:
                    assert "TableName" in session.hello().rpc(command("tbl-usage"))
                else:
                    assert session.ended() == (1, 'omad-session: processes of nobody may not speak for "ada" (--carrier)\n')
                    assert (agent.recorded("REFUSED")[-1]["user"], agent.recorded("REFUSED")[-1]["wanted"]) == ("nobody", "ada")
                own = agent.raw(None, wrapper=nobody).hello()
                assert own.error(command("perf-mode-set"))[3] == "nobody may not run perf-mode-set"
                session.close()
                agent.stop()
            finally:
                agent.kill()


def test_limits_of_sessions(engine):
    with agent_without_ssh(engine, "--max-sessions", "3", "--max-user-sessions", "2") as agent:
        first, second = agent.raw("a").hello(), agent.raw("a").hello()
        assert agent.raw("a").ended() == (1, "omad-session: a has 2 sessions already, and may have no more (--max-user-sessions)\n")
        third = agent.raw("b").hello()
        assert agent.raw("c").ended() == (
            1, "omad-session: there are 3 sessions already, and no more are served (--max-sessions)\n")
        for session in (first, second, third):
            assert "TableName" in session.rpc(command("tbl-usage"))
        first.close()
        first.ended()
        wait_until(lambda: agent.recorded("LOGOUT"), "one to leave")
        agent.raw("c").hello()
        assert [line["user"] for line in agent.recorded("REFUSED")] == ["a", "c"]


def test_who_only_connects_keeps_nobody_out(engine):
    with agent_without_ssh(engine, "--max-sessions", "2") as agent:
        silent = [socket.socket(socket.AF_UNIX) for _ in range(100)]
        for connection in silent:
            connection.connect(str(agent.socket))
        assert "TableName" in agent.raw().hello().rpc(command("tbl-usage"))
        for connection in silent:
            connection.close()


def test_limit_of_idle_time(engine):
    with agent_without_ssh(engine, "--idle-time", "1") as agent:
        session = agent.raw().hello()
        half = agent.raw().hello()
        half.socket.sendall(b"<rpc ")  # and nothing more
        for each in (session, half):
            assert each.message() in (b"", b"<rpc ")
            assert each.ended() == (1, "omad-session: the session asked nothing for 1 s\n")
    with agent_without_ssh(engine, "--idle-time", "0") as agent:
        assert "TableName" in agent.raw().hello().rpc(command("tbl-usage"))


def test_limit_of_messages(engine):
    with agent_without_ssh(engine, "--max-message", "4096") as agent:
        session = agent.raw().hello()
        assert session.error("x" * 4096) == ("rpc", "too-big", None, "a message has at most 4096 bytes")
        assert "TableName" in session.rpc(command("tbl-usage"))


def worker_of(agent):
    children = [int(pid) for pid in run("pgrep", "-P", str(agent.process.pid)).out.split()]
    found = [pid for pid in children if b"--worker" in open(f"/proc/{pid}/cmdline", "rb").read()]
    assert len(found) == 1
    return found[0]


def wait_for_commands(session, looks, commands):
    """Until omad has got so many, which are on their way: its statistics count them, and each look at themselves."""
    state = f'<get><filter><netconf-state xmlns="{MONITORING}"><statistics/></netconf-state></filter></get>'
    wait_until(lambda: int(re.search(r"<in-rpcs>(\d+)<", session.rpc(state))[1]) == commands + next(looks), "all to be asked")


def test_limit_of_waiting_commands(engine):
    with agent_without_ssh(engine, "--max-waiting", "2", "--alarm-period", "0") as agent:
        sessions = [agent.raw().hello() for _ in range(4)]
        assert "TableName" in sessions[0].rpc(command("tbl-usage"))
        worker = worker_of(agent)
        os.kill(worker, signal.SIGSTOP)
        try:
            for session in sessions[:3]:  # one runs, two wait
                session.send(f'<rpc xmlns="{BASE}" message-id="5">{command("tbl-usage")}</rpc>')
            wait_for_commands(sessions[3], itertools.count(1), 4)
            assert sessions[3].error(command("session-statistics")) == (
                "application", "resource-denied", "/nc:rpc/op:session-statistics", "2 commands wait already; ask again later")
            assert sessions[3].error(command("sysstat-reset", "<type>all</type>"))[1] == "resource-denied"
            assert [(line["operation"], line["result"]) for line in agent.recorded("COMMAND")] == [
                ("sysstat-reset", "refused: 2 commands wait already; ask again later")]
        finally:
            os.kill(worker, signal.SIGCONT)
        for session in sessions[:3]:
            assert "TableName" in session.message().decode()


def test_commands_that_the_agent_does_not_live_to_answer_are_recorded(engine):
    with agent_without_ssh(engine, "--alarm-period", "0") as agent:
        sessions = [agent.raw().hello() for _ in range(3)]
        assert "TableName" in sessions[0].rpc(command("tbl-usage"))
        os.kill(worker_of(agent), signal.SIGSTOP)
        looks = itertools.count(1)
        for session, kind, commands in ((sessions[0], "all", 2), (sessions[1], "normal", 3)):
            session.send(f'<rpc xmlns="{BASE}" message-id="5">{command("sysstat-reset", f"<type>{kind}</type>")}</rpc>')
            wait_for_commands(sessions[2], looks, commands)
        agent.stop()
        assert [(line["parameters"], line["result"]) for line in agent.recorded("COMMAND")] == [
            ("type=all", "failed: the agent stopped before it had its result"),
            ("type=normal", "failed: the agent stopped before its turn came")]
        agent.start(ssh=False)


def test_a_record_on_a_full_disk(engine):
    """What was done is done; that it could not be written down is told once."""
    with short_directory() as directory:
        agent = Agent(engine.arena, directory)
        agent.record = "/dev/full"
        agent.start(ssh=False)
        for _ in range(3):
            session = agent.raw().hello()
            assert "<text" in session.rpc(command("tbl-usage"))
            session.kill()
        agent.process.terminate()
        _, err = agent.process.communicate(timeout=PATIENCE)
        assert agent.process.returncode == 0
        assert err.startswith("omad: the record loses lines: ") and err.count("\n") == 1 and "No space left" in err, err

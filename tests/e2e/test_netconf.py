"""The management agent over NETCONF: sessions, every command, state data, errors, and clients that misbehave."""

import getpass
import os
import pathlib
import re
import shutil
import signal
import socket
import subprocess
import sys
import threading

import pytest
from ncclient.operations.rpc import RPCError
from ncclient.transport.errors import AuthenticationError

from conftest import BIN, PATIENCE, ROOT, engine_place, run, wait_until
from netconf import (BASE, END_1_0, MODEL, Agent, agent_of, call, data_text, error_in, error_of, make_key, short_directory,
                     yanglint)

pytestmark = pytest.mark.filterwarnings("ignore::DeprecationWarning")  # ncclient's own


@pytest.fixture(scope="module")
def site():
    """(engine, agent) on the campus scenario."""
    with engine_place() as engine:
        engine.scenario.unlink()
        engine.scenario = ROOT / "examples" / "campus.yaml"
        engine.start()
        with agent_of(engine.arena) as agent:
            yield engine, agent
        engine.stop()


@pytest.fixture(scope="module")
def session(site):
    with site[1].connect() as session:
        yield session


def handlers():
    """The commands, as the data model lists them."""
    text = (ROOT / "yang" / "tavrix-software-fwd.yang").read_text()
    return re.findall(r"^  rpc ([a-z0-9-]+) \{", text, re.M)


# What the agent says without sending a text, and what takes a parameter to answer.
SILENT = {"sysstat-reset", "debug-pkt", "reset-session", "reset-server-map"}
REQUIRED = {"cmdline": {"cmdline": "diag search nqpTable 1 0 1001 0 0"}, "trace-pkt-query": {"index": "0"},
            "sysstat-query": {"type": "all"}}
# What wants parameters, and tells which.
TELLING_HOW = {"egn-info-query", "egn-dbg-switch-set", "egn-stat-switch-set", "egn-detect-threshold-set",
               "egn-stat-reset", "perf-task-set"}
# What changes between two calls that follow each other.
MOVING = {"arpmiss", "ndmiss", "frag-reass", "ipv4-frag-reass", "ipv6-frag-reass", "perf-task-query",
          "query-server-map", "sysstat-query", "memory-usage"}


def test_hello_tells_the_protocol_and_the_model(session):
    capabilities = list(session.server_capabilities)
    for known in ("urn:ietf:params:netconf:base:1.0", "urn:ietf:params:netconf:base:1.1",
                  "urn:ietf:params:netconf:capability:xpath:1.0", "urn:ietf:params:netconf:capability:notification:1.0",
                  "urn:ietf:params:netconf:capability:interleave:1.0"):
        assert known in capabilities
    assert any(each.startswith("urn:ietf:params:netconf:capability:yang-library:1.1?") for each in capabilities)


def test_schema_list_and_get_schema(session):
    state = session.get(filter=("subtree", '<netconf-state xmlns="urn:ietf:params:xml:ns:yang:'
                                           'ietf-netconf-monitoring"><schemas/></netconf-state>')).xml
    assert "<identifier>tavrix-software-fwd</identifier><version>2026-11-22</version>" in state
    text = session.get_schema("tavrix-software-fwd", "2026-11-22").data
    for command in handlers():
        assert f"rpc {command} {{" in text
    assert "list fwd-statistics-info" in text
    with pytest.raises(RPCError) as refused:
        session.get_schema("no-such-model")
    assert (refused.value.tag, refused.value.message) == ("invalid-value", 'there is no schema "no-such-model"')


@pytest.mark.parametrize("rpc", handlers())
def test_each_command_answers_as_the_tool_does(site, session, rpc):
    engine, _ = site
    parameters = REQUIRED.get(rpc, {})
    answer = call(session, rpc, **parameters)
    if rpc in SILENT:
        assert answer is None
        return
    assert answer
    if rpc in MOVING:
        return
    words = [f"{name}={value}" for name, value in parameters.items()]

    def is_same():
        shown = engine.cli("agent", rpc, *words)
        # The tool calls it a failure when the answer only says how the command is asked; over NETCONF it is the text.
        assert (shown.code, shown.err) == (int(rpc in TELLING_HOW), ""), shown
        return shown.out.rstrip("\n") == call(session, rpc, **parameters).rstrip("\n")

    # Sessions that a reset has told to end are going for a while.
    wait_until(is_same, f"the same answer of both to {rpc}")


def test_parameters_reach_the_handlers(session):
    assert call(session, "frag-reass", source_ip="fe80::1") == "  Input error, source-ip is fe80::1, but ip-type is 4"
    assert call(session, "query-session", inside_source_ip="203.0.113.254") == "Current Total Sessions : 0\n"


def test_state_data(site, session):
    def leaves(xml):
        return dict(re.findall(r"<([a-z-]+)>([^<]*)</", xml))

    whole = leaves(session.get(filter=("subtree", f'<software-fwd xmlns="{MODEL}"/>')).xml)
    assert sorted(whole) == ["cpu-id", "fwd-memory-usage", "packet-drop-nobuff", "slot-id"]
    assert (whole["slot-id"], whole["cpu-id"]) == ("0", "0")
    document = site[0].cli("agent", "packet-drop-nobuff")
    assert f"<packet-drop-nobuff>{whole['packet-drop-nobuff']}</packet-drop-nobuff>" in document.out

    entry = "<fwd-statistics-infos><fwd-statistics-info>{}</fwd-statistics-info></fwd-statistics-infos>"

    def select(inner):
        xml = f'<software-fwd xmlns="{MODEL}">{entry.format(inner)}</software-fwd>'
        return leaves(session.get(filter=("subtree", xml)).xml)

    assert select("<slot-id>0</slot-id><fwd-memory-usage/>") == {
        "slot-id": "0", "cpu-id": "0", "fwd-memory-usage": whole["fwd-memory-usage"]}
    assert select("<cpu-id>0</cpu-id>") == whole
    assert select("<cpu-id>1</cpu-id>") == {}
    assert select("<slot-id/>") == {"slot-id": "0", "cpu-id": "0"}
    path = ("xpath", ({"f": MODEL}, "/f:software-fwd//f:packet-drop-nobuff"))
    assert leaves(session.get(filter=path).xml) == {
        "slot-id": "0", "cpu-id": "0", "packet-drop-nobuff": whole["packet-drop-nobuff"]}
    everything = session.get().xml
    assert "<fwd-memory-usage>" in everything and "<yang-library" in everything
    assert "<data/>" in session.get_config("running").xml


def test_bad_requests_get_errors_and_the_session_goes_on(session):
    for rpc, leaves, tag, message in [
        ("query-session", {"protocol": "256"}, "invalid-value", '"256" is no value for "protocol" (it takes 0..255)'),
        ("query-session", {"session_number": "-1"}, "invalid-value", '"-1" is no value for "session-number" (it takes 0..255)'),
        ("perf-mode-set", {"enable": "maybe"}, "invalid-value", '"maybe" is no value for "enable" (it takes true|false)'),
        ("debug-pkt", {"source_mac": "00:11:22:33:44:55"}, "invalid-value",
         '"00:11:22:33:44:55" is no value for "source-mac" (it takes a MAC address, as in 00e0-fc12-3456)'),
        ("debug-pkt", {"discard_type": "arp mis"}, "invalid-value",
         '"arp mis" is no value for "discard-type" (it takes a reason for which packets are dropped, or all '
         "(did you mean arp miss?))"),
        ("trace-pkt-query", {"index": "4"}, "invalid-value", '"4" is no value for "index" (it takes 0..3)'),
        ("sysstat-reset", {"type": "al"}, "invalid-value", '"al" is no value for "type" (it takes all|normal|discard|error)'),
        ("tbl-usage", {"colour": "blue"}, "unknown-element", 'tbl-usage has no parameter "colour"; it takes none'),
        ("reset-session", {"vlan_id": "7"}, "unknown-element", 'reset-session has no parameter "vlan-id"; it takes: '),
        ("reset-session", {"inside_source_ip": "10.0.0.256"}, "invalid-value",
         '"10.0.0.256" is no value for "inside-source-ip" (it takes an IPv4 or IPv6 address)'),
        ("reset-session", {"inside_source_ip": "192.0.2.0/24"}, "invalid-value", "(it takes an IPv4 or IPv6 address)"),
        ("reset-session", {"inside_source_ip": "0.0.0.0"}, "invalid-value",
         '"0.0.0.0" is no value for "inside-source-ip" (it takes another value than 0, which filters nothing)'),
        ("reset-session", {"protocol": "0"}, "invalid-value", "(it takes another value than 0, which filters nothing)"),
        ("reset-session", {"service_id": "gopher"}, "invalid-value",
         "(it takes http|dns|ftp|ras|telnet|rtsp|sip|pptp|https|ssh|dns-tcp)"),
        ("reset-session", {"type": "ipv5"}, "invalid-value", "(it takes ipv4|ipv6)"),
        ("reset-session", {"feature": "foo"}, "invalid-value", "(it takes sac)"),
        ("reset-server-map", {"type": "napt"}, "invalid-value", "(it takes all|aspf|nat-server|no-pat)"),
        ("reset-server-map", {"ip": "2001:db8::1"}, "invalid-value", "(it takes an IPv4 address)"),
        ("cmdline", {}, "missing-element", 'cmdline needs the parameter "cmdline"'),
        ("format-disk", {}, "operation-not-supported", 'there is no operation "format-disk" in tavrix-software-fwd'),
    ]:
        found, text = error_of(session, rpc, **leaves)
        assert found == tag and message in text, (rpc, found, text)
    with pytest.raises(RPCError) as refused:
        session.lock("running")
    assert refused.value.tag == "operation-not-supported"
    assert "TableName" in call(session, "tbl-usage")


def test_errors_say_where(site):
    client = site[1].raw().hello()
    command = f'xmlns="{MODEL}"'
    assert client.error(f"<reset-session {command}><type>ipv5</type></reset-session>") == (
        "application", "invalid-value", "/nc:rpc/op:reset-session/op:type", '"ipv5" is no value for "type" (it takes ipv4|ipv6)')
    assert client.error(f"<tbl-usage {command}><x/></tbl-usage>")[1:3] == ("unknown-element", "/nc:rpc/op:tbl-usage")
    assert client.error(f"<cmdline {command}/>")[1:3] == ("missing-element", "/nc:rpc/op:cmdline/op:cmdline")
    assert client.error(f"<arpmiss {command}><next-hop>192.0.2.1</next-hop><next-hop>192.0.2.1</next-hop></arpmiss>")[1:3] == (
        "bad-element", "/nc:rpc/op:arpmiss/op:next-hop")
    assert client.error('<edit-config/>')[:3] == ("protocol", "operation-not-supported", "/nc:rpc/op:edit-config")
    assert client.error('<x xmlns="urn:x"/>')[:3] == ("protocol", "operation-not-supported", "/nc:rpc/op:x")
    for body, tag, path in [
        ("<kill-session><session-id>9</session-id><session-id>1</session-id></kill-session>", "bad-element",
         "/nc:rpc/op:kill-session/op:session-id"),
        ("<kill-session><session-id>9</session-id><x/></kill-session>", "unknown-element", "/nc:rpc/op:kill-session"),
        ("<get><filter/><filter/></get>", "bad-element", "/nc:rpc/op:get/op:filter"),
        ('<get><filter type="xpath" select="["/></get>', "invalid-value", "/nc:rpc/op:get/op:filter"),
        ('<get><filter type="xpath" xmlns:x="urn:x" select="/x:a"/></get>', "invalid-value", "/nc:rpc/op:get/op:filter"),
        ("<get-config/>", "missing-element", "/nc:rpc/op:get-config"),
        ("<get-config><source><startup/></source></get-config>", "invalid-value", "/nc:rpc/op:get-config/op:source"),
        ("<close-session><x/></close-session>", "unknown-element", "/nc:rpc/op:close-session"),
        # A slip in a name that holds something, a word of the agent's own, and what is written beside the parameters.
        ("<get><filtre><x/></filtre></get>", "unknown-element", "/nc:rpc/op:get"),
        ("<get><want>x</want></get>", "unknown-element", "/nc:rpc/op:get"),
        ("<get-config><source><running/></source><x><y/></x></get-config>", "unknown-element", "/nc:rpc/op:get-config"),
        ("<kill-session><session-id>9</session-id><x><y/></x></kill-session>", "unknown-element", "/nc:rpc/op:kill-session"),
        ("<kill-session><session-id><x/></session-id></kill-session>", "invalid-value",
         "/nc:rpc/op:kill-session/op:session-id"),
        ("<edit-config><target><running/></target><config><x/></config></edit-config>", "operation-not-supported",
         "/nc:rpc/op:edit-config"),
        (f"<reset-session {command}>192.0.2.254</reset-session>", "bad-element", "/nc:rpc/op:reset-session"),
        (f"192.0.2.254<reset-session {command}/>", "bad-element", "/nc:rpc"),
        ('<action xmlns="urn:ietf:params:xml:ns:yang:1"><x xmlns="urn:x"/></action>', "operation-not-supported",
         "/nc:rpc/op:action"),
    ]:
        assert client.error(body)[1:3] == (tag, path), body
    assert client.error("") == ("rpc", "missing-element", "/nc:rpc", "the <rpc> holds no operation")
    bad = client.rpc(f"<tbl-usage {command}><x/></tbl-usage>")
    assert f'<error-path xmlns:nc="{BASE}" xmlns:op="{MODEL}">' in bad and "<bad-element>x</bad-element>" in bad
    # A text goes back cut, whatever it holds.
    long = "&lt;\n" * 5000
    bad = client.rpc(f"<reset-session {command}><type>{long}</type></reset-session>")
    assert len(bad) < 1500 and "\n" not in bad
    client.close()


def test_malformed_messages(site):
    _, agent = site
    # Before the hello, instead of it, and after it.
    for garbage in (b"\x00\xff\x00", b"GET / HTTP/1.1\r\n\r\n]]>]]>", b"]]>]]>", b""):
        client = agent.raw()
        client.socket.sendall(garbage)
        client.socket.shutdown(socket.SHUT_WR)
        code, said = client.ended()
        assert code == (1 if END_1_0 in garbage else 0) and (said == "") == (code == 0), said
    client = agent.raw().hello()
    for body in ("<unclosed>", "]]>", "&amp", "\x01"):
        assert client.error(body)[:2] == ("rpc", "operation-failed")
    client.send("")
    assert error_in(client.message().decode())[1] == "operation-failed"
    assert "TableName" in client.rpc(f'<tbl-usage xmlns="{MODEL}"/>')
    client.socket.sendall(b"<rpc message-id=")  # and vanishes in mid-message
    client.close()
    client = agent.raw().hello("1.1")
    for text in ("this is no XML", "<a>", "<!DOCTYPE a><a/>", "<a/><a/>", " "):
        assert error_in(client.chunked(text))[:2] == ("rpc", "malformed-message")
    assert error_in(client.chunked("<x/>"))[:2] == ("rpc", "unknown-element")
    assert error_in(client.chunked('<rpc message-id="1"/>'))[:2] == ("rpc", "unknown-namespace")
    assert error_in(client.chunked(f'<rpc xmlns="{BASE}"><get/></rpc>'))[:2] == ("rpc", "missing-attribute")
    assert "TableName" in client.chunked(f'<rpc xmlns="{BASE}" message-id="1"><tbl-usage xmlns="{MODEL}"/></rpc>')
    client.socket.sendall(b"\n#0\n")
    assert error_in(client.chunks())[1] == "malformed-message"
    assert client.ended() == (1, "omad-session: the client's chunks cannot be told apart\n")
    with agent.connect() as session:
        assert "TableName" in call(session, "tbl-usage")


def test_messages_that_are_too_big(site):
    _, agent = site
    huge = f'<rpc xmlns="{BASE}" message-id="88"><cmdline xmlns="{MODEL}"><cmdline>{"x" * (3 << 20)}</cmdline></cmdline></rpc>'
    most = f"a message has at most {1 << 20} bytes"
    client = agent.raw().hello()
    client.send(huge)
    answer = client.message().decode()
    assert error_in(answer) == ("rpc", "too-big", None, most) and 'message-id="88"' in answer and len(answer) < 1000
    client.close()
    client = agent.raw().hello("1.1")
    assert error_in(client.chunked(huge)) == ("rpc", "too-big", None, most)
    long = f'<rpc xmlns="{BASE}" message-id="1"><cmdline xmlns="{MODEL}"><cmdline>{"x" * 65536}</cmdline></cmdline></rpc>'
    assert error_in(client.chunked(long))[:3] == ("protocol", "too-big", "/nc:rpc/op:cmdline")
    deep = f'<rpc xmlns="{BASE}" message-id="1">{"<a>" * 100000}{"</a>" * 100000}</rpc>'
    assert error_in(client.chunked(deep))[:2] == ("rpc", "malformed-message")
    assert "TableName" in client.chunked(f'<rpc xmlns="{BASE}" message-id="1"><tbl-usage xmlns="{MODEL}"/></rpc>')
    client.close()


def test_clients_that_vanish_or_do_not_read_keep_nobody_waiting(site):
    _, agent = site
    idle = agent.raw().hello()
    deaf = agent.raw().hello()
    schema = '<get-schema xmlns="urn:ietf:params:xml:ns:yang:ietf-netconf-monitoring"><identifier>ietf-netconf' \
             "</identifier></get-schema>"
    deaf.socket.setblocking(False)
    with pytest.raises(BlockingIOError):
        for number in range(10000):  # answers of some 30 KB each, of which it reads none
            deaf.send(f'<rpc xmlns="urn:ietf:params:xml:ns:netconf:base:1.0" message-id="{number}">{schema}</rpc>')
    for _ in range(5):
        vanishing = agent.raw().hello()
        vanishing.send(f'<rpc xmlns="urn:ietf:params:xml:ns:netconf:base:1.0" message-id="1">{schema}</rpc>')
        vanishing.close()
    with agent.connect() as session:
        assert "TableName" in call(session, "tbl-usage")
    assert "TableName" in idle.rpc(f'<tbl-usage xmlns="{MODEL}"/>')
    deaf.close()
    idle.close()


def test_64_sessions_at_once(site):
    _, agent = site
    answers, failures = [], []
    together = threading.Barrier(64)

    def talk(number):
        try:
            client = agent.raw().hello()
            together.wait(60)
            for turn in range(5):
                reply = client.rpc(f'<tbl-usage xmlns="{MODEL}"/>', number=turn)
                assert f'message-id="{turn}"' in reply and "CAP_TABLE_FIB" in reply, reply[:300]
            answers.append(number)
            client.close()
        except Exception as failure:  # told by the assertion below, in the test's own thread
            failures.append(repr(failure))

    threads = [threading.Thread(target=talk, args=(number,)) for number in range(64)]
    for thread in threads:
        thread.start()
    for thread in threads:
        thread.join()
    assert failures == [] and sorted(answers) == list(range(64))


def test_logins(site):
    _, agent = site
    stranger = make_key(agent.directory / "stranger")
    with pytest.raises(AuthenticationError):
        agent.connect(key_filename=str(stranger))
    with pytest.raises(AuthenticationError):
        agent.connect(username="somebody")
    with pytest.raises(AuthenticationError):
        agent.connect(key_filename=None, password="operator")


def test_plain_ssh_speaks_netconf(site):
    _, agent = site
    hello = (f'<hello xmlns="{BASE}"><capabilities><capability>urn:ietf:params:netconf:base:1.0</capability></capabilities>'
             "</hello>]]>]]>")
    asked = f'<rpc xmlns="{BASE}" message-id="1"><tbl-usage xmlns="{MODEL}"/></rpc>]]>]]>'
    closed = f'<rpc xmlns="{BASE}" message-id="2"><close-session/></rpc>]]>]]>'
    done = subprocess.run(
        ["ssh", "-F", "none", "-i", agent.user_key, "-p", str(agent.port), "-o", "IdentitiesOnly=yes", "-o", "LogLevel=ERROR",
         "-o", "StrictHostKeyChecking=no", "-o", "UserKnownHostsFile=/dev/null", f"{getpass.getuser()}@127.0.0.1", "-s",
         "netconf"], input=hello + asked + closed, capture_output=True, text=True, timeout=PATIENCE, check=False)
    assert (done.returncode, done.stderr) == (0, "")
    messages = done.stdout.split("]]>]]>")
    assert len(messages) == 4 and "<hello" in messages[0] and "CAP_TABLE_FIB" in messages[1] and "<ok/>" in messages[2]
    # The key is for that alone: no shell, no command, no other subsystem.
    done = subprocess.run(
        ["ssh", "-F", "none", "-i", agent.user_key, "-p", str(agent.port), "-o", "IdentitiesOnly=yes", "-o", "LogLevel=ERROR",
         "-o", "StrictHostKeyChecking=no", "-o", "UserKnownHostsFile=/dev/null", f"{getpass.getuser()}@127.0.0.1", "id"],
        input=hello + closed, capture_output=True, text=True, timeout=PATIENCE, check=False)
    assert "uid=" not in done.stdout and "<hello" in done.stdout


@pytest.mark.parametrize("kind", ["ed25519", "rsa"])
def test_other_kinds_of_keys(site, kind):
    engine, _ = site
    with short_directory() as directory:
        agent = Agent(engine.arena, directory)
        agent.host_key = make_key(agent.directory / f"host-{kind}", kind)
        agent.user_key = make_key(agent.directory / f"user-{kind}", kind)
        try:
            with agent.start().connect() as session:
                assert "TableName" in call(session, "tbl-usage")
            agent.stop()
        finally:
            agent.kill()


def test_statistics_reset_lasts_between_requests():
    with engine_place() as engine:
        engine.scenario.write_text("statistics:\n  arp miss: [3, 4]\n")
        engine.start()
        with agent_of(engine.arena) as agent, agent.connect() as session:
            assert "arp miss: 7" in call(session, "sysstat-query", type="discard")
            assert call(session, "sysstat-reset", type="discard") is None
            assert "arp miss" not in call(session, "sysstat-query", type="discard")
        engine.stop()


def test_engine_goes_and_comes_back():
    with engine_place() as engine:
        engine.start()
        with agent_of(engine.arena) as agent, agent.connect() as session:
            assert "CAP_TABLE_CTRLIF_MAP" in call(session, "tbl-usage")
            engine.end(signal.SIGKILL)
            tag, message = error_of(session, "tbl-usage")
            assert tag == "operation-failed" and "engine" in message, message
            with pytest.raises(RPCError):
                session.get(filter=("subtree", f'<software-fwd xmlns="{MODEL}"/>'))
            assert "<yang-library" in session.get(filter=(
                "subtree", '<yang-library xmlns="urn:ietf:params:xml:ns:yang:ietf-yang-library"/>')).xml
            engine.start()
            assert "CAP_TABLE_CTRLIF_MAP" in call(session, "tbl-usage")
            # A worker that dies is replaced as well.
            worker = [pid for pid in children_of(agent.process.pid) if b"--worker" in command_of(pid)]
            assert len(worker) == 1
            os.kill(worker[0], signal.SIGKILL)
            assert "CAP_TABLE_CTRLIF_MAP" in call(session, "tbl-usage")
        engine.stop()


def children_of(pid):
    return [int(child) for child in run("pgrep", "-P", str(pid)).out.split()]


def command_of(pid):
    return pathlib.Path(f"/proc/{pid}/cmdline").read_bytes()


def test_command_line_mistakes(site):
    engine, agent = site
    with short_directory() as directory:
        stranger = make_key(directory / "stranger")
        readable = make_key(directory / "readable")
        readable.chmod(0o644)
        no_key = directory / "no-key"
        no_key.write_text("no key\n")
        no_key.chmod(0o600)
        pipe = directory / "pipe"
        os.mkfifo(pipe)
        key = ["--host-key", agent.host_key, "--socket", directory / "s"]
        user = ["--user-key", f"operator={agent.user_key}.pub"]
        for words, message in [
            ([*key], "nobody could log in; name a key with --user-key USER=FILE"),
            (["--port", "1"], "nobody could log in; name a key with --user-key USER=FILE"),
            ([*key, "--user-key", "operator"], "is not of the form USER=FILE"),
            ([*key, "--user-key", "a\nb=x"], 'is no user\'s name (letters, digits and ".-_@", 64 at most)'),
            ([*key, "--user-key", "operator=/no/such"], "cannot read the key of operator, /no/such"),
            (["--host-key", "/no/such", *user], "cannot read the host key /no/such"),
            (["--host-key", readable, *user], f"others may read the host key {readable} (chmod 600 {readable})"),
            (["--host-key", no_key, *user], "is no private SSH key without a passphrase; ssh-keygen makes one"),
            ([*key, "--user-key", f"operator={no_key}"], "is no public SSH key; name the file that ends in .pub"),
            ([*key, "--user-key", f"operator={stranger}"], "is no public SSH key; name the file that ends in .pub"),
            ([*key, *user, "--user-key", f"other={agent.user_key}.pub"], "is that of operator already, and cannot be that of other"),
            ([*key, *user, "--port", "99999"], '--port "99999" is not a number from 1 to 65535'),
            ([*key, *user, "--address", "nowhere"], '"nowhere" is no address; name an IPv4 or IPv6 address of this machine'),
            ([*key, *user, "--port", str(agent.port)], f"cannot listen on 127.0.0.1:{agent.port}"),
            (["--socket", agent.socket], f"something listens on {agent.socket} already (process {agent.process.pid} of user "
             f"{getpass.getuser()}); stop that agent or name another path with --socket"),
            (["--nacm", "/no/such"], "cannot read the rules in /no/such"),
            (["--log", "/no/such/file"], "cannot write the record /no/such/file"),
            (["--log", pipe], f"cannot write the record {pipe}"),
            (["--max-sessions", "0"], '--max-sessions "0" is not a number from 1 to 100000'),
            (["--idle-time", "soon"], '--idle-time "soon" is not a number from 0 to 10000000'),
            (["--carrier", "no-such-user"], '--carrier: no user "no-such-user" is in /etc/passwd; name a number'),
            (["--bogus"], "cannot make sense of"),
        ]:
            place = [] if "--socket" in words else ["--socket", directory / "s"]
            run(BIN / "omad", "--arena", engine.arena, "--log", directory / "log", *place, *words).failed(message, tool="omad")
            assert not (directory / "s").exists() and not (directory / "s.ssh").exists(), words
    assert run(BIN / "omad", "--help").out.startswith("usage: omad ")
    for words, message in [(["--socket", "/no/such"], "no omad runs at /no/such"), (["--bogus"], "cannot make sense of"),
                           (["--socket", "x" * 200], "the socket's path has 200 characters")]:
        run(BIN / "omad-session", *words).failed(message, tool="omad-session")


OUR_MODULES = sorted((ROOT / "yang").glob("*.yang"))
CHECK_MODELS = ROOT / "tests" / "check_models.py"


def test_the_models_pass_yanglint():
    assert len(OUR_MODULES) == 3
    checked = run("yanglint", "-p", ROOT / "yang" / "ietf", *OUR_MODULES)
    assert (checked.code, checked.out, checked.err) == (0, "", "")


@pytest.mark.skipif(shutil.which("pyang") is None, reason="pyang is not installed")
def test_the_models_pass_pyang():
    checked = run("pyang", "--lint", "-p", ROOT / "yang" / "ietf", *OUR_MODULES)
    assert (checked.code, checked.out, checked.err) == (0, "", "")


def test_the_models_are_as_authors_are_asked():
    checked = run(sys.executable, CHECK_MODELS, *OUR_MODULES)
    assert (checked.code, checked.out, checked.err) == (0, "", "")


@pytest.mark.parametrize("now, then, told", [
    ("leaf source-port {", "leaf sourcePort {", '"sourcePort" is not in lower case with hyphens'),
    ("leaf source-port {", "leaf source-port-from-which-the-initiator-of-this-session-sends-its-packets {",
     "is longer than 64 characters"),
    ("      description\n        \"Source port.\";\n", "", '"leaf source-port" lacks "description"'),
    ("    reference\n      \"RFC 6991: Common YANG Data Types\";\n", "", '"import ietf-inet-types" lacks "reference"'),
    ("  organization\n    \"Tavrix\";\n", "", '"module tavrix-engine-state" lacks "organization"'),
    ("  namespace ", "  prefix eng;\n  namespace ", '"namespace" comes too late in "module"'),
    ("    leaf source-port {\n", "    leaf source-port {\n      config true;\n", '"type" comes too late in "leaf"'),
    ("          mandatory true;", "          mandatory false;", '"mandatory false" says what holds without it'),
    ("leaf source-port {", "leaf source-port {  ", "a tab, or blanks at the line's end"),
    ("  container engine {\n    config false;\n", "  container engine {\n    leaf b {\n      type int8;\n      mandatory true;\n    }\n",
     '"engine" is mandatory at the top'),
    ("Source port.", "Source port, from which the packets of this direction come to us.", "more than 72"),
    ("  revision 2026-11-22 {", "  revision 2026-11-21 {description a; reference b;}\n  revision 2026-11-22 {",
     "the latest revision is not the first one"),
])
def test_models_that_are_not(directory, now, then, told):
    text = (ROOT / "yang" / "tavrix-engine-state.yang").read_text()
    assert now in text
    (directory / "model.yang").write_text(text.replace(now, then, 1))
    checked = run(sys.executable, CHECK_MODELS, directory / "model.yang")
    assert checked.code == 1 and told in checked.out, checked


def test_yanglint_takes_the_state_data(site):
    """All of it, as a tool of others reads it by the modules that the agent names."""
    _, agent = site
    data = data_text(agent.raw().hello().rpc("<get/>"))
    checked = yanglint(data, agent.directory)
    assert checked.code == 0 and checked.err == "", checked
    for told in ("tavrix-software-fwd:software-fwd", "tavrix-engine-state:engine", "ietf-netconf-monitoring:netconf-state",
                 "ietf-netconf-acm:nacm"):
        assert f'"{told}"' in checked.out, told
    # It does look at the values.
    wrong = yanglint(data.replace("<valid>true</valid>", "<valid>yes</valid>", 1), agent.directory)
    assert wrong.code != 0 and "yes" in wrong.err

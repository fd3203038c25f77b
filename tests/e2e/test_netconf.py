"""The management agent over NETCONF: sessions, every command, state data, errors, and clients that misbehave."""

import os
import re
import signal
import subprocess
import threading

import pytest
from ncclient.operations.rpc import RPCError
from ncclient.transport.errors import AuthenticationError

from conftest import BIN, ROOT, engine_place, run
from netconf import BASE, MODEL, Agent, agent_of, call, error_of, make_key, short_directory

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


@pytest.fixture
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
                  "urn:ietf:params:netconf:capability:xpath:1.0"):
        assert known in capabilities
    assert any(each.startswith("urn:ietf:params:netconf:capability:yang-library:1.1?") for each in capabilities)


def test_schema_list_and_get_schema(session):
    state = session.get(filter=("subtree", '<netconf-state xmlns="urn:ietf:params:xml:ns:yang:'
                                           'ietf-netconf-monitoring"><schemas/></netconf-state>')).xml
    assert "<identifier>tavrix-software-fwd</identifier><version>2026-11-21</version>" in state
    text = session.get_schema("tavrix-software-fwd", "2026-11-21").data
    for command in handlers():
        assert f"rpc {command} {{" in text
    assert "list fwd-statistics-info" in text
    with pytest.raises(RPCError) as refused:
        session.get_schema("no-such-model")
    assert (refused.value.tag, refused.value.message) == ("invalid-value", "there is no schema no-such-model")


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
    shown = engine.cli("agent", rpc, *(f"{name}={value}" for name, value in parameters.items()))
    # The tool calls it a failure when the answer only says how the command is asked; over NETCONF it is the text.
    assert (shown.code, shown.err) == (int(rpc in TELLING_HOW), ""), shown
    assert shown.out.rstrip("\n") == answer.rstrip("\n")


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
    for rpc, leaves, message in [
        ("query-session", {"protocol": "256"}, 'Value "256" is out of type uint8 min/max bounds.'),
        ("query-session", {"session_number": "-1"}, 'Value "-1" is out of type uint8 min/max bounds.'),
        ("perf-mode-set", {"enable": "maybe"}, 'Invalid boolean value "maybe".'),
        ("debug-pkt", {"source_mac": "00:11:22:33:44:55"}, "Unsatisfied pattern"),
        ("tbl-usage", {"colour": "blue"}, '"colour"'),
        ("format-disk", {}, '"format-disk"'),
        ("reset-session", {"inside_source_ip": "10.0.0.256"}, 'inside-source-ip: "10.0.0.256" is not an address'),
        ("reset-session", {"inside_source_ip": "192.0.2.0/24"}, 'inside-source-ip: "192.0.2.0/24" is not an address'),
        ("reset-session", {"service_id": "gopher"}, 'service-id: "gopher" is not http, dns,'),
        ("reset-session", {"type": "ipv5"}, 'type: "ipv5" is not ipv4 or ipv6'),
        ("reset-session", {"feature": "foo"}, 'feature: "foo" is not sac'),
        ("reset-server-map", {"type": "napt"}, 'type: "napt" is not all, aspf, nat-server or no-pat'),
        ("reset-server-map", {"ip": "2001:db8::1"}, 'ip: "2001:db8::1" is not an IPv4 address'),
    ]:
        tag, text = error_of(session, rpc, **leaves)
        assert tag == "operation-failed" and message in text, (rpc, tag, text)
    assert error_of(session, "cmdline")[0] == "operation-failed"  # the handler needs its parameter
    with pytest.raises(RPCError) as refused:
        session.lock("running")
    assert refused.value.tag == "operation-not-supported"
    assert "TableName" in call(session, "tbl-usage")


def test_malformed_messages(site):
    _, agent = site
    # Before the hello, instead of it, and after it.
    for garbage in (b"\x00\xff\x00", b"GET / HTTP/1.1\r\n\r\n]]>]]>"):
        client = agent.raw()
        client.socket.sendall(garbage)
        client.close()
    client = agent.raw().hello()
    assert "rpc-error" in client.rpc("<unclosed>")
    client.close()
    client = agent.raw().hello("1.1")
    assert "<error-tag>malformed-message</error-tag>" in client.chunked("this is no XML")
    assert "TableName" in client.chunked(f'<rpc xmlns="{BASE}" message-id="1"><tbl-usage xmlns="{MODEL}"/></rpc>')
    client.close()
    client = agent.raw().hello()
    client.send("this is no XML")
    client.close()
    client = agent.raw().hello()
    client.socket.sendall(b"<rpc message-id=")  # and vanishes in mid-message
    client.close()
    with agent.connect() as session:
        assert "TableName" in call(session, "tbl-usage")


def test_clients_that_vanish_or_do_not_read_keep_nobody_waiting(site):
    _, agent = site
    idle = agent.raw().hello()
    deaf = agent.raw().hello()
    schema = '<get-schema xmlns="urn:ietf:params:xml:ns:yang:ietf-netconf-monitoring"><identifier>ietf-netconf' \
             "</identifier></get-schema>"
    deaf.socket.setblocking(False)
    try:
        for number in range(10000):  # answers of some 30 KB each, of which it reads none
            deaf.send(f'<rpc xmlns="urn:ietf:params:xml:ns:netconf:base:1.0" message-id="{number}">{schema}</rpc>')
    except BlockingIOError:
        pass
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


def test_passwords_when_configured(site):
    engine, _ = site
    hashed = subprocess.run(["openssl", "passwd", "-6", "let me in"], capture_output=True, text=True, check=True)
    with short_directory() as directory:
        (directory / "passwords").write_text(f"# the night shift\nnight:{hashed.stdout}")
        agent = Agent(engine.arena, directory).start("--password-file", directory / "passwords")
        try:
            with agent.connect(username="night", password="let me in", key_filename=None) as session:
                assert "TableName" in call(session, "tbl-usage")
            with pytest.raises(AuthenticationError):
                agent.connect(username="night", password="let me out", key_filename=None)
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
            children = run("pgrep", "-P", str(agent.process.pid)).out.split()
            assert len(children) == 1
            os.kill(int(children[0]), signal.SIGKILL)
            tag, message = error_of(session, "tbl-usage")
            assert (tag, message) == ("operation-failed", "the command ended without an answer; it may be asked again")
            assert "CAP_TABLE_CTRLIF_MAP" in call(session, "tbl-usage")
        engine.stop()


def test_command_line_mistakes(site):
    engine, agent = site
    key = ["--host-key", agent.host_key]
    user = ["--user-key", f"operator={agent.user_key}.pub"]
    for words, message in [
        ([], "no host key; name one with --host-key FILE"),
        ([*key], "nobody could log in; name a key with --user-key USER=FILE"),
        ([*key, "--user-key", "operator"], "is not of the form USER=FILE"),
        ([*key, "--user-key", "operator=/no/such"], "cannot read the key of operator, /no/such"),
        (["--host-key", "/no/such", *user], "cannot read the host key /no/such"),
        (["--host-key", __file__, *user], "is no private SSH key without a passphrase; ssh-keygen makes one"),
        ([*key, "--user-key", f"operator={__file__}"], "is no public SSH key; name the file that ends in .pub"),
        ([*key, *user, "--port", "99999"], "is no port; name one from 1 to 65535"),
        ([*key, *user, "--port", str(agent.port)], f"cannot listen on 127.0.0.1:{agent.port}"),
        ([*key, *user, "--modules", "/no/such"], "libyuma-base"),
        (["--no-ssh"], "nowhere to listen; --no-ssh needs --unix PATH"),
        (["--bogus"], "cannot make sense of"),
    ]:
        run(BIN / "omad", "--arena", engine.arena, *words).failed(message, tool="omad")
    assert run(BIN / "omad", "--help").out.startswith("usage: omad ")


def test_the_model_passes_yanglint():
    checked = run("yanglint", ROOT / "yang" / "tavrix-software-fwd.yang")
    assert (checked.code, checked.out, checked.err) == (0, "", "")

"""Each allocation of each program fails once, and with all behind it: one clear line and an exit code, or an error and the
program goes on; nothing left behind, and the next call works.

QDT_SHORT_MEMORY is how many allocations of a command fail, or "all".
"""

import re
import signal
import subprocess

import pytest

from conftest import BIN, PATIENCE, ROOT, run
from netconf import rules_of
from short_memory import FOREVER, HEAP, LINE, Heap, chosen, shared_tools
from test_netconf_access import agent_without_ssh, command
from test_netconf_events import NOTIFICATION, STATE
from web import Web

pytestmark = pytest.mark.skipif(not HEAP.exists(), reason="sanitizers have heaps of their own")

CAMPUS = ROOT / "examples" / "campus.yaml"
# Debian's libyang reads through null where some of its allocations fail while it loads modules. Programs look for room
# before that; here its own allocations do not fail, nor those of its regular expressions.
LIBYANG = "libyang,libpcre2-8"

# Words of each command; behind FILE a new file is named.
COMMANDS = {
    "diag": ["search nqpTable 26 all 0 0 0", "search nqpTable 6 0 1 2 0"],
    "pkt_trace": ["show"],
    "pmc": ["stop"],
    "perf": ["task show"],
    "tables": ["", "address"],
    "show": ["fwdif 1"],
    "list": ["arp --json", "fib --csv", "--help"],
    "fields": ["arp"],
    "usage": ["--json"],
    "find": ["10.1.0.7"],
    "explain": ["10.1.0.7"],
    "check": ["--json"],
    "diff": ["live live"],
    "regions": ["", "PKT_TRACE_CTX_PTR --json"],
    "statistics": ["drop*"],
    "export": ["FILE", "-"],
    "watch": ["-i 0.1 --times 2 usage"],
    "schema": ["arp"],
    "snapshot": ["FILE"],
    "engine": ["status"],
    "agent": ["tbl-usage", "packet-drop-nobuff", "query-session", "cmdline cmdline=usage", "debug-pkt --help"],
    "sql": ["SELECT count(*) FROM fib", "--json SELECT * FROM arp JOIN nhp LIMIT 3"],
}
# Their answers tell times, or what the system counts.
VARY = {"statistics", "watch", "engine", "export"}


@pytest.fixture
def heap(directory):
    return Heap(directory)


def test_all_commands_are_here():
    words = re.findall(r"^  ([a-z_]+) ", run(BIN / "nqecli", "--help").out, re.MULTILINE)
    assert set(words) == set(COMMANDS)


def says_one_line(result, tools):
    lines = result.err.splitlines()
    return len(lines) == 1 and result.err.endswith("\n") and lines[0].split(": ")[0] in tools


def check_short(result, whole, tools, goes_on):
    """What a program says whose memory has run out: all, when it could do without; or one line, and perhaps a part. What repeats
    a command goes on behind the line."""
    assert result.code >= 0, f"died of signal {-result.code}{result}"
    if result.code == whole.code and (result.err == whole.err or (goes_on and says_one_line(result, tools))):
        return
    if (result.code, result.err) == (1, ""):  # the library's own words
        assert result.out.strip() in ("nqecli malloc fail", "search fail", "invalid input param"), result
        return
    assert result.code in (1, 2) and says_one_line(result, tools), result


def sweep(heap, command, files, tools, vary=False):
    """Runs the command (a list, or a function of a number that makes one) again and again with a failing heap."""
    def start(number):
        for file in files():
            file.unlink()
        return run(*command, env=heap.environment())

    heap.fail(0)
    whole = start(0)
    asked, made = heap.asked(), files()
    assert whole.code in (0, 1) and asked > 0, whole
    for count in (1, FOREVER):
        for number in chosen(asked):
            heap.fail(number, count)
            result = start(number)
            check_short(result, whole, tools, vary)
            if result.code == 0 and not vary:
                assert result.out == whole.out, f"allocation {number}: another answer{result}"
            assert files() in ([], made), f"allocation {number}{result}"
            if result.code != 0:
                assert files() == [], f"allocation {number}: a file is left{result}"
    heap.fail(0)
    again = start(0)
    assert (again.code, again.err) == (whole.code, whole.err) and (vary or again.out == whole.out), again


@pytest.mark.parametrize("name", COMMANDS)
def test_nqecli(campus, directory, name):
    heap = Heap(directory, LIBYANG if name == "agent" else "")
    tool = shared_tools(directory)
    made = directory / "made"
    made.mkdir()
    for words in COMMANDS[name]:
        rest = [words] if name == "sql" and not words.startswith("-") else words.split()
        if words.startswith("--json SELECT"):
            rest = ["--json", words[len("--json "):]]
        rest = [str(made / "file") if word == "FILE" else word for word in rest]
        sweep(heap, [tool, "--arena", campus.engine.arena, name, *rest], lambda: sorted(made.iterdir()), {"nqecli"}, name in VARY)


def test_nqed_checks_scenarios(heap):
    sweep(heap, [BIN / "nqed", "--check", CAMPUS], list, {"nqed"})


def ends_well(process, ready, tool):
    """Ends a daemon that has become ready, or sees to how it could not."""
    if ready:
        process.send_signal(signal.SIGTERM)
    _, err = process.communicate(timeout=PATIENCE)
    if ready and process.returncode == 0:
        return  # else it was told so while it failed
    assert process.returncode == 2 and err.count(b"\n") == 1 and err.startswith(tool.encode() + b": "), \
        (process.returncode, err)


def sweep_starts(heap, tool, words, leftovers):
    """Starts a daemon again and again with a heap that fails before it is ready."""
    def start(number, count=FOREVER):
        heap.fail(number, count)
        process = subprocess.Popen([BIN / tool, *words], env=heap.environment(), stdin=subprocess.DEVNULL,
                                   stdout=subprocess.PIPE, stderr=subprocess.PIPE)
        try:
            ready = process.stdout.readline().startswith(f"{tool}: ready".encode())
            asked = heap.asked()
            heap.fail(0)
            ends_well(process, ready, tool)
            assert leftovers() == [], f"allocation {number}"
            return ready, asked
        finally:
            process.kill()
            process.communicate()

    ready, asked = start(0)
    assert ready
    for count in (1, FOREVER):
        for number in chosen(asked):
            start(number, count)
    assert start(0)[0]


def stand_on_campus(place):
    place.scenario.unlink()
    place.scenario = CAMPUS


def test_nqed_starts(place, directory):
    stand_on_campus(place)
    sweep_starts(Heap(directory), "nqed", ["--scenario", place.scenario, "--arena", place.arena], place.leftovers)


def test_nqeweb_starts(campus, heap):
    sweep_starts(heap, "nqeweb", ["--arena", campus.engine.arena, "--listen", "127.0.0.1:0"], list)


def test_omad_starts(campus, directory):
    rules, socket = rules_of(directory), directory / "omad.sock"
    words = ["--arena", campus.engine.arena, "--socket", socket, "--nacm", rules, "--log", directory / "record"]
    sweep_starts(Heap(directory, LIBYANG), "omad", words, lambda: [socket] if socket.exists() else [])


def sweep_requests(heap, ask, check):
    """Asks a daemon again and again while its heap fails; `ask` returns an answer, or None when it was cut off. Other
    threads take memory as well: what fails may be theirs."""
    heap.fail(0)
    check(ask(), 0)
    asked = heap.asked()
    for count in (1, 5):
        for number in chosen(asked):
            heap.fail(number, count)
            answer = ask()
            heap.fail(0)
            check(answer, number)
            check(ask(), 0)


def test_nqed_answers(place, heap):
    stand_on_campus(place)
    with heap.inherited():
        heap.fail(0)
        place.start()

    def ask():
        client = place.client()
        try:
            client.send(b"\x06\0\0\0NQE1status")
            header = client.read(8)
            return None if len(header) < 8 else (header, client.read(int.from_bytes(header[:4], "little")))
        except BrokenPipeError:
            return None
        finally:
            client.close()

    def check(answer, number):
        if number == 0:
            assert answer is not None and answer[0][4:] == bytes(4), answer
        elif answer is not None and answer[0][4:] != bytes(4):
            assert b"memory" in answer[1], answer

    sweep_requests(heap, ask, check)
    heap.fail(0)
    place.stop()


REQUESTS = ("/api/v1/engines", "/api/v1/tables/arp/records", "/", "/metrics", "/api/v1/find?value=10.1.0.7", "/api/v1/check",
            "/api/v1/history", "/api/v1/usage", "/api/v1/openapi.json")


def test_nqeweb_answers(campus, heap):
    with heap.inherited():
        heap.fail(0)
        web = Web("--arena", campus.engine.arena)
    with web:
        for path in REQUESTS:
            def ask(path=path):
                try:
                    return web.get(path)
                except OSError:
                    return None
                except Exception as error:  # http.client's: the answer broke off
                    assert type(error).__module__ == "http.client", error
                    return None

            def check(answer, number):
                assert web.process.poll() is None, web.process.communicate()
                if number == 0:
                    assert answer is not None and answer.status == 200, answer
                elif answer is not None and answer.status != 200:
                    assert answer.status in (500, 503), answer
                    assert b"memory" in answer.body, answer

            sweep_requests(heap, ask, check)
            heap.fail(0)


def test_omad_answers(campus, heap):
    with heap.inherited():
        heap.fail(0)
        manager = agent_without_ssh(campus.engine)
        agent = manager.__enter__()
    tables = f'<get><filter><engine xmlns="{STATE}"><tables/></engine></filter></get>'
    try:
        def ask():
            session = agent.raw()
            try:
                if b"<hello" not in session.message():
                    return None
                session.send('<hello xmlns="urn:ietf:params:xml:ns:netconf:base:1.0"><capabilities><capability>'
                             "urn:ietf:params:netconf:base:1.0</capability></capabilities></hello>")
                return [session.rpc(command("tbl-usage")), session.rpc(tables),
                        session.rpc(f'<create-subscription xmlns="{NOTIFICATION}"/>')]
            except OSError:
                return None
            finally:
                session.kill()

        def check(answers, number):
            assert agent.process.poll() is None, agent.process.communicate()
            for answer, whole in zip(answers or (), ("<text", "<tables>", "<ok/>")):
                assert answer == "" or whole in answer or "<rpc-error" in answer, answer
                assert number != 0 or whole in answer, answer
            assert number != 0 or answers is not None

        sweep_requests(heap, ask, check)
    finally:
        heap.fail(0)
        agent.process.send_signal(signal.SIGTERM)
        _, err = agent.process.communicate(timeout=PATIENCE)
        code, agent.process = agent.process.returncode, None
        agent.kill()
    # What could not be written down is told once; a process that runs commands and cannot even say why it fails ends.
    lines = err.splitlines()
    lost = "omad: the record loses lines: there is not enough memory"
    assert code == 0 and lines.count(lost) <= 1 and set(lines) <= {lost, f"omad: {LINE}"}, (code, err)


def test_a_session_ends(campus, directory):
    """omad-session with a failing heap: its client is told, or cut off; the agent and other sessions go on."""
    heap = Heap(directory)
    with agent_without_ssh(campus.engine) as agent:
        def ask():
            session = agent.raw("operator", wrapper=["env", *(f"{name}={value}" for name, value in heap.settings.items())])
            try:
                session.hello()
                answer = session.rpc(command("tbl-usage"))
                session.rpc("<close-session/>", 2)
                return answer, session.ended()
            except (OSError, AssertionError):
                return None, session.ended()
            finally:
                session.kill()

        def check(answer, number):
            text, (code, error) = answer
            assert agent.process.poll() is None
            assert code >= 0 and error.count("\n") <= 1, answer
            if number == 0:
                assert "<text" in text and (code, error) == (0, ""), answer
            elif code != 0:
                assert error.startswith("omad-session: "), answer

        sweep_requests(heap, ask, check)

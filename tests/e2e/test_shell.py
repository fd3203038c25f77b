"""nqecli's shell in a real terminal."""

import contextlib
import json
import os
import re
import signal
import time

import pexpect
import pytest

from conftest import BIN, PATIENCE, map_answer, nqecli, run

PROMPT = "nqe> "


class Shell:
    """nqecli without words on a terminal of its own."""

    def __init__(self, state, *words, rows=24, columns=100, **environment):
        kept = {name: value for name, value in os.environ.items() if name not in ("PAGER", "LESS", "TERM")}
        self.process = pexpect.spawn(
            str(BIN / "nqecli"), [str(word) for word in words], timeout=int(os.environ.get("SHELL_PATIENCE", PATIENCE)), dimensions=(rows, columns),
            env={**kept, "TERM": "xterm", "PAGER": "", "LC_ALL": "C.UTF-8", "XDG_STATE_HOME": str(state), **environment})
        self.process.delaybeforesend = 0
        self.greeting = self.until_prompt()

    def until_prompt(self):
        self.process.expect_exact(PROMPT)
        return self.process.before.decode(errors="replace").replace("\r\n", "\n")

    def type(self, keys):
        self.process.send(keys)

    def ask(self, line):
        """What is answered to a line, behind its echo."""
        self.type(line + "\r")
        # Keys that come before the editor is ready are echoed by the terminal as well.
        return self.until_prompt().rsplit(line + "\n", 1)[-1]

    def offered(self, keys):
        """What stands below the line after Tab or '?'; takes the line back then."""
        self.type(keys)
        listed = self.until_prompt()
        self.type("\x03")
        self.process.expect_exact("^C")
        self.until_prompt()
        return listed.split("\n")[1:-1]

    def leave(self):
        self.type("\x04")
        self.process.expect(pexpect.EOF)
        self.process.close()
        assert (self.process.exitstatus, self.process.signalstatus) == (0, None)


@contextlib.contextmanager
def shell_of(*words, **options):
    shell = Shell(*words, **options)
    try:
        yield shell
    finally:
        shell.process.close(force=True)


@pytest.fixture
def shell(engine, tmp_path):
    with shell_of(tmp_path, "--arena", engine.arena) as opened:
        yield opened


@pytest.fixture
def campus_shell(campus, tmp_path):
    with shell_of(tmp_path, "--arena", campus.engine.arena) as opened:
        yield opened


def test_answers_are_those_of_the_command(shell):
    assert shell.ask("show ctrlif_map_fwdif 1005") == map_answer(5)
    assert shell.ask("diag search nqpTable 1 0 1007 0 0") == map_answer(7)
    assert shell.ask("  show  'ctrlif_map_fwdif'  \"1009\" ") == map_answer(9)
    assert shell.ask("show ctrlif_map_fwdif 1 --json | head") == "nqecli: search result not found\n" + (
        "nqecli: the keys of table ctrlif_map_fwdif are:\n  0 ctrl-if-index 0 0\n")
    assert shell.ask("tables neighbours ipv6") == nqecli("tables", "neighbours", "ipv6").out
    assert shell.ask("agent cmdline 'cmdline=diag search nqpTable 1 0 1005 0 0'") == map_answer(5)
    assert shell.ask('sql "SELECT count(*) AS n FROM ctrlif_map_fwdif" --ndjson') == '{"n":60}\n'
    assert shell.ask("") == ""
    assert shell.ask("   ") == ""
    shell.leave()


def test_mistakes_are_said_and_the_shell_goes_on(shell):
    assert shell.ask("shwo arp") == 'nqecli: unknown command "shwo" (did you mean show?)\n'
    assert shell.ask("show vap") == (
        'nqecli: unknown table "vap" (did you mean vap_to_sta, mc2uc_elb, sac_if_stat or fwdif? '
        '"nqecli tables vap" lists all)\n')
    assert "ends inside" in shell.ask("show 'arp")
    assert shell.ask("show ctrlif_map_fwdif 1005") == map_answer(5)
    assert shell.ask("exi") == 'nqecli: unknown command "exi" (try --help)\n'
    assert shell.ask("exit now") == "nqecli: exit takes no words\n"
    assert shell.ask("help exit") == "exit: leave the shell; so do quit and Ctrl-D\n"
    assert "  | include PATTERN    lines that the pattern fits\n" in shell.ask("help")
    shell.type("exit\r")
    shell.process.expect(pexpect.EOF)


def test_filters(shell):
    whole = nqecli("tables").out.splitlines(keepends=True)
    assert shell.ask("tables | count") == f"{len(whole)}\n"
    assert shell.ask("tables | include ^3") == "".join(line for line in whole if line[0] == "3")
    assert shell.ask("tables | exclude list | count") == f"{sum('list' not in line for line in whole)}\n"
    assert shell.ask("tables | include IPv4 | head 2") == "".join([line for line in whole if "IPv4" in line][:2])
    assert shell.ask("tables | begin 'wireless users' | count") == (
        f"{len(whole) - next(i for i, line in enumerate(whole) if 'wireless users' in line)}\n")
    assert shell.ask("tables | head") == "".join(whole[:10])
    assert shell.ask("tables | head | count") == "10\n"
    assert shell.ask("list ctrlif_map_fwdif | count") == "61\n"  # behind the names
    assert shell.ask("list ctrlif_map_fwdif --limit 1 --fields ctrl_if_index | json") == nqecli_json()
    assert shell.ask("--limit 1 --fields=ctrl_if_index list ctrlif_map_fwdif --json") == nqecli_json()
    # Commands that know text alone have it in a document; words of the library's own stay what they are.
    map_5 = json.dumps({"answer": map_answer(5).rstrip("\n")}, separators=(",", ":")) + "\n"
    assert shell.ask("diag search nqpTable 1 0 1005 0 0 | json") == map_5
    for line in ("tables vlan", "engine status", "agent memory-usage", "pkt_trace show", "perf task show", "help show"):
        document = json.loads(shell.ask(f"{line} | json"))
        assert list(document) == ["answer"] and "\n" in document["answer"], (line, document)
    # Quoted, it is a character like others.
    assert shell.ask("tables 'a|b'") == "nqecli: no table has this in its name or meaning; \"nqecli tables\" alone lists all\n"


def nqecli_json():
    return '{"table":"ctrlif_map_fwdif","id":11,"records":[{"ctrl_if_index":1001}],"count":1,"truncated":true}\n'


@pytest.mark.parametrize("line, part", [
    ("tables |", "nothing on one side"), ("| count", "nothing on one side"), ("tables | | count", "nothing on one side"),
    ("tables | inclde x", "did you mean include?"), ("tables | include", "takes one pattern"),
    ("tables | include a b", "takes one pattern"), ("tables | include [", "is no pattern"),
    ("tables | head x", "not a number"), ("tables | head 1 2", "does not take"), ("tables | count 1", "does not take"),
    ("tables | count | json", "comes first"), ("tables | json x", "does not take"),
])
def test_bad_filters(shell, line, part):
    answer = shell.ask(line)
    assert part in answer and answer.startswith("nqecli: ") and answer.count("\n") == 1, answer


def test_tab_completes_commands_tables_fields_and_live_keys(campus_shell):
    shell = campus_shell
    listed = shell.offered("s\t")
    assert [line.split()[0] for line in listed] == ["show", "statistics", "schema", "snapshot", "sql"], listed
    assert "  show        query a table by its name or id; keys left out are 0" in listed, listed
    listed = shell.offered("show arp\t")
    assert "  arp             IPv4 neighbours and their MAC addresses" in listed, listed
    listed = shell.offered("list arp dm\t\x15list arp v\t")
    assert [line.split()[0] for line in listed] == ["vpn=", "valid=", "vlan_id="], listed
    # Live keys: addresses, MAC addresses, interfaces, VLANs.
    assert [line.split()[0] for line in shell.offered("show arp 192.0.2.1\t")] == [
        f"192.0.2.{i}" for i in [*range(11, 20)]]
    assert [line.split()[0] for line in shell.offered("show usf_user 02:00:5e:30:00:0\t")][:2] == [
        "02:00:5e:30:00:01", "02:00:5e:30:00:02"]
    assert "  2001" in [line[:6] for line in shell.offered("show ctrlif_map_fwdif 200\t")]
    assert [line.split()[0] for line in shell.offered("show vlaninfo 1 \t")][:1] != []
    # What is the only one is filled in, and behind it goes the next word.
    shell.type("li\tctrlif_m\tctrl_if_index=200\x08\x08\x082001\r")
    answer = shell.until_prompt()
    assert "\n2001 " in answer or "\n         2001" in answer, answer
    assert [line.split()[0] for line in shell.offered("tables | \t")] == [
        "include", "exclude", "begin", "count", "head", "json"]
    assert [line.split()[0] for line in shell.offered("tables | head | \t")] == [
        "include", "exclude", "begin", "count", "head"]
    assert "  memory-usage  " in [line[:16] for line in shell.offered("agent m\x08\t")]


def test_a_question_mark_tells_what_may_follow(campus_shell):
    shell = campus_shell
    commands = [line.split()[0] for line in shell.offered("?")]
    for word in ("diag", "pkt_trace", "tables", "show", "list", "agent", "exit"):
        assert word in commands, commands
    assert "  --limit" in [line[:9] for line in shell.offered("list arp --?")]
    assert [line.split()[0] for line in shell.offered("perf task set ?")] == [
        "time", "icache", "dcache", "task_path", "snapshot"]
    assert "  sip " in [line[:6] for line in shell.offered("pkt_trace set ?")]
    assert [line.split()[0] for line in shell.offered("agent frag-reass ?")] == ["source-ip=", "destination-ip=", "type="]
    assert [line.split()[0] for line in shell.offered("agent frag-reass type=?")] == ["type=", "type=ipv6", "type=ipv4"]
    assert "  IPP_SESSION_AGING_TIME" in [line[:24] for line in shell.offered("engine region ?")]
    assert shell.offered("check x ?") == ["  (nothing more, or a word of your own)"]


def test_history_is_kept_between_runs(engine, tmp_path):
    words = (tmp_path, "--arena", engine.arena)
    with shell_of(*words) as shell:
        shell.ask("show ctrlif_map_fwdif 1005")
        shell.leave()
    file = tmp_path / "nqe" / "history"
    assert file.read_text() == "show ctrlif_map_fwdif 1005\n"
    assert file.stat().st_mode & 0o777 == 0o600 and file.parent.stat().st_mode & 0o777 == 0o700
    with shell_of(*words) as shell:
        shell.type("\x1b[A\r")  # the line before
        assert shell.until_prompt().endswith(map_answer(5))
        shell.type("\x1b[A\x08" + "6\r")  # and edited
        assert shell.until_prompt().endswith(map_answer(6))
        shell.leave()
    # A long file is cut, and what is no line of a hand is left out.
    file.write_text("".join(f"tables x{i}\n" for i in range(2500)) + "y" * 5000 + "\n")
    with shell_of(*words) as shell:
        shell.leave()
    assert file.read_text().splitlines() == [f"tables x{i}" for i in range(1500, 2500)]


def test_history_that_cannot_be_written(engine, tmp_path):
    (tmp_path / "nqe").write_text("")  # where the directory should be
    with shell_of(tmp_path, "--arena", engine.arena) as shell:
        first = shell.ask("show ctrlif_map_fwdif 1005")
        assert first.startswith("nqecli: the history is not kept (") and first.endswith(map_answer(5)), first
        assert shell.ask("show ctrlif_map_fwdif 1006") == map_answer(6)
        shell.type("\x1b[A\x08" + "7\r")
        assert shell.until_prompt().endswith(map_answer(7))
        shell.leave()


def test_control_c_at_the_prompt_takes_the_line_back(shell):
    shell.type("show nonsen")
    shell.process.expect_exact("show nonsen")
    shell.type("\x03")
    shell.process.expect_exact("^C")
    shell.until_prompt()
    assert shell.ask("show ctrlif_map_fwdif 1005") == map_answer(5)


def test_control_c_ends_an_answer_and_not_the_shell(shell):
    endless = "WITH RECURSIVE c(x) AS (SELECT 1 UNION ALL SELECT x + 1 FROM c) SELECT count(*) FROM c"
    shell.type(f'sql "{endless}"\r')
    shell.process.expect_exact("FROM c\"\r\n")
    child = wait_for_child(shell.process.pid)
    shell.type("\x03")
    shell.until_prompt()
    assert not os.path.exists(f"/proc/{child}")
    # Of a command in the shell itself that stands before a full terminal.
    shell.type("schema\r")
    shell.process.expect_exact("schema\r\n{")
    shell.type("\x03")
    shell.until_prompt()
    assert shell.ask("show ctrlif_map_fwdif 1005") == map_answer(5)
    shell.leave()


def test_watching_goes_on_until_control_c(engine, tmp_path):
    with shell_of(tmp_path, "--arena", engine.arena, PAGER="cat") as shell:
        # In place, as without the shell, and filtered, which is shown at once.
        for words, shown in (("", "\x1b[Hevery 0.1 s: list ctrlif_map_fwdif --count"), (" | include 6", "60")):
            shell.type(f"watch -i 0.1 list ctrlif_map_fwdif --count{words}\r")
            shell.process.expect_exact("--count" + words + "\r\n")
            shell.process.expect_exact(shown)
            shell.type("\x03")
            shell.until_prompt()
        assert shell.ask("watch --times 1 show ctrlif_map_fwdif 1005 | include FwdIfIdx") == "  FwdIfIdx   :  5\n"
        assert shell.ask("watch lst arp") == 'nqecli: unknown command "lst" (did you mean list?)\n'
        shell.leave()


def wait_for_child(process):
    deadline = time.monotonic() + PATIENCE
    while time.monotonic() < deadline:
        with open(f"/proc/{process}/task/{process}/children") as children:
            found = children.read().split()
        if found:
            return found[0]
    raise AssertionError("no process of its own")


def test_long_answers_go_through_the_pager(engine, tmp_path):
    with shell_of(tmp_path, "--arena", engine.arena, PAGER="sed 's/^/paged: /'") as shell:
        assert shell.ask("tables | head 10").count("paged: ") == 0
        paged = shell.ask("tables")
        assert paged.count("paged: ") == len(nqecli("tables").out.splitlines()) == 117
        # A pager that is left early has shown enough.
    with shell_of(tmp_path, "--arena", engine.arena, PAGER="head -n 1") as shell:
        assert shell.ask("tables") == "id  name                    ask        holds\n"
        assert shell.ask("schema") != ""
        assert shell.ask("show ctrlif_map_fwdif 1005") == map_answer(5)
    with shell_of(tmp_path, "--arena", engine.arena, PAGER="nonsense-pager") as shell:
        assert "nonsense-pager" in shell.ask("tables")
        assert shell.ask("show ctrlif_map_fwdif 1005") == map_answer(5)


def test_an_engine_that_dies_and_comes_back(engine, tmp_path):
    with shell_of(tmp_path, "--arena", engine.arena) as shell:
        assert shell.ask("show ctrlif_map_fwdif 1005") == map_answer(5)
        assert engine.end(signal.SIGKILL)[0] == -signal.SIGKILL
        assert shell.ask("show ctrlif_map_fwdif 1005") == f"nqecli: the engine at {engine.arena} is gone\n"
        assert "nqecli: " in shell.ask("list ctrlif_map_fwdif --count")
        assert shell.ask("tables neighbours ipv6") == nqecli("tables", "neighbours", "ipv6").out
        engine.scenario.write_text(engine.scenario.read_text().replace("from: 1, ", "from: 101, "))
        engine.start()
        answer = shell.ask("show ctrlif_map_fwdif 1005")
        assert answer.replace("FwdIfIdx   :  105", "FwdIfIdx   :  5").endswith(map_answer(5)), answer
        assert "FwdIfIdx   :  105" in answer and answer.startswith("nqecli: the engine is another one now\n"), answer
        assert "105" in shell.ask("show ctrlif_map_fwdif 1005")
        shell.leave()


def test_it_says_where_one_is(campus, tmp_path):
    with shell_of(tmp_path, "--arena", campus.engine.arena) as shell:
        pid = campus.engine.process.pid
        lines = shell.greeting.splitlines()
        assert re.fullmatch(f"engine {pid} at {campus.engine.arena}, since 20..-..-..T..:..:......Z", lines[0]), lines
        assert lines[1] == "? tells what may follow, help the commands"
    with shell_of(tmp_path, "--snapshot", campus.snapshot) as shell:
        assert shell.greeting.startswith(f"saved copy {campus.snapshot}\n"), shell.greeting


def test_without_an_engine_the_shell_opens(place, tmp_path):
    with shell_of(tmp_path, "--arena", place.arena) as shell:
        assert "no engine runs" in shell.greeting
        assert "no engine runs" in shell.ask("show ctrlif_map_fwdif 1005")
        assert shell.offered("show ctrlif_map_fwdif ?") == ["  (nothing more, or a word of your own)"]
        place.start()
        assert shell.ask("show ctrlif_map_fwdif 1005") == map_answer(5)
        shell.leave()


def test_a_saved_arena(engine, tmp_path):
    engine.cli("snapshot", tmp_path / "saved").answered("")
    with shell_of(tmp_path, "--snapshot", tmp_path / "saved") as shell:
        assert shell.ask("show ctrlif_map_fwdif 1005") == map_answer(5)
        assert shell.ask(f"show ctrlif_map_fwdif 1006 --arena {engine.arena}") == map_answer(6)
        assert "running engine" in shell.ask("engine status")


def test_small_and_plain_terminals(engine, tmp_path):
    with shell_of(tmp_path, "--arena", engine.arena, columns=20, rows=6) as shell:
        shell.type("show ctrlif_map_fwdif 1005\r")
        assert shell.until_prompt().endswith(map_answer(5))
        assert all(len(line) <= 20 for line in shell.offered("tables | ?")), "wider than the terminal"
    for terminal in ("", "dumb", "no-such-terminal"):
        with shell_of(tmp_path, "--arena", engine.arena, TERM=terminal) as shell:
            shell.type("show ctrlif_map_fwdif 1005\r")
            assert shell.until_prompt().endswith(map_answer(5))
            shell.leave()


def test_bytes_and_lines_that_nobody_types(shell):
    shell.type("caf\u00e9 \u20ac\r".encode())
    assert 'unknown command "caf\u00e9"' in shell.until_prompt()
    shell.type(b"x\xff\xfe\xc3 \xf0\x9f\r")
    assert "unknown command" in shell.until_prompt()
    shell.type("y" * 1000000 + "\r")
    assert "a line has at most 8192 characters" in shell.until_prompt()
    # Many lines at a time, each a command.
    count = 2000
    lines = "tables zz\r" * count
    pasted = 0
    for _ in range(count):
        # The terminal holds some lines, not all.
        if pasted < len(lines):
            pasted += os.write(shell.process.child_fd, lines[pasted:pasted + 10].encode())
        shell.until_prompt()
    assert shell.ask("show ctrlif_map_fwdif 1005") == map_answer(5)


def test_the_shell_takes_a_terminal():
    nqecli().failed("no command")
    run(BIN / "nqecli-shell").failed("takes a terminal")
    run(BIN / "nqecli-shell", "x").failed('unknown word "x"')

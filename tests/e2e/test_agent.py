"""nqecli agent: how its words become a request, and what it says when that fails."""

import re
import shlex

import pytest

from conftest import BIN, ROOT, nqecli, run
from engine_texts import EGN_HELP


def handlers():
    text = (ROOT / "yang" / "tavrix-software-fwd.yang").read_text()
    return re.findall(r"^  rpc ([a-z0-9-]+) \{", text, re.M)


def test_lists_the_commands_of_the_data_model():
    shown = nqecli("agent")
    assert shown.code == 0
    listed = shown.out[:shown.out.index("\nnqecli agent HANDLER --help")]
    assert re.findall(r"^  ([a-z0-9-]+)\s+[A-Z]", listed, re.M) == handlers()
    assert "  tbl-usage            Shows how full the engine's tables are\n" in listed
    assert shown.out == nqecli("agent", "--help").out


# What every command takes.
OPTIONS = """\

options:
  --arena PATH         the engine's arena, /run/nqe/arena (root) or $XDG_RUNTIME_DIR/nqe/arena unless told otherwise
  --snapshot FILE      answer from a saved arena; nothing that changes there is kept
  --trust USER         believe an engine of that user as well, beside this user's and root's
  --raw                control characters and newlines of the engine's texts as they are
  NQE_ARENA            in the environment: as --arena, where neither option is given
  NQE_SNAPSHOT         in the environment: as --snapshot, where neither option is given
"""
CODES = "\nexit codes: 0 an answer, 1 the command failed or only says what was wrong, 2 bad usage or no engine\n"


def test_help_of_a_command_is_what_the_data_model_says():
    nqecli("agent", "frag-reass", "--help").answered("""\
usage: nqecli agent frag-reass [NAME=VALUE ...] [OPTIONS]

Shows the packets that wait for fragments.

parameters:
  source-ip            an IPv4 or IPv6 address
      Only packets from this address.
  destination-ip       an IPv4 or IPv6 address
      Only packets to this address.
  type                 ipv6|ipv4
      The address family; IPv4 when left out.
        ipv6: IPv6 packets.
        ipv4: IPv4 packets.
""" + OPTIONS + "\nexamples:\n  nqecli agent frag-reass type=ipv6\n" + CODES)
    nqecli("agent", "--help", "tbl-usage").answered("""\
usage: nqecli agent tbl-usage [OPTIONS]

Shows how full the engine's tables are.

It takes no parameters.
""" + OPTIONS + "\nexamples:\n  nqecli agent tbl-usage\n" + CODES)


@pytest.mark.parametrize("name", handlers())
def test_every_command_has_help(name):
    result = nqecli("agent", name, "--help")
    assert result.code == 0 and result.err == "", result
    assert result.out.startswith(f"usage: nqecli agent {name} ") and result.out.endswith(CODES), result
    about = result.out.split("\n\n")[1]
    assert about.endswith(".") and about[0].isupper(), result


# Requests whose answer only says what was wrong with them, and the beginning of that answer.
REFUSED = [
    (["egn-info-query"], EGN_HELP),
    (["egn-stat-switch-set"], EGN_HELP),
    (["egn-dbg-switch-set", "level=error"], EGN_HELP),
    (["egn-detect-threshold-set"], EGN_HELP),
    (["egn-stat-reset"], EGN_HELP),
    (["perf-task-set"], "nqecli perf task clear\n"),
    (["frag-reass", "type=ipv6", "source-ip=1.2.3.4"], "  Input error, source-ip is 1.2.3.4, but ip-type is 6\n"),
    (["frag-reass", "destination-ip=::1"], "  Input error, destination-ip is ::1, but ip-type is 4\n"),
    (["cmdline", "cmdline=zzz"], "diag clear cpcar status\n"),
    (["cmdline", "cmdline=diag search nqpTable 1 0 5 0 0"], "search result not found\n"),
]


def test_an_answer_that_only_says_what_was_wrong_is_a_failure(campus):
    for words, text in REFUSED:
        result = campus.engine.cli("agent", *words)
        assert (result.code, result.err) == (1, "") and result.out.startswith(text), result
    # Others of the same commands succeed.
    for words in (["trace-pkt-set", "index=1"], ["egn-info-query", "info-type=status"], ["perf-task-set", "trace-mode=cycle"],
                  ["perf-task-query"], ["frag-reass", "type=ipv6"], ["nat-group-usage", "id=77"],
                  ["cmdline", "cmdline=diag search nqpTable 1 0 1001 0 0"]):
        result = campus.engine.cli("agent", *words)
        assert (result.code, result.err) == (0, ""), result


def test_runs_a_command_by_either_name(engine):
    answer = ("------------------------------\n  CtrlIfIdx  :  1007\n  FwdIfIdx   :  7\n"
              "------------------------------\n")
    for name in ("cmdline", "QdtOmaCmdlineProc"):
        engine.cli("agent", name, "cmdline=diag search nqpTable 1 0 1007 0 0").answered(answer)
    engine.cli("agent", "frag-reass", "source-ip=fe80::1").failed("frag-reass failed (-7)", code=1)  # no global record


def test_saved_arena(engine, directory):
    engine.cli("snapshot", directory / "copy").answered("")
    shown = nqecli("--snapshot", directory / "copy", "agent", "tbl-usage")
    assert shown.code == 0
    assert re.search(r"^CAP_TABLE_CTRLIF_MAP +4096 +60 +1 +0$", shown.out, re.M), shown
    nqecli("--snapshot", directory / "copy", "agent", "perf-mode-set").failed(
        "perf-mode-set failed: only the engine itself can tell, and a saved arena has none", code=1)


def test_several_commands_in_one_process_share_what_handlers_remember(place):
    place.scenario.write_text("statistics:\n  arp miss: 3\n")
    place.start()
    lines = ("# what came since the reset\n\nsysstat-query type=discard\nsysstat-reset type=discard\n"
             "sysstat-query 'type=discard'\n")
    done = run("sh", "-c", f'printf %s "$0" | {BIN / "nqecli"} --arena {place.arena} agent -', lines)
    assert done.code == 0, done
    assert done.out == ("\n Discard statistic information:" + "\n   " + " " * 52 + "arp miss: 3" + "\n"
                        "\n Discard statistic information:\n"), repr(done.out)
    place.stop()


def test_a_bad_line_does_not_stop_the_others(engine):
    lines = "no-such\nperf-mode-set enable=maybe\ntbl-usage 'open\nsession-statistics\n"
    done = run("sh", "-c", f'printf %s "$0" | {BIN / "nqecli"} --arena {engine.arena} agent -', lines)
    assert done.code == 2
    assert done.out != "" and done.err.count("\n") == 3 and all(
        line.startswith("nqecli: ") for line in done.err.splitlines()), done


@pytest.mark.parametrize("words, message", [
    (["no-such"], 'unknown management command "no-such"; "nqecli agent" lists them'),
    (["tbl-usage", "loud"], '"loud" is not of the form NAME=VALUE'),
    (["tbl-usage", "=x"], '"=x" is not of the form NAME=VALUE'),
    (["tbl-usage", "a=b"], 'tbl-usage has no parameter "a"; it takes none'),
    (["query-session", "protocol=256"], '"256" is no value for "protocol" (it takes 0..255)'),
    (["trace-pkt-set", "index=9"], '"9" is no value for "index" (it takes 0..3)'),
    (["egn-info-query", "info-type=x"], '"x" is no value for "info-type" (it takes status|application|statistic)'),
    (["egn-stat-switch-set", "switch=x"], '"x" is no value for "switch" (it takes on|off|enable|disable)'),
    (["perf-task-set", "trace-mode=zzz"], '"zzz" is no value for "trace-mode" (it takes cycle|icache|dcache)'),
    (["reset-session", "vpn-id=0", "--yes"], '"0" is no value for "vpn-id" (it takes another value than 0, which filters nothing)'),
    (["reset-session", "next-hop=192.0.2.1"], 'reset-session has no parameter "next-hop"; it takes: '),
    (["cmdline"], 'cmdline needs the parameter "cmdline"'),
    (["debug-pkt", "discard-type=no such"], '"no such" is no value for "discard-type"'),
    (["query-session", "protocol=6", "protocol=6"], 'the parameter "protocol" is given twice'),
    (["--bogus"], 'unknown option "--bogus"; try --help'),
])
def test_mistakes(engine, words, message):
    engine.cli("agent", *words).failed(message)


def documented_examples():
    """(command, the words of its example) from the table of docs/management.md."""
    text = (ROOT / "docs" / "management.md").read_text()
    return re.findall(r"^\| `([a-z0-9-]+)` \| `nqecli agent ([^`]+)` \|$", text, re.M)


def test_every_command_has_an_example():
    assert [command for command, _ in documented_examples()] == handlers()


@pytest.mark.parametrize("command, words", documented_examples())
def test_documented_examples_run(campus, command, words):
    words = shlex.split(words)
    assert words[0] == command or "".join(part.capitalize() for part in command.split("-")) in words[0]
    done = campus.engine.cli("agent", *words)
    said = re.fullmatch(r"\d+ (session|server map)s? told to end\n", done.err) if command.startswith("reset-") else None
    assert done.code == 0 and (done.err == "" or said), done


def test_no_engine(place):
    place.cli("agent", "tbl-usage").failed("no engine runs")

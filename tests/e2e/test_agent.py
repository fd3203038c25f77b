"""nqecli agent: how its words become a request, and what it says when that fails."""

import re
import shlex

import pytest

from conftest import BIN, ROOT, nqecli, run


def handlers():
    text = (ROOT / "yang" / "tavrix-software-fwd.yang").read_text()
    return re.findall(r"^  rpc ([a-z0-9-]+) \{", text, re.M)


def test_lists_the_commands_of_the_data_model():
    shown = nqecli("agent")
    assert shown.code == 0
    assert re.findall(r"^  ([a-z0-9-]+)$", shown.out, re.M) == handlers()
    assert shown.out == nqecli("agent", "--help").out


def test_lists_the_parameters_of_a_command():
    nqecli("agent", "frag-reass", "--help").answered(
        "usage: nqecli agent frag-reass [NAME=VALUE ...]\n"
        "\n"
        "  source-ip            TEXT\n"
        "  destination-ip       TEXT\n"
        "  type                 ipv6|ipv4|TEXT\n")
    nqecli("agent", "tbl-usage", "--help").answered(
        "usage: nqecli agent tbl-usage [NAME=VALUE ...]\n\nIt takes no parameters.\n")


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
    (["query-session", "protocol=256"], '"256" is no value for "protocol": Value "256" is out of type uint8'),
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

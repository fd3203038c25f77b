"""Completion in bash and zsh, and what both ask the tool."""

import re
import shutil
import subprocess

import pytest

from conftest import BIN, PATIENCE, ROOT, nqecli

# Sets what bash sets when Tab is pressed behind a line whose words it has split, and prints what is offered.
DRIVER = """\
source "$1"
compopt() { printf 'open\\n' >&2; }
COMP_LINE=$2 COMP_POINT=${#2}
COMP_WORDS=("${@:3}") COMP_CWORD=$(($# - 3))
_nqecli
printf '%s\\n' "${COMPREPLY[@]}"
"""


def offered(line, *words):
    done = subprocess.run(
        ["bash", "-c", DRIVER, "bash", ROOT / "tools" / "nqecli" / "nqecli.bash", f"{BIN / 'nqecli'} {line}",
         BIN / "nqecli", *words], stdout=subprocess.PIPE, stderr=subprocess.PIPE, timeout=PATIENCE, check=True, text=True)
    return done.stdout.split(), "open" in done.stderr


def test_bash(campus):
    place = ["--arena", str(campus.engine.arena)]
    line = " ".join(place)
    assert offered("s", "s") == (["show", "statistics", "schema", "snapshot", "sql"], False)
    assert offered("list arp --j", "list", "arp", "--j") == (["--json"], False)
    assert offered("list arp dm", "list", "arp", "dm") == (["dmac="], True)
    assert offered("perf task set ", "perf", "task", "set", "")[0] == ["time", "icache", "dcache", "task_path", "snapshot"]
    # bash takes '=' and ':' for words of their own.
    assert offered(f"{line} list arp next_hop=192.0.2.1", *place, "list", "arp", "next_hop", "=", "192.0.2.1")[0] == [
        f"192.0.2.{i}" for i in range(11, 20)]
    macs = offered(f"{line} show usf_user 02:00:5e:30:00:0", *place, "show", "usf_user",
                   *":".join("02 00 5e 30 00 0".split()).replace(":", " : ").split())[0]
    assert macs[:3] == ["01", "02", "03"], macs
    assert offered(f"{line} engine region IPP_S", *place, "engine", "region", "IPP_S")[0] == ["IPP_SESSION_AGING_TIME"]
    assert offered(f"{line} engine tr", *place, "engine", "tr")[0] == ["trace-pkt-nqe", "trace-tail"]
    assert offered("agent trace-pkt-s", "agent", "trace-pkt-s")[0] == ["trace-pkt-set"]
    assert offered("nonsense x", "nonsense", "x")[0] == []
    assert offered(f"{line} watch list arp next_hop=192.0.2.1", *place, "watch", "list", "arp", "next_hop", "=",
                   "192.0.2.1")[0] == [f"192.0.2.{i}" for i in range(11, 20)]


def words(*line):
    return [candidate.split("\t")[0] for candidate in nqecli("complete", *line).out.splitlines()]


def test_behind_watch_stands_another_command():
    every = words("")
    assert set(every) - set(words("watch", "")) == {"watch", "snapshot"} and words("watch", "s") == [
        "show", "statistics", "schema", "sql"]
    assert {"-i", "--times", "--json", "--arena"} <= set(words("watch", "-")) and "--ndjson" not in words("watch", "-")
    # Behind its options, and none for the number that -i takes.
    for options in (["-i", "1"], ["--json"], ["--times=3"], ["--times", "3", "--json", "-i", "0.5"]):
        assert words("watch", *options, "us") == ["usage"], options
        assert words("watch", *options, "list", "ssw_mac") == words("list", "ssw_mac") == ["ssw_macinfo"], options
    assert words("watch", "-i", "") == words("watch", "--json", "--times", "") == []
    for line in (["list", "arp", "dm"], ["list", "arp", "--fields", "dmac,va"], ["list", "--"], ["regions", "PKT"],
                 ["perf", "task", "set", ""], ["diff", "li"], ["show", "usf_"]):
        assert words("watch", *line) == words(*line) != [], line
    assert words("watch", "watch", "") == words("watch", "nonsense", "") == []


@pytest.mark.parametrize("command", re.findall(r"^  ([a-z_]+)", nqecli("--help").out, re.M))
def test_every_command_is_offered_with_its_meaning(command):
    lines = dict(line.split("\t") for line in nqecli("complete", "").out.splitlines())
    assert lines[command] != ""


def test_options_are_those_of_the_help():
    for command in ("tables", "show", "list", "usage", "snapshot", "find"):
        told = set(re.findall(r"^  (-[-a-z]+)", nqecli(command, "--help").out, re.M)) | {"--help"}
        found = {line.split("\t")[0] for line in nqecli("complete", command, "--").out.splitlines()}
        assert found == told, command
    companions = {"sql": ["sql"], "agent": ["agent"], "reset": ["agent", "reset-session"], "query": ["agent", "query-session"]}
    for name, line in companions.items():
        told = set(re.findall(r"(?:^  |, )(--[a-z-]+)", nqecli(*line, "--help").out, re.M)) | {"--help"}
        assert set(words(*line, "--")) == told, name
    assert words("sql", "--schema", "ssw_mac") == ["ssw_macinfo"]


def test_words_that_are_longer_than_their_column_keep_their_meaning():
    (line,) = nqecli("complete", "agent", "egn-detect").out.splitlines()
    assert line == "egn-detect-threshold-set\tSets after how many packets identification gives up"


def test_files(tmp_path):
    (tmp_path / "one.arena").write_text("")
    (tmp_path / "folder").mkdir()
    names = nqecli("complete", "--snapshot", f"{tmp_path}/").out
    assert names == f"{tmp_path}/folder/\t\n{tmp_path}/one.arena\t\n"
    assert nqecli("complete", "snapshot", "--info", f"{tmp_path}/o").out == f"{tmp_path}/one.arena\t\n"


@pytest.mark.skipif(shutil.which("zsh") is None, reason="zsh is not installed")
def test_zsh_takes_the_file(tmp_path):
    """Its syntax, and that what the tool tells reaches the function that offers it."""
    script = f"""
compdef() {{ :; }}
_call_program() {{ shift; eval "$@"; }}
_describe() {{ for last; do :; done; print -l -- "${{(P@)last}}"; }}
words=({BIN / 'nqecli'} list arp --j) CURRENT=4
source {ROOT / 'tools' / 'nqecli' / '_nqecli'}
"""
    done = subprocess.run(["zsh", "-f", "-c", script], stdout=subprocess.PIPE, stderr=subprocess.PIPE, timeout=PATIENCE,
                          text=True)
    assert (done.returncode, done.stdout, done.stderr) == (0, "--json:as one JSON document\n", ""), done

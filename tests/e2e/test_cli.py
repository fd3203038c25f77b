"""nqecli as a process: words, exit codes, output."""

import os
import re
import resource
import shutil
import subprocess

import pytest

from conftest import BIN, PATIENCE, map_answer, nqecli, run


def test_diag_hands_its_words_over(engine):
    engine.cli("diag", "search", "nqpTable", "1", "0", "1005", "0", "0").answered(map_answer(5))
    engine.cli("diag", "search", "nqpTable", "0x1", "0", "01755", "0", "0").answered(map_answer(5))


def test_failed_query_is_the_answer_and_exit_code_1(engine):
    result = engine.cli("diag", "search", "nqpTable", "1", "0", "5", "0", "0")
    assert (result.code, result.out, result.err) == (1, "search result not found\n", ""), result
    result = engine.cli("diag", "search", "nqpTable", "24", "0", "5", "0", "0")
    assert (result.code, result.out, result.err) == (1, "invalid input param\n", ""), result


@pytest.mark.parametrize("words", [
    ["search"],
    ["clear", "cpcar"],
    ["search", "nqpTable", "-1", "0", "0", "0", "0"],
    ["search", "nqpTable", "1", "0", "08", "0", "0"],
    ["search", "nqpTable", "1", "0", "4294967296", "0", "0"],
    ["search", "nqptable", "1", "0", "1", "0", "0"],
    ["", "", "", "", "", "", ""],
    ["\xe4\xf6\xfc"],
])
def test_words_that_are_no_command_print_the_usage_list(engine, words):
    result = engine.cli("diag", *words)
    assert result.code == 2 and result.err == "", result
    lines = result.out.splitlines()
    assert len(lines) == 101 and lines[0] == "diag clear cpcar status", result
    assert lines[1] == " 0. fwdif" + " " * 20 + "diag search nqpTable 0 0 ctrl-if-Index 0 0", result


def test_usage_list_takes_no_engine(place):
    result = place.cli("diag")
    assert result.code == 2 and result.err == "" and result.out.startswith("diag clear cpcar status\n"), result


def test_long_words(engine):
    long = "k" * 131000  # the longest word that the system lets through
    result = engine.cli("diag", "search", "nqpTable", "1", long, "1005", "0", "0")
    assert result.code in (0, 1) and result.err == "", (result.code, result.err)
    result = engine.cli("diag", "search", "nqpTable", "1", "0", "1" * 131000, "0", "0")
    assert result.code == 2 and result.err == "", (result.code, result.err)
    engine.cli("show", long).failed("unknown table", "...")
    engine.cli("show", "ctrlif_map_fwdif", "0", long).failed("key 2", "...")
    engine.cli(long).failed("unknown command", "...")
    engine.cli("diag", *["w"] * 20000)


def test_tables_with_their_keys():
    result = nqecli("tables", "--keys")
    assert result.code == 0 and result.err == "", result
    lines = result.out.splitlines()
    assert lines[0] == "id  name                    flag  keys", result
    assert lines[1] == "0   fwdif                   0     0 ctrl-if-Index 0 0", result
    assert "7   arp_miss_cache          1     all|nexthop vpn 0 0" in lines, result
    heads = [line.split()[:3] for line in lines[1:] if not line.startswith(" ")]
    assert [int(head[0]) for head in heads] == [i for i in range(89) if i not in (14, 24)], result
    assert [int(head[0]) for head in heads if head[2] == "1"] == [7, 8, 27, 52, 54, 72, 73], result
    at = lines.index("23  ssw_macinfo             0     mac br-id vlan-id 0")
    assert lines[at + 1] == " " * 34 + "all|num(eg:num5) 0 0 0", result
    assert lines[at + 2].startswith("25  port_isolate"), result
    nqecli("tables", "--keys", "ssw_macinfo").answered("""\
id  name                    flag  keys
23  ssw_macinfo             0     mac br-id vlan-id 0
                                  all|num(eg:num5) 0 0 0
""")


def test_tables_with_what_they_hold():
    result = nqecli("tables")
    assert result.code == 0 and result.err == "", result
    lines = result.out.splitlines()
    assert lines[0] == "id  name                    ask        holds", result
    assert "6   arp                     show list  IPv4 neighbours and their MAC addresses" in lines, result
    assert "48  mac_carId               show       The rate limit that the packets of a station count against" in lines
    assert "-   radio                   -          Radios" in lines, result
    assert len(lines) == 117 and all(len(line.split(None, 3)) == 4 for line in lines), result
    # Scripts take the names of views by the numbers before them.
    shown = [line.split()[1] for line in lines if line[0].isdigit()]
    assert len(shown) == 87 and shown[:3] == ["fwdif", "ctrlif_map_fwdif", "flowif_map_fwdif"], result
    nqecli("tables", "Neighbours", "ipv6").answered("""\
id  name                    ask        holds
71  nd                      show list  IPv6 neighbours and their MAC addresses
""")
    nqecli("tables", "spacecraft").failed("no table has this", code=1)


@pytest.mark.parametrize("command", ["show", "list", "fields", "schema"])
def test_names_are_offered_by_spelling_and_by_meaning(place, command):
    place.cli(command, "fwdfi").failed("(did you mean fwdif?)")
    place.cli(command, "vap").failed("(did you mean vap_to_sta, mc2uc_elb, sac_if_stat or fwdif?")
    place.cli(command, "stat").failed("(did you mean acl_stat, usf_stat, buf_cache_stat or timer_stat?",
                                      '"nqecli tables stat" lists all')
    place.cli(command, "spacecraft").failed('("nqecli tables" lists them)')


# Every command with words behind which --help stands: what the first line of its help is.
USAGES = {
    "tables": "tables [WORD ...]", "show": "show NAME [KEYS...]", "list": "list TABLE [FIELD=VALUE ...]",
    "fields": "fields TABLE", "usage": "usage", "find": "find VALUE", "explain": "explain ADDRESS [vpn=N]",
    "check": "check", "diff": "diff A B [TABLE ...]", "regions": "regions [NAME]",
    "statistics": "statistics [PATTERN]", "export": "export FILE",
    "watch": "watch [-i SECONDS] [--times N] COMMAND...", "schema": "schema [TABLE]",
    "snapshot": "snapshot FILE", "engine": "engine WORDS...",
}


def test_every_command_has_its_usage_here():
    shown = re.findall(r"^  ([a-z_]+)", nqecli("--help").out, re.M)
    assert shown == ["diag", "pkt_trace", "pmc", "perf", *USAGES, "agent", "sql"]


@pytest.mark.parametrize("command", USAGES)
def test_help_of_a_command(command, tmp_path):
    for words in ([command, "--help"], [command, "x", "--help"], [command, "--help", "--arena", "x"]):
        result = run(BIN / "nqecli", *words, cwd=tmp_path)
        assert result.code == 0 and result.err == "", result
        assert result.out.startswith(f"usage: nqecli {USAGES[command]} [OPTIONS]\n\n"), result
        for part in ("\noptions:\n", "  --arena PATH ", "\nexamples:\n  nqecli " + command, "\nexit codes: 0 "):
            assert part in result.out, result
    assert list(tmp_path.iterdir()) == []  # "snapshot --help" makes no file of that name


@pytest.mark.parametrize("family", ["diag", "pkt_trace", "pmc", "perf"])
def test_help_of_the_devices_own_families(family, place):
    result = place.cli(family, "--help")
    assert result.code == 0 and result.err == "", result
    assert result.out.startswith(f"usage: nqecli [OPTIONS] {family} WORDS...\n\n"), result
    for part in ("\noptions:\n  --arena PATH ", f"\nexamples:\n  nqecli {family} ", "\nexit codes: 0 "):
        assert part in result.out, result


@pytest.mark.parametrize("command", [name for name in USAGES if name not in ("engine", "watch")])
def test_help_tells_every_option_that_the_command_takes(command):
    told = set(re.findall(r"^  (-[-a-z]+)", nqecli(command, "--help").out, re.M))
    for option in ("--json", "--ndjson", "--csv", "--yaml", "--count", "--counters", "--keys", "--fields=x", "--sort=x",
                   "--limit=1", "--warn=1", "--info=x"):
        # What is no option is refused before anything else is.
        unknown = "unknown option" in nqecli(command, option, "--arena=/nowhere").err
        assert unknown == (option.partition("=")[0] not in told), (command, option)


def test_options_stand_anywhere(engine):
    for words in (["--arena", engine.arena, "show", "1", "1005"], ["show", "--arena", engine.arena, "1", "1005"],
                  ["show", "1", "1005", f"--arena={engine.arena}"]):
        nqecli(*words).answered(map_answer(5))
    reply = nqecli("engine", "--arena", engine.arena, "region", "IPP_SESSION_AGING_TIME")
    assert reply.code == 0 and "tcp" in reply.out, reply
    nqecli("engine", "region", "IPP_SESSION_AGING_TIME", "--arena", engine.arena).answered(reply.out)
    nqecli("usage", "--arena=a", "--snapshot=b").failed("exclude each other")
    one = engine.cli("list", "ctrlif_map_fwdif", "--limit", "1", "--json")
    assert one.code == 0 and '"count":1,' in one.out, one
    engine.cli("--limit", "1", "--json", "list", "ctrlif_map_fwdif").answered(one.out)
    engine.cli("--limit=1", "list", "--json", "ctrlif_map_fwdif").answered(one.out)
    nqecli("--limit", "1").failed('unknown option "--limit"')
    engine.cli("--json", "diag", "search").failed('unknown option "--json"')
    engine.cli("--csv", "check").failed('unknown option "--csv"')
    # Behind "--" nothing is an option.
    engine.cli("show", "--", "ctrlif_map_fwdif", "1005").answered(map_answer(5))
    # The device's own command families keep all their words.
    assert nqecli("--arena", engine.arena, "diag", "search", "--help").out.startswith("diag clear cpcar status\n")


def test_the_place_in_the_environment(engine, tmp_path):
    def ask(arena="", snapshot="", *words):
        environment = {**os.environ, "NQE_ARENA": str(arena), "NQE_SNAPSHOT": str(snapshot)}
        return nqecli(*(words or ("show", "1", "1005")), env=environment)

    saved = tmp_path / "saved"
    engine.cli("snapshot", str(saved)).answered("")
    ask(engine.arena).answered(map_answer(5))
    ask("", saved).answered(map_answer(5))
    ask(engine.arena, "", "diag", "search", "nqpTable", "1", "0", "1005", "0", "0").answered(map_answer(5))
    # Options win, even over two that contradict each other.
    ask("/nowhere", "", "show", "1", "1005", "--arena", engine.arena).answered(map_answer(5))
    ask("/nowhere", "/nowhere", "--snapshot", saved, "show", "1", "1005").answered(map_answer(5))
    ask(engine.arena, saved).failed("NQE_ARENA and NQE_SNAPSHOT are both set")
    assert ask(engine.arena, saved, "fields", "fib").code == 0
    # What names its files itself is not held up.
    assert ask("", saved, "snapshot", "--info", str(saved)).code == 0
    assert ask("", saved, "diff", str(saved), str(saved)).code == 0


def test_show_fills_in_the_keys(engine):
    for words in (["1005"], ["0", "1005"], ["0", "1005", "0", "0"], ["0x3ed"]):
        engine.cli("show", "ctrlif_map_fwdif", *words).answered(map_answer(5))
        engine.cli("show", "1", *words).answered(map_answer(5))


def test_show_explains_a_failed_query(engine):
    result = engine.cli("show", "ctrlif_map_fwdif", "9")
    assert result.code == 1 and result.out == "search result not found\n", result
    assert result.err == "nqecli: the keys of table ctrlif_map_fwdif are:\n  0 ctrl-if-index 0 0\n", result


def test_show_refuses_what_is_no_table_or_key(place):
    # All of it without an engine: the words are looked at first.
    place.cli("show").failed("Name a table")
    place.cli("show", "fwdiff").failed("did you mean fwdif?")
    place.cli("show", "CTRLIF-MAP-FWDIF").failed("did you mean ctrlif_map_fwdif?")
    place.cli("show", "quite_something_else").failed("nqecli tables")
    place.cli("show", "14").failed("unknown table")
    place.cli("show", "89").failed("unknown table")
    place.cli("show", "").failed("unknown table")
    place.cli("show", "fib", "10.0.0.0", "eight").failed("key 2", '"eight"')
    place.cli("show", "fib", "1", "2", "3", "4", "5").failed("at most 4 keys")
    # A table whose first place is not open takes numbers only: anything else would be asked as another query.
    for word in ("-1", "99999999999999999999", "gigabit"):
        place.cli("show", "fwdif", word).failed("key 1 of table fwdif", f'"{word}"')
    place.cli("show", "acl_stat", "x", "1", "2").failed("key 1 of table acl_stat")
    place.cli("show", "cpcar_pro", "arp-request", "x").failed("key 2 of table cpcar_pro")


@pytest.mark.parametrize("words, part", [
    ([], "no command"),
    (["--arena"], "--arena needs a value"),
    (["--arena="], "--arena needs a value"),
    (["--snapshot"], "--snapshot needs a value"),
    (["--arena", "a", "--snapshot", "b", "tables"], "exclude each other"),
    (["--nonsense"], '"--nonsense"'),
    (["nonsense"], '"nonsense"'),
    (["snapshot"], "name of the file"),
    (["snapshot", ""], "name of the file"),
    (["--snapshot", "a", "snapshot", "b"], "running engine"),
])
def test_bad_usage(words, part):
    nqecli(*words).failed(part)


def test_help_and_version():
    text = nqecli("--help")
    assert text.code == 0 and text.err == "" and text.out.startswith("usage: nqecli "), text
    for word in ("diag", "pkt_trace", "pmc", "perf", "tables", "show", "snapshot", "engine", "--arena", "--snapshot"):
        assert re.search(rf"^  {word}\b", text.out, re.M), text
    version = nqecli("--version")
    assert re.fullmatch(r"nqecli \d+\.\d+\.\d+ \(.+\)\n", version.out) and version.code == 0, version


def test_full_standard_output(engine):
    with open("/dev/full", "wb") as full:
        done = subprocess.run([BIN / "nqecli", "--arena", engine.arena, "show", "1", "1005"], stdout=full,
                              stderr=subprocess.PIPE, timeout=PATIENCE)
    assert (done.returncode, done.stderr) == (2, b"nqecli: cannot write the answer: No space left on device\n")


def test_help_stands_in_columns():
    """What is too long for the first one has a line of its own."""
    for words in ([], ["list"]):
        lines = nqecli(*words, "--help").out.splitlines()
        for line, following in zip(lines, lines[1:]):
            if re.match("  (?!nqecli )[^ ]", line):
                assert re.match("  .{20} [^ ]", line) or re.match(" {23}[^ ]", following), line


@pytest.mark.parametrize("program", ["nqecli", "nqed", "nqeweb", "omad", "omad-session"])
@pytest.mark.parametrize("option", ["--help", "--version"])
def test_what_cannot_be_told_is_a_failure(program, option):
    if not (BIN / program).exists():
        pytest.skip(program + " is not built")
    with open("/dev/full", "wb") as full:
        done = subprocess.run([BIN / program, option], stdout=full, stderr=subprocess.PIPE, timeout=PATIENCE)
    assert (done.returncode, done.stderr.decode()) == (2, f"{program}: cannot write the answer: No space left on device\n")


def test_closed_pipe_is_quiet(engine):
    read, write = os.pipe()
    os.close(read)
    done = subprocess.run([BIN / "nqecli", "--arena", engine.arena, "show", "1", "1005"], stdout=write,
                          stderr=subprocess.PIPE, timeout=PATIENCE)
    os.close(write)
    assert (done.returncode, done.stderr) == (2, b"")


def test_closed_standard_output_does_not_write_into_the_arena(engine):
    before = engine.arena.read_bytes()
    result = run("sh", "-c", f"exec {BIN}/nqecli --arena {engine.arena} show 1 1005 >&-")
    result.failed("cannot write the answer")
    assert engine.arena.read_bytes() == before
    engine.cli("show", "1", "1005").answered(map_answer(5))


def test_nonblocking_output_is_written_whole():
    read, write = os.pipe()
    os.set_blocking(write, False)
    process = subprocess.Popen(["sh", "-c", f"for i in 1 2 3 4 5 6 7 8 9 10; do {BIN}/nqecli tables || exit 1; done"],
                               stdout=write, stderr=subprocess.PIPE)
    os.close(write)
    with os.fdopen(read, "rb") as pipe:
        data = pipe.read()
    assert process.wait(PATIENCE) == 0, process.stderr.read()
    assert data.decode() == nqecli("tables").out * 10
    process.stderr.close()


def test_snapshot_past_the_file_size_limit(engine, directory):
    copy = directory / "copy"
    limit = lambda: resource.setrlimit(resource.RLIMIT_FSIZE, (65536, 65536))
    engine.cli("snapshot", copy, preexec_fn=limit).failed(f"cannot write {copy}: File too large")
    assert list(directory.iterdir()) == []


@pytest.mark.skipif(shutil.which("strace") is None, reason="takes strace")
def test_one_key_takes_few_system_calls(engine, tmp_path):
    if ", static," not in nqecli("--version").out:
        pytest.skip("the dynamic loader has calls of its own")
    trace = tmp_path / "trace"
    done = subprocess.run(["strace", "-f", "-o", trace, BIN / "nqecli", "--arena", engine.arena, "show",
                           "ctrlif_map_fwdif", "1001"], capture_output=True, text=True, timeout=PATIENCE)
    if done.returncode != 0:
        pytest.skip("processes may not be traced here: " + done.stderr)
    calls = [line for line in trace.read_text().splitlines() if "(" in line and "exit_group" not in line]
    assert len(calls) <= 20, "\n".join(calls)

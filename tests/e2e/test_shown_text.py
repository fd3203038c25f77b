"""What the air says must not steer a terminal, nor pass for lines of an answer."""

import os
import re

import pexpect
import pytest

from conftest import BIN, PATIENCE, nqecli, site_of

# An identity that sends a colour, rings, and brings a line of its own.
SCENARIO = """\
eaplog_info:
  - {mac: 02:00:5e:30:00:01, identity: "an\\\\x1b[31mna\\\\x07\\\\x0a  AuthStatus : 9"}
dns_domain: [{domain: &all '\\x1b[3m\\x07\\x9b\\x85\\x0dFORGED\\x0aFORGED\\x7f\\xe2\\x80\\xae', match_type: 1, domain_id: 3}]
mod_info: [{module_id: 1, name: *all}]
sac_app_mapping: [{app_id: 1, app_index: 1, class_id: 3, app_name: *all}]
sac_app_rvs_mapping: [{app_index: 1, app_id: 1, class_id: 3, app_name: *all}]
web_proxy_portal: [{index: 1, port: 80, url: *all}]
"""
MAC = "02:00:5e:30:00:01"
RAW = "an\x1b[31mna\x07\n  AuthStatus : 9"
IN_A_FILE = "an\x1b[31mna\x07\\n  AuthStatus : 9"
ON_A_TERMINAL = "an\\x1b[31mna\\x07\\n  AuthStatus : 9"
FORGED = "\n  AuthStatus : 9"


@pytest.fixture(scope="module")
def site(tmp_path_factory):
    scenario = tmp_path_factory.mktemp("site") / "s.yaml"
    scenario.write_text(SCENARIO)
    with site_of(scenario) as made:
        yield made


def on_terminal(*words):
    shown = pexpect.spawn(str(BIN / "nqecli"), [str(word) for word in words], timeout=PATIENCE, dimensions=(60, 400),
                          env={**os.environ, "PAGER": ""})
    text = shown.read().decode(errors="replace").replace("\r\n", "\n")
    shown.close()
    return text


DIAG = ["diag", "search", "nqpTable", "87", MAC, "0", "0", "0"]
QUERIES = [["show", "eaplog_info", MAC], DIAG]

# Every table with a text, with the view's number and its keys.
TEXTS = {"dns_domain": (66, "all 0 0 0"), "mod_info": (65, "all 0 0 0"), "sac_app_mapping": (82, "0 1 0 0"),
         "sac_app_rvs_mapping": (83, "0 1 0 0"), "web_proxy_portal": (43, "0 1 0 0")}
ANYWHERE = [["find", "3"], ["find", "--json", "3"], ["check"], ["check", "--json"], ["explain", MAC], ["export", "-"],
            ["usage"], ["watch", "--times", "1", "show", "mod_info", "all"],
            ["watch", "--times", "1", "--json", "show", "mod_info", "all"],
            ["complete", "show", "dns_domain", ""], ["complete", "list", "mod_info", ""]]
# What a terminal is steered with: control characters but those of lines, and what turns the direction.
STEERS = re.compile("[\x00-\x08\x0b\x0c\x0e-\x1f\x7f-\x9f\u202a-\u202e\ufffd]")


@pytest.mark.parametrize("query", QUERIES)
@pytest.mark.parametrize("saved", [False, True])
def test_texts(site, query, saved):
    place = ["--snapshot", site.snapshot] if saved else ["--arena", site.engine.arena]
    in_file = nqecli(*place, *query)
    assert in_file.code == 0 and IN_A_FILE in in_file.out and FORGED not in in_file.out, in_file
    raw = nqecli("--raw", *place, *query)
    assert raw.code == 0 and RAW in raw.out, raw
    shown = on_terminal(*place, *query)
    assert ON_A_TERMINAL in shown and FORGED not in shown and "\x1b" not in shown, shown
    assert RAW in on_terminal("--raw", *place, *query)


def asks(table):
    number, keys = TEXTS[table]
    diag = f"diag search nqpTable {number} {keys}"
    return [["show", table, *keys.split()], diag.split(), ["engine", *diag.split()], ["agent", "cmdline", f"cmdline={diag}"],
            *(["list", table, form] for form in ("--json", "--ndjson", "--csv", "--yaml", "--limit=9")),
            *(["show", table, *keys.split(), form] for form in ("--json", "--ndjson", "--csv")),
            *(["sql", form, f"SELECT * FROM {table}"] for form in ("--column", "--json", "--ndjson", "--csv"))]


@pytest.mark.parametrize("table", [*TEXTS, None])
@pytest.mark.parametrize("saved", [False, True])
def test_every_way_out(site, table, saved):
    """Nowhere a line of a text's own, and nothing that steers a terminal."""
    place = ["--snapshot", site.snapshot] if saved else ["--arena", site.engine.arena]
    queries = [query for query in (asks(table) if table else ANYWHERE)
               if not (saved and query[0] in ("engine", "agent"))]
    for query in queries:
        in_file = nqecli(*place, *query)
        assert in_file.code == 0 or query[0] in ("find", "check", "explain"), in_file
        assert "\nFORGED" not in in_file.out, in_file
        assert table is None or "FORGED" in in_file.out, in_file
        shown = on_terminal(*place, *query)
        shown = re.sub("\x1b\\[(H|2J|K|J|0m|7m)", "", shown) if query[0] == "watch" else shown
        assert "\nFORGED" not in shown and "\rFORGED" not in shown and not STEERS.search(shown), (query, shown)


def test_raw_reaches_the_engine_and_what_is_watched(site):
    for query in (["engine", *DIAG], ["watch", "--times", "1", *DIAG], ["watch", "--times", "1", "engine", *DIAG]):
        assert IN_A_FILE in site.engine.cli(*query).out, query
        assert RAW in site.engine.cli("--raw", *query).out, query
    # The agent's answers are documents, which have no control characters.
    assert FORGED not in site.engine.cli("agent", "cmdline", f"cmdline={' '.join(DIAG)}").out
    assert FORGED in site.engine.cli("--raw", "agent", "cmdline", f"cmdline={' '.join(DIAG)}").out
    site.engine.cli("engine", "escaped").failed("escaped what?", code=1)
    site.engine.cli("--raw", "engine", "escaped", "escaped", "help").failed("escaped what?", code=1)
    # The record itself is as it was.
    assert RAW in site.engine.cli("--raw", "show", "eaplog_info", MAC).out


def test_names_of_files(tmp_path):
    (directory := tmp_path / "a\x1b[31m\nFORGED").mkdir()
    scenario = directory / "s.yaml"
    scenario.write_text("arp: []\n")
    with site_of(scenario) as site:
        status = site.engine.cli("engine", "status").out
        assert "a\\x1b[31m\\x0aFORGED/s.yaml\n" in status, status


def test_data_says_it_in_its_own_way(site):
    listed = site.engine.cli("list", "eaplog_info", "--fields", "identity", "--ndjson")
    assert listed.out == '{"identity":"an\\\\x1b[31mna\\\\x07\\\\x0a  AuthStatus : 9"}\n', listed
    shown = site.engine.cli("show", "eaplog_info", MAC, "--fields", "identity", "--csv")
    assert shown.out == "identity\r\nan\\x1b[31mna\\x07\\x0a  AuthStatus : 9\r\n", shown


def test_in_the_shell(site, tmp_path):
    shell = pexpect.spawn(str(BIN / "nqecli"), ["--arena", str(site.engine.arena)], timeout=PATIENCE, dimensions=(50, 120),
                          env={"TERM": "xterm", "PAGER": "", "XDG_STATE_HOME": str(tmp_path), "LC_ALL": "C.UTF-8"})
    shell.delaybeforesend = 0
    shell.expect_exact("nqe> ")
    for line, wanted in ((f"show eaplog_info {MAC}", ON_A_TERMINAL), (f"show eaplog_info {MAC} | include an", ON_A_TERMINAL),
                         (f"show eaplog_info {MAC} --raw", RAW), (f"show eaplog_info {MAC}", ON_A_TERMINAL)):
        shell.send(line + "\r")
        shell.expect_exact("nqe> ")
        answer = shell.before.decode().replace("\r\n", "\n")
        assert wanted in answer, (line, answer)
    shell.close(force=True)

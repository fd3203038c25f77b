"""What the air says must not steer a terminal, nor pass for lines of an answer."""

import pexpect
import pytest

from conftest import BIN, PATIENCE, nqecli, site_of

# An identity that sends a colour, rings, and brings a line of its own.
SCENARIO = """\
eaplog_info:
  - {mac: 02:00:5e:30:00:01, identity: "an\\\\x1b[31mna\\\\x07\\\\x0a  AuthStatus : 9"}
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
    return pexpect.run(" ".join(["/usr/bin/env", "PAGER=", str(BIN / "nqecli"), *map(str, words)]), timeout=PATIENCE,
                       withexitstatus=False).decode().replace("\r\n", "\n")


QUERIES = [["show", "eaplog_info", MAC], ["diag", "search", "nqpTable", "87", MAC, "0", "0", "0"]]


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

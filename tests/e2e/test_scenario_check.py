"""nqed --check: all mistakes of scenarios at once, nothing published."""

import os

import pytest

from conftest import ROOT, nqed


def test_a_good_scenario():
    nqed("--check", ROOT / "examples" / "campus.yaml").answered(f"{ROOT}/examples/campus.yaml: no mistakes\n")


def test_several_files(directory):
    good, bad, other = (directory / name for name in ("good.yaml", "bad.yaml", "other.yaml"))
    good.write_text("ctrlif_map_fwdif: [{ctrl_if_index: 1, fwd_if_index: 7}]\n")
    bad.write_text("arp:\n  - {vpn: 0, next_hop: 192.0.2.1, valid: yes, dmak: 02:00:5e:00:00:01}\n  - {vpn: 0}\n"
                   "statistics: {no such thing at all: 1}\n")
    other.write_text("fwdif: [{repeat: 2, if_index: {from: 1, step: 0}}]\n")
    result = nqed("--check", good, bad, other, directory / "none.yaml")
    assert (result.code, result.out) == (2, f"{good}: no mistakes\n"), result
    assert result.err == f"""\
{good}:1: warning: ctrlif_map_fwdif.fwd_if_index: fwdif has no entry {{if_index: 7}}
{bad}:2: arp.valid: "yes" is not a bit (write true)
{bad}:2: arp.dmak: no such field (did you mean dmac?)
{bad}:3: arp.next_hop: missing (it is part of the entry's key)
{bad}:4: statistics.no such thing at all: no such statistic (write its number, 0 to 830)
{other}:1: fwdif: its 2 repetitions have the same key, since if_index counts by a step of 0 (write another step)
{directory}/none.yaml: No such file or directory (name a readable file)
""", result
    assert sorted(os.listdir(directory)) == ["bad.yaml", "good.yaml", "other.yaml"]


def test_many_mistakes(directory):
    files = [directory / f"{i}.yaml" for i in range(3)]
    for file in files:
        file.write_text("fwdif:\n" + "".join(f"  - {{if_index: {i}, enable: x}}\n" for i in range(9)))
    result = nqed("--check", *files)
    lines = result.err.splitlines()
    assert result.code == 2 and len(lines) == 21, result
    assert lines[0] == f'{files[0]}:2: fwdif.enable: "x" is not a bit (true, false, 1 or 0)'
    assert lines[19] == f'{files[2]}:3: fwdif.enable: "x" is not a bit (true, false, 1 or 0)'
    assert lines[20] == "nqed: these are the first 20 mistakes; there may be more"


@pytest.mark.parametrize("words, said", [
    ([], "--check takes the names of scenarios"),
    (["a.yaml", "--scenario", "b.yaml"], "--check stands for itself"),
    (["a.yaml", "--bogus"], 'cannot make sense of "--bogus"'),
])
def test_bad_usage(words, said):
    nqed("--check", *words).failed(said, tool="nqed")

"""The examples of the manual pages run as they stand there."""

import os
import re
import shlex

import pytest

from conftest import BIN, ROOT, nqed, run, site_of

MAN = ROOT / "man"


def commands(page, tool):
    return re.findall(rf"^\.Dl \$ ({tool} .*)$", (MAN / page).read_text(), re.M)


def blocks(page):
    return re.findall(r"^\.Bd -literal.*?\n(.*?)^\.Ed", (MAN / page).read_text(), re.M | re.S)


def test_there_are_examples():
    assert len(commands("nqecli.1", "nqecli")) >= 5 and len(commands("nqed.8", "nqed")) >= 2
    assert len(commands("omad.8", "omad")) == 1
    assert len(blocks("nqe-scenario.5")) == 1 and len(blocks("nqe-layout.5")) == 1


@pytest.mark.parametrize("line", commands("nqecli.1", "nqecli"))
def test_nqecli(campus, line):
    done = campus.engine.cli(*shlex.split(line)[1:])
    assert done.code == 0 and done.out, done


@pytest.mark.parametrize("line", commands("nqed.8", "nqed"))
def test_nqed(campus, line):
    words = shlex.split(line)[1:]
    done = nqed(*words, *(["--arena", campus.engine.arena] if words[0] == "status" else []), cwd=ROOT)
    assert done.code == 0 and done.out and done.err == "", done


def test_omad(directory):
    run("ssh-keygen", "-q", "-t", "ed25519", "-N", "", "-f", directory / "alice").answered("")
    words = shlex.split(commands("omad.8", "omad")[0])[1:]
    # It listens until it is told to stop; that nothing else is wrong with the words shows at rules that are missing.
    done = run(BIN / "omad", *words, "--log", directory / "log", "--socket", directory / "s", cwd=directory)
    done.failed("cannot read the rules in rules", tool="omad")


def test_the_scenario(directory):
    file = directory / "scenario.yaml"
    file.write_text(blocks("nqe-scenario.5")[0])
    nqed("--check", file).answered(f"{file}: no mistakes\n")
    with site_of(blocks("nqe-scenario.5")[0]) as site:
        assert site.engine.cli("list", "fwdif", "--count").out.strip() == "26"
        assert "288" in site.engine.cli("statistics", "arp miss").out


def test_the_layout():
    """Each line of the example stands so in the layouts that are built in, apart from what it means."""
    lines = [line.split(" -- ")[0].strip() for line in blocks("nqe-layout.5")[0].splitlines()]
    layout = "\n".join(file.read_text() for file in sorted((ROOT / "host/layout").glob("ip*.yaml")))
    known = {line.split(" -- ")[0].strip() for line in layout.splitlines()}
    assert [line for line in lines if line not in known] == []
    assert len(lines) > 10 and os.access(MAN / "nqe-layout.5", os.R_OK)

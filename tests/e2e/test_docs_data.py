"""The examples of docs/data.md, as they stand there, against the campus site."""

import re
import shlex
import subprocess

import pytest

from conftest import BIN, PATIENCE, ROOT

# What takes files or time is held by tests of its own.
ELSEWHERE = ("diff", "snapshot", "watch", "export site.yaml")


def examples():
    """(command line, expected lines) of each line "$ nqecli ..." in an indented block."""
    found = []
    for block in re.findall(r"(?:^ {4}.*\n)+", (ROOT / "docs/data.md").read_text(), re.MULTILINE):
        lines = [line[4:] for line in block.splitlines()]
        starts = [number for number, line in enumerate(lines) if line.startswith("$ nqecli ")]
        for start, end in zip(starts, starts[1:] + [len(lines)]):
            words = lines[start][len("$ nqecli "):]
            if not words.startswith(ELSEWHERE):
                found.append(pytest.param(words, lines[start + 1 : end], id=words))
    return found


def test_examples_are_found():
    assert len(examples()) >= 15


@pytest.mark.parametrize("words, expected", examples())
def test_example(campus, words, expected):
    pipe = words.split(" | ", 1)
    done = campus.engine.cli(*shlex.split(pipe[0]))
    out = done.out
    if len(pipe) > 1:
        out = subprocess.run(pipe[1], shell=True, input=out, capture_output=True, text=True, timeout=PATIENCE).stdout
    shown = [line.rstrip() for line in out.replace("\r\n", "\n").splitlines()]
    # "..." stands for any lines; remarks on standard error are shown as well.
    remarks = [line for line in done.err.splitlines() if line]
    expected = [line.rstrip() for line in expected if line.rstrip() not in remarks]
    pattern = "".join(r"(?:.*\n)*" if line == "..." else re.escape(line) + r"\n" for line in expected)
    assert re.fullmatch(pattern, "".join(line + "\n" for line in shown)), f"{words}\n{out}\n{done.err}"

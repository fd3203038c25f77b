"""Scripts that are called wrongly say so in one line, at once, and never pass without having tried anything."""

import re

import pytest

from conftest import ROOT, run

WRONG = {
    "scripts/kill_everything.sh": ["0", "abc", "-1", "1e3"],
    "scripts/short_memory.sh": ["0", "abc", "1.5"],
    "scripts/prove_tables.sh": ["/nowhere"],
    "scripts/fuzz.sh": ["nothing 1", "diag_word 1"],
    "scripts/coverage.sh": ["everything"],
    "scripts/aarch64.sh": ["40"],
    "scripts/mutants.py": ["--only nothing", "--only src"],
    "./test.sh": ["slow"],
}


def called(line, **settings):
    words = [f"{name}={value}" for name, value in settings.items()]
    return run("env", "-C", ROOT, *words, *line.split())


@pytest.mark.parametrize("line", [f"{script} {words}" for script, wrong in WRONG.items() for words in wrong])
def test_one_line_says_what_was_wrong(line):
    done = called(line)
    assert done.code in (1, 2) and done.out == "" and re.fullmatch(r"[\w./]+: [^\n]*[\w)\"]\n", done.err), done


@pytest.mark.parametrize("line", ["scripts/fuzz.sh diag_words 0", "scripts/fuzz.sh all -1", "scripts/fuzz.sh all", "scripts/tsan.sh some"])
def test_usage(line):
    done = called(line)
    assert done.code == 2 and done.out == "" and done.err.startswith("usage: " + line.split()[0]), done


@pytest.mark.parametrize("line", ["coverage_report.py", "coverage_report.py report.json tests", "first_objects.py"])
def test_usage_of_what_other_scripts_call(line):
    done = called(f"python3 -B scripts/{line}")
    assert done.code == 1 and re.fullmatch(rf"usage: (scripts/)?{line.split()[0]} [^\n]*\n", done.err), done


@pytest.mark.parametrize("report", ["/nowhere/report.json", "README.md"])
def test_a_report_that_is_none(report):
    done = called(f"python3 -B scripts/coverage_report.py {report} src")
    assert done.code == 1 and done.err.startswith(f"coverage_report.py: {report} is no report of gcovr"), done
    assert done.err.count("\n") == 1, done


@pytest.mark.parametrize("words", ["--jobs 0", "--jobs -2", "--count 0", "--count some"])
def test_mutants_try_at_least_one_change(words):
    done = called(f"scripts/mutants.py {words}")
    option, value = words.split()
    assert done.code == 2 and f"argument {option}: '{value}' is not a number, 1 at least" in done.err, done


@pytest.mark.parametrize("script", ["kill_everything.sh", "short_memory.sh"])
def test_programs_that_are_not_built(script):
    done = called(f"scripts/{script} 1", QDT_BIN="/nowhere")
    assert done.code == 2 and done.out == "", done
    assert re.fullmatch(rf"{script}: there is no [\w./]+ in /nowhere \(build it: .*\)\n", done.err), done


def test_the_counts_of_a_run_stay_when_another_is_called_wrongly(tmp_path):
    """As in one of its own tests."""
    for part in ("test.sh", "scripts/common.sh", "scripts/steps.sh"):
        (tmp_path / part).parent.mkdir(exist_ok=True)
        (tmp_path / part).write_text((ROOT / part).read_text())
    results = tmp_path / "build" / "test-logs" / "results"
    results.parent.mkdir(parents=True)
    results.write_text("1 0\n")
    assert run("bash", tmp_path / "test.sh", "slow").code == 2
    assert results.read_text() == "1 0\n"

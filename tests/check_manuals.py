#!/usr/bin/env python3
"""Keeps manuals, help texts, documents and code in step.

Every page passes mandoc's lint. Of each program the options that its help lists are those of its manual; every option that
its sources take stands in manual and documents; the commands of nqecli's help are those of its manual. The words of
layouts and scenarios, the headers and what a platform supplies stand in their manuals.

usage: check_manuals.py SOURCE_DIR BIN_DIR
"""

import pathlib
import re
import shutil
import subprocess
import sys

from check_example import declared

PAGES = ("nqecli.1", "nqed.8", "nqeweb.8", "omad.8", "omad-session.8", "nqe-scenario.5", "nqe-layout.5", "nqe-metrics.5",
         "libqdt_util.3")
# Options of a program that are no matter of its users.
INTERNAL = {"omad": {"--worker"}, "nqecli": {"--again"}}
OPTION = re.compile(r"(?<![\w-])--[a-z][a-z-]*")


def lint(source):
    if shutil.which("mandoc") is None:
        print("mandoc is not installed: the pages are not linted")
        return
    pages = {page.name for page in (source / "man").iterdir()}
    if pages != set(PAGES):
        yield f"man/ has {sorted(pages)}"
    done = subprocess.run(["mandoc", "-T", "lint", *sorted((source / "man").iterdir())], capture_output=True, text=True,
                          check=False)
    for line in (done.stdout + done.stderr).splitlines():
        # Of pages that are not installed here mandoc knows nothing; it is looked for them below.
        if "referenced manual not found" not in line and "outdated mandoc.db" not in line:
            yield line
    for page in PAGES:
        for name, section in re.findall(r"^\.Xr (\S+) (\d)", text_of(source, page), re.M):
            if f"{name}.{section}" not in PAGES and (name, section) != ("syslog", "3"):
                yield f"man/{page} leads to {name}({section}), which there is not"


def text_of(source, page):
    return (source / "man" / page).read_text()


def options_of_page(text):
    macros = re.findall(r"\bFl (-[a-z][a-z-]*)", text)
    return {f"-{option}" for option in macros} | set(OPTION.findall(text))


def words_of_page(text):
    return set(re.findall(r"[\w<]+(?:-\w+)*", re.sub(r"^\.(Nd|Dd|Sh).*$", "", text, flags=re.M)))


def help_of(program):
    done = subprocess.run([program, "--help"], capture_output=True, text=True, check=False)
    assert done.returncode == 0, done
    return done.stdout


def helps_of(program):
    """With those of its commands, which have options of their own."""
    text = help_of(program)
    for command in re.findall(r"^  ([a-z]+)(?= )", text, re.M) if program.name == "nqecli" else ():
        done = subprocess.run([program, command, "--help"], capture_output=True, text=True, check=False)
        if done.stdout.startswith(f"usage: nqecli {command}"):
            text += done.stdout
    return text


def options_of_code(folder):
    """What the sources compare words with. Of the table of options those count that a command takes."""
    text = "\n".join(file.read_text() for file in sorted(folder.rglob("*.cc")))
    taken = set(re.findall(r'(?:Take|TakeValue|TakeNumber|take)\((?:&arguments, )?"(--[a-z-]+)"', text))
    used = "\n".join(file.read_text() for file in (*folder.rglob("*_command.cc"), *folder.glob("commands.cc")))
    for option, name in re.findall(r'\{(kOption\w+), "(--[a-z-]+)"\}', text):
        if option in used:
            taken.add(name)
    return taken


def programs(source, binaries):
    documents = "\n".join(file.read_text() for file in sorted((source / "docs").iterdir()) if ".md" in file.name)
    for name, page in (("nqecli", "nqecli.1"), ("nqed", "nqed.8"), ("nqeweb", "nqeweb.8"), ("omad", "omad.8"),
                       ("omad-session", "omad-session.8")):
        if not (binaries / name).exists():
            print(f"{name} is not built")
            continue
        told, manual = set(OPTION.findall(helps_of(binaries / name))), options_of_page(text_of(source, page))
        code = options_of_code(source / "tools" / name.replace("-", "_")) - INTERNAL.get(name, set())
        if len(told) < 3 or len(code) < 3:
            yield f"{name}: only {sorted(told)} and {sorted(code)} are found"
        # Those of a manual's examples may be other programs'.
        yield from (f"{name} --help has {one}, {page} has not" for one in sorted(told - manual))
        yield from (f"{name} takes {one}, {page} does not tell of it" for one in sorted(code - manual))
        yield from (f"{page} has {one}, which {name} does not take" for one in sorted(manual - told - code))
        yield from (f"{name} takes {one}, docs/ do not tell of it" for one in sorted(code) if one not in documents)
        if name != "nqecli":  # whose commands have options of their own
            yield from (f"{name} takes {one}, its help does not tell of it" for one in sorted(code - told))


def commands(source, binaries):
    if not (binaries / "nqecli").exists():
        return
    told = set(re.findall(r"^  ([a-z_]+)(?= )", help_of(binaries / "nqecli"), re.M))
    text = text_of(source, "nqecli.1")
    manual = set(re.findall(r"^\.It Ic (\w+)", text, re.M))
    if len(told) < 10:
        yield f"nqecli --help lists only {sorted(told)}"
    yield from (f"nqecli --help has the command {one}, nqecli.1 has not" for one in sorted(told - manual))
    yield from (f"nqecli.1 has the command {one}, nqecli --help has not" for one in sorted(manual - told))


def languages(source):
    layout, scenario = (words_of_page(text_of(source, f"nqe-{name}.5")) for name in ("layout", "scenario"))
    documents = (source / "docs/scenarios.md").read_text()
    types = re.findall(r'^    \{"(\w+)", FieldKind::', (source / "host/layout/field.cc").read_text(), re.M)
    options = set(re.findall(r'word == "([a-z_]+)"', (source / "host/layout/field_line.cc").read_text()))
    if len(types) != 18 or len(options) < 8:
        yield f"only the types {types} and the options {sorted(options)} are found"
    for word in (*types, *sorted(options)):
        if word not in layout:
            yield f"nqe-layout.5 does not tell of {word}"
        if word not in documents:
            yield f"docs/scenarios.md does not tell of {word}"
    sections = ("include", "regions", "nat_policy", "statistics", "repeat", "record", "stale", "from", "step", "<<")
    yield from (f"nqe-scenario.5 does not tell of {word}" for word in sections if word not in scenario)


def library(source):
    text = text_of(source, "libqdt_util.3")
    headers = {f"qdt/{file.name}" for file in (source / "include/qdt").glob("*.h")}
    told = set(re.findall(r"^\.It In (\S+)$", text, re.M))
    if headers != told:
        yield f"libqdt_util.3 differs from include/qdt in {sorted(headers ^ told)}"
    names = set(re.findall(r"^\.(?:Fn|Va) (\w+)(?: [.,])?$", text, re.M)) - {"VrxDiagCmdRun"}
    if names != declared(source):
        yield f"libqdt_util.3 differs from include/platform in {sorted(names ^ declared(source))}"


def main(source, binaries):
    source, binaries = pathlib.Path(source), pathlib.Path(binaries)
    problems = [*lint(source), *programs(source, binaries), *commands(source, binaries), *languages(source),
                *library(source)]
    for problem in problems:
        print(problem)
    return 1 if problems else 0


if __name__ == "__main__":
    if len(sys.argv) != 3:
        sys.exit(__doc__)
    sys.exit(main(*sys.argv[1:]))

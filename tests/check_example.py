#!/usr/bin/env python3
"""Builds examples/platform/ as its Makefile says, runs it, and holds its answers and docs/integration.md to the headers.

usage: check_example.py SOURCE_DIR BUILD_DIR CC [EMULATOR...]
"""

import pathlib
import re
import shutil
import subprocess
import sys
import tempfile

ANSWERS = """\
------------------------------
  BrId         :  7
  BrIfIndex    :  4094
  VlanFilter   :  1
  MacLimitEn   :  0
  MacAgeTime   :  300
  MacLimitNum  :  1024
  CurMacNum    :  12
------------------------------
------------------------------
  CtrlIfIdx  :  2001
  FwdIfIdx   :  101
------------------------------
Session statistics:
  Sessions  :  0
"""
ASKED = (
    ("search nqpTable 1 0 2003 0 0",
     "------------------------------\n  CtrlIfIdx  :  2003\n  FwdIfIdx   :  103\n------------------------------\n"),
    ("search nqpTable 1 0 5 0 0", "search result not found\n"),
    ("search nqpTable 0 0 5 0 0", "search result not found\n"),  # a table that the platform does not define
)


def declared(source):
    """The functions and variables of include/platform/."""
    names = set()
    for header in sorted((source / "include/platform").glob("*.h")):
        text = re.sub(r"/\*.*?\*/", "", header.read_text(), flags=re.S)
        names |= set(re.findall(r"^[\w *]*?\b(\w+)\((?!\*)[^;{]*\);", text, re.M))
        names |= set(re.findall(r"^extern [\w *]+?(\w+);", text, re.M))
    return names


def problems_of_text(source):
    names = declared(source)
    document = (source / "docs/integration.md").read_text()
    example = (source / "examples/platform/platform.c").read_text()
    yield from (f"docs/integration.md does not tell of {name}" for name in sorted(names)
                if not re.search(rf"`{name}`", document))
    for place, text in (("docs/integration.md", document), ("examples/platform/platform.c", example)):
        functions = len(names) - 2
        if not re.search(rf"\b{functions} functions and\s+(\* )?2 variables", text):
            yield f"{place} does not say that there are {functions} functions and 2 variables"


def problems_of_program(source, build, compiler, emulator):
    with tempfile.TemporaryDirectory() as place:
        work = pathlib.Path(place)
        # As deep as in the source tree, which its Makefile leads to.
        tree = work / "examples/platform"
        shutil.copytree(source / "examples/platform", tree)
        (work / "include").symlink_to(source / "include")
        # All of the library, so that nothing it needs is missing because these answers do without.
        whole = f"-Wl,--whole-archive {build}/lib/libqdt_util.a -Wl,--no-whole-archive"
        made = subprocess.run(["make", "-C", tree, f"CC={compiler}", f"QDT={build}", f"QDT_LIBS={whole}"],
                              capture_output=True, text=True, check=False)
        if made.returncode != 0:
            yield f"the example does not build:\n{made.stdout}{made.stderr}"
            return
        for words, answer in (("", ANSWERS), *ASKED):
            done = subprocess.run([*emulator, tree / "ask", *words.split()], capture_output=True, text=True, check=False)
            if (done.returncode, done.stdout, done.stderr) != (0, answer, ""):
                yield f"ask {words}: code {done.returncode}\n{done.stdout}{done.stderr}"


def main(source, build, compiler, *emulator):
    source = pathlib.Path(source).resolve()
    problems = [*problems_of_text(source), *problems_of_program(source, build, compiler, emulator)]
    for problem in problems:
        print(problem)
    return 1 if problems else 0


if __name__ == "__main__":
    if len(sys.argv) < 4:
        sys.exit(__doc__)
    sys.exit(main(*sys.argv[1:]))

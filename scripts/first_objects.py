#!/usr/bin/env python3
"""Prints tools/nqecli/first_objects.ld: the objects of which nqecli runs something when it shows a table.

usage: scripts/first_objects.py BUILD_DIRECTORY

Takes valgrind, and a release build. A list that is out of date does no harm but to the time that a start takes.
"""

import bisect
import pathlib
import re
import shutil
import subprocess
import sys
import tempfile

QUESTION = ["show", "ssw_macinfo", "all"]
SCENARIO = ("ssw_macinfo:\n  - {repeat: 100, bridge_id: 1, vlan_id: 10, mac: {from: 02:00:5e:50:00:00, step: 1}, "
            "static: 1, out_if_index: 7}\n")
# Valgrind's processor is an older one; what newer ones run in place of these stands beside them.
NEWER = ["*libc.a:*-evex*.o", "*libc.a:*-avx512-unaligned-erms.o"]
# Their start is in .text.startup; the rest of them is large, and nobody asks for it.
LARGE = re.compile(r"libstdc\+\+\.a:.*locale")

HEAD = """\
/* What nqecli runs to show a table, side by side: the system makes sixteen pages of a file real at a time, and
   these objects would lie in many more sixteens, all over the program. Added to the linker's own script; an object that
   is not there places nothing. Made by scripts/first_objects.py. */
SECTIONS
{
  .text.first : ALIGN(CONSTANT(COMMONPAGESIZE))
  {
    *(.text.startup .text.startup.*)
"""
TAIL = """\
  }
}
INSERT BEFORE .text;
"""


def run(argv, **options):
    return subprocess.run(argv, check=True, text=True, stdout=subprocess.PIPE, **options).stdout


def link_map(build, directory):
    """The program linked once more, with a map of what lies where."""
    command = run(["ninja", "-C", build, "-t", "commands", "bin/nqecli"]).splitlines()[-1]
    command = re.sub(r" -Wl,-T,\S+", "", command.removeprefix(": && ").removesuffix(" && :"))
    program, places = directory / "nqecli", directory / "map"
    subprocess.run(command.replace("-o bin/nqecli", f"-Wl,-Map={places} -o {program}"), shell=True, cwd=build, check=True)
    text = places.read_text().split("Linker script and memory map")[1]
    return program, [(int(start, 16), int(size, 16), file) for start, size, file in
                     re.findall(r"^ \.text\S*\s+0x([0-9a-f]+)\s+0x([0-9a-f]+)\s+(\S+)$", text, re.M)]


def addresses_run(program, arena, directory):
    calls = directory / "calls"
    run(["valgrind", "-q", "--tool=callgrind", "--dump-instr=yes", "--compress-pos=no", f"--callgrind-out-file={calls}", program,
         "--arena", arena, *QUESTION])
    return {int(address, 16) for address in re.findall(r"^0x([0-9a-f]+) ", calls.read_text(), re.M)}


def objects_of(addresses, sections):
    sections = sorted(sections)
    starts = [start for start, _, _ in sections]
    objects = set()
    for address in addresses:
        start, size, file = sections[bisect.bisect_right(starts, address) - 1]
        if start <= address < start + size:
            member = re.fullmatch(r"(?:.*/)?(lib[^/]*\.a)\((.*)\)", file)
            objects.add(f"*{member[1]}:{member[2]}" if member else "*" + file.rsplit("/", 1)[-1])
    return objects


def main():
    if len(sys.argv) != 2:
        sys.exit(__doc__.split("\n\n")[1])
    build = pathlib.Path(sys.argv[1]).resolve()
    if not (build / "bin/nqecli").exists() or shutil.which("valgrind") is None:
        sys.exit(f"first_objects.py: it takes valgrind, and nqecli in {build}/bin (cmake --build --preset release)")
    with tempfile.TemporaryDirectory() as place:
        directory = pathlib.Path(place)
        (directory / "scenario.yaml").write_text(SCENARIO)
        arena = directory / "arena"
        with subprocess.Popen([build / "bin/nqed", "--arena", arena, "--scenario", directory / "scenario.yaml"],
                              stdout=subprocess.PIPE, text=True) as engine:
            try:
                if "ready" not in engine.stdout.readline():
                    sys.exit("first_objects.py: nqed does not start")
                program, sections = link_map(build, directory)
                objects = objects_of(addresses_run(program, arena, directory), sections)
            finally:
                engine.terminate()
    print(HEAD, end="")
    for each in [*NEWER, *sorted(each for each in objects if not LARGE.search(each))]:
        print(f"    {each}(.text .text.[!u]*)")
    print(TAIL, end="")


main()

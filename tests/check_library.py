#!/usr/bin/env python3
"""Checks what a device asks of the built library.

libqdt_util.so, stripped, takes at most 300 KiB, needs nothing but the C library, and is hardened: full RELRO, BIND_NOW,
no text relocations, nothing both writable and executable, stack protector, _FORTIFY_SOURCE. libqdt_util.a links into a
C program with the plain C compiler, and the program (tests/link/) runs.

usage: check_library.py SOURCE_DIR LIBRARY_DIR READELF STRIP CC [EMULATOR...]
       check_library.py --skip BUILD    ends with 77: such a build is not for devices
"""

import pathlib
import re
import subprocess
import sys
import tempfile

MAX_BYTES = 300 * 1024
# The loader is a part of the C library; on AArch64 it holds the stack protector's guard.
NEEDED = re.compile(r"libc\.so\.6|ld-linux[\w-]*\.so\.\d")
COMPILE = ("-std=c99", "-pedantic", "-Wall", "-Wextra", "-Werror")


def run(*command):
    done = subprocess.run(command, capture_output=True, text=True, check=False)
    if done.returncode != 0:
        sys.exit(f"{' '.join(map(str, command))}:\n{done.stdout}{done.stderr}".strip())
    return done.stdout


def size_problems(library, strip, directory):
    stripped = directory / library.name
    run(strip, "-o", stripped, library)
    size = stripped.stat().st_size
    print(f"{library.name}, stripped: {size} bytes of at most {MAX_BYTES}")
    if size > MAX_BYTES:
        yield f"{library.name} takes {size} bytes, stripped; at most {MAX_BYTES} are allowed"


def dynamic_problems(readelf, library):
    dynamic = run(readelf, "-dW", library)
    needed = re.findall(r"\(NEEDED\).*\[(.*)\]", dynamic)
    print(f"needs {', '.join(needed)}")
    if "libc.so.6" not in needed:
        yield "does not need libc.so.6, or this script cannot read what it needs"
    yield from (f"needs {name}" for name in needed if not NEEDED.fullmatch(name))
    if "TEXTREL" in dynamic:
        yield "has text relocations"
    flags = " ".join(re.findall(r"\((?:FLAGS|FLAGS_1|BIND_NOW)\)(.*)", dynamic))
    if not re.search(r"\b(BIND_)?NOW\b", flags):
        yield "is not linked with BIND_NOW (-z now)"


def segment_problems(readelf, library):
    segments = re.findall(r"^\s+([A-Z_]+)(?:\s+0x\w+){5}\s+([RWE ]{3})", run(readelf, "-lW", library), re.MULTILINE)
    kinds = [kind for kind, _ in segments]
    if kinds.count("LOAD") < 2:
        yield "has fewer than two LOAD segments, or this script cannot read them"
    if "GNU_RELRO" not in kinds:
        yield "has no RELRO segment (-z relro)"
    if "GNU_STACK" not in kinds:
        yield "does not say that its stack is not executable (-z noexecstack)"
    for kind, flags in segments:
        if "W" in flags and "E" in flags:
            yield f"has a {kind} segment that is writable and executable"


def symbol_problems(readelf, library):
    names = set(re.findall(r"\sUND\s+(\w+)", run(readelf, "--dyn-syms", "-W", library)))
    guard = "__stack_chk_fail"
    if guard not in names:
        yield f"does not use {guard}: it is compiled without a stack protector"
    checked = sorted(name for name in names if re.fullmatch(r"__\w+_chk", name))
    print(f"checked calls: {', '.join(checked)}")
    if not checked:
        yield "calls no checked function (__*_chk): it is compiled without _FORTIFY_SOURCE"


def link_problems(source, archive, compiler, emulator, directory):
    """The whole archive, so that no object of it is left out of the question."""
    program = directory / "from_c"
    link = subprocess.run(
        [compiler, *COMPILE, "-I", source / "include", source / "tests/link/main.c", "-Wl,--whole-archive", archive,
         "-Wl,--no-whole-archive", "-lpthread", "-o", program],
        capture_output=True, text=True, check=False)  # fmt: skip
    if link.returncode != 0:
        yield f"{archive.name} does not link into a C program with {compiler}:\n{link.stderr[:4000]}"
        return
    done = subprocess.run([*emulator, program], capture_output=True, text=True, check=False)
    print(done.stdout, end="")
    if done.returncode != 0:
        yield f"the C program over {archive.name} ends with {done.returncode}:\n{done.stderr}"


def main(source, libraries, readelf, strip, compiler, *emulator):
    source, libraries = pathlib.Path(source), pathlib.Path(libraries)
    shared, archive = libraries / "libqdt_util.so", libraries / "libqdt_util.a"
    for library in (shared, archive):
        if not library.exists():
            sys.exit(f"{library} is missing: build the target qdt_util first")
    with tempfile.TemporaryDirectory() as directory:
        directory = pathlib.Path(directory)
        problems = list(size_problems(shared, strip, directory))
        for find in (dynamic_problems, segment_problems, symbol_problems):
            problems += [f"{shared.name} {problem}" for problem in find(readelf, shared)]
        problems += link_problems(source, archive, compiler, emulator, directory)
    for problem in problems:
        print(problem)
    return 1 if problems else 0


if __name__ == "__main__":
    if sys.argv[1:2] == ["--skip"]:
        print(f"skipped: only Release builds without sanitizers are for devices; this one is: {' '.join(sys.argv[2:])}")
        sys.exit(77)
    if len(sys.argv) < 6:
        sys.exit(__doc__)
    sys.exit(main(*sys.argv[1:]))

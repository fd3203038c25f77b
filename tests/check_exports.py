#!/usr/bin/env python3
"""Checks the names in the built library against the public headers.

libqdt_util.so must export exactly the names that include/qdt/ declares with QDT_API, all of one version, must need
nothing but the C and C++ runtime, and must carry a soname. Neither it nor libqdt_util.a may define a platform name
(include/platform/): whoever links the library supplies those.

usage: check_exports.py SOURCE_DIR LIBRARY_DIR COMPILER NM READELF
"""

import pathlib
import re
import subprocess
import sys

RUNTIME = re.compile(r"lib(stdc\+\+|c\+\+|c\+\+abi|gcc_s|unwind|m|c)\.so|ld-linux")
VERSION = "QDT_UTIL_1.0"
MARK = '__attribute__((visibility("default")))'


def run(*command):
    done = subprocess.run(command, capture_output=True, text=True, check=False)
    if done.returncode != 0:
        sys.exit(f"{' '.join(map(str, command))}: {done.stderr.strip()}")
    return done.stdout


def declared_name(declaration):
    """The name that a C declaration of a function or variable declares."""
    declaration = re.sub(r"__attribute__\s*\(\(.*\)\)", "", declaration)
    pointer = re.search(r"\(\s*\*\s*(\w+)\s*\)", declaration)  # to an array or a function
    if pointer and declaration[: pointer.start()].count("(") == 0:
        return pointer.group(1)
    return re.search(r"(\w+)\s*(?:\(|\[|$)", declaration.strip()).group(1)


def preprocessed(compiler, source, header):
    """The header's own text, macros expanded and system headers left out."""
    text = run(compiler, "-E", "-x", "c", "-I", source / "include", header)
    own, lines = False, []
    for line in text.splitlines():
        mark = re.match(r'# \d+ "([^"]*)"', line)
        if mark:
            own = mark.group(1) == str(header)
        elif own:
            lines.append(line)
    return "\n".join(lines)


def exported_names(compiler, source):
    names = set()
    for header in sorted((source / "include/qdt").glob("*.h")):
        for declaration in preprocessed(compiler, source, header).split(";"):
            if MARK in declaration:
                names.add(declared_name(declaration.split(MARK, 1)[1]))
    return names


def platform_names(compiler, source):
    names = set()
    for header in sorted((source / "include/platform").glob("*.h")):
        text = re.sub(r"\{[^{}]*\}", "", preprocessed(compiler, source, header))
        for declaration in text.split(";"):
            declaration = declaration.strip()
            is_function = re.match(r"(?!typedef)\w[\w\s*]*\(", declaration)
            if is_function or re.match(r"extern\s+\w", declaration):
                names.add(declared_name(declaration))
    return names


def defined_names(nm, *options):
    lines = run(nm, "--defined-only", "-P", *options).splitlines()
    return {line.split()[0] for line in lines if len(line.split()) > 1}


def main(source, libraries, compiler, nm, readelf):
    source, libraries = pathlib.Path(source), pathlib.Path(libraries)
    shared, archive = libraries / "libqdt_util.so", libraries / "libqdt_util.a"
    for library in (shared, archive):
        if not library.exists():
            sys.exit(f"{library} is missing: build the target qdt_util first")

    problems = []
    declared, platform = exported_names(compiler, source), platform_names(compiler, source)
    for sample in ("VrxDiagCmdRun", "g_nqeTblOps", "NqeTableSearchFwdif"):
        if sample not in declared:
            problems.append(f"this script does not find {sample} in include/qdt/")
    for sample in ("malloc_ex", "g_mallocHandle", "TbmTblSearch", "g_tbmGlobalInfo", "QdtGetNameByProId"):
        if sample not in platform:
            problems.append(f"this script does not find {sample} in include/platform/")

    versioned = defined_names(nm, "-D", shared) - {VERSION}
    problems += [f"exported without the version {VERSION}: {name}" for name in sorted(versioned)
                 if not name.endswith(f"@@{VERSION}")]
    exported = {name.partition("@")[0] for name in versioned}
    problems += [f"exported but not declared with QDT_API: {name}" for name in sorted(exported - declared)]
    problems += [f"declared with QDT_API but not exported: {name}" for name in sorted(declared - exported)]
    for library in (shared, archive):
        held = defined_names(nm, library) & platform
        problems += [f"{library.name} defines the platform's {name}" for name in sorted(held)]

    dynamic = run(readelf, "-d", shared)
    if not re.search(r"\(SONAME\).*\[libqdt_util\.so\.\d+\]", dynamic):
        problems.append("libqdt_util.so has no soname")
    for needed in re.findall(r"\(NEEDED\).*\[(.*)\]", dynamic):
        if not RUNTIME.match(needed):
            problems.append(f"libqdt_util.so needs {needed}")

    for problem in problems:
        print(problem)
    print(f"{len(declared)} names declared, {len(exported)} exported, {len(platform)} of the platform")
    return 1 if problems else 0


if __name__ == "__main__":
    if len(sys.argv) != 6:
        sys.exit(__doc__)
    sys.exit(main(*sys.argv[1:]))

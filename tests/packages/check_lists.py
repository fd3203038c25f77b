#!/usr/bin/env python3
"""Holds debian/ against what is built: every file that `cmake --install` puts somewhere goes into one package, every
pattern of debian/*.install finds a file, and debian/libqdt-util1.symbols has the names that the library exports.

usage: check_lists.py SOURCE_DIR BUILD_DIR NM
"""

import fnmatch
import pathlib
import re
import subprocess
import sys
import tempfile

TRIPLET = "x86_64-linux-gnu"  # any stands for it in the lists
DOCUMENTS = ("share/doc/qdt_util", "share/doc/nqe-tools")  # where debian/rules has examples put


def installed(build):
    """Paths as the packages have them, from /."""
    with tempfile.TemporaryDirectory() as place:
        done = subprocess.run(["cmake", "--install", build, "--prefix", place], capture_output=True, text=True, check=False)
        if done.returncode != 0:
            sys.exit(f"cmake --install: {done.stdout}{done.stderr}")
        for file in sorted(pathlib.Path(place).rglob("*")):
            if file.is_dir():
                continue
            path = str(file.relative_to(place)).replace(*DOCUMENTS)
            yield path if path.startswith("etc/") else "usr/" + re.sub(r"^lib/", f"lib/{TRIPLET}/", path)


def patterns(debian):
    """(package, what it takes)"""
    for file in sorted(debian.glob("*.install")):
        for line in file.read_text().splitlines():
            if line.strip() and not line.startswith("#"):
                yield file.stem, line.split()[0]


def takes(pattern, path):
    """As dh_install does: * stands for no slash, and a directory for all that is in it."""
    parts, wanted = path.split("/"), pattern.split("/")
    return len(parts) >= len(wanted) and all(fnmatch.fnmatchcase(part, one) for part, one in zip(parts, wanted))


def lists(source, build):
    wanted = list(patterns(source / "debian"))
    packages = set(re.findall(r"^Package: (\S+)", (source / "debian/control").read_text(), re.M))
    if len(wanted) < 10:
        yield f"debian/*.install has only {wanted}"
    yield from (f"debian/{one}.install is no package's" for one in sorted({name for name, _ in wanted} - packages))
    found = set()
    for path in installed(build):
        takers = [(package, pattern) for package, pattern in wanted if takes(pattern, path)]
        found.update(takers)
        if len({package for package, _ in takers}) != 1:
            yield f"{path} goes into {sorted({package for package, _ in takers}) or 'no package'}"
    yield from (f"debian/{package}.install: nothing is {pattern}" for package, pattern in wanted if (package, pattern) not in found)


def symbols(source, build, nm):
    lines = subprocess.run([nm, "-D", "--defined-only", "-P", build / "lib/libqdt_util.so"], capture_output=True, text=True,
                           check=True).stdout.splitlines()
    # The version is a name of itself.
    exported = {name.replace("@@", "@") if "@" in name else f"{name}@{name}" for name in (line.split()[0] for line in lines)}
    told = set(re.findall(r"^ (\S+) ", (source / "debian/libqdt-util1.symbols").read_text(), re.M))
    if len(exported) < 100:
        yield f"the library exports only {sorted(exported)}"
    yield from (f"debian/libqdt-util1.symbols lacks {name}" for name in sorted(exported - told))
    yield from (f"debian/libqdt-util1.symbols has {name}, the library has not" for name in sorted(told - exported))


def main(source, build, nm):
    problems = [*lists(source, build), *symbols(source, build, nm)]
    for problem in problems:
        print(problem)
    return 1 if problems else 0


if __name__ == "__main__":
    if len(sys.argv) != 4:
        sys.exit(__doc__)
    sys.exit(main(pathlib.Path(sys.argv[1]), pathlib.Path(sys.argv[2]), sys.argv[3]))

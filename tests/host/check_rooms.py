#!/usr/bin/env python3
"""Checks the arrows of the source tree: what its parts include, and how large the rooms of host/ are.

host/rooms.txt names the rooms of host/ and, for each, the other rooms that its files may include. Tools may include
any room; nothing includes a tool but itself; the library includes nothing of host/. Every folder of host/ is a room,
and no room has more than ROOM_LIMIT sources.

usage: check_rooms.py SOURCE_DIR
"""

import pathlib
import re
import sys

ROOM_LIMIT = 15  # *.cc files: a larger room is two rooms
TABLE = "host/rooms.txt"
INCLUDE = re.compile(r'^\s*#\s*include\s*(?:"([^"]+)"|<((?:host|tools|src|tests|bench)/[^>]+)>)')
OURS = ("host", "tools", "src", "tests", "bench", "include")
PUBLIC = ("platform", "qdt")  # under include/, which all may use


def read_rooms(root, problems):
    """Room -> the other rooms that it may include, in the order of the table."""
    rooms = {}
    for number, line in enumerate((root / TABLE).read_text().splitlines(), 1):
        if not line or line.startswith("#"):
            continue
        name, colon, below = line.partition(":")
        if not colon or not re.fullmatch("[a-z]+", name) or name in rooms:
            problems.append(f'{TABLE}:{number}: not a row "ROOM: ROOMS BELOW IT" of a new room')
            continue
        for other in below.split():
            if other not in rooms:
                problems.append(f"{TABLE}:{number}: {name} -> {other}: no room of an earlier row (mend the order)")
        rooms[name] = below.split()
    return rooms


def sources(folder):
    return sorted(file for file in folder.rglob("*") if file.suffix in (".cc", ".h", ".c"))


def check_includes(root, folder, allowed, hint):
    """Every include of the files under `folder` of one of our own files lies under one of the allowed folders."""
    problems = []
    for file in sources(root / folder):
        for number, line in enumerate(file.read_text().splitlines(), 1):
            match = INCLUDE.match(line)
            if not match:
                continue
            path = match[1] or match[2]
            parts = path.split("/")
            where = f"{file.relative_to(root)}:{number}"
            if parts[0] in PUBLIC:
                continue
            if parts[0] not in OURS or ".." in parts:
                problems.append(f'{where}: "{path}" (write an include from the source tree\'s root)')
            elif not any(path.startswith(prefix + "/") for prefix in allowed):
                problems.append(f'{where}: {folder} may not include "{path}" ({hint})')
    return problems


def check(root):
    """The lines that say what is wrong in the tree at `root`; none when all is well."""
    problems = []
    rooms = read_rooms(root, problems)
    hint = f"move what both need into a room below both, or see {TABLE}"
    for folder in sorted(path for path in (root / "host").iterdir() if path.is_dir()):
        room = folder.name
        if room not in rooms:
            problems.append(f"host/{room}: no room of {TABLE} (add a row)")
            continue
        problems += check_includes(root, f"host/{room}", [f"host/{name}" for name in (room, *rooms[room])], hint)
        count = len(list(folder.glob("*.cc")))
        if count > ROOM_LIMIT:
            problems.append(f"host/{room}: {count} sources, {ROOM_LIMIT} are a room (make two of it)")
    for room in rooms:
        if not (root / "host" / room).is_dir():
            problems.append(f"{TABLE}: there is no folder host/{room} (remove its row)")
    for file in sources(root / "host"):
        if file.parent == root / "host":
            problems.append(f"{file.relative_to(root)}: stands in no room (move it into one)")
    for tool in sorted(path for path in (root / "tools").iterdir() if path.is_dir()):
        own = f"tools/{tool.name}"
        problems += check_includes(root, own, [own, "host"], "tools use their own files and the rooms of host/")
    problems += check_includes(root, "src", ["src"], "the library needs include/platform alone")
    return problems


def main():
    if len(sys.argv) != 2:
        sys.exit(__doc__)
    root = pathlib.Path(sys.argv[1])
    if not (root / TABLE).is_file():
        sys.exit(f"{root / TABLE} is missing (name the source tree)")
    problems = check(root)
    for problem in problems:
        print(problem)
    sys.exit(1 if problems else 0)


if __name__ == "__main__":
    main()

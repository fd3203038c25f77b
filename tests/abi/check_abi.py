#!/usr/bin/env python3
"""Holds the interface of the built libqdt_util.so against the stored description, libqdt_util.abi: names, types,
layouts of structures. A change that is not meant breaks firmware that was linked before.

usage: check_abi.py SOURCE_DIR LIBRARY_DIR            ends with 77 where abidiff is not installed (abigail-tools)
       check_abi.py SOURCE_DIR LIBRARY_DIR --update   stores what the library has now
"""

import pathlib
import shutil
import subprocess
import sys

CHANGED = 4  # bit of abidiff's exit code; 1 and 2 are errors of its own
DESCRIBE = ("--exported-interfaces-only", "--drop-private-types", "--no-show-locs", "--no-comp-dir-path",
            "--no-corpus-path", "--no-write-default-sizes", "--type-id-style", "hash")


def main():
    if len(sys.argv) not in (3, 4) or sys.argv[3:] not in ([], ["--update"]):
        sys.exit(__doc__)
    source, library = pathlib.Path(sys.argv[1]), pathlib.Path(sys.argv[2]) / "libqdt_util.so"
    stored, headers = source / "tests/abi/libqdt_util.abi", source / "include/qdt"
    if shutil.which("abidiff") is None:
        print("abidiff is not installed (package abigail-tools)")
        sys.exit(77)
    if sys.argv[3:]:
        done = subprocess.run(["abidw", *DESCRIBE, "--headers-dir", headers, library], capture_output=True, text=True,
                              check=True)
        stored.write_text(done.stdout.replace(f"{source.resolve()}/", ""))
        return
    done = subprocess.run(["abidiff", "--headers-dir2", headers, stored, library], capture_output=True, text=True,
                          check=False)
    print(done.stdout + done.stderr, end="")
    if done.returncode & CHANGED:
        sys.exit("the library's interface has changed. If that is meant: raise its version where programs linked before "
                 f"would break, write it into CHANGELOG.md, and run {sys.argv[0]} ... --update")
    if done.returncode != 0:
        sys.exit(f"abidiff failed with code {done.returncode}")


if __name__ == "__main__":
    main()

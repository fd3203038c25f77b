#!/usr/bin/env python3
"""Installs the built tree elsewhere and uses it as firmware would: a C program finds the library by pkg-config and by
find_package(qdt_util), shared and static, links and runs. The tree is moved before, so that no path of the build may
be left in it.

usage: check_install.py SOURCE_DIR BUILD_DIR CC
"""

import os
import pathlib
import re
import shutil
import subprocess
import sys
import tempfile

CONSUMER = """\
cmake_minimum_required(VERSION 3.20)
project(consumer LANGUAGES C)
find_package(qdt_util 1.0 REQUIRED)
foreach(kind qdt_util qdt_util_static)
  add_executable(with_${kind} platform.c)
  target_link_libraries(with_${kind} PRIVATE qdt_util::${kind})
endforeach()
"""
EXPECTED = ("lib/libqdt_util.so", "lib/libqdt_util.so.1", "lib/libqdt_util.a", "lib/pkgconfig/qdt_util.pc",
            "lib/cmake/qdt_util/qdt_utilConfig.cmake", "include/qdt/tables.h", "include/platform/tbm.h",
            "share/man/man3/libqdt_util.3")
PAGES = {"bin/nqecli": ["man1/nqecli.1"], "bin/nqed": ["man8/nqed.8", "man5/nqe-scenario.5", "man5/nqe-layout.5"],
         "bin/nqeweb": ["man8/nqeweb.8", "man5/nqe-metrics.5"], "sbin/omad": ["man8/omad.8"],
         "sbin/omad-session": ["man8/omad-session.8"]}


def run(*command, **options):
    done = subprocess.run([str(word) for word in command], capture_output=True, text=True, check=False, **options)
    if done.returncode != 0:
        sys.exit(f"{' '.join(map(str, command))}: code {done.returncode}\n{done.stdout}{done.stderr}")
    return done.stdout


def main():
    if len(sys.argv) != 4:
        sys.exit(__doc__)
    source, build, compiler = pathlib.Path(sys.argv[1]), pathlib.Path(sys.argv[2]), sys.argv[3]
    with tempfile.TemporaryDirectory() as place:
        work = pathlib.Path(place)
        run("cmake", "--install", build, "--prefix", work / "first")
        tree = work / "moved"
        shutil.move(work / "first", tree)
        for program, pages in PAGES.items():
            for page in pages:
                if (tree / program).exists() != (tree / "share/man" / page).exists():
                    sys.exit(f"{program} and {page} do not go together")
        for name in EXPECTED:
            if not (tree / name).exists():
                sys.exit(f"{name} is not installed")
        for file in tree.rglob("*"):
            if file.suffix in (".pc", ".cmake", ".h") and re.search(f"{build.resolve()}|{source.resolve()}|{place}/first",
                                                                     file.read_text()):
                sys.exit(f"{file.relative_to(tree)} names a path of the build")

        environment = {**os.environ, "PKG_CONFIG_PATH": str(tree / "lib/pkgconfig"),
                       "LD_LIBRARY_PATH": str(tree / "lib")}
        flags = run("pkg-config", "--cflags", "--libs", "qdt_util", env=environment).split()
        program = source / "examples/platform/platform.c"
        run(compiler, "-o", work / "by_pkg_config", program, *flags, "-lpthread")
        if "BrId" not in run(work / "by_pkg_config", env=environment):
            sys.exit("the program that pkg-config linked shows no answer")

        consumer = work / "consumer"
        consumer.mkdir()
        shutil.copy(program, consumer)
        (consumer / "CMakeLists.txt").write_text(CONSUMER)
        run("cmake", "-S", consumer, "-B", consumer / "build", f"-DCMAKE_PREFIX_PATH={tree}",
            f"-DCMAKE_C_COMPILER={compiler}")
        run("cmake", "--build", consumer / "build")
        for kind in ("qdt_util", "qdt_util_static"):
            if "BrId" not in run(consumer / "build" / f"with_{kind}", env=environment):
                sys.exit(f"the program with {kind} shows no answer")
        if (tree / "bin/nqecli").exists():
            run(tree / "bin/nqecli", "--version")
    print("the installed tree serves a C program by pkg-config and by find_package, shared and static")


if __name__ == "__main__":
    main()

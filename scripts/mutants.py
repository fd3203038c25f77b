#!/usr/bin/env python3
"""Asks whether the unit tests see small changes of the library: makes one at a time in src/, compiles what it touches, and
runs the tests, of which one must fail.

usage: scripts/mutants.py [--count N] [--seed N] [--jobs N] [--only FILE] [--goal PERCENT] [--list]

A change is drawn by the seed, its file, its line's text and what it is, so that the draw stays as it is while other lines
change. Not counted are changes that do not compile, and those of which the optimising compiler makes the same code. A test
program that crashes, or that runs without end, has caught the change. No source is touched: the changed file stands in a
directory of its own, where the compiler looks first.

Exit code 0: at least GOAL percent are caught, and each of the others stands in scripts/mutants_left.txt with its reason.
"""

import argparse
import concurrent.futures
import dataclasses
import itertools
import os
import pathlib
import queue
import re
import resource
import shlex
import shutil
import subprocess
import sys
import tempfile
import time

from mutations import mutations_of

ROOT = pathlib.Path(__file__).resolve().parents[1]
TREE = ROOT / "build"  # optimised: its tests are there when ./test.sh has run
LEFT = ROOT / "scripts" / "mutants_left.txt"
PROGRAMS = ("unit_tests", "frame_tests", "attach_tests")
ARCHIVE = "lib/libqdt_util.a"
# Bounds of one test program, which takes 3 seconds of processor time: a loop without end uses them up on any machine.
PROCESSOR_SECONDS, WAIT_SECONDS, MEMORY = 12, 1200, 4 << 30
# Words of file names that say nothing of what a file is about.
COMMON_WORDS = {"nqe", "cli", "tbl", "query", "qdt", "oma", "text", "names", "table", "test"}
CAUGHT, SURVIVED, SAME, NO_CODE = "caught", "survived", "same code", "does not compile"


@dataclasses.dataclass(frozen=True)
class Object:
    """What is compiled in the tree: an object's name there, and the command."""
    name: str
    command: tuple
    sources: frozenset  # all files below src/ that it reads


def ninja(*words):
    return subprocess.run(["ninja", "-C", TREE, *words], capture_output=True, text=True, check=True).stdout


def build():
    """The tree's objects and tests, as they are without a change."""
    steps = ["cmake --preset release >/dev/null", f"cmake --build {TREE} --parallel {os.cpu_count()} --target "
             + " ".join(PROGRAMS)]
    if (TREE / "CMakeCache.txt").exists():
        steps.pop(0)
    for step in steps:
        done = subprocess.run(step, shell=True, cwd=ROOT, capture_output=True, text=True, check=False)
        if done.returncode != 0:
            sys.exit(f"mutants.py: the tests do not build without a change:\n{done.stdout[-3000:]}{done.stderr[-3000:]}")


def read_objects():
    """All objects of the library and its unit tests."""
    reads, name = {}, ""
    for line in ninja("-t", "deps").splitlines():
        if line and not line.startswith(" "):
            name = line.split(":")[0]
            reads[name] = set()
        elif line.strip():
            path = (TREE / line.strip()).resolve()
            if path.is_relative_to(ROOT / "src"):
                reads[name].add(str(path.relative_to(ROOT)))
    objects = []
    for line in ninja("-t", "commands", *PROGRAMS).splitlines():
        match = re.search(r" -o (\S+\.o) -c ", line)
        if match and reads.get(match.group(1)):
            words = [word for word in shlex.split(line) if not word.startswith("CCACHE_") and word not in ("env", "ccache")]
            while not words[0].startswith("/") or words[0].endswith("/ccache"):
                words.pop(0)
            objects.append(Object(match.group(1), tuple(words), frozenset(reads[match.group(1)])))
    return objects


def suites_about(path):
    """A filter of the test suites whose file has a word of the source's name, or nothing."""
    words = set(re.split(r"[_.]", pathlib.Path(path).stem)) - COMMON_WORDS
    suites = set()
    for test in (ROOT / "tests" / "unit").glob("*_test.cc"):
        about = set(test.stem.split("_")) - COMMON_WORDS
        if words & about:
            suites.update(re.findall(r"^TEST(?:_F|_P)?\((\w+),", test.read_text(), re.M))
    return ":".join(f"{suite}.*" for suite in sorted(suites))


class Tree:
    """What all jobs share, and none changes."""

    def __init__(self):
        build()
        self.objects = read_objects()
        self.links = {name: shlex.split(ninja("-t", "commands", name).splitlines()[-1]) for name in PROGRAMS}

    def touched(self, path):
        """The objects that read the file, the ones that only state layouts first: they are soon compiled."""
        return sorted((one for one in self.objects if path in one.sources), key=lambda one: "layout_bits" not in one.name)


class Job:
    """A directory in which one changed file at a time is compiled, linked and tried."""

    def __init__(self, tree, directory):
        self.tree, self.directory = tree, pathlib.Path(directory)

    def compile(self, one, mutation, level):
        """The object's name in this directory, or None when the change does not compile."""
        words = [word for word in one.command if not re.match(r"-O|-g|-W|-D_FORTIFY|-U_FORTIFY|-M[DFT]|\S+\.o\.d$", word)]
        source, output = str(ROOT / mutation.path), self.directory / "objects" / one.name
        words = [str(self.directory / mutation.path) if word == source else word for word in words]
        for flag in ("-MF", "-MT"):
            words = [word for at, word in enumerate(words) if at == 0 or words[at - 1] != flag]
        output.parent.mkdir(parents=True, exist_ok=True)
        words[words.index("-o") + 1] = str(output)
        words[1:1] = [f"-I{self.directory}", f"-ffile-prefix-map={self.directory}={ROOT}"]
        done = subprocess.run([*words, "-w", level], cwd=TREE, capture_output=True, check=False)
        return output if done.returncode == 0 else None

    def link(self, program, objects):
        """Links a program with the changed objects in the place of the tree's."""
        words = list(self.tree.links[program])
        for name, changed in objects.items():
            words = [str(changed) if word == name else word for word in words]
        words = [str(self.directory / "libqdt_util.a") if word == ARCHIVE else word for word in words]
        words[words.index("-o") + 1] = str(self.directory / program)
        words.insert(words.index("-o"), "-fuse-ld=gold")  # which is quicker
        return subprocess.run(" ".join(words), shell=True, cwd=TREE, capture_output=True, check=False).returncode == 0

    def archive(self, objects):
        """A copy of the library's archive with the changed objects."""
        archive = self.directory / "libqdt_util.a"
        shutil.copyfile(TREE / ARCHIVE, archive)
        changed = [str(path) for name, path in objects.items() if name.startswith("src/")]
        if changed:
            subprocess.run(["ar", "r", archive, *changed], capture_output=True, check=True)

    def passes(self, program, chosen):
        """Whether all tests of the program that a filter chooses pass."""
        def bound():
            resource.setrlimit(resource.RLIMIT_CPU, (PROCESSOR_SECONDS, PROCESSOR_SECONDS))
            resource.setrlimit(resource.RLIMIT_AS, (MEMORY, MEMORY))
            resource.setrlimit(resource.RLIMIT_CORE, (0, 0))
        words = [self.directory / program, "--gtest_fail_fast", "--gtest_brief=1", f"--gtest_filter={chosen}"]
        try:
            done = subprocess.run(words, stdin=subprocess.DEVNULL, capture_output=True, timeout=WAIT_SECONDS,
                                  preexec_fn=bound, cwd=self.directory, check=False)
        except subprocess.TimeoutExpired:
            return False
        return done.returncode == 0

    def caught(self, path, objects):
        """Whether a test sees the change. Those that are about its file come first."""
        about = suites_about(path)
        runs = [("unit_tests", about), ("unit_tests", f"-{about}")] if about else [("unit_tests", "*")]
        for program in PROGRAMS:
            if not self.link(program, objects):
                raise RuntimeError(f"{program} does not link with a change of {path}")
            for name, chosen in runs + [("frame_tests", "*"), ("attach_tests", "*")]:
                if name == program and not self.passes(program, chosen):
                    return True
        return False

    def same_code(self, touched, mutation, source):
        """Whether the optimising compiler makes of the change what it makes of the source."""
        for one in touched:
            made = []
            for text in (mutation.apply(source), source):
                (self.directory / mutation.path).write_text(text)
                made.append(self.compile(one, mutation, "-O2").read_bytes())
            if made[0] != made[1]:
                return False
        return True

    def stages(self, touched):
        """Of a header that much reads first a few objects, and then all: most changes are caught by then."""
        few = [one for one in touched if one.name.startswith("src/")][:8]
        return [few, touched] if len(touched) > 2 * len(few) else [touched]

    def judge(self, mutation):
        source = (ROOT / mutation.path).read_text()
        changed = self.directory / mutation.path
        changed.parent.mkdir(parents=True, exist_ok=True)
        changed.write_text(mutation.apply(source))
        touched = self.tree.touched(mutation.path)
        try:
            objects = {}
            for stage in self.stages(touched):
                for one in stage:
                    objects[one.name] = objects.get(one.name) or self.compile(one, mutation, "-O0")
                    if objects[one.name] is None:
                        return NO_CODE
                self.archive(objects)
                if self.caught(mutation.path, objects):
                    return CAUGHT
            return SAME if self.same_code(touched, mutation, source) else SURVIVED
        finally:
            changed.unlink()


def all_mutations(only):
    found = []
    for path in sorted((ROOT / "src").rglob("*")):
        name = str(path.relative_to(ROOT))
        if path.suffix in (".cc", ".h") and (only is None or name == only):
            found += mutations_of(name, path.read_text())
    if not found:
        sys.exit(f"mutants.py: there is nothing to change in {only}; it takes a source of src/, as src/om/common/text.cc")
    return found


def read_left():
    """The changes that no test can see, each with its reason: a line of its key, and an indented one."""
    left, key = {}, ""
    for line in LEFT.read_text().splitlines():
        if line.startswith("    "):
            left[key] = left.get(key, "") + line.strip()
        elif line and not line.startswith("#"):
            key = line
    return left


def check_without_change(job, mutation):
    """The tests pass when a source is compiled as the changes are, but has none."""
    source = (ROOT / mutation.path).read_text()
    unchanged = dataclasses.replace(mutation, text=source[mutation.begin:mutation.end])
    verdict = job.judge(unchanged)
    if verdict != SAME:
        sys.exit(f"mutants.py: without a change to {mutation.path} the verdict is \"{verdict}\": the tests have to pass first")


def run(drawn, count, jobs, tree):
    """Judges changes in the order of the draw until `count` are counted: (mutation, verdict) of each."""
    judged, counted = [], 0
    with tempfile.TemporaryDirectory(prefix="mutants-") as directory:
        free = queue.SimpleQueue()
        for number in range(jobs):
            place = pathlib.Path(directory) / str(number)
            place.mkdir()
            free.put(Job(tree, place))
        job = free.get()
        check_without_change(job, drawn[0])
        free.put(job)

        def judge(mutation):
            job = free.get()
            try:
                return job.judge(mutation)
            finally:
                free.put(job)

        with concurrent.futures.ThreadPoolExecutor(jobs) as pool:
            waiting, following = [], iter(drawn)
            while counted < count:
                for mutation in itertools.islice(following, 3 * jobs - len(waiting)):
                    waiting.append((mutation, pool.submit(judge, mutation)))
                if not waiting:
                    break
                mutation, verdict = waiting.pop(0)
                judged.append((mutation, verdict.result()))
                counted += judged[-1][1] in (CAUGHT, SURVIVED)
                print(f"{counted:4}  {judged[-1][1]:16}  {mutation.path}:{mutation.line}: {mutation.what}", flush=True)
            pool.shutdown(cancel_futures=True)
    return judged


def report(judged, goal, seconds):
    """Prints the figures and what is left; whether that is enough."""
    verdicts = [verdict for _, verdict in judged]
    caught, survived = verdicts.count(CAUGHT), verdicts.count(SURVIVED)
    left = read_left()
    unexplained = [mutation for mutation, verdict in judged if verdict == SURVIVED and mutation.key() not in left]
    share = 100 * caught / max(1, caught + survived)
    print(f"{caught} of {caught + survived} changes caught ({share:.1f} %); {survived} survived, "
          f"{survived - len(unexplained)} of them with a reason in {LEFT.relative_to(ROOT)}; not counted: "
          f"{verdicts.count(NO_CODE)} that do not compile, {verdicts.count(SAME)} of the same code; {seconds:.0f} s")
    for mutation in unexplained:
        print(f"no test sees it: {mutation.path}:{mutation.line}: {mutation.key()}")
    return caught + survived > 0 and share >= goal and not unexplained


def positive(text):
    if not re.fullmatch("0*[1-9][0-9]{0,8}", text):
        raise argparse.ArgumentTypeError(f"{text!r} is not a number, 1 at least")
    return int(text)


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--count", type=positive, default=400, help="how many are counted")
    parser.add_argument("--seed", type=int, default=1)
    parser.add_argument("--jobs", type=positive, default=os.cpu_count())
    parser.add_argument("--only", metavar="FILE", help="changes of one source alone")
    parser.add_argument("--goal", type=float, default=95, help="percent that must be caught")
    parser.add_argument("--list", action="store_true", help="only lists the changes, in the order of the draw")
    options = parser.parse_args()
    drawn = sorted(all_mutations(options.only), key=lambda mutation: mutation.rank(options.seed))
    if options.list:
        for mutation in drawn[:options.count]:
            print(f"{mutation.path}:{mutation.line}: {mutation.key()}")
        return 0
    if shutil.which("ninja") is None or ((TREE / "CMakeCache.txt").exists() and not (TREE / "build.ninja").exists()):
        sys.exit("mutants.py: it takes ninja, and a tree in build/ that was configured for it (cmake --preset release)")
    started = time.monotonic()
    judged = run(drawn, options.count, options.jobs, Tree())
    return 0 if report(judged, options.goal, time.monotonic() - started) else 1


if __name__ == "__main__":
    sys.exit(main())

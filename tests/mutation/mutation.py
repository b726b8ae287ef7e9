"""Runs mutation testing on fcgiServer and QKSTL: makes mutants of their sources, one at a time in a
copy, and runs the tests on each. Prints which mutants were killed and which survived. The exit
status is 1 if one survived, or if equivalent_mutants.txt lists one that the sources do not have."""

import argparse
import collections
import concurrent.futures
import filecmp
import hashlib
import itertools
import os
import pathlib
import queue
import resource
import shutil
import subprocess
import sys

import mutants

ROOT = pathlib.Path(__file__).resolve().parent.parent.parent
EQUIVALENT = pathlib.Path(__file__).with_name("equivalent_mutants.txt")
GIB = 1 << 30
TIMEOUT = "60"  # seconds for one test program; a mutant may never end

# Sources, and the programs that test them.
Area = collections.namedtuple("Area", "sources tests")
AREAS = [
    Area("fcgiServer/*.cpp",
         ["device_status_test", "fcgi_server_test", "http_request_test", "http_response_test",
          "http_session_test", "listener_container_test", "plugin_loader_test", "request_end_test",
          "screening_test", "servlet_container_test", "servlet_controller_test",
          "session_factory_test", "without_memory_test", "replay_configuration",
          "replay_connection", "replay_screening", "replay_service"]),
    Area("QKSTL/*.h", ["replay_hash_map", "QKSTL_ndebug_test", "QKSTL_test"]),
]
# The test that most likely kills a mutant of a source that has no test of its own name.
FIRST_TESTS = {"QKHashMap": "replay_hash_map", "MemoryBlock": "replay_hash_map",
               "lingering_close": "request_end_test", "loop_activity": "fcgi_server_test",
               "request_rules": "screening_test"}


def run(*command, cwd=None):
    """Runs a command with an address space of 8 GiB, since a mutant may allocate without end."""
    limit = 8 * GIB
    return subprocess.run([str(word) for word in command], check=False, stdout=subprocess.PIPE,
                          stderr=subprocess.STDOUT, text=True, errors="replace",
                          stdin=subprocess.DEVNULL, cwd=cwd, env=build_environment(),
                          preexec_fn=lambda: resource.setrlimit(resource.RLIMIT_AS, (limit, limit)))


def build_environment():
    """Returns an environment in which ccache shares objects between the project and its copies."""
    if shutil.which("ccache") is None:
        return None
    return {"CMAKE_CXX_COMPILER_LAUNCHER": "ccache", "CCACHE_BASEDIR": str(ROOT),
            "CCACHE_NOHASHDIR": "1", **os.environ}


class Copy:
    """A copy of the project with a build of its own, in which mutants are compiled and tested."""

    def __init__(self, folder):
        self.source = folder
        # The preset's own folder: an object of the project has the same relative paths here.
        self.build = folder / "build/dev"
        names = subprocess.run(["git", "ls-files", "-z"], cwd=ROOT, check=True,
                               stdout=subprocess.PIPE, text=True).stdout.split("\0")
        for name in filter(None, names):
            # An equal file keeps its time stamp, so that it is not compiled again.
            target = self.source / name
            if not target.exists() or not filecmp.cmp(ROOT / name, target, shallow=False):
                target.parent.mkdir(parents=True, exist_ok=True)
                shutil.copy(ROOT / name, target)
        done = run("cmake", "--preset", "dev", cwd=self.source)
        if done.returncode != 0:
            sys.exit(done.stdout)

    def compile(self, *tests, jobs=1):
        return run("cmake", "--build", self.build, "-j", jobs, "--target", *tests)

    def test(self, *tests, jobs=1):
        return run("ctest", "--test-dir", self.build, "-R", f"^({'|'.join(tests)})$",
                   "--timeout", TIMEOUT, "--output-on-failure", "-j", jobs)

    def check_without_mutant(self):
        """Ends the program unless all tests pass before anything is mutated."""
        tests = [test for area in AREAS for test in area.tests]
        for step in self.compile, self.test:
            done = step(*tests, jobs=os.cpu_count())
            if done.returncode != 0:
                sys.exit(f"without a mutant:\n{done.stdout}")

    def verdict(self, mutant):
        path = self.source / mutant.path
        original = path.read_text()
        path.write_text(mutant.apply_to(original))
        try:
            # One program after the other: usually the first one kills the mutant.
            for test in by_likelihood(mutant.path, tests_of(mutant.path)):
                if self.compile(test).returncode != 0:
                    return "does not compile"
                if self.test(test).returncode != 0:
                    return "killed"
            return "survived"
        finally:
            path.write_text(original)


def sources_of(area):
    return [str(path.relative_to(ROOT)) for path in sorted(ROOT.glob(area.sources))]


def tests_of(path):
    return next(area.tests for area in AREAS if pathlib.PurePath(path).match(area.sources))


def first_test(path, tests):
    stem = pathlib.PurePath(path).stem
    name = FIRST_TESTS.get(stem, f"{stem}_test")
    return name if name in tests else None


def by_likelihood(path, tests):
    """Returns the tests, beginning with the one that most likely kills a mutant of `path`."""
    first = first_test(path, tests)
    return sorted(tests, key=lambda test: test != first)


def all_mutants():
    return [mutant for area in AREAS for path in sources_of(area)
            for mutant in mutants.mutants_of(path, (ROOT / path).read_text())]


def equivalent_mutants():
    return {line for line in EQUIVALENT.read_text().splitlines() if line and line[0] != "#"}


def unknown_mutants(known, listed):
    """Returns the listed mutants that the sources do not have (any more)."""
    return sorted(listed - {str(mutant) for mutant in known})


def possible_mutants(known, equivalent):
    return [mutant for mutant in known if str(mutant) not in equivalent]


def shuffled(possible, seed):
    """Returns the mutants in an order that depends on their texts and on `seed` alone, so that a
    change to one source leaves the sample of the others as it is."""
    return sorted(possible,
                  key=lambda mutant: hashlib.sha256(f"{seed}\n{mutant}".encode()).digest())


def try_mutants(copies, order, count):
    """Yields mutants and verdicts until `count` mutants of `order` have compiled."""
    free = queue.SimpleQueue()
    for copy in copies:
        free.put(copy)

    def verdict(mutant):
        copy = free.get()
        try:
            return copy.verdict(mutant)
        finally:
            free.put(copy)

    rest = iter(order)
    with concurrent.futures.ThreadPoolExecutor(len(copies)) as pool:
        while count > 0:
            # Mutants of one source follow each other, which saves compiling it as it was.
            batch = sorted(itertools.islice(rest, count), key=str)
            if not batch:
                return
            for mutant, result in zip(batch, pool.map(verdict, batch)):
                count -= result != "does not compile"
                yield mutant, result


def main():
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("folder", type=pathlib.Path, help="holds the copies of the project")
    parser.add_argument("count", type=int, help="number of mutants")
    parser.add_argument("seed", help="selects the sample")
    arguments = parser.parse_args()

    known, equivalent = all_mutants(), equivalent_mutants()
    if unknown := unknown_mutants(known, equivalent):
        sys.exit("\n".join([f"{EQUIVALENT.relative_to(ROOT)} lists unknown mutants:", *unknown]))

    folder = arguments.folder.resolve()
    copies = [Copy(folder / str(number)) for number in range(os.cpu_count())]
    copies[0].check_without_mutant()
    possible = possible_mutants(known, equivalent)
    verdicts = collections.Counter()
    for mutant, verdict in try_mutants(copies, shuffled(possible, arguments.seed),
                                       arguments.count):
        verdicts[verdict] += 1
        print(f"{verdict}: {mutant}", flush=True)
    print(f"{verdicts['killed']} mutants of {len(possible)} killed, "
          f"{verdicts['survived']} survived")
    return 1 if verdicts["survived"] else 0


if __name__ == "__main__":
    sys.exit(main())

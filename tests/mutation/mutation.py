"""Runs mutation testing on fcgiServer and QKSTL: makes mutants of their sources, one at a time in a
copy, and runs the tests on each. Prints which mutants were killed and which survived. The exit
status is 1 if one survived, or if equivalent_mutants.txt lists one that the sources do not have."""

import argparse
import collections
import concurrent.futures
import contextlib
import filecmp
import hashlib
import itertools
import os
import pathlib
import queue
import resource
import shutil
import signal
import subprocess
import sys
import threading

import mutants

ROOT = pathlib.Path(__file__).resolve().parent.parent.parent
EQUIVALENT = pathlib.Path(__file__).with_name("equivalent_mutants.txt")
GIB = 1 << 30
TIMEOUT = "60"  # seconds for one test program; a mutant may never end
# Compiling takes most of the time. A precompiled header differs between the copies, for ccache.
# Without warnings, which are errors: a mutant that only causes one is worth trying, too.
FAST_BUILD = ["-DCMAKE_BUILD_TYPE=Debug", "-DCMAKE_CXX_FLAGS_DEBUG=-O0 -w",
              "-DCMAKE_EXE_LINKER_FLAGS=-fuse-ld=gold", "-DCMAKE_DISABLE_PRECOMPILE_HEADERS=ON",
              "-DCMAKE_UNITY_BUILD=OFF"]
WITHOUT_MUTANT = threading.Lock()
GROUPS = set()  # the process groups of the commands that run
STARTING = []  # the commands that are being started
PUT_OFF = []  # the signals that came meanwhile

# Sources, and the programs that test them.
Area = collections.namedtuple("Area", "sources tests")
AREAS = [
    Area("fcgiServer/*.cpp",
         ["device_status_test", "fcgi_server_test", "http_request_test", "http_response_test",
          "http_session_test", "library_calls_test", "lingering_close_test",
          "listener_container_test", "plugin_loader_test", "plugin_loading_test",
          "request_end_test", "screening_test", "servlet_container_test",
          "servlet_controller_test", "session_factory_test", "without_memory_test",
          "replay_configuration", "replay_connection", "replay_screening", "replay_service"]),
    Area("QKSTL/*.h", ["replay_hash_map", "QKSTL_ndebug_test", "QKSTL_test"]),
]
# The test that most likely kills a mutant of a source that has no test of its own name.
FIRST_TESTS = {"QKHashMap": "replay_hash_map", "MemoryBlock": "replay_hash_map",
               "lingering_close": "request_end_test", "loop_activity": "fcgi_server_test",
               "request_rules": "screening_test", "session_limit": "session_factory_test",
               "session_uses": "session_factory_test"}


def run(*command, cwd=None, memory=8 * GIB):
    """Runs a command with an address space of 8 GiB, since a mutant may allocate without end. Kills
    what the command has started if it is interrupted."""
    words = [str(word) for word in command]
    with start(words, cwd, memory) as process:
        try:
            output, _ = process.communicate()
        finally:
            GROUPS.discard(process.pid)
    return subprocess.CompletedProcess(words, process.returncode, output)


def start(words, cwd, memory):
    """Starts the command. An interruption meanwhile is put off, or it would miss the new process."""
    STARTING.append(words)
    try:
        process = subprocess.Popen(
            words, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True, errors="replace",
            stdin=subprocess.DEVNULL, cwd=cwd, env=build_environment(), start_new_session=True,
            preexec_fn=lambda: resource.setrlimit(resource.RLIMIT_AS, (memory, memory)))
        GROUPS.add(process.pid)
    finally:
        STARTING.remove(words)
        if PUT_OFF:
            os.kill(os.getpid(), PUT_OFF[-1])
    return process


def end_when_interrupted():
    """Makes SIGINT and SIGTERM kill all that run() has started, and exit, so that every mutated source
    is restored and every temporary folder removed."""
    def end(number, _):
        if STARTING:
            PUT_OFF.append(number)
            return
        for group in list(GROUPS):
            with contextlib.suppress(ProcessLookupError):
                os.killpg(group, signal.SIGKILL)
        sys.exit(128 + number)

    for number in (signal.SIGINT, signal.SIGTERM):
        signal.signal(number, end)


def build_environment():
    """Returns an environment in which the copies share the objects of ccache, and in which a test
    program ends at its first failure."""
    environment = {"CCACHE_BASEDIR": str(ROOT), "CCACHE_NOHASHDIR": "1", "GTEST_FAIL_FAST": "1",
                   **os.environ}
    if shutil.which("ccache"):
        environment.setdefault("CMAKE_CXX_COMPILER_LAUNCHER", "ccache")
    return environment


class Copy:
    """A copy of the project with a build of its own, in which mutants are compiled and tested."""

    PRESET = "dev"
    OPTIONS = FAST_BUILD

    def __init__(self, folder, passing):
        """`passing` collects the tests that pass without a mutant, for all copies."""
        self.source = folder
        self.build = folder / "build" / self.PRESET
        self.passing = passing
        self.built = set()
        names = subprocess.run(["git", "ls-files", "-z"], cwd=ROOT, check=True,
                               stdout=subprocess.PIPE, text=True).stdout.split("\0")
        for name in filter(None, names):
            # An equal file keeps its time stamp, so that it is not compiled again.
            target = self.source / name
            if not target.exists() or not filecmp.cmp(ROOT / name, target, shallow=False):
                target.parent.mkdir(parents=True, exist_ok=True)
                shutil.copy(ROOT / name, target)
        self.must_succeed(run("cmake", "--preset", self.PRESET, *self.OPTIONS,
                              cwd=self.source))

    @staticmethod
    def must_succeed(done):
        if done.returncode != 0:
            raise RuntimeError(f"without a mutant:\n{done.stdout}")

    def compile(self, test, jobs=1):
        return run("cmake", "--build", self.build, "-j", jobs, "--target", test)

    def test(self, test):
        return run("ctest", "--test-dir", self.build, "-R", f"^{test}$", "--timeout", TIMEOUT,
                   "--output-on-failure")

    def check_without_mutant(self, tests):
        """Raises an error unless the tests pass before anything is mutated."""
        # One copy at a time, so that the next one finds the objects in ccache.
        with WITHOUT_MUTANT:
            for test in tests:
                if test not in self.built:
                    self.must_succeed(self.compile(test, os.cpu_count()))
                    self.built.add(test)
                if test not in self.passing:
                    self.must_succeed(self.test(test))
                    self.passing.add(test)

    @contextlib.contextmanager
    def mutated(self, mutant):
        path = self.source / mutant.path
        original = path.read_text()
        path.write_text(mutant.apply_to(original))
        try:
            yield
        finally:
            path.write_text(original)

    def verdict(self, mutant):
        tests = by_likelihood(mutant.path, tests_of(mutant.path))
        # Usually the first test kills the mutant, and the others need not be built.
        for some in tests[:1], tests[1:]:
            self.check_without_mutant(some)
            with self.mutated(mutant):
                for test in some:
                    if self.compile(test).returncode != 0:
                        return "does not compile"
                    if self.test(test).returncode != 0:
                        return "killed"
        return "survived"


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
    end_when_interrupted()

    known, equivalent = all_mutants(), equivalent_mutants()
    if unknown := unknown_mutants(known, equivalent):
        sys.exit("\n".join([f"{EQUIVALENT.relative_to(ROOT)} lists unknown mutants:", *unknown]))

    folder = arguments.folder.resolve()
    passing = set()
    copies = [Copy(folder / str(number), passing) for number in range(os.cpu_count())]
    possible = possible_mutants(known, equivalent)
    verdicts = collections.Counter()
    for mutant, verdict in try_mutants(copies, shuffled(possible, arguments.seed),
                                       arguments.count):
        verdicts[verdict] += 1
        print(f"{verdict}: {mutant}", flush=True)
    print(f"{verdicts['killed']} mutants of {len(possible)} killed, "
          f"{verdicts['survived']} survived, {verdicts['does not compile']} did not compile")
    return 1 if verdicts["survived"] else 0


if __name__ == "__main__":
    sys.exit(main())

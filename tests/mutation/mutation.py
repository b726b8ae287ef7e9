"""Tells how good the library's own tests are: prints what of it they run through, then changes a
condition or a constant at a time, in a copy of the sources, and runs the tests again, one of which
should fail. Ends with 1 where a change was not noticed."""

import argparse
import collections
import filecmp
import pathlib
import random
import resource
import shutil
import subprocess
import sys

import changes

ROOT = pathlib.Path(__file__).resolve().parent.parent.parent
KNOWN = pathlib.Path(__file__).with_name("equivalent_mutants.txt")
GIB = 1 << 30

# Which sources, and the programs that test them.
Area = collections.namedtuple("Area", "sources tests")
AREAS = [
    Area("fcgiServer/*.cpp",
         ["device_status_test", "fcgi_server_test", "http_request_test", "http_response_test",
          "http_session_test", "listener_container_test", "plugin_loader_test", "request_end_test", "screening_test",
          "servlet_container_test", "servlet_controller_test", "session_factory_test",
          "without_memory_test", "replay_configuration", "replay_connection", "replay_screening",
          "replay_service"]),
    Area("QKSTL/*.h", ["QKSTL_test", "QKSTL_ndebug_test", "replay_hash_map"]),
]
ALL_TESTS = [test for area in AREAS for test in area.tests]


def run(*command):
    """A changed program may ask for all the memory there is."""
    limit = 8 * GIB
    return subprocess.run([str(word) for word in command], check=False, stdout=subprocess.PIPE,
                          stderr=subprocess.STDOUT, text=True, errors="replace",
                          stdin=subprocess.DEVNULL,
                          preexec_fn=lambda: resource.setrlimit(resource.RLIMIT_AS, (limit, limit)))


class Copy:
    """The project in another folder, where changes harm nobody."""

    def __init__(self, folder):
        self.source = folder / "source"
        self.build = folder / "build"
        names = subprocess.run(["git", "ls-files", "-z"], cwd=ROOT, check=True,
                               stdout=subprocess.PIPE, text=True).stdout.split("\0")
        for name in filter(None, names):
            # What is the same keeps its time, so that it is not compiled again.
            target = self.source / name
            if not target.exists() or not filecmp.cmp(ROOT / name, target, shallow=False):
                target.parent.mkdir(parents=True, exist_ok=True)
                shutil.copy(ROOT / name, target)
        done = run("cmake", "-S", self.source, "-B", self.build, "-G", "Ninja",
                   "-DCMAKE_BUILD_TYPE=Debug", "-DCMAKE_CXX_FLAGS=--coverage",
                   "-DCMAKE_EXE_LINKER_FLAGS=-fuse-ld=gold",
                   f"-DDEVICE_ROOT={self.build}/device")
        if done.returncode != 0:
            sys.exit(done.stdout)

    def compile(self, *tests):
        return run("cmake", "--build", self.build, "--target", *tests)

    def test(self, *tests):
        return run("ctest", "--test-dir", self.build, "-R", f"^({'|'.join(tests)})$",
                   "--timeout", "60", "--output-on-failure", "-j", "2")

    def verdict(self, change, tests):
        path = self.source / change.path
        original = path.read_text()
        path.write_text(change.made_in(original))
        try:
            # One program after the other: mostly the first one notices.
            for test in sorted(tests, key=lambda test: path.stem not in test):
                if self.compile(test).returncode != 0:
                    return "does not compile"
                if self.test(test).returncode != 0:
                    return "noticed"
            return "not noticed"
        finally:
            path.write_text(original)


def print_coverage(copy):
    done = run("gcovr", "--root", copy.source, "--object-directory", copy.build,
               "--filter", f"{copy.source}/fcgiServer/", "--filter", f"{copy.source}/QKSTL/",
               "--exclude-throw-branches", "--exclude-unreachable-branches",
               "--exclude-directories", ".*CompilerIdCXX", "--print-summary", "--txt")
    if done.returncode != 0:
        sys.exit(done.stdout)
    print(done.stdout[done.stdout.index("-----"):], flush=True)


def known_changes():
    return {line for line in KNOWN.read_text().splitlines() if line and line[0] != "#"}


def possible_changes(area):
    known = known_changes()
    found = [change for path in sorted(ROOT.glob(area.sources))
             for change in changes.changes_of(str(path.relative_to(ROOT)), path.read_text())]
    return [(change, area.tests) for change in found if str(change) not in known]


def try_changes(copy, count, seed):
    """Whether all of `count` changes were noticed."""
    possible = [one for area in AREAS for one in possible_changes(area)]
    order = random.Random(seed).sample(possible, len(possible))
    verdicts = collections.Counter()
    for change, tests in order:
        if verdicts["noticed"] + verdicts["not noticed"] == count:
            break
        verdict = copy.verdict(change, tests)
        verdicts[verdict] += 1
        print(f"{verdict}: {change}", flush=True)
    print(f"{verdicts['noticed']} changes of {len(possible)} noticed, "
          f"{verdicts['not noticed']} not")
    return verdicts["not noticed"] == 0


def main():
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("folder", type=pathlib.Path, help="for the copy")
    parser.add_argument("count", type=int, help="of changes")
    parser.add_argument("seed", help="the same one gives the same sample")
    arguments = parser.parse_args()

    copy = Copy(arguments.folder.resolve())
    for step in copy.compile, copy.test:
        done = step(*ALL_TESTS)
        if done.returncode != 0:
            sys.exit(f"without a change:\n{done.stdout}")
    print_coverage(copy)
    return 0 if try_changes(copy, arguments.count, arguments.seed) else 1


if __name__ == "__main__":
    sys.exit(main())

"""Plants bugs in a copy of the sources, one at a time, and prints which of them the tests kill, or
after how many seconds a fuzzer finds them. The exit status is 1 if one is not found, if it does not
compile, or if the sources no longer have the text that it replaces."""

import argparse
import dataclasses
import os
import pathlib
import resource
import sys
import tempfile
import time
import tomllib

import mutation

ROOT = mutation.ROOT
TEST_BUGS = pathlib.Path(__file__).with_name("planted_bugs.toml")
FUZZER_BUGS = ROOT / "tests/fuzz/planted_bugs.toml"
FUZZ = ROOT / "tests/fuzz"
SECONDS = 60  # in which a fuzzer must find a bug


@dataclasses.dataclass(frozen=True)
class Bug:
    name: str
    path: str
    old: str
    new: str
    finders: tuple  # tests, or one fuzzer

    def apply_to(self, text):
        """Returns the text with the bug. Raises ValueError unless it has `old` exactly once."""
        if text.count(self.old) != 1:
            raise ValueError(f"{self.name}: {self.path} has {text.count(self.old)} times: "
                             f"{self.old.strip()}")
        return text.replace(self.old, self.new)


def bugs_in(file):
    bugs = tomllib.loads(file.read_text())["bug"]
    return [Bug(bug["name"], bug["file"], bug["old"], bug["new"],
                tuple(bug.get("tests") or [f"fuzz_{bug['fuzzer']}"])) for bug in bugs]


def errors_in(bugs):
    """Returns what is wrong with the list: names that occur twice, and texts that the sources do not
    have."""
    names = [bug.name for bug in bugs]
    errors = [f"{name}: listed twice" for name in sorted(set(names)) if names.count(name) > 1]
    for bug in bugs:
        try:
            if bug.apply_to((ROOT / bug.path).read_text()) == (ROOT / bug.path).read_text():
                errors.append(f"{bug.name}: changes nothing")
        except (OSError, ValueError) as error:
            errors.append(str(error))
    return errors


class Tests(mutation.Copy):
    """A copy in which the unit tests look for bugs. Optimised, since a test of plug-in libraries looks at
    what they export. With precompiled headers, since it is the only copy."""

    OPTIONS = [option.replace("-O0", "-O2") for option in mutation.FAST_BUILD
               if "PRECOMPILE" not in option]

    def look(self, bug):
        self.check_without_mutant(bug.finders)
        with self.mutated(bug):
            for test in bug.finders:
                if self.compile(test, os.cpu_count()).returncode != 0:
                    return "does not compile"
                if self.test(test).returncode != 0:
                    return f"killed by {test}"
        return "survived"


class Fuzzers(mutation.Copy):
    """A copy in which the fuzzers look for bugs."""

    PRESET = "fuzz"
    OPTIONS = []

    def look(self, bug):
        fuzzer, = bug.finders
        self.check_without_mutant([fuzzer])
        with self.mutated(bug):
            if self.compile(fuzzer, os.cpu_count()).returncode != 0:
                return "does not compile"
            begin = time.monotonic()
            done = self.fuzz(fuzzer, f"-max_total_time={SECONDS}")
            seconds = time.monotonic() - begin
        return f"found after {seconds:.1f} s" if done.returncode != 0 else "not found"

    def test(self, test):
        return self.fuzz(test, "-runs=0")  # runs the inputs in the tree only

    def fuzz(self, fuzzer, limit):
        name = fuzzer.removeprefix("fuzz_")
        dictionary, own = FUZZ / "dictionaries" / name, FUZZ / "options" / name
        options = [f"-dict={dictionary}"] if dictionary.exists() else []
        options += own.read_text().split() if own.exists() else []
        with tempfile.TemporaryDirectory() as folder:
            (pathlib.Path(folder) / "corpus").mkdir()
            return mutation.run(
                "env", "ASAN_OPTIONS=malloc_context_size=2:quarantine_size_mb=8",
                f"LLVM_PROFILE_FILE={folder}/profile", f"{self.build}/tests/fuzz/{fuzzer}",
                "-seed=1", "-timeout=20", f"-artifact_prefix={folder}/", "-max_len=512", *options,
                limit, f"{folder}/corpus", FUZZ / "seeds" / name,
                memory=resource.RLIM_INFINITY)  # the address sanitizer reserves terabytes


KINDS = {"tests": (Tests, TEST_BUGS), "fuzzers": (Fuzzers, FUZZER_BUGS)}


def main():
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("kind", choices=KINDS)
    parser.add_argument("folder", type=pathlib.Path, help="holds the copy of the project")
    parser.add_argument("bug", nargs="*", help="name of a bug; all of them by default")
    arguments = parser.parse_args()
    mutation.end_when_interrupted()

    copy_type, file = KINDS[arguments.kind]
    bugs = bugs_in(file)
    if errors := errors_in(bugs):
        sys.exit("\n".join([f"{file.relative_to(ROOT)}:", *errors]))
    if unknown := set(arguments.bug) - {bug.name for bug in bugs}:
        sys.exit(f"no such bug: {', '.join(sorted(unknown))}")
    chosen = [bug for bug in bugs if not arguments.bug or bug.name in arguments.bug]
    copy = copy_type(arguments.folder.resolve(), set())
    lost = 0
    for bug in chosen:
        result = copy.look(bug)
        lost += not result.startswith(("killed", "found"))
        print(f"{', '.join(bug.finders)}: {bug.name}: {result}", flush=True)
    print(f"{len(chosen) - lost} planted bugs of {len(chosen)} found")
    return 1 if lost else 0


if __name__ == "__main__":
    sys.exit(main())

"""Tests of the planted bugs: each is still a change of the sources, and is looked for by programs that
exist."""

import pathlib
import re
import signal
import subprocess
import sys
import time

import pytest

sys.path.insert(0, str(pathlib.Path(__file__).parent))
import planted

BUG = planted.Bug("a bug", "a.cpp", "return 1;", "return 2;", ("one_test", "other_test"))
LISTS = [planted.TEST_BUGS, planted.FUZZER_BUGS]


@pytest.mark.parametrize("file", LISTS, ids=lambda file: file.parent.name)
def test_every_planted_bug_is_a_change_of_the_sources(file):
    assert planted.errors_in(planted.bugs_in(file)) == []


def test_every_planted_bug_is_looked_for_by_existing_programs():
    rules = "\n".join(path.read_text() for path in planted.ROOT.glob("tests/**/CMakeLists.txt"))
    programs = set(re.findall(r"add_unit_test\((\w+)", rules))
    programs |= {f"fuzz_{name}" for name in re.findall(r"add_fuzzer\((\w+)", rules)}
    wanted = {finder for file in LISTS for bug in planted.bugs_in(file) for finder in bug.finders}
    assert wanted - programs == set()


def test_every_fuzzer_list_has_at_least_30_bugs():
    assert len(planted.bugs_in(planted.FUZZER_BUGS)) >= 30


@pytest.mark.parametrize("text", ["", "return 0;", "return 1; return 1;"])
def test_a_text_that_the_sources_do_not_have_once_is_an_error(text):
    with pytest.raises(ValueError, match="a bug: a.cpp"):
        BUG.apply_to(text)


class Runs(planted.Tests):
    """A copy in which tests fail as given, or a target does not compile."""

    def __init__(self, folder, failing=(), broken=()):
        self.source = folder
        self.passing = set()
        self.built = set()
        self.failing = failing
        self.broken = broken
        (folder / "a.cpp").write_text("return 1;")

    def is_planted(self):
        return (self.source / "a.cpp").read_text() == "return 2;"

    def compile(self, test, jobs=1):
        return subprocess.CompletedProcess([], int(self.is_planted() and test in self.broken), "")

    def test(self, test):
        return subprocess.CompletedProcess([], int(self.is_planted() and test in self.failing), "")


def test_a_bug_is_killed_by_any_of_its_tests(tmp_path):
    copy = Runs(tmp_path, failing=["other_test"])
    assert copy.look(BUG) == "killed by other_test"
    assert not copy.is_planted()


def test_a_bug_survives_if_no_test_fails(tmp_path):
    assert Runs(tmp_path).look(BUG) == "survived"


def test_a_bug_that_does_not_compile_is_not_found(tmp_path):
    assert Runs(tmp_path, broken=["one_test"]).look(BUG) == "does not compile"


# Plants a bug, and runs a command that would end after a minute.
PLANTS = """
import pathlib, sys
sys.path.insert(0, sys.argv[1])
import mutation, planted
mutation.end_when_interrupted()
copy = planted.Tests.__new__(planted.Tests)
copy.source = pathlib.Path.cwd()
with copy.mutated(planted.Bug("a bug", "a.cpp", "return 1;", "return 2;", ())):
    mutation.run("sh", "-c", "sleep 60 & echo $! > begun.new; mv begun.new begun; wait")
"""
PATIENCE = 30  # seconds


def wait_until(condition):
    end = time.monotonic() + PATIENCE
    while not condition():
        assert time.monotonic() < end
        time.sleep(0.01)


def is_running(process):
    try:
        return pathlib.Path(f"/proc/{process}/stat").read_text().rpartition(")")[2].split()[0] != "Z"
    except OSError:
        return False


# As above, but interrupted while the command is being started.
INTERRUPTED_EARLY = """
import os, pathlib, signal, subprocess
class Interrupted(subprocess.Popen):
    def __init__(self, *arguments, **options):
        super().__init__(*arguments, **options)
        pathlib.Path("started").write_text(str(self.pid))
        os.kill(os.getpid(), signal.SIGTERM)
subprocess.Popen = Interrupted
""" + PLANTS


def test_an_interruption_while_a_process_starts_ends_it(tmp_path):
    (tmp_path / "a.cpp").write_text("return 1;")
    words = [sys.executable, "-c", INTERRUPTED_EARLY, str(pathlib.Path(planted.__file__).parent)]
    assert subprocess.run(words, cwd=tmp_path, check=False).returncode == 128 + signal.SIGTERM
    assert (tmp_path / "a.cpp").read_text() == "return 1;"
    started = int((tmp_path / "started").read_text())
    wait_until(lambda: not is_running(started))


@pytest.mark.parametrize("number", [signal.SIGINT, signal.SIGTERM])
def test_an_interruption_leaves_no_bug_and_no_process_behind(tmp_path, number):
    (tmp_path / "a.cpp").write_text("return 1;")
    program = subprocess.Popen(
        [sys.executable, "-c", PLANTS, str(pathlib.Path(planted.__file__).parent)], cwd=tmp_path)
    wait_until((tmp_path / "begun").exists)
    begun = int((tmp_path / "begun").read_text())
    assert (tmp_path / "a.cpp").read_text() == "return 2;" and is_running(begun)
    program.send_signal(number)
    assert program.wait(PATIENCE) == 128 + number
    assert (tmp_path / "a.cpp").read_text() == "return 1;"
    wait_until(lambda: not is_running(begun))
